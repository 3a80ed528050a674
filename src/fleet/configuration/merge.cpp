#include "configuration/merge.h"

#include <Z/zproperties_c.h>

#include <memory>
#include <set>

#include "configuration/parsing.h"

namespace zfleet {

namespace {

template <class Map>
typename Map::mapped_type const* find(Map const* map, std::string const& name)
{
    if (map == nullptr)
        return nullptr;
    auto const found = map->find(name);
    return found == map->end() ? nullptr : &found->second;
}

// Returns whether two values are equal, or both missing.
template <class Value>
bool isSame(Value const* one, Value const* other)
{
    return one == nullptr || other == nullptr ? one == other : *one == *other;
}

// The names that one of three maps has.
template <class Map>
std::set<std::string> namesIn(std::initializer_list<Map const*> maps)
{
    std::set<std::string> names;
    for (Map const* const map : maps)
        if (map != nullptr)
            for (auto const& [name, value] : *map)
                names.insert(name);
    return names;
}

// The values that the merge results in.
class Decision {
public:
    Decision(AllValues const& base, AllValues const& mine, AllValues const& theirs,
             ConflictPolicy policy)
        : mineWins_(policy == ConflictPolicy::mineWins)
    {
        for (std::string const& stanza : namesIn({&base, &mine, &theirs}))
            decide(stanza, find(&base, stanza), find(&mine, stanza), find(&theirs, stanza));
    }

    AllValues values;
    std::vector<Conflict> conflicts;

private:
    void decide(std::string const& name, StanzaValues const* base, StanzaValues const* mine,
                StanzaValues const* theirs)
    {
        if (base != nullptr && (mine == nullptr) != (theirs == nullptr)) {
            StanzaValues const* const left = mine == nullptr ? theirs : mine;
            StanzaValues const* winner = nullptr;
            if (*left != *base) {
                conflicts.push_back({name, ""});
                winner = mineWins_ ? mine : theirs;
            }
            if (winner != nullptr)
                values[name] = *winner;
            return;
        }
        if (mine != nullptr || theirs != nullptr)
            values[name];
        for (std::string const& key : namesIn({base, mine, theirs}))
            decide(name, key, find(base, key), find(mine, key), find(theirs, key));
    }

    void decide(std::string const& stanza, std::string const& key, KeyValues const* base,
                KeyValues const* mine, KeyValues const* theirs)
    {
        bool const isMine = !isSame(base, mine);
        bool const isTheirs = !isSame(base, theirs);
        if (isMine && isTheirs)
            conflicts.push_back({stanza, key});
        KeyValues const* const winner = isMine && (mineWins_ || !isTheirs) ? mine : theirs;
        if (winner != nullptr)
            values[stanza][key] = *winner;
    }

    bool const mineWins_;
};

struct FreeString {
    void operator()(char* text) const { zstzPropFree_6_0(text); }
};

// Returns the text of `theirs` with the changes of `mine`, comments included. Where values
// conflict, the result has the values of either side.
std::string mergeTexts(std::string const& base, std::string const& mine, std::string const& theirs)
{
    char* text = nullptr;
    size_t length = 0;
    int conflicts = 0;
    int const code =
        zstzPropMergeText_6_0(base.data(), base.size(), theirs.data(), theirs.size(), mine.data(),
                              mine.size(), "stanza", &text, &length, &conflicts);
    std::unique_ptr<char, FreeString> const owner(text);
    // With conflicts, the result has both sides between marks.
    return code == zpropOk && conflicts == 0 ? std::string(text == nullptr ? "" : text, length)
                                             : theirs;
}

// Sets the values of a key, and adds its line if it has none.
void setValues(ZSCFData_6_0& cache, std::string const& stanza, std::string const& key,
               KeyValues const& values)
{
    cache.delLine(stanza.c_str(), key.c_str());
    bool hasLine = false;
    for (bool const obfuscated : {false, true})
        for (std::string const& value : obfuscated ? values.obfuscated : values.plain) {
            if (hasLine)
                cache.add(stanza.c_str(), key.c_str(), value.c_str(), obfuscated ? 1 : 0);
            else
                cache.addLine(stanza.c_str(), key.c_str(), value.c_str(), obfuscated ? 1 : 0);
            hasLine = true;
        }
    if (!hasLine)
        cache.addLine(stanza.c_str(), key.c_str(), 0);
}

// Changes the values that differ from `wanted`, and no other line.
void apply(AllValues const& wanted, ZSCFData_6_0& cache)
{
    AllValues const present = valuesOf(cache);
    for (auto const& [stanza, keys] : present)
        if (wanted.count(stanza) == 0)
            cache.delLine(stanza.c_str());
    for (auto const& [stanza, keys] : wanted) {
        StanzaValues const* const before = find(&present, stanza);
        if (before == nullptr)
            cache.addStanzaLine(stanza.c_str());
        else
            for (auto const& [key, values] : *before)
                if (keys.count(key) == 0)
                    cache.delLine(stanza.c_str(), key.c_str());
        for (auto const& [key, values] : keys)
            if (!isSame(find(before, key), &values))
                setValues(cache, stanza, key, values);
    }
}

}  // namespace

Merged merge(char const* path, Contents const& base, Contents const& mine, Contents const& theirs,
             ConflictPolicy policy, ZSCFData_6_0 const& prototype)
{
    auto const before = parseContents(path, base, prototype);
    auto const our = parseContents(path, mine, prototype);
    auto const their = parseContents(path, theirs, prototype);
    Decision const decision(valuesOf(*before), valuesOf(*our), valuesOf(*their), policy);

    // This cache keeps the lines of the text, and writes only the changes.
    ZSCFData_6_0 editor;
    editor.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    auto const plain = [](Contents const& contents) { return Contents{contents.text, ""}; };
    std::unique_ptr<ZSCFData_6_0> const present = parseContents(path, plain(theirs), editor);
    std::string const text =
        mergeTexts(formatContents(*before).text, mine.text, formatContents(*present).text);
    std::unique_ptr<ZSCFData_6_0> const result = parseContents(path, {text, ""}, editor);
    apply(decision.values, *result);
    Merged merged{formatContents(*result), decision.conflicts, true};
    merged.isComplete =
        valuesOf(*parseContents(path, merged.contents, prototype)) == decision.values;
    return merged;
}

}  // namespace zfleet
