// Formatted output: one row per kind of format. Every contender gets its format at run time.
#include <Z/zsnprintf.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#ifdef Z_PEER_FMT
#include <fmt/format.h>
#endif

namespace {

// Registers the contenders of one row. `braces` is the same format in the syntax of fmt.
template <class... Arguments>
void row(char const* name, char const* format, char const* braces, Arguments... arguments)
{
    benchmark::RegisterBenchmark(
        (std::string("ZSnprintf/Z/") + name).c_str(), [=](benchmark::State& state) {
            char buffer[1024];
            for (auto _ : state) {
                benchmark::DoNotOptimize(
                    zsnprintf_6_0(buffer, sizeof buffer, format, arguments...));
                benchmark::ClobberMemory();
            }
        });
    benchmark::RegisterBenchmark(
        (std::string("ZSnprintf/libc/") + name).c_str(), [=](benchmark::State& state) {
            char buffer[1024];
            for (auto _ : state) {
                // No format uses the 0; clang warns about a call without arguments.
                benchmark::DoNotOptimize(snprintf(buffer, sizeof buffer, format, arguments..., 0));
                benchmark::ClobberMemory();
            }
        });
#ifdef Z_PEER_FMT
    benchmark::RegisterBenchmark(
        (std::string("ZSnprintf/fmt/") + name).c_str(), [=](benchmark::State& state) {
            char buffer[1024];
            for (auto _ : state) {
                auto const end =
                    fmt::format_to_n(buffer, sizeof buffer - 1, fmt::runtime(braces), arguments...);
                *end.out = '\0';
                benchmark::DoNotOptimize(end.size);
                benchmark::ClobberMemory();
            }
        });
#else
    (void)braces;
#endif
}

constexpr char kMessage[] =
    "The configuration file %s has an invalid value %s for key %s in stanza %s.";
constexpr char kMessageBraces[] =
    "The configuration file {} has an invalid value {} for key {} in stanza {}.";
constexpr char kLiteral[] =
    "A string without any conversion, as long as the usual line of a report is.";

int const rows = [] {
    static int object = 0;
    std::string const* const text = new std::string(400, 'x');
    row("empty", "", "");
    row("literal", kLiteral, kLiteral);
    row("digit", "%d", "{}", 7);
    row("int", "%d", "{}", -1234567);
    row("long", "%ld", "{}", 1234567890123456789L);
    row("hex", "%x", "{:x}", 0xDEADBEEFu);
    row("hex_padded", "%016lx", "{:016x}", 0xDEADBEEFul);
    row("hex_prefixed", "%#10x", "{:#10x}", 0xBEEFu);
    row("octal", "%o", "{:o}", 0644u);
    row("width", "%8d|%-8d|", "{:8}|{:<8}|", 42, 42);
    row("char", "%c%c%%", "{}{}%", 'a', 'b');
    row("pointer", "%p", "{}", static_cast<void const*>(&object));
    row("string", "%s", "{}", "hello, world");
    row("string_400", "%s", "{}", text->c_str());
    row("string_padded", "%-20s|%.5s", "{:20}|{:.5}", "hello", "hello, world");
    row("star", "%*d %.*s", "{1:{0}} {3:.{2}}", 8, 42, 5, "hello, world");
    row("mixed", "%s=%d %5.2f", "{}={} {:5.2f}", "key", 42, 3.14159);
    row("message", kMessage, kMessageBraces, "/etc/app/app.conf", "maybe", "enabled", "service");
    row("fixed", "%f", "{:f}", 3.14159265);
    row("fixed_large", "%.3f", "{:.3f}", 123456789012.345);
    row("fixed_huge", "%f", "{:f}", 1.5e300);
    row("general", "%g", "{:g}", 3.14159265);
    row("general_small", "%g", "{:g}", 1.6e-19);
    row("general_17", "%.17g", "{:.17g}", 0.1);
    row("exponent", "%e", "{:e}", 3.14159265);
    row("exponent_large", "%e", "{:e}", 6.022e23);
    row("exponent_huge", "%e", "{:e}", 1.5e300);
    row("long_double", "%Lf", "{:f}", 3.14159265L);
    row("long_double_general", "%Lg", "{:g}", 3.14159265L);
    row("long_double_huge", "%Le", "{:e}", 1.5e4000L);
    row("infinity", "%f", "{:f}", __builtin_inf());
    row("alternate", "%#.3g", "{:#.3g}", 2.5);
    row("positional", "%2$s %1$d", "{1} {0}", 42, "text");
    row("twelve", "%d %d %d %d %d %d %d %d %d %d %d %d", "{} {} {} {} {} {} {} {} {} {} {} {}", 1,
        2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12);
    return 0;
}();

}  // namespace
