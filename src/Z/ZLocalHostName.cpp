#include "ZLocalHostName.h"

#include <errno.h>
#include <netdb.h>
#include <unistd.h>

#include "ZException.h"
#include "ZMessage.h"
#include "memory/owned_block.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZLocalHostName";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInAllocate = 40, reportHostName = 52, reportHostByName = 66 };

using enum zreporting::Message;

constexpr size_t kNameSize = 256;            // bytes; buffer for gethostname()
constexpr size_t kMaxResultSize = 1u << 20;  // bytes; far above any resolver's result

}  // namespace

ZLCString_6_0 ZLocalHostName_6_0::getLocalHostName()
{
    zmemory::OwnedBlock<char> name;
    name.resize(kNameSize, kSource, raiseInAllocate);
    if (gethostname(name.data(), kNameSize) != 0) {
        zreporting::reportRc({kSource, reportHostName}, hostNameFailed, errno);
        return ZLCString_6_0();
    }
    name[kNameSize - 1] = '\0';  // a truncated name has no terminator

    // The reentrant lookup: gethostbyname() returns a buffer that all threads share.
    for (size_t size = 1024; size <= kMaxResultSize; size *= 2) {
        zmemory::OwnedBlock<char> buffer;
        buffer.resize(size, kSource, raiseInAllocate);
        hostent entry;
        hostent* found = nullptr;
        int resolverError = 0;
        errno = 0;
        int const rc =
            gethostbyname_r(name.data(), &entry, buffer.data(), size, &found, &resolverError);
        if (rc == ERANGE)
            continue;
        if (found != nullptr)
            return ZLCString_6_0(found->h_name);
        break;
    }
    zreporting::reportRc({kSource, reportHostByName}, hostByNameFailed, errno);
    return ZLCString_6_0();
}
