// merge: the changes since a file was read, as steps in its present text.
//
// Changes of different values do not conflict. Both sides may make the same change.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dialect.h"
#include "document.h"

namespace zlines {

// A step that makes one of the changes. Its names are spelled as in the wanted contents; a removed
// name is spelled as in the text.
struct MergeStep {
    enum Kind {
        removeStanza,
        addStanza,
        removeKey,
        setKey,
        commentFile,
        commentStanza,
        commentKey
    };

    Kind kind;
    std::string stanza;
    std::string key;
    std::vector<std::string> texts;  // the values of a key, or a comment; none removes it
};

/// Appends the steps from the text `base` to `document` to `steps`, in the order in which they are
/// possible. Returns false if `other` differs from `base` in a value or stanza that a step changes.
bool planMerge(std::string_view base, Document const& document, std::string_view other,
               Dialect const& dialect, std::vector<MergeStep>& steps);

/// Returns whether a key has the same values in both.
bool hasSameValues(std::string_view stanza, std::string_view key, std::string_view base,
                   std::string_view other, Dialect const& dialect);

}  // namespace zlines
