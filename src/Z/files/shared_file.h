// ZSharedFile: the process-wide table of the files that are open for locking, one entry per inode.
//
// Record locks belong to a process and an inode, and closing any descriptor of the inode drops
// them all:
//
//     int a = open("x", O_RDWR), b = open("x", O_RDWR);
//     fcntl(a, F_SETLK, &whole);   // locked
//     close(b);                    // no longer
//
// So every user of one file in this process shares one entry: its descriptors are closed together,
// by the last user, and users that want the same range exclude each other inside the process,
// where record locks would let all of them through.
//
// Before a thread waits in this process, the table checks the wait-for graph of its threads, and
// the wait is refused with EDEADLK if it would close a cycle. Threads are the nodes. A thread waits
// for
//
//     the threads that hold a range which conflicts with the range that it wants,
//     the threads that hold, in a conflicting way, the lock object that it asks for, or another
//     one on the same file, of which it wants the ranges next,
//     the thread that enters a lock object which it asks for too, and waits for a range.
//
// A thread registers a wait before it waits, and what it holds before it waits again, so the last
// wait that closes a cycle sees the whole of it. See ZLockClaims for lock objects.
//
// Ownership: a ZSharedFile is one user's reference to an entry.
// Threads: the table is safe from every thread, and a reference too, except that nobody opens or
// closes it while another thread uses it.
// Processes: a child made by fork() starts with an empty table of its own.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

class ZSharedFile {
public:
    using Refusal = int (*)(struct stat const& status);

    /// range   `object` is the lock object that takes the ranges, as ZLockClaims knows it; null for
    ///         a user that has none.
    explicit ZSharedFile(void const* object = nullptr) : object_(object) {}
    ZSharedFile(ZSharedFile const&) = delete;
    ZSharedFile& operator=(ZSharedFile const&) = delete;

    /// Closes.
    ~ZSharedFile() { close(); }

    /// Opens `path` as open() does, or shares what is open already, and returns 0.
    /// range   `flags`: O_RDONLY or O_RDWR, with O_CREAT, O_EXCL, O_NOFOLLOW and O_SYNC if wanted.
    ///         Nothing but regular files is opened; with O_NONBLOCK, what is none may be opened and
    ///         closed again. `refusal` returns 0 for a regular file that may be used, else an
    ///         errno; null accepts every file. It is asked about the inode that was opened.
    /// codes   errno of the call that failed; EISDIR for a directory, EINVAL for what is no regular
    ///         file either; what `refusal` returns.
    /// throws  std::bad_alloc.
    int open(char const* path, int flags, mode_t mode, Refusal refusal = nullptr)
    {
        return openAt(AT_FDCWD, path, flags, mode, refusal);
    }

    /// Opens `path` as open() does; a relative path starts at the directory that `directory` is a
    /// descriptor of.
    int openAt(int directory, char const* path, int flags, mode_t mode, Refusal refusal = nullptr);

    /// Releases what this reference has locked; the last reference closes the file.
    void close();

    /// Locks `length` bytes from `start` (length 0: up to whatever the end is) and returns 0. Other
    /// references of this process that hold the range in a conflicting way are waited for, other
    /// processes are not.
    /// range   `type` F_RDLCK or F_WRLCK. Ranges of one file are the same or do not overlap.
    /// codes   EDEADLK when the calling thread itself holds the range in a conflicting way; errno
    ///         of fcntl(): EAGAIN or EACCES when another process holds it.
    /// throws  std::bad_alloc.
    int lock(short type, off_t start, off_t length);

    /// Locks as lock() does; other processes are waited for too. A wait for them ends with the
    /// cancellation of the thread, too.
    /// codes   EDEADLK also when fcntl() says so; EINTR after a signal, while another process
    ///         holds the range.
    /// throws  std::bad_alloc.
    int lockWaiting(short type, off_t start, off_t length);

    /// Releases a range and returns 0. Ranges that are not locked are no failure.
    /// codes   errno of fcntl(); the range is still locked.
    int unlock(off_t start, off_t length);

    /// Forgets the file. It stays open, and locked, until the process ends.
    void abandon();

    /// Returns whether `path` still means the file.
    bool isNamed(char const* path) const;

    bool isOpen() const { return entry_ != nullptr; }

    /// Returns a descriptor of the file, one for reading and writing when any user asked for that.
    /// Use it with calls that name the offset: the position is everybody's.
    int descriptor() const;

    struct Entry;  // shared_file.cpp

private:
    int lockWith(int command, short type, off_t start, off_t length);

    Entry* entry_ = nullptr;
    void const* const object_;
};

/// The lock objects of this process that threads hold or ask for. An object lets in many readers or
/// one writer, and one thread after another takes its ranges of the file.
///
/// A claim belongs to the thread that asked. When another thread releases a read lock and several
/// are held, nobody knows whose it was: their claims then belong to no thread.
class ZLockClaims {
public:
    ZLockClaims() = delete;

    /// Registers that the calling thread asks for `object`. Follow it with hold() once the thread
    /// is in, or with drop().
    /// range   `type` is F_RDLCK or F_WRLCK.
    /// codes   EDEADLK if the thread would wait for itself; nothing is registered then.
    /// throws  std::bad_alloc.
    static int ask(void const* object, short type);

    /// Registers that the calling thread holds the object that it has asked for.
    static void hold(void const* object);

    /// Removes a claim of the calling thread, or, if it has none, a read claim of another thread.
    static void drop(void const* object);

    /// Returns how often the calling thread holds the object; -1 if a claim belongs to no thread.
    static int countHeld(void const* object);

    /// Removes every claim. Call it before the object is destroyed.
    static void dropAll(void const* object);
};

/// Returns a number that is another one in every child made by fork(), without a system call.
unsigned zforkMark();

/// Opens a file that is never locked and returns its descriptor, at least 3, so that nothing that
/// is meant for standard output or standard error ever gets into it; -1 with errno when it fails.
int zopenPrivate(char const* path, int flags, mode_t mode);

/// Returns `fd`, or in place of one below 3, which is closed, another descriptor of the same file;
/// -1 with errno when there is none.
int zmoveUp(int fd);
