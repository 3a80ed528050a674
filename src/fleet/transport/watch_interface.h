// watch_interface: the notices of a cluster about changes of keys, independent of gRPC.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "transport/endpoint.h"

namespace zfleet {

struct WatchedKeys {
    std::string key;
    std::string end = {};                    // the first key past the range; empty: only `key`
    std::vector<std::string> reported = {};  // keys whose changes are reported; empty: all
};

class WatchInterface {
public:
    // The notices since the last call of take().
    struct News {
        bool isStarted = false;  // the node has accepted the watch
        int64_t revision = 0;    // of the latest change of the keys; 0: none
        bool isOver = false;     // the stream has ended, with this status
        CallStatus status = {};
    };

    WatchInterface() = default;
    WatchInterface(WatchInterface const&) = delete;
    WatchInterface& operator=(WatchInterface const&) = delete;

    /// Ends the watch. Does not wait for the node.
    virtual ~WatchInterface() = default;

    /// Returns the notices since the last call.
    virtual News take() = 0;

    /// Returns the token that the watch has used; empty without one.
    virtual std::string const& token() const = 0;
};

}  // namespace zfleet
