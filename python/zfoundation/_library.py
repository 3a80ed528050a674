"""Loads the library, declares its plain functions, and turns their failures into exceptions.

The library is looked for in this order: the file that the environment variable ZFOUNDATION_LIBRARY
names; the directory `_lib` of this package; the directories of the dynamic linker; /usr/local/lib.
The tables of the text services: the environment variable QVRDIR; `_lib/tables` of this package; the
directory share/qvr of the prefix in which the library is installed.

Text is str. Bytes that are not UTF-8 become lone surrogates (`surrogateescape`) and are written as
the same bytes again.
"""

from __future__ import annotations

import ctypes
import errno as errnos
import json
import marshal
import os
import re
import time
from collections.abc import Callable
from ctypes import POINTER, byref, c_char_p, c_int, c_size_t, c_uint, c_ulong, c_void_p
from typing import Any, TypeVar

from . import errors

__all__ = [
    "call",
    "decoded",
    "encoded",
    "encoded_name",
    "fetch_block",
    "fetch_contents",
    "fetch_number",
    "fetch_text",
    "library",
    "path_bytes",
    "patiently",
    "require_type",
    "take_text",
]

Result = TypeVar("Result")

LIBRARY_NAME = "libzfoundation-6.0.so.0"
TEXT_SERVICES_NAME = "libqvr.so.1"

OPEN_UPDATE = 2
KEEP_LINES = 2  # an option of a store

OPEN_STORE_FAILED = 51
CHANGE_FAILED = 52
INVALID_VALUE = 53
MISSING = 54
BAD_HANDLE = 55
UNSUPPORTED = 58

# Numbers of messages.
_OUT_OF_MEMORY = 1
_INVALID_PARAMETER = 22
_NOT_READ_BACK = 39  # a line that a store would write
_INVALID_NUMBERS = (40, 41)  # also of a value that a line cannot hold
_UNSUPPORTED_OPERATION = 48

# The text of _INVALID_PARAMETER without a reason.
_UNKNOWN_REASON = "A function or method was called with an invalid parameter."

_CALL = re.compile(r"access function was (\S+) and")


class ErrorRecord(ctypes.Structure):
    """ZPROPError: the last failure of a thread."""

    _fields_ = [
        ("size", c_uint),
        ("code", c_int),
        ("message_number", c_uint),
        ("error_number", c_int),
        ("line", c_ulong),
        ("column", c_ulong),
        ("file", c_char_p),
        ("stanza", c_char_p),
        ("key", c_char_p),
        ("text", c_char_p),
    ]


class ProblemRecord(ctypes.Structure):
    """ZPROPProblem: a complaint about a line."""

    _fields_ = [
        ("size", c_uint),
        ("kind", c_int),
        ("cause", c_int),
        ("message_number", c_uint),
        ("line", c_ulong),
        ("column", c_ulong),
        ("text", c_char_p),
    ]


ProblemCallback = ctypes.CFUNCTYPE(c_int, POINTER(ProblemRecord), c_void_p)

_TEXT = c_char_p
_HANDLE = c_void_p
_CODE = POINTER(c_int)
_LENGTH = POINTER(c_size_t)

# The result and the arguments of each function. A returned string is a c_void_p, because it must be
# released.
_PROTOTYPES: dict[str, tuple[Any, ...]] = {
    "zstzPropSetTables_6_0": (c_int, _TEXT),
    "zstzPropGetLastError_6_0": (c_int, POINTER(ErrorRecord)),
    "zstzPropFree_6_0": (None, c_void_p),
    "zstzPropOpenAs_6_0": (c_int, POINTER(_HANDLE), _TEXT, c_int, _TEXT),
    "zstzPropNew_6_0": (c_int, POINTER(_HANDLE), _TEXT),
    "zstzPropClose_6_0": (None, _HANDLE),
    "zstzPropReload_6_0": (c_int, _HANDLE),
    "zstzPropStore_6_0": (c_int, _HANDLE, _TEXT),
    "zstzPropSetOption_6_0": (c_int, _HANDLE, c_int, c_int),
    "zstzPropSetDefaultOption_6_0": (c_int, c_int, c_int),
    "zstzPropIsModified_6_0": (c_int, _HANDLE, _CODE),
    "zstzPropGetDialect_6_0": (c_void_p, _HANDLE, _CODE),
    "zstzPropLoadText_6_0": (c_int, _HANDLE, _TEXT, c_size_t),
    "zstzPropStoreText_6_0": (c_void_p, _HANDLE, _LENGTH, _CODE),
    "zstzPropGetAll_6_0": (c_void_p, _HANDLE, _TEXT, _TEXT, _LENGTH, _CODE),
    "zstzPropGetAllMarshalled_6_0": (c_void_p, _HANDLE, _TEXT, _TEXT, _LENGTH, _CODE),
    "zstzPropFindProblems_6_0": (c_int, _TEXT, _TEXT, ProblemCallback, c_void_p),
    "zstzPropCheckTemplate_6_0": (c_int, _TEXT, _TEXT, _TEXT, ProblemCallback, c_void_p),
    "zstzPropIter_initStanzas_6_0": (c_int, _HANDLE, POINTER(_HANDLE)),
    "zstzPropIter_next_6_0": (c_int, _HANDLE, _CODE),
    "zstzPropIter_getKey_6_0": (c_void_p, _HANDLE, _CODE),
    "zstzPropIter_close_6_0": (c_int, _HANDLE),
    "zstzPropExists_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _CODE),
    "zstzPropNumStanzas_6_0": (c_int, _HANDLE, _CODE),
    "zstzPropNumKeys_6_0": (c_int, _HANDLE, _TEXT, _CODE),
    "zstzPropNumValues_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _CODE),
    "zstzPropGetCountingRange_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _CODE, _CODE),
    "zstzPropGetStringValue_6_0": (c_void_p, _HANDLE, _TEXT, _TEXT, c_int, _CODE),
    "zstzPropGetBooleanValue_6_0": (c_int, _HANDLE, _TEXT, _TEXT, c_int, _CODE),
    "zstzPropSetStringValue_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _TEXT),
    "zstzPropSetStringValues_6_0": (c_int, _HANDLE, _TEXT, _TEXT, POINTER(c_char_p), c_int),
    "zstzPropAddStringValue_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _TEXT),
    "zstzPropRemoveValue_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _TEXT),
    "zstzPropRemoveKey_6_0": (c_int, _HANDLE, _TEXT, _TEXT),
    "zstzPropRemoveStanza_6_0": (c_int, _HANDLE, _TEXT),
    "zstzPropAddStanza_6_0": (c_int, _HANDLE, _TEXT),
    "zstzPropRenameStanza_6_0": (c_int, _HANDLE, _TEXT, _TEXT),
    "zstzPropRenameKey_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _TEXT),
    "zstzPropSetObfuscatedValue_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _TEXT),
    "zstzPropIsObfuscated_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _CODE),
    "zstzPropGetFileComment_6_0": (c_void_p, _HANDLE, _CODE),
    "zstzPropGetStanzaComment_6_0": (c_void_p, _HANDLE, _TEXT, _CODE),
    "zstzPropGetLineComment_6_0": (c_void_p, _HANDLE, _TEXT, _TEXT, _CODE),
    "zstzPropSetFileComment_6_0": (c_int, _HANDLE, _TEXT),
    "zstzPropSetStanzaComment_6_0": (c_int, _HANDLE, _TEXT, _TEXT),
    "zstzPropSetLineComment_6_0": (c_int, _HANDLE, _TEXT, _TEXT, _TEXT),
    "zstzPropGetLine_6_0": (c_ulong, _HANDLE, _TEXT, _TEXT, c_int, _CODE),
    "zstzPropGetDialectName_6_0": (c_char_p, c_int),
    "zstzPropCheckDialect_6_0": (c_int, _TEXT),
    "zstzPropRecognise_6_0": (c_int, _TEXT, _TEXT, c_size_t, POINTER(c_char_p)),
    "zstzPropMergeText_6_0": (
        c_int, _TEXT, c_size_t, _TEXT, c_size_t, _TEXT, c_size_t, _TEXT, POINTER(c_void_p), _LENGTH, _CODE,
    ),
    "zstzPropDiffText_6_0": (
        c_int, _TEXT, c_size_t, _TEXT, _TEXT, c_size_t, _TEXT, POINTER(c_void_p), _LENGTH,
    ),
    "zstzPropGetRawValue_6_0": (c_void_p, _HANDLE, _TEXT, _TEXT, c_int, _CODE),
    "zstzPropSetRawValue_6_0": (c_int, _HANDLE, _TEXT, _TEXT, c_int, _TEXT),
    "zstzLockAcquire_6_0": (c_int, POINTER(_HANDLE), _TEXT, _TEXT, c_int, c_int),
    "zstzLockGetSequence_6_0": (c_ulong, _HANDLE, _CODE),
    "zstzLockRelease_6_0": (c_int, _HANDLE, c_int),
}


# ---- Loading -------------------------------------------------------------------------------------


def _candidates() -> list[str]:
    named = os.environ.get("ZFOUNDATION_LIBRARY")
    if named:
        return [named]
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), "_lib", LIBRARY_NAME)
    if os.path.exists(beside):
        return [beside]
    return [LIBRARY_NAME, os.path.join("/usr/local/lib", LIBRARY_NAME)]


def _load() -> ctypes.CDLL:
    problems: list[str] = []
    for candidate in _candidates():
        try:
            # The library finds the text services by their name once they are loaded.
            services = os.path.join(os.path.dirname(candidate), TEXT_SERVICES_NAME)
            if os.path.dirname(candidate) and os.path.exists(services):
                ctypes.CDLL(services)
            return ctypes.CDLL(candidate)
        except OSError as failure:
            problems.append(str(failure))
    raise ImportError(
        f"zfoundation: cannot load the library: {'; '.join(problems)}; "
        "install it, or name its file in ZFOUNDATION_LIBRARY"
    )


def _loaded_path() -> str:
    """Returns the path from which the library was loaded; empty if it cannot be found out."""
    try:
        with open("/proc/self/maps", encoding="utf-8", errors="surrogateescape") as maps:
            for line in maps:
                path = line.rstrip("\n").partition("/")[2]
                if os.path.basename(path).startswith("libzfoundation-6.0.so"):
                    return "/" + path
    except OSError:
        pass
    return ""


def _table_directories() -> list[str]:
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), "_lib", "tables")
    libraries = os.path.dirname(_loaded_path())
    # The prefix is above lib/, or above lib/ARCHITECTURE/.
    prefixes = [os.path.dirname(libraries), os.path.dirname(os.path.dirname(libraries))]
    return [beside] + [os.path.join(prefix, "share", "qvr") for prefix in prefixes]


def _choose_tables(loaded: ctypes.CDLL) -> None:
    """Without tables the library would end the process at its first string."""
    if os.environ.get("QVRDIR"):
        return
    searched = _table_directories()
    for directory in searched:
        if os.path.isdir(directory):
            code = loaded.zstzPropSetTables_6_0(os.fsencode(directory))
            if code in (0, CHANGE_FAILED):  # 52: the program uses the library already
                return
    raise ImportError(
        f"zfoundation: no tables of the text services in {', '.join(searched)}; "
        "set the environment variable QVRDIR to their directory"
    )


def _prepared() -> ctypes.CDLL:
    loaded = _load()
    for name, (result, *arguments) in _PROTOTYPES.items():
        try:
            function = getattr(loaded, name)
        except AttributeError:
            raise ImportError(
                f"zfoundation: the library {_loaded_path()} is too old: it has no {name}"
            ) from None
        function.restype = result
        function.argtypes = arguments
    _choose_tables(loaded)
    return loaded


library = _prepared()


# ---- Text ----------------------------------------------------------------------------------------


def decoded(text: bytes | None) -> str:
    """Returns text of the library; it has None for the empty text."""
    return "" if text is None else text.decode("utf-8", "surrogateescape")


def require_type(argument: object, kind: type, name: str) -> None:
    """Raises TypeError unless `argument`, which is called `name`, is of the type."""
    if not isinstance(argument, kind):
        raise TypeError(f"{name}: expected {kind.__name__}, not {type(argument).__name__}")


def encoded(text: str) -> bytes:
    """Returns text for the library.

    Raises InvalidValue for a zero character, and for a surrogate that stands for no byte.
    """
    require_type(text, str, "argument")
    try:
        raw = text.encode("utf-8", "surrogateescape")
    except UnicodeEncodeError as failure:
        raise errors.InvalidValue(f"{text!r} has a surrogate without a character: {failure}") from None
    if b"\0" in raw:
        raise errors.InvalidValue(f"{text!r} has a zero character, which no file can hold")
    return raw


def encoded_name(name: str) -> bytes:
    """As encoded(), for the name of something that is looked up. Raises NotFound."""
    try:
        return encoded(name)
    except errors.InvalidValue:
        raise errors.NotFound(f"{name!r} is not a name", code=MISSING) from None


def path_bytes(path: str | os.PathLike[str]) -> bytes:
    """Returns the path, which starts at the root directory."""
    text = os.fspath(path)
    require_type(text, str, "path")
    if not text:
        raise ValueError("the path is empty")
    raw = os.fsencode(os.path.join(os.getcwd(), text))
    if b"\0" in raw:
        raise ValueError("the path has a zero character")
    return raw


# ---- Failures ------------------------------------------------------------------------------------


def _last_error() -> ErrorRecord:
    record = ErrorRecord(size=ctypes.sizeof(ErrorRecord))
    library.zstzPropGetLastError_6_0(byref(record))
    return record


def _kind_of(record: ErrorRecord) -> type[errors.Error]:
    code, error = record.code, record.error_number
    if code == MISSING:
        return errors.NotFound
    if code == INVALID_VALUE:
        return errors.InvalidValue
    if code == UNSUPPORTED:
        return errors.Unsupported
    # A parameter is invalid if a file cannot hold the text.
    if code in (CHANGE_FAILED, BAD_HANDLE) and record.message_number == _INVALID_PARAMETER:
        return errors.InvalidValue
    if code == BAD_HANDLE:
        return errors.Closed
    if code == CHANGE_FAILED:
        return errors.Refused
    if code != OPEN_STORE_FAILED:
        return errors.Error
    if record.message_number in _INVALID_NUMBERS:
        return errors.InvalidValue
    if error == 0:
        return errors.InvalidData
    if error in (errnos.EAGAIN, errnos.EACCES) and b"fcntl()" in record.text:
        return errors.Busy
    if error == errnos.ENOENT:
        return errors.MissingFile
    if error in (errnos.EACCES, errnos.EPERM):
        return errors.ForbiddenFile
    return errors.FileError


def _where(record: ErrorRecord) -> str:
    where = decoded(record.file)
    for number in (record.line, record.column):
        where += f":{number}" if where and number else ""
    return where


def _subject(record: ErrorRecord) -> str:
    stanza, key = decoded(record.stanza), decoded(record.key)
    if not stanza and not key:
        return ""
    return f"key {key!r} in [{stanza}]: " if key else f"stanza [{stanza}]: "


def _problem(kind: type[errors.Error], record: ErrorRecord) -> str:
    text = decoded(record.text)
    if issubclass(kind, errors.Busy):
        return "another process uses the file; try again, or wait longer"
    if issubclass(kind, errors.FileError):
        called = _CALL.search(text)
        return os.strerror(record.error_number) + (f" in {called[1]}" if called else "")
    if kind is errors.NotFound:
        key = decoded(record.key)
        return f"no key {key!r} in [{decoded(record.stanza)}]" if key else f"no stanza [{decoded(record.stanza)}]"
    if kind is errors.InvalidData and record.line:
        data, _, explained = text.partition("Data: ")[2].strip().partition("\n")
        return explained or (f"the line is not valid: {data}" if data else text)
    if kind is errors.InvalidData and record.message_number == _UNSUPPORTED_OPERATION:
        return "contents that name a companion file cannot be read from a string"
    if record.message_number == _INVALID_PARAMETER and text.strip() == _UNKNOWN_REASON:
        return _subject(record) + "a file cannot hold this name or value"
    if record.message_number in _INVALID_NUMBERS:
        return _subject(record) + "a file cannot hold the value as it is, or it has another type"
    if record.message_number == _NOT_READ_BACK:
        if record.key:
            return _subject(record) + "its line would not be read back with this value"
        return _subject(record) + "a line would not be read back"
    return _subject(record) + text


def _message(kind: type[errors.Error], record: ErrorRecord) -> str:
    """Returns WHERE: WHAT."""
    where, problem = _where(record), _problem(kind, record)
    return f"{where}: {problem}" if where else problem


def failure() -> BaseException:
    """Returns the exception for the last failure of the calling thread."""
    record = _last_error()
    if record.message_number == _OUT_OF_MEMORY or record.error_number == errnos.ENOMEM:
        return MemoryError(decoded(record.text))
    kind = _kind_of(record)
    return kind(
        _message(kind, record),
        code=record.code,
        file=decoded(record.file),
        line=record.line,
        column=record.column,
        errno=record.error_number,
        stanza=decoded(record.stanza),
        key=decoded(record.key),
    )


# ---- Calls ---------------------------------------------------------------------------------------


def call(function: Callable[..., int], *arguments: Any) -> None:
    """Calls a function that returns its code. Raises the exception for another code than 0."""
    if function(*arguments) != 0:
        raise failure()


def fetch(function: Callable[..., Result], *arguments: Any) -> Result:
    """Calls a function that stores its code through its last argument, and returns its result."""
    code = c_int()
    result = function(*arguments, byref(code))
    if code.value != 0:
        raise failure()
    return result


def fetch_number(function: Callable[..., int], *arguments: Any) -> int:
    """As fetch(), for a function that returns a number."""
    return int(fetch(function, *arguments))


def fetch_text(function: Callable[..., int | None], *arguments: Any) -> str | None:
    """As fetch(), for a function that returns a string; None for its null."""
    address = fetch(function, *arguments)
    if address is None:
        return None
    try:
        return decoded(ctypes.string_at(address))
    finally:
        library.zstzPropFree_6_0(address)


def fetch_block(function: Callable[..., int | None], *arguments: Any) -> bytes:
    """As fetch(), for a function that also stores the length of its string."""
    length = c_size_t()
    address = fetch(function, *arguments, byref(length))
    if address is None:
        return b""
    try:
        return ctypes.string_at(address, length.value)
    finally:
        library.zstzPropFree_6_0(address)


_memory_view = ctypes.pythonapi.PyMemoryView_FromMemory
_memory_view.restype = ctypes.py_object
_memory_view.argtypes = (c_void_p, ctypes.c_ssize_t, c_int)
_READ_ONLY = 0x100  # PyBUF_READ


def _loads_marshalled() -> bool:
    """Returns whether this Python loads the form that the library writes.

    The form is not documented, but has been the same since Python 3.4.
    """
    sample = (
        b"{z\x01a{\xfa\x01k[\x02\0\0\0z\0u\x05\0\0\0\xc3\xa4\xed\xb2\xa40"
        b"\xf5\x02\0\0\0\xc3\xb6{r\0\0\0\0[\x01\0\0\0r\x01\0\0\0"
        b"00"
    )
    try:
        return bool(marshal.loads(sample) == {"a": {"k": ["", "\xe4\udca4"]}, "\xf6": {"k": ["\xf6"]}})
    except (EOFError, TypeError, ValueError):
        return False


loads_marshalled = _loads_marshalled()


def fetch_contents(handle: c_void_p, stanza: bytes | None, key: bytes | None) -> Any:
    """Returns all values of a store, a stanza or a key: dictionaries, lists and strings.

    They are loaded from the memory of the library, without a copy of the bytes.
    """
    length = c_size_t()
    function = library.zstzPropGetAllMarshalled_6_0 if loads_marshalled else library.zstzPropGetAll_6_0
    address = fetch(function, handle, stanza, key, byref(length))
    try:
        view = _memory_view(address, length.value, _READ_ONLY)
        return marshal.loads(view) if loads_marshalled else json.loads(str(view, "utf-8"))
    finally:
        library.zstzPropFree_6_0(address)


def take_text(address: c_void_p, length: int) -> str:
    """Returns a string that a function has stored, and releases it; "" for null."""
    if address.value is None:
        return ""
    try:
        return decoded(ctypes.string_at(address.value, length))
    finally:
        library.zstzPropFree_6_0(address)


def patiently(wait: float, action: Callable[[], Result]) -> Result:
    """Calls `action` until it does not raise Busy, for at most `wait` seconds."""
    deadline = time.monotonic() + wait
    pause = 0.002
    while True:
        try:
            return action()
        except errors.Busy:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                raise
            time.sleep(min(pause, remaining))
            pause = min(2 * pause, 0.05)
