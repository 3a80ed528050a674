// The observers of changes.
#include <Z/zproperties_c.h>
#include <Z/zproperties_c_p.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "NotedMessages.h"
#include "PlainFunctionsFixture.h"
#include "Threads.h"

using ZPropertiesCObservers = PlainFunctionsTest;

namespace {

using Changes = std::vector<std::string>;

struct Log {
    Changes changes;
    std::function<void()> action;  // runs in the first callback
};

void note(int change, char const* stanza, char const* key, void* context)
{
    auto& log = *static_cast<Log*>(context);
    log.changes.push_back(std::to_string(change) + " " + stanza + "." + key);
    if (std::function<void()> const action = std::exchange(log.action, nullptr))
        action();
}

}  // namespace

TEST_F(ZPropertiesCObservers, TheObserverReceivesEachChange)
{
    Log log;
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, note, &log));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    char const* const two[] = {"a", "b"};
    EXPECT_EQ(0, zstzPropSetStringValues_6_0(file_, "server", "host", two, 2));
    EXPECT_EQ(0, zstzPropRemoveValue_6_0(file_, "server", "host", "a"));
    EXPECT_EQ(0, zstzPropAddStanza_6_0(file_, "new"));
    EXPECT_EQ(0, zstzPropRenameKey_6_0(file_, "server", "port", "p"));
    EXPECT_EQ(0, zstzPropRenameStanza_6_0(file_, "new", "n"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "p"));
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "n"));
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "server", "a=b", "1"));
    EXPECT_EQ((Changes{"2 server.port", "2 server.host", "2 server.host", "0 new.", "1 server.port",
                       "2 server.p", "1 new.", "0 n.", "1 server.p", "1 n."}),
              log.changes);
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, nullptr, nullptr));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    EXPECT_EQ(10u, log.changes.size());
}

TEST_F(ZPropertiesCObservers, AnObserverMayUseAndReplaceAndCloseTheHandle)
{
    Log first;
    Log second;
    first.action = [&] {
        EXPECT_EQ("1", value("server", "port"));
        EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, note, &second));
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "2"));
    };
    second.action = [&] { zstzPropClose_6_0(file_); };
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, note, &first));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    EXPECT_EQ(1u, first.changes.size());
    EXPECT_EQ(1u, second.changes.size());
    EXPECT_EQ(55, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
}

TEST_F(ZPropertiesCObservers, AChangeUnderAnIteratorIsReportedWhenTheIteratorIsClosed)
{
    Log log;
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, note, &log));
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_initStanzas_6_0(file_, &iterator));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    EXPECT_EQ(Changes(), log.changes);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(1u, log.changes.size());
    // The iterator outlives the handle, but the observer does not.
    ASSERT_EQ(0, zstzPropIter_initStanzas_6_0(file_, &iterator));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "2"));
    zstzPropClose_6_0(file_);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(1u, log.changes.size());
}

TEST_F(ZPropertiesCObservers, ThreadsReplaceTheObserverWhileOthersChangeValues)
{
    std::atomic<bool> isDone = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i)
        threads.emplace_back([&] {
            while (!isDone)
                EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
        });
    std::vector<std::thread> replacing;
    for (int i = 0; i < 2; ++i)
        replacing.emplace_back([&] {
            for (int round = 0; round < 300; ++round) {
                // The context is valid until another observer has replaced this observer, which
                // may be in the other thread: so it is shared.
                static std::atomic<long> calls;
                EXPECT_EQ(0, zstzPropSetObserver_6_0(
                                 file_,
                                 [](int, char const*, char const*, void* context) {
                                     ++*static_cast<std::atomic<long>*>(context);
                                 },
                                 &calls));
            }
        });
    for (std::thread& thread : replacing)
        thread.join();
    isDone = true;
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(ZPropertiesCObservers, ChangesByIteratorsCommentsAndLoadsAreReported)
{
    Log log;
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, note, &log));
    ZPROP_iter_handle* iterator = nullptr;
    int code = kUntouched;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_chgValue_6_0(iterator, "x"));
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(iterator, "y"));
    EXPECT_EQ(0, zstzPropIter_rmvValue_6_0(iterator));
    EXPECT_EQ(52, zstzPropIter_chgValue_6_0(iterator, "two\nlines"));
    EXPECT_EQ(Changes(), log.changes);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ((Changes{"2 server.host", "2 server.host", "2 server.host"}), log.changes);
    log.changes.clear();
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "server", "host", "more"));
    EXPECT_EQ(0, zstzPropAddFileComment_6_0(file_, "c"));
    EXPECT_EQ(0, zstzPropAddStanzaComment_6_0(file_, "client", "c"));
    EXPECT_EQ(0, zstzPropAddLineComment_6_0(file_, "client", "retries", "c"));
    EXPECT_EQ(0, zstzPropAddLineComment_6_0(file_, "client", "new", "c"));
    EXPECT_EQ(0, zstzPropSetFileComment_6_0(file_, nullptr));
    EXPECT_EQ(0, zstzPropSetStanzaComment_6_0(file_, "server", "d"));
    EXPECT_EQ(0, zstzPropSetLineComment_6_0(file_, "server", "port", "d"));
    EXPECT_EQ(0, zstzPropSetRawValue_6_0(file_, "server", "host", 1, "z"));
    EXPECT_EQ(0, zstzPropRemoveValue_6_0(file_, "client", "retries", "3"));
    EXPECT_EQ((Changes{"2 server.host", "3 .", "3 client.", "3 client.retries", "2 client.new",
                       "3 client.new", "3 .", "3 server.", "3 server.port", "2 server.host",
                       "1 client.retries"}),
              log.changes);
    log.changes.clear();
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(0, zstzPropLoadText_6_0(file_, "[a]\n", 4));
    EXPECT_EQ(51, zstzPropLoadText_6_0(file_, "a\n", 2));
    EXPECT_EQ((Changes{"4 .", "4 ."}), log.changes);
}

TEST_F(ZPropertiesCObservers, CallsThatChangeNothingAreNotReported)
{
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    Log log;
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, note, &log));
    char const* const hosts[] = {"alpha", "beta", "gamma"};
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "8080"));
    EXPECT_EQ(0, zstzPropSetIntegerValue_6_0(file_, "server", "port", 8080));
    EXPECT_EQ(0, zstzPropSetBooleanValue_6_0(file_, "server", "debug", 1));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "empty", nullptr));
    EXPECT_EQ(0, zstzPropSetStringValues_6_0(file_, "server", "host", hosts, 3));
    EXPECT_EQ(0, zstzPropSetStringValues_6_0(file_, "server", "empty", nullptr, 0));
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "server", "host", "beta"));
    EXPECT_EQ(54, zstzPropRemoveValue_6_0(file_, "server", "host", "none"));
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "none"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "none", "none"));
    EXPECT_EQ(52, zstzPropRemoveKey_6_0(file_, "", "none"));
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "none"));
    EXPECT_EQ(0, zstzPropAddStanza_6_0(file_, "client"));
    EXPECT_EQ(0, zstzPropRenameKey_6_0(file_, "server", "port", "port"));
    EXPECT_EQ(0, zstzPropRenameStanza_6_0(file_, "server", "server"));
    EXPECT_EQ(0, zstzPropSetFileComment_6_0(file_, "# how the service is reached"));
    EXPECT_EQ(0, zstzPropSetLineComment_6_0(file_, "server", "port", "# where it listens"));
    EXPECT_EQ(0, zstzPropSetStanzaComment_6_0(file_, "client", nullptr));
    EXPECT_EQ(0, zstzPropSetRawValue_6_0(file_, "server", "host", 1, "beta"));
    EXPECT_EQ(Changes(), log.changes);
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropIsModified_6_0(file_, &code));
    // Fewer, more and other values are changes.
    EXPECT_EQ(0, zstzPropSetStringValues_6_0(file_, "server", "host", hosts, 2));
    EXPECT_EQ(0, zstzPropSetStringValues_6_0(file_, "server", "host", hosts, 3));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "host", "alpha"));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "host", nullptr));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "secret", nullptr));
    EXPECT_EQ(5u, log.changes.size());
}

TEST_F(ZPropertiesCObservers, AnObserverThatClosesItsHandleIsNotCalledAgain)
{
    auto context = std::make_unique<Log>();
    context->action = [&] { zstzPropClose_6_0(file_); };
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, note, context.get()));
    // A rename has two notices; the first one closes the handle.
    EXPECT_EQ(0, zstzPropRenameKey_6_0(file_, "server", "port", "p"));
    EXPECT_EQ((Changes{"1 server.port"}), context->changes);
}

TEST_F(ZPropertiesCObservers, NoObserverIsCalledAfterAnotherThreadHasClosedTheHandle)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &iterator));
    Log log;
    ASSERT_EQ(0, zstzPropSetObserver_6_0(file_, note, &log));
    WatchedThread watched;
    std::thread changing([&] {
        watched.enter();
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    });
    watched.waitUntilAsleep();  // it waits for the iterator
    zstzPropClose_6_0(file_);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    changing.join();
    EXPECT_EQ(Changes(), log.changes);
}

TEST_F(ZPropertiesCObservers, SettingAnObserverFailsAfterAnotherThreadHasClosedTheHandle)
{
    // The handle is pinned as a call in progress pins it.
    zhandles::Files::Pin const pin = zhandles::openFiles.pin(file_);
    zstzPropClose_6_0(file_);
    Log log;
    EXPECT_FALSE(pin->store->observer.set(note, &log));
    EXPECT_FALSE(pin->store->observer.isSet());
}

TEST_F(ZPropertiesCObservers, ClosingWaitsForARunningObserverOfAnotherThread)
{
    struct Context {
        std::promise<void> started;
        std::atomic<bool> goesOn = false;
        std::atomic<bool> isDone = false;
    } context;
    ASSERT_EQ(0, zstzPropSetObserver_6_0(
                     file_,
                     [](int, char const*, char const*, void* given) {
                         auto& running = *static_cast<Context*>(given);
                         running.started.set_value();
                         waitUntil([&] { return running.goesOn.load(); });
                         running.isDone = true;
                     },
                     &context));
    std::thread changing(
        [&] { EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1")); });
    context.started.get_future().wait();
    WatchedThread watched;
    std::thread closing([&] {
        watched.enter();
        zstzPropClose_6_0(file_);
        EXPECT_TRUE(context.isDone);
    });
    watched.waitUntilAsleep();
    context.goesOn = true;
    closing.join();
    changing.join();
}

TEST_F(ZPropertiesCObservers, TwoStoresMayFollowEachOther)
{
    // Each observer makes its changes in the other store. Both run at the same time.
    struct Mirror {
        ZPROP_handle* other = nullptr;
        std::atomic<int>* running = nullptr;
        bool hasMet = false;
    };
    std::atomic<int> running = 0;
    ZPROP_handle* second = nullptr;
    ASSERT_EQ(0, zstzPropOpen_6_0(&second, path("service.conf").c_str(), zpropOpenRead));
    Mirror mirrors[2] = {{second, &running}, {file_, &running}};
    auto const follow = [](int, char const* stanza, char const* key, void* context) {
        auto& mirror = *static_cast<Mirror*>(context);
        if (!std::exchange(mirror.hasMet, true)) {
            ++*mirror.running;
            waitUntil([&] { return *mirror.running >= 2; });
        }
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(mirror.other, stanza, key, "9"));
    };
    ASSERT_EQ(0, zstzPropSetObserver_6_0(file_, follow, &mirrors[0]));
    ASSERT_EQ(0, zstzPropSetObserver_6_0(second, follow, &mirrors[1]));
    std::thread one([&] { EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "one", "9")); });
    std::thread two([&] { EXPECT_EQ(0, zstzPropSetStringValue_6_0(second, "s", "two", "9")); });
    one.join();
    two.join();
    EXPECT_EQ("9", value("s", "two"));
    std::swap(file_, second);
    EXPECT_EQ("9", value("s", "one"));
    zstzPropClose_6_0(second);
}

TEST_F(ZPropertiesCObservers, AnObserverMayWaitForAThreadThatChangesTheStore)
{
    ASSERT_EQ(0, zstzPropSetObserver_6_0(
                     file_,
                     [](int, char const*, char const* key, void* context) {
                         if (std::string(key) == "port")
                             std::thread([context] {
                                 auto* const file = static_cast<ZPROP_handle*>(context);
                                 EXPECT_EQ(0, zstzPropSetStringValue_6_0(file, "s", "k", "v"));
                             }).join();
                     },
                     file_));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    EXPECT_EQ("v", value("s", "k"));
}

TEST_F(ZPropertiesCObservers, AnExceptionOfAnObserverIsReportedAndTheChangeSucceeds)
{
    NotedMessages const noted;
    ASSERT_EQ(
        0, zstzPropSetObserver_6_0(
               file_, [](int, char const*, char const*, void*) { throw std::runtime_error("no"); },
               nullptr));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    EXPECT_EQ("1", value("server", "port"));
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_initStanzas_6_0(file_, &iterator));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "2"));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(2u, noted.messages().size());
}

TEST_F(ZPropertiesCObservers, ThreadsCloseHandlesWhileOthersChangeValues)
{
    for (int round = 0; round < 100; ++round) {
        ZPROP_handle* handle = nullptr;
        ASSERT_EQ(0, zstzPropNew_6_0(&handle, nullptr));
        auto context = std::make_unique<std::atomic<long>>(0);
        auto const count = [](int, char const*, char const*, void* given) {
            ++*static_cast<std::atomic<long>*>(given);
        };
        ASSERT_EQ(0, zstzPropSetObserver_6_0(handle, count, context.get()));
        std::atomic<bool> isStarted = false;
        std::thread changing([&] {
            for (int i = 0;; ++i) {
                int const code =
                    zstzPropSetStringValue_6_0(handle, "s", "k", std::to_string(i).c_str());
                isStarted = true;
                if (code != 0) {
                    EXPECT_EQ(55, code);
                    return;
                }
            }
        });
        waitUntil([&] { return isStarted.load(); });
        zstzPropClose_6_0(handle);
        context.reset();
        changing.join();
    }
}
