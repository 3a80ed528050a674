// measuring: times of a fleet benchmark, and its other machines.
#pragma once

#include <OwnProgram.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

/// Returns the time of a clock that all processes of the machine share.
/// units   milliseconds.
inline double milliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

template <class Work>
double timeOf(Work const& work)
{
    double const start = milliseconds();
    work();
    return milliseconds() - start;
}

/// range   not empty.
inline double medianOf(std::vector<double> times)
{
    auto const middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

template <class Value>
void sendTo(int fd, Value const& value)
{
    if (write(fd, &value, sizeof value) != static_cast<ssize_t>(sizeof value))
        exit(1);
}

/// Returns a value from a pipe. Ends the process at the end of the pipe.
template <class Value>
Value receiveFrom(int fd)
{
    Value value{};
    auto* const bytes = reinterpret_cast<char*>(&value);
    for (size_t length = 0; length < sizeof value;) {
        ssize_t const count = read(fd, bytes + length, sizeof value - length);
        if (count <= 0)
            exit(1);
        length += static_cast<size_t>(count);
    }
    return value;
}

// Another process of this program, in the role of another machine. It ends with this object.
class OtherMachine {
public:
    OtherMachine(char const* role, std::string const& argument, std::string const& more = {})
        : program_(role, argument.c_str(), more.c_str())
    {
    }
    OtherMachine(OtherMachine&& other) noexcept : program_(other.program_)
    {
        other.program_.id = 0;
    }
    OtherMachine& operator=(OtherMachine const&) = delete;
    ~OtherMachine()
    {
        if (program_.id <= 0)
            return;
        close(program_.to);
        close(program_.from);
        kill(program_.id, SIGKILL);
        waitpid(program_.id, nullptr, 0);
    }

    pid_t id() const { return program_.id; }

    void go() const { sendTo(program_.to, 'g'); }

    template <class Value>
    Value receive() const
    {
        return receiveFrom<Value>(program_.from);
    }

private:
    OwnProgram program_;
};
