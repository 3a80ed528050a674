#!/usr/bin/env python3
"""Tables of diff, merge, dialects and doc, and merge as a driver of git.
usage: compare_test.py TOOL [unittest arguments]"""
import json
import os
import shutil
import subprocess
import unittest

import tool
from tool import DIFFERS, DONE, INVALID_DATA, NO_ACCESS, USAGE

A = b"# c\n[a]\nk = 1\nl = x y\nl = z\nm =\n\n[old]\n"
B = b"[b]\nn = 1\n[a]\nm =\nk=1\nl = x y\nl = w\n"
FILES = {"a": A, "b": B}


def rows(verb, *lines):
    """Returns rows of ToolTest.expect_rows() that change nothing."""
    return [(" ".join([verb, *arguments]), FILES, [verb, *arguments], printed, code, None, *given)
            for arguments, printed, code, *given in lines]


DIFF = rows(
    "diff",
    (["a", "a"], b"", DONE),
    (["a", "b"], b"[a]\n- l = z\n+ l = w\n\n- [old]\n\n[b]\n+ n = 1\n", DIFFERS),
    (["b", "a"], b"[b]\n- n = 1\n\n[a]\n- l = w\n+ l = z\n\n+ [old]\n", DIFFERS),
    (["a", "b", "-q"], b"", DIFFERS),
    (["a", "b", "--format", "lines"], b"a\tl\tz\tw\nold\t\t\t\\-\nb\tn\t\\-\t1\n", DIFFERS),
    (["a", "b", "--format", "lines", "-0"], b"a\tl\tz\tw\0old\t\t\t\\-\0b\tn\t\\-\t1\0", DIFFERS),
    (["a", "b", "--format", "json"],
     b'{"file": "b", "line": 7, "stanza": "a", "key": "l", "old": "z", "new": "w"}\n'
     b'{"file": "a", "line": 8, "stanza": "old", "key": "", "old": [], "new": null}\n'
     b'{"file": "b", "line": 2, "stanza": "b", "key": "n", "old": null, "new": "1"}\n', DIFFERS),
    (["-", "a"], b"[a]\n- k = 2\n+ k = 1\n+ l = x y\n+ l = z\n+ m =\n\n+ [old]\n", DIFFERS,
     b"[a]\nk = 2\n"),
    (["a", "-"], b"[a]\n- m =\n+ m = v\n", DIFFERS, A.replace(b"m =", b"m = v")),
    (["--text", "a", "-"],
     b"--- a\n+++ \"standard input\"\n@@ -3,6 +3,6 @@\n k = 1\n l = x y\n l = z\n-m =\n+m = v\n \n"
     b" [old]\n", DIFFERS, A.replace(b"m =", b"m = v")),
    (["--text", "a", "a"], b"", DONE),
    (["a", "none"], b"none: cannot open", NO_ACCESS),
    (["a", "-"], b"standard input:1: ", INVALID_DATA, b"x\n"),
    (["a"], b"B is required", USAGE),
)

DIALECTS = rows(
    "dialects",
    (["setup.cfg"], b"python: by the name of the file\n", DONE),
    (["--format=json", "x.conf"],
     b'{"file": "x.conf", "dialect": "stanza", "text": '
     b'"no other format is the only user of such a name"}\n', DONE),
    (["--format=lines", "a/b.network"], b"a/b.network\tnetworkd\n", DONE),
    (["--dialect", "git", "setup.cfg"], b"git: by --dialect\n", DONE),
)

SERVICE = [
    ("a service", {"x.service": b"# c\n[Unit]\n"}, ["dialects", "x.service"],
     b"systemd: by the name of the file and its first header\n", DONE, None),
    ("a D-Bus service", {"x.service": b"[D-BUS Service]\n"}, ["dialects", "x.service"],
     b"desktop: by the name of the file and its first header\n", DONE, None),
]

BASE = b"# c\n[a]\nk = 1\nl = 1\n"
OURS = b"# c\n[a]\nk  =  2\nl = 1\n"
THEIRS = b"[a]\nk = 1\nl = 3\n# new\nm = 4\n"
OTHER = b"[a]\nk = 5\nl = 1\n"
MERGED = b"[a]\nk  =  2\nl = 3\n# new\nm = 4\n"
CONFLICT = b"[a]\n<<<<<<< ours\nk  =  2\n=======\nk = 5\n>>>>>>> theirs\nl = 1\n"
VERSIONS = {"base": BASE, "ours": OURS, "theirs": THEIRS, "other": OTHER, "bad": b"word\n"}


def with_ours(text):
    return {**VERSIONS, "ours": text}


MERGE = [(" ".join(arguments), VERSIONS, ["merge", *arguments], printed, code, after, *given)
         for arguments, printed, code, after, *given in [
    (["base", "ours", "theirs"], b"", DONE, with_ours(MERGED)),
    (["base", "ours", "other"], b"ours: 1 conflict; edit the lines between the marks\n", DIFFERS,
     with_ours(CONFLICT)),
    (["base", "ours", "other", "--path", "x/y", "-q"], b"", DIFFERS, with_ours(CONFLICT)),
    (["base", "ours", "other", "--path", "x/y"],
     b"x/y: 1 conflict; edit the lines between the marks\n", DIFFERS, with_ours(CONFLICT)),
    (["base", "ours", "ours"], b"", DONE, None),
    (["base", "ours", "base"], b"", DONE, None),
    (["base", "base", "theirs"], b"", DONE, {**VERSIONS, "base": THEIRS}),
    (["-n", "base", "ours", "theirs"],
     b"--- ours\n+++ ours\n@@ -1,4 +1,5 @@\n-# c\n [a]\n k  =  2\n-l = 1\n+l = 3\n+# new\n+m = 4\n",
     DONE, None),
    (["base", "-", "theirs"], MERGED, DONE, None, OURS),
    (["base", "-", "other"], CONFLICT, DIFFERS, None, OURS),
    (["-", "ours", "theirs"], b"", DONE, with_ours(MERGED), BASE),
    (["base", "ours", "bad"], b"bad:1: ", INVALID_DATA, None),
    (["base", "ours", "bad", "--path=x"], b"x (theirs):1: ", INVALID_DATA, None),
    (["base", "none", "theirs"], b"none: cannot open", NO_ACCESS, None),
    (["base", "ours"], b"THEIRS is required", USAGE, None),
]]


class CompareTest(tool.ToolTest):
    def test_diff(self):
        self.expect_rows(DIFF)

    def test_obfuscated_values_are_compared_and_masked(self):
        other = str(self.path.parent / "other.conf")
        for path, secret in (self.file, "one\n"), (other, "two\n"):
            self.run_tool("set", path, "upstream", "password", "--obfuscated", "--create",
                          given=secret)
        run = self.run_tool("diff", self.file, other, "--format", "json")
        self.assertIn('"key": "password", "old": "********", "new": "********"', run.stdout)
        self.assertNotIn("two", run.stdout)
        self.assertEqual(DIFFERS, run.returncode)

    def test_dialects(self):
        self.expect_rows(DIALECTS)
        self.expect_rows(SERVICE)
        self.expect(DONE, "git: by the variable ZSTZ_DIALECT\n", "dialects", "setup.cfg",
                    environment={"ZSTZ_DIALECT": "git"})
        names = self.run_tool("dialects").stdout.split()
        self.assertEqual("stanza", names[0])
        self.assertTrue({"systemd", "desktop", "git", "python"} <= set(names))

    def test_merge(self):
        self.expect_rows(MERGE)

    def test_merge_keeps_the_companion(self):
        self.run_tool("set", self.file, "upstream", "password", "--obfuscated", given="secret\n")
        base = self.path.read_bytes()
        (self.path.parent / "base").write_bytes(base)
        (self.path.parent / "theirs").write_bytes(base.replace(b"8443", b"9000"))
        run = self.run_in_directory("merge", "base", self.file, "theirs")
        self.assertEqual((DONE, b"", b""), (run.returncode, run.stdout, run.stderr))
        self.assertEqual(base.replace(b"8443", b"9000"), self.path.read_bytes())
        self.expect(DONE, "secret\n", "get", self.file, "upstream", "password")


@unittest.skipUnless(shutil.which("git"), "git is not installed")
class DriverTest(tool.ToolTest):
    """Merges branches of a git repository."""

    def git(self, *arguments, code=0):
        environment = {**os.environ, "GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null",
                       "HOME": self.directory.name, "LC_ALL": "C.UTF-8"}
        run = subprocess.run(["git", "-c", "user.name=t", "-c", "user.email=t@example.org",
                              *arguments], cwd=self.directory.name, capture_output=True, text=True,
                             env=environment, check=False, timeout=tool.HANGS)
        self.assertEqual(code, run.returncode, run.stdout + run.stderr)
        return run.stdout

    def commit(self, text, branch=None):
        if branch:
            self.git("checkout", "-q", "-b", branch, "base")
        self.path.write_text(text)
        self.git("commit", "-q", "-a", "-m", "change")

    def setUp(self):
        super().setUp()
        self.git("init", "-q")
        (self.path.parent / ".gitattributes").write_text("*.conf merge=zstz\n")
        self.git("config", "merge.zstz.driver", f"'{tool.TOOL}' merge %O %A %B --path %P")
        self.git("add", ".")
        self.git("commit", "-q", "-m", "base")
        self.git("branch", "base")

    def test_neighbours_and_equal_additions_do_not_conflict(self):
        self.commit(tool.GATEWAY.replace("8080", "80").replace("motd =", "motd =\nnew = 1"), "one")
        self.commit(tool.GATEWAY.replace("8443", "443").replace("name", "new = 1\nname"), "two")
        self.git("merge", "-q", "one")
        self.expect_text(tool.GATEWAY.replace("8080", "80").replace("8443", "443").replace(
            "name", "new = 1\nname"))
        self.assertEqual("", self.git("status", "--short"))

    def test_conflicts_stay_in_the_file(self):
        self.commit(tool.GATEWAY.replace("front door", "one"), "one")
        self.commit(tool.GATEWAY.replace("front door", "two"), "two")
        self.git("merge", "-q", "one", code=1)
        self.assertEqual("UU gateway.conf\n", self.git("status", "--short"))
        self.expect_text(tool.GATEWAY.replace(
            "name = front door",
            "<<<<<<< ours\nname = two\n=======\nname = one\n>>>>>>> theirs"))
        check = self.run_tool("check", self.file)
        self.assertEqual(INVALID_DATA, check.returncode)

    def test_an_invalid_version_is_a_conflict_that_keeps_this_one(self):
        self.commit("word\n", "one")
        self.commit(tool.GATEWAY.replace("front door", "two"), "two")
        self.git("merge", "-q", "one", code=1)
        self.expect_text(tool.GATEWAY.replace("front door", "two"))


TEMPLATE = b"""\
# The gateway.

[listener]
# The port to listen on.
# range: 1..65535
# required
# port = 8080

# Clients that may connect | and their networks.
#
# one of: all none
;allow = all
# log = yes

# Set debug = 1 in the environment for more.
name = front door

#[upstream]
# ratio = 0.5
# title =
"""


def schema(text):
    return {"t": TEMPLATE, "f": text}


DOC = [
    ("a table", schema(b""), ["doc", "t"],
     b"| Stanza | Key | Type | Default | Constraints | Meaning |\n|---|---|---|---|---|---|\n"
     b"| `listener` | `port` | number | `8080` | required; range: 1..65535 |"
     b" The port to listen on. |\n"
     b"| `listener` | `allow` | text | `all` | one of: all none |"
     b" Clients that may connect \\| and their networks. |\n"
     b"| `listener` | `log` | boolean | `yes` |  |  |\n"
     b"| `listener` | `name` | text | `front door` |  |"
     b" Set debug = 1 in the environment for more. |\n"
     b"| `upstream` | `ratio` | number | `0.5` |  |  |\n"
     b"| `upstream` | `title` | text |  |  |  |\n", DONE, None),
    ("no template", schema(b"[a]\n# c\n"), ["doc", "f"], b"no comment of the form", INVALID_DATA,
     None),
    ("a default", schema(b"[listener]\n"), ["get", "f", "listener", "port", "--template", "t"],
     b"8080\n", DONE, None),
    ("a default of a stanza that is missing", schema(b"[x]\n"),
     ["get", "f", "upstream", "ratio", "--template", "t"], b"0.5\n", DONE, None),
    ("a value", schema(b"[listener]\nport = 1\n"),
     ["get", "f", "listener", "port", "--template", "t"], b"1\n", DONE, None),
    ("a key that the template does not have", schema(b"[listener]\n"),
     ["get", "f", "listener", "none", "--template", "t"], b'no key "none"', tool.NOT_FOUND, None),
    ("two defaults", schema(b""), ["get", "f", "a", "k", "--template", "t", "--default", "x"],
     b"--default", USAGE, None),
]

LINT = [
    ("valid", b"[listener]\nport = 1\nallow = none\nlog = ON\nname = x\n\n[upstream]\nratio = 2\n",
     "", DONE),
    ("everything wrong",
     b"[listener]\nport = 0\nprot = 1\nallow = some\nlog = maybe\n\n[upstraem]\nk = 1\n\n[upstream]\n"
     b"ratio = half\n\n[zzzzzzzz]\n",
     'f:2:8: key "port" in [listener]: "0" is out of range; use a number from 1 to 65535\n'
     'f:3:1: unknown key "prot" in [listener]; the nearest name is "port"\n'
     'f:4:9: key "allow" in [listener]: "some" is not one of the values; use one of all, none\n'
     'f:5:7: key "log" in [listener]: "maybe" is not a boolean; use yes or no\n'
     'f:7:1: unknown stanza [upstraem]; the nearest name is "upstream"\n'
     'f:11:9: key "ratio" in [upstream]: "half" is not a number; use digits, such as 0.5\n'
     "f:13:1: unknown stanza [zzzzzzzz]; remove it\n", INVALID_DATA),
    ("a required key", b"# c\n\n[listener]\nlog = no\n",
     'f:3:1: key "port" in [listener] is required and missing; add it, such as "8080"\n',
     INVALID_DATA),
    ("a required key without its stanza", b"",
     'f:1:1: key "port" in [listener] is required and missing; add it, such as "8080"\n',
     INVALID_DATA),
]


class TemplateTest(tool.ToolTest):
    def test_documents_and_gives_defaults(self):
        self.expect_rows(DOC)

    def test_json_has_an_object_per_key(self):
        self.write_files(schema(b""))
        run = self.run_in_directory("doc", "t", "--format", "json")
        found = [json.loads(line) for line in run.stdout.splitlines()]
        self.assertEqual(
            {"stanza": "listener", "key": "port", "type": "number", "default": "8080",
             "required": True, "oneOf": [], "least": 1, "most": 65535,
             "help": "The port to listen on."}, found[0])
        self.assertEqual(["all", "none"], found[1]["oneOf"])
        self.assertEqual("Clients that may connect | and their networks.", found[1]["help"])
        self.assertEqual(6, len(found))

    def test_lint_compares_with_a_template(self):
        for name, text, printed, code in LINT:
            with self.subTest(name):
                self.write_files(schema(text))
                run = self.run_in_directory("lint", "--template", "t", "f")
                self.assertEqual((code, printed, b""),
                                 (run.returncode, run.stdout.decode(), run.stderr))

    def test_lint_of_standard_input_and_json(self):
        self.write_files(schema(b""))
        run = self.run_in_directory("lint", "--template", "t", "--format", "json", "-",
                                    given=b"[listener]\nport = x\n")
        problem = json.loads(run.stdout)
        self.assertEqual(("-", 2, 8, "error", "listener", "port"),
                         tuple(problem[name] for name in ("file", "line", "column", "kind",
                                                          "stanza", "key")))

    def test_an_obfuscated_key_is_not_missing(self):
        template = self.path.parent / "t"
        template.write_text("[upstream]\n# required\n# password =\n# weight = 1\n# ready = yes\n")
        text = "[upstream]\nweight = 1\n"
        self.path.write_text(text)
        self.run_tool("set", self.file, "upstream", "password", "--obfuscated", given="s\n")
        run = self.run_tool("lint", "--template", str(template), self.file)
        self.assertNotIn("is required", run.stdout)
        self.path.write_text(text)
        run = self.run_tool("lint", "--template", str(template), self.file)
        self.assertIn('key "password" in [upstream] is required', run.stdout)


if __name__ == "__main__":
    tool.main()
