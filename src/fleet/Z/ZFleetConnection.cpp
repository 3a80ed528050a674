#include "ZFleetConnection.h"

#include <Z/ZException.h>

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

// The connections of the process by the names of their fleets. The registry lives as long as the
// process, so that destructors of static objects can release connections.
struct Registry {
    std::mutex mutex;
    std::map<std::string, ZFleetConnection_6_0*> connections;  // guarded by mutex
};

Registry& registry()
{
    static Registry* const connections = new Registry;
    return *connections;
}

}  // namespace

ZFleetConnection_6_0* ZFleetConnection_6_0::open(char const* fleet)
{
    if (fleet == nullptr || *fleet == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInOpen);
    Registry& known = registry();
    std::lock_guard<std::mutex> const guard(known.mutex);
    auto const found = known.connections.find(fleet);
    if (found != known.connections.end()) {
        ++found->second->rep_->references;
        return found->second;
    }
    try {
        std::unique_ptr<ZFleetConnection_6_0> connection(new ZFleetConnection_6_0(fleet));
        known.connections.emplace(fleet, connection.get());
        return connection.release();
    } catch (std::bad_alloc const&) {
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInOpen);
    }
    return nullptr;  // not reached
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
    std::lock_guard<std::mutex> const guard(registry().mutex);
    ++rep_->references;
}

void ZFleetConnection_6_0::release()
{
    {
        Registry& known = registry();
        std::lock_guard<std::mutex> const guard(known.mutex);
        if (--rep_->references > 0)
            return;
        known.connections.erase(fleet());
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
    zfleet::Cluster& cluster = rep_->cluster;
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
