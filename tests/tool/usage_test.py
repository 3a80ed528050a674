#!/usr/bin/env python3
"""Tables of command lines with a mistake, and of the advice in the report. usage: usage_test.py TOOL
[unittest arguments]"""
import tool
from tool import DONE, INVALID_VALUE, NOT_FOUND, REFUSED, USAGE

STANZAS = b"[a]\nk = 1\n\n[b]\nk = 2\n"
SYSTEM = b"ID=debian\n"
PHP = b"; the settings\n[PHP]\nmemory_limit = 128M\n"
SAMBA = b"# The office.\n# Twenty lines.\n\n[global]\n\tworkgroup = A\n"
RESET = b"[Service]\nExecStart=\nExecStart=/bin/b\n"


def rows(name, text, *lines):
    """Returns rows of ToolTest.expect_rows() on a file: arguments, the report, and the code."""
    return [(" ".join(arguments), {name: text}, arguments, report, code, None)
            for arguments, report, code in lines]


NAMES = rows(
    "f", STANZAS,
    (["gte", "f", "a", "k"], b"zstz: unknown command \"gte\"; use 'zstz get', or run 'zstz --help'",
     USAGE),
    (["stnzas", "f"], b"use 'zstz stanzas', or run ", USAGE),
    (["LIST", "f"], b"use 'zstz list', or run ", USAGE),
    (["help", "gte"], b"unknown command \"gte\"; use 'zstz help get', or run 'zstz help'", USAGE),
    (["get", "f", "a", "k", "--fromat", "json"],
     b"get: unknown option \"--fromat\"; use --format, or run 'zstz get --help'\n", USAGE),
    (["get", "f", "--fromat=json", "a", "k"],
     b"unknown option \"--fromat\"; use --format, or run ", USAGE),
    (["set", "f", "a", "k", "1", "-dry-run"], b'unknown option "-dry-run"; use --dry-run, or ', USAGE),
    (["set", "f", "a", "k", "1", "--force"],
     b"set: unknown option \"--force\"; run 'zstz set --help'\n", USAGE),
    (["set", "f", "a", "k", "--5"],
     b'unknown option "--5"; put -- before names and values that start with "-", or run ', USAGE),
    (["set", "f", "a", "k", "-5"], b'unknown option "-5"; put -- before names and values', USAGE),
    (["get", "f", "a", "k", "-5"], b"unknown option \"-5\"; run 'zstz get --help'", USAGE),
    (["lint", "-x", "f"], b'unknown option "-x"; put -- before names and values', USAGE),
    (["get", "f", "a", "k", "--dialect", "yaml"],
     b"--dialect: unknown dialect \"yaml\"; run 'zstz dialects' for a list, or run 'zstz get ", USAGE),
    (["get", "f", "[a]", "k"], b"f: no stanza [[a]]; leave out the brackets: a\n", NOT_FOUND),
    (["unset", "f", "[a]", "k"], b"no stanza [[a]]; leave out the brackets: a\n", NOT_FOUND),
    (["set", "f", "[a]", "k", "1"],
     b'invalid stanza name "[a]"; leave out the brackets: a\n', INVALID_VALUE),
    (["get", "f", "[c]", "k"], b"no stanza [[c]]; run 'zstz stanzas f'", NOT_FOUND),
    (["get", "f", "[", "k"], b"no stanza [[]; run 'zstz stanzas f'", NOT_FOUND),
    (["set", "f", "a", "k", "1", "2"], b'set: unexpected argument "2"; put a value of several words in '
     b"quotes, or run 'zstz set --help'\n", USAGE),
    (["comment", "f", "a", "k", "1", "2"], b'"2"; put a comment of several words in quotes, or run ',
     USAGE),
    (["get", "f", "a", "k", "1"], b"unexpected argument \"1\"; run 'zstz get --help'\n", USAGE),
    (["rename", "f", "a", "k", "b", "k"],
     b'rename: unexpected argument "k"; to move a key, use unset and set in a script of zstz edit, or',
     USAGE),
)

BRACKETS = [row for name, text in (("smb.conf", SAMBA), (".gitconfig", b"[global]\n\tworkgroup = A\n"))
            for row in rows(
                name, text,
                (["get", name, "[global]", "workgroup"], b"leave out the brackets: global\n", NOT_FOUND),
                (["set", name, "[global]", "workgroup", "B"],
                 b'invalid stanza name "[global]"; leave out the brackets: global\n', INVALID_VALUE))]

TOP = b'; the stanza of keys without a header is ".", or run '
MISSING = rows(
    "os-release", SYSTEM,
    (["get", "os-release", "ID"], b"get: KEY is required" + TOP + b"'zstz get --help'\n", USAGE),
    (["set", "os-release", "ID", "x"], b"VALUE is required" + TOP, USAGE),
    (["add", "os-release", "ID", "x"], b"VALUE is required" + TOP, USAGE),
    (["unset", "os-release", "ID"], b"KEY or --stanza is required" + TOP, USAGE),
    (["keys", "os-release"], b"STANZA is required" + TOP, USAGE),
    (["get", "os-release", "."], b"KEY is required; run 'zstz get --help'\n", USAGE),
    (["get"], b"FILE is required; run 'zstz get --help'\n", USAGE),
) + rows(
    "smb.conf", SAMBA,
    (["get", "smb.conf", "workgroup"], b"KEY is required" + TOP, USAGE),
) + rows(
    "a.service", RESET,
    (["get", "a.service", "ExecStart"], b"KEY is required; run 'zstz get --help'\n", USAGE),
) + rows(
    ".gitconfig", b"[core]\n\tbare = false\n",
    (["set", ".gitconfig", "core", "filemode"],
     b'VALUE is required; the stanza of keys without a header is ".", and --bare writes the key alone, or',
     USAGE),
    (["add", ".gitconfig", "core", "filemode"], b"VALUE is required" + TOP, USAGE),
) + rows(
    "my.cnf", b"[mysqld]\nport = 1\n",
    (["set", "my.cnf", "mysqld", "skip-networking"],
     b"set: VALUE is required; --bare writes the key alone, or run 'zstz set --help'\n", USAGE),
) + rows(
    "f", STANZAS,
    (["set", "f", "a", "k"], b"VALUE is required; run 'zstz set --help'\n", USAGE),
) + [
    ("a script", {"f": SYSTEM}, ["edit", "f", "--dialect", "env"],
     b'standard input:1: VALUE is required; the stanza of keys without a header is "."\n', USAGE, None,
     b"set ID x\n"),
]

UNREAD = b" has no keys above the first header; use the name of a stanza, or pass --dialect "
TOP_OF_STANZAS = rows(
    "x.ini", STANZAS,
    *((arguments, b'x.ini: invalid stanza name ".": the dialect stanza' + UNREAD + b"ini\n",
       INVALID_VALUE)
      for arguments in (["set", "x.ini", ".", "root", "1"], ["add", "x.ini", ".", "root", "1"],
                        ["set", "x.ini", ".", "root", "1", "--raw"], ["rename", "x.ini", "a", "."])),
    (["comment", "x.ini", ".", "text"], b"no stanza [.]", NOT_FOUND),
) + rows(
    "f", b"# k = v\n",
    (["set", "f", ".", "k", "v"], UNREAD + b"ini, env or sysctl\n", INVALID_VALUE),
) + [
    ("a new file", {}, ["set", "n", ".", "k", "v", "--create"], UNREAD + b"ini, env or sysctl\n",
     INVALID_VALUE, None),
    ("the name of a new file", {}, ["set", "web.env", ".", "k", "v", "--create"],
     UNREAD + b"env\n", INVALID_VALUE, None),
    ("another dialect", {}, ["set", "n", ".", "k", "v", "--create", "--dialect", "env"], b"", DONE,
     {"n": b"k=v\n"}),
    ("a script", {"f": STANZAS}, ["edit", "f"],
     b'standard input:2: invalid stanza name ".": the dialect stanza', INVALID_VALUE, None,
     b"set a k 2\nset . k 1\n"),
    ("a Java file", {"f": STANZAS, "j": b"k=v\n"}, ["convert", "f", ".", "--from", "j"],
     b'f: invalid stanza name ".": the dialect stanza', INVALID_VALUE, None),
    ("an existing header", {"f": b"[.]\nk = v\n"}, ["set", "f", ".", "k", "w"], b"", DONE,
     {"f": b"[.]\nk = w\n"}),
    ("a new key below an existing header", {"f": b"[.]\nk = v\n"}, ["set", "f", ".", "l", "w"], b"",
     DONE, {"f": b"[.]\nk = v\nl = w\n"}),
    ("an existing header in a Java file", {"f": b"[.]\nk = v\n", "j": b"l=v\n"},
     ["convert", "f", ".", "--from", "j", "--overwrite"], b"", DONE,
     {"f": b"[.]\nl = v\n", "j": b"l=v\n"}),
]

TEXT = rows(
    "smb.conf", SAMBA,
    (["comment", "smb.conf", "global"],
     b'smb.conf: TEXT is missing, because "global" is a stanza; add TEXT, or pass "# global" for this '
     b"comment; --off turns a key into a comment\n", USAGE),
    (["comment", "smb.conf", "Global"], b'"Global" is a stanza; ', USAGE),
    (["comment", "smb.conf", "global", "--above"], b'"global" is a stanza; ', USAGE),
    (["comment", "smb.conf", "global", "WorkGroup"], b'"WorkGroup" is a key of [global]; ', USAGE),
) + rows(
    "php.ini", PHP,
    (["comment", "php.ini", "PHP", "memory_limit"],
     b'TEXT is missing, because "memory_limit" is a key of [PHP]; add TEXT, or pass "; memory_limit" ',
     USAGE),
) + rows(
    "os-release", SYSTEM,
    (["comment", "os-release", "ID"], b'"ID" is a key of [.]; ', USAGE),
) + rows(
    ".gitconfig", b'[remote "o"]\n\turl = x\n',
    (["comment", ".gitconfig", 'remote "o"'], b"is a stanza; ", USAGE),
) + [
    ("a script", {"f": STANZAS}, ["edit", "f"], b"standard input:1: TEXT is missing, because ", USAGE,
     None, b"comment a\n"),
    ("the comment with a mark", {"smb.conf": SAMBA}, ["comment", "smb.conf", "# global"], b"", DONE,
     {"smb.conf": b"# global\n\n[global]\n\tworkgroup = A\n"}),
    ("the comment of a key with a mark", {"php.ini": PHP}, ["comment", "php.ini", "PHP", "; memory_limit"],
     b"", DONE, {"php.ini": b"; memory_limit\n[PHP]\nmemory_limit = 128M\n"}),
    ("the key of another stanza", {"f": b"[a]\nk = 1\n[b]\n"}, ["comment", "f", "b", "k"], b"", DONE,
     {"f": b"[a]\nk = 1\n# k\n[b]\n"}),
    ("an empty text", {"f": b"# c\n[a]\n"}, ["comment", "f", "a", ""], b"", DONE, {"f": b"[a]\n"}),
]

BELOW = b" below the empty value, which resets those above; pass --all to replace all lines, "
RESETS = rows(
    "a.service", RESET,
    (["set", "a.service", "Service", "ExecStart", ""],
     b'key "ExecStart" in [Service] has 1 value' + BELOW, REFUSED),
) + rows(
    "a.service", RESET + b"ExecStart=/bin/c\n",
    (["set", "a.service", "Service", "ExecStart", ""], b"has 2 values" + BELOW, REFUSED),
    (["set", "a.service", "Service", "ExecStart", "x"],
     b"has 2 values; pass --all to replace both, --old or --nth", REFUSED),
) + rows(
    "a.service", b"[Service]\nExecStart=/bin/a\nExecStart=\n",
    (["set", "a.service", "Service", "ExecStart", ""], b"has 0 values" + BELOW, REFUSED),
) + [
    ("all lines", {"a.service": RESET}, ["set", "a.service", "Service", "ExecStart", "", "--all"], b"",
     DONE, {"a.service": b"[Service]\nExecStart=\n"}),
]

TABLES = {"names": NAMES + BRACKETS, "missing arguments": MISSING, "keys above the headers": TOP_OF_STANZAS,
          "comments without TEXT": TEXT, "values that are reset": RESETS}


class UsageTest(tool.ToolTest):
    def test_tables(self):
        for name, table in TABLES.items():
            with self.subTest(name):
                self.expect_rows(table)

    def test_the_advice_to_move_a_key_moves_the_key(self):
        self.expect_rows([
            ("edit", {"f": b"[a]\nk = 1\nl = 2\n\n[b]\nm = 3\n"}, ["edit", "f"], b"", DONE,
             {"f": b"[a]\nl = 2\n\n[b]\nm = 3\nk = 1\n"}, b"unset a k\nset b k 1\n")])


if __name__ == "__main__":
    tool.main()
