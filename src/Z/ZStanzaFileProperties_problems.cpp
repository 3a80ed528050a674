// findProblems(): every complaint about a stanza file.
#include <errno.h>

#include <string>
#include <vector>

#include "ZArrayList.h"
#include "ZBuffer.h"
#include "ZException.h"
#include "ZProperties_p.h"
#include "ZStanzaDialect_p.h"
#include "ZStanzaFileProperties.h"
#include "ZStanzaProblem.h"
#include "cache/arena.h"
#include "containers/list_rollback.h"
#include "problems/dialect_inspector.h"
#include "problems/inspector.h"
#include "reporting/cancellation.h"
#include "stanza/companion_records.h"
#include "store/journaled_file.h"

using namespace zproperties;
using zproblems::Complaint;
using zproblems::Inspector;

namespace {

static_assert(int{ZStanzaProblem_6_0::mixedLines} == zproblems::mixedLines);

// Returns the reason why a companion cannot be read, to follow its path.
std::string describe(zfiles::IoError const& failure)
{
    switch (failure.error) {
        case EINVAL:
            return ": it is missing or empty";
        case ENODEV:
            return ": it is not a regular file";
        case EFBIG:
            return ": it is too large";
        case EPERM:
            return ": this file may not use it";
        default:
            return ": error " + std::to_string(failure.error);
    }
}

// Passes the records of the companion to the inspector. `isForeign` returns whether another file
// has the companion at a path. Returns false if another program has replaced the file: a store of
// the new file may have written the companion.
template <class IsForeign>
bool inspectCompanion(zstore::JournaledFile& file, Inspector& inspector, IsForeign isForeign)
{
    std::string const& name = inspector.companion();
    try {
        zstore::JournaledFile::Bytes packed = file.readCompanion(name.c_str());
        ZBuffer_6_0 buffer;
        size_t const length = packed.length();
        buffer.setBufferNoCopy(length, packed.release());
        zstanza::CompanionReader reader(name.c_str(), buffer);
        zcache::Arena::Block block;
        size_t records = 0;
        if (reader.expand(block, records) == 0)
            records = 0;
        if (records == 0)
            inspector.complainOfCompanion(zproblems::reservedEntry, false, " has no values");
        else if (isForeign(name))
            inspector.complainOfCompanion(zproblems::reservedEntry, false,
                                          " belongs to another file");
        char const* at = records == 0 ? nullptr : block.chars();
        for (; records > 0; --records) {
            zstanza::CompanionRecord const record(at);
            inspector.addObfuscated(record.category, record.key);
        }
    } catch (zfiles::IoError const& failure) {
        if (file.isReplaced())
            return false;
        inspector.complainOfCompanion(zproblems::unreadableCompanion, true, describe(failure));
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        if (file.isReplaced())
            return false;
        inspector.complainOfCompanion(zproblems::damagedCompanion, true, "");
    }
    return !file.isReplaced();
}

void append(std::vector<Complaint> const& complaints, ZArrayList_6_0& list)
{
    for (Complaint const& complaint : complaints) {
        auto* const problem = new ZStanzaProblem_6_0(
            complaint.place.line, complaint.place.column,
            complaint.isError ? ZStanzaProblem_6_0::error : ZStanzaProblem_6_0::note,
            static_cast<ZStanzaProblem_6_0::Cause>(complaint.cause),
            std::string(complaint.stanza).c_str(), std::string(complaint.key).c_str(),
            zproblems::textOf(complaint).c_str());
        try {
            list.addNoCopy(problem);
        } catch (...) {
            delete problem;
            throw;
        }
    }
}

// Returns false if another program replaced the file while it was read.
template <class IsForeign>
bool findOnce(char const* path, ZArrayList_6_0& list, IsForeign isForeign)
{
    zstore::JournaledFile file(path, zstore::JournaledFile::Mode::load);
    Inspector inspector(file.text());
    inspector.inspect();
    if (!inspector.companion().empty() && !inspectCompanion(file, inspector, isForeign))
        return false;
    zcontainers::addAllOrNothing(list, [&] { append(inspector.complaints(), list); });
    return true;
}

}  // namespace

void ZStanzaFileProperties_6_0::findProblems(char const* path, ZArrayList_6_0& list)
{
    constexpr int kMaxAttempts = 100;
    zreporting::CancelGuard const uncancelled;
    if (isEmpty(path) || list.ownsMembers() == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInFindProblems);
    auto const isForeign = [path](std::string const& companion) {
        return Rep::belongsToAnotherFile(companion, path);
    };
    translateErrors(raiseInFindProblems, [&] {
        for (int attempts = 1; !findOnce(path, list, isForeign); ++attempts)
            if (attempts == kMaxAttempts)
                throw zfiles::IoError{path, zfiles::FailedCall::fopenToRead, ESTALE};
    });
}

void ZStanzaFileProperties_6_0::findProblems(char const* path, ZStanzaDialect_6_0 const& dialect,
                                             ZArrayList_6_0& list)
{
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    if (switches.isStanzaFormat())
        return findProblems(path, list);
    zreporting::CancelGuard const uncancelled;
    if (isEmpty(path) || list.ownsMembers() == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInFindProblems);
    translateErrors(raiseInFindProblems, [&] {
        zstore::JournaledFile file(path, zstore::JournaledFile::Mode::load);
        auto const reader = zdialects::dialectWith(switches);
        zproblems::DialectInspector inspector(file.text(), *reader);
        inspector.inspect();
        zcontainers::addAllOrNothing(list, [&] { append(inspector.complaints(), list); });
    });
}
