#!/usr/bin/env python3
"""Tests of zstz on Java property files. usage: java_test.py TOOL [unittest arguments]"""
import fcntl
import pathlib
import random
import subprocess

import tool
from tool import (DONE, HANGS, INVALID_DATA, INVALID_VALUE, LOCKED, NO_ACCESS, NOT_FOUND, REFUSED,
                  USAGE)

IGNORED = "ignored, because it is not an entry; write KEY = VALUE with valid escapes, "


class JavaTest(tool.ToolTest):
    def setUp(self):
        super().setUp()
        self.java_path = pathlib.Path(self.directory.name) / "app.properties"
        self.java = str(self.java_path)

    def given(self, text):
        self.java_path.write_bytes(text if isinstance(text, bytes) else text.encode())

    # ---- java ----

    def test_get_and_list_read_as_the_library_does(self):
        self.given("# old\nb.c:2\na = 1\n  d   e f\nu = caf\\u00e9 \\:x\nempty=\na = one\\\n  two\n"
                   "feed = 1\\u000a2\nface = \\ud83d\\ude00 \\ud83d\n"
                   "halves = \\ude00\\ude00\\ud83d\\ud83dx\n")
        self.expect_unchanged(DONE, "onetwo\n", "java", self.java, "get", "a")
        self.expect_unchanged(DONE, "café :x\n", "java", self.java, "get", "u")
        self.expect_unchanged(DONE, "\n", "java", self.java, "get", "empty")
        self.expect_unchanged(DONE, "1\n2\n", "java", self.java, "get", "feed")
        self.expect(DONE, "a = onetwo\nb.c = 2\nd = e f\nempty =\nface = 😀 \udced\udca0\udcbd\n"
                    "feed = 1\\u000a2\nhalves = " + 2 * "\udced\udcb8\udc80" +
                    2 * "\udced\udca0\udcbd" + "x\nu = café :x\n", "java", self.java, "list",
                    errors="surrogateescape")
        self.expect_unchanged(NOT_FOUND, f"zstz: {self.java}: no key \"zz\"; run 'zstz java "
                              f"{self.java} list' to list the keys\n", "java", self.java, "get",
                              "zz")

    def test_text_is_utf8_in_every_locale(self):
        for locale in ("C", "C.UTF-8"):
            environment = {"LC_ALL": locale}
            self.given("a = 1\n")
            self.expect(DONE, "", "java", self.java, "set", "k", "Grüße", environment=environment)
            self.assertIn("k = Gr\\u00fc\\u00dfe\n", self.java_path.read_text())
            self.expect(DONE, "Grüße\n", "java", self.java, "get", "k", environment=environment)

    def test_set_changes_and_adds_entries(self):
        self.given("#\na = 1\n")
        self.expect(DONE, "", "java", self.java, "set", "a", "2")
        self.expect(DONE, "", "java", self.java, "set", "b", "--", "-x : \\ \" ' =# ")
        self.expect(DONE, "", "java", self.java, "set", "c", "")
        self.expect(DONE, "a = 2\nb = -x : \\ \" ' =# \nc =\n", "java", self.java, "list")
        self.assertEqual("#", self.java_path.read_text().split("\n")[0])

    def test_check_reports_lines_that_are_not_read(self):
        self.given("# hello\nbad\\\nnext = 1\n\nc = 1\\q\n =x\nk = v\nlast = x")
        run = self.run_tool("java", self.java, "check")
        self.assertEqual((INVALID_DATA, f"{self.java}: 1 entry, 1 comment\n"),
                         (run.returncode, run.stdout))
        lines = [f'zstz: {self.java}:{number}: "{text}": {why}' for number, text, why in (
            (2, "bad\\", IGNORED),
            (3, "next = 1", "ignored, because the line before it is not an entry"),
            (5, "c = 1\\q", IGNORED), (6, " =x", IGNORED),
            (8, "last = x", "ignored, because the last line has no newline")
        )]
        for line, printed in zip(lines, run.stderr.split("\n")):
            self.assertTrue(printed.startswith(line), printed)
        self.assertEqual(len(lines), run.stderr.count("\n"))
        self.given("a = 1\r\n\r\n! c\r\nb = 2\r\n#\r\n")
        self.expect(DONE, f"{self.java}: 2 entries, 1 comment\n", "java", self.java, "check")
        self.given("")
        self.expect(DONE, f"{self.java}: 0 entries, 0 comments\n", "java", self.java, "check")

    def test_check_reports_the_line_skipped_after_an_invalid_line(self):
        # The reader takes a run of alternating "\r" and "\n" as one line ending.
        rows = ((("bad\\\r\n", "next = 1\r\n"), 2), (("bad\\\r", "next = 1\r"), 2),
                (("bad\\\r\n", "\r\n", "\r\n", "next = 1\r\n"), 4),
                (("bad\\\n", "\r", "next = 1\n"), 3), (("bad\\\n", "\n", "next = 1\n"), None),
                (("bad\\\r", "\r", "next = 1\r"), None))
        for lines, number in rows:
            with self.subTest(lines):
                self.given("".join(lines) + "c = 2\n")
                run = self.run_tool("java", self.java, "check")
                self.assertEqual(INVALID_DATA, run.returncode)
                printed = run.stderr.splitlines()
                self.assertTrue(printed[0].startswith(f'zstz: {self.java}:1: "bad\\": {IGNORED}'))
                self.assertEqual([] if number is None else
                                 [f'zstz: {self.java}:{number}: "next = 1": ignored, because the '
                                  "line before it is not an entry; correct that line"], printed[1:])
                read = "next = 1\n" if number is None else ""
                self.expect(DONE, f"c = 2\n{read}", "java", self.java, "list")

    def test_check_accepts_a_last_line_without_an_entry(self):
        for last, comments in (("   ", "0 comments"), ("# words", "1 comment"),
                               ("#", "0 comments")):
            with self.subTest(last):
                self.given("a = 1\n" + last)
                self.expect(DONE, f"{self.java}: 1 entry, {comments}\n", "java", self.java, "check")

    def test_a_key_alone_has_an_empty_value(self):
        for end in ("\n", "\r\n"):
            with self.subTest(end):
                self.given(end.join(("a = 1", "alone", "", "b 2", "spaces \t", "c = 3", "a", "")))
                self.expect(DONE, "a =\nalone =\nb = 2\nc = 3\nspaces =\n", "java", self.java, "list")
                self.expect(DONE, "\n", "java", self.java, "get", "spaces")
                self.expect(DONE, f"{self.java}: 5 entries, 0 comments\n", "java", self.java, "check")
                self.expect(DONE, "", "java", self.java, "set", "b", "3")
                self.assertEqual("#\n", self.java_path.read_text()[:2])
                self.expect(DONE, "a =\nalone =\nb = 3\nc = 3\nspaces =\n", "java", self.java, "list")

    def test_a_zero_byte_is_part_of_a_value(self):
        self.given("a = 1\0 2\n")
        self.expect(DONE, "1\0 2\n", "java", self.java, "get", "a")
        self.expect(DONE, "a = 1\\u0000 2\n", "java", self.java, "list")

    def test_a_byte_order_mark_is_reported(self):
        self.given(b"\xEF\xBB\xBFa = 1\n")
        mark = (f"no key \"a\", and line 1 is ignored; run 'zstz java {self.java} check' for "
                "details\n")
        self.expect(NOT_FOUND, mark, "java", self.java, "get", "a")
        run = self.run_tool("java", self.java, "check")
        self.assertEqual((INVALID_DATA, f"{self.java}: 1 entry, 0 comments\n"),
                         (run.returncode, run.stdout))
        self.assertIn("byte order mark", run.stderr)
        self.given(b"\xEF\xBB\xBFa = 1\nbad\\\n")
        run = self.run_tool("java", self.java, "check")
        self.assertRegex(run.stderr, rf"\Azstz: {self.java}:1: [^\n]+byte order mark[^\n]+\n"
                         rf'zstz: {self.java}:2: "bad\\": {IGNORED}[^\n]+\n\Z')
        self.expect(INVALID_DATA, "byte order mark", "convert", self.file, "app", "--from",
                    self.java)

    def test_line_numbers_match_an_editor(self):
        for end in ("\n", "\r\n", "\r"):
            with self.subTest(end):
                self.given(end.join(("a = 1", "", "", "b = 2", "bad one\\x", "")))
                self.expect(INVALID_DATA, f'{self.java}:5: "bad one\\x": ', "java", self.java,
                            "set", "a", "1")

    def test_set_refuses_a_file_that_would_lose_lines(self):
        rows = (
            (INVALID_DATA, "a = 1\nbad\\\n", IGNORED),
            (INVALID_DATA, "a = 1", "the last line has no newline"),
            (INVALID_DATA, "a = 1\0 2\n",
             "the line has a zero byte, which is not stored; remove it"),
            (INVALID_DATA, b"\xEF\xBB\xBFa = 1\nb = 2\n",
             ':1: "\ufeffa = 1": the file starts with a byte '
             "order mark; save it as UTF-8 without one"),
            (INVALID_DATA, b"\xEF\xBB\xBF# words\n", "byte order mark"),
            (INVALID_DATA, b"\xEF\xBB\xBFa\nb = 2\n", "byte order mark"),
            (INVALID_DATA, b"\xEF\xBB\xBFa = 1\nbad\\\n", "byte order mark"),
            (INVALID_DATA, "\ufeffa = 1\n".encode("utf-16-be"), "the file is UTF-16"),
            (INVALID_DATA, "a = 1\n".encode("utf-16"), "the file is UTF-16"),
            (REFUSED, "# words\na = 1\n", "pass --drop-comments"),
            (REFUSED, "a = 1\n! words", "pass --drop-comments"),
            (INVALID_VALUE, "k = 😀\n", 'key "k": "😀" has a character'),
            (INVALID_VALUE, "k = \x7f\n", " has a character"),
            (INVALID_VALUE, b"k = \xFF\n", " has a character"),
            *((INVALID_VALUE, b"k = x" + cut + b"\n", " has a character")
              for cut in (b"\x80", b"\xC1\x81", b"\xC3", b"\xC3x", b"\xE2\x82", b"\xE2x\x82",
                          b"\xE2\x82x", b"\xE0\x80\x80", b"\xE0\x9F\xBF")),
            (INVALID_VALUE, "k = 1\\u000a2\n", " has a line ending"),
            (INVALID_VALUE, "k = \\ x\n", 'key "k": " x" starts with whitespace'),
            (INVALID_VALUE, "a\\=b = x\n", 'invalid key "a=b"'),
        )
        for code, text, printed in rows:
            with self.subTest(text):
                self.given(text)
                self.expect_unchanged(code, printed, "java", self.java, "set", "new", "1")
        self.given("# words\na = 1\n")
        self.expect(DONE, "", "java", self.java, "set", "a", "2", "--drop-comments")
        self.assertEqual("#\na = 2\n", self.java_path.read_text())

    def test_set_refuses_keys_and_values_that_would_not_read_back(self):
        self.given("a = 1\n")
        for key in ("", " k", "#k", "!k", "a b", "a=b", "a:b", "a\\b", "a\tb", "a\nb"):
            with self.subTest(key):
                self.expect_unchanged(INVALID_VALUE, "invalid key ", "java", self.java, "set", key,
                                      "x")
        for value in (" x", "\tx", "x\ny", "x\r", "\x7f", "😀"):
            with self.subTest(value):
                self.expect_unchanged(INVALID_VALUE, f'zstz: {self.java}: key "k": ', "java",
                                      self.java, "set", "k", value)

    def test_every_character_of_two_or_three_bytes_reads_back(self):
        text = "".join(chr(c) for c in range(0x80, 0x10000) if not 0xD800 <= c < 0xE000)
        self.given(f"k = {text}\n")
        self.expect(DONE, "", "java", self.java, "set", "a", "1")
        self.assertNotIn(text[:3], self.java_path.read_text())
        self.expect(DONE, text + "\n", "java", self.java, "get", "k")

    def test_unusable_files_are_reported(self):
        missing = self.java + ".missing"
        for action in (["get", "a"], ["set", "a", "b"], ["list"], ["check"]):
            self.expect_unchanged(NO_ACCESS, f"zstz: {missing}: cannot open: No such", "java",
                                  missing,
                                  *action)
            self.expect_unchanged(NO_ACCESS, ": is a directory; give a regular file\n", "java",
                                  self.directory.name, *action)
        self.expect_unchanged(NO_ACCESS,
                              f"{self.directory.name}: is a directory; give a regular file",
                              "convert", self.file, "app", "--from", self.directory.name)
        unread = "/proc/self/mem"  # can be opened but not read
        self.expect(NO_ACCESS, f"{unread}: cannot read; check the disk", "java", unread, "list")
        self.given("ok = 1\nk = \\ud83d\n")
        with open(self.java, "r+b") as held:
            fcntl.lockf(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
            for options in (["--wait", "0"], []):
                self.expect(LOCKED, "locked by another process", "java", self.java, "list", *options)
            fcntl.lockf(held, fcntl.LOCK_UN)
            fcntl.lockf(held, fcntl.LOCK_SH | fcntl.LOCK_NB)
            self.expect(LOCKED, "locked by another process", "java", self.java, "set", "a", "1",
                        "--wait", "0")

    def test_concurrent_edits_are_all_stored(self):
        self.given("a = 1\n")
        runs = [subprocess.Popen([tool.TOOL, "java", self.java, "set", f"key{i}", "1"])
                for i in range(8)]
        self.assertEqual([DONE] * len(runs), [run.wait(HANGS) for run in runs])
        self.expect(DONE, "a = 1\n" + "".join(f"key{i} = 1\n" for i in range(8)), "java",
                    self.java, "list")

    # ---- convert ----

    def test_a_converted_stanza_converts_back(self):
        self.expect(DONE, "", "convert", self.file, "upstream", "--to", self.java)
        self.expect(DONE, "ready = Yes\nweight = 0x1F\n", "java", self.java, "list")
        self.expect(DONE, "", "convert", self.file, "copy", "--from", self.java)
        self.expect(DONE, "[copy]\nready = Yes\nweight = 0x1F\n", "list", self.file, "copy")
        self.expect_text(tool.GATEWAY + "\n[copy]\nready = Yes\nweight = 0x1F\n")

    def test_a_key_without_a_value_is_converted_both_ways(self):
        self.path.write_text("[s]\nk =\n")
        self.expect(DONE, "", "convert", self.file, "s", "--to", self.java)
        self.assertEqual("#\nk = \n", self.java_path.read_text())
        self.expect(DONE, "", "convert", self.file, "t", "--from", self.java)
        self.expect(DONE, "[t]\nk =\n", "list", self.file, "t")

    def test_convert_creates_a_file_and_accepts_an_empty_file(self):
        new = self.file + ".new"
        self.given("a = ü\n")
        self.expect_unchanged(NO_ACCESS, f"{new}: cannot open: No such file or directory; check the "
                              "path, or pass --create", "convert", new, "app", "--from", self.java)
        self.expect(DONE, "", "convert", new, "app", "--from", self.java, "--create")
        self.expect(DONE, "[app]\na = ü\n", "list", new)
        self.given("")
        self.expect(DONE, "", "convert", self.file, "empty", "--from", self.java)
        self.expect(DONE, "[empty]\n", "list", self.file, "empty")
        self.expect(DONE, "", "convert", self.file, "empty", "--to", self.java, "--overwrite")
        self.assertEqual("#\n", self.java_path.read_text())

    def test_convert_replaces_an_existing_target_only_with_overwrite(self):
        self.given("a = 1\n")
        self.expect_unchanged(REFUSED, f"zstz: {self.java}: the file exists; pass --overwrite",
                              "convert", self.file, "upstream", "--to", self.java)
        self.expect(DONE, "", "convert", self.file, "upstream", "--to", self.java, "--overwrite")
        self.expect_unchanged(REFUSED, "stanza [upstream] exists; pass --overwrite", "convert",
                              self.file, "upstream", "--from", self.java)
        self.given("a = 1\n")
        self.expect(DONE, "", "convert", self.file, "upstream", "--from", self.java, "--overwrite")
        self.expect(DONE, "[upstream]\na = 1\n", "list", self.file, "upstream")

    def test_an_overwritten_stanza_keeps_its_position_and_comments(self):
        self.path.write_text("# file\n\n# above a\n[a]\n# above k\nk = 1\nk = 2\nold = 1\n\n"
                             "# above b\n[b]\nk = 1\n")
        self.expect(DONE, "", "set", self.file, "a", "o", "--obfuscated", given="x")
        self.given("o = 4\nk = 3\n")
        self.expect(DONE, "", "convert", self.file, "a", "--from", self.java, "--overwrite")
        self.expect(DONE, "[a]\nk = 3\no = 4\n", "list", self.file, "a")
        text = self.path.read_text()
        lines = [line for line in text.split("\n") if line[:1] in ("#", "[")]
        self.assertEqual(["# file", "# above a", "[a]", "# above k", "# above b", "[b]"], lines[:6])

    def test_convert_refuses_to_write_a_stanza_over_its_own_file(self):
        self.path.write_text("[a]\nk = 1\n[b]\nk = 2\n")
        self.java_path.symlink_to(self.path)
        for path in (self.file, self.java):
            for direction in ("--to", "--from"):
                with self.subTest(path=path, direction=direction):
                    self.expect_unchanged(REFUSED, "is the same file as ", "convert", self.file,
                                          "a", direction, path, "--overwrite")

    def test_a_surrogate_pair_is_converted_to_one_character(self):
        self.given("face = \\ud83d\\ude00!\n")
        self.expect(DONE, "", "convert", self.file, "new", "--from", self.java)
        self.expect(DONE, "[new]\nface = 😀!\n", "list", self.file, "new")
        self.given("half = \\ud83d\n")
        self.expect_unchanged(INVALID_VALUE, 'cannot convert key "half" or its value', "convert",
                              self.file, "other", "--from", self.java)

    def test_convert_to_java_refuses_entries_that_would_not_read_back(self):
        rows = (
            (REFUSED, "k = 1\nk = 2\n", 'key "k" in [s] has 2 values, but a Java file'),
            (REFUSED, "k = 1\n# words\n", "has comments"),
            (INVALID_VALUE, "a b = 1\n", 'key "a b" in [s] is invalid in a Java file'),
            (INVALID_VALUE, "a:b = 1\n", 'key "a:b" in [s] is invalid in a Java file'),
            (INVALID_VALUE, "!k = 1\n", 'key "!k" in [s] is invalid in a Java file'),
            (INVALID_VALUE, "a\\b = 1\n", 'key "a\\b" in [s] is invalid in a Java file'),
            (INVALID_VALUE, "k = 😀\n", " has a character"),
            (INVALID_VALUE, "k = a\x7f\n", " has a character"),
            (INVALID_VALUE, "k = a\rb\n", " has a line ending"),
            (INVALID_VALUE, b"k = \xFF\n", 'cannot convert key "k" or its value'),
        )
        for code, text, printed in rows:
            with self.subTest(text):
                entry = text if isinstance(text, bytes) else text.encode()
                self.path.write_bytes(b"[s]\n" + entry)
                self.expect_unchanged(code, printed, "convert", self.file, "s", "--to", self.java)
        self.path.write_text("[s]\nother = 1\n")
        self.expect(DONE, "", "set", self.file, "s", "k", "--obfuscated", given="x")
        self.expect_unchanged(REFUSED, 'key "k" in [s] has obfuscated values', "convert", self.file,
                              "s", "--to", self.java)
        self.expect_unchanged(NOT_FOUND, "no stanza [t]; ", "convert", self.file, "t", "--to",
                              self.java)

    def test_comments_in_or_directly_above_a_stanza_belong_to_it(self):
        self.path.write_text("# file\n\n[a]\nk = 1\n\n# above b\n[b]\nk = 1\n\n"
                             "[c]\nk = 1\n# last\n")
        for stanza, has in (("a", False), ("b", True), ("c", True)):
            with self.subTest(stanza):
                self.expect(REFUSED if has else DONE, "has comments" if has else "", "convert",
                            self.file, stanza, "--to", self.java)
                self.java_path.unlink(missing_ok=True)
        self.expect(DONE, "", "convert", self.file, "b", "--to", self.java, "--drop-comments")

    def test_convert_from_java_refuses_entries_that_would_not_read_back(self):
        rows = (
            (INVALID_DATA, "a = 1\nbad\\\n", IGNORED),
            (INVALID_DATA, "a = 1", "the last line has no newline"),
            (REFUSED, "# words\na = 1\n", "pass --drop-comments"),
            (INVALID_VALUE, "a\\=b = 1\n", 'invalid key "a=b"'),
            (INVALID_VALUE, "a\\  = 1\n", 'invalid key "a "'),
            (INVALID_VALUE, "[a = 1\n", 'invalid key "[a"'),
            (INVALID_VALUE, "a = 1 \n", " starts or ends with whitespace"),
            (INVALID_VALUE, "a = \\ 1\n", " starts or ends with whitespace"),
            (INVALID_VALUE, "a = 1\\u000a2\n", 'invalid value of key "a"; '),
            (INVALID_VALUE, f"a = {'x' * 8190}\n", 'invalid value of key "a"; '),
            (INVALID_VALUE, b"a = \xFF\n", 'cannot convert key "a" or its value'),
        )
        for code, text, printed in rows:
            with self.subTest(text):
                self.given(text)
                self.expect_unchanged(code, printed, "convert", self.file, "s", "--from", self.java)
        self.given("a = ü\n")
        self.expect_unchanged(INVALID_VALUE, "set LC_ALL", "convert", self.file, "s", "--from",
                              self.java, environment={"LC_ALL": "C"})
        self.expect_unchanged(REFUSED, "is reserved", "convert", self.file,
                              "configuration-database", "--from", self.java)
        self.expect_unchanged(INVALID_VALUE, "invalid stanza name ", "convert", self.file, "a]",
                              "--from", self.java)

    def test_random_entries_convert_both_ways_or_are_refused(self):
        seed = random.randrange(1 << 30)
        choice = random.Random(seed)
        alphabet = "ab=:#!\\ \t'\"[]\r\x7f\x01üß€\uffff😀"
        taken = 0
        for _ in range(60):
            entries = {}
            for _ in range(choice.randrange(1, 4)):
                key = "".join(choice.choices(alphabet, [9] * 2 + [1] * 19,
                                             k=choice.randrange(1, 6)))
                value = "".join(choice.choices(alphabet, k=choice.randrange(6)))
                entries[key] = value
            self.path.write_text("[s]\n" + "".join(f"{k} = {v}\n" for k, v in entries.items()),
                                 newline="\n")
            before = self.run_tool("list", self.file)
            if before.returncode != DONE:
                continue
            with self.subTest(seed=seed, entries=entries):
                run = self.run_tool("convert", self.file, "s", "--to", self.java, "--overwrite")
                self.assertIn(run.returncode, (DONE, INVALID_VALUE, REFUSED), run.stderr)
                if run.returncode == DONE:
                    taken += 1
                    self.expect(DONE, "", "convert", self.file, "s", "--from", self.java,
                                "--overwrite")
                    after = self.run_tool("list", self.file)
                    self.assertEqual(sorted(before.stdout.split("\n")),
                                     sorted(after.stdout.split("\n")))
        self.assertGreater(taken, 3)

    # ---- Usage ----

    def test_wrong_command_lines_are_refused(self):
        self.given("a = 1\n")
        rows = (
            ["java"], ["java", self.java], ["java", self.java, "frob"], ["java", self.java, "get"],
            ["java", self.java, "set", "a"], ["java", self.java, "set", "a", "b", "c"],
            ["java", self.java, "get", "a", "b"], ["java", self.java, "list", "a"],
            ["java", "", "list"], ["convert", self.file, "s"], ["convert", self.file],
            ["convert", self.file, "s", "--from", self.java, "--to", self.java],
            ["convert", self.file, "s", "--from", ""], ["convert", self.file, "", "--to", "x"],
        )
        for arguments in rows:
            with self.subTest(arguments):
                self.expect_unchanged(USAGE, "--help", *arguments)


if __name__ == "__main__":
    tool.main()
