// Mutable strings: random operations against a model.
#include <Z/ZAbstractMutableString.h>
#include <gtest/gtest.h>

#include <iostream>
#include <random>
#include <sstream>
#include <string>

#include "LocalText.h"
#include "MutableStrings.h"

namespace {

// The contract of ZAbstractMutableString_6_0 for ASCII text.
class Model {
public:
    explicit Model(bool keepsFirst) : keepsFirst_(keepsFirst) {}

    std::string text;
    unsigned capacity = 95;

    void grow(size_t required, bool exact = false)
    {
        if (required > capacity)
            capacity = exact ? static_cast<unsigned>(required) : grown(required);
    }
    void set(std::string const& with)
    {
        text = with;
        grow(text.size());
    }
    void replace(std::string const& from, std::string const& to)
    {
        if (from.empty())
            return;
        std::string result;
        size_t at = 0;
        for (size_t found; (found = text.find(from, at)) != std::string::npos;
             at = found + from.size())
            result += text.substr(at, found - at) + to;
        set(result + text.substr(at));
    }
    void stripLeading() { text.erase(0, std::min(text.size(), text.find_first_not_of(" \t"))); }
    void stripTrailing()
    {
        size_t length = text.size();
        while (length > (keepsFirst_ ? 1u : 0u) && isspace(text[length - 1]))
            --length;
        text.resize(length);
    }
    void replaceCharacters(std::string const& set, std::string const& by, bool inSet)
    {
        std::string result;
        for (char c : text)
            result += (set.find(c) != std::string::npos) == inSet ? by : std::string(1, c);
        this->set(result);
    }

private:
    bool keepsFirst_;  // stripTrailing() does not examine position 0
};

}  // namespace

TYPED_TEST(ZAbstractMutableString, BehavesLikeAModelUnderRandomOperations)
{
    constexpr unsigned kSeed = 20240611;
    constexpr int kOperations = 120000;
    std::cout << "seed " << kSeed << ", " << kOperations << " operations\n";
    std::mt19937 random(kSeed);
    auto const below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    auto const someText = [&] {
        // Occasionally long, so that all growth occurs; mostly short.
        size_t const length = below(20) == 0 ? below(300) : below(12);
        std::string text;
        while (text.size() < length)
            text += "abcAB- \t"[below(8)];
        return text;
    };
    bool const singleByte = isSingleByteLocale();
    bool const isUtf8 = std::is_same_v<TypeParam, ZUTF8String_6_0>;

    TypeParam string;
    Model model(isUtf8 || singleByte);
    for (int i = 0; i < kOperations; ++i) {
        unsigned const operation = below(24);
        std::string const text = someText();
        char const* const chars = text.c_str();
        auto const length = static_cast<unsigned>(model.text.size());
        unsigned const at = below(length + 3);
        unsigned const n = below(8);
        switch (operation) {
            case 0:
                string.append(chars);
                model.text += text;
                model.grow(model.text.size());
                break;
            case 1:
                string.append(chars, static_cast<unsigned>(text.size() / 2));
                model.text += text.substr(0, text.size() / 2);
                model.grow(model.text.size());
                break;
            case 2:
                string += 'c';
                model.text += 'c';
                model.grow(model.text.size());
                break;
            case 3: {
                string.prepend(chars);
                std::string const old = model.text;
                model.capacity = 95;
                model.set(text);
                model.set(text + old);
                break;
            }
            case 4:
                string.insert(at, chars);
                if (at <= length) {
                    model.text.insert(at, text);
                    model.grow(model.text.size());
                }
                break;
            case 5:
                string.remove(at, n);
                if (n == 0 && at <= length)
                    model.text.resize(at);
                else if (n != 0 && at + n <= length)
                    model.text.erase(at, n);
                break;
            case 6:
                string.trunc(at);
                if (at <= length)
                    model.text.resize(at);
                break;
            case 7:
                if (below(4) == 0) {
                    string.clear();
                    model.text.clear();
                }
                break;
            case 8:
                string.setChars(chars);
                model.set(text);
                break;
            case 9:
                string = static_cast<int>(at) - 100;
                model.set(std::to_string(static_cast<int>(at) - 100));
                break;
            case 10:
                string.stripLeading();
                model.stripLeading();
                break;
            case 11:
                string.stripTrailing();
                model.stripTrailing();
                break;
            case 12:
                string.replaceAll("ab", '+');
                for (char& c : model.text)
                    c = c == 'a' || c == 'b' ? '+' : c;
                break;
            case 13:
                string.replaceAll(" -", '\0');
                std::erase_if(model.text, [](char c) { return c == ' ' || c == '-'; });
                break;
            case 14:
                string.replace('c', 'C');
                std::replace(model.text.begin(), model.text.end(), 'c', 'C');
                break;
            case 15: {
                std::string const from = text.substr(0, n % 3 + 1);
                string.replace(from.c_str(), n % 2 == 0 ? "<=>" : "");
                model.replace(from, n % 2 == 0 ? "<=>" : "");
                break;
            }
            case 16:
                string.lower();
                for (char& c : model.text)
                    c = static_cast<char>(tolower(c));
                break;
            case 17:
                string.upper();
                for (char& c : model.text)
                    c = static_cast<char>(toupper(c));
                break;
            case 18:
                if (length < 200) {
                    string.replaceAll("aB", "<>");
                    model.replaceCharacters("aB", "<>", true);
                }
                break;
            case 19:
                if (length < 200) {
                    string.replaceOther("abc<>", "");
                    model.replaceCharacters("abc<>", "", false);
                }
                break;
            case 20:
                string.format("%s/%d", chars, i);
                model.set(text + "/" + std::to_string(i));
                break;
            case 21:
                if (below(200) == 0) {
                    unsigned const capacity = below(1000);
                    string.setCapacity(capacity);
                    model.grow(capacity, true);
                }
                break;
            case 22: {
                TypeParam const copy(string);
                string.clear();
                string = copy;
                break;
            }
            case 23: {
                auto const from = static_cast<unsigned>(std::min<size_t>(at, length));
                auto const found = model.text.find(text.substr(0, 2), from);
                EXPECT_EQ(found == std::string::npos ? -1 : static_cast<int>(found),
                          string.indexOf(text.substr(0, 2).c_str(), at));
                EXPECT_EQ(model.text.substr(from, n), textOf(string.subString(at, n)));
                EXPECT_EQ(model.text.rfind(text, 0) == 0 && !model.text.empty(),
                          string.beginsWith(chars));
                break;
            }
        }
        ASSERT_EQ(model.text, textOf(string)) << "operation " << operation << " at step " << i;
        ASSERT_EQ(model.text.size(), strlen(string.getChars()));
        ASSERT_EQ(model.capacity, string.getCapacity())
            << "operation " << operation << " at step " << i;
        if (model.text.size() > 2000) {
            string.prepend("");
            string.clear();
            model.set(model.text);
            model.capacity = string.getCapacity();
            model.text.clear();
        }
    }
}
