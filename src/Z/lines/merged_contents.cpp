#include "merged_contents.h"

#include <algorithm>
#include <set>
#include <utility>

namespace zlines {

namespace {

using Strings = std::vector<std::string>;

// Returns whether something is in the result, by its presence in the base and on both sides.
bool isPresent(bool base, bool ours, bool theirs)
{
    return base ? ours && theirs : ours || theirs;
}

bool isConflict(MergedKey const& key)
{
    return std::any_of(key.values.begin(), key.values.end(),
                       [](MergedValue const& value) { return value.isConflict; });
}

Strings const& valuesOf(SideKey const* key)
{
    static Strings const none;
    return key == nullptr ? none : key->values;
}

// Returns whether a side changed a key that has lines with and without a value, where the latter
// are values of their own kind. The merged list has no place for them.
bool isMixedChange(Dialect const& dialect, SideKey const* base, SideKey const* ours,
                   SideKey const* theirs)
{
    auto const isMixed = [](SideKey const* key) {
        return key != nullptr && !key->values.empty() && !key->otherLines.empty();
    };
    auto const isSame = [](SideKey const* one, SideKey const* other) {
        return one == nullptr || other == nullptr
                   ? one == other
                   : one->values == other->values &&
                         one->otherLines.size() == other->otherLines.size();
    };
    return dialect.hasEmptyValues() && (isMixed(base) || isMixed(ours) || isMixed(theirs)) &&
           !isSame(base, theirs) && !isSame(ours, theirs);
}

// Returns whether a list that both sides changed is a conflict as a whole: a side changed its
// resets, or a list with a reset has a conflict. Which values count depends on their order then.
bool isWholeConflict(Dialect const& dialect, Strings const& base, Strings const& ours,
                     Strings const& theirs, MergedKey const& merged)
{
    if (!dialect.hasResets() || ours == base || theirs == base || ours == theirs)
        return false;
    auto const resetsIn = [](Strings const& list) {
        return std::count(list.begin(), list.end(), std::string());
    };
    auto const before = resetsIn(base);
    auto const our = resetsIn(ours);
    auto const their = resetsIn(theirs);
    return isConflict(merged) ? before + our + their != 0 : our != before || their != before;
}

// Merges a key that at least one side has. Returns false if the result does not have the key.
bool mergeKey(Dialect const& dialect, SideKey const* base, SideKey const* ours,
              SideKey const* theirs, MergedKey& merged)
{
    Strings const& changed = valuesOf(ours == nullptr ? theirs : ours);
    bool const isRemovedByOne = base != nullptr && (ours == nullptr) != (theirs == nullptr);
    bool const hasValues = !valuesOf(ours).empty() || !valuesOf(theirs).empty();
    if (hasValues && isMixedChange(dialect, base, ours, theirs))
        merged.values = {{valuesOf(ours), valuesOf(theirs), true}};
    else if (isRemovedByOne && changed != valuesOf(base) && valuesOf(base).empty())
        merged.values = {{valuesOf(ours), valuesOf(theirs), true}};
    else if (ours != nullptr && theirs != nullptr &&
             (ours->values == theirs->values || theirs->values == valuesOf(base)))
        merged.side = ours;
    else if (theirs != nullptr && valuesOf(ours) == valuesOf(base))
        merged.side = theirs;
    else {
        merged.values = mergeValues(valuesOf(base), valuesOf(ours), valuesOf(theirs));
        if (isWholeConflict(dialect, valuesOf(base), valuesOf(ours), valuesOf(theirs), merged))
            merged.values = {{valuesOf(ours), valuesOf(theirs), true}};
    }
    return merged.hasValues() || isPresent(base != nullptr, ours != nullptr, theirs != nullptr);
}

MergedStanza copyOf(SideStanza const& side)
{
    MergedStanza copy;
    for (std::string_view const key : side.keys) {
        copy.keys[std::string(key)].side = &side.contents.find(key)->second;
    }
    return copy;
}

// Returns whether `side` has a key or value that the base does not have.
bool addsTo(Dialect const& dialect, SideStanza const& base, SideStanza const& side)
{
    for (std::string_view const name : side.keys) {
        auto const old = base.contents.find(name);
        if (old == base.contents.end())
            return true;
        MergedKey merged;
        mergeKey(dialect, &old->second, &side.contents.find(name)->second, nullptr, merged);
        if (isConflict(merged))
            return true;
    }
    return false;
}

}  // namespace

MergedContents::MergedContents(MergeSide const& base, MergeSide const& ours,
                               MergeSide const& theirs, std::string_view fixed)
{
    Dialect const& dialect = base.outline().dialect();
    std::set<std::string> names(ours.stanzas().begin(), ours.stanzas().end());
    names.insert(theirs.stanzas().begin(), theirs.stanzas().end());
    for (std::string const& name : names) {
        SideStanza const* const before = base.find(name);
        SideStanza const* const our = ours.find(name);
        SideStanza const* const their = theirs.find(name);
        if (!fixed.empty() && name == fixed) {
            if (our != nullptr)
                stanzas_.emplace(name, copyOf(*our)).first->second.isFixed = true;
            continue;
        }
        if (!isPresent(before != nullptr, our != nullptr, their != nullptr)) {
            SideStanza const* const left = our != nullptr ? our : their;
            if (left == nullptr || !addsTo(dialect, *before, *left))
                continue;
            MergedStanza merged = our != nullptr ? copyOf(*our) : MergedStanza();
            merged.conflict = our != nullptr ? MergedStanza::onlyOurs : MergedStanza::onlyTheirs;
            stanzas_.emplace(name, std::move(merged));
            hasConflicts_ = true;
            continue;
        }
        std::set<std::string> keys;
        for (SideStanza const* const side : {our, their})
            if (side != nullptr)
                keys.insert(side->keys.begin(), side->keys.end());
        MergedStanza& merged = stanzas_[name];
        for (std::string const& key : keys) {
            MergedKey values;
            if (!mergeKey(dialect, base.find(name, key), ours.find(name, key),
                          theirs.find(name, key), values))
                continue;
            hasConflicts_ = hasConflicts_ || isConflict(values);
            merged.keys.emplace(key, std::move(values));
        }
    }
}

MergedStanza const* MergedContents::find(std::string_view stanza) const
{
    auto const found = stanzas_.find(stanza);
    return found == stanzas_.end() ? nullptr : &found->second;
}

MergedKey const* MergedContents::find(std::string_view stanza, std::string_view key) const
{
    MergedStanza const* const parent = find(stanza);
    if (parent == nullptr)
        return nullptr;
    auto const found = parent->keys.find(key);
    return found == parent->keys.end() ? nullptr : &found->second;
}

}  // namespace zlines
