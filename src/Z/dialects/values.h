// values: the end and the meaning of a value.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

#include "finding.h"
#include "logical_line.h"

namespace zdialects {

// A value as spelled. An empty value is at one space after the separator, or next to it.
struct Extent {
    size_t begin;
    size_t end;
    size_t next;  // begin of the line after the value
    bool isInvalid = false;
    Finding finding = {};  // if it is invalid
};

/// Finds the end of values.
class ValueScanner {
public:
    ValueScanner(Switches const& switches, Characters const& characters, std::string_view text)
        : switches_(switches), characters_(characters), text_(text)
    {
    }

    /// Returns the value after the separator, which ends at index `from` of `line`. A value that
    /// continues may end in another line.
    /// range   `keyEnd` is the position of the end of the key.
    Extent scan(LogicalLine& line, size_t from, size_t keyEnd);

    /// Returns the index of a comment that needs no space before its mark, or the size.
    size_t commentStart(std::string_view chars, size_t at) const;

    /// Returns the index of a comment after a space that follows index `from`, or the size.
    size_t commentAfterBlank(std::string_view chars, size_t from) const;

private:
    Extent scanPlain(LogicalLine const& line, size_t from, size_t limit) const;
    void scanAnywhere();
    void scanWhole();
    void scanUnquoted(size_t at);
    bool skipQuoted(size_t& at);
    bool moveOn(size_t& at);
    void skipBlanks(size_t& at) const;
    void refuse(Fault fault, size_t at, size_t line);
    void keepSpaceBeforeComment(size_t keyEnd);

    Switches const& switches_;
    Characters const& characters_;
    std::string_view const text_;
    PhysicalLine line_{};  // of the scanned position
    Extent extent_{};
};

/// Reads values.
class ValueDecoder {
public:
    explicit ValueDecoder(LineJoining const& joining)
        : joining_(joining), switches_(joining.switches()), characters_(joining.characters())
    {
    }

    /// Returns the meaning of the value from `begin` to `end`, as ValueScanner found it. It is a
    /// view of `text` if it is spelled as it reads, else of `space`.
    /// range   `lineBegin` is the begin of the line of the key.
    std::string_view decode(std::string_view text, size_t lineBegin, size_t begin, size_t end,
                            std::string& space);

    /// Whether the last value was quoted only in part.
    bool isQuotedInPart() const { return isQuotedInPart_; }

private:
    std::string_view withoutRuns(std::string_view chars, std::string& space) const;
    std::string_view unescaped(std::string_view spelled, std::string& space) const;
    std::string_view decodeIndented(std::string_view text, size_t lineBegin, size_t begin,
                                    size_t end, std::string& space) const;
    void decodeAnywhere(std::string_view spelled, std::string& out) const;
    void decodeWhole(std::string_view spelled, bool endsLine, std::string& out);
    bool decodeQuoted(std::string_view spelled, size_t& at, std::string& out) const;

    LineJoining const& joining_;
    Switches const& switches_;
    Characters const& characters_;
    bool isQuotedInPart_ = false;
};

}  // namespace zdialects
