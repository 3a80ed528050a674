#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZMessage.h>
#include <Z/ZUTF8String.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wchar.h>

#include <climits>
#include <cstdarg>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Reports.h"
#include "Threads.h"

namespace {

// An exception with any message number, whose print() passes six inserts "1" to "6"; the message
// text uses as many as it has conversions.
class Numbered : public ZZException_6_0 {
public:
    explicit Numbered(int number) : ZZException_6_0(number, "Numbered") {}
    ZObject_6_0* clone() const override { return new Numbered(*this); }
    [[noreturn]] void throwException(char const*, int) override { throw *this; }
    void print() override { printinternal(this, "1", "2", "3", "4", "5", "6"); }
};

// An exception with any message number that does not override print().
class ExceptionWithoutPrint : public ZZException_6_0 {
public:
    explicit ExceptionWithoutPrint(int number) : ZZException_6_0(number, "ExceptionWithoutPrint") {}
    ZObject_6_0* clone() const override { return new ExceptionWithoutPrint(*this); }
    [[noreturn]] void throwException(char const*, int) override { throw *this; }
};

// Records which of its operations ran.
class RecordingService : public ZMessageService_6_0 {
public:
    virtual ~RecordingService() = default;
    void outputMessage(char const*, int, int, int, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*) const override
    {
        noted += "message ";
    }
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*) const override
    {
        noted += "utf8 ";
    }
    void outputException(ZException_6_0& e) const override
    {
        noted += "exception ";
        e.print();
    }
    void outputException(ZZException_6_0 const* e, va_list inserts) const override
    {
        noted += "inserts:";
        noted += e->insertTypes();
        if (*e->insertTypes() == 's')
            noted += std::string(":") + va_arg(inserts, char const*);
        noted += " ";
    }

    mutable std::string noted;
};

// Reinstalls the built-in service and passes the exception to it, or throws.
class SelfReplacingService : public RecordingService {
public:
    explicit SelfReplacingService(bool throws) : throws_(throws) {}
    using RecordingService::outputException;
    void outputException(ZZException_6_0 const* e, va_list inserts) const override
    {
        if (throws_)
            throw std::runtime_error("service");
        setMessageService(nullptr);
        routeZZException(e, inserts);
    }

private:
    bool const throws_;
};

class ZMessage : public testing::Test {
protected:
    void TearDown() override { ZMessageService_6_0::setMessageService(nullptr); }
};

std::string textOf(ZException_6_0& e)
{
    std::string const report = reportOf([&] { e.print(); });
    std::string const marker = "NUM_MSGS = 55\n";
    size_t const at = report.find(marker);
    return at == std::string::npos ? "no table size line" : report.substr(at + marker.size());
}

constexpr char kUnknown[] = "No default text defined in ZMessage.cpp for the exception\n";

}  // namespace

TEST_F(ZMessage, DefaultIsInstalledInitially)
{
    EXPECT_NE(nullptr, ZMessageService_6_0::messageService());
    EXPECT_EQ(ZMessageService_6_0::defaultMessageService(), ZMessageService_6_0::messageService());
    RecordingService service;
    ZMessageService_6_0::setMessageService(&service);
    EXPECT_EQ(&service, ZMessageService_6_0::messageService());
    EXPECT_NE(&service, ZMessageService_6_0::defaultMessageService());
    ZMessageService_6_0::setMessageService(nullptr);
    EXPECT_EQ(ZMessageService_6_0::defaultMessageService(), ZMessageService_6_0::messageService());
}

TEST_F(ZMessage, NullInTheFirstCallInstallsTheDefault)
{
    // In a new process, which has not used a service yet.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            ZMessageService_6_0::setMessageService(nullptr);
            auto const* const service = ZMessageService_6_0::messageService();
            bool const isDefault = service == ZMessageService_6_0::defaultMessageService();
            _exit(service != nullptr && isDefault ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ZMessage, ServiceInstalledByTheFirstCallStays)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            RecordingService const service;
            ZMessageService_6_0::setMessageService(&service);
            bool const hasDefault = ZMessageService_6_0::defaultMessageService() != nullptr;
            _exit(hasDefault && ZMessageService_6_0::messageService() == &service ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(_exit(ZMessageService_6_0::defaultMessageService() != nullptr ? 0 : 1),
                testing::ExitedWithCode(0), "");
}

TEST_F(ZMessage, RoutesExceptionsThroughTheInstalledService)
{
    RecordingService service;
    ZMessageService_6_0::setMessageService(&service);
    ZUnexpectedEndOfFile_6_0 e("file");
    EXPECT_EQ("", reportOf([&] {
                  e.dumpException();
                  // The built-in service calls print(), which calls the installed service.
                  ZMessageService_6_0::defaultMessageService()->outputException(e);
              }));
    EXPECT_EQ("exception inserts:s:file inserts:s:file ", service.noted);
}

TEST_F(ZMessage, AServiceMayReplaceItselfWhileItReports)
{
    SelfReplacingService const service(false);
    ZMessageService_6_0::setMessageService(&service);
    ZUnexpectedEndOfFile_6_0 exception("file");
    EXPECT_EQ("Unexpected end of file encounted while reading file.", textOf(exception));
    EXPECT_EQ(ZMessageService_6_0::defaultMessageService(), ZMessageService_6_0::messageService());
}

TEST_F(ZMessage, ExceptionsOfTheServiceReachTheCaller)
{
    SelfReplacingService const service(true);
    ZMessageService_6_0::setMessageService(&service);
    ZUnexpectedEndOfFile_6_0 exception("file");
    EXPECT_THROW(exception.dumpException(), std::runtime_error);
    EXPECT_THROW(exception.print(), std::runtime_error);
    EXPECT_THROW(ZMessageService_6_0::defaultMessageService()->outputException(exception),
                 std::runtime_error);
}

TEST_F(ZMessage, UnknownNumbersAreReported)
{
    // Message 23 has no text.
    for (int number : {0, 23, 55, 56, 1000, -1, INT32_MAX, INT32_MIN}) {
        SCOPED_TRACE(number);
        Numbered e(number);
        e.addLocation("src/x", 3);
        EXPECT_EQ(exceptionReport("Numbered", "src/x", 3, number, kUnknown),
                  reportOf([&] { e.print(); }));
    }
}

TEST_F(ZMessage, KeepsEveryTextToTheByte)
{
    std::ifstream in(Z_TEST_DATA "/messages.txt");
    ASSERT_TRUE(in) << "tests/data/messages.txt";
    int rows = 0;
    std::string line;
    while (std::getline(in, line)) {
        size_t const tab = line.find('\t');
        ASSERT_NE(std::string::npos, tab);
        int const number = std::stoi(line.substr(0, tab));
        SCOPED_TRACE(number);
        // The expected text is the line without its conversions and with \n as a newline.
        std::string expected;
        for (size_t i = tab + 1; i < line.size(); ++i) {
            if (line[i] == '%')
                ++i;
            else if (line[i] == '\\' && line[i + 1] == 'n')
                expected += '\n', ++i;
            else
                expected += line[i];
        }
        // A class without inserts reports the text with empty conversions.
        class Empty : public ExceptionWithoutPrint {
        public:
            using ExceptionWithoutPrint::ExceptionWithoutPrint;
            char const* insertTypes() const override { return ""; }
        } e(number);
        EXPECT_EQ(expected, textOf(e));
        ++rows;
    }
    EXPECT_EQ(53, rows);
}

TEST_F(ZMessage, KeepsTheTableSizeLine)
{
    ZUnsupportedException_6_0 e;
    EXPECT_NE(std::string::npos, reportOf([&] { e.print(); }).find("\nNUM_MSGS = 55\n"));
}

TEST_F(ZMessage, NothingFollowsTheText)
{
    ZUnsupportedException_6_0 e;
    std::string const report = reportOf([&] { e.print(); });
    EXPECT_EQ('.', report.back());
}

TEST_F(ZMessage, AnExceptionWithoutPrintReportsNoInserts)
{
    struct Case {
        int number;
        char const* text;
    };
    Case const cases[] = {
        {1, "Memory allocation failure."},
        {2, "iconv_open failed for codepage  to  conversion. errno = ."},
        {3, "Unexpected error from pthread_mutex_init().  rc = 0."},
        {44, "The configuration file \"\" contains invalid data at line 0.\nData: \"\""},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.number);
        ExceptionWithoutPrint e(c.number);
        EXPECT_EQ(c.text, textOf(e));
    }
}

TEST_F(ZMessage, NumberOfAnotherClassUsesTheExistingInserts)
{
    // A class may have any message number; only inserts that print() passed are read.
    struct Case {
        int number;
        char const* text;
    };
    Case const cases[] = {
        {28, "The configuration file 9 is missing the required attribute  in stanza ."},
        {37, "Create failed for a process lock.  rc = 9 and the lock file name is ."},
        {44, "The configuration file \"9\" contains invalid data at line .\nData: \"\""},
        {25, "Unexpected error from gethostname().  rc = 9."},
        {1, "Memory allocation failure."},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.number);
        ZCreateResourceException_6_0 e(c.number, 9);
        EXPECT_EQ(c.text, textOf(e));
    }
    ZOpenResourceException_6_0 both(39, 9, "name");
    EXPECT_EQ("The configuration file 9 has an invalid value name for key  in stanza .",
              textOf(both));
}

TEST_F(ZMessage, EveryClassReportsEveryNumber)
{
    for (int number = 1; number <= 54; ++number) {
        SCOPED_TRACE(number);
        ZThreadException_6_0 thread(number, INT_MIN);
        ZConditionException_6_0 condition(number, INT_MIN);
        ZConverterException_6_0 converter(number, "%s", nullptr, "");
        ZCreateResourceException_6_0 create(number, INT_MIN);
        ZCloseResourceException_6_0 close(number, INT_MIN, nullptr);
        std::string const rc = std::to_string(INT_MIN);
        for (ZException_6_0* const exception : std::initializer_list<ZException_6_0*>{
                 &thread, &condition, &converter, &create, &close}) {
            SCOPED_TRACE(exception->exceptionName());
            std::string const text = textOf(*exception);
            EXPECT_FALSE(text.empty());
            EXPECT_EQ(std::string::npos, text.find('%')) << text;
            size_t const at = text.find(rc);
            EXPECT_TRUE(at == std::string::npos || text.find(rc, at + 1) == std::string::npos)
                << text;
        }
    }
}

TEST_F(ZMessage, CallersClassPassesTheInsertsOfTheText)
{
    Numbered e(39);
    EXPECT_EQ("The configuration file 1 has an invalid value 2 for key 3 in stanza 4.", textOf(e));
}

TEST_F(ZMessage, MessagesListTheirInserts)
{
    ZLCString_6_0 const a("a");
    ZLCString_6_0 const b("");
    auto const& service = *ZMessageService_6_0::defaultMessageService();
    struct Case {
        char const* name;
        int count;
        std::string inserts;
    };
    Case const cases[] = {
        {"none", 0, ""},
        {"below none", -1, ""},
        {"far below none", INT_MIN, ""},
        {"one", 1, "Additional Information:\na\n"},
        {"two", 2, "Additional Information:\na\n\n"},
        {"six, absent ones left out", 6, "Additional Information:\na\n\na\n"},
        {"more than there are", 7, "Additional Information:\na\n\na\n"},
        {"far more", INT_MAX, "Additional Information:\na\n\na\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ("Error: 25\n File: \"src/x\" 12\n" + threadLine() + c.inserts, reportOf([&] {
                      service.outputMessage("src/x", 12, 25, c.count, &a, &b, nullptr, nullptr,
                                            nullptr, &a);
                  }));
    }
}

TEST_F(ZMessage, MessagesNeedNoSource)
{
    EXPECT_EQ("Error: -2147483648\n File: \"(null)\" -2147483648\n" + threadLine(), reportOf([] {
                  ZMessageService_6_0::defaultMessageService()->outputMessage(
                      nullptr, INT_MIN, INT_MIN, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                      nullptr);
              }));
}

TEST_F(ZMessage, KeepsUTF8InsertsOutOfTheReport)
{
    ZUTF8String_6_0 const text("text");
    EXPECT_EQ("Error: 5\n File: \"src/x\" 1\n" + threadLine() + "Additional Information:\n\n\n",
              reportOf([&] {
                  ZMessageService_6_0::defaultMessageService()->outputMessageUTF8(
                      "src/x", 1, 5, 2, &text, &text, nullptr, nullptr, nullptr, nullptr);
              }));
}

TEST_F(ZMessage, LongInsertsArePrintedWhole)
{
    for (size_t length : {95u, 96u, 1900u, 2048u, 4000u, 4096u, 20000u}) {
        SCOPED_TRACE(length);
        std::string name;
        while (name.size() < length)
            name += std::to_string(name.size()) + ' ';
        name.resize(length);
        ZUnexpectedEndOfFile_6_0 e(name.c_str());
        EXPECT_EQ("Unexpected end of file encounted while reading " + name + ".", textOf(e));
    }
}

TEST_F(ZMessage, ConversionsInsideInsertsArePlainText)
{
    ZUnexpectedEndOfFile_6_0 e("%s%n%d");
    EXPECT_EQ("Unexpected end of file encounted while reading %s%n%d.", textOf(e));
}

TEST_F(ZMessage, ReportingPreservesErrno)
{
    ZUnsupportedException_6_0 e;
    testing::internal::CaptureStderr();
    int const saved = dup(2);
    close(2);
    errno = ENOENT;
    e.print();
    int const after = errno;
    dup2(saved, 2);
    close(saved);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(ENOENT, after);
}

// write() is a cancellation point, and a destructor may report: the thread writes the whole report
// and is cancelled after it.
TEST_F(ZMessage, ACancelledThreadFinishesItsReport)
{
    std::string const report = reportOf([] {
        CancellableThread thread([] {
            pthread_cancel(pthread_self());
            ZUnsupportedException_6_0().dumpException();
            ZLCString_6_0 const insert("insert");
            ZMessageService_6_0::messageService()->outputMessage(
                "src/x", 1, 2, 1, &insert, nullptr, nullptr, nullptr, nullptr, nullptr);
            pthread_testcancel();
        });
        EXPECT_TRUE(thread.endsCancelled());
    });
    EXPECT_NE(std::string::npos, report.find("The operation is not supported.")) << report;
    EXPECT_NE(std::string::npos, report.find("Additional Information:\ninsert\n")) << report;
}

// Returns the standard error of `action`, run in a child process. The child reopens the stream,
// which may become wide; the stream of this process is not affected.
template <class Action>
std::string reportOfChild(Action action)
{
    return reportOf([&] {
        pid_t const child = fork();
        if (child == 0) {
            if (freopen("/proc/self/fd/2", "a", stderr) == nullptr)
                _exit(1);
            action();
            _exit(0);
        }
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    });
}

constexpr char kUnsupported[] = "The operation is not supported.";

TEST_F(ZMessage, ReportsAppearOnAWideStandardError)
{
    ZUnsupportedException_6_0 e;
    e.addLocation("src/x", 1);
    EXPECT_EQ(exceptionReport("ZUnsupportedException", "src/x", 1, 48, kUnsupported),
              reportOfChild([&] {
                  fwide(stderr, 1);
                  e.print();
              }));
}

TEST_F(ZMessage, ReportsFollowBufferedText)
{
    ZUnsupportedException_6_0 e;
    e.addLocation("src/x", 1);
    std::string const report =
        exceptionReport("ZUnsupportedException", "src/x", 1, 48, kUnsupported);
    for (bool const wide : {false, true}) {
        SCOPED_TRACE(wide ? "wide" : "narrow");
        EXPECT_EQ("before\n" + report + "after\n", reportOfChild([&] {
                      char buffer[BUFSIZ];
                      setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
                      wide ? fputws(L"before\n", stderr) : fputs("before\n", stderr);
                      e.print();
                      wide ? fputws(L"after\n", stderr) : fputs("after\n", stderr);
                      fflush(stderr);
                  }));
    }
}

// A program may assign its own stream without a descriptor to `stderr`.
TEST_F(ZMessage, ReportsReachAStandardErrorInMemory)
{
    ZUnexpectedEndOfFile_6_0 e("a\200b");
    e.addLocation("src/x", 1);
    std::string const report =
        exceptionReport("ZUnexpectedEndOfFile", "src/x", 1, 53,
                        "Unexpected end of file encounted while reading a\200b.");
    FILE* const before = stderr;
    char* text = nullptr;
    size_t size = 0;
    stderr = open_memstream(&text, &size);
    e.print();
    fclose(stderr);
    EXPECT_EQ(report, std::string(text, size));
    free(text);

    wchar_t* wide = nullptr;
    stderr = open_wmemstream(&wide, &size);
    e.print();
    fclose(stderr);
    stderr = before;
    std::wstring expected(report.begin(), report.end());
    expected.replace(expected.find(L'b', expected.find(L"reading a")) - 1, 1, L"?");
    EXPECT_EQ(expected, std::wstring(wide, size));
    free(wide);
}

// A socket that preserves message boundaries shows each write as one message.
TEST_F(ZMessage, LongReportIsOneWrite)
{
    for (size_t length : {0u, 1u, 2000u, 2048u, 4096u, 20000u}) {
        SCOPED_TRACE(length);
        std::string const name(length, 'n');
        ZPropertiesIOException_6_0 e(name.c_str(), name.c_str(), INT_MIN);
        int ends[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends));
        int const saved = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        e.print();
        dup2(saved, STDERR_FILENO);
        close(saved);
        close(ends[1]);
        std::string packet(50000, '\0');
        ssize_t const got = read(ends[0], packet.data(), packet.size());
        ASSERT_LT(0, got);
        packet.resize(static_cast<size_t>(got));
        EXPECT_EQ(exceptionReport("ZPropertiesIOException", "(null)", 0, 43,
                                  "Access failed for configuration file " + name +
                                      ".  The access function was " + name +
                                      " and return code was -2147483648"),
                  packet);
        EXPECT_EQ(0, read(ends[0], packet.data(), packet.size()));
        close(ends[0]);
    }
}

// A write may be partial or interrupted.
TEST_F(ZMessage, AReportIsWrittenInPartsIfThePipeIsFull)
{
    std::string const name(300000, 'n');
    ZUnexpectedEndOfFile_6_0 e(name.c_str());
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    std::string all;
    std::thread reader([&] {
        char part[1000];
        for (ssize_t got = 0; (got = read(ends[0], part, sizeof part)) > 0;)
            all.append(part, static_cast<size_t>(got));
    });
    int const saved = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    e.print();
    dup2(saved, STDERR_FILENO);
    close(saved);
    reader.join();
    close(ends[0]);
    EXPECT_EQ(exceptionReport("ZUnexpectedEndOfFile", "(null)", 0, 53,
                              "Unexpected end of file encounted while reading " + name + "."),
              all);
}

TEST_F(ZMessage, ServiceClonesItself)
{
    ZDefaultMessageService_6_0 const service;
    std::unique_ptr<ZObject_6_0> const copy(service.clone());
    EXPECT_NE(nullptr, dynamic_cast<ZDefaultMessageService_6_0*>(copy.get()));
}

TEST_F(ZMessage, ReportsOfSeveralThreadsDoNotInterleave)
{
    constexpr int kThreads = 8;
    constexpr int kReports = 50;
    std::string const all = reportOf([] {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([] {
                for (int i = 0; i < kReports; ++i)
                    ZMessageService_6_0::messageService()->outputMessage(
                        "src/x", 1, 2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
            });
        for (std::thread& thread : threads)
            thread.join();
    });
    size_t at = 0;
    for (int i = 0; i < kThreads * kReports; ++i) {
        std::string const head = "Error: 2\n File: \"src/x\" 1\n Thread: ";
        ASSERT_EQ(head, all.substr(at, head.size()));
        at = all.find('\n', at + head.size()) + 1;
    }
    EXPECT_EQ(all.size(), at);
}
