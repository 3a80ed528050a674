#include "locked_command.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include "failures.h"

namespace {

// Exit codes if the command could not run or was killed, as in a shell.
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;
constexpr int kBySignal = 128;

// Each except SIGCHLD is forwarded to the command.
constexpr int kAwaitedSignals[] = {SIGCHLD, SIGHUP,  SIGINT,  SIGQUIT,
                                   SIGTERM, SIGUSR1, SIGUSR2, SIGALRM};

// Ignores a signal in this scope.
class ScopedIgnore {
public:
    explicit ScopedIgnore(int number) : number_(number), before_(signal(number, SIG_IGN)) {}
    ScopedIgnore(ScopedIgnore const&) = delete;
    ScopedIgnore& operator=(ScopedIgnore const&) = delete;
    ~ScopedIgnore() { signal(number_, before_); }

private:
    int const number_;
    void (*const before_)(int);
};

[[noreturn]] void throwCannotStart(std::string const& command, int error)
{
    throw Failure{exitNoAccess,
                  command,
                  {std::string("cannot start a process: ") + strerror(error),
                   "check the limits on processes and open files"}};
}

// Reads or writes a number. Returns whether it was transferred.
template <class Number, class Call>
bool transfer(int fd, Number* number, Call call)
{
    ssize_t length;
    do
        length = call(fd, number, sizeof *number);
    while (length < 0 && errno == EINTR);
    return length == sizeof *number;
}

// Waits for the token, then executes the command. On failure writes the errno to `errors`.
[[noreturn]] void runChild(std::vector<std::string> const& command, pid_t tool, int orders,
                           int errors)
{
    // The command must not run without the lock, which the tool keeps.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    int64_t token = 0;
    if (getppid() != tool || !transfer(orders, &token, read))
        _exit(kBySignal + SIGTERM);
    setenv("ZFLEETTOKEN", std::to_string(token).c_str(), 1);
    std::vector<char*> arguments;
    for (std::string const& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    int error = errno;
    transfer(errors, &error,
             [](int fd, int* number, size_t size) { return write(fd, number, size); });
    _exit(error == ENOENT ? kNotFound : kCannotRun);
}

}  // namespace

LockedCommand::LockedCommand(std::vector<std::string> const& command) : command_(command)
{
    sigemptyset(&awaited_);
    for (int const number : kAwaitedSignals)
        sigaddset(&awaited_, number);
    pid_t const tool = getpid();
    int orders[2];
    int errors[2];
    if (pipe2(orders, O_CLOEXEC) != 0)
        throwCannotStart(command_[0], errno);
    if (pipe2(errors, O_CLOEXEC) != 0) {
        int const error = errno;
        close(orders[0]);
        close(orders[1]);
        throwCannotStart(command_[0], error);
    }
    fflush(nullptr);
    process_ = fork();
    int const error = errno;
    if (process_ == 0) {
        close(orders[1]);  // else it would never see the end of the tool
        runChild(command_, tool, orders[0], errors[1]);
    }
    close(orders[0]);
    close(errors[1]);
    orders_ = orders[1];
    errors_ = errors[0];
    if (process_ < 0) {
        close(orders_);
        close(errors_);
        throwCannotStart(command_[0], error);
    }
}

LockedCommand::~LockedCommand()
{
    if (orders_ >= 0)
        close(orders_);  // without an order, the process ends
    close(errors_);
    while (process_ > 0 && waitpid(process_, nullptr, 0) < 0 && errno == EINTR)
        continue;
}

void LockedCommand::start(int64_t token)
{
    pthread_sigmask(SIG_BLOCK, &awaited_, nullptr);
    // If SIGCHLD were ignored, the kernel would discard the exit status.
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &action, nullptr);
    ScopedIgnore const noPipe(SIGPIPE);  // wait() reports a process that was killed
    transfer(orders_, &token,
             [](int fd, int64_t* number, size_t size) { return write(fd, number, size); });
    close(std::exchange(orders_, -1));
}

int LockedCommand::wait(std::function<bool()> const& mustEnd)
{
    int error = 0;
    bool const hasFailed = transfer(errors_, &error, read);
    bool isTerminated = false;
    for (;;) {
        int status;
        if (waitpid(process_, &status, WNOHANG) == process_) {
            process_ = -1;
            if (hasFailed)
                report({exitNoAccess,
                        command_[0],
                        {std::string("cannot run: ") + strerror(error),
                         "check its name and permissions"}});
            return WIFSIGNALED(status) ? kBySignal + WTERMSIG(status) : WEXITSTATUS(status);
        }
        if (!isTerminated && mustEnd()) {
            isTerminated = true;
            kill(process_, SIGTERM);
        }
        siginfo_t info;
        int const number = sigwaitinfo(&awaited_, &info);
        // The terminal sends its signals (SI_KERNEL) to the command as well.
        if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL)
            kill(process_, number);
    }
}
