#include "Causes.h"

#include <errno.h>

#include <cstring>
#include <map>

namespace {

using Call = Stepper::Call;
using Family = Stepper::Family;

struct Errors {
    Family family;
    std::vector<int> lasting;
};

// The errors of each family that can persist through retries.
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

// Calls that older kernels and some sandboxes lack.
std::map<std::string, std::vector<int>> const kMissing = {
    {"openat2", {ENOSYS, EPERM, EINVAL}}, {"renameat2", {ENOSYS, EINVAL}}, {"statx", {ENOSYS}},
    {"faccessat2", {ENOSYS, EPERM}},      {"copy_file_range", {ENOSYS}},   {"fchmodat2", {ENOSYS}},
    {"sync_file_range", {ENOSYS}},        {"fallocate", {ENOSYS}},
};

std::vector<int> errorsOf(Family family)
{
    for (Errors const& each : kErrors)
        if (each.family == family)
            return each.lasting;
    return {};
}

// Adds the causes of one reach.
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

}  // namespace

std::string Cause::describe() const
{
    return std::string(strerrorname_np(error)) + " from " + ::describe(first, from) +
           (reach == everyFile ? " on, for every file"
            : reach == oneFile ? " on, for this file"
                               : " on, in this call");
}

std::vector<Cause> lastingCauses(std::vector<Call> const& calls, Extent extent)
{
    std::vector<Cause> causes;
    for (Cause::Reach reach : {Cause::everyFile, Cause::oneFile, Cause::oneCall})
        addCauses(causes, calls, reach, extent);
    return causes;
}
