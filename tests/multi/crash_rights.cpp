// Stores of files with ACLs, shared groups, sticky directories and attributes, by different users:
// before a store, at each of its calls and after it, no user has more access than the file grants.
#include <errno.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Stepper.h"
#include "StoreDirectory.h"
#include "User.h"

namespace {

namespace fs = std::filesystem;

constexpr gid_t kTeam = 60010;
constexpr gid_t kOtherTeam = 60020;
User const kRoot = {"root", 0, 0, {}};
User const kOwner = {"the owner", 60001, 60001, {kTeam}};
User const kMember = {"a team user", 60002, 60002, {kTeam}};
User const kColleague = {"another team user", 60003, 60003, {kTeam}};
User const kNamed = {"the named user", 60004, 60004, {}};
User const kOutsider = {"an outsider", 60005, 60005, {}};
User const kStranger = {"a stranger", 60006, 60006, {kOtherTeam}};
User const* const kUsers[] = {&kOwner, &kMember, &kColleague, &kNamed, &kOutsider, &kStranger};

enum Answer { stored = 0, raised = 100, torn = 101 };

Generation const kBefore(4, 3000, true);
Generation const kAfter(8, 9000, true);
Generation const kNext(12, 2000, true);

// ---- ACLs --------------------------------------------------------------------------------------

// An access control list: permissions as in a mode, from 0 to 7.
struct Acl {
    struct Entry {
        id_t id;
        unsigned permissions;
    };
    unsigned owner;
    std::vector<Entry> users;
    unsigned group;
    unsigned mask;
    unsigned other;

    // Returns the value of the attribute system.posix_acl_access or system.posix_acl_default.
    std::string bytes() const
    {
        constexpr unsigned kNobody = ~0U;
        std::string all;
        append(all, 2, 4);
        appendEntry(all, 1, owner, kNobody);
        for (Entry const& user : users)
            appendEntry(all, 2, user.permissions, user.id);
        appendEntry(all, 4, group, kNobody);
        appendEntry(all, 0x10, mask, kNobody);
        appendEntry(all, 0x20, other, kNobody);
        return all;
    }

private:
    static void append(std::string& all, unsigned value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            all += static_cast<char>(value >> 8 * i & 0xFF);
    }
    static void appendEntry(std::string& all, unsigned tag, unsigned permissions, unsigned id)
    {
        append(all, tag, 2);
        append(all, permissions, 2);
        append(all, id, 4);
    }
};

constexpr char kAccess[] = "system.posix_acl_access";
constexpr char kDefault[] = "system.posix_acl_default";

void setAttribute(std::string const& path, char const* name, std::string const& value)
{
    if (setxattr(path.c_str(), name, value.data(), value.size(), 0) != 0)
        throw std::runtime_error(std::string("no ") + name + " here: " + strerror(errno));
}

// Returns the attributes of a file, ACL included, as a string; labels only if requested.
std::string attributesOf(std::string const& path, bool labels)
{
    std::string names(4096, '\0');
    ssize_t const length = listxattr(path.c_str(), names.data(), names.size());
    std::map<std::string, std::string> found;
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(&names[at])) + 1) {
        std::string value(4096, '\0');
        ssize_t const size = getxattr(path.c_str(), &names[at], value.data(), value.size());
        value.resize(size > 0 ? static_cast<size_t>(size) : 0);
        if (labels || std::strncmp(&names[at], "security.", 9) != 0)
            found[&names[at]] = value;
    }
    std::string all;
    for (auto const& [name, value] : found) {
        all += " " + name + "=";
        for (char const c : value)
            all += c >= ' ' && c <= '~' ? std::string(1, c) : "." + std::to_string(c & 0xFF);
    }
    return all;
}

// Returns owner, group, mode and attributes of a file, except any that the process may not set: a
// process without privileges is the owner, in the owner's groups.
std::string rightsOf(std::string const& path, bool privileged)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return "(missing)";
    char mode[20];
    std::snprintf(mode, sizeof mode, ", mode %o,", status.st_mode & 07777U);
    return "owner " + std::to_string(status.st_uid) + ", group " + std::to_string(status.st_gid) +
           mode + attributesOf(path, privileged);
}

// ---- Cases -------------------------------------------------------------------------------------

// Rights of a file or directory.
struct Rights {
    uid_t owner;
    gid_t group;
    mode_t mode;
    std::vector<Acl> acl = {};  // at most one element

    void giveTo(std::string const& path) const
    {
        if (chown(path.c_str(), owner, group) != 0 || chmod(path.c_str(), mode) != 0)
            throw std::runtime_error("rights cannot be set");
        if (!acl.empty())
            setAttribute(path, kAccess, acl[0].bytes());
    }
};

struct Case {
    char const* name;
    Rights directory;
    std::vector<Acl> defaultAcl;  // of the directory; at most one element
    Rights file;
    std::vector<Rights> companion;  // empty: the rights of the file
    std::vector<User const*> storers;
};

Rights const kOwnersDirectory = {60001, 60001, 0755};
Rights const kTeamsDirectory = {0, kTeam, 02775};
Acl const kNamedReads = {6, {{60004, 4}}, 0, 4, 0};
Acl const kNamedWrites = {6, {{60004, 6}}, 0, 6, 0};
Acl const kMemberMayNot = {6, {{60002, 0}}, 6, 6, 0};
Acl const kOutsiderByDefault = {7, {{60005, 7}}, 5, 7, 5};

std::vector<Case> const kCases = {
    {"private", kOwnersDirectory, {}, {60001, kTeam, 0600}, {}, {&kOwner, &kRoot}},
    {"read by a group", kOwnersDirectory, {}, {60001, kTeam, 0640}, {}, {&kOwner, &kRoot}},
    {"read by a group that is not the owner's",
     kOwnersDirectory,
     {},
     {60001, kOtherTeam, 0640},
     {},
     {&kOwner, &kRoot}},
    {"written by a group",
     kTeamsDirectory,
     {},
     {60001, kTeam, 0660},
     {},
     {&kMember, &kOwner, &kRoot}},
    {"written by a group, read by all",
     kTeamsDirectory,
     {},
     {60001, kTeam, 0664},
     {{60001, kTeam, 0660}},
     {&kMember, &kOwner}},
    {"ACL with a reader",
     kOwnersDirectory,
     {},
     {60001, kTeam, 0600, {kNamedReads}},
     {},
     {&kOwner, &kRoot}},
    {"ACL with a reader, only of the file",
     kOwnersDirectory,
     {},
     {60001, kTeam, 0600, {kNamedReads}},
     {{60001, kTeam, 0600}},
     {&kOwner, &kRoot}},
    {"ACL with a writer",
     {60001, kTeam, 0777},
     {},
     {60001, kTeam, 0600, {kNamedWrites}},
     {},
     {&kNamed, &kOwner, &kRoot}},
    {"ACL against a team user",
     kTeamsDirectory,
     {},
     {60001, kTeam, 0660, {kMemberMayNot}},
     {},
     {&kColleague, &kOwner, &kRoot}},
    {"default ACL",
     kOwnersDirectory,
     {kOutsiderByDefault},
     {60001, kTeam, 0640},
     {},
     {&kOwner, &kRoot}},
    {"default ACL, written by a group",
     kTeamsDirectory,
     {kOutsiderByDefault},
     {60001, kTeam, 0660},
     {},
     {&kMember, &kOwner, &kRoot}},
    {"sticky directory", {0, 0, 01777}, {}, {60001, kTeam, 0600}, {}, {&kOwner, &kRoot}},
    {"sticky directory, written by a group",
     {0, 0, 01777},
     {},
     {60001, kTeam, 0660},
     {},
     {&kMember, &kOwner, &kRoot}},
    {"narrower companion",
     kOwnersDirectory,
     {},
     {60001, kTeam, 0644},
     {{60001, kTeam, 0600}},
     {&kOwner, &kRoot}},
    {"companion with an ACL",
     kOwnersDirectory,
     {},
     {60001, kTeam, 0644},
     {{60001, kTeam, 0600, {kNamedReads}}},
     {&kOwner, &kRoot}},
};

// ---- Uses --------------------------------------------------------------------------------------

// Two bits for each user: may read, may write.
unsigned mayUse(std::string const& path)
{
    unsigned all = 0;
    for (size_t i = 0; i < std::size(kUsers); ++i) {
        ScopedUser const user(*kUsers[i]);
        all |= (mayOpen(path, O_RDONLY) ? 1U : 0U) << 2 * i;
        all |= (mayOpen(path, O_WRONLY) ? 2U : 0U) << 2 * i;
    }
    return all;
}

std::string names(unsigned uses)
{
    std::string all;
    for (size_t i = 0; i < 2 * std::size(kUsers); ++i)
        if ((uses >> i & 1) != 0)
            all += (all.empty() ? "" : ", ") + std::string(kUsers[i / 2]->name) +
                   (i % 2 == 0 ? " reads" : " writes");
    return all;
}

class Scene {
public:
    Scene(std::string root, Case const& which) : root_(std::move(root)), case_(which) {}

    std::string directory() const { return root_ + "/home"; }
    std::string path() const { return directory() + "/conf"; }

    void reset()
    {
        fs::remove_all(directory());
        fs::create_directory(directory());
        kBefore.store(path());
        case_.directory.giveTo(directory());
        if (!case_.defaultAcl.empty())
            setAttribute(directory(), kDefault, case_.defaultAcl[0].bytes());
        case_.file.giveTo(path());
        (case_.companion.empty() ? case_.file : case_.companion[0]).giveTo(path() + ".obf");
        for (std::string const& file : {path(), path() + ".obf"}) {
            setAttribute(file, "user.note", "of " + file.substr(directory().size()));
            setAttribute(file, "security.zcrash", "label");
        }
        granted_ = mayUse(path());
        for (bool const labels : {false, true})
            companionRights_[labels] = rightsOf(path() + ".obf", labels);
        fileRights_ = rightsOf(path(), true);
        seen_.clear();
    }

    /// Checks every file whose rights or owner have changed since the last check.
    void checkUses(Counts& counts, std::string const& event)
    {
        for (auto const& entry : fs::directory_iterator(directory())) {
            struct stat status;
            std::string const file = entry.path().string();
            if (lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
                continue;
            // Every change of rights also changes the time.
            State const state = {static_cast<long>(status.st_ino), status.st_ctim.tv_sec,
                                 status.st_ctim.tv_nsec};
            State& last = seen_[file];
            if (last == state)
                continue;
            last = state;
            ++counts.events;
            unsigned const uses = mayUse(file);
            std::string const name = entry.path().filename().string();
            if ((uses & ~granted_) != 0)
                complain(counts, event + ": " + name + " grants more: " + names(uses & ~granted_));
            if (file == path() && uses != granted_)
                complain(counts, event + ": the file grants less: " + names(granted_ & ~uses));
        }
    }

    void checkRightsAfter(Counts& counts, User const& user, std::string const& event) const
    {
        bool const privileged = user.id == 0;
        if (std::string const now = rightsOf(path(), true); now != fileRights_)
            complain(counts, event + ": the file had " + fileRights_ + "; it has " + now);
        // An owner outside the file's group cannot set the group of a new companion.
        if (!privileged && case_.file.group == kOtherTeam)
            return;
        std::string const companion = path() + ".obf";
        if (case_.companion.empty() || !case_.companion[0].acl.empty()) {
            std::string const now = rightsOf(companion, privileged);
            std::string const& expected = companionRights_[privileged];
            if (now != expected)
                complain(counts, event + ": the companion had " + expected + "; it has " + now);
        } else if (attributesOf(companion, privileged).find("user.note=of /conf.obf") ==
                   std::string::npos) {
            // Without an ACL of its own the companion may get the rights of the file.
            complain(counts, event + ": the companion has " + rightsOf(companion, privileged));
        }
    }

private:
    using State = std::array<long, 3>;

    std::string const root_;
    Case const& case_;
    unsigned granted_ = 0;
    std::string fileRights_;
    std::string companionRights_[2];  // without and with labels
    std::map<std::string, State> seen_;
};

// ---- Stores ------------------------------------------------------------------------------------

int storeAs(User const& user, std::string const& path, Generation const& what)
{
    try {
        if (user.id != 0)
            ScopedUser::becomePermanently(user);
        what.store(path);
        return stored;
    } catch (ZException_6_0&) {
        return raised;
    } catch (Torn const&) {
        return torn;
    }
}

// Returns the number of the generation that a user loads, or an Answer.
int loadAs(User const& user, std::string const& path)
{
    return ended(inChild([&] {
        try {
            if (user.id != 0)
                ScopedUser::becomePermanently(user);
            return static_cast<int>(Generation::load(path).number());
        } catch (ZException_6_0&) {
            return static_cast<int>(raised);
        } catch (Torn const&) {
            return static_cast<int>(torn);
        }
    }));
}

std::string withUser(Case const& which, User const& user)
{
    return std::string(which.name) + ", stored by " + user.name;
}

void watchStore(Counts& counts, std::string const& root, Case const& which, User const& user)
{
    std::string const event = withUser(which, user);
    Scene scene(root, which);
    scene.reset();
    scene.checkUses(counts, event + ", before");
    Stepper stepper([&] { return storeAs(user, scene.path(), kAfter); });
    for (size_t i = 0; stepper.nextOnFiles(); ++i)
        scene.checkUses(counts, event + ", before " + describe(stepper.call(), i));
    int const answer = stepper.finish();
    scene.checkUses(counts, event + ", after");
    if (answer != stored && answer != raised)
        complain(counts, event + ": ended with " + std::to_string(answer));
    ++(answer == stored ? counts.news : counts.olds);
    scene.checkRightsAfter(counts, user, event);
    int const found = loadAs(kRoot, scene.path());
    if (found != (answer == stored ? kAfter : kBefore).number())
        complain(counts, event + ": root finds " + std::to_string(found));
}

// Returns the calls of a store before which it is killed: all; for a share, the calls that change a
// file.
std::vector<size_t> placesToKill(Scene& scene, User const& user, Extent extent)
{
    using Family = Stepper::Family;
    scene.reset();
    Stepper stepper([&] { return storeAs(user, scene.path(), kAfter); });
    std::vector<size_t> places;
    for (size_t i = 0; stepper.nextOnFiles(); ++i) {
        Family const family = stepper.call().family;
        if (extent == Extent::full || family == Family::write || family == Family::cut ||
            family == Family::rename || family == Family::unlink)
            places.push_back(i);
    }
    return places;
}

// Kills a store of `user`; then other users load and store.
void killStore(Counts& counts, Scene& scene, Case const& which, User const& user, size_t at)
{
    scene.reset();
    Stepper stepper([&] { return storeAs(user, scene.path(), kAfter); });
    for (size_t i = 0; i <= at; ++i)
        stepper.nextOnFiles();
    std::string const event =
        withUser(which, user) + ", killed before " + describe(stepper.call(), at);
    stepper.kill();
    scene.checkUses(counts, event);
    auto const isWhole = [](int found) {
        return found == kBefore.number() || found == kAfter.number();
    };
    for (User const* other : {&kRoot, &kOwner, &kColleague}) {
        int const found = loadAs(*other, scene.path());
        if (!isWhole(found) && found != raised)
            complain(counts, event + ": " + other->name + " finds " + std::to_string(found));
    }
    int const answer = ended(inChild([&] { return storeAs(kColleague, scene.path(), kNext); }));
    int const found = loadAs(kRoot, scene.path());
    int const foundByUser = loadAs(user, scene.path());
    bool const well = answer == stored ? found == kNext.number() && foundByUser == kNext.number()
                                       : isWhole(foundByUser);
    std::string const then =
        event + ", then another team user " + (answer == stored ? "stores" : "may not store");
    if (!well)
        complain(counts, then + ": root finds " + std::to_string(found) + ", " + user.name + " " +
                             std::to_string(foundByUser));
    scene.checkUses(counts, then);
}

// Kills stores by a user that does not own the file.
void killStores(Counts& counts, std::string const& root, Extent extent)
{
    for (Case const& which : kCases)
        if (User const& user = *which.storers[0]; user.id != which.file.owner) {
            Scene scene(root, which);
            for (size_t const at : placesToKill(scene, user, extent))
                killStore(counts, scene, which, user, at);
        }
}

}  // namespace

void checkRights(Counts& counts, Extent extent)
{
    if (std::string const why = obstacleToOtherUsers(); !why.empty())
        return skip(counts, why);
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return skip(counts, why);
    umask(0);
    for (auto const place : {TestDirectory::Place::memory, TestDirectory::Place::disk}) {
        TestDirectory const directory(place);
        chmod(directory.path().c_str(), 0755);
        try {
            for (Case const& which : kCases)
                for (User const* user : which.storers)
                    watchStore(counts, directory.path(), which, *user);
            killStores(counts, directory.path(), extent);
        } catch (std::runtime_error const& problem) {
            if (counts.events == 0)
                return skip(counts, problem.what());
            remark(counts, problem.what());
        }
        if (extent == Extent::share)
            break;
    }
}
