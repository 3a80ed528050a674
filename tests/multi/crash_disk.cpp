// Stores on full disks, and on disks that lose power.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Mounts.h"
#include "StoreDirectory.h"
#include "Writer.h"

namespace {

constexpr long kPage = 4096;

// Counts the store as refused, which leaves the old generation, or as accepted.
void storeAndJudge(Counts& counts, StoreDirectory const& target, Generation const& before,
                   Generation const& after, std::string const& event)
{
    bool stored = true;
    try {
        after.store(target.path());
    } catch (ZPropertiesIOException_6_0&) {
        stored = false;
    }
    long const found = target.judge(counts, before, after, event);
    if (found >= 0 && (found == after.number()) != stored)
        complain(counts, event + (stored ? ": success was reported" : ": a failure was reported"));
    if (!stored && target.names() != (before.isSecret() ? "conf conf.obf" : "conf"))
        complain(counts, event + ": left are " + target.names());
    target.checkModes(counts, event);
}

// ---- Full disks --------------------------------------------------------------------------------

struct Growth {
    Generation before;
    Generation after;
};
Growth const kShare = {{1, 12000, true}, {2, 40000, true}};
Growth const kMore[] = {
    {{1, 40000, true}, {2, 12000, true}},   {{1, 40000, true}, {2, 40000, true}},
    {{2, 40000, true}, {3, 40000, true}},   {{3, 40000, true}, {4, 40000, true}},
    {{1, 12000, false}, {2, 40000, false}}, {{1, 12000, false}, {2, 12000, true}},
    {{1, 12000, true}, {2, 12000, false}},  {{1, 200000, true}, {2, 190000, true}},
};

std::vector<Growth> growths(Extent extent)
{
    std::vector<Growth> all = {kShare};
    if (extent == Extent::full)
        all.insert(all.end(), std::begin(kMore), std::end(kMore));
    return all;
}

// Twice the size of a store: the journal with old and new text, the longer file, two companions.
long pagesFor(Growth const& growth)
{
    size_t const texts = growth.before.size() + growth.after.size();
    size_t const longer = std::max(growth.before.size(), growth.after.size());
    return static_cast<long>(2 * (texts + longer - growth.before.size() + 3 * kPage) / kPage);
}

// Runs a store for each count of free pages. `limit` sets the count; -1 removes the limit.
void sweep(Counts& counts, StoreDirectory const& target, Extent extent,
           std::function<bool(long)> const& limit)
{
    for (Growth const& growth : growths(extent)) {
        long const most = pagesFor(growth);
        long const steps = extent == Extent::full ? most : 20;
        counts.planned += steps + 1;
        for (long i = 0; i <= steps; ++i) {
            long const pages = i * most / steps;
            std::string const event = std::to_string(growth.before.size()) + " to " +
                                      std::to_string(growth.after.size()) + " with " +
                                      std::to_string(pages) + " pages free";
            target.reset(growth.before);
            if (!limit(pages)) {
                complain(counts, event + ": cannot be set up");
                return;
            }
            storeAndJudge(counts, target, growth.before, growth.after, event);
            limit(-1);
            target.tidy(counts, {3, 1000, true}, event);
        }
    }
}

long freePages(std::string const& where)
{
    struct statvfs status;
    return statvfs(where.c_str(), &status) != 0 ? -1 : static_cast<long>(status.f_bavail);
}

// Leaves `pages` free by filling the rest with the file `filler`; -1 removes the file.
bool fill(std::string const& where, std::string const& filler, long pages)
{
    if (pages < 0)
        return unlink(filler.c_str()) == 0;
    int const fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    long size = 0;
    bool done = false;
    // A large file needs pages for its own metadata, and removed pages are free only after the next
    // commit: approximate step by step.
    for (int i = 0; i < 100 && !done; ++i) {
        syncfs(fd);
        size = std::max(0L, size + freePages(where) - pages);
        posix_fallocate(fd, 0, std::max(1L, size) * kPage);
        done = ftruncate(fd, size * kPage) == 0 && syncfs(fd) == 0 && freePages(where) == pages;
    }
    close(fd);
    return done;
}

}  // namespace

void fillMemoryDisk(Counts& counts, Extent extent)
{
    constexpr long kRoom = 8 << 20;
    if (std::string const why = Mounts::separate(); !why.empty())
        return skip(counts, why);
    TestDirectory const place;
    std::string const& where = place.path();
    if (!Mounts::memory(where, kRoom))
        return skip(counts, "a tmpfs cannot be mounted here");
    {
        StoreDirectory const target(where);
        sweep(counts, target, extent, [&](long pages) {
            struct statvfs status;
            statvfs(where.c_str(), &status);
            long const used = static_cast<long>(status.f_blocks - status.f_bfree);
            return Mounts::memory(where, pages < 0 ? kRoom : (used + pages) * kPage, true);
        });
    }
    Mounts::unmount(where);
}

void fillDisk(Counts& counts, Extent extent)
{
    if (extent == Extent::share)
        return skip(counts, "in the full run");
    if (std::string const why = Mounts::separate(); !why.empty())
        return skip(counts, why);
    TestDirectory const place;
    std::string const where = place.at("mounted");
    std::filesystem::create_directory(where);
    std::string why = Mounts::makeImage(place.at("image"), 16)
                          ? Mounts::image(place.at("image"), where)
                          : "mkfs.ext4 is missing";
    if (!why.empty())
        return skip(counts, why);
    std::filesystem::create_directory(where + "/directory");
    {
        StoreDirectory const target(where + "/directory");
        sweep(counts, target, extent,
              [&](long pages) { return fill(where, where + "/filler", pages); });
    }
    Mounts::unmount(where);
}

void limitFileSize(Counts& counts, Extent extent)
{
    TestDirectory const place;
    StoreDirectory const target(place.path());
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    sweep(counts, target, extent, [&](long pages) {
        rlimit limit = before;
        if (pages >= 0)
            limit.rlim_cur = static_cast<rlim_t>(pages * kPage);
        return setrlimit(RLIMIT_FSIZE, &limit) == 0;
    });
}

// ---- Power cuts --------------------------------------------------------------------------------

namespace {

constexpr long kMegabytes = 8;

// A disk whose power can be cut: an ext4 in a file, mounted through a loop device. A power cut
// keeps the current contents of the file.
class Disk {
public:
    Disk()
    {
        std::filesystem::create_directory(mountPoint());
        obstacle_ = Mounts::separate();
        if (obstacle_.empty())
            obstacle_ = Mounts::makeImage(at("disk"), kMegabytes)
                            ? Mounts::image(at("disk"), mountPoint())
                            : "mkfs.ext4 is missing";
        running_ = obstacle_.empty();
        std::filesystem::remove(mountPoint() + "/lost+found");
    }
    Disk(Disk const&) = delete;
    Disk& operator=(Disk const&) = delete;
    ~Disk()
    {
        if (running_)
            Mounts::unmount(mountPoint());
    }

    std::string const& obstacle() const { return obstacle_; }
    std::string mountPoint() const { return at("mounted"); }

    // Copies the disk and mounts the copy instead of it, as a restart would, for a process that
    // checks the files.
    bool restart(std::function<void()> const& look) const
    {
        copy();
        return ended(inChild([&] {
                   if (!Mounts::separate().empty() ||
                       !Mounts::image(at("copy"), mountPoint()).empty())
                       return 1;
                   look();
                   Mounts::unmount(mountPoint());
                   return 0;
               })) == 0;
    }

private:
    std::string at(std::string const& name) const { return place_.at(name); }

    void copy() const
    {
        constexpr size_t kLength = static_cast<size_t>(kMegabytes) << 20;
        int const from = open(at("disk").c_str(), O_RDONLY | O_CLOEXEC);
        std::filesystem::remove(at("copy"));
        int const to = open(at("copy").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        std::vector<char> bytes(kLength);
        if (pread(from, bytes.data(), kLength, 0) != static_cast<ssize_t>(kLength) ||
            pwrite(to, bytes.data(), kLength, 0) != static_cast<ssize_t>(kLength))
            throw std::bad_alloc();
        close(from);
        close(to);
    }

    TestDirectory const place_{TestDirectory::Place::memory};
    std::string obstacle_;
    bool running_ = false;
};

}  // namespace

void cutPower(Counts& counts, Extent extent)
{
    long const cuts = extent == Extent::full ? 1000 : 10;
    constexpr size_t kLargest = 60000;
    Disk const disk;
    if (!disk.obstacle().empty())
        return skip(counts, disk.obstacle());
    counts.planned = cuts;
    StoreDirectory const target(disk.mountPoint());
    Generation const first(1, 1000, true);
    target.reset(first);
    Writer writer(target.path(), first.number(), kLargest);
    std::minstd_rand random(1);
    for (long i = 0; i < cuts; ++i) {
        usleep(300 + random() % 20000);
        writer.stop();
        std::string const event = "cut " + std::to_string(i);
        bool const restarted = disk.restart([&] {
            target.judge(counts, writer.acknowledged(), writer.inFlight(), event);
            target.checkModes(counts, event);
            target.tidy(counts, {writer.inFlight().number() + 1, 5000, true}, event);
        });
        if (!restarted || !writer.isAlive())
            return complain(counts, event + ": the disk failed or the writer ended");
        writer.go();
    }
}

namespace {

// Two switches that another program turns back one by one. Each edit has at each offset the old or
// the new byte of the store before.
constexpr char const* kSwitches[] = {"[s]\na = 0\nb = 0\n", "[s]\na = 1\nb = 1\n",
                                     "[s]\na = 1\nb = 0\n"};

void turnSwitches(std::string const& path, long number)
{
    char const* const text = kSwitches[number % 3];
    if (number % 3 != 2) {
        ZStanzaFileProperties_6_0 store(1);
        Generation::prepare(store);
        store.load(path.c_str());
        store.setValue("s", "a", std::string(1, text[8]).c_str(), 0);
        store.setValue("s", "b", std::string(1, text[14]).c_str(), 0);
        store.store(nullptr);
        return;
    }
    int const fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (pwrite(fd, text, strlen(text), 0) < 0 || fdatasync(fd) != 0)
        throw std::bad_alloc();
    close(fd);
}

}  // namespace

void cutPowerAfterAnEdit(Counts& counts, Extent extent)
{
    long const cuts = extent == Extent::full ? 200 : 4;
    Disk const disk;
    if (!disk.obstacle().empty())
        return skip(counts, disk.obstacle());
    counts.planned = cuts;
    std::string const path = disk.mountPoint() + "/conf";
    std::ofstream(path) << kSwitches[0];
    sync();
    for (long i = 0; i < cuts; ++i) {
        long const last = i % 6;
        for (long number = 0; number <= last; ++number)
            turnSwitches(path, number);
        bool const restarted = disk.restart([&] {
            ++counts.events;
            ZStanzaFileProperties_6_0 const store(path.c_str(), 1);
            std::string const expected = kSwitches[last % 3];
            if (store.getIntegerValue("s", "a", 1, 0) == static_cast<unsigned>(expected[8] - '0') &&
                store.getIntegerValue("s", "b", 1, 0) == static_cast<unsigned>(expected[14] - '0'))
                ++counts.news;
            else
                complain(counts, "cut after step " + std::to_string(last) + ": the edit is lost");
        });
        if (!restarted)
            return complain(counts, "the disk failed");
    }
}
