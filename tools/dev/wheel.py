#!/usr/bin/env python3
"""Makes a wheel of the Python package that carries the library and its tables.

usage: wheel.py BUILD-DIRECTORY OUTPUT-DIRECTORY

The wheel stands on ICU and zlib of the system, as the library does. It needs no compiler and no
package of Python: a wheel is a zip archive with a list of its files. Prints its path.
"""
import base64
import hashlib
import pathlib
import re
import stat
import subprocess
import sys
import sysconfig
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = ROOT / "python" / "zfoundation"
LIBRARIES = ("src/Z/libzfoundation-6.0.so.0", "src/qvr/libqvr.so.1")
DATE = (2020, 1, 1, 0, 0, 0)  # the same input makes the same archive


def version():
    text = (PACKAGE / "_version.py").read_text(encoding="utf-8")
    return re.search(r'__version__ = "([^"]+)"', text)[1]


def without_symbols(path):
    """Returns the library without symbols for a debugger, and without a run path."""
    target = path.with_name(path.name + ".stripped")
    try:
        subprocess.run(["strip", "--strip-unneeded", "-o", str(target), str(path)], check=True)
        return target.read_bytes()
    finally:
        target.unlink(missing_ok=True)


def files(build):
    """Yields (name in the wheel, contents)."""
    for path in sorted(PACKAGE.rglob("*")):
        if path.is_file() and path.suffix in (".py", ".typed"):
            yield f"zfoundation/{path.relative_to(PACKAGE)}", path.read_bytes()
    for library in LIBRARIES:
        path = (build / library).resolve()
        yield f"zfoundation/_lib/{pathlib.Path(library).name}", without_symbols(path)
    tables = ROOT / "src" / "qvr" / "tables"
    for path in sorted(tables.rglob("*")):
        if path.is_file():
            yield f"zfoundation/_lib/tables/{path.relative_to(tables)}", path.read_bytes()


def metadata(tag):
    readme = (ROOT / "python" / "README.md").read_text(encoding="utf-8")
    yield "METADATA", (
        f"Metadata-Version: 2.1\nName: zfoundation\nVersion: {version()}\n"
        "Summary: Configuration files: read, changed line by line, compared and watched\n"
        "Requires-Python: >=3.9\nDescription-Content-Type: text/markdown\n\n" + readme)
    yield "WHEEL", (
        f"Wheel-Version: 1.0\nGenerator: tools/dev/wheel.py\nRoot-Is-Purelib: false\nTag: {tag}\n")
    yield "top_level.txt", "zfoundation\n"


def digest(contents):
    raw = base64.urlsafe_b64encode(hashlib.sha256(contents).digest()).rstrip(b"=")
    return f"sha256={raw.decode()}"


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__.split("\n\n")[1])
    build, output = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    tag = "py3-none-" + re.sub("[-.]", "_", sysconfig.get_platform())
    output.mkdir(parents=True, exist_ok=True)
    wheel = output / f"zfoundation-{version()}-{tag}.whl"
    records = []
    with zipfile.ZipFile(wheel, "w", zipfile.ZIP_DEFLATED) as archive:

        def add(name, contents):
            entry = zipfile.ZipInfo(name, DATE)
            entry.compress_type = zipfile.ZIP_DEFLATED
            mode = 0o755 if ".so" in name else 0o644
            entry.external_attr = (stat.S_IFREG | mode) << 16
            archive.writestr(entry, contents)
            records.append(f"{name},{digest(contents)},{len(contents)}")

        for name, contents in files(build):
            add(name, contents)
        info = f"zfoundation-{version()}.dist-info"
        for name, text in metadata(tag):
            add(f"{info}/{name}", text.encode())
        records.append(f"{info}/RECORD,,")
        archive.writestr(zipfile.ZipInfo(f"{info}/RECORD", DATE), "\n".join(records) + "\n")
    print(wheel)


if __name__ == "__main__":
    main()
