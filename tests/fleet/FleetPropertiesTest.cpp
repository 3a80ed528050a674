// ZFleetProperties with a model of a cluster.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <memory>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "StoreChecks.h"
#include "configuration/metadata.h"
#include "configuration/path.h"

namespace {

using Fate = ModelCluster::Fate;

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";
constexpr char kHidden[] = "/zfleet/6/cfg/gateway/hidden";
constexpr char kMeta[] = "/zfleet/6/cfg/gateway/meta";
constexpr char kLog[] = "/zfleet/6/cfg/gateway/log/";

class FleetProperties : public testing::Test {
protected:
    FleetProperties() { putText("# top\n[listener]\nport = 1\n"); }

    void putText(std::string const& text) { cluster_.put(kText, text); }

    zfleet::Metadata metadata() const { return zfleet::parseMetadata(cluster_.get(kMeta)); }

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "keep = 3\nbudget = 60\n"};
};

}  // namespace

TEST_F(FleetProperties, LoadReadsTheConfiguration)
{
    ZFleetProperties_6_0 store(1);
    store.setValue("old", "key", "value");
    store.load(kPath);
    EXPECT_EQ("1", value(store, "listener", "port"));
    EXPECT_EQ(0, store.exists("old"));
    EXPECT_STREQ(kPath, store.fileName().getChars());
    EXPECT_EQ(0, store.isModified());
    EXPECT_EQ(0u, store.generation());
    EXPECT_EQ(2, store.revision());
}

TEST_F(FleetProperties, StoreKeepsCommentsAndWritesMetadataAndLog)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    store.setReason("two\nlines");
    store.store(nullptr);
    EXPECT_EQ("# top\n[listener]\nport = 2\n", cluster_.get(kText));
    EXPECT_EQ("(missing)", cluster_.get(kHidden));
    EXPECT_EQ(0, store.isModified());
    EXPECT_EQ(1u, store.generation());
    zfleet::Metadata const metadata = this->metadata();
    EXPECT_EQ(1u, metadata.generation);
    EXPECT_EQ(2, metadata.base);
    EXPECT_EQ(32u, metadata.id.size());
    EXPECT_EQ("two lines", metadata.reason);
    EXPECT_NE("", metadata.host);
    EXPECT_NE("", metadata.user);
    zfleet::LogEntry entry;
    ASSERT_TRUE(parseLogEntry(cluster_.get(std::string(kLog) + "0000000000000001"), entry));
    EXPECT_EQ(cluster_.get(kText), entry.text);
    EXPECT_EQ("", entry.hidden);
    EXPECT_EQ(metadata.id, entry.metadata.id);
}

TEST_F(FleetProperties, LogHasTheLastGenerations)
{
    ZFleetProperties_6_0 store(kPath, 1);
    for (unsigned i = 1; i <= 20; ++i) {
        store.setIntegerValue("listener", "port", i);
        store.store(nullptr);
        EXPECT_EQ(i, store.generation());
        EXPECT_EQ(std::min(i, 3u), cluster_.keys(kLog).size());
    }
    EXPECT_EQ(std::string(kLog) + "0000000000000012", cluster_.keys(kLog).at(0));
    EXPECT_EQ(std::string(kLog) + "0000000000000014", cluster_.keys(kLog).at(2));
}

TEST_F(FleetProperties, ObfuscatedValuesAreNotInTheText)
{
    {
        ZFleetProperties_6_0 store(kPath, 1);
        store.setValue("listener", "password", "secret", 1);
        store.store(nullptr);
    }
    EXPECT_EQ(std::string::npos, cluster_.get(kText).find("secret"));
    EXPECT_NE("(missing)", cluster_.get(kHidden));
    ZFleetProperties_6_0 store(kPath, 1);
    EXPECT_EQ("secret", value(store, "listener", "password"));
    EXPECT_EQ(1, store.isObfuscated("listener", "password"));
    store.deleteKey("listener", "password");
    store.store(nullptr);
    EXPECT_EQ("(missing)", cluster_.get(kHidden));
}

TEST_F(FleetProperties, CompanionOfALocalFileIsNotNamedInTheCluster)
{
    std::string const local = file_.directory().at("local.conf");
    {
        ZFleetProperties_6_0 store(1);
        store.setValue("listener", "password", "secret", 1);
        store.store(local.c_str());
    }
    ZFleetProperties_6_0 store(local.c_str(), 1);
    EXPECT_EQ(0u, store.generation());
    store.store(kPath);
    EXPECT_EQ("\n[listener]\n\n", cluster_.get(kText));
    EXPECT_STREQ(local.c_str(), store.fileName().getChars());
    ZFleetProperties_6_0 other(kPath, 1);
    EXPECT_EQ("secret", value(other, "listener", "password"));
    other.store(file_.directory().at("copy.conf").c_str());
    EXPECT_EQ("secret", value(ZFleetProperties_6_0(file_.directory().at("copy.conf").c_str(), 1),
                              "listener", "password"));
}

TEST_F(FleetProperties, CompanionThatATextNamesIsIgnored)
{
    putText("[configuration-database]\nfile = /etc/passwd\n# about s\n[s]\nk = 1\n");
    ZFleetProperties_6_0 store(kPath, 1);
    EXPECT_EQ(0, store.exists("configuration-database", "file"));
    store.store(nullptr);
    EXPECT_EQ("[configuration-database]\n# about s\n[s]\nk = 1\n", cluster_.get(kText));
}

TEST_F(FleetProperties, TextThatDoesNotParseLeavesTheStoreUnchanged)
{
    ZFleetProperties_6_0 store(kPath, 1);
    putText("[listener\nport = 2\n");
    try {
        store.reload(nullptr);
        FAIL() << "nothing was thrown";
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        EXPECT_STREQ(kPath, e.propFile().getChars());
        EXPECT_EQ(1, e.badline());
    }
    EXPECT_EQ("1", value(store, "listener", "port"));
    EXPECT_THROW(store.store(nullptr), ZPropertiesInvalidDataException_6_0);
    EXPECT_EQ("[listener\nport = 2\n", cluster_.get(kText));

    // The reader of lines would end a line at a zero byte, and the next store would lose its end.
    std::string const zero("[listener]\nport = 3\0 4\n", 23);
    putText(zero);
    try {
        store.reload(nullptr);
        FAIL() << "nothing was thrown";
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        EXPECT_STREQ(kPath, e.propFile().getChars());
        EXPECT_EQ(2, e.badline());
        EXPECT_STREQ("port = 3", e.baddata().getChars());
    }
    EXPECT_EQ("1", value(store, "listener", "port"));
    EXPECT_THROW(store.store(nullptr), ZPropertiesInvalidDataException_6_0);
    EXPECT_EQ(zero, cluster_.get(kText));

    putText("[listener]\nport = 3\n");
    cluster_.put(kHidden, "damaged");
    EXPECT_THROW(store.reload(nullptr), ZPropertiesInvalidDataException_6_0);
    EXPECT_EQ("1", value(store, "listener", "port"));
    cluster_.put(kHidden, "");
    store.reload(nullptr);
    EXPECT_EQ("3", value(store, "listener", "port"));
}

TEST_F(FleetProperties, MissingConfigurationIsReportedAndCanBeCreated)
{
    ZFleetProperties_6_0 store(1);
    EXPECT_EQ(code("Txn", ENOENT), failure([&] { store.load("etcd://test/new"); }));
    EXPECT_TRUE(store.fileName().isEmpty());
    store.setValue("s", "k", "v");
    store.store("etcd://test/new");
    EXPECT_EQ("\n[s]\nk = v\n", cluster_.get("/zfleet/6/cfg/new/text"));
    EXPECT_STREQ("etcd://test/new", store.fileName().getChars());
    ZFleetProperties_6_0 late(1);
    cluster_.put("/zfleet/6/cfg/late/text", "");
    EXPECT_EQ(code("Txn", ENOENT), failure([&] { late.load("etcd://test/late"); }));
    store.store("etcd://test/late");
    late.setValue("s", "k", "other");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { late.store("etcd://test/late"); }));
    EXPECT_EQ(1u, store.generation());
}

TEST_F(FleetProperties, SecondOfTwoWritersIsRefused)
{
    ZFleetProperties_6_0 first(kPath, 1);
    ZFleetProperties_6_0 second(kPath, 1);
    first.setValue("listener", "port", "2");
    second.setValue("listener", "port", "2");
    first.store(nullptr);
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { second.store(nullptr); }));
    EXPECT_EQ(1, second.isModified());
    EXPECT_EQ(1u, metadata().generation);
    second.reload(nullptr);
    second.setValue("listener", "port", "3");
    second.store(nullptr);
    EXPECT_EQ(2u, metadata().generation);
}

TEST_F(FleetProperties, TextPutByHandIsNotOverwritten)
{
    ZFleetProperties_6_0 store(kPath, 1);
    putText("[listener]\nport = 9\n");
    store.setValue("listener", "port", "2");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    EXPECT_EQ("[listener]\nport = 9\n", cluster_.get(kText));
}

TEST_F(FleetProperties, CompanionPutByHandIsNotOverwritten)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "password", "before", 1);
    store.store(nullptr);
    putCompanionByHand(cluster_, "listener");
    std::string const hidden = cluster_.get(kHidden);
    store.setValue("listener", "port", "2");
    store.store(nullptr);
    EXPECT_EQ("by hand", value(store, "listener", "password"));
    EXPECT_EQ(hidden, cluster_.get(kHidden));
    EXPECT_EQ("# top\n[listener]\nport = 2\n", cluster_.get(kText));
    cluster_.put(kHidden, "");
    store.setValue("listener", "password", "mine", 1);
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    EXPECT_EQ("(missing)", cluster_.get(kHidden));
    EXPECT_EQ(1, store.isModified());
}

TEST_F(FleetProperties, CompanionWithoutATextPreventsNoCreation)
{
    cluster_.put("/zfleet/6/cfg/new/hidden", "left");
    ZFleetProperties_6_0 store(1);
    EXPECT_EQ(code("Txn", ENOENT), failure([&] { store.load("etcd://test/new"); }));
    store.setValue("s", "x", "1");
    store.store("etcd://test/new");
    EXPECT_EQ("(missing)", cluster_.get("/zfleet/6/cfg/new/hidden"));
}

TEST_F(FleetProperties, LostReplyOfAnExecutedStoreIsFound)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates({Fate::replyLost});
    store.store(nullptr);
    EXPECT_EQ(0, store.isModified());
    EXPECT_EQ(1u, metadata().generation);
    store.setValue("listener", "port", "3");
    store.store(nullptr);
    EXPECT_EQ(2u, metadata().generation);
}

TEST_F(FleetProperties, LostRequestsAreRepeated)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates({Fate::requestLost, Fate::requestLost, Fate::replyLost, Fate::requestLost});
    store.store(nullptr);
    EXPECT_EQ("# top\n[listener]\nport = 2\n", cluster_.get(kText));
    EXPECT_EQ(1u, metadata().generation);
}

TEST_F(FleetProperties, ExecutedStoreIsFoundInTheLogAfterLaterStores)
{
    for (unsigned const later : {1u, 2u}) {
        SCOPED_TRACE(later);
        ZFleetProperties_6_0 store(kPath, 1);
        store.setIntegerValue("listener", "port", 100 + later);
        cluster_.setFates({Fate::replyLost});
        cluster_.setInterlude([&] {
            // Another program stores.
            uint64_t const generation = metadata().generation;
            for (unsigned i = 1; i <= later; ++i) {
                putText("[listener]\nport = " + std::to_string(i) + "\n");
                cluster_.put(kMeta, format(zfleet::makeMetadata(generation + i, 0, "")));
            }
        });
        store.store(nullptr);
        EXPECT_EQ(0, store.isModified());
        EXPECT_EQ("[listener]\nport = " + std::to_string(later) + "\n", cluster_.get(kText));
        // The store has its own contents, which the other program has replaced.
        EXPECT_EQ(std::to_string(100 + later), value(store, "listener", "port"));
        store.setValue("listener", "port", "7");
        EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    }
}

TEST_F(FleetProperties, OvertakenStoreWithALostRequestIsNotTakenForStored)
{
    ZFleetProperties_6_0 store(kPath, 1);
    ZFleetProperties_6_0 other(kPath, 1);
    store.setValue("listener", "port", "2");
    other.setValue("listener", "port", "3");
    other.store(nullptr);
    cluster_.setFates({Fate::requestLost});
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(1, store.isModified());
    EXPECT_EQ("# top\n[listener]\nport = 3\n", cluster_.get(kText));
}

TEST_F(FleetProperties, ExecutedStoreIsFoundInTheRevisionsWithoutALog)
{
    for (bool const isCompacted : {false, true}) {
        SCOPED_TRACE(isCompacted);
        ZFleetProperties_6_0 store(kPath, 1);
        store.setIntegerValue("listener", "port", isCompacted ? 20 : 10);
        cluster_.setFates({Fate::replyLost});
        cluster_.setInterlude([&] {
            for (int i = 0; i < 4; ++i) {
                putText("[listener]\nport = 5\n");
                cluster_.put(kMeta, format(zfleet::makeMetadata(90, 0, "")));
            }
            for (std::string const& key : cluster_.keys(kLog))
                cluster_.put(key, "");
            if (isCompacted)
                cluster_.compact();
        });
        EXPECT_EQ(isCompacted ? code("Txn", EINPROGRESS) : "none",
                  failure([&] { store.store(nullptr); }));
        EXPECT_EQ(isCompacted ? 1 : 0, store.isModified());
    }
}

TEST_F(FleetProperties, HistoryThatDoesNotEndIsRefused)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates({Fate::requestLost});
    cluster_.setPrelude([&] {
        cluster_.put(kText, "[listener]\nport = 1\nhost = a\n");
        cluster_.put(kMeta, "generation 9\nid other\n");
    });
    // A read of an earlier revision gets the latest metadata.
    unsigned reads = 0;
    cluster_.setFault([&](auto const& request, auto const& execute) {
        zfleet::wire::TxnRequest form;
        if (request.method != "Txn" || !form.ParseFromString(request.bytes) ||
            form.success_size() == 0 || form.success(0).range().revision() == 0)
            return execute(request);
        if (++reads == 100)  // without the mend, the store would not end
            return ModelCluster::Reply{7, "refused"};
        for (auto& operation : *form.mutable_success())
            operation.mutable_range()->set_revision(0);
        return execute({request.method, form.SerializeAsString(), {}, {}});
    });
    EXPECT_EQ(code("Txn", EINPROGRESS), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(1u, reads);
    EXPECT_EQ(1, store.isModified());
}

TEST_F(FleetProperties, StoreWithAnUnknownOutcomeIsFoundByTheNextStore)
{
    FleetFile const impatient(FleetFile::textFor({cluster_.address()}) +
                              "budget = 1\ncall = 300\n");
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates(std::deque<Fate>(100, Fate::requestLost));
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(1, store.isModified());
    cluster_.setFates(std::deque<Fate>(1000, Fate::noReply));
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.store(nullptr); }));
    EXPECT_EQ("# top\n[listener]\nport = 2\n", cluster_.get(kText));
    cluster_.setFates({});
    store.setValue("listener", "port", "3");
    store.store(nullptr);
    EXPECT_EQ("# top\n[listener]\nport = 3\n", cluster_.get(kText));
    EXPECT_EQ(2u, metadata().generation);
}

TEST_F(FleetProperties, FullDatabaseChangesNothing)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates({Fate::refused});
    EXPECT_EQ(code("Txn", ENOSPC), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(1, store.isModified());
    cluster_.setFates({Fate::replyLost, Fate::refused});
    EXPECT_EQ(code("Txn", EINPROGRESS), failure([&] { store.store(nullptr); }));
    store.store(nullptr);
    EXPECT_EQ("# top\n[listener]\nport = 2\n", cluster_.get(kText));
}

TEST_F(FleetProperties, CopyKeepsTheGuardOfTheFirstConfiguration)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.store("etcd://test/copy");
    putText("[listener]\nport = 9\n");
    store.setValue("listener", "port", "2");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    EXPECT_EQ("[listener]\nport = 9\n", cluster_.get(kText));
    cluster_.put("/zfleet/6/cfg/copy/text", "[listener]\nport = 8\n");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store("etcd://test/copy"); }));
}

TEST_F(FleetProperties, LoadThatFindsNothingGuardsTheCreation)
{
    ZFleetProperties_6_0 store(kPath, 1);
    EXPECT_EQ(code("Txn", ENOENT), failure([&] { store.load("etcd://test/new"); }));
    EXPECT_EQ(2, store.revision());
    cluster_.put("/zfleet/6/cfg/new/text", "[listener]\nport = 9\n");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store("etcd://test/new"); }));
    EXPECT_EQ("[listener]\nport = 9\n", cluster_.get("/zfleet/6/cfg/new/text"));
    // The first configuration keeps its own guard.
    store.setValue("listener", "port", "2");
    store.store(nullptr);
    EXPECT_EQ("# top\n[listener]\nport = 2\n", cluster_.get(kText));
}

TEST_F(FleetProperties, TextPutByHandIsNotTakenForAStoreWithALostReply)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates({Fate::replyLost});
    cluster_.setInterlude([&] { putText("[listener]\nport = 9\n"); });
    store.store(nullptr);
    store.setValue("listener", "port", "3");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    EXPECT_EQ("[listener]\nport = 9\n", cluster_.get(kText));
}

TEST_F(FleetProperties, TextPutByHandIsNotTakenForAnEarlierStore)
{
    FleetFile const impatient(FleetFile::textFor({cluster_.address()}) +
                              "budget = 1\ncall = 300\n");
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates(std::deque<Fate>(1000, Fate::noReply));
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.store(nullptr); }));
    cluster_.setFates({});
    putText("[listener]\nport = 9\n");
    store.setValue("listener", "port", "3");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    EXPECT_EQ("[listener]\nport = 9\n", cluster_.get(kText));
}

TEST_F(FleetProperties, EarliestOfSeveralUnknownStoresIsFound)
{
    FleetFile const impatient(FleetFile::textFor({cluster_.address()}) +
                              "budget = 1\ncall = 300\n");
    ZFleetProperties_6_0 store(kPath, 1);
    std::deque<Fate> fates(100, Fate::requestLost);
    fates.front() = Fate::delayed;
    cluster_.setFates(fates);
    store.setValue("listener", "port", "2");
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.store(nullptr); }));
    cluster_.setFates(std::deque<Fate>(100, Fate::requestLost));
    store.setValue("listener", "port", "3");
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.store(nullptr); }));
    cluster_.setFates({});
    cluster_.deliver();
    EXPECT_EQ("# top\n[listener]\nport = 2\n", cluster_.get(kText));
    store.store(nullptr);
    EXPECT_EQ("# top\n[listener]\nport = 3\n", cluster_.get(kText));
    EXPECT_EQ(2u, metadata().generation);
}

TEST_F(FleetProperties, RepeatedStoreOfTheSameContentsHasOneId)
{
    FleetFile const impatient(FleetFile::textFor({cluster_.address()}) +
                              "budget = 1\ncall = 300\n");
    ZFleetProperties_6_0 store(kPath, 1);
    std::deque<Fate> fates(100, Fate::requestLost);
    fates.front() = Fate::delayed;
    cluster_.setFates(fates);
    store.setValue("listener", "port", "2");
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.store(nullptr); }));
    cluster_.setFates({});
    cluster_.deliver();
    store.store(nullptr);
    EXPECT_EQ(1u, metadata().generation);
    EXPECT_EQ(1u, store.generation());
}

TEST_F(FleetProperties, DoubtLastsUntilTheLookUpSucceeds)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    cluster_.setFates({Fate::replyLost});
    cluster_.setInterlude([&] {
        putText("[listener]\nport = 2\nhost = a\n");
        cluster_.put(kMeta, format(zfleet::makeMetadata(2, 0, "")));
    });
    cluster_.refuseReads(7);
    EXPECT_EQ(code("Range", EINPROGRESS), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(1, store.isModified());
    EXPECT_EQ(code("Range", EINPROGRESS), failure([&] { store.store(nullptr); }));
    cluster_.refuseReads(0);
    // Its own store is found, and the other program's after it.
    store.setValue("listener", "port", "3");
    store.store(nullptr);
    EXPECT_EQ("[listener]\nport = 3\nhost = a\n", cluster_.get(kText));
    EXPECT_EQ("a", value(store, "listener", "host"));
}

TEST_F(FleetProperties, AnotherClusterIsRefused)
{
    struct Case {
        char const* name;
        uint64_t id;
        int64_t revision;
    };
    for (Case const& c : {Case{"another id", 2, 0}, Case{"an earlier revision", 1, 3}}) {
        SCOPED_TRACE(c.name);
        ModelCluster cluster;
        FleetFile const file(FleetFile::textFor({cluster.address()}) + "budget = 60\n");
        cluster.put(kText, "[listener]\nport = 1\n");
        ZFleetProperties_6_0 store(kPath, 1);
        for (char const* const port : {"2", "3"}) {
            store.setValue("listener", "port", port);
            store.store(nullptr);
        }
        cluster.becomeAnother(c.id, c.revision);
        store.setValue("listener", "port", "4");
        EXPECT_EQ(code("Txn", EREMCHG), failure([&] { store.reload(nullptr); }));
        EXPECT_EQ(code("Txn", EREMCHG), failure([&] { store.load(nullptr); }));
        EXPECT_EQ(code("Txn", EREMCHG), failure([&] { store.store(nullptr); }));
        EXPECT_EQ("4", value(store, "listener", "port"));
        EXPECT_EQ(1, store.isModified());
    }
}

TEST_F(FleetProperties, EqualRevisionOfOtherContentsIsNoGuard)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("listener", "port", "2");
    store.store(nullptr);
    cluster_.replace(kText, "[listener]\nport = 9\n");
    cluster_.replace(kMeta, format(zfleet::makeMetadata(1, 0, "")));
    store.setValue("listener", "port", "3");
    EXPECT_EQ(code("merge()", ESTALE), failure([&] { store.store(nullptr); }));
    EXPECT_EQ("[listener]\nport = 9\n", cluster_.get(kText));
}

TEST_F(FleetProperties, SizeIsLimitedBeforeAnythingIsSent)
{
    ZFleetProperties_6_0 store(kPath, 1);
    std::string const line(1000, 'x');
    for (int i = 0; i < 1060; ++i)
        store.setValue("large", std::to_string(i).c_str(), line.c_str());
    size_t const sent = cluster_.server().requests().size();
    EXPECT_EQ(code("write()", EFBIG), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(sent, cluster_.server().requests().size());
    EXPECT_EQ(1, store.isModified());
    for (int i = 1000; i < 1060; ++i)
        store.deleteKey("large", std::to_string(i).c_str());
    store.store(nullptr);
    EXPECT_EQ(0, store.isModified());
}

TEST_F(FleetProperties, OneMebibyteIsStoredAndOneByteMoreIsNot)
{
    constexpr size_t kMax = size_t{1} << 20;
    ZFleetProperties_6_0 store(1);
    store.setValue("s", "last", "x");
    for (int i = 0; i < 132; ++i)
        store.setValue("s", std::to_string(i).c_str(), std::string(7900, 'x').c_str());
    store.store("etcd://test/large");
    char const* const text = "/zfleet/6/cfg/large/text";
    size_t const missing = kMax - cluster_.get(text).size();
    store.setValue("s", "last", std::string(missing + 1, 'x').c_str());
    store.store(nullptr);
    EXPECT_EQ(kMax, cluster_.get(text).size());
    store.setValue("s", "last", std::string(missing + 2, 'x').c_str());
    EXPECT_EQ(code("write()", EFBIG), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(kMax, cluster_.get(text).size());
    EXPECT_EQ(1, store.isModified());
    ZFleetProperties_6_0 const reader("etcd://test/large", 1);
    EXPECT_EQ(std::string(missing + 1, 'x'), value(reader, "s", "last"));
}

TEST_F(FleetProperties, InvalidPathsAreRefused)
{
    ZFleetProperties_6_0 store(1);
    for (char const* const path :
         {"etcd://", "etcd://test", "etcd://test/", "etcd:///name", "etcd://test/a/b",
          "etcd://test/..", "etcd://test/.", "etcd://../name", "etcd://test/a b", "etcd://test/a\n",
          "etcd://test/\x7f"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(code("etcd://", EINVAL), failure([&] { store.load(path); }));
        EXPECT_EQ(code("etcd://", EINVAL), failure([&] { store.store(path); }));
    }
    std::string const name(256, 'x');
    EXPECT_EQ(code("etcd://", EINVAL),
              failure([&] { store.load(("etcd://test/" + name).c_str()); }));
    EXPECT_EQ(code("Txn", ENOENT),
              failure([&] { store.load(("etcd://test/" + name.substr(1)).c_str()); }));
    EXPECT_THROW(store.load(nullptr), ZInvalidParameterException_6_0);
    EXPECT_THROW(store.store(""), ZInvalidParameterException_6_0);
    EXPECT_EQ(1, ZFleetProperties_6_0::isFleetPath("etcd://x"));
    EXPECT_EQ(0, ZFleetProperties_6_0::isFleetPath("/etc/x"));
    EXPECT_EQ(0, ZFleetProperties_6_0::isFleetPath(nullptr));
}

TEST_F(FleetProperties, LocalFilesWorkAsInTheBase)
{
    std::string const path = file_.directory().write("local.conf", "# c\n[s]\nk = 1\n");
    size_t const sent = cluster_.server().requests().size();
    ZFleetProperties_6_0 store(path.c_str(), 1);
    store.setValue("s", "k", "2");
    store.store(nullptr);
    EXPECT_EQ("# c\n[s]\nk = 2\n", file_.directory().read("local.conf"));
    store.reload(nullptr);
    EXPECT_EQ("2", value(store, "s", "k"));
    EXPECT_EQ(sent, cluster_.server().requests().size());
}

TEST_F(FleetProperties, FactorySharesAStoreForAPath)
{
    ZFleetProperties_6_0::ZFleetPropertiesFactory factory;
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(kPath, factory, 0);
    EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(kPath, factory, 0));
    putText("[listener]\nport = 4\n");
    ZProperties_6_0::getPropertiesFor(kPath, factory, 0);
    EXPECT_EQ(1u, store->getIntegerValue("listener", "port", 1, 0));
    ZProperties_6_0::getPropertiesFor(kPath, factory, 1);
    EXPECT_EQ(4u, store->getIntegerValue("listener", "port", 1, 0));
    EXPECT_NE(nullptr, ZFleetProperties_6_0::getFactory());
}

TEST_F(FleetProperties, LogEntryThatDoesNotFitIsOmitted)
{
    zfleet::LogEntry const entry{zfleet::makeMetadata(5, 4, "why"), std::string(1000, 'x'), "h"};
    zfleet::LogEntry read;
    ASSERT_TRUE(parseLogEntry(format(entry, 1000), read));
    EXPECT_FALSE(read.isOmitted);
    EXPECT_EQ(entry.text, read.text);
    EXPECT_EQ("h", read.hidden);
    ASSERT_TRUE(parseLogEntry(format(entry, 3), read));
    EXPECT_TRUE(read.isOmitted);
    EXPECT_EQ("", read.text);
    EXPECT_EQ(5u, read.metadata.generation);
    EXPECT_FALSE(parseLogEntry("text 4\nhidden 0\n\nabcd", read));
    EXPECT_FALSE(parseLogEntry("text 99999999999\nhidden 0\n\nabcd", read));
}
