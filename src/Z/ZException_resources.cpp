// The exception classes of threads, conditions, converters, locks and shared libraries.
#include "ZException.h"
#include "reporting/exception_class.h"
#include "reporting/messages.h"

using zreporting::currentInsertTypes;
using zreporting::printInserts;
using zreporting::throwCopy;
using enum zreporting::Message;

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
    // KEPT: stores three strings and reports none of them. A log scanner that matches the whole
    // line, which has empty inserts, would miss it with filled ones.
    // Test: ZException.KeepsConverterTextsOutOfTheReport
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
