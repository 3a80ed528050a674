// qvr: text services. Codesets, locales and character classes behind plain functions.
//
// Subsystem: text services.  Stands on: nothing of the library.
//
// Text is bytes in a codeset; a codeset is named once and then passed as a handle. "A character"
// is the run of bytes that encodes one character in that codeset. Every function that takes text
// by pointer alone reads up to its terminator, a zero byte; every function that takes a length in
// bytes reads no byte beyond it.
//
// A byte at which no character begins (an invalid byte) has no length and no value. The string
// functions (from qvr_strchr on) never fail on it: they step over it as one byte that equals only
// the same invalid byte.
//
// Some codesets convert only: those whose bytes have a meaning only in their order (ISO-2022-JP,
// HZ, the EBCDIC ones with shifts) and every form of Unicode but UTF-8 (UTF-16, UTF-32, UTF-7,
// CESU-8, SCSU). qvr_to_utf8 and qvr_from_utf8 serve them like any other; to every other function
// each of their bytes but the terminator is invalid.
//
// Memory: handles and whole-text conversions may fail for the lack of it and say so. Of the other
// functions only those ask for memory that meet one of two things, and the calling thread then
// keeps a converter until it ends: a character to be encoded into a multibyte codeset other than
// UTF-8, where it does not have one or two bytes, and which without memory counts as one that the
// codeset does not have; and a character of more than two bytes in a codeset that has some of four
// (GB18030, EUC-TW), whose bytes without memory count as invalid. ASCII asks for none.
//
// Ownership: handles are the caller's, released with qvr_cs_free and qvr_loc_free. No function
// keeps a pointer to the caller's text, except qvr_strtok as said there.
// Threads: a handle never changes after it was made and may be used by every thread at once.
// qvr_set_dir may run beside everything else. qvr_os_lang_name and qvr_os_cs_name must not run
// beside setlocale.
//
// No function throws, ends the process or prints. A null handle or a null text is a failure as
// stated at each function, never a crash.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/// A codeset. Null is "no codeset".
typedef struct qvr_cs const* qvr_cs_t;

/// A locale. Null is accepted wherever a locale is taken and means: no language's own rules.
typedef struct qvr_loc const* qvr_loc_t;

enum {
    qvrInvalid = -1,   ///< invalid or truncated text, no counterpart, or a null argument
    qvrNoRoom = -2,    ///< the result is longer than the room given
    qvrNoMemory = -3,  ///< the operation needed memory that was not there
    qvrMbLenMax = 8    ///< no character is longer than this many bytes
};

// Tables, names and handles.

/// Takes the alias tables and converter files of directory `dir` into use for names looked up
/// from now on, in place of those of an earlier call; handles already made keep what they have.
/// The built-in tables stand behind them: a missing or empty directory leaves those alone in
/// force and is a success.
/// range   an empty `dir` is no directory; a relative one stays the one that it is now, wherever
///         the process goes.
/// codes   0 done; qvrInvalid when `dir` is null, a table or the directory of the converter files
///         is unreadable, a table has a bad line, or a converter file is called UTF-8;
///         qvrNoMemory. On a failure the tables stay as they were. qvr_check_dir() says why.
/// cost    O(n log n) in the rows of the tables.
/// threads any; a look-up sees all of the old tables or all of the new ones.
int qvr_set_dir(char const* dir);

/// Reads the tables of directory `dir` as qvr_set_dir does, without taking them into use, and
/// writes their first problem and a terminator: "FILE:LINE: what is wrong; what to do", without the
/// line if the file as a whole cannot be used. Writes the empty text if there is no problem, and if
/// memory is short. A line that would change the meaning of a built-in name is a bad one: of a name
/// of UTF-8, of a name in the built-in table of codesets, of C or POSIX.
/// range   `problem` may be null, and is left as it is if `room` is 0; a longer text is cut.
/// codes   as qvr_set_dir.
int qvr_check_dir(char const* dir, char* problem, size_t room);

/// Writes the operating system's name of the locale in force for characters, as
/// setlocale(LC_CTYPE, NULL) gives it, and a terminator.
/// units   `room` counts bytes, terminator included.
/// codes   0 done; qvrInvalid when `buf` is null; qvrNoRoom. On a failure `buf` is the empty
///         text when it has room for that.
int qvr_os_lang_name(char* buf, size_t room);

/// Writes the canonical form of an operating system's locale name, and a terminator:
/// `language[_TERRITORY][.codeset][@modifier]` with the case as shown and the codeset's preferred
/// name ("en_US.utf8" gives "en_US.UTF-8"), and "C" for "C" and "POSIX". A name that the locale
/// alias table knows ("german") is replaced by what it stands for first. A name of another form, as
/// a site may give its own locales, is its own canonical form.
/// range   `osName` may be `buf`; a codeset that is not known stays as it is written.
/// codes   0 done; qvrInvalid when an argument is null or the name is empty; qvrNoRoom;
///         qvrNoMemory. On a failure `buf` is the empty text when it has room.
int qvr_canonical_loc(char const* osName, char* buf, size_t room);

/// Returns a locale for `name`, which is brought to its canonical form first. The language
/// decides how case changes; day and month names and the usual forms of date and time are those
/// that the operating system has for the locale, and English ones when it has none. The locale in
/// force is found by its canonical name too, whatever the operating system calls it.
/// owns    the caller's, released with qvr_loc_free.
/// codes   null when `name` is null or empty, or when there is no memory.
qvr_loc_t qvr_loc_new(char const* name);

/// Releases a locale. Null is accepted.
void qvr_loc_free(qvr_loc_t loc);

/// Writes the name of the local codeset, as nl_langinfo(CODESET) gives it, and a terminator.
/// codes   as qvr_os_lang_name.
int qvr_os_cs_name(char* buf, size_t room);

/// Returns a codeset for `name`. Of a name only letters, in either case, and digits count, and
/// of a number not its leading zeros: "ISO_8859-01" is "iso88591".
/// The name is looked up in the alias table, then among the converter files of the directory,
/// then among the built-in names: those that ICU knows, and those of ISO-8859-16, ARMSCII-8,
/// GEORGIAN-PS, KOI8-T, PT154 and RK1048.
/// range   at most 127 bytes, none of them a slash, a backslash or a comma.
/// owns    the caller's, released with qvr_cs_free. Every call returns another handle, also for
///         the same codeset, so that a handle's address tells who made it.
/// codes   null when `name` is null, empty, out of range or unknown, or when there is no memory.
/// cost    the first handle of a multibyte codeset builds its tables (one to three milliseconds).
qvr_cs_t qvr_cs_new(char const* name);

/// Releases a codeset. Null is accepted. No thread may be using it.
void qvr_cs_free(qvr_cs_t cs);

// Conversion. All `srcLen` bytes are converted, terminators among them included; no terminator is
// added. What a codeset puts around its characters is written and read over: the byte order mark
// of UTF-16 and UTF-32, the shifts of ISO-2022-JP and the like, which a text ends by undoing.
// Conversion is strict both ways: a character without a counterpart is a failure, never replaced.

/// Converts from `cs` to UTF-8. Returns the number of bytes written.
/// range   `src` and `dst` must not overlap.
/// codes   qvrInvalid when `cs` is null, a text is null while its length is not 0, or the source
///         is invalid or ends inside a character; qvrNoRoom; qvrNoMemory. On a failure what
///         the `dstLen` bytes at `dst` hold is undefined; nothing behind them is touched.
ptrdiff_t qvr_to_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst, size_t dstLen);

/// Converts from UTF-8 to `cs`. Returns the number of bytes written.
/// range, codes   as qvr_to_utf8; a character that `cs` does not have is qvrInvalid.
ptrdiff_t qvr_from_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst, size_t dstLen);

// One character.

/// Returns the length in bytes of the character at `s`, 0 when that is the terminator.
/// range   reads at most `n` bytes, and none behind the terminator.
/// codes   -1 when `cs` or `s` is null, `n` is 0, or the character is invalid or does not end
///         within `n` bytes.
/// cost    a few nanoseconds, no memory, no lock; not so for what is longer than two bytes in a
///         codeset that has characters of four (GB18030, EUC-TW): see "Memory" above.
int qvr_mblen(qvr_cs_t cs, char const* s, size_t n);

/// Decodes the character at `s` into `*wc`, a Unicode code point, and returns its length; 0 with
/// a value of 0 at the terminator.
/// range   `wc` may be null. Otherwise as qvr_mblen.
/// codes   as qvr_mblen, and -1 for a character that stands for more than one code point, as one
///         of a converter file may. On a failure `*wc` stays as it is.
int qvr_mbtowc(qvr_cs_t cs, uint32_t* wc, char const* s, size_t n);

/// Encodes the 16-bit unit `wc` at `s` and returns the number of bytes written; 0 is one zero
/// byte. No terminator is added.
/// range   `room` bytes are writable at `s`; qvrMbLenMax are always enough.
/// codes   -1, with nothing written, when `cs` or `s` is null, `cs` does not have the
///         character (or memory for its converter is short), it needs more than `room` bytes, or
///         `wc` is a surrogate (0xD800 to 0xDFFF): half a pair is no character, and the other half
///         is not at hand.
int qvr_wctomb(qvr_cs_t cs, char* s, size_t room, uint16_t wc);

// Classes of code points: 1 or 0. Surrogates and values above 0x10FFFF are in no class.

int qvr_iswupper(uint32_t wc);  ///< Unicode Uppercase
int qvr_iswlower(uint32_t wc);  ///< Unicode Lowercase
int qvr_iswspace(uint32_t wc);  ///< Unicode White_Space, except the three no-break spaces
int qvr_iswdigit(uint32_t wc);  ///< the ten digits 0 to 9 of ASCII, no others
int qvr_iswalpha(uint32_t wc);  ///< Unicode Alphabetic
int qvr_iswalnum(uint32_t wc);  ///< Unicode Alphabetic or a decimal digit of any script

// The standard string functions on whole characters. Sizes and results count bytes.

/// Returns the first occurrence of `needle` in `s` that begins and ends at characters of `s`,
/// `s` itself for an empty needle, null when there is none or an argument is null.
/// cost    O(bytes of `s` and `needle`); the product of both if there is no memory for a table of a
///         needle that occurs in `s` other than as whole characters.
char* qvr_strstr(qvr_cs_t cs, char const* s, char const* needle);

/// Returns the first character of `s` that occurs in `set`, null when there is none or an
/// argument is null.
/// cost    O(bytes of `s` and `set`), as the next three functions; the product of both if there is
///         no memory for a table of a set that has more than 32 characters of several bytes.
char* qvr_strpbrk(qvr_cs_t cs, char const* s, char const* set);

/// Returns the next token of a text: skips characters that occur in `delimiters`, puts a
/// terminator over the first byte of the next one of them and remembers where to go on.
/// owns    `s` starts a new text and stays borrowed until its last token; null goes on.
/// codes   null when there is no further token, or `cs` or `delimiters` is null.
/// threads each thread has its own place.
char* qvr_strtok(qvr_cs_t cs, char* s, char const* delimiters);

/// Returns the length of the start of `s` that consists of characters that occur in `set`; 0 when
/// an argument is null.
size_t qvr_strspn(qvr_cs_t cs, char const* s, char const* set);

/// Returns the length of the start of `s` that consists of characters that do not occur in `set`;
/// 0 when an argument is null.
size_t qvr_strcspn(qvr_cs_t cs, char const* s, char const* set);

/// Appends to `dst` as many whole characters of `src` as `n` bytes hold, and a terminator; bytes
/// at the end of the `n` that could begin a longer character are left out. Returns `dst`.
/// range   behind the text at `dst` are at least `n` + 1 bytes. `src` may lack its terminator
///         when it has `n` bytes.
/// codes   null, with nothing written, when an argument is null.
char* qvr_strncat(qvr_cs_t cs, char* dst, char const* src, size_t n);

/// Copies to `dst` as many whole characters of `src` as qvr_strncat would append and fills the
/// rest of the `n` bytes with zeros. Returns `dst`.
/// range   `src` may lack its terminator when it has `n` bytes; the copy has none when the
///         characters fill the `n` bytes.
/// codes   null, with nothing written, when an argument is null.
char* qvr_strncpy(qvr_cs_t cs, char* dst, char const* src, size_t n);

/// Returns the last character of `s` that is the single byte `c`, null when there is none or `cs`
/// or `s` is null.
/// range   `c` is taken as unsigned char; 0 finds the terminator.
char* qvr_strrchr(qvr_cs_t cs, char const* s, int c);

/// Returns the first character of `s` that is the single byte `c`, null when there is none or `cs`
/// or `s` is null.
/// range   as qvr_strrchr.
char* qvr_strchr(qvr_cs_t cs, char const* s, int c);

// With a locale. In Turkish and Azerbaijani i pairs with dotted I and I with dotless i.

/// Changes every character of `s` to its upper-case counterpart, in place and one to one; a
/// character whose counterpart takes more or fewer bytes, or is not in the codeset, stays as it
/// is, and so does one whose counterpart is not found for lack of memory. Returns `s`.
/// codes   null when `cs` or `s` is null.
char* qvr_strupper(qvr_cs_t cs, qvr_loc_t loc, char* s);

/// Changes every character of `s` to its lower-case counterpart. Otherwise as qvr_strupper.
char* qvr_strlower(qvr_cs_t cs, qvr_loc_t loc, char* s);

/// Compares two texts without regard to case: below 0, 0 or above 0 as `a` is before, equal to or
/// behind `b`. Characters are folded one to one and ordered by code point; invalid bytes come
/// behind all characters, by value; so do those of a four-byte character when memory is short.
/// codes   -1 when `cs`, `a` or `b` is null.
int qvr_stricmp(qvr_cs_t cs, qvr_loc_t loc, char const* a, char const* b);

/// Compares at most the first `n` bytes of each text like qvr_stricmp. A character that `n` cuts
/// counts as invalid bytes.
/// range   neither text is read beyond its `n` bytes or its terminator.
/// codes   0 when `n` is 0; otherwise as qvr_stricmp.
int qvr_strnicmp(qvr_cs_t cs, qvr_loc_t loc, char const* a, char const* b, size_t n);

/// Reads a date and time from `s` as `format` says, both in `cs`, into the fields of `*result`
/// that the format names, and into those that follow from them: in a year, the date from the day of
/// the year or from week and day of the week, and both days from the date.
/// Returns the first byte of `s` behind what was read.
/// range   conversions: those of POSIX strptime, and %F %k %l %s %u %z. %Z and the modifiers E and
///         O are read over. Names are taken in either case, long or short. A year of two digits
///         is from 1969 to 2068, unless %C gives its century; %s is put into local time.
/// codes   null, with `*result` as it was, when `s` does not match, the format has another
///         conversion, or an argument other than `loc` is null.
/// threads with %s not beside what changes TZ.
char* qvr_strptime(qvr_cs_t cs, qvr_loc_t loc, char const* s, char const* format,
                   struct tm* result);

#ifdef __cplusplus
}
#endif
