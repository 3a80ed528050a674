// complaint: one complaint about a file, and its text.
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>

namespace zproblems {

// As ZStanzaProblem_6_0::Cause, which has the meanings.
enum Cause : int {
    unclosedHeader = 1,
    duplicateStanza = 2,
    notAnEntry = 3,
    missingKey = 4,
    keyOutsideStanza = 5,
    byteOrderMark = 6,
    utf16 = 7,
    unreadableCompanion = 8,
    damagedCompanion = 9,
    splitLine = 10,
    zeroByte = 11,
    droppedLine = 12,
    movedLine = 13,
    textAfterHeader = 14,
    spacing = 15,
    lineEnding = 16,
    missingNewline = 17,
    omitted = 18,
    reservedEntry = 19,
    invalidHead = 20,
    invalidKey = 21,
    openQuote = 22,
    unknownEscape = 23,
    lineTooLong = 24,
    noHeadOrKey = 25,
    passedOver = 26,
    shadowed = 27,
    directive = 28,
    unknownStanza = 29,
    unknownKey = 30,
    invalidValue = 31,
    missingRequired = 32,
    refusedLine = 33,
    refusedRepetition = 34,
    quotedInPart = 35,
    loneReturn = 36,
    repeatedHeader = 37,
    looksContinued = 38,
    continuedComment = 39,
    mixedLines = 40
};

// Line and column, counted from 1.
struct Place {
    size_t line = 0;
    size_t column = 0;
};

struct Complaint {
    Place place;
    Cause cause;
    bool isError;
    std::string_view detail;  // borrowed: the line, the key or the companion; empty if not shown
    size_t count = 1;         // of such lines, for a cause that is listed once for a file
    std::string_view stanza = {};  // borrowed, as the key
    std::string_view key = {};
    bool isForeign = false;   // in a file of another dialect
    char const* reason = "";  // replaces "^" in the message

    /// Returns whether a load refuses the file because of it.
    bool refusesLoad() const { return isError && (cause < unknownStanza || cause == loneReturn); }
};

/// Returns the text in quotes, cut between two characters if it is long.
std::string quote(std::string_view text);

/// Returns "WHAT; HELP".
std::string textOf(Complaint const& complaint);

}  // namespace zproblems
