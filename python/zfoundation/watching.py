"""The changes of a file as they happen.

A file is read when its writer has closed it, or has renamed it into place, and is not writing again
after the reading. So a state in the middle of a store or of an editor's write is never reported;
states that follow each other quickly may be reported as one.
"""

from __future__ import annotations

import ctypes
import math
import os
import select
import struct
import time
from collections import deque
from collections.abc import Iterator
from dataclasses import dataclass
from typing import TYPE_CHECKING, Union

from . import _library, errors
from ._scope import Scoped
from .conf import read

if TYPE_CHECKING:
    from .conf import Path

__all__ = ["Change", "Watch", "watch"]

Contents = dict[str, dict[str, list[str]]]
Stamp = Union[tuple[int, ...], None]

# The events of inotify.
_MODIFY = 0x2
_ATTRIB = 0x4
_CLOSE_WRITE = 0x8
_MOVED_FROM = 0x40
_MOVED_TO = 0x80
_CREATE = 0x100
_DELETE = 0x200
_OVERFLOW = 0x4000
_WATCHED = _MODIFY | _ATTRIB | _CLOSE_WRITE | _MOVED_FROM | _MOVED_TO | _CREATE | _DELETE

_EVENT = struct.Struct("iIII")

# Seconds after which the file itself is examined: a change by another machine causes no event.
_LOOK = 1.0
# After this many seconds without an event, a writer that has not closed the file is not waited for.
_QUIET = 0.5


@dataclass(frozen=True)
class Change:
    """A changed key. `old` and `new` are all its values; None if there is no such key."""

    stanza: str
    key: str
    old: list[str] | None
    new: list[str] | None


def changes_between(old: Contents, new: Contents) -> list[Change]:
    """Returns the changed keys: in the order of the new contents, then the removed ones."""
    found: list[Change] = []
    for stanza, keys in new.items():
        before = old.get(stanza, {})
        for key, values in keys.items():
            if before.get(key) != values:
                found.append(Change(stanza, key, before.get(key), values))
    for stanza, keys in old.items():
        after = new.get(stanza, {})
        for key, values in keys.items():
            if key not in after:
                found.append(Change(stanza, key, values, None))
    return found


class _Notifier:
    """Receives the events of the directories of a file: of its name, and of its target."""

    def __init__(self) -> None:
        libc = ctypes.CDLL(None, use_errno=True)
        self._add_watch = libc.inotify_add_watch
        self.descriptor: int = libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        if self.descriptor < 0:
            raise _os_error("inotify_init1()", "")
        self._watches: dict[int, set[bytes]] = {}
        self._watched: tuple[str, ...] = ()

    def close(self) -> None:
        if self.descriptor >= 0:
            os.close(self.descriptor)
            self.descriptor = -1

    def follow(self, path: str) -> None:
        """Watches the directories of a path and of the file to which it leads now."""
        paths = tuple(dict.fromkeys([path, os.path.realpath(path)]))
        if paths == self._watched:
            return
        watches: dict[int, set[bytes]] = {}
        for name in paths:
            directory = os.path.dirname(name) or "/"
            number = self._add_watch(self.descriptor, os.fsencode(directory), _WATCHED)
            if number < 0:
                raise _os_error("inotify_add_watch()", directory)
            watches.setdefault(number, set()).add(os.fsencode(os.path.basename(name)))
        self._watches, self._watched = watches, paths

    def events(self) -> list[int]:
        """Returns the masks of the events that concern the file and are there already."""
        masks: list[int] = []
        try:
            block = os.read(self.descriptor, 65536)
        except BlockingIOError:
            return []
        position = 0
        while position < len(block):
            number, mask, _, length = _EVENT.unpack_from(block, position)
            position += _EVENT.size
            name = block[position : position + length].rstrip(b"\0")
            position += length
            if mask & _OVERFLOW or name in self._watches.get(number, ()):
                masks.append(mask)
        return masks


def _os_error(function: str, path: str) -> errors.FileError:
    number = ctypes.get_errno()
    where = f"{path}: " if path else ""
    return errors.FileError(
        f"{where}{os.strerror(number)} in {function}", file=path, errno=number
    )


class Watch(Scoped, Iterator[Change]):
    """The iterator of watch(). It belongs to one thread; close(), or a `with` block, ends it."""

    def __init__(self, path: Path, dialect: str | None, timeout: float | None) -> None:
        """For watch()."""
        self._path = os.fsdecode(_library.path_bytes(path))
        self._dialect = dialect
        self._timeout = timeout
        self._changes: deque[Change] = deque()
        self._is_due = False  # the file may have changed since it was read
        self._is_writing = False  # a writer has not closed the file
        self._last_event = 0.0
        self._notifier = _Notifier()
        try:
            self._notifier.follow(self._path)
            self._stamp = self._current_stamp()
            self._contents = read(self._path, self._dialect)
        except BaseException:
            self._notifier.close()
            raise

    def close(self) -> None:
        """Ends the iteration. May be called again."""
        self._notifier.close()

    def _end(self) -> None:
        self.close()

    def __del__(self) -> None:
        notifier = getattr(self, "_notifier", None)
        if notifier is not None:
            notifier.close()

    def __iter__(self) -> Watch:
        return self

    def __next__(self) -> Change:
        """Returns the next change; waits for it at most the seconds of the timeout."""
        deadline = None if self._timeout is None else time.monotonic() + self._timeout
        while not self._changes:
            if self._notifier.descriptor < 0:
                raise StopIteration
            self._wait(deadline)
            self._look()
            if not self._changes and deadline is not None and time.monotonic() >= deadline:
                raise StopIteration
        return self._changes.popleft()

    def _current_stamp(self) -> Stamp:
        try:
            status = os.stat(self._path)
        except OSError:
            return None
        return (
            status.st_dev,
            status.st_ino,
            status.st_size,
            status.st_mtime_ns,
            status.st_ctime_ns,
        )

    def _wait(self, deadline: float | None) -> None:
        """Waits for an event, for the time of the next look, or until the deadline."""
        seconds = 0.02 if self._is_due and not self._is_writing else _LOOK
        if self._is_writing:
            seconds = min(seconds, _QUIET)
        if deadline is not None:
            seconds = min(seconds, max(0.0, deadline - time.monotonic()))
        poll = select.poll()
        poll.register(self._notifier.descriptor, select.POLLIN)
        poll.poll(math.ceil(1000 * seconds))

    def _take_events(self) -> bool:
        """Takes note of the events that are there. Returns whether there were any."""
        masks = self._notifier.events()
        for mask in masks:
            self._is_due = True
            self._last_event = time.monotonic()
            if mask & (_MODIFY | _CREATE):
                self._is_writing = True
            if mask & (_CLOSE_WRITE | _MOVED_TO | _DELETE | _MOVED_FROM | _OVERFLOW):
                self._is_writing = False
        return bool(masks)

    def _look(self) -> None:
        """Reads the file if it has changed and no process is writing it."""
        self._take_events()
        self._notifier.follow(self._path)
        stamp = self._current_stamp()
        if stamp != self._stamp:
            self._stamp = stamp
            self._is_due = True
        if not self._is_due or stamp is None:
            return
        if self._is_writing and time.monotonic() - self._last_event < _QUIET:
            return
        self._is_due = self._is_writing = False
        try:
            contents = read(self._path, self._dialect, wait=0)
        except errors.InvalidData:
            return  # reported as a whole, once it is valid again
        except (errors.FileError, errors.NotFound):
            self._is_due = True  # missing for a moment, or busy
            return
        self._follow_or_report(contents, stamp)

    def _follow_or_report(self, contents: Contents, stamp: Stamp) -> None:
        if self._take_events() or self._current_stamp() != stamp:
            self._is_due = True  # a writer may have been at work during the reading
            return
        self._changes.extend(changes_between(self._contents, contents))
        self._contents = contents


def watch(path: Path, dialect: str | None = None, timeout: float | None = None) -> Watch:
    """Returns an iterator over the changes of a file from now on.

    It follows editors that write in place or rename, symbolic links, and stores of this library. A
    file that is missing or invalid for some time is compared when it is back.

    timeout   the iteration ends after this many seconds without a change; None: never

    Raises as read().
    """
    return Watch(path, dialect, timeout)
