// The main program of every benchmark: runs the rows, then prints for each how our time compares
// with the best peer's.
//
// A row is named Row/contender/arguments: contender "Z" is ours, names that begin with "floor" are
// no peers (they do less than the service asks for), every other one is a peer.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

struct Group {
    double ours = 0;
    double best = 0;
    double floor = 0;
    std::string bestName;
};

// Prints what the console reporter prints, and remembers the times.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(std::vector<Run> const& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (Run const& run : runs)
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
                note(run.benchmark_name(), run.GetAdjustedRealTime());
    }

    void printRatios() const
    {
        std::printf("\n%-52s %10s  %s\n", "row", "ratio", "our time by the best peer's");
        for (std::string const& key : order_) {
            Group const& group = groups_.at(key);
            if (group.ours == 0)
                continue;
            if (group.best == 0) {
                std::printf("%-52s %10s  no peer installed\n", key.c_str(), "-");
                continue;
            }
            std::printf("%-52s %10.2f  %s%s", key.c_str(), group.ours / group.best,
                        group.bestName.c_str(), group.ours > group.best * 1.02 ? "  (behind)" : "");
            if (group.floor != 0)
                std::printf("; %.1f times the floor", group.ours / group.floor);
            std::printf("\n");
        }
    }

private:
    void note(std::string name, double time)
    {
        // Settings of the run stand behind the arguments.
        for (char const* setting :
             {"/min_time:", "/iterations:", "/real_time", "/threads:", "/process_time"})
            if (size_t const at = name.find(setting); at != std::string::npos)
                name.erase(at);
        size_t const first = name.find('/');
        if (first == std::string::npos)
            return;
        size_t const second = name.find('/', first + 1);
        std::string const contender = name.substr(first + 1, second - first - 1);
        std::string const key =
            name.substr(0, first) + (second == std::string::npos ? "" : name.substr(second));
        if (groups_.find(key) == groups_.end())
            order_.push_back(key);
        Group& group = groups_[key];
        double& slot = contender == "Z"                   ? group.ours
                       : contender.rfind("floor", 0) == 0 ? group.floor
                                                          : group.best;
        if (slot != 0 && slot <= time)
            return;
        slot = time;
        if (&slot == &group.best)
            group.bestName = contender;
    }

    std::map<std::string, Group> groups_;
    std::vector<std::string> order_;
};

}  // namespace

int main(int argc, char** argv)
{
    setenv("QVRDIR", Z_TABLES, 0);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    return 0;
}
