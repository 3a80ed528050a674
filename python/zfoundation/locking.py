"""The read-write lock between processes that `zstz lock` uses."""

from __future__ import annotations

import ctypes
import errno as errnos
import os
import stat
import time
import weakref
from typing import TYPE_CHECKING

from . import _library, errors
from ._library import call, encoded, fetch_number, library, require_type
from ._scope import Scoped

if TYPE_CHECKING:
    from .conf import Path

__all__ = ["Lock", "lock"]

# A call of the library cannot be interrupted by a signal: how long it waits at most, in seconds.
_SLICE = 0.25


class Lock(Scoped):
    """A held lock, released at the end of its `with` block or by release().

    Threads: the thread that acquired it releases it. A lock object that is deleted while it is held
    releases the lock, if that happens in its thread.
    Processes: a child of fork() does not hold the locks of its parent.
    """

    def __init__(self, handle: ctypes.c_void_p, name: str, is_writer: bool) -> None:
        """For lock()."""
        self._handle = handle
        self._name = name
        self._is_writer = is_writer
        self._changed = is_writer
        self._process = os.getpid()
        self._sequence = fetch_number(library.zstzLockGetSequence_6_0, handle)
        self._finalizer = weakref.finalize(self, _abandon, handle, self._process)
        self._finalizer.atexit = False

    @property
    def name(self) -> str:
        """The name of the lock."""
        return self._name

    @property
    def is_writer(self) -> bool:
        """Whether the lock excludes readers."""
        return self._is_writer

    @property
    def sequence(self) -> int:
        """The number of changes: every writer that does not set `changed` to False adds one."""
        return self._sequence

    @property
    def changed(self) -> bool:
        """Whether the release adds one to the number of changes; writers only."""
        return self._changed

    @changed.setter
    def changed(self, value: bool) -> None:
        self._changed = bool(value) and self._is_writer

    @property
    def held(self) -> bool:
        """Whether the lock is held, by this process."""
        return self._finalizer.alive and os.getpid() == self._process

    def release(self) -> None:
        """Releases the lock; nothing happens if it is not held.

        Raises Refused in another thread than the one that acquired it: it stays held then. Raises
        FileError if the number of changes cannot be written: it is released anyway.
        """
        if not self.held:
            return
        try:
            call(library.zstzLockRelease_6_0, self._handle, int(self._changed))
        except errors.Refused:
            raise
        except errors.Error:
            self._finalizer.detach()
            raise
        self._finalizer.detach()

    def _end(self) -> None:
        self.release()

    def __repr__(self) -> str:
        state = ("write" if self._is_writer else "read") if self.held else "released"
        return f"<zfoundation.Lock {self._name!r}: {state}>"


def _abandon(handle: ctypes.c_void_p, process: int) -> None:
    if os.getpid() == process:
        library.zstzLockRelease_6_0(handle, 0)


def _directory_error(raw: bytes | None, failure: errors.InvalidData) -> errors.FileError:
    """Returns the exception for a directory in which there can be no lock file."""
    directory = "." if raw is None else os.fsdecode(raw)
    try:
        status = os.stat(directory)
        number = errnos.EACCES if stat.S_ISDIR(status.st_mode) else errnos.ENOTDIR
    except OSError as problem:
        number = problem.errno or errnos.EINVAL
    kind = errors.MissingFile if number == errnos.ENOENT else errors.FileError
    return kind(
        f"{directory}: {os.strerror(number)}; the owner of the directory must be able to write and "
        "search it",
        code=failure.code,
        file=directory,
        errno=number,
    )


def lock(
    name: str, write: bool = False, wait: float = 10.0, directory: Path | None = None
) -> Lock:
    """Acquires a lock. Readers share it; a writer excludes all others.

    write      whether to acquire it for writing
    wait       how many seconds to wait for other processes and threads; 0: not at all
    directory  of the lock file ("._zpl" and the name); None: the working directory

    Raises Busy if the lock is held elsewhere until the end of the wait, FileError if the lock file
    cannot be used, InvalidValue if the name is empty or has a "/".
    """
    require_type(name, str, "name")
    raw_name = encoded(name)
    if not raw_name or b"/" in raw_name:
        raise errors.InvalidValue(f"{name!r} is no name of a lock: it is empty or has a \"/\"")
    raw_directory = None if directory is None else _library.path_bytes(directory)
    deadline = time.monotonic() + wait
    while True:
        remaining = max(0.0, min(deadline - time.monotonic(), _SLICE))
        handle = ctypes.c_void_p()
        try:
            call(
                library.zstzLockAcquire_6_0,
                ctypes.byref(handle),
                raw_directory,
                raw_name,
                int(write),
                int(remaining * 1000),
            )
            return Lock(handle, name, write)
        except errors.InvalidData as failure:  # has no reason: the directory is not usable
            raise _directory_error(raw_directory, failure) from None
        except errors.FileError as failure:
            if failure.errno != errnos.EAGAIN:
                raise
            if time.monotonic() >= deadline:
                raise errors.Busy(
                    f"lock {name!r} is held by another process or thread; try again, or wait longer",
                    code=failure.code,
                    file=failure.file,
                    errno=failure.errno,
                ) from None
