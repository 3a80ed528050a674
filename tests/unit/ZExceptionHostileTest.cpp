// Exceptions and reports under abuse: numbers and lines at the limits of their types, numbers of
// foreign texts, services that throw or replace themselves, and threads that are being cancelled.

#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZMessage.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "../support/Raised.h"
#include "../support/Reports.h"
#include "../support/Threads.h"

namespace {

std::string textOf(std::string const& report)
{
    std::string const mark = "NUM_MSGS = 55\n";
    size_t const at = report.find(mark);
    return at == std::string::npos ? "no report: " + report : report.substr(at + mark.size());
}

}  // namespace

TEST(ZExceptionUnderAbuse, NumbersOutsideTheTableAreReportedAsUnknown)
{
    for (int const number : {0, 23, 55, 1000, -1, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(number);
        ZOpenResourceException_6_0 exception(number, 7, "%n%s");
        std::string const report = reportOf([&] { exception.dumpException(); });
        EXPECT_EQ(exceptionReport("ZResourceException", "(null)", 0, number,
                                  "No default text defined in ZMessage.cpp for the exception\n"),
                  report);
        EXPECT_EQ(static_cast<uint32_t>(number), exception.messageNumber());
    }
}

// A raiser may choose a number whose text asks for other inserts than its class has.
TEST(ZExceptionUnderAbuse, EveryClassTakesEveryNumber)
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
            std::string const text = textOf(reportOf([&] { exception->print(); }));
            EXPECT_FALSE(text.empty());
            EXPECT_EQ(std::string::npos, text.find('%')) << text;
            size_t const at = text.find(rc);
            EXPECT_TRUE(at == std::string::npos || text.find(rc, at + 1) == std::string::npos)
                << text;
        }
    }
}

TEST(ZExceptionUnderAbuse, LinesAreCutTo32Bits)
{
    ZUnsupportedException_6_0 exception;
    exception.addLocation("src/x", ULONG_MAX - 5);
    EXPECT_EQ(0xFFFFFFFAu, exception.where());
    char const* file = nullptr;
    int line = 0;
    EXPECT_EQ(1, exception.location(INT_MIN, file, line));
    EXPECT_EQ(-6, line);
    exception.addLocation(nullptr, 0);
    EXPECT_EQ(nullptr, exception.who());
    EXPECT_EQ(0u, exception.where());
    EXPECT_TRUE((raises<ZUnsupportedException_6_0>(
        48, "", UINT_MAX, [&] { exception.throwException(nullptr, -1); })));
}

TEST(ZExceptionUnderAbuse, ACloneOutlivesWhatItWasMadeOf)
{
    std::string const name(10000, 'n');
    auto first = std::make_unique<ZPropertiesIOException_6_0>(name.c_str(), "open()", 5);
    std::unique_ptr<ZObject_6_0> const clone(first->clone());
    *first = ZPropertiesIOException_6_0("other", "other", 6);
    EXPECT_STREQ("other", first->propFile().getChars());
    first.reset();
    auto const& copy = dynamic_cast<ZPropertiesIOException_6_0&>(*clone);
    EXPECT_EQ(name, copy.propFile().getChars());
    EXPECT_EQ(5, copy.excerrno());
    EXPECT_FALSE(copy == ZPropertiesIOException_6_0(copy));
}

TEST(ZExceptionUnderAbuse, AnExceptionMayBeRaisedAgainFromItsHandler)
{
    EXPECT_TRUE((raises<ZCloseResourceException_6_0>(38, "src/second", 2, [] {
        try {
            ZCloseResourceException_6_0(38, 1, "value").throwException("src/first", 1);
        } catch (ZException_6_0& first) {
            first.throwException("src/second", 2);
        }
    })));
}

TEST(ZObjectUnderAbuse, AnArrayThatCannotBeHadRaises)
{
    EXPECT_TRUE((raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZObject", 65, [] {
        ZObject_6_0::operator delete[](ZObject_6_0::operator new[](SIZE_MAX / 2));
    })));
    EXPECT_TRUE((raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZObject", 65, [] {
        ZObject_6_0::operator delete(ZObject_6_0::operator new(SIZE_MAX / 2));
    })));
    ZObject_6_0::operator delete(ZObject_6_0::operator new(0));
    ZObject_6_0::operator delete(nullptr);
    ZObject_6_0::operator delete[](nullptr);
}

// A service that puts the built-in one back and hands the exception on, or throws.
class UnrulyService final : public ZMessageService_6_0 {
public:
    explicit UnrulyService(bool throws) : throws_(throws) { setMessageService(this); }
    UnrulyService(UnrulyService const&) = delete;
    UnrulyService& operator=(UnrulyService const&) = delete;
    ~UnrulyService() { setMessageService(nullptr); }

    void outputMessage(char const*, int, int, int, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*) const override
    {
    }
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*) const override
    {
    }
    void outputException(ZException_6_0& e) const override { e.print(); }
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

TEST(ZMessageUnderAbuse, AServiceMayReplaceItselfWhileItReports)
{
    UnrulyService const service(false);
    ZUnexpectedEndOfFile_6_0 exception("file");
    EXPECT_EQ("Unexpected end of file encounted while reading file.",
              textOf(reportOf([&] { exception.dumpException(); })));
    EXPECT_EQ(ZMessageService_6_0::defaultMessageService(), ZMessageService_6_0::messageService());
}

TEST(ZMessageUnderAbuse, WhatAServiceThrowsReachesTheCaller)
{
    UnrulyService const service(true);
    ZUnexpectedEndOfFile_6_0 exception("file");
    EXPECT_THROW(exception.dumpException(), std::runtime_error);
    EXPECT_THROW(exception.print(), std::runtime_error);
    EXPECT_THROW(ZMessageService_6_0::defaultMessageService()->outputException(exception),
                 std::runtime_error);
}

// Writing is where a thread that was cancelled ends, and a report may be written by a destructor:
// the report is written whole, and the thread ends afterwards.
TEST(ZMessageUnderAbuse, ACancelledThreadFinishesItsReport)
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

TEST(ZMessageUnderAbuse, WithoutStandardErrorAReportIsLostAndNothingElse)
{
    int const saved = dup(STDERR_FILENO);
    ASSERT_EQ(0, close(STDERR_FILENO));
    errno = 77;
    ZUnsupportedException_6_0().dumpException();
    int const after = errno;
    dup2(saved, STDERR_FILENO);
    close(saved);
    EXPECT_EQ(77, after);
    clearerr(stderr);
}

TEST(ZMessageUnderAbuse, InsertCountsOutsideTheirRangeAreCut)
{
    ZLCString_6_0 const insert("i");
    ZMessageService_6_0 const& service = *ZMessageService_6_0::defaultMessageService();
    for (auto const& [count, lines] : std::vector<std::pair<int, size_t>>{
             {INT_MIN, 0}, {-1, 0}, {0, 0}, {6, 6}, {7, 6}, {INT_MAX, 6}}) {
        SCOPED_TRACE(count);
        std::string const report = reportOf([&, n = count] {
            service.outputMessage(nullptr, INT_MIN, INT_MIN, n, &insert, &insert, &insert, &insert,
                                  &insert, &insert);
        });
        std::string expected = "Error: -2147483648\n File: \"(null)\" -2147483648\n" + threadLine();
        if (lines > 0)
            expected += "Additional Information:\n";
        for (size_t i = 0; i < lines; ++i)
            expected += "i\n";
        EXPECT_EQ(expected, report);
    }
}
