#include "ZFleetKeeper.h"

#include <Z/ZException.h>
#include <Z/ZLock.h>
#include <Z/ZMessage.h>
#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ZFleetProperties.h"
#include "ZFleetReadWriteLock_p.h"

namespace {

using zfleet::Clock;

constexpr char kSource[] = "src/fleet/Z/ZFleetKeeper";
enum RaiseSite { raiseForDescriptor = 1, reportInRound, reportInDestructor };

constexpr int kUnknownException = 19;  // message

// The longest time between two rounds: a lock may have been acquired since the last one.
constexpr Clock::duration kLookInterval = std::chrono::seconds(1);

// The pause after a renewal that has failed.
constexpr Clock::duration kRetryInterval = std::chrono::milliseconds(100);

// All keepers sleep on one lock, which none of them holds while it works.
ZLock_6_0& sleepLock()
{
    static auto* const lock = new ZLock_6_0;
    return *lock;
}

// Releases the lock of the sleeper in this scope.
class ScopedUnlock {
public:
    ScopedUnlock() { sleepLock().unlock(); }
    ScopedUnlock(ScopedUnlock const&) = delete;
    ScopedUnlock& operator=(ScopedUnlock const&) = delete;
    ~ScopedUnlock() { sleepLock().lock(); }
};

// Rethrows the cancellation of the thread, which unwinds the stack without a C++ exception.
// range   only in a `catch (...)`.
void rethrowCancellation()
{
    if (std::current_exception() == nullptr)
        throw;
}

// Sends a report. An exception of the message service could not be reported either.
template <class Report>
void send(Report report)
{
    try {
        report();
    } catch (...) {
        rethrowCancellation();
    }
}

// Runs `action` and reports its exception, unless it is a failure with the return code `last`.
// Returns the return code; 0 without such a failure.
template <class Action>
int reportExceptions(RaiseSite site, int last, Action action)
{
    try {
        action();
    } catch (ZException_6_0& failure) {
        auto const* const refusal = dynamic_cast<ZResourceException_6_0 const*>(&failure);
        int const error = refusal == nullptr ? 0 : refusal->returnCode();
        if (error == 0 || error != last)
            send([&] { failure.dumpException(); });
        return error;
    } catch (...) {
        rethrowCancellation();
        send([&] {
            ZMessageService_6_0::messageService()->outputMessage(kSource, site, kUnknownException,
                                                                 0, nullptr, nullptr, nullptr,
                                                                 nullptr, nullptr, nullptr);
        });
    }
    return 0;
}

int openEvent()
{
    int const fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0)
        ZPropertiesIOException_6_0("etcd://", "eventfd()", errno)
            .throwException(kSource, raiseForDescriptor);
    return fd;
}

}  // namespace

// ---- The work ----------------------------------------------------------------------------------

struct ZFleetKeeper_6_0::Rep {
    // A lock or a store.
    struct Kept {
        ZFleetReadWriteLock_6_0* lock;
        ZFleetProperties_6_0* store;
        int lastError = 0;    // of the renewal
        int descriptor = -1;  // of the store

        bool is(Kept const& other) const { return lock == other.lock && store == other.store; }
    };
    using Shared = std::shared_ptr<Kept>;
    class Use;

    Rep() : event(openEvent()) {}
    Rep(Rep const&) = delete;
    Rep& operator=(Rep const&) = delete;
    ~Rep() { close(event); }

    void notify() const { eventfd_write(event, 1); }
    void add(Kept const& added);
    void remove(Kept const& removed);
    std::vector<Shared> copy();
    Clock::duration work();
    static Clock::duration renew(Kept& kept);
    static void takeIn(Kept& kept);
    void wait(Clock::duration time);

    int const event;  // wakes the keeper
    std::atomic<bool> isStopping{false};
    std::mutex mutex;
    std::condition_variable unused;  // the keeper has stopped to use an object
    std::vector<Shared> kept;        // locks are before stores; guarded by mutex
    Kept const* used = nullptr;      // by the keeper; guarded by mutex
    std::thread::id worker;          // guarded by mutex
};

// The keeper uses an object in this scope, unless it has been removed.
class ZFleetKeeper_6_0::Rep::Use {
public:
    Use(Rep& rep, Shared const& kept) : rep_(rep)
    {
        std::lock_guard<std::mutex> const guard(rep_.mutex);
        if (std::find(rep_.kept.begin(), rep_.kept.end(), kept) == rep_.kept.end())
            return;
        rep_.used = kept.get();
        isAllowed_ = true;
    }
    Use(Use const&) = delete;
    Use& operator=(Use const&) = delete;
    ~Use()
    {
        std::lock_guard<std::mutex> const guard(rep_.mutex);
        rep_.used = nullptr;
        rep_.unused.notify_all();
    }

    bool isAllowed() const { return isAllowed_; }

private:
    Rep& rep_;
    bool isAllowed_ = false;
};

void ZFleetKeeper_6_0::Rep::add(Kept const& added)
{
    auto fresh = std::make_shared<Kept>(added);
    std::lock_guard<std::mutex> const guard(mutex);
    for (Shared const& known : kept)
        if (known->is(added))
            return;
    kept.insert(added.lock != nullptr ? kept.begin() : kept.end(), std::move(fresh));
    notify();
}

void ZFleetKeeper_6_0::Rep::remove(Kept const& removed)
{
    std::unique_lock<std::mutex> guard(mutex);
    auto const found = std::find_if(kept.begin(), kept.end(),
                                    [&](Shared const& known) { return known->is(removed); });
    if (found == kept.end())
        return;
    Shared const object = *found;
    kept.erase(found);
    notify();
    if (worker != std::this_thread::get_id())
        unused.wait(guard, [&] { return used != object.get(); });
}

std::vector<ZFleetKeeper_6_0::Rep::Shared> ZFleetKeeper_6_0::Rep::copy()
{
    std::lock_guard<std::mutex> const guard(mutex);
    worker = std::this_thread::get_id();
    return kept;
}

// Renews the lease of a lock if necessary. Returns the time until the next round.
Clock::duration ZFleetKeeper_6_0::Rep::renew(Kept& kept)
{
    zfleet::FleetLock const& state = kept.lock->rep().lock;
    if (state.untilRenewal() == Clock::duration::zero())
        kept.lastError =
            reportExceptions(reportInRound, kept.lastError, [&] { kept.lock->keepAlive(); });
    return std::max(state.untilRenewal(), kRetryInterval);
}

void ZFleetKeeper_6_0::Rep::takeIn(Kept& kept)
{
    reportExceptions(reportInRound, 0, [&] {
        if (kept.descriptor < 0)
            kept.descriptor = kept.store->descriptor();
        // Without news, do not wait for a thread that uses the store.
        pollfd news = {kept.descriptor, POLLIN, 0};
        if (kept.descriptor >= 0 && poll(&news, 1, 0) == 1)
            kept.store->processChanges();
    });
}

// Does the work that is due. Returns the time until the next round.
Clock::duration ZFleetKeeper_6_0::Rep::work()
{
    Clock::duration next = kLookInterval;
    for (Shared const& each : copy()) {
        Use const use(*this, each);
        if (!use.isAllowed() || isStopping)
            continue;
        if (each->lock != nullptr)
            next = std::min(next, renew(*each));
        else
            takeIn(*each);
    }
    return next;
}

// Waits for news of a store, a changed list or the end.
void ZFleetKeeper_6_0::Rep::wait(Clock::duration time)
{
    std::vector<pollfd> fds = {{event, POLLIN, 0}};
    for (Shared const& each : copy())
        if (each->descriptor >= 0)
            fds.push_back({each->descriptor, POLLIN, 0});
    auto const milliseconds = std::chrono::ceil<std::chrono::milliseconds>(time).count();
    poll(fds.data(), fds.size(), static_cast<int>(milliseconds));
    eventfd_t count;
    eventfd_read(event, &count);
}

// ---- The thread --------------------------------------------------------------------------------

ZFleetKeeper_6_0::ZFleetKeeper_6_0() : ZSleeperThread_6_0(sleepLock()), rep_(new Rep)
{
}

ZFleetKeeper_6_0::~ZFleetKeeper_6_0()
{
    if (isJoinable() != 0)
        reportExceptions(reportInDestructor, 0, [this] { ZFleetKeeper_6_0::waitForExit(); });
    delete rep_;
}

void ZFleetKeeper_6_0::start()
{
    rep_->isStopping = false;
    ZSleeperThread_6_0::start();
    wakeUp();
}

void ZFleetKeeper_6_0::waitForExit()
{
    rep_->isStopping = true;
    rep_->notify();
    ZSleeperThread_6_0::waitForExit();
}

void ZFleetKeeper_6_0::doWork()
{
    ScopedUnlock const unlocked;
    while (!rep_->isStopping)
        reportExceptions(reportInRound, 0, [this] { rep_->wait(rep_->work()); });
}

void ZFleetKeeper_6_0::addLock(ZFleetReadWriteLock_6_0& lock)
{
    rep_->add({&lock, nullptr});
}

void ZFleetKeeper_6_0::removeLock(ZFleetReadWriteLock_6_0& lock)
{
    rep_->remove({&lock, nullptr});
}

void ZFleetKeeper_6_0::addStore(ZFleetProperties_6_0& store)
{
    rep_->add({nullptr, &store});
}

void ZFleetKeeper_6_0::removeStore(ZFleetProperties_6_0& store)
{
    rep_->remove({nullptr, &store});
}
