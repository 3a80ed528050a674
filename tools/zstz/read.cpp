// read: the verbs get, list, stanzas and keys.
#include <errno.h>
#include <limits.h>
#include <stdlib.h>

#include <optional>

#include "commands.h"
#include "failures.h"
#include "key_lines.h"
#include "output.h"
#include "stanza_file.h"
#include "template_file.h"

namespace {

// Refuses a number outside the range of unsigned int. The library would return another number: it
// negates modulo 2^32 and clamps at the maximum.
void checkNumber(std::string const& value, Request const& request)
{
    char const* const text = value.c_str() + value.find_first_not_of(" \t\n\v\f\r");
    errno = 0;
    unsigned long const wide = strtoul(text, nullptr, 0);
    if (errno != 0 || wide > UINT_MAX || (*text == '-' && wide != 0))
        throw Failure{exitInvalidValue,
                      request.file,
                      {nameKey(request.key, request.stanza) + ": " + quote(value) +
                           " is not a number from 0 to " + std::to_string(UINT_MAX),
                       "leave out --as to print it unchanged"}};
}

// Returns the value that counts, converted.
std::string convertValue(Store const& store, Request const& request, std::string const& value)
{
    char const* const stanza = request.stanza.c_str();
    char const* const key = request.key.c_str();
    if (request.as == "number") {
        unsigned const number = store.getIntegerValue(stanza, key, 0, 0);
        if (!value.empty())
            checkNumber(value, request);
        return std::to_string(number);
    }
    if (request.as == "boolean")
        return store.getBooleanValue(stanza, key, 0, 0) != 0 ? "yes" : "no";
    return value;
}

// Returns the lines of the key, as spelled or by their numbers.
std::vector<std::string> describeLines(Store const& store, Request const& request)
{
    zlines::SharedText const text = keptText(store);
    zlines::Outline outline(text->text, text->dialect);
    std::vector<std::string> described;
    for (KeyLine const& line : findKeyLines(outline, request.stanza, request.key))
        described.push_back(request.line ? std::to_string(line.number) : std::string(line.raw));
    if (described.empty())
        throw Failure{exitNotFound,
                      request.file,
                      {nameKey(request.key, request.stanza) + " has no line in the file",
                       "its values are in the companion file"}};
    return described;
}

// Returns the values to print.
std::vector<std::string> chooseValues(Store const& store, Request const& request)
{
    if (request.line || request.raw) {
        std::vector<std::string> const lines = describeLines(store, request);
        return request.raw || request.all ? lines : std::vector<std::string>{lines.back()};
    }
    std::vector<std::string> const values = countingValuesOf(store, request.stanza, request.key);
    if (request.all)
        return values;
    std::string const value = convertValue(store, request, values.empty() ? "" : values.back());
    bool const hasValue = !values.empty() || request.as != "text" || request.format == "plain";
    return hasValue ? std::vector<std::string>{value} : std::vector<std::string>();
}

// Returns the value of a missing key: from --default, else from a template.
std::optional<std::string> defaultValue(Request const& request)
{
    if (request.hasFallback)
        return request.fallback;
    if (request.templateFile.empty())
        return {};
    Template const schema = readTemplate(request.templateFile, request.wait);
    TemplateKey const* const key = schema.find(request.stanza, request.key);
    return key == nullptr ? std::nullopt : std::optional(key->defaultValue);
}

}  // namespace

int runGet(Request const& request)
{
    Store store(chooseDialect(request, request.file));
    if (request.line || request.raw)
        store.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    loadFile(request, store);
    bool const isMissing =
        store.contents().contains(request.stanza.c_str(), request.key.c_str()) == 0;
    std::optional<std::string> const fallback = isMissing ? defaultValue(request) : std::nullopt;
    if (isMissing && !fallback)
        requireKey(store, request);
    std::vector<std::string> const values =
        isMissing ? std::vector<std::string>{*fallback} : chooseValues(store, request);
    ValuePrinter printer(request, ValuePrinter::onlyValues);
    std::vector<std::string_view> const views(values.begin(), values.end());
    printer.addStanza(request.stanza);
    printer.addKey(request.key, views, values.empty() ? "" : values.back());
    printer.finish();
    return exitDone;
}

int runStanzas(Request const& request)
{
    Store store(chooseDialect(request, request.file));
    loadFile(request, store);
    std::vector<std::string> names;
    for (Stanza const& stanza : outlineOf(store))
        names.push_back(stanza.name);
    printNames(request, names);
    return exitDone;
}

int runKeys(Request const& request)
{
    Store store(chooseDialect(request, request.file));
    loadFile(request, store);
    requireStanza(store, request.file, request.stanza);
    for (Stanza const& stanza : outlineOf(store))
        if (stanza.name == request.stanza)
            printNames(request, stanza.keys);
    return exitDone;
}

int runList(Request const& request)
{
    Store store(chooseDialect(request, request.file));
    loadFile(request, store);
    if (!request.key.empty())
        requireKey(store, request);
    else if (!request.stanza.empty())
        requireStanza(store, request.file, request.stanza);
    ValuePrinter printer(request, ValuePrinter::stanzasAndKeys);
    forEachKey(
        store,
        [&](std::string_view stanza) {
            bool const isWanted = request.stanza.empty() || stanza == request.stanza;
            if (isWanted)
                printer.addStanza(stanza);
            return isWanted;
        },
        [&](KeyView const& key) {
            if (!request.key.empty() && key.name != request.key)
                return;
            std::vector<std::string_view> const masks(key.isObfuscated ? key.values.size() : 0,
                                                      kMask);
            std::string const counting =
                !printer.needsCounting() || key.isObfuscated
                    ? kMask
                    : countingValue(store, std::string(key.stanza), std::string(key.name));
            printer.addKey(key.name, key.isObfuscated ? masks : key.values, counting);
        });
    printer.finish();
    return exitDone;
}
