// Reports: captures the text that code writes to standard error, and composes expected reports.
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

// The line that distinguishes the reports of threads.
inline std::string threadLine()
{
    return " Thread: " + std::to_string(static_cast<int>(pthread_self())) + "\n";
}

// The report of an exception thrown at `file`, `line`.
inline std::string exceptionReport(std::string const& name, std::string const& file, int line,
                                   int number, std::string const& text)
{
    return "Exception: " + name + "\n File: \"" + file + "\" " + std::to_string(line) +
           "\n Error: " + std::to_string(number) + "\n" + threadLine() + "NUM_MSGS = 55\n" + text;
}
