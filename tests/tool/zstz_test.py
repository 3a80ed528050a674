#!/usr/bin/env python3
"""Tests of zstz on stanza files. usage: zstz_test.py TOOL [unittest arguments]"""
import os
import pathlib
import pty
import re
import signal
import subprocess
import termios

import tool
from tool import (DONE, GATEWAY, HANGS, INVALID_DATA, INVALID_VALUE, NO_ACCESS, NOT_FOUND, REFUSED,
                  USAGE)

VERBS = ("get", "list", "stanzas", "keys", "check", "lint", "set", "add", "unset", "rename", "comment",
         "edit", "fmt", "convert", "diff", "merge", "watch", "doc", "dialects", "completion", "java",
         "lock", "hexdump")


class ZstzTest(tool.ToolTest):
    # ---- Reading ----

    def test_get_prints_the_last_value(self):
        rows = (
            ("8443\n", ["listener", "port"]),
            ("front door\n", ["listener", "name"]),
            ("\n", ["listener", "motd"]),
            ("8080\n8443\n", ["listener", "port", "--all"]),
            ("", ["listener", "motd", "--all"]),
            ("8443\n", ["listener", "port", "--as", "number"]),
            ("31\n", ["upstream", "weight", "--as", "number"]),
            ("0x1F\n", ["upstream", "weight", "--as", "text"]),
            ("yes\n", ["upstream", "ready", "--as", "boolean"]),
            ("0\n", ["listener", "motd", "--as", "number"]),
            ("no\n", ["listener", "motd", "--as", "boolean"]),
        )
        for printed, arguments in rows:
            with self.subTest(arguments):
                self.expect_unchanged(DONE, printed, "get", self.file, *arguments)

    def no_cellar(self):
        return (f"zstz: {self.file}: no stanza [cellar]; run 'zstz stanzas {self.file}' to list "
                "them\n")

    def test_get_reports_a_missing_stanza_or_key(self):
        self.expect(NOT_FOUND, self.no_cellar(), "get", self.file, "cellar", "port")
        self.expect(NOT_FOUND,
                    f"zstz: {self.file}: no key \"colour\" in [listener]; run 'zstz keys "
                    f"{self.file} listener' to list them\n", "get", self.file, "listener", "colour")

    def test_remedies_quote_names_for_the_shell(self):
        self.path.write_text("[access log]\n")
        spaced = self.path.parent / "a b.conf"
        self.path.rename(spaced)
        self.expect(NOT_FOUND, f"; run 'zstz keys \"{spaced}\" \"access log\"' to list them\n",
                    "get", str(spaced), "access log", "file")
        self.expect(NOT_FOUND, f"; run 'zstz stanzas \"{spaced}\"' to list them\n", "keys",
                    str(spaced), "error log")

    def test_get_as_refuses_a_value_of_another_type(self):
        self.expect(INVALID_VALUE,
                    f'zstz: {self.file}: key "name" in [listener]: "front door" is not '
                    "a number; write it in decimal, hexadecimal (0x) or octal (0)\n",
                    "get", self.file, "listener", "name", "--as", "number")
        self.expect(INVALID_VALUE, f'zstz: {self.file}: key "port" in [listener]: "8443" is not a '
                    "boolean; write yes or no\n",
                    "get", self.file, "listener", "port", "--as", "boolean")

    def test_get_as_number_refuses_a_number_out_of_range(self):
        printed = "is not a number; write it in decimal, hexadecimal (0x) or octal (0)\n"
        rows = (("-5", "-5"), ("-0x1", "-1"), (" - 5", None), ("4294967296", "4294967296"), ("-0", "0"),
                ("9223372036854775808", "9223372036854775808"), ("-9223372036854775809", None),
                ("-9223372036854775808", "-9223372036854775808"), ("18446744073709551616", None),
                ("18446744073709551615", "18446744073709551615"), ("99999999999999999999", None),
                ("+5", "5"), ("0xFFFFFFFF", "4294967295"), ("010", "8"), ("08", None), ("0x", None),
                ("1 2", None), ("--5", None), ("1.5", "1.5"), ("-.5", "-.5"), ("1.", None),
                ("1.5.2", None), (".", None), ("1e3", None))
        for value, number in rows:
            with self.subTest(value):
                self.path.write_text(f"[a]\nk = {value}\n")
                arguments = ["get", self.file, "a", "k", "--as", "number"]
                if number is not None:
                    self.expect(DONE, number + "\n", *arguments)
                elif value.startswith(" "):
                    self.expect(INVALID_VALUE, 'key "k" in [a]: "- 5" is not a number',
                                *arguments)
                else:
                    self.expect(INVALID_VALUE,
                                f'{self.file}: key "k" in [a]: "{value}" {printed}',
                                *arguments)
                self.expect(DONE, value.strip() + "\n", *arguments[:4])

    def test_stanzas_and_keys_print_names_in_file_order(self):
        self.expect(DONE, "listener\nupstream\n", "stanzas", self.file)
        self.expect(DONE, "port\nname\nmotd\n", "keys", self.file, "listener")
        self.expect(NOT_FOUND, self.no_cellar(), "keys", self.file, "cellar")
        many = [f"s{(i * 37) % 100:02}" for i in range(100)]
        self.path.write_text("".join(f"[{name}]\nb = 1\na = 2\nb = 3\n" for name in many))
        self.expect(DONE, "".join(f"{name}\n" for name in many), "stanzas", self.file)
        self.expect(DONE, "b\na\n", "keys", self.file, "s42")

    def test_list_prints_stanzas_keys_and_values(self):
        self.expect(DONE, "[listener]\nport = 8080\nport = 8443\nname = front door\nmotd =\n\n"
                    "[upstream]\nweight = 0x1F\nready = Yes\n", "list", self.file)
        self.expect(DONE, "[upstream]\nweight = 0x1F\nready = Yes\n", "list", self.file, "upstream")
        self.expect(NOT_FOUND, self.no_cellar(), "list", self.file, "cellar")

    def test_an_empty_file_has_no_stanzas(self):
        self.path.write_text("")
        self.expect(DONE, "", "stanzas", self.file)
        self.expect(DONE, "", "list", self.file)
        self.expect(DONE, f"{self.file}: 0 stanzas, 0 keys, 0 values\n", "check", self.file)

    def test_a_stanza_without_a_name_is_listed_and_kept(self):
        self.path.write_text("[]\nk = v\nk = w\n\n[a]\n")
        self.expect(DONE, "\na\n", "stanzas", self.file)
        self.expect(DONE, "[]\nk = v\nk = w\n\n[a]\n", "list", self.file)
        self.expect(DONE, f"{self.file}: 2 stanzas, 1 key, 2 values\n", "check", self.file)
        self.expect(DONE, "", "set", self.file, "a", "b", "c")
        self.expect_text("[]\nk = v\nk = w\n\n[a]\nb = c\n")

    def test_check_prints_counts(self):
        counts = f"{self.file}: 2 stanzas, 5 keys, 5 values\n"
        self.expect(DONE, counts, "check", self.file)
        self.expect(DONE, counts * 2, "check", self.file, self.file)

    def test_check_continues_after_an_invalid_file(self):
        bad = pathlib.Path(self.directory.name) / "bad.conf"
        bad.write_text("[a]\nno equals sign\n")
        missing = self.file + ".missing"
        run = self.run_tool("check", str(bad), self.file, missing, self.file)
        counts = f"{self.file}: 2 stanzas, 5 keys, 5 values\n"
        self.assertEqual((NO_ACCESS, counts * 2), (run.returncode, run.stdout))
        self.assertRegex(run.stderr, rf"\Azstz: {bad}:2:1: [^\n]+\nzstz: {missing}: cannot open: "
                         r"[^\n]+\n\Z")
        self.assertEqual(INVALID_DATA, self.run_tool("check", str(bad), self.file).returncode)

    def test_check_notes_lines_that_are_not_read_completely(self):
        self.path.write_text(f"[a]\n# {'x' * 8188}\nk = {'x' * 8190}=y\nz = 1\0 2\n")
        self.expect_unchanged(
            DONE, f"{self.file}: 1 stanza, 3 keys, 3 values\n"
            f"{self.file}:3:8192: note: the line exceeds 8190 bytes and would be split; shorten it or "
            "use a line per value\n"
            f"{self.file}:4:6: note: the line has a zero byte and is ignored after it; remove the "
            "zero byte\n", "check", self.file)

    def test_an_edit_is_refused_if_a_line_is_not_read_completely(self):
        rows = ((f"[a]\n\nk = {'x' * 8190} = y\n", "3:8192", "exceeds 8190 bytes"),
                ("[a]\nk = 1\0 2\n", "2:6", "zero byte"))
        for text, line, printed in rows:
            self.path.write_text(text)
            for verb in (["set", self.file, "a", "b", "1"], ["add", self.file, "a", "b", "1"],
                         ["unset", self.file, "a", "k"]):
                with self.subTest(line=line, verb=verb):
                    self.expect_unchanged(REFUSED, f"{self.file}:{line}: not saved: the line ",
                                          *verb)
                    self.expect_unchanged(REFUSED, printed, *verb)
            self.expect_unchanged(REFUSED, printed, "set", self.file, "b", "c", "1", "--normalise")
            self.expect(DONE, "", "set", self.file, "b", "c", "1")
            self.expect_text(text + "\n[b]\nc = 1\n")

    # The library ignores an empty value next to other values, and --normalise drops its line.

    LOST_LINES = (
        # text, lines that --normalise drops
        ("[a]\nk =\nk = v\n", [2]),
        ("[a]\nk = v\n\n  k=\t\n", [4]),
        ("[a]\nk =\nb = 1\nk =\nk = v\nk =\n", [2, 4, 6]),
        ("[a]\nk =\n[b]\nk =\n[a2]\nk =\nk =\n", [7]),
        ("[]\nk = v\nk =\n[a]\n", [3]),
        ("[a]\nk =\n#k = v\n[b]\nk = v\n", []),
        ("[a]\nk =\n[k]\nk = =\nk = #\n", []),
    )

    def test_check_notes_empty_values_that_normalise_drops(self):
        note = ('note: key "k" has no value here but values elsewhere, and --normalise drops this '
                "line; remove it, or give it a value\n")
        for text, lines in self.LOST_LINES:
            with self.subTest(text):
                self.path.write_text(text)
                run = self.run_tool("check", self.file)
                self.assertEqual((DONE, ""), (run.returncode, run.stderr))
                self.assertEqual("".join(f"{self.file}:{line}: {note}" for line in lines),
                                 re.sub(r":(\d+):\d+: note", r":\1: note",
                                        run.stdout.split("\n", 1)[1]))

    def test_an_edit_keeps_empty_values_unless_it_normalises(self):
        for text, lines in self.LOST_LINES:
            for verb in (["set", self.file, "c", "z", "1"], ["add", self.file, "c", "z", "1"],
                         ["set", self.file, "c", "z", "1", "--all"]):
                with self.subTest(text=text, verb=verb):
                    self.path.write_text(text)
                    self.expect(DONE, "", *verb)
                    self.expect_text(text + "\n[c]\nz = 1\n")
                    self.path.write_text(text)
                    if lines:
                        self.expect_unchanged(
                            REFUSED, ': not saved: key "k" has no value '
                            "here but values elsewhere, and --normalise drops this line; ", *verb,
                            "--normalise")
                    else:
                        self.expect(DONE, "", *verb, "--normalise")

    def test_an_edit_may_remove_the_empty_values_of_its_own_key(self):
        text = "[a]\nk =\nk = v\nz = 1\n"
        for verb, kept, after in (
                (["set", self.file, "a", "k", "w"], "[a]\nk =\nk = w\nz = 1\n",
                 "[a]\nk = w\nz = 1\n"),
                (["unset", self.file, "a", "k"], "[a]\nz = 1\n", "[a]\nz = 1\n")):
            self.path.write_text(text)
            self.expect_unchanged(REFUSED, f"{self.file}:2:1: not saved: ", *verb, "--normalise")
            self.expect(DONE, "", *verb, "--all", "--normalise")
            self.expect_text(after)
            self.path.write_text(text)
            self.expect(DONE, "", *verb)
            self.expect_text(kept)
        self.path.write_text(text + "[b]\n")
        self.expect(DONE, "", "unset", self.file, "a", "--stanza")
        self.expect_text("[b]\n")
        java = pathlib.Path(self.directory.name) / "a.properties"
        java.write_text("k = w\n")
        self.path.write_text(text)
        self.expect(DONE, "", "convert", self.file, "a", "--from", str(java), "--overwrite",
                    "--normalise")
        self.expect_text("[a]\nk = w\n")

    def test_normalise_is_refused_if_not_every_problem_is_listed(self):
        text = "[a]\nk = v\n" + "k =\n" * 100001
        self.path.write_text(text)
        self.expect_unchanged(REFUSED, "not saved: ", "unset", self.file, "a", "k", "--all",
                              "--normalise")
        self.expect(DONE, "", "set", self.file, "a", "k", "w")
        self.expect_text(text.replace("= v", "= w"))

    def test_an_edit_keeps_an_empty_value_of_an_obfuscated_key_unless_it_normalises(self):
        self.expect(DONE, "", "set", self.file, "listener", "key", "--obfuscated", given="secret")
        text = self.path.read_text().replace("[upstream]\n", "[upstream]\nx =\n")
        text = text.replace("[listener]\n", "[listener]\nkey =\n")
        self.path.write_text(text)
        line = text[:text.index("key =")].count("\n") + 1
        self.expect_unchanged(REFUSED, f"{self.file}:{line}:1: not saved: ",
                              "set", self.file, "upstream", "x", "1", "--normalise")
        self.assertIn(f'{self.file}:{line}:1: note: key "key" has no value',
                      self.run_tool("check", self.file).stdout)
        self.expect(DONE, "", "set", self.file, "upstream", "x", "1")
        self.expect_text(text.replace("x =", "x = 1"))
        self.expect(DONE, "", "unset", self.file, "listener", "key", "--all", "--normalise")

    # ---- Hexadecimal dumps ----

    @staticmethod
    def dump(data):
        """Returns the expected dump of `data`."""
        lines = []
        for at in range(0, len(data), 16):
            line = data[at:at + 16]
            groups = (b"".join(b" %02x" % c for c in line[i:i + 8]).ljust(24) for i in (0, 8))
            column = bytes(c if 32 <= c <= 253 else ord(".") for c in line)
            lines.append(b"\n%04x  %b %b  *%b*" % (at, *groups, column.ljust(16)))
        return b"".join(lines) + b"\n"

    def test_hexdump_prints_files_and_standard_input(self):
        data = bytes(i * 7 % 251 + i // 251 % 5 for i in range(140000))
        binary = pathlib.Path(self.directory.name) / "binary"
        for length in (0, 1, 8, 16, 17, 65535, 65536, 65537, 131072, len(data)):
            with self.subTest(length):
                binary.write_bytes(data[:length])
                for arguments, given in (([str(binary)], b""), (["-"], data[:length])):
                    run = subprocess.run([tool.TOOL, "hexdump", *arguments], input=given,
                                         check=True, capture_output=True, timeout=HANGS)
                    self.assertTrue(run.stdout == self.dump(data[:length]), "the dump differs")

    def test_hexdump_prints_titles_and_continues_after_a_missing_file(self):
        missing = self.file + ".missing"
        run = self.run_tool("hexdump", self.file, missing, "-", self.directory.name, given="")
        self.assertEqual((NO_ACCESS, f"\n\t{self.file}\n" + self.dump(GATEWAY.encode()).decode() +
                          f"\n\t-\n\n\n\t{self.directory.name}\n"), (run.returncode, run.stdout))
        self.assertRegex(run.stderr, rf"\Azstz: {missing}: cannot open: No such [^\n]+\n"
                         rf"zstz: {self.directory.name}: cannot read: Is a dir[^\n]+\n\Z")

    def test_hexdump_masks_control_bytes_on_a_terminal(self):
        self.path.write_bytes(bytes(range(256)))
        master, slave = pty.openpty()
        run = subprocess.run([tool.TOOL, "hexdump", self.file], stdout=slave, check=False,
                             timeout=HANGS)
        self.assertEqual(DONE, run.returncode)
        os.close(slave)
        shown = b""
        while b"00f0" not in shown or shown.count(b"*") < 33:
            shown += os.read(master, 10000)
        os.close(master)
        self.assertEqual([], [c for c in shown if c >= 0x7F])
        self.assertIn(b"  *pqrstuvwxyz{|}~.*", shown)

    # ---- Editing ----

    def test_set_changes_only_the_line_of_the_key(self):
        self.expect(DONE, "", "set", self.file, "listener", "name", "back door")
        self.expect_text(GATEWAY.replace("front", "back"))

    ODD = "# a\r\n\n [a] tail\n\tk   =  v  \nl=\nk=w\n\n# b\n[b]\nlast = 1"

    def test_an_edit_changes_only_its_lines(self):
        rows = (
            (["set", "b", "last", "2"], self.ODD.replace("= 1", "= 2")),
            (["set", "a", "k", "x", "--all"], self.ODD.replace("=  v", "=  x").replace("k=w\n", "")),
            (["add", "a", "k", "x"], self.ODD.replace("k=w\n", "k=w\nk=x\n")),
            (["unset", "b", "last"], self.ODD.replace("\nlast = 1", "")),
            (["set", "b", "new", "2"], self.ODD + "\nnew = 2"),
            (["set", "c", "new", "2"], self.ODD + "\n\n[c]\nnew = 2"),
            (["set", "a", "l", "1"], self.ODD.replace("l=", "l=1")),
            (["unset", "a", "--stanza"], "# a\r\n\n# b\n[b]\nlast = 1"),
        )
        for verb, after in rows:
            for replace in ([], ["--replace"]):
                with self.subTest(verb=verb):
                    self.path.write_bytes(self.ODD.encode())
                    self.expect(DONE, "", verb[0], self.file, *verb[1:], *replace)
                    self.assertEqual(after, self.path.read_bytes().decode())

    def test_an_edit_without_a_change_writes_nothing(self):
        self.path.write_bytes(self.ODD.encode())
        before = os.stat(self.file)
        self.expect(DONE, "", "set", self.file, "b", "last", "1")
        self.expect(DONE, "", "add", self.file, "a", "k", "w", "-q")
        after = os.stat(self.file)
        self.assertEqual((before.st_ino, before.st_ctime_ns), (after.st_ino, after.st_ctime_ns))

    def test_normalise_stores_every_line_in_one_form(self):
        self.path.write_bytes(self.ODD.encode())
        self.expect(DONE, "", "set", self.file, "b", "last", "2", "--normalise")
        self.expect_text("# a\n\n[a]\nk = v\nk = w\nl =\n\n# b\n[b]\nlast = 2\n")

    def test_set_creates_the_key_and_the_stanza(self):
        self.expect(DONE, "", "set", self.file, "upstream", "host", "10.0.0.7")
        self.expect(DONE, "", "set", self.file, "cellar", "door", "closed")
        self.expect_text(GATEWAY + "host = 10.0.0.7\n\n[cellar]\ndoor = closed\n")

    def test_set_replaces_multiple_values_only_with_all(self):
        refusal = f'zstz: {self.file}: key "port" in [listener] has 2 values; pass --all to '
        self.expect_unchanged(REFUSED, f"{refusal}replace both, --old or --nth to replace one, or "
                              "use 'zstz add'\n", "set", self.file, "listener", "port", "80")
        self.expect(DONE, "", "set", self.file, "listener", "port", "80", "--all")
        self.expect_text(GATEWAY.replace("port = 8080\nport = 8443\n", "port = 80\n"))

    def test_set_to_an_empty_value_keeps_the_key(self):
        self.expect(DONE, "", "set", self.file, "listener", "name", "")
        self.expect_text(GATEWAY.replace("name = front door", "name = "))

    def test_a_value_may_start_with_a_dash(self):
        self.expect(DONE, "", "set", self.file, "listener", "name", "--", "-5")
        self.expect(DONE, "-5\n", "get", self.file, "listener", "name")

    def test_names_and_values_may_have_the_maximum_length(self):
        stanza, key = "s" * 8188, "k" * 8188
        self.expect(DONE, "", "set", self.file, stanza, key, "")
        self.expect(DONE, "", "set", self.file, stanza, "name", "x" * 8183)
        self.expect(DONE, key + "\nname\n", "keys", self.file, stanza)
        self.expect(DONE, "x" * 8183 + "\n", "get", self.file, stanza, "name")

    def test_the_tool_and_the_library_have_the_same_line_limit(self):
        # The library validates the value of `set`; the tool measures the lines for `check`.
        for size, fits in ((8190, True), (8191, False)):
            with self.subTest(size):
                self.path.write_text("[a]\n")
                value = "x" * (size - len("k = "))
                run = self.run_tool("set", self.file, "a", "k", value)
                self.assertEqual(DONE if fits else INVALID_VALUE, run.returncode)
                self.path.write_text(f"[a]\nk = {value}\n")
                run = self.run_tool("check", self.file)
                self.assertEqual(fits, ":2:8192: note: the line exceeds 8190 bytes" not in run.stdout)

    def test_add_adds_a_value_once(self):
        self.expect(DONE, "", "add", self.file, "listener", "port", "9000")
        run = self.run_tool("add", self.file, "listener", "port", "9000")
        self.assertEqual((DONE, "", f'zstz: {self.file}: note: key "port" in [listener] has the '
                          "value already\n"), (run.returncode, run.stdout, run.stderr))
        self.expect(DONE, "", "add", "--quiet", self.file, "listener", "port", "9000")
        self.expect_text(GATEWAY.replace("8443\n", "8443\nport = 9000\n"))
        self.expect(DONE, "", "add", self.file, "cellar", "door", "closed")
        self.expect(DONE, "closed\n", "get", self.file, "cellar", "door")
        self.expect_unchanged(INVALID_VALUE, "cannot add an empty value; use 'zstz set'", "add",
                              self.file, "listener", "port", "")

    def test_unset_removes_a_key_or_a_stanza(self):
        self.expect_unchanged(REFUSED, f'zstz: {self.file}: key "port" in [listener] has 2 values; '
                              "pass --all to remove both\n", "unset", self.file, "listener", "port")
        self.expect(DONE, "", "unset", self.file, "listener", "port", "--all")
        self.expect_text(GATEWAY.replace("port = 8080\nport = 8443\n", ""))
        self.expect_unchanged(NOT_FOUND, 'no key "port" in [listener]; ', "unset", self.file,
                              "listener", "port")
        self.expect(DONE, "", "unset", self.file, "upstream", "--stanza")
        self.expect(DONE, "listener\n", "stanzas", self.file)
        self.expect_unchanged(NOT_FOUND, "no stanza [upstream]; ", "unset", self.file,
                              "upstream", "--stanza")

    def test_names_and_values_that_would_not_read_back_are_refused(self):
        rows = (
            ("invalid stanza name ", ["a]b", "key", "value"]),
            ("invalid stanza name ", ["a\nb", "key", "value"]),
            ("at most 8188 bytes", ["a" * 8189, "key", "value"]),
            ("at most 8188 bytes", ["listener", "k" * 8189, "value"]),
            ("invalid key ", ["listener", "a=b", "value"]),
            ("invalid key ", ["listener", "#key", "value"]),
            ("invalid key ", ["listener", "[key", "value"]),
            ("invalid key ", ["listener", " key", "value"]),
            ("invalid key ", ["listener", "a\nb", "value"]),
            ('invalid value of key "name"; ', ["listener", "name", "one\ntwo"]),
            ("at most 8187 bytes", ["listener", "name", "x" * 8184]),
            ("whitespace", ["listener", "name", " x"]),
            ("whitespace", ["listener", "name", "x\t"]),
            ("whitespace", ["listener", "name", "x\r"]),
            ("--obfuscated", ["listener", "name", "   "]),
        )
        for verb in ("set", "add"):
            for printed, arguments in rows:
                with self.subTest(verb=verb, arguments=arguments):
                    self.expect_unchanged(INVALID_VALUE, printed, verb, self.file, *arguments)

    # ---- Obfuscated values ----

    def test_obfuscated_values_come_from_standard_input_and_stay_out_of_the_file(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated",
                    given="hunter2\n")
        self.assertNotIn("hunter2", self.path.read_text())
        self.assertTrue(pathlib.Path(self.file + ".obf").exists())
        self.expect(DONE, "hunter2\n", "get", self.file, "upstream", "password")
        self.expect(DONE, "[upstream]\nweight = 0x1F\nready = Yes\npassword = ********\n", "list",
                    self.file, "upstream")
        self.expect(DONE, "weight\nready\npassword\n", "keys", self.file, "upstream")
        self.expect(DONE, "", "add", self.file, "upstream", "password", "--obfuscated",
                    given="second")
        self.expect(DONE, "hunter2\nsecond\n", "get", self.file, "upstream", "password", "--all")
        self.expect_unchanged(REFUSED, "has 2 values; ", "set", self.file, "upstream", "password",
                              "--obfuscated", given="third")
        self.expect(DONE, "", "unset", self.file, "upstream", "password", "--all")
        self.assertFalse(pathlib.Path(self.file + ".obf").exists())
        self.expect_text(GATEWAY + "\n[configuration-database]\n")

    def test_an_obfuscated_value_keeps_leading_and_trailing_spaces(self):
        self.expect(DONE, "", "set", self.file, "upstream", "motto", "--obfuscated", given=" x\t\n")
        self.expect(DONE, " x\t\n", "get", self.file, "upstream", "motto")

    def test_the_reserved_stanza_cannot_be_changed(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="x")
        reserved = "configuration-database"
        for rest in (["set", "file", "/tmp/x"], ["set", "other", "x"], ["add", "file", "/tmp/x"],
                     ["set", "password", "--obfuscated"], ["unset", "file"], ["unset", "--stanza"]):
            with self.subTest(rest):
                self.expect_unchanged(REFUSED, "stanza [configuration-database] is reserved",
                                      rest[0], self.file, reserved, *rest[1:], given="x")
        self.expect(DONE, self.file + ".obf\n", "get", self.file, reserved, "file")

    def test_an_obfuscated_value_without_a_line_in_the_file_is_listed(self):
        self.expect(DONE, "", "set", self.file, "safe", "password", "--obfuscated", given="x")
        self.path.write_text("".join(line for line in self.path.read_text().splitlines(True)
                                     if "[safe]" not in line and "password" not in line))
        self.expect(DONE, "[safe]\npassword = ********\n", "list", self.file, "safe")
        self.expect(DONE, "x\n", "get", self.file, "safe", "password")

    def test_a_key_cannot_mix_plain_and_obfuscated_values(self):
        self.expect_unchanged(REFUSED, 'has plain values; leave out --obfuscated, or ', "set",
                              self.file, "listener", "name", "--obfuscated", given="x")
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="x")
        for verb in ("set", "add"):
            self.expect_unchanged(REFUSED, "has obfuscated values; pass --obfuscated, or ", verb,
                                  self.file, "upstream", "password", "y")

    def test_an_obfuscated_value_is_never_an_argument(self):
        for verb in ("set", "add"):
            self.expect_unchanged(USAGE, "VALUE", verb, self.file, "upstream", "password", "x",
                                  "--obfuscated", given="y")

    def test_an_obfuscated_value_must_not_be_empty(self):
        for given in ("", "\n"):
            for verb in ("set", "add"):
                self.expect_unchanged(INVALID_VALUE,
                                      "zstz: no value on standard input; pipe one in, "
                                      "or remove the key with 'zstz unset'\n", verb, self.file,
                                      "upstream", "password", "--obfuscated", given=given)

    def test_an_obfuscated_value_must_not_have_a_zero_byte(self):
        self.expect_unchanged(INVALID_VALUE,
                              "zstz: standard input: the value has a zero byte; remove it\n", "set",
                              self.file, "upstream", "password", "--obfuscated", given="a\0b")

    def start_at_a_prompt(self, **options):
        """Starts the tool at a terminal and waits for the prompt. Returns the process, both ends of
        the terminal and the bytes shown."""
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        run = subprocess.Popen([tool.TOOL, "set", self.file, "upstream", "password",
                                "--obfuscated"],
                               stdin=slave, stdout=slave, stderr=slave,
                               env=dict(os.environ, LC_ALL="C.UTF-8"), **options)
        shown = b""
        while b"value: " not in shown:
            shown += os.read(master, 100)
        return run, master, slave, shown

    def test_a_terminal_does_not_echo_the_value(self):
        run, master, slave, shown = self.start_at_a_prompt()
        os.write(master, b"hunter2\n")
        self.assertEqual(DONE, run.wait(HANGS))
        os.close(slave)
        while True:
            try:
                part = os.read(master, 100)
            except OSError:
                break
            if not part:
                break
            shown += part
        self.assertNotIn(b"hunter2", shown)
        self.expect(DONE, "hunter2\n", "get", self.file, "upstream", "password")

    def test_a_signal_turns_terminal_echo_on_again(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            with self.subTest(number):
                run, _, slave, _ = self.start_at_a_prompt()
                self.assertFalse(termios.tcgetattr(slave)[3] & termios.ECHO)
                run.send_signal(signal.SIGTSTP)  # a stopped tool would leave echo off
                run.send_signal(number)
                self.assertEqual(-number, run.wait(HANGS))
                self.assertTrue(termios.tcgetattr(slave)[3] & termios.ECHO)
                os.close(slave)
        self.expect_text(GATEWAY)

    def test_a_prompt_keeps_ignored_signals_ignored(self):
        run, master, slave, _ = self.start_at_a_prompt(
            preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        run.send_signal(signal.SIGHUP)
        os.write(master, b"hunter2\n")
        self.assertEqual(DONE, run.wait(HANGS))
        os.close(slave)
        self.expect(DONE, "hunter2\n", "get", self.file, "upstream", "password")

    def test_end_of_file_at_the_prompt_is_refused(self):
        run, master, slave, _ = self.start_at_a_prompt()
        os.write(master, b"\x04")
        self.assertEqual(INVALID_VALUE, run.wait(HANGS))
        os.close(slave)
        self.expect_text(GATEWAY)

    # ---- Usage ----

    def test_wrong_command_lines_are_refused(self):
        rows = (
            [], ["frobnicate"], ["get"], ["get", self.file], ["get", self.file, "listener"],
            ["get", self.file, "listener", "port", "surplus"],
            ["get", self.file, "listener", "port", "--as", "colour"],
            ["get", self.file, "listener", "port", "--as", "number", "--all"],
            ["get", "", "listener", "port"], ["get", self.file, "", "port"],
            ["get", self.file, "listener", ""], ["list", self.file, ""],
            ["set", self.file, "listener", "port"], ["add", self.file, "listener", "port"],
            ["unset", self.file, "listener"], ["unset", self.file],
            ["unset", self.file, "listener", "port", "--stanza"],
            ["unset", self.file, "listener", "--stanza", "--all"],
            ["keys", self.file], ["stanzas"], ["list"], ["check"], ["check", ""],
            ["set", self.file, "listener", "name", "x", "--force"],
            ["get", self.file, "listener", "port", "keys", self.file, "listener"],
        )
        for arguments in rows:
            with self.subTest(arguments):
                self.expect_unchanged(USAGE, "--help", *arguments)

    def test_a_value_like_an_option_needs_two_dashes(self):
        for arguments in (["listener", "name", "-verbose"], ["listener", "-name", "x"]):
            self.expect_unchanged(USAGE,
                                  "; put -- before names and values that start with \"-\", or "
                                  "run 'zstz set --help'\n", "set", self.file, *arguments)
        self.expect(DONE, "", "set", self.file, "--", "listener", "-name", "-verbose")
        self.expect(DONE, "-verbose\n", "get", self.file, "listener", "--", "-name")

    def test_an_unknown_or_missing_verb_is_reported(self):
        remedy = "; run 'zstz --help' for a list\n"
        for verb in ("frobnicate", ""):
            self.expect(USAGE, f'zstz: unknown command "{verb}"{remedy}', verb)
        for verb, shown, near in (("Get", "Get", "get"), ("li\nst", "li?st", "list")):
            self.expect(USAGE, f"zstz: unknown command \"{shown}\"; use 'zstz {near}', or {remedy[2:]}",
                        verb, self.file)
        self.expect(USAGE, f'zstz: unknown option "-x"{remedy}', "-x")
        self.expect(USAGE, 'zstz: option "--quiet" is before the command "get"; put it after the '
                    "command, as in 'zstz get --quiet'\n", "--quiet", "get", self.file)
        self.expect(USAGE, 'option "--dialect" is before the command "list"', "--dialect", "ini", "list")
        self.expect(USAGE, f'zstz: unknown option "--dialect"{remedy}', "--dialect", "none")
        self.expect(USAGE, "--backup: standard input has no copy", "set", "-", "a", "b", "c",
                    "--backup")
        self.expect(USAGE, f"zstz: missing command{remedy}")

    def test_usage_errors_name_the_command_and_the_argument(self):
        rows = (
            (["get"], "FILE is required"),
            (["get", "f", "s", "k", "y", "z"], 'unexpected argument "y"'),
            (["get", "f", "s", "k", "--as", "colour"],
             '--as: "colour" is not text, number or boolean'),
            (["get", "f", "s", "k", "--as", "text", "--all"], "--all excludes --as"),
            (["get", "", "s", "k"], "FILE: must not be empty"),
            (["unset", "f", "s"], "KEY or --stanza is required"),
            (["java", "f", "frob"], 'ACTION: "frob" is not get, set, list or check'),
            (["java", "f", "list", "k"], 'unexpected argument "k"'),
            *((["lock", "--read", "--wait", wait, "l", "--", "true"],
               f'--wait: "{wait}" is not a number of seconds from 0 to 1000000000')
              for wait in ("soon", "-1", "nan", "1e10")),
        )
        for arguments, problem in rows:
            with self.subTest(arguments):
                self.expect(USAGE, f"zstz: {arguments[0]}: {problem}; run 'zstz {arguments[0]} "
                            "--help'\n", *arguments)

    def test_line_endings_in_arguments_are_masked_in_reports(self):
        self.expect(NOT_FOUND, "[a?b]", "keys", self.file, "a\nb")
        self.expect(NO_ACCESS, "a?b", "list", "a\nb")

    def test_help_names_each_verb(self):
        run = self.run_tool("--help")
        self.assertEqual((DONE, ""), (run.returncode, run.stderr))
        self.assertEqual(run.stdout, self.run_tool("-h").stdout)
        lines = run.stdout.splitlines()
        self.assertEqual("zstz: read, change, compare and check configuration files", lines[0])
        self.assertTrue(lines[1].startswith("usage: zstz VERB [OPTION...] FILE "))
        self.assertLess(max(map(len, lines)), 130)
        for verb in VERBS:
            self.assertRegex(run.stdout, rf"[ |]{verb}[ \n]")
        for heading in ("read", "change", "other", "stanzas", "options", "for reading",
                        "for changes", "exit"):
            self.assertRegex(run.stdout, rf"\n{heading} +\S")
        self.assertIn("0 done, 1 not found, 2 usage, 3 invalid data, 4 cannot open, ", run.stdout)

    def test_help_groups_options_as_the_verbs_have_them(self):
        own = {"lock", "java", "hexdump", "completion", "help"}
        changes = {"set", "add", "unset", "rename", "comment", "edit", "fmt", "convert"}
        for verb in VERBS:
            options = set(re.findall(r"^  (?:-\w, )?(--[a-z-]+)", self.run_tool(verb, "-h").stdout, re.M))
            with self.subTest(verb):
                self.assertEqual(verb not in own, {"--dialect", "--wait", "--quiet"} <= options)
                self.assertEqual(verb not in own | changes, {"--format", "--null"} <= options)
                self.assertEqual(verb in changes, {"--create", "--dry-run", "--backup", "--normalise",
                                                   "--replace"} <= options)

    def test_help_of_a_verb_has_an_example(self):
        for verb in VERBS:
            for flag in ("--help", "-h"):
                with self.subTest(verb=verb, flag=flag):
                    run = self.run_tool(verb, flag)
                    self.assertEqual((DONE, ""), (run.returncode, run.stderr))
                    self.assertRegex(run.stdout,
                                     rf"\A[A-Z][^\n]+\.\nUsage: zstz {verb} \[OPTIONS\] ")
                    self.assertRegex(run.stdout, rf"Example:\n.*\bzstz {verb}[ \n]")
        self.assertRegex(self.run_tool("set", "--help").stdout,
                         r"Example:\n  zstz set .*\n  zstz set .* --obfuscated <")

    def test_the_manual_page_has_every_verb_and_option(self):
        page = pathlib.Path(__file__).parents[2] / "tools" / "zstz" / "zstz.1"
        text = page.read_text(encoding="utf-8").replace("\\-", "-")
        for verb in VERBS:
            self.assertRegex(text, rf"\n\.B {verb} \\f[IR]")
            for option in re.findall(r"^  (?:-\w, )?(--[a-z-]+)", self.run_tool(verb, "-h").stdout,
                                     re.M):
                self.assertRegex(text, rf"(?<![a-z-]){option}(?![a-z-])", f"{verb} {option}")

    def test_version_is_printed(self):
        self.expect(DONE, "zstz 6.0\n", "--version")

    # ---- Environment ----

    def test_tables_are_found_from_any_directory_and_through_a_link(self):
        link = pathlib.Path(self.directory.name) / "elsewhere"
        link.symlink_to(tool.TOOL)
        environment = {k: v for k, v in os.environ.items() if k != "QVRDIR"}
        run = subprocess.run([str(link), "stanzas", self.file], cwd="/", env=environment,
                             capture_output=True, text=True, check=False)
        self.assertEqual((DONE, "listener\nupstream\n", ""),
                         (run.returncode, run.stdout, run.stderr))

    def test_values_are_stored_unchanged_in_every_locale(self):
        for locale in ("C", "C.UTF-8"):
            with self.subTest(locale):
                environment = {"LC_ALL": locale}
                self.expect(DONE, "", "set", self.file, "listener", "name", "Grüße",
                            environment=environment)
                self.expect(DONE, "Grüße\n", "get", self.file, "listener", "name",
                            environment=environment)


if __name__ == "__main__":
    tool.main()
