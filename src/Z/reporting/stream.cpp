#include "stream.h"

#include <errno.h>
#include <wchar.h>

#include "cancellation.h"

namespace zreporting {

namespace {

// Locks a stream in this scope.
class StreamGuard {
public:
    explicit StreamGuard(FILE* stream) : stream_(stream) { flockfile(stream_); }
    StreamGuard(StreamGuard const&) = delete;
    StreamGuard& operator=(StreamGuard const&) = delete;
    ~StreamGuard() { funlockfile(stream_); }

private:
    FILE* const stream_;
};

// Writes all pieces, or until the descriptor reports an error.
void writeToDescriptor(int fd, iovec* pieces, int count)
{
    while (count > 0) {
        ssize_t const written = writev(fd, pieces, count);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return;
        auto done = static_cast<size_t>(written);
        while (count > 0 && done >= pieces->iov_len) {
            done -= pieces->iov_len;
            ++pieces;
            --count;
        }
        if (count > 0) {
            pieces->iov_base = static_cast<char*>(pieces->iov_base) + done;
            pieces->iov_len -= done;
        }
    }
}

void writeToStream(FILE* stream, char const* bytes, size_t count)
{
    if (fwide(stream, 0) <= 0) {
        fwrite(bytes, 1, count, stream);
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        wint_t const character = btowc(static_cast<unsigned char>(bytes[i]));
        fputwc(character != WEOF ? static_cast<wchar_t>(character) : L'?', stream);
    }
}

}  // namespace

void writeNow(FILE* stream, iovec* pieces, int count)
{
    // writev() is a cancellation point, and a destructor may report.
    CancelGuard const uncancelled;
    StreamGuard const guard(stream);
    int const fd = fileno(stream);
    if (fd >= 0) {
        fflush(stream);
        writeToDescriptor(fd, pieces, count);
    } else {
        for (int i = 0; i < count; ++i)
            writeToStream(stream, static_cast<char const*>(pieces[i].iov_base), pieces[i].iov_len);
    }
}

void write(FILE* stream, char const* bytes, size_t count)
{
    if (fwide(stream, 0) > 0) {
        iovec piece = {const_cast<char*>(bytes), count};
        writeNow(stream, &piece, 1);
    } else {
        fwrite(bytes, 1, count, stream);
    }
}

}  // namespace zreporting
