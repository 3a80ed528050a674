// dialect_choice: the format of a file.
#pragma once

#include <Z/ZStanzaDialect.h>

#include <string>

#include "request.h"

/// Returns the dialect of the file at `path`: the value of --dialect, else of the variable
/// ZSTZ_DIALECT, else the dialect that the name of the file determines, else "stanza". Stores the
/// reason of the choice, a literal, unless `reason` is null. Two formats have names that end with
/// ".service": the contents decide, which are read from `path` unless `contents` is not null.
/// throws  Failure if the variable has no dialect.
ZStanzaDialect_6_0 chooseDialect(Request const& request, std::string const& path,
                                 char const** reason = nullptr,
                                 std::string const* contents = nullptr);

/// Appends "; reads as D; say --dialect D" to the report of a file that the dialect "stanza"
/// refuses, if a dialect D reads its contents.
void addSuggestion(std::string const& contents, std::string& report);

/// Returns the contents of the file at `path`; empty if it cannot be read.
std::string readContents(std::string const& path);

/// Refuses files of another dialect than "stanza", for the verbs that do not support it.
/// throws  Failure; as chooseDialect().
void requireStanzaDialect(Request const& request);
