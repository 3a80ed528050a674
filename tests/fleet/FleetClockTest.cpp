// Clocks that are set while a program uses the cluster, and a machine that is suspended.
//
// This file replaces clock_gettime() for the program and all of its libraries.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "Threads.h"

namespace {

std::atomic<long> wallOffset{0};  // seconds
std::atomic<long> bootOffset{0};

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    long const rc = syscall(SYS_clock_gettime, clock, time);
    if (rc == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        time->tv_sec += wallOffset;
    if (rc == 0 && clock == CLOCK_BOOTTIME)
        time->tv_sec += bootOffset;
    return static_cast<int>(rc);
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kDay = 24 * 3600;
constexpr char kPath[] = "etcd://test/clock";
constexpr char kText[] = "/zfleet/6/cfg/clock/text";

class FleetClock : public testing::Test {
protected:
    FleetClock() { cluster_.put(kText, "[s]\nx = 0\n"); }
    ~FleetClock() override
    {
        wallOffset = 0;
        bootOffset = 0;
    }

    // Sets the wall clock to another time, again and again.
    class Setter {
    public:
        Setter()
        {
            thread_ = std::thread([this] {
                for (unsigned i = 0; !isOver_; ++i) {
                    wallOffset = i % 3 == 0 ? kDay : i % 3 == 1 ? -kDay : 0;
                    std::this_thread::sleep_for(std::chrono::milliseconds(3));
                }
            });
        }
        Setter(Setter const&) = delete;
        Setter& operator=(Setter const&) = delete;
        ~Setter()
        {
            isOver_ = true;
            thread_.join();
        }

    private:
        std::atomic<bool> isOver_{false};
        std::thread thread_;
    };

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) +
                          "budget = 20\ncall = 5000\nlease = 30\n"};
};

}  // namespace

TEST_F(FleetClock, WallClockIsReplaced)
{
    time_t const before = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    wallOffset = kDay;
    EXPECT_LE(before + kDay,
              std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
}

TEST_F(FleetClock, StoresAndLocksIgnoreTheWallClock)
{
    Setter const setter;
    Clock::time_point const begin = Clock::now();
    ZFleetProperties_6_0 store(kPath, 1);
    ZFleetReadWriteLock_6_0 lock("etcd://test/clock");
    for (unsigned i = 1; i <= 50; ++i) {
        lock.writeLock();
        EXPECT_LT(20000, lock.remaining());
        EXPECT_GE(27000, lock.remaining());
        store.setIntegerValue("s", "x", i);
        store.store(nullptr);
        EXPECT_EQ(1, lock.keepAlive());
        lock.unlock();
    }
    EXPECT_GT(std::chrono::seconds(60), Clock::now() - begin);
    EXPECT_EQ(50ul, lock.getSequence());
    EXPECT_EQ("[s]\nx = 50\n", cluster_.get(kText));
}

TEST_F(FleetClock, PatienceIgnoresTheWallClock)
{
    Setter const setter;
    ZFleetReadWriteLock_6_0 holder("etcd://test/clock");
    ZFleetReadWriteLock_6_0 next("etcd://test/clock");
    holder.writeLock();
    next.setPatience(500);
    Clock::time_point const begin = Clock::now();
    std::thread([&] { EXPECT_THROW(next.writeLock(), ZLockResourceException_6_0); }).join();
    EXPECT_LE(std::chrono::milliseconds(500), Clock::now() - begin);
    EXPECT_GT(std::chrono::seconds(15), Clock::now() - begin);
    next.setPatience(-1);
    std::thread waiting([&] {
        next.writeLock();
        next.unlock();
    });
    waitUntil([&] { return cluster_.keys("/zfleet/6/lock/clock/q/").size() == 2; });
    holder.unlock();
    waiting.join();
    EXPECT_EQ(2ul, next.getSequence());
}

// The time in which the machine was suspended counts: another program may hold the lock.
TEST_F(FleetClock, SuspendedMachineIsNotCertainOfItsLock)
{
    ZFleetReadWriteLock_6_0 lock("etcd://test/clock");
    lock.writeLock();
    bootOffset = 26;
    EXPECT_LT(0, lock.remaining());
    bootOffset = 27;
    EXPECT_EQ(0, lock.remaining());
    EXPECT_EQ(1, lock.keepAlive());
    EXPECT_LT(0, lock.remaining());
    bootOffset = kDay;
    cluster_.endLeases();
    EXPECT_EQ(0, lock.remaining());
    EXPECT_EQ(0, lock.keepAlive());
    EXPECT_EQ(1, lock.isLost());
    lock.unlock(0);
}
