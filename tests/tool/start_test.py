#!/usr/bin/env python3
"""What zstz loads when it starts. usage: start_test.py TOOL [unittest arguments]

Z_TEST_LOCALES is the directory of the locales that the tests of text use."""
import os
import pathlib
import re
import unittest

import tool
from tool import DONE

LOCALES = os.environ["Z_TEST_LOCALES"]
ICU = re.compile(r"libicu\w+\.so\.\d+")


class StartTest(tool.ToolTest):
    def setUp(self):
        super().setUp()
        program = pathlib.Path(tool.TOOL).read_bytes()
        if program.startswith(b"#!"):
            self.skipTest("an emulator has a linker of its own")

    def libraries(self, *arguments, **environment):
        """Runs the tool and returns the names of the libraries of ICU that it loads."""
        run = self.run_tool(*arguments, environment={"LD_DEBUG": "files", **environment})
        self.assertEqual(DONE, run.returncode, run.stderr)
        self.assertIn("libc.so", run.stderr)
        return sorted(set(ICU.findall(run.stderr)))

    def test_no_command_loads_icu_in_utf8_and_ascii(self):
        commands = [["get", self.file, "listener", "port"], ["list", self.file],
                    ["keys", self.file, "listener"], ["check", self.file],
                    ["set", self.file, "upstream", "weight", "3"],
                    ["get", self.file, "upstream", "ready", "--as", "boolean"]]
        for locale in ("C", "C.UTF-8"):
            for command in commands:
                with self.subTest(locale=locale, command=command[0]):
                    self.assertEqual([], self.libraries(*command, LC_ALL=locale))

    def test_text_of_other_codesets_is_read_with_icu(self):
        environment = {"LC_ALL": "ja_JP.EUC-JP", "LOCPATH": LOCALES}
        self.path.write_bytes(b"[a]\nk = \xA4\xA2\n")
        loaded = self.libraries("get", self.file, "a", "k", "--quiet", **environment)
        self.assertIn("libicuuc", " ".join(loaded))
        run = self.run_tool("get", self.file, "a", "k", environment=environment,
                            errors="surrogateescape")
        self.assertEqual((DONE, "\udca4\udca2\n", ""), (run.returncode, run.stdout, run.stderr))

    def test_a_library_that_cannot_be_loaded_is_reported(self):
        if tool.is_sanitized():
            self.skipTest("a sanitizer reports the call that ends the process")
        name = self.libraries("get", self.file, "listener", "port", LC_ALL="ja_JP.EUC-JP",
                              LOCPATH=LOCALES)
        library = next(found for found in name if found.startswith("libicuuc"))
        (self.path.parent / library).write_text("not a library")
        run = self.run_tool("get", self.file, "listener", "port", environment={
            "LC_ALL": "ja_JP.EUC-JP", "LOCPATH": LOCALES,
            "LD_LIBRARY_PATH": self.directory.name})
        self.assertEqual((127, ""), (run.returncode, run.stdout))
        self.assertRegex(run.stderr, rf"\Azstz: cannot load the codesets: .*{library}.*\n\Z")

    def test_numbers_have_a_decimal_point_in_every_locale(self):
        template = self.path.parent / "template"
        template.write_text("[a]\n# range: 0.25..0.75\n# k = 0.5\n")
        self.path.write_text("[a]\nk = 0.6\n")
        for environment in ({}, {"LC_ALL": "de_DE.ISO-8859-1", "LOCPATH": LOCALES}):
            self.expect(DONE, "", "lint", self.file, "--template", str(template),
                        environment=environment)


if __name__ == "__main__":
    tool.main()
