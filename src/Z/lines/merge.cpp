#include "merge.h"

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "merge_comments.h"
#include "outline.h"

namespace zlines {

namespace {

using Strings = std::vector<std::string>;

struct StanzaContents {
    std::map<std::string, Strings> values;  // by the name as compared

    bool operator==(StanzaContents const& other) const { return values == other.values; }
};

using Contents = std::map<std::string, StanzaContents>;

// The name of the lines above the first header, if they have no keys: no header has a newline.
constexpr std::string_view kTop = "\n";

Contents contentsOf(std::string_view text, Dialect const& dialect)
{
    Contents contents;
    Outline outline(text, dialect);
    std::string space;
    for (ReadStanza const& stanza : outline.stanzas()) {
        bool const isTop = &stanza == outline.stanzas().data() && stanza.name.empty();
        StanzaContents& found = contents[std::string(isTop ? kTop : stanza.name)];
        for (uint32_t i = stanza.firstSection; i != kNone; i = outline.sections()[i].next) {
            Section const& section = outline.sections()[i];
            for (uint32_t line = section.first; line < section.end; ++line) {
                if (!outline.lines()[line].isKey())
                    continue;
                std::string const key(outline.keyName(line, space));
                Strings& values = found.values[key];
                if (outline.lines()[line].kind == valueLine)
                    values.emplace_back(outline.value(line, space));
            }
        }
    }
    return contents;
}

class Planner {
public:
    Planner(std::string_view base, Document const& document, std::string_view other,
            Dialect const& dialect, std::vector<MergeStep>& steps)
        : dialect_(dialect),
          document_(document),
          baseText_(base),
          otherText_(other),
          base_(contentsOf(base, dialect)),
          other_(contentsOf(other, dialect)),
          steps_(steps)
    {
    }

    bool plan()
    {
        std::set<std::string> present;
        for (size_t i = 0; i < document_.stanzas.size(); ++i) {
            std::string space;
            // The lines above the first header and the stanza without a name differ.
            std::string name(i == 0 ? dialect_.topStanza()
                                    : dialect_.comparableStanza(document_.stanzas[i].name, space));
            if (i == 0 && name.empty())
                name.push_back(kTop.front());
            if (i > 0 && isTop(i))
                continue;
            present.insert(name);
            if (!mergeStanza(i, name))
                return false;
        }
        for (auto const& [name, stanza] : base_) {
            auto const other = other_.find(name);
            if (present.contains(name) || other == other_.end())
                continue;
            if (!(other->second == stanza))
                return false;
            steps_.push_back({MergeStep::removeStanza, name, "", {}});
        }
        return planComments(baseText_, document_, otherText_, dialect_, steps_);
    }

private:
    // Returns whether a wanted stanza has the keys above the first header.
    bool isTop(size_t index) const
    {
        std::string space;
        return !dialect_.topStanza().empty() &&
               dialect_.comparableStanza(document_.stanzas[index].name, space) ==
                   dialect_.topStanza();
    }

    // Returns the entries of a wanted stanza. The comments at the start of the file precede the
    // keys above the first header.
    std::vector<Entry> entriesOf(size_t index) const
    {
        std::vector<Entry> entries;
        auto const append = [&](size_t from) {
            auto const first = document_.entries.begin() + document_.stanzas[from].firstEntry;
            entries.insert(entries.end(), first, first + document_.stanzas[from].entryCount);
        };
        append(index);
        for (size_t i = 1; index == 0 && i < document_.stanzas.size(); ++i)
            if (isTop(i))
                append(i);
        return entries;
    }

    // Merges a wanted stanza. Returns false for a conflict.
    bool mergeStanza(size_t index, std::string const& name)
    {
        std::vector<Entry> const entries = entriesOf(index);
        auto const base = base_.find(name);
        auto const other = other_.find(name);
        StanzaContents const none;
        StanzaContents const& before = base == base_.end() ? none : base->second;
        bool const isRemovedThere = base != base_.end() && other == other_.end();
        std::string const spelled(index == 0 ? dialect_.topStanza()
                                             : document_.stanzas[index].name);
        if (base == base_.end() && other == other_.end())
            steps_.push_back({MergeStep::addStanza, spelled, "", {}});
        std::set<std::string> present;
        for (Entry const& entry : entries) {
            if (entry.isComment)
                continue;
            std::string space;
            std::string const key(dialect_.comparableKey(entry.text, space));
            present.insert(key);
            std::optional<Strings> values = valuesOf(entry);
            auto const old = before.values.find(key);
            bool const isWithoutLine = entry.valueCount == 0 && !entry.needsLine;
            if (isWithoutLine && (old == before.values.end() || old->second.empty())) {
                values = find(before, key);  // its values are in the companion
                if (other != other_.end() && find(other->second, key) != values)
                    return false;
            }
            if (!mergeKey(spelled, std::string(entry.text), key, values, before,
                          other == other_.end() ? none : other->second))
                return false;
            if (isRemovedThere && values != find(before, key))
                return false;
        }
        for (auto const& [key, values] : before.values)
            if (!present.contains(key) && !mergeKey(spelled, key, key, {}, before,
                                                    other == other_.end() ? none : other->second))
                return false;
        return true;
    }

    bool mergeKey(std::string const& stanza, std::string const& spelled, std::string const& key,
                  std::optional<Strings> const& values, StanzaContents const& before,
                  StanzaContents const& other)
    {
        std::optional<Strings> const old = find(before, key);
        std::optional<Strings> const there = find(other, key);
        if (values == old || values == there)
            return true;
        if (there != old)
            return false;
        if (values)
            steps_.push_back({MergeStep::setKey, stanza, spelled, *values});
        else
            steps_.push_back({MergeStep::removeKey, stanza, spelled, {}});
        return true;
    }

    static std::optional<Strings> find(StanzaContents const& stanza, std::string const& key)
    {
        auto const found = stanza.values.find(key);
        return found == stanza.values.end() ? std::nullopt : std::optional(found->second);
    }

    std::optional<Strings> valuesOf(Entry const& entry) const
    {
        if (entry.valueCount == 0 && !entry.needsLine)
            return {};
        Strings values;
        for (uint32_t i = 0; i < entry.valueCount; ++i)
            values.emplace_back(document_.values[entry.firstValue + i]);
        return values;
    }

    Dialect const& dialect_;
    Document const& document_;
    std::string_view const baseText_;
    std::string_view const otherText_;
    Contents const base_;
    Contents const other_;
    std::vector<MergeStep>& steps_;
};

}  // namespace

bool planMerge(std::string_view base, Document const& document, std::string_view other,
               Dialect const& dialect, std::vector<MergeStep>& steps)
{
    return Planner(base, document, other, dialect, steps).plan();
}

bool hasSameValues(std::string_view stanza, std::string_view key, std::string_view base,
                   std::string_view other, Dialect const& dialect)
{
    auto const valuesIn = [&](std::string_view text) -> std::optional<Strings> {
        Contents const contents = contentsOf(text, dialect);
        auto const found = contents.find(std::string(stanza));
        if (found == contents.end())
            return {};
        auto const values = found->second.values.find(std::string(key));
        return values == found->second.values.end() ? std::nullopt : std::optional(values->second);
    };
    return valuesIn(base) == valuesIn(other);
}

}  // namespace zlines
