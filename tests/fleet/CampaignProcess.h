// CampaignProcess: processes of a campaign, on hosts that can be cut off, and an object in memory
// that they share.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "FleetNetwork.h"

// An object that starts with zero bytes, in memory that a campaign and its processes share.
template <class T>
class SharedObject {
public:
    SharedObject() : fd_(memfd_create("shared", 0))
    {
        if (ftruncate(fd_, sizeof(T)) != 0)
            abort();
        map();
    }

    /// Maps the object of the campaign in a process that it has started with argument().
    explicit SharedObject(char const* argument) : fd_(atoi(argument)) { map(); }
    SharedObject(SharedObject const&) = delete;
    SharedObject& operator=(SharedObject const&) = delete;
    ~SharedObject()
    {
        munmap(object_, sizeof(T));
        close(fd_);
    }

    std::string argument() const { return std::to_string(fd_); }
    T& operator*() const { return *object_; }
    T* operator->() const { return object_; }

private:
    void map()
    {
        void* const memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        if (memory == MAP_FAILED)
            abort();
        object_ = static_cast<T*>(memory);
    }

    int const fd_;
    T* object_ = nullptr;
};

/// Starts this program again with these arguments, at a host if there is a network. The process is
/// killed when the calling thread ends. Returns its id.
inline pid_t startProcess(FleetNetwork const* network, unsigned host,
                          std::vector<std::string> const& arguments)
{
    std::vector<char*> argv{const_cast<char*>("test")};
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t const parent = getpid();
    pid_t const process = fork();
    if (process != 0)
        return process;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent || (network != nullptr && !network->join(host)))
        _exit(126);
    execv("/proc/self/exe", argv.data());
    _exit(127);
}

/// Runs the tests of a program, in a network whose hosts can be cut off if that is possible.
inline int runTestsInNetwork(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    std::string const obstacle = FleetNetwork::enter();
    if (!obstacle.empty())
        printf("no host is cut off: %s\n", obstacle.c_str());
    return RUN_ALL_TESTS();
}
