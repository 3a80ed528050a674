#!/usr/bin/env python3
"""Tests of the verbs on files of other dialects. usage: dialects_test.py TOOL [unittest arguments]"""
import json

import tool
from tool import DONE, INVALID_DATA, INVALID_VALUE, NO_ACCESS, NOT_FOUND, REFUSED, USAGE

GIT = b'[core]\n\tbare = false ; c\n\tpath = "a b"\n[remote "Origin"]\n\turl = x\n\turl = y\n\tflag\n'
PYTHON = b"[a]\nKey: v\n   w\n# c\nother = 1\n"
UNIT = b"[Service]\nExecStart=/bin/a\nExecStart=\nExecStart=/bin/b\n"
VERSION = b"[$Version]\nu=1\n[a][$i]\nk[$e]=1\n"
PEERS = b"[Peer]\nK=1\n[Peer]\nK=2\n"
RESET = b"[s]\nE=/0\nE=\n"
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
    row("php", b"[a]\nextension = x\nextension = y\n", ["get", "a", "extension", "--all"], b"x\ny\n"),
    row("php", b"[a]\nextension = x\nextension = y\n", ["lint"], b""),
    row("kconfig", b"[a\\x5d]\nk\\x3d=1\n", ["get", "a]", "k="], b"1\n"),
    row("kconfig", b"[a\\x5d]\nk\\x3d=1\n", ["list"], b"[a]]\nk= = 1\n"),
    row("git", b"[a\n", ["get", "a", "k"], b"zstz: f:1:1: ", INVALID_DATA),
    row("git", GIT, ["get", 'remote "Origin"', "url", "--all"], b"x\ny\n"),
    row("git", GIT, ["keys", '[remote "Origin"]'], b"url\nflag\n"),
    row("git", GIT, ["get", 'remote "origin"', "url"], b"no stanza [remote.origin]", NOT_FOUND),
    row("git", GIT, ["list", "CORE"], b"[core]\nbare = false\npath = a b\n"),
    row("git", GIT, ["list", "CORE", "Bare"], b"[core]\nbare = false\n"),
    row("git", GIT, ["list", "remote.Origin"], b"[remote.Origin]\nurl = x\nurl = y\nflag\n"),
    row("git", GIT, ["keys", "Core"], b"bare\npath\n"),
    row("git", GIT, ["get", "core", "bare", "--as", "boolean"], b"no\n"),
    row("git", GIT, ["get", "remote.Origin", "flag", "--as", "boolean"], b"yes\n"),
    row("git", GIT, ["get", "remote.Origin", "flag", "--as", "number"],
        b'key "flag" in [remote.Origin] has no value, so it is not a number', INVALID_VALUE),
    row("mysql", b"[m]\nskip\n", ["get", "m", "skip", "--as", "boolean"], b"yes\n"),
    row("mysql", b"[m]\nskip\n", ["list"], b"[m]\nskip\n"),
    row("php", b"[a]\nengine = Off\nn = -1\nf = 2.50\nx = 1k\n",
        ["get", "a", "engine", "--as", "boolean"], b"no\n"),
    row("php", b"[a]\nn = -1\n", ["get", "a", "n", "--as", "number"], b"-1\n"),
    row("php", b"[a]\nf = 2.50\n", ["get", "a", "f", "--as", "number"], b"2.50\n"),
    row("php", b"[a]\nx = 1k\n", ["get", "a", "x", "--as", "number"], b'"1k" is not a number',
        INVALID_VALUE),
    row("php", b"[a]\nx =\n", ["get", "a", "x", "--as", "number"], b'"" is not a number',
        INVALID_VALUE),
    row("php", b"[a]\nx =\n", ["get", "a", "x", "--as", "boolean"], b"no\n"),
    row("php", b"[a]\nx = -2\n", ["get", "a", "x", "--as", "boolean"], b"yes\n"),
    row("php", b"[a]\nx = none\n", ["get", "a", "x", "--as", "boolean"], b"no\n"),
    *[row("git", b"[a]\n\tx = " + value + b"\n", ["get", "a", "x", "--as", type], printed)
      for type, value, printed in (
          ("boolean", b"on", b"yes\n"), ("boolean", b"-1", b"yes\n"), ("boolean", b"2", b"yes\n"),
          ("boolean", b"0", b"no\n"), ("boolean", b"1k", b"yes\n"), ("boolean", b"Off", b"no\n"),
          ("number", b"-1", b"-1\n"), ("number", b"1k", b"1024\n"), ("number", b"-2G", b"-2147483648\n"),
          ("number", b"0x10m", b"16777216\n"))],
    *[row("git", b"[a]\n\tx = " + value + b"\n", ["get", "a", "x", "--as", type], printed, INVALID_VALUE)
      for type, value, printed in (
          ("number", b"k", b'"k" is not a number'), ("number", b"1t", b'"1t" is not a number'),
          ("number", b"1.5k", b'"1.5k" is not a number'), ("boolean", b"none", b"is not a boolean"),
          ("number", b"99999999999g", b"is not a number"))],
    row("mysql", b"[a]\nx = 16M\n", ["get", "a", "x", "--as", "number"], b"16777216\n"),
    row("mysql", b"[a]\nx = 1T\n", ["get", "a", "x", "--as", "number"], b"1099511627776\n"),
    row("systemd", b"[a]\nx=1k\n", ["get", "a", "x", "--as", "number"], b'"1k" is not a number',
        INVALID_VALUE),
    row("systemd", b"[a]\nx=2\n", ["get", "a", "x", "--as", "boolean"], b'"2" is not a boolean',
        INVALID_VALUE),
    *[row("samba", b"[a]\nx = " + value + b"\n", ["get", "a", "x", "--as", "boolean"], printed)
      for value, printed in ((b"Yes", b"yes\n"), (b"on", b"yes\n"), (b"false", b"no\n"), (b"0", b"no\n"))],
    row("samba", b"[A b]\nCreate Mask = 1\n", ["list", "a B", "createmask"],
        b"[A b]\nCreate Mask = 1\n"),
    row("systemd", UNIT + b"ExecStart=\n", ["get", "Service", "ExecStart"],
        b"has no value below the empty one, which resets it; pass --raw", NOT_FOUND),
    row("systemd", UNIT + b"ExecStart=\n", ["get", "Service", "ExecStart", "--default", "x"], b"x\n"),
    row("systemd", UNIT + b"ExecStart=\n", ["get", "Service", "ExecStart", "--all"], b""),
    row("systemd", UNIT + b"ExecStart=/c\n", ["get", "Service", "ExecStart", "--line", "--all"],
        b"4\n5\n"),
    row("systemd", UNIT, ["get", "Service", "ExecStart", "--line"], b"4\n"),
    row("systemd", RESET, ["get", "s", "E", "--line", "--all"], b""),
    row("windows", WINDOWS, ["get", "a", "k", "--line", "--all"], b"2\n"),
    row("windows", WINDOWS, ["get", "a", "k", "--line"], b"2\n"),
    row("python", PYTHON, ["get", "a", "key", "--line"], b"2\n"),
    row("networkd", PEERS, ["get", "Peer", "K"], b"1\n"),
    row("networkd", PEERS, ["get", "Peer]1", "K", "--line"], b"2\n"),
    row("networkd", PEERS, ["keys", "Peer]1"], b"K\n"),
    row("networkd", PEERS, ["list", "Peer]1"], b"[Peer]\nK = 1\n"),
    row("networkd", PEERS, ["list", "Peer]2", "K"], b"[Peer]2\nK = 2\n"),
    row("networkd", PEERS, ["list", "[Peer]2", "K"], b"[Peer]2\nK = 2\n"),
    row("networkd", PEERS, ["get", "[Peer]2", "K"], b"2\n"),
    row("networkd", PEERS, ["keys", "[Peer]"], b"K\n"),
    row("networkd", PEERS, ["keys", "[Peer]3"], b"no stanza [Peer]3; run ", NOT_FOUND),
    row("networkd", PEERS, ["set", "[Peer]2", "K", "x"], b"", DONE, PEERS.replace(b"2", b"x")),
    row("networkd", PEERS, ["rename", "[Peer]2", "Other"], b"", DONE,
        b"[Other]".join(PEERS.rsplit(b"[Peer]", 1))),
    row("kconfig", VERSION, ["stanzas"], b"$Version\na\n"),
    row("kconfig", VERSION, ["get", "$Version", "u"], b"1\n"),
    row("kconfig", b"[]\nk=1\n", ["list", "--format", "json"], b'{"": {"k": ["1"]}}\n'),
    row("python", b"[a]\nk = 1\n  [x]\n  y = 2\n", ["list"], b"[a]\nk = 1\n    [x]\n    y = 2\n"),
    row("env", b"A='1'\nB=it\\'s\n", ["list", "--format", "sh"], b"A='1'\nB='it'\\''s'\n"),
    row("ini", b"k = 1\n[a]\nk = 2\n", ["list", "--format", "sh"], b"k='1'\na_k='2'\n"),
    row("ini", b"a_k = 1\n[a]\nk = 2\n", ["list", "--format", "sh"],
        b'key "a_k" in [.] and key "k" in [a] have the same variable a_k', REFUSED),
    row("windows", WINDOWS, ["list", "--format", "sh"],
        b"a_k='1'\na_k_N='2'\na_k_1='1'\na_k_2='2'\n"),
    row("python", PYTHON, ["get", "", "k"], b"STANZA: must not be empty; the keys above the first header "
        b"are in .", USAGE),
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
    row("git", GIT, ["comment", "core", "bare", "why"], b"", DONE,
        GIT.replace(b"\tbare", b"\t# why\n\tbare")),
    row("git", GIT, ["comment", "core", "bare", "a\nb"], b"", DONE,
        GIT.replace(b"\tbare", b"\t# a\n\t# b\n\tbare")),
    row("ini", b"[a]\nk=1\n", ["comment", "a", "k", "# b\nc\n; d"], b"", DONE,
        b"[a]\n; b\n; c\n; d\nk=1\n"),
    row("env", b"# old\nexport A=1\n", ["comment", ".", "A", "new", "--above"], b"", DONE,
        b"# new\n# old\nexport A=1\n"),
    row("git", GIT, ["rename", "core", "Core"], b"", DONE, GIT.replace(b"[core]", b"[Core]")),
    row("git", GIT, ["rename", "core", "bare", "Bare"], b"", DONE, GIT.replace(b"bare", b"Bare")),
    row("git", GIT, ["rename", "remote.Origin", "Remote.Origin"], b"", DONE,
        GIT.replace(b"[remote", b"[Remote")),
    row("git", GIT, ["rename", "core", "bare", "Path"], b'key "Path" in [core] exists', REFUSED),
    row("mysql", b"[m]\na-b=1\na_b=2\n", ["rename", "m", "a_b", "a-b"], b"", DONE,
        b"[m]\na-b=1\na-b=2\n"),
    row("networkd", PEERS, ["rename", "Peer]2", "Peer]1"], b"exists", REFUSED),
    row("mysql", b"[m]\nskip\n", ["set", "m", "quick", "--bare"], b"", DONE, b"[m]\nskip\nquick\n"),
    row("mysql", b"[m]\nskip\n", ["set", "m", "skip", "--bare"], b""),
    row("mysql", b"[m]\nskip\n", ["set", "m", "skip", "--bare", "--only", "new"], b"exists", REFUSED),
    row("mysql", b"[m]\na = 'x' # c\n", ["set", "m", "a", "--bare"], b"", DONE, b"[m]\na # c\n"),
    row("mysql", b"[m]\na = 1\na = 2\n", ["set", "m", "a", "--bare", "--nth", "1"], b"", DONE,
        b"[m]\na\na = 2\n"),
    row("git", GIT, ["set", "core", "logs", "--bare"], b"", DONE,
        GIT.replace(b'b"\n', b'b"\n\tlogs\n')),
    row("git", GIT, ["set", "core", "bare", "--bare"], b"would not read back without a value",
        INVALID_VALUE),
    row("ini", b"[m]\na = 1\n", ["set", "m", "a", "--bare"],
        b"the dialect ini has no keys without a value", REFUSED),
    row("mysql", b"[m]\na\n", ["set", "m", "a", "", "--bare"], b"--bare excludes VALUE", USAGE),
    row("kconfig", VERSION, ["set", "$Version", "v", "2"], b"", DONE, VERSION.replace(b"1\n[", b"1\nv=2\n[")),
    row("kconfig", VERSION, ["unset", "$Version", "--stanza"], b"", DONE, b"[a][$i]\nk[$e]=1\n"),
    row("kconfig", VERSION, ["comment", "$Version", "u", "--off"], b"", DONE, VERSION.replace(b"u", b"# u")),
    row("systemd", UNIT, ["add", "Service", "ExecStart", ""], b"", DONE, UNIT + b"ExecStart=\n"),
    row("systemd", RESET + b"E=/a\n", ["set", "s", "E", "/b"], b"", DONE, RESET + b"E=/b\n"),
    row("systemd", RESET + b"E=/a\nE=/c\n", ["set", "s", "E", "/b"],
        b"has 2 values; pass --all to replace both, --old or --nth", REFUSED),
    row("systemd", RESET + b"E=/a\nE=/c\n", ["set", "s", "E", "/b", "--all"], b"", DONE,
        RESET + b"E=/b\n"),
    row("systemd", RESET + b"E=/a\n", ["set", "s", "E", "", "--all"], b"", DONE, b"[s]\nE=\n"),
    row("systemd", RESET, ["set", "s", "E", "/b"], b"", DONE, RESET + b"E=/b\n"),
    row("systemd", RESET + b"E=/b\n", ["add", "s", "E", "/a", "--behind", ""], b"", DONE,
        RESET + b"E=/a\nE=/b\n"),
    row("systemd", b"[s]\nE=\n", ["set", "s", "E", "/b"], b"", DONE, b"[s]\nE=/b\n"),
    row("python", PYTHON, ["set", "a", "OTHER", "2"], b"", DONE,
        PYTHON.replace(b"= 1", b"= 2")),
    row("python", PYTHON, ["add", "a", "other", "2"], b"of several lines only one is valid", REFUSED),
    row("python", b"[o]\nlist =\n    a\n    b\n", ["add", "o", "list", "c"],
        b"the list is one value: use 'zstz set' with all of its text", REFUSED),
    row("python", b"[o]\nlist =\n    a\n    b\n", ["unset", "o", "list", "b"],
        b"has no value \"b\"; the list is one value: use 'zstz set'", NOT_FOUND),
    row("desktop", b"[e]\nActions=a;b;\n", ["add", "e", "Actions", "c"],
        b"the list is one value: use 'zstz set' with all of its text", REFUSED),
    row("stanza", b"[Peer]\nk = 1\n", ["set", "Peer]2", "k", "2"],
        b"a numbered stanza needs --dialect networkd", INVALID_VALUE),
    row("php", b"[a]\nextension = x\n", ["add", "a", "extension", "y"], b"", DONE,
        b"[a]\nextension = x\nextension = y\n"),
    row("php", b"[a]\nextension = x\nextension = y\n", ["set", "a", "extension", "z"],
        b"has 2 values; pass --all to replace both, --old or --nth", REFUSED),
    row("php", b"[a]\nspeed = x\n", ["add", "a", "speed", "y"], b"of several lines only one is valid",
        REFUSED),
    row("php", b"[a]\nk = 1\n", ["set", "a;b", "k", "1"], b'invalid stanza name "a;b"', INVALID_VALUE),
    row("kconfig", b"[a]\nk=1\n", ["set", "a][b[1]", "=#", "2"], b"", DONE,
        b"[a]\nk=1\n\n[a][b\\x5b1\\x5d]\n\\x3d#=2\n"),
    row("python", PYTHON, ["rename", "a", "other", "new"], b"", DONE,
        PYTHON.replace(b"other", b"new")),
    row("python", PYTHON, ["unset", "a", "key"], b"", DONE, b"[a]\n# c\nother = 1\n"),
    row("none", PYTHON, ["get", "a", "key"], b'unknown dialect "none"', USAGE),
]


# The values above the reset have no effect.
RESET_LIST = b"[s]\nE=1\nE=2\nE=\nE=2\nE=3\n"
CHANGE += [
    row(dialect, RESET_LIST, [verb, "s", "E", *options], b"", DONE, b"[s]\nE=1\nE=2\nE=\n" + after)
    for dialect in ("systemd", "networkd") for verb, options, after in (
        ("set", ["9", "--nth", "1"], b"E=9\nE=3\n"), ("set", ["9", "--nth", "2"], b"E=2\nE=9\n"),
        ("set", ["9", "--old", "2"], b"E=9\nE=3\n"), ("set", ["9", "--raw", "--nth", "2"], b"E=2\nE=9\n"),
        ("unset", ["2"], b"E=3\n"), ("add", ["9", "--first"], b"E=9\nE=2\nE=3\n"),
        ("add", ["9", "--before", "2"], b"E=9\nE=2\nE=3\n"),
        ("add", ["9", "--behind", "2"], b"E=2\nE=9\nE=3\n"),
        ("add", ["9", "--behind", ""], b"E=9\nE=2\nE=3\n"))
] + [
    row("systemd", RESET_LIST, [verb, "s", "E", *options], words, NOT_FOUND)
    for verb, options, words in (
        ("set", ["9", "--nth", "3"], b"has 2 values; choose one of them with --nth"),
        ("set", ["9", "--old", "1"], b'has the value "1" only above the empty value, which resets it; run'),
        ("add", ["9", "--before", "1"], b'has the value "1" only above the empty value'),
        ("unset", ["7"], b'has no value "7"'))
] + [
    row("systemd", RESET_LIST + b"E=\n", ["set", "s", "E", "9", "--nth", "1"], b"has no value below the empty value", NOT_FOUND),
    row("systemd", RESET_LIST + b"E=\nE=4\n", ["unset", "s", "E", ""], b"", DONE, RESET_LIST + b"E=4\n"),
    row("systemd", RESET_LIST + b"E=\n", ["add", "s", "E", "9", "--first"], b"", DONE, RESET_LIST + b"E=\nE=9\n"),
    row("ini", b"[s]\nk=2\nk=2\n", ["set", "s", "k", "9", "--old", "2"], b"", DONE, b"[s]\nk=2\nk=9\n"),
    row("windows", b"[s]\nk=2\nk=2\n", ["set", "s", "k", "9", "--old", "2"], b"", DONE, b"[s]\nk=9\nk=2\n"),
]

# A key that has lines with and without a value. A line without one is an option that is set.
MIXED = b"[a]\nk=no\nk\nl=1\n"
MIXED_ABOVE = b"[a]\nk\nk=no\nl=1\n"
BOTH_KINDS = b"f: key \"k\" in [a] has lines with a value (2) and without one (3); remove all of them with 'zstz unset --all' first"
READ += [
    row(dialect, text, ["get", "a", "k", *options], printed)
    for dialect in ("git", "mysql") for text, options, printed in (
        (MIXED, [], b"\n"), (MIXED, ["--line"], b"3\n"), (MIXED, ["--as", "boolean"], b"yes\n"),
        (MIXED, ["--all"], b"no\n"), (MIXED, ["--raw"], b"no\n\n"),
        (MIXED_ABOVE, [], b"no\n"), (MIXED_ABOVE, ["--line"], b"3\n"),
        (MIXED_ABOVE, ["--as", "boolean"], b"no\n"))
] + [
    row("git", MIXED, ["get", "a", "k", "--as", "number"], b"has no value, so it is not a number", INVALID_VALUE),
]
CHANGE += [
    row(dialect, MIXED, [arguments[0], "a", "k", *arguments[1:]], BOTH_KINDS, REFUSED)
    for dialect in ("git", "mysql") for arguments in (
        ["set", "yes"], ["set", "no"], ["set", "yes", "--all"], ["set", "yes", "--nth", "1"], ["set", "--bare"],
        ["set", "yes", "--raw"], ["add", "yes"], ["add", "yes", "--first"], ["unset"], ["unset", "no"])
] + [
    row("git", MIXED, ["unset", "A", "K"], b"has lines with a value (2) and without one (3)", REFUSED),
    row("git", MIXED, ["unset", "a", "k", "--all"], b"", DONE, b"[a]\nl=1\n"),
    row("git", MIXED, ["unset", "a", "--stanza"], b"", DONE, b""),
    row("git", MIXED, ["set", "a", "l", "2"], b"", DONE, MIXED.replace(b"l=1", b"l=2")),
    row("git", MIXED, ["rename", "a", "k", "n"], b"", DONE, MIXED.replace(b"k", b"n")),
    row("git", MIXED, ["comment", "a", "k", "--off"], b"", DONE, MIXED.replace(b"k", b"# k")),
    row("stanza", b"[a]\nk = 1\nk =\n", ["unset", "a", "k", "1"], b"", DONE, b"[a]\nk =\n"),
    row("stanza", b"[a]\nk = 1\nk =\n", ["set", "a", "k", "2"], b"", DONE, b"[a]\nk = 2\nk =\n"),
]

# A key that is a comment of several lines, and the file with a new line of the key.
CHANGE += [
    row(dialect, before, [verb, stanza, "k", "v"], b"", DONE, after)
    for verb in ("set", "add") for dialect, stanza, before, after in (
        ("systemd", "s", b"[s]\n# k=a \\\n  # b\nX=1\n", b"[s]\n# k=a \\\n  # b\nk=v\nX=1\n"),
        ("systemd", "s", b"[s]\n# k=a \\\n# ; c\n # b", b"[s]\n# k=a \\\n# ; c\n # b\nk=v"),
        ("systemd", "s", b"[s]\n# k=a \\\n# b\n# other\n\nX=1\n", b"[s]\n# k=a \\\n# b\nk=v\n# other\n\nX=1\n"),
        ("systemd", "s", b"[s]\n# k=a\n# other\nX=1\n", b"[s]\n# k=a\nk=v\n# other\nX=1\n"),
        ("python", "s", b"[s]\n#k = a\n#  b\nx = 1\n", b"[s]\n#k = a\n#  b\nk = v\nx = 1\n"),
        ("python", "s", b"[s]\r\n# k = a\r\n  # b\r\n# c\r\nx = 1\r\n",
         b"[s]\r\n# k = a\r\n  # b\r\nk = v\r\n# c\r\nx = 1\r\n"),
        ("env", ".", b"# k='a\n# c\n# b'\n# l=1\nX=1\n", b"# k='a\n# c\n# b'\nk=v\n# l=1\nX=1\n"),
        ("env", ".", b"# k='a\n# b\nX=1\n", b"# k='a\nk=v\n# b\nX=1\n"))
]


AMBIGUOUS = [
    row("networkd", PEERS, arguments, b"f: 2 stanzas have the name [Peer]; use \"Peer]1\" or \"Peer]2\"",
        REFUSED)
    for arguments in (["set", "Peer", "K", "9"], ["set", "Peer", "K", "9", "--raw"],
                      ["add", "Peer", "K", "9"], ["unset", "Peer", "K"], ["unset", "Peer", "--stanza"],
                      ["rename", "Peer", "Q"], ["rename", "Peer", "K", "J"], ["comment", "Peer", "x"],
                      ["comment", "Peer", "K", "x"], ["comment", "Peer", "K", "--off"],
                      ["comment", "Peer", "K", "--on"])
] + [
    row("networkd", PEERS, ["set", "Peer]1", "K", "9"], b"", DONE, PEERS.replace(b"K=1", b"K=9")),
    row("networkd", PEERS, ["set", "Peer]2", "K", "9"], b"", DONE, PEERS.replace(b"K=2", b"K=9")),
    row("networkd", PEERS, ["comment", "Peer]1", "K", "--off"], b"", DONE,
        PEERS.replace(b"K=1", b"# K=1")),
    *[row("networkd", b"[a]\nk=1\n[a]\nk=2\n[c]\nm=1\n", arguments, b"", DONE,
          b"[a]\nk=1\n[a]\nk=2\n[c]\n" + after)
      for arguments, after in ((["set", "c", "n", "2"], b"m=1\nn=2\n"), (["add", "c", "n", "2"], b"m=1\nn=2\n"),
                               (["rename", "c", "m", "n"], b"n=1\n"),
                               (["set", "d", "n", "2"], b"m=1\n\n[d]\nn=2\n"))],
    row("networkd", PEERS + b"[Peer]\n", ["unset", "Peer", "K"], b'use "Peer]1" to "Peer]3"', REFUSED),
]

TEMPLATE = (b"; The office.\n[global]\n# required\n; workgroup = OFFICE\n;   create mask = 0700\n"
            b"; one of: a b\n; map to guest = a\n; log = yes\n")
SMB = b"[Global]\n  Map To Guest = c\n  createmask = x\nlog = on\nunknwn = 1\nword\n"
LINTED = (b'smb.conf:1:1: key "workgroup" in [global] is required and missing; add it, such as "OFFICE"\n'
          b'smb.conf:2:18: key "Map To Guest" in [Global]: "c" is not one of the values; use one of a, b\n'
          b'smb.conf:3:16: key "createmask" in [Global]: "x" is not a number; use digits, such as 0700\n'
          b'smb.conf:5:1: unknown key "unknwn" in [Global]; remove it\n'
          b'smb.conf:6:1: note: "word": ')


class DialectsTest(tool.ToolTest):
    def test_a_new_key_gets_an_empty_value(self):
        dialects = self.run_tool("dialects").stdout.split("\n")
        names = [line.split()[0] for line in dialects if line and line.split()[0] != "stanza"]
        self.assertIn("samba", names)
        for name in names:
            with self.subTest(name):
                stanza = "." if name in ("sysctl", "env") else "a"
                self.write_files({"f": b"k=1\n" if stanza == "." else b"[a]\nk=1\n"})
                run = self.run_in_directory("add", "f", stanza, "n", "", "--dialect", name)
                self.assertEqual((DONE, b""), (run.returncode, run.stderr))
                run = self.run_in_directory("list", "f", stanza, "--dialect", name, "--format", "json")
                self.assertEqual({stanza: {"k": ["1"], "n": [""]}}, json.loads(run.stdout))

    def test_reading(self):
        self.expect_rows(READ)

    def test_changing(self):
        self.expect_rows(CHANGE)

    def test_a_change_of_a_line_without_effect_prints_a_note(self):
        for dialect, before, arguments, note, after in (
                ("systemd", RESET + b"E=/b\n", ["add", "s", "E", "/a", "--before", ""],
                 b'key "E" in [s] has an empty value below the new one, which resets it',
                 b"[s]\nE=/0\nE=/a\nE=\nE=/b\n"),
                ("systemd", RESET_LIST, ["unset", "s", "E", "1"],
                 b'key "E" in [s] had an empty value below the removed one, which reset it',
                 RESET_LIST.replace(b"E=1\n", b"")),
                ("ini", b"[s]\nk=1\nk=2\n", ["set", "s", "k", "9", "--old", "1"],
                 b'key "k" in [s] has 2 lines, and only the last is valid', b"[s]\nk=9\nk=2\n"),
                ("windows", b"[s]\nk=1\nk=2\n", ["set", "s", "k", "9", "--nth", "2"],
                 b'key "k" in [s] has 2 lines, and only the first is valid', b"[s]\nk=1\nk=9\n")):
            for quiet in ([], ["-q"]):
                self.write_files({"f": before})
                verb, *rest = arguments
                run = self.run_in_directory(verb, "f", *rest, "--dialect", dialect, *quiet)
                self.assertEqual((DONE, b"" if quiet else b"zstz: f: note: " + note + b"\n"),
                                 (run.returncode, run.stderr))
                self.assertEqual({"f": after}, self.read_files())

    def test_a_name_of_several_stanzas_is_refused(self):
        self.expect_rows(AMBIGUOUS)
        self.expect_rows([("edit", {"f": PEERS}, ["edit", "f", "--dialect", "networkd"],
                           b"standard input:1: 2 stanzas have the name [Peer]", REFUSED, None,
                           b"set Peer K 9\n")])

    def test_add_adds_a_value_that_is_reset(self):
        service = {"a.service": UNIT}
        self.expect_rows([
            ("reset", service, ["add", "a.service", "Service", "ExecStart", "/bin/a"], b"", DONE,
             {"a.service": UNIT + b"ExecStart=/bin/a\n"}),
            ("first", service, ["add", "a.service", "Service", "ExecStart", "/bin/a", "--behind",
                                "/bin/b"], b"", DONE, {"a.service": UNIT + b"ExecStart=/bin/a\n"})])
        self.write_files(service)
        run = self.run_in_directory("add", "a.service", "Service", "ExecStart", "/bin/b")
        self.assertEqual((DONE, b'zstz: a.service: note: key "ExecStart" in [Service] has the value '
                          b"already\n"), (run.returncode, run.stderr))
        self.assertEqual(service, self.read_files())

    def test_templates_follow_the_dialect_of_the_file(self):
        self.write_files({"smb.conf": SMB, "t": TEMPLATE})
        run = self.run_in_directory("lint", "--template", "t", "smb.conf")
        self.assertEqual((INVALID_DATA, b""), (run.returncode, run.stderr))
        self.assertEqual(LINTED, run.stdout[:len(LINTED)])
        self.write_files({"t": b"; required\n; k = 7\n[a]\n; l = 2\n", "f": b"kk=1\n[a]\n"})
        run = self.run_in_directory("lint", "f", "--template", "t", "--dialect", "ini")
        self.assertEqual(b'f:1:1: unknown key "kk" in [.]; the nearest name is "k"\n'
                         b'f:1:1: key "k" in [.] is required and missing; add it, such as "7"\n', run.stdout)
        files = {"smb.conf": b"[global]\n", "smb.conf.example": TEMPLATE, "t": b"[a]\n# k = yes\n",
                 "f": b"[a]\n"}
        self.expect_rows([
            ("get", files, ["get", "smb.conf", "GLOBAL", "CreateMask", "--template", "smb.conf.example"],
             b"0700\n", DONE, None),
            ("a type", files, ["get", "smb.conf", "global", "createmask", "--as", "number", "--template",
                               "smb.conf.example"], b"448\n", DONE, None),
            ("not a number", files, ["get", "f", "a", "k", "--as", "number", "--template", "t"],
             b'"yes" is not a number', INVALID_VALUE, None),
            ("not a number by an option", files, ["get", "f", "a", "k", "--as=number", "--default=x"],
             b'"x" is not a number', INVALID_VALUE, None),
            ("doc of a key above the headers", {"t.ini": b"; k = 7\n[a]\n; l = 2\n"},
             ["doc", "t.ini", "--dialect", "ini", "--format", "lines"],
             b".\tk\tnumber\t7\t\t\na\tl\tnumber\t2\t\t\n", DONE, None),
            ("doc", files, ["doc", "smb.conf.example", "--format", "lines"],
             b"global\tworkgroup\ttext\tOFFICE\trequired\t\n"
             b"global\tcreate mask\tnumber\t0700\t\t\n"
             b"global\tmap to guest\ttext\ta\tone of: a b\t\n"
             b"global\tlog\tboolean\tyes\t\t\n", DONE, None)])

    def test_a_refusal_suggests_the_dialect_of_the_name(self):
        self.expect_rows([
            ("name", {"setup.cfg": PYTHON}, ["get", "setup.cfg", "a", "k", "--dialect", "git"],
             b"; reads as python; ", INVALID_DATA, None),
            ("name of a copy", {"smb.conf~": b"[a]\nk\n[b]\nword\n"},
             ["list", "smb.conf~", "--dialect", "stanza"], b"; reads as samba; ", INVALID_DATA, None),
            ("twice", {"f": b"[a]\nk=1\n[a]\nj=1\n"}, ["list", "f"], b"reads as ini; ",
             INVALID_DATA, None),
            ("peers", {"f": PEERS}, ["list", "f"], b"reads as networkd; ", INVALID_DATA, None),
            ("semicolons", {"f": b"; c\n[boot]\nk=1\n"}, ["list", "f"], b"reads as ini; say --dialect ini",
             INVALID_DATA, None)])

    def test_a_refusal_suggests_the_dialect_of_the_target_of_a_link(self):
        (self.path.parent / "smb.conf").write_text("; c\n[a]\nk = 1\n")
        (self.path.parent / "link").symlink_to("smb.conf")
        self.expect(INVALID_DATA, "; reads as samba; say --dialect samba\n", "list", "link",
                    cwd=self.directory.name)

    def test_a_refusal_suggests_no_dialect_that_the_contents_do_not_look_like(self):
        for text in (b"k: v\n", b"[a]\nk=1\n[zz"):
            self.write_files({"f": text})
            run = self.run_in_directory("list", "f")
            self.assertEqual(INVALID_DATA, run.returncode)
            self.assertNotIn(b"reads as", run.stderr)

    def test_a_refusal_names_the_character_or_the_length(self):
        keeps = b": the dialect %s keeps no whitespace at the start or end of it; remove the whitespace"
        cannot = b": the dialect %s cannot spell the %s in it; use a string without it"
        self.expect_rows([
            row("samba", b"[s]\nk=1\n", ["set", "s", "k", " v"],
                b'f: invalid value " v" of key "k"' + keeps % b"samba", INVALID_VALUE),
            row("python", PYTHON, ["set", "a", "other", "v\t"], keeps % b"python", INVALID_VALUE),
            row("python", b"[a]\n x\n", ["set", "a", "k", "v"],
                b': "v" would continue in the line below, which is indented; remove that line', INVALID_VALUE),
            row("mysql", b"[m]\n", ["set", "m", "k", 5000 * "x"],
                b": its line would be too long for the dialect mysql; shorten it", INVALID_VALUE),
            row("systemd", UNIT, ["set", "Service", "K", "a\nb"], cannot % (b"systemd", b"newline"),
                INVALID_VALUE),
            # Each character is tried once: a quadratic search would not end.
            row("systemd", UNIT, ["set", "Service", "K", 60000 * "; " + "\n"], b"newline", INVALID_VALUE),
            # The space and the newline are valid without the marks.
            row("python-inline", PYTHON, ["set", "a", "other", "a ;b"], cannot % (b"python-inline", b'";"'),
                INVALID_VALUE),
            row("editorconfig", b"[a]\nk = 1\n", ["set", "a", "k", "a #b"],
                cannot % (b"editorconfig", b'"#"'), INVALID_VALUE),
            row("python", PYTHON, ["set", "a", "other", "1\n# c"], cannot % (b"python", b'"#"'),
                INVALID_VALUE),
            *[row(dialect, text, arguments, b'f: invalid stanza name ".": the dialect ' + dialect.encode() +
                  b" has no keys above the first header; use the name of a stanza", INVALID_VALUE)
              for dialect in ("systemd", "desktop", "mysql", "python")
              for text, arguments in ((b"[a]\nk=1\n", ["set", ".", "a", "2"]),
                                      (b"[a]\nk=1\n", ["add", ".", "a", "2"]),
                                      (b"[a]\nk=1\n", ["rename", "a", "."]))],
            row("systemd", UNIT, ["set", "Service", "a=b", "c"],
                b'invalid key "a=b"' + cannot % (b"systemd", b'"="'), INVALID_VALUE),
            row("git", GIT, ["set", "core", "a\1b", "v"], cannot % (b"git", b"control character"),
                INVALID_VALUE),
            row("git", GIT, ["set", "a b", "k", "v"],
                b'invalid stanza name "a b"' + cannot % (b"git", b"space"), INVALID_VALUE),
            row("git", GIT, ["set", "core", "1b", "v"],
                b'invalid key "1b": the dialect git cannot spell it; use another string', INVALID_VALUE),
            row("git", GIT, ["set", "core", "logs", "x", "--format", "json"],
                b'set: unknown option "--format"', USAGE)])

    def test_a_refusal_names_the_position_or_the_code_of_a_character(self):
        lines = b": the dialect %s keeps no whitespace at the start or end of a line in it; remove the whitespace"
        newline = b": the dialect %s keeps no newline at the end of it; remove the newline"
        end = b": the dialect %s cannot spell the %s at the end of it; use another end"
        start = b": the dialect %s cannot spell the %s at the start of it; use another start"
        cannot = b": the dialect %s cannot spell the %s in it; use a string without it"
        space = '"\u00a0" (U+00A0)'.encode()
        unit = b"[s]\nk=1\n"
        self.expect_rows([
            row(dialect, unit, ["set", "s", "k", value], message % tuple(
                x for x in (dialect.encode(), character) if x), INVALID_VALUE)
            for dialect, value, message, character in (
                ("python", "a\n  b", lines, b""), ("python", "a\n\tb", lines, b""),
                ("python", "a \nb", lines, b""), ("python", "a\nb\n c\nd", lines, b""),
                ("python", "a\n", newline, b""), ("python", "a\nb\n\n", newline, b""),
                ("python", "a\n  b\n", newline, b""), ("systemd", "a\n", cannot, b"newline"),
                ("systemd", "a\n  b", cannot, b"newline"), ("python", "a\n# b", cannot, b'"#"'),
                ("systemd", "a\\", end, b'"\\"'), ("samba", "a\\b\\", end, b'"\\"'),
                ("python", "a\u00a0", end, space), ("python", "a\u00a0\u00a0", end, space),
                ("python", "\u00a0a", start, space), ("python-inline", "a\u00a0b\u00a0", end, space),
                ("editorconfig", "a\u2028b", cannot, b'"?" (U+2028)'),
                ("editorconfig", "a\u00a0", end, space),
                ("systemd", "a\udce4b", cannot, b"byte E4"), ("systemd", "a\udca0", cannot, b"byte A0"),
                ("python", "a\v", end, b"control character"))])
        self.expect_rows([
            row("git", GIT, ["set", "core", "k\u00e4", "v"], cannot % (b"git", '"ä" (U+00E4)'.encode()),
                INVALID_VALUE),
            # Few of the different characters are tried.
            row("git", GIT, ["set", "core", "".join(map(chr, range(0x4e00, 0x9f00))), "v"],
                b"the dialect git cannot spell it; use another string", INVALID_VALUE)])

    def test_a_wrong_number_of_a_stanza_is_refused_with_the_right_one(self):
        four = b"".join(b"[Peer]\nK=%d\n" % i for i in range(1, 5))
        mixed = b"[A]\n" + PEERS + b"[B]\n"
        wrong = 'f: invalid stanza name "%s": '
        fifth = 'the file has 4 stanzas [Peer], so the next stanza has the number 5; use "Peer]5"'
        second = 'the file has 1 stanza [Peer], so the next stanza has the number 2; use "Peer]2"'
        first = "the file has no stanza [New], so the first stanza has no number; use New"
        place = ("the number is the position among the stanzas with this name; use the number of its "
                 "position, or move its lines with an editor")
        for text, arguments, message in (
                (four, ["set", "Peer]9", "K", "5"], fifth), (four, ["set", "Peer]0", "K", "5"], fifth),
                (four, ["set", "[Peer]9", "K", "5"], fifth), (four, ["add", "Peer]6", "K", "5"], fifth),
                (b"[Peer]\nK=1\n", ["set", "Peer]3", "K", "2"], second),
                (four, ["set", "New]2", "K", "1"], first), (b"", ["set", "New]1", "K", "1"], first),
                (mixed, ["rename", "A", "New]2"], first), (mixed, ["rename", "A", "Peer]3"], place),
                (mixed, ["rename", "A", "Peer]9"], place), (mixed, ["rename", "B", "Peer]9"], place),
                (mixed, ["rename", "Peer]1", "Peer]3"], place), (mixed, ["rename", "Peer]1", "Peer]9"], place)):
            name = (arguments[2] if arguments[0] == "rename" else arguments[1]).lstrip("[")
            self.expect_rows([row("networkd", text, arguments, (wrong % name + message + "\n").encode(),
                                  INVALID_VALUE)])
        self.expect_rows([
            row("networkd", four, ["set", "Peer]5", "K", "5"], b"", DONE, four + b"\n[Peer]\nK=5\n"),
            row("networkd", mixed, ["rename", "A", "Peer]1"], b"", DONE, mixed.replace(b"A", b"Peer")),
            row("networkd", mixed, ["rename", "B", "Peer]3"], b"", DONE, mixed.replace(b"B", b"Peer")),
            row("networkd", mixed, ["rename", "B", "Peer]1"], b"stanza [Peer]1 exists", REFUSED),
            row("systemd", UNIT, ["set", "a]b[]2", "k", "v"], b"", DONE, UNIT + b"\n[a]b[]2]\nk=v\n")])

    def test_check_reports_every_error(self):
        self.write_files({"f": b"x\n[a]\ny\n", "php.ini": b"[a]\nk = \"x\nj = 1\n",
                          "smb.conf": b"[a]\nword\nk=1\nk=2\n"})
        run = self.run_in_directory("check", "f", "php.ini", "smb.conf")
        self.assertEqual(INVALID_DATA, run.returncode)
        lines = run.stderr.splitlines()
        self.assertEqual([b"zstz: f:1:1: ", b"zstz: f:3:1: ", b"zstz: php.ini:2:"],
                         [lines[0][:13], lines[1][:13], lines[2][:16]])
        self.assertEqual([b"smb.conf: 1 stanza, 1 key, 2 values", b"smb.conf:2:1: note: ",
                          b"smb.conf:3:1: note: "],
                         [line[:len(expected)] for line, expected in zip(
                             run.stdout.splitlines(),
                             [b"smb.conf: 1 stanza, 1 key, 2 values"] + [b"smb.conf:2:1: note: "] * 2)])

    def test_check_as_json(self):
        self.write_files({"f": b"x\n[a]\ny\n", "php.ini": b"[a]\nk = 1 # no\n", "g": b"[a]\nk = 1\nk = 2\nl =\n",
                          "smb.conf": b"[a]\nword\nk=1\nk=2\n"})
        run = self.run_in_directory("check", "f", "php.ini", "smb.conf", "g", "-", "none", "--format", "json",
                                    given=b"[a]\nk = 1\n")
        self.assertEqual((NO_ACCESS, b"zstz: none: cannot open: No such file or directory; check the path\n"),
                         (run.returncode, run.stderr))
        objects = [json.loads(line) for line in run.stdout.splitlines()]
        self.assertEqual([("f", None, None, None), ("php.ini", 1, 1, 1), ("smb.conf", 1, 1, 2), ("g", 1, 2, 2),
                          ("-", 1, 1, 1)],
                         [tuple(o[name] for name in ("file", "stanzas", "keys", "values")) for o in objects])
        self.assertEqual([[("error", 1), ("error", 3)], [("error", 2)], [("note", 2), ("note", 3)], [], []],
                         [[(p["kind"], p["line"]) for p in o["problems"]] for o in objects])
        self.assertEqual(INVALID_DATA, self.run_in_directory("check", "php.ini", "--format=json").returncode)

    def test_a_carriage_return_that_ends_a_line_is_reported_with_its_place(self):
        reason = ("a carriage return is not followed by a newline; end each line with a newline, and "
                  "remove other carriage returns")
        rows = (("ini", b"[a]\rk=1\rl=2\r", f'1:4: "[a]?k=1?l=2?": {reason}'),
                ("systemd", b"[a]\nk=1\rx\n", f'2:4: "k=1?x": {reason}'))
        for dialect, text, expected in rows:
            given = {"f": text, "g": b"[a]\nk=1\n"}
            self.write_files(given)
            run = self.run_in_directory("lint", "f", "--dialect", dialect)
            self.assertEqual((INVALID_DATA, f"f:{expected}\n"), (run.returncode, run.stdout.decode()))
            for arguments in (["check", "f"], ["get", "f", "a", "k"], ["list", "f"], ["set", "f", "a", "k", "2"],
                              ["set", "f", "a", "k", "2", "--dry-run"], ["add", "f", "a", "m", "2"],
                              ["unset", "f", "a", "k"], ["rename", "f", "a", "b"], ["comment", "f", "x"],
                              ["edit", "f"], ["fmt", "f"], ["diff", "g", "f"], ["merge", "g", "f", "g"],
                              ["check", "-"], ["set", "-", "a", "k", "2"]):
                with self.subTest(arguments, dialect=dialect):
                    run = self.run_in_directory(*arguments, "--dialect", dialect,
                                                given=text if "-" in arguments else b"set a k 2\n")
                    where = "standard input" if "-" in arguments else "f"
                    self.assertEqual((INVALID_DATA, "", f"zstz: {where}:{expected}\n"),
                                     (run.returncode, run.stdout.decode(), run.stderr.decode()))
                    self.assertEqual(given, self.read_files())
            run = self.run_in_directory("check", "f", "--format", "json", "--dialect", dialect)
            self.assertEqual((INVALID_DATA, b""), (run.returncode, run.stderr))
            found = json.loads(run.stdout)
            self.assertEqual((None, 1), (found["keys"], len(found["problems"])))

    def test_dialects_of_files_that_do_not_exist(self):
        for name in ("a.service", "a.dnssd", "d/a.service.d/x.conf"):
            self.expect(DONE, "systemd: by the name of the file\n", "dialects", name, cwd=self.directory.name)
        (self.path.parent / "NetworkManager").mkdir()
        for name in ("NetworkManager.conf", "conf.d/a.conf"):
            self.expect(DONE, "desktop: by the name of the file\n", "dialects", "NetworkManager/" + name,
                        cwd=self.directory.name)

    def test_dialects_answers_what_the_other_verbs_take(self):
        for arguments, environment, expected in (
                ([], {}, "systemd: by the name of the file and its first header\n"),
                ([], {"ZSTZ_DIALECT": "git"}, "git: by the variable ZSTZ_DIALECT\n"),
                (["--dialect", "ini"], {"ZSTZ_DIALECT": "git"}, "ini: by --dialect\n")):
            self.write_files({"a.service": UNIT})
            self.expect(DONE, expected, "dialects", *arguments, "a.service", cwd=self.directory.name,
                        environment=environment)
        self.expect(DONE, "stanza: the default, because the name of the file implies no other dialect\n",
                    "dialects", "a.conf")

    def test_a_comment_that_would_not_read_back_is_refused(self):
        self.expect_rows([
            row("samba", b"[s]\nk = 1\n", ["comment", "s", "k", "path C:\\"],
                b'f: the comment "path C:\\" would not read back', INVALID_VALUE),
            row("env", b"word\nk=v\n", ["unset", ".", "k"],
                b'f: without key "k" in [.] the file would have neither a header nor a key', REFUSED)])

    def test_no_name_is_an_internal_error(self):
        """Names and values that a dialect can refuse, each in a file where several stanzas have a name."""
        names = ("a", ".", "a]", "a]1", "a]3", "[a]", "a b", " a", "a=b", '"', "a\\", "a\nb", "$v", "a[$i]", "\1")
        commands = [[verb, "f", *rest] for name in names for verb, *rest in (
            ("set", name, "n", "v"), ("set", "b", name, "v"), ("add", "b", name, name), ("rename", "b", name),
            ("rename", "b", "j", name), ("comment", "b", "j", name), ("set", "--raw", "b", "j", name))]
        dialects = self.run_tool("dialects").stdout.split()
        for i, command in enumerate(commands[::tool.SHARE]):
            dialect = dialects[i % len(dialects)]
            for chosen in {dialect, "networkd"}:
                text = (b"j=1\n" if chosen in ("env", "sysctl") else b"" if chosen == "stanza" else
                        b"[a]\nk=1\n[a]\nk=2\n") + (b"" if chosen in ("env", "sysctl") else b"[b]\nj=1\n")
                with self.subTest(dialect=chosen, command=command):
                    self.write_files({"f": text})
                    run = self.run_in_directory(*command, "--dialect", chosen)
                    self.assertIn(run.returncode, (DONE, NOT_FOUND, USAGE, INVALID_VALUE, REFUSED), run.stderr)

    def test_standard_input_is_read_once(self):
        for arguments in (["diff", "-", "-"], ["merge", "-", "-", "f"], ["lint", "-", "-"],
                          ["lint", "--template", "-", "-"], ["check", "-", "f", "-"]):
            self.expect(USAGE, "only one file can be standard input", *arguments)

    def test_a_script_uses_one_dialect(self):
        self.expect_rows([
            ("edit", {".gitconfig": GIT}, ["edit", ".gitconfig"], b"", DONE,
             {".gitconfig": GIT.replace(b"= x", b"= 1").replace(b'"a b"', b'"a;b"')},
             b"set remote.Origin url 1 --old x\nset core path 'a;b'\n"),
            ("a key with lines of both kinds is removed and added again", {".gitconfig": MIXED},
             ["edit", ".gitconfig"], b"", DONE, {".gitconfig": b"[a]\nl=1\nk=2\n"},
             b"unset a k --all\nset a k 2\n")])

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
