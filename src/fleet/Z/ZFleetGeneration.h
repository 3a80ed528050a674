// ZFleetGeneration: a generation in the log of a configuration.
//
// Subsystem: fleet.  Stands on: the foundation's ZObject, ZLCString.
//
// Ownership: objects own copies of their strings.
// Threads: immutable.
#pragma once

#include <Z/ZLCString.h>
#include <Z/ZObject.h>
#include <stdint.h>

/// The origin of a generation of a configuration: a store by this library.
class ZFleetGeneration_6_0 : public ZObject_6_0 {
public:
    /// owns    the strings are copied.
    ZFleetGeneration_6_0(uint64_t generation, int64_t time, char const* host, char const* user,
                         char const* reason, int isOmitted);
    ZFleetGeneration_6_0(ZFleetGeneration_6_0 const& other);
    ZFleetGeneration_6_0& operator=(ZFleetGeneration_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZFleetGeneration_6_0() override;
    ZObject_6_0* clone() const override;

    /// Returns the number of the generation; 1 is the first.
    uint64_t generation() const { return generation_; }

    /// Returns the time of the store, on the clock of its host.
    /// units   seconds since the epoch.
    int64_t time() const { return time_; }

    ZLCString_6_0 const& host() const { return host_; }
    ZLCString_6_0 const& user() const { return user_; }

    /// Returns the reason that the store was given; may be empty.
    ZLCString_6_0 const& reason() const { return reason_; }

    /// Returns 1 if the log does not have the contents, because they were too large, else 0.
    int isOmitted() const { return isOmitted_; }

private:
    uint64_t generation_;
    int64_t time_;
    ZLCString_6_0 host_;
    ZLCString_6_0 user_;
    ZLCString_6_0 reason_;
    int isOmitted_;
};
