// The hidden state of a connection.
#pragma once

#include "ZFleetConnection.h"
#include "transport/cluster.h"

struct ZFleetConnection_6_0::Rep {
    explicit Rep(zfleet::Settings settings) : cluster(std::move(settings)) {}

    static ZFleetConnection_6_0* find(char const* fleet);

    zfleet::Cluster cluster;
    unsigned references = 1;  // guarded by the mutex of the registry
};
