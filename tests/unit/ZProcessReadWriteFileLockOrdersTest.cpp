// Runs every order in which three threads can request two lock objects on one file. A small model
// predicts which requests enter, wait or fail with EDEADLK. No order may hang.
#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "LockStates.h"
#include "TestDirectory.h"
#include "Threads.h"

namespace {

using Lock = ZUnixProcessReadWriteFileLock_6_0;

constexpr int kThreads = 3;
constexpr std::array<int, kThreads> kAll = {0, 1, 2};
constexpr int kObjects = 2;
constexpr int kSteps = 2;  // acquisitions of each thread
constexpr int kNone = -1;

enum Outcome { entered, waits, deadlock, refused };

struct Step {
    int thread;
    int object;
    State state;
    auto operator<=>(Step const&) const = default;
};

std::string textOf(std::vector<Step> const& steps)
{
    std::string text;
    for (Step const& step : steps)
        text += std::to_string(step.thread) + ":" + "AB"[step.object] +
                (step.state == kRead ? "r " : "w ");
    return text;
}

// ---- The model ---------------------------------------------------------------------------------

// Computes the states up to the first release. A thread acquires, in this order, the lock between
// the threads of an object, the object's file mutex, the gate and the data; it waits at one of
// them.
class Model {
public:
    Outcome ask(Step const& step)
    {
        Object& object = objects_[step.object];
        if (object.writer == step.thread)
            return refused;
        if (cycles(step, betweenThreads(step)))
            return deadlock;
        if (!holders(step.object, step.state).empty())
            return wait(step, Place::object);
        if (object.entering != kNone)
            return enter(step), wait(step, Place::file);
        if (!object.locked) {
            if (gate_ != kNone) {
                if (cycles(step, {gate_}))
                    return deadlock;
                object.entering = step.thread;
                return enter(step), wait(step, Place::gate);
            }
            std::vector<int> const readers = holders(1 - step.object, step.state);
            if (!readers.empty()) {
                if (cycles(step, readers))
                    return deadlock;
                object.entering = step.thread;
                gate_ = step.thread;
                return enter(step), wait(step, Place::data);
            }
            object.locked = true;
            if (step.state == kWrite)
                gate_ = step.thread;
        }
        enter(step);
        return entered;
    }

    bool isWaiting(int thread) const { return waiting_[thread].place != Place::none; }

private:
    enum class Place { none, object, file, gate, data };
    struct Object {
        int writer = kNone;
        std::vector<int> readers;
        int entering = kNone;  // waits for the gate or the data
        bool locked = false;   // the object has locked the file
    };
    struct Wait {
        Place place = Place::none;
        Step step{};
    };

    // The threads that hold the object in conflict with `state`.
    std::vector<int> holders(int index, State state) const
    {
        Object const& object = objects_[index];
        if (object.writer != kNone)
            return {object.writer};
        return state == kWrite ? object.readers : std::vector<int>();
    }

    std::vector<int> betweenThreads(Step const& step) const
    {
        std::vector<int> found = holders(step.object, step.state);
        Object const& object = objects_[step.object];
        Object const& next = objects_[1 - step.object];
        // The threads that it would wait for next, whichever thread releases here.
        if (!found.empty() && (object.locked || object.entering != kNone) &&
            (next.locked || (gate_ != kNone && gate_ == next.entering)))
            for (int const thread : holders(1 - step.object, step.state))
                found.push_back(thread);
        if (object.entering != kNone)
            found.push_back(object.entering);
        return found;
    }

    std::vector<int> awaited(Wait const& wait) const
    {
        switch (wait.place) {
            case Place::none:
                return {};
            case Place::object:
                return betweenThreads(wait.step);
            case Place::file:
                return {objects_[wait.step.object].entering};
            case Place::gate:
                return {gate_};
            case Place::data:
                return holders(1 - wait.step.object, wait.step.state);
        }
        return {};
    }

    bool cycles(Step const& step, std::vector<int> due) const
    {
        std::set<int> seen;
        while (!due.empty()) {
            int const thread = due.back();
            due.pop_back();
            if (thread == step.thread)
                return true;
            if (seen.insert(thread).second)
                for (int const next : awaited(waiting_[thread]))
                    due.push_back(next);
        }
        return false;
    }

    Outcome wait(Step const& step, Place place)
    {
        waiting_[step.thread] = {place, step};
        return waits;
    }

    void enter(Step const& step)
    {
        if (step.state == kWrite)
            objects_[step.object].writer = step.thread;
        else
            objects_[step.object].readers.push_back(step.thread);
    }

    std::array<Object, kObjects> objects_;
    std::array<Wait, kThreads> waiting_;
    int gate_ = kNone;
};

// ---- The real threads --------------------------------------------------------------------------

// A thread that performs one step after another.
class Worker {
public:
    explicit Worker(std::array<Lock*, kObjects> const& locks)
        : locks_(locks), thread_([this] { work(); })
    {
    }
    ~Worker()
    {
        order([] {}, true);
        thread_.join();
    }

    void ask(int object, State state)
    {
        order([=, this] {
            try {
                locks_[object]->lock(state);
                held_.push_back(object);
                outcome_ = entered;
            } catch (ZLockResourceException_6_0 const& e) {
                bool const isDeadlock = e.messageNumber() == 33 && e.returnCode() == EDEADLK;
                outcome_ = isDeadlock ? deadlock : refused;
            }
        });
    }

    void releaseAll()
    {
        order([this] {
            for (int const object : held_)
                locks_[object]->unlock(0);
            held_.clear();
        });
    }

    // Waits for the end of the step, up to a time limit.
    bool isDone(std::chrono::seconds within = kHangs)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, within, [this] { return action_ == nullptr; });
    }
    Outcome outcome() const { return outcome_; }
    bool holdsNothing() const { return held_.empty(); }

    // Waits until the thread sleeps in its step. Returns false if the step ends instead.
    bool sleeps()
    {
        while (!isDone(std::chrono::seconds(0))) {
            if (watched_.isAsleep())
                return !isDone(std::chrono::seconds(0));
            std::this_thread::yield();
        }
        return false;
    }

private:
    void order(std::function<void()> action, bool last = false)
    {
        std::lock_guard<std::mutex> guard(mutex_);
        action_ = std::move(action);
        last_ = last;
        changed_.notify_all();
    }

    void work()
    {
        watched_.enter();
        std::unique_lock<std::mutex> guard(mutex_);
        while (!last_) {
            changed_.wait(guard, [this] { return action_ != nullptr; });
            std::function<void()> const& action = action_;
            guard.unlock();
            action();
            guard.lock();
            action_ = nullptr;
            changed_.notify_all();
        }
    }

    std::array<Lock*, kObjects> const locks_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> action_;  // null between steps
    bool last_ = false;
    WatchedThread watched_;
    std::vector<int> held_;
    Outcome outcome_ = entered;
    std::thread thread_;
};

// Calls `visit` with each order. A waiting thread makes no further request. Orders that differ only
// by the names of threads and objects are visited once.
template <class Visit>
void forEachOrder(Visit visit)
{
    std::set<std::vector<Step>> seen;
    std::vector<Step> steps;
    auto const extend = [&](auto const& self, std::array<int, kThreads> left) -> void {
        bool ended = true;
        for (int thread = 0; thread < kThreads; ++thread) {
            bool const isNew = left[thread] == kSteps;
            if (left[thread] == 0 || (thread > 0 && isNew && left[thread - 1] == kSteps))
                continue;
            for (int object = 0; object < (steps.empty() ? 1 : kObjects); ++object)
                for (State const state : {kRead, kWrite}) {
                    Model model;
                    for (Step const& step : steps)
                        model.ask(step);
                    if (model.isWaiting(thread))
                        continue;
                    ended = false;
                    steps.push_back({thread, object, state});
                    auto rest = left;
                    --rest[thread];
                    self(self, rest);
                    steps.pop_back();
                }
        }
        if (ended && seen.insert(steps).second)
            visit(steps);
    };
    std::array<int, kThreads> all;
    all.fill(kSteps);
    extend(extend, all);
}

}  // namespace

TEST(ZProcessReadWriteFileLockOrders, ThreadThatWouldWaitForItselfGetsDeadlockInEveryOrder)
{
    TestDirectory const directory(TestDirectory::Place::memory);
    Lock first(directory.path().c_str(), "a");
    Lock second(directory.path().c_str(), "a");
    std::array<Lock*, kObjects> const locks = {&first, &second};
    std::vector<std::unique_ptr<Worker>> workers;
    for (int i = 0; i < kThreads; ++i)
        workers.push_back(std::make_unique<Worker>(locks));

    // A thread that hangs cannot be joined.
    auto const expect = [](bool isAsExpected, std::vector<Step> const& steps, char const* what) {
        if (isAsExpected)
            return;
        fprintf(stderr, "%s after %s\n", what, textOf(steps).c_str());
        _exit(1);
    };
    std::array<int, 4> count{};
    int orders = 0;
    forEachOrder([&](std::vector<Step> const& order) {
        ++orders;
        Model model;
        std::vector<Step> done;
        std::array<bool, kThreads> waiting{};
        for (Step const& step : order) {
            done.push_back(step);
            Outcome const expected = model.ask(step);
            ++count[expected];
            Worker& worker = *workers[step.thread];
            worker.ask(step.object, step.state);
            waiting[step.thread] = expected == waits;
            if (expected == waits) {
                expect(worker.sleeps(), done, "should wait");
                continue;
            }
            expect(worker.isDone(), done, "hangs");
            expect(worker.outcome() == expected, done, "unexpected outcome");
        }
        for (int thread = 0; thread < kThreads; ++thread)
            if (!waiting[thread])
                workers[thread]->releaseAll();
        // A thread that enters now releases immediately, for the next one.
        auto const end = std::chrono::steady_clock::now() + kHangs;
        auto const isWaiting = [&](int thread) { return waiting[thread]; };
        while (std::any_of(kAll.begin(), kAll.end(), isWaiting)) {
            expect(std::chrono::steady_clock::now() < end, done, "hangs although others released");
            for (int const thread : kAll) {
                Worker& worker = *workers[thread];
                if (!waiting[thread] || !worker.isDone(std::chrono::seconds(0)))
                    continue;
                expect(worker.outcome() == entered || !worker.holdsNothing(), done,
                       "deadlock although it holds nothing");
                worker.releaseAll();
                waiting[thread] = false;
            }
            std::this_thread::yield();
        }
        for (auto const& worker : workers)
            expect(worker->isDone(), done, "cannot release");
        for (Lock* const lock : locks)
            expect(lock->getLockState() == kUnset && lock->getReaderCount() == 0, done, "held");
    });
    RecordProperty("orders", orders);
    printf("%d orders: %d held, %d wait, %d deadlocks, %d refused\n", orders, count[entered],
           count[waits], count[deadlock], count[refused]);
    EXPECT_LT(1000, count[deadlock]);
}
