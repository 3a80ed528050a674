// line_reader: the lines of a file in a dialect, and the invalid ones.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "../lines/line.h"
#include "../lines/name_hash.h"
#include "finding.h"
#include "heads.h"
#include "logical_line.h"
#include "values.h"

namespace zdialects {

class LineReader {
public:
    /// range   `sink` may be null. The arguments outlive the object.
    LineReader(Switches const& switches, Characters const& characters, std::string_view text,
               std::vector<zlines::Line>& lines, FindingSink* sink)
        : switches_(switches),
          characters_(characters),
          joining_(switches, characters),
          scanner_(switches, characters, text),
          text_(text),
          lines_(lines),
          sink_(sink)
    {
    }

    /// Appends all lines. Returns whether they are valid. The file is invalid, too, if it has lines
    /// that are passed over, but no header and no key.
    bool read();

private:
    // Indexes of a key in the characters of the line.
    struct Key {
        size_t begin;
        size_t end;
    };

    bool isText(size_t begin);
    void readLine();
    void readLogicalLine();
    size_t unquotedReturn(size_t begin, zlines::Line const* value) const;
    void refuseReturn(size_t at, size_t line, size_t count);
    void readMarked(size_t at);
    bool cutComment(size_t at);
    bool takeIndented(size_t at);
    bool readHead(size_t at);
    size_t readSubsections(size_t at);
    void takeHead(Head const& head, size_t at);
    void readKey(size_t at);
    void readSubsectionKey(size_t at);
    void readSeparated(Key key, size_t separator);
    void readNoName(size_t at);
    void addAlone(Key key);
    bool isBelowHeads(size_t at);
    Key withoutMarkers(std::string_view chars, Key key) const;

    void refuse(Fault fault, size_t at) { report(fault, true, at); }
    void passOver(Fault fault, size_t at) { report(fault, false, at); }
    void report(Fault fault, bool isError, size_t at);
    void report(Finding finding);
    void append(zlines::LineKind kind, size_t name, size_t nameEnd, size_t value, size_t valueEnd);
    void appendOther(size_t at);

    Switches const& switches_;
    Characters const& characters_;
    LineJoining const joining_;
    ValueScanner scanner_;
    std::string_view const text_;
    std::vector<zlines::Line>& lines_;
    FindingSink* const sink_;

    LogicalLine line_;
    size_t next_ = 0;       // begin of the line that is read next
    size_t begin_ = 0;      // of the Line that is appended next
    bool hasHead_ = false;  // a valid header
    bool hasKey_ = false;   // or key
    bool hasError_ = false;
    bool hasNote_ = false;
    bool hasNewline_ = false;
    bool refusesReturns_ = false;
    bool hasErrorInLine_ = false;
    Finding firstNote_{};
    static constexpr size_t kClosed = SIZE_MAX;
    size_t open_ = kClosed;   // index of the Line that indented lines continue
    size_t indentation_ = 0;  // of the last line that did not continue another
    // Of stanzas, if a second header is refused.
    std::unordered_set<std::string, zlines::NameHash, std::equal_to<>> names_;
};

}  // namespace zdialects
