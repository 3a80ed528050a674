// PrintfModel: generates formats with several conversions from random numbers, and computes the
// output that we expect: the platform's output, except for the differences in kDifferences.
#pragma once

#include <limits.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace printf_model {

using Value = std::variant<int, long, long long, double, long double, char const*>;
enum class Spelling { none, empty, digits, argument };

struct Conversion {
    std::string flags;
    Spelling width = Spelling::none;
    int widthValue = 0;
    Spelling precision = Spelling::none;
    int precisionValue = 0;
    std::string length;
    char letter = 'd';
    Value value;

    bool has(char flag) const { return flags.find(flag) != std::string::npos; }
    bool isOneOf(char const* letters) const { return strchr(letters, letter) != nullptr; }
    bool hasPrecision() const
    {
        return precision == Spelling::empty || precision == Spelling::digits ||
               (precision == Spelling::argument && precisionValue >= 0);
    }
    bool isZero() const
    {
        int const* const number = std::get_if<int>(&value);
        if (number != nullptr && length == "h")
            return static_cast<short>(*number) == 0;
        return std::visit(
            [](auto v) {
                if constexpr (std::is_same_v<decltype(v), char const*>)
                    return v == nullptr;
                else
                    return v == 0;
            },
            value);
    }
    void drop(char flag)
    {
        size_t at;
        while ((at = flags.find(flag)) != std::string::npos)
            flags.erase(at, 1);
    }
};

inline size_t widthOf(Conversion const& c)
{
    return c.width == Spelling::none || c.widthValue < 0 ? 0 : static_cast<size_t>(c.widthValue);
}

// Returns whether a second 0 follows an effective 0 flag, and anything except width digits follows
// it.
inline bool hasFlagAfterSecondZero(Conversion const& c)
{
    bool zero = false;
    bool left = false;
    for (size_t i = 0; i < c.flags.size(); ++i) {
        if (c.flags[i] == '-') {
            left = true;
            zero = false;
        }
        if (c.flags[i] != '0')
            continue;
        if (zero)
            return c.flags.find_first_not_of('0', i) != std::string::npos ||
                   c.width == Spelling::argument;
        zero = !left;
    }
    return false;
}

// A difference from the platform: whether it applies, how to adapt the conversion to the closest
// one of the platform, and how to edit the platform's output. Without `adapt` we reject the format.
// Rows are applied in order, each to the result of the previous ones.
struct Difference {
    char const* description;
    bool (*applies)(Conversion const& c);
    void (*adapt)(Conversion& c);
    std::string (*edit)(std::string text, Conversion const& c);
};

inline std::string unchanged(std::string text, Conversion const&)
{
    return text;
}

constexpr char kReal[] = "eEfgG";
constexpr char kInteger[] = "diouxX";

inline Difference const kDifferences[] = {
    {"hh, j, z and t are not lengths",
     [](Conversion const& c) {
         return c.length == "hh" || c.length == "j" || c.length == "z" || c.length == "t";
     },
     nullptr, unchanged},
    {"h and l are invalid for doubles",
     [](Conversion const& c) { return c.isOneOf(kReal) && (c.length == "h" || c.length == "l"); },
     nullptr, unchanged},
    {"a, A and F are not conversions", [](Conversion const& c) { return c.isOneOf("aAF"); },
     nullptr, unchanged},
    {"a second 0 starts the width", hasFlagAfterSecondZero, nullptr, unchanged},
    {"a length has no effect on strings, pointers and %",
     [](Conversion const& c) { return c.isOneOf("scp%") && !c.length.empty(); },
     [](Conversion& c) { c.length.clear(); }, unchanged},
    {"L and q are ll for integers; on the platform only without argument numbers",
     [](Conversion const& c) {
         return c.isOneOf(kInteger) && (c.length == "L" || c.length == "q");
     },
     [](Conversion& c) { c.length = "ll"; }, unchanged},
    {"% is padded like a character", [](Conversion const& c) { return c.letter == '%'; },
     [](Conversion& c) {
         c.letter = 'c';
         c.value = int{'%'};
     },
     unchanged},
    {"the 0 flag has no effect on strings",
     [](Conversion const& c) { return c.isOneOf("sc") && c.has('0'); },
     [](Conversion& c) { c.drop('0'); }, unchanged},
    {"a null string is empty", [](Conversion const& c) { return c.letter == 's' && c.isZero(); },
     [](Conversion& c) { c.value = ""; }, unchanged},
    {"a negative width has no effect, except on doubles",
     [](Conversion const& c) {
         return !c.isOneOf(kReal) && c.width == Spelling::argument && c.widthValue < 0;
     },
     [](Conversion& c) { c.width = Spelling::none; }, unchanged},
    {"a negative width of a double clears the 0 flag; on the platform only without numbers",
     [](Conversion const& c) {
         return c.isOneOf(kReal) && c.width == Spelling::argument && c.widthValue < 0 && c.has('0');
     },
     [](Conversion& c) { c.drop('0'); }, unchanged},
    {"any precision clears the 0 flag",
     [](Conversion const& c) {
         return c.precision != Spelling::none && c.has('0') &&
                (c.isOneOf(kReal) || !c.hasPrecision());
     },
     [](Conversion& c) { c.drop('0'); }, unchanged},
    {"integers are not grouped",
     [](Conversion const& c) { return c.isOneOf(kInteger) && c.has('\''); },
     [](Conversion& c) { c.drop('\''); }, unchanged},
    {"# does not keep the digit of an octal 0 with precision 0",
     [](Conversion const& c) {
         return c.letter == 'o' && c.has('#') && c.isZero() && c.hasPrecision() &&
                c.precisionValue == 0;
     },
     [](Conversion& c) { c.drop('#'); }, unchanged},
    {"zeros of the 0 flag precede the sign",
     [](Conversion const& c) {
         return c.isOneOf("di") && c.has('0') && !c.has('-') && !c.hasPrecision() && widthOf(c) > 0;
     },
     [](Conversion&) {},
     [](std::string text, Conversion const&) {
         size_t const sign = text.find_first_of("+- ");
         size_t const digits = std::min(text.find_first_of("123456789"), text.size() - 1);
         if (sign == 0 && digits > 1)
             std::rotate(text.begin(), text.begin() + 1,
                         text.begin() + static_cast<ptrdiff_t>(digits));
         return text;
     }},
    {"# gives a hexadecimal 0 a prefix, which padding does not include",
     [](Conversion const& c) { return c.isOneOf("xX") && c.has('#') && c.isZero(); },
     [](Conversion& c) { c.drop('#'); },
     [](std::string text, Conversion const& c) {
         bool const isZeroPadded = c.has('0') && !c.has('-') && !c.hasPrecision();
         size_t const at = isZeroPadded || c.has('-') ? 0 : std::min(text.find('0'), text.size());
         return text.insert(at, {'0', c.letter});
     }},
    {"a pointer is a hexadecimal number with a prefix, padded with zeros",
     [](Conversion const& c) { return c.letter == 'p'; },
     [](Conversion& c) {
         c.letter = 'x';
         c.length = "l";
         c.flags.clear();
         c.width = Spelling::none;
         c.value = static_cast<long>(reinterpret_cast<intptr_t>(std::get<char const*>(c.value)));
     },
     [](std::string digits, Conversion const& c) {
         size_t const counted = digits.size() + (c.isZero() ? 0 : 2);
         std::string const zeros(std::max(widthOf(c), counted) - counted, '0');
         return "0x" + (c.has('-') ? digits + zeros : zeros + digits);
     }},
};

constexpr size_t kDifferenceCount = sizeof kDifferences / sizeof *kDifferences;

// Calls `print` with up to three values as variable arguments.
template <class Print>
int withArguments(std::vector<Value> const& values, Print print)
{
    switch (values.size()) {
        case 0:
            return print();
        case 1:
            return std::visit([&](auto a) { return print(a); }, values[0]);
        case 2:
            return std::visit([&](auto a, auto b) { return print(a, b); }, values[0], values[1]);
        default:
            return std::visit([&](auto a, auto b, auto c) { return print(a, b, c); }, values[0],
                              values[1], values[2]);
    }
}

[[gnu::noinline]] inline std::string platformText(std::string const& format,
                                                  std::vector<Value> const& values)
{
    static char out[1 << 16];
    int const length = withArguments(values, [&](auto... arguments) {
        // An extra argument is harmless; a call without arguments gives a warning.
        return snprintf(out, sizeof out, format.c_str(), arguments..., 0);
    });
    if (length < 0 || length >= static_cast<int>(sizeof out)) {
        std::fprintf(stderr, "the platform rejects \"%s\"\n", format.c_str());
        std::abort();
    }
    return std::string(out, static_cast<size_t>(length));
}

// Returns our expected output for one conversion: the platform's, edited by the table. Sets
// `accepted` to false if we reject the conversion. Counts the rows that applied.
inline std::string expectedText(Conversion c, std::vector<unsigned>& hits, bool& accepted)
{
    std::vector<std::pair<Difference const*, Conversion>> edits;
    accepted = true;
    for (size_t i = 0; i < kDifferenceCount; ++i) {
        Difference const& row = kDifferences[i];
        if (!row.applies(c))
            continue;
        ++hits[i];
        if (row.adapt == nullptr) {
            accepted = false;
            return "";
        }
        edits.emplace_back(&row, c);
        row.adapt(c);
    }
    std::string format = "%" + c.flags;
    if (c.width != Spelling::none)
        format += std::to_string(c.widthValue);
    if (c.precision == Spelling::empty)
        format += ".";
    else if (c.precision == Spelling::digits ||
             (c.precision == Spelling::argument && c.hasPrecision()))
        format += "." + std::to_string(c.precisionValue);
    format += c.length + c.letter;
    std::string text = platformText(format, {c.value});
    for (auto edit = edits.rbegin(); edit != edits.rend(); ++edit)
        text = edit->first->edit(std::move(text), edit->second);
    return text;
}

// Generates conversions from the numbers of `source`.
template <class Source>
class Generator {
public:
    explicit Generator(Source source) : random_(std::move(source)) {}

    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }
    bool oneIn(unsigned n) { return below(n) == 0; }

    long long integer()
    {
        static constexpr long long kSpecial[] = {
            0,   0,       1,       -1, 7,        -42,      9,        10,        99,
            100, INT_MIN, INT_MAX, -9, UINT_MAX, SHRT_MAX, SHRT_MIN, LLONG_MIN, LLONG_MAX};
        switch (below(4)) {
            case 0:
                return kSpecial[below(sizeof kSpecial / sizeof *kSpecial)];
            case 1:
                return static_cast<int>(below(2000)) - 1000;
            case 2:
                return static_cast<long long>(random_() >> below(64));
            default:
                return -static_cast<long long>(random_() >> (1 + below(63)));
        }
    }

    long double real()
    {
        static long double const kSpecial[] = {0.0L,
                                               -0.0L,
                                               1.0L,
                                               0.5L,
                                               1.5L,
                                               2.5L,
                                               0.125L,
                                               0.1L,
                                               9.995L,
                                               9.9999995L,
                                               999999.5L,
                                               999999.4999L,
                                               0.0001L,
                                               0.00001L,
                                               1e15L,
                                               1e16L,
                                               1e17L,
                                               123456.789L,
                                               1e22L,
                                               1e23L,
                                               1e300L,
                                               5e-324L,
                                               HUGE_VALL,
                                               -HUGE_VALL,
                                               18446744073709551615.0L,
                                               18446744073709551616.0L};
        switch (below(5)) {
            case 0:
                return kSpecial[below(sizeof kSpecial / sizeof *kSpecial)];
            case 1:
                return static_cast<long double>(integer()) / 1000;
            case 2:
                return static_cast<long double>(integer());
            case 3:
                return std::ldexp(static_cast<long double>(random_()), -64) *
                       std::pow(10.0L, static_cast<int>(below(40)) - 20);
            default: {
                uint64_t const bits = random_();
                double value;
                memcpy(&value, &bits, sizeof value);
                return value;
            }
        }
    }

    char const* text()
    {
        static char const* const kTexts[] = {
            nullptr,
            "",
            "a",
            "abc",
            "hello, world",
            "%d is not a conversion here",
            "a string that is longer than most of the generated widths"};
        return kTexts[below(sizeof kTexts / sizeof *kTexts)];
    }

    // Generates a conversion with at most `arguments` arguments.
    Conversion conversion(unsigned arguments)
    {
        Conversion c;
        for (unsigned n = below(4); n > 0; --n)
            c.flags += " #+-0'"[below(6)];
        static constexpr char kLetters[] = "diouxXdiouxXcspeEfgGeEfgG%aAF";
        // Rejected letters are rare, and so are lengths.
        c.letter = kLetters[below(oneIn(50) ? sizeof kLetters - 1 : sizeof kLetters - 4)];
        if (c.letter == '%' || arguments == 0)
            c.letter = '%';
        if (c.isOneOf(kInteger)) {
            static char const* const kLengths[] = {"", "", "h", "l", "ll", "L", "q"};
            static char const* const kRefused[] = {"hh", "j", "z", "t"};
            c.length = oneIn(50) ? kRefused[below(4)] : kLengths[below(7)];
        } else if (c.isOneOf(kReal)) {
            static char const* const kLengths[] = {"", "", "", "L", "ll", "q"};
            static char const* const kRefused[] = {"h", "l"};
            c.length = oneIn(50) ? kRefused[below(2)] : kLengths[below(6)];
        } else if (oneIn(20)) {
            static char const* const kLengths[] = {"h", "l", "ll", "L", "q"};
            c.length = kLengths[below(5)];
        }
        fillValue(c);
        unsigned left = c.letter == '%' ? arguments : arguments - 1;
        c.width = static_cast<Spelling>(below(4));
        if (c.width == Spelling::empty || (c.width == Spelling::argument && left == 0))
            c.width = Spelling::none;
        if (c.width == Spelling::argument)
            --left;
        c.widthValue = c.width == Spelling::none       ? 0
                       : c.width == Spelling::argument ? static_cast<int>(below(60)) - 20
                                                       : static_cast<int>(1 + below(40));
        c.precision = static_cast<Spelling>(below(4));
        if (c.precision == Spelling::argument && left == 0)
            c.precision = Spelling::none;
        if (c.precision == Spelling::digits || c.precision == Spelling::argument)
            c.precisionValue = static_cast<int>(oneIn(20) ? below(600) : below(24));
        if (c.precision == Spelling::argument && oneIn(4))
            c.precisionValue = -1 - c.precisionValue;
        return c;
    }

private:
    void fillValue(Conversion& c)
    {
        if (c.letter == 's') {
            c.value = text();
        } else if (c.letter == 'p') {
            c.value = reinterpret_cast<char const*>(static_cast<intptr_t>(integer()));
        } else if (c.letter == 'c') {
            c.value = static_cast<int>(below(256));
        } else if (c.isOneOf(kInteger)) {
            if (c.length == "l" || c.length == "j" || c.length == "z" || c.length == "t")
                c.value = static_cast<long>(integer());
            else if (c.length == "ll" || c.length == "L" || c.length == "q")
                c.value = integer();
            else
                c.value = static_cast<int>(integer());
        } else if (c.letter != '%') {
            if (c.length == "L" || c.length == "ll" || c.length == "q")
                c.value = real();
            else
                c.value = static_cast<double>(real());
        }
    }

    Source random_;
};

// A format with several conversions, and its arguments in order.
struct Format {
    std::string text;
    std::vector<Value> values;
};

// Writes conversions as a format. With `order` each argument is referenced by its number in it.
inline Format spell(std::vector<Conversion> const& conversions, std::vector<size_t> const* order)
{
    Format format;
    std::vector<Value> values;
    auto const take = [&](Value const& value) {
        values.push_back(value);
        return order != nullptr ? std::to_string((*order)[values.size() - 1] + 1) + "$"
                                : std::string();
    };
    for (Conversion const& c : conversions) {
        // In a conversion the number of the value is first, but the value follows width and
        // precision.
        std::string width, precision;
        if (c.width == Spelling::argument)
            width = "*" + take(c.widthValue);
        else if (c.width == Spelling::digits)
            width = std::to_string(c.widthValue);
        if (c.precision == Spelling::argument)
            precision = ".*" + take(c.precisionValue);
        else if (c.precision == Spelling::digits)
            precision = "." + std::to_string(c.precisionValue);
        else if (c.precision == Spelling::empty)
            precision = ".";
        std::string const number = c.letter == '%' ? "" : take(c.value);
        format.text += "%" + number + c.flags + width + precision + c.length + c.letter;
        format.text += "|";
    }
    format.values = values;
    if (order != nullptr)
        for (size_t i = 0; i < values.size(); ++i)
            format.values[(*order)[i]] = values[i];
    return format;
}

// A format and its expected output.
struct Example {
    Format format;
    std::string expected;
    bool isAccepted;      // otherwise we reject it
    bool equalsPlatform;  // no row of kDifferences applied
};

// Generates a format with up to three arguments. Counts in `hits` the rows of kDifferences that
// applied.
template <class Source>
Example example(Generator<Source>& generate, std::vector<unsigned>& hits)
{
    std::vector<Conversion> conversions;
    unsigned left = 3;
    do {
        conversions.push_back(generate.conversion(left));
        Conversion const& c = conversions.back();
        left -= (c.letter != '%') + (c.width == Spelling::argument) +
                (c.precision == Spelling::argument);
    } while (!generate.oneIn(left == 0 ? 1 : 3) && conversions.size() < 6);

    std::vector<size_t> order;
    for (unsigned n = 0; n < 3 - left; ++n)
        order.insert(order.begin() + generate.below(n + 1), n);
    bool const isPositional = generate.oneIn(3);

    Example made = {spell(conversions, isPositional ? &order : nullptr), "", true, true};
    std::vector<unsigned> const before = hits;
    for (Conversion const& c : conversions) {
        bool accepted;
        made.expected += expectedText(c, hits, accepted) + "|";
        made.isAccepted = made.isAccepted && accepted;
    }
    made.equalsPlatform = hits == before;
    if (made.equalsPlatform)  // pass the platform exactly the same call
        made.expected = platformText(made.format.text, made.format.values);
    return made;
}

}  // namespace printf_model
