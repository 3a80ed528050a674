// template_check: the differences of a file and its template.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "../lines/dialect.h"
#include "../problems/complaint.h"
#include "template.h"

namespace ztemplates {

// An unknown stanza or key, an invalid value, or a missing key that is required.
struct Difference {
    zproblems::Place place;  // of a missing key: the header of its stanza, or the first line
    zproblems::Cause cause;
    std::string stanza;  // empty: the part above the first header
    std::string key;
    std::string text;  // "WHAT; HELP"
};

/// Returns whether a key has values that are not in the text of the file.
using HasHiddenValue = std::function<bool(std::string const& stanza, std::string const& key)>;

/// Returns the differences in file order. Lines that the dialect refuses are skipped.
/// range   `hasHiddenValue` may be empty.
std::vector<Difference> checkTemplate(std::string_view text, zlines::Dialect const& dialect,
                                      Template const& schema, HasHiddenValue const& hasHiddenValue);

}  // namespace ztemplates
