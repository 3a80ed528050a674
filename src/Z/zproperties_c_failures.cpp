// The last failure of a thread, for callers of the plain functions.
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "handles/last_error.h"
#include "zproperties_c.h"

namespace {

// The end of the last field of the first version of a record.
constexpr size_t kErrorSize = offsetof(ZPROPError, text) + sizeof(char const*);

}  // namespace

int zstzPropGetLastError_6_0(ZPROPError* error)
{
    if (error == nullptr || error->size < kErrorSize)
        return zpropBadHandle;
    zhandles::LastError const last = zhandles::lastError();
    unsigned const size = std::min<unsigned>(error->size, sizeof *error);
    ZPROPError const filled = {size,        last.code, last.messageNumber, last.error, last.line,
                               last.column, last.file, last.stanza,        last.key,   last.text};
    memcpy(error, &filled, size);
    return zpropOk;
}
