// JavaFilesFixture: the fixture of tests that load and store Java property files.
#pragma once

#include <Z/ZException.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "JavaStore.h"
#include "TestDirectory.h"

// If set, converting a unit fails.
inline bool convertingFails_ = false;

extern "C" {
int __real_zconvert_UTF16_to_UTF8_6_0(uint16_t const**, uint16_t const*, char**, char const*);
inline __attribute__((used)) int __wrap_zconvert_UTF16_to_UTF8_6_0(uint16_t const** from,
                                                                   uint16_t const* fromEnd,
                                                                   char** to, char const* toEnd)
{
    return convertingFails_ ? 2 : __real_zconvert_UTF16_to_UTF8_6_0(from, fromEnd, to, toEnd);
}
}

namespace java_store {

// Describes the exception of a call: class, file, call and errno.
template <class Call>
std::string raised(Call call)
{
    try {
        call();
    } catch (ZPropertiesIOException_6_0 const& e) {
        return std::to_string(e.where()) + " " + e.propFile().getChars() + " " +
               e.api().getChars() + " " + std::to_string(e.excerrno());
    } catch (ZUnexpectedEndOfFile_6_0& e) {
        testing::internal::CaptureStderr();
        e.dumpException();
        std::string const report = testing::internal::GetCapturedStderr();
        return std::to_string(e.where()) + " " + report.substr(report.find("Unexpected end"));
    } catch (ZException_6_0 const& e) {
        return e.exceptionName();
    }
    return "nothing";
}

// Returns whether another process can lock the file with this type without waiting.
inline bool isFree(std::string const& path, short type)
{
    pid_t const child = fork();
    if (child == 0) {
        int const fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct flock whole = {};
        whole.l_type = type;
        whole.l_whence = SEEK_SET;
        _exit(fd >= 0 && fcntl(fd, F_SETLK, &whole) == 0 ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return status == 0;
}

class ZJavaPropertiesFiles : public testing::Test {
protected:
    ZJavaPropertiesFiles() { setBytes(store_, "a", "1"); }
    ~ZJavaPropertiesFiles() noexcept override {}  // the store's destructor may throw

    // Expects that loading throws this and changes nothing, with and without a stop key.
    void expectNoLoad(std::string const& path, std::string const& failure)
    {
        std::string const names = directory_.names();
        EXPECT_EQ(failure, raised([&] { store_.load(path.c_str()); }));
        EXPECT_EQ(failure, raised([&] { store_.load(path.c_str(), "a"); }));
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
        EXPECT_EQ(names, directory_.names());
    }

    void expectNoStore(std::string const& path, std::string const& failure)
    {
        std::string const names = directory_.names();
        EXPECT_EQ(failure, raised([&] { store_.store(path.c_str()); }));
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
        EXPECT_EQ(names, directory_.names());
    }

    TestDirectory const directory_{TestDirectory::Place::memory};
    Store store_;
};

}  // namespace java_store
