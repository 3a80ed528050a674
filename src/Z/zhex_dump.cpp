#include "zhex_dump.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <new>

#include "ZLock.h"
#include "memory/malloc_ptr.h"
#include "reporting/cancellation.h"
#include "reporting/stream.h"

namespace {

constexpr int kBytesPerLine = 16;
constexpr int kBytesPerGroup = 8;
// "\n", at most 8 digits and a space, two spaces between groups, three characters per byte, "  *",
// the column and "*".
constexpr size_t kMaxLineSize = 1 + 8 + 1 + 2 + 3 * kBytesPerLine + 3 + kBytesPerLine + 1;

// The largest buffer: holds the dump of some 200,000 bytes. A dump takes five times as much memory
// as its data.
constexpr size_t kMaxBufferSize = 1 << 20;

constexpr char kDigits[] = "0123456789abcdef";

// Returns the lock that keeps dumps apart: created by the first dump, never destroyed.
ZLock_6_0& dumpLock()
{
    alignas(ZLock_6_0) static unsigned char storage[sizeof(ZLock_6_0)];
    static ZLock_6_0& lock = *new (storage) ZLock_6_0;
    return lock;
}

// The buffer of a dump: large enough for all of it, so that it is written in one call, unless it is
// very long. Without memory it holds one line.
class Output {
public:
    Output(FILE* stream, size_t size)
        : stream_(stream),
          capacity_(std::min(size, kMaxBufferSize)),
          block_(static_cast<char*>(malloc(capacity_))),
          text_(block_.get())
    {
        if (block_ == nullptr) {
            text_ = line_;
            capacity_ = sizeof line_;
        }
    }
    Output(Output const&) = delete;
    Output& operator=(Output const&) = delete;

    void add(char const* bytes, size_t count)
    {
        while (count > capacity_ - used_) {
            size_t const part = capacity_ - used_;
            memcpy(text_ + used_, bytes, part);
            used_ = capacity_;
            flush();
            bytes += part;
            count -= part;
        }
        memcpy(text_ + used_, bytes, count);
        used_ += count;
    }

    // Returns space for a line; commit() accounts for the bytes written there.
    char* line()
    {
        if (capacity_ - used_ < kMaxLineSize)
            flush();
        return text_ + used_;
    }
    void commit(char const* end) { used_ = static_cast<size_t>(end - text_); }

    void flush()
    {
        if (used_ > 0)
            zreporting::write(stream_, text_, used_);
        used_ = 0;
    }

private:
    FILE* const stream_;
    size_t capacity_;
    zmemory::MallocPtr<char> const block_;
    char* text_;  // the block, or without memory the line
    char line_[kMaxLineSize];
    size_t used_ = 0;
};

char* putOffset(char* to, unsigned offset)
{
    int shift = 12;
    while (shift < 28 && offset >> (shift + 4) != 0)
        shift += 4;
    for (; shift >= 0; shift -= 4)
        *to++ = kDigits[offset >> shift & 0xF];
    return to;
}

char printable(unsigned char byte)
{
    // KEPT: bytes 127 to 253 are written verbatim. A reader of a dump of local text would see dots
    // in place of its letters. Test: zhex_dump.KeepsTheUpperHalfLegible
    return byte >= 32 && byte <= 253 ? static_cast<char>(byte) : '.';
}

// Writes the line of `count` bytes, 1 to 16, at `offset`.
char* putLine(char* to, unsigned offset, unsigned char const* data, int count)
{
    char column[kBytesPerLine];
    memset(column, ' ', sizeof column);
    *to++ = '\n';
    to = putOffset(to, offset);
    *to++ = ' ';
    for (int i = 0; i < kBytesPerLine; ++i) {
        if (i % kBytesPerGroup == 0)
            *to++ = ' ';
        *to++ = ' ';
        if (i < count) {
            *to++ = kDigits[data[i] >> 4];
            *to++ = kDigits[data[i] & 0xF];
            column[i] = printable(data[i]);
        } else {
            *to++ = ' ';
            *to++ = ' ';
        }
    }
    memcpy(to, "  *", 3);
    memcpy(to + 3, column, sizeof column);
    to[3 + sizeof column] = '*';
    return to + 3 + sizeof column + 1;
}

}  // namespace

void zhex_dump_6_0(FILE* stream, int length, unsigned char const* data, char const* title)
{
    ZResourceLock_6_0 const guard(dumpLock());
    zreporting::CancelGuard const uncancelled;
    size_t const lines = length > 0 ? (static_cast<size_t>(length) + 15) / kBytesPerLine : 0;
    size_t const titleLength = title != nullptr ? strlen(title) : 0;
    Output output(stream != nullptr ? stream : stderr, lines * kMaxLineSize + titleLength + 4);
    if (title != nullptr) {
        output.add("\n\t", 2);
        output.add(title, titleLength);
        output.add("\n", 1);
    }
    for (int at = 0; at < length; at += kBytesPerLine) {
        int const left = length - at;
        output.commit(putLine(output.line(), static_cast<unsigned>(at), data + at,
                              left < kBytesPerLine ? left : kBytesPerLine));
        if (left <= kBytesPerLine)
            break;  // one more step could overflow an int
    }
    output.add("\n", 1);
    output.flush();
}
