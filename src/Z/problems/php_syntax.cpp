#include "php_syntax.h"

#include <algorithm>

#include "../dialects/characters.h"

namespace zproblems {

namespace {

constexpr char kReservedKey[] = "a key cannot be \"null\", \"yes\", \"no\" or the like";
constexpr char kWord[] = "a word such as \"no\" is neither the whole value nor in quotes";
constexpr char kOperator[] = "it has an operator in a value without quotes";
constexpr char kVariable[] = "\"${\" has no name and \"}\"";
constexpr char kQuote[] = "a quote is not closed";
constexpr char kHeader[] = "the header is not closed, or has a \";\" or a quote in its name";
constexpr char kIndex[] = "the index in brackets has no \"]\", or no \"=\" is after it";
constexpr char kLastComment[] = "a comment in place of a value ends the file without a newline";
constexpr char kKey[] = "the key has a character that is not allowed in keys";

// Words of PHP for true, false and null.
constexpr std::string_view kConstants[] = {"true", "on", "yes",  "false",
                                           "off",  "no", "none", "null"};

bool isIn(std::string_view set, char c)
{
    return set.find(c) != set.npos;
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

bool isNewline(char c)
{
    return c == '\n' || c == '\r';
}

bool isLabel(char c)
{
    return !isIn("=\n\r\t;&|^$~(){}!\"[]", c);
}

}  // namespace

bool PhpSyntax::findNext(SyntaxFault& fault)
{
    while (at_ < text_.size()) {
        if (readStatement())
            continue;
        fault = fault_;
        at_ = std::max(at_, fault.at);
        at_ = lineEnd(at_);
        skipNewline();
        return true;
    }
    return false;
}

bool PhpSyntax::fail(size_t at, char const* reason)
{
    fault_ = {std::min(at, text_.size() - 1), reason};
    return false;
}

size_t PhpSyntax::afterBlanks(size_t at) const
{
    while (at < text_.size() && isBlank(text_[at]))
        ++at;
    return at;
}

size_t PhpSyntax::afterLabel(size_t at) const
{
    while (at < text_.size() && isLabel(text_[at]))
        ++at;
    return at;
}

// Returns the end of the longest text that PHP takes as a string without quotes.
size_t PhpSyntax::afterPlain(size_t at) const
{
    while (at < text_.size() && !isIn("= \t\n\r;&|^~()!\"'", text_[at])) {
        if (text_[at] != '$')
            ++at;
        else if (at + 1 == text_.size() || text_[at + 1] == '{')
            break;
        else  // belongs to the string with the next character, or with a backslash and its next
            at += text_[at + 1] == '\\' && at + 2 < text_.size() ? 3 : 2;
    }
    return at;
}

// Returns the end of a constant word with the spaces after it, or `at`.
size_t PhpSyntax::afterConstant(size_t at) const
{
    size_t end = at;
    for (std::string_view const word : kConstants) {
        std::string_view const found = text_.substr(at, word.size());
        if (std::equal(found.begin(), found.end(), word.begin(), word.end(),
                       [](char a, char b) { return zdialects::foldedCase(a) == b; }))
            end = std::max(end, at + word.size());
    }
    return end == at ? at : afterBlanks(end);
}

size_t PhpSyntax::lineEnd(size_t at) const
{
    return std::min(text_.find_first_of("\r\n", at), text_.size());
}

void PhpSyntax::skipNewline()
{
    if (startsWith("\r\n"))
        at_ += 2;
    else if (at_ < text_.size() && isNewline(text_[at_]))
        ++at_;
}

// Reads an entry, a header, a comment or a newline.
bool PhpSyntax::readStatement()
{
    // Spaces belong to the key, but not if a tab is among them.
    size_t const start = afterBlanks(at_);
    if (start == text_.size() || isIn("=;\r\n", text_[start]) ||
        text_.substr(at_, start - at_).find('\t') != std::string_view::npos)
        at_ = start;
    char const c = current();
    if (at_ == text_.size())
        return true;
    if (c == ';') {
        at_ = lineEnd(at_);
        skipNewline();
        return true;
    }
    if (isNewline(c)) {
        skipNewline();
        return true;
    }
    if (c == '[')
        return readSection();
    return readKey(at_);
}

bool PhpSyntax::readKey(size_t begin)
{
    size_t const end = afterLabel(begin);
    if (end < text_.size() && text_[end] == '[' && end > begin) {
        at_ = afterBlanks(end + 1);
        return readOffset();
    }
    size_t const word = afterConstant(begin);
    if (word > begin && word >= end)
        return fail(begin, kReservedKey);
    if (end == begin)
        return fail(begin, kKey);
    at_ = end;
    size_t const separator = afterBlanks(end);
    if (separator == text_.size() || text_[separator] != '=')
        return true;  // the rest of the line is a statement of its own
    at_ = separator + 1;
    return readValue();
}

bool PhpSyntax::readSection()
{
    ++at_;
    if (!readName(kHeader))
        return false;
    at_ = afterBlanks(at_);
    skipNewline();
    return true;
}

// Reads the index of a list and its value.
bool PhpSyntax::readOffset()
{
    if (!readName(kIndex))
        return false;
    at_ = afterBlanks(at_);
    if (current() != '=')
        return fail(at_, kIndex);
    ++at_;
    return readValue();
}

// Reads up to the bracket that closes a header or an index.
bool PhpSyntax::readName(char const* reason)
{
    size_t const begin = at_ - 1;
    while (at_ < text_.size()) {
        char const c = text_[at_];
        if (c == ']') {
            ++at_;
            return true;
        }
        if (startsWith("${")) {
            if (!readVariable())
                return false;
        } else if (c == '"') {
            if (!readQuoted())
                return false;
        } else if (c == '\'' && startsRaw()) {
            at_ = text_.find('\'', at_ + 1) + 1;
        } else if (isIn("\r\n;'", c)) {
            return fail(begin, reason);
        } else {
            at_ += (c == '\\' || c == '$') && at_ + 1 < text_.size() ? 2 : 1;
        }
    }
    return fail(begin, reason);
}

bool PhpSyntax::readValue()
{
    at_ = afterBlanks(at_);
    size_t const word = afterConstant(at_);
    if (word > at_ && word >= afterPlain(at_)) {
        size_t const begin = at_;
        at_ = word;
        if (!endsValue())
            return fail(begin, kWord);
        endValue();
        return true;
    }
    if (!endsValue())
        return readExpression();
    if (current() == ';' && lineEnd(at_) == text_.size())
        return fail(at_, kLastComment);
    endValue();
    return true;
}

// Returns whether the value ends here.
bool PhpSyntax::endsValue()
{
    size_t const at = afterBlanks(at_);
    return at == text_.size() || isIn("\r\n;", text_[at]) ||
           (at == at_ && text_[at] == '\'' && !startsRaw());
}

void PhpSyntax::endValue()
{
    at_ = afterBlanks(at_);
    if (current() == '\'') {
        ++at_;  // PHP drops it, and reads the rest of the line as a key
        return;
    }
    at_ = lineEnd(at_);
    skipNewline();
}

// Reads operands, one after another or with operators between them.
bool PhpSyntax::readExpression()
{
    size_t const begin = at_;
    size_t open = 0;
    bool needsOperand = true;
    bool isClosed = false;  // an operand in brackets
    for (;;) {
        if (endsValue()) {
            if (needsOperand || open > 0)
                return fail(begin, kOperator);
            endValue();
            return true;
        }
        char const c = current();
        bool const isPrefix = isIn("!~(", c);
        if (c == '=' || (isPrefix && !needsOperand) || (isIn("&|^)", c) && needsOperand))
            return fail(at_, kOperator);
        if (isPrefix || isIn("&|^)", c)) {
            if (c == ')' && open-- == 0)
                return fail(at_, kOperator);
            open += c == '(' ? 1 : 0;
            needsOperand = c != ')';
            isClosed = c == ')';
            at_ = afterBlanks(at_ + 1);
            continue;
        }
        if (isClosed)
            return fail(at_, kOperator);
        if (!readOperand())
            return false;
        needsOperand = false;
    }
}

// Reads a string, in quotes or not, a variable or spaces.
bool PhpSyntax::readOperand()
{
    char const c = current();
    size_t const plain = afterPlain(at_);
    size_t const word = afterConstant(at_);
    if (isBlank(c))
        at_ = afterBlanks(at_);
    else if (word > at_ && word >= plain)
        return fail(at_, kWord);
    else if (c == '"')
        return readQuoted();
    else if (c == '\'')
        at_ = text_.find('\'', at_ + 1) + 1;  // startsRaw(), or the value would have ended
    else if (startsWith("${"))
        return readVariable();
    else if (plain > at_)
        at_ = plain;
    else
        return fail(at_, kOperator);
    return true;
}

// Returns whether an apostrophe starts a quoted text, which is not empty.
bool PhpSyntax::startsRaw()
{
    size_t const close = hasApostrophes_ ? text_.find('\'', at_ + 1) : text_.npos;
    hasApostrophes_ = close != text_.npos;
    return hasApostrophes_ && close > at_ + 1;
}

bool PhpSyntax::readQuoted()
{
    size_t const begin = at_++;
    while (at_ < text_.size()) {
        char const c = text_[at_];
        if (c == '"') {
            at_ = afterBlanks(at_ + 1);
            return true;
        }
        if (startsWith("${")) {
            if (!readVariable())
                return false;
            continue;
        }
        // A backslash before a quote at the end of the line does not escape it.
        bool const isEscape =
            c == '\\' && at_ + 1 < text_.size() &&
            !(text_[at_ + 1] == '"' && (at_ + 2 == text_.size() || isNewline(text_[at_ + 2])));
        at_ += isEscape ? 2 : 1;
    }
    return fail(begin, kQuote);
}

bool PhpSyntax::readVariable()
{
    size_t const begin = at_;
    size_t const end = afterLabel(at_ + 2);
    if (end == begin + 2 || end == text_.size() || text_[end] != '}')
        return fail(begin, kVariable);
    at_ = end + 1;
    return true;
}

}  // namespace zproblems
