// shared_file: the process-wide table of the files that are open for locking, by inode.
//
// Record locks belong to a process and an inode, and closing any descriptor of the inode drops
// them all:
//
//     int a = open("x", O_RDWR), b = open("x", O_RDWR);
//     fcntl(a, F_SETLK, &whole);   // locked
//     close(b);                    // no longer
//
// So all users of a file in this process share its descriptors, and the last user closes all of
// them. Users of the same range exclude each other inside the process, where record locks do not
// conflict.
//
// Before a thread waits in this process, the table checks the wait-for graph of the threads, and
// refuses the wait with EDEADLK if it would close a cycle. The nodes are threads. A thread waits
// for
//
//     the threads that hold a range which conflicts with the range that it requests,
//     the threads that hold, in a conflicting way, the lock object that it requests, or another
//     lock object on the same file, because it will lock the ranges of the file next,
//     the thread that is acquiring the same lock object and waits for a range.
//
// A thread registers each wait before it waits, and each hold before its next wait. So the wait
// that would close a cycle finds all edges of the cycle. See LockClaims for lock objects.
//
// Ownership: a SharedFile is one user's reference to an inode.
// Threads: the table is safe from every thread. So is a reference, except that no thread may open
// or close it while another thread uses it.
// Processes: a child created by fork() starts with an empty table of its own.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace zfiles {

class SharedFile {
public:
    using Refusal = int (*)(struct stat const& status);

    /// Creates a closed reference.
    /// range   `object` is the lock object, as in LockClaims, for which ranges will be locked;
    ///         null for a user without a lock object.
    explicit SharedFile(void const* object = nullptr) : object_(object) {}
    SharedFile(SharedFile const&) = delete;
    SharedFile& operator=(SharedFile const&) = delete;

    /// Closes.
    ~SharedFile() { close(); }

    /// Opens `path` as open() does, or shares the file if it is open already. Returns 0.
    /// range   `flags`: O_RDONLY or O_RDWR, optionally with O_CREAT, O_EXCL, O_NOFOLLOW and O_SYNC.
    ///         Only regular files are opened; with O_NONBLOCK, another file may be opened and
    ///         closed again. `refusal` gets the status of the opened inode and returns 0 if the
    ///         file may be used, else an errno; null accepts every regular file.
    /// codes   the errno of the failed call; EISDIR for a directory, EINVAL for any other file that
    ///         is not regular; the errno of `refusal`.
    /// throws  std::bad_alloc.
    int open(char const* path, int flags, mode_t mode, Refusal refusal = nullptr)
    {
        return openAt(AT_FDCWD, path, flags, mode, refusal);
    }

    /// As open(), but a relative path starts at the directory with the descriptor `directory`.
    int openAt(int directory, char const* path, int flags, mode_t mode, Refusal refusal = nullptr);

    /// Releases the ranges that this reference holds; the last reference closes the file.
    void close();

    /// Locks `length` bytes from `start`; 0 means up to the end of the file, however it grows.
    /// Returns 0. Waits for conflicting references of this process, but not for other processes.
    /// range   `type` is F_RDLCK or F_WRLCK. Ranges of one file are identical or disjoint.
    /// codes   EDEADLK if the wait would be a deadlock, for example if the calling thread holds the
    ///         range; EAGAIN or EACCES if another process holds it; else the errno of fcntl().
    /// throws  std::bad_alloc.
    int lock(short type, off_t start, off_t length);

    /// As lock(), but waits for other processes too. Such a wait is a cancellation point.
    /// codes   as lock(); also EDEADLK of fcntl(), and EINTR if a signal interrupts the wait for
    ///         another process.
    /// throws  std::bad_alloc.
    int lockWaiting(short type, off_t start, off_t length);

    /// Releases a range and returns 0. A range that is not locked is ignored.
    /// codes   the errno of fcntl(); the range is still locked.
    int unlock(off_t start, off_t length);

    /// Detaches the reference. The file stays open and locked until the process ends.
    void abandon();

    /// Returns whether `path` still refers to the file.
    bool isNamed(char const* path) const;

    bool isOpen() const { return inode_ != nullptr; }

    /// Returns a descriptor of the file, opened for reading and writing if any user requested that.
    /// Use it only with calls that take an offset: all users share the file position.
    int descriptor() const;

    struct Inode;  // shared_file.cpp

private:
    int lockWith(int command, short type, off_t start, off_t length);

    Inode* inode_ = nullptr;
    void const* const object_;
};

/// The lock objects of this process that threads hold or request. An object admits many readers or
/// one writer. One thread at a time locks the ranges of the file for it.
///
/// A claim belongs to the thread that requested it. If another thread releases a read lock while
/// there are multiple readers, its holder is unknown: the claims of all readers then belong to no
/// thread.
class LockClaims {
public:
    LockClaims() = delete;

    /// Registers a request of the calling thread for `object`. Call hold() once the thread has it,
    /// or drop().
    /// range   `type` is F_RDLCK or F_WRLCK.
    /// codes   EDEADLK if the thread would wait for itself; nothing is registered then.
    /// throws  std::bad_alloc.
    static int ask(void const* object, short type);

    /// Registers that the calling thread now holds the requested object.
    static void hold(void const* object);

    /// Removes a claim of the calling thread, or, if it has none, a read claim of another thread.
    static void drop(void const* object);

    /// Returns how many times the calling thread holds the object; -1 if a claim belongs to no
    /// thread.
    static int countHeld(void const* object);

    /// Removes every claim. Call it before the object is destroyed.
    static void dropAll(void const* object);
};

/// Returns a number that differs in every child created by fork(). Makes no system call.
unsigned forkGeneration();

/// Returns `fd` if it is at least 3. Otherwise closes it, and returns another descriptor of the
/// same file that is; -1 with errno if that fails. Below 3, output for standard output or error
/// could get into the file.
int moveAboveStdio(int fd);

}  // namespace zfiles
