// The open files and iterators of the plain functions, the tables of their handles, and the calls
// on them.
#include <errno.h>
#include <string.h>
#include <time.h>

#include <chrono>
#include <new>
#include <utility>

#include "ZException.h"
#include "ZPropertiesImpl.h"
#include "handles/returned_strings.h"
#include "reporting/failures.h"
#include "zproperties_c_p.h"

namespace {

enum Tag : uint32_t { fileTag = 1, iteratorTag = 2 };

}  // namespace

constinit zhandles::HandleTable<ZPROP_handle> zhandles::openFiles(fileTag);
constinit zhandles::HandleTable<ZPROP_iter_handle> zhandles::openIterators(iteratorTag);

ZPROP_handle::ZPROP_handle(ZPROPOpenMode openMode,
                           std::shared_ptr<ZStanzaFileProperties_6_0> openStore, char const* name)
    : mode(openMode), store(std::move(openStore)), path(name), attributes(ZPCache_6_0::keepComments)
{
}

ZPROP_handle::~ZPROP_handle()
{
    constexpr zreporting::Site kSite = {"src/Z/zproperties_c", 215};
    zreporting::runCleanup(kSite, [this] { replaceObserver(nullptr); });
    mode = 0;
    first = 0;
    second = 0;
}

void ZPROP_handle::Observer::update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm)
{
    auto const* const change = dynamic_cast<ZPropertyChanged_6_0 const*>(&parm);
    // The callback may replace this observer: it is deleted then.
    if (change != nullptr)
        callback_(change->type(), change->category().getChars(), change->key().getChars(),
                  context_);
}

void ZPROP_handle::replaceObserver(std::unique_ptr<Observer> added)
{
    {
        std::lock_guard<std::mutex> const guard(observerMutex);
        observer.swap(added);
    }
    // Without the mutex: this waits for a running callback, which may replace the observer too.
    if (added != nullptr)
        store->deleteObserver(added.get());
}

ZPROP_stz_handle::~ZPROP_stz_handle() = default;

ZPROP_iter_handle::ZPROP_iter_handle(ZPROPIterType iterType,
                                     std::shared_ptr<ZStanzaFileProperties_6_0> openStore)
    : type(iterType), store(std::move(openStore)), creator(pthread_self())
{
}

ZPROP_iter_handle::~ZPROP_iter_handle() noexcept(false)
{
    type = 0;
    first = 0;
    second = 0;
}

ZPROP_stz_iter_handle::ZPROP_stz_iter_handle(
    std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore, char const* stanza)
    : ZPROP_iter_handle(zpropOverKeys, openStore), entries(*openStore, stanza)
{
}

ZPROP_stz_iter_handle::~ZPROP_stz_iter_handle() = default;

ZPROP_stzvalue_iter_handle::ZPROP_stzvalue_iter_handle(
    std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore, char const* stanza,
    char const* keyName)
    : ZPROP_iter_handle(zpropOverValues, openStore),
      values(*openStore, stanza, keyName, zPropLocalStrings, zPropIterAny),
      key(keyName)
{
}

ZPROP_stzvalue_iter_handle::~ZPROP_stzvalue_iter_handle() = default;

ZPROP_stanzas_iter_handle::ZPROP_stanzas_iter_handle(
    std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore)
    : ZPROP_iter_handle(zpropOverStanzas, openStore),
      hold(*openStore),
      names(openStore->stanzaNames())
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

int openFile(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode)
{
    return codeOf(openStoreCode, {nullptr, nullptr, file}, [&] {
        constexpr int kKeepComments = 1;
        auto store = file != nullptr ? std::make_shared<Store>(file, kKeepComments)
                                     : std::make_shared<Store>(kKeepComments);
        *handle = openFiles.insert(
            std::make_unique<ZPROP_handle>(mode, std::move(store), file != nullptr ? file : ""));
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

void waitWhileBusy(int seconds, void (*action)(void*), void* context)
{
    using Clock = std::chrono::steady_clock;
    Clock::time_point const end = Clock::now() + std::chrono::seconds(seconds);
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
