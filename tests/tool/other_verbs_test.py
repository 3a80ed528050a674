#!/usr/bin/env python3
"""Tables of files, commands and results of java, convert, lock and hexdump.
usage: other_verbs_test.py TOOL [unittest arguments]"""
import sys

import tool
from tool import DONE, INVALID_DATA, INVALID_VALUE, NO_ACCESS, NOT_FOUND, REFUSED, USAGE

JAVA = b"#\na = 1\nb = x y\n"


def java(name, before, arguments, printed, code=DONE, after=None):
    """Returns a row of ToolTest.expect_rows() on the file j."""
    return (name, {} if before is None else {"j": before}, ["java", "j", *arguments], printed, code,
            None if after is None else {"j": after})


JAVA_ROWS = [
    java("get", JAVA, ["get", "b"], b"x y\n"),
    java("get, other separators", b"a:1\nb 2\n  c\t=3\n", ["get", "b"], b"2\n"),
    java("get, a key alone", b"a\nb=1\n", ["get", "a"], b"\n"),
    java("get, the last value", b"a=1\na=2\n", ["get", "a"], b"2\n"),
    java("get, nothing", JAVA, ["get", "c"], b'zstz: j: no key "c"; run \'zstz java j list\'', NOT_FOUND),
    java("get, no file", None, ["get", "a"], b"j: cannot open: No such file", NO_ACCESS),
    java("get, no key", JAVA, ["get"], b"KEY is required", USAGE),
    java("list", JAVA, ["list"], b"a = 1\nb = x y\n"),
    java("list, nothing", b"", ["list"], b""),
    java("list, an option of other verbs", JAVA, ["list", "--format", "json"],
         b'unknown option "--format"', USAGE),
    java("check", JAVA, ["check"], b"j: 2 entries, 0 comments\n"),
    java("check, comments", b"# c\n! d\nk=1\n", ["check"], b"j: 1 entry, 2 comments\n"),
    java("set", JAVA, ["set", "a", "2"], b"", DONE, JAVA.replace(b"= 1", b"= 2")),
    java("set, a new key", JAVA, ["set", "c", "3"], b"", DONE, JAVA.replace(b"= 1\n", b"= 1\nc = 3\n")),
    java("set, an empty value", JAVA, ["set", "b", ""], b"", DONE, JAVA.replace(b"x y", b"")),
    java("set, the same", JAVA, ["set", "a", "1"], b""),
    java("set, a value with a newline", JAVA, ["set", "a", "x\ny"], b"has a line ending", INVALID_VALUE),
    java("set, an invalid key", JAVA, ["set", "a b", "x"], b'invalid key "a b"', INVALID_VALUE),
    java("set, no value", JAVA, ["set", "a"], b"VALUE is required", USAGE),
    java("set, comments", b"# c\na=1\n", ["set", "a", "2"], b'j:1: "# c": the comment would be lost',
         REFUSED),
    java("set, without comments", b"# c\na=1\n", ["set", "a", "2", "--drop-comments"], b"", DONE,
         b"#\na = 2\n"),
    java("set, an invalid line", b"a=\\q\n", ["set", "a", "2"], b'j:1: "a=\\q": ignored', INVALID_DATA),
    java("set, no file", None, ["set", "a", "2"], b"j: cannot open: No such file", NO_ACCESS),
    java("an unknown action", JAVA, ["remove", "a"], b'"remove" is not get, set, list or check', USAGE),
]

STANZAS = b"[a]\nk = 1\nl = x y\n\n[b]\nk = 2\n"
BOTH = {"f": STANZAS, "j": JAVA}


def convert(name, before, arguments, printed, code=DONE, after=None):
    """Returns a row of ToolTest.expect_rows(); `after` has the files that change."""
    return (name, before, ["convert", *arguments], printed, code, {**before, **after} if after else None)


CONVERT_ROWS = [
    convert("to", {"f": STANZAS}, ["f", "a", "--to", "j"], b"", DONE, {"j": b"#\nl = x y\nk = 1\n"}),
    convert("to, a file that exists", BOTH, ["f", "a", "--to", "j"], b"j: the file exists; pass --overwrite",
            REFUSED),
    convert("to, over a file", BOTH, ["f", "b", "--to", "j", "--overwrite"], b"", DONE,
            {"j": b"#\nk = 2\n"}),
    convert("to, no stanza", {"f": STANZAS}, ["f", "c", "--to", "j"], b"f: no stanza [c]", NOT_FOUND),
    convert("to, comments", {"f": b"[a]\n# c\nk = 1\n"}, ["f", "a", "--to", "j"],
            b"f: stanza [a] has comments, which would be lost; pass --drop-comments", REFUSED),
    convert("to, without comments", {"f": b"[a]\n# c\nk = 1\n"},
            ["f", "a", "--to", "j", "--drop-comments"], b"", DONE, {"j": b"#\nk = 1\n"}),
    convert("to, two values", {"f": b"[a]\nk = 1\nk = 2\n"}, ["f", "a", "--to", "j"], b"has 2 values",
            REFUSED),
    convert("to, another dialect", {"smb.conf": b"[A b]\n  Guest OK = yes\n"},
            ["smb.conf", "a B", "--to", "j"], b'key "Guest OK" in [a B] is invalid in a Java file, whose '
            b'keys have no whitespace, "=", ":" or backslash, and no "#" or "!" at the start; rename it '
            b"with 'zstz rename smb.conf \"a B\" \"Guest OK\" GuestOK'", INVALID_VALUE),
    convert("to, keys with spaces", {"setup.cfg": b"[s]\na key = 1\nb.c = 2\nb c = 3\nd = 4\n#e = 5\n"},
            ["setup.cfg", "s", "--to", "j", "--drop-comments"],
            b"'zstz rename setup.cfg s \"a key\" a.key'\nzstz: setup.cfg: key \"b c\" in [s] is invalid in a "
            b"Java file, whose keys have no whitespace, \"=\", \":\" or backslash, and no \"#\" or \"!\" at "
            b"the start; rename it with 'zstz rename setup.cfg s \"b c\" NEW'\n", INVALID_VALUE),
    convert("to, the values that are valid", {"u.service": b"[S]\nE=1\nE=\nE=2\n"},
            ["u.service", "S", "--to", "j"], b"", DONE, {"j": b"#\nE = 2\n"}),
    convert("to, the same file", BOTH, ["f", "a", "--to", "f", "--overwrite"], b"is the same file as f",
            REFUSED),
    convert("from", BOTH, ["f", "c", "--from", "j"], b"", DONE,
            {"f": STANZAS + b"\n[c]\na = 1\nb = x y\n"}),
    convert("from, a stanza that exists", BOTH, ["f", "a", "--from", "j"], b"f: stanza [a] exists; pass",
            REFUSED),
    convert("from, over a stanza", BOTH, ["f", "b", "--from", "j", "--overwrite"], b"", DONE,
            {"f": STANZAS.replace(b"k = 2", b"a = 1\nb = x y")}),
    convert("from, a key alone", {"f": b"[a]\n", "j": b"k\n"}, ["f", "c", "--from", "j"], b"", DONE,
            {"f": b"[a]\n\n[c]\nk =\n"}),
    convert("from, a missing file", {"j": JAVA}, ["f", "c", "--from", "j"],
            b"f: cannot open: No such file or directory; check the path, or pass --create", NO_ACCESS),
    convert("from, a new file", {"j": JAVA}, ["f", "c", "--from", "j", "--create"], b"", DONE,
            {"f": b"[c]\na = 1\nb = x y\n"}),
    convert("from, another dialect", {"x.service": b"[A]\nK=1\n", "j": JAVA},
            ["x.service", "B", "--from", "j"], b"", DONE, {"x.service": b"[A]\nK=1\n\n[B]\na=1\nb=x y\n"}),
    convert("from, a dry run", BOTH, ["f", "c", "--from", "j", "-n"],
            b"--- f\n+++ f\n@@ -4,3 +4,7 @@\n \n [b]\n k = 2\n+\n+[c]\n+a = 1\n+b = x y\n"),
    convert("from, a backup", BOTH, ["f", "c", "--from", "j", "--backup"], b"", DONE,
            {"f": STANZAS + b"\n[c]\na = 1\nb = x y\n", "f~": STANZAS}),
    convert("from, no Java file", {"f": STANZAS}, ["f", "c", "--from", "j"], b"j: cannot open: No such",
            NO_ACCESS),
    convert("from, an invalid line", {"f": STANZAS, "j": b"a=\\q\n"}, ["f", "c", "--from", "j"],
            b'j:1: "a=\\q": ignored', INVALID_DATA),
    convert("from, an invalid stanza", BOTH, ["f", "c]", "--from", "j"], b"invalid stanza name", INVALID_VALUE),
    *[convert("from, a stanza of " + dialect, {"j": b""}, ["f", name, "--from", "j", "--create", "--dialect", dialect],
              f'f: invalid stanza name "{name}": the dialect {dialect} cannot spell '.encode(), INVALID_VALUE)
      for dialect, name in (("git", "a b"), ("ini", "a]"))],
    convert("from, without headers", {"j": b""}, ["f", "a", "--from", "j", "--create", "--dialect", "env"],
            b'f: invalid stanza name "a": the dialect env has no headers; use the stanza .', INVALID_VALUE),
    convert("no direction", BOTH, ["f", "a"], b"--from or --to is required", USAGE),
    convert("both directions", BOTH, ["f", "a", "--from", "j", "--to", "j"], b"--to excludes --from", USAGE),
    convert("an option of other verbs", BOTH, ["f", "c", "--from", "j", "--format", "json"],
            b'unknown option "--format"', USAGE),
]

# The lock file has the sequence number, and the process that has locked it last.
LOCK_ROWS = [
    ("write", ["--write", "r", "--", "echo", "in"], b"in\n", DONE, 1),
    ("read", ["--read", "r", "--", "echo", "in"], b"in\n", DONE, 0),
    ("the code of the command", ["--write", "r", "--", "sh", "-c", "exit 7"], b"", 7, 1),
    ("a name that is an argument", ["--read", "r", "--", "printf", "%s.", "--write", "r"], b"--write.r.", DONE, 0),
    ("no such command", ["--write", "r", "--", "no-such-command"], b"no-such-command: cannot run: No such", 127, 1),
    ("show", ["--show", "r"], b"file: ._zplr\nstate: free\nsequence: 0\n", DONE, None),
    ("no directory", ["--read", "--dir", "none", "r", "--", "true"], b"none: cannot lock: it is not a directory",
     NO_ACCESS, None),
    ("no mode", ["r", "--", "true"], b"--read, --write or --show is required", USAGE, None),
    ("both modes", ["--read", "--write", "r", "--", "true"], b"--write excludes --read", USAGE, None),
    ("no command", ["--read", "r"], b"-- COMMAND is required", USAGE, None),
    ("a command to show", ["--show", "r", "--", "true"], b"--show excludes COMMAND", USAGE, None),
    ("no name", ["--read"], b"NAME is required", USAGE, None),
    ("an option of other verbs", ["--read", "r", "--dialect", "git", "--", "true"],
     b'unknown option "--dialect"', USAGE, None),
]

LINE = b"\n0000   61 3d 31 0a                                       *a=1.            *\n"

HEXDUMP_ROWS = [
    ("a file", {"f": b"a=1\n"}, ["hexdump", "f"], LINE, DONE, None),
    ("nothing", {"f": b""}, ["hexdump", "f"], b"\n", DONE, None),
    ("standard input", {}, ["hexdump", "-"], LINE, DONE, None, b"a=1\n"),
    ("two files", {"f": b"a=1\n", "g": b"a=1\n"}, ["hexdump", "f", "g"], b"\n\tf\n" + LINE + b"\n\tg\n" + LINE,
     DONE, None),
    ("two lines", {"f": bytes(range(17))}, ["hexdump", "f"],
     b"\n0000   00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  *................*"
     b"\n0010   10                                                *.               *\n", DONE, None),
    ("no file", {}, ["hexdump", "f"], b"f: cannot open: No such file", NO_ACCESS, None),
    ("no argument", {}, ["hexdump"], b"FILE is required", USAGE, None),
    ("an option of other verbs", {"f": b""}, ["hexdump", "-q", "f"], b'unknown option "-q"', USAGE, None),
]


class OtherVerbsTest(tool.ToolTest):
    def test_java(self):
        self.expect_rows(JAVA_ROWS)

    def test_convert(self):
        self.expect_rows(CONVERT_ROWS)

    def test_hexdump(self):
        self.expect_rows(HEXDUMP_ROWS)

    def test_lock(self):
        for name, arguments, printed, code, sequence in LOCK_ROWS:
            with self.subTest(name):
                self.write_files({"other": b"x"})
                run = self.run_in_directory("lock", *arguments)
                self.assertEqual(code, run.returncode, run.stderr)
                self.assertIn(printed, run.stderr if run.stderr else run.stdout)
                files = self.read_files()
                self.assertEqual(b"x", files.pop("other"))
                self.assertEqual([] if sequence is None else [("._zplr", sequence)],
                                 [(path, int.from_bytes(text[:4], sys.byteorder))
                                  for path, text in files.items()])


if __name__ == "__main__":
    tool.main()
