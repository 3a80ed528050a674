// alignment: the longest common subsequence of two lists.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "name_hash.h"

namespace zlines {

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;

// Numbers strings from 0: equal strings have one number.
class Tokens {
public:
    /// range   `text` outlives the object.
    uint32_t of(std::string_view text)
    {
        return index_.emplace(text, static_cast<uint32_t>(index_.size())).first->second;
    }
    uint32_t count() const { return static_cast<uint32_t>(index_.size()); }
    void clear() { index_.clear(); }

private:
    std::unordered_map<std::string_view, uint32_t, NameHash> index_;
};

/// Returns pairs of indexes of equal numbers, ascending in both lists. They are a longest common
/// subsequence, unless a number is repeated so often that finding one takes too long.
/// range   each number is less than `count`.
/// cost    O((n + r) log n + count) for r pairs of equal numbers.
Pairs align(std::vector<uint32_t> const& before, std::vector<uint32_t> const& after,
            uint32_t count);

/// As above, for strings.
Pairs align(std::vector<std::string_view> const& before,
            std::vector<std::string_view> const& after);

}  // namespace zlines
