#!/usr/bin/env python3
"""Tests of `zstz lint`, and of the errors and notes that other verbs share with it.
usage: lint_test.py TOOL [unittest arguments]"""
import json
import os
import pathlib
import subprocess
import unittest

import tool
from tool import DONE, GATEWAY, INVALID_DATA, LOCKED, NO_ACCESS, USAGE

NO_SIGN = 'neither a stanza header, a comment nor KEY = VALUE; add "=", or "#" at the start'
SPACING = 'write "key = value" and "[stanza]" without indentation'
DROPPED = ("has no value here but values elsewhere, and --normalise drops this line; remove it, or "
           "give it a value")
GIT, MYSQL, INI = (f"; reads as {name}; say --dialect {name}" for name in ("git", "mysql", "ini"))
MIXED = ("has lines with and without a value, and programs that expect one value use the last; write a "
         "value in each, or remove the others")
LONG = "the line exceeds 8190 bytes and would be split; shorten it or use a line per value"
ZERO = "the line has a zero byte and is ignored after it; remove the zero byte"

# Files before, arguments, output, exit code. Names of files in the output are relative, as the tool
# runs in their directory. No file may change.
ROWS = {
    "no problem": ({"a": b"# c\n\n[a]\nk = v\nk = w\nl =\n"}, ["a"], "", DONE),
    "an empty file": ({"a": b""}, ["a"], "", DONE),
    "every error": (
        {"a": b"k = v\n[a]\n  word\n= v\n[b\n[a]\n"}, ["a"],
        'a:1:1: "k = v": key before the first stanza; move it below a [stanza] header\n'
        f'a:3:3: "word": {NO_SIGN}\n'
        'a:4:1: "= v": no key before "="; add one\n'
        'a:5:3: "[b": no "]" after the stanza name; add it\n'
        'a:6:2: "[a]": duplicate stanza; merge it with the earlier one of that name\n',
        INVALID_DATA),
    "every note": (
        {"a": b"[a] x\r\n k = 1\nk =\n# c\r\nk = 2"}, ["a"],
        'a:1:5: note: the text after "]" is ignored, and --normalise drops it; remove it, or make it '
        "a comment line\n"
        f"a:2:1: note: --normalise changes the whitespace of this line; {SPACING}\n"
        f'a:3:1: note: key "k" {DROPPED}\n'
        "a:4:4: note: the line has CR LF at its end, and --normalise writes LF; convert the line "
        "endings\n"
        'a:5:1: note: key "k" has values in other lines, and --normalise moves this line up to them; '
        "move it there\n"
        "a:5:6: note: the last line has no newline, and --normalise adds it; add it\n", DONE),
    "errors and notes": (
        {"a": b"[a]\nk=v\nl=w\nword\n"}, ["a"],
        f"a:2:2: note: --normalise changes the whitespace of 2 lines, this one first; {SPACING}\n"
        f'a:4:1: "word": {NO_SIGN}{MYSQL}\n', INVALID_DATA),
    "zero bytes": (
        {"a": b"[a]\nk = v\0lost\nwo\0rd\n\0\n"}, ["a"],
        f'a:2:6: note: {ZERO}\na:3:3: "wo": {ZERO}\na:4:1: note: {ZERO}\n', INVALID_DATA),
    "long lines": (
        {"a": b"[a]\n" + b"#" * 9000 + b"\nk = " + b"v" * 9000 + b"\n"}, ["a"],
        f'a:2:8192: note: {LONG}\na:3:8192: "{"v" * 60}...": {LONG}{INI}\n', INVALID_DATA),
    "a byte order mark": (
        {"a": b"\xEF\xBB\xBF[a]\nk = v\nword\n"}, ["a"],
        'a:1:1: "\ufeff[a]": the file starts with a byte order mark; save it as UTF-8 without one\n'
        f'a:3:1: "word": {NO_SIGN}{GIT}\n', INVALID_DATA),
    "UTF-16": (
        {"a": "[a]\nk = v\n".encode("utf-16-le").join([b"\xFF\xFE", b""])}, ["a"],
        'a:1:1: "??[": the file is UTF-16; save it as UTF-8 without a byte order mark\n',
        INVALID_DATA),
    "characters that cannot be printed": (
        {"a": b"\x1b[31m\t\xFF\n"}, ["a"], f'a:1:1: "?[31m ?": {NO_SIGN}\n', INVALID_DATA),
    "columns are characters": (
        {"a": "[ä€😀".encode() + b"\n"}, ["a"],
        'a:1:5: "[ä€😀": no "]" after the stanza name; add it\n', INVALID_DATA),
    "several files": (
        {"a": b"x\n", "b": b"[b]\n", "c": b"[c]\n\ny\n"}, ["a", "b", "c"],
        f'a:1:1: "x": {NO_SIGN}\nc:3:1: "y": {NO_SIGN}{MYSQL}\n', INVALID_DATA),
    "only notes in several files": (
        {"a": b"[a]\n\n[b] \n", "b": b"[b]"}, ["a", "b"],
        f"a:3:4: note: --normalise changes the whitespace of this line; {SPACING}\n"
        "b:1:4: note: the last line has no newline, and --normalise adds it; add it\n", DONE),
    "a file with a companion that is missing": (
        {"a": b"word\n[configuration-database]\nfile = /none.obf\n"}, ["a"],
        f'a:1:1: "word": {NO_SIGN}\n'
        "a:3:8: cannot read the companion file /none.obf: it is missing or empty; restore it, or "
        "remove this line to give up its values\n", NO_ACCESS),
    "another dialect": (
        {"a": b"[a]\nk = v\nword\n; c\n"}, ["--dialect", "git", "a"], "", DONE),
    "an error in another dialect": (
        {"a": b"[a]\nk = \"v\n"}, ["--dialect", "git", "a"],
        'a:2:5: "k = "v": a quote is not closed; close it\n', INVALID_DATA),
    "a dialect by the name of the file": (
        {"setup.cfg": b"[a]\nk: v\n  w\n"}, ["setup.cfg"], "", DONE),
    "a name overruled": (
        {"setup.cfg": b"[a]\nk: v\n  w\n"}, ["--dialect", "stanza", "setup.cfg"],
        f'setup.cfg:2:1: "k: v": {NO_SIGN}\nsetup.cfg:3:3: "w": {NO_SIGN}; reads as python; '
        "say --dialect python\n", INVALID_DATA),
    "a file that only its own programs refuse": (
        {"php.ini": b"k = 5 # no\n"}, ["--dialect", "php", "php.ini"],
        'php.ini:1:9: "k = 5 # no": programs that read this format refuse the file: a word such as '
        '"no" is neither the whole value nor in quotes; correct the line\n', INVALID_DATA),
    "a key that has lines with and without a value": (
        {"a": b"[a]\nk=1\nj\nj\n k\n[b]\nk\n[A]\nK = 2\nK\n"}, ["--dialect", "git", "a"],
        f'a:5:2: note: key "k" {MIXED}\na:10:1: note: key "K" {MIXED}\n', DONE),
    "a key that has a line without a value first": (
        {"a": b"[a]\nk\nk=1\n"}, ["--dialect", "mysql", "a"], f'a:3:1: note: key "k" {MIXED}\n', DONE),
    "options": ({"a": b"x\n"}, ["--format", "plain", "--", "a"], f'a:1:1: "x": {NO_SIGN}\n',
                INVALID_DATA),
}


class LintTest(tool.ToolTest):
    def lint(self, *arguments, **options):
        return self.run_tool("lint", *arguments, cwd=self.path.parent, **options)

    def write(self, files):
        for path in self.path.parent.iterdir():
            path.unlink()
        for name, text in files.items():
            (self.path.parent / name).write_bytes(text)
        return self.directory_contents()

    def test_prints_every_problem(self):
        for name, (files, arguments, printed, code) in ROWS.items():
            with self.subTest(name):
                before = self.write(files)
                run = self.lint(*arguments)
                self.assertEqual((code, printed, ""), (run.returncode, run.stdout, run.stderr))
                self.assertEqual(before, self.directory_contents())

    def test_check_reports_what_only_programs_refuse(self):
        self.write({"php.ini": b"k = 5 # no\nj = 1\n"})
        run = self.run_tool("check", "--dialect", "php", "php.ini", cwd=self.path.parent)
        self.assertEqual((INVALID_DATA, "php.ini: 1 stanza, 2 keys, 2 values\n",
                          "zstz: " + ROWS["a file that only its own programs refuse"][2]),
                         (run.returncode, run.stdout, run.stderr))
        run = self.run_tool("get", "--dialect", "php", "php.ini", ".", "j", cwd=self.path.parent)
        self.assertEqual((DONE, "1\n", ""), (run.returncode, run.stdout, run.stderr))

    def test_json_has_an_object_per_line(self):
        self.write({"a": b"[a]\nk=v\n\xFF\"\\\x01\xC3\xA4\n", "b\xff".encode("latin-1").decode(
            "utf-8", "surrogateescape"): b"x\n"})
        run = self.lint("--format", "json", "a", os.fsdecode(b"b\xff"))
        self.assertEqual((INVALID_DATA, ""), (run.returncode, run.stderr))
        found = [json.loads(line) for line in run.stdout.splitlines()]
        self.assertEqual([
            {"file": "a", "line": 2, "column": 2, "kind": "note", "stanza": "", "key": "",
             "old": None, "new": None,
             "text": f"--normalise changes the whitespace of this line; {SPACING}"},
            {"file": "a", "line": 3, "column": 1, "kind": "error", "stanza": "a",
             "key": "", "old": None, "new": None,
             "text": f'"\udcff"\\\x01ä": {NO_SIGN}'},
            {"file": "b\udcff", "line": 1, "column": 1, "kind": "error", "stanza": "",
             "key": "", "old": None, "new": None, "text": f'"x": {NO_SIGN}'}], found)
        self.assertIn("\\udcff", run.stdout)
        self.assertEqual("", self.lint("--format", "json", "--", "/dev/null").stdout)

    def test_the_environment_selects_a_dialect(self):
        self.write({"a": b"[a]\nk: v\n"})
        for dialect, code, printed in (("python", DONE, ""), ("stanza", INVALID_DATA, "a:2:1: "),
                                       ("", INVALID_DATA, "a:2:1: "),
                                       ("none", USAGE, 'ZSTZ_DIALECT: unknown dialect "none"')):
            with self.subTest(dialect):
                run = self.lint("a", environment={"ZSTZ_DIALECT": dialect})
                self.assertEqual(code, run.returncode)
                self.assertIn(printed, run.stdout + run.stderr)

    def test_continues_after_a_file_that_cannot_be_read(self):
        pipe = self.path.parent / "pipe"
        os.mkfifo(pipe)
        (self.path.parent / "bad").write_text("x\n")
        self.path.write_text("[a]\nk=v\n")
        run = self.lint("none", ".", "pipe", "bad", self.file)
        self.assertEqual(NO_ACCESS, run.returncode)
        self.assertEqual(f'bad:1:1: "x": {NO_SIGN}\n{self.file}:2:2: note: --normalise changes the '
                         f"whitespace of this line; {SPACING}\n", run.stdout)
        self.assertEqual("zstz: none: cannot open: No such file or directory; check the path\n"
                         "zstz: .: is a directory; give a regular file\n"
                         "zstz: pipe: is a pipe; give a regular file\n", run.stderr)

    def test_an_unreadable_file_is_reported(self):
        options = self.as_nobody()
        self.path.chmod(0)
        if not options and os.access(self.path, os.R_OK):
            self.skipTest("this user can read any file")
        self.expect(NO_ACCESS, f"{self.file}: cannot open: Permission denied; check the path and",
                    "lint", self.file, **options)

    def test_a_file_that_another_process_stores_is_busy(self):
        holder = subprocess.Popen(
            ["python3", "-c", "import fcntl, sys; f = open(sys.argv[1], 'r+'); "
             "fcntl.lockf(f, fcntl.LOCK_EX); print('held', flush=True); sys.stdin.read()",
             self.file], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.assertEqual("held\n", holder.stdout.readline())
        self.expect(LOCKED, f"{self.file}: locked by another process; try again\n", "lint",
                    self.file)
        holder.communicate("")

    def test_wrong_usage_is_reported(self):
        rows = (([], "FILE is required"), (["--format", "xml", "a"], 'xml" is not plain or json'),
                ([""], "FILE"), (["--frob", "a"], "--frob"))
        for arguments, printed in rows:
            with self.subTest(arguments):
                self.expect_unchanged(USAGE, printed, "lint", *arguments)

    def test_output_to_a_full_disk_is_reported(self):
        self.path.write_text("x\n" * 5000)
        with open("/dev/full", "w") as full:
            run = subprocess.run([tool.TOOL, "lint", self.file], stdout=full, check=False,
                                 stderr=subprocess.PIPE, text=True, timeout=tool.HANGS)
        self.assertEqual((NO_ACCESS,
                          "zstz: standard output: cannot write; check its destination\n"),
                         (run.returncode, run.stderr))

    def test_agrees_with_check(self):
        for name, (files, arguments, _, code) in ROWS.items():
            if code == NO_ACCESS:
                continue  # check stops at the invalid line before the companion
            with self.subTest(name):
                self.write(files)
                for file in files:
                    if "--dialect" in arguments or file != "a":
                        continue
                    self.assertEqual(self.lint(file).returncode,
                                     self.run_tool("check", file, cwd=self.path.parent).returncode)

    def test_a_gateway_file_is_clean(self):
        self.assertEqual(GATEWAY, self.path.read_text())
        self.expect(DONE, "", "lint", self.file)


if __name__ == "__main__":
    tool.main()
