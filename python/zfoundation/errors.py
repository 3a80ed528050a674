"""The exceptions of the package: one class for each kind of failure, all derived from Error.

Most are also one of Python's own exceptions, so that code which knows only these catches them.
"""

from __future__ import annotations

from typing import Any

__all__ = [
    "Busy",
    "Closed",
    "Error",
    "FileError",
    "ForbiddenFile",
    "InvalidData",
    "InvalidValue",
    "MissingFile",
    "NotFound",
    "Refused",
    "Unsupported",
]


class Error(Exception):
    """The base class.

    code      the return code of the library, 51 to 58; 0 if the failure is not the library's
    file      the path of the file; empty if there is none
    line      of the file, counted from 1; 0 if no line is at fault
    column    in characters, counted from 1; 0 if it is not known
    errno     of the failed system call; 0 if no call failed
    stanza, key
              the names that the failure concerns; empty if there are none
    """

    code: int
    file: str
    line: int
    column: int
    errno: int
    stanza: str
    key: str

    def __init__(
        self,
        message: str,
        *,
        code: int = 0,
        file: str = "",
        line: int = 0,
        column: int = 0,
        errno: int = 0,
        stanza: str = "",
        key: str = "",
    ) -> None:
        super().__init__(message)
        self.message = message
        self.code = code
        self.file = file
        self.line = line
        self.column = column
        self.errno = errno
        self.stanza = stanza
        self.key = key

    def __str__(self) -> str:
        return self.message

    def __reduce__(self) -> tuple[Any, ...]:
        fields = ("code", "file", "line", "column", "errno", "stanza", "key")
        return (_restored, (type(self), self.message, {name: getattr(self, name) for name in fields}))


def _restored(kind: type[Error], message: str, fields: dict[str, Any]) -> Error:
    return kind(message, **fields)


class NotFound(Error, KeyError):
    """A stanza, a key or a value does not exist."""


class InvalidData(Error):
    """A file has a line that its dialect does not allow; has its number."""


class InvalidValue(Error, ValueError):
    """A value is not a number or a boolean, or a name or a value would not be read back."""


class Refused(Error):
    """A change is not possible as things are."""


class Closed(Error, ValueError):
    """The object is closed."""


class Unsupported(Error, ValueError):
    """The library does not know the dialect."""


class FileError(Error, OSError):  # pyright: ignore[reportIncompatibleVariableOverride]
    """A file or a lock file cannot be opened, read or written.

    `errno` is never None, unlike that of other OSErrors. `filename` and `strerror` are as for any OSError.
    """

    def __init__(self, message: str, **fields: Any) -> None:
        super().__init__(message, **fields)
        self.filename = self.file or None
        self.strerror = message


class MissingFile(FileError, FileNotFoundError):  # pyright: ignore[reportIncompatibleVariableOverride]
    """The file does not exist."""


class ForbiddenFile(FileError, PermissionError):  # pyright: ignore[reportIncompatibleVariableOverride]
    """The file's permissions do not allow it."""


class Busy(FileError, BlockingIOError):  # pyright: ignore[reportIncompatibleVariableOverride]
    """Another process or thread uses the file, or holds the lock, until the end of the wait."""
