#include <new>
#include <string_view>

#include "codeset_p.h"
#include "locale_p.h"

namespace qvr {
namespace {

constexpr int kMonthStart[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

bool isLeap(int year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Returns the day of the week of 1 January.
int newYearsDay(int year)
{
    int const before = year + 399;  // the same position in the 400-year cycle, and positive
    return (before + before / 4 - before / 100 + before / 400 + 1) % 7;
}

// The two kinds of format: bytes in the caller's codeset, or a format of the locale.
class CodesetFormat {
public:
    CodesetFormat(qvr_cs const& cs, char const* s) : cs_(&cs), s_(s) {}

    // Consumes the next character into `value`; 0 at the end. Returns false if it is invalid.
    bool next(uint32_t& value)
    {
        int const length = qvr_mbtowc(cs_, &value, s_, SIZE_MAX);
        s_ += length > 0 ? length : 0;
        return length >= 0;
    }

private:
    qvr_cs_t cs_;
    char const* s_;
};

class WideFormat {
public:
    explicit WideFormat(std::u32string_view text) : rest_(text) {}

    bool next(uint32_t& value)
    {
        value = rest_.empty() ? 0 : rest_.front();
        rest_ = rest_.substr(rest_.empty() ? 0 : 1);
        return true;
    }

private:
    std::u32string_view rest_;
};

// Parses one string.
class TimeParser {
public:
    TimeParser(qvr_cs const& cs, qvr_loc_t loc, char const* s, tm const& start)
        : cs_(cs), loc_(loc), turkic_(isTurkic(loc)), s_(s), time_(start)
    {
    }

    template <class Format>
    bool parse(Format format, int depth = 0);

    // Computes the fields that follow from the parsed ones.
    bool deriveFields();

    char const* position() const { return s_; }
    tm const& time() const { return time_; }

private:
    // Returns the character at `s` and its length in bytes. Returns 0, which is not in any word or
    // format, at the end and for invalid bytes.
    uint32_t at(char const* s, int& length) const
    {
        uint32_t value = 0;
        length = qvr_mbtowc(&cs_, &value, s, SIZE_MAX);
        return value;
    }

    void skipSpace()
    {
        int length;
        while (qvr_iswspace(at(s_, length)))
            s_ += length;
    }

    bool parseLiteral(uint32_t wanted)
    {
        int length;
        if (at(s_, length) != wanted)
            return false;
        s_ += length;
        return true;
    }

    bool parseDigit(int& digit)
    {
        int length;
        uint32_t const value = at(s_, length);
        if (!qvr_iswdigit(value))
            return false;
        digit = static_cast<int>(value - '0');
        s_ += length;
        return true;
    }

    // Throws std::bad_alloc.
    TimeWords const& words() const { return loc_ == nullptr ? kEnglishWords : wordsOf(*loc_); }

    bool parseNumber(int least, int most, int& value);
    bool parseWord(std::u32string_view const* words, int count, int& index);
    bool parseZone();
    bool skipZoneName();
    bool parseEpoch();
    bool parseConversion(uint32_t conversion, int depth);
    void setMonthAndDay(int year);

    qvr_cs const& cs_;
    qvr_loc_t const loc_;
    bool const turkic_;
    char const* s_;
    tm time_;

    bool haveYear_ = false;
    bool haveMonth_ = false;
    bool haveDay_ = false;
    bool haveDayOfYear_ = false;
    bool haveDayOfWeek_ = false;
    bool wholeYear_ = false;  // century and year of century were given together
    int century_ = -1;
    int yearOfCentury_ = -1;
    int week_ = -1;
    int weekStart_ = 0;  // 0 Sunday, 1 Monday
    bool twelveHour_ = false;
    bool isPm_ = false;
};

// Reads digits while the number can still be at most `most`.
bool TimeParser::parseNumber(int least, int most, int& value)
{
    skipSpace();
    int number;
    if (!parseDigit(number))
        return false;
    int digit;
    for (int rest = most; rest >= 10 && number * 10 <= most && parseDigit(digit); rest /= 10)
        number = number * 10 + digit;
    if (number < least || number > most)
        return false;
    value = number;
    return true;
}

// Reads the longest of the words that is a prefix of the rest.
bool TimeParser::parseWord(std::u32string_view const* words, int count, int& index)
{
    char const* longest = nullptr;
    for (int i = 0; i < count; ++i) {
        char const* s = s_;
        bool same = true;
        for (char32_t const wanted : words[i]) {
            int length;
            uint32_t const value = at(s, length);
            same = fold(value, turkic_) == wanted;
            if (!same)
                break;
            s += length;
        }
        if (same && s > s_ && (longest == nullptr || s > longest)) {
            longest = s;
            index = i;
        }
    }
    if (longest == nullptr)
        return false;
    s_ = longest;
    return true;
}

bool TimeParser::parseZone()
{
    skipSpace();
    if (parseLiteral('Z')) {
        time_.tm_gmtoff = 0;
        return true;
    }
    bool const west = parseLiteral('-');
    if (!west && !parseLiteral('+'))
        return false;
    int part[4] = {};
    if (!parseDigit(part[0]) || !parseDigit(part[1]))
        return false;
    bool const colon = parseLiteral(':');
    if (parseDigit(part[2])) {
        if (!parseDigit(part[3]))
            return false;
    } else if (colon) {
        return false;
    }
    int const hours = part[0] * 10 + part[1];
    int const minutes = part[2] * 10 + part[3];
    if (hours > 14 || minutes > 59)
        return false;
    time_.tm_gmtoff = (west ? -1L : 1L) * (hours * 3600 + minutes * 60);
    return true;
}

bool TimeParser::skipZoneName()
{
    char const* const begin = s_;
    for (;;) {
        int length;
        uint32_t const value = at(s_, length);
        if (!qvr_iswalnum(value) && value != '+' && value != '-' && value != '<' && value != '>')
            return s_ != begin;
        s_ += length;
    }
}

bool TimeParser::parseEpoch()
{
    skipSpace();
    int digit;
    if (!parseDigit(digit))
        return false;
    time_t seconds = digit;
    while (parseDigit(digit))
        if (__builtin_mul_overflow(seconds, 10, &seconds) ||
            __builtin_add_overflow(seconds, digit, &seconds))
            return false;
    return localtime_r(&seconds, &time_) != nullptr;
}

bool TimeParser::parseConversion(uint32_t conversion, int depth)
{
    int value;
    switch (conversion) {
        case '%':
            return parseLiteral('%');
        case 'n':
        case 't':
            skipSpace();
            return true;
        case 'a':
        case 'A':
            if (!parseWord(words().days.data(), 14, value))
                return false;
            time_.tm_wday = value % 7;
            haveDayOfWeek_ = true;
            return true;
        case 'b':
        case 'B':
        case 'h':
            if (!parseWord(words().months.data(), 24, value))
                return false;
            time_.tm_mon = value % 12;
            haveMonth_ = true;
            return true;
        case 'c':
            return parse(WideFormat(words().dateAndTime), depth + 1);
        case 'x':
            return parse(WideFormat(words().date), depth + 1);
        case 'X':
            return parse(WideFormat(words().time), depth + 1);
        case 'r':
            return parse(WideFormat(words().time12), depth + 1);
        case 'D':
            return parse(WideFormat(U"%m/%d/%y"), depth + 1);
        case 'F':
            return parse(WideFormat(U"%Y-%m-%d"), depth + 1);
        case 'R':
            return parse(WideFormat(U"%H:%M"), depth + 1);
        case 'T':
            return parse(WideFormat(U"%H:%M:%S"), depth + 1);
        case 'C':
            haveYear_ = true;
            return parseNumber(0, 99, century_);
        case 'y':
            haveYear_ = true;
            if (wholeYear_)  // the last conversion wins; without %C it is in 1969 to 2068
                century_ = -1;
            wholeYear_ = false;
            return parseNumber(0, 99, yearOfCentury_);
        case 'Y':
            if (!parseNumber(0, 9999, value))
                return false;
            haveYear_ = wholeYear_ = true;
            century_ = value / 100;
            yearOfCentury_ = value % 100;
            return true;
        case 'm':
            if (!parseNumber(1, 12, value))
                return false;
            time_.tm_mon = value - 1;
            haveMonth_ = true;
            return true;
        case 'd':
        case 'e':
            haveDay_ = true;
            return parseNumber(1, 31, time_.tm_mday);
        case 'j':
            if (!parseNumber(1, 366, value))
                return false;
            time_.tm_yday = value - 1;
            haveDayOfYear_ = true;
            return true;
        case 'U':
        case 'W':
            weekStart_ = conversion == 'W' ? 1 : 0;
            return parseNumber(0, 53, week_);
        case 'w':
            haveDayOfWeek_ = true;
            return parseNumber(0, 6, time_.tm_wday);
        case 'u':
            if (!parseNumber(1, 7, value))
                return false;
            time_.tm_wday = value % 7;
            haveDayOfWeek_ = true;
            return true;
        case 'H':
        case 'k':
            twelveHour_ = false;
            return parseNumber(0, 23, time_.tm_hour);
        case 'I':
        case 'l':
            if (!parseNumber(1, 12, value))
                return false;
            time_.tm_hour = value % 12;
            twelveHour_ = true;
            return true;
        case 'p':
            if (!parseWord(words().amPm.data(), 2, value))
                return words().amPmUnnamed;
            isPm_ = value == 1;
            return true;
        case 'M':
            return parseNumber(0, 59, time_.tm_min);
        case 'S':
            return parseNumber(0, 61, time_.tm_sec);  // POSIX once allowed two leap seconds
        case 's':
            return parseEpoch();
        case 'z':
            return parseZone();
        case 'Z':
            return skipZoneName();
        default:
            return false;
    }
}

template <class Format>
bool TimeParser::parse(Format format, int depth)
{
    constexpr int kMaxDepth = 3;  // a locale's format may use another one, but not itself
    if (depth > kMaxDepth)
        return false;
    for (;;) {
        uint32_t c;
        if (!format.next(c))
            return false;
        if (c == 0)
            return true;
        if (qvr_iswspace(c)) {
            skipSpace();
            continue;
        }
        if (c != '%') {
            if (!parseLiteral(c))
                return false;
            continue;
        }
        if (!format.next(c))
            return false;
        if ((c == 'E' || c == 'O') && !format.next(c))
            return false;
        if (!parseConversion(c, depth))
            return false;
    }
}

// Finds month and day from the day of the year.
void TimeParser::setMonthAndDay(int year)
{
    int const* const start = kMonthStart[isLeap(year)];
    int month = 0;
    while (start[month + 1] <= time_.tm_yday)
        ++month;
    time_.tm_mon = month;
    time_.tm_mday = time_.tm_yday - start[month] + 1;
    haveMonth_ = haveDay_ = true;
}

bool TimeParser::deriveFields()
{
    if (twelveHour_ && isPm_)
        time_.tm_hour += 12;
    if (yearOfCentury_ >= 0 && century_ < 0)
        century_ = yearOfCentury_ < 69 ? 20 : 19;
    if (century_ >= 0)
        time_.tm_year = century_ * 100 + (yearOfCentury_ < 0 ? 0 : yearOfCentury_) - 1900;
    if (!haveYear_)
        return true;

    int const year = time_.tm_year + 1900;
    int const first = newYearsDay(year);
    bool const haveDate = haveMonth_ && haveDay_;
    if (!haveDate && !haveDayOfYear_ && week_ >= 0 && haveDayOfWeek_) {
        int const firstWeek = (7 - (first - weekStart_)) % 7;  // the first day of week 1
        time_.tm_yday = firstWeek + (week_ - 1) * 7 + (time_.tm_wday - weekStart_ + 7) % 7;
        haveDayOfYear_ = true;
    }
    if (haveDayOfYear_ && (time_.tm_yday < 0 || time_.tm_yday >= kMonthStart[isLeap(year)][12]))
        return false;  // not a day of this year
    if (haveDate && !haveDayOfYear_) {
        time_.tm_yday = kMonthStart[isLeap(year)][time_.tm_mon] + time_.tm_mday - 1;
        haveDayOfYear_ = true;
    } else if (haveDayOfYear_ && !haveDate) {
        setMonthAndDay(year);
    }
    if (haveDayOfYear_ && !haveDayOfWeek_)
        time_.tm_wday = (first + time_.tm_yday) % 7;
    return true;
}

}  // namespace
}  // namespace qvr

using namespace qvr;

char* qvr_strptime(qvr_cs_t cs, qvr_loc_t loc, char const* s, char const* format, struct tm* result)
{
    if (cs == nullptr || s == nullptr || format == nullptr || result == nullptr)
        return nullptr;
    try {
        TimeParser parser(*cs, loc, s, *result);
        if (!parser.parse(CodesetFormat(*cs, format)) || !parser.deriveFields())
            return nullptr;
        *result = parser.time();
        return const_cast<char*>(parser.position());
    } catch (std::bad_alloc const&) {
        return nullptr;  // the words of the locale are unknown
    }
}
