// heads: the names in headers.
#pragma once

#include <string>
#include <string_view>

#include "logical_line.h"

namespace zdialects {

// A header in the characters of a line. Indexes.
struct Head {
    enum Kind { valid, notAHead, isPassedOver, isUnclosed, isInvalid };
    Kind kind;
    size_t nameBegin = 0;
    size_t nameEnd = 0;
    size_t end = 0;  // after the last bracket
};

/// Returns the header that starts with the bracket at `at`. With the switch `subsection`, another
/// header or a key can follow at its end.
/// range   `heads` is not none.
Head findHead(Switches const& switches, Characters const& characters, std::string_view chars,
              size_t at);

/// Returns the name that the header spells. It is a view of `spelled` if it reads so, else of
/// `space`.
std::string_view decodeHead(Switches const& switches, std::string_view spelled, std::string& space);

/// Returns the identity of a name, in `space` if it differs. The name may be in `space`.
std::string_view foldStanza(Switches const& switches, std::string_view name, std::string& space);

}  // namespace zdialects
