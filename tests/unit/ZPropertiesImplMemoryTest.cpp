// Every operation of a cache without memory, and a cache without random bytes.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "CacheHelpers.h"
#include "EachAllocation.h"
#include "FailingAllocator.h"

using namespace std::string_literals;

namespace {

// The environment variable that makes getrandom() fail.
constexpr char kNoRandom[] = "Z_TEST_NO_RANDOM";
int randomRefused = 0;

}  // namespace

// Replaces the platform's function, also for the library.
extern "C" ssize_t getrandom(void* to, size_t length, unsigned flags)
{
    if (getenv(kNoRandom) == nullptr)
        return syscall(SYS_getrandom, to, length, flags);
    ++randomRefused;
    errno = EAGAIN;
    return -1;
}

// --- without memory

namespace {

// Changes a new cache while its n-th allocation fails. Expects that the cache is unchanged and that
// deleting it frees all memory. Returns whether an n-th allocation was requested.
bool changeFailing(void (*change)(ZSCFData_6_0&), unsigned long n, FailingAllocator::Mode mode)
{
    SCOPED_TRACE("allocation " + std::to_string(n));
    long const blocks = FailingAllocator::blocks();
    bool hasFailed = false;
    {
        auto const data =
            parsed("# c\n[a]\nk = 1\nlisted = 1\n# t = 1\n\n[b]\nk = v\n[removed]\nx = 1\n# g\n");
        data->add("hidden", "k", "secret", 1);
        data->add("a", "listed secret", "zero", 1);
        data->remove("removed");
        data->get("a", "listed", ZPCache_6_0::plainValues);
        data->get("a", "listed secret", ZPCache_6_0::obfuscatedValues);
        data->get("b", ZPCache_6_0::plainValues);
        std::string const before = stateOf(*data);
        std::string const text = textOf(*data);
        bool hasThrown = false;
        FailingAllocator::failAt(n, mode);
        try {
            change(*data);
        } catch (ZOutOfMemoryException_6_0 const&) {
            hasThrown = true;
        } catch (std::bad_alloc const&) {
            hasThrown = true;  // of a string in the lambda of the change
        }
        hasFailed = FailingAllocator::stop();
        // Only the failure to shrink a block may stay without an exception.
        EXPECT_TRUE(hasFailed || !hasThrown);
        if (hasThrown) {
            EXPECT_EQ(before, stateOf(*data));
            EXPECT_EQ(text, textOf(*data));
            // The next call succeeds.
            change(*data);
        }
    }
    EXPECT_EQ(blocks, FailingAllocator::blocks());
    return hasFailed;
}

}  // namespace

TEST(ZPropertiesImplMemory, EveryChangeHappensCompletelyOrNotAtAll)
{
    struct Case {
        char const* name;
        void (*change)(ZSCFData_6_0&);
    };
    static std::string const kLong(3000, 'x');
    Case const cases[] = {
        {"add", [](ZSCFData_6_0& d) { d.add("new", "key", kLong.c_str(), 0); }},
        {"add to a key", [](ZSCFData_6_0& d) { d.add("a", "k", kLong.c_str(), 0); }},
        {"add to a list", [](ZSCFData_6_0& d) { d.add("a", "listed", kLong.c_str(), 0); }},
        {"add obfuscated", [](ZSCFData_6_0& d) { d.add("a", "k", kLong.c_str(), 1); }},
        {"add without value", [](ZSCFData_6_0& d) { d.add("new", kLong.c_str(), 0); }},
        {"set", [](ZSCFData_6_0& d) { d.set("new", "key", kLong.c_str()); }},
        {"set a key", [](ZSCFData_6_0& d) { d.set("a", "k", kLong.c_str()); }},
        {"set a list", [](ZSCFData_6_0& d) { d.set("a", "listed", kLong.c_str()); }},
        {"set obfuscated", [](ZSCFData_6_0& d) { d.setObfuscated("a", "k", kLong.c_str()); }},
        {"add a line", [](ZSCFData_6_0& d) { d.addLine("a", "t", kLong.c_str(), 0); }},
        {"add a line to a new stanza",
         [](ZSCFData_6_0& d) { d.addLine("new", "key", kLong.c_str(), 0); }},
        {"add a line to a removed stanza",
         [](ZSCFData_6_0& d) { d.addLine("removed", "key", kLong.c_str(), 0); }},
        {"add a line to a stanza without head",
         [](ZSCFData_6_0& d) { d.addLine("hidden", "key", kLong.c_str(), 0); }},
        {"add a stanza", [](ZSCFData_6_0& d) { d.addStanzaLine(kLong.c_str()); }},
        {"add a removed stanza", [](ZSCFData_6_0& d) { d.addStanzaLine("removed"); }},
        {"add a file comment", [](ZSCFData_6_0& d) { d.addFileComment(kLong.c_str()); }},
        {"add a stanza comment", [](ZSCFData_6_0& d) { d.addLineComment("b", kLong.c_str()); }},
        {"add a stanza comment without head",
         [](ZSCFData_6_0& d) { d.addLineComment("hidden", "#a\nb\nc"); }},
        {"add a key comment",
         [](ZSCFData_6_0& d) { d.addLineComment("a", "k", ("#" + kLong + "=").c_str()); }},
        {"add a comment and its key",
         [](ZSCFData_6_0& d) { d.addLineComment("a", "t", "#a\n#b\n#c=1"); }},
        {"add a comment, its key and its stanza",
         [](ZSCFData_6_0& d) { d.addLineComment("new", "key", kLong.c_str()); }},
        {"delete a line", [](ZSCFData_6_0& d) { d.delLine("a", "k"); }},
        {"delete a stanza", [](ZSCFData_6_0& d) { d.delLine("a"); }},
        {"remove", [](ZSCFData_6_0& d) { d.remove("a", "k"); }},
        {"clear", [](ZSCFData_6_0& d) { d.clear(); }},
        {"get", [](ZSCFData_6_0& d) { d.get("a", "k", ZPCache_6_0::anyValues); }},
        {"get of a category", [](ZSCFData_6_0& d) { d.get("a", ZPCache_6_0::anyValues); }},
        {"get of a category again", [](ZSCFData_6_0& d) { d.get("b", ZPCache_6_0::anyValues); }},
        {"names", [](ZSCFData_6_0& d) { delete d.getNames("a"); }},
        {"names lent",
         [](ZSCFData_6_0& d) {
             ZArrayList_6_0 list(1, 0);
             d.getNames(list);
             d.getNames("a", list);
         }},
        {"clone", [](ZSCFData_6_0& d) { delete d.clone(); }},
        {"make empty", [](ZSCFData_6_0& d) { delete d.makeEmpty(); }},
        {"read",
         [](ZSCFData_6_0& d) {
             std::string text =
                 "# c\n\n[configuration-database]\nfile = " + kLong + "\n[removed]\nk = 1\nk = 2\n";
             for (int i = 0; i < 20; ++i)
                 text += "key" + std::to_string(i) + " = v\nkey" + std::to_string(i) + " = w\n";
             text += std::string(9000, '#') + "\n";
             d.readText("test.conf", text.data(), text.size());
         }},
        {"write",
         [](ZSCFData_6_0& d) {
             ZBuffer_6_0 buffer;
             d.writeText(buffer);
         }},
        {"write the companion",
         [](ZSCFData_6_0& d) {
             ZBuffer_6_0 buffer;
             d.be_write_obfuscated(buffer);
         }},
        {"read the companion",
         [](ZSCFData_6_0& d) {
             static std::string content = compressed(
                 "a\0k\0one\0\0a\0listed secret\0two\0\0new\0key\0three\0\0"
                 "a\0listed secret\0four\0"s);
             ZBuffer_6_0 buffer(content.size(), content.data());
             d.be_read_obfuscated(buffer);
         }},
        {"name the companion", [](ZSCFData_6_0& d) { d.setCompanionFile(kLong.c_str()); }},
    };
    {
        // Create the static string of a case before allocations fail.
        ZSCFData_6_0 data;
        for (Case const& c : cases)
            if (std::string(c.name) == "read the companion")
                c.change(data);
    }
    for (Case const& c : cases) {
        for (auto const mode : {FailingAllocator::once, FailingAllocator::forEver}) {
            SCOPED_TRACE(c.name);
            for (unsigned long n = 1; changeFailing(c.change, n, mode); ++n)
                ASSERT_LT(n, 1000u);
        }
    }
}

TEST(ZPropertiesImplMemory, NamesAreFoundWithoutRandomBytes)
{
    // The first cache of a process requests the bytes, so use a new process.
    if (getenv(kNoRandom) == nullptr) {
        pid_t const child = fork();
        if (child == 0) {
            setenv(kNoRandom, "1", 1);
            char self[] = "test";
            char brief[] = "--gtest_brief=1";
            char filter[] = "--gtest_filter=*.NamesAreFoundWithoutRandomBytes";
            char* const arguments[] = {self, brief, filter, nullptr};
            execv("/proc/self/exe", arguments);
            _exit(127);
        }
        int status = -1;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
        return;
    }
    Cache cache;
    for (int i = 0; i < 1000; ++i)
        cache.add("c", ("key" + std::to_string(i)).c_str(), std::to_string(i).c_str(), 0);
    EXPECT_EQ(1, randomRefused);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ((Strings{std::to_string(i)}),
                  values(cache, "c", ("key" + std::to_string(i)).c_str()));
    EXPECT_EQ(0, cache.contains("c", "key1000"));
}

TEST(ZPropertiesImplMemory, CreatingACacheFailsCleanly)
{
    Cache();  // the first cache allocates memory that stays
    failEachAllocation([] { ZSCFData_6_0 const data; }, [] {});
    failEachAllocation([] { Cache const cache; }, [] {});
}
