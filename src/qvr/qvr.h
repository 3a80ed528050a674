// qvr: text services. Plain functions for codesets, locales and character classes.
//
// Subsystem: text services.  Stands on: nothing of the library.
//
// A string is bytes in a codeset, and a codeset handle is passed with it. "A character" is the run
// of bytes that encodes one character in that codeset. A function that takes only a pointer to a
// string reads up to its terminator, a zero byte. A function that takes a length in bytes reads no
// byte past it.
//
// A byte at which no character starts (an invalid byte) has no length and no value. The string
// functions (from qvr_strchr on) never fail on it: they treat it as one byte that equals only the
// same invalid byte.
//
// Some codesets only convert: stateful ones, in which the meaning of a byte depends on the bytes
// before it (ISO-2022-JP, HZ, the EBCDIC codesets with shifts), and every form of Unicode except
// UTF-8 (UTF-16, UTF-32, UTF-7, CESU-8, SCSU). qvr_to_utf8 and qvr_from_utf8 serve them like any
// other codeset; all other functions treat each of their bytes except the terminator as invalid.
//
// Memory: functions that create handles, read tables or convert strings fail if memory is short. If
// memory is short in the first of these calls, later ones can fail until the process ends: ICU
// remembers that it could not read its data. Searches for long needles or sets allocate a table
// (see their costs), and qvr_strptime may read the words of a locale. Apart from that a function
// allocates in two cases only, and the calling thread then keeps a converter until it ends. The
// first is to encode a character that is longer than two bytes in a multibyte codeset other than
// UTF-8; without memory the codeset seems not to have the character. The second is to decode a
// character longer than two bytes in a codeset that has characters of four (GB18030, EUC-TW);
// without memory its bytes are treated as invalid. ASCII never needs memory.
//
// Ownership: the caller owns handles and releases them with qvr_cs_free and qvr_loc_free. No
// function keeps a pointer to a string of the caller, except qvr_strtok (see there).
// Threads: a handle is immutable; any number of threads may use it at the same time. qvr_set_dir
// may run concurrently with every other function. qvr_os_lang_name and qvr_os_cs_name must not run
// concurrently with setlocale.
//
// No function throws, ends the process or prints. A null handle or string is a failure, as each
// function documents, and never a crash.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/// A codeset. Null is "no codeset".
typedef struct qvr_cs const* qvr_cs_t;

/// A locale. Null is accepted wherever a function takes a locale: no rules of a language then.
typedef struct qvr_loc const* qvr_loc_t;

enum {
    qvrInvalid = -1,   ///< invalid or truncated input, no counterpart, or a null argument
    qvrNoRoom = -2,    ///< the result is longer than the buffer
    qvrNoMemory = -3,  ///< out of memory
    qvrMbLenMax = 8    ///< no character is longer than this many bytes
};

// Tables, names and handles.

/// Replaces the alias tables and converter files of an earlier call with those of directory `dir`.
/// They apply to later lookups of names; existing handles do not change. The built-in tables come
/// after them; if the directory is missing or empty, they are the only ones, and the call succeeds.
/// range   an empty `dir` is not a directory. A relative one is resolved now: a later change of the
///         working directory has no effect.
/// codes   0 on success; qvrInvalid if `dir` is null, a table or the directory of the converter
///         files is unreadable, a table has a bad line, or a converter file is called UTF-8;
///         qvrNoMemory. On failure the tables do not change. qvr_check_dir() gives the reason.
/// threads any; a lookup sees either all old tables or all new ones.
/// cost    O(n log n) in the rows of the tables.
int qvr_set_dir(char const* dir);

/// Reads the tables of directory `dir` as qvr_set_dir does, but does not use them. Writes their
/// first problem and a terminator: "FILE:LINE: problem; remedy", without the line number if the
/// whole file is unusable. Writes the empty string if the tables are good or memory is short. A
/// line that would change the meaning of a built-in name is bad: of a name of UTF-8, of a name in
/// the built-in table of codesets, of C or POSIX.
/// range   `problem` may be null and is untouched if `room` is 0; a longer message is truncated.
/// codes   as qvr_set_dir. With qvrInvalid, errno is the error of a failed call, or 0.
int qvr_check_dir(char const* dir, char* problem, size_t room);

/// Writes the operating system's name of the current LC_CTYPE locale, as setlocale(LC_CTYPE, NULL)
/// returns it, and a terminator.
/// units   `room` is in bytes and includes the terminator.
/// codes   0 on success; qvrInvalid if `buf` is null; qvrNoRoom. On failure `buf` is the empty
///         string, if `room` is not 0.
int qvr_os_lang_name(char* buf, size_t room);

/// Writes the canonical form of an operating system's locale name, and a terminator:
/// `language[_TERRITORY][.codeset][@modifier]` with the case as shown and the codeset's preferred
/// name ("en_US.utf8" gives "en_US.UTF-8"), and "C" for "C" and "POSIX". A name in the locale alias
/// table ("german") is replaced first. A name of another form, as a site may use for its own
/// locales, is its own canonical form.
/// range   `osName` may be `buf`; an unknown codeset keeps its spelling.
/// codes   0 on success; qvrInvalid if an argument is null or the name is empty; qvrNoRoom;
///         qvrNoMemory. On failure `buf` is the empty string, if `room` is not 0.
int qvr_canonical_loc(char const* osName, char* buf, size_t room);

/// Returns a locale for `name`, which is converted to its canonical form first. The language
/// determines how case changes. Names of days and months and the usual formats of date and time are
/// the operating system's for that locale, or English if it has no such locale; qvr_strptime reads
/// them when it first needs them. The current locale is also found by its canonical name, whatever
/// the operating system calls it.
/// owns    owned by the caller; released with qvr_loc_free.
/// codes   null if `name` is null or empty, or if memory is short.
qvr_loc_t qvr_loc_new(char const* name);

/// Releases a locale. Null is accepted.
void qvr_loc_free(qvr_loc_t loc);

/// Writes the name of the local codeset, as nl_langinfo(CODESET) returns it, and a terminator.
/// codes   as qvr_os_lang_name.
int qvr_os_cs_name(char* buf, size_t room);

/// Returns a codeset for `name`. Only letters, without regard to case, and digits are significant,
/// and leading zeros of a number are not: "ISO_8859-01" is "iso88591". The name is looked up in the
/// alias table, then among the converter files of the directory, then among the built-in names:
/// the names of ICU, and of ISO-8859-16, ARMSCII-8, GEORGIAN-PS, KOI8-T, PT154 and RK1048.
/// range   at most 127 bytes, without slash, backslash and comma.
/// owns    owned by the caller; released with qvr_cs_free. Every call returns a new handle, also
///         for the same codeset, so that the address identifies the call that made it.
/// codes   null if `name` is null, empty, out of range or unknown, or if memory is short.
/// cost    the first handle of a multibyte codeset builds its tables (one to three milliseconds).
qvr_cs_t qvr_cs_new(char const* name);

/// Releases a codeset. Null is accepted. No thread may still use it.
void qvr_cs_free(qvr_cs_t cs);

// Conversion. All `srcLen` bytes are converted, including terminators among them; none is added.
// Framing is written and skipped as the codeset requires: the byte order mark of UTF-16 and UTF-32,
// and the shifts of ISO-2022-JP and its kind, which are reset at the end. Conversion is strict in
// both directions: a character without a counterpart is a failure, never replaced.

/// Converts from `cs` to UTF-8. Returns the size of the result in bytes.
/// range   `src` and `dst` must not overlap.
/// codes   qvrInvalid if `cs` is null, a pointer is null while its length is not 0, or the source
///         is invalid or ends inside a character; qvrNoRoom; qvrNoMemory. On failure the contents
///         of the `dstLen` bytes at `dst` are undefined; no byte past them is written.
ptrdiff_t qvr_to_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst, size_t dstLen);

/// Converts from UTF-8 to `cs`. Returns the size of the result in bytes.
/// range, codes   as qvr_to_utf8; a character that `cs` does not have is qvrInvalid.
ptrdiff_t qvr_from_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst, size_t dstLen);

// One character.

/// Returns the length in bytes of the character at `s`; 0 at the terminator.
/// range   reads at most `n` bytes, and none past the terminator.
/// codes   -1 if `cs` or `s` is null, `n` is 0, or the character is invalid or does not end within
///         `n` bytes.
/// cost    a few nanoseconds, without memory or lock; except for characters longer than two bytes
///         in a codeset that has characters of four (GB18030, EUC-TW): see "Memory" above.
int qvr_mblen(qvr_cs_t cs, char const* s, size_t n);

/// Returns the length of the valid characters at the start of `n` bytes; zero bytes among them are
/// characters. The sum of what qvr_mblen returns for one character after the other, and faster.
/// units   bytes.
/// range   a character that does not end within the `n` bytes is not counted. 0 if an argument is
///         null.
/// cost    O(n), as qvr_mblen for each character that is not ASCII.
size_t qvr_mbspan(qvr_cs_t cs, char const* s, size_t n);

/// Decodes the character at `s` into `*wc`, a Unicode code point, and returns its length; 0 with a
/// value of 0 at the terminator.
/// range   `wc` may be null. Otherwise as qvr_mblen.
/// codes   as qvr_mblen; also -1 for a character that maps to more than one code point, as in some
///         converter files. On failure `*wc` is unchanged.
int qvr_mbtowc(qvr_cs_t cs, uint32_t* wc, char const* s, size_t n);

/// Encodes the 16-bit unit `wc` at `s` and returns the length in bytes; 0 is encoded as one zero
/// byte. No terminator is added.
/// range   `room` bytes are writable at `s`; qvrMbLenMax are always enough.
/// codes   -1, with nothing written, if `cs` or `s` is null, `cs` does not have the character (or
///         memory for its converter is short), it is longer than `room` bytes, or `wc` is a
///         surrogate (0xD800 to 0xDFFF), which is half a character.
int qvr_wctomb(qvr_cs_t cs, char* s, size_t room, uint16_t wc);

// Classes of code points: 1 or 0. Surrogates and values above 0x10FFFF are in no class.

int qvr_iswupper(uint32_t wc);  ///< Unicode Uppercase
int qvr_iswlower(uint32_t wc);  ///< Unicode Lowercase
int qvr_iswspace(uint32_t wc);  ///< Unicode White_Space, except the three no-break spaces
int qvr_iswdigit(uint32_t wc);  ///< the ten digits 0 to 9 of ASCII, no others
int qvr_iswalpha(uint32_t wc);  ///< Unicode Alphabetic
int qvr_iswalnum(uint32_t wc);  ///< Unicode Alphabetic or a decimal digit of any script

// The standard string functions on whole characters. Sizes and results count bytes.

/// Returns the first occurrence of `needle` in `s` that starts and ends at character boundaries of
/// `s`, `s` itself for an empty needle, null if not found or if an argument is null.
/// cost    O(bytes of `s` and `needle`). O(their product) if the needle also occurs off boundaries
///         and there is no memory for its table.
char* qvr_strstr(qvr_cs_t cs, char const* s, char const* needle);

/// Returns the first character of `s` that occurs in `set`, null if not found or an argument is
/// null.
/// cost    O(bytes of `s` and `set`), as the next three functions. O(their product) if the set has
///         more than 32 characters of several bytes and there is no memory for its table.
char* qvr_strpbrk(qvr_cs_t cs, char const* s, char const* set);

/// Returns the next token of a string: skips characters that occur in `delimiters`, overwrites the
/// first byte of the next such character with a terminator, and saves the position after it.
/// owns    `s` starts a new string, borrowed until its last token; null continues the saved one.
/// codes   null if there are no more tokens, or if `cs` or `delimiters` is null.
/// threads each thread has its own saved position.
char* qvr_strtok(qvr_cs_t cs, char* s, char const* delimiters);

/// Returns the length of the prefix of `s` that consists of characters in `set`; 0 if an argument
/// is null.
size_t qvr_strspn(qvr_cs_t cs, char const* s, char const* set);

/// Returns the length of the prefix of `s` that consists of characters not in `set`; 0 if an
/// argument is null.
size_t qvr_strcspn(qvr_cs_t cs, char const* s, char const* set);

/// Appends the whole characters of the first `n` bytes of `src` to `dst`, and a terminator. Bytes
/// at the end of the `n` that may start a longer character are left out. Returns `dst`.
/// range   `dst` has space for `n` + 1 bytes past its string. `src` may lack a terminator if it has
///         `n` bytes.
/// codes   null, with nothing written, if an argument is null.
char* qvr_strncat(qvr_cs_t cs, char* dst, char const* src, size_t n);

/// Copies the characters that qvr_strncat would append to `dst`, and fills the rest of the `n`
/// bytes with zeros. Returns `dst`.
/// range   `src` may lack a terminator if it has `n` bytes; the copy has none if the characters
///         fill the `n` bytes.
/// codes   null, with nothing written, if an argument is null.
char* qvr_strncpy(qvr_cs_t cs, char* dst, char const* src, size_t n);

/// Returns the last character of `s` that is the single byte `c`, null if not found or if `cs`
/// or `s` is null.
/// range   `c` is converted to unsigned char; 0 finds the terminator.
char* qvr_strrchr(qvr_cs_t cs, char const* s, int c);

/// Returns the first character of `s` that is the single byte `c`, null if not found or if `cs`
/// or `s` is null.
/// range   as qvr_strrchr.
char* qvr_strchr(qvr_cs_t cs, char const* s, int c);

// With a locale. In Turkish and Azerbaijani i pairs with dotted I and I with dotless i.

/// Replaces every character of `s` with its upper-case counterpart, in place and one to one. A
/// character is unchanged if its counterpart has another length in bytes or is not in the codeset,
/// or if memory to find the counterpart is short. Returns `s`.
/// codes   null if `cs` or `s` is null.
char* qvr_strupper(qvr_cs_t cs, qvr_loc_t loc, char* s);

/// Replaces every character of `s` with its lower-case counterpart. Otherwise as qvr_strupper.
char* qvr_strlower(qvr_cs_t cs, qvr_loc_t loc, char* s);

/// Compares two strings without regard to case: below 0, 0 or above 0 if `a` is before, equal to or
/// after `b`. Characters are folded one to one and ordered by code point. Invalid bytes, also those
/// of a four-byte character if memory is short, follow all characters and are ordered by value.
/// codes   -1 if `cs`, `a` or `b` is null.
int qvr_stricmp(qvr_cs_t cs, qvr_loc_t loc, char const* a, char const* b);

/// Compares at most the first `n` bytes of each string like qvr_stricmp. A character that `n` cuts
/// is treated as invalid bytes.
/// range   neither string is read past its `n` bytes or its terminator.
/// codes   0 if `n` is 0; otherwise as qvr_stricmp.
int qvr_strnicmp(qvr_cs_t cs, qvr_loc_t loc, char const* a, char const* b, size_t n);

/// Parses a date and time in `s` by `format`, both in `cs`. Sets the fields of `*result` that the
/// format names and the fields that follow from them: with a year, the date from the day of the
/// year or from week and day of the week, and both days from the date. Returns the first byte of
/// `s` past the parsed part.
/// range   conversions: those of POSIX strptime, and %F %k %l %s %u %z. %Z and the modifiers E and
///         O are skipped. Names match in either case, long or short. A year of two digits is from
///         1969 to 2068, unless %C gives its century; %s is converted to local time.
/// codes   null, with `*result` unchanged, if `s` does not match, the format has another
///         conversion, an argument other than `loc` is null, or memory is short when it first
///         needs a word or format of the locale.
/// threads with %s not concurrently with a change of TZ.
char* qvr_strptime(qvr_cs_t cs, qvr_loc_t loc, char const* s, char const* format,
                   struct tm* result);

#ifdef __cplusplus
}
#endif
