// raw_lines: reads the bytes of a stanza file to find faults that the library's line reader cannot
// report: lines that are split because they are too long, and lines that are cut at a zero byte.
#pragma once

#include <stddef.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "failures.h"

/// Returns the problem of a file that starts with a byte order mark; empty if `bytes` do not.
/// The library reads the mark as part of the first line.
std::optional<Problem> describeByteOrderMark(std::string_view bytes);

// A line of the file or, if it is too long, a part that the library reads as a line.
struct RawLine {
    size_t libraryNumber;    // as the library counts lines, from 1
    size_t number;           // as an editor counts them, from 1
    bool isSplit;            // only a part of a line of the file
    bool hasZero;            // the library ignores the bytes after the zero byte
    std::string_view bytes;  // up to the first zero byte
};

/// Returns the problem of a line that is split or has a zero byte; empty for any other line.
std::optional<Problem> describeRawLine(RawLine const& line);

// A line `key =` that storing would drop: the library ignores it if the key has a value in another
// line or obfuscated values.
struct DroppedLine {
    size_t number;  // as an editor counts them, from 1
    std::string stanza;
    std::string key;
};

/// Returns the problem of a dropped line.
Problem describeDroppedLine(DroppedLine const& dropped);

/// Returns the contents of a file; empty if it is not a regular file or cannot be read.
std::string readFile(std::string const& path);

/// Calls `visit` for each raw line of a file, in order, until it returns false.
/// range   no call if the file is not a regular file or cannot be read.
void forEachRawLine(std::string const& path, std::function<bool(RawLine const&)> const& visit);

/// Returns the lines without a value that storing would drop from a stanza file, in file order.
/// range   `isObfuscated(stanza, key)` returns whether a key has obfuscated values.
std::vector<DroppedLine> findDroppedLines(
    std::string const& path,
    std::function<bool(std::string const&, std::string const&)> const& isObfuscated);
