// watch: a stream of notices about changes of keys.
//
// The threads of gRPC only record a notice and write to an event descriptor; the owner of the
// watch takes the notices when it has been woken.
#pragma once

#include <memory>
#include <string>

#include "transport/endpoint.h"
#include "transport/event.h"
#include "transport/watch_interface.h"

namespace zfleet {

class Watch : public WatchInterface {
public:
    /// Starts to watch keys for changes from `revision` on. Does not wait for the node.
    /// range   `token` may be empty.
    /// throws  CallError with ECHILD in a child of a process that has used gRPC.
    Watch(Endpoint& endpoint, WatchedKeys const& keys, int64_t revision, std::string token,
          std::shared_ptr<Event> event);

    /// Ends the stream, and waits for its last reaction, but not for the node. In a child of the
    /// process that started the stream, leaks it.
    ~Watch() override;

    News take() override;
    std::string const& token() const override { return token_; }

private:
    struct State;
    class Stream;

    std::string const token_;
    std::unique_ptr<State> state_;
};

}  // namespace zfleet
