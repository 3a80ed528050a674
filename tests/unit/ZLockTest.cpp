#include <Z/ZException.h>
#include <Z/ZLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "NotedMessages.h"
#include "Raised.h"
#include "Reports.h"
#include "ThreadCalls.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZLock";
enum Site {
    siteInConstructor = 40,
    siteInDestructor = 58,
    siteInLock = 77,
    siteInUnlockOfStranger = 91,
    siteInUnlock = 106
};

template <class Exception, class Action>
void expectFailure(Action action, uint32_t number, int rc, unsigned site)
{
    EXPECT_TRUE(raises<Exception>(number, rc, kSource, site, action));
}

void expectNotHeld(ZLock_6_0& lock)
{
    expectFailure<ZUnlockResourceException_6_0>([&] { lock.unlock(); }, 6, 0,
                                                siteInUnlockOfStranger);
}

}  // namespace

TEST(ZLock, IsFreeAfterAsManyUnlocksAsLocks)
{
    ZLock_6_0 lock;
    threadCalls = ThreadCalls();
    lock.lock();
    lock.lock();
    lock.lock();
    EXPECT_EQ(1, threadCalls.count[mutexLock]) << "only the first lock() touches the mutex";
    lock.unlock();
    lock.unlock();
    EXPECT_EQ(0, threadCalls.count[mutexUnlock]);
    lock.unlock();
    EXPECT_EQ(1, threadCalls.count[mutexUnlock]);
    expectNotHeld(lock);
}

TEST(ZLock, CanBeLockedAgainByAnyThread)
{
    ZLock_6_0 lock;
    for (int i = 0; i < 3; ++i) {
        lock.lock();
        lock.unlock();
        elsewhere([&] {
            lock.lock();
            lock.unlock();
        });
    }
    expectNotHeld(lock);
}

TEST(ZLock, CreatesItsMutexWithDefaultAttributes)
{
    threadCalls = ThreadCalls();
    ZLock_6_0 const lock;
    EXPECT_EQ(1, threadCalls.count[mutexInit]);
    EXPECT_TRUE(threadCalls.defaultAttributes);
}

TEST(ZLock, IsLockedThroughItsInterface)
{
    ZLock_6_0 lock;
    ZLockInterface_6_0& interface = lock;
    interface.lock();
    interface.unlock();
    expectNotHeld(lock);
}

TEST(ZLock, HasTheIdentityOfItsRootObject)
{
    ZLock_6_0 const lock;
    ZLock_6_0 const other;
    ZObject_6_0 const& object = lock;
    EXPECT_EQ(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&object)), lock.hash());
    EXPECT_EQ(0, lock.compare(lock));
    EXPECT_NE(0, lock.compare(other));
    EXPECT_EQ(nullptr, lock.clone());
}

TEST(ZLock, ExcludesOtherThreads)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 5000;
    ZLock_6_0 lock;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                lock.lock();
                ++counter;
                lock.lock();
                ++counter;
                lock.unlock();
                lock.unlock();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(2L * kThreads * kRounds, counter);
}

TEST(ZLock, UnlockByAnotherThreadThrowsAndChangesNothing)
{
    ZLock_6_0 lock;
    lock.lock();
    lock.lock();
    elsewhere([&] { expectNotHeld(lock); });
    lock.unlock();
    lock.unlock();
    expectNotHeld(lock);
}

TEST(ZLock, UnlockOfAFreeLockThrowsAndChangesNothing)
{
    ZLock_6_0 lock;
    expectNotHeld(lock);
    lock.lock();
    lock.unlock();
}

// Thread ids are addresses: with large stacks two of them may have the same low 32 bits.
TEST(ZLock, DistinguishesThreadsByTheirWholeId)
{
    constexpr size_t kApart = size_t{1} << 32;
    constexpr size_t kStack = size_t{1} << 21;
    char* const room = static_cast<char*>(mmap(nullptr, kApart + kStack, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    if (room == MAP_FAILED)
        GTEST_SKIP() << "no address space for two stacks 4 GiB apart";

    struct Shared {
        ZLock_6_0 lock;
        std::atomic<pthread_t> holder{0};
        std::atomic<pthread_t> stranger{0};
        std::atomic<bool> done{false};
        bool raised = false;
    } shared;
    auto const hold = [](void* arg) -> void* {
        auto& s = *static_cast<Shared*>(arg);
        s.lock.lock();
        s.holder = pthread_self();
        while (!s.done)
            std::this_thread::yield();
        s.lock.unlock();
        return nullptr;
    };
    auto const intrude = [](void* arg) -> void* {
        auto& s = *static_cast<Shared*>(arg);
        while (s.holder == 0)
            std::this_thread::yield();
        s.stranger = pthread_self();
        try {
            s.lock.unlock();
        } catch (ZUnlockResourceException_6_0&) {
            s.raised = true;
        }
        s.done = true;
        return nullptr;
    };
    pthread_t threads[2];
    void* (*const bodies[2])(void*) = {hold, intrude};
    for (int i = 0; i < 2; ++i) {
        pthread_attr_t attributes;
        ASSERT_EQ(0, pthread_attr_init(&attributes));
        ASSERT_EQ(0, pthread_attr_setstack(&attributes, room + i * kApart, kStack));
        ASSERT_EQ(0, pthread_create(&threads[i], &attributes, bodies[i], &shared));
        ASSERT_EQ(0, pthread_attr_destroy(&attributes));
    }
    for (pthread_t thread : threads)
        ASSERT_EQ(0, pthread_join(thread, nullptr));
    EXPECT_NE(shared.holder.load(), shared.stranger.load());
    EXPECT_EQ(static_cast<uint32_t>(shared.holder), static_cast<uint32_t>(shared.stranger));
    EXPECT_TRUE(shared.raised);
    munmap(room, kApart + kStack);
}

TEST(ZLock, ThrowsTheRcOfFailedMutexCalls)
{
    threadCalls.fail[mutexInit] = ENOMEM;
    expectFailure<ZCreateResourceException_6_0>([] { ZLock_6_0 const lock; }, 3, ENOMEM,
                                                siteInConstructor);
    threadCalls = ThreadCalls();

    ZLock_6_0 lock;
    threadCalls.fail[mutexLock] = EAGAIN;
    expectFailure<ZLockResourceException_6_0>([&] { lock.lock(); }, 5, EAGAIN, siteInLock);
    threadCalls = ThreadCalls();
    expectNotHeld(lock);

    lock.lock();
    threadCalls.fail[mutexUnlock] = EPERM;
    expectFailure<ZUnlockResourceException_6_0>([&] { lock.unlock(); }, 6, EPERM, siteInUnlock);
    threadCalls = ThreadCalls();
    lock.lock();
    EXPECT_EQ(0, threadCalls.count[mutexLock])
        << "the lock is still held after the failed unlock()";
    lock.unlock();
    lock.unlock();
    EXPECT_EQ(1, threadCalls.count[mutexUnlock]);
}

TEST(ZLock, OnlyReportsAFailureToDestroyItsMutex)
{
    NotedMessages const noted;
    {
        ZLock_6_0 const lock;
        threadCalls.fail[mutexDestroy] = EBUSY;
    }
    threadCalls = ThreadCalls();
    ASSERT_EQ(1u, noted.messages().size());
    NotedMessages::Message const message = noted.messages()[0];
    EXPECT_EQ(kSource, message.file);
    EXPECT_EQ(siteInDestructor, message.line);
    EXPECT_EQ(4, message.number);
    EXPECT_EQ(1, message.insertCount);
    std::vector<std::string> const inserts = {"16",     "(null)", "(null)",
                                              "(null)", "(null)", "(null)"};
    EXPECT_EQ(inserts, message.inserts);
}

TEST(ZLock, IsDestroyedEvenIfTheReportFails)
{
    NotedMessages noted;
    noted.throwsToo = true;
    {
        ZLock_6_0 const lock;
        threadCalls.fail[mutexDestroy] = EBUSY;
    }
    threadCalls = ThreadCalls();
    EXPECT_EQ(1u, noted.messages().size());

    ZLock_6_0 lock;
    EXPECT_THROW(
        {
            ZResourceLock_6_0 const guard(lock);
            lock.unlock();
            throw std::runtime_error("the first exception");
        },
        std::runtime_error);
    EXPECT_EQ(1, noted.exceptions());
}

TEST(ZLock, WritesTheReportOfAFailureToDestroyItsMutex)
{
    std::string const report = reportOf([] {
        ZLock_6_0 const lock;
        threadCalls.fail[mutexDestroy] = EBUSY;
    });
    threadCalls = ThreadCalls();
    EXPECT_EQ(
        "Error: 4\n File: \"src/Z/ZLock\" 58\n" + threadLine() + "Additional Information:\n16\n",
        report);
}

TEST(ZLock, KeepsACopyFreeAndUninitialised)
{
    ZLock_6_0 lock;
    lock.lock();
    threadCalls = ThreadCalls();
    NotedMessages const noted;
    {
        ZLock_6_0 copy(lock);
        EXPECT_EQ(0, threadCalls.count[mutexInit]);
        expectNotHeld(copy);
    }
    EXPECT_TRUE(noted.messages().empty());
    lock.unlock();
}

TEST(ZLock, KeepsItsStateWhenAssignedTo)
{
    ZLock_6_0 held;
    ZLock_6_0 free;
    held.lock();
    held = free;
    free = held;
    expectNotHeld(free);
    held.unlock();
    expectNotHeld(held);
}

TEST(ZResourceLock, HoldsTheLockInItsScope)
{
    ZLock_6_0 lock;
    {
        ZResourceLock_6_0 const outer(lock);
        elsewhere([&] { expectNotHeld(lock); });
        {
            ZResourceLock_6_0 const inner(lock);
        }
        lock.lock();
        lock.unlock();
    }
    expectNotHeld(lock);
}

TEST(ZResourceLock, ReleasesTheLockWhenAnExceptionPasses)
{
    ZLock_6_0 lock;
    EXPECT_THROW(
        {
            ZResourceLock_6_0 const guard(lock);
            throw std::runtime_error("passes");
        },
        std::runtime_error);
    expectNotHeld(lock);
}

TEST(ZResourceLock, IsNotConstructedIfTheLockFails)
{
    ZLock_6_0 lock;
    threadCalls.fail[mutexLock] = EINVAL;
    expectFailure<ZLockResourceException_6_0>([&] { ZResourceLock_6_0 const guard(lock); }, 5,
                                              EINVAL, siteInLock);
    threadCalls = ThreadCalls();
    expectNotHeld(lock);
}

TEST(ZResourceLock, ThrowsIfTheLockIsNoLongerHeld)
{
    ZLock_6_0 lock;
    expectFailure<ZUnlockResourceException_6_0>(
        [&] {
            ZResourceLock_6_0 const guard(lock);
            lock.unlock();
        },
        6, 0, siteInUnlockOfStranger);
}

// A lock class of the caller may throw anything.
TEST(ZResourceLock, HandlesExceptionsOfAnyClass)
{
    class Foreign : public ZLock_6_0 {
    public:
        void unlock() override
        {
            ZLock_6_0::unlock();
            throw std::runtime_error("unlock");
        }
    } lock;
    NotedMessages const noted;
    EXPECT_THROW(ZResourceLock_6_0 const guard(lock), std::runtime_error);
    EXPECT_EQ(0u, noted.messages().size());
    EXPECT_THROW(
        {
            ZResourceLock_6_0 const guard(lock);
            throw std::logic_error("the first exception");
        },
        std::logic_error);
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(19, noted.messages()[0].number);
    EXPECT_EQ(kSource, noted.messages()[0].file);
    EXPECT_EQ(119, noted.messages()[0].line);
    expectFailure<ZUnlockResourceException_6_0>([&] { lock.ZLock_6_0::unlock(); }, 6, 0,
                                                siteInUnlockOfStranger);
}

TEST(ZResourceLock, ReportsInsteadOfThrowingDuringUnwinding)
{
    ZLock_6_0 lock;
    NotedMessages const noted;
    EXPECT_THROW(
        {
            ZResourceLock_6_0 const guard(lock);
            lock.unlock();
            throw std::runtime_error("the first exception");
        },
        std::runtime_error);
    EXPECT_EQ(1, noted.exceptions());
    expectNotHeld(lock);
}
