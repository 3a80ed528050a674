// The conflicts that copies of an exception share.
#pragma once

#include <atomic>
#include <vector>

#include "ZFleetConflict.h"
#include "configuration/merge.h"

struct ZFleetConflictException_6_0::List {
    explicit List(std::vector<zfleet::Conflict> const& all)
    {
        conflicts.reserve(all.size());
        for (zfleet::Conflict const& conflict : all)
            conflicts.emplace_back(conflict.stanza.c_str(), conflict.key.c_str());
    }

    std::vector<ZFleetConflict_6_0> conflicts;
    std::atomic<unsigned> references{1};
};
