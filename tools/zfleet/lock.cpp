// lock: the verb zfleet lock, which runs a command under a lock between machines or prints the
// lock's state.
#include <Z/ZFleetConnection.h>
#include <Z/ZFleetKeeper.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "ZFleetConnection_p.h"
#include "arguments.h"
#include "configuration/path.h"
#include "failures.h"
#include "fleet_commands.h"
#include "locked_command.h"
#include "locking/lock_queue.h"
#include "output.h"
#include "transport/failure.h"

namespace {

using Lock = ZFleetReadWriteLock_6_0;

// The signals that end the tool while it waits for the lock, after it has left the queue.
constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGTERM};

// Catches the ending signals in this scope, unless they are ignored.
class SignalCatcher {
public:
    SignalCatcher()
    {
        caught_ = 0;
        struct sigaction action = {};
        action.sa_handler = [](int number) { caught_ = number; };  // it ends the wait
        for (size_t i = 0; i < std::size(kEndingSignals); ++i) {
            sigaction(kEndingSignals[i], nullptr, &before_[i]);
            if (before_[i].sa_handler != SIG_IGN)
                sigaction(kEndingSignals[i], &action, nullptr);
        }
    }
    SignalCatcher(SignalCatcher const&) = delete;
    SignalCatcher& operator=(SignalCatcher const&) = delete;
    ~SignalCatcher()
    {
        for (size_t i = 0; i < std::size(kEndingSignals); ++i)
            sigaction(kEndingSignals[i], &before_[i], nullptr);
    }

    int caught() const { return caught_; }  // 0: none

private:
    static volatile sig_atomic_t caught_;

    struct sigaction before_[std::size(kEndingSignals)];
};

volatile sig_atomic_t SignalCatcher::caught_ = 0;

// Wakes the main thread when the lock is lost, on the thread of the keeper.
class LossObserver final : public ZObserverInterface_6_0 {
public:
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        if (dynamic_cast<ZFleetLockLost_6_0 const*>(&parm) == nullptr)
            return;
        isLost_ = true;
        pthread_kill(main_, SIGCHLD);
    }

    bool isLost() const { return isLost_; }

private:
    pthread_t const main_ = pthread_self();
    std::atomic<bool> isLost_{false};
};

// Keeps the lock in this scope.
class ScopedKeeper {
public:
    explicit ScopedKeeper(Lock& lock)
    {
        keeper_.addLock(lock);
        keeper_.start();
    }
    ScopedKeeper(ScopedKeeper const&) = delete;
    ScopedKeeper& operator=(ScopedKeeper const&) = delete;
    ~ScopedKeeper() { keeper_.waitForExit(); }

private:
    ZFleetKeeper_6_0 keeper_;
};

// ---- The queue --------------------------------------------------------------------------------

struct LockState {
    std::vector<zfleet::QueueEntry> entries;
    std::string sequence;
};

struct ReleaseConnection {
    void operator()(ZFleetConnection_6_0* connection) const { connection->release(); }
};

// Reads the queue of the lock.
LockState readState(std::string const& path)
{
    zfleet::Path const name = zfleet::parsePath(path.c_str());
    std::unique_ptr<ZFleetConnection_6_0, ReleaseConnection> const connection(
        ZFleetConnection_6_0::open(name.fleet.c_str()));
    zfleet::ClusterInterface& cluster = connection->rep().cluster;
    LockState state;
    try {
        zfleet::Budget budget(cluster.settings().budget);
        state.entries = zfleet::LockQueue(cluster, name.name).list(state.sequence, budget);
    } catch (zfleet::CallError const& error) {
        ZPropertiesIOException_6_0(path.c_str(), error.call.c_str(), error.error)
            .throwException("tools/zfleet/lock", 1);
    }
    return state;
}

// Returns the number of entries that hold the lock. They are the first ones.
size_t countHolders(LockState const& state)
{
    size_t count = 0;
    for (zfleet::QueueEntry const& entry : state.entries) {
        bool const isWriter = entry.mode == zfleet::LockMode::write;
        if (isWriter && count > 0)
            break;
        ++count;
        if (isWriter)
            break;
    }
    return count;
}

std::string nameHolder(zfleet::QueueEntry const& entry)
{
    return "process " + entry.process + " on " + entry.host;
}

std::string formatQueue(LockState const& state)
{
    if (state.entries.empty())
        return "free";
    size_t const holders = countHolders(state);
    std::string text = state.entries[0].mode == zfleet::LockMode::write ? "write by " : "read by ";
    for (size_t i = 0; i < state.entries.size(); ++i) {
        zfleet::QueueEntry const& entry = state.entries[i];
        text += (i == 0 ? "" : ", ") + nameHolder(entry);
        if (i >= holders)
            text += entry.mode == zfleet::LockMode::write ? " waits to write" : " waits to read";
    }
    return text;
}

int show(Request const& request)
{
    LockState const state = readState(request.lockName);
    printf("lock: %s\nstate: %s\nsequence: %s\n", request.lockName.c_str(),
           formatQueue(state).c_str(), state.sequence.empty() ? "0" : state.sequence.c_str());
    return exitDone;
}

// ---- Running ----------------------------------------------------------------------------------

Failure describeLoss(Request const& request)
{
    return {exitLocked,
            request.lockName,
            {"the lock was lost while the command ran", "check its effects, and run it again"}};
}

// Describes a failed acquisition or release.
Failure describeLockError(ZResourceException_6_0 const& exception, Request const& request)
{
    if (exception.returnCode() < 0)
        return {exitInvalidData,
                request.lockName,
                {"the sequence number in the cluster is not a number", "remove its key \"seq\""}};
    return describeFleetError(
        ZPropertiesIOException_6_0(request.lockName.c_str(), "lock()", exception.returnCode()),
        request);
}

// Describes the holder of a lock, or a cluster that does not reply.
Failure describeTimeout(Request const& request)
{
    LockState const state = readState(request.lockName);
    return {exitLocked,
            request.lockName,
            {state.entries.empty() ? "was held by another program"
                                   : "held by " + nameHolder(state.entries[0]),
             "try again, or pass --wait SECONDS"}};
}

// Acquires the lock. Returns 0, or the number of the signal that ended the wait.
int acquire(Lock& lock, Request const& request)
{
    SignalCatcher const signals;
    lock.setPatience(static_cast<int64_t>(std::min(request.lockWait, 1e9) * 1000));
    try {
        lock.lock(request.write ? Lock::write : Lock::read);
    } catch (ZLockResourceException_6_0 const& e) {
        if (e.returnCode() == EINTR && signals.caught() != 0)
            return signals.caught();
        if (e.returnCode() == ETIMEDOUT)
            throw describeTimeout(request);
        throw describeLockError(e, request);
    } catch (ZResourceException_6_0 const& e) {
        throw describeLockError(e, request);
    }
    if (signals.caught() != 0)
        lock.unlock(0);
    return signals.caught();
}

[[noreturn]] void endBySignal(int number)
{
    signal(number, SIG_DFL);
    raise(number);
    _exit(128 + number);
}

// Releases the lock after the command has ended with `code`. Returns the exit code of the tool.
int release(Lock& lock, Request const& request, int code)
{
    try {
        lock.unlock();
        return code;
    } catch (ZResourceException_6_0 const& e) {
        bool const isLost = lock.isLost() != 0;
        int const failure =
            isLost ? report(describeLoss(request)) : report(describeLockError(e, request));
        lock.unlock(0);
        return isLost || code == 0 ? failure : code;
    }
}

int runLocked(Request const& request)
{
    LockedCommand command(request.command);
    Lock lock(request.lockName.c_str());
    if (int const number = acquire(lock, request))
        endBySignal(number);
    LossObserver loss;
    lock.addObserver(&loss);
    command.start(lock.token());
    int code;
    {
        ScopedKeeper const keeper(lock);
        code = command.wait([&] { return loss.isLost(); });
    }
    lock.deleteObserver(&loss);
    return release(lock, request, code);
}

}  // namespace

void checkFleetLock(Request const& request, PassedNames const&)
{
    if (ZFleetProperties_6_0::isFleetPath(request.lockName.c_str()) == 0)
        throw UsageError{quote(request.lockName) + " is not the path of a lock",
                         "write it as etcd://FLEET/NAME"};
    if (!request.show && !request.read && !request.write)
        throw UsageError{"--read, --write or --show is required", {}};
    if (!request.show && request.command.empty())
        throw UsageError{"-- COMMAND is required", {}};
}

int runFleetLock(Request const& request)
{
    return request.show ? show(request) : runLocked(request);
}
