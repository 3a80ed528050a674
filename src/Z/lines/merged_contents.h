// merged_contents: the stanzas, keys and values that a merge gives.
#pragma once

#include <stddef.h>

#include <map>
#include <string>
#include <vector>

#include "merge_side.h"
#include "value_merge.h"

namespace zlines {

struct MergedKey {
    std::vector<MergedValue> values;
};

struct MergedStanza {
    std::map<std::string, MergedKey> keys;
    bool isRemovedBySide = false;  // one side removed it; it has conflicts only
};

class MergedContents {
public:
    MergedContents(MergeSide const& base, MergeSide const& ours, MergeSide const& theirs);

    std::map<std::string, MergedStanza> const& stanzas() const { return stanzas_; }
    bool has(std::string const& stanza) const { return stanzas_.contains(stanza); }

    /// Returns null if the result does not have the key.
    MergedKey const* find(std::string const& stanza, std::string const& key) const;

    size_t conflicts() const { return conflicts_; }

private:
    std::map<std::string, MergedStanza> stanzas_;
    size_t conflicts_ = 0;
};

}  // namespace zlines
