// commands: the verbs of zstz, one function each.
//
// A function `run…` returns the exit code. A function `apply…` changes a loaded file, which its
// caller stores; `prepare…` comes before the file is loaded. All throw a Failure or an exception of
// the library; files are unchanged then.
#pragma once

#include "request.h"

class EditedFile;

/// A merge driver of git that fails exits with this and the exit code: git ends the merge then.
/// With a smaller code it would take OURS as the result, with conflicts.
inline constexpr int kStopsGit = 128;

/// Prints the last value of a key, or every value, one per line.
int runGet(Request const& request);

/// Read the value and check the arguments of set, add, unset and rename.
void prepareValue(Request& request);
void prepareUnset(Request& request);
void prepareRename(Request& request);

/// Replaces the value of a key, or one of its values; creates stanza and key.
void applySet(EditedFile& file, Request const& request);

/// Adds a value to a key, unless the key already has it.
void applyAdd(EditedFile& file, Request const& request);

/// Removes a value, a key or a stanza.
void applyUnset(EditedFile& file, Request const& request);

/// Renames a key or a stanza in place.
void applyRename(EditedFile& file, Request const& request);

/// Sets the comment above a key, a stanza or the file, or turns the lines of a key into comments
/// and back.
void prepareComment(Request& request);
void applyComment(EditedFile& file, Request const& request);

/// Makes the changes of a script: all of them, or none.
int runEdit(Request const& request);

/// Stores a file in one style, or checks it.
int runFmt(Request const& request);

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

/// Prints the changes from one file to another, by stanza and key. Returns exitDiffers if there are
/// any.
int runDiff(Request const& request);

/// Merges the changes from a base to another version into a file. Returns exitDiffers if there are
/// conflicts.
int runMerge(Request const& request);

/// Prints the changes of a file as they happen, without an end.
int runWatch(Request const& request);

/// Prints the keys of a template, with types, defaults and help.
int runDoc(Request const& request);

/// Prints the names of the dialects, or the dialect of a file and the reason.
int runDialects(Request const& request);

/// Prints the help of the tool or of a verb.
int runHelp(Request const& request);

/// Prints a script that completes command lines in a shell, or the candidates for the last word of
/// a command line.
int runCompletion(Request const& request);

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
