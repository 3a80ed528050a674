// LockingProcess: another process that holds a record lock on a whole file.
//
// The other process is the test program itself, run again with a switch: its main() must start with
//
//     if (LockingProcess::isWanted(argc, argv))
//         return LockingProcess::run(argv);
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "OwnProgram.h"

class LockingProcess {
public:
    // Starts the process; returns when it has the lock, of `type` F_RDLCK or F_WRLCK.
    LockingProcess(std::string const& file, short type)
        : process_(kSwitch, type == F_RDLCK ? "read" : "write", file.c_str())
    {
        char ready = 0;
        EXPECT_EQ(1, read(process_.from, &ready, 1)) << "the other process did not get the lock";
        close(process_.from);
    }
    LockingProcess(LockingProcess const&) = delete;
    LockingProcess& operator=(LockingProcess const&) = delete;

    // Ends the process, and so releases the lock.
    ~LockingProcess()
    {
        close(process_.to);
        int status = 0;
        EXPECT_EQ(process_.id, waitpid(process_.id, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    static bool isWanted(int argc, char** argv)
    {
        return argc == 4 && std::strcmp(argv[1], kSwitch) == 0;
    }

    static int run(char** argv)
    {
        bool const reads = std::strcmp(argv[2], "read") == 0;
        int const fd = open(argv[3], O_RDWR | O_CLOEXEC);
        struct flock whole = {};
        whole.l_type = reads ? F_RDLCK : F_WRLCK;
        whole.l_whence = SEEK_SET;
        if (fd < 0 || fcntl(fd, F_SETLK, &whole) != 0)
            return 1;
        char byte = 'r';
        if (::write(STDOUT_FILENO, &byte, 1) != 1)
            return 2;
        while (read(STDIN_FILENO, &byte, 1) > 0)
            continue;
        return 0;
    }

private:
    static constexpr char kSwitch[] = "--hold-lock";

    OwnProgram process_;
};
