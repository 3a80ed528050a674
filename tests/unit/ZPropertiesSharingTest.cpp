#include <Z/ZException.h>
#include <Z/ZProperties.h>
#include <Z/ZPropertiesIterator.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "NotedMessages.h"
#include "PropertiesFixture.h"
#include "StanzaStore.h"
#include "Threads.h"

using ZProperties = PropertiesTest;

// ---- Notices -----------------------------------------------------------------------------------

TEST_F(ZProperties, ObserversAreNotifiedOfChanges)
{
    load(kText);
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.setValue("s", "a", "1");
    store_.setIntegerValue("s", "b", 1);
    store_.setBooleanValue("s", "c", 1);
    store_.deleteKey("s", "a");
    store_.addFileComment("# comments send no notice");
    EXPECT_EQ("2[s]a 2[s]b 2[s]c 1[s]a ", observer.log);
    observer.log.clear();
    EXPECT_NE("nothing", thrown([&] { store_.setValue("s", "a=b", "1"); }));
    store_.reload(nullptr);
    store_.store(nullptr);
    EXPECT_EQ("", observer.log);
    store_.sendChangeNotice(ZPropertyChanged_6_0::storeChanged, ZPropertyChanged_6_0::added, "x",
                            nullptr);
    EXPECT_EQ("0[x] ", observer.log);
}

TEST_F(ZProperties, NoticesAreSentAfterTheLockIsReleased)
{
    NotedChanges observer;
    bool free = false;
    observer.action = [&] {
        std::thread([&] {
            store_.exists("s", "k");
            free = true;
        }).join();
    };
    store_.addObserver(&observer);
    store_.setValue("s", "k", "v");
    EXPECT_TRUE(free);
    free = false;
    {
        ZPropertiesIterator_6_0 const iterator(store_, "s");
        store_.setValue("s", "k", "w");
        EXPECT_FALSE(free);
    }
    EXPECT_TRUE(free);
    EXPECT_EQ("2[s]k 2[s]k ", observer.log);
}

TEST_F(ZProperties, ObserverMayUseTheStoreAndItsObservers)
{
    NotedChanges observer;
    NotedChanges second;
    store_.addObserver(&observer);
    observer.action = [&] {
        store_.addObserver(&second);
        store_.deleteObserver(&observer);
        store_.setValue("s", "other", "1");
    };
    store_.setValue("s", "k", "v");
    EXPECT_EQ("2[s]k ", observer.log);
    EXPECT_EQ("2[s]other ", second.log);
    EXPECT_EQ("1", valueOf(store_, "s", "other"));
}

TEST_F(ZProperties, ExceptionOfAnObserverReachesTheCallerAfterTheChange)
{
    NotedChanges observer;
    observer.action = [] { throw std::runtime_error("notified"); };
    store_.addObserver(&observer);
    EXPECT_THROW(store_.setValue("s", "k", "v"), std::runtime_error);
    EXPECT_EQ("v", valueOf(store_, "s", "k"));
    std::thread([&] { EXPECT_EQ(1, store_.exists("s", "k")); }).join();
    observer.log.clear();
    observer.action = [] { ZInvalidParameterException_6_0().throwException("test", 1); };
    EXPECT_THROW(store_.setValue("s", "k", "w"), ZInvalidParameterException_6_0);
    EXPECT_EQ("w", valueOf(store_, "s", "k"));
    observer.action = [] { throw std::runtime_error("notified"); };
    {
        SCOPED_TRACE("several notices");
        EXPECT_THROW(
            {
                ZPropertiesIterator_6_0 const iterator(store_, "s");
                store_.setValue("s", "a", "1");
                store_.setValue("s", "b", "1");
            },
            std::runtime_error);
        EXPECT_EQ("2[s]k 2[s]a 2[s]b ", observer.log);
    }
}

TEST_F(ZProperties, ExceptionsOfObserversAreReportedDuringUnwinding)
{
    NotedMessages messages;
    NotedChanges observer;
    store_.addObserver(&observer);
    for (bool const isLibraryException : {true, false}) {
        SCOPED_TRACE(isLibraryException);
        observer.action = [&] {
            if (isLibraryException)
                ZInvalidParameterException_6_0().throwException("test", 1);
            throw std::runtime_error("notified");
        };
        EXPECT_THROW(
            {
                ZPropertiesIterator_6_0 const iterator(store_, "s");
                store_.setValue("s", "a", "1");
                throw std::logic_error("unwinding");
            },
            std::logic_error);
    }
    EXPECT_EQ(1, messages.exceptions());
    ASSERT_EQ(1u, messages.messages().size());
    EXPECT_EQ(kSource, messages.messages()[0].file);
    EXPECT_EQ(235, messages.messages()[0].line);
    // With two notices, the first exception reaches the caller and the second is reported.
    observer.action = [] { throw std::runtime_error("notified"); };
    EXPECT_THROW(
        {
            ZPropertiesIterator_6_0 const iterator(store_, "s");
            store_.setValue("s", "a", "1");
            store_.setValue("s", "b", "1");
        },
        std::runtime_error);
    EXPECT_EQ(2u, messages.messages().size());
}

TEST_F(ZProperties, ObserverThatCancelsItsThreadEndsTheNotification)
{
    NotedChanges observer;
    store_.addObserver(&observer);
    observer.action = [] {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    };
    pthread_t thread;
    auto const change = [](void* store) -> void* {
        auto& changed = *static_cast<Store*>(store);
        ZPropertiesIterator_6_0 const iterator(changed, "s");
        changed.setValue("s", "a", "1");
        changed.setValue("s", "b", "1");
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, nullptr, change, &store_));
    void* result = nullptr;
    ASSERT_EQ(0, pthread_join(thread, &result));
    EXPECT_EQ(PTHREAD_CANCELED, result);
    EXPECT_EQ("2[s]a ", observer.log);
    observer.action = nullptr;
    store_.setValue("s", "c", "1");  // the lock is free
    EXPECT_EQ("2[s]a 2[s]c ", observer.log);
    EXPECT_EQ("1", valueOf(store_, "s", "b"));
}

// ---- One store for a path ----------------------------------------------------------------------

TEST_F(ZProperties, SharedStoreIsReloadedAfterItsFileChanges)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("a", valueOf(*store, "s", "k"));
    directory_.write("conf", "[s]\nk = b\n");
    EXPECT_EQ("a", valueOf(*store, "s", "k"));
    EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0));
    EXPECT_EQ("b", valueOf(*store, "s", "k"));
    EXPECT_EQ(1, factory.made);
    // An editor renames a new file into place.
    directory_.write("edited", "[s]\nk = c\n");
    rename(directory_.at("edited").c_str(), path.c_str());
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("c", valueOf(*store, "s", "k"));
    // Removing the file changes nothing.
    std::filesystem::remove(path);
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("c", valueOf(*store, "s", "k"));
}

TEST_F(ZProperties, TwoChangesInTheSameSecondAreBothDetected)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    struct stat status;
    stat(path.c_str(), &status);
    directory_.write("conf", "[s]\nk = b\n");
    timespec const sameSecond[2] = {
        status.st_atim,
        {status.st_mtim.tv_sec, status.st_mtim.tv_nsec == 0 ? 1 : status.st_mtim.tv_nsec - 1}};
    utimensat(AT_FDCWD, path.c_str(), sameSecond, 0);
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("b", valueOf(*store, "s", "k"));
}

TEST_F(ZProperties, UnsavedChangesStayUnlessForced)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    store->setValue("s", "k", "mine");
    directory_.write("conf", "[s]\nk = other\n");
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("mine", valueOf(*store, "s", "k"));
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 1);
    EXPECT_EQ("other", valueOf(*store, "s", "k"));
    directory_.write("conf", "broken");
    EXPECT_EQ("data " + path + " 1 broken",
              thrown([&] { ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 1); }));
    EXPECT_EQ("other", valueOf(*store, "s", "k"));
}

TEST_F(ZProperties, SharedStoreReloadsItsPathEvenIfItsFileNameDiffers)
{
    Factory factory;
    factory.madeFor = directory_.write("other", "[s]\nk = other\n");
    std::string const path = directory_.write("conf", "[t]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("other", valueOf(*store, "s", "k"));
    EXPECT_EQ("a", valueOf(*store, "t", "k"));
    for (int const force : {0, 1}) {
        directory_.write("conf", force != 0 ? "[t]\nk = c\n" : "[t]\nk = bb\n");
        EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, force));
        EXPECT_EQ(force != 0 ? "c" : "bb", valueOf(*store, "t", "k"));
        EXPECT_EQ(0, store->exists("s"));
    }
}

TEST_F(ZProperties, PathIsRequired)
{
    Factory factory;
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { ZProperties_6_0::getPropertiesFor(nullptr, factory, 0); }));
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { ZProperties_6_0::getPropertiesFor("", factory, 0); }));
    EXPECT_EQ(0, factory.made);
}

TEST_F(ZProperties, FactoryThatReturnsNullIsRefused)
{
    class Nothing final : public ZAbstractPropertiesFactory_6_0 {
    public:
        ZProperties_6_0* makePropertiesInstance() override { return nullptr; }
    };
    Nothing factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0); }));
}

TEST_F(ZProperties, OneThreadLoadsAndTheOthersWait)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::mutex mutex;
    std::condition_variable changed;
    int arrived = 0;
    factory.onPostLoad = [&] {
        std::unique_lock<std::mutex> guard(mutex);
        changed.wait(guard, [&] { return arrived == 8; });
    };
    std::vector<ZProperties_6_0*> found(8);
    std::vector<std::thread> threads;
    for (ZProperties_6_0*& one : found)
        threads.emplace_back([&] {
            {
                std::lock_guard<std::mutex> const guard(mutex);
                ++arrived;
                changed.notify_all();
            }
            one = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(1, factory.made);
    for (ZProperties_6_0 const* one : found)
        EXPECT_EQ(found[0], one);
}

TEST_F(ZProperties, ThreadThatRequestsTheStoreItIsLoadingGetsEDEADLK)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string inner;
    factory.onPostLoad = [&] {
        inner = thrown([&] { ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0); });
    };
    EXPECT_NE(nullptr, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0));
    EXPECT_EQ("io " + path + " fcntl() 35", inner);
}

TEST_F(ZProperties, LoadingAStoreDoesNotBlockOtherStores)
{
    Factory factory;
    Factory second;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string const other = directory_.write("other", "[s]\nk = b\n");
    ZProperties_6_0* samePath = nullptr;
    ZProperties_6_0* sameFactory = nullptr;
    factory.onPostLoad = [&] {
        factory.onPostLoad = nullptr;
        samePath = ZProperties_6_0::getPropertiesFor(path.c_str(), second, 0);
        std::thread([&] {
            sameFactory = ZProperties_6_0::getPropertiesFor(other.c_str(), factory, 0);
        }).join();
    };
    ZProperties_6_0* const made = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    ASSERT_NE(nullptr, samePath);
    ASSERT_NE(nullptr, sameFactory);
    EXPECT_NE(made, samePath);
    EXPECT_EQ("a", valueOf(*samePath, "s", "k"));
    EXPECT_EQ("b", valueOf(*sameFactory, "s", "k"));
    EXPECT_EQ(sameFactory, ZProperties_6_0::getPropertiesFor(other.c_str(), factory, 0));
}

TEST_F(ZProperties, UnchangedStoreIsFoundWhileAnotherThreadLocksIt)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    std::future<ZProperties_6_0*> found;
    auto const isFound = [&] {
        found = std::async(std::launch::async, [&] {
            return ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
        });
        return found.wait_for(kHangs) == std::future_status::ready;
    };
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "after loading";
    }
    EXPECT_EQ(store, found.get());
    store->setValue("s", "k", "b");
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "with an unsaved change";
    }
    EXPECT_EQ(store, found.get());
    store->store(nullptr);
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "after storing";
    }
    EXPECT_EQ(store, found.get());
    std::filesystem::remove(path);
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "without its file";
    }
    EXPECT_EQ(store, found.get());
}

TEST_F(ZProperties, ChangedFileIsReloadedAfterTheStoreIsUnlocked)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    for (int const force : {0, 1}) {
        std::future<void> done;
        {
            ZPropertiesIterator_6_0 const holding(*store, "s");
            if (force == 0)
                directory_.write("conf", "[s]\nk = changed\n");
            done = std::async(std::launch::async, [&path, &factory, force] {
                ZProperties_6_0::getPropertiesFor(path.c_str(), factory, force);
            });
            EXPECT_TRUE(staysBlocked(done));
        }
        done.get();
        EXPECT_EQ("changed", valueOf(*store, "s", "k"));
    }
}

TEST_F(ZProperties, RingOfThreadsThatLoadStoresGetsEDEADLK)
{
    // Each thread, while it loads a store, requests the store that the next thread loads.
    constexpr size_t kThreads = 3;
    Factory factories[kThreads];
    std::string paths[kThreads];
    std::string inner[kThreads];
    std::atomic<size_t> arrived{0};
    for (size_t i = 0; i < kThreads; ++i)
        paths[i] = directory_.write("conf" + std::to_string(i), "[s]\nk = a\n");
    for (size_t i = 0; i < kThreads; ++i)
        factories[i].onPostLoad = [&, i] {
            ++arrived;
            waitUntil([&] { return arrived == kThreads; });
            size_t const next = (i + 1) % kThreads;
            inner[i] = thrown([&] {
                ZProperties_6_0::getPropertiesFor(paths[next].c_str(), factories[next], 0);
            });
        };
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            EXPECT_NE(nullptr,
                      ZProperties_6_0::getPropertiesFor(paths[i].c_str(), factories[i], 0));
        });
    for (std::thread& thread : threads)
        thread.join();
    size_t refused = 0;
    for (size_t i = 0; i < kThreads; ++i) {
        if (inner[i] == "nothing")
            continue;
        ++refused;
        EXPECT_EQ("io " + paths[(i + 1) % kThreads] + " fcntl() " + std::to_string(EDEADLK),
                  inner[i]);
    }
    EXPECT_EQ(1u, refused);
}

// ---- Threads -----------------------------------------------------------------------------------

TEST_F(ZProperties, EightThreadsUseOneStore)
{
    std::string const path = load(kText);
    class Counting final : public ZObserverInterface_6_0 {
    public:
        explicit Counting(ZProperties_6_0& store) : store_(store) {}
        void update(ZObservableInterface_6_0* sender, ZObservedParm_6_0 const&) override
        {
            ++calls;
            store_.exists("server", "port");
            sender->countObservers();
        }

        std::atomic<int> calls{0};

    private:
        ZProperties_6_0& store_;
    };
    Counting permanent(store_);
    store_.addObserver(&permanent);
    std::atomic<int> stored{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([&, number] {
            Counting own(store_);
            std::string const key = "k" + std::to_string(number);
            for (int round = 0; round < 40; ++round) {
                store_.addObserver(&own);
                store_.setIntegerValue("threads", key.c_str(), static_cast<unsigned>(round));
                EXPECT_EQ(static_cast<unsigned>(round),
                          store_.getIntegerValue("threads", key.c_str(), 0, 0));
                {
                    ZPropertiesIterator_6_0 iterator(store_, "server");
                    while (iterator.hasMore()) {
                        iterator.nextEntry();
                        iterator.entryValue(0);
                    }
                    store_.setValue("threads", key.c_str(), std::to_string(round).c_str());
                }
                if (round % 8 == number) {
                    store_.store(nullptr);
                    ++stored;
                }
                store_.deleteObserver(&own);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(8 * 40 * 2, permanent.calls);
    EXPECT_EQ(8 * 5, stored);
    store_.deleteObserver(&permanent);
    store_.store(nullptr);
    Store again;
    again.load(path.c_str());
    for (int number = 0; number < 8; ++number)
        EXPECT_EQ("39", valueOf(again, "threads", ("k" + std::to_string(number)).c_str()));
}

TEST_F(ZProperties, StoresToOneFileWaitForEachOther)
{
    std::string const path = directory_.write("conf", "[s]\nn = 0\n");
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            for (int round = 0; round < 25; ++round) {
                Store store;
                store.load(path.c_str());
                unsigned const n = store.getIntegerValue("s", "n", 1, 0);
                if (store.numValues("s", "n") != 1 || n > 100)
                    ++torn;
                if (number % 2 == 0) {
                    store.setIntegerValue("s", "n", static_cast<unsigned>(round));
                    store.store(nullptr);
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, torn);
    EXPECT_EQ("conf", directory_.names());
}
