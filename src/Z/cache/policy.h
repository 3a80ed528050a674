// policy: the rules of the file format that the contents of a cache follow.
#pragma once

#include <stdint.h>
#include <string.h>

#include <string_view>

#include "../lines/name_hash.h"
#include "../stanza/comment_form.h"

namespace zcache {

using zlines::hashOf;

// The comparison of names. The default compares bytes.
struct NameRule {
    bool foldsCase = false;     // letters of ASCII are equal in both cases
    bool foldsUpToDot = false;  // only before the first dot
    bool dropsBlanks = false;   // spaces and tabs are ignored
    bool dashIsUnderscore = false;
    bool exchangesSlashes = false;  // in a path whose first separator is a slash, "/" is "."
    bool dropsFirstNumber = false;  // "]1" at the end is ignored: NAME]2 is the second NAME

    bool isExact() const
    {
        // In a single comparison, because every lookup asks four times.
        static constexpr bool kNone[6] = {};
        static_assert(sizeof(NameRule) == sizeof kNone);
        return memcmp(this, kNone, sizeof kNone) == 0;
    }

    /// Returns whether two names are the same.
    bool matches(std::string_view a, std::string_view b) const
    {
        return isExact() ? a == b : matchesFolded(a, b);
    }

    /// Hashes a name: names that match have the same hash.
    uint32_t hash(std::string_view name, uint32_t salt) const
    {
        return isExact() ? hashOf(name, salt) : hashFolded(name, salt);
    }

private:
    bool matchesFolded(std::string_view a, std::string_view b) const;
    uint32_t hashFolded(std::string_view name, uint32_t salt) const;
};

// The default is the policy of stanza files.
struct Policy {
    bool keepsEmpty = false;  // a key can have empty values; otherwise they mean no value
    bool joinsHeads = false;  // a repeated header continues its stanza; otherwise it is refused
    bool hasGaps = false;     // a line without a record ends the comment above it
    bool hasTop = false;      // keys above the first header are in the stanza "."
    NameRule categories;
    NameRule keys;
    zstanza::CommentForm comments;
};

inline constexpr std::string_view kTopCategory = ".";

}  // namespace zcache
