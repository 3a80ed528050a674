#include <Z/ZObserver.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"

namespace {

class Observable final : public ZAbstractObservable_6_0 {};

// Appends its name to a shared log and then runs `action`.
class Observer final : public ZObserverInterface_6_0 {
public:
    Observer(std::string name, std::string& log) : name_(name), log_(log) {}
    void update(ZObservableInterface_6_0* sender, ZObservedParm_6_0 const& parm) override
    {
        log_ += name_;
        lastSender = sender;
        lastParm = &parm;
        if (action)
            action();
    }

    ZObservableInterface_6_0* lastSender = nullptr;
    ZObservedParm_6_0 const* lastParm = nullptr;
    std::function<void()> action;

private:
    std::string name_;
    std::string& log_;
};

class ObserverTest : public testing::Test {
public:
    ~ObserverTest() noexcept override {}

protected:
    std::string log_;
    Observable observable_;
    Observer a_{"a", log_};
    Observer b_{"b", log_};
    Observer c_{"c", log_};
    ZSequenceUpdate_6_0 parm_{5, 3};
};

}  // namespace

using ZObserver = ObserverTest;

TEST_F(ZObserver, AreCalledInTheOrderOfRegistration)
{
    observable_.addObserver(&b_);
    observable_.addObserver(&c_);
    observable_.addObserver(&a_);
    EXPECT_EQ(3u, observable_.countObservers());
    observable_.notifyObservers(parm_);
    EXPECT_EQ("bca", log_);
    for (Observer const* observer : {&a_, &b_, &c_}) {
        EXPECT_EQ(&observable_, observer->lastSender);
        EXPECT_EQ(&parm_, observer->lastParm);
    }
}

TEST_F(ZObserver, AreRegisteredOnce)
{
    observable_.addObserver(&a_);
    observable_.addObserver(&b_);
    observable_.addObserver(&a_);
    EXPECT_EQ(2u, observable_.countObservers());
    observable_.notifyObservers(parm_);
    EXPECT_EQ("ab", log_);
}

TEST_F(ZObserver, AreNotCalledWithoutRegistration)
{
    EXPECT_EQ(0u, observable_.countObservers());
    observable_.notifyObservers(parm_);
    observable_.addObserver(nullptr);
    EXPECT_EQ(0u, observable_.countObservers());
    observable_.notifyObservers(parm_);
    EXPECT_EQ("", log_);
}

TEST_F(ZObserver, CanBeUnregistered)
{
    for (Observer* observer : {&a_, &b_, &c_})
        observable_.addObserver(observer);
    observable_.deleteObserver(&b_);
    observable_.deleteObserver(&b_);
    observable_.deleteObserver(nullptr);
    EXPECT_EQ(2u, observable_.countObservers());
    observable_.notifyObservers(parm_);
    EXPECT_EQ("ac", log_);
    observable_.deleteObservers();
    observable_.deleteObservers();
    EXPECT_EQ(0u, observable_.countObservers());
    observable_.notifyObservers(parm_);
    EXPECT_EQ("ac", log_);
    observable_.addObserver(&b_);
    observable_.notifyObservers(parm_);
    EXPECT_EQ("acb", log_);
}

TEST_F(ZObserver, AreUsedThroughTheInterface)
{
    ZObservableInterface_6_0& interface = observable_;
    interface.addObserver(&a_);
    interface.notifyObservers(parm_);
    EXPECT_EQ(1u, interface.countObservers());
    interface.deleteObserver(&a_);
    interface.deleteObservers();
    EXPECT_EQ("a", log_);
}

TEST_F(ZObserver, MayCountDuringAPass)
{
    unsigned count = 0;
    a_.action = [&] { count = observable_.countObservers(); };
    observable_.addObserver(&a_);
    observable_.addObserver(&b_);
    observable_.notifyObservers(parm_);
    EXPECT_EQ(2u, count);
}

TEST_F(ZObserver, KeepsTheCountOfTheStartOfThePass)
{
    a_.action = [&] { observable_.addObserver(&c_); };
    observable_.addObserver(&a_);
    observable_.addObserver(&b_);
    observable_.notifyObservers(parm_);
    EXPECT_EQ("ab", log_) << "an observer added during a pass is not called in it";
    observable_.notifyObservers(parm_);
    EXPECT_EQ("ababc", log_);

    // Removing an observer during a pass moves the later observers forward; the next is skipped.
    log_ = "";
    a_.action = [&] { observable_.deleteObserver(&a_); };
    observable_.notifyObservers(parm_);
    EXPECT_EQ("ac", log_);
    EXPECT_EQ(2u, observable_.countObservers());
}

TEST_F(ZObserver, MayAllBeRemovedDuringAPass)
{
    for (Observer* observer : {&a_, &b_, &c_})
        observable_.addObserver(observer);
    a_.action = [&] { observable_.deleteObservers(); };
    observable_.notifyObservers(parm_);
    EXPECT_EQ("a", log_);
    EXPECT_EQ(0u, observable_.countObservers());
}

TEST_F(ZObserver, MayNotifyAgainDuringAPass)
{
    int rounds = 0;
    a_.action = [&] {
        if (++rounds < 3)
            observable_.notifyObservers(parm_);
    };
    observable_.addObserver(&a_);
    observable_.addObserver(&b_);
    observable_.notifyObservers(parm_);
    EXPECT_EQ("aaabbb", log_);
}

TEST_F(ZObserver, AnExceptionEndsThePassAndReleasesTheLock)
{
    for (Observer* observer : {&a_, &b_, &c_})
        observable_.addObserver(observer);
    b_.action = [] { throw std::runtime_error("b"); };
    EXPECT_THROW(observable_.notifyObservers(parm_), std::runtime_error);
    EXPECT_EQ("ab", log_);
    unsigned count = 0;
    std::thread([&] { count = observable_.countObservers(); }).join();
    EXPECT_EQ(3u, count);
}

TEST_F(ZObserver, AreAddedAndRemovedInManyThreads)
{
    class Counting final : public ZObserverInterface_6_0 {
    public:
        explicit Counting(Observable& observable) : observable_(observable) {}
        void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override
        {
            ++updates;
            if (updates % 3 == 0)
                observable_.deleteObserver(this);
        }
        std::atomic<long> updates = 0;

    private:
        Observable& observable_;
    };
    constexpr int kThreads = 8;
    constexpr int kRounds = 300;
    std::vector<std::unique_ptr<Counting>> observers;
    for (int t = 0; t < kThreads; ++t)
        observers.push_back(std::make_unique<Counting>(observable_));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                observable_.addObserver(observers[static_cast<size_t>(t)].get());
                observable_.notifyObservers(parm_);
                observable_.countObservers();
                if (i % 7 == 0)
                    observable_.deleteObserver(observers[static_cast<size_t>(t)].get());
            }
            observable_.deleteObserver(observers[static_cast<size_t>(t)].get());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0u, observable_.countObservers());
    for (auto const& observer : observers)
        EXPECT_GT(observer->updates.load(), 0);
}

TEST_F(ZObserver, AreNotRegisteredWithoutMemory)
{
    Observer observers[] = {{"0", log_}, {"1", log_}, {"2", log_}, {"3", log_}, {"4", log_}};
    unsigned registered = 0;
    unsigned long failures = 0;
    for (Observer& observer : observers) {
        failures +=
            failEachAllocation([&] { observable_.addObserver(&observer); },
                               [&] { EXPECT_EQ(registered, observable_.countObservers()); });
        EXPECT_EQ(++registered, observable_.countObservers());
    }
    EXPECT_GE(failures, 5u) << "every wrapper needs an allocation";
    observable_.notifyObservers(parm_);
    EXPECT_EQ("01234", log_);
}

// Most objects that can be observed never are.
TEST_F(ZObserver, AnObservableWithoutObserversTakesNoMemory)
{
    FailingAllocator::failAt(1);
    {
        Observable observable;
        EXPECT_EQ(0u, observable.countObservers());
        observable.notifyObservers(parm_);
        observable.deleteObserver(&a_);
        observable.deleteObservers();
        EXPECT_EQ(0u, observable.countObservers());
    }
    EXPECT_FALSE(FailingAllocator::stop());
}

TEST_F(ZObserver, AreWrappedByTheirAddress)
{
    Observer* const low = std::min(&a_, &b_);
    Observer* const high = std::max(&a_, &b_);
    Voyeur_6_0 const first(low);
    Voyeur_6_0 const second(high);
    Voyeur_6_0 const again(low);
    EXPECT_EQ(-1, first.compare(second));
    EXPECT_EQ(1, second.compare(first));
    EXPECT_EQ(0, first.compare(again));
    EXPECT_TRUE(first.equals(again));
    EXPECT_FALSE(first.equals(second));
    ZObserverInterface_6_0* const wrapped = low;
    EXPECT_EQ(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(wrapped)), first.hash());
    std::unique_ptr<ZObject_6_0> const copy(first.clone());
    ASSERT_NE(nullptr, dynamic_cast<Voyeur_6_0*>(copy.get()));
    EXPECT_EQ(wrapped, static_cast<Voyeur_6_0&>(*copy).observer());
    EXPECT_TRUE(first.equals(*copy));
}

TEST_F(ZObserver, FourGigabytesApartAreDistinct)
{
    // Only the addresses are used; the observers are neither called nor read.
    auto* const here = reinterpret_cast<ZObserverInterface_6_0*>(uintptr_t{0x1000});
    auto* const there = reinterpret_cast<ZObserverInterface_6_0*>(uintptr_t{0x100001000});
    observable_.addObserver(here);
    observable_.addObserver(there);
    EXPECT_EQ(2u, observable_.countObservers());
    EXPECT_EQ(-1, Voyeur_6_0(here).compare(Voyeur_6_0(there)));
    EXPECT_EQ(Voyeur_6_0(here).hash(), Voyeur_6_0(there).hash());
}

TEST_F(ZObserver, ObjectsOfAnotherClassSortByAddress)
{
    ZSequenceUpdate_6_0 const update(5, 3);
    Voyeur_6_0 const voyeur(&a_);
    ZObject_6_0 const object;
    struct Case {
        ZObject_6_0 const& one;
        ZObject_6_0 const& other;
    };
    for (Case const& c : {Case{update, object}, Case{voyeur, object}, Case{voyeur, update}}) {
        EXPECT_EQ(&c.one < &c.other ? -1 : 1, c.one.compare(c.other));
        EXPECT_FALSE(c.one.equals(c.other));
    }
}

TEST(ZSequenceUpdate, KeepsItsTwoNumbers)
{
    ZSequenceUpdate_6_0 const update(5, 3);
    EXPECT_EQ(5ul, update.getSequence());
    EXPECT_EQ(3ul, update.getLastSequence());
    std::unique_ptr<ZObject_6_0> const copy(update.clone());
    auto const* const same = dynamic_cast<ZSequenceUpdate_6_0*>(copy.get());
    ASSERT_NE(nullptr, same);
    EXPECT_EQ(5ul, same->getSequence());
    EXPECT_EQ(3ul, same->getLastSequence());
    EXPECT_TRUE(update == *same);
    EXPECT_TRUE(update.equals(*copy));
}

TEST(ZSequenceUpdate, IsClonedOrNot)
{
    ZSequenceUpdate_6_0 const update(5, 3);
    EXPECT_LE(1u, failEachAllocation([&] { delete update.clone(); }, [] {}));
}

TEST(ZSequenceUpdate, StartsInvalid)
{
    ZSequenceUpdate_6_0 const update;
    EXPECT_EQ(0xFFFFFFFFul, update.getSequence());
    EXPECT_EQ(0xFFFFFFFFul, update.getLastSequence());
    EXPECT_TRUE(update == ZSequenceUpdate_6_0(0xFFFFFFFF, 0xFFFFFFFF));
}

TEST(ZSequenceUpdate, ComparesByDifferenceAroundTheEnd)
{
    struct Case {
        char const* name;
        unsigned long sequence, last, otherSequence, otherLast;
        int difference;
    };
    Case const cases[] = {{"same", 5, 3, 5, 3, 0},
                          {"last sequence decides", 5, 1, 5, 3, -2},
                          {"last sequence above", 5, 3, 5, 1, 2},
                          {"sequence first", 6, 1, 5, 3, 1},
                          {"sequence below", 4, 9, 7, 1, -3},
                          {"around the end", 0, 0, 0xFFFFFFFF, 0, 1},
                          {"back around the end", 0xFFFFFFFF, 0, 0, 0, -1},
                          {"32 bits are kept", 0x100000005, 0x700000003, 5, 3, 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZSequenceUpdate_6_0 const mine(c.sequence, c.last);
        ZSequenceUpdate_6_0 const theirs(c.otherSequence, c.otherLast);
        EXPECT_EQ(c.difference, mine.compare(theirs));
        EXPECT_EQ(c.difference == 0, mine == theirs);
        EXPECT_EQ(c.difference == 0, mine.equals(theirs));
    }
}

TEST(ZSequenceUpdate, OperatorCallsTheVirtualCompare)
{
    class NeverSame : public ZSequenceUpdate_6_0 {
    public:
        int compare(ZObject_6_0 const&) const override { return 1; }
    };
    EXPECT_FALSE(NeverSame() == ZSequenceUpdate_6_0());
}
