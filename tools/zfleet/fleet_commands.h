// fleet_commands: the verbs of zfleet that zstz does not have, and the failures of a cluster.
#pragma once

#include <Z/ZException.h>

#include "arguments.h"
#include "failures.h"
#include "request.h"
#include "stanza_file.h"

/// Loads a configuration into an empty store; returns false if `path` is a local file.
/// throws  as ZFleetProperties_6_0::load().
bool loadConfiguration(std::string const& path, Store& store);

/// Returns the generation of a request.
/// throws  UsageError if it is not a number from 1.
uint64_t generationOf(Request const& request);

/// Sets a key to a single value. Repeats the change while other programs are faster.
int runFleetSet(Request const& request);

/// Copies a local file to a configuration, or merges the changes since a generation, and prints the
/// difference. A store of another program at the same time is merged.
int runPush(Request const& request);

/// Copies a configuration to a local file, and prints the difference.
int runPull(Request const& request);

/// Prints the log of a configuration, the latest generation first.
int runFleetLog(Request const& request);

/// Prints the contents of an earlier generation, as `list` does.
int runFleetShow(Request const& request);

/// Undoes the change of a generation, by default of the latest.
int runFleetUndo(Request const& request);

/// Runs a command under a lock, or prints the state of the lock. Returns the exit code.
int runFleetLock(Request const& request);

/// Checks the arguments of `lock`.
/// throws  UsageError.
void checkFleetLock(Request const& request, PassedNames const& names);

/// Prints the state of each endpoint of a fleet. Returns exitDiffers if one of them does not reply.
int runFleetStatus(Request const& request);

/// Describe a failure of a cluster or of a file, and faults of the file of the fleets.
Failure describeFleetError(ZPropertiesIOException_6_0 const& exception, Request const& request);
Failure describeFleetError(ZPropertiesMissingPropertyException_6_0 const& exception);
Failure describeFleetError(ZPropertiesInvalidValueException_6_0 const& exception);
