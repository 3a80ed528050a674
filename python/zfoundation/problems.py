"""Every bad line of a file."""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

from . import _library
from ._library import call, decoded, encoded, library, patiently

if TYPE_CHECKING:
    from .conf import Path

__all__ = ["Problem", "lint"]

_ERROR = 1  # the kind of a problem


@dataclass(frozen=True)
class Problem:
    """A complaint about a line. As text it is FILE:LINE:COLUMN: PROBLEM; REMEDY."""

    file: str
    line: int  # counted from 1
    column: int  # in characters, counted from 1
    is_error: bool  # the file cannot be opened, or differs from the template; else save() would
    # change or drop the line
    text: str  # the problem and the remedy
    cause: int  # a number of ZStanzaProblem.h

    def __str__(self) -> str:
        return f"{self.file}:{self.line}:{self.column}: {self.text}"


def lint(
    path: Path, dialect: str | None = None, wait: float = 5.0, template: Path | None = None
) -> list[Problem]:
    """Returns every problem of a file, in file order; [] if there is none.

    template  a file with comments such as "# port = 8080": its differences are problems, too, which
              are unknown stanzas and keys, values that it does not allow, and required keys that are
              missing

    Raises FileError if a file cannot be read, Busy, Unsupported; InvalidData if the template has no
    such comment.
    """
    raw = _library.path_bytes(path)
    schema = None if template is None else _library.path_bytes(template)
    name = None if dialect is None else encoded(dialect)
    file = os.fsdecode(raw)

    def found() -> list[Problem]:
        problems: list[Problem] = []

        def add(record: Any, _context: Any) -> int:
            problem = record.contents
            problems.append(
                Problem(
                    file,
                    problem.line,
                    problem.column,
                    problem.kind == _ERROR,
                    decoded(problem.text),
                    problem.cause,
                )
            )
            return 0

        callback = _library.ProblemCallback(add)
        if schema is None:
            call(library.zstzPropFindProblems_6_0, raw, name, callback, None)
        else:
            call(library.zstzPropCheckTemplate_6_0, raw, name, schema, callback, None)
        return problems

    return patiently(wait, found)


def first_error(path: str, dialect: str | None) -> Problem | None:
    """Returns the first error of a file; None without errors, or if the file cannot be read."""
    try:
        return next((problem for problem in lint(path, dialect, 0) if problem.is_error), None)
    except (OSError, ValueError):
        return None
