#include "Mounts.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>

#include "Campaign.h"

namespace {

bool writeTo(char const* file, std::string const& text)
{
    int const fd = open(file, O_WRONLY | O_CLOEXEC);
    bool const done =
        fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return done;
}

}  // namespace

std::string Mounts::separate()
{
    if (unshare(CLONE_NEWNS) != 0) {
        std::string const user = std::to_string(geteuid());
        std::string const group = std::to_string(getegid());
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !writeTo("/proc/self/setgroups", "deny") ||
            !writeTo("/proc/self/uid_map", "0 " + user + " 1") ||
            !writeTo("/proc/self/gid_map", "0 " + group + " 1"))
            return "mounts are not permitted here";
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return "mounts are not permitted here";
    return "";
}

bool Mounts::memory(std::string const& where, long size, bool again)
{
    std::string const options = "size=" + std::to_string(size);
    return mount("tmpfs", where.c_str(), "tmpfs", again ? MS_REMOUNT : 0, options.c_str()) == 0;
}

bool Mounts::makeImage(std::string const& image, long megabytes)
{
    int const fd = open(image.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    bool const made = fd >= 0 && ftruncate(fd, megabytes << 20) == 0;
    close(fd);
    return made && runProgram({"mkfs.ext4", "-q", "-F", "-b", "4096", "-m", "0", image}) == 0;
}

std::string Mounts::image(std::string const& image, std::string const& where)
{
    constexpr int kAttempts = 100;  // another process may take the device that was free
    int const control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    int const file = open(image.c_str(), O_RDWR | O_CLOEXEC);
    std::string why = control < 0 ? "loop devices are missing" : "no loop device is available";
    for (int i = 0; control >= 0 && file >= 0 && i < kAttempts; ++i) {
        std::string const device = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
        int const loop = open(device.c_str(), O_RDWR | O_CLOEXEC);
        if (loop < 0)
            break;
        // The kernel frees the device after its last mount and descriptor.
        loop_config config = {};
        config.fd = static_cast<unsigned>(file);
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        bool const taken = ioctl(loop, LOOP_CONFIGURE, &config) == 0;
        bool const busy = errno == EBUSY;
        bool const mounted = taken && mount(device.c_str(), where.c_str(), "ext4", 0, nullptr) == 0;
        if (taken && !mounted)
            why = std::string("no loop device can be mounted: ") + strerror(errno);
        close(loop);
        if (mounted)
            why = "";
        if (mounted || taken || !busy)
            break;
    }
    close(file);
    close(control);
    return why;
}

void Mounts::unmount(std::string const& where)
{
    umount2(where.c_str(), MNT_DETACH);
}
