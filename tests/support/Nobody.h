// Nobody: runs a piece of a test without the rights of root.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

// Runs `body` in a child process, as the user "nobody" if the test itself is root; expects it to
// return true and to throw nothing.
template <class Body>
void asNobody(Body const& body)
{
    constexpr unsigned kNobody = 65534;
    pid_t const child = fork();
    if (child == 0) {
        if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0))
            _exit(9);
        bool isGood = false;
        try {
            isGood = body();
        } catch (...) {
            fputs("an exception ends the child\n", stderr);
        }
        _exit(isGood ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}
