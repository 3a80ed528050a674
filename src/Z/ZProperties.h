// ZProperties: the configuration store: a cache of values, and around it files, locking between
// processes, typed access and change notices.
//
// Subsystem: properties.  Stands on: ZPropertiesInterface, ZPropertyChanged, ZPropertiesImpl,
// ZObserver, ZLock, ZLCString, ZUTF8String, ZArrayList, ZBuffer, ZException.
//
// Ownership: a store owns its cache and borrows its observers. Names and values are copied in.
// Threads: every operation is safe from every thread and runs under the store's own recursive lock.
// Observers are told of a change on the changing thread after it has released the lock; changes
// made while the thread holds the lock further out (an iterator lives) are told when it lets go.
// Processes: load() takes a shared and store() an exclusive record lock on the whole file, neither
// waiting; stores of one process that use one file take turns.
// Durability: store() leaves, whatever happens, the old contents or the new ones, see
// docs/durability.md.
#pragma once

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

class ZProperties_6_0 : public ZAbstractProperties_6_0,
                        public ZAbstractObservable_6_0,
                        public ZPropertiesMutableInterface_6_0 {
public:
    /// Makes a store over `cache`.
    /// owns    `cache` is taken over.
    /// throws  ZInvalidParameterException_6_0 when it is null.
    explicit ZProperties_6_0(ZPCache_6_0* cache);

    /// Makes a store of its own with the same contents, file name, modified flag and
    /// setReplacing(); the observers stay with `other`.
    ZProperties_6_0(ZProperties_6_0 const& other);
    ZProperties_6_0& operator=(ZProperties_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZProperties_6_0() override;

    int exists(char const* category, char const* key) const override;
    int exists(char const* category) const override;

    /// Returns 1 when `key` holds obfuscated values, else 0.
    /// throws  ZInvalidParameterException_6_0 when a name is null or empty.
    virtual int isObfuscated(char const* category, char const* key) const;

    /// Returns 1 when some key of `category` holds obfuscated values, else 0.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    virtual int isObfuscated(char const* category) const;

    /// Copies the last value of `key` into `out`, converted when `out` is of another codeset.
    /// throws  as in ZPropertiesInterface.h.
    /// cost    O(1), no allocation unless `out` has to grow.
    /// kept    a value that cannot be converted gives an empty text.
    void getValue(char const* category, char const* key, ZAbstractMutableString_6_0& out,
                  int required, char const* defaultValue) const override;

    /// Returns the last value of `key` as a number.
    /// range   above 4294967295 gives 4294967295; a "-" negates modulo 2^32.
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

    /// Reads the file at `path`, adding to what the store holds, and clears the modified flag. The
    /// first path that is loaded or stored becomes the store's file name. The companion file that
    /// it names is read with it. For a file that names none, a companion file that the store has
    /// read or written before is not read again.
    /// range   a regular file, or a link to one: for anything else, "fopen(r)" fails.
    /// throws  ZInvalidParameterException_6_0 when there is neither a path nor a file name;
    ///         ZPropertiesIOException_6_0 with "fopen(r)", "fcntl()" (another process stores),
    ///         "mapFile()" and "access()" for the companion file, or "lstat()", "open()" and
    ///         "read()" for the journal of a store that died;
    ///         ZPropertiesInvalidDataException_6_0 for a line or a companion that is not valid.
    ///         The store is as it was then.
    /// threads waits for stores of this process that write the file; never for another process.
    void load(char const* path) override;

    /// Reads the file at `path` in place of what the store holds.
    /// throws  as load(); the old values stay then.
    void reload(char const* path) override;

    /// Writes the file at `path`, makes it when it is missing, and clears the modified flag. If the
    /// companion file that the contents name is another file's own, the file at `path` gets one of
    /// its own, and the contents name that. Without obfuscated values the file's own companion is
    /// removed, whichever store has written it. An existing file with the name of a new companion
    /// is only replaced if a store can have written it.
    /// throws  ZInvalidParameterException_6_0 when there is neither a path nor a file name;
    ///         ZPropertiesIOException_6_0 with the name of the call that failed: "fopen(r+)",
    ///         "fcntl()" (another process reads or writes), "access()" (EEXIST: another file
    ///         has the name of the companion), "fopen(w)" for the companion, "write()", "fsync()",
    ///         "ftruncate()", "rename()" and so on. Files and store are as they were then, and the
    ///         modified flag stays set.
    /// threads as load().
    /// cost    O(size); the disk is waited for.
    void store(char const* path) override;
    void list() const override;

    void setValue(char const* category, char const* key, char const* value) override;

    /// Sets `key` to the one value `value`, in the open or, when `obfuscated` is not 0, obfuscated.
    /// range   an empty or null value leaves the key without values.
    /// throws  as setValue(); ZInvalidParameterException_6_0 when the key holds values of the other
    ///         kind. Nothing is changed then.
    virtual void setValue(char const* category, char const* key, char const* value, int obfuscated);

    // The same for the four kinds of strings. UTF-8 text is converted to the local codeset; what
    // cannot be converted raises ZFromUTF8Exception_6_0 and changes nothing. So does an empty UTF-8
    // text, with ZInvalidParameterException_6_0, if `key` has a value without a UTF-8 form: it may
    // be what was read for that value. deleteKey() and the other forms remove it.
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

    /// Adds a comment to the block that leads the file.
    /// throws  as in ZPropertiesInterface.h; ZInvalidParameterException_6_0 when a line of it, as
    ///         checkComment() leaves it, does not begin with the "#" of a stanza file.
    void addFileComment(char const* comment) override;

    /// Adds a comment above the line of a key.
    /// throws  as addFileComment().
    void addEntryComment(char const* category, char const* key, char const* comment) override;

    /// Is called at the end of every load(); here it does nothing.
    /// threads the store is locked.
    virtual void postLoad(char const* path);

    /// Makes `comment` a comment of the file's form; here it does nothing.
    virtual void checkComment(ZLCString_6_0& comment);

    /// Sets the cache's attributes, see ZPCache_6_0.
    virtual void setAttributes(unsigned long attributes, void* argument);

    /// Checks that `key` may take values of a kind: a key that holds values keeps their kind.
    /// throws  ZInvalidParameterException_6_0 when it holds plain values and `obfuscated` is not 0,
    ///         or the other way round.
    virtual void checkAccess(char const* category, char const* key, int obfuscated);

    /// Returns the one store that `factory` keeps for `path`, made and loaded at the first call.
    /// Later calls read the file again when `force` is not 0, or when the file has changed and the
    /// store has no unsaved changes.
    /// owns    the factory's.
    /// throws  as load() and reload(); ZInvalidParameterException_6_0 when `path` is null or empty;
    ///         ZPropertiesIOException_6_0 (path, "fcntl()", EDEADLK) if the store is being made by
    ///         the calling thread, or by a thread that waits for a store that it is making.
    /// threads any; a caller that asks for a path that another thread is loading waits for it.
    ///         Locks a store that exists only to read its file again: two threads that hold one
    ///         store each and look up the other's wait forever if both files have changed.
    static ZProperties_6_0* getPropertiesFor(char const* path,
                                             ZAbstractPropertiesFactory_6_0& factory, int force);

    /// Stores the modification time of the file at `path` in `stamp` and returns 1 when it differs
    /// from `stamp`; returns 0 when it does not, or when there is no file that can be examined.
    /// units   whole seconds since the epoch.
    static int checkAndSetTimeStamp(char const* path, long& stamp);

    /// Checks that the file at `path` can be read and written or, when it is missing, that its
    /// directory can.
    /// throws  ZPropertiesIOException_6_0 (file or directory, "access()", errno).
    static void checkFileAccess(char const* path);

    /// Makes store() write a new file and rename it over the old one, if `replacing` is not 0; at
    /// first it rewrites the file in place. A program that reads the file without a lock sees the
    /// old or the new text then, never a part of both. The new file has owner, mode, access control
    /// list and attributes of the old one, but another inode: other hard links keep the old text,
    /// and locks that other processes hold or wait for are those of the old file. store() fails if
    /// the directory allows no new file ("open()"), if the new file cannot be given to the old
    /// one's owner and group ("fchown()") or cannot have its attributes ("fsetxattr()"), or if
    /// another file is mounted over it ("rename()").
    void setReplacing(int replacing);
    int isReplacing() const;

    /// Sets the limit of the files that stores of this process read and write, Java property files
    /// included; at first it is 1 GiB. A larger file makes load() fail with "read()" and EFBIG, a
    /// larger text makes store() fail with "write()" and EFBIG. A journal may have twice that and
    /// 258 MiB. The limit of a companion file, 257 MiB, stays.
    /// units   bytes; 0 is a limit, too: then only empty files are read.
    /// threads any; a load or store that runs may use the limit before.
    static void setMaxFileSize(unsigned long size);
    static unsigned long maxFileSize();

    /// Returns the names of the keys of `category`; null when it is missing.
    /// owns    owned by the caller; released with delete. The list owns its ZLCString_6_0 members.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    ZArrayList_6_0* keyNames(char const* category) const;

    /// Returns the names of the categories.
    /// owns    owned by the caller; released with delete. The list owns its ZLCString_6_0 members.
    ZArrayList_6_0* categoryNames() const;

    void setModified();
    void resetModified();
    int isModified() const;

    /// Returns the file name: the first path that was loaded or stored; empty before.
    /// owns    borrowed; the name does not change once it is set.
    ZLCString_6_0 const& fileName() const { return fileName_; }

    /// Returns the modification time of the file of the store's name as last loaded or stored; 0
    /// before. Loading or storing another file does not change it.
    /// units   whole seconds since the epoch.
    long timeStamp() const;

protected:
    // Holds the store's lock for a scope; every operation and iterator has one. When the last one
    // of a thread lets go, the notices that were queued meanwhile are sent, without the lock.
    class Hold {
    public:
        explicit Hold(ZProperties_6_0 const& store);
        Hold(Hold const&) = delete;
        Hold& operator=(Hold const&) = delete;

        /// Lets go. What an observer or the unlock raises is passed on, unless an exception is on
        /// its way already: then it is reported through the message service.
        ~Hold() noexcept(false);

    private:
        ZProperties_6_0& store_;
        unsigned long thread_;  // that made it
    };

    /// Tells the observers of a change, after the lock is released; nothing while the store loads.
    void sendChangeNotice(ZPropertyChanged_6_0::PropertyStyle style,
                          ZPropertyChanged_6_0::PropertyChangeType type, char const* category,
                          char const* key);

    ZPCache_6_0& cache() const { return *cache_; }  // used under a Hold

private:
    friend class ZAbstractPropertyValuesIterator_6_0;
    friend class ZPropertiesIterator_6_0;
    friend class ZStanzaFileProperties_6_0;

    struct Notice;  // ZProperties_p.h
    struct Rep;

    static ZProperties_6_0* makeFor(ZLCString_6_0 const& path,
                                    ZAbstractPropertiesFactory_6_0& factory);
    void refresh(char const* path, int force);

    ZLock_6_0 lock_;
    ZPCache_6_0* cache_;  // never null; what follows is guarded by lock_
    ZLCString_6_0 fileName_;
    int modified_;  // read without the lock by getPropertiesFor()
    int loading_;
    long timeStamp_;
    Rep* rep_;  // never null
};
