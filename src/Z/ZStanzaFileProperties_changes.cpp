// Several values of a key, and renaming.
#include <string.h>

#include <memory>
#include <utility>

#include "ZArrayList.h"
#include "ZDialectData.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties.h"
#include "ZStanzaFileProperties_p.h"

using namespace zproperties;
using KeptLines = ZPCategoryBasedCache_6_0::KeptLines;

namespace {

// Refuses to give obfuscated values the names of the entry that names the companion: load() would
// miss the companion.
void requireNotReserved(ZPCache_6_0 const& cache, char const* stanza, char const* key,
                        char const* newStanza, char const* newKey)
{
    if (strcmp(newStanza, kReservedCategory) == 0 && strcmp(newKey, kReservedKey) == 0 &&
        cache.isObfuscated(stanza, key) != 0)
        refuseText();
}

}  // namespace

void ZStanzaFileProperties_6_0::setValues(char const* stanza, char const* key,
                                          char const* const* values, unsigned count)
{
    Hold const hold(*this);
    if (!rep_->isValidKey(stanza, key) || (values == nullptr && count != 0))
        refuseText();
    Rep::Strings strings;
    for (unsigned i = 0; i < count; ++i) {
        if (values[i] == nullptr || (*values[i] == '\0' && count > 1 && rep_->dialect == nullptr))
            refuseText();
        Rep::requireValidOrPresentValue(*this, stanza, key, values[i]);
        strings.add(values[i], zPropLocalStrings);
    }
    checkAccess(stanza, key, 0);
    if (count < 2) {
        char const* const none = rep_->dialect == nullptr ? "" : nullptr;
        setValue(stanza, key, count == 0 ? none : values[0], 0);
        return;
    }
    // Create a new stanza or key without lines first, so that it can be removed without a trace if
    // memory is exhausted.
    changeKey(cache(), stanza, key, [&] {
        cache().add(stanza, key, 0);
        ZArrayList_6_0& list = *cache().get(stanza, key, ZPCache_6_0::plainValues);
        strings.reserveIn(list, 0);
        setValue(stanza, key, strings.text(0), 0);
        // The list has the first value, and capacity for all of them: nothing below throws.
        strings.removeFirst();
        strings.moveTo(list);
    });
}

void ZStanzaFileProperties_6_0::removeValue(char const* stanza, char const* key, char const* value)
{
    requireNames(stanza, key);
    if (value == nullptr)
        refuseText();
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::set, stanza, key);
    Hold const hold(*this);
    auto const kind = cache().isObfuscated(stanza, key) != 0 ? ZPCache_6_0::obfuscatedValues
                                                             : ZPCache_6_0::plainValues;
    rep_->requireUnambiguous(stanza);
    if (cache().contains(stanza, key) == 0)
        throwMissing(*this, stanza, key);
    ZArrayList_6_0& list = *cache().get(stanza, key, kind);
    unsigned index = 0;
    while (index < list.size() &&
           strcmp(static_cast<ZLCString_6_0*>(list.get(index))->getChars(), value) != 0)
        ++index;
    if (index == list.size())
        throwMissing(*this, stanza, key);
    if (list.size() == 1 &&
        !KeptLines::hasLineAlone(static_cast<ZSCFData_6_0&>(cache()), stanza, key)) {
        deleteKey(stanza, key);
        return;
    }
    list.remove(index);
    Rep::recordChange(*this, std::move(notice));
}

void ZStanzaFileProperties_6_0::renameKey(char const* stanza, char const* key, char const* newKey)
{
    requireNames(stanza, key);
    Hold const hold(*this);
    if (!rep_->isValidKey(stanza, newKey))
        refuseText();
    auto removed = Rep::makeNotice(ZPropertyChanged_6_0::removed, stanza, key);
    auto set = Rep::makeNotice(ZPropertyChanged_6_0::set, stanza, newKey);
    auto& cache = static_cast<ZSCFData_6_0&>(this->cache());
    if (cache.contains(stanza, key) == 0)
        throwMissing(*this, stanza, key);
    bool const isRespelled =
        rep_->dialect != nullptr && rep_->dialect->isRespelled(stanza, key, newKey) != 0;
    if (strcmp(key, newKey) == 0 && !isRespelled)
        return;
    if (!isRespelled && cache.contains(stanza, newKey) != 0)
        refuseText();
    requireNotReserved(cache, stanza, key, stanza, newKey);
    auto values = cache.values(stanza, key, ZPCache_6_0::plainValues);
    for (Text value; values.next(value);)
        rep_->requireValidValue(newKey, value.chars);
    cache.renameKey(stanza, key, newKey);
    Rep::recordChange(*this, std::move(removed));
    Rep::recordChange(*this, std::move(set));
}

void ZStanzaFileProperties_6_0::renameStanza(char const* stanza, char const* newStanza)
{
    requireName(stanza);
    Hold const hold(*this);
    if (!rep_->isValidCategory(newStanza))
        refuseText();
    auto removed = Rep::makeNotice(ZPropertyChanged_6_0::removed, stanza, nullptr);
    auto added = Rep::makeNotice(ZPropertyChanged_6_0::added, newStanza, nullptr);
    auto& cache = static_cast<ZSCFData_6_0&>(this->cache());
    if (cache.contains(stanza) == 0)
        throwMissing(*this, stanza, "");
    bool const isRespelled =
        rep_->dialect != nullptr && rep_->dialect->isRespelled(stanza, nullptr, newStanza) != 0;
    if (strcmp(stanza, newStanza) == 0 && !isRespelled)
        return;
    if (rep_->dialect != nullptr ? rep_->dialect->validNewName(stanza, newStanza) == 0
                                 : cache.contains(newStanza) != 0)
        refuseText();
    requireNotReserved(cache, stanza, kReservedKey, newStanza, kReservedKey);
    rep_->requireUnambiguous(stanza);
    if (rep_->dialect != nullptr)
        rep_->dialect->renameStanza(stanza, newStanza);
    else
        cache.renameCategory(stanza, newStanza);
    Rep::recordChange(*this, std::move(removed));
    Rep::recordChange(*this, std::move(added));
}

ZArrayList_6_0* ZStanzaFileProperties_6_0::stanzaNames() const
{
    std::unique_ptr<ZArrayList_6_0> names(new ZArrayList_6_0(16, 1));
    Hold const hold(*this);
    static_cast<ZSCFData_6_0 const&>(cache()).getNamesInFileOrder(*names);
    return names.release();
}
