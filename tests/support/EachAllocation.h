// EachAllocation: as failEachAllocation(), for calls that can do without some of their allocations.
#pragma once

#include "FailingAllocator.h"

// Runs `call` with its first allocation failing, then with its second, and so on, until none fails.
// A run that raises must raise ZOutOfMemoryException_6_0, leak no block and leave behind what
// `check` expects; after a run that succeeds in spite of the failure, and after the last, `undo`
// takes back what it did. Returns the number of runs in which an allocation failed. Blocks are not
// counted for calls after whose failure something may be kept for the next one: there a leak
// checker has to look.
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
