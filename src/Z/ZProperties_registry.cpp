// The stores that factories share among all callers, one per path.
#include <errno.h>
#include <pthread.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ZException.h"
#include "ZProperties_p.h"
#include "reporting/failures.h"
#include "store/journaled_file.h"

using namespace zproperties;

// ---- One store for a path ----------------------------------------------------------------------

namespace {

// A store that a thread is loading. The registry is locked only while the maps are accessed. A
// thread that loads or waits holds only locks that it held on entry, so no two threads can wait for
// each other.
struct PendingLoad {
    ZAbstractPropertiesFactory_6_0 const* factory;
    std::string path;
    pthread_t thread;
    bool done = false;  // guarded by PendingLoads::mutex
};

struct PendingLoads {
    // Waits until the thread that loads `load` has finished.
    // throws  zstore::JournaledFile::IoError (path, "fcntl()", EDEADLK) if that thread is the
    // calling
    //         thread, or waits, directly or through other threads, for a store that the calling
    //         thread is loading.
    void waitFor(PendingLoad const& load);

    std::vector<std::shared_ptr<PendingLoad>> list;  // guarded by the registry
    std::mutex mutex;
    std::condition_variable ended;

private:
    struct Wait {
        pthread_t thread;
        PendingLoad const* load;
    };
    PendingLoad const* waitedForBy(pthread_t thread) const;

    std::vector<Wait> waits_;  // guarded by mutex
};

PendingLoad const* PendingLoads::waitedForBy(pthread_t thread) const
{
    for (Wait const& wait : waits_)
        if (pthread_equal(wait.thread, thread))
            return wait.load;
    return nullptr;
}

void PendingLoads::waitFor(PendingLoad const& load)
{
    pthread_t const self = pthread_self();
    std::unique_lock<std::mutex> guard(mutex);
    for (PendingLoad const* next = &load; next != nullptr && !next->done;
         next = waitedForBy(next->thread))
        if (pthread_equal(next->thread, self))
            throw zstore::JournaledFile::IoError{load.path, zfiles::FailedCall::fcntl, EDEADLK};
    waits_.push_back({self, &load});
    ended.wait(guard, [&] { return load.done; });
    std::erase_if(waits_, [&](Wait const& wait) { return pthread_equal(wait.thread, self); });
}

PendingLoads& pendingLoads()
{
    static PendingLoads* const loads = new PendingLoads;
    return *loads;
}

// Marks the load as finished, whatever its outcome.
class PendingLoadGuard {
public:
    explicit PendingLoadGuard(std::shared_ptr<PendingLoad> const& load) : load_(load) {}
    PendingLoadGuard(PendingLoadGuard const&) = delete;
    PendingLoadGuard& operator=(PendingLoadGuard const&) = delete;
    ~PendingLoadGuard()
    {
        PendingLoads& loads = pendingLoads();
        zreporting::runCleanup({kSource, raiseInGetPropertiesFor}, [&] {
            ZPropRegistry_6_0 const registry;
            std::erase(loads.list, load_);
        });
        std::lock_guard<std::mutex> const guard(loads.mutex);
        load_->done = true;
        loads.ended.notify_all();
    }

private:
    std::shared_ptr<PendingLoad> const load_;
};

}  // namespace

ZProperties_6_0* ZProperties_6_0::getPropertiesFor(char const* path,
                                                   ZAbstractPropertiesFactory_6_0& factory,
                                                   int force)
{
    if (isEmpty(path))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetPropertiesFor);
    zreporting::CancelGuard const uncancelled;
    ZProperties_6_0* found = nullptr;
    translateErrors(raiseInGetPropertiesFor, [&] {
        ZLCString_6_0 const key(path);
        PendingLoads& loads = pendingLoads();
        for (;;) {
            auto const own =
                std::make_shared<PendingLoad>(PendingLoad{&factory, path, pthread_self()});
            std::shared_ptr<PendingLoad> pending;
            {
                ZPropRegistry_6_0 const registry;
                found = static_cast<ZProperties_6_0*>(factory.map_.getEntry(&key));
                for (auto const& load : loads.list)
                    if (load->factory == &factory && load->path == path)
                        pending = load;
                if (found == nullptr && pending == nullptr)
                    loads.list.push_back(own);
            }
            if (found != nullptr) {
                found->refresh(path, force);
                return;
            }
            if (pending == nullptr) {
                PendingLoadGuard const end(own);
                found = makeFor(key, factory);
                return;
            }
            loads.waitFor(*pending);
        }
    });
    return found;
}

// Creates the factory's store for a path, loads it and inserts it into the map.
ZProperties_6_0* ZProperties_6_0::makeFor(ZLCString_6_0 const& path,
                                          ZAbstractPropertiesFactory_6_0& factory)
{
    std::unique_ptr<ZProperties_6_0> store;
    {
        ZResourceLock_6_0 const guard(factory.lock_);
        store.reset(factory.makePropertiesInstance());
    }
    if (store == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetPropertiesFor);
    store->rep_->sharedPath = path.getChars();
    store->load(path.getChars());
    std::unique_ptr<ZLCString_6_0> key(path.clone());
    ZPropRegistry_6_0 const registry;
    factory.map_.putEntry(key.get(), store.get());
    (void)key.release();
    return store.release();
}

// Reloads the file if `force` is set, or if it has changed and the store has no unsaved changes.
// Does not lock an unchanged store: threads that hold stores may look up each other's.
void ZProperties_6_0::refresh(char const* path, int force)
{
    if (force == 0 && Rep::isCurrent(*this))
        return;
    Hold const hold(*this);
    if (force != 0 || !Rep::isCurrent(*this))
        reload(path);
}
