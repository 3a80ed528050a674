// OwnProgram: the test program itself, run again as another process with a pipe to it and one back.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

struct OwnProgram {
    // Starts the program with three arguments; its standard input and output are the pipes. The
    // caller closes `to` and `from`, and waits for the program.
    OwnProgram(char const* first, char const* second, char const* third)
    {
        int there[2];
        int back[2];
        EXPECT_EQ(0, pipe2(there, O_CLOEXEC));
        EXPECT_EQ(0, pipe2(back, O_CLOEXEC));
        id = fork();
        if (id == 0) {
            dup2(there[0], STDIN_FILENO);
            dup2(back[1], STDOUT_FILENO);
            char self[] = "test";
            char* const arguments[] = {self, const_cast<char*>(first), const_cast<char*>(second),
                                       const_cast<char*>(third), nullptr};
            execv("/proc/self/exe", arguments);
            _exit(127);
        }
        close(there[0]);
        close(back[1]);
        to = there[1];
        from = back[0];
    }

    pid_t id;
    int to;
    int from;
};
