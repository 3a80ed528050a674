// Memory of a cache: blocks, texts and the tables that find names.

#include <errno.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "ZException.h"
#include "ZPropertiesImpl_p.h"

namespace cache {

namespace {

constexpr char kSource[] = "src/Z/ZPropertiesImpl";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite { raiseInAllocate = 61 };

constexpr size_t kFirstChunk = 512;        // room for texts that are set one by one,
constexpr size_t kLargestChunk = 1 << 20;  // doubled from chunk to chunk
constexpr size_t kWorthLargePages = 1 << 22;

// Two secret numbers of the process.
struct Secret {
    uint64_t one;
    uint64_t two;
};

Secret secret()
{
    static std::atomic<uint64_t> one;
    static std::atomic<uint64_t> two;
    uint64_t first = one.load(std::memory_order_acquire);
    if (first == 0) {
        uint64_t drawn[2];
        if (getrandom(drawn, sizeof drawn, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof drawn)) {
            // Without random bytes, where things lie and the time must do.
            timespec now = {};
            clock_gettime(CLOCK_MONOTONIC, &now);
            drawn[0] = reinterpret_cast<uintptr_t>(&drawn) * 0x9E3779B97F4A7C15u;
            drawn[1] = static_cast<uint64_t>(now.tv_nsec) * 0xD6E8FEB86659FD93u ^
                       static_cast<uint64_t>(now.tv_sec);
        }
        // `two` goes first: who sees `one` sees both. Whoever draws first decides.
        uint64_t none = 0;
        two.compare_exchange_strong(none, drawn[1] | 1);
        none = 0;
        one.compare_exchange_strong(none, drawn[0] | 1);
        first = one.load();
    }
    return {first, two.load(std::memory_order_relaxed)};
}

__extension__ using Wide = unsigned __int128;

uint64_t mix(uint64_t a, uint64_t b)
{
    Wide const product = static_cast<Wide>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint64_t read8(char const* at)
{
    uint64_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

uint64_t read4(char const* at)
{
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

// Lets the system back a large block with large pages: it is touched all over, and to be given it
// in small pages takes longer than to fill it. The pages at its ends are asked for as well: a
// mapping of which only a part is advised is two, and cannot grow without being copied.
void preferLargePages(void* block, size_t size)
{
    if (size < kWorthLargePages)
        return;
    size_t const page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    uintptr_t const begin = reinterpret_cast<uintptr_t>(block) & ~(page - 1);
    uintptr_t const end = (reinterpret_cast<uintptr_t>(block) + size + page - 1) & ~(page - 1);
    int const before = errno;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);  // advice: it may fail
    errno = before;
}

}  // namespace

void raiseOutOfMemory()
{
    ZOutOfMemoryException_6_0().throwException(kSource, raiseInAllocate);
}

void* reallocate(void* block, size_t size)
{
    void* const moved = realloc(block, size);
    if (moved == nullptr)
        raiseOutOfMemory();
    preferLargePages(moved, size);
    return moved;
}

std::string_view checkedView(char const* text)
{
    if (text == nullptr)
        return "";
    size_t const length = strlen(text);
    if (length > kLongestText)
        raiseOutOfMemory();
    return {text, length};
}

uint32_t hashOf(std::string_view text, uint32_t salt)
{
    Secret const key = secret();
    char const* at = text.data();
    size_t left = text.size();
    uint64_t state = mix(key.one ^ salt, key.two);
    for (; left > 16; left -= 16, at += 16)
        state = mix(read8(at) ^ key.one, read8(at + 8) ^ state);
    // The last 16 bytes, or what there is of them, make two words.
    uint64_t low = 0;
    uint64_t high = 0;
    if (left >= 8) {
        low = read8(at);
        high = read8(at + left - 8);
    } else if (left >= 4) {
        low = read4(at);
        high = read4(at + left - 4);
    } else if (left > 0) {
        auto const* const bytes = reinterpret_cast<unsigned char const*>(at);
        low = static_cast<uint64_t>(bytes[0]) << 16 | static_cast<uint64_t>(bytes[left / 2]) << 8 |
              bytes[left - 1];
    }
    return static_cast<uint32_t>(mix(low ^ key.one ^ text.size(), mix(high ^ state, key.two)) >>
                                 32);
}

// --- Index

void Index::copy(Index const& other)
{
    if (other.size_ == 0)
        return;
    slots_ = static_cast<Slot*>(reallocate(nullptr, other.size_ * sizeof(Slot)));
    memcpy(slots_, other.slots_, other.size_ * sizeof(Slot));
    size_ = other.size_;
    count_ = other.count_;
    most_ = other.most_;
}

void Index::put(Slot* slots, size_t size, size_t at, Slot slot)
{
    while (slots[at].id != 0)
        at = at + 1 == size ? 0 : at + 1;
    slots[at] = slot;
}

void Index::add(uint32_t hash, Id id)
{
    reserve(1);
    put(slots_, size_, home(hash), {hash, id});
    ++count_;
}

size_t Index::find(uint32_t hash, Id id) const
{
    size_t at = home(hash);
    while (slots_[at].id != id)
        at = next(at);
    return at;
}

void Index::remove(uint32_t hash, Id id)
{
    size_t gap = find(hash, id);
    // What follows moves up into the gap, unless its search begins behind the gap.
    for (size_t at = next(gap); slots_[at].id != 0; at = next(at)) {
        size_t const begin = home(slots_[at].hash);
        bool const beginsBehind =
            gap < at ? gap < begin && begin <= at : gap < begin || begin <= at;
        if (!beginsBehind) {
            slots_[gap] = slots_[at];
            gap = at;
        }
    }
    slots_[gap].id = 0;
    --count_;
}

namespace {

// Returns the slots that so many ids need: at most five of eight are in use, and one of four in a
// small table, where nearly every id is found at once and the room does not count.
size_t slotsFor(size_t count)
{
    constexpr size_t kFew = 1024;
    return (count <= kFew ? count * 4 : count * 8 / 5) + 1;
}

}  // namespace

void Index::grow(size_t count)
{
    size_t const needed = slotsFor(count_ + count);
    size_t const size = needed > size_ * 2 ? needed : size_ * 2;
    if (!resize(size < 8 ? 8 : size))
        raiseOutOfMemory();
}

void Index::fit()
{
    if (count_ == 0) {
        free(std::exchange(slots_, nullptr));
        size_ = most_ = 0;
    } else if (size_ > 2 * slotsFor(count_)) {
        resize(slotsFor(count_) + 8);  // where there is no memory for it, it stays as large
    }
}

// Moves to a table of `size` slots. Returns false when there is no memory for it.
bool Index::resize(size_t size)
{
    auto* const slots = static_cast<Slot*>(calloc(size, sizeof(Slot)));
    if (slots == nullptr)
        return false;
    preferLargePages(slots, size * sizeof(Slot));
    for (size_t i = 0; i < size_; ++i) {
        Slot const slot = slots_[i];
        if (slot.id != 0)
            put(slots, size, static_cast<size_t>((static_cast<uint64_t>(slot.hash) * size) >> 32),
                slot);
    }
    free(slots_);
    slots_ = slots;
    size_ = size;
    most_ = size * 7 / 10;
    return true;
}

void Index::swap(Index& other)
{
    std::swap(slots_, other.slots_);
    std::swap(size_, other.size_);
    std::swap(count_, other.count_);
    std::swap(most_, other.most_);
}

// --- Arena

void Arena::Block::setRoom(size_t room)
{
    chunk_ = static_cast<Chunk*>(reallocate(chunk_, sizeof(Chunk) + room));
    room_ = room;
}

void Arena::addChunk(size_t bytes)
{
    size_t size = chunks_ == nullptr ? kFirstChunk : bytes_;
    size = size > kLargestChunk ? kLargestChunk : size;
    size = size < bytes ? bytes : size;
    freeWindows(size);
    auto* const chunk = static_cast<Chunk*>(reallocate(nullptr, sizeof(Chunk) + size));
    enter(chunk, size);
    filling_ = chunk;
    dead_ += static_cast<size_t>(end_ - next_);  // what is left of the last one
    next_ = chunk->begin();
    end_ = next_ + size;
}

// Returns the first of as many windows in a row as `bytes` need, none of them in use, and makes
// sure that they are in the table.
uint32_t Arena::freeWindows(size_t bytes)
{
    size_t const needed = (bytes - 1) / kWindow + 1;
    size_t first = 1;
    for (size_t i = first; i < windowCount_ && i < first + needed; ++i)
        if (windows_[i] != 0)
            first = i + 1;
    size_t const end = first + needed;
    if (end > kMostWindows)
        raiseOutOfMemory();
    if (end > windowCount_) {
        windows_ = static_cast<uintptr_t*>(reallocate(windows_, end * sizeof(windows_[0])));
        while (windowCount_ < end)
            windows_[windowCount_++] = 0;
    }
    return static_cast<uint32_t>(first);
}

// Enters a chunk of `bytes`. Never raises after freeWindows().
void Arena::enter(Chunk* chunk, size_t bytes)
{
    chunk->window = freeWindows(bytes);
    chunk->size = static_cast<uint32_t>(bytes);
    chunk->next = chunks_;
    chunks_ = chunk;
    bytes_ += bytes;
    setWindows(chunk, reinterpret_cast<uintptr_t>(chunk->begin()) - chunk->placeOf(chunk->begin()));
}

void Arena::setWindows(Chunk const* chunk, uintptr_t address)
{
    for (size_t i = 0; i * kWindow < chunk->size; ++i)
        windows_[chunk->window + i] = address;
}

void Arena::adopt(Block& block, size_t bytes)
{
    reserveBlock(bytes);
    adopted_ = std::exchange(block.chunk_, nullptr);
    block.room_ = 0;
    enter(adopted_, bytes);
    deadBefore_ = dead_;
}

void Arena::dropAdopted(size_t dead)
{
    for (Chunk** at = &chunks_; *at != nullptr; at = &(*at)->next) {
        if (*at == adopted_) {
            *at = adopted_->next;
            bytes_ -= adopted_->size;
            setWindows(adopted_, 0);
            free(adopted_);
            break;
        }
    }
    adopted_ = nullptr;
    dead_ = deadBefore_ + dead;
}

void Arena::clear()
{
    while (chunks_ != nullptr)
        free(std::exchange(chunks_, chunks_->next));
    free(std::exchange(windows_, nullptr));
    windowCount_ = 0;
    filling_ = adopted_ = nullptr;
    next_ = end_ = nullptr;
    bytes_ = dead_ = 0;
}

void Arena::swap(Arena& other)
{
    std::swap(chunks_, other.chunks_);
    std::swap(windows_, other.windows_);
    std::swap(windowCount_, other.windowCount_);
    std::swap(filling_, other.filling_);
    std::swap(next_, other.next_);
    std::swap(end_, other.end_);
    std::swap(bytes_, other.bytes_);
    std::swap(dead_, other.dead_);
    std::swap(adopted_, other.adopted_);
    std::swap(deadBefore_, other.deadBefore_);
}

}  // namespace cache
