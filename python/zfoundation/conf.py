"""A configuration file as a mapping of its stanzas, and the functions that open one."""

from __future__ import annotations

import builtins
import ctypes
import errno as errnos
import gc
import os
import threading
from collections.abc import Callable, Iterator, Mapping, MutableMapping
from contextlib import AbstractContextManager, contextmanager
from types import TracebackType
from typing import Any, TypeVar, Union, cast, overload

from . import _library, errors
from ._library import CHANGE_FAILED, call, library, patiently, require_type
from ._store import Store
from .dialects import recognise
from .problems import first_error
from .stanza import (
    MISSING_ARGUMENT,
    Missing,
    Stanza,
    Values,
    copied_stanza,
    exchanged_comment,
    in_file,
    listed,
    is_empty_top,
    missing_stanza,
    require_plain,
    without_number,
)

__all__ = ["Conf", "Name", "Path", "loads", "open", "read"]

Path = Union[str, "os.PathLike[str]"]
Name = Union[str, "tuple[str, int]"]
Result = TypeVar("Result")


class Conf(MutableMapping[str, Stanza]):
    """The stanzas of a file, in file order, and the operations on the file.

    As a context manager it saves at the end, unless the block raised or nothing has changed, and
    closes. Without `with`, save() and close() do that; an object that is deleted closes itself.

    Threads: any; each operation is one step for all others. `with conf.lock:` makes several one step.
    An iterator goes over the stanzas that existed when it was created, and locks nothing.
    Processes: after fork() parent and child have objects of their own.
    """

    def __init__(
        self,
        store: Store,
        path: str = "",
        wait: float = 5.0,
        is_created: bool = False,
        loaded: bytes = b"",
    ) -> None:
        """For the functions of this module: open() and loads()."""
        self._store = store
        self._wait = wait
        self._is_created = is_created  # the file does not exist yet
        self._is_unsaved = False  # changes were saved to another file only
        self._loaded = loaded  # the text of a store without a file
        store.path = path

    # ---- The file

    @property
    def path(self) -> str:
        """The path of the file, from the root directory; empty for a store without a file."""
        return self._store.path

    @property
    def dialect(self) -> str:
        """The name of the dialect in which the file is read and written."""
        return self._store.dialect()

    @property
    def modified(self) -> bool:
        """Whether there are changes that save() has not written."""
        with self._store.lock:
            if self._is_created and not self._store.text():
                return False  # the empty text of a new file is no change
            return self._store.is_modified() or self._is_unsaved

    @property
    def lock(self) -> AbstractContextManager[Any]:
        """A lock for `with`: no other thread uses the object inside the block."""
        return self._store.lock

    @property
    def closed(self) -> bool:
        """Whether close() was called."""
        return self._store.is_closed

    def text(self) -> str:
        """Returns the text that save() writes. Obfuscated values are not in it."""
        return _library.decoded(self._store.text())

    def diff(self) -> str:
        """Returns the changes that save() would make, as a unified diff.

        The first text is the file, or the text that loads() was given. `patch -p0` takes the diff: in
        the working directory, or with `-d /` if the file is not below it. Changes of obfuscated values
        are not in it. Raises FileError if the file cannot be read.
        """
        with self._store.lock:
            before = self._loaded
            if self.path and not self._is_created:
                before = _bytes_of(self.path)
            after = self._store.text()
        if before == after:
            return ""
        name = name_for_patch(self.path) if self.path else "text"
        return unified_diff(before, after, "/dev/null" if self._is_created else name, name)

    def save(self, path: Path | None = None) -> None:
        """Writes the file, or another file at `path`. Waits while another process uses it.

        Only lines of changed values change; a file that has the text already is not written. If
        another program has changed the file since, the changes are made in its text, unless both
        concern the same values. The first save of a store without a file names its file.

        Raises Refused without a file; FileError: with `errno` ESTALE if another program has changed
        the same values, with EEXIST if it has created the file; Busy; InvalidValue if a value would
        not be read back. The file is unchanged then.
        """
        with self._store.lock:
            target = self.path if path is None else os.fsdecode(_library.path_bytes(path))
            if not target:
                raise errors.Refused("the store has no file; pass a path", code=CHANGE_FAILED)
            is_own = not self.path or target == self.path
            if self._is_created and is_own and os.path.lexists(target):
                raise errors.FileError(
                    f"{target}: another program has created the file; open it again",
                    file=target,
                    errno=errnos.EEXIST,
                )
            unsaved = self.modified
            raw = os.fsencode(target)
            patiently(self._wait, lambda: self._store.save(raw))
            if is_own:
                self._store.path = target
                self._is_created = False
            self._is_unsaved = unsaved and not is_own

    def reload(self) -> None:
        """Reads the file again; unsaved changes are lost.

        Raises Refused without a file, or if another program has created the file; MissingFile and
        other FileErrors; Busy; InvalidData. Nothing is changed then.
        """
        with self._store.lock:
            if not self.path:
                raise errors.Refused("the store has no file", code=CHANGE_FAILED)
            if self._is_created:
                if os.path.lexists(self.path):
                    raise errors.Refused(
                        f"{self.path}: another program has created the file; open it again",
                        code=CHANGE_FAILED,
                        file=self.path,
                    )
                raise errors.MissingFile(
                    f"{self.path}: {os.strerror(errnos.ENOENT)}",
                    file=self.path,
                    errno=errnos.ENOENT,
                )
            _explained(
                self.path,
                self._store.spelled_dialect(),
                lambda: patiently(self._wait, self._store.reload),
            )
            self._is_unsaved = False

    def close(self) -> None:
        """Ends the use of the object; unsaved changes are lost. May be called again."""
        self._store.close()

    def __enter__(self) -> Conf:
        self._store.handle()
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        value: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        try:
            if kind is None and not self.closed and self.path and self.modified:
                self.save()
        finally:
            self.close()

    # ---- As a mapping

    def __getitem__(self, name: Name) -> Stanza:
        """Returns a stanza: by its name, or by (name, n), the n-th stanza of that name.

        "." is the part above the first header, in dialects that have it, also if it has no keys; `in`
        and iterators leave it out then. Raises NotFound.
        """
        with self._store.lock:
            found = self._resolved(name)
            if not self._has(found) and not is_empty_top(self._store, found):
                raise missing_stanza(self._store, found)
            return Stanza(self._store, found)

    # The mapping has the type Stanza for its values, but takes every mapping.
    def __setitem__(self, name: Name, contents: Mapping[str, Values]) -> None:
        """Gives a stanza exactly these keys and values; adds the stanza if it is missing.

        Keys that stay keep their lines, also in another spelling of a name that is the same in the
        dialect. Raises Refused if a key is obfuscated; InvalidValue if a line would not be read
        back, or if two keys are the same. Nothing is changed then.
        """
        with self._store.lock:
            wanted = listed(contents)
            found = self._resolved(name)
            with self._tried(found, wanted) as trial:
                if not self._has(found):
                    self._store.add_stanza(found)
                stanza = Stanza(self._store, found)
                for key in stanza:
                    if key not in trial:
                        del stanza[key]
            for key, values in wanted.items():
                stanza.set(key, values)

    def __delitem__(self, name: Name) -> None:
        """Removes a stanza with its keys. Raises NotFound."""
        with self._store.lock:
            self._store.remove_stanza(self._existing(name))

    def __iter__(self) -> Iterator[str]:
        return iter(list(self._store.stanzas()))

    def __len__(self) -> int:
        return self._store.stanza_count()

    def __contains__(self, name: object) -> bool:
        try:
            wanted = _checked_name(name)
        except TypeError:
            return False
        with self._store.lock:
            return self._has(self._resolved(wanted))

    def __repr__(self) -> str:
        state = "closed" if self.closed else f"{len(self)} stanzas"
        return f"<zfoundation.Conf {self.path or 'without a file'!r}: {state}>"

    def __reduce__(self) -> tuple[Any, ...]:
        raise TypeError("a Conf cannot be copied or pickled; copy its text()")

    def add(self, name: Name) -> Stanza:
        """Adds an empty stanza at the end, unless there is one of that name. Returns it.

        Raises InvalidValue.
        """
        with self._store.lock:
            found = self._resolved(name)
            if not self._has(found):
                self._store.add_stanza(found)
            return Stanza(self._store, found)

    def setdefault(self, name: Name, default: Any = None) -> Stanza:
        """Returns a stanza; a missing one is added with the contents of `default`, a mapping."""
        with self._store.lock:
            found = self._resolved(name)
            if not self._has(found):
                self[found] = {} if default is None else default
            return self[found]

    def pop(self, name: Name, default: Any = MISSING_ARGUMENT) -> Any:
        """Removes a stanza and returns a copy of it, which belongs to no file.

        A missing one gives `default`, if it is passed. Raises NotFound.
        """
        with self._store.lock:
            found = self._resolved(name)
            if not self._has(found):
                if isinstance(default, Missing):
                    raise missing_stanza(self._store, found)
                return default
            copied = copied_stanza(self._store, found)
            self._store.remove_stanza(found)
            return copied

    def popitem(self) -> tuple[str, Stanza]:
        """Removes the last stanza. Returns its name and a copy. Raises KeyError without stanzas."""
        with self._store.lock:
            names = list(self)
            if not names:
                raise KeyError("popitem(): there are no stanzas")
            return names[-1], self.pop(names[-1])

    def clear(self) -> None:
        """Removes all stanzas."""
        with self._store.lock:
            # From the end: the removal of [Peer] changes the number of the second one.
            for name in reversed(list(self)):
                self._store.remove_stanza(name)

    # ---- Names and comments

    def rename(self, name: Name, new_name: str) -> None:
        """Renames a stanza in its place.

        Raises NotFound; Refused if there is a stanza of the new name; InvalidValue.
        """
        require_type(new_name, str, "new_name")
        with self._store.lock:
            found = self._existing(name)
            if new_name == found:
                return
            if self._has(new_name) and not self._is_same(found, new_name):
                raise errors.Refused(
                    in_file(self._store, f"stanza [{new_name}] exists"),
                    code=CHANGE_FAILED,
                    file=self.path,
                    stanza=new_name,
                )
            self._store.rename_stanza(found, new_name)

    @overload
    def comment(self, name: Name | None) -> str | None: ...

    @overload
    def comment(self, name: Name | None, text: str | None) -> None: ...

    def comment(self, name: Name | None, text: str | None | Missing = MISSING_ARGUMENT) -> str | None:
        """Returns the comment above a stanza, or of the file if `name` is None, without its marks.

        None if there is none. With `text`, which has no marks either: replaces it; None removes it.
        Raises NotFound.
        """
        with self._store.lock:
            found = None if name is None else self._existing(name)
            return exchanged_comment(self._store, found, None, text)

    # ---- Helpers

    def _resolved(self, name: Name) -> str:
        wanted = _checked_name(name)
        if isinstance(wanted, str):
            return wanted
        base, number = wanted
        numbered = f"{base}]{number}"
        # The first of several stanzas of one name may be called by the name alone.
        return base if number == 1 and not self._has(numbered) else numbered

    def _has(self, name: str) -> bool:
        try:
            return self._store.has_stanza(name)
        except errors.InvalidValue:
            return False

    def _existing(self, name: Name) -> str:
        found = self._resolved(name)
        if not self._has(found):
            raise missing_stanza(self._store, found)
        return found

    def _is_same(self, name: str, new_name: str) -> bool:
        """Returns whether two names are one in a format that ignores their case."""
        trial = self._store.new_alike()
        try:
            trial.add_stanza(without_number(name))
            return trial.has_stanza(new_name)
        finally:
            trial.close()

    @contextmanager
    def _tried(self, name: str, contents: Mapping[str, list[str]]) -> Iterator[Stanza]:
        """Gives a stanza with the contents in a store of its own, which is closed at the end.

        So a refused change changes nothing.
        """
        header = name
        if self._has(name):
            header = without_number(name)
            for key in contents:
                require_plain(self._store, name, key)
        store = self._store.new_alike()
        try:
            store.add_stanza(header)
            trial = Stanza(store, header)
            for key, values in contents.items():
                if key in trial:
                    raise self._same_keys(name, trial, key)
                trial.set(key, values)
            yield trial
        finally:
            store.close()

    def _same_keys(self, name: str, trial: Stanza, key: str) -> errors.InvalidValue:
        first = next(known for known in trial if trial.line(known) == trial.line(key))
        return errors.InvalidValue(
            in_file(self._store, f"keys {first!r} and {key!r} in [{name}] are the same; leave out one"),
            code=CHANGE_FAILED,
            file=self.path,
            stanza=name,
            key=key,
        )


def _checked_name(name: object) -> Name:
    """Returns the name of a stanza, or a pair of it and a number from 1. Raises TypeError."""
    if isinstance(name, str):
        return name
    pair = cast("tuple[object, ...]", name) if isinstance(name, tuple) else ()
    if len(pair) == 2:
        base, number = pair
        if isinstance(base, str) and isinstance(number, int) and number > 0:
            return base, number
    raise TypeError(f"expected a name or (name, number), not {name!r}")


def _bytes_of(path: str) -> bytes:
    try:
        with builtins.open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return b""
    except OSError as failure:
        raise errors.FileError(
            f"{path}: {failure.strerror}", file=path, errno=failure.errno or 0
        ) from None


def unified_diff(before: bytes, after: bytes, before_name: str, after_name: str) -> str:
    """Returns a unified diff; only newlines separate lines."""
    address, length = ctypes.c_void_p(), ctypes.c_size_t()
    call(
        library.zstzPropDiffText_6_0,
        *(before, len(before), os.fsencode(before_name)),
        *(after, len(after), os.fsencode(after_name)),
        ctypes.byref(address),
        ctypes.byref(length),
    )
    return _library.take_text(address, length.value)


def name_for_patch(path: str) -> str:
    """Returns a path as `patch` takes it: it refuses paths that start at the root directory."""
    directory = os.path.join(os.getcwd(), "")
    return path[len(directory) :] if path.startswith(directory) else path.lstrip("/")


def _explained(path: str, dialect: str | None, action: Callable[[], Result]) -> Result:
    """Calls `action`. Gives InvalidData the text that lint() has for the line."""
    try:
        return action()
    except errors.InvalidData as failure:
        problem = first_error(path, dialect)
        if problem is None or (failure.line and problem.line != failure.line):
            raise
        raise errors.InvalidData(
            str(problem),
            code=failure.code,
            file=path,
            line=problem.line,
            column=problem.column,
        ) from None


def _loaded_store(text: bytes, dialect: str | None) -> Store:
    """Returns a store without a file that keeps the lines of `text`."""
    store = Store.new(dialect)
    try:
        store.keep_lines()
        store.load_text(text)
    except BaseException:
        store.close()
        raise
    return store


def open(path: Path, dialect: str | None = None, create: bool = False, wait: float = 5.0) -> Conf:
    """Opens a file.

    dialect   its name; None: the dialect that the name of the file implies
    create    a missing file is created by the first save
    wait      how many seconds to wait while another process uses the file, here and in save()

    Raises MissingFile, FileError, Busy, InvalidData with the first bad line, Unsupported.
    """
    raw = _library.path_bytes(path)
    text = os.fsdecode(raw)
    try:
        store = _explained(text, dialect, lambda: patiently(wait, lambda: Store.opened(raw, dialect)))
    except errors.MissingFile:
        if not create or os.path.lexists(text):
            raise
        return Conf(_loaded_store(b"", dialect or recognise(text)), text, wait, is_created=True)
    return Conf(store, text, wait)


def loads(text: str | bytes, dialect: str | None = None) -> Conf:
    """Reads the contents of a file from memory; the result has no file. Raises InvalidData."""
    if not isinstance(text, bytes):
        require_type(text, str, "text")
        text = text.encode("utf-8", "surrogateescape")
    return Conf(_loaded_store(text, dialect), loaded=text)


class _PausedCollector:
    """Pauses the garbage collector while many objects are created.

    It would search the new objects again and again for cycles, and finds none. At the end they are
    made old without a search, by freeze() and unfreeze(), unless the program uses these itself.
    """

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._users = 0
        self._was_enabled = False

    def __enter__(self) -> None:
        with self._lock:
            if self._users == 0:
                self._was_enabled = gc.isenabled()
                gc.disable()
            self._users += 1

    def __exit__(self, *exception: object) -> None:
        with self._lock:
            self._users -= 1
            if self._users == 0 and self._was_enabled:
                if gc.get_freeze_count() == 0:
                    gc.freeze()
                    gc.unfreeze()
                gc.enable()


_paused_collector = _PausedCollector()


def read(path: Path, dialect: str | None = None, wait: float = 5.0) -> dict[str, dict[str, list[str]]]:
    """Returns {stanza: {key: [value, ...]}}, in file order; the result is not bound to the file.

    A key without values has an empty list. Obfuscated values are included. Raises as open().
    """
    raw = _library.path_bytes(path)

    def contents() -> Any:
        store = Store.opened_to_read(raw, dialect)
        try:
            with _paused_collector:
                return store.contents()
        finally:
            store.close()

    result: dict[str, dict[str, list[str]]] = _explained(
        os.fsdecode(raw), dialect, lambda: patiently(wait, contents)
    )
    return result
