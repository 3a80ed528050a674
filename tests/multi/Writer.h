// Writer: a process that stores one generation after another, with a companion, and reports each
// store that succeeded.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>

#include "Campaign.h"
#include "Generation.h"

class Writer {
public:
    /// Starts after generation `last`. The files have 0 to `largest` bytes.
    Writer(std::string const& path, long last, size_t largest) : last_(last), largest_(largest)
    {
        if (pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0)
            throw std::bad_alloc();
        child_ = inChild([&] {
            ZStanzaFileProperties_6_0 store(1);
            Generation::prepare(store);
            store.load(path.c_str());
            for (long number = last + 1;; ++number) {
                generation(number, largest).change(store);
                store.store(nullptr);
                if (write(ends_[1], &number, sizeof number) != sizeof number)
                    return 1;
            }
        });
        close(ends_[1]);
    }
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;
    ~Writer()
    {
        if (child_ > 0)
            kill();
        close(ends_[0]);
    }

    /// Returns generation `number`. Its size is random but reproducible, and the same in its group.
    static Generation generation(long number, size_t largest)
    {
        std::minstd_rand random(static_cast<unsigned>(number - number % Generation::kGroup));
        random.discard(3);
        return {number, random() % (largest + 1), true};
    }

    /// Suspends the process until go().
    void stop()
    {
        ::kill(child_, SIGSTOP);
        int status = 0;
        waitpid(child_, &status, WUNTRACED);
        if (!WIFSTOPPED(status))
            child_ = -1;
        listen();
    }
    bool isAlive() const { return child_ > 0; }
    void go() const { ::kill(child_, SIGCONT); }

    /// Kills the process; returns false if it had ended before, because a store failed.
    bool kill()
    {
        ::kill(child_, SIGKILL);
        bool const killed = ended(child_) == 256 + SIGKILL;
        child_ = -1;
        listen();
        return killed;
    }

    Generation acknowledged() const { return generation(last_, largest_); }
    Generation inFlight() const { return generation(last_ + 1, largest_); }

private:
    void listen()
    {
        long number;
        while (read(ends_[0], &number, sizeof number) == sizeof number)
            last_ = number;
    }

    int ends_[2];
    pid_t child_ = -1;
    long last_;
    size_t const largest_;
};
