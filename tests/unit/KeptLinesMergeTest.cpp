// Stores with the attribute keepLines whose file another program has changed since it was loaded.
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "DialectStore.h"
#include "EachAllocation.h"
#include "KeptLinesStore.h"

namespace {

// A change of a store whose file another program has changed since, and the text after the store.
// An empty text: the store fails.
struct Meeting {
    char const* name;
    std::string there;
    std::function<void(Store&)> change;
    std::string after;
};

class KeptLinesMerge : public KeptLines {
protected:
    // Loads `before` into an empty store and makes both changes.
    void expectMeeting(Store& store, std::string const& before, Meeting const& meeting)
    {
        std::string const path = directory_.write("conf", before);
        store.load(path.c_str());
        directory_.write("conf", meeting.there);
        meeting.change(store);
        if (meeting.after.empty()) {
            try {
                store.store(nullptr);
                ADD_FAILURE();
            } catch (ZPropertiesIOException_6_0 const& e) {
                EXPECT_STREQ("store()", e.api().getChars());
                EXPECT_EQ(ESTALE, e.excerrno());
            }
            EXPECT_EQ(meeting.there, directory_.read("conf"));
            EXPECT_EQ(1, store.isModified());
            return;
        }
        ASSERT_NO_THROW(store.store(nullptr));
        EXPECT_EQ(meeting.after, directory_.read("conf"));
        // The store has the values of the file.
        store.setModified();
        store.store(nullptr);
        EXPECT_EQ(meeting.after, directory_.read("conf"));
    }
};

}  // namespace

TEST_F(KeptLinesMerge, ChangesOfOtherValuesMeetInTheFile)
{
    std::string const before = "# f\n[s]\nk=v\nl=w\n\n[t]\nm=1\nm=2\n";
    Meeting const meetings[] = {
        {"another value", "# f\n[s]\nk=v\n  l  =  there\n\n[t]\nm=1\nm=2\n", setTo("k", "here"),
         "# f\n[s]\nk=here\n  l  =  there\n\n[t]\nm=1\nm=2\n"},
        {"the same value", "# f\n[s]\nk=there\nl=w\n\n[t]\nm=1\nm=2\n", setTo("k", "here"), ""},
        {"the same change", "# f\n[s]\nk  =  x\nl=w\n\n[t]\nm=1\nm=2\n", setTo("k", "x"),
         "# f\n[s]\nk  =  x\nl=w\n\n[t]\nm=1\nm=2\n"},
        {"other lines", "# g\n\n[s]\n\tk = v\nl=w\n[t]\nm=1\nm=2\n", setTo("k", "here"),
         "# g\n\n[s]\n\tk = here\nl=w\n[t]\nm=1\nm=2\n"},
        {"new keys", "# f\n[s]\nk=v\nl=w\nthere=1\n\n[t]\nm=1\nm=2\n", setTo("here", "2"),
         "# f\n[s]\nk=v\nl=w\nthere=1\nhere=2\n\n[t]\nm=1\nm=2\n"},
        {"the same new key", "# f\n[s]\nk=v\nl=w\nnew=1\n\n[t]\nm=1\nm=2\n", setTo("new", "2"), ""},
        {"a value of several", "# f\n[s]\nk=v\nl=w\n\n[t]\nm=1\nm=3\n",
         [](Store& store) { store.addValue("t", "m", "4", 0); }, ""},
        {"a removed key", "# f\n[s]\nl=w\n\n[t]\nm=1\nm=2\n", setTo("l", "x"),
         "# f\n[s]\nl=x\n\n[t]\nm=1\nm=2\n"},
        {"a key removed there and changed here", "# f\n[s]\nl=w\n\n[t]\nm=1\nm=2\n",
         setTo("k", "x"), ""},
        {"a key removed here and changed there", "# f\n[s]\nk=x\nl=w\n\n[t]\nm=1\nm=2\n",
         removeKey("k"), ""},
        {"a stanza removed there", "# f\n[s]\nk=v\nl=w\n", setTo("k", "x"), "# f\n[s]\nk=x\nl=w\n"},
        {"a stanza removed there and changed here", "[t]\nm=1\nm=2\n", setTo("new", "x"), ""},
        {"a stanza removed here", "# f\n[s]\nk=x\nl=w\n\n[t]\nm=1\nm=2\n",
         [](Store& store) { store.deleteStanza("t"); }, "# f\n[s]\nk=x\nl=w\n\n"},
        {"a stanza removed here and changed there", "# f\n[s]\nk=v\nl=w\n\n[t]\nm=1\n",
         [](Store& store) { store.deleteStanza("t"); }, ""},
        {"new stanzas", before + "[there]\na=1\n",
         [](Store& store) { store.setValue("here", "b", "2"); },
         before + "[there]\na=1\n\n[here]\nb=2\n"},
        {"comments", "# f\n[s]\n# there\nk=v\nl=w\n\n[t]\nm=1\nm=2\n",
         [](Store& store) {
             store.addEntryComment("s", "l", "# here");
             store.addStanzaComment("t", "# of t");
         },
         "# f\n[s]\n# there\nk=v\n# here\nl=w\n\n# of t\n[t]\nm=1\nm=2\n"},
        {"an obfuscated value", "# f\n[s]\nk=x\nl=w\n\n[t]\nm=1\nm=2\n",
         [](Store& store) { store.setValue("s", "secret", "hidden", 1); },
         "# f\n[s]\nk=x\nl=w\n\n[t]\nm=1\nm=2\n\n[configuration-database]\nfile=" +
             directory_.at("conf") + ".obf\n"},
        {"a file that cannot be read", "[s\n", setTo("k", "x"), ""},
    };
    for (Meeting const& c : meetings) {
        SCOPED_TRACE(c.name);
        Store store(0);
        store.setAttributes(ZPCache_6_0::keepLines, nullptr);
        expectMeeting(store, before, c);
        if (c.after.empty())
            continue;
        Store const fresh(directory_.at("conf").c_str(), 1);
        EXPECT_EQ(fresh.count("s"), store.count("s"));
        EXPECT_EQ(valuesOf(fresh, "s", "l"), valuesOf(store, "s", "l"));
    }
}

TEST_F(KeptLinesMerge, ChangesOfCommentsMeetInTheFile)
{
    std::string const before = "# f\n\n[s]\n# a\nk=v\nl=w\n\n# t\n[t]\n";
    std::string const there = "# f\n\n[s]\n# a\nk=v\nl=there\n\n# t\n[t]\n";
    auto const comment = [](char const* stanza, char const* key, char const* text) {
        return [=](Store& store) { store.setComment(stanza, key, text); };
    };
    Meeting const meetings[] = {
        {"changed", there, comment("s", "k", "# b"), "# f\n\n[s]\n# b\nk=v\nl=there\n\n# t\n[t]\n"},
        {"removed", there, comment("s", "k", nullptr), "# f\n\n[s]\nk=v\nl=there\n\n# t\n[t]\n"},
        {"of a stanza", there, comment("t", nullptr, "# u"),
         "# f\n\n[s]\n# a\nk=v\nl=there\n\n# u\n[t]\n"},
        {"of the file", there, comment(nullptr, nullptr, "# g"),
         "# g\n\n[s]\n# a\nk=v\nl=there\n\n# t\n[t]\n"},
        {"of a key that was removed there", "# f\n\n[s]\nl=w\n\n# t\n[t]\n",
         comment("s", "k", "# b"), ""},
        {"of a stanza that was removed there", "# f\n\n[s]\n# a\nk=v\nl=w\n",
         comment("t", nullptr, "# u"), ""},
        {"changed there, too", "# f\n\n[s]\n# c\nk=v\nl=w\n\n# t\n[t]\n", comment("s", "k", "# b"),
         ""},
        {"changed there only", "# f\n\n[s]\n# c\nk=v\nl=w\n\n# t\n[t]\n", setTo("l", "x"),
         "# f\n\n[s]\n# c\nk=v\nl=x\n\n# t\n[t]\n"},
        {"of a removed key", there, removeKey("k"), "# f\n\n[s]\n# a\nl=there\n\n# t\n[t]\n"},
        {"of a renamed key", there, [](Store& store) { store.renameKey("s", "k", "n"); },
         "# f\n\n[s]\n# a\nn=v\nl=there\n\n# t\n[t]\n"},
        {"of a renamed key, changed there", "# f\n\n[s]\n# b\nk=v\nl=w\n\n# t\n[t]\n",
         [](Store& store) { store.renameKey("s", "l", "n"); },
         "# f\n\n[s]\n# b\nk=v\nn=w\n\n# t\n[t]\n"},
    };
    for (Meeting const& c : meetings) {
        SCOPED_TRACE(c.name);
        Store store(1);
        store.setAttributes(ZPCache_6_0::keepLines, nullptr);
        expectMeeting(store, before, c);
    }
}

// Lines without a meaning have no key, but a change of one is a change.
TEST_F(KeptLinesMerge, ChangesOfLinesPassedOverMeetInTheFile)
{
    std::string const before = "[s]\nk = 1\n; c\njunk\nl = 1\n\n[t]\nm = 1\nstray\n";
    auto const replaced = [](std::string text, std::string const& old, std::string const& now) {
        return text.replace(text.find(old), old.size(), now);
    };
    auto const removeStanza = [](Store& store) { store.deleteStanza("t"); };
    auto const renameStanza = [](Store& store) { store.renameStanza("t", "u"); };
    auto const changed = replaced(before, "junk", "junk there");
    auto const changedLast = replaced(before, "stray", "stray there");
    Meeting const meetings[] = {
        {"changed", changed, setTo("k", "2"), replaced(changed, "k = 1", "k = 2")},
        {"removed", replaced(before, "junk\n", ""), setTo("k", "2"),
         replaced(replaced(before, "junk\n", ""), "k = 1", "k = 2")},
        {"new", before + "junk\n", setTo("k", "2"), replaced(before, "k = 1", "k = 2") + "junk\n"},
        {"its comment", replaced(before, "; c", "; d"), setTo("k", "2"),
         replaced(replaced(before, "; c", "; d"), "k = 1", "k = 2")},
        {"below a removed key", changed, removeKey("k"), replaced(changed, "k = 1\n", "")},
        {"in another stanza than a removed one", changed, removeStanza,
         "[s]\nk = 1\n; c\njunk there\nl = 1\n\n"},
        {"in a removed stanza", changedLast, removeStanza, ""},
        {"in a stanza that is removed and has none now", replaced(before, "stray\n", ""),
         removeStanza, "[s]\nk = 1\n; c\njunk\nl = 1\n\n"},
        {"in a renamed stanza", changedLast, renameStanza, replaced(changedLast, "[t]", "[u]")},
        {"in a stanza that is removed there", "[s]\nk = 1\n; c\njunk\nl = 1\n", setTo("k", "2"),
         "[s]\nk = 2\n; c\njunk\nl = 1\n"},
    };
    for (Meeting const& c : meetings) {
        SCOPED_TRACE(c.name);
        Store store(1, dialectNamed("ini"));
        expectMeeting(store, before, c);
    }
}

TEST_F(KeptLinesMerge, TheStanzaWithoutANameKeepsItsKeys)
{
    load("[]\na=1\n[s]\nk=v\nl=w\n");
    store_.setValue("s", "k", "x");
    directory_.write("conf", "[]\na=1\n[s]\nk=v\nl=there\n");
    EXPECT_EQ("[]\na=1\n[s]\nk=x\nl=there\n", stored());
}

TEST_F(KeptLinesMerge, AKeyDoesNotGetPlainAndObfuscatedValues)
{
    load("[s]\nk=v\n");
    store_.setValue("s", "p", "hidden", 1);
    std::string const there = "[s]\nk=v\np=plain\n";
    directory_.write("conf", there);
    EXPECT_THROW(store_.store(nullptr), ZPropertiesIOException_6_0);
    EXPECT_EQ(there, directory_.read("conf"));
    EXPECT_EQ("hidden,", valuesOf(store_, "s", "p"));
    EXPECT_EQ(1, store_.isObfuscated("s", "p"));
}

TEST_F(KeptLinesMerge, AKeyWhoseObfuscatedValuesBecomePlainThereIsPlain)
{
    load("[s]\nk=v\n");
    store_.setValue("s", "p", "hidden", 1);
    store_.store(nullptr);
    for (bool const isLast : {false, true}) {
        SCOPED_TRACE(isLast);
        if (!isLast) {
            store_.setValue("s", "q", "other", 1);
            store_.store(nullptr);
        }
        char const* const key = isLast ? "p" : "q";
        Store other(directory_.at("conf").c_str(), 1);
        other.setAttributes(ZPCache_6_0::keepLines, nullptr);
        other.reload(nullptr);
        other.deleteKey("s", key);
        other.setValue("s", key, "plain");
        other.store(nullptr);
        store_.setValue("s", "k", isLast ? "y" : "x");
        ASSERT_NO_THROW(store_.store(nullptr));
        EXPECT_EQ("plain,", valuesOf(store_, "s", key));
        EXPECT_EQ(0, store_.isObfuscated("s", key));
        Store const fresh(directory_.at("conf").c_str(), 1);
        EXPECT_EQ("plain,", valuesOf(fresh, "s", key));
        EXPECT_EQ(isLast ? "y," : "x,", valuesOf(fresh, "s", "k"));
        EXPECT_EQ(isLast ? 0 : 1, fresh.isObfuscated("s", "p"));
    }
}

TEST_F(KeptLinesMerge, ACopyOfTheFileOrStoreNoticesChangesOfTheFileToo)
{
    std::string const before = "[s]\nk=v\nl=w\n";
    std::string const there = "[s]\nk=v\nl=there\n";
    std::string const after = "[s]\nk=x\nl=there\n";
    load(before);
    store_.setValue("s", "k", "x");
    store_.store(directory_.at("copy").c_str());
    EXPECT_EQ("[s]\nk=x\nl=w\n", directory_.read("copy"));
    directory_.write("conf", there);
    EXPECT_EQ(after, stored());
    // The copy is known, too.
    directory_.write("copy", "[s]\nk=x\nl=copied\n");
    EXPECT_THROW(store_.store(directory_.at("copy").c_str()), ZPropertiesIOException_6_0);

    directory_.write("conf", before);
    store_.reload(nullptr);
    Store copy(store_);
    directory_.write("conf", there);
    copy.setValue("s", "k", "x");
    copy.store(nullptr);
    EXPECT_EQ(after, directory_.read("conf"));
}

TEST_F(KeptLinesMerge, ALoadedTextMeetsAChangedFile)
{
    load("[s]\nk=v\nl=w\n");
    std::string const text = "[s]\nk=x\nl=w\n";
    store_.loadText(text.data(), text.size());
    directory_.write("conf", "[s]\nk=v\nl=there\n");
    EXPECT_EQ("[s]\nk=x\nl=there\n", stored());
}

TEST_F(KeptLinesMerge, EachOfSeveralFilesIsCompared)
{
    load("[s]\nk=v\n");
    std::string const other = directory_.write("other", "[t]\nl=w\n");
    store_.load(other.c_str());
    store_.setValue("s", "k", "x");
    directory_.write("conf", "# there\n[s]\nk=v\n");
    EXPECT_EQ("# there\n[s]\nk=x\n\n[t]\nl=w\n", stored());
}

TEST_F(KeptLinesMerge, AnotherFileWithTheInodeOfARemovedFileIsNotCompared)
{
    std::string const path = load("[s]\nk=v\n");
    std::string const other = directory_.at("other");
    // The inode of the file, as if it were used again.
    ASSERT_EQ(0, rename(path.c_str(), other.c_str()));
    directory_.write("other", "[t]\nl=w\n");
    store_.setValue("s", "k", "x");
    store_.store(other.c_str());
    EXPECT_EQ("[s]\nk=x\n", directory_.read("other"));
}

TEST_F(KeptLinesMerge, ObfuscatedValuesOfAnotherProgramStay)
{
    load("[s]\nk=v\n");
    for (char const* key : {"a", "b", "c"})
        store_.setValue("s", key, "old", 1);
    store_.store(nullptr);
    auto const change = [&](std::function<void(Store&)> const& action) {
        Store other(directory_.at("conf").c_str(), 1);
        other.setAttributes(ZPCache_6_0::keepLines, nullptr);
        other.reload(nullptr);
        action(other);
        other.store(nullptr);
    };
    std::string const text = directory_.read("conf");
    change([](Store& other) {
        other.setValue("s", "b", "there", 1);
        other.deleteKey("s", "c");
    });
    EXPECT_EQ(text, directory_.read("conf"));
    store_.setValue("s", "k", "x");
    store_.setValue("s", "a", "here", 1);
    store_.store(nullptr);
    EXPECT_EQ("there,", valuesOf(store_, "s", "b"));
    Store const fresh(directory_.at("conf").c_str(), 1);
    EXPECT_EQ("x,", valuesOf(fresh, "s", "k"));
    EXPECT_EQ("here,", valuesOf(fresh, "s", "a"));
    EXPECT_EQ("there,", valuesOf(fresh, "s", "b"));
    EXPECT_EQ(0, fresh.exists("s", "c"));

    // The same value.
    change([](Store& other) { other.setValue("s", "b", "again", 1); });
    store_.setValue("s", "b", "here", 1);
    EXPECT_THROW(store_.store(nullptr), ZPropertiesIOException_6_0);
    EXPECT_EQ("here,", valuesOf(store_, "s", "b"));
    // A value that becomes plain, and a value that is removed.
    store_.reload(nullptr);
    change([](Store& other) { other.setValue("s", "k", "y"); });
    store_.deleteKey("s", "a");
    store_.setValue("s", "a", "plain");
    store_.deleteKey("s", "b");
    ASSERT_NO_THROW(store_.store(nullptr));
    Store const last(directory_.at("conf").c_str(), 1);
    EXPECT_EQ("y,", valuesOf(last, "s", "k"));
    EXPECT_EQ("plain,", valuesOf(last, "s", "a"));
    EXPECT_EQ(0, last.isObfuscated("s", "a"));
    EXPECT_EQ(0, last.exists("s", "b"));
}

TEST_F(KeptLinesMerge, AFileThatWasRemovedIsStoredAgain)
{
    std::string const path = load("[s]\n  k=v\n");
    unlink(path.c_str());
    store_.setValue("s", "k", "x");
    EXPECT_EQ("[s]\n  k=x\n", stored());
}

TEST_F(KeptLinesMerge, AFailedAllocationInAMergeLosesNothing)
{
    load("[s]\nk=v\nl=w\n");
    directory_.write("conf", "[s]\nk=v\n  l  =  there\n");
    store_.setValue("s", "k", "here");
    unsigned long const failures = failEachAllocationOfSome(
        [&] { store_.store(nullptr); }, [] {},
        [&] {
            bool const isStored = store_.isModified() == 0;
            EXPECT_EQ(isStored ? "there," : "w,", valuesOf(store_, "s", "l"));
            EXPECT_EQ("here,", valuesOf(store_, "s", "k"));
        },
        false);
    EXPECT_GT(failures, 20u);
    EXPECT_EQ("[s]\nk=here\n  l  =  there\n", directory_.read("conf"));
}

TEST_F(KeptLinesMerge, ADerivedCacheMergesToo)
{
    std::string const path = directory_.write("conf", "[s]\nk=v\nl=1\n");
    ZProperties_6_0 store(new CountingCache);
    store.setAttributes(ZPCache_6_0::keepLines, nullptr);
    store.load(path.c_str());
    store.setValue("s", "l", "2");
    directory_.write("conf", "[s]\n\tk=there\nl=1\n");
    store.store(nullptr);
    EXPECT_EQ("[s]\n\tk=there\nl=2\n", directory_.read("conf"));
    EXPECT_EQ("there,", valuesOf(store, "s", "k"));
}

TEST_F(KeptLinesMerge, PostLoadSeesTheValuesOfAnotherProgram)
{
    class Watched : public ZStanzaFileProperties_6_0 {
    public:
        using ZStanzaFileProperties_6_0::ZStanzaFileProperties_6_0;

        void postLoad(char const*) override
        {
            ++loads;
            l = valuesOf(*this, "s", "l");
        }

        int loads = 0;
        std::string l;
    };
    std::string const path = directory_.write("conf", "[s]\nk=v\nl=w\n");
    Watched store(1);
    store.setAttributes(ZPCache_6_0::keepLines, nullptr);
    store.load(path.c_str());
    store.setValue("s", "k", "x");
    store.store(nullptr);
    EXPECT_EQ(1, store.loads);
    directory_.write("conf", "[s]\nk=x\nl=there\n");
    store.setValue("s", "k", "y");
    store.store(nullptr);
    EXPECT_EQ(2, store.loads);
    EXPECT_EQ("there,", store.l);
}
