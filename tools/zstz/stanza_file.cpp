#include "stanza_file.h"

#include <Z/ZArrayList.h>
#include <Z/ZDialectData.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl_p.h>
#include <Z/ZStanzaDialect_p.h>
#include <Z/cache/map_order.h>
#include <Z/dialects/counting.h>
#include <Z/lines/separate_stanzas.h>
#include <Z/stanza/limits.h>
#include <Z/stanza/reserved_entry.h>
#include <Z/stanza/whitespace.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "busy.h"
#include "dialect_choice.h"
#include "failures.h"
#include "key_lines.h"
#include "problems.h"
#include "raw_file.h"
#include "spelling_fault.h"

namespace {

using zcache::Contents;
using zcache::Id;

// Makes the contents of a cache accessible.
struct OpenCache : ZPCategoryBasedCache_6_0 {
    static Contents const& contentsOf(ZPCategoryBasedCache_6_0 const& cache)
    {
        Rep const& (ZPCategoryBasedCache_6_0::*const rep)() const = &OpenCache::rep;
        return (cache.*rep)();
    }
};

std::string nameOf(ZObject_6_0 const* name)
{
    return toStdString(static_cast<ZLCString_6_0 const&>(*name));
}

}  // namespace

std::string readStandardInput(char const* contents)
{
    std::string text;
    char chunk[65536];
    size_t length;
    while ((length = fread(chunk, 1, sizeof chunk, stdin)) > 0)
        text.append(chunk, length);
    if (ferror(stdin))
        throw Failure{exitNoAccess,
                      kStandardInputName,
                      {std::string("cannot read ") + contents, "pipe it in"}};
    return text;
}

namespace {

Failure errorsOf(Problems const& problems, std::string const& name, Store const& store,
                 std::string const& text)
{
    return describeFailedLoad(problems, name, text, store.dialect())
        .value_or(Failure{exitInvalidData, name, {"invalid line", "correct it"}});
}

}  // namespace

void loadText(std::string const& text, Store& store, std::string const& name)
{
    try {
        store.loadText(text.data(), text.size());
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        throw errorsOf(Problems::ofText(text, store.dialect()), name, store, text);
    } catch (ZUnsupportedException_6_0 const&) {
        throw Failure{exitRefused,
                      name,
                      {"the text names a companion file, and does not have its values",
                       "pass the path of the file"}};
    }
}

void loadOnce(std::string const& path, Store& store)
{
    try {
        store.load(path.c_str());
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        if (store.isStanzaFile())
            throw;
        throw errorsOf(Problems(path, 0, store.dialect()), path, store, readContents(path));
    }
}

namespace {

RemoteLoader remoteLoader = nullptr;

}  // namespace

void setRemoteLoader(RemoteLoader loader)
{
    remoteLoader = loader;
}

void loadFile(std::string const& path, double wait, Store& store)
{
    if (path == kStandardInput)
        loadText(readStandardInput(), store);
    else if (remoteLoader != nullptr && remoteLoader(path, store))
        return;
    else if (std::optional<std::string> const text = readPipe(path))
        loadText(*text, store, path);
    else
        retryWhileBusy(Deadline(wait), [&] { loadOnce(path, store); });
}

void forEachKey(Store const& store, std::function<bool(std::string_view)> const& onStanza,
                std::function<void(KeyView const&)> const& onKey)
{
    Contents const& contents = OpenCache::contentsOf(store.contents());
    std::string_view stanza;
    std::vector<std::string_view> values;
    auto const visit = [&](Id id) {
        values.clear();
        if (contents.key(id).isLive)
            contents.forEachValue(id, contents.anyKind(id),
                                  [&](std::string_view value) { values.push_back(value); });
        bool const isObfuscated = contents.valueCount(id, Contents::obfuscated) != 0;
        onKey({stanza, contents.name(contents.key(id)), values, isObfuscated});
    };
    auto const enter = [&](Id category) {
        stanza = contents.name(contents.category(category));
        return onStanza(stanza);
    };
    auto const visitKeysWithoutLine = [&](Id category) {
        for (Id const id : zcache::MapOrder(contents, category))
            if (contents.key(id).line == 0)
                visit(id);
    };

    for (Id category = contents.firstHeader(); category != 0;
         category = contents.category(category).nextHeader) {
        if (!enter(category))
            continue;
        size_t visited = 0;
        Id line = contents.line(contents.category(category).header).next;
        for (; line != 0 && contents.line(line).kind != zcache::headerLine;
             line = contents.line(line).next)
            if (contents.line(line).kind == zcache::keyLine) {
                visit(contents.line(line).ref);
                ++visited;
            }
        if (visited < contents.category(category).keyCount)
            visitKeysWithoutLine(category);
    }
    for (Id const category : zcache::MapOrder(contents))
        if (contents.category(category).header == 0 && enter(category))
            visitKeysWithoutLine(category);
}

std::vector<Stanza> outlineOf(Store const& store)
{
    std::vector<Stanza> stanzas;
    forEachKey(
        store,
        [&](std::string_view name) {
            stanzas.push_back({std::string(name), {}});
            return true;
        },
        [&](KeyView const& key) { stanzas.back().keys.emplace_back(key.name); });
    return stanzas;
}

// Reads the cache because a store rejects a stanza without a name, which a file may have.
std::vector<std::string> valuesOf(Store const& store, std::string const& stanza,
                                  std::string const& key)
{
    std::vector<std::string> result;
    auto values = store.contents().values(stanza.c_str(), key.c_str(), ZPCache_6_0::anyValues);
    for (ZPCategoryBasedCache_6_0::Text value; values.next(value);)
        result.emplace_back(value.chars, value.length);
    return result;
}

std::vector<std::string> countingValuesOf(Store const& store, std::string const& stanza,
                                          std::string const& key)
{
    // A store rejects a stanza without a name, which a file may have.
    if (store.isStanzaFile() || stanza.empty() || key.empty())
        return valuesOf(store, stanza, key);
    ZArrayList_6_0 list(4, 1);
    store.countingValues(stanza.c_str(), key.c_str(), list);
    std::vector<std::string> values;
    for (unsigned i = 0; i < list.size(); ++i)
        values.push_back(nameOf(list.get(i)));
    return values;
}

std::string countingValue(Store const& store, std::string const& stanza, std::string const& key)
{
    std::vector<std::string> const values = countingValuesOf(store, stanza, key);
    return values.empty() ? "" : values.back();
}

std::string_view countingValue(zdialects::Switches const& switches, KeyView const& key)
{
    std::vector<std::string_view> const& values = key.values;
    auto const [first, end] =
        zdialects::countingRange(switches, key.name, static_cast<int>(values.size()), [&] {
            auto const last = std::find(values.rbegin(), values.rend(), "");
            return static_cast<int>(values.rend() - last);
        });
    return first < end ? values[static_cast<size_t>(end) - 1] : std::string_view();
}

bool hasComments(Store const& store, std::string const& stanza)
{
    ZArrayList_6_0 lines(64, 1);
    store.contents().getLines(lines);
    bool isInside = false, followsComment = false;
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const& line = static_cast<ZPropLine_6_0 const&>(*lines.get(i));
        bool const isHead = line.type() == ZPropLine_6_0::stanzaHead;
        bool const belongs = isHead ? toStdString(line.text()) == stanza : isInside;
        if (followsComment && belongs)
            return true;
        followsComment = line.type() == ZPropLine_6_0::comment;
        if (isHead)
            isInside = belongs;
    }
    return followsComment && isInside;
}

namespace {

// Returns the name of a stanza without the brackets of its header; empty for any other name.
std::string withoutBrackets(std::string const& name)
{
    bool const hasBrackets = name.starts_with('[') && name.ends_with(']');
    return hasBrackets ? name.substr(1, name.size() - 2) : "";
}

std::string bracketsRemedy(std::string const& name)
{
    return "leave out the brackets: " + shellWord(name);
}

}  // namespace

void requireStanza(Store const& store, std::string const& path, std::string const& stanza)
{
    if (store.contents().contains(stanza.c_str()) != 0)
        return;
    std::string const meant = withoutBrackets(stanza);
    std::string const list =
        "run '" + std::string(toolName()) + " stanzas " + shellWord(path) + "' to list them";
    bool const exists = !meant.empty() && store.contents().contains(meant.c_str()) != 0;
    throw Failure{exitNotFound,
                  path,
                  {"no stanza " + formatHeading(store.dialect(), stanza),
                   exists ? bracketsRemedy(meant) : list}};
}

void requireKey(Store const& store, Request const& request)
{
    requireStanza(store, request.file, request.stanza);
    if (store.contents().contains(request.stanza.c_str(), request.key.c_str()) == 0)
        throw Failure{exitNotFound,
                      request.file,
                      {"no key " + quote(request.key) + " in " +
                           formatHeading(store.dialect(), request.stanza),
                       "run '" + std::string(toolName()) + " keys " + shellWord(request.file) +
                           " " + shellWord(request.stanza) + "' to list them"}};
}

namespace {

std::string withNumber(std::string const& name, size_t number)
{
    return name + ']' + std::to_string(number);
}

// Returns the number of stanzas with a name, in a dialect that does not join them.
size_t countStanzas(Store const& store, std::string const& name)
{
    size_t count = store.contents().contains(name.c_str()) != 0 ? 1 : 0;
    while (count > 0 && store.contents().contains(withNumber(name, count + 1).c_str()) != 0)
        ++count;
    return count;
}

bool hasNumberedStanzas(Store const& store)
{
    return zdialects::switchesOf(store.dialect()).repeatedHead == zdialects::RepeatedHead::separate;
}

}  // namespace

void requireUnambiguous(Store const& store, Request const& request)
{
    std::string const& stanza = request.stanza;
    if (stanza.empty() || store.isAmbiguous(stanza.c_str()) == 0)
        return;
    size_t const count = countStanzas(store, stanza);
    throw Failure{exitRefused,
                  request.file,
                  {std::to_string(count) + " stanzas have the name [" + stanza + "]",
                   "use " + shellWord(withNumber(stanza, 1)) + (count == 2 ? " or " : " to ") +
                       shellWord(withNumber(stanza, count))}};
}

void checkNewNumber(Store const& store, std::string const& path, std::string const& stanza)
{
    std::string const name(zlines::withoutNumber(stanza));
    ZSCFData_6_0 const& cache = store.contents();
    if (name == stanza || !hasNumberedStanzas(store) || cache.validCategory(stanza.c_str()) != 0)
        return;
    size_t const count = countStanzas(store, name);
    std::string const next = count == 0 ? name : withNumber(name, count + 1);
    if (cache.validCategory(next.c_str()) == 0)
        return;  // the name is invalid without the number, too
    std::string const why =
        count == 0 ? "the file has no stanza [" + name + "], so the first stanza has no number"
                   : "the file has " + formatCount(count, "stanza", "stanzas") + " [" + name +
                         "], so the next stanza has the number " + std::to_string(count + 1);
    throw Failure{exitInvalidValue,
                  path,
                  {"invalid stanza name " + quote(stanza) + ": " + why, "use " + shellWord(next)}};
}

bool canRenameStanza(Store const& store, std::string const& stanza, std::string const& newName)
{
    if (store.isStanzaFile())
        return store.contents().contains(newName.c_str()) == 0;
    auto const& cache = static_cast<ZDialectData_6_0 const&>(store.contents());
    return cache.validNewName(stanza.c_str(), newName.c_str()) != 0;
}

void checkRenamedNumber(Store const& store, Request const& request)
{
    std::string const name(zlines::withoutNumber(request.newName));
    if (name == request.newName || !hasNumberedStanzas(store) ||
        store.contents().contains(name.c_str()) == 0 ||
        canRenameStanza(store, request.stanza, request.newName))
        return;
    throw Failure{exitInvalidValue,
                  request.file,
                  {"invalid stanza name " + quote(request.newName) +
                       ": the number is the position among the stanzas with this name",
                   "use the number of its position, or move its lines with an editor"}};
}

void checkReserved(std::string const& path, std::string const& stanza)
{
    if (stanza == zstanza::kReservedCategory)
        throw Failure{exitRefused,
                      path,
                      {"stanza [" + stanza + "] is reserved and updated by the library",
                       "use another stanza"}};
}

namespace {

void requireValid(Request const& request, std::string const& name, std::string const& text,
                  std::string const& dialect, IsValid const& isValid)
{
    if (isValid(text))
        return;
    Problem problem = describeSpellingFault(text, dialect, isValid);
    problem.text.insert(0, "invalid " + name + ": ");
    throw Failure{exitInvalidValue, request.file, problem};
}

}  // namespace

void checkSpelling(Store const& store, Request const& request, std::string const& stanza,
                   std::string const& key, char const* value)
{
    ZSCFData_6_0 const& cache = store.contents();
    std::string const dialect = store.dialect().name();
    // The name of an existing stanza is valid, whether or not a new header could spell it.
    bool const isNew = cache.contains(stanza.c_str()) == 0;
    Store const empty(store.dialect());
    bool const hasHeaders = empty.contents().validCategory("a") != 0;
    if (isNew && !hasHeaders && cache.validCategory(stanza.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      request.file,
                      {"invalid stanza name " + quote(stanza) + ": the dialect " + dialect +
                           " has no headers",
                       "use the stanza ."}};
    if (isNew && stanza == "." && cache.validCategory(".") == 0)
        throw Failure{exitInvalidValue,
                      request.file,
                      {"invalid stanza name \".\": the dialect " + dialect +
                           " has no keys above the first header",
                       "use the name of a stanza"}};
    std::string const meant = withoutBrackets(stanza);
    if (isNew && !meant.empty() && cache.contains(meant.c_str()) != 0 &&
        cache.validCategory(stanza.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      request.file,
                      {"invalid stanza name " + quote(stanza), bracketsRemedy(meant)}};
    if (isNew) {
        checkNewNumber(store, request.file, stanza);
        requireValid(
            request, "stanza name " + quote(stanza), stanza, dialect,
            [&](std::string const& name) { return cache.validCategory(name.c_str()) != 0; });
    }
    // Several stanzas of the file can have the name of the sample.
    char const* const sample = hasHeaders ? "a" : ".";
    if (!key.empty() && cache.contains(stanza.c_str(), key.c_str()) == 0)
        requireValid(request, "key " + quote(key), key, dialect, [&](std::string const& name) {
            return empty.contents().validKey(sample, name.c_str()) != 0;
        });
    if (value != nullptr)
        requireValid(request, "value " + quote(value) + " of key " + quote(key), value, dialect,
                     [&](std::string const& text) {
                         return cache.validValue(key.c_str(), text.c_str()) != 0;
                     });
}

void checkTopStanza(ZPCache_6_0 const& contents, std::string const& path, std::string const& stanza,
                    std::string const& remedy)
{
    if (stanza == "." && contents.contains(".") == 0)
        throw Failure{
            exitInvalidValue,
            path,
            {"invalid stanza name \".\": the dialect stanza has no keys above the first header",
             remedy}};
}

void checkTopStanza(Store const& store, Request const& request, std::string const& stanza)
{
    if (stanza != "." || !store.isStanzaFile())
        return;
    bool const hasHeaders = request.file.ends_with(".ini") || !outlineOf(store).empty();
    std::string const dialects = request.file.ends_with(".env") ? "env"
                                 : hasHeaders                   ? "ini"
                                                                : "ini, env or sysctl";
    checkTopStanza(store.contents(), request.file, stanza,
                   "use the name of a stanza, or pass --dialect " + dialects);
}

void checkNames(std::string const& path, std::string const& stanza, std::string const& key)
{
    checkReserved(path, stanza);
    std::string const line = "use one line of at most " +
                             std::to_string(zstanza::kMaxLineLength - 2) + " bytes without ";
    if (ZPCategoryBasedCache_6_0::validateCategory(stanza.c_str()) == 0) {
        std::string const meant = withoutBrackets(stanza);
        bool const isMeant =
            !meant.empty() && ZPCategoryBasedCache_6_0::validateCategory(meant.c_str()) != 0;
        std::string help = isMeant ? bracketsRemedy(meant) : line + "\"]\"";
        size_t const bracket = stanza.rfind(']');
        if (bracket != stanza.npos && bracket + 1 < stanza.size() &&
            stanza.find_first_not_of("0123456789", bracket + 1) == stanza.npos)
            help += "; a numbered stanza needs --dialect networkd";
        throw Failure{exitInvalidValue, path, {"invalid stanza name " + quote(stanza), help}};
    }
    if (ZPCategoryBasedCache_6_0::validateKey(stanza.c_str(), key.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      path,
                      {"invalid key " + quote(key),
                       line + "\"=\", without spaces at either end, and without \"#\" or \"[\" at "
                              "the start"}};
}

void checkValue(std::string const& path, std::string const& key, std::string const& value)
{
    if (value.empty())
        return;
    if (ZPCategoryBasedCache_6_0::validateValue(key.c_str(), value.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      path,
                      {"invalid value of key " + quote(key),
                       "use one line, and at most " + std::to_string(zstanza::kMaxLineLength - 3) +
                           " bytes for key and value"}};
    if (zstanza::isSpace(value.front()) || zstanza::isSpace(value.back()))
        throw Failure{exitInvalidValue,
                      path,
                      {"key " + quote(key) + ": " + quote(value) +
                           " starts or ends with whitespace, which a line does not keep",
                       "remove it, or use 'zstz set --obfuscated'"}};
}
