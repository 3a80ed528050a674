// commands: the verbs of zstz. Each does its work and returns the exit code, or throws: a Failure,
// or what the library throws. A change is stored before the verb returns; a verb that throws
// changes nothing.
#pragma once

#include <string>
#include <vector>

// What the command line says.
struct Request {
    std::string file;
    std::vector<std::string> files;  // of check and hexdump
    std::string stanza;              // of list: empty for all
    std::string key;
    std::string value;
    std::string as = "text";   // of get: text, number or boolean
    bool all = false;          // get: every value; set, unset: although there are several values
    bool obfuscated = false;   // the value comes from standard input
    bool wholeStanza = false;  // of unset
    bool replace = false;      // store by renaming a new file over the old one
    std::string action;        // of java: get, set, list or check
    std::string javaFrom;      // of convert: one of the two
    std::string javaTo;
    bool dropComments = false;  // java, convert: although comments are lost
    bool overwrite = false;     // convert: although the target is there
    std::string lockName;       // of lock
    std::string lockDir;        // empty: the working directory
    bool read = false;
    bool write = false;
    bool show = false;
    double wait = 0;  // seconds
    std::vector<std::string> command;
    bool hasSetTablesVariable = false;  // QVRDIR is the tool's own and not for the command
};

/// Prints the last value of a key, or each of its values on a line of its own.
int runGet(Request const& request);

/// Makes a value the only one of a key.
int runSet(Request const& request);

/// Adds a value to those of a key, unless it has an equal one.
int runAdd(Request const& request);

/// Removes a key, or a whole stanza.
int runUnset(Request const& request);

/// Prints the names of the stanzas, in file order.
int runStanzas(Request const& request);

/// Prints the names of the keys of a stanza, in file order.
int runKeys(Request const& request);

/// Prints stanzas, keys and values in file order, obfuscated values masked.
int runList(Request const& request);

/// Loads each file and says what is in it, and what storing it would lose. Goes on behind a file
/// that cannot be loaded; the code is the highest of all files.
int runCheck(Request const& request);

/// Prints the bytes of files, "-" being standard input, as hexadecimal dumps. Goes on behind a file
/// that cannot be read; the code is the highest of all files.
int runHexdump(Request const& request);

/// Reads or changes a Java property file, as the action says.
int runJava(Request const& request);

/// Makes a stanza of a Java property file, or the other way round; refuses what the result could
/// not give back.
int runConvert(Request const& request);

/// Runs a command under a process lock and returns the command's exit code, or prints who holds the
/// lock.
int runLock(Request const& request);
