// The in-memory cache of a configuration store, without locks or a journal: load, look up, change,
// add and delete, write, list names, free.
//
// The baselines: reading the bytes and splitting them into lines; copying the text; and a
// std::unordered_map of strings whose keys combine stanza and key.
#include <Z/ZArrayList.h>
#include <Z/ZPropertiesImpl.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "generated_file.h"

namespace {

constexpr size_t kSizes[] = {100, 10000, 100000, 1000000};

using File = GeneratedFile;

// Returns the stanza and key names of a file in random order, the same in every run.
std::vector<Name> shuffledNames(File const& file)
{
    std::vector<Name> names = file.names;
    std::shuffle(names.begin(), names.end(), std::mt19937_64(1));
    return names;
}

// Calls `call(name)` once per iteration; cycles through the names in random order. The first call
// is not timed: after a load it may enlarge the tables, once, and would then be the only iteration.
template <class Call>
void eachName(benchmark::State& state, File const& file, Call call)
{
    std::vector<Name> const names = shuffledNames(file);
    call(names[0]);
    size_t i = 0;
    for (auto _ : state) {
        call(names[i]);
        i = i + 1 == names.size() ? 0 : i + 1;
    }
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

// A temporary copy of a generated file, for rows that read from disk.
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

// Reports the time per key. Each iteration processes all `keys` keys.
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
    ZPCategoryBasedCache_6_0::Text value;
    eachName(state, file, [&](Name const& name) {
        benchmark::DoNotOptimize(
            data->lastValue(name.stanza.c_str(), name.key.c_str(), ZPCache_6_0::anyValues, value));
    });
}

// The baseline of lookups and changes: a hash map from "stanza]key" to the value.
class Map {
public:
    explicit Map(File const& file)
    {
        for (Name const& name : file.names)
            map_[joined(name)] = "value of number 1";
    }

    std::string const& joined(Name const& name)
    {
        return joined_.assign(name.stanza).append(1, ']').append(name.key);
    }

    std::unordered_map<std::string, std::string>& operator*() { return map_; }

private:
    std::unordered_map<std::string, std::string> map_;
    std::string joined_;
};

void lookUpMapRow(benchmark::State& state, File const& file)
{
    Map map(file);
    eachName(state, file,
             [&](Name const& name) { benchmark::DoNotOptimize((*map).find(map.joined(name))); });
}

void setRow(benchmark::State& state, File const& file)
{
    auto const data = load(file);
    eachName(state, file, [&](Name const& name) {
        data->addLine(name.stanza.c_str(), name.key.c_str(), "changed a little", 0);
    });
}

void setMapRow(benchmark::State& state, File const& file)
{
    Map map(file);
    eachName(state, file, [&](Name const& name) { (*map)[map.joined(name)] = "changed a little"; });
}

void addAndDeleteRow(benchmark::State& state, File const& file)
{
    auto const data = load(file);
    eachName(state, file, [&](Name const& name) {
        data->addLine(name.stanza.c_str(), "a new one", "value", 0);
        data->delLine(name.stanza.c_str(), "a new one");
    });
}

void addAndDeleteMapRow(benchmark::State& state, File const& file)
{
    Map map(file);
    eachName(state, file, [&](Name const& name) {
        Name const fresh{name.stanza, "a new one"};
        (*map)[map.joined(fresh)] = "value";
        (*map).erase(map.joined(fresh));
    });
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

// The floor of writeRow(): copies the text as a whole.
void writeFloorRow(benchmark::State& state, File const& file)
{
    for (auto _ : state) {
        std::string copy = file.text;
        benchmark::DoNotOptimize(copy.data());
    }
    perKey(state, file.names.size());
}

bool registerAll()
{
    struct Row {
        char const* name;
        void (*run)(benchmark::State&, File const&);
        benchmark::IterationCount times = 0;  // 0: the benchmark library chooses
    };
    constexpr Row kRows[] = {
        {"CacheLoad/Z", loadRow},
        {"CacheLoad/floor.split", floorRow},
        {"CacheLookUp/Z", lookUpRow},
        {"CacheLookUp/unordered_map", lookUpMapRow},
        {"CacheSet/Z", setRow},
        {"CacheSet/unordered_map", setMapRow},
        {"CacheAddAndDelete/Z", addAndDeleteRow},
        {"CacheAddAndDelete/unordered_map", addAndDeleteMapRow},
        {"CacheWrite/Z", writeRow},
        {"CacheWrite/floor.copy", writeFloorRow},
        {"CacheLetGo/Z", letGoRow, 20},  // each iteration reloads the file
        {"CacheNames/Z", namesRow},
    };
    for (Row const& row : kRows) {
        for (Shape const& shape : kShapes) {
            for (size_t const keys : kSizes) {
                std::string const name =
                    std::string(row.name) + "/" + shape.name + "/" + std::to_string(keys);
                auto const run = row.run;
                auto* const made = benchmark::RegisterBenchmark(
                    name.c_str(), [run, &shape, keys](benchmark::State& state) {
                        run(state, generatedFile(shape, keys));
                    });
                if (row.times != 0)
                    made->Iterations(row.times);
            }
        }
    }
    return true;
}

bool const registered = registerAll();

}  // namespace
