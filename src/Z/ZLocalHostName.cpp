#include "ZLocalHostName.h"

#include <errno.h>
#include <netdb.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>

#include "ZException.h"
#include "ZMessage.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZLocalHostName";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInAllocate = 40, reportHostName = 52, reportHostByName = 66 };

using enum zreporting::Message;

constexpr size_t kNameSize = 256;            // bytes; buffer for gethostname()
constexpr size_t kLargestAnswer = 1u << 20;  // bytes; far above any resolver's result

struct Free {
    void operator()(char* block) const { free(block); }
};
using Block = std::unique_ptr<char, Free>;

Block allocate(size_t size)
{
    Block block(static_cast<char*>(malloc(size)));
    if (block == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInAllocate);
    return block;
}

}  // namespace

ZLCString_6_0 ZLocalHostName_6_0::getLocalHostName()
{
    Block const name = allocate(kNameSize);
    if (gethostname(name.get(), kNameSize) != 0) {
        zreporting::reportRc({kSource, reportHostName}, hostNameFailed, errno);
        return ZLCString_6_0();
    }
    name.get()[kNameSize - 1] = '\0';  // a truncated name has no terminator

    // The reentrant lookup: gethostbyname() returns a buffer that all threads share.
    for (size_t size = 1024; size <= kLargestAnswer; size *= 2) {
        Block const answer = allocate(size);
        hostent entry;
        hostent* found = nullptr;
        int resolverError = 0;
        errno = 0;
        int const rc =
            gethostbyname_r(name.get(), &entry, answer.get(), size, &found, &resolverError);
        if (rc == ERANGE)
            continue;
        if (found != nullptr)
            return ZLCString_6_0(found->h_name);
        break;
    }
    zreporting::reportRc({kSource, reportHostByName}, hostByNameFailed, errno);
    return ZLCString_6_0();
}
