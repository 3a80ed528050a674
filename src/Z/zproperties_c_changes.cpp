// The plain functions that change several values, stanzas and names, and the observers of changes.
#include <memory>
#include <utility>

#include "ZException.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

namespace {

bool hasNull(char const* const* values, int count)
{
    for (int i = 0; i < count; ++i)
        if (values[i] == nullptr)
            return true;
    return false;
}

}  // namespace

int zstzPropIter_initStanzas_6_0(ZPROP_handle* handle, ZPROP_iter_handle** iterator)
{
    if (iterator == nullptr)
        return missingArgument();
    Files::Pin const file = openFiles.pin(handle);
    if (!file || !file->intact())
        return badHandle();
    *iterator = nullptr;
    return codeOf(readCode, {nullptr, nullptr, file->path.c_str()}, [&] {
        *iterator = openIterators.insert(std::make_unique<ZPROP_stanzas_iter_handle>(file->store));
    });
}

int zstzPropSetStringValues_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                char const* const* values, int count)
{
    if (stanza == nullptr || key == nullptr || count < 0 || (values == nullptr && count != 0) ||
        hasNull(values, count))
        return missingArgument();
    return changeFile(handle, {stanza, key}, [&](Store& store) {
        store.setValues(stanza, key, values, static_cast<unsigned>(count));
    });
}

int zstzPropAddStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* value)
{
    if (stanza == nullptr || key == nullptr || value == nullptr)
        return missingArgument();
    return changeFile(handle, {stanza, key},
                      [&](Store& store) { store.addValue(stanza, key, value, 0); });
}

int zstzPropRemoveValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                            char const* value)
{
    if (stanza == nullptr || key == nullptr || value == nullptr)
        return missingArgument();
    return withFile(handle, {stanza, key}, changeExistingCode,
                    [&](Store& store) { store.removeValue(stanza, key, value); });
}

int zstzPropSetObfuscatedValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                   char const* value)
{
    if (stanza == nullptr || key == nullptr)
        return missingArgument();
    return changeFile(handle, {stanza, key}, [&](Store& store) {
        store.setValue(stanza, key, value != nullptr ? value : "", 1);
    });
}

int zstzPropIsObfuscated_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code)
{
    if (stanza == nullptr || code == nullptr)
        return missingArgument(0);
    return readFile(handle, {stanza, key}, code, [&](Store const& store) {
        return key != nullptr ? store.isObfuscated(stanza, key) : store.isObfuscated(stanza);
    });
}

int zstzPropAddStanza_6_0(ZPROP_handle* handle, char const* stanza)
{
    if (stanza == nullptr)
        return missingArgument();
    return changeFile(handle, {stanza}, [&](Store& store) { store.addStanza(stanza); });
}

int zstzPropRenameStanza_6_0(ZPROP_handle* handle, char const* stanza, char const* newStanza)
{
    if (stanza == nullptr || newStanza == nullptr)
        return missingArgument();
    return withFile(handle, {stanza}, changeExistingCode,
                    [&](Store& store) { store.renameStanza(stanza, newStanza); });
}

int zstzPropRenameKey_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                          char const* newKey)
{
    if (stanza == nullptr || key == nullptr || newKey == nullptr)
        return missingArgument();
    return withFile(handle, {stanza, key}, changeExistingCode,
                    [&](Store& store) { store.renameKey(stanza, key, newKey); });
}

int zstzPropSetObserver_6_0(ZPROP_handle* handle, ZPROPObserver observer, void* context)
{
    return withHandle(handle, {}, changeCode, [&](ZPROP_handle& file) {
        std::unique_ptr<ZPROP_handle::Observer> added;
        if (observer != nullptr) {
            added = std::make_unique<ZPROP_handle::Observer>(observer, context);
            file.store->addObserver(added.get());
        }
        file.replaceObserver(std::move(added));
    });
}
