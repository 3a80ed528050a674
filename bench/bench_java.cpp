// Java-style property files: load and destroy, and store.
//
// The Java platform runs in a process of its own, which is warmed up before it is timed and reports
// the processor time of each load or store itself; destroying the properties costs it nothing here.
// It writes to the file directly, and a crash leaves an incomplete file.
#include <Z/ZJavaProperties.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "JavaPeer.h"

#ifdef Z_PEER_POCO
#include <Poco/Util/PropertyFileConfiguration.h>
#endif

namespace {

constexpr long kWarmLoads = 100;
constexpr long kWarmKeys = 10000000;  // of all loads that warm up the process

// Generated files by number of keys; removed when the program ends.
class Files {
public:
    Files() = default;
    Files(Files const&) = delete;
    Files& operator=(Files const&) = delete;
    ~Files()
    {
        for (auto const& [keys, path] : paths_)
            unlink(path.c_str());
        unlink(target_.c_str());
    }

    // A quarter of the values is plain, a quarter has escapes, a quarter units, a quarter spans two
    // lines.
    std::string const& of(long keys)
    {
        std::string& path = paths_[keys];
        if (!path.empty())
            return path;
        path =
            "/tmp/zbench." + std::to_string(getpid()) + "." + std::to_string(keys) + ".properties";
        std::ofstream out(path, std::ios::binary);
        for (long i = 0; i < keys; ++i) {
            std::string const number = std::to_string(i);
            std::string const values[] = {"value of number " + number, "C\\:\\\\data\\\\" + number,
                                          "caf\\u00e9 \\u20ac " + number,
                                          "first part, \\\n    second part " + number};
            if (i % 10 == 5)
                out << "# the next one matters\n";
            out << "service." << i / 100 << ".parameter" << i % 100 << " = " << values[i % 4]
                << "\n";
        }
        return path;
    }

    // The path of the file to store, which keeps its last text.
    std::string const& target() const { return target_; }

private:
    std::map<long, std::string> paths_;
    std::string const target_ = "/tmp/zbench." + std::to_string(getpid()) + ".target.properties";
};
Files files;

void zLoad(benchmark::State& state)
{
    std::string const& path = files.of(state.range(0));
    for (auto _ : state) {
        ZJavaProperties_6_0 store;
        store.load(path.c_str());
        benchmark::DoNotOptimize(&store);
    }
}

void zStore(benchmark::State& state)
{
    ZJavaProperties_6_0 store;
    store.load(files.of(state.range(0)).c_str());
    std::string const& target = files.target();
    for (auto _ : state)
        store.store(target.c_str());
}

#ifdef Z_PEER_POCO
void pocoLoad(benchmark::State& state)
{
    std::string const& path = files.of(state.range(0));
    for (auto _ : state) {
        Poco::AutoPtr<Poco::Util::PropertyFileConfiguration> const store(
            new Poco::Util::PropertyFileConfiguration(path));
        benchmark::DoNotOptimize(store.get());
    }
}
#endif

#ifdef Z_PEER_JAVA
JavaPeer& java()
{
    static JavaPeer peer(Z_PEER_JAVA, Z_PEER_JAVA_PROGRAM);
    return peer;
}

void javaLoad(benchmark::State& state)
{
    std::string const& path = files.of(state.range(0));
    for (long i = std::min(kWarmLoads, kWarmKeys / state.range(0)); i > 0; --i)
        java().time(path);
    for (auto _ : state)
        state.SetIterationTime(static_cast<double>(java().time(path)) * 1e-9);
}

void javaStore(benchmark::State& state)
{
    std::string const& path = files.of(state.range(0));
    for (long i = std::min(kWarmLoads, kWarmKeys / state.range(0)); i > 0; --i)
        java().timeStore(path, files.target());
    for (auto _ : state)
        state.SetIterationTime(static_cast<double>(java().timeStore(path, files.target())) * 1e-9);
}
#endif

void sizes(benchmark::internal::Benchmark* row)
{
    row->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
}

bool registerAll()
{
    benchmark::RegisterBenchmark("JavaLoad/Z", zLoad)->Apply(sizes);
#ifdef Z_PEER_POCO
    benchmark::RegisterBenchmark("JavaLoad/Poco.PropertyFileConfiguration", pocoLoad)->Apply(sizes);
#endif
#ifdef Z_PEER_JAVA
    benchmark::RegisterBenchmark("JavaLoad/java.util.Properties", javaLoad)
        ->Apply(sizes)
        ->UseManualTime();
#endif
    benchmark::RegisterBenchmark("JavaStore/Z", zStore)->Apply(sizes);
#ifdef Z_PEER_JAVA
    benchmark::RegisterBenchmark("JavaStore/java.util.Properties", javaStore)
        ->Apply(sizes)
        ->UseManualTime();
#endif
    return true;
}
bool const registered = registerAll();

}  // namespace
