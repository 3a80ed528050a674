#include <Z/zproperties_c.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <thread>

#include "PlainFunctionsFixture.h"

using ZPropertiesC = PlainFunctionsTest;

// ---- Iterators ----------------------------------------------------------------------------------

TEST_F(ZPropertiesC, IteratesOverTheKeysOfAStanza)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &iterator));
    int code = kUntouched;
    EXPECT_EQ(4, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    for (auto const &call :
         {IterCall{"getKey",
                   resultIterCall([](auto*i, int*c) { return zstzPropIter_getKey_6_0(i, c); })},
          IterCall{"getValue",
                   resultIterCall([](auto*i, int*c) { return zstzPropIter_getValue_6_0(i, c); })},
          IterCall{"numValues", resultIterCall([](auto*i, int*c) {
                       return zstzPropIter_numValues_6_0(i, c);
                   })}}) {
        SCOPED_TRACE(call.name);
        EXPECT_EQ(57, call.code(iterator)) << "before the first key";
    }
    struct Entry {
        std::string key;
        std::string value;
        int values;
        bool operator<(Entry const& other) const { return key < other.key; }
        bool operator==(Entry const& other) const
        {
            return key == other.key && value == other.value && values == other.values;
        }
    };
    std::vector<Entry> seen;
    while (zstzPropIter_next_6_0(iterator, &code) == 1) {
        EXPECT_EQ(0, code);
        seen.push_back({textOf(Text(zstzPropIter_getKey_6_0(iterator, &code))),
                        textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))),
                        zstzPropIter_numValues_6_0(iterator, &code)});
        EXPECT_EQ(0, code);
    }
    EXPECT_EQ(0, code);
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code)) << "it stays at the end";
    std::sort(seen.begin(), seen.end());
    std::vector<Entry> const expected = {
        {"debug", "yes", 1}, {"empty", "(null)", 0}, {"host", "alpha", 3}, {"port", "8080", 1}};
    EXPECT_EQ(expected, seen);
    EXPECT_EQ(57, zstzPropIter_chgValue_6_0(iterator, "v"));
    EXPECT_EQ(57, zstzPropIter_addValue_6_0(iterator, "v"));
    EXPECT_EQ(57, zstzPropIter_rmvValue_6_0(iterator));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(kText, stored());
}

TEST_F(ZPropertiesC, AMissingStanzaGivesAnEmptyIterator)
{
    ZPROP_iter_handle* iterator = nullptr;
    int code = kUntouched;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "none", nullptr, &iterator));
    EXPECT_EQ(0, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "none", "none", &iterator));
    EXPECT_EQ(1, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesC, IteratesOverTheValuesOfAKey)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    int code = kUntouched;
    EXPECT_EQ(1, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(3, zstzPropIter_numValues_6_0(iterator, &code));
    EXPECT_EQ("host", textOf(Text(zstzPropIter_getKey_6_0(iterator, &code))));
    EXPECT_EQ("(null)", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, code);
    for (char const* expected : {"alpha", "beta", "gamma"}) {
        EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
        EXPECT_EQ(expected, textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
        EXPECT_EQ(3, zstzPropIter_numValues_6_0(iterator, &code));
        EXPECT_EQ(0, code);
    }
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    EXPECT_EQ("gamma", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesC, ChangesAddsAndRemovesValues)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    EXPECT_EQ(57, zstzPropIter_chgValue_6_0(iterator, "v")) << "no current value";
    EXPECT_EQ(57, zstzPropIter_rmvValue_6_0(iterator));
    int code = kUntouched;
    auto const current = [&] { return textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))); };
    ASSERT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    ASSERT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_chgValue_6_0(iterator, "BETA"));
    EXPECT_EQ("BETA", current());
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(iterator, "between"));
    EXPECT_EQ("between", current());
    EXPECT_EQ(4, zstzPropIter_numValues_6_0(iterator, &code));
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ("gamma", current());
    EXPECT_EQ(0, zstzPropIter_rmvValue_6_0(iterator));
    EXPECT_EQ("(null)", current());
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_chgValue_6_0(iterator, "before")) << "the previous value is current";
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ("alpha BETA before ", values("server", "host"));

    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "added", "key", &iterator));
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(iterator, "one"));
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(iterator, "two"));
    EXPECT_EQ("two", current());
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    std::string expected = kText;
    expected.replace(expected.find("host = beta\nhost = gamma"), 24, "host = BETA\nhost = before");
    EXPECT_EQ(expected + "\n[added]\nkey = one\nkey = two\n", stored());
}

TEST_F(ZPropertiesC, AnIteratorSeesTheChangesOfItsThread)
{
    ZPROP_iter_handle* keys = nullptr;
    ZPROP_iter_handle* hosts = nullptr;
    int code = kUntouched;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &keys));
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &hosts));
    ASSERT_EQ(1, zstzPropIter_next_6_0(keys, &code));
    ASSERT_EQ(1, zstzPropIter_next_6_0(hosts, &code));
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "server"));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(keys, &code));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(hosts, &code));
    EXPECT_EQ(0, zstzPropIter_next_6_0(hosts, &code));
    EXPECT_EQ(57, zstzPropIter_chgValue_6_0(hosts, "v"));
    EXPECT_EQ("alpha", textOf(Text(zstzPropIter_getValue_6_0(hosts, &code)))) << "a copy";
    EXPECT_EQ(0, zstzPropIter_close_6_0(keys));
    EXPECT_EQ(0, zstzPropIter_close_6_0(hosts));
}

TEST_F(ZPropertiesC, AnIteratorBelongsToItsThread)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    std::thread([&] {
        for (IterCall const& call : iterCalls()) {
            SCOPED_TRACE(call.name);
            EXPECT_EQ(57, call.code(iterator));
        }
    }).join();
    int code = kUntouched;
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ("alpha", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ("alpha beta gamma ", values("server", "host"));
}

TEST_F(ZPropertiesC, AnIteratorOfAThreadThatHasEndedBelongsToNoLaterThread)
{
    ZPROP_iter_handle* iterator = nullptr;
    pthread_t ended{};
    std::thread([&] {
        ended = pthread_self();
        ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    }).join();
    // The C library gives a new thread the value of pthread_self() of an ended one.
    bool isSame = false;
    for (int i = 0; i < 100 && !isSame; ++i)
        std::thread([&] {
            isSame = pthread_equal(ended, pthread_self()) != 0;
            for (IterCall const& call : iterCalls()) {
                SCOPED_TRACE(call.name);
                EXPECT_EQ(57, call.code(iterator));
            }
        }).join();
    EXPECT_TRUE(isSame);
}
