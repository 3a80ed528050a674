#!/usr/bin/env python3
"""Tests of `zstz comment --off` and `--on`. usage: comment_marks_test.py TOOL [unittest arguments]"""
import json
import re
import shlex

import tool
from tool import DONE, NOT_FOUND, REFUSED, USAGE

SMB = b"[homes]\n   path = /home/%S\n\n;[profiles]\n;   path = /home/samba/profiles\n"
SEVERAL = b"[s]\nk = 1\n\n# k = 2\n"


def row(dialect, before, options, after, code=DONE):
    """Returns a row of ToolTest.expect_rows(); `after` is the file or, after a failure, words of the
    report."""
    return (f"{dialect} {options} {before!r}", {"f": before},
            ["comment", "f", *options, "--dialect", dialect], b"" if code == DONE else after, code,
            {"f": after} if code == DONE else None)


def on(dialect, before, after, *options, code=DONE):
    return row(dialect, before, ["s", "k", "--on", *options], after, code)


def off(dialect, before, after, code=DONE, stanza="s"):
    return row(dialect, before, [stanza, "k", "--off"], after, code)


OFF = [
    off("env", b'export k="x"\nA=1\n', b'# export k="x"\nA=1\n', stanza="."),
    off("sysctl", b"j = 1\n  -k = 1\n", b"j = 1\n  # -k = 1\n", stanza="."),
    off("systemd", b"[s]\nk=a \\\n b\n", b"[s]\n# k=a \\\n # b\n"),
    off("systemd", b"[s]\nk=a \\\n; c\n b\n", b"[s]\n# k=a \\\n# ; c\n # b\n"),
    off("python", b"[s]\r\nk = a\r\n  b\r\nl = 1\r\n", b"[s]\r\n# k = a\r\n  # b\r\nl = 1\r\n"),
    off("python", b"[s]\nk = a\n\n  b\n", b"has an empty line in its value", REFUSED),
    off("python", b"[s]\nk = a\n\t\n  b\n", b"has an empty line in its value", REFUSED),
    off("python", b"[s]\nk = a\r\n \r\n  b\n", b"has an empty line in its value", REFUSED),
    # A comment below would be read as a line of the value.
    off("python", b"[s]\nk = a\n  # b\n", b"[s]\n## k = a\n  # b\n"),
    off("env", b"k='a\n \nb'\n", b"has an empty line in its value", REFUSED, stanza="."),
    off("env", b"k='a\nb'\nl=1\n", b"# k='a\n# b'\nl=1\n", stanza="."),
    off("git", b"[s] k = 1\n", b"is in the line of its header", REFUSED),
    off("git", b"[s]\n\tk\n", b"[s]\n\t# k\n"),
    off("mysql", b"[s]\nk\n", b"[s]\n# k\n"),
    off("kconfig", b"[s]\nk[$e]=v\n", b"[s]\n# k[$e]=v\n"),
    off("python", b"[s]\nj = 1\n  k = 2\n", b'no key "k"', NOT_FOUND),
    # The line below would continue another value.
    off("python", b"[s]\n j = 1\nk = 2\n  l = 3\n", b"[s]\n j = 1\n# k = 2\n  # l = 3\n"),
    off("systemd", b"[s]\n# k=2\nk=1\n", b"[s]\n# k=2\n## k=1\n"),
    off("stanza", b"[s]\r\n  k = 1\r\nj = 1\r\n  k = 2", b"[s]\r\n  ## k = 1\r\nj = 1\r\n  ## k = 2"),
    off("stanza", b"[s]\n### k = 1\nk = 2\n# k = 3\n", b"[s]\n### k = 1\n#### k = 2\n# k = 3\n"),
    off("systemd", b"[s]\nk=no\n# k=1 would be wrong\n", b"[s]\n## k=no\n# k=1 would be wrong\n"),
    off("systemd", b"[s]\n;k=1\nk=a \\\n b\n", b"[s]\n;k=1\n## k=a \\\n ## b\n"),
    # A backslash continues a comment, too.
    off("samba", b"[s]\nk = a \\\n b\nl = 1\n", b"[s]\n# k = a \\\n b\nl = 1\n"),
    off("samba", b"[s]\n  k = a,\\\r\n\tb,\\\r\nc", b"[s]\n  # k = a,\\\r\n\tb,\\\r\nc"),
    off("samba", b"[s]\nk = a \\\n# b \\\n# c\n", b"[s]\n## k = a \\\n# b \\\n# c\n"),
]

ON = [
    on("samba", SMB.replace(b"homes", b"s").replace(b"path", b"k"), b"no comment has a line of",
       code=NOT_FOUND),
    on("samba", b"[s]\n;   k = 1\n;[t]\n;   k = 2\nj = 1\n", b"[s]\n   k = 1\n;[t]\n;   k = 2\nj = 1\n"),
    on("stanza", SEVERAL.replace(b"k = 1", b"# k = 1"),
       b"f: 2 comments have a line of key \"k\" in [s], in lines 2 and 4; choose one with --nth, or pass "
       b"--all", code=REFUSED),
    on("stanza", SEVERAL.replace(b"k = 1", b"# k = 1"), SEVERAL, "--nth", "1"),
    on("stanza", SEVERAL.replace(b"k = 1", b"# k = 1"), b"[s]\n# k = 1\n\nk = 2\n", "--nth=2"),
    on("stanza", SEVERAL.replace(b"k = 1", b"# k = 1"), b"2 comments have a line of", "--nth", "3",
       code=NOT_FOUND),
    on("stanza", SEVERAL.replace(b"k = 1", b"# k = 1"), b"[s]\nk = 1\n\nk = 2\n", "--all"),
    on("stanza", b"[s]\n# k = 1\n# k = 2\n", b"[s]\nk = 1\nk = 2\n"),
    on("stanza", b"[s]\n## k = 1\nj = 1\n# k = 2\n## k = 3\n#k = 4\n",
       b"[s]\nk = 1\nj = 1\n# k = 2\nk = 3\n#k = 4\n"),
    on("stanza", b"[s]\n## k = 1\n# k = 2\n", b"[s]\n## k = 1\nk = 2\n", "--nth", "2"),
    on("systemd", b"[s]\n## k=a \\\n ## b\n# k=c\n", b"[s]\nk=a \\\n b\n# k=c\n"),
    on("samba", b"[s]\n# k = a \\\n b\nl = 1\n", b"[s]\nk = a \\\n b\nl = 1\n"),
    on("samba", b"[s]\n; k = a \\\n b \\\n c\n", b"[s]\nk = a \\\n b \\\n c\n"),
    on("samba", b"[s]\n# k = a \\\n # b\n", b"[s]\nk = a \\\n b\n"),
    on("samba", b"[s]\n## k = a \\\n# b\n", b"[s]\nk = a \\\n# b\n"),
    on("stanza", b"[s]\n##k = 1\n", b"no comment has a line of", code=NOT_FOUND),
    on("php", b"[s]\n;k=1\n;k=2\n", b"2 comments have a line of", code=REFUSED),
    on("ini", b"[s]\nk = 1\n# k = 2\n", b"exists, and of several lines only one is valid", code=REFUSED),
    on("systemd", b"[s]\nk=1\n# k=2\n", b"[s]\nk=1\nk=2\n"),
    on("git", b"[s]\n\t; K\n", b"[s]\n\tK\n"),
    on("mysql", b"[s]\n#k\n", b"[s]\nk\n"),
    on("kconfig", b"[s]\n# k[$e]=v\n", b"[s]\nk[$e]=v\n"),
    on("python", b"[s]\nj = 1\n#    k: 2\n", b"[s]\nj = 1\nk: 2\n"),
    on("ini", b"[s]\n# a k = 1\n", b"no comment has a line of", code=NOT_FOUND),
    on("systemd", b"[s]\n# k=a \\\n# ; c\n # b\n# d\n", b"[s]\nk=a \\\n; c\n b\n# d\n"),
    on("python", b"[s]\n# k = a\n  # b\n# k is deprecated\n", b"[s]\nk = a\n  b\n# k is deprecated\n"),
    on("python", b"[s]\n# k = a\n#   b\n", b"[s]\nk = a\n#   b\n"),
    on("networkd", b"[s]\n# k = 1\n[s]\n# k = 2\n", b"2 stanzas have the name [s]; use ", code=REFUSED),
    row("networkd", b"[s]\n# k = 1\n[s]\n# k = 2\n", ["s]2", "k", "--on"],
        b"[s]\n# k = 1\n[s]\nk = 2\n"),
    row("env", b"# k='a\n# b'\n# l=1\n", [".", "k", "--on"], b"k='a\nb'\n# l=1\n"),
    row("env", b"# export A=1\nB=1\n", [".", "A", "--on"], b"export A=1\nB=1\n"),
    row("stanza", b"[s]\nk = 1\n", ["s", "k", "x", "--nth", "1"], b"--nth needs --on", USAGE),
    row("stanza", b"[s]\nk = 1\n", ["s", "k", "--off", "--all"], b"--all needs --on", USAGE),
    on("stanza", b"[s]\n# k = 1\n", b"--nth: \"0\" is not a number from 1", "--nth", "0", code=USAGE),
]


class CommentMarksTest(tool.ToolTest):
    compared = 0  # keys that processes of their own have turned off and on

    def test_lines_become_comments(self):
        self.expect_rows(OFF)

    def test_comments_become_lines(self):
        self.expect_rows(ON)

    def test_comments_below_a_header_in_a_comment_become_lines(self):
        header = b"[s]\n"
        for dialect in ("stanza", "mysql", "ini", "git", "desktop", "networkd", "php"):
            mark = b";" if dialect == "php" else b"#"
            other = mark if dialect in ("stanza", "desktop") else b";"
            for top, stanza in ((b"", "."), (header, "s")):
                if stanza == "." and dialect in ("stanza", "git", "desktop", "networkd", "mysql"):
                    continue
                for above in (other + b" [old]\n", other + b"[old]\n\n", mark * 2 + b" [old]\n" + mark + b" x\n"):
                    with self.subTest(dialect=dialect, stanza=stanza, above=above):
                        text = mark + b" x\n" + top + above + b"k = 80\nl = 1\nm = 2\n\nn = 3\n"
                        self.write_files({"f": text})
                        self.assertEqual(DONE, self.check_key(dialect, text, stanza, "k"))
                        self.check_set(dialect, text, stanza, "k", b"k = 80\n")

    def check_set(self, dialect, text, stanza, key, line):
        """Checks that `set` places a new line of the key below its comment, as the only change."""
        file = self.path.parent / "f"
        self.assertEqual(DONE, self.comment(dialect, stanza, key, "--off")[0])
        commented = file.read_bytes()
        first = text.index(line)
        run = self.run_in_directory("set", "--dialect", dialect, "f", stanza, key, "81")
        self.assertEqual((DONE, b""), (run.returncode, run.stderr))
        end = commented.index(b"\n", first) + 1
        added = commented[:end] + line.replace(b"80", b"81") + commented[end:]
        self.assertEqual(added, file.read_bytes())

    def test_keys_below_a_header_in_a_comment_turn_on_in_any_order(self):
        text = b"[s]\n# [old]\nj = 1\nk = 2\nl = 3\n"
        for keys in ("jkl", "lkj", "kjl"):
            for back in ("jkl", "lkj", "kjl"):
                with self.subTest(keys=keys, back=back):
                    self.write_files({"f": text})
                    for key in keys:
                        self.assertEqual((DONE, ""), self.comment("ini", "s", key, "--off"))
                    for key in back:
                        self.assertEqual((DONE, ""), self.comment("ini", "s", key, "--on"))
                    self.assertEqual({"f": text}, self.read_files())

    def test_lines_below_repeated_headers_return(self):
        text = b"[s]\n\tk = 1\n[t]\n\tx = 1\n[s]\n\t# k = 3\n\tk = 2\n"
        self.write_files({"f": text})
        self.assertEqual(DONE, self.check_key("git", text, "s", "k"))
        self.assertEqual((DONE, ""), self.comment("git", "s", "k", "--off"))
        # The comment of the file is one of them.
        self.assertEqual((DONE, ""), self.comment("git", "s", "k", "--on", "--all"))
        self.assertEqual({"f": text.replace(b"# ", b"")}, self.read_files())

    def test_lines_without_a_meaning_in_a_value_return(self):
        for text in (b"[s]\nport   = no\nkey # c\n [a=b]\n", b"[s]\nport = 1\nx\n# y\n  2\nl = 1\n"):
            with self.subTest(text):
                self.write_files({"f": text})
                self.assertEqual(DONE, self.check_key("python", text, "s", "port"))

    def test_the_time_is_linear_in_the_lines_of_a_key(self):
        file = self.path.parent / "x.service"
        for mark, option in (("", "--off"), ("# ", "--on")):
            def prepare(count):
                file.write_text("[S]\n" + "".join(f"{mark}K={i}\n" for i in range(count)))
                return ("comment", str(file), "S", "K", option, "-n"), ""
            with self.subTest(option):
                self.expect_linear_time(10000, prepare)

    def test_a_value_of_too_many_lines_is_refused_at_once(self):
        for dialect, first, line in (("systemd", "k=0", " \\\n %d"), ("python", "k =", "\n  %d")):
            for count, code in ((1000, DONE), (1001, REFUSED), (20000, REFUSED)):
                text = "[s]\n" + first + "".join(line % i for i in range(count)) + "\n"
                self.write_files({"f": text.encode()})
                with self.subTest(f"{dialect} {count}"):
                    returned, report = self.comment(dialect, "s", "k", "--off")
                    self.assertEqual(code, returned)
                    self.assertEqual(code == REFUSED, "has more than 1001 lines in a value" in report)
                    if code == DONE:
                        self.assertEqual((DONE, ""), self.comment(dialect, "s", "k", "--on"))
                    self.assertEqual({"f": text.encode()}, self.read_files())

    def test_a_value_has_any_number_of_lines_where_comments_continue(self):
        text = b"[s]\nk = 0" + b"".join(b" \\\n %d" % i for i in range(20000)) + b"\nl = 1\n"
        self.write_files({"f": text})
        self.assertEqual((DONE, ""), self.comment("samba", "s", "k", "--off"))
        self.assertEqual({"f": text.replace(b"k =", b"# k =")}, self.read_files())
        self.assertEqual((DONE, ""), self.comment("samba", "s", "k", "--on"))
        self.assertEqual({"f": text}, self.read_files())

    def test_a_line_that_is_passed_over_does_not_become_a_part_of_a_value(self):
        for dialect, line in (("systemd", "x"), ("systemd,marks=;", "x"), ("systemd,marks=;", "# x")):
            text = f"[s]\n; k = a \\\n{line} \\\n y\nl = 1\n".encode()
            self.write_files({"f": text})
            with self.subTest((dialect, line)):
                self.assertEqual(REFUSED, self.comment(dialect, "s", "k", "--on")[0])
                self.assertEqual({"f": text}, self.read_files())

    def test_the_time_is_linear_in_the_comments_of_a_file(self):
        def prepare(count):
            self.path.write_text("[s]\n# k = 1\n" + "# words of a comment\n" * count)
            return ("comment", self.file, "s", "k", "--on", "-n", "--dialect", "python"), ""
        self.expect_linear_time(5000, prepare)

    def comment(self, dialect, stanza, key, *options):
        run = self.run_in_directory("comment", "--dialect", dialect, *options, "--", "f", stanza, key)
        return run.returncode, run.stderr.decode("utf-8", "surrogateescape")

    def check_key(self, dialect, text, stanza, key):
        """Turns a key off and on again. Returns the code of --off."""
        file = self.path.parent / "f"
        code, report = self.comment(dialect, stanza, key, "--off")
        if code == REFUSED:
            self.assertEqual(text, file.read_bytes(), report)
            return code
        self.assertEqual(DONE, code, report)
        commented = file.read_bytes()
        self.assertNotEqual(text, commented)
        code, report = self.comment(dialect, stanza, key, "--on")
        self.assertEqual((DONE, text), (code, file.read_bytes()), report)
        return DONE

    def restore_keys(self, dialect, text, keys):
        """Turns each key of a file off and on again, by one script. Returns the keys that are refused."""
        file = self.path.parent / "f"
        refused = []
        while keys:
            script = ""
            for words in keys:
                names = " ".join(map(shlex.quote, words))
                script += f"comment --off -- {names}\ncomment --on -- {names}\n"
            run = self.run_in_directory("edit", "--dialect", dialect, "f",
                                        given=script.encode("utf-8", "surrogateescape"))
            after = file.read_bytes()
            line = re.match(rb"zstz: standard input:(\d+): ", run.stderr)
            if run.returncode == REFUSED and after == text and line and int(line[1]) % 2 == 1:
                refused.append(keys.pop(int(line[1]) // 2))
                continue
            if (run.returncode, after, line) == (REFUSED, text, None):
                return refused + keys  # the file cannot be saved
            if (run.returncode, after, run.stderr) == (DONE, text, b""):
                break
            # The script has several keys: find the key with the fault.
            for words in keys:
                with self.subTest(stanza=words[0], key=words[1]):
                    self.write_files({"f": text})
                    self.assertEqual(DONE, self.check_key(dialect, text, *words))
            self.fail(f"{run}: {after!r}")
        return refused

    def test_every_key_of_every_sample_is_restored(self):
        counts = {DONE: 0, REFUSED: 0}
        for sample, dialect in tool.samples():
            with self.subTest(sample=sample.name):
                text = sample.read_bytes()
                self.write_files({"f": text})
                listed = self.run_in_directory("list", "f", "--format", "json", "--dialect", dialect)
                self.assertEqual(DONE, listed.returncode, listed.stderr)
                keys = [(stanza, key) for stanza, keys in json.loads(listed.stdout).items() for key in keys
                        if stanza and (stanza != "configuration-database" or dialect != "stanza")]
                refused = self.restore_keys(dialect, text, list(keys))
                counts[REFUSED] += len(refused)
                counts[DONE] += len(keys) - len(refused)
                # A script and a process of its own make the same change.
                for words in refused + keys[:sum(counts.values()) // 10 - self.compared]:
                    self.compared += words not in refused
                    self.write_files({"f": text})
                    self.assertEqual(REFUSED if words in refused else DONE,
                                     self.check_key(dialect, text, *words), words)
        print(counts)
        self.assertLess(counts[REFUSED], counts[DONE])


if __name__ == "__main__":
    tool.main()
