// watch: a stream of notices about changes of keys.
//
// The threads of gRPC only record a notice and write to an event descriptor; the owner of the
// watch takes the notices when it has been woken.
#pragma once

#include <memory>
#include <string>

#include "transport/endpoint.h"

namespace zfleet {

// An event descriptor, closed with the last reference.
class Event {
public:
    /// throws  CallError with "eventfd()".
    Event();
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;
    ~Event();

    int descriptor() const { return fd_; }
    void signal() const;
    void clear() const;

private:
    int const fd_;
};

struct WatchedKeys {
    std::string key;
    std::string end = {};  // the first key past the range; empty: only `key`
};

class Watch {
public:
    // The notices since the last call of take().
    struct News {
        bool isStarted = false;  // the node has accepted the watch
        int64_t revision = 0;    // of the latest change of the keys; 0: none
        bool isOver = false;     // the stream has ended, with this status
        CallStatus status = {};
    };

    /// Starts to watch keys for changes from `revision` on. Does not wait for the node.
    /// range   `token` may be empty.
    /// throws  CallError with ECHILD in a child of a process that has used gRPC.
    Watch(Endpoint& endpoint, WatchedKeys const& keys, int64_t revision, std::string token,
          std::shared_ptr<Event> event);
    Watch(Watch const&) = delete;
    Watch& operator=(Watch const&) = delete;

    /// Ends the stream, and waits for its last reaction, but not for the node. In a child of the
    /// process that started the stream, leaks it.
    ~Watch();

    /// Returns the notices since the last call.
    News take();

    std::string const& token() const { return token_; }

private:
    struct State;
    class Stream;

    std::string const token_;
    std::unique_ptr<State> state_;
};

}  // namespace zfleet
