"""An open store of the library: one method for each plain function, with str in place of bytes.

A method locks the store for its duration; `with store.lock:` makes several calls one operation.
"""

from __future__ import annotations

import ctypes
import os
import threading
import weakref
from collections.abc import Sequence
from ctypes import c_char_p, c_void_p
from typing import Any

from . import _library, errors
from ._library import call, encoded, encoded_name, fetch_block, fetch_contents, fetch_number, fetch_text, library
from .dialects import recognise

__all__ = ["Store"]

_stores: weakref.WeakSet[Store] = weakref.WeakSet()


def _renew_locks() -> None:
    """In a child process, the thread that holds a lock may not exist."""
    for store in list(_stores):
        store.lock = threading.RLock()


os.register_at_fork(after_in_child=_renew_locks)


def _optional(text: str | None) -> bytes | None:
    return None if text is None else encoded(text)


class Store:
    """Owns a handle until close(), or until the object is deleted. Any thread may use it."""

    def __init__(self, handle: c_void_p) -> None:
        self.lock = threading.RLock()
        self.path = ""  # of the file, for messages; empty if there is none
        self._handle: c_void_p | None = handle
        self._opened_as: str | None = None  # the dialect that was asked for
        self._finalizer = weakref.finalize(self, library.zstzPropClose_6_0, handle)
        self._finalizer.atexit = False
        _stores.add(self)

    @classmethod
    def opened(cls, path: bytes, dialect: str | None) -> Store:
        """Reads a file, to change it: the lines of unchanged values stay as they are."""
        # The option belongs to the thread.
        call(library.zstzPropSetDefaultOption_6_0, _library.KEEP_LINES, 1)
        try:
            return cls.opened_to_read(path, dialect)
        finally:
            call(library.zstzPropSetDefaultOption_6_0, _library.KEEP_LINES, 0)

    @classmethod
    def opened_to_read(cls, path: bytes, dialect: str | None) -> Store:
        """Reads a file."""
        handle = c_void_p()
        name = _optional(dialect)
        call(library.zstzPropOpenAs_6_0, ctypes.byref(handle), path, _library.OPEN_UPDATE, name)
        return cls._created(handle, dialect)

    @classmethod
    def new(cls, dialect: str | None) -> Store:
        """Creates an empty store without a file."""
        handle = c_void_p()
        call(library.zstzPropNew_6_0, ctypes.byref(handle), _optional(dialect))
        return cls._created(handle, dialect)

    @classmethod
    def _created(cls, handle: c_void_p, dialect: str | None) -> Store:
        store = cls(handle)
        store._opened_as = dialect
        return store

    def new_alike(self) -> Store:
        """Creates an empty store of the same dialect, without a file."""
        return Store.new(self.spelled_dialect())

    def close(self) -> None:
        with self.lock:
            self._handle = None
            self._finalizer()

    @property
    def is_closed(self) -> bool:
        return self._handle is None

    def handle(self) -> c_void_p:
        if self._handle is None:
            raise errors.Closed("the store is closed", code=_library.BAD_HANDLE)
        return self._handle

    # ---- The file

    def keep_lines(self) -> None:
        with self.lock:
            call(library.zstzPropSetOption_6_0, self.handle(), _library.KEEP_LINES, 1)

    def reload(self) -> None:
        with self.lock:
            call(library.zstzPropReload_6_0, self.handle())

    def save(self, path: bytes | None) -> None:
        with self.lock:
            call(library.zstzPropStore_6_0, self.handle(), path)

    def is_modified(self) -> bool:
        with self.lock:
            return fetch_number(library.zstzPropIsModified_6_0, self.handle()) != 0

    def dialect(self) -> str:
        with self.lock:
            return fetch_text(library.zstzPropGetDialect_6_0, self.handle()) or ""

    def spelled_dialect(self) -> str:
        """Returns the name of the dialect, with its switches."""
        name = self.dialect()
        spelled = self._opened_as
        if spelled is None and self.path:
            spelled = recognise(self.path)
        return spelled if spelled is not None and spelled.partition(",")[0] == name else name

    def load_text(self, text: bytes) -> None:
        with self.lock:
            call(library.zstzPropLoadText_6_0, self.handle(), text, len(text))

    def text(self) -> bytes:
        with self.lock:
            return fetch_block(library.zstzPropStoreText_6_0, self.handle())

    # ---- Names

    def contents(self, stanza: str | None = None, key: str | None = None) -> Any:
        """Returns {stanza: {key: [value]}}, or the part of it for a stanza or a key."""
        names = (
            None if stanza is None else encoded_name(stanza),
            None if key is None else encoded_name(key),
        )
        with self.lock:
            return fetch_contents(self.handle(), *names)

    def stanzas(self) -> list[str]:
        """Returns the names of the stanzas in file order."""
        iterator = c_void_p()
        names: list[str] = []
        with self.lock:  # the iterator locks the library's store, and belongs to this thread
            call(library.zstzPropIter_initStanzas_6_0, self.handle(), ctypes.byref(iterator))
            try:
                while fetch_number(library.zstzPropIter_next_6_0, iterator):
                    names.append(fetch_text(library.zstzPropIter_getKey_6_0, iterator) or "")
            finally:
                library.zstzPropIter_close_6_0(iterator)
        return names

    def has_stanza(self, stanza: str) -> bool:
        if not stanza:  # the library takes an empty name only here
            return self._has("")
        with self.lock:
            return fetch_number(library.zstzPropExists_6_0, self.handle(), encoded(stanza), None) != 0

    def has_key(self, stanza: str, key: str) -> bool:
        if not stanza or not key:
            return self._has(stanza, key)
        with self.lock:
            raw = encoded(stanza), encoded(key)
            return fetch_number(library.zstzPropExists_6_0, self.handle(), *raw) != 0

    def _has(self, stanza: str, key: str | None = None) -> bool:
        try:
            self.contents(stanza, key)
        except errors.NotFound:
            return False
        return True

    def stanza_count(self) -> int:
        with self.lock:
            return fetch_number(library.zstzPropNumStanzas_6_0, self.handle())

    def key_count(self, stanza: str) -> int:
        if not stanza:
            return len(self.contents(stanza))
        with self.lock:
            return fetch_number(library.zstzPropNumKeys_6_0, self.handle(), encoded(stanza))

    def add_stanza(self, stanza: str) -> None:
        with self.lock:
            call(library.zstzPropAddStanza_6_0, self.handle(), encoded(stanza))

    def remove_stanza(self, stanza: str) -> None:
        with self.lock:
            call(library.zstzPropRemoveStanza_6_0, self.handle(), encoded(stanza))

    def remove_key(self, stanza: str, key: str) -> None:
        with self.lock:
            raw = encoded(stanza), encoded(key)
            call(library.zstzPropRemoveKey_6_0, self.handle(), *raw)

    def rename_stanza(self, stanza: str, name: str) -> None:
        with self.lock:
            raw = encoded_name(stanza), encoded(name)
            call(library.zstzPropRenameStanza_6_0, self.handle(), *raw)

    def rename_key(self, stanza: str, key: str, name: str) -> None:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key), encoded(name)
            call(library.zstzPropRenameKey_6_0, self.handle(), *raw)

    def value_count(self, stanza: str, key: str) -> int:
        """Returns the number of all values of a key, with the ignored ones."""
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            return fetch_number(library.zstzPropNumValues_6_0, self.handle(), *raw)

    def counting(self, stanza: str, key: str) -> range:
        """Returns the indexes of the values that count."""
        first, count = ctypes.c_int(), ctypes.c_int()
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            call(
                library.zstzPropGetCountingRange_6_0,
                self.handle(),
                *raw,
                ctypes.byref(first),
                ctypes.byref(count),
            )
        return range(first.value, first.value + count.value)

    # ---- Values

    def value(self, stanza: str, key: str) -> str:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            if not (stanza and key):
                values = self.contents(stanza, key)
                return str(values[-1]) if values else ""
            text = fetch_text(library.zstzPropGetStringValue_6_0, self.handle(), *raw, 0)
            return text or ""

    def boolean(self, stanza: str, key: str) -> bool:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            return fetch_number(library.zstzPropGetBooleanValue_6_0, self.handle(), *raw, 0) != 0

    def set_value(self, stanza: str, key: str, value: str) -> None:
        with self.lock:
            raw = encoded(stanza), encoded(key), encoded(value)
            call(library.zstzPropSetStringValue_6_0, self.handle(), *raw)

    def set_values(self, stanza: str, key: str, values: Sequence[str]) -> None:
        array = (c_char_p * len(values))(*[encoded(value) for value in values])
        with self.lock:
            raw = encoded(stanza), encoded(key)
            call(library.zstzPropSetStringValues_6_0, self.handle(), *raw, array, len(values))

    def add_value(self, stanza: str, key: str, value: str) -> None:
        with self.lock:
            raw = encoded(stanza), encoded(key), encoded(value)
            call(library.zstzPropAddStringValue_6_0, self.handle(), *raw)

    def remove_value(self, stanza: str, key: str, value: str) -> None:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key), encoded_name(value)
            call(library.zstzPropRemoveValue_6_0, self.handle(), *raw)

    def obfuscate(self, stanza: str, key: str, value: str) -> None:
        with self.lock:
            raw = encoded(stanza), encoded(key), encoded(value)
            call(library.zstzPropSetObfuscatedValue_6_0, self.handle(), *raw)

    def is_obfuscated(self, stanza: str, key: str) -> bool:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            return fetch_number(library.zstzPropIsObfuscated_6_0, self.handle(), *raw) != 0

    # ---- Comments and lines

    def comment(self, stanza: str | None, key: str | None) -> str | None:
        with self.lock:
            if stanza is None:
                return fetch_text(library.zstzPropGetFileComment_6_0, self.handle())
            if key is None:
                raw = encoded_name(stanza)
                return fetch_text(library.zstzPropGetStanzaComment_6_0, self.handle(), raw)
            both = encoded_name(stanza), encoded_name(key)
            return fetch_text(library.zstzPropGetLineComment_6_0, self.handle(), *both)

    def set_comment(self, stanza: str | None, key: str | None, comment: str | None) -> None:
        text = _optional(comment)
        with self.lock:
            if stanza is None:
                call(library.zstzPropSetFileComment_6_0, self.handle(), text)
            elif key is None:
                raw = encoded_name(stanza)
                call(library.zstzPropSetStanzaComment_6_0, self.handle(), raw, text)
            else:
                both = encoded_name(stanza), encoded_name(key)
                call(library.zstzPropSetLineComment_6_0, self.handle(), *both, text)

    def raw(self, stanza: str, key: str, index: int) -> str:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            text = fetch_text(library.zstzPropGetRawValue_6_0, self.handle(), *raw, index)
            return text or ""

    def set_raw(self, stanza: str, key: str, index: int, spelling: str) -> None:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            text = encoded(spelling)
            call(library.zstzPropSetRawValue_6_0, self.handle(), *raw, index, text)

    def line(self, stanza: str, key: str, index: int) -> int:
        with self.lock:
            raw = encoded_name(stanza), encoded_name(key)
            return fetch_number(library.zstzPropGetLine_6_0, self.handle(), *raw, index)
