// The open files and iterators of the plain functions, the tables of their handles, and the calls
// on them.
#include <errno.h>
#include <string.h>
#include <time.h>

#include <chrono>
#include <new>
#include <utility>

#include "ZException.h"
#include "handles/returned_strings.h"
#include "reporting/messages.h"
#include "text/table_directory.h"
#include "zproperties_c_p.h"

namespace {

enum Tag : uint32_t { fileTag = 1, iteratorTag = 2 };

}  // namespace

constinit zhandles::HandleTable<ZPROP_handle> zhandles::openFiles(fileTag);
constinit zhandles::HandleTable<ZPROP_iter_handle> zhandles::openIterators(iteratorTag);

ZPROP_handle::ZPROP_handle(ZPROPOpenMode openMode, std::shared_ptr<zhandles::PlainStore> openStore)
    : mode(openMode),
      store(std::move(openStore)),
      attributes(zhandles::threadOptions().attributes),
      waitMilliseconds(zhandles::threadOptions().waitMilliseconds)
{
}

ZPROP_handle::~ZPROP_handle()
{
    mode = 0;
    first = 0;
    second = 0;
}

ZPROP_stz_handle::~ZPROP_stz_handle() = default;

ZPROP_iter_handle::ZPROP_iter_handle(ZPROPIterType iterType,
                                     std::shared_ptr<zhandles::PlainStore> openStore,
                                     char const* stanzaName, char const* keyName)
    : type(iterType),
      store(std::move(openStore)),
      stanza(stanzaName),
      key(keyName),
      creator(zhandles::threadNumber()),
      access(*store)
{
}

ZPROP_iter_handle::~ZPROP_iter_handle() noexcept(false)
{
    type = 0;
    first = 0;
    second = 0;
}

ZPROP_stz_iter_handle::ZPROP_stz_iter_handle(std::shared_ptr<zhandles::PlainStore> const& openStore,
                                             char const* stanzaName)
    : ZPROP_iter_handle(zpropOverKeys, openStore, stanzaName), entries(*openStore, stanzaName)
{
}

ZPROP_stz_iter_handle::~ZPROP_stz_iter_handle() = default;

ZPROP_stzvalue_iter_handle::ZPROP_stzvalue_iter_handle(
    std::shared_ptr<zhandles::PlainStore> const& openStore, char const* stanzaName,
    char const* keyName)
    : ZPROP_iter_handle(zpropOverValues, openStore, stanzaName, keyName),
      values(*openStore, stanzaName, keyName, zPropLocalStrings, zPropIterAny)
{
}

ZPROP_stzvalue_iter_handle::~ZPROP_stzvalue_iter_handle() = default;

ZPROP_stanzas_iter_handle::ZPROP_stanzas_iter_handle(
    std::shared_ptr<zhandles::PlainStore> const& openStore)
    : ZPROP_iter_handle(zpropOverStanzas, openStore), names(openStore->stanzaNames())
{
}

ZPROP_stanzas_iter_handle::~ZPROP_stanzas_iter_handle() = default;

// ---- Codes of exceptions ------------------------------------------------------------------------

namespace zhandles {

int readCode()
{
    try {
        throw;
    } catch (ZPropertiesMissingPropertyException_6_0 const&) {
        return zpropMissing;
    } catch (ZPropertiesInvalidValueException_6_0 const&) {
        return zpropInvalidValue;
    } catch (ZPropertiesIteratorException_6_0 const&) {
        return zpropIterator;
    } catch (ZInvalidParameterException_6_0 const&) {
        return zpropBadHandle;
    } catch (...) {
        return zpropChangeFailed;
    }
}

int readTextCode()
{
    int const code = readCode();
    // A value that no line can hold is no value of the wrong type.
    return code == zpropInvalidValue ? int{zpropChangeFailed} : code;
}

int iteratorChangeCode()
{
    try {
        throw;
    } catch (ZPropertiesIteratorException_6_0 const&) {
        return zpropIterator;
    } catch (...) {
        return zpropChangeFailed;
    }
}

int changeExistingCode()
{
    try {
        throw;
    } catch (ZPropertiesMissingPropertyException_6_0 const&) {
        return zpropMissing;
    } catch (...) {
        return zpropChangeFailed;
    }
}

int changeCode()
{
    return zpropChangeFailed;
}

int openStoreCode()
{
    return zpropOpenStoreFailed;
}

// ---- Calls --------------------------------------------------------------------------------------

int openFile(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode,
             ZStanzaDialect_6_0 const& dialect)
{
    constexpr char kNoTables[] =
        "The tables of the text services are missing; set QVRDIR or call zstzPropSetTables_6_0.";
    Call call{{nullptr, nullptr, file}};
    call.loaded = file != nullptr ? &dialect : nullptr;
    if (file != nullptr && *file == '\0')
        call.reason = "The name of the file is empty.";
    if (!ztext::hasTableDirectory())
        return recordFailure(zpropOpenStoreFailed, kNoTables, call, zreporting::noQVREnvironment);
    return codeOf(openStoreCode, call, nullptr, [&] {
        auto opened = std::make_unique<ZPROP_handle>(mode, std::make_shared<Store>(dialect));
        Store& store = *opened->store;
        store.setAttributes(opened->attributes, nullptr);
        if (file != nullptr) {
            waitWhileBusy(opened->waitMilliseconds, [&] { store.load(file); });
            store.publishName();
        }
        *handle = openFiles.insert(std::move(opened));
    });
}

char* returnedString(char const* text, size_t length)
{
    if (length == 0)
        return nullptr;
    char* const copy = newString(text, length);
    if (copy == nullptr)
        throw std::bad_alloc();
    return copy;
}

namespace {

// Returns whether a call failed because another process has locked the file.
bool isBusy(ZPropertiesIOException_6_0 const& failure)
{
    return (failure.excerrno() == EAGAIN || failure.excerrno() == EACCES) &&
           strcmp(failure.api().getChars(), "fcntl()") == 0;
}

}  // namespace

void waitWhileBusy(int64_t milliseconds, void (*action)(void*), void* context)
{
    using Clock = std::chrono::steady_clock;
    Clock::time_point const end = Clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        try {
            return action(context);
        } catch (ZPropertiesIOException_6_0 const& failure) {
            if (!isBusy(failure) || Clock::now() >= end)
                throw;
        }
        constexpr timespec kRetryInterval = {0, 10'000'000};
        nanosleep(&kRetryInterval, nullptr);
    }
}

}  // namespace zhandles
