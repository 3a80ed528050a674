// The merge of two changes of a configuration.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <random>
#include <set>

#include "CampaignSize.h"
#include "FleetFile.h"
#include "ModelCluster.h"
#include "StoreChecks.h"
#include "configuration/merge.h"
#include "configuration/parsing.h"

using namespace zfleet;

namespace {

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";

std::unique_ptr<ZSCFData_6_0> parse(Contents const& contents)
{
    ZSCFData_6_0 prototype;
    prototype.setAttributes(ZPCache_6_0::keepComments, nullptr);
    return parseContents("test", contents, prototype);
}

Merged mergeAll(Contents const& base, Contents const& mine, Contents const& theirs,
                ConflictPolicy policy)
{
    ZSCFData_6_0 prototype;
    prototype.setAttributes(ZPCache_6_0::keepComments, nullptr);
    return merge("test", base, mine, theirs, policy, prototype);
}

// Merges contents without obfuscated values. Returns the text, with the conflicts in brackets.
std::string mergeTexts(char const* base, char const* mine, char const* theirs,
                       ConflictPolicy policy = ConflictPolicy::refuse)
{
    Merged const merged = mergeAll({base, ""}, {mine, ""}, {theirs, ""}, policy);
    EXPECT_TRUE(merged.isComplete);
    std::string result = merged.contents.text;
    for (Conflict const& conflict : merged.conflicts)
        result += "(" + conflict.stanza + "/" + conflict.key + ")";
    return result;
}

// ---- A model: the values of each key are one string, and a stanza is its set of keys. -----------

using Model = std::map<std::string, std::map<std::string, std::string>>;

std::string const* lookUp(Model const& model, std::string const& stanza, std::string const& key)
{
    auto const found = model.find(stanza);
    if (found == model.end() || found->second.count(key) == 0)
        return nullptr;
    return &found->second.at(key);
}

bool areEqual(std::string const* one, std::string const* other)
{
    return one == nullptr || other == nullptr ? one == other : *one == *other;
}

Model mergeModels(Model const& b, Model const& m, Model const& t, std::set<std::string>& conflicts)
{
    Model result = t;
    for (char const* const s : {"a", "b", "c"}) {
        bool const wasRemoved = b.count(s) != 0 && m.count(s) != t.count(s);
        if (wasRemoved && (m.count(s) != 0 ? m : t).at(s) != b.at(s))
            conflicts.insert(s);
        if (wasRemoved || (m.count(s) == 0 && t.count(s) == 0 && b.count(s) == 0)) {
            if (conflicts.count(s) == 0)
                result.erase(s);
            continue;
        }
        if (m.count(s) != 0)
            result[s];
        for (char const* const k : {"x", "y", "z"}) {
            auto const* const mine = lookUp(m, s, k);
            if (areEqual(lookUp(b, s, k), mine))
                continue;
            if (!areEqual(lookUp(b, s, k), lookUp(t, s, k)))
                conflicts.insert(std::string(s) + "/" + k);
            else if (mine != nullptr)
                result[s][k] = *mine;
            else
                result[s].erase(k);
        }
    }
    return result;
}

// A random change of a stanza or a key. "|" separates values, "?" starts an obfuscated one.
void change(Model& model, std::minstd_rand& random)
{
    static char const* const values[] = {"1", "2", "1|2", "2|1", "1|1", "", "?s", "?t", "?s|?t"};
    std::string const stanza(1, "abc"[random() % 3]);
    std::string const key(1, "xyz"[random() % 3]);
    switch (random() % 6) {
        case 0:
            model.erase(stanza);
            break;
        case 1:
            if (model.count(stanza) != 0)
                model[stanza].erase(key);
            break;
        case 2:
            model[stanza];
            break;
        default:
            model[stanza][key] = values[random() % std::size(values)];
    }
}

Contents contentsOf(Model const& model)
{
    ZSCFData_6_0 cache;
    for (auto const& [stanza, keys] : model) {
        cache.addStanzaLine(stanza.c_str());
        for (auto const& [key, joined] : keys) {
            if (joined.empty())
                cache.addLine(stanza.c_str(), key.c_str(), 0);
            for (size_t at = 0; !joined.empty() && at != joined.npos;) {
                size_t const end = joined.find('|', at);
                std::string value = joined.substr(at, end - at);
                bool const isFirst = at == 0;
                at = end == joined.npos ? end : end + 1;
                int const obfuscated = value[0] == '?' ? 1 : 0;
                if (isFirst)
                    cache.addLine(stanza.c_str(), key.c_str(), value.c_str(), obfuscated);
                else
                    cache.add(stanza.c_str(), key.c_str(), value.c_str(), obfuscated);
            }
        }
    }
    return formatContents(cache);
}

Model modelOf(Contents const& contents)
{
    Model model;
    for (auto const& [stanza, keys] : valuesOf(*parse(contents))) {
        auto& found = model[stanza];
        for (auto const& [key, values] : keys) {
            std::string joined;
            for (auto const* const list : {&values.plain, &values.obfuscated})
                for (std::string const& value : *list)
                    joined += (joined.empty() ? "" : "|") + value;
            found[key] = joined;
        }
    }
    return model;
}

}  // namespace

TEST(FleetMerge, ChangesOfBothSidesAreKept)
{
    EXPECT_EQ("# top\n[a]\nx=9\ny = 2\n[b]\nz = 3\n",
              mergeTexts("# top\n[a]\nx=1\ny = 1\n", "# top\n[a]\nx = 1\ny = 2\n",
                         "# top\n[a]\nx=9\ny = 1\n[b]\nz = 3\n"));
}

TEST(FleetMerge, CommentsOfBothSidesAreKept)
{
    EXPECT_EQ("[a]\n# mine\n# other\nx = 2\n# added\ny = 1\n",
              mergeTexts("[a]\nx = 1\ny = 1\n", "[a]\n# mine\nx = 1\n# added\ny = 1\n",
                         "[a]\n# other\nx = 2\ny = 1\n"));
}

TEST(FleetMerge, ConflictsAreExact)
{
    struct Case {
        char const* name;
        char const* mine;
        char const* theirs;
        char const* refused;
        char const* mineWins;
    };
    char const* const base = "[a]\nx = 1\ny = 1\n[b]\nz = 1\n";
    Case const cases[] = {
        {"different values", "[a]\nx = 2\ny = 1\n[b]\nz = 1\n", "[a]\nx = 3\ny = 1\n[b]\nz = 1\n",
         "[a]\nx = 3\ny = 1\n[b]\nz = 1\n(a/x)", "[a]\nx = 2\ny = 1\n[b]\nz = 1\n(a/x)"},
        {"equal values", "[a]\nx = 2\ny = 1\n[b]\nz = 1\n", "[a]\nx = 2\ny = 1\n[b]\nz = 1\n",
         "[a]\nx = 2\ny = 1\n[b]\nz = 1\n(a/x)", "[a]\nx = 2\ny = 1\n[b]\nz = 1\n(a/x)"},
        {"removed and changed", "[a]\ny = 1\n[b]\nz = 1\n", "[a]\nx = 3\ny = 1\n[b]\nz = 1\n",
         "[a]\nx = 3\ny = 1\n[b]\nz = 1\n(a/x)", "[a]\ny = 1\n[b]\nz = 1\n(a/x)"},
        {"both removed", "[a]\ny = 1\n[b]\nz = 1\n", "[a]\ny = 1\n[b]\nz = 1\n",
         "[a]\ny = 1\n[b]\nz = 1\n(a/x)", "[a]\ny = 1\n[b]\nz = 1\n(a/x)"},
        {"stanza removed and extended", "[b]\nz = 1\n", "[a]\nx = 1\ny = 1\nn = 1\n[b]\nz = 1\n",
         "[a]\nx = 1\ny = 1\nn = 1\n[b]\nz = 1\n(a/)", "[b]\nz = 1\n(a/)"},
        {"stanza removed", "[a]\nx = 1\ny = 2\n", "[a]\nx = 1\ny = 1\n[b]\nz = 1\n",
         "[a]\nx = 1\ny = 2\n", "[a]\nx = 1\ny = 2\n"},
        {"list and value", "[a]\nx = 1\nx = 2\ny = 1\n[b]\nz = 1\n",
         "[a]\nx = 0\nx = 1\ny = 1\n[b]\nz = 1\n", "[a]\nx = 0\nx = 1\ny = 1\n[b]\nz = 1\n(a/x)",
         "[a]\nx = 1\nx = 2\ny = 1\n[b]\nz = 1\n(a/x)"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.refused, mergeTexts(base, c.mine, c.theirs));
        EXPECT_EQ(c.refused, mergeTexts(base, c.mine, c.theirs, ConflictPolicy::theirsWins));
        EXPECT_EQ(c.mineWins, mergeTexts(base, c.mine, c.theirs, ConflictPolicy::mineWins));
    }
}

TEST(FleetMerge, RandomChangesMatchTheModel)
{
    unsigned const pairs = scaled(1'000'000, 3000);
    std::minstd_rand random(20261123);
    for (unsigned pair = 0; pair < pairs && !testing::Test::HasFailure(); ++pair) {
        SCOPED_TRACE(pair);
        Model base;
        for (int i = 0; i < 6; ++i)
            change(base, random);
        Model mine = base;
        Model theirs = base;
        for (Model* const side : {&mine, &theirs})
            for (unsigned i = random() % 4; i > 0; --i)
                change(*side, random);
        Contents const b = contentsOf(base);
        Contents const m = contentsOf(mine);
        Contents const t = contentsOf(theirs);
        std::set<std::string> conflicts;
        Model const expected = mergeModels(base, mine, theirs, conflicts);
        Merged const merged = mergeAll(b, m, t, ConflictPolicy::theirsWins);
        EXPECT_TRUE(merged.isComplete);
        EXPECT_EQ(expected, modelOf(merged.contents)) << "base:\n"
                                                      << b.text << "mine:\n"
                                                      << m.text << "theirs:\n"
                                                      << t.text;
        std::set<std::string> found;
        for (Conflict const& conflict : merged.conflicts)
            found.insert(conflict.stanza + (conflict.key.empty() ? "" : "/") + conflict.key);
        EXPECT_EQ(conflicts, found);
        EXPECT_EQ(mine, modelOf(mergeAll(b, m, b, ConflictPolicy::refuse).contents));
        EXPECT_EQ(t, mergeAll(b, b, t, ConflictPolicy::refuse).contents);
    }
    printf("%u pairs of changes\n", pairs);
}

namespace {

class FleetMergeOfStores : public testing::Test {
protected:
    FleetMergeOfStores() { cluster_.put(kText, "# top\n[s]\nx = 1\ny = 1\n"); }

    static std::string conflictsOf(ZFleetProperties_6_0 const& store)
    {
        ZArrayList_6_0 list(4, 1);
        store.conflicts(list);
        std::string all;
        for (unsigned i = 0; i < list.size(); ++i) {
            auto const* const conflict = static_cast<ZFleetConflict_6_0 const*>(list.get(i));
            all += std::string(conflict->stanza().getChars()) + "/" + conflict->key().getChars();
        }
        return all;
    }

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 60\n"};
};

}  // namespace

TEST_F(FleetMergeOfStores, LostRaceIsMergedAndTakenOver)
{
    ZFleetProperties_6_0 first(kPath, 1);
    ZFleetProperties_6_0 second(kPath, 1);
    first.setValue("s", "x", "2");
    first.setValue("t", "k", "secret", 1);
    first.store(nullptr);
    second.setValue("s", "y", "3");
    NoticeRecorder recorder;
    second.addObserver(&recorder);
    second.store(nullptr);
    second.deleteObserver(&recorder);
    EXPECT_EQ("12s/x 10t/ 12t/k ", recorder.seen);
    EXPECT_EQ("# top\n[s]\nx = 2\ny = 3\n\n[t]\n", cluster_.get(kText));
    EXPECT_EQ("2", value(second, "x"));
    EXPECT_EQ(1, second.isObfuscated("t", "k"));
    EXPECT_EQ(0, second.isModified());
    EXPECT_EQ(2u, second.generation());
    // Its next change derives from the merged contents.
    second.setValue("s", "x", "4");
    second.store(nullptr);
    EXPECT_EQ("# top\n[s]\nx = 4\ny = 3\n\n[t]\n", cluster_.get(kText));
}

TEST_F(FleetMergeOfStores, ConflictIsReportedAndChangesNothing)
{
    ZFleetProperties_6_0 store(kPath, 1);
    cluster_.put(kText, "[s]\nx = 2\ny = 2\n");
    store.setValue("s", "x", "2");
    store.addValue("s", "y", "4", 0);
    try {
        store.store(nullptr);
        FAIL() << "nothing was thrown";
    } catch (ZFleetConflictException_6_0 const& e) {
        EXPECT_EQ(ESTALE, e.excerrno());
        EXPECT_STREQ("merge()", e.api().getChars());
        ASSERT_EQ(2u, e.count());
        EXPECT_STREQ("s", e.at(0).stanza().getChars());
        EXPECT_STREQ("y", e.at(1).key().getChars());
        EXPECT_THROW(e.at(2), ZInvalidParameterException_6_0);
    }
    EXPECT_EQ("s/xs/y", conflictsOf(store));
    EXPECT_EQ(1, store.isModified());
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ("[s]\nx = 2\ny = 2\n", cluster_.get(kText));
    // A second attempt is refused for the same reason.
    EXPECT_THROW(store.store(nullptr), ZFleetConflictException_6_0);
    store.reload(nullptr);
    EXPECT_EQ("", conflictsOf(store));
}

TEST_F(FleetMergeOfStores, PolicyDecidesConflicts)
{
    for (auto const& [policy, expected] : {std::pair(ZFleetProperties_6_0::mineWins, "5"),
                                           {ZFleetProperties_6_0::theirsWins, "6"}}) {
        SCOPED_TRACE(expected);
        cluster_.put(kText, "[s]\nx = 1\ny = 1\n");
        ZFleetProperties_6_0 store(kPath, 1);
        store.setConflictPolicy(policy);
        store.setValue("s", "x", "5");
        cluster_.put(kText, "[s]\nx = 6\ny = 7\n");
        store.store(nullptr);
        EXPECT_EQ(expected, value(store, "x"));
        EXPECT_EQ("7", value(store, "y"));
        EXPECT_EQ(std::string("[s]\nx = ") + expected + "\ny = 7\n", cluster_.get(kText));
    }
    ZFleetProperties_6_0 store(1);
    EXPECT_THROW(store.setConflictPolicy(static_cast<ZFleetProperties_6_0::ConflictPolicy>(3)),
                 ZInvalidParameterException_6_0);
}

TEST_F(FleetMergeOfStores, WithoutMergesEachLostRaceIsRefused)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setMerge(0);
    store.setValue("s", "x", "5");
    cluster_.put(kText, "[s]\nx = 1\ny = 7\n");
    EXPECT_THROW(store.store(nullptr), ZPropertiesIOException_6_0);
    EXPECT_EQ("", conflictsOf(store));
    store.setMerge(1);
    store.store(nullptr);
    EXPECT_EQ("[s]\nx = 5\ny = 7\n", cluster_.get(kText));
}

TEST_F(FleetMergeOfStores, RemovedConfigurationIsNotCreatedAgain)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("s", "x", "5");
    cluster_.put(kText, "");
    EXPECT_THROW(store.store(nullptr), ZPropertiesIOException_6_0);
    EXPECT_EQ("(missing)", cluster_.get(kText));
}

// The merged contents are stored, and the reply is lost.
TEST_F(FleetMergeOfStores, MergeWithAnUnknownOutcomeIsFound)
{
    for (bool const isChanged : {false, true}) {
        SCOPED_TRACE(isChanged);
        cluster_.put(kText, "[s]\nx = 1\ny = 1\n");
        FleetFile const file(FleetFile::textFor({cluster_.address()}) + "budget = 1\ncall = 300\n");
        ZFleetProperties_6_0 store(kPath, 1);
        store.setValue("s", "x", "5");
        cluster_.put(kText, "[s]\nx = 1\ny = 7\n");
        std::deque<ModelCluster::Fate> fates(200, ModelCluster::Fate::requestLost);
        fates[0] = ModelCluster::Fate::executed;  // it loses the race
        fates[1] = ModelCluster::Fate::delayed;
        cluster_.setFates(fates);
        EXPECT_THROW(store.store(nullptr), ZPropertiesIOException_6_0);
        EXPECT_EQ("1", value(store, "y"));
        cluster_.setFates({});
        cluster_.deliver();
        EXPECT_EQ("[s]\nx = 5\ny = 7\n", cluster_.get(kText));
        if (isChanged)
            store.setValue("s", "x", "6");
        store.store(nullptr);
        EXPECT_EQ(isChanged ? "[s]\nx = 6\ny = 7\n" : "[s]\nx = 5\ny = 7\n", cluster_.get(kText));
        EXPECT_EQ("7", value(store, "y"));
    }
}
