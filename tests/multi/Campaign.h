// Campaign: counts, complaints and child processes for the campaigns of the crash program.
//
// A campaign runs in a process of its own, so that it can mount file systems, set limits and fork.
// Its counts are in memory that it shares with the program, which prints the progress.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>

// How much of a campaign to run.
enum class Extent { full, share };

// The counts of a campaign so far.
struct Counts {
    std::atomic<long> planned{0};  // events of the whole campaign; 0 while unknown
    std::atomic<long> events{0};   // kills, faults, cuts…
    std::atomic<long> olds{0};     // events after which the old generation was found
    std::atomic<long> news{0};     // events after which the new generation was found
    std::atomic<long> torn{0};     // times that contents of no single store were found
    std::atomic<long> bad{0};      // events with a forbidden outcome
    std::atomic<bool> isSkipped{false};
    char note[200] = "";  // shown in the table; the reason if the campaign is skipped
};

struct Campaign {
    char const* name;
    void (*run)(Counts&, Extent);
    bool stores = true;  // runs in each store mode
};

/// Counts a bad outcome. Prints a description of the first few.
void complain(Counts& counts, std::string const& what);

/// Adds a remark to the campaign's row of the table.
void remark(Counts& counts, std::string const& what);

/// Marks the campaign as skipped, with the reason.
void skip(Counts& counts, std::string const& why);

/// Runs `body` in a child process, and returns the child's id.
pid_t inChild(std::function<int()> const& body);

/// Waits for a child; returns its exit code, or 256 plus the number of the signal that ended it.
int ended(pid_t child);

/// Runs a program, and returns as ended(). Discards its output if `output` is null.
int runProgram(std::initializer_list<std::string> arguments, std::string* output = nullptr);

/// Allocates memory that child processes share.
void* sharedMemory(size_t length);

template <class Type>
Type& shared()
{
    return *new (sharedMemory(sizeof(Type))) Type;
}

// ---- The campaigns -----------------------------------------------------------------------------

void killAtEveryCall(Counts& counts, Extent extent);
void killAtRandomOnDisk(Counts& counts, Extent extent);
void killAtRandomInMemory(Counts& counts, Extent extent);
void failEveryCall(Counts& counts, Extent extent);
void fillMemoryDisk(Counts& counts, Extent extent);
void fillDisk(Counts& counts, Extent extent);
void limitFileSize(Counts& counts, Extent extent);
void cutPower(Counts& counts, Extent extent);
void cutPowerAfterAnEdit(Counts& counts, Extent extent);
void storeAmongPrograms(Counts& counts, Extent extent);
void killAmongPrograms(Counts& counts, Extent extent);
void storeAmongOddFiles(Counts& counts, Extent extent);
void failPersistently(Counts& counts, Extent extent);
void failLocksPersistently(Counts& counts, Extent extent);
void storeWithObstacles(Counts& counts, Extent extent);
void checkRights(Counts& counts, Extent extent);
void replaceDuringStores(Counts& counts, Extent extent);
void readWithoutLocks(Counts& counts, Extent extent);
void attackRoot(Counts& counts, Extent extent);
