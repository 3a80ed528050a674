#include "zqvrutil.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "ZAbstractMutableString.h"
#include "ZException.h"
#include "qvr.h"
#include "reporting/cancellation.h"
#include "reporting/stream.h"
#include "text/process_locale.h"
#include "text/table_directory.h"

// Weak: another provider of the text services may lack these functions.
extern "C" [[gnu::weak]] int qvr_check_dir(char const* dir, char* problem, size_t room);
extern "C" [[gnu::weak]] size_t qvr_mbspan(qvr_cs_t cs, char const* s, size_t n);

namespace {

constexpr char kSource[] = "src/Z/zqvrutil";
constexpr char kDefaultDir[] = "/opt/Tarsenna/nls/QVR";
constexpr char kUTF8[] = "UTF8";
constexpr size_t kMaxBytesPerCharacter = 4;

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseWithoutDirectory = 125, raiseWithoutCodeset = 129 };

// State of the process. Only the initialisation writes it. It stores each handle after the data
// that the handle's users read, so a thread that sees a handle sees that data too.
char localeName[512];       // canonical; published by localeKnown
char localCodesetName[32];  // published by codesetKnown
std::atomic<bool> localeKnown;
std::atomic<bool> codesetKnown;
std::atomic<int> maxCharacterSize;  // in bytes, of the locale
std::atomic<qvr_loc_t> localeHandle;
std::atomic<qvr_cs_t> localHandle;
std::atomic<qvr_cs_t> utf8Handle;

// True while this thread creates or prints the report of a failed initialisation. The report
// contains strings, and every string requests the handles: those calls return null instead of
// failing again.
thread_local bool reporting;

class ReportingScope {
public:
    ReportingScope() { reporting = true; }
    ReportingScope(ReportingScope const&) = delete;
    ReportingScope& operator=(ReportingScope const&) = delete;
    ~ReportingScope() { reporting = false; }
};

// Makes the text services use the tables of `directory`; reports on standard error if they cannot.
// The report is not a message of the service, which would create strings, and they wait for the
// initialisation.
void setTableDirectory(char const* directory)
{
    int const rc = qvr_set_dir(directory);
    if (rc == 0)
        return;
    int const before = errno;
    char problem[6144] = "";  // a path, two names and some words
    if (qvr_check_dir != nullptr)
        qvr_check_dir(directory, problem, sizeof problem);
    auto const piece = [](char const* text) {
        return iovec{const_cast<char*>(text), strlen(text)};
    };
    bool const known = problem[0] != '\0';
    iovec pieces[] = {piece(known ? problem : directory),
                      piece(known               ? ""
                            : rc == qvrNoMemory ? ": not enough memory for the tables"
                                                : ": a table cannot be used; check them"),
                      piece(" (no table of the directory is used)\n")};
    zreporting::writeNow(stderr, pieces, 3);
    errno = before;
}

// Initialises the state of the process, and returns whether QVRDIR is set. Runs once: it creates no
// string and throws nothing, because a recursive call would wait for itself.
bool startServices()
{
    // A cancelled thread would leave the state half-initialised for the others.
    zreporting::CancelGuard const uncancelled;
    ztext::setProcessLocale();
    maxCharacterSize.store(static_cast<int>(MB_CUR_MAX), std::memory_order_relaxed);
    qvr_set_dir(kDefaultDir);
    char const* const directory = ztext::finalTableDirectory();
    if (directory == nullptr)
        return false;
    // The services read no environment variables. If they refuse the directory, their own tables
    // stay.
    setTableDirectory(directory);

    char systemName[512];
    if (qvr_os_lang_name(systemName, sizeof systemName) != 0)
        return true;
    systemName[sizeof systemName - 1] = '\0';
    if (qvr_canonical_loc(systemName, localeName, sizeof localeName) != 0)
        return true;
    localeName[sizeof localeName - 1] = '\0';
    localeHandle.store(qvr_loc_new(localeName), std::memory_order_release);
    localeKnown.store(true, std::memory_order_release);

    if (qvr_os_cs_name(localCodesetName, sizeof localCodesetName) != 0)
        return true;
    localCodesetName[sizeof localCodesetName - 1] = '\0';
    codesetKnown.store(true, std::memory_order_release);
    localHandle.store(qvr_cs_new(localCodesetName), std::memory_order_release);
    utf8Handle.store(qvr_cs_new(kUTF8), std::memory_order_release);
    return true;
}

char const* localCodesetNameIfKnown()
{
    return codesetKnown.load(std::memory_order_acquire) ? localCodesetName : nullptr;
}

char const* localeNameIfKnown()
{
    return localeKnown.load(std::memory_order_acquire) ? localeName : nullptr;
}

void commonInit()
{
    static bool const hasDirectory = startServices();
    if (!hasDirectory)
        ZNoQVREnvironmentException_6_0().throwException(kSource, raiseWithoutDirectory);
    bool const hasLocal = localHandle.load(std::memory_order_relaxed) != nullptr;
    if (hasLocal && utf8Handle.load(std::memory_order_relaxed) != nullptr)
        return;
    char const* const missing = hasLocal ? kUTF8 : localCodesetNameIfKnown();
    ZCodesetException_6_0(missing != nullptr ? missing : "")
        .throwException(kSource, raiseWithoutCodeset);
}

// Initialises, or reports the failure.
bool initialise()
{
    ReportingScope const scope;
    try {
        commonInit();
        return true;
    } catch (ZException_6_0& e) {
        e.print();
        return false;
    }
}

qvr_cs_t handleOrAbort(std::atomic<qvr_cs_t> const& handle)
{
    qvr_cs_t const loaded = handle.load(std::memory_order_acquire);
    if (loaded != nullptr || reporting)
        return loaded;
    if (!initialise())
        abort();
    return handle.load(std::memory_order_acquire);
}

qvr_loc_t processLocale()
{
    return localeHandle.load(std::memory_order_acquire);
}

// Returns whether `cs` is the local codeset, and the locale has one byte per character.
bool isSingleByteLocal(qvr_cs_t cs)
{
    return cs == localHandle.load(std::memory_order_acquire) && cs != nullptr &&
           maxCharacterSize.load(std::memory_order_relaxed) == 1;
}

// Returns the length in bytes of the character at `s` if `accepts` returns true for it, else 0.
int lengthIfOfClass(qvr_cs_t cs, char const* s, size_t n, int (*accepts)(uint32_t))
{
    uint32_t wc = 0;
    int const length = qvr_mbtowc(cs, &wc, s, n);
    return length >= 1 && accepts(wc) ? length : 0;
}

}  // namespace

qvr_cs_t zgetLCSHandle_6_0()
{
    return handleOrAbort(localHandle);
}

qvr_cs_t zgetUTF8Handle_6_0()
{
    return handleOrAbort(utf8Handle);
}

char const* zgetLocalCodesetName_6_0()
{
    if (localCodesetNameIfKnown() == nullptr && !reporting)
        initialise();
    return localCodesetNameIfKnown();
}

char const* zgetlocale_6_0()
{
    if (localeNameIfKnown() == nullptr && !reporting)
        initialise();
    return localeNameIfKnown();
}

void zset_cs_dir_6_0(char const* dir)
{
    if (dir != nullptr)
        setTableDirectory(dir);
}

int zmblen_6_0(qvr_cs_t cs, char const* s, size_t n)
{
    // KEPT: the terminator has length 1 here, unlike in every other codeset. A loop that adds the
    // results until it is past the terminator would never end with a length of 0.
    // Test: zqvrutil.KeepsLengthOneInSingleByteLocales
    if (isSingleByteLocal(cs))
        return 1;
    return qvr_mblen(cs, s, n);
}

int zmbtowc_6_0(qvr_cs_t cs, uint16_t* wc, char const* s, size_t n)
{
    uint32_t decoded = 0;
    int const length = qvr_mbtowc(cs, &decoded, s, n);
    // KEPT: 16 bits of the character, because wide strings of this library have 16-bit units. A
    // second unit would overwrite memory after a caller's single one.
    // Test: zqvrutil.KeepsSixteenBitsOfACharacter
    if (wc != nullptr)
        *wc = static_cast<uint16_t>(decoded);
    return length;
}

int zisspace_6_0(qvr_cs_t cs, char const* s, size_t n)
{
    return lengthIfOfClass(cs, s, n, qvr_iswspace);
}

int zisalpha_6_0(qvr_cs_t cs, char const* s, size_t n)
{
    return lengthIfOfClass(cs, s, n, qvr_iswalpha);
}

int ziswupper_6_0(uint32_t wc)
{
    return qvr_iswupper(wc);
}

int ziswlower_6_0(uint32_t wc)
{
    return qvr_iswlower(wc);
}

int ziswspace_6_0(uint32_t wc)
{
    return qvr_iswspace(wc);
}

int ziswdigit_6_0(uint32_t wc)
{
    return qvr_iswdigit(wc);
}

int ziswalpha_6_0(uint32_t wc)
{
    return qvr_iswalpha(wc);
}

int ziswalnum_6_0(uint32_t wc)
{
    return qvr_iswalnum(wc);
}

char* zstrstr_6_0(qvr_cs_t cs, char const* s, char const* needle)
{
    return qvr_strstr(cs, s, needle);
}

char* zstrpbrk_6_0(qvr_cs_t cs, char const* s, char const* set)
{
    return qvr_strpbrk(cs, s, set);
}

char* zstrtok_6_0(qvr_cs_t cs, char* s, char const* delimiters)
{
    return qvr_strtok(cs, s, delimiters);
}

size_t zstrspn_6_0(qvr_cs_t cs, char const* s, char const* set)
{
    return qvr_strspn(cs, s, set);
}

size_t zstrcspn_6_0(qvr_cs_t cs, char const* s, char const* set)
{
    return qvr_strcspn(cs, s, set);
}

char* zstrncat_6_0(qvr_cs_t cs, char* dst, char const* src, size_t n)
{
    return qvr_strncat(cs, dst, src, n);
}

char* zstrncpy_6_0(qvr_cs_t cs, char* dst, char const* src, size_t n)
{
    return qvr_strncpy(cs, dst, src, n);
}

char* zstrrchr_6_0(qvr_cs_t cs, char const* s, int c)
{
    return qvr_strrchr(cs, s, c);
}

char* zstrchr_6_0(qvr_cs_t cs, char const* s, int c)
{
    return qvr_strchr(cs, s, c);
}

char* zstrupper_6_0(qvr_cs_t cs, char* s)
{
    return qvr_strupper(cs, processLocale(), s);
}

char* zstrlower_6_0(qvr_cs_t cs, char* s)
{
    return qvr_strlower(cs, processLocale(), s);
}

int zstricmp_6_0(qvr_cs_t cs, char const* a, char const* b)
{
    return qvr_stricmp(cs, processLocale(), a, b);
}

int zstrnicmp_6_0(qvr_cs_t cs, char const* a, char const* b, size_t n)
{
    return qvr_strnicmp(cs, processLocale(), a, b, n);
}

char* zstrptime_6_0(qvr_cs_t cs, char const* s, char const* format, struct tm* result)
{
    return qvr_strptime(cs, processLocale(), s, format, result);
}

size_t zstrcount_6_0(qvr_cs_t cs, char const* s)
{
    if (s == nullptr)
        return 0;
    // KEPT: bytes, although the name suggests characters. A caller that sizes a buffer by the
    // result would make it too small otherwise.
    // Test: zqvrutil.KeepsCountingBytes
    size_t const length = strlen(s);
    if (isSingleByteLocal(cs))
        return length;
    if (qvr_mbspan != nullptr)
        return qvr_mbspan(cs, s, length);
    size_t at = 0;
    while (at < length) {
        int const step = zmblen_6_0(cs, s + at, std::min(length - at, kMaxBytesPerCharacter));
        if (step <= 0)
            break;
        at += static_cast<size_t>(step);
    }
    return at;
}

ptrdiff_t zlcs_to_utf8_6_0(char const* src, size_t srcLen, char* dst, size_t dstLen)
{
    if (src == nullptr || srcLen == 0 || dst == nullptr || dstLen == 0)
        return 0;
    return qvr_to_utf8(zgetLCSHandle_6_0(), src, srcLen, dst, dstLen);
}

ptrdiff_t zlcs_from_utf8_6_0(char const* src, size_t srcLen, char* dst, size_t dstLen)
{
    if (src == nullptr || srcLen == 0 || dst == nullptr || dstLen == 0)
        return 0;
    return qvr_from_utf8(zgetLCSHandle_6_0(), src, srcLen, dst, dstLen);
}

int zconvert_UTF16_to_UTF8_6_0(uint16_t const** src, uint16_t const* srcEnd, char** dst,
                               char const* dstEnd)
{
    constexpr int kConverted = 0;
    constexpr int kTargetExhausted = 2;
    constexpr unsigned char kLeadMark[] = {0x00, 0x00, 0xC0, 0xE0, 0xF0};  // by byte count

    uint16_t const* from = *src;
    char* to = *dst;
    int result = kConverted;
    while (from < srcEnd) {
        uint32_t value = *from;
        int units = 1;
        // KEPT: an unpaired surrogate is encoded like any other unit. A caller that stores such
        // text would not read it back unchanged otherwise.
        // Test: zqvrutil.KeepsUnpairedSurrogates
        bool const isHigh = value >= 0xD800 && value <= 0xDBFF;
        if (isHigh && srcEnd - from > 1 && from[1] >= 0xDC00 && from[1] <= 0xDFFF) {
            value = (value - 0xD800) * 1024 + (from[1] - 0xDC00u) + 0x10000;
            units = 2;
        }
        int const count = value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
        if (dstEnd - to < count) {
            result = kTargetExhausted;
            break;
        }
        for (int i = count - 1; i > 0; --i) {
            to[i] = static_cast<char>(0x80 | (value & 0x3F));
            value >>= 6;
        }
        to[0] = static_cast<char>(kLeadMark[count] | value);
        to += count;
        from += units;
    }
    *src = from;
    *dst = to;
    return result;
}

int ZGetLocale(ZAbstractMutableString_6_0& out)
{
    out.setChars(zgetlocale_6_0());
    return 0;
}
