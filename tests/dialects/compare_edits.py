#!/usr/bin/env python3
"""Compares zstz with programs that edit configuration files: the same edits of the same files.

    compare_edits.py ZSTZ PRINT_READING DIRECTORY FILES PAGE

Takes the configuration files of this machine and of the Debian packages that PACKAGES lists, whose
files are extracted below DIRECTORY; for formats with few of them, the samples of the tests, too. Makes
three edits of some of them with each program that edits the format, and checks each result with
DialectModel: the wanted value must be there, and no other may differ. Takes FILES files of
each format. Writes the counts to PAGE.
"""

import collections
import difflib
import json
import os
import pathlib
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import textwrap
import time

import judge
import peers

# Packages with many configuration files. Their files are extracted; nothing is installed.
PACKAGES = """systemd systemd-container udisks2 network-manager openssh-server apache2 mariadb-server
mariadb-common php8.2-common php8.2-cli samba-common supervisor fail2ban git-buildpackage plasma-desktop
plasma-workspace kdeconnect konsole kate dolphin gnome-control-center gnome-shell nautilus libreoffice-common
vlc-data python3-numpy python3-sphinx mercurial procps bluez cups-daemon ansible-core""".split()

SAMPLES = pathlib.Path(__file__).resolve().parents[1] / "data" / "dialects"
MAX_LINES = 4000
VALUE = "changed-42"
NEW_KEY = "znewkey"
KINDS = ("set", "add", "remove")


class Edit:
    """A change of one value in a file of a dialect."""

    def __init__(self, kind, dialect, stanza, key):
        self.kind = kind
        self.dialect = dialect
        self.stanza = stanza
        self.key = key

    def applied_to(self, reading):
        """The reading after the edit: a map of (stanza, key) to values."""
        expected = dict(reading)
        if self.kind == "remove":
            del expected[self.stanza, self.key]
        else:
            expected[self.stanza, self.key] = [VALUE]
        return expected


def run(command):
    """Runs the command. Returns its exit code, the milliseconds that it took, and its messages."""
    started = time.monotonic()
    try:
        result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE, timeout=60, check=False)
    except subprocess.TimeoutExpired:
        return -1, (time.monotonic() - started) * 1000, b"took more than a minute"
    return result.returncode, (time.monotonic() - started) * 1000, result.stderr


# A function of each program gets a path and an edit, and returns what run() returns.


def zstz(program):
    def edit_file(path, edit):
        verb = ["unset"] if edit.kind == "remove" else ["set"]
        value = [] if edit.kind == "remove" else [VALUE]
        return run([program, *verb, "--dialect", edit.dialect, path, edit.stanza, edit.key, *value])

    return edit_file


def crudini(path, edit):
    stanza = "" if edit.stanza == "." else edit.stanza
    if edit.kind == "remove":
        return run(["crudini", "--del", path, stanza, edit.key])
    return run(["crudini", "--set", path, stanza, edit.key, VALUE])


def git(path, edit):
    name = f"{edit.stanza}.{edit.key}"
    change = ["--unset", name] if edit.kind == "remove" else [name, VALUE]
    return run(["git", "config", "--file", path, *change])


LENSES = {"systemd": "Systemd", "networkd": "Systemd", "desktop": "Desktop", "php": "PHP",
          "samba": "Samba", "mysql": "MySQL", "sysctl": "Sysctl", "env": "Shellvars",
          "python": "Pythonpaste", "ini": "Puppet"}
TARGETS = {"samba", "mysql"}  # dialects whose stanzas are nodes "target"


def augtool(path, edit):
    if edit.stanza == ".":
        stanza = "/.anon" if edit.dialect in ("php", "ini") else ""
    elif edit.dialect in TARGETS:
        stanza = f"/target[.='{edit.stanza}']"
    else:
        stanza = f"/*[label()='{edit.stanza}']"
    node = f"/files{path}{stanza}/{edit.key}"
    if edit.dialect in ("systemd", "networkd"):
        node += "/value" if edit.kind != "remove" else ""
    change = f"rm {node}" if edit.kind == "remove" else f'set {node} "{VALUE}"'
    lens = LENSES[edit.dialect]
    return run(["augtool", "--noautoload", "--transform", f"{lens}.lns incl {path}",
                "--autosave", change])


def kwriteconfig(path, edit):
    groups = [word for group in edit.stanza.split("][") for word in ("--group", group)]
    if edit.stanza == ".":
        groups = []
    change = ["--delete", "unused"] if edit.kind == "remove" else [VALUE]
    return run(["kwriteconfig5", "--file", path, *groups, "--key", edit.key, *change])


KEY_FILE = """
import ctypes, ctypes.util, sys
glib = ctypes.CDLL(ctypes.util.find_library("glib-2.0"))
glib.g_key_file_new.restype = ctypes.c_void_p
file = ctypes.c_void_p(glib.g_key_file_new())
path, kind, stanza, key, value = (word.encode("utf-8", "surrogateescape") for word in sys.argv[1:])
keep_comments_and_translations = 3
if not glib.g_key_file_load_from_file(file, path, keep_comments_and_translations, None):
    sys.exit(1)
if kind == b"remove":
    if not glib.g_key_file_remove_key(file, stanza, key, None):
        sys.exit(1)
else:
    glib.g_key_file_set_string(file, stanza, key, value)
if not glib.g_key_file_save_to_file(file, path, None):
    sys.exit(1)
"""


def key_file(path, edit):
    return run([sys.executable, "-c", KEY_FILE, path, edit.kind, edit.stanza, edit.key, VALUE])


def programs(ours):
    """Name, function, dialects that it edits (None: all), and a remark on its limits."""
    ini = {"systemd", "desktop", "php", "samba", "mysql", "python", "ini", "sysctl", "env",
           "editorconfig", "git", "kconfig", "qt"}
    return [
        ("zstz", zstz(ours), None, ""),
        ("crudini", crudini, ini if shutil.which("crudini") else set(),
         "selects no line among several values of a key"),
        ("git config", git, {"git"} if shutil.which("git") else set(), "only its own format"),
        ("augtool", augtool, set(LENSES) if shutil.which("augtool") else set(),
         "refuses a file for one line that its lens does not describe; a lens per format"),
        ("kwriteconfig5", kwriteconfig,
         {"kconfig", "desktop"} if shutil.which("kwriteconfig5") else set(),
         "writes the whole file in its own order; drops comments"),
        ("GKeyFile", key_file, {"desktop"} if peers.find_glib() is None else set(),
         "a library; only its own format; the time includes the start of Python"),
    ]


class Judge:
    """Reads files with DialectModel."""

    def __init__(self, program):
        self.program = program

    def read(self, dialect, path):
        """A map of (stanza, key) to values, or None if the file is refused."""
        line = judge.output_lines([self.program, dialect, path])
        reading = json.loads(line[0]) if line else {"refused": True}
        if reading["refused"]:
            return None
        return {(stanza, key): values for stanza, keys in reading["stanzas"]
                for key, values, _, _ in keys}


def fetch(directory):
    """Extracts the packages that can be downloaded, each into a directory of its own."""
    os.makedirs(directory, exist_ok=True)
    for package in PACKAGES:
        target = os.path.join(directory, package)
        if os.path.isdir(target):
            continue
        subprocess.run(["apt-get", "-q", "download", package], cwd=directory,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        for archive in pathlib.Path(directory).glob(package + "_*.deb"):
            subprocess.run(["dpkg-deb", "--extract", archive, target], check=True)
            archive.unlink()


def without_copies(files):
    """The text files, none with the contents of another, in a reproducible random order."""
    contents = {}
    for path in sorted(files):
        data = pathlib.Path(path).read_bytes()
        if b"\0" not in data and data.count(b"\n") <= MAX_LINES:
            contents.setdefault(data, path)
    files = sorted(contents.values())
    random.Random(1).shuffle(files)
    return files


def chosen_files(print_reading, roots):
    """Files by dialect: files of the machine, then samples."""
    found = judge.machine_files(print_reading, roots)
    samples = judge.samples(SAMPLES)
    return {dialect: without_copies(found.get(dialect, [])) + without_copies(samples[dialect])
            for dialect in sorted(samples) if dialect != "stanza"}


def is_plain(name):
    return name and all(c.isalnum() or c in "-_." for c in name) and name.isascii()


def edits_of(dialect, path, reading):
    """An edit of each kind, of names that no program needs to quote."""
    keys = [(stanza, key) for (stanza, key), values in reading.items()
            if len(values) == 1 and values[0] is not None and is_plain(key) and
            (stanza == "." or is_plain(stanza.replace(" ", "").replace("][", "")))]
    if not keys:
        return []
    rng = random.Random(path)
    stanza, key = rng.choice(keys)
    removed = rng.choice(keys)
    return [Edit("set", dialect, stanza, key), Edit("add", dialect, stanza, NEW_KEY),
            Edit("remove", dialect, *removed)]


def changed_lines(before, after):
    """The lines that differ; a line in the place of another counts once."""
    matcher = difflib.SequenceMatcher(None, before, after, autojunk=False)
    return sum(max(last - first, end - begin)
               for tag, first, last, begin, end in matcher.get_opcodes() if tag != "equal")


class Counts:
    """Results of a program in the files of a dialect."""

    def __init__(self):
        self.edits = self.one_line = self.more = self.most = self.refused = self.damaged = 0
        self.times = []
        self.reasons = collections.Counter()

    def add(self, other):
        for name in ("edits", "one_line", "more", "refused", "damaged"):
            setattr(self, name, getattr(self, name) + getattr(other, name))
        self.most = max(self.most, other.most)
        self.times += other.times

    def cells(self, ours):
        """The cells of a row. OURS are the counts of zstz in the same formats."""
        time = factor = "–"
        if self.times:
            time = f"{statistics.median(self.times):.1f}"
            factor = f"{statistics.median(self.times) / statistics.median(ours.times):.1f}"
        return [self.edits, self.one_line, self.more, self.most, self.refused, self.damaged, time,
                factor]


def reason(messages, path):
    """The first message of a program, without its name and the path."""
    lines = messages.decode("utf-8", "replace").splitlines() or ["no message"]
    return re.sub(rf"^(zstz: )?({re.escape(path)}:)?(\d+:)*\s*", "", lines[0]).replace(path, "the file")


def try_edit(edit_file, edit, original, reading, judge_of, directory, counts):
    path = os.path.join(directory, os.path.basename(original))
    shutil.copyfile(original, path)
    before = pathlib.Path(path).read_bytes()
    code, milliseconds, messages = edit_file(path, edit)
    after = pathlib.Path(path).read_bytes()
    os.unlink(path)
    counts.edits += 1
    if code != 0 or after == before:
        counts.refused += after == before
        counts.damaged += after != before
        counts.reasons[edit.kind, reason(messages, path)] += 1
        return
    counts.times.append(milliseconds)
    copy = os.path.join(directory, "after")
    pathlib.Path(copy).write_bytes(after)
    if judge_of.read(edit.dialect, copy) != edit.applied_to(reading):
        counts.damaged += 1
        return
    lines = changed_lines(before.splitlines(keepends=True), after.splitlines(keepends=True))
    counts.one_line += lines == 1
    counts.more += lines != 1
    counts.most = max(counts.most, lines)


def measure(programs_, files, most, judge_of, directory):
    """Counts by (dialect, program) and the number of files by dialect."""
    results = collections.defaultdict(Counts)
    used = collections.Counter()
    for dialect, paths in files.items():
        for path in paths:
            if used[dialect] == most:
                break
            reading = judge_of.read(dialect, path)
            edits = edits_of(dialect, path, reading) if reading else []
            used[dialect] += bool(edits)
            for edit in edits:
                for name, edit_file, dialects, _ in programs_:
                    if dialects is None or dialect in dialects:
                        try_edit(edit_file, edit, path, reading, judge_of, directory,
                                 results[dialect, name])
        print(f"{dialect}: {used[dialect]} files", flush=True)
    return results, used


INTRODUCTION = """`./dev compare` wrote this page. It took {files} files of {formats} formats from a
Debian machine, from {packages} packages and from the samples of the tests, and made three edits of each
with every program that edits the format: it set a value to `{value}`, added the key `{key}` to a stanza,
and removed a key. It chose no key with several values, because most programs cannot select one of
them. An independent reader checked each result: the wanted value must be there, and no other value
may differ; otherwise the file is damaged. An edit is refused if the program fails and the file
is as before, or if it reports success and changes nothing. A removed value with multiple lines takes
all of them, so more than one line can be right. The time is the median of whole processes that made
an edit, followed by its factor of the time of `zstz` in the same formats; the files are in memory,
because `zstz` waits for the disk and other programs do not. A smaller maximum can mean that a
program refuses or damages the edits that need more lines."""

HEAD = ["edits", "one line", "more lines", "most", "refused", "damaged", "ms", "factor"]


def table(rows, first):
    lines = ["| " + " | ".join(first + HEAD) + " |",
             "|" + "---|" * len(first) + "---:|" * len(HEAD)]
    return lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]


def page(programs_, results, used):
    totals = collections.defaultdict(Counts)
    own = collections.defaultdict(Counts)  # of zstz, in the dialects of the other program
    for (dialect, name), counts in results.items():
        totals[name].add(counts)
        for other, _, dialects, _ in programs_:
            if name == "zstz" and dialects is not None and dialect in dialects:
                own[other].add(counts)
    rows = []
    for name, _, dialects, _ in programs_:
        if name not in totals:
            continue
        if dialects is not None:
            rows.append([f"zstz, where {name} edits"] + own[name].cells(own[name]))
        rows.append([name] + totals[name].cells(totals[name] if dialects is None else own[name]))
    formats = len([dialect for dialect in used if used[dialect]])
    lines = [
        "# Compared with other editors of configuration files",
        "",
        *textwrap.wrap(INTRODUCTION.format(files=sum(used.values()), formats=formats,
                                           packages=len(PACKAGES), value=VALUE, key=NEW_KEY), 100),
        "",
        "## All formats",
        "",
        *table(rows, ["Program"]),
        "",
        "| Program | Cannot do |",
        "|---|---|",
        *[f"| {name} | {remark} |" for name, _, _, remark in programs_
          if remark and name in totals],
        "",
        "## Edits that zstz refuses",
        "",
        "| Format | Edit | Edits | Reason |",
        "|---|---|---:|---|",
        *[f"| {dialect} | {kind} | {count} | {text} |" for dialect in used
          for (kind, text), count in sorted(results[dialect, "zstz"].reasons.items())],
        "",
        "## By format",
        "",
        *table([[dialect, used[dialect], name] +
                results[dialect, name].cells(results[dialect, "zstz"])
                for dialect in used if used[dialect] for name, _, _, _ in programs_
                if (dialect, name) in results], ["Format", "Files", "Program"]),
    ]
    return "\n".join(lines) + "\n"


def main():
    ours, print_reading, directory, most, target = sys.argv[1:]
    directory = os.path.realpath(directory)
    packages = os.path.join(directory, "packages")
    fetch(packages)
    files = chosen_files(print_reading, [*judge.ROOTS, packages])
    known = programs(os.path.realpath(ours))
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else directory
    with tempfile.TemporaryDirectory(dir=memory) as work:
        results, used = measure(known, files, int(most), Judge(print_reading), work)
    pathlib.Path(target).write_text(page(known, results, used), encoding="utf-8")
    print(f"wrote {target}")


if __name__ == "__main__":
    main()
