// Stores that are killed at random moments, with files of 0 to 200 KB and a companion.
#include <fcntl.h>
#include <signal.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "StoreDirectory.h"
#include "Writer.h"

namespace {

constexpr int kWorkers = 2;
constexpr size_t kLargest = 200000;

// Kills one writer after another, each after 0.3 to 12 ms.
void killWriters(Counts& counts, std::string const& under, long kills, unsigned seed)
{
    TestDirectory const place(under);
    StoreDirectory const target(place.path());
    std::minstd_rand random(seed);
    Generation last(1, 1000, true);
    target.reset(last);
    for (long i = 0; i < kills; ++i) {
        Writer writer(target.path(), last.number(), kLargest);
        usleep(300 + random() % 11700);
        std::string const event = "kill " + std::to_string(i) + " of " + std::to_string(seed);
        if (!writer.kill())
            complain(counts, event + ": a store failed before the kill");
        target.checkModes(counts, event);
        long const found = target.judge(counts, writer.acknowledged(), writer.inFlight(), event);
        if (found < 0)
            target.reset(last = Generation(found + 2, 1000, true));
        else
            last = found == writer.inFlight().number() ? writer.inFlight() : writer.acknowledged();
        // Every second writer starts from the files of the killed one, the others from a complete
        // store.
        if (i % 2 == 0) {
            last = Writer::generation(last.number() + 1, kLargest);
            target.tidy(counts, last, event);
        }
    }
}

void killAtRandom(Counts& counts, std::string const& under, long kills)
{
    counts.planned = kills;
    std::vector<pid_t> workers;
    for (int i = 0; i < kWorkers; ++i)
        workers.push_back(inChild([&] {
            killWriters(counts, under, kills / kWorkers, static_cast<unsigned>(i + 1));
            return 0;
        }));
    for (pid_t const worker : workers)
        if (ended(worker) != 0)
            complain(counts, "a worker ended early");
}

std::string kindOf(std::string const& directory)
{
    struct statfs status;
    if (statfs(directory.c_str(), &status) != 0)
        return "?";
    switch (status.f_type) {
        case 0xEF53:
            return "ext4";
        case 0x01021994:
            return "tmpfs";
        case 0x58465342:
            return "xfs";
        case 0x9123683E:
            return "btrfs";
        case 0x794C7630:
            return "overlay";
        default:
            return "type " + std::to_string(status.f_type);
    }
}

}  // namespace

void killAtRandomOnDisk(Counts& counts, Extent extent)
{
    remark(counts, "/tmp is on " + kindOf("/tmp"));
    killAtRandom(counts, "/tmp", extent == Extent::full ? 20000 : 200);
}

void killAtRandomInMemory(Counts& counts, Extent extent)
{
    if (access("/dev/shm", W_OK) != 0)
        return skip(counts, "/dev/shm is missing");
    killAtRandom(counts, "/dev/shm", extent == Extent::full ? 5000 : 100);
}
