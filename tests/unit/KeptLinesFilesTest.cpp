// Changes every configuration file of the machine that is a stanza file, and generated files, with
// lines kept. Compares the stored bytes with a model.
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <set>

#include "KeptLinesModel.h"
#include "Sanitizers.h"
#include "TestDirectory.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kKeysOfEachFile = 5;
constexpr size_t kMaxSize = 1 << 20;  // of a file, in bytes
constexpr int kFileStep = kHasSanitizer ? 20 : 1;
constexpr int kGeneratedFiles = kHasSanitizer ? 20 : 200;
constexpr unsigned kStores = kHasSanitizer ? 60 : 300;

// The last two cannot be read back.
std::string const kValues[] = {"x",
                               "a value that is longer than most values, with several words in it",
                               "#x",
                               "x # y",
                               "; x",
                               "x ; y",
                               "\"x\"",
                               "'x'",
                               "\"",
                               "it's",
                               "x\\",
                               "\\",
                               "a = b",
                               "=",
                               "[x]",
                               "]",
                               "Gr\xC3\xBC\xC3\x9F"
                               "e",
                               "\xFF\xFE",
                               "",
                               "%20 ${x}",
                               " x",
                               "x ",
                               "\tx"};
static_assert(std::size(kValues) == 23);

struct Counts {
    int files = 0;
    int notStanza = 0;
    int changes = 0;
    int refusals = 0;
    int removals = 0;
    int additions = 0;
    int pairs = 0;
};

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool canBeStored(std::string const& value)
{
    return value.empty() ||
           (!TextModel::isSpace(value.front()) && !TextModel::isSpace(value.back()));
}

// Returns the text after a change of the value of a key that has a single line.
std::string withValue(TextModel const& before, KeyName const& name, std::string const& value)
{
    std::string text;
    for (LineModel const& line : before.lines) {
        if (line.kind != LineModel::key || line.name != name) {
            text += line.bytes;
            continue;
        }
        if (line.value.empty()) {  // the spaces around "=" are up to the library
            text += "?";
            continue;
        }
        text += line.bytes.substr(0, line.valueBegin) + value + line.bytes.substr(line.valueEnd);
    }
    return text;
}

void expectChange(TextModel const& before, std::string const& text,
                  std::set<KeyName> const& changed,
                  std::map<KeyName, std::vector<std::string>> const& values)
{
    TextModel const after(text);
    EXPECT_EQ("", before.differenceOutside(after, changed));
    EXPECT_TRUE(after.isValid);
    EXPECT_EQ(values, after.values);
    // Without its last lines the file may end with a blank line.
    auto const last = std::find_if(before.lines.rbegin(), before.lines.rend(), [&](auto& line) {
        return line.kind != LineModel::key || !changed.contains(line.name);
    });
    bool const isAmbiguous =
        !before.endsWithEnding() && last != before.lines.rend() && last->kind == LineModel::blank;
    if (!before.lines.empty() && !after.lines.empty() && !isAmbiguous) {
        EXPECT_EQ(before.endsWithEnding(), after.endsWithEnding());
    }
}

void setEachValue(TextModel const& before, KeyName const& name, KeptLinesCache& cache,
                  Counts& counts)
{
    std::vector<std::string> const original = before.values.at(name);
    for (std::string const& value : kValues) {
        SCOPED_TRACE(testing::Message()
                     << "[" << name.first << "] " << name.second << " = \"" << value << "\"");
        cache.set(name, value);
        if (!canBeStored(value)) {
            EXPECT_THROW(cache.text(), ZPropertiesInvalidValueException_6_0);
            ++counts.refusals;
        } else {
            std::string const text = cache.text();
            auto expected = before.values;
            expected[name] = value.empty() ? std::vector<std::string>() : std::vector{value};
            expectChange(before, text, {name}, expected);
            std::string const exact = withValue(before, name, value);
            if (before.linesOf(name).size() == 1 && exact.find('?') == std::string::npos) {
                EXPECT_EQ(exact, text);
            }
            ++counts.changes;
        }
        cache.setAll(name, original);
        if (testing::Test::HasFailure())
            return;
    }
    EXPECT_EQ(before.text(), cache.text());  // the value that was there changes nothing
}

void removeAndAdd(TextModel const& before, KeyName const& name, Counts& counts)
{
    SCOPED_TRACE(testing::Message() << "[" << name.first << "] " << name.second);
    auto expected = before.values;
    KeptLinesCache removal(before.text());
    removal.remove(name);
    expected.erase(name);
    expectChange(before, removal.text(), {name}, expected);
    std::string rest;
    for (LineModel const& line : before.lines)
        rest += line.kind == LineModel::key && line.name == name ? "" : line.bytes;
    if (before.endsWithEnding()) {
        EXPECT_EQ(rest, removal.text());
    }
    ++counts.removals;

    expected = before.values;
    KeptLinesCache further(before.text());
    std::vector<std::string> values = before.values.at(name);
    values.push_back("a further value");
    further.setAll(name, values);
    expected[name] = values;
    expectChange(before, further.text(), {name}, expected);
    ++counts.additions;

    KeyName const fresh(name.first, "aKeyThatNoFileHas");
    KeptLinesCache addition(before.text());
    addition.set(fresh, "new");
    expected = before.values;
    expected[fresh] = {"new"};
    expectChange(before, addition.text(), {fresh}, expected);
    // Removing it again restores the text.
    KeptLinesCache undo(addition.text());
    undo.remove(fresh);
    EXPECT_EQ(before.text(), undo.text());
    ++counts.additions;
}

std::string afterSetting(std::string const& text, KeyName const& name, std::string const& value)
{
    KeptLinesCache cache(text);
    cache.set(name, value);
    return cache.text();
}

void setTwo(TextModel const& before, KeyName const& a, KeyName const& b, Counts& counts)
{
    std::string const text = before.text();
    KeptLinesCache both(text);
    both.set(a, "first");
    both.set(b, "second; longer");
    EXPECT_EQ(afterSetting(afterSetting(text, a, "first"), b, "second; longer"), both.text());
    EXPECT_EQ(afterSetting(afterSetting(text, b, "second; longer"), a, "first"), both.text());
    ++counts.pairs;
}

// Stores one change in a file, in both ways of storing.
void storeInFile(TextModel const& before, KeyName const& name, TestDirectory const& directory)
{
    std::string const path = directory.write("conf", before.text());
    for (int const replacing : {0, 1}) {
        ZStanzaFileProperties_6_0 store(0);
        store.setAttributes(ZPCache_6_0::keepLines, nullptr);
        store.setReplacing(replacing);
        store.load(path.c_str());
        store.setValue(name.first.c_str(), name.second.c_str(), "stored");
        store.store(nullptr);
        EXPECT_EQ(afterSetting(before.text(), name, "stored"), directory.read("conf"));
        store.reload(nullptr);
        store.setValue(name.first.c_str(), name.second.c_str(), "changed again");
        store.store(nullptr);
        EXPECT_EQ(afterSetting(before.text(), name, "changed again"), directory.read("conf"));
        directory.write("conf", before.text());
    }
}

// Returns up to five keys, from the first to the last. Callers cannot name the stanza "[]".
std::vector<KeyName> selectKeys(TextModel const& text)
{
    std::vector<KeyName> named;
    for (KeyName const& name : text.keys)
        if (!name.first.empty())
            named.push_back(name);
    std::vector<KeyName> selected;
    size_t const count = std::min(kKeysOfEachFile, named.size());
    for (size_t i = 0; i < count; ++i)
        selected.push_back(named[count == 1 ? 0 : i * (named.size() - 1) / (count - 1)]);
    return selected;
}

void checkText(std::string const& text, TestDirectory const& directory, Counts& counts)
{
    TextModel const model(text);
    if (!model.isValid) {
        ++counts.notStanza;
        return;
    }
    ++counts.files;
    KeptLinesCache cache(text);
    ASSERT_EQ(text, cache.text());
    std::vector<KeyName> const keys = selectKeys(model);
    for (KeyName const& name : keys) {
        setEachValue(model, name, cache, counts);
        removeAndAdd(model, name, counts);
        if (testing::Test::HasFailure())
            return;
    }
    if (keys.size() > 1) {
        setTwo(model, keys[0], keys.back(), counts);
        setTwo(model, keys[0], keys[1], counts);
    }
    if (!keys.empty())
        storeInFile(model, keys[0], directory);
}

void print(Counts const& counts)
{
    std::cout << counts.files << " files (" << counts.notStanza << " of another format), "
              << counts.changes << " values set, " << counts.refusals << " refused, "
              << counts.removals << " keys removed, " << counts.additions << " added, "
              << counts.pairs << " pairs of changes\n";
}

bool hasConfigurationName(fs::path const& path)
{
    static std::set<std::string> const kinds = {
        ".conf", ".ini",        ".cnf",   ".cfg",     ".rc",   ".service", ".socket",  ".timer",
        ".path", ".target",     ".mount", ".slice",   ".link", ".network", ".desktop", ".pc",
        ".list", ".properties", ".theme", ".keyring", ".env",  ".defs",    ".policy",  ".types"};
    return kinds.contains(path.extension().string()) ||
           (path.extension().empty() && path.string().starts_with("/etc/"));
}

std::string generated(std::mt19937& random)
{
    auto const pick = [&](std::initializer_list<char const*> const& texts) {
        return std::string(
            texts.begin()[std::uniform_int_distribution<size_t>(0, texts.size() - 1)(random)]);
    };
    std::string const ending = pick({"\n", "\n", "\r\n"});
    std::string text = pick({"", "# a file", "\n"});
    if (!text.empty() && text.back() != '\n')
        text += ending;
    int const stanzas = std::uniform_int_distribution<int>(1, 4)(random);
    for (int s = 0; s < stanzas; ++s) {
        text += pick({"", "\n", "# stanza\n"}) + pick({"", " "}) + "[s" + std::to_string(s) + "]" +
                pick({"", "", " ignored"}) + ending;
        int const lines = std::uniform_int_distribution<int>(0, 12)(random);
        for (int i = 0; i < lines; ++i) {
            std::string const key =
                "k" + pick({"", "ey", "ey-of-some-length"}) + std::to_string(random() % 5);
            std::string const line =
                pick({"", "", "  ", "\t"}) + key + pick({"=", " = ", "   =  ", "\t=\t", "= "}) +
                pick({"", "v", "a b", "a = b", "#", "v"}) + pick({"", "", "  "});
            text += pick({"", "", "", "\n", "# comment\n", "#key0 = 5\n", "  # k1 = 7\r\n"}) +
                    line + ending;
        }
    }
    if (random() % 4 == 0)
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.pop_back();
    return text;
}

// Random changes of a store, and the keys that they touch.
class RandomChanges {
public:
    RandomChanges(ZStanzaFileProperties_6_0& store, std::mt19937& random)
        : store_(store), random_(random)
    {
    }

    void make(TextModel const& text)
    {
        KeyName name("s" + std::to_string(random_() % 5), "k" + std::to_string(random_() % 6));
        if (!text.keys.empty() && random_() % 3 != 0)
            name = text.keys[random_() % text.keys.size()];
        char const* const stanza = name.first.c_str();
        char const* const key = name.second.c_str();
        std::string const value = "v" + std::to_string(random_() % 4);
        auto const kind = random_() % 12;
        log += std::to_string(kind) + "[" + name.first + "]" + name.second + "=" + value + " ";
        switch (kind) {
            case 0:
                store_.deleteKey(stanza, key);
                removed_.insert(name);
                touched_.insert(name);
                return;
            case 1:
                store_.addStanza(stanza);
                return;
            case 2:
                store_.deleteStanza(stanza);
                removesStanza_ = true;
                return;
            case 3:
                store_.addStanzaComment(stanza, "of a stanza");
                return;
            case 4:
                store_.addEntryComment(stanza, key, "# of a key");
                break;
            case 5:
                store_.addFileComment("# of the file");
                return;
            case 6:
                store_.setValue(stanza, key, "");
                break;
            case 7:
                insert(stanza, key, value);
                break;
            case 8:
            case 9:
                store_.addValue(stanza, key, value.c_str(), 0);
                break;
            default:
                store_.setValue(stanza, key, value.c_str());
                break;
        }
        touched_.insert(name);
        addsRemoved_ = addsRemoved_ || removed_.contains(name);
    }

    std::string log;  // the changes, by the numbers of make()

    // Checks that every line that was not touched is still in the text, in order.
    void expectOthersIn(TextModel const& after, TextModel const& before) const
    {
        // A key that was removed and added again leaves its comments above: they may move.
        if (removesStanza_ || addsRemoved_)
            return;
        auto next = after.lines.begin();
        for (LineModel const& line : before.lines) {
            if (line.kind == LineModel::key && touched_.contains(line.name))
                continue;
            // See differenceOutside().
            if (line.kind == LineModel::blank && !before.endsWithEnding())
                continue;
            while (next != after.lines.end() && next->withoutEnding() != line.withoutEnding())
                ++next;
            EXPECT_NE(after.lines.end(), next) << "lost: " << line.bytes;
            if (next != after.lines.end())
                ++next;
        }
    }

private:
    // Inserts a value before or after a random value of the key.
    void insert(char const* stanza, char const* key, std::string const& value)
    {
        ZStanzaValueIterator_6_0 values(store_, stanza, key, zPropLocalStrings, zPropIterPlain);
        while (values.hasMore() && random_() % 2 == 0)
            values.nextValue();
        if (values.isValid() && random_() % 3 == 0)
            values.removeValue();
        else
            values.addValue(value.c_str());
    }

    ZStanzaFileProperties_6_0& store_;
    std::mt19937& random_;
    std::set<KeyName> touched_;
    std::set<KeyName> removed_;
    bool removesStanza_ = false;
    bool addsRemoved_ = false;
};

std::map<KeyName, std::vector<std::string>> valuesOf(ZStanzaFileProperties_6_0 const& store)
{
    std::map<KeyName, std::vector<std::string>> all;
    std::unique_ptr<ZArrayList_6_0> const stanzas(store.categoryNames());
    for (unsigned i = 0; i < stanzas->size(); ++i) {
        std::string const stanza = static_cast<ZLCString_6_0*>(stanzas->get(i))->getChars();
        std::unique_ptr<ZArrayList_6_0> const keys(store.keyNames(stanza.c_str()));
        for (unsigned k = 0; k < keys->size(); ++k) {
            std::string const key = static_cast<ZLCString_6_0*>(keys->get(k))->getChars();
            ZArrayList_6_0 values(1, 1);
            store.getValues(stanza.c_str(), key.c_str(), values, zPropLocalStrings);
            std::vector<std::string>& list = all[{stanza, key}];
            for (unsigned v = 0; v < values.size(); ++v)
                list.emplace_back(static_cast<ZLCString_6_0*>(values.get(v))->getChars());
        }
    }
    return all;
}

}  // namespace

TEST(KeptLinesFiles, ChangesOfTheFilesOfTheMachineTouchNothingElse)
{
    TestDirectory const directory{TestDirectory::Place::memory};
    Counts counts;
    int found = 0;
    for (char const* root : {"/etc", "/usr/lib", "/usr/share"}) {
        std::error_code ignored;
        for (fs::recursive_directory_iterator
                 it(root, fs::directory_options::skip_permission_denied, ignored),
             end;
             it != end && !HasFailure(); it.increment(ignored)) {
            std::error_code bad;
            if (!hasConfigurationName(it->path()) || !fs::is_regular_file(it->path(), bad) ||
                fs::file_size(it->path(), bad) > kMaxSize || found++ % kFileStep != 0)
                continue;
            SCOPED_TRACE(it->path());
            checkText(bytesOf(it->path()), directory, counts);
        }
    }
    print(counts);
    EXPECT_GT(counts.files, 0);
}

TEST(KeptLinesFiles, ChangesOfGeneratedFilesTouchNothingElse)
{
    TestDirectory const directory{TestDirectory::Place::memory};
    char const* const given = getenv("Z_TEST_SEED");
    auto const seed = static_cast<unsigned>(given == nullptr ? 20261122 : atol(given));
    std::mt19937 random(seed);
    std::cout << "seed " << seed << "\n";
    Counts counts;
    for (int i = 0; i < kGeneratedFiles && !HasFailure(); ++i) {
        std::string const text = generated(random);
        SCOPED_TRACE(testing::Message() << "Z_TEST_SEED=" << seed << ", file " << i << ":\n"
                                        << text);
        checkText(text, directory, counts);
    }
    print(counts);
    EXPECT_GT(counts.files, kGeneratedFiles * 3 / 4);
}

TEST(KeptLinesFiles, RandomChangesReadBackAndTouchNothingElse)
{
    TestDirectory const directory{TestDirectory::Place::memory};
    char const* const given = getenv("Z_TEST_SEED");
    auto const seed = static_cast<unsigned>(given == nullptr ? 20261122 : atol(given));
    std::cout << "seed " << seed << "\n";
    int stores = 0;
    for (unsigned i = 0; i < kStores && !HasFailure(); ++i) {
        std::mt19937 random(seed + i);
        std::string const path = directory.write("conf", generated(random));
        ZStanzaFileProperties_6_0 store(0);
        store.setAttributes(ZPCache_6_0::keepLines, nullptr);
        store.load(path.c_str());
        for (int round = 0; round < 3 && !HasFailure(); ++round) {
            TextModel const before(directory.read("conf"));
            RandomChanges changes(store, random);
            for (unsigned count = 1 + random() % 6; count > 0; --count)
                changes.make(before);
            auto const expected = valuesOf(store);
            try {
                store.store(nullptr);
            } catch (ZPropertiesInvalidValueException_6_0 const& e) {
                FAIL() << "Z_TEST_SEED=" << seed + i << ", round " << round << ": refused ["
                       << e.category().getChars() << "] " << e.key().getChars() << " = "
                       << e.value().getChars() << " after " << changes.log << "in\n"
                       << before.text();
            }
            TextModel const after(directory.read("conf"));
            SCOPED_TRACE(testing::Message()
                         << "Z_TEST_SEED=" << seed + i << ", round " << round << "\n"
                         << before.text() << "--- became\n"
                         << after.text());
            EXPECT_TRUE(after.isValid);
            EXPECT_EQ(expected, after.values);
            changes.expectOthersIn(after, before);
            // The store knows the lines that it has written.
            store.setModified();
            store.store(nullptr);
            EXPECT_EQ(after.text(), directory.read("conf"));
            ++stores;
        }
    }
    std::cout << stores << " stores\n";
}
