// transport_module: the interface of libzfleet-grpc, the module of libzfleet that has the calls.
//
// Both are built together and installed in one directory. They share plain values, abstract classes
// and CallError.
#pragma once

#include "transport/cluster_interface.h"

namespace zfleet {

inline constexpr char kTransportModule[] = "libzfleet-grpc-6.0.so.0";
inline constexpr char kOpenFunction[] = "zfleetOpenCluster_6_0";

/// Returns a cluster, which the caller deletes.
using OpenFunction = ClusterInterface*(Settings settings);

}  // namespace zfleet
