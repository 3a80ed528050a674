#include "zproperties_c.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZLCString.h"
#include "handles/returned_strings.h"
#include "zproperties_c_p.h"

using namespace zhandles;

namespace {

constexpr char kSource[] = "src/Z/zproperties_c";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInGetValues = 431 };

// ---- Iterators and values -----------------------------------------------------------------------

// The thread that created an iterator holds the lock of its store. No other thread may access the
// data that the lock guards, or release the lock.
bool isCreator(ZPROP_iter_handle const& iterator)
{
    return iterator.creator == threadNumber();
}

int notOverStanzas(ZPROP_stanzas_iter_handle&)
{
    return recordFailure(zpropIterator, kOtherIterator);
}

// Runs the action for the type of the iterator.
template <class OverKeys, class OverValues, class OverStanzas>
int withIterator(ZPROP_iter_handle* handle, CodeOfFailure* codeOfFailure, OverKeys overKeys,
                 OverValues overValues, OverStanzas overStanzas, char const* value = nullptr)
{
    Iterators::Pin const iterator = openIterators.pin(handle);
    if (!iterator || !iterator->intact())
        return badHandle();
    if (!isCreator(*iterator))
        return recordFailure(zpropIterator, kOtherThread);
    int code = zpropOk;
    Call call{{iterator->stanza.c_str(), iterator->key.c_str()}};
    call.values = &value;
    call.valueCount = value != nullptr ? 1 : 0;
    call.kind = Call::plain;
    int const failure = codeOf(codeOfFailure, call, iterator->store.get(), [&] {
        if (iterator->type == zpropOverKeys)
            code = overKeys(static_cast<ZPROP_stz_iter_handle&>(*iterator));
        else if (iterator->type == zpropOverStanzas)
            code = overStanzas(static_cast<ZPROP_stanzas_iter_handle&>(*iterator));
        else
            code = overValues(static_cast<ZPROP_stzvalue_iter_handle&>(*iterator));
    });
    return failure != zpropOk ? failure : code;
}

int notOverKeys(ZPROP_stz_iter_handle&)
{
    return recordFailure(zpropIterator, kOtherIterator);
}

// ---- Values -------------------------------------------------------------------------------------

// A flag of 1 requests a default, so that the key is not required.
int required(int defaultFlag)
{
    return defaultFlag == 1 ? 0 : 1;
}

char const* orEmpty(char const* value)
{
    return value != nullptr ? value : "";
}

// Stores a copy of `text`, or null if it is empty, in `result` and returns the code.
int returnString(char const* text, size_t length, char*& result)
{
    result = returnedString(text, length);
    return zpropOk;
}

// Reads the last value of a key. A key without values gives an empty value, although the store
// reports a required value as missing then.
void readValue(Store const& store, char const* stanza, char const* key, int defaultFlag,
               ZLCString_6_0& value)
{
    try {
        store.getValue(stanza, key, value, required(defaultFlag), nullptr);
    } catch (ZPropertiesMissingPropertyException_6_0 const&) {
        if (store.exists(stanza, key) == 0)
            throw;
    }
}

char* duplicate(char const* text)
{
    char* const copy = strdup(text);
    if (copy == nullptr)
        throw std::bad_alloc();
    return copy;
}

void freeList(char** list)
{
    for (char** element = list; *element != nullptr; ++element)
        free(*element);
    free(list);
}

struct ListDeleter {
    void operator()(char** list) const { freeList(list); }
};

char** listOf(Store const& store, char const* stanza, char const* key)
{
    ZArrayList_6_0 values(1, 1);
    store.getValues(stanza, key, values, zPropLocalStrings);
    size_t const count = values.size();
    // Zeroed, so that ListDeleter finds the end of the list if duplicate() throws.
    std::unique_ptr<char*, ListDeleter> list(static_cast<char**>(calloc(count + 1, sizeof(char*))));
    if (list == nullptr)
        throw std::bad_alloc();
    for (size_t i = 0; i < count; ++i) {
        auto const* const value =
            static_cast<ZLCString_6_0 const*>(values.get(static_cast<unsigned int>(i)));
        list.get()[i] = duplicate(value->getChars());
    }
    return list.release();
}

bool hasOwnedResult(ZPROPValue const& record)
{
    return record.result != nullptr &&
           (record.type == zpropString || record.type == zpropStringList);
}

void processRecord(Store const& store, ZPROPValue const& record)
{
    int const isRequired = required(record.flag);
    switch (record.type) {
        case zpropBoolean:
            *static_cast<int*>(record.result) =
                store.booleanOf(record.stanza, record.key, isRequired);
            break;
        case zpropInteger:
            *static_cast<unsigned int*>(record.result) =
                store.getIntegerValue(record.stanza, record.key, isRequired, 0);
            break;
        case zpropString: {
            ZLCString_6_0 value;
            readValue(store, record.stanza, record.key, record.flag, value);
            if (value.getLength() > 0)
                *static_cast<char**>(record.result) = duplicate(value.getChars());
            break;
        }
        case zpropStringList:
            *static_cast<char***>(record.result) = listOf(store, record.stanza, record.key);
            break;
    }
}

Call commentCall(char const* stanza, char const* key)
{
    Call call{{stanza, key}};
    call.hasComment = true;
    return call;
}

}  // namespace

// ---- Files --------------------------------------------------------------------------------------

int zstzPropOpen_6_0(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode)
{
    if (handle == nullptr || file == nullptr || (mode != zpropOpenRead && mode != zpropOpenUpdate))
        return missingArgument();
    *handle = nullptr;
    return openFile(handle, file, mode, ZStanzaDialect_6_0());
}

void zstzPropClose_6_0(ZPROP_handle* handle)
{
    Files::Pin const file = openFiles.pin(handle);
    if (!file || !file->intact())
        return;
    file->store->observer.close();
    openFiles.close(handle);
}

int zstzPropStore_6_0(ZPROP_handle* handle, char const* file)
{
    char const* const named = file != nullptr && *file != '\0' ? file : nullptr;
    return withHandle(handle, {{nullptr, nullptr, named}}, openStoreCode,
                      [&](ZPROP_handle& opened) {
                          waitWhileBusy(opened.waitMilliseconds, [&] {
                              Store::Access const access(*opened.store);
                              opened.store->store(named);
                              opened.store->publishName();
                          });
                      });
}

// ---- Changes ------------------------------------------------------------------------------------

int zstzPropSetStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* value)
{
    if (stanza == nullptr || key == nullptr)
        return missingArgument();
    return changeFile(handle, {{stanza, key}, &value, 1, Call::plain},
                      [&](Store& store) { store.setText(stanza, key, value, Call::plain); });
}

int zstzPropSetBooleanValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                int value)
{
    return zstzPropSetStringValue_6_0(handle, stanza, key, value != 0 ? "yes" : "no");
}

int zstzPropSetIntegerValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                unsigned int value)
{
    char digits[16];
    snprintf(digits, sizeof digits, "%u", value);
    return zstzPropSetStringValue_6_0(handle, stanza, key, digits);
}

int zstzPropRemoveKey_6_0(ZPROP_handle* handle, char const* stanza, char const* key)
{
    if (stanza == nullptr || key == nullptr)
        return missingArgument();
    return changeFile(handle, {{stanza, key}}, [&](Store& store) { store.removeKey(stanza, key); });
}

int zstzPropRemoveStanza_6_0(ZPROP_handle* handle, char const* stanza)
{
    if (stanza == nullptr)
        return missingArgument();
    return changeFile(handle, {{stanza}}, [&](Store& store) { store.removeStanza(stanza); });
}

int zstzPropAddLineComment_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* comment)
{
    if (stanza == nullptr || key == nullptr || comment == nullptr)
        return missingArgument();
    return changeFile(handle, commentCall(stanza, key),
                      [&](Store& store) { store.addComment(stanza, key, comment); });
}

int zstzPropAddStanzaComment_6_0(ZPROP_handle* handle, char const* stanza, char const* comment)
{
    if (stanza == nullptr || comment == nullptr)
        return missingArgument();
    return changeFile(handle, commentCall(stanza, nullptr),
                      [&](Store& store) { store.addComment(stanza, nullptr, comment); });
}

int zstzPropAddFileComment_6_0(ZPROP_handle* handle, char const* comment)
{
    if (comment == nullptr)
        return missingArgument();
    return changeFile(handle, commentCall(nullptr, nullptr),
                      [&](Store& store) { store.addComment(nullptr, nullptr, comment); });
}

// ---- Lists of values ----------------------------------------------------------------------------

int zstzPropGetValues_6_0(ZPROP_handle* handle, ZPROPValue* records, int count)
{
    if (records == nullptr && count != 0)
        return missingArgument();
    Files::Pin const file = openFiles.pin(handle);
    if (!file || !file->intact())
        return badHandle();
    // zstzPropFreeValuesList_6_0 releases the results of all records, also of those after a
    // failure.
    for (int i = 0; i < count; ++i) {
        if (hasOwnedResult(records[i]))
            *static_cast<void**>(records[i].result) = nullptr;
    }
    for (int i = 0; i < count; ++i) {
        ZPROPValue const& record = records[i];
        // KEPT: the exception for an invalid type leaves the plain function instead of becoming a
        // code. A C++ program that relies on the exception, and ignores the code, would use a
        // record without values. Test: ZPropertiesC.KeepsOneExceptionOfItsOwn
        if (record.type < zpropBoolean || record.type > zpropStringList)
            ZInvalidParameterException_6_0().throwException(kSource, raiseInGetValues);
        if (record.result == nullptr)
            return missingArgument();
        int const code = codeOf(readCode, {{record.stanza, record.key}}, file->store.get(),
                                [&] { processRecord(*file->store, record); });
        if (code != zpropOk)
            return code;
    }
    return zpropOk;
}

void zstzPropFreeValuesList_6_0(ZPROP_handle* handle, ZPROPValue* records, int count)
{
    if (records == nullptr)
        return;
    Files::Pin const file = openFiles.pin(handle);
    if (!file || !file->intact())
        return;
    for (int i = 0; i < count; ++i) {
        if (!hasOwnedResult(records[i]))
            continue;
        void*& result = *static_cast<void**>(records[i].result);
        if (records[i].type == zpropString)
            free(result);
        else if (result != nullptr)
            freeList(static_cast<char**>(result));
        result = nullptr;
    }
}

// ---- Single values ------------------------------------------------------------------------------

char* zstzPropGetStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                 int defaultFlag, int* code)
{
    if (stanza == nullptr || key == nullptr || code == nullptr)
        return missingArgument(nullptr);
    return readFile(handle, {{stanza, key}}, code, [&](Store const& store) {
        ZLCString_6_0 value;
        readValue(store, stanza, key, defaultFlag, value);
        return returnedString(value.getChars(), value.getLength());
    });
}

int zstzPropGetBooleanValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                int defaultFlag, int* code)
{
    if (stanza == nullptr || key == nullptr || code == nullptr)
        return missingArgument();
    return readFile(handle, {{stanza, key}}, code, [&](Store const& store) {
        return store.booleanOf(stanza, key, required(defaultFlag));
    });
}

unsigned int zstzPropGetIntegerValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                         int defaultFlag, int* code)
{
    if (stanza == nullptr || key == nullptr || code == nullptr)
        return missingArgument<unsigned int>(zpropBadHandle);
    return readFile(handle, {{stanza, key}}, code, [&](Store const& store) {
        return store.getIntegerValue(stanza, key, required(defaultFlag), 0);
    });
}

int zstzPropExists_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code)
{
    if (stanza == nullptr || code == nullptr)
        return missingArgument(0);
    return readFile(handle, {{stanza, key}}, code, [&](Store const& store) {
        return key != nullptr ? store.exists(stanza, key) : store.exists(stanza);
    });
}

int zstzPropNumStanzas_6_0(ZPROP_handle* handle, int* code)
{
    if (code == nullptr)
        return missingArgument(0);
    return readFile(handle, {}, code, [](Store const& store) { return store.count(); });
}

int zstzPropNumKeys_6_0(ZPROP_handle* handle, char const* stanza, int* code)
{
    if (stanza == nullptr || code == nullptr)
        return missingArgument(0);
    return readFile(handle, {{stanza}}, code,
                    [&](Store const& store) { return store.count(stanza); });
}

int zstzPropNumValues_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code)
{
    if (stanza == nullptr || key == nullptr || code == nullptr)
        return missingArgument(0);
    return readFile(handle, {{stanza, key}}, code,
                    [&](Store const& store) { return store.numValues(stanza, key); });
}

// ---- Iterators ----------------------------------------------------------------------------------

int zstzPropIter_init_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                          ZPROP_iter_handle** iterator)
{
    if (stanza == nullptr || iterator == nullptr)
        return missingArgument();
    Files::Pin const file = openFiles.pin(handle);
    if (!file || !file->intact())
        return badHandle();
    *iterator = nullptr;
    return codeOf(readCode, {{stanza, key}}, file->store.get(), [&] {
        std::unique_ptr<ZPROP_iter_handle> created;
        if (key != nullptr)
            created = std::make_unique<ZPROP_stzvalue_iter_handle>(file->store, stanza, key);
        else
            created = std::make_unique<ZPROP_stz_iter_handle>(file->store, stanza);
        *iterator = openIterators.insert(std::move(created));
    });
}

int zstzPropIter_close_6_0(ZPROP_iter_handle* handle)
{
    Iterators::Pin const iterator = openIterators.pin(handle);
    if (!iterator)
        return badHandle();
    if (!isCreator(*iterator))
        return recordFailure(zpropIterator, kOtherThread);
    // KEPT: a damaged iterator is closed although the code is 55. It holds the lock of the
    // store; other threads would wait for the lock forever. Test:
    // ZPropertiesC.KeepsClosingADamagedIterator
    bool const intact = iterator->intact();
    openIterators.close(handle);
    return intact ? zpropOk : badHandle();
}

int zstzPropIter_chgValue_6_0(ZPROP_iter_handle* iterator, char const* value)
{
    return withIterator(
        iterator, iteratorChangeCode, notOverKeys,
        [&](ZPROP_stzvalue_iter_handle& over) {
            std::string changed(orEmpty(value));
            Store::Changes set =
                over.store->prepare(zpropSet, over.stanza.c_str(), over.key.c_str());
            over.values.changeValue(changed.c_str());
            over.store->record(set);
            over.current.swap(changed);
            return zpropOk;
        },
        notOverStanzas, orEmpty(value));
}

int zstzPropIter_addValue_6_0(ZPROP_iter_handle* iterator, char const* value)
{
    return withIterator(
        iterator, iteratorChangeCode, notOverKeys,
        [&](ZPROP_stzvalue_iter_handle& over) {
            std::string added(orEmpty(value));
            Store::Changes set =
                over.store->prepare(zpropSet, over.stanza.c_str(), over.key.c_str());
            over.values.addValue(added.c_str());
            over.store->record(set);
            over.current.swap(added);
            return zpropOk;
        },
        notOverStanzas, orEmpty(value));
}

int zstzPropIter_rmvValue_6_0(ZPROP_iter_handle* iterator)
{
    return withIterator(
        iterator, iteratorChangeCode, notOverKeys,
        [](ZPROP_stzvalue_iter_handle& over) {
            Store::Changes set =
                over.store->prepare(zpropSet, over.stanza.c_str(), over.key.c_str());
            over.values.removeValue();
            over.store->record(set);
            over.current.clear();
            return zpropOk;
        },
        notOverStanzas);
}

int zstzPropIter_next_6_0(ZPROP_iter_handle* iterator, int* code)
{
    if (code == nullptr)
        return missingArgument(0);
    int advanced = 0;
    *code = withIterator(
        iterator, readCode,
        [&](ZPROP_stz_iter_handle& over) {
            if (over.entries.hasMore()) {
                over.entries.nextEntry();
                advanced = 1;
            }
            return zpropOk;
        },
        [&](ZPROP_stzvalue_iter_handle& over) {
            if (over.values.hasMore()) {
                char const* value = nullptr;
                over.values.nextValue(value);
                over.current = orEmpty(value);
                advanced = 1;
            }
            return zpropOk;
        },
        [&](ZPROP_stanzas_iter_handle& over) {
            if (over.next < over.names->size()) {
                ++over.next;
                advanced = 1;
            }
            return zpropOk;
        });
    return advanced;
}

char* zstzPropIter_getKey_6_0(ZPROP_iter_handle* iterator, int* code)
{
    if (code == nullptr)
        return missingArgument(nullptr);
    char* text = nullptr;
    *code = withIterator(
        iterator, readCode,
        [&](ZPROP_stz_iter_handle& over) {
            char const* const name = orEmpty(over.entries.entryName());
            return returnString(name, strlen(name), text);
        },
        [&](ZPROP_stzvalue_iter_handle& over) {
            return returnString(over.key.data(), over.key.size(), text);
        },
        [&](ZPROP_stanzas_iter_handle& over) {
            if (over.next == 0)
                return recordFailure(zpropIterator, kNoCurrentEntry);
            auto const* const name =
                static_cast<ZLCString_6_0 const*>(over.names->get(over.next - 1));
            return returnString(name->getChars(), name->getLength(), text);
        });
    return text;
}

char* zstzPropIter_getValue_6_0(ZPROP_iter_handle* iterator, int* code)
{
    if (code == nullptr)
        return missingArgument(nullptr);
    char* text = nullptr;
    *code = withIterator(
        iterator, readCode,
        [&](ZPROP_stz_iter_handle& over) {
            char const* const value = orEmpty(over.entries.entryValue(0));
            return returnString(value, strlen(value), text);
        },
        [&](ZPROP_stzvalue_iter_handle& over) {
            return returnString(over.current.data(), over.current.size(), text);
        },
        notOverStanzas);
    return text;
}

int zstzPropIter_numKeys_6_0(ZPROP_iter_handle* iterator, int* code)
{
    if (code == nullptr)
        return missingArgument(0);
    int count = 0;
    *code = withIterator(
        iterator, readCode,
        [&](ZPROP_stz_iter_handle& over) {
            count = over.entries.keyCount();
            return zpropOk;
        },
        [&](ZPROP_stzvalue_iter_handle&) {
            count = 1;
            return zpropOk;
        },
        [&](ZPROP_stanzas_iter_handle& over) {
            count = static_cast<int>(over.names->size());
            return zpropOk;
        });
    return count;
}

int zstzPropIter_numValues_6_0(ZPROP_iter_handle* iterator, int* code)
{
    if (code == nullptr)
        return missingArgument(0);
    int count = 0;
    *code = withIterator(
        iterator, readCode,
        [&](ZPROP_stz_iter_handle& over) {
            count = over.entries.valueCount();
            return zpropOk;
        },
        [&](ZPROP_stzvalue_iter_handle& over) {
            count = over.values.valueCount();
            return zpropOk;
        },
        notOverStanzas);
    return count;
}

void zstzPropFree_6_0(char* text)
{
    zhandles::freeString(text);
}
