// ScratchDirectory: a temporary directory for the files of a fuzz target.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "check.h"

// In memory if possible; the destructor removes it. Files are private to their user.
class ScratchDirectory {
public:
    ScratchDirectory()
        : path_(access("/dev/shm", W_OK) == 0 ? "/dev/shm/zfuzzXXXXXX" : "/tmp/zfuzzXXXXXX")
    {
        check(mkdtemp(path_.data()) != nullptr, "a temporary directory can be created");
    }
    ScratchDirectory(ScratchDirectory const&) = delete;
    ScratchDirectory& operator=(ScratchDirectory const&) = delete;
    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    char const* path() const { return path_.c_str(); }
    std::string at(std::string const& name) const { return path_ + "/" + name; }
    void write(std::string const& name, std::string const& bytes) const
    {
        std::ofstream(at(name), std::ios::binary | std::ios::trunc) << bytes;
        check(chmod(at(name).c_str(), 0600) == 0, "this user owns the file");
    }
    std::string read(std::string const& name) const
    {
        std::ifstream in(at(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void clear() const
    {
        for (auto const& entry : std::filesystem::directory_iterator(path_))
            std::filesystem::remove_all(entry.path());
    }

private:
    std::string path_;
};
