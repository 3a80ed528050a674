"""Readers of other projects, each of which defines a configuration format.

    peers.py PEER FILE...      prints a reading of each file, a line of JSON

A reading is {"refused": TEXT} or {"values": [[STANZA, KEY, VALUE or null], ...]} in file order.
Each character of a string is one byte of the file. Most readers give a key only once if only one of
its lines counts. Keys above the first header are in the stanza ".".
"""

import configparser
import ctypes
import ctypes.util
import functools
import glob
import json
import os
import re
import shutil
import subprocess
import sys


def text(data):
    return data.decode("latin-1")


def bytes_of(path):
    with open(path, "rb") as file:
        return file.read()


def stanza_name(name):
    """The name of a stanza with a header: "." is for keys above the first header."""
    return ".]1" if name == "." else name


def refused(reason):
    return {"refused": str(reason)[:200]}


def values(found):
    return {"values": found}


# git


def find_git():
    return None if shutil.which("git") else "git is not installed"


def read_git(path):
    run = subprocess.run(["git", "config", "--no-includes", "--file", path, "--list", "-z"],
                         capture_output=True, check=False)
    if run.returncode != 0:
        return refused(text(run.stderr))
    found = []
    for entry in run.stdout.split(b"\0")[:-1]:
        name, newline, value = entry.partition(b"\n")
        stanza, dot, key = name.rpartition(b".")
        stanza = text(stanza) if dot else "."
        found.append([stanza_name(stanza) if dot else stanza, text(key),
                      text(value) if newline else None])
    return values(found)


# GKeyFile, without a binding: the library is enough


class GError(ctypes.Structure):
    _fields_ = [("domain", ctypes.c_uint32), ("code", ctypes.c_int), ("message", ctypes.c_char_p)]


def find_glib():
    return None if ctypes.util.find_library("glib-2.0") else "libglib2.0-0 is not installed"


@functools.cache
def glib():
    library = ctypes.CDLL(ctypes.util.find_library("glib-2.0"))
    for name in ("new", "get_groups", "get_keys", "get_string"):
        getattr(library, "g_key_file_" + name).restype = ctypes.c_void_p
    return library


def names(array, count):
    found = ctypes.cast(array, ctypes.POINTER(ctypes.c_char_p))
    return [found[i] for i in range(count.value)]


def read_gkeyfile(path):
    library = glib()
    data = bytes_of(path)
    file = ctypes.c_void_p(library.g_key_file_new())
    error = ctypes.POINTER(GError)()
    if not library.g_key_file_load_from_data(file, data, ctypes.c_size_t(len(data)), 3,
                                             ctypes.byref(error)):
        return refused(text(error.contents.message))
    found = []
    count = ctypes.c_size_t()
    for group in names(library.g_key_file_get_groups(file, ctypes.byref(count)), count):
        keys = library.g_key_file_get_keys(file, group, ctypes.byref(count), None)
        for key in names(keys, count):
            error = ctypes.POINTER(GError)()
            value = library.g_key_file_get_string(file, group, key, ctypes.byref(error))
            if value and not error:
                found.append([stanza_name(text(group)), text(key), text(ctypes.string_at(value))])
            else:
                found.append([stanza_name(text(group)), text(key),
                              {"error": text(error.contents.message)}])
    return values(found)


# Python's configparser


def read_python(path, inline=None):
    parser = configparser.RawConfigParser(strict=False, default_section="\0",
                                          inline_comment_prefixes=inline)
    try:
        with open(path, encoding="utf-8", errors="surrogateescape") as file:
            parser.read_file(file)
    except configparser.ParsingError as e:
        if isinstance(e, configparser.MissingSectionHeaderError):
            return refused(e)
        # configparser throws this at the end, after it has read everything else.
    except configparser.Error as e:
        return refused(e)

    def raw(word):
        return text(word.encode("utf-8", "surrogateescape"))

    return values([[stanza_name(raw(section)), raw(key), raw(value)]
                   for section in parser.sections()
                   for key, value in parser.items(section) if key])


def read_python_inline(path):
    return read_python(path, ("#", ";"))


# PHP: both scanners, as the usual one also evaluates


PHP = r"""
foreach (explode("\n", trim(stream_get_contents(STDIN))) as $path) {
    $scanned = [];
    foreach ([INI_SCANNER_NORMAL, INI_SCANNER_RAW] as $scanner) {
        $why = "";
        set_error_handler(function ($number, $text) use (&$why) { $why = $text; return true; });
        $read = parse_ini_string(file_get_contents($path), true, $scanner);
        $found = [];
        foreach ($read === false ? [] : $read as $name => $value)
            $found[] = [bin2hex($name), is_array($value) ? array_map(null, array_map("bin2hex",
                array_keys($value)), array_map(fn($one) => is_array($one) ?
                array_map("bin2hex", array_values($one)) : bin2hex($one), array_values($value)))
                : bin2hex($value)];
        $scanned[] = ["refused" => $read === false ? bin2hex($why) : null, "found" => $found];
    }
    echo json_encode($scanned), "\n";
}
"""


def find_php():
    return None if shutil.which("php") else "php-cli is not installed"


def unhex(word):
    return text(bytes.fromhex(word))


def php_values(scanned):
    if scanned["refused"] is not None:
        return refused(unhex(scanned["refused"]))
    found = []
    for name, value in scanned["found"]:
        pairs = [(name, value)] if isinstance(value, str) else value
        stanza = "." if isinstance(value, str) else stanza_name(unhex(name))
        for key, one in pairs:
            if isinstance(one, str):
                found.append([stanza, unhex(key), unhex(one)])
            else:
                found.extend([stanza, unhex(key) + "[]", unhex(each)] for each in one)
    return values(found)


def read_php_files(paths):
    """Readings of files by a single process."""
    run = subprocess.run(["php", "-n", "-r", PHP], input=os.fsencode("\n".join(paths)),
                         capture_output=True, check=True)
    lines = run.stdout.splitlines()
    if len(lines) != len(paths):
        raise subprocess.CalledProcessError(run.returncode, "php", run.stdout, run.stderr)
    for line in lines:
        normal, raw = (php_values(scanned) for scanned in json.loads(line))
        yield {**(raw if "refused" in normal else normal), "raw": raw, "normal": normal}


def read_php(path):
    return next(read_php_files([path]))


# MySQL and MariaDB


def find_mysql():
    return None if shutil.which("my_print_defaults") else "mariadb-client-core is not installed"


def read_mysql(path):
    found = []
    groups = re.findall(rb"^[ \t]*\[([^]\n]*)\]", bytes_of(path), re.M)
    for group in dict.fromkeys(group.rstrip(b" \t\v\f\r\xa0") for group in groups) or [b"none"]:
        # Without the lines that include others, which would be followed.
        with open(path, "rb") as file:
            lines = [b"#\n" if line.lstrip().startswith(b"!") else line for line in file]
        run = subprocess.run([b"my_print_defaults", b"--defaults-file=/dev/stdin", b"--",
                              group],
                             input=b"".join(lines), capture_output=True, check=False)
        if run.returncode != 0:
            return refused(text(run.stderr))
        for entry in re.split(rb"\n(?=--)", run.stdout.removesuffix(b"\n")):
            key, equals, value = entry.removeprefix(b"--").partition(b"=")
            if entry:
                found.append([stanza_name(text(group)), text(key),
                              text(value) if equals else None])
    return values(found)


# Samba: testparm prints the parameters that it knows, and all whose name has a colon


def find_samba():
    return None if shutil.which("testparm") else "samba-common-bin is not installed"


def read_samba(path):
    run = subprocess.run(["testparm", "-s", "--suppress-prompt", path], capture_output=True,
                         check=False)
    if run.returncode != 0 and not run.stdout:
        return refused(text(run.stderr))
    found = []
    stanza = "global"
    for line in text(run.stdout).split("\n"):
        if line.startswith("[") and line.endswith("]"):
            stanza = stanza_name(line[1:-1])
        elif line.startswith("\t"):
            key, _, value = line[1:].partition(" = ")
            found.append([stanza, key, value])
    return values(found)


# KConfig: one process for each key, so the keys are taken from the text


def find_kconfig():
    return None if shutil.which("kreadconfig5") else "libkf5config-bin is not installed"


def kconfig_name(spelled):
    """A group or a key without its escapes."""
    letters = {"s": " ", "n": "\n", "t": "\t", "r": "\r", "\\": "\\"}
    return re.sub(r"\\(?:([sntr\\])|x([0-9a-fA-F]{2}))",
                  lambda m: letters[m[1]] if m[1] else chr(int(m[2], 16)), spelled)


def read_kconfig(path):
    found = []
    groups = []
    seen = set()
    for line in text(bytes_of(path)).splitlines():
        line = line.strip()
        if line.startswith("[") and "]" in line:
            chain = re.match(r"(\[[^]]*\])+", line)[0]
            groups = chain[1:-1].split("][")
            if groups[-1] == "$i" and chain == line:  # a mark
                groups.pop()
            groups = [kconfig_name(group) for group in groups]
        elif "=" in line and not line.startswith("#"):
            key = kconfig_name(re.sub(r"\[\$[^]]*\]", "", line.partition("=")[0]).strip())
            if not key or (tuple(groups), key) in seen:
                continue
            seen.add((tuple(groups), key))
            args = [word for group in groups or ["<default>"]
                    for word in ("--group", group.encode("latin-1"))]
            run = subprocess.run(
                ["kreadconfig5", "--file", os.path.abspath(path), "--key",
                 key.encode("latin-1"), "--default", "\x01"]
                + args, capture_output=True, check=False,
                env={**os.environ, "HOME": "/nonexistent", "LC_ALL": "C.UTF-8"})
            value = text(run.stdout).removesuffix("\n")
            if value != "\x01":
                found.append([stanza_name("][".join(groups)) if groups else ".", key, value])
    return values(found)


# systemd: the parser in its shared library


SYSTEMD = "/usr/lib/*/systemd/libsystemd-shared-*.so"


def find_systemd():
    return None if glob.glob(SYSTEMD) else "systemd is not installed"


def read_systemd(path):
    library = ctypes.CDLL(sorted(glob.glob(SYSTEMD))[-1])
    word, number, pointer = ctypes.c_char_p, ctypes.c_int, ctypes.c_void_p
    count = ctypes.c_uint
    found = []

    def take(_unit, _file, _line, section, section_line, key, _type, value, _data, _user):
        found.append([stanza_name(text(section)), text(key), text(value), section_line])
        return 0

    take_pointer = ctypes.CFUNCTYPE(number, word, word, count, word, count, word, number, word,
                                    pointer, pointer)(take)
    address = ctypes.cast(take_pointer, pointer).value

    def look_up(_table, section, _key, function, kind, data, _user):
        ctypes.cast(function, ctypes.POINTER(pointer))[0] = address if section is not None else None
        ctypes.cast(kind, ctypes.POINTER(number))[0] = 0
        ctypes.cast(data, ctypes.POINTER(pointer))[0] = None
        return 0 if section is None else 1

    look_up_pointer = ctypes.CFUNCTYPE(number, pointer, word, word, pointer, pointer, pointer,
                                       pointer)(look_up)
    result = library.config_parse(None, os.fsencode(path), None, None, look_up_pointer, None,
                                  number(2), None, None)
    if result < 0:
        return refused(os.strerror(-result))
    return {"values": [entry[:3] for entry in found], "sections": [entry[3] for entry in found]}


def read_env(path):
    library = ctypes.CDLL(sorted(glob.glob(SYSTEMD))[-1])
    pairs = ctypes.POINTER(ctypes.c_char_p)()
    result = library.load_env_file_pairs(None, os.fsencode(path), ctypes.byref(pairs))
    if result < 0:
        return refused(os.strerror(-result))
    words = []
    while pairs and pairs[len(words)] is not None:
        words.append(text(pairs[len(words)]))
    return values([[".", words[i], words[i + 1]] for i in range(0, len(words), 2)])


# A shell, for files that do nothing but assign


def find_shell():
    return None if shutil.which("sh") else "there is no shell"


def read_shell(path):
    # Words that the shell would run or expand do not come from the caller: only our own samples.
    run = subprocess.run(["sh", "-c", 'set -a; . "$0"; env -0', os.path.abspath(path)],
                         capture_output=True, check=False, env={}, cwd="/")
    if run.returncode != 0:
        return refused(text(run.stderr))
    found = []
    for entry in run.stdout.split(b"\0")[:-1]:
        key, _, value = entry.partition(b"=")
        if key not in (b"PWD", b"OLDPWD", b"SHLVL", b"_"):
            found.append([".", text(key), text(value)])
    return values(found)


# EditorConfig: its parser in Python, with a rule by which every section matches


def find_editorconfig():
    try:
        editorconfig_parser()
    except ImportError:
        return "python3-editorconfig is not installed"
    return None


def editorconfig_parser():
    if "/usr/lib/python3/dist-packages" not in sys.path:
        sys.path.append("/usr/lib/python3/dist-packages")
    from editorconfig import ini  # pylint: disable=import-outside-toplevel
    return ini


def read_editorconfig(path):
    ini = editorconfig_parser()
    found = []

    class Parser(ini.EditorConfigParser):
        """Records each option with its section."""
        section = "."

        class Options(dict):
            """Records each assignment."""
            def __setitem__(self, key, value):
                found.append([parser.section, text(key.encode()), text(value.encode())])

        def matches_filename(self, _file, glob_):
            if self.section == ".":
                self.options = self.Options()
            self.section = stanza_name(text(glob_.encode()))
            return True

    parser = Parser(path)
    try:
        parser.read(path)
    except ini.ParsingError as e:
        return refused(e)
    if parser.root_file:
        found.insert(0, [".", "root", "true"])
    return values(found)


# QSettings: a program, given in the environment


def find_qsettings():
    program = os.environ.get("Z_READ_QSETTINGS")
    return None if program else "qtbase5-dev was not installed when the tests were configured"


def read_qsettings(path, *codec):
    run = subprocess.run([os.environ["Z_READ_QSETTINGS"], path, *codec], capture_output=True,
                         check=True)
    return json.loads(run.stdout)


def read_qsettings_latin1(path):
    return read_qsettings(path, "latin1")


class Peer:
    """A reader, and the dialects that it defines."""

    def __init__(self, name, dialects, find, read, read_all=None):
        self.name = name
        self.dialects = dialects
        self.find = find
        self.read = read
        self.read_all = read_all or (lambda paths: map(read, paths))  # yields a reading of each file


PEERS = [
    Peer("systemd", ["systemd", "networkd"], find_systemd, read_systemd),
    Peer("GKeyFile", ["desktop"], find_glib, read_gkeyfile),
    Peer("git config", ["git"], find_git, read_git),
    Peer("configparser", ["python"], lambda: None, read_python),
    Peer("configparser, inline", ["python-inline"], lambda: None, read_python_inline),
    Peer("php", ["php"], find_php, read_php, read_php_files),
    Peer("my_print_defaults", ["mysql"], find_mysql, read_mysql),
    Peer("testparm", ["samba"], find_samba, read_samba),
    Peer("kreadconfig5", ["kconfig"], find_kconfig, read_kconfig),
    Peer("QSettings", ["qt"], find_qsettings, read_qsettings),
    Peer("QSettings, Latin-1", ["qt"], find_qsettings, read_qsettings_latin1),
    Peer("editorconfig", ["editorconfig"], find_editorconfig, read_editorconfig),
    Peer("systemd, environment", ["env"], find_systemd, read_env),
    Peer("sh", ["env"], find_shell, read_shell),
]


def main():
    peer = next(peer for peer in PEERS if peer.name == sys.argv[1])
    for reading in peer.read_all(sys.argv[2:]):
        print(json.dumps(reading), flush=True)


if __name__ == "__main__":
    main()
