// The contract of stores of stanza files, for a configuration in a cluster, and for a local file
// through the class of the fleets. A test of the foundation has it for its own class.
#include <Z/ZFleetProperties.h>

#include <string>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "StanzaStoreContract.h"

namespace {

class FleetKind {
public:
    using Store = ZFleetProperties_6_0;

    static std::string path() { return "etcd://test/conf"; }
    void write(std::string const& text) { cluster_.put(kText, text); }
    std::string read() const { return cluster_.get(kText); }

private:
    static constexpr char kText[] = "/zfleet/6/cfg/conf/text";

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 60\n"};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(OfFleets, StanzaStoreContract, FleetKind);
INSTANTIATE_TYPED_TEST_SUITE_P(OfLocalFiles, StanzaStoreContract,
                               LocalFileKind<ZFleetProperties_6_0>);
