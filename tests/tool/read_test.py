#!/usr/bin/env python3
"""Tables of the verbs that read. usage: read_test.py TOOL [unittest arguments]"""
import json
import subprocess

import tool
from tool import DONE, INVALID_DATA, INVALID_VALUE, NOT_FOUND, REFUSED, USAGE

# All rows read this file.
TEXT = (b"# The gateway.\n\n[listener]\nport = 8080\nport=8443\nname = it's\tfront \\ door\n"
        b"motd =\n\n[empty]\n\n[2 caf\xC3\xA9]\na.b = \xFF\n")
FILES = {"f": TEXT}


def rows(verb, *lines):
    """Returns rows of ToolTest.expect_rows() that change nothing."""
    return [(" ".join([verb, *arguments]), FILES, [verb, *arguments], printed, code, None, *given)
            for arguments, printed, code, *given in lines]


GET = rows(
    "get",
    (["f", "listener", "port"], b"8443\n", DONE),
    (["f", "listener", "port", "--all"], b"8080\n8443\n", DONE),
    (["f", "listener", "port", "--all", "-0"], b"8080\x008443\x00", DONE),
    (["f", "listener", "port", "-0"], b"8443\x00", DONE),
    (["f", "listener", "port", "-q"], b"", DONE),
    (["f", "listener", "none", "-q"], b'no key "none" in [listener]', NOT_FOUND),
    (["f", "listener", "motd"], b"\n", DONE),
    (["f", "listener", "motd", "--all"], b"", DONE),
    (["f", "listener", "motd", "--raw"], b"\n", DONE),
    (["f", "listener", "port", "--raw"], b"8080\n8443\n", DONE),
    (["f", "listener", "port", "--line"], b"5\n", DONE),
    (["f", "listener", "port", "--line", "--all"], b"4\n5\n", DONE),
    (["f", "listener", "motd", "--line"], b"7\n", DONE),
    (["f", "2 caf\u00e9", "a.b", "--line"], b"12\n", DONE),
    (["f", "listener", "none", "--default", "x y"], b"x y\n", DONE),
    (["f", "none", "port", "--default", ""], b"\n", DONE),
    (["f", "listener", "port", "--default", "x"], b"8443\n", DONE),
    (["f", "listener", "motd", "--default", "x"], b"\n", DONE),
    (["f", "listener", "none", "--default=x", "--as", "number"], b'"x" is not a number', INVALID_VALUE),
    (["f", "listener", "none", "--default=0x10", "--as", "number"], b"16\n", DONE),
    (["f", "listener", "none", "--default=On", "--as", "boolean"], b"yes\n", DONE),
    (["f", "listener", "port", "--as", "number"], b"8443\n", DONE),
    (["f", "listener", "name", "--as", "number"], b"is not a number", INVALID_VALUE),
    (["f", "listener", "port", "--format", "json"], b'{"listener": {"port": ["8443"]}}\n', DONE),
    (["f", "listener", "port", "--format=json", "--all", "-0"],
     b'{"listener": {"port": ["8080", "8443"]}}\x00', DONE),
    (["f", "listener", "motd", "--format", "json"], b'{"listener": {"motd": []}}\n', DONE),
    (["f", "listener", "none", "--format", "json", "--default", "x"],
     b'{"listener": {"none": ["x"]}}\n', DONE),
    (["f", "listener", "port", "--format", "sh"], b"listener_port='8443'\n", DONE),
    (["f", "listener", "port", "--format", "sh", "--all"],
     b"listener_port='8443'\nlistener_port_N='2'\nlistener_port_1='8080'\nlistener_port_2='8443'\n",
     DONE),
    (["f", "listener", "name", "--format", "sh"],
     b"listener_name='it'\\''s\tfront \\ door'\n", DONE),
    (["f", "listener", "name", "--format", "lines"],
     b"listener\tname\tit's\\tfront \\\\ door\n", DONE),
    (["f", "listener", "motd", "--format", "lines"], b"listener\tmotd\n", DONE),
    (["-", "a", "k"], b"v\n", DONE, b"[a]\nk = v\n"),
    (["-", "a", "k", "--line"], b"3\n", DONE, b"\n[a]\nk = v\n"),
    (["-", "a", "k"], b"standard input:2:1: ", INVALID_DATA, b"[a]\nk\n"),
    (["-", "a", "k"], b"names a companion file", REFUSED,
     b"[configuration-database]\nfile = /x.obf\n"),
    (["f", "listener", "port", "--format", "xml"],
     b'--format: "xml" is not plain, json, sh or lines', USAGE),
    (["f", "listener", "port", "--all", "--as", "text"], b"--all excludes --as", USAGE),
    (["f", "listener", "none", "--line", "--default", "3"], b"--default excludes --line", USAGE),
    (["f", "listener", "none", "--line", "--template", "f"], b"--line excludes --template", USAGE),
    (["f", "listener", "none", "--raw", "--default", "3"], b"3\n", DONE),
    (["f", "listener", "port", "--as"], b"--as: a value is required", USAGE),
    (["f", "listener", "port", "--all=1"], b"--all takes no value", USAGE),
    (["f", "listener", "port", "--dialect", "none"], b'--dialect: unknown dialect "none"', USAGE),
    (["f", "listener", "port", "--dialect", "stanza"], b"8443\n", DONE),
    (["f", "listener", "port", "-0q"], b"", DONE),
    (["f", "listener", "port", "-0x"], b'unknown option "-0x"', USAGE),
)

LIST = rows(
    "list",
    (["f"], b"[listener]\nport = 8080\nport = 8443\nname = it's\tfront \\ door\nmotd =\n\n[empty]\n"
     b"\n[2 caf\xC3\xA9]\na.b = \xFF\n", DONE),
    (["f", "empty"], b"[empty]\n", DONE),
    (["f", "listener", "port"], b"[listener]\nport = 8080\nport = 8443\n", DONE),
    (["f", "listener", "none"], b'no key "none" in [listener]', NOT_FOUND),
    (["f", "none"], b"no stanza [none]", NOT_FOUND),
    (["f", "--format", "json"],
     b'{"listener": {"port": ["8080", "8443"], "name": ["it\'s\\u0009front \\\\ door"], "motd": []'
     b'}, "empty": {}, "2 caf\xC3\xA9": {"a.b": ["\\udcff"]}}\n', DONE),
    (["f", "--format", "sh"],
     b"listener_port='8443'\nlistener_port_N='2'\nlistener_port_1='8080'\nlistener_port_2='8443'\n"
     b"listener_name='it'\\''s\tfront \\ door'\nlistener_motd=''\n_2_caf___a_b='\xFF'\n", DONE),
    (["f", "--format", "lines"],
     b"listener\tport\t8080\nlistener\tport\t8443\nlistener\tname\tit's\\tfront \\\\ door\n"
     b"listener\tmotd\nempty\n2 caf\xC3\xA9\ta.b\t\xFF\n", DONE),
    (["f", "listener", "-0"],
     b"listener\tport\t8080\0listener\tport\t8443\0listener\tname\tit's\\tfront \\\\ door\0"
     b"listener\tmotd\0", DONE),
    (["f", "-q"], b"", DONE),
    (["-", "--format", "sh"], b'key "k" in [a b] and key "b_k" in [a] have the same variable '
     b"a_b_k; use --format json or lines", REFUSED, b"[a b]\nk = 1\n[a]\nb_k = 1\n"),
    (["-", "--format", "sh"], b"same variable a_k_1", REFUSED, b"[a]\nk = 1\nk = 2\nk_1 = 1\n"),
    (["-", "--format", "json"], b"{}\n", DONE, b""),
)

NAMES = rows(
    "stanzas",
    (["f"], b"listener\nempty\n2 caf\xC3\xA9\n", DONE),
    (["f", "-0"], b"listener\0empty\x002 caf\xC3\xA9\0", DONE),
    (["f", "--format", "json"], b'["listener", "empty", "2 caf\xC3\xA9"]\n', DONE),
    (["f", "--format", "sh"], b'--format: "sh" is not plain, json or lines', USAGE),
    (["-", "--format", "lines"], b"a\\tb\\\\c\n", DONE, b"[a\tb\\c]\n"),
) + rows(
    "keys",
    (["f", "listener"], b"port\nname\nmotd\n", DONE),
    (["f", "empty"], b"", DONE),
    (["f", "empty", "--format", "json"], b"[]\n", DONE),
    (["f", "listener", "-q"], b"", DONE),
    (["f", "none"], b"no stanza [none]", NOT_FOUND),
)

CHECK = rows(
    "check",
    (["f"], b"f: 3 stanzas, 4 keys, 4 values\n", DONE),
    (["f", "-0"], b"f: 3 stanzas, 4 keys, 4 values\0", DONE),
    (["f", "-q"], b"", DONE),
    (["-"], b"-: 1 stanza, 1 key, 1 value\n", DONE, b"[a]\nk = v\n"),
    (["-"], b"standard input:1:1: ", INVALID_DATA, b"k = v\n"),
)


class ReadTest(tool.ToolTest):
    def test_get(self):
        self.expect_rows(GET)

    def test_list(self):
        self.expect_rows(LIST)

    def test_stanzas_and_keys(self):
        self.expect_rows(NAMES)

    def test_check(self):
        self.expect_rows(CHECK)

    def test_json_can_be_parsed(self):
        self.write_files(FILES)
        run = self.run_in_directory("list", "f", "--format", "json")
        parsed = json.loads(run.stdout)
        self.assertEqual(["8080", "8443"], parsed["listener"]["port"])
        self.assertEqual(b"\xFF", parsed["2 caf\u00e9"]["a.b"][0].encode("utf-8", "surrogateescape"))

    def test_variables_can_be_evaluated(self):
        self.write_files(FILES)
        listed = self.run_in_directory("list", "f", "--format", "sh").stdout
        shell = subprocess.run(["sh", "-c", listed.decode("utf-8", "surrogateescape") +
                                '\nprintf "%s|" "$listener_name" "$listener_port" '
                                '"$listener_port_N" "$listener_port_1"'],
                               capture_output=True, check=True)
        self.assertEqual(b"it's\tfront \\ door|8443|2|8080|", shell.stdout)


if __name__ == "__main__":
    tool.main()
