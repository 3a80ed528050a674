#!/usr/bin/env python3
"""Tests of `zstz fmt` on files of other dialects. usage: style_test.py TOOL [unittest arguments]"""
import tool
from tool import DIFFERS, DONE, REFUSED


def row(dialect, before, after):
    return (f"{dialect} {before!r}", {"f": before}, ["fmt", "f", "--dialect", dialect], b"", DONE,
            {"f": after})


ROWS = [
    row("systemd", b"# c  \n\n\n\n[s]  \nk = 1 \t\nl =\nlong = a \\ \n  b  \nm = a \\\n  b  \n",
        b"# c\n\n[s]\nk=1\nl=\nlong=a \\ \n  b  \nm=a \\\n  b\n"),
    row("systemd", b"[s]\nk=a \\\n# c  \n  b \t\n", b"[s]\nk=a \\\n# c\n  b\n"),
    row("python", b"[a]\nk:1\n\n\nl=  2\nm=\n  x  \n", b"[a]\nk = 1\n\nl = 2\nm =\n  x\n"),
    row("python", b"[a]\r\nk = 1  \r\n  2 \t\r\n\r\n  3  \r\nl = 1\r\n",
        b"[a]\r\nk = 1\r\n  2\r\n\r\n  3\r\nl = 1\r\n"),
    row("desktop", b"[a] \nName=x  \nJ =y\n", b"[a]\nName=x  \nJ=y\n"),
    row("git", b"[a] k=1  \n\tflag  \n\tj=\"a \" ; c \n", b"[a] k = 1\n\tflag\n\tj = \"a \" ; c\n"),
    row("env", b"A='a  \n b  '  \nB=2\n", b"A='a  \n b  '\nB=2\n"),
    row("git", b"[a]\n\tk = a \\\n b  ; c  \n", b"[a]\n\tk = a \\\n b  ; c\n"),
    row("samba", b"[a]\nk = a \\\n  b  \n", b"[a]\nk = a \\\n  b\n"),
    row("env", b"export A=1  \nB=2 # c \n", b"export A=1\nB=2 # c\n"),
    row("kconfig", b"[a]\nk[$e]  =  v\n", b"[a]\nk[$e]=v\n"),
    row("samba", b"[a]\r\n   k  =  v \r\n; c \\ \r\n", b"[a]\r\n   k = v\r\n; c \\ \r\n"),
    row("php", b"[a]\nk[]=1\nword  \n", b"[a]\nk[] = 1\nword  \n"),
    row("editorconfig", b"\xEF\xBB\xBF[*] \nk:v\n", b"\xEF\xBB\xBF[*]\nk = v\n"),
]


class StyleTest(tool.ToolTest):
    def test_fmt_puts_a_file_into_the_style_of_its_dialect(self):
        self.expect_rows(ROWS)

    def test_fmt_checks_the_style(self):
        self.expect_rows([
            ("same", {"smb.conf": b"[a]\nk = v\n"}, ["fmt", "smb.conf", "--check"], b"", DONE, None)])
        self.write_files({"smb.conf": b"[a]\nk=v\n"})
        run = self.run_in_directory("fmt", "smb.conf", "--check")
        self.assertEqual((DIFFERS, b"zstz: smb.conf: is not in the style of fmt; run 'zstz fmt smb.conf'\n"),
                         (run.returncode, run.stderr))

    def test_fmt_changes_no_name_value_or_comment_of_a_sample(self):
        count = 0
        for sample, dialect in tool.samples():
            if dialect == "stanza":
                continue
            with self.subTest(sample.name):
                text = sample.read_bytes()
                self.write_files({"f": text})
                options = ["--dialect", dialect]
                before = self.run_in_directory("list", "f", "--format", "json", *options)
                run = self.run_in_directory("fmt", "f", *options)
                after = (self.path.parent / "f").read_bytes()
                if run.returncode == REFUSED:
                    self.assertEqual(text, after)
                    continue
                self.assertEqual((DONE, b""), (run.returncode, run.stderr))
                listed = self.run_in_directory("list", "f", "--format", "json", *options)
                self.assertEqual(before.stdout, listed.stdout)
                self.assertEqual(DONE, self.run_in_directory("fmt", "f", "--check", *options).returncode)
                separators = bytes.maketrans(b":", b"=")
                self.assertEqual(b"".join(text.translate(separators).split()),
                                 b"".join(after.translate(separators).split()))
                count += 1
        print(count, "samples are formatted")
        self.assertLess(200 // tool.SHARE, count)


if __name__ == "__main__":
    tool.main()
