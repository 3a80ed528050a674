#include "overlap.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "merge_side.h"

namespace zlines {

namespace {

class Comparison {
public:
    Comparison(MergeSide const& base, MergeSide const& ours, MergeSide const& theirs)
        : base_(base), ours_(ours), theirs_(theirs)
    {
    }

    // Returns whether a stanza has different changes.
    bool differs(std::string const& stanza) const
    {
        MergeSide const* const all[] = {&base_, &ours_, &theirs_};
        SideStanza const* sides[3];
        std::set<std::string_view> keys;
        for (size_t i = 0; i < 3; ++i) {
            sides[i] = all[i]->find(stanza);
            if (sides[i] != nullptr)
                for (uint32_t const key : sides[i]->keys)
                    keys.insert(all[i]->key(key).name());
        }
        bool const isRemovedByOne =
            sides[0] != nullptr && (sides[1] == nullptr) != (sides[2] == nullptr);
        MergeSide const& left = sides[1] == nullptr ? theirs_ : ours_;
        for (std::string_view const key : keys) {
            SideKey const base = base_.find(stanza, key);
            SideKey const ours = ours_.find(stanza, key);
            SideKey const theirs = theirs_.find(stanza, key);
            if (!base.hasSameValues(ours) && !base.hasSameValues(theirs) &&
                !ours.hasSameValues(theirs))
                return true;
            if (isRemovedByOne && !base.hasSameValues(left.find(stanza, key)))
                return true;
            Comments const before = base ? base.comments() : Comments();
            Comments const our = ours ? ours.comments() : Comments();
            if (theirs &&
                differ(base ? &before : nullptr, ours ? &our : nullptr, theirs.comments()))
                return true;
        }
        auto const commentsOf = [](SideStanza const* side) {
            return side == nullptr ? nullptr : &side->comments;
        };
        return sides[2] != nullptr &&
               differ(commentsOf(sides[0]), commentsOf(sides[1]), sides[2]->comments);
    }

private:
    using Comments = std::vector<SideComment>;

    // Returns whether `theirs` changes the comments of something that `ours` removes, or whose
    // comments it changes in another way. Null: it is missing.
    static bool differ(Comments const* base, Comments const* ours, Comments const& theirs)
    {
        static Comments const none;
        Comments const& before = base == nullptr ? none : *base;
        if (theirs == before)
            return false;
        if (ours == nullptr)
            return base != nullptr;
        return *ours != before && *ours != theirs;
    }

    MergeSide const& base_;
    MergeSide const& ours_;
    MergeSide const& theirs_;
};

}  // namespace

bool overlap(std::string_view base, std::string_view ours, std::string_view theirs,
             Dialect const& dialect, std::string_view fixed)
{
    MergeSide const before(base, dialect);
    MergeSide const our(ours, dialect, &before);
    MergeSide const their(theirs, dialect, &before);
    Comparison const comparison(before, our, their);
    std::set<std::string> names{kEndOfText};
    for (MergeSide const* const side : {&before, &our, &their})
        names.insert(side->stanzas().begin(), side->stanzas().end());
    return std::any_of(names.begin(), names.end(), [&](std::string const& name) {
        return (fixed.empty() || name != fixed) && comparison.differs(name);
    });
}

bool hasSameValues(std::string_view stanza, std::string_view key, std::string_view base,
                   std::string_view other, Dialect const& dialect)
{
    MergeSide const before(base, dialect);
    MergeSide const after(other, dialect);
    return before.find(stanza, key).hasSameValues(after.find(stanza, key));
}

}  // namespace zlines
