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

/// Maps tokens to open objects. A token has the type of a pointer, but is not an address, and is
/// never used twice: it consists of the index of the object's slot and the slot's generation. While
/// the object is open, the slot has the same generation. A token of a closed object or of another
/// table, and an arbitrary pointer, is detected without reading freed memory.
///
///     token:      1 | generation (31 bits) | slot (30 bits) | tag (2 bits)
///     slot state: live (1 bit) | generation (31 bits) | users (32 bits)
///
/// The highest bit of a token is set, so that no address of a process is a token.
/// Threads: any. An object that is closed while it is used is destroyed at the end of its last use.
template <class Object>
class ZHandleTable {
public:
    explicit constexpr ZHandleTable(uint32_t tag) : tag_(tag) {}
    ZHandleTable(ZHandleTable const&) = delete;
    ZHandleTable& operator=(ZHandleTable const&) = delete;

    struct Slot {
        std::atomic<uint64_t> state{0};
        Object* object = nullptr;
        Slot* nextFree = nullptr;
        uint32_t index = 0;
    };

    // Pins an object in this scope: it is not destroyed before.
    class Use {
    public:
        Use(ZHandleTable& table, Slot* slot) : table_(table), slot_(slot) {}
        Use(Use const&) = delete;
        Use& operator=(Use const&) = delete;
        ~Use()
        {
            if (slot_ != nullptr)
                table_.leave(*slot_);
        }

        explicit operator bool() const { return slot_ != nullptr; }
        Object& operator*() const { return *slot_->object; }
        Object* operator->() const { return slot_->object; }

    private:
        ZHandleTable& table_;
        Slot* const slot_;  // null: no open object has the token
    };

    /// Inserts `object` and returns its token.
    /// throws  std::bad_alloc; `object` is destroyed then.
    Object* enter(std::unique_ptr<Object> object)
    {
        Slot& slot = takeSlot();
        uint64_t const live = slot.state.load(std::memory_order_relaxed) | kLive;
        slot.object = object.release();
        slot.state.store(live, std::memory_order_release);
        uint64_t const token = (live & kNameBits) | (uint64_t{slot.index} << kTagBits) | tag_;
        return reinterpret_cast<Object*>(static_cast<uintptr_t>(token));
    }

    /// Pins the object with the token `token`.
    Use use(Object const* token)
    {
        return Use(*this, change(token, [](uint64_t state) { return state + 1; }));
    }

    /// Closes the object with the token `token`. The object is destroyed at the end of its last
    /// use. Returns false if there is no such object.
    bool retire(Object const* token)
    {
        return bool(Use(*this, change(token, [](uint64_t state) { return (state & ~kLive) + 1; })));
    }

    // Returns the slot with this index, which must have been used before; for tests.
    Slot& slotAt(uint32_t index)
    {
        return chunks_[index / kChunkSize].load(std::memory_order_acquire)[index % kChunkSize];
    }

private:
    static constexpr uint64_t kLive = uint64_t{1} << 63;
    static constexpr uint64_t kNameBits = ~uint64_t{0} << 32;
    static constexpr uint64_t kUserBits = ~kNameBits;
    static constexpr uint64_t kNextGeneration = uint64_t{1} << 32;
    static constexpr unsigned kTagBits = 2;
    static constexpr uint32_t kChunkSize = 256;
    static constexpr uint32_t kChunks = 4096;

    // Applies `step` atomically to the state of the token's slot and returns the slot; null if no
    // open object has the token.
    template <class Step>
    Slot* change(Object const* token, Step step)
    {
        auto const word = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(token));
        auto const index = static_cast<uint32_t>(word & kUserBits) >> kTagBits;
        if ((word & kLive) == 0 || (word & ((1u << kTagBits) - 1)) != tag_ ||
            index / kChunkSize >= kChunks)
            return nullptr;
        Slot* const chunk = chunks_[index / kChunkSize].load(std::memory_order_acquire);
        if (chunk == nullptr)
            return nullptr;
        Slot& slot = chunk[index % kChunkSize];
        uint64_t state = slot.state.load(std::memory_order_relaxed);
        do {
            if ((state & kNameBits) != (word & kNameBits))
                return nullptr;
        } while (!slot.state.compare_exchange_weak(state, step(state), std::memory_order_acquire,
                                                   std::memory_order_relaxed));
        return &slot;
    }

    void leave(Slot& slot)
    {
        uint64_t const before = slot.state.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & kLive) != 0 || (before & kUserBits) != 1)
            return;
        destroy(slot.object);
        slot.object = nullptr;
        uint64_t const next = (before + kNextGeneration) & kNameBits & ~kLive;
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

    Slot& takeSlot()
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
