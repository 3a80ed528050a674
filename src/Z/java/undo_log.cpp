#include "undo_log.h"

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

void UndoLog::grow(size_t capacity)
{
    zmemory::translateBadAlloc(kSource, raiseForChange,
                               [&] { changes_.reserve(std::max(kFirstCapacity, capacity)); });
}

void UndoLog::moveTo(UndoLog& outer)
{
    bool const continues =
        outer.addedCount_ == 0 || outer.firstAdded_ + outer.addedCount_ == firstAdded_;
    outer.changes_.reserve(outer.changes_.size() + changes_.size() + (continues ? 0 : addedCount_));
    outer.changes_.insert(outer.changes_.end(), changes_.begin(), changes_.end());
    changes_.clear();
    if (continues && outer.addedCount_ == 0)
        outer.firstAdded_ = firstAdded_;
    if (continues)
        outer.addedCount_ += addedCount_;
    for (uint32_t i = 0; !continues && i < addedCount_; ++i)
        outer.changes_.push_back({firstAdded_ + i, nullptr, nullptr});
    addedCount_ = 0;
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
    for (; addedCount_ > 0; --addedCount_) {
        HashTable::Node const node = entries_.extract(firstAdded_ + addedCount_ - 1);
        delete node.key;
        delete node.value;
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
