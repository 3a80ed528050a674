// MergeCase: a row of a table of merges.
#pragma once

#include <string>

// Three versions of a file and their merge.
struct MergeCase {
    char const* name;
    std::string base;
    std::string ours;
    std::string theirs;
    std::string merged;
};
