// ZException: the exception classes; the library throws every failure as one of them.
//
// Subsystem: root.  Stands on: ZObject, ZLCString, ZMessage, zqvrutil.
//
// An exception has a message number (the message service has the text), a name, one source
// location and the inserts of its class. To throw one, construct it and call throwException() with
// the source name and the site number; it throws a copy.
// Catch by reference to ZException_6_0, ZZException_6_0 or a concrete class.
// Ownership: names and source names are static strings; inserts are copied. If memory is exhausted,
// an insert is cut to the 95 bytes that fit inside the object: constructing, copying and throwing
// an exception never throws another.
// Threads: an exception object belongs to one thread at a time.
#pragma once

#include "ZLCString.h"
#include "ZObject.h"

class ZException_6_0 : public ZObject_6_0 {
public:
    /// Makes an exception without a location.
    /// range   `messageNumber` is an index into the message table; 0 is not used.
    /// owns    `name` is borrowed: a static string, the class name without its suffix.
    ZException_6_0(unsigned long messageNumber, char const* name);
    ZException_6_0(ZException_6_0 const&) = default;
    ZException_6_0& operator=(ZException_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZException_6_0() override;
    ZObject_6_0* clone() const override = 0;

    /// Stores the location of the throw; replaces an earlier one.
    /// owns    `file` is borrowed: a static string.
    virtual void addLocation(char const* file, unsigned long line);

    /// Returns the stored location through `file` and `line`, and 1.
    /// kept    `index` is ignored.
    virtual int location(int index, char const*& file, int& line) const;

    /// Returns 1, the number of stored locations.
    virtual int locationCount() const;

    /// Returns the source name of the throw; null before addLocation().
    /// kept    returns a file, despite the name.
    virtual char const* who() const;

    /// Returns the site number of the throw; 0 before addLocation().
    virtual unsigned where() const;

    /// Reports the exception with its inserts through the installed message service.
    /// throws  any exception of that service.
    virtual void print() = 0;

    /// Stores the location and throws a copy of the exception.
    /// owns    `file` is borrowed: a static string.
    [[noreturn]] virtual void throwException(char const* file, int line) = 0;

    /// Reports the exception through the installed message service.
    /// throws  any exception of that service.
    virtual void dumpException();

    /// Returns the index into the message table.
    uint32_t messageNumber() const { return messageNumber_; }

    /// Returns the name that reports show.
    char const* exceptionName() const { return name_; }

    // An insert: a string that can be copied without an exception.
    class Text : public ZLCString_6_0 {
    public:
        explicit Text(char const* text) noexcept;
        Text(Text const& other) noexcept;
        Text& operator=(Text const& other) noexcept;
        ~Text() override;
        Text* clone() const override;
    };

protected:
    uint32_t messageNumber_;
    char const* name_;

private:
    char const* file_;
    uint32_t line_;
};

// The base of every concrete exception of the library.
class ZZException_6_0 : public ZException_6_0 {
public:
    /// Makes an exception without a location.
    /// owns    `name` is borrowed: a static string.
    ZZException_6_0(int messageNumber, char const* name);

    ~ZZException_6_0() override;

    /// Reports the exception with its inserts through the installed message service. A class that
    /// does not override this has no inserts.
    void print() override;

    /// Returns the types of the inserts that print() passes, in order: 's' for a string, 'd' for a
    /// number. Null means the types of the conversions in the message text.
    ///
    /// A message service calls this during a report, for the types of the running print(). A class
    /// of the library returns the types of its own print() or, if a caller's class overrides only
    /// print(), the types in the message text. Outside a report, a class returns the types of its
    /// own print(); null in ZZException_6_0.
    ///
    /// A caller's class overrides this if its print() passes other inserts than the message text
    /// has conversions. It must then also override print(), and so must every class derived from it
    /// that overrides one of the two. The built-in service ignores an override without a print(),
    /// because it knows the inserts of the library's print().
    virtual char const* insertTypes() const;

protected:
    /// Passes the exception and the inserts after it to the installed message service: a
    /// `char const*` for each %s and an `int` for each %d of the message text, or the types that
    /// an overridden insertTypes() returns.
    /// throws  any exception of that service.
    static void printinternal(ZZException_6_0 const* exc, ...);
};

// ---- Failures without inserts ----------------------------------------------------------------

// The heap is exhausted. Message 1.
class ZOutOfMemoryException_6_0 : public ZZException_6_0 {
public:
    ZOutOfMemoryException_6_0();
    ~ZOutOfMemoryException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// The function does not exist on this platform. Message 11.
class ZInvalidPlatformException_6_0 : public ZZException_6_0 {
public:
    ZInvalidPlatformException_6_0();
    ~ZInvalidPlatformException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// The object cannot be cloned. Message 14.
class ZNotClonableException_6_0 : public ZZException_6_0 {
public:
    ZNotClonableException_6_0();
    ~ZNotClonableException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// An argument is null, empty or out of its range. Message 22.
class ZInvalidParameterException_6_0 : public ZZException_6_0 {
public:
    ZInvalidParameterException_6_0();
    ~ZInvalidParameterException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// The environment variable QVRDIR is not set. Message 45.
class ZNoQVREnvironmentException_6_0 : public ZZException_6_0 {
public:
    ZNoQVREnvironmentException_6_0();
    ~ZNoQVREnvironmentException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// A character could not be measured. Message 46.
class ZQVRMBLenException_6_0 : public ZZException_6_0 {
public:
    ZQVRMBLenException_6_0();
    ~ZQVRMBLenException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// The operation is not supported. Message 48.
class ZUnsupportedException_6_0 : public ZZException_6_0 {
public:
    ZUnsupportedException_6_0();
    ~ZUnsupportedException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// ---- Failures with a string insert ------------------------------------------------------------

// The function is not implemented. Message 31; insert: the string.
class ZAbstractNotImplementedException_6_0 : public ZZException_6_0 {
public:
    explicit ZAbstractNotImplementedException_6_0(char const* value);
    ~ZAbstractNotImplementedException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& value() const { return value_; }

private:
    Text value_;
};

// A file could not be read to its end. Message 53; insert: the file name.
class ZUnexpectedEndOfFile_6_0 : public ZZException_6_0 {
public:
    explicit ZUnexpectedEndOfFile_6_0(char const* file);
    ~ZUnexpectedEndOfFile_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

private:
    Text file_;
};

// A Java property file could not be parsed. Message 54; insert: the file name.
class ZJavaPropertyParseException_6_0 : public ZZException_6_0 {
public:
    explicit ZJavaPropertyParseException_6_0(char const* file);
    ~ZJavaPropertyParseException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

private:
    Text file_;
};

// A codeset handle could not be created. Message 47; inserts: the codeset, the value of QVRDIR at
// construction.
class ZCodesetException_6_0 : public ZZException_6_0 {
public:
    explicit ZCodesetException_6_0(char const* codeset);
    ~ZCodesetException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

private:
    Text codeset_;
    Text qvrDir_;
};

// Local text could not be converted to UTF-8. Message 49; insert: the local codeset's name at
// construction.
class ZToUTF8Exception_6_0 : public ZZException_6_0 {
public:
    ZToUTF8Exception_6_0();
    ~ZToUTF8Exception_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

private:
    Text codeset_;
};

// UTF-8 text could not be converted to the local codeset. Message 50; insert: the local codeset's
// name at construction.
class ZFromUTF8Exception_6_0 : public ZZException_6_0 {
public:
    ZFromUTF8Exception_6_0();
    ~ZFromUTF8Exception_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

private:
    Text codeset_;
};

// ---- Failures with a message number given to the constructor -----------------------------------

// A thread call failed, or a mutex or condition call of a thread pool. Messages 15-17, 20, 29, 30,
// in a pool 3, 5-7, 10; insert: the return code.
class ZThreadException_6_0 : public ZZException_6_0 {
public:
    ZThreadException_6_0(int messageNumber, int rc);
    ~ZThreadException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    int returnCode() const { return rc_; }

private:
    int32_t rc_;
};

// A condition call failed. Messages 7, 9, 10, 27; insert: the return code.
class ZConditionException_6_0 : public ZZException_6_0 {
public:
    ZConditionException_6_0(int messageNumber, int rc);
    ~ZConditionException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    int returnCode() const { return rc_; }

private:
    int32_t rc_;
};

// A converter could not be opened. Message 2. For callers: the library does not throw it.
class ZConverterException_6_0 : public ZZException_6_0 {
public:
    ZConverterException_6_0(int messageNumber, char const* from, char const* to, char const* error);
    ~ZConverterException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;

    /// Returns "": the report has no inserts.
    /// kept    the three strings are stored, but print() is the base's and does not report them.
    char const* insertTypes() const override;

private:
    Text from_;
    Text to_;
    Text error_;
};

// The base of the failures of locks and their files. All are reported as "ZResourceException".
class ZResourceException_6_0 : public ZZException_6_0 {
public:
    ZResourceException_6_0(int messageNumber, int rc);
    ~ZResourceException_6_0() override;

    /// Reports the return code.
    void print() override;
    char const* insertTypes() const override;

    int returnCode() const { return rc_; }

private:
    int32_t rc_;
};

// A mutex could not be created. Message 3; insert: the return code.
class ZCreateResourceException_6_0 : public ZResourceException_6_0 {
public:
    ZCreateResourceException_6_0(int messageNumber, int rc);
    ~ZCreateResourceException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
};

// A lock could not be obtained. Message 5, for a process lock 33; insert: the return code.
class ZLockResourceException_6_0 : public ZResourceException_6_0 {
public:
    ZLockResourceException_6_0(int messageNumber, int rc);
    ~ZLockResourceException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
};

// A lock could not be released. Message 6, for a process lock 34; insert: the return code.
class ZUnlockResourceException_6_0 : public ZResourceException_6_0 {
public:
    ZUnlockResourceException_6_0(int messageNumber, int rc);
    ~ZUnlockResourceException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
};

// A lock file could not be read. Message 35; insert: the return code.
class ZReadResourceException_6_0 : public ZResourceException_6_0 {
public:
    ZReadResourceException_6_0(int messageNumber, int rc);
    ~ZReadResourceException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
};

// A lock file could not be written. Message 33; insert: the return code.
class ZWriteResourceException_6_0 : public ZResourceException_6_0 {
public:
    ZWriteResourceException_6_0(int messageNumber, int rc);
    ~ZWriteResourceException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
};

// A resource could not be opened. For callers: the library does not throw it. Inserts: the return
// code, the string.
class ZOpenResourceException_6_0 : public ZResourceException_6_0 {
public:
    ZOpenResourceException_6_0(int messageNumber, int rc, char const* value);
    ~ZOpenResourceException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& value() const { return value_; }

private:
    Text value_;
};

// A resource could not be closed. For callers: the library does not throw it. Inserts: the return
// code, the string.
class ZCloseResourceException_6_0 : public ZResourceException_6_0 {
public:
    ZCloseResourceException_6_0(int messageNumber, int rc, char const* value);
    ~ZCloseResourceException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& value() const { return value_; }

private:
    Text value_;
};

// The state of a lock does not allow the operation. Message 32, return code -1; insert: the name
// of the state.
class ZInvalidResourceStateException_6_0 : public ZResourceException_6_0 {
public:
    explicit ZInvalidResourceStateException_6_0(char const* value);
    ~ZInvalidResourceStateException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& value() const { return value_; }

private:
    Text value_;
};

// ---- Shared libraries ------------------------------------------------------------------------

// The base of the failures of shared libraries.
class ZSharedLibraryException_6_0 : public ZZException_6_0 {
public:
    ZSharedLibraryException_6_0(int messageNumber, char const* name, char const* library,
                                char const* error, int rc);
    ~ZSharedLibraryException_6_0() override;

    /// Reports the return code and the error text.
    void print() override;
    char const* insertTypes() const override;

    int returnCode() const { return rc_; }

protected:
    Text library_;
    Text error_;
    int32_t rc_;
};

// A library could not be loaded or unloaded. Message 51; inserts: library, return code, error text.
class ZSharedLibraryLoadException_6_0 : public ZSharedLibraryException_6_0 {
public:
    ZSharedLibraryLoadException_6_0(char const* library, char const* error, int rc);
    ~ZSharedLibraryLoadException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;
};

// A symbol was not found. Message 52; inserts: library, symbol, return code, error text.
class ZSharedLibraryResolveException_6_0 : public ZSharedLibraryException_6_0 {
public:
    ZSharedLibraryResolveException_6_0(char const* library, char const* symbol, char const* error,
                                       int rc);
    ~ZSharedLibraryResolveException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

private:
    Text symbol_;
};

// ---- Configuration files ---------------------------------------------------------------------

// The base of the failures of configuration files.
class ZPropertiesException_6_0 : public ZZException_6_0 {
public:
    ZPropertiesException_6_0(int messageNumber, char const* name, char const* file);
    ~ZPropertiesException_6_0() override;

    /// Reports the file name.
    void print() override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& propFile() const { return file_; }

private:
    Text file_;
};

// A required key is missing. Message 28; inserts: file, key, category.
class ZPropertiesMissingPropertyException_6_0 : public ZPropertiesException_6_0 {
public:
    ZPropertiesMissingPropertyException_6_0(char const* file, char const* category,
                                            char const* key);
    ~ZPropertiesMissingPropertyException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& category() const { return category_; }
    ZLCString_6_0 const& key() const { return key_; }

private:
    Text category_;
    Text key_;
};

// A value is not of the requested type. Messages 40 and 41 from the two classes below, which are
// thrown as this class; 39 if a caller creates the exception. Inserts: file, value, key, category.
class ZPropertiesInvalidValueException_6_0 : public ZPropertiesException_6_0 {
public:
    ZPropertiesInvalidValueException_6_0(char const* file, char const* category, char const* key,
                                         char const* value);
    ~ZPropertiesInvalidValueException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& category() const { return category_; }
    ZLCString_6_0 const& key() const { return key_; }
    ZLCString_6_0 const& value() const { return value_; }

private:
    Text category_;
    Text key_;
    Text value_;
};

// A value is not a number. Message 40; inserts as its base.
//
// kept    throwException() is the base's and throws the base class, with message number 40.
class ZPropertiesInvalidNumValueException_6_0 : public ZPropertiesInvalidValueException_6_0 {
public:
    ZPropertiesInvalidNumValueException_6_0(char const* file, char const* category, char const* key,
                                            char const* value);
    ~ZPropertiesInvalidNumValueException_6_0() override;
    ZObject_6_0* clone() const override;
};

// A value is not a boolean. Message 41; inserts as its base.
//
// kept    throwException() is the base's and throws the base class, with message number 41.
class ZPropertiesInvalidBoolValueException_6_0 : public ZPropertiesInvalidValueException_6_0 {
public:
    ZPropertiesInvalidBoolValueException_6_0(char const* file, char const* category,
                                             char const* key, char const* value);
    ~ZPropertiesInvalidBoolValueException_6_0() override;
    ZObject_6_0* clone() const override;
};

// An iterator has no current entry or value. Message 42; insert: file.
class ZPropertiesIteratorException_6_0 : public ZPropertiesException_6_0 {
public:
    explicit ZPropertiesIteratorException_6_0(char const* file);
    ~ZPropertiesIteratorException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;
};

// A call on the file failed. Message 43; inserts: file, name of the call, return code (an errno).
class ZPropertiesIOException_6_0 : public ZPropertiesException_6_0 {
public:
    ZPropertiesIOException_6_0(char const* file, char const* api, int excerrno);
    ~ZPropertiesIOException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& api() const { return api_; }
    int excerrno() const { return errno_; }

private:
    Text api_;
    int32_t errno_;
};

// A line of the file is not valid. Message 44; inserts: file, line number, the line. The column is
// not an insert: reports do not show it.
class ZPropertiesInvalidDataException_6_0 : public ZPropertiesException_6_0 {
public:
    /// Makes an exception without a column.
    ZPropertiesInvalidDataException_6_0(char const* file, char const* baddata, int badline);

    /// range   `column` as column().
    ZPropertiesInvalidDataException_6_0(char const* file, char const* baddata, int badline,
                                        int column);
    ~ZPropertiesInvalidDataException_6_0() override;
    ZObject_6_0* clone() const override;
    void print() override;
    [[noreturn]] void throwException(char const* file, int line) override;
    char const* insertTypes() const override;

    ZLCString_6_0 const& baddata() const { return baddata_; }
    int badline() const { return badline_; }

    /// Returns the column of the invalid part in the line; 0 if it is not known.
    /// units   characters, counted from 1. A valid sequence of UTF-8 is one character in any
    ///         locale, and so is every byte that belongs to none.
    int column() const { return column_; }

private:
    Text baddata_;
    int32_t badline_;
    int32_t column_;  // fills the padding: the class has the same size as without it
};
