#include <stdlib.h>

#include <cstring>
#include <unordered_set>
#include <utility>

#include "zproperties_c_p.h"

namespace {

enum Tag : uint32_t { fileTag = 1, iteratorTag = 2 };

// The block of a returned string: the header word, then the string.
constexpr uint32_t kTextMagic = 0xc0ffeeee;
constexpr size_t kHeaderSize = sizeof kTextMagic;

// The set of returned strings that are not yet released. An address hashes to a bucket of eight
// slots and is stored with one atomic exchange; if the bucket is full, it goes to an overflow set
// under a mutex. Addresses are stored inverted, so that a leak checker does not take them for
// references.
class LiveTexts {
public:
    constexpr LiveTexts() = default;

    // Returns false if memory is exhausted.
    bool add(void const* text) noexcept
    {
        uintptr_t const address = ~reinterpret_cast<uintptr_t>(text);
        for (std::atomic<uintptr_t>& place : lineOf(address).places) {
            uintptr_t expected = kFree;
            if (place.load(std::memory_order_relaxed) == kFree &&
                place.compare_exchange_strong(expected, address, std::memory_order_relaxed))
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
        for (std::atomic<uintptr_t>& place : lineOf(address).places) {
            uintptr_t expected = address;
            if (place.load(std::memory_order_relaxed) == address &&
                place.compare_exchange_strong(expected, kFree, std::memory_order_relaxed))
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
    static constexpr size_t kPlaces = 8;  // a cache line of addresses
    static constexpr unsigned kLineBits = 9;

    struct alignas(64) Line {
        std::atomic<uintptr_t> places[kPlaces] = {};
    };

    Line& lineOf(uintptr_t address)
    {
        // malloc() returns multiples of 16: the low bits are the same for all blocks.
        uint64_t const mixed = (static_cast<uint64_t>(address) >> 4) * 0x9E3779B97F4A7C15u;
        return lines_[mixed >> (64 - kLineBits)];
    }

    Line lines_[size_t{1} << kLineBits] = {};
    std::atomic<size_t> overflowCount_{0};
    std::mutex mutex_;
    std::unordered_set<uintptr_t>* overflow_ = nullptr;  // guarded by mutex_; never deleted
};

constinit LiveTexts liveTexts;

}  // namespace

constinit ZHandleTable<ZPROP_handle> zpropFiles(fileTag);
constinit ZHandleTable<ZPROP_iter_handle> zpropIterators(iteratorTag);

ZPROP_handle::ZPROP_handle(ZPROPOpenMode openMode,
                           std::shared_ptr<ZStanzaFileProperties_6_0> openStore)
    : mode(openMode), store(std::move(openStore))
{
}

ZPROP_handle::~ZPROP_handle()
{
    mode = 0;
    first = 0;
    second = 0;
}

ZPROP_stz_handle::~ZPROP_stz_handle() = default;

ZPROP_iter_handle::ZPROP_iter_handle(ZPROPIterType iterType,
                                     std::shared_ptr<ZStanzaFileProperties_6_0> openStore)
    : type(iterType), store(std::move(openStore)), maker(pthread_self())
{
}

ZPROP_iter_handle::~ZPROP_iter_handle() noexcept(false)
{
    type = 0;
    first = 0;
    second = 0;
}

ZPROP_stz_iter_handle::ZPROP_stz_iter_handle(
    std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore, char const* stanza)
    : ZPROP_iter_handle(zpropOverKeys, openStore), entries(*openStore, stanza)
{
}

ZPROP_stz_iter_handle::~ZPROP_stz_iter_handle() = default;

ZPROP_stzvalue_iter_handle::ZPROP_stzvalue_iter_handle(
    std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore, char const* stanza,
    char const* keyName)
    : ZPROP_iter_handle(zpropOverValues, openStore),
      values(*openStore, stanza, keyName, zPropLocalStrings, zPropIterAny),
      key(keyName)
{
}

ZPROP_stzvalue_iter_handle::~ZPROP_stzvalue_iter_handle() = default;

char* zpropNewText(char const* text, size_t length) noexcept
{
    if (length > SIZE_MAX - kHeaderSize - 1)
        return nullptr;
    auto* const block = static_cast<char*>(malloc(kHeaderSize + length + 1));
    if (block == nullptr)
        return nullptr;
    char* const copy = block + kHeaderSize;
    std::memcpy(block, &kTextMagic, kHeaderSize);
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    if (!liveTexts.add(copy)) {
        free(block);
        return nullptr;
    }
    return copy;
}

void zpropFreeText(char* text) noexcept
{
    if (text == nullptr || !liveTexts.remove(text))
        return;
    char* const block = text - kHeaderSize;
    uint32_t header = 0;
    std::memcpy(&header, block, kHeaderSize);
    // If the header was overwritten, the caller wrote before the string. The heap may be damaged:
    // leak the block rather than free it.
    if (header == kTextMagic)
        free(block);
}
