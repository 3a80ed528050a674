// live: decides when a configuration in a cluster is read again.
//
// Notices of a watch are hints only: the new contents are always read. The configuration is also
// read from time to time without a hint. After a watch has ended, another one continues at the next
// revision, at another endpoint. So it does if a node does not accept a watch within the time of a
// call.
//
// The longest silence after a node has ended a watch is a pause of 400 ms, and the time of a call
// if the first attempt to read goes to the same node. A node that does not accept the next watch
// adds another pause and the time of a call.
#pragma once

#include <memory>
#include <string>

#include "transport/cluster_interface.h"

namespace zfleet {

class Live {
public:
    /// throws  CallError without descriptors.
    Live();
    Live(Live const&) = delete;
    Live& operator=(Live const&) = delete;
    ~Live();

    /// Returns a descriptor that is readable when process() has something to do.
    int descriptor() const { return epoll_; }

    /// Takes the hints, and watches `keys` for changes after `revision`: the caller knows all
    /// changes up to it. The cluster should still have the next revisions: a watch of older ones
    /// ends with a hint. Returns whether the caller should read the configuration.
    bool process(ClusterInterface& cluster, WatchedKeys const& keys, int64_t revision);

    /// Records whether the caller has read the configuration.
    void recordLook(Clock::duration interval, bool hasSucceeded);

private:
    void takeNews(ClusterInterface& cluster, int64_t revision);
    void start(ClusterInterface& cluster, WatchedKeys const& keys, int64_t revision);
    bool isLate(Clock::time_point now) const;
    void moveOn();
    void setTimer() const;

    std::shared_ptr<Event> const event_;
    int const timer_;
    int const epoll_;
    std::unique_ptr<WatchInterface> watch_;  // null: it starts at startAt_
    unsigned endpoint_ = 0;
    unsigned pauses_ = 0;
    bool isHinted_ = false;
    Clock::time_point startAt_{};
    bool isAccepted_ = false;           // by the node
    Clock::time_point acceptBefore_{};  // else another watch replaces it
    Clock::time_point lookAt_{};
};

}  // namespace zfleet
