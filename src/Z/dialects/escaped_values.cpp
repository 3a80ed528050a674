#include "escaped_values.h"

#include "escapes.h"
#include "plain_values.h"

namespace zdialects {

namespace {

// The letters that are written after a backslash. Readers know more of them.
std::string_view writtenLetters(Escapes escapes)
{
    switch (escapes) {
        case Escapes::none:
            break;
        case Escapes::desktop:
        case Escapes::kconfig:
            return "ntr\\";
        case Escapes::git:
            return "ntb\"\\";
        case Escapes::php:
            return "\"\\";
        case Escapes::mysql:
            return "ntrb\\\"'";
        case Escapes::c:
            return "ntr\"\\";
        case Escapes::environment:
            return "\"\\$`";
    }
    return {};
}

// Returns the letter for a character after a backslash, or 0.
char letterFor(Escapes escapes, char c)
{
    EscapeSet const set = escapeSet(escapes);
    size_t const index = set.meanings.find(c);
    if (index == std::string_view::npos ||
        writtenLetters(escapes).find(set.letters[index]) == std::string_view::npos)
        return 0;
    return set.letters[index];
}

// Appends a UTF-16 unit.
void appendNumber(uint32_t unit, std::string& out)
{
    int count = 4;
    while (count > 1 && unit >> 4 * (count - 1) == 0)
        --count;
    appendHex(unit, count, kLowerDigits, out += "\\x");
}

// Appends a value in UTF-8, with numbers for the characters that are not ASCII. A digit after a
// number would belong to the number, so it becomes one, too.
void appendNumbered(Switches const& switches, std::string_view value, bool escapesNewlines,
                    std::string& out)
{
    bool isAfterNumber = false;
    while (!value.empty()) {
        uint32_t code = 0;
        size_t const length = readUtf8(value, code);
        char const c = value.front();
        char const letter = c == '\n' && !escapesNewlines ? '\0' : letterFor(switches.escapes, c);
        value.remove_prefix(length);
        isAfterNumber = length > 1 || (isAfterNumber && digitOf(c) < 16);
        if (isAfterNumber)
            forEachUtf16Unit(code, [&](uint32_t unit) { appendNumber(unit, out); });
        else if (letter != 0)
            (out += '\\') += letter;
        else
            out += c;
    }
}

}  // namespace

void appendEscaped(Switches const& switches, std::string_view value, bool escapesNewlines,
                   std::string& out)
{
    if (isNumbered(switches, value))
        return appendNumbered(switches, value, escapesNewlines, out);
    bool const hasSpace = escapeSet(switches.escapes).letters.find('s') != std::string_view::npos;
    for (size_t i = 0; i < value.size(); ++i) {
        char const c = value[i];
        char const letter = c == '\n' && !escapesNewlines ? '\0' : letterFor(switches.escapes, c);
        bool const isVariable =
            (switches.notPlain & notPlainConstants) && value.substr(i).starts_with(kVariableStart);
        if (letter != 0 || isVariable)
            (out += '\\') += isVariable ? c : letter;
        else if (c == ' ' && hasSpace && (i == 0 || i + 1 == value.size()))
            out += "\\s";
        else
            out += c;
    }
}

}  // namespace zdialects
