// The first call of the text functions: its steps, its reports, and the tables that it reads.
#include <Z/ZLCString.h>
#include <Z/ZMessage.h>
#include <Z/ZQVRUTF8Converter.h>
#include <Z/ZUTF8String.h>
#include <Z/zqvrutil.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <qvr.h>

#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestDirectory.h"

// The text services and the environment during the initialisation: calls are recorded and can fail
// on request.

namespace {

struct Services {
    std::mutex mutex;
    std::vector<std::string> calls;
    bool languageFails = false;
    bool canonicalFails = false;
    bool codesetNameFails = false;
    bool codesetNameIsUnended = false;
    bool isSetUid = false;
    int directoryCode = 0;  // result of qvr_set_dir(), unless 0
    std::string refusedCodeset;
    bool refusesEveryCodeset = false;
};

Services& services()
{
    static Services all;
    return all;
}

void note(std::string const& call)
{
    std::lock_guard const guard(services().mutex);
    services().calls.push_back(call);
}

}  // namespace

extern "C" {

int __real_qvr_set_dir(char const* dir);
int __wrap_qvr_set_dir(char const* dir);
int __real_qvr_os_lang_name(char* buf, size_t room);
int __wrap_qvr_os_lang_name(char* buf, size_t room);
int __real_qvr_canonical_loc(char const* osName, char* buf, size_t room);
int __wrap_qvr_canonical_loc(char const* osName, char* buf, size_t room);
qvr_loc_t __real_qvr_loc_new(char const* name);
qvr_loc_t __wrap_qvr_loc_new(char const* name);
int __real_qvr_os_cs_name(char* buf, size_t room);
int __wrap_qvr_os_cs_name(char* buf, size_t room);
qvr_cs_t __real_qvr_cs_new(char const* name);
qvr_cs_t __wrap_qvr_cs_new(char const* name);
char* __wrap_secure_getenv(char const* name);

int __wrap_qvr_set_dir(char const* dir)
{
    note(std::string("dir ") + dir);
    return services().directoryCode != 0 ? services().directoryCode : __real_qvr_set_dir(dir);
}

int __wrap_qvr_os_lang_name(char* buf, size_t room)
{
    note("language " + std::to_string(room));
    return services().languageFails ? -1 : __real_qvr_os_lang_name(buf, room);
}

int __wrap_qvr_canonical_loc(char const* osName, char* buf, size_t room)
{
    note("canonical " + std::to_string(room));
    return services().canonicalFails ? -1 : __real_qvr_canonical_loc(osName, buf, room);
}

qvr_loc_t __wrap_qvr_loc_new(char const* name)
{
    note(std::string("locale ") + name);
    return __real_qvr_loc_new(name);
}

int __wrap_qvr_os_cs_name(char* buf, size_t room)
{
    note("codeset name " + std::to_string(room));
    if (services().codesetNameIsUnended) {
        memset(buf, 'x', room);
        return 0;
    }
    return services().codesetNameFails ? -1 : __real_qvr_os_cs_name(buf, room);
}

qvr_cs_t __wrap_qvr_cs_new(char const* name)
{
    note(std::string("codeset ") + name);
    if (services().refusesEveryCodeset || services().refusedCodeset == name)
        return nullptr;
    return __real_qvr_cs_new(name);
}

char* __wrap_secure_getenv(char const* name)
{
    return services().isSetUid ? nullptr : getenv(name);
}

}  // extern "C"

namespace {

// The initialisation runs once per process; each of these tests runs in a process of its own.
class zqvrutilStart : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// Runs `claims` in a new process, which reports by its exit code.
template <class Claims>
[[noreturn]] void exitWith(Claims claims)
{
    claims();
    // Flush the messages of failed claims.
    fflush(stdout);
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

std::string report(char const* name, int line, int number, std::string const& text)
{
    return std::string("Exception: ") + name + "\n File: \"src/Z/zqvrutil\" " +
           std::to_string(line) + "\n Error: " + std::to_string(number) +
           "\n Thread: -?[0-9]+\nNUM_MSGS = 55\n" + text;
}

std::string withoutDirectory()
{
    return report("ZNoQVREnvironmentException", 125, 45,
                  "The QVRDIR environment variable is not set.");
}

std::string withoutCodeset(std::string const& codeset)
{
    return report("ZCodesetException", 129, 47,
                  "Codeset handle create failed for codeset \"" + codeset + "\".  QVRDIR is \"");
}

std::string systemCodeset()
{
    setlocale(LC_ALL, "");
    std::string const name = nl_langinfo(CODESET);
    setlocale(LC_ALL, "C");
    return name;
}

class ThrowingService final : public ZMessageService_6_0 {
public:
    void outputMessage(char const*, int, int, int, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*) const override
    {
        throw 1;
    }
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*) const override
    {
        throw 1;
    }
    void outputException(ZException_6_0&) const override { throw 1; }
    void outputException(ZZException_6_0 const*, va_list) const override { throw 1; }
};

}  // namespace

// The initialisation.

TEST_F(zqvrutilStart, RunsItsStepsOnceAndInOrder)
{
    EXPECT_EXIT(exitWith([] {
                    EXPECT_TRUE(services().calls.empty());
                    std::string const codeset = systemCodeset();
                    qvr_cs_t const local = zgetLCSHandle_6_0();
                    EXPECT_NE(nullptr, local);
                    EXPECT_EQ(codeset, nl_langinfo(CODESET));
                    std::vector<std::string> const expected = {
                        "dir /opt/Tarsenna/nls/QVR",
                        std::string("dir ") + getenv("QVRDIR"),
                        "language 512",
                        "canonical 512",
                        std::string("locale ") + zgetlocale_6_0(),
                        "codeset name 32",
                        "codeset " + codeset,
                        "codeset UTF8",
                    };
                    EXPECT_EQ(expected, services().calls);
                    EXPECT_EQ(local, zgetLCSHandle_6_0());
                    EXPECT_NE(nullptr, zgetUTF8Handle_6_0());
                    EXPECT_NE(local, zgetUTF8Handle_6_0());
                    EXPECT_EQ(codeset, zgetLocalCodesetName_6_0());
                    EXPECT_EQ(expected, services().calls);
                }),
                testing::ExitedWithCode(0), "");
}

TEST_F(zqvrutilStart, StartsWithAnyFirstCall)
{
    for (int first = 0; first < 5; ++first) {
        EXPECT_EXIT(exitWith([&] {
                        switch (first) {
                            case 0:
                                EXPECT_NE(nullptr, zgetUTF8Handle_6_0());
                                break;
                            case 1:
                                EXPECT_NE(nullptr, zgetLocalCodesetName_6_0());
                                break;
                            case 2:
                                EXPECT_NE(nullptr, zgetlocale_6_0());
                                break;
                            case 3:
                                ZUTF8String_6_0("a string");
                                break;
                            default: {
                                char out[4];
                                EXPECT_EQ(1, zlcs_to_utf8_6_0("a", 1, out, sizeof out));
                            }
                        }
                        EXPECT_EQ(8u, services().calls.size());
                    }),
                    testing::ExitedWithCode(0), "");
    }
}

TEST_F(zqvrutilStart, RunsOnceForManyThreads)
{
    EXPECT_EXIT(exitWith([] {
                    std::vector<std::thread> threads;
                    for (int i = 0; i < 8; ++i) {
                        threads.emplace_back([i] {
                            EXPECT_NE(nullptr, i % 2 ? zgetLCSHandle_6_0() : zgetUTF8Handle_6_0());
                            EXPECT_NE(nullptr, zgetlocale_6_0());
                            EXPECT_EQ(1, zmblen_6_0(zgetLCSHandle_6_0(), "a", 1));
                        });
                    }
                    for (std::thread& thread : threads)
                        thread.join();
                    EXPECT_EQ(8u, services().calls.size());
                }),
                testing::ExitedWithCode(0), "");
}

TEST_F(zqvrutilStart, AbortsWithAReportWithoutQVRDIR)
{
    EXPECT_EXIT((unsetenv("QVRDIR"), zgetLCSHandle_6_0()), testing::KilledBySignal(SIGABRT),
                withoutDirectory());
    EXPECT_EXIT((unsetenv("QVRDIR"), zgetUTF8Handle_6_0()), testing::KilledBySignal(SIGABRT),
                withoutDirectory());
    EXPECT_EXIT((unsetenv("QVRDIR"), ZLCString_6_0("a string")), testing::KilledBySignal(SIGABRT),
                withoutDirectory());
}

TEST_F(zqvrutilStart, TreatsAnInheritedQVRDIRAsUnsetInASetUidProgram)
{
    EXPECT_EXIT((services().isSetUid = true, zgetLCSHandle_6_0()), testing::KilledBySignal(SIGABRT),
                withoutDirectory());
}

TEST_F(zqvrutilStart, ReturnsNullNamesAfterAReportAndDoesNotRetry)
{
    EXPECT_EXIT(exitWith([] {
                    unsetenv("QVRDIR");
                    EXPECT_EQ(nullptr, zgetlocale_6_0());
                    EXPECT_EQ(nullptr, zgetLocalCodesetName_6_0());
                    setenv("QVRDIR", "/tmp", 1);
                    EXPECT_EQ(nullptr, zgetlocale_6_0());
                    EXPECT_EQ(std::vector<std::string>{"dir /opt/Tarsenna/nls/QVR"},
                              services().calls);
                }),
                testing::ExitedWithCode(0), withoutDirectory());
}

TEST_F(zqvrutilStart, ReportsAgainAfterAMessageServiceThatThrows)
{
    EXPECT_EXIT(exitWith([] {
                    ThrowingService const service;
                    ZMessageService_6_0::setMessageService(&service);
                    unsetenv("QVRDIR");
                    for (int i = 0; i < 2; ++i)
                        EXPECT_THROW(ZLCString_6_0("a string"), int);
                }),
                testing::ExitedWithCode(0), "");
}

TEST_F(zqvrutilStart, AbortsWithAReportWithoutAHandle)
{
    std::string const codeset = systemCodeset();
    EXPECT_EXIT((services().refusedCodeset = systemCodeset(), zgetLCSHandle_6_0()),
                testing::KilledBySignal(SIGABRT), withoutCodeset(codeset));
    EXPECT_EXIT((services().refusedCodeset = "UTF8", zgetUTF8Handle_6_0()),
                testing::KilledBySignal(SIGABRT), withoutCodeset("UTF8"));
    EXPECT_EXIT((services().refusesEveryCodeset = true, zgetUTF8Handle_6_0()),
                testing::KilledBySignal(SIGABRT), withoutCodeset(codeset));
    EXPECT_EXIT((services().refusesEveryCodeset = true, ZUTF8String_6_0("a string")),
                testing::KilledBySignal(SIGABRT), withoutCodeset(codeset));
    EXPECT_EXIT((services().codesetNameFails = true, zgetLCSHandle_6_0()),
                testing::KilledBySignal(SIGABRT), withoutCodeset(""));
}

TEST_F(zqvrutilStart, ReturnsTheOnlyHandleThatItHas)
{
    EXPECT_EXIT(exitWith([] {
                    services().refusedCodeset = "UTF8";
                    EXPECT_NE(nullptr, zgetlocale_6_0());
                    EXPECT_NE(nullptr, zgetLCSHandle_6_0());
                    EXPECT_NE(nullptr, zgetLocalCodesetName_6_0());
                }),
                testing::ExitedWithCode(0), withoutCodeset("UTF8"));
}

TEST_F(zqvrutilStart, StopsAtTheStepThatFails)
{
    struct Case {
        bool Services::*failing;
        bool hasLocale;
        char const* lastStep;
    };
    Case const cases[] = {{&Services::languageFails, false, "language 512"},
                          {&Services::canonicalFails, false, "canonical 512"},
                          {&Services::codesetNameFails, true, "codeset name 32"}};
    for (Case const& c : cases) {
        EXPECT_EXIT(exitWith([&] {
                        services().*c.failing = true;
                        char const* const locale = zgetlocale_6_0();
                        EXPECT_EQ(c.hasLocale, locale != nullptr);
                        EXPECT_EQ(nullptr, zgetLocalCodesetName_6_0());
                        EXPECT_EQ(c.lastStep, services().calls.back());
                    }),
                    testing::ExitedWithCode(0), withoutCodeset(""));
    }
}

TEST_F(zqvrutilStart, TerminatesANameThatTheServicesLeaveUnterminated)
{
    EXPECT_EXIT((services().codesetNameIsUnended = true, zgetLCSHandle_6_0()),
                testing::KilledBySignal(SIGABRT), withoutCodeset(std::string(31, 'x')));
}

// A table directory with these codeset aliases.
std::string tablesWith(TestDirectory const& directory, std::string const& table)
{
    directory.write("codesets.alias", table);
    return directory.path();
}

TEST_F(zqvrutilStart, ReportsAnUnusableTableOnce)
{
    TestDirectory const directory;
    std::string const tables =
        tablesWith(directory, "# ours\nhouse UTF-8\nUTF8 ISO-8859-1\nalone\n");
    std::string const expected =
        tables +
        "/codesets.alias:3: \"UTF8\" is built in and cannot stand for \"ISO-8859-1\"; remove the "
        "line (no table of the directory is used)\n";
    for (bool const wide : {false, true}) {
        EXPECT_EXIT(exitWith([&] {
                        setenv("QVRDIR", tables.c_str(), 1);
                        if (wide)
                            fwide(stderr, 1);
                        testing::internal::CaptureStderr();
                        errno = EXDEV;
                        std::vector<std::thread> threads;
                        for (int i = 0; i < 4; ++i)
                            threads.emplace_back([] { ZUTF8String_6_0("a string"); });
                        for (std::thread& thread : threads)
                            thread.join();
                        EXPECT_EQ(expected, testing::internal::GetCapturedStderr());
                        // Everything else is as without the table.
                        EXPECT_NE(nullptr, zgetLCSHandle_6_0());
                        ZUTF8String_6_0 const euro("\u20ac");
                        EXPECT_EQ(3u, euro.getLength());
                        EXPECT_EQ(3, zmblen_6_0(zgetUTF8Handle_6_0(), "\u20ac", 3));
                    }),
                    testing::ExitedWithCode(0), "");
    }
}

TEST_F(zqvrutilStart, ReportsATableWithAnyLengthOfPath)
{
    // A path of nearly 4 KiB: the report is truncated at the end of its buffer, not before.
    TestDirectory const directory;
    std::string tables = directory.path();
    while (tables.size() < 3900) {
        tables += "/" + std::string(std::min<size_t>(200, 3999 - tables.size()), 'x');
        std::filesystem::create_directory(tables);
    }
    std::ofstream(tables + "/codesets.alias") << "alone\n";
    EXPECT_EXIT(exitWith([&] {
                    setenv("QVRDIR", tables.c_str(), 1);
                    testing::internal::CaptureStderr();
                    EXPECT_NE(nullptr, zgetLCSHandle_6_0());
                    std::string const report = testing::internal::GetCapturedStderr();
                    EXPECT_EQ(0u, report.find(tables + "/codesets.alias:1: not two names"));
                }),
                testing::ExitedWithCode(0), "");
}

TEST_F(zqvrutilStart, ReportsNothingForMissingOrValidTables)
{
    TestDirectory const directory;
    for (std::string const& tables :
         {directory.at("missing"), tablesWith(directory, "house UTF-8\n")}) {
        EXPECT_EXIT(exitWith([&] {
                        setenv("QVRDIR", tables.c_str(), 1);
                        testing::internal::CaptureStderr();
                        EXPECT_NE(nullptr, zgetLCSHandle_6_0());
                        EXPECT_EQ("", testing::internal::GetCapturedStderr());
                    }),
                    testing::ExitedWithCode(0), "");
    }
}

TEST(zqvrutil, ReportsADirectoryWithoutAKnownProblem)
{
    zgetLCSHandle_6_0();
    std::string const tables = getenv("QVRDIR");
    struct Case {
        int code;
        char const* problem;
    };
    for (Case const& c : {Case{qvrInvalid, ": a table cannot be used; check them"},
                          Case{qvrNoMemory, ": not enough memory for the tables"}}) {
        services().directoryCode = c.code;
        testing::internal::CaptureStderr();
        zset_cs_dir_6_0(tables.c_str());
        EXPECT_EQ(tables + c.problem + " (no table of the directory is used)\n",
                  testing::internal::GetCapturedStderr());
    }
    services().directoryCode = 0;
}

TEST(zqvrutil, ReportsAnUnusableTableAtEachCallWithItsDirectory)
{
    zgetLCSHandle_6_0();
    TestDirectory const directory;
    std::string const tables = tablesWith(directory, "house UTF-8\nalone\n");
    std::string const expected = tables +
                                 "/codesets.alias:2: not two names; write an alias and the name it "
                                 "stands for (no table of the directory is used)\n";
    testing::internal::CaptureStderr();
    errno = EXDEV;
    zset_cs_dir_6_0(tables.c_str());
    EXPECT_EQ(EXDEV, errno);
    EXPECT_EQ(expected, testing::internal::GetCapturedStderr());
    testing::internal::CaptureStderr();
    ZQVRUTF8Converter_6_0 const converter("house", tables.c_str());
    EXPECT_EQ(expected, testing::internal::GetCapturedStderr());
    zset_cs_dir_6_0(getenv("QVRDIR"));
}

// Locales that the build of the tests creates: with codesets that ICU lacks, and with custom names.
TEST_F(zqvrutilStart, ServesLocalesOfEveryCodesetAndName)
{
    struct Case {
        char const* locale;
        char const* canonical;
        char const* codeset;
        char const* local;
        char const* utf8;
        char const* may;  // the month, in UTF-8
    };
    Case const cases[] = {
        {"hy_AM.ARMSCII-8", "hy_AM.ARMSCII-8", "ARMSCII-8", "\xB2\xB3", "\u0531\u0561", nullptr},
        {"ka_GE.GEORGIAN-PS", "ka_GE.GEORGIAN-PS", "GEORGIAN-PS", "\xC0\xE4", "\u10d0\u10f0",
         "\u10db\u10d0\u10d8\u10e1\u10d8"},
        {"tg_TJ.KOI8-T", "tg_TJ.KOI8-T", "KOI8-T", "\x8D\xC1", "\u04b7\u0430", nullptr},
        {"kk_KZ.PT154", "kk_KZ.PT154", "PT154", "\x80\xE0", "\u0496\u0430", nullptr},
        {"kk_KZ.RK1048", "kk_KZ.RK1048", "RK1048", "\x8D\xE0", "\u049a\u0430", nullptr},
        {"company.utf8@X", "company.utf8@X", "UTF-8", "\u00e4", "\u00e4", "Mai"},
        {"Our own: site", "Our own: site", "UTF-8", "\u00e4", "\u00e4", "Mai"},
        {Z_LONG_LOCALE, Z_LONG_LOCALE, "UTF-8", "\u00e4", "\u00e4", "Mai"},
        {"tr_TR.utf8@Ours", "tr_TR.UTF-8@ours", "UTF-8", "\u00e4", "\u00e4", "May\u0131s"},
        {"de_DE.latin1", "de_DE.ISO-8859-1", "ISO-8859-1", "\xE4", "\u00e4", "Mai"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.locale);
        EXPECT_EXIT(exitWith([&] {
                        setenv("LOCPATH", Z_TEST_LOCALES, 1);
                        setenv("LC_ALL", c.locale, 1);
                        ZLCString_6_0 const text(c.local);
                        EXPECT_STREQ(c.locale, setlocale(LC_CTYPE, nullptr));
                        EXPECT_STREQ(c.codeset, zgetLocalCodesetName_6_0());
                        EXPECT_STREQ(c.canonical, zgetlocale_6_0());
                        EXPECT_STREQ(c.utf8, ZUTF8String_6_0(text).getChars());
                        EXPECT_STREQ(c.local, ZLCString_6_0(ZUTF8String_6_0(c.utf8)).getChars());
                        struct tm time = {};
                        if (c.may != nullptr) {
                            EXPECT_NE(nullptr,
                                      zstrptime_6_0(zgetUTF8Handle_6_0(), c.may, "%B", &time));
                            EXPECT_EQ(4, time.tm_mon);
                        }
                    }),
                    testing::ExitedWithCode(0), "");
    }
}

TEST(zqvrutil, SetsTheDirectoryOfTheTables)
{
    std::vector<std::string>& calls = services().calls;
    zgetLCSHandle_6_0();
    calls.clear();
    zset_cs_dir_6_0(nullptr);
    EXPECT_TRUE(calls.empty());
    zset_cs_dir_6_0(getenv("QVRDIR"));
    EXPECT_EQ(std::vector<std::string>{std::string("dir ") + getenv("QVRDIR")}, calls);
}

TEST(zqvrutil, ReturnsTheNameOfTheLocale)
{
    ZLCString_6_0 out("before");
    EXPECT_EQ(0, ZGetLocale(out));
    EXPECT_STREQ(zgetlocale_6_0(), out.getChars());
    char system[512];
    char canonical[512];
    ASSERT_EQ(0, qvr_os_lang_name(system, sizeof system));
    ASSERT_EQ(0, qvr_canonical_loc(system, canonical, sizeof canonical));
    EXPECT_STREQ(canonical, zgetlocale_6_0());
    EXPECT_STREQ(nl_langinfo(CODESET), zgetLocalCodesetName_6_0());
}
