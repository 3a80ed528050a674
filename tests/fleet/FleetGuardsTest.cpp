// The guards of a store: with a guard left out, each of these sequences loses an increment.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "Counters.h"
#include "FleetFile.h"
#include "ModelCluster.h"

namespace {

constexpr char kPath[] = "etcd://test/counter";
constexpr char kText[] = "/zfleet/6/cfg/counter/text";

class FleetGuards : public testing::Test {
protected:
    using Make = std::function<std::unique_ptr<Counter>()>;

    FleetGuards() { cluster_.put(kText, "[s]\nx = 0\n"); }

    // A request for the first of two increments is executed after the second one, when it was
    // repeated long ago.
    unsigned valueAfterALateRequest(Make const& make)
    {
        auto const first = make();
        auto const second = make();
        cluster_.setFates({ModelCluster::Fate::delayed});
        first->increment();
        second->increment();
        cluster_.deliver();
        first->read();
        return first->value();
    }

    // Two programs have read the same value.
    static unsigned valueAfterARace(Make const& make)
    {
        auto const first = make();
        auto const second = make();
        first->read();
        second->read();
        EXPECT_TRUE(first->store());
        if (!second->store())
            second->increment();
        first->read();
        return first->value();
    }

    std::unique_ptr<Counter> plain() const
    {
        zfleet::Settings settings;
        settings.endpoints = {cluster_.address()};
        return std::make_unique<PlainCounter>(settings, "plain");
    }

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 60\n"};
    Make const guarded_ = [] { return std::make_unique<GuardedCounter>(kPath); };
    Make const agreeing_ = [] { return std::make_unique<AgreeingCounter>(kPath); };
    Make const plain_ = [this] { return plain(); };
};

}  // namespace

TEST_F(FleetGuards, LateRequestUndoesNoLaterStore)
{
    EXPECT_EQ(2u, valueAfterALateRequest(guarded_));
    EXPECT_EQ(1u, valueAfterALateRequest(plain_));  // the second increment was undone
}

TEST_F(FleetGuards, EqualNewValuesAreNoAgreement)
{
    EXPECT_EQ(2u, valueAfterARace(guarded_));
    EXPECT_EQ(3u, valueAfterARace(agreeing_));  // of 4
    EXPECT_EQ(1u, valueAfterARace(plain_));
}
