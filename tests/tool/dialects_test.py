#!/usr/bin/env python3
"""Tests of the verbs on files of other dialects. usage: dialects_test.py TOOL [unittest arguments]"""
import tool
from tool import DONE, INVALID_DATA, INVALID_VALUE, NOT_FOUND, REFUSED, USAGE

GIT = b'[core]\n\tbare = false ; c\n\tpath = "a b"\n[remote "Origin"]\n\turl = x\n\turl = y\n\tflag\n'
PYTHON = b"[a]\nKey: v\n   w\n# c\nother = 1\n"
UNIT = b"[Service]\nExecStart=/bin/a\nExecStart=\nExecStart=/bin/b\n"
WINDOWS = b"[a]\r\nk=1\r\nK=2\r\n"


def row(dialect, text, arguments, printed, code=DONE, after=None):
    """Returns a row of ToolTest.expect_rows() on the file f."""
    verb, *rest = arguments
    return (" ".join([dialect, *arguments]), {"f": text}, [verb, "f", *rest, "--dialect", dialect],
            printed, code, None if after is None else {"f": after})


READ = [
    row("git", GIT, ["get", "core", "bare"], b"false\n"),
    row("git", GIT, ["get", "CORE", "Bare"], b"false\n"),
    row("git", GIT, ["get", "core", "path"], b"a b\n"),
    row("git", GIT, ["get", "core", "path", "--raw"], b'"a b"\n'),
    row("git", GIT, ["get", "remote.Origin", "url", "--all", "--line"], b"5\n6\n"),
    row("git", GIT, ["get", "remote.origin", "url"], b"no stanza [remote.origin]", NOT_FOUND),
    row("git", GIT, ["get", "remote.Origin", "flag", "--format", "json"],
        b'{"remote.Origin": {"flag": []}}\n'),
    row("git", GIT, ["stanzas"], b"core\nremote.Origin\n"),
    row("git", GIT, ["check"], b"f: 2 stanzas, 4 keys, 4 values\n"),
    row("python", PYTHON, ["get", "a", "key"], b"v\nw\n"),
    row("python", PYTHON, ["get", "a", "key", "--format", "lines"], b"a\tkey\tv\\nw\n"),
    row("python", PYTHON, ["keys", "a"], b"Key\nother\n"),
    row("systemd", UNIT, ["get", "Service", "ExecStart", "--all"], b"/bin/b\n"),
    row("systemd", UNIT, ["get", "Service", "ExecStart", "--raw"], b"/bin/a\n\n/bin/b\n"),
    row("windows", WINDOWS, ["get", "A", "k"], b"1\n"),
    row("ini", b"k = 1\n[a]\n", ["get", ".", "k"], b"1\n"),
    row("git", b"[a\n", ["get", "a", "k"], b"zstz: f:1: ", INVALID_DATA),
    row("git", GIT, ["fmt"], b"supports only the dialect stanza", REFUSED),
]

CHANGE = [
    row("git", GIT, ["set", "core", "bare", "true"], b"", DONE,
        GIT.replace(b"false ; c", b"true ; c")),
    row("git", GIT, ["set", "core", "path", "a b"], b""),
    row("git", GIT, ["set", "core", "path", "x"], b"", DONE, GIT.replace(b'"a b"', b'"x"')),
    row("git", GIT, ["set", "remote.Origin", "url", "z"], b"has 2 values", REFUSED),
    row("git", GIT, ["set", "remote.Origin", "url", "z", "--nth", "2"], b"", DONE,
        GIT.replace(b"= y", b"= z")),
    row("git", GIT, ["set", "core", "path", '"x"', "--raw"], b"", DONE,
        GIT.replace(b'"a b"', b'"x"')),
    row("git", GIT, ["set", "core", "a b", "x"], b'invalid key "a b"', INVALID_VALUE),
    row("git", GIT, ["set", "core", "k", "x", "--normalise"], b"only stanza files have a normal form",
        REFUSED),
    row("git", GIT, ["set", "core", "k", "--obfuscated"], b"only stanza files have obfuscated",
        REFUSED),
    row("git", GIT, ["comment", "core", "bare", "--off"], b"", DONE,
        GIT.replace(b"\tbare", b"\t# bare")),
    row("systemd", UNIT, ["add", "Service", "ExecStart", ""], b"", DONE, UNIT + b"ExecStart=\n"),
    row("systemd", UNIT, ["unset", "Service", "ExecStart", "/bin/a"], b"", DONE,
        UNIT.replace(b"ExecStart=/bin/a\n", b"")),
    row("python", PYTHON, ["set", "a", "OTHER", "2"], b"", DONE,
        PYTHON.replace(b"= 1", b"= 2")),
    row("python", PYTHON, ["add", "a", "other", "2"], b"of several lines only one is valid", REFUSED),
    row("python", PYTHON, ["rename", "a", "other", "new"], b"", DONE,
        PYTHON.replace(b"other", b"new")),
    row("python", PYTHON, ["unset", "a", "key"], b"", DONE, b"[a]\n# c\nother = 1\n"),
    row("none", PYTHON, ["get", "a", "key"], b'unknown dialect "none"', USAGE),
]


UNITS = {"a.service": UNIT, "b.service": UNIT + b"Type=simple\n", "c.service": UNIT}


class DialectsTest(tool.ToolTest):
    def test_reading(self):
        self.expect_rows(READ)

    def test_verbs_for_stanza_files_refuse_files_of_another_dialect(self):
        refused = b"supports only the dialect stanza, and the file is of the dialect systemd"
        self.expect_rows([
            (" ".join(arguments), UNITS, arguments, refused, REFUSED, UNITS)
            for arguments in (["doc", "a.service"], ["fmt", "a.service"])])

    def test_changing(self):
        self.expect_rows(CHANGE)

    def test_a_script_uses_one_dialect(self):
        self.expect_rows([
            ("edit", {".gitconfig": GIT}, ["edit", ".gitconfig"], b"", DONE,
             {".gitconfig": GIT.replace(b"= x", b"= 1").replace(b'"a b"', b'"a;b"')},
             b"set remote.Origin url 1 --old x\nset core path 'a;b'\n")])

    def test_set_notes_lines_that_are_not_valid(self):
        for dialect, after, word in (("windows", b"[a]\r\nk=3\r\nK=2\r\n", b"first"),
                                     ("python-inline", b"[a]\r\nk=1\r\nK=3\r\n", b"last")):
            with self.subTest(dialect):
                self.write_files({"f": WINDOWS})
                run = self.run_in_directory("set", "f", "a", "k", "3", "--dialect", dialect)
                self.assertEqual((DONE, b""), (run.returncode, run.stdout))
                self.assertEqual(b'zstz: f: note: key "k" in [a] has 2 lines, and only the ' +
                                 word + b" is valid\n", run.stderr)
                self.assertEqual({"f": after}, self.read_files())


if __name__ == "__main__":
    tool.main()
