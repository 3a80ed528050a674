#include "value_types.h"

#include <Z/templates/typed_value.h>
#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <strings.h>

namespace {

// How the programs of a dialect read values.
struct ValueForms {
    std::string_view dialect;
    std::string_view units;        // letters for powers of 1024, from the first
    bool hasNumericBooleans;       // any other number than 0 is true
    char const* falseWord = "no";  // another word for false
};

constexpr ValueForms kOtherForms = {"", "", false};
constexpr ValueForms kForms[] = {
    {"git", "kmg", true},
    {"mysql", "kmgtpe", false},
    {"php", "", true, "none"},
};

ValueForms const& formsOf(std::string_view dialect)
{
    for (ValueForms const& forms : kForms)
        if (forms.dialect == dialect)
            return forms;
    return kOtherForms;
}

// Returns an integer with a unit, in bytes; nothing if it has none, or does not fit.
std::optional<std::string> scale(std::string const& value, std::string_view units)
{
    constexpr int kBitsPerUnit = 10;
    if (value.empty())
        return {};
    size_t const power =
        units.find(static_cast<char>(tolower(static_cast<unsigned char>(value.back()))));
    auto const number = ztemplates::toNumber(value.substr(0, value.size() - 1));
    if (power == units.npos || !number || number->text.find('.') != std::string::npos)
        return {};
    errno = 0;
    long long scaled = strtoll(number->text.c_str(), nullptr, 10);
    long long const unit = 1LL << (kBitsPerUnit * (static_cast<int>(power) + 1));
    if (errno != 0 || __builtin_mul_overflow(scaled, unit, &scaled))
        return {};
    return std::to_string(scaled);
}

}  // namespace

std::optional<bool> toBoolean(std::string const& value, std::string_view dialect)
{
    ValueForms const& forms = formsOf(dialect);
    if (auto const truth = ztemplates::toBoolean(value))
        return truth;
    if (strcasecmp(value.c_str(), forms.falseWord) == 0)
        return false;
    std::optional<std::string> const number =
        forms.hasNumericBooleans ? toNumber(value, dialect) : std::nullopt;
    return number ? std::optional(strtod(number->c_str(), nullptr) != 0) : std::nullopt;
}

std::optional<std::string> toNumber(std::string const& value, std::string_view dialect)
{
    if (auto const number = ztemplates::toNumber(value))
        return number->text;
    return scale(value, formsOf(dialect).units);
}
