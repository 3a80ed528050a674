#include "alignment.h"

#include <algorithm>
#include <unordered_map>

namespace zlines {

namespace {

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;
using Strings = std::vector<std::string_view>;

constexpr size_t kMaxMatches = 1000000;

// A common subsequence that ends with the pair (before, after).
struct Chain {
    uint32_t before;
    uint32_t after;
    uint32_t previous;  // the chain without that pair; kNone: empty
};
constexpr uint32_t kNone = UINT32_MAX;

// The algorithm of Hunt and Szymanski for the ranges [first, endBefore) and [first, endAfter).
void alignMiddle(Strings const& before, Strings const& after, uint32_t first, uint32_t endBefore,
                 uint32_t endAfter, Pairs& pairs)
{
    std::unordered_map<std::string_view, std::vector<uint32_t>> positions;
    for (uint32_t j = endAfter; j-- > first;)
        positions[after[j]].push_back(j);  // descending
    std::vector<Chain> chains;
    std::vector<uint32_t> shortest;  // by length: the chain with the smallest end in `after`
    for (uint32_t i = first; i < endBefore && chains.size() < kMaxMatches; ++i) {
        auto const found = positions.find(before[i]);
        if (found == positions.end())
            continue;
        for (uint32_t const j : found->second) {
            auto const at = std::lower_bound(
                shortest.begin(), shortest.end(), j,
                [&](uint32_t chain, uint32_t end) { return chains[chain].after < end; });
            uint32_t const previous = at == shortest.begin() ? kNone : at[-1];
            auto const chain = static_cast<uint32_t>(chains.size());
            chains.push_back({i, j, previous});
            if (at == shortest.end())
                shortest.push_back(chain);
            else
                *at = chain;
        }
    }
    size_t const start = pairs.size();
    for (uint32_t chain = shortest.empty() ? kNone : shortest.back(); chain != kNone;
         chain = chains[chain].previous)
        pairs.push_back({chains[chain].before, chains[chain].after});
    std::reverse(pairs.begin() + static_cast<ptrdiff_t>(start), pairs.end());
}

}  // namespace

Pairs align(Strings const& before, Strings const& after)
{
    auto endBefore = static_cast<uint32_t>(before.size());
    auto endAfter = static_cast<uint32_t>(after.size());
    Pairs pairs;
    uint32_t first = 0;
    for (; first < endBefore && first < endAfter && before[first] == after[first]; ++first)
        pairs.push_back({first, first});
    while (endBefore > first && endAfter > first && before[endBefore - 1] == after[endAfter - 1])
        --endBefore, --endAfter;
    if (first < endBefore && first < endAfter)
        alignMiddle(before, after, first, endBefore, endAfter, pairs);
    for (; endBefore < before.size(); ++endBefore, ++endAfter)
        pairs.push_back({endBefore, endAfter});
    return pairs;
}

}  // namespace zlines
