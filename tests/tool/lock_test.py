#!/usr/bin/env python3
"""Tests of zstz lock. usage: lock_test.py TOOL [unittest arguments]"""
import os
import pathlib
import resource
import signal
import struct
import subprocess
import sys
import time

import tool
from tool import DONE, HANGS, LOCKED, NO_ACCESS, USAGE


class LockTest(tool.ToolTest):
    def setUp(self):
        super().setUp()
        self.directory_path = pathlib.Path(self.directory.name)
        self.lock_file = self.directory_path / "._zplroutes"

    def start(self, *arguments, **options):
        """Starts the tool in the background and kills it at the end of the test."""
        run = subprocess.Popen([tool.TOOL, "lock", "--dir", self.directory.name, *arguments],
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)

        def end():
            run.kill()
            run.communicate()
        self.addCleanup(end)
        return run

    def lock(self, *arguments, **options):
        return self.run_tool("lock", "--dir", self.directory.name, *arguments, **options)

    def hold(self, kind):
        """Starts a command that holds the lock until its standard input ends."""
        run = self.start(kind, "routes", "--", "sh", "-c", "echo held; cat", stdin=subprocess.PIPE)
        self.assertEqual("held\n", run.stdout.readline())
        return run

    def shown(self):
        run = self.lock("--show", "routes")
        self.assertEqual((DONE, ""), (run.returncode, run.stderr))
        lines = dict(line.split(": ", 1) for line in run.stdout.splitlines())
        self.assertEqual(str(self.lock_file), lines["file"])
        return lines["state"], int(lines["sequence"])

    def wait_for(self, condition):
        until = time.monotonic() + HANGS
        while not condition():
            self.assertLess(time.monotonic(), until)
            time.sleep(0.01)

    # ---- Running a command ----

    def test_the_exit_code_of_the_command_is_returned(self):
        for kind in ("--read", "--write"):
            for code in (0, 1, 5, 77):
                with self.subTest(kind=kind, code=code):
                    run = self.lock(kind, "routes", "--", "sh", "-c",
                                    f"cat; echo out; echo err >&2; exit {code}", given="in\n")
                    self.assertEqual((code, "in\nout\n", "err\n"),
                                     (run.returncode, run.stdout, run.stderr))
                    self.assertEqual("free", self.shown()[0])

    def test_the_command_gets_its_arguments_unchanged(self):
        run = self.lock("--read", "routes", "--", "printf", "<%s>", "a b", "", "--write", "--", "*")
        self.assertEqual((DONE, "<a b><><--write><--><*>"), (run.returncode, run.stdout))

    def test_the_command_gets_the_environment_of_the_tool(self):
        for given, printed in (({}, "unset"), ({"QVRDIR": "/nowhere"}, "/nowhere")):
            run = self.lock("--read", "routes", "--", "sh", "-c", 'echo "${QVRDIR-unset}"',
                            environment=given)
            self.assertEqual(printed + "\n", run.stdout)

    def test_a_command_that_cannot_run_is_reported(self):
        plain = self.directory_path / "plain"
        plain.write_text("no program\n")
        for command, code, printed in (("no-such-command", 127, "No such file"),
                                       (str(self.directory_path / "none"), 127, "No such file"),
                                       (str(plain), 126, "Permission denied"),
                                       (self.directory.name, 126, "Permission denied")):
            with self.subTest(command):
                run = self.lock("--write", "routes", "--", command)
                self.assertEqual((code, ""), (run.returncode, run.stdout))
                self.assertRegex(run.stderr, rf"\Azstz: {command}: cannot run: {printed}[^\n]*\n\Z")
                self.assertEqual("free", self.shown()[0])

    def test_the_signal_that_kills_the_command_is_returned(self):
        for number in (signal.SIGKILL, signal.SIGTERM, signal.SIGSEGV):
            run = self.lock("--write", "routes", "--", "sh", "-c", f"kill -{int(number)} $$")
            self.assertEqual((128 + number, ""), (run.returncode, run.stderr))
            self.assertEqual("free", self.shown()[0])

    def test_only_a_writer_increments_the_sequence_number(self):
        self.assertEqual(("free", 0), self.shown())
        self.assertFalse(self.lock_file.exists())
        for kind, number in (("--read", 0), ("--write", 1), ("--read", 1), ("--write", 2)):
            self.assertEqual(DONE, self.lock(kind, "routes", "--", "true").returncode)
            self.assertEqual(("free", number), self.shown())
        self.assertEqual(2, struct.unpack("=I", self.lock_file.read_bytes()[:4])[0])

    def test_the_default_directory_is_the_working_directory(self):
        run = subprocess.run([tool.TOOL, "lock", "--write", "here", "--", "true"], check=False,
                             cwd=self.directory.name)
        self.assertEqual(DONE, run.returncode)
        self.assertTrue((self.directory_path / "._zplhere").exists())

    # ---- Multiple processes ----

    def test_show_prints_the_processes_that_hold_the_lock_and_wait_for_it(self):
        writer = self.hold("--write")
        self.assertEqual((f"write by process {writer.pid}", 0), self.shown())
        writer.communicate()
        reader = self.hold("--read")
        self.assertEqual((f"read by process {reader.pid}", 1), self.shown())
        waiting = self.start("--write", "--wait", str(HANGS), "routes", "--", "true")
        self.wait_for(lambda: self.shown()[0] == f"read by process {reader.pid}, process "
                      f"{waiting.pid} waits to write")
        reader.communicate()
        self.assertEqual(DONE, waiting.wait(HANGS))
        self.assertEqual(("free", 2), self.shown())

    def test_a_held_lock_fails_immediately(self):
        for held, wanted in (("--write", "--write"), ("--write", "--read"), ("--read", "--write")):
            with self.subTest(held=held, wanted=wanted):
                holder = self.hold(held)
                began = time.monotonic()
                run = self.lock(wanted, "routes", "--", "touch", str(self.directory_path / "ran"))
                self.assertLess(time.monotonic() - began, HANGS)
                self.assertEqual((LOCKED, ""), (run.returncode, run.stdout))
                self.assertEqual('zstz: lock "routes" is held by another process; try again, or '
                                 "pass --wait SECONDS\n", run.stderr)
                self.assertFalse((self.directory_path / "ran").exists())
                holder.communicate()
                self.assertEqual(0, holder.returncode)
                self.assertEqual(DONE, self.lock(wanted, "routes", "--", "true").returncode)

    def test_readers_share_the_lock(self):
        first, second = self.hold("--read"), self.hold("--read")
        self.assertRegex(self.shown()[0], r"\Aread by process \d+\Z")
        first.communicate()
        self.assertEqual(LOCKED, self.lock("--write", "routes", "--", "true").returncode)
        second.communicate()
        self.assertEqual(DONE, self.lock("--write", "routes", "--", "true").returncode)

    def test_wait_has_a_time_limit(self):
        holder = self.hold("--read")
        began = time.monotonic()
        run = self.lock("--write", "--wait", "0.7", "routes", "--", "true")
        waited = time.monotonic() - began
        self.assertEqual(LOCKED, run.returncode)
        self.assertGreaterEqual(waited, 0.7)
        self.assertLess(waited, HANGS)
        waiting = self.start("--write", "--wait", str(HANGS), "routes", "--", "echo", "in")
        self.wait_for(lambda: "waits to write" in self.shown()[0])
        self.assertIsNone(waiting.poll())
        holder.communicate()
        self.assertEqual(("in\n", ""), waiting.communicate(timeout=HANGS))
        self.assertEqual(DONE, waiting.returncode)

    def test_writers_exclude_each_other(self):
        counter = self.directory_path / "counter"
        counter.write_text("0\n")
        script = f'read n <"{counter}"; sleep 0.01; echo $((n + 1)) >"{counter}"'
        runs = [self.start("--write", "--wait", str(HANGS), "routes", "--", "sh", "-c", script)
                for _ in range(16)]
        self.assertEqual([DONE] * len(runs), [run.wait(HANGS) for run in runs])
        self.assertEqual("16\n", counter.read_text())
        self.assertEqual(("free", 16), self.shown())

    # ---- Signals, and processes that are killed ----

    def test_signals_are_forwarded(self):
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGUSR1,
                       signal.SIGUSR2, signal.SIGALRM):
            with self.subTest(number):
                name = number.name[3:]
                run = self.start("--write", "routes", "--", "sh", "-c",
                                 f"trap 'echo got {name}; exit 9' {name}; echo ready; "
                                 "while :; do sleep 0.02; done")
                self.assertEqual("ready\n", run.stdout.readline())
                run.send_signal(number)
                self.assertEqual((f"got {name}\n", ""), run.communicate(timeout=HANGS))
                self.assertEqual(9, run.returncode)
                self.assertEqual("free", self.shown()[0])

    def test_the_command_gets_a_terminal_signal_once(self):
        # The terminal sends the signal to both processes; zstz must not forward it too.
        script = ("import signal, time\n"
                  "signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT})\n"
                  "print('ready', flush=True)\n"
                  "count = signal.sigtimedwait({signal.SIGINT}, 60) is not None\n"
                  "until = time.monotonic() + 0.5\n"
                  "while time.monotonic() < until:\n"
                  "    count += signal.sigtimedwait({signal.SIGINT}, 0.05) is not None\n"
                  "print('count', count, flush=True)\n")
        child, terminal = os.forkpty()
        if child == 0:
            os.execv(tool.TOOL, [tool.TOOL, "lock", "--dir", self.directory.name, "--write",
                                 "routes",
                                 "--", "python3", "-c", script])
        shown = b""
        while b"ready" not in shown:
            shown += os.read(terminal, 1000)
        os.write(terminal, b"\x03")
        while b"count" not in shown or not shown.endswith(b"\n"):
            shown += os.read(terminal, 1000)
        self.assertIn(b"count 1", shown)
        self.assertEqual(0, os.waitpid(child, 0)[1])
        os.close(terminal)

    def test_a_signal_ends_the_wait(self):
        holder = self.hold("--read")
        waiting = self.start("--write", "--wait", str(HANGS), "routes", "--", "true")
        self.wait_for(lambda: "waits to write" in self.shown()[0])
        waiting.terminate()
        self.assertEqual(-signal.SIGTERM, waiting.wait(HANGS))
        holder.communicate()
        self.assertEqual(("free", 0), self.shown())

    def test_processes_that_the_command_leaves_running_do_not_hold_the_lock(self):
        run = self.start("--write", "routes", "--", "sh", "-c", "sleep 1000 >&- 2>&- & echo $!")
        left = int(run.stdout.readline())
        try:
            self.assertEqual(DONE, run.wait(HANGS))
            os.kill(left, 0)
            self.assertEqual(("free", 1), self.shown())
        finally:
            os.kill(left, signal.SIGKILL)

    def test_the_command_is_terminated_if_zstz_is_killed(self):
        run = self.start("--write", "routes", "--", "sh", "-c", "echo $$; exec sleep 1000")
        command = int(run.stdout.readline())
        run.kill()
        run.wait(HANGS)

        def has_ended():
            try:
                status = pathlib.Path(f"/proc/{command}/stat").read_text()
            except (FileNotFoundError, ProcessLookupError):
                return True
            return status.rsplit(")", 1)[1].split()[0] == "Z"
        self.wait_for(has_ended)
        self.assertEqual(("free", 0), self.shown())

    def test_an_ignored_SIGCHLD_does_not_lose_the_exit_code(self):
        run = subprocess.run([tool.TOOL, "lock", "--dir", self.directory.name, "--read", "routes",
                              "--",
                              "sh", "-c", "exit 3"], check=False, timeout=HANGS,
                             preexec_fn=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        self.assertEqual(3, run.returncode)

    # ---- Failures ----

    def test_unusable_lock_files_are_reported(self):
        def torn():
            self.lock_file.write_bytes(b"ab")

        def directory():
            self.lock_file.mkdir()

        def link():
            self.lock_file.symlink_to("elsewhere")

        def pipe():
            os.mkfifo(self.lock_file)

        def named_twice():
            (self.directory_path / "victim").write_text("untouched")
            os.link(self.directory_path / "victim", self.lock_file)

        for make, printed in ((torn, "too short"), (directory, "Is a directory"),
                              (link, "symbolic link"), (pipe, "not a regular file"),
                              (named_twice, "more than one name")):
            with self.subTest(make.__name__):
                make()
                run = self.lock("--write", "routes", "--", "touch",
                                str(self.directory_path / "ran"))
                if make is torn:  # acquiring the gate extends the file
                    self.assertEqual(DONE, run.returncode)
                else:
                    self.assertEqual((NO_ACCESS, ""), (run.returncode, run.stdout))
                    self.assertRegex(run.stderr, rf"\Azstz: {self.lock_file}: cannot use the lock "
                                     r"file: [^\n]+\n\Z")
                    self.assertIn(printed, run.stderr)
                    self.assertFalse((self.directory_path / "ran").exists())
                if make is directory:
                    self.lock_file.rmdir()
                else:
                    self.lock_file.unlink()
                (self.directory_path / "ran").unlink(missing_ok=True)
        self.assertFalse((self.directory_path / "elsewhere").exists())
        self.assertEqual("untouched", (self.directory_path / "victim").read_text())

    def test_show_reports_unusable_lock_files(self):
        rows = ((lambda: self.lock_file.write_bytes(b"ab"), "it is too short"),
                (self.lock_file.mkdir, "it is not a regular file"),
                (lambda: self.lock_file.symlink_to("elsewhere"), "it is a symbolic link"),
                (lambda: os.mkfifo(self.lock_file), "it is not a regular file"))
        for make, printed in rows:
            with self.subTest(printed):
                make()
                self.expect(NO_ACCESS,
                            f"zstz: {self.lock_file}: cannot use the lock file: {printed}; "
                            "check it, its directory and their permissions\n", "lock", "--dir",
                            self.directory.name, "--show", "routes")
                self.lock_file.rmdir() if make == self.lock_file.mkdir else self.lock_file.unlink()
        self.lock_file.write_bytes(b"")
        self.assertEqual(("free", 0), self.shown())

    def test_a_lock_file_without_permissions_is_reported(self):
        options = self.as_nobody()
        self.lock_file.write_bytes(b"")
        self.lock_file.chmod(0)
        for verb in (["--read", "routes", "--", "true"], ["--show", "routes"]):
            self.expect(NO_ACCESS,
                        f"{self.lock_file}: cannot use the lock file: Permission denied; ",
                        "lock", "--dir", self.directory.name, *verb, **options)

    def test_a_lock_file_that_cannot_grow_is_reported(self):
        run = self.lock("--write", "routes", "--", "touch", str(self.directory_path / "ran"),
                        **self.limited(resource.RLIMIT_FSIZE, 0))
        self.assertEqual((NO_ACCESS, ""), (run.returncode, run.stdout))
        self.assertIn(": cannot use the lock file: ", run.stderr)
        self.assertFalse((self.directory_path / "ran").exists())

    def test_a_failed_increment_of_the_sequence_number_is_reported(self):
        script = ("import os, resource, sys\n"
                  "resource.prlimit(os.getppid(), resource.RLIMIT_FSIZE, (0, 0))\n"
                  "sys.exit(int(sys.argv[1]))\n")
        self.assertEqual(DONE, self.lock("--write", "routes", "--", "true").returncode)
        for code, result in ((0, NO_ACCESS), (3, 3)):
            run = self.lock("--write", "routes", "--", sys.executable, "-c", script, str(code),
                            **self.limited(resource.RLIMIT_FSIZE, 1 << 30))
            self.assertEqual((result, ""), (run.returncode, run.stdout))
            self.assertRegex(run.stderr, r"\Azstz: \S+: cannot write the sequence number: [^\n]+; "
                             r"check the free space on its disk\n\Z")
            self.assertEqual(("free", 1), self.shown())

    def expect_no_run(self, why, **options):
        run = self.lock("--write", "routes", "--", "true", **options)
        self.assertEqual((NO_ACCESS,
                          f"zstz: true: cannot start a process: {why}; check the limits on "
                          "processes and open files\n"), (run.returncode, run.stderr))
        self.assertEqual(("free", 0), self.shown())

    def test_exhausted_file_descriptors_are_reported(self):
        # The lock file needs the fourth descriptor, and the pipe to the command two more.
        self.expect_no_run("Too many open files", **self.limited(resource.RLIMIT_NOFILE, 5))

    def test_exhausted_processes_are_reported(self):
        self.expect_no_run("Resource temporarily unavailable", **self.as_nobody(),
                           **self.limited(resource.RLIMIT_NPROC, 0))

    def test_unusable_directories_are_reported(self):
        for directory in (self.directory.name + "/none", self.file):
            for verb in (["--write", "routes", "--", "true"], ["--show", "routes"]):
                with self.subTest(directory=directory, verb=verb):
                    self.expect_unchanged(NO_ACCESS, f"zstz: {directory}: cannot lock: it is not a "
                                          "directory that its owner can write and search; create "
                                          "it, or choose another with --dir\n", "lock", "--dir",
                                          directory, *verb)

    def test_wrong_command_lines_are_refused(self):
        rows = (
            [], ["routes"], ["--read", "routes"], ["routes", "--", "true"],
            ["--read", "--write", "routes", "--", "true"], ["--read", "", "--", "true"],
            ["--show", "routes", "--", "true"], ["--show", "--read", "routes"],
            ["--show", "--wait", "1", "routes"], ["--read", "--wait", "-1", "routes", "--", "true"],
            ["--read", "--wait", "soon", "routes", "--", "true"],
            ["--read", "--dir", "", "routes", "--", "true"], ["--read", "routes", "ls", "-l"],
        )
        for arguments in rows:
            with self.subTest(arguments):
                self.expect_unchanged(USAGE, "--help", "lock", *arguments)


if __name__ == "__main__":
    tool.main()
