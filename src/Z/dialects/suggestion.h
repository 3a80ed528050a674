// suggestion: a dialect for contents whose name decides nothing.
#pragma once

#include <string_view>

#include "table.h"

namespace zdialects {

/// Returns the first row, strict formats before others, that reads the contents with a key, without
/// an error and without a line that is passed over; else null. The stanza format is not tried.
/// cost    O(size) for each dialect; most refuse foreign contents early.
Row const* suggest(std::string_view text);

}  // namespace zdialects
