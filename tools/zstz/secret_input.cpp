#include "secret_input.h"

#include <signal.h>
#include <stdio.h>
#include <termios.h>
#include <unistd.h>

#include "failures.h"
#include "stanza_file.h"

namespace {

// Turns terminal echo off in this scope. A terminating signal turns it on again first. SIGTSTP is
// ignored, because a stopped tool would leave echo off.
class ScopedEchoOff {
public:
    ScopedEchoOff()
    {
        if (tcgetattr(STDIN_FILENO, &saved_) != 0)
            return;
        for (int const ending : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
            if (signal(ending, showAndEnd) == SIG_IGN)
                signal(ending, SIG_IGN);
        stop_ = signal(SIGTSTP, SIG_IGN);
        termios hidden = saved_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
        isHidden_ = true;
    }
    ScopedEchoOff(ScopedEchoOff const&) = delete;
    ScopedEchoOff& operator=(ScopedEchoOff const&) = delete;
    ~ScopedEchoOff()
    {
        if (!isHidden_)
            return;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
        signal(SIGTSTP, stop_);
        fputc('\n', stderr);
    }

private:
    static void showAndEnd(int number)
    {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
        signal(number, SIG_DFL);
        raise(number);
    }

    static termios saved_;
    void (*stop_)(int) = SIG_DFL;
    bool isHidden_ = false;
};

termios ScopedEchoOff::saved_;

// Reads a line from the terminal without echo.
std::string promptForValue()
{
    ScopedEchoOff const hidden;
    fputs("value: ", stderr);
    std::string line;
    for (int c = getchar(); c != EOF && c != '\n'; c = getchar())
        line += static_cast<char>(c);
    return line;
}

// Reads standard input to its end and drops one trailing newline.
std::string readInput()
{
    std::string value = readStandardInput("the value");
    if (!value.empty() && value.back() == '\n')
        value.pop_back();
    return value;
}

}  // namespace

std::string readSecret()
{
    std::string const value = isatty(STDIN_FILENO) ? promptForValue() : readInput();
    if (value.empty())  // for example, the command before the pipe failed
        throw Failure{
            exitInvalidValue,
            "",
            {"no value on standard input", "pipe one in, or remove the key with 'zstz unset'"}};
    if (value.find('\0') != std::string::npos)
        throw Failure{
            exitInvalidValue, "standard input", {"the value has a zero byte", "remove it"}};
    return value;
}
