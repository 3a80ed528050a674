// fleet_settings: the description of a cluster in the file of the fleets.
//
// The file is a stanza file with a stanza for each fleet; docs/fleet.md lists its keys. It is the
// file that the environment variable ZFLEETCONF names, unless the process runs with more rights
// than its user, or else the installed one.
#pragma once

#include <string>
#include <vector>

#include "transport/endpoint.h"

namespace zfleet {

/// The most generations that the log of a configuration keeps. A store removes the oldest ones in
/// its transaction.
inline constexpr unsigned kMaxKeptGenerations = 100;

struct Settings {
    std::string fleet;
    std::vector<std::string> endpoints;  // "host:port"
    Certificates certificates;
    std::string user;
    std::string password;
    std::string prefix = "/zfleet/6";  // without "/" at its end
    std::string replicaDirectory;      // empty: no replica
    Clock::duration callTimeout = std::chrono::milliseconds(1500);
    Clock::duration budget = std::chrono::seconds(15);
    Clock::duration lookInterval = std::chrono::seconds(30);
    unsigned leaseSeconds = 30;
    unsigned keptGenerations = 64;
};

/// Returns the path of the file of the fleets.
std::string settingsPath();

/// Reads the stanza `fleet` of the file of the fleets.
/// throws  as ZStanzaFileProperties_6_0::load(); ZPropertiesMissingPropertyException_6_0 if the
///         stanza, "endpoint" or "ca" is missing, or one of "certificate" and "key", or of "user"
///         and "password"; ZPropertiesInvalidValueException_6_0 for an invalid value, a password
///         that is not obfuscated, or "plain" with certificates or a user;
///         ZPropertiesIOException_6_0 with "read()" for a certificate that cannot be read, and
///         with "fstat()" and EPERM for a private key to which other users have access.
Settings readSettings(std::string const& fleet);

/// Returns whether `address` has the form "host:port", "[IPv6 address]:port" included.
bool isAddress(std::string const& address);

}  // namespace zfleet
