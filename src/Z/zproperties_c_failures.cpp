// The last failure of a thread, for callers of the plain functions.
#include <string.h>

#include <algorithm>
#include <iterator>

#include "handles/last_error.h"
#include "zproperties_c.h"

namespace {

// The sizes of the record in all versions, ascending. A caller's record of another size receives
// the fields of the largest version that fits.
constexpr unsigned kVersions[] = {64};
static_assert(sizeof(ZPROPError) == kVersions[std::size(kVersions) - 1]);

}  // namespace

int zstzPropGetLastError_6_0(ZPROPError* error)
{
    if (error == nullptr || error->size < kVersions[0])
        return zpropBadHandle;
    zhandles::LastError const last = zhandles::lastError();
    unsigned const size =
        *(std::upper_bound(std::begin(kVersions), std::end(kVersions), error->size) - 1);
    ZPROPError const filled = {size,        last.code, last.messageNumber, last.error, last.line,
                               last.column, last.file, last.stanza,        last.key,   last.text};
    memcpy(error, &filled, size);
    return zpropOk;
}
