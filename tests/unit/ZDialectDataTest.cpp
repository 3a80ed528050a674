// Files of dialects through the store: the samples of tests/data/dialects (DialectModelTest.cpp
// describes their forms), changes of their values, and the cache.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZDialectData.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DialectEdits.h"
#include "DialectStore.h"
#include "LinearTime.h"
#include "TestDirectory.h"

namespace fs = std::filesystem;

namespace {

// The contents of a file: its stanzas in order, and their keys with their values.
struct Reading {
    std::vector<std::string> stanzas;
    std::map<std::pair<std::string, std::string>, std::vector<std::string>> keys;

    bool operator==(Reading const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Reading const& reading)
{
    for (std::string const& stanza : reading.stanzas)
        out << "[" << stanza << "]";
    for (auto const& [names, values] : reading.keys) {
        out << "\n" << names.first << "|" << names.second;
        for (std::string const& value : values)
            out << "|" << value;
    }
    return out << "\n";
}

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string unescaped(std::string const& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        char const next = text[i] == '\\' && i + 1 < text.size() ? text[++i] : '\0';
        out += next == 't' ? '\t' : next == 'n' ? '\n' : next == '\\' ? '\\' : text[i];
    }
    return out;
}

// Parses a .reading or .counts file.
Reading parse(std::string const& text)
{
    Reading reading;
    for (size_t at = 0; at < text.size();) {
        size_t const end = text.find('\n', at);
        std::vector<std::string> parts(1);
        for (char const c : text.substr(at, end - at)) {
            if (c == '\t')
                parts.emplace_back();
            else
                parts.back() += c;
        }
        for (std::string& part : parts)
            part = unescaped(part);
        if (std::find(reading.stanzas.begin(), reading.stanzas.end(), parts[0]) ==
            reading.stanzas.end())
            reading.stanzas.push_back(parts[0]);
        if (parts.size() > 1) {
            auto& values = reading.keys[{parts[0], parts[1]}];
            if (parts.size() > 2)
                values.push_back(parts[2]);
        }
        at = end + 1;
    }
    return reading;
}

std::vector<std::string> textsOf(ZArrayList_6_0 const& list)
{
    std::vector<std::string> texts;
    for (unsigned i = 0; i < list.size(); ++i)
        texts.emplace_back(static_cast<ZLCString_6_0 const*>(list.get(i))->getChars());
    return texts;
}

std::vector<std::string> countingIn(ZStanzaFileProperties_6_0 const& store, char const* stanza,
                                    char const* key)
{
    ZArrayList_6_0 list(2, 1);
    store.countingValues(stanza, key, list);
    return textsOf(list);
}

std::vector<std::string> valuesIn(ZStanzaFileProperties_6_0 const& store, char const* stanza,
                                  char const* key)
{
    ZArrayList_6_0 list(2, 1);
    store.getValues(stanza, key, list, static_cast<ZPropertyStringType>(0));
    return textsOf(list);
}

Reading readingOf(ZStanzaFileProperties_6_0 const& store, bool onlyCounting = false)
{
    Reading reading;
    std::unique_ptr<ZArrayList_6_0> const stanzas(store.stanzaNames());
    reading.stanzas = textsOf(*stanzas);
    for (std::string const& stanza : reading.stanzas) {
        if (stanza.empty())
            continue;  // no caller can name it
        std::unique_ptr<ZArrayList_6_0> const keys(store.keyNames(stanza.c_str()));
        for (std::string const& key : textsOf(*keys))
            reading.keys[{stanza, key}] = onlyCounting
                                              ? countingIn(store, stanza.c_str(), key.c_str())
                                              : valuesIn(store, stanza.c_str(), key.c_str());
    }
    return reading;
}

struct Sample {
    std::string name;
    std::string dialect;
    fs::path path;
    std::string base;  // without the extension
};

// The samples of all dialects but "stanza".
std::vector<Sample> samples()
{
    std::vector<Sample> found;
    for (fs::directory_entry const& entry : fs::directory_iterator(Z_TEST_DATA "/dialects")) {
        std::string const extension = entry.path().extension();
        std::string const name = entry.path().filename();
        std::string const dialect = name.substr(0, name.find('.'));
        if (extension != ".reading" && extension != ".refused" && extension != ".counts" &&
            dialect != "stanza")
            found.push_back(
                {name, dialect, entry.path(), fs::path(entry.path()).replace_extension().string()});
    }
    std::sort(found.begin(), found.end(),
              [](Sample const& a, Sample const& b) { return a.name < b.name; });
    return found;
}

std::string thrown(std::function<void()> const& action)
{
    try {
        action();
    } catch (ZException_6_0 const& e) {
        std::string name = typeid(e).name();
        return name.substr(name.find('Z'), name.find("_6_0") - name.find('Z'));
    }
    return "nothing";
}

}  // namespace

TEST(ZDialectData, ReadsEachSampleAndWritesItBack)
{
    int read = 0;
    for (Sample const& sample : samples()) {
        SCOPED_TRACE(sample.name);
        ZStanzaDialect_6_0 const dialect = dialectNamed(sample.dialect);
        std::string const refused = sample.base + ".refused";
        try {
            ZStanzaFileProperties_6_0 const store(sample.path.c_str(), 0, dialect);
            EXPECT_FALSE(fs::exists(refused)) << readingOf(store);
            if (fs::exists(refused))
                continue;
            Reading expected = parse(bytesOf(sample.base + ".reading"));
            std::erase_if(expected.keys, [](auto const& key) { return key.first.first.empty(); });
            EXPECT_EQ(expected, readingOf(store));
            EXPECT_EQ(bytesOf(sample.path), textOf(store));
            if (fs::exists(sample.base + ".counts")) {
                EXPECT_EQ(parse(bytesOf(sample.base + ".counts")).keys,
                          readingOf(store, true).keys);
            }
            ++read;
        } catch (ZPropertiesInvalidDataException_6_0 const& e) {
            std::string const place =
                std::to_string(e.badline()) + ":" + std::to_string(e.column()) + "\n";
            EXPECT_EQ(fs::exists(refused) ? bytesOf(refused) : "not refused", place);
        }
    }
    EXPECT_LT(200, read);
}

TEST(ZDialectData, EditsOfEachSampleChangeTheirLinesOnly)
{
    using namespace dialect_model;
    int edits = 0;
    int refused = 0;
    for (Sample const& sample : samples()) {
        if (fs::exists(sample.base + ".refused"))
            continue;
        ZStanzaDialect_6_0 const dialect = dialectNamed(sample.dialect);
        Switches const& rules = findDialect(sample.dialect)->rules;
        std::string const before = bytesOf(sample.path);
        DialectModel const model(before, rules);
        for (Stanza const& stanza : model.stanzas) {
            if (stanza.name.empty())
                continue;
            for (Key const& key : stanza.keys) {
                bool const isAlone = std::any_of(key.values.begin(), key.values.end(),
                                                 [](Value const& value) { return value.alone; });
                if (isAlone || key.values.size() != 1)
                    continue;
                Edit const cases[] = {{Edit::set, stanza.name, key.name, "new"},
                                      {Edit::set, stanza.name, key.name, key.values[0].text},
                                      {Edit::remove, stanza.name, key.name},
                                      {Edit::add, stanza.name, key.name, "more"},
                                      {Edit::add, stanza.name, "another", "first"}};
                for (Edit const& edit : cases) {
                    SCOPED_TRACE(sample.name + " " + stanza.name + " " + key.name + " " +
                                 std::to_string(edit.kind) + " " + edit.value);
                    ZStanzaFileProperties_6_0 store(sample.path.c_str(), 0, dialect);
                    try {
                        if (edit.kind == Edit::set)
                            store.setValue(edit.stanza.c_str(), edit.key.c_str(),
                                           edit.value.c_str());
                        else if (edit.kind == Edit::remove)
                            store.deleteKey(edit.stanza.c_str(), edit.key.c_str());
                        else
                            store.addValue(edit.stanza.c_str(), edit.key.c_str(),
                                           edit.value.c_str(), 0);
                        std::string const after = textOf(store);
                        EditCheck const check(rules, before, {edit}, after);
                        for (std::string const& broken : check.broken)
                            ADD_FAILURE() << broken << "\n--- before\n"
                                          << before << "--- after\n"
                                          << after;
                        ++edits;
                    } catch (ZException_6_0 const&) {
                        ++refused;
                    }
                }
            }
        }
    }
    RecordProperty("edits", edits);
    RecordProperty("refused", refused);
    EXPECT_LT(1000, edits);
    EXPECT_GT(edits / 20, refused);
}

TEST(ZDialectData, StoreChangesOneLine)
{
    struct Case {
        char const* dialect;
        char const* before;
        char const* stanza;
        char const* key;
        char const* value;
        char const* after;
    };
    Case const cases[] = {
        {"systemd", "[Unit]\nA=1\n; c\n\n[Service]\nExecStart=\nExecStart=/bin/a \\\n  b\n", "Unit",
         "A", "2 3", "[Unit]\nA=2 3\n; c\n\n[Service]\nExecStart=\nExecStart=/bin/a \\\n  b\n"},
        {"desktop", "[Desktop Entry]\nName=a\\sb\nName[de]=c\n", "Desktop Entry", "Name[de]", " d",
         "[Desktop Entry]\nName=a\\sb\nName[de]=\\sd\n"},
        {"python", "[a]\nKey : one\n  two\n\n[b]\nk = 3\n", "a", "key", "one\nthree",
         "[a]\nKey : one\n  three\n\n[b]\nk = 3\n"},
        {"git", "[core]\n\teditor = vi # mine\n[a \"B\"]\n\tx\n", "CORE", "Editor", "it's; x",
         "[core]\n\teditor = \"it's; x\" # mine\n[a \"B\"]\n\tx\n"},
        {"ini", "k=1\n[a]\nl = 2\n", ".", "k", "", "k=\n[a]\nl = 2\n"},
        {"qt", "[a]\nk=1\n", "a", "k", "\u20ac5 \u00e9g \U0001F600",
         "[a]\nk=\\x20ac\\x35 \\xe9g \\xd83d\\xde00\n"},
        {"qt", "[a]\nk=\"1\"\n", "a", "k", "\u00e9, \"a\"", "[a]\nk=\"\\xe9, \\\"a\\\"\"\n"},
        {"qt", "[a]\nk=1\n", "a", "k", "caf\xe9", "[a]\nk=caf\xe9\n"},
        {"qt,nonAscii=bytes", "[a]\nk=1\n", "a", "k", "\u20ac5", "[a]\nk=\u20ac5\n"},
        {"mysql", "[mysqld \t] # c\nk = 1\n", "mysqld", "k", "2", "[mysqld \t] # c\nk = 2\n"},
        {"php", "[a]\nk = 1\n", "a", "k", "it's ${HOME} $x", "[a]\nk = \"it's \\${HOME} $x\"\n"},
        {"php", "[a]\nk = 1\n", "a", "k", "${HOME}", "[a]\nk = '${HOME}'\n"},
        {"samba", "[a]\nk = 1  2\nl = 3  4\n", "a", "l", "3 5", "[a]\nk = 1  2\nl = 3 5\n"},
        {"samba", "[a]\nk = 1 \t 2\n", "a", "k", "1 2", "[a]\nk = 1 \t 2\n"},
        {"sysctl", "net.ipv4.conf.wet0/2.x = 1\n", ".", "net/ipv4/conf/wet0.2/x", "2",
         "net.ipv4.conf.wet0/2.x = 2\n"},
        {"sysctl", "-net/ipv4/ip_forward = 1\n", ".", "net.ipv4.ip_forward", "0",
         "-net/ipv4/ip_forward = 0\n"},
        {"sysctl", "# c\n-net.a = 1\n", ".", "net.a", "2", "# c\n-net.a = 2\n"},
    };
    TestDirectory const directory;
    for (Case const& c : cases) {
        SCOPED_TRACE(c.before);
        std::string const path = directory.write("conf", c.before);
        ZStanzaFileProperties_6_0 store(path.c_str(), 1, dialectNamed(c.dialect));
        EXPECT_STREQ(dialectNamed(c.dialect).name(), store.dialect().name());
        store.setValue(c.stanza, c.key, c.value);
        store.store(nullptr);
        EXPECT_EQ(c.after, directory.read("conf"));
        ZLCString_6_0 value;
        store.reload(nullptr);
        store.getValue(c.stanza, c.key, value, 0, nullptr);
        EXPECT_STREQ(c.value, value.getChars());
    }
}

TEST(ZDialectData, NewFileHasTheStyleOfItsDialect)
{
    struct Case {
        char const* dialect;
        char const* text;
    };
    Case const cases[] = {{"systemd", "[a]\nk=1\n"},
                          {"git", "[a]\n\tk = 1\n"},
                          {"ini", "[a]\nk = 1\n"},
                          {"kconfig", "[a]\nk=1\n"}};
    for (Case const& c : cases) {
        ZStanzaFileProperties_6_0 store(1, dialectNamed(c.dialect));
        store.setValue("a", "k", "1");
        EXPECT_EQ(c.text, textOf(store)) << c.dialect;
    }
    ZStanzaFileProperties_6_0 store(1, dialectNamed("env"));
    store.setValue(".", "NAME", "Wet Pump");
    EXPECT_EQ("NAME=\"Wet Pump\"\n", textOf(store));
}

TEST(ZDialectData, EmptyValueIsAValueAndNullIsNone)
{
    ZStanzaFileProperties_6_0 systemd(1, dialectNamed("systemd"));
    systemd.loadText("[Service]\nExecStart=/bin/a\n", 27);
    systemd.addValue("Service", "ExecStart", "", 0);
    systemd.addValue("Service", "ExecStart", "/bin/b", 0);
    EXPECT_EQ("[Service]\nExecStart=/bin/a\nExecStart=\nExecStart=/bin/b\n", textOf(systemd));
    EXPECT_EQ((std::vector<std::string>{"/bin/a", "", "/bin/b"}),
              valuesIn(systemd, "Service", "ExecStart"));
    EXPECT_EQ((std::vector<std::string>{"/bin/b"}), countingIn(systemd, "Service", "ExecStart"));
    systemd.addValue("Service", "ExecStart", "", 0);
    EXPECT_EQ(0U, countingIn(systemd, "Service", "ExecStart").size());
    ZLCString_6_0 value;
    systemd.getValue("Service", "ExecStart", value, 0, "none");
    EXPECT_STREQ("none", value.getChars());
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { systemd.setValue("Service", "ExecStart", nullptr); }));
    char const* const texts[] = {"", "1", ""};
    systemd.setValues("Service", "Env", texts, 3);
    EXPECT_EQ((std::vector<std::string>{"", "1", ""}), valuesIn(systemd, "Service", "Env"));

    ZStanzaFileProperties_6_0 git(1, dialectNamed("git"));
    git.loadText("[core]\n\tbare = no\n", 18);
    git.setValue("core", "bare", nullptr);
    EXPECT_EQ("[core]\n\tbare\n", textOf(git));
    EXPECT_EQ(0U, valuesIn(git, "core", "bare").size());
}

TEST(ZDialectData, AKeyAloneIsTrueWhereItIsAnOption)
{
    struct Case {
        char const* dialect;
        char const* text;
        int value;
    };
    Case const cases[] = {{"git", "[a]\n\tk\n", 1},       {"git", "[a]\n\tk =\n", 0},
                          {"git", "[a]\n\tk = yes\n", 1}, {"git", "[a]\n", 0},
                          {"mysql", "[a]\nk\n", 1},       {"mysql", "[a]\nk=\n", 0},
                          {"ini", "[a]\nk=\n", 0},        {"ini", "[a]\nk\n", 0}};
    for (Case const& c : cases) {
        ZStanzaFileProperties_6_0 store(1, dialectNamed(c.dialect));
        store.loadText(c.text, strlen(c.text));
        EXPECT_EQ(c.value, store.getBooleanValue("a", "k", 0, 0)) << c.dialect << " " << c.text;
    }
}

TEST(ZDialectData, RefusesWhatNoLineReadsBack)
{
    struct Case {
        char const* dialect;
        char const* stanza;
        char const* key;
        char const* value;
    };
    Case const cases[] = {
        {"systemd", "a]b\n", "k", "1"}, {"systemd", ".", "k", "1"},    {"systemd", "a", "k=", "1"},
        {"systemd", "a", "#k", "1"},    {"systemd", "a", "k", "1\n2"}, {"systemd", "a", "k", " 1"},
        {"desktop", "a[", "k", "1"},    {"git", "a b", "k", "1"},      {"mysql", "a ", "k", "1"},
        {"git", "a", "1k", "1"},        {"git", "a", "k_l", "1"},      {"sysctl", "a", "k", "1"},
        {"ini", "a", "[k", "1"},        {"ini", "a", "k", "1\n2"},     {"python", "a", "k:", "1"},
        {"python", ".", "k", "1"},      {"env", ".", "a b", "1"},      {"samba", "a", "k", "1  2"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.dialect) + " " + c.stanza + " " + c.key + " " + c.value);
        ZStanzaFileProperties_6_0 store(1, dialectNamed(c.dialect));
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { store.setValue(c.stanza, c.key, c.value); }));
        EXPECT_EQ("", textOf(store));
    }
}

TEST(ZDialectData, HasNoObfuscatedValues)
{
    ZStanzaFileProperties_6_0 store(1, dialectNamed("ini"));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.setValue("a", "k", "1", 1); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.addValue("a", "k", "1", 1); }));
    ZStanzaValueIterator_6_0 values(store, "a", "k", zPropLocalStrings, zPropIterObfuscated);
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { values.addValue("1"); }));
    EXPECT_EQ(0, store.exists("a"));
}

TEST(ZDialectData, CommentsHaveTheMarkOfTheDialect)
{
    ZStanzaFileProperties_6_0 php(1, dialectNamed("php"));
    php.loadText("[a]\nk = 1\n", 10);
    php.addEntryComment("a", "k", "one\n; two\n# three");
    EXPECT_EQ("[a]\n;one\n; two\n;# three\nk = 1\n", textOf(php));
    ZLCString_6_0 comment;
    EXPECT_EQ(1, php.getComment("a", "k", comment));
    EXPECT_STREQ(";one\n; two\n;# three", comment.getChars());
    ZStanzaFileProperties_6_0 git(1, dialectNamed("git"));
    git.addFileComment("; one\ntwo");
    EXPECT_EQ("# one\n#two\n", textOf(git));
}

TEST(ZDialectData, StoresOfOneDialectShareAFactory)
{
    TestDirectory const directory;
    std::string const path = directory.write("shared.ini", "k=1\n");
    ZStanzaDialectFactory_6_0 factory(dialectNamed("ini"));
    std::unique_ptr<ZProperties_6_0> const store(factory.makePropertiesInstance());
    store->load(path.c_str());
    ZLCString_6_0 value;
    store->getValue(".", "k", value, 0, nullptr);
    EXPECT_STREQ("1", value.getChars());
}

TEST(ZDialectData, SecondTextIsRefused)
{
    ZDialectData_6_0 cache(dialectNamed("ini"));
    cache.readText("", "k=1\n", 4);
    EXPECT_EQ("ZUnsupportedException", thrown([&] { cache.readText("", "l=1\n", 4); }));
    EXPECT_EQ(1, cache.contains(".", "k"));
    EXPECT_EQ(0, cache.contains(".", "l"));
    cache.clear();
    cache.readText("", "l=1\n", 4);
    EXPECT_EQ(1, cache.contains(".", "l"));
    cache.setAttributes(0, nullptr);
    EXPECT_NE(0UL, cache.attributes() & ZPCache_6_0::keepLines);
}

TEST(ZDialectData, SwapsContentsWithTheSameSwitchesOnly)
{
    ZDialectData_6_0 ini(dialectNamed("ini"));
    ZDialectData_6_0 windows(dialectNamed("windows"));
    ZSCFData_6_0 stanza;
    EXPECT_EQ(0, ini.swapContents(windows));
    EXPECT_EQ(0, ini.swapContents(stanza));
    std::unique_ptr<ZPCache_6_0> const other(ini.makeEmpty());
    ini.readText("", "k=1\n", 4);
    EXPECT_EQ(1, ini.swapContents(*other));
    EXPECT_EQ(1, other->contains(".", "k"));
    EXPECT_EQ(0, ini.contains(".", "k"));
    std::unique_ptr<ZPCache_6_0> const copy(other->clone());
    ZBuffer_6_0 buffer;
    copy->writeText(buffer);
    EXPECT_EQ(4U, buffer.getLength());
}

TEST(ZDialectData, StanzaHasACacheOfItsOwn)
{
    EXPECT_EQ("ZInvalidParameterException",
              thrown([] { ZDialectData_6_0 const cache{ZStanzaDialect_6_0()}; }));
    ZStanzaFileProperties_6_0 store(1, ZStanzaDialect_6_0());
    store.setValue("a", "k", "");
    EXPECT_EQ("\n[a]\nk =\n", textOf(store));
    EXPECT_STREQ("stanza", store.dialect().name());
}

TEST(ZDialectData, StanzasOfOneNameHaveNumbers)
{
    std::string const text =
        "[Peer]\nKey=1\n# two\n[Peer]\nKey=2\n\n[Net]\nx=1\n[Peer]\nKey=3 ; c\nAlso=3\n";
    auto const load = [&](ZStanzaFileProperties_6_0& store) {
        store.loadText(text.data(), text.size());
    };
    ZStanzaFileProperties_6_0 store(1, dialectNamed("networkd"));
    load(store);
    EXPECT_EQ((std::vector<std::string>{"1"}), valuesIn(store, "Peer", "Key"));
    EXPECT_EQ((std::vector<std::string>{"1"}), valuesIn(store, "Peer]1", "Key"));
    EXPECT_EQ(1, store.isAmbiguous("Peer"));
    for (char const* const name : {"Peer]1", "Peer]2", "Peer]4", "Net", "Missing"})
        EXPECT_EQ(0, store.isAmbiguous(name)) << name;
    EXPECT_EQ(0, store.isAmbiguous(nullptr));
    for (auto const& change : std::vector<std::function<void()>>{
             [&] { store.setValue("Peer", "Key", "4"); },
             [&] { store.addValue("Peer", "Key", "4", 0); },
             [&] { store.deleteKey("Peer", "Key"); }, [&] { store.deleteStanza("Peer"); },
             [&] { store.renameStanza("Peer", "Other"); },
             [&] { store.renameKey("Peer", "Key", "Other"); },
             [&] { store.removeValue("Peer", "Key", "1"); },
             [&] { store.setComment("Peer", "Key", "# c"); },
             [&] { store.setValue("Peer]5", "Key", "4"); }, [&] { store.addStanza("Net]3"); },
             [&] { store.renameStanza("Net", "Peer]2"); }})
        EXPECT_EQ("ZInvalidParameterException", thrown(change));
    EXPECT_EQ(text, textOf(store));

    store.setValue("Peer]1", "Key", "one");
    store.setValue("Peer]3", "Key", "three");
    store.setValue("Peer]4", "Key", "four");
    EXPECT_EQ(
        "[Peer]\nKey=one\n# two\n[Peer]\nKey=2\n\n[Net]\nx=1\n[Peer]\nKey=three\nAlso=3\n\n"
        "[Peer]\nKey=four\n",
        textOf(store));

    load(store);
    store.deleteStanza("Peer]2");
    EXPECT_EQ((std::vector<std::string>{"3 ; c"}), valuesIn(store, "Peer]2", "Key"));
    EXPECT_EQ(0, store.exists("Peer]3"));
    EXPECT_EQ("[Peer]\nKey=1\n# two\n\n[Net]\nx=1\n[Peer]\nKey=3 ; c\nAlso=3\n", textOf(store));
    store.setValue("Peer]3", "Key", "new");
    store.deleteStanza("Peer]1");
    EXPECT_EQ("# two\n\n[Net]\nx=1\n[Peer]\nKey=3 ; c\nAlso=3\n\n[Peer]\nKey=new\n", textOf(store));

    load(store);
    store.renameStanza("Peer]2", "Other");
    EXPECT_EQ("[Peer]\nKey=1\n# two\n[Other]\nKey=2\n\n[Net]\nx=1\n[Peer]\nKey=3 ; c\nAlso=3\n",
              textOf(store));
    TestDirectory const directory;
    store.store(directory.at("wet.network").c_str());
    store.deleteStanza("Peer]2");
    store.store(nullptr);
    EXPECT_EQ("[Peer]\nKey=1\n# two\n[Other]\nKey=2\n\n[Net]\nx=1\n",
              directory.read("wet.network"));
}

TEST(ZDialectData, ARenamedStanzaHasTheNumberOfItsPosition)
{
    struct Case {
        char const* from;
        char const* to;
        char const* after;  // null: refused
        std::vector<std::string> stanzas;
    };
    char const* const before = "[X]\nA=2\n[Peer]\nA=1\n[Y]\nA=3\n[Peer]\nA=4\n";
    Case const cases[] = {
        {"X", "Peer]2", nullptr, {}},
        {"X", "Peer]3", nullptr, {}},
        {"X", "Peer", nullptr, {}},
        {"Y", "Peer]1", nullptr, {}},
        {"Y", "Peer]3", nullptr, {}},
        {"Peer]2", "Peer]1", nullptr, {}},
        {"Peer]1", "Peer]2", nullptr, {}},
        {"X",
         "Peer]1",
         "[Peer]\nA=2\n[Peer]\nA=1\n[Y]\nA=3\n[Peer]\nA=4\n",
         {"Peer", "Peer]2", "Y", "Peer]3"}},
        {"Y",
         "Peer]2",
         "[X]\nA=2\n[Peer]\nA=1\n[Peer]\nA=3\n[Peer]\nA=4\n",
         {"X", "Peer", "Peer]2", "Peer]3"}},
        {"Peer]1", "X]2", "[X]\nA=2\n[X]\nA=1\n[Y]\nA=3\n[Peer]\nA=4\n", {"X", "X]2", "Y", "Peer"}},
        {"Peer]1", "Z", "[X]\nA=2\n[Z]\nA=1\n[Y]\nA=3\n[Peer]\nA=4\n", {"X", "Z", "Y", "Peer"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.from) + " " + c.to);
        ZStanzaFileProperties_6_0 store(1, dialectNamed("networkd"));
        store.loadText(before, strlen(before));
        std::string const error = thrown([&] { store.renameStanza(c.from, c.to); });
        EXPECT_EQ(c.after == nullptr ? "ZInvalidParameterException" : "nothing", error);
        std::string const after = textOf(store);
        EXPECT_EQ(c.after == nullptr ? before : c.after, after);
        ZStanzaFileProperties_6_0 read(1, dialectNamed("networkd"));
        read.loadText(after.data(), after.size());
        EXPECT_EQ(readingOf(read), readingOf(store));
        if (c.after != nullptr) {
            EXPECT_EQ(c.stanzas, readingOf(store).stanzas);
        }
    }
}

TEST(ZDialectData, ANameGetsAnotherSpelling)
{
    struct Case {
        char const* dialect;
        char const* before;
        char const* stanza;
        char const* key;  // null: the stanza is renamed
        char const* name;
        char const* after;
    };
    Case const cases[] = {
        {"python", "[a]\nKey : 1\nj = 2\n", "a", "Key", "key", "[a]\nkey : 1\nj = 2\n"},
        {"git", "[a]\n\teditor = 1 # c\n\teditor = 2\n", "a", "EDITOR", "Editor",
         "[a]\n\tEditor = 1 # c\n\tEditor = 2\n"},
        {"git", "[a]\n\tk = 1\n[b]\n[a]\n\tj\n\tK = 2\n", "a", "k", "K",
         "[a]\n\tK = 1\n[b]\n[a]\n\tj\n\tK = 2\n"},
        {"mysql", "[a]\nb-c = 1\nx\n", "a", "b_c", "b_c", "[a]\nb_c = 1\nx\n"},
        {"samba", "[Share]\nPath = /a\n[t]\n[share]\nk = 1\n", "Share", nullptr, "SHARE",
         "[SHARE]\nPath = /a\n[t]\n[SHARE]\nk = 1\n"},
        {"windows", "[A]\nK=1\n", "a", "k", "k", "[A]\nk=1\n"},
        {"windows", "[A]\nK=1\n", "A", nullptr, "a", "[a]\nK=1\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.dialect) + " " + c.before);
        ZStanzaFileProperties_6_0 store(1, dialectNamed(c.dialect));
        store.loadText(c.before, strlen(c.before));
        if (c.key == nullptr)
            store.renameStanza(c.stanza, c.name);
        else
            store.renameKey(c.stanza, c.key, c.name);
        EXPECT_EQ(c.after, textOf(store));
        Reading const reading = readingOf(store);
        ZStanzaFileProperties_6_0 read(1, dialectNamed(c.dialect));
        read.loadText(c.after, strlen(c.after));
        EXPECT_EQ(readingOf(read), reading);
    }
    // [Core] is the stanza "core", whatever the case of its header.
    ZStanzaFileProperties_6_0 git(1, dialectNamed("git"));
    git.loadText("[core]\n", 7);
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { git.renameStanza("core", "Core"); }));
    EXPECT_EQ("[core]\n", textOf(git));
}

TEST(ZDialectData, ALineThatIsPassedOverEndsAComment)
{
    char const* const before = "[a]\nk=1\n# c\njunk\nj=2\n";
    ZStanzaFileProperties_6_0 store(1, dialectNamed("ini"));
    store.loadText(before, strlen(before));
    ZLCString_6_0 comment;
    EXPECT_EQ(0, store.getComment("a", "j", comment));
    store.setComment("a", "j", "# new");
    EXPECT_EQ("[a]\nk=1\n# c\njunk\n# new\nj=2\n", textOf(store));
    EXPECT_EQ(1, store.getComment("a", "j", comment));
    EXPECT_STREQ("# new", comment.getChars());
    store.setComment("a", "j", nullptr);
    EXPECT_EQ(before, textOf(store));
}

TEST(ZDialectData, AStoreWithASetSpellingKeepsTheChangesOfOthers)
{
    struct Case {
        char const* name;
        char const* dialect;
        char const* spelling;
        char const* after;
        char const* key = "k";
    };
    for (Case const& c : {Case{"another value", "git", "\"o\"ne",
                               "[a]\nk = \"o\"ne\nk = 5 ; c\nj = there\nl = here\n"},
                          Case{"the same value", "php", "\"1\"",
                               "[a]\nk = \"1\"\nk = 5 ; c\nj = there\nl = here\n"},
                          Case{"a value that changes there, too", "php", "\"2\"",
                               "[a]\nk = 1\nk = 5 ; c\nj = there\nl = here\n", "j"},
                          Case{"the value of a change before", "php", "'here'",
                               "[a]\nk = 1\nk = 5 ; c\nj = there\nl = 'here'\n", "l"}}) {
        SCOPED_TRACE(c.name);
        TestDirectory const directory;
        std::string const path = directory.write("conf", "[a]\nk = 1\nk = 5 ; c\nj = 2\nl = 3\n");
        ZStanzaFileProperties_6_0 store(path.c_str(), 1, dialectNamed(c.dialect));
        ZStanzaFileProperties_6_0 another(path.c_str(), 1, dialectNamed(c.dialect));
        another.setValue("a", "j", "there");
        another.store(nullptr);
        store.setValue("a", "l", "here");
        store.setSpelling("a", c.key, 0, c.spelling);
        store.store(nullptr);
        EXPECT_EQ(c.after, directory.read("conf"));
        store.setModified();
        store.store(nullptr);
        EXPECT_EQ(c.after, directory.read("conf"));
    }
}

TEST(ZDialectData, EachSetSpellingIsKeptNextToChangesOfOthers)
{
    struct Spelling {
        char const* key;
        unsigned index;
        char const* spelling;
    };
    struct Case {
        char const* name;
        char const* dialect;
        char const* before;
        char const* there;  // the file of another program
        std::vector<Spelling> spellings;
        char const* after;
    };
    for (Case const& c : {Case{"the second of two equal lines",
                               "git",
                               "[a]\nk = 1\nk = 1\nj = 2\n",
                               "[a]\nk = 1\nk = 1\nj = 3\n",
                               {{"k", 1, "\"1\""}},
                               "[a]\nk = 1\nk = \"1\"\nj = 3\n"},
                          Case{"a spelling that another line has",
                               "git",
                               "[a]\nk = \"1\"\nk = 1\nj = 2\n",
                               "[a]\nk = \"1\"\nk = 1\nj = 3\n",
                               {{"k", 1, "\"1\""}},
                               "[a]\nk = \"1\"\nk = \"1\"\nj = 3\n"},
                          Case{"exchanged spellings",
                               "git",
                               "[a]\nk = \"1\"\nk = 1\nj = 2\n",
                               "[a]\nk = \"1\"\nk = 1\nj = 3\n",
                               {{"k", 0, "1"}, {"k", 1, "\"1\""}},
                               "[a]\nk = 1\nk = \"1\"\nj = 3\n"},
                          Case{"a new value that another line has",
                               "git",
                               "[a]\nk = 1\nk = 2\nj = 2\n",
                               "[a]\nk = 1\nk = 2\nj = 3\n",
                               {{"k", 1, "\"1\""}},
                               "[a]\nk = 1\nk = \"1\"\nj = 3\n"},
                          Case{"the other of two equal lines was removed there",
                               "git",
                               "[a]\nk = 1\nk = \"1\"\nj = 2\n",
                               "[a]\nk = \"1\"\nj = 3\n",
                               {{"k", 1, "1\"\""}},
                               "[a]\nk = 1\"\"\nj = 3\n"},
                          Case{"another spelling there, too",
                               "git",
                               "[a]\nk = 1\nj = 2\n",
                               "[a]\nk = \"1\"\nj = 3\n",
                               {{"k", 0, "1\"\""}},
                               "[a]\nk = 1\"\"\nj = 3\n"},
                          Case{"a spelling that does not read back there",
                               "python",
                               "[a]\nk = 1\nl = 1\nj = 2\n",
                               "[a]\n    k = 1\nl = 1\nj = 3\n",
                               {{"k", 0, "1\n  2"}, {"l", 0, "1\n      2"}},
                               "[a]\n    k = 1\n        2\nl = 1\n      2\nj = 3\n"}}) {
        SCOPED_TRACE(c.name);
        TestDirectory const directory;
        std::string const path = directory.write("conf", c.before);
        ZStanzaFileProperties_6_0 store(path.c_str(), 1, dialectNamed(c.dialect));
        for (Spelling const& set : c.spellings)
            store.setSpelling("a", set.key, set.index, set.spelling);
        directory.write("conf", c.there);
        store.store(nullptr);
        EXPECT_EQ(c.after, directory.read("conf"));
    }
}

TEST(ZDialectData, TheLinesOfAllKeysAreFoundInLinearTime)
{
    EXPECT_TRUE(takesLinearTime(300, [](size_t count) {
        std::string text = "; c\n[a]\n";
        for (size_t i = 0; i < count; ++i)
            text += "k" + std::to_string(i) + " = 1\n";
        auto const store = std::make_shared<ZStanzaFileProperties_6_0>(1, dialectNamed("ini"));
        store->loadText(text.data(), text.size());
        return [store, count] {
            store->setValue("a", "k0", "2");
            for (size_t i = 0; i < count; ++i)
                ASSERT_EQ(i + 3, store->lineOf("a", ("k" + std::to_string(i)).c_str(), 0));
        };
    }));
}

TEST(ZDialectData, TheLineOfAValueFollowsItsChanges)
{
    ZStanzaFileProperties_6_0 store(1, dialectNamed("systemd"));
    char const* const text = "[b]\nj=1\n[a]\nk=1\\\n  2\nk=3\n[b]\nl=4\n";
    store.loadText(text, strlen(text));
    EXPECT_EQ(4U, store.lineOf("a", "k", 0));
    EXPECT_EQ(6U, store.lineOf("a", "k", 1));
    EXPECT_EQ(8U, store.lineOf("b", "l", 0));
    store.addValue("b", "j", "2", 0);
    EXPECT_EQ(5U, store.lineOf("a", "k", 0));
    char const* const values[] = {"x", "y", "z"};
    store.setValues("a", "k", values, 3);
    EXPECT_EQ(5U, store.lineOf("a", "k", 0));
    EXPECT_EQ(7U, store.lineOf("a", "k", 2));
    store.deleteStanza("b");
    EXPECT_EQ(2U, store.lineOf("a", "k", 0));
    ZLCString_6_0 spelling;
    store.getSpelling("a", "k", 1, spelling);
    EXPECT_STREQ("y", spelling.getChars());
}
