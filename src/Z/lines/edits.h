// edits: changes of ranges of bytes, and the text after them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dialect.h"

namespace zlines {

class Edits {
public:
    // The order at one position: a value that is added to the last line precedes the lines that are
    // inserted after it. A header above the first keys, which had none, is above the lines that are
    // inserted for these keys. Insertions of one kind keep their order. Comments that move above a
    // line, and a name at its start, follow the insertions above the line.
    enum Order {
        changes,
        valuesOfLineAbove,
        newLines,
        topHeader,
        newLinesBelowHeader,
        valuesOfLineBelow,
        newStanzas,
        commentMoves,
        names
    };

    explicit Edits(std::string_view text) : text_(text) {}

    void replace(Replacement change) { add({std::move(change), changes, "\n", 0}); }
    void replaceName(Replacement change) { add({std::move(change), names, "\n", 0}); }
    void moveComments(Replacement change) { add({std::move(change), commentMoves, "\n", 0}); }

    /// Removes a stanza. If it was the last, and the last line has no line ending, the blank lines
    /// above it are removed, too.
    void removeStanza(uint32_t begin, uint32_t end)
    {
        replace({begin, end, {}});
        removesLast_ = removesLast_ || end == text_.size();
    }

    /// Inserts lines, each with its line ending, at the start of a line.
    /// range   `lineEnding` ends the line before, if it is the last line and has none.
    void insertLines(uint32_t position, std::string lines, std::string_view lineEnding, Order order)
    {
        add({{position, position, std::move(lines)}, order, lineEnding, 0});
    }

    size_t count() const { return edits_.size(); }

    /// Returns whether bytes other than names and moved comments are written at a position up to
    /// `position`.
    bool writesUpTo(uint32_t position) const;

    /// Drops the edits after the first `count`.
    void truncate(size_t count)
    {
        edits_.erase(edits_.begin() + static_cast<ptrdiff_t>(count), edits_.end());
    }

    /// Returns the text after all edits. It ends with a line ending if the old text does, or if the
    /// old text is empty. `history` has positions of the old text, ascending; after the call,
    /// positions of the new text, with the comments that an edit has moved.
    std::string compose(TextHistory& history);

private:
    struct Edit {
        Replacement change;
        Order order;
        std::string_view lineEnding;
        size_t number;  // the order of arrival
    };

    void add(Edit edit)
    {
        edit.number = edits_.size();
        edits_.push_back(std::move(edit));
    }

    std::string_view text_;
    std::vector<Edit> edits_;
    bool removesLast_ = false;  // stanza
};

}  // namespace zlines
