#include "contents.h"

#include <Z/lines/alignment.h>
#include <Z/lines/columns.h>
#include <Z/lines/separate_stanzas.h>
#include <Z/stanza/reserved_entry.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "json.h"
#include "key_lines.h"
#include "output.h"

namespace {

using zlines::Pairs;

template <class Part>
using Index = std::unordered_map<std::string_view, Part const*>;

template <class Part>
Index<Part> indexByName(std::vector<Part> const& parts)
{
    Index<Part> index;
    for (Part const& part : parts)
        index.emplace(part.comparable, &part);
    return index;
}

template <class Part>
Part const* find(Index<Part> const& index, std::string const& name)
{
    auto const found = index.find(name);
    return found == index.end() ? nullptr : found->second;
}

bool hasSeparateStanzas(FileContents const& file)
{
    return file.text != nullptr && !file.text->kept->dialect.joinsHeaders();
}

// Returns the stanza of `after` that each stanza of `before` is, by its name in `before`.
Index<StanzaContents> matchStanzas(FileContents const& before, FileContents const& after)
{
    Index<StanzaContents> const named = indexByName(after.stanzas);
    if (!hasSeparateStanzas(before) || !hasSeparateStanzas(after))
        return named;
    zlines::Outline const& old = before.text->side.outline();
    zlines::Outline const& current = after.text->side.outline();
    std::vector<zlines::MatchedStanza> const matched = zlines::matchSeparateStanzas(old, current);
    Index<StanzaContents> index;
    for (size_t i = 0; i < matched.size(); ++i) {
        auto const found = named.find(current.stanzas()[i].name);
        if (matched[i].before != zlines::kNone && found != named.end())
            index.emplace(old.stanzas()[matched[i].before].name, found->second);
    }
    if (auto const top = named.find(old.dialect().topStanza()); top != named.end())
        index.emplace(old.dialect().topStanza(), top->second);
    return index;
}

// Compares two states of a file.
class Comparison {
public:
    std::vector<Change> compare(FileContents const& before, FileContents const& after)
    {
        Index<StanzaContents> const matches = matchStanzas(before, after);
        hasSeparateStanzas_ = hasSeparateStanzas(after);
        std::unordered_set<StanzaContents const*> matched;
        for (StanzaContents const& stanza : before.stanzas) {
            StanzaContents const* const match = find(matches, stanza.comparable);
            compareStanza(&stanza, match);
            matched.insert(match);
        }
        for (StanzaContents const& stanza : after.stanzas)
            if (!matched.contains(&stanza))
                compareStanza(nullptr, &stanza);
        return std::move(changes_);
    }

private:
    void compareStanza(StanzaContents const* before, StanzaContents const* after)
    {
        static StanzaContents const none;
        StanzaContents const& old = before == nullptr ? none : *before;
        StanzaContents const& current = after == nullptr ? none : *after;
        bool const isNumbered = hasSeparateStanzas_ && after != nullptr;
        stanza_ = before != nullptr && !isNumbered ? before : after;
        isRemoved_ = after == nullptr;
        if (before == nullptr && current.keys.empty())
            add("", "", {}, {ValueState::withoutValue, "", current.line}, false);
        if (after == nullptr && old.keys.empty())
            add("", "", {ValueState::withoutValue, "", old.line}, {}, false);
        auto const oldKeys = indexByName(old.keys);
        auto const currentKeys = indexByName(current.keys);
        for (KeyContents const& key : old.keys)
            compareKey(&key, find(currentKeys, key.comparable));
        for (KeyContents const& key : current.keys)
            if (find(oldKeys, key.comparable) == nullptr)
                compareKey(nullptr, &key);
    }

    void compareKey(KeyContents const* before, KeyContents const* after)
    {
        static std::vector<ValueState> const none;
        std::vector<ValueState> const& old = before == nullptr ? none : before->values;
        std::vector<ValueState> const& current = after == nullptr ? none : after->values;
        bool const isObfuscated = (before != nullptr && before->isObfuscated) ||
                                  (after != nullptr && after->isObfuscated);
        bool const isMoved =
            before != nullptr && after != nullptr && before->isObfuscated != after->isObfuscated;
        KeyContents const& key = before != nullptr ? *before : *after;
        Pairs pairs = isMoved ? Pairs() : align(old, current);
        pairs.push_back({static_cast<uint32_t>(old.size()), static_cast<uint32_t>(current.size())});
        size_t i = 0;
        size_t j = 0;
        for (auto const& [nextOld, nextCurrent] : pairs) {
            while (i < nextOld || j < nextCurrent)
                add(key.name, key.comparable, i < nextOld ? old[i++] : ValueState(),
                    j < nextCurrent ? current[j++] : ValueState(), isObfuscated);
            ++i, ++j;
        }
    }

    void add(std::string const& key, std::string const& comparable, ValueState const& before,
             ValueState const& after, bool isObfuscated)
    {
        changes_.push_back({stanza_->name, key, before, after, isObfuscated, stanza_->comparable,
                            comparable, isRemoved_});
    }

    static Pairs align(std::vector<ValueState> const& old, std::vector<ValueState> const& current)
    {
        // No value has a zero byte.
        constexpr std::string_view kWithoutValue("\0", 1);
        auto const viewsOf = [&](std::vector<ValueState> const& states) {
            std::vector<std::string_view> views;
            for (ValueState const& state : states)
                views.push_back(state.kind == ValueState::withoutValue
                                    ? kWithoutValue
                                    : std::string_view(state.value));
            return views;
        };
        return zlines::align(viewsOf(old), viewsOf(current));
    }

    StanzaContents const* stanza_ = nullptr;  // that is compared
    bool isRemoved_ = false;                  // this stanza
    bool hasSeparateStanzas_ = false;
    std::vector<Change> changes_;
};

// Returns the values of a key in the lines of a file, in order.
std::vector<ValueState> valuesIn(zlines::SideKey const& key, bool isStanzaFile)
{
    std::vector<ValueState> values;
    std::vector<std::string> decoded = key.values();
    std::vector<uint32_t> const lines = key.valueLines();
    for (size_t i = 0; i < decoded.size(); ++i)
        values.push_back({ValueState::withValue, std::move(decoded[i]), lines[i]});
    // In a stanza file, "k =" means nothing next to "k = v".
    if (isStanzaFile && !decoded.empty())
        return values;
    for (uint32_t const line : key.otherLines()) {
        values.push_back({ValueState::withoutValue, "", line});
        if (isStanzaFile)
            break;
    }
    std::sort(values.begin(), values.end(),
              [](ValueState const& a, ValueState const& b) { return a.line < b.line; });
    return values;
}

// Returns the contents of a store by the lines of its text.
class Reader {
public:
    explicit Reader(Store const& store) : store_(store)
    {
        contents_.isStanzaFile = store.isStanzaFile();
        contents_.dialect = store.dialect();
        if (zlines::SharedText kept = keptText(store))
            contents_.text = std::make_shared<ReadText>(std::move(kept));
    }

    FileContents read()
    {
        for (Stanza const& stanza : outlineOf(store_)) {
            StanzaContents found = read(stanza);
            bool const isReserved = contents_.isStanzaFile &&
                                    stanza.name == zstanza::kReservedCategory &&
                                    found.keys.empty() && !stanza.keys.empty();
            if (!isReserved)
                contents_.stanzas.push_back(std::move(found));
        }
        return std::move(contents_);
    }

private:
    StanzaContents read(Stanza const& stanza)
    {
        StanzaContents found{stanza.name, stanza.name, {}};
        bool hasLines = false;
        std::string_view name;
        if (contents_.text != nullptr) {
            zlines::Dialect const& dialect = contents_.text->kept->dialect;
            found.comparable = dialect.comparableStanza(stanza.name, space_);
            bool const isTop = !found.comparable.empty() && found.comparable == dialect.topStanza();
            name = isTop ? zlines::kTopOfText : std::string_view(found.comparable);
            zlines::SideStanza const* const lines = contents_.text->side.find(name);
            hasLines = lines != nullptr;
            if (hasLines)
                found.line = lines->header;
        }
        for (std::string const& key : stanza.keys)
            if (!contents_.isStanzaFile || stanza.name != zstanza::kReservedCategory ||
                key != zstanza::kReservedKey)
                found.keys.push_back(read(stanza.name, key, hasLines ? &name : nullptr));
        return found;
    }

    // range   `name` is the name of the stanza in the lines; null: no line has it.
    KeyContents read(std::string const& stanza, std::string const& key,
                     std::string_view const* name)
    {
        KeyContents found{key, key, {}};
        found.isObfuscated = store_.contents().isObfuscated(stanza.c_str(), key.c_str()) != 0;
        if (contents_.text != nullptr)
            found.comparable = contents_.text->kept->dialect.comparableKey(key, space_);
        if (name != nullptr && !found.isObfuscated) {
            if (zlines::SideKey const line = contents_.text->side.find(*name, found.comparable))
                found.values = valuesIn(line, contents_.isStanzaFile);
        } else {
            for (std::string& value : valuesOf(store_, stanza, key))
                found.values.push_back({ValueState::withValue, std::move(value)});
        }
        if (found.values.empty())
            found.values.push_back({ValueState::withoutValue});
        return found;
    }

    Store const& store_;
    FileContents contents_;
    std::string space_;
};

}  // namespace

FileContents contentsOf(Store const& store)
{
    return Reader(store).read();
}

std::vector<Change> compareContents(FileContents const& before, FileContents const& after)
{
    return Comparison().compare(before, after);
}

std::string shownValue(Change const& change, ValueState const& state)
{
    return change.isObfuscated && state.kind == ValueState::withValue ? kMask : state.value;
}

std::string formatFields(Change const& change)
{
    std::string fields = escapeField(change.stanza) + '\t' + escapeField(change.key);
    for (ValueState const* state : {&change.before, &change.after})
        fields +=
            '\t' + (state->kind == ValueState::absent ? std::string("\\-")
                                                      : escapeField(shownValue(change, *state)));
    return fields;
}

namespace {

// Returns the column of a value, or of the key or header without one. `shown` is the line, which
// starts at `start`.
size_t columnOf(zlines::Line const& line, std::string_view shown, uint32_t start)
{
    size_t at = line.begin - start;
    while (at < shown.size() && (shown[at] == ' ' || shown[at] == '\t'))
        ++at;
    size_t const value = line.valueBegin - start;
    // A value may begin in a continuation line.
    if (line.kind == zlines::valueLine && shown.find('\n') >= value)
        at = value;
    return zlines::countCharacters(shown.substr(0, at)) + 1;
}

}  // namespace

std::string formatJson(Change const& change, std::string const& path, FileContents const* place,
                       uint32_t line)
{
    auto const format = [&](ValueState const& state) -> std::string {
        return state.kind == ValueState::absent         ? "null"
               : state.kind == ValueState::withoutValue ? "[]"
                                                        : toJson(shownValue(change, state));
    };
    std::string number = "null", column = "null", text = "null";
    if (place != nullptr && place->text != nullptr && line != zlines::kNone &&
        !change.isObfuscated) {
        ReadText const& read = *place->text;
        zlines::Outline const& outline = read.side.outline();
        zlines::Line const& found = outline.lines()[line];
        auto const next = std::upper_bound(read.starts.begin(), read.starts.end(), found.begin);
        std::string_view shown = zlines::slice(outline.text(), next[-1], outline.endOf(line));
        while (shown.ends_with('\n') || shown.ends_with('\r'))
            shown.remove_suffix(1);
        number = std::to_string(next - read.starts.begin());
        column = std::to_string(columnOf(found, shown, next[-1]));
        text = toJson(shown);
    }
    return "{\"file\": " + toJson(path) + ", \"line\": " + number + ", \"column\": " + column +
           ", \"stanza\": " + toJson(change.stanza) +
           ", \"key\": " + (change.key.empty() ? "null" : toJson(change.key)) +
           ", \"old\": " + format(change.before) + ", \"new\": " + format(change.after) +
           ", \"text\": " + text + '}';
}
