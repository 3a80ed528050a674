#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "PlainFunctionsFixture.h"

using ZPropertiesC = PlainFunctionsTest;

// ---- Without memory -----------------------------------------------------------------------------

namespace {

// Runs `call` between `before` and `after` with every allocation failing, one after another. A call
// returns 0 or `expected`; after a failure the state passes `check`, and after `after` no block has
// leaked. Returns the number of calls that failed.
int failEach(int expected, std::function<void()> const& before, std::function<int()> const& call,
             std::function<void()> const& check, std::function<void()> const& after)
{
    int failures = 0;
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const blocks = FailingAllocator::blocks();
        before();
        FailingAllocator::failAt(n);
        int const code = call();
        bool const failed = FailingAllocator::stop();
        if (code != 0) {
            ++failures;
            EXPECT_TRUE(failed);
            EXPECT_EQ(expected, code);
            check();
        }
        after();
        // A sanitizer's strdup() is not counted, although free() of its block is.
        EXPECT_GE(blocks, FailingAllocator::blocks());
        if (!failed || testing::Test::HasFailure())
            return failures;
    }
}

void nothing()
{
}

}  // namespace

TEST_F(ZPropertiesC, OpenReturns51IfAnAllocationFails)
{
    std::string const name = path("service.conf");
    ZPROP_handle* handle = nullptr;
    int const failures = failEach(
        51, nothing, [&] { return zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead); },
        [&] { EXPECT_EQ(nullptr, handle); }, [&] { zstzPropClose_6_0(handle); });
    EXPECT_GT(failures, 5);
}

TEST_F(ZPropertiesC, ReadingReturns52IfAnAllocationFails)
{
    std::string const longText(300, 'x');
    write("long.conf", "[s]\nk = " + longText + "\nk = " + longText + "\n");
    std::string const name = path("long.conf");
    ZPROP_handle* handle = nullptr;
    int code = kUntouched;
    auto const open = [&] { zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead); };
    auto const close = [&] { zstzPropClose_6_0(handle); };
    auto const intact = [&] {
        Text const text(zstzPropGetStringValue_6_0(handle, "s", "k", kRequired, &code));
        EXPECT_EQ(longText, textOf(text));
    };
    int failures = failEach(
        52, open,
        [&] {
            Text const text(zstzPropGetStringValue_6_0(handle, "s", "k", kRequired, &code));
            EXPECT_EQ(code == 0, text != nullptr);
            return code;
        },
        intact, close);
    EXPECT_GE(failures, 1);

    // If many strings exist, registering another string allocates memory too.
    std::vector<char*> texts(20000);
    for (char*& text : texts)
        text = zstzPropGetStringValue_6_0(file_, "server", "port", kRequired, &code);
    for (int i = 0; i < 5; ++i)
        failures += failEach(
            52, open,
            [&] {
                Text const text(zstzPropGetStringValue_6_0(handle, "s", "k", kRequired, &code));
                EXPECT_EQ(code == 0, text != nullptr);
                return code;
            },
            intact, close);
    for (char* text : texts)
        zstzPropFree_6_0(text);
    EXPECT_GE(failures, 7);

    char* text = nullptr;
    char** list = nullptr;
    ZPROPValue records[] = {{zpropString, "s", "k", kRequired, &text},
                            {zpropStringList, "s", "k", kRequired, &list}};
    failures = failEach(
        52, open,
        [&] {
            int const result = zstzPropGetValues_6_0(handle, records, 2);
            if (result == 0) {
                EXPECT_EQ(longText, text);
                EXPECT_EQ(longText, list[0]);
                EXPECT_EQ(longText, list[1]);
                EXPECT_EQ(nullptr, list[2]);
            }
            return result;
        },
        intact,
        [&] {
            zstzPropFreeValuesList_6_0(handle, records, 2);
            zstzPropClose_6_0(handle);
        });
    EXPECT_GE(failures, 4);
}

TEST_F(ZPropertiesC, ChangesReturn52IfAnAllocationFails)
{
    std::string const longText(300, 'x');
    std::string const name = path("service.conf");
    std::string const copy = path("copy.conf");
    ZPROP_handle* handle = nullptr;
    struct Case {
        char const* name;
        std::function<int()> change;
    };
    Case const cases[] = {
        {"a value",
         [&] { return zstzPropSetStringValue_6_0(handle, "server", "port", longText.c_str()); }},
        {"a new stanza",
         [&] { return zstzPropSetStringValue_6_0(handle, "new", "key", longText.c_str()); }},
        {"a number", [&] { return zstzPropSetIntegerValue_6_0(handle, "server", "new", 5); }},
        {"a boolean", [&] { return zstzPropSetBooleanValue_6_0(handle, "server", "new", 1); }},
        {"no key", [&] { return zstzPropRemoveKey_6_0(handle, "server", "host"); }},
        {"no stanza", [&] { return zstzPropRemoveStanza_6_0(handle, "server"); }},
        {"a comment on a key",
         [&] { return zstzPropAddLineComment_6_0(handle, "server", "debug", longText.c_str()); }},
        {"a comment on a stanza",
         [&] { return zstzPropAddStanzaComment_6_0(handle, "server", longText.c_str()); }},
        {"a comment on the file",
         [&] { return zstzPropAddFileComment_6_0(handle, longText.c_str()); }}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        failEach(
            52, [&] { zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead); }, c.change,
            [&] {
                EXPECT_EQ(0, zstzPropStore_6_0(handle, copy.c_str()));
                EXPECT_EQ(kText, read("copy.conf"));
                EXPECT_EQ(0, c.change()) << "the next one goes well";
            },
            [&] { zstzPropClose_6_0(handle); });
    }
}

TEST_F(ZPropertiesC, StoreReturns51IfAnAllocationFails)
{
    std::string const longText(300, 'x');
    std::string const name = path("service.conf");
    ZPROP_handle* handle = nullptr;
    int const failures = failEach(
        51,
        [&] {
            write("service.conf", kText);
            EXPECT_EQ(0, zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead));
            EXPECT_EQ(0, zstzPropSetStringValue_6_0(handle, "server", "port", longText.c_str()));
        },
        [&] { return zstzPropStore_6_0(handle, nullptr); },
        [&] {
            EXPECT_EQ(kText, read("service.conf"));
            EXPECT_EQ(0, zstzPropStore_6_0(handle, nullptr));
        },
        [&] {
            std::string expected = kText;
            expected.replace(expected.find("8080"), 4, longText);
            EXPECT_EQ(expected, read("service.conf"));
            zstzPropClose_6_0(handle);
        });
    EXPECT_GE(failures, 1);
}

TEST_F(ZPropertiesC, IteratorsReturn52IfAnAllocationFails)
{
    values("server", "host");  // allocates slots for iterators, which are never freed

    std::string const longText(300, 'x');
    std::string const other(301, 'y');
    write("long.conf", "[s]\nk = " + longText + "\nl = 1\n");
    std::string const name = path("long.conf");
    ZPROP_handle* handle = nullptr;
    ZPROP_iter_handle* iterator = nullptr;
    int code = kUntouched;
    auto const open = [&] {
        EXPECT_EQ(0, zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead));
        iterator = nullptr;
    };
    auto const close = [&] {
        zstzPropIter_close_6_0(iterator);
        zstzPropClose_6_0(handle);
    };
    for (char const* key : {static_cast<char const*>(nullptr), "k"}) {
        SCOPED_TRACE(key == nullptr ? "keys" : "values");
        int failures = failEach(
            52, open, [&] { return zstzPropIter_init_6_0(handle, "s", key, &iterator); },
            [&] { EXPECT_EQ(nullptr, iterator); }, close);
        EXPECT_GE(failures, 2);
        auto const openIterator = [&] {
            open();
            EXPECT_EQ(0, zstzPropIter_init_6_0(handle, "s", key, &iterator));
        };
        failures = failEach(
            52, openIterator,
            [&] {
                int worst = 0;
                while (zstzPropIter_next_6_0(iterator, &code) == 1) {
                    Text const keyName(zstzPropIter_getKey_6_0(iterator, &code));
                    worst = std::max(worst, code);
                    Text const text(zstzPropIter_getValue_6_0(iterator, &code));
                    worst = std::max(worst, code);
                }
                return std::max(worst, code);
            },
            nothing, close);
        EXPECT_GE(failures, 2);
    }

    struct Case {
        char const* name;
        int (*change)(ZPROP_iter_handle*, char const*);
        std::string value;
        std::string after;
    };
    Case const cases[] = {
        {"change", zstzPropIter_chgValue_6_0, other, other},
        {"add", zstzPropIter_addValue_6_0, other, longText + " " + other},
        {"remove", [](ZPROP_iter_handle* i, char const*) { return zstzPropIter_rmvValue_6_0(i); },
         "", ""}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const contents = [&] {
            std::string all;
            ZPROP_iter_handle* walker = nullptr;
            EXPECT_EQ(0, zstzPropIter_init_6_0(handle, "s", "k", &walker));
            while (zstzPropIter_next_6_0(walker, &code) == 1) {
                Text const text(zstzPropIter_getValue_6_0(walker, &code));
                all += (all.empty() ? "" : " ") + textOf(text);
            }
            EXPECT_EQ(0, zstzPropIter_close_6_0(walker));
            return all;
        };
        failEach(
            52,
            [&] {
                open();
                EXPECT_EQ(0, zstzPropIter_init_6_0(handle, "s", "k", &iterator));
                EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
            },
            [&] { return c.change(iterator, c.value.c_str()); },
            [&] {
                EXPECT_EQ(longText, contents());
                EXPECT_EQ(longText, textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
                EXPECT_EQ(0, c.change(iterator, c.value.c_str()));
            },
            [&] {
                EXPECT_EQ(c.after, contents());
                close();
            });
    }
}
