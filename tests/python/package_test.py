"""The package as a whole: types, version, wheel, the examples of its manual."""

from __future__ import annotations

import base64
import csv
import hashlib
import inspect
import io
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest
import zipfile

import support
from support import PACKAGE, ROOT, SAMPLE, PackageTest, zf

MANUAL = ROOT / "docs" / "python.md"


class Types(PackageTest):
    @unittest.skipUnless(shutil.which("mypy"), "mypy is not installed")
    def test_mypy_accepts_the_package_and_a_program_in_strict_mode(self) -> None:
        program = self.directory / "program.py"
        program.write_text(
            "import zfoundation as zf\n"
            "with zf.open('a', dialect=None, create=True, wait=1) as conf:\n"
            "    text: str = conf['a']['b']\n"
            "    many: list[str] = conf['a', 2].all('b')\n"
            "    number: int = conf['a'].int('b')\n"
            "    default: int | None = conf['a'].int('b', None)\n"
            "    truth: bool = conf['a'].bool('b', default=False)\n"
            "    comment: str | None = conf.comment(None)\n"
            "    conf.comment('a', 'text')\n"
            "    conf['c'] = {'k': 'v', 'many': ['a', 'b']}\n"
            "    conf['d'] = conf['c']\n"
            "    for name in conf:\n"
            "        upper: str = name.upper()\n"
            "    for change in zf.watch('a'):\n"
            "        old: list[str] | None = change.old\n"
            "contents: dict[str, dict[str, list[str]]] = zf.read('a')\n"
            "with zf.lock('routes', write=True, wait=10) as lock:\n"
            "    sequence: int = lock.sequence\n"
        )
        done = subprocess.run(
            ["mypy", "--strict", "--cache-dir", str(self.directory / "cache"),
             str(PACKAGE / "zfoundation"), str(program)],
            env=dict(os.environ, MYPYPATH=str(PACKAGE)),
            cwd=self.directory,
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual((0, ""), (done.returncode, done.stderr), done.stdout)

    @unittest.skipUnless(shutil.which("pyright"), "pyright is not installed; Debian has no package")
    def test_pyright_accepts_the_package_in_strict_mode(self) -> None:
        done = subprocess.run(
            ["pyright", "--project", str(PACKAGE / "pyproject.toml")],
            cwd=self.directory,
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual(0, done.returncode, done.stdout + done.stderr)

    def test_public_functions_have_types_and_contracts(self) -> None:
        for name in zf.__all__:
            thing = getattr(zf, name)
            members = [thing]
            if inspect.isclass(thing):
                members += [
                    member
                    for key, member in vars(thing).items()
                    if inspect.isfunction(member) and not key.startswith("_")
                ]
            for member in members:
                with self.subTest(f"{name} {getattr(member, '__name__', '')}"):
                    if name != "__version__":
                        self.assertTrue(inspect.getdoc(member))
                    if inspect.isfunction(member):
                        parameters = inspect.signature(member).parameters
                        untyped = [
                            key for key, parameter in parameters.items()
                            if parameter.annotation is parameter.empty and key != "self"
                        ]
                        self.assertEqual([], untyped)


class Packaging(PackageTest):
    def test_version_is_that_of_the_library(self) -> None:
        project = (ROOT / "CMakeLists.txt").read_text()
        found = re.search(r"project\(ZFoundation VERSION ([0-9.]+)", project)
        assert found is not None
        self.assertEqual(found[1], zf.__version__)
        pyproject = (PACKAGE / "pyproject.toml").read_text()
        self.assertIn('dynamic = ["version"]', pyproject)
        self.assertNotIn(zf.__version__, pyproject)

    def test_wheel_works_far_from_the_sources(self) -> None:
        build = pathlib.Path(os.environ["ZFOUNDATION_LIBRARY"]).parents[2]
        done = subprocess.run(
            [sys.executable, str(ROOT / "tools" / "dev" / "wheel.py"), str(build),
             str(self.directory / "dist")],
            capture_output=True,
            text=True,
            check=True,
        )
        wheel = pathlib.Path(done.stdout.strip())
        self.assertRegex(wheel.name, rf"^zfoundation-{zf.__version__}-py3-none-linux_\w+\.whl$")
        site = self.directory / "site"
        with zipfile.ZipFile(wheel) as archive:
            self.check_record(archive)
            archive.extractall(site)
        self.assertTrue((site / "zfoundation" / "py.typed").exists())
        self.use(site)

    @unittest.skipIf(
        subprocess.run([sys.executable, "-m", "pip", "--version"], capture_output=True).returncode,
        "pip is not installed",
    )
    def test_pip_installs_the_wheel(self) -> None:
        build = pathlib.Path(os.environ["ZFOUNDATION_LIBRARY"]).parents[2]
        done = subprocess.run(
            [sys.executable, str(ROOT / "tools" / "dev" / "wheel.py"), str(build),
             str(self.directory)],
            capture_output=True,
            text=True,
            check=True,
        )
        site = self.directory / "site"
        subprocess.run(
            [sys.executable, "-m", "pip", "install", "--quiet", "--no-index", "--no-deps",
             "--disable-pip-version-check", "--root-user-action=ignore", "--target", str(site),
             done.stdout.strip()],
            check=True,
        )
        self.use(site)

    def check_record(self, archive: zipfile.ZipFile) -> None:
        (name,) = [name for name in archive.namelist() if name.endswith(".dist-info/RECORD")]
        rows = list(csv.reader(io.StringIO(archive.read(name).decode())))
        self.assertEqual(sorted(archive.namelist()), sorted(row[0] for row in rows))
        for path, digest, size in rows:
            if path == name:
                continue
            contents = archive.read(path)
            expected = base64.urlsafe_b64encode(hashlib.sha256(contents).digest()).rstrip(b"=")
            self.assertEqual((f"sha256={expected.decode()}", str(len(contents))), (digest, size))

    def use(self, site: pathlib.Path) -> None:
        environment = {
            key: value
            for key, value in os.environ.items()
            if key not in ("ZFOUNDATION_LIBRARY", "QVRDIR")
        }
        done = subprocess.run(
            [sys.executable, "-c",
             "import sys, zfoundation as zf\n"
             "from zfoundation import _library\n"
             "print(_library._loaded_path())\n"
             "print(zf.read(sys.argv[1])['upstream'])\n", str(self.file)],
            env=dict(environment, PYTHONPATH=str(site)),
            capture_output=True,
            text=True,
            check=False,
        )
        library = os.path.realpath(site / "zfoundation" / "_lib" / "libzfoundation-6.0.so.0")
        self.assertEqual(
            (0, f"{library}\n{{'server': ['a']}}\n", ""),
            (done.returncode, done.stdout, done.stderr),
        )


class Manual(PackageTest):
    def test_examples_of_the_manual_run(self) -> None:
        blocks = re.findall(r"^```python\n(.*?)^```$", MANUAL.read_text(), re.M | re.S)
        self.assertGreater(len(blocks), 3)
        program = "\n".join(blocks)
        for part in (SAMPLE,):
            self.file.write_text(part)
        done = support.run_python(program, cwd=self.directory)
        self.assertEqual((0, ""), (done.returncode, done.stderr), done.stdout)

    def test_manual_names_everything_of_the_package(self) -> None:
        text = MANUAL.read_text()
        for name in zf.__all__:
            if name != "__version__":
                self.assertRegex(text, rf"\b{name}\b")
        for kind in (zf.Conf, zf.Stanza, zf.Lock):
            for name, member in vars(kind).items():
                if not name.startswith("_") and (callable(member) or isinstance(member, property)):
                    self.assertRegex(text, rf"\b{name}\b", f"{kind.__name__}.{name}")


if __name__ == "__main__":
    support.main()
