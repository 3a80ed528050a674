#!/usr/bin/env python3
"""Compares `zstz lint` with the refusals of the readers that define the formats.

    refusals.py SHARE ZSTZ SAMPLES [MUTATIONS]

Mutates the sample files in the directory SAMPLES, one file in SHARE, MUTATIONS times each, with a fixed
seed. Where a reader refuses such a file, lint must print an error for it. Prints counts for each
reader and a table of the differences with their reasons. Fails if a difference has no reason. A
reader that is not installed is left out.
"""

import collections
import configparser
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile

import differences
import judge
import peers

INSERTED = (b"'", b'"', b"[", b"]", b"=", b";", b"#", b"\\", b" ", b"\t", b"\n", b"(", b")", b"{", b"}",
            b"$", b"${", b"&", b"|", b"^", b"~", b"!", b":", b"%", b"-", b"null", b"no ", b" yes",
            b"None", b"a", b"1", b"\n  ", b"\n[", b" x ", b"\r", b"\r\n")


def mutated(data, other, rng):
    """The file after one change, or two."""
    for _ in range(rng.choice((1, 1, 2))):
        at = rng.randrange(len(data) + 1)
        lines = data.splitlines(keepends=True) or [b""]
        line = rng.randrange(len(lines))
        kind = rng.randrange(8)
        if kind < 3:
            data = data[:at] + rng.choice(INSERTED) + data[at:]
        elif kind == 3:
            data = data[:at] + data[at + 1:]
        elif kind == 4:
            data = data[:at] + rng.choice(INSERTED) + data[at + 1:]
        elif kind == 5:  # a line twice
            lines.insert(rng.randrange(len(lines) + 1), lines[line])
            data = b"".join(lines)
        elif kind == 6:
            del lines[line]
            data = b"".join(lines)
        else:  # with a line of another sample
            lines.insert(line, rng.choice(other.splitlines(keepends=True) or [b""]))
            data = b"".join(lines)
    return data


def python_refusal(path, **options):
    parser = configparser.RawConfigParser(**options)
    try:
        with open(path, encoding="utf-8", errors="surrogateescape") as file:
            parser.read_file(file)
    except configparser.Error as e:
        return str(e)
    return None


def refusal_by(peer):
    def refusal(path):
        try:
            return peer.read(path).get("refused")
        except UnicodeDecodeError as e:
            return str(e)
    return refusal


def php_refusals(paths):
    return [reading["normal"].get("refused") for reading in peers.read_php_files(paths)]


def shell_refusal(path):
    run = subprocess.run(["sh", "-n", path], capture_output=True, check=False)
    return peers.text(run.stderr) if run.returncode != 0 else None


def each(refusal):
    return lambda paths: map(refusal, paths)


# Functions that return why a reader refuses each file, or None, if the reading of the peer has
# another rule, or if one process reads them all. Supervisor, the user of "python-inline", reads with strict=False.
REFUSALS = {
    "configparser": each(python_refusal),
    "configparser, inline": each(lambda path: python_refusal(
        path, strict=False, inline_comment_prefixes=("#", ";"))),
    "php": php_refusals,
    "sh": each(shell_refusal),
}

# The share of the files that a reader which is a slow process gets.
SHARES = {"testparm": 8, "kreadconfig5": 16}

# Readers, the reason for which a file that the reader refuses has no error, and whether it applies
# to a file with a message of the reader.
ROWS = [
    ("systemd, environment editorconfig",
     "the reader refuses bytes that are not UTF-8; other readers of the format accept them",
     lambda data, message: not differences.is_utf8(peers.text(data))),
    ("editorconfig", "indented comments are keys or errors there; newer readers accept them",
     lambda data, message: re.search(rb"^[ \t]+[#;]", data, re.M) is not None),
    ("editorconfig", "a header with a comment mark is refused there; newer readers accept it",
     lambda data, message: re.search(rb"^(\xef\xbb\xbf)?[ \t]*\[[^\n]*[#;]",
                                     data, re.M) is not None),
    ("sh", "other programs than a shell read values with its operators, and lines that it runs",
     lambda data, message: re.search(rb"[()&|;<>`${}'\"]|^[ \t]*(!|if|then|elif|else|fi|for|while|"
                                     rb"until|do|done|case|esac)([ \t]|$)",
                                     data, re.M) is not None),
    ("QSettings", "the reader has a status for lines without a separator, and reads all others",
     lambda data, message: re.search(rb"^(?![;\[])[^=\n]*[^=\s][^=\n]*$|\][^=\n]+=", data,
                                     re.M) is not None),
    ("QSettings", "a quote, backslash or semicolon in a name hides its separator there",
     lambda data, message: re.search(rb"^[^=\n]*[\"\\;]", data, re.M) is not None),
]


def reason(peer, data, message):
    peer = peer.removesuffix(", Latin-1")
    for names, text, applies in ROWS:
        is_for_peer = names == "" or peer in names.split() or names.startswith(peer + " ")
        if is_for_peer and applies(data, message):
            return text
    return None


def lint(zstz, dialect, paths):
    """Whether each file has an error."""
    errors = {path: False for path in paths}
    for start in range(0, len(paths), 200):
        run = subprocess.run([zstz, "lint", "--format", "json", "--dialect", dialect, "--"] +
                             paths[start:start + 200], stdout=subprocess.PIPE, check=False)
        for line in run.stdout.decode("utf-8").splitlines():
            problem = json.loads(line)
            errors[problem["file"]] |= problem["kind"] == "error"
    return errors


def main():
    os.environ["SYSTEMD_LOG_LEVEL"] = "emerg"
    share, zstz, directory = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    count = int(sys.argv[4]) if len(sys.argv) > 4 else 40
    samples = judge.samples(directory)
    table = collections.defaultdict(list)
    unexplained = []
    print(f"{'':38}{'files':>6}{'both':>7}{'lint alone':>12}{'silent':>8}")
    with tempfile.TemporaryDirectory() as scratch:
        for peer in peers.PEERS:
            missing = peer.find()
            if missing:
                print(f"{peer.name}: left out, {missing}")
                continue
            refusals = REFUSALS.get(peer.name) or each(refusal_by(peer))
            for dialect in peer.dialects:
                rng = random.Random(len(dialect))
                texts = [pathlib.Path(path).read_bytes() for path in samples[dialect]]
                texts = [text for text in texts if len(text) < 4000 and b"\0" not in text]
                paths = []
                for text in texts[::share]:
                    for _ in range(count // SHARES.get(peer.name, 1)):
                        path = os.path.join(scratch, f"{dialect}{len(paths)}")
                        pathlib.Path(path).write_bytes(mutated(text, rng.choice(texts), rng))
                        paths.append(path)
                errors = lint(zstz, dialect, paths)
                both = alone = silent = 0
                for path, message in zip(paths, refusals(paths)):
                    both += message is not None and errors[path]
                    alone += message is None and errors[path]
                    if message is None or errors[path]:
                        continue
                    silent += 1
                    data = pathlib.Path(path).read_bytes()
                    why = reason(peer.name, data, message)
                    if why:
                        table[peer.name, why].append(data)
                    else:
                        unexplained.append(f"{dialect}: {peer.name}: {message!r}: {data!r}")
                print(f"{peer.name + ', ' + dialect:38}{len(paths):6}{both:7}{alone:12}{silent:8}",
                      flush=True)
    print("\nFiles without an error that a reader refuses")
    return judge.print_reasons(table, lambda files: repr(min(files, key=len)), "silences", unexplained)


if __name__ == "__main__":
    sys.exit(main())
