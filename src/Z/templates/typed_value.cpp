#include "typed_value.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <strings.h>

#include <algorithm>
#include <iterator>

namespace ztemplates {

namespace {

constexpr char const* kTrueWords[] = {"yes", "y", "true", "t", "on", "1"};
constexpr char const* kFalseWords[] = {"no", "n", "false", "f", "off", "0"};

template <size_t n>
bool isOneOf(std::string const& text, char const* const (&words)[n])
{
    return std::any_of(std::begin(words), std::end(words),
                       [&](char const* word) { return strcasecmp(word, text.c_str()) == 0; });
}

// Returns whether digits are an unsigned decimal fraction, such as 2.5 or .5.
bool isFraction(std::string const& digits)
{
    size_t const point = digits.find('.');
    return point != digits.npos && digits.find_first_not_of("0123456789.") == digits.npos &&
           digits.find('.', point + 1) == digits.npos && point + 1 < digits.size();
}

}  // namespace

std::optional<bool> toBoolean(std::string const& value)
{
    if (isOneOf(value, kTrueWords))
        return true;
    if (isOneOf(value, kFalseWords))
        return false;
    return {};
}

std::optional<Number> toNumber(std::string const& value)
{
    bool const isNegative = value.starts_with('-');
    std::string const digits = value.substr(isNegative || value.starts_with('+') ? 1 : 0);
    std::string const sign = isNegative ? "-" : "";
    if (isFraction(digits)) {
        double const magnitude = strtod(digits.c_str(), nullptr);
        return Number{sign + digits, isNegative ? -magnitude : magnitude};
    }
    if (digits.empty() || isdigit(static_cast<unsigned char>(digits.front())) == 0)
        return {};
    errno = 0;
    char* end = nullptr;
    unsigned long const magnitude = strtoul(digits.c_str(), &end, 0);
    constexpr unsigned long kMostNegative = static_cast<unsigned long>(LONG_MAX) + 1;
    if (errno != 0 || *end != 0 || (isNegative && magnitude > kMostNegative))
        return {};
    auto const number = static_cast<double>(magnitude);
    return Number{(magnitude == 0 ? "" : sign) + std::to_string(magnitude),
                  isNegative ? -number : number};
}

}  // namespace ztemplates
