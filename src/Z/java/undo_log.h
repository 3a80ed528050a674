// undo_log: the changes of a table since the start of a read, in order to undo them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "../ZObject.h"
#include "../containers/hash_table.h"
#include "inline_string.h"

namespace zjava {

/// Applies changes to a table of owned keys and values and keeps the replaced pairs.
///
/// Changes are undone in reverse order by the index of the entry, without comparing keys: keys of
/// the caller's classes may throw. Added strings of the read are removed last. Entries must not be
/// removed in any other way, so that the indexes stay valid.
class UndoLog {
public:
    using HashTable = zcontainers::HashTable;

    explicit UndoLog(HashTable& entries) : entries_(entries) {}
    UndoLog(UndoLog const&) = delete;
    UndoLog& operator=(UndoLog const&) = delete;

    /// Allocates memory for a put().
    /// throws  ZOutOfMemoryException_6_0.
    void reserve()
    {
        if (changes_.size() == changes_.capacity())
            grow(2 * changes_.size());
    }

    /// Stores key and value at `index`, or appends an entry if `index` is 0. Does not throw.
    /// range   requires reserve(), and HashTable::reserve() with the same arguments.
    /// owns    the table takes both over.
    void put(HashTable::NodeIndex index, uint32_t hash, ZObject_6_0* key, ZObject_6_0* value)
    {
        if (index == 0) {
            changes_.push_back({entries_.append(hash, key, value), nullptr, nullptr});
        } else {
            entries_.exchange(index, key, value);
            changes_.push_back({index, key, value});
        }
    }
    /// As put(). Callers cannot see when the destructors of these strings run.
    void put(HashTable::NodeIndex index, uint32_t hash, InlineString* key, InlineString* value)
    {
        if (index != 0) {
            ZObject_6_0* oldKey = key;
            ZObject_6_0* oldValue = value;
            entries_.exchange(index, oldKey, oldValue, HashTable::kAnyOrder);
            changes_.push_back({index, oldKey, oldValue});
            return;
        }
        HashTable::NodeIndex const added = entries_.append(hash, key, value, HashTable::kAnyOrder);
        if (addedCount_ == 0)
            firstAdded_ = added;
        if (added == firstAdded_ + addedCount_)
            ++addedCount_;
        else
            changes_.push_back({added, nullptr, nullptr});
    }

    /// Appends the changes to `outer`, which can undo them from then on.
    /// throws  std::bad_alloc; nothing has changed then.
    void moveTo(UndoLog& outer);

    /// Undoes all changes. The log then has the keys and values that were undone.
    void undo();

    /// Deletes the replaced keys and values; after undo(), the keys and values that were undone.
    /// throws  the first exception of a destructor, after all have run.
    void deleteOld();

private:
    void grow(size_t capacity);

    struct Change {
        HashTable::NodeIndex index;
        ZObject_6_0* key;  // the replaced key; null if the entry is new
        ZObject_6_0* value;
    };

    HashTable& entries_;
    // Most strings of a read are in consecutive nodes, which need no record each.
    HashTable::NodeIndex firstAdded_ = 0;
    uint32_t addedCount_ = 0;
    std::vector<Change> changes_;  // the others
};

}  // namespace zjava
