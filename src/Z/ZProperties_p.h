// ZProperties_p: the sites of reports and the hidden state of the configuration store: queued
// notices, strings to add to a list, all-or-nothing changes of the cache, and companion files.
//
// Subsystem: properties.  Stands on: ZProperties, ZPropertiesImpl, zstore::JournaledFile,
// ZArrayList, ZBuffer, ZLCString, ZException.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ZArrayList.h"
#include "ZBuffer.h"
#include "ZException.h"
#include "ZLCString.h"
#include "ZProperties.h"
#include "ZPropertiesImpl.h"
#include "lines/kept_text.h"
#include "stanza/reserved_entry.h"
#include "store/journaled_file.h"
#include "store/translate_errors.h"

class ZDialectData_6_0;

namespace zproperties {

inline constexpr char kSource[] = "src/Z/ZProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInConstructor = 60,
    raiseInCopy = 70,
    raiseForNames = 75,
    raiseForDefault = 85,
    raiseForMissing = 95,
    raiseForNumber = 160,
    raiseForTruth = 185,
    raiseInGetValues = 210,
    reportInSend = 235,
    reportInHold = 247,
    raiseForPath = 260,
    raiseInLoad = 290,
    raiseInReload = 340,
    raiseInStore = 400,
    raiseForNewText = 450,
    raiseForConversion = 465,
    raiseForComment = 480,
    raiseInCheckAccess = 510,
    raiseInCheckFileAccess = 540,
    raiseInGetPropertiesFor = 600,
    raiseInFindProblems = 640,
    raiseInLoadText = 660,
    raiseInLineOf = 680,
    raiseInVisit = 700,
    raiseInSnapshot = 720
};

using zstanza::kReservedCategory;
using zstanza::kReservedKey;

using Text = ZPCategoryBasedCache_6_0::Text;

inline bool isEmpty(char const* text)
{
    return text == nullptr || *text == '\0';
}

inline void requireName(char const* category)
{
    if (isEmpty(category))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNames);
}

inline void requireNames(char const* category, char const* key)
{
    if (isEmpty(category) || isEmpty(key))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNames);
}

// Runs `body` and translates its errors into exceptions of the library.
template <class Body>
void translateErrors(RaiseSite site, Body body)
{
    auto const raise = [site](zstore::JournaledFile::IoError const& failure) {
        ZPropertiesIOException_6_0(failure.file.c_str(), failure.callName(), failure.error)
            .throwException(kSource, site);
    };
    zstore::translateErrors(kSource, site, raise, body);
}

}  // namespace zproperties

// A queued notice of a change.
struct __attribute__((visibility("hidden"))) ZProperties_6_0::Notice : ZPropertyChanged_6_0 {
    using ZPropertyChanged_6_0::ZPropertyChanged_6_0;

    Notice* next = nullptr;
};

// Guarded by the store's lock. The attribute is necessary because the patterns of exports.map would
// match signatures with these types.
struct __attribute__((visibility("hidden"))) ZProperties_6_0::Rep {
    // A FIFO queue of notices.
    class Queue {
    public:
        Queue() = default;
        Queue(Queue const&) = delete;
        Queue& operator=(Queue const&) = delete;
        ~Queue();

        void push(std::unique_ptr<Notice> notice);
        std::unique_ptr<Notice> pop();  // requires a queue that is not empty
        bool isEmpty() const { return first_ == nullptr; }
        void moveFrom(Queue& other);  // requires an empty queue

    private:
        Notice* first_ = nullptr;
        Notice** end_ = &first_;
    };

    // Strings that will be elements of a list.
    class Strings {
    public:
        Strings() : list_(4, 0) {}
        Strings(Strings const&) = delete;
        Strings& operator=(Strings const&) = delete;
        ~Strings()
        {
            for (unsigned i = 0; i < list_.size(); ++i)
                delete list_.get(i);
        }

        void add(char const* text, ZPropertyStringType type);
        unsigned count() const { return list_.size(); }

        // Returns the string at `index`, which was added with zPropLocalStrings.
        char const* text(unsigned index) const
        {
            return static_cast<ZLCString_6_0*>(list_.get(index))->getChars();
        }

        void removeFirst();
        template <class Predicate>
        void removeIf(Predicate predicate);  // the strings for which `predicate(text)` is true

        // Reserves capacity in an owning list for `existing` elements and all these strings, so
        // that moveTo(), which appends them, does not throw.
        void reserveIn(ZArrayList_6_0& target, unsigned existing) const;
        void moveTo(ZArrayList_6_0& target);

    private:
        ZArrayList_6_0 list_;
    };

    explicit Rep(ZPCache_6_0& cache) { setCache(cache); }

    /// Determines which kind of cache the store has.
    void setCache(ZPCache_6_0& cache);

    /// Returns a number that changes whenever a list that the store's cache returned was destroyed.
    static unsigned long generation(ZProperties_6_0 const& store)
    {
        return store.cache_->generation() + store.rep_->replaced;
    }

    // Return whether a file of the store can hold a name or value. The cache decides, unless it is
    // of a caller's class, which may lack these functions: then the rules of stanza files apply.
    bool isValidCategory(char const* category) const
    {
        return (direct != nullptr ? direct->validCategory(category)
                                  : ZPCategoryBasedCache_6_0::validateCategory(category)) != 0;
    }
    bool isValidKey(char const* category, char const* key) const
    {
        return (direct != nullptr ? direct->validKey(category, key)
                                  : ZPCategoryBasedCache_6_0::validateKey(category, key)) != 0;
    }
    bool isValidValue(char const* key, char const* value) const
    {
        return (direct != nullptr ? direct->validValue(key, value)
                                  : ZPCategoryBasedCache_6_0::validateValue(key, value)) != 0;
    }

    /// Checks the name of a stanza that will be changed: several stanzas must not have it.
    void requireUnambiguous(char const* category) const;

    /// Check a key or a value that will be set.
    void requireValidKey(char const* category, char const* key) const
    {
        if (!isValidKey(category, key))
            ZInvalidParameterException_6_0().throwException(zproperties::kSource,
                                                            zproperties::raiseForNewText);
    }
    void requireValidValue(char const* key, char const* value) const
    {
        if (!canBeSet(key, value))
            ZInvalidParameterException_6_0().throwException(zproperties::kSource,
                                                            zproperties::raiseForNewText);
    }

    /// Requires that a new line of the key can have the value, or, in a dialect, that the key has
    /// the value already: its line stays then.
    /// throws  ZInvalidParameterException_6_0.
    static void requireValidOrPresentValue(ZProperties_6_0 const& store, char const* category,
                                           char const* key, char const* value);

    // In a stanza file an empty value leaves the key without values; its line is "key =".
    bool canBeSet(char const* key, char const* value) const
    {
        return (dialect == nullptr && zproperties::isEmpty(value)) || isValidValue(key, value);
    }

    /// Creates a notice. Call it before the change, so that the change is the last step that can
    /// fail.
    static std::unique_ptr<Notice> makeNotice(ZPropertyChanged_6_0::PropertyChangeType type,
                                              char const* category, char const* key);

    /// Sets the modified flag and, except during load(), queues the notice.
    static void recordChange(ZProperties_6_0& store, std::unique_ptr<Notice> notice);

    /// Sends all queued notices.
    /// throws  the first exception of an observer, after the last notice. During stack unwinding
    ///         it is reported instead, as are all further exceptions.
    static void sendNotices(ZProperties_6_0& store, Queue& queue);

    /// Returns the last value of (category, key), or the value that counts in a dialect; none if
    /// there is no value.
    static std::optional<ZPCategoryBasedCache_6_0::Text> lastValue(ZProperties_6_0 const& store,
                                                                   char const* category,
                                                                   char const* key);

    /// The same in the library's own cache `direct`, which is `dialect` unless that is null.
    static std::optional<ZPCategoryBasedCache_6_0::Text> lastValue(
        ZPCategoryBasedCache_6_0 const& direct, ZDialectData_6_0 const* dialect,
        char const* category, char const* key);

    // A value that was looked up, if any, and its names.
    struct Found {
        std::optional<ZPCategoryBasedCache_6_0::Text> value;
        ZLCString_6_0 const& file;
        char const* category;
        char const* key;

        void requireValue(int required) const;  // throws if a required value is missing
    };

    /// Return a value as the store's functions of these names do.
    static void getValue(Found const& found, ZAbstractMutableString_6_0& out, int required,
                         char const* defaultValue);
    static unsigned int getIntegerValue(Found const& found, int required,
                                        unsigned int defaultValue);
    static int getBooleanValue(Found const& found, int required, int defaultValue);

    /// Checks the parameters of these functions.
    static void requireParameters(char const* category, char const* key, int required,
                                  bool hasDefault);

    /// Passes all contents of a library cache to `visitor`, as ZProperties_6_0::visit().
    static int visit(ZPCategoryBasedCache_6_0 const& direct, ZPropertiesVisitor_6_0 visitor,
                     void* context);

    // Contents that snapshots share. Nothing changes them.
    struct Frozen {
        std::unique_ptr<ZPCategoryBasedCache_6_0 const> cache;
        ZDialectData_6_0 const* dialect;  // `cache`, if it is of a dialect
        ZLCString_6_0 file;
    };

    /// Returns the contents of the store, shared with the previous call unless they have changed.
    /// throws  ZOutOfMemoryException_6_0.
    static std::shared_ptr<Frozen const> freeze(ZProperties_6_0 const& store);

    /// Returns a copy of the store's cache; null if it is of a class outside the library that does
    /// not clone itself. Then the caller has to change the cache itself.
    static std::unique_ptr<ZPCache_6_0> copyCache(ZProperties_6_0 const& store);

    // Restores the contents of a cache in the destructor, unless dismiss() was called. For caches
    // that cannot be copied. Restores no fields of derived classes.
    class CacheRestorer {
    public:
        explicit CacheRestorer(ZPCache_6_0& cache);
        CacheRestorer(CacheRestorer const&) = delete;
        CacheRestorer& operator=(CacheRestorer const&) = delete;
        ~CacheRestorer();
        void dismiss() { isDismissed_ = true; }

        /// Returns whether all contents are restored, not only the name of the companion.
        bool canRestore() const { return before_ != nullptr; }

    private:
        ZPCache_6_0& cache_;
        std::unique_ptr<ZPCategoryBasedCache_6_0> before_;
        std::string const companionFile_;  // restored if `before_` is null
        bool isDismissed_ = false;
    };

    /// Exchanges the contents of the store with those in `copy`. Does not throw.
    static void exchange(ZProperties_6_0& store, std::unique_ptr<ZPCache_6_0>& copy);

    /// Returns `path`, or the file name if `path` is null or empty. Reserves memory for the path as
    /// the file name, so that recordFile() does not throw.
    /// throws  ZInvalidParameterException_6_0 if there is neither a path nor a file name.
    static char const* choosePath(ZProperties_6_0& store, char const* path);

    /// Loads the file at `path`. Returns false, and changes nothing, if another program replaced
    /// the file while it was read: its text and its companion may be of different generations.
    /// throws  as ZProperties_6_0::load().
    static bool loadOnce(ZProperties_6_0& store, char const* path);

    /// Records that `file` was loaded or stored by `path`: the first path becomes the file name,
    /// and the state of the file is recorded if fileName() or `sharedPath` leads to it.
    static void recordFile(ZProperties_6_0& store, char const* path,
                           zstore::JournaledFile const& file);

    /// Sets the modified flag, which isCurrent() reads without the store's lock.
    static void setModified(ZProperties_6_0& store, int modified)
    {
        std::atomic_ref<int>(store.modified_).store(modified, std::memory_order_relaxed);
    }

    /// Returns whether the file at `sharedPath` need not be reloaded: the store has unsaved
    /// changes, the file does not exist, or it has not changed since it was last loaded or stored.
    /// threads any, without the store's lock. While another thread loads or stores the file, the
    ///         file may appear changed.
    static bool isCurrent(ZProperties_6_0& store);

    /// Returns the value of the entry that names the companion file; empty if it does not exist.
    static std::string companionEntry(ZProperties_6_0 const& store);

    /// Returns the path of the companion file that the contents name; empty if they name no file.
    static std::string companionPath(ZProperties_6_0 const& store);

    /// Stores in `edited` a copy of the cache in which `path` is the companion and the value of the
    /// entry that names it, and returns the copy. If `path` is null, the copy has neither. A cache
    /// that cannot be copied is changed itself, after constructing `restorer`.
    static ZPCache_6_0* setCompanion(ZProperties_6_0& store, char const* path,
                                     std::unique_ptr<ZPCache_6_0>& edited,
                                     std::optional<CacheRestorer>& restorer);

    /// Returns the companion to remove when `file` is stored without obfuscated values: the file's
    /// own companion, if the contents or the old text name it, or if the store has used it before.
    /// Empty if there is no such file, or if it may belong to another file.
    static std::string companionToRemove(ZProperties_6_0 const& store,
                                         zstore::JournaledFile const& file,
                                         std::string const& named);

    /// Returns whether `companion` belongs to another existing file: its path is that file's and
    /// ".obf".
    static bool belongsToAnotherFile(std::string const& companion, char const* path);

    /// Returns whether the text of `file` names the companion that belongs to its path.
    static bool namesOwnCompanion(zstore::JournaledFile const& file);

    /// Returns whether a value has no UTF-8 form and is therefore read as an empty UTF-8 string.
    static bool lacksUTF8(char const* value);

    /// Returns whether a value of (category, key) has no UTF-8 form.
    static bool hasValueWithoutUTF8(ZProperties_6_0 const& store, char const* category,
                                    char const* key);

    /// Turns every line of `comment` into a comment line and passes them to `add(cache, text)`, in
    /// a single string or line by line. If `add` throws, no line is added.
    template <class Add>
    static void addComment(ZProperties_6_0& store, char const* comment, Add add);

    /// Returns the state of the file at `sharedPath` when it was last loaded or stored.
    /// threads any, without the store's lock.
    zstore::JournaledFile::Stamp sharedStamp()
    {
        std::lock_guard<std::mutex> const guard(stampMutex_);
        return sharedStamp_;
    }

    // The companion files that the store has read or written.
    class Companions {
    public:
        struct Companion {
            std::string path;
            bool isLoaded;  // the store has its values and need not read it again
        };

        bool isLoaded(std::string const& path) const;
        void addLoaded(std::string const& path);
        void remove(std::string const& path);
        void setAllUnloaded();  // the contents no longer have obfuscated values
        std::vector<Companion> const& list() const { return list_; }
        void swap(Companions& other) { list_.swap(other.list_); }

    private:
        static constexpr size_t kMaxCount = 64;  // a store may be stored under any number of names

        std::vector<Companion> list_;  // the most recently used companion is the last
    };

    // The files that a store has read or written while it kept lines, with their text of that time.
    class KnownFiles {
    public:
        struct File {
            std::string path;  // absolute
            zlines::SharedText text;
            std::string companion;                       // empty: none
            std::shared_ptr<std::string const> secrets;  // the contents of the companion
        };

        /// Returns the file that `path` names; null if it is not known. `stamp` is its state.
        File const* find(char const* path, zstore::JournaledFile::Stamp const& stamp) const;

        /// Records that `path` was read or written. If `text` is null, the file is no longer known.
        void record(char const* path, zstore::JournaledFile::Stamp const& stamp,
                    zlines::SharedText text, std::string const& companion,
                    ZBuffer_6_0 const& secrets);
        void swap(KnownFiles& other) { list_.swap(other.list_); }

    private:
        static constexpr size_t kMaxCount = 4;  // each keeps its text

        std::vector<File> list_;  // the most recently used file is the last
    };

    // The state of a store() until the files are written.
    struct StoreOperation {
        explicit StoreOperation(ZProperties_6_0& store)
            : source(store.cache_), companions(store.rep_->companions), known(store.rep_->known)
        {
        }

        ZPCache_6_0* source;                      // the cache to write
        std::unique_ptr<ZPCache_6_0> edited;      // the contents with another companion entry
        std::optional<CacheRestorer> restorer;    // if the cache itself had to be edited
        ZBuffer_6_0 packed;                       // the contents of the companion
        zstore::JournaledFile::Companion change;  // refers to `packed`
        Companions companions;                    // the companions that the store knows afterwards
        KnownFiles known;                         // the files that it knows afterwards
    };

    /// Compresses the obfuscated values for the companion `path`, which the contents then name.
    static void packCompanion(ZProperties_6_0& store, std::string const& path,
                              StoreOperation& operation);

    /// Returns the contents with the changes of the store, for a file that another program has
    /// changed since its lines were read; null if it has not, or if the store keeps no lines.
    /// throws  IoError (path, "store()", ESTALE) if the file has changed in the same values.
    static std::unique_ptr<ZPCache_6_0> mergeWith(ZProperties_6_0& store, char const* path,
                                                  zstore::JournaledFile& file);

    /// Parses `text` into a cache of the store's class. A cache of a class outside the library
    /// reads it from a stream.
    static void parse(ZProperties_6_0 const& store, ZPCache_6_0& cache, char const* path,
                      std::string_view text);

    /// Renders the text of the contents and writes it to the file, unless the file has it. Records
    /// the text in `operation`.
    static void write(ZProperties_6_0& store, char const* path, zstore::JournaledFile& file,
                      StoreOperation& operation);

    /// Decides whether the companion is written, removed or unchanged. `named` is the companion
    /// that the contents name, `path` the companion to write.
    static void chooseCompanionChange(ZProperties_6_0& store, zstore::JournaledFile const& file,
                                      std::string const& named, std::string const& path,
                                      StoreOperation& operation);

    int depth = 0;             // number of Holds of the thread that has the lock
    bool isReplacing = false;  // see setReplacing()
    KnownFiles known;
    Companions companions;
    std::string sharedPath;  // the path in the factory's map; set before the store is shared
    Queue queued;
    ZPCategoryBasedCache_6_0 const* direct = nullptr;  // the cache, if it permits direct access
    ZSCFData_6_0* stanzas = nullptr;      // the cache, if it is the library's own for stanza files
    ZDialectData_6_0* dialect = nullptr;  // the cache, if it is of a dialect
    bool isStanzaFile = false;            // the cache is a ZSCFData_6_0 or derived from it
    bool hasCompanion = false;  // such a cache, and not of a dialect: the text names the companion
    std::shared_ptr<Frozen const> frozen;  // of the last snapshot, or null
    unsigned long frozenAt = 0;            // the number of changes of the cache at that time
    unsigned long frozenGeneration = 0;
    unsigned long replaced = 0;  // grows whenever another cache replaces the cache

private:
    static ZArrayList_6_0* commentTexts(ZProperties_6_0& store, char const* comment);

    std::mutex stampMutex_;  // innermost: no other lock is acquired while it is held
    zstore::JournaledFile::Stamp sharedStamp_;  // guarded by stampMutex_
};

template <class Predicate>
void ZProperties_6_0::Rep::Strings::removeIf(Predicate predicate)
{
    for (unsigned i = 0; i < list_.size(); ++i) {
        if (predicate(text(i))) {
            delete list_.get(i);
            list_.set(i, nullptr);
        }
    }
    unsigned kept = 0;
    for (unsigned i = 0; i < list_.size(); ++i)
        if (list_.get(i) != nullptr)
            list_.set(kept++, list_.get(i));
    while (list_.size() > kept)
        list_.remove(list_.size() - 1);
}

template <class Add>
void ZProperties_6_0::Rep::addComment(ZProperties_6_0& store, char const* comment, Add add)
{
    std::unique_ptr<ZArrayList_6_0> const texts(commentTexts(store, comment));
    auto const addAll = [&](ZPCache_6_0& cache) {
        for (unsigned i = 0; i < texts->size(); ++i)
            add(cache, static_cast<ZLCString_6_0*>(texts->get(i))->getChars());
    };
    std::unique_ptr<ZPCache_6_0> copy = texts->size() > 1 ? copyCache(store) : nullptr;
    if (copy != nullptr) {
        addAll(*copy);
        exchange(store, copy);
    } else {
        addAll(*store.cache_);
    }
    setModified(store, 1);
}
