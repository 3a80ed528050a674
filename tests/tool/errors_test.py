#!/usr/bin/env python3
"""Tests of the errors of zstz on stanza files. usage: errors_test.py TOOL [unittest arguments]"""
import fcntl
import os
import pathlib
import resource
import subprocess
import unittest

import tool
from tool import DONE, GATEWAY, HANGS, INTERNAL, INVALID_DATA, LOCKED, NO_ACCESS


class ErrorsTest(tool.ToolTest):
    def test_invalid_data_is_reported_with_file_line_and_text(self):
        rows = (
            ("[a]\nk = v\n[b\n", 3, "[b", 'no "]" after'),
            ("[a]\n[b]\n  [a]  \n", 3, "[a]",
             "duplicate stanza; merge it with the earlier one of that name"),
            ("[a]\nno equals sign\n", 2, "no equals sign", "KEY = VALUE"),
            ("[a]\n= v\n", 2, "= v", 'no key before "="; add one'),
            ("\nk = v\n", 2, "k = v", "before the first stanza"),
            ("[a]\n\x1b[31mred\n", 2, "?[31mred", "KEY = VALUE"),
            ("\nHOME\t\t= .\n", 2, "HOME  = .", "before the first stanza"),
        )
        for text, number, line, reason in rows:
            self.path.write_text(text)
            for verb in ("check", "stanzas", "list"):
                with self.subTest(text=text, verb=verb):
                    self.expect_unchanged(INVALID_DATA, f"{self.file}:{number}:", verb, self.file)
                    self.expect_unchanged(INVALID_DATA, f': "{line}": ', verb, self.file)
                    self.expect_unchanged(INVALID_DATA, reason, verb, self.file)
        self.expect_unchanged(INVALID_DATA, self.file, "set", self.file, "a", "k", "v")

    def test_long_lines_zero_bytes_and_byte_order_marks_are_reported(self):
        rows = (
            (f"[a]\n\nk = {'x' * 9000}\n".encode(), 3, "x" * 60 + "...", "exceeds 8190 bytes"),
            (b"[a]\n" + b"k" * 9000 + b" = v\n", 2, "k" * 60 + "...", "exceeds 8190 bytes"),
            (f"[a]\nx = {'y' * 9000}\nq = 1\n".encode(), 2, "y" * 60 + "...",
             "exceeds 8190 bytes"),
            (b"[a]\n" + b"# " + b"c" * 8189 + b"\nq\n", 3, "q", "KEY = VALUE"),
            (b"\xEF\xBB\xBF[a]\nk = v\n", 1, None, "UTF-8 without one"),
            ("[a]\nk = v\n".encode("utf-16"), 1, None, "UTF-16"),
            (b"[a]\nk\0 = v\n", 2, "k", "zero byte"),
            (b"[a]\nk = v\n\xFF\xFE\n", 3, "??", "KEY = VALUE"),
            (b"q\n", 1, "q", "KEY = VALUE"),
            ("\ufeff[a]\n".encode("utf-16-be"), 1, None, "UTF-16"),
            (b"[a]\n" + b"\x80" * 70 + b"\n", 2, "...", "KEY = VALUE"),
            ("[a]\n".encode() + "ü".encode() * 40, 2, "ü" * 30 + "...", "KEY = VALUE"),
            (b"[a]\nx" + "ü".encode() * 40, 2, "x" + "ü" * 29 + "...", "KEY = VALUE"),
        )
        for data, number, line, reason in rows:
            self.path.write_bytes(data)
            with self.subTest(number=number, line=line, reason=reason):
                place = ": " if line is None else f': "{line}": '
                self.expect_unchanged(INVALID_DATA, place, "list", self.file)
                self.expect_unchanged(INVALID_DATA, f"{self.file}:{number}:", "list", self.file)
                self.expect_unchanged(INVALID_DATA, reason, "list", self.file)

    def test_every_verb_that_refuses_a_file_prints_all_errors(self):
        text = b"[a]\nx 1\nk = v\n[b\ny 2\n"
        remedy = 'neither a stanza header, a comment nor KEY = VALUE; add "=", or "#" at the start'
        expected = (f'zstz: f:2:1: "x 1": {remedy}\n'
                    'zstz: f:4:3: "[b": no "]" after the stanza name; add it\n'
                    f'zstz: f:5:1: "y 2": {remedy}\n')
        for arguments in (["get", "f", "a", "k"], ["list", "f"], ["stanzas", "f"], ["keys", "f", "a"],
                          ["check", "f"], ["set", "f", "a", "k", "w"], ["add", "f", "a", "k", "w"],
                          ["unset", "f", "a", "k"], ["rename", "f", "a", "c"], ["comment", "f", "x"],
                          ["fmt", "f"], ["diff", "f", "g"], ["diff", "g", "f"],
                          ["merge", "g", "f", "g"], ["convert", "f", "a", "--to", "j"]):
            self.write_files({"f": text, "g": b"[a]\n"})
            with self.subTest(arguments):
                run = self.run_in_directory(*arguments)
                self.assertEqual((INVALID_DATA, expected), (run.returncode, run.stderr.decode()))
                self.assertEqual({"f": text, "g": b"[a]\n"}, self.read_files())
        run = self.run_in_directory("set", "-", "a", "k", "w", given=text)
        self.assertEqual(expected.replace(" f:", " standard input:"), run.stderr.decode())
        self.write_files({"f": text.replace(b"[b\n", b"[b]\n"), ".gitconfig": b"[a]\nk = \\q\nj = \\q\n"})
        run = self.run_in_directory("list", ".gitconfig")
        self.assertEqual(["zstz: .gitconfig:2:5", "zstz: .gitconfig:3:5"],
                         [line[:20] for line in run.stderr.decode().splitlines()])

    def test_damaged_missing_and_empty_companions_are_reported(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="x")
        pathlib.Path(self.file + ".obf").write_bytes(b"no such stream")
        self.expect_unchanged(INVALID_DATA, f"zstz: {self.file}.obf: damaged companion file of "
                              f"{self.file}; restore it, or give up its values: remove the line "
                              f'"file = ..." of [configuration-database] from {self.file}\n',
                              "list", self.file)
        self.expect_unchanged(INVALID_DATA, f"zstz: {self.file}:15:8: damaged companion file "
                              f"{self.file}.obf; restore it, or remove this line to give up its "
                              "values\n", "check", self.file)
        pathlib.Path(self.file + ".obf").unlink()
        self.expect_unchanged(NO_ACCESS, f"{self.file}.obf: cannot read the companion file of "
                              f"{self.file}: No such file", "check", self.file)
        pathlib.Path(self.file + ".obf").write_bytes(b"")
        self.expect_unchanged(NO_ACCESS,
                              f"companion file of {self.file}: it is empty; restore it, or ",
                              "check", self.file)
        self.expect_unchanged(NO_ACCESS,
                              'restore it, or give up its values: remove the line "file = ..." '
                              f"of [configuration-database] from {self.file}\n", "list", self.file)

    def test_missing_files_and_directories_are_reported(self):
        missing = self.file + ".missing"
        directory = self.directory.name
        for verb, *rest in (("get", "a", "b"), ("set", "a", "b", "c"), ("add", "a", "b", "c"),
                            ("unset", "a", "b"), ("stanzas",), ("keys", "a"), ("list",),
                            ("check",)):
            with self.subTest(verb):
                remedy = ", or pass --create" if verb in ("set", "add", "unset") else ""
                self.expect_unchanged(NO_ACCESS,
                                      f"zstz: {missing}: cannot open: No such file or directory; "
                                      f"check the path{remedy}\n", verb, missing, *rest)
                self.expect_unchanged(NO_ACCESS, directory, verb, directory, *rest)

    def test_a_read_error_is_reported(self):
        unread = "/proc/self/mem"  # can be opened but not read
        self.expect(NO_ACCESS, f"{unread}: cannot read: Input/output error; check the disk", "list",
                    unread)
        self.expect(NO_ACCESS, f"{unread}: cannot read: Input/output error; give a", "hexdump",
                    unread)

    def test_pipes_directories_and_devices_are_refused(self):
        pipe = self.file + ".pipe"
        os.mkfifo(pipe)
        for path, kind in ((pipe, "a pipe"), (self.directory.name, "a directory"),
                           ("/dev/null", "not a regular file")):
            for verb, *rest in (("list",), ("set", "a", "b", "c")):
                with self.subTest(path=path, verb=verb):
                    self.expect(NO_ACCESS, f"zstz: {path}: is {kind}; give a regular file\n", verb,
                                path,
                                *rest)

    def test_missing_permissions_are_reported(self):
        options = self.as_nobody()
        self.path.chmod(0)
        for verb in (["list", self.file], ["set", self.file, "listener", "name", "x"]):
            self.expect(NO_ACCESS,
                        f"{self.file}: cannot open: Permission denied; check the path and", *verb,
                        **options)
        self.path.chmod(0o444)
        self.expect_unchanged(NO_ACCESS, f"{self.file}: cannot write: Permission denied", "set",
                              self.file, "listener", "name", "x", **options)
        self.path.chmod(0o644)
        self.path.parent.chmod(0o555)
        self.addCleanup(self.path.parent.chmod, 0o755)
        self.expect_unchanged(NO_ACCESS,
                              f"zstz: {self.directory.name}: cannot create the companion file of "
                              f"{self.file} here: Permission denied; check the permissions of the "
                              "directory\n", "set", self.file, "s", "password",
                              "--obfuscated", given="x", **options)
        self.expect(DONE, "", "set", self.file, "listener", "name", "back door", **options)
        self.expect_text(GATEWAY.replace("front", "back"))

    @unittest.skipUnless(os.geteuid() == 0, "needs files of two owners")
    def test_only_the_owner_can_create_a_companion(self):
        options = self.as_nobody()
        os.chown(self.file, 0, 0)
        self.path.chmod(0o666)
        self.expect_unchanged(NO_ACCESS,
                              f"zstz: {self.file}.obf: only the owner of {self.file} can "
                              "create its companion file; store the value as that user\n", "set",
                              self.file, "s", "password", "--obfuscated", given="x", **options)

    def test_a_companion_without_permissions_is_reported(self):
        options = self.as_nobody()
        stray = pathlib.Path(self.file + ".obf")
        stray.write_bytes(b"")
        os.chown(stray, self.path.stat().st_uid, -1)
        stray.chmod(0)
        self.expect(NO_ACCESS, f"zstz: {stray}: cannot use the companion file of {self.file}: "
                    "Permission denied; check its owner and permissions\n", "set", self.file, "s",
                    "password", "--obfuscated", given="x", **options)

    def test_exhausted_memory_is_reported(self):
        limited = self.limited(resource.RLIMIT_AS, 32 << 20)
        self.path.write_text("[a]\n" + "".join(f"k{i} = {'x' * 5000}\n" for i in range(6000)))
        for verb in (["stanzas", self.file], ["set", self.file, "a", "k", "v"],
                     ["java", self.file, "check"]):
            self.expect(INTERNAL, "zstz: out of memory; free some and try again\n", *verb,
                        **limited)

    def test_an_unreadable_companion_is_reported(self):
        options = self.as_nobody()
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="x",
                    **options)
        companion = pathlib.Path(self.file + ".obf")
        companion.chmod(0)
        self.expect(NO_ACCESS, f"zstz: {companion}: cannot read the companion file of {self.file}: "
                    "Permission denied; check its owner and permissions\n", "list", self.file,
                    **options)
        companion.unlink()
        for make, kind in ((os.mkdir, "a directory"), (os.mkfifo, "a pipe")):
            make(companion)
            self.expect(NO_ACCESS,
                        f"{companion}: cannot read the companion file of {self.file}: it is "
                        f"{kind}; restore it, or", "list", self.file, **options)
            os.rmdir(companion) if companion.is_dir() else companion.unlink()

    def test_a_file_moved_with_its_companion_gets_a_hint(self):
        self.expect(DONE, "", "set", self.file, "upstream", "password", "--obfuscated", given="x")
        moved = self.path.parent / "moved.conf"
        self.path.rename(moved)
        pathlib.Path(self.file + ".obf").rename(f"{moved}.obf")
        self.expect_unchanged(NO_ACCESS,
                              f"zstz: {self.file}.obf: cannot read the companion file of "
                              f"{moved}: No such file or directory; if {moved} was moved together "
                              f"with {moved}.obf, change the line \"file = ...\" of "
                              f"[configuration-database] to the path of {moved}.obf\n", "list",
                              str(moved))
        moved.write_text(moved.read_text().replace(f"{self.file}.obf", f"{moved}.obf"))
        self.expect(DONE, "x\n", "get", str(moved), "upstream", "password")

    def test_an_untrusted_companion_is_refused(self):
        os.mkdir(self.file + ".obf")
        self.expect_unchanged(NO_ACCESS,
                              f"zstz: {self.file}.obf: is a directory, but has the name of the "
                              f"companion of {self.file}; rename it and try again\n", "set",
                              self.file, "s", "password", "--obfuscated", given="x")
        os.rmdir(self.file + ".obf")
        self.path.write_text("[a]\nk = v\n[configuration-database]\nfile = /etc/passwd\n")
        self.path.chmod(0o666)
        self.expect_unchanged(NO_ACCESS, f"zstz: /etc/passwd: refused as the companion file of "
                              f"{self.file}: other users can write {self.file}, or no store has "
                              "created this file; check the owner and the mode of both, or remove ",
                              "list", self.file)
        self.expect_unchanged(NO_ACCESS,
                              'remove the line "file = ..." of [configuration-database] from '
                              f"{self.file}\n", "set", self.file, "a", "k", "w")

    def test_an_unrelated_file_with_the_name_of_the_companion_is_unchanged(self):
        other = pathlib.Path(self.file + ".obf")
        other.write_text("[other]\nk = v\n")
        for options in [], ["--replace"]:
            self.expect_unchanged(NO_ACCESS, f"zstz: {other}: is not a companion file, but has the "
                                  f"name of the companion of {self.file}; rename it and try "
                                  "again\n", "set",
                                  self.file, "listener", "password", "--obfuscated", *options,
                                  given="x")
        self.assertEqual("[other]\nk = v\n", other.read_text())
        other.rename(self.file + ".other")
        self.expect(DONE, "", "set", self.file, "listener", "password", "--obfuscated", given="x")

    def test_a_journal_without_permissions_is_reported(self):
        options = self.as_nobody()
        journal = self.path.parent / f".{self.path.name}.zjn"
        journal.write_bytes(b"journal")
        journal.chmod(0)
        for verb in (["list", self.file], ["set", self.file, "listener", "name", "x"]):
            self.expect(NO_ACCESS,
                        f"zstz: {journal}: cannot read this journal of an interrupted store; "
                        "do not remove it: ", *verb, **options)

    def test_replace_renames_a_new_file_over_the_old_file(self):
        self.path.chmod(0o640)
        before = self.path.stat()
        self.expect(DONE, "", "set", self.file, "listener", "name", "one")
        self.assertEqual(before.st_ino, self.path.stat().st_ino)
        for edit in (["set", self.file, "listener", "name", "two"],
                     ["add", self.file, "listener", "name", "three"],
                     ["unset", self.file, "listener", "name", "--all"]):
            with open(self.path, "rb") as reader:
                text = self.path.read_bytes()
                self.expect(DONE, "", *edit, "--replace")
                self.assertEqual(text, reader.read())
                # While it is open, the old file keeps its inode number from another use.
                after = self.path.stat()
                self.assertNotEqual(os.fstat(reader.fileno()).st_ino, after.st_ino)
            self.assertEqual((before.st_mode, before.st_uid), (after.st_mode, after.st_uid))
        self.assertEqual([self.path.name], os.listdir(self.path.parent))

    @unittest.skipUnless(os.geteuid() == 0, "needs files of two owners")
    def test_a_file_with_the_name_of_a_temporary_file_is_reported(self):
        options = self.as_nobody()
        directory = self.path.parent
        os.chown(directory, 0, 0)
        directory.chmod(0o1777)
        change = ["set", self.file, "listener", "name"]
        # Each edit is a change: a store without a change creates no file.
        for name, edit in ((".zjn", [*change, "a"]),
                           (".zjn.new", [*change, "b"]),
                           (".zjn.new", [*change, "c", "--replace"]),
                           (".new", [*change, "d", "--replace"]),
                           (".obf.new", ["set", self.file, "s", "password", "--obfuscated"])):
            with self.subTest(name=name, edit=edit):
                planted = directory / f".{self.path.name}{name}"
                planted.write_bytes(b"planted")
                self.expect_unchanged(NO_ACCESS,
                                      f"zstz: {planted}: has the name of a temporary file "
                                      f"for storing {self.file}; remove or rename it as its "
                                      "owner\n", *edit, given="x", **options)
                planted.unlink()
                self.expect(DONE, "", *edit, given="x", **options)

    @unittest.skipUnless(os.geteuid() == 0, "needs files of two owners")
    def test_an_unreadable_journal_of_another_user_is_reported(self):
        options = self.as_nobody()
        self.path.chmod(0o666)
        journal = self.path.parent / f".{self.path.name}.zjn"
        journal.write_bytes(b"another writer's")
        journal.chmod(0o600)
        for verb in ["list", self.file], ["set", self.file, "listener", "name", "x"]:
            self.expect_unchanged(NO_ACCESS,
                                  f"zstz: {journal}: cannot read this journal of an interrupted "
                                  "store; do not remove it: its owner or root must first change "
                                  f"{self.file} with zstz\n",
                                  *verb, **options)
        self.expect(DONE, "", "set", self.file, "listener", "name", "x")
        self.expect(DONE, "x\n", "get", self.file, "listener", "name", **options)

    @unittest.skipUnless(os.geteuid() == 0, "needs files of two owners")
    def test_replace_is_refused_without_the_permissions_for_it(self):
        options = self.as_nobody()
        directory = self.path.parent
        real = directory / "there" / "real.conf"
        real.parent.mkdir()
        self.path.rename(real)
        self.path.symlink_to(real)
        edit = ["set", self.file, "listener", "name", "x", "--replace"]
        os.chown(real.parent, 0, 0)
        self.expect_unchanged(NO_ACCESS,
                              f"zstz: {self.file}: cannot replace: cannot create a file in its "
                              "directory; leave out --replace, or check the permissions of the "
                              "directory\n", *edit, **options)
        real.parent.chmod(0o777)
        os.chown(real, -1, 0)
        self.expect_unchanged(NO_ACCESS,
                              f"zstz: {self.file}: cannot replace: a new file cannot get its "
                              "owner, group or attributes; leave out --replace, or run as "
                              "its owner or as root\n", *edit, **options)
        self.expect(DONE, "", *edit[:-1], **options)

    def test_replace_is_refused_for_a_mount_point(self):
        other = self.path.parent / "other.conf"
        other.write_text(GATEWAY)
        script = 'mount --bind "$1" "$2" || exit 99; exec "$0" set "$2" listener name x --replace'
        environment = dict(os.environ, LC_ALL="C.UTF-8")
        try:
            run = subprocess.run(["unshare", "-m", "sh", "-c", script, tool.TOOL, other, self.file],
                                 capture_output=True, text=True, check=False, timeout=HANGS,
                                 env=environment)
        except FileNotFoundError:
            self.skipTest("no program unshare")
        if run.returncode in (1, 99):
            self.skipTest("no mount allowed: " + run.stderr)
        self.assertEqual((NO_ACCESS, f"zstz: {self.file}: cannot replace: another file is mounted "
                          "there; leave out --replace\n"), (run.returncode, run.stderr))
        self.assertEqual([GATEWAY] * 2, [path.read_text() for path in (self.path, other)])

    def test_the_file_size_limit_is_reported(self):
        limited = self.limited(resource.RLIMIT_FSIZE, 64)
        for options in [], ["--replace"]:
            self.expect_unchanged(NO_ACCESS,
                                  ": File too large; check the file size limit (ulimit -f); "
                                  "a configuration file can have 1 GiB\n", "set", self.file,
                                  "listener", "name", "x" * 100, *options, **limited)

    def test_a_file_locked_by_another_process_is_reported(self):
        with open(self.path, "r+b") as held:
            fcntl.lockf(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
            self.expect(LOCKED, f"zstz: {self.file}: locked by another process; try again\n",
                        "list", self.file)
            self.expect(LOCKED, ": locked by another process; try again\n", "set", self.file,
                        "listener", "name", "x")
            fcntl.lockf(held, fcntl.LOCK_UN)
            fcntl.lockf(held, fcntl.LOCK_SH | fcntl.LOCK_NB)
            self.expect(DONE, "listener\nupstream\n", "stanzas", self.file)
            self.expect(LOCKED, ": locked by another process; try again\n", "set", self.file,
                        "listener", "name", "x")
        self.expect_text(GATEWAY)

    def test_concurrent_edits_are_all_stored(self):
        environment = dict(os.environ, LC_ALL="C.UTF-8")
        keys = [f"key{i}" for i in range(12)]
        runs = [subprocess.Popen([tool.TOOL, "set", self.file, "upstream", key, "1"],
                                 env=environment)
                for key in keys]
        self.assertEqual([DONE] * len(runs), [run.wait(HANGS) for run in runs])
        printed = self.run_tool("keys", self.file, "upstream").stdout.split()
        self.assertEqual(sorted(keys + ["weight", "ready"]), sorted(printed))

    def test_an_edit_lock_held_forever_is_reported(self):
        with open(self.file, "rb") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.expect(LOCKED, f"zstz: {self.file}: locked by another process; try again\n", "set",
                        self.file, "upstream", "weight", "9")
        self.expect(DONE, "", "set", self.file, "upstream", "weight", "9")

    def test_a_full_standard_output_is_reported(self):
        for arguments in (["list", self.file], ["--help"], ["set", "--help"], ["--version"]):
            with self.subTest(arguments), open("/dev/full", "w", encoding="utf-8") as full:
                run = subprocess.run([tool.TOOL, *arguments], stdout=full, stderr=subprocess.PIPE,
                                     text=True, check=False, timeout=HANGS)
                self.assertEqual(NO_ACCESS, run.returncode)
                self.assertIn("standard output", run.stderr)

    def test_hexdump_ends_if_its_output_is_full(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            run = subprocess.run([tool.TOOL, "hexdump", "/dev/zero"], stdout=full,
                                 stderr=subprocess.PIPE, text=True, check=False, timeout=HANGS)
        self.assertEqual((NO_ACCESS,
                          "zstz: standard output: cannot write; check its destination\n"),
                         (run.returncode, run.stderr))

    def test_closed_standard_descriptors_do_not_change_the_file(self):
        text = self.path.read_bytes()
        rows = (("list", ">&-", NO_ACCESS), ("list", ">&- 2>&-", NO_ACCESS),
                ("check", "<&- 2>&-", DONE), ("list", "<&- >&- 2>&-", NO_ACCESS))
        for verb, closed, code in rows:
            with self.subTest(verb=verb, closed=closed):
                run = subprocess.run(f'"{tool.TOOL}" {verb} "{self.file}" {closed}', shell=True,
                                     capture_output=True, check=False, timeout=HANGS)
                self.assertEqual(code, run.returncode)
                self.assertEqual(text, self.path.read_bytes())
        run = subprocess.run(f'"{tool.TOOL}" set "{self.file}" listener name --obfuscated <&-',
                             shell=True, capture_output=True, text=True, check=False, timeout=HANGS)
        self.assertEqual(NO_ACCESS, run.returncode)
        self.assertEqual("zstz: standard input: cannot read the value; pipe it in\n", run.stderr)


if __name__ == "__main__":
    tool.main()
