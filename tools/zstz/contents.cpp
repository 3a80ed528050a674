#include "contents.h"

#include <Z/lines/alignment.h>

#include <string_view>
#include <unordered_map>
#include <utility>

#include "json.h"
#include "output.h"

namespace {

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;

template <class Part>
std::unordered_map<std::string_view, Part const*> indexByName(std::vector<Part> const& parts)
{
    std::unordered_map<std::string_view, Part const*> index;
    for (Part const& part : parts)
        index.emplace(part.name, &part);
    return index;
}

template <class Part>
Part const* find(std::unordered_map<std::string_view, Part const*> const& index,
                 std::string const& name)
{
    auto const found = index.find(name);
    return found == index.end() ? nullptr : found->second;
}

// Compares two states of a file.
class Comparison {
public:
    std::vector<Change> compare(FileContents const& before, FileContents const& after)
    {
        auto const old = indexByName(before);
        auto const current = indexByName(after);
        for (StanzaContents const& stanza : before)
            compareStanza(stanza.name, &stanza, find(current, stanza.name));
        for (StanzaContents const& stanza : after)
            if (find(old, stanza.name) == nullptr)
                compareStanza(stanza.name, nullptr, &stanza);
        return std::move(changes_);
    }

private:
    void compareStanza(std::string const& name, StanzaContents const* before,
                       StanzaContents const* after)
    {
        static StanzaContents const none;
        StanzaContents const& old = before == nullptr ? none : *before;
        StanzaContents const& current = after == nullptr ? none : *after;
        if (before == nullptr && current.keys.empty())
            changes_.push_back({name, "", {}, {ValueState::withoutValue}, false});
        if (after == nullptr && old.keys.empty())
            changes_.push_back({name, "", {ValueState::withoutValue}, {}, false});
        auto const oldKeys = indexByName(old.keys);
        auto const currentKeys = indexByName(current.keys);
        for (KeyContents const& key : old.keys)
            compareKey(name, &key, find(currentKeys, key.name));
        for (KeyContents const& key : current.keys)
            if (find(oldKeys, key.name) == nullptr)
                compareKey(name, nullptr, &key);
    }

    void compareKey(std::string const& stanza, KeyContents const* before, KeyContents const* after)
    {
        auto const statesOf = [](KeyContents const* key) {
            std::vector<ValueState> states;
            if (key == nullptr)
                return states;
            for (std::string const& value : key->values)
                states.push_back({ValueState::withValue, value});
            if (states.empty())
                states.push_back({ValueState::withoutValue});
            return states;
        };
        bool const isObfuscated = (before != nullptr && before->isObfuscated) ||
                                  (after != nullptr && after->isObfuscated);
        bool const isMoved =
            before != nullptr && after != nullptr && before->isObfuscated != after->isObfuscated;
        std::string const& name = before != nullptr ? before->name : after->name;
        std::vector<ValueState> const old = statesOf(before);
        std::vector<ValueState> const current = statesOf(after);
        Pairs pairs = isMoved ? Pairs() : align(old, current);
        pairs.push_back({static_cast<uint32_t>(old.size()), static_cast<uint32_t>(current.size())});
        size_t i = 0;
        size_t j = 0;
        for (auto const& [nextOld, nextCurrent] : pairs) {
            while (i < nextOld || j < nextCurrent)
                changes_.push_back({stanza, name, i < nextOld ? old[i++] : ValueState(),
                                    j < nextCurrent ? current[j++] : ValueState(), isObfuscated});
            ++i, ++j;
        }
    }

    static Pairs align(std::vector<ValueState> const& old, std::vector<ValueState> const& current)
    {
        auto const viewsOf = [](std::vector<ValueState> const& states) {
            std::vector<std::string_view> views;
            for (ValueState const& state : states)
                views.push_back(state.value);
            return views;
        };
        bool const isSameKind =
            old.empty() || current.empty() || old.front().kind == current.front().kind;
        return isSameKind ? zlines::align(viewsOf(old), viewsOf(current)) : Pairs();
    }

    std::vector<Change> changes_;
};

}  // namespace

FileContents contentsOf(Store const& store)
{
    FileContents contents;
    for (Stanza const& stanza : outlineOf(store)) {
        contents.push_back({stanza.name, {}});
        for (std::string const& key : stanza.keys)
            contents.back().keys.push_back(
                {key, valuesOf(store, stanza.name, key),
                 store.contents().isObfuscated(stanza.name.c_str(), key.c_str()) != 0});
    }
    return contents;
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

std::string formatMembers(Change const& change)
{
    auto const format = [&](ValueState const& state) -> std::string {
        return state.kind == ValueState::absent         ? "null"
               : state.kind == ValueState::withoutValue ? "[]"
                                                        : toJson(shownValue(change, state));
    };
    return "\"stanza\": " + toJson(change.stanza) + ", \"key\": " + toJson(change.key) +
           ", \"old\": " + format(change.before) + ", \"new\": " + format(change.after);
}
