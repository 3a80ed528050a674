#include "limits.h"

#include <atomic>

namespace zstore {

namespace {

std::atomic<size_t> limit{kDefaultMaxFileSize};

// The companion, at most 257 MiB, its path and the header.
constexpr size_t kRest = size_t{258} << 20;

}  // namespace

size_t maxFileSize()
{
    return limit.load(std::memory_order_relaxed);
}

void setMaxFileSize(size_t size)
{
    limit.store(size, std::memory_order_relaxed);
}

size_t maxJournalSize()
{
    size_t const text = maxFileSize();
    return text > (~size_t{0} - kRest) / 2 ? ~size_t{0} : 2 * text + kRest;
}

}  // namespace zstore
