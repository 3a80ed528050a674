#!/usr/bin/env python3
"""Tables of command lines with a mistake, and of the advice in the report. usage: usage_test.py TOOL
[unittest arguments]"""
import tool
from tool import DONE, USAGE

STANZAS = b"[a]\nk = 1\n\n[b]\nk = 2\n"
SYSTEM = b"ID=debian\n"
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
    (["rename", "f", "a", "k", "b", "k"],
     b'rename: unexpected argument "k"; to move a key, use unset and set in a script of zstz edit, or',
     USAGE),
)

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

TABLES = {"names": NAMES, "missing arguments": MISSING}


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
