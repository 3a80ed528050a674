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

Strings valuesOf(SideKey const& key)
{
    return key ? key.values() : Strings();
}

// Returns whether a version has lines of a key with and without a value, in a dialect in which
// lines without a value are values of their own kind. A merged list has no index for them.
bool isMixed(Dialect const& dialect, SideKey const& base, SideKey const& ours,
             SideKey const& theirs)
{
    auto const isOne = [](SideKey const& key) {
        return key && key.hasValues() && !key.otherLines().empty();
    };
    return dialect.hasEmptyValues() && (isOne(base) || isOne(ours) || isOne(theirs));
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
bool mergeKey(Dialect const& dialect, SideKey const& base, SideKey const& ours,
              SideKey const& theirs, MergedKey& merged)
{
    Strings const before = valuesOf(base);
    Strings const our = valuesOf(ours);
    Strings const their = valuesOf(theirs);
    bool const isRemovedByOne = base && !ours != !theirs;
    bool const hasValues = !our.empty() || !their.empty();
    bool const isMixedKey = hasValues && isMixed(dialect, base, ours, theirs);
    if (isMixedKey && (ours.hasSameLineValues(theirs) || base.hasSameLineValues(theirs))) {
        merged.side = ours;
    } else if (isMixedKey && base.hasSameLineValues(ours)) {
        merged.side = theirs;
        merged.takesAll = !!theirs;
    } else if (isMixedKey || (isRemovedByOne && (ours ? our : their) != before && before.empty())) {
        merged.values = {{our, their, true}};
    } else if (ours && theirs && (our == their || their == before)) {
        merged.side = ours;
    } else if (theirs && our == before) {
        merged.side = theirs;
        merged.takesLines =
            !ours || (ours.spelled() == theirs.spelled() && ours.hasSameLines(base));
    } else {
        merged.values = mergeValues(before, our, their);
        if (isWholeConflict(dialect, before, our, their, merged))
            merged.values = {{our, their, true}};
    }
    return merged.hasValues() || isPresent(!!base, !!ours, !!theirs);
}

// Returns the keys of a stanza, by name.
std::vector<SideKey> keysOf(MergeSide const& side, SideStanza const* stanza)
{
    std::vector<SideKey> keys;
    if (stanza == nullptr)
        return keys;
    keys.reserve(stanza->keys.size());
    for (uint32_t const key : stanza->keys)
        keys.push_back(side.key(key));
    std::sort(keys.begin(), keys.end(),
              [](SideKey const& a, SideKey const& b) { return a.name() < b.name(); });
    return keys;
}

MergedStanza copyOf(MergeSide const& side, std::string_view stanza)
{
    MergedStanza copy;
    for (SideKey const& key : keysOf(side, side.find(stanza)))
        copy.keys.push_back({key.name(), key});
    return copy;
}

// Returns whether `side` has a key or value of a stanza that the base does not have.
bool addsTo(MergeSide const& base, MergeSide const& side, std::string_view stanza)
{
    for (uint32_t const index : side.find(stanza)->keys) {
        SideKey const key = side.key(index);
        SideKey const old = base.find(stanza, key.name());
        if (!old)
            return true;
        MergedKey merged;
        mergeKey(base.outline().dialect(), old, key, {}, merged);
        if (isConflict(merged))
            return true;
    }
    return false;
}

}  // namespace

std::vector<std::string> MergedKey::result() const
{
    if (side)
        return side.values();
    std::vector<std::string> result;
    for (MergedValue const& value : values)
        for (std::string const& text : value.ours.empty() ? value.theirs : value.ours)
            result.push_back(text);
    return result;
}

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
                stanzas_.emplace(name, copyOf(ours, name)).first->second.isFixed = true;
            continue;
        }
        if (!isPresent(before != nullptr, our != nullptr, their != nullptr)) {
            if ((our == nullptr && their == nullptr) ||
                !addsTo(base, our != nullptr ? ours : theirs, name))
                continue;
            MergedStanza merged = our != nullptr ? copyOf(ours, name) : MergedStanza();
            merged.conflict = our != nullptr ? MergedStanza::onlyOurs : MergedStanza::onlyTheirs;
            stanzas_.emplace(name, std::move(merged));
            hasConflicts_ = true;
            continue;
        }
        MergedStanza& merged = stanzas_[name];
        std::vector<SideKey> const ourKeys = keysOf(ours, our);
        std::vector<SideKey> const theirKeys = keysOf(theirs, their);
        merged.keys.reserve(std::max(ourKeys.size(), theirKeys.size()));
        auto ourKey = ourKeys.begin();
        auto theirKey = theirKeys.begin();
        while (ourKey != ourKeys.end() || theirKey != theirKeys.end()) {
            SideKey const none;
            int const order = ourKey == ourKeys.end() ? 1
                              : theirKey == theirKeys.end()
                                  ? -1
                                  : ourKey->name().compare(theirKey->name());
            SideKey const& first = order <= 0 ? *ourKey++ : none;
            SideKey const& second = order >= 0 ? *theirKey++ : none;
            MergedKey key{(first ? first : second).name()};
            if (!mergeKey(dialect, base.find(name, key.name), first, second, key))
                continue;
            hasConflicts_ = hasConflicts_ || isConflict(key);
            hasCopiedKeys_ = hasCopiedKeys_ || key.takesAll;
            merged.keys.push_back(std::move(key));
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
    auto const found = std::lower_bound(
        parent->keys.begin(), parent->keys.end(), key,
        [](MergedKey const& merged, std::string_view name) { return merged.name < name; });
    return found == parent->keys.end() || found->name != key ? nullptr : &*found;
}

}  // namespace zlines
