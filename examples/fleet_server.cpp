// Serves requests in several threads while a configuration changes in a cluster, or in a local
// file. Each thread looks up values in a snapshot, without a lock; the main thread waits for
// changes and publishes the next snapshot. The server stops when the configuration contains a key
// "stop". usage: fleet_server PATH    PATH is etcd://FLEET/NAME or the path of a stanza file
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <poll.h>
#include <stdio.h>

#include <atomic>
#include <thread>
#include <vector>

#include "published.h"

namespace {

struct Totals {
    std::atomic<unsigned long> requests = 0;
    std::atomic<unsigned long> mixed = 0;  // saw values of different configurations
    std::atomic<unsigned long> older = 0;  // saw an older configuration than the request before
};

constexpr unsigned kThreads = 16;
constexpr int kLookInterval = 50;  // milliseconds, for a local file

void serve(Published& published, Totals& totals)
{
    unsigned version = published.version();
    ZPropertiesSnapshot_6_0 config = published.snapshot();
    unsigned last = 0;
    for (;;) {
        if (version != published.version()) {
            version = published.version();
            config = published.snapshot();
        }
        unsigned const low = config.getIntegerValue("limits", "low", 1, 0);
        unsigned const high = config.getIntegerValue("limits", "high", 1, 0);
        ++totals.requests;
        if (high != low + 100)
            ++totals.mixed;
        if (low < last)
            ++totals.older;
        last = low;
        if (config.exists("server", "stop") != 0)
            return;
    }
}

// Waits for a change of the configuration, and loads it.
void waitForChange(ZFleetProperties_6_0& store, char const* path)
{
    // A local file has no descriptor: poll() only waits then.
    pollfd wait = {store.descriptor(), POLLIN, 0};
    poll(&wait, 1, wait.fd < 0 ? kLookInterval : -1);
    try {
        if (wait.fd < 0)
            ZProperties_6_0::getPropertiesFor(path, *ZFleetProperties_6_0::getFactory(), 0);
        else
            store.processChanges();
    } catch (ZPropertiesIOException_6_0& e) {
        // Another process is storing the local file: the next look finds its changes.
        if (e.excerrno() != EAGAIN && e.excerrno() != EACCES)
            e.dumpException();
    } catch (ZPropertiesException_6_0& e) {
        e.dumpException();  // the old contents stay until the configuration can be read again
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: fleet_server PATH\n", stderr);
        return 2;
    }
    try {
        auto& store = dynamic_cast<ZFleetProperties_6_0&>(
            *ZProperties_6_0::getPropertiesFor(argv[1], *ZFleetProperties_6_0::getFactory(), 0));
        store.descriptor();  // changes from now on wake poll()
        Published published(store);
        Totals totals;
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kThreads; ++i)
            threads.emplace_back([&] { serve(published, totals); });
        puts("serving");
        fflush(stdout);
        unsigned changes = 0;
        while (store.exists("server", "stop") == 0) {
            waitForChange(store, argv[1]);
            if (published.publish(store))
                ++changes;
        }
        for (std::thread& thread : threads)
            thread.join();
        printf("%lu requests in %u threads, %u changes\n", totals.requests.load(), kThreads,
               changes);
        printf("%lu from a mixture of configurations, %lu from an older one\n", totals.mixed.load(),
               totals.older.load());
        printf("low = %u, high = %u\n", store.getIntegerValue("limits", "low", 1, 0),
               store.getIntegerValue("limits", "high", 1, 0));
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
