// merged_contents: the stanzas, keys and values that a merge gives.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "merge_side.h"
#include "value_merge.h"

namespace zlines {

// It has the values of `side` or, without a key of a side, `values`. The sides outlive it.
struct MergedKey {
    std::string_view name = {};
    SideKey side = {};
    std::vector<MergedValue> values = {};
    bool takesLines = false;  // `ours` has no lines of the key, or the lines of the base
    bool takesAll = false;    // `theirs` gives all lines, with and without a value

    bool hasValues() const { return side ? side.hasValues() : !values.empty(); }

    /// Returns the values of the result; of a conflict, the values of `ours` or, without those, of
    /// `theirs`.
    std::vector<std::string> result() const;
};

struct MergedStanza {
    // A conflict: one side removed the stanza, and the other changed it. The result has the stanza
    // of `ours` as it is, or a header in the place of the stanza of `theirs`.
    enum Conflict { none, onlyOurs, onlyTheirs };

    std::vector<MergedKey> keys;  // by name
    Conflict conflict = none;
    bool isFixed = false;  // it has the contents and comments of `ours`
};

class MergedContents {
public:
    /// range   `fixed` is a stanza that has the contents of `ours` whatever `theirs` has; empty:
    ///         none.
    MergedContents(MergeSide const& base, MergeSide const& ours, MergeSide const& theirs,
                   std::string_view fixed);

    std::map<std::string, MergedStanza, std::less<>> const& stanzas() const { return stanzas_; }
    bool has(std::string_view stanza) const { return stanzas_.contains(stanza); }

    /// Return null if the result does not have the stanza or key.
    MergedStanza const* find(std::string_view stanza) const;
    MergedKey const* find(std::string_view stanza, std::string_view key) const;

    bool hasConflicts() const { return hasConflicts_; }

    /// Returns whether a key takes all lines of `theirs`.
    bool hasCopiedKeys() const { return hasCopiedKeys_; }

private:
    std::map<std::string, MergedStanza, std::less<>> stanzas_;
    bool hasConflicts_ = false;
    bool hasCopiedKeys_ = false;
};

}  // namespace zlines
