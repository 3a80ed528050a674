// The exception classes of configuration files.
#include "ZException.h"
#include "reporting/exception_class.h"
#include "reporting/messages.h"

using zreporting::currentInsertTypes;
using zreporting::printInserts;
using zreporting::throwCopy;
using enum zreporting::Message;

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
// their base, with their own message number. If a program has a handler for a derived class before
// the handler for the base, the former never runs now, and would run. A message service that
// selects its strings by exceptionName() would have none for the new names.
// Test: ZException.KeepsNumAndBoolThrownAsTheirBase

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
    : ZPropertiesInvalidDataException_6_0(file, baddata, badline, 0)
{
}

ZPropertiesInvalidDataException_6_0::ZPropertiesInvalidDataException_6_0(char const* file,
                                                                         char const* baddata,
                                                                         int badline, int column)
    : ZPropertiesException_6_0(invalidData, "ZPropertiesInvalidDataException", file),
      baddata_(baddata),
      badline_(badline),
      column_(column)
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
