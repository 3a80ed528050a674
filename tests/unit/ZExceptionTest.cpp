#include <Z/ZException.h>
#include <Z/ZMessage.h>
#include <Z/zqvrutil.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <string>

#include "FailingAllocator.h"
#include "Raised.h"
#include "Reports.h"

namespace {

// Looks at every class of the family in turn: `Visitor` is called with an object of each and what
// must hold for it.
struct Row {
    int number;
    char const* name;
    std::string text;
};

template <class Visitor>
void forEveryClass(Visitor&& visit)
{
    std::string const codeset = zgetLocalCodesetName_6_0();
    std::string const qvrDir = getenv("QVRDIR");

    visit(ZOutOfMemoryException_6_0(),
          Row{1, "ZOutOfMemoryException", "Memory allocation failure."});
    visit(ZInvalidPlatformException_6_0(),
          Row{11, "ZInvalidPlatformException", "This function is not supported on this platform."});
    visit(ZNotClonableException_6_0(),
          Row{14, "ZNotClonableException", "Object is not cloneable."});
    visit(ZInvalidParameterException_6_0(),
          Row{22, "ZInvalidParameterException",
              "A function or method was called with an invalid parameter."});
    visit(
        ZAbstractNotImplementedException_6_0("what"),
        Row{31, "ZAbstractNotImplementedException", "The requested function is not implemented."});
    visit(ZNoQVREnvironmentException_6_0(),
          Row{45, "ZNoQVREnvironmentException", "The QVRDIR environment variable is not set."});
    visit(ZQVRMBLenException_6_0(),
          Row{46, "ZQVRMBLenException", "The qvr_mblen() function returned -1."});
    visit(
        ZCodesetException_6_0("EBCDIC"),
        Row{47, "ZCodesetException",
            "Codeset handle create failed for codeset \"EBCDIC\".  QVRDIR is \"" + qvrDir + "\""});
    visit(ZUnsupportedException_6_0(),
          Row{48, "ZUnsupportedException", "The operation is not supported."});
    visit(ZToUTF8Exception_6_0(),
          Row{49, "ZToUTF8Exception",
              "Local codeset " + codeset + " string could not be converted to UTF-8."});
    visit(ZFromUTF8Exception_6_0(),
          Row{50, "ZFromUTF8Exception",
              "UTF-8 string could not be converted to the local codeset " + codeset + "."});
    visit(ZUnexpectedEndOfFile_6_0("a.txt"),
          Row{53, "ZUnexpectedEndOfFile", "Unexpected end of file encounted while reading a.txt."});
    visit(ZJavaPropertyParseException_6_0("a.txt"),
          Row{54, "ZJavaPropertyParseException",
              "Internal error encountered while loading Java property file a.txt."});
    visit(ZThreadException_6_0(17, 11),
          Row{17, "ZThreadException", "Unexpected error from pthread_create().  rc = 11."});
    visit(ZConditionException_6_0(27, -3),
          Row{27, "ZConditionException",
              "Unexpected error from pthread_cond_broadcast().  rc = -3."});
    visit(
        ZConverterException_6_0(2, "a", "b", "c"),
        Row{2, "ZConverterException", "iconv_open failed for codepage  to  conversion. errno = ."});
    visit(ZCreateResourceException_6_0(3, 12),
          Row{3, "ZResourceException", "Unexpected error from pthread_mutex_init().  rc = 12."});
    visit(ZLockResourceException_6_0(33, 35),
          Row{33, "ZResourceException",
              "An unexpected error was received when trying to obtain a process lock.  rc = 35."});
    visit(ZUnlockResourceException_6_0(34, 9),
          Row{34, "ZResourceException",
              "An unexpected error was received when trying to release a process lock.  rc = 9."});
    visit(ZReadResourceException_6_0(35, -1),
          Row{35, "ZResourceException", "Read failed for a process lock.  rc = -1."});
    visit(ZWriteResourceException_6_0(36, 28),
          Row{36, "ZResourceException", "Write failed for a process lock.  rc = 28."});
    visit(ZOpenResourceException_6_0(37, 2, "lock"),
          Row{37, "ZResourceException",
              "Create failed for a process lock.  rc = 2 and the lock file name is lock."});
    visit(ZCloseResourceException_6_0(38, 9, "lock"),
          Row{38, "ZResourceException",
              "Close failed for a process lock.  rc = 9 and the lock file name is lock."});
    visit(ZInvalidResourceStateException_6_0("write"),
          Row{32, "ZResourceException",
              "An unexpected lock state was detected.  The current lock state is write."});
    visit(ZSharedLibraryLoadException_6_0("libx", "no such file", 2),
          Row{51, "ZSharedLibraryLoadException",
              "Shared library load/unload error (libx) 2.  no such file"});
    visit(ZSharedLibraryResolveException_6_0("libx", "go", "undefined", 7),
          Row{52, "ZSharedLibraryResolveException",
              "Shared library resolve error (libx:go) 7.  undefined"});
    visit(ZPropertiesMissingPropertyException_6_0("f", "c", "k"),
          Row{28, "ZPropertiesMissingPropertyException",
              "The configuration file f is missing the required attribute k in stanza c."});
    visit(ZPropertiesInvalidValueException_6_0("f", "c", "k", "v"),
          Row{39, "ZPropertiesInvalidValueException",
              "The configuration file f has an invalid value v for key k in stanza c."});
    visit(ZPropertiesInvalidNumValueException_6_0("f", "c", "k", "v"),
          Row{40, "ZPropertiesInvalidValueException",
              "The configuration file f has an invalid numeric value v for key k in stanza c."});
    visit(ZPropertiesInvalidBoolValueException_6_0("f", "c", "k", "v"),
          Row{41, "ZPropertiesInvalidValueException",
              "The configuration file f has an invalid boolean value v for key k in stanza c."});
    visit(ZPropertiesIteratorException_6_0("f"),
          Row{42, "ZPropertiesIteratorException",
              "The iterator for  configuration file f is in an invalid state for the operation"});
    visit(ZPropertiesIOException_6_0("f", "fopen(r)", 2),
          Row{43, "ZPropertiesIOException",
              "Access failed for configuration file f.  The access function was fopen(r) and "
              "return code was 2"});
    visit(ZPropertiesInvalidDataException_6_0("f", "=x", 12),
          Row{44, "ZPropertiesInvalidDataException",
              "The configuration file \"f\" contains invalid data at line 12.\nData: \"=x\""});
}

}  // namespace

TEST(ZException, EveryClassHasItsNameNumberAndText)
{
    int classes = 0;
    forEveryClass([&](auto e, Row const& row) {
        SCOPED_TRACE(row.name);
        ++classes;
        EXPECT_EQ(static_cast<uint32_t>(row.number), e.messageNumber());
        EXPECT_STREQ(row.name, e.exceptionName());
        e.addLocation("src/x", 7);
        EXPECT_EQ(exceptionReport(row.name, "src/x", 7, row.number, row.text),
                  reportOf([&] { e.print(); }));
        EXPECT_EQ(reportOf([&] { e.print(); }), reportOf([&] { e.dumpException(); }));
    });
    EXPECT_EQ(33, classes);
}

TEST(ZException, EveryClassClonesItself)
{
    forEveryClass([](auto e, Row const& row) {
        SCOPED_TRACE(row.name);
        e.addLocation("src/x", 7);
        std::unique_ptr<ZObject_6_0> const copy(e.clone());
        auto* const same = dynamic_cast<decltype(e)*>(copy.get());
        ASSERT_NE(nullptr, same);
        EXPECT_EQ(typeid(e), typeid(*same));
        EXPECT_EQ(reportOf([&] { e.print(); }), reportOf([&] { same->print(); }));
    });
}

TEST(ZException, EveryClassThrowsACopyOfItselfWithTheLocation)
{
    // Two classes leave the throwing to their base.
    auto const isOfBase = [](auto const& e) {
        return typeid(e) == typeid(ZPropertiesInvalidNumValueException_6_0) ||
               typeid(e) == typeid(ZPropertiesInvalidBoolValueException_6_0);
    };
    forEveryClass([&](auto e, Row const& row) {
        SCOPED_TRACE(row.name);
        try {
            e.throwException("src/Z/here", 99);
        } catch (ZException_6_0& caught) {
            EXPECT_EQ(isOfBase(e) ? typeid(ZPropertiesInvalidValueException_6_0) : typeid(e),
                      typeid(caught));
            EXPECT_NE(&caught, static_cast<ZException_6_0*>(&e));
            EXPECT_STREQ("src/Z/here", caught.who());
            EXPECT_EQ(99u, caught.where());
            EXPECT_EQ(exceptionReport(row.name, "src/Z/here", 99, row.number, row.text),
                      reportOf([&] { caught.print(); }));
        }
        // The raiser's object carries the location too.
        EXPECT_STREQ("src/Z/here", e.who());
        EXPECT_EQ(99u, e.where());
    });
}

TEST(ZException, StartsWithoutALocation)
{
    ZUnsupportedException_6_0 e;
    EXPECT_EQ(nullptr, e.who());
    EXPECT_EQ(0u, e.where());
    char const* file = "x";
    int line = 1;
    EXPECT_EQ(1, e.location(0, file, line));
    EXPECT_EQ(nullptr, file);
    EXPECT_EQ(0, line);
    EXPECT_EQ(exceptionReport("ZUnsupportedException", "(null)", 0, 48,
                              "The operation is not supported."),
              reportOf([&] { e.print(); }));
}

TEST(ZException, ASecondLocationReplacesTheFirst)
{
    ZUnsupportedException_6_0 e;
    e.addLocation("first", 1);
    e.addLocation("second", 2);
    EXPECT_EQ(1, e.locationCount());
    EXPECT_STREQ("second", e.who());
    EXPECT_EQ(2u, e.where());
}

TEST(ZException, KeepsOneLocationForEveryIndex)
{
    ZUnsupportedException_6_0 e;
    e.addLocation("second", 2);
    for (int index : {0, 1, 5, -1, INT_MIN}) {
        SCOPED_TRACE(index);
        char const* file = nullptr;
        int line = 0;
        EXPECT_EQ(1, e.location(index, file, line));
        EXPECT_STREQ("second", file);
        EXPECT_EQ(2, line);
    }
}

TEST(ZException, LinesAreCutTo32Bits)
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

TEST(ZException, AnExceptionMayBeRaisedAgainFromItsHandler)
{
    EXPECT_TRUE((raises<ZCloseResourceException_6_0>(38, "src/second", 2, [] {
        try {
            ZCloseResourceException_6_0(38, 1, "value").throwException("src/first", 1);
        } catch (ZException_6_0& first) {
            first.throwException("src/second", 2);
        }
    })));
}

TEST(ZException, ACloneOutlivesWhatItWasMadeOf)
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

TEST(ZException, TextsOfInsertsAreCloned)
{
    auto first = std::make_unique<ZException_6_0::Text>("insert");
    std::unique_ptr<ZException_6_0::Text> const clone(first->clone());
    *first = ZException_6_0::Text("other");
    EXPECT_STREQ("other", first->getChars());
    first.reset();
    EXPECT_STREQ("insert", clone->getChars());
}

TEST(ZException, KeepsTheFileInWho)
{
    ZUnsupportedException_6_0 e;
    char const* file = nullptr;
    int line = 0;
    e.addLocation("src/x", 7);
    e.location(0, file, line);
    EXPECT_EQ(file, e.who());
    EXPECT_STREQ("src/x", e.who());
}

TEST(ZException, AssignmentCopiesEverythingAndToItselfNothing)
{
    ZPropertiesIOException_6_0 one("one", "api", 1);
    ZPropertiesIOException_6_0 two("two", "ipa", 2);
    two.addLocation("src/x", 3);
    one = two;
    EXPECT_STREQ("two", one.propFile().getChars());
    EXPECT_STREQ("ipa", one.api().getChars());
    EXPECT_EQ(2, one.excerrno());
    EXPECT_STREQ("src/x", one.who());
    EXPECT_EQ(3u, one.where());
    auto& alias = one;
    one = alias;
    EXPECT_STREQ("two", one.propFile().getChars());

    ZThreadException_6_0 thread(17, 1);
    ZThreadException_6_0 const other(18, 2);
    thread = other;
    EXPECT_EQ(18u, thread.messageNumber());
    ZException_6_0& base = thread;
    base = two;
    EXPECT_EQ(43u, thread.messageNumber());
    EXPECT_STREQ("ZPropertiesIOException", thread.exceptionName());
    EXPECT_STREQ("src/x", thread.who());
    EXPECT_EQ(3u, thread.where());
}

TEST(ZException, AccessorsReturnTheInserts)
{
    ZPropertiesInvalidValueException_6_0 const value("f", "c", "k", "v");
    EXPECT_STREQ("f", value.propFile().getChars());
    EXPECT_STREQ("c", value.category().getChars());
    EXPECT_STREQ("k", value.key().getChars());
    EXPECT_STREQ("v", value.value().getChars());
    ZPropertiesMissingPropertyException_6_0 const missing("f", "c", "k");
    EXPECT_STREQ("c", missing.category().getChars());
    EXPECT_STREQ("k", missing.key().getChars());
    ZPropertiesInvalidDataException_6_0 const data("f", "d", 4);
    EXPECT_STREQ("d", data.baddata().getChars());
    EXPECT_EQ(4, data.badline());
    EXPECT_STREQ("v", ZOpenResourceException_6_0(37, 1, "v").value().getChars());
    EXPECT_STREQ("v", ZCloseResourceException_6_0(38, 1, "v").value().getChars());
    EXPECT_STREQ("v", ZInvalidResourceStateException_6_0("v").value().getChars());
    EXPECT_EQ(-1, ZInvalidResourceStateException_6_0("v").returnCode());
    EXPECT_STREQ("v", ZAbstractNotImplementedException_6_0("v").value().getChars());
}

TEST(ZException, AClassWithoutAReportOfItsOwnReportsAsItsBase)
{
    class Plain : public ZSharedLibraryException_6_0 {
    public:
        Plain() : ZSharedLibraryException_6_0(37, "Plain", "library", "error", 7) {}
        ZObject_6_0* clone() const override { return new Plain(*this); }
        [[noreturn]] void throwException(char const*, int) override { throw *this; }
    };
    Plain e;
    e.addLocation("src/x", 1);
    EXPECT_EQ(exceptionReport("Plain", "src/x", 1, 37,
                              "Create failed for a process lock.  rc = 7 and the lock file name "
                              "is error."),
              reportOf([&] { e.print(); }));
}

TEST(ZException, InsertsAreCopied)
{
    char file[] = "before";
    ZPropertiesIteratorException_6_0 const e(file);
    file[0] = 'X';
    EXPECT_STREQ("before", e.propFile().getChars());
}

TEST(ZException, NullInsertsAreEmpty)
{
    ZPropertiesIOException_6_0 e(nullptr, nullptr, 5);
    e.addLocation("src/x", 1);
    EXPECT_EQ(exceptionReport("ZPropertiesIOException", "src/x", 1, 43,
                              "Access failed for configuration file .  The access function was  "
                              "and return code was 5"),
              reportOf([&] { e.print(); }));
}

TEST(ZException, CodesetExceptionRemembersQVRDIR)
{
    std::string const dir = getenv("QVRDIR");
    setenv("QVRDIR", "/then", 1);
    ZCodesetException_6_0 e("x");
    setenv("QVRDIR", dir.c_str(), 1);
    e.addLocation("src/x", 1);
    EXPECT_EQ(exceptionReport("ZCodesetException", "src/x", 1, 47,
                              "Codeset handle create failed for codeset \"x\".  QVRDIR is "
                              "\"/then\""),
              reportOf([&] { e.print(); }));
}

TEST(ZException, KeepsNumAndBoolThrownAsTheirBase)
{
    try {
        ZPropertiesInvalidBoolValueException_6_0("f", "c", "k", "v").throwException("src/x", 1);
    } catch (ZPropertiesInvalidBoolValueException_6_0 const&) {
        FAIL() << "caught as the boolean class";
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        EXPECT_EQ(typeid(ZPropertiesInvalidValueException_6_0), typeid(e));
        EXPECT_EQ(41u, e.messageNumber());
        EXPECT_STREQ("ZPropertiesInvalidValueException", e.exceptionName());
    }
    try {
        ZPropertiesInvalidNumValueException_6_0("f", "c", "k", "v").throwException("src/x", 1);
    } catch (ZPropertiesInvalidNumValueException_6_0 const&) {
        FAIL() << "caught as the numeric class";
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        EXPECT_EQ(typeid(ZPropertiesInvalidValueException_6_0), typeid(e));
        EXPECT_EQ(40u, e.messageNumber());
    }
}

TEST(ZException, KeepsConverterTextsOutOfTheReport)
{
    ZConverterException_6_0 e(2, "from", "to", "why");
    std::string const report = reportOf([&] { e.print(); });
    for (char const* held : {"from ", "to ", "why"})
        EXPECT_EQ(std::string::npos, report.find(std::string("page ") + held));
    EXPECT_NE(std::string::npos, report.find("codepage  to  conversion. errno = ."));
}

TEST(ZException, ShortMemoryCutsInsertsAndReplacesNothing)
{
    std::string const name(200, 'n');
    ZPropertiesIOException_6_0 const whole(name.c_str(), "fopen(r)", 12);
    for (FailingAllocator::Mode mode : {FailingAllocator::once, FailingAllocator::forEver})
        for (unsigned long n = 1; n <= 8; ++n) {
            SCOPED_TRACE(n);
            FailingAllocator::failAt(n, mode);
            try {
                ZPropertiesIOException_6_0 copy(whole);
                copy.throwException("src/x", 3);
            } catch (ZPropertiesIOException_6_0 const& e) {
                FailingAllocator::stop();
                EXPECT_STREQ("fopen(r)", e.api().getChars());
                EXPECT_EQ(12, e.excerrno());
                EXPECT_EQ(3u, e.where());
                std::string const file = e.propFile().getChars();
                EXPECT_TRUE(file == name || file == name.substr(0, 95)) << file.size();
            } catch (ZException_6_0 const& e) {
                FailingAllocator::stop();
                ADD_FAILURE() << "replaced by " << e.exceptionName();
            }
        }
}

TEST(ZException, OutOfMemoryIsThrownWithoutMemory)
{
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    unsigned number = 0;
    try {
        ZOutOfMemoryException_6_0().throwException("src/x", 3);
    } catch (ZOutOfMemoryException_6_0 const& e) {
        number = e.messageNumber();
    }
    FailingAllocator::stop();
    EXPECT_EQ(1u, number);
}
