// ZFleetConnection: the connection of a process to a cluster that holds configurations and locks.
//
// Subsystem: fleet.  Stands on: the foundation's ZObject, ZException, ZStanzaFileProperties.
//
// A fleet is a stanza of the file of the fleets, which has the endpoints of the cluster and how to
// reach them; docs/fleet.md lists the keys. Stores and locks of one fleet share a connection.
// Ownership: connections are counted. open() returns a reference, which release() gives up.
// Threads: any number of threads may use a connection at the same time. Calls run on the calling
// thread; gRPC has threads of its own, which never call the program and receive none of its
// signals. A thread cannot be cancelled during a call, and receives no signals during an attempt.
// Processes: after a process has used a connection, its children of fork() cannot use any: each
// call fails with ECHILD.
#pragma once

#include <Z/ZObject.h>
#include <stdint.h>

/// The state of a cluster, as an endpoint reports it.
struct ZFleetMember_6_0 {
    uint64_t cluster;  // id; it changes only if the cluster is created again
    uint64_t member;   // id of the node
    uint64_t term;     // rises with each election
    int64_t revision;  // rises with each change in the cluster
};

class ZFleetConnection_6_0 : public ZObject_6_0 {
public:
    /// Returns the connection of this process to `fleet`. The first call reads the file of the
    /// fleets; it does not connect.
    /// owns    a reference, released with release().
    /// throws  ZInvalidParameterException_6_0 if `fleet` is null or empty; as
    ///         ZStanzaFileProperties_6_0::load() for the file of the fleets;
    ///         ZPropertiesMissingPropertyException_6_0 (file, fleet, key) if it lacks a key;
    ///         ZPropertiesInvalidValueException_6_0 if a value is invalid;
    ///         ZPropertiesIOException_6_0 (file, "read()", errno) for an unreadable certificate,
    ///         (file, "fstat()", EPERM) for a private key to which other users have access, but the
    ///         group may read a key of root; and ("etcd://fleet", "dlopen(…)", ELIBACC) if gRPC or
    ///         its part of this library is missing.
    /// threads any.
    static ZFleetConnection_6_0* open(char const* fleet);

    ZFleetConnection_6_0(ZFleetConnection_6_0 const&) = delete;
    ZFleetConnection_6_0& operator=(ZFleetConnection_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Use release().
    ~ZFleetConnection_6_0() override;

    /// Adds a reference.
    void addReference();

    /// Releases a reference. The last one closes the connection and destroys the object.
    void release();

    /// Returns the name of the fleet.
    /// owns    borrowed until the last reference is released.
    char const* fleet() const;

    /// Returns the prefix of the fleet's keys in the cluster, without "/" at its end.
    /// owns    borrowed until the last reference is released.
    char const* prefix() const;

    /// Returns the number of endpoints.
    unsigned endpointCount() const;

    /// Returns an endpoint, as "host:port".
    /// owns    borrowed until the last reference is released.
    /// throws  ZInvalidParameterException_6_0 if `index` is not less than endpointCount().
    char const* endpoint(unsigned index) const;

    /// Reads the state of the cluster from one endpoint. An endpoint that has no contact to the
    /// majority of the cluster fails.
    /// throws  ZInvalidParameterException_6_0 as endpoint();
    ///         ZPropertiesIOException_6_0 ("etcd://fleet", method, errno): ETIMEDOUT if the
    ///         endpoint does not reply in time; EPROTO if it does not accept the certificates,
    ///         or is not a node of a cluster; EACCES without the right to read; ECHILD.
    /// cost    a call, at most as long as "call" in the file of the fleets.
    void checkEndpoint(unsigned index, ZFleetMember_6_0& member) const;

    struct Rep;

    /// Returns the hidden representation; of the library.
    Rep& rep() const { return *rep_; }

private:
    explicit ZFleetConnection_6_0(char const* fleet);

    Rep* const rep_;  // never null
};
