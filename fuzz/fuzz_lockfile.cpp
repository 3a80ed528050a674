// Lock files: for any contents of the file, and any change between two acquisitions, a process lock
// reads the number that the file form defines, increments it by one, reports changes, and writes
// only the file's eight bytes.
#include <Z/ZException.h>
#include <Z/ZObserver.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ScratchDirectory.h"
#include "check.h"

namespace {

constexpr size_t kMostBytes = 64;
constexpr char kLockFile[] = "._zplf";
constexpr uint32_t kNever = 0xFFFFFFFF;  // is never written

class Observer final : public ZObserverInterface_6_0 {
public:
    int notifications = 0;
    unsigned long from = 0;
    unsigned long to = 0;

    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        auto const& change = static_cast<ZSequenceUpdate_6_0 const&>(parm);
        ++notifications;
        from = change.getLastSequence();
        to = change.getSequence();
    }
};

template <class Word>
std::string bytesOf(Word word)
{
    return {reinterpret_cast<char const*>(&word), sizeof word};
}

// Returns the sequence number of a file; missing bytes are 0, as after the process id was written.
uint32_t numberIn(std::string bytes)
{
    bytes.resize(std::max(bytes.size(), sizeof(uint32_t)));
    uint32_t number;
    memcpy(&number, bytes.data(), sizeof number);
    return number;
}

void putAt(std::string& bytes, size_t at, std::string const& word)
{
    bytes.resize(std::max(bytes.size(), at + word.size()));
    bytes.replace(at, word.size(), word);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static ScratchDirectory const scratch;
    using Lock = ZUnixProcessReadWriteFileLock_6_0;
    Choices choices(data, size);
    Lock lock(scratch.path(), "f");
    Observer observer;
    bool const observes = choices.below(2) == 1;
    if (observes)
        lock.addObserver(&observer);

    std::string file = choices.text(kMostBytes);
    scratch.write(kLockFile, file);
    uint32_t last = kNever;  // the number that the object saw last
    for (int round = 0; round < 8 && !choices.isEmpty(); ++round) {
        unsigned const act = choices.byte();
        if (act % 4 == 0) {  // another process, or an editor
            file = choices.text(kMostBytes);
            scratch.write(kLockFile, file);
        } else if (act % 4 == 1 && !file.empty()) {
            file[choices.byte() % file.size()] ^= static_cast<char>(1 << choices.below(8));
            scratch.write(kLockFile, file);
        }
        bool const writes = act & 4;
        int const update = act & 8 ? 1 : 0;
        uint32_t const number = numberIn(file);
        putAt(file, 4, bytesOf(static_cast<uint32_t>(getpid())));
        observer.notifications = 0;
        writes ? lock.writeLock() : lock.readLock();
        check(lock.getSequence() == number, "the number is read as the file has it");
        bool const isChange = observes && last != kNever && last != number;
        check(observer.notifications == (isChange ? 1 : 0), "only a change is reported, once");
        check(!isChange || (observer.from == last && observer.to == number), "with both numbers");
        check(lock.getLockState() == (writes || isChange ? Lock::write : Lock::read),
              "a notified object has the write lock");
        check(scratch.read(kLockFile) == file, "acquiring writes only the process id");
        last = number;
        bool const raises = writes && update == 1;
        lock.unlock(update == 1 && (writes || !isChange) ? 1 : 0);
        if (raises) {
            last = number + 1 == kNever ? 0 : number + 1;
            putAt(file, 0, bytesOf(last));
        }
        check(lock.getLastSequence() == last, "the number is remembered");
        check(scratch.read(kLockFile) == file, "releasing writes only an incremented number");
        check(lock.getLockState() == Lock::unset && lock.getFileHandle() == -1, "nothing is held");
    }
    return 0;
}
