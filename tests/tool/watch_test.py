#!/usr/bin/env python3
"""Tests of `zstz watch` with several kinds of writers. usage: watch_test.py TOOL [unittest arguments]"""
import json
import os
import queue
import subprocess
import threading
import time

import tool
from tool import DONE, INVALID_DATA, NO_ACCESS, USAGE

# States have two keys that are always equal, so that a mixture of states is seen.
PADDING = "# padding\n" * 2000


def state(number):
    return f"[s]\nfirst = {number}\n{PADDING}last = {number}\n"


A = "[a]\nk = 1\nl = x\n"

# The name of the file, the arguments after it, two states, and the lines of the change between them.
ROWS = [
    ("f", [], A, A.replace("1", "2"), ["a k 1 2"]),
    ("f", [], A, A + "m = 3\n", ["a m - 3"]),
    ("f", [], A, "[a]\nl = x\n", ["a k 1 -"]),
    ("f", [], A, A + "\n[b]\nk =\n", ["b k - ''"]),
    ("f", ["a"], A + "[b]\nk = 1\n", "[a]\nk = 1\nl = y\n[b]\nk = 2\n", ["a l x y"]),
    ("f", ["a", "l"], A, "[a]\nk = 2\nl = y\n", ["a l x y"]),
    ("f", ["--format", "lines"], A, A.replace("x", "it's"), ["a\tl\tx\tit's"]),
    ("f", ["--dialect", "ini"], "k = 1\n[a]\n", "k = 2\n[a]\n", [". k 1 2"]),
    ("smb.conf", ["A", "GuestOk"], "[a]\n guest ok = no\n", "[a]\n guest ok = yes\n", ["a 'guest ok' no yes"]),
    ("u.service", [], "[S]\nE=1\n", "[S]\nE=1\nE=\nE=2\n", ["S E - ''", "S E - 2"]),
    (".gitconfig", ['remote "o"'], '[remote "o"]\n\turl = x\n', '[remote "o"]\n\turl = y\n',
     ["remote.o url x y"]),
]

# The files, the arguments, the code, and words of the report.
REFUSALS = [
    ({}, ["f"], NO_ACCESS, b"f: cannot open: No such file"),
    ({"f": b"word\n"}, ["f"], INVALID_DATA, b"f:1:1: "),
    ({"php.ini": b'k = "x\n'}, ["php.ini"], INVALID_DATA, b"php.ini:1:5: "),
    ({}, ["."], NO_ACCESS, b".: is a directory; give a regular file"),
    ({}, ["-"], USAGE, b"FILE must not be standard input"),
    ({"f": b"[a]\n"}, ["f", "a", "k", "l"], USAGE, b'unexpected argument "l"'),
    ({"f": b"[a]\n"}, ["f", "--format", "sh"], USAGE, b'"sh" is not plain, json or lines'),
]


class Watch:
    """A running `zstz watch`."""

    def __init__(self, test, *arguments):
        environment = {k: v for k, v in os.environ.items() if k != "QVRDIR"}
        environment["LC_ALL"] = "C.UTF-8"
        self.process = subprocess.Popen([tool.TOOL, "watch", *arguments], stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True, env=environment)
        test.addCleanup(self.stop)
        self.lines = queue.Queue()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line)
        self.lines.put(None)

    def next(self, stanza=""):
        """Returns the next line that starts with `stanza`."""
        while True:
            line = self.lines.get(timeout=tool.HANGS)
            if line is None or line.startswith(stanza):
                return line

    def stop(self):
        self.process.kill()
        self.thread.join()
        self.process.stdout.close()
        self.process.stderr.close()
        self.process.wait()


class WatchTest(tool.ToolTest):
    def rename(self, text):
        other = self.path.parent / "new"
        other.write_text(text)
        os.rename(other, self.path)

    def rename_away(self, text):
        """As an editor that keeps the old file under another name."""
        os.rename(self.path, self.path.parent / "gateway.conf~")
        self.path.write_text(text)

    def write_in_place(self, text):
        with open(self.file, "r+", buffering=1 << 20) as file:
            file.truncate()
            half = len(text) // 2
            file.write(text[:half])
            file.flush()
            file.write(text[half:])

    def start(self):
        """Starts a watch and waits until it prints changes."""
        watch = Watch(self, self.file)
        before = self.path.read_text()
        number = 0
        while watch.lines.empty():
            number += 1
            self.path.write_text(before + f"\n[ready]\nn = {number}\n")
            try:
                watch.lines.put(watch.lines.get(timeout=0.2))
            except queue.Empty:
                pass
        self.path.write_text(before + "\n[ready]\nn = end\n")
        while "end" not in watch.next():
            pass
        return watch

    def test_prints_the_lines_of_the_table(self):
        for name, arguments, before, after, printed in ROWS:
            with self.subTest(name, arguments=arguments, after=after):
                self.path = self.path.parent / name
                self.rename(before)
                watch = Watch(self, str(self.path), *arguments)
                lines = []
                # The watch may start at either state.
                while printed != lines[-len(printed):]:
                    for text in (after, before):
                        self.rename(text)
                        try:
                            while True:
                                lines.append(watch.lines.get(timeout=0.2).rstrip("\n"))
                                if lines[-len(printed):] == printed:
                                    break
                        except queue.Empty:
                            pass
                        if lines[-len(printed):] == printed:
                            break
                self.assertLessEqual(len(set(lines)), 2 * len(printed), lines)
                watch.stop()
                self.path.unlink()

    def test_refuses_the_commands_of_the_table(self):
        for files, arguments, code, printed in REFUSALS:
            self.expect_rows([(str(arguments), files, ["watch", *arguments], printed, code, None)])

    def test_prints_each_kind_of_change(self):
        self.path.write_text("[a]\nk = 1\nl = x y\nempty =\n")
        watch = self.start()
        ready = "[ready]\nn = end\n"
        self.rename("[a]\nk = 2\nl = x y\nl = -\n" + ready + "[b]\n[c]\nm = it's\n")
        self.assertEqual(["a k 1 2\n", "a l - '-'\n", "a empty '' -\n", "b - - ''\n",
                          "c m - 'it'\\''s'\n"], [watch.next() for _ in range(5)])
        self.rename(ready)
        self.assertEqual(["a k 2 -\n", "a l 'x y' -\n", "a l '-' -\n", "b - '' -\n",
                          "c m 'it'\\''s' -\n"], [watch.next() for _ in range(5)])

    def test_selects_a_stanza_and_a_key_and_prints_json(self):
        self.path.write_text("[a]\nk = 1\n")
        everything = self.start()
        key = Watch(self, self.file, "a", "k", "--format", "json")
        number = 1
        while key.lines.empty():
            number += 1
            self.rename(f"[a]\nk = {number}\nl = {number}\n[b]\nk = {number}\n")
            while everything.next() != f"b k {number - 1 if number > 2 else '-'} {number}\n":
                pass
        found = json.loads(key.next())
        self.assertEqual((self.file, "a", "k"), (found["file"], found["stanza"], found["key"]))
        self.assertLess(int(found["old"]), int(found["new"]))

    def check_states(self, write):
        self.path.write_text(state(0))
        watch = self.start()
        for number in range(1, 60):
            write(state(number))
        write(state("end"))
        values = {"first": "0", "last": "0"}
        seen = 0
        while values != {"first": "end", "last": "end"}:
            for key in ("first", "last"):
                stanza, name, old, new = watch.next("s ").split()
                self.assertEqual(("s", key, values[key]), (stanza, name, old))
                values[key] = new
            self.assertEqual(values["first"], values["last"])
            seen += 1
        self.assertGreater(seen, 0)
        self.assertIsNone(watch.process.poll())

    def test_sees_whole_states_of_a_file_that_is_renamed_over(self):
        self.check_states(self.rename)

    def test_sees_whole_states_of_a_file_that_is_renamed_away_and_written(self):
        self.check_states(self.rename_away)

    def test_sees_whole_states_of_a_file_that_is_written_in_place(self):
        self.check_states(self.write_in_place)

    def test_sees_the_stores_of_the_tool(self):
        self.path.write_text("[s]\nboth = 0\n")
        watch = self.start()
        for number in range(1, 10):
            options = ["--replace"] if number % 2 else []
            self.expect(DONE, "", "set", self.file, "s", "both", str(number), *options)
            self.assertEqual(f"s both {number - 1} {number}\n", watch.next("s "))

    def test_waits_while_a_program_has_the_file_half_written(self):
        self.path.write_text(state(0))
        watch = self.start()
        with open(self.file, "w") as file:
            file.write("[s]\nfirst = 1\n")
            file.flush()
            self.rename_other()
            file.write("last = 1\n")
        self.assertEqual(["s first 0 1\n", "s last 0 1\n"], [watch.next("s "), watch.next("s ")])

    def rename_other(self):
        """Causes events in the directory that do not concern the file."""
        other = self.path.parent / "other"
        for _ in range(50):
            other.write_text("x")
            os.rename(other, self.path.parent / "another")

    def watch_file(self, name, text, *options):
        """Returns a watch of a file of a dialect that prints changes, and the path of the file."""
        path = self.path.parent / name
        path.write_text(text)
        watch = Watch(self, str(path), *options)
        number = 0
        while watch.lines.empty():
            number += 1
            path.write_text(text.replace("= 0", f"= {number}"))
            try:
                watch.lines.put(watch.lines.get(timeout=0.2))
            except queue.Empty:
                pass
        path.write_text(text.replace("= 0", "= end"))
        while "end" not in watch.next():
            pass
        return watch, path

    def test_watches_files_of_other_dialects(self):
        watch, path = self.watch_file("x.service", "[Service]\nX = 0\nExecStart=/a \\\n  b\n")
        path.write_text("[Service]\nX = end\nExecStart=/a \\\n  c\nExecStart=\n")
        self.assertEqual(["Service ExecStart '/a    b' '/a    c'\n", "Service ExecStart - ''\n"],
                         [watch.next(), watch.next()])
        watch, path = self.watch_file("any", "[A]\n\tX = 0\n", "--dialect", "git", "a", "x",
                                      "--format", "json")
        path.write_text("; c\n[a] x = 1\n")
        self.assertEqual(
            {"file": str(path), "line": 2, "column": 9, "stanza": "a", "key": "X", "old": "end",
             "new": "1", "text": "[a] x = 1"}, json.loads(watch.next()))
        path.write_text("[a]\n")
        removed = json.loads(watch.next())
        self.assertEqual([None] * 4, [removed[name] for name in ("line", "column", "new", "text")])

    def test_reports_an_invalid_state_and_continues(self):
        self.path.write_text("[s]\nk = 1\n")
        watch = self.start()
        self.rename("word\n")
        self.assertIn("gateway.conf:1:1: ", watch.process.stderr.readline())
        self.rename("[s]\nk = 2\n")
        self.assertEqual("s k 1 2\n", watch.next("s "))

    def test_notes_a_missing_file_and_continues(self):
        self.path.write_text("[s]\nk = 1\n")
        watch = self.start()
        for number in (2, 3):
            self.path.unlink()
            self.assertEqual(f"zstz: {self.file}: note: the file is missing; waiting for a new one\n",
                             watch.process.stderr.readline())
            self.rename(f"[s]\nk = {number}\n")
            self.assertEqual(f"s k {number - 1} {number}\n", watch.next("s "))

    def test_notes_no_missing_file_if_an_editor_creates_the_file_again(self):
        self.path.write_text("[s]\nk = 1\n")
        watch = self.start()
        started = time.monotonic()
        self.path.unlink()
        self.path.write_text("[s]\nk = 2\n")
        seconds = time.monotonic() - started
        self.assertEqual("s k 1 2\n", watch.next("s "))
        watch.process.kill()
        noted = watch.process.stderr.read()
        if seconds < 0.5:  # the machine was not too busy
            self.assertEqual("", noted)

    def test_masks_obfuscated_values(self):
        watch = self.start()
        self.run_tool("set", self.file, "upstream", "password", "--obfuscated", given="secret\n")
        self.assertEqual("upstream password - '********'\n", watch.next("upstream "))

    def test_follows_a_symbolic_link(self):
        target = self.path.parent / "sub"
        target.mkdir()
        os.rename(self.path, target / "real")
        os.symlink("sub/real", self.path)
        watch = self.start()
        self.expect(DONE, "", "set", str(target / "real"), "listener", "name", "x")
        self.assertEqual("listener name 'front door' x\n", watch.next("listener "))

    def replace_link(self, target, link):
        os.symlink(target, link.parent / "new-link")
        os.rename(link.parent / "new-link", link)

    def test_follows_a_link_that_changes(self):
        directory = self.path.parent
        for name in "d1", "d2":
            (directory / name).mkdir()
            (directory / name / "c.conf").write_text(f"[a]\nk = {name}\n")
        self.path.unlink()
        os.symlink("d1/c.conf", self.path)
        watch = self.start()
        self.replace_link("d2/c.conf", self.path)
        self.assertEqual("a k d1 d2\n", watch.next("a "))
        (directory / "d2" / "c.conf").write_text("[a]\nk = 2\n")
        self.assertEqual("a k d2 2\n", watch.next("a "))

    def test_follows_a_link_to_a_directory_that_changes(self):
        directory = self.path.parent
        for name in "d1", "d2":
            (directory / name).mkdir()
            (directory / name / "c.conf").write_text(f"[a]\nk = {name}\n")
        os.symlink("d1", directory / "data")
        self.path.unlink()
        os.symlink("data/c.conf", self.path)
        watch = self.start()
        self.replace_link("d2", directory / "data")
        self.assertEqual("a k d1 d2\n", watch.next("a "))
        (directory / "d2" / "c.conf").write_text("[a]\nk = 2\n")
        self.assertEqual("a k d2 2\n", watch.next("a "))

    def test_follows_a_directory_that_is_replaced(self):
        directory = self.path.parent
        for name in "d1", "d2":
            (directory / name).mkdir()
            (directory / name / "c.conf").write_text(f"[a]\nk = {name}\n")
        self.path = directory / "d1" / "c.conf"
        self.file = str(self.path)
        watch = self.start()
        os.rename(directory / "d1", directory / "old")
        os.rename(directory / "d2", directory / "d1")
        self.assertEqual("a k d1 d2\n", watch.next("a "))

    def test_refuses_a_file_that_cannot_be_watched(self):
        self.expect(NO_ACCESS, "none", "watch", str(self.path.parent / "none"))
        self.expect(NO_ACCESS, "cannot watch", "watch", str(self.path.parent / "no" / "file"))
        self.expect(NO_ACCESS, f"{self.directory.name}: is a directory; give a regular file", "watch",
                    self.directory.name)
        self.expect(USAGE, "standard input", "watch", "-")
        self.path.write_text("word\n")
        self.expect(INVALID_DATA, ":1: ", "watch", self.file)


if __name__ == "__main__":
    tool.main()
