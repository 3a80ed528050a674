#include "ZWinRegistry.h"

#include "ZException.h"

namespace {

constexpr char kSource[] = "src/Z/ZWinRegistry";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite { raiseInExists = 34, raiseInGetValue = 47 };

}  // namespace

int ZWinRegistry_6_0::exists(char const*, char const*)
{
    ZInvalidPlatformException_6_0().throwException(kSource, raiseInExists);
}

void ZWinRegistry_6_0::getValue(char const*, char const*, ZAbstractMutableString_6_0&)
{
    ZInvalidPlatformException_6_0().throwException(kSource, raiseInGetValue);
}
