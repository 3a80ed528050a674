#include "text_diff.h"

#include <limits.h>
#include <string.h>
#include <zlib.h>

#include <algorithm>

#include "../ZAdler32.h"

namespace zstore {

namespace {

// The bytes that one memcmp() compares. Where two blocks differ, smaller blocks follow.
constexpr size_t kBlockSizes[] = {4096, 256, 16};

}  // namespace

uint32_t checksum(std::string_view bytes, uint32_t crc)
{
    if (bytes.empty())
        return crc;
    return static_cast<uint32_t>(
        crc32_z(crc, reinterpret_cast<Bytef const*>(bytes.data()), bytes.size()));
}

uint32_t quickChecksum(std::string_view bytes)
{
    unsigned long sum = 1;
    while (!bytes.empty()) {
        size_t const length = std::min<size_t>(bytes.size(), UINT_MAX);
        sum = ZAdler32_6_0::adler32(sum, reinterpret_cast<unsigned char const*>(bytes.data()),
                                    static_cast<unsigned int>(length));
        bytes = dropPrefix(bytes, length);
    }
    return static_cast<uint32_t>(sum);
}

size_t commonPrefix(std::string_view a, std::string_view b)
{
    size_t const limit = std::min(a.size(), b.size());
    size_t n = 0;
    for (size_t const size : kBlockSizes)
        while (limit - n >= size && memcmp(a.data() + n, b.data() + n, size) == 0)
            n += size;
    while (n < limit && a[n] == b[n])
        ++n;
    return n;
}

size_t commonSuffix(std::string_view a, std::string_view b)
{
    char const* const endOfA = a.data() + a.size();
    char const* const endOfB = b.data() + b.size();
    size_t const limit = std::min(a.size(), b.size());
    size_t n = 0;
    for (size_t const size : kBlockSizes)
        while (limit - n >= size && memcmp(endOfA - n - size, endOfB - n - size, size) == 0)
            n += size;
    while (n < limit && *(endOfA - n - 1) == *(endOfB - n - 1))
        ++n;
    return n;
}

TextDiff::TextDiff(std::string_view oldText, std::string_view newText)
{
    prefix = commonPrefix(oldText, newText);
    oldMiddle = dropPrefix(oldText, prefix);
    newMiddle = dropPrefix(newText, prefix);
    size_t const common = commonSuffix(oldMiddle, newMiddle);
    if (oldText.size() == newText.size())
        suffix = common;
    else
        moved = dropPrefix(newMiddle, newMiddle.size() - common);
    oldMiddle = dropSuffix(oldMiddle, common);
    newMiddle = dropSuffix(newMiddle, common);
}

}  // namespace zstore
