// ZMessage: the replaceable service that reports failures as text, and the built-in one.
//
// Subsystem: root.  Stands on: ZObject, ZException, ZLCString, ZUTF8String.
//
// A process has one installed service, which gets all exceptions and messages to report. The
// built-in service writes them to standard error, with the texts of the message table.
// Ownership: an installed service stays the caller's and must live while it is installed.
// Threads: the first use is safe from every thread; installing is a single pointer store, meant to
// happen before threads report. Reports of several threads do not interleave: each is one write to
// the descriptor of standard error, after the text that the stream has buffered; the stream may be
// wide. A cancelled thread finishes its report first.
#pragma once

#include <stdarg.h>

#include "ZObject.h"

class ZException_6_0;
class ZZException_6_0;
class ZLCString_6_0;
class ZUTF8String_6_0;

/// The interface of message services, which report failures as text. Derive from it and install
/// the object to send reports to your own log.
class ZMessageService_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Reports a message that is not an exception.
    /// range   only the first `insertCount` inserts are used, at most 6; null inserts are skipped.
    virtual void outputMessage(char const* file, int line, int errorNumber, int insertCount,
                               ZLCString_6_0 const* i1, ZLCString_6_0 const* i2,
                               ZLCString_6_0 const* i3, ZLCString_6_0 const* i4,
                               ZLCString_6_0 const* i5, ZLCString_6_0 const* i6) const = 0;

    /// Reports a message that is not an exception, with UTF-8 inserts.
    /// range   as outputMessage().
    virtual void outputMessageUTF8(char const* file, int line, int errorNumber, int insertCount,
                                   ZUTF8String_6_0 const* i1, ZUTF8String_6_0 const* i2,
                                   ZUTF8String_6_0 const* i3, ZUTF8String_6_0 const* i4,
                                   ZUTF8String_6_0 const* i5, ZUTF8String_6_0 const* i6) const = 0;

    /// Reports an exception; usually by calling its `print()`.
    virtual void outputException(ZException_6_0& e) const = 0;

    /// Reports an exception with its inserts, each a `char const*` or an `int`. Call
    /// `e->insertTypes()` here, during the report, for their types in order.
    /// owns    `e`, the inserts and the list stay the caller's.
    virtual void outputException(ZZException_6_0 const* e, va_list inserts) const = 0;

    /// Returns the installed service; initially the built-in one.
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

    /// Passes an exception and its inserts to the installed service.
    static void routeZZException(ZZException_6_0 const* e, va_list inserts);

protected:
    ~ZMessageService_6_0() = default;

private:
    static void init();
    static void ensureInit();

    static ZMessageService_6_0 const* ms_;   // the installed service; read and written atomically
    static ZMessageService_6_0 const* dms_;  // the built-in service; written once
};

/// The built-in message service. It writes reports to standard error, in the words of the message
/// table.
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

    /// Writes the header, the thread line, the table size line and the text of the message number
    /// with its inserts, without a newline after the text.
    /// kept    every report has the table size line "NUM_MSGS = 55", which precedes the text.
    void outputException(ZZException_6_0 const* e, va_list inserts) const override;

    /// Writes the header, the thread line and, if there are inserts, a heading and a line per
    /// insert.
    /// kept    prints only the number, without the text from the message table.
    void outputMessage(char const* file, int line, int errorNumber, int insertCount,
                       ZLCString_6_0 const* i1, ZLCString_6_0 const* i2, ZLCString_6_0 const* i3,
                       ZLCString_6_0 const* i4, ZLCString_6_0 const* i5,
                       ZLCString_6_0 const* i6) const override;

    /// Calls outputMessage() with `insertCount` empty inserts.
    /// kept    the UTF-8 inserts are not printed: a console shows the local codeset.
    void outputMessageUTF8(char const* file, int line, int errorNumber, int insertCount,
                           ZUTF8String_6_0 const* i1, ZUTF8String_6_0 const* i2,
                           ZUTF8String_6_0 const* i3, ZUTF8String_6_0 const* i4,
                           ZUTF8String_6_0 const* i5, ZUTF8String_6_0 const* i6) const override;

    /// Calls `e.print()`, which calls the installed service with the inserts.
    void outputException(ZException_6_0& e) const override;
};
