// TreeState: a comparable description of all files below a directory: status and contents.
#pragma once

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

inline std::string contentsOf(std::string const& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Returns a line for every file below `directory`: mode, owner, size, time, inode and checksum.
inline std::string treeState(std::string const& directory)
{
    std::vector<std::string> lines;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(directory)) {
        struct stat status;
        if (lstat(entry.path().c_str(), &status) != 0)
            continue;
        std::string line = entry.path().lexically_relative(directory).string();
        for (long long const number :
             {static_cast<long long>(status.st_mode), static_cast<long long>(status.st_uid),
              static_cast<long long>(status.st_gid), static_cast<long long>(status.st_size),
              static_cast<long long>(status.st_mtim.tv_sec),
              static_cast<long long>(status.st_mtim.tv_nsec),
              static_cast<long long>(status.st_ino)})
            line += ' ' + std::to_string(number);
        if (S_ISREG(status.st_mode)) {
            std::string const text = contentsOf(entry.path().string());
            line += ' ' + std::to_string(
                              crc32_z(0, reinterpret_cast<Bytef const*>(text.data()), text.size()));
        }
        lines.push_back(line + '\n');
    }
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (std::string const& line : lines)
        all += line;
    return all;
}
