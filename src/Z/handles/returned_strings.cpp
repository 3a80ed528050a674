#include "returned_strings.h"

#include <stdint.h>
#include <stdlib.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_set>

namespace zhandles {
namespace {

// The block of a returned string: the header word, then the string.
constexpr uint32_t kStringMagic = 0xc0ffeeee;
static_assert(kStringHeaderSize == sizeof kStringMagic);

// The set of returned strings that are not yet released. An address hashes to a bucket of eight
// slots and is stored with one atomic exchange; if the bucket is full, it goes to an overflow set
// under a mutex. Addresses are stored inverted, so that a leak checker does not take them for
// references.
class LiveStrings {
public:
    constexpr LiveStrings() = default;

    // Returns false if memory is exhausted.
    bool add(void const* text) noexcept
    {
        uintptr_t const address = ~reinterpret_cast<uintptr_t>(text);
        for (std::atomic<uintptr_t>& slot : bucketOf(address).slots) {
            uintptr_t expected = kFree;
            if (slot.load(std::memory_order_relaxed) == kFree &&
                slot.compare_exchange_strong(expected, address, std::memory_order_relaxed))
                return true;
        }
        std::lock_guard<std::mutex> const guard(mutex_);
        try {
            if (overflow_ == nullptr)
                overflow_ = new std::unordered_set<uintptr_t>;
            overflow_->insert(address);
        } catch (std::bad_alloc const&) {
            return false;
        }
        overflowCount_.store(overflow_->size(), std::memory_order_relaxed);
        return true;
    }

    // Returns false if the set does not contain `text`.
    bool remove(void const* text) noexcept
    {
        uintptr_t const address = ~reinterpret_cast<uintptr_t>(text);
        for (std::atomic<uintptr_t>& slot : bucketOf(address).slots) {
            uintptr_t expected = address;
            if (slot.load(std::memory_order_relaxed) == address &&
                slot.compare_exchange_strong(expected, kFree, std::memory_order_relaxed))
                return true;
        }
        if (overflowCount_.load(std::memory_order_relaxed) == 0)
            return false;
        std::lock_guard<std::mutex> const guard(mutex_);
        bool const found = overflow_->erase(address) != 0;
        overflowCount_.store(overflow_->size(), std::memory_order_relaxed);
        return found;
    }

private:
    static constexpr uintptr_t kFree = 0;
    static constexpr size_t kBucketSize = 8;  // a cache line of addresses
    static constexpr unsigned kBucketBits = 9;

    struct alignas(64) Bucket {
        std::atomic<uintptr_t> slots[kBucketSize] = {};
    };

    Bucket& bucketOf(uintptr_t address)
    {
        // malloc() returns multiples of 16: the low bits are the same for all blocks.
        uint64_t const mixed = (static_cast<uint64_t>(address) >> 4) * 0x9E3779B97F4A7C15u;
        return buckets_[mixed >> (64 - kBucketBits)];
    }

    Bucket buckets_[size_t{1} << kBucketBits] = {};
    std::atomic<size_t> overflowCount_{0};
    std::mutex mutex_;
    std::unordered_set<uintptr_t>* overflow_ = nullptr;  // guarded by mutex_; never deleted
};

constinit LiveStrings liveStrings;

}  // namespace

char* newString(char const* text, size_t length) noexcept
{
    if (length > SIZE_MAX - kStringHeaderSize - 1)
        return nullptr;
    auto* const block = static_cast<char*>(malloc(kStringHeaderSize + length + 1));
    if (block == nullptr)
        return nullptr;
    std::memcpy(block + kStringHeaderSize, text, length);
    return adoptString(block, length);
}

char* adoptString(char* block, size_t length) noexcept
{
    char* const text = block + kStringHeaderSize;
    std::memcpy(block, &kStringMagic, kStringHeaderSize);
    text[length] = '\0';
    if (!liveStrings.add(text)) {
        free(block);
        return nullptr;
    }
    return text;
}

void freeString(char* text) noexcept
{
    if (text == nullptr || !liveStrings.remove(text))
        return;
    char* const block = text - kStringHeaderSize;
    uint32_t header = 0;
    std::memcpy(&header, block, kStringHeaderSize);
    // If the header was overwritten, the caller wrote before the string. The heap may be damaged:
    // leak the block rather than free it.
    if (header == kStringMagic)
        free(block);
}

}  // namespace zhandles
