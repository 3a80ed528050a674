// Power cuts during stores, on a model of a disk that gives the weakest permitted guarantees.
//
// The calls of some stores are recorded. Then the power is cut after each call, many times. Of the
// changes that are not synced by then, the disk has any sectors, any sizes and any names. A sector
// of a new file that the disk lacks shows the bytes of a removed file.
//
// Names are not random: after each call every possible state of the directory is tried. A file
// system with a log has any subset of the renames, exchanges and removals since the last sync, each
// complete. A file system without a log writes each entry of the directory on its own: every name
// has any of its values since the last sync, independent of the other names. So half of a rename or
// an exchange may be done.
#include <Z/store/journaled_file.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Sanitizers.h"
#include "SystemCalls.h"
#include "TestDirectory.h"

// ---- Recording ---------------------------------------------------------------------------------

namespace {

constexpr int kDirectory = -1;  // instead of the number of a file

struct Step {
    // `reach`: the written bytes are on the disk, but may still be in its cache.
    enum Kind { write, cut, make, rename, exchange, remove, reach, sync } kind;
    int file = 0;
    size_t offset = 0;  // of a write; the length of a cut
    std::string bytes;
    std::string name;  // created, removed or renamed
    std::string newName;
    int other = 0;  // the file that an exchange or a rename finds at the new name; 0: none
};

std::ostream& operator<<(std::ostream& out, Step const& step)
{
    constexpr char const* kNames[] = {"write",    "cut",    "make",  "rename",
                                      "exchange", "remove", "reach", "sync"};
    out << kNames[step.kind] << " " << step.file;
    for (std::string const& path : {step.name, step.newName})
        if (!path.empty())
            out << " " << path.substr(path.rfind('/') + 1);
    return out;
}

// The effects of the calls while they were watched.
struct Recording {
    std::vector<Step> steps;
    std::map<std::string, int> files;  // by path
    std::map<int, int> open;           // file by descriptor
    std::map<int, size_t> position;    // by descriptor
    int count = 0;                     // of files
};
Recording recording;

void recordOpen(SystemCall const& call, int fd)
{
    bool const isDirectory = (call.flags & O_DIRECTORY) != 0;
    if (!isDirectory && recording.files.count(call.path) == 0) {
        recording.files[call.path] = ++recording.count;
        recording.steps.push_back({Step::make, recording.count, 0, "", call.path, ""});
    }
    recording.open[fd] = isDirectory ? kDirectory : recording.files[call.path];
    recording.position[fd] = 0;
}

void recordWrite(SystemCall const& call, size_t offset, size_t length)
{
    auto const file = recording.open.find(call.fd);
    if (length > 0 && file != recording.open.end())
        recording.steps.push_back({Step::write,
                                   file->second,
                                   offset,
                                   {static_cast<char const*>(call.from), length},
                                   "",
                                   ""});
}

void recordSync(Step::Kind kind, int fd)
{
    auto const file = recording.open.find(fd);
    if (file != recording.open.end())
        recording.steps.push_back({kind, file->second, 0, "", "", ""});
}

void recordRename(SystemCall const& call)
{
    bool const exchanges = (static_cast<unsigned>(call.flags) & RENAME_EXCHANGE) != 0;
    int const file = recording.files.at(call.path);
    int& there = recording.files[call.newPath];
    recording.steps.push_back(
        {exchanges ? Step::exchange : Step::rename, file, 0, "", call.path, call.newPath, there});
    if (exchanges)
        recording.files[call.path] = there;
    else
        recording.files.erase(call.path);
    recording.files[call.newPath] = file;
}

// Records a successful call.
void record(SystemCall const& call, ssize_t result)
{
    constexpr int kAll =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    auto const length = static_cast<size_t>(result);
    if (call.name == "open") {
        recordOpen(call, static_cast<int>(result));
    } else if (call.name == "close") {
        recording.open.erase(call.fd);
    } else if (call.name == "write") {
        recordWrite(call, recording.position[call.fd], length);
        recording.position[call.fd] += length;
    } else if (call.name == "pwrite") {
        recordWrite(call, static_cast<size_t>(call.offset), length);
    } else if (call.name == "fsync" || call.name == "fdatasync") {
        recordSync(Step::sync, call.fd);
    } else if (call.name == "syncfs") {
        for (auto const& [path, file] : recording.files)
            recording.steps.push_back({Step::sync, file, 0, "", "", ""});
        recording.steps.push_back({Step::sync, kDirectory, 0, "", "", ""});
    } else if (call.name == "sync_file_range") {
        if (call.offset == 0 && call.length == 0 && call.flags == kAll)
            recordSync(Step::reach, call.fd);
    } else if (call.name == "ftruncate") {
        recording.steps.push_back({Step::cut, recording.open.at(call.fd), call.length, "", "", ""});
    } else if (call.name == "rename") {
        recordRename(call);
    } else if (call.name == "unlink") {
        recording.steps.push_back(
            {Step::remove, recording.files.at(call.path), 0, "", call.path, ""});
        recording.files.erase(call.path);
    }
}

// A file system, and how stores write there.
struct Kind {
    char const* name;
    bool logsNames;  // a sync of a file covers its name
    bool exchanges;  // two names can be exchanged
    bool replaces;   // a store gives the name to a new file
};
Kind const kKinds[] = {
    {"Unlogged", false, true, false},
    {"Logged", true, true, false},
    {"UnloggedWithoutExchange", false, false, false},
    {"LoggedWithoutExchange", true, false, false},
    {"UnloggedReplacing", false, true, true},
    {"LoggedReplacing", true, true, true},
    {"UnloggedWithoutExchangeReplacing", false, false, true},
    {"LoggedWithoutExchangeReplacing", true, false, true},
};

// Returns a plan that records the calls, on a file system of this kind.
CallPlan recordingPlan(Kind const& kind)
{
    CallPlan plan;
    plan.before = [exchanges = kind.exchanges](SystemCall const& call) {
        bool const isExchange =
            call.name == "rename" && (static_cast<unsigned>(call.flags) & RENAME_EXCHANGE) != 0;
        return isExchange && !exchanges ? EINVAL : 0;
    };
    plan.after = [logsNames = kind.logsNames](SystemCall const& call, ssize_t& result) {
        if (call.name == "fstatfs")
            static_cast<struct statfs*>(call.to)->f_type =
                logsNames ? XFS_SUPER_MAGIC : EXT2_SUPER_MAGIC;
        else if (call.name == "ioctl")
            result = -1;  // flags are not supported
        else if (result >= 0)
            record(call, result);
    };
    return plan;
}

// ---- The disk ----------------------------------------------------------------------------------

// How often the power is cut after each step. The environment variable Z_POWER_CUTS sets another
// number.
unsigned cutsFromEnvironment()
{
    constexpr unsigned kDefault = kHasSanitizer ? 4 : 15;
    char const* const wanted = getenv("Z_POWER_CUTS");
    return wanted != nullptr ? static_cast<unsigned>(strtoul(wanted, nullptr, 10)) : kDefault;
}
unsigned const kCuts = cutsFromEnvironment();
constexpr unsigned kStoresAfterCut = 11;  // a store follows every 11th cut
constexpr size_t kSector = 512;

using Files = std::map<std::string, std::string>;  // contents by path
using Names = std::map<std::string, int>;          // files by path

// Changes of one directory entry: the file that the name means, 0: none.
using Change = std::pair<std::string, int>;

class Disk {
public:
    explicit Disk(bool logsNames) : logsNames_(logsNames) {}

    // Starts another sequence of random contents.
    void seed(unsigned number) { random_.seed(number); }

    void run(Step const& step)
    {
        switch (step.kind) {
            case Step::write:
            case Step::cut:
                pending_[step.file].push_back(&step);
                break;
            case Step::make:
            case Step::rename:
            case Step::exchange:
            case Step::remove:
                pendingNames_.push_back(&step);
                if (step.kind == Step::remove)
                    removed_.push_back(step.file);
                if (step.kind == Step::rename && step.other != 0)
                    removed_.push_back(step.other);
                break;
            case Step::reach:
                reached_[step.file] = pending_[step.file].size();
                break;
            case Step::sync:
                emptyCache();
                if (step.file == kDirectory) {
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

    // Returns every possible state of the directory after the power cut.
    std::vector<Names> cutNames() const
    {
        std::set<Names> all;
        if (logsNames_) {
            for (size_t subset = 0; subset < size_t{1} << pendingNames_.size(); ++subset) {
                Names names = names_;
                for (size_t i = 0; i < pendingNames_.size(); ++i)
                    if ((subset >> i & 1) != 0)
                        apply(*pendingNames_[i], names);
                all.insert(names);
            }
        } else {
            std::map<std::string, std::set<int>> values;  // of each name
            for (Step const* step : pendingNames_)
                for (auto const& [name, file] : changesOf(*step))
                    values[name].insert(file);
            all.insert(names_);
            for (auto const& [name, files] : values) {
                std::set<Names> const before = all;
                for (Names names : before)
                    for (int const file : files) {
                        set(names, {name, file});
                        all.insert(names);
                    }
            }
        }
        return {all.begin(), all.end()};
    }

    // Returns contents that the files may have after the power cut.
    Files cutPower(Names const& names)
    {
        Files files;
        std::map<int, std::string> contents;
        for (auto const& [name, file] : names) {
            if (contents.count(file) == 0)
                contents[file] = survivor(file);
            files[name] = contents[file];
        }
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

    // Syncs the last entry of each name of a file: later values replace earlier ones.
    void syncNamesOf(int file)
    {
        std::set<std::string> entries;
        for (Step const* one : pendingNames_)
            if (one->file == file || one->other == file)
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

    static std::vector<Change> changesOf(Step const& step)
    {
        switch (step.kind) {
            case Step::make:
                return {{step.name, step.file}};
            case Step::rename:
                return {{step.name, 0}, {step.newName, step.file}};
            case Step::exchange:
                return {{step.name, step.other}, {step.newName, step.file}};
            default:
                return {{step.name, 0}};
        }
    }

    static void set(Names& names, Change const& change)
    {
        if (change.second == 0)
            names.erase(change.first);
        else
            names[change.first] = change.second;
    }

    // A name that another file has by now, as an earlier step is missing, is not removed.
    static void apply(Step const& step, Names& names)
    {
        auto const name = names.find(step.name);
        bool const isFile = name != names.end() && name->second == step.file;
        for (Change const& change : changesOf(step))
            if (change.second != 0 || isFile)
                set(names, change);
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
        // A file that was never synced may use the blocks of a removed file.
        bool const haunted = synced.empty() && !removed_.empty() && random_() % 2 == 0;
        std::string const there = haunted ? ghost(removed_[random_() % removed_.size()]) : synced;
        unsigned const chance = random_() % 5;  // in four, that the disk has a sector

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

    // Applies the first `count` pending steps to the sector at `at`.
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

    std::minstd_rand random_{1};
    bool const logsNames_;
    std::map<int, std::string> contents_;  // synced
    std::map<int, std::vector<Step const*>> pending_;
    std::map<int, size_t> reached_;  // how many of them are in the disk's cache
    Names names_;
    std::vector<Step const*> pendingNames_;
    std::vector<int> removed_;
};

// ---- The stores --------------------------------------------------------------------------------

// A generation. Its text has two halves, so that a generation can be a mix of two others.
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
    // All texts start alike, so that different journals can have the same first sector.
    return {std::string(kSector, '-') + std::string(half, first) + std::string(half, second) + "\n",
            companion.empty() ? "" : "\x78\x9C" + companion};
}

class PowerCutTest : public testing::TestWithParam<Kind> {
public:
    ~PowerCutTest() noexcept override {}

protected:
    void watch()
    {
        recording = Recording();
        watched_.emplace(recordingPlan(GetParam()));
    }

    void storeAs(Generation const& next, bool replaces) const
    {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        zstore::JournaledFile::Companion companion;
        companion.path = companion_;
        companion.contents = next.companion;
        if (!next.companion.empty())
            companion.change = zstore::JournaledFile::Companion::written;
        else if (std::filesystem::exists(companion_))
            companion.change = zstore::JournaledFile::Companion::removed;
        if (replaces)
            file.replace(next.text, companion);
        else
            file.commit(next.text, companion);
    }

    // Stores a generation, and records that it is acknowledged.
    void store(Generation const& next)
    {
        storeAs(next, GetParam().replaces);
        acknowledge(next);
    }

    // Stores while the n-th call fails, or the n-th and all later calls. Until the failure is
    // acknowledged, or until the next store, a cut may leave this generation. Returns whether the
    // store made n calls.
    bool storeFailing(Generation const& next, int n, bool dies)
    {
        size_t const before = recording.steps.size();
        callPlan.calls = 0;
        (dies ? callPlan.failFrom : callPlan.failAt) = n;
        try {
            store(next);
        } catch (zstore::JournaledFile::IoError const&) {
            attempt_ = {before, dies ? ~size_t{0} : recording.steps.size(), next};
        }
        callPlan.failAt = callPlan.failFrom = 0;
        return callPlan.calls >= n;
    }

    // Edits the file as another program, which knows no journal.
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
        acknowledged_.push_back(recording.steps.size());
        generations_.push_back(next);
    }

    // Cuts the power after every step, many times.
    void cutPowerEverywhere(size_t atLeast = 70, unsigned cuts = kCuts)
    {
        watched_.reset();
        size_t states = 0;
        for (size_t end = acknowledged_.front(); end <= recording.steps.size(); ++end) {
            auto const behind = std::upper_bound(acknowledged_.begin(), acknowledged_.end(), end);
            auto const last = static_cast<size_t>(behind - acknowledged_.begin()) - 1;
            size_t const next = std::min(last + 1, generations_.size() - 1);
            Disk disk(GetParam().logsNames);
            for (size_t i = 0; i < end; ++i)
                disk.run(recording.steps[i]);
            std::vector<Names> const outcomes = disk.cutNames();
            size_t const tries = std::clamp<size_t>(outcomes.size(), cuts, size_t{4} * cuts);
            for (unsigned seed = 1; seed <= tries; ++seed, ++states) {
                disk.seed(seed * 7919 + static_cast<unsigned>(end));
                put(disk.cutPower(outcomes[(seed + end) % outcomes.size()]));
                Generation const found = load();
                bool const attempted = attempt_.begin <= end && end < attempt_.end && last == 0 &&
                                       found == attempt_.generation;
                if (!(attempted || found == generations_[last] || found == generations_[next])) {
                    ADD_FAILURE() << "after step " << end << ", seed " << seed << ": "
                                  << found.text.size() << " bytes, " << found.text[0]
                                  << found.text[found.text.size() / 2] << ", with "
                                  << found.companion.substr(
                                         std::min<size_t>(2, found.companion.size()))
                                  << " after generation " << last << "; the files are "
                                  << directory_.names() << "\nafter the steps\n"
                                  << stepsUpTo(end);
                    return;
                }
                if (seed % kStoresAfterCut == 0 && !canStore()) {
                    ADD_FAILURE() << "after step " << end << ", seed " << seed
                                  << ": the next store fails; the files are " << directory_.names()
                                  << "\nafter the steps\n"
                                  << stepsUpTo(end);
                    return;
                }
            }
        }
        EXPECT_LT(atLeast * cuts, states);
    }

    // Stores once more, in both ways, and returns whether that leaves the pair and nothing else.
    bool canStore() const
    {
        Generation const last = generation('d', 'e', 600, "last");
        for (bool const replaces : {!GetParam().replaces, GetParam().replaces}) {
            Generation const next = replaces ? last : generation('d', 'd', 900, "last but one");
            storeAs(next, replaces);
            if (!(load() == next))
                return false;
        }
        storeAs(generation('e', 'e', 600, "the end"), true);
        return directory_.names() == "conf conf.obf";
    }

    std::string stepsUpTo(size_t end) const
    {
        std::ostringstream all;
        for (size_t i = acknowledged_.front(); i < end; ++i)
            all << i << ": " << recording.steps[i] << "\n";
        return all.str();
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
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::load);
        Generation found;
        found.text.assign(file.text().data(), file.text().size());
        try {
            zstore::JournaledFile::Bytes const bytes = file.readCompanion(companion_.c_str());
            found.companion.assign(bytes.data(), bytes.length());
        } catch (zstore::JournaledFile::IoError const&) {
        }
        return found;
    }

    TestDirectory const directory_{TestDirectory::Place::memory};
    std::string const path_ = directory_.at("conf");
    std::string const companion_ = directory_.at("conf.obf");
    std::optional<WatchedCalls> watched_;  // until the power is cut
    std::vector<size_t> acknowledged_;     // number of the steps before, for each generation
    std::vector<Generation> generations_;

    // A failed store after the first generation: a cut may leave its generation within a range of
    // steps.
    struct Attempt {
        size_t begin = 0;
        size_t end = 0;
        Generation generation;
    };
    Attempt attempt_;
};

}  // namespace

using ZJournaledFilePowerCut = PowerCutTest;
INSTANTIATE_TEST_SUITE_P(On, ZJournaledFilePowerCut, testing::ValuesIn(kKinds),
                         [](auto const& kind) { return std::string(kind.param.name); });

TEST_P(ZJournaledFilePowerCut, LeavesTheAcknowledgedPairOrTheNext)
{
    watch();
    store(generation('a', 'a', 1000, "1"));
    store(generation('b', 'b', 1000, "2"));
    store(generation('b', 'a', 1000, "3"));
    store(generation('c', 'c', 2000, "four"));
    store(generation('a', 'c', 300, "5"));
    store(generation('a', 'a', 300, ""));
    store(generation('b', 'b', 300, "7"));
    store(generation('c', 'a', 300, "7"));
    store(generation('c', 'a', 300, "8"));
    cutPowerEverywhere();
}

TEST_P(ZJournaledFilePowerCut, LeavesTheAcknowledgedTextOrTheNext)
{
    // Of one length, so that a journal fits exactly where an earlier one was.
    watch();
    store(generation('a', 'a', 1000, ""));
    for (char const* halves : {"bb", "ba", "ab", "cc", "ca", "aa", "bb", "ba"})
        store(generation(halves[0], halves[1], 1000, ""));
    cutPowerEverywhere();
}

TEST_P(ZJournaledFilePowerCut, LeavesACompleteTextIfTheSuffixMoves)
{
    auto const text = [](char middle, size_t length) {
        return Generation{
            std::string(700, '-') + std::string(length, middle) + std::string(1500, '+') + "\n",
            ""};
    };
    watch();
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

TEST_P(ZJournaledFilePowerCut, LeavesTheEditOfAnotherProgram)
{
    watch();
    store(generation('a', 'a', 200, ""));
    for (int i = 0; i < 4; ++i) {
        store(generation('b', 'b', 200, ""));
        edit(generation('b', 'a', 200, ""));
        store(generation('a', 'a', 200, ""));
    }
    cutPowerEverywhere();
}

TEST_P(ZJournaledFilePowerCut, LeavesAnUnsyncedEditOnceTheNextJournalIsSynced)
{
    Generation const edited = generation('b', 'b', 2000, "");
    watch();
    store(generation('a', 'a', 2000, ""));
    edit(edited, false);
    size_t const before = recording.steps.size();
    store(generation('b', 'c', 2000, ""));
    // The journal's sync also syncs the edit.
    size_t synced = before;
    while (recording.steps[synced].kind != Step::sync ||
           recording.steps[synced].file == recording.steps[before - 1].file)
        ++synced;
    acknowledged_ = {synced + 1, acknowledged_.back()};
    generations_ = {edited, generations_.back()};
    cutPowerEverywhere(5);
}

TEST_P(ZJournaledFilePowerCut, LeavesTheOldPairOrTheNextIfAStoreFails)
{
    Generation const first = generation('a', 'a', 1000, "1");
    Generation const others[] = {generation('b', 'a', 1300, "2"), generation('a', 'b', 1000, "")};
    for (Generation const& other : others)
        for (bool dies : {false, true})
            for (int n = 1; !HasFailure(); ++n) {
                SCOPED_TRACE(n);
                put({});
                acknowledged_.clear();
                generations_.clear();
                attempt_ = Attempt();
                watch();
                store(first);
                if (!storeFailing(other, n, dies))
                    break;
                store(generation('c', 'a', 1200, "3"));
                cutPowerEverywhere(10, 1 + kCuts / 20);
            }
}
