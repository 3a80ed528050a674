#include "ZFleetProperties.h"

#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <errno.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ZFleetConnection.h"
#include "ZFleetReadWriteLock_p.h"
#include "configuration/live.h"
#include "configuration/parsing.h"
#include "configuration/path.h"
#include "configuration/session.h"
#include "translate_failures.h"

namespace {

constexpr char kSource[] = "src/fleet/Z/ZFleetProperties";
enum RaiseSite {
    raiseForPath = 1,
    raiseForPolicy,
    raiseForLocal,
    raiseForUnsaved,
    raiseForFence,
};

bool isEmpty(char const* text)
{
    return text == nullptr || *text == 0;
}

[[noreturn]] void throwFence(char const* path, int error)
{
    ZPropertiesIOException_6_0(path, "setFence()", error).throwException(kSource, raiseForFence);
}

// Appends an object, which an owning list takes over.
void append(ZArrayList_6_0& list, ZObject_6_0* object)
{
    std::unique_ptr<ZObject_6_0> owner(object);
    list.addNoCopy(object);
    owner.release();
}

}  // namespace

struct ZFleetProperties_6_0::Rep {
    static char const* choosePath(ZFleetProperties_6_0 const& store, char const* path);
    static char const* chooseFleetPath(ZFleetProperties_6_0 const& store, char const* path);
    static ZSCFData_6_0& cacheOf(ZFleetProperties_6_0 const& store);
    static void load(ZFleetProperties_6_0& store, char const* path);
    static void store(ZFleetProperties_6_0& store, char const* path);
    void prepareFence(char const* path);
    template <class Action>
    static void notifyLossAfter(ZFleetProperties_6_0& store, Action action);
    template <class Action>
    static void change(ZFleetProperties_6_0& store, char const* path, Action action);
    static void sendDifferences(ZFleetProperties_6_0& store, zfleet::AllValues const& before,
                                zfleet::AllValues const& after);

    static bool look(ZFleetProperties_6_0& store, char const* path);
    void resetChanges();

    zfleet::Session session;
    std::vector<zfleet::Conflict> conflicts;  // of the last store
    std::unique_ptr<zfleet::Live> live;       // null: nothing is watched
    ZFleetReadWriteLock_6_0* lock = nullptr;  // of setFence()
    bool isBehind = false;
    int64_t badRevision = 0;  // of contents that cannot be read
    int lastError = 0;        // errno of the last look
};

char const* ZFleetProperties_6_0::Rep::choosePath(ZFleetProperties_6_0 const& store,
                                                  char const* path)
{
    if (!isEmpty(path))
        return path;
    if (store.fileName().isEmpty())
        ZInvalidParameterException_6_0().throwException(kSource, raiseForPath);
    return store.fileName().getChars();
}

char const* ZFleetProperties_6_0::Rep::chooseFleetPath(ZFleetProperties_6_0 const& store,
                                                       char const* path)
{
    char const* const chosen = choosePath(store, path);
    if (!zfleet::isFleetPath(chosen))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForLocal);
    return chosen;
}

ZSCFData_6_0& ZFleetProperties_6_0::Rep::cacheOf(ZFleetProperties_6_0 const& store)
{
    return static_cast<ZSCFData_6_0&>(store.cache());
}

void ZFleetProperties_6_0::Rep::load(ZFleetProperties_6_0& store, char const* path)
{
    zfleet::Session& session = store.rep_->session;
    zfleet::Session::Loaded loaded = session.load(path);
    std::unique_ptr<ZSCFData_6_0> const fresh =
        zfleet::parseContents(path, loaded.snapshot.contents, cacheOf(store));
    store.cache().swapContents(*fresh);
    try {
        store.postLoad(path);
    } catch (...) {
        store.cache().swapContents(*fresh);
        throw;
    }
    store.setFileName(path);
    session.accept(path, std::move(loaded));
    store.rep_->resetChanges();
    store.resetModified();
}

void ZFleetProperties_6_0::Rep::resetChanges()
{
    conflicts.clear();
    isBehind = false;
    badRevision = 0;
}

// Reads the configuration, and takes it in unless the store has unsaved changes. Returns whether
// the contents were replaced.
bool ZFleetProperties_6_0::Rep::look(ZFleetProperties_6_0& store, char const* path)
{
    Rep& rep = *store.rep_;
    zfleet::Session::Loaded loaded = rep.session.look(path);
    int64_t const revision = loaded.snapshot.revision();
    bool const isKnown = rep.session.isCurrent(path, loaded.snapshot);
    if (loaded.snapshot.textRevision == 0 && !isKnown)
        throw zfleet::CallError{"Txn", ENOENT, false, "the configuration was removed"};
    if (isKnown || revision == rep.badRevision) {
        if (isKnown && store.isModified() == 0)
            rep.session.accept(path, std::move(loaded));  // it may have been offline
        return false;
    }
    if (store.isModified() != 0) {
        rep.isBehind = true;
        return false;
    }
    rep.badRevision = revision;
    std::unique_ptr<ZSCFData_6_0> const fresh =
        zfleet::parseContents(path, loaded.snapshot.contents, cacheOf(store));
    rep.resetChanges();
    sendDifferences(store, zfleet::valuesOf(cacheOf(store)), zfleet::valuesOf(*fresh));
    store.cache().swapContents(*fresh);
    rep.session.accept(path, std::move(loaded));
    store.postLoad(path);
    return true;
}

// Sets the fence of the next store to `path`.
void ZFleetProperties_6_0::Rep::prepareFence(char const* path)
{
    session.fence.reset();
    if (lock == nullptr)
        return;
    ZFleetReadWriteLock_6_0::Rep& state = lock->rep();
    if (!zfleet::isFleetPath(path) || zfleet::parsePath(path).fleet != state.connection->fleet())
        throwFence(path, EXDEV);
    zfleet::Fence fence = state.lock.fence();
    if (fence.createRevision == 0)
        throwFence(path, EBADF);
    if (state.lock.isLost())
        throwFence(path, ESTALE);
    session.fence = std::move(fence);
}

// Runs `action`, which locks the store. If it fails because the fence was lost, notifies the
// observers of the fence, without the lock of the store.
template <class Action>
void ZFleetProperties_6_0::Rep::notifyLossAfter(ZFleetProperties_6_0& store, Action action)
{
    ZFleetReadWriteLock_6_0* const lock = [&] {
        Hold const hold(store);
        return store.rep_->lock;
    }();
    try {
        action();
    } catch (ZException_6_0 const&) {
        if (lock != nullptr)
            ZFleetReadWriteLock_6_0::Rep::reportLoss(*lock);
        throw;
    }
}

// Changes the configuration at `path`, and takes over the contents that `action` returns, if any.
template <class Action>
void ZFleetProperties_6_0::Rep::change(ZFleetProperties_6_0& store, char const* path, Action action)
{
    Rep& rep = *store.rep_;
    ZSCFData_6_0& cache = cacheOf(store);
    zfleet::translateFailures(kSource, path, [&] {
        rep.conflicts.clear();
        rep.prepareFence(path);
        try {
            std::optional<zfleet::Contents> const contents = action();
            store.setFileName(path);
            store.resetModified();
            rep.resetChanges();
            if (!contents.has_value())
                return;
            std::unique_ptr<ZSCFData_6_0> const fresh =
                zfleet::parseContents(path, *contents, cache);
            sendDifferences(store, zfleet::valuesOf(cache), zfleet::valuesOf(*fresh));
            cache.swapContents(*fresh);
            rep.session.acceptMerge(path);
            store.postLoad(path);
        } catch (zfleet::ConflictError const& error) {
            rep.conflicts = error.conflicts;
            throw;
        } catch (zfleet::FenceError const& error) {
            rep.lock->rep().lock.recordLoss(error.fence.createRevision);
            throwFence(path, ESTALE);
        } catch (zfleet::CallError const& error) {
            // Another cluster does not know the lock.
            if (error.error == EREMCHG && rep.session.fence.has_value())
                rep.lock->rep().lock.recordLoss(rep.session.fence->createRevision);
            throw;
        }
    });
}

// Queues a notice for each key that differs, in the order of the names.
void ZFleetProperties_6_0::Rep::sendDifferences(ZFleetProperties_6_0& store,
                                                zfleet::AllValues const& before,
                                                zfleet::AllValues const& after)
{
    using Notice = ZPropertyChanged_6_0;
    auto const send = [&](Notice::PropertyChangeType type, std::string const& stanza,
                          std::string const& key) {
        store.sendChangeNotice(kFleetChanged, type, stanza.c_str(), key.c_str());
    };
    for (auto const& [stanza, keys] : before) {
        auto const left = after.find(stanza);
        if (left == after.end()) {
            send(Notice::removed, stanza, "");
            continue;
        }
        for (auto const& [key, values] : keys)
            if (left->second.count(key) == 0)
                send(Notice::removed, stanza, key);
    }
    for (auto const& [stanza, keys] : after) {
        auto const old = before.find(stanza);
        if (old == before.end())
            send(Notice::added, stanza, "");
        for (auto const& [key, values] : keys) {
            auto const known = old == before.end() ? keys.end() : old->second.find(key);
            bool const isKnown = old != before.end() && known != old->second.end();
            if (!isKnown || known->second != values)
                send(Notice::set, stanza, key);
        }
    }
}

ZFleetProperties_6_0::ZFleetProperties_6_0(int keepComments)
    : ZStanzaFileProperties_6_0(keepComments), rep_(new Rep)
{
}

ZFleetProperties_6_0::ZFleetProperties_6_0(char const* path, int keepComments)
    : ZFleetProperties_6_0(keepComments)
{
    load(path);
}

ZFleetProperties_6_0::~ZFleetProperties_6_0()
{
    delete rep_;
}

void ZFleetProperties_6_0::load(char const* path)
{
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    if (zfleet::isFleetPath(chosen))
        zfleet::translateFailures(kSource, chosen, [&] { Rep::load(*this, chosen); });
    else
        ZStanzaFileProperties_6_0::load(chosen);
}

void ZFleetProperties_6_0::reload(char const* path)
{
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    if (!zfleet::isFleetPath(chosen)) {
        ZStanzaFileProperties_6_0::reload(chosen);
        return;
    }
    zfleet::translateFailures(kSource, chosen, [&] {
        zfleet::AllValues const before = zfleet::valuesOf(Rep::cacheOf(*this));
        Rep::load(*this, chosen);
        Rep::sendDifferences(*this, before, zfleet::valuesOf(Rep::cacheOf(*this)));
    });
}

void ZFleetProperties_6_0::store(char const* path)
{
    Rep::notifyLossAfter(*this, [&] { Rep::store(*this, path); });
}

void ZFleetProperties_6_0::Rep::store(ZFleetProperties_6_0& store, char const* path)
{
    Hold const hold(store);
    Rep& rep = *store.rep_;
    char const* const chosen = choosePath(store, path);
    if (!zfleet::isFleetPath(chosen)) {
        rep.prepareFence(chosen);
        store.ZStanzaFileProperties_6_0::store(chosen);
        return;
    }
    change(store, chosen, [&]() -> std::optional<zfleet::Contents> {
        ZSCFData_6_0 const& cache = cacheOf(store);
        zfleet::Session::Stored stored =
            rep.session.store(chosen, zfleet::formatContents(cache), cache);
        if (!stored.isMerged)
            return std::nullopt;
        return std::move(stored.contents);
    });
}

int ZFleetProperties_6_0::isFleetPath(char const* path)
{
    return zfleet::isFleetPath(path) ? 1 : 0;
}

uint64_t ZFleetProperties_6_0::generation() const
{
    Hold const hold(*this);
    return rep_->session.generation();
}

int64_t ZFleetProperties_6_0::revision() const
{
    Hold const hold(*this);
    return rep_->session.revision();
}

int ZFleetProperties_6_0::descriptor()
{
    Hold const hold(*this);
    char const* const path = fileName().getChars();
    if (!zfleet::isFleetPath(path) || !rep_->session.knows(path))
        return -1;
    zfleet::translateFailures(kSource, path, [&] {
        if (rep_->live != nullptr)
            return;
        auto live = std::make_unique<zfleet::Live>();
        live->recordLook(rep_->session.lookInterval(path), !rep_->session.isOffline());
        rep_->session.processHints(path, *live);
        rep_->live = std::move(live);
    });
    return rep_->live->descriptor();
}

int ZFleetProperties_6_0::processChanges()
{
    Hold const hold(*this);
    if (descriptor() < 0)
        return 0;
    char const* const path = fileName().getChars();
    bool isReplaced = false;
    zfleet::translateFailures(kSource, path, [&] {
        zfleet::Live& live = *rep_->live;
        if (!rep_->session.processHints(path, live))
            return;
        zfleet::Clock::duration const interval = rep_->session.lookInterval(path);
        int const lastError = std::exchange(rep_->lastError, 0);
        try {
            isReplaced = Rep::look(*this, path);
            live.recordLook(interval, true);
        } catch (zfleet::CallError const& error) {
            live.recordLook(interval, false);
            rep_->lastError = error.error;
            if (error.error != ETIMEDOUT && error.error != lastError)
                throw;
        } catch (...) {
            live.recordLook(interval, true);  // other contents have another revision
            throw;
        }
    });
    return isReplaced ? 1 : 0;
}

int ZFleetProperties_6_0::isBehind() const
{
    Hold const hold(*this);
    return rep_->isBehind ? 1 : 0;
}

int ZFleetProperties_6_0::isOffline() const
{
    Hold const hold(*this);
    return rep_->session.isOffline() ? 1 : 0;
}

void ZFleetProperties_6_0::setReason(char const* reason)
{
    Hold const hold(*this);
    rep_->session.reason = reason == nullptr ? "" : reason;
}

void ZFleetProperties_6_0::setMerge(int merge)
{
    Hold const hold(*this);
    rep_->session.merges = merge != 0;
}

void ZFleetProperties_6_0::setConflictPolicy(ConflictPolicy policy)
{
    using zfleet::ConflictPolicy;
    Hold const hold(*this);
    switch (policy) {
        case refuse:
            rep_->session.policy = ConflictPolicy::refuse;
            return;
        case mineWins:
            rep_->session.policy = ConflictPolicy::mineWins;
            return;
        case theirsWins:
            rep_->session.policy = ConflictPolicy::theirsWins;
            return;
    }
    ZInvalidParameterException_6_0().throwException(kSource, raiseForPolicy);
}

void ZFleetProperties_6_0::setFence(ZFleetReadWriteLock_6_0* lock)
{
    Hold const hold(*this);
    rep_->lock = lock;
}

void ZFleetProperties_6_0::conflicts(ZArrayList_6_0& out) const
{
    Hold const hold(*this);
    for (zfleet::Conflict const& conflict : rep_->conflicts)
        append(out, new ZFleetConflict_6_0(conflict.stanza.c_str(), conflict.key.c_str()));
}

void ZFleetProperties_6_0::log(char const* path, ZArrayList_6_0& out) const
{
    Hold const hold(*this);
    char const* const chosen = Rep::chooseFleetPath(*this, path);
    zfleet::translateFailures(kSource, chosen, [&] {
        for (zfleet::LogEntry const& entry : rep_->session.log(chosen)) {
            zfleet::Metadata const& metadata = entry.metadata;
            append(out, new ZFleetGeneration_6_0(metadata.generation, metadata.time,
                                                 metadata.host.c_str(), metadata.user.c_str(),
                                                 metadata.reason.c_str(), entry.isOmitted));
        }
    });
}

void ZFleetProperties_6_0::loadGeneration(char const* path, uint64_t generation)
{
    Hold const hold(*this);
    char const* const chosen = Rep::chooseFleetPath(*this, path);
    zfleet::translateFailures(kSource, chosen, [&] {
        zfleet::Contents const contents = rep_->session.contentsOf(chosen, generation);
        std::unique_ptr<ZSCFData_6_0> const fresh =
            zfleet::parseContents(chosen, contents, Rep::cacheOf(*this));
        Rep::load(*this, chosen);
        cache().swapContents(*fresh);
        setModified();
    });
}

void ZFleetProperties_6_0::undo(char const* path, uint64_t generation)
{
    Rep::notifyLossAfter(*this, [&] {
        Hold const hold(*this);
        char const* const chosen = Rep::chooseFleetPath(*this, path);
        if (isModified() != 0)
            ZPropertiesIOException_6_0(chosen, "undo()", EBUSY)
                .throwException(kSource, raiseForUnsaved);
        Rep::change(*this, chosen,
                    [&] { return rep_->session.undo(chosen, generation, Rep::cacheOf(*this)); });
    });
}

ZFleetProperties_6_0::ZFleetPropertiesFactory::ZFleetPropertiesFactory() = default;
ZFleetProperties_6_0::ZFleetPropertiesFactory::~ZFleetPropertiesFactory() = default;

ZProperties_6_0* ZFleetProperties_6_0::ZFleetPropertiesFactory::makePropertiesInstance()
{
    return new ZFleetProperties_6_0(1);
}

ZFleetProperties_6_0::ZFleetPropertiesFactory* ZFleetProperties_6_0::getFactory()
{
    static ZFleetPropertiesFactory* const factory = new ZFleetPropertiesFactory;
    return factory;
}
