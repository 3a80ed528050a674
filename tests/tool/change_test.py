#!/usr/bin/env python3
"""Tables of the verbs that change. Every change is also tried as a dry run, whose diff patch(1)
applies, and from standard input to standard output. usage: change_test.py TOOL [unittest arguments]
"""
import os
import pathlib
import stat
import subprocess
import threading

import tool
from tool import DIFFERS, DONE, INVALID_VALUE, LOCKED, NO_ACCESS, NOT_FOUND, REFUSED, USAGE

TEXT = (b"# The gateway.\r\n\n[listener]\n  port = 8080\n  port = 8443\nname=front door # a\n"
        b"# motd = none\n\n[upstream]\nweight = 1\n[empty]")
SAME = None


def changed(*pairs):
    """Returns TEXT after replacements."""
    text = TEXT
    for old, new in pairs:
        assert text.count(old) == 1, old
        text = text.replace(old, new)
    return text


def rows(verb, *lines):
    """Returns rows of ToolTest.expect_rows(): arguments after the file, the file after, code and
    words of the report."""
    return [(" ".join([verb, *arguments]), {"f": TEXT}, [verb, "f", *arguments], *expected(after))
            for arguments, after in lines]


def expected(after):
    """Returns output, code and files: `after` is the contents, or a code and words of the report."""
    if isinstance(after, tuple):
        return after[1], after[0], None
    return b"", DONE, None if after is SAME else {"f": after}


SET = rows(
    "set",
    (["listener", "name", "x"], changed((b"front door # a", b"x"))),
    (["listener", "name", "front door # a"], SAME),
    (["listener", "name", ""], changed((b"front door # a", b""))),
    (["listener", "port", "1"], (REFUSED, b"has 2 values; pass --all to replace both")),
    (["listener", "port", "1", "--all"],
     changed((b"8080", b"1"), (b"  port = 8443\n", b""))),
    (["listener", "port", "1", "--old", "8443"], changed((b"8443", b"1"))),
    (["listener", "port", "1", "--old", "80"], (NOT_FOUND, b'has no value "80"; run \'zstz get')),
    (["listener", "port", "1", "--nth", "1"], changed((b"8080", b"1"))),
    (["listener", "port", "1", "--nth", "2"], changed((b"8443", b"1"))),
    (["listener", "port", "1", "--nth", "3"], (NOT_FOUND, b"has 2 values; choose one of them")),
    (["listener", "port", "1", "--nth", "0"], (USAGE, b'--nth: "0" is not a number from 1')),
    (["listener", "port", "1", "--nth", "x"], (USAGE, b'--nth: "x" is not a number from 1')),
    (["listener", "port", "", "--nth", "1"], (INVALID_VALUE, b"one of several values cannot be")),
    (["listener", "name", "x", "--nth", "1"], changed((b"front door # a", b"x"))),
    (["listener", "none", "x", "--nth", "1"], (NOT_FOUND, b'no key "none"')),
    (["listener", "name", "x", "--only", "existing"], changed((b"front door # a", b"x"))),
    (["listener", "name", "x", "--only", "new"], (REFUSED, b"exists; leave out --only new")),
    (["listener", "none", "x", "--only", "existing"], (NOT_FOUND, b'no key "none"')),
    (["none", "none", "x", "--only", "existing"], (NOT_FOUND, b"no stanza [none]")),
    (["upstream", "new", "x", "--only", "new"], changed((b"weight = 1\n", b"weight = 1\nnew = x\n"))),
    (["listener", "port", "x", "--only", "both"], (USAGE, b'"both" is not new or existing')),
    (["listener", "motd", "hi"], changed((b"# motd = none\n", b"# motd = none\nmotd = hi\n"))),
    (["empty", "k", "v"], changed((b"[empty]", b"[empty]\nk = v"))),
    (["new", "k", "v"], changed((b"[empty]", b"[empty]\n\n[new]\nk = v"))),
    (["listener", "port", "1", "--all", "--nth", "1"], (USAGE, b"--all excludes --nth")),
    (["listener", "port", "1", "--old", "1", "--nth", "1"], (USAGE, b"--old excludes --nth")),
    (["listener", "a=b", "1"], (INVALID_VALUE, b'invalid key "a=b"')),
    (["listener", "name", "a\nb"], (INVALID_VALUE, b'invalid value of key "name"')),
)

ADD = rows(
    "add",
    (["listener", "port", "1"], changed((b"8443\n", b"8443\n  port = 1\n"))),
    (["listener", "port", "8080", "-q"], SAME),
    (["listener", "port", "1", "--first"], changed((b"  port = 8080", b"  port = 1\n  port = 8080"))),
    (["listener", "port", "1", "--before", "8443"],
     changed((b"  port = 8443", b"  port = 1\n  port = 8443"))),
    (["listener", "port", "1", "--behind", "8080"],
     changed((b"  port = 8443", b"  port = 1\n  port = 8443"))),
    (["listener", "port", "1", "--behind", "8443"], changed((b"8443\n", b"8443\n  port = 1\n"))),
    (["listener", "port", "8080", "--behind", "8443", "-q"], SAME),
    (["listener", "port", "1", "--before", "2"], (NOT_FOUND, b'has no value "2"')),
    (["listener", "none", "1", "--before", "2"], (NOT_FOUND, b'has no value "2"')),
    (["upstream", "new", "1", "--first"], changed((b"weight = 1\n", b"weight = 1\nnew = 1\n"))),
    (["listener", "port", ""], (INVALID_VALUE, b"cannot add an empty value")),
    (["listener", "port", "1", "--first", "--before", "2"], (USAGE, b"--first excludes --before")),
)

UNSET = rows(
    "unset",
    (["listener", "name"], changed((b"name=front door # a\n", b""))),
    (["listener", "port"], (REFUSED, b"has 2 values; pass --all to remove both")),
    (["listener", "port", "--all"], changed((b"  port = 8080\n  port = 8443\n", b""))),
    (["listener", "port", "8080"], changed((b"  port = 8080\n", b""))),
    (["listener", "port", "8443"], changed((b"  port = 8443\n", b""))),
    (["listener", "port", "1"], (NOT_FOUND, b'has no value "1"')),
    (["upstream", "weight", "1"], changed((b"weight = 1\n", b""))),
    (["listener", "port", "1", "--all"], (USAGE, b"--all excludes VALUE")),
    (["upstream", "--stanza"], changed((b"[upstream]\nweight = 1\n", b""))),
    (["empty", "--stanza"], changed((b"\n[empty]", b""))),
    (["none", "--stanza"], (NOT_FOUND, b"no stanza [none]")),
    (["listener", "none"], (NOT_FOUND, b'no key "none"')),
    (["listener"], (USAGE, b"KEY or --stanza is required")),
)

RENAME = rows(
    "rename",
    (["empty", "full"], changed((b"[empty]", b"[full]"))),
    (["upstream", "target"], changed((b"[upstream]", b"[target]"))),
    (["listener", "front"], changed((b"[listener]", b"[front]"))),
    (["listener", "name", "title"], changed((b"name=", b"title="))),
    (["upstream", "weight", "load"], changed((b"weight", b"load"))),
    (["upstream", "weight", "weight"], SAME),
    (["upstream", "upstream"], SAME),
    (["listener", "port", "name"], (REFUSED, b'key "name" in [listener] exists; choose another')),
    (["listener", "upstream"], (REFUSED, b"stanza [upstream] exists; choose another")),
    (["none", "x"], (NOT_FOUND, b"no stanza [none]")),
    (["listener", "none", "x"], (NOT_FOUND, b'no key "none"')),
    (["listener", "port", "a=b"], (INVALID_VALUE, b"invalid key")),
    (["listener", "a]"], (INVALID_VALUE, b"invalid stanza name")),
    (["listener"], (USAGE, b"NEW is required")),
    (["listener", "a", "b", "c"], (USAGE, b'unexpected argument "c"')),
)

RAW = rows(
    "set",
    (["listener", "name", "x y", "--raw"], changed((b"front door # a", b"x y"))),
    (["listener", "name", "front door # a", "--raw"], SAME),
    (["listener", "name", " x", "--raw"], (INVALID_VALUE, b"would not read back as it is spelled")),
    (["listener", "name", "x\ny", "--raw"], (INVALID_VALUE, b"would not read back")),
    (["listener", "port", "1", "--raw", "--old", "8080"], changed((b"8080", b"1"))),
    (["empty", "k", "v", "--raw"], changed((b"[empty]", b"[empty]\nk = v"))),
    (["listener", "port", "1", "--raw"], (REFUSED, b"has 2 values")),
) + rows(
    "add",
    (["listener", "port", "1", "--raw", "--first"],
     changed((b"  port = 8080", b"  port = 1\n  port = 8080"))),
    (["listener", "port", "1 ", "--raw"], (INVALID_VALUE, b"would not read back")),
)

COMMENT = rows(
    "comment",
    (["upstream", "weight", "a weight"],
     changed((b"weight = 1", b"# a weight\nweight = 1"))),
    (["upstream", "weight", "# a\nb"], changed((b"weight = 1", b"# a\n# b\nweight = 1"))),
    (["upstream", "the servers"], changed((b"[upstream]", b"# the servers\n[upstream]"))),
    (["The office."], changed((b"# The gateway.\r", b"# The office.\r"))),
    (["The office.", "--above"],
     changed((b"# The gateway.", b"# The office.\r\n# The gateway."))),
    (["listener", "name", "", "--above"], SAME),
    (["listener", "none", "x"], (NOT_FOUND, b'no key "none"')),
    (["none", "x"], (NOT_FOUND, b"no stanza [none]")),
    (["listener", "name", "x" * 8190], (INVALID_VALUE, b"a line of the comment is too long")),
    (["listener", "port", "--off"],
     changed((b"  port = 8080\n  port = 8443", b"  # port = 8080\n  # port = 8443"))),
    (["listener", "name", "--off"], changed((b"name=front", b"# name=front"))),
    (["listener", "motd", "--on"], changed((b"# motd = none", b"motd = none"))),
    (["listener", "name", "--on"], (NOT_FOUND, b'no comment has a line of key "name"')),
    (["listener", "none", "--off"], (NOT_FOUND, b'no key "none"')),
    (["listener", "--off"], (USAGE, b"KEY is required")),
    (["listener", "name", "x", "--off"], (USAGE, b'unexpected argument "x"')),
    (["listener", "name", "--off", "--on"], (USAGE, b"--off excludes --on")),
) + [
    (f"comment {text}", {"f": b"[a]\nx = 1\n\n# old\nk = v\n\ny = 1\n"},
     ["comment", "f", "a", key, text, *options], b"", DONE, {"f": b"[a]\nx = 1\n\n" + after})
    for key, text, options, after in (
        ("k", "new", [], b"# new\nk = v\n\ny = 1\n"),
        ("k", "# a\nb", [], b"# a\n# b\nk = v\n\ny = 1\n"),
        ("k", "a\n\nb", [], b"# a\n#\n# b\nk = v\n\ny = 1\n"),
        ("k", "new", ["--above"], b"# new\n# old\nk = v\n\ny = 1\n"),
        ("k", "", [], b"k = v\n\ny = 1\n"),
        ("y", "new", [], b"# old\nk = v\n\n# new\ny = 1\n"),
        ("y", "new", ["--above"], b"# old\nk = v\n\n# new\ny = 1\n"),
    )
]

FMT = [
    ("fmt", {"f": b"#c\r\n\n\n[a] x\n  k=v\nk  = w\n"}, ["fmt", "f"], b"", DONE,
     {"f": b"#c\n\n\n[a]\nk = v\nk = w\n"}),
    ("fmt twice", {"f": b"[a]\nk = v\n"}, ["fmt", "f"], b"", DONE, None),
    ("fmt refuses", {"f": b"[a]\nk =\nk = v\n"}, ["fmt", "f"],
     b"f:2:1: not saved: ", REFUSED, None),
]

RENAME += [
    ("rename a stanza", {"f": b"[a]\nk = v\n\n[b]\n"}, ["rename", "f", "a", "c"], b"", DONE,
     {"f": b"[c]\nk = v\n\n[b]\n"}),
]

TABLES = {"set": SET, "add": ADD, "unset": UNSET, "rename": RENAME, "raw": RAW,
          "comment": COMMENT, "fmt": FMT}


class ChangeTest(tool.ToolTest):
    def test_tables(self):
        for verb, table in TABLES.items():
            with self.subTest(verb):
                self.expect_rows(table)

    def test_a_dry_run_prints_a_diff_that_patch_applies(self):
        for table in TABLES.values():
            for name, before, arguments, printed, code, after in table:
                with self.subTest(name):
                    self.write_files(before)
                    run = self.run_in_directory(*arguments, "-n")
                    self.assertEqual(code, run.returncode, run.stderr)
                    self.assertEqual(before, self.read_files())
                    if code != DONE:
                        self.assertIn(printed, run.stderr)
                        continue
                    self.assertEqual(after is None, run.stdout == b"")
                    subprocess.run(["patch", "-s", "--binary", "-p0"], input=run.stdout, check=True,
                                   cwd=self.directory.name)
                    self.assertEqual(before if after is None else after, self.read_files())

    def test_standard_input_is_changed_to_standard_output(self):
        for table in TABLES.values():
            for name, before, arguments, printed, code, after in table:
                with self.subTest(name):
                    self.write_files({})
                    changed_arguments = [arguments[0], "-", *arguments[2:]]
                    run = self.run_in_directory(*changed_arguments, given=before["f"])
                    self.assertEqual(code, run.returncode, run.stderr)
                    if code == DONE:
                        self.assertEqual((after or before)["f"], run.stdout)
                    else:
                        self.assertEqual(b"", run.stdout)
                    self.assertEqual({}, self.read_files())

    def test_fmt_checks_the_style(self):
        self.expect_rows([
            ("same", {"f": b"[a]\nk = v\n"}, ["fmt", "f", "--check"], b"", DONE, None),
            ("empty", {"f": b""}, ["fmt", "f", "--check"], b"", DONE, None),
            ("quiet", {"f": b"[a]\nk=v\n"}, ["fmt", "f", "--check", "-q"], b"", DIFFERS, None),
        ])
        self.path.write_text("[a]\nk=v\n")
        self.expect_unchanged(DIFFERS, f"zstz: {self.file}: is not in the style of fmt; run 'zstz "
                              f"fmt {self.file}'\n", "fmt", self.file, "--check")
        run = self.run_in_directory("fmt", "-", "--check", "-q", given=b"[a]\nk=v\n")
        self.assertEqual(DIFFERS, run.returncode)

    def test_comments_turn_off_and_on_again(self):
        for key in ("port", "name"):
            self.write_files({"f": TEXT})
            for option in ("--off", "--on"):
                run = self.run_in_directory("comment", "f", "listener", key, option)
                self.assertEqual((DONE, b""), (run.returncode, run.stderr))
            self.assertEqual({"f": TEXT}, self.read_files())

    def test_comment_marks_keep_obfuscated_values(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated",
                    given="hunter2")
        self.expect(DONE, "", "comment", self.file, "listener", "name", "--off")
        self.assertIn("\n# name = front door\n", self.path.read_text())
        self.expect(DONE, "hunter2\n", "get", self.file, "upstream", "password")
        self.expect_unchanged(REFUSED, "has obfuscated values, which cannot be in a comment",
                              "comment", self.file, "upstream", "password", "--off")

    def test_a_missing_file_is_created_only_with_create(self):
        self.expect_rows([
            ("missing", {}, ["set", "f", "a", "k", "v"], b"or pass --create", NO_ACCESS, None),
            ("set", {}, ["set", "f", "a", "k", "v", "--create"], b"", DONE,
             {"f": b"[a]\nk = v\n"}),
            ("existing", {"f": b"[a]\n"}, ["set", "f", "a", "k", "v", "--create"], b"", DONE,
             {"f": b"[a]\nk = v\n"}),
            ("dry run", {}, ["add", "f", "a", "k", "v", "--create", "--dry-run"],
             b"--- /dev/null\n+++ f\n@@ -0,0 +1,2 @@\n+[a]\n+k = v\n", DONE, None),
            ("failure", {}, ["unset", "f", "a", "k", "--create"], b"no stanza [a]", NOT_FOUND, None),
            ("no directory", {}, ["set", "d/f", "a", "k", "v", "--create"], b"d/f: cannot ",
             NO_ACCESS, None),
        ])

    def test_a_backup_is_the_old_file(self):
        text = b"[a]\nk = v\n"
        after = b"[a]\nk = w\n"
        self.expect_rows([
            ("default", {"f": text}, ["set", "f", "a", "k", "w", "--backup"], b"", DONE,
             {"f": after, "f~": text}),
            ("suffix", {"f": text, "f.old": b"x"}, ["set", "f", "a", "k", "w", "--backup=.old"],
             b"", DONE, {"f": after, "f.old": text}),
            ("no change", {"f": text}, ["set", "f", "a", "k", "v", "--backup"], b"", DONE, None),
            ("dry run", {"f": text}, ["add", "f", "a", "k", "v", "--backup", "-nq"], b"", DONE, None),
            ("refused", {"f": text}, ["unset", "f", "b", "k", "--backup"], b"no stanza",
             NOT_FOUND, None),
            ("new file", {}, ["set", "f", "a", "k", "w", "--create", "--backup"], b"", DONE,
             {"f": after}),
            ("no suffix", {"f": text}, ["set", "f", "a", "k", "w", "--backup="],
             b"--backup: must not be empty", USAGE, None),
        ])

    def test_a_change_to_the_same_file_needs_no_right_to_write(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="x")
        java = self.path.parent / "a.properties"
        java.write_text("k=v\n")
        systemd = self.path.parent / "a.service"
        systemd.write_text("[S]\nK=1\n")
        nobody = self.as_nobody()
        for path in self.path.parent.iterdir():
            path.chmod(0o444)
        self.path.parent.chmod(0o555)
        for verb, file, *rest in (
                ("set", self.path, "listener", "name", "front door"),
                ("set", self.path, "listener", "port", "8443", "--nth", "2"),
                ("set", self.path, "listener", "name", "front door", "--backup"),
                ("set", self.path, "listener", "name", "front door", "--replace"),
                ("set", systemd, "S", "K", "1", "--raw"),
                ("add", self.path, "listener", "port", "8080", "-q"),
                ("rename", self.path, "listener", "name", "name"),
                ("comment", self.path, "listener", "name", ""),
                ("comment", self.path, "listener", "port", "ports to listen on"),
                ("fmt", systemd), ("java", java, "set", "k", "v")):
            with self.subTest([verb, *rest]):
                self.expect_unchanged(DONE, "", verb, str(file), *rest, **nobody)
        script = "set listener name x\ncomment listener name --off\ncomment listener name --on\n"
        script += "set listener name 'front door'\n"
        self.expect_unchanged(DONE, "", "edit", self.file, given=script, **nobody)
        self.expect_unchanged(DONE, "", "set", self.file, "upstream", "password", "--obfuscated",
                              given="x", **nobody)
        self.expect_unchanged(DONE, "", "merge", self.file, self.file, self.file, **nobody)
        self.expect_unchanged(NO_ACCESS, "Permission denied", "set", self.file, "listener", "name", "x",
                              **nobody)

    def test_add_notes_a_value_that_exists(self):
        self.write_files({"f": TEXT})
        run = self.run_in_directory("add", "f", "listener", "port", "8080")
        self.assertEqual((DONE, b"", b'zstz: f: note: key "port" in [listener] has the value already\n'),
                         (run.returncode, run.stdout, run.stderr))
        self.assertEqual({"f": TEXT}, self.read_files())

    def test_a_backup_has_the_old_obfuscated_values(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="old")
        self.path.chmod(0o640)
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", "--backup",
                    given="new")
        self.expect(DONE, "", "unset", self.file, "upstream", "password", "--backup=.2")
        for file, value in ((self.file + "~", "old"), (self.file + ".2", "new")):
            self.expect(DONE, value + "\n", "get", file, "upstream", "password")
            for path in (file, file + ".obf"):
                self.assertEqual(0o640, stat.S_IMODE(os.stat(path).st_mode), path)
        self.expect(DONE, "", "set", self.file + "~", "upstream", "password", "--obfuscated",
                    given="other")
        self.expect(DONE, "new\n", "get", self.file + ".2", "upstream", "password")

    def test_a_comment_above_an_obfuscated_key_is_refused(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="x")
        self.expect_unchanged(REFUSED, 'key "password" in [upstream] has obfuscated values, so it has no '
                              "line for a comment", "comment", self.file, "upstream", "password", "x")

    def test_a_backup_has_the_mode_of_the_file(self):
        self.path.chmod(0o640)
        self.expect(DONE, "", "set", self.file, "listener", "name", "x", "--backup")
        mode = stat.S_IMODE(pathlib.Path(self.file + "~").stat().st_mode)
        self.assertEqual(0o640, mode)

    def test_a_backup_that_cannot_be_written_stops_the_change(self):
        os.mkdir(self.file + "~")
        self.expect_unchanged(NO_ACCESS, f"{self.file}~: cannot write the copy: ", "set",
                              self.file, "listener", "name", "x", "--backup")

    def test_obfuscated_values_are_never_in_a_diff(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated",
                    given="hunter2")
        before = self.directory_contents()
        run = self.run_tool("set", self.file, "upstream", "password", "--obfuscated", "-n",
                            given="second")
        self.assertEqual((DONE, "", f"zstz: {self.file}: note: the obfuscated values would change\n"),
                         (run.returncode, run.stdout, run.stderr))
        run = self.run_tool("set", self.file, "upstream", "password", "--obfuscated", "-nq",
                            given="second")
        self.assertEqual((DONE, "", ""), (run.returncode, run.stdout, run.stderr))
        self.assertEqual(before, self.directory_contents())

    def test_patch_applies_the_difference_of_a_file_elsewhere(self):
        name = self.path.parent.name
        for path, root in ((self.file, "/"), (f"../{name}/{self.path.name}", "/"),
                           (self.path.name, self.directory.name)):
            with self.subTest(path):
                self.path.write_bytes(b"[a]\nk = 1\n")
                run = self.run_in_directory("set", "-n", path, "a", "k", "2")
                patch = subprocess.run(["patch", "-p0", "-d", root], input=run.stdout, check=False,
                                       capture_output=True)
                self.assertEqual(0, patch.returncode, patch.stdout)
                self.assertEqual(b"[a]\nk = 2\n", self.path.read_bytes())

    def hold(self, seconds):
        """Locks the file as a store does and returns the process; it ends when its standard input
        is closed, or with the parent after some seconds."""
        holder = subprocess.Popen(
            ["python3", "-c", "import fcntl, sys; f = open(sys.argv[1], 'r+'); "
             "fcntl.lockf(f, fcntl.LOCK_EX); print('held', flush=True); sys.stdin.read()",
             self.file], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.assertEqual("held\n", holder.stdout.readline())
        if seconds:
            threading.Timer(seconds, holder.stdin.close).start()
        return holder

    VERBS = (("get", "listener", "port"), ("list",), ("stanzas",), ("keys", "listener"), ("check",),
             ("lint",), ("set", "listener", "name", "x"), ("add", "listener", "port", "1"),
             ("unset", "listener", "motd"), ("rename", "listener", "motd", "text"),
             ("java", "list"), ("java", "get", "b"), ("java", "set", "b", "1"), ("java", "check"))

    def test_a_busy_file_is_reported_after_the_wait(self):
        holder = self.hold(0)
        for verb, *rest in self.VERBS:
            with self.subTest([verb, *rest]):
                self.expect(LOCKED, "locked by another process; try again", verb, self.file, *rest,
                            "--wait", "0")
        holder.communicate("")
        holder.stdout.close()

    def test_every_verb_waits_for_a_busy_file(self):
        for verb, *rest in self.VERBS:
            with self.subTest([verb, *rest]):
                self.path.write_text("b = 0\n" if verb == "java" else tool.GATEWAY)
                holder = self.hold(0.2)
                run = self.run_tool(verb, self.file, *rest, "--wait", "200")
                self.assertEqual((DONE, ""), (run.returncode, run.stderr))
                holder.wait()
                holder.stdout.close()

    def test_edits_that_wait_lose_no_change(self):
        self.path.write_text("[a]\n")
        count = 12
        runs = [subprocess.Popen([tool.TOOL, "add", self.file, "a", "k", str(i), "--wait", "200"])
                for i in range(count)]
        self.assertEqual([DONE] * count, [run.wait(tool.HANGS) for run in runs])
        values = self.run_tool("get", self.file, "a", "k", "--all").stdout.split()
        self.assertEqual(sorted(map(str, range(count))), sorted(values))


if __name__ == "__main__":
    tool.main()
