// Threads: what tests with several threads share.
#pragma once

#include <functional>
#include <thread>

// Waits until `condition` holds, letting others run meanwhile.
inline void waitUntil(std::function<bool()> const& condition)
{
    while (!condition())
        std::this_thread::yield();
}

// Runs `action` in another thread and waits for its end.
inline void elsewhere(std::function<void()> const& action)
{
    std::thread(action).join();
}
