// Strings, edited step by step, compared with std::string and plain loops over its characters.
// Iterators and tokenizers must visit the same parts as those loops.
#include <Z/ZArrayList.h>
#include <Z/ZLCString.h>
#include <Z/ZStringIterator.h>
#include <Z/ZStringTokenizer.h>
#include <Z/ZUTF8String.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "check.h"

namespace {

constexpr size_t kLongest = 2000;

// Whole characters of UTF-8, in one to four bytes.
constexpr char const* kAlphabet[] = {"a",      "b",      "ab",     " ",      "\t",     ",",
                                     "x",      "\u00e9", "\u00c9", "\u65e5", "\u672c", "\U0001F600",
                                     "\u0416", "\r",     "\n",     "ba"};

std::string textOf(Choices& choices, unsigned most)
{
    std::string text;
    for (unsigned n = choices.below(most + 1); n > 0; --n)
        text += kAlphabet[choices.below(16)];
    return text;
}

std::vector<std::string> charactersOf(std::string const& text)
{
    std::vector<std::string> characters;
    for (char const c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) == 0x80)
            characters.back() += c;
        else
            characters.emplace_back(1, c);
    }
    return characters;
}

bool isIn(std::string const& character, std::string const& set)
{
    for (std::string const& each : charactersOf(set))
        if (each == character)
            return true;
    return false;
}

std::string replaced(std::string const& text, std::string const& what, std::string const& by)
{
    std::string result;
    size_t at = 0;
    for (size_t found; (found = text.find(what, at)) != std::string::npos; at = found + what.size())
        result += text.substr(at, found - at) + by;
    return result + text.substr(at);
}

std::string replacedCharacters(std::string const& text, std::string const& set,
                               std::string const& by, bool thoseIn)
{
    std::string result;
    for (std::string const& character : charactersOf(text))
        result += isIn(character, set) == thoseIn ? by : character;
    return result;
}

// The offset of the n-th character, modulo the number of characters plus one.
size_t beginOf(std::string const& text, unsigned n)
{
    std::vector<std::string> const characters = charactersOf(text);
    size_t at = 0;
    for (unsigned i = n % (static_cast<unsigned>(characters.size()) + 1); i > 0; --i)
        at += characters[i - 1].size();
    return at;
}

std::string bytesOf(ZAbstractString_6_0 const& string)
{
    check(string.getChars()[string.getLength()] == '\0', "a string is terminated");
    return {string.getChars(), string.getLength()};
}

void edit(ZUTF8String_6_0& string, std::string& model, Choices& choices)
{
    unsigned const capacity = string.getCapacity();
    char const* const place = string.getChars();
    unsigned const act = choices.below(16);
    std::string const text = textOf(choices, 12);
    std::string const set = textOf(choices, 5);
    auto const at = static_cast<unsigned>(beginOf(model, choices.byte()));
    auto const rest = static_cast<unsigned>(model.size()) - at;
    bool keepsPlace = true;
    switch (act) {
        case 0:
            string.append(text.c_str());
            model += text;
            break;
        case 1:
            string.prepend(text.c_str());
            model.insert(0, text);
            keepsPlace = false;
            break;
        case 2:
            string.insert(at, text.c_str());
            model.insert(at, text);
            break;
        case 3: {
            auto const n = static_cast<unsigned>(beginOf(model.substr(at), choices.byte()));
            string.remove(at, n);
            model.erase(at, n == 0 ? rest : n);
            break;
        }
        case 4:
            string.trunc(at);
            model.resize(at);
            break;
        case 5:
            string.setChars(text.c_str());
            model = text;
            break;
        case 6:
            string.replace(set.c_str(), text.c_str());
            if (!set.empty())
                model = replaced(model, set, text);
            keepsPlace = false;
            break;
        case 7:
            string.replaceAll(set.c_str(), text.c_str());
            model = replacedCharacters(model, set, text, true);
            keepsPlace = false;
            break;
        case 8:
            string.replaceOther(set.c_str(), text.c_str());
            model = replacedCharacters(model, set, text, false);
            keepsPlace = false;
            break;
        case 9:
            string.replace('a', 'z');
            model = replaced(model, "a", "z");
            break;
        case 10:  // its own text, which moves
            string.insert(at, string.getChars() + at);
            model.insert(at, model.substr(at));
            break;
        case 11:
            string.append(string.getChars(), at);
            model += model.substr(0, at);
            break;
        case 12:
            string.setChars(string.getChars() + at, rest);
            model.erase(0, at);
            break;
        case 13:
            string.setCapacity(choices.byte() * 4);
            break;
        case 14: {
            ZUTF8String_6_0 const copy(string.subString(at));
            check(bytesOf(copy) == model.substr(at), "a substring equals the model's");
            string = copy;
            model.erase(0, at);
            break;
        }
        default:
            string.clear();
            model.clear();
    }
    check(bytesOf(string) == model, "an edit has the result of the model");
    check(string.getCapacity() >= string.getLength(), "the capacity is at least the length");
    check(!keepsPlace || string.getCapacity() > capacity || string.getChars() == place,
          "contents that fit do not move");
    // The whole capacity is writable: a sanitizer checks.
    char* const room = const_cast<char*>(string.getChars());
    for (unsigned i = string.getLength() + 1; i <= string.getCapacity(); ++i)
        room[i] = '#';
}

void walk(ZUTF8String_6_0 const& string, std::string const& model, Choices& choices)
{
    ZUTF8String_6_0 target;
    ZStringIterator_6_0 characters(string, target);
    for (std::string const& character : charactersOf(model)) {
        check(characters.hasMore(), "there is a next character");
        check(characters.getNext() == &target && bytesOf(target) == character,
              "getNext() returns the model's part");
    }
    check(!characters.hasMore(), "there are no more characters");
    check(bytesOf(*characters.getNext()).empty(), "the target is emptied at the end");

    std::string const set = textOf(choices, 4);
    std::vector<std::string> tokens(1);
    for (std::string const& character : charactersOf(model)) {
        if (!isIn(character, set))
            tokens.back() += character;
        else if (!tokens.back().empty())
            tokens.emplace_back();
    }
    if (tokens.back().empty())
        tokens.pop_back();
    ZUTF8String_6_0 const delimiters(set.c_str());
    ZStringTokenizer_6_0 tokenizer(string, target, delimiters);
    size_t const listed = tokens.empty() ? 0 : choices.byte() % tokens.size();
    for (size_t i = 0; i < tokens.size(); ++i) {
        if (i == listed) {
            ZStringTokenizer_6_0 copy(tokenizer);
            ZArrayList_6_0 others(2, 1);
            copy.list(others);
            check(others.size() == tokens.size() - i, "list() adds all remaining tokens");
            for (unsigned n = 0; n < others.size(); ++n)
                check(bytesOf(static_cast<ZAbstractString_6_0 const&>(*others.get(n))) ==
                          tokens[i + n],
                      "list() adds the tokens of the model");
        }
        check(tokenizer.hasMore(), "there is a next token");
        check(tokenizer.skipOther(delimiters) == tokens[i].size(),
              "skipOther() returns the token's length");
        check(bytesOf(*tokenizer.getNext()) == tokens[i], "getNext() returns the model's part");
    }
    check(!tokenizer.hasMore(), "there are no more tokens");
    check(bytesOf(*tokenizer.getNext()).empty(), "the target is emptied");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Choices choices(data, std::min<size_t>(size, 500));
    ZUTF8String_6_0 string;
    std::string model;
    while (!choices.isEmpty()) {
        edit(string, model, choices);
        if (model.size() > kLongest) {
            string.trunc(0);
            model.clear();
        }
    }
    walk(string, model, choices);
    ZUTF8String_6_0 const copy(string);
    check(copy.compare(string) == 0 && copy.hash() == string.hash(), "a copy is equal");
    Choices again(data, size);
    walk(string, model, again);
    return 0;
}
