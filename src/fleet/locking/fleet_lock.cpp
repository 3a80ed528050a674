#include "locking/fleet_lock.h"

#include <errno.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "configuration/live.h"
#include "locking/interruptible_wait.h"
#include "transport/cancel_guard.h"
#include "transport/failure.h"

namespace zfleet {

namespace {

using std::chrono::milliseconds;

// Between two reads of the queue without a notice of the cluster.
constexpr Clock::duration kLookInterval = std::chrono::seconds(5);

// Returns whether a waiting program should look again later.
bool maySucceedLater(CallError const& error)
{
    return error.error == ETIMEDOUT || error.error == EAGAIN || error.error == EIO ||
           error.error == ECANCELED;
}

}  // namespace

FleetLock::FleetLock(ClusterInterface& cluster, std::string const& name)
    : cluster_(cluster), queue_(cluster, name), lease_(cluster)
{
}

FleetLock::~FleetLock()
{
    if (hold().ticket != 0 || lease_.remaining() == 0)
        return;
    Budget budget(cluster_.settings().callTimeout);
    lease_.revoke(budget);
}

FleetLock::Hold FleetLock::hold() const
{
    std::lock_guard<std::mutex> const guard(mutex_);
    return hold_;
}

template <class Change>
void FleetLock::changeHold(Change change)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    change(hold_);
}

Clock::duration FleetLock::leaseTime() const
{
    return std::chrono::seconds(cluster_.settings().leaseSeconds);
}

// The patience limits the time for other programs. A call to the cluster always has time for an
// attempt.
Budget FleetLock::budgetUntil(Clock::time_point deadline) const
{
    Settings const& settings = cluster_.settings();
    return Budget(
        std::max(std::min(settings.budget, deadline - Clock::now()), settings.callTimeout));
}

// ---- Acquiring ---------------------------------------------------------------------------------

// Adds the entry. A lease can end before: while nodes or this process are suspended or cut off, for
// example.
LockQueue::View FleetLock::enter(LockMode mode, Clock::time_point deadline)
{
    Budget budget = budgetUntil(deadline);
    entered_ = 0;
    for (;;) {
        std::lock_guard<std::mutex> const guard(renewal_);
        lease_.require(queue_.keyOf(lease_.id()), budget);
        key_ = queue_.keyOf(lease_.id());
        try {
            LockQueue::View view = queue_.add(lease_.id(), mode, budget);
            isTainted_ = isTainted_ || view.wasDoubtful;
            entered_ = view.ticket;
            return view;
        } catch (CallError const& error) {
            if (error.error != ENOENT) {
                isTainted_ = isTainted_ || error.isDoubtful;
                throw;
            }
        }
        lease_.forget();  // it has ended, and so has any entry of it
        budget.pause();
        if (budget.isUsedUp())
            throw CallError{"Txn", ETIMEDOUT, false, "each lease has ended before its entry"};
    }
}

// Waits until the entry is first. Returns false if it has ended.
bool FleetLock::waitForTurn(LockMode mode, LockQueue::View& view, Clock::time_point deadline,
                            int cancelState)
{
    std::unique_ptr<InterruptibleWait> wait;
    std::unique_ptr<Live> live;
    Clock::duration const third = leaseTime() / 3;
    while (view.blocker.ticket != 0) {
        if (Clock::now() >= deadline)
            throw CallError{"lock", ETIMEDOUT, false, "other programs hold the lock"};
        if (wait == nullptr)
            wait = std::make_unique<InterruptibleWait>(cancelState);
        if (live == nullptr) {
            live = std::make_unique<Live>();
            live->recordLook(kLookInterval, true);
        }
        bool const shouldLook =
            live->process(cluster_, queue_.keysFor(key_, view.blocker), view.revision);
        if (!shouldLook)
            wait->wait(live->descriptor(), std::min(deadline, Clock::now() + third));
        try {
            Budget budget(cluster_.settings().callTimeout * 2);
            if (!lease_.isFresh() && !lease_.renew(key_, budget).isAlive)
                return false;
            if (!shouldLook)
                continue;
            LockQueue::View latest = queue_.look(key_, mode, view.blocker, budget);
            live->recordLook(kLookInterval, true);
            if (latest.ticket != view.ticket)
                return false;
            if (latest.blocker.key != view.blocker.key)
                live = nullptr;  // the next watch reports another entry
            view = std::move(latest);
        } catch (CallError const& error) {
            if (!maySucceedLater(error))
                throw;
            live->recordLook(kLookInterval, false);
            wait->wait(-1, std::min(deadline, Clock::now() + milliseconds(100)));
        }
    }
    return confirm(view);
}

// Returns whether the entry exists: its lease may have ended before the reply arrived.
bool FleetLock::confirm(LockQueue::View const& view)
{
    if (lease_.remaining() > 0)
        return true;
    Budget budget(cluster_.settings().budget);
    return lease_.renew(key_, budget).createdAt == view.ticket;
}

std::string FleetLock::acquire(LockMode mode, std::optional<Clock::duration> patience)
{
    CancelGuard const uncancelled;
    Clock::time_point const deadline =
        patience.has_value() ? Clock::now() + *patience : Clock::time_point::max();
    isTainted_ = false;
    try {
        LockQueue::View view = enter(mode, deadline);
        while (!waitForTurn(mode, view, deadline, uncancelled.before()))
            view = enter(mode, deadline);
        changeHold([&](Hold& hold) { hold = {view.ticket, key_}; });
        return std::move(view.sequence);
    } catch (...) {
        abandon();
        throw;
    }
}

// Removes the entry of a failed acquisition, or ends its lease.
void FleetLock::abandon()
{
    CancelGuard const uncancelled;
    if (entered_ == 0 && !isTainted_)
        return;
    try {
        Budget budget(cluster_.settings().callTimeout);
        if (!isTainted_) {
            queue_.remove(key_, entered_, std::nullopt, true, budget);
            return;
        }
    } catch (CallError const&) {
        // End the lease.
    }
    Budget budget(cluster_.settings().callTimeout);
    lease_.revoke(budget);
}

// ---- Releasing ---------------------------------------------------------------------------------

FleetLock::Release FleetLock::release(std::optional<std::string> const& number, bool tells)
{
    CancelGuard const uncancelled;
    Hold const held = hold();
    if (held.ticket == 0)
        return Release::released;
    if (held.isLost || held.isRemoved) {
        if (tells)
            return Release::lost;
        drop();
        return Release::released;
    }
    changeHold([](Hold& hold) { hold.isDoubted = true; });
    LockQueue::Removal removal;
    try {
        Budget budget(cluster_.settings().budget);
        removal = queue_.remove(held.key, held.ticket, number, held.isDoubted, budget);
    } catch (CallError const& error) {
        if (error.error == ENOSPC && number.has_value() && leave(held)) {
            changeHold([](Hold& hold) { hold.isRemoved = true; });
            return Release::notCounted;
        }
        changeHold([&](Hold& hold) { hold.isDoubted = held.isDoubted || error.isDoubtful; });
        if (error.error != EREMCHG)
            throw;
        removal = LockQueue::Removal::missing;  // another cluster does not know the lock
    }
    if (removal == LockQueue::Removal::unknown) {
        changeHold([](Hold& hold) { hold.isRemoved = true; });
        throw CallError{"Txn", EINPROGRESS, true, "the history of the lock was dropped"};
    }
    if (removal == LockQueue::Removal::missing) {
        changeHold([](Hold& hold) { hold.isRemoved = true; });
        recordLoss(held.ticket);
        if (tells)
            return Release::lost;
        lease_.forget();
    }
    finish();
    return Release::released;
}

// Removes the entry without a number. Returns whether the cluster has replied.
bool FleetLock::leave(Hold const& hold)
{
    try {
        Budget budget(cluster_.settings().callTimeout);
        queue_.remove(hold.key, hold.ticket, std::nullopt, true, budget);
        return true;
    } catch (CallError const&) {
        return false;
    }
}

// Frees the lock, whose entry has been removed.
void FleetLock::finish()
{
    changeHold([](Hold& hold) { hold = {}; });
    if (!std::exchange(isTainted_, false))
        return;
    Budget budget(cluster_.settings().callTimeout);
    lease_.revoke(budget);
}

void FleetLock::drop()
{
    CancelGuard const uncancelled;
    Hold const held = hold();
    if (held.ticket == 0)
        return;
    bool const hasLeft = held.isRemoved || leave(held);
    // The entry, if it still exists, ends with its lease.
    if (!hasLeft || held.isLost)
        lease_.forget();
    finish();
}

// ---- The state ---------------------------------------------------------------------------------

bool FleetLock::isCertain(Hold const& hold)
{
    return hold.ticket != 0 && !hold.isLost && !hold.isDoubted && !hold.isRemoved;
}

// A renewal does not last longer than the lease, so that a loss is reported in time. After that
// time, the lease may still exist, and a later renewal can succeed.
Clock::duration FleetLock::renewalTime() const
{
    Clock::duration const longest = cluster_.settings().callTimeout * 2;
    Clock::duration const left = std::chrono::nanoseconds(lease_.remaining());
    if (left == Clock::duration::zero())
        return longest;
    return std::min(longest, std::max(left, leaseTime() / 10));
}

bool FleetLock::keepAlive()
{
    CancelGuard const uncancelled;
    std::lock_guard<std::mutex> const guard(renewal_);
    Hold const held = hold();
    if (!isCertain(held))
        return false;
    try {
        Budget budget(renewalTime());
        if (lease_.renew(held.key, budget).createdAt == held.ticket)
            return token() == held.ticket;
    } catch (CallError const& error) {
        if (remaining() > 0 && error.error != EREMCHG)
            throw;
    }
    recordLoss(held.ticket);
    return false;
}

int64_t FleetLock::token() const
{
    return hold().ticket;
}

int64_t FleetLock::remaining() const
{
    Hold const held = hold();
    if (!isCertain(held))
        return 0;
    return lease_.remaining();
}

bool FleetLock::isLost() const
{
    return hold().isLost;
}

Fence FleetLock::fence() const
{
    Hold const held = hold();
    return {held.key, held.ticket};
}

// The program may acquire the lock in the meantime, so the caller asks again soon.
Clock::duration FleetLock::untilRenewal() const
{
    Clock::duration const soon = leaseTime() / 6;
    return isCertain(hold()) ? std::min(lease_.untilRenewal(), soon) : soon;
}

void FleetLock::recordLoss(int64_t token)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    bool const isBeingReleased = hold_.isDoubted && !hold_.isRemoved;
    if (hold_.ticket != token || token == 0 || hold_.isLost || isBeingReleased)
        return;
    hold_.isLost = true;
    newLoss_ = token;
}

int64_t FleetLock::takeLoss()
{
    std::lock_guard<std::mutex> const guard(mutex_);
    return std::exchange(newLoss_, 0);
}

std::string FleetLock::readSequence()
{
    std::string sequence;
    Budget budget(cluster_.settings().budget);
    queue_.list(sequence, budget);
    return sequence;
}

}  // namespace zfleet
