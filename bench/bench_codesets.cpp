// Text services: single characters and whole strings, compared with the C library.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <locale.h>
#include <strings.h>
#include <wchar.h>
#include <wctype.h>

#include <string>

#include "qvr.h"

namespace {

struct Text {
    char const* name;
    char const* codeset;
    char const* piece;  // in UTF-8
};

constexpr Text kTexts[] = {
    {"ascii", "UTF-8", "log.level = warning\n"},
    {"utf8", "UTF-8", "Gr\u00f6\u00dfe \u20ac \u6f22\u5b57 \U0001F600\n"},
    {"latin1", "ISO-8859-1", "Gr\u00f6\u00dfe f\u00fcr \u00c4rzte\n"},
    {"eucjp", "EUC-JP", "\u8a2d\u5b9a level \u3042\u308a\n"},
    {"gb18030", "GB18030", "\u914d\u7f6e level \u00e9\u4e00\n"},
};

// A string of a few kilobytes in both codesets.
struct Sample {
    explicit Sample(Text const& text) : cs(qvr_cs_new(text.codeset))
    {
        for (int i = 0; i < 200; ++i)
            inUtf8 += text.piece;
        encoded.resize(inUtf8.size() * 2);
        ptrdiff_t const n =
            qvr_from_utf8(cs, inUtf8.data(), inUtf8.size(), encoded.data(), encoded.size());
        encoded.resize(n < 0 ? 0 : static_cast<size_t>(n));
        room.resize(inUtf8.size() * 4);
    }
    Sample(Sample const&) = delete;
    Sample& operator=(Sample const&) = delete;
    ~Sample() { qvr_cs_free(cs); }

    qvr_cs_t const cs;
    std::string inUtf8;
    std::string encoded;
    std::string room;
};

void setBytes(benchmark::State& state, std::string const& text)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}

void walk(benchmark::State& state, Text const& text)
{
    Sample const sample(text);
    for (auto _ : state) {
        char const* s = sample.encoded.c_str();
        for (int n; (n = qvr_mblen(sample.cs, s, qvrMbLenMax)) > 0;)
            s += n;
        benchmark::DoNotOptimize(s);
    }
    setBytes(state, sample.encoded);
}

// The C library supports only the codeset of its locale: UTF-8 here.
void walkInLocale(benchmark::State& state, Text const& text)
{
    Sample const sample(text);
    setlocale(LC_CTYPE, "C.UTF-8");
    for (auto _ : state) {
        char const* s = sample.encoded.c_str();
        mbstate_t shift = {};
        for (size_t n; (n = mbrlen(s, qvrMbLenMax, &shift)) > 0;)
            s += n;
        benchmark::DoNotOptimize(s);
    }
    setlocale(LC_CTYPE, "C");
    setBytes(state, sample.encoded);
}

void toUtf8(benchmark::State& state, Text const& text)
{
    Sample sample(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(qvr_to_utf8(sample.cs, sample.encoded.data(),
                                             sample.encoded.size(), sample.room.data(),
                                             sample.room.size()));
    setBytes(state, sample.encoded);
}

void fromUtf8(benchmark::State& state, Text const& text)
{
    Sample sample(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(qvr_from_utf8(sample.cs, sample.inUtf8.data(),
                                               sample.inUtf8.size(), sample.room.data(),
                                               sample.room.size()));
    setBytes(state, sample.inUtf8);
}

void byIconv(benchmark::State& state, Text const& text, bool toUtf8)
{
    Sample sample(text);
    std::string& source = toUtf8 ? sample.encoded : sample.inUtf8;
    iconv_t const converter =
        toUtf8 ? iconv_open("UTF-8", text.codeset) : iconv_open(text.codeset, "UTF-8");
    for (auto _ : state) {
        char* in = source.data();
        size_t left = source.size();
        char* out = sample.room.data();
        size_t room = sample.room.size();
        benchmark::DoNotOptimize(iconv(converter, &in, &left, &out, &room));
    }
    iconv_close(converter);
    setBytes(state, source);
}

void classify(benchmark::State& state, int (*isAlpha)(uint32_t))
{
    for (auto _ : state) {
        int letters = 0;
        for (uint32_t value = 0; value < 0x3000; ++value)
            letters += isAlpha(value);
        benchmark::DoNotOptimize(letters);
    }
}

int isAlphaInLocale(uint32_t value)
{
    return iswalpha(value) != 0;
}

void compareAscii(benchmark::State& state, bool ours)
{
    Sample const sample(kTexts[0]);
    std::string other = sample.encoded;
    qvr_strupper(sample.cs, nullptr, other.data());
    for (auto _ : state)
        benchmark::DoNotOptimize(
            ours ? qvr_stricmp(sample.cs, nullptr, sample.encoded.c_str(), other.c_str())
                 : strcasecmp(sample.encoded.c_str(), other.c_str()));
    setBytes(state, other);
}

void add(std::string const& name, void (*run)(benchmark::State&, Text const&), Text const& text)
{
    benchmark::RegisterBenchmark((name + '/' + text.name).c_str(),
                                 [run, &text](benchmark::State& state) { run(state, text); });
}

int const rows = [] {
    for (Text const& text : kTexts) {
        add("CharacterLength/Z", walk, text);
        if (std::string(text.codeset) == "UTF-8")
            add("CharacterLength/libc", walkInLocale, text);
        add("ToUtf8/Z", toUtf8, text);
        add(
            "ToUtf8/iconv", [](benchmark::State& s, Text const& t) { byIconv(s, t, true); }, text);
        add("FromUtf8/Z", fromUtf8, text);
        add(
            "FromUtf8/iconv", [](benchmark::State& s, Text const& t) { byIconv(s, t, false); },
            text);
    }
    benchmark::RegisterBenchmark("IsAlpha/Z",
                                 [](benchmark::State& state) { classify(state, qvr_iswalpha); });
    benchmark::RegisterBenchmark("IsAlpha/libc", [](benchmark::State& state) {
        setlocale(LC_CTYPE, "C.UTF-8");
        classify(state, isAlphaInLocale);
        setlocale(LC_CTYPE, "C");
    });
    benchmark::RegisterBenchmark("CompareIgnoringCase/Z",
                                 [](benchmark::State& state) { compareAscii(state, true); });
    benchmark::RegisterBenchmark("CompareIgnoringCase/libc",
                                 [](benchmark::State& state) { compareAscii(state, false); });
    return 0;
}();

}  // namespace
