// request: the arguments and options of a command line.
#pragma once

#include <string>
#include <vector>

// Options that a verb does not have keep their defaults.
struct Request {
    std::string verb;
    std::string file;                // "-" is standard input, and standard output for changes
    std::vector<std::string> files;  // check, lint, hexdump
    std::string stanza;              // empty: any
    std::string key;                 // empty: any
    std::string value;
    bool hasValue = false;  // VALUE was passed; it may be empty

    // Options of the verbs that read or change configuration files.
    std::string dialect;           // empty: chosen by the tool
    std::string format = "plain";  // plain, json, sh or lines
    bool null = false;             // end each item of the output with a zero byte
    bool quiet = false;            // print only errors
    double wait = 2;               // seconds to wait for a busy file

    // Options of the verbs that change files.
    bool create = false;
    bool dryRun = false;       // print a unified diff instead of storing
    std::string backupSuffix;  // of the copy of the old file; empty: no copy
    bool normalise = false;    // store every line in one form
    bool replace = false;      // rename a new file over the old one
    bool raw = false;          // the value is spelled as in a line
    bool bare = false;         // set: the key is alone, without a separator and a value

    std::string as = "text";  // get: text, number or boolean
    bool all = false;         // get: every value; set, unset: all values of the key
    std::string fallback;     // get: the value of a missing key
    bool hasFallback = false;
    bool line = false;  // get: the numbers of the lines
    std::string oldValue;
    bool hasOldValue = false;
    std::string nth;   // set: the number of the value, from 1; empty: none
    std::string only;  // set: new or existing; empty: either
    bool first = false;
    std::string before;  // add: the value that follows
    bool hasBefore = false;
    std::string behind;  // add: the value above
    bool hasBehind = false;
    bool obfuscated = false;   // set, add: read the value from standard input
    bool wholeStanza = false;  // unset
    std::string newName;       // rename
    std::string text;          // comment
    bool above = false;        // comment: keep the existing comment
    bool off = false;          // comment: turn the lines of a key into comments
    bool on = false;           // comment: turn a comment into the line of a key
    std::string script;        // edit: empty or "-" for standard input
    bool check = false;        // fmt: change nothing

    std::string other;         // diff: the file B; merge: the other version
    bool asText = false;       // diff: by line
    std::string base;          // merge
    std::string path;          // merge: the name of the file in reports; empty: FILE
    std::string templateFile;  // lint, get: the template; empty: none
    std::string shell;         // completion

    std::string action;    // java: get, set, list or check
    std::string javaFrom;  // convert: either this or javaTo
    std::string javaTo;
    bool dropComments = false;  // java, convert: even if comments are lost
    bool overwrite = false;     // convert: even if the target exists

    std::string lockName;  // lock
    std::string lockDir;   // lock: empty for the working directory
    bool read = false;
    bool write = false;
    bool show = false;
    double lockWait = 0;  // seconds
    std::vector<std::string> command;
    bool hasSetTablesVariable = false;  // lock: the command must not inherit QVRDIR
};
