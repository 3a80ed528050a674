// zqvrutil: the library's only door to codesets and locales.
//
// Subsystem: text.  Stands on: ZException, ZAbstractMutableString.
//
// Holds what one process has once: the local codeset, UTF-8 and the locale, as handles of the text
// services (qvr.h) and as names. Beside them stand the plain functions that classify, measure,
// compare and convert multibyte text through those services.
// The first call that needs a handle initialises: it calls setlocale(LC_ALL, ""), reads QVRDIR and
// makes the handles, once. Initialised or failed, it stays so for the life of the process. A
// program makes one string or calls one getter before it starts threads, because setlocale is
// not safe beside threads that use the locale.
// If a table below QVRDIR cannot be used, none of them is, and standard error gets one line: the
// file, the line in it and the problem.
// Ownership: handles and names belong to the library and are never released.
// Threads: the initialisation runs once however many threads ask; after it every function may be
// called from any thread.
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
/// owns    borrowed for ever.
/// codes   never null: without QVRDIR or without the handle the failure is reported through the
///         message service and the process ends with abort().
/// cost    one load once initialised.
struct qvr_cs const* zgetLCSHandle_6_0(void);

/// Returns the handle of UTF-8.
/// owns    borrowed for ever.
/// codes   never null, as zgetLCSHandle_6_0.
/// cost    one load once initialised.
struct qvr_cs const* zgetUTF8Handle_6_0(void);

/// Returns the name of the local codeset.
/// owns    borrowed for ever.
/// codes   null after reporting the failure through the message service.
char const* zgetLocalCodesetName_6_0(void);

/// Returns the canonical name of the process's locale.
/// owns    borrowed for ever.
/// codes   null after reporting the failure through the message service.
char const* zgetlocale_6_0(void);

/// Makes the text services take the tables of `dir` for the names of codesets and locales that are
/// looked up from now on; the process's handles keep what they have.
/// range   null does nothing. Of a directory with a table that cannot be used no table is taken;
///         standard error then has a line with the file, the line in it and the problem.
void zset_cs_dir_6_0(char const* dir);

/// Returns the byte length of the character at `s`, of which `n` bytes may be read.
/// codes   0 at the terminator, -1 for an invalid or cut character.
/// kept    1 for anything, the terminator too, when `cs` is the local codeset and the locale that
///         the initialisation set has one byte per character.
int zmblen_6_0(struct qvr_cs const* cs, char const* s, size_t n);

/// Decodes the character at `s` into `*wc`.
/// codes   its byte length; 0 at the terminator, -1 for an invalid or cut character; then `*wc`
///         is 0.
/// kept    the low 16 bits of the character are stored, so one above U+FFFF is not whole.
int zmbtowc_6_0(struct qvr_cs const* cs, uint16_t* wc, char const* s, size_t n);

/// Returns the byte length of the character at `s` when it is white space, else 0.
/// range   null `s` or `n` 0 gives 0.
int zisspace_6_0(struct qvr_cs const* cs, char const* s, size_t n);

/// Returns the byte length of the character at `s` when it is a letter, else 0.
/// range   null `s` or `n` 0 gives 0.
int zisalpha_6_0(struct qvr_cs const* cs, char const* s, size_t n);

/// Returns 1 when the character is of the class, else 0. `wc` is a code point.
int ziswupper_6_0(uint32_t wc); /* upper case */
int ziswlower_6_0(uint32_t wc); /* lower case */
int ziswspace_6_0(uint32_t wc); /* white space */
int ziswdigit_6_0(uint32_t wc); /* 0 to 9 */
int ziswalpha_6_0(uint32_t wc); /* letter */
int ziswalnum_6_0(uint32_t wc); /* letter or decimal digit */

/* The standard string functions on whole characters of a codeset; sizes and results are bytes. */

/// Returns the first occurrence of `needle` in `s`, null when there is none or a text is null.
char* zstrstr_6_0(struct qvr_cs const* cs, char const* s, char const* needle);

/// Returns the first character of `s` that is in `set`, null when there is none.
char* zstrpbrk_6_0(struct qvr_cs const* cs, char const* s, char const* set);

/// Returns the next token between characters of `delimiters`, null when there is none left.
/// owns    `s` starts a text and is changed and borrowed until its last token; null goes on.
/// threads each thread has its own place.
char* zstrtok_6_0(struct qvr_cs const* cs, char* s, char const* delimiters);

/// Returns the length of the start of `s` whose characters are all in `set`.
size_t zstrspn_6_0(struct qvr_cs const* cs, char const* s, char const* set);

/// Returns the length of the start of `s` whose characters are all outside `set`.
size_t zstrcspn_6_0(struct qvr_cs const* cs, char const* s, char const* set);

/// Appends the whole characters of the first `n` bytes of `src` to `dst`, then a zero.
/// range   behind the text at `dst` are at least `n` + 1 bytes.
/// codes   `dst`; null when an argument is null.
char* zstrncat_6_0(struct qvr_cs const* cs, char* dst, char const* src, size_t n);

/// Copies the whole characters of the first `n` bytes of `src` to `dst`, filled up with zeros.
/// codes   `dst`; null when an argument is null. No zero ends a copy that takes all `n` bytes.
char* zstrncpy_6_0(struct qvr_cs const* cs, char* dst, char const* src, size_t n);

/// Returns the last character of `s` that is the byte `c`, null when there is none.
char* zstrrchr_6_0(struct qvr_cs const* cs, char const* s, int c);

/// Returns the first character of `s` that is the byte `c`, null when there is none.
char* zstrchr_6_0(struct qvr_cs const* cs, char const* s, int c);

/* With the process's locale; before the initialisation with no language's own rules. */

/// Changes `s` to upper case in place and returns it; null when an argument is null.
/// range   a character whose counterpart has another byte length stays.
char* zstrupper_6_0(struct qvr_cs const* cs, char* s);

/// Changes `s` to lower case in place and returns it; null when an argument is null.
/// range   a character whose counterpart has another byte length stays.
char* zstrlower_6_0(struct qvr_cs const* cs, char* s);

/// Compares two texts without regard to case: below 0, 0 or above 0.
int zstricmp_6_0(struct qvr_cs const* cs, char const* a, char const* b);

/// Compares at most `n` bytes of two texts without regard to case.
int zstrnicmp_6_0(struct qvr_cs const* cs, char const* a, char const* b, size_t n);

/// Reads a date and time as `format` says and returns the first byte behind what was read.
/// codes   null, with `*result` as it was, when `s` does not match.
char* zstrptime_6_0(struct qvr_cs const* cs, char const* s, char const* format, struct tm* result);

/// Returns the byte length of the valid characters of `s` before its terminator or its first
/// invalid character.
/// range   null gives 0.
/// kept    the name says count, the result is bytes.
size_t zstrcount_6_0(struct qvr_cs const* cs, char const* s);

/// Converts `srcLen` bytes of local text to UTF-8. No terminator is added.
/// range   the texts must not overlap.
/// codes   bytes written; 0 when an argument is null or 0; -1 when something does not convert, -2
///         when it does not fit, -3 when there is no memory for it: what is at `dst` is undefined
///         then. Without a local codeset the process ends as in zgetLCSHandle_6_0().
ptrdiff_t zlcs_to_utf8_6_0(char const* src, size_t srcLen, char* dst, size_t dstLen);

/// Converts `srcLen` bytes of UTF-8 to local text. No terminator is added.
/// range, codes   as zlcs_to_utf8_6_0.
ptrdiff_t zlcs_from_utf8_6_0(char const* src, size_t srcLen, char* dst, size_t dstLen);

/// Converts UTF-16 to UTF-8, advancing `*src` and `*dst` over what was converted. No terminator is
/// added.
/// range   no pointer is null; `srcEnd` and `dstEnd` stand behind the last unit and the last byte.
/// codes   0 all converted; 2 the next character does not fit: `*src` stands at its first unit.
/// kept    an unpaired surrogate becomes three bytes like any other unit.
int zconvert_UTF16_to_UTF8_6_0(uint16_t const** src, uint16_t const* srcEnd, char** dst,
                               char const* dstEnd);

#ifdef __cplusplus
}

class ZAbstractMutableString_6_0;

/// Sets `out` to the name of zgetlocale_6_0 and returns 0. Without a name `out` stays as it is.
extern "C" int ZGetLocale(ZAbstractMutableString_6_0& out);
#endif
