// failures: exit codes and error messages of zstz.
#pragma once

#include <Z/ZLCString.h>

#include <exception>
#include <string>
#include <vector>

// Exit codes; scripts test these numbers. docs/failures.md explains them.
enum ExitCode {
    exitDone = 0,
    exitNotFound = 1,
    exitUsage = 2,
    exitInvalidData = 3,
    exitNoAccess = 4,
    exitLocked = 5,
    exitInvalidValue = 6,
    exitRefused = 7,
    exitDiffers = 8,
    exitInternal = 9
};

// An error and its remedy: the action that the user can take.
struct Problem {
    std::string text;
    std::string remedy;
};

// An error that ends a verb. It is printed as "zstz: WHERE: problem; remedy".
struct Failure {
    ExitCode code;
    std::string where;  // path, path and line, lock or argument; empty: not printed
    Problem problem;
    std::vector<Failure> further =
        {};  // the other errors of the file, printed in lines of their own
};

/// Converts a string of the library; the bytes are unchanged.
std::string toStdString(ZLCString_6_0 const& string);

/// Returns `text` in double quotes, cut to 60 bytes with "..." if it is longer.
std::string quote(std::string const& text);

/// Returns `text` as a word of a command in a remedy: in double quotes unless it consists of
/// letters, digits and plain punctuation.
std::string shellWord(std::string const& text);

/// Returns `text` as one line that is safe to print on a terminal: replaces tabs by spaces and
/// other unprintable characters by "?".
std::string toPrintable(std::string const& text);

/// Returns `key "KEY" in [STANZA]`.
std::string nameKey(std::string const& key, std::string const& stanza);

/// Return `PATH:LINE` and `PATH:LINE:COLUMN`.
std::string nameLine(std::string const& path, size_t number);
std::string nameLine(std::string const& path, size_t number, size_t column);

/// Returns a number with the noun in its number: "1 key", "2 keys".
std::string formatCount(size_t number, char const* singular, char const* plural);

/// The name of the program in messages: "zstz", unless a program with other verbs sets another.
void setToolName(char const* name);
char const* toolName();

/// Prints a failure, and the further errors, as one line each on standard error; returns its code.
int report(Failure const& failure);

/// Describes a file that open() or fopen() could not open for reading.
Failure describeOpenError(std::string const& path, int error);

/// Converts an exception that ended the work on `file`, of the library or any other, to a failure.
Failure describe(std::exception_ptr exception, std::string const& file);
