// Stresses locks, conditions, threads and the pool with many threads, signals and cancellations,
// and checks that they keep their promises.
// usage: thread_storm [--seconds N] [--threads N] [--acquisitions N] [--cancellations N]
//
// - Stress: all threads acquire all kinds of locks in all ways for a time. Each lock guards two
//   numbers that differ only while a writer is at work; under ThreadSanitizer they also reveal a
//   missing lock.
// - Signals: threads that acquire locks get a signal every millisecond, without SA_RESTART. Each
//   acquisition returns with the lock held; no wake-up of a condition is lost.
// - Cancellations: threads of all kinds are cancelled at random moments. Afterwards nothing is
//   locked, no slot of the pool is taken, and no new descriptor is open.
#include <Z/ZCondition.h>
#include <Z/ZException.h>
#include <Z/ZLock.h>
#include <Z/ZObserver.h>
#include <Z/ZReadWriteLock.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZThread.h>
#include <Z/ZThreadPool.h>
#include <dirent.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "NotedMessages.h"

namespace {

using Clock = std::chrono::steady_clock;
using Lock = ZReadWriteLock_6_0;

std::atomic<long> faults{0};

void fault(char const* what)
{
    if (++faults <= 20)
        std::fprintf(stderr, "FAULT: %s\n", what);
}

// Two numbers that are equal unless a writer is changing them.
class Pair {
public:
    void raise()
    {
        ++one_;
        ++other_;
    }
    void look() const
    {
        if (one_ != other_)
            fault("two numbers differ under a lock");
    }

private:
    long one_ = 0;
    long other_ = 0;
};

// ---- Stress ----------------------------------------------------------------------------------

class Stress {
public:
    long run(int threads, std::chrono::seconds time)
    {
        end_ = Clock::now() + time;
        std::vector<std::thread> all;
        for (int t = 0; t < threads; ++t)
            all.emplace_back([this, t] { work(static_cast<unsigned>(t)); });
        for (std::thread& thread : all)
            thread.join();
        return operations_;
    }

private:
    static constexpr unsigned kLocks = 4;

    class Listener final : public ZObserverInterface_6_0 {
    public:
        void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override
        {
            ++notifications;
        }
        std::atomic<long> notifications{0};
    };

    void work(unsigned seed)
    {
        std::minstd_rand random(seed + 1);
        long operations = 0;
        Listener listener;
        while (Clock::now() < end_)
            for (int i = 0; i < 200; ++i)
                operations += once(random(), listener);
        observed_.deleteObserver(&listener);
        ready_.broadcast();
        operations_ += operations;
    }

    int once(unsigned number, Listener& listener)
    {
        unsigned const which = number / 64 % kLocks;
        Lock& shared = sharedLocks_[which];
        Pair& guarded = shared_[which];
        switch (number % 16) {
            case 0:
            case 1:
            case 2:
                return nest(which);
            case 3:
                return both(which);
            case 4:
                return write(shared, guarded, false);
            case 5:
                return write(shared, guarded, true);
            case 6:
                return signal();
            case 7:
                return await();
            case 8:
                return observe(listener, number);
            default:
                shared.readLock();
                guarded.look();
                shared.unlock();
                return 1;
        }
    }

    int nest(unsigned which)
    {
        ZResourceLock_6_0 const outer(locks_[which]);
        ZResourceLock_6_0 const inner(locks_[which]);
        pairs_[which].look();
        pairs_[which].raise();
        return 2;
    }

    // Two locks, always in the same order.
    int both(unsigned which)
    {
        unsigned const next = (which + 1) % kLocks;
        ZResourceLock_6_0 const first(locks_[std::min(which, next)]);
        ZResourceLock_6_0 const second(locks_[std::max(which, next)]);
        pairs_[which].raise();
        pairs_[next].raise();
        return 2;
    }

    static int write(Lock& shared, Pair& guarded, bool promotes)
    {
        ZStackReadWriteLock_6_0 guard(shared, 0);
        if (promotes) {
            guard.readWithIntentToWriteLock();
            guarded.look();
            guard.promoteReadToWriteLock();
        } else {
            guard.writeLock();
        }
        guarded.look();
        guarded.raise();
        return promotes ? 2 : 1;
    }

    int signal()
    {
        ZResourceLock_6_0 const guard(*ready_.getResource());
        ++waiting_;
        ready_.signal();
        return 1;
    }

    // Consumes a signal of another thread; waits for it unless too many threads wait already.
    int await()
    {
        ZResourceLock_6_0 const guard(*ready_.getResource());
        if (waiters_ < 4) {
            ++waiters_;
            int timedOut = 0;
            if (waiting_ == 0 && Clock::now() < end_)
                ready_.wait(1, timedOut);
            --waiters_;
        }
        if (waiting_ > 0)
            --waiting_;
        return 1;
    }

    int observe(Listener& listener, unsigned number)
    {
        observed_.addObserver(&listener);
        if (number % 256 < 16)
            observed_.notifyObservers(ZSequenceUpdate_6_0(1, 0));
        observed_.deleteObserver(&listener);
        return 1;
    }

    Clock::time_point end_;
    std::atomic<long> operations_{0};
    ZLock_6_0 locks_[kLocks];
    Pair pairs_[kLocks];  // guarded by locks_
    Lock sharedLocks_[kLocks];
    Pair shared_[kLocks];  // guarded by sharedLocks_
    ZCondition_6_0 ready_;
    int waiting_ = 0;  // guarded by ready_'s lock
    int waiters_ = 0;  // guarded by ready_'s lock
    Lock observed_;    // for its observers
};

// ---- Signals ---------------------------------------------------------------------------------

std::atomic<long> signals{0};

void interrupt(long acquisitions)
{
    struct sigaction action = {};
    action.sa_handler = [](int) { ++signals; };
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);

    constexpr int kThreads = 4;
    ZLock_6_0 lock;
    Pair locked;
    Lock shared;
    Pair sharedPair;
    ZCondition_6_0 turn;
    int whose = 0;
    auto const work = [&](int me) {
        for (long i = 0; i < acquisitions / kThreads / 5; ++i) {
            {
                ZResourceLock_6_0 const guard(lock);
                locked.raise();
            }
            {
                ZStackReadWriteLock_6_0 guard(shared, 0);
                guard.readLock();
                sharedPair.look();
            }
            {
                ZStackReadWriteLock_6_0 guard(shared, 0);
                guard.readWithIntentToWriteLock();
                sharedPair.look();
                guard.promoteReadToWriteLock();
                sharedPair.raise();
            }
            ZResourceLock_6_0 const guard(*turn.getResource());
            while (whose != me)
                turn.wait();
            whose = (me + 1) % kThreads;
            turn.broadcast();
        }
    };
    std::vector<std::thread> threads;
    std::atomic<int> ended{0};
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            try {
                work(t);
            } catch (ZException_6_0 const&) {
                fault("an acquisition was interrupted");
            }
            ++ended;
        });
    while (ended < kThreads) {
        for (std::thread& thread : threads)
            pthread_kill(thread.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (std::thread& thread : threads)
        thread.join();
    if (shared.haveLock(Lock::unset) == 0)
        fault("a lock is held after the signals");
    if (signals == 0)
        fault("no signal arrived");
}

// ---- Cancellations ---------------------------------------------------------------------------

int openDescriptors()
{
    int count = 0;
    DIR* const directory = opendir("/proc/self/fd");
    while (directory != nullptr && readdir(directory) != nullptr)
        ++count;
    closedir(directory);
    return count;
}

// The work of threads until they are cancelled.
struct Scene {
    ZLock_6_0 lock;
    Pair locked;
    Lock shared;
    Pair sharedPair;
    ZCondition_6_0 condition;

    void play(std::minstd_rand& random)
    {
        unsigned const number = random();
        switch (number % 5) {
            case 0: {
                ZResourceLock_6_0 const guard(lock);
                locked.raise();
                ZResourceLock_6_0 const inner(lock);
                break;
            }
            case 1: {
                ZStackReadWriteLock_6_0 guard(shared, 0);
                guard.readLock();
                sharedPair.look();
                pthread_testcancel();
                break;
            }
            case 2: {
                ZStackReadWriteLock_6_0 guard(shared, 0);
                guard.writeLock();
                sharedPair.raise();
                // Do not sleep: ThreadSanitizer loses track of a thread that is cancelled in a
                // sleep.
                for (unsigned i = 0; i < number % 8; ++i) {
                    std::this_thread::yield();
                    pthread_testcancel();
                }
                break;
            }
            case 3: {
                ZStackReadWriteLock_6_0 guard(shared, 0);
                guard.readWithIntentToWriteLock();
                guard.promoteReadToWriteLock();
                sharedPair.raise();
                break;
            }
            default: {
                ZResourceLock_6_0 const guard(*condition.getResource());
                ZResourceLock_6_0 const again(*condition.getResource());
                if (number % 3 != 0)
                    condition.wait();
                else
                    condition.signal();
                break;
            }
        }
        pthread_testcancel();
    }

    void expectFree()
    {
        if (shared.haveLock(Lock::unset) == 0)
            fault("a read-write lock is held after a cancellation");
        // If one of these were held, this would wait until the alarm ends the program.
        ZResourceLock_6_0 const lockGuard(lock);
        ZResourceLock_6_0 const conditionGuard(*condition.getResource());
        locked.look();
        sharedPair.look();
    }
};

class Player : public ZThread_6_0 {
public:
    Player(Scene& scene, unsigned seed) : ZThread_6_0(0, 0), scene_(scene), random_(seed) {}
    void run() override
    {
        for (;;)
            scene_.play(random_);
    }
    void exit() override { ++exits; }
    int exits = 0;

private:
    Scene& scene_;
    std::minstd_rand random_;
};

class Sleeper : public ZSleeperThread_6_0 {
public:
    Sleeper(Scene& scene, unsigned seed) : scene_(scene), random_(seed) {}
    void doWork() override
    {
        for (int i = 0; i < 3; ++i)
            scene_.play(random_);
    }

private:
    Scene& scene_;
    std::minstd_rand random_;
};

void cancelAtRandom(int rounds)
{
    NotedMessages const quiet;
    int const before = openDescriptors();
    std::minstd_rand random(5);
    for (int round = 0; round < rounds; ++round) {
        alarm(120);
        Scene scene;
        ZThreadPool_6_0 pool(1, 4);
        std::vector<std::unique_ptr<Player>> players;
        for (int i = 0; i < 3; ++i) {
            players.push_back(std::make_unique<Player>(scene, random()));
            pool.start(*players.back());
        }
        Sleeper sleeper(scene, random());
        pool.start(sleeper);
        sleeper.wakeUp();
        usleep(random() % 300);
        // Cancel them one after another, so that the remaining threads use the locks after each
        // cancellation.
        for (auto const& player : players) {
            pthread_cancel(player->getPThreadID());
            usleep(random() % 100);
        }
        pthread_cancel(sleeper.getPThreadID());
        for (auto const& player : players) {
            player->waitForExit();
            if (player->exits != 1)
                fault("a cancelled thread did not call exit()");
        }
        sleeper.ZThread_6_0::waitForExit();
        pool.waitForExit();
        scene.expectFree();
    }
    alarm(0);
    if (openDescriptors() != before)
        fault("a descriptor was left open");
}

}  // namespace

int main(int argc, char** argv)
{
    long seconds = 2;
    long threads = 32;
    long acquisitions = 100000;
    long cancellations = 300;
    struct Option {
        char const* name;
        long& value;
    };
    Option const options[] = {{"--seconds", seconds},
                              {"--threads", threads},
                              {"--acquisitions", acquisitions},
                              {"--cancellations", cancellations}};
    for (int i = 1; i < argc; i += 2) {
        bool known = false;
        for (Option const& option : options)
            if (i + 1 < argc && std::strcmp(argv[i], option.name) == 0) {
                option.value = std::atol(argv[i + 1]);
                known = true;
            }
        if (!known) {
            std::fprintf(stderr,
                         "usage: %s [--seconds N] [--threads N] [--acquisitions N]"
                         " [--cancellations N]\n",
                         argv[0]);
            return 2;
        }
    }
    if (seconds > 0)
        std::printf("stress: %ld operations of %ld threads in %ld s\n",
                    Stress().run(static_cast<int>(threads), std::chrono::seconds(seconds)), threads,
                    seconds);
    if (acquisitions > 0) {
        interrupt(acquisitions);
        std::printf("signals: %ld acquisitions, %ld signals\n", acquisitions, signals.load());
    }
    cancelAtRandom(static_cast<int>(cancellations));
    std::printf("cancellations: %ld rounds\n", cancellations);
    std::printf("%ld faults\n", faults.load());
    return faults == 0 ? 0 : 1;
}
