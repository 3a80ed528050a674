// ZJavaProperties: reads and writes Java-style property files.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZArray, ZArrayList, ZHashMap,
// ZUTF8String, ZLock, zqvrutil.
//
// Lines "key = value", comments behind "#" or "!", escapes with a backslash and "\uXXXX"; see
// docs/file-formats.md for what is read and written, and for where the Java platform differs.
// Bytes are taken as UTF-8, as they are.
// A read stores each entry at the end of its line, where a handler of a derived class finds it from
// then on. A read that fails undoes every change of the store since it began, also those that a
// handler made with setValue(). A handler may start another read of the same store. If the nested
// read fails, it undoes only its own changes; either way the outer read then continues in its line,
// with its stop key.
// Files: load() and store() accept regular files only. They refuse a device such as /dev/null, a
// FIFO and a socket, and never wait for one. store() opens the file for reading and writing: it
// refuses a file that the caller may only write, as it does one that the caller may only read.
// Streams: loadProperties() accepts any stream, also that of a pipe, a terminal or /dev/null (which
// has no entries), and waits for each byte. No lock is taken then. A read that fails ends the call:
// that is so with a descriptor that does not block and has no data, and if a signal interrupts the
// wait whose handler was installed without SA_RESTART.
// Cancellation: none of these calls is cancelled. A thread that waits for a pipe goes on waiting
// until the other end writes or is closed; the cancellation follows after the call.
// Ownership: a store holds copies of its keys and values.
// Threads: unsynchronised; callers serialise changes to one store. Between processes, reading holds
// a shared and storing an exclusive record lock on the file; neither waits for the other.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "ZArrayList.h"
#include "ZObject.h"
#include "ZUTF8String.h"

class ZJavaProperties_6_0 : public ZObject_6_0 {
public:
    /// Makes an empty store.
    /// throws  ZOutOfMemoryException_6_0.
    ZJavaProperties_6_0();
    ZJavaProperties_6_0(ZJavaProperties_6_0 const&) = delete;
    ZJavaProperties_6_0& operator=(ZJavaProperties_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZJavaProperties_6_0() override;

    /// Stores are not copied.
    /// throws  ZAbstractNotImplementedException_6_0 with "ZJavaProperties::clone".
    ZObject_6_0* clone() const override;

    /// Reads the file at `path`. Its entries are added to those that are there; an equal key gets
    /// the new value. Returns 1.
    /// range   null or an empty path: nothing is read.
    /// throws  ZPropertiesIOException_6_0 with "fopen(r)" (with EINVAL if it is not a regular file)
    ///         or "fcntl()" (another process stores); ZUnexpectedEndOfFile_6_0 when reading fails,
    ///         as it does with a directory. The store is as it was then.
    /// kept    a line that cannot be read is skipped without a word, and when it was its line end
    ///         that could not be read, the next line as well; a last line without a line end is not
    ///         read at all; a separator or a backslash that begins a line begins a key; values have
    ///         other escapes than keys; of several line ends of two bytes in turn only the first
    ///         counts.
    /// cost    O(bytes of the file), whatever the store holds already.
    int load(char const* path);

    /// Reads as load(path) does, up to the entry whose key is `stopKey`.
    /// range   null or an empty `stopKey` stops nowhere.
    /// kept    the entry of the stop key is read also from a last line without a line end, or with
    ///         an error. Of the entries that end in an empty continuation line only that one is
    ///         read, and it does not stop the reading. From a file without a single byte the entry
    ///         is stored once more at which the read before had ended, when its key is the stop
    ///         key.
    int load(char const* path, char const* stopKey);

    /// Reads the entries of an open stream, as load(path) does those of a file. Returns 1; 0 when a
    /// handler of a derived class led out of the states.
    /// range   `path` is for reports alone.
    /// throws  ZUnexpectedEndOfFile_6_0 when reading fails; ZJavaPropertyParseException_6_0 when a
    ///         derived class took the handler of a state away. The store is as it was then.
    int loadProperties(FILE* stream, char const* path);

    /// Replaces the file at `path` by "#" and a line for every key, in the order of listKeys(). The
    /// file keeps its inode; see docs/durability.md.
    /// throws  ZInvalidParameterException_6_0 for null or an empty path; ZPropertiesIOException_6_0
    ///         with "fopen(wt)" (with EINVAL if it is not a regular file, EACCES if the caller may
    ///         not both read and write it), "fcntl()" (another process reads or stores), or the
    ///         call that failed while writing. An existing file is as it was then, and one that was
    ///         made is removed.
    /// kept    keys are written as they are: one with a blank, "=", ":" or a line end in it is read
    ///         back as something else. Of a character beyond U+FFFF, of DEL and of a byte that
    ///         belongs to no character only "\u" is written, and such a line is not read back.
    void store(char const* path);

    /// Sets the value of `key`.
    /// range   the bytes are taken as UTF-8, whatever the class of the string.
    /// owns    both are cloned: of a view the clone is a view, whose text must live as long as the
    ///         store holds it. A value that is replaced while a read runs lives until that ends.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises. Nothing is changed then.
    void setValue(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value);

    /// Sets `out` to the value of `key`; empties it when there is none.
    void getValue(ZAbstractString_6_0 const& key, ZAbstractMutableString_6_0& out) const;

    /// Adds the keys to `target`, in the order of a ZHashKeyMap_6_0 of capacity 10.
    /// owns    `target` gets strings of its own.
    /// throws  ZInvalidParameterException_6_0 when `target` does not own its members.
    void listKeys(ZArrayList_6_0& target) const;

    /// Returns the value of a hexadecimal digit, -1 for anything else.
    static int hexConv(char digit);

protected:
    // The states of the reader.
    enum State : int {
        startLine = 1,
        startLineBlanks = 2,
        commentLine = 3,  // or a line that is being skipped
        keyChars = 4,
        keyCharEscape = 5,
        keyEndBlanksFirst = 6,  // behind the key, no separator yet
        keyEndBlanksFinal = 7,  // behind the separator
        valChars = 8,
        valEscape = 9,
        multiLineVal = 10,  // at the start of a continuation line
        uu0 = 11,           // expecting the first digit behind "\u"
        uu1 = 12,
        uu2 = 13,
        uu3 = 14,
        stop = 15,        // the stop key has been stored
        syntaxError = 16  // the rest of the line is skipped
    };
    static constexpr int kStates = 15;  // those with a handler, and 0

    // Takes one character; returns the next state. A handler that ends a line stores the entry,
    // also if it is called without a read.
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

    Handler handlers_[kStates];  // by state; a derived class may put its own in

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
    ZUTF8String_6_0 stopKey_;  // empty: none
    uint16_t unicodeUnit_[2];  // being read, and a zero
};
