// The hidden state of a connection.
#pragma once

#include <memory>

#include "ZFleetConnection.h"
#include "transport/cluster_interface.h"

struct ZFleetConnection_6_0::Rep {
    explicit Rep(zfleet::Settings settings)
        : opened(zfleet::openCluster(std::move(settings))), cluster(*opened)
    {
    }

    static ZFleetConnection_6_0* find(char const* fleet);

    std::unique_ptr<zfleet::ClusterInterface> const opened;
    zfleet::ClusterInterface& cluster;
    unsigned references = 1;  // guarded by the mutex of the registry
};
