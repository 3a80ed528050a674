// Stepper: runs a function in a child process and stops the child at the entry of each system call.
// The parent can then act, make the call fail, or end the child.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

class Stepper {
public:
    // Kinds of calls. Calls of one family do the same work through different parameters, such as
    // open() and openat2(), and fail for the same causes.
    enum class Family {
        none,  // does not use a file
        open,
        look,  // stat() and similar calls
        readLink,
        rename,
        link,
        unlink,
        makeDirectory,
        read,
        write,
        cut,
        reserve,
        sync,
        owner,
        mode,
        attribute,
        times,
        lock,
        map,
        duplicate,
        fileSystem,
        workingDirectory,
        close,
        mark,  // mark() below
        other  // uses a file in another way
    };

    struct Call {
        long number = -1;
        char const* name = "";
        Family family = Family::none;
        std::string file;   // last name of the path or of the descriptor's file; "" without one
        long argument = 0;  // of a mark
    };

    /// Returns why processes cannot be single-stepped here; "" if they can.
    static std::string obstacle();

    /// Starts the child, which stops before the first call of `body`. The child ends with the
    /// result of `body` as its exit code, or by SIGALRM after `seconds`.
    explicit Stepper(std::function<int()> const& body, unsigned seconds = 10);
    Stepper(Stepper const&) = delete;
    Stepper& operator=(Stepper const&) = delete;

    /// Kills the child, unless it has ended.
    ~Stepper();

    /// Resumes the child up to the entry of its next call; returns false if it ended instead.
    bool next();

    /// Resumes the child up to its next call that uses a file; returns false if it ended instead.
    bool nextOnFiles();

    /// Returns the id of the child.
    pid_t process() const { return child_; }

    /// Returns the call at whose entry the child is stopped.
    Call const& call() const { return call_; }

    /// Makes that call fail with `error` and without effect.
    void fail(int error);

    /// Resumes the child until it ends, and returns as ended().
    int finish();

    /// Kills the child.
    void kill();

    /// Makes a call without effect that a parent sees as a call of the family `mark`.
    static void mark(long argument);

private:
    bool resume();
    void readCall();
    std::string fileOf(unsigned long long const* arguments, int pathAt, int fdAt) const;

    pid_t child_ = -1;
    int status_ = 0;   // of waitpid(), after the child has ended
    int failure_ = 0;  // of the call at which the child is stopped
    Call call_;
};

/// Returns "openat 7 (conf)" for the seventh call.
std::string describe(Stepper::Call const& call, size_t number);
