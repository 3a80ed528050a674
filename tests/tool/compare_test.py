#!/usr/bin/env python3
"""Tables of diff, dialects and doc. usage: compare_test.py TOOL [unittest arguments]"""
import json
import subprocess

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
     b'{"file": "b", "line": 7, "column": 5, "stanza": "a", "key": "l", "old": "z", "new": "w", '
     b'"text": "l = w"}\n'
     b'{"file": "a", "line": 8, "column": 1, "stanza": "old", "key": null, "old": [], "new": null, '
     b'"text": "[old]"}\n'
     b'{"file": "b", "line": 2, "column": 5, "stanza": "b", "key": "n", "old": null, "new": "1", '
     b'"text": "n = 1"}\n', DIFFERS),
    (["-", "a"], b"[a]\n- k = 2\n+ k = 1\n+ l = x y\n+ l = z\n+ m =\n\n+ [old]\n", DIFFERS,
     b"[a]\nk = 2\n"),
    (["a", "-"], b"[a]\n- m =\n+ m = v\n", DIFFERS, A.replace(b"m =", b"m = v")),
    (["--text", "a", "-"],
     b"--- a\n+++ \"standard input\"\n@@ -3,6 +3,6 @@\n k = 1\n l = x y\n l = z\n-m =\n+m = v\n \n"
     b" [old]\n", DIFFERS, A.replace(b"m =", b"m = v")),
    (["--text", "a", "a"], b"", DONE),
    (["a", "none"], b"none: cannot open", NO_ACCESS),
    (["a", "-"], b"standard input:1:1: ", INVALID_DATA, b"x\n"),
    (["a"], b"B is required", USAGE),
    (["-", "-"], b"only one file can be standard input", USAGE, A),
)


def of_dialect(dialect, before, after, printed, code=DIFFERS):
    """Returns rows of a comparison: the dialect by the name of a file, by --dialect, and by the name
    of the other file."""
    name = {"git": ".gitconfig", "systemd": "x.service", "networkd": "x.network", "php": "php.ini",
            "samba": "smb.conf", "python": "setup.cfg", "desktop": "x.desktop", "sysctl":
            "sysctl.conf", "env": "os-release", "kconfig": "kdeglobals"}.get(dialect)
    files = {"a": before, "b": after}
    rows = [(f"{dialect} {before!r}", files, ["diff", "--dialect", dialect, "a", "b"], printed, code,
             None)]
    if name is not None:
        for arguments in ([name, "b"], ["b", name]):
            rows.append((f"{dialect} {arguments} {before!r}",
                         {arguments[0]: before, arguments[1]: after}, ["diff", *arguments], printed,
                         code, None))
    return rows


UNIT = b"[Service]\nExecStart=/a\n"

PEERS = b"[Peer]\na=1\nb=1\n[Peer]\na=2\n[Peer]\na=3\nb=3\n"

DIALECT_DIFF = [
    *of_dialect("systemd", UNIT, UNIT + b"ExecStart=\n", b"[Service]\n+ ExecStart =\n"),
    *of_dialect("systemd", UNIT, b"; c\n[Service]\nExecStart=/a \\\n# c\n  -b\n",
                b"[Service]\n- ExecStart = /a\n+ ExecStart = /a    -b\n"),
    *of_dialect("networkd", b"[Peer]\na=1\n[Peer]\na=2\n", b"[Peer]\na=1\n[Peer]\na=3\n",
                b"[Peer]2\n- a = 2\n+ a = 3\n"),
    *of_dialect("networkd", PEERS, b"[Peer]\na=0\n" + PEERS, b"[Peer]\n+ a = 0\n"),
    *of_dialect("networkd", PEERS, b"[Peer]\na=1\nb=1\n[Peer]\n[Peer]\na=3\nb=4\n",
                b"[Peer]2\n- a = 2\n\n[Peer]3\n- b = 3\n+ b = 4\n"),
    *of_dialect("networkd", PEERS, PEERS[:-15] + b"c=1\n",
                b"[Peer]2\n+ c = 1\n\n[Peer]3\n- a = 3\n- b = 3\n"),
    *of_dialect("networkd", b"[Peer]\na=1\n[Peer]\nb=2\n", b"[Peer]\nb=2\nc=1\n",
                b"[Peer]\n- a = 1\n\n[Peer]\n+ c = 1\n"),
    *of_dialect("git", b"[A]\n\tk = x ; c\n\tflag\n", b"[a]\nK = \"x\"\nflag =\n",
                b"[a]\n- flag\n+ flag =\n"),
    *of_dialect("git", b"[a]\nk = x\n", b"[a]\nk = x\nk\n", b"[a]\n+ k\n"),
    *of_dialect("php", b"; c\n[a]\nk = \"v\"\n", b"[a]\nk = v ; d\n", b"", DONE),
    *of_dialect("samba", b"x = 1\n[My Share]\nGuest OK = yes\n",
                b"[my share]\nguestok = no\n", b"[.]\n- x = 1\n\n[My Share]\n- Guest OK = yes\n"
                b"+ Guest OK = no\n"),
    *of_dialect("mysql", b"[a]\nskip-x\nk-l=1\n", b"[a]\nskip_x\nk_l=2\n",
                b"[a]\n- k-l = 1\n+ k-l = 2\n"),
    *of_dialect("python", b"[a]\nKey: v\n  w\n", b"[a]\nkey = v\n  x\n",
                b"[a]\n- Key = v\nw\n+ Key = v\nx\n"),
    *of_dialect("desktop", b"[a]\nk=a\\sb\n", b"[a]\nk = a b\n", b"", DONE),
    *of_dialect("kconfig", b"[A][B]\nk[$i]=v\n", b"[A][B]\nk=w\n", b"[A][B]\n- k = v\n+ k = w\n"),
    *of_dialect("qt", b"[a]\nk=\"x;y\"\n", b"[a]\nk=x\n", b"[a]\n- k = x;y\n+ k = x\n"),
    *of_dialect("editorconfig", b"root = true\n[*]\nK = v ; c\n", b"root = true\n[*]\nk=v\n", b"",
                DONE),
    *of_dialect("windows", b"[a]\nk=1\nK=2\n", b"[A]\nk=1\n", b"[a]\n- k = 2\n"),
    *of_dialect("ini", b"k = 1\n[a]\n", b"k = 2\n[a]\n", b"[.]\n- k = 1\n+ k = 2\n"),
    *of_dialect("sysctl", b"-a.b = 1\n", b"a.b = 2\n", b"[.]\n- a.b = 1\n+ a.b = 2\n"),
    *of_dialect("env", b"export A=\"x y\"\n", b"A='x z'\n", b"[.]\n- A = x y\n+ A = x z\n"),
    ("each file has a dialect", {"setup.cfg": b"[a]\nK: 1\n", "x.service": b"[a]\nk=1\n"},
     ["diff", "setup.cfg", "x.service"], b"", DONE, None),
    ("one dialect for both", {"setup.cfg": b"[a]\nK: 1\n", "x.service": b"[a]\nk=1\n"},
     ["diff", "setup.cfg", "x.service", "--dialect=editorconfig"], b"", DONE, None),
    ("places", {".gitconfig": b"[a] k = \xc3\xbc \\\n  v\n[b]\n\tflag\n", "b": b"[a]\n[c]\n"},
     ["diff", ".gitconfig", "b", "--format", "json"],
     b'{"file": ".gitconfig", "line": 1, "column": 9, "stanza": "a", "key": "k", "old": "\xc3\xbc   v", '
     b'"new": null, "text": "[a] k = \xc3\xbc \\\\\\u000a  v"}\n'
     b'{"file": ".gitconfig", "line": 4, "column": 2, "stanza": "b", "key": "flag", "old": [], '
     b'"new": null, "text": "\\u0009flag"}\n'
     b'{"file": "b", "line": 2, "column": 1, "stanza": "c", "key": null, "old": null, "new": [], '
     b'"text": "[c]"}\n', DIFFERS, None),
]

DIALECTS = rows(
    "dialects",
    (["setup.cfg"], b"python: by the name of the file\n", DONE),
    (["/x/fail2ban/jail.local"],
     b"python,trailing=semicolon,trailingNeeds=blankBefore: by the name of the file\n", DONE),
    (["x", "--dialect", "git,marks=#,top=refused,quotes="],
     b"git,marks=hash,top=refused,quotes=none: by --dialect\n", DONE),
    (["--format=json", "x.conf"],
     b'{"file": "x.conf", "dialect": "stanza", "text": '
     b'"the default, because the name of the file implies no other dialect"}\n', DONE),
    (["--format=lines", "a/b.network"], b"a/b.network\tnetworkd\n", DONE),
    (["--dialect", "git", "setup.cfg"], b"git: by --dialect\n", DONE),
)

SERVICE = [
    ("a service", {"x.service": b"# c\n[Unit]\n"}, ["dialects", "x.service"],
     b"systemd: by the name of the file and its first header\n", DONE, None),
    ("a D-Bus service", {"x.service": b"[D-BUS Service]\n"}, ["dialects", "x.service"],
     b"desktop: by the name of the file and its first header\n", DONE, None),
]

class CompareTest(tool.ToolTest):
    def test_diff(self):
        self.expect_rows(DIFF)

    def test_diff_of_dialects(self):
        self.expect_rows(DIALECT_DIFF)

    def test_diff_names_bytes_that_are_not_compared(self):
        text = "[a]\nk = 1\n"
        self.write_files({"a": text.encode("utf-16-be"), "b": text.replace("1", "2").encode("utf-16-be"),
                          "c": text.encode()})
        note = (b"zstz: %s:1:1: note: the line has a zero byte and is not compared after it; pass "
                b"--text to compare all bytes\n")
        for arguments, code, printed, report in (
                (["a", "b"], DONE, b"", note % b"a" + note % b"b"),
                (["c", "b"], DIFFERS, b"[a]\n- k = 1\n", note % b"b"),
                (["a", "b", "-q"], DONE, b"", b"")):
            with self.subTest(arguments):
                run = self.run_in_directory("diff", *arguments)
                self.assertEqual((code, printed, report), (run.returncode, run.stdout, run.stderr))

    def test_a_variable_selects_the_dialect(self):
        self.write_files({"setup.cfg": b"[a]\nk = v ; c\n", "b": b"[a]\nK = v\n"})
        directory = self.path.parent
        self.expect(DONE, "", "diff", str(directory / "setup.cfg"), str(directory / "b"),
                    environment={"ZSTZ_DIALECT": "git"})

    def test_diff_reads_the_pipes_of_a_shell(self):
        self.write_files({"a": A})
        script = f"'{tool.TOOL}' diff <(sed 's/k = 1/k = 2/' a) <(cat a)"
        run = subprocess.run(["bash", "-c", script], cwd=self.directory.name, capture_output=True,
                             check=False, timeout=tool.HANGS)
        self.assertEqual((DIFFERS, b"[a]\n- k = 2\n+ k = 1\n", b""),
                         (run.returncode, run.stdout, run.stderr))

    def test_the_entry_of_the_companion_is_no_difference(self):
        other = self.path.parent / "other.conf"
        other.write_bytes(self.path.read_bytes())
        for path in self.file, str(other):
            self.run_tool("set", path, "upstream", "password", "--obfuscated", given="same\n")
        self.expect(DONE, "", "diff", self.file, str(other))

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
    *[("no template", schema(b"[a]\n# c\n"), arguments,
       b'f: is not a template: no comment of the form "# key = default", and no key; add them, or pass '
       b"another file", INVALID_DATA, None)
      for arguments in (["doc", "f"], ["lint", "--template", "f", "t"],
                        ["get", "f", "a", "k", "--template", "f"])],
    ("a template with a key", schema(b"[a]\nk = 1\n"), ["doc", "f", "--format", "lines"],
     b"a\tk\tnumber\t1\t\t\n", DONE, None),
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
