// ZQVRUTF8Converter: converts text between one codeset and UTF-8, into buffers.
//
// Subsystem: text tools.  Stands on: ZObject, ZException, ZLCString, ZBuffer, zqvrutil.
//
// Ownership: a converter owns its codeset handle; it cannot be copied.
// Threads: not locked. A converter is immutable, so any number of threads may convert with it, each
// into its own buffer.
#pragma once

#include "ZLCString.h"
#include "ZObject.h"

class ZBuffer_6_0;
struct qvr_cs;  // a codeset handle, qvr.h

// The interface of a converter, without a base class and without fields.
class ZUTF8ConverterInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns the name of the local codeset of this converter.
    /// owns    borrowed until the converter is destroyed.
    virtual ZLCString_6_0 const& getLocalCodeSet() const = 0;

    /// Converts UTF-8 `text`, including its terminator, into `buffer`.
    virtual void convertToLocal(char const* text, ZBuffer_6_0& buffer) const = 0;

    /// Converts local `text`, including its terminator, into `buffer`.
    virtual void convertToUTF8(char const* text, ZBuffer_6_0& buffer) const = 0;

    virtual ~ZUTF8ConverterInterface_6_0() noexcept(false);
};

/// The base class of converters.
class ZAbstractUTF8Converter_6_0 : public ZObject_6_0, public ZUTF8ConverterInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ZLCString_6_0 const& getLocalCodeSet() const override = 0;
    void convertToLocal(char const* text, ZBuffer_6_0& buffer) const override = 0;
    void convertToUTF8(char const* text, ZBuffer_6_0& buffer) const override = 0;
    ~ZAbstractUTF8Converter_6_0() override;
};

class ZQVRUTF8Converter_6_0 : public ZAbstractUTF8Converter_6_0 {
public:
    /// Creates a converter without a codeset: its name is empty and it converts nothing.
    /// throws  ZNoQVREnvironmentException_6_0 if QVRDIR is unset; in a set-uid program it is
    ///         treated as unset.
    ZQVRUTF8Converter_6_0();

    /// Creates a converter for the codeset named `codeset`.
    /// range   null `codeset` is the codeset of the process's locale; an unknown name gives a
    ///         converter that converts nothing. `qvrDir` is the directory of the tables to use from
    ///         now on, for the whole process, as in zset_cs_dir_6_0(); null keeps the current ones.
    ///         It does not replace QVRDIR if this is the first string of the process: see
    ///         zgetLCSHandle_6_0().
    /// throws  ZNoQVREnvironmentException_6_0 if `qvrDir` is null and QVRDIR is unset.
    ZQVRUTF8Converter_6_0(char const* codeset, char const* qvrDir);

    ZQVRUTF8Converter_6_0(ZQVRUTF8Converter_6_0 const&) = delete;
    ZQVRUTF8Converter_6_0& operator=(ZQVRUTF8Converter_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ZLCString_6_0 const& getLocalCodeSet() const override;

    /// Converts UTF-8 `text`, including its terminator, into `buffer`.
    /// range   null `text` is the empty string.
    /// throws  ZOutOfMemoryException_6_0, with `buffer` unchanged.
    /// kept    invalid text leaves `buffer` unchanged and is not reported.
    void convertToLocal(char const* text, ZBuffer_6_0& buffer) const override;

    /// Converts local `text`, including its terminator, into `buffer`.
    /// range   null `text` is the empty string.
    /// throws  ZOutOfMemoryException_6_0, with `buffer` unchanged.
    /// kept    invalid text leaves `buffer` unchanged and is not reported.
    void convertToUTF8(char const* text, ZBuffer_6_0& buffer) const override;

    ~ZQVRUTF8Converter_6_0() override;

private:
    ZLCString_6_0 codeset_;
    ZLCConstString_6_0 unused_;    // empty; keeps the object's layout
    struct qvr_cs const* handle_;  // null: converts nothing
};
