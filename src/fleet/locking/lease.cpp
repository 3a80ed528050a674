#include "locking/lease.h"

#include <errno.h>

#include <algorithm>
#include <utility>

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

int64_t Lease::State::remaining() const
{
    return std::max<int64_t>(0, sentAt + seconds * kSecond / 10 * 9 - bootTime());
}

int64_t Lease::remaining() const
{
    return state().remaining();
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

void Lease::record(State const& state)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    state_ = state;
    successor_ = {};
}

void Lease::forget(int64_t id)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    if (state_.id != id)
        return;
    state_ = {};
    successor_ = {};
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
    record(grant(key, budget));
}

// Creates a lease whose term is certain: the cluster had it before the request and after it.
Lease::State Lease::grant(std::string const& key, Budget& budget)
{
    for (;;) {
        uint64_t const term = cluster_.read({key}, budget).header.term;
        LeaseResult const granted = cluster_.grantLease(cluster_.settings().leaseSeconds, budget);
        if (granted.header.term == term)
            return {granted.id, granted.sentAt, granted.seconds, term};
        budget.pause();
        if (budget.isUsedUp())
            throw CallError{"LeaseGrant", ETIMEDOUT, false, "the cluster elects a leader"};
    }
}

// Returns the lease of a term to which the key will be moved. An earlier attempt may still be
// executed: a repetition has the same lease.
Lease::State Lease::successorFor(std::string const& key, uint64_t term, Budget& budget)
{
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (successor_.remaining() > 0 && successor_.term == term)
            return successor_;
    }
    State const granted = grant(key, budget);
    std::lock_guard<std::mutex> const guard(mutex_);
    successor_ = granted;
    return granted;
}

// Moves a key of the lease to a new lease of the present term. Returns false if the key has ended,
// or belongs to a third lease.
bool Lease::move(KeyValue const& entry, uint64_t term, Budget& budget)
{
    State const successor = successorFor(entry.key, term, budget);
    Transaction transaction;
    transaction.conditions = {
        {entry.key, Condition::createRevision, Condition::equal, entry.createRevision},
        {entry.key, Condition::lease, Condition::equal, entry.lease}};
    transaction.success = {Put{entry.key, entry.value, successor.id}};
    transaction.failure = {Range{entry.key}};
    try {
        TransactionResult const result =
            cluster_.commit(transaction, Repetition::isHarmless, budget);
        bool const isDone =
            result.hasSucceeded || (result.ranges.size() == 1 && isMoved(result.ranges[0]));
        if (isDone)
            record(successor);
        return isDone;
    } catch (CallError const& error) {
        if (error.error != ENOENT)
            throw;
        std::lock_guard<std::mutex> const guard(mutex_);
        successor_ = {};  // it has ended
        return false;
    }
}

// Returns whether a key that was read belongs to the successor of the lease.
bool Lease::isMoved(RangeResult const& read)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    return successor_.id != 0 && !read.entries.empty() && read.entries[0].lease == successor_.id;
}

Lease::Renewal Lease::renew(std::string const& key, Budget& budget)
{
    for (;;) {
        State const now = state();
        LeaseResult const renewed = cluster_.renewLease(now.id, budget);
        RangeResult const read = cluster_.read({key}, budget);
        if (isMoved(read)) {  // by an earlier attempt without a reply
            std::lock_guard<std::mutex> const guard(mutex_);
            state_ = std::exchange(successor_, {});
            continue;
        }
        bool const isOwn = !read.entries.empty() && read.entries[0].lease == now.id;
        int64_t const createdAt = isOwn ? read.entries[0].createRevision : 0;
        bool const isValid = renewed.seconds > 0 && renewed.header.term == read.header.term;
        if (isValid && now.term == read.header.term) {
            std::lock_guard<std::mutex> const guard(mutex_);
            if (state_.id == now.id && state_.sentAt < renewed.sentAt)
                state_ = {now.id, renewed.sentAt, renewed.seconds, now.term};
            return {true, createdAt};
        }
        if (isValid && !isOwn)
            return {false, 0};
        if (isValid && move(read.entries[0], read.header.term, budget))
            return {true, createdAt};
        // The key of a lease ends with the lease. A new leader may not know the lease yet.
        if (renewed.seconds == 0 && !isOwn) {
            forget(now.id);
            return {false, 0};
        }
        budget.pause();
        if (budget.isUsedUp())
            throw CallError{"LeaseKeepAlive", ETIMEDOUT, false, "the cluster elects a leader"};
    }
}

void Lease::revoke(Budget& budget)
{
    State const now = state();
    int64_t successor = 0;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        successor = successor_.id;
    }
    forget(now.id);
    for (int64_t const lease : {now.id, successor}) {
        try {
            if (lease != 0)
                cluster_.revokeLease(lease, budget);
        } catch (CallError const&) {
            // The lease expires.
        }
    }
}

}  // namespace zfleet
