// The log of a configuration: its generations, and undoing their changes.
#include <Sanitizers.h>
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <poll.h>
#include <stdio.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "StoreChecks.h"
#include "configuration/metadata.h"

namespace {

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";
constexpr char kMeta[] = "/zfleet/6/cfg/gateway/meta";

class FleetHistory : public testing::Test {
protected:
    // Stores generations in which x is 1, 2 and so on.
    void storeGenerations(unsigned count)
    {
        ZFleetProperties_6_0 store(1);
        store.setValue("s", "y", "1");
        for (unsigned i = 1; i <= count; ++i) {
            store.setIntegerValue("s", "x", i);
            store.setReason(("x is " + std::to_string(i)).c_str());
            store.store(kPath);
        }
    }

    void storeGenerationsAgain(unsigned count)
    {
        cluster_.put(kText, "");
        cluster_.put(kMeta, "");
        storeGenerations(count);
    }

    // Makes the outcome of the next write unknown to the program.
    void loseOutcome(bool isExecuted)
    {
        auto const isNext = std::make_shared<bool>(true);
        cluster_.setFault([=](auto const& request, auto const& execute) {
            zfleet::wire::TxnRequest form;
            if (!*isNext || request.method != "Txn" || !form.ParseFromString(request.bytes) ||
                form.compare_size() == 0)
                return execute(request);
            *isNext = false;
            if (isExecuted)
                execute(request);
            return ModelCluster::Reply{8, "Received message larger than max"};
        });
    }

    // Undoes the last generation; the program does not learn the outcome.
    void undoWithoutOutcome(ZFleetProperties_6_0& store, bool isExecuted)
    {
        loseOutcome(isExecuted);
        EXPECT_EQ(code("Txn", EINPROGRESS), failure([&] { store.undo(nullptr, 0); }));
    }

    // Another program changes a value.
    static void storeElsewhere(char const* key, char const* value)
    {
        ZFleetProperties_6_0 store(kPath, 1);
        store.setValue("s", key, value);
        store.store(nullptr);
    }

    // Waits until the store has accepted a change.
    static void takeChange(ZFleetProperties_6_0& store)
    {
        pollfd wait{store.descriptor(), POLLIN, 0};
        while (store.processChanges() == 0)
            poll(&wait, 1, 1000);
    }

    // Adds generations with contents of this size to the log, as another host does.
    void logGenerations(unsigned count, size_t size)
    {
        zfleet::LogEntry entry;
        entry.text.assign(size, 'x');
        for (unsigned i = 1; i <= count; ++i) {
            entry.metadata.generation = i;
            char key[64];
            snprintf(key, sizeof key, "/zfleet/6/cfg/gateway/log/%016x", i);
            cluster_.put(key, format(entry, size_t{1} << 20));
        }
    }

    // The request for the first entries of the log.
    static std::string requestForFirstPage()
    {
        zfleet::wire::RangeRequest form;
        form.set_key("/zfleet/6/cfg/gateway/log/");
        form.set_range_end("/zfleet/6/cfg/gateway/log0");
        form.set_limit(4);
        form.set_order(zfleet::wire::RangeRequest::DESCENDING);
        return form.SerializeAsString();
    }

    std::string const firstPage_ = requestForFirstPage();
    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "keep = 20\nbudget = 60\n"};
};

}  // namespace

TEST_F(FleetHistory, LogListsTheKeptGenerations)
{
    storeGenerations(25);
    ZFleetProperties_6_0 const store(1);
    ZArrayList_6_0 list(4, 1);
    store.log(kPath, list);
    ASSERT_EQ(20u, list.size());
    for (unsigned i = 0; i < list.size(); ++i) {
        auto const* const entry = static_cast<ZFleetGeneration_6_0 const*>(list.get(i));
        EXPECT_EQ(25 - i, entry->generation());
        EXPECT_EQ("x is " + std::to_string(25 - i), entry->reason().getChars());
        EXPECT_FALSE(entry->host().isEmpty());
        EXPECT_FALSE(entry->user().isEmpty());
        EXPECT_LT(1700000000, entry->time());
        EXPECT_EQ(0, entry->isOmitted());
    }
    ZArrayList_6_0 none(4, 1);
    store.log("etcd://test/none", none);
    EXPECT_EQ(0u, none.size());
    EXPECT_THROW(store.log("/etc/hostname", none), ZInvalidParameterException_6_0);
    EXPECT_THROW(store.log(nullptr, none), ZInvalidParameterException_6_0);
}

TEST_F(FleetHistory, EarlierGenerationIsLoadedAndStored)
{
    storeGenerations(3);
    ZFleetProperties_6_0 store(1);
    store.loadGeneration(kPath, 2);
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ(1, store.isModified());
    EXPECT_EQ("\n[s]\ny = 1\nx = 3\n", cluster_.get(kText));
    // A change that another program makes in the meantime stays.
    cluster_.put(kText, "\n[s]\ny = 8\nx = 3\n");
    store.store(nullptr);
    EXPECT_EQ("\n[s]\ny = 8\nx = 2\n", cluster_.get(kText));
    EXPECT_EQ(4u, store.generation());
    EXPECT_EQ(code("log", ENOENT), failure([&] { store.loadGeneration(nullptr, 5); }));
    EXPECT_EQ(code("log", ENOENT), failure([&] { store.loadGeneration(nullptr, 0); }));
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ(0, store.isModified());
}

TEST_F(FleetHistory, UndoOfTheLastChangeRestoresTheText)
{
    storeGenerations(3);
    ZFleetProperties_6_0 store(kPath, 1);
    store.undo(nullptr, 0);
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ("\n[s]\ny = 1\nx = 2\n", cluster_.get(kText));
    EXPECT_EQ(4u, store.generation());
    EXPECT_EQ(0, store.isModified());
    // The undo is a change that can be undone.
    store.undo(nullptr, 4);
    EXPECT_EQ("3", value(store, "x"));
    store.setValue("s", "x", "9");
    store.store(nullptr);
    EXPECT_EQ("\n[s]\ny = 1\nx = 9\n", cluster_.get(kText));
}

TEST_F(FleetHistory, UndoKeepsLaterChangesAndRefusesConflicts)
{
    storeGenerations(2);
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("s", "y", "5");
    store.store(nullptr);
    store.undo(nullptr, 2);
    EXPECT_EQ("\n[s]\ny = 5\nx = 1\n", cluster_.get(kText));
    EXPECT_THROW(store.undo(nullptr, 2), ZFleetConflictException_6_0);
    ZArrayList_6_0 conflicts(4, 1);
    store.conflicts(conflicts);
    EXPECT_EQ(1u, conflicts.size());
    EXPECT_EQ("1", value(store, "x"));
    EXPECT_EQ("\n[s]\ny = 5\nx = 1\n", cluster_.get(kText));
    store.setValue("s", "y", "6");
    EXPECT_EQ(code("undo()", EBUSY), failure([&] { store.undo(nullptr, 0); }));
    EXPECT_EQ("6", value(store, "y"));
}

TEST_F(FleetHistory, UndoUsesTheTextThatWasPutByHand)
{
    storeGenerations(1);
    cluster_.put(kText, "[s]\nx = 7\n");
    {
        ZFleetProperties_6_0 store(kPath, 1);
        store.setValue("s", "x", "8");
        store.store(nullptr);
    }
    ZFleetProperties_6_0 store(1);
    store.undo(kPath, 0);
    EXPECT_EQ("[s]\nx = 7\n", cluster_.get(kText));
    // The creation cannot be undone, and neither can a change of which the earlier text is lost.
    EXPECT_EQ(code("log", ENOENT), failure([&] { store.undo(nullptr, 1); }));
    cluster_.compact();
    EXPECT_EQ(code("log", ENOENT), failure([&] { store.undo(nullptr, 2); }));
    EXPECT_EQ("[s]\nx = 7\n", cluster_.get(kText));
}

TEST_F(FleetHistory, UndoKeepsTheCompanionThatWasPutByHand)
{
    constexpr char kHidden[] = "/zfleet/6/cfg/gateway/hidden";
    for (bool const isRemoved : {false, true}) {
        SCOPED_TRACE(isRemoved);
        {
            ZFleetProperties_6_0 before(1);
            before.setValue("s", "password", "before", 1);
            before.store(kPath);
        }
        if (isRemoved)
            cluster_.put(kHidden, "");
        else
            putCompanionByHand(cluster_, "s");
        ZFleetProperties_6_0 store(kPath, 1);
        store.setValue("s", "x", "1");
        store.store(nullptr);
        store.undo(nullptr, 0);
        EXPECT_EQ("(none)", value(store, "x"));
        EXPECT_EQ(isRemoved ? "(none)" : "by hand", value(store, "password"));
    }
}

TEST_F(FleetHistory, UndoThatLosesARaceIsMergedAgain)
{
    storeGenerations(2);
    ZFleetProperties_6_0 store(kPath, 1);
    cluster_.setPrelude([&] { cluster_.put(kText, "[s]\ny = 7\nx = 2\n"); });
    store.undo(nullptr, 0);
    EXPECT_EQ("[s]\ny = 7\nx = 1\n", cluster_.get(kText));
    EXPECT_EQ("7", value(store, "y"));
}

TEST_F(FleetHistory, RepetitionAfterAnUnknownOutcomeDoesNotUndoTheUndo)
{
    for (bool const isExecuted : {true, false})
        for (unsigned const number : {0u, 3u}) {
            SCOPED_TRACE(std::to_string(isExecuted) + ", " + std::to_string(number));
            storeGenerationsAgain(3);
            ZFleetProperties_6_0 store(kPath, 1);
            undoWithoutOutcome(store, isExecuted);
            EXPECT_EQ("3", value(store, "x"));
            EXPECT_EQ(isExecuted ? "\n[s]\ny = 1\nx = 2\n" : "\n[s]\ny = 1\nx = 3\n",
                      cluster_.get(kText));
            store.undo(nullptr, number);
            EXPECT_EQ("2", value(store, "x"));
            EXPECT_EQ("\n[s]\ny = 1\nx = 2\n", cluster_.get(kText));
            EXPECT_EQ(4u, store.generation());
            // The next undo is another one.
            store.undo(nullptr, 0);
            EXPECT_EQ("3", value(store, "x"));
            EXPECT_EQ(5u, store.generation());
        }
}

// Another program has stored generation 4 in the meantime.
TEST_F(FleetHistory, RepetitionAfterAnUnknownOutcomeUndoesTheSameGeneration)
{
    for (bool const isExecuted : {true, false}) {
        SCOPED_TRACE(isExecuted);
        storeGenerationsAgain(3);
        ZFleetProperties_6_0 store(kPath, 1);
        undoWithoutOutcome(store, isExecuted);
        storeElsewhere("y", "7");
        store.undo(nullptr, 0);
        EXPECT_EQ("2", value(store, "x"));
        EXPECT_EQ("\n[s]\ny = 7\nx = 2\n", cluster_.get(kText));
        store.reload(nullptr);
        EXPECT_EQ(5u, store.generation());
    }
}

// The first write of the undo lost a race. The second one, with the merged text, was executed.
TEST_F(FleetHistory, RepetitionFindsAMergedUndo)
{
    storeGenerations(3);
    ZFleetProperties_6_0 store(kPath, 1);
    auto const writes = std::make_shared<unsigned>(0);
    cluster_.setFault([=, this](auto const& request, auto const& execute) {
        zfleet::wire::TxnRequest form;
        bool const isWrite = request.method == "Txn" && form.ParseFromString(request.bytes) &&
                             form.compare_size() > 0;
        if (isWrite && ++*writes == 1)
            cluster_.put(kText, "\n[s]\ny = 7\nx = 3\n");
        ModelCluster::Reply const reply = execute(request);
        if (isWrite && *writes == 2)
            return ModelCluster::Reply{8, "Received message larger than max"};
        return reply;
    });
    EXPECT_EQ(code("Txn", EINPROGRESS), failure([&] { store.undo(nullptr, 0); }));
    EXPECT_EQ("\n[s]\ny = 7\nx = 2\n", cluster_.get(kText));
    store.undo(nullptr, 0);
    EXPECT_EQ("\n[s]\ny = 7\nx = 2\n", cluster_.get(kText));
    EXPECT_EQ("7", value(store, "y"));
    EXPECT_EQ(4u, store.generation());
}

TEST_F(FleetHistory, LoadAfterAnUnknownOutcomeEndsTheUndo)
{
    storeGenerations(3);
    ZFleetProperties_6_0 store(kPath, 1);
    undoWithoutOutcome(store, true);
    store.reload(nullptr);
    EXPECT_EQ("2", value(store, "x"));
    store.undo(nullptr, 0);  // of the undo
    EXPECT_EQ("3", value(store, "x"));
    EXPECT_EQ(5u, store.generation());
}

TEST_F(FleetHistory, ChangeThatIsTakenInEndsTheUndo)
{
    for (bool const isExecuted : {true, false}) {
        SCOPED_TRACE(isExecuted);
        storeGenerationsAgain(3);
        ZFleetProperties_6_0 store(kPath, 1);
        undoWithoutOutcome(store, isExecuted);
        storeElsewhere("y", "7");
        takeChange(store);
        EXPECT_EQ("7", value(store, "y"));
        store.undo(nullptr, 0);  // of the other program's change
        EXPECT_EQ(isExecuted ? "\n[s]\ny = 1\nx = 2\n" : "\n[s]\ny = 1\nx = 3\n",
                  cluster_.get(kText));
    }
}

// The keeper of a program may accept the outcome before the program repeats the undo.
TEST_F(FleetHistory, OutcomeThatIsTakenInDoesNotEndTheUndo)
{
    storeGenerations(3);
    ZFleetProperties_6_0 store(kPath, 1);
    undoWithoutOutcome(store, true);
    takeChange(store);
    EXPECT_EQ("2", value(store, "x"));
    store.undo(nullptr, 0);
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ(4u, store.generation());
}

TEST_F(FleetHistory, LogNeedsTheMemoryOfAFewGenerations)
{
    if (kHasSanitizer)
        GTEST_SKIP() << "the allocator of a sanitizer has no mallinfo2()";
    logGenerations(24, size_t{1} << 20);
    std::vector<size_t> inUse;
    cluster_.setFault([&](auto const& request, auto const& execute) {
        struct mallinfo2 const info = mallinfo2();
        inUse.push_back(info.uordblks + info.hblkhd);
        return execute(request);
    });
    ZFleetProperties_6_0 const store(1);
    ZArrayList_6_0 list(4, 1);
    store.log(kPath, list);
    EXPECT_EQ(24u, list.size());
    EXPECT_EQ(6u, inUse.size());  // calls
    EXPECT_GE(inUse.front() + (size_t{4} << 20), *std::max_element(inUse.begin(), inUse.end()));
}

TEST_F(FleetHistory, LogHasAtMostAHundredGenerations)
{
    logGenerations(110, 10);
    ZFleetProperties_6_0 const store(1);
    ZArrayList_6_0 list(4, 1);
    store.log(kPath, list);
    ASSERT_EQ(100u, list.size());
    EXPECT_EQ(110u, static_cast<ZFleetGeneration_6_0 const*>(list.get(0))->generation());
    EXPECT_EQ(11u, static_cast<ZFleetGeneration_6_0 const*>(list.get(99))->generation());
}

// A node that is not trustworthy can promise further entries without an end.
TEST_F(FleetHistory, LogWithoutAnEndIsRefused)
{
    storeGenerations(3);
    for (bool const isEmpty : {false, true}) {
        unsigned pages = 0;
        cluster_.setFault([&, isEmpty](auto const& request, auto const& execute) {
            if (request.method != "Range")
                return execute(request);
            if (++pages == 100)  // without the mend, the call would not end
                return ModelCluster::Reply{7, "refused"};
            ModelCluster::Reply reply = execute({request.method, firstPage_, {}, {}});
            zfleet::wire::RangeResponse form;
            form.ParseFromString(reply.text);
            form.set_more(true);
            if (isEmpty)
                form.clear_kvs();
            reply.text = form.SerializeAsString();
            return reply;
        });
        ZFleetProperties_6_0 const store(1);
        ZArrayList_6_0 list(4, 1);
        EXPECT_EQ(code("Range", EPROTO), failure([&] { store.log(kPath, list); }));
        EXPECT_EQ(0u, list.size());
        EXPECT_GE(2u, pages);
    }
}

TEST_F(FleetHistory, DamagedEntriesAreLeftOut)
{
    storeGenerations(3);
    cluster_.put("/zfleet/6/cfg/gateway/log/0000000000000002", "text 99\nhidden 0\n\ngarbage");
    ZFleetProperties_6_0 store(1);
    ZArrayList_6_0 list(4, 1);
    store.log(kPath, list);
    EXPECT_EQ(2u, list.size());
    EXPECT_EQ(code("log", ENOENT), failure([&] { store.loadGeneration(kPath, 2); }));
    // The state before generation 3 is still in the revisions of the cluster.
    store.undo(kPath, 3);
    EXPECT_EQ("\n[s]\ny = 1\nx = 2\n", cluster_.get(kText));
    EXPECT_NE("(missing)", cluster_.get(kMeta));
}
