"""Compares a reading of DialectModel with a peer's, and gives reasons for the differences."""

import re


class Case:
    """A difference in the values of a key, or, without a key, in whether the file is refused."""

    def __init__(self, data, refused, message, key=None, model=None, peer=None):
        self.data = data        # of the file, as Latin-1 text
        self.refused = refused  # "here", "there" or None
        self.message = message  # of the side that refuses
        self.key = key          # stanza and key
        self.model = model      # its values, or None without such a key
        self.peer = peer        # as `model`

    def text(self):
        if self.refused:
            return f"refused {self.refused}: {self.message}"
        return f"{self.key}: here {self.model!r}, there {self.peer!r}"


def is_utf8(text):
    try:
        text.encode("latin-1").decode("utf-8")
    except UnicodeDecodeError:
        return False
    return True


def squeezed(values):
    return values and [value and " ".join(value.split()) for value in values]


def same_without(pattern, ours, theirs):
    """Whether both are the same values after replacing the pattern by a space."""
    return (ours is not None and theirs is not None and
            squeezed([re.sub(pattern, " ", v or "") for v in ours]) ==
            squeezed([re.sub(pattern, " ", v or "") for v in theirs]))


def unicode_blanks(values):
    return values and [value and value.encode("latin-1").decode("utf-8", "replace").strip()
                       for value in values]


def repeats_a_header(data):
    headers = re.findall(r"^[ \t]*\[([^]\n]*)\]", data, re.M)
    return len(headers) != len({header.lower() for header in headers})


def is_partly_quoted(values):
    return any(value and re.search(r"[\"']", value) for value in values or [])


# Peers, the reason, and whether it is the reason for a case. The first that applies is taken. A row
# for peers "" is for all of them.
ROWS = [
    ("", "a zero byte is refused here; the reader stops or continues at it",
     lambda c: c.refused == "here" and c.message == "zero byte"),
    ("", "UTF-16 is refused here", lambda c: c.refused == "here" and c.message == "UTF-16"),
    ("", "a file without a header and a key is refused here",
     lambda c: c.refused == "here" and c.message == "no header and no key"),
    ("", "a carriage return without a newline is refused here",
     lambda c: c.refused == "here" and c.message == "carriage return"),
    ("", "bytes that are not UTF-8 pass here",
     lambda c: not is_utf8(c.data) and (c.refused == "there" or c.key is not None)),
    ("git config", "releases before 2.45 read a tab in a value as a space",
     lambda c: same_without(r"[\t\r]", c.model, c.peer)),
    ("GKeyFile", "an escape that does not exist is kept here, and an error there",
     lambda c: any("\\" in value for value in c.model or [])),
    ("configparser", "Unicode has further spaces and letters",
     lambda c: not c.data.isascii() and unicode_blanks(c.model) == unicode_blanks(c.peer)),
    ("configparser", "letters beyond ASCII are folded there, so that a key is repeated",
     lambda c: c.refused == "there" and not c.data.isascii() and "already exists" in c.message),
    ("configparser", "a mark without a space hides later marks of its kind there",
     lambda c: any(re.search(r"[^\s][#;].*\s[#;]", value or "") for value in c.peer or [])),
    ("php", "a value that is quoted in part is as spelled here",
     lambda c: is_partly_quoted(c.model)),
    ("php", "the keys of a repeated header replace the keys of the first there",
     lambda c: c.key and repeats_a_header(c.data)),
    ("php", "text after a header is a line of its own there",
     lambda c: re.search(r"^[ \t]*\[[^]\n]*\][ \t]*[^;\s]", c.data, re.M) is not None),
    ("php", "values are evaluated there",
     lambda c: c.model and c.peer and re.search(r"[|&^~!$(){}=]|^[A-Za-z_]+$", c.model[-1])),
    ("php", "the reader also has a grammar of expressions, reserved words and keys",
     lambda c: c.refused == "there"),
    ("php", "a newline in a value keeps its carriage return there",
     lambda c: same_without(r"\r", c.model, c.peer)),
    ("php", "a mode of the reader does not read single quotes and escapes",
     lambda c: c.peer is not None and re.search(r"[\"'\\]", c.peer[-1]) is not None),
    ("php", "a quote that never closes is text in one of two modes of the reader",
     lambda c: c.refused == "here" and c.message == "open quote"),
    ("my_print_defaults", "a line without a key has an empty key there",
     lambda c: c.model is None and c.key and c.key[1] == ""),
    ("my_print_defaults", "groups whose names differ in case are joined there",
     lambda c: c.key and len(re.findall(r"^\s*\[" + re.escape(c.key[0]) + r"\s*\]", c.data,
                                        re.M | re.I)) > 1),
    ("my_print_defaults", "vertical tabs and form feeds are spaces there",
     lambda c: re.search(r"[\v\f]", c.data) is not None),
    ("testparm", "a byte order mark belongs to the first line there",
     lambda c: c.data.startswith("\xef\xbb\xbf")),
    ("testparm", "comments do not continue after a backslash there",
     lambda c: re.search(r"^[ \t]*[#;].*\\\r?\n", c.data, re.M) is not None),
    ("testparm", "a header without a name is refused there",
     lambda c: c.refused == "there" and re.search(r"^\s*\[\]", c.data, re.M) is not None),
    ("testparm", "spaces in the name of a stanza are compared as one space, or not at all, there",
     lambda c: c.key and re.search(r"^[ \t]*\[[^]\n]*[ \t]", c.data, re.M) is not None),
    ("testparm", "a known value is printed in its usual case there",
     lambda c: c.peer is not None and
     [value.lower() for value in c.model] == [value.lower() for value in c.peer]),
    ("testparm", "checks of names and values there",
     lambda c: c.refused == "there" and "x:" not in c.data),
    ("kreadconfig5", "carriage returns are dropped there",
     lambda c: c.model and [value.replace("\r", "") for value in c.model] == c.peer),
    ("kreadconfig5", "a key with [$e] is expanded there",
     lambda c: c.key and c.key[1] + "[$" in c.data),
    ("kreadconfig5", "a key for another language is not read there",
     lambda c: c.key and c.peer is None and "[" in c.key[1]),
    ("kreadconfig5", "an escape that does not exist is kept here, and an error there",
     lambda c: any("\\" in value for value in c.model or [])),
    ("kreadconfig5", "a group without a name cannot be read there",
     lambda c: c.key and c.key[0] == ""),
    ("kreadconfig5", "a backslash in a key is read twice there",
     lambda c: c.key and "\\" in c.key[1]),
    ("kreadconfig5", "a byte order mark is refused here, and hides the first line there",
     lambda c: c.refused == "here" and c.message == "byte order mark"),
    ("QSettings", "a line with # can be a key there, or open a quote",
     lambda c: re.search(r"^[ \t]*#.*[=\"]", c.data, re.M) is not None),
    ("QSettings, Latin-1", "a byte beyond ASCII that is no escape is a character of Latin-1 there",
     lambda c: c.key and not c.data.isascii() and
     not "".join([*c.key, *(c.model or [])]).isascii()),
    ("QSettings", "names are Latin-1 there",
     lambda c: c.key and not (c.key[0] + c.key[1]).isascii()),
    ("QSettings", "a slash in a header is the same as one in a key there",
     lambda c: c.key and "/" in c.key[0] + c.key[1]),
    ("QSettings", "headers lose their spaces, and a header without a name has no key there",
     lambda c: c.key and (c.key[0] != c.key[0].strip() or c.key[0] == "")),
    ("QSettings", "a quote in a key, or in a line without one, hides newlines there",
     lambda c: re.search(r"^[^=\n]*\"", c.data, re.M) is not None),
    ("QSettings", "a backslash in a key hides a newline there",
     lambda c: re.search(r"^[^=\n]*\\$", c.data, re.M) is not None),
    ("QSettings", "a comment mark in a header ends its line there",
     lambda c: re.search(r"^[ \t]*\[[^]\n]*;", c.data, re.M) is not None),
    ("QSettings", "a quote that never closes is refused here",
     lambda c: c.refused == "here" and c.message == "open quote"),
    ("QSettings", "a line without a key has an empty key there",
     lambda c: c.model is None and c.key and c.key[1] == ""),
    ("QSettings", "values in parentheses after @ are objects there",
     lambda c: any(value.startswith("@") for value in c.model or [])),
    ("QSettings", "escapes of a zero byte and of more than 16 bits",
     lambda c: re.search(r"\\(0|x[0-9a-fA-F]{5})", c.data) is not None),
    ("editorconfig", "indented comments are keys or errors there",
     lambda c: re.search(r"^[ \t]+[#;]", c.data, re.M) is not None),
    ("editorconfig", "a header with a comment mark is refused there",
     lambda c: re.search(r"^[ \t]*\[[^\n]*[#;]", c.data, re.M) is not None),
    ("editorconfig", "long names and values are dropped there",
     lambda c: c.key and c.peer is None and
     len(c.key[1]) + max(len(value) for value in c.model or [""]) > 50),
    ("editorconfig", "a value of two quotes is empty there", lambda c: c.model == ['""']),
    ("editorconfig", "a tab does not start a comment there",
     lambda c: re.search(r"\t[#;]", c.data) is not None),
    ("editorconfig", "a key above the first header is not read there, except root",
     lambda c: c.key and c.key[0] == "." and c.peer is None),
    ("editorconfig", "a header without a bracket",
     lambda c: re.search(r"\[[^]\n]*$", c.data, re.M) is not None),
    ("systemd, environment sh", "a value that is quoted in part is as spelled here",
     lambda c: is_partly_quoted(c.model)),
    ("systemd, environment sh", "a quote that never closes is refused here",
     lambda c: c.refused == "here" and c.message == "open quote"),
    ("systemd, environment sh", "a byte order mark is refused here",
     lambda c: c.refused == "here" and c.message == "byte order mark"),
    ("systemd, environment", "shells start a comment after a space, this reader does not",
     lambda c: any(value and re.search(r"#", value) for value in c.peer or [])),
    ("systemd, environment", "shells have export and commands; this reader takes spaces in names",
     lambda c: c.key and (re.search(r"\s", c.key[1]) or "export " in c.data or
                          re.search(r"(?m)^[ \t]*" + re.escape(c.key[1]) + r"([ \t]+=|=[ \t])",
                                    c.data) is not None)),
    ("systemd, environment", "a line that starts with ; is a comment of this reader alone",
     lambda c: c.key and c.key[1].startswith(";")),
    ("systemd, environment", "a quote opens only at the start of a value there",
     lambda c: re.search(r"=[^\"'\n]+[\"']", c.data) is not None),
    ("systemd, environment", "a newline in a value keeps its carriage return there",
     lambda c: same_without(r"\r", c.model, c.peer)),
    ("systemd, environment", "a comment continues after a backslash there",
     lambda c: re.search(r"^[ \t]*[#;].*\\\n", c.data, re.M) is not None),
    ("systemd, environment", "a file for shells has commands",
     lambda c: re.search(r"\b(if|then|fi|for|case|while|function)\b|[`|&<>]|\$\(", c.data)
     is not None),
    ("sh", "a shell expands, and ends a command, where the value is taken as it is here",
     lambda c: any(value and re.search(r"[$`;&|<>~\s]", value) for value in c.model or [])),
    ("sh", "names that are no variables are commands there",
     lambda c: c.key and c.peer is None and not re.fullmatch(r"[A-Za-z_]\w*", c.key[1])),
    ("sh", "a carriage return belongs to the value there", lambda c: "\r" in c.data),
    ("sh", "the shell stops at a command that it cannot read", lambda c: c.refused == "there"),
]


def reason(peer, case):
    """The reason for a difference, or None."""
    for peers, text, applies in ROWS:
        if (peers == "" or peer == peers or peer in peers.split() or
                peers == "systemd, environment sh" and peer in ("systemd, environment", "sh") or
                peer.startswith(peers + ",") and peers in ("configparser", "QSettings")):
            if applies(case):
                return text
    return None


# Names and values in the form that both sides share, dialect by dialect.


def unpercent(name):
    name = re.sub(r"%U([0-9A-Fa-f]{4})", lambda m: chr(int(m[1], 16)), name)
    name = re.sub(r"%([0-9A-Fa-f]{2})", lambda m: chr(int(m[1], 16)), name)
    return name.replace("\\", "/")


def qt_key(stanza, key):
    stanza = {"General": ".", "%General": "General"}.get(stanza, stanza)
    stanza, key = unpercent(stanza), unpercent(key)
    if stanza != "." and "/" in stanza:
        first, _, rest = stanza.partition("/")
        return first, rest + "/" + key
    return (key.partition("/")[0], key.partition("/")[2]) if stanza == "." and "/" in key else (
        stanza, key)


KEYS = {
    "git": lambda stanza, key: (stanza, key.lower()),
    "php": lambda stanza, key: (stanza, re.sub(r"\[.*\]$", "[]", key)),
    "samba": lambda stanza, key: (
        " ".join((stanza if stanza != "." else "global").lower().split(" ")),
        key.lower().replace(" ", "")),
    "mysql": lambda stanza, key: (stanza, key.replace("-", "_")),
    "python": lambda stanza, key: (stanza, key.lower()),
    "python-inline": lambda stanza, key: (stanza, key.lower()),
    "editorconfig": lambda stanza, key: (stanza, key.lower()),
    "qt": qt_key,
    # Brackets stay escaped here where they would have another meaning.
    "kconfig": lambda stanza, key: tuple(
        name.replace("\\x5b", "[").replace("\\x5d", "]") for name in (stanza, key)),
}


def samba_value(value):
    return {"yes": "yes", "true": "yes", "1": "yes", "no": "no", "false": "no",
            "0": "no"}.get(value.lower(), value)


VALUES = {
    "samba": samba_value,
    "qt": lambda value: re.sub(r" *, *", ", ", value),
}

# Dialects whose readers give every line of a key.
ALL_LINES = ("systemd", "networkd", "git", "mysql")


def model_values(dialect, reading):
    form = KEYS.get(dialect, lambda stanza, key: (stanza, key))
    value_form = VALUES.get(dialect, lambda value: value)
    found = {}
    for stanza, keys in reading["stanzas"]:
        for key, lines, counting, _ in keys:
            values = lines if dialect in ALL_LINES else counting
            found.setdefault(form(stanza, key), []).extend(
                value if value is None else value_form(value) for value in values)
    return found


def peer_values(dialect, result, ours):
    form = KEYS.get(dialect, lambda stanza, key: (stanza, key))
    value_form = VALUES.get(dialect, lambda value: value)
    sections = result.get("sections")
    order = {}
    found = {}
    for i, (stanza, key, value) in enumerate(result["values"]):
        if dialect == "networkd":
            lines = order.setdefault(stanza, [])
            if sections[i] not in lines:
                lines.append(sections[i])
            number = lines.index(sections[i])
            stanza += f"]{number + 1}" if number else ""
        if dialect == "php" and (stanza, key) not in ours and (".", stanza + "[]") in ours:
            stanza, key = ".", stanza + "[]"  # a list above the first header
        name = form(stanza, key)
        value = value if value is None or isinstance(value, dict) else value_form(value)
        if dialect in ALL_LINES or key.endswith("[]"):
            found.setdefault(name, []).append(value)
        else:
            found[name] = [value]
    return found


def compare(peer, dialect, data, reading, result):
    """Returns "agree", "both" (refused), or a list of cases."""
    ours_refused = reading["refused"]
    theirs_refused = result.get("refused")
    if ours_refused and theirs_refused is not None:
        return "both"
    if ours_refused:
        return [Case(data, "here", ours_refused[2])]
    if theirs_refused is not None and "values" not in result:
        return [Case(data, "there", theirs_refused)]
    ours = model_values(dialect, reading)
    theirs = peer_values(dialect, result, ours)
    raw = result.get("raw", {}).get("values")
    other = peer_values(dialect, {"values": raw}, ours) if raw else {}
    cases = []
    for key in {**ours, **theirs}:
        mine = ours.get(key)
        if mine in (theirs.get(key), other.get(key, theirs.get(key))):
            continue
        if peer == "testparm" and (mine is None or key not in theirs):
            continue  # it prints neither defaults nor names that it does not know
        cases.append(Case(data, None, None, key, mine, theirs.get(key)))
    return cases or "agree"
