// TestDirectory: a fresh directory for one test, and files in it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Returns the names in a directory, sorted, separated by spaces.
inline std::string namesIn(std::string const& directory)
{
    std::vector<std::string> found;
    for (auto const& entry : std::filesystem::directory_iterator(directory))
        found.push_back(entry.path().filename().string());
    std::sort(found.begin(), found.end());
    std::string all;
    for (std::string const& name : found)
        all += all.empty() ? name : " " + name;
    return all;
}

class TestDirectory {
public:
    // On disk, or in memory if the system has a file system in memory.
    enum class Place { disk, memory };

    explicit TestDirectory(Place place = Place::disk)
    {
        bool const memory = place == Place::memory && access("/dev/shm", W_OK) == 0;
        make(memory ? "/dev/shm" : "/tmp");
    }
    explicit TestDirectory(std::string const& under) { make(under); }
    TestDirectory(TestDirectory const&) = delete;
    TestDirectory& operator=(TestDirectory const&) = delete;
    ~TestDirectory()
    {
        chmod(path_.c_str(), 0700);
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string const& path() const { return path_; }
    std::string at(std::string const& name) const { return path_ + "/" + name; }

    // Writes a new file with mode 0600, or overwrites an existing one, and returns its path.
    std::string write(std::string const& name, std::string const& text) const
    {
        std::string const file = at(name);
        int const fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(fd, text.data(), text.size()));
        close(fd);
        return file;
    }

    // Returns the contents of a file; "(missing)" if it does not exist.
    std::string read(std::string const& name) const
    {
        std::ifstream in(at(name), std::ios::binary);
        if (!in)
            return "(missing)";
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string names() const { return namesIn(path_); }

private:
    void make(std::string const& under)
    {
        std::string name = under + "/zstoreXXXXXX";
        path_ = std::filesystem::canonical(mkdtemp(name.data())).string();
    }

    std::string path_;
};

// Returns the number of open descriptors of the process.
inline long openDescriptors()
{
    auto const all = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(all), end(all));
}
