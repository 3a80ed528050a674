// failures: how zstz ends and what it says then.
#pragma once

#include <Z/ZLCString.h>

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

/// Returns the bytes of a string of the library.
std::string toStdString(ZLCString_6_0 const& string);

/// Returns `text` in double quotes, shortened when it is long.
std::string quote(std::string const& text);

/// Returns `text` as one line that a terminal can show: a tab becomes a blank, what is no printable
/// character a "?".
std::string toPrintable(std::string const& text);

/// Returns a number with the word for what is counted: "1 key", "2 keys".
std::string formatCount(size_t number, char const* singular, char const* plural);

/// Reports a failure on standard error, in one line; returns its code.
int report(Failure const& failure);

/// Returns what is to be said about an exception of the library, or of anything else, that ended
/// the work on `file`.
Failure describe(std::exception_ptr exception, std::string const& file);
