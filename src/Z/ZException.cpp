#include "ZException.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "ZMessage.h"
#include "reporting/messages.h"
#include "reporting/running_report.h"
#include "zqvrutil.h"

using zreporting::RunningReport;
using enum zreporting::Message;

namespace {

// The last step of every throwException(): stores the location and throws a copy of the object,
// as the class whose throwException() runs.
template <class Exception>
[[noreturn]] void throwCopy(Exception& exc, char const* file, int line)
{
    exc.addLocation(file, static_cast<unsigned long>(line));
    throw Exception(exc);
}

// Passes the arguments after `types` to the message service.
void routeInserts(ZZException_6_0 const* exception, RunningReport::Source source, char const* types,
                  ...)
{
    va_list inserts;
    va_start(inserts, types);
    try {
        RunningReport const report(exception, source, types);
        ZMessageService_6_0::routeZZException(exception, inserts);
    } catch (...) {
        va_end(inserts);
        throw;
    }
    va_end(inserts);
}

constexpr char typeOf(char const*)
{
    return 's';
}

constexpr char typeOf(int)
{
    return 'd';
}

// The print() of every class of the library that has inserts.
template <class... Inserts>
void printInserts(ZZException_6_0 const* exception, Inserts... inserts)
{
    static constexpr char kTypes[] = {typeOf(Inserts{})..., '\0'};
    routeInserts(exception, RunningReport::library, kTypes, inserts...);
}

// The insertTypes() of a class whose own print() passes `types`.
char const* currentInsertTypes(ZZException_6_0 const* exception, char const* types)
{
    RunningReport const* const report = RunningReport::of(exception);
    if (report == nullptr)
        return types;
    switch (report->source()) {
        case RunningReport::library:
            return report->types();
        case RunningReport::caller:
            return zreporting::messageInsertTypes(exception->messageNumber());
        case RunningReport::root:
            break;
    }
    return types != nullptr && *types == '\0' ? types : nullptr;
}

// Copies `length` bytes to `to`. If memory is exhausted, copies the bytes that fit without an
// allocation: copying an exception must not throw another.
void copyText(ZLCString_6_0& to, char const* from, size_t length) noexcept
{
    to.clear();
    try {
        to.append(from, static_cast<unsigned>(std::min<size_t>(length, UINT32_MAX - 1)));
    } catch (ZException_6_0 const&) {
        to.clear();
        to.append(from, static_cast<unsigned>(std::min<size_t>(length, to.getDefaultLength())));
    }
}

}  // namespace

// ---- Roots -----------------------------------------------------------------------------------

ZException_6_0::ZException_6_0(unsigned long messageNumber, char const* name)
    : messageNumber_(static_cast<uint32_t>(messageNumber)), name_(name), file_(nullptr), line_(0)
{
}

ZException_6_0::~ZException_6_0() = default;

void ZException_6_0::addLocation(char const* file, unsigned long line)
{
    file_ = file;
    line_ = static_cast<uint32_t>(line);
}

int ZException_6_0::location(int, char const*& file, int& line) const
{
    // KEPT: no index is out of range. A program that passes an index from 1 would notice a failure.
    // Test: ZException.KeepsOneLocationForEveryIndex
    file = file_;
    line = static_cast<int>(line_);
    return 1;
}

int ZException_6_0::locationCount() const
{
    return 1;
}

char const* ZException_6_0::who() const
{
    // KEPT: returns the source file, despite the name. Message services that print it as the file
    // would notice another result. Test: ZException.KeepsTheFileInWho
    return file_;
}

unsigned ZException_6_0::where() const
{
    return line_;
}

void ZException_6_0::dumpException()
{
    ZMessageService_6_0::messageService()->outputException(*this);
}

ZException_6_0::Text::Text(char const* text) noexcept
{
    if (text != nullptr)
        copyText(*this, text, strlen(text));
}

ZException_6_0::Text::Text(Text const& other) noexcept : ZLCString_6_0()
{
    copyText(*this, other.getChars(), other.getLength());
}

ZException_6_0::Text& ZException_6_0::Text::operator=(Text const& other) noexcept
{
    if (this != &other)
        copyText(*this, other.getChars(), other.getLength());
    return *this;
}

ZException_6_0::Text::~Text() = default;

ZException_6_0::Text* ZException_6_0::Text::clone() const
{
    return new Text(*this);
}

ZZException_6_0::ZZException_6_0(int messageNumber, char const* name)
    : ZException_6_0(static_cast<uint32_t>(messageNumber), name)
{
}

ZZException_6_0::~ZZException_6_0() = default;

void ZZException_6_0::print()
{
    // A null for each possible conversion of a message text: a service may format the text without
    // calling insertTypes().
    constexpr char const* kNone = nullptr;
    routeInserts(this, RunningReport::root, nullptr, kNone, kNone, kNone, kNone, kNone, kNone);
}

char const* ZZException_6_0::insertTypes() const
{
    return currentInsertTypes(this, nullptr);
}

void ZZException_6_0::printinternal(ZZException_6_0 const* exc, ...)
{
    va_list inserts;
    va_start(inserts, exc);
    try {
        RunningReport const report(exc, RunningReport::caller, nullptr);
        ZMessageService_6_0::routeZZException(exc, inserts);
    } catch (...) {
        va_end(inserts);
        throw;
    }
    va_end(inserts);
}

// ---- Failures without inserts ----------------------------------------------------------------

ZOutOfMemoryException_6_0::ZOutOfMemoryException_6_0()
    : ZZException_6_0(outOfMemory, "ZOutOfMemoryException")
{
}

ZOutOfMemoryException_6_0::~ZOutOfMemoryException_6_0() = default;

ZObject_6_0* ZOutOfMemoryException_6_0::clone() const
{
    return new ZOutOfMemoryException_6_0(*this);
}

void ZOutOfMemoryException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZOutOfMemoryException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "");
}

ZInvalidPlatformException_6_0::ZInvalidPlatformException_6_0()
    : ZZException_6_0(invalidPlatform, "ZInvalidPlatformException")
{
}

ZInvalidPlatformException_6_0::~ZInvalidPlatformException_6_0() = default;

ZObject_6_0* ZInvalidPlatformException_6_0::clone() const
{
    return new ZInvalidPlatformException_6_0(*this);
}

void ZInvalidPlatformException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZInvalidPlatformException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "");
}

ZNotClonableException_6_0::ZNotClonableException_6_0()
    : ZZException_6_0(notClonable, "ZNotClonableException")
{
}

ZNotClonableException_6_0::~ZNotClonableException_6_0() = default;

ZObject_6_0* ZNotClonableException_6_0::clone() const
{
    return new ZNotClonableException_6_0(*this);
}

void ZNotClonableException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZNotClonableException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "");
}

ZInvalidParameterException_6_0::ZInvalidParameterException_6_0()
    : ZZException_6_0(invalidParameter, "ZInvalidParameterException")
{
}

ZInvalidParameterException_6_0::~ZInvalidParameterException_6_0() = default;

ZObject_6_0* ZInvalidParameterException_6_0::clone() const
{
    return new ZInvalidParameterException_6_0(*this);
}

void ZInvalidParameterException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZInvalidParameterException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "");
}

ZNoQVREnvironmentException_6_0::ZNoQVREnvironmentException_6_0()
    : ZZException_6_0(noQVREnvironment, "ZNoQVREnvironmentException")
{
}

ZNoQVREnvironmentException_6_0::~ZNoQVREnvironmentException_6_0() = default;

ZObject_6_0* ZNoQVREnvironmentException_6_0::clone() const
{
    return new ZNoQVREnvironmentException_6_0(*this);
}

void ZNoQVREnvironmentException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZNoQVREnvironmentException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "");
}

ZQVRMBLenException_6_0::ZQVRMBLenException_6_0()
    : ZZException_6_0(mbLenFailed, "ZQVRMBLenException")
{
}

ZQVRMBLenException_6_0::~ZQVRMBLenException_6_0() = default;

ZObject_6_0* ZQVRMBLenException_6_0::clone() const
{
    return new ZQVRMBLenException_6_0(*this);
}

void ZQVRMBLenException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZQVRMBLenException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "");
}

ZUnsupportedException_6_0::ZUnsupportedException_6_0()
    : ZZException_6_0(unsupported, "ZUnsupportedException")
{
}

ZUnsupportedException_6_0::~ZUnsupportedException_6_0() = default;

ZObject_6_0* ZUnsupportedException_6_0::clone() const
{
    return new ZUnsupportedException_6_0(*this);
}

void ZUnsupportedException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZUnsupportedException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "");
}

// ---- Failures with a string insert ------------------------------------------------------------

ZAbstractNotImplementedException_6_0::ZAbstractNotImplementedException_6_0(char const* value)
    : ZZException_6_0(notImplemented, "ZAbstractNotImplementedException"), value_(value)
{
}

ZAbstractNotImplementedException_6_0::~ZAbstractNotImplementedException_6_0() = default;

ZObject_6_0* ZAbstractNotImplementedException_6_0::clone() const
{
    return new ZAbstractNotImplementedException_6_0(*this);
}

void ZAbstractNotImplementedException_6_0::print()
{
    printInserts(this, value_.getChars());
}

void ZAbstractNotImplementedException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZAbstractNotImplementedException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "s");
}

ZUnexpectedEndOfFile_6_0::ZUnexpectedEndOfFile_6_0(char const* file)
    : ZZException_6_0(unexpectedEnd, "ZUnexpectedEndOfFile"), file_(file)
{
}

ZUnexpectedEndOfFile_6_0::~ZUnexpectedEndOfFile_6_0() = default;

ZObject_6_0* ZUnexpectedEndOfFile_6_0::clone() const
{
    return new ZUnexpectedEndOfFile_6_0(*this);
}

void ZUnexpectedEndOfFile_6_0::print()
{
    printInserts(this, file_.getChars());
}

void ZUnexpectedEndOfFile_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZUnexpectedEndOfFile_6_0::insertTypes() const
{
    return currentInsertTypes(this, "s");
}

ZJavaPropertyParseException_6_0::ZJavaPropertyParseException_6_0(char const* file)
    : ZZException_6_0(parseFailed, "ZJavaPropertyParseException"), file_(file)
{
}

ZJavaPropertyParseException_6_0::~ZJavaPropertyParseException_6_0() = default;

ZObject_6_0* ZJavaPropertyParseException_6_0::clone() const
{
    return new ZJavaPropertyParseException_6_0(*this);
}

void ZJavaPropertyParseException_6_0::print()
{
    printInserts(this, file_.getChars());
}

void ZJavaPropertyParseException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZJavaPropertyParseException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "s");
}

ZCodesetException_6_0::ZCodesetException_6_0(char const* codeset)
    : ZZException_6_0(codesetFailed, "ZCodesetException"),
      codeset_(codeset),
      qvrDir_(secure_getenv("QVRDIR"))
{
}

ZCodesetException_6_0::~ZCodesetException_6_0() = default;

ZObject_6_0* ZCodesetException_6_0::clone() const
{
    return new ZCodesetException_6_0(*this);
}

void ZCodesetException_6_0::print()
{
    printInserts(this, codeset_.getChars(), qvrDir_.getChars());
}

void ZCodesetException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZCodesetException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "ss");
}

ZToUTF8Exception_6_0::ZToUTF8Exception_6_0()
    : ZZException_6_0(toUTF8Failed, "ZToUTF8Exception"), codeset_(zgetLocalCodesetName_6_0())
{
}

ZToUTF8Exception_6_0::~ZToUTF8Exception_6_0() = default;

ZObject_6_0* ZToUTF8Exception_6_0::clone() const
{
    return new ZToUTF8Exception_6_0(*this);
}

void ZToUTF8Exception_6_0::print()
{
    printInserts(this, codeset_.getChars());
}

void ZToUTF8Exception_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZToUTF8Exception_6_0::insertTypes() const
{
    return currentInsertTypes(this, "s");
}

ZFromUTF8Exception_6_0::ZFromUTF8Exception_6_0()
    : ZZException_6_0(fromUTF8Failed, "ZFromUTF8Exception"), codeset_(zgetLocalCodesetName_6_0())
{
}

ZFromUTF8Exception_6_0::~ZFromUTF8Exception_6_0() = default;

ZObject_6_0* ZFromUTF8Exception_6_0::clone() const
{
    return new ZFromUTF8Exception_6_0(*this);
}

void ZFromUTF8Exception_6_0::print()
{
    printInserts(this, codeset_.getChars());
}

void ZFromUTF8Exception_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZFromUTF8Exception_6_0::insertTypes() const
{
    return currentInsertTypes(this, "s");
}

// ---- Failures with a message number given to the constructor -----------------------------------

ZThreadException_6_0::ZThreadException_6_0(int messageNumber, int rc)
    : ZZException_6_0(messageNumber, "ZThreadException"), rc_(rc)
{
}

ZThreadException_6_0::~ZThreadException_6_0() = default;

ZObject_6_0* ZThreadException_6_0::clone() const
{
    return new ZThreadException_6_0(*this);
}

void ZThreadException_6_0::print()
{
    printInserts(this, rc_);
}

void ZThreadException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZThreadException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "d");
}

ZConditionException_6_0::ZConditionException_6_0(int messageNumber, int rc)
    : ZZException_6_0(messageNumber, "ZConditionException"), rc_(rc)
{
}

ZConditionException_6_0::~ZConditionException_6_0() = default;

ZObject_6_0* ZConditionException_6_0::clone() const
{
    return new ZConditionException_6_0(*this);
}

void ZConditionException_6_0::print()
{
    printInserts(this, rc_);
}

void ZConditionException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZConditionException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "d");
}

ZConverterException_6_0::ZConverterException_6_0(int messageNumber, char const* from,
                                                 char const* to, char const* error)
    : ZZException_6_0(messageNumber, "ZConverterException"), from_(from), to_(to), error_(error)
{
}

ZConverterException_6_0::~ZConverterException_6_0() = default;

ZObject_6_0* ZConverterException_6_0::clone() const
{
    return new ZConverterException_6_0(*this);
}

void ZConverterException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZConverterException_6_0::insertTypes() const
{
    // KEPT: stores three strings and reports none of them. Log scanners that match the message with
    // empty inserts would notice. Test: ZException.KeepsConverterTextsOutOfTheReport
    return currentInsertTypes(this, "");
}

ZResourceException_6_0::ZResourceException_6_0(int messageNumber, int rc)
    : ZZException_6_0(messageNumber, "ZResourceException"), rc_(rc)
{
}

ZResourceException_6_0::~ZResourceException_6_0() = default;

void ZResourceException_6_0::print()
{
    printInserts(this, rc_);
}

char const* ZResourceException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "d");
}

ZCreateResourceException_6_0::ZCreateResourceException_6_0(int messageNumber, int rc)
    : ZResourceException_6_0(messageNumber, rc)
{
}

ZCreateResourceException_6_0::~ZCreateResourceException_6_0() = default;

ZObject_6_0* ZCreateResourceException_6_0::clone() const
{
    return new ZCreateResourceException_6_0(*this);
}

void ZCreateResourceException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

ZLockResourceException_6_0::ZLockResourceException_6_0(int messageNumber, int rc)
    : ZResourceException_6_0(messageNumber, rc)
{
}

ZLockResourceException_6_0::~ZLockResourceException_6_0() = default;

ZObject_6_0* ZLockResourceException_6_0::clone() const
{
    return new ZLockResourceException_6_0(*this);
}

void ZLockResourceException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

ZUnlockResourceException_6_0::ZUnlockResourceException_6_0(int messageNumber, int rc)
    : ZResourceException_6_0(messageNumber, rc)
{
}

ZUnlockResourceException_6_0::~ZUnlockResourceException_6_0() = default;

ZObject_6_0* ZUnlockResourceException_6_0::clone() const
{
    return new ZUnlockResourceException_6_0(*this);
}

void ZUnlockResourceException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

ZReadResourceException_6_0::ZReadResourceException_6_0(int messageNumber, int rc)
    : ZResourceException_6_0(messageNumber, rc)
{
}

ZReadResourceException_6_0::~ZReadResourceException_6_0() = default;

ZObject_6_0* ZReadResourceException_6_0::clone() const
{
    return new ZReadResourceException_6_0(*this);
}

void ZReadResourceException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

ZWriteResourceException_6_0::ZWriteResourceException_6_0(int messageNumber, int rc)
    : ZResourceException_6_0(messageNumber, rc)
{
}

ZWriteResourceException_6_0::~ZWriteResourceException_6_0() = default;

ZObject_6_0* ZWriteResourceException_6_0::clone() const
{
    return new ZWriteResourceException_6_0(*this);
}

void ZWriteResourceException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

ZOpenResourceException_6_0::ZOpenResourceException_6_0(int messageNumber, int rc, char const* value)
    : ZResourceException_6_0(messageNumber, rc), value_(value)
{
}

ZOpenResourceException_6_0::~ZOpenResourceException_6_0() = default;

ZObject_6_0* ZOpenResourceException_6_0::clone() const
{
    return new ZOpenResourceException_6_0(*this);
}

void ZOpenResourceException_6_0::print()
{
    printInserts(this, returnCode(), value_.getChars());
}

void ZOpenResourceException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZOpenResourceException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "ds");
}

ZCloseResourceException_6_0::ZCloseResourceException_6_0(int messageNumber, int rc,
                                                         char const* value)
    : ZResourceException_6_0(messageNumber, rc), value_(value)
{
}

ZCloseResourceException_6_0::~ZCloseResourceException_6_0() = default;

ZObject_6_0* ZCloseResourceException_6_0::clone() const
{
    return new ZCloseResourceException_6_0(*this);
}

void ZCloseResourceException_6_0::print()
{
    printInserts(this, returnCode(), value_.getChars());
}

void ZCloseResourceException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZCloseResourceException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "ds");
}

ZInvalidResourceStateException_6_0::ZInvalidResourceStateException_6_0(char const* value)
    : ZResourceException_6_0(invalidState, -1), value_(value)
{
}

ZInvalidResourceStateException_6_0::~ZInvalidResourceStateException_6_0() = default;

ZObject_6_0* ZInvalidResourceStateException_6_0::clone() const
{
    return new ZInvalidResourceStateException_6_0(*this);
}

void ZInvalidResourceStateException_6_0::print()
{
    printInserts(this, value_.getChars());
}

void ZInvalidResourceStateException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZInvalidResourceStateException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "s");
}

// ---- Shared libraries ------------------------------------------------------------------------

ZSharedLibraryException_6_0::ZSharedLibraryException_6_0(int messageNumber, char const* name,
                                                         char const* library, char const* error,
                                                         int rc)
    : ZZException_6_0(messageNumber, name), library_(library), error_(error), rc_(rc)
{
}

ZSharedLibraryException_6_0::~ZSharedLibraryException_6_0() = default;

void ZSharedLibraryException_6_0::print()
{
    printInserts(this, rc_, error_.getChars());
}

char const* ZSharedLibraryException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "ds");
}

ZSharedLibraryLoadException_6_0::ZSharedLibraryLoadException_6_0(char const* library,
                                                                 char const* error, int rc)
    : ZSharedLibraryException_6_0(libraryFailed, "ZSharedLibraryLoadException", library, error, rc)
{
}

ZSharedLibraryLoadException_6_0::~ZSharedLibraryLoadException_6_0() = default;

ZObject_6_0* ZSharedLibraryLoadException_6_0::clone() const
{
    return new ZSharedLibraryLoadException_6_0(*this);
}

void ZSharedLibraryLoadException_6_0::print()
{
    printInserts(this, library_.getChars(), rc_, error_.getChars());
}

void ZSharedLibraryLoadException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZSharedLibraryLoadException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "sds");
}

ZSharedLibraryResolveException_6_0::ZSharedLibraryResolveException_6_0(char const* library,
                                                                       char const* symbol,
                                                                       char const* error, int rc)
    : ZSharedLibraryException_6_0(symbolFailed, "ZSharedLibraryResolveException", library, error,
                                  rc),
      symbol_(symbol)
{
}

ZSharedLibraryResolveException_6_0::~ZSharedLibraryResolveException_6_0() = default;

ZObject_6_0* ZSharedLibraryResolveException_6_0::clone() const
{
    return new ZSharedLibraryResolveException_6_0(*this);
}

void ZSharedLibraryResolveException_6_0::print()
{
    printInserts(this, library_.getChars(), symbol_.getChars(), rc_, error_.getChars());
}

void ZSharedLibraryResolveException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZSharedLibraryResolveException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "ssds");
}

// ---- Configuration files ---------------------------------------------------------------------

ZPropertiesException_6_0::ZPropertiesException_6_0(int messageNumber, char const* name,
                                                   char const* file)
    : ZZException_6_0(messageNumber, name), file_(file)
{
}

ZPropertiesException_6_0::~ZPropertiesException_6_0() = default;

void ZPropertiesException_6_0::print()
{
    printInserts(this, file_.getChars());
}

char const* ZPropertiesException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "s");
}

ZPropertiesMissingPropertyException_6_0::ZPropertiesMissingPropertyException_6_0(
    char const* file, char const* category, char const* key)
    : ZPropertiesException_6_0(missingProperty, "ZPropertiesMissingPropertyException", file),
      category_(category),
      key_(key)
{
}

ZPropertiesMissingPropertyException_6_0::~ZPropertiesMissingPropertyException_6_0() = default;

ZObject_6_0* ZPropertiesMissingPropertyException_6_0::clone() const
{
    return new ZPropertiesMissingPropertyException_6_0(*this);
}

void ZPropertiesMissingPropertyException_6_0::print()
{
    printInserts(this, propFile().getChars(), key_.getChars(), category_.getChars());
}

void ZPropertiesMissingPropertyException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZPropertiesMissingPropertyException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "sss");
}

ZPropertiesInvalidValueException_6_0::ZPropertiesInvalidValueException_6_0(char const* file,
                                                                           char const* category,
                                                                           char const* key,
                                                                           char const* value)
    : ZPropertiesException_6_0(invalidValue, "ZPropertiesInvalidValueException", file),
      category_(category),
      key_(key),
      value_(value)
{
}

ZPropertiesInvalidValueException_6_0::~ZPropertiesInvalidValueException_6_0() = default;

ZObject_6_0* ZPropertiesInvalidValueException_6_0::clone() const
{
    return new ZPropertiesInvalidValueException_6_0(*this);
}

void ZPropertiesInvalidValueException_6_0::print()
{
    printInserts(this, propFile().getChars(), value_.getChars(), key_.getChars(),
                 category_.getChars());
}

void ZPropertiesInvalidValueException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZPropertiesInvalidValueException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "ssss");
}

// KEPT: the two classes below are reported as "ZPropertiesInvalidValueException" and thrown as
// their base, with their own message number. A handler that compares the type or the name of the
// exception would notice. Test: ZException.KeepsNumAndBoolThrownAsTheirBase

ZPropertiesInvalidNumValueException_6_0::ZPropertiesInvalidNumValueException_6_0(
    char const* file, char const* category, char const* key, char const* value)
    : ZPropertiesInvalidValueException_6_0(file, category, key, value)
{
    messageNumber_ = invalidNumValue;
}

ZPropertiesInvalidNumValueException_6_0::~ZPropertiesInvalidNumValueException_6_0() = default;

ZObject_6_0* ZPropertiesInvalidNumValueException_6_0::clone() const
{
    return new ZPropertiesInvalidNumValueException_6_0(*this);
}

ZPropertiesInvalidBoolValueException_6_0::ZPropertiesInvalidBoolValueException_6_0(
    char const* file, char const* category, char const* key, char const* value)
    : ZPropertiesInvalidValueException_6_0(file, category, key, value)
{
    messageNumber_ = invalidBoolValue;
}

ZPropertiesInvalidBoolValueException_6_0::~ZPropertiesInvalidBoolValueException_6_0() = default;

ZObject_6_0* ZPropertiesInvalidBoolValueException_6_0::clone() const
{
    return new ZPropertiesInvalidBoolValueException_6_0(*this);
}

ZPropertiesIteratorException_6_0::ZPropertiesIteratorException_6_0(char const* file)
    : ZPropertiesException_6_0(iteratorState, "ZPropertiesIteratorException", file)
{
}

ZPropertiesIteratorException_6_0::~ZPropertiesIteratorException_6_0() = default;

ZObject_6_0* ZPropertiesIteratorException_6_0::clone() const
{
    return new ZPropertiesIteratorException_6_0(*this);
}

void ZPropertiesIteratorException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

ZPropertiesIOException_6_0::ZPropertiesIOException_6_0(char const* file, char const* api,
                                                       int excerrno)
    : ZPropertiesException_6_0(accessFailed, "ZPropertiesIOException", file),
      api_(api),
      errno_(excerrno)
{
}

ZPropertiesIOException_6_0::~ZPropertiesIOException_6_0() = default;

ZObject_6_0* ZPropertiesIOException_6_0::clone() const
{
    return new ZPropertiesIOException_6_0(*this);
}

void ZPropertiesIOException_6_0::print()
{
    printInserts(this, propFile().getChars(), api_.getChars(), errno_);
}

void ZPropertiesIOException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZPropertiesIOException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "ssd");
}

ZPropertiesInvalidDataException_6_0::ZPropertiesInvalidDataException_6_0(char const* file,
                                                                         char const* baddata,
                                                                         int badline)
    : ZPropertiesException_6_0(invalidData, "ZPropertiesInvalidDataException", file),
      baddata_(baddata),
      badline_(badline)
{
}

ZPropertiesInvalidDataException_6_0::~ZPropertiesInvalidDataException_6_0() = default;

ZObject_6_0* ZPropertiesInvalidDataException_6_0::clone() const
{
    return new ZPropertiesInvalidDataException_6_0(*this);
}

void ZPropertiesInvalidDataException_6_0::print()
{
    printInserts(this, propFile().getChars(), badline_, baddata_.getChars());
}

void ZPropertiesInvalidDataException_6_0::throwException(char const* file, int line)
{
    throwCopy(*this, file, line);
}

char const* ZPropertiesInvalidDataException_6_0::insertTypes() const
{
    return currentInsertTypes(this, "sds");
}
