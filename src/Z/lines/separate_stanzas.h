// separate_stanzas: stanzas of one name that are not joined. A removed stanza changes the numbers
// in the names of the others, so that one name can be two stanzas before and after.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "document.h"
#include "outline.h"

namespace zlines {

/// Returns for each wanted stanza its stanza in the text, in ascending order, or kNone. Stanzas
/// with the same header, contents and comments match; between two matches, stanzas with the same
/// header and the most common lines do.
/// cost    as align() for the stanzas, and O(n log n) for the lines of each.
std::vector<uint32_t> matchSeparateStanzas(Outline const& outline, Document const& document);

/// Returns the name in a header: NAME for NAME]2.
std::string_view withoutNumber(std::string_view name);

struct MatchedStanza {
    uint32_t before;       // the same stanza of the other text, or kNone
    std::string contents;  // the header, and the keys with their values
};

/// As above, for the stanzas of another text.
std::vector<MatchedStanza> matchSeparateStanzas(Outline const& before, Outline const& after);

}  // namespace zlines
