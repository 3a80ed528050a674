#include "ZStoreFile_p.h"

#include <errno.h>
#include <limits.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <new>
#include <utility>

#include "ZAdler32.h"

namespace {

using Bytes = ZStoreFile::Bytes;
using View = ZStoreFile::View;

constexpr int kAttempts = 100;  // at a file that is replaced again and again while it is opened
constexpr char kMapCall[] = "mapFile()";
// What packs 256 MiB, the most that is ever unpacked, is hardly longer than that.
constexpr off_t kMostPacked = off_t{257} << 20;
constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

bool sameBytes(View a, View b)
{
    return a.length == b.length && (a.length == 0 || memcmp(a.data, b.data, a.length) == 0);
}

View viewOf(Bytes const& bytes)
{
    return {bytes.data(), bytes.length()};
}

// The checksum of the bytes behind those that `crc` stands for; 0 to begin with.
uint32_t checksum(View bytes, uint32_t crc = 0)
{
    if (bytes.length == 0)
        return crc;
    return static_cast<uint32_t>(
        crc32_z(crc, reinterpret_cast<Bytef const*>(bytes.data), bytes.length));
}

// Adler-32, which reads memory at its full speed, for the long stretches that a store leaves alone.
uint32_t quickChecksum(View bytes)
{
    unsigned long sum = 1;
    while (bytes.length > 0) {
        size_t const length = std::min<size_t>(bytes.length, UINT_MAX);
        sum = ZAdler32_6_0::adler32(sum, reinterpret_cast<unsigned char const*>(bytes.data),
                                    static_cast<unsigned int>(length));
        bytes = {bytes.data + length, bytes.length - length};
    }
    return static_cast<uint32_t>(sum);
}

// ---- What two texts have in common -------------------------------------------------------------

constexpr size_t kBlock = 4096;  // compared at once

size_t commonBeginning(View a, View b)
{
    size_t const most = std::min(a.length, b.length);
    size_t n = 0;
    while (most - n >= kBlock && memcmp(a.data + n, b.data + n, kBlock) == 0)
        n += kBlock;
    while (n < most && a.data[n] == b.data[n])
        ++n;
    return n;
}

size_t commonEnd(View a, View b)
{
    char const* const endOfA = a.data + a.length;
    char const* const endOfB = b.data + b.length;
    size_t const most = std::min(a.length, b.length);
    size_t n = 0;
    while (most - n >= kBlock && memcmp(endOfA - n - kBlock, endOfB - n - kBlock, kBlock) == 0)
        n += kBlock;
    while (n < most && *(endOfA - n - 1) == *(endOfB - n - 1))
        ++n;
    return n;
}

View behind(View bytes, size_t n)
{
    return {bytes.data + n, bytes.length - n};
}

View withoutEnd(View bytes, size_t n)
{
    return {bytes.data, bytes.length - n};
}

// What is to be done to an old text to make it the new one: a beginning stays, and so does an end,
// unless the lengths differ. Then the end that both have moves.
//
//     old   beginning  old middle  moved  end
//     new   beginning  new middle  moved  end
struct Difference {
    size_t beginning = 0;
    size_t end = 0;
    View oldMiddle;
    View newMiddle;
    View moved;

    Difference() = default;
    Difference(View oldText, View newText);

    bool isEmpty() const { return oldMiddle.length == 0 && newMiddle.length == 0; }
};

Difference::Difference(View oldText, View newText)
{
    beginning = commonBeginning(oldText, newText);
    oldMiddle = behind(oldText, beginning);
    newMiddle = behind(newText, beginning);
    size_t const common = commonEnd(oldMiddle, newMiddle);
    if (oldText.length == newText.length)
        end = common;
    else
        moved = behind(newMiddle, newMiddle.length - common);
    oldMiddle = withoutEnd(oldMiddle, common);
    newMiddle = withoutEnd(newMiddle, common);
}

// ---- Paths -------------------------------------------------------------------------------------

std::string directoryOf(std::string const& path)
{
    size_t const slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(std::string const& path)
{
    size_t const slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A hidden neighbour of `path`: ".<name><end>" in the same directory.
std::string neighbour(std::string const& path, char const* end)
{
    std::string const directory = directoryOf(path);
    return directory + (directory == "/" ? "." : "/.") + nameOf(path) + end;
}

bool sameFile(struct stat const& a, struct stat const& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool sameDirectory(std::string const& a, std::string const& b)
{
    struct stat one, other;
    return stat(a.c_str(), &one) == 0 && stat(b.c_str(), &other) == 0 && sameFile(one, other);
}

// ---- Calls that go on after a signal. Each returns 0 or the errno. -----------------------------

template <class Call>
int retrying(Call call)
{
    while (call() < 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

int syncFile(int fd)
{
    int const error = retrying([fd] { return fsync(fd); });
    return error == EINVAL ? 0 : error;  // a file system that has nothing to sync
}

// Contents and length, but no times.
int syncContents(int fd)
{
    int const error = retrying([fd] { return fdatasync(fd); });
    return error == EINVAL ? 0 : error;
}

// What a file system does that saves a wait for the disk.
struct Habits {
    bool syncsName = false;   // with a file its name, also a new one
    bool overwrites = false;  // a block in its place

    explicit Habits(int fd);
};

// The number of ext4 is that of ext2, too, which has neither a log nor extents.
Habits::Habits(int fd)
{
    struct statfs system;
    if (fstatfs(fd, &system) != 0)
        return;
    int flags = 0;
    bool const ext4 = system.f_type == EXT4_SUPER_MAGIC &&
                      ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 &&
                      (flags & (FS_EXTENT_FL | FS_INLINE_DATA_FL)) == FS_EXTENT_FL;
    overwrites = ext4 || system.f_type == XFS_SUPER_MAGIC;
    syncsName = overwrites || system.f_type == BTRFS_SUPER_MAGIC;
}

// Waits until the contents will be on disk as soon as anything else on `disk` is that is synced
// later. A file and its folder may lie on different disks: one file can be mounted over another.
int syncBeforeOthers(int fd, dev_t disk)
{
    struct stat status;
    if (fstat(fd, &status) != 0 || status.st_dev != disk || !Habits(fd).overwrites)
        return syncContents(fd);
    // The disk has them then, at least in its cache, and every sync empties that.
    return retrying([fd] {
        return sync_file_range(
            fd, 0, 0,
            SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
    });
}

int syncDirectory(std::string const& path)
{
    int const fd = zopenPrivate(path.c_str(), O_RDONLY | O_DIRECTORY, 0);
    if (fd < 0)
        return errno;
    int const error = syncFile(fd);
    close(fd);
    return error;
}

int writeAll(int fd, View bytes)
{
    while (bytes.length > 0) {
        ssize_t const n = write(fd, bytes.data, bytes.length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? errno : EIO;
        bytes = {bytes.data + n, bytes.length - static_cast<size_t>(n)};
    }
    return 0;
}

int writeAllAt(int fd, View bytes, off_t offset)
{
    while (bytes.length > 0) {
        ssize_t const n = pwrite(fd, bytes.data, bytes.length, offset);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? errno : EIO;
        bytes = {bytes.data + n, bytes.length - static_cast<size_t>(n)};
        offset += n;
    }
    return 0;
}

// Reads the file from its start to its end, wherever its position is.
int readAll(int fd, Bytes& out)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return errno;
    // One byte more than the size, so that the end shows in the same call.
    auto const size = static_cast<size_t>(status.st_size);
    size_t room = size + 1;
    Bytes bytes(room);
    size_t length = 0;
    for (;;) {
        if (length == room)
            bytes.grow(room *= 2);
        ssize_t const n =
            pread(fd, bytes.data() + length, room - length, static_cast<off_t>(length));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        length += static_cast<size_t>(n);
        if (n == 0 || length == size)
            break;
    }
    bytes.setLength(length);
    out = std::move(bytes);
    return 0;
}

int removeFile(std::string const& path)
{
    return unlink(path.c_str()) != 0 && errno != ENOENT ? errno : 0;
}

constexpr size_t kChecksum = 4;       // length of what ends a journal
constexpr size_t kPiece = 512 << 10;  // of a journal, written at once
constexpr dev_t kNoDisk = 0;

// What ends a journal whose CRC-32 is `crc`: never 0, which is what an invalid one ends with.
uint32_t endOfJournal(uint32_t crc)
{
    return crc != 0 ? crc : 1;
}

// Overwrites the checksum of a journal, so that it does not count any more, and waits until that
// will be on disk before anything that is synced later on `disk`, the file's. The checksum, not the
// head: two journals may begin alike, so that the head of the next one could make the rest of this
// one whole again where its blocks are used once more.
int invalidate(std::string const& path, dev_t disk)
{
    // What else was put there is not even opened: it may be a second name of the file that we have
    // locked, and closing it would drop the lock.
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return errno == ENOENT ? 0 : errno;
    if (!S_ISREG(status.st_mode) || status.st_nlink != 1)
        return EPERM;
    int const fd = zopenPrivate(path.c_str(), O_WRONLY | O_NOFOLLOW, 0);
    if (fd < 0)
        return errno == ENOENT ? 0 : errno;
    constexpr char kNothing[kChecksum] = "";
    int error = fstat(fd, &status) != 0 ? errno : 0;
    off_t const end = error == 0 ? status.st_size : 0;
    if (error == 0 && end > static_cast<off_t>(kChecksum))
        error = writeAllAt(fd, {kNothing, kChecksum}, end - static_cast<off_t>(kChecksum));
    if (error == 0)
        error = syncBeforeOthers(fd, disk);
    close(fd);
    return error;
}

// Removes the journal in `directory` for good: nothing that a power cut may bring back counts. The
// removal need not be on disk for that, which saves two waits for the disk.
int dropJournal(std::string const& path, std::string const& directory, dev_t disk)
{
    int const error = invalidate(path, disk);
    bool const removed = removeFile(path) == 0 || removeFile(path) == 0;
    return error == 0 || (removed && syncDirectory(directory) == 0) ? 0 : error;
}

// Makes a new file for writing, readable by nobody else, and returns its descriptor; -1 with errno
// when it fails. One that is there already was left by a dead writer: we hold the lock.
int makeFile(std::string const& path)
{
    int const flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    int const fd = zopenPrivate(path.c_str(), flags, S_IRUSR | S_IWUSR);
    if (fd >= 0 || errno != EEXIST)
        return fd;
    invalidate(path, kNoDisk);  // it may be a whole journal, see writeJournalTo()
    if (unlink(path.c_str()) != 0)
        return -1;
    return zopenPrivate(path.c_str(), flags, S_IRUSR | S_IWUSR);
}

// Gives a new file the owner, group and mode of `model`, before it has contents. What cannot be
// given away to the owner is kept from the group and from others, unless the group can be given.
// `owned` says whether the owner has got it.
int takeAfter(int fd, struct stat const& model, bool& owned)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return errno;
    mode_t mode = model.st_mode & kPermissions;
    bool const same = status.st_uid == model.st_uid && status.st_gid == model.st_gid;
    bool const given = same || fchown(fd, model.st_uid, model.st_gid) == 0;
    owned = given || status.st_uid == model.st_uid;
    if (!given && fchown(fd, static_cast<uid_t>(-1), model.st_gid) != 0)
        mode &= S_IRWXU;
    return fchmod(fd, mode) != 0 ? errno : 0;
}

// The errnos of a directory that does not let us make a file in it.
bool isRefusal(int error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

// Whether the contents can be those of a companion file: nothing, or a zlib stream's first bytes.
bool looksPacked(View bytes)
{
    if (bytes.length < 2)
        return bytes.length == 0;
    auto const first = static_cast<unsigned char>(bytes.data[0]);
    auto const second = static_cast<unsigned char>(bytes.data[1]);
    return (first & 0x0F) == Z_DEFLATED && (first * 256 + second) % 31 == 0;
}

// Turns the signal that a file grown beyond the limit raises into the errno EFBIG, for a scope.
class SizeSignalGuard {
public:
    SizeSignalGuard()
    {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGXFSZ) == 1;
    }
    SizeSignalGuard(SizeSignalGuard const&) = delete;
    SizeSignalGuard& operator=(SizeSignalGuard const&) = delete;
    ~SizeSignalGuard()
    {
        timespec const now = {0, 0};
        if (!wasPending_)
            while (sigtimedwait(&signal_, nullptr, &now) < 0 && errno == EINTR)
                continue;
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

private:
    sigset_t signal_;
    sigset_t before_;
    bool wasPending_;
};

}  // namespace

// ---- The journal -------------------------------------------------------------------------------

// Its form; numbers are little-endian:
//
//     0   8  "ZSTORE2\n"
//     8   8  length of the beginning that stays
//    16   8  length of the end that stays; 0 when the lengths of the texts differ
//    24   8  length of the old middle
//    32   8  length of the new middle
//    40   8  length of the end that moves
//    48   8  length of the new companion, all ones: there is to be none
//    56   8  length of the old companion, all ones: there was none
//    64   4  CRC-32 of the old companion
//    68   4  Adler-32 of the beginning that stays
//    72   4  Adler-32 of the end that stays
//    76   4  length of the companion's path, 0: the companion is not concerned
//    80      the path, the old middle, the new middle, the end that moves, the new companion
//         4  CRC-32 of all that comes before, 1 in place of 0
struct ZStoreFile::Journal {
    static constexpr char kMagic[] = "ZSTORE2\n";
    static constexpr size_t kHeader = 80;
    static constexpr uint64_t kNone = ~uint64_t{0};

    Difference difference;
    uint32_t beginningChecksum = 0;
    uint32_t endChecksum = 0;
    std::string companion;  // path; empty: not concerned
    bool newIsNone = true;
    View newCompanion;
    bool oldIsNone = true;
    uint64_t oldLength = 0;
    uint32_t oldChecksum = 0;

    Bytes bytes;  // what the views look into, when it was read

    std::string header() const;
    static std::unique_ptr<Journal> read(std::string const& path, struct stat const& main);
    bool parse();
    bool concernsFile(bool present, View contents) const;
    bool mixes(View main) const;
    bool isOld(View main) const;
    Bytes newText(View main) const;
};

namespace {

void putNumber(std::string& out, uint64_t number, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i)
        out += static_cast<char>(number >> (8 * i));
}

uint64_t getNumber(char const* from, size_t bytes)
{
    uint64_t number = 0;
    for (size_t i = bytes; i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(from[i]);
    return number;
}

}  // namespace

// Everything before the texts.
std::string ZStoreFile::Journal::header() const
{
    std::string out(kMagic, sizeof kMagic - 1);
    putNumber(out, difference.beginning, 8);
    putNumber(out, difference.end, 8);
    putNumber(out, difference.oldMiddle.length, 8);
    putNumber(out, difference.newMiddle.length, 8);
    putNumber(out, difference.moved.length, 8);
    putNumber(out, newIsNone ? kNone : newCompanion.length, 8);
    putNumber(out, oldIsNone ? kNone : oldLength, 8);
    putNumber(out, oldChecksum, 4);
    putNumber(out, beginningChecksum, 4);
    putNumber(out, endChecksum, 4);
    putNumber(out, companion.size(), 4);
    return out + companion;
}

// Takes `bytes` apart; false when they are no whole journal.
bool ZStoreFile::Journal::parse()
{
    char const* const data = bytes.data();
    size_t left = bytes.length();
    if (left < kHeader + kChecksum || memcmp(data, kMagic, sizeof kMagic - 1) != 0)
        return false;
    left -= kChecksum;
    if (getNumber(data + left, kChecksum) != endOfJournal(checksum({data, left})))
        return false;
    difference.beginning = getNumber(data + 8, 8);
    difference.end = getNumber(data + 16, 8);
    uint64_t const oldSize = getNumber(data + 24, 8);
    uint64_t const newSize = getNumber(data + 32, 8);
    uint64_t const movedSize = getNumber(data + 40, 8);
    uint64_t const packed = getNumber(data + 48, 8);
    oldLength = getNumber(data + 56, 8);
    oldChecksum = static_cast<uint32_t>(getNumber(data + 64, 4));
    beginningChecksum = static_cast<uint32_t>(getNumber(data + 68, 4));
    endChecksum = static_cast<uint32_t>(getNumber(data + 72, 4));
    uint64_t const pathSize = getNumber(data + 76, 4);
    newIsNone = packed == kNone;
    oldIsNone = oldLength == kNone;

    char const* at = data + kHeader;
    left -= kHeader;
    auto const take = [&](uint64_t length, View& view) {
        if (length > left)
            return false;
        view = {at, static_cast<size_t>(length)};
        at += length;
        left -= static_cast<size_t>(length);
        return true;
    };
    View path;
    if (!take(pathSize, path) || !take(oldSize, difference.oldMiddle) ||
        !take(newSize, difference.newMiddle) || !take(movedSize, difference.moved) ||
        !take(newIsNone ? 0 : packed, newCompanion) || left != 0 ||
        (difference.end != 0 && oldSize != newSize))
        return false;
    companion.assign(path.data, path.length);
    return companion.find('\0') == std::string::npos;
}

// Reads the journal at `path` of the file `main`. Null when there is none that counts: a whole one,
// that nobody could have planted who could not have written the file itself. When that cannot be
// found out it is a Failure: without its journal a file may be torn.
std::unique_ptr<ZStoreFile::Journal> ZStoreFile::Journal::read(std::string const& path,
                                                               struct stat const& main)
{
    auto const trusted = [&main](struct stat const& status) {
        mode_t const writers = S_IWGRP | S_IWOTH;
        return S_ISREG(status.st_mode) && status.st_nlink == 1 &&
               (status.st_uid == main.st_uid || status.st_uid == 0 || status.st_uid == geteuid()) &&
               (status.st_mode & writers & ~main.st_mode) == 0;
    };
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENAMETOOLONG)
            return nullptr;
        throw Failure{path, "lstat()", errno};
    }
    if (!trusted(status))
        return nullptr;
    int const fd = zopenPrivate(path.c_str(), O_RDONLY | O_NOFOLLOW, 0);
    if (fd < 0)
        throw Failure{path, "open()", errno};
    std::unique_ptr<Journal> journal;
    int error;
    try {
        journal = std::make_unique<Journal>();
        error = fstat(fd, &status) != 0 ? errno : readAll(fd, journal->bytes);
    } catch (std::bad_alloc const&) {
        ::close(fd);
        throw;
    }
    ::close(fd);
    if (error != 0)
        throw Failure{path, "read()", error};
    return trusted(status) && journal->parse() ? std::move(journal) : nullptr;
}

// Whether a companion file is the one that the journal's writer found or the one it wrote.
bool ZStoreFile::Journal::concernsFile(bool present, View contents) const
{
    bool const isNew = newIsNone ? !present : present && sameBytes(contents, newCompanion);
    bool const isOld =
        oldIsNone ? !present
                  : present && contents.length == oldLength && checksum(contents) == oldChecksum;
    return isNew || isOld;
}

// Whether `main` is the old text, the new text, or what an interrupted rewrite leaves: beginning
// and end as they were; between them at each place the old byte or the new one. Behind the shorter
// text it may be a zero byte: cutting a file zeroes the rest of its last block, and that may reach
// the disk before the new length does.
bool ZStoreFile::Journal::mixes(View main) const
{
    if (main.length < difference.beginning || main.length - difference.beginning < difference.end)
        return false;
    size_t const length = main.length - difference.beginning - difference.end;
    size_t const oldSize = difference.oldMiddle.length + difference.moved.length;
    size_t const newSize = difference.newMiddle.length + difference.moved.length;
    size_t const shorter = std::min(oldSize, newSize);
    if (length < shorter || length > std::max(oldSize, newSize) ||
        quickChecksum({main.data, difference.beginning}) != beginningChecksum ||
        quickChecksum(behind(main, main.length - difference.end)) != endChecksum)
        return false;
    char const* const middle = main.data + difference.beginning;
    auto const has = [this](View const& text, size_t i, char c) {
        if (i < text.length)
            return c == text.data[i];
        i -= text.length;
        return i < difference.moved.length && c == difference.moved.data[i];
    };
    for (size_t i = 0; i < length; ++i)
        if (!has(difference.oldMiddle, i, middle[i]) && !has(difference.newMiddle, i, middle[i]) &&
            (i < shorter || middle[i] != '\0'))
            return false;
    return true;
}

// Whether `main`, which mixes, is the old text, and that is not the new one, too.
bool ZStoreFile::Journal::isOld(View main) const
{
    View const rest = withoutEnd(behind(main, difference.beginning), difference.end);
    View const& middle = difference.oldMiddle;
    return !difference.isEmpty() && rest.length == middle.length + difference.moved.length &&
           sameBytes({rest.data, middle.length}, middle) &&
           sameBytes(behind(rest, middle.length), difference.moved);
}

// Returns the new text, of which `main`, which mixes, has beginning and end.
Bytes ZStoreFile::Journal::newText(View main) const
{
    View const parts[] = {{main.data, difference.beginning},
                          difference.newMiddle,
                          difference.moved,
                          behind(main, main.length - difference.end)};
    size_t length = 0;
    for (View const& part : parts)
        length += part.length;
    Bytes text(length);
    char* at = text.data();
    for (View const& part : parts) {
        if (part.length > 0)
            memcpy(at, part.data, part.length);
        at += part.length;
    }
    return text;
}

// ---- Writing -----------------------------------------------------------------------------------

// Replaces text and companion of a locked file. Each step returns 0 or an errno and says which call
// failed on which file; undo() takes back what was done.
class ZStoreFile::Writer {
public:
    Writer(ZStoreFile& file, View text, Companion const& companion);
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;

    /// Writes the journal, then everything else.
    void commit();

    /// Does what a dead writer, whose journal is there, did not get to.
    void finish();

private:
    int failed(char const* call, std::string const& file, int error);
    [[noreturn]] void raise() const;

    bool isAsWanted(int companion) const;
    int syncCompanion(int companion) const;
    int writeJournal();
    int writeJournalTo(int fd, Journal const& journal);
    View rewritten(View text) const;
    int pad();
    int replacePair();
    int reserve();
    void giveBack();
    int prepareCompanion(View contents);
    int writeText();
    int moveCompanion();
    int writeCompanionInPlace(View contents);
    int removeJournal();

    void undo();
    int restoreText();
    int restoreCompanion();

    ZStoreFile& file_;
    View const text_;
    Difference const difference_;  // between the file's text and `text_`
    Companion const& companion_;
    Companion::Change companionChange_;

    // Made beforehand: once the journal is there, nothing allocates any more.
    std::string const directory_;  // of file and journal
    std::string const newJournal_;
    std::string const companionDirectory_;
    std::string const newCompanion_;
    Bytes padded_;        // what is written without a journal when the old text is longer
    Bytes oldCompanion_;  // what the companion held
    bool hadCompanion_ = false;
    ZSharedFile companionFile_;  // open when it has to be written in place

    bool journalled_ = false;   // the journal is on disk
    bool journalGone_ = false;  // it was, and has been removed
    bool reserved_ = false;     // there may be room behind the end of the file
    bool inPlace_ = false;      // the companion's directory allows no new file
    bool textTouched_ = false;
    bool companionTouched_ = false;

    char const* call_ = "";
    std::string const* failedFile_ = nullptr;
    int error_ = 0;
};

ZStoreFile::Writer::Writer(ZStoreFile& file, View text, Companion const& companion)
    : file_(file),
      text_(text),
      difference_(viewOf(file.main_), text),
      companion_(companion),
      companionChange_(companion.change),
      directory_(directoryOf(file.journal_)),
      newJournal_(file.journal_ + ".new"),
      companionDirectory_(directoryOf(companion.path)),
      newCompanion_(neighbour(companion.path, ".new"))
{
}

int ZStoreFile::Writer::failed(char const* call, std::string const& file, int error)
{
    if (error != 0 && error_ == 0) {
        call_ = call;
        failedFile_ = &file;
        error_ = error;
    }
    return error;
}

void ZStoreFile::Writer::raise() const
{
    throw Failure{*failedFile_, call_, error_};
}

void ZStoreFile::Writer::commit()
{
    if (companionChange_ != Companion::kept) {
        std::string const& path = companion_.path;
        ZSharedFile shared;
        int error = shared.open(path.c_str(), O_RDONLY, 0);
        if (error == 0) {
            hadCompanion_ = true;
            error = readAll(shared.descriptor(), oldCompanion_);
        }
        // A file that this one names but that no store of ours can have written is left alone.
        if (error == EISDIR || error == EINVAL ||
            (hadCompanion_ && !looksPacked(viewOf(oldCompanion_)) && !file_.isOwnCompanion(path)))
            throw Failure{path, "access()", EPERM};
        if (error != 0 && error != ENOENT)
            throw Failure{path, "fopen(w)", error};
        if (companionChange_ == Companion::written && hadCompanion_ &&
            isAsWanted(shared.descriptor())) {
            companionChange_ = Companion::kept;
            if (int const unsynced = syncCompanion(shared.descriptor()))
                throw Failure{path, "fsync()", unsynced};
        }
    }
    try {
        if (writeJournal() == 0 && pad() == 0 && replacePair() == 0)
            return;
    } catch (std::bad_alloc const&) {
        undo();
        throw;
    }
    undo();
    raise();
}

void ZStoreFile::Writer::finish()
{
    struct stat status;
    journalled_ = true;
    hadCompanion_ = stat(companion_.path.c_str(), &status) == 0;
    if (replacePair() == 0)
        return;
    removeFile(newCompanion_);
    raise();
}

// What follows the journal.
int ZStoreFile::Writer::replacePair()
{
    bool const writes = companionChange_ == Companion::written;
    bool const done = reserve() == 0 && (!writes || prepareCompanion(companion_.contents) == 0) &&
                      writeText() == 0 && moveCompanion() == 0 && removeJournal() == 0;
    return done ? 0 : error_;
}

// Whether the companion has its contents already, and owner, group, mode and disk of the file.
bool ZStoreFile::Writer::isAsWanted(int companion) const
{
    struct stat const& model = file_.status_;
    struct stat status;
    return sameBytes(viewOf(oldCompanion_), companion_.contents) &&
           fstat(companion, &status) == 0 && status.st_dev == model.st_dev &&
           status.st_uid == model.st_uid && status.st_gid == model.st_gid && status.st_nlink == 1 &&
           ((status.st_mode ^ model.st_mode) & kPermissions) == 0;
}

// Another program may have put the companion there, and not synced it.
int ZStoreFile::Writer::syncCompanion(int companion) const
{
    if (int const error = syncBeforeOthers(companion, file_.status_.st_dev))
        return error;
    return Habits(companion).syncsName ? 0 : syncDirectory(companionDirectory_);
}

// Leaves `journalled_` false, and returns 0, when the directory does not allow a journal.
int ZStoreFile::Writer::writeJournal()
{
    Journal journal;
    journal.difference = difference_;
    journal.beginningChecksum = quickChecksum({text_.data, difference_.beginning});
    journal.endChecksum = quickChecksum(behind(text_, text_.length - difference_.end));
    if (companionChange_ != Companion::kept) {
        journal.companion = companion_.path;
        journal.newIsNone = companionChange_ == Companion::removed;
        journal.newCompanion = journal.newIsNone ? View() : companion_.contents;
        journal.oldIsNone = !hadCompanion_;
        journal.oldLength = oldCompanion_.length();
        journal.oldChecksum = checksum(viewOf(oldCompanion_));
    }
    int const fd = makeFile(newJournal_);
    if (fd < 0)
        return isRefusal(errno) ? 0 : failed("open()", newJournal_, errno);
    int error;
    try {
        error = writeJournalTo(fd, journal);
    } catch (std::bad_alloc const&) {
        ::close(fd);
        removeFile(newJournal_);
        throw;
    }
    bool const named = error == 0 && !file_.made_ && Habits(fd).syncsName;
    if (::close(fd) != 0 && error == 0)
        error = failed("close()", newJournal_, errno);
    if (error != 0) {
        dropJournal(newJournal_, directory_, file_.status_.st_dev);
        return error;
    }
    return named ? 0 : failed("fsync()", file_.journal_, syncDirectory(directory_));
}

// The journal gets its name before it is synced, so that most file systems write both at once: one
// that a crash leaves torn does not count, and nothing has changed by then. Nor can it be mistaken
// for an earlier journal, whose blocks a file system that writes names before contents might leave
// in it: no journal is removed before it is invalid on disk.
int ZStoreFile::Writer::writeJournalTo(int fd, Journal const& journal)
{
    bool owned = false;
    if (int const error = takeAfter(fd, file_.status_, owned))
        return failed("fchmod()", newJournal_, error);
    // What another program has written and not synced has to be there before we write over it.
    struct stat status;
    dev_t const disk = fstat(fd, &status) == 0 ? status.st_dev : kNoDisk;
    if (int const error = syncBeforeOthers(file_.fd_, disk))
        return failed("fdatasync()", file_.path_, error);
    std::string const header = journal.header();
    View const parts[] = {{header.data(), header.size()},
                          difference_.oldMiddle,
                          difference_.newMiddle,
                          difference_.moved,
                          journal.newCompanion};
    uint32_t crc = 0;
    for (View const& part : parts)
        for (size_t at = 0; at < part.length; at += kPiece) {
            View const piece = {part.data + at, std::min(kPiece, part.length - at)};
            crc = checksum(piece, crc);
            if (int const error = writeAll(fd, piece))
                return failed("write()", newJournal_, error);
            // The disk begins with it while the next one is made; the sync tells of failures.
            if (piece.length == kPiece)
                sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
        }
    std::string end;
    putNumber(end, endOfJournal(crc), kChecksum);
    if (int const error = writeAll(fd, {end.data(), end.size()}))
        return failed("write()", newJournal_, error);
    if (rename(newJournal_.c_str(), file_.journal_.c_str()) != 0)
        return failed("rename()", file_.journal_, errno);
    journalled_ = true;
    return failed("fsync()", file_.journal_, syncFile(fd));
}

// What of a text is written in place.
View ZStoreFile::Writer::rewritten(View text) const
{
    return withoutEnd(behind(text, difference_.beginning), difference_.end);
}

// Without a journal, makes a shorter text as long as the old one.
int ZStoreFile::Writer::pad()
{
    if (journalled_ || text_.length >= file_.main_.length())
        return 0;
    View const text = rewritten(text_);
    padded_ = Bytes(rewritten(viewOf(file_.main_)).length);
    if (text.length > 0)
        memcpy(padded_.data(), text.data, text.length);
    memset(padded_.data() + text.length, '\n', padded_.length() - text.length);
    return 0;
}

// Has the file system set the room for a longer text aside.
int ZStoreFile::Writer::reserve()
{
    if (text_.length <= file_.main_.length())
        return 0;
    int const fd = file_.fd_;
    auto const length = static_cast<off_t>(text_.length);
    int const error = retrying([=] { return fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, length); });
    if (error == EOPNOTSUPP || error == ENOSYS || error == EINVAL)
        return 0;
    reserved_ = true;
    return failed("fallocate()", file_.path_, error);
}

// Gives back what reserve() has set aside: what lies behind the end of the file, wherever that is.
void ZStoreFile::Writer::giveBack()
{
    int const fd = file_.fd_;
    struct stat status;
    if (fstat(fd, &status) == 0)
        retrying([=] { return ftruncate(fd, status.st_size); });
}

// Writes what the companion is to hold into a new file beside it.
int ZStoreFile::Writer::prepareCompanion(View contents)
{
    int const fd = makeFile(newCompanion_);
    if (fd < 0 && !(isRefusal(errno) && hadCompanion_))
        return failed("fopen(w)", companion_.path, errno);
    bool owned = false;
    int error = 0;
    if (fd >= 0)
        error = failed("fchmod()", companion_.path, takeAfter(fd, file_.status_, owned));
    if (error == 0 && !owned) {
        // Nobody would read a companion of another owner, see mayName().
        if (fd >= 0) {
            ::close(fd);
            removeFile(newCompanion_);
        }
        if (!hadCompanion_)
            return failed("fchown()", companion_.path, EPERM);
        inPlace_ = true;
        return failed("fopen(w)", companion_.path,
                      companionFile_.open(companion_.path.c_str(), O_RDWR | O_NOFOLLOW, 0));
    }
    if (error == 0)
        error = failed("write()", companion_.path, writeAll(fd, contents));
    if (error == 0)
        error = failed("fsync()", companion_.path, syncFile(fd));
    if (::close(fd) != 0 && error == 0)
        error = failed("close()", companion_.path, errno);
    return error;
}

int ZStoreFile::Writer::writeText()
{
    bool const pads = padded_.length() > 0;
    auto const length = static_cast<off_t>(text_.length);
    int const fd = file_.fd_;
    textTouched_ = true;
    if (int const error = writeAllAt(fd, pads ? viewOf(padded_) : rewritten(text_),
                                     static_cast<off_t>(difference_.beginning)))
        return failed("write()", file_.path_, error);
    if (text_.length < file_.main_.length())
        if (int const error = retrying([=] { return ftruncate(fd, length); }))
            return failed("ftruncate()", file_.path_, error);
    // Its time tells other stores that the file was stored, even when only the companion changed.
    if (difference_.isEmpty())
        if (int const error = retrying([=] { return futimens(fd, nullptr); }))
            return failed("futimens()", file_.path_, error);
    if (int const error = syncContents(fd))
        return failed("fdatasync()", file_.path_, error);
    return failed("fstat()", file_.path_, fstat(fd, &file_.status_) != 0 ? errno : 0);
}

int ZStoreFile::Writer::moveCompanion()
{
    if (companionChange_ == Companion::kept)
        return 0;
    std::string const& path = companion_.path;
    companionTouched_ = true;
    if (inPlace_)
        return writeCompanionInPlace(companion_.contents);
    if (companionChange_ == Companion::removed) {
        if (int const error = removeFile(path))
            return failed("unlink()", path, error);
    } else if (rename(newCompanion_.c_str(), path.c_str()) != 0) {
        return failed("rename()", path, errno);
    }
    return failed("fsync()", path, syncDirectory(companionDirectory_));
}

// What follows a packed companion's end is not read, so a longer old one does no harm until it is
// cut.
int ZStoreFile::Writer::writeCompanionInPlace(View contents)
{
    std::string const& path = companion_.path;
    int const fd = companionFile_.descriptor();
    auto const length = static_cast<off_t>(contents.length);
    if (int const error = writeAllAt(fd, contents, 0))
        return failed("write()", path, error);
    if (int const error = retrying([=] { return ftruncate(fd, length); }))
        return failed("ftruncate()", path, error);
    return failed("fsync()", path, syncFile(fd));
}

// From here on the pair is new and on disk. The journal must be gone for good: if a power cut
// brought it back, it would take what another program has made of the file meanwhile for an
// interrupted rewrite, where each byte is that of the old text or of the new one.
int ZStoreFile::Writer::removeJournal()
{
    if (!journalled_)  // and without one, nothing has synced the name of a new file yet
        return file_.made_ ? failed("fsync()", file_.path_, syncDirectory(directory_)) : 0;
    journalled_ = false;
    journalGone_ = true;
    return failed("unlink()", file_.journal_,
                  dropJournal(file_.journal_, directory_, file_.status_.st_dev));
}

// Puts the old pair back. Where that fails as well the journal stays: the next reader takes the
// new pair from it, whole. Nothing is put back without it, so that a crash now does no harm either.
void ZStoreFile::Writer::undo()
{
    if (journalGone_ && (writeJournal() != 0 || !journalled_))
        return;
    // The companion goes first: while the text is new, or a mixture, the journal counts.
    bool const restored =
        (!companionTouched_ || restoreCompanion() == 0) && (!textTouched_ || restoreText() == 0);
    removeFile(newCompanion_);
    if (reserved_)
        giveBack();
    if (restored && journalled_)
        dropJournal(file_.journal_, directory_, file_.status_.st_dev);
}

int ZStoreFile::Writer::restoreText()
{
    int const fd = file_.fd_;
    auto const length = static_cast<off_t>(file_.main_.length());
    if (int const error = writeAllAt(fd, rewritten(viewOf(file_.main_)),
                                     static_cast<off_t>(difference_.beginning)))
        return error;
    if (int const error = retrying([=] { return ftruncate(fd, length); }))
        return error;
    return syncContents(fd);
}

int ZStoreFile::Writer::restoreCompanion()
{
    if (inPlace_)
        return writeCompanionInPlace(viewOf(oldCompanion_));
    if (!hadCompanion_) {
        if (int const error = removeFile(companion_.path))
            return error;
    } else {
        if (int const error = prepareCompanion(viewOf(oldCompanion_)))
            return error;
        if (rename(newCompanion_.c_str(), companion_.path.c_str()) != 0)
            return errno;
    }
    return syncDirectory(companionDirectory_);
}

// ---- The file ----------------------------------------------------------------------------------

ZStoreFile::Bytes::Bytes(size_t length)
    : bytes_(static_cast<char*>(malloc(length > 0 ? length : 1))), length_(length)
{
    if (bytes_ == nullptr)
        throw std::bad_alloc();
}

void ZStoreFile::Bytes::grow(size_t length)
{
    void* const block = realloc(bytes_.get(), length);
    if (block == nullptr)
        throw std::bad_alloc();
    (void)bytes_.release();
    bytes_.reset(static_cast<char*>(block));
    length_ = length;
}

ZStoreFile::Stamp::Stamp(struct stat const& status)
    : seconds(status.st_mtim.tv_sec),
      nanoseconds(status.st_mtim.tv_nsec),
      size(status.st_size),
      inode(status.st_ino),
      device(status.st_dev)
{
}

bool ZStoreFile::Stamp::operator==(Stamp const& other) const
{
    return seconds == other.seconds && nanoseconds == other.nanoseconds && size == other.size &&
           inode == other.inode && device == other.device;
}

ZStoreFile::ZStoreFile(char const* path, Use use) : path_(path)
{
    char const* const openCall = use == Use::load ? "fopen(r)" : "fopen(r+)";
    int attempts = 0;
    real_.reserve(PATH_MAX);  // a file that is made must not stay for want of its name
    try {
        while (!open(use, openCall))
            if (++attempts == kAttempts)
                throw Failure{path_, openCall, ESTALE};
        stamp_ = Stamp(status_);
        if (int const error = readAll(fd_, main_))
            throw Failure{path_, "read()", error};
        pick(use);
    } catch (...) {
        close();
        throw;
    }
}

ZStoreFile::~ZStoreFile()
{
    close();
}

// Opens and locks the file; false when its name came to mean another file meanwhile: editors
// replace files by renaming.
bool ZStoreFile::open(Use use, char const* openCall)
{
    int error = use == Use::load ? file_.open(path_.c_str(), O_RDONLY, 0) : openForStore();
    if (use == Use::store && error == EEXIST)
        return false;
    if (error != 0)
        throw Failure{path_, openCall, error};

    // Only where the path itself is a link does it matter that its end can be told.
    char real[PATH_MAX];
    struct stat named;
    if (realpath(path_.c_str(), real) != nullptr) {
        real_ = real;
    } else {
        error = errno;
        real_ = path_;
        if (lstat(path_.c_str(), &named) != 0 || S_ISLNK(named.st_mode)) {
            made_ = false;
            close();
            if (error == ENOENT)
                return false;
            throw Failure{path_, openCall, error};
        }
    }
    journal_ = neighbour(real_, ".zjn");

    error = file_.lock(use == Use::load ? F_RDLCK : F_WRLCK, 0, 0);
    if (error != 0) {
        // Somebody else may have found the file that we made, and hold it: it is theirs then.
        if (error == EAGAIN || error == EACCES)
            made_ = false;
        close();
        throw Failure{path_, "fcntl()", error};
    }
    fd_ = file_.descriptor();
    if (fstat(fd_, &status_) != 0) {
        error = errno;
        close();
        throw Failure{path_, "fstat()", error};
    }
    if (status_.st_size > 0)
        made_ = false;  // somebody else stored into it before it was locked
    if (stat(real_.c_str(), &named) == 0 && sameFile(named, status_))
        return true;
    made_ = false;
    close();
    return false;
}

// Opens for reading and writing, making the file when it is missing; nothing is ever cut here.
int ZStoreFile::openForStore()
{
    char const* const path = path_.c_str();
    constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    int error = file_.open(path, O_RDWR, 0);
    if (error != ENOENT)
        return error;
    // A link that leads nowhere is no reason not to make the file where it points.
    struct stat status;
    bool const link = lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
    error = file_.open(path, O_RDWR | O_CREAT | (link ? 0 : O_EXCL), kMode);
    made_ = error == 0;
    return error;
}

// Decides between the files and a journal that a dead writer left. We hold the lock: a live one
// would not let us.
void ZStoreFile::pick(Use use)
{
    std::unique_ptr<Journal> journal = Journal::read(journal_, status_);
    if (journal == nullptr)
        return;
    SizeSignalGuard const noSignal;
    View const main = viewOf(main_);
    bool const ours = journal->mixes(main);
    bool const old = ours && journal->isOld(main);
    bool const counts = ours && (journal->companion.empty() || concernsCompanion(*journal, old));
    bool const untouched = counts && old;
    if (counts && !untouched) {
        Bytes newText = journal->newText(main);
        if (use == Use::load) {
            main_ = std::move(newText);
            picked_ = std::move(journal);
            return;
        }
        Companion companion;
        companion.path = journal->companion;
        companion.contents = journal->newCompanion;
        if (!companion.path.empty() && !journal->newIsNone)
            companion.change = Companion::written;
        else if (!companion.path.empty() && isOwnCompanion(companion.path))
            companion.change = Companion::removed;
        Writer(*this, viewOf(newText), companion).finish();
        if (int const error = readAll(fd_, main_))
            throw Failure{path_, "read()", error};
        stamp_ = Stamp(status_);
        return;
    }
    if (use == Use::load)
        return;
    // The writer died before it touched the file, or somebody has written it since. One that stays
    // could take what is stored now for an interrupted rewrite.
    int error = 0;
    if (untouched) {
        if (!journal->companion.empty())
            removeFile(neighbour(journal->companion, ".new"));
        error = dropJournal(journal_, directoryOf(journal_), status_.st_dev);
    } else {
        // It keeps its texts, for whoever wants to compare.
        error = invalidate(journal_, status_.st_dev);
        if (rename(journal_.c_str(), neighbour(real_, ".zjn.orphan").c_str()) == 0)
            error = 0;
    }
    if (error != 0)
        throw Failure{journal_, "unlink()", error};
}

// Whether the companion is the one that the journal's writer found or the one it wrote. One that
// the file may not name any more is not looked at; without it only the old text is known to be
// whole.
bool ZStoreFile::concernsCompanion(Journal const& journal, bool oldText) const
{
    std::string const& path = journal.companion;
    int error = mayName(path);
    if (error == EPERM && oldText)
        return false;
    if (error == EPERM)
        throw Failure{path, "access()", error};
    ZSharedFile shared;
    Bytes contents;
    if (error == 0)
        error = shared.open(path.c_str(), O_RDONLY, 0);
    bool const present = error == 0;
    if (present)
        error = readAll(shared.descriptor(), contents);
    if (error == EISDIR || error == EINVAL || error == ENOTDIR)  // no file that a store made
        return false;
    if (error != 0 && error != ENOENT)
        throw Failure{path, kMapCall, error};
    return journal.concernsFile(present, viewOf(contents));
}

ZStoreFile::View ZStoreFile::text() const
{
    return viewOf(main_);
}

ZStoreFile::Bytes ZStoreFile::readCompanion(char const* name)
{
    if (int const error = mayName(name))
        throw Failure{name, "access()", error};
    if (picked_ != nullptr && picked_->companion == name) {
        View const& packed = picked_->newCompanion;
        if (packed.length == 0)
            throw Failure{name, kMapCall, EINVAL};
        Bytes contents(packed.length);
        memcpy(contents.data(), packed.data, packed.length);
        return contents;
    }
    // The codes are those of mapping the file: a length of 0, also for want of a file, cannot be
    // mapped, nor can what is no regular file.
    struct stat status;
    if (stat(name, &status) != 0 || status.st_size == 0)
        throw Failure{name, kMapCall, EINVAL};
    if (!S_ISREG(status.st_mode))
        throw Failure{name, kMapCall, ENODEV};
    if (status.st_size > kMostPacked)
        throw Failure{name, kMapCall, EFBIG};
    ZSharedFile shared;
    Bytes contents;
    int error = shared.open(name, O_RDONLY, 0);
    if (error == 0)
        error = readAll(shared.descriptor(), contents);
    if (error == 0 && contents.length() == 0)
        error = EINVAL;
    if (error != 0)
        throw Failure{name, kMapCall, error};
    return contents;
}

namespace {

// Nobody but us may write it.
bool oursAlone(struct stat const& status)
{
    return status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

constexpr char kCompanionEnd[] = ".obf";

}  // namespace

std::string ZStoreFile::newCompanion() const
{
    return oursAlone(status_) ? companionBeside(path_) : real_ + kCompanionEnd;
}

std::string ZStoreFile::companionBeside(std::string const& path)
{
    if (path[0] == '/')
        return path + kCompanionEnd;
    char directory[4096];
    if (getcwd(directory, sizeof directory) == nullptr)
        throw Failure{path, "getcwd()", errno};
    return std::string(directory) + "/" + path + kCompanionEnd;
}

bool ZStoreFile::isOwnCompanion(std::string const& name) const
{
    for (std::string const* path : {&real_, &path_})
        if (nameOf(name) == nameOf(*path) + kCompanionEnd &&
            sameDirectory(directoryOf(name), directoryOf(*path)))
            return true;
    return false;
}

int ZStoreFile::mayName(std::string const& name) const
{
    struct stat status;
    bool const exists = lstat(name.c_str(), &status) == 0;
    int const missing = errno;
    struct stat target;
    bool const leads = stat(name.c_str(), &target) == 0;
    bool const journal =
        nameOf(name) == nameOf(journal_) && sameDirectory(directoryOf(name), directoryOf(journal_));
    if (journal || (leads && sameFile(target, status_)))
        return EPERM;
    if (oursAlone(status_))
        return 0;
    if (!isOwnCompanion(name))
        return EPERM;
    if (!exists && missing != ENOENT)
        return missing;
    if (exists &&
        (!S_ISREG(status.st_mode) || status.st_nlink != 1 || status.st_uid != status_.st_uid))
        return EPERM;
    return 0;
}

void ZStoreFile::commit(View text, Companion const& companion)
{
    SizeSignalGuard const noSignal;
    if (companion.change != Companion::kept)
        if (int const error = mayName(companion.path))
            throw Failure{companion.path, "access()", error};
    Writer(*this, text, companion).commit();
    made_ = false;
    stamp_ = Stamp(status_);
}

void ZStoreFile::close()
{
    struct stat named;
    // Memory may have been exhausted between the making of the file and its locking.
    if (made_ && fd_ < 0 && file_.isOpen() && file_.lock(F_WRLCK, 0, 0) == 0 &&
        fstat(file_.descriptor(), &status_) == 0 && status_.st_size == 0)
        fd_ = file_.descriptor();
    if (made_ && fd_ >= 0 && stat(real_.c_str(), &named) == 0 && sameFile(named, status_))
        removeFile(real_);
    made_ = false;
    fd_ = -1;
    file_.close();
}
