// Marked: one store or one load in a program of its own, between two marks that strace sees.
#pragma once

#include <string>
#include <vector>

class Marked {
public:
    // Exit codes of the program. A load that finds a whole generation answers with its number.
    enum Answer { stored = 0, raised = 100, torn = 101, strange = 102 };

    static bool isWanted(int argc, char** argv);
    static int run(char** argv);

    // What is to be done: "--store" with path, number, size and "secret" or "open"; "--load" with
    // the path.
    using Task = std::vector<std::string>;

    // The places between the marks where strace can step in: the system call, and the how-manieth
    // of its name it is, counted from the start of the program.
    struct Place {
        std::string call;
        int number;
    };

    /// Returns why strace cannot be used here; "" when it can.
    static std::string obstacle();

    /// Returns the places of `task`, which is done for it; `which` as strace's -e trace=.
    static std::vector<Place> places(Task const& task, std::string const& which);

    /// Does `task` with strace stepping in at `place`; `how` as in strace's -e inject=. Returns as
    /// ended().
    static int tamperedWith(Task const& task, Place const& place, std::string const& how);
};
