// Campaign: what the campaigns of the crash program share: counts, complaints, child processes.
//
// A campaign runs in a process of its own, so that it may mount, limit and fork as it likes; what
// it counts lies in memory that it shares with the program, which prints the progress.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>

// How much of a campaign is wanted.
enum class Extent { full, share };

// What a campaign has counted so far.
struct Counts {
    std::atomic<long> planned{0};  // events to come altogether; 0 while it is not known
    std::atomic<long> events{0};   // kills, faults, cuts…
    std::atomic<long> olds{0};     // after which the old generation was found
    std::atomic<long> news{0};     // after which the new one was found
    std::atomic<long> torn{0};     // contents of no single store that were found
    std::atomic<long> bad{0};      // with an outcome that must not be
    std::atomic<bool> leftOut{false};
    char note[200] = "";  // shown in the table; when it is left out: why
};

struct Campaign {
    char const* name;
    void (*run)(Counts&, Extent);
    bool stores = true;  // runs in each store mode
};

/// Counts a bad outcome and, for the first few, says what it was.
void complain(Counts& counts, std::string const& what);

/// Says in the table what was found out.
void remark(Counts& counts, std::string const& what);

/// Says in the table why the campaign cannot run here.
void leaveOut(Counts& counts, std::string const& why);

/// Runs `body` in a child process, and returns the child's id.
pid_t inChild(std::function<int()> const& body);

/// Waits for a child; returns its exit code, or 256 plus the number of the signal that ended it.
int ended(pid_t child);

/// Runs a program and returns as ended(); its output is thrown away unless `output` is given.
int runProgram(std::initializer_list<std::string> arguments, std::string* output = nullptr);

/// Makes objects in memory that child processes share.
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
void cutPowerBehindAnEdit(Counts& counts, Extent extent);
void storeBesideOthers(Counts& counts, Extent extent);
void killBesideOthers(Counts& counts, Extent extent);
void storeInOddPlaces(Counts& counts, Extent extent);
void failForGood(Counts& counts, Extent extent);
void failLocksForGood(Counts& counts, Extent extent);
void meetObstacles(Counts& counts, Extent extent);
void watchRights(Counts& counts, Extent extent);
void replaceDuringStores(Counts& counts, Extent extent);
void readWithoutLocks(Counts& counts, Extent extent);
void attackRoot(Counts& counts, Extent extent);
