#include "ZException.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "ZMessage.h"
#include "reporting/exception_class.h"
#include "reporting/messages.h"
#include "zqvrutil.h"

using zreporting::currentInsertTypes;
using zreporting::printInserts;
using zreporting::routeInserts;
using zreporting::RunningReport;
using zreporting::throwCopy;
using enum zreporting::Message;

namespace {

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
    // KEPT: no index is out of range. A message service that numbers the locations from 1 would
    // print no file and line if only index 0 were valid.
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
    // KEPT: returns the source file, despite the name. A message service that prints who() and
    // where() as file and line, as the built-in one does, would print another text as the file.
    // Test: ZException.KeepsTheFileInWho
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
