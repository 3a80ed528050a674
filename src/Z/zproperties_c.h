// zproperties_c: stanza configuration files through plain functions, handles and return codes.
//
// Subsystem: properties.  Stands on: ZStanzaFileProperties, ZPropertiesIterator, ZLCString, ZLock,
// ZException, ZArrayList.
//
// C99 and C++. A file is opened into a handle, read and changed in memory, and written back with
// zstzPropStore_6_0; its comments, blank lines and order are kept.
//
// Ownership: a handle is the caller's until it is closed; the file object behind it lives as long
// as the handle or an iterator made from it. Text that a function returns is a copy in a block of
// the interface's own, released with zstzPropFree_6_0; the results of a list of values are
// released with zstzPropFreeValuesList_6_0.
// Threads: every function may be called from any thread, with any handle; a handle may be closed
// while other threads use it. An iterator keeps the file object locked and belongs to the thread
// that made it.
// Handles: a value that is no open handle of the right kind (null, closed, never handed out) is
// recognised without being looked into and answered with zpropBadHandle.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZPROP_handle ZPROP_handle;            // an open file
typedef struct ZPROP_iter_handle ZPROP_iter_handle;  // an open iterator
typedef struct ZPROP_stz_handle ZPROP_stz_handle;    // a stanza; no function makes one

/// The one set of return codes.
enum ZPROPCode {
    zpropOk = 0,
    zpropOpenStoreFailed = 51,  // the file could not be opened, read or written
    zpropChangeFailed = 52,     // a change was refused or failed; no memory
    zpropInvalidValue = 53,     // the value is not of the type asked for
    zpropMissing = 54,          // there is no such key, or it has no value
    zpropBadHandle = 55,        // not an open handle, or an argument is missing
    zpropIterator = 57          // the iterator has no current entry, or cannot do this
};

/// How a file is opened; both ways are accepted and are the same.
enum { zpropOpenRead = 1, zpropOpenUpdate = 2 };
typedef int ZPROPOpenMode;

/// What a record of zstzPropGetValues_6_0 asks for.
enum { zpropBoolean = 1, zpropInteger = 2, zpropString = 3, zpropStringList = 4 };
typedef int ZPROPValueType;

/// One request of zstzPropGetValues_6_0.
typedef struct ZPROPValue {
    ZPROPValueType type;
    char const* stanza;
    char const* key;
    int flag;      // 1: a missing key gives 0 or an empty value; any other: it is an error
    void* result;  // where the result goes: int* (boolean), unsigned int* (integer), char**
                   // (string: null when empty), char*** (list: ended by a null pointer)
} ZPROPValue;

/// Opens `file`, reads it and stores a handle in `*handle`.
/// owns    owned by the caller; released with zstzPropClose_6_0.
/// codes   55 when an argument is null or `mode` is neither 1 nor 2, `*handle` is untouched then;
///         51 when the file cannot be read, `*handle` is null then.
int zstzPropOpen_6_0(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode);

/// Closes a handle; what is no open handle is ignored. Unstored changes are lost.
/// threads calls under way in other threads end first; iterators of the handle stay usable.
void zstzPropClose_6_0(ZPROP_handle* handle);

/// Writes the file.
/// range   `file` null or empty means the file that was opened.
/// codes   55 for a bad handle; 51 when the file cannot be written.
int zstzPropStore_6_0(ZPROP_handle* handle, char const* file);

/// Replaces the values of a key by one text; stanza and key are made when missing.
/// range   a null or empty `value` makes a key without a value. What the file could not give back
///         when read again is refused: "]" or a line feed in a stanza; a key that is empty, begins
///         with "#" or "[", has "=", a line feed or outer white space; a value with a line feed or
///         too long for a line. Outer white space of a value is gone when the file is read again.
/// codes   55 for a bad handle, a null stanza or key; 52 when refused: nothing is changed then.
int zstzPropSetStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* value);

/// Replaces the values of a key by "yes" or, for 0, "no".
/// codes   as zstzPropSetStringValue_6_0.
int zstzPropSetBooleanValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                int value);

/// Replaces the values of a key by a number's decimal text.
/// codes   as zstzPropSetStringValue_6_0.
int zstzPropSetIntegerValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                unsigned int value);

/// Removes a key with all its values; a missing one is no error.
/// codes   55 for a bad handle, a null stanza or key; 52 when it fails.
int zstzPropRemoveKey_6_0(ZPROP_handle* handle, char const* stanza, char const* key);

/// Removes a stanza with all its keys; a missing one is no error.
/// codes   55 for a bad handle or a null stanza; 52 when it fails.
int zstzPropRemoveStanza_6_0(ZPROP_handle* handle, char const* stanza);

/// Adds a comment to a key.
/// range   `comment` gets a leading "#" when it has none.
/// codes   55 for a bad handle, a null stanza, key or comment; 52 when it fails.
int zstzPropAddLineComment_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* comment);

/// Adds a comment to a stanza.
/// range   as zstzPropAddLineComment_6_0.
/// codes   55 for a bad handle, a null stanza or comment; 52 when it fails.
int zstzPropAddStanzaComment_6_0(ZPROP_handle* handle, char const* stanza, char const* comment);

/// Adds a comment to the file.
/// range   as zstzPropAddLineComment_6_0.
/// codes   55 for a bad handle or a null comment; 52 when it fails.
int zstzPropAddFileComment_6_0(ZPROP_handle* handle, char const* comment);

/// Serves `count` records in order, up to the first that fails; a count below 1 serves none.
/// owns    results of the types 3 and 4 are the caller's, released with
///         zstzPropFreeValuesList_6_0; they are null from the start in records not reached.
/// codes   55 for a bad handle, a null array with a non-zero count, a record without stanza, key
///         or result; 54, 53 or 52 of the record that failed.
/// throws  ZInvalidParameterException_6_0 for a record type other than 1 to 4.
/// kept    that one exception leaves the call as an exception.
int zstzPropGetValues_6_0(ZPROP_handle* handle, ZPROPValue* records, int count);

/// Releases the results of the types 3 and 4 and clears them.
/// range   a bad handle, a null array and a count below 1 are ignored.
void zstzPropFreeValuesList_6_0(ZPROP_handle* handle, ZPROPValue* records, int count);

// The functions below return their result and put the code into `*code`. When `code` or a name
// they need is null they return at once and report nothing: the boolean and the integer getter 55,
// the others 0. A bad handle or iterator puts 55 into `*code` and returns 0.

/// Returns the last value of a key, or null when it is empty.
/// range   `defaultFlag` 1 makes a missing key an empty value; any other makes it an error.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   54 missing; 52 no memory; 55 when stanza or key is empty.
char* zstzPropGetStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                 int defaultFlag, int* code);

/// Returns the last value of a key as a truth value, 1 or 0.
/// range   `defaultFlag` 1 makes a missing key 0; any other makes it an error.
/// codes   54 missing; 53 not a truth value; 55 when stanza or key is empty.
int zstzPropGetBooleanValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                int defaultFlag, int* code);

/// Returns the last value of a key as a number.
/// range   decimal, "0x" hexadecimal, leading "0" octal. `defaultFlag` 1 makes a missing key 0; any
///         other makes it an error.
/// codes   54 missing; 53 not a number; 55 when stanza or key is empty.
unsigned int zstzPropGetIntegerValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                         int defaultFlag, int* code);

/// Returns whether the key, or with a null `key` the stanza, exists: 1 or 0.
int zstzPropExists_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code);

/// Returns the number of stanzas.
int zstzPropNumStanzas_6_0(ZPROP_handle* handle, int* code);

/// Returns the number of keys in a stanza.
int zstzPropNumKeys_6_0(ZPROP_handle* handle, char const* stanza, int* code);

/// Returns the number of values of a key.
int zstzPropNumValues_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code);

/// Makes an iterator over the values of a key or, with a null `key`, over the keys of a stanza.
///
/// It stands before the first one. Until it is closed, other threads wait for the file object; the
/// thread that made it goes on using the handle as it likes. In any other thread the iterator's
/// functions answer 57 and do nothing.
/// range   a stanza or key that is missing has nothing to walk; nor has a key when its name or its
///         stanza's is empty, and nothing can be added to it.
/// owns    owned by the caller; released with zstzPropIter_close_6_0.
/// codes   55 for a bad handle, a null stanza or out pointer, and for the keys of a stanza with an
///         empty name; 52 no memory. `*iterator` is null then, or untouched when the handle is bad
///         or an argument is null.
int zstzPropIter_init_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                          ZPROP_iter_handle** iterator);

/// Closes an iterator.
/// codes   55 when it is no open iterator, or a damaged one; 57 in another thread, where it stays
///         open.
/// kept    a damaged iterator is closed although the code is 55: it holds a lock.
int zstzPropIter_close_6_0(ZPROP_iter_handle* iterator);

/// Replaces the current value.
/// range   a null `value` is an empty one; what a line cannot hold is refused.
/// codes   55 for a bad iterator; 57 for an iterator over keys or without a current value; 52 when
///         refused.
int zstzPropIter_chgValue_6_0(ZPROP_iter_handle* iterator, char const* value);

/// Adds a value behind the current one and makes it current.
/// range   as zstzPropIter_chgValue_6_0.
/// codes   55 for a bad iterator; 57 for an iterator over keys; 52 when refused.
int zstzPropIter_addValue_6_0(ZPROP_iter_handle* iterator, char const* value);

/// Removes the current value. The one before it becomes current for the next change, but is not
/// given again: zstzPropIter_getValue_6_0 returns null until the next step.
/// codes   55 for a bad iterator; 57 for an iterator over keys or without a current value; 52 when
///         it fails.
int zstzPropIter_rmvValue_6_0(ZPROP_iter_handle* iterator);

/// Moves to the next key or value and returns 1, or 0 when there is none.
/// codes   57 in another thread; 52 no memory: the value is passed over.
int zstzPropIter_next_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the current key; of an iterator over values, its key.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   57 before the first key.
char* zstzPropIter_getKey_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the current key's first value or the current value; null when it is empty.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   57 before the first key.
char* zstzPropIter_getValue_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the number of keys; of an iterator over values, 1.
int zstzPropIter_numKeys_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the number of values of the current key.
int zstzPropIter_numValues_6_0(ZPROP_iter_handle* iterator, int* code);

/// Releases text that a function of this header returned; any other pointer is ignored.
void zstzPropFree_6_0(char* text);

#ifdef __cplusplus
}
#endif
