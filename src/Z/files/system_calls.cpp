#include "system_calls.h"

#include <unistd.h>

#include <utility>

namespace zfiles {

void ScopedFd::reset(int fd)
{
    close();
    fd_ = fd;
}

int ScopedFd::close()
{
    int const fd = release();
    return fd >= 0 && ::close(fd) != 0 ? errno : 0;
}

int syncFile(int fd)
{
    int const error = retryOnEintr([fd] { return fsync(fd); });
    return error == EINVAL ? 0 : error;
}

int syncContents(int fd)
{
    int const error = retryOnEintr([fd] { return fdatasync(fd); });
    return error == EINVAL ? 0 : error;
}

int readAll(int fd, size_t limit, Bytes& out)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return errno;
    return readAll(fd, static_cast<size_t>(status.st_size), limit, out);
}

int readAll(int fd, size_t size, size_t limit, Bytes& out)
{
    if (size > limit)
        return EFBIG;
    // One byte more than the size, so that the same call finds the end.
    size_t capacity = size + 1;
    Bytes bytes(capacity);
    size_t length = 0;
    for (;;) {
        if (length == capacity)
            bytes.grow(capacity *= 2);
        ssize_t const n =
            pread(fd, bytes.data() + length, capacity - length, static_cast<off_t>(length));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        length += static_cast<size_t>(n);
        if (length > limit)
            return EFBIG;
        if (n == 0 || length == size)
            break;
    }
    bytes.setLength(length);
    out = std::move(bytes);
    return 0;
}

int writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t const n = write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? errno : EIO;
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return 0;
}

int writeAllAt(int fd, std::string_view bytes, off_t offset, size_t* written)
{
    while (!bytes.empty()) {
        ssize_t const n = pwrite(fd, bytes.data(), bytes.size(), offset);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? errno : EIO;
        bytes.remove_prefix(static_cast<size_t>(n));
        offset += n;
        if (written != nullptr)
            *written += static_cast<size_t>(n);
    }
    return 0;
}

int truncateFile(int fd, size_t length)
{
    return retryOnEintr([=] { return ftruncate(fd, static_cast<off_t>(length)); });
}

}  // namespace zfiles
