// slot_pool: a pool of records in one block, addressed by index, with a free list.
#pragma once

#include <stdlib.h>
#include <string.h>

#include <utility>

#include "../stanza/raise_sites.h"
#include "ids.h"
#include "memory.h"

namespace zcache {

// Ids start at 1. Records are plain values: growing moves them with realloc().
template <class Record>
class SlotPool {
public:
    SlotPool() = default;
    SlotPool(SlotPool const&) = delete;
    SlotPool& operator=(SlotPool const&) = delete;
    ~SlotPool() { ::free(records_); }

    /// Copies `other` into this empty pool.
    void copy(SlotPool const& other)
    {
        if (other.size_ == 0)
            return;
        setCapacity(other.size_);
        memcpy(static_cast<void*>(records_), other.records_, other.size_ * sizeof(Record));
        size_ = other.size_;
        free_ = other.free_;
        freeCount_ = other.freeCount_;
    }

    Record& operator[](Id id) { return records_[size_t{id} - 1]; }
    Record const& operator[](Id id) const { return records_[size_t{id} - 1]; }

    /// Ensures that the next `count` calls of allocate() do not throw.
    void reserve(size_t count)
    {
        if (capacity_ - size_ + freeCount_ < count)
            grow(count);
    }

    /// Returns the id of a new record, all bytes zero. Does not throw after reserve().
    Id allocate()
    {
        Id id = free_;
        if (id != 0) {
            memcpy(&free_, static_cast<void const*>(&(*this)[id]), sizeof free_);
            --freeCount_;
        } else {
            if (size_ == capacity_)
                grow(1);
            id = ++size_;
        }
        memset(static_cast<void*>(&(*this)[id]), 0, sizeof(Record));
        return id;
    }

    void free(Id id)
    {
        memcpy(static_cast<void*>(&(*this)[id]), &free_, sizeof free_);
        free_ = id;
        ++freeCount_;
    }

    /// Returns the number of records in use.
    size_t count() const { return size_ - freeCount_; }

    /// Returns a number above the id of every record.
    Id end() const { return size_ + 1; }

    size_t capacity() const { return capacity_; }
    size_t bytes() const { return size_t{capacity_} * sizeof(Record); }

    /// Frees the memory of the slots from `end` on.
    /// range   no record from `end` on is in use.
    void truncate(Id end)
    {
        Id id = std::exchange(free_, 0);
        freeCount_ = 0;
        while (id != 0) {
            Id const slot = id;
            memcpy(&id, static_cast<void const*>(&(*this)[slot]), sizeof id);
            if (slot < end)
                free(slot);
        }
        size_ = end <= size_ ? end - 1 : size_;
        shrinkToFit();
    }

    /// Frees unused capacity if it is more than a sixteenth.
    void shrinkToFit()
    {
        if (count() == 0) {
            ::free(std::exchange(records_, nullptr));
            capacity_ = size_ = free_ = freeCount_ = 0;
        } else if (capacity_ - size_ > capacity_ / 16) {
            void* const block = realloc(static_cast<void*>(records_), size_ * sizeof(Record));
            if (block != nullptr) {
                records_ = static_cast<Record*>(block);
                capacity_ = size_;
            }
        }
    }

    void swap(SlotPool& other)
    {
        std::swap(records_, other.records_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
        std::swap(free_, other.free_);
        std::swap(freeCount_, other.freeCount_);
    }

private:
    void grow(size_t count)
    {
        size_t const needed = size_ + count;
        size_t const wanted = size_t{capacity_} + capacity_ / 2;
        setCapacity(needed > wanted ? needed : wanted);
    }

    void setCapacity(size_t wanted)
    {
        if (wanted > kMaxRecords)
            zstanza::throwOutOfMemory();
        wanted = wanted < kMinCapacity ? kMinCapacity : wanted;
        records_ =
            static_cast<Record*>(reallocate(static_cast<void*>(records_), wanted * sizeof(Record)));
        capacity_ = static_cast<Id>(wanted);
    }

    static constexpr size_t kMinCapacity = 8;

    Record* records_ = nullptr;
    Id capacity_ = 0;
    Id size_ = 0;  // slots in use or free
    Id free_ = 0;  // head of the free list; each free slot holds the next one
    Id freeCount_ = 0;
};

}  // namespace zcache
