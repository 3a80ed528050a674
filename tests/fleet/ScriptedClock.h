// ScriptedClock: the time of a program's calls to a cluster passes in steps, not with the load of
// the machine.
//
// In a program that is linked with fleet_scripted_clock(), and as long as a clock exists, a call
// waits for its reply without a limit, unless the test permits it to time out. The clock records
// the time that the library has set for a call. A stepped clock advances only with pauses between
// calls, which take no time, and with calls that time out.
#pragma once

#include <chrono>

class ScriptedClock {
public:
    enum Progress { real, stepped };

    explicit ScriptedClock(Progress progress);
    ScriptedClock(ScriptedClock const&) = delete;
    ScriptedClock& operator=(ScriptedClock const&) = delete;
    ~ScriptedClock();

    /// Sets whether the next calls time out if they get no reply.
    /// threads any.
    static void setTimeouts(bool canTimeOut);

    /// Returns the longest time that was set for a call since the last call of this function.
    static std::chrono::milliseconds takeLongestCall();

    /// Returns the time that has passed in steps since the clock was created.
    static std::chrono::milliseconds elapsed();

    /// Advances only the clock of leases, as a suspension of the machine does. The advance lasts
    /// longer than the object.
    static void suspend(std::chrono::seconds time);
};
