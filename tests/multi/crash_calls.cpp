// Stores and loads that are killed, or fail, at each of their system calls.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Stepper.h"
#include "StoreDirectory.h"

namespace {

// The generation at first, and the generation to store.
struct Shape {
    char const* name;
    Generation before;
    Generation after;
};

Shape const kShare = {"with companion", {1, 3000, true}, {2, 9000, true}};
Shape const kMore[] = {
    {"with companion, shorter", {1, 9000, true}, {2, 3000, true}},
    {"with companion, same length", {1, 9000, true}, {2, 9000, true}},
    {"one line of a generation", {6, 9000, true}, {7, 9000, true}},
    {"all lines", {7, 9000, true}, {8, 9000, true}},
    {"without companion", {1, 3000, false}, {2, 9000, false}},
    {"without companion, shorter", {1, 9000, false}, {2, 3000, false}},
    {"companion added", {1, 3000, false}, {2, 9000, true}},
    {"companion removed", {1, 9000, true}, {2, 3000, false}},
    {"first store", {}, {2, 3000, true}},
};

std::vector<Shape> shapes(Extent extent)
{
    std::vector<Shape> all = {kShare};
    if (extent == Extent::full)
        all.insert(all.end(), std::begin(kMore), std::end(kMore));
    return all;
}

// The task of a child process. Its exit code is one of these, or the number of a generation.
using Task = std::function<int()>;
enum Answer { stored = 0, raised = 100, torn = 101 };

int answerOf(std::function<int()> const& work)
{
    // With an empty mask, only the library restricts modes.
    umask(0);
    try {
        return work();
    } catch (Torn const&) {
        return torn;
    } catch (ZException_6_0&) {
        return raised;
    }
}

Task storing(StoreDirectory const& target, Generation const& what)
{
    return [path = target.path(), what] {
        return answerOf([&] {
            what.store(path);
            return static_cast<int>(stored);
        });
    };
}

Task loading(StoreDirectory const& target)
{
    return [path = target.path()] {
        return answerOf([&] { return static_cast<int>(Generation::load(path).number()); });
    };
}

// A call of a task, and its number among the calls on files.
struct Place {
    Stepper::Call call;
    size_t at;
};

// Runs the task, and returns its calls.
std::vector<Place> placesOf(Task const& task)
{
    Stepper stepper(task);
    std::vector<Place> places;
    while (stepper.nextOnFiles())
        places.push_back({stepper.call(), places.size()});
    return places;
}

// Runs the task up to a call; returns whether the task reached it.
bool goTo(Stepper& stepper, Place const& place)
{
    for (size_t i = 0; i <= place.at; ++i)
        if (!stepper.nextOnFiles())
            return false;
    return stepper.call().number == place.call.number;
}

std::string describe(std::string const& name, Place const& place, std::string const& how)
{
    return name + ", " + how + " at " + describe(place.call, place.at);
}

// The checks after a killed or failed store, except of the generation that is found.
Generation const kNext(3, 5000, true);

// ---- Kills -------------------------------------------------------------------------------------

void killOne(Counts& counts, StoreDirectory const& target, Shape const& shape, Place const& place)
{
    std::string const event = describe(shape.name, place, "killed");
    target.reset(shape.before);
    Stepper stepper(storing(target, shape.after));
    if (!goTo(stepper, place))
        complain(counts, event + ": was not killed");
    stepper.kill();
    target.checkModes(counts, event);
    target.judge(counts, shape.before, shape.after, event);
    target.tidy(counts, kNext, event);
}

// ---- Faults ------------------------------------------------------------------------------------

constexpr int kErrors[] = {ENOSPC, EIO, EDQUOT, EINTR, EMFILE, EACCES, EROFS, ENOLCK, EDEADLK};

// Returns the errors for the call at `place`: all of them; for a share one, in rotation.
std::vector<int> errorsFor(Extent extent, size_t place)
{
    if (extent == Extent::share)
        return {kErrors[place % std::size(kErrors)]};
    return {std::begin(kErrors), std::end(kErrors)};
}

// Runs the task with a failing call.
int withFailure(Task const& task, Place const& place, int error)
{
    Stepper stepper(task);
    if (goTo(stepper, place))
        stepper.fail(error);
    return stepper.finish();
}

void failStore(Counts& counts, StoreDirectory const& target, Shape const& shape, Place const& place,
               int error)
{
    std::string const event = describe(shape.name, place, strerrorname_np(error));
    target.reset(shape.before);
    int const answer = withFailure(storing(target, shape.after), place, error);
    target.checkModes(counts, event);
    long const found = target.judge(counts, shape.before, shape.after, event);
    if (answer != stored && answer != raised)
        complain(counts, event + ": ended with " + std::to_string(answer));
    else if (found >= 0 && (found == shape.after.number()) != (answer == stored))
        complain(counts, event + (answer == stored ? ": success was reported"
                                                   : ": a failure was reported"));
    target.tidy(counts, kNext, event);
}

void failLoad(Counts& counts, StoreDirectory const& target, std::string const& name,
              Generation const& there, Place const& place, int error)
{
    std::string const event = describe(name, place, strerrorname_np(error));
    ++counts.events;
    int const answer = withFailure(loading(target), place, error);
    if (answer == there.number())
        ++counts.news;
    else if (answer != raised)
        complain(counts, event + ": ended with " + std::to_string(answer));
}

// Kills an in-place store of a shorter text before it truncates the file; returns whether it
// succeeded.
bool tear(StoreDirectory const& target, Shape const& shape)
{
    target.reset(shape.before);
    Stepper stepper([task = storing(target, shape.after)] {
        Generation::setMode(StoreMode::inPlace);
        return task();
    });
    while (stepper.nextOnFiles())
        if (stepper.call().family == Stepper::Family::cut) {
            stepper.kill();
            return target.names().find(".zjn") != std::string::npos;
        }
    return false;
}

// The share runs in memory, to avoid waits for a disk.
TestDirectory::Place placeFor(Extent extent)
{
    return extent == Extent::full ? TestDirectory::Place::disk : TestDirectory::Place::memory;
}

// Divides the shapes among processes, each with a directory of its own.
void forShapes(Counts& counts, Extent extent,
               std::function<void(StoreDirectory const&, Shape const&)> const& body)
{
    constexpr size_t kWorkers = 2;
    std::vector<Shape> const all = shapes(extent);
    std::vector<pid_t> workers;
    for (size_t worker = 0; worker < kWorkers; ++worker)
        workers.push_back(inChild([&] {
            TestDirectory const directory(placeFor(extent));
            StoreDirectory const target(directory.path());
            for (size_t i = worker; i < all.size(); i += kWorkers)
                body(target, all[i]);
            return 0;
        }));
    for (pid_t const worker : workers)
        if (ended(worker) != 0)
            complain(counts, "a worker ended early");
}

}  // namespace

void killAtEveryCall(Counts& counts, Extent extent)
{
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return skip(counts, why);
    forShapes(counts, extent, [&](StoreDirectory const& target, Shape const& shape) {
        target.reset(shape.before);
        std::vector<Place> const places = placesOf(storing(target, shape.after));
        counts.planned += static_cast<long>(places.size());
        for (Place const& place : places)
            killOne(counts, target, shape, place);
    });
}

void failEveryCall(Counts& counts, Extent extent)
{
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return skip(counts, why);
    if (extent == Extent::share)
        remark(counts, "one error for each call; all of them in ZJournaledFileFailuresTest");
    long const errors = static_cast<long>(errorsFor(extent, 0).size());
    forShapes(counts, extent, [&](StoreDirectory const& target, Shape const& shape) {
        target.reset(shape.before);
        std::vector<Place> const places = placesOf(storing(target, shape.after));
        counts.planned += static_cast<long>(places.size()) * errors;
        for (size_t i = 0; i < places.size(); ++i)
            for (int error : errorsFor(extent, i))
                failStore(counts, target, shape, places[i], error);
    });
    TestDirectory const directory(placeFor(extent));
    StoreDirectory const target(directory.path());
    for (bool torn : {false, true}) {
        Shape const& shape = kMore[0];
        if (!torn)
            target.reset(shape.after);
        else if (!tear(target, shape))
            return complain(counts, "no store could be torn");
        std::vector<Place> const places = placesOf(loading(target));
        counts.planned += static_cast<long>(places.size()) * errors;
        for (size_t i = 0; i < places.size(); ++i)
            for (int error : errorsFor(extent, i))
                failLoad(counts, target, torn ? "load after a kill" : "load", shape.after,
                         places[i], error);
    }
}
