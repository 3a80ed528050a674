// Strings: create and destroy, append, hash, compare.
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <string_view>

#ifdef Z_PEER_GLIB
#include <glib.h>
#endif
#ifdef Z_PEER_QT
#include <QByteArray>
#include <QHash>
#endif

namespace {

std::string const& text(benchmark::State& state)
{
    static std::string made;
    made.assign(static_cast<size_t>(state.range(0)), 'x');
    return made;
}

template <class String>
struct Ours {
    String string;
    explicit Ours(char const* from) : string(from) {}
    void append(char const* more) { string.append(more); }
    size_t hash() const { return string.hash(); }
    bool same(Ours const& other) const { return string.equals(other.string); }
    int order(Ours const& other) const { return string.compare(other.string); }
    char const* chars() const { return string.getChars(); }
};
using LC = Ours<ZLCString_6_0>;
using UTF8 = Ours<ZUTF8String_6_0>;

struct Std {
    std::string string;
    explicit Std(char const* from) : string(from) {}
    void append(char const* more) { string.append(more); }
    size_t hash() const { return std::hash<std::string>()(string); }
    bool same(Std const& other) const { return string == other.string; }
    int order(Std const& other) const { return string.compare(other.string); }
    char const* chars() const { return string.c_str(); }
};

#ifdef Z_PEER_GLIB
struct GLib {
    GString* string;
    explicit GLib(char const* from) : string(g_string_new(from)) {}
    GLib(GLib const&) = delete;
    ~GLib() { g_string_free(string, TRUE); }
    void append(char const* more) { g_string_append(string, more); }
    size_t hash() const { return g_string_hash(string); }
    bool same(GLib const& other) const { return g_string_equal(string, other.string); }
    int order(GLib const& other) const { return g_strcmp0(string->str, other.string->str); }
    char const* chars() const { return string->str; }
};
#endif

#ifdef Z_PEER_QT
struct Qt {
    QByteArray string;
    explicit Qt(char const* from) : string(from) {}
    void append(char const* more) { string.append(more); }
    size_t hash() const { return qHash(string); }
    bool same(Qt const& other) const { return string == other.string; }
    int order(Qt const& other) const { return string.compare(other.string); }
    char const* chars() const { return string.constData(); }
};
#endif

template <class String>
void make(benchmark::State& state)
{
    std::string const from = text(state);
    for (auto _ : state) {
        String const string(from.c_str());
        benchmark::DoNotOptimize(string.chars());
    }
}

template <class String>
void append(benchmark::State& state)
{
    auto const pieces = static_cast<size_t>(state.range(0)) / 8;
    for (auto _ : state) {
        String string("");
        for (size_t i = 0; i < pieces; ++i)
            string.append("01234567");
        benchmark::DoNotOptimize(string.chars());
    }
}

template <class String>
void hash(benchmark::State& state)
{
    String const string(text(state).c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(string.hash());
}

template <class String>
void same(benchmark::State& state)
{
    String const one(text(state).c_str());
    String const two(text(state).c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(one.same(two));
}

template <class String>
void order(benchmark::State& state)
{
    String const one(text(state).c_str());
    String const two(text(state).c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(one.order(two));
}

template <class String>
void registerStringRows(std::string const& contender)
{
    benchmark::RegisterBenchmark(("StringMake/" + contender).c_str(), make<String>)
        ->Arg(8)
        ->Arg(40)
        ->Arg(90)
        ->Arg(1000);
    benchmark::RegisterBenchmark(("StringAppend/" + contender).c_str(), append<String>)
        ->Arg(16)
        ->Arg(64)
        ->Arg(4096);
    benchmark::RegisterBenchmark(("StringHash/" + contender).c_str(), hash<String>)
        ->Arg(8)
        ->Arg(40)
        ->Arg(1000);
    benchmark::RegisterBenchmark(("StringEquals/" + contender).c_str(), same<String>)
        ->Arg(8)
        ->Arg(40)
        ->Arg(1000);
    benchmark::RegisterBenchmark(("StringCompare/" + contender).c_str(), order<String>)
        ->Arg(8)
        ->Arg(40)
        ->Arg(1000);
}

bool const areStringRowsRegistered = [] {
    registerStringRows<LC>("Z");
    registerStringRows<UTF8>("floor.ZUTF8String");
    registerStringRows<Std>("std.string");
#ifdef Z_PEER_GLIB
    registerStringRows<GLib>("GString");
#endif
#ifdef Z_PEER_QT
    registerStringRows<Qt>("QByteArray");
#endif
    return true;
}();

}  // namespace
