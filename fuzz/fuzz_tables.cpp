// Alias tables and converter files: a directory with any contents is used as a whole or not at all,
// checking it returns the same as using it, and built-in names keep their meaning.
#include <qvr.h>
#include <stdint.h>
#include <sys/stat.h>

#include <string>

#include "ScratchDirectory.h"
#include "check.h"

namespace {

constexpr char kCodesets[] = "codesets.alias";
constexpr char kLocales[] = "locales.alias";
constexpr char kConverters[] = "converters";
constexpr char kConverter[] = "converters/fuzzed.cnv";
constexpr char kForeign[] = "converters/UTF-8.cnv";

// The conversion of every byte by a codeset.
std::string meaning(char const* name)
{
    qvr_cs_t const cs = qvr_cs_new(name);
    if (cs == nullptr)
        return "unknown";
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        char const text = static_cast<char>(byte);
        char out[16];
        ptrdiff_t const length = qvr_to_utf8(cs, &text, 1, out, sizeof out);
        check(length <= static_cast<ptrdiff_t>(sizeof out), "no byte converts to a long string");
        all += length < 0 ? "-" : std::string(out, static_cast<size_t>(length));
        all += ',';
    }
    qvr_cs_free(cs);
    return all;
}

std::string canonical(char const* name)
{
    char out[256];
    return qvr_canonical_loc(name, out, sizeof out) == 0 ? out : "none";
}

// Each name in the table of codesets resolves to the same codeset, or to none, at every lookup.
void namesAreStable(std::string const& table)
{
    size_t at = 0;
    for (int n = 0; n < 4 && at < table.size(); ++n) {
        size_t const end = std::min(table.find_first_of(" \t\n", at), table.size());
        std::string const name = table.substr(at, end - at).c_str();
        if (!name.empty())
            check(meaning(name.c_str()) == meaning(name.c_str()), "a name has one meaning");
        at = std::min(table.find('\n', at), table.size() - 1) + 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static ScratchDirectory const tables;
    static ScratchDirectory const none;
    static char const* const kBuiltIn[] = {"UTF-8", "utf8", "US-ASCII", "EUC-JP", "CP932"};
    static std::string const kMeanings = [] {
        check(qvr_set_dir(none.path()) == 0, "an empty directory is valid");
        std::string all;
        for (char const* name : kBuiltIn)
            all += meaning(name);
        return all;
    }();
    static std::string const kC = canonical("POSIX");

    Choices choices(data, size);
    unsigned const what = choices.byte();
    std::string const converter = what & 4 ? choices.text(250) : "";
    std::string const locales = what & 2 ? choices.text(250) : "";
    std::string const codesets = choices.rest();
    tables.clear();
    check(mkdir(tables.at(kConverters).c_str(), 0700) == 0, "its subdirectory is created");
    if (what & 1)
        tables.write(kCodesets, codesets);
    if (what & 2)
        tables.write(kLocales, locales);
    if (what & 4)
        tables.write(kConverter, converter);
    if ((what & 0xF8) == 0x88)
        tables.write(kForeign, converter);

    check(qvr_set_dir(none.path()) == 0, "an empty directory is valid");
    std::string const before = canonical("german") + meaning("fuzzed");
    char problem[300] = "untouched";
    int const checked = qvr_check_dir(tables.path(), problem, sizeof problem);
    check(canonical("german") + meaning("fuzzed") == before, "checking changes nothing");
    int const set = qvr_set_dir(tables.path());
    check(set == checked, "checking returns the same as using");
    check((set == 0) == (*problem == '\0'), "exactly a bad directory has a problem");
    char cut[8] = "1234567";
    qvr_check_dir(tables.path(), cut, sizeof cut);
    check(std::string(problem).compare(0, strlen(cut), cut) == 0 && strlen(cut) < sizeof cut,
          "a problem is truncated to its buffer");
    if (set != 0) {
        check(canonical("german") + meaning("fuzzed") == before, "a bad directory changes nothing");
        check(strstr(problem, "; ") != nullptr, "the problem contains a remedy");
    } else {
        check((what & 0xF8) != 0x88, "a converter file called UTF-8 is rejected");
        namesAreStable(codesets);
    }
    std::string meanings;
    for (char const* name : kBuiltIn)
        meanings += meaning(name);
    check(meanings == kMeanings, "built-in names keep their meaning");
    check(canonical("POSIX") == kC && canonical("C") == "C", "the locale C keeps its meaning");
    return 0;
}
