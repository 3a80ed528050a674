// Configuration files: load, look up a key, in a snapshot too, change a key and store, iterate over
// everything. With the environment variable Z_BENCH_LONG also loads of 1e7 keys, which take minutes
// and 6 GB of memory.
#include <Z/ZArrayList.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesIterator.h>
#include <Z/ZPropertiesSnapshot.h>
#include <Z/ZStanzaFileProperties.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "generated_file.h"

#ifdef Z_PEER_GLIB
#include <glib.h>
#endif
#ifdef Z_PEER_INIH
#include <ini.h>
#endif
#ifdef Z_PEER_SIMPLEINI
#include <SimpleIni.h>
#endif
#ifdef Z_PEER_POCO
#include <Poco/Util/IniFileConfiguration.h>
#endif
#ifdef Z_PEER_BOOST
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#endif
#ifdef Z_PEER_QT
#include <QSettings>
#include <QString>
#endif

namespace {

constexpr size_t kSmall[] = {100, 1000};  // only of "wide"
constexpr size_t kLarge[] = {10000, 100000, 1000000};
constexpr size_t kLong = 10000000;

std::vector<size_t> sizesOf(Shape const& shape)
{
    std::vector<size_t> sizes(std::begin(kLarge), std::end(kLarge));
    if (getenv("Z_BENCH_LONG") != nullptr)
        sizes.push_back(kLong);
    if (shape.keysPerStanza == 100)
        sizes.insert(sizes.begin(), std::begin(kSmall), std::end(kSmall));
    return sizes;
}

// A generated file on disk.
struct File {
    std::string path;
    std::string const& text;
    std::vector<Name> const& names;
};

// The files that were written, removed when the program ends.
class Files {
public:
    ~Files()
    {
        for (auto const& file : written_)
            unlink(file.second.path.c_str());
    }

    File const& of(Shape const& shape, size_t keys)
    {
        std::string const name = shape.name + std::to_string(keys);
        if (auto const known = written_.find(name); known != written_.end())
            return known->second;
        GeneratedFile const& made = generatedFile(shape, keys);
        File const file{std::filesystem::temp_directory_path() /
                            ("zbench." + std::to_string(getpid()) + "." + name),
                        made.text, made.names};
        std::ofstream(file.path, std::ios::binary) << made.text;
        return written_.emplace(name, file).first->second;
    }

private:
    std::map<std::string, File> written_;
} files;

// The operations of a contender; an operation that it lacks stays empty.
class Store {
public:
    virtual ~Store() noexcept(false) = default;  // as the library's classes declare it
    virtual void load(std::string const& path) = 0;
    virtual size_t lookUp(Name const& name) = 0;  // length of the value
    virtual void changeAndStore(Name const&, std::string const&, std::string const&) {}
    virtual size_t walk() = 0;  // lengths of all values
    virtual size_t visit() { return walk(); }
};

class ZStore : public Store {
public:
    /// `dialect` is the name of the dialect in which the store reads files.
    explicit ZStore(unsigned long attributes, char const* dialect = "stanza")
        : attributes_(attributes)
    {
        ZStanzaDialect_6_0::named(dialect, dialect_);
    }

    void load(std::string const& path) override
    {
        store_ = std::make_unique<ZStanzaFileProperties_6_0>(0, dialect_);
        store_->setAttributes(attributes_, nullptr);
        store_->load(path.c_str());
    }
    size_t lookUp(Name const& name) override
    {
        store_->getValue(name.stanza.c_str(), name.key.c_str(), value_, 0, nullptr);
        return value_.getLength();
    }
    void changeAndStore(Name const& name, std::string const& value,
                        std::string const& path) override
    {
        store_->setValue(name.stanza.c_str(), name.key.c_str(), value.c_str());
        store_->store(path.c_str());
    }
    size_t walk() override
    {
        size_t sum = 0;
        std::unique_ptr<ZArrayList_6_0> const stanzas(store_->categoryNames());
        for (unsigned s = 0; s < stanzas->size(); ++s) {
            char const* const stanza =
                static_cast<ZLCString_6_0 const*>(stanzas->get(s))->getChars();
            ZStanzaIterator_6_0 keys(*store_, stanza);
            while (keys.hasMore()) {
                keys.nextEntry();
                for (int i = 0; i < keys.valueCount(); ++i)
                    sum += strlen(keys.entryValue(i));
            }
        }
        return sum;
    }
    size_t visit() override
    {
        size_t sum = 0;
        store_->visit(
            [](ZPropertiesEntry_6_0 const& entry, void* total) {
                *static_cast<size_t*>(total) += entry.valueLength;
                return 0;
            },
            &sum);
        return sum;
    }

protected:
    ZStanzaFileProperties_6_0 const& store() const { return *store_; }

private:
    unsigned long const attributes_;
    ZStanzaDialect_6_0 dialect_;
    std::unique_ptr<ZStanzaFileProperties_6_0> store_;
    ZLCString_6_0 value_;
};

// Reads the bytes and splits them into lines: the least that any reader does.
class FloorStore : public Store {
public:
    void load(std::string const& path) override
    {
        int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat info;
        fstat(fd, &info);
        text_.resize(static_cast<size_t>(info.st_size));
        benchmark::DoNotOptimize(read(fd, text_.data(), text_.size()));
        close(fd);
        lines_.clear();
        char const* at = text_.data();
        char const* const end = at + text_.size();
        while (at < end) {
            auto const* feed =
                static_cast<char const*>(memchr(at, '\n', static_cast<size_t>(end - at)));
            feed = feed == nullptr ? end : feed;
            lines_.emplace_back(at, static_cast<size_t>(feed - at));
            at = feed + 1;
        }
    }
    size_t lookUp(Name const&) override { return 0; }
    size_t walk() override { return 0; }

protected:
    std::string text_;
    std::vector<std::string_view> lines_;
};

// An arena of views with one index over stanza and key.
class FloorArena : public FloorStore {
public:
    void load(std::string const& path) override
    {
        FloorStore::load(path);
        index_.clear();
        index_.reserve(lines_.size());
        std::string_view stanza;
        for (std::string_view line : lines_) {
            size_t const equals = line.find('=');
            if (line.empty() || line[0] == '#')
                continue;
            if (line[0] == '[')
                stanza = line.substr(1, line.size() - 2);
            else if (equals != std::string_view::npos)
                index_[{stanza, line.substr(0, equals - 1)}] = line.substr(equals + 2);
        }
    }
    size_t lookUp(Name const& name) override
    {
        auto const found = index_.find({name.stanza, name.key});
        return found == index_.end() ? 0 : found->second.size();
    }
    size_t walk() override
    {
        size_t sum = 0;
        for (auto const& entry : index_)
            sum += entry.second.size();
        return sum;
    }

private:
    using Pair = std::pair<std::string_view, std::string_view>;
    struct Hash {
        size_t operator()(Pair const& pair) const
        {
            std::hash<std::string_view> const hash;
            return hash(pair.first) * 31 + hash(pair.second);
        }
    };
    std::unordered_map<Pair, std::string_view, Hash> index_;
};

// A plain map of strings; the yardstick for lookups.
class MapStore : public Store {
public:
    void load(std::string const& path) override
    {
        map_.clear();
        std::ifstream in(path);
        std::string line;
        std::string stanza;
        while (std::getline(in, line)) {
            size_t const equals = line.find('=');
            if (line.empty() || line[0] == '#')
                continue;
            if (line[0] == '[')
                stanza = line.substr(1, line.size() - 2);
            else if (equals != std::string::npos)
                map_[stanza + "\x1f" + line.substr(0, equals - 1)] = line.substr(equals + 2);
        }
    }
    size_t lookUp(Name const& name) override
    {
        name_ = name.stanza;
        name_ += "\x1f";
        name_ += name.key;
        auto const found = map_.find(name_);
        value_ = found == map_.end() ? "" : found->second;
        return value_.size();
    }
    size_t walk() override
    {
        size_t sum = 0;
        for (auto const& entry : map_)
            sum += entry.second.size();
        return sum;
    }

private:
    std::unordered_map<std::string, std::string> map_;
    std::string name_;
    std::string value_;
};

#ifdef Z_PEER_GLIB
class GLibStore : public Store {
public:
    explicit GLibStore(bool comments) : comments_(comments) {}
    ~GLibStore() override
    {
        if (file_ != nullptr)
            g_key_file_free(file_);
    }
    void load(std::string const& path) override
    {
        if (file_ != nullptr)
            g_key_file_free(file_);
        file_ = g_key_file_new();
        g_key_file_load_from_file(file_, path.c_str(),
                                  comments_ ? G_KEY_FILE_KEEP_COMMENTS : G_KEY_FILE_NONE, nullptr);
    }
    size_t lookUp(Name const& name) override
    {
        char* const value =
            g_key_file_get_value(file_, name.stanza.c_str(), name.key.c_str(), nullptr);
        size_t const length = value == nullptr ? 0 : strlen(value);
        g_free(value);
        return length;
    }
    void changeAndStore(Name const& name, std::string const& value,
                        std::string const& path) override
    {
        g_key_file_set_value(file_, name.stanza.c_str(), name.key.c_str(), value.c_str());
        gsize length = 0;
        char* const text = g_key_file_to_data(file_, &length, nullptr);
        g_file_set_contents_full(path.c_str(), text, static_cast<gssize>(length),
                                 static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT |
                                                                    G_FILE_SET_CONTENTS_DURABLE),
                                 0666, nullptr);
        g_free(text);
    }
    size_t walk() override
    {
        size_t sum = 0;
        char** const groups = g_key_file_get_groups(file_, nullptr);
        for (char** group = groups; *group != nullptr; ++group) {
            char** const keys = g_key_file_get_keys(file_, *group, nullptr, nullptr);
            for (char** key = keys; *key != nullptr; ++key) {
                char* const value = g_key_file_get_value(file_, *group, *key, nullptr);
                sum += strlen(value);
                g_free(value);
            }
            g_strfreev(keys);
        }
        g_strfreev(groups);
        return sum;
    }

private:
    bool const comments_;
    GKeyFile* file_ = nullptr;
};
#endif

#ifdef Z_PEER_INIH
class InihStore : public MapStore {
public:
    void load(std::string const& path) override
    {
        map_.clear();
        ini_parse(
            path.c_str(),
            [](void* user, char const* section, char const* name, char const* value) {
                auto& map = *static_cast<std::unordered_map<std::string, std::string>*>(user);
                map[std::string(section) + "\x1f" + name] = value;
                return 1;
            },
            &map_);
    }
    size_t lookUp(Name const& name) override
    {
        auto const found = map_.find(name.stanza + "\x1f" + name.key);
        return found == map_.end() ? 0 : found->second.size();
    }
    size_t walk() override
    {
        size_t sum = 0;
        for (auto const& entry : map_)
            sum += entry.second.size();
        return sum;
    }

private:
    std::unordered_map<std::string, std::string> map_;
};
#endif

#ifdef Z_PEER_SIMPLEINI
class SimpleIniStore : public Store {
public:
    void load(std::string const& path) override
    {
        ini_ = std::make_unique<CSimpleIniA>();
        ini_->LoadFile(path.c_str());
    }
    size_t lookUp(Name const& name) override
    {
        return strlen(ini_->GetValue(name.stanza.c_str(), name.key.c_str(), ""));
    }
    size_t walk() override
    {
        size_t sum = 0;
        CSimpleIniA::TNamesDepend sections;
        ini_->GetAllSections(sections);
        for (auto const& section : sections) {
            CSimpleIniA::TNamesDepend keys;
            ini_->GetAllKeys(section.pItem, keys);
            for (auto const& key : keys)
                sum += strlen(ini_->GetValue(section.pItem, key.pItem, ""));
        }
        return sum;
    }

private:
    std::unique_ptr<CSimpleIniA> ini_;
};
#endif

#ifdef Z_PEER_POCO
class PocoStore : public Store {
public:
    void load(std::string const& path) override
    {
        ini_ = new Poco::Util::IniFileConfiguration(path);
    }
    size_t lookUp(Name const& name) override
    {
        return ini_->getString(name.stanza + "." + name.key, "").size();
    }
    size_t walk() override
    {
        size_t sum = 0;
        Poco::Util::AbstractConfiguration::Keys stanzas;
        ini_->keys(stanzas);
        for (std::string const& stanza : stanzas) {
            Poco::Util::AbstractConfiguration::Keys keys;
            ini_->keys(stanza, keys);
            for (std::string const& key : keys)
                sum += ini_->getRawString(stanza + "." + key).size();
        }
        return sum;
    }

private:
    Poco::AutoPtr<Poco::Util::IniFileConfiguration> ini_;
};
#endif

#ifdef Z_PEER_BOOST
class BoostStore : public Store {
public:
    void load(std::string const& path) override
    {
        tree_.clear();
        boost::property_tree::ini_parser::read_ini(path, tree_);
    }
    size_t lookUp(Name const& name) override
    {
        auto const stanza = tree_.find(name.stanza);
        if (stanza == tree_.not_found())
            return 0;
        auto const key = stanza->second.find(name.key);
        return key == stanza->second.not_found() ? 0 : key->second.data().size();
    }
    size_t walk() override
    {
        size_t sum = 0;
        for (auto const& stanza : tree_)
            for (auto const& key : stanza.second)
                sum += key.second.data().size();
        return sum;
    }

private:
    boost::property_tree::ptree tree_;
};
#endif

#ifdef Z_PEER_QT
class QtStore : public Store {
public:
    void load(std::string const& path) override
    {
        // Settings are cached by path in the process; a name of its own makes every load a read.
        std::string const link = path + ".qt" + std::to_string(++loads_);
        if (::link(path.c_str(), link.c_str()) != 0)
            return;
        settings_ = std::make_unique<QSettings>(QString::fromStdString(link), QSettings::IniFormat);
        benchmark::DoNotOptimize(settings_->contains(QStringLiteral("none")));
        unlink(link.c_str());
    }
    size_t lookUp(Name const& name) override
    {
        return static_cast<size_t>(
            settings_->value(QString::fromStdString(name.stanza + "/" + name.key))
                .toString()
                .size());
    }
    size_t walk() override
    {
        size_t sum = 0;
        for (QString const& key : settings_->allKeys())
            sum += static_cast<size_t>(settings_->value(key).toString().size());
        return sum;
    }

private:
    static inline size_t loads_ = 0;
    std::unique_ptr<QSettings> settings_;
};
#endif

// Looks up values in a snapshot of the store.
class ZSnapshot : public ZStore {
public:
    using ZStore::ZStore;

    void load(std::string const& path) override
    {
        ZStore::load(path);
        snapshot_ = std::make_unique<ZPropertiesSnapshot_6_0>(store());
    }
    size_t lookUp(Name const& name) override
    {
        return strlen(snapshot_->getValue(name.stanza.c_str(), name.key.c_str()));
    }

private:
    std::unique_ptr<ZPropertiesSnapshot_6_0> snapshot_;
};

using Make = std::function<std::unique_ptr<Store>()>;

struct Contender {
    char const* name;
    Make make;
    size_t most;         // the largest file it is given; some peers do not return from larger files
    bool changes;        // has changeAndStore()
    bool scans = false;  // reads every key to find the keys of one stanza: not run on many stanzas
    char const* variant = "";  // of the row, if it is not compared with peers
};

template <class S, class... Args>
Make maker(Args... args)
{
    return [args...] { return std::make_unique<S>(args...); };
}

std::vector<Contender> contenders()
{
    size_t const all = 1000000;
    std::vector<Contender> list;
    unsigned long const comments = ZPCache_6_0::keepComments;
    unsigned long const lines = ZPCache_6_0::keepLines;
    list.push_back({"Z", maker<ZStore>(comments), kLong, true});
    list.push_back({"Z", maker<ZStore>(lines), all, true, false, ".keepLines"});
    list.push_back({"Z", maker<ZStore>(lines, "systemd"), 100000, true, false, ".systemd"});
    list.push_back({"Z", maker<ZStore>(lines, "git"), 100000, true, false, ".git"});
    list.push_back({"Z", maker<ZSnapshot>(comments), all, false, false, ".snapshot"});
#ifdef Z_PEER_GLIB
    list.push_back({"GKeyFile+comments", maker<GLibStore>(true), kLong, true});
    list.push_back({"GKeyFile", maker<GLibStore>(false), all, false});
#endif
#ifdef Z_PEER_INIH
    list.push_back({"inih+unordered_map", maker<InihStore>(), all, false});
#endif
#ifdef Z_PEER_SIMPLEINI
    list.push_back({"SimpleIni", maker<SimpleIniStore>(), all, false});
#endif
#ifdef Z_PEER_POCO
    list.push_back({"Poco.IniFile", maker<PocoStore>(), 100000, false, true});
#endif
#ifdef Z_PEER_BOOST
    list.push_back({"Boost.PropertyTree", maker<BoostStore>(), all, false});
#endif
#ifdef Z_PEER_QT
    list.push_back({"QSettings", maker<QtStore>(), 100000, false});
#endif
    list.push_back({"unordered_map", maker<MapStore>(), all, false});
    list.push_back({"floor.split", maker<FloorStore>(), all, false});
    list.push_back({"floor.arena", maker<FloorArena>(), kLong, false});
    return list;
}

size_t heapInUse()
{
    struct mallinfo2 const info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void loadRow(benchmark::State& state, Contender const& contender, File const& file)
{
    size_t const before = heapInUse();
    std::unique_ptr<Store> store = contender.make();
    store->load(file.path);
    auto const keys = static_cast<double>(file.names.size());
    state.counters["B/key"] = static_cast<double>(heapInUse() - before) / keys;
    for (auto _ : state) {
        state.PauseTiming();
        store = contender.make();
        state.ResumeTiming();
        store->load(file.path);
    }
    state.counters["s/key"] = benchmark::Counter(
        keys, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void lookUpRow(benchmark::State& state, Contender const& contender, File const& file)
{
    std::unique_ptr<Store> const store = contender.make();
    store->load(file.path);
    std::mt19937 random(7);
    std::vector<Name const*> names;
    for (int i = 0; i < 65536; ++i)
        names.push_back(&file.names[random() % file.names.size()]);
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(store->lookUp(*names[i++ & 65535]));
}

// The wall-clock time of many lookups, divided by the number of threads that look up at the same
// time.
void threadedRow(benchmark::State& state, Store& store, std::vector<Name> const& names,
                 unsigned threadCount)
{
    constexpr unsigned kLookups = 200000;
    for (auto _ : state) {
        std::atomic<unsigned> waiting = threadCount;
        std::vector<std::thread> threads;
        auto const lookUp = [&](unsigned seed) {
            std::minstd_rand random(seed);
            size_t sum = 0;
            --waiting;
            while (waiting != 0)
                std::this_thread::yield();
            for (unsigned i = 0; i < kLookups; ++i)
                sum += store.lookUp(names[random() % names.size()]);
            benchmark::DoNotOptimize(sum);
        };
        for (unsigned i = 1; i < threadCount; ++i)
            threads.emplace_back(lookUp, i);
        auto const start = std::chrono::steady_clock::now();
        lookUp(threadCount);
        for (std::thread& thread : threads)
            thread.join();
        std::chrono::duration<double> const passed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(passed.count() / threadCount);
    }
}

void changeRow(benchmark::State& state, Contender const& contender, File const& file)
{
    std::unique_ptr<Store> const store = contender.make();
    std::string const copy = file.path + ".change";
    std::ofstream(copy, std::ios::binary) << file.text;
    store->load(copy);
    size_t i = 0;
    for (auto _ : state) {
        ++i;
        store->changeAndStore(file.names[i * 7919 % file.names.size()],
                              "changed " + std::to_string(i), copy);
    }
    unlink(copy.c_str());
}

void walkRow(benchmark::State& state, Contender const& contender, File const& file)
{
    std::unique_ptr<Store> const store = contender.make();
    store->load(file.path);
    for (auto _ : state)
        benchmark::DoNotOptimize(store->walk());
}

void visitRow(benchmark::State& state, Contender const& contender, File const& file)
{
    std::unique_ptr<Store> const store = contender.make();
    store->load(file.path);
    for (auto _ : state)
        benchmark::DoNotOptimize(store->visit());
}

// Loads a file into many stores. Reports the bytes of heap of a store.
void memoryRow(benchmark::State& state, File const& file)
{
    constexpr size_t kStores = 1000;
    std::vector<std::unique_ptr<ZStanzaFileProperties_6_0>> stores(kStores);
    size_t used = 0;
    for (auto _ : state) {
        for (auto& store : stores)
            store.reset();
        size_t const before = heapInUse();
        for (auto& store : stores) {
            store = std::make_unique<ZStanzaFileProperties_6_0>(1);
            store->load(file.path.c_str());
        }
        used = heapInUse() - before;
    }
    state.counters["B"] = static_cast<double>(used) / kStores;
}

// Takes a snapshot again, of a store that has not changed since the last one. With `hasList`, a
// list of values exists, which its holder can change without a call of the store.
void snapshotRow(benchmark::State& state, File const& file, bool hasList)
{
    ZStanzaFileProperties_6_0 store(1);
    store.load(file.path.c_str());
    if (hasList) {
        ZStanzaValueIterator_6_0 values(store, file.names[0].stanza.c_str(),
                                        file.names[0].key.c_str(), zPropLocalStrings, zPropIterAny);
        values.nextValue();
    }
    ZPropertiesSnapshot_6_0 const first(store);
    for (auto _ : state)
        benchmark::DoNotOptimize(ZPropertiesSnapshot_6_0(store));
}

bool registerAll()
{
    using RowFunction = void (*)(benchmark::State&, Contender const&, File const&);
    struct Row {
        char const* name;
        RowFunction run;
        bool onlyFull;  // for contenders that keep the whole file
    };
    Row const rows[] = {{"Load", loadRow, false},
                        {"LookUp", lookUpRow, false},
                        {"ChangeAndStore", changeRow, true},
                        {"Walk", walkRow, false},
                        {"Visit", visitRow, false}};
    for (Row const& row : rows)
        for (Shape const& shape : kShapes)
            for (size_t const keys : sizesOf(shape))
                for (Contender const& contender : contenders()) {
                    bool const floor = strncmp(contender.name, "floor", 5) == 0;
                    bool const map = strcmp(contender.name, "unordered_map") == 0;
                    // Only contenders that targets name get the largest files of unusual shape.
                    bool const named = contender.changes || map || floor ||
                                       strcmp(contender.name, "GKeyFile") == 0;
                    if (keys > contender.most || (keys == kLong && row.run != loadRow) ||
                        (row.onlyFull && !contender.changes) ||
                        (keys > 100000 && shape.keysPerStanza != 100 && !named) ||
                        (map && row.run == loadRow) ||
                        (contender.scans && (row.run == walkRow || row.run == visitRow) &&
                         keys > 10000 && shape.keysPerStanza == 1) ||
                        (strcmp(contender.name, "floor.split") == 0 && row.run != loadRow) ||
                        (floor && row.run == changeRow))
                        continue;
                    bool const isSnapshot = strcmp(contender.variant, ".snapshot") == 0;
                    bool const isVariant = *contender.variant != '\0';
                    if (isSnapshot ? row.run != lookUpRow
                                   : isVariant && row.run != loadRow && row.run != changeRow)
                        continue;
                    std::string const name = std::string(row.name) + contender.variant + "/" +
                                             contender.name + "/" + shape.name + "/" +
                                             std::to_string(keys);
                    RowFunction const run = row.run;
                    auto* const made = benchmark::RegisterBenchmark(
                        name.c_str(), [run, contender, &shape, keys](auto& state) {
                            run(state, contender, files.of(shape, keys));
                        });
                    made->Unit(benchmark::kMicrosecond);
                    if (run == changeRow)
                        made->UseRealTime();
                }
    for (Shape const& shape : kShapes)
        for (size_t const keys : {1u, 100u})
            benchmark::RegisterBenchmark(
                (std::string("Memory/Z/") + shape.name + "/" + std::to_string(keys)).c_str(),
                [keys, &shape](benchmark::State& state) {
                    memoryRow(state, files.of(shape, keys));
                })
                ->Iterations(1);
    for (bool const hasList : {false, true})
        for (size_t const keys : {100u, 1000u, 10000u, 100000u, 1000000u})
            benchmark::RegisterBenchmark(
                ((hasList ? "Snapshot.list/Z/wide/" : "Snapshot/Z/wide/") + std::to_string(keys))
                    .c_str(),
                [keys, hasList](benchmark::State& state) {
                    snapshotRow(state, files.of(kShapes[0], keys), hasList);
                });
    for (unsigned const threads : {1u, 2u})
        benchmark::RegisterBenchmark(
            ("LookUp.threads" + std::to_string(threads) + "/Z/wide/10000").c_str(),
            [threads](benchmark::State& state) {
                File const& file = files.of(kShapes[0], 10000);
                ZSnapshot store(ZPCache_6_0::keepComments);
                store.load(file.path);
                threadedRow(state, store, file.names, threads);
            })
            ->UseManualTime();
    return true;
}

bool const registered = registerAll();

}  // namespace
