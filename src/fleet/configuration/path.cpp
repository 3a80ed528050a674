#include "configuration/path.h"

#include <Z/ZException.h>
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <string_view>

namespace zfleet {

namespace {

constexpr char kSource[] = "src/fleet/configuration/path";
enum RaiseSite { raiseInParsePath = 1 };

constexpr std::string_view kScheme = "etcd://";
constexpr size_t kMaxNameLength = 255;  // bytes

bool isName(std::string_view name)
{
    auto const isValid = [](unsigned char byte) {
        return byte > ' ' && byte != '/' && byte != 127;
    };
    return !name.empty() && name.size() <= kMaxNameLength && name != "." && name != ".." &&
           std::all_of(name.begin(), name.end(), isValid);
}

}  // namespace

bool isFleetPath(char const* path)
{
    return path != nullptr && strncmp(path, kScheme.data(), kScheme.size()) == 0;
}

Path parsePath(char const* path)
{
    std::string_view const rest = std::string_view(path).substr(kScheme.size());
    size_t const slash = std::min(rest.find('/'), rest.size());
    std::string_view const fleet = rest.substr(0, slash);
    std::string_view const name = slash == rest.size() ? "" : rest.substr(slash + 1);
    if (!isName(fleet) || !isName(name))
        ZPropertiesIOException_6_0(path, "etcd://", EINVAL)
            .throwException(kSource, raiseInParsePath);
    return {std::string(fleet), std::string(name)};
}

}  // namespace zfleet
