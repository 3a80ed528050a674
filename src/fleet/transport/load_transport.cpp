// Loads the transport of libzfleet with the first cluster: programs that only use local files do
// not load gRPC and its libraries.
#include <dlfcn.h>
#include <errno.h>

#include <utility>

#include "transport/cluster_interface.h"
#include "transport/failure.h"
#include "transport/transport_module.h"

namespace zfleet {

namespace {

// Returns the function of the module that opens a cluster. The RUNPATH of this library leads to the
// module in the same directory.
OpenFunction* loadTransport()
{
    void* const module = dlopen(kTransportModule, RTLD_NOW | RTLD_LOCAL);
    void* const function = module == nullptr ? nullptr : dlsym(module, kOpenFunction);
    if (function == nullptr)
        throw CallError{std::string("dlopen(") + kTransportModule + ")", ELIBACC, false, dlerror()};
    return reinterpret_cast<OpenFunction*>(function);
}

}  // namespace

std::unique_ptr<ClusterInterface> openCluster(Settings settings)
{
    // The module stays loaded: it cannot be unloaded.
    static OpenFunction* const open = loadTransport();
    return std::unique_ptr<ClusterInterface>(open(std::move(settings)));
}

}  // namespace zfleet
