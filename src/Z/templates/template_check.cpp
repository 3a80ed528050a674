#include "template_check.h"

#include <algorithm>

#include "../lines/merge_side.h"

namespace ztemplates {

namespace {

using zproblems::Cause;
using zproblems::Place;
using zproblems::quote;

std::string nameKey(std::string const& key, std::string const& stanza)
{
    return "key " + quote(key) + " in [" + stanza + "]";
}

class Checker {
public:
    Checker(std::string_view text, zlines::Dialect const& dialect, Template const& schema,
            HasHiddenValue const& hasHiddenValue)
        : schema_(schema), side_(text, dialect), hasHiddenValue_(hasHiddenValue)
    {
    }

    std::vector<Difference> check()
    {
        for (std::string const& name : side_.stanzas()) {
            zlines::SideStanza const& stanza = *side_.find(name);
            std::string const shown = name == zlines::kTopOfText ? "" : name;
            if (schema_.hasStanza(shown))
                for (std::string_view const key : stanza.keys)
                    checkKey(shown, stanza.contents.find(key)->second, std::string(key));
            else
                add(zproblems::unknownStanza, stanza.header, 0, shown, "",
                    "unknown stanza [" + shown + "]; " +
                        remedyFor(schema_.nearestStanza(shown), "remove it"));
        }
        for (TemplateKey const& key : schema_.keys())
            if (key.isRequired && !has(key))
                addMissing(key);
        std::stable_sort(differences_.begin(), differences_.end(),
                         [](Difference const& a, Difference const& b) {
                             return a.place.line != b.place.line ? a.place.line < b.place.line
                                                                 : a.place.column < b.place.column;
                         });
        return std::move(differences_);
    }

private:
    static char const* sideName(std::string const& stanza)
    {
        return stanza.empty() ? zlines::kTopOfText : stanza.c_str();
    }

    bool has(TemplateKey const& key) const
    {
        return side_.find(sideName(key.stanza), key.name) != nullptr ||
               (hasHiddenValue_ && hasHiddenValue_(key.stanza, key.name));
    }

    static std::string remedyFor(std::string const& nearest, char const* otherwise)
    {
        return nearest.empty() ? otherwise : "the nearest name is " + quote(nearest);
    }

    void checkKey(std::string const& stanza, zlines::SideKey const& key, std::string const& name)
    {
        TemplateKey const* const schema = schema_.find(stanza, name);
        uint32_t const first = key.valueLines.empty() ? key.otherLines.front()
                               : key.otherLines.empty()
                                   ? key.valueLines.front()
                                   : std::min(key.valueLines.front(), key.otherLines.front());
        if (schema == nullptr) {
            add(zproblems::unknownKey, first, side_.outline().lines()[first].indent, stanza, name,
                "unknown " + nameKey(name, stanza) + "; " +
                    remedyFor(schema_.nearestKey(stanza, name), "remove it"));
            return;
        }
        for (size_t i = 0; i < key.values.size(); ++i) {
            std::string const problem = schema->check(key.values[i]);
            zlines::Line const& line = side_.outline().lines()[key.valueLines[i]];
            if (!problem.empty())
                add(zproblems::invalidValue, key.valueLines[i], line.valueBegin - line.begin,
                    stanza, name, nameKey(name, stanza) + ": " + problem);
        }
    }

    void addMissing(TemplateKey const& key)
    {
        zlines::SideStanza const* const stanza = side_.find(sideName(key.stanza));
        add(zproblems::missingRequired, stanza == nullptr ? zlines::kNone : stanza->header, 0,
            key.stanza, key.name,
            nameKey(key.name, key.stanza) + " is required and missing; add it" +
                (key.defaultValue.empty() ? "" : ", such as " + quote(key.defaultValue)));
    }

    // Adds a problem at a line, `offset` bytes after its start; kNone: at the start of the text.
    void add(Cause cause, uint32_t line, uint32_t offset, std::string const& stanza,
             std::string const& key, std::string text)
    {
        std::string_view const all = side_.outline().text();
        size_t const begin = line == zlines::kNone ? 0 : side_.outline().lines()[line].begin;
        auto const number = static_cast<size_t>(
            std::count(all.begin(), all.begin() + static_cast<ptrdiff_t>(begin), '\n'));
        std::string_view const before = all.substr(begin, line == zlines::kNone ? 0 : offset);
        auto const column =
            static_cast<size_t>(std::count_if(before.begin(), before.end(), [](char c) {
                return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
            }));
        differences_.push_back(
            {Place{number + 1, column + 1}, cause, stanza, key, std::move(text)});
    }

    Template const& schema_;
    zlines::MergeSide const side_;
    HasHiddenValue const& hasHiddenValue_;
    std::vector<Difference> differences_;
};

}  // namespace

std::vector<Difference> checkTemplate(std::string_view text, zlines::Dialect const& dialect,
                                      Template const& schema, HasHiddenValue const& hasHiddenValue)
{
    return Checker(text, dialect, schema, hasHiddenValue).check();
}

}  // namespace ztemplates
