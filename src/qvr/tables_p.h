// tables_p: names of codesets and locales, built in and from the table directory.
//
// Subsystem: text services.  Stands on: qvr.h.
//
// Two layers: the tables of the directory that was last passed to qvr_set_dir, then the built-in
// ones. A name is resolved once in each, so names cannot form a loop.
#pragma once

#include <stdint.h>

#include <string>

namespace qvr {

// Longest accepted name of a codeset or locale, without the terminator.
constexpr size_t kMaxName = 127;

// Returns whether names must not contain `c`. A name becomes part of a path, and ICU takes the text
// after a comma for options.
constexpr bool isReserved(char c)
{
    return c == '/' || c == '\\' || c == ',';
}

// A resolved codeset name.
struct CodesetName {
    std::string name;       // as ICU or the converter file has it
    std::string directory;  // of the converter file; empty if ICU's own data has the codeset
    uint64_t generation;    // of that directory's tables: later tables may have other files
};

// Resolves a codeset's name. Throws std::bad_alloc.
CodesetName resolveCodeset(char const* name);

// Returns the name by which programs usually know a codeset; an unknown name unchanged. Throws
// std::bad_alloc.
std::string preferredCodesetName(char const* name);

// Returns the locale that an alias refers to, or the name itself. Throws std::bad_alloc.
std::string resolveLocale(char const* name);

}  // namespace qvr
