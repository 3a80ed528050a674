// Merging the changes of a store with the changes that another program made in its file.

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "cache/arena.h"
#include "lines/difference.h"
#include "lines/overlap.h"
#include "lines/spelled_value.h"
#include "lines/text_merge.h"
#include "memory/out_of_memory.h"
#include "stanza/companion_records.h"
#include "stanza/raise_sites.h"
#include "stanza/reserved_entry.h"

namespace {

// The obfuscated values of a companion, by stanza and key.
using Secrets = std::map<std::pair<std::string, std::string>, std::vector<std::string>>;

// Calls `visit` with the name and the value of each record of a companion, in order.
template <class Visit>
void forEachSecret(char const* path, ZBuffer_6_0& packed, Visit visit)
{
    if (packed.getLength() == 0)
        return;
    zstanza::CompanionReader reader(path, packed);
    zcache::Arena::Block block;
    size_t records = 0;
    if (reader.expand(block, records) == 0)
        return;
    char const* at = block.chars();
    for (; records > 0; --records) {
        zstanza::CompanionRecord const record(at);
        visit(Secrets::key_type(record.category, record.key), std::string(record.value));
    }
}

Secrets secretsIn(char const* path, ZBuffer_6_0& packed)
{
    Secrets secrets;
    forEachSecret(path, packed, [&](Secrets::key_type const& name, std::string const& value) {
        secrets[name].push_back(value);
    });
    return secrets;
}

Secrets secretsIn(char const* path, std::string const& packed)
{
    ZBuffer_6_0 buffer;
    buffer.setBuffer(packed.size(), const_cast<char*>(packed.data()));  // it is copied
    return secretsIn(path, buffer);
}

// Removes from `now` the values that have not changed since `before`, or have changed in the same
// way there. A removed key has no values. Returns false if a remaining one has changed there, too.
bool keepChanges(Secrets const& before, Secrets const& there, Secrets& now)
{
    std::vector<std::string> const none;
    auto const find = [&](Secrets const& all, Secrets::key_type const& name) {
        auto const found = all.find(name);
        return found == all.end() ? none : found->second;
    };
    for (auto const& [name, values] : before)
        now.try_emplace(name);
    for (auto at = now.begin(); at != now.end();) {
        auto const old = find(before, at->first);
        auto const present = find(there, at->first);
        if (at->second == old || at->second == present)
            at = now.erase(at);
        else if (present != old)
            return false;
        else
            ++at;
    }
    return true;
}

}  // namespace

bool ZPCategoryBasedCache_6_0::KeptLines::mergeText(Cache const& ours, Base const& base,
                                                    std::string_view present, char const* path,
                                                    std::string& merged)
{
    return zmemory::translateBadAlloc(zstanza::kSource, zstanza::raiseInAllocate, [&] {
        zlines::Dialect const& dialect = base.text.dialect;
        std::string const& before = base.text.text;
        // The companion that the text names is not merged, unless it has changed.
        bool const hasCompanion = ours.rep().dialect == nullptr;
        std::string_view const reserved = hasCompanion ? zstanza::kReservedCategory : "";
        if (hasCompanion && !zstanza::findCompanion(present).empty() &&
            !zlines::hasSameValues(reserved, zstanza::kReservedKey, before, present, dialect))
            return false;
        zlines::Document document;
        describe(ours, document);
        zlines::SharedText const& kept = textOf(ours);
        if (kept.get() != &base.text && kept->text != before)
            document.dropOldNames();
        std::string wanted;
        zlines::TextHistory history = base.text.history;
        try {
            if (!zlines::rewrite(before, dialect, document, history, wanted))
                wanted = before;
            if (zlines::overlap(before, present, wanted, dialect, reserved))
                return false;
            merged = zlines::mergeTexts(before, present, wanted, dialect, reserved).text;
            // setSpelling() has replaced the kept text.
            if (kept != nullptr && kept->text != before && ours.rep().dialect != nullptr)
                merged = zlines::withSpellings(merged, before, kept->text, dialect);
            // A removed stanza can have lines without a key that have changed there.
            if (zlines::losesLinesPassedOver(before, present, wanted, merged, dialect))
                return false;
        } catch (zlines::Refusal const& refusal) {
            ZPropertiesInvalidValueException_6_0(path, refusal.stanza.c_str(), refusal.key.c_str(),
                                                 refusal.value.c_str())
                .throwException(zstanza::kSource, zstanza::raiseForLine);
        }
        return true;
    });
}

bool ZPCategoryBasedCache_6_0::KeptLines::mergeSecrets(Cache& ours, Cache& fresh, Base const& base)
{
    char const* const companion = ours.companionFile().getChars();
    ZBuffer_6_0 packed;
    ours.be_write_obfuscated(packed);
    Secrets changes = secretsIn(companion, packed);
    if (!keepChanges(secretsIn(companion, base.secrets), secretsIn(companion, base.present),
                     changes))
        return false;
    // A key does not get plain and obfuscated values.
    for (auto const& [name, values] : changes)
        if (!values.empty() && fresh.contains(name.first.c_str(), name.second.c_str()) != 0)
            return false;
    fresh.setCompanionFile(companion);
    auto const add = [&](Secrets::key_type const& name, std::string const& value) {
        char const* const stanza = name.first.c_str();
        char const* const key = name.second.c_str();
        if (fresh.isObfuscated(stanza, key) != 0)
            fresh.add(stanza, key, value.c_str(), 1);
        else
            fresh.addLine(stanza, key, value.c_str(), 1);
    };
    // A key that becomes plain must not get its obfuscated values first: they would replace it.
    packed.setBuffer(base.present.size(), const_cast<char*>(base.present.data()));
    forEachSecret(companion, packed, [&](Secrets::key_type const& name, std::string const& value) {
        if (!changes.contains(name))
            add(name, value);
    });
    for (auto const& [name, values] : changes)
        for (std::string const& value : values)
            add(name, value);
    return true;
}
