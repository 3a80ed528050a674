// mixed_keys: keys of a file that have lines with and without a value.
//
// The values of a key do not include its lines without a value, so a program that changes the
// values cannot see these lines.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "outline.h"

namespace zlines {

class MixedKeys {
public:
    MixedKeys() = default;

    /// cost    O(text); memory for each key that has a line without a value.
    MixedKeys(std::string_view text, Dialect const& dialect);

    /// Returns whether a key has lines of both kinds.
    /// range   names as the dialect compares them; the stanza as the outline has it.
    bool contains(std::string_view stanza, std::string_view key) const;

    bool isEmpty() const { return keys_.empty(); }

private:
    std::set<std::pair<std::string, std::string>> keys_;  // by stanza
};

}  // namespace zlines
