// Stores whose calls fail for a cause that lasts, from a certain call on and in the next stores.
#include <atomic>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Causes.h"
#include "Generation.h"
#include "Stepper.h"
#include "StoreDirectory.h"
#include "StoreRow.h"

namespace {

using Call = Stepper::Call;
using Family = Stepper::Family;

StoreShape const kShapes[] = {
    {"with companion",
     {{1, 3000, true},
      {2, 9000, true},
      {3, 5000, true},
      {4, 9000, true},
      {5, 900, true},
      {6, 900, true}}},
    {"companion added and removed",
     {{1, 3000, false},
      {2, 9000, true},
      {3, 5000, false},
      {4, 9000, true},
      {5, 900, false},
      {6, 900, true}}},
    {"one line of a generation",
     {{4, 9000, true},
      {5, 9000, true},
      {6, 9000, true},
      {7, 9000, true},
      {8, 9000, true},
      {9, 9000, true}}},
    {"without companion",
     {{1, 9000, false},
      {2, 3000, false},
      {3, 5000, false},
      {4, 9000, false},
      {5, 900, false},
      {6, 900, false}}},
    {"first store",
     {{}, {2, 9000, true}, {3, 5000, true}, {4, 9000, true}, {5, 900, true}, {6, 900, true}}},
};

struct Answers {
    std::atomic<bool> stored[kStores];
};

// Loads, changes and stores one generation after another; a mark precedes and follows each.
int storeAll(std::string const& path, StoreShape const& shape, Answers& answers)
{
    Stepper::mark(0);
    for (int i = 0; i < kStores; ++i) {
        try {
            shape.generations[i + 1].store(path);
            answers.stored[i] = true;
        } catch (ZException_6_0&) {
            answers.stored[i] = false;
        }
        Stepper::mark(i + 1);
    }
    return 0;
}

std::vector<Call> callsOfFirstStore(StoreDirectory const& target, StoreShape const& shape)
{
    auto& answers = shared<Answers>();
    Stepper stepper([&] { return storeAll(target.path(), shape, answers); });
    std::vector<Call> calls;
    for (bool inside = false; stepper.nextOnFiles();) {
        Call const& call = stepper.call();
        if (call.family == Family::mark && inside)
            break;
        inside = inside || call.family == Family::mark;
        if (inside && call.family != Family::mark)
            calls.push_back(call);
    }
    return calls;
}

void runUnder(Counts& counts, StoreDirectory const& target, StoreShape const& shape,
              Cause const& cause, Answers& answers)
{
    StoreRow row(counts, target, shape, cause.describe());
    Stepper stepper([&] { return storeAll(target.path(), shape, answers); });
    size_t like = 0;
    while (stepper.nextOnFiles()) {
        Call const& call = stepper.call();
        if (call.family != Family::mark) {
            if (cause.isLike(call) && ++like >= cause.from)
                stepper.fail(cause.error);
        } else if (call.argument == 0) {
            like = 0;
        } else {
            target.checkModes(counts, row.event());
            row.judge(answers.stored[call.argument - 1]);
        }
    }
    if (int const code = stepper.finish(); code != 0)
        complain(counts, row.event() + ": ended with " + std::to_string(code));
    row.judgeWithoutCause();
}

}  // namespace

void failPersistently(Counts& counts, Extent extent)
{
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return skip(counts, why);
    TestDirectory const directory(TestDirectory::Place::memory);
    StoreDirectory const target(directory.path());
    auto& answers = shared<Answers>();
    for (StoreShape const& shape : kShapes) {
        target.reset(shape.generations[0]);
        std::vector<Call> const calls = callsOfFirstStore(target, shape);
        std::vector<Cause> const causes = lastingCauses(calls, extent);
        counts.planned += static_cast<long>(causes.size()) * (kStores + 1);
        for (Cause const& cause : causes)
            runUnder(counts, target, shape, cause, answers);
        if (extent == Extent::share)
            break;
    }
}
