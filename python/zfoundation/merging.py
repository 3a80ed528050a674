"""Two versions of a file with a common base."""

from __future__ import annotations

import ctypes

from ._library import call, encoded, library, require_type, take_text

__all__ = ["merge"]


def merge(base: str, ours: str, theirs: str, dialect: str | None = None) -> tuple[str, int]:
    """Merges contents of files by stanza and key. Returns the result and the number of conflicts.

    The differences of `base` and `theirs` become edits of `ours`; every other line of `ours` stays.
    Two different changes of one value conflict: the result has both sides between conflict marks
    then, and cannot be read before it is edited.

    Raises InvalidData with the name of the argument as the file, Unsupported.
    """
    for name, text in (("base", base), ("ours", ours), ("theirs", theirs)):
        require_type(text, str, name)
    texts = [text.encode("utf-8", "surrogateescape") for text in (base, ours, theirs)]
    address, length, conflicts = ctypes.c_void_p(), ctypes.c_size_t(), ctypes.c_int()
    call(
        library.zstzPropMergeText_6_0,
        *[argument for text in texts for argument in (text, len(text))],
        None if dialect is None else encoded(dialect),
        ctypes.byref(address),
        ctypes.byref(length),
        ctypes.byref(conflicts),
    )
    return take_text(address, length.value), conflicts.value
