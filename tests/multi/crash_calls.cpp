// Stores and loads that strace kills, or makes fail, at each of their system calls.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Marked.h"
#include "StoreFolder.h"

namespace {

// What is there, and what the store is to make of it.
struct Shape {
    char const* name;
    Generation before;
    Generation after;
};

Shape const kShare = {"with companion", {1, 3000, true}, {2, 9000, true}};
Shape const kMore[] = {
    {"with companion, shorter", {1, 9000, true}, {2, 3000, true}},
    {"with companion, as long", {1, 9000, true}, {2, 9000, true}},
    {"one line of a generation", {6, 9000, true}, {7, 9000, true}},
    {"all lines", {7, 9000, true}, {8, 9000, true}},
    {"without companion", {1, 3000, false}, {2, 9000, false}},
    {"without companion, shorter", {1, 9000, false}, {2, 3000, false}},
    {"companion comes", {1, 3000, false}, {2, 9000, true}},
    {"companion goes", {1, 9000, true}, {2, 3000, false}},
    {"first store", {}, {2, 3000, true}},
};

std::vector<Shape> shapes(Extent extent)
{
    std::vector<Shape> all = {kShare};
    if (extent == Extent::full)
        all.insert(all.end(), std::begin(kMore), std::end(kMore));
    return all;
}

Marked::Task storing(StoreFolder const& folder, Generation const& what)
{
    return {"--store", folder.path(), std::to_string(what.number()), std::to_string(what.size()),
            what.isSecret() ? "secret" : "open"};
}

std::string describe(std::string const& name, Marked::Place const& place, std::string const& how)
{
    return name + ", " + how + " at " + place.call + " " + std::to_string(place.number);
}

// What a killed or failed store may find and leave has been looked at; here is the rest.
Generation const kNext(3, 5000, true);

// ---- Kills -------------------------------------------------------------------------------------

void killOne(Counts& counts, StoreFolder const& folder, Shape const& shape,
             Marked::Place const& place)
{
    std::string const event = describe(shape.name, place, "killed");
    folder.reset(shape.before);
    if (Marked::tamperedWith(storing(folder, shape.after), place, "signal=KILL") != 256 + SIGKILL)
        complain(counts, event + ": it was not");
    folder.checkModes(counts, event);
    folder.judge(counts, shape.before, shape.after, event);
    folder.tidy(counts, kNext, event);
}

// ---- Faults ------------------------------------------------------------------------------------

constexpr char const* kErrors[] = {"ENOSPC", "EIO",   "EDQUOT", "EINTR",  "EMFILE",
                                   "EACCES", "EROFS", "ENOLCK", "EDEADLK"};

// Returns the errors for the call at `place`: all of them, or as a share one after the other.
std::vector<char const*> errorsFor(Extent extent, size_t place)
{
    if (extent == Extent::share)
        return {kErrors[place % std::size(kErrors)]};
    return {std::begin(kErrors), std::end(kErrors)};
}

void failStore(Counts& counts, StoreFolder const& folder, Shape const& shape,
               Marked::Place const& place, char const* error)
{
    std::string const event = describe(shape.name, place, error);
    folder.reset(shape.before);
    int const answer =
        Marked::tamperedWith(storing(folder, shape.after), place, std::string("error=") + error);
    folder.checkModes(counts, event);
    long const found = folder.judge(counts, shape.before, shape.after, event);
    if (answer != Marked::stored && answer != Marked::raised)
        complain(counts, event + ": ended with " + std::to_string(answer));
    else if (found >= 0 && (found == shape.after.number()) != (answer == Marked::stored))
        complain(counts, event + (answer == Marked::stored ? ": success was reported"
                                                           : ": a failure was reported"));
    folder.tidy(counts, kNext, event);
}

void failLoad(Counts& counts, StoreFolder const& folder, std::string const& name,
              Generation const& there, Marked::Place const& place, char const* error)
{
    std::string const event = describe(name, place, error);
    ++counts.events;
    int const answer =
        Marked::tamperedWith({"--load", folder.path()}, place, std::string("error=") + error);
    if (answer == there.number())
        ++counts.news;
    else if (answer != Marked::raised)
        complain(counts, event + ": ended with " + std::to_string(answer));
}

// Interrupts a store of a shorter text before the file is cut, and returns whether it came to that.
bool tear(StoreFolder const& folder, Shape const& shape)
{
    Marked::Task const task = storing(folder, shape.after);
    folder.reset(shape.before);
    std::vector<Marked::Place> const places = Marked::places(task, "all");
    for (size_t i = 0; i < places.size(); ++i)
        if (places[i].call == "ftruncate") {
            folder.reset(shape.before);
            Marked::tamperedWith(task, places[i], "signal=KILL");
            return folder.names().find(".zjn") != std::string::npos;
        }
    return false;
}

// Divides the shapes among processes, each with a folder of its own.
void forShapes(Counts& counts, Extent extent,
               std::function<void(StoreFolder const&, Shape const&)> const& body)
{
    constexpr size_t kWorkers = 2;
    std::vector<Shape> const all = shapes(extent);
    std::vector<pid_t> workers;
    for (size_t worker = 0; worker < kWorkers; ++worker)
        workers.push_back(inChild([&] {
            TestDirectory const directory;
            StoreFolder const folder(directory.path());
            for (size_t i = worker; i < all.size(); i += kWorkers)
                body(folder, all[i]);
            return 0;
        }));
    for (pid_t const worker : workers)
        if (ended(worker) != 0)
            complain(counts, "a worker did not get to its end");
}

}  // namespace

void killAtEveryCall(Counts& counts, Extent extent)
{
    if (std::string const why = Marked::obstacle(); !why.empty())
        return leaveOut(counts, why);
    forShapes(counts, extent, [&](StoreFolder const& folder, Shape const& shape) {
        folder.reset(shape.before);
        std::vector<Marked::Place> const places =
            Marked::places(storing(folder, shape.after), "all");
        counts.planned += static_cast<long>(places.size());
        for (Marked::Place const& place : places)
            killOne(counts, folder, shape, place);
    });
}

void failEveryCall(Counts& counts, Extent extent)
{
    if (std::string const why = Marked::obstacle(); !why.empty())
        return leaveOut(counts, why);
    if (extent == Extent::share)
        remark(counts, "one error for each call; all of them in ZJournaledFileTest");
    long const errors = static_cast<long>(errorsFor(extent, 0).size());
    forShapes(counts, extent, [&](StoreFolder const& folder, Shape const& shape) {
        folder.reset(shape.before);
        std::vector<Marked::Place> const places =
            Marked::places(storing(folder, shape.after), "%file,%desc");
        counts.planned += static_cast<long>(places.size()) * errors;
        for (size_t i = 0; i < places.size(); ++i)
            for (char const* error : errorsFor(extent, i))
                failStore(counts, folder, shape, places[i], error);
    });
    TestDirectory const directory;
    StoreFolder const folder(directory.path());
    for (bool torn : {false, true}) {
        Shape const& shape = kMore[0];
        if (!torn)
            folder.reset(shape.after);
        else if (!tear(folder, shape))
            return complain(counts, "no store could be torn");
        std::vector<Marked::Place> const places =
            Marked::places({"--load", folder.path()}, "%file,%desc");
        counts.planned += static_cast<long>(places.size()) * errors;
        for (size_t i = 0; i < places.size(); ++i)
            for (char const* error : errorsFor(extent, i))
                failLoad(counts, folder, torn ? "load behind a kill" : "load", shape.after,
                         places[i], error);
    }
}
