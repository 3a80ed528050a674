// Renames together with other changes in a single store, in every dialect: the lines of the renamed
// stanzas and keys stay, and the file is the same as after a store for each change.
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DialectStore.h"
#include "DialectTable.h"
#include "StanzaStore.h"

using namespace dialect_model;

namespace {

using Store = ZStanzaFileProperties_6_0;
using Change = std::function<void(Store&)>;

std::unique_ptr<Store> storeOf(std::string const& dialect, std::string const& text)
{
    auto store = std::make_unique<Store>(1, dialectNamed(dialect));
    store->setAttributes(ZPCache_6_0::keepLines | ZPCache_6_0::keepComments, nullptr);
    store->loadText(text.data(), text.size());
    return store;
}

std::string inOneStore(std::string const& dialect, std::string const& text,
                       std::vector<Change> const& changes)
{
    auto const store = storeOf(dialect, text);
    for (Change const& change : changes)
        change(*store);
    return textOf(*store);
}

std::string inManyStores(std::string const& dialect, std::string text,
                         std::vector<Change> const& changes)
{
    for (Change const& change : changes)
        text = inOneStore(dialect, text, {change});
    return text;
}

Change set(std::string const& stanza, std::string const& key, std::string const& value)
{
    return [=](Store& store) { store.setValue(stanza.c_str(), key.c_str(), value.c_str(), 0); };
}

Change renameStanza(std::string const& stanza, std::string const& name)
{
    return [=](Store& store) { store.renameStanza(stanza.c_str(), name.c_str()); };
}

Change renameKey(std::string const& stanza, std::string const& key, std::string const& name)
{
    return [=](Store& store) { store.renameKey(stanza.c_str(), key.c_str(), name.c_str()); };
}

// The parts of a file that no change of the tests may touch.
struct Form {
    explicit Form(Dialect const& dialect) : rules(dialect.rules)
    {
        bool const isHash = (rules.marks & hash) != 0;
        comment = isHash ? "# " : "; ";
        if (rules.keyAlone == KeyAlone::passedOver ||
            rules.keyAlone == KeyAlone::passedOverOrNoName)
            junk = "junk line\n";
        if (rules.trailing != 0)
            trailing = (rules.trailing & hash) != 0 ? "   # why" : "   ; why";
        separator = rules.separatorStyle == SeparatorStyle::tightEquals && dialect.name == "env"
                        ? "="
                        : "  =  ";
        hasStanzas = rules.heads != Heads::none;
        stanza = hasStanzas ? "a" : ".";
    }

    // A stanza with three keys.
    std::string lines(std::string const& header, std::vector<std::string> const& keys,
                      std::vector<std::string> const& values) const
    {
        std::string const head = hasStanzas ? "[" + header + "]\n" : "";
        return head + comment + "n1\n" + keys[0] + separator + values[0] + trailing + "\n" + junk +
               keys[1] + "=" + values[1] + "\n\n" + comment + "n2\n" + keys[2] + separator +
               values[2] + "\n" + comment + "n3\n\n";
    }

    // Another stanza after it.
    std::string end(std::string const& header = "c") const
    {
        return hasStanzas ? comment + "n4\n[" + header + "]" + "\nm=3\n" : "";
    }

    Switches const& rules;
    std::string comment;
    std::string junk;
    std::string trailing;
    std::string separator;
    bool hasStanzas;
    std::string stanza;
};

// Expects the text after changes in one store and in a store for each.
void expectText(std::string const& dialect, std::string const& text,
                std::vector<Change> const& changes, std::string const& after)
{
    SCOPED_TRACE(dialect + "\n" + text);
    try {
        EXPECT_EQ(after, inOneStore(dialect, text, changes)) << "one store";
        EXPECT_EQ(after, inManyStores(dialect, text, changes)) << "a store for each change";
    } catch (ZException_6_0 const& e) {
        ADD_FAILURE() << e.exceptionName() << " at site " << e.where();
    }
}

std::vector<std::string> const kKeys = {"k", "j", "l"};
std::vector<std::string> const kValues = {"1", "2", "3"};

// Renames a stanza and changes all its values.
std::vector<Change> const kRenaming = {renameStanza("a", "z"), set("z", "k", "5"),
                                       set("z", "j", "6"), set("z", "l", "7")};

// Calls `test(dialect, form)` for each dialect whose files have stanzas.
template <class Test>
void forEachFormWithStanzas(Test test)
{
    for (Dialect const& dialect : kDialects)
        if (Form const form(dialect); form.hasStanzas)
            test(std::string(dialect.name), form);
}

}  // namespace

TEST(DialectRenames, AStanzaWithAllValuesChangedKeepsItsLines)
{
    forEachFormWithStanzas([](std::string const& dialect, Form const& form) {
        expectText(dialect, form.lines("a", kKeys, kValues) + form.end(), kRenaming,
                   form.lines("z", kKeys, {"5", "6", "7"}) + form.end());
    });
}

TEST(DialectRenames, AKeyWithAnotherValueKeepsItsLine)
{
    for (Dialect const& dialect : kDialects) {
        Form const form(dialect);
        std::string const& a = form.stanza;
        std::vector<Change> const changes = {renameKey(a, "k", "kk"), set(a, "kk", "5"),
                                             renameKey(a, "j", "jj"), set(a, "jj", "6"),
                                             renameKey(a, "l", "ll"), set(a, "ll", "7")};
        expectText(std::string(dialect.name), form.lines("a", kKeys, kValues) + form.end(), changes,
                   form.lines("a", {"kk", "jj", "ll"}, {"5", "6", "7"}) + form.end());
    }
}

TEST(DialectRenames, StanzaAndKeysTogetherKeepTheirLines)
{
    forEachFormWithStanzas([](std::string const& dialect, Form const& form) {
        std::vector<Change> const changes = {renameKey("a", "k", "kk"), renameStanza("a", "y"),
                                             renameKey("y", "j", "jj"), set("y", "kk", "5"),
                                             renameStanza("y", "z"),    renameKey("z", "kk", "kkk"),
                                             set("z", "jj", "6"),       set("z", "l", "7")};
        expectText(dialect, form.lines("a", kKeys, kValues) + form.end(), changes,
                   form.lines("z", {"kkk", "jj", "l"}, {"5", "6", "7"}) + form.end());
    });
}

TEST(DialectRenames, TwoNamesAreExchanged)
{
    for (Dialect const& dialect : kDialects) {
        Form const form(dialect);
        std::string const& a = form.stanza;
        std::vector<Change> const keys = {renameKey(a, "k", "t"), renameKey(a, "l", "k"),
                                          renameKey(a, "t", "l"), set(a, "l", "5"),
                                          set(a, "k", "7")};
        expectText(std::string(dialect.name), form.lines("a", kKeys, kValues) + form.end(), keys,
                   form.lines("a", {"l", "j", "k"}, {"5", "2", "7"}) + form.end());
        if (!form.hasStanzas)
            continue;
        std::vector<Change> const stanzas = {renameStanza("a", "t"), renameStanza("c", "a"),
                                             renameStanza("t", "c"), set("c", "k", "5"),
                                             set("c", "j", "6"),     set("c", "l", "7"),
                                             set("a", "m", "8")};
        expectText(std::string(dialect.name), form.lines("a", kKeys, kValues) + form.end(), stanzas,
                   form.lines("c", kKeys, {"5", "6", "7"}) + form.comment + "n4\n[a]\nm=8\n");
    }
}

TEST(DialectRenames, TheNameOfARemovedKeyOrStanzaIsTaken)
{
    for (Dialect const& dialect : kDialects) {
        Form const form(dialect);
        std::string const& a = form.stanza;
        std::string const text = form.lines("a", kKeys, kValues) + form.end();
        std::string after = form.lines("a", {"k", "l", "X"}, {"1", "6", ""}) + form.end();
        size_t const removed = after.find("X");
        after.erase(removed, after.find('\n', removed) + 1 - removed);
        std::vector<Change> const keys = {[=](Store& store) { store.deleteKey(a.c_str(), "l"); },
                                          renameKey(a, "j", "l"), set(a, "l", "6")};
        expectText(std::string(dialect.name), text, keys, after);
        if (!form.hasStanzas)
            continue;
        std::vector<Change> const stanzas = {[](Store& store) { store.deleteStanza("c"); },
                                             renameStanza("a", "c"), set("c", "k", "5"),
                                             set("c", "j", "6"), set("c", "l", "7")};
        expectText(
            std::string(dialect.name), text, stanzas,
            inOneStore(std::string(dialect.name), form.lines("a", kKeys, kValues) + form.end(),
                       {stanzas[0], renameStanza("a", "c")})
                .replace(0, form.lines("a", kKeys, kValues).size(),
                         form.lines("c", kKeys, {"5", "6", "7"})));
    }
}

TEST(DialectRenames, TheOldNameIsUsedAgain)
{
    forEachFormWithStanzas([](std::string const& dialect, Form const& form) {
        std::vector<Change> changes = kRenaming;
        changes.push_back(set("a", "k", "1"));
        changes.push_back(set("a", "j", "2"));
        std::string const text = form.lines("a", kKeys, kValues) + form.end();
        std::string const start = form.lines("z", kKeys, {"5", "6", "7"}) + form.end();
        std::string const after = inOneStore(dialect, text, changes);
        EXPECT_EQ(start, after.substr(0, start.size())) << dialect;
    });
}

TEST(DialectRenames, AStanzaThatStandsAloneKeepsItsLines)
{
    std::string const text = "[a]\nk=1\n\n# n\n[a]\n# m\nl = 2\njunk line\nm=3\n[a]\nl=9\n";
    std::vector<Change> const changes = {renameStanza("a]2", "z"), set("z", "l", "5"),
                                         set("z", "m", "6"), set("a]2", "l", "8")};
    expectText("networkd", text, changes,
               "[a]\nk=1\n\n# n\n[z]\n# m\nl = 5\njunk line\nm=6\n[a]\nl=8\n");
}

TEST(DialectRenames, AKeyWithSeveralValuesGetsFurtherLinesOfItsNewName)
{
    std::string const text = "[a]\nk = 1\n# n\nk = 2\njunk line\nj=3\n";
    std::vector<Change> const changes = {renameKey("a", "k", "kk"),
                                         [](Store& store) { store.addValue("a", "kk", "4", 0); },
                                         [](Store& store) { store.removeValue("a", "kk", "1"); }};
    expectText("systemd", text, changes, "[a]\n# n\nkk = 2\nkk = 4\njunk line\nj=3\n");
}

// storeText() does not replace the lines that were loaded; store() does.
TEST(DialectRenames, AStoreForgetsTheOldNames)
{
    TestDirectory const directory;
    std::string const path = directory.write("x.service", "[a]\nk=1\njunk line\n[b]\nk=2\n# n\n");
    ZStanzaDialect_6_0 dialect;
    ASSERT_EQ(1, ZStanzaDialect_6_0::named("systemd", dialect));
    Store store(path.c_str(), 1, dialect);
    for (char const* const name : {"t", "u"}) {
        store.renameStanza("a", name);
        store.renameStanza("b", "a");
        store.renameStanza(name, "b");
        store.setValue("a", "k", name, 0);
        store.store(nullptr);
    }
    EXPECT_EQ("[a]\nk=u\njunk line\n[b]\nk=t\n# n\n", directory.read("x.service"));
}

TEST(DialectRenames, CommentsInsideTheNameOfAHeaderAreAboveIt)
{
    std::string const text = "# n\n[a \\\n; inside\n  b]\nk=1\n[c]\nm=3\n";
    expectText("systemd", text, {renameStanza("a    b", "z")},
               "# n\n; inside\n[z]\nk=1\n[c]\nm=3\n");
    expectText("systemd", text, {renameStanza("a    b", "z"), set("z", "k", "2")},
               "# n\n; inside\n[z]\nk=2\n[c]\nm=3\n");
    expectText("systemd", text + "[a \\\n# again\n  b]\nl=4\n", {renameStanza("a    b", "z")},
               "# n\n; inside\n[z]\nk=1\n[c]\nm=3\n# again\n[z]\nl=4\n");
}
