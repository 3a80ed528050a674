// Merging the changes of a store with the changes that another program made in its file.

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ZBuffer.h"
#include "ZPropertiesImpl_p.h"
#include "cache/arena.h"
#include "lines/merge.h"
#include "stanza/companion_records.h"
#include "stanza/reserved_entry.h"

using zlines::SharedText;

namespace {

// The obfuscated values of a companion, by stanza and key.
using Secrets = std::map<std::pair<std::string, std::string>, std::vector<std::string>>;

Secrets secretsIn(char const* path, ZBuffer_6_0& packed)
{
    Secrets secrets;
    if (packed.getLength() == 0)
        return secrets;
    zstanza::CompanionReader reader(path, packed);
    zcache::Arena::Block block;
    size_t records = 0;
    if (reader.expand(block, records) == 0)
        return secrets;
    char const* at = block.chars();
    for (; records > 0; --records) {
        zstanza::CompanionRecord const record(at);
        secrets[{std::string(record.category), std::string(record.key)}].emplace_back(record.value);
    }
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

bool ZPCategoryBasedCache_6_0::KeptLines::merge(Cache& ours, Cache& fresh, Base const& base)
{
    // Only caches of stanza files keep lines.
    SharedText const text = textOf(fresh);
    if (text == nullptr)
        return false;
    std::string const& before = base.text.text;
    std::vector<zlines::MergeStep> steps;
    zlines::Document document;
    describe(ours, document);
    // The other text may name the companion of another store.
    bool const hasCompanion = ours.rep().dialect == nullptr;
    if ((hasCompanion && !zlines::hasSameValues(zstanza::kReservedCategory, zstanza::kReservedKey,
                                                before, text->text, base.text.dialect)) ||
        !zlines::planMerge(before, document, text->text, base.text.dialect, steps))
        return false;
    char const* const companion = ours.companionFile().getChars();
    ZBuffer_6_0 packed;
    ours.be_write_obfuscated(packed);
    Secrets changes = secretsIn(companion, packed);
    if (!keepChanges(secretsIn(companion, base.secrets), secretsIn(companion, base.present),
                     changes))
        return false;
    fresh.setCompanionFile(companion);
    if (!base.present.empty()) {
        packed.setBuffer(base.present.size(), const_cast<char*>(base.present.data()));
        fresh.be_read_obfuscated(packed);
    }
    for (auto const& [name, values] : changes)
        if (values.empty() && fresh.isObfuscated(name.first.c_str(), name.second.c_str()) != 0)
            fresh.delLine(name.first.c_str(), name.second.c_str());
    for (zlines::MergeStep const& step : steps)
        make(step, fresh);
    for (auto const& [name, values] : changes)
        for (std::string const& value : values) {
            char const* const stanza = name.first.c_str();
            if (&value == &values.front())
                fresh.addLine(stanza, name.second.c_str(), value.c_str(), 1);
            else
                fresh.add(stanza, name.second.c_str(), value.c_str(), 1);
        }
    return true;
}

// Makes a step of a merge.
void ZPCategoryBasedCache_6_0::KeptLines::make(zlines::MergeStep const& step, Cache& cache)
{
    char const* const stanza = step.stanza.c_str();
    char const* const key = step.key.c_str();
    char const* const first = step.texts.empty() ? nullptr : step.texts.front().c_str();
    switch (step.kind) {
        case zlines::MergeStep::removeStanza:
            cache.delLine(stanza);
            break;
        case zlines::MergeStep::addStanza:
            cache.addLine(stanza, nullptr, 0);
            break;
        case zlines::MergeStep::removeKey:
            cache.delLine(stanza, key);
            break;
        case zlines::MergeStep::setKey:
            cache.addLine(stanza, key, first, 0);
            for (size_t i = 1; i < step.texts.size(); ++i)
                cache.add(stanza, key, step.texts[i].c_str(), 0);
            break;
        case zlines::MergeStep::commentFile:
            static_cast<ZSCFData_6_0&>(cache).setComment(nullptr, nullptr, first);
            break;
        case zlines::MergeStep::commentStanza:
            static_cast<ZSCFData_6_0&>(cache).setComment(stanza, nullptr, first);
            break;
        case zlines::MergeStep::commentKey:
            static_cast<ZSCFData_6_0&>(cache).setComment(stanza, key, first);
            break;
    }
}
