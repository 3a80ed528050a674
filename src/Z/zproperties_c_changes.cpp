// The plain functions that change several values, stanzas and names, and the observers of changes.
#include <memory>

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

Call renameCall(char const* stanza, char const* key, char const* newName)
{
    Call call{{stanza, key}};
    call.newName = newName;
    return call;
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
    return codeOf(readCode, {}, file->store.get(), [&] {
        *iterator = openIterators.insert(std::make_unique<ZPROP_stanzas_iter_handle>(file->store));
    });
}

int zstzPropSetStringValues_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                char const* const* values, int count)
{
    if (stanza == nullptr || key == nullptr || count < 0 || (values == nullptr && count != 0) ||
        hasNull(values, count))
        return missingArgument();
    return changeFile(handle, {{stanza, key}, values, count, Call::plain},
                      [&](Store& store) { store.setTexts(stanza, key, values, count); });
}

int zstzPropAddStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* value)
{
    if (stanza == nullptr || key == nullptr || value == nullptr)
        return missingArgument();
    return changeFile(handle, {{stanza, key}, &value, 1, Call::plain},
                      [&](Store& store) { store.addText(stanza, key, value); });
}

int zstzPropRemoveValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                            char const* value)
{
    if (stanza == nullptr || key == nullptr || value == nullptr)
        return missingArgument();
    return withStore(handle, {{stanza, key}}, changeExistingCode,
                     [&](Store& store) { store.removeText(stanza, key, value); });
}

int zstzPropSetObfuscatedValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                   char const* value)
{
    if (stanza == nullptr || key == nullptr)
        return missingArgument();
    char const* const text = value != nullptr ? value : "";
    return changeFile(handle, {{stanza, key}, &text, 1, Call::obfuscated},
                      [&](Store& store) { store.setText(stanza, key, text, Call::obfuscated); });
}

int zstzPropIsObfuscated_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code)
{
    if (stanza == nullptr || code == nullptr)
        return missingArgument(0);
    return readFile(handle, {{stanza, key}}, code, [&](Store const& store) {
        return key != nullptr ? store.isObfuscated(stanza, key) : store.isObfuscated(stanza);
    });
}

int zstzPropAddStanza_6_0(ZPROP_handle* handle, char const* stanza)
{
    if (stanza == nullptr)
        return missingArgument();
    return changeFile(handle, {{stanza}}, [&](Store& store) { store.addNewStanza(stanza); });
}

int zstzPropRenameStanza_6_0(ZPROP_handle* handle, char const* stanza, char const* newStanza)
{
    if (stanza == nullptr || newStanza == nullptr)
        return missingArgument();
    return withStore(handle, renameCall(stanza, nullptr, newStanza), changeExistingCode,
                     [&](Store& store) { store.rename(stanza, newStanza); });
}

int zstzPropRenameKey_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                          char const* newKey)
{
    if (stanza == nullptr || key == nullptr || newKey == nullptr)
        return missingArgument();
    return withStore(handle, renameCall(stanza, key, newKey), changeExistingCode,
                     [&](Store& store) { store.rename(stanza, key, newKey); });
}

int zstzPropSetObserver_6_0(ZPROP_handle* handle, ZPROPObserver observer, void* context)
{
    bool isOpen = true;
    int const code = withHandle(handle, {}, changeCode, [&](ZPROP_handle& file) {
        isOpen = file.store->observer.set(observer, context);
    });
    return isOpen ? code : badHandle();
}
