#!/usr/bin/env python3
"""Tests of the manual pages zstz(1) and zstz-dialects(5), and of `zstz help`.
usage: manual_test.py TOOL [unittest arguments]"""
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

import tool
from tool import DONE, USAGE

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = ROOT / "tools/zstz"


def words_of(page):
    """Returns the text of a page without font changes and escapes."""
    text = (PAGES / page).read_text()
    return re.sub(r"\\f[A-Z]", "", text).replace("\\-", "-").replace("\\&", "")


class ManualTest(tool.ToolTest):
    def verbs(self):
        return self.run_tool("completion", "candidates", "--", "").stdout.split()

    def test_the_page_of_dialects_is_that_of_the_document(self):
        subprocess.run([sys.executable, ROOT / "tools/dev/dialects_page.py", "--check"], check=True)

    def test_the_page_of_dialects_spells_text_as_the_document_does(self):
        sys.path.insert(0, str(ROOT / "tools/dev"))
        import dialects_page  # pylint: disable=import-outside-toplevel,import-error
        for text, expected in (
                ("a  b", "a b"), ("it's **x** - y", r"it's x \- y"),
                ("`/tmp/a  b` is `a b`", r"\fB/tmp/a\ \ b\fR is \fBa b\fR"),
                ("`` ` `` and ` a`", r"\fB\(ga\fR and \fB\ a\fR"),
                ("<code>! &#124; ~ &amp; '</code>", r"\fB! | \(ti & \(aq\fR"),
                (r"`\${` &lt;", r"\fB\e${\fR <"), ("[a `b`](c.md)", r"a \fBb\fR")):
            with self.subTest(text=text):
                self.assertEqual(expected, dialects_page.inline(text))
        self.assertEqual([["h", "g"], ["`a|b`", "c"]],
                         dialects_page.rows_of(["| h | g |", "|---|---|", r"| `a\|b` | c |"]))
        self.assertEqual(r"\&.TH \(aqa\(aq \- \e", dialects_page.verbatim(".TH 'a' - \\"))
        tables = [[["Dialect", "A; b"], ["`x`", "1; 2"], ["`y`", "3"], ["all but `y`", "4; 5"]]]
        self.assertEqual([".SH DIALECTS", ".TP", r"\fBx\fR", "A: 1; 4.", ".br", "B: 2; 5.",
                          ".TP", r"\fBy\fR", "A; b: 3."], dialects_page.describe(tables))

    def test_the_page_of_dialects_has_an_entry_for_each_dialect(self):
        text = words_of("zstz-dialects.5")
        for name in self.run_tool("dialects").stdout.split():
            self.assertIn(f"\n.TP\n{name}\n", text)

    def test_the_page_of_the_tool_has_each_verb_and_option(self):
        text = words_of("zstz.1")
        for verb in self.verbs():
            if verb.startswith("-"):
                continue
            self.assertRegex(text, rf"(?m)^\.B {verb}\b", verb)
            for option in re.findall(r"--[a-z-]+", self.run_tool(verb, "--help").stdout):
                if option != "--help":
                    self.assertIn(option, text, verb)

    @unittest.skipUnless(shutil.which("man"), "man is not installed")
    def test_the_pages_have_no_warnings(self):
        for page in ("zstz.1", "zstz-dialects.5"):
            run = subprocess.run(["man", "-l", "--warnings", PAGES / page], capture_output=True,
                                 text=True, check=True)
            self.assertEqual("", run.stderr, page)

    def test_help_is_a_verb(self):
        self.expect(DONE, self.run_tool("--help").stdout, "help")
        for verb in self.verbs():
            if not verb.startswith("-"):
                self.expect(DONE, self.run_tool(verb, "--help").stdout, "help", verb)
        self.expect(USAGE, 'unknown command "none"', "help", "none")


if __name__ == "__main__":
    tool.main()
