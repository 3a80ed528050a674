// FileLockFixture: the fixture of the tests of ZProcessReadWriteFileLock.
#pragma once

#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "LockStates.h"
#include "OtherLocker.h"
#include "ProcessLockChecks.h"
#include "Raised.h"
#include "SeenRanges.h"
#include "SystemCalls.h"
#include "TestDirectory.h"
#include "Threads.h"

namespace file_lock {

inline constexpr char kSource[] = "src/Z/ZProcessReadWriteFileLock";

using Lock = ZUnixProcessReadWriteFileLock_6_0;

using process_lock::comesThrough;
using process_lock::Observer;

// The file of the lock "a" in a directory of its own.
class LockFile {
protected:
    std::string const& dir() const { return directory_.path(); }
    std::string path() const { return directory_.at("._zpla"); }
    std::string seen() const { return seenRanges(path()); }

    // Returns a word of the lock file.
    uint32_t word(size_t index) const
    {
        std::string const text = directory_.read("._zpla");
        uint32_t value = 0xDEADBEEF;
        if (text.size() >= 4 * index + 4)
            std::memcpy(&value, text.data() + 4 * index, sizeof value);
        return value;
    }
    void putSequence(uint32_t value) const
    {
        directory_.write("._zpla",
                         std::string(reinterpret_cast<char const*>(&value), sizeof value));
    }

    TestDirectory directory_{TestDirectory::Place::memory};
};

class ZProcessReadWriteFileLock : public testing::Test, protected LockFile {
protected:
    // Another process increments the sequence number.
    void changeElsewhere() const
    {
        OtherLocker other(dir(), "a");
        EXPECT_EQ("write", other.does('w').substr(0, 5));
        EXPECT_EQ("unset", other.does('u').substr(0, 5));
    }

    void expectFree(Lock& lock) const
    {
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ(0, lock.getReaderCount());
        std::string const ranges = seen();
        EXPECT_TRUE(ranges == "--" || ranges == "??") << ranges;
        // No thread holds the lock between threads either.
        CallPlan const before = callPlan;
        callPlan = CallPlan();
        elsewhere([&] {
            lock.writeLock();
            lock.unlock(0);
        });
        callPlan = before;
    }
};
}  // namespace file_lock
