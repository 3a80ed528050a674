#include <Z/ZException.h>
#include <Z/ZThread.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

#include "NotedMessages.h"
#include "Raised.h"
#include "ThreadCalls.h"
#include "Threads.h"

namespace {

// A thread that runs an action of the test and counts its ends.
class TestThread : public ZThread_6_0 {
public:
    explicit TestThread(std::function<void()> work, int detached = 0, int autoDelete = 0)
        : ZThread_6_0(detached, autoDelete), work_(std::move(work))
    {
    }
    ~TestThread() override { ++destroyed; }
    void run() override { work_(); }
    void exit() override { ++exits; }

    std::atomic<int> exits{0};
    static inline std::atomic<int> destroyed{0};

private:
    std::function<void()> work_;
};

class ZThread : public testing::Test {
protected:
    void SetUp() override
    {
        threadCalls = ThreadCalls();
        TestThread::destroyed = 0;
    }
};

}  // namespace

TEST_F(ZThread, RunsOnAThreadOfItsOwn)
{
    std::atomic<unsigned long> id{0};
    TestThread thread([&] { id = pthread_self(); });
    EXPECT_EQ(0u, thread.getPThreadID());
    thread.start();
    thread.waitForExit();
    EXPECT_NE(0u, id);
    EXPECT_NE(pthread_self(), id);
    EXPECT_EQ(id, thread.getPThreadID());
    EXPECT_EQ(static_cast<uint32_t>(id), thread.hash());
    EXPECT_EQ(1, thread.exits);
}

TEST_F(ZThread, MayBeStartedAgain)
{
    std::atomic<int> runs{0};
    TestThread thread([&] { ++runs; });
    for (int i = 1; i <= 3; ++i) {
        thread.start();
        thread.waitForExit();
        EXPECT_EQ(i, runs);
    }
}

TEST_F(ZThread, OrdersById)
{
    TestThread one([] {});
    TestThread two([] {});
    EXPECT_EQ(0, one.compare(two));  // neither thread has an id
    one.start();
    one.waitForExit();
    EXPECT_EQ(1, one.compare(two));
    EXPECT_EQ(-1, two.compare(one));
}

TEST_F(ZThread, OrdersAmongOtherObjectsByAddress)
{
    TestThread const thread([] {});
    ZObject_6_0 const stranger;
    EXPECT_EQ(&thread < &stranger ? -1 : 1, thread.compare(stranger));
    EXPECT_EQ(-thread.compare(stranger), stranger.compare(thread));
}

TEST_F(ZThread, WrapsARunningThread)
{
    class Wrapper : public ZThread_6_0 {
    public:
        using ZThread_6_0::ZThread_6_0;
        void run() override {}
    };
    std::atomic<bool> ended{false};
    auto const entry = [](void* flag) -> void* {
        *static_cast<std::atomic<bool>*>(flag) = true;
        return nullptr;
    };
    pthread_t id;
    ASSERT_EQ(0, pthread_create(&id, nullptr, entry, &ended));
    Wrapper thread(id);
    EXPECT_EQ(id, thread.getPThreadID());
    EXPECT_EQ(static_cast<uint32_t>(id), thread.hash());
    thread.waitForExit();
    EXPECT_TRUE(ended);
    EXPECT_TRUE(raises<ZThreadException_6_0>(20, ESRCH, "src/Z/ZThread", 151,
                                             [&] { thread.waitForExit(); }));
}

TEST_F(ZThread, RefusesToBeCloned)
{
    TestThread thread([] {});
    EXPECT_TRUE(
        raises<ZNotClonableException_6_0>(14, "src/Z/ZThread", 88, [&] { thread.clone(); }));
}

TEST_F(ZThread, WaitingForADetachedThreadReturnsImmediately)
{
    std::atomic<bool> release{false};
    std::atomic<bool> ended{false};
    TestThread thread(
        [&] {
            waitUntil([&] { return release.load(); });
            ended = true;
        },
        1);
    thread.start();
    thread.waitForExit();
    EXPECT_FALSE(ended);
    release = true;
    waitUntil([&] { return thread.exits == 1; });
    EXPECT_TRUE(ended);
}

// Whether or not the thread still runs, its object has the new thread's id, hash and order.
TEST_F(ZThread, TheIdOfADetachedThreadIsKnownWhenStartReturns)
{
    for (bool const endsAtOnce : {false, true}) {
        SCOPED_TRACE(endsAtOnce ? "ends immediately" : "keeps running");
        for (int i = 0; i < 500; ++i) {
            std::atomic<unsigned long> id{0};
            std::atomic<unsigned long> idInRun{0};
            std::atomic<bool> mayEnd{endsAtOnce};
            TestThread* self = nullptr;
            TestThread thread(
                [&] {
                    idInRun = self->getPThreadID();
                    id = pthread_self();
                    waitUntil([&] { return mayEnd.load(); });
                },
                1);
            self = &thread;
            thread.start();
            unsigned long const known = thread.getPThreadID();
            uint32_t const hash = thread.hash();
            waitUntil([&] { return id != 0; });
            ASSERT_EQ(id, known);
            ASSERT_EQ(id, idInRun);
            ASSERT_EQ(static_cast<uint32_t>(id), hash);
            class Wrapped : public ZThread_6_0 {
            public:
                using ZThread_6_0::ZThread_6_0;
                void run() override {}
            };
            ASSERT_EQ(0, thread.compare(Wrapped(id.load())));
            ASSERT_EQ(1, thread.compare(Wrapped(id.load() - 1)));
            mayEnd = true;
            waitUntil([&] { return thread.exits == 1; });
            // A second start stores the id of the second thread.
            id = 0;
            thread.start();
            unsigned long const second = thread.getPThreadID();
            waitUntil([&] { return id != 0; });
            ASSERT_EQ(id, second);
            waitUntil([&] { return thread.exits == 2; });
        }
    }
}

// The thread may delete the object before start() returns.
TEST_F(ZThread, ADetachedThreadMayDeleteItselfBeforeStartReturns)
{
    constexpr int kThreads = 500;
    for (int i = 0; i < kThreads; ++i)
        (new TestThread([] {}, 1, 1))->start();
    waitUntil([] { return TestThread::destroyed == kThreads; });
}

TEST_F(ZThread, AFailedStartOfADetachedThreadLeavesItsId)
{
    TestThread thread([] {}, 1);
    thread.start();
    unsigned long const id = thread.getPThreadID();
    waitUntil([&] { return thread.exits == 1; });
    threadCalls.fail[threadCreate] = EAGAIN;
    EXPECT_THROW(thread.start(), ZThreadException_6_0);
    EXPECT_EQ(id, thread.getPThreadID());
    threadCalls = ThreadCalls();
    thread.start();
    waitUntil([&] { return thread.exits == 2; });
}

// The first thread reaches its entry only during the second start, whether or not that creates a
// thread.
TEST_F(ZThread, BothThreadsRunIfADetachedObjectIsStartedTwice)
{
    for (int const secondFails : {0, EAGAIN}) {
        SCOPED_TRACE(secondFails);
        auto const runs = std::make_shared<std::atomic<int>>(0);
        auto thread = std::make_unique<TestThread>([runs] { ++*runs; }, 1);
        int const expected = secondFails == 0 ? 2 : 1;
        static std::unique_ptr<WatchedThread> first;
        first = std::make_unique<WatchedThread>();
        entriesHeld = true;
        thread->start();
        threadCalls.fail[threadCreate] = secondFails;
        threadCalls.beforeCreateReturns = [] {
            // Lets the first thread overtake the second start: it ends, or waits for it.
            HeldEntry::release(first.get());
            first->waitUntilAsleep();
        };
        if (secondFails != 0)
            EXPECT_THROW(thread->start(), ZThreadException_6_0);
        else
            thread->start();
        threadCalls = ThreadCalls();
        auto const limit = std::chrono::steady_clock::now() + kHangs;
        waitUntil(
            [&] { return thread->exits == expected || std::chrono::steady_clock::now() > limit; });
        int const exits = thread->exits;
        if (exits != expected)
            thread.release();  // a thread still waits for it
        ASSERT_EQ(expected, exits);
        EXPECT_EQ(expected, *runs);
    }
}

TEST_F(ZThread, ADetachedThreadDeletesItself)
{
    for (int i = 1; i <= 50; ++i) {
        (new TestThread([] {}, 1, 1))->start();
        waitUntil([&] { return TestThread::destroyed == i; });
    }
}

TEST_F(ZThread, AutoDeleteIsIgnoredUnlessDetached)
{
    TestThread thread([] {}, 0, 1);
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(0, TestThread::destroyed);
}

TEST_F(ZThread, ExceptionsEndTheThreadAndAreReported)
{
    NotedMessages noted;
    TestThread library([] { ZUnsupportedException_6_0().throwException("src/x", 1); });
    library.start();
    library.waitForExit();
    EXPECT_EQ(1, noted.exceptions());
    EXPECT_EQ(1, library.exits);
    TestThread foreign([] { throw std::runtime_error("x"); });
    foreign.start();
    foreign.waitForExit();
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(19, noted.messages()[0].number);
    EXPECT_EQ(0, noted.messages()[0].insertCount);
    EXPECT_EQ("src/Z/ZThread", noted.messages()[0].file);
    EXPECT_EQ(1, foreign.exits);
}

TEST_F(ZThread, ExceptionsOfTheHookAreReported)
{
    class Hooked : public TestThread {
    public:
        using TestThread::TestThread;
        void exit() override
        {
            TestThread::exit();
            if (exits == 1)
                throw std::runtime_error("exit");
            ZUnsupportedException_6_0().throwException("src/x", 1);
        }
    } thread([] {});
    NotedMessages const noted;
    for (int i = 1; i <= 2; ++i) {
        thread.start();
        thread.waitForExit();
        EXPECT_EQ(i, thread.exits);
    }
    EXPECT_EQ(1, noted.exceptions());
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(19, noted.messages()[0].number);
    EXPECT_EQ(196, noted.messages()[0].line);
}

TEST_F(ZThread, EndsEvenIfTheReportFails)
{
    NotedMessages noted;
    noted.throwsToo = true;
    TestThread thread([] { throw std::runtime_error("x"); });
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(1u, noted.messages().size());
    EXPECT_EQ(1, thread.exits);
}

TEST_F(ZThread, CancellingEndsTheThread)
{
    std::atomic<bool> running{false};
    TestThread thread([&] {
        running = true;
        for (;;) {
            pthread_testcancel();
            std::this_thread::yield();
        }
    });
    thread.start();
    waitUntil([&] { return running.load(); });
    pthread_cancel(thread.getPThreadID());
    thread.waitForExit();
    EXPECT_EQ(1, thread.exits);
}

TEST_F(ZThread, WaitingWithoutAThreadThrows)
{
    TestThread thread([] {});
    EXPECT_TRUE(raises<ZThreadException_6_0>(20, ESRCH, "src/Z/ZThread", 151,
                                             [&] { thread.waitForExit(); }));
    thread.start();
    thread.waitForExit();
    EXPECT_TRUE(raises<ZThreadException_6_0>(20, ESRCH, "src/Z/ZThread", 151,
                                             [&] { thread.waitForExit(); }));
}

// A thread that waits for itself gets this failure.
TEST_F(ZThread, AFailedWaitLeavesTheThreadJoinable)
{
    TestThread thread([] {});
    thread.start();
    threadCalls.fail[threadJoin] = EDEADLK;
    EXPECT_TRUE(raises<ZThreadException_6_0>(20, EDEADLK, "src/Z/ZThread", 151,
                                             [&] { thread.waitForExit(); }));
    threadCalls = ThreadCalls();
    thread.waitForExit();
    EXPECT_EQ(1, thread.exits);
}

TEST_F(ZThread, ACancelledWaitLeavesTheThreadJoinable)
{
    std::atomic<bool> release{false};
    TestThread thread([&] { waitUntil([&] { return release.load(); }); });
    thread.start();
    CancellableThread waiting([&] {
        pthread_cancel(pthread_self());
        thread.waitForExit();
    });
    EXPECT_TRUE(waiting.endsCancelled());
    release = true;
    thread.waitForExit();
    EXPECT_EQ(1, thread.exits);
}

TEST_F(ZThread, FailingCallsThrow)
{
    struct Case {
        char const* name;
        ThreadCall call;
        uint32_t message;
        unsigned site;
    };
    Case const cases[] = {{"attr_init", attrInit, 15, 103},
                          {"setdetachstate", attrSetDetachState, 16, 112},
                          {"create", threadCreate, 17, 124}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        TestThread thread([] {});
        threadCalls.fail[c.call] = EAGAIN;
        EXPECT_TRUE(raises<ZThreadException_6_0>(c.message, EAGAIN, "src/Z/ZThread", c.site,
                                                 [&] { thread.start(); }));
        threadCalls = ThreadCalls();
        EXPECT_EQ(0u, thread.getPThreadID());
        thread.start();
        thread.waitForExit();
    }
}

TEST_F(ZThread, AttributesThatCannotBeDestroyedAreReported)
{
    NotedMessages noted;
    threadCalls.fail[attrDestroy] = EINVAL;
    TestThread thread([] {});
    thread.start();
    thread.waitForExit();
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(18, noted.messages()[0].number);
    EXPECT_EQ(std::to_string(EINVAL), noted.messages()[0].inserts[0]);
}

TEST_F(ZThread, ObjectsBelongToAThread)
{
    class Counted : public ZObject_6_0 {
    public:
        explicit Counted(std::atomic<int>& count) : count_(count) {}
        ~Counted() override { ++count_; }

    private:
        std::atomic<int>& count_;
    };
    std::atomic<int> deleted{0};
    unsigned int key = 0;
    ZThread_6_0::createThreadKey(key);
    EXPECT_EQ(nullptr, ZThread_6_0::getThreadObject(key));
    Counted mine(deleted);
    ZThread_6_0::setThreadObject(key, &mine);
    TestThread thread([&] {
        EXPECT_EQ(nullptr, ZThread_6_0::getThreadObject(key));
        auto* const theirs = new Counted(deleted);
        ZThread_6_0::setThreadObject(key, theirs);
        EXPECT_EQ(theirs, ZThread_6_0::getThreadObject(key));
    });
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(1, deleted);
    EXPECT_EQ(&mine, ZThread_6_0::getThreadObject(key));
    ZThread_6_0::setThreadObject(key, nullptr);
    ZThread_6_0::key_delete_routine(nullptr);
    ZThread_6_0::key_delete_routine(new Counted(deleted));
    EXPECT_EQ(2, deleted);
    pthread_key_delete(key);
}

TEST_F(ZThread, FailingKeyCallsThrow)
{
    unsigned int key = 0;
    threadCalls.fail[keyCreate] = EAGAIN;
    EXPECT_TRUE(raises<ZThreadException_6_0>(29, EAGAIN, "src/Z/ZThread", 221,
                                             [&] { ZThread_6_0::createThreadKey(key); }));
    unsigned int none = 12345678;
    EXPECT_TRUE(raises<ZThreadException_6_0>(30, EINVAL, "src/Z/ZThread", 234,
                                             [&] { ZThread_6_0::setThreadObject(none, nullptr); }));
}
