// The crash program: interrupts stores of configuration files by kills, power cuts and failing
// calls, and checks that nothing was lost. `./dev crash` runs all of it, the tests a share.
//
//     crash [--share] [NAME…]         runs the campaigns whose names contain one of NAMEs, in each
//                                     mode of storing; the name of a mode selects all of it.
//                                     The share of the last mode is two campaigns
//
// Exit code 0: every outcome is a promised one.
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"

namespace {

constexpr Campaign kCampaigns[] = {
    {"kill at every call of a store", killAtEveryCall},
    {"kill at random, on disk", killAtRandomOnDisk},
    {"kill at random, in memory", killAtRandomInMemory},
    {"fault in every call", failEveryCall},
    {"full disk, tmpfs", fillMemoryDisk},
    {"full disk, ext4", fillDisk},
    {"file size limit", limitFileSize},
    {"power cut", cutPower},
    {"power cut after an edit", cutPowerAfterAnEdit},
    {"other programs", storeAmongPrograms},
    {"other programs, kills", killAmongPrograms},
    {"odd files", storeAmongOddFiles},
    {"persistent causes", failPersistently},
    {"persistent causes, process locks", failLocksPersistently, false},
    {"lasting obstacles", storeWithObstacles},
    {"rights", checkRights},
    {"replaced during a store", replaceDuringStores},
    {"readers without locks", readWithoutLocks},
    {"directory's owner attacks", attackRoot},
};

std::vector<StoreMode> modes()
{
    if (CanReplace<ZStanzaFileProperties_6_0>)
        return {StoreMode::inPlace, StoreMode::replacing, StoreMode::keptLines,
                StoreMode::keptLinesReplacing};
    return {StoreMode::inPlace};
}

char const* nameOf(StoreMode mode)
{
    switch (mode) {
        case StoreMode::inPlace:
            return "in place";
        case StoreMode::replacing:
            return "replacing";
        case StoreMode::keptLines:
            return "kept";
        case StoreMode::keptLinesReplacing:
            return "kept, replacing";
    }
    return "";
}

double now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Shows the progress of a campaign: continuously on a terminal, every 15 seconds elsewhere.
class Progress {
public:
    explicit Progress(char const* name) : name_(name) {}

    void show(Counts const& counts)
    {
        double const time = now();
        if (time < next_)
            return;
        next_ = time + (terminal_ ? 0.2 : 15);
        std::fprintf(stderr, "%s%s: %ld of %ld, %ld bad%s", terminal_ ? "\r" : "", name_,
                     counts.events.load(), counts.planned.load(), counts.bad.load(),
                     terminal_ ? "   " : "\n");
    }

    ~Progress()
    {
        if (terminal_)
            std::fprintf(stderr, "\r%70s\r", "");
    }

private:
    char const* const name_;
    bool const terminal_ = isatty(STDERR_FILENO) == 1;
    double next_ = now() + 0.2;
};

void run(Campaign const& campaign, StoreMode mode, Counts& counts, Extent extent)
{
    pid_t const child = inChild([&] {
        Generation::setMode(mode);
        campaign.run(counts, extent);
        return 0;
    });
    Progress progress(campaign.name);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        progress.show(counts);
        usleep(20000);
    }
    if (status != 0)
        complain(counts, std::string(campaign.name) + " ended early");
    else if (counts.events == 0 && !counts.isSkipped)
        complain(counts, std::string(campaign.name) + " did nothing");
}

// A name selects a campaign or a mode.
bool isWanted(Campaign const& campaign, StoreMode mode, Extent extent,
              std::vector<std::string> const& names)
{
    bool const isShort = campaign.run == killAtEveryCall || campaign.run == failEveryCall;
    if (extent == Extent::share && mode == StoreMode::keptLinesReplacing && !isShort)
        return false;
    for (std::string const& name : names)
        if (name == nameOf(mode) || std::strstr(campaign.name, name.c_str()) != nullptr)
            return true;
    return names.empty();
}

int runAll(Extent extent, std::vector<std::string> const& names)
{
    struct Row {
        char const* name;
        char const* mode;
        Counts* counts;
        double seconds;
    };
    std::vector<Row> rows;
    for (StoreMode const mode : modes())
        for (Campaign const& campaign : kCampaigns) {
            if (!isWanted(campaign, mode, extent, names) ||
                (!campaign.stores && mode != StoreMode::inPlace))
                continue;
            Counts& counts = shared<Counts>();
            double const start = now();
            run(campaign, mode, counts, extent);
            char const* const name = campaign.stores ? nameOf(mode) : "";
            rows.push_back({campaign.name, name, &counts, now() - start});
        }
    if (rows.empty()) {
        std::fprintf(stderr, "crash: no campaign with this name; use part of one of these:\n");
        for (Campaign const& campaign : kCampaigns)
            std::fprintf(stderr, "  %s\n", campaign.name);
        for (StoreMode const mode : modes())
            std::fprintf(stderr, "  %s (all campaigns that store so)\n", nameOf(mode));
        return 2;
    }

    long bad = 0;
    std::printf("%-32s %-15s %8s %8s %8s %5s %6s %6s\n", "campaign", "mode", "cases", "old", "new",
                "torn", "failed", "s");
    for (Row const& row : rows) {
        Counts const& counts = *row.counts;
        std::printf("%-32s %-15s ", row.name, row.mode);
        if (counts.isSkipped)
            std::printf("skipped: %s\n", counts.note);
        else
            std::printf("%8ld %8ld %8ld %5ld %6ld %6.1f%s%s\n", counts.events.load(),
                        counts.olds.load(), counts.news.load(), counts.torn.load(),
                        counts.bad.load(), row.seconds, counts.note[0] != '\0' ? "  " : "",
                        counts.note);
        bad += counts.bad;
    }
    std::printf("%s\n", bad == 0 ? "nothing was lost" : "THERE WERE BAD OUTCOMES");
    return bad == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    setenv("QVRDIR", Z_TABLES, 0);
    Extent extent = Extent::full;
    std::vector<std::string> names;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--share") == 0)
            extent = Extent::share;
        else
            names.emplace_back(argv[i]);
    }
    return runAll(extent, names);
}
