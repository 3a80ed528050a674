"""The dialects: how the formats of configuration files are read and written."""

from __future__ import annotations

import builtins
import ctypes
import os
import re
from collections.abc import Iterable
from typing import TYPE_CHECKING, Union

from . import _library
from ._library import call, decoded, encoded, library, require_type

if TYPE_CHECKING:
    from .conf import Path

__all__ = ["Dialect", "dialects", "recognise"]

Switch = Union[str, bool, Iterable[str]]

_BEGINNING = 65536  # bytes of a file that are read to recognise it


class Dialect(str):
    """The name of a dialect with its switches: a str such as "python,trailing=#;".

    The argument `dialect` of the functions of this package takes such an object, or the text.
    """

    __slots__ = ()

    def __new__(cls, name: str, **switches: Switch) -> Dialect:
        """Creates the dialect `name` with other values of some switches.

        A switch is called as in docs/file-formats.md, or with underscores: trailing_needs. A value
        is a word, a boolean, or several words. Raises Unsupported if the library does not know
        them, or if they do not fit together.
        """
        words = [name] + [f"{_switch_name(key)}={_word(value)}" for key, value in switches.items()]
        text = ",".join(words)
        call(library.zstzPropCheckDialect_6_0, encoded(text))
        return super().__new__(cls, text)

    def __repr__(self) -> str:
        return f"Dialect({str(self)!r})"


def _switch_name(key: str) -> str:
    return re.sub("_([a-z])", lambda match: match[1].upper(), key)


def _word(value: Switch) -> str:
    if isinstance(value, bool):
        return "yes" if value else "no"
    return value if isinstance(value, str) else "+".join(value)


def dialects() -> list[str]:
    """Returns the names of the dialects; the first is "stanza"."""
    names: list[str] = []
    while (name := library.zstzPropGetDialectName_6_0(len(names))) is not None:
        names.append(decoded(name))
    return names


def recognise(path: Path, text: str | None = None) -> Dialect | None:
    """Returns the dialect that the name of a file implies; None if several formats use such names.

    Only a name that ends with ".service" needs the contents: `text`, or the file, if it can be read.
    """
    raw = _library.path_bytes(path)
    if text is not None:
        require_type(text, str, "text")
    contents = b"" if text is None else text.encode("utf-8", "surrogateescape")
    if text is None and b".service" in raw:
        contents = _beginning(os.fsdecode(raw))
    name = ctypes.c_char_p()
    call(library.zstzPropRecognise_6_0, raw, contents, len(contents), ctypes.byref(name))
    return None if name.value is None else Dialect(decoded(name.value))


def _beginning(path: str) -> bytes:
    try:
        with builtins.open(path, "rb") as file:
            return file.read(_BEGINNING)
    except OSError:
        return b""
