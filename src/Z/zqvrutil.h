// zqvrutil: the library's only access to codesets and locales.
//
// Subsystem: text.  Stands on: ZException, ZAbstractMutableString.
//
// Holds the per-process state: the local codeset, UTF-8 and the locale, as handles of the text
// services (qvr.h) and as names. Also declares the plain functions that classify, measure, compare
// and convert multibyte text through those services.
// The first call that needs a handle initialises, once: it calls setlocale(LC_ALL, ""), reads
// QVRDIR and creates the handles. The outcome, success or failure, is final for the process. A
// program creates a string or calls a getter before it starts threads, because setlocale() is not
// safe while other threads use the locale.
// If a table below QVRDIR is unusable, none of them is used, and standard error gets one line: the
// file, the line in it and the problem.
// Ownership: handles and names belong to the library and are never released.
// Threads: the initialisation runs once, however many threads call; after it any thread may call
// every function.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

struct qvr_cs;  /* a codeset handle, qvr.h */
struct qvr_loc; /* a locale handle, qvr.h */

/// Returns the handle of the local codeset.
/// owns    borrowed forever.
/// codes   never null: without QVRDIR or without the handle the function reports the failure
///         through the message service and calls abort().
/// cost    one load once initialised.
struct qvr_cs const* zgetLCSHandle_6_0(void);

/// Returns the handle of UTF-8.
/// owns    borrowed forever.
/// codes   never null, as zgetLCSHandle_6_0.
/// cost    one load once initialised.
struct qvr_cs const* zgetUTF8Handle_6_0(void);

/// Returns the name of the local codeset.
/// owns    borrowed forever.
/// codes   null after reporting the failure through the message service.
char const* zgetLocalCodesetName_6_0(void);

/// Returns the canonical name of the process's locale.
/// owns    borrowed forever.
/// codes   null after reporting the failure through the message service.
char const* zgetlocale_6_0(void);

/// Makes the text services use the tables of `dir` for later lookups of codeset and locale names;
/// the handles of the process do not change.
/// range   null does nothing. If a table of the directory is unusable, none is used, and standard
///         error gets one line: the file, the line in it and the problem.
void zset_cs_dir_6_0(char const* dir);

/// Returns the length of the character at `s`, of which `n` bytes may be read.
/// units   bytes.
/// codes   0 at the terminator, -1 for an invalid or truncated character.
/// kept    always 1, also at the terminator, if `cs` is the local codeset and the locale that the
///         initialisation set has one byte per character.
int zmblen_6_0(struct qvr_cs const* cs, char const* s, size_t n);

/// Decodes the character at `s` into `*wc`.
/// codes   its length in bytes; 0 at the terminator, -1 for an invalid or truncated character;
///         `*wc` is then 0.
/// kept    stores the low 16 bits of the character, so a character above U+FFFF is truncated.
int zmbtowc_6_0(struct qvr_cs const* cs, uint16_t* wc, char const* s, size_t n);

/// Returns the length in bytes of the character at `s` if it is whitespace, else 0.
/// range   null `s` or `n` 0 gives 0.
int zisspace_6_0(struct qvr_cs const* cs, char const* s, size_t n);

/// Returns the length in bytes of the character at `s` if it is a letter, else 0.
/// range   null `s` or `n` 0 gives 0.
int zisalpha_6_0(struct qvr_cs const* cs, char const* s, size_t n);

// Returns 1 if the character is in the class, else 0. `wc` is a code point.
int ziswupper_6_0(uint32_t wc); /* upper case */
int ziswlower_6_0(uint32_t wc); /* lower case */
int ziswspace_6_0(uint32_t wc); /* whitespace */
int ziswdigit_6_0(uint32_t wc); /* 0 to 9 */
int ziswalpha_6_0(uint32_t wc); /* letter */
int ziswalnum_6_0(uint32_t wc); /* letter or decimal digit */

/* The standard string functions on whole characters of a codeset; sizes and results are bytes. */

/// Returns the first occurrence of `needle` in `s`, null if not found or if an argument is null.
char* zstrstr_6_0(struct qvr_cs const* cs, char const* s, char const* needle);

/// Returns the first character of `s` that is in `set`, null if not found.
char* zstrpbrk_6_0(struct qvr_cs const* cs, char const* s, char const* set);

/// Returns the next token between characters of `delimiters`, null after the last one.
/// owns    `s` starts a new string, modified and borrowed until its last token; null continues it.
/// threads each thread has its own saved position.
char* zstrtok_6_0(struct qvr_cs const* cs, char* s, char const* delimiters);

/// Returns the length of the prefix of `s` whose characters are all in `set`.
size_t zstrspn_6_0(struct qvr_cs const* cs, char const* s, char const* set);

/// Returns the length of the prefix of `s` whose characters are all outside `set`.
size_t zstrcspn_6_0(struct qvr_cs const* cs, char const* s, char const* set);

/// Appends the whole characters of the first `n` bytes of `src` to `dst`, then a zero.
/// range   `dst` has space for `n` + 1 bytes past its string.
/// codes   `dst`; null if an argument is null.
char* zstrncat_6_0(struct qvr_cs const* cs, char* dst, char const* src, size_t n);

/// Copies the whole characters of the first `n` bytes of `src` to `dst` and pads with zeros.
/// codes   `dst`; null if an argument is null. A copy of all `n` bytes has no terminator.
char* zstrncpy_6_0(struct qvr_cs const* cs, char* dst, char const* src, size_t n);

/// Returns the last character of `s` that is the byte `c`, null if not found.
char* zstrrchr_6_0(struct qvr_cs const* cs, char const* s, int c);

/// Returns the first character of `s` that is the byte `c`, null if not found.
char* zstrchr_6_0(struct qvr_cs const* cs, char const* s, int c);

/* With the process's locale; without rules of a language before the initialisation. */

/// Changes `s` to upper case in place and returns it; null if an argument is null.
/// range   a character whose counterpart has another length in bytes is unchanged.
char* zstrupper_6_0(struct qvr_cs const* cs, char* s);

/// Changes `s` to lower case in place and returns it; null if an argument is null.
/// range   a character whose counterpart has another length in bytes is unchanged.
char* zstrlower_6_0(struct qvr_cs const* cs, char* s);

/// Compares two strings without regard to case: below 0, 0 or above 0.
int zstricmp_6_0(struct qvr_cs const* cs, char const* a, char const* b);

/// Compares at most `n` bytes of two strings without regard to case.
int zstrnicmp_6_0(struct qvr_cs const* cs, char const* a, char const* b, size_t n);

/// Parses a date and time by `format` and returns the first byte past the parsed part.
/// codes   null, with `*result` unchanged, if `s` does not match.
char* zstrptime_6_0(struct qvr_cs const* cs, char const* s, char const* format, struct tm* result);

/// Returns the length of the prefix of `s` that consists of valid characters.
/// units   bytes.
/// range   null gives 0.
/// kept    the result is in bytes, although the name suggests a count of characters.
size_t zstrcount_6_0(struct qvr_cs const* cs, char const* s);

/// Converts `srcLen` bytes of local text to UTF-8. No terminator is added.
/// range   source and destination must not overlap.
/// codes   the size of the result in bytes; 0 if an argument is null or 0; -1 if the source does
///         not convert, -2 if the result does not fit, -3 if memory is short; the bytes at `dst`
///         are undefined then. Without a local codeset the process ends as in zgetLCSHandle_6_0().
ptrdiff_t zlcs_to_utf8_6_0(char const* src, size_t srcLen, char* dst, size_t dstLen);

/// Converts `srcLen` bytes of UTF-8 to local text. No terminator is added.
/// range   as zlcs_to_utf8_6_0.
/// codes   as zlcs_to_utf8_6_0.
ptrdiff_t zlcs_from_utf8_6_0(char const* src, size_t srcLen, char* dst, size_t dstLen);

/// Converts UTF-16 to UTF-8 and advances `*src` and `*dst` past the converted part. No terminator
/// is added.
/// range   no pointer is null; `srcEnd` and `dstEnd` point past the last unit and the last byte.
/// codes   0 if all is converted; 2 if the next character does not fit: `*src` is at its first
///         unit.
/// kept    an unpaired surrogate becomes three bytes like any other unit.
int zconvert_UTF16_to_UTF8_6_0(uint16_t const** src, uint16_t const* srcEnd, char** dst,
                               char const* dstEnd);

#ifdef __cplusplus
}

class ZAbstractMutableString_6_0;

/// Sets `out` to the name of zgetlocale_6_0 and returns 0. Without a name `out` is unchanged.
extern "C" int ZGetLocale(ZAbstractMutableString_6_0& out);
#endif
