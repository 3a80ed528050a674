#include "stanza_file.h"

#include <Z/ZArrayList.h>
#include <Z/stanza/limits.h>
#include <Z/stanza/reserved_entry.h>
#include <Z/stanza/whitespace.h>
#include <unistd.h>

#include <unordered_set>

#include "failures.h"
#include "problems.h"

namespace {

std::string nameOf(ZObject_6_0 const* name)
{
    return toStdString(static_cast<ZLCString_6_0 const&>(*name));
}

}  // namespace

LoadedFile::LoadedFile(std::string const& path) : cache_(new ZSCFData_6_0), store_(cache_)
{
    store_.setAttributes(ZPCache_6_0::keepComments, nullptr);
    store_.load(path.c_str());
}

std::vector<Stanza> LoadedFile::outline() const
{
    std::vector<Stanza> stanzas;
    std::unordered_set<std::string> listed;  // "stanza" or "stanza\nkey"

    ZArrayList_6_0 lines(64, 1);
    cache_->getLines(lines);
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const& line = static_cast<ZPropLine_6_0 const&>(*lines.get(i));
        std::string const name = toStdString(line.text());
        if (line.type() == ZPropLine_6_0::stanzaHead) {
            stanzas.push_back({name, {}});
            listed.insert(name);
        } else if (line.type() == ZPropLine_6_0::keyLine && !stanzas.empty()) {
            stanzas.back().keys.push_back(name);
            listed.insert(stanzas.back().name + '\n' + name);
        }
    }

    ZArrayList_6_0 names(64, 1);
    cache_->getNames(names);
    for (unsigned i = 0; i < names.size(); ++i) {
        std::string const name = nameOf(names.get(i));
        if (listed.insert(name).second)
            stanzas.push_back({name, {}});
    }
    for (Stanza& stanza : stanzas) {
        ZArrayList_6_0 keys(64, 1);
        cache_->getNames(stanza.name.c_str(), keys);
        for (unsigned i = 0; i < keys.size(); ++i) {
            std::string const key = nameOf(keys.get(i));
            if (listed.insert(stanza.name + '\n' + key).second)
                stanza.keys.push_back(key);
        }
    }
    return stanzas;
}

// Reads the cache because a store rejects a stanza without a name, which a file may have.
std::vector<std::string> LoadedFile::values(std::string const& stanza, std::string const& key) const
{
    std::vector<std::string> result;
    auto values = cache_->values(stanza.c_str(), key.c_str(), ZPCache_6_0::anyValues);
    for (ZPCategoryBasedCache_6_0::Text value; values.next(value);)
        result.emplace_back(value.chars, value.length);
    return result;
}

size_t LoadedFile::valueCount(std::string const& stanza, std::string const& key) const
{
    return static_cast<size_t>(cache_->countValues(stanza.c_str(), key.c_str()));
}

bool LoadedFile::isObfuscated(std::string const& stanza, std::string const& key) const
{
    return cache_->isObfuscated(stanza.c_str(), key.c_str()) != 0;
}

bool LoadedFile::hasComments(std::string const& stanza) const
{
    ZArrayList_6_0 lines(64, 1);
    cache_->getLines(lines);
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

EditedFile::EditedFile(std::string const& path, Edit const& edit) : editLock_(path), store_(1)
{
    if (!edit.isNormalised)
        store_.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    if (edit.missing == createIfMissing && access(path.c_str(), F_OK) != 0)
        return;
    store_.load(path.c_str());
    using Cause = ZStanzaProblem_6_0::Cause;
    auto const isInStanza = [&edit](ZStanzaProblem_6_0 const& problem) {
        return toStdString(problem.stanza()) == edit.stanza;
    };
    auto const isIntended = [&](ZStanzaProblem_6_0 const& problem) {
        return edit.removesLines && isInStanza(problem) &&
               (edit.key.empty() || toStdString(problem.key()) == edit.key);
    };
    // A line that is not read completely cannot be changed. A normalising store writes no byte that
    // the library has not read.
    Problems const problems(path);
    for (bool const isDropped : {false, true})
        for (unsigned i = 0; i < problems.size(); ++i) {
            ZStanzaProblem_6_0 const& problem = problems[i];
            Cause const cause = problem.cause();
            bool const isPartial = cause == Cause::splitLine || cause == Cause::zeroByte;
            if (isDropped ? edit.isNormalised && cause == Cause::droppedLine && !isIntended(problem)
                          : isPartial && (edit.isNormalised || isInStanza(problem)))
                throw Failure{exitRefused, nameLine(path, problem.line()),
                              splitText("not saved: " + toStdString(problem.text()))};
        }
}

void requireStanza(ZProperties_6_0 const& store, std::string const& path, std::string const& stanza)
{
    if (store.exists(stanza.c_str()) == 0)
        throw Failure{exitNotFound,
                      path,
                      {"no stanza [" + stanza + "]",
                       "run 'zstz stanzas " + shellWord(path) + "' to list them"}};
}

void checkReserved(std::string const& path, std::string const& stanza)
{
    if (stanza == zstanza::kReservedCategory)
        throw Failure{exitRefused,
                      path,
                      {"stanza [" + stanza + "] is reserved and updated by the library",
                       "use another stanza"}};
}

void checkNames(std::string const& path, std::string const& stanza, std::string const& key)
{
    checkReserved(path, stanza);
    std::string const line = "use one line of at most " +
                             std::to_string(zstanza::kMaxLineLength - 2) + " bytes without ";
    if (ZPCategoryBasedCache_6_0::validateCategory(stanza.c_str()) == 0)
        throw Failure{
            exitInvalidValue, path, {"invalid stanza name " + quote(stanza), line + "\"]\""}};
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
