// Reports: what a piece of code writes to standard error, and what a report looks like.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <string>

// Returns what `action` writes to standard error.
template <class Action>
std::string reportOf(Action action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

// The line that tells reports of several threads apart.
inline std::string threadLine()
{
    return " Thread: " + std::to_string(static_cast<int>(pthread_self())) + "\n";
}

// The report of an exception raised at `file`, `line`.
inline std::string exceptionReport(std::string const& name, std::string const& file, int line,
                                   int number, std::string const& text)
{
    return "Exception: " + name + "\n File: \"" + file + "\" " + std::to_string(line) +
           "\n Error: " + std::to_string(number) + "\n" + threadLine() + "NUM_MSGS = 55\n" + text;
}
