// The configurations in a cluster that plain functions open: they are read and written by the
// library libzfleet, which is loaded for the first of them.
#include <dlfcn.h>

#include <memory>
#include <mutex>
#include <string_view>

#include "ZPropertiesImpl.h"
#include "ZStanzaDialect_p.h"
#include "zproperties_c_p.h"

namespace zhandles {

namespace {

constexpr char kScheme[] = "etcd://";
constexpr char kLibrary[] = "libzfleet-6.0.so.0";
constexpr char kNotInstalled[] =
    "The library libzfleet-6.0 cannot be loaded; install the package zfleet-6.0.";
constexpr char kNotStanza[] = "Configurations in a cluster have the dialect stanza.";

// The functions of the library. A session knows the states of the configurations that an open file
// has loaded or stored.
struct Functions {
    void* (*open)();
    void (*close)(void* session);
    ZSCFData_6_0* (*load)(void* session, char const* path, ZSCFData_6_0 const* prototype);
    ZSCFData_6_0* (*store)(void* session, char const* path, ZSCFData_6_0 const* cache);
};

template <class Function>
bool resolve(void* library, char const* name, Function*& function)
{
    function = reinterpret_cast<Function*>(dlsym(library, name));
    return function != nullptr;
}

// Loads the library, which stays loaded.
Functions const& functions()
{
    static std::mutex mutex;
    static Functions loaded;  // guarded by mutex
    std::lock_guard<std::mutex> const guard(mutex);
    if (loaded.open != nullptr)
        return loaded;
    // Local: the program may have other versions of the libraries below it.
    void* const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    Functions found{};
    if (library == nullptr || !resolve(library, "zfleetSessionClose_6_0", found.close) ||
        !resolve(library, "zfleetSessionLoad_6_0", found.load) ||
        !resolve(library, "zfleetSessionStore_6_0", found.store) ||
        !resolve(library, "zfleetSessionOpen_6_0", found.open))
        throw Refusal{kNotInstalled, zpropUnsupported};
    loaded = found;
    return loaded;
}

}  // namespace

bool isRemote(char const* path)
{
    return path != nullptr && std::string_view(path).substr(0, sizeof kScheme - 1) == kScheme;
}

// The configurations in clusters that a store has loaded or stored.
struct PlainStore::Remote {
    Remote() : use(functions()), session(use.open()) {}
    Remote(Remote const&) = delete;
    Remote& operator=(Remote const&) = delete;
    ~Remote() { use.close(session); }

    Functions const& use;
    void* const session;
};

PlainStore::PlainStore(ZStanzaDialect_6_0 const& dialect)
    : ZStanzaFileProperties_6_0(1, dialect),
      switches_(zdialects::switchesOf(dialect)),
      isStanzaFile_(switches_.isStanzaFormat())
{
}

PlainStore::~PlainStore() = default;

// Runs `action` with the session and the path, and replaces the contents by its result, if any.
template <class Action>
void PlainStore::withRemote(char const* path, Action action)
{
    if (!isStanzaFile_)
        throw Refusal{kNotStanza, zpropUnsupported};
    Hold const hold(*this);
    if (remote_ == nullptr)
        remote_ = std::make_unique<Remote>();
    std::unique_ptr<ZSCFData_6_0> const contents(
        action(*remote_, static_cast<ZSCFData_6_0&>(cache())));
    if (contents != nullptr)
        cache().swapContents(*contents);
    setFileName(path);
    resetModified();
}

void PlainStore::load(char const* path)
{
    char const* const chosen = path != nullptr && *path != '\0' ? path : fileName().getChars();
    if (!isRemote(chosen)) {
        ZStanzaFileProperties_6_0::load(path);
        return;
    }
    withRemote(chosen, [chosen](Remote const& remote, ZSCFData_6_0& cache) {
        return remote.use.load(remote.session, chosen, &cache);
    });
}

void PlainStore::reload(char const* path)
{
    if (isRemote(fileName().getChars()))
        load(path);
    else
        ZStanzaFileProperties_6_0::reload(path);
}

void PlainStore::store(char const* path)
{
    char const* const chosen = path != nullptr && *path != '\0' ? path : fileName().getChars();
    if (!isRemote(chosen)) {
        ZStanzaFileProperties_6_0::store(path);
        return;
    }
    withRemote(chosen, [chosen](Remote const& remote, ZSCFData_6_0& cache) {
        return remote.use.store(remote.session, chosen, &cache);
    });
}

}  // namespace zhandles
