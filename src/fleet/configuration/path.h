// path: the paths of configurations in a cluster, "etcd://FLEET/NAME".
#pragma once

#include <string>

namespace zfleet {

struct Path {
    std::string fleet;
    std::string name;
};

/// Returns whether `path` starts with "etcd://". Any other path is a local file.
/// range   may be null.
bool isFleetPath(char const* path);

/// Splits a path. Fleet and name consist of bytes above the space character, except "/"; neither is
/// "." or "..", and each has at most 255 bytes.
/// range   `path` starts with "etcd://".
/// throws  ZPropertiesIOException_6_0 (path, "etcd://", EINVAL) if it does not name a
///         configuration.
Path parsePath(char const* path);

}  // namespace zfleet
