// tables_p: the names by which codesets and locales go, built in and from the table directory.
//
// Subsystem: text services.  Stands on: qvr.h.
//
// Two layers: the tables of the directory last given to qvr_set_dir, and the built-in ones behind
// them. A name goes through both, once each, so that no loop of names can arise.
// Threads: any; the directory's tables are replaced as a whole under one lock.
#pragma once

#include <stdint.h>

#include <string>

namespace qvr {

// Longest name of a codeset or locale that is looked at, terminator not counted.
constexpr size_t kMaxName = 127;

// Whether a name cannot hold `c`: a name becomes part of a path, and ICU takes what stands behind a
// comma for options.
constexpr bool isReserved(char c)
{
    return c == '/' || c == '\\' || c == ',';
}

// What a codeset name stands for.
struct CodesetName {
    std::string name;       // what ICU, or the converter file, calls it
    std::string directory;  // of the converter file; empty when ICU's own data has the codeset
    uint64_t generation;    // of that directory's tables: another one may hold other files
};

// Resolves a codeset's name. Throws std::bad_alloc.
CodesetName resolveCodeset(char const* name);

// Returns the name by which programs usually know a codeset; an unknown one as it is. Throws
// std::bad_alloc.
std::string preferredCodesetName(char const* name);

// Returns what the locale name stands for, or the name itself. Throws std::bad_alloc.
std::string resolveLocale(char const* name);

}  // namespace qvr
