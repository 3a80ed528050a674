// DialectValues: reads the value of a key line: its end, its continuation lines, quotes and
// escapes. The middle part of DialectModel.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "DialectText.h"

namespace dialect_model {

class DialectValues : public DialectText {
public:
    using DialectText::DialectText;

protected:
    // Reads the value after the separator, which ends at index `from` of the piece.
    void readValue(Piece const& piece, std::size_t line, std::size_t from, Value& value)
    {
        switch (rules.quoting) {
            case Quoting::none: {
                Piece whole = piece;
                if (rules.trailingNeeds == TrailingNeeds::blankBeforeInValue)
                    cutComment(whole, afterBlanks(whole.chars, from));
                return readPlain(whole, from, whole.chars.size(), value);
            }
            case Quoting::ends:
                return readPlain(piece, from, commentStart(piece.chars, 0), value);
            case Quoting::anywhere:
            case Quoting::anywhereSkipping:
                return readQuotedAnywhere(line, piece.offset(from), value);
            case Quoting::whole:
                return readQuotedWhole(line, piece.offset(from), value);
        }
    }

private:
    enum class Escaped { plain, doubleQuoted };

    // The value is the rest of the piece up to `limit`. An empty value is one space after the
    // separator, or next to it.
    void readPlain(Piece const& piece, std::size_t from, std::size_t limit, Value& value)
    {
        std::string_view const chars = std::string_view(piece.chars).substr(0, limit);
        std::size_t begin = afterBlanks(chars, from);
        std::size_t end = rules.blanksAtEnd ? chars.size() : withoutBlanksAtEnd(chars, begin);
        if (begin == end)  // not at the backslash of a joined line, which is read as a space
            begin = end = from + (from < end && isBlank(text_[piece.offset(from)]) ? 1 : 0);
        value.valueBegin = piece.offset(begin);
        value.valueEnd = begin == end ? value.valueBegin : piece.offset(end - 1) + 1;
        std::string_view spelled = chars.substr(begin, end - begin);
        if (rules.quoting == Quoting::ends && spelled.size() > 1 && isQuote(spelled[0]) &&
            spelled.back() == spelled[0])
            spelled = spelled.substr(1, spelled.size() - 2);
        std::string const single = withoutRuns(spelled);
        spelled = single;
        value.text = "";
        for (std::size_t at = 0; at < spelled.size();) {
            if (spelled[at] == '\\' && rules.escapes != Escapes::none)
                at = unescape(spelled, at, Escaped::plain, value.text);
            else
                value.text += spelled[at++];
        }
    }

    std::string withoutRuns(std::string_view spelled) const
    {
        bool const isKept = rules.blankRuns == BlankRuns::kept || rules.quoting != Quoting::none ||
                            (rules.join & indented);
        std::string out;
        for (char const c : spelled) {
            std::string_view const spaces = " \t\v\f\r";
            bool const isInRun =
                !out.empty() && spaces.find(c) != kNowhere && spaces.find(out.back()) != kNowhere;
            if (isKept || !isInRun)
                out += c;
        }
        return out;
    }

    // Moves to the following line. Returns false at the end of the file.
    bool moveOn(std::size_t& line, std::size_t& at)
    {
        if (line + 1 >= lines.size())
            return false;
        lines[++line].kind = LineKind::continuation;
        next_ = line + 1;
        at = lines[line].begin;
        return true;
    }

    std::string_view upTo(std::size_t end) const { return text_.substr(0, end); }

    void readQuotedAnywhere(std::size_t line, std::size_t at, Value& value)
    {
        std::size_t const first = line;
        at = std::min(afterBlanks(upTo(lines[line].end), at), lines[line].end);
        value.valueBegin = value.valueEnd = at;
        std::string& out = value.text;
        std::size_t kept = 0;  // without spaces that may be at the end
        bool quoted = false;
        std::size_t quote = at;
        for (;;) {
            if (at == lines[line].end) {
                if (quoted && (!(rules.join & openQuote) || line + 1 == lines.size()))
                    return refuse(first, quote - lines[first].begin + 1, "open quote");
                if (!quoted || !moveOn(line, at))
                    break;
                out += '\n';
                kept = out.size();
                continue;
            }
            char const c = text_[at];
            if (!quoted && isBlank(c)) {
                out += out.empty() ? "" : std::string(1, c);
                ++at;
                continue;
            }
            if (!quoted && isMark(c, rules.trailing))
                break;
            if (c == '\\' && at + 1 == lines[line].end && (rules.join & insideValue)) {
                kept = out.size();
                value.valueEnd = ++at;
                if (moveOn(line, at))
                    continue;
                if (quoted)
                    return refuse(first, quote - lines[first].begin + 1, "open quote");
                break;
            }
            if (isQuote(c)) {
                quoted = !quoted;
                quote = quoted && line == first ? at : quote;
                value.valueEnd = ++at;
                kept = out.size();
                if (!quoted && rules.quoting == Quoting::anywhereSkipping)
                    at = afterBlanks(upTo(lines[line].end), at);
                continue;
            }
            if (c == '\\') {
                std::size_t const after =
                    unescape(upTo(lines[line].end), at, Escaped::doubleQuoted, out);
                if (after == kNowhere)
                    return refuse(line, at - lines[line].begin + 1, "unknown escape");
                at = after;
            } else {
                out += c;
                ++at;
            }
            kept = out.size();
            value.valueEnd = at;
        }
        if (line > first)
            findCommentLine(line, at, value);
        out.resize(kept);
        keepSpaceBeforeComment(value);
    }

    // A line that joins the value and has only a comment, which starts at `at`, does not belong to
    // it.
    void findCommentLine(std::size_t line, std::size_t at, Value const& value)
    {
        if (value.valueEnd <= lines[line].begin && at < lines[line].end)
            lines[line].kind = LineKind::commentInside;
    }

    // An empty value is one space after the separator.
    void keepSpaceBeforeComment(Value& value) const
    {
        if (value.valueBegin != value.valueEnd)
            return;
        std::size_t begin = value.valueBegin;
        while (begin > value.keyEnd && isBlank(text_[begin - 1]))
            --begin;
        if (!(rules.separators & tight))
            begin = std::min(begin + 1, value.valueBegin);
        value.valueBegin = value.valueEnd = begin;
    }

    void readQuotedWhole(std::size_t line, std::size_t at, Value& value)
    {
        at = afterBlanks(upTo(lines[line].end), at);
        value.valueBegin = value.valueEnd = at;
        if (at == lines[line].end || !isQuote(text_[at]))
            return readUnquoted(line, at, value);
        std::string out;
        if (!readQuoted(line, at, out))
            return;
        std::size_t const rest = afterBlanks(upTo(lines[line].end), at);
        bool const isEnd = rest == lines[line].end ||
                           (isMark(text_[rest], rules.trailing) &&
                            (rest > at || rules.trailingNeeds == TrailingNeeds::nothing));
        if (!isEnd)
            return readUnquoted(line, at, value);
        value.text = out;
        value.valueEnd = at;
    }

    // Reads from the quote at `at` past the closing one. Returns false, with the line refused, if
    // there is no closing one.
    bool readQuoted(std::size_t& line, std::size_t& at, std::string& out)
    {
        std::size_t const first = line;
        std::size_t const start = at;
        char const quote = text_[at++];
        while (at == lines[line].end || text_[at] != quote) {
            if (at == lines[line].end) {
                if (!(rules.join & openQuote) || !moveOn(line, at)) {
                    refuse(first, start - lines[first].begin + 1, "open quote");
                    return false;
                }
                out += '\n';
            } else if (text_[at] != '\\' || quote == '\'' || closesLine(line, at + 1)) {
                out += text_[at++];
            } else if (at + 1 < lines[line].end) {
                at = unescape(upTo(lines[line].end), at, Escaped::doubleQuoted, out);
            } else if (!(rules.join & insideValue) || !moveOn(line, at)) {
                out += text_[at++];
            }
        }
        ++at;
        return true;
    }

    // A quote that is the last character of a line closes in php, also after a backslash.
    bool closesLine(std::size_t line, std::size_t at) const
    {
        return rules.escapes == Escapes::php && at + 1 == lines[line].end && text_[at] == '"';
    }

    // Reads from `at` up to a comment or the end of the line. A value with quotes in it is as
    // spelled.
    void readUnquoted(std::size_t line, std::size_t at, Value& value)
    {
        value.quotedInPart = value.valueBegin != at;
        value.valueEnd = at;
        std::string out;
        std::string ignored;
        std::size_t const first = line;
        std::size_t kept = 0;
        while (at < lines[line].end) {
            char const c = text_[at];
            if (isMark(c, rules.trailing) &&
                (rules.trailingNeeds == TrailingNeeds::nothing || isBlank(text_[at - 1])))
                break;
            if (isBlank(c)) {
                out += text_[at++];
                continue;
            }
            if (isQuote(c)) {
                value.quotedInPart = true;
                if (!readQuoted(line, at, ignored))
                    return;
            } else if (c == '\\' && (rules.join & insideValue) && at + 1 == lines[line].end) {
                kept = out.size();
                value.valueEnd = ++at;
                moveOn(line, at);
                continue;
            } else if (c == '\\' && rules.escapes == Escapes::environment &&
                       at + 1 < lines[line].end) {
                out += text_[at + 1];
                at += 2;
            } else {
                out += c;
                ++at;
            }
            kept = out.size();
            value.valueEnd = at;
        }
        if (line > first)
            findCommentLine(line, at, value);
        out.resize(kept);
        value.text = out;
        if (value.quotedInPart)
            value.text = text_.substr(value.valueBegin, value.valueEnd - value.valueBegin);
        keepSpaceBeforeComment(value);
    }

    // Appends the meaning of the escape at `at`. Returns the index after it, or kNowhere.
    std::size_t unescape(std::string_view chars, std::size_t at, Escaped where,
                         std::string& out) const
    {
        struct Set {
            std::string_view letters;
            std::string_view meanings;
        };
        static constexpr Set kSets[] = {
            {"", ""},
            {"sntr\\", " \n\t\r\\"},
            {"ntb\"\\", "\n\t\b\"\\"},
            {"\"\\$", "\"\\$"},
            {"ntrbs\\\"'", "\n\t\r\b \\\"'"},
            {"abfnrtv\"?'\\", "\a\b\f\n\r\t\v\"?'\\"},
            {"sntr\\", " \n\t\r\\"},
            {"\"\\$`", "\"\\$`"},
        };
        Set const& set = kSets[static_cast<int>(rules.escapes)];
        char const c = at + 1 < chars.size() ? chars[at + 1] : '\0';
        std::size_t const index = c == '\0' ? kNowhere : set.letters.find(c);
        if (index != kNowhere) {
            out += set.meanings[index];
            return at + 2;
        }
        if (c == 'x' || (c >= '0' && c <= '7')) {
            std::size_t const after = unescapeNumber(chars, at + 1, out);
            if (after != kNowhere)
                return after;
        }
        if (rules.unknownEscape == UnknownEscape::refused)
            return kNowhere;
        if (rules.unknownEscape == UnknownEscape::dropped)
            return std::min(at + 2, chars.size());
        if (rules.unknownEscape == UnknownEscape::kept || where == Escaped::doubleQuoted)
            out += '\\';
        if (c != '\0')
            out += c;
        return at + (c == '\0' ? 1 : 2);
    }

    // Takes an octal or hexadecimal number. Returns kNowhere without digits, and for zero.
    std::size_t unescapeNumber(std::string_view chars, std::size_t at, std::string& out) const
    {
        if (rules.escapes != Escapes::c && rules.escapes != Escapes::kconfig)
            return kNowhere;
        bool const isHex = chars[at] == 'x';
        if (rules.escapes == Escapes::kconfig && !isHex)
            return kNowhere;
        std::size_t const most = rules.escapes == Escapes::kconfig ? 2 : isHex ? 8 : 3;
        std::size_t digits = 0;
        unsigned code = 0;
        for (at += isHex ? 1 : 0; at < chars.size() && digits < most; ++at, ++digits) {
            std::size_t const digit = std::string_view("0123456789abcdef").find(folded(chars[at]));
            if (digit == kNowhere || (!isHex && digit > 7))
                break;
            code = code * (isHex ? 16 : 8) + static_cast<unsigned>(digit);
        }
        if (code == 0 || (rules.escapes == Escapes::kconfig && digits < 2) || code > 0x10ffff)
            return kNowhere;
        if (rules.escapes == Escapes::kconfig)
            out += static_cast<char>(code);
        else
            return appendCharacter(code, chars, at, out);
        return at;
    }

    // Two numbers can be a surrogate pair. Without the other half, one is U+FFFD.
    std::size_t appendCharacter(unsigned code, std::string_view chars, std::size_t at,
                                std::string& out) const
    {
        bool const isFirst = code >= 0xd800 && code <= 0xdbff;
        std::string second;
        if (isFirst && at + 2 < chars.size() && chars[at] == '\\') {
            char const next = chars[at + 1];
            std::size_t const end = next == 'x' ? unescapeUnit(chars, at + 1, second) : kNowhere;
            if (end != kNowhere && second.size() == 2) {
                unsigned const low = static_cast<unsigned char>(second[0]) << 8 |
                                     static_cast<unsigned char>(second[1]);
                appendUtf8(0x10000 + (code - 0xd800) * 0x400 + (low - 0xdc00), out);
                return end;
            }
        }
        bool const isHalf = code >= 0xd800 && code <= 0xdfff;
        appendUtf8(isHalf ? 0xfffd : code, out);
        return at;
    }

    // Stores the two bytes of the second half of a pair.
    static std::size_t unescapeUnit(std::string_view chars, std::size_t at, std::string& unit)
    {
        unsigned code = 0;
        std::size_t digits = 0;
        for (++at; at < chars.size() && digits < 8; ++at, ++digits) {
            std::size_t const digit = std::string_view("0123456789abcdef").find(folded(chars[at]));
            if (digit == kNowhere)
                break;
            code = code * 16 + static_cast<unsigned>(digit);
        }
        if (code >= 0xdc00 && code <= 0xdfff)
            unit = {static_cast<char>(code >> 8), static_cast<char>(code & 0xff)};
        return at;
    }

    static void appendUtf8(unsigned code, std::string& out)
    {
        auto const last = [](unsigned bits) { return static_cast<char>(0x80 | (bits & 0x3f)); };
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xc0 | (code >> 6));
            out += last(code);
        } else if (code < 0x10000) {
            out += static_cast<char>(0xe0 | (code >> 12));
            out += last(code >> 6);
            out += last(code);
        } else {
            out += static_cast<char>(0xf0 | (code >> 18));
            out += last(code >> 12);
            out += last(code >> 6);
            out += last(code);
        }
    }
};

}  // namespace dialect_model
