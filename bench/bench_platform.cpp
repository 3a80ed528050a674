// Platform services: hex dump, shared libraries, Adler-32, squeeze.
#include <Z/ZAdler32.h>
#include <Z/ZSharedLibrary.h>
#include <Z/ZSqueeze.h>
#include <Z/zhex_dump.h>
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "run_program.h"

#ifdef Z_PEER_DEFLATE
#include <libdeflate.h>
#endif
#ifdef Z_PEER_GLIB
#include <gmodule.h>
#endif
#ifdef Z_PEER_QT
#include <QLibrary>
#endif
#ifdef Z_PEER_POCO
#include <Poco/SharedLibrary.h>
#endif

namespace {

using Bytes = std::vector<unsigned char>;

// Sample data with repeated words, numbers and random bytes.
Bytes someBytes(size_t count)
{
    std::mt19937 random(6401);
    char const* const words[] = {"connection", "timeout", "= ", "\n", "[listener]", "retry ", "# "};
    Bytes bytes;
    while (bytes.size() < count) {
        unsigned const draw = random();
        std::string const word =
            draw % 4 == 0 ? std::to_string(draw) : words[draw / 4 % std::size(words)];
        bytes.insert(bytes.end(), word.begin(), word.end());
        if (draw % 16 == 1)
            bytes.push_back(static_cast<unsigned char>(draw >> 8));
    }
    bytes.resize(count);
    return bytes;
}

Bytes const& block()
{
    static Bytes const made = someBytes(65536);
    return made;
}

// ---- Adler-32.

void adlerOurs(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ZAdler32_6_0::adler32(1, block().data(), 65536));
}
BENCHMARK(adlerOurs)->Name("Adler32/Z/65536");

void adlerZlib(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(adler32(1, block().data(), 65536));
}
BENCHMARK(adlerZlib)->Name("Adler32/zlib/65536");

#ifdef Z_PEER_DEFLATE
void adlerDeflate(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(libdeflate_adler32(1, block().data(), 65536));
}
BENCHMARK(adlerDeflate)->Name("Adler32/libdeflate/65536");
#endif

// ---- Squeeze and unsqueeze, as for the companion files of the configuration store.

Bytes const& squeezed()
{
    static Bytes const made = [] {
        Bytes room(compressBound(65536));
        uLongf length = room.size();
        compress(room.data(), &length, block().data(), 65536);
        room.resize(length);
        return room;
    }();
    return made;
}

void squeezeOurs(benchmark::State& state)
{
    Bytes source = block();
    Bytes room(compressBound(65536));
    for (auto _ : state) {
        ZSqueeze_6_0 squeeze;
        squeeze.setSource(source.data(), source.size());
        benchmark::DoNotOptimize(squeeze.squeeze(room.data(), room.size()));
    }
}
BENCHMARK(squeezeOurs)->Name("Squeeze/Z/65536");

void squeezeZlib(benchmark::State& state)
{
    Bytes room(compressBound(65536));
    for (auto _ : state) {
        uLongf length = room.size();
        benchmark::DoNotOptimize(compress(room.data(), &length, block().data(), 65536));
    }
}
BENCHMARK(squeezeZlib)->Name("Squeeze/zlib/65536");

void unsqueezeOurs(benchmark::State& state)
{
    Bytes source = squeezed();
    Bytes room(65536);
    for (auto _ : state) {
        ZSqueeze_6_0 squeeze;
        squeeze.setSource(source.data(), source.size());
        benchmark::DoNotOptimize(squeeze.unsqueeze(room.data(), room.size()));
    }
}
BENCHMARK(unsqueezeOurs)->Name("Unsqueeze/Z/65536");

void unsqueezeZlib(benchmark::State& state)
{
    Bytes room(65536);
    for (auto _ : state) {
        uLongf length = room.size();
        benchmark::DoNotOptimize(
            uncompress(room.data(), &length, squeezed().data(), squeezed().size()));
    }
}
BENCHMARK(unsqueezeZlib)->Name("Unsqueeze/zlib/65536");

// ---- Shared libraries: opened, one symbol resolved, closed.

constexpr char kSymbol[] = "sampleAnswer";

void libraryOurs(benchmark::State& state)
{
    for (auto _ : state) {
        ZSharedLibrary_6_0 library(Z_SAMPLE);
        library.loadLibrary();
        benchmark::DoNotOptimize(library.resolveSymbol(kSymbol));
        library.unloadLibrary();
    }
}
BENCHMARK(libraryOurs)->Name("Library/Z");

void libraryPlain(benchmark::State& state)
{
    for (auto _ : state) {
        void* const library = dlopen(Z_SAMPLE, RTLD_NOW | RTLD_GLOBAL);
        benchmark::DoNotOptimize(dlsym(library, kSymbol));
        dlclose(library);
    }
}
BENCHMARK(libraryPlain)->Name("Library/dlopen");

#ifdef Z_PEER_GLIB
void libraryGModule(benchmark::State& state)
{
    for (auto _ : state) {
        GModule* const library = g_module_open(Z_SAMPLE, GModuleFlags{});
        gpointer address = nullptr;
        g_module_symbol(library, kSymbol, &address);
        benchmark::DoNotOptimize(address);
        g_module_close(library);
    }
}
BENCHMARK(libraryGModule)->Name("Library/GModule");
#endif

#ifdef Z_PEER_QT
void libraryQt(benchmark::State& state)
{
    for (auto _ : state) {
        QLibrary library(Z_SAMPLE);
        library.load();
        benchmark::DoNotOptimize(library.resolve(kSymbol));
        library.unload();
    }
}
BENCHMARK(libraryQt)->Name("Library/QLibrary");
#endif

#ifdef Z_PEER_POCO
void libraryPoco(benchmark::State& state)
{
    for (auto _ : state) {
        Poco::SharedLibrary library(Z_SAMPLE);
        benchmark::DoNotOptimize(library.getSymbol(kSymbol));
        library.unload();
    }
}
BENCHMARK(libraryPoco)->Name("Library/Poco");
#endif

// ---- Hex dump of 1 MiB: processes that write to /dev/null, and the call without a process.

constexpr int kDumped = 1 << 20;

// The input file of the processes; removed at exit.
char const* dumpedFile()
{
    static struct File {
        File()
        {
            int const fd = mkstemp(path);
            Bytes const bytes = someBytes(kDumped);
            if (fd < 0 || write(fd, bytes.data(), bytes.size()) != kDumped)
                abort();
            close(fd);
        }
        ~File() { unlink(path); }
        char path[32] = "/tmp/benchXXXXXX";
    } const file;
    return file.path;
}

void registerProcess(char const* row, std::vector<char const*> const& arguments)
{
    auto const run = [arguments](benchmark::State& state) {
        std::vector<char const*> words = arguments;
        words.push_back(dumpedFile());
        for (auto _ : state)
            if (!runProgram(words)) {
                state.SkipWithError("is not installed");
                break;
            }
    };
    benchmark::RegisterBenchmark(row, run)->UseRealTime()->Unit(benchmark::kMillisecond);
}

void dumpCall(benchmark::State& state)
{
    Bytes const bytes = someBytes(kDumped);
    FILE* const out = fopen("/dev/null", "w");
    for (auto _ : state) {
        zhex_dump_6_0(out, kDumped, bytes.data(), nullptr);
        fflush(out);
    }
    fclose(out);
}

bool const areProcessRowsRegistered = [] {
    registerProcess("HexDump/Z/1048576", {Z_TOOL, "hexdump"});
    registerProcess("HexDump/xxd/1048576", {"xxd"});
    registerProcess("HexDump/hexdump-C/1048576", {"hexdump", "-C"});
    benchmark::RegisterBenchmark("HexDump/floor.call/1048576", dumpCall)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    return true;
}();

}  // namespace
