#include <Z/ZException.h>
#include <Z/ZProperties.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesInterface.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "NotedMessages.h"
#include "TestDirectory.h"

namespace {

// Records its calls; unlock() throws if `refuses` is set.
class RecordingLock final : public ZLockInterface_6_0 {
public:
    void lock() override { log += "l"; }
    void unlock() override
    {
        log += "u";
        if (refuses)
            ZUnlockResourceException_6_0(6, 1).throwException("test", 1);
    }

    std::string log;
    bool refuses = false;
};

ZPCache_6_0* newCache()
{
    auto* const cache = new (std::nothrow) ZSCFData_6_0;
    if (cache == nullptr)
        ZOutOfMemoryException_6_0().throwException("test", 1);
    return cache;
}

class CountingStore final : public ZProperties_6_0 {
public:
    CountingStore() : ZProperties_6_0(newCache()) { ++alive; }
    ~CountingStore() override { --alive; }

    static inline int alive = 0;
};

class CountingFactory final : public ZAbstractPropertiesFactory_6_0 {
public:
    ZProperties_6_0* makePropertiesInstance() override
    {
        ++made;
        return new CountingStore;
    }

    int made = 0;
};

using Guard = ZAbstractProperties_6_0::ZPropResourceLock;

}  // namespace

TEST(ZPropertiesInterface, NumbersTheTypesOfStrings)
{
    EXPECT_EQ(0, zPropLocalStrings);
    EXPECT_EQ(8, zPropUTF8Strings);
}

TEST(ZPropertiesInterface, GuardLocksInItsScope)
{
    RecordingLock lock;
    {
        Guard const guard(lock);
        EXPECT_EQ("l", lock.log);
    }
    EXPECT_EQ("lu", lock.log);
}

TEST(ZPropertiesInterface, GuardThrowsIfItCannotUnlock)
{
    RecordingLock lock;
    lock.refuses = true;
    EXPECT_THROW({ Guard const guard(lock); }, ZUnlockResourceException_6_0);
}

TEST(ZPropertiesInterface, GuardReportsAFailedUnlockDuringUnwinding)
{
    NotedMessages messages;
    RecordingLock lock;
    lock.refuses = true;
    try {
        Guard const guard(lock);
        throw std::runtime_error("first");
    } catch (std::runtime_error const& first) {
        EXPECT_STREQ("first", first.what());
    }
    EXPECT_EQ(1, messages.exceptions());
}

TEST(ZPropertiesInterface, RegistryAdmitsOneThreadAtATime)
{
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                ZPropRegistry_6_0 const registry;
                int const now = ++inside;
                if (now > most)
                    most = now;
                --inside;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(1, most);
}

TEST(ZPropertiesInterface, RegistryIsRecursive)
{
    ZPropRegistry_6_0 const outer;
    ZPropRegistry_6_0 const inner;
    ZPropRegistry_6_0::init();
}

TEST(ZPropertiesInterface, FactoryDeletesItsStores)
{
    TestDirectory const directory;
    std::string const first = directory.write("one", "[a]\nk=1\n");
    std::string const second = directory.write("other", "[a]\nk=2\n");
    {
        CountingFactory factory;
        ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(first.c_str(), factory, 0);
        EXPECT_NE(store, ZProperties_6_0::getPropertiesFor(second.c_str(), factory, 0));
        EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(first.c_str(), factory, 0));
        EXPECT_EQ(2, factory.made);
        EXPECT_EQ(2, CountingStore::alive);
    }
    EXPECT_EQ(0, CountingStore::alive);
}

TEST(ZPropertiesInterface, FactoryReportsAFailedAllocationInItsDestructor)
{
    NotedMessages messages;
    auto factory = std::make_unique<CountingFactory>();
    FailingAllocator::failAt(1);
    factory.reset();
    EXPECT_TRUE(FailingAllocator::stop());
    EXPECT_EQ(1, messages.exceptions());
}

TEST(ZPropertiesInterface, FactoryForgetsAStoreThatFailedToLoad)
{
    TestDirectory const directory;
    CountingFactory factory;
    std::string const missing = directory.at("missing");
    EXPECT_THROW(ZProperties_6_0::getPropertiesFor(missing.c_str(), factory, 0),
                 ZPropertiesIOException_6_0);
    EXPECT_EQ(0, CountingStore::alive);
    directory.write("missing", "[a]\nk=1\n");
    EXPECT_NE(nullptr, ZProperties_6_0::getPropertiesFor(missing.c_str(), factory, 0));
}

TEST(ZPropertiesInterface, GetPropertiesForSurvivesEveryFailedAllocation)
{
    TestDirectory const directory;
    std::string const path = directory.write("conf", "[a]\nk=1\n");
    CountingFactory warm;
    ZProperties_6_0::getPropertiesFor(path.c_str(), warm, 0);
    std::unique_ptr<CountingFactory> factory(new CountingFactory);
    failEachAllocationOfSome([&] { ZProperties_6_0::getPropertiesFor(path.c_str(), *factory, 0); },
                             [&] { factory.reset(new CountingFactory); },
                             [&] { EXPECT_EQ(1, CountingStore::alive); });
}
