"""zfoundation.lock: the process lock of `zstz lock`."""

from __future__ import annotations

import errno
import gc
import os
import signal
import subprocess
import sys
import threading

import support
from support import OtherProcess, PackageTest, zf

HOLD = """
import sys, zfoundation as zf
with zf.lock("routes", write=sys.argv[2] == "write", directory=sys.argv[1], wait=600):
    print("ready", flush=True)
    sys.stdin.read()
"""


class Locking(PackageTest):
    def lock(self, write: bool = False, wait: float = 600) -> zf.Lock:
        return zf.lock("routes", write=write, wait=wait, directory=self.directory)

    def test_readers_share_and_a_writer_excludes(self) -> None:
        for held, wanted, is_free in (
            ("read", False, True),
            ("read", True, False),
            ("write", False, False),
            ("write", True, False),
        ):
            with self.subTest(f"{held} {wanted}"):
                with OtherProcess(HOLD, str(self.directory), held):
                    if is_free:
                        self.lock(wanted, 0).release()
                        continue
                    with self.assertRaises(zf.Busy) as caught:
                        self.lock(wanted, 0)
                    self.assertEqual(errno.EAGAIN, caught.exception.errno)
                    self.assertTrue(caught.exception.file.endswith("/._zplroutes"))
                    self.assertIn("'routes' is held", str(caught.exception))

    def test_threads_exclude_each_other(self) -> None:
        with self.lock(write=True) as held:
            self.assertTrue(held.held)
            with self.assertRaises(zf.Busy):
                self.lock(write=False, wait=0.01)
            thread = threading.Thread(target=lambda: self.assertRaises(zf.Busy, self.lock, True, 0))
            thread.start()
            thread.join()
        self.assertFalse(held.held)
        self.lock(write=True, wait=0).release()

    def test_wait_ends_when_the_lock_is_free(self) -> None:
        other = OtherProcess(HOLD, str(self.directory), "write")
        with other:
            timer = threading.Timer(0.05, other.end)
            timer.start()
            with self.lock(write=True):
                pass
            timer.join()

    def test_writers_count_their_changes(self) -> None:
        for expected in range(3):
            with self.lock(write=True) as held:
                self.assertEqual(expected, held.sequence)
        with self.lock(write=True) as held:
            held.changed = False
        with self.lock() as held:
            self.assertEqual(3, held.sequence)
            held.changed = True
            self.assertFalse(held.changed)
        with self.assertRaises(RuntimeError):
            with self.lock(write=True):
                raise RuntimeError
        with self.lock() as held:
            self.assertEqual(4, held.sequence)

    def test_tool_uses_the_same_lock(self) -> None:
        zstz = os.environ["ZSTZ"]
        command = [zstz, "lock", "--dir", str(self.directory), "--write", "routes", "--"]
        with self.lock(write=False):
            done = subprocess.run([*command, "true"], capture_output=True, check=False)
            self.assertEqual(5, done.returncode)
        probe = "import sys, zfoundation as zf; zf.lock('routes', wait=0, directory=sys.argv[1])"
        done = subprocess.run(
            [*command, sys.executable, "-c", probe, str(self.directory)],
            env=dict(os.environ, PYTHONPATH=str(support.PACKAGE)),
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertIn("Busy", done.stderr)
        with self.lock() as held:
            self.assertEqual(1, held.sequence)

    def test_release_twice_and_by_another_thread(self) -> None:
        held = self.lock(write=True)
        caught: list[BaseException] = []

        def release() -> None:
            try:
                held.release()
            except zf.Refused as failure:
                caught.append(failure)

        thread = threading.Thread(target=release)
        thread.start()
        thread.join()
        self.assertEqual(1, len(caught))
        self.assertTrue(held.held)
        held.release()
        held.release()
        self.assertEqual("<zfoundation.Lock 'routes': released>", repr(held))

    def test_deleted_lock_is_released(self) -> None:
        self.lock(write=True)
        gc.collect()
        self.lock(write=True, wait=0).release()

    def test_child_holds_no_lock_of_its_parent(self) -> None:
        with self.lock(write=True) as held:
            child = os.fork()
            if child == 0:
                is_right = not held.held
                held.release()
                try:
                    self.lock(write=False, wait=0)
                    is_right = False
                except zf.Busy:
                    pass
                os._exit(0 if is_right else 1)
            self.assertEqual(0, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
            probe = HOLD.replace("wait=600", "wait=0")
            done = support.run_python(probe, str(self.directory), "read")
            self.assertIn("zfoundation.errors.Busy", done.stderr)
            self.assertTrue(held.held)

    def test_signal_ends_a_wait(self) -> None:
        class Alarm(Exception):
            pass

        def ring(*_: object) -> None:
            raise Alarm

        before = signal.signal(signal.SIGALRM, ring)
        try:
            with OtherProcess(HOLD, str(self.directory), "write"):
                signal.setitimer(signal.ITIMER_REAL, 0.05)
                with self.assertRaises(Alarm):
                    self.lock(write=True)
        finally:
            signal.setitimer(signal.ITIMER_REAL, 0)
            signal.signal(signal.SIGALRM, before)

    def test_lock_files_that_cannot_be_used(self) -> None:
        (self.directory / "._zplroutes").mkdir()
        with self.assertRaises(zf.FileError) as caught:
            self.lock()
        self.assertEqual(errno.EINVAL, caught.exception.errno)
        self.assertNotIsInstance(caught.exception, zf.Busy)
        with self.assertRaises(zf.InvalidValue):
            zf.lock("", directory=self.directory)
        with self.assertRaises(zf.InvalidValue):
            zf.lock("a\0b", directory=self.directory)
        with self.assertRaises(zf.MissingFile) as missing:
            zf.lock("routes", directory=self.directory / "nothing")
        self.assertEqual(str(self.directory / "nothing"), missing.exception.file)
        with self.assertRaises(zf.FileError) as other:
            zf.lock("routes", directory=self.file)
        self.assertEqual(errno.ENOTDIR, other.exception.errno)
        self.directory.chmod(0o500)
        with self.assertRaises(zf.FileError) as closed:
            zf.lock("other", directory=self.directory)
        self.assertEqual(errno.EACCES, closed.exception.errno)
        self.directory.chmod(0o700)

    def test_one_writer_at_a_time_among_threads(self) -> None:
        counter = self.directory / "counter"
        counter.write_text("0")

        def work() -> None:
            for _ in range(20):
                with self.lock(write=True):
                    counter.write_text(str(int(counter.read_text()) + 1))

        threads = [threading.Thread(target=work) for _ in range(5)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual("100", counter.read_text())


if __name__ == "__main__":
    support.main()
