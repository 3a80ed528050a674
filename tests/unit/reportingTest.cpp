// Tests every operation of the library that must not propagate a failure: destructors while an
// exception unwinds the stack, ends of threads, rollbacks. They may release or call objects of a
// caller's class, which may throw anything.
#include <Z/ZArray.h>
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZHashKeyMap.h>
#include <Z/ZHashMap.h>
#include <Z/ZLock.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <Z/ZProcessReadWriteLock.h>
#include <Z/ZPropertiesInterface.h>
#include <Z/ZReadWriteLock.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZThread.h>
#include <Z/ZThreadPool.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>

#include "LockStates.h"
#include "NotedMessages.h"
#include "TestDirectory.h"
#include "Threads.h"

namespace {

enum class Kind { ofTheLibrary, ofTheStandard, ofACallersClass };

constexpr struct {
    char const* name;
    Kind kind;
} kKinds[] = {
    {"an exception of the library", Kind::ofTheLibrary},
    {"a standard exception", Kind::ofTheStandard},
    {"an object of a caller's class", Kind::ofACallersClass},
};

struct CallersFailure {};

void fail(Kind kind)
{
    switch (kind) {
        case Kind::ofTheLibrary:
            ZUnsupportedException_6_0().throwException("tests", 1);
        case Kind::ofTheStandard:
            throw std::runtime_error("caller");
        case Kind::ofACallersClass:
            throw CallersFailure();
    }
}

// Whether `action` throws what fail() throws.
bool failsAs(Kind kind, std::function<void()> const& action)
{
    try {
        action();
    } catch (ZUnsupportedException_6_0 const&) {
        return kind == Kind::ofTheLibrary;
    } catch (std::runtime_error const&) {
        return kind == Kind::ofTheStandard;
    } catch (CallersFailure const&) {
        return kind == Kind::ofACallersClass;
    }
    return false;
}

int reportsIn(NotedMessages const& noted)
{
    return noted.exceptions() + static_cast<int>(noted.messages().size());
}

// ---- Objects of a caller's classes -------------------------------------------------------------

class FailingLock : public ZLock_6_0 {
public:
    explicit FailingLock(Kind kind) : kind_(kind) {}
    void unlock() override
    {
        ZLock_6_0::unlock();
        fail(kind_);
    }

private:
    Kind const kind_;
};

class FailingReadWriteLock : public ZReadWriteLock_6_0 {
public:
    explicit FailingReadWriteLock(Kind kind) : kind_(kind) {}
    using ZReadWriteLock_6_0::unlock;
    void unlock() override
    {
        ZReadWriteLock_6_0::unlock();
        fail(kind_);
    }

private:
    Kind const kind_;
};

// Its destructor fails if the object is a clone of the given generation: an owning container
// stores clones.
class FailingElement : public ZObject_6_0 {
public:
    FailingElement(Kind kind, int generations) : kind_(kind), generations_(generations) {}
    ~FailingElement() noexcept(false) override
    {
        if (generations_ == 0)
            fail(kind_);
    }
    ZObject_6_0* clone() const override { return new FailingElement(kind_, generations_ - 1); }

private:
    Kind const kind_;
    int const generations_;
};

class FailingObserver final : public ZObserverInterface_6_0 {
public:
    explicit FailingObserver(Kind kind) : kind_(kind) {}
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override { fail(kind_); }

private:
    Kind const kind_;
};

// ---- Destructors that throw unless an exception unwinds the stack
// ---------------------------------

struct Guard {
    char const* name;
    // Constructs the object, runs `body`, and destroys the object, which fails.
    void (*use)(Kind kind, std::function<void()> const& body);
};

void resourceLock(Kind kind, std::function<void()> const& body)
{
    FailingLock lock(kind);
    ZResourceLock_6_0 const guard(lock);
    body();
}

void propResourceLock(Kind kind, std::function<void()> const& body)
{
    FailingLock lock(kind);
    ZAbstractProperties_6_0::ZPropResourceLock const guard(lock);
    body();
}

void stackReadWriteLock(Kind kind, std::function<void()> const& body)
{
    FailingReadWriteLock lock(kind);
    ZStackReadWriteLock_6_0 guard(lock, 0);
    guard.writeLock();
    body();
}

void array(Kind kind, std::function<void()> const& body)
{
    FailingElement const element(kind, 1);
    ZArray_6_0 container(1, 1);
    container.set(0, &element);
    body();
}

void arrayList(Kind kind, std::function<void()> const& body)
{
    FailingElement const element(kind, 1);
    ZArrayList_6_0 container(1, 1);
    container.add(&element);
    body();
}

void hashMap(Kind kind, std::function<void()> const& body)
{
    FailingElement element(kind, 1);
    ZHashMap_6_0 container(1, 1);
    container.putEntry(&element);
    body();
}

void hashKeyMap(Kind kind, std::function<void()> const& body)
{
    FailingElement const element(kind, 2);
    ZLCString_6_0 const key("key");
    ZHashKeyMap_6_0 container(1, 1);
    container.putEntry(&key, &element);
    body();
}

void keyEntry(Kind kind, std::function<void()> const& body)
{
    ZKeyEntry_6_0 const entry(new ZLCString_6_0("key"), new FailingElement(kind, 0), 1);
    body();
}

// A store notifies its observers after it has released its lock.
void noticeOfAStore(Kind kind, std::function<void()> const& body)
{
    class Store : public ZStanzaFileProperties_6_0 {
    public:
        Store() : ZStanzaFileProperties_6_0(0) {}
        void change(std::function<void()> const& during)
        {
            Hold const hold(*this);
            setValue("s", "k", "v");
            during();
        }
    } store;
    FailingObserver observer(kind);
    store.addObserver(&observer);
    store.change(body);
}

// An iterator locks its store; its destructor notifies the observers of changes since then.
void iteratorOfAStore(Kind kind, std::function<void()> const& body)
{
    ZStanzaFileProperties_6_0 store(0);
    store.setValue("s", "k", "v");
    FailingObserver observer(kind);
    store.addObserver(&observer);
    ZStanzaValueIterator_6_0 const iterator(store, "s", "k", zPropLocalStrings, zPropIterAny);
    store.setValue("s", "other", "w");
    body();
}

constexpr Guard kGuards[] = {
    {"ZResourceLock", resourceLock},
    {"ZPropResourceLock", propResourceLock},
    {"ZStackReadWriteLock", stackReadWriteLock},
    {"ZArray", array},
    {"ZArrayList", arrayList},
    {"ZHashMap", hashMap},
    {"ZHashKeyMap", hashKeyMap},
    {"ZKeyEntry", keyEntry},
    {"a notice of a store", noticeOfAStore},
    {"an iterator of a store", iteratorOfAStore},
};

// ---- Failures that are always reported
// ------------------------------------------------------------

struct Cleanup {
    char const* name;
    void (*run)(Kind kind);
};

// A thread that fails in one of its steps.
class FailingThread : public ZThread_6_0 {
public:
    enum Step { inRun, inExit, inStart, inDestructor };

    FailingThread(Step step, Kind kind, int detached)
        : ZThread_6_0(detached, detached), step_(step), kind_(kind)
    {
    }
    ~FailingThread() noexcept(false) override { failIn(inDestructor); }
    void start() override
    {
        failIn(inStart);
        ZThread_6_0::start();
    }
    void run() override { failIn(inRun); }
    void exit() override { failIn(inExit); }

private:
    void failIn(Step step)
    {
        if (step == step_)
            fail(kind_);
    }

    Step const step_;
    Kind const kind_;
};

void threadRun(Kind kind)
{
    FailingThread thread(FailingThread::inRun, kind, 0);
    thread.start();
    thread.waitForExit();
}

void threadExit(Kind kind)
{
    FailingThread thread(FailingThread::inExit, kind, 0);
    thread.start();
    thread.waitForExit();
}

void threadDeletesItself(Kind kind)
{
    NotedMessages const* const noted =
        static_cast<NotedMessages const*>(ZMessageService_6_0::messageService());
    (new FailingThread(FailingThread::inDestructor, kind, 1))->start();
    waitUntil([noted] { return reportsIn(*noted) > 0; });
}

void poolStart(Kind kind)
{
    ZThreadPool_6_0 pool(1, 0);
    FailingThread thread(FailingThread::inStart, kind, 0);
    pool.start(thread);
    pool.waitForExit();
}

class Sleeper : public ZSleeperThread_6_0 {
public:
    Sleeper() = default;
    explicit Sleeper(ZLock_6_0& lock) : ZSleeperThread_6_0(lock) {}
    void doWork() override { done = true; }

    std::atomic<bool> done{false};
};

void poolWaitForExit(Kind kind)
{
    class FailingSleeper : public Sleeper {
    public:
        explicit FailingSleeper(Kind kind) : kind_(kind) {}
        void waitForExit() override
        {
            ZSleeperThread_6_0::waitForExit();
            fail(kind_);
        }

    private:
        Kind const kind_;
    } sleeper(kind);
    ZThreadPool_6_0 pool(1, 1);
    pool.start(sleeper);
    sleeper.wakeUp();
    // Parked after its unit of work.
    for (ZThread_6_0* parked = nullptr; parked == nullptr;) {
        int keep = 0;
        pool.getAvailableIdleThread(parked);
        if (parked != nullptr)
            pool.threadDoneNotification(*parked, keep);
    }
    pool.waitForExit();
}

// The sleeper locks a caller's lock once more after its loop has ended.
void sleeperLoopEnd(Kind kind)
{
    class LateLock : public ZLock_6_0 {
    public:
        explicit LateLock(Kind kind) : kind_(kind) {}
        void lock() override
        {
            if (ends_ && pthread_equal(sleeper_, pthread_self()) != 0)
                fail(kind_);
            ZLock_6_0::lock();
            if (!knowsSleeper_ && pthread_equal(starter_, pthread_self()) == 0) {
                sleeper_ = pthread_self();
                knowsSleeper_ = true;
            }
        }
        void endIsNear() { ends_ = true; }

    private:
        Kind const kind_;
        pthread_t const starter_ = pthread_self();
        pthread_t sleeper_ = pthread_self();
        bool knowsSleeper_ = false;
        std::atomic<bool> ends_{false};
    } lock(kind);
    class LastWork : public ZSleeperThread_6_0 {
    public:
        explicit LastWork(LateLock& lock) : ZSleeperThread_6_0(lock), lock_(lock) {}
        void doWork() override
        {
            lock_.endIsNear();
            done = true;
        }

        std::atomic<bool> done{false};

    private:
        LateLock& lock_;
    } sleeper(lock);
    sleeper.start();
    sleeper.wakeUp();
    waitUntil([&sleeper] { return sleeper.done.load(); });
    sleeper.waitForExit();
}

void factory(Kind kind)
{
    class FailingStore : public ZStanzaFileProperties_6_0 {
    public:
        explicit FailingStore(Kind kind) : ZStanzaFileProperties_6_0(0), kind_(kind) {}
        ~FailingStore() noexcept(false) override { fail(kind_); }

    private:
        Kind const kind_;
    };
    class Factory : public ZAbstractPropertiesFactory_6_0 {
    public:
        explicit Factory(Kind kind) : kind_(kind) {}
        ZProperties_6_0* makePropertiesInstance() override { return new FailingStore(kind_); }

    private:
        Kind const kind_;
    } stores(kind);
    TestDirectory const directory;
    std::string const path = directory.write("file", "[s]\nk = v\n");
    ZProperties_6_0::getPropertiesFor(path.c_str(), stores, 0);
}

// A step of the protocol fails, and so does its rollback.
void processLock(Kind kind)
{
    class FailingFileLock : public ZUnixProcessReadWriteFileLock_6_0 {
    public:
        FailingFileLock(char const* name, Kind kind)
            : ZUnixProcessReadWriteFileLock_6_0(name), kind_(kind)
        {
        }
        void writePid() override { ZReadResourceException_6_0(35, 5).throwException("tests", 2); }
        void unlockFileRange(unsigned int, unsigned int) override { fail(kind_); }

    private:
        Kind const kind_;
    };
    TestDirectory const directory;
    FailingFileLock lock("lock", kind);
    lock.setLockDirName(directory.path().c_str());
    EXPECT_THROW(lock.writeLock(), ZReadResourceException_6_0);
}

constexpr Cleanup kCleanups[] = {
    {"ZThread: run()", threadRun},
    {"ZThread: exit()", threadExit},
    {"ZThread: its destructor", threadDeletesItself},
    {"ZThreadPool: start()", poolStart},
    {"ZThreadPool: waitForExit()", poolWaitForExit},
    {"ZSleeperThread: the end of the loop", sleeperLoopEnd},
    {"ZAbstractPropertiesFactory", factory},
    {"ZProcessReadWriteFileLock: rollback", processLock},
};

}  // namespace

TEST(reporting, GuardsRethrowTheExceptionOfTheirRelease)
{
    for (Guard const& guard : kGuards)
        for (auto const& row : kKinds) {
            SCOPED_TRACE(std::string(guard.name) + ", " + row.name);
            NotedMessages const noted;
            EXPECT_TRUE(failsAs(row.kind, [&] { guard.use(row.kind, [] {}); }));
            EXPECT_EQ(0, reportsIn(noted));
        }
}

TEST(reporting, GuardsReportWhileAnExceptionUnwindsTheStack)
{
    for (Guard const& guard : kGuards)
        for (auto const& row : kKinds) {
            SCOPED_TRACE(std::string(guard.name) + ", " + row.name);
            NotedMessages const noted;
            EXPECT_THROW(guard.use(row.kind, [] { throw 42; }), int);
            EXPECT_EQ(row.kind == Kind::ofTheLibrary ? 1 : 0, noted.exceptions());
            ASSERT_EQ(row.kind == Kind::ofTheLibrary ? 0u : 1u, noted.messages().size());
            for (NotedMessages::Message const& message : noted.messages())
                EXPECT_EQ(19, message.number);
        }
}

TEST(reporting, CleanupsReportEveryFailure)
{
    for (Cleanup const& cleanup : kCleanups)
        for (auto const& row : kKinds) {
            SCOPED_TRACE(std::string(cleanup.name) + ", " + row.name);
            NotedMessages const noted;
            EXPECT_NO_THROW(cleanup.run(row.kind));
            EXPECT_EQ(row.kind == Kind::ofTheLibrary ? 1 : 0, noted.exceptions());
            ASSERT_EQ(row.kind == Kind::ofTheLibrary ? 0u : 1u, noted.messages().size());
            for (NotedMessages::Message const& message : noted.messages())
                EXPECT_EQ(19, message.number);
        }
}

// An exception of the service itself is dropped.
TEST(reporting, ExceptionsOfTheServiceAreDropped)
{
    for (Guard const& guard : kGuards)
        for (auto const& row : kKinds) {
            SCOPED_TRACE(std::string(guard.name) + ", " + row.name);
            NotedMessages noted;
            noted.throwsToo = true;
            EXPECT_THROW(guard.use(row.kind, [] { throw 42; }), int);
            EXPECT_EQ(1, reportsIn(noted));
        }
}
