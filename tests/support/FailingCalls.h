// FailingCalls: as failEachAllocation(), for plain functions, which return a code.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "FailingAllocator.h"

struct PlainCall {
    char const* name;
    std::function<int()> call;  // returns 0 or the code of a failure
};

// Runs each call with its first allocation failing, then with its second, and so on, until none
// fails. `prepare` runs before each call, and `checkFailed` gets the code of each call that fails.
// At least one run of each call must fail.
inline void failEachAllocationOf(std::vector<PlainCall> const& calls,
                                 std::function<void()> const& prepare,
                                 std::function<void(int)> const& checkFailed)
{
    for (PlainCall const& call : calls) {
        int failures = 0;
        for (unsigned long n = 1;; ++n) {
            SCOPED_TRACE(std::string(call.name) + ", allocation " + std::to_string(n));
            ASSERT_NO_FATAL_FAILURE(prepare());
            FailingAllocator::failAt(n);
            int const code = call.call();
            bool const failed = FailingAllocator::stop();
            if (code != 0) {
                ++failures;
                checkFailed(code);
            }
            if (!failed || testing::Test::HasFailure())
                break;
        }
        EXPECT_GE(failures, 1) << call.name;
    }
}
