"""Reading and changing a file through zfoundation.Conf and its stanzas."""

from __future__ import annotations

import copy
import os
import pickle
import subprocess
import unittest.mock
from collections.abc import MutableMapping

import support
from support import SAMPLE, PackageTest, zf
from zfoundation import _library


class Reading(PackageTest):
    def test_read_returns_plain_dictionaries_in_file_order(self) -> None:
        contents = zf.read(self.file)
        self.assertEqual(
            {
                "listener": {
                    "port": ["8080", "8443"],
                    "log": ["yes"],
                    "idle-timeout": ["30"],
                    "motd": [],
                },
                "upstream": {"server": ["a"]},
            },
            contents,
        )
        self.assertIs(dict, type(contents))
        self.assertIs(dict, type(contents["listener"]))
        self.assertEqual(["port", "log", "idle-timeout", "motd"], list(contents["listener"]))

    def test_read_gives_the_same_through_json_text(self) -> None:
        values = ["", "yes", "ä", "a\\b\"c", "€😀", "\udce4", "x" * 300, "x" * 255, "\x01"]
        lines = [f"{key}{index} = {value}\n" for index, value in enumerate(values) for key in "klmä"]
        contents = "".join(f"[{stanza}]\n{''.join(lines)}k0 = more\n\n" for stanza in ("s", "ö", "\udcff"))
        self.file.write_bytes(contents.encode("utf-8", "surrogateescape"))
        self.assertTrue(_library.loads_marshalled)
        marshalled = zf.read(self.file)
        self.assertEqual(["x" * 255], marshalled["\udcff"]["ä7"])
        with unittest.mock.patch.object(_library, "loads_marshalled", False):
            self.assertEqual(marshalled, zf.read(self.file))

    def test_read_of_an_empty_file_returns_an_empty_dictionary(self) -> None:
        self.file.write_text("")
        self.assertEqual({}, zf.read(self.file))

    def test_read_takes_a_path_object_and_a_relative_path(self) -> None:
        here = os.getcwd()
        os.chdir(self.directory)
        try:
            self.assertEqual(zf.read("app.conf"), zf.read(self.file))
        finally:
            os.chdir(here)

    def test_conf_is_a_mutable_mapping_of_stanzas_in_file_order(self) -> None:
        with zf.open(self.file) as conf:
            self.assertIsInstance(conf, MutableMapping)
            self.assertEqual(["listener", "upstream"], list(conf))
            self.assertEqual(2, len(conf))
            self.assertIn("listener", conf)
            self.assertNotIn("nothing", conf)
            self.assertNotIn(5, conf)
            self.assertNotIn("\0", conf)
            self.assertIsNone(conf.get("nothing"))

    def test_stanza_is_a_mutable_mapping_of_keys_in_file_order(self) -> None:
        stanza = zf.open(self.file)["listener"]
        self.assertIsInstance(stanza, MutableMapping)
        self.assertEqual(["port", "log", "idle-timeout", "motd"], list(stanza))
        self.assertEqual(4, len(stanza))
        self.assertIn("port", stanza)
        self.assertNotIn("nothing", stanza)
        self.assertNotIn(None, stanza)
        self.assertNotIn("a\0b", stanza)
        self.assertEqual("listener", stanza.name)

    def test_value_is_the_last_of_several(self) -> None:
        stanza = zf.open(self.file)["listener"]
        self.assertEqual("8443", stanza["port"])
        self.assertEqual("", stanza["motd"])
        self.assertEqual("x", stanza.get("nothing", "x"))
        self.assertEqual(["8080", "8443"], stanza.all("port"))
        self.assertEqual([], stanza.all("motd"))

    def test_missing_names_raise_not_found_which_is_a_key_error(self) -> None:
        conf = zf.open(self.file)
        for name, action in (
            ("stanza", lambda: conf["nothing"]),
            ("key", lambda: conf["listener"]["nothing"]),
            ("all", lambda: conf["listener"].all("nothing")),
            ("int", lambda: conf["listener"].int("nothing")),
            ("line", lambda: conf["listener"].line("nothing")),
            ("line of a value", lambda: conf["listener"].line("port", 2)),
            ("negative index", lambda: conf["listener"].line("port", -1)),
            ("comment", lambda: conf["listener"].comment("nothing")),
            ("stanza comment", lambda: conf.comment("nothing")),
            ("delete a key", lambda: conf["listener"].__delitem__("nothing")),
            ("delete a stanza", lambda: conf.__delitem__("nothing")),
            ("rename a key", lambda: conf["listener"].rename("nothing", "x")),
            ("rename a stanza", lambda: conf.rename("nothing", "x")),
            ("remove a value", lambda: conf["listener"].remove("port", "1")),
            ("remove of a key", lambda: conf["listener"].remove("nothing", "1")),
            ("obfuscated", lambda: conf["listener"].is_obfuscated("nothing")),
            ("a zero", lambda: conf["listener"]["a\0b"]),
        ):
            with self.subTest(name):
                with self.assertRaises(zf.NotFound) as caught:
                    action()
                self.assertIsInstance(caught.exception, KeyError)
                self.assertEqual(54, caught.exception.code)
        self.assertFalse(conf.modified)

    def test_numbers(self) -> None:
        cases = {
            "10": 10,
            "0x1F": 31,
            "010": 8,
            "0": 0,
            "-5": -5,
            "+7": 7,
            "4294967296": 2**32,
            "-0x10": -16,
        }
        for text, number in cases.items():
            with self.subTest(text):
                conf = zf.loads(f"[a]\nk = {text}\n")
                self.assertEqual(number, conf["a"].int("k"))

    def test_text_that_is_not_a_number_is_refused_with_file_line_and_text(self) -> None:
        for text in ("ten", "1.5", "0x", "08", "1 2", "--1", "1e3"):
            with self.subTest(text):
                self.file.write_text(f"[a]\n\nk = 1\nk = {text}\n")
                with self.assertRaises(zf.InvalidValue) as caught:
                    zf.open(self.file)["a"].int("k", 5)
                self.assertIsInstance(caught.exception, ValueError)
                self.assertEqual(4, caught.exception.line)
                self.assertEqual(str(self.file), caught.exception.file)
                self.assertEqual(
                    f"{self.file}:4: key 'k' in [a]: {text!r} is not a number",
                    str(caught.exception),
                )

    def test_booleans(self) -> None:
        conf = zf.loads("[a]\ny = yes\nn = no\nz = perhaps\n")
        self.assertIs(True, conf["a"].bool("y"))
        self.assertIs(False, conf["a"].bool("n"))
        with self.assertRaisesRegex(zf.InvalidValue, "'perhaps' is not a boolean"):
            conf["a"].bool("z")

    def test_default_replaces_a_missing_key_and_a_missing_value(self) -> None:
        stanza = zf.open(self.file)["listener"]
        self.assertEqual(5, stanza.int("nothing", 5))
        self.assertIsNone(stanza.int("motd", None))
        self.assertIs(True, stanza.bool("nothing", default=True))
        with self.assertRaises(zf.NotFound):
            stanza.int("motd")

    def test_line_is_that_of_the_value(self) -> None:
        stanza = zf.open(self.file)["listener"]
        self.assertEqual(6, stanza.line("port"))
        self.assertEqual(6, stanza.line("port", 1))
        self.assertEqual(9, stanza.line("motd"))

    def test_raw_value_is_the_spelling_in_its_line(self) -> None:
        with zf.open(self.file) as conf:
            stanza = conf["listener"]
            self.assertEqual(["8080", "8443"], [stanza.raw("port", 0), stanza.raw("port")])
            with self.assertRaises(zf.NotFound):
                stanza.raw("port", 2)
            with self.assertRaises(zf.NotFound):
                stanza.raw("nothing")
            with self.assertRaises((zf.Refused, zf.InvalidValue)):
                stanza.set_raw("port", 1, "1\nx = 2")
            self.assertFalse(conf.modified)
            stanza.set_raw("port", 1, "9443")
            self.assertEqual(["8080", "9443"], stanza.all("port"))
        self.assertEqual(SAMPLE.replace("8443", "9443"), self.text())

    def test_comments_are_returned_without_their_marks(self) -> None:
        conf = zf.open(self.file)
        self.assertEqual("The gateway.", conf.comment(None))
        self.assertEqual("where it listens", conf.comment("listener"))
        self.assertIsNone(conf.comment("upstream"))
        self.assertIsNone(conf["listener"].comment("port"))

    def test_stanza_with_an_empty_name_can_be_read(self) -> None:
        conf = zf.loads("[]\nk = 1\nk = 2\n")
        self.assertEqual([""], list(conf))
        self.assertEqual("2", conf[""]["k"])
        self.assertEqual(1, len(conf[""]))
        self.assertIn("k", conf[""])
        self.assertNotIn("x", conf[""])

    def test_bytes_that_are_not_utf8_survive(self) -> None:
        raw = b"[b\xff]\nk\xe4y = v\xfc\xc3\xbc\xed\xa0\x80\nother = 1\n"
        self.file.write_bytes(raw)
        with zf.open(self.file) as conf:
            (name,) = conf
            self.assertEqual("b\udcff", name)
            self.assertEqual("v\udcfcü\udced\udca0\udc80", conf[name]["k\udce4y"])
            self.assertEqual({name: {"k\udce4y": ["v\udcfcü\udced\udca0\udc80"], "other": ["1"]}},
                             zf.read(self.file))
            conf[name]["other"] = "\udcfe"
            self.assertEqual(raw.replace(b"1", b"\xfe"),
                             conf.text().encode("utf-8", "surrogateescape"))
        self.assertEqual(raw.replace(b"1", b"\xfe"), self.file.read_bytes())

    def test_path_of_bytes_that_are_not_utf8(self) -> None:
        path = os.path.join(self.directory, "a\udcff.conf")
        with open(path, "w") as file:
            file.write(SAMPLE)
        with zf.open(path) as conf:
            self.assertEqual(path, conf.path)
            conf["listener"]["log"] = "no"
        with open(path) as file:
            self.assertIn("log = no", file.read())

    def test_control_characters_and_quotes_are_read_as_they_are(self) -> None:
        value = '"quoted" \\n \x01\x1f\x7f\t{}[]: é\u2028'
        conf = zf.loads(f"[a]\nk = {value}\n")
        self.assertEqual(value, conf["a"]["k"])
        self.assertEqual([value], conf["a"].all("k"))


class Changing(PackageTest):
    def test_only_the_line_of_the_value_changes(self) -> None:
        with zf.open(self.file) as conf:
            conf["listener"]["log"] = "no"
            self.assertTrue(conf.modified)
        self.assertEqual(SAMPLE.replace("log = yes", "log = no"), self.text())

    def test_spacing_and_line_endings_stay(self) -> None:
        raw = b"[a]\r\n  k   =    1\r\n\r\n\r\n# end"
        self.file.write_bytes(raw)
        with zf.open(self.file) as conf:
            conf["a"]["k"] = "2"
        self.assertEqual(raw.replace(b"1", b"2"), self.file.read_bytes())

    def test_setting_the_present_value_changes_nothing(self) -> None:
        before = os.stat(self.file)
        with zf.open(self.file) as conf:
            conf["listener"]["log"] = "yes"
            conf["listener"].set("port", ["8080", "8443"])
            conf["listener"]["motd"] = ""
            conf.comment("listener", "where it listens")
            conf["upstream"] = {"server": "a"}
            self.assertFalse(conf.modified)
        after = os.stat(self.file)
        self.assertEqual(before.st_mtime_ns, after.st_mtime_ns)
        self.assertUnchanged()

    def test_block_that_raises_saves_nothing(self) -> None:
        for kind in (RuntimeError, KeyboardInterrupt, SystemExit, zf.NotFound):
            with self.subTest(kind.__name__):
                with self.assertRaises(kind):
                    with zf.open(self.file) as conf:
                        conf["listener"]["log"] = "no"
                        raise kind("x")
                self.assertTrue(conf.closed)
                self.assertUnchanged()

    def test_file_that_cannot_be_written_can_be_read_by_a_block(self) -> None:
        self.file.chmod(0o400)
        with zf.open(self.file) as conf:
            self.assertEqual("yes", conf["listener"]["log"])
        self.assertUnchanged()

    def test_key_with_several_values_is_not_overwritten(self) -> None:
        with zf.open(self.file) as conf:
            with self.assertRaisesRegex(zf.Refused, "has 2 values; use set"):
                conf["listener"]["port"] = "1"
            self.assertFalse(conf.modified)
        self.assertUnchanged()

    def test_several_values(self) -> None:
        with zf.open(self.file) as conf:
            stanza = conf["listener"]
            stanza.set("port", ("1", "8443", "2"))
            self.assertEqual(["1", "8443", "2"], stanza.all("port"))
            stanza.add("port", "3")
            stanza.add("port", "3")
            self.assertEqual(["1", "8443", "2", "3"], stanza.all("port"))
            stanza.remove("port", "1")
            stanza.set("new", ["x", "y"])
            stanza.set("motd", "hello")
            stanza.set("log", [])
            self.assertEqual([], stanza.all("log"))
        self.assertEqual(["8443", "2", "3"], zf.read(self.file)["listener"]["port"])
        self.assertEqual(["x", "y"], zf.read(self.file)["listener"]["new"])
        self.assertEqual(["hello"], zf.read(self.file)["listener"]["motd"])

    def test_removing_the_only_value_removes_the_key(self) -> None:
        with zf.open(self.file) as conf:
            conf["listener"].remove("log", "yes")
            self.assertNotIn("log", conf["listener"])

    def test_removing_the_only_value_leaves_a_line_without_a_value(self) -> None:
        for dialect, text in (("git", "[a]\nk=1\nk\n"), ("mysql", "[a]\nk\nk=1\n"), ("stanza", "[a]\nk=1\nk =\n")):
            with self.subTest(dialect):
                conf = zf.loads(text, dialect=dialect)
                conf["a"].remove("k", "1")
                self.assertEqual([], conf["a"].all("k"))
                self.assertEqual(text.replace("k=1\n", ""), conf.text())
                del conf["a"]["k"]
                self.assertEqual("[a]\n", conf.text())

    def test_names_and_values_that_no_line_can_hold_are_refused(self) -> None:
        conf = zf.open(self.file)
        stanza = conf["listener"]
        for name, action in (
            ("a newline", lambda: stanza.__setitem__("log", "a\nb")),
            ("a zero", lambda: stanza.__setitem__("log", "a\0b")),
            ("a surrogate", lambda: stanza.__setitem__("log", "\ud800")),
            ("a space at the end", lambda: stanza.__setitem__("log", "a ")),
            ("a tab at the start", lambda: stanza.set("port", ["1", "\ta"])),
            ("a long line", lambda: stanza.__setitem__("log", "v" * 9000)),
            ("an empty value of several", lambda: stanza.set("port", ["1", ""])),
            ("an added space", lambda: stanza.add("port", " 1")),
            ("a key with =", lambda: stanza.__setitem__("a=b", "1")),
            ("an empty key", lambda: stanza.__setitem__("", "1")),
            ("a comment as a key", lambda: stanza.__setitem__("#a", "1")),
            ("a stanza with ]", lambda: conf.add("a]b")),
            ("contents", lambda: conf.__setitem__("upstream", {"server": "b", "x": "a\nb"})),
            ("contents of a new stanza", lambda: conf.__setitem__("new", {"=": "b"})),
            ("a new name", lambda: stanza.rename("log", "a=b")),
            ("a new stanza name", lambda: conf.rename("upstream", "a]b")),
        ):
            with self.subTest(name):
                with self.assertRaises(zf.InvalidValue) as caught:
                    action()
                self.assertIsInstance(caught.exception, ValueError)
                self.assertFalse(conf.modified)
                self.assertEqual(SAMPLE, conf.text())

    def test_values_of_other_types_are_type_errors(self) -> None:
        conf = zf.open(self.file)
        stanza = conf["listener"]
        for name, action in (
            ("value", lambda: stanza.__setitem__("log", 5)),
            ("values", lambda: stanza.set("log", ["a", 5])),
            ("bytes", lambda: stanza.__setitem__("log", b"a")),
            ("key", lambda: stanza[5]),
            ("stanza", lambda: conf[5]),
            ("contents", lambda: conf.__setitem__("upstream", {"server": 5})),
            ("comment", lambda: conf.comment("upstream", 5)),
        ):
            with self.subTest(name):
                with self.assertRaises((TypeError, AttributeError)):
                    action()
                self.assertFalse(conf.modified)

    def test_deleting_keys_and_stanzas(self) -> None:
        with zf.open(self.file) as conf:
            del conf["listener"]["log"]
            del conf["upstream"]
        self.assertEqual(
            SAMPLE.replace("log = yes\n", "").partition("[upstream]")[0], self.text()
        )

    def test_assigned_contents_replace_a_stanza_and_keep_its_lines(self) -> None:
        with zf.open(self.file) as conf:
            conf["listener"] = {"port": ["8080", "9090"], "idle-timeout": "30", "new": "1"}
            conf["added"] = {"k": "v"}
        self.assertEqual(
            "# The gateway.\n\n# where it listens\n[listener]\nport = 8080\nport = 9090\n"
            "idle-timeout = 30\nnew = 1\n\n[upstream]\nserver = a\n\n[added]\nk = v\n",
            self.text(),
        )

    def test_stanza_can_be_copied_with_all_values(self) -> None:
        with zf.open(self.file) as conf:
            conf["copy"] = conf["listener"]
            self.assertEqual(["8080", "8443"], conf["copy"].all("port"))
            self.assertEqual(conf["copy"], conf["listener"])

    def test_mapping_methods(self) -> None:
        with zf.open(self.file) as conf:
            self.assertEqual("1", conf.setdefault("new", {"k": "1"})["k"])
            self.assertEqual("30", conf.setdefault("listener")["idle-timeout"])
            copied = conf.pop("listener")
            self.assertNotIn("listener", conf)
            self.assertEqual(["8080", "8443"], copied.all("port"))
            self.assertEqual(7, conf.pop("nothing", 7))
            with self.assertRaises(KeyError):
                conf.pop("nothing")
            name, stanza = conf.popitem()
            self.assertEqual(("new", "1"), (name, stanza["k"]))
            conf["upstream"].update(server="b", other="c")
            self.assertEqual({"server": "b", "other": "c"}, dict(conf["upstream"]))
            self.assertEqual("b", conf["upstream"].pop("server"))
            conf["upstream"].clear()
            self.assertEqual(0, len(conf["upstream"]))
            conf.clear()
            self.assertEqual([], list(conf))
            with self.assertRaises(KeyError):
                conf.popitem()

    def test_renaming(self) -> None:
        with zf.open(self.file) as conf:
            old = conf["listener"]
            old.rename("log", "journal")
            conf.rename("listener", "front")
            conf.rename("front", "front")
            with self.assertRaisesRegex(zf.Refused, "exists"):
                conf.rename("front", "upstream")
            with self.assertRaisesRegex(zf.Refused, "exists"):
                conf["front"].rename("journal", "port")
            for action in (lambda: old["port"], lambda: len(old), lambda: list(old)):
                with self.assertRaises(zf.NotFound):
                    action()
            with self.assertRaises(zf.NotFound):
                old["port"] = "1"
        self.assertEqual(
            SAMPLE.replace("log =", "journal =").replace("[listener]", "[front]"), self.text()
        )

    def test_comments(self) -> None:
        with zf.open(self.file) as conf:
            conf.comment(None, "The front gateway.\n\nof two lines")
            conf.comment("listener", None)
            conf["upstream"].comment("server", "where it sends")
        text = self.text()
        self.assertTrue(text.startswith("# The front gateway.\n#\n# of two lines\n\n"), text)
        self.assertNotIn("where it listens", text)
        self.assertIn("# where it sends\nserver = a\n", text)
        conf = zf.open(self.file)
        self.assertEqual("The front gateway.\n\nof two lines", conf.comment(None))
        self.assertEqual("where it sends", conf["upstream"].comment("server"))

    def test_obfuscated_values_stay_out_of_the_file(self) -> None:
        with zf.open(self.file) as conf:
            conf["upstream"].obfuscate("password", "geheim")
            self.assertTrue(conf["upstream"].is_obfuscated("password"))
            self.assertFalse(conf["upstream"].is_obfuscated("server"))
            self.assertEqual("geheim", conf["upstream"]["password"])
            self.assertEqual(0, conf["upstream"].line("password"))
            for action in (
                lambda: conf["upstream"].__setitem__("password", "x"),
                lambda: conf["upstream"].set("password", ["x"]),
                lambda: conf["upstream"].add("password", "x"),
                lambda: conf.__setitem__("upstream", {"password": "x"}),
                lambda: conf["upstream"].obfuscate("server", "x"),
            ):
                with self.assertRaises(zf.Refused):
                    action()
        self.assertNotIn("geheim", self.text())
        self.assertEqual(["geheim"], zf.read(self.file)["upstream"]["password"])
        with zf.open(self.file) as conf:
            conf["upstream"].obfuscate("password", "anders")
        self.assertEqual("anders", zf.open(self.file)["upstream"]["password"])

    def test_diff_is_what_patch_applies(self) -> None:
        for text in (SAMPLE, SAMPLE.rstrip("\n"), SAMPLE.replace("\n", "\r\n")):
            self.file.write_bytes(text.encode())
            conf = zf.open(self.file)
            self.assertEqual("", conf.diff())
            conf["listener"]["log"] = "no"
            conf["upstream"]["server"] = "b"
            copied = self.directory / "copy.conf"
            copied.write_bytes(text.encode())
            subprocess.run(["patch", "--binary", "-s", str(copied)], check=True,
                           input=conf.diff().encode())
            self.assertEqual(conf.text().encode(), copied.read_bytes())
            self.assertEqual(text.encode(), self.file.read_bytes())

    def test_diff_of_a_new_file_and_of_a_text(self) -> None:
        conf = zf.open(self.directory / "new.conf", create=True)
        conf["a"] = {"k": "1"}
        self.assertIn("+k = 1\n", conf.diff())
        loaded = zf.loads("[a]\nk = 1")
        loaded["a"]["k"] = "2"
        self.assertIn("-k = 1\n\\ No newline at end of file\n+k = 2\n", loaded.diff())


class Objects(PackageTest):
    def test_objects_have_a_description(self) -> None:
        conf = zf.open(self.file)
        self.assertEqual(f"<zfoundation.Conf '{self.file}': 2 stanzas>", repr(conf))
        self.assertEqual("<zfoundation.Stanza 'listener'>", repr(conf["listener"]))
        conf.close()
        self.assertIn("closed", repr(conf))

    def test_conf_cannot_be_copied(self) -> None:
        conf = zf.open(self.file)
        for action in (copy.copy, copy.deepcopy, pickle.dumps):
            with self.assertRaises(TypeError):
                action(conf)

    def test_closed_objects_raise_closed(self) -> None:
        conf = zf.open(self.file)
        stanza = conf["listener"]
        conf.close()
        conf.close()
        for name, action in (
            ("list", lambda: list(conf)),
            ("len", lambda: len(conf)),
            ("in", lambda: "a" in conf),
            ("text", conf.text),
            ("save", conf.save),
            ("reload", conf.reload),
            ("modified", lambda: conf.modified),
            ("dialect", lambda: conf.dialect),
            ("stanza", lambda: conf["listener"]),
            ("value", lambda: stanza["port"]),
            ("set", lambda: stanza.__setitem__("log", "1")),
            ("keys", lambda: list(stanza)),
            ("with", conf.__enter__),
        ):
            with self.subTest(name):
                with self.assertRaises(zf.Closed) as caught:
                    action()
                self.assertIsInstance(caught.exception, ValueError)
        self.assertUnchanged()

    def test_closing_inside_the_block_saves_nothing(self) -> None:
        with zf.open(self.file) as conf:
            conf["listener"]["log"] = "no"
            conf.close()
        self.assertUnchanged()

    def test_numbered_stanza_of_the_stanza_dialect(self) -> None:
        conf = zf.open(self.file)
        self.assertEqual("yes", conf["listener", 1]["log"])
        self.assertIn(("listener", 1), conf)
        self.assertNotIn(("listener", 2), conf)
        with self.assertRaises(zf.NotFound):
            conf["listener", 2]
        with self.assertRaises(TypeError):
            conf["listener", 0]


if __name__ == "__main__":
    support.main()
