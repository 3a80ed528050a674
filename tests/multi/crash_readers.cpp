// Stores beside programs that read the file without any lock: which share of them sees a text that
// is of no single store.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "TestDirectory.h"

namespace {

// What the processes share.
struct Common {
    std::atomic<bool> stop{false};
    std::atomic<long> stores{0};
    std::atomic<long> whole{0};      // reads by a single call
    std::atomic<long> pieces{0};     // reads by several calls
    std::atomic<long> tornWhole{0};  // of those, with a text of no single store
    std::atomic<long> tornPieces{0};
    std::atomic<long> missing{0};  // there was no file
};

constexpr size_t kLargest = 20000;
constexpr size_t kPiece = 4096;
constexpr double kMostTorn = 10;  // of a hundred reads, beside stores in place

bool readWithoutLock(std::string const& path, size_t piece, std::string& text)
{
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    std::string block(piece, '\0');
    text.clear();
    for (ssize_t n; (n = read(fd, block.data(), piece)) > 0;)
        text.append(block, 0, static_cast<size_t>(n));
    close(fd);
    return true;
}

void readOnce(Common& common, std::string const& path, bool inPieces)
{
    std::string text;
    if (!readWithoutLock(path, inPieces ? kPiece : 2 * kLargest, text)) {
        ++common.missing;
        return;
    }
    if (!Generation::isWhole(text))
        ++(inPieces ? common.tornPieces : common.tornWhole);
    ++(inPieces ? common.pieces : common.whole);
}

double share(long part, long all)
{
    return 100.0 * static_cast<double>(part) / static_cast<double>(all > 0 ? all : 1);
}

}  // namespace

void readWithoutLocks(Counts& counts, Extent extent)
{
    long const reads = extent == Extent::full ? 100000 : 3000;
    counts.planned = reads;
    TestDirectory const place(TestDirectory::Place::memory);
    std::string const path = place.write("conf", Generation(1, 1000, false).text());
    auto& common = shared<Common>();
    std::vector<pid_t> processes;
    processes.push_back(inChild([&] {
        for (long number = 2; !common.stop; ++number) {
            Generation(number, static_cast<size_t>(number) * 7919 % kLargest, false).store(path);
            ++common.stores;
        }
        return 0;
    }));
    for (bool inPieces : {false, true})
        processes.push_back(inChild([&] {
            while (!common.stop)
                readOnce(common, path, inPieces);
            return 0;
        }));
    auto const read = [&] { return common.whole + common.pieces + common.missing; };
    while ((counts.events = read()) < reads)
        usleep(1000);
    common.stop = true;
    for (pid_t const each : processes)
        if (ended(each) != 0)
            complain(counts, "a process did not get to its end");

    if (common.stores == 0 || common.whole == 0 || common.pieces == 0)
        complain(counts, "a process never got a turn");
    if (common.missing > 0)
        complain(counts, "reads without a file: " + std::to_string(common.missing));
    double const most = Generation::isReplacing() ? 0 : kMostTorn;
    if (share(common.tornWhole, common.whole) > most ||
        share(common.tornPieces, common.pieces) > most)
        complain(counts, "too many torn reads");
    char note[160];
    std::snprintf(
        note, sizeof note,
        "stores %ld; torn in one call %ld of %ld (%.2f %%), in pieces %ld of %ld (%.2f %%)",
        common.stores.load(), common.tornWhole.load(), common.whole.load(),
        share(common.tornWhole, common.whole), common.tornPieces.load(), common.pieces.load(),
        share(common.tornPieces, common.pieces));
    remark(counts, note);
}
