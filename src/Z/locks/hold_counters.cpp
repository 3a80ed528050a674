#include "hold_counters.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace zlocks {

namespace {

struct HoldCounter {
    ZStackReadWriteLock_6_0 const* guard;
    ZAbstractReadWriteLock_6_0 const* lock;
    int holds;
    HoldCounter* next;
};

constinit thread_local HoldCounter* holdCounters = nullptr;

HoldCounter** linkTo(ZStackReadWriteLock_6_0 const* guard)
{
    HoldCounter** link = &holdCounters;
    while (*link != nullptr && (*link)->guard != guard)
        link = &(*link)->next;
    return link;
}

}  // namespace

void startCounting(ZStackReadWriteLock_6_0 const* guard, ZAbstractReadWriteLock_6_0 const* lock,
                   int holds)
{
    if (HoldCounter* const old = *linkTo(guard)) {
        *old = {guard, lock, holds, old->next};
    } else if (HoldCounter* const added =
                   new (std::nothrow) HoldCounter{guard, lock, holds, holdCounters}) {
        holdCounters = added;
        countingGuards.fetch_add(1, std::memory_order_relaxed);
    }
}

int stopCounting(ZStackReadWriteLock_6_0 const* guard, int holds)
{
    HoldCounter** const link = linkTo(guard);
    if (*link == nullptr)
        return holds;
    std::unique_ptr<HoldCounter> const ended(std::exchange(*link, (*link)->next));
    countingGuards.fetch_sub(1, std::memory_order_relaxed);
    return ended->holds;
}

void addToHolds(ZAbstractReadWriteLock_6_0 const* lock, int change)
{
    for (HoldCounter* at = holdCounters; at != nullptr; at = at->next)
        if (at->lock == lock)
            at->holds = std::max(at->holds + change, 0);
}

}  // namespace zlocks
