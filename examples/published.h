// The snapshot for the next requests of a server. Reading the version is cheap: the processors
// share its cache line until publish() writes it.
#pragma once

#include <Z/ZLock.h>
#include <Z/ZPropertiesSnapshot.h>

#include <atomic>

class Published {
public:
    explicit Published(ZProperties_6_0 const& store) : snapshot_(store) {}

    // Returns whether the store has new contents.
    bool publish(ZProperties_6_0 const& store)
    {
        ZPropertiesSnapshot_6_0 const fresh(store);
        ZResourceLock_6_0 const guard(lock_);
        if (snapshot_.isShared(fresh))
            return false;
        snapshot_ = fresh;
        ++version_;
        return true;
    }

    unsigned version() const { return version_; }

    ZPropertiesSnapshot_6_0 snapshot()
    {
        ZResourceLock_6_0 const guard(lock_);
        return snapshot_;
    }

private:
    ZLock_6_0 lock_;
    ZPropertiesSnapshot_6_0 snapshot_;  // guarded by lock_
    std::atomic<unsigned> version_ = 0;
};
