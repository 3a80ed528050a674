"""Configuration files as people have them: read, changed line by line, compared and watched.

    import zfoundation as zf

    settings = zf.read("app.conf")                # {'listener': {'port': ['8080']}}
    with zf.open("app.conf") as conf:             # saves at the end, unless the block raised
        conf["listener"]["port"] = "8443"

A save changes only the lines of changed values; comments, order, spacing and line endings stay. It
survives a crash: the file is the old one or the new one.
"""

from __future__ import annotations

from ._version import __version__
from .conf import Conf, loads, open, read
from .dialects import Dialect, dialects, recognise
from .errors import (
    Busy,
    Closed,
    Error,
    FileError,
    ForbiddenFile,
    InvalidData,
    InvalidValue,
    MissingFile,
    NotFound,
    Refused,
    Unsupported,
)
from .locking import Lock, lock
from .merging import merge
from .problems import Problem, lint
from .stanza import Stanza
from .watching import Change, Watch, watch

__all__ = [
    "Busy",
    "Change",
    "Closed",
    "Conf",
    "Dialect",
    "Error",
    "FileError",
    "ForbiddenFile",
    "InvalidData",
    "InvalidValue",
    "Lock",
    "MissingFile",
    "NotFound",
    "Problem",
    "Refused",
    "Stanza",
    "Unsupported",
    "Watch",
    "__version__",
    "dialects",
    "lint",
    "loads",
    "lock",
    "merge",
    "open",
    "read",
    "recognise",
    "watch",
]
