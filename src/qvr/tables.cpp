#include "tables_p.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unicode/ucnv.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "codeset_names_p.h"
#include "qvr.h"

namespace qvr {
namespace {

struct BuiltIn {
    char const* alias;
    char const* name;
};

// Names that ICU lacks, or resolves differently than the operating system does.
constexpr BuiltIn kCodesets[] = {
    {"ANSI_X3.4-1968", "US-ASCII"},
    {"ASCII", "US-ASCII"},
    {"UTF8", "UTF-8"},
    {"SJIS", "Shift_JIS"},
    {"CP932", "windows-31j"},
    {"UHC", "windows-949"},
    {"CP949", "windows-949"},
    {"CP936", "GBK"},
    {"CP950", "windows-950"},
    {"CP874", "windows-874"},
    // ICU's default encodes kanji of JIS X 0212 as bytes that no other program reads.
    {"EUC-JP", "ibm-954_P101-2007"},
    {"eucJIS", "ibm-954_P101-2007"},
    {"UJIS", "ibm-954_P101-2007"},
    {"X-EUC-JP", "ibm-954_P101-2007"},
    {"csEUCPkdFmtJapanese", "ibm-954_P101-2007"},
    {"Extended_UNIX_Code_Packed_Format_for_Japanese", "ibm-954_P101-2007"},
    {"ISO_8859-16:2001", "ISO-8859-16"},
    {"iso-ir-226", "ISO-8859-16"},
    {"latin10", "ISO-8859-16"},
    {"l10", "ISO-8859-16"},
    {"PTCP154", "PT154"},
    {"csPTCP154", "PT154"},
    {"CP154", "PT154"},
    {"Cyrillic-Asian", "PT154"},
    {"KZ-1048", "RK1048"},
    {"csKZ1048", "RK1048"},
    {"STRK1048-2002", "RK1048"},
};

// Preferred names that ICU lacks, or for which its choice differs from the operating system's
// locales.
constexpr char const* kPreferred[] = {"ISO-8859-11", "ISO-8859-16", "ARMSCII-8", "GEORGIAN-PS",
                                      "KOI8-T",      "PT154",       "RK1048"};

constexpr BuiltIn kLocales[] = {
    {"bokmal", "nb_NO.ISO-8859-1"},    {"catalan", "ca_ES.ISO-8859-1"},
    {"croatian", "hr_HR.ISO-8859-2"},  {"czech", "cs_CZ.ISO-8859-2"},
    {"danish", "da_DK.ISO-8859-1"},    {"dutch", "nl_NL.ISO-8859-1"},
    {"estonian", "et_EE.ISO-8859-1"},  {"finnish", "fi_FI.ISO-8859-1"},
    {"french", "fr_FR.ISO-8859-1"},    {"galician", "gl_ES.ISO-8859-1"},
    {"german", "de_DE.ISO-8859-1"},    {"greek", "el_GR.ISO-8859-7"},
    {"hebrew", "he_IL.ISO-8859-8"},    {"hungarian", "hu_HU.ISO-8859-2"},
    {"icelandic", "is_IS.ISO-8859-1"}, {"italian", "it_IT.ISO-8859-1"},
    {"japanese", "ja_JP.EUC-JP"},      {"japanese.euc", "ja_JP.EUC-JP"},
    {"japanese.sjis", "ja_JP.SJIS"},   {"korean", "ko_KR.EUC-KR"},
    {"korean.euc", "ko_KR.EUC-KR"},    {"lithuanian", "lt_LT.ISO-8859-13"},
    {"norwegian", "nb_NO.ISO-8859-1"}, {"nynorsk", "nn_NO.ISO-8859-1"},
    {"polish", "pl_PL.ISO-8859-2"},    {"portuguese", "pt_PT.ISO-8859-1"},
    {"romanian", "ro_RO.ISO-8859-2"},  {"russian", "ru_RU.ISO-8859-5"},
    {"slovak", "sk_SK.ISO-8859-2"},    {"slovenian", "sl_SI.ISO-8859-2"},
    {"spanish", "es_ES.ISO-8859-1"},   {"swedish", "sv_SE.ISO-8859-1"},
    {"thai", "th_TH.TIS-620"},         {"turkish", "tr_TR.ISO-8859-9"},
};

// The built-in names and aliases in the form in which they are compared, computed by the compiler.
struct Key {
    char text[48];
    size_t length;

    bool operator==(std::string const& key) const
    {
        return length == key.size() && key.compare(0, length, text, length) == 0;
    }
};

constexpr Key keyOfBuiltIn(char const* name)
{
    Key key{};
    normaliseName(name, [&key](char c) { key.text[key.length++] = c; });
    return key;
}

struct BuiltInKeys {
    Key alias;
    Key name;
};

constexpr auto kCodesetKeys = [] {
    std::array<BuiltInKeys, std::size(kCodesets)> keys{};
    for (size_t i = 0; i < keys.size(); ++i)
        keys[i] = {keyOfBuiltIn(kCodesets[i].alias), keyOfBuiltIn(kCodesets[i].name)};
    return keys;
}();

// A row of a table of the directory. Equal names have the same key.
struct Alias {
    std::string key;
    std::string name;
};

// A codeset of a converter file.
struct ConverterFile {
    std::string key;
    std::string name;  // of the file, without ".cnv"
};

// The contents of a table directory.
struct Tables {
    uint64_t generation = 0;
    std::string converterDirectory;
    std::vector<Alias> codesets;
    std::vector<Alias> locales;
    std::vector<ConverterFile> converters;
};

constinit std::mutex lock_;
constinit Tables* tables_ = nullptr;     // guarded by lock_; null until a directory is given
constinit uint64_t lastGeneration_ = 0;  // guarded by lock_

// A table of the directory is unusable: qvr_set_dir fails and changes nothing.
struct BadTable {
    std::string problem;  // file and line, problem, remedy
    int error = 0;        // of a failed call
};

[[noreturn]] void throwBadTable(std::string const& path, std::string const& problem)
{
    throw BadTable{path + ": " + problem};
}

[[noreturn]] void throwCallError(std::string const& path, char const* call, int error)
{
    if (error == ENOMEM)
        throw std::bad_alloc();
    char const* const description = strerrordesc_np(error);
    throw BadTable{path + ": cannot " + call + ": " +
                       (description != nullptr ? description : "unknown error") +
                       "; check the path and its permissions",
                   error};
}

// Quotes a word of a table and makes it safe for a terminal. The word may be of any length.
std::string quoted(std::string_view word)
{
    std::string text = "\"";
    for (char const c : word.substr(0, kMaxName))
        text += c > ' ' && c < 0x7F ? c : '?';
    return text + (word.size() > kMaxName ? "...\"" : "\"");
}

std::string pathOf(std::string const& directory, char const* file)
{
    return directory + (directory.back() == '/' ? "" : "/") + file;
}

constexpr size_t kMaxTable = 1 << 20;  // bytes; real tables have a few kilobytes

// Reads a whole file; returns false if it does not exist.
bool readFile(std::string const& path, std::string& text)
{
    // Non-blocking, so that a FIFO in place of a table is refused and open() does not wait.
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return false;
        throwCallError(path, "open", errno);
    }
    struct Closer {
        int fd;
        ~Closer() { close(fd); }
    } const closer{fd};
    struct stat status;
    if (fstat(fd, &status) != 0)
        throwCallError(path, "read", errno);
    if (!S_ISREG(status.st_mode))
        throwBadTable(path, "not a regular file; replace it by one or remove it");
    auto const requireSize = [&path](size_t size) {
        if (size > kMaxTable)
            throwBadTable(path, "larger than 1 MiB; remove rows");
    };
    requireSize(static_cast<size_t>(status.st_size));
    char block[4096];
    for (;;) {
        ssize_t const got = read(fd, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throwCallError(path, "read", errno);
        requireSize(text.size());
        if (got == 0)
            return true;
        text.append(block, static_cast<size_t>(got));
    }
}

// Consumes and returns the next word of a line; empty at its end.
std::string_view nextWord(std::string_view& line)
{
    // The first comparison decides for nearly all characters of words.
    auto const isBlank = [](char c) { return c <= ' ' && (c == ' ' || c == '\t' || c == '\r'); };
    auto const begin = std::find_if_not(line.begin(), line.end(), isBlank);
    auto const end = std::find_if(begin, line.end(), isBlank);
    std::string_view const word(begin, static_cast<size_t>(end - begin));
    line.remove_prefix(static_cast<size_t>(end - line.begin()));
    return word;
}

bool isName(std::string_view word)
{
    return !word.empty() && word.size() <= kMaxName &&
           std::all_of(word.begin(), word.end(),
                       [](char c) { return c > ' ' && c < 0x7F && !isReserved(c); });
}

// Looks a key up in the built-in table; null if not found.
char const* findCodeset(std::string const& key)
{
    for (size_t i = 0; i < kCodesetKeys.size(); ++i)
        if (kCodesetKeys[i].alias == key)
            return kCodesets[i].name;
    return nullptr;
}

// Returns the same built-in name for all names of a codeset, and an unknown name unchanged. Ignores
// the tables of the directory.
char const* canonicalBuiltIn(char const* name)
{
    char const* const resolved = findCodeset(codesetKey(name));
    char const* const known = resolved != nullptr ? resolved : name;
    UErrorCode rc = U_ZERO_ERROR;
    char const* const icuName = ucnv_getAlias(known, 0, &rc);
    if (rc == U_MEMORY_ALLOCATION_ERROR)
        throw std::bad_alloc();
    return U_SUCCESS(rc) && icuName != nullptr ? icuName : known;
}

bool isUtf8(char const* name)
{
    return isSameCodesetName(canonicalBuiltIn(name), "UTF-8");
}

// A line of a table.
struct Row {
    std::string key;  // of the alias
    std::string_view alias;
    std::string_view name;
    size_t line;  // counted from 1
};

// Returns whether a row would change the meaning of a built-in name, by which the operating system
// or this library finds a codeset. ICU's other names may get another meaning, except the names of
// UTF-8. A row that repeats a built-in row needs no data of ICU.
bool redefinesCodeset(Row const& row)
{
    std::string const name = codesetKey(row.name);
    bool isBuiltIn = false;
    for (BuiltInKeys const& builtIn : kCodesetKeys) {
        bool const isAlias = builtIn.alias == row.key;
        if (isAlias && builtIn.name == name)
            return false;
        isBuiltIn = isBuiltIn || isAlias || builtIn.name == row.key;
    }
    std::string const alias(row.alias);
    return (isBuiltIn || isUtf8(alias.c_str())) &&
           !isSameCodesetName(canonicalBuiltIn(alias.c_str()),
                              canonicalBuiltIn(std::string(row.name).c_str()));
}

// Returns the same key for all equal names of locales: everything except case is significant.
std::string localeKey(std::string_view name)
{
    std::string key(name);
    for (char& c : key)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c | 0x20);
    return key;
}

// Looks a key up in the built-in table; null if not found.
char const* findLocale(std::string const& key)
{
    for (BuiltIn const& row : kLocales)
        if (key == row.alias)
            return row.name;
    return nullptr;
}

// The same as redefinesCodeset() for locales. A site may redefine the names of languages
// ("german").
bool redefinesLocale(Row const& row)
{
    auto const isC = [](std::string const& key) { return key == "c" || key == "posix"; };
    return isC(row.key) && !isC(localeKey(row.name));
}

std::string keyOfBuiltInCodeset(size_t index)
{
    Key const& key = kCodesetKeys[index].alias;
    return std::string(key.text, key.length);
}

std::string keyOfBuiltInLocale(size_t index)
{
    return kLocales[index].alias;
}

// A table of the directory.
struct TableKind {
    char const* file;
    std::string (*keyOf)(std::string_view name);
    bool (*redefines)(Row const& row);
    BuiltIn const* builtIn;
    size_t builtInCount;
    std::string (*keyOfBuiltIn)(size_t index);
};

constexpr TableKind kCodesetTable = {"codesets.alias", codesetKey,           redefinesCodeset,
                                     kCodesets,        std::size(kCodesets), keyOfBuiltInCodeset};
constexpr TableKind kLocaleTable = {"locales.alias", localeKey,           redefinesLocale,
                                    kLocales,        std::size(kLocales), keyOfBuiltInLocale};

// Refuses a table in which an alias has two lines. Of several such aliases, it reports the alias
// whose second line is first in the file.
void requireUnique(std::vector<Row> const& rows, std::string const& path)
{
    Row const* first = nullptr;
    Row const* second = nullptr;
    for (size_t i = 1; i < rows.size(); ++i) {
        if (rows[i - 1].key == rows[i].key && (second == nullptr || rows[i].line < second->line)) {
            first = &rows[i - 1];
            second = &rows[i];
        }
    }
    if (second != nullptr)
        throwBadTable(path + ':' + std::to_string(second->line),
                      quoted(second->alias) + " has a line already, " +
                          std::to_string(first->line) + "; remove one of them");
}

// Returns the rows of a table as aliases, in the order of their keys.
std::vector<Alias> toAliases(std::vector<Row>& rows, std::string const& path)
{
    std::sort(rows.begin(), rows.end(), [](Row const& a, Row const& b) {
        int const order = a.key.compare(b.key);
        return order != 0 ? order < 0 : a.line < b.line;
    });
    requireUnique(rows, path);
    std::vector<Alias> aliases;
    aliases.reserve(rows.size());
    for (Row& row : rows)
        aliases.push_back({std::move(row.key), std::string(row.name)});
    return aliases;
}

// Parses a table: each line has an alias and the name it stands for, "#" starts a comment. Returns
// the rows in the order of their aliases.
std::vector<Alias> readTable(std::string const& directory, TableKind const& kind)
{
    std::string const path = pathOf(directory, kind.file);
    std::vector<Row> rows;
    size_t repeated = 0;  // built-in rows: most tables repeat them in order
    std::string text;
    if (!readFile(path, text))
        return {};
    rows.reserve(kind.builtInCount);
    std::string_view rest = text;
    for (size_t number = 1; !rest.empty(); ++number) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        line = line.substr(0, line.find('#'));
        std::string_view const alias = nextWord(line);
        std::string_view const name = nextWord(line);
        if (alias.empty())
            continue;
        auto const throwBadLine = [&](std::string const& problem) {
            throwBadTable(path + ':' + std::to_string(number), problem);
        };
        if (name.empty() || !nextWord(line).empty())
            throwBadLine("not two names; write an alias and the name it stands for");
        if (repeated < kind.builtInCount && alias == kind.builtIn[repeated].alias &&
            name == kind.builtIn[repeated].name) {
            rows.push_back({kind.keyOfBuiltIn(repeated++), alias, name, number});
            continue;
        }
        for (std::string_view const word : {alias, name})
            if (!isName(word))
                throwBadLine(quoted(word) +
                             " is not a name; write up to 127 characters of ASCII, none of / \\ ,");
        rows.push_back({kind.keyOf(alias), alias, name, number});
        if (kind.redefines(rows.back()))
            throwBadLine(quoted(alias) + " is built in and cannot stand for " + quoted(name) +
                         "; remove the line");
    }
    return toAliases(rows, path);
}

// Makes `directory` absolute: the process may change its working directory before it reads a
// converter file, and ICU looks up a short relative path in its own data.
std::string makeAbsolute(std::string const& directory)
{
    if (directory.front() == '/')
        return directory;
    std::unique_ptr<char, void (*)(void*)> const here(getcwd(nullptr, 0), std::free);
    if (here == nullptr) {
        if (errno == ENOMEM)
            throw std::bad_alloc();
        return directory;  // does not exist, like the working directory
    }
    return std::string(here.get()) + '/' + directory;
}

std::vector<ConverterFile> readConverterNames(std::string const& directory)
{
    constexpr std::string_view kSuffix = ".cnv";
    std::vector<ConverterFile> names;
    std::unique_ptr<DIR, int (*)(DIR*)> const stream(opendir(directory.c_str()), closedir);
    if (stream == nullptr) {
        if (errno == ENOENT || errno == ENOTDIR)
            return names;
        throwCallError(directory, "open", errno);
    }
    for (;;) {
        errno = 0;
        dirent const* const entry = readdir(stream.get());
        if (entry == nullptr && errno != 0)
            throwCallError(directory, "read", errno);
        if (entry == nullptr)
            return names;
        std::string_view file = entry->d_name;
        if (file.size() <= kSuffix.size() || file.substr(file.size() - kSuffix.size()) != kSuffix)
            continue;
        file.remove_suffix(kSuffix.size());
        if (!isName(file))
            continue;
        names.push_back({codesetKey(file), std::string(file)});
        if (isUtf8(names.back().name.c_str()))
            throwBadTable(pathOf(directory, entry->d_name), "UTF-8 is built in; remove the file");
    }
}

// Looks a key up in a table of the directory; null if not found.
char const* find(std::vector<Alias> const& rows, std::string const& key)
{
    auto const row = std::lower_bound(
        rows.begin(), rows.end(), key,
        [](Alias const& entry, std::string const& wanted) { return entry.key < wanted; });
    return row != rows.end() && row->key == key ? row->name.c_str() : nullptr;
}

// Reads the tables of `directory`. An empty name means no directory, not the root. Throws BadTable
// and std::bad_alloc.
std::unique_ptr<Tables> readTables(std::string const& directory)
{
    auto tables = std::make_unique<Tables>();
    if (directory.empty())
        return tables;
    tables->converterDirectory = pathOf(makeAbsolute(directory), "converters");
    tables->codesets = readTable(directory, kCodesetTable);
    tables->locales = readTable(directory, kLocaleTable);
    tables->converters = readConverterNames(tables->converterDirectory);
    return tables;
}

}  // namespace

CodesetName resolveCodeset(char const* name)
{
    CodesetName found{name, {}, 0};
    {
        std::lock_guard<std::mutex> const guard(lock_);
        if (tables_ != nullptr) {
            if (char const* const target = find(tables_->codesets, codesetKey(name)))
                found.name = target;
            std::string const key = codesetKey(found.name);
            for (ConverterFile const& converter : tables_->converters) {
                if (converter.key != key)
                    continue;
                found.name = converter.name;
                found.directory = tables_->converterDirectory;
                found.generation = tables_->generation;
                return found;
            }
        }
    }
    if (char const* const target = findCodeset(codesetKey(found.name)))
        found.name = target;
    return found;
}

std::string preferredCodesetName(char const* name)
{
    // The names of most locales' codesets, without the data of ICU.
    for (char const* common : {"UTF-8", "ISO-8859-1", "US-ASCII"})
        if (isSameCodesetName(name, common))
            return common;
    std::string const resolved = resolveCodeset(name).name;
    // The given name first: it may resolve to a table of ICU that has no other names.
    char const* const names[] = {name, resolved.c_str()};
    for (char const* candidate : names)
        for (char const* preferred : kPreferred)
            if (isSameCodesetName(candidate, preferred))
                return preferred;
    for (char const* candidate : names) {
        for (char const* standard : {"MIME", "IANA"}) {
            UErrorCode rc = U_ZERO_ERROR;
            char const* const preferred = ucnv_getStandardName(candidate, standard, &rc);
            if (U_SUCCESS(rc) && preferred != nullptr)
                return preferred;
        }
    }
    return name;
}

std::string resolveLocale(char const* name)
{
    std::string found = name;
    {
        std::lock_guard<std::mutex> const guard(lock_);
        if (tables_ != nullptr)
            if (char const* const target = find(tables_->locales, localeKey(name)))
                found = target;
    }
    if (char const* const target = findLocale(localeKey(found)))
        found = target;
    return found;
}

}  // namespace qvr

using namespace qvr;

int qvr_set_dir(char const* dir)
{
    if (dir == nullptr)
        return qvrInvalid;
    try {
        std::unique_ptr<Tables> fresh = readTables(dir);
        std::lock_guard<std::mutex> const guard(lock_);
        fresh->generation = ++lastGeneration_;
        std::unique_ptr<Tables> const old(tables_);
        tables_ = fresh.release();
        return 0;
    } catch (BadTable const&) {
        return qvrInvalid;
    } catch (std::bad_alloc const&) {
        return qvrNoMemory;
    }
}

int qvr_check_dir(char const* dir, char* problem, size_t room)
{
    if (problem == nullptr)
        room = 0;
    if (room > 0)
        *problem = 0;
    if (dir == nullptr)
        return qvrInvalid;
    try {
        readTables(dir);
        return 0;
    } catch (BadTable const& bad) {
        if (room > 0)
            problem[bad.problem.copy(problem, room - 1)] = 0;
        errno = bad.error;
        return qvrInvalid;
    } catch (std::bad_alloc const&) {
        return qvrNoMemory;
    }
}
