// The contract of locks between processes, for a lock in a cluster.
#include <Z/ZFleetReadWriteLock.h>
#include <stdlib.h>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "ProcessLockContract.h"

namespace {

class FleetKind {
public:
    using Lock = ZFleetReadWriteLock_6_0;

    static std::unique_ptr<Lock> make() { return std::make_unique<Lock>("etcd://test/orders"); }
    uint32_t sequence() const
    {
        return static_cast<uint32_t>(strtoul(cluster_.get(kSequence).c_str(), nullptr, 10));
    }
    void putSequence(uint32_t number) { cluster_.put(kSequence, std::to_string(number)); }
    std::string held() const
    {
        std::vector<std::string> const entries = cluster_.keys("/zfleet/6/lock/orders/q/");
        if (entries.empty())
            return "free";
        return cluster_.get(entries[0])[0] == 'w' ? "write" : "read";
    }
    // A lock in a cluster has no further property.
    static void checkDetails(Lock const&) {}

private:
    static constexpr char kSequence[] = "/zfleet/6/lock/orders/seq";

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 60\ncall = 1000\n"};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(OfFleets, ProcessLockContract, FleetKind);
