#!/usr/bin/env python3
"""Counts phrases that make comments, strings and documents hard to read, file by file.

A phrase is a hint, not an error: each is right somewhere. So the check compares counts. It fails if
a file has more hits than tools/dev/prose_counts.txt allows it (0 if it is not in the list); rewrite
the new sentence, or, if the phrase is right, run --update and have the reviewer agree.

usage: prose.py                  compares the counts; exits 1 if one has risen
       prose.py FILE...          prints each hit: FILE:LINE: phrase; better phrase
       prose.py --update         writes the counts of today
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
COUNTS = ROOT / "tools" / "dev" / "prose_counts.txt"
SKIPPED = ("tests/data/", "tests/abi/", "fuzz/corpus/", "examples/expected/", "src/qvr/tables/",
           "tools/dev/prose")
FIXED_STRINGS = "src/Z/reporting/messages.cpp"  # programs match its texts
OPENING = r"(?:^|[.;:!?|] +)"  # start of a sentence or of a table cell

THROWS = "throws; increments"

# Phrase, and what to write instead.
PHRASES = [
    # A clause as subject or object
    (OPENING + r"(?:What|Who|Whoever|Whatever|That which)\b(?![^.]*\?)", "name the subject"),
    (r"\bwhat (?:is|are|was|were|has|have|had|it|they|the|a|an|we|you|comes?|goes|stands?|follows)\b",
     "name the thing"),
    (r"\b(?:those|he|him|everybody|somebody|nobody|whoever) who\b|\bwho (?:waits?|holds?|comes)\b",
     "a thread, process or caller that ..."),
    (r"\b(?:those|the ones?|one) that\b|\b(?:that|those) of\b", "repeat the noun"),
    # Position and order
    (r"\bbehind\b", "after, past, next to"),
    (r"\bin front(?: of)?\b", "before"),
    (r"\bbesides?\b", "next to, also"),
    (r"\b(?:stands|stood)\b(?! (?:for|on|in for)\b)", "is, appears"),
    (r"\b(?:lies|lay)\b", "is, is stored"),
    (r"\b(?:come|comes|came) (?:in|behind|first|last|back|along|by|up)\b", "follows, is added"),
    (r"\b(?:go|goes|going|went) (?:on|out|away|along|through|by)\b", "continue, be freed, be written"),
    (r"\bgone\b", "removed, freed"),
    # Verbs
    (r"\b(?:give|gives|gave|given|giving) (?:\w+ )?back\b", "release, free, return"),
    (r"\b(?:put|puts|putting) (?:\w+ ){0,3}(?:back|behind|aside)\b", "restore, append, move"),
    (r"\b(?:take|takes|took|taken|taking) (?:\w+ ){0,2}(?:back|apart|away)\b", "undo, parse, remove"),
    (r"\bhand(?:s|ed)? (?:\w+ )?(?:out|over|on)\b", "return, pass, forward"),
    (r"\blet(?:s|ting)? go\b", "release, unlock"),
    (r"\blook(?:s|ed|ing)? (?:at|whether|into)\b", "read, check, examine"),
    (r"\b(?:says?|said|tells?|told|telling)\b", "indicates, reports, notifies"),
    (r"\banswer(?:s|ed|ing)?\b", "returns, replies"),
    (r"\b(?:raise|raises|raised|raising)\b(?! sites?\b)", THROWS),
    (r"\b(?:is|are|was|were|be|been) made\b", "is created"),
    (r"\bjudge[sd]?\b", "validate, classify"),
    (r"\b(?:enters?|entered)\b", "insert, register"),
    (r"\bwalk(?:s|ed|ing)?\b", "iterate over, scan"),
    (r"\b(?:does|do|did) not count\b|\bcounts\.", "is ignored, is valid"),
    (r"\b(?:dies|died|dead)\b", "crashed, ended, unused"),
    (r"\basked for\b", "requested, passed"),
    (r"\bmakes? sure\b", "ensure, check"),
    # Nouns and adverbs
    (r"\bfolders?\b", "directory"),
    (r"\b(?:texts|a text)\b", "string, contents"),
    (r"\bblanks\b", "spaces"),
    (r"\bline feeds?\b", "newline"),
    (r"\bline ends?\b", "line ending"),
    (r"\bwhite space\b", "whitespace"),
    (r"\btruth values?\b", "boolean"),
    (r"\b(?:un)?pack(?:s|ed)\b", "compressed, expanded"),
    (r"\b(?:somebody|someone|nobody|everybody)\b", "another process, no thread"),
    (r"\b(?:anew|afresh)\b", "again, from scratch"),
    (r"\b(?:meanwhile|all the same|in turn|for ever|at once)\b", "while ..., still, one after another"),
    (r"\b(?:on its way|under way)\b", "in progress"),
    (r"\b(?:null|empty|true|false|0|-1) when\b", "if, for a condition"),
    (r"\b(?:of ours|is ours|theirs)\b", "name the owner"),
    (r"\bas (?:it was|they were)\b", "unchanged"),
    (r"\b(?:is|are) none\b(?! of)", "does not exist, is not one"),
]
RULES = [(re.compile(pattern, 0 if pattern.startswith(OPENING) else re.IGNORECASE), better)
         for pattern, better in PHRASES]
CODE_TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)\'', re.S)
QUOTED = re.compile(r"`[^`]*`|\b\w+\(\)|\b\w+_6_0\b")


def joined_runs(pieces):
    """Joins the texts of adjacent lines. Takes (line, text) pairs, yields the same."""
    run = None
    for line, text in pieces:
        if run and line == run[2] + 1:
            run = (run[0], f"{run[1]}\n{text}", line)
        else:
            if run:
                yield run[0], run[1]
            run = (line, text, line)
    if run:
        yield run[0], run[1]


def prose_of_code(text, with_strings):
    comments = []
    for token in CODE_TOKEN.finditer(text):
        line, word = text.count("\n", 0, token.start()) + 1, token.group()
        if word[0] == "/":
            for i, one in enumerate(word.split("\n")):
                comments.append((line + i, one.strip().lstrip("/*!< ").rstrip("*/ ")))
        elif word[0] == '"' and with_strings and " " in word:
            yield line, word.strip('"').replace("\\n", " ")
    yield from joined_runs(comments)


def prose_of_script(text):
    yield from joined_runs((i, line.strip().lstrip("# ")) for i, line in enumerate(text.split("\n"), 1)
                           if line.strip().startswith("#") and not line.startswith("#!"))
    for i, line in enumerate(text.split("\n"), 1):
        for string in re.findall(r'"([^"\\]*)"', line):
            if " " in string and not line.strip().startswith("#"):
                yield i, string


def prose_of_page(text):
    lines, fenced = [], False
    for i, line in enumerate(text.split("\n"), 1):
        if line.lstrip().startswith("```"):
            fenced = not fenced
        elif not fenced and line.strip():
            lines.append((i, line.strip().lstrip("#*- ")))
    yield from joined_runs(lines)


def prose_of(path):
    text = (ROOT / path).read_text(encoding="utf-8", errors="replace")
    if path.endswith((".cpp", ".h", ".c", ".java")):
        return prose_of_code(text, path != FIXED_STRINGS)
    if path.endswith(".md"):
        return prose_of_page(text)
    if path.endswith((".py", ".sh", ".cmake", ".txt")) or text.startswith("#!"):
        return prose_of_script(text)
    return ()


def hits(path):
    """Yields (line, phrase, better phrase)."""
    for first, text in prose_of(path):
        text = QUOTED.sub(lambda match: "_" * len(match.group()), text)
        flat = text.replace("\n", " ")
        for rule, better in RULES:
            if better == THROWS and (path.endswith(".py") or path == "docs/python.md"):  # Python raises
                continue
            for match in rule.finditer(flat):
                yield first + text.count("\n", 0, match.start()), match.group().strip(), better


def tracked():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    return [path for path in listed if path and not path.startswith(SKIPPED) and (ROOT / path).is_file()]


def main():
    if sys.argv[1:] and sys.argv[1] != "--update":
        for path in sys.argv[1:]:
            for line, phrase, better in sorted(hits(path)):
                print(f"{path}:{line}: {phrase}; {better}")
        return 0
    counts = {path: count for path in tracked() if (count := sum(1 for _ in hits(path)))}
    if sys.argv[1:]:
        COUNTS.write_text("# Hits that tools/dev/prose.py allows in each file. Numbers only fall.\n"
                          + "".join(f"{counts[path]} {path}\n" for path in sorted(counts)), encoding="utf-8")
        return 0
    allowed = {}
    for line in COUNTS.read_text(encoding="utf-8").splitlines():
        if not line.startswith("#"):
            count, path = line.split(" ", 1)
            allowed[path] = int(count)
    risen = [path for path in sorted(counts) if counts[path] > allowed.get(path, 0)]
    for path in risen:
        print(f"{path}: {counts[path]} phrases to rewrite, {allowed.get(path, 0)} allowed; "
              f"run tools/dev/prose.py {path}", file=sys.stderr)
    print(f"{sum(counts.values())} phrases in {len(counts)} files, {len(risen)} files above their number")
    return 1 if risen else 0


if __name__ == "__main__":
    sys.exit(main())
