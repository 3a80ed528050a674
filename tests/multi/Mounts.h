// Mounts: file systems of our own, which nobody else sees and which go with the process.
#pragma once

#include <string>

class Mounts {
public:
    /// Gives the calling process mounts of its own; without root, where that is allowed.
    /// codes   why it cannot be had; "" when it can.
    static std::string separate();

    /// Mounts a tmpfs of `size` bytes on `where`, or gives the one there that size.
    static bool memory(std::string const& where, long size, bool again = false);

    /// Makes an ext4 of `megabytes` in the file `image`.
    static bool makeImage(std::string const& image, long megabytes);

    /// Mounts the file system in `image` on `where`, through a loop device.
    /// codes   why it cannot be had; "" when it can.
    static std::string image(std::string const& image, std::string const& where);

    static void unmount(std::string const& where);
};
