// CampaignSize: the size of a campaign, which is smaller in a usual run of the tests.
//
// `./dev fleet --campaigns` sets ZFLEET_CAMPAIGN=whole.
#pragma once

#include <stdlib.h>
#include <string.h>

#include <chrono>

inline bool isWholeCampaign()
{
    char const* const size = getenv("ZFLEET_CAMPAIGN");
    return size != nullptr && strcmp(size, "whole") == 0;
}

inline unsigned scaled(unsigned whole, unsigned part)
{
    return isWholeCampaign() ? whole : part;
}

inline double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
