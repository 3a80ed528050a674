// system_calls: wrappers that continue after a signal and a partial transfer.
//
// Each function returns 0 or an errno.
#pragma once

#include <errno.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string_view>
#include <utility>

#include "bytes.h"

namespace zfiles {

// Owns a descriptor.
class ScopedFd {
public:
    explicit ScopedFd(int fd = -1) : fd_(fd) {}
    ScopedFd(ScopedFd const&) = delete;
    ScopedFd& operator=(ScopedFd const&) = delete;
    ~ScopedFd() { close(); }

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }
    void reset(int fd);
    int close();
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

template <class Call>
int retryOnEintr(Call call)
{
    while (call() < 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

inline bool isSameFile(struct stat const& a, struct stat const& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// Waits until contents and metadata are durable. Succeeds on a file system that cannot sync.
int syncFile(int fd);

/// Waits until contents and length are durable, but not the times.
int syncContents(int fd);

/// Reads the file from its start to its end: EFBIG if it has more than `limit` bytes.
/// throws  std::bad_alloc.
int readAll(int fd, size_t limit, Bytes& out);

/// As readAll(), for a file that probably has `size` bytes.
int readAll(int fd, size_t size, size_t limit, Bytes& out);

int writeAll(int fd, std::string_view bytes);

/// Writes at `offset`. Adds the count of written bytes to `*written`, even if a later call fails.
int writeAllAt(int fd, std::string_view bytes, off_t offset, size_t* written = nullptr);

int truncateFile(int fd, size_t length);

}  // namespace zfiles
