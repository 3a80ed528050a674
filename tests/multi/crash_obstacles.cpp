// Stores with a lasting obstacle: a mount, right or attribute that prevents replacing a file, or
// another user's file with the name of a journal or a new file.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Mounts.h"
#include "StoreDirectory.h"
#include "StoreRow.h"
#include "User.h"

namespace {

namespace fs = std::filesystem;

User const kRoot = {"root", 0, 0, {}};
User const kOwner = {"the owner", 60001, 60001, {}};
User const kOther = {"another user", 60002, 60002, {}};

enum Answer { stored = 0, raised = 100 };

// ---- Obstacles ---------------------------------------------------------------------------------

struct Obstacle {
    char const* name;
    User const* storer;
    bool (*put)(std::string const& directory);  // false: impossible here
    bool (*remove)(std::string const& directory);
};

bool mountOnItself(std::string const& path)
{
    return mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

bool unmount(std::string const& path)
{
    return umount(path.c_str()) == 0;
}

bool setFlags(std::string const& path, int flags)
{
    int const fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    bool const done = fd >= 0 && ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    close(fd);
    return done;
}

bool give(std::string const& path, User const& user, mode_t mode)
{
    return chown(path.c_str(), user.id, user.group) == 0 && chmod(path.c_str(), mode) == 0;
}

// Makes a directory writable for all, in which users can remove only their own files.
bool makeSticky(std::string const& directory)
{
    return give(directory, kRoot, 01777);
}

bool plantDirectory(std::string const& directory, char const* name)
{
    std::string const path = directory + "/" + name;
    return makeSticky(directory) && mkdir(path.c_str(), 0700) == 0 && give(path, kOther, 0700);
}

bool plantFile(std::string const& directory, char const* name)
{
    std::string const path = directory + "/" + name;
    std::ofstream(path) << "no journal";
    return makeSticky(directory) && give(path, kOther, 0600);
}

// Removes planted files, even if a store has renamed them to orphans.
bool removePlants(std::string const& directory)
{
    for (auto const& entry : fs::directory_iterator(directory))
        if (entry.path().filename().string()[0] == '.')
            fs::remove_all(entry.path());
    return true;
}

constexpr Obstacle kObstacles[] = {
    {"companion that is a mount", &kRoot,
     [](std::string const& directory) { return mountOnItself(directory + "/conf.obf"); },
     [](std::string const& directory) { return unmount(directory + "/conf.obf"); }},
    {"file that is a mount", &kRoot,
     [](std::string const& directory) { return mountOnItself(directory + "/conf"); },
     [](std::string const& directory) { return unmount(directory + "/conf"); }},
    {"read-only mount", &kRoot,
     [](std::string const& directory) {
         return mountOnItself(directory) && mount(nullptr, directory.c_str(), nullptr,
                                                  MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0;
     },
     [](std::string const& directory) { return unmount(directory); }},
    {"directory that is not readable", &kOwner,
     [](std::string const& directory) { return chmod(directory.c_str(), 0300) == 0; },
     [](std::string const& directory) { return chmod(directory.c_str(), 0755) == 0; }},
    {"directory that is not writable", &kOwner,
     [](std::string const& directory) { return chmod(directory.c_str(), 0555) == 0; },
     [](std::string const& directory) { return chmod(directory.c_str(), 0755) == 0; }},
    {"other's companion in a sticky directory", &kOwner,
     [](std::string const& directory) {
         return makeSticky(directory) && give(directory + "/conf.obf", kOther, 0666);
     },
     [](std::string const& directory) {
         return give(directory, kOwner, 0755) &&
                (access((directory + "/conf.obf").c_str(), F_OK) != 0 ||
                 give(directory + "/conf.obf", kOwner, 0640));
     }},
    {"immutable companion", &kRoot,
     [](std::string const& directory) {
         return setFlags(directory + "/conf.obf", FS_IMMUTABLE_FL);
     },
     [](std::string const& directory) { return setFlags(directory + "/conf.obf", 0); }},
    {"append-only companion", &kRoot,
     [](std::string const& directory) { return setFlags(directory + "/conf.obf", FS_APPEND_FL); },
     [](std::string const& directory) { return setFlags(directory + "/conf.obf", 0); }},
    {"immutable file", &kRoot,
     [](std::string const& directory) { return setFlags(directory + "/conf", FS_IMMUTABLE_FL); },
     [](std::string const& directory) { return setFlags(directory + "/conf", 0); }},
    {"append-only directory", &kRoot,
     [](std::string const& directory) { return setFlags(directory, FS_APPEND_FL); },
     [](std::string const& directory) {
         return setFlags(directory, 0) && removePlants(directory);
     }},
    {"other's directory as journal", &kOwner,
     [](std::string const& directory) { return plantDirectory(directory, ".conf.zjn"); },
     removePlants},
    {"other's directory as new journal", &kOwner,
     [](std::string const& directory) { return plantDirectory(directory, ".conf.zjn.new"); },
     removePlants},
    {"other's directory as new companion", &kOwner,
     [](std::string const& directory) { return plantDirectory(directory, ".conf.obf.new"); },
     removePlants},
    {"other's file as journal", &kOwner,
     [](std::string const& directory) { return plantFile(directory, ".conf.zjn"); }, removePlants},
    {"other's file as new journal", &kOwner,
     [](std::string const& directory) { return plantFile(directory, ".conf.zjn.new"); },
     removePlants},
};

// ---- Stores ------------------------------------------------------------------------------------

StoreShape const kShapes[] = {
    {"with companion",
     {{1, 3000, true},
      {2, 9000, true},
      {3, 5000, true},
      {4, 9000, true},
      {5, 900, true},
      {6, 900, true}}},
    {"companion removed",
     {{1, 3000, true},
      {2, 9000, false},
      {3, 5000, true},
      {4, 9000, false},
      {5, 900, false},
      {6, 900, true}}},
};

int storeAs(User const& user, std::string const& path, Generation const& what)
{
    return ended(inChild([&] {
        if (user.id != 0)
            ScopedUser::becomePermanently(user);
        try {
            what.store(path);
            return static_cast<int>(stored);
        } catch (ZException_6_0&) {
            return static_cast<int>(raised);
        }
    }));
}

// Returns the names of a directory's files, without the new files that a store could not remove
// from an append-only directory.
std::string namesThatCount(StoreDirectory const& target)
{
    std::string names = target.names();
    for (char const* name : {".conf.obf.new ", ".conf.zjn.new "})
        if (size_t const at = names.find(name); at != std::string::npos)
            names.erase(at, std::strlen(name));
    return names;
}

// Returns how many stores succeeded despite the obstacle; -1 if the obstacle is impossible here.
int storeAgainst(Counts& counts, std::string const& directory, StoreShape const& shape,
                 Obstacle const& obstacle)
{
    fs::create_directory(directory);
    StoreDirectory const target(directory);
    // Root would not trust a companion that is neither its own nor the file owner's.
    StoreRow row(counts, target, shape, obstacle.name, obstacle.storer);
    for (std::string const& path : {target.path(), target.path() + ".obf"})
        give(path, *obstacle.storer, 0640);
    give(directory, *obstacle.storer, 0755);
    if (!obstacle.put(directory)) {
        obstacle.remove(directory);
        fs::remove_all(directory);
        return -1;
    }
    int successes = 0;
    for (int i = 0; i < kStores; ++i) {
        std::string const event = row.event();
        std::string const namesBefore = namesThatCount(target);
        int const answer = storeAs(*obstacle.storer, target.path(), row.next());
        row.judge(answer == stored);
        if (answer != stored && answer != raised)
            complain(counts, event + ": ended with " + std::to_string(answer));
        if (answer == raised && namesThatCount(target) != namesBefore)
            complain(counts, event + ": there were " + namesBefore + ", are " + target.names());
        successes += answer == stored;
    }
    if (!obstacle.remove(directory))
        complain(counts, row.event() + ": the obstacle cannot be removed");
    row.judgeWithoutCause();
    fs::remove_all(directory);
    return successes;
}

}  // namespace

void storeWithObstacles(Counts& counts, Extent)
{
    if (std::string const why = obstacleToOtherUsers(); !why.empty())
        return skip(counts, why);
    if (std::string const why = Mounts::separate(); !why.empty())
        return skip(counts, why);
    umask(022);
    TestDirectory const place(TestDirectory::Place::memory);
    chmod(place.path().c_str(), 0755);
    counts.planned = static_cast<long>(std::size(kShapes) * std::size(kObstacles)) * (kStores + 1);
    int successes = 0;
    std::string missing;
    for (StoreShape const& shape : kShapes)
        for (Obstacle const& obstacle : kObstacles) {
            int const done = storeAgainst(counts, place.at("home"), shape, obstacle);
            successes += done > 0 ? done : 0;
            if (done < 0)
                missing += std::string(missing.empty() ? "; skipped: " : ", ") + obstacle.name;
        }
    remark(counts, std::to_string(successes) + " stores succeeded despite an obstacle" + missing);
}
