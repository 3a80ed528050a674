#include "transport/budget.h"

#include <errno.h>
#include <time.h>

#include <algorithm>
#include <random>

#include "transport/requests.h"

namespace zfleet {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstPause{5};
constexpr milliseconds kLongestPause{400};

std::minstd_rand& randomNumbers()
{
    thread_local std::minstd_rand numbers{std::random_device{}()};
    return numbers;
}

void sleepFor(Clock::duration time)
{
    auto const whole = std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
    timespec left{whole / 1'000'000'000, whole % 1'000'000'000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

}  // namespace

int64_t bootTime()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

Clock::duration randomPause(unsigned pauses)
{
    milliseconds const longest = std::min(kLongestPause, kFirstPause * (1 << std::min(pauses, 7u)));
    std::uniform_int_distribution<long> choose(longest.count() / 2 + 1, longest.count());
    return milliseconds(choose(randomNumbers()));
}

void Budget::pause(std::function<void(Clock::duration)> const& wait)
{
    Clock::duration const time = std::clamp(randomPause(pauses_++), Clock::duration::zero(),
                                            std::max(left(), Clock::duration::zero()));
    Clock::time_point const end = Clock::now() + time;
    if (wait)
        wait(time);
    sleepFor(std::max(end - Clock::now(), Clock::duration::zero()));
}

}  // namespace zfleet
