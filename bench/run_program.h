// run_program: runs a program and waits for its end.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

// Runs a program without output. Returns false if the program does not exist or fails.
// range   the first argument is the program; no null at the end.
inline bool runProgram(std::vector<char const*> arguments)
{
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child;
    int status = -1;
    if (posix_spawnp(&child, arguments[0], &actions, nullptr,
                     const_cast<char* const*>(arguments.data()), environ) == 0)
        waitpid(child, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0;
}
