// Stores alongside programs that read the file without a lock: the share of their reads that find a
// torn text.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "TestDirectory.h"

namespace {

// Reads of one kind.
struct Reads {
    std::atomic<long> all{0};
    std::atomic<long> torn{0};   // with parts of more than one store
    std::atomic<long> again{0};  // with the same torn text as the read before; not in `torn`
};

// In memory that all processes share.
struct Common {
    std::atomic<bool> stop{false};
    std::atomic<long> stores{0};
    std::atomic<long> missing{0};  // reads without a file
    Reads whole;                   // by a single call
    Reads pieces;                  // by several calls
};

constexpr size_t kLargest = 20000;
constexpr size_t kPiece = 4096;
// Percent of the reads during stores in place. If a writer loses its processor during a rewrite,
// all reads of the next milliseconds find the same torn text: up to 7 % of the reads. The text is
// counted once; then 0.02 to 0.18 % are torn, on an idle machine and with eight busy processes.
constexpr double kMaxTorn = 1;
constexpr long kMinStores = 200;

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

// Reads until all processes stop.
void keepReading(Common& common, std::string const& path, bool inPieces)
{
    Reads& reads = inPieces ? common.pieces : common.whole;
    std::string text;
    for (std::string before; !common.stop; before.swap(text)) {
        if (!readWithoutLock(path, inPieces ? kPiece : 2 * kLargest, text)) {
            ++common.missing;
            continue;
        }
        if (!Generation::isWhole(text))
            ++(text == before ? reads.again : reads.torn);
        ++reads.all;
    }
}

double share(Reads const& reads)
{
    return 100.0 * static_cast<double>(reads.torn) /
           static_cast<double>(std::max(reads.all.load(), 1L));
}

std::string described(char const* kind, Reads const& reads)
{
    char text[80];
    std::snprintf(text, sizeof text, "; %s %ld, torn %ld (%.2f %%), again %ld", kind,
                  reads.all.load(), reads.torn.load(), share(reads), reads.again.load());
    return text;
}

}  // namespace

void readWithoutLocks(Counts& counts, Extent extent)
{
    long const reads = extent == Extent::full ? 100000 : 20000;
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
            keepReading(common, path, inPieces);
            return 0;
        }));
    auto const read = [&] { return common.whole.all + common.pieces.all + common.missing; };
    while ((counts.events = read()) < reads || common.stores < kMinStores)
        usleep(1000);
    common.stop = true;
    for (pid_t const each : processes)
        if (ended(each) != 0)
            complain(counts, "a process ended early");

    if (common.whole.all == 0 || common.pieces.all == 0)
        complain(counts, "a process never stored or read");
    if (common.missing > 0)
        complain(counts, "reads without a file: " + std::to_string(common.missing));
    counts.torn = common.whole.torn + common.pieces.torn;
    double const max = Generation::isReplacing() ? 0 : kMaxTorn;
    if (share(common.whole) > max || share(common.pieces) > max)
        complain(counts, "too many torn reads");
    remark(counts, "stores " + std::to_string(common.stores) +
                       described("in one call", common.whole) +
                       described("in pieces", common.pieces));
}
