// WatchedValue: a value that one store writes and another store, with a watch, must see.
#pragma once

#include <Z/ZFleetProperties.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>

#include "CampaignSize.h"

class WatchedValue {
public:
    /// Stores a configuration in the fleet "test", and starts to watch it.
    WatchedValue() : writer_(1), reader_(1)
    {
        writer_.setIntegerValue("s", "x", value_);
        writer_.store(kPath);
        reader_.load(kPath);
        reader_.descriptor();
    }
    WatchedValue(WatchedValue const&) = delete;
    WatchedValue& operator=(WatchedValue const&) = delete;

    /// Stores the next value. Returns the seconds until the reader has seen it; adds a failure if
    /// it has not after a minute.
    double change()
    {
        writer_.setIntegerValue("s", "x", ++value_);
        writer_.store(nullptr);
        auto const stored = std::chrono::steady_clock::now();
        while (reader_.getIntegerValue("s", "x", 0, 0) != value_) {
            if (secondsSince(stored) >= 60) {
                ADD_FAILURE() << "change " << value_ << " was missed";
                break;
            }
            pollfd wait{reader_.descriptor(), POLLIN, 0};
            poll(&wait, 1, 1000);
            reader_.processChanges();
        }
        return secondsSince(stored);
    }

    unsigned changes() const { return value_; }
    ZFleetProperties_6_0 const& writer() const { return writer_; }

private:
    static constexpr char kPath[] = "etcd://test/watched";

    ZFleetProperties_6_0 writer_;
    ZFleetProperties_6_0 reader_;
    unsigned value_ = 0;
};
