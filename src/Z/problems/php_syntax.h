// php_syntax: the lines for which PHP refuses a file.
//
// PHP reads values as expressions and some words as constants, in its usual mode. One invalid line
// makes it refuse the file.
#pragma once

#include <stddef.h>

#include <string_view>

namespace zproblems {

struct SyntaxFault {
    size_t at;           // position of the first character that PHP does not expect
    char const* reason;  // why, as a clause
};

class PhpSyntax {
public:
    /// Reads the text from `begin`, which is after the byte order mark.
    /// owns    the text is borrowed.
    PhpSyntax(std::string_view text, size_t begin) : text_(text), at_(begin) {}

    /// Stores the next fault and returns true; returns false at the end of the text. After a fault,
    /// reading continues in the next line.
    /// cost    O(bytes) for all calls.
    bool findNext(SyntaxFault& fault);

private:
    bool readStatement();
    bool readKey(size_t begin);
    bool readSection();
    bool readOffset();
    bool readName(char const* reason);
    bool readValue();
    bool readExpression();
    bool readOperand();
    bool readQuoted();
    bool readVariable();
    bool startsRaw();
    bool endsValue();
    void endValue();
    bool startsWith(std::string_view word) const { return text_.substr(at_).starts_with(word); }
    bool fail(size_t at, char const* reason);
    char current() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    size_t afterBlanks(size_t at) const;
    size_t afterLabel(size_t at) const;
    size_t afterPlain(size_t at) const;
    size_t afterConstant(size_t at) const;
    size_t lineEnd(size_t at) const;
    void skipNewline();

    std::string_view const text_;
    size_t at_;
    SyntaxFault fault_ = {0, ""};
    bool hasApostrophes_ = true;  // after at_; else none up to the end
};

}  // namespace zproblems
