// Counters: a counter in a cluster that several programs increment, through the library and with a
// guard left out.
//
// A test shows that each guard is needed: without it, the same test loses increments.
#pragma once

#include <Z/ZFleetConflict.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "transport/cluster.h"
#include "transport/failure.h"

// The counter of one program.
class Counter {
public:
    Counter() = default;
    Counter(Counter const&) = delete;
    Counter& operator=(Counter const&) = delete;
    virtual ~Counter() noexcept(false) = default;

    virtual void read() = 0;

    /// Stores the value that was read, incremented. Returns false if the store was refused.
    virtual bool store() = 0;

    virtual unsigned value() const = 0;

    void increment()
    {
        for (read(); !store(); read()) {
        }
    }
};

// A key of a configuration, stored by the library.
class GuardedCounter : public Counter {
public:
    explicit GuardedCounter(char const* path) : store_(path, 1) {}

    void read() override { store_.reload(nullptr); }

    bool store() override
    {
        store_.setIntegerValue("s", "x", value() + 1);
        try {
            store_.store(nullptr);
            return true;
        } catch (ZFleetConflictException_6_0 const&) {
            return isAgreed();
        }
    }

    unsigned value() const override { return store_.getIntegerValue("s", "x", 0, 0); }

protected:
    /// Returns whether a conflict needs no other store.
    virtual bool isAgreed() { return false; }

    ZFleetProperties_6_0 store_;
};

// Takes equal new values of two programs for an agreement.
class AgreeingCounter final : public GuardedCounter {
public:
    explicit AgreeingCounter(char const* path) : GuardedCounter(path) {}

private:
    bool isAgreed() override
    {
        unsigned const mine = value();
        read();
        return value() == mine;
    }
};

// A key whose writes have no guard, and are repeated after a lost reply anyway.
class PlainCounter final : public Counter {
public:
    PlainCounter(zfleet::Settings settings, std::string key)
        : cluster_(std::move(settings)), key_(std::move(key))
    {
    }

    void read() override
    {
        zfleet::Budget budget(cluster_.settings().budget);
        zfleet::RangeResult const result = cluster_.read({key_}, budget);
        value_ = result.entries.empty()
                     ? 0
                     : static_cast<unsigned>(atoi(result.entries[0].value.c_str()));
    }

    bool store() override
    {
        zfleet::Budget budget(cluster_.settings().budget);
        cluster_.commit({{}, {zfleet::Put{key_, std::to_string(++value_)}}, {}},
                        zfleet::Repetition::isHarmless, budget);
        return true;
    }

    unsigned value() const override { return value_; }

private:
    zfleet::Cluster cluster_;
    std::string const key_;
    unsigned value_ = 0;
};
