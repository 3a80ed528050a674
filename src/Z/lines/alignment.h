// alignment: the longest common subsequence of two lists of strings.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>
#include <utility>
#include <vector>

namespace zlines {

/// Returns pairs of indexes of equal strings, ascending in both lists. They are a longest common
/// subsequence, unless a string is repeated so often that finding one takes too long.
/// cost    O((n + r) log n) for r pairs of equal strings.
std::vector<std::pair<uint32_t, uint32_t>> align(std::vector<std::string_view> const& before,
                                                 std::vector<std::string_view> const& after);

}  // namespace zlines
