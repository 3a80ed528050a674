// ZProperties: the configuration store. It keeps values in a cache, loads and stores files under
// locks between processes, converts values to types and notifies observers of changes.
//
// Subsystem: properties.  Stands on: ZPropertiesInterface, ZPropertyChanged, ZPropertiesImpl,
// ZStanzaDialect, ZDialectData, ZObserver, ZLock, ZLCString, ZUTF8String, ZArrayList, ZBuffer,
// ZException.
//
// Ownership: a store owns its cache and borrows its observers. Names and values are copied in.
// Threads: every operation is safe from every thread and runs under the store's own recursive lock.
// The changing thread notifies the observers after it has released the lock completely. While one
// of its iterators or outer calls still holds the lock, the notices wait in a queue.
// Processes: load() takes a shared and store() an exclusive record lock on the whole file; neither
// waits for another process. Stores of one process that use the same file wait for each other.
// Durability: after a crash the file has the old contents or the new ones; docs/durability.md has
// the limits.
#pragma once

#include <stddef.h>

#include "ZLCString.h"
#include "ZLock.h"
#include "ZObserver.h"
#include "ZPropertiesInterface.h"
#include "ZPropertyChanged.h"

class ZAbstractPropertyValuesIterator_6_0;
class ZArrayList_6_0;
class ZLCConstString_6_0;
class ZPCache_6_0;
class ZPCategoryBasedCache_6_0;
class ZPropertiesIterator_6_0;
class ZUTF8ConstString_6_0;
class ZUTF8String_6_0;

/// A stanza, or a key with one of its values, as visit() passes it.
/// owns    the strings are borrowed; a zero byte follows each.
struct ZPropertiesEntry_6_0 {
    char const* category;
    char const* key;    // null: the entry is the stanza itself
    char const* value;  // null: the key has no value
    size_t categoryLength;
    size_t keyLength;
    size_t valueLength;
    int isObfuscated;  // 1 if the value is
};

/// A function that visit() calls for each entry.
/// returns 0 to continue.
typedef int (*ZPropertiesVisitor_6_0)(ZPropertiesEntry_6_0 const& entry, void* context);

/// A configuration store: named values with one or more strings each, which are loaded from a file,
/// read and changed by (category, key) and stored again. The format of the file is up to the cache;
/// ZStanzaFileProperties_6_0 is the store for stanza files.
class ZProperties_6_0 : public ZAbstractProperties_6_0,
                        public ZAbstractObservable_6_0,
                        public ZPropertiesMutableInterface_6_0 {
public:
    /// Creates a store that keeps its values in `cache`.
    /// owns    `cache` is taken over.
    /// throws  ZInvalidParameterException_6_0 if it is null.
    explicit ZProperties_6_0(ZPCache_6_0* cache);

    /// Creates an independent copy of `other`: contents, file name, modified flag and
    /// setReplacing(). The observers are not copied.
    ZProperties_6_0(ZProperties_6_0 const& other);
    ZProperties_6_0& operator=(ZProperties_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZProperties_6_0() override;

    int exists(char const* category, char const* key) const override;
    int exists(char const* category) const override;

    /// Returns 1 if `key` has obfuscated values, else 0.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty.
    virtual int isObfuscated(char const* category, char const* key) const;

    /// Returns 1 if any key of `category` has obfuscated values, else 0.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    virtual int isObfuscated(char const* category) const;

    /// Copies the last value of `key` into `out` and converts it to the codeset of `out`.
    /// throws  as in ZPropertiesInterface.h.
    /// cost    O(1), no allocation unless `out` has to grow.
    /// kept    a value that cannot be converted gives an empty string.
    void getValue(char const* category, char const* key, ZAbstractMutableString_6_0& out,
                  int required, char const* defaultValue) const override;

    /// Returns the last value of `key` as a number.
    /// range   a number above 4294967295 gives 4294967295; "-" negates modulo 2^32.
    /// throws  as in ZPropertiesInterface.h.
    unsigned int getIntegerValue(char const* category, char const* key, int required,
                                 unsigned int defaultValue) const override;
    int getBooleanValue(char const* category, char const* key, int required,
                        int defaultValue) const override;
    void getValues(char const* category, char const* key, ZArrayList_6_0& out,
                   ZPropertyStringType type) const override;
    int numValues(char const* category) const override;
    int numValues(char const* category, char const* key) const override;
    int count() const override;
    int count(char const* category) const override;

    /// Adds the contents of the file at `path`, and of the companion file that it names, to the
    /// store and clears the modified flag. The first path loaded or stored becomes the store's file
    /// name. If the file names no companion, the store reads the companion that it knows, unless it
    /// has read or written it before. If another program replaces the file while it is read, the
    /// new file is read instead.
    /// range   null or empty: the file name. Anything but a regular file fails with "fopen(r)".
    /// throws  ZInvalidParameterException_6_0 if there is neither a path nor a file name;
    ///         ZPropertiesInvalidDataException_6_0 if a line or the companion file is invalid;
    ///         ZPropertiesIOException_6_0 with the call that failed: "fopen(r)", with
    ///         ESTALE if the file was replaced during each of 100 attempts; "fcntl()" if another
    ///         process is storing; "mapFile()" or "access()" for the companion file; "lstat()",
    ///         "open()" or "read()" for the journal of a crashed writer. The store is unchanged
    ///         then.
    /// threads waits while another thread of this process stores the file; never for a process.
    void load(char const* path) override;

    /// Replaces the contents of the store by the contents of the file at `path`.
    /// throws  as load(); the store keeps its values then.
    void reload(char const* path) override;

    /// Writes the store to the file at `path`, which is created if it does not exist, and clears
    /// the modified flag. If the contents name a companion that belongs to another file, the file
    /// at `path` gets its own companion, and the contents then name it. If no value is obfuscated,
    /// the file's own companion is removed, no matter which store wrote it. An existing file with
    /// the name of a new companion is only replaced if a store can have written it.
    /// throws  ZInvalidParameterException_6_0 if there is neither a path nor a file name;
    ///         ZPropertiesIOException_6_0 with the call that failed: "fopen(r+)"; "fcntl()" if
    ///         another process reads or writes the file; "access()" with EEXIST if another file has
    ///         the name of the companion; "fopen(w)" for the companion; "write()", "fsync()",
    ///         "ftruncate()", "rename()" and so on; with the attribute `keepLines` of the cache
    ///         also "store()" with ESTALE if another program has changed the same values of the
    ///         file since it was loaded or stored. Files and store are unchanged then, and the
    ///         modified flag stays set.
    /// owns    with `keepLines` the store takes over the values that another program has changed in
    ///         the file. As after load(), postLoad() is called, observers get no notice, and lists
    ///         of a cache of a class outside the library are no longer valid.
    /// threads as load().
    /// cost    O(size); waits for the disk.
    void store(char const* path) override;
    void list() const override;

    void setValue(char const* category, char const* key, char const* value) override;

    /// Sets `key` to the single value `value`: plain, or obfuscated if `obfuscated` is not 0.
    /// range   an empty or null value leaves the key without values.
    /// throws  as setValue(); ZInvalidParameterException_6_0 if the key has values of the other
    ///         kind. Nothing is changed then.
    virtual void setValue(char const* category, char const* key, char const* value, int obfuscated);

    // The same for the four kinds of strings. UTF-8 is converted to the local codeset. A string
    // that cannot be converted throws ZFromUTF8Exception_6_0. An empty UTF-8 string throws
    // ZInvalidParameterException_6_0 if `key` has a value without a UTF-8 form: the caller may have
    // read the empty string in place of that value. Use deleteKey() or another overload to remove
    // such a value. Nothing is changed if an exception is thrown.
    virtual void setValue(char const* category, char const* key, ZLCString_6_0 const& value,
                          int obfuscated);
    virtual void setValue(char const* category, char const* key, ZUTF8String_6_0 const& value,
                          int obfuscated);
    virtual void setValue(char const* category, char const* key, ZLCConstString_6_0 const& value,
                          int obfuscated);
    virtual void setValue(char const* category, char const* key, ZUTF8ConstString_6_0 const& value,
                          int obfuscated);
    void setIntegerValue(char const* category, char const* key, unsigned int value) override;
    void setBooleanValue(char const* category, char const* key, int value) override;
    void deleteKey(char const* category, char const* key) override;

    /// Adds a comment to the comment block at the start of the file.
    /// throws  ZInvalidParameterException_6_0 if `comment` is null or if, after checkComment(), one
    ///         of its lines exceeds 8190 bytes or, for a stanza file, does not start with "#".
    void addFileComment(char const* comment) override;

    /// Adds a comment above the line of a key.
    /// throws  as addFileComment().
    void addEntryComment(char const* category, char const* key, char const* comment) override;

    /// Called at the end of every load(). This implementation does nothing.
    /// threads the store is locked.
    virtual void postLoad(char const* path);

    /// Turns `comment` into a valid comment of the file format. This implementation does nothing.
    virtual void checkComment(ZLCString_6_0& comment);

    /// Sets the cache's attributes, see ZPCache_6_0.
    virtual void setAttributes(unsigned long attributes, void* argument);

    /// Checks that `key` may receive plain values or, if `obfuscated` is not 0, obfuscated values.
    /// The existing values of a key determine the kind of further values.
    /// throws  ZInvalidParameterException_6_0 if the key has values of the other kind only.
    virtual void checkAccess(char const* category, char const* key, int obfuscated);

    /// Returns the store that `factory` shares among all callers for `path`. The first call creates
    /// and loads it. Later calls reload it if `force` is not 0, or if the file has changed and the
    /// store has no unsaved changes.
    /// owns    owned by the factory.
    /// throws  as load() and reload(); ZInvalidParameterException_6_0 if `path` is null or empty;
    ///         ZPropertiesIOException_6_0 (path, "fcntl()", EDEADLK) if the calling thread itself
    ///         is creating the store, or if the thread that creates it waits for a store that the
    ///         calling thread is creating.
    /// threads any; waits while another thread creates the store. Locks an existing store only to
    ///         reload it: two threads that each hold one store and look up the other's wait forever
    ///         if both files have changed.
    static ZProperties_6_0* getPropertiesFor(char const* path,
                                             ZAbstractPropertiesFactory_6_0& factory, int force);

    /// Returns 1 and updates `stamp` if the modification time of the file at `path` differs from
    /// `stamp`. Returns 0 if it is equal or cannot be read.
    /// units   whole seconds since the epoch.
    static int checkAndSetTimeStamp(char const* path, long& stamp);

    /// Checks that the file at `path` is readable and writable or, if it does not exist, that its
    /// directory is.
    /// throws  ZPropertiesIOException_6_0 (file or directory, "access()", errno).
    static void checkFileAccess(char const* path);

    /// Makes store() write a new file and rename it over the old file if `replacing` is not 0. The
    /// default, 0, rewrites the file in place. With replacement, a program that reads the file
    /// without a lock gets the old or the new text, never a part of both. The new file has the
    /// owner, mode, access control list and attributes of the old file, but another inode: other
    /// hard links keep the old text, and locks that other processes hold or wait for stay with the
    /// old file. store() fails if the directory allows no new file ("open()"), if the new file
    /// cannot get the old file's owner and group ("fchown()") or attributes ("fsetxattr()"), or if
    /// another file is mounted over the old file ("rename()").
    void setReplacing(int replacing);
    int isReplacing() const;

    /// Sets the maximum size of the files that stores of this process read and write, including
    /// Java property files. The default is 1 GiB. load() fails with "read()" and EFBIG for a larger
    /// file, store() with "write()" and EFBIG for a larger text. A journal may have twice this size
    /// plus 258 MiB. The maximum of a companion file is always 257 MiB.
    /// units   bytes; 0 allows only empty files.
    /// range   whatever the maximum, a store holds about 4 GiB of text: load() of a larger stanza
    ///         file throws ZOutOfMemoryException_6_0.
    /// threads any; a running load or store may still use the previous maximum.
    static void setMaxFileSize(unsigned long size);
    static unsigned long maxFileSize();

    /// Returns the names of the keys of `category`; null if it does not exist.
    /// owns    owned by the caller; released with delete. The list owns its ZLCString_6_0 elements.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    ZArrayList_6_0* keyNames(char const* category) const;

    /// Returns the names of the categories.
    /// owns    owned by the caller; released with delete. The list owns its ZLCString_6_0 elements.
    ZArrayList_6_0* categoryNames() const;

    /// Calls `visitor` for each stanza, then for each value of each of its keys, in the order of
    /// the file. A key without values is one entry, as is the stanza itself. Stanzas and keys that
    /// have no line in the file, such as keys with obfuscated values, follow the others.
    /// Returns the first result of `visitor` that is not 0, else 0; such a result ends the visit.
    /// range   `context` is passed on. In a cache of a class outside the library, the entries have
    ///         the order of categoryNames() and keyNames(), and a change by `visitor` is not
    ///         always detected.
    /// owns    the strings of an entry are borrowed until `visitor` returns.
    /// throws  ZInvalidParameterException_6_0 if `visitor` is null;
    ///         ZPropertiesIteratorException_6_0 if `visitor` changes the store, or creates an
    ///         iterator over values of it, and returns 0; what `visitor` throws.
    /// threads the store is locked; `visitor` may read it.
    /// cost    O(entries), without allocation; a cache of a class outside the library creates
    ///         lists.
    int visit(ZPropertiesVisitor_6_0 visitor, void* context) const;

    void setModified();
    void resetModified();
    int isModified() const;

    /// Returns the file name: the first path that was loaded or stored; empty until then.
    /// owns    borrowed; the name does not change once it is set.
    ZLCString_6_0 const& fileName() const { return fileName_; }

    /// Returns the modification time that the file named fileName() had when it was last loaded or
    /// stored; 0 until then. Loading or storing another file does not change it.
    /// units   whole seconds since the epoch.
    long timeStamp() const;

protected:
    /// Locks the store in this scope. Every operation and every iterator has a Hold. When a
    /// thread's outermost Hold ends, it unlocks the store and then sends the queued notices.
    class Hold {
    public:
        explicit Hold(ZProperties_6_0 const& store);
        Hold(Hold const&) = delete;
        Hold& operator=(Hold const&) = delete;

        /// Unlocks the store and notifies the observers.
        /// throws  the exceptions of observers and of the unlock. During stack unwinding they are
        ///         reported through the message service instead.
        ~Hold() noexcept(false);

    private:
        ZProperties_6_0& store_;
        unsigned long thread_;  // creating thread
    };

    /// Notifies the observers of a change after the lock is released; does nothing during load().
    void sendChangeNotice(ZPropertyChanged_6_0::PropertyStyle style,
                          ZPropertyChanged_6_0::PropertyChangeType type, char const* category,
                          char const* key);

    ZPCache_6_0& cache() const { return *cache_; }  // used under a Hold

    /// Sets the file name, unless it is set. For a derived class that loads its contents without
    /// load() of this class.
    /// range   null or empty does nothing.
    void setFileName(char const* path);

private:
    friend class ZAbstractPropertyValuesIterator_6_0;
    friend class ZPropertiesIterator_6_0;
    friend class ZPropertiesSnapshot_6_0;
    friend class ZStanzaFileProperties_6_0;

    struct Notice;  // ZProperties_p.h
    struct Rep;

    static ZProperties_6_0* makeFor(ZLCString_6_0 const& path,
                                    ZAbstractPropertiesFactory_6_0& factory);
    void refresh(char const* path, int force);

    ZLock_6_0 lock_;
    ZPCache_6_0* cache_;  // never null; this and all following fields are guarded by lock_
    ZLCString_6_0 fileName_;
    int modified_;  // getPropertiesFor() reads it without the lock
    int loading_;
    long timeStamp_;
    Rep* rep_;  // never null
};
