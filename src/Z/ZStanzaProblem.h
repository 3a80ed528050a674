// ZStanzaProblem: a complaint about a configuration file: its place, and what to do.
//
// Subsystem: properties.  Stands on: ZObject, ZLCString.
//
// ZStanzaFileProperties_6_0::findProblems() returns a list of them.
// Ownership: strings are copied.
// Threads: immutable, except for assignment.
#pragma once

#include <stdint.h>

#include "ZLCString.h"
#include "ZObject.h"

/// One complaint about a file. In a dialect other than "stanza", this is a line that a load, or the
/// programs that use the format, refuse or never read; in a stanza file, a line that a load
/// refuses, or a line that a load accepts and a store would not keep.
class ZStanzaProblem_6_0 : public ZObject_6_0 {
public:
    enum Kind : int {
        error = 1,  // load() refuses the file, or the programs that use the format do
        note = 2,   // load() accepts the line; a store would change or drop it, even with the
                    // attribute keepComments, but not with keepLines; or other programs read it
                    // as several lines. In other dialects, load() keeps the line and does not
                    // read it
    };

    /// The fault of a line or of the file. The numbers are stable; a later version may add some.
    enum Cause : int {
        unclosedHeader = 1,       // error: a header without "]"
        duplicateStanza = 2,      // error: a second header of a stanza
        notAnEntry = 3,           // error: a line without "="
        missingKey = 4,           // error: a line that starts with "="
        keyOutsideStanza = 5,     // error: a key line before the first header
        byteOrderMark = 6,        // error: the file starts with the byte order mark of UTF-8
        utf16 = 7,                // error: the file is UTF-16; nothing else is listed
        unreadableCompanion = 8,  // error, at the entry that names the companion
        damagedCompanion = 9,     // error, at the entry that names the companion
        splitLine = 10,           // a line of more than 8190 bytes; error if a part is refused
        zeroByte = 11,            // the line is read up to a zero byte; error if that is refused
        droppedLine = 12,         // note: "key =", next to values of the key
        movedLine = 13,           // note: the values of a key are not in adjacent lines
        textAfterHeader = 14,     // note: ignored text after the "]" of a header
        spacing = 15,             // note: whitespace; at the first such line, for all of them
        lineEnding = 16,          // note: CR LF; at the first such line, for all of them
        missingNewline = 17,      // note: the last line does not end with a newline
        omitted = 18,             // the number of further problems, which are not listed
        reservedEntry = 19,       // note: a store removes the entry that names the companion, which
                                  // has no values, or changes it, since another file has the same

        // In files of other dialects.
        invalidHead = 20,    // error: the name in a header
        invalidKey = 21,     // error: a key that the format does not allow
        openQuote = 22,      // error: a quote that is not closed
        unknownEscape = 23,  // error: an escape that the format refuses
        lineTooLong = 24,    // error: a line of more than 1 MiB
        noHeadOrKey = 25,    // error: there are only lines that are passed over
        passedOver = 26,     // note: a line that programs of the format ignore
        shadowed = 27,       // note: a line of a key that is ignored because of another
        directive = 28,      // note: a line such as "!include", which is not followed

        // Differences from a template.
        unknownStanza = 29,    // error: a header whose stanza the template does not have
        unknownKey = 30,       // error: a key that the template does not have
        invalidValue = 31,     // error: a value of another type, or outside the allowed ones
        missingRequired = 32,  // error: a required key that the file does not have

        // In files of other dialects: programs that use the format refuse the file, but load()
        // accepts it (zDialectRefusals), or they read the line as something else.
        refusedLine = 33,        // error: a line that they cannot parse
        refusedRepetition = 34,  // error: a header or key that is repeated
        quotedInPart = 35,       // note: a value with quotes that are not around all of it

        // In files of other dialects.
        loneReturn = 36,      // error: a carriage return without a newline after it
                              // (zDialectReturns). In a stanza file, note: the line does not end
                              // there; at the first such line, for all of them
        repeatedHeader = 37,  // note: a header that is repeated; programs may read only the first
                              // or the last of the stanzas (zDialectJoinedHeads)

        // In a stanza file.
        looksContinued = 38,  // note: a key that is indented below another key

        // In files of other dialects.
        continuedComment = 39,  // note: a line that belongs to the comment above it, whose last
                                // character is a backslash; programs may read it as a header or key
        mixedLines = 40         // note: the key has lines with and without a value
    };

    /// Creates a record.
    /// owns    the strings are copied; null is the empty string.
    ZStanzaProblem_6_0(unsigned long line, unsigned long column, Kind kind, Cause cause,
                       char const* stanza, char const* key, char const* text);
    ZStanzaProblem_6_0(ZStanzaProblem_6_0 const& other);
    ZStanzaProblem_6_0& operator=(ZStanzaProblem_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStanzaProblem_6_0() override;

    /// Orders by line, column, kind and cause, then by the bytes of text, stanza and key. Any other
    /// object is ordered by address.
    int compare(ZObject_6_0 const& other) const override;
    ZObject_6_0* clone() const override;

    /// Returns the number of the line, counted from 1 as an editor counts: by newlines. A load
    /// counts the parts of a line of more than 8190 bytes.
    unsigned long line() const { return line_; }

    /// Returns the column in that line.
    /// units   characters, counted from 1; a tab is one character. A valid sequence of UTF-8 is one
    ///         character in any locale, and so is every byte that belongs to none.
    unsigned long column() const { return column_; }

    Kind kind() const { return kind_; }
    Cause cause() const { return cause_; }

    /// Returns the stanza that the line is in; empty above the first header, and if the cause is
    /// listed once for the file.
    ZLCString_6_0 const& stanza() const { return stanza_; }

    /// Returns the key of a line that a store drops or moves, that another line outvotes, or that
    /// is refused as repeated; else empty.
    ZLCString_6_0 const& key() const { return key_; }

    /// Returns the message number of the exception that a load throws because of an error: 44, or
    /// 43 if the companion cannot be read; 0 for a note, and for an error that does not prevent a
    /// load.
    uint32_t messageNumber() const;

    /// Returns "WHAT; HELP": the problem and the remedy, in one line.
    /// units   the bytes of the file in it are unchanged: they may be unprintable, or not valid in
    ///         the local codeset.
    ZLCString_6_0 const& text() const { return text_; }

private:
    unsigned long line_;
    unsigned long column_;
    Kind kind_;
    Cause cause_;
    ZLCString_6_0 stanza_;
    ZLCString_6_0 key_;
    ZLCString_6_0 text_;
};
