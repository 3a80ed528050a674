#include "transport/transport_module.h"

#include <utility>

extern "C" zfleet::ClusterInterface* zfleetOpenCluster_6_0(zfleet::Settings settings);

extern "C" zfleet::ClusterInterface* zfleetOpenCluster_6_0(zfleet::Settings settings)
{
    return zfleet::openCluster(std::move(settings)).release();
}
