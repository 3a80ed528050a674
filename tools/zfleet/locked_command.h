// locked_command: a command that starts when its lock is held.
//
// Its process is created before the tool calls the cluster: a child of a process with threads of
// gRPC must not allocate memory. Until start() it waits at a pipe, and it ends with the tool.
#pragma once

#include <signal.h>
#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

class LockedCommand {
public:
    /// Creates the process, with the signal handlers and the signal mask of the caller.
    /// throws  Failure.
    explicit LockedCommand(std::vector<std::string> const& command);
    LockedCommand(LockedCommand const&) = delete;
    LockedCommand& operator=(LockedCommand const&) = delete;

    /// Ends the process, unless it has been started.
    ~LockedCommand();

    /// Executes the command, with the token in the variable ZFLEETTOKEN. Blocks the signals that
    /// wait() forwards, in the calling thread and in the threads that it starts later.
    void start(int64_t token);

    /// Forwards signals to the command until it ends; returns its exit code: 128 plus the number of
    /// a signal that ended it, 126 or 127 if it could not be executed, after a report.
    /// `mustEnd` is asked after each signal, SIGCHLD included: the command is terminated once if it
    /// returns true.
    int wait(std::function<bool()> const& mustEnd);

private:
    std::vector<std::string> const command_;
    int orders_ = -1;     // the pipe to the process
    int errors_ = -1;     // the pipe from the process; closed when it executes the command
    pid_t process_ = -1;  // -1: it has ended
    sigset_t awaited_;
};
