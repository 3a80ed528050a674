// PlainDialects: the plain functions on a store in any dialect. A refused change changes nothing; a
// change can be read back, from the store and from its text.
#pragma once

#include <Z/zproperties_c.h>
#include <ctype.h>

#include <string>
#include <string_view>
#include <vector>

#include "check.h"

class PlainDialects {
public:
    explicit PlainDialects(Choices& choices) : choices_(choices)
    {
        int count = 0;
        while (zstzPropGetDialectName_6_0(count) != nullptr)
            ++count;
        dialect_ = zstzPropGetDialectName_6_0(
            static_cast<int>(choices.below(static_cast<unsigned>(count))));
        store_ = create();
    }
    PlainDialects(PlainDialects const&) = delete;
    PlainDialects& operator=(PlainDialects const&) = delete;
    ~PlainDialects() { zstzPropClose_6_0(store_); }

    void run()
    {
        std::string const contents = choices_.text(200);
        check(zstzPropSetOption_6_0(store_, zpropKeepLines, 1) == zpropOk, "an option is set");
        int const code = zstzPropLoadText_6_0(store_, contents.data(), contents.size());
        check(code == zpropOk || code == zpropOpenStoreFailed, "contents are read or refused");
        if (code != zpropOk)
            return;
        while (!choices_.isEmpty())
            change();
    }

private:
    // The contents as a store writes them; `code` is not 0 if a value cannot be written.
    struct Contents {
        std::string text;
        int code;
    };

    ZPROP_handle* create() const
    {
        ZPROP_handle* handle = nullptr;
        check(zstzPropNew_6_0(&handle, dialect_) == zpropOk, "a dialect of the list is known");
        return handle;
    }

    static std::string take(char* text)
    {
        std::string const copied = text == nullptr ? "" : text;
        zstzPropFree_6_0(text);
        return copied;
    }

    static Contents contentsOf(ZPROP_handle* handle)
    {
        size_t length = 0;
        int code = -1;
        char* const text = zstzPropStoreText_6_0(handle, &length, &code);
        Contents const contents{text == nullptr ? "" : std::string(text, length), code};
        zstzPropFree_6_0(text);
        check(code == zpropOk || code == zpropChangeFailed, "contents are composed or refused");
        return contents;
    }

    static std::string valuesOf(ZPROP_handle* handle)
    {
        int code = -1;
        std::string values = take(zstzPropGetAll_6_0(handle, nullptr, nullptr, nullptr, &code));
        check(code == zpropOk, "all values are listed");
        // A dialect may ignore the case of names, and take "_" for "-": it writes one form.
        for (char& c : values)
            c = c == '_' ? '-' : static_cast<char>(tolower(static_cast<unsigned char>(c)));
        // The part above the first header needs no line.
        for (std::string_view const empty : {"\".\":{},", ",\".\":{}", "\".\":{}"})
            if (size_t const at = values.find(empty); at != values.npos)
                values.erase(at, empty.size());
        return values;
    }

    // Returns the names and lists of JSON text, sorted.
    static std::vector<std::string> inAnyOrder(std::string const& values)
    {
        std::vector<std::string> parts;
        for (size_t at = 0; at < values.size();) {
            size_t const begin = values[at] == ',' ? at + 1 : at;
            size_t const end = std::min(values.find_first_of("]{}", begin), values.size());
            parts.push_back(values.substr(begin, end - begin));
            at = end + 1;
        }
        std::sort(parts.begin(), parts.end());
        return parts;
    }

    char const* chooseStanza()
    {
        static char const* const kStanzas[] = {"s", "t", "s", "S", "s]2", "a.B", "", "x]y"};
        return kStanzas[choices_.below(std::size(kStanzas))];
    }

    char const* chooseKey()
    {
        static char const* const kKeys[] = {"k", "j", "K", "k[]", "a-b", "a_b", "", "a=b"};
        return kKeys[choices_.below(std::size(kKeys))];
    }

    std::string chooseValue()
    {
        static char const* const kValues[] = {"1",  "",     " x ", "a;b", "a # b", "\"q\"",
                                              "\\", "it's", "\n",  "%",   "$(x)",  "a\\\nb"};
        unsigned const index = choices_.byte();
        if (index < std::size(kValues))
            return kValues[index];
        std::string value = choices_.text(12);
        value.resize(std::min(value.find('\0'), value.size()));
        return value;
    }

    // As check(); shows the last change first.
    void expect(bool holds, char const* expectation) const
    {
        if (!holds)
            fprintf(stderr, "%s\nafter:\n%s\nvalues: %s\n", call_.c_str(),
                    contentsOf(store_).text.c_str(), valuesOf(store_).c_str());
        check(holds, expectation);
    }

    void change();
    int callOne(unsigned act, char const* stanza, char const* key, std::string const& value);
    void checkValue(char const* stanza, char const* key, std::string const& value) const;
    void checkReading(Contents const& contents) const;

    Choices& choices_;
    char const* dialect_;
    ZPROP_handle* store_;
    std::string call_;  // the last change, for reports
};

inline int PlainDialects::callOne(unsigned act, char const* stanza, char const* key,
                                  std::string const& value)
{
    char const* const several[] = {value.c_str(), "2"};
    switch (act) {
        case 0:
            return zstzPropSetStringValue_6_0(store_, stanza, key, value.c_str());
        case 1:
            return zstzPropSetStringValues_6_0(store_, stanza, key, several,
                                               static_cast<int>(choices_.below(3)));
        case 2:
            return zstzPropAddStringValue_6_0(store_, stanza, key, value.c_str());
        case 3:
            return zstzPropRemoveValue_6_0(store_, stanza, key, value.c_str());
        case 4:
            return zstzPropRemoveKey_6_0(store_, stanza, key);
        case 5:
            return zstzPropRemoveStanza_6_0(store_, stanza);
        case 6:
            return zstzPropAddStanza_6_0(store_, stanza);
        case 7:
            return zstzPropRenameStanza_6_0(store_, stanza, chooseStanza());
        case 8:
            return zstzPropRenameKey_6_0(store_, stanza, key, chooseKey());
        case 9:
            return zstzPropSetLineComment_6_0(store_, stanza, key, value.c_str());
        case 10:
            return zstzPropSetRawValue_6_0(store_, stanza, key, static_cast<int>(choices_.below(3)),
                                           value.c_str());
        default:
            return zstzPropSetStanzaComment_6_0(store_, stanza, value.c_str());
    }
}

inline void PlainDialects::change()
{
    unsigned const act = choices_.below(12);
    char const* const stanza = chooseStanza();
    char const* const key = chooseKey();
    std::string const value = chooseValue();
    Contents const before = contentsOf(store_);
    std::string const valuesBefore = valuesOf(store_);
    int const code = callOne(act, stanza, key, value);
    call_ = "dialect " + std::string(dialect_) + ", act " + std::to_string(act) + ", [" + stanza +
            "] " + key + ", value \"" + value + "\", code " + std::to_string(code) + ", before:\n" +
            before.text;
    check(code == zpropOk || code == zpropChangeFailed || code == zpropMissing,
          "a change has one of three codes");
    Contents const after = contentsOf(store_);
    if (code != zpropOk) {
        expect(after.text == before.text, "a refused change keeps the contents");
        expect(valuesOf(store_) == valuesBefore, "a refused change keeps the values");
        return;
    }
    if (act == 0)
        checkValue(stanza, key, value);
    if (after.code != zpropOk)
        return;
    checkReading(after);
    if (act == 0) {
        check(zstzPropSetStringValue_6_0(store_, stanza, key, value.c_str()) == zpropOk,
              "the present value can be set");
        expect(contentsOf(store_).text == after.text, "setting the present value changes nothing");
    }
}

inline void PlainDialects::checkValue(char const* stanza, char const* key,
                                      std::string const& value) const
{
    int first = -1, count = -1, code = -1;
    std::string const found = take(zstzPropGetStringValue_6_0(store_, stanza, key, 0, &code));
    expect(code == zpropOk && found == value, "a set value is returned");
    check(zstzPropGetCountingRange_6_0(store_, stanza, key, &first, &count) == zpropOk,
          "a set key has a range");
    int const all = zstzPropNumValues_6_0(store_, stanza, key, &code);
    check(code == zpropOk && first >= 0 && count >= 0 && count <= 1 && first + count <= all,
          "the range is inside the values");
}

// Reads the contents in another store.
inline void PlainDialects::checkReading(Contents const& contents) const
{
    ZPROP_handle* const other = create();
    int const code = zstzPropLoadText_6_0(other, contents.text.data(), contents.text.size());
    expect(code == zpropOk, "composed contents are valid");
    // A key that was removed and set again has its old line in the text, but is the last in the
    // store.
    expect(inAnyOrder(valuesOf(other)) == inAnyOrder(valuesOf(store_)),
           "composed contents have the values of the store");
    zstzPropClose_6_0(other);
}
