// zproperties_c: stanza configuration files through plain functions, handles and return codes.
//
// Subsystem: properties.  Stands on: ZStanzaFileProperties, ZStanzaProblem, ZPropertiesIterator,
// ZPropertiesImpl, ZDialectData, ZProcessReadWriteFileLock, ZStanzaDialect, ZLCString, ZLock,
// ZException, ZArrayList, ZBuffer.
//
// For C99 and C++. zstzPropOpen_6_0 reads a file into memory and returns a handle; the other
// functions read and change the values; zstzPropStore_6_0 writes them back and keeps the comments,
// blank lines and order of the file.
//
// Ownership: the caller owns a handle until it is closed. The handle and its iterators share a file
// object; the last of them releases it. Returned strings are copies in blocks of the interface,
// released with zstzPropFree_6_0; the results of a list of values are released with
// zstzPropFreeValuesList_6_0.
// Threads: every function may be called from any thread, with any handle; a handle may be closed
// while other threads use it. An iterator belongs to the thread that created it and locks the file
// object until it is closed.
// Handles: a value that is not an open handle of the right kind (null, closed, arbitrary) is
// detected without dereferencing it; the function returns zpropBadHandle.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZPROP_handle ZPROP_handle;            // an open file
typedef struct ZPROP_iter_handle ZPROP_iter_handle;  // an open iterator
typedef struct ZPROP_stz_handle ZPROP_stz_handle;    // a stanza; no function creates one

/// The return codes of all functions.
enum ZPROPCode {
    zpropOk = 0,
    zpropOpenStoreFailed = 51,  // the file could not be opened, read or written
    zpropChangeFailed = 52,     // a change was refused or failed; no memory
    zpropInvalidValue = 53,     // the value is not of the requested type
    zpropMissing = 54,          // the key does not exist or has no value
    zpropBadHandle = 55,        // not an open handle, or an argument is missing
    zpropIterator = 57,         // the iterator has no current entry, or cannot do this
    zpropUnsupported = 58       // this version of the library does not know the dialect or option
};

/// The modes of opening a file; both have the same effect.
enum { zpropOpenRead = 1, zpropOpenUpdate = 2 };
typedef int ZPROPOpenMode;

/// The type of the value that a record of zstzPropGetValues_6_0 requests.
enum { zpropBoolean = 1, zpropInteger = 2, zpropString = 3, zpropStringList = 4 };
typedef int ZPROPValueType;

/// One request of zstzPropGetValues_6_0.
typedef struct ZPROPValue {
    ZPROPValueType type;
    char const* stanza;
    char const* key;
    int flag;      // 1: a missing key gives 0 or an empty value; any other: an error
    void* result;  // receives the result: int* (boolean), unsigned int* (integer), char**
                   // (string: null if empty), char*** (list: ends with a null pointer; in a
                   // dialect it has every value, also above a reset)
} ZPROPValue;

/// Opens `file`, reads it and stores a handle in `*handle`. The path "etcd://FLEET/NAME" names a
/// configuration in a cluster, if libzfleet is installed; see docs/fleet.md.
/// owns    owned by the caller; released with zstzPropClose_6_0.
/// codes   55 if an argument is null or `mode` is neither 1 nor 2; `*handle` is untouched then. 51
///         if the file cannot be read, 58 for a cluster without libzfleet; `*handle` is null then.
int zstzPropOpen_6_0(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode);

/// Closes a handle. Unsaved changes are lost. A bad handle is ignored.
/// threads calls in progress in other threads continue; iterators of the handle stay usable. Waits
///         for a running observer, as zstzPropSetObserver_6_0.
void zstzPropClose_6_0(ZPROP_handle* handle);

/// Writes the file.
/// range   `file` null or empty: the file that was opened.
/// codes   55 for a bad handle; 51 if the file cannot be written.
int zstzPropStore_6_0(ZPROP_handle* handle, char const* file);

/// Replaces the values of a key by a single value. Creates the stanza and the key if they do not
/// exist.
/// range   a null or empty `value` creates a key without a value. Strings that the file could not
///         represent are invalid: a stanza with "]" or a newline; a key that is empty, starts with
///         "#" or "[", or has "=", a newline or leading or trailing whitespace; a value with a
///         newline or too long for a line. A file does not preserve leading and trailing whitespace
///         of a value.
/// codes   55 for a bad handle, a null stanza or key; 52 for an invalid string, or if the key has
///         obfuscated values: nothing is changed then.
/// kept    a null or empty `value` removes obfuscated values.
int zstzPropSetStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* value);

/// Replaces the values of a key by "yes", or by "no" if `value` is 0.
/// codes   as zstzPropSetStringValue_6_0.
int zstzPropSetBooleanValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                int value);

/// Replaces the values of a key by `value` in decimal.
/// codes   as zstzPropSetStringValue_6_0.
int zstzPropSetIntegerValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                unsigned int value);

/// Removes a key with all its values. A missing key is not an error.
/// codes   55 for a bad handle, a null stanza or key; 52 if it fails.
int zstzPropRemoveKey_6_0(ZPROP_handle* handle, char const* stanza, char const* key);

/// Removes a stanza with all its keys. A missing stanza is not an error.
/// codes   55 for a bad handle or a null stanza; 52 if it fails.
int zstzPropRemoveStanza_6_0(ZPROP_handle* handle, char const* stanza);

/// Adds a comment to a key.
/// range   "#" is prepended to each line of `comment` that does not start with it.
/// codes   55 for a bad handle, a null stanza, key or comment; 52 if it fails.
int zstzPropAddLineComment_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* comment);

/// Adds a comment to a stanza.
/// range   as zstzPropAddLineComment_6_0.
/// codes   55 for a bad handle, a null stanza or comment; 52 if it fails.
int zstzPropAddStanzaComment_6_0(ZPROP_handle* handle, char const* stanza, char const* comment);

/// Adds a comment to the file.
/// range   as zstzPropAddLineComment_6_0.
/// codes   55 for a bad handle or a null comment; 52 if it fails.
int zstzPropAddFileComment_6_0(ZPROP_handle* handle, char const* comment);

/// Processes `count` records in order, up to the first that fails; none if `count` is below 1.
/// owns    results of the types 3 and 4 are owned by the caller, released with
///         zstzPropFreeValuesList_6_0. After a failure they are null in the remaining records.
/// throws  ZInvalidParameterException_6_0 for a record type other than 1 to 4.
/// codes   55 for a bad handle, a null array with a non-zero count, a record without stanza, key
///         or result; 54, 53 or 52 of the record that failed.
/// kept    this exception is not translated into a code.
int zstzPropGetValues_6_0(ZPROP_handle* handle, ZPROPValue* records, int count);

/// Releases the results of the types 3 and 4 and sets them to null.
/// range   does nothing for a bad handle, a null array or a count below 1.
void zstzPropFreeValuesList_6_0(ZPROP_handle* handle, ZPROPValue* records, int count);

// The functions below return their result and store the code in `*code`. If `code` or a required
// name is null, they return immediately and store no code: the boolean and the integer function
// return 55, the others 0. For a bad handle or iterator they store 55 and return 0.

/// Returns the last value of a key; null if it is empty.
/// range   `defaultFlag` 1 makes a missing key an empty value; any other makes it an error.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   54 missing; 52 memory is exhausted; 55 if stanza or key is empty.
char* zstzPropGetStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                 int defaultFlag, int* code);

/// Returns the last value of a key as a boolean, 1 or 0.
/// range   `defaultFlag` 1 makes a missing key 0; any other makes it an error.
/// codes   54 missing; 53 not a boolean; 55 if stanza or key is empty.
int zstzPropGetBooleanValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                int defaultFlag, int* code);

/// Returns the last value of a key as a number.
/// range   decimal, "0x" hexadecimal, leading "0" octal. `defaultFlag` 1 makes a missing key 0; any
///         other makes it an error.
/// codes   54 missing; 53 not a number; 55 if stanza or key is empty.
unsigned int zstzPropGetIntegerValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                         int defaultFlag, int* code);

/// Returns 1 if the key exists or, if `key` is null, the stanza; else 0.
int zstzPropExists_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code);

/// Returns the number of stanzas.
int zstzPropNumStanzas_6_0(ZPROP_handle* handle, int* code);

/// Returns the number of keys in a stanza.
int zstzPropNumKeys_6_0(ZPROP_handle* handle, char const* stanza, int* code);

/// Returns the number of values of a key.
int zstzPropNumValues_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code);

/// Creates an iterator over the values of `key` or, if `key` is null, over the keys of `stanza`.
/// It starts before the first entry.
/// range   a missing stanza or key gives an empty iterator; so does an empty name if `key` is not
///         null, and then no value can be added either.
/// owns    owned by the caller; released with zstzPropIter_close_6_0.
/// codes   55 for a bad handle, a null stanza or out pointer, and for an empty stanza if `key` is
///         null; 52 if memory is exhausted. `*iterator` is null then, or untouched if the handle
///         is bad or an argument is null.
/// threads the iterator locks the file object until it is closed. The creating thread may keep
///         using the handle; in other threads the iterator's functions return 57 and do nothing. A
///         thread closes its iterators before it ends: nothing else can unlock the file object.
int zstzPropIter_init_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                          ZPROP_iter_handle** iterator);

/// Closes an iterator.
/// codes   55 for a bad or damaged iterator; 57 in another thread: the iterator stays open then.
/// kept    a damaged iterator is closed although the code is 55, because it holds a lock.
int zstzPropIter_close_6_0(ZPROP_iter_handle* iterator);

/// Replaces the current value.
/// range   a null `value` is empty. A value that a line cannot represent is invalid.
/// codes   55 for a bad iterator; 57 for an iterator over keys or without a current value; 52 for
///         an invalid value.
int zstzPropIter_chgValue_6_0(ZPROP_iter_handle* iterator, char const* value);

/// Inserts a value after the current value and makes it current.
/// range   as zstzPropIter_chgValue_6_0.
/// codes   55 for a bad iterator; 57 for an iterator over keys; 52 for an invalid value.
int zstzPropIter_addValue_6_0(ZPROP_iter_handle* iterator, char const* value);

/// Removes the current value. The previous value becomes current for the next change, but
/// zstzPropIter_getValue_6_0 returns null until the next step.
/// codes   55 for a bad iterator; 57 for an iterator over keys or without a current value; 52 if it
///         fails.
int zstzPropIter_rmvValue_6_0(ZPROP_iter_handle* iterator);

/// Moves to the next key or value and returns 1; returns 0 at the end.
/// codes   57 in another thread; 52 if memory is exhausted: the value is skipped.
int zstzPropIter_next_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the current key; for an iterator over values, always the key of the values.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   57 before the first key.
char* zstzPropIter_getKey_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the first value of the current key or, for an iterator over values, the current value;
/// null if it is empty.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   57 before the first key.
char* zstzPropIter_getValue_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the number of keys; for an iterator over values, 1.
int zstzPropIter_numKeys_6_0(ZPROP_iter_handle* iterator, int* code);

/// Returns the number of values of the current key.
int zstzPropIter_numValues_6_0(ZPROP_iter_handle* iterator, int* code);

/// Releases a string that a function of this header returned; any other pointer is ignored.
void zstzPropFree_6_0(char* text);

/// A failure. Later versions of this header append fields.
typedef struct ZPROPError {
    unsigned int size;           // sizeof(ZPROPError), set by the caller
    int code;                    // the return code; 0 if no call has failed in this thread
    unsigned int messageNumber;  // of docs/failures.md; 0 if the failure has no message: its text
                                 // has the reason
    int errorNumber;             // an errno; 0 if no system call failed
    unsigned long line;          // of the file, counted from 1; 0 if no line is at fault
    unsigned long column;        // in characters, counted from 1; 0 if it is not known
    char const* file;            // these four are never null, but may be empty
    char const* stanza;
    char const* key;
    char const* text;  // the reason, in English
} ZPROPError;

/// Stores the last failure of the calling thread in `*error`: of the last call that returned, or
/// stored, another code than 0. Successful calls do not change it.
/// range   fills the fields that both the caller's header and this library have, and sets `size` to
///         the bytes of these fields.
/// owns    the strings are borrowed until the next call of a function of this header in this
///         thread, also by an observer or another callback, or until the thread ends. If memory was
///         exhausted, long ones are cut.
/// codes   55 if `error` is null or `size` is less than the size of the first version. `*error` is
///         unchanged then, and so is the failure.
/// threads each thread has a failure of its own.
int zstzPropGetLastError_6_0(ZPROPError* error);

// ---- Tables of the text services ----------------------------------------------------------------

/// Makes `directory` the directory of the text-services tables, in place of the environment
/// variable QVRDIR: for a library that a program loads, which cannot rely on the variable. Call it
/// before any other function of the library. Without a directory, stores cannot be opened.
/// range   at most 4095 bytes.
/// codes   55 if `directory` is null, empty or too long; 51 if a table in it cannot be used; 52 if
///         the tables are in use already, or if memory is exhausted. Nothing is changed then.
/// threads any.
int zstzPropSetTables_6_0(char const* directory);

// ---- Files and text -----------------------------------------------------------------------------

/// Opens `file` as zstzPropOpen_6_0 does, as a file of a dialect: "stanza", or the format of other
/// programs, such as "systemd" or "git". In all dialects but "stanza", stores change only the lines
/// of changed values; several values may be empty, and a key may have a value twice; a null value
/// of zstzPropSetStringValue_6_0 leaves the key without a value; the getters return the value that
/// counts; there are no obfuscated values. If at most one line of a key counts, that function
/// leaves the others. zstzPropRemoveValue_6_0 removes values that count only. A key without values
/// is a true boolean where it stands for an option. Several stanzas may have one name: NAME]2 is
/// the second; changes of NAME are refused, and other functions use the first.
/// range   `dialect` null: the dialect that the name of the file implies, "stanza" if several
///         formats use such names. Switches may follow the name, as in "python,trailing=#;".
///         docs/file-formats.md has all names.
/// owns    owned by the caller; released with zstzPropClose_6_0.
/// codes   58 if the dialect is unknown, else as zstzPropOpen_6_0; `*handle` is null after 58.
int zstzPropOpenAs_6_0(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode,
                       char const* dialect);

/// Creates an empty store without a file. The first successful zstzPropStore_6_0 names its file.
/// range   `dialect` as zstzPropOpenAs_6_0; null: "stanza".
/// owns    owned by the caller; released with zstzPropClose_6_0.
/// codes   55 if `handle` is null; 58 if the dialect is unknown; 51 if memory is exhausted.
///         `*handle` is null after 51 and 58.
int zstzPropNew_6_0(ZPROP_handle** handle, char const* dialect);

/// Reads the file again. Unsaved changes are lost.
/// codes   55 for a bad handle; 51 if the file cannot be read or the store has no file: the values
///         are unchanged then.
int zstzPropReload_6_0(ZPROP_handle* handle);

/// Returns 1 if the store has unsaved changes, else 0. Stores its code as the getters do.
int zstzPropIsModified_6_0(ZPROP_handle* handle, int* code);

/// Returns the name of the file; null if the store has no file. Stores its code as the getters do.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   52 if memory is exhausted.
char* zstzPropGetFileName_6_0(ZPROP_handle* handle, int* code);

/// Returns the name of the dialect, without switches. Stores its code as the getters do.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   52 if memory is exhausted.
char* zstzPropGetDialect_6_0(ZPROP_handle* handle, int* code);

/// The options of a store.
enum {
    zpropKeepComments = 1,  // 1, the default: the next load keeps comments and blank lines; 0: not
    zpropKeepLines = 2,    // 1: the next load keeps the lines as they are, and a store changes only
                           // lines with changed values; 0, the default: not
    zpropWaitSeconds = 3,  // how long loads and stores wait for a file that another process uses;
                           // 0, the default: they fail
    zpropWaitMilliseconds = 4  // the same option in milliseconds
};
typedef int ZPROPOption;

/// Sets an option of a store. The contents are unchanged; zstzPropReload_6_0 and
/// zstzPropLoadText_6_0 are loads.
/// codes   55 for a bad handle or a value out of range; 58 if the option is unknown.
int zstzPropSetOption_6_0(ZPROP_handle* handle, ZPROPOption option, int value);

/// Sets an option of the stores that the calling thread opens from now on: for loads by
/// zstzPropOpen_6_0 and zstzPropOpenAs_6_0, before there is a handle. zstzPropFindProblems_6_0
/// waits as long as these loads do.
/// codes   55 for a value out of range; 58 if the option is unknown.
/// threads each thread has options of its own, which start with the defaults.
int zstzPropSetDefaultOption_6_0(ZPROPOption option, int value);

/// Replaces the contents of the store by the text of a file, which it copies. They are unsaved
/// changes then.
/// range   `text` null: only with `length` 0, the empty text.
/// codes   55 for a bad handle or a missing text; 51 if the text is invalid, is larger than a file
///         may be, or names a companion file, whose values the text does not have: the values are
///         unchanged then.
int zstzPropLoadText_6_0(ZPROP_handle* handle, char const* text, size_t length);

/// Returns the contents as the text of a file, and stores its length unless `length` is null.
/// Returns null, with length 0, if it is empty. Stores its code as the getters do. A store writes
/// this text, except that it adds or removes the entry that names the companion file, and with
/// zpropKeepLines keeps the changes that other programs have made in the file.
/// range   the text does not contain obfuscated values: they are in the companion file.
///         zstzPropLoadText_6_0 refuses contents that name a companion.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   52 if memory is exhausted, or if a value cannot be written in its line.
char* zstzPropStoreText_6_0(ZPROP_handle* handle, size_t* length, int* code);

/// The kinds of problems.
enum { zpropProblemError = 1, zpropProblemNote = 2 };

/// One complaint about a file. Later versions of this header append fields.
typedef struct ZPROPProblem {
    unsigned int size;           // the bytes of the fields that the library has filled
    int kind;                    // zpropProblemError: the file cannot be opened; zpropProblemNote:
                                 // a store would change or drop the line
    int cause;                   // a number of ZStanzaProblem.h
    unsigned int messageNumber;  // as in ZPROPError
    unsigned long line;          // counted from 1
    unsigned long column;        // in characters, counted from 1
    char const* text;            // the problem and the remedy, in one line
} ZPROPProblem;

/// Receives a problem.
/// owns    `problem` and its text are borrowed until the callback returns.
/// codes   0 to continue; any other value stops the search.
/// throws  nothing. An exception ends the search with 51.
typedef int (*ZPROPProblemCallback)(ZPROPProblem const* problem, void* context);

/// Calls `callback` with every problem of the file, in file order, after it has read the file.
/// range   `dialect` as zstzPropOpenAs_6_0. `context` is passed to the callback.
/// codes   0 if the file was read, whatever its problems are, or if the callback stopped the
///         search; 55 if `file` is null or empty or `callback` is null; 51 if the file cannot be
///         read; 58 if the dialect is unknown.
int zstzPropFindProblems_6_0(char const* file, char const* dialect, ZPROPProblemCallback callback,
                             void* context);

/// Calls `callback` as zstzPropFindProblems_6_0 does, and also with the differences of the file
/// from a template, all in file order: unknown stanzas and keys, values that the template does not
/// allow, and required keys that are missing. Each is a zpropProblemError without a message number.
/// A template is a file with comments such as "# port = 8080"; docs/file-formats.md describes it.
/// range   `schema`: the path of the template.
/// codes   as zstzPropFindProblems_6_0; 55 also if `schema` is null or empty; 51 also if the
///         template cannot be read or has no such comment: the last error has its path then.
int zstzPropCheckTemplate_6_0(char const* file, char const* dialect, char const* schema,
                              ZPROPProblemCallback callback, void* context);

// ---- Several values, stanzas, renaming ----------------------------------------------------------

/// Creates an iterator over the stanzas in file order; zstzPropIter_next_6_0, getKey (the stanza),
/// numKeys (the number of stanzas) and close support it, and the other functions return 57. It
/// starts before the first stanza, and iterates over the stanzas that exist now.
/// owns    owned by the caller; released with zstzPropIter_close_6_0.
/// codes   55 for a bad handle or a null out pointer: `*iterator` is untouched then; 52 if memory
///         is exhausted: it is null then.
/// threads as zstzPropIter_init_6_0.
int zstzPropIter_initStanzas_6_0(ZPROP_handle* handle, ZPROP_iter_handle** iterator);

/// Replaces the values of a key by `count` values. Creates the stanza and the key if they do not
/// exist.
/// range   `count` 0 leaves the key without values; `values` may be null then. An only value may be
///         empty, which does the same; several values must not be empty. Names and values as
///         zstzPropSetStringValue_6_0. In a dialect, one of several values may be any value that
///         the key has: its line stays.
/// codes   55 for a bad handle, a negative count, a null name, array or value; 52 if a string is
///         invalid or the key has obfuscated values. Nothing is changed then.
int zstzPropSetStringValues_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                char const* const* values, int count);

/// Appends a value to the values of a key, unless the key already has it: in all dialects but
/// "stanza", it may have the value twice. Creates the stanza and the key if they do not exist.
/// codes   55 for a bad handle or a null argument; 52 if a string is invalid, if a name is empty,
///         if the value of a stanza file is empty, if the key has obfuscated values, or if it
///         exists and only one of its lines would count. Nothing is changed then.
int zstzPropAddStringValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* value);

/// Removes the first value of a key that equals `value`. The key is removed with its only value,
/// unless the file also has a line of the key without a value, and a store keeps the lines of the
/// file: that line stays.
/// codes   55 for a bad handle or a null argument; 54 if the key does not have the value; 52 if it
///         fails.
int zstzPropRemoveValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                            char const* value);

/// Replaces the values of a key by one obfuscated value, which a store writes to the companion
/// file.
/// range   a null or empty `value` leaves the key without values.
/// codes   55 for a bad handle, a null stanza or key; 52 if a name is invalid or the key has plain
///         values. Nothing is changed then.
int zstzPropSetObfuscatedValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                   char const* value);

/// Returns 1 if the key or, if `key` is null, a key of the stanza has obfuscated values, else 0.
/// Stores its code as the getters do.
int zstzPropIsObfuscated_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int* code);

/// Appends a stanza, unless it exists.
/// codes   55 for a bad handle or a null stanza; 52 if the name is invalid.
int zstzPropAddStanza_6_0(ZPROP_handle* handle, char const* stanza);

/// Renames a stanza in place: keys, comments and position stay.
/// codes   55 for a bad handle or a null name; 54 if the stanza is missing; 52 if the new name is
///         invalid or another stanza has it. Nothing is changed then.
int zstzPropRenameStanza_6_0(ZPROP_handle* handle, char const* stanza, char const* newStanza);

/// Renames a key in place: values, comments and position stay.
/// codes   as zstzPropRenameStanza_6_0, for the key.
int zstzPropRenameKey_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                          char const* newKey);

// ---- Comments and lines -------------------------------------------------------------------------

/// Returns the comment at the start of the file, up to the first blank line: its lines with their
/// "#", joined by newlines. Returns null if the file has no comment; comments right above the first
/// stanza or key belong to it. Stores its code as the getters do.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   52 if memory is exhausted.
char* zstzPropGetFileComment_6_0(ZPROP_handle* handle, int* code);

/// Returns the comment right above the header of a stanza, as zstzPropGetFileComment_6_0.
/// codes   54 if the stanza is missing; 52 if memory is exhausted; 55 if the name is empty.
char* zstzPropGetStanzaComment_6_0(ZPROP_handle* handle, char const* stanza, int* code);

/// Returns the comment right above the line of a key, as zstzPropGetFileComment_6_0.
/// codes   54 if the key is missing; 52 if memory is exhausted; 55 if a name is empty.
char* zstzPropGetLineComment_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                 int* code);

/// Replaces the comment that zstzPropGetFileComment_6_0 returns.
/// range   `comment` null removes it. "#" is prepended to each line that does not start with it.
///         With zpropKeepLines, a store adapts new lines to the comments and blank lines near them.
/// codes   55 for a bad handle; 52 if a line is too long. Nothing is changed then.
int zstzPropSetFileComment_6_0(ZPROP_handle* handle, char const* comment);

/// Replaces the comment of a stanza, as zstzPropSetFileComment_6_0.
/// codes   55 for a bad handle or a null stanza; 54 if it is missing; 52 if a line is too long or
///         the name is empty. Nothing is changed then.
int zstzPropSetStanzaComment_6_0(ZPROP_handle* handle, char const* stanza, char const* comment);

/// Replaces the comment of a key, as zstzPropSetStanzaComment_6_0.
/// codes   also 52 if the key has obfuscated values, and so no line.
int zstzPropSetLineComment_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* comment);

/// Returns the number of the line that has a value of a key, in the text of
/// zstzPropStoreText_6_0; 0 if no line has it: the value is obfuscated, or empty where no line can
/// hold an empty value. Stores its code as the getters do.
/// units   lines, counted from 1; values, counted from 0 in `index`.
/// range   a key without values has its line at `index` 0.
/// codes   54 if the key or the value is missing; 52 as zstzPropStoreText_6_0; 55 if a name is
///         empty or `index` negative.
/// cost    O(file).
unsigned long zstzPropGetLine_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                  int index, int* code);

/// Returns the spelling of a value, which is its bytes in the text of zstzPropStoreText_6_0; null
/// if it has none. Stores its code as the getters do.
/// units   values, counted from 0 in `index`.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   54 if the key or the value is missing, or if no line has the value: it is obfuscated, or
///         empty where no line can hold an empty value; 52 as zstzPropStoreText_6_0; 55 if a name
///         is empty or `index` negative.
/// cost    O(file).
char* zstzPropGetRawValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int index,
                              int* code);

/// Replaces the spelling of a value, and so the value. The next store writes these bytes. If
/// another program has changed the file since, the store keeps both changes; the value gets another
/// spelling if this spelling would not read back in that file.
/// units   values, counted from 0 in `index`.
/// codes   55 for a bad handle, a null argument or a negative `index`; 54 as
///         zstzPropGetRawValue_6_0; 52 if the spelling does not read back as one value of that
///         line, or would change how another line reads. Nothing is changed then.
/// cost    O(file).
int zstzPropSetRawValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int index,
                            char const* spelling);

/// Stores the values of a key that count: the index of the first in `*first`, and their number in
/// `*count`. An index counts all values of the key: also earlier or later ones that have no effect
/// in the dialect, and those above a reset.
/// codes   55 for a bad handle or a null argument; 54 if the key is missing. Both numbers are
///         unchanged then.
int zstzPropGetCountingRange_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                 int* first, int* count);

// ---- Observers ----------------------------------------------------------------------------------

/// The kinds of changes. Later versions may add kinds.
enum {
    zpropAdded = 0,      // a stanza was added; the key is empty
    zpropRemoved = 1,    // a key was removed or, if the key is empty, a stanza
    zpropSet = 2,        // the values of a key were changed; the stanza may be new
    zpropCommented = 3,  // a comment was changed: of a key, of a stanza if the key is empty, or of
                         // the file if both are
    zpropLoaded = 4      // a file or string replaced the contents; both names are empty
};

/// Receives a change of a store.
/// owns    the names are borrowed until the callback returns.
/// throws  nothing. An exception is reported through the message service.
/// threads runs in the thread that changes the store, after the change and without a lock. Several
///         threads may run it at the same time. It may call any function.
typedef void (*ZPROPObserver)(int change, char const* stanza, char const* key, void* context);

/// Sets the observer of a handle, which replaces an earlier one; null removes it. It is called once
/// for each change by a function of this header, and twice for a new name: for the old name and for
/// the new one. Calls that change nothing are not reported, and neither are changes of other
/// programs that a store finds in the file.
/// range   `context` is passed to the callback.
/// codes   55 for a bad handle; 52 if memory is exhausted: the earlier observer stays then.
/// threads changes under an iterator are reported when it is closed. This function and
///         zstzPropClose_6_0 wait until the calls of the earlier observer in other threads have
///         returned, and it is not called any more. Called by that observer they do not wait. So an
///         observer must not wait for a thread that replaces it or closes its handle; and a thread
///         that does so must not have an iterator that the observer waits for.
int zstzPropSetObserver_6_0(ZPROP_handle* handle, ZPROPObserver observer, void* context);

// ---- Dialects -----------------------------------------------------------------------------------

/// Returns the name of a dialect, counted from 0, which is "stanza"; null past the last.
/// owns    borrowed forever.
char const* zstzPropGetDialectName_6_0(int index);

/// Checks the name of a dialect and the switches after it, as in "python,trailing=#;".
/// codes   55 if `dialect` is null; 58 if the name, a switch or a value is unknown, or if the
///         switches do not fit together.
int zstzPropCheckDialect_6_0(char const* dialect);

/// Stores the dialect that the name of `file` implies in `*dialect`: its name, perhaps with
/// switches, as zstzPropOpenAs_6_0 takes it. Stores null if several formats use such names. Opens
/// no file.
/// range   `text` has the contents of the file, at least up to the first header. It matters only
///         for names that end with ".service", and can be null if `length` is 0.
/// owns    the name is borrowed forever.
/// codes   55 if an argument is missing, 52 if memory is exhausted: `*dialect` is unchanged then.
int zstzPropRecognise_6_0(char const* file, char const* text, size_t length, char const** dialect);

// ---- Merging ------------------------------------------------------------------------------------

/// Merges two versions of a file with a common base, by stanza and key: the differences of `base`
/// and `theirs` become edits of `ours`. Every other line of `ours` stays byte for byte. A comment
/// belongs to the key or header below it. Values that both sides add, another order and blank lines
/// never conflict. Two different changes of a value do, and so does a change in a stanza or key
/// that the other side removed: the result then has the lines of both sides between conflict marks
/// as git writes them, and cannot be read as a file before it is edited.
/// range   the contents of files of the dialect; null only with length 0. `dialect` null: "stanza".
///         `length` and `conflicts` may be null. `*text` is null if the result is empty, and after
///         a failure.
/// owns    `*text` is released with zstzPropFree_6_0.
/// codes   0 also with conflicts, whose number is in `*conflicts`; 55 if an argument is missing; 58
///         if the dialect is unknown; 51 if a version is invalid, memory is exhausted, a value
///         does not fit into its line, or `theirs` changes bytes after a zero byte, which are not
///         read, or lines that are passed over, or comments above them. zstzPropGetLastError_6_0
///         has the name of the argument as the file then.
/// cost    O(n log n) in the bytes of the three versions.
int zstzPropMergeText_6_0(char const* base, size_t baseLength, char const* ours, size_t oursLength,
                          char const* theirs, size_t theirsLength, char const* dialect, char** text,
                          size_t* length, int* conflicts);

/// Stores the difference of two strings as a unified diff, which patch(1) reads, in `*text`, and
/// its length unless `length` is null.
/// range   `before` and `after` null only with length 0. The names are for the header of the diff;
///         "/dev/null" is the name of a file that does not exist. `*text` is null if they are
///         equal, and after a failure.
/// owns    `*text` is released with zstzPropFree_6_0.
/// codes   55 if an argument is missing; 51 if memory is exhausted.
/// cost    O(lines * different lines); beyond 2000 different lines in a part, the diff replaces the
///         whole part.
int zstzPropDiffText_6_0(char const* before, size_t beforeLength, char const* beforeName,
                         char const* after, size_t afterLength, char const* afterName, char** text,
                         size_t* length);

// ---- All values ---------------------------------------------------------------------------------

/// Returns the values as JSON text, and stores its length unless `length` is null. Stores its code
/// as the getters do. Without a stanza the text is {"stanza":{"key":["value",...],...},...},
/// with a stanza {"key":["value",...],...}, with a stanza and a key ["value",...]. Stanzas and keys
/// are in file order.
/// range   `key` must be null if `stanza` is. A list has the values that count in the dialect;
///         it is empty if the key has no values. Obfuscated values are included. Characters above
///         0x7f are written as they are; a byte that is not part of UTF-8 text is written as the
///         escape of the surrogate U+DC00 plus its value, and reads as that surrogate.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   54 if the stanza or the key is missing; 52 if memory is exhausted.
/// threads no other thread changes a value while the text is built.
/// cost    O(names and values).
char* zstzPropGetAll_6_0(ZPROP_handle* handle, char const* stanza, char const* key, size_t* length,
                         int* code);

/// As zstzPropGetAll_6_0, in the form of version 4 of Python's module marshal: the strings, lists
/// and dictionaries of the JSON text. Python loads it in half the time.
/// range   the bytes include zeros, so `*length` is needed to read them. Python does not document
///         the form, and may change it: a program loads a sample first, and uses
///         zstzPropGetAll_6_0 if the result is not as expected.
/// owns    a copy; released with zstzPropFree_6_0.
/// codes   as zstzPropGetAll_6_0.
/// threads no other thread changes a value while the block is built.
/// cost    O(names and values).
char* zstzPropGetAllMarshalled_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                   size_t* length, int* code);

// ---- Process locks ------------------------------------------------------------------------------

typedef struct ZPROP_lock ZPROP_lock;  // a held lock

/// Acquires the read-write lock between processes that "zstz lock" uses and stores its handle.
/// Readers share it; a writer excludes all others, threads of this process included.
/// units   `milliseconds`: how long to wait for other processes and threads; 0: not at all.
/// range   `directory`: of the lock file; null or empty: the working directory. `name`: not empty.
///         `isWriter` 0: for reading.
/// owns    owned by the caller; released with zstzLockRelease_6_0.
/// codes   55 if a pointer or the name is missing, or `milliseconds` is negative: `*lock` is
///         untouched then; 51 if the lock is held elsewhere until the end of the wait (the last
///         error has EAGAIN), or if the lock file cannot be used: `*lock` is null then.
/// threads the lock belongs to the calling thread. A thread that acquires its own lock again waits
///         in vain, unless both are for reading. A C++ lock object of this process on the same file
///         is waited for without a limit.
int zstzLockAcquire_6_0(ZPROP_lock** lock, char const* directory, char const* name, int isWriter,
                        int milliseconds);

/// Returns the sequence number of the lock, which writers increment. Stores its code as the getters
/// do.
/// codes   55 if `lock` is not a held lock.
unsigned long zstzLockGetSequence_6_0(ZPROP_lock* lock, int* code);

/// Releases a lock.
/// range   `changed` not 0: a writer increments the sequence number first, so that readers notice
///         the change.
/// codes   55 if `lock` is not a held lock; 52 in another thread, or in a child of the process that
///         acquired it: it stays held then; 51 if the number cannot be incremented: the lock is
///         released anyway.
int zstzLockRelease_6_0(ZPROP_lock* lock, int changed);

#ifdef __cplusplus
}
#endif
