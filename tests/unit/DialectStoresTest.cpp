// Two changes in one store give the file that a store after each change gives, in one of the two
// orders: a store compares contents, and does not know the order of the changes.
//
// Random pairs of changes of sample files and random files: values, new values, keys and stanzas,
// renames, removals and comments.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "DialectModel.h"
#include "DialectStore.h"
#include "TestDirectory.h"

namespace fs = std::filesystem;
using namespace dialect_model;

namespace {

using Store = ZStanzaFileProperties_6_0;

// A change of a store.
struct Change {
    enum Kind {
        set,
        addValue,
        addKey,
        removeKey,
        renameKey,
        addStanza,
        removeStanza,
        renameStanza,
        comment,
        removeComment,
        kindCount
    };
    Kind kind;
    std::string stanza;
    std::string key;   // empty: the stanza
    std::string text;  // a value, name or comment

    void make(Store& store) const
    {
        char const* const s = stanza.c_str();
        char const* const k = key.c_str();
        switch (kind) {
            case set:
            case addKey:
            case addStanza:
                return store.setValue(s, k, text.c_str());
            case addValue:
                return store.addValue(s, k, text.c_str(), 0);
            case removeKey:
                return store.deleteKey(s, k);
            case renameKey:
                return store.renameKey(s, k, text.c_str());
            case removeStanza:
                return store.deleteStanza(s);
            case renameStanza:
                return store.renameStanza(s, text.c_str());
            case comment:
                return store.setComment(s, key.empty() ? nullptr : k, text.c_str());
            default:
                return store.setComment(s, key.empty() ? nullptr : k, nullptr);
        }
    }

    std::string describe() const
    {
        static char const* const names[] = {
            "set",        "add value",     "add key",       "remove key", "rename key",
            "add stanza", "remove stanza", "rename stanza", "comment",    "remove comment"};
        return std::string(names[kind]) + " [" + stanza + "] " + key + " <" + text + ">";
    }
};

// Returns the text after changes in one store; nothing if one of them is refused.
std::optional<std::string> stored(ZStanzaDialect_6_0 const& dialect, std::string const& text,
                                  std::vector<Change> const& changes)
{
    try {
        Store store(1, dialect);
        store.setAttributes(ZPCache_6_0::keepLines | ZPCache_6_0::keepComments, nullptr);
        store.loadText(text.data(), text.size());
        for (Change const& change : changes)
            change.make(store);
        return textOf(store);
    } catch (ZException_6_0 const&) {
        return std::nullopt;
    }
}

std::optional<std::string> storedOneByOne(ZStanzaDialect_6_0 const& dialect,
                                          std::string const& text, Change const& first,
                                          Change const& second)
{
    std::optional<std::string> const between = stored(dialect, text, {first});
    return between ? stored(dialect, *between, {second}) : std::nullopt;
}

struct Counts {
    int files = 0;
    int made = 0;
    int exempt = 0;
    int reported = 0;
};

// Returns the reason for which one store can differ from two; null if it must not.
char const* reasonToDiffer(DialectModel const& model, Change const& a, Change const& b)
{
    auto const removes = [](Change const& change) {
        return change.kind == Change::removeKey || change.kind == Change::removeStanza;
    };
    auto const adds = [](Change const& change) {
        return change.kind == Change::addKey || change.kind == Change::addStanza;
    };
    Change const& removal = removes(a) ? a : b;
    Change const& addition = adds(a) ? a : b;
    bool isScattered = false;  // other keys are between lines of a key
    size_t left = 0;           // keys that show the place or the style of the new line
    for (Stanza const& stanza : model.stanzas)
        for (Key const& key : stanza.keys) {
            bool const isGone = stanza.name == removal.stanza &&
                                (removal.kind == Change::removeStanza || key.name == removal.key);
            bool const isNear =
                addition.kind == Change::addStanza || stanza.name == addition.stanza;
            for (size_t i = 1; i < key.values.size() && stanza.name == removal.stanza; ++i)
                isScattered = isScattered || key.values[i].line != key.values[i - 1].lastLine + 1;
            left += !isGone && isNear ? 1 : 0;
        }
    if (removes(removal) && adds(addition) && left == 0)
        return "the new line has the place or the style of the only key, which it replaces";
    if (removal.kind == Change::removeKey && addition.kind == Change::addKey && isScattered)
        return "the place of the removed key among the parts of its stanza is not known";
    return nullptr;
}

// Makes random pairs of changes of a file.
class Pairs {
public:
    Pairs(std::string name, std::string const& dialect, std::string text, unsigned seed,
          Counts& counts)
        : name_(std::move(name)),
          rules_(findDialect(dialect)->rules),
          dialect_(dialectNamed(dialect)),
          text_(std::move(text)),
          model_(text_, rules_),
          random_(seed),
          counts_(counts)
    {
        for (Stanza const& stanza : model_.stanzas)
            if (!stanza.keys.empty())
                stanzas_.push_back(&stanza);
    }

    bool canRun() const
    {
        return !model_.refused() && !stanzas_.empty() && text_.find('\0') == std::string::npos;
    }

    void run(int count)
    {
        ++counts_.files;
        for (; count > 0; --count)
            check(change("n1"), change("n2"));
    }

private:
    unsigned pick(size_t count)
    {
        return std::uniform_int_distribution<unsigned>(0,
                                                       static_cast<unsigned>(count) - 1)(random_);
    }

    // Returns a random change; `fresh` is the new name or value.
    Change change(std::string const& fresh)
    {
        Stanza const& stanza = *stanzas_[pick(stanzas_.size())];
        Key const& key = stanza.keys[pick(stanza.keys.size())];
        auto const kind = static_cast<Change::Kind>(pick(Change::kindCount));
        Change change{kind, stanza.name, key.name, fresh};
        switch (kind) {
            case Change::addKey:
                change.key = fresh;
                break;
            case Change::addStanza:
                change.stanza = change.key = fresh;
                break;
            case Change::removeStanza:
            case Change::renameStanza:
                change.key.clear();
                break;
            case Change::comment:
            case Change::removeComment:
                if (pick(3) == 0 && stanza.name != ".")
                    change.key.clear();
                if (kind == Change::comment)
                    change.text = std::string((rules_.marks & hash) != 0 ? "# " : "; ") + fresh;
                break;
            default:
                break;
        }
        return change;
    }

    static bool areSame(Change const& a, Change const& b)
    {
        bool const isWhole = a.kind == Change::removeStanza || b.kind == Change::removeStanza ||
                             a.kind == Change::renameStanza || b.kind == Change::renameStanza;
        return a.stanza == b.stanza && (isWhole || a.key == b.key);
    }

    void check(Change const& a, Change const& b)
    {
        if (areSame(a, b))
            return;
        std::optional<std::string> const both = stored(dialect_, text_, {a, b});
        std::optional<std::string> const ab = storedOneByOne(dialect_, text_, a, b);
        std::optional<std::string> const ba = storedOneByOne(dialect_, text_, b, a);
        if (!ab || !ba)
            return;  // one of them is refused
        ++counts_.made;
        if (both == ab || both == ba)
            return;
        if (reasonToDiffer(model_, a, b) != nullptr) {
            ++counts_.exempt;
            return;
        }
        constexpr int kMaxReports = 3;
        constexpr size_t kMaxShown = 3000;
        if (++counts_.reported <= kMaxReports)
            ADD_FAILURE() << name_ << "\n"
                          << a.describe() << "\n"
                          << b.describe() << "\n--- before\n"
                          << text_.substr(0, kMaxShown) << "\n--- one store\n"
                          << both.value_or("refused").substr(0, kMaxShown)
                          << "\n--- first, second\n"
                          << ab->substr(0, kMaxShown) << "\n--- second, first\n"
                          << (ab == ba ? "the same" : ba->substr(0, kMaxShown));
    }

    std::string const name_;
    Switches const rules_;
    ZStanzaDialect_6_0 const dialect_;
    std::string const text_;
    DialectModel const model_;
    std::mt19937 random_;
    Counts& counts_;
    std::vector<Stanza const*> stanzas_;
};

// Returns a random file with the elements that a dialect has.
std::string randomFile(Switches const& rules, unsigned seed)
{
    std::mt19937 random(seed);
    auto const pick = [&](unsigned count) {
        return std::uniform_int_distribution<unsigned>(0, count - 1)(random);
    };
    unsigned number = 0;
    std::string const mark = (rules.marks & hash) != 0 ? "#" : ";";
    std::string const trailing = (rules.trailing & hash) != 0 ? "  # t" : "  ; t";
    std::string const separator =
        rules.separatorStyle == SeparatorStyle::tightEquals && rules.heads == Heads::none ? "="
        : pick(2) == 0                                                                    ? "="
                                                                                          : " = ";
    std::string text;
    auto const addLines = [&] {
        for (unsigned lines = 1 + pick(8); lines > 0; --lines) {
            std::string const id = std::to_string(++number);
            switch (pick(9)) {
                case 0:
                    text += "\n";
                    break;
                case 1:
                    text += mark + " c" + id + "\n";
                    break;
                case 2:
                    text += "\n" + mark + " d" + id + "\n";
                    break;
                case 3:
                    if (rules.keyAlone == KeyAlone::passedOver ||
                        rules.keyAlone == KeyAlone::passedOverOrNoName)
                        text += "junk" + id + "\n";
                    break;
                default:
                    text += std::string(1 + pick(3), static_cast<char>('j' + pick(6)));
                    text += separator;
                    text += (rules.quotes != 0 && pick(4) == 0) ? "\"v" + id + "\"" : "v" + id;
                    if ((rules.join & (asBlank | asNothing | insideValue)) != 0 && pick(6) == 0)
                        text += " \\\n w" + id;
                    else if (rules.trailing != 0 && pick(4) == 0)
                        text += trailing;
                    text += "\n";
                    break;
            }
        }
    };
    if (rules.heads == Heads::none || (rules.top == Top::stanza && pick(2) == 0))
        addLines();
    for (unsigned headers = rules.heads == Heads::none ? 0 : 1 + pick(4); headers > 0; --headers) {
        text += std::string("[") + "abcd"[pick(4)] + "]\n";
        addLines();
    }
    if (pick(8) == 0)
        text.pop_back();
    return text;
}

// Returns the number of random files of each dialect. Z_STORE_SEEDS sets another: 700 give 75,000
// pairs.
unsigned seedCount()
{
    constexpr unsigned kSeeds = 150;
    char const* const wanted = getenv("Z_STORE_SEEDS");
    return wanted == nullptr ? kSeeds : static_cast<unsigned>(strtoul(wanted, nullptr, 10));
}

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void print(std::map<std::string, Counts> const& counts)
{
    for (auto const& [dialect, count] : counts) {
        std::cout << dialect << ": " << count.files << " files, " << count.made << " pairs, "
                  << count.exempt << " exempt\n";
        EXPECT_EQ(0, count.reported) << dialect;
        EXPECT_LE(50 * count.exempt, count.made + 50) << dialect;
    }
}

}  // namespace

TEST(DialectStores, PairsOfChangesOfTheSamples)
{
    std::map<std::string, Counts> counts;
    unsigned seed = 0;
    std::vector<fs::path> paths;
    for (fs::directory_entry const& entry : fs::directory_iterator(Z_TEST_DATA "/dialects"))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    for (fs::path const& path : paths) {
        std::string const name = path.filename();
        std::string const extension = path.extension();
        if (extension == ".reading" || extension == ".refused" || extension == ".counts")
            continue;
        std::string const dialect = name.substr(0, name.find('.'));
        Pairs pairs(name, dialect, bytesOf(path), ++seed, counts[dialect]);
        if (pairs.canRun())
            pairs.run(40);
    }
    print(counts);
}

TEST(DialectStores, PairsOfChangesOfRandomFiles)
{
    std::map<std::string, Counts> counts;
    for (Dialect const& dialect : kDialects)
        for (unsigned seed = 0; seed < seedCount(); ++seed) {
            std::string const name(dialect.name);
            Pairs pairs(name + " seed " + std::to_string(seed), name,
                        randomFile(dialect.rules, seed), seed, counts[name]);
            if (pairs.canRun())
                pairs.run(10);
        }
    print(counts);
}

TEST(DialectStores, ARemovedStanzaLeavesTheCommentsAboveItsHeaders)
{
    struct Case {
        char const* before;
        char const* after;
    };
    for (Case const& c :
         {Case{"[b]\nj=1\n[c]\nk=4\n# h\n[b]\nl=2\n", "[c]\nk=4\n# h\n"},
          Case{"# f\n\n# g\n[b]\nj=1\n# h\n[b]\nl=2\n# i\n[c]\nk=4\n",
               "# f\n\n# g\n\n# h\n\n# i\n[c]\nk=4\n"},
          Case{"[c]\nk=4\n# h\n# i\n[b]\nl=2\n# of l\nm=2\n", "[c]\nk=4\n# h\n# i\n"}}) {
        SCOPED_TRACE(c.before);
        TestDirectory const directory;
        std::string const path = directory.write("x.service", c.before);
        Store store(path.c_str(), 1, dialectNamed("systemd"));
        store.deleteStanza("b");
        store.store(nullptr);
        EXPECT_EQ(c.after, directory.read("x.service"));
        store.setValue("c", "k", "5");
        store.store(nullptr);
        std::string after = c.after;
        after[after.find('4')] = '5';
        EXPECT_EQ(after, directory.read("x.service"));
    }
}

// After a store without the stanza, its comment is a comment of the stanza above, as in a file that
// is read.
TEST(DialectStores, TheCommentAboveARemovedStanzaStaysIfTheStanzaAboveIsRemovedInTheSameStore)
{
    struct Case {
        char const* name;
        char const* before;
        char const* after;
        char const* afterStores;  // without [b], then without [d]
    };
    for (Case const& c :
         {Case{"a repeated header is below", "[d]\nn=1\n# h\n[b]\nk=2\n[d]\nl=3\n[e]\nm=4\n",
               "# h\n\n[e]\nm=4\n", "[e]\nm=4\n"},
          Case{"a header of a third stanza is below",
               "[d]\nn=1\n\n# h\n[b]\nk=2\n[e]\nm=4\n[b]\nl=3\n", "# h\n\n[e]\nm=4\n",
               "[e]\nm=4\n"},
          Case{"the next header has a comment, too", "[d]\nn=1\n# h\n[b]\nk=2\n\n# i\n[e]\nm=4\n",
               "# h\n\n# i\n[e]\nm=4\n", "# i\n[e]\nm=4\n"},
          Case{"a line that is passed over parts the comments",
               "[d]\n# c\njunk\n[b]\nk=2\njunk\n# i\n[e]\nm=4\n", "# i\n[e]\nm=4\n",
               "# i\n[e]\nm=4\n"}}) {
        SCOPED_TRACE(c.name);
        ZStanzaDialect_6_0 const dialect = dialectNamed("systemd");
        Change const b{Change::removeStanza, "b", {}, {}};
        Change const d{Change::removeStanza, "d", {}, {}};
        EXPECT_EQ(c.after, stored(dialect, c.before, {b, d}));
        EXPECT_EQ(c.after, stored(dialect, c.before, {d, b}));
        EXPECT_EQ(c.after, storedOneByOne(dialect, c.before, d, b));
        EXPECT_EQ(c.afterStores, storedOneByOne(dialect, c.before, b, d));
        TestDirectory const directory;
        std::string const path = directory.write("x.service", c.before);
        Store store(path.c_str(), 1, dialect);
        for (Change const& change : {b, d}) {
            change.make(store);
            store.store(nullptr);
        }
        EXPECT_EQ(c.afterStores, directory.read("x.service"));
    }
}

TEST(DialectStores, AStanzaThatRepeatsMatchesByItsOwnComments)
{
    EXPECT_EQ("[d]\nj = 2\n# h\n[a]\nk = 9\n",
              stored(dialectNamed("networkd"), "[d]\nj = 1\n[b]\n# c\nl = 4\n\n# h\n[a]\nk = 9\n",
                     {{Change::removeStanza, "b", {}, {}}, {Change::set, "d", "j", "2"}}));
}

TEST(DialectStores, AnEmptyStanzaThatRepeatsMatchesAnEmptyStanza)
{
    EXPECT_EQ("[b]\nj = 1\n[b]\n\n# d\n[a]\nk = 9\nn = 3\n",
              stored(dialectNamed("networkd"),
                     "[b]\nj = 1\n[b]\n\n# c\n\nm = 2\n[b]\n\n# d\n[a]\nk = 9\n",
                     {{Change::removeStanza, "b]2", {}, {}}, {Change::addKey, "a", "n", "3"}}));
}

TEST(DialectStores, ValuesOfTheKeyAboveStayAboveACommentThatMoves)
{
    std::string const text = "[a]\nk = 3\nl = \"x\\\ny\" \\\n; c\nm=1\n";
    EXPECT_EQ("[a]\nk = 3\nk = 4\n; c\nl = \"z\"\nm=1\n",
              stored(dialectNamed("git"), text,
                     {{Change::addValue, "a", "k", "4"}, {Change::set, "a", "l", "z"}}));
}

TEST(DialectStores, NewLinesNextToRemovedLinesAreWhereStoresInTurnPutThem)
{
    struct Case {
        char const* name;
        char const* before;
        Change first;
        Change second;
        char const* after;
    };
    for (Case const& c :
         {Case{"a comment below a removed key, which has a comment", "[a]\n# c\nk=1\n[d]\nj=2\n",
               Change{Change::comment, "d", {}, "# n"}, Change{Change::removeKey, "a", "k", {}},
               "[a]\n# c\n# n\n[d]\nj=2\n"},
          Case{"a comment below a removed stanza", "[a]\nk=1\n[b]\nj=2\n\n# c\n[c]\nl=3\n",
               Change{Change::removeStanza, "a", {}, {}}, Change{Change::comment, "b", {}, "# n"},
               "# n\n[b]\nj=2\n\n# c\n[c]\nl=3\n"},
          Case{"a comment that replaces a comment below a removed stanza",
               "[a]\nk=1\n[b]\nj=2\n\n# c\n[c]\nl=3\n", Change{Change::comment, "c", {}, "# n"},
               Change{Change::removeStanza, "b", {}, {}}, "[a]\nk=1\n# n\n[c]\nl=3\n"},
          Case{"a key in the place of a key below a line that is passed over",
               "[a]\nk = 1\n\n# c\njunk\nj = 2\n", Change{Change::addKey, "a", "n", "3"},
               Change{Change::removeKey, "a", "j", {}}, "[a]\nk = 1\n\n# c\njunk\nn = 3\n"},
          Case{"a key in the place of a key below a repeated header",
               "[a]\nk = 1\n# c\n[a]\nj = 2\n", Change{Change::addKey, "a", "n", "3"},
               Change{Change::removeKey, "a", "j", {}}, "[a]\nk = 1\n# c\n[a]\nn = 3\n"}}) {
        SCOPED_TRACE(c.name);
        ZStanzaDialect_6_0 const dialect = dialectNamed("systemd");
        EXPECT_EQ(c.after, stored(dialect, c.before, {c.first, c.second}));
        EXPECT_EQ(c.after, storedOneByOne(dialect, c.before, c.first, c.second));
    }
}

TEST(DialectStores, ANewCommentDoesNotContinueTheCommentOfAKeyThatHadTwoLines)
{
    std::string const text = "[a]\ni = 0\n\n# c\nj = 1\nj = 2\nk = 3\n";
    Change const removal{Change::removeKey, "a", "j", {}};
    Change const comment{Change::comment, "a", "k", "# n"};
    ZStanzaDialect_6_0 const dialect = dialectNamed("systemd");
    std::string const both = "[a]\ni = 0\n\n# c\n\n# n\nk = 3\n";
    EXPECT_EQ(both, stored(dialect, text, {removal, comment}));
    EXPECT_EQ(both, stored(dialect, text, {comment, removal}));
    EXPECT_EQ(both, storedOneByOne(dialect, text, comment, removal));
}

TEST(DialectStores, TwoRemovedStanzasLeaveTheCommentsThatStoresInTurnLeave)
{
    struct Case {
        char const* name;
        char const* before;
        char const* after;
    };
    // [a] is before [b]: a store of both equals a store without [a], then a store without [b].
    for (Case const& c :
         {Case{"the comment joins a stanza that has lines below",
               "[c]\nj=1\n[a]\nk=2\n# h\n[b]\nl=3\n[c]\nm=4\n", "[c]\nj=1\n# h\n\n[c]\nm=4\n"},
          Case{"another comment joins that stanza",
               "[c]\nj=1\n# g\n[a]\nk=2\n# h\n[b]\nl=3\n[c]\nm=4\n",
               "[c]\nj=1\n# g\n\n# h\n\n[c]\nm=4\n"},
          Case{"headers of both are repeated", "[a]\n# g\n[b]\nk=2\n\n# h\n[a]\nl=3\n[b]\nm=4\n",
               "# g\n"},
          Case{"two headers of the first have comments and are below the second",
               "[a]\nj=1\n\n# g\n[b]\nk=2\n\n# h\n[a]\nl=3\n\n# i\n[a]\nm=4\n", "# g\n"},
          Case{"the last line has no newline", "# g\n[b]\nk=2\n\n[a]\nl=3", "# g"},
          Case{"the second has a comment of the first",
               "[a]\n# g\n[a]\nj=1\n[b]\nk=2\n# h\n[a]\nl=3\n", "# g\n\n"}}) {
        SCOPED_TRACE(c.name);
        ZStanzaDialect_6_0 const dialect = dialectNamed("systemd");
        Change const a{Change::removeStanza, "a", {}, {}};
        Change const b{Change::removeStanza, "b", {}, {}};
        EXPECT_EQ(c.after, stored(dialect, c.before, {a, b}));
        EXPECT_EQ(c.after, stored(dialect, c.before, {b, a}));
        EXPECT_EQ(c.after, storedOneByOne(dialect, c.before, a, b));
    }
}

TEST(DialectStores, ANewCommentShowsWhetherABlankLineIsAboveTheNext)
{
    std::string const text =
        "[a]\ni=0\n# c\nj=1\nk=1\nl=1\nm=1\nn=1\no=1\n"
        "[b]\np=2\nq=2\nr=2\ns=2\nt=2\nu=2\n\n# d\nv=2\n";
    Change const o{Change::comment, "a", "o", "# n1"};
    Change const q{Change::comment, "b", "q", "# n2"};
    ZStanzaDialect_6_0 const dialect = dialectNamed("systemd");
    std::string const both =
        "[a]\ni=0\n# c\nj=1\nk=1\nl=1\nm=1\nn=1\n# n1\no=1\n"
        "[b]\np=2\n# n2\nq=2\nr=2\ns=2\nt=2\nu=2\n\n# d\nv=2\n";
    EXPECT_EQ(both, stored(dialect, text, {q, o}));
    EXPECT_EQ(both, stored(dialect, text, {o, q}));
    EXPECT_EQ(both, storedOneByOne(dialect, text, o, q));
}

// The setters do not know the line of a key, only the store does.
TEST(DialectStores, ARefusedValueForALineLeavesTheFileAndTheValuesOfTheStore)
{
    using Step = void (*)(Store&);
    struct Case {
        char const* name;
        char const* dialect;
        char const* before;
        Step change;
        Step remedy;
        char const* after;
    };
    for (Case const& c :
         {Case{"no value before a comment", "git", "[a]\n\tk = v ; c\n\tl = w\n",
               [](Store& store) { store.setValues("a", "k", nullptr, 0); },
               [](Store& store) { store.setValue("a", "k", "x"); }, "[a]\n\tk = x ; c\n\tl = w\n"},
          Case{"a stanza below a comment that continues at the end of the file", "samba",
               "[a]\nk = v\n# c \\\n", [](Store& store) { store.setValue("b", "l", "x"); },
               [](Store& store) { store.deleteStanza("b"); }, "[a]\nk = v\n# c \\\n"}}) {
        SCOPED_TRACE(c.name);
        TestDirectory const directory;
        std::string const path = directory.write("conf", c.before);
        Store store(path.c_str(), 1, dialectNamed(c.dialect));
        c.change(store);
        store.setValue("a", "k2", "y");
        EXPECT_THROW(store.store(nullptr), ZPropertiesInvalidValueException_6_0);
        EXPECT_EQ(c.before, directory.read("conf"));
        ZLCString_6_0 value;
        store.getValue("a", "k2", value, 0, nullptr);
        EXPECT_STREQ("y", value.getChars());
        EXPECT_NE(0, store.isModified());
        store.deleteKey("a", "k2");
        c.remedy(store);
        store.store(nullptr);
        EXPECT_EQ(c.after, directory.read("conf"));
    }
}
