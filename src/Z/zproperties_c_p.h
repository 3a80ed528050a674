// zproperties_c_p: the open files and iterators of the plain functions, and the calls on them.
#pragma once

#include <stdint.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ZArrayList.h"
#include "ZStanzaDialect.h"
#include "ZStanzaFileProperties.h"
#include "dialects/counting.h"
#include "handles/handle_table.h"
#include "handles/last_error.h"
#include "handles/observer_slot.h"
#include "reporting/cancellation.h"
#include "zproperties_c.h"

constexpr uint32_t kZPropFirstMagic = 0xbeeff00d;
constexpr uint32_t kZPropSecondMagic = 0xd00ffeeb;

namespace zhandles {

// The arguments of a call, for the reason of a refusal.
struct Call : CallNames {
    enum Kind { noValues, plain, obfuscated };

    char const* const* values = nullptr;
    int valueCount = 0;
    Kind kind = noValues;           // of the values
    char const* newName = nullptr;  // of a stanza, or of a key if the call has a key
    bool hasComment = false;
    bool hasSpelling = false;

    // The contents that the call loads: of `file` if `text` is null.
    ZStanzaDialect_6_0 const* loaded = nullptr;  // their dialect; null: it loads nothing
    char const* text = nullptr;
    size_t length = 0;
};

// A call that a plain function refuses by itself: its arguments are valid. The failure has no
// message number.
struct Refusal {
    char const* reason;
    int code = zpropChangeFailed;
};

/// Returns the problem and the remedy of the line that a load has refused; empty if the exception
/// that is being handled is about something else.
/// range   only in a `catch (...)` that has not caught a cancellation.
std::string explainedLine(Call const& call);

// The store of an open file, and its observer. It queues the changes that the plain functions
// record, and passes them to the observer after the store's lock has been released.
class PlainStore final : public ZStanzaFileProperties_6_0 {
public:
    struct Change {
        int kind;
        std::string stanza;
        std::string key;
    };
    using Changes = std::list<Change>;

    // Locks the store in this scope. Every call that changes the store and every iterator has an
    // Access. After the outermost Access of a thread, the recorded changes are passed on.
    class Access {
    public:
        explicit Access(PlainStore& store);
        Access(Access const&) = delete;
        Access& operator=(Access const&) = delete;
        ~Access() noexcept(false);

    private:
        struct Sender {
            ObserverSlot& observer;
            Changes changes = {};

            ~Sender() noexcept(false);
        };

        PlainStore& store_;
        Sender sender_;  // before the lock: it sends after the lock has been released
        Hold const hold_;
    };

    explicit PlainStore(ZStanzaDialect_6_0 const& dialect);
    ~PlainStore() override;

    // A path that starts with "etcd://" names a configuration in a cluster, which libzfleet reads
    // and writes.
    /// throws  also a Refusal, if libzfleet is not installed; the exceptions of libzfleet.
    void load(char const* path) override;
    void reload(char const* path) override;
    void store(char const* path) override;

    /// Returns the name of the file; empty if the store has none.
    /// owns    borrowed as long as the store exists.
    /// threads any, without the lock.
    char const* knownName() const { return knownName_.load(std::memory_order_acquire); }

    /// Makes the name of the file known, after a load or store.
    void publishName();

    /// Returns a change, to be recorded after it; empty without an observer.
    /// throws  std::bad_alloc.
    Changes prepare(int kind, char const* stanza, char const* key) const;

    /// Queues changes. Does not throw.
    void record(Changes& changes) { queued_.splice(queued_.end(), changes); }

    // The following are called under an Access. A call that would change nothing does nothing. They
    // throw a Refusal if several stanzas have the name.

    /// Sets the single value of a key. Ignored lines stay if at most one is valid.
    void setText(char const* stanza, char const* key, char const* value, Call::Kind kind);
    /// Returns a value as a boolean; 1 for a key without values in a format in which it is an
    /// option that is switched on.
    int booleanOf(char const* stanza, char const* key, int isRequired) const;

    void setTexts(char const* stanza, char const* key, char const* const* values, int count);
    /// Appends a value.
    /// throws  Refusal if the key exists and only one of its lines is valid.
    void addText(char const* stanza, char const* key, char const* value);

    void removeText(char const* stanza, char const* key, char const* value);
    void removeKey(char const* stanza, char const* key);
    void removeStanza(char const* stanza);
    void addNewStanza(char const* stanza);
    void rename(char const* stanza, char const* newStanza);
    void rename(char const* stanza, char const* key, char const* newKey);

    /// Replaces a comment: of the file, of a stanza or of a key. Null removes it.
    void replaceComment(char const* stanza, char const* key, char const* comment);

    void respell(char const* stanza, char const* key, unsigned index, char const* spelling);

    /// Adds a comment line: to the file, to a stanza or to a key.
    void addComment(char const* stanza, char const* key, char const* comment);

    /// Runs `load`, which replaces the contents, with these attributes of the cache. Restores the
    /// attributes if it fails.
    template <class Load>
    void replaceContents(unsigned long attributes, Load load);

    /// Returns why the store has refused a call; null if the exception that is being handled is no
    /// refusal, or if the reason is not known.
    /// range   only in a `catch (...)` that has not caught a cancellation.
    char const* reasonOf(Call const& call) const;

    ObserverSlot observer;

private:
    struct Remote;

    template <class Action>
    void withRemote(char const* path, Action action);
    unsigned long cacheAttributes() const;
    void requireOneStanza(char const* stanza) const;
    zdialects::ValueRange countingRange(char const* key,
                                        std::vector<char const*> const& values) const;
    std::vector<char const*> plainValues(char const* stanza, char const* key) const;
    std::string commentLines(char const* comment);
    char const* findReason(Call const& call) const;
    char const* findDialectReason(Call const& call) const;
    bool hasOnly(char const* stanza, char const* key, char const* const* values, int count,
                 Call::Kind kind) const;
    void appendText(char const* stanza, char const* key, char const* value);

    zdialects::Switches const switches_;
    bool const isStanzaFile_;  // the dialect is "stanza"
    std::atomic<char const*> knownName_{""};
    unsigned depth_ = 0;              // of Access; guarded by the store's lock
    Changes queued_;                  // guarded by the store's lock
    std::unique_ptr<Remote> remote_;  // guarded by the store's lock; null: no cluster is used
};

/// Returns whether `path` names a configuration in a cluster.
/// range   may be null.
bool isRemote(char const* path);

/// Returns a number that identifies the calling thread; no later thread has the same.
uint64_t threadNumber();

// The options of new stores.
struct Options {
    unsigned long attributes;  // of the cache
    int64_t waitMilliseconds;  // for a file that another process uses
};

/// Returns the options of the stores that the calling thread opens.
Options& threadOptions();

}  // namespace zhandles

// An open file. The magic words are volatile, so that the compiler does not optimise away clearing
// them in the destructor.
struct ZPROP_handle {
    ZPROP_handle(ZPROPOpenMode openMode, std::shared_ptr<zhandles::PlainStore> openStore);
    ZPROP_handle(ZPROP_handle const&) = delete;
    ZPROP_handle& operator=(ZPROP_handle const&) = delete;
    virtual ~ZPROP_handle();

    bool intact() const { return first == kZPropFirstMagic && second == kZPropSecondMagic; }

    uint32_t volatile first = kZPropFirstMagic;
    int32_t volatile mode;
    uint32_t volatile second = kZPropSecondMagic;
    std::shared_ptr<zhandles::PlainStore> const store;
    std::atomic<unsigned long> attributes;  // of the cache, from the next load on
    std::atomic<int64_t> waitMilliseconds;  // for a file that another process uses
};

// A stanza of an open file. No function of the interface creates one.
struct ZPROP_stz_handle : ZPROP_handle {
    using ZPROP_handle::ZPROP_handle;
    ~ZPROP_stz_handle() override;
};

enum ZPROPIterType : int32_t { zpropOverKeys = 1, zpropOverValues = 2, zpropOverStanzas = 3 };

// An open iterator. It shares the store, so that the file handle may be closed first.
struct ZPROP_iter_handle {
    ZPROP_iter_handle(ZPROPIterType iterType, std::shared_ptr<zhandles::PlainStore> openStore,
                      char const* stanzaName = "", char const* keyName = "");
    ZPROP_iter_handle(ZPROP_iter_handle const&) = delete;
    ZPROP_iter_handle& operator=(ZPROP_iter_handle const&) = delete;
    virtual ~ZPROP_iter_handle() noexcept(false);

    bool intact() const { return first == kZPropFirstMagic && second == kZPropSecondMagic; }

    int32_t volatile type;
    uint32_t volatile first = kZPropFirstMagic;
    uint32_t volatile second = kZPropSecondMagic;
    std::shared_ptr<zhandles::PlainStore> const store;
    std::string const stanza;
    std::string const key;
    uint64_t const creator;  // the thread that holds the store's lock through `access`
    zhandles::PlainStore::Access const access;
};

struct ZPROP_stz_iter_handle : ZPROP_iter_handle {
    ZPROP_stz_iter_handle(std::shared_ptr<zhandles::PlainStore> const& openStore,
                          char const* stanzaName);
    ~ZPROP_stz_iter_handle() override;

    ZStanzaIterator_6_0 entries;
};

struct ZPROP_stzvalue_iter_handle : ZPROP_iter_handle {
    ZPROP_stzvalue_iter_handle(std::shared_ptr<zhandles::PlainStore> const& openStore,
                               char const* stanzaName, char const* keyName);
    ~ZPROP_stzvalue_iter_handle() override;

    ZStanzaValueIterator_6_0 values;
    std::string current;  // the current value
};

struct ZPROP_stanzas_iter_handle : ZPROP_iter_handle {
    explicit ZPROP_stanzas_iter_handle(std::shared_ptr<zhandles::PlainStore> const& openStore);
    ~ZPROP_stanzas_iter_handle() override;

    std::unique_ptr<ZArrayList_6_0> const names;
    unsigned next = 0;  // the index of the next name
};

namespace zhandles {

using Files = HandleTable<ZPROP_handle>;
using Iterators = HandleTable<ZPROP_iter_handle>;
using Store = PlainStore;

/// The process's open files and iterators.
extern Files openFiles;
extern Iterators openIterators;

// Each returns the code for the exception that is being handled in a function of its kind.
using CodeOfFailure = int();
int readCode();            // reads values
int readTextCode();        // reads the text that a store writes
int changeCode();          // changes values
int changeExistingCode();  // changes something that must exist
int iteratorChangeCode();  // changes values by an iterator
int openStoreCode();       // loads or stores a file

inline int missingArgument(char const* file = nullptr)
{
    return recordFailure(zpropBadHandle, kMissingArgument, {nullptr, nullptr, file});
}

template <class Result>
requires std::is_arithmetic_v<Result> || std::is_null_pointer_v<Result> Result
missingArgument(Result result)
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
int codeOf(CodeOfFailure* codeOfFailure, Call call, Store const* store, Action action)
{
    try {
        action();
        return zpropOk;
    } catch (Refusal const& refusal) {
        if (store != nullptr && call.file == nullptr)
            call.file = store->knownName();
        return recordFailure(refusal.code, refusal.reason, call);
    } catch (...) {
        if (zreporting::caughtCancellation())
            throw;
        if (store != nullptr) {
            call.reason = store->reasonOf(call);
            if (call.file == nullptr)
                call.file = store->knownName();
        }
        std::string const explained = explainedLine(call);
        if (!explained.empty())
            call.reason = explained.c_str();
        return recordException(codeOfFailure(), call);
    }
}

// Runs `action` on an open file.
template <class Action>
int withHandle(ZPROP_handle* handle, Call const& call, CodeOfFailure* codeOfFailure, Action action)
{
    Files::Pin const file = openFiles.pin(handle);
    if (!file || !file->intact())
        return badHandle();
    return codeOf(codeOfFailure, call, file->store.get(), [&] { action(*file); });
}

// Runs `action` on the store of an open file, under its lock.
template <class Action>
int withStore(ZPROP_handle* handle, Call const& call, CodeOfFailure* codeOfFailure, Action action)
{
    return withHandle(handle, call, codeOfFailure, [&](ZPROP_handle& file) {
        Store::Access const access(*file.store);
        action(*file.store);
    });
}

template <class Action>
int changeFile(ZPROP_handle* handle, Call const& call, Action action)
{
    return withStore(handle, call, changeCode, action);
}

/// Stores the dialect of a name or, if it is null, of the file's name, in `dialect`. Returns the
/// code, after recording the failure.
int findDialect(char const* name, char const* file, ZStanzaDialect_6_0& dialect);

/// Opens `file`, or a store without a file if it is null, and stores its handle. Returns the code.
int openFile(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode,
             ZStanzaDialect_6_0 const& dialect);

// Stores the code and returns the result of `read`, or 0 if it fails.
template <class Read>
std::invoke_result_t<Read, Store&> readFile(ZPROP_handle* handle, Call const& call, int* code,
                                            Read read, CodeOfFailure* codeOfFailure = readCode)
{
    std::invoke_result_t<Read, Store&> result = {};
    *code = withHandle(handle, call, codeOfFailure,
                       [&](ZPROP_handle& file) { result = read(*file.store); });
    return result;
}

/// Returns a copy of `text` for the caller; null if it is empty.
/// throws  std::bad_alloc.
char* returnedString(char const* text, size_t length);

/// Calls `action`, again and again while another process uses the file and `milliseconds` have not
/// passed.
/// throws  the last exception of `action`.
void waitWhileBusy(int64_t milliseconds, void (*action)(void*), void* context);

template <class Action>
void waitWhileBusy(int64_t milliseconds, Action action)
{
    waitWhileBusy(
        milliseconds, [](void* context) { (*static_cast<Action*>(context))(); }, &action);
}

template <class Load>
void PlainStore::replaceContents(unsigned long attributes, Load load)
{
    Changes loaded = prepare(zpropLoaded, "", "");
    unsigned long const before = cacheAttributes();
    setAttributes(attributes, nullptr);
    try {
        load();
    } catch (...) {
        setAttributes(before, nullptr);
        throw;
    }
    record(loaded);
}

}  // namespace zhandles
