#include <Z/ZArrayList.h>
#include <Z/ZLock.h>
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>

#include <atomic>
#include <string_view>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "JavaFilesFixture.h"
#include "LockingProcess.h"
#include "Nobody.h"
#include "Raised.h"
#include "Threads.h"

using namespace java_store;

namespace {

TEST_F(ZJavaPropertiesFiles, ThatCannotBeReadAreRefused)
{
    std::string const file = directory_.write("f", "b=2\n");
    std::string const fifo = directory_.at("fifo");
    std::string const loop = directory_.at("loop");
    std::string const longName = directory_.at(std::string(300, 'x'));
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    ASSERT_EQ(0, symlink("loop", loop.c_str()));
    struct Case {
        char const* name;
        std::string path;
        int error;
    };
    Case const cases[] = {
        {"missing", directory_.at("missing"), ENOENT},
        {"directory missing", directory_.at("missing/f"), ENOENT},
        {"below a file", file + "/f", ENOTDIR},
        {"FIFO", fifo, EINVAL},
        {"device", "/dev/null", EINVAL},
        {"link to itself", loop, ELOOP},
        {"name too long", longName, ENAMETOOLONG},
    };
    long const open = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectNoLoad(c.path, "151 " + c.path + " fopen(r) " + std::to_string(c.error));
    }
    // A directory can be opened but not read.
    expectNoLoad(directory_.path(),
                 "291 Unexpected end of file encounted while reading " + directory_.path() + ".");
    // So can the memory of the process: its first page is not mapped.
    expectNoLoad("/proc/self/mem",
                 "291 Unexpected end of file encounted while reading /proc/self/mem.");
    EXPECT_EQ(open, openDescriptors());
}

TEST_F(ZJavaPropertiesFiles, WithAJournalThatCannotBeReadAreRefused)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const path = directory_.write("own", "b=2\n");
        std::string const journal = directory_.write(".own.zjn", "");
        chmod(journal.c_str(), 0000);
        expectNoLoad(path, "180 " + journal + " open() 13");
        return !HasFailure();
    });
}

TEST_F(ZJavaPropertiesFiles, ThatCannotBeWrittenAreRefused)
{
    std::string const file = directory_.write("f", "b=2\n");
    std::string const fifo = directory_.at("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    struct Case {
        char const* name;
        std::string path;
        int error;
    };
    Case const cases[] = {
        {"directory missing", directory_.at("missing/f"), ENOENT},
        {"below a file", file + "/f", ENOTDIR},
        {"directory", directory_.path(), EISDIR},
        {"FIFO", fifo, EINVAL},
        {"name too long", directory_.at(std::string(300, 'x')), ENAMETOOLONG},
    };
    long const open = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectNoStore(c.path, "360 " + c.path + " fopen(wt) " + std::to_string(c.error));
    }
    for (char const* path : {static_cast<char const*>(nullptr), ""})
        EXPECT_TRUE(
            raises<ZInvalidParameterException_6_0>(22, kSource, 352, [&] { store_.store(path); }));
    EXPECT_EQ("b=2\n", directory_.read("f"));
    EXPECT_EQ(open, openDescriptors());
}

TEST_F(ZJavaPropertiesFiles, OfOthersAreRefused)
{
    std::string const path = directory_.write("f", "b=2\n");
    chmod(path.c_str(), 0000);
    chmod(directory_.path().c_str(), 0555);
    asNobody([&] {
        expectNoLoad(path, "151 " + path + " fopen(r) 13");
        expectNoStore(path, "360 " + path + " fopen(wt) 13");
        expectNoStore(directory_.at("new"), "360 " + directory_.at("new") + " fopen(wt) 13");
        return !HasFailure();
    });
    chmod(path.c_str(), 0600);
    EXPECT_EQ("b=2\n", directory_.read("f"));
}

TEST_F(ZJavaPropertiesFiles, MustBeRegular)
{
    std::string const fifo = directory_.at("fifo");
    std::string const socketPath = directory_.at("socket");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    int const listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_GT(sizeof address.sun_path, socketPath.size());
    socketPath.copy(address.sun_path, socketPath.size());
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    struct Case {
        char const* name;
        std::string path;
        int error;
    };
    Case const cases[] = {{"null device", "/dev/null", EINVAL},
                          {"endless device", "/dev/zero", EINVAL},
                          {"FIFO", fifo, EINVAL},
                          {"socket", socketPath, EINVAL}};
    struct stat before;
    stat("/dev/null", &before);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectNoLoad(c.path, "151 " + c.path + " fopen(r) " + std::to_string(c.error));
        expectNoStore(c.path, "360 " + c.path + " fopen(wt) " + std::to_string(c.error));
    }
    close(listener);
    struct stat after;
    stat("/dev/null", &after);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(ZJavaPropertiesFiles, AreStoredOnlyIfReadableAndWritable)
{
    std::string const writeOnly = directory_.at("write-only");
    std::string const readOnly = directory_.at("read-only");
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        directory_.write("write-only", "b=2\n");
        directory_.write("read-only", "b=2\n");
        chmod(writeOnly.c_str(), 0200);
        chmod(readOnly.c_str(), 0400);
        expectNoLoad(writeOnly, "151 " + writeOnly + " fopen(r) 13");
        expectNoStore(writeOnly, "360 " + writeOnly + " fopen(wt) 13");
        expectNoStore(readOnly, "360 " + readOnly + " fopen(wt) 13");
        Store other;
        EXPECT_EQ(1, other.load(readOnly.c_str()));
        EXPECT_EQ((Entries{{"b", "2"}}), entriesOf(other));
        return !HasFailure();
    });
    chmod(writeOnly.c_str(), 0600);
    EXPECT_EQ("b=2\n", directory_.read("write-only"));
    EXPECT_EQ("b=2\n", directory_.read("read-only"));
}

TEST_F(ZJavaPropertiesFiles, OfAnyKindAreReadFromAStream)
{
    FILE* const null = fopen("/dev/null", "r");
    EXPECT_EQ(1, store_.loadProperties(null, "null"));
    fclose(null);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));

    std::string const fifo = directory_.at("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    std::thread writer([&fifo] {
        FILE* const out = fopen(fifo.c_str(), "w");
        fputs("b=2\nc", out);
        fflush(out);
        fputs("=3\n", out);
        fclose(out);
    });
    FILE* const in = fopen(fifo.c_str(), "r");
    EXPECT_EQ(1, store_.loadProperties(in, "fifo"));
    fclose(in);
    writer.join();
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}, {"c", "3"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, FromAPipeWithoutDataFailIfItDoesNotWait)
{
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    ASSERT_EQ(4, write(ends[1], "b=2\n", 4));
    FILE* const stream = fdopen(ends[0], "r");
    EXPECT_EQ("291 Unexpected end of file encounted while reading the pipe.",
              raised([&] { store_.loadProperties(stream, "the pipe"); }));
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
    fclose(stream);
    close(ends[1]);
}

TEST_F(ZJavaPropertiesFiles, FromAPipeFailIfASignalEndsTheWait)
{
    struct sigaction before;
    struct sigaction interrupting = {};
    interrupting.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(0, sigaction(SIGUSR1, &interrupting, &before));
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    ASSERT_EQ(4, write(ends[1], "b=2\n", 4));
    FILE* const stream = fdopen(ends[0], "r");
    std::atomic<bool> ended = false;
    std::string failure;
    WatchedThread watched;
    std::thread reader([&] {
        watched.enter();
        failure = raised([&] { store_.loadProperties(stream, "the pipe"); });
        ended = true;
    });
    while (!ended) {
        watched.waitUntilAsleep();
        pthread_kill(reader.native_handle(), SIGUSR1);
    }
    reader.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ("291 Unexpected end of file encounted while reading the pipe.", failure);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
    fclose(stream);
    close(ends[1]);
}

// A thread waits for data of a pipe, is cancelled, and then gets the data.
TEST_F(ZJavaPropertiesFiles, FromAPipeAreReadCompletelyByACancelledThread)
{
    struct Reader {
        Store& store;
        FILE* stream;
        int result = -1;
        bool survived = false;
    };
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    ASSERT_EQ(6, write(ends[1], "b=2\nc=", 6));
    Reader reader{store_, fdopen(ends[0], "r")};
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(
                     &thread, nullptr,
                     [](void* argument) -> void* {
                         auto& own = *static_cast<Reader*>(argument);
                         own.result = own.store.loadProperties(own.stream, "pipe");
                         pthread_testcancel();
                         own.survived = true;
                         return nullptr;
                     },
                     &reader));
    // All data has been read: the thread waits, or is about to wait.
    for (int left = 1; left != 0;) {
        ASSERT_EQ(0, ioctl(ends[0], FIONREAD, &left));
        sched_yield();
    }
    pthread_cancel(thread);
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += 100000000;
    until.tv_sec += until.tv_nsec / 1000000000;
    until.tv_nsec %= 1000000000;
    void* ended = nullptr;
    EXPECT_EQ(ETIMEDOUT, pthread_timedjoin_np(thread, &ended, &until));
    ASSERT_EQ(6, write(ends[1], "3\nd=4\n", 6));
    close(ends[1]);
    ASSERT_EQ(0, pthread_join(thread, &ended));
    fclose(reader.stream);
    EXPECT_EQ(PTHREAD_CANCELED, ended);
    EXPECT_EQ(1, reader.result);
    EXPECT_FALSE(reader.survived);
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, LockedByAnotherProcessAreNotWaitedFor)
{
    std::string const path = directory_.write("f", "b=2\n");
    {
        LockingProcess const writer(path, F_WRLCK);
        expectNoLoad(path, "166 " + path + " fcntl() 11");
        expectNoStore(path, "373 " + path + " fcntl() 11");
    }
    {
        LockingProcess const reader(path, F_RDLCK);
        expectNoStore(path, "373 " + path + " fcntl() 11");
        Store other;
        EXPECT_EQ(1, other.load(path.c_str()));
        EXPECT_EQ("2", get(other, "b"));
    }
    EXPECT_EQ("b=2\n", directory_.read("f"));
    store_.store(path.c_str());
    EXPECT_EQ("#\na = 1\n", directory_.read("f"));
}

TEST_F(ZJavaPropertiesFiles, AreUnchangedIfAValueThrows)
{
    std::string const path = directory_.write("f", "b=2\n");
    std::string const made = directory_.at("new");
    long const open = openDescriptors();
    bool raising = false;
    HookedString value("2");
    value.onChars = [&raising] {
        if (raising)
            throw 7;
    };
    store_.setValue(ZUTF8String_6_0("z"), value);
    raising = true;
    EXPECT_THROW(store_.store(path.c_str()), int);
    EXPECT_THROW(store_.store(made.c_str()), int);
    EXPECT_EQ("b=2\n", directory_.read("f"));
    EXPECT_EQ("f", directory_.names());
    EXPECT_EQ(open, openDescriptors());
    EXPECT_TRUE(isFree(path, F_WRLCK));
    raising = false;
    store_.store(path.c_str());
    EXPECT_EQ("#\nz = 2\na = 1\n", directory_.read("f"));
}

TEST_F(ZJavaPropertiesFiles, AreLockedForOthersWhileTheyAreStored)
{
    std::string const path = directory_.write("f", "b=2\n");
    int asked = 0;
    bool watching = false;
    HookedString value("2");
    value.onChars = [&] {
        if (!watching)
            return;
        ++asked;
        EXPECT_FALSE(isFree(path, F_RDLCK));
        EXPECT_EQ("b=2\n", directory_.read("f"));
    };
    store_.setValue(ZUTF8String_6_0("z"), value);
    watching = true;
    store_.store(path.c_str());
    watching = false;
    EXPECT_LT(0, asked);
    EXPECT_TRUE(isFree(path, F_WRLCK));
}

TEST_F(ZJavaPropertiesFiles, AreUnchangedIfWritingFails)
{
    std::string const path = directory_.write("f", "b=2\n");
    struct rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    struct rlimit limit = before;
    limit.rlim_cur = 5;
    setrlimit(RLIMIT_FSIZE, &limit);
    std::string const existing = raised([&] { store_.store(path.c_str()); });
    std::string const made = raised([&] { store_.store(directory_.at("new").c_str()); });
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ("410 " + directory_.at(".f.zjn.new") + " write() 27", existing);
    EXPECT_EQ("410 " + directory_.at(".new.zjn.new") + " write() 27", made);
    EXPECT_EQ("b=2\n", directory_.read("f"));
    EXPECT_EQ("f", directory_.names());
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, ThatFailDuringAReadAddNothing)
{
    FILE* const unreadable = fopen(directory_.at("w").c_str(), "w");
    EXPECT_TRUE(raises<ZUnexpectedEndOfFile_6_0>(53, kSource, 291,
                                                 [&] { store_.loadProperties(unreadable, "w"); }));
    fclose(unreadable);

    // Fails after a complete entry.
    int reads = 0;
    cookie_io_functions_t const functions = {[](void* cookie, char* buffer, size_t) -> ssize_t {
                                                 if (++*static_cast<int*>(cookie) > 1) {
                                                     errno = EIO;
                                                     return -1;
                                                 }
                                                 std::string_view const text = "a=2\nb=2\n";
                                                 text.copy(buffer, text.size());
                                                 return static_cast<ssize_t>(text.size());
                                             },
                                             nullptr, nullptr, nullptr};
    FILE* const failing = fopencookie(&reads, "r", functions);
    EXPECT_EQ("291 Unexpected end of file encounted while reading the path.",
              raised([&] { store_.loadProperties(failing, "the path"); }));
    fclose(failing);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, WithAUnitThatCannotBeConvertedAddNothing)
{
    std::string const path = directory_.write("f", "a=2\nb=\\u0041\n");
    convertingFails_ = true;
    EXPECT_TRUE(raises<ZToUTF8Exception_6_0>(49, kSource, 914, [&] { store_.load(path.c_str()); }));
    convertingFails_ = false;
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
    store_.load(path.c_str());
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "A"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, AndValuesAreUnchangedIfMemoryIsExhausted)
{
    std::string const longText(200, 'x');
    setBytes(store_, longText, longText);
    Entries const before = entriesOf(store_);
    ZUTF8String_6_0 const key(longText.c_str());
    ZUTF8String_6_0 const newKey("new");
    ZUTF8String_6_0 value("before");
    ZArrayList_6_0 keys(1, 1);
    std::string const path = directory_.at("f");
    auto const store = [&] { store_.store(path.c_str()); };

    EXPECT_LT(0u, failEachAllocation([] { Store const made; }, [] {}));
    EXPECT_LT(0u, failEachAllocation([&] { store_.getValue(key, value); },
                                     [&] { EXPECT_EQ("before", bytesOf(value)); }));
    EXPECT_EQ(longText, bytesOf(value));
    EXPECT_LT(2u, failEachAllocation([&] { store_.listKeys(keys); },
                                     [&] { EXPECT_EQ(0u, keys.size()); }));
    store();  // the first store creates the table of open files
    std::string const written = directory_.read("f");
    ASSERT_EQ(0, unlink(path.c_str()));
    EXPECT_LT(3u, failEachAllocation(store, [&] { EXPECT_EQ("", directory_.names()); }));
    EXPECT_EQ(written, directory_.read("f"));
    directory_.write("f", "old\n");
    EXPECT_LT(3u, failEachAllocation(store, [&] {
                  EXPECT_EQ("old\n", directory_.read("f"));
                  EXPECT_EQ("f", directory_.names());
              }));
    EXPECT_EQ(written, directory_.read("f"));
    EXPECT_LT(2u, failEachAllocation([&] { store_.setValue(newKey, key); },
                                     [&] { EXPECT_EQ(before, entriesOf(store_)); }));
    EXPECT_EQ(longText, get(store_, "new"));
}

TEST_F(ZJavaPropertiesFiles, AndAStoreServeEightThreads)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 20;
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += "key" + std::to_string(i) + " = caf\\u00e9 " + std::to_string(i) + "\n";
    std::string const path = directory_.write("f", text);
    Store const* readOnly = nullptr;
    Store loaded;
    loaded.load(path.c_str());
    readOnly = &loaded;

    ZLock_6_0 lock;  // serialises the use of one store, as its contract requires
    std::atomic<int> wrong = 0;
    auto const work = [&](int number) {
        std::string const own = directory_.at("t" + std::to_string(number));
        for (int i = 0; i < kRounds; ++i) {
            // A store that no thread changes may be read by all.
            if (get(*readOnly, "key42") != "caf\xC3\xA9 42")
                ++wrong;
            // Every thread has its own store; all stores use one file.
            Store mine;
            mine.load(path.c_str());
            setBytes(mine, "thread", std::to_string(number));
            mine.store(own.c_str());
            ZResourceLock_6_0 const hold(lock);
            store_.load(own.c_str());
            if (get(store_, "thread") != std::to_string(number))
                ++wrong;
            store_.store(directory_.at("shared").c_str());
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(102u, entriesOf(store_).size());
}

}  // namespace

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
