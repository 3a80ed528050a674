#include "ZFleetConnection.h"

#include <Z/ZException.h>
#include <pthread.h>

#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "ZFleetConnection_p.h"
#include "transport/failure.h"

namespace {

constexpr char kSource[] = "src/fleet/Z/ZFleetConnection";
enum RaiseSite { raiseInOpen = 1, raiseForEndpoint, raiseInCheckEndpoint };

std::mutex registryMutex;  // innermost: only operations of the map run under it

// The connections of the process by the names of their fleets, locked in the scope of this object.
// A child of fork() gets them unlocked.
class Registry {
public:
    Registry() : guard_(prepared()) {}

    std::map<std::string, ZFleetConnection_6_0*>& connections() const
    {
        // It lives as long as the process, so that destructors of static objects can use it.
        static auto* const all = new std::map<std::string, ZFleetConnection_6_0*>;
        return *all;
    }

private:
    static std::mutex& prepared()
    {
        static pthread_once_t once = PTHREAD_ONCE_INIT;
        pthread_once(&once, [] {
            pthread_atfork([] { registryMutex.lock(); }, [] { registryMutex.unlock(); },
                           [] { registryMutex.unlock(); });
        });
        return registryMutex;
    }

    std::lock_guard<std::mutex> const guard_;
};

}  // namespace

ZFleetConnection_6_0* ZFleetConnection_6_0::open(char const* fleet)
{
    if (fleet == nullptr || *fleet == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInOpen);
    if (ZFleetConnection_6_0* const known = Rep::find(fleet))
        return known;
    try {
        // This reads files, so it is done without the registry.
        std::unique_ptr<ZFleetConnection_6_0> fresh(new ZFleetConnection_6_0(fleet));
        Registry const registry;
        auto const [at, isNew] = registry.connections().emplace(fleet, fresh.get());
        if (isNew)
            return fresh.release();
        ++at->second->rep_->references;
        return at->second;
    } catch (std::bad_alloc const&) {
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInOpen);
    } catch (zfleet::CallError const& error) {
        ZPropertiesIOException_6_0((std::string("etcd://") + fleet).c_str(), error.call.c_str(),
                                   error.error)
            .throwException(kSource, raiseInOpen);
    }
    return nullptr;  // not reached
}

// Returns an existing connection with a new reference, or null.
ZFleetConnection_6_0* ZFleetConnection_6_0::Rep::find(char const* fleet)
{
    Registry const registry;
    auto const found = registry.connections().find(fleet);
    if (found == registry.connections().end())
        return nullptr;
    ++found->second->rep_->references;
    return found->second;
}

ZFleetConnection_6_0::ZFleetConnection_6_0(char const* fleet)
    : rep_(new Rep(zfleet::readSettings(fleet)))
{
}

ZFleetConnection_6_0::~ZFleetConnection_6_0()
{
    delete rep_;
}

void ZFleetConnection_6_0::addReference()
{
    Registry const registry;
    ++rep_->references;
}

void ZFleetConnection_6_0::release()
{
    {
        Registry const registry;
        if (--rep_->references > 0)
            return;
        registry.connections().erase(fleet());
    }
    delete this;
}

char const* ZFleetConnection_6_0::fleet() const
{
    return rep_->cluster.settings().fleet.c_str();
}

char const* ZFleetConnection_6_0::prefix() const
{
    return rep_->cluster.settings().prefix.c_str();
}

unsigned ZFleetConnection_6_0::endpointCount() const
{
    return static_cast<unsigned>(rep_->cluster.settings().endpoints.size());
}

char const* ZFleetConnection_6_0::endpoint(unsigned index) const
{
    if (index >= endpointCount())
        ZInvalidParameterException_6_0().throwException(kSource, raiseForEndpoint);
    return rep_->cluster.settings().endpoints[index].c_str();
}

void ZFleetConnection_6_0::checkEndpoint(unsigned index, ZFleetMember_6_0& member) const
{
    endpoint(index);
    zfleet::ClusterInterface& cluster = rep_->cluster;
    try {
        zfleet::Budget budget(cluster.settings().callTimeout);
        zfleet::Header const header = cluster.probe(index, budget);
        member = {header.cluster, header.member, header.term, header.revision};
    } catch (zfleet::CallError const& error) {
        ZPropertiesIOException_6_0((std::string("etcd://") + fleet()).c_str(), error.call.c_str(),
                                   error.error)
            .throwException(kSource, raiseInCheckEndpoint);
    }
}
