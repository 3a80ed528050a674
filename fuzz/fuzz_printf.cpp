// Formatted output: formats made of the input are compared with what the platform gives for them,
// and the input itself is read as a format, which must be one when it is accepted.
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

// Numbers out of the input: two bytes each, spread over 64 bits; zeros when it has ended.
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

// Bytes of the heap, so that a sanitizer sees the first one too many.
std::string cutTo(size_t size, std::string const& expected, auto print)
{
    std::vector<char> out(size);
    int const length = print(out.data(), static_cast<int>(size));
    check(length == static_cast<int>(expected.size()), "the length does not depend on the room");
    if (size == 0)
        return "";
    check(memchr(out.data(), '\0', size) != nullptr || expected.find('\0') != std::string::npos ||
              out[size - 1] == '\0',
          "the text is ended");
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
    if (!made.isKnown) {
        check(print(nullptr, 0) == -1, "what is no format is refused");
        return;
    }
    for (size_t const size : {size_t{0}, size_t{generate.below(65)}, made.expected.size() + 1})
        check(
            cutTo(size, made.expected, print) == made.expected.substr(0, size == 0 ? 0 : size - 1),
            "the text is what the platform gives");
}

// Reads `format` with as many arguments as a format of this length can ask for.
int parse(ZPrintfContext_6_0* context, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int const result = zvsnprintf_parse_6_0(context, zgetLCSHandle_6_0(), format, args);
    va_end(args);
    return result;
}

constexpr size_t kLongestFormat = 64;

void readAsFormat(std::string const& format)
{
    static std::regex const kFormat(
        R"(([^%]|%(\d+\$)?[ #'+0-]*(\d+|\*(\d+\$)?)?(\.(\d*|\*(\d+\$)?))?(h|l|ll|L|q)?)"
        R"([%CEGSXcdefgiopsux])*)");
    static uint16_t const kText[] = {'t', 'e', 'x', 't', 0};
    void const* const p = kText;
    ZPrintfContext_6_0 context;
    int const result =
        parse(&context, format.c_str(), p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p,
              p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p,
              p, p, p, p, p, p, p, p, p, p, p, p, p, p, p);
    if (result != 0) {
        check(result == -1, "a refusal is -1");
        return;
    }
    check(std::regex_match(format, kFormat), "what is accepted is a format");
    char const* at = format.c_str();
    bool hasReal = false;
    for (int32_t i = 0; i < context.conversionCount; ++i) {
        ZPrintfConversion_6_0 const& conversion = context.conversions[i];
        check(conversion.start >= at && *conversion.start == '%', "a conversion begins with %");
        check(conversion.end > conversion.start, "and ends behind it");
        check(conversion.argIndex >= 0 && conversion.argIndex <= context.argumentCount,
              "its argument is one of those fetched");
        hasReal = hasReal || (conversion.type >= zprintfExponent &&
                              conversion.type <= zprintfLongDoubleGeneral);
        at = conversion.end + 1;
    }
    check(strchr(at, '%') == nullptr, "every % is a conversion");
    // No doubles were passed, so none are printed.
    if (!hasReal) {
        char small[32];
        char large[256];
        int const length = zvsnprintf_render_6_0(&context, nullptr, 0);
        check(zvsnprintf_render_6_0(&context, small, sizeof small) == length &&
                  zvsnprintf_render_6_0(&context, large, sizeof large) == length,
              "rendering again gives the same");
        if (length >= 0)
            check(memcmp(small, large, std::min<size_t>(static_cast<size_t>(length), 31)) == 0,
                  "and the same text");
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
