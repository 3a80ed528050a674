// Merges of generated files, of the stanza format and of any dialect: a merge with an unchanged
// side gives the other side byte for byte, and a merge without conflicts gives the same values
// whichever side is first, among them every change that only one side makes.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/dialects/switched_dialect.h>
#include <Z/lines/difference.h>
#include <Z/lines/text_merge.h>
#include <Z/problems/dialect_inspector.h>
#include <Z/zproperties_c.h>
#include <stdint.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "DialectChoices.h"
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

void mergeStanzaFiles(Choices& choices)
{
    std::string const base = makeFile(choices);
    std::string const ours = change(base, choices);
    std::string const theirs = change(base, choices);
    Contents before, our, their;
    bool const areFiles = read(base, before) && read(ours, our) && read(theirs, their);
    Merged const merged = merge(base, ours, theirs);
    check((merged.code == zpropOk) == areFiles, "files are merged if and only if they can be read");
    if (!areFiles)
        return;
    check(merge(base, ours, ours).text == ours, "a merge with the file itself changes nothing");
    check(merge(base, ours, base).text == ours, "a merge with the base changes nothing");
    check(merge(base, base, theirs).text == theirs, "a merge into the base gives the other file");
    Merged const swapped = merge(base, theirs, ours);
    check((swapped.conflicts > 0) == (merged.conflicts > 0), "swapped sides have conflicts, too");
    if (merged.conflicts > 0)
        return;
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
}

// The stanzas of a file of a dialect: header, keys and values. Several stanzas of a name that are
// not joined are in the order of their contents.
using Stanzas = std::multimap<std::string, std::map<std::string, Values>>;

// Returns nothing if the file cannot be read.
std::optional<Stanzas> read(std::string const& text, zdialects::SwitchedDialect const& dialect)
{
    zproblems::DialectInspector inspector(text, dialect);
    inspector.inspect();
    for (zproblems::Complaint const& complaint : inspector.complaints())
        if (complaint.isError)
            return {};
    zlines::Outline const outline(text, dialect);
    std::vector<std::pair<std::string, std::map<std::string, Values>>> found;
    for (zlines::ReadStanza const& stanza : outline.stanzas()) {
        std::map<std::string, Values> keys;
        std::string space;
        for (uint32_t at = stanza.firstSection; at != zlines::kNone;
             at = outline.sections()[at].next)
            for (uint32_t i = outline.sections()[at].first; i < outline.sections()[at].end; ++i) {
                if (!outline.lines()[i].isKey())
                    continue;
                std::string const key(outline.keyName(i, space));
                Values& values = keys[key];
                if (outline.lines()[i].kind == zlines::valueLine)
                    values.emplace_back(outline.value(i, space));
            }
        std::string name(stanza.name);
        if (!dialect.joinsHeaders())
            name.resize(std::min(name.find(']'), name.size()));
        bool const isTop = &stanza == outline.stanzas().data();
        if (!isTop || !keys.empty())
            found.emplace_back(std::move(name), std::move(keys));
    }
    std::sort(found.begin(), found.end());
    return Stanzas(found.begin(), found.end());
}

std::string makeDialectLine(Choices& choices)
{
    static char const* const values[] = {"",      "1",         "2",     "x y",   "\"q\"",
                                         "'s'",   "a;b",       "a # b", "x\\",   "=",
                                         "a\\nb", "\"a\" ; c", "1 # c", "\"open"};
    static char const* const separators[] = {"=", " = ", ":", " : ", ""};
    switch (choices.below(10)) {
        case 0:
            return "";
        case 1:
            return std::string(choices.below(2) == 0 ? "# c" : "; c") +
                   static_cast<char>('0' + choices.below(3));
        case 2:
            return "  more";
        default: {
            std::string line(choices.below(8) == 0 ? "\t" : "");
            line += static_cast<char>((choices.below(6) == 0 ? 'K' : 'k') + choices.below(4));
            char const* const separator = separators[choices.below(16) < 11 ? 0 : choices.below(5)];
            line += separator;
            return *separator == 0 ? line : line + values[choices.below(std::size(values))];
        }
    }
}

std::string makeDialectFile(Choices& choices)
{
    static char const* const headers[] = {"[a]", "[b]", "[A]", "[a.b]", "[a \"b\"]"};
    std::string text;
    for (unsigned i = choices.below(3); i > 0; --i)
        text += makeDialectLine(choices) + '\n';
    for (unsigned stanza = choices.below(4); stanza > 0; --stanza) {
        text += std::string(choices.below(2), '\n') + headers[choices.below(5)] + "\n";
        for (unsigned i = choices.below(5); i > 0; --i)
            text += makeDialectLine(choices) + (choices.below(16) == 0 ? "\r\n" : "\n");
    }
    return text;
}

std::string changeDialectFile(std::string const& text, Choices& choices)
{
    std::string changed;
    for (size_t at = 0; at < text.size();) {
        size_t const end = text.find('\n', at) + 1;
        unsigned const what = choices.below(14);
        if (what != 1 && what != 2)
            changed += text.substr(at, end - at);
        if (what == 2 || what == 3)
            changed += makeDialectLine(choices) + '\n';
        if (what == 4)
            changed += "[a]\n" + makeDialectLine(choices) + '\n';
        at = end;
    }
    return changed;
}

Values const* findValues(Stanzas const& stanzas, std::string const& stanza, std::string const& key)
{
    auto const parent = stanzas.find(stanza);
    if (parent == stanzas.end())
        return nullptr;
    auto const found = parent->second.find(key);
    return found == parent->second.end() ? nullptr : &found->second;
}

bool areSame(Values const* one, Values const* other)
{
    return one == nullptr || other == nullptr ? one == other : *one == *other;
}

// Refusals do not change the spelling of values. Without notPlainConstants, values that PHP cannot
// parse are written.
zdialects::Switches writableSwitches(Choices& choices)
{
    zdialects::Switches switches = switchesOf(choices);
    if ((switches.notPlain & zdialects::notPlainConstants) == 0)
        switches.refusals &= static_cast<uint8_t>(~zdialects::refusalPhp);
    return switches;
}

void mergeDialectFiles(Choices& choices)
{
    zdialects::SwitchedDialect const dialect(writableSwitches(choices));
    if (!dialect.joinsHeaders() && !dialect.topStanza().empty())
        return;  // no dialect of the table is like this
    std::string const base = makeDialectFile(choices);
    std::string const ours = changeDialectFile(base, choices);
    std::string const theirs = changeDialectFile(base, choices);
    auto const before = read(base, dialect), our = read(ours, dialect),
               their = read(theirs, dialect);
    if (!before || !our || !their)
        return;
    auto const merge = [&](std::string const& one, std::string const& other) {
        return zlines::mergeTexts(base, one, other, dialect);
    };
    check(merge(ours, ours).text == ours, "a merge with the file itself changes nothing");
    check(merge(ours, base).text == ours, "a merge with the base changes nothing");
    check(merge(base, theirs).text == theirs, "a merge into the base gives the other file");
    zlines::MergedText merged, swapped;
    try {
        merged = merge(ours, theirs);
        swapped = merge(theirs, ours);
    } catch (zlines::Refusal const&) {
        return;  // no spelling of a value fits into its line
    }
    check((swapped.conflicts > 0) == (merged.conflicts > 0), "swapped sides have conflicts, too");
    if (merged.conflicts > 0)
        return;
    auto const one = read(merged.text, dialect), other = read(swapped.text, dialect);
    check(one && other, "the result can be read");
    check(*one == *other, "swapped sides give the same values");
    if (!dialect.joinsHeaders())
        return;
    for (Stanzas const* const file : {&*before, &*our, &*their})
        for (auto const& [stanza, keys] : *file)
            for (auto const& [key, values] : keys) {
                auto const in = [&stanza = stanza, &key = key](Stanzas const& where) {
                    return findValues(where, stanza, key);
                };
                if (areSame(in(*our), in(*before)))
                    check(areSame(in(*one), in(*their)), "a change of the other side is there");
                if (areSame(in(*their), in(*before)))
                    check(areSame(in(*one), in(*our)), "a change of this side is there");
            }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Choices choices(data, size);
    if (choices.below(3) == 0)
        mergeStanzaFiles(choices);
    else
        mergeDialectFiles(choices);
    return 0;
}
