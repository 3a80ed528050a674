// change: the verbs set, add, unset and rename.
#include <Z/dialects/counting.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <optional>

#include "commands.h"
#include "commented_lines.h"
#include "edited_file.h"
#include "failures.h"
#include "key_lines.h"
#include "secret_input.h"
#include "spelling.h"
#include "stanza_file.h"

namespace {

// The values of a key are all plain or all obfuscated.
void checkKind(Store const& store, Request const& request)
{
    if (store.numValues(request.stanza.c_str(), request.key.c_str()) == 0)
        return;
    bool const obfuscated = store.isObfuscated(request.stanza.c_str(), request.key.c_str()) != 0;
    if (obfuscated == request.obfuscated)
        return;
    std::string const key = nameKey(request.key, request.stanza);
    throw Failure{exitRefused, request.file,
                  obfuscated ? Problem{key + " has obfuscated values",
                                       "pass --obfuscated, or remove the key with 'zstz unset'"}
                             : Problem{key + " has plain values",
                                       "leave out --obfuscated, or "
                                       "remove the key with 'zstz unset'"}};
}

[[noreturn]] void throwCountRefusal(Request const& request, std::string const& values,
                                    std::string const& remedy)
{
    throw Failure{
        exitRefused,
        request.file,
        {nameKey(request.key, request.stanza) + " has " + values, "pass --all to " + remedy}};
}

// Returns whether only one line of a key is valid.
bool countsOnce(Store const& store, std::string const& key)
{
    return zdialects::countsOnce(store.switches(), key);
}

bool resets(Store const& store)
{
    return store.switches().emptyValues == zdialects::EmptyValues::reset;
}

// Returns the index of the first value that no empty value below resets.
size_t firstAfterReset(Store const& store, std::vector<std::string> const& values)
{
    if (!resets(store))
        return 0;
    return static_cast<size_t>(values.rend() - std::find(values.rbegin(), values.rend(), ""));
}

// Returns the index of the only valid line of a key with values.
size_t validIndex(Store const& store, std::vector<std::string> const& values)
{
    bool const isFirst = store.switches().repeatedKey == zdialects::RepeatedKey::first;
    return isFirst ? 0 : values.size() - 1;
}

// Returns the command that lists the values of a key.
std::string listCommand(Request const& request)
{
    return "run 'zstz get " + shellWord(request.file) + " " + shellWord(request.stanza) + " " +
           shellWord(request.key) + " --all' to list its values";
}

// Returns the help for a change of one entry of a list, in a dialect where a list is one value:
// lines of text, or entries with separators.
std::string wholeValueHelp(std::string const& value)
{
    bool const isList = value.find_first_of("\n;,") != value.npos;
    return isList ? "the list is one value: use 'zstz set' with all of its text" : "";
}

// Returns the index of a value that a key must have: of the valid line, if only one is. The values
// above the last empty value have no effect where empty values are resets.
size_t indexOf(Store const& store, std::vector<std::string> const& values, std::string const& value,
               Request const& request)
{
    std::string const key = nameKey(request.key, request.stanza);
    if (values.empty() && value.empty())
        throw Failure{exitNotFound, request.file, {key + " has no values", "leave out the value"}};
    size_t const after = firstAfterReset(store, values);
    if (value.empty() && after > 0)
        return after - 1;
    if (!values.empty() && countsOnce(store, request.key) &&
        values[validIndex(store, values)] == value)
        return validIndex(store, values);
    auto const begin = values.begin() + static_cast<ptrdiff_t>(after);
    auto const found = std::find(begin, values.end(), value);
    if (found != values.end())
        return static_cast<size_t>(found - values.begin());
    bool const isReset = std::find(values.begin(), begin, value) != begin;
    std::string help;
    if (!values.empty() && countsOnce(store, request.key))
        help = wholeValueHelp(values[validIndex(store, values)]);
    throw Failure{exitNotFound,
                  request.file,
                  {key + (isReset ? " has the value " + quote(value) +
                                        " only above the empty value, which resets it"
                                  : " has no value " + quote(value)),
                   help.empty() ? listCommand(request) : help}};
}

// Returns the index of the value that --nth names.
size_t numberedIndex(Store const& store, std::vector<std::string> const& values,
                     Request const& request)
{
    unsigned long const number = strtoul(request.nth.c_str(), nullptr, 10);
    size_t const first = firstAfterReset(store, values);
    if (first == values.size() && first > 0)
        throw Failure{exitNotFound,
                      request.file,
                      {nameKey(request.key, request.stanza) +
                           " has no value below the empty value, which resets those above",
                       "use 'zstz add'"}};
    if (number > values.size() - first)
        throw Failure{exitNotFound,
                      request.file,
                      {nameKey(request.key, request.stanza) + " has " +
                           formatCount(values.size() - first, "value", "values"),
                       "choose one of them with --nth"}};
    return first + number - 1;
}

void printNote(Request const& request, std::string const& text)
{
    if (!request.quiet)
        fprintf(stderr, "zstz: %s: note: %s\n", toPrintable(request.file).c_str(),
                toPrintable(nameKey(request.key, request.stanza) + ' ' + text).c_str());
}

// Reports that only one of the lines of a key is valid.
void noteValidLine(Store const& store, std::vector<std::string> const& values,
                   Request const& request)
{
    printNote(request, "has " + std::to_string(values.size()) + " lines, and only the " +
                           (validIndex(store, values) == 0 ? "first" : "last") + " is valid");
}

void setValues(Store& store, Request const& request, std::vector<std::string> const& values)
{
    if (store.isStanzaFile() && values.size() > 1 &&
        std::find(values.begin(), values.end(), "") != values.end())
        throw Failure{
            exitInvalidValue,
            request.file,
            {nameKey(request.key, request.stanza) + ": one of several values cannot be empty",
             "remove it with 'zstz unset'"}};
    std::vector<char const*> texts;
    for (std::string const& value : values)
        texts.push_back(value.c_str());
    store.setValues(request.stanza.c_str(), request.key.c_str(), texts.data(),
                    static_cast<unsigned>(texts.size()));
}

// In stanza files, prepareValue() has checked the names and the value.
void checkNewValue(Store const& store, Request const& request)
{
    checkTopStanza(store, request, request.stanza);
    if (!store.isStanzaFile())
        checkSpelling(store, request, request.stanza, request.key, request.value.c_str());
}

// Checks --only: whether the key must exist or must not exist.
void checkExistence(Store const& store, Request const& request)
{
    if (request.only == "existing")
        requireKey(store, request);
    if (request.only == "new" && store.exists(request.stanza.c_str(), request.key.c_str()) != 0)
        throw Failure{exitRefused,
                      request.file,
                      {nameKey(request.key, request.stanza) + " exists",
                       "leave out --only new to change it"}};
}

// Returns whether a valid value of the key is the value of the request. An empty value, which
// resets the others, is never there already.
bool hasValue(Store const& store, Request const& request)
{
    std::vector<std::string> const values = countingValuesOf(store, request.stanza, request.key);
    return std::find(values.begin(), values.end(), request.value) != values.end();
}

// Inserts a value at the place that the request names, else after the others.
void insertValue(Store& store, Request const& request, bool isPlaced)
{
    std::vector<std::string> values = valuesOf(store, request.stanza, request.key);
    size_t const first = firstAfterReset(store, values);
    size_t const index = request.hasBefore   ? indexOf(store, values, request.before, request)
                         : request.hasBehind ? indexOf(store, values, request.behind, request) + 1
                         : isPlaced          ? first
                                             : values.size();
    if (index < first)
        printNote(request, "has an empty value below the new one, which resets it");
    values.insert(values.begin() + static_cast<ptrdiff_t>(index), request.value);
    setValues(store, request, values);
}

void unsetValue(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    std::vector<std::string> values = valuesOf(store, request.stanza, request.key);
    size_t const after = firstAfterReset(store, values);
    auto const begin = values.begin() + static_cast<ptrdiff_t>(after);
    auto const aboveReset = std::find(values.begin(), begin, request.value);
    bool const hasNoEffect = !request.value.empty() && aboveReset != begin &&
                             std::find(begin, values.end(), request.value) == values.end();
    size_t const index = hasNoEffect ? static_cast<size_t>(aboveReset - values.begin())
                                     : indexOf(store, values, request.value, request);
    if (hasNoEffect)
        printNote(request, "had an empty value below the removed one, which reset it");
    file.willChange(request.stanza, request.key, false);
    if (resets(store) && values.size() > 1) {
        values.erase(values.begin() + static_cast<ptrdiff_t>(index));
        return setValues(store, request, values);
    }
    store.removeValue(request.stanza.c_str(), request.key.c_str(), request.value.c_str());
}

// Makes a change with a value as it is spelled, or of a key without a value.
template <class Apply>
void applyRaw(EditedFile& file, Request const& request, Apply apply)
{
    std::vector<std::string> const values = valuesOf(file.store(), request.stanza, request.key);
    Request plain = request;
    plain.raw = false;
    plain.bare = false;
    plain.value = "raw";
    while (std::find(values.begin(), values.end(), plain.value) != values.end())
        plain.value += '0';
    apply(file, plain);
    respellValue(file, request, plain.value);
}

// Returns whether the key is alone in its line already.
bool isAlone(Store const& store, Request const& request)
{
    return store.contents().contains(request.stanza.c_str(), request.key.c_str()) != 0 &&
           valuesOf(store, request.stanza, request.key).empty();
}

void requireKeysAlone(Store const& store, Request const& request)
{
    if (store.switches().keyAlone != zdialects::KeyAlone::option)
        throw Failure{
            exitRefused,
            request.file,
            {std::string("the dialect ") + store.dialect().name() + " has no keys without a value",
             "leave out --bare and pass a value, which may be ''"}};
}

// Refuses a key with lines of both kinds: a change of its values would leave or remove lines
// without a value, which the request does not mean.
void requireUniformLines(EditedFile& file, Request const& request)
{
    if (!file.hasMixedLines(request.stanza, request.key))
        return;
    zlines::SharedText const kept = keptText(file.store());
    zlines::Outline outline(kept->text, kept->dialect);
    std::string numbers[2];
    for (KeyLine const& line : findKeyLines(outline, request.stanza, request.key)) {
        std::string& list = numbers[line.line.kind == zlines::valueLine ? 0 : 1];
        list += (list.empty() ? "" : ", ") + std::to_string(line.number);
    }
    throw Failure{exitRefused,
                  request.file,
                  {nameKey(request.key, request.stanza) + " has lines with a value (" + numbers[0] +
                       ") and without one (" + numbers[1] + ")",
                   "remove all of them with 'zstz unset --all' first"}};
}

}  // namespace

void prepareValue(Request& request)
{
    Store const sample(chooseDialect(request, request.file));
    if (!sample.isStanzaFile() && request.obfuscated)
        throw Failure{exitRefused,
                      request.file,
                      {"only stanza files have obfuscated values",
                       "leave out --obfuscated, or pass --dialect stanza"}};
    if (!sample.isStanzaFile())
        return;
    if (request.obfuscated)
        request.value = readSecret();
    checkNames(request.file, request.stanza, request.key);
    if (!request.obfuscated && !request.raw)
        checkValue(request.file, request.key, request.value);
    if (request.verb == "add" && request.value.empty())
        throw Failure{exitInvalidValue,
                      request.file,
                      {nameKey(request.key, request.stanza) + ": cannot add an empty value",
                       "use 'zstz set' for a key without a value"}};
}

namespace {

// Replaces the valid values after an empty value, which resets the values above. Returns false
// without such values: then the key has no reset, or the request changes a value in another way.
bool setAfterReset(EditedFile& file, Request const& request, std::vector<std::string> values)
{
    Store& store = file.store();
    size_t const count = countingValuesOf(store, request.stanza, request.key).size();
    bool const hasReset = resets(store) && count < values.size() && values.size() > 1;
    if (!hasReset || request.value.empty() || (count > 1 && !request.all))
        return false;
    values.resize(values.size() - count);
    values.push_back(request.value);
    file.willChange(request.stanza, request.key, false);
    setValues(store, request, values);
    return true;
}

// Returns the index of the value that the request names by its text or its number.
size_t chosenIndex(Store const& store, Request const& request,
                   std::vector<std::string> const& values)
{
    requireKey(store, request);
    size_t const index = request.hasOldValue ? indexOf(store, values, request.oldValue, request)
                                             : numberedIndex(store, values, request);
    if (countsOnce(store, request.key) && index != validIndex(store, values))
        noteValidLine(store, values, request);
    return index;
}

// Refuses to replace all values of a key by a single one.
[[noreturn]] void refuseSingleValue(Store const& store, Request const& request,
                                    std::vector<std::string> const& values)
{
    size_t const count = countingValuesOf(store, request.stanza, request.key).size();
    bool const replacesReset = request.value.empty() && count < values.size();
    throwCountRefusal(request,
                      formatCount(count, "value", "values") +
                          (replacesReset ? " below the empty value, which resets those above" : ""),
                      std::string("replace ") +
                          (replacesReset ? "all lines"
                           : count == 2  ? "both"
                                         : "all") +
                          ", --old or --nth to replace one, or use 'zstz add'");
}

}  // namespace

void applySet(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    requireUnambiguous(store, request);
    requireUniformLines(file, request);
    if (request.bare)
        requireKeysAlone(store, request);
    if (request.bare && request.only != "new" && isAlone(store, request))
        return;
    if (request.raw || request.bare)
        return applyRaw(file, request, applySet);
    checkNewValue(store, request);
    checkExistence(store, request);
    checkKind(store, request);
    std::vector<std::string> values = valuesOf(store, request.stanza, request.key);
    if (request.hasOldValue || !request.nth.empty()) {
        values[chosenIndex(store, request, values)] = request.value;
        file.willChange(request.stanza, request.key, false);
        if (values.size() > 1)
            return setValues(store, request, values);
    } else if (values.size() > 1 && !request.all && countsOnce(store, request.key)) {
        values[validIndex(store, values)] = request.value;
        noteValidLine(store, values, request);
        return setValues(store, request, values);
    } else if (setAfterReset(file, request, values)) {
        return;
    } else if (values.size() > 1 && !request.all) {
        refuseSingleValue(store, request, values);
    }
    std::optional<NewLine> newLine;
    if (store.exists(request.stanza.c_str(), request.key.c_str()) == 0)
        newLine.emplace(file, request);
    file.willChange(request.stanza, request.key, request.all);
    store.setValue(request.stanza.c_str(), request.key.c_str(), request.value.c_str(),
                   request.obfuscated);
    if (newLine)
        newLine->place();
}

void applyAdd(EditedFile& file, Request const& request)
{
    if (request.raw)
        return applyRaw(file, request, applyAdd);
    Store& store = file.store();
    requireUnambiguous(store, request);
    requireUniformLines(file, request);
    checkNewValue(store, request);
    checkKind(store, request);
    if (countsOnce(store, request.key) &&
        store.exists(request.stanza.c_str(), request.key.c_str()) != 0) {
        std::vector<std::string> const old = valuesOf(store, request.stanza, request.key);
        std::string const help = old.empty() ? "" : wholeValueHelp(old[validIndex(store, old)]);
        throw Failure{exitRefused,
                      request.file,
                      {nameKey(request.key, request.stanza) +
                           " exists, and of several lines only one is valid",
                       help.empty() ? "use 'zstz set'" : help}};
    }
    if (hasValue(store, request)) {
        printNote(request, "has the value already");
        return;
    }
    file.willChange(request.stanza, request.key, false);
    bool const isPlaced = request.first || request.hasBefore || request.hasBehind;
    std::vector<std::string> const values = valuesOf(store, request.stanza, request.key);
    // The library adds no value that exists, even if an empty value below resets it.
    bool const exists = std::find(values.begin(), values.end(), request.value) != values.end();
    std::optional<NewLine> newLine;
    if (store.exists(request.stanza.c_str(), request.key.c_str()) == 0)
        newLine.emplace(file, request);
    if (isPlaced || exists)
        insertValue(store, request, isPlaced);
    else
        store.addValue(request.stanza.c_str(), request.key.c_str(), request.value.c_str(),
                       request.obfuscated);
    if (newLine)
        newLine->place();
}

void prepareUnset(Request& request)
{
    if (Store(chooseDialect(request, request.file)).isStanzaFile())
        checkReserved(request.file, request.stanza);
}

void applyUnset(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    requireUnambiguous(store, request);
    if (request.wholeStanza) {
        requireStanza(store, request.file, request.stanza);
        file.willChange(request.stanza, "", true);
        store.deleteStanza(request.stanza.c_str());
        return;
    }
    requireKey(store, request);
    if (request.hasValue || !request.all)
        requireUniformLines(file, request);
    if (request.hasValue)
        return unsetValue(file, request);
    size_t const count = valuesOf(store, request.stanza, request.key).size();
    if (count > 1 && !request.all)
        throwCountRefusal(request, formatCount(count, "value", "values"),
                          count == 2 ? "remove both" : "remove all");
    file.willChange(request.stanza, request.key, request.all);
    store.deleteKey(request.stanza.c_str(), request.key.c_str());
    // A store would leave the lines without a value if a later change of a script adds the key.
    if (file.hasMixedLines(request.stanza, request.key))
        file.setText(file.text());
}

void prepareRename(Request& request)
{
    if (!Store(chooseDialect(request, request.file)).isStanzaFile())
        return;
    if (request.key.empty()) {
        checkReserved(request.file, request.stanza);
        checkNames(request.file, request.newName, "key");
    } else {
        checkNames(request.file, request.stanza, request.newName);
    }
}

void applyRename(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    char const* const stanza = request.stanza.c_str();
    char const* const key = request.key.c_str();
    char const* const name = request.newName.c_str();
    bool const isStanza = request.key.empty();
    requireUnambiguous(store, request);
    isStanza ? requireStanza(store, request.file, request.stanza) : requireKey(store, request);
    if (request.newName == (isStanza ? request.stanza : request.key))
        return;
    if (isSameName(store, request))
        return respellName(file, request);
    bool const isTaken =
        isStanza ? store.exists(name) != 0 && !canRenameStanza(store, request.stanza, name)
                 : store.exists(stanza, name) != 0;
    if (isTaken)
        throw Failure{exitRefused,
                      request.file,
                      {isStanza ? "stanza " + formatHeading(store.dialect(), name) + " exists"
                                : nameKey(request.newName, request.stanza) + " exists",
                       "choose another name, or remove it with 'zstz unset'"}};
    checkTopStanza(store, request, isStanza ? request.newName : request.stanza);
    if (isStanza)
        checkRenamedNumber(store, request);
    if (!store.isStanzaFile())
        checkSpelling(store, request, isStanza ? request.newName : request.stanza,
                      isStanza ? "key" : request.newName, nullptr);
    file.willChange(request.stanza, request.key, true);
    isStanza ? store.renameStanza(stanza, name) : store.renameKey(stanza, key, name);
}
