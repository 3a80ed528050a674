#include <Z/ZException.h>
#include <Z/ZMessage.h>
#include <Z/zqvrutil.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "FailingAllocator.h"
#include "Raised.h"
#include "Reports.h"

namespace {

// Visits every exception class: calls `Visitor` with an object of the class and its expected
// values.
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

// A caller's class derived from `Base`, with any message number.
template <class Base>
class Derived : public Base {
public:
    template <class... Arguments>
    explicit Derived(int number, Arguments... arguments) : Base(arguments...)
    {
        this->messageNumber_ = static_cast<uint32_t>(number);
    }
    ZObject_6_0* clone() const override { return new Derived(*this); }
    [[noreturn]] void throwException(char const*, int) override { throw *this; }
};

// Like Derived, with a print() that passes `inserts`, but without an insertTypes().
template <class Base, class... Inserts>
class OnlyPrint : public Derived<Base> {
public:
    template <class... Arguments>
    explicit OnlyPrint(int number, std::tuple<Inserts...> inserts, Arguments... arguments)
        : Derived<Base>(number, arguments...), inserts_(inserts)
    {
    }
    void print() override
    {
        std::apply([this](auto... inserts) { this->printinternal(this, inserts...); }, inserts_);
    }

private:
    std::tuple<Inserts...> const inserts_;
};

// Like Derived, with an insertTypes(), but without a print().
template <class Base>
class OnlyInsertTypes : public Derived<Base> {
public:
    template <class... Arguments>
    explicit OnlyInsertTypes(int number, char const* types, Arguments... arguments)
        : Derived<Base>(number, arguments...), types_(types)
    {
    }
    char const* insertTypes() const override { return types_; }

private:
    char const* const types_;
};

// Like Derived, with a print() and an insertTypes().
template <class Base, class... Inserts>
class PrintAndTypes : public OnlyPrint<Base, Inserts...> {
public:
    template <class... Arguments>
    explicit PrintAndTypes(int number, char const* types, std::tuple<Inserts...> inserts,
                           Arguments... arguments)
        : OnlyPrint<Base, Inserts...>(number, inserts, arguments...), types_(types)
    {
    }
    char const* insertTypes() const override { return types_; }

private:
    char const* const types_;
};

// Like Derived, with a print() that calls the base's.
template <class Base>
class CallsBasePrint : public Derived<Base> {
public:
    using Derived<Base>::Derived;
    void print() override { Base::print(); }
};

// Like Derived, with a print() that calls the root's, which passes no inserts.
template <class Base>
class CallsRootPrint : public Derived<Base> {
public:
    using Derived<Base>::Derived;
    void print() override { ZZException_6_0::print(); }
};

template <class Base, class... Inserts, class... Arguments>
std::unique_ptr<ZException_6_0> onlyPrint(int number, std::tuple<Inserts...> inserts,
                                          Arguments... arguments)
{
    return std::make_unique<OnlyPrint<Base, Inserts...>>(number, inserts, arguments...);
}

template <class Base, class... Inserts, class... Arguments>
std::unique_ptr<ZException_6_0> printAndTypes(int number, char const* types,
                                              std::tuple<Inserts...> inserts,
                                              Arguments... arguments)
{
    return std::make_unique<PrintAndTypes<Base, Inserts...>>(number, types, inserts, arguments...);
}

template <class... Inserts>
std::tuple<Inserts...> passes(Inserts... inserts)
{
    return std::tuple<Inserts...>(inserts...);
}

// Returns the text that the built-in service prints after the table size line.
std::string textOf(ZException_6_0& e)
{
    std::string const report = reportOf([&] { e.print(); });
    std::string const marker = "NUM_MSGS = 55\n";
    size_t const at = report.find(marker);
    return at == std::string::npos ? "no table size line" : report.substr(at + marker.size());
}

// A service without message texts, which reads the inserts only by their types.
class ListingService : public ZMessageService_6_0 {
public:
    ListingService() { setMessageService(this); }
    virtual ~ListingService() { setMessageService(nullptr); }
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
        if (meanwhile)
            std::exchange(meanwhile, nullptr)();
        char const* const types = e->insertTypes();
        listed += std::string(types == nullptr ? "as the text" : types) + "(";
        for (char const* type = types; type != nullptr && *type != '\0'; ++type)
            listed += *type == 's' ? std::string(va_arg(inserts, char const*)) + ","
                                   : std::to_string(va_arg(inserts, int)) + ",";
        listed += ")";
    }

    mutable std::function<void()> meanwhile;  // runs once, during the next report
    mutable std::string listed;
};

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
    // Two classes inherit throwException().
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
        // throwException() stores the location in the original object too.
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

TEST(ZException, LinesAreTruncatedTo32Bits)
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

TEST(ZException, CanBeThrownAgainFromItsHandler)
{
    EXPECT_TRUE((raises<ZCloseResourceException_6_0>(38, "src/second", 2, [] {
        try {
            ZCloseResourceException_6_0(38, 1, "value").throwException("src/first", 1);
        } catch (ZException_6_0& first) {
            first.throwException("src/second", 2);
        }
    })));
}

TEST(ZException, CloneOutlivesTheOriginal)
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

TEST(ZException, InsertsAreCloned)
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
    EXPECT_EQ(0, data.column());
    EXPECT_EQ(7, ZPropertiesInvalidDataException_6_0("f", "d", 4, 7).column());
    EXPECT_STREQ("v", ZOpenResourceException_6_0(37, 1, "v").value().getChars());
    EXPECT_STREQ("v", ZCloseResourceException_6_0(38, 1, "v").value().getChars());
    EXPECT_STREQ("v", ZInvalidResourceStateException_6_0("v").value().getChars());
    EXPECT_EQ(-1, ZInvalidResourceStateException_6_0("v").returnCode());
    EXPECT_STREQ("v", ZAbstractNotImplementedException_6_0("v").value().getChars());
}

TEST(ZException, ClassWithoutPrintReportsLikeItsBase)
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

TEST(ZException, InsertTypesMatchTheRunningPrint)
{
    using Resource = ZResourceException_6_0;
    using Library = ZSharedLibraryException_6_0;
    using Properties = ZPropertiesException_6_0;
    using IO = ZPropertiesIOException_6_0;
    char const* const kFile = "file";
    struct Case {
        char const* name;
        std::unique_ptr<ZException_6_0> e;
        std::string text;
        std::string listed;  // by ListingService; empty: not checked
    };
    Case const cases[] = {
        {"only print(), a string instead of the base's number",
         onlyPrint<Resource>(53, passes("a.txt"), 53, 7),
         "Unexpected end of file encounted while reading a.txt.", "s(a.txt,)"},
        {"only print(), more inserts than the base",
         onlyPrint<Resource>(38, passes(9, "lock"), 38, 7),
         "Close failed for a process lock.  rc = 9 and the lock file name is lock.", "ds(9,lock,)"},
        {"only print(), a number instead of the base's string",
         onlyPrint<Properties>(20, passes(7), 20, "Own", kFile),
         "Unexpected error from pthread_join().  rc = 7.", "d(7,)"},
        {"only print(), other inserts than the base",
         onlyPrint<Library>(51, passes("libx", 2, "why"), 51, "Own", "l", "e", 7),
         "Shared library load/unload error (libx) 2.  why", "sds(libx,2,why,)"},
        {"only print(), below a class without inserts",
         onlyPrint<ZOutOfMemoryException_6_0>(28, passes("f", "k", "c")),
         "The configuration file f is missing the required attribute k in stanza c.",
         "sss(f,k,c,)"},
        {"only print(), below a concrete class", onlyPrint<IO>(17, passes(5), kFile, "open()", 2),
         "Unexpected error from pthread_create().  rc = 5.", "d(5,)"},
        {"only print(), below a class that inherits print()",
         onlyPrint<ZPropertiesIteratorException_6_0>(17, passes(5), kFile),
         "Unexpected error from pthread_create().  rc = 5.", "d(5,)"},
        {"only print(), below the root",
         onlyPrint<ZZException_6_0>(43, passes("f", "open()", 2), 43, "Own"),
         "Access failed for configuration file f.  The access function was open() and return code "
         "was 2",
         "ssd(f,open(),2,)"},
        {"only print(), a message without inserts",
         onlyPrint<IO>(48, passes(5, 6), kFile, "open()", 2), "The operation is not supported.",
         "()"},
        {"only print(), an unknown message number",
         onlyPrint<IO>(55, passes(5, 6), kFile, "open()", 2),
         "No default text defined in ZMessage.cpp for the exception\n", "()"},
        {"only insertTypes(), a string instead of the base's number",
         std::make_unique<OnlyInsertTypes<ZThreadException_6_0>>(17, "s", 17, 7),
         "Unexpected error from pthread_create().  rc = 7.", ""},
        {"only insertTypes(), more than the base",
         std::make_unique<OnlyInsertTypes<IO>>(43, "ssssss", kFile, "open()", 2),
         "Access failed for configuration file file.  The access function was open() and return "
         "code was 2",
         ""},
        {"only insertTypes(), fewer than the base",
         std::make_unique<OnlyInsertTypes<IO>>(43, "", kFile, "open()", 2),
         "Access failed for configuration file file.  The access function was open() and return "
         "code was 2",
         "()"},
        {"both, as in the message text",
         printAndTypes<IO>(37, "ds", passes(7, "lock"), kFile, "open()", 2),
         "Create failed for a process lock.  rc = 7 and the lock file name is lock.",
         "ds(7,lock,)"},
        {"both, fewer than in the message text",
         printAndTypes<IO>(43, "d", passes(7), kFile, "open()", 2),
         "Access failed for configuration file 7.  The access function was  and return code was ",
         "d(7,)"},
        {"both, a string instead of a number and the reverse",
         printAndTypes<IO>(37, "sd", passes("lock", 7), kFile, "open()", 2),
         "Create failed for a process lock.  rc =  and the lock file name is 7.", "sd(lock,7,)"},
        {"neither", std::make_unique<Derived<IO>>(43, kFile, "open()", 2),
         "Access failed for configuration file file.  The access function was open() and return "
         "code was 2",
         "ssd(file,open(),2,)"},
        {"neither, below an abstract class",
         std::make_unique<Derived<Library>>(37, 37, "Own", "libx", "why", 7),
         "Create failed for a process lock.  rc = 7 and the lock file name is why.", "ds(7,why,)"},
        {"calls the base's print()", std::make_unique<CallsBasePrint<IO>>(43, kFile, "open()", 2),
         "Access failed for configuration file file.  The access function was open() and return "
         "code was 2",
         "ssd(file,open(),2,)"},
        {"calls the root's print()", std::make_unique<CallsRootPrint<IO>>(43, kFile, "open()", 2),
         "Access failed for configuration file .  The access function was  and return code was 0",
         "as the text()"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.text, textOf(*c.e));
        if (c.listed.empty())
            continue;  // the types of this class do not match the inserts of the base's print()
        ListingService const service;
        c.e->print();
        EXPECT_EQ(c.listed, service.listed);
        service.listed.clear();
        c.e->dumpException();
        EXPECT_EQ(c.listed, service.listed);
    }
}

// A caller's class that overrides print() below another that overrides both functions: the types
// do not match the inserts of the running print().
TEST(ZException, NumberIsNotUsedAsTheAddressOfAString)
{
    class Above : public PrintAndTypes<ZPropertiesIOException_6_0, char const*> {
    public:
        Above() : PrintAndTypes(17, "s", passes("text"), "file", "open()", 2) {}
    };
    class PrintBelow : public Above {
    public:
        void print() override { printinternal(this, 7); }
    } e;
    EXPECT_EQ("Unexpected error from pthread_create().  rc = .", textOf(e));
}

// A service may report other exceptions, and the same one again, before it reads the inserts.
TEST(ZException, InsertTypesOutlastNestedReports)
{
    OnlyPrint<ZPropertiesIOException_6_0, int> first(17, passes(5), "file", "open()", 2);
    OnlyPrint<ZPropertiesIOException_6_0, char const*> second(53, passes("a.txt"), "f", "o", 2);
    ZCloseResourceException_6_0 third(38, 1, "lock");
    ListingService const service;
    service.meanwhile = [&] {
        service.meanwhile = [&] {
            third.print();
            EXPECT_STREQ("d", first.insertTypes());
            first.print();
        };
        second.print();
    };
    first.print();
    EXPECT_EQ("ds(1,lock,)d(5,)s(a.txt,)d(5,)", service.listed);
}

TEST(ZException, FailedServiceLeavesNoRunningReport)
{
    OnlyPrint<ZPropertiesIOException_6_0, int> e(17, passes(5), "file", "open()", 2);
    ListingService const service;
    service.meanwhile = [] { throw std::runtime_error("service"); };
    EXPECT_THROW(e.print(), std::runtime_error);
    EXPECT_STREQ("ssd", e.insertTypes());
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

TEST(ZException, ExhaustedMemoryCutsInsertsAndThrowsNothingElse)
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
