// FailingAllocator: makes the n-th allocation of a piece of code fail, and counts blocks in use.
//
// A test program with the keyword ALLOCATOR in its z_test call replaces malloc(), calloc(),
// realloc(), reallocarray(), aligned_alloc(), posix_memalign() and free() for itself and for every
// library that it loads. Under AddressSanitizer and ThreadSanitizer they call the sanitizer's own
// functions, and operator new and delete are replaced as well, since a sanitizer's operators do not
// call malloc(); with clang's ThreadSanitizer nothing is replaced and nothing fails. Build with
// Z_TEST_ONLY_OPERATOR_NEW defined to replace only operator new and delete: for a sanitizer whose
// malloc() cannot be replaced.
//
// Failures and counts apply to one thread; other threads allocate as usual.
//
//     failEachAllocation([&] { list.add(&object); }, [&] { EXPECT_EQ(3u, list.size()); });
#pragma once

#include <Z/ZException.h>
#include <gtest/gtest.h>

#include <new>
#include <string>

class FailingAllocator {
public:
    enum Mode { once, forEver };

    // Makes the n-th allocation of this thread from now fail, counted from 1; with `forEver` also
    // all later ones.
    static void failAt(unsigned long n, Mode mode = once);

    // Stops the failures. Returns whether an allocation failed.
    static bool stop();

    // Allocations that this thread has requested since failAt().
    static unsigned long asked();

    // Blocks that this thread has allocated, minus blocks that it has freed.
    static long blocks();
};

// Runs `call` with its first allocation failing, then with its second, and so on, until it runs to
// its end without a failure. Each run that fails must throw ZOutOfMemoryException_6_0, leak no
// block, and leave a state in which `check` succeeds. Returns the number of runs that failed. A
// test expects at least one, or one per element that is copied: the exact number is not a promise.
template <class Call, class Check>
unsigned long failEachAllocation(Call call, Check check,
                                 FailingAllocator::Mode mode = FailingAllocator::once)
{
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const before = FailingAllocator::blocks();
        bool raised = false;
        FailingAllocator::failAt(n, mode);
        try {
            call();
        } catch (ZOutOfMemoryException_6_0 const&) {
            raised = true;
        } catch (std::bad_alloc const&) {
            FailingAllocator::stop();
            ADD_FAILURE() << "std::bad_alloc";
            return n;
        }
        bool const failed = FailingAllocator::stop();
        EXPECT_EQ(failed, raised);
        if (!failed)
            return n - 1;
        EXPECT_EQ(before, FailingAllocator::blocks());
        check();
        if (testing::Test::HasFailure())
            return n;
    }
}
