// Threads: helpers for tests with several threads.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>

// The time after which a thread or process hangs, however slow and busy the machine is.
inline constexpr std::chrono::seconds kHangs(300);

// Waits until `condition` holds; other threads run in the meantime.
inline void waitUntil(std::function<bool()> const& condition)
{
    while (!condition())
        std::this_thread::yield();
}

// The state of another thread, or of a child process, as the kernel reports it.
class WatchedThread {
public:
    WatchedThread() = default;
    explicit WatchedThread(pid_t child) : id_(child) {}

    // Called by the thread.
    void enter() { id_ = gettid(); }

    // Returns whether the thread has called enter() and sleeps.
    bool isAsleep() const { return id_ != 0 && state() == 'S'; }

    // Waits until the thread has called enter() and then sleeps, or has ended.
    void waitUntilAsleep() const
    {
        waitUntil([this] { return isAsleep() || hasEnded(); });
    }

    // Waits until the thread has called enter() and has ended.
    void waitUntilEnded() const
    {
        waitUntil([this] { return hasEnded(); });
    }

    // Returns whether the thread has called enter() and has ended.
    bool hasEnded() const
    {
        if (id_ == 0)
            return false;
        char const now = state();
        return now == '\0' || now == 'Z' || now == 'X';
    }

private:
    // Returns '\0' if the thread no longer exists.
    char state() const
    {
        // The entry of the task: an emulator replaces the entry of its own process.
        std::string const id = std::to_string(id_);
        std::ifstream in("/proc/" + id + "/task/" + id + "/stat");
        std::string text;
        std::getline(in, text);
        size_t const name = text.rfind(") ");
        return name != std::string::npos ? text[name + 2] : '\0';
    }

    std::atomic<pid_t> id_{0};
};

// Returns whether an action of another thread has not happened after enough time for it.
inline bool staysBlocked(std::future<void> const& done)
{
    return done.wait_for(std::chrono::milliseconds(60)) == std::future_status::timeout;
}

// Starts `action` in another thread, which `thread` watches.
inline std::future<void> startWatched(WatchedThread& thread, std::function<void()> action)
{
    return std::async(std::launch::async, [&thread, action = std::move(action)] {
        thread.enter();
        action();
    });
}

// Waits until the thread sleeps in its action. Returns whether the action has not ended then, nor
// after enough time for it.
inline bool staysBlocked(WatchedThread const& thread, std::future<void> const& done)
{
    thread.waitUntilAsleep();
    return staysBlocked(done);
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

// Runs `action` in another thread and waits for it to end. Rethrows its exception.
inline void elsewhere(std::function<void()> const& action)
{
    std::async(std::launch::async, action).get();
}
