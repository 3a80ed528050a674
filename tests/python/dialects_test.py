"""Files in which not every line of a key counts, stanzas of one name, and templates."""

from __future__ import annotations

import pathlib
import subprocess
from collections.abc import Iterator
from typing import Any

import support
from support import PackageTest, zf


def ini(text: str, dialect: str = "ini") -> zf.Stanza:
    return zf.loads(text, dialect=dialect)["s"]


class TopStanza(PackageTest):
    """The part above the first header."""

    def test_it_exists_without_keys(self) -> None:
        for dialect, text, after in (
            ("env", "", "A=1\n"),
            ("sysctl", "", "A = 1\n"),
            ("ini", "", "A = 1\n"),
            ("ini", "[s]\nk=1\n", "A=1\n[s]\nk=1\n"),
        ):
            with self.subTest(dialect, text=text):
                conf = zf.loads(text, dialect=dialect)
                top = conf["."]
                self.assertEqual({}, dict(top))
                self.assertEqual(0, len(top))
                self.assertNotIn("A", top)
                self.assertNotIn(".", conf)
                with self.assertRaises(zf.NotFound):
                    top["A"]
                with self.assertRaises(zf.NotFound):
                    del top["A"]
                self.assertEqual(text, conf.text())
                top["A"] = "1"
                self.assertEqual(after, conf.text())
                for change in (lambda s: s.set("A", ["1"]), lambda s: s.add("A", "1")):
                    conf = zf.loads(text, dialect=dialect)
                    change(conf["."])
                    self.assertEqual(after, conf.text())

    def test_other_dialects_have_none(self) -> None:
        for dialect in ("stanza", "systemd", "python"):
            with self.subTest(dialect), self.assertRaises(zf.NotFound):
                zf.loads("[s]\nk=1\n", dialect=dialect)["."]


class Refusals(PackageTest):
    """Changes that only text() and save() can refuse: they depend on other lines."""

    def test_message_names_the_key(self) -> None:
        conf = zf.loads("[a]\nk=1 ;c\n", dialect="git")
        conf["a"].set("k", [])
        with self.assertRaises(zf.Refused) as caught:
            conf.text()
        self.assertEqual(
            "key 'k' in [a]: its line would not be read back with this value", str(caught.exception)
        )

    def test_message_without_a_key(self) -> None:
        conf = zf.loads("[n]\nk=1\n", dialect="ini")
        conf.rename("n", ".")
        with self.assertRaisesRegex(zf.Refused, r"^stanza \[\.\]: a line would not be read back$"):
            conf.text()


class Values(PackageTest):
    """Changes of keys with ignored lines."""

    def changed(self, dialect: str, before: str, value: str) -> str:
        conf = zf.loads(before, dialect=dialect)
        conf["s"]["k"] = value
        self.assertEqual(value, conf["s"]["k"])
        return conf.text()

    def test_assignment_keeps_lines_that_do_not_count(self) -> None:
        for dialect, before, after in (
            ("ini", "[s]\nk=1\n; note\nk=2\n", "[s]\nk=1\n; note\nk=3\n"),
            ("windows", "[s]\nk=1\nk=2\n", "[s]\nk=3\nk=2\n"),
            ("systemd", "[s]\nk=1\nk=\n# second\nk=2\n", "[s]\nk=1\nk=\n# second\nk=3\n"),
            ("systemd", "[s]\nk=1\nk=\n", "[s]\nk=1\nk=\nk=3\n"),
        ):
            with self.subTest(dialect, before=before):
                self.assertEqual(after, self.changed(dialect, before, "3"))

    def test_assignment_to_several_values_that_count_is_refused(self) -> None:
        for dialect, text in (
            ("git", "[s]\nk=1\nk=2\n"),
            ("systemd", "[s]\nk=1\nk=\nk=2\nk=3\n"),
            ("php", "[s]\nk[]=1\nk[]=2\n"),
        ):
            with self.subTest(dialect):
                conf = zf.loads(text, dialect=dialect)
                key = "k[]" if dialect == "php" else "k"
                with self.assertRaisesRegex(zf.Refused, "has 2 values; use set"):
                    conf["s"][key] = "9"
                self.assertEqual(text, conf.text())

    def test_added_line_that_would_not_count_is_refused(self) -> None:
        for dialect in ("ini", "windows", "desktop", "python"):
            with self.subTest(dialect):
                stanza = ini("[s]\nk=7\n", dialect)
                with self.assertRaisesRegex(zf.Refused, "only one of its lines would count"):
                    stanza.add("k", "8")
                self.assertEqual(["7"], stanza.all("k"))

    def test_removed_value_is_one_that_counts(self) -> None:
        stanza = ini("[s]\nk=1\nk=\nk=1\nk=2\n", "systemd")
        stanza.remove("k", "1")
        self.assertEqual(["2"], stanza.all("k"))
        self.assertEqual(["1", "", "2"], [*stanza.all_raw("k")])
        with self.assertRaises(zf.NotFound):
            stanza.remove("k", "1")

    def test_index_counts_every_line_and_starts_with_the_value_that_counts(self) -> None:
        stanza = ini("[s]\nk=x\nk='bad'\n")
        self.assertEqual("'bad'", stanza["k"])
        self.assertEqual("'bad'", stanza.raw("k"))
        self.assertEqual(["x", "'bad'"], stanza.all_raw("k"))
        self.assertEqual((3, 2, 3), (stanza.line("k"), stanza.line("k", 0), stanza.line("k", 1)))
        self.assertEqual(range(1, 2), stanza.indexes("k"))
        with self.assertRaisesRegex(zf.NotFound, "has 2 values"):
            stanza.raw("k", 2)
        with self.assertRaises(zf.InvalidValue) as caught:
            stanza.int("k")
        self.assertEqual(3, caught.exception.line)
        stanza.set_raw("k", None, "9")
        self.assertEqual(["x", "9"], stanza.all_raw("k"))
        stanza.set_raw("k", 0, "y")
        self.assertEqual(["y", "9"], stanza.all_raw("k"))
        first = ini("[s]\nk=x\nk=y\n", "windows")
        self.assertEqual(("x", 2), (first.raw("k"), first.line("k")))

    def test_indexes_are_those_of_all_values_that_count(self) -> None:
        stanza = ini("[s]\nk=1\nk=\nk=2\nk=3\n", "systemd")
        found = [stanza.raw("k", index) for index in stanza.indexes("k")]
        self.assertEqual(stanza.all("k"), found)
        self.assertEqual("3", stanza.raw("k"))
        with self.assertRaises(zf.NotFound):
            stanza.indexes("none")

    def test_option_without_a_value_is_true(self) -> None:
        for dialect in ("git", "mysql"):
            with self.subTest(dialect):
                stanza = ini("[s]\nk\nl=no\nm=\n", dialect)
                self.assertIs(True, stanza.bool("k"))
                self.assertIs(True, stanza.bool("k", default=False))
                self.assertIs(False, stanza.bool("l"))
                self.assertIsNone(stanza.bool("m", default=None))
        with self.assertRaises(zf.NotFound):
            ini("[s]\nk =\n", "stanza").bool("k")

    def test_key_can_be_renamed_to_another_case_of_itself(self) -> None:
        conf = zf.loads("[core]\n\tcase = 1\n\tother = 2\n", dialect="git")
        with self.assertRaises(zf.Refused):
            conf["core"].rename("case", "OTHER")
        self.assertEqual("1", conf["CORE"]["Case"])


class FoldedNames(PackageTest):
    """Names that differ as text, and are the same in the dialect."""

    FOLDED = (
        ("samba", "[s]\n# c\nPort  = 1\nl = 2\n", "S", "PO RT"),
        ("windows", "[s]\n; c\nPort  = 1\nl = 2\n", "S", "PORT"),
        ("python", "[s]\n# c\nPort  = 1\nl = 2\n", "s", "PORT"),
        ("mysql", "[s]\n# c\nPo-rt  = 1\nl = 2\n", "s", "Po_rt"),
    )

    def test_assigned_contents_keep_the_lines_of_keys_in_another_spelling(self) -> None:
        for dialect, text, stanza, key in self.FOLDED:
            with self.subTest(dialect):
                conf = zf.loads(text, dialect=dialect)
                conf[stanza] = {key: "1"}
                self.assertEqual(text.replace("l = 2\n", ""), conf.text())
                conf[stanza] = {key: "3", "m": "4"}
                self.assertEqual(
                    text.replace("= 1", "= 3").replace("l = 2", "m  = 4"), conf.text()
                )

    def test_two_spellings_of_a_key_are_refused(self) -> None:
        for dialect, text, stanza, key in self.FOLDED:
            with self.subTest(dialect):
                conf = zf.loads(text, dialect=dialect)
                first = next(iter(conf["s"]))
                with self.assertRaises(zf.InvalidValue) as caught:
                    conf[stanza] = {first: "5", "n": "6", key: "7"}
                self.assertIn(f"{first!r} and {key!r}", str(caught.exception))
                self.assertEqual(text, conf.text())
                with self.assertRaises(zf.InvalidValue):
                    conf["new"] = {first: "5", key: "7"}
                self.assertEqual(text, conf.text())
        exact = zf.loads("[s]\nPort = 1\n")
        exact["s"] = {"Port": "1", "PORT": "2"}
        self.assertEqual("[s]\nPort = 1\nPORT = 2\n", exact.text())

    def test_stanza_can_be_renamed_to_another_case_of_itself(self) -> None:
        conf = zf.loads("[s]\nk = 1\n[t]\nk = 2\n", dialect="samba")
        conf.rename("s", "S")
        self.assertEqual("[S]\nk = 1\n[t]\nk = 2\n", conf.text())
        for taken in ("t", "T"):
            with self.assertRaises(zf.Refused):
                conf.rename("S", taken)
        self.assertEqual("[S]\nk = 1\n[t]\nk = 2\n", conf.text())

    def test_key_can_be_renamed_to_another_spelling_of_itself(self) -> None:
        for dialect, text, stanza, key in self.FOLDED:
            with self.subTest(dialect):
                conf = zf.loads(text, dialect=dialect)
                first = next(iter(conf[stanza]))
                conf[stanza].rename(key, key)
                self.assertEqual(text, conf.text())
                conf[stanza].rename(first, key)
                self.assertEqual(text.replace(first, key), conf.text())
                with self.assertRaises(zf.Refused):
                    conf[stanza].rename("l", first)

    def test_copies_and_defaults_have_the_same_key(self) -> None:
        for dialect, text, stanza, key in self.FOLDED:
            with self.subTest(dialect):
                conf = zf.loads(text, dialect=dialect)
                self.assertEqual("1", conf[stanza].setdefault(key, "9"))
                self.assertEqual("1", conf.setdefault(stanza, {key: "9"})[key])
                self.assertEqual(text, conf.text())
                self.assertEqual("1", conf.pop(stanza)[key])


class Variations(PackageTest):
    """A dialect with switches, which its name lacks."""

    TEXT = "[s]\nk = a ; b\nl = 1\n"

    def confs(self) -> Iterator[zf.Conf]:
        dialect = "python,trailing=;,trailingNeeds=blankBefore"
        yield zf.loads(self.TEXT, dialect=dialect)
        file = self.directory / "fail2ban" / "jail.local"
        file.parent.mkdir()
        file.write_text(self.TEXT)
        yield zf.open(file)
        other = self.directory / "jail.txt"
        other.write_text(self.TEXT)
        yield zf.open(other, dialect=dialect)

    def test_values_are_tried_with_the_switches(self) -> None:
        for conf in self.confs():
            with self.subTest(conf.path), conf:
                self.assertEqual(("python", "a"), (conf.dialect, conf["s"]["k"]))
                with self.assertRaises(zf.InvalidValue):
                    conf["s"] = {"m": "c ; d"}
                with self.assertRaises(zf.InvalidValue):
                    conf["t"] = {"m": "c ; d"}
                self.assertEqual(self.TEXT, conf.text())
                conf["s"] = {"k": "c", "n": "1"}
                self.assertEqual("[s]\nk = c ; b\nn = 1\n", conf.text())

    def test_reload_reads_with_the_switches(self) -> None:
        file = self.directory / "a.txt"
        file.write_text("[s]\nk = 1\n")
        conf = zf.open(file, dialect="ini,top=refused")
        file.write_text("k = 1\n[s]\n")
        with self.assertRaisesRegex(zf.InvalidData, "a.txt:1:1: .*header"):
            conf.reload()


class RepeatedStanzas(PackageTest):
    TEXT = "[Peer]\na=1\n\n[Peer]\na=2\n\n[Peer]\na=3\n"

    def conf(self) -> zf.Conf:
        return zf.loads(self.TEXT, dialect="networkd")

    def test_name_alone_is_refused_for_changes(self) -> None:
        def assign(conf: zf.Conf) -> None:
            conf["Peer"]["a"] = "9"

        def replace(conf: zf.Conf) -> None:
            conf["Peer"] = {"a": "9"}

        for name, change in (
            ("assign", assign),
            ("replace", replace),
            ("delete", lambda conf: conf.__delitem__("Peer")),
            ("rename", lambda conf: conf.rename("Peer", "Q")),
            ("comment", lambda conf: conf.comment("Peer", "text")),
            ("set_raw", lambda conf: conf["Peer"].set_raw("a", 0, "9")),
        ):
            with self.subTest(name):
                conf = self.conf()
                with self.assertRaisesRegex(zf.Refused, r"Several stanzas have the name; add the"):
                    change(conf)
                self.assertEqual(self.TEXT, conf.text())

    def test_pair_names_a_stanza_everywhere(self) -> None:
        conf = self.conf()
        self.assertEqual(["1", "2", "3"], [conf["Peer", number]["a"] for number in (1, 2, 3)])
        self.assertIn(("Peer", 3), conf)
        self.assertNotIn(("Peer", 4), conf)
        self.assertNotIn(("Peer", 0), conf)
        self.assertNotIn(("Peer",), conf)
        conf["Peer", 2] = {"b": "5"}
        self.assertEqual("[Peer]\na=1\n\n[Peer]\nb=5\n\n[Peer]\na=3\n", conf.text())
        conf.comment(("Peer", 2), "the second")
        self.assertEqual("the second", conf.comment(("Peer", 2)))
        popped = conf.pop(("Peer", 3))
        self.assertEqual({"a": "3"}, dict(popped))
        conf.rename(("Peer", 2), "Other")
        self.assertEqual(["Peer", "Other"], list(conf))
        self.assertIs(None, conf.pop(("Peer", 3), None))
        with self.assertRaises(zf.NotFound):
            conf.rename(("Peer", 3), "Q")

    def test_mapping_methods(self) -> None:
        conf = self.conf()
        name, last = conf.popitem()
        self.assertEqual("3", last["a"])
        self.assertEqual(2, len(conf))
        conf["Peer]2"] = {"b": "1"}
        self.assertEqual("1", conf["Peer", 2]["b"])
        conf.clear()
        self.assertEqual(0, len(conf))


class Names(PackageTest):
    def test_created_file_has_the_dialect_of_its_name(self) -> None:
        for name, dialect, text in (
            ("new.network", "networkd", "[Match]\nName=eth0\n"),
            ("new.service", "systemd", "[Match]\nName=eth0\n"),
            ("new.conf", "stanza", "[Match]\nName = eth0\n"),
        ):
            with self.subTest(name):
                path = self.directory / name
                with zf.open(path, create=True) as conf:
                    self.assertEqual(dialect, conf.dialect)
                    conf["Match"] = {"Name": "eth0"}
                self.assertEqual(text, path.read_text())

    def test_unchanged_new_file_is_not_created(self) -> None:
        for dialect in zf.dialects():
            with self.subTest(dialect):
                path = self.directory / "unchanged"
                with zf.open(path, dialect=dialect, create=True) as conf:
                    self.assertEqual("", conf.diff())
                self.assertFalse(path.exists())

    def test_marks_in_the_text_of_a_comment_belong_to_it(self) -> None:
        for dialect, mark in (("stanza", "#"), ("php", ";")):
            with self.subTest(dialect):
                conf = zf.loads("[s]\nk=1\n", dialect=dialect)
                conf["s"].comment("k", "#1 priority\n\n; last")
                self.assertEqual("#1 priority\n\n; last", conf["s"].comment("k"))
                self.assertIn(f"{mark} #1 priority\n{mark}\n{mark} ; last\n", conf.text())


class Arguments(PackageTest):
    def test_arguments_of_other_types_are_type_errors(self) -> None:
        conf = zf.open(self.file)
        stanza = conf["listener"]
        bad: Any = 5
        for name, action in (
            ("value", lambda: stanza.__setitem__("q", bad)),
            ("value", lambda: stanza.__setitem__("q", bytes(1))),
            ("value", lambda: stanza.update({"x": ["1"]})),
            ("value", lambda: stanza.setdefault("q")),
            ("value", lambda: stanza.add("q", bad)),
            ("value", lambda: stanza.remove("log", bad)),
            ("value", lambda: stanza.obfuscate("q", bad)),
            ("contents", lambda: conf.__setitem__("m", bad)),
            ("text", lambda: stanza.comment("log", bad)),
            ("text", lambda: conf.comment("listener", bad)),
            ("index", lambda: stanza.line("log", 1.0)),  # type: ignore[arg-type]
            ("spelling", lambda: stanza.set_raw("log", 0, bad)),
            ("key", lambda: stanza[bad]),
            ("base", lambda: zf.merge(bytes(1), "", "")),  # type: ignore[arg-type]
            ("theirs", lambda: zf.merge("", "", bad)),
            ("text", lambda: zf.recognise("a", text=bytes(1))),  # type: ignore[arg-type]
            ("text", lambda: zf.loads(bad)),
            ("name", lambda: zf.lock(bad)),
            ("path", lambda: zf.open(bytes(1))),  # type: ignore[arg-type]
        ):
            with self.subTest(name):
                with self.assertRaisesRegex(TypeError, f"^{name}: expected "):
                    action()

    def test_own_refusals_name_the_file(self) -> None:
        conf = zf.open(self.file)
        for action in (
            lambda: conf["listener"].__setitem__("port", "1"),
            lambda: conf["listener"].rename("port", "log"),
            lambda: conf["listener"]["none"],
            lambda: conf["none"],
            lambda: conf["listener"].raw("port", 5),
            lambda: conf.rename("upstream", "listener"),
            lambda: conf["listener"].obfuscate("secret", ""),
            lambda: conf["listener"].__setitem__("log", " x"),
        ):
            with self.assertRaises(zf.Error) as caught:
                action()
            self.assertEqual(str(self.file), caught.exception.file)
            self.assertIn(f"{self.file}: ", str(caught.exception))

    def test_names_of_locks_have_no_slash(self) -> None:
        for name in ("", "a/b"):
            with self.assertRaises(zf.InvalidValue):
                zf.lock(name, directory=self.directory)

    def test_reload_of_a_file_that_does_not_exist(self) -> None:
        path = self.directory / "new.conf"
        conf = zf.open(path, create=True)
        with self.assertRaises(zf.MissingFile):
            conf.reload()
        path.write_text("[a]\n")
        with self.assertRaises(zf.Refused):
            conf.reload()

    def test_failures_have_one_line(self) -> None:
        for text in ("[s\n", "[a]\nno entry\n", "[configuration-database]\nfile = x\n"):
            with self.subTest(text):
                with self.assertRaises(zf.InvalidData) as caught:
                    zf.loads(text)
                self.assertNotIn("\n", str(caught.exception))
                self.assertNotIn("not supported", str(caught.exception))

    def test_value_that_is_too_long_for_its_line(self) -> None:
        with self.assertRaises(zf.InvalidValue):
            with zf.open(self.file) as conf:
                conf["listener"]["log"] = "x" * 8188
        self.assertUnchanged()


class Templates(PackageTest):
    def lint(self, text: str, name: str = "app.conf") -> list[str]:
        template = self.directory / "template"
        template.write_text("# [s]\n# range: 1..9\n# required\n#port = 5\n#trace = no\n")
        path = self.directory / name
        path.write_text(text)
        return [
            f"{problem.line}:{problem.column}: {problem.is_error} {problem.text}"
            for problem in zf.lint(path, template=template)
        ]

    def test_differences_from_a_template_are_problems(self) -> None:
        self.assertEqual([], self.lint("[s]\nport = 5\n"))
        self.assertEqual(
            [
                "2:8: True key \"port\" in [s]: \"10\" is out of range; use a number from 1 to 9",
                "3:1: True unknown key \"trce\" in [s]; the nearest name is \"trace\"",
                "4:3: True \"[t\": no \"]\" after the stanza name; add it",
            ],
            self.lint("[s]\nport = 10\ntrce = 1\n[t\n"),
        )
        self.assertEqual([], self.lint("[S]\n\tPort = 5\n", ".gitconfig"))

    def test_templates_that_are_none(self) -> None:
        with self.assertRaises(zf.MissingFile):
            zf.lint(self.file, template=self.directory / "none")
        empty = self.directory / "empty"
        empty.write_text("# nothing\n")
        with self.assertRaisesRegex(zf.InvalidData, "empty: .* has no comment of the form"):
            zf.lint(self.file, template=empty)


class Diffs(PackageTest):
    def test_diff_applies_in_the_working_directory_and_at_the_root(self) -> None:
        conf = zf.open(self.file)
        conf["upstream"]["server"] = "b"
        root = conf.diff()
        with support.in_directory(self.directory):
            here = conf.diff()
        self.assertTrue(here.startswith("--- app.conf\n+++ app.conf\n"), here)
        self.apply(here, self.directory)
        self.assertEqual(conf.text(), self.text())
        self.file.write_text(support.SAMPLE)
        self.apply(root, pathlib.Path("/"))
        self.assertEqual(conf.text(), self.text())

    def test_diff_of_a_file_that_does_not_exist_creates_it(self) -> None:
        path = self.directory / "new.conf"
        conf = zf.open(path, create=True)
        conf["a"] = {"k": "v"}
        with support.in_directory(self.directory):
            diff = conf.diff()
        self.assertTrue(diff.startswith("--- /dev/null\n+++ new.conf\n"), diff)
        self.apply(diff, self.directory)
        self.assertEqual(conf.text(), path.read_text())

    def apply(self, diff: str, directory: pathlib.Path) -> None:
        done = subprocess.run(
            ["patch", "-p0", "-d", str(directory)],
            input=diff,
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual(0, done.returncode, done.stdout + done.stderr)

    def test_diff_of_a_large_file_with_repeated_lines(self) -> None:
        """A comparison that is quadratic in repeated lines would take minutes."""
        lines = "".join(f"key{key} = value {key}\n" for key in range(100))
        conf = zf.loads("".join(f"[s{number}]\n{lines}" for number in range(1000)))
        for number in range(0, 1000, 10):
            conf[f"s{number}"]["key7"] = "changed"
        self.assertEqual(100, conf.diff().count("\n+key7 = changed\n"))


if __name__ == "__main__":
    support.main()
