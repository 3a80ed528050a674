// The companion file of a store: its name, whether the store has read it, and when it is removed.
#include <errno.h>
#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZPropertiesImpl.h"
#include "ZProperties_p.h"
#include "stanza/reserved_entry.h"
#include "stanza/whitespace.h"
#include "store/journaled_file.h"

using namespace zproperties;

std::string ZProperties_6_0::Rep::companionEntry(ZProperties_6_0 const& store)
{
    if (store.rep_->dialect != nullptr)
        return {};  // a foreign file must not name a file that a store opens or removes
    std::optional<Text> const entry = lastValue(store, kReservedCategory, kReservedKey);
    return entry ? std::string(entry->chars, entry->length) : std::string();
}

std::string ZProperties_6_0::Rep::companionPath(ZProperties_6_0 const& store)
{
    std::string const entry = companionEntry(store);
    if (entry.empty())
        return store.cache_->companionFile().getChars();
    // Trimmed, as if it were read back from the text.
    std::string_view const path = zstanza::WhitespaceTable().trim(entry);
    return path.empty() ? store.cache_->companionFile().getChars() : std::string(path);
}

bool ZProperties_6_0::Rep::Companions::isLoaded(std::string const& path) const
{
    for (Companion const& companion : list_)
        if (companion.path == path)
            return companion.isLoaded;
    return false;
}

void ZProperties_6_0::Rep::Companions::addLoaded(std::string const& path)
{
    remove(path);
    if (list_.size() == kMaxCount)
        list_.erase(list_.begin());
    list_.push_back({path, true});
}

void ZProperties_6_0::Rep::Companions::remove(std::string const& path)
{
    std::erase_if(list_, [&](Companion const& companion) { return companion.path == path; });
}

void ZProperties_6_0::Rep::Companions::setAllUnloaded()
{
    for (Companion& companion : list_)
        companion.isLoaded = false;
}

bool ZProperties_6_0::Rep::belongsToAnotherFile(std::string const& companion, char const* path)
{
    static constexpr std::string_view kEnd = zstore::kCompanionSuffix;
    if (companion.size() <= kEnd.size() || !companion.ends_with(kEnd))
        return false;
    struct stat owner;
    struct stat file;
    std::string const other = companion.substr(0, companion.size() - kEnd.size());
    return stat(other.c_str(), &owner) == 0 && S_ISREG(owner.st_mode) &&
           (stat(path, &file) != 0 || file.st_dev != owner.st_dev || file.st_ino != owner.st_ino);
}

std::string ZProperties_6_0::Rep::companionToRemove(ZProperties_6_0 const& store,
                                                    zstore::JournaledFile const& file,
                                                    std::string const& named)
{
    auto const isRemovable = [&file](std::string const& path) {
        return !path.empty() && file.mayRemove(path);
    };
    auto const exists = [](std::string const& path) {
        struct stat status;
        return lstat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
    };
    if (store.rep_->dialect != nullptr)
        return {};
    if (isRemovable(named))
        return named;
    for (Companions::Companion const& known : store.rep_->companions.list())
        if (isRemovable(known.path) && exists(known.path))
            return known.path;
    // The store may never have read the file that it overwrites, so the old text has to be checked.
    std::string before =
        store.rep_->hasCompanion ? zstanza::findCompanion(file.text()) : std::string();
    return isRemovable(before) && exists(before) ? before : std::string();
}

bool ZProperties_6_0::Rep::namesOwnCompanion(zstore::JournaledFile const& file)
{
    std::string const entry = zstanza::findCompanion(file.text());
    return !entry.empty() && file.isOwnCompanion(entry);
}

ZPCache_6_0* ZProperties_6_0::Rep::setCompanion(ZProperties_6_0& store, char const* path,
                                                std::unique_ptr<ZPCache_6_0>& edited,
                                                std::optional<CacheRestorer>& restorer)
{
    edited = copyCache(store);
    if (edited == nullptr)
        restorer.emplace(*store.cache_);
    ZPCache_6_0* const target = edited != nullptr ? edited.get() : store.cache_;
    if (path != nullptr) {
        store.rep_->requireValidValue(kReservedKey, path);
        target->addLine(kReservedCategory, kReservedKey, path, 0);
    } else {
        target->delLine(kReservedCategory, kReservedKey);
    }
    target->setCompanionFile(path);
    return target;
}

void ZProperties_6_0::Rep::packCompanion(ZProperties_6_0& store, std::string const& path,
                                         StoreOperation& operation)
{
    if (companionEntry(store) == path)
        store.cache_->setCompanionFile(path.c_str());
    else
        operation.source = setCompanion(store, path.c_str(), operation.edited, operation.restorer);
    operation.source->be_write_obfuscated(operation.packed);
}

void ZProperties_6_0::Rep::chooseCompanionChange(ZProperties_6_0& store,
                                                 zstore::JournaledFile const& file,
                                                 std::string const& named, std::string const& path,
                                                 StoreOperation& operation)
{
    auto& [source, edited, restorer, packed, change, companions, known] = operation;
    if (packed.getLength() > 0) {
        change.change = zstore::JournaledFile::Companion::written;
        change.path = path;
        change.contents = {static_cast<char const*>(packed.getBuffer()), packed.getLength()};
        change.isNamed = path == named || (store.rep_->hasCompanion && namesOwnCompanion(file));
        companions.addLoaded(path);
        return;
    }
    companions.setAllUnloaded();
    change.path = companionToRemove(store, file, named);
    if (!change.path.empty()) {
        change.change = zstore::JournaledFile::Companion::removed;
        companions.remove(change.path);
    }
    if (!path.empty())
        source = setCompanion(store, nullptr, edited, restorer);
}
