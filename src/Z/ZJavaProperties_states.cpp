// The parser of Java property files: a function per state, which takes one character.
#include <stdint.h>

#include "ZException.h"
#include "ZJavaProperties.h"
#include "java/characters.h"
#include "zqvrutil.h"

using namespace zjava;

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseForUnit = 914 };

constexpr ptrdiff_t kMaxUnit = 3;  // bytes of UTF-8 for 16 bits

}  // namespace

// KEPT: at the start of a line ":", "=" and a backslash, which escapes nothing, are the first
// character of a key. A program with such keys would no longer find them.
// Test: ZJavaProperties.KeepsSeparatorsAndBackslashesAtTheStartOfALine
int ZJavaProperties_6_0::doStartLineState(char c)
{
    key_.clear();
    value_.clear();
    if (isSpace(c))
        return startLineBlanks;
    if (isComment(c))
        return commentLine;
    if (isLineEnd(c))
        return startLine;
    key_ += c;
    return keyChars;
}

int ZJavaProperties_6_0::doStartLineBlanksState(char c)
{
    if (isSpace(c))
        return startLineBlanks;
    if (isComment(c))
        return commentLine;
    if (isLineEnd(c))
        return startLine;
    if (isSeparator(c))
        return syntaxError;
    key_ += c;
    return keyChars;
}

int ZJavaProperties_6_0::doCommentLineState(char c)
{
    return isLineEnd(c) ? startLine : commentLine;
}

int ZJavaProperties_6_0::doKeyCharsState(char c)
{
    if (c == '\\')
        return keyCharEscape;
    if (isSpace(c))
        return keyEndBlanksFirst;
    if (isSeparator(c))
        return keyEndBlanksFinal;
    if (isLineEnd(c))
        return syntaxError;
    key_ += c;
    return keyChars;
}

int ZJavaProperties_6_0::doKeyCharEscapeState(char c)
{
    if (c != '\\' && !isSpace(c) && !isSeparator(c))
        return syntaxError;
    key_ += c;
    return keyChars;
}

int ZJavaProperties_6_0::doKeyEndBlanksFirstState(char c)
{
    if (isSpace(c))
        return keyEndBlanksFirst;
    if (isSeparator(c))
        return keyEndBlanksFinal;
    if (c == '\\')
        return valEscape;
    if (isLineEnd(c))
        return syntaxError;
    value_ += c;
    return valChars;
}

int ZJavaProperties_6_0::doKeyEndBlanksFinalState(char c)
{
    if (isSpace(c))
        return keyEndBlanksFinal;
    if (isLineEnd(c))
        return endEntry();
    if (c == '\\')
        return valEscape;
    value_ += c;
    return valChars;
}

int ZJavaProperties_6_0::doValCharsState(char c)
{
    if (c == '\\')
        return valEscape;
    if (isLineEnd(c))
        return endEntry();
    value_ += c;
    return valChars;
}

int ZJavaProperties_6_0::doValEscapeState(char c)
{
    if (isLineEnd(c))
        return multiLineVal;
    if (c == 'u' || c == 'U')
        return uu0;
    // KEPT: values have other escapes than keys: quotes are escapes, "=" is not, and no letter is a
    // control character. A line with another escape is skipped; if it were accepted, its value
    // would replace the value of an earlier line with the same key.
    // Test: ZJavaProperties.KeepsTheEscapesOfValuesApart
    if (c != '\\' && !isSpace(c) && c != ':' && c != '"' && c != '\'')
        return syntaxError;
    value_ += c;
    return valChars;
}

int ZJavaProperties_6_0::doMultiLineValState(char c)
{
    if (c == '\\')
        return valEscape;
    if (isSpace(c))
        return multiLineVal;
    if (isLineEnd(c)) {
        // KEPT: such an entry never stops the read, and with a stop key only the entry of that key
        // is stored. A program that reads a single key gets the value of a later line with that
        // key; if the read stopped here, it would get the value of this entry.
        // Test: ZJavaProperties.KeepsTheStopKeyFromEmptyContinuationLines
        if (stopKey_.isEmpty() || key_ == stopKey_)
            storeEntry();
        return startLine;
    }
    value_ += c;
    return valChars;
}

int ZJavaProperties_6_0::readDigit(char c, int next)
{
    int const digit = hexConv(c);
    if (digit < 0)
        return syntaxError;
    unicodeUnit_[0] = static_cast<uint16_t>(unicodeUnit_[0] * 16 + digit);
    return next;
}

int ZJavaProperties_6_0::doUU0State(char c)
{
    unicodeUnit_[0] = 0;
    return readDigit(c, uu1);
}

int ZJavaProperties_6_0::doUU1State(char c)
{
    return readDigit(c, uu2);
}

int ZJavaProperties_6_0::doUU2State(char c)
{
    return readDigit(c, uu3);
}

int ZJavaProperties_6_0::doUU3State(char c)
{
    int const next = readDigit(c, valChars);
    if (next == syntaxError)
        return next;
    uint16_t const* unit = unicodeUnit_;
    char text[kMaxUnit + 1];
    char* end = text;
    if (zconvert_UTF16_to_UTF8_6_0(&unit, unit + 1, &end, text + kMaxUnit) != 0)
        ZToUTF8Exception_6_0().throwException(kSource, raiseForUnit);
    // A string ends at its zero: the unit 0 adds nothing.
    *end = 0;
    value_ += text;
    return next;
}
