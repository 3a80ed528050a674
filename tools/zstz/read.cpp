// read: the verbs get, list, stanzas and keys.
#include <Z/dialects/counting.h>
#include <Z/dialects/line_rules.h>

#include <algorithm>
#include <optional>

#include "commands.h"
#include "failures.h"
#include "key_lines.h"
#include "output.h"
#include "stanza_file.h"
#include "template_file.h"
#include "value_types.h"

namespace {

using zdialects::EmptyValues;
using zdialects::KeyAlone;
using zdialects::RepeatedKey;

Failure describeType(Request const& request, std::string const& value, char const* type,
                     char const* remedy)
{
    return {
        exitInvalidValue,
        request.file,
        {nameKey(request.key, request.stanza) + ": " + quote(value) + " is not " + type, remedy}};
}

// Returns a value converted to the type of the request. A stanza file has no empty values: a key
// without values is 0 or no there.
std::string convertValue(Request const& request, std::string const& value, std::string_view dialect,
                         bool isStanzaFile)
{
    bool const isNothing = isStanzaFile && value.empty();
    if (request.as == "number") {
        std::optional<std::string> const number = toNumber(isNothing ? "0" : value, dialect);
        if (!number)
            throw describeType(request, value, "a number",
                               "write it in decimal, hexadecimal (0x) or octal (0)");
        return *number;
    }
    if (request.as == "boolean") {
        std::optional<bool> const truth = value.empty() ? false : toBoolean(value, dialect);
        if (!truth)
            throw describeType(request, value, "a boolean", "write yes or no");
        return *truth ? "yes" : "no";
    }
    return value;
}

// Returns the value that counts, converted. A key alone is an option that is set, in the dialects
// that have such options.
std::string convertCounting(Store const& store, Request const& request,
                            std::vector<std::string> const& values)
{
    bool const isOption = values.empty() && store.switches().keyAlone == KeyAlone::option;
    if (isOption && request.as == "boolean")
        return "yes";
    if (isOption && request.as == "number")
        throw Failure{
            exitInvalidValue,
            request.file,
            {nameKey(request.key, request.stanza) + " has no value, so it is not a number",
             "write one after \"=\""}};
    return convertValue(request, values.empty() ? "" : values.back(), store.dialect().name(),
                        store.isStanzaFile());
}

// Returns whether no value of an existing key counts, because an empty one resets it.
bool isReset(Store const& store, Request const& request)
{
    return store.switches().emptyValues == EmptyValues::reset &&
           countingValuesOf(store, request.stanza, request.key).empty();
}

// Returns the lines whose values count.
std::vector<KeyLine> countingLines(Store const& store, Request const& request,
                                   std::vector<KeyLine> const& lines)
{
    auto const [first, end] = zdialects::countingRange(
        store.switches(), request.key, static_cast<int>(lines.size()), [&] {
            auto const last = std::find_if(lines.rbegin(), lines.rend(),
                                           [](KeyLine const& line) { return line.value.empty(); });
            return static_cast<int>(lines.rend() - last);
        });
    return {lines.begin() + first, lines.begin() + end};
}

void throwMissing(Store const& store, Request const& request)
{
    requireKey(store, request);
    throw Failure{
        exitNotFound,
        request.file,
        {nameKey(request.key, request.stanza) + " has no value below the empty one, which "
                                                "resets it",
         "pass --raw to print the value of every line"}};
}

// Returns the lines of the key, as spelled or by their numbers.
std::vector<std::string> describeLines(Store const& store, Request const& request)
{
    zlines::SharedText const text = keptText(store);
    zlines::Outline outline(text->text, text->dialect);
    std::vector<KeyLine> lines = findKeyLines(outline, request.stanza, request.key);
    if (request.line && request.all)
        lines = countingLines(store, request, lines);
    std::vector<std::string> described;
    for (KeyLine const& line : lines)
        described.push_back(request.line ? std::to_string(line.number) : std::string(line.raw));
    if (described.empty() && !isReset(store, request))
        throw Failure{exitNotFound,
                      request.file,
                      {nameKey(request.key, request.stanza) + " has no line in the file",
                       "its values are in the companion file"}};
    return described;
}

// Returns whether the value of the key that counts is a line without a value, below or above lines
// with values.
bool isLastAlone(Store const& store, Request const& request)
{
    zlines::SharedText const text = keptText(store);
    if (text == nullptr || store.switches().keyAlone != KeyAlone::option)
        return false;
    zlines::Outline outline(text->text, text->dialect);
    std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
    bool const isFirst = store.switches().repeatedKey == RepeatedKey::first;
    return !lines.empty() &&
           (isFirst ? lines.front() : lines.back()).line.kind == zlines::keyOnlyLine;
}

// Returns the values to print.
std::vector<std::string> chooseValues(Store const& store, Request const& request)
{
    if (request.line || request.raw) {
        std::vector<std::string> const lines = describeLines(store, request);
        bool const isFirst = store.switches().repeatedKey == RepeatedKey::first;
        return request.raw || request.all
                   ? lines
                   : std::vector<std::string>{isFirst ? lines.front() : lines.back()};
    }
    std::vector<std::string> values = countingValuesOf(store, request.stanza, request.key);
    if (request.all)
        return values;
    if (isLastAlone(store, request))
        values.clear();
    std::string const value = convertCounting(store, request, values);
    bool const hasValue = !values.empty() || request.as != "text" || request.format == "plain";
    return hasValue ? std::vector<std::string>{value} : std::vector<std::string>();
}

// Returns the value of a missing key: from --default, else from a template.
std::optional<std::string> defaultValue(Store const& store, Request const& request)
{
    if (request.hasFallback)
        return convertValue(request, request.fallback, store.dialect().name(), false);
    if (request.templateFile.empty())
        return {};
    Template const schema = readTemplate(request.templateFile, request.wait,
                                         chooseTemplateDialect(request, store.dialect()));
    TemplateKey const* const key = schema.find(request.stanza, request.key);
    return key == nullptr ? std::nullopt
                          : std::optional(convertValue(request, key->defaultValue,
                                                       store.dialect().name(), false));
}

// Compares names of stanzas and keys with the names of a request; an empty name is any.
class NameFilter {
public:
    NameFilter(Store const& store, Request const& request)
        : dialect_(lineDialectOf(store.dialect())),
          rules_(*dialect_),
          stanza_(rules_.stanzaIdentity(request.stanza)),
          key_(rules_.keyIdentity(request.key))
    {
    }

    bool hasStanza(std::string_view name) const
    {
        return stanza_.empty() || rules_.stanzaIdentity(name) == stanza_;
    }
    bool hasKey(std::string_view name) const
    {
        return key_.empty() || rules_.keyIdentity(name) == key_;
    }

private:
    zlines::SharedDialect const dialect_;
    zdialects::LineRules const rules_;
    std::string const stanza_;
    std::string const key_;
};

}  // namespace

int runGet(Request const& request)
{
    Store store(chooseDialect(request, request.file));
    if (request.line || request.raw)
        store.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    loadFile(request, store);
    bool const isOneValue = !request.all && !request.raw && !request.line;
    bool const isMissing =
        store.contents().contains(request.stanza.c_str(), request.key.c_str()) == 0 ||
        (isOneValue && isReset(store, request));
    std::optional<std::string> const fallback =
        isMissing ? defaultValue(store, request) : std::nullopt;
    if (isMissing && !fallback)
        throwMissing(store, request);
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
    NameFilter const filter(store, request);
    for (Stanza const& stanza : outlineOf(store))
        if (filter.hasStanza(stanza.name))
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
    NameFilter const filter(store, request);
    zdialects::Switches const switches = store.switches();
    ValuePrinter printer(request, ValuePrinter::stanzasAndKeys);
    printer.printKeysAlone(switches.keyAlone == KeyAlone::option);
    forEachKey(
        store,
        [&](std::string_view stanza) {
            bool const isWanted = filter.hasStanza(stanza);
            if (isWanted)
                printer.addStanza(stanza, formatHeading(store.dialect(), stanza));
            return isWanted;
        },
        [&](KeyView const& key) {
            if (!filter.hasKey(key.name))
                return;
            std::vector<std::string_view> const masks(key.isObfuscated ? key.values.size() : 0,
                                                      kMask);
            std::string_view const counting =
                key.isObfuscated ? kMask : countingValue(switches, key);
            printer.addKey(key.name, key.isObfuscated ? masks : key.values, counting);
        });
    printer.finish();
    return exitDone;
}
