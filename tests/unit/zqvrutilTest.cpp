#include <Z/ZLCString.h>
#include <Z/ZMessage.h>
#include <Z/ZQVRUTF8Converter.h>
#include <Z/ZUTF8String.h>
#include <Z/zqvrutil.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <qvr.h>
#include <wchar.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "GuardedBytes.h"
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

// A codeset handle of the test.
class Codeset {
public:
    explicit Codeset(char const* name) : handle_(qvr_cs_new(name)) { EXPECT_NE(nullptr, handle_); }
    Codeset(Codeset const&) = delete;
    Codeset& operator=(Codeset const&) = delete;
    ~Codeset() { qvr_cs_free(handle_); }
    operator qvr_cs_t() const { return handle_; }

private:
    qvr_cs_t handle_;
};

bool isSingleByteLocale()
{
    zgetLCSHandle_6_0();
    return MB_CUR_MAX == 1;
}

// The conversion of UTF-16 into `room` bytes: result, consumed units, bytes.
struct Converted {
    int result;
    ptrdiff_t used;
    std::string bytes;

    bool operator==(Converted const&) const = default;
};

void PrintTo(Converted const& c, std::ostream* out)
{
    *out << c.result << " after " << c.used << " units: " << testing::PrintToString(c.bytes);
}

Converted fromUTF16(std::vector<uint16_t> const& units, size_t room)
{
    GuardedBytes const out(std::string(room, '~'));
    uint16_t const* src = units.data();
    char* dst = out;
    int const result =
        zconvert_UTF16_to_UTF8_6_0(&src, units.data() + units.size(), &dst, out + room);
    std::string const rest(dst, static_cast<size_t>(out + room - dst));
    EXPECT_EQ(std::string(rest.size(), '~'), rest);
    return {result, src - units.data(),
            std::string(static_cast<char*>(out), static_cast<size_t>(dst - out))};
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
        size_t steps;
        bool hasLocale;
    };
    Case const cases[] = {{&Services::languageFails, 3, false},
                          {&Services::canonicalFails, 4, false},
                          {&Services::codesetNameFails, 6, true}};
    for (Case const& c : cases) {
        EXPECT_EXIT(exitWith([&] {
                        services().*c.failing = true;
                        char const* const locale = zgetlocale_6_0();
                        EXPECT_EQ(c.hasLocale, locale != nullptr);
                        EXPECT_EQ(nullptr, zgetLocalCodesetName_6_0());
                        EXPECT_EQ(c.steps, services().calls.size());
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

// Characters.

TEST(zqvrutil, MeasuresCharacters)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP"), latin("ISO-8859-1");
    struct Case {
        char const* name;
        qvr_cs_t codeset;
        char const* text;
        size_t n;
        int length;
    };
    Case const cases[] = {
        {"ASCII", utf8, "ab", 2, 1},
        {"two bytes", utf8, "\xC3\xA9x", 4, 2},
        {"three bytes", utf8, "\xE3\x81\x82x", 4, 3},
        {"four bytes", utf8, "\xF0\x9F\x98\x80x", 4, 4},
        {"terminator", utf8, "", 1, 0},
        {"invalid byte", utf8, "\xFF", 1, -1},
        {"overlong", utf8, "\xC0\x80", 2, -1},
        {"surrogate", utf8, "\xED\xA0\x80", 3, -1},
        {"cut", utf8, "\xE3\x81\x82", 2, -1},
        {"no space", utf8, "a", 0, -1},
        {"two bytes", japanese, "\xA4\xA2", 4, 2},
        {"cut", japanese, "\xA4", 1, -1},
        {"high byte", latin, "\xE9", 1, 1},
        {"terminator", latin, "", 1, 0},
        {"UTF-8 handle of the process", zgetUTF8Handle_6_0(), "\xC3\xA9", 2, 2},
        {"terminator", zgetUTF8Handle_6_0(), "", 1, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.length, zmblen_6_0(c.codeset, c.text, c.n));
    }
    EXPECT_EQ(-1, zmblen_6_0(nullptr, "a", 1));
    EXPECT_EQ(-1, zmblen_6_0(utf8, nullptr, 1));
    if (!isSingleByteLocale()) {
        EXPECT_EQ(0, zmblen_6_0(zgetLCSHandle_6_0(), "", 1));
        EXPECT_EQ(-1, zmblen_6_0(zgetLCSHandle_6_0(), "\xFF", 1));
    }
}

TEST(zqvrutil, DecodesCharacters)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    uint16_t wc[2] = {0xAAAA, 0xBBBB};
    EXPECT_EQ(1, zmbtowc_6_0(utf8, wc, "a", 1));
    EXPECT_EQ('a', wc[0]);
    EXPECT_EQ(3, zmbtowc_6_0(utf8, wc, "\xE3\x81\x82", 3));
    EXPECT_EQ(0x3042, wc[0]);
    EXPECT_EQ(2, zmbtowc_6_0(japanese, wc, "\xA4\xA2", 2));
    EXPECT_EQ(0x3042, wc[0]);
    EXPECT_EQ(0, zmbtowc_6_0(utf8, wc, "", 1));
    EXPECT_EQ(0, wc[0]);
    wc[0] = 0xAAAA;
    EXPECT_EQ(-1, zmbtowc_6_0(utf8, wc, "\xFF", 1));
    EXPECT_EQ(0, wc[0]);
    EXPECT_EQ(0xBBBB, wc[1]);
    EXPECT_EQ(1, zmbtowc_6_0(utf8, nullptr, "a", 1));
}

TEST(zqvrutil, MeasuresSpacesAndLetters)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    struct Case {
        char const* name;
        qvr_cs_t codeset;
        char const* text;
        size_t n;
        int space;
        int letter;
    };
    Case const cases[] = {
        {"blank", utf8, " ", 1, 1, 0},
        {"tab", utf8, "\tx", 2, 1, 0},
        {"letter", utf8, "a", 1, 0, 1},
        {"digit", utf8, "7", 1, 0, 0},
        {"letter of two bytes", utf8, "\xC3\xA9", 2, 0, 2},
        {"ideographic space", utf8, "\xE3\x80\x80", 3, 3, 0},
        {"letter above U+FFFF", utf8, "\xF0\x9D\x90\x80", 4, 0, 4},
        {"hiragana", japanese, "\xA4\xA2", 2, 0, 2},
        {"ideographic space", japanese, "\xA1\xA1", 2, 2, 0},
        {"terminator", utf8, "", 1, 0, 0},
        {"invalid", utf8, "\xFF", 1, 0, 0},
        {"cut", utf8, "\xC3\xA9", 1, 0, 0},
        {"no space", utf8, "a", 0, 0, 0},
        {"null", utf8, nullptr, 1, 0, 0},
        {"no codeset", nullptr, "a", 1, 0, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.space, zisspace_6_0(c.codeset, c.text, c.n));
        EXPECT_EQ(c.letter, zisalpha_6_0(c.codeset, c.text, c.n));
    }
}

TEST(zqvrutil, ClassifiesWideCharacters)
{
    struct Case {
        uint32_t wc;
        int upper, lower, space, digit, alpha, alnum;
    };
    Case const cases[] = {
        {'A', 1, 0, 0, 0, 1, 1},     {'a', 0, 1, 0, 0, 1, 1},  {' ', 0, 0, 1, 0, 0, 0},
        {'0', 0, 0, 0, 1, 0, 1},     {'9', 0, 0, 0, 1, 0, 1},  {'_', 0, 0, 0, 0, 0, 0},
        {0xC9, 1, 0, 0, 0, 1, 1},    {0xE9, 0, 1, 0, 0, 1, 1}, {0x3042, 0, 0, 0, 0, 1, 1},
        {0x3000, 0, 0, 1, 0, 0, 0},  {0xA0, 0, 0, 0, 0, 0, 0}, {0x0663, 0, 0, 0, 0, 0, 1},
        {0x1D400, 1, 0, 0, 0, 1, 1}, {0, 0, 0, 0, 0, 0, 0},    {0xD800, 0, 0, 0, 0, 0, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.wc);
        EXPECT_EQ(c.upper, ziswupper_6_0(c.wc));
        EXPECT_EQ(c.lower, ziswlower_6_0(c.wc));
        EXPECT_EQ(c.space, ziswspace_6_0(c.wc));
        EXPECT_EQ(c.digit, ziswdigit_6_0(c.wc));
        EXPECT_EQ(c.alpha, ziswalpha_6_0(c.wc));
        EXPECT_EQ(c.alnum, ziswalnum_6_0(c.wc));
    }
}

// Strings.

TEST(zqvrutil, SearchesWholeCharacters)
{
    // In Shift_JIS the second byte of this character is a backslash.
    Codeset const japanese("Shift_JIS");
    char const text[] = "\x95\x5C\\b";
    EXPECT_EQ(text + 2, zstrchr_6_0(japanese, text, '\\'));
    EXPECT_EQ(text + 2, zstrrchr_6_0(japanese, text, '\\'));
    EXPECT_EQ(nullptr, zstrchr_6_0(japanese, text, 'c'));
    EXPECT_EQ(text + 2, zstrstr_6_0(japanese, text, "\\b"));
    EXPECT_EQ(text + 2, zstrpbrk_6_0(japanese, text, "b\\"));
    EXPECT_EQ(2u, zstrspn_6_0(japanese, text, "\x95\x5C"));
    EXPECT_EQ(2u, zstrcspn_6_0(japanese, text, "\\"));
    Codeset const latin("ISO-8859-1");
    EXPECT_EQ(text + 1, zstrchr_6_0(latin, text, '\\'));
}

TEST(zqvrutil, CutsTokensAndCopiesWholeCharacters)
{
    Codeset const japanese("Shift_JIS");
    char text[] = "\x95\x5C\\b,c";
    EXPECT_STREQ("\x95\x5C", zstrtok_6_0(japanese, text, "\\,"));
    EXPECT_STREQ("b", zstrtok_6_0(japanese, nullptr, "\\,"));
    EXPECT_STREQ("c", zstrtok_6_0(japanese, nullptr, "\\,"));
    EXPECT_EQ(nullptr, zstrtok_6_0(japanese, nullptr, "\\,"));

    char out[8] = "~~~~~~~";
    EXPECT_EQ(out, zstrncpy_6_0(japanese, out, "a\x95\x5C", 2));
    EXPECT_EQ(std::string("a\0~", 3), std::string(out, 3));
    EXPECT_EQ(out, zstrncat_6_0(japanese, out, "\x95\x5Cz", 2));
    EXPECT_STREQ("a\x95\x5C", out);
}

TEST(zqvrutil, ChangesCaseAndComparesWithoutIt)
{
    Codeset const utf8("UTF-8");
    char text[] =
        "Stra\xC3\x9F"
        "e \xC3\x89";
    EXPECT_EQ(text, zstrlower_6_0(utf8, text));
    EXPECT_STREQ(
        "stra\xC3\x9F"
        "e \xC3\xA9",
        text);
    EXPECT_EQ(text, zstrupper_6_0(utf8, text));
    EXPECT_STREQ(
        "STRA\xC3\x9F"
        "E \xC3\x89",
        text);
    EXPECT_EQ(0, zstricmp_6_0(utf8,
                              "\xC3\x89"
                              "a",
                              "\xC3\xA9"
                              "A"));
    EXPECT_GT(0, zstricmp_6_0(utf8, "a", "B"));
    EXPECT_LT(0, zstricmp_6_0(utf8, "C", "b"));
    EXPECT_EQ(0, zstrnicmp_6_0(utf8, "abX", "ABy", 2));
    EXPECT_NE(0, zstrnicmp_6_0(utf8, "abX", "ABy", 3));
    EXPECT_EQ(nullptr, zstrupper_6_0(utf8, nullptr));
}

TEST(zqvrutil, ReadsTimes)
{
    struct tm time = {};
    char const text[] = "2001-02-03 04:05:06 rest";
    EXPECT_EQ(text + 19, zstrptime_6_0(zgetLCSHandle_6_0(), text, "%Y-%m-%d %H:%M:%S", &time));
    EXPECT_EQ(101, time.tm_year);
    EXPECT_EQ(1, time.tm_mon);
    EXPECT_EQ(3, time.tm_mday);
    EXPECT_EQ(6, time.tm_sec);
    EXPECT_EQ(nullptr, zstrptime_6_0(zgetLCSHandle_6_0(), "x", "%Y", &time));
}

TEST(zqvrutil, CountsUpToTheFirstInvalidCharacter)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    EXPECT_EQ(0u, zstrcount_6_0(utf8, nullptr));
    for (qvr_cs_t const codeset : {static_cast<qvr_cs_t>(utf8), zgetUTF8Handle_6_0()}) {
        EXPECT_EQ(0u, zstrcount_6_0(codeset, ""));
        EXPECT_EQ(3u, zstrcount_6_0(codeset, "abc"));
        EXPECT_EQ(5u, zstrcount_6_0(codeset, "\xC3\xA9\xE3\x81\x82\xFFz"));
        EXPECT_EQ(0u, zstrcount_6_0(codeset, "\xFFz"));
        EXPECT_EQ(1u, zstrcount_6_0(codeset, "a\xC3"));
    }
    EXPECT_EQ(4u, zstrcount_6_0(japanese, "\xA4\xA2\xA4\xA4\xA4"));
    EXPECT_EQ(0u, zstrcount_6_0(nullptr, "a"));
    char const anything[] = "a\xE9\xFF\x80";
    size_t const counted = zstrcount_6_0(zgetLCSHandle_6_0(), anything);
    EXPECT_EQ(isSingleByteLocale() ? 4u : 1u, counted);
}

TEST(zqvrutil, CountsWithoutReadingPastTheTerminator)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    for (std::string const text :
         {"", "a", "ab\xC3\xA9", "ab\xE3\x81", "ab\xF0\x9F\x98", "ab\xC3"}) {
        GuardedBytes const bytes(text + '\0');
        size_t const valid = text.size() > 2 && text != "ab\xC3\xA9" ? 2 : text.size();
        EXPECT_EQ(valid, zstrcount_6_0(utf8, bytes));
        EXPECT_EQ(valid, zstrcount_6_0(zgetUTF8Handle_6_0(), bytes));
    }
    GuardedBytes const cut(std::string("a\xA4", 3));
    EXPECT_EQ(1u, zstrcount_6_0(japanese, cut));
}

// Conversion.

TEST(zqvrutil, ConvertsNothingWithoutAllArguments)
{
    for (auto const convert : {zlcs_to_utf8_6_0, zlcs_from_utf8_6_0}) {
        char out[4] = "~~~";
        EXPECT_EQ(0, convert(nullptr, 1, out, sizeof out));
        EXPECT_EQ(0, convert("a", 0, out, sizeof out));
        EXPECT_EQ(0, convert("a", 1, nullptr, sizeof out));
        EXPECT_EQ(0, convert("a", 1, out, 0));
        EXPECT_STREQ("~~~", out);
        EXPECT_EQ(2, convert("ab", 2, out, sizeof out));
        EXPECT_STREQ("ab~", out);
        EXPECT_GT(0, convert("abcde", 5, out, sizeof out));
    }
}

TEST(zqvrutil, ConvertsBetweenTheLocalCodesetAndUTF8)
{
    struct Case {
        char const* codeset;
        char const* local;
        char const* utf8;  // null: the other direction fails
    };
    Case const cases[] = {
        {"ANSI_X3.4-1968", "abc", "abc"},
        {"ANSI_X3.4-1968", "\xE9", nullptr},
        {"UTF-8", "\xC3\xA9\xE3\x81\x82", "\xC3\xA9\xE3\x81\x82"},
        {"UTF-8", "\xE9", nullptr},
        {"ISO-8859-1", "\xE9\xFF", "\xC3\xA9\xC3\xBF"},
        {"EUC-JP", "\xA4\xA2", "\xE3\x81\x82"},
        {"EUC-JP", "\xA4", nullptr},
    };
    for (Case const& c : cases) {
        if (strcmp(c.codeset, zgetLocalCodesetName_6_0()) != 0)
            continue;
        SCOPED_TRACE(c.local);
        char out[16];
        ptrdiff_t const length = zlcs_to_utf8_6_0(c.local, strlen(c.local), out, sizeof out);
        if (c.utf8 == nullptr) {
            EXPECT_GT(0, length);
            continue;
        }
        EXPECT_EQ(c.utf8, std::string(out, static_cast<size_t>(length)));
        ptrdiff_t const back = zlcs_from_utf8_6_0(c.utf8, strlen(c.utf8), out, sizeof out);
        EXPECT_EQ(c.local, std::string(out, static_cast<size_t>(back)));
    }
    char out[16];
    bool const hasThai = strcmp(zgetLocalCodesetName_6_0(), "UTF-8") == 0;
    EXPECT_EQ(hasThai ? 3 : -1, zlcs_from_utf8_6_0("\xE0\xB8\x81", 3, out, sizeof out));
    EXPECT_GT(0, zlcs_from_utf8_6_0("\xFF", 1, out, sizeof out));
}

TEST(zqvrutil, ConvertsUTF16ToUTF8)
{
    EXPECT_EQ((Converted{0, 0, ""}), fromUTF16({}, 8));
    EXPECT_EQ((Converted{0, 1, "\x7F"}), fromUTF16({0x7F}, 8));
    EXPECT_EQ((Converted{0, 1, "\xC2\x80"}), fromUTF16({0x80}, 8));
    EXPECT_EQ((Converted{0, 1, "\xDF\xBF"}), fromUTF16({0x7FF}, 8));
    EXPECT_EQ((Converted{0, 1, "\xE0\xA0\x80"}), fromUTF16({0x800}, 8));
    EXPECT_EQ((Converted{0, 1, "\xEF\xBF\xBF"}), fromUTF16({0xFFFF}, 8));
    EXPECT_EQ((Converted{0, 2, "\xF0\x90\x80\x80"}), fromUTF16({0xD800, 0xDC00}, 8));
    EXPECT_EQ((Converted{0, 2, "\xF4\x8F\xBF\xBF"}), fromUTF16({0xDBFF, 0xDFFF}, 8));
    EXPECT_EQ((Converted{0, 2, "\xF0\x9F\x98\x80"}), fromUTF16({0xD83D, 0xDE00}, 8));
    EXPECT_EQ((Converted{0, 2, std::string("\0a", 2)}), fromUTF16({0, 'a'}, 8));
}

TEST(zqvrutil, StopsAtTheCharacterThatDoesNotFit)
{
    std::vector<uint16_t> const units = {'a', 0xE9, 0x3042, 0xD83D, 0xDE00};
    std::string const whole = "a\xC3\xA9\xE3\x81\x82\xF0\x9F\x98\x80";
    struct Case {
        size_t room;
        ptrdiff_t used;
        size_t bytes;
    };
    Case const cases[] = {{0, 0, 0}, {1, 1, 1}, {2, 1, 1}, {3, 2, 3}, {4, 2, 3},
                          {5, 2, 3}, {6, 3, 6}, {7, 3, 6}, {8, 3, 6}, {9, 3, 6}};
    for (Case const& c : cases)
        EXPECT_EQ((Converted{2, c.used, whole.substr(0, c.bytes)}), fromUTF16(units, c.room))
            << c.room;
    EXPECT_EQ((Converted{0, 5, whole}), fromUTF16(units, 10));
}

TEST(zqvrutil, ConvertsEveryCharacterFromUTF16)
{
    Codeset const utf8("UTF-8");
    for (uint32_t value = 0; value <= 0x10FFFF; ++value) {
        if (value >= 0xD800 && value <= 0xDFFF)
            continue;
        uint16_t units[2] = {static_cast<uint16_t>(value), 0};
        if (value > 0xFFFF) {
            units[0] = static_cast<uint16_t>(0xD800 + ((value - 0x10000) >> 10));
            units[1] = static_cast<uint16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
        }
        char bytes[8] = {};
        uint16_t const* src = units;
        char* dst = bytes;
        ASSERT_EQ(0, zconvert_UTF16_to_UTF8_6_0(&src, units + (value > 0xFFFF ? 2 : 1), &dst,
                                                bytes + sizeof bytes));
        uint32_t decoded = 0;
        int const length = qvr_mbtowc(utf8, &decoded, bytes, sizeof bytes);
        ASSERT_EQ(value == 0 ? 0 : dst - bytes, length) << value;
        ASSERT_EQ(value, decoded);
    }
}

// Kept behaviours.

TEST(zqvrutil, KeepsLengthOneInSingleByteLocales)
{
    if (!isSingleByteLocale())
        GTEST_SKIP() << "characters of this locale have several bytes";
    qvr_cs_t const local = zgetLCSHandle_6_0();
    EXPECT_EQ(1, zmblen_6_0(local, "a", 1));
    EXPECT_EQ(1, zmblen_6_0(local, "\xE9", 1));
    EXPECT_EQ(1, zmblen_6_0(local, "", 1));
    EXPECT_EQ(1, zmblen_6_0(local, "a", 0));
    // A second handle of the same codeset is not the local one.
    Codeset const other(zgetLocalCodesetName_6_0());
    EXPECT_EQ(0, zmblen_6_0(other, "", 1));
    EXPECT_EQ(-1, zmblen_6_0(other, "a", 0));
}

TEST(zqvrutil, KeepsSixteenBitsOfACharacter)
{
    Codeset const utf8("UTF-8");
    uint16_t wc = 0;
    EXPECT_EQ(4, zmbtowc_6_0(utf8, &wc, "\xF0\x9F\x98\x80", 4));
    EXPECT_EQ(0xF600, wc);
}

TEST(zqvrutil, KeepsCountingBytes)
{
    Codeset const utf8("UTF-8");
    EXPECT_EQ(6u, zstrcount_6_0(utf8, "\xC3\xA9\xC3\xA9\xC3\xA9"));
    EXPECT_EQ(3u, zstrcount_6_0(zgetLCSHandle_6_0(), "abc"));
}

TEST(zqvrutil, KeepsUnpairedSurrogates)
{
    EXPECT_EQ((Converted{0, 1, "\xED\xA0\x80"}), fromUTF16({0xD800}, 8));
    EXPECT_EQ((Converted{0, 1, "\xED\xBF\xBF"}), fromUTF16({0xDFFF}, 8));
    EXPECT_EQ((Converted{0, 2,
                         "\xED\xA0\x80"
                         "a"}),
              fromUTF16({0xD800, 'a'}, 8));
    EXPECT_EQ((Converted{0, 3, "\xED\xA0\x80\xF0\x90\x80\x80"}),
              fromUTF16({0xD800, 0xD800, 0xDC00}, 8));
    EXPECT_EQ((Converted{0, 2, "\xED\xB0\x80\xED\xA0\x80"}), fromUTF16({0xDC00, 0xD800}, 8));
    EXPECT_EQ((Converted{0, 3,
                         "\xED\xA0\x80\xEE\x80\x80"
                         "a"}),
              fromUTF16({0xD800, 0xE000, 'a'}, 8));
}
