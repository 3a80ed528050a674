"""Runs zstz in a directory per test and checks its output, exit code and files."""
import os
import pathlib
import re
import resource
import subprocess
import sys
import tempfile
import unittest

TOOL = ""

(DONE, NOT_FOUND, USAGE, INVALID_DATA, NO_ACCESS, LOCKED, INVALID_VALUE, REFUSED, DIFFERS,
 INTERNAL) = range(10)

# Seconds after which a process hangs, however slow and busy the machine is.
HANGS = 300

GATEWAY = """\
# The gateway of the office.

[listener]
# ports to listen on
port = 8080
port = 8443
name = front door
motd =

[upstream]
weight = 0x1F
ready = Yes
"""


# The tests try each sample whose index is a multiple of this number.
SHARE = int(os.environ.get("Z_TEST_SHARE", "1"))


def is_sanitized():
    """Returns whether the tool is built with a sanitizer."""
    return re.search(rb"__(asan|tsan|ubsan)_", pathlib.Path(TOOL).read_bytes()) is not None


def samples():
    """Returns the share of the samples of formats: the path of each, and the name of its dialect."""
    directory = pathlib.Path(__file__).resolve().parents[1] / "data/dialects"
    found = [path for path in sorted(directory.iterdir())
             if path.suffix not in (".reading", ".counts") and path.with_suffix(".reading").exists()]
    return [(path, path.name.split(".")[0]) for path in found[::SHARE]]


class ToolTest(unittest.TestCase):
    """Creates a directory with a configuration file for each test."""

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.path = pathlib.Path(self.directory.name) / "gateway.conf"
        self.path.write_text(GATEWAY)
        self.file = str(self.path)

    def as_nobody(self):
        """Returns options of run_tool() that run the tool without the rights of root, and gives the
        test directory to that user."""
        if os.geteuid() != 0:
            return {}
        nobody = 65534
        for path in (self.directory.name, self.file):
            os.chown(path, nobody, nobody)
        options = {"user": nobody, "group": nobody, "extra_groups": []}
        try:
            reached = self.run_tool("stanzas", self.file, **options).returncode == DONE
        except PermissionError:
            reached = False
        if not reached:
            self.skipTest("only root can reach the tool, its tables or its files")
        return options

    def limited(self, limit, value):
        """Returns options of run_tool() that set a resource limit. A write beyond the file size
        limit fails, but does not kill the tool, because SIGXFSZ stays ignored."""
        program = pathlib.Path(TOOL).read_bytes()
        if is_sanitized():
            self.skipTest("a sanitizer needs more memory, files and processes")
        if program.startswith(b"#!") and limit != resource.RLIMIT_FSIZE:
            self.skipTest("an emulator needs more memory, files and processes")
        return {"preexec_fn": lambda: resource.setrlimit(limit, (value, value)),
                "restore_signals": False}

    def run_tool(self, *arguments, given="", **options):
        environment = {k: v for k, v in os.environ.items() if k != "QVRDIR"}
        environment["LC_ALL"] = "C.UTF-8"
        environment.update(options.pop("environment", {}))
        return subprocess.run([TOOL, *arguments], input=given, capture_output=True, text=True,
                              env=environment, check=False, timeout=HANGS, **options)

    def processor_time(self, *arguments, **options):
        """Returns the processor time, in seconds, of a run of the tool that succeeds."""
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        run = self.run_tool(*arguments, **options)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        self.assertEqual(DONE, run.returncode, run.stderr)
        return after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime

    def expect_linear_time(self, size, prepare):
        """Checks that a run of eight times the size takes about eight times the processor time.
        `prepare(n)` writes the files of size n, and returns the arguments and the standard input."""
        between = 30  # 64 if it is quadratic
        times = []
        for count in (size, 8 * size):
            arguments, given = prepare(count)
            times.append(min(self.processor_time(*arguments, given=given) for _ in range(3)))
        self.assertLess(times[1], between * times[0])

    def expect(self, code, printed, *arguments, **options):
        """Runs the tool. If `code` is a failure, the report is one line that contains `printed`."""
        run = self.run_tool(*arguments, **options)
        self.assertEqual((code, "" if code else printed), (run.returncode, run.stdout), run.stderr)
        if code:
            self.assertRegex(run.stderr, r"\Azstz: [^\n]+\n\Z")
            self.assertIn(printed, run.stderr)
        else:
            self.assertEqual("", run.stderr)

    def expect_unchanged(self, code, printed, *arguments, **options):
        before = self.directory_contents()
        self.expect(code, printed, *arguments, **options)
        after = self.directory_contents()
        self.assertEqual(before, after)

    def expect_rows(self, rows):
        """Runs each row of a table: a name, the files before, the arguments, the output, the exit
        code and the files after, None if they are the same; the last element may be the standard
        input. File names in arguments and output are relative. If the code is a failure, the
        report contains the output."""
        for name, before, arguments, printed, code, after, *given in rows:
            with self.subTest(name):
                self.write_files(before)
                run = self.run_in_directory(*arguments, given=given[0] if given else b"")
                if code in (DONE, DIFFERS):
                    self.assertEqual((code, printed, b""), (run.returncode, run.stdout, run.stderr))
                else:
                    self.assertEqual((code, b""), (run.returncode, run.stdout), run.stderr)
                    self.assertIn(printed, run.stderr)
                self.assertEqual(before if after is None else after, self.read_files())

    def write_files(self, files):
        for path in self.path.parent.iterdir():
            path.unlink()
        for name, text in files.items():
            (self.path.parent / name).write_bytes(text)

    def read_files(self):
        return {path.name: path.read_bytes() for path in self.path.parent.iterdir()}

    def run_in_directory(self, *arguments, given=b""):
        environment = {k: v for k, v in os.environ.items() if k != "QVRDIR"}
        environment["LC_ALL"] = "C.UTF-8"
        return subprocess.run([TOOL, *arguments], input=given, capture_output=True, check=False,
                              cwd=self.directory.name, env=environment, timeout=HANGS)

    def directory_contents(self):
        return sorted((p.name, p.read_bytes() if p.is_file() else None)
                      for p in self.path.parent.iterdir())

    def expect_text(self, text):
        self.assertEqual(text, self.path.read_text())


def main():
    """Runs the tests of the calling module. The first argument is the path of the tool."""
    global TOOL
    TOOL = os.path.abspath(sys.argv.pop(1))
    unittest.main()
