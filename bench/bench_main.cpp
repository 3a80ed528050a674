// The main program of every benchmark: runs the rows, then prints the ratio of the library's time
// to the best peer's for each row, and whether rows with a target reach it. With --check, it prints
// only the rows that miss their target or were not compared, because the contender is not installed
// or not selected; its exit code is 2 if there are any.
//
// A row is named Row/contender/arguments. Its time is the median of its repetitions. Contender "Z"
// is this library. Contenders that start with "floor" are lower bounds that do less than the
// service requires. All others are peers.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr double kNoise = 1.02;  // ratio of two measurements of the same code

// A limit for the library's time, as a multiple of a contender's time.
struct Target {
    char const* row;        // prefix of the row's name, with its arguments
    char const* contender;  // null: the best peer
    double limit;
};

constexpr Target kTargets[] = {
    {"StringMake/", "std.string", 1.3},
    {"StringAppend/", "std.string", 1.3},
    {"StringEquals/", "std.string", 1.3},
    {"StringCompare/", "std.string", 1.3},
    {"Iterate/", "U8_FWD_1", 8.0},
    {"IterateLocal/", "U8_FWD_1", 8.0},
    {"IterateViews/", "U8_FWD_1", 1.5},
    {"Tokenize/ascii", "strspn+strcspn", 2.5},
    {"TokenizeLocal/ascii", "strspn+strcspn", 2.5},
    {"CharCount/ascii", "U8_FWD_1", 0.3},
    {"CharCountLocal/ascii", "U8_FWD_1", 0.3},
    {"CharCount", "U8_FWD_1", 1.0},
    {"Lower", "QByteArray", 0.3},
    {"Upper", "QByteArray", 0.3},
    {"IsAlpha", "libc", 0.8},
    {"CompareIgnoringCase", "libc", 2.0},
    {"ZSnprintf/", "libc", 1.0},
    {"ZSnprintf/literal/", "fmt", 1.1},
    {"ZSnprintf/digit/", "fmt", 1.1},
    {"ZSnprintf/int/", "fmt", 1.1},
    {"ZSnprintf/long/", "fmt", 1.1},
    {"ZSnprintf/char/", "fmt", 1.1},
    {"ZSnprintf/pointer/", "fmt", 1.1},
    {"ZSnprintf/string/", "fmt", 1.1},
    {"ZSnprintf/string_400/", "fmt", 1.1},
    {"ThrowCatchReport/", "std.runtime_error", 1.1},
    {"ThrowAndCatch/", "std.runtime_error+copy", 1.0},
    {"ListAdd/", "std.vector", 1.0},
    {"ListIndex/", "std.vector", 1.0},
    {"ListInsertFront/100/", "QList", 1.5},
    {"ListInsertFront/10000/", "QList", 2.5},
    {"ListRemoveFront/100/", "QList", 1.5},
    {"ListRemoveFront/10000/", "QList", 2.5},
    {"SortStrings/", nullptr, 0.8},
    {"SortCollated/1000000/", nullptr, 0.15},
    {"SortObjects/", nullptr, 1.3},
    {"KeyMapInsert/", "std.unordered_map", 1.5},
    {"KeyMapHit/10000", "std.unordered_map", 1.0},
    {"KeyMapMiss/10000", "std.unordered_map", 1.0},
    {"Adler32/", "zlib", 1.0},
    {"Adler32/", "libdeflate", 1.5},
    {"Squeeze/", "zlib", 1.02},
    {"Unsqueeze/", "zlib", 1.02},
    {"Library/", "dlopen", 1.0},
    {"HexDump/", nullptr, 1.0},
    {"LockUnlock", "std.recursive_mutex", 1.0},
    // The only peer that lets a reader become a writer, as ZReadWriteLock_6_0 does.
    {"ReadLock", "boost.upgrade_mutex", 1.0},
    {"WriteLock", "boost.upgrade_mutex", 1.0},
    {"ProtectAndPromote", "boost.upgrade_mutex", 1.0},
    {"MostlyRead", "boost.upgrade_mutex", 1.0},
    {"PingPong", nullptr, 1.0},
    {"StartAndJoin", nullptr, 1.0},
    {"HandOutWork", nullptr, 1.0},
    {"ProcessLock", "floor", 1.3},
    {"Load/", "GKeyFile+comments", 1.0},
    {"Load/wide/100/", "GKeyFile", 0.8},
    {"Load/wide/1000000/", "floor.arena", 1.3},
    {"Load/one/1000000/", "floor.arena", 1.3},
    {"Load/thin/1000000/", "floor.arena", 1.3},
    {"Load/wide/10000000/", "floor.arena", 1.3},
    {"Load/one/10000000/", "floor.arena", 1.3},
    {"Load/thin/10000000/", "floor.arena", 1.3},
    {"LookUp/", "unordered_map", 1.0},
    {"LookUp/wide/100/", "inih+unordered_map", 1.5},
    {"LookUp/one/100000/", "inih+unordered_map", 0.9},
    {"Walk/", "GKeyFile", 0.8},
    {"Visit/", "floor", 2.0},
    {"ChangeAndStore/", "GKeyFile+comments", 1.0},
    {"StoreText/", "GLib.durable", 0.9},
    {"StoreStanzas/", "GLib.durable", 0.9},
    {"CacheLookUp/", "unordered_map", 1.0},
    {"JavaLoad/", nullptr, 1.0},
    {"JavaLoad/", "java.util.Properties", 0.3},
    {"JavaStore/", "java.util.Properties", 0.3},
    {"ToolStart/", "git config", 1.2},
    {"ToolSet/", "git config", 1.3},
    {"ToolList/", "crudini", 0.02},
};

// A limit for the library's time of a row, as a multiple of its time of another row with the same
// arguments.
struct VariantLimit {
    char const* row;
    char const* base;
    double limit;
};

constexpr VariantLimit kVariantLimits[] = {{"Load.keepLines/", "Load/", 1.5},
                                           {"Load.systemd/", "Load/", 2.5},
                                           {"Load.git/", "Load/", 2.5},
                                           {"SortObjects.sorted/", "SortObjects/", 2.0},
                                           {"SortObjects.reversed/", "SortObjects/", 2.0},
                                           {"SortObjects.organPipe/", "SortObjects/", 2.0},
                                           {"SortObjects.valley/", "SortObjects/", 2.0},
                                           {"SortObjects.sawtooth/", "SortObjects/", 2.0},
                                           {"SortObjects.twoRuns/", "SortObjects/", 2.0},
                                           {"SortObjects.equal/", "SortObjects/", 2.0},
                                           {"SortObjects.alternating/", "SortObjects/", 2.0},
                                           {"SortObjects.fewValues/", "SortObjects/", 2.0},
                                           {"SortObjects.rotated/", "SortObjects/", 2.0},
                                           {"SortObjects.nearlySorted/", "SortObjects/", 2.0},
                                           {"SortObjects.middleKiller/", "SortObjects/", 2.0},
                                           {"SortObjects.medianKiller/", "SortObjects/", 2.0},
                                           {"LookUp.snapshot/", "LookUp/", 1.0},
                                           {"Snapshot.list/", "Snapshot/", 2.0},
                                           {"LookUp.threads2/", "LookUp.threads1/", 1 / 1.9}};

// A limit for the time per key of a large row, as a multiple of the time per key of a small row.
struct Growth {
    char const* row;
    unsigned small;
    unsigned large;
    double limit;
};

constexpr Growth kGrowth[] = {{"Load/", 10000, 1000000, 1.5},
                              {"Load/", 10000, 10000000, 1.5},
                              {"CacheLoad/", 10000, 1000000, 2.5}};

// A limit for a counter of the library's row.
struct CounterLimit {
    char const* row;
    char const* ending;
    char const* counter;
    double limit;
};

constexpr CounterLimit kCounterLimits[] = {{"Load/wide/", "/1000000", "B/key", 90},
                                           {"Load/one/", "/1000000", "B/key", 90},
                                           {"Load/thin/", "/1000000", "B/key", 150},
                                           {"CacheLoad/", "/1000000", "B/key", 170},
                                           {"Memory/", "/1", "B", 1500},
                                           {"Memory/wide/", "/100", "B", 9000},
                                           {"Memory/one/", "/100", "B", 9000}};

bool startsWith(std::string const& text, std::string const& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool endsWith(std::string const& text, std::string const& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool isFloor(std::string const& contender)
{
    return startsWith(contender, "floor");
}

// The times of the contenders of one row.
struct Row {
    std::map<std::string, std::vector<double>> times;  // of each repetition
    benchmark::UserCounters counters;                  // of contender "Z"

    // Returns the median of the repetitions; 0 without any.
    double timeOf(std::string const& contender) const
    {
        auto const at = times.find(contender);
        if (at == times.end())
            return 0;
        std::vector<double> sorted = at->second;
        auto const middle = sorted.begin() + static_cast<ptrdiff_t>(sorted.size() / 2);
        std::nth_element(sorted.begin(), middle, sorted.end());
        return *middle;
    }

    // The name of the fastest peer; empty without peers.
    std::string bestPeer() const
    {
        std::string best;
        for (auto const& [contender, all] : times) {
            if (contender != "Z" && !isFloor(contender) &&
                (best.empty() || timeOf(contender) < timeOf(best)))
                best = contender;
        }
        return best;
    }

    // The time of the fastest floor; 0 without floors.
    double floor() const
    {
        double best = 0;
        for (auto const& [contender, all] : times) {
            if (isFloor(contender) && (best == 0 || timeOf(contender) < best))
                best = timeOf(contender);
        }
        return best;
    }
};

// A console reporter that also records the times.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    explicit RatioReporter(bool isCheck)
        : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular), isCheck_(isCheck)
    {
    }

    bool ReportContext(Context const& context) override
    {
        return isCheck_ || ConsoleReporter::ReportContext(context);
    }

    void ReportRuns(std::vector<Run> const& runs) override
    {
        if (!isCheck_)
            ConsoleReporter::ReportRuns(runs);
        for (Run const& run : runs) {
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
                record(run);
        }
    }

    void printRatios() const
    {
        std::printf("\n%-52s %10s  %s\n", "row", "ratio", "time of Z / time of the best peer");
        for (std::string const& name : order_) {
            Row const& row = rows_.at(name);
            double const ours = row.timeOf("Z");
            if (ours == 0)
                continue;
            std::string const peer = row.bestPeer();
            if (peer.empty()) {
                std::printf("%-52s %10s  no peer installed\n", name.c_str(), "-");
                continue;
            }
            double const ratio = ours / row.timeOf(peer);
            std::printf("%-52s %10.2f  %s%s", name.c_str(), ratio, peer.c_str(),
                        ratio > kNoise ? "  (slower)" : "");
            if (row.floor() != 0)
                std::printf("; %.1f times the floor", ours / row.floor());
            std::printf("\n");
        }
    }

    // Prints the targets of all rows or, for a check, the targets that are missed. Returns whether
    // all are met.
    bool printTargets()
    {
        bool hasHeader = isCheck_;
        for (std::string const& name : order_) {
            Row const& row = rows_.at(name);
            if (row.timeOf("Z") == 0 || !hasTarget(name))
                continue;
            if (!std::exchange(hasHeader, true))
                std::printf("\n%-52s %10s %7s\n", "target", "reached", "limit");
            printTimes(name, row);
            printGrowth(name, row);
            printVariant(name, row);
            for (CounterLimit const& target : kCounterLimits) {
                auto const counter = row.counters.find(target.counter);
                if (startsWith(name, target.row) && endsWith(name, target.ending) &&
                    counter != row.counters.end())
                    checkLimit(name, counter->second, target.limit, target.counter);
            }
        }
        if (isCheck_)
            return missed_.empty();
        if (hasHeader)
            std::printf("%zu of %zu targets met\n", checked_ - missed_.size(), checked_);
        for (std::string const& name : missed_)
            std::printf("  short: %s\n", name.c_str());
        return missed_.empty();
    }

private:
    static bool hasTarget(std::string const& name)
    {
        auto const isOf = [&](auto const& target) { return startsWith(name + "/", target.row); };
        return std::any_of(std::begin(kTargets), std::end(kTargets), isOf) ||
               std::any_of(std::begin(kVariantLimits), std::end(kVariantLimits), isOf) ||
               std::any_of(std::begin(kGrowth), std::end(kGrowth), isOf) ||
               std::any_of(std::begin(kCounterLimits), std::end(kCounterLimits), isOf);
    }

    void printTimes(std::string const& name, Row const& row)
    {
        for (Target const& target : kTargets) {
            if (!startsWith(name + "/", target.row))
                continue;
            std::string const contender =
                target.contender != nullptr ? target.contender : row.bestPeer();
            double const theirs = contender == "floor" ? row.floor() : row.timeOf(contender);
            if (theirs != 0)
                checkLimit(name, row.timeOf("Z") / theirs, target.limit, contender);
            else
                reportUnmeasured(name, target.limit,
                                 contender.empty() ? "the best peer" : contender);
        }
    }

    void printGrowth(std::string const& name, Row const& row)
    {
        for (Growth const& growth : kGrowth) {
            std::string const large = "/" + std::to_string(growth.large);
            if (!startsWith(name, growth.row) || !endsWith(name, large))
                continue;
            std::string const base = name.substr(0, name.size() - large.size());
            auto const small = rows_.find(base + "/" + std::to_string(growth.small));
            std::string const basis = "per key at " + std::to_string(growth.small);
            if (small == rows_.end() || small->second.timeOf("Z") == 0)
                reportUnmeasured(name, growth.limit, basis);
            else
                checkLimit(
                    name,
                    row.timeOf("Z") / growth.large / (small->second.timeOf("Z") / growth.small),
                    growth.limit, basis);
        }
    }

    void printVariant(std::string const& name, Row const& row)
    {
        for (VariantLimit const& variant : kVariantLimits) {
            if (!startsWith(name, variant.row))
                continue;
            std::string const base = variant.base + name.substr(strlen(variant.row));
            auto const found = rows_.find(base);
            if (found == rows_.end() || found->second.timeOf("Z") == 0)
                reportUnmeasured(name, variant.limit, base);
            else
                checkLimit(name, row.timeOf("Z") / found->second.timeOf("Z"), variant.limit, base);
        }
    }

    // Records that a row was not compared with `base`, which was not measured. A check fails then.
    void reportUnmeasured(std::string const& name, double limit, std::string const& base)
    {
        std::printf("%-52s %10s %7.2f  %s: not measured\n", name.c_str(), "-", limit, base.c_str());
        if (isCheck_)
            missed_.push_back(name + " (" + base + ")");
    }

    // `base` names the contender or quantity that `reached` is relative to.
    void checkLimit(std::string const& name, double reached, double limit, std::string const& base)
    {
        ++checked_;
        bool const met = reached <= limit * kNoise;
        if (!isCheck_ || !met)
            std::printf("%-52s %10.2f %7.2f  %s: %s\n", name.c_str(), reached, limit, base.c_str(),
                        met ? "met" : "short");
        if (!met)
            missed_.push_back(name + " (" + base + ")");
    }

    // Rows that wait use wall time. All others use CPU time, which other programs disturb less. A
    // contender that runs in its own process reports its time itself.
    static double timeOf(Run const& run)
    {
        std::string const name = run.benchmark_name();
        bool const waits =
            name.find("/real_time") != name.npos || name.find("/manual_time") != name.npos;
        return waits ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
    }

    void record(Run const& run)
    {
        std::string name = run.benchmark_name();
        // Settings of the run follow the arguments.
        for (char const* setting : {"/min_time:", "/iterations:", "/real_time", "/manual_time",
                                    "/threads:", "/process_time"})
            if (size_t const at = name.find(setting); at != std::string::npos)
                name.erase(at);
        size_t const first = name.find('/');
        if (first == std::string::npos)
            return;
        size_t const second = name.find('/', first + 1);
        std::string const contender = name.substr(first + 1, second - first - 1);
        std::string const key =
            name.substr(0, first) + (second == std::string::npos ? "" : name.substr(second));
        if (rows_.find(key) == rows_.end())
            order_.push_back(key);
        Row& row = rows_[key];
        row.times[contender].push_back(timeOf(run));
        if (contender == "Z")
            row.counters = run.counters;
    }

    bool const isCheck_;  // prints only missed targets
    std::map<std::string, Row> rows_;
    std::vector<std::string> order_;
    size_t checked_ = 0;
    std::vector<std::string> missed_;
};

}  // namespace

int main(int argc, char** argv)
{
    constexpr int kMissed = 2;  // the exit code of a check
    setenv("QVRDIR", Z_TABLES, 0);
    char** const end = std::remove_if(argv + 1, argv + argc,
                                      [](char const* text) { return !strcmp(text, "--check"); });
    bool const isCheck = end != argv + argc;
    argc = static_cast<int>(end - argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter(isCheck);
    if (benchmark::RunSpecifiedBenchmarks(&reporter) == 0)
        return 1;  // the filter matches no row
    if (!isCheck)
        reporter.printRatios();
    bool const met = reporter.printTargets();
    return isCheck && !met ? kMissed : 0;
}
