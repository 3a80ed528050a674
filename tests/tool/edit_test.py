#!/usr/bin/env python3
"""Tests of `zstz edit`. usage: edit_test.py TOOL [unittest arguments]"""
import random
import signal
import subprocess
import time

import tool
from tool import DONE, INVALID_VALUE, NO_ACCESS, NOT_FOUND, REFUSED, USAGE

TEXT = b"# c\n[a]\nk = v\nl = 1\n  l = 2\n\n[b]\n"


def row(name, script, after, code=DONE, printed=b""):
    """Returns a row of ToolTest.expect_rows() that reads the script from standard input."""
    return (name, {"f": TEXT}, ["edit", "f"], printed, code,
            None if after is None else {"f": after}, script)


ROWS = [
    row("nothing", b"", None),
    row("comments and blank lines", b"# set a k x\n\n   \t# x\n", None),
    row("several", b"set a k w\nadd b m 1\nunset a l 1\nrename b c\ncomment c m 'x y'\nset c m 1\n",
        b"# c\n[a]\nk = w\n  l = 2\n\n[c]\n# x y\n  m = 1\n"),
    row("steps see the steps before", b"set n x 1\nrename n m\nset m x 2 --only existing\n",
        TEXT + b"\n[m]\n  x = 2\n"),
    row("a change and its reverse", b"set a k w\nset a k v\n", None),
    row("words", b"set a k 'it is' # comment\nset a q \"a\\\"b\\\\c\\d\"\nset\ta p x\\ y\\#\n",
        b"# c\n[a]\nk = it is\nl = 1\n  l = 2\n  q = a\"b\\c\\d\n  p = x y#\n\n[b]\n"),
    row("no expansion", b"set a k $HOME`id`*?~\n", TEXT.replace(b"v", b"$HOME`id`*?~")),
    row("an empty word", b"set a k ''\n", TEXT.replace(b"= v", b"= ")),
    row("carriage returns", b"set a k x\r\nset a m y\r\n",
        TEXT.replace(b"= v", b"= x").replace(b"2\n", b"2\n  m = y\n")),
    row("no newline", b"set a k x", TEXT.replace(b"= v", b"= x")),
    row("options", b"set a l 3 --nth 2\nadd a l 0 --first\n",
        TEXT.replace(b"= 2", b"= 3").replace(b"l = 1", b"l = 0\nl = 1")),
    row("comment marks", b"comment a k --off\nset a m 1\ncomment a k --on\nset a k x\n",
        TEXT.replace(b"= v", b"= x").replace(b"l = 2\n", b"l = 2\n  m = 1\n")),
    row("a step that fails", b"set a k w\nunset a none\n", None, NOT_FOUND,
        b'zstz: standard input:2: no key "none" in [a]; run \'zstz keys f a\''),
    row("a refusal", b"set a k w\n\nset a l x\n", None, REFUSED,
        b"standard input:3: key \"l\" in [a] has 2 values; "),
    row("an invalid value", b"set a k w\nset a a=b x\n", None, INVALID_VALUE, b"input:2: invalid key"),
    row("an unknown verb", b"set a k w\nget a k\n", None, USAGE,
        b'standard input:2: no change has the name "get"; use set, add, unset, rename or comment'),
    row("usage", b"set a\n", None, USAGE, b"standard input:1: KEY is required; see 'zstz set --help'"),
    row("too many words", b"set a b c d\n", None, USAGE,
        b'input:1: unexpected argument "d"; put a value of several words in quotes\n'),
    row("an option in a value of several words", b"set a k /bin/a --port 90\n", None, USAGE,
        b'input:1: unknown option "--port"; put a value of several words in quotes\n'),
    row("a short option in a value of several words", b"add a k /bin/a -p 90\n", None, USAGE,
        b'input:1: unknown option "-p"; put a value of several words in quotes\n'),
    row("a comment of several words", b"comment a k x --twice 2\n", None, USAGE,
        b'input:1: unknown option "--twice"; put a comment of several words in quotes\n'),
    row("a value that starts with an option", b"set a k --port 90\n", None, USAGE,
        b'input:1: unknown option "--port"; put -- before names and values that start with "-"\n'),
    row("a value of several words after dashes", b"set a k -- --port 90\n", None, USAGE,
        b'input:1: unexpected argument "90"; put a value of several words in quotes\n'),
    row("an option that is nearly right", b"set a k x --onyl new\n", None, USAGE,
        b'input:1: unknown option "--onyl"; use --only\n'),
    row("an option of a verb without a value", b"rename a b --new\n", None, USAGE,
        b'input:1: unknown option "--new"; put -- before names and values that start with "-"\n'),
    row("a value in quotes", b"set a k '/bin/a --port 90'\n", TEXT.replace(b"= v", b"= /bin/a --port 90")),
    row("an option of the whole", b"set a b c --backup\n", None, USAGE,
        b'unknown option "--backup"'),
    row("obfuscated", b"set a b --obfuscated\n", None, USAGE, b"cannot have obfuscated values"),
    row("help", b"set --help\n", None, USAGE, b"cannot print help"),
    row("an open quote", b"# c\nset a k x\nset a l 'x\ny\n", None, USAGE,
        b"input:3: a quote is not closed; "),
    row("an open quote after a line break", b"set a k 'x\ny' \"z\n\n", None, USAGE,
        b"input:2: a quote is not closed; "),
    row("a line break in another dialect", b"set a k 'x\ny'\n", None, INVALID_VALUE,
        b'input:1: invalid value of key "k"'),
    row("the line of a step after a line break", b"comment a 'x\ny'\nset a m 1\nunset a none\n", None,
        NOT_FOUND, b'input:4: no key "none"'),
    row("a backslash at the end of the script", b"set a k x\\", None, USAGE,
        b"input:1: a backslash ends the line; "),
    row("a backslash at the end", b"\nset a k x\\\ny\n", None, USAGE,
        b"input:2: a backslash ends the line; "),
    row("a backslash at the end, with a carriage return", b"\nset a k x\\\r\ny\n", None, USAGE,
        b"input:2: a backslash ends the line; "),
    row("a zero byte", b"\nset a k x\0y\n", None, USAGE, b"input:2: a byte is zero; "),
    row("a zero byte in a quoted word", b"set a k 'x\n\0y'\n", None, USAGE, b"input:2: a byte is zero; "),
    row("a quote in a comment", b"set a k x # it's\nset a l 3 --nth 1\n",
        TEXT.replace(b"= v", b"= x").replace(b"l = 1", b"l = 3")),
    row("a comment of two lines", b"comment a k 'x\n\ny' # c\n", TEXT.replace(b"k =", b"# x\n#\n# y\nk =")),
    ("a script file", {"f": TEXT, "s": b"set a k w\n"}, ["edit", "f", "s"], b"", DONE,
     {"f": TEXT.replace(b"= v", b"= w"), "s": b"set a k w\n"}),
    ("an error in a script file", {"f": TEXT, "s": b"\nunset a m\n"}, ["edit", "f", "s"],
     b'zstz: s:2: no key "m"', NOT_FOUND, None),
    ("no script", {"f": TEXT}, ["edit", "f", "s"], b"s: cannot open: ", NO_ACCESS, None),
    ("both standard input", {"f": TEXT}, ["edit", "-"], b"FILE and SCRIPT are both", USAGE, None),
    ("a new file", {"s": b"set a k w\n"}, ["edit", "f", "s", "--create", "--backup"], b"", DONE,
     {"f": b"[a]\nk = w\n", "s": b"set a k w\n"}),
    ("normalised", {"f": b"[a]\nk=v\n", "s": b"set a l w\n"}, ["edit", "f", "s", "--normalise"], b"",
     DONE, {"f": b"[a]\nk = v\nl = w\n", "s": b"set a l w\n"}),
    *[(f"normalised, {step.decode()}", {"f": b"[a]\nk=v\n", "s": b"set a l w\n" + step},
       ["edit", "f", "s", "--normalise"], b"s:2: a line with --raw, --off or --on excludes", USAGE, None)
      for step in (b"set a k --raw x", b"add a m --raw x", b"comment a k --off", b"comment a k --on")],
    ("standard output", {"s": b"set a k w\n"}, ["edit", "-", "s"], b"[a]\nk = w\n", DONE, None,
     b"[a]\nk = v\n"),
    ("dry run", {"f": b"[a]\nk = v\n", "s": b"set a k w\nset a l x\n"}, ["edit", "-n", "f", "s"],
     b"--- f\n+++ f\n@@ -1,2 +1,3 @@\n [a]\n-k = v\n+k = w\n+l = x\n", DONE, None),
]

# A value of several lines that has a comment between them, and its key gets another name.
SPLIT = b"[a]\n  j = 1\n  k = 1\n    2\n    # c\n    3\n  l = 1\n"
JOINED = b"[a]\nk = 1 \\\n# c\n  2\nl = 1\n"
RENAMES = [
    (f"{name}, {'the name' if renames_first else 'the value'} first", {file: before},
     ["edit", file, "--dialect", dialect], b"", DONE, {file: after},
     b"rename a k name\nset a name x\n" if renames_first else b"set a k x\nrename a k name\n")
    for renames_first in (False, True)
    for name, dialect, file, before, after in (
        ("indented", "python", "f", SPLIT, b"[a]\n  j = 1\n    # c\n  name = x\n  l = 1\n"),
        ("joined", "systemd", "f", JOINED, b"[a]\n# c\nname = x\nl = 1\n"),
        ("quoted", "php", "f", b"[a]\nk = \"1\n2\" ; c\n", b"[a]\nname = \"x\" ; c\n"),
    )
]


# Quotes with a line break, and the value.
QUOTED = [
    (b"'x\ny'", b"x\n    y"),
    (b'"x\ny"', b"x\n    y"),
    (b"'x\r\ny'", b"x\n    y"),
    (b"x'\n'y", b"x\n    y"),
    (b'"x \\\ny"', b"x y"),
    (b'"x \\\r\ny"', b"x y"),
    (b"'x\\\ny'", b"x\\\n    y"),
]


class EditTest(tool.ToolTest):
    def test_scripts(self):
        self.expect_rows(ROWS)

    def test_a_quoted_word_spans_lines(self):
        self.expect_rows([
            (quoted.decode(), {"f": b"[a]\nk = v\n"}, ["edit", "f", "--dialect", "python"], b"", DONE,
             {"f": b"[a]\nk = " + value + b"\nl = 2\n"}, b"set a k " + quoted + b"\nset a l 2\n")
            for quoted, value in QUOTED])

    def test_the_time_is_linear_in_the_new_keys_of_a_script(self):
        def prepare(count):
            self.path.write_text("[a]\n## title\n## k = 1\nl = 1\n")
            script = "".join(f"set a x{i} v\n" for i in range(count))
            return ("edit", self.file, "-n"), "comment a l --off\n" + script
        self.expect_linear_time(2000, prepare)

    def test_a_value_of_several_lines_is_set_and_renamed(self):
        self.expect_rows(RENAMES)

    def test_comment_marks_and_obfuscated_values_change_together(self):
        entry = f"\n[configuration-database]\nfile = {self.file}.obf\n"
        gone = "\n[configuration-database]\n"
        before = "[s]\n# c\n## port = 1\n## port = 2\nk = 1\n"
        placed = before.replace("k = 1", "port = 9\nk = 1")
        commented = before.replace("k = 1", "# k = 1")
        rows = [
            ("set s port 9\n", placed, entry, {"password": "x"}),
            ("set s port 9\nunset s password\n", placed, gone, {}),
            ("unset s password\nset s port 9\n", placed, gone, {}),
            ("add s port 9\nrename s password secret\n", placed, entry, {"secret": "x"}),
            ("comment s k --off\nunset s password\n", commented, gone, {}),
            ("comment s k --off\ncomment s k --on\nrename s password secret\n", before, entry,
             {"secret": "x"}),
            ("comment s k --off\nset s port 9\nrename s password secret\nrename s t\n",
             commented.replace("# k = 1", "port = 9\n# k = 1").replace("[s]", "[t]"), entry,
             {"secret": "x"}),
        ]
        for options in ([], ["--replace"], ["--backup"]):
            for script, after, end, secrets in rows:
                with self.subTest(script, options=options):
                    for path in self.path.parent.iterdir():
                        path.unlink()
                    self.path.write_text(before)
                    self.expect(DONE, "", "set", self.file, "s", "password", "--obfuscated",
                                given="x")
                    self.expect(DONE, "", "edit", self.file, *options, given=script)
                    self.expect_text(after + end)
                    stanza = "t" if "[t]" in after else "s"
                    for key, value in secrets.items():
                        self.expect(DONE, value + "\n", "get", self.file, stanza, key)
                    self.assertEqual(bool(secrets), (self.path.parent / "gateway.conf.obf").exists())
                    if options == ["--backup"]:
                        self.expect(DONE, "x\n", "get", self.file + "~", "s", "password")

    def test_a_killed_edit_leaves_the_old_or_the_new_file(self):
        count = 200
        old = "".join(f"[s{i}]\nk = old\n\n" for i in range(count))
        script = self.path.parent / "script"
        script.write_text("".join(f"set s{i} k new{'w' * (i % 9)}\n" for i in range(count)) +
                          "comment s0 k --off\n")
        run = self.run_tool("edit", "-", str(script), given=old)
        self.assertEqual(DONE, run.returncode)
        new = run.stdout
        generator = random.Random(1)
        seen = set()
        start = time.monotonic()
        self.path.write_text(old)
        self.expect(DONE, "", "edit", self.file, str(script))
        usual = time.monotonic() - start
        for _ in range(60):
            self.path.write_text(old)
            process = subprocess.Popen([tool.TOOL, "edit", self.file, str(script)])
            try:
                process.wait(generator.uniform(0, usual))
            except subprocess.TimeoutExpired:
                process.send_signal(signal.SIGKILL)
            process.wait()
            listed = self.run_tool("list", self.file)
            self.assertEqual((DONE, ""), (listed.returncode, listed.stderr))
            # The next change completes an interrupted store.
            self.expect(DONE, "", "set", self.file, "s1", "x", "1")
            self.expect(DONE, "", "unset", self.file, "s1", "x")
            text = self.path.read_text()
            self.assertIn(text, (old, new))
            seen.add(text)
        print("states seen after a kill:", len(seen))


if __name__ == "__main__":
    tool.main()
