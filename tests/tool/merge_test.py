#!/usr/bin/env python3
"""Tables of merge, and merge as a driver of git. usage: merge_test.py TOOL [unittest arguments]"""
import os
import resource
import shutil
import subprocess
import unittest

import tool
from tool import DIFFERS, DONE, INVALID_DATA, NO_ACCESS, REFUSED, USAGE

STOPS_GIT = 128
END = b">>>>>>> " + b"theirs"  # of a conflict

BASE = b"# c\n[a]\nk = 1\nl = 1\n"
OURS = b"# c\n[a]\nk  =  2\nl = 1\n"
THEIRS = b"[a]\nk = 1\nl = 3\n# new\nm = 4\n"
OTHER = b"[a]\nk = 5\nl = 1\n"
MERGED = b"[a]\nk  =  2\nl = 3\n# new\nm = 4\n"
CONFLICT = b"[a]\n<<<<<<< ours\nk  =  2\n=======\nk = 5\n" + END + b"\nl = 1\n"
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
    (["base", "ours", "bad"], b"bad:1:1: ", INVALID_DATA, None),
    (["-", "ours", "-"], b"only one file can be standard input", USAGE, None),
    (["base", "none", "theirs", "--path=x"], b"cannot open", STOPS_GIT + NO_ACCESS, None),
    (["base", "ours", "theirs", "--path=x", "--none"], b"--none", STOPS_GIT + USAGE, None),
    (["base", "ours", "--path=x"], b" is required", STOPS_GIT + USAGE, None),
    (["base", "none", "theirs"], b"none: cannot open", NO_ACCESS, None),
    (["base", "ours"], b" is required", USAGE, None),
]]


def of_dialect(dialect, base, ours, theirs, merged, code=DONE):
    """Returns a row of a merge in a dialect."""
    before = {"base": base, "ours": ours, "theirs": theirs}
    printed = b"" if code == DONE else b"ours: 1 conflict; edit the lines between the marks\n"
    return (f"{dialect} {base!r}", before,
            ["merge", "--dialect", dialect, "base", "ours", "theirs"], printed, code,
            {**before, "ours": merged})


UNIT = b"[Service]\nExecStart=/a\nX=1\n"
PEERS = b"[Peer]\nKey=a\nPort=1\n\n[Peer]\nKey=b\nPort=2\n"
PEER = b"\n[Peer]\nKey=c\nPort=3\n"

DIALECT_MERGE = [
    of_dialect("systemd", UNIT, UNIT.replace(b"X=1", b"X=2"),
               UNIT.replace(b"X", b"ExecStart=\nExecStart=/b\nX"),
               b"[Service]\nExecStart=/a\nExecStart=\nExecStart=/b\nX=2\n"),
    of_dialect("systemd", b"[S]\nk=a \\\n  b\nl=1\n", b"[S]\nk=a \\\n  b\nl=2\n",
               b"[S]\nk=a \\\n  c\nl=1\n", b"[S]\nk=a \\\n  c\nl=2\n"),
    of_dialect("networkd", PEERS, PEERS.replace(b"=1", b"=9"), PEERS.replace(b"=2", b"=8"),
               PEERS.replace(b"=1", b"=9").replace(b"=2", b"=8")),
    of_dialect("git", b"[A]\n\tk = 1 ; c\n\tl = 1\n", b"[a]\n\tK = 2 ; c\n\tl = 1\n",
               b"[A]\n\tk = 1\n\tL = 3\n", b"[a]\n\tK = 2 ; c\n\tl = 3\n"),
    of_dialect("php", b"; c\n[a]\nx=1\ny=1\nz=1\n", b"; c\n[a]\nx=1\ny=1\nz=2\n",
               b"; c\n[a]\nx=2\ny=1\nz=1\n", b"; c\n[a]\nx=2\ny=1\nz=2\n"),
    of_dialect("samba", b"[a]\nGuest OK = yes\npath = /a\n", b"[a]\nguestok = no\npath = /a\n",
               b"[A]\nGuest OK = yes\npath = /b\n", b"[a]\nguestok = no\npath = /b\n"),
    of_dialect("mysql", b"[a]\nskip-x\nk=1\n", b"[a]\nskip-x\nk=2\n", b"[a]\nskip-x\nk=1\nnew-option\n",
               b"[a]\nskip-x\nk=2\nnew-option\n"),
    of_dialect("python", b"[a]\nk: v\n   w\nl: 1\n", b"[a]\nk: v\n   w\nl: 2\n",
               b"[a]\nk: v\n   x\nl: 1\n", b"[a]\nk: v\n   x\nl: 2\n"),
    of_dialect("desktop", b"[a]\nName=x\nName[de]=y\n", b"[a]\nName=z\nName[de]=y\n",
               b"[a]\nName=x\nName[de]=w\n", b"[a]\nName=z\nName[de]=w\n"),
    of_dialect("kconfig", b"[A][B]\nk[$i]=1\nl=1\n", b"[A][B]\nk[$i]=2\nl=1\n", b"[A][B]\nk[$i]=1\nl=3\n",
               b"[A][B]\nk[$i]=2\nl=3\n"),
    of_dialect("ini", b"k = 1\n[a]\nl = 1\n", b"k = 2\n[a]\nl = 1\n", b"k = 1\nm = 3\n[a]\nl = 2\n",
               b"k = 2\nm = 3\n[a]\nl = 2\n"),
    of_dialect("sysctl", b"a.b = 1\na.c = 1\n", b"-a.b = 2\na.c = 1\n", b"a.b = 1\na.c = 3\n",
               b"-a.b = 2\na.c = 3\n"),
    of_dialect("env", b'A="x y"\nB=1\n', b'export A="x y"\nB=1\n', b"A='x y'\nB=3\n",
               b'export A="x y"\nB=3\n'),
    of_dialect("systemd", b"[S]\nk=1\n", b"[S]\nk=2\n",
               b"[S]\nk=1\n;  own\n\tl =  a \\\n# in\n  b\n\n[T] \nm=1\n",
               b"[S]\nk=2\n;  own\n\tl =  a \\\n# in\n  b\n\n[T] \nm=1\n"),
    of_dialect("systemd", b"[S]\nk=a \\\n# c\n b \\\n e\n", b"[S]\nk=a \\\n# c\n b \\\n e\nz=1\n",
               b"[S]\n# c\nk=a \\\n  e\n", b"[S]\n# c\nk=a \\\n  e\nz=1\n"),
    of_dialect("systemd", b"[S]\nk=a\nk=b\nz=1\n", b"[S]\nk=a\nk=b\nz=2\n",
               b"[S]\nk=a\nk=x \\\n  y\nk = c\nz=1\n", b"[S]\nk=a\nk=x \\\n  y\nk = c\nz=2\n"),
    of_dialect("git", b"[a]\n\tk = 1\n", b"[a]\r\n\tk = 2\r\n",
               b"[a]\n\tk = 1\n\tl=x ; c\n[b] m = 1\n", b"[a]\r\n\tk = 2\r\n\tl=x ; c\r\n\r\n[b]\r\n\tm = 1\r\n"),
    of_dialect("mysql", b"[a]\nk=1\n", b"[a]\nk=2\n", b"[a]\nk=1\n  skip-x # c\n",
               b"[a]\nk=2\n  skip-x # c\n"),
    of_dialect("php", b'[a]\nk = "1\n2"\n', b'[a]\r\nk = "1\n2"\r\nz = 1\r\n', b'[a]\nk = "1\n3"\n',
               b'[a]\r\nk = "1\n3"\r\nz = 1\r\n'),
    *[of_dialect(dialect, f"[s]\na=1\n[u]\nx=1\n{middle}# c\n[s]\nb=2\n".encode(),
                 f"[s]\na=9\n[u]\nx=1\n{middle}# c\n[s]\nb=2\n".encode(),
                 f"[s]\na=1\n[u]\nx=1\ny=2\n{middle}# c\n[s]\nb=3\n".encode(),
                 f"[s]\na=9\n[u]\nx=1\ny=2\n{middle}# c\n[s]\nb=3\n".encode())
      for dialect in ["git", "systemd", "desktop", "samba", "mysql", "kconfig", "ini", "editorconfig"]
      for middle in ["", "# u\n\n", "[t]\n# d\n", "# d\n# e\n", "# u\n\n# d\n", "[u]\n"]],
    of_dialect("git", b"[a]\n\tk = 1\n", b"[a]\n\tk = 2\n", b"[a]\n\tk = \"3\"\n",
               b"[a]\n<<<<<<< ours\n\tk = 2\n=======\n\tk = \"3\"\n>>>>>>> theirs\n", DIFFERS),
]


class MergeTest(tool.ToolTest):
    def test_merge(self):
        self.expect_rows(MERGE)

    def test_merge_keeps_obfuscated_values(self):
        self.path.write_text("[s]\nk=1\n")
        self.run_tool("set", self.file, "s", "p", "--obfuscated", given="secret\n")
        text = self.path.read_text()
        (self.path.parent / "base").write_text(text)
        (self.path.parent / "theirs").write_text("[s]\nk=2\n[configuration-database]\nfile=/x.obf\n")
        run = self.run_in_directory("merge", "base", self.file, "theirs")
        self.assertEqual((DONE, b"", b""), (run.returncode, run.stdout, run.stderr))
        self.expect_text(text.replace("k=1", "k=2"))
        self.expect(DONE, "secret\n", "get", self.file, "s", "p")

    def test_merge_in_dialects(self):
        self.expect_rows(DIALECT_MERGE)

    def test_the_name_of_the_path_or_else_of_ours_determines_the_dialect(self):
        versions = {"base": b"; c\n[a]\nk = 1\n", "x": b"; c\n[a]\nk = 1\n[b]\n",
                    "php.ini": b"; c\n[a]\nk = 1\n[b]\n", "theirs": b"; c\n[a]\nk = 2\n"}
        merged = b"; c\n[a]\nk = 2\n[b]\n"
        self.expect_rows([
            ("ours", versions, ["merge", "base", "php.ini", "theirs"], b"", DONE,
             {**versions, "php.ini": merged}),
            ("path", versions, ["merge", "base", "x", "theirs", "--path", "d/php.ini"], b"", DONE,
             {**versions, "x": merged}),
            ("neither", versions, ["merge", "base", "x", "theirs"], b"base:1:1: ", INVALID_DATA, None),
        ])

    def test_a_service_is_recognised_by_the_contents_of_ours(self):
        versions = {"base": b"[D-BUS Service]\nName=a\\sb\nUser=x\n",
                    "ours": b"[D-BUS Service]\nName=a b\nUser=x\n",
                    "theirs": b"[D-BUS Service]\nName=a\\sb\nUser=y\n"}
        self.expect_rows([("service", versions,
                           ["merge", "base", "ours", "theirs", "--path", "none/x.service"], b"", DONE,
                           {**versions, "ours": b"[D-BUS Service]\nName=a b\nUser=y\n"})])

    def test_merge_reads_the_pipes_of_a_shell(self):
        self.write_files(VERSIONS)
        script = f"'{tool.TOOL}' merge <(cat base) ours <(cat $0)"
        run = subprocess.run(["bash", "-c", script, "theirs"], cwd=self.directory.name, capture_output=True,
                             check=False, timeout=tool.HANGS)
        self.assertEqual((DONE, b"", b""), (run.returncode, run.stdout, run.stderr))
        self.assertEqual(MERGED, self.read_files()["ours"])

    def test_a_driver_merges_versions_that_cannot_be_read_by_line(self):
        bad = b"word\n[a]\nk = 1\nl = 1\nm = 1\nn = 1\n"
        good = bad.replace(b"word\n", b"")
        rows = [
            ("conflict", good, good.replace(b"k = 1", b"k = 2"), good.replace(b"k = 1", b"word"),
             DIFFERS, b"[a]\n<<<<<<< ours\nk = 2\n=======\nword\n" + END + b"\nl = 1\nm = 1\nn = 1\n"),
            ("no conflict, as unreadable as before", bad, bad.replace(b"k = 1", b"k = 2"),
             bad.replace(b"n = 1", b"n = 2"), DONE,
             bad.replace(b"k = 1", b"k = 2").replace(b"n = 1", b"n = 2")),
            ("no conflict, readable again", bad, bad.replace(b"word\n", b""),
             bad.replace(b"n = 1", b"n = 2"), DONE, good.replace(b"n = 1", b"n = 2")),
            ("no conflict, readable no longer", good, good.replace(b"n = 1", b"n = 2"),
             b"word\n" + good, DIFFERS, bad.replace(b"n = 1", b"n = 2")),
            ("without a last line ending", good, b"x\r\ny", b"z", DIFFERS,
             b"<<<<<<< ours\r\nx\r\ny\r\n=======\r\nz\r\n" + END + b"\r\n"),
        ]
        for name, base, ours, theirs, code, merged in rows:
            with self.subTest(name):
                self.write_files({"base": base, "ours": ours, "theirs": theirs})
                run = self.run_in_directory("merge", "base", "ours", "theirs", "--path=x")
                self.assertEqual((code, merged), (run.returncode, self.read_files()["ours"]))
                self.assertIn(b"so the versions are merged line by line", run.stderr)
                self.assertEqual(name == "no conflict, readable no longer",
                                 b"x: merged, but cannot be read; correct the reported line\n" == run.stdout)
                without_path = self.run_in_directory("merge", "base", "ours", "theirs")
                self.assertEqual(INVALID_DATA, without_path.returncode)

    def test_changed_bytes_that_are_not_read_are_not_lost(self):
        texts = [b"[a]\n\0k=%d\n" % number for number in (1, 2, 3)]
        for ours, code, merged in ((texts[0], DONE, texts[2]),
                                   (texts[1], DIFFERS, b"[a]\n<<<<<<< ours\n\0k=2\n=======\n\0k=3\n" +
                                    END + b"\n")):
            self.write_files({"base": texts[0], "ours": ours, "theirs": texts[2]})
            run = self.run_in_directory("merge", "base", "ours", "theirs")
            self.assertEqual((INVALID_DATA, ours), (run.returncode, self.read_files()["ours"]))
            self.assertIn(b": bytes after a zero byte have changed", run.stderr)
            run = self.run_in_directory("merge", "base", "ours", "theirs", "--path=x")
            self.assertEqual((code, merged), (run.returncode, self.read_files()["ours"]))

    def test_changed_lines_that_are_passed_over_are_not_lost(self):
        base = b"[a]\nk=1\nl=1\nm=1\n# c\n!includedir /x\n"
        ours = base.replace(b"k=1", b"k=2")
        for theirs in (base.replace(b"/x", b"/y"), base + b"!include /z\n",
                       base.replace(b"# c\n", b"# c\n# d\n"), base.replace(b"!includedir /x\n", b""),
                       base.replace(b"m=1", b"# m=1")):
            report = self.merged("mysql", base, ours, theirs, ours, INVALID_DATA)
            self.assertIn(b": lines that are passed over, or comments above them, have changed; ", report)
            both = theirs.replace(b"k=1", b"k=2")
            self.merged("mysql", base, ours, theirs, both, DONE, "--path=x")
            self.assertEqual(b"", self.merged("mysql", base, base, theirs, theirs))
            self.assertEqual(b"", self.merged("mysql", base, both, theirs, both))

    def merged(self, dialect, base, ours, theirs, after, code=DONE, *options):
        """Merges, and checks OURS and the exit code. Returns the report."""
        self.write_files({"base": base, "ours": ours, "theirs": theirs})
        run = self.run_in_directory("merge", "--dialect", dialect, "base", "ours", "theirs", *options)
        self.assertEqual((code, after), (run.returncode, self.read_files()["ours"]))
        return run.stderr

    def test_each_header_of_a_stanza_keeps_its_comments(self):
        base = b"# h\n[s]\na=1\n[u]\nx=1\n# c\n[s]\nb=2\n"
        ours = base.replace(b"a=1", b"a=9")
        for old, now in ((b"# c", b"# d"), (b"# c\n", b"# c\n# d\n"), (b"# c\n", b"# d\n# c\n"),
                         (b"# c\n", b""), (b"# h", b"# i"), (b"[u]", b"# new\n[u]")):
            theirs = base.replace(old, now)
            for dialect in ("git", "ini", "python"):
                self.expect_merge(dialect, base, ours, theirs, ours.replace(old, now))
                self.expect_merge(dialect, base, theirs, ours, ours.replace(old, now))
        # The comment above another header stays, too.
        base = b"[s]\na=1\n# of u\n[u]\nx=1\n# c\n[s]\nb=1\n"
        ours, theirs = base.replace(b"x=1", b"x=2"), base.replace(b"b=1", b"b=2\n# end")
        self.expect_merge("ini", base, ours, theirs, theirs.replace(b"x=1", b"x=2"))

    def test_a_merge_that_is_made_again_changes_nothing(self):
        self.expect_merge("editorconfig", b"; c\n[t]\nk = 1\n", b"# a\n; c\n[t]\nk = 1\n",
                          b"# b\n[t]\nk = 1\n", b"# a\n# b\n[t]\nk = 1\n")
        base = b"[u]\nk=1\n# a\n"
        self.expect_merge("mysql", base, b"[n]\nk=1\nk=2\n", base + b"# b\n", b"[n]\nk=1\nk=2\n# b\n")

    def expect_merge(self, dialect, base, ours, theirs, after):
        """Merges, and merges the result with each version again."""
        for first, second in ((ours, theirs), (after, theirs), (after, ours)):
            self.assertEqual(b"", self.merged(dialect, base, first, second, after))

    def test_a_merge_that_leaves_no_key_is_refused(self):
        ours, theirs = b"-a=1\n\njunk\n", b"\njunk\nc=2\n"
        report = self.merged("sysctl", b"-a=1\n\njunk\nc=2\n", ours, theirs, ours, REFUSED)
        self.assertIn(b"ours: both sides together leave neither a header nor a key", report)

    def test_a_large_merge_needs_little_memory(self):
        lines = [b"[main]\n"] + [b"key%06d = value%06d\n" % (i, i) for i in range(100000)]

        def changed(first):
            return b"".join(line[:-1] + b"x\n" if i % 997 == first else line
                            for i, line in enumerate(lines))
        self.write_files({"base": b"".join(lines), "ours": changed(1), "theirs": changed(2)})
        paths = [str(self.path.parent / name) for name in ("base", "ours", "theirs")]
        size = (self.path.parent / "base").stat().st_size
        limited = self.limited(resource.RLIMIT_DATA, 30 * size)
        self.assertEqual(DONE, self.run_tool("merge", *paths, **limited).returncode)
        self.assertEqual(202, sum(line.endswith(b"x\n") for line in
                                  self.read_files()["ours"].splitlines(keepends=True)))

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
            "<<<<<<< ours\nname = two\n=======\nname = one\n" + END.decode()))
        check = self.run_tool("check", self.file)
        self.assertEqual(INVALID_DATA, check.returncode)

    def test_an_invalid_version_loses_no_change(self):
        self.commit("word\n" + tool.GATEWAY.replace("0x1F", "7"), "one")
        self.commit(tool.GATEWAY.replace("front door", "two"), "two")
        self.git("merge", "-q", "one", code=1)
        self.expect_text("word\n" + tool.GATEWAY.replace("0x1F", "7").replace("front door", "two"))
        self.assertEqual("UU gateway.conf\n", self.git("status", "--short"))

    def test_files_of_several_dialects(self):
        directory = self.path.parent
        (directory / ".gitattributes").write_text("* merge=zstz\n")
        files = {"x.service": ("[Service]\nExecStart=/a\n", "X=1\n", "ExecStart=\nExecStart=/b\n"),
                 "php.ini": ("; c\n[a]\nx = 'it''s'\n", "y = 1\n", "z = 1\n"),
                 "smb.conf": ("[global]\nserver role = member\n", "Guest OK = yes\n", "path = /\n")}
        for name, (base, _, _) in files.items():
            (directory / name).write_text(base)
        self.git("add", ".")
        self.git("commit", "-q", "-m", "files")
        self.git("branch", "-f", "base")
        for branch, index in ("one", 1), ("two", 2):
            self.git("checkout", "-q", "-b", branch, "base")
            for name, parts in files.items():
                (directory / name).write_text(parts[0] + parts[index])
            self.git("commit", "-q", "-a", "-m", branch)
        self.git("merge", "-q", "one")
        for name, (base, first, second) in files.items():
            with self.subTest(name):
                self.assertEqual(sorted((base + first + second).splitlines()),
                                 sorted((directory / name).read_text().splitlines()))


if __name__ == "__main__":
    tool.main()
