// HelperThread: a thread that runs functions for other threads.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

class HelperThread {
public:
    HelperThread() : thread_([this] { serve(); }) {}
    HelperThread(HelperThread const&) = delete;
    HelperThread& operator=(HelperThread const&) = delete;
    ~HelperThread()
    {
        run([this] { isOver_ = true; });
        thread_.join();
    }

    /// Runs `work`, and returns after its end.
    void run(std::function<void()> const& work)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait(guard, [this] { return work_ == nullptr; });
        work_ = &work;
        changed_.notify_all();
        changed_.wait(guard, [&] { return work_ != &work; });
    }

private:
    void serve()
    {
        std::unique_lock<std::mutex> guard(mutex_);
        while (!isOver_) {
            changed_.wait(guard, [this] { return work_ != nullptr; });
            (*work_)();
            work_ = nullptr;
            changed_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> const* work_ = nullptr;  // guarded by mutex_
    bool isOver_ = false;                          // guarded by mutex_
    std::thread thread_;
};
