// java_file: loads, checks and stores Java property files for the verbs of zstz.
//
// The library silently skips invalid lines when it reads such a file, and writes the file without
// comments and in another order. This module finds the lines that would be lost. Text is UTF-8 in
// every locale.
#pragma once

#include <Z/ZJavaProperties.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "edit_lock.h"
#include "failures.h"

// A line that storing would lose.
struct LostLine {
    size_t number;  // counted from 1
    std::string text;
    Problem problem;
    bool isComment;  // false: an entry or an invalid line that is not read
};

class JavaFile {
public:
    /// throws  Failure; else as ZJavaProperties_6_0::load().
    explicit JavaFile(std::string const& path);

    std::map<std::string, std::string> const& entries() const { return entries_; }
    std::vector<LostLine> const& lost() const { return lost_; }

private:
    std::map<std::string, std::string> entries_;
    std::vector<LostLine> lost_;
};

/// Describes a lost line.
Failure describeLostLine(ExitCode code, std::string const& path, LostLine const& line);

/// The characters that end a key in a line of a Java file, or start an escape.
inline constexpr std::string_view kEndsOfJavaKeys = " \t\v\f\\:=\n\r";

/// Returns whether a line of a Java file that starts with the key reads back as the key.
bool isJavaKey(std::string const& key);

/// Refuses a key or value that would not read back unchanged from a Java file.
/// throws  Failure.
void checkJavaEntry(std::string const& path, std::string const& key, std::string const& value);

/// Replaces the contents of the file at `path` by `entries` and checks that they read back.
/// range   every entry has passed checkJavaEntry().
/// throws  Failure; else as ZJavaProperties_6_0::store().
void storeJavaFile(std::string const& path, std::map<std::string, std::string> const& entries);
