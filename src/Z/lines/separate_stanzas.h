// separate_stanzas: stanzas of one name that are not joined. A removed stanza changes the numbers
// in the names of the others, so that one name can be two stanzas before and after.
#pragma once

#include <vector>

#include "document.h"
#include "outline.h"

namespace zlines {

/// Returns for each wanted stanza its stanza in the text, in ascending order, or kNone. Stanzas
/// with the same header and contents match; between two matches, stanzas with the same header do.
/// cost    as align() for the stanzas, and O(n log n) for the lines of each.
std::vector<uint32_t> matchSeparateStanzas(Outline& outline, Document const& document);

}  // namespace zlines
