#include "undo_log.h"

#include <stddef.h>

#include <algorithm>

#include "../ZException.h"
#include "../containers/object_deleter.h"
#include "../memory/out_of_memory.h"

namespace zjava {

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseForChange = 240 };

constexpr size_t kFirstCapacity = 16;

}  // namespace

void UndoLog::reserve()
{
    if (changes_.size() < changes_.capacity())
        return;
    zmemory::translateBadAlloc(kSource, raiseForChange, [&] {
        changes_.reserve(std::max(kFirstCapacity, 2 * changes_.size()));
    });
}

void UndoLog::moveTo(UndoLog& outer)
{
    outer.changes_.insert(outer.changes_.end(), changes_.begin(), changes_.end());
    changes_.clear();
}

void UndoLog::undo()
{
    for (auto change = changes_.rbegin(); change != changes_.rend(); ++change) {
        if (change->key == nullptr) {
            HashTable::Node const node = entries_.extract(change->index);
            *change = {0, node.key, node.value};
        } else {
            entries_.exchange(change->index, change->key, change->value);
        }
    }
}

void UndoLog::deleteOld()
{
    zcontainers::ObjectDeleter deleter;
    for (Change const& change : changes_) {
        if (change.key == nullptr)
            continue;
        deleter.destroy(change.key);
        deleter.destroy(change.value);
    }
    deleter.rethrowFirst();
}

}  // namespace zjava
