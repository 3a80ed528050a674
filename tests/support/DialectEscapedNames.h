// DialectEscapedNames: the names of the model that are spelled with backslashes.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace dialect_model {

namespace escaped_names {

// A character of a name and how it is spelled.
struct Character {
    std::string spelled;
    std::string meaning;

    bool isBracket() const { return spelled.size() > 1 && (meaning == "[" || meaning == "]"); }
};

inline bool isHexBracket(std::string const& text)
{
    std::string const start = text.substr(0, 4);
    return start == "\\x5b" || start == "\\x5d" || start == "\\x5B" || start == "\\x5D";
}

inline std::vector<Character> charactersOf(std::string text)
{
    static std::string const letters = "sntr\\";
    static std::string const meanings = " \n\t\r\\";
    std::vector<Character> found;
    while (!text.empty()) {
        std::string spelled = text.substr(0, 1);
        std::string meaning = spelled;
        std::string const digits = text.size() < 4 ? "" : text.substr(2, 2);
        if (text[0] == '\\' && text.size() > 1) {
            std::size_t const letter = letters.find(text[1]);
            bool const isHex = text[1] == 'x' && digits.size() == 2 && digits != "00" &&
                               digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos;
            spelled = text.substr(0, isHex ? 4 : 2);
            meaning = isHex ? std::string(1, static_cast<char>(std::stoi(digits, nullptr, 16)))
                      : letter == letters.npos ? spelled
                                               : std::string(1, meanings[letter]);
        }
        text.erase(0, spelled.size());
        if (spelled == "\\\\" && isHexBracket("\\" + text))
            meaning = "\\\\";
        found.push_back({spelled, meaning});
    }
    return found;
}

inline std::string joined(std::vector<Character> const& characters, bool keepsBrackets)
{
    std::string name;
    for (Character const& c : characters)
        name += !keepsBrackets || !c.isBracket() ? c.meaning : c.meaning == "[" ? "\\x5b" : "\\x5d";
    return name;
}

inline std::string encoded(std::string text, bool isKey)
{
    std::string spelled;
    for (bool isFirst = true; !text.empty(); isFirst = false) {
        std::string const c = text.substr(0, 1);
        std::size_t const size = isHexBracket(text)                          ? 4
                                 : c == "\\" && isHexBracket(text.substr(1)) ? 5
                                                                             : 1;
        char hex[8];
        snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(c[0]) & 0xffu);
        bool const isHex = c == "[" || c == "]" || (c[0] >= 0 && c[0] < 0x20) ||
                           (isKey && (c == "=" || (c == "#" && isFirst)));
        bool const isEnd = isFirst || text.size() == 1;
        spelled += size > 1                     ? text.substr(0, size)
                   : c == "\\"                  ? "\\\\"
                   : c == "\n"                  ? "\\n"
                   : c == "\t"                  ? "\\t"
                   : c == "\r"                  ? "\\r"
                   : isKey && c == " " && isEnd ? "\\s"
                   : isHex                      ? hex
                                                : c;
        text.erase(0, size);
    }
    return spelled;
}

// The index of the bracket that opens a language at the end of a key, or the size.
inline std::size_t languageAt(std::string const& key)
{
    std::size_t const open = key.rfind('[');
    bool const has = !key.empty() && key.back() == ']' && open != key.npos && open > 0;
    return has ? open : key.size();
}

}  // namespace escaped_names

// Brackets stay escaped if the name would have another meaning without the escapes.
inline std::string escapedStanzaDecoded(std::string const& spelled)
{
    using namespace escaped_names;
    if (spelled.find('\\') == spelled.npos)
        return spelled;
    std::size_t const end = spelled.find("][");
    std::vector<Character> const characters = charactersOf(spelled.substr(0, end));
    std::string const plain = joined(characters, false);
    bool const isUnclear = plain.find("][") != plain.npos || plain == ".]1";
    std::string const group = joined(characters, isUnclear);
    return end == spelled.npos ? group
                               : group + "][" + escapedStanzaDecoded(spelled.substr(end + 2));
}

inline std::string escapedKeyDecoded(std::string const& spelled)
{
    using namespace escaped_names;
    std::size_t const end = spelled.find('[');
    std::vector<Character> const characters = charactersOf(spelled.substr(0, end));
    std::string const plain = joined(characters, false);
    if (end != spelled.npos)
        return plain + spelled.substr(end);
    return joined(characters, languageAt(plain) < plain.size());
}

inline std::string escapedKeyEncoded(std::string const& key)
{
    std::size_t const language = escaped_names::languageAt(key);
    return escaped_names::encoded(key.substr(0, language), true) + key.substr(language);
}

}  // namespace dialect_model
