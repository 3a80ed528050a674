// zproperties_c_p: the open files and iterators of the plain functions, and the calls on them.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

#include "ZArrayList.h"
#include "ZStanzaFileProperties.h"
#include "handles/handle_table.h"
#include "handles/last_error.h"
#include "reporting/cancellation.h"
#include "zproperties_c.h"

constexpr uint32_t kZPropFirstMagic = 0xbeeff00d;
constexpr uint32_t kZPropSecondMagic = 0xd00ffeeb;

// An open file. The magic words are volatile, so that the compiler does not optimise away clearing
// them in the destructor.
struct ZPROP_handle {
    /// range   `name` is the path that was opened; empty for a store without a file.
    ZPROP_handle(ZPROPOpenMode openMode, std::shared_ptr<ZStanzaFileProperties_6_0> openStore,
                 char const* name = "");
    ZPROP_handle(ZPROP_handle const&) = delete;
    ZPROP_handle& operator=(ZPROP_handle const&) = delete;
    virtual ~ZPROP_handle();

    bool intact() const { return first == kZPropFirstMagic && second == kZPropSecondMagic; }

    // Passes the changes of the store to a callback.
    class Observer final : public ZObserverInterface_6_0 {
    public:
        Observer(ZPROPObserver callback, void* context) : callback_(callback), context_(context) {}
        void update(ZObservableInterface_6_0* sender, ZObservedParm_6_0 const& parm) override;

    private:
        ZPROPObserver const callback_;
        void* const context_;
    };

    /// Replaces the observer, and unregisters the earlier one.
    /// range   `added` is null, or registered with the store.
    void replaceObserver(std::unique_ptr<Observer> added);

    uint32_t volatile first = kZPropFirstMagic;
    int32_t volatile mode;
    uint32_t volatile second = kZPropSecondMagic;
    std::shared_ptr<ZStanzaFileProperties_6_0> const store;
    std::string const path;
    std::atomic<unsigned long> attributes;  // of the store's cache
    std::atomic<int> waitSeconds{0};        // for a file that another process uses
    std::mutex observerMutex;
    std::unique_ptr<Observer> observer;  // guarded by observerMutex; null: none
};

// A stanza of an open file. No function of the interface creates one.
struct ZPROP_stz_handle : ZPROP_handle {
    using ZPROP_handle::ZPROP_handle;
    ~ZPROP_stz_handle() override;
};

enum ZPROPIterType : int32_t { zpropOverKeys = 1, zpropOverValues = 2, zpropOverStanzas = 3 };

// An open iterator. It shares the store, so that the file handle may be closed first.
struct ZPROP_iter_handle {
    ZPROP_iter_handle(ZPROPIterType iterType, std::shared_ptr<ZStanzaFileProperties_6_0> openStore);
    ZPROP_iter_handle(ZPROP_iter_handle const&) = delete;
    ZPROP_iter_handle& operator=(ZPROP_iter_handle const&) = delete;
    virtual ~ZPROP_iter_handle() noexcept(false);

    bool intact() const { return first == kZPropFirstMagic && second == kZPropSecondMagic; }

    int32_t volatile type;
    uint32_t volatile first = kZPropFirstMagic;
    uint32_t volatile second = kZPropSecondMagic;
    std::shared_ptr<ZStanzaFileProperties_6_0> const store;
    pthread_t const creator;  // the thread that holds the store's lock through the iterator
};

namespace zhandles {

// Makes the lock of a store accessible.
struct LockedStore : ZStanzaFileProperties_6_0 {
    using ZProperties_6_0::Hold;
};

}  // namespace zhandles

struct ZPROP_stz_iter_handle : ZPROP_iter_handle {
    ZPROP_stz_iter_handle(std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore,
                          char const* stanza);
    ~ZPROP_stz_iter_handle() override;

    ZStanzaIterator_6_0 entries;
};

struct ZPROP_stzvalue_iter_handle : ZPROP_iter_handle {
    ZPROP_stzvalue_iter_handle(std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore,
                               char const* stanza, char const* keyName);
    ~ZPROP_stzvalue_iter_handle() override;

    ZStanzaValueIterator_6_0 values;
    std::string current;  // the current value
    std::string const key;
};

struct ZPROP_stanzas_iter_handle : ZPROP_iter_handle {
    explicit ZPROP_stanzas_iter_handle(std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore);
    ~ZPROP_stanzas_iter_handle() override;

    zhandles::LockedStore::Hold const hold;
    std::unique_ptr<ZArrayList_6_0> const names;
    unsigned next = 0;  // the index of the next name
};

namespace zhandles {

using Files = HandleTable<ZPROP_handle>;
using Iterators = HandleTable<ZPROP_iter_handle>;
using Store = ZStanzaFileProperties_6_0;

/// The process's open files and iterators.
extern Files openFiles;
extern Iterators openIterators;

// Each returns the code for the exception that is being handled in a function of its kind.
using CodeOfFailure = int();
int readCode();            // reads values
int changeCode();          // changes values
int changeExistingCode();  // changes something that must exist
int iteratorChangeCode();  // changes values by an iterator
int openStoreCode();       // loads or stores a file

inline int missingArgument()
{
    return recordFailure(zpropBadHandle, kMissingArgument);
}

template <class Result>
Result missingArgument(Result result)
{
    missingArgument();
    return result;
}

inline int badHandle()
{
    return recordFailure(zpropBadHandle, kBadHandle);
}

// Runs `action` and translates its exceptions into codes, which it records. Rethrows only the
// cancellation of the thread, which is an exception too and must not be caught for good.
template <class Action>
int codeOf(CodeOfFailure* codeOfFailure, CallNames const& names, Action action)
{
    try {
        action();
        return zpropOk;
    } catch (...) {
        if (zreporting::caughtCancellation())
            throw;
        return recordException(codeOfFailure(), names);
    }
}

// Runs `action` on an open file.
template <class Action>
int withHandle(ZPROP_handle* handle, CallNames names, CodeOfFailure* codeOfFailure, Action action)
{
    Files::Pin const file = openFiles.pin(handle);
    if (!file || !file->intact())
        return badHandle();
    if (names.file == nullptr || *names.file == '\0')
        names.file = file->path.c_str();
    return codeOf(codeOfFailure, names, [&] { action(*file); });
}

// Runs `action` on the store of an open file.
template <class Action>
int withFile(ZPROP_handle* handle, CallNames const& names, CodeOfFailure* codeOfFailure,
             Action action)
{
    return withHandle(handle, names, codeOfFailure,
                      [&](ZPROP_handle& file) { action(*file.store); });
}

/// Opens `file`, or a store without a file if it is null, and stores its handle. Returns the code.
int openFile(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode);

template <class Action>
int changeFile(ZPROP_handle* handle, CallNames const& names, Action action)
{
    return withFile(handle, names, changeCode, action);
}

// Stores the code and returns the result of `read`, or 0 if it fails.
template <class Read>
std::invoke_result_t<Read, Store&> readFile(ZPROP_handle* handle, CallNames const& names, int* code,
                                            Read read)
{
    std::invoke_result_t<Read, Store&> result = {};
    *code = withFile(handle, names, readCode, [&](Store& store) { result = read(store); });
    return result;
}

/// Returns a copy of `text` for the caller; null if it is empty.
/// throws  std::bad_alloc.
char* returnedString(char const* text, size_t length);

/// Calls `action`, again and again while another process uses the file and `seconds` have not
/// passed.
/// throws  the last exception of `action`.
void waitWhileBusy(int seconds, void (*action)(void*), void* context);

template <class Action>
void waitWhileBusy(int seconds, Action action)
{
    waitWhileBusy(
        seconds, [](void* context) { (*static_cast<Action*>(context))(); }, &action);
}

}  // namespace zhandles
