// slot_pool: records in one block.
#pragma once

#include <stdlib.h>
#include <string.h>

#include <utility>

#include "../stanza/raise_sites.h"
#include "ids.h"
#include "memory.h"

namespace zcache {

// Records in one block, found by their place. Freed places are used again.
template <class Record>
class Records {
public:
    Records() = default;
    Records(Records const&) = delete;
    Records& operator=(Records const&) = delete;
    ~Records() { ::free(records_); }

    // Makes this empty array a copy of `other`.
    void copy(Records const& other)
    {
        if (other.size_ == 0)
            return;
        setCapacity(other.size_);
        memcpy(static_cast<void*>(records_), other.records_, other.size_ * sizeof(Record));
        size_ = other.size_;
        free_ = other.free_;
        freeCount_ = other.freeCount_;
    }

    Record& operator[](Id id) { return records_[id]; }
    Record const& operator[](Id id) const { return records_[id]; }
    Record const* data() const { return records_; }

    // Makes sure that `count` records can be made without raising.
    void reserve(size_t count)
    {
        if (capacity_ - size_ + freeCount_ < count)
            grow(count);
    }

    // Returns the place of a new record, which is all zero. Never raises after reserve().
    Id make()
    {
        Id id = free_;
        if (id != 0) {
            memcpy(&free_, static_cast<void const*>(&records_[id]), sizeof free_);
            --freeCount_;
        } else {
            if (size_ == capacity_)
                grow(1);
            id = size_++;
        }
        memset(static_cast<void*>(&records_[id]), 0, sizeof(Record));
        return id;
    }

    void free(Id id)
    {
        memcpy(static_cast<void*>(&records_[id]), &free_, sizeof free_);
        free_ = id;
        ++freeCount_;
    }

    // Returns how many records there are; place 0 is none.
    size_t count() const { return size_ == 0 ? 0 : size_ - 1 - freeCount_; }

    // Returns a number above the place of every record.
    Id end() const { return size_; }

    size_t capacity() const { return capacity_; }
    size_t bytes() const { return capacity_ * sizeof(Record); }

    // Forgets the places from `end` on, which are all free, and gives their room back.
    void cut(Id end)
    {
        Id id = std::exchange(free_, 0);
        freeCount_ = 0;
        while (id != 0) {
            Id const place = id;
            memcpy(&id, static_cast<void const*>(&records_[place]), sizeof id);
            if (place < end)
                free(place);
        }
        size_ = end < size_ ? end : size_;
        fit();
    }

    // Gives back what is not in use, when that is worth the call.
    void fit()
    {
        if (size_ == 0) {
            ::free(std::exchange(records_, nullptr));
            capacity_ = 0;
        } else if (capacity_ - size_ > capacity_ / 16) {
            void* const block = realloc(static_cast<void*>(records_), size_ * sizeof(Record));
            if (block != nullptr) {
                records_ = static_cast<Record*>(block);
                capacity_ = size_;
            }
        }
    }

    void swap(Records& other)
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
        size_t const needed = size_ + count + 1;  // one more: place 0
        size_t const wished = capacity_ + capacity_ / 2;
        setCapacity(needed > wished ? needed : wished);
        if (size_ == 0)
            size_ = 1;
    }

    void setCapacity(size_t wished)
    {
        if (wished > kMostRecords)
            zstanza::raiseOutOfMemory();
        wished = wished < 8 ? 8 : wished;
        records_ =
            static_cast<Record*>(reallocate(static_cast<void*>(records_), wished * sizeof(Record)));
        capacity_ = wished;
    }

    Record* records_ = nullptr;
    size_t capacity_ = 0;
    Id size_ = 0;  // places in use or free, place 0 included
    Id free_ = 0;  // the free place to use next; each holds the one behind it
    Id freeCount_ = 0;
};

}  // namespace zcache
