#!/usr/bin/env python3
"""Tests of the manual page zfleet(1) against the help of the tool.
usage: manual_test.py TOOL [unittest arguments]"""
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "tools/zfleet/zfleet.1"
TOOL = sys.argv.pop(1)

TEXT = PAGE.read_text()
VERBS = re.findall(r"^\.B ([a-z]+) \\f[IR]", TEXT, re.M)


def help_of(*words):
    """Returns the help of the tool, or of a verb; empty for an unknown verb."""
    run = subprocess.run([TOOL, *words, "--help"], capture_output=True, text=True, check=False)
    return run.stdout if run.returncode == 0 else ""


class ManualTest(unittest.TestCase):
    def test_the_page_has_the_verbs_of_the_tool(self):
        for verb in VERBS:
            self.assertNotEqual("", help_of(verb), verb)
        summary = help_of()
        verbs = set(re.findall(r"^  ([a-z]+) [A-Z]", summary, re.M))
        verbs.update(re.findall(r"\b([a-z]+) FILE", summary))
        self.assertEqual(verbs, set(VERBS))
        self.assertEqual(len(verbs), len(VERBS))

    def test_the_page_has_the_options_of_each_verb(self):
        text = re.sub(r"\\f[A-Z]", "", TEXT).replace("\\-", "-")
        for verb in VERBS:
            for option in re.findall(r"^  (?:-\w, )?(--[a-z-]+)", help_of(verb), re.M):
                if option != "--help":
                    self.assertRegex(text, rf"(?<![a-z-]){option}(?![a-z-])", verb)

    def test_the_page_has_no_unknown_options(self):
        known = {option for verb in VERBS for option in re.findall(r"--[a-z-]+", help_of(verb))}
        text = re.sub(r"\\f[A-Z]", "", TEXT).replace("\\-", "-")
        self.assertEqual(set(), set(re.findall(r"--[a-z][a-z-]*", text)) - known)

    def test_the_page_has_each_exit_code(self):
        codes = re.search(r"^exit(.*)\Z", help_of(), re.M | re.S)[1]
        for code in re.findall(r"(?:^|, )\s*(\d) ", codes):
            self.assertRegex(TEXT, rf"(?m)^{code}\t")

    @unittest.skipUnless(shutil.which("man"), "man is not installed")
    def test_the_page_has_no_warnings(self):
        run = subprocess.run(["man", "-l", "--warnings", PAGE], capture_output=True, text=True,
                             check=True)
        self.assertEqual("", run.stderr)


if __name__ == "__main__":
    unittest.main()
