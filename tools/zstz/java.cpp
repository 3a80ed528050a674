// java: the verbs zstz java and zstz convert.
#include <Z/ZArrayList.h>
#include <Z/ZUTF8String.h>
#include <Z/dialects/line_rules.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>

#include "busy.h"
#include "commands.h"
#include "edited_file.h"
#include "failures.h"
#include "java_file.h"
#include "key_lines.h"
#include "stanza_file.h"

namespace {

using Entries = std::map<std::string, std::string>;

JavaFile readJavaFile(Request const& request, std::string const& path)
{
    return retryWhileBusy(Deadline(request.wait), [&] { return JavaFile(path); });
}

void storeEntries(Request const& request, std::string const& path, Entries const& entries)
{
    retryWhileBusy(Deadline(request.wait), [&] { storeJavaFile(path, entries); });
}

// Refuses to continue if the library did not read every line of the file.
void checkNothingLost(std::string const& path, JavaFile const& file, bool dropComments)
{
    for (LostLine const& line : file.lost())
        if (!line.isComment)
            throw describeLostLine(exitInvalidData, path, line);
    if (!file.lost().empty() && !dropComments)
        throw describeLostLine(exitRefused, path, file.lost().front());
}

// The library decodes each half of an escaped surrogate pair to three bytes. Returns the value with
// each pair replaced by the four UTF-8 bytes of its character.
std::string joinSurrogatePairs(std::string const& value)
{
    auto const isSurrogate = [&value](size_t at, unsigned char first, unsigned char last) {
        return at + 2 < value.size() && value[at] == '\xED' &&
               static_cast<unsigned char>(value[at + 1]) >= first &&
               static_cast<unsigned char>(value[at + 1]) <= last;
    };
    auto const codeUnit = [&value](size_t at) {
        return (value[at + 1] & 0x0Fu) << 6 | (value[at + 2] & 0x3Fu);
    };
    std::string result;
    for (size_t at = 0; at < value.size();) {
        if (isSurrogate(at, 0xA0, 0xAF) && isSurrogate(at + 3, 0xB0, 0xBF)) {
            unsigned const point = 0x10000 + (codeUnit(at) << 10) + (codeUnit(at + 3) & 0x3FF);
            for (int shift = 18; shift >= 0; shift -= 6)
                result += static_cast<char>((shift == 18 ? 0xF0 : 0x80) | (point >> shift & 0x3F));
            at += 6;
        } else {
            result += value[at++];
        }
    }
    return result;
}

// ---- java -------------------------------------------------------------------------------------

int javaGet(Request const& request)
{
    JavaFile const file = readJavaFile(request, request.file);
    auto const entry = file.entries().find(request.key);
    if (entry != file.entries().end()) {
        std::string const value = joinSurrogatePairs(entry->second) + '\n';
        fwrite(value.data(), 1, value.size(), stdout);
        return exitDone;
    }
    std::string const problem = "no key " + quote(request.key);
    std::string const command = "run 'zstz java " + shellWord(request.file);
    for (LostLine const& line : file.lost())
        if (!line.isComment)
            throw Failure{exitNotFound,
                          request.file,
                          {problem + ", and line " + std::to_string(line.number) + " is ignored",
                           command + " check' for details"}};
    throw Failure{exitNotFound, request.file, {problem, command + " list' to list the keys"}};
}

int javaSet(Request const& request)
{
    checkJavaEntry(request.file, request.key, request.value);
    EditLock const editLock(request.file, Deadline(request.wait));
    JavaFile const file = readJavaFile(request, request.file);
    checkNothingLost(request.file, file, request.dropComments);
    Entries entries = file.entries();
    entries[request.key] = request.value;
    for (auto const& [key, value] : entries)
        checkJavaEntry(request.file, key, value);
    if (entries == file.entries() && access(request.file.c_str(), W_OK) != 0)
        return exitDone;
    storeEntries(request, request.file, entries);
    return exitDone;
}

// Prints one line per entry. Control characters are printed as escapes.
int javaList(Request const& request)
{
    JavaFile const file = readJavaFile(request, request.file);
    for (auto const& [key, value] : file.entries()) {
        std::string shown;
        for (char const c : joinSurrogatePairs(value)) {
            char escape[sizeof "\\u0000"];
            snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c) & 0xFF);
            shown += static_cast<unsigned char>(c) < 0x20 ? escape : std::string(1, c);
        }
        printf("%s =%s%s\n", key.c_str(), shown.empty() ? "" : " ", shown.c_str());
    }
    return exitDone;
}

int javaCheck(Request const& request)
{
    JavaFile const file = readJavaFile(request, request.file);
    int code = exitDone;
    size_t comments = 0;
    for (LostLine const& line : file.lost()) {
        if (line.isComment)
            ++comments;
        else
            code = report(describeLostLine(exitInvalidData, request.file, line));
    }
    printf("%s: %s, %s\n", request.file.c_str(),
           formatCount(file.entries().size(), "entry", "entries").c_str(),
           formatCount(comments, "comment", "comments").c_str());
    return code;
}

// ---- convert ----------------------------------------------------------------------------------

// Converts between the local codeset (stanza files) and UTF-8 (Java files). The library returns an
// empty string if a conversion fails.
template <class To, class From>
std::string convert(std::string const& path, std::string const& key, std::string const& source)
{
    To const result(From(source.c_str()));
    if (result.isEmpty() && !source.empty())
        throw Failure{exitInvalidValue,
                      path,
                      {"cannot convert key " + quote(key) +
                           " or its value between UTF-8 and the codeset of this locale",
                       "set LC_ALL to a locale with the codeset of the stanza file"}};
    return std::string(result.getChars(), result.getLength());
}

std::string toUTF8(std::string const& path, std::string const& key, std::string const& local)
{
    return convert<ZUTF8String_6_0, ZLCString_6_0>(path, key, local);
}

std::string toLocal(std::string const& path, std::string const& key, std::string const& utf8)
{
    return convert<ZLCString_6_0, ZUTF8String_6_0>(path, key, utf8);
}

bool exists(std::string const& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// Returns whether both paths lead to the same file. Converting a stanza to its own file would
// replace the other stanzas.
bool isSameFile(std::string const& left, std::string const& right)
{
    struct stat leftStatus, rightStatus;
    return stat(left.c_str(), &leftStatus) == 0 && stat(right.c_str(), &rightStatus) == 0 &&
           leftStatus.st_dev == rightStatus.st_dev && leftStatus.st_ino == rightStatus.st_ino;
}

// Deletes every key that is not in `keptKeys`, and every obfuscated key. The stanza keeps its
// position and its comments.
// range   `keptKeys` has the identities of names.
void deleteOtherKeys(Store& store, std::string const& stanza, std::set<std::string> const& keptKeys)
{
    zlines::SharedDialect const dialect = lineDialectOf(store.dialect());
    zdialects::LineRules const rules(*dialect);
    std::unique_ptr<ZArrayList_6_0> const keys(store.getKeys(stanza.c_str()));
    for (unsigned i = 0; i < keys->size(); ++i) {
        auto const& name = static_cast<ZAbstractString_6_0 const&>(*keys->get(i));
        std::string const key(name.getChars(), name.getLength());
        // A key with obfuscated values takes no plain value: delete it so that it is created again.
        if (keptKeys.count(rules.keyIdentity(key)) == 0 ||
            store.isObfuscated(stanza.c_str(), key.c_str()) != 0)
            store.deleteKey(stanza.c_str(), key.c_str());
    }
}

// Returns a similar name that a Java file can have; NEW if the stanza cannot have it.
std::string javaNameFor(Request const& request, Store const& store,
                        zdialects::LineRules const& rules, std::string const& key)
{
    std::string name;
    for (char const c : key)
        if (kEndsOfJavaKeys.find(c) == kEndsOfJavaKeys.npos)
            name += c;
        else if (!rules.dropsBlanks() || (c != ' ' && c != '\t'))
            name += '.';
    name.erase(0, name.find_first_not_of("#!"));
    char const* const stanza = request.stanza.c_str();
    bool const isTaken = rules.keyIdentity(name) != rules.keyIdentity(key) &&
                         store.contents().contains(stanza, name.c_str()) != 0;
    bool const isValid =
        isJavaKey(name) && !isTaken && store.contents().validKey(stanza, name.c_str()) != 0;
    return isValid ? name : "NEW";
}

// Refuses all keys that a Java file cannot have.
void requireJavaKeys(Request const& request, Store const& store, zdialects::LineRules const& rules,
                     std::vector<std::string> const& keys)
{
    std::vector<Failure> failures;
    for (std::string const& key : keys)
        if (!isJavaKey(key))
            failures.push_back(
                {exitInvalidValue,
                 request.file,
                 {nameKey(key, request.stanza) +
                      " is invalid in a Java file, whose keys have no whitespace, \"=\", \":\" or "
                      "backslash, and no \"#\" or \"!\" at the start",
                  "rename it with 'zstz rename " + shellWord(request.file) + ' ' +
                      shellWord(request.stanza) + ' ' + shellWord(key) + ' ' +
                      shellWord(javaNameFor(request, store, rules, key)) + "'"}});
    if (failures.empty())
        return;
    Failure first = std::move(failures.front());
    first.further.assign(std::make_move_iterator(failures.begin() + 1),
                         std::make_move_iterator(failures.end()));
    throw first;
}

// Returns the entries of a stanza in UTF-8, checked for a Java file.
Entries makeJavaEntries(Request const& request)
{
    Store store(chooseDialect(request, request.file));
    loadFile(request, store);
    requireStanza(store, request.file, request.stanza);
    zlines::SharedDialect const dialect = lineDialectOf(store.dialect());
    zdialects::LineRules const rules(*dialect);
    std::string const wanted = rules.stanzaIdentity(request.stanza);
    std::vector<Stanza> const stanzas = outlineOf(store);
    auto const found = std::find_if(stanzas.begin(), stanzas.end(), [&](Stanza const& stanza) {
        return rules.stanzaIdentity(stanza.name) == wanted;
    });
    if (!request.dropComments && found != stanzas.end() && hasComments(store, found->name))
        throw Failure{exitRefused,
                      request.file,
                      {"stanza [" + request.stanza + "] has comments, which would be lost",
                       "pass --drop-comments"}};
    Entries entries;
    std::vector<std::string> keys;
    for (Stanza const& stanza : stanzas) {
        if (rules.stanzaIdentity(stanza.name) != wanted)
            continue;
        for (std::string const& key : stanza.keys) {
            std::string const name = nameKey(key, request.stanza);
            if (store.isObfuscated(request.stanza.c_str(), key.c_str()) != 0)
                throw Failure{
                    exitRefused,
                    request.file,
                    {name + " has obfuscated values, which would be readable in a Java file",
                     "remove the key with 'zstz unset'"}};
            std::vector<std::string> const values = countingValuesOf(store, request.stanza, key);
            if (values.size() > 1)
                throw Failure{exitRefused,
                              request.file,
                              {name + " has " + std::to_string(values.size()) +
                                   " values, but a Java file has one per key",
                               "replace them by one with 'zstz set --all'"}};
            std::string const value = values.empty() ? "" : values.front();
            entries[toUTF8(request.file, key, key)] = toUTF8(request.file, key, value);
            keys.push_back(key);
        }
    }
    requireJavaKeys(request, store, rules, keys);
    for (auto const& [key, value] : entries)
        checkJavaEntry(request.file, key, value);
    return entries;
}

int convertToJava(Request const& request)
{
    EditLock const editLock(request.javaTo, Deadline(request.wait));
    Entries const entries = makeJavaEntries(request);
    if (exists(request.javaTo) && !request.overwrite)
        throw Failure{
            exitRefused, request.javaTo, {"the file exists", "pass --overwrite to replace it"}};
    storeEntries(request, request.javaTo, entries);
    return exitDone;
}

using LocalEntries = std::vector<std::pair<std::string, std::string>>;

// Returns the entries of a Java file in the local codeset, checked for a stanza.
LocalEntries readLocalEntries(Request const& request, bool isStanzaFile)
{
    std::string const& path = request.javaFrom;
    JavaFile const java = readJavaFile(request, path);
    checkNothingLost(path, java, request.dropComments);
    LocalEntries entries;
    for (auto const& [key, value] : java.entries()) {
        entries.emplace_back(toLocal(path, key, key),
                             toLocal(path, key, joinSurrogatePairs(value)));
        if (!isStanzaFile)
            continue;
        checkNames(path, request.stanza, entries.back().first);
        checkValue(path, entries.back().first, entries.back().second);
    }
    return entries;
}

// Returns the identities of the keys, after a check that the dialect can spell the entries.
std::set<std::string> identitiesOf(Store const& store, Request const& request,
                                   LocalEntries const& entries)
{
    zlines::SharedDialect const dialect = lineDialectOf(store.dialect());
    zdialects::LineRules const rules(*dialect);
    std::set<std::string> identities;
    for (auto const& [key, value] : entries) {
        if (!store.isStanzaFile())
            checkSpelling(store, request, request.stanza, key, value.c_str());
        if (!identities.insert(rules.keyIdentity(key)).second)
            throw Failure{exitRefused,
                          request.javaFrom,
                          {"the dialect " + std::string(store.dialect().name()) + " takes key " +
                               quote(key) + " for another key of the file",
                           "rename one of them"}};
    }
    return identities;
}

void convertFromJava(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    LocalEntries const entries = readLocalEntries(request, store.isStanzaFile());
    checkTopStanza(store, request, request.stanza);
    if (store.isStanzaFile())
        checkNames(request.file, request.stanza, "key");
    else
        checkSpelling(store, request, request.stanza, "", nullptr);
    requireUnambiguous(store, request);
    std::set<std::string> const newKeys = identitiesOf(store, request, entries);
    file.willChange(request.stanza, "", request.overwrite);
    char const* const stanza = request.stanza.c_str();
    if (store.exists(stanza) != 0) {
        if (!request.overwrite)
            throw Failure{
                exitRefused,
                request.file,
                {"stanza [" + request.stanza + "] exists", "pass --overwrite to replace it"}};
        deleteOtherKeys(store, request.stanza, newKeys);
    } else {
        store.addStanza(stanza);
    }
    for (auto const& [key, value] : entries)
        store.setValue(stanza, key.c_str(), value.c_str(), 0);
}

}  // namespace

int runJava(Request const& request)
{
    if (request.action == "get")
        return javaGet(request);
    if (request.action == "set")
        return javaSet(request);
    return request.action == "list" ? javaList(request) : javaCheck(request);
}

int runConvert(Request const& request)
{
    std::string const& java = request.javaTo.empty() ? request.javaFrom : request.javaTo;
    if (isSameFile(request.file, java))
        throw Failure{exitRefused,
                      request.file,
                      {"is the same file as " + java, "give the Java file another path"}};
    if (!request.javaTo.empty())
        return convertToJava(request);
    return runChange(request, convertFromJava);
}
