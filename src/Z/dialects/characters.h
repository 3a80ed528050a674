// characters: the meaning of single bytes under the switches of a dialect.
#pragma once

#include <array>
#include <string_view>

#include "switches.h"

namespace zdialects {

class Characters {
public:
    explicit constexpr Characters(Switches const& switches) : classes_{}
    {
        add(' ', kBlank);
        add('\t', kBlank);
        add('\\', kBackslash);
        addMarks(switches.marks, kMark);
        addMarks(switches.trailing, kTrailing);
        if (switches.separators & separatorEquals)
            add('=', kSeparator);
        if (switches.separators & separatorColon)
            add(':', kSeparator);
        if (switches.quoting == Quoting::none)
            return;
        if (switches.quotes & quoteDouble)
            add('"', kQuote);
        if (switches.quotes & quoteSingle)
            add('\'', kQuote);
    }

    bool isBlank(char c) const { return has(c, kBlank); }
    bool isMark(char c) const { return has(c, kMark); }
    bool isTrailingMark(char c) const { return has(c, kTrailing); }
    bool isSeparator(char c) const { return has(c, kSeparator); }
    bool isQuote(char c) const { return has(c, kQuote); }

    /// Returns whether the byte stands for itself in a value: no space, mark, quote or backslash.
    bool isOrdinary(char c) const
    {
        return (classes_[static_cast<unsigned char>(c)] &
                (kBlank | kTrailing | kQuote | kBackslash)) == 0;
    }

    size_t afterBlanks(std::string_view chars, size_t at) const
    {
        while (at < chars.size() && isBlank(chars[at]))
            ++at;
        return at;
    }

    /// Returns the end of the characters from `begin`, or of the last that is not blank.
    size_t withoutBlanksAtEnd(std::string_view chars, size_t begin) const
    {
        size_t end = chars.size();
        while (end > begin && isBlank(chars[end - 1]))
            --end;
        return end;
    }

private:
    enum Class : uint8_t {
        kBlank = 1,
        kMark = 2,
        kTrailing = 4,
        kSeparator = 8,
        kQuote = 16,
        kBackslash = 32
    };

    constexpr void add(char c, Class what) { classes_[static_cast<unsigned char>(c)] |= what; }

    constexpr void addMarks(uint8_t marks, Class what)
    {
        if (marks & markHash)
            add('#', what);
        if (marks & markSemicolon)
            add(';', what);
        if (marks & markDirective)
            add('!', what);
    }

    bool has(char c, Class what) const
    {
        return (classes_[static_cast<unsigned char>(c)] & what) != 0;
    }

    std::array<uint8_t, 256> classes_;
};

/// Returns the name in a header without its spaces at the end, as isspace() knows them in Latin-1.
constexpr std::string_view trimmedName(std::string_view name)
{
    return name.substr(0, name.find_last_not_of(" \t\v\f\r\xa0") + 1);
}

constexpr char foldedCase(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/// Returns whether the first separator of a path is a slash, not a dot.
constexpr bool isSlashPath(std::string_view name)
{
    size_t const first = name.find_first_of("./");
    return first != name.npos && name[first] == '/';
}

/// Returns a character of such a path as it is compared.
constexpr char exchangedSeparator(char c)
{
    return c == '/' ? '.' : c == '.' ? '/' : c;
}

constexpr bool isLetter(char c)
{
    char const folded = foldedCase(c);
    return folded >= 'a' && folded <= 'z';
}

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

}  // namespace zdialects
