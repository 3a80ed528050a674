// Containers: list add, index, and insertion and removal at index 0; key map insert, hit and
// miss.
#include <Z/ZArrayList.h>
#include <Z/ZHashKeyMap.h>
#include <Z/ZLCString.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#ifdef Z_PEER_GLIB
#include <glib.h>
#endif
#ifdef Z_PEER_QT
#include <QHash>
#include <QList>
#include <QString>
#include <QVector>
#endif
#ifdef Z_PEER_ABSL
#include <absl/container/flat_hash_map.h>
#endif
#ifdef Z_PEER_APR
#include <apr_general.h>
#include <apr_hash.h>
#include <apr_strings.h>
#include <apr_tables.h>
#endif

namespace {

// ---- Lists of pointers: the same elements, added and read one by one.

std::vector<std::unique_ptr<ZLCString_6_0>> const& elements(size_t count)
{
    static std::vector<std::unique_ptr<ZLCString_6_0>> made;
    while (made.size() < count)
        made.push_back(std::make_unique<ZLCString_6_0>("member"));
    return made;
}

struct ZList {
    ZArrayList_6_0 list{1, 0};
    void add(ZLCString_6_0* element) { list.add(element); }
    void const* at(unsigned i) { return list.get(i); }
    void addFront(ZLCString_6_0* element) { list.add(0, element); }
    void removeFront() { list.remove(0u); }
};

struct StdVector {
    std::vector<void*> list;
    void add(ZLCString_6_0* element) { list.push_back(element); }
    void const* at(unsigned i) { return list[i]; }
};

#ifdef Z_PEER_GLIB
struct GLibArray {
    GPtrArray* list = g_ptr_array_new();
    ~GLibArray() { g_ptr_array_free(list, TRUE); }
    void add(ZLCString_6_0* element) { g_ptr_array_add(list, element); }
    void const* at(unsigned i) { return g_ptr_array_index(list, i); }
};
#endif

#ifdef Z_PEER_QT
struct QtVector {
    QVector<void*> list;
    void add(ZLCString_6_0* element) { list.append(element); }
    void const* at(unsigned i) { return list.at(static_cast<int>(i)); }
};
#endif

template <class List>
void listAdd(benchmark::State& state)
{
    auto const count = static_cast<unsigned>(state.range(0));
    auto const& all = elements(count);
    for (auto _ : state) {
        List list;
        for (unsigned i = 0; i < count; ++i)
            list.add(all[i].get());
        benchmark::DoNotOptimize(list.at(count - 1));
    }
}

template <class List>
void listIndex(benchmark::State& state)
{
    auto const count = static_cast<unsigned>(state.range(0));
    List list;
    for (unsigned i = 0; i < count; ++i)
        list.add(elements(count)[i].get());
    for (auto _ : state) {
        // Use the elements, as a caller would. DoNotOptimize(list.at(i)) would not read the element
        // of a list whose at() only returns a slot.
        uintptr_t sum = 0;
        for (unsigned i = 0; i < count; ++i)
            sum += reinterpret_cast<uintptr_t>(list.at(i));
        benchmark::DoNotOptimize(sum);
    }
}

#ifdef Z_PEER_QT
struct QtList {
    QList<void*> list;
    void add(ZLCString_6_0* element) { list.append(element); }
    void const* at(unsigned i) { return list.at(static_cast<int>(i)); }
    void addFront(ZLCString_6_0* element) { list.prepend(element); }
    void removeFront() { list.removeFirst(); }
};
#endif

struct StdDeque {
    std::deque<void*> list;
    void add(ZLCString_6_0* element) { list.push_back(element); }
    void const* at(unsigned i) { return list[i]; }
    void addFront(ZLCString_6_0* element) { list.push_front(element); }
    void removeFront() { list.pop_front(); }
};

template <class List>
void listInsertFront(benchmark::State& state)
{
    auto const count = static_cast<unsigned>(state.range(0));
    auto const& all = elements(count);
    for (auto _ : state) {
        List list;
        for (unsigned i = 0; i < count; ++i)
            list.addFront(all[i].get());
        benchmark::DoNotOptimize(list.at(count - 1));
    }
}

// Includes adding the elements.
template <class List>
void listRemoveFront(benchmark::State& state)
{
    auto const count = static_cast<unsigned>(state.range(0));
    auto const& all = elements(count);
    for (auto _ : state) {
        List list;
        for (unsigned i = 0; i < count; ++i)
            list.add(all[i].get());
        for (unsigned i = 1; i < count; ++i)
            list.removeFront();
        benchmark::DoNotOptimize(list.at(0));
    }
}

template <class List>
void registerFrontRows(std::string const& contender)
{
    benchmark::RegisterBenchmark(("ListInsertFront/" + contender).c_str(), listInsertFront<List>)
        ->Arg(100)
        ->Arg(10000);
    benchmark::RegisterBenchmark(("ListRemoveFront/" + contender).c_str(), listRemoveFront<List>)
        ->Arg(100)
        ->Arg(10000);
}

template <class List>
void registerListRows(std::string const& contender)
{
    benchmark::RegisterBenchmark(("ListAdd/" + contender).c_str(), listAdd<List>)
        ->Arg(100)
        ->Arg(10000);
    benchmark::RegisterBenchmark(("ListIndex/" + contender).c_str(), listIndex<List>)
        ->Arg(100)
        ->Arg(10000);
}

bool const areListRowsRegistered = [] {
    registerListRows<ZList>("Z");
    registerListRows<StdVector>("std.vector");
#ifdef Z_PEER_GLIB
    registerListRows<GLibArray>("GPtrArray");
#endif
#ifdef Z_PEER_QT
    registerListRows<QtVector>("QVector");
    registerFrontRows<QtList>("QList");
#endif
    registerFrontRows<ZList>("Z");
    registerFrontRows<StdDeque>("std.deque");
    return true;
}();

// ---- Maps from strings to strings. Every map copies its keys and values.

struct Texts {
    std::vector<std::string> present;
    std::vector<std::string> absent;
};

Texts const& texts(size_t count)
{
    static Texts made;
    while (made.present.size() < count) {
        made.present.push_back("parameter" + std::to_string(made.present.size()));
        made.absent.push_back("parametre" + std::to_string(made.absent.size()));
    }
    return made;
}

struct ZMap {
    using Key = ZLCString_6_0;
    ZHashKeyMap_6_0 map{10, 1};
    static Key key(std::string const& text) { return Key(text.c_str()); }
    void put(Key const& key) { map.putEntry(&key, &key); }
    bool has(Key const& key) { return map.getEntry(&key) != nullptr; }
};

struct StdMap {
    using Key = std::string;
    std::unordered_map<std::string, std::string> map;
    static Key key(std::string const& text) { return text; }
    void put(Key const& key) { map[key] = key; }
    bool has(Key const& key) { return map.find(key) != map.end(); }
};

#ifdef Z_PEER_ABSL
struct AbslMap {
    using Key = std::string;
    absl::flat_hash_map<std::string, std::string> map;
    static Key key(std::string const& text) { return text; }
    void put(Key const& key) { map[key] = key; }
    bool has(Key const& key) { return map.find(key) != map.end(); }
};
#endif

#ifdef Z_PEER_GLIB
struct GLibMap {
    using Key = std::string;
    GHashTable* map = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free);
    ~GLibMap() { g_hash_table_destroy(map); }
    static Key key(std::string const& text) { return text; }
    void put(Key const& key)
    {
        g_hash_table_insert(map, g_strdup(key.c_str()), g_strdup(key.c_str()));
    }
    bool has(Key const& key) { return g_hash_table_lookup(map, key.c_str()) != nullptr; }
};
#endif

#ifdef Z_PEER_QT
struct QtMap {
    using Key = QString;
    QHash<QString, QString> map;
    static Key key(std::string const& text) { return QString::fromStdString(text); }
    void put(Key const& key) { map.insert(key, key); }
    bool has(Key const& key) { return map.constFind(key) != map.constEnd(); }
};
#endif

#ifdef Z_PEER_APR
struct AprMap {
    using Key = std::string;
    apr_pool_t* pool = nullptr;
    apr_hash_t* map = nullptr;
    AprMap()
    {
        static bool const started = apr_initialize() == APR_SUCCESS;
        benchmark::DoNotOptimize(started);
        apr_pool_create(&pool, nullptr);
        map = apr_hash_make(pool);
    }
    ~AprMap() { apr_pool_destroy(pool); }
    static Key key(std::string const& text) { return text; }
    void put(Key const& key)
    {
        char* const copy = apr_pstrmemdup(pool, key.data(), key.size());
        apr_hash_set(map, copy, static_cast<apr_ssize_t>(key.size()), copy);
    }
    bool has(Key const& key)
    {
        return apr_hash_get(map, key.data(), static_cast<apr_ssize_t>(key.size())) != nullptr;
    }
};
#endif

template <class Map>
std::vector<typename Map::Key> keysOf(std::vector<std::string> const& from, size_t count)
{
    std::vector<typename Map::Key> keys;
    keys.reserve(count);
    for (size_t i = 0; i < count; ++i)
        keys.push_back(Map::key(from[i]));
    return keys;
}

template <class Map>
void mapInsert(benchmark::State& state)
{
    auto const count = static_cast<size_t>(state.range(0));
    auto const keys = keysOf<Map>(texts(count).present, count);
    for (auto _ : state) {
        Map map;
        for (auto const& key : keys)
            map.put(key);
        benchmark::DoNotOptimize(map.has(keys[0]));
    }
}

template <class Map>
void mapHit(benchmark::State& state)
{
    auto const count = static_cast<size_t>(state.range(0));
    auto const keys = keysOf<Map>(texts(count).present, count);
    Map map;
    for (auto const& key : keys)
        map.put(key);
    for (auto _ : state)
        for (auto const& key : keys)
            benchmark::DoNotOptimize(map.has(key));
}

template <class Map>
void mapMiss(benchmark::State& state)
{
    auto const count = static_cast<size_t>(state.range(0));
    Map map;
    for (auto const& key : keysOf<Map>(texts(count).present, count))
        map.put(key);
    auto const absent = keysOf<Map>(texts(count).absent, count);
    for (auto _ : state)
        for (auto const& key : absent)
            benchmark::DoNotOptimize(map.has(key));
}

template <class Map>
void registerMapRows(std::string const& contender)
{
    benchmark::RegisterBenchmark(("KeyMapInsert/" + contender).c_str(), mapInsert<Map>)
        ->Arg(100)
        ->Arg(10000);
    benchmark::RegisterBenchmark(("KeyMapHit/" + contender).c_str(), mapHit<Map>)
        ->Arg(100)
        ->Arg(10000);
    benchmark::RegisterBenchmark(("KeyMapMiss/" + contender).c_str(), mapMiss<Map>)
        ->Arg(100)
        ->Arg(10000);
}

bool const areMapRowsRegistered = [] {
    registerMapRows<ZMap>("Z");
    registerMapRows<StdMap>("std.unordered_map");
#ifdef Z_PEER_ABSL
    registerMapRows<AbslMap>("absl.flat_hash_map");
#endif
#ifdef Z_PEER_GLIB
    registerMapRows<GLibMap>("GHashTable");
#endif
#ifdef Z_PEER_QT
    registerMapRows<QtMap>("QHash");
#endif
#ifdef Z_PEER_APR
    registerMapRows<AprMap>("apr_hash");
#endif
    return true;
}();

}  // namespace
