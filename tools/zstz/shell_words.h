// shell_words: splits a line into words as a shell does, without expansions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Stores the words of a line in `words` and returns true. Single quotes, double quotes and
/// backslashes quote; "#" at the start of a word begins a comment. Returns false if a quote is not
/// closed, or if a backslash ends the line.
bool splitShellWords(std::string_view line, std::vector<std::string>& words);
