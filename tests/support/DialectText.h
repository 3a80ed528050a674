// DialectText: the text of a configuration file as lines, and the meaning of single characters
// and lines under the switches of its dialect. The lowest part of DialectModel.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "DialectTable.h"

namespace dialect_model {

enum class LineKind {
    blank,
    comment,
    header,  // a key can follow on it
    key,
    continuation,   // of the value, or the line, that started above
    commentInside,  // a comment between two lines of a value
    passedOver
};

// A line of the file without its line ending. Columns are 0 if the line has no key; valueEnd is the
// column past the value, or past the line if the value continues.
struct Line {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t next = 0;  // start of the following line
    LineKind kind = LineKind::blank;
    std::size_t key = 0;
    std::size_t keyEnd = 0;
    std::size_t value = 0;
    std::size_t valueEnd = 0;
};

// A key line. Line numbers count from 1, offsets are [begin, end).
struct Value {
    std::string text;           // decoded
    bool alone = false;         // a key without a separator
    bool quotedInPart = false;  // `text` is the spelling; writers do not write such a value
    std::size_t line = 0;
    std::size_t lastLine = 0;
    std::size_t keyBegin = 0;
    std::size_t keyEnd = 0;
    std::size_t valueBegin = 0;
    std::size_t valueEnd = 0;
};

struct Problem {
    std::size_t line = 0;
    std::size_t column = 0;
    std::string text;
};

constexpr std::size_t kMaxStanzaLine = 8191;  // with its newline; a longer line is split
constexpr std::size_t kMaxLine = 1024 * 1024;

class DialectText {
public:
    DialectText(std::string_view text, Switches const& switches) : text_(text), rules(switches)
    {
        splitLines();
    }

    bool refused() const { return !errors.empty(); }

    std::vector<Line> lines;
    std::vector<Problem> errors;  // lines that are refused
    std::vector<Problem> notes;   // lines that are passed over

protected:
    static constexpr std::size_t kNowhere = std::string_view::npos;

    // A line, or several joined ones, with the offset of each character.
    struct Piece {
        void add(char c, std::size_t at)
        {
            chars += c;
            offsets.push_back(at);
        }
        // The offset of a character, or of the end.
        std::size_t offset(std::size_t index) const
        {
            if (offsets.empty())
                return start;
            return index < offsets.size() ? offsets[index] : offsets.back() + 1;
        }
        std::string chars;
        std::vector<std::size_t> offsets;
        std::size_t start = 0;
    };

    static char folded(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
    static bool isLetter(char c) { return folded(c) >= 'a' && folded(c) <= 'z'; }
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }

    static std::string allFolded(std::string_view name)
    {
        std::string out;
        for (char const c : name)
            out += folded(c);
        return out;
    }

    // The stanza format treats all whitespace alike, cuts lines at a zero byte and splits long
    // lines.
    bool isStanzaFormat() const { return rules.emptyValues == EmptyValues::none; }

    bool isBlank(char c) const
    {
        return c == ' ' || c == '\t' || (isStanzaFormat() && (c == '\r' || c == '\v' || c == '\f'));
    }

    bool isMark(char c, unsigned marks) const
    {
        return (c == '#' && (marks & hash)) || (c == ';' && (marks & semicolon)) ||
               (c == '!' && (marks & directive));
    }

    bool isQuote(char c) const
    {
        return rules.quoting != Quoting::none && ((c == '"' && (rules.quotes & doubleQuote)) ||
                                                  (c == '\'' && (rules.quotes & singleQuote)));
    }

    bool isSeparator(char c) const
    {
        return (c == '=' && (rules.separators & equals)) ||
               (c == ':' && (rules.separators & colon));
    }

    void refuse(std::size_t line, std::size_t column, char const* text)
    {
        errors.push_back({line + 1, column, text});
    }

    void passOver(std::size_t line, std::size_t column, char const* text)
    {
        lines[line].kind = LineKind::passedOver;
        notes.push_back({line + 1, column, text});
    }

    bool isLoneReturn(std::size_t at) const
    {
        return at < text_.size() && text_[at] == '\r' && text_.substr(at + 1, 1) != "\n";
    }

    // Whether a carriage return without a newline makes the file invalid.
    bool refusesReturns() const
    {
        return !isStanzaFormat() &&
               (rules.lone == Returns::lineEnd || text_.find('\n') == kNowhere);
    }

    bool hasLongQuotes() const
    {
        return rules.quoting != Quoting::none && rules.quoting != Quoting::ends;
    }

    // The first carriage return without a newline that is outside the quotes of a value, or its
    // end.
    std::size_t afterQuotes(std::size_t at, std::size_t end) const
    {
        std::string open;
        for (; at < end; ++at) {
            std::string const c(1, text_[at]);
            if (open.empty() && isLoneReturn(at))
                return at;
            bool const isSame = open == c || rules.quoting != Quoting::whole;
            if (c == "\\" && hasEscape(open) && at + 1 < end && text_[at + 1] != '\r')
                ++at;
            else if (isQuote(c[0]) && (open.empty() || isSame))
                open = open.empty() ? c : "";
        }
        return end;
    }

    // Whether a backslash hides the next character, within a quote or outside quotes.
    bool hasEscape(std::string const& quote) const
    {
        if (rules.quoting != Quoting::whole)
            return true;
        return quote == "\"" || (quote.empty() && rules.escapes == Escapes::environment);
    }

    void splitLines()
    {
        std::size_t at = 0;
        while (at < text_.size()) {
            Line line;
            line.begin = at;
            std::size_t const feed = text_.find('\n', at);
            line.next = feed == kNowhere ? text_.size() : feed + 1;
            if (isStanzaFormat() && line.next - at > kMaxStanzaLine)
                line.next = at + kMaxStanzaLine;
            line.end = line.next;
            if (text_[line.end - 1] == '\n')
                --line.end;
            if (line.end < line.next && line.end > at && text_[line.end - 1] == '\r')
                --line.end;
            if (isStanzaFormat()) {
                std::size_t const zero = text_.substr(at, line.end - at).find('\0');
                line.end = zero == kNowhere ? line.end : at + zero;
            }
            at = line.next;
            lines.push_back(line);
        }
    }

    // Refuses UTF-16, a byte order mark that has no place, zero bytes and lines that are too long.
    bool isText()
    {
        if (isStanzaFormat())
            return true;
        if (text_.substr(0, 2) == "\xff\xfe" || text_.substr(0, 2) == "\xfe\xff") {
            refuse(0, 1, "UTF-16");
            return false;
        }
        if (text_.substr(0, 3) == "\xef\xbb\xbf") {
            if (rules.byteOrderMark)
                lines[0].begin = std::min<std::size_t>(3, lines[0].end);
            else
                refuse(0, 1, "byte order mark");
        }
        for (std::size_t i = 0; i < lines.size(); ++i) {
            std::size_t const zero = text_.substr(0, lines[i].end).find('\0', lines[i].begin);
            if (zero != kNowhere)
                refuse(i, zero - lines[i].begin + 1, "zero byte");
            else if (lines[i].end - lines[i].begin > kMaxLine)
                refuse(i, kMaxLine + 1, "line too long");
        }
        return errors.empty();
    }

    std::size_t afterBlanks(std::string_view chars, std::size_t at) const
    {
        while (at < chars.size() && isBlank(chars[at]))
            ++at;
        return at;
    }

    std::size_t withoutBlanksAtEnd(std::string_view chars, std::size_t begin) const
    {
        std::size_t end = chars.size();
        while (end > begin && isBlank(chars[end - 1]))
            --end;
        return end;
    }

    std::string_view charsOf(std::size_t line) const
    {
        return text_.substr(lines[line].begin, lines[line].end - lines[line].begin);
    }

    bool isComment(std::size_t line) const
    {
        std::string_view const chars = charsOf(line);
        std::size_t const at = afterBlanks(chars, 0);
        return at < chars.size() && isMark(chars[at], rules.marks);
    }

    // Whether the line continues in the next one, whatever it is.
    bool continues(std::string_view chars) const
    {
        std::size_t const size = sizeWithBackslash(chars);
        std::size_t const backslashes = size - sizeWithoutBackslashes(chars.substr(0, size));
        return ((rules.join & asBlank) && backslashes % 2 == 1) ||
               ((rules.join & asNothing) && backslashes > 0);
    }

    // The size with the last backslash: spaces can follow it if it is read as nothing.
    std::size_t sizeWithBackslash(std::string_view chars) const
    {
        return rules.join & asNothing ? withoutBlanksAtEnd(chars, 0) : chars.size();
    }

    static std::size_t sizeWithoutBackslashes(std::string_view chars)
    {
        std::size_t const last = chars.find_last_not_of('\\');
        return last == kNowhere ? 0 : last + 1;
    }

    // Takes the next line, with the lines that it continues in.
    Piece takePiece()
    {
        Piece piece;
        std::size_t line = next_++;
        piece.start = lines[line].begin;
        bool const joins = !isComment(line) || rules.commentsJoin;
        for (;;) {
            for (std::size_t at = lines[line].begin; at < lines[line].end; ++at)
                piece.add(text_[at], at);
            if (!joins || !continues(charsOf(line)))
                return piece;
            std::size_t const backslash = lines[line].end - 1;
            while (rules.joinSkipsComments && next_ < lines.size() && isComment(next_))
                lines[next_++].kind = LineKind::commentInside;
            bool const isLast = next_ == lines.size();
            if (isLast && (rules.join & asNothing) && lines[line].next == lines[line].end)
                return piece;
            std::size_t const dropped =
                lines[line].end - lines[line].begin - sizeWithBackslash(charsOf(line)) + 1;
            piece.chars.resize(piece.chars.size() - dropped);
            piece.offsets.resize(piece.offsets.size() - dropped);
            if (rules.join & asBlank)
                piece.add(' ', backslash);
            if (isLast)
                return piece;
            line = next_++;
            lines[line].kind = LineKind::continuation;
        }
    }

    // Cuts a comment after a space.
    void cutComment(Piece& piece, std::size_t from) const
    {
        for (std::size_t i = from + 1; i < piece.chars.size(); ++i) {
            if (isMark(piece.chars[i], rules.trailing) && isBlank(piece.chars[i - 1])) {
                piece.chars.resize(i);
                piece.offsets.resize(i);
                return;
            }
        }
    }

    // Where a comment starts that needs no space before its mark.
    std::size_t commentStart(std::string_view chars, std::size_t at) const
    {
        if (!rules.trailing || rules.trailingNeeds != TrailingNeeds::nothing)
            return chars.size();
        char quote = 0;
        for (; at < chars.size(); ++at) {
            if (quote != 0 && chars[at] == '\\')
                ++at;
            else if (quote != 0)
                quote = chars[at] == quote ? '\0' : quote;
            else if (isQuote(chars[at]))
                quote = chars[at];
            else if (isMark(chars[at], rules.trailing))
                return at;
        }
        return chars.size();
    }

    std::string_view const text_;
    Switches const rules;
    std::size_t next_ = 0;  // the line that is read next
};

}  // namespace dialect_model
