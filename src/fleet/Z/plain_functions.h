// plain_functions: the functions that the foundation's plain functions load to read and write
// configurations in a cluster. They throw the exceptions of ZFleetProperties_6_0.
//
// A session belongs to one open file; the caller serialises its calls.
#pragma once

class ZSCFData_6_0;

extern "C" {

/// Creates a session.
/// owns    released with zfleetSessionClose_6_0().
void* zfleetSessionOpen_6_0(void);

void zfleetSessionClose_6_0(void* session);

/// Returns the configuration at `path`, with the attributes of `prototype`.
/// owns    owned by the caller, who takes over the contents.
/// throws  as ZFleetProperties_6_0::load().
ZSCFData_6_0* zfleetSessionLoad_6_0(void* session, char const* path, ZSCFData_6_0 const* prototype);

/// Writes the contents of `cache` to the configuration at `path`. Returns the contents that were
/// stored, if they are the result of a merge; else null.
/// owns    owned by the caller, who takes over the contents.
/// throws  as ZFleetProperties_6_0::store().
ZSCFData_6_0* zfleetSessionStore_6_0(void* session, char const* path, ZSCFData_6_0 const* cache);
}
