#include "template.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>

#include <algorithm>
#include <numeric>

#include "../problems/complaint.h"

namespace ztemplates {

namespace {

using zproblems::quote;

constexpr char kSpaces[] = " \t\r\v\f";
constexpr char const* kTrueWords[] = {"yes", "true", "on"};
constexpr char const* kFalseWords[] = {"no", "false", "off"};

std::string_view trim(std::string_view text)
{
    size_t const first = std::min(text.find_first_not_of(kSpaces), text.size());
    text.remove_prefix(first);
    while (!text.empty() && std::string_view(kSpaces).find(text.back()) != text.npos)
        text.remove_suffix(1);
    return text;
}

bool isWord(std::string const& text, char const* const (&words)[3])
{
    return std::any_of(std::begin(words), std::end(words),
                       [&](char const* word) { return strcasecmp(word, text.c_str()) == 0; });
}

bool isBoolean(std::string const& text)
{
    return isWord(text, kTrueWords) || isWord(text, kFalseWords);
}

std::optional<double> toNumber(std::string const& text)
{
    bool const hasDigit = text.find_first_of("0123456789") != text.npos;
    bool const isPlain = text.find_first_not_of("+-.0123456789abcdefABCDEFxX") == text.npos;
    char* end = nullptr;
    double const value = strtod(text.c_str(), &end);
    return hasDigit && isPlain && *end == 0 ? std::optional(value) : std::nullopt;
}

std::string formatNumber(double value)
{
    char text[40];
    snprintf(text, sizeof text, "%.15g", value);
    return text;
}

// Returns the rest of a line that starts with `word`, whatever its case; nothing if it does not.
std::optional<std::string_view> after(std::string_view line, std::string_view word)
{
    if (line.size() < word.size() || strncasecmp(line.data(), word.data(), word.size()) != 0)
        return {};
    return trim(line.substr(word.size()));
}

std::vector<std::string> splitWords(std::string_view text)
{
    std::vector<std::string> words;
    while (!text.empty()) {
        size_t const end = std::min(text.find_first_of(" \t,|"), text.size());
        if (end > 0)
            words.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

// Returns whether a line of help is a constraint, which is stored in `key`.
bool takeConstraint(std::string_view line, TemplateKey& key)
{
    if (auto const words = after(line, "one of:")) {
        key.choices = splitWords(*words);
        return true;
    }
    if (auto const limits = after(line, "range:")) {
        size_t const dots = limits->find("..");
        if (dots == limits->npos)
            return false;
        key.least = toNumber(std::string(trim(limits->substr(0, dots))));
        key.most = toNumber(std::string(trim(limits->substr(dots + 2))));
        return key.least.has_value() || key.most.has_value();
    }
    auto const rest = after(line, "required");
    if (rest && (rest->empty() || *rest == ".")) {
        key.isRequired = true;
        return true;
    }
    return false;
}

// Returns the position of "=" in "key = default"; npos for any other line. A sentence with "=" has
// several words before it.
size_t findSign(std::string_view line)
{
    size_t const sign = line.find('=');
    std::string_view const name = trim(line.substr(0, sign));
    bool const isName =
        sign != line.npos && !name.empty() && name.find_first_of(" \t\"'`(") == name.npos;
    return isName ? sign : line.npos;
}

// Returns the edit distance of two names, in changed, added and removed bytes.
size_t distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            bool const isSame = tolower(static_cast<unsigned char>(a[i])) ==
                                tolower(static_cast<unsigned char>(b[j]));
            size_t const changed = diagonal + (isSame ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

template <class Names>
std::string nearest(std::string_view name, Names const& names)
{
    constexpr size_t kMaxLength = 200;
    std::string best;
    size_t const limit = name.size() < 4 ? 1 : std::max<size_t>(2, name.size() / 3);
    size_t least = limit + 1;
    for (std::string const& candidate : names) {
        if (candidate.size() > kMaxLength || name.size() > kMaxLength)
            continue;
        size_t const found = distance(name, candidate);
        if (found < least) {
            least = found;
            best = candidate;
        }
    }
    return best;
}

}  // namespace

char const* TemplateKey::typeName() const
{
    return type == number ? "number" : type == boolean ? "boolean" : "text";
}

std::string TemplateKey::check(std::string const& value) const
{
    if (!choices.empty()) {
        if (std::find(choices.begin(), choices.end(), value) != choices.end())
            return {};
        std::string list;
        for (std::string const& choice : choices)
            list += (list.empty() ? "" : ", ") + choice;
        return quote(value) + " is not one of the values; use one of " + list;
    }
    if (type == boolean && !isBoolean(value) && value != "0" && value != "1")
        return quote(value) + " is not a boolean; use yes or no";
    std::optional<double> const parsed = toNumber(value);
    if ((type == number || least || most) && !parsed)
        return quote(value) + " is not a number; use digits, such as " +
               (defaultValue.empty() ? "10" : defaultValue);
    if ((least && *parsed < *least) || (most && *parsed > *most))
        return quote(value) + " is out of range; use a number " +
               (least && most ? "from " + formatNumber(*least) + " to " + formatNumber(*most)
                : least       ? "from " + formatNumber(*least)
                              : "up to " + formatNumber(*most));
    return {};
}

Template::Template(std::string_view text)
{
    std::vector<std::string> help;
    addStanza("");
    while (!text.empty()) {
        size_t const end = std::min(text.find('\n'), text.size());
        std::string_view line = trim(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        bool const isComment = line.starts_with('#') || line.starts_with(';');
        while (line.starts_with('#') || line.starts_with(';'))
            line.remove_prefix(1);
        line = trim(line);
        bool const isHeader = line.starts_with('[') && line.ends_with(']');
        size_t const sign = isHeader ? line.npos : findSign(line);
        if (isHeader) {
            addStanza(line.substr(1, line.size() - 2));
            help.clear();
        } else if (sign != line.npos) {
            addKey(line, sign, help);
            help.clear();
        } else if (isComment) {
            help.emplace_back(line);
        } else {
            help.clear();
        }
    }
}

void Template::addStanza(std::string_view name)
{
    std::erase(stanzas_, name);
    stanzas_.emplace_back(name);  // the current stanza is the last
}

void Template::addKey(std::string_view line, size_t sign, std::vector<std::string>& help)
{
    std::string_view const name = trim(line.substr(0, sign));
    if (find(stanzas_.back(), name) != nullptr)
        return;
    TemplateKey key;
    key.stanza = stanzas_.back();
    key.name = name;
    key.defaultValue = trim(line.substr(sign + 1));
    for (std::string const& text : help)
        if (!takeConstraint(text, key))
            key.help.push_back(text);
    while (!key.help.empty() && key.help.back().empty())
        key.help.pop_back();
    while (!key.help.empty() && key.help.front().empty())
        key.help.erase(key.help.begin());
    key.type = isBoolean(key.defaultValue)  ? TemplateKey::boolean
               : toNumber(key.defaultValue) ? TemplateKey::number
                                            : TemplateKey::text;
    keys_.push_back(std::move(key));
}

bool Template::hasStanza(std::string_view stanza) const
{
    return std::find(stanzas_.begin(), stanzas_.end(), stanza) != stanzas_.end();
}

TemplateKey const* Template::find(std::string_view stanza, std::string_view key) const
{
    auto const found = std::find_if(keys_.begin(), keys_.end(), [&](TemplateKey const& known) {
        return known.stanza == stanza && known.name == key;
    });
    return found == keys_.end() ? nullptr : &*found;
}

std::string Template::nearestStanza(std::string_view name) const
{
    return nearest(name, stanzas_);
}

std::string Template::nearestKey(std::string_view stanza, std::string_view name) const
{
    std::vector<std::string> names;
    for (TemplateKey const& key : keys_)
        if (key.stanza == stanza)
            names.push_back(key.name);
    return nearest(name, names);
}

}  // namespace ztemplates
