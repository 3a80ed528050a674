// ZFleetProperties: a configuration store whose file is in a cluster.
//
// Subsystem: fleet.  Stands on: ZFleetConnection, ZFleetConflict, ZFleetGeneration and the
// foundation's ZStanzaFileProperties.
//
// The path "etcd://FLEET/NAME" names the configuration NAME in a cluster; docs/fleet.md describes
// fleets. Any other path is a local file, with the behaviour of the base class. So a program
// changes from files to a cluster with its paths only.
// Ownership and threads: as ZStanzaFileProperties_6_0. Loading and storing wait for the cluster
// under the store's lock, at most for "budget" in the file of the fleets.
#pragma once

#include <Z/ZStanzaFileProperties.h>
#include <stdint.h>

#include "ZFleetConflict.h"
#include "ZFleetGeneration.h"

class ZFleetReadWriteLock_6_0;

/// A configuration store whose file is in a cluster, or a local stanza file.
class ZFleetProperties_6_0 : public ZStanzaFileProperties_6_0 {
public:
    /// Creates an empty store.
    /// range   `keepComments` 0: load() drops comments and blank lines.
    explicit ZFleetProperties_6_0(int keepComments);

    /// Creates a store and loads the configuration or the file at `path`.
    /// throws  as load().
    ZFleetProperties_6_0(char const* path, int keepComments);
    ZFleetProperties_6_0(ZFleetProperties_6_0 const&) = delete;
    ZFleetProperties_6_0& operator=(ZFleetProperties_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZFleetProperties_6_0() override;

    /// Replaces the contents by the configuration at `path` and clears the modified flag. For a
    /// local file, as the base. The first path loaded or stored becomes the store's file name.
    ///
    /// With "replica" in the file of the fleets, each load and store also writes a copy of the
    /// configuration to a local file. If no node replies, a store that has not loaded the
    /// configuration before loads the copy: isOffline() returns 1, and store() fails until a later
    /// load() succeeds. A copy that cannot be written is reported once by the message service, and
    /// so is a copy of another cluster, which is kept with the ending ".orphan".
    /// range   null or empty: the file name.
    /// throws  ZInvalidParameterException_6_0 if there is neither a path nor a file name;
    ///         ZPropertiesInvalidDataException_6_0 if a line or the companion is invalid; as
    ///         ZFleetConnection_6_0::open(); ZPropertiesIOException_6_0 (path, call, errno):
    ///         "etcd://" with EINVAL for an invalid path, "Txn" with ENOENT if the configuration
    ///         does not exist, and the codes of docs/fleet.md. The store is unchanged then.
    void load(char const* path) override;

    /// As load(). Observers get a notice for each key that differs, with the style kFleetChanged; a
    /// new or removed stanza has a notice with an empty key.
    void reload(char const* path) override;

    /// Writes the store to the configuration at `path`, which is created if it does not exist, and
    /// clears the modified flag. For a local file, as the base. If another program has stored the
    /// configuration since it was loaded or stored by this store, both changes are merged, and the
    /// store takes over the changes of the other program: as after load(), postLoad() is called,
    /// and observers get notices as by reload(). A key that both have changed is a conflict, even
    /// if both values are equal, and so is a stanza that one removed and the other changed:
    /// setConflictPolicy() decides it. Comments never conflict. A configuration that this store has
    /// not loaded or stored is replaced, whatever it contains. After a load() that failed with
    /// ENOENT, the configuration is created.
    /// range   null or empty: the file name. Text and companion have at most 1 MiB.
    /// throws  as load(); "setFence()" with EBADF if the lock is not held, with ESTALE if it was
    ///         lost, and with EXDEV if it is not a lock of the fleet of `path`; if the store finds
    ///         the loss, the observers of the lock are notified; ZFleetConflictException_6_0, which
    ///         is a ZPropertiesIOException_6_0 with "merge()" and ESTALE, for conflicts; "merge()"
    ///         with ESTALE also without merges, if another program has removed the configuration,
    ///         or if the store has worked with many others since; "store()" with ENOTCONN if the
    ///         contents were loaded from the replica; "write()" with EFBIG for a too large store;
    ///         "Txn" with EINPROGRESS if it is unknown whether the configuration was stored, and
    ///         with ETIMEDOUT if no majority of the cluster replies; EAGAIN if 16 other programs
    ///         were faster. The store is unchanged then, and the modified flag stays set. After
    ///         ETIMEDOUT and EINPROGRESS the configuration may have been stored; the next store()
    ///         finds out.
    void store(char const* path) override;

    /// Returns whether `path` names a configuration in a cluster: 1 or 0.
    static int isFleetPath(char const* path);

    /// Returns the generation of the configuration that was last loaded or stored. It rises by 1
    /// with each store by this library. 0: none was, or the text was put by hand.
    uint64_t generation() const;

    /// Returns the revision of the cluster that wrote the contents that were last loaded or stored;
    /// 0 if none were.
    int64_t revision() const;

    /// Returns a descriptor that is readable when processChanges() has something to do. The first
    /// call starts to watch the configuration; the descriptor stays the same afterwards.
    /// Returns -1 if the file name is not the path of a configuration that was loaded or stored.
    /// owns    borrowed as long as the store exists. Only wait for it, with poll() or the like.
    /// throws  as processChanges().
    int descriptor();

    /// Takes in changes by other programs: loads the configuration again if it has changed.
    /// Observers get notices as by reload(), on this thread. Returns 1 if the contents have been
    /// replaced, else 0. Does not wait without a change. Unsaved changes of the store stay: then
    /// isBehind() returns 1 until store() has merged them or reload() has dropped them. The
    /// configuration is also read without a notice of the cluster, every 30 seconds.
    /// throws  as load(), once for each reason, also for contents that cannot be read: the store
    ///         keeps its contents, and later calls try again. Not if no node replies: then
    ///         isOffline() returns 1.
    /// cost    without a change, O(1). A read takes at most twice "call" of the file of the fleets.
    int processChanges();

    /// Returns 1 if another program has changed the configuration and the store could not take the
    /// change in, because it has unsaved changes; else 0.
    int isBehind() const;

    /// Returns 1 if no node of the cluster has replied to the last load or store, else 0. Then
    /// the contents come from the last load or store, or from the replica.
    int isOffline() const;

    /// Sets the reason that the log records for the next stores; null for none.
    /// owns    copied; control characters become spaces.
    void setReason(char const* reason);

    /// The result of a store for keys that another program has changed, too.
    enum ConflictPolicy : int {
        refuse = 0,      // store() throws, and changes nothing
        mineWins = 1,    // the values of this store
        theirsWins = 2,  // the values of the other program
    };

    /// Sets the policy of the next stores; `refuse` is the default.
    /// throws  ZInvalidParameterException_6_0 for another number.
    void setConflictPolicy(ConflictPolicy policy);

    /// Makes store() merge changes of other programs, which is the default, or refuse them all if
    /// `merge` is 0.
    void setMerge(int merge);

    /// Ties the next stores and undo() to a lock of the same fleet: the cluster executes them only
    /// while the lock is held by this acquisition of `lock`. Null unties the store.
    /// owns    `lock` is borrowed until the next call, and as long as the store exists.
    void setFence(ZFleetReadWriteLock_6_0* lock);

    /// Appends the conflicts for which the last store() was refused, as ZFleetConflict_6_0; none
    /// if it succeeded, or failed for another reason.
    /// owns    `out` must own its elements; it takes over new objects.
    void conflicts(ZArrayList_6_0& out) const;

    /// Appends the generations in the log of the configuration at `path`, as ZFleetGeneration_6_0,
    /// the latest first, at most 100. Contents that were put by hand are not in the log.
    /// range   as load(), but not a local file.
    /// owns    `out` must own its elements; it takes over new objects.
    /// throws  as load(), but a missing configuration has an empty log;
    ///         ZInvalidParameterException_6_0 for a local file.
    void log(char const* path, ZArrayList_6_0& out) const;

    /// Loads the configuration at `path`, then replaces the contents with an earlier
    /// generation, and sets the modified flag: a store() would make them current again, and merge
    /// them with changes of other programs since this load.
    /// throws  as load(); ZPropertiesIOException_6_0 with "log" and ENOENT if the log does not have
    ///         the generation or its contents; ZInvalidParameterException_6_0 for a local file.
    void loadGeneration(char const* path, uint64_t generation);

    /// Undoes the change that a generation made to the configuration at `path`; 0 is the latest.
    /// Later changes stay: the change is merged back into the present configuration, and a key
    /// that was changed later is a conflict. The result is stored as a new generation, and is then
    /// the contents of this store; observers get notices as by reload(). After ETIMEDOUT and
    /// EINPROGRESS the change may have been undone. A repetition with the same number or with 0
    /// finds out, and undoes the same change, once. So it does until load(), reload() or store() of
    /// the configuration, or until processChanges() accepts a change by another program; then 0 is
    /// the latest generation again.
    /// throws  as loadGeneration() and store(); ZPropertiesIOException_6_0 with "undo()" and EBUSY
    ///         if the store has unsaved changes; "log" with ENOENT also if the state before the
    ///         generation is no longer known. The store is unchanged then.
    void undo(char const* path, uint64_t generation);

    /// The style of notices about changes by other programs.
    static constexpr ZPropertyChanged_6_0::PropertyStyle kFleetChanged =
        static_cast<ZPropertyChanged_6_0::PropertyStyle>(1);

    /// Creates stores that keep comments.
    class ZFleetPropertiesFactory : public ZAbstractPropertiesFactory_6_0 {
    public:
        ZFleetPropertiesFactory();
        ~ZFleetPropertiesFactory() override;

        ZProperties_6_0* makePropertiesInstance() override;
    };

    /// Returns the process-wide factory, for getPropertiesFor().
    /// owns    borrowed; the factory exists until the process ends.
    /// threads any.
    static ZFleetPropertiesFactory* getFactory();

private:
    struct Rep;

    Rep* const rep_;  // never null; guarded by the store's lock
};
