// JavaModel: a slow reader of Java-style property files, driven by a table of states and kinds of
// characters.
//
// A row is a state, a column a kind of character. A cell gives the action and the next state:
//
//     k v    append the character to the key, or to the value
//     s      store the entry; stop at the stop key
//     m      store the entry as at an empty continuation line
//     f d l  first, middle and last hexadecimal digit
//     x      error: skip the line
//     a … o  the next state: the letters mean 1 to 15
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class JavaModel {
public:
    enum Kind {
        blank,
        comment,
        lineEnd,
        separator,
        equals,
        backslash,
        letterU,
        digit,
        quote,
        other
    };

    // A character and the states before and after it.
    struct Step {
        char c;
        int state;  // before the character
        Kind kind;
        int next;      // after the character; 16 for an error
        bool ignored;  // second of a pair of line endings: state, kind and next are undefined
    };

    explicit JavaModel(std::string_view bytes, std::string const& stopKey = "")
    {
        int state = 1;
        char previous = 0;
        for (char const c : bytes) {
            bool const ignored = (previous == '\n' && c == '\r') || (previous == '\r' && c == '\n');
            previous = c;
            Step step = {c, state, kindOf(c), state, ignored};
            if (!ignored)
                step.next = take(step, stopKey);
            steps.push_back(step);
            state = step.next == 16 ? 3 : step.next;
            if (state == 15)
                return;
        }
        if (!key.empty() && key == stopKey)
            stored.emplace_back(key, value);
    }

    static Kind kindOf(char c)
    {
        constexpr std::pair<Kind, std::string_view> kKinds[] = {
            {blank, " \t\v\f"}, {comment, "#!"}, {lineEnd, "\n\r"},
            {separator, ":"},   {equals, "="},   {backslash, "\\"},
            {letterU, "uU"},    {quote, "\"'"},  {digit, "0123456789abcdefABCDEF"},
        };
        for (auto const& [kind, characters] : kKinds)
            if (characters.find(c) != characters.npos)
                return kind;
        return other;
    }

    std::vector<std::pair<std::string, std::string>> stored;  // in the order of the file
    std::vector<Step> steps;
    std::string key;  // the last key that was read
    std::string value;

private:
    int take(Step const& step, std::string const& stopKey)
    {
        //                             blank  #!    end   :     =     \     u     0-f   quote other
        constexpr char const* kTable[14][10] = {
            /*  1 start of a line  */ {"b", "c", "a", "kd", "kd", "kd", "kd", "kd", "kd", "kd"},
            /*  2 spaces there     */ {"b", "c", "a", "x", "x", "kd", "kd", "kd", "kd", "kd"},
            /*  3 comment          */ {"c", "c", "a", "c", "c", "c", "c", "c", "c", "c"},
            /*  4 key              */ {"f", "kd", "x", "g", "g", "e", "kd", "kd", "kd", "kd"},
            /*  5 escape in it     */ {"kd", "x", "x", "kd", "kd", "kd", "x", "x", "x", "x"},
            /*  6 spaces after it  */ {"f", "vh", "x", "g", "g", "i", "vh", "vh", "vh", "vh"},
            /*  7 separator        */ {"g", "vh", "s", "vh", "vh", "i", "vh", "vh", "vh", "vh"},
            /*  8 value            */ {"vh", "vh", "s", "vh", "vh", "i", "vh", "vh", "vh", "vh"},
            /*  9 escape in it     */ {"vh", "x", "j", "vh", "x", "vh", "k", "x", "vh", "x"},
            /* 10 continuation     */ {"j", "vh", "m", "vh", "vh", "i", "vh", "vh", "vh", "vh"},
            /* 11 first digit      */ {"x", "x", "x", "x", "x", "x", "x", "fl", "x", "x"},
            /* 12 second digit     */ {"x", "x", "x", "x", "x", "x", "x", "dm", "x", "x"},
            /* 13 third digit      */ {"x", "x", "x", "x", "x", "x", "x", "dn", "x", "x"},
            /* 14 fourth digit     */ {"x", "x", "x", "x", "x", "x", "x", "lh", "x", "x"},
        };
        if (step.state == 1)
            key = value = "";
        std::string_view const cell = kTable[step.state - 1][step.kind];
        int const next = cell.back() - 'a' + 1;
        if (cell == "x")
            return 16;
        if (cell == "s") {
            stored.emplace_back(key, value);
            return key == stopKey ? 15 : 1;
        }
        if (cell == "m") {
            if (stopKey.empty() || key == stopKey)
                stored.emplace_back(key, value);
            return 1;
        }
        if (cell.size() == 1)
            return next;
        switch (cell.front()) {
            case 'k':
                key += step.c;
                break;
            case 'v':
                value += step.c;
                break;
            case 'f':
                digits = step.c;
                break;
            case 'd':
                digits += step.c;
                break;
            case 'l':
                digits += step.c;
                addUnit(std::stoi(digits, nullptr, 16));
                break;
        }
        return next;
    }

    // The unit 0 adds nothing; an unpaired surrogate is encoded like any other unit.
    void addUnit(int unit)
    {
        auto const add = [this](int bits) { value += static_cast<char>(bits); };
        if (unit >= 0x800) {
            add(0xE0 + unit / 4096);
            add(0x80 + unit / 64 % 64);
            add(0x80 + unit % 64);
        } else if (unit >= 0x80) {
            add(0xC0 + unit / 64);
            add(0x80 + unit % 64);
        } else if (unit > 0) {
            add(unit);
        }
    }

    std::string digits;
};
