// The cache of a configuration store alone: load, look up, change, add, delete, write, let go.
//
// Shapes as in bench_stanza: "wide" has 100 keys a stanza, "one" a single stanza, "thin" a stanza a
// key. The yardsticks: reading the bytes and splitting lines ("floor"), and an unordered_map of
// strings for the look-up.
#include <Z/ZArrayList.h>
#include <Z/ZPropertiesImpl.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

struct Shape {
    char const* name;
    size_t keysPerStanza;  // 0: all
};

constexpr Shape kShapes[] = {{"wide", 100}, {"one", 0}, {"thin", 1}};
constexpr size_t kSizes[] = {100, 10000, 100000, 1000000};

struct File {
    std::string text;
    std::vector<std::pair<std::string, std::string>> names;  // shuffled
};

File const& fileOf(Shape const& shape, size_t keys)
{
    static std::map<std::pair<std::string, size_t>, File> made;
    File& file = made[{shape.name, keys}];
    if (!file.names.empty())
        return file;
    size_t const perStanza = shape.keysPerStanza == 0 ? keys : shape.keysPerStanza;
    std::string text = "# Generated for the benchmark\n";
    std::string stanza;
    for (size_t i = 0; i < keys; ++i) {
        if (i % perStanza == 0) {
            stanza = "service" + std::to_string(i / perStanza);
            text += "\n# what " + stanza + " does\n[" + stanza + "]\n";
        }
        if (i % 10 == 5)
            text += "# the next one matters\n";
        std::string const key = "parameter" + std::to_string(i % perStanza);
        text += key + " = value of number " + std::to_string(i) + "\n";
        file.names.emplace_back(stanza, key);
    }
    file.text = text;
    std::shuffle(file.names.begin(), file.names.end(), std::mt19937_64(1));
    return file;
}

size_t heapInUse()
{
    struct mallinfo2 const info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

std::unique_ptr<ZSCFData_6_0> load(File const& file)
{
    auto data = std::make_unique<ZSCFData_6_0>();
    data->setAttributes(ZPCache_6_0::keepComments, nullptr);
    FILE* const stream = fmemopen(const_cast<char*>(file.text.data()), file.text.size(), "r");
    data->be_read("bench", stream);
    fclose(stream);
    return data;
}

// A file on disk for what reads one.
class OnDisk {
public:
    explicit OnDisk(File const& file) : stream_(tmpfile())
    {
        fwrite(file.text.data(), 1, file.text.size(), stream_);
        fflush(stream_);
    }
    ~OnDisk() { fclose(stream_); }
    OnDisk(OnDisk const&) = delete;
    OnDisk& operator=(OnDisk const&) = delete;

    FILE* fromStart() const
    {
        rewind(stream_);
        return stream_;
    }

private:
    FILE* const stream_;
};

// Counts what one of `keys` takes: the time of a run is that of all of them.
void perKey(benchmark::State& state, size_t keys)
{
    state.counters["per_key"] =
        benchmark::Counter(static_cast<double>(keys) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void loadRow(benchmark::State& state, File const& file)
{
    OnDisk const disk(file);
    size_t const before = heapInUse();
    auto data = std::make_unique<ZSCFData_6_0>();
    data->setAttributes(ZPCache_6_0::keepComments, nullptr);
    data->be_read("bench", disk.fromStart());
    state.counters["B/key"] =
        static_cast<double>(heapInUse() - before) / static_cast<double>(file.names.size());
    for (auto _ : state) {
        state.PauseTiming();
        data.reset();
        state.ResumeTiming();
        data = std::make_unique<ZSCFData_6_0>();
        data->setAttributes(ZPCache_6_0::keepComments, nullptr);
        data->be_read("bench", disk.fromStart());
    }
    perKey(state, file.names.size());
}

void floorRow(benchmark::State& state, File const& file)
{
    OnDisk const disk(file);
    for (auto _ : state) {
        FILE* const stream = disk.fromStart();
        std::vector<char> text(file.text.size());
        size_t const length = fread(text.data(), 1, text.size(), stream);
        size_t lines = 0;
        for (char const* at = text.data(); at != text.data() + length; ++lines) {
            auto const* const feed = static_cast<char const*>(
                memchr(at, '\n', static_cast<size_t>(text.data() + length - at)));
            at = feed + 1;
        }
        benchmark::DoNotOptimize(lines);
    }
    perKey(state, file.names.size());
}

void lookUpRow(benchmark::State& state, File const& file)
{
    auto const data = load(file);
    size_t i = 0;
    ZPCategoryBasedCache_6_0::Text value;
    for (auto _ : state) {
        auto const& name = file.names[i];
        benchmark::DoNotOptimize(data->lastValue(name.first.c_str(), name.second.c_str(),
                                                 ZPCache_6_0::anyValues, value));
        i = i + 1 == file.names.size() ? 0 : i + 1;
    }
}

void lookUpPeerRow(benchmark::State& state, File const& file)
{
    std::unordered_map<std::string, std::string> map;
    for (auto const& name : file.names)
        map[name.first + ']' + name.second] = "value";
    size_t i = 0;
    std::string name;
    for (auto _ : state) {
        name.assign(file.names[i].first).append(1, ']').append(file.names[i].second);
        benchmark::DoNotOptimize(map.find(name));
        i = i + 1 == file.names.size() ? 0 : i + 1;
    }
}

void setRow(benchmark::State& state, File const& file)
{
    auto const data = load(file);
    size_t i = 0;
    for (auto _ : state) {
        auto const& name = file.names[i];
        data->addLine(name.first.c_str(), name.second.c_str(), "changed a little", 0);
        i = i + 1 == file.names.size() ? 0 : i + 1;
    }
}

void addAndDeleteRow(benchmark::State& state, File const& file)
{
    auto const data = load(file);
    size_t i = 0;
    for (auto _ : state) {
        auto const& name = file.names[i];
        data->addLine(name.first.c_str(), "a new one", "value", 0);
        data->delLine(name.first.c_str(), "a new one");
        i = i + 1 == file.names.size() ? 0 : i + 1;
    }
}

void writeRow(benchmark::State& state, File const& file)
{
    auto const data = load(file);
    FILE* const sink = fopen("/dev/null", "w");
    for (auto _ : state)
        data->be_write("bench", sink);
    fclose(sink);
    perKey(state, file.names.size());
}

void letGoRow(benchmark::State& state, File const& file)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto data = load(file);
        state.ResumeTiming();
        data.reset();
    }
    perKey(state, file.names.size());
}

void namesRow(benchmark::State& state, File const& file)
{
    auto const data = load(file);
    size_t names = 0;
    for (auto _ : state) {
        ZArrayList_6_0 stanzas(10, 1);
        data->getNames(stanzas);
        for (unsigned i = 0; i < stanzas.size(); ++i) {
            auto const* const stanza = static_cast<ZLCString_6_0 const*>(stanzas.get(i));
            std::unique_ptr<ZArrayList_6_0> const keys(data->getNames(stanza->getChars()));
            names += keys->size();
        }
    }
    benchmark::DoNotOptimize(names);
    perKey(state, file.names.size());
}

[[maybe_unused]] int const registered = [] {
    struct Row {
        char const* name;
        void (*run)(benchmark::State&, File const&);
    };
    constexpr Row kRows[] = {
        {"load", loadRow},     {"load_floor", floorRow},
        {"lookup", lookUpRow}, {"lookup_unordered_map", lookUpPeerRow},
        {"set", setRow},       {"add_and_delete", addAndDeleteRow},
        {"write", writeRow},   {"let_go", letGoRow},
        {"names", namesRow},
    };
    for (Row const& row : kRows) {
        for (Shape const& shape : kShapes) {
            for (size_t const keys : kSizes) {
                std::string const name = std::string("cache/") + row.name + "/" + shape.name + "/" +
                                         std::to_string(keys);
                auto const run = row.run;
                benchmark::RegisterBenchmark(name.c_str(),
                                             [run, &shape, keys](benchmark::State& state) {
                                                 run(state, fileOf(shape, keys));
                                             });
            }
        }
    }
    return 0;
}();

}  // namespace
