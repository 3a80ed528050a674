// finding: a line that is invalid in its dialect, or that the dialect passes over.
#pragma once

#include <stdint.h>

namespace zdialects {

enum class Fault : uint8_t {
    utf16,
    byteOrderMark,
    zeroByte,
    lineTooLong,
    unclosedHead,
    invalidHead,
    repeatedHead,
    keyAboveHeads,
    noSeparator,
    noKey,
    invalidKey,
    blankAtSeparator,
    openQuote,
    unknownEscape,
    directive,
    loneReturn,
    noHeadOrKey
};

struct Finding {
    Fault fault;
    bool isError;   // the file is refused; else the line is passed over
    uint32_t at;    // position of the fault
    uint32_t line;  // position of its line, or of the first of several lines that are read as one
};

// Receives the findings in the order of their lines. noHeadOrKey is the last, at the first line
// that is passed over.
class FindingSink {
public:
    FindingSink() = default;
    FindingSink(FindingSink const&) = delete;
    FindingSink& operator=(FindingSink const&) = delete;
    virtual ~FindingSink() = default;

    /// May throw, which ends the reading.
    virtual void found(Finding const& finding) = 0;
};

}  // namespace zdialects
