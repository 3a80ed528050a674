// fence: a condition of a store: a lock is held, by its entry in the cluster.
#pragma once

#include <stdint.h>

#include <string>

namespace zfleet {

struct Fence {
    std::string key;         // of the entry in the queue of the lock
    int64_t createRevision;  // of the entry: the token; 0: the lock is not held
};

// A store that was refused, because the lock is no longer held.
struct FenceError {
    Fence fence;
};

}  // namespace zfleet
