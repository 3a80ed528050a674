"""The objects that a `with` block releases at its end."""

from __future__ import annotations

from abc import abstractmethod
from types import TracebackType
from typing import TypeVar

__all__ = ["Scoped"]

Self = TypeVar("Self", bound="Scoped")


class Scoped:
    """Can be used in `with`."""

    @abstractmethod
    def _end(self) -> None:
        """Releases the object. May be called again."""

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        value: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        self._end()
