// java_file: Java property files as the verbs of zstz read and change them.
//
// The library reads such a file without a word about lines that it does not understand, and writes
// it without comments and in an order of its own. What would be lost that way is found here. Text
// is UTF-8, in every locale.
#pragma once

#include <Z/ZJavaProperties.h>

#include <map>
#include <string>
#include <vector>

#include "edit_lock.h"

// A line that storing would lose.
struct LostLine {
    size_t number;  // counted from 1
    std::string text;
    char const* problem;
    bool isComment;  // else it has, or should have, an entry that is not read
};

class JavaFile {
public:
    /// throws  Failure, and what loading throws.
    explicit JavaFile(std::string const& path);

    std::map<std::string, std::string> const& entries() const { return entries_; }
    std::vector<LostLine> const& lost() const { return lost_; }

private:
    std::map<std::string, std::string> entries_;
    std::vector<LostLine> lost_;
};

/// Returns what is to be said about a line that is not read.
std::string describeLostLine(std::string const& path, LostLine const& line);

/// Says which key or value a Java file could not give back.
/// throws  Failure.
void checkJavaEntry(std::string const& key, std::string const& value);

/// Replaces the file at `path` by the entries, and makes sure that they read back.
/// range   every entry has passed checkJavaEntry().
/// throws  Failure, and what storing throws.
void storeJavaFile(std::string const& path, std::map<std::string, std::string> const& entries);
