// spelled_value: the line that has a value, and the replacement of its spelling.
#pragma once

#include <stdint.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "outline.h"

namespace zlines {

// The contents of a file with its lines, in which the lines of keys are found.
class SpelledText {
public:
    /// cost    O(text).
    SpelledText(std::string text, SharedDialect dialect);

    std::string const& text() const { return text_; }
    Outline const& outline() const { return outline_; }

    /// Returns the line that has the value at `index` of a key, by its index in the outline; kNone
    /// if no line has it. A key without values has its line at `index` 0.
    /// range   `values` are all values of the key, in order.
    /// cost    O(lines and values of the key).
    uint32_t lineOf(std::string_view stanza, std::string_view key,
                    std::span<std::string_view const> values, size_t index);

    /// Returns the number of a line, counted from 1 by newlines.
    unsigned long numberOf(uint32_t line) const { return numbers_[line]; }

private:
    // A key line.
    struct KeyLine {
        uint32_t hash;  // of its key and its stanza
        uint32_t stanza;
        uint32_t line;
    };

    std::vector<uint32_t> linesOf(std::string_view stanza, std::string_view key);

    std::string const text_;
    SharedDialect const dialect_;
    Outline outline_;
    std::vector<KeyLine> keyLines_;  // sorted by their hashes; the lines of a key are in order
    std::vector<uint32_t> numbers_;  // of the lines
};

/// Stores the text with another spelling of the value of a valueLine in `out`, and the value in
/// `value`. Returns false if the spelling does not read back as one value in that line, or if
/// another line would read differently.
/// cost    O(text).
bool respell(Outline const& outline, uint32_t line, std::string_view spelling, std::string& out,
             std::string& value);

/// Returns `text` with the spellings of values that `spelled` has and `before` has not, where a
/// line of the same key in `text` has the same value in another spelling. A spelling that would
/// change how a line reads is left out.
/// cost    O(n log n) in the lines; for each spelling that is left out, O(n log n) more.
std::string withSpellings(std::string const& text, std::string_view before,
                          std::string_view spelled, Dialect const& dialect);

}  // namespace zlines
