// ProcessLockChecks: checks of locks between processes, in files or in a cluster.
#pragma once

#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <gtest/gtest.h>
#include <stdint.h>

#include <future>
#include <stdexcept>
#include <string>

#include "LockStates.h"
#include "Raised.h"
#include "Threads.h"

namespace process_lock {

class Observer final : public ZObserverInterface_6_0 {
public:
    std::string changes;  // "old>new " for each change
    bool throws = false;

    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        auto const& change = dynamic_cast<ZSequenceUpdate_6_0 const&>(parm);
        changes += std::to_string(change.getLastSequence()) + ">" +
                   std::to_string(change.getSequence()) + " ";
        if (throws)
            throw std::runtime_error("observer");
    }
};

// Returns whether the action ends; false if it hangs.
inline bool comesThrough(std::future<void>& done)
{
    if (done.wait_for(kHangs) != std::future_status::ready)
        return false;
    done.get();
    return true;
}

// Expects that a new lock increases its sequence number if a writer releases the lock with an
// update. `sequence()` returns the number that other processes see.
template <class Lock, class Sequence>
void expectWritersIncreaseSequence(Lock& lock, Sequence sequence)
{
    struct Case {
        char const* name;
        State state;
        int update;
        unsigned raisedBy;
    };
    Case const cases[] = {{"writer with update", kWrite, 1, 1},
                          {"writer without", kWrite, 0, 0},
                          {"protect is a writer", kProtect, 1, 1},
                          {"reader", kRead, 1, 0}};
    uint32_t before = 0;
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        lock.lock(c.state);
        lock.unlock(c.update);
        EXPECT_EQ(before + c.raisedBy, sequence());
        EXPECT_EQ(before + c.raisedBy, lock.getSequence());
        EXPECT_EQ(lock.getSequence(), lock.getLastSequence());
        before += c.raisedBy;
    }
    // A writer has the flag set, a reader does not.
    lock.lock();
    lock.unlock();
    lock.readLock();
    lock.unlock();
    EXPECT_EQ(before + 1, sequence());
}

// Expects that incSequence() of a new lock throws unless a writer holds the lock.
template <class Lock, class Sequence>
void expectOnlyWritersIncrement(Lock& lock, Sequence sequence)
{
    auto const raisesState = [&](char const* state) {
        EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(
            32, "src/Z/ZProcessReadWriteFileLock", 112, [&] { lock.incSequence(); }));
        try {
            lock.incSequence();
        } catch (ZInvalidResourceStateException_6_0 const& e) {
            EXPECT_STREQ(state, e.value());
        }
    };
    raisesState("unset");
    lock.readLock();
    raisesState("read");
    lock.unlock();
    EXPECT_EQ(0u, sequence());
}

}  // namespace process_lock
