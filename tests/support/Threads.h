// Threads: helpers for tests with several threads.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <utility>

// Waits until `condition` holds; other threads run in the meantime.
inline void waitUntil(std::function<bool()> const& condition)
{
    while (!condition())
        std::this_thread::yield();
}

// Returns whether an action of another thread has not happened after enough time for it.
inline bool staysBlocked(std::future<void> const& done)
{
    return done.wait_for(std::chrono::milliseconds(60)) == std::future_status::timeout;
}

// A thread that can be cancelled; cancelling a std::thread would end the process.
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

    // Waits for the thread to end, which a test must do. Returns whether it was cancelled.
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

// Runs `action` in another thread and waits for it to end.
inline void elsewhere(std::function<void()> const& action)
{
    std::thread(action).join();
}
