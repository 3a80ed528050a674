#include "fleet_commands.h"

#include <Z/ZArrayList.h>
#include <Z/ZFleetConnection.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <memory>

#include "arguments.h"
#include "commands.h"
#include "json.h"
#include "output.h"

namespace {

constexpr int kMaxAttempts = 16;  // of a change, if other programs store at the same time

// A store whose cache the tool reads.
class FleetStore : public ZFleetProperties_6_0 {
public:
    FleetStore() : ZFleetProperties_6_0(1) {}

    ZPCache_6_0& contents() const { return cache(); }
};

uint64_t shownGeneration = 0;  // that loadConfiguration() loads; 0: the present contents

struct ErrorRow {
    int error;
    ExitCode code;
    char const* problem;
    char const* remedy;  // "%" is the name of the fleet
};

constexpr ErrorRow kErrors[] = {
    {ENOENT, exitNoAccess, "no such configuration", "check the name, or create it with --create"},
    {EINVAL, exitUsage, "not the path of a configuration", "write it as etcd://FLEET/NAME"},
    {ESTALE, exitLocked, "other programs change the configuration all the time", "try again"},
    {EFBIG, exitRefused, "larger than the cluster stores", "keep text and companion within 1 MiB"},
    {ETIMEDOUT, exitNoAccess, "no majority of the cluster replies", "run 'zfleet status %'"},
    {EACCES, exitNoAccess, "the cluster denies access",
     "check user and password of the fleet, and the rights of the user"},
    {EPROTO, exitNoAccess, "no endpoint is a node that accepts the certificates",
     "check endpoint, ca, certificate and key of the fleet"},
    {ENOTCONN, exitNoAccess, "no node replied to the load", "run 'zfleet status %'"},
    {EREMCHG, exitNoAccess, "the cluster is another one than before, or an earlier state of it",
     "check the endpoints of the fleet"},
    {ENOSPC, exitNoAccess, "the database of the cluster is full", "compact and defragment it"},
    {EINPROGRESS, exitNoAccess, "it is unknown whether the change was stored",
     "read the value, and repeat the change if necessary"},
};

std::string fleetOf(std::string const& path)
{
    std::string const rest = path.substr(strlen("etcd://"));
    return rest.substr(0, rest.find('/'));
}

void requireOneValue(FleetStore const& store, Request const& request)
{
    int const count = store.numValues(request.stanza.c_str(), request.key.c_str());
    if (count > 1 && !request.all)
        throw Failure{
            exitRefused,
            request.file,
            {nameKey(request.key, request.stanza) + " has " + std::to_string(count) + " values",
             "pass --all to replace them"}};
    if (count == 0)
        return;
    bool const isObfuscated = store.isObfuscated(request.stanza.c_str(), request.key.c_str()) != 0;
    if (isObfuscated != request.obfuscated)
        throw Failure{exitRefused,
                      request.file,
                      {nameKey(request.key, request.stanza) +
                           (isObfuscated ? " has obfuscated values" : " has plain values"),
                       isObfuscated ? "pass --obfuscated" : "leave out --obfuscated"}};
}

void loadOrCreate(FleetStore& store, Request const& request)
{
    try {
        store.load(request.file.c_str());
    } catch (ZPropertiesIOException_6_0 const& e) {
        if (!request.create || e.excerrno() != ENOENT)
            throw;
    }
}

// An endpoint of a fleet.
struct EndpointState {
    std::string address;
    int error = 0;  // 0: it replies
    ZFleetMember_6_0 member = {};
};

std::string hexadecimal(uint64_t number)
{
    char digits[17];
    snprintf(digits, sizeof digits, "%" PRIx64, number);
    return digits;
}

std::string formatState(EndpointState const& state, std::string const& format)
{
    std::string const revision = std::to_string(state.member.revision);
    std::string const term = std::to_string(state.member.term);
    std::string const problem = state.error == 0 ? "" : strerror(state.error);
    if (format == "json")
        return "{\"endpoint\": " + toJson(state.address) + ", " +
               (state.error != 0 ? "\"problem\": " + toJson(problem)
                                 : "\"cluster\": " + toJson(hexadecimal(state.member.cluster)) +
                                       ", \"member\": " + toJson(hexadecimal(state.member.member)) +
                                       ", \"revision\": " + revision + ", \"term\": " + term) +
               "}";
    if (format == "lines")
        return escapeField(state.address) + '\t' +
               (state.error != 0
                    ? "\\-\t\\-\t\\-\t\\-\t" + escapeField(problem)
                    : hexadecimal(state.member.cluster) + '\t' + hexadecimal(state.member.member) +
                          '\t' + revision + '\t' + term + '\t');
    return state.address + (state.error != 0 ? "  no contact: " + problem
                                             : "  cluster " + hexadecimal(state.member.cluster) +
                                                   "  member " + hexadecimal(state.member.member) +
                                                   "  revision " + revision + "  term " + term);
}

void requireFleetPath(Request const& request)
{
    if (ZFleetProperties_6_0::isFleetPath(request.file.c_str()) == 0)
        throw UsageError{"a local file has no log", "write the path as etcd://FLEET/NAME"};
}

std::string formatTime(int64_t seconds)
{
    time_t const time = seconds;
    tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string formatGeneration(ZFleetGeneration_6_0 const& entry, std::string const& format)
{
    std::string const number = std::to_string(entry.generation());
    std::string const time = formatTime(entry.time());
    std::string const host = toStdString(entry.host());
    std::string const user = toStdString(entry.user());
    std::string const reason = toStdString(entry.reason());
    if (format == "json")
        return "{\"generation\": " + number + ", \"time\": " + toJson(time) +
               ", \"host\": " + toJson(host) + ", \"user\": " + toJson(user) +
               ", \"reason\": " + toJson(reason) +
               (entry.isOmitted() != 0 ? ", \"omitted\": true}" : "}");
    if (format == "lines")
        return number + '\t' + time + '\t' + escapeField(host) + '\t' + escapeField(user) + '\t' +
               escapeField(reason);
    return number + "  " + time + "  " + toPrintable(user + "@" + host + "  " + reason) +
           (entry.isOmitted() != 0 ? "  (contents too large for the log)" : "");
}

// Describes an undo that would replace later changes.
Failure describeConflict(ZFleetConflictException_6_0 const& conflict, Request const& request)
{
    std::string const stanza = toStdString(conflict.at(0).stanza());
    std::string const key = toStdString(conflict.at(0).key());
    std::string const more =
        conflict.count() == 1 ? "" : " and " + std::to_string(conflict.count() - 1) + " more";
    return {exitRefused,
            request.file,
            {(key.empty() ? "[" + stanza + "]" : nameKey(key, stanza)) + more + ": changed later",
             "run 'zfleet show " + request.file + " --generation N', and set the values"}};
}

struct ReleaseConnection {
    void operator()(ZFleetConnection_6_0* connection) const { connection->release(); }
};

}  // namespace

uint64_t generationOf(Request const& request)
{
    char* end = nullptr;
    uint64_t const generation = strtoull(request.nth.c_str(), &end, 10);
    if (request.nth.empty() || request.nth[0] < '0' || request.nth[0] > '9' || *end != 0 ||
        generation == 0)
        throw UsageError{"GENERATION is not a number from 1", {}};
    return generation;
}

bool loadConfiguration(std::string const& path, Store& store)
{
    if (ZFleetProperties_6_0::isFleetPath(path.c_str()) == 0)
        return false;
    FleetStore source;
    if (shownGeneration != 0)
        source.loadGeneration(path.c_str(), shownGeneration);
    else
        source.load(path.c_str());
    store.contents().swapContents(source.contents());
    return true;
}

int runFleetSet(Request const& request)
{
    for (int attempt = 1;; ++attempt) {
        FleetStore store;
        loadOrCreate(store, request);
        checkTopStanza(store.contents(), request.file, request.stanza, "use the name of a stanza");
        requireOneValue(store, request);
        store.setValue(request.stanza.c_str(), request.key.c_str(), request.value.c_str(),
                       request.obfuscated ? 1 : 0);
        store.setReason("zfleet set");
        try {
            store.store(request.file.c_str());
            return exitDone;
        } catch (ZPropertiesIOException_6_0 const& e) {
            if (e.excerrno() != ESTALE || attempt == kMaxAttempts)
                throw;
        }
    }
}

int runFleetLog(Request const& request)
{
    requireFleetPath(request);
    FleetStore const store;
    ZArrayList_6_0 log(8, 1);
    store.log(request.file.c_str(), log);
    for (unsigned i = 0; i < log.size(); ++i)
        printLine(request, formatGeneration(*static_cast<ZFleetGeneration_6_0*>(log.get(i)),
                                            request.format));
    return log.size() > 0 ? exitDone : exitNotFound;
}

int runFleetShow(Request const& request)
{
    requireFleetPath(request);
    shownGeneration = generationOf(request);
    return runList(request);
}

int runFleetUndo(Request const& request)
{
    requireFleetPath(request);
    FleetStore store;
    store.setReason("zfleet undo");
    uint64_t const generation = request.nth.empty() ? 0 : generationOf(request);
    try {
        store.undo(request.file.c_str(), generation);
        return exitDone;
    } catch (ZFleetConflictException_6_0 const& conflict) {
        throw describeConflict(conflict, request);
    } catch (ZPropertiesIOException_6_0 const& e) {
        if (e.excerrno() != ETIMEDOUT && e.excerrno() != EINPROGRESS)
            throw;
        // Without a number, a repetition could undo the undo.
        throw Failure{
            exitNoAccess,
            request.file,
            {"it is unknown whether the change was undone",
             "run 'zfleet log " + request.file + "', and pass --generation to repeat the command"}};
    }
}

int runFleetStatus(Request const& request)
{
    std::unique_ptr<ZFleetConnection_6_0, ReleaseConnection> const connection(
        ZFleetConnection_6_0::open(request.lockName.c_str()));
    bool isComplete = true;
    for (unsigned i = 0; i < connection->endpointCount(); ++i) {
        EndpointState state{connection->endpoint(i)};
        try {
            connection->checkEndpoint(i, state.member);
        } catch (ZPropertiesIOException_6_0 const& e) {
            state.error = e.excerrno();
            isComplete = false;
        }
        printLine(request, formatState(state, request.format));
    }
    return isComplete ? exitDone : exitDiffers;
}

Failure describeFleetError(ZPropertiesIOException_6_0 const& exception, Request const& request)
{
    std::string const path = toStdString(exception.propFile());
    bool const isOfKey = toStdString(exception.api()) == "fstat()" && exception.excerrno() == EPERM;
    if (isOfKey)
        return {exitNoAccess,
                path,
                {"other users have access to this private key", "run 'chmod 600 " + path + "'"}};
    if (ZFleetProperties_6_0::isFleetPath(path.c_str()) == 0)
        return describe(std::current_exception(), request.file);
    if (toStdString(exception.api()) == "log")
        return {exitNotFound,
                path,
                {"the log does not have the generation", "run 'zfleet log " + path + "'"}};
    for (ErrorRow const& row : kErrors) {
        if (row.error != exception.excerrno())
            continue;
        std::string remedy = row.remedy;
        if (size_t const place = remedy.find('%'); place != remedy.npos)
            remedy.replace(place, 1, fleetOf(path));
        return {row.code, path, {row.problem, remedy}};
    }
    return {exitNoAccess,
            path,
            {toStdString(exception.api()) + " failed: " + strerror(exception.excerrno()),
             "run 'zfleet status " + fleetOf(path) + "'"}};
}

Failure describeFleetError(ZPropertiesMissingPropertyException_6_0 const& exception)
{
    return {exitNotFound,
            toStdString(exception.propFile()),
            {"no " + nameKey(toStdString(exception.key()), toStdString(exception.category())),
             "add it, or check the name of the fleet"}};
}

Failure describeFleetError(ZPropertiesInvalidValueException_6_0 const& exception)
{
    return {exitInvalidValue,
            toStdString(exception.propFile()),
            {nameKey(toStdString(exception.key()), toStdString(exception.category())) +
                 ": invalid value",
             "see docs/fleet.md for the valid ones"}};
}
