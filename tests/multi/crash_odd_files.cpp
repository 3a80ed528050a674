// Stores with an unexpected file at each name that a store uses, with every mask, and with standard
// descriptors closed: no foreign file may change.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Campaign.h"
#include "Generation.h"
#include "StoreDirectory.h"
#include "TreeState.h"

namespace {

namespace fs = std::filesystem;

constexpr mode_t kMasks[] = {0000, 0022, 0077};
constexpr int kClosings = 8;  // of descriptors 0 to 2
constexpr unsigned kPatience = 20;

enum Answer { stored = 0, raised = 100, leaking = 101 };

// The directory with the file, and a directory with files of another user.
class Scene {
public:
    explicit Scene(std::string const& root) : root_(root)
    {
        fs::create_directory(root_ + "/ours");
        fs::create_directory(root_ + "/elsewhere");
        fs::create_directories(root_ + "/foreign/directory");
        put("/foreign/open", "another user's text\n", 0644);
        put("/foreign/secret", "another user's secret\n", 0600);
        put("/foreign/shared", "shared text\n", 0666);
        put("/foreign/directory/deep", "deep\n", 0640);
        // The companion of another file: a zlib stream.
        Generation(1, 100, true).store(root_ + "/foreign/other");
    }

    std::string ours(std::string const& name) const { return root_ + "/ours/" + name; }
    std::string elsewhere() const { return root_ + "/elsewhere/conf"; }
    std::string foreign(std::string const& name) const { return root_ + "/foreign/" + name; }

    void clear() const
    {
        for (char const* directory : {"/ours", "/elsewhere"})
            for (auto const& entry : fs::directory_iterator(root_ + directory))
                fs::remove_all(entry.path());
    }

    std::string foreignState() const { return treeState(root_ + "/foreign"); }

    void put(std::string const& name, std::string const& text, mode_t mode) const
    {
        std::ofstream(root_ + name) << text;
        chmod((root_ + name).c_str(), mode);
    }

private:
    std::string const root_;
};

// ---- Kinds of files ----------------------------------------------------------------------------

struct Kind {
    char const* name;
    bool (*plant)(Scene const& scene, std::string const& path);
};
constexpr Kind kKinds[] = {
    {"link",
     [](Scene const& scene, std::string const& path) {
         return symlink(scene.foreign("secret").c_str(), path.c_str()) == 0;
     }},
    {"link to a directory",
     [](Scene const& scene, std::string const& path) {
         return symlink(scene.foreign("directory").c_str(), path.c_str()) == 0;
     }},
    {"dangling link",
     [](Scene const& scene, std::string const& path) {
         return symlink(scene.ours("nowhere/file").c_str(), path.c_str()) == 0;
     }},
    {"hard link",
     [](Scene const& scene, std::string const& path) {
         return link(scene.foreign("shared").c_str(), path.c_str()) == 0;
     }},
    {"FIFO", [](Scene const&, std::string const& path) { return mkfifo(path.c_str(), 0600) == 0; }},
    {"directory",
     [](Scene const&, std::string const& path) { return mkdir(path.c_str(), 0700) == 0; }},
    {"device",
     [](Scene const&, std::string const& path) {
         return mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0 ||
                symlink("/dev/null", path.c_str()) == 0;
     }},
};
constexpr char const* kRoles[] = {"conf.obf", ".conf.zjn", ".conf.zjn.new", ".conf.obf.new",
                                  ".conf.zjn.orphan"};

// ---- One store ---------------------------------------------------------------------------------

struct Circumstances {
    mode_t mask;
    int closed;  // bits: descriptors
};

int storeUnder(Circumstances const& circumstances, Generation const& what, std::string const& path)
{
    return ended(inChild([&] {
        alarm(kPatience);
        umask(circumstances.mask);
        for (int fd = 0; fd < 3; ++fd)
            if ((circumstances.closed & 1 << fd) != 0)
                close(fd);
        long const before = openDescriptors();
        int answer = stored;
        try {
            what.store(path);
        } catch (ZException_6_0&) {
            answer = raised;
        }
        return openDescriptors() == before ? answer : leaking;
    }));
}

// Every value of the masks and of the closed descriptors.
template <class Body>
void underAll(Body body)
{
    for (mode_t mask : kMasks)
        for (int closed = 0; closed < kClosings; ++closed)
            body(Circumstances{mask, closed},
                 ", mask " + std::to_string(mask) + ", closed " + std::to_string(closed));
}

mode_t modeOf(std::string const& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

Generation const kFirst(1, 3000, false);
Generation const kSecond(2, 9000, true);

// Checks a store of kSecond over kFirst, or over a file that cannot be loaded.
void judge(Counts& counts, Scene const& scene, int answer, bool loadable, std::string const& event)
{
    std::string const path = scene.ours("conf");
    StoreDirectory const target(scene.ours(""));
    if (answer == stored) {
        target.judge(counts, kSecond, kSecond, event);
        if (modeOf(path + ".obf") != modeOf(path))
            complain(counts, event + ": mode of the companion");
    } else if (answer == raised && loadable) {
        target.judge(counts, kFirst, kFirst, event);
    } else {
        ++counts.events;
        if (answer != raised)
            complain(counts, event + ": ended with " + std::to_string(answer));
    }
}

// ---- The combinations --------------------------------------------------------------------------

// The companion, the journal or a temporary file is an unexpected file.
void besideTheFile(Counts& counts, Scene const& scene)
{
    for (char const* role : kRoles)
        for (Kind const& kind : kKinds)
            underAll([&](Circumstances const& circumstances, std::string const& how) {
                std::string const event = std::string(kind.name) + " as " + role + how;
                scene.clear();
                kFirst.store(scene.ours("conf"));
                if (!kind.plant(scene, scene.ours(role)))
                    return complain(counts, event + ": cannot be created");
                std::string const before = scene.foreignState();
                int const answer = storeUnder(circumstances, kSecond, scene.ours("conf"));
                judge(counts, scene, answer, true, event);
                if (scene.foreignState() != before)
                    complain(counts, event + ": a foreign file has changed");
                // A stored companion has replaced the file at its name.
                if (answer != stored || std::string(role) != kRoles[0])
                    fs::remove_all(scene.ours(role));
                // The file may have been renamed to an orphan.
                for (char const* aside :
                     {".conf.zjn.orphan", ".conf.zjn.new.orphan", ".conf.obf.new.orphan"})
                    fs::remove_all(scene.ours(aside));
                StoreDirectory(scene.ours("")).tidy(counts, {3, 100, false}, event);
            });
}

// The file itself is an unexpected file: links are followed, other kinds are refused.
void inTheFilesPlace(Counts& counts, Scene const& scene)
{
    std::string const path = scene.ours("conf");
    for (Kind const& kind : kKinds)
        underAll([&](Circumstances const& circumstances, std::string const& how) {
            std::string const event = std::string(kind.name) + " as file" + how;
            scene.clear();
            std::string const name = kind.name;
            bool const isFile = name == "link" || name == "hard link";
            if (isFile) {
                kFirst.store(scene.elsewhere());
                name == "link" ? fs::create_symlink(scene.elsewhere(), path)
                               : fs::create_hard_link(scene.elsewhere(), path);
            } else if (!kind.plant(scene, path)) {
                return complain(counts, event + ": cannot be created");
            }
            std::string const before = scene.foreignState();
            int const answer = storeUnder(circumstances, kSecond, path);
            judge(counts, scene, answer, isFile, event);
            if ((answer == stored) != isFile)
                complain(counts, event + ": exit code " + std::to_string(answer));
            if (scene.foreignState() != before)
                complain(counts, event + ": a foreign file has changed");
        });
    // The file is missing: the mask decides.
    underAll([&](Circumstances const& circumstances, std::string const& how) {
        std::string const event = "new file" + how;
        scene.clear();
        int const answer = storeUnder(circumstances, kSecond, path);
        judge(counts, scene, answer, false, event);
        if (answer != stored || modeOf(path) != (0666 & ~circumstances.mask))
            complain(counts, event + ": exit code " + std::to_string(answer) + ", mode " +
                                 std::to_string(modeOf(path)));
    });
}

struct Case {
    char const* named;  // in the foreign directory, or an absolute path
    mode_t mode;        // of the file
    bool secret;        // whether the store has a value for a companion
};
constexpr Case kCases[] = {
    {"open", 0600, true},       {"secret", 0600, true},    {"directory", 0600, true},
    {"missing", 0600, false},   {"/dev/null", 0600, true}, {"/dev/zero", 0600, true},
    {"other.obf", 0600, false}, {"other.obf", 0666, true}, {"other.obf", 0666, false},
    {"open", 0666, true},       {"secret", 0666, false},
};

// The file names a foreign companion.
void withAForeignCompanion(Counts& counts, Scene const& scene)
{
    std::string const path = scene.ours("conf");
    for (Case const& c : kCases)
        underAll([&](Circumstances const& circumstances, std::string const& how) {
            std::string const event = std::string("companion ") + c.named + how;
            scene.clear();
            std::string const named = c.named[0] == '/' ? c.named : scene.foreign(c.named);
            scene.put("/ours/conf",
                      kFirst.text() + "\n[configuration-database]\nfile = " + named + "\n", c.mode);
            std::string const before = scene.foreignState();
            Generation const next(2, 9000, c.secret);
            int const answer = storeUnder(circumstances, next, path);
            ++counts.events;
            if (answer != raised && answer != stored)
                complain(counts, event + ": ended with " + std::to_string(answer));
            if (answer == stored && Generation::load(path).number() != 2)
                complain(counts, event + ": is not stored");
            if (scene.foreignState() != before)
                complain(counts, event + ": a foreign file has changed");
            // A program that writes a new file without loading the old one.
            int const anew = ended(inChild([&] {
                ZStanzaFileProperties_6_0 store(1);
                Generation::prepare(store);
                next.change(store);
                store.store(path.c_str());
                return Generation::load(path).number() == 2 ? 0 : 1;
            }));
            if (anew != 0)
                complain(counts, event + ": a store without a load fails");
            if (scene.foreignState() != before)
                complain(counts, event + ": a foreign file has changed in that store");
        });
}

}  // namespace

void storeAmongOddFiles(Counts& counts, Extent)
{
    TestDirectory const place(TestDirectory::Place::memory);
    Scene const scene(place.path());
    size_t const places = std::size(kRoles) * std::size(kKinds) + std::size(kKinds) + 1;
    counts.planned =
        static_cast<long>((places + std::size(kCases)) * std::size(kMasks)) * kClosings;
    besideTheFile(counts, scene);
    inTheFilesPlace(counts, scene);
    withAForeignCompanion(counts, scene);
}
