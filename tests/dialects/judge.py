#!/usr/bin/env python3
"""Compares DialectModel with the readers that define the formats.

    judge.py PRINT_READING SAMPLES [DIRECTORY...]

Reads the sample files in the directory SAMPLES, and the configuration files below the directories
(by default of this machine) whose names determine the dialect. Prints counts for each reader and a
table of the differences with their reasons. Fails if a difference has no reason. A reader that is
not installed is left out.
"""

import collections
import json
import os
import pathlib
import subprocess
import sys

import differences
import peers

ROOTS = ["/etc", "/usr/lib", "/usr/share", "/usr/local", "/opt", sys.prefix]
MAX_SIZE = 1 << 20
MAX_FILES = 1500  # of one dialect
SKIPPED = ("/proc", "/sys", "/usr/share/zoneinfo", "/usr/share/i18n", "/usr/share/icons")


def paths_below(roots):
    for root in dict.fromkeys(os.path.realpath(root) for root in roots):
        for directory, subdirectories, names in os.walk(root):
            subdirectories[:] = [name for name in subdirectories
                                 if not os.path.join(directory, name).startswith(SKIPPED)]
            for name in names:
                path = os.path.join(directory, name)
                if "\n" not in path:
                    yield path


def machine_files(print_reading, roots):
    """The configuration files below the roots, each once, by dialect."""
    paths = list(paths_below(roots))
    run = subprocess.run([print_reading, "--names"], input=os.fsencode("\n".join(paths)),
                         stdout=subprocess.PIPE, check=True)
    found = collections.defaultdict(set)
    for path, dialect in zip(paths, run.stdout.decode("ascii").splitlines()):
        real = os.path.realpath(path) if dialect != "stanza" else ""
        if (os.path.isfile(real) and os.access(real, os.R_OK) and
                os.path.getsize(real) <= MAX_SIZE):
            found[dialect].add(real)
    return {dialect: sorted(files)[:MAX_FILES] for dialect, files in found.items()}


def samples(directory):
    found = collections.defaultdict(list)
    for path in sorted(pathlib.Path(directory).iterdir()):
        if path.suffix not in (".reading", ".refused", ".counts"):
            found[path.name.partition(".")[0]].append(str(path))
    return found


def readings(command, files):
    """Runs the command on chunks of the files. Yields a line of JSON for each file, or None."""
    for start in range(0, len(files), 100):
        chunk = files[start:start + 100]
        lines = output_lines(command + chunk)
        if len(lines) != len(chunk):  # one of them ended the program
            lines = [(output_lines(command + [file]) or [None])[0] for file in chunk]
        yield from zip(chunk, (json.loads(line) if line else None for line in lines))


def output_lines(command):
    run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    return run.stdout.decode("ascii").splitlines()


class Report:
    """Counts of one peer."""

    def __init__(self):
        self.files = self.agree = self.both = self.differ = 0


def judge(peer, dialect, files, print_reading, report, table):
    """Compares the readings of the files. Returns the differences without a reason."""
    ours = readings([print_reading, dialect], files)
    program = os.path.join(os.path.dirname(os.path.abspath(__file__)), "peers.py")
    theirs = readings([sys.executable, program, peer.name], files)
    unexplained = []
    for (path, reading), (_, result) in zip(ours, theirs):
        report.files += 1
        if result is None:
            result = {"refused": "the reader crashed"}
        data = peers.text(peers.bytes_of(path))
        cases = differences.compare(peer.name, dialect, data, reading, result)
        if cases == "agree":
            report.agree += 1
            continue
        if cases == "both":
            report.both += 1
            continue
        report.differ += 1
        for reason in {differences.reason(peer.name, case): case for case in cases}:
            if reason:
                table[peer.name, reason].append(path)
        unexplained += [f"{dialect} {path}: {peer.name}: {case.text()}" for case in cases
                        if not differences.reason(peer.name, case)]
    return unexplained


def print_reasons(table, example, kind, unexplained):
    """Prints the cases of each (reader, reason), and the cases without a reason. Returns the exit
    code."""
    for (name, reason), cases in sorted(table.items()):
        print(f"{len(cases):6}  {name}: {reason}; {example(cases)}")
    for line in unexplained:
        print(line)
    print(f"\n{len(unexplained)} {kind} without a reason")
    return 1 if unexplained else 0


def main():
    print_reading = sys.argv[1]
    groups = [("samples", samples(sys.argv[2])),
              ("this machine", machine_files(print_reading, sys.argv[3:] or ROOTS))]
    table = collections.defaultdict(list)
    unexplained = []
    print(f"{'':38}{'files':>6}{'agree':>7}{'refused by both':>17}{'differ':>8}")
    for peer in peers.PEERS:
        missing = peer.find()
        if missing:
            print(f"{peer.name}: left out, {missing}")
            continue
        for group, files in groups:
            report = Report()
            for dialect in peer.dialects:
                if peer.name != "sh" or group == "samples":  # a file of the machine may do harm
                    unexplained += judge(peer, dialect, files.get(dialect, []), print_reading,
                                         report, table)
            if report.files:
                print(f"{peer.name + ', ' + group:38}{report.files:6}{report.agree:7}"
                      f"{report.both:17}{report.differ:8}", flush=True)
    print("\nDifferences")
    return print_reasons(table, lambda paths: os.path.basename(paths[0]), "differences", unexplained)


if __name__ == "__main__":
    sys.exit(main())
