// style: how new lines look, by the lines around them.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "outline.h"

namespace zlines {

// The appearance of a line that is inserted after another.
struct Style {
    std::string_view indent;
    std::string_view separator;  // between key and value, as the model has it
    std::string_view lineEnding;
    size_t column = 0;  // of the separator's first byte that is not blank; 0: not aligned
};

/// Returns the style of a new line for `key` in a section, inserted after the line `after`, a line
/// or the header of the section; kNone: at the start of the text. Without a key, a comment above is
/// none of the key.
Style styleAfter(Outline const& outline, Section const& section, uint32_t after,
                 std::string_view key);

/// Returns whether a line is a comment such as "# key = default" for the key.
bool isTemplateOf(Outline const& outline, uint32_t line, std::string_view key);

/// Returns the style of the line `model`, a key line.
Style styleOf(Outline const& outline, uint32_t model);

/// Returns the style of a further line of the key of the line `model`. Without the markers of that
/// line, its separator can be in the column of its neighbours, too.
Style styleOfValue(Outline const& outline, uint32_t model, std::string_view key);

/// Returns the separator of a new key, as its name is spelled.
std::string separatorFor(Style const& style, std::string_view key);

constexpr int kMaxNeighbours = 16;  // keys above and below a line that show a column

/// Returns whether a second new line after the line `after` has the style of the first. The keys
/// around it may also show a column then.
bool isRepeated(Outline const& outline, Section const& section, uint32_t after, Style const& style);

// The keys around a new line that follows other new lines: they show its style as if they had been
// in the file.
class Neighbours {
public:
    /// range   `newLines` are inserted after the line `after` of the section; if it is empty, there
    ///         are no neighbours.
    Neighbours(Outline const& outline, Section const& section, uint32_t after,
               std::span<std::string const> newLines);

    /// Returns the style of a line after the new lines. It is valid as long as the object.
    Style style(std::string_view key) const;

private:
    std::string text_;
    std::optional<Outline> outline_;
    uint32_t last_ = kNone;  // of the new lines
    std::string_view lineEnding_;
};

/// Returns the spaces of a comment between its mark and its text. Empty: it has none, or no mark.
std::string_view spacesOf(Dialect const& dialect, std::string_view comment);

// A comment that was inserted above a line of the text.
struct InsertedComment {
    uint32_t line;
    LineKind below;  // kind of that line
    bool hasBlankAbove;
};

/// Returns whether the nearest comment above a line of the kind `below`, a key or header, has a
/// blank line above it. `after` is the line above the new comment. `inserted` has comments above
/// it that the text does not have yet.
bool haveBlankAbove(Outline const& outline, uint32_t after, LineKind below,
                    std::span<InsertedComment const> inserted);

/// Appends a wanted comment, with its line ending, with the indentation and mark of the comments
/// around the position after the line `after`. If it has no spaces after its mark, or no mark, it
/// gets the spaces, or the mark, of the nearest of these comments.
void appendComment(Outline const& outline, uint32_t after, std::string_view comment,
                   std::string& out);

}  // namespace zlines
