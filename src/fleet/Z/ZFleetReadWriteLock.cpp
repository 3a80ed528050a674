#include "ZFleetReadWriteLock.h"

#include <Z/ZException.h>
#include <errno.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <new>
#include <utility>

#include "ZFleetConnection_p.h"
#include "ZFleetReadWriteLock_p.h"
#include "configuration/path.h"
#include "transport/failure.h"

using namespace zfleet_lock;

namespace {

// The numbers of the messages of locks between processes.
enum Message { lockFailed = 33, unlockFailed = 34, readFailed = 35 };

constexpr int kNotANumber = -1;  // rc

// Whether unlock() of the calling thread reports the loss of this lock.
thread_local ZFleetReadWriteLock_6_0 const* reporting = nullptr;

class ReportsLoss {
public:
    ReportsLoss(ZFleetReadWriteLock_6_0 const* lock, int update)
        : before_(std::exchange(reporting, update != 0 ? lock : nullptr))
    {
    }
    ReportsLoss(ReportsLoss const&) = delete;
    ReportsLoss& operator=(ReportsLoss const&) = delete;
    ~ReportsLoss() { reporting = before_; }

private:
    ZFleetReadWriteLock_6_0 const* const before_;
};

// Runs `call`; a failed call of the cluster becomes an exception of the class Failure.
template <class Failure, class Call>
auto translate(Message message, RaiseSite site, Call call) -> decltype(call())
{
    int error = ENOMEM;
    try {
        return call();
    } catch (std::bad_alloc const&) {
        ZOutOfMemoryException_6_0().throwException(kSource, raiseForMemory);
    } catch (zfleet::CallError const& failure) {
        error = failure.error;
    }
    Failure(message, error).throwException(kSource, site);
}

char const* requireFleetPath(char const* path)
{
    if (!zfleet::isFleetPath(path))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForPath);
    return path;
}

}  // namespace

// ---- The notification --------------------------------------------------------------------------

ZFleetLockLost_6_0::ZFleetLockLost_6_0(int64_t token) : token_(token)
{
}

ZFleetLockLost_6_0::ZFleetLockLost_6_0(ZFleetLockLost_6_0 const& other) = default;
ZFleetLockLost_6_0::~ZFleetLockLost_6_0() = default;

ZObject_6_0* ZFleetLockLost_6_0::clone() const
{
    return new ZFleetLockLost_6_0(*this);
}

// ---- The lock ----------------------------------------------------------------------------------

ZFleetReadWriteLock_6_0::Rep::Rep(char const* lockPath)
    : path(lockPath),
      connection(ZFleetConnection_6_0::open(zfleet::parsePath(lockPath).fleet.c_str())),
      lock(connection->rep().cluster, zfleet::parsePath(lockPath).name)
{
}

ZFleetReadWriteLock_6_0::ZFleetReadWriteLock_6_0(char const* path)
    : ZAbstractProcessReadWriteFileLock_6_0(requireFleetPath(path)), rep_(new Rep(path))
{
}

ZFleetReadWriteLock_6_0::~ZFleetReadWriteLock_6_0()
{
    delete rep_;
}

void ZFleetReadWriteLock_6_0::lock(zlockstate state)
{
    try {
        ZAbstractProcessReadWriteFileLock_6_0::lock(state);
    } catch (ZException_6_0 const&) {
        Rep::reportLoss(*this);  // the first failure is thrown
        throw;
    }
    notifyLoss();
}

void ZFleetReadWriteLock_6_0::unlock(int update)
{
    failIfStranger();
    ReportsLoss const reports(this, update);
    unsigned long const sequence = getSequence();
    unsigned long const lastSequence = getLastSequence();
    std::optional<std::string> const newNumber = rep_->newNumber;
    try {
        ZAbstractProcessReadWriteFileLock_6_0::unlock(update);
    } catch (ZResourceException_6_0 const&) {
        if (getLockState() == write && threadLock().ownWriteLock() != 0) {
            setSequence(sequence);
            setLastSequence(lastSequence);
            rep_->newNumber = newNumber;
        }
        throw;
    }
}

char const* ZFleetReadWriteLock_6_0::getLockDirName() const
{
    return "";
}

void ZFleetReadWriteLock_6_0::setLockDirName(char const* dir)
{
    if (dir != nullptr && *dir != 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForDirectory);
}

char const* ZFleetReadWriteLock_6_0::getLockFileName() const
{
    return rep_->path.c_str();
}

void ZFleetReadWriteLock_6_0::setLockFileName(char const* name)
{
    if (name == nullptr || rep_->path != name)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForFileName);
}

void ZFleetReadWriteLock_6_0::lockFile(zlockstate state)
{
    int64_t const patience = rep_->patience;
    std::optional<zfleet::Clock::duration> limit;
    if (patience >= 0)
        limit = std::chrono::milliseconds(patience);
    rep_->newNumber.reset();
    rep_->sequence = translate<ZLockResourceException_6_0>(lockFailed, raiseInLock, [&] {
        return rep_->lock.acquire(state == read ? zfleet::LockMode::read : zfleet::LockMode::write,
                                  limit);
    });
}

void ZFleetReadWriteLock_6_0::unlockFile()
{
    using Result = zfleet::FleetLock::Release;
    if (getLockState() == unset) {  // undoing an acquisition
        rep_->lock.drop();
        return;
    }
    bool const tells = reporting == this;
    Result const result = translate<ZUnlockResourceException_6_0>(
        unlockFailed, raiseInUnlock, [&] { return rep_->lock.release(rep_->newNumber, tells); });
    // A guard releases a lock whose update has failed with an exception of this class.
    if (result == Result::lost)
        ZWriteResourceException_6_0(unlockFailed, ESTALE).throwException(kSource, raiseForLoss);
    if (result == Result::notCounted)
        ZWriteResourceException_6_0(lockFailed, ENOSPC)
            .throwException(kSource, raiseForFullDatabase);
    rep_->newNumber.reset();
}

void ZFleetReadWriteLock_6_0::lockFileRange(zlockstate, unsigned int, unsigned int)
{
}

void ZFleetReadWriteLock_6_0::unlockFileRange(unsigned int, unsigned int)
{
}

void ZFleetReadWriteLock_6_0::writePid()
{
}

void ZFleetReadWriteLock_6_0::writeBytes(void*, unsigned int, unsigned int)
{
}

void ZFleetReadWriteLock_6_0::readBytes(void*, unsigned int, unsigned int)
{
}

void ZFleetReadWriteLock_6_0::readSequenceNumber(unsigned long* sequence)
{
    if (sequence == nullptr)
        return;
    std::string const text =
        translate<ZReadResourceException_6_0>(readFailed, raiseInReadSequence, [&] {
            if (rep_->lock.token() == 0)
                return rep_->lock.readSequence();
            return rep_->newNumber.value_or(rep_->sequence);
        });
    if (text.empty())
        return;
    uint32_t number = 0;
    char const* const end = text.data() + text.size();
    auto const [last, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || last != end || number == invalidSequence)
        ZReadResourceException_6_0(readFailed, kNotANumber)
            .throwException(kSource, raiseInReadSequence);
    *sequence = number;
}

void ZFleetReadWriteLock_6_0::writeSequenceNumber(unsigned long sequence)
{
    if (getLockState() != write)
        ZWriteResourceException_6_0(lockFailed, EBADF)
            .throwException(kSource, raiseInWriteSequence);
    rep_->newNumber = std::to_string(static_cast<uint32_t>(sequence));
}

void ZFleetReadWriteLock_6_0::setPatience(int64_t milliseconds)
{
    constexpr int64_t kYear = int64_t{366} * 24 * 3600 * 1000;
    rep_->patience = milliseconds > kYear ? -1 : milliseconds;
}

int64_t ZFleetReadWriteLock_6_0::token() const
{
    return rep_->lock.token();
}

int64_t ZFleetReadWriteLock_6_0::remaining() const
{
    return rep_->lock.remaining() / 1'000'000;
}

int ZFleetReadWriteLock_6_0::keepAlive()
{
    bool const isHeld = translate<ZLockResourceException_6_0>(
        lockFailed, raiseInKeepAlive, [&] { return rep_->lock.keepAlive(); });
    notifyLoss();
    return isHeld ? 1 : 0;
}

int ZFleetReadWriteLock_6_0::isLost() const
{
    return rep_->lock.isLost() ? 1 : 0;
}

void ZFleetReadWriteLock_6_0::Rep::reportLoss(ZFleetReadWriteLock_6_0& lock)
{
    try {
        lock.notifyLoss();
    } catch (ZException_6_0& failure) {
        failure.dumpException();
    }
}

void ZFleetReadWriteLock_6_0::notifyLoss()
{
    if (int64_t const token = rep_->lock.takeLoss())
        notifyObservers(ZFleetLockLost_6_0(token));
}
