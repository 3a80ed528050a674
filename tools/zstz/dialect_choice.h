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

/// Returns the name of a dialect with the switches that differ from it, as --dialect takes them.
std::string spell(ZStanzaDialect_6_0 const& dialect);

/// Returns the dialect of the template of a request, which is the dialect of the checked file
/// unless the request or the name of the template determines another.
ZStanzaDialect_6_0 chooseTemplateDialect(Request const& request,
                                         ZStanzaDialect_6_0 const& fileDialect);

/// Appends "; reads as D; say --dialect D" to the report of a file that a dialect refuses, if D
/// reads its contents: the dialect that the name of the file, or of the target of a link,
/// determines or, if the dialect "stanza" refuses the file, a dialect that fits the contents.
void addSuggestion(std::string const& path, std::string const& contents,
                   ZStanzaDialect_6_0 const& dialect, std::string& report);

/// Replaces the names of stanzas that are spelled as in a header of the dialect.
void resolveNames(Request& request);

/// Returns the contents of the file at `path`; empty if it cannot be read.
std::string readContents(std::string const& path);
