// Parsing dates: a time that the platform formats parses back to the same time. Any string with any
// format is parsed within its bounds or leaves the result unchanged.
#include <qvr.h>
#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "check.h"

namespace {

enum Field : unsigned {
    second = 1,
    minute = 2,
    hour = 4,
    day = 8,
    month = 16,
    year = 32,
    weekDay = 64,
    yearDay = 128,
    date = day | month | year | weekDay | yearDay,
    clockTime = second | minute | hour
};

// Conversions that strftime() supports too, with the fields that parsing them sets.
struct Conversion {
    char const* text;
    unsigned fields;
};
constexpr Conversion kConversions[] = {
    {"%Y-%m-%d", date}, {"%F", date},
    {"%D", date},       {"%x", date},
    {"%d %B %Y", date}, {"%e %b %Y", date},
    {"%j of %Y", date}, {"%U %w %Y", date},
    {"%W %u %Y", date}, {"%a", weekDay},
    {"%A", weekDay},    {"%H:%M:%S", clockTime},
    {"%T", clockTime},  {"%X", clockTime},
    {"%r", clockTime},  {"%R", hour | minute},
    {"%I %p", hour},    {"%k", hour},
    {"%l %p", hour},    {"%M", minute},
    {"%S", second},     {"%c", date | clockTime},
    {"%n%t%%", 0},      {"at", 0},
};

bool isLocalLeapSecond(tm const& time)
{
    return time.tm_sec > 59;
}

void readsBack(qvr_cs_t cs, Choices& choices)
{
    // From 1969 to 2068: two digits identify the year.
    uint64_t number = 0;
    for (int i = 0; i < 5; ++i)
        number = number << 8 | choices.byte();
    constexpr time_t kYear = 31556952;
    time_t const when = static_cast<time_t>(number % (98 * kYear)) + kYear / 2 - kYear;
    tm time = {};
    gmtime_r(&when, &time);
    if (isLocalLeapSecond(time))
        return;

    std::string format;
    unsigned fields = 0;
    for (unsigned n = 1 + choices.below(4); n > 0; --n) {
        Conversion const& conversion =
            kConversions[choices.below(sizeof kConversions / sizeof *kConversions)];
        format += conversion.text;
        format += "; ";
        fields |= conversion.fields;
    }
    char written[512];
    size_t const length = strftime(written, sizeof written, format.c_str(), &time);
    check(length > 0, "the buffer suffices");
    std::vector<char> const text(written, written + length + 1);
    tm result = {};
    char const* const end = qvr_strptime(cs, nullptr, text.data(), format.c_str(), &result);
    check(end == text.data() + length, "a date of the platform is parsed to its end");
    auto const same = [&](unsigned field, int got, int expected) {
        check((fields & field) == 0 || got == expected, "each field has its original value");
    };
    same(second, result.tm_sec, time.tm_sec);
    same(minute, result.tm_min, time.tm_min);
    same(hour, result.tm_hour, time.tm_hour);
    same(day, result.tm_mday, time.tm_mday);
    same(month, result.tm_mon, time.tm_mon);
    same(year, result.tm_year, time.tm_year);
    same(weekDay, result.tm_wday, time.tm_wday);
    same(yearDay, result.tm_yday, time.tm_yday);
}

bool isEqual(tm const& a, tm const& b)
{
    return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour &&
           a.tm_mday == b.tm_mday && a.tm_mon == b.tm_mon && a.tm_year == b.tm_year &&
           a.tm_wday == b.tm_wday && a.tm_yday == b.tm_yday;
}

void staysWithinItsEnds(qvr_cs_t cs, Choices& choices)
{
    // Each terminator is the last byte of a heap block.
    std::string const given = choices.text(60);
    std::string const rest = choices.rest();
    std::vector<char> format(given.c_str(), given.c_str() + strlen(given.c_str()) + 1);
    std::vector<char> text(rest.c_str(), rest.c_str() + strlen(rest.c_str()) + 1);
    tm before = {};
    before.tm_year = 104;
    before.tm_mon = 1;
    before.tm_mday = 29;
    before.tm_wday = 0;
    before.tm_yday = 59;
    tm result = before;
    char const* const end = qvr_strptime(cs, nullptr, text.data(), format.data(), &result);
    if (end == nullptr) {
        check(isEqual(before, result), "a string that does not match leaves the result unchanged");
        return;
    }
    check(end >= text.data() && end < text.data() + text.size(), "parsing ends inside the string");
    check(result.tm_sec >= 0 && result.tm_sec <= 61 && result.tm_min >= 0 && result.tm_min <= 59 &&
              result.tm_hour >= 0 && result.tm_hour <= 23,
          "the time is valid");
    check(result.tm_mon >= 0 && result.tm_mon <= 11 && result.tm_mday >= 0 &&
              result.tm_mday <= 31 && result.tm_wday >= 0 && result.tm_wday <= 6 &&
              result.tm_yday >= 0 && result.tm_yday <= 365,
          "the date is valid");
    tm again = before;
    check(qvr_strptime(cs, nullptr, text.data(), format.data(), &again) == end &&
              isEqual(again, result),
          "parsing again gives the same");
    // The parsed part without the rest gives the same result.
    std::vector<char> head(text.begin(), text.begin() + (end - text.data()));
    head.push_back('\0');
    tm cut = before;
    char const* const cutEnd = qvr_strptime(cs, nullptr, head.data(), format.data(), &cut);
    check(cutEnd == head.data() + head.size() - 1 && isEqual(cut, result),
          "the parsed part parses without the rest");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static qvr_cs_t const cs = [] {
        setenv("TZ", "UTC0", 1);
        tzset();
        return qvr_cs_new("UTF-8");
    }();
    check(cs != nullptr, "the codeset is known");
    Choices choices(data, size);
    if (choices.below(2) == 0)
        readsBack(cs, choices);
    else
        staysWithinItsEnds(cs, choices);
    return 0;
}
