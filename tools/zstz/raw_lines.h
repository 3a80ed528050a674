// raw_lines: what the bytes of a stanza file show and the library, which reads it line by line,
// does not say: where a line is torn because it is too long, where a zero byte cuts it.
#pragma once

#include <stddef.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// The bytes of a line that is read back whole, without its line feed.
constexpr size_t kMaxLineLength = 8190;

constexpr char kSplitLine[] =
    "the line is longer than 8190 bytes and is read as several; shorten it, or spread the values "
    "over several lines of the key";
constexpr char kZeroByte[] = "the line has a zero byte, behind which nothing is read; take it out";

/// Returns what is to be said about a file that begins with these bytes when a byte order mark is
/// among them, which is no mark to those who read the file; else null.
char const* describeByteOrderMark(std::string_view bytes);

// A part of a line that the library reads as a line of its own.
struct RawLine {
    size_t libraryNumber;  // as the library counts lines, from 1
    size_t number;         // as an editor counts them, from 1
    bool isSplit;          // the rest of the line, or its beginning, is another piece
    bool hasZero;          // what follows the zero byte is not read
    std::string_view bytes;
};

// A line of a key without a value that is not written when the file is stored: it is read as
// nothing next to other lines of its key, or to obfuscated values.
struct DroppedLine {
    size_t number;  // as an editor counts them, from 1
    std::string stanza;
    std::string key;
};

/// Returns what is to be said about such a line.
std::string describeDroppedLine(DroppedLine const& dropped);

/// Returns the bytes of a file; none when it is no regular file or cannot be read.
std::string readFile(std::string const& path);

/// Calls `visit` for the pieces of a file, in order, until it returns false.
/// range   a file that is no regular one, or cannot be read, has none.
void forEachRawLine(std::string const& path, std::function<bool(RawLine const&)> const& visit);

/// Returns the lines without a value that storing drops from a stanza file, in file order.
/// range   `isObfuscated(stanza, key)` says whether a key has obfuscated values.
std::vector<DroppedLine> findDroppedLines(
    std::string const& path,
    std::function<bool(std::string const&, std::string const&)> const& isObfuscated);
