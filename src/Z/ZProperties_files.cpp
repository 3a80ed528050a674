// Loading and storing files.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "reporting/failures.h"
#include "store/journaled_file.h"
#include "store/limits.h"

using namespace zproperties;
using KeptLines = ZPCategoryBasedCache_6_0::KeptLines;

namespace {

constexpr size_t kWorkingDirectory = 1024;

// Sets an int in this scope.
class ScopedValue {
public:
    ScopedValue(int& flag, int value) : flag_(flag), before_(flag) { flag = value; }
    ScopedValue(ScopedValue const&) = delete;
    ScopedValue& operator=(ScopedValue const&) = delete;
    ~ScopedValue() { flag_ = before_; }

private:
    int& flag_;
    int const before_;
};

void moveToBuffer(zstore::JournaledFile::Bytes& bytes, ZBuffer_6_0& buffer)
{
    size_t const length = bytes.length();
    buffer.setBufferNoCopy(length, bytes.release());
}

std::string_view viewOf(ZBuffer_6_0 const& buffer)
{
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

}  // namespace

// ---- Files -------------------------------------------------------------------------------------

namespace {

// An output stream in memory. The C library's own does not report bytes that it dropped for lack of
// memory.
struct MemoryStream {
    std::string text;
    size_t place = 0;     // position of the next byte
    bool isLost = false;  // bytes were dropped for lack of memory

    static ssize_t write(void* stream, char const* bytes, size_t length)
    {
        auto& [text, place, isLost] = *static_cast<MemoryStream*>(stream);
        try {
            text.resize(std::max(text.size(), place + length));
        } catch (std::exception const&) {
            isLost = true;
            errno = ENOMEM;
            return 0;
        }
        memcpy(text.data() + place, bytes, length);
        place += length;
        return static_cast<ssize_t>(length);
    }

    static int seek(void* stream, off64_t* offset, int from)
    {
        auto& [text, place, isLost] = *static_cast<MemoryStream*>(stream);
        size_t const base = from == SEEK_SET ? 0 : from == SEEK_CUR ? place : text.size();
        off64_t const target = static_cast<off64_t>(base) + *offset;
        if (target < 0) {
            errno = EINVAL;
            return -1;
        }
        *offset = target;
        place = static_cast<size_t>(target);
        return 0;
    }
};

// Writes the text of a cache. A cache of a class outside the library writes it to a stream.
void render(ZPCache_6_0& cache, ZSCFData_6_0* stanzas, char const* path, ZBuffer_6_0& text)
{
    if (stanzas != nullptr) {
        KeptLines::writeText(*stanzas, path, text);
        return;
    }
    MemoryStream written;
    File const file(
        fopencookie(&written, "w", {nullptr, MemoryStream::write, MemoryStream::seek, nullptr}));
    if (file == nullptr)
        throw zstore::JournaledFile::IoError{path, zfiles::FailedCall::fopencookie, errno};
    cache.be_write(path, file.get());
    bool const failed = ferror(file.get()) != 0 || fflush(file.get()) != 0;
    if (failed || written.isLost)
        throw zstore::JournaledFile::IoError{path, zfiles::FailedCall::fwrite,
                                             written.isLost ? ENOMEM : errno};
    text.setBuffer(written.text.size(), written.text.data());
}

// Reads the companion of `file`, which is at `path`, into `target`. Returns false if another
// program replaced the file and `canRetry` is true: a store of the new file may have written the
// companion. Stores its contents in `secrets`.
// throws  as ZProperties_6_0::load().
bool readCompanion(zstore::JournaledFile& file, char const* path, std::string const& companion,
                   bool canRetry, ZPCache_6_0& target, ZBuffer_6_0& secrets)
{
    try {
        zstore::JournaledFile::Bytes packed = file.readCompanion(companion.c_str());
        moveToBuffer(packed, secrets);
        target.be_read_obfuscated(secrets);
    } catch (...) {
        if (canRetry && file.isReplaced())
            return false;
        throw;
    }
    if (!file.isReplaced())
        return true;
    if (canRetry)
        return false;
    throw zstore::JournaledFile::IoError{path, zfiles::FailedCall::fopenToRead, ESTALE};
}

}  // namespace

void ZProperties_6_0::Rep::parse(ZProperties_6_0 const& store, ZPCache_6_0& cache, char const* path,
                                 std::string_view text)
{
    if (store.rep_->stanzas != nullptr) {
        static_cast<ZSCFData_6_0&>(cache).readText(path, text.data(), text.size());
        return;
    }
    char none[1] = "";
    char* const data = text.empty() ? none : const_cast<char*>(text.data());
    File const file(fmemopen(data, text.size(), "r"));
    if (file == nullptr)
        throw zstore::JournaledFile::IoError{path, zfiles::FailedCall::fmemopen, errno};
    cache.be_read(path, file.get());
}

char const* ZProperties_6_0::Rep::choosePath(ZProperties_6_0& store, char const* path)
{
    ZLCString_6_0& name = store.fileName_;
    if (isEmpty(path)) {
        if (name.isEmpty())
            ZInvalidParameterException_6_0().throwException(kSource, raiseForPath);
        return name.getChars();
    }
    if (name.isEmpty())
        name.setCapacity(static_cast<unsigned>(strlen(path)));
    return path;
}

void ZProperties_6_0::Rep::recordFile(ZProperties_6_0& store, char const* path,
                                      zstore::JournaledFile const& file)
{
    zstore::JournaledFile::Stamp const& stamp = file.stamp();
    // Returns whether `name` leads to the file, even if it is not `path`.
    auto const isNameOf = [&](char const* name) {
        struct stat status;
        return strcmp(name, path) == 0 ||
               (stat(name, &status) == 0 && status.st_dev == stamp.device &&
                status.st_ino == stamp.inode);
    };
    if (store.fileName_.isEmpty())
        store.fileName_ = path;
    if (isNameOf(store.fileName_.getChars()))
        store.timeStamp_ = stamp.seconds;
    Rep& rep = *store.rep_;
    if (rep.sharedPath.empty() || !isNameOf(rep.sharedPath.c_str()))
        return;
    std::lock_guard<std::mutex> const guard(rep.stampMutex_);
    rep.sharedStamp_ = stamp;
}

bool ZProperties_6_0::Rep::isCurrent(ZProperties_6_0& store)
{
    if (std::atomic_ref<int>(store.modified_).load(std::memory_order_relaxed) != 0)
        return true;
    struct stat status;
    return stat(store.rep_->sharedPath.c_str(), &status) != 0 ||
           zstore::JournaledFile::Stamp(status) == store.rep_->sharedStamp();
}

bool ZProperties_6_0::Rep::loadOnce(ZProperties_6_0& store, char const* path)
{
    // Reads the file into a copy of the cache, so that a failure changes nothing.
    std::unique_ptr<ZPCache_6_0> copy = copyCache(store);
    ZPCache_6_0& target = copy != nullptr ? *copy : *store.cache_;
    std::optional<CacheRestorer> restorer;
    if (copy == nullptr)
        restorer.emplace(target);
    Rep& rep = *store.rep_;

    zstore::JournaledFile file(path, zstore::JournaledFile::Mode::load);
    std::string const known = target.companionFile().getChars();
    target.setCompanionFile(nullptr);
    parse(store, target, path, file.text());
    // Read a companion that the text names, even if the store has read it before: the stanzas of
    // the text are new to the store, so the earlier values have been removed since.
    bool const isNamed = !target.companionFile().isEmpty();
    if (!isNamed)
        target.setCompanionFile(known.c_str());
    Companions read = rep.companions;
    ZBuffer_6_0 secrets;
    std::string const companion = target.companionFile().getChars();
    if (!companion.empty() && (isNamed || !read.isLoaded(companion))) {
        bool const canRetry = !restorer || restorer->canRestore();
        if (!readCompanion(file, path, companion, canRetry, target, secrets))
            return false;
        read.addLoaded(companion);
    }
    file.close();

    KnownFiles files = rep.known;
    files.record(path, file.stamp(), KeptLines::textOf(target, file.text()),
                 isNamed ? companion : std::string(), secrets);
    rep.companions.swap(read);
    if (copy != nullptr)
        exchange(store, copy);
    try {
        store.postLoad(path);
    } catch (...) {
        if (copy != nullptr)
            exchange(store, copy);
        rep.companions.swap(read);
        throw;
    }
    if (restorer)
        restorer->dismiss();
    recordFile(store, path, file);
    rep.known.swap(files);
    setModified(store, 0);
    return true;
}

void ZProperties_6_0::load(char const* path)
{
    constexpr int kMaxAttempts = 100;
    zreporting::CancelGuard const uncancelled;
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    ScopedValue const loading(loading_, 1);
    translateErrors(raiseInLoad, [&] {
        for (int attempts = 1; !Rep::loadOnce(*this, chosen); ++attempts)
            if (attempts == kMaxAttempts)
                throw zstore::JournaledFile::IoError{chosen, zfiles::FailedCall::fopenToRead,
                                                     ESTALE};
    });
}

void ZProperties_6_0::reload(char const* path)
{
    zreporting::CancelGuard const uncancelled;
    Hold const hold(*this);
    if (isEmpty(path) && fileName_.isEmpty())
        ZInvalidParameterException_6_0().throwException(kSource, raiseInReload);
    translateErrors(raiseInReload, [&] {
        std::unique_ptr<ZPCache_6_0> empty(
            rep_->direct != nullptr ? cache_->makeEmpty() : Rep::copyCache(*this).release());
        std::optional<Rep::CacheRestorer> restorer;
        if (empty == nullptr)
            restorer.emplace(*cache_);
        else if (rep_->direct == nullptr)
            empty->clear();
        Rep::Companions companions;
        rep_->companions.swap(companions);
        if (empty != nullptr)
            Rep::exchange(*this, empty);
        try {
            if (empty == nullptr)
                cache_->clear();
            load(path);
        } catch (...) {
            if (empty != nullptr)
                Rep::exchange(*this, empty);
            rep_->companions.swap(companions);
            throw;
        }
        if (restorer)
            restorer->dismiss();
    });
}

void ZProperties_6_0::store(char const* path)
{
    zreporting::CancelGuard const uncancelled;
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    translateErrors(raiseInStore, [&] {
        std::string const named = Rep::companionPath(*this);
        std::string companion = named;
        bool const hasItems = cache_->obfuscatedItemCount() > 0;
        // Two files with the same companion would overwrite each other's values.
        if (hasItems && Rep::belongsToAnotherFile(companion, chosen))
            companion.clear();
        if (hasItems)
            checkFileAccess(
                (companion.empty() ? zstore::JournaledFile::likelyCompanion(chosen) : companion)
                    .c_str());

        zstore::JournaledFile file(chosen, zstore::JournaledFile::Mode::store);
        std::unique_ptr<ZPCache_6_0> merged = Rep::mergeWith(*this, chosen, file);
        bool const isMerged = merged != nullptr;
        if (isMerged)
            Rep::exchange(*this, merged);
        try {
            if (isMerged) {
                ScopedValue const loading(loading_, 1);
                postLoad(chosen);
            }
            Rep::StoreOperation operation(*this);
            if (hasItems) {
                if (companion.empty())
                    companion = file.newCompanion();
                Rep::packCompanion(*this, companion, operation);
            }
            Rep::chooseCompanionChange(*this, file, named, companion, operation);
            Rep::write(*this, chosen, file, operation);

            if (operation.edited != nullptr)
                Rep::exchange(*this, operation.edited);
            if (operation.restorer)
                operation.restorer->dismiss();
            rep_->companions.swap(operation.companions);
            rep_->known.swap(operation.known);
        } catch (...) {
            if (isMerged)
                Rep::exchange(*this, merged);
            throw;
        }
        Rep::recordFile(*this, chosen, file);
        loading_ = 0;
        Rep::setModified(*this, 0);
    });
}

void ZProperties_6_0::Rep::write(ZProperties_6_0& store, char const* path,
                                 zstore::JournaledFile& file, StoreOperation& operation)
{
    ZPCache_6_0& source = *operation.source;
    bool const keepsLines = KeptLines::keepsLines(source);
    KeptLines::Collector collector(keepsLines ? dynamic_cast<ZPCategoryBasedCache_6_0*>(&source)
                                              : nullptr);
    ZBuffer_6_0 text;
    render(source, store.rep_->stanzas != nullptr ? static_cast<ZSCFData_6_0*>(&source) : nullptr,
           path, text);
    if (keepsLines)
        file.skipUnchanged();
    // The stamp was taken with the old text, but the file stays the same unless it is replaced:
    // then its path is compared.
    operation.known.record(
        path, file.stamp(), collector.textOf(viewOf(text)),
        operation.packed.getLength() > 0 ? source.companionFile().getChars() : "",
        operation.packed);
    store.rep_->isReplacing ? file.replace(viewOf(text), operation.change)
                            : file.commit(viewOf(text), operation.change);
    file.close();
    collector.keep(viewOf(text));
}

int ZProperties_6_0::checkAndSetTimeStamp(char const* path, long& stamp)
{
    struct stat status;
    if (isEmpty(path) || access(path, F_OK) != 0 || stat(path, &status) != 0 ||
        status.st_mtim.tv_sec == stamp)
        return 0;
    stamp = status.st_mtim.tv_sec;
    return 1;
}

void ZProperties_6_0::setReplacing(int replacing)
{
    Hold const hold(*this);
    rep_->isReplacing = replacing != 0;
}

int ZProperties_6_0::isReplacing() const
{
    Hold const hold(*this);
    return rep_->isReplacing ? 1 : 0;
}

void ZProperties_6_0::setMaxFileSize(unsigned long size)
{
    zstore::setMaxFileSize(size);
}

unsigned long ZProperties_6_0::maxFileSize()
{
    return zstore::maxFileSize();
}

void ZProperties_6_0::checkFileAccess(char const* path)
{
    auto const check = [](char const* file) {
        if (access(file, R_OK | W_OK) != 0)
            throw zstore::JournaledFile::IoError{file, zfiles::FailedCall::access, errno};
    };
    if (isEmpty(path))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInCheckFileAccess);
    translateErrors(raiseInCheckFileAccess, [&] {
        if (access(path, F_OK) == 0) {
            check(path);
            return;
        }
        std::string directory(path);
        size_t const slash = directory.rfind('/');
        if (slash != std::string::npos) {
            directory.resize(slash == 0 ? 1 : slash);
            check(directory.c_str());
            return;
        }
        char current[kWorkingDirectory];
        if (getcwd(current, sizeof current) == nullptr)
            throw zstore::JournaledFile::IoError{path, zfiles::FailedCall::getcwd, errno};
        check(current);
    });
}
