#include "spelling_fault.h"

#include <Z/lines/columns.h>
#include <ctype.h>
#include <stdio.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

namespace {

constexpr char kWhitespace[] = " \t";

std::string_view trim(std::string_view text)
{
    size_t const begin = std::min(text.find_first_not_of(kWhitespace), text.size());
    return text.substr(begin, text.find_last_not_of(kWhitespace) + 1 - begin);
}

std::string trimLines(std::string_view text)
{
    std::string trimmed;
    for (size_t newline; (newline = text.find('\n')) != text.npos;) {
        (trimmed += trim(text.substr(0, newline))) += '\n';
        text.remove_prefix(newline + 1);
    }
    return trimmed += trim(text);
}

// Returns the fault of a string whose lines have whitespace at their ends, or that ends with a
// newline, if that is the only fault.
std::optional<Problem> describeLines(std::string const& text, std::string const& dialect,
                                     IsValid const& isValid)
{
    if (text.find('\n') == text.npos || !isValid("a\na"))
        return {};
    std::string const trimmed = trimLines(text);
    if (!isValid(trimmed.substr(0, trimmed.find_last_not_of('\n') + 1)))
        return {};
    if (trimmed.ends_with('\n'))
        return Problem{"the dialect " + dialect + " keeps no newline at the end of it",
                       "remove the newline"};
    return Problem{
        "the dialect " + dialect + " keeps no whitespace at the start or end of a line in it",
        "remove the whitespace"};
}

// Returns the number of a character: of a valid sequence of UTF-8, or of a byte.
unsigned codeOf(std::string_view character)
{
    unsigned code = static_cast<unsigned char>(character.front());
    if (character.size() > 1)
        code &= 0x7Fu >> character.size();
    for (char const c : character.substr(1))
        code = code << 6 | (static_cast<unsigned char>(c) & 0x3F);
    return code;
}

std::string nameCharacter(std::string_view character)
{
    unsigned const code = codeOf(character);
    char number[32];
    snprintf(number, sizeof number, character.size() > 1 ? "U+%04X" : "byte %02X", code);
    std::string const quoted = '"' + std::string(character) + '"';
    if (code >= 0x80)
        return character.size() > 1 ? quoted + " (" + number + ")" : number;
    return code == '\n'                 ? "newline"
           : code == '\r'               ? "carriage return"
           : code == '\t'               ? "tab"
           : code == ' '                ? "space"
           : code < ' ' || code == 0x7F ? "control character"
                                        : quoted;
}

// Returns the first different characters of a string that may be invalid. A mark may be invalid
// only after a space or a newline: it is the better description then, and is tried first.
std::vector<std::string_view> findCandidates(std::string_view text)
{
    constexpr size_t kMaxCandidates = 256;
    std::set<std::string_view> known;
    std::vector<std::string_view> candidates;
    while (!text.empty() && candidates.size() < kMaxCandidates) {
        std::string_view const character = text.substr(0, zlines::characterLength(text));
        text.remove_prefix(character.size());
        if (isalnum(codeOf(character) < 0x80 ? character.front() : 0) == 0 &&
            known.insert(character).second)
            candidates.push_back(character);
    }
    std::stable_partition(candidates.begin(), candidates.end(), [](std::string_view c) {
        return std::string_view(" \t\n\r").find(c) == c.npos;
    });
    return candidates;
}

std::string replaceAll(std::string_view text, std::string_view character)
{
    std::string changed;
    for (size_t at; (at = text.find(character)) != text.npos;) {
        (changed += text.substr(0, at)) += 'a';
        text.remove_prefix(at + character.size());
    }
    return changed += text;
}

// Describes a character without which the string is valid.
Problem describeCharacter(std::string const& text, std::string const& character,
                          std::string const& dialect, IsValid const& isValid)
{
    std::string const problem =
        "the dialect " + dialect + " cannot spell the " + nameCharacter(character);
    bool const isValidInside = isValid('a' + character + 'a');
    if (isValidInside && text.ends_with(character) && !isValid('a' + character))
        return {problem + " at the end of it", "use another end"};
    if (isValidInside && text.starts_with(character) && !isValid(character + 'a'))
        return {problem + " at the start of it", "use another start"};
    return {problem + " in it", "use a string without it"};
}

}  // namespace

Problem describeSpellingFault(std::string const& text, std::string const& dialect,
                              IsValid const& isValid)
{
    constexpr size_t kShortLength = 1000;
    std::string const trimmed(trim(text));
    if (trimmed.size() < text.size() && isValid(trimmed))
        return {"the dialect " + dialect + " keeps no whitespace at the start or end of it",
                "remove the whitespace"};
    if (text.size() > kShortLength && isValid(text.substr(0, kShortLength)))
        return {"its line would be too long for the dialect " + dialect, "shorten it"};
    if (std::optional<Problem> const fault = describeLines(text, dialect, isValid))
        return *fault;
    for (std::string_view const character : findCandidates(text))
        if (isValid(replaceAll(text, character)))
            return describeCharacter(text, std::string(character), dialect, isValid);
    return {"the dialect " + dialect + " cannot spell it", "use another string"};
}
