#include "locking/lease.h"

#include <errno.h>

#include <algorithm>

#include "transport/failure.h"

namespace zfleet {

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // nanoseconds

}  // namespace

Lease::State Lease::state() const
{
    std::lock_guard<std::mutex> const guard(mutex_);
    return state_;
}

int64_t Lease::id() const
{
    return state().id;
}

int64_t Lease::remaining() const
{
    State const now = state();
    return std::max<int64_t>(0, now.sentAt + now.seconds * kSecond / 10 * 9 - bootTime());
}

bool Lease::isFresh() const
{
    return untilRenewal() > Clock::duration::zero();
}

Clock::duration Lease::untilRenewal() const
{
    State const now = state();
    int64_t const left = now.sentAt + now.seconds * kSecond / 3 - bootTime();
    return std::chrono::nanoseconds(now.id == 0 ? 0 : std::max<int64_t>(0, left));
}

// Takes over a grant.
void Lease::record(LeaseResult const& result)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    state_ = {result.id, result.sentAt, result.seconds};
}

void Lease::forget(int64_t id)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    if (state_.id == id)
        state_ = {};
}

void Lease::forget()
{
    forget(id());
}

void Lease::require(std::string const& key, Budget& budget)
{
    if (isFresh())
        return;
    if (remaining() > 0 && renew(key, budget).isAlive)
        return;
    forget();
    record(cluster_.grantLease(cluster_.settings().leaseSeconds, budget));
}

Lease::Renewal Lease::renew(std::string const& key, Budget& budget)
{
    int64_t const lease = id();
    for (;;) {
        LeaseResult const renewed = cluster_.renewLease(lease, budget);
        RangeResult const read = cluster_.read({key}, budget);
        bool const isOwn = !read.entries.empty() && read.entries[0].lease == lease;
        int64_t const createdAt = isOwn ? read.entries[0].createRevision : 0;
        if (renewed.seconds > 0 && renewed.header.term == read.header.term) {
            std::lock_guard<std::mutex> const guard(mutex_);
            if (state_.id == lease && state_.sentAt < renewed.sentAt)
                state_ = {lease, renewed.sentAt, renewed.seconds};
            return {true, createdAt};
        }
        // The key of a lease ends with the lease. A new leader may not know the lease yet.
        if (renewed.seconds == 0 && !isOwn) {
            forget(lease);
            return {false, 0};
        }
        budget.pause();
        if (budget.isUsedUp())
            throw CallError{"LeaseKeepAlive", ETIMEDOUT, false, "the cluster elects a leader"};
    }
}

void Lease::revoke(Budget& budget)
{
    int64_t const lease = id();
    if (lease == 0)
        return;
    forget(lease);
    try {
        cluster_.revokeLease(lease, budget);
    } catch (CallError const&) {
        // The lease expires.
    }
}

}  // namespace zfleet
