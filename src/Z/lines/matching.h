// matching: the lines of a stanza that hold the wanted entries.
//
// Keys are found by their names. The longest list of keys that are in one order in the text and in
// the wanted contents divides both into ranges. In each range, comments are aligned by their text
// and the lines next to them, and the remaining keys by their values: such a key was renamed.
//
// The lines of a key may have comments and other keys between them, and the wanted contents do not
// contain the places of its values among them. Then a comment may be anywhere in its stanza.
#pragma once

#include <span>
#include <vector>

#include "document.h"
#include "outline.h"

namespace zlines {

using Entries = std::span<Entry const>;

// A key of the text.
struct ReadKey {
    std::vector<uint32_t> lines;  // in order
    uint32_t entry = kNone;       // that has its values; kNone: it is removed
    bool isRenamed = false;
};

struct Matching {
    std::vector<ReadKey> keys;        // in the order of their first lines
    std::vector<uint32_t> lineOf;     // of each entry: its comment or first key line, or kNone
    std::vector<uint32_t> movedFrom;  // of each entry: the removed comment with its text, or kNone
    std::vector<uint32_t> removedComments;  // lines, in order
    bool isScattered = false;               // other keys are between lines of a key
};

/// Returns the lines of the entries of a stanza.
/// range   `isNextParted` is true if the next wanted header is not right below the entries.
///         `isScattered` is true if other keys are between lines of keys in the text.
///         `hasOldNames` is true if the text has the old names of entries.
/// cost    linear in lines and entries, and as align() for keys and comments in another order.
Matching matchLines(Outline& outline, ReadStanza const& stanza, Document const& document,
                    Entries entries, bool isNextParted, bool isScattered, bool hasOldNames);

/// Returns whether a stanza of the text has at least half of its keys and values in common with
/// the entries of another name.
bool isSameStanza(Outline& outline, ReadStanza const& stanza, Document const& document,
                  Entries entries);

}  // namespace zlines
