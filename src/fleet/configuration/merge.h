// merge: two changes of a configuration, merged by stanza and key.
//
// A key that only one side changed gets the values of that side. A key that both changed is a
// conflict, even if the new values are equal: two programs that increment a counter would count
// once otherwise. A stanza that one side removed and the other side changed is a conflict.
// Comments never conflict: the result has the comments of both sides.
#pragma once

#include <string>
#include <vector>

#include "configuration/remote_configuration.h"

class ZSCFData_6_0;

namespace zfleet {

// The result of a merge for keys that both sides changed.
enum class ConflictPolicy { refuse, mineWins, theirsWins };

struct Conflict {
    std::string stanza;
    std::string key;  // empty: the stanza as a whole

    bool operator==(Conflict const&) const = default;
};

struct Merged {
    Contents contents;
    std::vector<Conflict> conflicts;  // by stanza and key; decided ones included
    bool isComplete;                  // false: no text can hold all of these values
};

/// Merges `mine` and `theirs`, which are changes of `base`. The result has the lines and the order
/// of `theirs`.
/// range   `mine` has the form of formatContents(). With conflicts, the policy `refuse` merges as
///         `theirsWins`. `prototype` has the attributes with which all of them are read.
/// throws  ZPropertiesInvalidDataException_6_0 with `path` if an argument cannot be read.
Merged merge(char const* path, Contents const& base, Contents const& mine, Contents const& theirs,
             ConflictPolicy policy, ZSCFData_6_0 const& prototype);

}  // namespace zfleet
