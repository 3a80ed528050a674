"""zfoundation.watch: changes as they happen, and no state that no writer left."""

from __future__ import annotations

import os
import subprocess
import sys
import threading
from collections.abc import Callable

import support
from support import SAMPLE, PackageTest, zf

LONG = 100.0  # seconds; no test waits for it
SHORT = 0.2


class Watching(PackageTest):
    def change(self, value: str) -> None:
        with zf.open(self.file) as conf:
            conf["listener"]["log"] = value

    def seen_after(self, action: Callable[[], object], count: int = 1) -> list[zf.Change]:
        """Returns the first changes that a watcher sees, and checks that there are no more."""
        with zf.watch(self.file, timeout=LONG) as watcher:
            action()
            changes = [next(watcher) for _ in range(count)]
            watcher._timeout = SHORT
            self.assertEqual([], list(watcher))
        return changes

    def test_nothing_is_reported_without_a_change(self) -> None:
        with zf.watch(self.file, timeout=SHORT) as watcher:
            self.assertEqual([], list(watcher))
            os.utime(self.file)
            self.assertEqual([], list(watcher))
            self.file.write_text("# another comment\n" + SAMPLE)
            self.assertEqual([], list(watcher))

    def test_store_of_the_library_is_reported(self) -> None:
        changes = self.seen_after(lambda: self.change("no"))
        self.assertEqual([zf.Change("listener", "log", ["yes"], ["no"])], changes)

    def test_added_and_removed_keys_and_stanzas_are_reported(self) -> None:
        def edit() -> None:
            with zf.open(self.file) as conf:
                del conf["upstream"]
                del conf["listener"]["motd"]
                conf["listener"].set("port", ["1"])
                conf["new"] = {"a": ["1", "2"]}

        self.assertEqual(
            [
                zf.Change("listener", "port", ["8080", "8443"], ["1"]),
                zf.Change("new", "a", None, ["1", "2"]),
                zf.Change("listener", "motd", [], None),
                zf.Change("upstream", "server", ["a"], None),
            ],
            self.seen_after(edit, 4),
        )

    def test_editors_that_rename_are_followed(self) -> None:
        with zf.watch(self.file, timeout=LONG) as watcher:
            for last in (42, 52):
                for number in range(last - 2, last + 1):
                    other = self.directory / ".app.conf.swp"
                    other.write_text(SAMPLE.replace("30", str(number)))
                    os.replace(other, self.file)
                new: list[str] | None = None
                while new != [str(last)]:
                    change = next(watcher)
                    self.assertEqual(("listener", "idle-timeout"), (change.stanza, change.key))
                    new = change.new

    def test_editors_that_write_in_place_are_followed_after_they_close(self) -> None:
        """The file is truncated and half written for a while."""
        text = SAMPLE.replace("yes", "no")
        with zf.watch(self.file, timeout=0.3) as watcher:
            with open(self.file, "w", encoding="utf-8") as file:
                file.write(text[:50])
                file.flush()
                file.write(text[50:])
            watcher._timeout = LONG
            self.assertEqual(zf.Change("listener", "log", ["yes"], ["no"]), next(watcher))

    def test_file_that_is_missing_for_a_while_is_compared_when_it_is_back(self) -> None:
        with zf.watch(self.file, timeout=SHORT) as watcher:
            self.file.unlink()
            self.assertEqual([], list(watcher))
            self.file.write_text(SAMPLE.replace("yes", "no"))
            watcher._timeout = LONG
            self.assertEqual(["no"], next(watcher).new)

    def test_invalid_file_is_compared_when_it_is_valid(self) -> None:
        with zf.watch(self.file, timeout=SHORT) as watcher:
            self.file.write_text("bad line\n")
            self.assertEqual([], list(watcher))
            self.file.write_text(SAMPLE.replace("yes", "no"))
            watcher._timeout = LONG
            self.assertEqual(["no"], next(watcher).new)

    def test_target_of_a_symbolic_link_is_followed(self) -> None:
        first, second = self.directory / "1", self.directory / "2"
        for directory in (first, second):
            directory.mkdir()
            (directory / "app.conf").write_text(SAMPLE)
        link = self.directory / "link.conf"
        link.symlink_to(first / "app.conf")
        with zf.watch(link, timeout=LONG) as watcher:
            (first / "app.conf").write_text(SAMPLE.replace("yes", "1"))
            self.assertEqual(["1"], next(watcher).new)
            (second / "app.conf").write_text(SAMPLE.replace("yes", "2"))
            other = self.directory / "other"
            other.symlink_to(second / "app.conf")
            os.replace(other, link)
            self.assertEqual(["2"], next(watcher).new)
            (second / "app.conf").write_text(SAMPLE.replace("yes", "3"))
            self.assertEqual(["3"], next(watcher).new)

    def test_no_state_between_two_stores_is_reported(self) -> None:
        """Both values are always equal in the file; stores run during the readings."""
        self.file.write_text("[a]\nx = 0\n" + "# filler\n" * 2000 + "y = 0\n")
        writer = subprocess.Popen(
            [
                sys.executable,
                "-c",
                "import sys, zfoundation as zf\n"
                "for n in range(1, 101):\n"
                "    with zf.open(sys.argv[1], wait=600) as conf:\n"
                "        conf['a'].update(x=str(n), y=str(n))\n",
                str(self.file),
            ],
            env=dict(os.environ, PYTHONPATH=str(support.PACKAGE)),
        )
        state = {"x": "0", "y": "0"}
        with zf.watch(self.file, timeout=LONG) as watcher:
            while state != {"x": "100", "y": "100"}:
                change = next(watcher)
                assert change.new is not None and change.old is not None
                self.assertEqual([state[change.key]], change.old)
                state[change.key] = change.new[0]
                if not watcher._changes:  # the last of one comparison
                    self.assertEqual(state["x"], state["y"])
        self.assertEqual(0, writer.wait())

    def test_close_ends_the_iteration(self) -> None:
        watcher = zf.watch(self.file)
        watcher.close()
        watcher.close()
        self.assertEqual([], list(watcher))

    def test_watchers_close_their_descriptors(self) -> None:
        before = support.descriptors()
        for _ in range(50):
            zf.watch(self.file)
            with self.assertRaises(zf.MissingFile):
                zf.watch(self.directory / "nothing")
        self.assertEqual(before, support.descriptors())

    def test_watcher_in_a_thread_sees_stores_of_its_process(self) -> None:
        seen: list[zf.Change] = []
        started = threading.Event()

        def run() -> None:
            with zf.watch(self.file, timeout=LONG) as watcher:
                started.set()
                seen.append(next(watcher))

        thread = threading.Thread(target=run)
        thread.start()
        started.wait()
        self.change("no")
        thread.join()
        self.assertEqual([zf.Change("listener", "log", ["yes"], ["no"])], seen)


if __name__ == "__main__":
    support.main()
