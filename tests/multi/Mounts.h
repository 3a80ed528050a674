// Mounts: file systems that only this process sees, and that are unmounted when it ends.
#pragma once

#include <string>

class Mounts {
public:
    /// Gives the calling process a mount namespace of its own; without root if that is allowed.
    /// codes   the reason for a failure; "" on success.
    static std::string separate();

    /// Mounts a tmpfs of `size` bytes on `where`; with `again`, resizes the tmpfs there.
    static bool memory(std::string const& where, long size, bool again = false);

    /// Creates an ext4 of `megabytes` in the file `image`.
    static bool makeImage(std::string const& image, long megabytes);

    /// Mounts the file system in `image` on `where`, through a loop device.
    /// codes   the reason for a failure; "" on success.
    static std::string image(std::string const& image, std::string const& where);

    static void unmount(std::string const& where);
};
