#include "stanza_file.h"

#include <Z/ZArrayList.h>
#include <ctype.h>
#include <unistd.h>

#include <unordered_set>

#include "failures.h"
#include "raw_lines.h"

namespace {

// The stanza in which a store keeps the name of the companion file.
constexpr char kReserved[] = "configuration-database";

std::string text(ZObject_6_0 const* name)
{
    return text(static_cast<ZLCString_6_0 const&>(*name));
}

bool isSpace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
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
    std::unordered_set<std::string> placed;  // "stanza", "stanza\nkey"

    ZArrayList_6_0 lines(64, 1);
    cache_->getLines(lines);
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const& line = static_cast<ZPropLine_6_0 const&>(*lines.get(i));
        std::string const name = text(line.text());
        if (line.type() == ZPropLine_6_0::stanzaHead) {
            stanzas.push_back({name, {}});
            placed.insert(name);
        } else if (line.type() == ZPropLine_6_0::keyLine && !stanzas.empty()) {
            stanzas.back().keys.push_back(name);
            placed.insert(stanzas.back().name + '\n' + name);
        }
    }

    ZArrayList_6_0 names(64, 1);
    cache_->getNames(names);
    for (unsigned i = 0; i < names.size(); ++i) {
        std::string const name = text(names.get(i));
        if (placed.insert(name).second)
            stanzas.push_back({name, {}});
    }
    for (Stanza& stanza : stanzas) {
        ZArrayList_6_0 keys(64, 1);
        cache_->getNames(stanza.name.c_str(), keys);
        for (unsigned i = 0; i < keys.size(); ++i) {
            std::string const key = text(keys.get(i));
            if (placed.insert(stanza.name + '\n' + key).second)
                stanza.keys.push_back(key);
        }
    }
    return stanzas;
}

// The cache is asked, not the store: a stanza may be without a name, and a store takes none such.
std::vector<std::string> LoadedFile::values(std::string const& stanza, std::string const& key) const
{
    std::vector<std::string> texts;
    auto values = cache_->values(stanza.c_str(), key.c_str(), ZPCache_6_0::anyValues);
    for (ZPCategoryBasedCache_6_0::Text value; values.next(value);)
        texts.emplace_back(value.chars, value.length);
    return texts;
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
    bool isInside = false, isBehindComment = false;
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const& line = static_cast<ZPropLine_6_0 const&>(*lines.get(i));
        bool const isHead = line.type() == ZPropLine_6_0::stanzaHead;
        bool const belongs = isHead ? text(line.text()) == stanza : isInside;
        if (isBehindComment && belongs)
            return true;
        isBehindComment = line.type() == ZPropLine_6_0::comment;
        if (isHead)
            isInside = belongs;
    }
    return isBehindComment && isInside;
}

EditedFile::EditedFile(std::string const& path, Replaced const& replaced, Need need)
    : turn_(path), store_(1)
{
    if (need == mayBeMissing && access(path.c_str(), F_OK) != 0)
        return;
    store_.load(path.c_str());
    auto const refuse = [&path](size_t line, std::string const& loss) {
        throw Failure{exitRefused, path + ":" + std::to_string(line) +
                                       ": the file would not be stored as it is: " + loss};
    };
    // What is not read whole would not be written back whole.
    survey(path, [&refuse](Piece const& piece) {
        if (char const* const loss = piece.isTorn ? kTornLine : piece.hasZero ? kZeroByte : nullptr)
            refuse(piece.line, loss);
        return true;
    });
    auto const isObfuscated = [this](std::string const& stanza, std::string const& key) {
        return !stanza.empty() && !key.empty() &&
               store_.isObfuscated(stanza.c_str(), key.c_str()) != 0;
    };
    for (DroppedLine const& dropped : droppedLines(path, isObfuscated)) {
        bool const isMeant = !replaced.stanza.empty() && dropped.stanza == replaced.stanza &&
                             (replaced.key.empty() || dropped.key == replaced.key);
        if (!isMeant)
            refuse(dropped.line, reportOf(dropped));
    }
}

void needStanza(ZProperties_6_0 const& store, std::string const& path, std::string const& stanza)
{
    if (store.exists(stanza.c_str()) == 0)
        throw Failure{exitNotFound, "there is no stanza [" + stanza + "] in " + path +
                                        "; `zstz stanzas` lists what there is"};
}

void checkReserved(std::string const& stanza)
{
    if (stanza == kReserved)
        throw Failure{exitRefused, "the stanza [" + stanza +
                                       "] is reserved for the name of the companion file and is "
                                       "kept up to date by itself; use another stanza"};
}

void checkNames(std::string const& stanza, std::string const& key)
{
    checkReserved(stanza);
    if (ZPCategoryBasedCache_6_0::validateCategory(stanza.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      "the stanza name " + quoted(stanza) +
                          " cannot be stored; use one line of at most 8188 bytes without \"]\""};
    if (ZPCategoryBasedCache_6_0::validateKey(stanza.c_str(), key.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      "the key " + quoted(key) +
                          " cannot be stored; use one line of at most 8188 bytes that has no "
                          "\"=\", no outer blanks and no leading \"#\" or \"[\""};
}

void checkValue(std::string const& key, std::string const& value)
{
    if (value.empty())
        return;
    if (ZPCategoryBasedCache_6_0::validateValue(key.c_str(), value.c_str()) == 0)
        throw Failure{
            exitInvalidValue,
            "the value of key " + key +
                " cannot be stored; use one line, and at most 8187 bytes for key and value"};
    if (isSpace(value.front()) || isSpace(value.back()))
        throw Failure{exitInvalidValue, "the value " + quoted(value) + " of key " + key +
                                            " begins or ends with white space, which a line does "
                                            "not keep; leave that out, or use `zstz set "
                                            "--obfuscated`, which keeps it"};
}
