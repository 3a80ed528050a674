// parsing: the contents of a configuration as a cache, and back.
//
// The text of a configuration does not name its companion, which is a path of one machine.
#pragma once

#include <Z/ZPropertiesImpl.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "configuration/remote_configuration.h"

namespace zfleet {

/// Returns the contents as a new cache of the class and with the attributes of `prototype`.
/// throws  ZPropertiesInvalidDataException_6_0 with `path`, or with `path` and "#hidden" for the
///         companion.
std::unique_ptr<ZSCFData_6_0> parseContents(char const* path, Contents const& contents,
                                            ZSCFData_6_0 const& prototype);

/// Returns text and companion of a cache, without the name of the companion.
Contents formatContents(ZSCFData_6_0 const& cache);

// The values of a key; both lists are empty for a key without values.
struct KeyValues {
    std::vector<std::string> plain;
    std::vector<std::string> obfuscated;

    bool operator==(KeyValues const&) const = default;
};

// The values of a configuration, by stanza and key.
using StanzaValues = std::map<std::string, KeyValues>;
using AllValues = std::map<std::string, StanzaValues>;

/// Returns the values of a cache.
AllValues valuesOf(ZSCFData_6_0 const& cache);

}  // namespace zfleet
