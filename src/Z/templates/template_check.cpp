#include "template_check.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "../lines/columns.h"
#include "../lines/merge_side.h"
#include "../stanza/reserved_entry.h"
#include "../stanza/stanza_dialect.h"

namespace ztemplates {

namespace {

using zproblems::Cause;
using zproblems::Place;
using zproblems::quote;

std::string nameKey(std::string const& key, std::string const& stanza)
{
    return "key " + quote(key) + " in [" + stanza + "]";
}

std::string remedyFor(std::string const& nearest, char const* otherwise)
{
    return nearest.empty() ? otherwise : "the nearest name is " + quote(nearest);
}

// The stanzas and keys of a template, by names as the dialect compares them. The part above the
// first header has the empty name.
class Index {
public:
    Index(Template const& schema, zlines::Dialect const& dialect) : dialect_(dialect)
    {
        for (std::string const& stanza : schema.stanzas())
            stanzas_.insert(nameOf(stanza));
        for (TemplateKey const& key : schema.keys())
            keys_.emplace(nameOf(key), &key);
    }

    std::string nameOf(std::string const& stanza) const
    {
        std::string space;
        return stanza.empty() ? stanza : std::string(dialect_.comparableStanza(stanza, space));
    }

    std::string nameOf(TemplateKey const& key) const
    {
        std::string space;
        return join(nameOf(key.stanza), dialect_.comparableKey(key.name, space));
    }

    // Returns the name that a stanza of a file has in a template: without the number of a repeated
    // header.
    std::string nameInTemplate(std::string const& stanza) const
    {
        if (stanza == zlines::kTopOfText)
            return "";
        return stanza.substr(0, dialect_.joinsHeaders() ? stanza.npos : stanza.rfind(']'));
    }

    bool hasStanza(std::string const& name) const { return stanzas_.contains(name); }

    TemplateKey const* find(std::string_view stanza, std::string_view key) const
    {
        auto const found = keys_.find(join(stanza, key));
        return found == keys_.end() ? nullptr : found->second;
    }

    // No name has a newline.
    static std::string join(std::string_view stanza, std::string_view key)
    {
        return std::string(stanza) + '\n' + std::string(key);
    }

private:
    zlines::Dialect const& dialect_;
    std::unordered_set<std::string> stanzas_;
    std::unordered_map<std::string, TemplateKey const*> keys_;
};

// A stanza of the file.
struct Part {
    std::string name;   // in the template
    std::string shown;  // in complaints
};

class Checker {
public:
    Checker(std::string_view text, zlines::Dialect const& dialect, Template const& schema,
            HasHiddenValue const& hasHiddenValue)
        : isStanzaFile_(&dialect == &zstanza::stanzaDialect()),
          isJoined_(dialect.joinsHeaders()),
          top_(dialect.topStanza()),
          schema_(schema),
          index_(schema, dialect),
          side_(text, dialect),
          hasHiddenValue_(hasHiddenValue)
    {
    }

    std::vector<Difference> check()
    {
        for (std::string const& name : side_.stanzas())
            if (!isStanzaFile_ || name != zstanza::kReservedCategory)
                checkStanza(name, *side_.find(name));
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
    void checkStanza(std::string const& name, zlines::SideStanza const& stanza)
    {
        Part part{index_.nameInTemplate(name), name};
        if (name == zlines::kTopOfText)
            part.shown = "";
        else if (isJoined_ && !stanza.spelled.empty())
            part.shown = stanza.spelled;
        headers_.emplace(part.name, stanza.header);
        if (!part.name.empty() && !index_.hasStanza(part.name)) {
            add(zproblems::unknownStanza, stanza.header, 0, part.shown, "",
                "unknown stanza [" + part.shown + "]; " +
                    remedyFor(schema_.nearestStanza(part.shown), "remove it"));
            return;
        }
        for (uint32_t const key : stanza.keys)
            checkKey(part, std::string(side_.key(key).name()), side_.key(key));
    }

    void checkKey(Part const& part, std::string const& name, zlines::SideKey const& key)
    {
        keys_.insert(Index::join(part.name, name));
        TemplateKey const* const schema = index_.find(part.name, name);
        std::string const shown(key.spelled().empty() ? name : key.spelled());
        if (schema == nullptr) {
            uint32_t const first = key.firstLine();
            add(zproblems::unknownKey, first, side_.outline().lines()[first].indent, part.shown,
                shown,
                "unknown " + nameKey(shown, nameOf(part.shown)) + "; " +
                    remedyFor(schema_.nearestKey(part.name, shown), "remove it"));
            return;
        }
        std::vector<std::string> const values = key.values();
        std::vector<uint32_t> const lines = key.valueLines();
        for (size_t i = 0; i < values.size(); ++i) {
            // An empty value of several is a reset.
            std::string const problem =
                values[i].empty() && values.size() > 1 ? std::string() : schema->check(values[i]);
            zlines::Line const& line = side_.outline().lines()[lines[i]];
            if (!problem.empty())
                add(zproblems::invalidValue, lines[i], line.valueBegin - line.begin, part.shown,
                    shown, nameKey(shown, nameOf(part.shown)) + ": " + problem);
        }
    }

    // Returns the name of a stanza in complaints.
    std::string nameOf(std::string const& stanza) const { return stanza.empty() ? top_ : stanza; }

    bool has(TemplateKey const& key) const
    {
        return keys_.contains(index_.nameOf(key)) ||
               (hasHiddenValue_ && hasHiddenValue_(key.stanza, key.name));
    }

    void addMissing(TemplateKey const& key)
    {
        auto const header = headers_.find(index_.nameOf(key.stanza));
        add(zproblems::missingRequired, header == headers_.end() ? zlines::kNone : header->second,
            0, key.stanza, key.name,
            nameKey(key.name, nameOf(key.stanza)) + " is required and missing; add it" +
                (key.defaultValue.empty() ? "" : ", such as " + quote(key.defaultValue)));
    }

    // Adds a difference in a line, `offset` bytes after its start; kNone: at the start of the text.
    void add(Cause cause, uint32_t line, uint32_t offset, std::string const& stanza,
             std::string const& key, std::string text)
    {
        std::string_view const all = side_.outline().text();
        size_t const begin = line == zlines::kNone ? 0 : side_.outline().lines()[line].begin;
        std::string_view const before = all.substr(begin, line == zlines::kNone ? 0 : offset);
        differences_.push_back({Place{numberOf(begin), zlines::countCharacters(before) + 1}, cause,
                                stanza, key, std::move(text)});
    }

    // Returns the number, from 1, of the line that has a byte of the text.
    size_t numberOf(size_t byte)
    {
        std::string_view const all = side_.outline().text();
        if (starts_.empty()) {
            starts_.push_back(0);
            for (size_t at = 0; (at = all.find('\n', at)) != all.npos;)
                starts_.push_back(++at);
        }
        return static_cast<size_t>(std::upper_bound(starts_.begin(), starts_.end(), byte) -
                                   starts_.begin());
    }

    bool const isStanzaFile_;
    bool const isJoined_;    // headers of one name continue a stanza
    std::string const top_;  // the name of the part above the first header
    Template const& schema_;
    Index const index_;
    zlines::MergeSide const side_;
    HasHiddenValue const& hasHiddenValue_;
    std::unordered_map<std::string, uint32_t> headers_;  // the first of each stanza
    std::unordered_set<std::string> keys_;               // of the file
    std::vector<Difference> differences_;
    std::vector<size_t> starts_;  // of the lines; empty before the first difference
};

}  // namespace

std::vector<Difference> checkTemplate(std::string_view text, zlines::Dialect const& dialect,
                                      Template const& schema, HasHiddenValue const& hasHiddenValue)
{
    return Checker(text, dialect, schema, hasHiddenValue).check();
}

}  // namespace ztemplates
