// ReadWriteModel: the model of a read-write lock, a state machine without threads.
#pragma once

#include "LockStates.h"

struct ReadWriteModel {
    static constexpr int kNobody = -1;

    State state = kUnset;
    int readers = 0;
    int writer = kNobody;  // the last thread that took "protect" or "write"

    bool holds(int thread) const
    {
        return (state == kProtect || state == kWrite) && writer == thread;
    }

    // Whether `thread` may have the lock for `wanted` now.
    bool admits(State wanted) const
    {
        switch (wanted) {
            case kRead:
                return state != kWrite;
            case kProtect:
                return state == kUnset || state == kRead;
            default:
                return state == kUnset;
        }
    }

    void enter(int thread, State wanted)
    {
        if (wanted == kRead) {
            ++readers;
            if (state == kUnset)
                state = kRead;
            return;
        }
        writer = thread;
        state = wanted;
    }

    // Keeps readers out from here on; the promotion is done when the last reader has left.
    void beginPromotion() { state = kWrite; }

    // Whether `unlock()` of this thread has something to release.
    bool mayLeave(int thread) const { return holds(thread) || readers > 0; }

    void leave(int thread)
    {
        if (holds(thread))
            state = kRead;
        else
            --readers;
        if (state == kRead && readers == 0)
            state = kUnset;
    }
};
