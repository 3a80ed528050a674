// handle_table: maps the tokens that callers hold to open objects, and detects tokens of closed
// ones.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

#include "../reporting/failures.h"

namespace zhandles {

/// Maps tokens to open objects. A token has the type of a pointer, but is not an address, and is
/// never used twice: it consists of the index of the object's slot and the slot's generation. While
/// the object is open, the slot has the same generation. A token of a closed object or of another
/// table, and an arbitrary pointer, is detected without reading freed memory.
///
///     token:      1 | generation (31 bits) | slot (30 bits) | tag (2 bits)
///     slot state: open (1 bit) | generation (31 bits) | pins (32 bits)
///
/// The highest bit of a token is set, so that no address of a process is a token.
/// Threads: any. An object that is closed while it is pinned is destroyed with its last pin.
template <class Object>
class HandleTable {
public:
    explicit constexpr HandleTable(uint32_t tag) : tag_(tag) {}
    HandleTable(HandleTable const&) = delete;
    HandleTable& operator=(HandleTable const&) = delete;

    struct Slot {
        std::atomic<uint64_t> state{0};
        Object* object = nullptr;
        Slot* nextFree = nullptr;
        uint32_t index = 0;
    };

    // Pins an object in this scope, so that close() does not destroy it.
    class Pin {
    public:
        Pin(HandleTable& table, Slot* slot) : table_(table), slot_(slot) {}
        Pin(Pin const&) = delete;
        Pin& operator=(Pin const&) = delete;
        ~Pin()
        {
            if (slot_ != nullptr)
                table_.unpin(*slot_);
        }

        explicit operator bool() const { return slot_ != nullptr; }
        Object& operator*() const { return *slot_->object; }
        Object* operator->() const { return slot_->object; }

    private:
        HandleTable& table_;
        Slot* const slot_;  // null: no open object has the token
    };

    /// Inserts `object` and returns its token.
    /// throws  std::bad_alloc; `object` is destroyed then.
    Object* insert(std::unique_ptr<Object> object)
    {
        Slot& slot = allocateSlot();
        uint64_t const open = slot.state.load(std::memory_order_relaxed) | kOpen;
        slot.object = object.release();
        slot.state.store(open, std::memory_order_release);
        uint64_t const token = (open & kGenerationBits) | (uint64_t{slot.index} << kTagBits) | tag_;
        return reinterpret_cast<Object*>(static_cast<uintptr_t>(token));
    }

    /// Pins the object with the token `token`.
    Pin pin(Object const* token)
    {
        return Pin(*this, update(token, [](uint64_t state) { return state + 1; }));
    }

    /// Closes the object with the token `token`. The object is destroyed with its last pin.
    /// Returns false if there is no such object.
    bool close(Object const* token)
    {
        return bool(Pin(*this, update(token, [](uint64_t state) { return (state & ~kOpen) + 1; })));
    }

    // Returns the slot with this index, which must have been used before; for tests.
    Slot& slotAt(uint32_t index)
    {
        return chunks_[index / kChunkSize].load(std::memory_order_acquire)[index % kChunkSize];
    }

private:
    static constexpr uint64_t kOpen = uint64_t{1} << 63;
    static constexpr uint64_t kGenerationBits = ~uint64_t{0} << 32;
    static constexpr uint64_t kPinBits = ~kGenerationBits;
    static constexpr uint64_t kNextGeneration = uint64_t{1} << 32;
    static constexpr unsigned kTagBits = 2;
    static constexpr uint32_t kChunkSize = 256;
    static constexpr uint32_t kChunks = 4096;

    // Applies `step` atomically to the state of the token's slot and returns the slot; null if no
    // open object has the token.
    template <class Step>
    Slot* update(Object const* token, Step step)
    {
        auto const word = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(token));
        auto const index = static_cast<uint32_t>(word) >> kTagBits;
        if ((word & kOpen) == 0 || (word & ((1u << kTagBits) - 1)) != tag_ ||
            index / kChunkSize >= kChunks)
            return nullptr;
        Slot* const chunk = chunks_[index / kChunkSize].load(std::memory_order_acquire);
        if (chunk == nullptr)
            return nullptr;
        Slot& slot = chunk[index % kChunkSize];
        uint64_t state = slot.state.load(std::memory_order_relaxed);
        do {
            if ((state & kGenerationBits) != (word & kGenerationBits))
                return nullptr;
        } while (!slot.state.compare_exchange_weak(state, step(state), std::memory_order_acquire,
                                                   std::memory_order_relaxed));
        return &slot;
    }

    void unpin(Slot& slot)
    {
        uint64_t const before = slot.state.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & kOpen) != 0 || (before & kPinBits) != 1)
            return;
        destroy(slot.object);
        slot.object = nullptr;
        uint64_t const next = (before + kNextGeneration) & kGenerationBits & ~kOpen;
        slot.state.store(next, std::memory_order_relaxed);
        if (next == 0)
            return;  // all generations of the slot are used: leave it out of the free list
        std::lock_guard<std::mutex> const guard(mutex_);
        slot.nextFree = free_;
        free_ = &slot;
    }

    // Reports the exception of an iterator that cannot release its lock: the callers do not expect
    // exceptions.
    static void destroy(Object* object) noexcept
    {
        constexpr zreporting::Site kSite = {"src/Z/zproperties_c", 208};
        zreporting::runCleanup(kSite, [object] { delete object; });
    }

    Slot& allocateSlot()
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (free_ == nullptr)
            addChunk();
        Slot& slot = *free_;
        free_ = slot.nextFree;
        return slot;
    }

    void addChunk()
    {
        if (chunkCount_ == kChunks)
            throw std::bad_alloc();
        Slot* const chunk = new Slot[kChunkSize];
        for (uint32_t i = kChunkSize; i-- > 0;) {
            chunk[i].index = chunkCount_ * kChunkSize + i;
            chunk[i].nextFree = free_;
            free_ = &chunk[i];
        }
        chunks_[chunkCount_++].store(chunk, std::memory_order_release);
    }

    uint32_t const tag_;                       // distinguishes the tokens of the tables
    std::atomic<Slot*> chunks_[kChunks] = {};  // never freed: tokens outlive their objects
    std::mutex mutex_;
    uint32_t chunkCount_ = 0;  // guarded by mutex_
    Slot* free_ = nullptr;     // guarded by mutex_
};

}  // namespace zhandles
