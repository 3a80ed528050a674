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
