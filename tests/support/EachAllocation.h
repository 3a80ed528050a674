// EachAllocation: as failEachAllocation(), for calls that may succeed without some allocations.
#pragma once

#include "FailingAllocator.h"

// Runs `call` with its first allocation failing, then with its second, and so on, until none fails.
// A run that throws must throw ZOutOfMemoryException_6_0, leak no block and leave a state in which
// `check` succeeds. `undo` reverts a run that succeeds in spite of the failure, and the last run.
// Returns the number of runs in which an allocation failed. Pass false for `countsBlocks` if a
// failed call may keep memory for the next call; a leak checker finds the leaks of such calls.
template <class Call, class Undo, class Check>
unsigned long failEachAllocationOfSome(Call call, Undo undo, Check check, bool countsBlocks = true)
{
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const before = FailingAllocator::blocks();
        bool raised = false;
        FailingAllocator::failAt(n, FailingAllocator::once);
        try {
            call();
        } catch (ZOutOfMemoryException_6_0 const&) {
            raised = true;
        }
        bool const failed = FailingAllocator::stop();
        EXPECT_TRUE(failed || !raised);
        if (!raised)
            undo();
        EXPECT_TRUE(!raised || !countsBlocks || before == FailingAllocator::blocks());
        check();
        if (!failed || testing::Test::HasFailure())
            return n - 1;
    }
}
