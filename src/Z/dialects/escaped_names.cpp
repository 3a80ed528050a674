#include "escaped_names.h"

#include <algorithm>

#include "characters.h"
#include "escapes.h"

namespace zdialects {

namespace {

constexpr std::string_view kBetweenGroups = "][";
constexpr size_t kBracketSize = 4;  // "\x5b"

// Returns whether an escaped bracket is at the start of the text.
bool startsWithBracket(std::string_view text)
{
    if (text.size() < kBracketSize || !text.starts_with("\\x5"))
        return false;
    char const digit = foldedCase(text[kBracketSize - 1]);
    return digit == 'b' || digit == 'd';
}

// Returns the index of the language in brackets at the end of a key, or npos.
size_t findLanguage(std::string_view key)
{
    size_t const open = key.ends_with(']') ? key.rfind('[') : key.npos;
    return open == 0 ? key.npos : open;
}

void appendEscape(char c, std::string& out)
{
    appendHex(static_cast<unsigned char>(c), 2, kLowerDigits, out += "\\x");
}

// Returns the meaning of the escapes in a group or a key.
std::string decode(std::string_view spelled, bool keepsBrackets)
{
    std::string name;
    for (size_t at = 0; at < spelled.size();) {
        if (spelled[at] != '\\') {
            name += spelled[at++];
            continue;
        }
        std::string_view const rest = spelled.substr(at);
        Escape const escape = readEscape(Escapes::kconfig, spelled, at);
        if (escape.kind == Escape::unknown) {
            name += spelled.substr(at, escape.end - at);
            at = escape.end;
        } else {
            auto const c = static_cast<char>(escape.code);
            if (keepsBrackets && startsWithBracket(rest))
                appendEscape(c, name);
            else if (c == '\\' && startsWithBracket(spelled.substr(escape.end - 1)))
                name += "\\\\";
            else
                name += c;
            at = escape.end;
        }
    }
    return name;
}

// Appends a group, or a key without its language.
void append(std::string_view name, bool isKey, std::string& out)
{
    constexpr std::string_view kMeanings = "\n\t\r\\";
    constexpr std::string_view kLetters = "ntr\\";
    for (size_t at = 0; at < name.size(); ++at) {
        char const c = name[at];
        bool const isFirst = at == 0;
        bool const isAtEnd = isFirst || at + 1 == name.size();
        if (c == '\\' && startsWithBracket(name.substr(at))) {
            out += name.substr(at, kBracketSize);
            at += kBracketSize - 1;
        } else if (c == '\\' && startsWithBracket(name.substr(at + 1))) {
            out += "\\\\";  // two in the name
            out += name.substr(at + 2, kBracketSize - 1);
            at += kBracketSize;
        } else if (kMeanings.find(c) != kMeanings.npos) {
            (out += '\\') += kLetters[kMeanings.find(c)];
        } else if (isKey && c == ' ' && isAtEnd) {
            out += "\\s";
        } else if (c == '[' || c == ']' || (c >= 0 && c < ' ') || (isKey && c == '=') ||
                   (isKey && c == '#' && isFirst)) {
            appendEscape(c, out);
        } else {
            out += c;
        }
    }
}

}  // namespace

std::string_view decodeEscapedStanza(std::string_view spelled, std::string& space)
{
    if (spelled.find('\\') == spelled.npos)
        return spelled;
    std::string name;
    for (std::string_view rest = spelled;;) {
        size_t const end = rest.find(kBetweenGroups);
        std::string_view const part = rest.substr(0, end);
        std::string const group = decode(part, false);
        bool const isUnclear = group.find(kBetweenGroups) != group.npos || group == ".]1";
        name += isUnclear ? decode(part, true) : group;
        if (end == rest.npos)
            return space = std::move(name);
        name += kBetweenGroups;
        rest.remove_prefix(end + kBetweenGroups.size());
    }
}

std::string_view decodeEscapedKey(std::string_view spelled, std::string& space)
{
    if (spelled.find('\\') == spelled.npos)
        return spelled;
    size_t const end = std::min(spelled.find('['), spelled.size());
    std::string_view const base = spelled.substr(0, end);
    std::string name = decode(base, false);
    if (end == spelled.size() && findLanguage(name) != name.npos)
        name = decode(base, true);
    name += spelled.substr(end);
    return space = std::move(name);
}

void appendEscapedStanza(std::string_view name, std::string& out)
{
    for (;;) {
        size_t const end = name.find(kBetweenGroups);
        append(name.substr(0, end), false, out);
        if (end == name.npos)
            return;
        out += kBetweenGroups;
        name.remove_prefix(end + kBetweenGroups.size());
    }
}

void appendEscapedKey(std::string_view name, std::string& out)
{
    size_t const language = std::min(findLanguage(name), name.size());
    append(name.substr(0, language), true, out);
    out += name.substr(language);
}

bool hasBackslash(std::string_view key)
{
    for (size_t at = 0; (at = key.find('\\', at)) != key.npos; ++at)
        if (!startsWithBracket(key.substr(at)))
            return true;
    return false;
}

}  // namespace zdialects
