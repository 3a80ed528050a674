// FormattedText: the output of a format, parsed contexts, and locales for tests of formatting.
#pragma once

#include <Z/zqvrutil.h>
#include <Z/zsnprintf.h>
#include <gtest/gtest.h>
#include <locale.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

inline constexpr char kFailure[] = "<-1>";

// The output of `format`, or kFailure; the same through every entry point.
inline std::string text(char const* format, ...)
{
    char buffer[4096];
    memset(buffer, '~', sizeof buffer);
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int const length = zvsnprintf_6_0(buffer, sizeof buffer, format, args);
    char* allocated = buffer;
    EXPECT_EQ(length, zvasprintf_6_0(&allocated, format, again));
    va_end(again);
    va_end(args);
    if (length < 0) {
        EXPECT_EQ(-1, length);
        EXPECT_EQ(nullptr, allocated);
        return kFailure;
    }
    EXPECT_GT(static_cast<int>(sizeof buffer), length);
    EXPECT_EQ('\0', buffer[length]);
    std::string const result(buffer, static_cast<size_t>(length));
    EXPECT_EQ(result, std::string(allocated, static_cast<size_t>(length)));
    EXPECT_EQ('\0', allocated[length]);
    zasprintf_free_6_0(allocated);
    return result;
}

// A parsed context, released at the end.
class Parsed {
public:
    explicit Parsed(char const* format, ...)
    {
        va_list args;
        va_start(args, format);
        result_ = zvsnprintf_parse_6_0(&context, zgetLCSHandle_6_0(), format, args);
        va_end(args);
    }
    Parsed(Parsed const&) = delete;
    Parsed& operator=(Parsed const&) = delete;
    ~Parsed()
    {
        if (result_ == 0)
            zvsnprintf_done_6_0(&context);
    }

    int result() const { return result_; }

    std::string render(int size = 4096) const
    {
        std::vector<char> buffer(static_cast<size_t>(size) + 1, '~');
        int const length = zvsnprintf_render_6_0(&context, buffer.data(), size);
        return length < 0 ? kFailure : std::string(buffer.data());
    }

    ZPrintfContext_6_0 context;

private:
    int result_;
};

// `text` with the decimal point of the test's locale.
inline std::string withPoint(std::string text)
{
    char shown[8];
    snprintf(shown, sizeof shown, "%.1f", 0.5);
    std::replace(text.begin(), text.end(), '.', shown[1]);
    return text;
}

// Sets a locale in the thread whose decimal point and separator have two bytes each, if it is
// installed.
class LocaleOfLongPoint {
public:
    LocaleOfLongPoint()
    {
        zgetLocalCodesetName_6_0();  // caches the name before the locale changes
        if (isThere())
            before_ = uselocale(locale_);
    }
    LocaleOfLongPoint(LocaleOfLongPoint const&) = delete;
    LocaleOfLongPoint& operator=(LocaleOfLongPoint const&) = delete;
    ~LocaleOfLongPoint()
    {
        if (!isThere())
            return;
        uselocale(before_);
        freelocale(locale_);
    }

    bool isThere() const { return locale_ != nullptr; }

private:
    locale_t const locale_ = newlocale(LC_CTYPE_MASK | LC_NUMERIC_MASK, "ps_AF.UTF-8", nullptr);
    locale_t before_ = nullptr;
};

inline bool localCodesetIs(char const* name)
{
    return strcmp(name, zgetLocalCodesetName_6_0()) == 0;
}
