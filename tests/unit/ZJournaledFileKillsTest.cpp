#include <Z/store/journaled_file.h>
#include <gtest/gtest.h>

#include <string>

#include "JournalForm.h"
#include "JournaledFileFixture.h"

using ZJournaledFileKills = JournaledFileFixture;

TEST_F(ZJournaledFileKills, KillAtAnyCallLeavesTheOldOrNewPairAndTheNextStoreCleansUp)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        int olds = 0;
        int news = 0;
        for (int call = 1;; ++call) {
            SCOPED_TRACE(call);
            put(shape.before);
            bool const died = storeUpTo(call, shape.after);
            Pair const found = load();
            EXPECT_TRUE(found == shape.after || (died && found == shape.before)) << found;
            (found == shape.after ? news : olds) += 1;
            // The next store finds the same pair, and removes the files of the killed one.
            {
                zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
                EXPECT_EQ(found.text, std::string(file.text().data(), file.text().size()));
                file.commit(viewOf(kPlain.text), change(kPlain));
            }
            EXPECT_EQ(kPlain, load());
            EXPECT_EQ("conf", directory_.names());
            if (HasFailure())
                return;
            if (!died)
                break;
        }
        EXPECT_LT(0, news);
        EXPECT_TRUE(olds > 0 || shape.before == shape.after);
    }
}

TEST_F(ZJournaledFileKills, KillDuringARecoveryLeavesTheNewPair)
{
    // Find the call after which the text is torn, then end the recovery at each of its calls.
    int torn = 0;
    for (int call = 1; torn == 0; ++call) {
        put(kLong);
        ASSERT_TRUE(storeUpTo(call, kShort));
        if (directory_.read("conf") != kLong.text && directory_.read("conf") != kShort.text)
            torn = call;
    }
    for (int call = 1;; ++call) {
        SCOPED_TRACE(call);
        put(kLong);
        storeUpTo(torn, kShort);
        EXPECT_EQ(kShort, load());
        bool const died = storeUpTo(call, kPlain);
        Pair const found = load();
        EXPECT_TRUE(found == kShort || found == kPlain) << found;
        if (HasFailure() || !died)
            break;
    }
}

TEST_F(ZJournaledFileKills, FailedRecoveryLeavesOnlyTheJournal)
{
    for (char const* failed : {"fallocate", "fsync"}) {  // for the text, of the companion
        SCOPED_TRACE(failed);
        put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        CallPlan failing;
        failing.before = [failed](SystemCall const& call) {
            return call.name == failed && callPlan.failed.empty() ? EIO : 0;
        };
        {
            CallRecorder const watch(failing);
            EXPECT_THROW(zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store),
                         zstore::JournaledFile::IoError);
        }
        EXPECT_EQ(".conf.zjn conf conf.obf", directory_.names());
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileKills, RecoveryFailsIfTheTextCannotBeReadAgain)
{
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    expectFailure(path_, "read()", EIO, failing("pread", "conf", EIO, 2), [&] {
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store);
    });
    EXPECT_EQ("conf conf.obf", directory_.names());
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileKills, KillDuringARollBackLeavesTheOldOrNewPair)
{
    int calls = 0;
    do
        put(kLong);
    while (storeUpTo(++calls, kShort));
    int kills = 0;
    for (int failing = 1; failing < calls; ++failing)
        for (int call = failing + 1;; ++call) {
            SCOPED_TRACE(failing);
            SCOPED_TRACE(call);
            put(kLong);
            bool const died = storeUpTo(call, kShort, failing);
            Pair const found = load();
            EXPECT_TRUE(found == kLong || found == kShort) << found;
            if (HasFailure())
                return;
            if (!died)
                break;
            ++kills;
        }
    EXPECT_LT(300, kills);
}

TEST_F(ZJournaledFileKills, KillAfterAFailedRetirementLeavesTheNewPair)
{
    // The journal can neither be invalidated, nor can its removal be synced: the store has been
    // applied anyway, and is not rolled back.
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        int invalidated = 0;
        int synced = 0;
        put(shape.before);
        CallPlan looking;
        looking.before = [&](SystemCall const& call) {
            bool const invalidates = call.name == "pwrite" && nameOf(call) == ".conf.zjn";
            if (invalidates && invalidated == 0)
                invalidated = callPlan.calls;
            if (call.name == "fsync" && isOnDirectory(call))
                synced = callPlan.calls;
            return invalidates ? EIO : 0;
        };
        {
            CallRecorder const watch(looking);
            store(shape.after);
        }
        ASSERT_LT(0, invalidated);
        ASSERT_LT(invalidated, synced);
        int kills = 0;
        for (int call = invalidated + 1;; ++call) {
            SCOPED_TRACE(call);
            put(shape.before);
            bool const died = storeUpTo(call, shape.after, invalidated, synced);
            EXPECT_EQ(shape.after, load());
            store(kPlain);
            EXPECT_EQ(kPlain, load());
            EXPECT_EQ("conf", directory_.names());
            if (HasFailure() || !died)
                break;
            ++kills;
        }
        EXPECT_LT(5, kills);
    }
}
