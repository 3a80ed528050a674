#include "template_check.h"

#include <Z/lines/merge_side.h>

#include <algorithm>
#include <map>

#include "failures.h"
#include "key_lines.h"

namespace {

class Checker {
public:
    Checker(Store const& store, Template const& schema)
        : store_(store), schema_(schema), text_(keptText(store)), side_(text_->text, text_->dialect)
    {
    }

    void check()
    {
        for (std::string const& name : side_.stanzas()) {
            zlines::SideStanza const& stanza = *side_.find(name);
            std::string const shown = name == zlines::kTopOfText ? "" : name;
            if (schema_.hasStanza(shown))
                for (std::string_view const key : stanza.keys)
                    checkKey(shown, stanza.contents.find(key)->second, std::string(key));
            else
                add(stanza.header, 0, shown, "",
                    "unknown stanza [" + shown + "]; " +
                        remedyFor(schema_.nearestStanza(shown), "remove it"));
        }
        for (TemplateKey const& key : schema_.keys())
            if (key.isRequired &&
                store_.contents().contains(key.stanza.c_str(), key.name.c_str()) == 0)
                addMissing(key);
    }

    void print(std::function<void(ZStanzaProblem_6_0 const&)> const& report) const
    {
        for (auto const& [place, problem] : problems_)
            report(ZStanzaProblem_6_0(place.first, place.second, ZStanzaProblem_6_0::error,
                                      ZStanzaProblem_6_0::Cause(), problem.stanza.c_str(),
                                      problem.key.c_str(), problem.text.c_str()));
    }

private:
    struct Found {
        std::string stanza;
        std::string key;
        std::string text;
    };

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
            add(first, side_.outline().lines()[first].indent, stanza, name,
                "unknown " + nameKey(name, stanza) + "; " +
                    remedyFor(schema_.nearestKey(stanza, name), "remove it"));
            return;
        }
        for (size_t i = 0; i < key.values.size(); ++i) {
            std::string const problem = schema->check(key.values[i]);
            zlines::Line const& line = side_.outline().lines()[key.valueLines[i]];
            if (!problem.empty())
                add(key.valueLines[i], line.valueBegin - line.begin, stanza, name,
                    nameKey(name, stanza) + ": " + problem);
        }
    }

    void addMissing(TemplateKey const& key)
    {
        zlines::SideStanza const* const stanza =
            side_.find(key.stanza.empty() ? zlines::kTopOfText : key.stanza);
        add(stanza == nullptr ? zlines::kNone : stanza->header, 0, key.stanza, key.name,
            nameKey(key.name, key.stanza) + " is required and missing; add it" +
                (key.defaultValue.empty() ? "" : ", such as " + quote(key.defaultValue)));
    }

    // Adds a problem at a line, `offset` bytes after its start; kNone: at the start of the text.
    void add(uint32_t line, uint32_t offset, std::string const& stanza, std::string const& key,
             std::string const& text)
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
        problems_.emplace(Place(number + 1, column + 1), Found{stanza, key, text});
    }

    using Place = std::pair<size_t, size_t>;  // line and column

    Store const& store_;
    Template const& schema_;
    zlines::SharedText const text_;
    zlines::MergeSide const side_;
    std::multimap<Place, Found> problems_;
};

}  // namespace

void checkTemplate(Store const& store, Template const& schema,
                   std::function<void(ZStanzaProblem_6_0 const&)> const& report)
{
    Checker checker(store, schema);
    checker.check();
    checker.print(report);
}
