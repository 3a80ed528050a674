// undo_log: the changes of a table since the start of a read, in order to undo them.
#pragma once

#include <stdint.h>

#include <vector>

#include "../ZObject.h"
#include "../containers/hash_table.h"

namespace zjava {

/// Applies changes to a table of owned keys and values and keeps the replaced pairs.
///
/// Changes are undone in reverse order by the index of the entry, without comparing keys: keys of
/// the caller's classes may throw. Entries must not be removed in any other way, so that the
/// indexes stay valid.
class UndoLog {
public:
    using HashTable = zcontainers::HashTable;

    explicit UndoLog(HashTable& entries) : entries_(entries) {}
    UndoLog(UndoLog const&) = delete;
    UndoLog& operator=(UndoLog const&) = delete;

    /// Allocates memory for a put().
    /// throws  ZOutOfMemoryException_6_0.
    void reserve();

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

    /// Appends the changes to `outer`, which can undo them from then on.
    /// throws  std::bad_alloc; nothing has changed then.
    void moveTo(UndoLog& outer);

    /// Undoes all changes. The log then has the keys and values that were undone.
    void undo();

    /// Deletes the replaced keys and values; after undo(), the keys and values that were undone.
    /// throws  the first exception of a destructor, after all have run.
    void deleteOld();

private:
    struct Change {
        HashTable::NodeIndex index;
        ZObject_6_0* key;  // the replaced key; null if the entry is new
        ZObject_6_0* value;
    };

    HashTable& entries_;
    std::vector<Change> changes_;
};

}  // namespace zjava
