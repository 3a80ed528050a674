"""A stanza of a store: a mapping of its keys to values."""

from __future__ import annotations

import re
from collections.abc import Iterable, Iterator, Mapping, MutableMapping, Sequence
from typing import TypeVar, Union, overload

from . import errors
from ._library import CHANGE_FAILED, INVALID_VALUE, MISSING, require_type
from ._store import Store

__all__ = ["Stanza", "Values"]

Values = Union[str, Iterable[str]]
Default = TypeVar("Default")

# The methods int() and bool() hide the types of these names in the class.
_Int = int
_Bool = bool


class Missing:
    """The type of an argument that was not passed."""


MISSING_ARGUMENT = Missing()

_TOP = "."  # the part above the first header, in dialects that have it

_NUMBER = re.compile(r"[+-]?(?:0[xX](?P<hexadecimal>[0-9a-fA-F]+)|(?P<octal>0[0-7]*)|[1-9][0-9]*)")
_SPACES = " \t\n\v\f\r"


def parsed_number(text: str) -> int | None:
    """Returns a decimal, hexadecimal (0x) or octal (0) number; None if the text is not a number."""
    text = text.strip(_SPACES)
    found = _NUMBER.fullmatch(text)
    if found is None:
        return None
    base = 16 if found["hexadecimal"] else 8 if found["octal"] else 10
    digits = found["hexadecimal"] or found["octal"] or text.lstrip("+-")
    number = int(digits, base)
    return -number if text.startswith("-") else number


def without_marks(comment: str | None) -> str | None:
    """Returns the text of comment lines: without the mark of each line and the space after it."""
    if comment is None:
        return None
    return "\n".join(re.sub(r"^\s*[#;] ?", "", line) for line in comment.split("\n"))


def with_marks(comment: str) -> str:
    """Returns lines before which the library puts the mark of the dialect."""
    lines = comment.rstrip("\n").split("\n")
    return "\n".join(line and f" {line}" for line in lines)


def value_list(values: Values) -> list[str]:
    result = [values] if isinstance(values, str) else list(values)
    for value in result:
        require_type(value, str, "value")
    return result


class Stanza(MutableMapping[str, str]):
    """The keys of a stanza in file order, each with the value that counts: in most formats its last.

    A key without values has the empty value. The object refers to its stanza by name: if the stanza
    is removed or renamed, every operation raises NotFound until there is a stanza of that name again.

    Threads: any. An iterator goes over the keys that existed when it was created, and locks nothing.
    """

    __slots__ = ("_name", "_store")

    def __init__(self, store: Store, name: str) -> None:
        """For Conf; use conf[name]."""
        self._store = store
        self._name = name

    @property
    def name(self) -> str:
        """The name, without its brackets."""
        return self._name

    # ---- As a mapping

    def __getitem__(self, key: str) -> str:
        """Returns the value that counts, and "" for a key without values. Raises NotFound."""
        return self._store.value(self._name, _checked(key))

    def __setitem__(self, key: str, value: str) -> None:
        """Sets the one value of a key that counts, or adds the key. Ignored lines stay.

        Raises Refused if several values count, or an obfuscated one: use set() or obfuscate();
        InvalidValue if the line of the value would not be read back. Nothing is changed then.
        """
        require_type(value, str, "value")
        with self._store.lock:
            self._require_stanza()
            self._require_plain(key)
            self._require_storable(key, [value])
            values = self.all(key) if key in self else None
            if values is not None and len(values) > 1:
                raise self._refused(
                    key,
                    f"has {len(values)} values; use set() to replace all of them, or remove() and "
                    "add() to replace one",
                )
            # A key without values has the empty value in a stanza file.
            if values != [value] and (values or value or values is None or not self._is_plain()):
                self._store.set_value(self._name, key, value)

    def __delitem__(self, key: str) -> None:
        """Removes a key with all its values. Raises NotFound."""
        with self._store.lock:
            self._require_key(key)
            self._store.remove_key(self._name, key)

    def __iter__(self) -> Iterator[str]:
        with self._store.lock:
            self._require_stanza()
            return iter(list(self._store.contents(self._name)) if self._is_present() else [])

    def __len__(self) -> _Int:
        with self._store.lock:
            self._require_stanza()
            return self._store.key_count(self._name) if self._is_present() else 0

    def __contains__(self, key: object) -> _Bool:
        if not isinstance(key, str):
            return False
        try:
            return self._store.has_key(self._name, key)
        except errors.InvalidValue:
            return False

    def __repr__(self) -> str:
        return f"<zfoundation.Stanza {self._name!r}>"

    # ---- Several values

    def all(self, key: str) -> list[str]:
        """Returns all values of a key that count; [] for a key without values. Raises NotFound."""
        values: list[str] = self._store.contents(self._name, _checked(key))
        return values

    def set(self, key: str, values: Values) -> None:
        """Replaces all values of a key, or adds the key. No values leave a key without values.

        If these are the values that count already, nothing is changed, and the others stay.

        Raises Refused if the key is obfuscated, InvalidValue if a line would not be read back.
        Nothing is changed then.
        """
        wanted = value_list(values)
        with self._store.lock:
            self._require_stanza()
            self._require_plain(key)
            self._require_storable(key, wanted)
            if key not in self or self.all(key) != wanted:
                self._store.set_values(self._name, key, wanted)

    def add(self, key: str, value: str) -> None:
        """Adds a value after the values of a key; adds a missing key.

        In stanza files nothing is changed if the key has the value. Raises as set(), and Refused if
        only one line of the key would count: assign the value.
        """
        require_type(value, str, "value")
        with self._store.lock:
            self._require_stanza()
            self._require_plain(key)
            self._require_storable(key, [value])
            self._store.add_value(self._name, key, value)

    def remove(self, key: str, value: str) -> None:
        """Removes the first value of all() that equals `value`. The key is removed with its only value,
        unless the file has a line of the key without a value, too: that line stays.

        Raises NotFound.
        """
        require_type(value, str, "value")
        with self._store.lock:
            self._require_key(key)
            try:
                self._store.remove_value(self._name, key, value)
            except errors.NotFound:
                raise self._not_found(key, f"does not have the value {value!r}") from None

    # ---- Types

    @overload
    def int(self, key: str) -> _Int: ...

    @overload
    def int(self, key: str, default: Default) -> _Int | Default: ...

    def int(self, key: str, default: Default | Missing = MISSING_ARGUMENT) -> _Int | Default:
        """Returns the value that counts as a number: decimal, hexadecimal (0x) or octal (0).

        A key that is missing or has no value gives `default`, if it is passed. Raises NotFound, and
        InvalidValue with file, line and text.
        """
        with self._store.lock:
            text = self._text_of_type(key, default)
            if isinstance(text, Missing):
                assert not isinstance(default, Missing)
                return default
            number = parsed_number(text)
            if number is None:
                raise self._invalid(key, text, "a number")
            return number

    @overload
    def bool(self, key: str) -> _Bool: ...

    @overload
    def bool(self, key: str, default: Default) -> _Bool | Default: ...

    def bool(self, key: str, default: Default | Missing = MISSING_ARGUMENT) -> _Bool | Default:
        """Returns the value that counts as a boolean, such as yes and no. As int() in all else.

        A key without "=" is true in formats in which it is an option, such as git and mysql.
        """
        with self._store.lock:
            if self._is_option(key):
                return True
            text = self._text_of_type(key, default)
            if isinstance(text, Missing):
                assert not isinstance(default, Missing)
                return default
            try:
                return self._store.boolean(self._name, key)
            except errors.InvalidValue:
                raise self._invalid(key, text, "a boolean") from None

    # ---- Lines

    def indexes(self, key: str) -> range:
        """Returns the indexes that the values of all() have in raw(), set_raw() and line().

        These count every line of the key, also lines that the format ignores. Raises NotFound.
        """
        with self._store.lock:
            self._require_key(key)
            return self._store.counting(self._name, key)

    def raw(self, key: str, index: _Int | None = None) -> str:
        """Returns a value as it is spelled in its line: with quotes and escapes.

        index     of the line among all lines of the key; None: of the value that counts

        Raises NotFound, also if no line has the value because it is obfuscated.
        """
        with self._store.lock:
            return self._store.raw(self._name, key, self._index(key, index))

    def all_raw(self, key: str) -> list[str]:
        """Returns the spellings of all lines of a key, also of ignored ones.

        [] for a key without values. Raises NotFound, also if the key is obfuscated.
        """
        with self._store.lock:
            self._require_key(key)
            count = self._store.value_count(self._name, key)
            return [self._store.raw(self._name, key, index) for index in range(count)]

    def set_raw(self, key: str, index: _Int | None, spelling: str) -> None:
        """Replaces the spelling of a value, and so the value. `index` is as in raw().

        Raises NotFound, and Refused or InvalidValue if the spelling does not read back as one value
        of that line. Nothing is changed then.
        """
        require_type(spelling, str, "spelling")
        with self._store.lock:
            self._store.set_raw(self._name, key, self._index(key, index), spelling)

    def line(self, key: str, index: _Int | None = None) -> _Int:
        """Returns the number of the line that has a value, in the text of the store.

        It is counted from 1; 0 for an obfuscated value. `index` is as in raw(); a key without values
        has its line at index 0. Raises NotFound.
        """
        with self._store.lock:
            return self._store.line(self._name, key, self._index(key, index))

    @overload
    def comment(self, key: str) -> str | None: ...

    @overload
    def comment(self, key: str, text: str | None) -> None: ...

    def comment(self, key: str, text: str | None | Missing = MISSING_ARGUMENT) -> str | None:
        """Returns the comment above a key, without its marks; None if there is none.

        With `text`, which has no marks either: replaces it; None removes it. Raises NotFound.
        """
        with self._store.lock:
            self._require_key(key)
            return exchanged_comment(self._store, self._name, key, text)

    # ---- Names and secrets

    def rename(self, key: str, name: str) -> None:
        """Renames a key in its place.

        Raises NotFound; Refused if there is a key of the new name; InvalidValue.
        """
        with self._store.lock:
            self._require_key(key)
            if name == key:
                return
            if name in self and not self._is_same(key, name):
                raise self._refused(name, "exists")
            self._store.rename_key(self._name, key, name)

    def obfuscate(self, key: str, value: str) -> None:
        """Sets an obfuscated value, which save() writes to the companion file.

        Raises Refused if the key has plain values: remove it first; InvalidValue for an empty value.
        """
        require_type(value, str, "value")
        with self._store.lock:
            self._require_stanza()
            if not value:
                raise errors.InvalidValue(
                    self._message(key, ": an obfuscated value cannot be empty; remove the key"),
                    code=CHANGE_FAILED,
                    file=self._store.path,
                    stanza=self._name,
                    key=key,
                )
            if key in self and not self.is_obfuscated(key) and self.all(key):
                raise self._refused(key, "has a plain value; remove it first")
            self._store.obfuscate(self._name, key, value)

    def is_obfuscated(self, key: str) -> _Bool:
        """Returns whether a key has obfuscated values. Raises NotFound."""
        with self._store.lock:
            self._require_key(key)
            return bool(self._name and key) and self._store.is_obfuscated(self._name, key)

    # ---- Checks

    def _message(self, key: str, problem: str) -> str:
        return in_file(self._store, f"key {key!r} in [{self._name}]{problem}")

    def _refused(self, key: str, problem: str) -> errors.Refused:
        return errors.Refused(
            self._message(key, f" {problem}"),
            code=CHANGE_FAILED,
            file=self._store.path,
            stanza=self._name,
            key=key,
        )

    def _not_found(self, key: str, problem: str) -> errors.NotFound:
        return errors.NotFound(
            self._message(key, f" {problem}"),
            code=MISSING,
            file=self._store.path,
            stanza=self._name,
            key=key,
        )

    def _is_present(self) -> _Bool:
        return self._store.has_stanza(self._name)

    def _require_stanza(self) -> None:
        if not self._is_present() and not is_empty_top(self._store, self._name):
            raise missing_stanza(self._store, self._name)

    def _require_key(self, key: str) -> None:
        if _checked(key) not in self:
            self._require_stanza()
            raise errors.NotFound(
                in_file(self._store, f"no key {key!r} in [{self._name}]"),
                code=MISSING,
                file=self._store.path,
                stanza=self._name,
                key=key,
            )

    def _index(self, key: str, index: _Int | None) -> _Int:
        """Returns the index of a value that the key has; None stands for the valid one."""
        self._require_key(key)
        if index is None:
            counting = self._store.counting(self._name, key) if self._name and key else range(1)
            return max(0, counting.stop - 1)
        require_type(index, _Int, "index")
        # The library takes an empty name only where all values are read.
        count = self._store.value_count(self._name, key) if self._name and key else len(self.all(key))
        if index < 0 or index >= max(1, count):
            raise self._not_found(key, f"has {count} values")
        return index

    def _is_same(self, key: str, name: str) -> _Bool:
        """Returns whether two names are one in a format that ignores their case."""
        return self._store.line(self._name, key, 0) == self._store.line(self._name, name, 0) != 0

    def _is_option(self, key: str) -> _Bool:
        if self._is_plain() or not (self._name and _checked(key)) or key not in self:
            return False
        if self._store.value_count(self._name, key):
            return False
        try:
            return self._store.boolean(self._name, key)
        except errors.NotFound:
            return False

    def _require_plain(self, key: str) -> None:
        require_plain(self._store, self._name, key)

    def _is_plain(self) -> _Bool:
        """Returns whether lines have neither quotes nor escapes, and no empty values."""
        return self._store.dialect() == "stanza"

    def _require_storable(self, key: str, values: Sequence[str]) -> None:
        """The library takes a value with spaces at an end, and refuses it when the file is stored."""
        for value in values:
            if value.strip(_SPACES) != value and self._is_plain():
                raise errors.InvalidValue(
                    self._message(
                        key,
                        f": {value!r} starts or ends with a space, which a line does not keep",
                    ),
                    code=CHANGE_FAILED,
                    file=self._store.path,
                    stanza=self._name,
                    key=key,
                )

    def _text_of_type(self, key: str, default: object) -> str | Missing:
        """Returns the value that counts; MISSING_ARGUMENT if a default takes its place."""
        values = self.all(key) if _checked(key) in self else []
        text = self[key] if values else ""
        if text:
            return text
        if not isinstance(default, Missing):
            return MISSING_ARGUMENT
        self._require_key(key)
        raise self._not_found(key, "has no value")

    def _invalid(self, key: str, text: str, kind: str) -> errors.InvalidValue:
        line = self.line(key) if self._name and key else 0
        return errors.InvalidValue(
            in_file(self._store, f"key {key!r} in [{self._name}]: {text!r} is not {kind}", line),
            code=INVALID_VALUE,
            file=self._store.path,
            line=line,
            stanza=self._name,
            key=key,
        )


def _checked(key: str) -> str:
    require_type(key, str, "key")
    return key


def in_file(store: Store, problem: str, line: int = 0) -> str:
    """Returns a message that starts with the path of the file, if there is one."""
    number = f":{line}" if line else ""
    return f"{store.path}{number}: {problem}" if store.path else problem


def is_empty_top(store: Store, name: str) -> bool:
    """Returns whether a missing stanza is the part above the first header, without keys."""
    if name != _TOP or store.has_stanza(name):
        return False
    trial = store.new_alike()
    try:
        trial.add_stanza(_TOP)
        return trial.text() == b""  # it has no header
    except errors.InvalidValue:
        return False
    finally:
        trial.close()


def missing_stanza(store: Store, name: str) -> errors.NotFound:
    return errors.NotFound(
        in_file(store, f"no stanza [{name}]"), code=MISSING, file=store.path, stanza=name
    )


def require_plain(store: Store, name: str, key: str) -> None:
    """Raises Refused if a key has obfuscated values."""
    stanza = Stanza(store, name)
    if _checked(key) in stanza and stanza.is_obfuscated(key):
        raise errors.Refused(
            in_file(
                store,
                f"key {key!r} in [{name}] is obfuscated; use obfuscate(), or remove it first",
            ),
            code=CHANGE_FAILED,
            file=store.path,
            stanza=name,
            key=key,
        )


def exchanged_comment(
    store: Store, stanza: str | None, key: str | None, text: str | None | Missing
) -> str | None:
    """Returns a comment, or replaces it by `text`, if that is passed."""
    before = without_marks(store.comment(stanza, key))
    if isinstance(text, Missing):
        return before
    if text is not None:
        require_type(text, str, "text")
    if text != before:
        store.set_comment(stanza, key, None if text is None else with_marks(text))
    return None


def listed(contents: Mapping[str, Values]) -> dict[str, list[str]]:
    """Returns the keys of a mapping with all their values."""
    if isinstance(contents, Stanza):
        return {key: contents.all(key) for key in contents}
    require_type(contents, Mapping, "contents")
    return {key: value_list(values) for key, values in contents.items()}


def without_number(name: str) -> str:
    """Returns the name in the header of a stanza that is called NAME]2."""
    return re.sub(r"\](\d+)$", "", name)


def copied_stanza(store: Store, name: str) -> Stanza:
    """Returns a copy of a stanza in a store without a file."""
    stanza = Stanza(store, name)
    copy = store.new_alike()
    header = without_number(name)
    copy.add_stanza(header)
    copied = Stanza(copy, header)
    for key, values in listed(stanza).items():
        if stanza.is_obfuscated(key):
            copied.obfuscate(key, values[-1])
        else:
            copied.set(key, values)
    return copied
