// LinearTime: compares the processor time of two pieces of work. The claim is a ratio, so that it
// holds on a machine of any speed. The time of other processes and threads is left out.
#pragma once

#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <cstddef>
#include <limits>

// Returns the processor time, in seconds, that this thread spends in `work`.
template <class Work>
double processorTime(Work const& work)
{
    timespec start{}, end{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    work();
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    return static_cast<double>(end.tv_sec - start.tv_sec) +
           static_cast<double>(end.tv_nsec - start.tv_nsec) * 1e-9;
}

// Returns whether `work` takes at most `factor` times the processor time of `base`. Runs both in
// turns and compares the least times, because interrupts and cold caches only add time: three runs
// each, and up to three more while the claim does not hold.
template <class Base, class Work>
testing::AssertionResult takesAtMost(double factor, Base const& base, Work const& work)
{
    double baseTime = std::numeric_limits<double>::max();
    double workTime = std::numeric_limits<double>::max();
    for (int run = 0; run < 3 || (run < 6 && workTime > factor * baseTime); ++run) {
        baseTime = std::min(baseTime, processorTime(base));
        workTime = std::min(workTime, processorTime(work));
    }
    auto const result =
        workTime <= factor * baseTime ? testing::AssertionSuccess() : testing::AssertionFailure();
    return testing::AssertionResult(result)
           << workTime << " s and " << baseTime << " s: a ratio of " << workTime / baseTime;
}

// Returns whether the processor time of work is proportional to its size. `prepare(n)` returns the
// work of size n, a function that can run repeatedly; the preparation is not measured. Eight times
// the size takes about 8 times the time if it is linear, and 64 times if it is quadratic.
// range   `size` is large enough that constant costs do not hide quadratic ones, and small enough
//         that quadratic work of eight times the size ends within seconds.
template <class Prepare>
testing::AssertionResult takesLinearTime(size_t size, Prepare const& prepare)
{
    constexpr double kBetween = 30;
    return takesAtMost(kBetween, prepare(size), prepare(8 * size));
}
