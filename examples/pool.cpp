// Adds up the squares of 1 to COUNT by a pool of sleepers that take work.
// usage: pool COUNT
#include <Z/ZException.h>
#include <Z/ZLock.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZThreadPool.h>
#include <stdio.h>
#include <stdlib.h>

namespace {

class Sum {
public:
    void add(unsigned long number)
    {
        ZResourceLock_6_0 const guard(lock_);
        total_ += number;
    }
    unsigned long total() const { return total_; }

private:
    ZLock_6_0 lock_;
    unsigned long total_ = 0;  // guarded by lock_
};

// Sleeps until it is woken, does its work, and sleeps again. The end of the thread deletes the
// object.
class Squarer : public ZSleeperThread_6_0 {
public:
    explicit Squarer(Sum& sum) : ZSleeperThread_6_0(kDetached, kAutoDelete), sum_(sum) {}

    void take(unsigned long number) { number_ = number; }
    void doWork() override { sum_.add(number_ * number_); }

    bool hasStarted = false;

private:
    static constexpr int kDetached = 1;
    static constexpr int kAutoDelete = 1;

    Sum& sum_;
    unsigned long number_ = 0;
};

// Three threads may run at the same time, and one may be parked. A parked thread is one of the
// three: if all three were parked, starting a fourth would wait forever.
class Squarers : public ZThreadPool_6_0 {
public:
    explicit Squarers(Sum& sum) : ZThreadPool_6_0(1, 3), sum_(sum) {}

    void square(unsigned long number)
    {
        ZThread_6_0* thread = nullptr;
        getAvailableIdleThread(thread);
        auto& squarer = static_cast<Squarer&>(*thread);
        squarer.take(number);
        if (!squarer.hasStarted) {
            squarer.hasStarted = true;
            start(squarer);
        }
        squarer.wakeUp();
    }

private:
    ZThread_6_0* createThread() override { return new Squarer(sum_); }

    Sum& sum_;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: pool COUNT\n", stderr);
        return 2;
    }
    try {
        unsigned long const count = strtoul(argv[1], nullptr, 10);
        Sum sum;
        Squarers squarers(sum);
        for (unsigned long number = 1; number <= count; ++number)
            squarers.square(number);
        squarers.waitForExit();
        printf("the squares of 1 to %lu add up to %lu\n", count, sum.total());
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
