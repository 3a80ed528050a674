// What a power cut may leave of stores, on a disk that promises no more than it must.
//
// The calls of some stores are written down. Then the power is cut behind each of them, again and
// again: of what had not been synced by then the disk has any sectors, any sizes and any names; in
// the place of a sector that it has not, a new file shows what a removed one had there.
#include <Z/ZStoreFile_p.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "TestDirectory.h"

// ---- Writing down ------------------------------------------------------------------------------

namespace {

constexpr int kFolder = -1;  // in place of a file

struct Step {
    // `reach`: what was written has reached the disk, but may still be in its cache.
    enum Kind { write, cut, make, rename, remove, reach, sync } kind;
    int file = 0;
    size_t offset = 0;  // of a write; the length of a cut
    std::string bytes;
    std::string name;  // made, removed, or to be renamed
    std::string newName;
};

// What the calls below note while they are watched.
struct Notes {
    bool watched = false;
    bool logsNames = false;  // the file system says that a sync of a file covers its name
    std::vector<Step> steps;
    std::map<std::string, int> files;  // by path
    std::map<int, int> open;           // file by descriptor
    std::map<int, size_t> position;    // by descriptor
    int count = 0;                     // of files
    int calls = 0;                     // that may fail
    int failAt = 0;                    // number of the one that does, counted from 1
    bool dies = false;                 // so do all that follow it
};
Notes notes;

bool fails()
{
    if (!notes.watched)
        return false;
    ++notes.calls;
    errno = EIO;
    return notes.failAt > 0 &&
           (notes.dies ? notes.calls >= notes.failAt : notes.calls == notes.failAt);
}

void noteWrite(int fd, void const* from, ssize_t length, size_t offset)
{
    auto const file = notes.open.find(fd);
    if (notes.watched && length > 0 && file != notes.open.end())
        notes.steps.push_back({Step::write,
                               file->second,
                               offset,
                               {static_cast<char const*>(from), static_cast<size_t>(length)},
                               "",
                               ""});
}

int noteSync(Step::Kind kind, int fd, int rc)
{
    auto const file = notes.open.find(fd);
    if (notes.watched && rc == 0 && file != notes.open.end())
        notes.steps.push_back({kind, file->second, 0, "", "", ""});
    return rc;
}

}  // namespace

extern "C" {
int __real_open(char const*, int, ...);
int __real_close(int);
ssize_t __real_write(int, void const*, size_t);
ssize_t __real_pwrite(int, void const*, size_t, off_t);
int __real_fsync(int);
int __real_fdatasync(int);
int __real_ftruncate(int, off_t);
int __real_rename(char const*, char const*);
int __real_unlink(char const*);
int __real_fstatfs(int, struct statfs*);
int __real_ioctl(int, unsigned long, ...);
int __real_sync_file_range(int, off_t, off_t, unsigned);

int __wrap_open(char const* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    int const fd = fails() ? -1 : __real_open(path, flags, mode);
    if (!notes.watched || fd < 0)
        return fd;
    if ((flags & O_DIRECTORY) == 0 && notes.files.count(path) == 0) {
        notes.files[path] = ++notes.count;
        notes.steps.push_back({Step::make, notes.count, 0, "", path, ""});
    }
    notes.open[fd] = (flags & O_DIRECTORY) != 0 ? kFolder : notes.files[path];
    notes.position[fd] = 0;
    return fd;
}
int __wrap_close(int fd)
{
    notes.open.erase(fd);
    return __real_close(fd);
}
ssize_t __wrap_write(int fd, void const* from, size_t length)
{
    ssize_t const n = fails() ? -1 : __real_write(fd, from, length);
    noteWrite(fd, from, n, notes.position[fd]);
    notes.position[fd] += static_cast<size_t>(std::max<ssize_t>(n, 0));
    return n;
}
ssize_t __wrap_pwrite(int fd, void const* from, size_t length, off_t offset)
{
    ssize_t const n = fails() ? -1 : __real_pwrite(fd, from, length, offset);
    noteWrite(fd, from, n, static_cast<size_t>(offset));
    return n;
}
int __wrap_fsync(int fd)
{
    return noteSync(Step::sync, fd, fails() ? -1 : __real_fsync(fd));
}
int __wrap_fdatasync(int fd)
{
    return noteSync(Step::sync, fd, fails() ? -1 : __real_fdatasync(fd));
}
int __wrap_sync_file_range(int fd, off_t offset, off_t length, unsigned flags)
{
    int const rc = fails() ? -1 : __real_sync_file_range(fd, offset, length, flags);
    unsigned const all =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    return offset == 0 && length == 0 && flags == all ? noteSync(Step::reach, fd, rc) : rc;
}
int __wrap_ftruncate(int fd, off_t length)
{
    if (fails())
        return -1;
    if (notes.watched)
        notes.steps.push_back(
            {Step::cut, notes.open.at(fd), static_cast<size_t>(length), "", "", ""});
    return __real_ftruncate(fd, length);
}
int __wrap_rename(char const* from, char const* to)
{
    int const rc = fails() ? -1 : __real_rename(from, to);
    if (notes.watched && rc == 0) {
        notes.steps.push_back({Step::rename, notes.files.at(from), 0, "", from, to});
        notes.files[to] = notes.files.at(from);
        notes.files.erase(from);
    }
    return rc;
}
int __wrap_unlink(char const* path)
{
    int const rc = fails() ? -1 : __real_unlink(path);
    if (notes.watched && rc == 0) {
        notes.steps.push_back({Step::remove, notes.files.at(path), 0, "", path, ""});
        notes.files.erase(path);
    }
    return rc;
}
int __wrap_fstatfs(int fd, struct statfs* system)
{
    int const rc = __real_fstatfs(fd, system);
    system->f_type = notes.logsNames ? XFS_SUPER_MAGIC : EXT2_SUPER_MAGIC;
    return rc;
}
int __wrap_ioctl(int, unsigned long, ...)
{
    errno = ENOTTY;
    return -1;
}
}

namespace {

// ---- The disk ----------------------------------------------------------------------------------

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned kCuts = 15;
#else
constexpr unsigned kCuts = 150;  // behind each step
#endif
constexpr size_t kSector = 512;

using Files = std::map<std::string, std::string>;  // contents by path

class Disk {
public:
    Disk(unsigned seed, bool logsNames) : random_(seed), logsNames_(logsNames) {}

    void run(Step const& step)
    {
        switch (step.kind) {
            case Step::write:
            case Step::cut:
                pending_[step.file].push_back(&step);
                break;
            case Step::make:
            case Step::rename:
            case Step::remove:
                pendingNames_.push_back(&step);
                if (step.kind == Step::remove)
                    removed_.push_back(step.file);
                break;
            case Step::reach:
                reached_[step.file] = pending_[step.file].size();
                break;
            case Step::sync:
                emptyCache();
                if (step.file == kFolder) {
                    for (Step const* one : pendingNames_)
                        apply(*one, names_);
                    pendingNames_.clear();
                } else {
                    for (Step const* one : pending_[step.file])
                        apply(*one, contents_[step.file]);
                    pending_[step.file].clear();
                    if (logsNames_)
                        syncNamesOf(step.file);
                }
        }
    }

    // What is there when the power comes back.
    Files cutPower()
    {
        std::map<std::string, int> names = names_;
        unsigned const chance = random_() % 5;  // of four
        for (Step const* one : pendingNames_)
            if (happens(chance))
                apply(*one, names);
        Files files;
        for (auto const& [name, file] : names)
            files[name] = survivor(file);
        return files;
    }

private:
    bool happens(unsigned chance) { return random_() % 4 < chance; }

    void emptyCache()
    {
        for (auto const& [file, count] : reached_) {
            std::vector<Step const*>& pending = pending_[file];
            for (size_t i = 0; i < count; ++i)
                apply(*pending[i], contents_[file]);
            pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(count));
        }
        reached_.clear();
    }

    // The contents of a removed file, when its blocks are free: the cache was emptied before.
    std::string ghost(int file)
    {
        std::string all = contents_[file];
        auto const count = reached_.find(file);
        for (size_t i = 0; count != reached_.end() && i < count->second; ++i)
            apply(*pending_[file][i], all);
        return all;
    }

    // An entry of a folder is not written behind a later one of the same name.
    void syncNamesOf(int file)
    {
        std::set<std::string> entries;
        for (Step const* one : pendingNames_)
            if (one->file == file)
                entries.insert({one->name, one->newName});
        entries.erase("");
        std::vector<Step const*> others;
        for (Step const* one : pendingNames_)
            if (entries.count(one->name) + entries.count(one->newName) > 0)
                apply(*one, names_);
            else
                others.push_back(one);
        pendingNames_ = others;
    }

    static void apply(Step const& step, std::map<std::string, int>& names)
    {
        auto const name = names.find(step.name);
        if (step.kind != Step::make && name != names.end() && name->second == step.file)
            names.erase(name);
        if (step.kind != Step::remove)
            names[step.kind == Step::make ? step.name : step.newName] = step.file;
    }

    static void apply(Step const& step, std::string& contents)
    {
        if (step.kind == Step::cut) {
            contents.resize(step.offset);
            return;
        }
        contents.resize(std::max(contents.size(), step.offset + step.bytes.size()));
        contents.replace(step.offset, step.bytes.size(), step.bytes);
    }

    // A file of which any part that was not synced may be missing.
    std::string survivor(int file)
    {
        std::string const& synced = contents_[file];
        std::string all = synced;
        std::vector<size_t> sizes = {all.size()};
        size_t longest = all.size();
        for (Step const* one : pending_[file]) {
            apply(*one, all);
            sizes.push_back(all.size());
            longest = std::max(longest, all.size());
        }
        // A file that was never synced may lie where a removed one was.
        bool const haunted = synced.empty() && !removed_.empty() && random_() % 2 == 0;
        std::string const there = haunted ? ghost(removed_[random_() % removed_.size()]) : synced;
        unsigned const chance = random_() % 5;  // of four: that a sector is there

        std::string out(longest, '\0');
        for (size_t at = 0; at < longest; at += kSector) {
            bool const written = happens(chance) && !pending_[file].empty();
            std::string sector = sectorOf(written ? synced : there, at);
            if (written)
                runUpTo(file, 1 + random_() % pending_[file].size(), at, sector);
            out.replace(at, std::min(kSector, longest - at), sector, 0, kSector);
        }
        out.resize(longest);
        out.resize(sizes[chance == 4 ? sizes.size() - 1 : random_() % sizes.size()]);
        return out;
    }

    static std::string sectorOf(std::string const& contents, size_t at)
    {
        std::string sector = at < contents.size() ? contents.substr(at, kSector) : "";
        sector.resize(kSector);
        return sector;
    }

    // Does to the sector at `at` what the first `count` steps did that are pending.
    void runUpTo(int file, size_t count, size_t at, std::string& sector)
    {
        std::string whole(at, '\0');
        whole += sector;
        for (size_t i = 0; i < count; ++i) {
            apply(*pending_[file][i], whole);
            whole.resize(std::max(whole.size(), at + kSector));
        }
        sector = whole.substr(at, kSector);
    }

    std::minstd_rand random_;
    bool const logsNames_;
    std::map<int, std::string> contents_;  // synced
    std::map<int, std::vector<Step const*>> pending_;
    std::map<int, size_t> reached_;  // how many of them are in the disk's cache
    std::map<std::string, int> names_;
    std::vector<Step const*> pendingNames_;
    std::vector<int> removed_;
};

// ---- The stores --------------------------------------------------------------------------------

// A generation: its text in two halves, so that one generation may lie between two others.
struct Generation {
    std::string text;
    std::string companion;

    bool operator==(Generation const& other) const
    {
        return text == other.text && companion == other.companion;
    }
};

Generation generation(char first, char second, size_t half, std::string const& companion)
{
    // All begin alike, so that the first sector of one journal may be that of another.
    return {std::string(kSector, '-') + std::string(half, first) + std::string(half, second) + "\n",
            companion.empty() ? "" : "\x78\x9C" + companion};
}

// The parameter: whether a sync of a file puts its name on disk as well.
class PowerCutTest : public testing::TestWithParam<bool> {
public:
    ~PowerCutTest() noexcept override {}

protected:
    void SetUp() override
    {
        notes = Notes();
        notes.logsNames = GetParam();
    }
    void TearDown() override { notes.watched = false; }

    // Stores a generation, and notes that it is acknowledged.
    void store(Generation const& next)
    {
        {
            ZStoreFile file(path_.c_str(), ZStoreFile::Use::store);
            ZStoreFile::Companion companion;
            companion.path = companion_;
            companion.contents = {next.companion.data(), next.companion.size()};
            if (!next.companion.empty())
                companion.change = ZStoreFile::Companion::written;
            else if (std::filesystem::exists(companion_))
                companion.change = ZStoreFile::Companion::removed;
            file.commit({next.text.data(), next.text.size()}, companion);
        }
        acknowledge(next);
    }

    // Stores with its n-th call failing, or that one and all behind it. Until it is acknowledged
    // that nothing was stored, or until the next store, the generation may be there. Returns
    // whether there was such a call.
    bool storeFailing(Generation const& next, int n, bool dies)
    {
        size_t const before = notes.steps.size();
        notes.calls = 0;
        notes.failAt = n;
        notes.dies = dies;
        try {
            store(next);
        } catch (ZStoreFile::Failure const&) {
            attempt_ = {before, dies ? ~size_t{0} : notes.steps.size(), next};
        }
        notes.failAt = 0;
        return notes.calls >= n;
    }

    // What another program does: it knows nothing of a journal.
    void edit(Generation const& next, bool synced = true)
    {
        int const fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        auto const length = static_cast<ssize_t>(next.text.size());
        EXPECT_EQ(length, pwrite(fd, next.text.data(), next.text.size(), 0));
        if (synced) {
            EXPECT_EQ(0, fdatasync(fd));
            acknowledge(next);
        }
        close(fd);
    }

    void acknowledge(Generation const& next)
    {
        acknowledged_.push_back(notes.steps.size());
        generations_.push_back(next);
    }

    // Cuts the power behind every step, many times.
    void cutPowerEverywhere(size_t atLeast = 70, unsigned cuts = kCuts)
    {
        notes.watched = false;
        size_t states = 0;
        for (size_t end = acknowledged_.front(); end <= notes.steps.size(); ++end) {
            auto const behind = std::upper_bound(acknowledged_.begin(), acknowledged_.end(), end);
            auto const last = static_cast<size_t>(behind - acknowledged_.begin()) - 1;
            size_t const next = std::min(last + 1, generations_.size() - 1);
            for (unsigned seed = 1; seed <= cuts; ++seed, ++states) {
                Disk disk(seed * 7919 + static_cast<unsigned>(end), notes.logsNames);
                for (size_t i = 0; i < end; ++i)
                    disk.run(notes.steps[i]);
                put(disk.cutPower());
                Generation const found = load();
                bool const attempted = attempt_.begin <= end && end < attempt_.end && last == 0 &&
                                       found == attempt_.generation;
                if (!(attempted || found == generations_[last] || found == generations_[next])) {
                    ADD_FAILURE() << "behind step " << end << ", seed " << seed << ": "
                                  << found.text.size() << " bytes, " << found.text[0]
                                  << found.text[found.text.size() / 2] << ", with "
                                  << found.companion.substr(
                                         std::min<size_t>(2, found.companion.size()))
                                  << " behind generation " << last << "; there are "
                                  << directory_.names();
                    return;
                }
            }
        }
        EXPECT_LT(atLeast * cuts, states);
    }

    void put(Files const& files) const
    {
        for (auto const& entry : std::filesystem::directory_iterator(directory_.path()))
            std::filesystem::remove(entry.path());
        for (auto const& [name, contents] : files)
            directory_.write(name.substr(directory_.path().size() + 1), contents);
    }

    Generation load() const
    {
        ZStoreFile file(path_.c_str(), ZStoreFile::Use::load);
        Generation found;
        found.text.assign(file.text().data, file.text().length);
        try {
            ZStoreFile::Bytes const bytes = file.readCompanion(companion_.c_str());
            found.companion.assign(bytes.data(), bytes.length());
        } catch (ZStoreFile::Failure const&) {
        }
        return found;
    }

    TestDirectory const directory_{TestDirectory::Place::memory};
    std::string const path_ = directory_.at("conf");
    std::string const companion_ = directory_.at("conf.obf");
    std::vector<size_t> acknowledged_;  // number of the steps before, for each generation
    std::vector<Generation> generations_;

    // A store that failed, behind the first generation: what may be there, from which step to
    // which.
    struct Attempt {
        size_t begin = 0;
        size_t end = 0;
        Generation generation;
    };
    Attempt attempt_;
};

}  // namespace

using ZStoreFilePowerCut = PowerCutTest;
INSTANTIATE_TEST_SUITE_P(NamesSyncedWithFiles, ZStoreFilePowerCut, testing::Bool());

TEST_P(ZStoreFilePowerCut, LeavesTheAcknowledgedPairOrTheNext)
{
    notes.watched = true;
    store(generation('a', 'a', 1000, "1"));
    store(generation('b', 'b', 1000, "2"));
    store(generation('b', 'a', 1000, "3"));
    store(generation('c', 'c', 2000, "four"));
    store(generation('a', 'c', 300, "5"));
    store(generation('a', 'a', 300, ""));
    store(generation('b', 'b', 300, "7"));
    cutPowerEverywhere();
}

TEST_P(ZStoreFilePowerCut, LeavesTheAcknowledgedTextOrTheNext)
{
    // Of one length, so that a journal fits exactly where an earlier one was.
    notes.watched = true;
    store(generation('a', 'a', 1000, ""));
    for (char const* halves : {"bb", "ba", "ab", "cc", "ca", "aa", "bb", "ba"})
        store(generation(halves[0], halves[1], 1000, ""));
    cutPowerEverywhere();
}

TEST_P(ZStoreFilePowerCut, LeavesTheTextWholeWhoseEndMoves)
{
    auto const text = [](char middle, size_t length) {
        return Generation{
            std::string(700, '-') + std::string(length, middle) + std::string(1500, '+') + "\n",
            ""};
    };
    notes.watched = true;
    store(text('a', 10));
    store(text('b', 900));
    store(text('b', 901));
    store(text('c', 20));
    store(text('d', 20));
    store(text('-', 1));
    store(text('+', 600));
    store(text('a', 10));
    cutPowerEverywhere();
}

TEST_P(ZStoreFilePowerCut, LeavesWhatAnotherProgramHasEdited)
{
    notes.watched = true;
    store(generation('a', 'a', 200, ""));
    for (int i = 0; i < 4; ++i) {
        store(generation('b', 'b', 200, ""));
        edit(generation('b', 'a', 200, ""));
        store(generation('a', 'a', 200, ""));
    }
    cutPowerEverywhere();
}

TEST_P(ZStoreFilePowerCut, LeavesWhatAnotherProgramHasNotSyncedOnceTheJournalIsThere)
{
    Generation const edited = generation('b', 'b', 2000, "");
    notes.watched = true;
    store(generation('a', 'a', 2000, ""));
    edit(edited, false);
    size_t const before = notes.steps.size();
    store(generation('b', 'c', 2000, ""));
    // The journal's own sync takes the edit along.
    size_t synced = before;
    while (notes.steps[synced].kind != Step::sync ||
           notes.steps[synced].file == notes.steps[before - 1].file)
        ++synced;
    acknowledged_ = {synced + 1, acknowledged_.back()};
    generations_ = {edited, generations_.back()};
    cutPowerEverywhere(5);
}

TEST_P(ZStoreFilePowerCut, LeavesTheOldPairOrTheNextWhereAStoreFails)
{
    Generation const first = generation('a', 'a', 1000, "1");
    Generation const others[] = {generation('b', 'a', 1300, "2"), generation('a', 'b', 1000, "")};
    for (Generation const& other : others)
        for (bool dies : {false, true})
            for (int n = 1; !HasFailure(); ++n) {
                SCOPED_TRACE(n);
                put({});
                notes = Notes();
                notes.logsNames = GetParam();
                acknowledged_.clear();
                generations_.clear();
                attempt_ = Attempt();
                notes.watched = true;
                store(first);
                if (!storeFailing(other, n, dies))
                    break;
                store(generation('c', 'a', 1200, "3"));
                cutPowerEverywhere(10, 1 + kCuts / 20);
            }
}
