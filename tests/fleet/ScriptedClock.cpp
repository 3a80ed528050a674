#include "ScriptedClock.h"

#include <grpc/support/time.h>
#include <time.h>

#include <algorithm>
#include <atomic>

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

extern "C" {
gpr_timespec __real_gpr_time_from_millis(int64_t time, gpr_clock_type clock);
gpr_timespec __wrap_gpr_time_from_millis(int64_t time, gpr_clock_type clock);
int __real_clock_gettime(clockid_t clock, timespec* time);
int __wrap_clock_gettime(clockid_t clock, timespec* time);
int __real_clock_nanosleep(clockid_t clock, int flags, timespec const* time, timespec* left);
int __wrap_clock_nanosleep(clockid_t clock, int flags, timespec const* time, timespec* left);
// std::chrono::steady_clock::now()
int64_t __real__ZNSt6chrono3_V212steady_clock3nowEv();
int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv();
}

namespace {

std::atomic<bool> isActive{false};
std::atomic<bool> isStepped{false};
std::atomic<bool> canTimeOut{false};
std::atomic<int64_t> longestCall{0};  // milliseconds
std::atomic<int64_t> start{0};        // nanoseconds
std::atomic<int64_t> steps{0};        // nanoseconds
std::atomic<int64_t> suspension{0};   // seconds

}  // namespace

// The library passes the time of each call.
gpr_timespec __wrap_gpr_time_from_millis(int64_t time, gpr_clock_type clock)
{
    if (!isActive)
        return __real_gpr_time_from_millis(time, clock);
    longestCall = std::max<int64_t>(longestCall, time);
    if (!canTimeOut)
        return gpr_inf_future(clock);
    steps += nanoseconds(milliseconds(time)).count();
    return __real_gpr_time_from_millis(time, clock);
}

// The library sleeps between calls.
int __wrap_clock_nanosleep(clockid_t clock, int flags, timespec const* time, timespec* left)
{
    if (!isStepped)
        return __real_clock_nanosleep(clock, flags, time, left);
    steps += int64_t{time->tv_sec} * 1'000'000'000 + time->tv_nsec;
    return 0;
}

// The library counts the time of leases.
int __wrap_clock_gettime(clockid_t clock, timespec* time)
{
    int const rc = __real_clock_gettime(clock, time);
    if (clock == CLOCK_BOOTTIME)
        time->tv_sec += suspension;
    return rc;
}

int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv()
{
    return isStepped ? start + steps : __real__ZNSt6chrono3_V212steady_clock3nowEv();
}

ScriptedClock::ScriptedClock(Progress progress)
{
    start = __real__ZNSt6chrono3_V212steady_clock3nowEv();
    steps = 0;
    longestCall = 0;
    canTimeOut = false;
    isStepped = progress == stepped;
    isActive = true;
}

ScriptedClock::~ScriptedClock()
{
    isActive = false;
    isStepped = false;
}

void ScriptedClock::setTimeouts(bool areAllowed)
{
    canTimeOut = areAllowed;
}

milliseconds ScriptedClock::takeLongestCall()
{
    return milliseconds(longestCall.exchange(0));
}

milliseconds ScriptedClock::elapsed()
{
    return std::chrono::duration_cast<milliseconds>(nanoseconds(steps));
}

void ScriptedClock::suspend(std::chrono::seconds time)
{
    suspension += time.count();
}
