#include "locale_p.h"

#include <errno.h>
#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <cstring>
#include <forward_list>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "tables_p.h"

namespace qvr {
namespace {

// The name does not have the form of a locale name.
struct Malformed {};

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isAlphanumeric(char c)
{
    return isLetter(c) || (c >= '0' && c <= '9');
}

bool isNameByte(char c)
{
    return c != 0 && (isAlphanumeric(c) || std::strchr("_-.:+=,", c) != nullptr);
}

template <class Test>
void require(std::string_view part, size_t least, size_t most, Test test)
{
    if (part.size() < least || part.size() > most || !std::all_of(part.begin(), part.end(), test))
        throw Malformed();
}

// ASCII only, independent of the current locale.
std::string shiftRange(std::string_view part, char first, char last, int by)
{
    std::string result(part);
    for (char& c : result)
        if (c >= first && c <= last)
            c = static_cast<char>(c + by);
    return result;
}

std::string toLower(std::string_view part)
{
    return shiftRange(part, 'A', 'Z', 'a' - 'A');
}

std::string toUpper(std::string_view part)
{
    return shiftRange(part, 'a', 'z', 'A' - 'a');
}

// Cuts `text` at `mark` and returns the part after it; empty if `text` does not contain `mark`.
std::string_view splitAt(std::string_view& text, char mark)
{
    size_t const at = text.find(mark);
    if (at == std::string_view::npos)
        return {};
    std::string_view const part = text.substr(at + 1);
    if (part.empty())
        throw Malformed();
    text = text.substr(0, at);
    return part;
}

// Returns the canonical form of `name`. Throws Malformed if `name` does not have the form of a
// locale name.
std::string canonicalForm(std::string_view name)
{
    if (name.size() > kMaxName)
        throw Malformed();
    std::string_view language = name;
    std::string_view const modifier = splitAt(language, '@');
    std::string_view const codeset = splitAt(language, '.');
    std::string_view const territory = splitAt(language, '_');

    bool const isC = language == "C" || language == "POSIX";
    if (isC && !territory.empty())
        throw Malformed();
    if (!isC)
        require(language, 2, 3, isLetter);
    std::string canonical = isC ? std::string("C") : toLower(language);
    if (!territory.empty()) {
        require(territory, 2, 8, isAlphanumeric);
        canonical += '_' + toUpper(territory);
    }
    if (!codeset.empty()) {
        require(codeset, 1, kMaxName, isNameByte);
        canonical += '.' + preferredCodesetName(std::string(codeset).c_str());
    }
    if (!modifier.empty()) {
        require(modifier, 1, kMaxName, isNameByte);
        canonical += '@' + toLower(modifier);
    }
    return canonical;
}

// Resolves an alias and returns the canonical form. A site's own name for a locale may have another
// form and is its own canonical form.
std::string canonicalLocale(char const* name)
{
    std::string const resolved = resolveLocale(name);
    try {
        return canonicalForm(resolved);
    } catch (Malformed const&) {
        return resolved;
    }
}

int write(std::string_view text, char* buf, size_t room)
{
    if (text.size() >= room)
        return qvrNoRoom;
    std::memcpy(buf, text.data(), text.size());
    buf[text.size()] = 0;
    return 0;
}

// The first step of every function that fills a buffer with a name.
int clearBuffer(char* buf, size_t room)
{
    if (buf == nullptr)
        return qvrInvalid;
    if (room == 0)
        return qvrNoRoom;
    *buf = 0;
    return 0;
}

constexpr nl_item kDays[] = {DAY_1,   DAY_2,   DAY_3,   DAY_4,   DAY_5,   DAY_6,   DAY_7,
                             ABDAY_1, ABDAY_2, ABDAY_3, ABDAY_4, ABDAY_5, ABDAY_6, ABDAY_7};
constexpr nl_item kMonths[] = {MON_1,   MON_2,   MON_3,   MON_4,    MON_5,    MON_6,
                               MON_7,   MON_8,   MON_9,   MON_10,   MON_11,   MON_12,
                               ABMON_1, ABMON_2, ABMON_3, ABMON_4,  ABMON_5,  ABMON_6,
                               ABMON_7, ABMON_8, ABMON_9, ABMON_10, ABMON_11, ABMON_12};
constexpr nl_item kAmPm[] = {AM_STR, PM_STR};

struct LocaleFreer {
    void operator()(locale_t locale) const { freelocale(locale); }
};
using LocalePtr = std::unique_ptr<std::remove_pointer_t<locale_t>, LocaleFreer>;

struct CodesetFreer {
    void operator()(qvr_cs_t cs) const { qvr_cs_free(cs); }
};
using CodesetPtr = std::unique_ptr<qvr_cs const, CodesetFreer>;

// Reads a string of an operating system's locale; empty if it is invalid in the locale's codeset.
std::u32string readText(locale_t locale, qvr_cs_t cs, nl_item item, bool turkic, bool folded)
{
    std::u32string text;
    for (char const* s = nl_langinfo_l(item, locale);;) {
        uint32_t value;
        int const length = qvr_mbtowc(cs, &value, s, qvrMbLenMax);
        if (length < 0)
            return {};
        if (length == 0)
            return text;
        text += static_cast<char32_t>(folded ? fold(value, turkic) : value);
        s += length;
    }
}

// Returns the operating system's locale called `name`; null if not found.
LocalePtr openLocale(char const* name)
{
    errno = 0;  // newlocale() need not set it for an unknown locale
    LocalePtr locale(newlocale(LC_ALL_MASK, name, nullptr));
    if (locale == nullptr && errno == ENOMEM)
        throw std::bad_alloc();
    return locale;
}

// Returns the name by which the operating system knows the locale `canonical`, if it is the current
// locale and has another name; else an empty string.
std::string currentName(std::string const& canonical)
{
    LocalePtr const inForce(duplocale(LC_GLOBAL_LOCALE));  // safe while another thread changes it
    if (inForce == nullptr)
        throw std::bad_alloc();
    char const* const name = nl_langinfo_l(NL_LOCALE_NAME(LC_CTYPE), inForce.get());
    return name != canonical && canonicalLocale(name) == canonical ? name : "";
}

}  // namespace

// The words of a locale, and the storage of words that are not English.
struct SystemWords {
    TimeWords words = kEnglishWords;
    std::forward_list<std::u32string> storage;
};

namespace {

// Replaces the English words with the operating system's words for the locale.
void readWords(qvr_loc const& loc, SystemWords& own)
{
    LocalePtr locale = openLocale(loc.name.c_str());
    if (locale == nullptr && !loc.systemName.empty())
        locale = openLocale(loc.systemName.c_str());
    if (locale == nullptr)
        return;
    CodesetPtr const cs(qvr_cs_new(nl_langinfo_l(CODESET, locale.get())));
    if (cs == nullptr)
        return;
    auto const setWord = [&](std::u32string_view& word, nl_item item, bool folded) {
        std::u32string text = readText(locale.get(), cs.get(), item, loc.turkic, folded);
        if (!text.empty())
            word = own.storage.emplace_front(std::move(text));
    };
    TimeWords& words = own.words;
    for (size_t i = 0; i < words.days.size(); ++i)
        setWord(words.days[i], kDays[i], true);
    for (size_t i = 0; i < words.months.size(); ++i)
        setWord(words.months[i], kMonths[i], true);
    for (size_t i = 0; i < words.amPm.size(); ++i)
        setWord(words.amPm[i], kAmPm[i], true);
    words.amPmUnnamed = *nl_langinfo_l(AM_STR, locale.get()) == 0;
    setWord(words.dateAndTime, D_T_FMT, false);
    setWord(words.date, D_FMT, false);
    setWord(words.time, T_FMT, false);
    setWord(words.time12, T_FMT_AMPM, false);
}

}  // namespace

TimeWords const& wordsOf(qvr_loc const& loc)
{
    SystemWords* known = loc.words.load(std::memory_order_acquire);
    if (known == nullptr) {
        auto fresh = std::make_unique<SystemWords>();
        readWords(loc, *fresh);
        // Another thread may have read the same words in the meantime.
        if (loc.words.compare_exchange_strong(known, fresh.get(), std::memory_order_acq_rel,
                                              std::memory_order_acquire))
            known = fresh.release();
    }
    return known->words;
}

}  // namespace qvr

qvr_loc::~qvr_loc()
{
    delete words.load(std::memory_order_relaxed);
}

using namespace qvr;

int qvr_os_lang_name(char* buf, size_t room)
{
    if (int const failed = clearBuffer(buf, room); failed != 0)
        return failed;
    return write(setlocale(LC_CTYPE, nullptr), buf, room);
}

int qvr_os_cs_name(char* buf, size_t room)
{
    if (int const failed = clearBuffer(buf, room); failed != 0)
        return failed;
    return write(nl_langinfo(CODESET), buf, room);
}

int qvr_canonical_loc(char const* osName, char* buf, size_t room)
{
    int failed = qvrInvalid;
    if (osName != nullptr && *osName != 0) {
        try {
            // Computed before `buf` is written: both arguments may be the same.
            std::string const canonical = canonicalLocale(osName);
            failed = clearBuffer(buf, room);
            return failed != 0 ? failed : write(canonical, buf, room);
        } catch (std::bad_alloc const&) {
            failed = qvrNoMemory;
        }
    }
    clearBuffer(buf, room);
    return failed;
}

qvr_loc_t qvr_loc_new(char const* name)
{
    if (name == nullptr || *name == 0)
        return nullptr;
    try {
        auto loc = std::make_unique<qvr_loc>();
        loc->name = canonicalLocale(name);
        loc->systemName = currentName(loc->name);
        std::string const language = loc->name.substr(0, loc->name.find_first_of("_.@"));
        loc->turkic = language == "tr" || language == "az";
        return loc.release();
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

void qvr_loc_free(qvr_loc_t loc)
{
    delete loc;
}
