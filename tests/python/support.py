"""Helpers of the tests of the Python package."""

from __future__ import annotations

import contextlib
import gc
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
from collections.abc import Iterator
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = ROOT / "python"
sys.path.insert(0, str(PACKAGE))

import zfoundation as zf  # noqa: E402

SAMPLE = """\
# The gateway.

# where it listens
[listener]
port = 8080
port = 8443
log = yes
idle-timeout = 30
motd =

[upstream]
server = a
"""


def descriptors() -> set[str]:
    """Returns the open descriptors of the process with the files to which they lead."""
    found = set()
    for name in os.listdir("/proc/self/fd"):
        try:
            found.add(f"{name} {os.readlink(f'/proc/self/fd/{name}')}")
        except OSError:
            pass  # of the listing itself
    return found


@contextlib.contextmanager
def in_directory(directory: pathlib.Path) -> Iterator[None]:
    """Makes `directory` the working directory of the block."""
    before = os.getcwd()
    os.chdir(directory)
    try:
        yield
    finally:
        os.chdir(before)


class PackageTest(unittest.TestCase):
    """Has a directory of its own, and fails if a test leaves a descriptor open."""

    def setUp(self) -> None:
        self._directory = tempfile.TemporaryDirectory()
        self.addCleanup(self._directory.cleanup)
        self.directory = pathlib.Path(self._directory.name)
        self.file = self.directory / "app.conf"
        self.file.write_text(SAMPLE)
        before = descriptors()
        self.addCleanup(self._check_descriptors, before)

    def _check_descriptors(self, before: set[str]) -> None:
        gc.collect()
        self.assertEqual(before, descriptors())

    def text(self) -> str:
        return self.file.read_text()

    def assertUnchanged(self) -> None:
        self.assertEqual(SAMPLE, self.text())


def run_python(code: str, *arguments: str, **options: Any) -> subprocess.CompletedProcess[str]:
    """Runs `code` in a new process that finds the package."""
    environment = dict(os.environ, PYTHONPATH=str(PACKAGE))
    return subprocess.run(
        [sys.executable, "-c", code, *arguments],
        env=environment,
        capture_output=True,
        text=True,
        check=False,
        **options,
    )


class OtherProcess:
    """Runs `code` in another process. It shows with `print("ready", flush=True)` that it has started
    to do its work, and ends when its input ends."""

    def __init__(self, code: str, *arguments: str) -> None:
        self._process = subprocess.Popen(
            [sys.executable, "-c", code, *arguments],
            env=dict(os.environ, PYTHONPATH=str(PACKAGE)),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )

    def __enter__(self) -> OtherProcess:
        assert self._process.stdout is not None
        line = self._process.stdout.readline()
        if line != "ready\n":
            self.__exit__()
            raise AssertionError(f"the other process printed {line!r}")
        return self

    def __exit__(self, *exception: object) -> None:
        self._process.communicate()

    def end(self) -> None:
        self._process.communicate()


def main() -> None:
    unittest.main(verbosity=1)
