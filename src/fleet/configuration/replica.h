// replica: a copy of a configuration in a local file, for starts without the cluster.
//
// The file DIRECTORY/FLEET/NAME.conf is a stanza file with its companion. Its reserved stanza has
// the id of the cluster, the revisions of text and companion, and the generation.
#pragma once

#include <string>

#include "configuration/remote_configuration.h"
#include "settings/fleet_settings.h"

namespace zfleet {

class Replica {
public:
    /// range   `settings` have a directory for replicas.
    Replica(Settings const& settings, std::string const& name);

    std::string const& path() const { return path_; }

    struct State {
        Snapshot snapshot;
        uint64_t cluster;  // its id
    };

    /// Reads the replica.
    /// throws  as ZStanzaFileProperties_6_0::load(); ZPropertiesInvalidDataException_6_0 if the
    ///         file is not a replica; ZPropertiesIOException_6_0 with "access()" and EPERM if
    ///         another user can write the file or its directories.
    State read() const;

    /// Writes a state of the configuration, unless the replica is as recent. `revision` is the
    /// present one of the cluster. A replica of another cluster, or with a later revision, is kept
    /// as NAME.conf.orphan, and so is a file that is not a replica. Returns false in these cases.
    /// throws  as ZStanzaFileProperties_6_0::store(); ZPropertiesIOException_6_0 with "mkdir()",
    ///         and as read().
    bool write(State const& state, int64_t revision) const;

private:
    enum class Present { none, isRecent, isOlder, isForeign };

    Present compare(State const& state, int64_t revision) const;
    void keepAsOrphan() const;
    void createFile() const;

    void requireTrust() const;

    std::string const parent_;
    std::string const directory_;
    std::string const path_;
};

}  // namespace zfleet
