// Serves requests in several threads while the configuration changes. Each thread looks up values
// in a snapshot, without a lock, and takes the next snapshot after a change.
// usage: server FILE
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdio.h>

#include <atomic>
#include <thread>
#include <vector>

#include "published.h"

namespace {

constexpr unsigned kThreads = 4;
constexpr unsigned kRequests = 20000;

// Serves requests; counts the requests that saw values of different configurations.
void serve(Published& published, std::atomic<unsigned>& mixed)
{
    unsigned version = published.version();
    ZPropertiesSnapshot_6_0 config = published.snapshot();
    for (unsigned request = 0; request < kRequests; ++request) {
        if (version != published.version()) {
            version = published.version();
            config = published.snapshot();
        }
        unsigned const low = config.getIntegerValue("limits", "low", 1, 0);
        unsigned const high = config.getIntegerValue("limits", "high", 1, 0);
        if (high != low + 100)
            ++mixed;
    }
}

void setLimits(ZProperties_6_0& store, unsigned low)
{
    store.setIntegerValue("limits", "low", low);
    store.setIntegerValue("limits", "high", low + 100);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: server FILE\n", stderr);
        return 2;
    }
    try {
        ZStanzaFileProperties_6_0 administrator(argv[1], 1);
        setLimits(administrator, 0);
        administrator.store(nullptr);

        ZStanzaFileProperties_6_0 store(argv[1], 0);
        Published published(store);
        std::atomic<unsigned> mixed = 0;
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kThreads; ++i)
            threads.emplace_back([&] { serve(published, mixed); });
        for (unsigned change = 1; change <= 50; ++change) {
            setLimits(administrator, change);
            administrator.store(nullptr);
            store.reload(nullptr);
            published.publish(store);
        }
        for (std::thread& thread : threads)
            thread.join();
        printf("%u requests served, %u from a mixture of configurations\n", kThreads * kRequests,
               mixed.load());
        printf("low = %u, high = %u\n", store.getIntegerValue("limits", "low", 1, 0),
               store.getIntegerValue("limits", "high", 1, 0));
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
