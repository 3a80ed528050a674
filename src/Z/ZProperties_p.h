// ZProperties_p: what the sources of the configuration store share: its hidden state, the notices
// that wait, and changes that happen as a whole or not at all.
//
// Subsystem: properties.  Stands on: ZProperties, ZPropertiesImpl, ZJournaledFile, ZArrayList,
// ZLCString.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ZArrayList.h"
#include "ZLCString.h"
#include "ZProperties.h"
#include "ZPropertiesImpl.h"
#include "store/journaled_file.h"

// One change that is to be told.
struct __attribute__((visibility("hidden"))) ZProperties_6_0::Notice : ZPropertyChanged_6_0 {
    using ZPropertyChanged_6_0::ZPropertyChanged_6_0;

    Notice* next = nullptr;
};

// Guarded by the store's lock.
// Hidden here, because in signatures like these the patterns of exports.map see public names.
struct __attribute__((visibility("hidden"))) ZProperties_6_0::Rep {
    // Notices in the order in which they came.
    class Queue {
    public:
        Queue() = default;
        Queue(Queue const&) = delete;
        Queue& operator=(Queue const&) = delete;
        ~Queue();

        void push(std::unique_ptr<Notice> notice);
        std::unique_ptr<Notice> pop();  // not from an empty queue
        bool isEmpty() const { return first_ == nullptr; }
        void takeFrom(Queue& other);  // into an empty queue

    private:
        Notice* first_ = nullptr;
        Notice** end_ = &first_;
    };

    // Strings that are to become members of a list.
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

        // The text of one that was added for the local codeset.
        char const* text(unsigned index) const
        {
            return static_cast<ZLCString_6_0*>(list_.get(index))->getChars();
        }

        void dropFirst();
        template <class IsOne>
        void dropThose(IsOne isOne);  // of which `isOne(text)` is true

        // Makes room for all of them behind the first `members` of an owning list, which stays as
        // it is. Then moveTo() puts them behind its last one, and does not raise.
        void makeRoom(ZArrayList_6_0& target, unsigned members) const;
        void moveTo(ZArrayList_6_0& target);

    private:
        ZArrayList_6_0 list_;
    };

    explicit Rep(ZPCache_6_0& cache) { setCache(cache); }

    /// Looks at what kind of cache the store has.
    void setCache(ZPCache_6_0& cache);

    /// Returns a number that changes whenever a list that the store's cache handed out went away.
    static unsigned long generation(ZProperties_6_0 const& store)
    {
        return store.cache_->generation() + store.rep_->replaced;
    }

    /// Returns a notice, made before the change so that the change is the last thing to happen.
    static std::unique_ptr<Notice> makeNotice(ZPropertyChanged_6_0::PropertyChangeType type,
                                              char const* category, char const* key);

    /// Sets the modified flag and queues the notice, unless the store loads.
    static void changed(ZProperties_6_0& store, std::unique_ptr<Notice> notice);

    /// Sends queued notices.
    /// throws  what an observer raises first, unless an exception is on its way already; the other
    ///         notices are sent all the same.
    static void send(ZProperties_6_0& store, Queue& queue);

    /// Stores the last value of (category, key) and returns true; false when there is none.
    static bool lastValue(ZProperties_6_0 const& store, char const* category, char const* key,
                          ZPCategoryBasedCache_6_0::Text& value);

    /// Returns a copy of the store's cache to be changed; null when a cache of somebody else's
    /// class does not clone itself: then it is changed as it is.
    static std::unique_ptr<ZPCache_6_0> copyOf(ZProperties_6_0 const& store);

    // Restores the contents of a cache that is changed itself because it cannot be copied, unless
    // done() is called. A class keeps what it has besides the contents.
    class Undo {
    public:
        explicit Undo(ZPCache_6_0& cache);
        Undo(Undo const&) = delete;
        Undo& operator=(Undo const&) = delete;
        ~Undo();
        void done() { isDone_ = true; }

    private:
        ZPCache_6_0& cache_;
        std::unique_ptr<ZPCategoryBasedCache_6_0> before_;
        std::string const companionFile_;  // restored if `before_` is null
        bool isDone_ = false;
    };

    /// Makes the store's contents those of `copy`, and `copy` what the store had. Never fails.
    static void exchange(ZProperties_6_0& store, std::unique_ptr<ZPCache_6_0>& copy);

    /// Returns the path that is meant: `path`, or the file name for a null or empty one. Makes room
    /// for it as the file name, so that noteFile() cannot fail.
    /// throws  ZInvalidParameterException_6_0 when there is neither.
    static char const* choosePath(ZProperties_6_0& store, char const* path);

    /// Notes the path of a file that was loaded or stored if it is the first, and the state of the
    /// file if it is the one of the store's name, or of getPropertiesFor().
    static void noteFile(ZProperties_6_0& store, char const* path, ZJournaledFile const& file);

    /// Sets the modified flag, which isCurrent() reads without the store's lock.
    static void setModified(ZProperties_6_0& store, int modified)
    {
        std::atomic_ref<int>(store.modified_).store(modified, std::memory_order_relaxed);
    }

    /// Returns whether the store need not read the file at `sharedPath` again: it has unsaved
    /// changes, or the file is missing or as it was when it was last loaded or stored.
    /// threads any, without the store's lock. While another thread loads or stores the file, the
    ///         file may count as changed.
    static bool isCurrent(ZProperties_6_0& store);

    /// Returns the path in the entry that names the companion file; empty if there is none.
    static std::string companionEntry(ZProperties_6_0 const& store);

    /// Returns the path of the companion file that the contents name; empty when they name none.
    static std::string companionOf(ZProperties_6_0 const& store);

    /// Makes `edited` a copy of the cache that names `path`, or with null none, as its companion,
    /// in its entry too, and returns it. A cache that cannot be copied is changed itself, and
    /// `undo` made.
    static ZPCache_6_0* nameCompanion(ZProperties_6_0& store, char const* path,
                                      std::unique_ptr<ZPCache_6_0>& edited,
                                      std::optional<Undo>& undo);

    /// Returns the companion that goes with the last obfuscated value when `file` is stored: the
    /// file's own one, if the contents or the old text name it, or if the store has used it before.
    /// Empty if there is none, or if it is not certainly the file's.
    static std::string companionToRemove(ZProperties_6_0 const& store, ZJournaledFile const& file,
                                         std::string const& named);

    /// Returns whether the text of `file` names the companion that belongs to its path.
    static bool namesOwnCompanion(ZJournaledFile const& file);

    /// Returns whether a value has no UTF-8 form: it reads as an empty text then.
    static bool lacksUTF8(char const* value);

    /// Returns whether a value of (category, key) has no UTF-8 form.
    static bool hasValueWithoutUTF8(ZProperties_6_0 const& store, char const* category,
                                    char const* key);

    /// Makes every line of `comment` a comment line and hands them to `add(cache, text)`, in one
    /// text or line by line: all or none.
    template <class Add>
    static void addComment(ZProperties_6_0& store, char const* comment, Add add);

    /// Returns what the file at `sharedPath` was when it was last loaded or stored.
    /// threads any, without the store's lock.
    ZJournaledFile::Stamp sharedStamp()
    {
        std::lock_guard<std::mutex> const guard(stampMutex_);
        return sharedStamp_;
    }

    // The companion files that the store has read or written.
    class Companions {
    public:
        struct Companion {
            std::string path;
            bool isHeld;  // its values are in the contents: it is not read again
        };

        bool isHeld(std::string const& path) const;
        void hold(std::string const& path);
        void remove(std::string const& path);
        void releaseAll();  // the contents have no obfuscated values any more
        std::vector<Companion> const& list() const { return list_; }
        void swap(Companions& other) { list_.swap(other.list_); }

    private:
        static constexpr size_t kMaxCount = 64;  // a store may be stored under any number of names

        std::vector<Companion> list_;  // the one used last is the last
    };

    int depth = 0;             // Holds of the thread that has the lock
    bool isReplacing = false;  // see setReplacing()
    Companions companions;
    std::string sharedPath;  // by which getPropertiesFor() finds the store; set before it is shared
    Queue queued;
    ZPCategoryBasedCache_6_0 const* direct = nullptr;  // the cache, when it may be looked into
    ZSCFData_6_0* stanzas = nullptr;  // the cache, when it is the library's own for stanza files
    bool isStanzaFile = false;        // the cache is a ZSCFData_6_0 or derived from it
    unsigned long replaced = 0;       // grows when another cache takes the cache's place

private:
    static ZArrayList_6_0* commentTexts(ZProperties_6_0& store, char const* comment);

    std::mutex stampMutex_;              // locked for a moment, as the last one
    ZJournaledFile::Stamp sharedStamp_;  // guarded by stampMutex_
};

template <class IsOne>
void ZProperties_6_0::Rep::Strings::dropThose(IsOne isOne)
{
    for (unsigned i = 0; i < list_.size(); ++i) {
        if (isOne(text(i))) {
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
    std::unique_ptr<ZPCache_6_0> copy = texts->size() > 1 ? copyOf(store) : nullptr;
    if (copy != nullptr) {
        addAll(*copy);
        exchange(store, copy);
    } else {
        addAll(*store.cache_);
    }
    setModified(store, 1);
}
