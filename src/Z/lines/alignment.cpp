#include "alignment.h"

#include <algorithm>

namespace zlines {

namespace {

using Numbers = std::vector<uint32_t>;

constexpr size_t kMaxMatches = 1000000;
constexpr uint32_t kNone = UINT32_MAX;

// A common subsequence that ends with the pair (before, after).
struct Chain {
    uint32_t before;
    uint32_t after;
    uint32_t previous;  // the chain without that pair; kNone: empty
};

// The positions of each number in the range [first, end) of a list, descending.
class Positions {
public:
    Positions(Numbers const& list, uint32_t first, uint32_t end, uint32_t count)
        : starts_(size_t{count} + 1), positions_(end - first)
    {
        for (uint32_t i = first; i < end; ++i)
            ++starts_[list[i] + size_t{1}];
        for (size_t number = 1; number < starts_.size(); ++number)
            starts_[number] += starts_[number - 1];
        Numbers next(starts_.begin(), starts_.end() - 1);
        for (uint32_t i = end; i-- > first;)
            positions_[next[list[i]]++] = i;
    }

    uint32_t const* begin(uint32_t number) const { return positions_.data() + starts_[number]; }
    uint32_t const* end(uint32_t number) const
    {
        return positions_.data() + starts_[number + size_t{1}];
    }

private:
    Numbers starts_;  // of each number, in positions_
    Numbers positions_;
};

// The algorithm of Hunt and Szymanski for the ranges [first, endBefore) and [first, endAfter).
void alignMiddle(Numbers const& before, Numbers const& after, uint32_t count, uint32_t first,
                 uint32_t endBefore, uint32_t endAfter, Pairs& pairs)
{
    Positions const positions(after, first, endAfter, count);
    std::vector<Chain> chains;
    Numbers shortest;  // by length: the chain with the smallest end in `after`
    for (uint32_t i = first; i < endBefore && chains.size() < kMaxMatches; ++i) {
        for (uint32_t const* j = positions.begin(before[i]); j != positions.end(before[i]); ++j) {
            auto const at = std::lower_bound(
                shortest.begin(), shortest.end(), *j,
                [&](uint32_t chain, uint32_t end) { return chains[chain].after < end; });
            uint32_t const previous = at == shortest.begin() ? kNone : at[-1];
            auto const chain = static_cast<uint32_t>(chains.size());
            chains.push_back({i, *j, previous});
            if (at == shortest.end())
                shortest.push_back(chain);
            else
                *at = chain;
        }
    }
    auto const start = static_cast<ptrdiff_t>(pairs.size());
    for (uint32_t chain = shortest.empty() ? kNone : shortest.back(); chain != kNone;
         chain = chains[chain].previous)
        pairs.push_back({chains[chain].before, chains[chain].after});
    std::reverse(pairs.begin() + start, pairs.end());
}

}  // namespace

Pairs align(Numbers const& before, Numbers const& after, uint32_t count)
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
        alignMiddle(before, after, count, first, endBefore, endAfter, pairs);
    for (; endBefore < before.size(); ++endBefore, ++endAfter)
        pairs.push_back({endBefore, endAfter});
    return pairs;
}

Pairs align(std::vector<std::string_view> const& before, std::vector<std::string_view> const& after)
{
    Tokens tokens;
    Numbers lists[2];
    for (std::string_view const text : before)
        lists[0].push_back(tokens.of(text));
    for (std::string_view const text : after)
        lists[1].push_back(tokens.of(text));
    return align(lists[0], lists[1], tokens.count());
}

}  // namespace zlines
