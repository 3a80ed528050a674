// shell_words: splits text into words as a shell does, without expansions.
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>
#include <vector>

// The words of a line, which a quote can continue in the lines below.
struct ShellLine {
    enum class Fault { none, openQuote, backslashAtEnd };

    std::vector<std::string> words;
    size_t end = 0;  // position after the newline
    Fault fault = Fault::none;
    size_t faultAt = 0;  // position of the quote or backslash
};

/// Reads the line of `text` that begins at `begin`. Single quotes, double quotes and backslashes
/// quote; "#" at the start of a word begins a comment. A quoted word can have newlines; a carriage
/// return before them is dropped, and in double quotes a backslash and the newline after it.
/// Without quotes, no backslash can end a line.
ShellLine readShellLine(std::string_view text, size_t begin);
