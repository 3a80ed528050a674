#!/usr/bin/env python3
"""Tests of `zstz completion`, in the shells that are installed.
usage: completion_test.py TOOL [unittest arguments]"""
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import unittest

import tool
from tool import DONE, NOT_FOUND, USAGE

FILE = b"[listener]\nport = 80\nport = 81\nname = front door\n[the upstream]\nweight = 1\n"

GIT = b'[remote "origin"]\n\turl = x\n\tflag\n'

# Words of a command line, the last one incomplete; the candidates, None for file names.
ROWS = [
    (["st"], ["stanzas"]),
    (["--v"], ["--version"]),
    (["none", ""], []),
    (["get", ""], None),
    (["get", "f", ""], ["listener", "the upstream"]),
    (["get", "f", "li"], ["listener"]),
    (["get", "--all", "f", "the"], ["the upstream"]),
    (["get", "f", "listener", ""], ["port", "name"]),
    (["get", "f", "the upstream", ""], ["weight"]),
    (["get", "f", "none", ""], []),
    (["get", "none", ""], []),
    (["get", "--as", ""], ["text", "number", "boolean"]),
    (["get", "--as", "number", ""], None),
    (["get", "--template", ""], None),
    (["get", "--default", ""], []),
    (["get", "--format", "j"], ["json"]),
    (["lint", "--format", ""], ["plain", "json"]),
    (["get", "--al"], ["--all"]),
    (["get", "--", "f", ""], ["listener", "the upstream"]),
    (["set", "f", "listener", "port", ""], ["80", "81"]),
    (["set", "f", "listener", "port", "80", ""], []),
    (["diff", "f", ""], None),
    (["merge", "a", "b", ""], None),
    (["check", "a", "b", ""], None),
    (["completion", ""], ["bash", "zsh", "fish"]),
    (["java", "f", "g"], ["get"]),
    (["lock", ""], []),
    (["help", "wat"], ["watch"]),
    (["get", "--dialect", "sy"], ["systemd", "sysctl"]),
    (["get", "--dialect=sy"], ["--dialect=systemd", "--dialect=sysctl"]),
    (["get", "--dialect", "=", "sy"], ["systemd", "sysctl"]),
    (["get", "--format=j"], ["--format=json"]),
    (["get", "--format", "="], ["plain", "json", "sh", "lines"]),
    (["set", "f", "listener", "port", "--old", ""], ["80", "81"]),
    (["get", "smb.conf", ""], ["Global"]),
    (["get", "smb.conf", "global", "create"], ["create mask"]),
    (["get", ".gitconfig", "re"], ["remote.origin"]),
    (["get", ".gitconfig", 'remote "origin"', ""], ["url", "flag"]),
    (["get", "x", "--dialect", "git", "remote.origin", "u"], ["url"]),
    (["set", "wg.netdev", "P"], ["Peer]1", "Peer]2"]),
    (["set", "wg.netdev", "Peer]1", ""], ["K"]),
    (["set", "wg.netdev", "Peer]2", ""], ["L"]),
    (["get", "wg.netdev", "N"], ["NetDev"]),
    (["get", "os-release", ""], ["."]),
    (["get", "kdeglobals", ""], ["$Version"]),
    (["get", "os-release", ".", ""], ["ID", "NAME"]),
    (["watch", "os-release", ".", "I"], ["ID"]),
    (["get", "--dialect=git", "x", "REMOTE.origin", "u"], ["url"]),
]


def quoted_word(word):
    """Returns a word as a user types it."""
    return re.sub(r'([ "])', r"\\\1", word)


def words_of(arguments):
    return ["completion", "candidates", "--", *arguments]


class CompletionTest(tool.ToolTest):
    def setUp(self):
        super().setUp()
        self.write_files({"f": FILE, "smb.conf": b"[Global]\n; c\ncreate mask = 1\nword\n",
                          ".gitconfig": GIT, "x": GIT, "os-release": b"ID=a\nNAME='b c'\n",
                          "kdeglobals": b"[$Version]\nu=1\n", "wg.netdev": b"[NetDev]\n[Peer]\nK=1\n[Peer]\nL=1\n"})

    def test_candidates(self):
        for words, expected in ROWS:
            with self.subTest(words):
                run = self.run_in_directory(*words_of(words))
                code = NOT_FOUND if expected is None else DONE
                self.assertEqual((code, expected or [], b""),
                                 (run.returncode, run.stdout.decode().splitlines(), run.stderr))

    def test_obfuscated_values_are_no_candidates(self):
        run = self.run_in_directory("set", "f", "listener", "password", "--obfuscated",
                                    given=b"secret\n")
        self.assertEqual(DONE, run.returncode, run.stderr)
        run = self.run_in_directory(*words_of(["set", "f", "listener", "password", ""]))
        self.assertEqual((DONE, b""), (run.returncode, run.stdout))
        run = self.run_in_directory(*words_of(["set", "f", "listener", "p"]))
        self.assertEqual(b"port\npassword\n", run.stdout)

    def test_refuses_other_shells(self):
        self.expect(USAGE, "bash, zsh", "completion", "sh")

    def run_shell(self, command, script):
        """Runs a script in a shell that finds the tool and its completion."""
        self.assertTrue(shutil.which(command[0]), f"{command[0]} is not installed")
        environment = {k: v for k, v in os.environ.items() if k != "QVRDIR"}
        directory = pathlib.Path(tool.TOOL).parent
        environment.update(PATH=f"{directory}:{environment['PATH']}", HOME=self.directory.name,
                           LC_ALL="C.UTF-8")
        run = subprocess.run([*command, "-c", script], cwd=self.directory.name, text=True,
                             capture_output=True, check=False, env=environment,
                             timeout=tool.HANGS)
        self.assertEqual("", run.stderr)
        return run.stdout.splitlines()

    def check_shell(self, command, complete, quoted):
        """`complete` is a script that completes the words in the list of its parameter."""
        for words, expected in ROWS:
            if expected is None or words[-1].startswith("-") or "--" in words:
                continue
            with self.subTest(words):
                found = self.run_shell(command, complete(words))
                self.assertEqual([quoted(word) for word in expected], found)

    @unittest.skipUnless(shutil.which("bash"), "bash is not installed")
    def test_bash(self):
        def complete(words):
            quoted = " ".join("'" + quoted_word(word) + "'" for word in words)
            return (f"source <(zstz completion bash); COMP_WORDS=(zstz {quoted}); "
                    f"COMP_CWORD={len(words)}; _zstz; "
                    '[ ${#COMPREPLY[@]} = 0 ] || printf "%s\\n" "${COMPREPLY[@]}"')
        self.check_shell(["bash", "--norc"], complete, lambda word: re.sub(r"([] $])", r"\\\1", word))
        self.assertEqual(["complete -F _zstz zstz"], self.run_shell(
            ["bash", "--norc"], "source <(zstz completion bash); complete -p zstz"))

    @unittest.skipUnless(shutil.which("bash"), "bash is not installed")
    def test_bash_reads_words_as_a_shell(self):
        rows = (('"the u', ["the upstream"]), ("'the u", ["the upstream"]), ("the\\ u", ["the\\ upstream"]),
                ("th\"e u\"", ["the\\ upstream"]), ("'a\"", ['a"b `$c']), ('"a\\"', ['a\\"b \\`\\$c']),
                ('a\\"', ['a\\"b\\ \\`\\$c']))
        self.write_files({"f": FILE + b"[a\"b `$c]\n"})
        for file in ("f", "~/f"):
            for word, expected in rows:
                typed = word.replace("'", "'\\''")
                found = self.run_shell(
                    ["bash", "--norc"],
                    f"source <(zstz completion bash); COMP_WORDS=(zstz get '{file}' '{typed}'); "
                    'COMP_CWORD=3; _zstz; printf "%s\\n" "${COMPREPLY[@]}"')
                self.assertEqual(expected, found, word)

    @unittest.skipUnless(shutil.which("bash"), "bash is not installed")
    def test_bash_completes_inside_a_quote_at_a_terminal(self):
        self.write_files({"f": FILE.replace(b"weight = 1", b"weight = 4711")})
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.directory.name)
            os.environ.pop("QVRDIR", None)
            os.environ["PATH"] = f"{pathlib.Path(tool.TOOL).parent}:{os.environ['PATH']}"
            os.environ.update(TERM="dumb", LC_ALL="C.UTF-8", HISTFILE="")
            os.execvp("bash", ["bash", "--norc", "--noprofile", "-i"])
        self.addCleanup(os.waitpid, child, 0)
        self.addCleanup(os.close, terminal)
        os.write(terminal, b'source <(zstz completion bash)\rzstz get f "the u\tw\t\r')
        seen = b""
        while b"4711" not in seen:
            self.assertTrue(select.select([terminal], [], [], tool.HANGS)[0], seen)
            seen += os.read(terminal, 4096)
        self.assertIn(b'"the upstream" weight', seen)
        os.write(terminal, b"exit\r")

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh_reads_words_as_a_shell(self):
        for words, expected in (("get ~/f 'th'", ["the upstream"]), ("get f '\"the u'", ["the upstream"]),
                                ("get f --format=j", ["--format=json"])):
            found = self.run_shell(
                ["zsh", "-f"],
                'compadd() { shift; print -l -- "$@"; }; _files() { print files; }; source <(zstz '
                f"completion zsh); words=(zstz {words.replace('~', chr(92) + '~')}); "
                "CURRENT=$#words; _zstz")
            self.assertEqual(expected, found, words)

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish_reads_words_as_a_shell(self):
        for line, expected in (("zstz get ~/f th", ["the upstream"]), ('zstz get f "the u', ["the upstream"]),
                               ("zstz get f --format=j", ["--format=json"])):
            found = self.run_shell(["fish", "--no-config"],
                                   f"zstz completion fish | source; complete -C '{line}'")
            self.assertEqual(expected, [entry.split("\t")[0] for entry in found], line)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh(self):
        def complete(words):
            quoted = " ".join("'" + quoted_word(word) + "'" for word in words)
            return ('compadd() { shift; print -l -- "$@"; }; _files() { print files; }; '
                    f"source <(zstz completion zsh); words=(zstz {quoted}); "
                    f"CURRENT={len(words) + 1}; _zstz")
        self.check_shell(["zsh", "-f"], complete, lambda word: word)
        self.assertEqual(["files"], self.run_shell(["zsh", "-f"], complete(["get", ""])))
        self.assertEqual(["_zstz"], self.run_shell(
            ["zsh", "-f"], "autoload -Uz compinit; compinit -D; source <(zstz completion zsh); "
            "print $_comps[zstz]"))

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish(self):
        def complete(words):
            line = "zstz " + " ".join(map(quoted_word, words))
            return f"zstz completion fish | source; complete -C '{line}'"
        for words, expected in ROWS:
            if expected is None or words[-1].startswith("-") or "--" in words or "=" in words:
                continue
            with self.subTest(words):
                found = self.run_shell(["fish", "--no-config"], complete(words))
                # fish shows names that start with a dot only after a dot.
                self.assertEqual(sorted(set(expected) - {"."}),
                                 sorted(line.split("\t")[0] for line in found))
        self.assertIn("f", self.run_shell(["fish", "--no-config"], complete(["get", ""])))


if __name__ == "__main__":
    tool.main()
