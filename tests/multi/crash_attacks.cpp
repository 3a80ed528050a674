// Loads and stores by root in a directory of another user, who at every call replaces a file, or
// the directory, by something else: root's files elsewhere neither change nor become readable.
#include <Z/ZProcessReadWriteFileLock.h>
#include <Z/files/lock_file.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Stepper.h"
#include "StoreDirectory.h"
#include "TreeState.h"
#include "User.h"

namespace {

namespace fs = std::filesystem;

User const kAttacker = {"the directory's owner", 60001, 60001, {}};
constexpr char kLockName[] = "lock";
std::string const kLockFile = std::string(zfiles::LockFile::kPrefix) + kLockName;
constexpr unsigned kPatience = 5;

Generation const kBefore(4, 3000, true);
Generation const kAfter(8, 9000, true);
Generation const kRoots(90, 2000, true);  // in root's own directory

constexpr char kSecret[] = "only root may know this";  // in each file of root's

constexpr char kConf[] = "conf";
constexpr char kCompanion[] = "conf.obf";
constexpr char kJournal[] = ".conf.zjn";
constexpr char kDirectory[] = "";  // the directory itself

std::vector<char const*> const kRoles = {kConf,           kCompanion,      kJournal,
                                         ".conf.zjn.new", ".conf.obf.new", kDirectory};

// Work of root in the directory.
struct Work {
    char const* name;
    bool rootsFile;  // the file is root's, and only root may read it; otherwise the attacker's
    bool torn;       // a store was killed before
    bool locks;      // locks a process lock instead of storing a file
    bool inShare;
};
constexpr Work kWorks[] = {
    {"user's file", false, false, false, true},
    {"root's file", true, false, false, false},
    {"user's file after a kill", false, true, false, false},
    {"root's file after a kill", true, true, false, true},
    {"process lock", false, false, true, true},
};

// ---- The scene ---------------------------------------------------------------------------------

void write(std::string const& file, std::string const& text, mode_t mode)
{
    std::ofstream(file, std::ios::binary) << text;
    chmod(file.c_str(), mode);
}

std::string valueIn(std::string const& path, char const* stanza, char const* key)
{
    ZStanzaFileProperties_6_0 store(path.c_str(), 1);
    ZLCString_6_0 value;
    store.getValue(stanza, key, value, 0, "");
    return value.getChars();
}

// The attacker's directory "land" with "home", which has the file, and root's "vault".
class Scene {
public:
    explicit Scene(std::string const& root) : root_(root)
    {
        chmod(root_.c_str(), 0755);
        std::string const path = root_ + "/some";
        for (Generation const& each : {kBefore, kAfter}) {
            each.store(path);
            ownSecrets_.push_back(valueIn(path, "state", "secret").substr(0, kEnough));
            ownSecrets_.push_back(valueIn(path, "data", "line0").substr(0, kEnough));
        }
        fs::remove(path);
        fs::remove(path + ".obf");
        makeVault();
    }

    std::string home() const { return land() + "/home"; }
    std::string land() const { return root_ + "/land"; }
    std::string vault() const { return root_ + "/vault"; }
    std::string in(std::string const& name) const
    {
        return name.empty() ? home() : home() + "/" + name;
    }

    /// Restores the initial state.
    void reset(Work const& work)
    {
        fs::remove_all(land());
        for (char const* name : {"", "/home", "/loot"})
            fs::create_directory(land() + name);
        if (vaultState() != vaultState_) {
            fs::remove_all(vault());
            makeVault();
        }
        if (&work != prepared_)
            prepare(work);
        for (auto const& [name, text] : files_) {
            write(in(name), text, work.rootsFile ? 0600 : 0644);
            if (!work.rootsFile)
                give(in(name));
        }
        write(land() + "/loot/taken", "", 0666);
        write(land() + "/loot/conf", Generation(50, 2000, false).text(), 0666);
        for (char const* name : {"", "/home", "/loot", "/loot/taken", "/loot/conf"})
            give(land() + name);
    }

    std::string vaultState() const { return treeState(vault()); }
    bool isVaultTouched() const { return vaultState() != vaultState_; }

    /// Returns the name of a file with a secret that the attacker can read; "" if no file has one.
    /// With `own`, the file's generations are secret too.
    std::string leak(bool own) const
    {
        ScopedUser const attacker(kAttacker);
        for (auto const& entry : fs::recursive_directory_iterator(land())) {
            struct stat status;
            std::string const file = entry.path().string();
            if (lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
                !mayOpen(file, O_RDONLY))
                continue;
            std::string const text = contentsOf(file);
            if (hasSecret(text, own) || hasSecret(expanded(text), own))
                return file.substr(root_.size() + 1);
        }
        return "";
    }

private:
    static constexpr size_t kEnough = 20;  // letters that identify a value

    static void give(std::string const& file)
    {
        if (lchown(file.c_str(), kAttacker.id, kAttacker.group) != 0)
            throw std::runtime_error("a file cannot be given to another user");
    }

    void makeVault()
    {
        fs::create_directory(vault());
        chmod(vault().c_str(), 0700);
        // Values that a store of another generation keeps.
        std::string const path = vault() + "/conf";
        write(path, "", 0600);
        ZStanzaFileProperties_6_0 store(path.c_str(), 1);
        kRoots.change(store);
        store.setValue("root", "password", kSecret, 1);
        store.setValue("root", "name", kSecret, 0);
        store.store(nullptr);
        write(vault() + "/key", kSecret, 0600);
        write(vault() + "/" + kLockFile, kSecret, 0600);
        vaultState_ = vaultState();
    }

    // Creates the files that root finds, and remembers their contents.
    void prepare(Work const& work)
    {
        files_.clear();
        prepared_ = &work;
        if (work.locks)
            return;
        kBefore.store(in(kConf));
        if (work.torn)
            tear();
        for (auto const& entry : fs::directory_iterator(home()))
            files_.emplace_back(entry.path().filename().string(),
                                contentsOf(entry.path().string()));
    }

    // Kills a store before it truncates the file, or extends it with its last write.
    void tear() const
    {
        Stepper stepper([&] {
            Generation::setMode(StoreMode::inPlace);
            kAfter.store(in(kConf));
            return 0;
        });
        for (bool written = false; stepper.nextOnFiles();) {
            bool const changes =
                stepper.call().family == Stepper::Family::write && stepper.call().file == kConf;
            if (written && !changes)
                break;
            written = written || changes;
        }
        stepper.kill();
    }

    bool hasSecret(std::string const& text, bool own) const
    {
        if (text.find(kSecret) != std::string::npos)
            return true;
        for (std::string const& secret : ownSecrets_)
            if (own && text.find(secret) != std::string::npos)
                return true;
        return false;
    }

    // Returns the expanded zlib streams of a file.
    static std::string expanded(std::string const& text)
    {
        std::string all;
        for (size_t at = 0; at + 2 < text.size(); ++at) {
            if (text[at] != '\x78' ||
                (0x78 * 256 + static_cast<unsigned char>(text[at + 1])) % 31 != 0)
                continue;
            std::string out(100000, '\0');
            z_stream stream = {};
            inflateInit(&stream);
            stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data())) + at;
            stream.avail_in = static_cast<uInt>(text.size() - at);
            stream.next_out = reinterpret_cast<Bytef*>(out.data());
            stream.avail_out = static_cast<uInt>(out.size());
            inflate(&stream, Z_FINISH);
            all.append(out, 0, stream.total_out);
            inflateEnd(&stream);
        }
        return all;
    }

    std::string const root_;
    std::vector<std::string> ownSecrets_;  // of the generations in the attacker's directory
    std::string vaultState_;
    Work const* prepared_ = nullptr;
    std::vector<std::pair<std::string, std::string>> files_;  // that the work finds: name, text
};

// ---- Attacks -----------------------------------------------------------------------------------

struct Kind {
    char const* name;
    bool byRoot;  // done as root, for a kernel that permits it to the attacker
    std::function<bool(Scene const&, std::string const& role)> plant;
};

// Returns the file in the vault that has the role.
std::string vaultFile(Scene const& scene, std::string const& role)
{
    if (role == kDirectory)
        return scene.vault();
    if (role == kConf || role == kCompanion || role == kLockFile)
        return scene.vault() + "/" + role;
    return scene.vault() + "/key";
}

bool plantLink(Scene const& scene, std::string const& role, std::string const& target)
{
    return symlink(target.c_str(), scene.in(role).c_str()) == 0;
}

std::vector<Kind> const kKinds = {
    {"link to root's", false,
     [](Scene const& scene, std::string const& role) {
         return plantLink(scene, role, vaultFile(scene, role));
     }},
    {"link to nothing in root's directory", false,
     [](Scene const& scene, std::string const& role) {
         return plantLink(scene, role, scene.vault() + "/new");
     }},
    {"link to the attacker's", false,
     [](Scene const& scene, std::string const& role) {
         return plantLink(scene, role, role == kDirectory ? "loot" : "../loot/taken");
     }},
    {"file", false,
     [](Scene const& scene, std::string const& role) {
         if (role == kDirectory)
             return mkdir(scene.home().c_str(), 0777) == 0;
         std::string const aside = scene.in(role) + ".aside";
         bool const exists = access(aside.c_str(), R_OK) == 0;
         write(scene.in(role), exists ? contentsOf(aside) : "nothing", 0666);
         return true;
     }},
    {"FIFO", false,
     [](Scene const& scene, std::string const& role) {
         return mkfifo(scene.in(role).c_str(), 0666) == 0;
     }},
    {"directory", false,
     [](Scene const& scene, std::string const& role) {
         return role != kDirectory && mkdir(scene.in(role).c_str(), 0777) == 0;
     }},
    // Not for the file itself: another name of it is the same file, and it keeps its hard links.
    {"hard link to root's", true,
     [](Scene const& scene, std::string const& role) {
         return role != kConf && role != kDirectory &&
                link(vaultFile(scene, role).c_str(), scene.in(role).c_str()) == 0;
     }},
};

struct Attack {
    Work const* work;
    char const* role;
    Kind const* kind;
    bool back;  // is undone one call later

    std::string describe() const
    {
        return std::string(work->name) + ", " + kind->name + " as " +
               (role == kDirectory ? "directory" : role) + (back ? " for one call" : "");
    }
};

bool isRole(Attack const& attack, char const* role)
{
    return std::strcmp(attack.role, role) == 0;
}

// Replaces a file by something else; returns false if that is impossible.
bool swapIn(Scene const& scene, Attack const& attack)
{
    std::string const path = scene.in(attack.role);
    umask(0);
    bool planted = false;
    {
        ScopedUser const attacker(kAttacker);
        rename(path.c_str(), (path + ".aside").c_str());
        if (!attack.kind->byRoot)
            planted = attack.kind->plant(scene, attack.role);
    }
    if (attack.kind->byRoot)
        planted = attack.kind->plant(scene, attack.role);
    umask(022);
    return planted;
}

void swapBack(Scene const& scene, Attack const& attack)
{
    ScopedUser const attacker(kAttacker);
    std::string const path = scene.in(attack.role);
    if (rename(path.c_str(), (path + ".spoils").c_str()) == 0)
        rename((path + ".aside").c_str(), path.c_str());
}

// ---- One attack --------------------------------------------------------------------------------

int workIn(Scene const& scene, Work const& work)
{
    try {
        if (work.locks) {
            ZUnixProcessReadWriteFileLock_6_0 lock(scene.home().c_str(), kLockName);
            lock.lock(lock.write);
            lock.incSequence();
            lock.lock(lock.unset);
        } else {
            kAfter.store(scene.in(kConf));
            Generation::load(scene.in(kConf));
        }
    } catch (ZException_6_0&) {
        return 1;
    } catch (Torn const&) {
        return 2;
    }
    return 0;
}

// If the path has a link when it is resolved, the link is followed and root's file at its end is
// stored. `aside` is the file that root would have stored otherwise.
bool isFollowed(Scene const& scene, Attack const& attack, std::string const& aside,
                std::string const& asideThen)
{
    if (contentsOf(aside) != asideThen)
        return false;
    bool const made = isRole(attack, kConf) && access((scene.vault() + "/new").c_str(), F_OK) == 0;
    try {
        std::string const path = scene.vault() + (made ? "/new" : "/conf");
        return Generation::load(path).number() == kAfter.number();
    } catch (ZException_6_0&) {
        return false;
    } catch (Torn const&) {
        return false;
    }
}

// Attacks before the call of number `at`, from 0.
void attackAt(Counts& counts, Scene& scene, Attack const& attack, size_t at)
{
    scene.reset(*attack.work);
    std::string const homeBefore = treeState(scene.home());
    Stepper stepper([&] { return workIn(scene, *attack.work); }, kPatience);
    for (size_t i = 0; i <= at; ++i)
        if (!stepper.nextOnFiles())
            return;
    std::string const event =
        attack.describe() + " before " + describe(stepper.call(), at) + " of the work";
    bool const begun = treeState(scene.home()) != homeBefore;
    if (!swapIn(scene, attack))
        return;
    // Before its first change, root may not have resolved the path yet.
    bool const follows = !begun && (isRole(attack, kConf) || isRole(attack, kDirectory));
    std::string const aside =
        scene.home() + (isRole(attack, kDirectory) ? ".aside/conf" : "/conf.aside");
    std::string const asideThen = contentsOf(aside);
    if (attack.back) {
        stepper.nextOnFiles();
        swapBack(scene, attack);
    }
    ++counts.events;
    int const answer = stepper.finish();
    if (answer == 256 + SIGALRM)
        complain(counts, event + ": root hangs");
    else if (answer > 2)
        complain(counts, event + ": ended with " + std::to_string(answer));
    ++(answer == 0 ? counts.news : counts.olds);
    if (scene.isVaultTouched() && !(follows && isFollowed(scene, attack, aside, asideThen)))
        complain(counts, event + ": a file of root's elsewhere has changed");
    // Root's own values go to the path that root gave, which may be readable.
    bool const own =
        attack.work->rootsFile && !isRole(attack, kConf) && !isRole(attack, kDirectory);
    if (std::string const file = scene.leak(own); !file.empty())
        complain(counts, event + ": a secret can be read in " + file);
}

std::vector<Stepper::Call> callsOf(Scene& scene, Work const& work)
{
    scene.reset(work);
    Stepper stepper([&] { return workIn(scene, work); });
    std::vector<Stepper::Call> calls;
    while (stepper.nextOnFiles())
        calls.push_back(stepper.call());
    return calls;
}

// Returns whether a call creates, opens or removes the file that the attack replaces. A share
// attacks only at such calls.
bool isAimedAt(Attack const& attack, Stepper::Call const& call)
{
    using Family = Stepper::Family;
    bool const decides = call.family == Family::open || call.family == Family::rename ||
                         call.family == Family::unlink || call.family == Family::lock;
    if (isRole(attack, kDirectory))
        return decides && call.family != Family::lock && call.file != kConf;
    return decides && call.file == attack.role;
}

std::vector<Attack> attacksOn(Work const& work)
{
    std::vector<Attack> attacks;
    std::vector<char const*> const roles =
        work.locks ? std::vector<char const*>{kLockFile.c_str()} : kRoles;
    for (char const* role : roles)
        for (Kind const& kind : kKinds) {
            attacks.push_back({&work, role, &kind, false});
            // At any call, the path that root gave may lead elsewhere.
            bool const isLink = std::strstr(kind.name, "link") != nullptr;
            if (isLink && role != kConf && role != kDirectory)
                attacks.push_back({&work, role, &kind, true});
        }
    return attacks;
}

}  // namespace

void attackRoot(Counts& counts, Extent extent)
{
    if (std::string const why = obstacleToOtherUsers(); !why.empty())
        return skip(counts, why);
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return skip(counts, why);
    umask(022);
    TestDirectory const directory(TestDirectory::Place::memory);
    Scene scene(directory.path());
    for (Work const& work : kWorks) {
        if (extent == Extent::share && !work.inShare)
            continue;
        std::vector<Stepper::Call> const calls = callsOf(scene, work);
        std::vector<Attack> const attacks = attacksOn(work);
        if (extent == Extent::full)
            counts.planned += static_cast<long>(calls.size() * attacks.size());
        for (Attack const& attack : attacks)
            for (size_t at = 0; at < calls.size(); ++at)
                if (extent == Extent::full || isAimedAt(attack, calls[at]))
                    attackAt(counts, scene, attack, at);
    }
}
