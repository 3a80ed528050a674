// Threads: what tests with several threads share.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <utility>

// Waits until `condition` holds, letting others run meanwhile.
inline void waitUntil(std::function<bool()> const& condition)
{
    while (!condition())
        std::this_thread::yield();
}

// Whether what another thread does is not done after a time in which it could have been.
inline bool staysBlocked(std::future<void> const& done)
{
    return done.wait_for(std::chrono::milliseconds(60)) == std::future_status::timeout;
}

// A thread that may be cancelled, which ends the process for one of std::thread's.
class CancellableThread {
public:
    explicit CancellableThread(std::function<void()> action) : action_(std::move(action))
    {
        auto const run = [](void* self) -> void* {
            static_cast<CancellableThread*>(self)->action_();
            return nullptr;
        };
        EXPECT_EQ(0, pthread_create(&id_, nullptr, run, this));
    }
    CancellableThread(CancellableThread const&) = delete;
    CancellableThread& operator=(CancellableThread const&) = delete;

    void cancel() { EXPECT_EQ(0, pthread_cancel(id_)); }

    // Waits for its end, which somebody must do. Returns whether it came by cancellation.
    bool endsCancelled()
    {
        void* result = nullptr;
        EXPECT_EQ(0, pthread_join(id_, &result));
        return result == PTHREAD_CANCELED;
    }

private:
    std::function<void()> const action_;
    pthread_t id_;
};

// Runs `action` in another thread and waits for its end.
inline void elsewhere(std::function<void()> const& action)
{
    std::thread(action).join();
}
