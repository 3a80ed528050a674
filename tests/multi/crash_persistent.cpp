// Stores whose calls fail for a cause that lasts: from some call on, and still in the next stores.
#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Stepper.h"
#include "StoreFolder.h"

namespace {

using Call = Stepper::Call;
using Family = Stepper::Family;

constexpr int kStores = 4;  // the store that the cause strikes first, and three more

// ---- Causes ------------------------------------------------------------------------------------

struct Errors {
    Family family;
    std::vector<int> lasting;
};

// The errors of each family that a retry does not end.
std::vector<Errors> const kErrors = {
    {Family::open, {EACCES, EPERM, EROFS, EMFILE, ENOSPC, EDQUOT, EIO, ELOOP}},
    {Family::look, {EACCES, EIO, ENOMEM}},
    {Family::readLink, {EACCES, EIO}},
    {Family::rename, {EBUSY, EPERM, EACCES, EROFS, ENOSPC, EDQUOT, EIO, EXDEV}},
    {Family::link, {EPERM, EACCES, ENOSPC, EMLINK, EIO}},
    {Family::unlink, {EBUSY, EPERM, EACCES, EROFS, EIO}},
    {Family::makeDirectory, {EACCES, EPERM, ENOSPC, EROFS}},
    {Family::read, {EIO, EACCES}},
    {Family::write, {ENOSPC, EDQUOT, EIO, EFBIG}},
    {Family::cut, {EIO, EPERM, EFBIG}},
    {Family::reserve, {EOPNOTSUPP, ENOSPC, EDQUOT, EIO, EFBIG}},
    {Family::sync, {EIO, ENOSPC, EDQUOT, EINVAL, EROFS}},
    {Family::owner, {EPERM, EIO, EROFS}},
    {Family::mode, {EPERM, EIO, EROFS}},
    {Family::attribute, {EOPNOTSUPP, EPERM, EACCES, ENOSPC, EIO}},
    {Family::times, {EPERM, EACCES, EROFS}},
    {Family::lock, {ENOLCK, EIO, EACCES}},
    {Family::map, {ENOMEM, ENODEV, EACCES}},
    {Family::duplicate, {EMFILE}},
    {Family::fileSystem, {ENOSYS, EIO}},
    {Family::workingDirectory, {ENOENT, EACCES}},
    {Family::other, {EIO, ENOTTY}},
};

// Calls that older kernels and some sandboxes do not have.
std::map<std::string, std::vector<int>> const kMissing = {
    {"openat2", {ENOSYS, EPERM, EINVAL}}, {"renameat2", {ENOSYS, EINVAL}}, {"statx", {ENOSYS}},
    {"faccessat2", {ENOSYS, EPERM}},      {"copy_file_range", {ENOSYS}},   {"fchmodat2", {ENOSYS}},
    {"sync_file_range", {ENOSYS}},        {"fallocate", {ENOSYS}},
};

// A cause: like calls fail from one of them on.
struct Cause {
    enum Reach { everyFile, oneFile, oneCall } reach;
    Call first;
    size_t from;  // the number of `first` among the like calls, from 1
    int error;

    bool isLike(Call const& call) const
    {
        if (reach == oneCall)
            return call.number == first.number;
        return call.family == first.family && (reach == everyFile || call.file == first.file);
    }

    std::string describe() const
    {
        return std::string(strerrorname_np(error)) + " from " + ::describe(first, from) +
               (reach == everyFile ? " on, for every file"
                : reach == oneFile ? " on, for this file"
                                   : " on, in this call");
    }
};

std::vector<int> errorsOf(Family family)
{
    for (Errors const& each : kErrors)
        if (each.family == family)
            return each.lasting;
    return {};
}

// Adds a cause for each call and each error; as a share, each call gets one of the errors.
void addCauses(std::vector<Cause>& causes, std::vector<Call> const& calls, Cause::Reach reach,
               Extent extent)
{
    std::vector<Cause> seen;
    for (Call const& call : calls) {
        Cause cause = {reach, call, 1, 0};
        for (Cause& earlier : seen)
            cause.from += earlier.isLike(call);
        seen.push_back(cause);
        std::vector<int> errors = errorsOf(call.family);
        if (reach == Cause::oneCall) {
            auto const missing = kMissing.find(call.name);
            errors = missing == kMissing.end() ? std::vector<int>() : missing->second;
        }
        if (errors.empty())
            continue;
        if (extent == Extent::share)
            errors = {errors[seen.size() % errors.size()]};
        for (int error : errors) {
            cause.error = error;
            causes.push_back(cause);
        }
    }
}

// ---- A row of stores ---------------------------------------------------------------------------

// The generations that are there at first and after each store.
struct Shape {
    char const* name;
    Generation generations[kStores + 2];
};

Shape const kShapes[] = {
    {"with companion",
     {{1, 3000, true},
      {2, 9000, true},
      {3, 5000, true},
      {4, 9000, true},
      {5, 900, true},
      {6, 900, true}}},
    {"companion comes and goes",
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

// Loads, changes and stores one generation after another; a mark begins and ends each.
int storeAll(std::string const& path, Shape const& shape, Answers& answers)
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

std::vector<Call> callsOfFirstStore(StoreFolder const& folder, Shape const& shape)
{
    auto& answers = shared<Answers>();
    Stepper stepper([&] { return storeAll(folder.path(), shape, answers); });
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

void runUnder(Counts& counts, StoreFolder const& folder, Shape const& shape, Cause const& cause,
              Answers& answers)
{
    std::string const event = std::string(shape.name) + ", " + cause.describe();
    folder.reset(shape.generations[0]);
    Generation current = shape.generations[0];
    Stepper stepper([&] { return storeAll(folder.path(), shape, answers); });
    size_t like = 0;
    while (stepper.nextOnFiles()) {
        Call const& call = stepper.call();
        if (call.family != Family::mark) {
            if (cause.isLike(call) && ++like >= cause.from)
                stepper.fail(cause.error);
            continue;
        }
        if (call.argument == 0) {
            like = 0;
            continue;
        }
        std::string const which = event + ", store " + std::to_string(call.argument);
        Generation const& next = shape.generations[call.argument];
        folder.checkModes(counts, which);
        bool const stored = answers.stored[call.argument - 1];
        long const found = folder.judge(counts, current, next, which);
        if (found >= 0 && (found == next.number()) != stored)
            complain(counts,
                     which + (stored ? ": success was reported" : ": a failure was reported"));
        if (found == next.number())
            current = next;
    }
    if (int const code = stepper.finish(); code != 0)
        complain(counts, event + ": ended with " + std::to_string(code));
    folder.judge(counts, current, current, event + ", at its end");
    folder.tidy(counts, shape.generations[kStores + 1], event + ", after its end");
}

}  // namespace

void failForGood(Counts& counts, Extent extent)
{
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return leaveOut(counts, why);
    TestDirectory const directory(TestDirectory::Place::memory);
    StoreFolder const folder(directory.path());
    auto& answers = shared<Answers>();
    for (Shape const& shape : kShapes) {
        folder.reset(shape.generations[0]);
        std::vector<Call> const calls = callsOfFirstStore(folder, shape);
        std::vector<Cause> causes;
        for (Cause::Reach reach : {Cause::everyFile, Cause::oneFile, Cause::oneCall})
            addCauses(causes, calls, reach, extent);
        counts.planned += static_cast<long>(causes.size()) * (kStores + 1);
        for (Cause const& cause : causes)
            runUnder(counts, folder, shape, cause, answers);
        if (extent == Extent::share)
            break;
    }
}
