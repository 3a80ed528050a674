// OtherLocker: another process that uses a process lock on command.
//
// The other process is the test program itself, run again with a switch: its main() must start with
//
//     if (OtherLocker::isWanted(argc, argv))
//         return OtherLocker::run(argv);
#pragma once

#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>

#include "OwnProgram.h"
#include "Threads.h"

class OtherLocker {
public:
    OtherLocker(std::string const& directory, std::string const& name)
        : process_(kSwitch, directory.c_str(), name.c_str())
    {
    }
    OtherLocker(OtherLocker const&) = delete;
    OtherLocker& operator=(OtherLocker const&) = delete;

    // Closes the pipe, so that the process exits.
    ~OtherLocker()
    {
        close(process_.to);
        close(process_.from);
        if (process_.id > 0)
            waitpid(process_.id, nullptr, 0);
    }

    // Sends a command, which is one letter:
    //   r read, w write, p protect, u unlock, n unlock without update, o start to observe.
    void order(char letter) { EXPECT_EQ(1, write(process_.to, &letter, 1)); }

    // Returns the reply to the oldest command: the state, the sequence number and the changes
    // reported to the observer so far; or the message number and the rc of an exception. "" if no
    // reply arrives in time.
    std::string answer(std::chrono::milliseconds within = kHangs)
    {
        std::string line;
        pollfd ready = {process_.from, POLLIN, 0};
        auto const milliseconds = static_cast<int>(within.count());
        char c = 0;
        while (poll(&ready, 1, milliseconds) == 1 && read(process_.from, &c, 1) == 1 && c != '\n')
            line += c;
        return line;
    }

    std::string does(char letter)
    {
        order(letter);
        return answer();
    }

    // Waits until the process sleeps in the oldest command. Returns whether no reply has arrived
    // then, and none arrives soon.
    bool waits()
    {
        WatchedThread const process(process_.id);
        waitUntil([&] {
            int unread = 0;
            return (ioctl(process_.to, FIONREAD, &unread) == 0 && unread == 0) ||
                   process.hasEnded();
        });
        process.waitUntilAsleep();
        return answer(std::chrono::milliseconds(60)).empty();
    }

    // Kills the process and waits for its end.
    void kill()
    {
        ::kill(process_.id, SIGKILL);
        waitpid(process_.id, nullptr, 0);
        process_.id = -1;
    }

    pid_t id() const { return process_.id; }

    static bool isWanted(int argc, char** argv)
    {
        return argc == 4 && std::strcmp(argv[1], kSwitch) == 0;
    }

    static int run(char** argv)
    {
        struct Observer final : ZObserverInterface_6_0 {
            std::string changes;
            void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
            {
                auto const& change = static_cast<ZSequenceUpdate_6_0 const&>(parm);
                changes += " " + std::to_string(change.getLastSequence()) + ">" +
                           std::to_string(change.getSequence());
            }
        } observer;
        // The handler makes SIGUSR1 interrupt a call.
        struct sigaction handler = {};
        handler.sa_handler = [](int) {};
        sigaction(SIGUSR1, &handler, nullptr);

        ZUnixProcessReadWriteFileLock_6_0 lock(argv[2], argv[3]);
        char letter;
        while (read(STDIN_FILENO, &letter, 1) == 1) {
            std::string line;
            try {
                switch (letter) {
                    case 'r':
                        lock.readLock();
                        break;
                    case 'w':
                        lock.writeLock();
                        break;
                    case 'p':
                        lock.readWithIntentToWriteLock();
                        break;
                    case 'u':
                        lock.unlock();
                        break;
                    case 'n':
                        lock.unlock(0);
                        break;
                    case 'o':
                        lock.addObserver(&observer);
                        break;
                }
                line = lock.getLockStateName(lock.getLockState());
                line += " " + std::to_string(lock.getSequence()) + observer.changes + "\n";
            } catch (ZResourceException_6_0 const& e) {
                line = std::to_string(e.messageNumber()) + " " + std::to_string(e.returnCode());
                line += "\n";
            }
            if (write(STDOUT_FILENO, line.data(), line.size()) < 0)
                return 1;
        }
        // The kernel releases the remaining locks when the process ends.
        _exit(0);
    }

private:
    static constexpr char kSwitch[] = "--use-process-lock";

    OwnProgram process_;
};
