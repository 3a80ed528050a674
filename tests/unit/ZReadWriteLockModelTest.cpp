#include <Z/ZException.h>
#include <Z/ZReadWriteLock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ReadWriteModel.h"
#include "Threads.h"

namespace {

using Model = ReadWriteModel;

constexpr int kThreads = 8;

// ---- One action at a time --------------------------------------------------------------------

enum class Outcome { done, lockRaised, unlockRaised };

Outcome outcomeOf(std::function<void()> const& action)
{
    try {
        action();
        return Outcome::done;
    } catch (ZLockResourceException_6_0 const&) {
        return Outcome::lockRaised;
    } catch (ZUnlockResourceException_6_0 const&) {
        return Outcome::unlockRaised;
    }
}

// Threads that perform actions on command and report the end of each.
class Workers {
public:
    struct Report {
        int thread;
        Outcome outcome;
    };

    Workers()
    {
        for (int t = 0; t < kThreads; ++t)
            threads_[t] = std::thread([this, t] { work(t); });
    }
    ~Workers()
    {
        // After a failure some threads may wait forever.
        if (testing::Test::HasFailure()) {
            std::fflush(nullptr);
            std::quick_exit(1);
        }
        for (int t = 0; t < kThreads; ++t)
            send(t, nullptr);
        for (std::thread& thread : threads_)
            thread.join();
    }

    void send(int thread, std::function<void()> action)
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        commands_[thread] = std::move(action);
        changed_.notify_all();
    }

    // Waits for the next report; returns none after a time limit.
    std::optional<Report> next()
    {
        std::unique_lock<std::mutex> guard(mutex_);
        if (!changed_.wait_for(guard, kHangs, [this] { return !reports_.empty(); }))
            return std::nullopt;
        Report const report = reports_.front();
        reports_.pop_front();
        return report;
    }

    bool hasReport()
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        return !reports_.empty();
    }

private:
    void work(int thread)
    {
        for (;;) {
            std::function<void()> action;
            {
                std::unique_lock<std::mutex> guard(mutex_);
                changed_.wait(guard, [&] { return commands_[thread].has_value(); });
                action = *std::exchange(commands_[thread], std::nullopt);
            }
            if (action == nullptr)
                return;
            Outcome const outcome = outcomeOf(action);
            std::lock_guard<std::mutex> const guard(mutex_);
            reports_.push_back({thread, outcome});
            changed_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::array<std::optional<std::function<void()>>, kThreads> commands_;
    std::deque<Report> reports_;
    std::array<std::thread, kThreads> threads_;
};

// The state that a thread holds and the state that it waits for.
struct ThreadState {
    enum Request { none, read, protect, write, promotion };
    int reads = 0;
    Request waitsFor = none;
};

class RandomRun {
public:
    explicit RandomRun(unsigned seed) : random_(seed) {}

    // Performs random actions. The model predicts the outcome of each and is compared with the lock
    // after it. Stops after a wrong outcome.
    void run(int actions)
    {
        for (int i = 0; i < actions && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("action " + std::to_string(i));
            act();
            compare();
        }
        // Every thread that holds the lock releases it, until all are idle.
        for (int t = 0; !testing::Test::HasFailure() && !allIdle(); t = (t + 1) % kThreads) {
            if (threadStates_[t].waitsFor == ThreadState::none &&
                (threadStates_[t].reads > 0 || model_.holds(t)))
                release(t);
            compare();
        }
    }

    int raised = 0;
    int waited = 0;

private:
    void act()
    {
        int const t = static_cast<int>(random_() % kThreads);
        if (threadStates_[t].waitsFor != ThreadState::none)
            return;
        unsigned const what = random_() % 8;
        if (what < 3)
            return take(t, what == 0 ? kWrite : what == 1 ? kProtect : kRead);
        if (what == 3)
            return promote(t);
        release(t);
    }

    void take(int t, State wanted)
    {
        auto const action = [this, wanted] { lock_.lock(wanted); };
        if (model_.holds(t))
            return expect(t, action, Outcome::lockRaised);
        // A reader must not wait for a thread that waits for this reader.
        if (threadStates_[t].reads > 0 && (wanted != kRead || !model_.admits(wanted)))
            return;
        if (model_.admits(wanted)) {
            expect(t, action, Outcome::done);
            enter(t, wanted);
            return;
        }
        waitFor(t, action,
                wanted == kRead      ? ThreadState::read
                : wanted == kProtect ? ThreadState::protect
                                     : ThreadState::write);
    }

    void promote(int t)
    {
        auto const action = [this] { lock_.promoteReadToWriteLock(); };
        if (!model_.holds(t) || model_.state != kProtect)
            return expect(t, action, Outcome::lockRaised);
        model_.beginPromotion();
        if (model_.readers == 0)
            return expect(t, action, Outcome::done);
        waitFor(t, action, ThreadState::promotion);
        // A promotion blocks new readers immediately; the next action must meet that.
        auto const end = std::chrono::steady_clock::now() + kHangs;
        while (lock_.haveLock(kWrite) == 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
    }

    void release(int t)
    {
        auto const action = [this] { lock_.unlock(); };
        if (!model_.mayLeave(t))
            return expect(t, action, Outcome::unlockRaised);
        bool const reads = !model_.holds(t);
        if (reads && threadStates_[t].reads == 0)
            return;  // it would release another thread's read lock
        workers_.send(t, action);
        // Threads that the release admits may report before the releasing thread.
        for (;;) {
            std::optional<Workers::Report> const report = workers_.next();
            ASSERT_TRUE(report.has_value()) << "thread " << t << " does not return";
            if (report->thread != t) {
                admitted_.push_back(*report);
                continue;
            }
            ASSERT_EQ(Outcome::done, report->outcome);
            break;
        }
        model_.leave(t);
        if (reads)
            --threadStates_[t].reads;
        letWaitersIn();
    }

    // Every thread that can continue must do so, in any order.
    void letWaitersIn()
    {
        while (!testing::Test::HasFailure() &&
               std::any_of(
                   threadStates_.begin(), threadStates_.end(),
                   [this](ThreadState const& thread) { return canContinue(thread.waitsFor); })) {
            std::optional<Workers::Report> const report = nextLetIn();
            ASSERT_TRUE(report.has_value()) << "no thread continues";
            ASSERT_EQ(Outcome::done, report->outcome);
            ThreadState& thread = threadStates_[report->thread];
            ASSERT_TRUE(canContinue(thread.waitsFor))
                << "thread " << report->thread << " continues";
            if (thread.waitsFor == ThreadState::read)
                enter(report->thread, kRead);
            else if (thread.waitsFor == ThreadState::protect)
                enter(report->thread, kProtect);
            else if (thread.waitsFor == ThreadState::write)
                enter(report->thread, kWrite);
            thread.waitsFor = ThreadState::none;
        }
    }

    std::optional<Workers::Report> nextLetIn()
    {
        if (admitted_.empty())
            return workers_.next();
        Workers::Report const report = admitted_.front();
        admitted_.pop_front();
        return report;
    }

    bool canContinue(ThreadState::Request wish) const
    {
        switch (wish) {
            case ThreadState::none:
                return false;
            case ThreadState::read:
                return model_.admits(kRead);
            case ThreadState::protect:
                return model_.admits(kProtect);
            case ThreadState::write:
                return model_.admits(kWrite);
            case ThreadState::promotion:
                return model_.readers == 0;
        }
        return false;
    }

    void enter(int t, State wanted)
    {
        model_.enter(t, wanted);
        if (wanted == kRead)
            ++threadStates_[t].reads;
    }

    void expect(int t, std::function<void()> const& action, Outcome outcome)
    {
        raised += outcome != Outcome::done ? 1 : 0;
        workers_.send(t, action);
        std::optional<Workers::Report> const report = workers_.next();
        ASSERT_TRUE(report.has_value()) << "thread " << t << " does not return";
        ASSERT_EQ(t, report->thread) << "a thread that must wait continues";
        ASSERT_EQ(outcome, report->outcome);
    }

    void waitFor(int t, std::function<void()> const& action, ThreadState::Request wish)
    {
        ++waited;
        threadStates_[t].waitsFor = wish;
        workers_.send(t, action);
    }

    void compare()
    {
        EXPECT_FALSE(workers_.hasReport() || !admitted_.empty())
            << "a thread that must wait continues";
        EXPECT_EQ(model_.readers, lock_.getReaderCount());
        for (State state : {kUnset, kRead, kProtect, kWrite})
            EXPECT_EQ(state == model_.state, lock_.haveLock(state) != 0) << "state " << state;
    }

    bool allIdle() const
    {
        return model_.state == kUnset &&
               std::all_of(
                   threadStates_.begin(), threadStates_.end(),
                   [](ThreadState const& thread) { return thread.waitsFor == ThreadState::none; });
    }

    std::minstd_rand random_;
    ZReadWriteLock_6_0 lock_;
    Model model_;
    std::array<ThreadState, kThreads> threadStates_;
    std::deque<Workers::Report> admitted_;
    Workers workers_;
};

// ---- All threads at the same time -----------------------------------------------------------

// The record of a thread, written after each acquisition and before each release. The tickets give
// one order, in which a hold is never longer than the real one.
struct Event {
    enum Kind { gotRead, gotProtect, gotWrite, promoted, leaves };
    unsigned ticket;
    int thread;
    Kind kind;
};

class StressRun {
public:
    std::vector<Event> run(int rounds, unsigned seed)
    {
        std::vector<std::vector<Event>> notes(kThreads);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] { work(t, rounds, seed + t, notes[t]); });
        for (std::thread& thread : threads)
            thread.join();
        std::vector<Event> all(ticket_.load(), Event{});
        for (std::vector<Event> const& mine : notes)
            for (Event const& event : mine)
                all[event.ticket] = event;
        return all;
    }

    std::atomic<int> wrong{0};
    long written = 0;  // guarded by the write lock
    ZReadWriteLock_6_0 lock;

private:
    void work(int t, int rounds, unsigned seed, std::vector<Event>& notes)
    {
        std::minstd_rand random(seed);
        notes.reserve(static_cast<size_t>(rounds) * 3);
        auto const note = [&](Event::Kind kind) {
            notes.push_back({ticket_.fetch_add(1, std::memory_order_relaxed), t, kind});
        };
        for (int i = 0; i < rounds; ++i) {
            unsigned const what = random() % 16;
            // Some threads hold the lock long enough for others to arrive.
            auto const stay = [&] {
                if (random() % 4 == 0)
                    std::this_thread::yield();
            };
            if (what < 9) {
                lock.readLock();
                note(Event::gotRead);
                wrong += lock.getReaderCount() < 1;
                stay();
            } else if (what < 11) {
                lock.writeLock();
                note(Event::gotWrite);
                ++written;
                wrong += lock.getReaderCount() != 0 || !lock.haveLock(kWrite);
                stay();
            } else {
                lock.readWithIntentToWriteLock();
                note(Event::gotProtect);
                wrong += !lock.haveLock(kProtect) || !lock.ownWriteLock();
                stay();
                if (what > 12) {
                    lock.promoteReadToWriteLock();
                    note(Event::promoted);
                    ++written;
                    stay();
                }
            }
            note(Event::leaves);
            release(random() % 3);
        }
    }

    void release(unsigned how)
    {
        if (how == 0)
            return lock.unlock();
        if (how == 1)
            return lock.lock(kUnset);
        ZStackReadWriteLock_6_0 const guard(lock, 1);
    }

    std::atomic<unsigned> ticket_{0};
};

// Returns the first event that differs from the model; "" if they do not.
std::string judge(std::vector<Event> const& events)
{
    Model model;
    for (Event const& event : events) {
        std::string const where = "event " + std::to_string(event.ticket) + " of thread " +
                                  std::to_string(event.thread) + ": ";
        if (event.kind == Event::leaves) {
            if (!model.mayLeave(event.thread))
                return where + "releases nothing";
            model.leave(event.thread);
        } else if (event.kind == Event::promoted) {
            // Still "protect", held by the same thread: no thread has written since.
            if (model.state != kProtect || !model.holds(event.thread) || model.readers != 0)
                return where + "is promoted although others are inside";
            model.beginPromotion();
        } else {
            State const wanted = event.kind == Event::gotRead      ? kRead
                                 : event.kind == Event::gotProtect ? kProtect
                                                                   : kWrite;
            if (!model.admits(wanted))
                return where + "is admitted although others are inside";
            model.enter(event.thread, wanted);
        }
    }
    return model.state == kUnset ? "" : "a thread never left";
}

}  // namespace

TEST(ZReadWriteLockModel, EveryActionMatchesTheModel)
{
    constexpr unsigned kSeed = 41;
    SCOPED_TRACE("seed " + std::to_string(kSeed));
    RandomRun random(kSeed);
    random.run(20000);
    EXPECT_LT(500, random.raised);
    EXPECT_LT(500, random.waited);
}

TEST(ZReadWriteLockModel, AMillionOperationsOfEightThreadsMatchTheModel)
{
    constexpr unsigned kSeed = 42;
    SCOPED_TRACE("seed " + std::to_string(kSeed));
    StressRun stress;
    std::vector<Event> const events = stress.run(60000, kSeed);
    EXPECT_LE(1000000u, events.size());
    EXPECT_EQ("", judge(events));
    EXPECT_EQ(0, stress.wrong);
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [](Event const& event) {
                                return event.kind == Event::gotWrite ||
                                       event.kind == Event::promoted;
                            }),
              stress.written);
    EXPECT_NE(0, stress.lock.haveLock(kUnset));
}

TEST(ZReadWriteLockModel, AWrongHistoryIsDetected)
{
    struct Case {
        char const* name;
        std::vector<Event> events;
    };
    Case const cases[] = {
        {"a reader during a write", {{0, 1, Event::gotWrite}, {1, 2, Event::gotRead}}},
        {"a writer during a read", {{0, 1, Event::gotRead}, {1, 2, Event::gotWrite}}},
        {"two intending writers", {{0, 1, Event::gotProtect}, {1, 2, Event::gotProtect}}},
        {"a promotion during a read",
         {{0, 1, Event::gotProtect}, {1, 2, Event::gotRead}, {2, 1, Event::promoted}}},
        {"a write before the promotion",
         {{0, 1, Event::gotProtect}, {1, 2, Event::gotWrite}, {2, 1, Event::promoted}}},
        {"a release by another thread", {{0, 1, Event::gotWrite}, {1, 2, Event::leaves}}},
        {"no release", {{0, 1, Event::gotRead}}}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_NE("", judge(c.events));
    }
    EXPECT_EQ("", judge({{0, 1, Event::gotProtect},
                         {1, 2, Event::gotRead},
                         {2, 2, Event::leaves},
                         {3, 1, Event::promoted},
                         {4, 1, Event::leaves}}));
}
