// The files that a store has read or written while it kept lines. If another program has changed a
// file since, a store makes its own changes in the present text.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "stanza/reserved_entry.h"
#include "store/companion.h"
#include "store/journaled_file.h"

using namespace zproperties;
using KeptLines = ZPCategoryBasedCache_6_0::KeptLines;
using Stamp = zstore::JournaledFile::Stamp;

namespace {

std::string absolutePath(char const* path)
{
    try {
        return zstore::absolutePath(path);
    } catch (zfiles::IoError const&) {
        return path;  // the working directory has been removed
    }
}

// Returns whether `path` leads to the file in the state `stamp`.
bool leadsTo(std::string const& path, Stamp const& stamp)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && status.st_dev == stamp.device &&
           status.st_ino == stamp.inode;
}

}  // namespace

ZProperties_6_0::Rep::KnownFiles::File const* ZProperties_6_0::Rep::KnownFiles::find(
    char const* path, Stamp const& stamp) const
{
    if (list_.empty())
        return nullptr;
    std::string const wanted = absolutePath(path);
    auto const found = std::find_if(list_.rbegin(), list_.rend(), [&](File const& file) {
        return file.path == wanted || leadsTo(file.path, stamp);
    });
    return found == list_.rend() ? nullptr : &*found;
}

void ZProperties_6_0::Rep::KnownFiles::record(char const* path, Stamp const& stamp,
                                              zlines::SharedText text, std::string const& companion,
                                              ZBuffer_6_0 const& secrets)
{
    if (text == nullptr && list_.empty())
        return;
    std::string absolute = absolutePath(path);
    list_.erase(std::remove_if(list_.begin(), list_.end(),
                               [&](File const& file) {
                                   return file.path == absolute || leadsTo(file.path, stamp);
                               }),
                list_.end());
    if (text == nullptr)
        return;
    if (list_.size() == kMaxCount)
        list_.erase(list_.begin());
    std::string contents;
    if (!companion.empty())
        contents.assign(static_cast<char const*>(secrets.getBuffer()), secrets.getLength());
    list_.push_back({std::move(absolute), std::move(text), companion,
                     std::make_shared<std::string const>(std::move(contents))});
}

std::unique_ptr<ZPCache_6_0> ZProperties_6_0::Rep::mergeWith(ZProperties_6_0& store,
                                                             char const* path,
                                                             zstore::JournaledFile& file)
{
    auto* const cache = dynamic_cast<ZPCategoryBasedCache_6_0*>(store.cache_);
    Rep const& rep = *store.rep_;
    if (cache == nullptr || !KeptLines::keepsLines(*cache) || file.isCreated())
        return nullptr;
    KnownFiles::File const* const known = rep.known.find(path, file.stamp());
    if (known == nullptr || KeptLines::textOf(*cache) == nullptr)
        return nullptr;
    bool const isSameText = known->text->text == file.text();
    std::string secrets = *known->secrets;
    if (!known->companion.empty() && zstanza::findCompanion(file.text()).empty()) {
        secrets.clear();  // another program has made the last obfuscated value plain
    } else if (!known->companion.empty()) {
        try {
            zstore::JournaledFile::Bytes const present =
                file.readCompanion(known->companion.c_str());
            secrets.assign(static_cast<char const*>(present.data()), present.length());
        } catch (zfiles::IoError const&) {
            // A missing or invalid companion has no changes: the store writes it again.
        }
    }
    if (isSameText && secrets == *known->secrets)
        return nullptr;
    std::unique_ptr<ZPCache_6_0> fresh =
        rep.direct != nullptr ? std::unique_ptr<ZPCache_6_0>(cache->makeEmpty()) : copyCache(store);
    if (fresh != nullptr) {
        fresh->clear();
        try {
            parse(store, *fresh, path, file.text());  // it must be readable
            KeptLines::Base const base{*known->text, *known->secrets, secrets};
            std::string merged;
            if (KeptLines::mergeText(*cache, base, file.text(), path, merged)) {
                fresh->clear();
                parse(store, *fresh, path, merged);
                auto& fresh_ = static_cast<ZPCategoryBasedCache_6_0&>(*fresh);
                if (KeptLines::mergeSecrets(*cache, fresh_, base))
                    return fresh;
            }
        } catch (ZPropertiesInvalidDataException_6_0 const&) {
            // The other program has left a file that cannot be read.
        }
    }
    throw zfiles::IoError{path, zfiles::FailedCall::store, ESTALE};
}
