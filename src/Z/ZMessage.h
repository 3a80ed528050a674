// ZMessage: the replaceable service that turns failures into text, and the built-in one.
//
// Subsystem: root.  Stands on: ZObject, ZException, ZLCString, ZUTF8String.
//
// One service is installed per process. Exceptions and free-standing messages are routed through
// it; the built-in service writes them to standard error with the texts of the message table.
// Ownership: an installed service stays the caller's and must live while it is installed.
// Threads: the first use is safe from every thread; installing is a single pointer store, meant to
// happen before threads report. Reports of several threads do not mix: each is one write to the
// descriptor of standard error, after the text that the stream has buffered; a program may have
// made the stream wide. A thread that is being cancelled finishes its report first.
#pragma once

#include <stdarg.h>

#include "ZObject.h"

class ZException_6_0;
class ZZException_6_0;
class ZLCString_6_0;
class ZUTF8String_6_0;

class ZMessageService_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Reports a message that is no exception.
    /// range   `insertCount` inserts are looked at, at most 6; a null insert is left out.
    virtual void outputMessage(char const* file, int line, int errorNumber, int insertCount,
                               ZLCString_6_0 const* i1, ZLCString_6_0 const* i2,
                               ZLCString_6_0 const* i3, ZLCString_6_0 const* i4,
                               ZLCString_6_0 const* i5, ZLCString_6_0 const* i6) const = 0;

    /// Reports a message that is no exception, with UTF-8 inserts.
    /// range   as outputMessage().
    virtual void outputMessageUTF8(char const* file, int line, int errorNumber, int insertCount,
                                   ZUTF8String_6_0 const* i1, ZUTF8String_6_0 const* i2,
                                   ZUTF8String_6_0 const* i3, ZUTF8String_6_0 const* i4,
                                   ZUTF8String_6_0 const* i5, ZUTF8String_6_0 const* i6) const = 0;

    /// Reports an exception; usually by calling its `print()`.
    virtual void outputException(ZException_6_0& e) const = 0;

    /// Reports an exception with its inserts, which are `char const*` and `int` in message order
    /// (`e->insertTypes()` names them; call it here, during the report).
    /// owns    `e`, the inserts and the list stay the caller's.
    virtual void outputException(ZZException_6_0 const* e, va_list inserts) const = 0;

    /// Returns the installed service, the built-in one unless another was installed.
    /// owns    borrowed.
    /// threads any.
    static ZMessageService_6_0 const* messageService();

    /// Returns the built-in service; it lives until the process ends.
    /// owns    borrowed.
    /// threads any.
    static ZMessageService_6_0 const* defaultMessageService();

    /// Installs `service`; null installs the built-in one again.
    /// owns    borrowed until another is installed.
    static void setMessageService(ZMessageService_6_0 const* service);

    /// Hands an exception and its inserts to the installed service.
    static void routeZZException(ZZException_6_0 const* e, va_list inserts);

protected:
    ~ZMessageService_6_0() = default;

private:
    static void init();
    static void ensureInit();

    static ZMessageService_6_0 const* ms_;   // the installed service; read and written atomically
    static ZMessageService_6_0 const* dms_;  // the built-in service; written once
};

class ZDefaultMessageService_6_0 : public ZObject_6_0, public ZMessageService_6_0 {
public:
    ZDefaultMessageService_6_0() = default;
    ZDefaultMessageService_6_0(ZDefaultMessageService_6_0 const&) = default;
    ZDefaultMessageService_6_0& operator=(ZDefaultMessageService_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZDefaultMessageService_6_0() override;

    /// Returns a new built-in service.
    /// owns    owned by the caller; released with delete.
    ZObject_6_0* clone() const override;

    /// Writes head, thread line, table size line and the text of the message number with its
    /// inserts; no line feed follows the text.
    /// kept    the table size line "NUM_MSGS = 55" is part of every report; log scanners count it.
    void outputException(ZZException_6_0 const* e, va_list inserts) const override;

    /// Writes head, thread line and, with at least one insert, a heading and a line per insert.
    /// kept    the number is printed as a number; the message table is not consulted.
    void outputMessage(char const* file, int line, int errorNumber, int insertCount,
                       ZLCString_6_0 const* i1, ZLCString_6_0 const* i2, ZLCString_6_0 const* i3,
                       ZLCString_6_0 const* i4, ZLCString_6_0 const* i5,
                       ZLCString_6_0 const* i6) const override;

    /// Writes what outputMessage() writes for as many empty inserts.
    /// kept    the UTF-8 inserts are not printed: a console takes the local codeset.
    void outputMessageUTF8(char const* file, int line, int errorNumber, int insertCount,
                           ZUTF8String_6_0 const* i1, ZUTF8String_6_0 const* i2,
                           ZUTF8String_6_0 const* i3, ZUTF8String_6_0 const* i4,
                           ZUTF8String_6_0 const* i5, ZUTF8String_6_0 const* i6) const override;

    /// Calls `e.print()`, which comes back through the installed service.
    void outputException(ZException_6_0& e) const override;
};
