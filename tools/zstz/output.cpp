#include "output.h"

#include <stdio.h>

#include <algorithm>

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

// Returns the name of the variable of a key.
std::string variableName(std::string_view stanza, std::string_view key)
{
    std::string name(stanza);
    name += '_';
    name += key;
    for (char& c : name)
        if (!isNameByte(c))
            c = '_';
    return name.front() >= '0' && name.front() <= '9' ? '_' + name : name;
}

std::string quoteForShell(std::string_view text)
{
    std::string quoted = "'";
    for (char const c : text) {
        if (c == '\'')
            quoted += "'\\'";
        quoted += c;
    }
    return quoted + '\'';
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

void ValuePrinter::addStanza(std::string_view name)
{
    endStanza();
    if (form_ == "json")
        out_ += (hasStanza_ ? ", " : "{") + toJson(name) + ": {";
    else if (form_ == "plain" && plainForm_ == stanzasAndKeys)
        append(hasStanza_ ? "\n[" : "[", name, ']');
    stanza_ = name;
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
        append(key, " = ", value);
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

void ValuePrinter::addVariable(std::string const& name, std::string_view key,
                               std::string_view value)
{
    std::string const described = nameKey(std::string(key), stanza_);
    auto const [known, isNew] = variables_.emplace(name, described);
    if (!isNew)
        throw Failure{exitRefused,
                      request_.file,
                      {known->second + " and " + described + " have the same variable " + name,
                       "use --format json or lines"}};
    append(name, '=', quoteForShell(value));
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
    if (form_ == "json")
        append(hasStanza_ ? "}" : "{}");
    if (!request_.quiet)
        fwrite(out_.data(), 1, out_.size(), stdout);
}
