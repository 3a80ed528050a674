#!/usr/bin/env python3
"""Sets values with zstz and lets the reader that defines each format read them.

    edit_values.py SHARE ZSTZ...

Sets each of VALUES in each line of FILES, in a file of its own, and adds a key with each of KEYS to
each file; if SHARE is more than 1, only one of SHARE values in each line, and another in the next
line. The own reader of the format must read the value that the store has, and the other keys as
before. A refused value is allowed only if REFUSED has a reason; each dialect refuses some of KEYS. A
reader that is not installed is left out.
"""

import collections
import json
import os
import re
import subprocess
import sys
import tempfile

import peers

# As kEditValues of DialectEdits.h, and values that other programs take for something else.
VALUES = [
    "", "3", "a,b", "two words", " both ends ", "tab\there", "a # b", "a;b", "#", "; x", '"quoted"', "it's",
    '"', "'", "back\\slash", "end\\", "a\nb", "a\n\nb", "k = v", "[head]", "ä ö", "$HOME", "`x`", "\\n",
    "a  #  b", "$(x)", "a b", "(x)", "a=b", "C:\\qux", "null", "Off", "on x", "return\r", "a\rb",
    "tab\t", "\ttab", "x\f", "\vx", "${x}", "a|b", "!x", "~x", "x & y", "a, b", "C:\\new\\", "%(x)s", "x*y",
    "p@ss!word", "http://h/?a=b", "x; touch PWNED", "E_ALL & ~E_NOTICE", "\u00a0x", "x\u2028", "0x1F", "<&>",
    "a\\tb", "'$x'", "\"${x}\"", "x'\"y", "a\\\"b", "~", "*", "x y # z \\", "@x", "\\\\",
    "\u20ac5", "\u00e9a\u00e90g\u00f61", "\U0001F600d", "\u00e9, \u00e9", "\u00e9;\u00e9",
    "it's ${HOME}", "\\${x} 'a'", "it's $x; \\$y",
]

# Names of new keys, with characters that have a meaning in some formats.
KEYS = [
    "two words", "a.b", "a/b", "/a", "a-b", "a_b", "\u00e4", "a#b", "#a", "a;b", ";a", "a:b", "a[b]", "[a]",
    "a[]", "a'b", "'a'", '"a"', "no", "null", "1a", "-a", "export a", "a\\b", "a\\", "a%20b", "%41", "$a", "${a}",
    "a!b", "!a", "a&b", "a{b}", "a?", "~a", "a|b", "a(b)", "\u00a0a", "a\u2028", "a\tb", "a,b", "*", "A",
]

# The files before, each with the line of the key K, and its stanza. {} is a spelling of the old value.
FILES = {
    "systemd": ("[Unit]\nK={}\nAfter=x\n", "Unit"),
    "networkd": ("[Match]\nK={}\nAfter=x\n", "Match"),
    "desktop": ("[Desktop Entry]\nK={}\nAfter=x\n", "Desktop Entry"),
    "git": ("[core]\n\tK = {}\n\tAfter = x\n", "core"),
    "php": ("[PHP]\nK = {}\nAfter = x\n", "PHP"),
    "samba": ("[global]\n\tx:k = {}\n\tx:after = x\n", "global"),
    "mysql": ("[mysqld]\nK = {}\nAfter = x\n", "mysqld"),
    "python": ("[s]\nK = {}\nAfter = x\n", "s"),
    "python-inline": ("[s]\nK = {}\nAfter = x\n", "s"),
    "qt": ("[s]\nK={}\nAfter=x\n", "s"),
    "kconfig": ("[s]\nK={}\nAfter=x\n", "s"),
    "editorconfig": ("[*]\nK = {}\nAfter = x\n", "*"),
    "env": ("K={}\nAfter=x\n", "."),
}
SPELLINGS = {  # of the old value, beside "old"; a new key is also tried
    "git": ['"old"'], "php": ['"old"', "'old'", "A | B"], "mysql": ['"old"', "'old'"], "qt": ['"old"'],
    "env": ['"old"', "'old'"], "python": ["old\n    two"],
}

UNICODE_BLANK = re.compile(r"^[\x1c-\x1f\x85\xa0\u2028]|[\x1c-\x1f\x85\xa0\u2028]$")
NOT_QUOTED = ("systemd", "networkd", "samba", "python", "python-inline", "editorconfig")

# Dialects, the reason why they refuse a value, and whether it is the reason for a value.
REFUSED = [
    (NOT_QUOTED, "nothing quotes spaces at the ends",
     lambda value: value != value.strip(" \t\v\f\r")),
    (NOT_QUOTED, "a carriage return starts another line", lambda value: "\r" in value),
    (("systemd", "networkd", "samba", "editorconfig"), "a value has one line",
     lambda value: "\n" in value),
    (("systemd", "networkd"), "a backslash at the end continues",
     lambda value: re.search(r"(?<!\\)(\\\\)*\\$", value)),
    (("samba",), "a run of spaces reads as its first character",
     lambda value: re.search(r"\s\s", value)),
    (("samba",), "a backslash at the end continues", lambda value: value.endswith("\\")),
    (("desktop",), "no escape stands for a form feed", lambda value: value != value.strip("\v\f")),
    (("python-inline", "editorconfig"), "nothing quotes a comment mark after a space",
     lambda value: re.search(r"(^|\s)[#;]", value)),
    (("python", "python-inline", "editorconfig"), "the reader strips all spaces of Unicode",
     UNICODE_BLANK.search),
    (("python", "python-inline"), "no value ends with a newline",
     lambda value: value.endswith("\n")),
    (("editorconfig",), "the reader takes the value of two quotes for none",
     lambda value: value == '""'),
]

# Peers, the reason why they read another value, and whether it is the reason for a spelling of the old
# value and a new value.
DIFFERENT = [
    ("php", "a constant that replaces a constant is evaluated", lambda start, value:
     start == "A | B" and value in ("null", "Off")),
    ("php", "an expression of error levels is evaluated", lambda start, value:
     value == "E_ALL & ~E_NOTICE"),
]

# The same for new keys, whose value is read, but not by this name.
DIFFERENT_KEYS = [
    ("kreadconfig5", "brackets at the end are a language", lambda key: key.endswith("]")),
]


def bytes_as_text(value):
    return value.encode().decode("latin-1")


class Case:
    """A value set in a file, of the key K or of a new key."""

    def __init__(self, dialect, start, value, key=None):
        self.dialect, self.start, self.value = dialect, start, value
        before, self.stanza = FILES[dialect]
        self.has_new_name = key is not None
        self.key = ("x:" if dialect == "samba" else "") + (key or ("k" if dialect == "samba" else "K"))
        self.after = "x:after" if dialect == "samba" else "After"
        self.before = (before.format(start) if start is not None else
                       re.sub(r"[^\n]*\{\}\n", "", before))
        self.path = None

    def set(self, zstz, path):
        """Returns the exit code of zstz."""
        self.path = path
        with open(path, "w", encoding="utf-8", newline="") as file:
            file.write(self.before)
        return subprocess.run([*zstz, "set", "--dialect", self.dialect, "--", path,
                               self.stanza, self.key, self.value], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              check=False).returncode

    def text(self):
        with open(self.path, encoding="utf-8", newline="") as file:
            return f"{self.dialect}: {self.key!r}, {self.value!r} in {self.before!r} gives {file.read()!r}"

    def reason_to_refuse(self):
        return next((reason for dialects, reason, applies in REFUSED
                     if self.dialect in dialects and applies(self.value)), None)


def cases(share):
    starts = [(dialect, start) for dialect in FILES
              for start in ["old", None] + SPELLINGS.get(dialect, [])]
    for i, (dialect, start) in enumerate(starts):
        for value in VALUES[i % share::share]:
            yield Case(dialect, start, value)
    for i, dialect in enumerate(FILES):
        for key in KEYS[i % share::share]:
            yield Case(dialect, None, "v", key)


def ascii_lower(text):
    return re.sub("[A-Z]", lambda letter: letter[0].lower(), text)


def differs(peer, case, result):
    """Describes a different reading of the peer. Agreement gives None."""
    if result is None or "values" not in result:
        return f"refused: {result}"
    folds = case.dialect in ("git", "samba", "python", "python-inline", "editorconfig")
    fold = ascii_lower if folds else str
    found = collections.defaultdict(list)
    for stanza, key, value in result["values"]:
        found[stanza.lower(), fold(key)].append(value)
    stanza = case.stanza.lower()
    key = bytes_as_text(case.key)
    if case.dialect == "php":
        key = re.sub(r"\[[^]]*\]$", "[]", key)  # all that the peer prints of an index
    wanted = {(stanza, fold(key)): [bytes_as_text(case.value)],
              (stanza, fold(case.after)): ["x"]}
    if peer.name == "testparm":
        found = {name: values for name, values in found.items() if name[1].startswith("x:")}
    if dict(found) == wanted:
        return None
    return f"read as {dict(found)!r}"


def main():
    share = int(sys.argv[1])
    zstz = sys.argv[2:]
    bad = []
    counts = collections.Counter()
    with tempfile.TemporaryDirectory() as directory:
        made = collections.defaultdict(list)
        for i, case in enumerate(cases(share)):
            code = case.set(zstz, os.path.join(directory, str(i)))
            counts[case.dialect, code == 0] += 1
            if code == 0:
                made[case.dialect].append(case)
            elif code not in (6, 7):
                bad.append(f"{case.text()}: exit code {code}")
            elif not case.has_new_name and not case.reason_to_refuse():
                bad.append(f"{case.text()}: refused")
        print(*bad, sep="\n")
        for peer in peers.PEERS:
            missing = peer.find()
            if missing:
                print(f"{peer.name}: left out, {missing}")
                continue
            for dialect in peer.dialects:
                found = judge(peer, made[dialect])
                bad += found
                print(f"{peer.name + ', ' + dialect:40}{counts[dialect, True]:5} values"
                      f"{counts[dialect, False]:5} refused", *found, sep="\n", flush=True)
    print(f"{len(bad)} faults")
    return 1 if bad else 0


def judge(peer, chosen):
    if peer.name.startswith("QSettings"):  # its names are paths, and it sorts them by their slashes
        chosen = [case for case in chosen if not case.has_new_name]
    program = os.path.join(os.path.dirname(os.path.abspath(__file__)), "peers.py")
    command = [sys.executable, program, peer.name] + [case.path for case in chosen]
    run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    lines = run.stdout.decode("ascii").splitlines()
    if len(lines) != len(chosen):
        return [f"{peer.name} crashed"]
    bad = []
    for case, line in zip(chosen, lines):
        difference = differs(peer, case, json.loads(line))
        expected = any(name == peer.name and applies(case.start, case.value)
                       for name, _, applies in DIFFERENT) or (
            case.has_new_name and any(name == peer.name and applies(case.key)
                                      for name, _, applies in DIFFERENT_KEYS))
        if difference and not expected:
            bad.append(f"{peer.name}: {case.text()}, {difference}")
    return bad


if __name__ == "__main__":
    sys.exit(main())
