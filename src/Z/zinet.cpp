#include "zinet.h"

#include <arpa/inet.h>
#include <fcntl.h>

int zinet_pton_6_0(int family, char const* text, void* out)
{
    return inet_pton(family, text, out);
}

char const* zinet_ntop_6_0(int family, void const* address, char* buffer, unsigned int length)
{
    return inet_ntop(family, address, buffer, length);
}

int zsetfileinheritance_6_0(int fd, int inherit)
{
    return fcntl(fd, F_SETFD, inherit != 0 ? 0 : FD_CLOEXEC) == -1 ? 0 : 1;
}
