// Characters of strings: iteration, tokens, counts, case. The strings of the local codeset are in
// UTF-8 too.
#include <Z/ZLCString.h>
#include <Z/ZStringIterator.h>
#include <Z/ZStringTokenizer.h>
#include <Z/ZUTF8String.h>
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <unicode/utf8.h>

#include <string>

#ifdef Z_PEER_QT
#include <QByteArray>
#endif

namespace {

constexpr size_t kSize = 65536;

struct Text {
    char const* name;
    char const* piece;
};

constexpr Text kTexts[] = {
    {"ascii", "log.level = warning\n"},
    {"latin", "Gr\u00f6\u00dfe f\u00fcr \u00c4rzte\n"},
    {"japanese", "\u8a2d\u5b9a\u3092\u5909\u66f4\u3057\u307e\u3059\n"},
};

// Whole characters, about `size` bytes.
std::string repeated(Text const& text, size_t size)
{
    std::string made;
    while (made.size() < size)
        made += text.piece;
    return made;
}

void setBytes(benchmark::State& state, std::string const& text)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}

template <class String>
void iterate(benchmark::State& state, Text const& from)
{
    std::string const text = repeated(from, kSize);
    String const source(text.c_str());
    String target;
    ZStringIterator_6_0 characters(source, target);
    for (auto _ : state) {
        characters.reset();
        while (characters.hasMore())
            benchmark::DoNotOptimize(characters.getNext());
    }
    setBytes(state, text);
}

template <class String>
void iterateViews(benchmark::State& state, Text const& from)
{
    std::string const text = repeated(from, kSize);
    String const source(text.c_str());
    for (auto _ : state) {
        ZCharacterViews_6_0 characters(source);
        while (char const* character = characters.next())
            benchmark::DoNotOptimize(character);
    }
    setBytes(state, text);
}

void forwardByIcu(benchmark::State& state, Text const& from)
{
    std::string const text = repeated(from, kSize);
    char const* const s = text.data();
    size_t const size = text.size();
    for (auto _ : state) {
        for (size_t at = 0; at < size;) {
            U8_FWD_1(s, at, size);
            benchmark::DoNotOptimize(at);
        }
    }
    setBytes(state, text);
}

template <class String>
void charCount(benchmark::State& state, Text const& from)
{
    std::string const text = repeated(from, kSize);
    String const string(text.c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(string.getCharCount());
    setBytes(state, text);
}

template <class String>
void tokenize(benchmark::State& state, Text const& from)
{
    std::string const text = repeated(from, kSize);
    String const source(text.c_str());
    String target;
    ZStringTokenizer_6_0 tokens(source, target);
    for (auto _ : state) {
        tokens.reset();
        while (tokens.hasMore())
            benchmark::DoNotOptimize(tokens.getNext());
    }
    setBytes(state, text);
}

void tokenizeBySpans(benchmark::State& state, Text const& from)
{
    constexpr char kDelimiters[] = " \t\r\n";
    std::string const text = repeated(from, kSize);
    for (auto _ : state) {
        char const* at = text.c_str();
        for (at += strspn(at, kDelimiters); *at != 0; at += strspn(at, kDelimiters)) {
            benchmark::DoNotOptimize(at);
            at += strcspn(at, kDelimiters);
        }
    }
    setBytes(state, text);
}

// Each pass finds letters of both cases, because the text is copied before it.
template <class String>
void changeCase(benchmark::State& state, bool lowers)
{
    std::string const text =
        repeated({"", "Log.Level = WARNING, debug\n"}, static_cast<size_t>(state.range(0)))
            .substr(0, static_cast<size_t>(state.range(0)));
    String const source(text.c_str());
    String string(source);
    for (auto _ : state) {
        string = source;
        lowers ? string.lower() : string.upper();
        benchmark::DoNotOptimize(string.getChars());
    }
    setBytes(state, text);
}

#ifdef Z_PEER_QT
void changeCaseByQt(benchmark::State& state, bool lowers)
{
    std::string const text =
        repeated({"", "Log.Level = WARNING, debug\n"}, static_cast<size_t>(state.range(0)))
            .substr(0, static_cast<size_t>(state.range(0)));
    QByteArray const source(text.c_str());
    for (auto _ : state) {
        QByteArray const changed = lowers ? source.toLower() : source.toUpper();
        benchmark::DoNotOptimize(changed.constData());
    }
    setBytes(state, text);
}
#endif

void add(std::string const& row, Text const& text, void (*run)(benchmark::State&, Text const&))
{
    benchmark::RegisterBenchmark((row + '/' + text.name).c_str(),
                                 [run, &text](benchmark::State& state) { run(state, text); });
}

void addCase(std::string const& row, void (*run)(benchmark::State&, bool), bool lowers)
{
    benchmark::RegisterBenchmark(row.c_str(),
                                 [run, lowers](benchmark::State& state) { run(state, lowers); })
        ->Arg(64)
        ->Arg(static_cast<int>(kSize));
}

bool const areRowsRegistered = [] {
    setenv("LC_ALL", "C.UTF-8", 1);  // read by the first string
    for (Text const& text : kTexts) {
        add("Iterate/Z", text, iterate<ZUTF8String_6_0>);
        add("Iterate/U8_FWD_1", text, forwardByIcu);
        add("IterateLocal/Z", text, iterate<ZLCString_6_0>);
        add("IterateLocal/U8_FWD_1", text, forwardByIcu);
        add("IterateViews/Z", text, iterateViews<ZUTF8String_6_0>);
        add("IterateViews/U8_FWD_1", text, forwardByIcu);
        add("CharCount/Z", text, charCount<ZUTF8String_6_0>);
        add("CharCount/U8_FWD_1", text, forwardByIcu);
        add("CharCountLocal/Z", text, charCount<ZLCString_6_0>);
        add("CharCountLocal/U8_FWD_1", text, forwardByIcu);
        add("Tokenize/Z", text, tokenize<ZUTF8String_6_0>);
        add("Tokenize/strspn+strcspn", text, tokenizeBySpans);
        add("TokenizeLocal/Z", text, tokenize<ZLCString_6_0>);
        add("TokenizeLocal/strspn+strcspn", text, tokenizeBySpans);
    }
    for (bool const lowers : {true, false}) {
        std::string const row = lowers ? "Lower" : "Upper";
        addCase(row + "/Z", changeCase<ZUTF8String_6_0>, lowers);
        addCase(row + "Local/Z", changeCase<ZLCString_6_0>, lowers);
#ifdef Z_PEER_QT
        addCase(row + "/QByteArray", changeCaseByQt, lowers);
        addCase(row + "Local/QByteArray", changeCaseByQt, lowers);
#endif
    }
    return true;
}();

}  // namespace
