// observer_slot: the observer of an open file, and the calls of it that run.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

namespace zhandles {

using ObserverFunction = void(int change, char const* stanza, char const* key, void* context);

/// Holds the observer of an open file. No lock is held while the observer runs, so it may call any
/// function, and several threads may run it at the same time.
/// Threads: any.
class ObserverSlot {
public:
    ObserverSlot() = default;
    ObserverSlot(ObserverSlot const&) = delete;
    ObserverSlot& operator=(ObserverSlot const&) = delete;

    /// Replaces the observer; null removes it. Then waits until the calls of the earlier observer
    /// have returned, unless the calling thread runs one of them. Returns false, and changes
    /// nothing, after close().
    /// throws  std::bad_alloc; nothing is changed then.
    bool set(ObserverFunction* function, void* context);

    /// Removes the observer for good, and waits as set().
    void close();

    bool isSet() const;

    /// Calls the observer, if there is one. Reports its exceptions.
    void notify(int change, char const* stanza, char const* key);

private:
    struct Observer {
        ObserverFunction* function;
        void* context;
        unsigned running = 0;  // calls; guarded by mutex_
    };
    class Call;

    bool replace(std::shared_ptr<Observer> added, bool closes);

    mutable std::mutex mutex_;
    std::condition_variable returned_;    // signalled after the last running call of an observer
    std::shared_ptr<Observer> observer_;  // guarded by mutex_; null: none
    bool isClosed_ = false;               // guarded by mutex_
};

}  // namespace zhandles
