#include "merged_contents.h"

#include <algorithm>
#include <set>

namespace zlines {

namespace {

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

// Merges a key that at least one side has. Returns false if the result does not have the key.
bool mergeKey(SideKey const* base, SideKey const* ours, SideKey const* theirs, bool isStanzaRemoved,
              MergedKey& merged)
{
    std::vector<std::string> const none;
    auto const of = [&](SideKey const* key) -> std::vector<std::string> const& {
        return key == nullptr ? none : key->values;
    };
    if (isStanzaRemoved && base == nullptr) {  // a side added the key to a stanza without a future
        if (ours != nullptr && theirs == nullptr && !of(ours).empty())
            merged.values = {{of(ours), {}, true}};
        else if (theirs != nullptr && ours == nullptr && !of(theirs).empty())
            merged.values = {{{}, of(theirs), true}};
        return !merged.values.empty();
    }
    bool const isRemovedByOne = base != nullptr && (ours == nullptr) != (theirs == nullptr);
    bool const isChangedByOne = of(ours == nullptr ? theirs : ours) != of(base);
    if (isRemovedByOne && isChangedByOne && of(base).empty())
        merged.values = {{of(ours), of(theirs), true}};
    else
        merged.values = mergeValues(of(base), of(ours), of(theirs));
    return !merged.values.empty() || isPresent(base != nullptr, ours != nullptr, theirs != nullptr);
}

}  // namespace

MergedContents::MergedContents(MergeSide const& base, MergeSide const& ours,
                               MergeSide const& theirs)
{
    std::set<std::string> names(ours.stanzas().begin(), ours.stanzas().end());
    names.insert(theirs.stanzas().begin(), theirs.stanzas().end());
    for (std::string const& name : names) {
        SideStanza const* const sides[] = {base.find(name), ours.find(name), theirs.find(name)};
        bool const isKept =
            isPresent(sides[0] != nullptr, sides[1] != nullptr, sides[2] != nullptr);
        std::set<std::string> keys;
        for (SideStanza const* const side : {sides[1], sides[2]})
            if (side != nullptr)
                keys.insert(side->keys.begin(), side->keys.end());
        MergedStanza merged;
        merged.isRemovedBySide = !isKept;
        for (std::string const& key : keys) {
            MergedKey values;
            if (!mergeKey(base.find(name, key), ours.find(name, key), theirs.find(name, key),
                          !isKept, values) ||
                (!isKept && !isConflict(values)))
                continue;
            for (MergedValue const& value : values.values)
                conflicts_ += value.isConflict ? 1 : 0;
            merged.keys.emplace(key, std::move(values));
        }
        if (isKept || !merged.keys.empty())
            stanzas_.emplace(name, std::move(merged));
    }
}

MergedKey const* MergedContents::find(std::string const& stanza, std::string const& key) const
{
    auto const parent = stanzas_.find(stanza);
    if (parent == stanzas_.end())
        return nullptr;
    auto const found = parent->second.keys.find(key);
    return found == parent->second.keys.end() ? nullptr : &found->second;
}

}  // namespace zlines
