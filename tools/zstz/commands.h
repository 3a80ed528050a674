// commands: the verbs of zstz, one function each.
//
// A verb returns the exit code, or throws a Failure or an exception of the library. A verb stores
// its change before it returns; if it throws, the file is unchanged.
#pragma once

#include <string>
#include <vector>

// The arguments and options of the command line.
struct Request {
    std::string file;
    std::vector<std::string> files;  // check, lint, hexdump
    std::string stanza;              // list: empty for all stanzas
    std::string key;
    std::string value;
    std::string as = "text";       // get: text, number or boolean
    std::string format = "plain";  // lint: plain or json
    bool all = false;              // get: every value; set, unset: all values of the key
    bool obfuscated = false;       // set, add: read the value from standard input
    bool wholeStanza = false;      // unset
    bool replace = false;          // set, add, unset: rename a new file over the old one
    bool normalise = false;        // set, add, unset, convert: store every line in one form
    std::string action;            // java: get, set, list or check
    std::string javaFrom;          // convert: either this or javaTo
    std::string javaTo;
    bool dropComments = false;  // java, convert: even if comments are lost
    bool overwrite = false;     // convert: even if the target exists
    std::string lockName;       // lock
    std::string lockDir;        // lock: empty for the working directory
    bool read = false;
    bool write = false;
    bool show = false;
    double wait = 0;  // lock: seconds
    std::vector<std::string> command;
    bool hasSetTablesVariable = false;  // lock: the command must not inherit QVRDIR
};

/// Prints the last value of a key, or every value, one per line.
int runGet(Request const& request);

/// Replaces the values of a key by a single value.
int runSet(Request const& request);

/// Adds a value to a key, unless the key already has it.
int runAdd(Request const& request);

/// Removes a key, or a whole stanza.
int runUnset(Request const& request);

/// Prints the stanza names in file order.
int runStanzas(Request const& request);

/// Prints the key names of a stanza in file order.
int runKeys(Request const& request);

/// Prints stanzas, keys and values in file order; obfuscated values are masked.
int runList(Request const& request);

/// Loads each file, prints its number of stanzas, keys and values, and reports each line that
/// storing would not keep. Continues after a file that cannot be loaded; returns the highest code.
int runCheck(Request const& request);

/// Prints every problem of each file. Continues after a file that cannot be read; returns the
/// highest code.
int runLint(Request const& request);

/// Prints files as hexadecimal dumps; "-" is standard input. Continues after a file that cannot be
/// read; returns the highest code.
int runHexdump(Request const& request);

/// Reads or changes a Java property file: get, set, list or check.
int runJava(Request const& request);

/// Converts a Java property file to a stanza, or a stanza to a Java property file. Refuses an entry
/// that would not read back unchanged.
int runConvert(Request const& request);

/// Runs a command under a process lock and returns the exit code of the command, or prints the
/// state of the lock.
int runLock(Request const& request);
