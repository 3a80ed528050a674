// edit_distance: how similar two names are.
#pragma once

#include <stddef.h>

#include <string_view>

namespace ztemplates {

/// Returns the edit distance of two names, in changed, added and removed bytes; the case of ASCII
/// letters is ignored.
/// cost    O(a.size() * b.size())
size_t editDistance(std::string_view a, std::string_view b);

}  // namespace ztemplates
