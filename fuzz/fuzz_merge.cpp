// Merges of generated files: a merge with an unchanged side gives the other side byte for byte, and
// a merge without conflicts gives the same values whichever side is first, among them every change
// that only one side makes.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/zproperties_c.h>
#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "check.h"

namespace {

using Values = std::vector<std::string>;
using Contents = std::map<std::string, std::map<std::string, Values>>;

bool read(std::string const& text, Contents& contents)
{
    ZSCFData_6_0 cache;
    try {
        cache.readText("fuzz.conf", text.data(), text.size());
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        return false;
    }
    ZArrayList_6_0 stanzas(8, 1);
    cache.getNames(stanzas);
    for (unsigned i = 0; i < stanzas.size(); ++i) {
        char const* const stanza = static_cast<ZLCString_6_0 const*>(stanzas.get(i))->getChars();
        ZArrayList_6_0 keys(8, 1);
        cache.getNames(stanza, keys);
        for (unsigned j = 0; j < keys.size(); ++j) {
            char const* const key = static_cast<ZLCString_6_0 const*>(keys.get(j))->getChars();
            Values& values = contents[stanza][key];
            auto found = cache.values(stanza, key, ZPCache_6_0::anyValues);
            for (ZPCategoryBasedCache_6_0::Text value; found.next(value);)
                values.emplace_back(value.chars, value.length);
        }
    }
    return true;
}

Values valuesIn(Contents const& contents, std::string const& stanza, std::string const& key)
{
    auto const parent = contents.find(stanza);
    if (parent == contents.end() || !parent->second.contains(key))
        return {};
    return parent->second.at(key);
}

struct Merged {
    int code;
    std::string text;
    int conflicts;
};

Merged merge(std::string const& base, std::string const& ours, std::string const& theirs)
{
    char* text = nullptr;
    size_t length = 0;
    Merged merged = {0, "", 0};
    merged.code =
        zstzPropMergeText_6_0(base.data(), base.size(), ours.data(), ours.size(), theirs.data(),
                              theirs.size(), nullptr, &text, &length, &merged.conflicts);
    if (text != nullptr)
        merged.text.assign(text, length);
    zstzPropFree_6_0(text);
    return merged;
}

// A line from few keys and values, so that the sides often change the same.
std::string makeLine(Choices& choices)
{
    static char const* const values[] = {"", "1", "2", "x y", "=", "# no comment"};
    switch (choices.below(8)) {
        case 0:
            return "";
        case 1:
            return std::string("# c") + static_cast<char>('0' + choices.below(4));
        case 2:
            return "   # key = default";
        default: {
            std::string line(1, static_cast<char>('k' + choices.below(4)));
            line += choices.below(2) == 0 ? " = " : "=";
            return line + values[choices.below(6)];
        }
    }
}

std::string makeFile(Choices& choices)
{
    std::string text;
    for (unsigned stanza = 0, count = choices.below(4); stanza < count; ++stanza) {
        text += std::string(choices.below(2), '\n') + '[' + static_cast<char>('a' + stanza) + "]\n";
        for (unsigned i = choices.below(6); i > 0; --i)
            text += makeLine(choices) + (choices.below(16) == 0 ? "\r\n" : "\n");
    }
    return text;
}

std::string change(std::string const& text, Choices& choices)
{
    std::string changed;
    for (size_t at = 0; at < text.size();) {
        size_t const end = text.find('\n', at) + 1;
        std::string const line = text.substr(at, end - at);
        at = end;
        unsigned const what = choices.below(12);
        bool const isHeader = line[0] == '[';
        if (what != 1 && (what != 2 || isHeader))
            changed += line;
        if (what == 2 || what == 3)
            changed += makeLine(choices) + '\n';
        if (what == 4 && isHeader)
            changed.insert(0, "[new]\n" + makeLine(choices) + "\n\n");
    }
    if (choices.below(8) == 1 && changed.ends_with('\n'))
        changed.pop_back();
    return changed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Choices choices(data, size);
    std::string const base = makeFile(choices);
    std::string const ours = change(base, choices);
    std::string const theirs = change(base, choices);
    Contents before, our, their;
    bool const areFiles = read(base, before) && read(ours, our) && read(theirs, their);
    Merged const merged = merge(base, ours, theirs);
    check((merged.code == zpropOk) == areFiles, "files are merged if and only if they can be read");
    if (!areFiles)
        return 0;
    check(merge(base, ours, ours).text == ours, "a merge with the file itself changes nothing");
    check(merge(base, ours, base).text == ours, "a merge with the base changes nothing");
    check(merge(base, base, theirs).text == theirs, "a merge into the base gives the other file");
    Merged const swapped = merge(base, theirs, ours);
    check(swapped.conflicts == merged.conflicts, "swapped sides have the same conflicts");
    if (merged.conflicts > 0)
        return 0;
    Contents one, other;
    check(read(merged.text, one) && read(swapped.text, other), "the result can be read");
    check(one == other, "swapped sides give the same values");
    for (char const* stanza : {"a", "b", "c", "d", "new"})
        for (char const* key : {"k", "l", "m", "n"}) {
            Values const old = valuesIn(before, stanza, key);
            Values const result = valuesIn(one, stanza, key);
            if (valuesIn(our, stanza, key) == old)
                check(result == valuesIn(their, stanza, key),
                      "a change of the other side is there");
            if (valuesIn(their, stanza, key) == old)
                check(result == valuesIn(our, stanza, key), "a change of this side is there");
        }
    return 0;
}
