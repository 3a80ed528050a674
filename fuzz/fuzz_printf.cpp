// Formatted output: compares formats generated from the input with the platform's output, and
// parses the input itself as a format: every accepted one must be valid.
#include <Z/zqvrutil.h>
#include <Z/zsnprintf.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "../tests/support/PrintfModel.h"
#include "check.h"

namespace {

// Numbers from the input: two bytes each, spread over 64 bits; zeros after its end.
struct Input {
    uint8_t const* data;
    size_t size;

    uint64_t operator()()
    {
        uint64_t number = 0;
        for (int i = 0; i < 2 && size > 0; ++i, --size)
            number = number << 8 | *data++;
        number *= 0x9E3779B97F4A7C15u;
        return number ^ number >> 29;
    }
};

// Formats into a heap block of `size` bytes, so that a sanitizer detects an overrun by one byte.
std::string cutTo(size_t size, std::string const& expected, auto print)
{
    std::vector<char> out(size);
    int const length = print(out.data(), static_cast<int>(size));
    check(length == static_cast<int>(expected.size()),
          "the length does not depend on the capacity");
    if (size == 0)
        return "";
    check(memchr(out.data(), '\0', size) != nullptr || expected.find('\0') != std::string::npos ||
              out[size - 1] == '\0',
          "the output is terminated");
    return std::string(out.data(), std::min(size - 1, expected.size()));
}

void compareWithThePlatform(Input input)
{
    using namespace printf_model;
    Generator<Input> generate(input);
    std::vector<unsigned> hits(kDifferenceCount);
    Example const made = example(generate, hits);
    auto const print = [&](char* out, int size) {
        return withArguments(made.format.values, [&](auto... arguments) {
            return zsnprintf_6_0(out, size, made.format.text.c_str(), arguments...);
        });
    };
    if (!made.isAccepted) {
        check(print(nullptr, 0) == -1, "an invalid format is rejected");
        return;
    }
    for (size_t const size : {size_t{0}, size_t{generate.below(65)}, made.expected.size() + 1})
        check(
            cutTo(size, made.expected, print) == made.expected.substr(0, size == 0 ? 0 : size - 1),
            "the output equals the platform's");
}

// Parses `format` with as many arguments as a format of this length can use.
int parse(ZPrintfContext_6_0* context, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int const result = zvsnprintf_parse_6_0(context, zgetLCSHandle_6_0(), format, args);
    va_end(args);
    return result;
}

constexpr size_t kLongestFormat = 64;

// Parses `format` with `p` for each of its arguments.
int parseWith(ZPrintfContext_6_0* context, std::string const& format, void const* p)
{
    return parse(context, format.c_str(), p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p,
                 p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p,
                 p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p);
}

// Replaces the fetched arguments with values that are the same in every run: printed addresses
// would make a failure irreproducible.
void setValues(ZPrintfContext_6_0& context, uint16_t const* text)
{
    for (int32_t i = 1; i <= context.argumentCount; ++i) {
        ZPrintfArgument_6_0& argument = context.arguments[i];
        switch (argument.type) {
            case zprintfChar:
                argument.value.character = 'c';
                break;
            case zprintfWideChar:
                argument.value.wideCharacter = static_cast<uint16_t>(0x40 + 97 * i);
                break;
            case zprintfString:
            case zprintfWideString:
                argument.value.pointer = text;
                break;
            case zprintfPointer:
                argument.value.pointer = reinterpret_cast<void const*>(uintptr_t{0xABC0} * i);
                break;
            case zprintfExponent:
            case zprintfFixed:
            case zprintfGeneral:
                argument.value.real = 1.5 * i;
                break;
            case zprintfLongDoubleExponent:
            case zprintfLongDoubleFixed:
            case zprintfLongDoubleGeneral:
                argument.value.longReal = -2.25L * i;
                break;
            default:
                argument.value.integer = 7 * i - 20;
        }
    }
}

void readAsFormat(std::string const& format)
{
    static std::regex const kFormat(
        R"(([^%]|%(\d+\$)?[ #'+0-]*(\d+|\*(\d+\$)?)?(\.(\d*|\*(\d+\$)?))?(h|l|ll|L|q)?)"
        R"([%CEGSXcdefgiopsux])*)");
    static uint16_t const kText[] = {'t', 'e', 'x', 't', 0};
    ZPrintfContext_6_0 context;
    int const result = parseWith(&context, format, kText);
    if (result != 0) {
        check(result == -1, "a rejection is -1");
        return;
    }
    check(std::regex_match(format, kFormat), "every accepted format is valid");
    char const* at = format.c_str();
    for (int32_t i = 0; i < context.conversionCount; ++i) {
        ZPrintfConversion_6_0 const& conversion = context.conversions[i];
        check(conversion.start >= at && *conversion.start == '%', "a conversion starts with %");
        check(conversion.end > conversion.start, "a conversion ends after its %");
        check(conversion.argIndex >= 0 && conversion.argIndex <= context.argumentCount,
              "its argument was fetched");
        at = conversion.end + 1;
    }
    check(strchr(at, '%') == nullptr, "every % is a conversion");
    setValues(context, kText);
    int const length = zvsnprintf_render_6_0(&context, nullptr, 0);
    constexpr int kMostRendered = 1 << 16;
    if (length >= 0 && length < kMostRendered) {
        auto const size = static_cast<size_t>(length);
        std::string whole(size + 1, '#');
        check(zvsnprintf_render_6_0(&context, whole.data(), length + 1) == length,
              "rendering again gives the same length");
        check(whole[size] == '\0', "rendering terminates the output");
        // Truncated anywhere, also inside a multibyte character: the same bytes, up to the
        // capacity.
        for (size_t const room : {size_t{1}, size / 2 + 1, size, size_t{17}}) {
            if (room > size || room == 0)
                continue;
            std::vector<char> cut(room, '#');
            check(zvsnprintf_render_6_0(&context, cut.data(), static_cast<int>(room)) == length,
                  "the length does not depend on the capacity");
            size_t const kept = strnlen(cut.data(), room);
            check(kept < room, "truncated output is terminated");
            size_t const first = std::min(strlen(whole.c_str()), room - 1);
            check(kept <= first && memcmp(cut.data(), whole.data(), kept) == 0,
                  "truncated output is a prefix of the whole");
            check(first - kept < 8, "truncation drops at most one partial character");
        }
    }
    zvsnprintf_done_6_0(&context);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size == 0)
        return 0;
    if (data[0] % 2 == 0)
        compareWithThePlatform({data + 1, size - 1});
    else
        readAsFormat(
            std::string(reinterpret_cast<char const*>(data + 1), std::min(size - 1, kLongestFormat))
                .c_str());
    return 0;
}
