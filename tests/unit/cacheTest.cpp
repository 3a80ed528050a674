// The contents of a cache under the policies of several file formats.
#include "Z/cache/contents.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>

#include "Z/cache/compact_index.h"
#include "Z/cache/file_text.h"
#include "Z/cache/reader.h"
#include "Z/stanza/comment_template.h"

using zcache::CompactIndex;
using zcache::Contents;
using zcache::Id;
using zcache::Policy;
using zcache::Reader;

namespace {

Policy everything()
{
    Policy policy;
    policy.keepsEmpty = policy.joinsHeads = policy.hasTop = true;
    policy.categories.foldsCase = policy.keys.foldsCase = true;
    policy.comments = {"#;", "=:", 1 << 20};
    return policy;
}

// Reads lines: "[a]", "# comment", "", "k", "k=v".
void read(Reader& reader, std::string const& text)
{
    bool hasHeader = false;
    for (size_t at = 0; at < text.size();) {
        size_t const end = text.find('\n', at);
        std::string_view const line = reader.copy(std::string_view(text).substr(at, end - at));
        at = end + 1;
        size_t const separator = line.find('=');
        if (line.empty()) {
            reader.addBlank();
        } else if (line[0] == '[') {
            hasHeader = true;
            reader.addHeader(reader.copy(line.substr(1, line.size() - 2)), 1, 0);
        } else if (line[0] == '#' || line[0] == ';') {
            reader.addComment(line);
        } else {
            if (!std::exchange(hasHeader, true))
                reader.addHeader(reader.copy("."), 1, 0);
            std::string_view const value =
                separator == line.npos ? std::string_view() : line.substr(separator + 1);
            reader.addKey(reader.copy(line.substr(0, separator)), value);
        }
    }
}

void readAll(Contents& contents, std::string const& text)
{
    Reader reader(contents);
    read(reader, text);
    reader.finish();
}

std::string described(Contents const& contents)
{
    zlines::Document document;
    zcache::describe(contents, contents.policy().keepsEmpty, document);
    std::string out;
    for (zlines::Stanza const& stanza : document.stanzas) {
        if (&stanza != &document.stanzas.front())
            out += (stanza.isBelowBlank ? " [" : "[") + std::string(stanza.name) + "]";
        for (uint32_t i = 0; i < stanza.entryCount; ++i) {
            zlines::Entry const& entry = document.entries[stanza.firstEntry + i];
            out += (entry.isBelowBlank ? " " : "") + std::string(entry.text);
            for (uint32_t v = 0; v < entry.valueCount; ++v)
                out += "=" + std::string(document.values[entry.firstValue + v]);
            out += ",";
        }
    }
    return out;
}

std::string textOf(Contents const& contents, Contents::CommentBlock const& block)
{
    return block.first == 0 ? "" : std::string(contents.text(contents.line(block.first)));
}

// An index and a model of it, with hashes that collide.
class IndexAndModel {
public:
    explicit IndexAndModel(unsigned hashBits) : hashBits_(hashBits) {}

    static uint32_t hashOf(Id id, unsigned bits)
    {
        return id * 2654435761u << (32 - bits);  // of the top bits, which select the slot
    }
    uint32_t hashOf(Id id) const { return hashOf(id, hashBits_); }

    void add(Id id)
    {
        index_.reserve(1, id, [this](Id known) { return hashOf(known); });
        index_.add(hashOf(id), id);
        model_.insert(id);
    }
    void remove(Id id)
    {
        index_.remove(hashOf(id), id, [this](Id known) { return hashOf(known); });
        model_.erase(id);
    }
    bool has(Id id) const
    {
        return index_.find(hashOf(id), [id](Id found) { return found == id; }) == id;
    }
    void shrinkToFit()
    {
        index_.shrinkToFit([this](Id known) { return hashOf(known); });
    }
    size_t bytes() const { return index_.bytes(); }
    std::set<Id> const& model() const { return model_; }

private:
    CompactIndex index_;
    std::set<Id> model_;
    unsigned hashBits_;
};

TEST(CompactIndex, FindsWhatWasAddedAndNotRemoved)
{
    for (unsigned const hashBits : {2u, 9u, 32u}) {
        SCOPED_TRACE(hashBits);
        std::mt19937 random(hashBits);
        IndexAndModel index(hashBits);
        constexpr Id kIds = 3000;
        Id const ids = hashBits == 2 ? 60 : kIds;  // long probes take long
        for (int i = 0; i < 20000; ++i) {
            // Phases of more additions and of more removals, and ids of any size.
            Id const id = 1 + random() % ids * (i < 10000 ? 1 : 997);
            bool const adds = random() % 8 < (i / 2000 % 2 == 0 ? 6u : 2u);
            ASSERT_EQ(index.model().count(id) != 0, index.has(id));
            if (adds && index.model().count(id) == 0)
                index.add(id);
            else if (!adds && index.model().count(id) != 0)
                index.remove(id);
            if (i % 1000 == 999) {
                index.shrinkToFit();
                for (Id const known : index.model())
                    ASSERT_TRUE(index.has(known)) << known;
            }
        }
        while (!index.model().empty())
            index.remove(*index.model().begin());
        index.shrinkToFit();
        EXPECT_EQ(0u, index.bytes());
    }
}

TEST(CompactIndex, TakesAtMostSixBytesAnIdInALargeTable)
{
    CompactIndex index;
    constexpr size_t kCount = 100000;
    auto const hashOf = [](Id id) { return id * 2654435761u; };
    index.reserve(kCount, kCount, hashOf);
    for (Id id = 1; id <= kCount; ++id)
        index.add(hashOf(id), id);
    EXPECT_GE(6 * kCount, index.bytes());
}

TEST(CompactIndex, RefusesIdsThatDoNotFitIntoASlot)
{
    CompactIndex index;
    auto const hashOf = [](Id id) { return id == zcache::kMaxRecords ? 0xFFFFFFFFu : id; };
    EXPECT_THROW(index.reserve(1, size_t{zcache::kMaxRecords} + 1, hashOf),
                 ZOutOfMemoryException_6_0);
    index.reserve(0, 0, hashOf);
    index.reserve(1, zcache::kMaxRecords, hashOf);
    index.add(0xFFFFFFFFu, zcache::kMaxRecords);
    EXPECT_EQ(zcache::kMaxRecords, index.find(0xFFFFFFFFu, [](Id) { return true; }));
    index.reserve(1, 1, hashOf);  // the known id still needs all bits
    index.add(1, 1);
    EXPECT_EQ(zcache::kMaxRecords,
              index.find(0xFFFFFFFFu, [](Id id) { return id == zcache::kMaxRecords; }));
}

TEST(CompactIndex, TakesNoMemoryForASingleId)
{
    CompactIndex index;
    auto const hashOf = [](Id id) { return id * 2654435761u; };
    auto const has = [&](Id wanted) {
        return index.find(hashOf(wanted), [&](Id id) { return id == wanted; }) == wanted;
    };
    for (Id const first : {Id{5}, Id{9}}) {
        index.reserve(1, first, hashOf);
        index.add(hashOf(first), first);
        EXPECT_EQ(0u, index.bytes());
        EXPECT_TRUE(has(first));
        EXPECT_FALSE(has(6));
        index.replace(hashOf(first), first, 6);
        EXPECT_FALSE(has(first));
        EXPECT_TRUE(has(6));
        CompactIndex copy;
        copy.copy(index);
        EXPECT_EQ(6u, copy.find(hashOf(6), [](Id) { return true; }));
        index.remove(hashOf(6), 6, hashOf);
        EXPECT_FALSE(has(6));
    }
    index.reserve(1, 6, hashOf);
    index.add(hashOf(6), 6);
    index.reserve(1, 7, hashOf);
    EXPECT_LT(0u, index.bytes());
    EXPECT_TRUE(has(6));
    index.add(hashOf(7), 7);
    EXPECT_TRUE(has(7));
}

TEST(SlotPool, FreesItsBlockWithItsLastRecord)
{
    zcache::SlotPool<zcache::Value> pool;
    EXPECT_EQ(1u, pool.allocate());
    EXPECT_EQ(2u, pool.allocate());
    EXPECT_EQ(3u, pool.end());
    pool.free(1);
    pool.shrinkToFit();
    EXPECT_EQ(1u, pool.count());
    EXPECT_EQ(2 * sizeof(zcache::Value), pool.bytes());
    pool.free(2);
    pool.shrinkToFit();
    EXPECT_EQ(0u, pool.count());
    EXPECT_EQ(0u, pool.bytes());
    EXPECT_EQ(1u, pool.allocate());
    pool.allocate();
    pool.truncate(2);
    EXPECT_EQ(1u, pool.count());
    EXPECT_EQ(2u, pool.end());
}

// Most stores need no treaps, templates, old names or further values.
TEST(Cache, TakesMemoryForRarelyUsedFieldsOnDemand)
{
    EXPECT_GE(512u, sizeof(Contents));
    Contents contents;
    contents.set("s", "k", "v", Contents::plain);
    size_t const before = contents.memoryUsed();
    contents.keepOldKeyName("s", "k");
    EXPECT_LT(before, contents.memoryUsed());
    contents.forgetChanges();
    EXPECT_EQ(before, contents.memoryUsed());
}

// The record of a key has space for one plain value, and the same space refers to further fields.
TEST(Cache, KeyKeepsItsOnlyValueWhenItGetsFurtherFields)
{
    struct Case {
        char const* name;
        void (*call)(Contents&, Id);
        std::string plain;  // added to the first value
        std::string obfuscated;
    };
    Case const cases[] = {
        {"name", [](Contents& contents, Id key) { contents.keyName(key); }, "", ""},
        {"obfuscated list",
         [](Contents& contents, Id key) { contents.list(key, Contents::obfuscated); }, "", ""},
        {"plain list", [](Contents& contents, Id key) { contents.list(key, Contents::plain); }, "",
         ""},
        {"second value",
         [](Contents& contents, Id) { contents.add("s", "k", "w", Contents::plain); }, "w,", ""},
        {"obfuscated value",
         [](Contents& contents, Id) { contents.add("s", "k", "w", Contents::obfuscated); }, "",
         "w,"},
        {"read again", [](Contents& contents, Id) { readAll(contents, "[s]\nk=w\n"); }, "w,", ""},
    };
    auto const valuesOf = [](Contents const& contents, Contents::Kind kind) {
        std::string values;
        contents.forEachValue(contents.liveKey("s", "k"), kind,
                              [&](std::string_view value) { values.append(value).append(","); });
        return values;
    };
    for (Case const& c : cases) {
        for (std::string const& value : {std::string("v"), std::string(70000, 'v')}) {
            SCOPED_TRACE(c.name);
            Contents contents;
            contents.setPolicy(everything());
            contents.addLine("s", "k", value, Contents::plain);
            ASSERT_EQ(nullptr, contents.findExtra(contents.liveKey("s", "k")));
            c.call(contents, contents.liveKey("s", "k"));
            EXPECT_NE(nullptr, contents.findExtra(contents.liveKey("s", "k")));
            Contents const copy(contents);
            for (Contents const* const checked : {static_cast<Contents const*>(&contents), &copy}) {
                EXPECT_EQ(value + "," + c.plain, valuesOf(*checked, Contents::plain));
                EXPECT_EQ(c.obfuscated, valuesOf(*checked, Contents::obfuscated));
            }
            contents.set("s", "k", "new", Contents::plain);
            EXPECT_EQ("new,", valuesOf(contents, Contents::plain));
            EXPECT_EQ("", valuesOf(contents, Contents::obfuscated));
            contents.deleteLine("s", "k");
            contents.addLine("s", "k", "again", Contents::plain);
            EXPECT_EQ(nullptr, contents.findExtra(contents.liveKey("s", "k")));
            EXPECT_EQ("again,", valuesOf(contents, Contents::plain));
        }
    }
}

// An arena has the addresses of its first window inside, which a swap must not mix up.
TEST(Arena, StringsAreFoundAfterSwapsAndMoreWindows)
{
    std::string const large(3 << 20, 'x');
    zcache::Arena a;
    zcache::Arena b;
    std::string_view const small = a.add("small");
    zcache::StringId const smallId = a.idOf(small.data());
    a.swap(b);
    EXPECT_EQ("small", b.view(smallId));
    zcache::StringId const otherId = a.idOf(a.add("other").data());
    EXPECT_EQ(smallId, otherId);  // each arena has ids of its own
    zcache::StringId const largeId = b.idOf(b.add(large).data());
    EXPECT_EQ("small", b.view(smallId));
    EXPECT_EQ(large, b.view(largeId));
    b.swap(a);
    EXPECT_EQ("small", a.view(smallId));
    EXPECT_EQ(large, a.view(largeId));
    EXPECT_EQ("other", b.view(otherId));
    a.clear();
    EXPECT_EQ(smallId, a.idOf(a.add("again").data()));
    EXPECT_EQ("again", a.view(smallId));
}

// The names of keys in the index depend on the name of their category.
TEST(Cache, KeysOfARenamedCategoryAreFoundAndRemoved)
{
    Contents contents;
    constexpr int kKeys = 2000;
    for (int i = 0; i < kKeys; ++i)
        for (char const* category : {"a", "b"})
            contents.set(category, "k" + std::to_string(i), "v", Contents::plain);
    contents.renameCategory("a", "c");
    for (int i = 0; i < kKeys; ++i) {
        std::string const key = "k" + std::to_string(i);
        ASSERT_EQ(0u, contents.liveKey("a", key.c_str())) << key;
        Id const renamed = contents.liveKey("c", key.c_str());
        ASSERT_NE(0u, renamed) << key;
        ASSERT_NE(0u, contents.liveKey("b", key.c_str())) << key;
        contents.removeKey(renamed);
    }
    for (int i = 0; i < kKeys; ++i)
        ASSERT_NE(0u, contents.liveKey("b", ("k" + std::to_string(i)).c_str())) << i;
}

}  // namespace

TEST(CommentTemplate, HasNoKeyThatExceedsTheBuffer)
{
    char key[8];
    EXPECT_EQ(8U, zstanza::extractTemplateKey("# 1234 5678 =", {}, key, sizeof key));
    EXPECT_EQ(0U, zstanza::extractTemplateKey("# 1234 56789 =", {}, key, sizeof key));
}

TEST(CommentTemplate, OfALongCommentIsIgnored)
{
    Contents contents;
    contents.setPolicy(everything());
    readAll(contents, "[a]\n; " + std::string(20000, 'x') + " = 1\n\nk=1\n");
    contents.insertAtTemplates(true);
    contents.addLine("a", "l", "2", Contents::plain);
    contents.addLine("a", std::string(20000, 'x'), "3", Contents::plain);
    EXPECT_EQ(6U, contents.lineCount());
}

TEST(CommentTemplate, HasTheMarksAndSeparatorsOfTheFormat)
{
    Contents contents;
    contents.setPolicy(everything());
    readAll(contents, "[a]\n;l : 2\n\nk=1\n");
    contents.insertAtTemplates(true);
    contents.addLine("a", "l", "2", Contents::plain);
    EXPECT_EQ("[a];l : 2,l=2, k=1,", described(contents));
}

TEST(Cache, KeepsEmptyValuesIfTheFormatHasThem)
{
    for (bool const keeps : {false, true}) {
        Policy policy;
        policy.keepsEmpty = keeps;
        Contents contents;
        contents.setPolicy(policy);
        readAll(contents, "[a]\nk=1\nk=\nk=2\nalone\nempty=\n");
        EXPECT_EQ(keeps ? "[a]k=1==2,alone,empty=," : "[a]k=1=2,alone,empty,", described(contents));
        contents.set("a", "k", "", Contents::plain);
        contents.add("a", "k", "", Contents::plain);
        contents.set("a", "empty", {}, Contents::plain);
        EXPECT_EQ(keeps ? "[a]k==,alone,empty," : "[a]k,alone,empty,", described(contents));
        Contents const copy(contents);
        EXPECT_EQ(described(contents), described(copy));
    }
}

TEST(Cache, RepeatedHeaderContinuesItsStanza)
{
    Contents contents;
    contents.setPolicy(everything());
    readAll(contents, "[a]\nk=1\n\n# b\n[b]\nx=1\n[a]\nl=2\n# m\nm=3\n[B]\ny=2\n[a]\nn=4\n");
    EXPECT_EQ("[a]k=1,l=2,# m,m=3,n=4, # b,[b]x=1,y=2,", described(contents));
    EXPECT_EQ("# b", textOf(contents, contents.stanzaComment(contents.liveCategory("b"))));
    EXPECT_EQ("# m", textOf(contents, contents.keyComment(contents.liveKey("a", "m"))));
    contents.addLine("a", "o", "5", Contents::plain);
    EXPECT_EQ("[a]k=1,l=2,# m,m=3,n=4,o=5, # b,[b]x=1,y=2,", described(contents));
    contents.deleteStanza("b");
    EXPECT_EQ("[a]k=1,l=2,# m,m=3,n=4,o=5, # b,", described(contents));
}

TEST(Cache, CommentAboveARepeatedHeaderIsNotOfTheNextKey)
{
    Contents contents;
    contents.setPolicy(everything());
    readAll(contents, "[a]\nk=1\n# again\n[a]\nl=2\n");
    EXPECT_EQ("", textOf(contents, contents.keyComment(contents.liveKey("a", "l"))));
    EXPECT_EQ("[a]k=1,# again,l=2,", described(contents));
}

TEST(Cache, KeysAboveTheFirstHeaderAreAStanza)
{
    Contents contents;
    contents.setPolicy(everything());
    readAll(contents, "# file\n\n# k\nk=1\n# a\n[a]\nl=2\n");
    EXPECT_EQ("# file,[.] # k,k=1,# a,[a]l=2,", described(contents));
    EXPECT_EQ("# file", textOf(contents, contents.fileComment()));
    EXPECT_EQ("# k", textOf(contents, contents.keyComment(contents.liveKey(".", "k"))));
    EXPECT_EQ("# a", textOf(contents, contents.stanzaComment(contents.liveCategory("a"))));
    contents.addLine(".", "m", "3", Contents::plain);
    EXPECT_EQ("# file,[.] # k,k=1,m=3,# a,[a]l=2,", described(contents));
}

TEST(Cache, NewKeyAboveTheFirstHeaderFollowsTheCommentOfTheFile)
{
    struct Case {
        char const* text;
        char const* expected;
    };
    Case const cases[] = {
        {"", "[.]k=1,"},
        {"# a\n[a]\nl=2\n", "[.]k=1,# a,[a]l=2,"},
        {"# file\n\n# a\n[a]\nl=2\n", "# file,[.]k=1, # a,[a]l=2,"},
        {"# file\n\n[a]\n", "# file,[.]k=1, [a]"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        Contents contents;
        contents.setPolicy(everything());
        readAll(contents, c.text);
        contents.addLine(".", "k", "1", Contents::plain);
        EXPECT_EQ(c.expected, described(contents));
        contents.addLine(".", "m", "2", Contents::plain);
        contents.deleteLine(".", "m");
        EXPECT_EQ(c.expected, described(contents));
        EXPECT_EQ(contents.liveCategory("."), contents.firstHeader());
    }
}

TEST(Cache, NamesAreFoundHoweverTheyAreSpelled)
{
    Policy policy = everything();
    policy.categories.foldsUpToDot = true;
    policy.keys.dropsBlanks = policy.keys.dashIsUnderscore = true;
    Contents contents;
    contents.setPolicy(policy);
    readAll(contents, "[Net.Wet]\nRead Only=1\n[net.Wet]\nmax-size=2\nreadONLY=3\n");
    EXPECT_EQ("[Net.Wet]Read Only=1=3,max-size=2,", described(contents));
    EXPECT_NE(0U, contents.liveKey("NET.Wet", "READ\tonly"));
    EXPECT_NE(0U, contents.liveKey("net.Wet", "MAX_SIZE"));
    EXPECT_EQ(0U, contents.liveCategory("net.wet"));
    contents.renameKey("net.Wet", "Max_Size", "Room Left");
    EXPECT_NE(0U, contents.liveKey("net.Wet", "roomleft"));
    EXPECT_EQ(0U, contents.liveKey("net.Wet", "max-size"));
    contents.renameCategory("NET.Wet", "Dry");
    EXPECT_EQ("[Dry]Read Only=1=3,Room Left=2,", described(contents));
    contents.deleteLine("dry", "read only");
    contents.deleteStanza("DRY");
    EXPECT_EQ("", described(contents));
    std::string const longName(1000, 'K');
    contents.addLine("x", longName, "1", Contents::plain);
    EXPECT_NE(0U, contents.liveKey("X", std::string(1000, 'k').c_str()));
    EXPECT_EQ(0U, contents.liveKey("X", std::string(999, 'k').c_str()));
}

TEST(Cache, ReadThatIsNotFinishedLeavesNothing)
{
    Contents contents;
    contents.setPolicy(everything());
    {
        Reader reader(contents);
        read(reader, "# file\n\nk=1\n[a]\nl=1\n# b\n[b]\nm=1\n[a]\nn=1\n# end\n");
        reader.flush();
    }
    EXPECT_EQ("", described(contents));
    EXPECT_EQ(0U, contents.lineCount());
    EXPECT_EQ(0U, contents.categoryCount());
    readAll(contents, "k=1\n[a]\nl=1\n");
    EXPECT_EQ("[.]k=1,[a]l=1,", described(contents));
}
