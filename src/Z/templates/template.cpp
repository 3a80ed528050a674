#include "template.h"

#include <stdio.h>
#include <stdlib.h>
#include <strings.h>

#include <algorithm>
#include <utility>

#include "../problems/complaint.h"
#include "edit_distance.h"
#include "typed_value.h"

namespace ztemplates {

namespace {

using zproblems::quote;
using LoneLine = zdialects::LineRules::LoneLine;

constexpr char kSpaces[] = " \t\r\v\f";
std::string_view trim(std::string_view text)
{
    size_t const first = std::min(text.find_first_not_of(kSpaces), text.size());
    text.remove_prefix(first);
    while (!text.empty() && std::string_view(kSpaces).find(text.back()) != text.npos)
        text.remove_suffix(1);
    return text;
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

std::optional<double> toLimit(std::string_view text)
{
    std::optional<Number> const number = toNumber(std::string(trim(text)));
    return number ? std::optional(number->value) : std::nullopt;
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
        key.least = toLimit(limits->substr(0, dots));
        key.most = toLimit(limits->substr(dots + 2));
        return key.least.has_value() || key.most.has_value();
    }
    auto const rest = after(line, "required");
    if (rest && (rest->empty() || *rest == ".")) {
        key.isRequired = true;
        return true;
    }
    return false;
}

// Returns whether a comment that reads as a key is meant as one: a sentence with "=" has several
// words before it.
bool isName(std::string_view name, bool hasBlanks)
{
    return !name.empty() && name.find_first_of(hasBlanks ? "\t\"'`(" : " \t\"'`(") == name.npos;
}

// Returns whether a line or comment has a key and a separator. In some dialects, a key without a
// value needs none.
bool isAssignment(zlines::LineKind kind, std::string_view line, zlines::Dialect const& dialect)
{
    bool const endsWithSeparator =
        !line.empty() && dialect.separatorBytes().find(line.back()) != std::string_view::npos;
    return kind == zlines::valueLine || (kind == zlines::keyOnlyLine && endsWithSeparator);
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
        size_t const found = editDistance(name, candidate);
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
    if (type == boolean && !toBoolean(value))
        return quote(value) + " is not a boolean; use yes or no";
    std::optional<double> const parsed = toLimit(value);
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

Template::Template(std::string_view text, zlines::SharedDialect dialect)
    : dialect_(std::move(dialect))
{
    parse(text);
}

// A comment that reads as a header or as a key, without its mark, is one.
void Template::parse(std::string_view text)
{
    zlines::Dialect const& dialect = *dialect_;
    zdialects::LineRules const rules(dialect);
    std::vector<zlines::Line> lines;
    dialect.split(text, lines);
    std::vector<std::string> help;
    addStanza("");
    std::string space;
    for (size_t i = 0; i < lines.size(); ++i) {
        zlines::Line const& line = lines[i];
        size_t const end = i + 1 < lines.size() ? lines[i + 1].begin : text.size();
        std::string_view words = text.substr(line.begin, end - line.begin);
        words = trim(words.substr(0, words.find_last_not_of('\n') + 1));
        bool const isComment = words.starts_with('#') || words.starts_with(';');
        bool const hasBlanks = words.starts_with(';') && rules.dropsBlanks();
        while (words.starts_with('#') || words.starts_with(';'))
            words.remove_prefix(1);
        words = trim(words);
        LoneLine const lone = isComment ? rules.readAlone(words) : LoneLine{};
        bool const isHeader = isComment ? lone.kind == zlines::headerLine && words.ends_with(']')
                                        : line.kind == zlines::headerLine;
        auto const kind = static_cast<zlines::LineKind>(line.kind);
        bool const isKey = isAssignment(isComment ? lone.kind : kind, words, dialect) &&
                           (!isComment || isName(lone.name, hasBlanks));
        if (isHeader)
            addStanza(isComment ? lone.name : rules.stanzaName(text, line));
        else if (isKey && isComment)
            addKey(lone.name, lone.value, help);
        else if (isKey)
            addKey(rules.keyName(text, line),
                   kind == zlines::valueLine ? std::string(dialect.value(text, line, space)) : "",
                   help);
        if (isComment && !isHeader && !isKey)
            help.emplace_back(words);
        else
            help.clear();
    }
}

void Template::addStanza(std::string const& name)
{
    current_ = name;
    if (stanzaIndex_.emplace(stanzaIdentity(name), stanzas_.size()).second)
        stanzas_.push_back(name);
}

std::string Template::stanzaIdentity(std::string_view name) const
{
    bool const isTop = !name.empty() && name == dialect_->topStanza();
    return isTop ? "" : zdialects::LineRules(*dialect_).stanzaIdentity(name);
}

std::string Template::identityOf(std::string_view stanza, std::string_view key) const
{
    return stanzaIdentity(stanza) + '\n' + zdialects::LineRules(*dialect_).keyIdentity(key);
}

void Template::addKey(std::string const& name, std::string const& value,
                      std::vector<std::string>& help)
{
    if (!keyIndex_.emplace(identityOf(current_, name), keys_.size()).second)
        return;
    TemplateKey key;
    key.stanza = current_;
    key.name = name;
    key.defaultValue = value;
    for (std::string const& text : help)
        if (!takeConstraint(text, key))
            key.help.push_back(text);
    while (!key.help.empty() && key.help.back().empty())
        key.help.pop_back();
    while (!key.help.empty() && key.help.front().empty())
        key.help.erase(key.help.begin());
    // A digit is a number. A letter is a boolean only where the type is known.
    key.type = toNumber(value)                        ? TemplateKey::number
               : value.size() > 1 && toBoolean(value) ? TemplateKey::boolean
                                                      : TemplateKey::text;
    keysOfStanza_[stanzaIdentity(current_)].push_back(name);
    keys_.push_back(std::move(key));
}

bool Template::hasStanza(std::string_view stanza) const
{
    return stanzaIndex_.contains(stanzaIdentity(stanza));
}

TemplateKey const* Template::find(std::string_view stanza, std::string_view key) const
{
    auto const found = keyIndex_.find(identityOf(stanza, key));
    return found == keyIndex_.end() ? nullptr : &keys_[found->second];
}

std::string Template::nearestStanza(std::string_view name) const
{
    return nearest(name, stanzas_);
}

std::string Template::nearestKey(std::string_view stanza, std::string_view name) const
{
    auto const keys = keysOfStanza_.find(stanzaIdentity(stanza));
    return keys == keysOfStanza_.end() ? "" : nearest(name, keys->second);
}

}  // namespace ztemplates
