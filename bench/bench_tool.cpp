// The tool: whole processes that read and change a file, next to other programs on the same file.
//
// The file is below TMPDIR. A store of the tool waits for the disk, as docs/durability.md promises;
// `git config` does not. To compare the work of the processors, set TMPDIR to a file system in
// memory.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "generated_file.h"
#include "run_program.h"

namespace {

using Arguments = std::vector<std::string>;

// A file of "wide" shape, which every program reads.
class SharedFile {
public:
    explicit SharedFile(size_t keys)
        : path_((std::filesystem::temp_directory_path() /
                 ("bench_tool" + std::to_string(getpid()) + "-" + std::to_string(keys) + ".ini"))
                    .string())
    {
        std::ofstream(path_) << generatedFile(kShapes[0], keys).text;
    }
    SharedFile(SharedFile const&) = delete;
    SharedFile& operator=(SharedFile const&) = delete;
    ~SharedFile() { std::filesystem::remove(path_); }

    std::string const& path() const { return path_; }

private:
    std::string path_;
};

// Returns the path of the file of that many keys. Writes each file once.
std::string const& fileOf(size_t keys)
{
    static SharedFile const small(100);
    static SharedFile const large(100000);
    return (keys == 100 ? small : large).path();
}

// Runs a program once and returns its time in seconds, or 0 if it is not installed or fails. An
// argument "FILE" is the path of the file, and "VALUE" another value each time.
double timeOf(Arguments const& arguments, std::string const& path)
{
    static unsigned number = 0;
    std::string const value = "value" + std::to_string(++number);
    std::vector<char const*> words;
    for (std::string const& argument : arguments)
        words.push_back(argument == "FILE"    ? path.c_str()
                        : argument == "VALUE" ? value.c_str()
                                              : argument.c_str());
    auto const start = std::chrono::steady_clock::now();
    bool const hasSucceeded = runProgram(words);
    std::chrono::duration<double> const passed = std::chrono::steady_clock::now() - start;
    return hasSucceeded ? passed.count() : 0;
}

// The shortest times of the tool and of another program, which run in turns: other load of the
// machine lengthens single runs, of either program.
class Comparison {
public:
    Comparison(size_t keys, unsigned runs, Arguments const& ours, Arguments const& theirs)
        : keys_(keys), runs_(runs), commands_{ours, theirs}
    {
    }

    // Reports the time of one of the programs; the first call measures both.
    void report(benchmark::State& state, unsigned program)
    {
        for (; runs_ > 0; --runs_)
            for (unsigned i = 0; i < 2; ++i)
                times_[i] = std::min(times_[i], timeOf(commands_[i], fileOf(keys_)));
        for (auto _ : state)
            state.SetIterationTime(times_[program]);
        if (times_[program] == 0)
            state.SkipWithError("is not installed, or fails");
    }

private:
    size_t keys_;
    unsigned runs_;  // still missing
    Arguments commands_[2];
    double times_[2] = {HUGE_VAL, HUGE_VAL};
};

void addRow(std::string const& row, std::string const& arguments, std::string const& peer,
            Comparison const& measured)
{
    auto const comparison = std::make_shared<Comparison>(measured);
    for (unsigned program : {0u, 1u})
        benchmark::RegisterBenchmark(
            (row + '/' + (program == 0 ? "Z" : peer) + '/' + arguments).c_str(),
            [=](benchmark::State& state) { comparison->report(state, program); })
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
}

bool const areRegistered = [] {
    Arguments const gitGet = {"git", "config", "-f", "FILE", "service0.parameter7"};
    struct Verb {
        char const* name;
        Arguments arguments;
    };
    Verb const verbs[] = {
        {"get", {"get", "--dialect", "git", "FILE", "service0", "parameter7"}},
        {"get.stanza", {"get", "--dialect", "stanza", "FILE", "service0", "parameter7"}},
        {"list", {"list", "--dialect", "git", "FILE"}},
        {"stanzas", {"stanzas", "--dialect", "git", "FILE"}},
        {"keys", {"keys", "--dialect", "git", "FILE", "service0"}},
        {"check", {"check", "--dialect", "git", "FILE"}},
        {"lint", {"lint", "--dialect", "git", "FILE"}},
        {"diff", {"diff", "--dialect", "git", "FILE", "FILE"}},
        {"merge", {"merge", "--dialect", "git", "FILE", "FILE", "FILE"}},
        {"edit", {"edit", "--dialect", "git", "FILE", "/dev/null"}},
        {"add", {"add", "-n", "--dialect", "git", "FILE", "service0", "parameter7", "VALUE"}},
        {"unset", {"unset", "-n", "--dialect", "git", "FILE", "service0", "parameter7"}},
        {"rename", {"rename", "-n", "--dialect", "git", "FILE", "service0", "parameter7", "other"}},
        {"comment", {"comment", "-n", "--dialect", "git", "FILE", "service0", "VALUE"}},
        {"java", {"java", "FILE", "get", "[service0]"}},
        {"lock", {"lock", "--dir", "/tmp", "--show", "bench_tool"}},
        {"hexdump", {"hexdump", "/dev/null"}},
        {"doc", {"doc", "--dialect", "git", "FILE"}},
        {"fmt", {"fmt", "--dry-run", "--dialect", "stanza", "FILE"}},
        {"completion", {"completion", "bash"}},
        {"dialects", {"dialects"}},
        {"help", {"--help"}},
    };
    for (Verb const& verb : verbs) {
        Arguments arguments = verb.arguments;
        arguments.insert(arguments.begin(), Z_TOOL);
        addRow("ToolStart", verb.name, "git config", {100, 200, arguments, gitGet});
    }
    Arguments const gitSet = {"git", "config", "-f", "FILE", "service0.parameter7", "VALUE"};
    for (char const* const dialect : {"git", "stanza"})
        addRow("ToolSet", dialect, "git config",
               {100,
                200,
                {Z_TOOL, "set", "--dialect", dialect, "FILE", "service0", "parameter7", "VALUE"},
                gitSet});
    for (char const* const dialect : {"ini", "stanza"})
        addRow("ToolList", dialect, "crudini",
               {100000,
                2,
                {Z_TOOL, "list", "--dialect", dialect, "FILE"},
                {"crudini", "--get", "--format=lines", "FILE"}});
    return true;
}();

}  // namespace
