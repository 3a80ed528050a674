// Strings in many codesets: the functions on whole characters return the results of simple loops
// over the characters. Each block ends at the terminator or at the length passed.
#include <qvr.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "check.h"

namespace {

constexpr char const* kNames[] = {"UTF-8",        "EUC-JP",   "Shift_JIS", "GB18030",
                                  "Big5",         "EUC-KR",   "EUC-TW",    "windows-31j",
                                  "windows-1252", "US-ASCII", "GBK",       "KOI8-R"};
constexpr size_t kNameCount = sizeof kNames / sizeof *kNames;

using Characters = std::vector<std::string>;

// A string with its terminator, in a block of its own.
class Text {
public:
    explicit Text(std::string const& text)
        : bytes_(text.c_str(), text.c_str() + strlen(text.c_str()) + 1)
    {
    }
    char* begin() { return bytes_.data(); }
    size_t length() const { return bytes_.size() - 1; }
    std::string string() const { return bytes_.data(); }

private:
    std::vector<char> bytes_;
};

Characters charactersOf(qvr_cs_t cs, Text& text)
{
    Characters characters;
    size_t at = 0;
    while (at < text.length()) {
        int const length = qvr_mblen(cs, text.begin() + at, text.length() + 1 - at);
        uint32_t point = 0xABCDEF;
        int const decoded = qvr_mbtowc(cs, &point, text.begin() + at, text.length() + 1 - at);
        check(length != 0, "a character before the terminator has a length");
        check(decoded == length || (decoded == -1 && point == 0xABCDEF),
              "decoding takes the same bytes");
        size_t const n = length < 0 ? 1 : static_cast<size_t>(length);
        check(n <= text.length() - at && n <= qvrMbLenMax,
              "a character ends before the terminator");
        if (length > 1)
            for (size_t cut = 1; cut < n; ++cut)
                check(qvr_mblen(cs, text.begin() + at, cut) == -1,
                      "a truncated character is invalid");
        characters.emplace_back(text.begin() + at, n);
        at += n;
    }
    return characters;
}

bool isValid(qvr_cs_t cs, Text& text)
{
    for (size_t at = 0; at < text.length();) {
        int const length = qvr_mblen(cs, text.begin() + at, text.length() - at);
        if (length <= 0)
            return false;
        at += static_cast<size_t>(length);
    }
    return true;
}

bool contains(Characters const& characters, std::string const& character)
{
    return std::find(characters.begin(), characters.end(), character) != characters.end();
}

// The length of the prefix of `text` whose characters are, or are not, in `set`.
size_t span(Characters const& text, Characters const& set, bool isIn)
{
    size_t length = 0;
    for (std::string const& character : text) {
        if (contains(set, character) != isIn)
            break;
        length += character.size();
    }
    return length;
}

void searches(qvr_cs_t cs, Text& text, Characters const& characters, Text& other,
              Characters const& others, char c)
{
    size_t const in = span(characters, others, true);
    size_t const out = span(characters, others, false);
    check(qvr_strspn(cs, text.begin(), other.begin()) == in, "strspn");
    check(qvr_strcspn(cs, text.begin(), other.begin()) == out, "strcspn");
    char* const first = out == text.length() ? nullptr : text.begin() + out;
    check(qvr_strpbrk(cs, text.begin(), other.begin()) == first, "strpbrk");

    char* found = c == '\0' ? text.begin() + text.length() : nullptr;
    char* last = found;
    size_t at = 0;
    for (std::string const& character : characters) {
        if (c != '\0' && character == std::string(1, c)) {
            last = text.begin() + at;
            found = found == nullptr ? last : found;
        }
        at += character.size();
    }
    check(qvr_strchr(cs, text.begin(), c) == found, "strchr");
    check(qvr_strrchr(cs, text.begin(), c) == last, "strrchr");

    // Character boundaries, including the end.
    std::vector<size_t> begins = {0};
    for (std::string const& character : characters)
        begins.push_back(begins.back() + character.size());
    char* match = nullptr;
    for (size_t const begin : begins) {
        bool const ends =
            std::find(begins.begin(), begins.end(), begin + other.length()) != begins.end();
        if (match == nullptr && ends &&
            memcmp(text.begin() + begin, other.begin(), other.length()) == 0)
            match = text.begin() + begin;
    }
    check(qvr_strstr(cs, text.begin(), other.begin()) == match, "strstr");
}

void tokens(qvr_cs_t cs, Text text, Characters const& characters, Text& delimiters,
            Characters const& set)
{
    std::vector<std::string> expected;
    std::string token;
    for (std::string const& character : characters) {
        if (!contains(set, character)) {
            token += character;
        } else if (!token.empty()) {
            expected.push_back(token);
            token.clear();
        }
    }
    if (!token.empty())
        expected.push_back(token);
    std::vector<std::string> given;
    for (char* at = qvr_strtok(cs, text.begin(), delimiters.begin()); at != nullptr;
         at = qvr_strtok(cs, nullptr, delimiters.begin())) {
        given.emplace_back(at);
        check(given.size() <= expected.size(), "strtok ends");
    }
    check(given == expected, "strtok");
}

// Checks the copying functions: they copy the whole characters in `n` bytes. An invalid byte is a
// character of its own, unless it may start a longer character that the `n` bytes cut.
void copies(qvr_cs_t cs, Text& text, Characters const& characters, size_t n)
{
    std::vector<char> source(text.begin(), text.begin() + std::min(n, text.length() + 1));
    std::vector<char> copied(n, '#');
    std::vector<char> appended(n + 3, '#');
    memcpy(appended.data(), "ab", 3);
    char nothing = 0;
    char const* const from = source.empty() ? &nothing : source.data();
    check(qvr_strncpy(cs, copied.empty() ? &nothing : copied.data(), from, n) != nullptr,
          "strncpy");
    check(qvr_strncat(cs, appended.data(), from, n) == appended.data(), "strncat");
    std::string const got = appended.data() + 2;
    check(std::string(appended.data(), 2) == "ab", "strncat appends");
    size_t whole = 0;
    for (std::string const& character : characters)
        if (whole + character.size() <= n)
            whole += character.size();
        else
            break;
    check(got.size() <= n && text.string().compare(0, got.size(), got) == 0,
          "the copy is a prefix");
    check(got.size() <= whole && whole - got.size() < qvrMbLenMax, "the copy is as long as fits");
    if (text.length() <= n)
        check(got.size() >= text.length() - std::min<size_t>(text.length(), qvrMbLenMax - 1),
              "everything is copied if it fits");
    for (size_t i = 0; i < n; ++i)
        check(copied[i] == (i < got.size() ? got[i] : '\0'),
              "both copy the same, and strncpy pads with zeros");
}

void cases(qvr_cs_t cs, qvr_loc_t loc, Text& text, Text& other, size_t n)
{
    int const order = qvr_stricmp(cs, loc, text.begin(), other.begin());
    int const reverse = qvr_stricmp(cs, loc, other.begin(), text.begin());
    check((order > 0) == (reverse < 0) && (order < 0) == (reverse > 0),
          "the order is antisymmetric");
    check(qvr_stricmp(cs, loc, text.begin(), text.begin()) == 0, "a string equals itself");
    size_t const most = std::max(text.length(), other.length()) + 1;
    check(qvr_strnicmp(cs, loc, text.begin(), other.begin(), most) == order,
          "strnicmp with the full length agrees with stricmp");
    std::vector<char> const cut(text.begin(), text.begin() + std::min(n, text.length() + 1));
    std::vector<char> const same = cut;
    char const nothing = 0;
    check(qvr_strnicmp(cs, loc, cut.empty() ? &nothing : cut.data(),
                       same.empty() ? &nothing : same.data(), cut.size()) == 0,
          "a prefix equals itself");
    for (auto const change : {qvr_strupper, qvr_strlower}) {
        Text changed(text.string());
        check(change(cs, loc, changed.begin()) == changed.begin(), "the case changes in place");
        check(changed.string().size() == text.length(), "the length does not change");
        // An invalid byte and a changed byte after it may form a character.
        if (!isValid(cs, text))
            continue;
        Text twice(changed.string());
        change(cs, loc, twice.begin());
        check(twice.string() == changed.string(), "changing it again changes nothing");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static qvr_cs_t codesets[kNameCount];
    static qvr_loc_t const locales[] = {nullptr, qvr_loc_new("tr_TR.UTF-8"), qvr_loc_new("C")};
    Choices choices(data, size);
    unsigned const index = choices.below(kNameCount);
    qvr_cs_t& cs = codesets[index];
    if (cs == nullptr)
        cs = qvr_cs_new(kNames[index]);
    check(cs != nullptr, "the codeset is known");
    qvr_loc_t const loc = locales[choices.below(3)];
    auto const c = static_cast<char>(choices.byte());
    size_t const n = choices.below(80);
    Text other(choices.text(40));
    Text text(choices.rest());
    Characters const characters = charactersOf(cs, text);
    Characters const others = charactersOf(cs, other);
    searches(cs, text, characters, other, others, c);
    tokens(cs, text, characters, other, others);
    copies(cs, text, characters, n);
    cases(cs, loc, text, other, n);
    return 0;
}
