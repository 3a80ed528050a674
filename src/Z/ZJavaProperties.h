// ZJavaProperties: reads and writes Java-style property files.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZArray, ZArrayList, ZHashMap,
// ZUTF8String, ZLock, zqvrutil.
//
// The format: lines "key = value", comments after "#" or "!", escapes with a backslash and
// "\uXXXX". docs/file-formats.md describes the details and the differences from the Java platform.
// The reader takes bytes as UTF-8 without checking them.
// Reading: a read stores each entry at the end of its line, so a handler of a derived class finds
// it from then on. A failed read undoes every change made to the store since it started, including
// setValue() calls of handlers. A handler may start another read of the same store. If the nested
// read fails, it undoes only its own changes; either way the outer read then continues in its line,
// with its stop key.
// Files: load() and store() accept regular files only. They refuse a device such as /dev/null, a
// FIFO and a socket, and never wait for one. store() opens the file for reading and writing, so it
// refuses a file that the caller can only write or only read.
// Streams: loadProperties() accepts any stream, such as a pipe, a terminal or /dev/null (which has
// no entries), and waits for each byte. It takes no lock. A failed read ends the call, for example
// if a non-blocking descriptor has no data, or if a signal whose handler was installed without
// SA_RESTART interrupts the wait.
// Cancellation: no function of this class is a cancellation point. A thread that waits for a pipe
// continues to wait until the other end writes or closes; it is cancelled after the call.
// Ownership: a store holds copies of its keys and values.
// Threads: unsynchronised; callers serialise changes to one store. Between processes, reading holds
// a shared record lock on the file and storing an exclusive one; neither waits for the other.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "ZArrayList.h"
#include "ZObject.h"
#include "ZUTF8String.h"

class ZJavaProperties_6_0 : public ZObject_6_0 {
public:
    /// Creates an empty store.
    /// throws  ZOutOfMemoryException_6_0.
    ZJavaProperties_6_0();
    ZJavaProperties_6_0(ZJavaProperties_6_0 const&) = delete;
    ZJavaProperties_6_0& operator=(ZJavaProperties_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZJavaProperties_6_0() override;

    /// Always throws: stores cannot be copied.
    /// throws  ZAbstractNotImplementedException_6_0 with "ZJavaProperties::clone".
    ZObject_6_0* clone() const override;

    /// Reads the file at `path` and adds its entries to the store; an equal key gets the new value.
    /// Returns 1.
    /// range   null or an empty path: reads nothing.
    /// throws  ZPropertiesIOException_6_0 with "fopen(r)" (with EINVAL if it is not a regular file)
    ///         or "fcntl()" (another process is storing); ZUnexpectedEndOfFile_6_0 if reading
    ///         fails, as it does for a directory. The store is unchanged then.
    /// cost    O(bytes of the file), whatever the size of the store.
    /// kept    skips an invalid line silently, and the next line too if the line ending was the
    ///         invalid character. Does not read a last line without a line ending. A separator or a
    ///         backslash at the start of a line is the first character of a key. Values have other
    ///         escapes than keys. If several two-byte line endings follow each other, only the
    ///         first is a line ending.
    int load(char const* path);

    /// Reads as load(path), up to the entry whose key is `stopKey`.
    /// range   null or an empty `stopKey`: reads the whole file.
    /// kept    reads the entry of the stop key even from a last line without a line ending or with
    ///         an error. Of the entries that end in an empty continuation line, reads only the
    ///         entry of the stop key, and does not stop there. If the file is empty and the last
    ///         entry of the previous read has the stop key, stores that entry again.
    int load(char const* path, char const* stopKey);

    /// Reads the entries of an open stream, as load(path) does from a file. Returns 1, or 0 if a
    /// handler of a derived class returned a value that is not a state.
    /// range   `path` is used only in reports.
    /// throws  ZUnexpectedEndOfFile_6_0 if reading fails; ZJavaPropertyParseException_6_0 if a
    ///         derived class has removed the handler of a state. The store is unchanged then.
    int loadProperties(FILE* stream, char const* path);

    /// Replaces the file at `path` by "#" and a line for every key, in the order of listKeys(). The
    /// file keeps its inode; see docs/durability.md.
    /// throws  ZInvalidParameterException_6_0 for null or an empty path; ZPropertiesIOException_6_0
    ///         with "fopen(wt)" (with EINVAL if it is not a regular file, EACCES if the caller may
    ///         not both read and write it), "fcntl()" (another process reads or stores), or the
    ///         call that failed while writing. An existing file is unchanged then; a file that the
    ///         call created is removed.
    /// kept    does not escape keys: a key with a space, "=", ":" or a line ending is read back
    ///         differently. Writes only "\u" for a character beyond U+FFFF, for DEL and for a byte
    ///         that does not belong to a character; such a line is not read back.
    void store(char const* path);

    /// Sets the value of `key`.
    /// range   takes the bytes as UTF-8, whatever the class of the string.
    /// owns    clones both. The clone of a view is a view, whose characters must live as long as
    ///         the store holds it. A value that is replaced during a read lives until the read
    ///         ends.
    /// throws  ZOutOfMemoryException_6_0; as clone(). Nothing has changed then.
    void setValue(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value);

    /// Sets `out` to the value of `key`; clears it if the key does not exist.
    void getValue(ZAbstractString_6_0 const& key, ZAbstractMutableString_6_0& out) const;

    /// Adds the keys to `target`, in the order of a ZHashKeyMap_6_0 of capacity 10.
    /// owns    `target` gets strings of its own.
    /// throws  ZInvalidParameterException_6_0 if `target` does not own its elements.
    void listKeys(ZArrayList_6_0& target) const;

    /// Returns the value of a hexadecimal digit; -1 for any other character.
    static int hexConv(char digit);

protected:
    // States of the reader.
    enum State : int {
        startLine = 1,
        startLineBlanks = 2,
        commentLine = 3,  // or a line that is being skipped
        keyChars = 4,
        keyCharEscape = 5,
        keyEndBlanksFirst = 6,  // after the key, before a separator
        keyEndBlanksFinal = 7,  // after the separator
        valChars = 8,
        valEscape = 9,
        multiLineVal = 10,  // at the start of a continuation line
        uu0 = 11,           // expecting the first digit after "\u"
        uu1 = 12,
        uu2 = 13,
        uu3 = 14,
        stop = 15,        // the stop key has been stored
        syntaxError = 16  // the rest of the line is skipped
    };
    static constexpr int kStates = 15;  // the states with a handler, and 0

    // Processes one character and returns the next state. A handler that ends a line stores the
    // entry, even if a derived class calls it outside a read.
    using Handler = int (ZJavaProperties_6_0::*)(char);

    int doStartLineState(char c);
    int doStartLineBlanksState(char c);
    int doCommentLineState(char c);
    int doKeyCharsState(char c);
    int doKeyCharEscapeState(char c);
    int doKeyEndBlanksFirstState(char c);
    int doKeyEndBlanksFinalState(char c);
    int doValCharsState(char c);
    int doValEscapeState(char c);
    int doMultiLineValState(char c);
    int doUU0State(char c);
    int doUU1State(char c);
    int doUU2State(char c);
    int doUU3State(char c);

    Handler handlers_[kStates];  // by state; a derived class may replace a handler

private:
    struct Rep;  // ZJavaProperties.cpp

    void storeEntry();
    int endEntry();
    int readDigit(char c, int next);
    template <class Bytes>
    int read(Bytes& bytes, char const* path);

    Rep* const rep_;           // never null; the entries
    ZUTF8String_6_0 key_;      // being read
    ZUTF8String_6_0 value_;    // being read
    ZUTF8String_6_0 stopKey_;  // empty if the read has no stop key
    uint16_t unicodeUnit_[2];  // the unit being read, and a zero
};
