#include <Z/store/journaled_file.h>
#include <Z/store/limits.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "JournalForm.h"
#include "JournaledFileFixture.h"

using ZJournaledFileLimits = JournaledFileFixture;

TEST_F(ZJournaledFileLimits, StoreFailsAtTheFileSizeLimit)
{
    put(kShort);
    std::string const big(1 << 20, 'x');
    for (bool interrupted : {false, true}) {
        SCOPED_TRACE(interrupted);
        pid_t const child = fork();
        if (child == 0) {
            rlimit const limit = {1 << 16, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &limit);
            int error = 0;
            CallPlan plan;
            plan.before = [=, waits = 0](SystemCall const& call) mutable {
                return call.name == "sigtimedwait" && ++waits == 1 && interrupted ? EINTR : 0;
            };
            try {
                CallRecorder const watch(plan);
                storeText(big);
            } catch (zstore::JournaledFile::IoError const& failure) {
                error = failure.error;
            }
            sigset_t pending;
            sigpending(&pending);
            _exit(error == EFBIG && sigismember(&pending, SIGXFSZ) == 0 ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status);
        EXPECT_EQ(kShort, load());
        EXPECT_EQ("conf conf.obf", directory_.names());
    }
}

TEST_F(ZJournaledFileLimits, PendingFileSizeSignalStaysPending)
{
    sigset_t size;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&size);
    sigaddset(&size, SIGXFSZ);
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &size, &before));
    raise(SIGXFSZ);
    put(kShort);
    store(kLong);
    EXPECT_EQ(0, sigpending(&pending));
    EXPECT_EQ(1, sigismember(&pending, SIGXFSZ));
    timespec const now = {0, 0};
    sigtimedwait(&size, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(ZJournaledFileLimits, RecoverySucceedsIfTheJournalExceedsTheFileSizeLimit)
{
    put(kShort);
    directory_.write(".conf.zjn", journalOf(kShort, {std::string(1 << 17, 'x'), ""}, ""));
    pid_t const child = fork();
    if (child == 0) {
        rlimit const limit = {1 << 16, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        store(kLong);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(kLong, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZJournaledFileLimits, FilesAboveTheLimitAreNeitherReadNorWritten)
{
    struct Limit {
        explicit Limit(size_t size) { zstore::setMaxFileSize(size); }
        ~Limit() { zstore::setMaxFileSize(zstore::kDefaultMaxFileSize); }
    };
    EXPECT_EQ(size_t{1} << 30, zstore::maxFileSize());
    put({std::string(100, 'x'), ""});
    {
        Limit const limit(100);
        EXPECT_EQ(100u, load().text.size());
        expectFailure(path_, "write()", EFBIG, CallPlan(),
                      [&] { storeText(std::string(101, 'y')); });
        storeText(std::string(100, 'y'));
        directory_.write("conf", std::string(101, 'x'));
        for (zstore::JournaledFile::Mode mode :
             {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
            expectFailure(path_, "read()", EFBIG, CallPlan(),
                          [&] { zstore::JournaledFile(path_.c_str(), mode); });
        // The same for a file that grows while it is read.
        CallPlan growing;
        growing.after = [](SystemCall const& call, ssize_t& result) {
            if (call.name == "fstat" && result == 0)
                static_cast<struct stat*>(call.to)->st_size = 1;
        };
        expectFailure(path_, "read()", EFBIG, growing, [&] {
            zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load);
        });
    }
    put(kShort);
    directory_.write(".conf.zjn", "");
    auto const most = static_cast<off_t>(zstore::maxJournalSize());
    ASSERT_EQ(0, truncate(journal_.c_str(), most + 1));
    for (zstore::JournaledFile::Mode mode :
         {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
        expectFailure(journal_, "read()", EFBIG, CallPlan(),
                      [&] { zstore::JournaledFile(path_.c_str(), mode); });
}
