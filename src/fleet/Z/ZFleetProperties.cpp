#include "ZFleetProperties.h"

#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>

#include <memory>
#include <string>
#include <vector>

#include "configuration/parsing.h"
#include "configuration/path.h"
#include "configuration/session.h"
#include "translate_failures.h"

namespace {

constexpr char kSource[] = "src/fleet/Z/ZFleetProperties";
enum RaiseSite { raiseForPath = 1, raiseForPolicy };

bool isEmpty(char const* text)
{
    return text == nullptr || *text == 0;
}

}  // namespace

struct ZFleetProperties_6_0::Rep {
    static char const* choosePath(ZFleetProperties_6_0 const& store, char const* path);
    static ZSCFData_6_0& cacheOf(ZFleetProperties_6_0 const& store);
    static void load(ZFleetProperties_6_0& store, char const* path);
    static void sendDifferences(ZFleetProperties_6_0& store, zfleet::AllValues const& before,
                                zfleet::AllValues const& after);

    zfleet::Session session;
    std::vector<zfleet::Conflict> conflicts;  // of the last store
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
    store.rep_->conflicts.clear();
    store.resetModified();
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
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    if (!zfleet::isFleetPath(chosen)) {
        ZStanzaFileProperties_6_0::store(chosen);
        return;
    }
    zfleet::translateFailures(kSource, chosen, [&] {
        ZSCFData_6_0& cache = Rep::cacheOf(*this);
        rep_->conflicts.clear();
        try {
            zfleet::Session::Stored const stored =
                rep_->session.store(chosen, zfleet::formatContents(cache), cache);
            setFileName(chosen);
            resetModified();
            if (!stored.isMerged)
                return;
            std::unique_ptr<ZSCFData_6_0> const merged =
                zfleet::parseContents(chosen, stored.contents, cache);
            Rep::sendDifferences(*this, zfleet::valuesOf(cache), zfleet::valuesOf(*merged));
            cache.swapContents(*merged);
            rep_->session.acceptMerge(chosen);
            postLoad(chosen);
        } catch (zfleet::ConflictError const& error) {
            rep_->conflicts = error.conflicts;
            throw;
        }
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

void ZFleetProperties_6_0::conflicts(ZArrayList_6_0& out) const
{
    Hold const hold(*this);
    for (zfleet::Conflict const& conflict : rep_->conflicts)
        out.add(new ZFleetConflict_6_0(conflict.stanza.c_str(), conflict.key.c_str()));
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
