#!/usr/bin/env python3
"""Tests the statements of the documents. usage: docs_test.py BUILD-DIRECTORY C-COMPILER C++-COMPILER"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path()
COMPILER = {}


def blocks(language):
    """Returns the blocks of README.md in a language."""
    text = (ROOT / "README.md").read_text(encoding="utf-8")
    found = re.findall(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S)
    return [block for name, block in found if name == language]


def run_program(program, language, room, *flags):
    """Compiles a program and runs it in the directory `room`."""
    source = room / f"program.{language}"
    source.write_text(program, encoding="utf-8")
    libraries = [BUILD / "src" / "Z", BUILD / "src" / "qvr"]
    subprocess.run([COMPILER[language], *flags, "-pedantic-errors", "-Wall", "-Wextra", "-Werror",
                    f"-I{ROOT / 'src'}", f"-I{ROOT / 'src' / 'qvr'}", source, "-o",
                    room / "program", *(f"-L{folder}" for folder in libraries),
                    *(f"-Wl,-rpath,{folder}" for folder in libraries), "-lzfoundation-6.0",
                    "-lqvr"], check=True)
    environment = dict(os.environ, QVRDIR=str(ROOT / "src" / "qvr" / "tables"))
    return subprocess.run([room / "program"], cwd=room, env=environment, capture_output=True,
                          text=True, check=False)


class Readme(unittest.TestCase):
    def setUp(self):
        room = tempfile.TemporaryDirectory()
        self.addCleanup(room.cleanup)
        self.room = pathlib.Path(room.name)
        shutil.copy(ROOT / "examples" / "gateway.conf", self.room)

    def run_block(self, language, *flags):
        (program,) = blocks(language)
        run = run_program(program, language, self.room, *flags)
        self.assertEqual((0, ""), (run.returncode, run.stderr))
        return run.stdout

    def test_c_program(self):
        self.assertEqual("idle timeout: 30 s\n", self.run_block("c", "-std=c99"))
        self.assertIn("idle-timeout = 60\n", (self.room / "gateway.conf").read_text())

    def test_cpp_program(self):
        self.assertEqual("address = 0.0.0.0:8080\nidle-timeout = 30\n"
                         "certificate = portal.example.net\n", self.run_block("cpp", "-std=c++17"))
        self.assertIn("address = 0.0.0.0:8443\naddress = [::]:8443\n",
                      (self.room / "gateway.conf").read_text())

    def test_command_lines(self):
        shown = next(text for text in blocks("") if text.startswith("$ zstz"))
        tool = BUILD / "bin" / "zstz"
        for command, printed in re.findall(r"^\$ zstz (.*)\n((?:(?!\$).*\n)*)", shown, re.M):
            run = subprocess.run([tool, *command.split()], cwd=self.room, capture_output=True,
                                 text=True, check=True)
            self.assertEqual(printed, run.stdout, command)

    def test_every_verb_is_listed(self):
        listed = re.findall(r"^\| ((?:`[a-z]+`(?:, )?)+) \|", (ROOT / "README.md").read_text(), re.M)
        tool = BUILD / "bin" / "zstz"
        whole = subprocess.run([tool, "--help"], capture_output=True, text=True, check=True).stdout
        verbs = [word for word in sorted(set(re.findall(r"\b[a-z]+\b", whole)))
                 if subprocess.run([tool, word, "--help"], capture_output=True,
                                   check=False).returncode == 0]
        self.assertEqual(verbs, sorted(re.findall(r"`([a-z]+)`", " ".join(listed))))

    def test_the_two_commands_stand_in_the_first_screen(self):
        first = (ROOT / "README.md").read_text(encoding="utf-8").split("\n")[:25]
        for command in ("./dev run", "./dev test"):
            self.assertTrue(any(line.startswith(command) for line in first), command)


class Documents(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for path in [ROOT / "README.md", ROOT / "src" / "Z" / "README.md",
                     *sorted((ROOT / "docs").glob("*.md"))]:
            text = path.read_text(encoding="utf-8")
            for target in re.findall(r"\]\((?!http)([^)#]+)", text):
                self.assertTrue((path.parent / target).exists(), f"{path.name}: {target}")

    def test_folders_of_the_readme_exist(self):
        text = (ROOT / "README.md").read_text(encoding="utf-8")
        for folder in re.findall(r"^\| `([\w./]+/)` \|", text, re.M):
            self.assertTrue((ROOT / folder).is_dir(), folder)

    def test_every_dialect_has_its_rows(self):
        table = (ROOT / "src/Z/dialects/table.cpp").read_text(encoding="utf-8")
        rows = table.split("Row kRows[] = {")[1].split("\n};")[0]
        names = re.findall(r'^    \{"([a-z-]+)",', rows, re.M)
        self.assertIn("git", names)
        page = (ROOT / "docs/file-formats.md").read_text(encoding="utf-8")
        section = page.split("## Other dialects")[1].split("\n## ")[0]
        for name in names:
            found = re.findall(rf"^\|[^|]*`{name}`[^|]*\|", section, re.M)
            self.assertLessEqual(2, len(found), name)

    def test_files_that_documents_name_exist(self):
        paths = [path for folder in ("src", "tests", "tools", "examples")
                 for path in (ROOT / folder).rglob("*.*")]
        known = {"/" + path.relative_to(ROOT).as_posix() for path in paths}
        named = 0
        for page in [ROOT / "src" / "Z" / "README.md", ROOT / "src" / "qvr" / "README.md",
                     ROOT / "README.md", *(ROOT / "docs").glob("*.md")]:
            for name in re.findall(r"`([\w/]+\.(?:cpp|h|py|sh))`", page.read_text("utf-8")):
                if name not in ("X.h", "X.cpp"):
                    self.assertTrue(any(path.endswith("/" + name) for path in known),
                                    f"{page.name}: {name}")
                named += 1
        self.assertLess(40, named)

    def test_the_map_draws_every_use_of_a_private_directory(self):
        library = ROOT / "src" / "Z"
        drawn = (library / "map.svg").read_text(encoding="utf-8")
        directories = {path.name for path in library.iterdir() if path.is_dir()}
        uses = 0
        for path in [*library.rglob("*.h"), *library.rglob("*.cpp")]:
            user = path.parent.name + "/" if path.parent != library else path.stem
            for name in re.findall(r'^#include "(?:\.\./)?(\w+)/', path.read_text(), re.M):
                while name in directories and f"{user} includes {name}/" not in drawn:
                    user, tail, _ = user.rpartition("_")  # ZProperties_files belongs to ZProperties
                    self.assertTrue(tail, f"{path.name} includes {name}/")
                uses += 1
        self.assertLess(100, uses)

    def test_every_directory_of_tests_is_listed(self):
        table = re.findall(r"^\| `(\w+)/", (ROOT / "tests" / "README.md").read_text(), re.M)
        folders = {path.name for path in (ROOT / "tests").iterdir() if path.is_dir()}
        self.assertEqual(folders, set(table))

    def test_every_campaign_is_listed(self):
        campaigns = re.findall(r'^    \{"([^"]+)", \w+\},$',
                               (ROOT / "tests" / "multi" / "crash.cpp").read_text(), re.M)
        text = (ROOT / "tests" / "README.md").read_text(encoding="utf-8")
        self.assertLess(10, len(campaigns))
        for campaign in campaigns:
            self.assertIn(campaign.split(",")[0].split(" after")[0], text)

    def test_message_texts(self):
        rows = re.findall(r"^\| (\d+) \| `(.*)` \|$",
                          (ROOT / "docs" / "failures.md").read_text(encoding="utf-8"), re.M)
        pinned = re.findall(r"^(\d+)[ \t](.*)$",
                            (ROOT / "tests" / "data" / "messages.txt").read_text(encoding="utf-8"),
                            re.M)
        self.assertEqual(pinned, rows)

    def test_reports(self):
        text = (ROOT / "docs" / "failures.md").read_text(encoding="utf-8")
        shown = re.findall(r"^```\n(.*?)\n```$", text.split("## Reports\n")[1], re.M | re.S)
        program = """
            #include <Z/ZException.h>
            #include <Z/ZMessage.h>
            #include <Z/ZStanzaFileProperties.h>
            int main()
            {
                try {
                    ZStanzaFileProperties_6_0 const config("gateway.conf", 0);
                } catch (ZException_6_0& e) {
                    e.dumpException();
                }
                ZLCString_6_0 const rc("16");
                ZMessageService_6_0::messageService()->outputMessage(
                    "src/Z/ZLock", 58, 4, 1, &rc, nullptr, nullptr, nullptr, nullptr, nullptr);
            }"""
        with tempfile.TemporaryDirectory() as room:
            run = run_program(program, "cpp", pathlib.Path(room), "-std=c++17")
        threads = re.compile(r"^ Thread: -?\d+$", re.M)
        self.assertEqual(threads.sub("", "".join(shown) + "\n"), threads.sub("", run.stderr))

    def test_every_message_number_has_its_cause(self):
        text = (ROOT / "docs" / "failures.md").read_text(encoding="utf-8")
        classes = re.findall(r"^\| `Z\w+` \|[^|]*\|([^|]*)\|", text, re.M)
        uses = re.search(r"^\| No. \| Used \|\n\|---\|---\|\n((?:\|.*\n)+)", text, re.M)[1]
        reported, never = set(), set()
        for row, use in re.findall(r"^\| ([\d, ]+) \| (.*) \|$", uses, re.M):
            (never if use.startswith("never") else reported).update(map(int, row.split(", ")))
        raised = set()
        for row in classes:
            for first, last in re.findall(r"(\d+)(?:–(\d+))?", row):
                raised.update(range(int(first), int(last or first) + 1))
        messages = ROOT / "src" / "Z" / "reporting"
        numbers = re.search(r"^enum Message : int \{(.*?)\};",
                            (messages / "messages.h").read_text(encoding="utf-8"), re.M | re.S)[1]
        code = "".join(source.read_text(encoding="utf-8")
                       for source in (ROOT / "src" / "Z").rglob("*.cpp")
                       if source != messages / "messages.cpp")
        in_code = {int(number) for name, number in re.findall(r"(\w+) = (\d+)", numbers)
                   if re.search(rf"\b{name}\b", code)}
        bases = {39}  # the number of an exception that is only raised by what derives from it
        self.assertEqual(in_code - bases, raised | reported)
        self.assertEqual(set(), reported & raised)
        self.assertEqual(set(range(1, 55)) - {23} - in_code | bases, never)

    def test_every_failed_call_is_listed(self):
        header = (ROOT / "src" / "Z" / "files" / "io_error.h").read_text(encoding="utf-8")
        table = re.search(r"kCallNames\[\] = \{(.*?)\};", header, re.S)[1]
        text = (ROOT / "docs" / "failures.md").read_text(encoding="utf-8")
        rows = re.search(r"^\| Call \| While .*\n\|---.*\n((?:\|.*\n)+)", text, re.M)[1]
        listed = {call for row in rows.splitlines()
                  for call in re.findall(r"`(\w+\([\w+]*\))`", row.split("|")[1])}
        self.assertEqual(set(re.findall(r'"([^"]+)"', table)), listed)

    def test_every_exception_class_is_listed(self):
        header = (ROOT / "src" / "Z" / "ZException.h").read_text(encoding="utf-8")
        text = (ROOT / "docs" / "failures.md").read_text(encoding="utf-8")
        listed = set(re.findall(r"^\| `(Z\w+)` \|", text, re.M))
        abstract = {"ZException", "ZZException", "ZSharedLibraryException", "ZPropertiesException"}
        declared = set(re.findall(r"^class (Z\w+)_6_0\b(?! *;)", header, re.M)) - abstract
        self.assertEqual(declared, listed)

    def test_messages_of_each_exception_class(self):
        def numbers(text):
            found = set()
            for first, last in re.findall(r"(\d+)(?:[-–](\d+))?", text):
                found |= set(range(int(first), int(last or first) + 1))
            return found

        header = (ROOT / "src" / "Z" / "ZException.h").read_text(encoding="utf-8")
        text = (ROOT / "docs" / "failures.md").read_text(encoding="utf-8")
        compared = 0
        for comment, name in re.findall(r"((?:^//.*\n)+)^class (Z\w+)_6_0\b(?! *;)", header, re.M):
            comment = re.sub(r"\s*\n// ", " ", comment)
            row = re.search(rf"^\| `{name}` \| [^|]*\| ([^|]*)\|(.*)$", text, re.M)
            raised = re.search(r"\bMessages? \d[^;.]*", comment)
            if row and raised and "given to the constructor" not in row[1]:
                self.assertEqual(numbers(raised[0].split(", return")[0]), numbers(row[1]), name)
                compared += 1
            if row:
                self.assertEqual("the library does not throw it" in comment,
                                 row[2].startswith(" never: "), name)
        self.assertLess(25, compared)

    def test_every_return_code_is_listed(self):
        header = (ROOT / "src" / "Z" / "zproperties_c.h").read_text(encoding="utf-8")
        text = (ROOT / "docs" / "failures.md").read_text(encoding="utf-8")
        codes = re.search(r"enum ZPROPCode \{(.*?)\};", header, re.S)[1]
        self.assertEqual(re.findall(r"(zprop\w+) = (\d+)", codes),
                         [(name, code) for code, name in
                          re.findall(r"^\| (\d+) \| `(zprop\w+)` \|", text, re.M)])

    def test_every_package_has_its_reason(self):
        rows = re.findall(r"^\w+ +(\S+) +\S", (ROOT / "cmake" / "packages.txt").read_text(), re.M)
        text = (ROOT / "docs" / "dependencies.md").read_text(encoding="utf-8")
        table = "".join(line for line in text.splitlines() if line.startswith("|"))
        named = set(re.findall(r"`([a-z0-9.+:-]+)`", table)) - {"qvr.h", ".clang-format"}
        self.assertEqual(set(rows), named)


class Script(unittest.TestCase):
    """./dev, as far as it can be asked without building anything."""

    def dev(self, *arguments):
        run = subprocess.run([ROOT / "dev", *arguments], capture_output=True, text=True,
                             check=False, timeout=60)
        return run.returncode, run.stdout, run.stderr

    def test_every_verb_explains_itself(self):
        code, whole, errors = self.dev("help")
        self.assertEqual((0, ""), (code, errors))
        verbs = re.findall(r"^  ([a-z]+) ", whole, re.M)
        taken = re.findall(r"^    ([a-z]+)\) ?", (ROOT / "dev").read_text(encoding="utf-8"), re.M)
        self.assertLessEqual(set(verbs), set(taken))
        for verb in verbs:
            for asked in (["help", verb], [verb, "--help"], [verb, "-h"]):
                code, text, errors = self.dev(*asked)
                self.assertEqual((0, ""), (code, errors), asked)
                self.assertRegex(text, rf"^  {verb} ")
                self.assertIn(text, whole)
        for asked in ([], ["-h"], ["--help"]):
            self.assertEqual((0, whole, ""), self.dev(*asked), asked)

    def test_what_it_does_not_understand_is_one_line(self):
        targets = " ".join(re.findall(r"^z_fuzz\((\w+)", (ROOT / "fuzz/CMakeLists.txt").read_text(),
                                      re.MULTILINE))
        for asked, line in (
                (["juggle"], "no such verb: juggle; ./dev help lists them"),
                (["juggle", "--help"], "no such verb: juggle; ./dev help lists them"),
                (["help", "juggle"], "no such verb: juggle; ./dev help lists them"),
                (["run", "now"], "too many arguments, see ./dev help run"),
                (["test", "one", "two"], "too many arguments, see ./dev help test"),
                (["test", "-j4"], "test takes no options, see ./dev help test"),
                (["crash", "--all"], "crash takes no options, see ./dev help crash"),
                (["verbs", "juggle"], "no such verb: juggle; ./dev help lists them"),
                (["bench", "--benchmark_min_time=1"],
                 "give a PATTERN before the options; a dot matches every row"),
                (["bench", "--check", "--benchmark_min_time=1"],
                 "give a PATTERN before the options; a dot matches every row"),
                (["fuzz"], f"which target? there are: all {targets}"),
                (["fuzz", "juggler"], f"no target juggler; there are: all {targets}")):
            self.assertEqual((1, "", f"dev: {line}\n"), self.dev(*asked), asked)
        code, _, errors = self.dev("compilers", "juggler")
        self.assertEqual(1, code)
        self.assertRegex(errors, r"^dev: no compiler juggler; there are: gcc-12 .*unsigned-char\n$")


class NewModule(unittest.TestCase):
    """./dev new-module, in a copy of the sources."""

    def setUp(self):
        room = tempfile.TemporaryDirectory()
        self.addCleanup(room.cleanup)
        self.copy = pathlib.Path(room.name)
        for folder in ("src/Z", "tools/dev", "tests/unit"):
            shutil.copytree(ROOT / folder, self.copy / folder)

    def add(self, *arguments):
        script = self.copy / "tools" / "dev" / "new_module.py"
        return subprocess.run([sys.executable, script, *arguments], capture_output=True, text=True,
                              check=False)

    def files(self):
        return {path: path.read_bytes() for path in self.copy.rglob("*")
                if path.is_file() and path.suffix != ".pyc"}

    def modules(self):
        """Returns the number of modules, from a check without differences."""
        check = subprocess.run([sys.executable, self.copy / "tools" / "dev" / "map.py"],
                               capture_output=True, text=True, check=False)
        self.assertEqual((0, ""), (check.returncode, check.stderr))
        return int(check.stdout.split(" modules")[0])

    def test_new_module_agrees_with_the_map_and_compiles(self):
        before = self.modules()
        run = self.add("ZObjectRing", "collections", "keeps the last few objects put into it")
        self.assertEqual((0, ""), (run.returncode, run.stderr))
        self.assertEqual(before + 1, self.modules())
        programs = (self.copy / "tests/unit/CMakeLists.txt").read_text()
        self.assertIn("z_test(ZAdler32Test OBJECTS)\nz_test(ZObjectRingTest)\n", programs)
        for source in ("src/Z/ZObjectRing.cpp", "tests/unit/ZObjectRingTest.cpp"):
            subprocess.run([COMPILER["cpp"], "-std=c++20", "-Wall", "-Wextra", "-Werror",
                            "-fsyntax-only", f"-I{self.copy / 'src'}", f"-I{ROOT / 'src/qvr'}",
                            self.copy / source], check=True)

    def test_bad_arguments_are_refused_and_nothing_is_written(self):
        before = self.files()
        for arguments, problem in (
                (("ObjectRing", "collections", "x"), "is not a module name"),
                (("ZArray", "collections", "x"), "src/Z/ZArray.h exists already"),
                (("ZObjectRing", "rings", "x"), "choose one of root, text, collections")):
            with self.subTest(problem):
                run = self.add(*arguments)
                self.assertNotEqual(0, run.returncode)
                self.assertIn(problem, run.stderr)
        self.assertEqual(before, self.files())


class PlainFunctions(unittest.TestCase):
    """The page that lists the plain functions."""

    def test_each_function_is_listed_with_its_examples(self):
        header = (ROOT / "src" / "Z" / "zproperties_c.h").read_text(encoding="utf-8")
        functions = set(re.findall(r"^[\w* ]+\b(zstz\w+)_6_0\(", header, re.M))
        exports = (ROOT / "tests" / "abi" / "exports.txt").read_text(encoding="utf-8")
        self.assertEqual(set(re.findall(r"\b(zstz\w+)_6_0$", exports, re.M)), functions)
        examples = {path.name: path.read_text(encoding="utf-8")
                    for path in (ROOT / "examples").glob("*.c")}
        listed = set()
        page = (ROOT / "docs" / "plain-functions.md").read_text(encoding="utf-8")
        for row in re.findall(r"^\|[^|]*\|([^|]*)\|[^|]*\|([^|]*)\|$", page, re.M):
            names = set(re.findall(r"`(\w+)`", row[0]))
            if "`Set…`" in row[0]:
                names |= {name.replace("Get", "Set") for name in names}
            names = {name if name.startswith("zstz") else "zstzProp" + name for name in names}
            listed |= names
            called = {example: {name for name in names if name + "_6_0(" in examples[example]}
                      for example in re.findall(r"`([\w.]+)`", row[1])}
            self.assertTrue(all(called.values()), f"an example with none of its row: {called}")
            self.assertEqual(set(), names - set().union(*called.values()),
                             f"functions that no example of the row calls: {sorted(called)}")
        self.assertEqual(functions, listed)


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
    COMPILER["c"] = sys.argv.pop(1)
    COMPILER["cpp"] = sys.argv.pop(1)
    unittest.main()
