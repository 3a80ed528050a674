#include "transport/event.h"

#include <errno.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "transport/failure.h"

namespace zfleet {

Event::Event() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (fd_ < 0)
        throw CallError{"eventfd()", errno, false, "no descriptor"};
}

Event::~Event()
{
    close(fd_);
}

void Event::signal() const
{
    eventfd_write(fd_, 1);
}

void Event::clear() const
{
    eventfd_t ignored;
    eventfd_read(fd_, &ignored);
}

}  // namespace zfleet
