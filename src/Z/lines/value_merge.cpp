#include "value_merge.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "alignment.h"

namespace zlines {

namespace {

using Strings = std::vector<std::string>;

constexpr uint32_t kAbsent = UINT32_MAX;

std::vector<std::string_view> viewsOf(Strings const& list)
{
    return {list.begin(), list.end()};
}

bool areReordered(Strings const& a, Strings const& b)
{
    return std::multiset<std::string>(a.begin(), a.end()) ==
           std::multiset<std::string>(b.begin(), b.end());
}

bool contains(Strings const& all, Strings const& some)
{
    std::multiset<std::string> const a(all.begin(), all.end());
    std::multiset<std::string> const b(some.begin(), some.end());
    return std::includes(a.begin(), a.end(), b.begin(), b.end());
}

// Returns `list` without the strings of `others`, each as often as it is there.
Strings without(Strings const& list, Strings const& others)
{
    std::multiset<std::string> left(others.begin(), others.end());
    Strings rest;
    for (std::string const& text : list) {
        auto const found = left.find(text);
        if (found == left.end())
            rest.push_back(text);
        else
            left.erase(found);
    }
    return rest;
}

std::vector<MergedValue> plain(Strings const& list)
{
    std::vector<MergedValue> result;
    for (std::string const& text : list)
        result.push_back({{text}, {}, false});
    return result;
}

// An added value. `after` is the index in `base` of the value before it, or kAbsent.
struct Addition {
    uint32_t after;
    uint32_t position;  // in the side
    std::string text;
};

// The changes of a side: of each value of the base, and its additions.
class Changes {
public:
    Changes(Strings const& base, Strings const& side)
        : base_(base),
          side_(side),
          baseOf_(side.size(), kAbsent),
          gapOfBase_(base.size(), 0),
          gapOfSide_(side.size(), 0),
          positionOf(base.size(), kAbsent),
          isReplaced(base.size())
    {
        auto const pairs = align(viewsOf(base), viewsOf(side));
        for (auto const& [before, after] : pairs) {
            positionOf[before] = after;
            baseOf_[after] = before;
            ++gapOfBase_[before];
            ++gapOfSide_[after];
        }
        for (size_t i = 1; i < base.size(); ++i)
            gapOfBase_[i] += gapOfBase_[i - 1];
        for (size_t i = 1; i < side.size(); ++i)
            gapOfSide_[i] += gapOfSide_[i - 1];
        findMoves();
    }

    // Pairs lost and new values of both sides. A new value that both sides have replaces a value
    // only if both sides lost that value: it is an addition otherwise. The order of the sides must
    // not depend on the direction of the merge.
    static void findReplacements(Changes& ours, Changes& theirs)
    {
        std::multimap<std::string_view, uint32_t> known;
        for (uint32_t i = 0; i < theirs.side_.size(); ++i)
            if (theirs.baseOf_[i] == kAbsent)
                known.emplace(theirs.side_[i], i);
        std::vector<bool> isCommon[2] = {std::vector<bool>(ours.side_.size()),
                                         std::vector<bool>(theirs.side_.size())};
        std::vector<uint32_t> lost;  // by both
        for (uint32_t i = 0; i < ours.base_.size(); ++i)
            if (ours.isRemoved(i) && theirs.isRemoved(i))
                lost.push_back(i);
        for (uint32_t i = 0; i < ours.side_.size(); ++i) {
            auto const found = ours.baseOf_[i] == kAbsent ? known.find(ours.side_[i]) : known.end();
            if (found == known.end())
                continue;
            uint32_t const their = found->second;
            known.erase(found);
            isCommon[0][i] = isCommon[1][their] = true;
            auto const replaced = std::find_if(lost.begin(), lost.end(), [&](uint32_t index) {
                return ours.gapOfBase_[index] == ours.gapOfSide_[i] &&
                       theirs.gapOfBase_[index] == theirs.gapOfSide_[their];
            });
            if (replaced == lost.end())
                continue;
            ours.replace(*replaced, i);
            theirs.replace(*replaced, their);
            lost.erase(replaced);
        }
        ours.pairRest(isCommon[0]);
        theirs.pairRest(isCommon[1]);
    }

    std::string const& valueOf(uint32_t index) const { return side_[positionOf[index]]; }
    bool isRemoved(uint32_t index) const { return positionOf[index] == kAbsent; }
    bool isKept(uint32_t index) const { return !isRemoved(index) && !isReplaced[index]; }

private:
    void findMoves()
    {
        std::multimap<std::string_view, uint32_t> lost;
        for (uint32_t i = 0; i < base_.size(); ++i)
            if (positionOf[i] == kAbsent)
                lost.emplace(base_[i], i);
        for (uint32_t i = 0; i < side_.size(); ++i) {
            auto const found = baseOf_[i] == kAbsent ? lost.find(side_[i]) : lost.end();
            if (found == lost.end())
                continue;
            baseOf_[i] = found->second;
            positionOf[found->second] = i;
            lost.erase(found);
        }
    }

    void replace(uint32_t index, uint32_t position)
    {
        baseOf_[position] = index;
        positionOf[index] = position;
        isReplaced[index] = true;
    }

    // Pairs the lost and the new values between two unchanged ones, and lists the additions.
    void pairRest(std::vector<bool> const& isAddition)
    {
        uint32_t at = 0;
        for (uint32_t i = 0; i < base_.size(); ++i) {
            if (positionOf[i] != kAbsent)
                continue;
            while (at < side_.size() &&
                   (baseOf_[at] != kAbsent || isAddition[at] || gapOfSide_[at] < gapOfBase_[i]))
                ++at;
            if (at < side_.size() && gapOfSide_[at] == gapOfBase_[i])
                replace(i, at);
        }
        uint32_t last = kAbsent;
        for (uint32_t i = 0; i < side_.size(); ++i) {
            if (baseOf_[i] != kAbsent)
                order.push_back(last = baseOf_[i]);
            else
                additions.push_back({last, i, side_[i]});
        }
        hasMoved = !std::is_sorted(order.begin(), order.end());
    }

    Strings const& base_;
    Strings const& side_;
    std::vector<uint32_t> baseOf_;   // the index in the base of each value
    std::vector<size_t> gapOfBase_;  // of each value: the number of unchanged values up to it
    std::vector<size_t> gapOfSide_;

public:
    std::vector<uint32_t> positionOf;  // of each value of the base, in the side
    std::vector<bool> isReplaced;
    std::vector<uint32_t> order;  // the values of the base that the side has, in its order
    std::vector<Addition> additions;
    bool hasMoved = false;
};

// Returns the values of the base in the order of `side`; removed ones follow their predecessors.
std::vector<uint32_t> completed(std::vector<uint32_t> const& order, size_t count)
{
    std::vector<std::vector<uint32_t>> followers(count + 1);
    std::vector<bool> isThere(count);
    for (uint32_t const index : order)
        isThere[index] = true;
    size_t last = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (isThere[i])
            last = i + size_t{1};
        else
            followers[last].push_back(i);
    }
    std::vector<uint32_t> all = followers[0];
    for (uint32_t const index : order) {
        all.push_back(index);
        all.insert(all.end(), followers[index + size_t{1}].begin(),
                   followers[index + size_t{1}].end());
    }
    return all;
}

std::vector<uint32_t> orderOf(Strings const& base, Changes const& ours, Changes const& theirs,
                              bool isOursFirst)
{
    bool const isOurs = ours.hasMoved && (!theirs.hasMoved || isOursFirst);
    return completed(isOurs ? ours.order : theirs.order, base.size());
}

// Drops values that both sides add at different positions from the later position.
void dropLater(Changes& ours, Changes& theirs, std::vector<uint32_t> const& order)
{
    std::map<uint32_t, size_t> rank{{kAbsent, 0}};
    for (size_t i = 0; i < order.size(); ++i)
        rank[order[i]] = i + 1;
    std::multimap<std::string_view, size_t> known;
    for (size_t i = 0; i < ours.additions.size(); ++i)
        known.emplace(ours.additions[i].text, i);
    std::set<uint32_t> dropped[2];  // positions
    for (Addition const& addition : theirs.additions) {
        auto const found = known.find(addition.text);
        if (found == known.end())
            continue;
        Addition const& same = ours.additions[found->second];
        known.erase(found);
        size_t const a = rank[same.after];
        size_t const b = rank[addition.after];
        if (a > b)
            dropped[0].insert(same.position);
        else if (a < b)
            dropped[1].insert(addition.position);
    }
    auto const drop = [](Changes& side, std::set<uint32_t> const& positions) {
        std::erase_if(side.additions, [&](Addition const& addition) {
            return positions.contains(addition.position);
        });
    };
    drop(ours, dropped[0]);
    drop(theirs, dropped[1]);
}

using AdditionsAfter = std::map<uint32_t, Strings>;

AdditionsAfter groupAdditions(Changes const& side)
{
    AdditionsAfter groups;
    for (Addition const& addition : side.additions)
        groups[addition.after].push_back(addition.text);
    return groups;
}

MergedValue mergeValue(Changes const& ours, Changes const& theirs, uint32_t index)
{
    auto const of = [&](Changes const& side) {
        return side.isRemoved(index) ? Strings() : Strings{side.valueOf(index)};
    };
    Strings const a = of(ours);
    Strings const b = of(theirs);
    if (a == b || theirs.isKept(index))
        return {a, {}, false};
    if (ours.isKept(index))
        return {b, {}, false};
    return {a, b, true};
}

}  // namespace

std::vector<MergedValue> mergeValues(Strings const& base, Strings const& ours,
                                     Strings const& theirs)
{
    if (ours == theirs || theirs == base)
        return plain(ours);
    if (ours == base)
        return plain(theirs);
    bool const isOursFirst = ours < theirs;
    if (areReordered(ours, theirs))
        return plain(isOursFirst ? ours : theirs);
    if (base.empty()) {
        if (contains(ours, theirs))
            return plain(ours);
        if (contains(theirs, ours))
            return plain(theirs);
        return {{ours, theirs, true}};
    }
    if (ours.empty() || theirs.empty()) {
        Strings const changed = without(ours.empty() ? theirs : ours, base);
        if (changed.empty())
            return {};
        return {{ours.empty() ? ours : changed, theirs.empty() ? theirs : changed, true}};
    }
    Changes a(base, ours);
    Changes b(base, theirs);
    Changes::findReplacements(isOursFirst ? a : b, isOursFirst ? b : a);
    std::vector<uint32_t> const order = orderOf(base, a, b, isOursFirst);
    dropLater(a, b, order);
    AdditionsAfter const oursAfter = groupAdditions(a);
    AdditionsAfter const theirsAfter = groupAdditions(b);
    auto const find = [](AdditionsAfter const& groups, uint32_t after) {
        auto const found = groups.find(after);
        return found == groups.end() ? Strings() : found->second;
    };
    std::vector<MergedValue> result;
    auto const add = [&](uint32_t after) {
        Strings first = find(oursAfter, after);
        Strings second = find(theirsAfter, after);
        if (second < first)
            first.swap(second);
        for (Strings const& list : {first, without(second, first)})
            for (std::string const& text : list)
                result.push_back({{text}, {}, false});
    };
    add(kAbsent);
    for (uint32_t const index : order) {
        MergedValue value = mergeValue(a, b, index);
        if (value.isConflict || !value.ours.empty())
            result.push_back(std::move(value));
        add(index);
    }
    return result;
}

}  // namespace zlines
