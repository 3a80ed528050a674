#include "output.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>

#include "failures.h"
#include "json.h"

namespace {

char lineEnd(Request const& request)
{
    return request.null ? '\0' : '\n';
}

bool isNameByte(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

// Returns the name of the variable of a key. The part above the first header adds no name.
std::string variableName(std::string_view stanza, std::string_view key)
{
    std::string name;
    if (stanza != ".")
        (name += stanza) += '_';
    name += key;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !isNameByte(c); }, '_');
    return name.front() >= '0' && name.front() <= '9' ? '_' + name : name;
}

// Returns a value with its lines after the first indented, so that none looks like a header or a
// key.
std::string indentLines(std::string_view value)
{
    std::string indented;
    for (char const c : value) {
        indented += c;
        if (c == '\n')
            indented += "    ";
    }
    return indented;
}

void appendForShell(std::string_view text, std::string& out)
{
    out += '\'';
    for (;;) {
        size_t const quote = text.find('\'');
        out += text.substr(0, quote);
        if (quote == text.npos)
            break;
        out += "'\\''";
        text.remove_prefix(quote + 1);
    }
    out += '\'';
}

// Returns the form of the values. Plain lines need a line of their own for each stanza, so --null
// selects the form with a line for each value.
std::string formOf(Request const& request, ValuePrinter::PlainForm plainForm)
{
    bool const hasLines = request.null && plainForm == ValuePrinter::stanzasAndKeys;
    return request.format == "plain" && hasLines ? "lines" : request.format;
}

}  // namespace

void printLine(Request const& request, std::string_view text)
{
    if (request.quiet)
        return;
    fwrite(text.data(), 1, text.size(), stdout);
    putchar(lineEnd(request));
}

void printNames(Request const& request, std::vector<std::string> const& names)
{
    if (request.format == "json") {
        printLine(request, toJson(names));
        return;
    }
    for (std::string const& name : names)
        printLine(request, request.format == "lines" ? escapeField(name) : name);
}

std::string escapeField(std::string_view text)
{
    auto const isEscaped = [](char c) { return c == '\t' || c == '\n' || c == '\\'; };
    if (std::none_of(text.begin(), text.end(), isEscaped))
        return std::string(text);
    std::string escaped;
    escaped.reserve(text.size());
    for (char const c : text) {
        if (isEscaped(c))
            escaped += '\\';
        escaped += c == '\t' ? 't' : c == '\n' ? 'n' : c;
    }
    return escaped;
}

std::string patchPath(std::string const& path)
{
    std::string_view whole = path;
    std::string real;
    if (('/' + path + '/').find("/../") != path.npos) {
        size_t const name = path.rfind('/') + 1;
        char directory[PATH_MAX];
        if (realpath(path.substr(0, name).c_str(), directory) == nullptr)
            return path;
        real = std::string(directory) + '/' + path.substr(name);
        whole = real;
    }
    whole.remove_prefix(std::min(whole.find_first_not_of('/'), whole.size()));
    return std::string(whole);
}

ValuePrinter::ValuePrinter(Request const& request, PlainForm plainForm)
    : request_(request), plainForm_(plainForm), form_(formOf(request, plainForm))
{
}

template <class... Parts>
void ValuePrinter::append(Parts const&... parts)
{
    ((out_ += parts), ...);
    out_ += lineEnd(request_);
}

void ValuePrinter::addStanza(std::string_view name, std::string const& heading)
{
    endStanza();
    if (form_ == "json")
        out_ += (hasStanza_ ? ", " : "{") + toJson(name) + ": {";
    else if (form_ == "plain" && plainForm_ == stanzasAndKeys)
        append(hasStanza_ ? "\n" : "", heading.empty() ? '[' + std::string(name) + ']' : heading);
    stanza_ = name;
    if (form_ == "sh")
        stanzas_.push_back(stanza_);
    hasStanza_ = true;
    hasKey_ = false;
}

void ValuePrinter::endStanza()
{
    if (!hasStanza_)
        return;
    if (form_ == "json")
        out_ += '}';
    else if (form_ == "lines" && !hasKey_)
        append(escapeField(stanza_));
}

void ValuePrinter::addKey(std::string_view key, Values const& values, std::string_view counting)
{
    if (form_ == "json")
        addJson(key, values);
    else if (form_ == "sh")
        addVariables(key, values, counting);
    else if (form_ == "lines")
        addFields(key, values);
    else
        addPlain(key, values);
    hasKey_ = true;
}

void ValuePrinter::addPlain(std::string_view key, Values const& values)
{
    if (plainForm_ == onlyValues) {
        for (std::string_view const value : values)
            append(value);
        return;
    }
    if (values.empty())
        append(key, hasKeysAlone_ ? "" : " =");
    for (std::string_view const value : values)
        if (value.find('\n') == value.npos)
            append(key, " = ", value);
        else
            append(key, " = ", indentLines(value));
}

void ValuePrinter::addJson(std::string_view key, Values const& values)
{
    out_ += (hasKey_ ? ", " : "") + toJson(key) + ": " + toJson(values);
}

void ValuePrinter::addVariables(std::string_view key, Values const& values,
                                std::string_view counting)
{
    std::string const name = variableName(stanza_, key);
    addVariable(name, key, counting);
    if (values.size() < 2)
        return;
    addVariable(name + "_N", key, std::to_string(values.size()));
    for (size_t i = 0; i < values.size(); ++i)
        addVariable(name + '_' + std::to_string(i + 1), key, values[i]);
}

void ValuePrinter::addVariable(std::string_view name, std::string_view key, std::string_view value)
{
    variables_.push_back({std::hash<std::string_view>()(name), out_.size(), name.size(),
                          stanzas_.size() - 1, keys_.size(), key.size()});
    keys_ += key;
    out_ += name;
    out_ += '=';
    appendForShell(value, out_);
    out_ += lineEnd(request_);
}

void ValuePrinter::requireDistinctNames()
{
    auto const nameOf = [&](Variable const& variable) {
        return std::string_view(out_).substr(variable.name, variable.length);
    };
    auto const describe = [&](Variable const& variable) {
        return nameKey(keys_.substr(variable.key, variable.keyLength), stanzas_[variable.stanza]);
    };
    std::sort(variables_.begin(), variables_.end(), [&](Variable const& a, Variable const& b) {
        if (a.hash != b.hash)
            return a.hash < b.hash;
        int const order = nameOf(a).compare(nameOf(b));
        return order != 0 ? order < 0 : a.name < b.name;
    });
    auto const same = std::adjacent_find(variables_.begin(), variables_.end(),
                                         [&](Variable const& a, Variable const& b) {
                                             return a.hash == b.hash && nameOf(a) == nameOf(b);
                                         });
    if (same != variables_.end())
        throw Failure{exitRefused,
                      request_.file,
                      {describe(same[0]) + " and " + describe(same[1]) +
                           " have the same variable " + std::string(nameOf(*same)),
                       "use --format json or lines"}};
}

void ValuePrinter::addFields(std::string_view key, Values const& values)
{
    std::string const names = escapeField(stanza_) + '\t' + escapeField(key);
    if (values.empty())
        append(names);
    for (std::string_view const value : values)
        append(names, '\t', escapeField(value));
}

void ValuePrinter::finish()
{
    endStanza();
    requireDistinctNames();
    if (form_ == "json")
        append(hasStanza_ ? "}" : "{}");
    if (!request_.quiet)
        fwrite(out_.data(), 1, out_.size(), stdout);
}
