#include "transport/requests.h"

namespace zfleet {

std::string endOfPrefix(std::string prefix)
{
    while (!prefix.empty() && static_cast<unsigned char>(prefix.back()) == 0xFF)
        prefix.pop_back();
    if (!prefix.empty())
        ++prefix.back();
    return prefix;
}

}  // namespace zfleet
