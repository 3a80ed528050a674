// ZSharedFile: the process-wide table of the files that are open for locking, one entry per inode.
//
// Subsystem: process locks.  Stands on: nothing of the library.
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

    ZSharedFile() = default;
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
    int open(char const* path, int flags, mode_t mode, Refusal refusal = nullptr);

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

    /// Counts the calling thread among those that hold a range which this reference has locked for
    /// reading. Nothing happens when the file is closed.
    /// throws  std::bad_alloc.
    /// threads another thread may close the file meanwhile.
    void join(off_t start, off_t length);

    /// Counts it out again; the range stays locked. Nothing happens when the file is closed.
    /// threads as join().
    void leave(off_t start, off_t length);

    /// Forgets the file. It stays open, and locked, until the process ends.
    void abandon();

    /// Returns whether `path` still means the file.
    bool isNamed(char const* path) const;

    bool isOpen() const { return entry_ != nullptr; }

    /// Returns a descriptor of the file, one for reading and writing when any user asked for that.
    /// Use it with calls that name the offset: the position is everybody's.
    int descriptor() const;

    struct Entry;  // ZSharedFile.cpp

private:
    int lockWith(int command, short type, off_t start, off_t length);

    Entry* entry_ = nullptr;
};

/// Returns a number that is another one in every child made by fork(), without a system call.
unsigned zforkMark();

/// Opens a file that is never locked and returns its descriptor, at least 3, so that nothing that
/// is meant for standard output or standard error ever gets into it; -1 with errno when it fails.
int zopenPrivate(char const* path, int flags, mode_t mode);

/// Returns `fd`, or in place of one below 3, which is closed, another descriptor of the same file;
/// -1 with errno when there is none.
int zmoveUp(int fd);
