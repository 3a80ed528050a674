// failures: how zstz ends and what it says then.
#pragma once

#include <exception>
#include <string>

// How zstz ends; scripts test these numbers.
enum ExitCode {
    exitDone = 0,
    exitNotFound = 1,
    exitUsage = 2,
    exitInvalidData = 3,
    exitNoAccess = 4,
    exitLocked = 5,
    exitInvalidValue = 6,
    exitRefused = 7,
    exitInternal = 9
};

// Ends a verb: the exit code, and one line that says what is wrong and what to do.
struct Failure {
    ExitCode code;
    std::string text;
};

/// Returns `text` in double quotes as one line: what is no printable character becomes "?".
std::string quoted(std::string const& text);

/// Returns what is to be said about an exception of the library, or of anything else.
Failure describe(std::exception_ptr exception);
