// Process locks whose system calls fail for a cause that lasts, from a certain call on and in the
// next rounds of acquiring and releasing.
#include <Z/ZException.h>
#include <Z/ZMessage.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <Z/files/lock_file.h>
#include <Z/files/shared_file.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Campaign.h"
#include "Causes.h"
#include "FailingAllocator.h"
#include "LockStates.h"
#include "Stepper.h"
#include "TestDirectory.h"

namespace {

using Call = Stepper::Call;
using Family = Stepper::Family;
using Lock = ZUnixProcessReadWriteFileLock_6_0;

constexpr int kRounds = 4;      // the first round that the cause affects, and three more
constexpr int kRoundsFree = 2;  // without the cause; the first may have a lock to release
constexpr uint32_t kSequence = 5;
constexpr off_t kGate = zfiles::LockFile::kProcessId.start;  // the data is before it

// ---- Rounds ------------------------------------------------------------------------------------

// The steps of a round are letters:
//
//     r w p  acquire to read, to write, with the intent to write
//     R      the same to read, through a second object on the file
//     u n    release with unlock(), with unlock(0)
//     U      release the second object
//     P      promote
//     X Y    ask to write while reading, to read while writing; must be refused
//     g G    acquire through a guard to read, to write, and release
//     s x    open the file and lock its data to read, to write, without waiting for a process
//     f c    unlock the data and close the file, close it only
//     d D    destroy the object of a free lock, of a held lock, and create another
//
// and of the other process, which also checks the results:
//
//     h H    hold the data to write, and release it
//     i j k  hold the data to write, the data to read, the gate to write, and release it one
//            millisecond after the next call that locks
//     b      increment the sequence number, unless the lock is held
//
// A step that acquires is left out while an earlier release has failed, and a release while
// nothing is held.
struct Round {
    char const* name;
    char const* steps;
    enum File { missing, present } file = present;
    bool observes = false;
};

constexpr Round kRoundsOfLocks[] = {
    {"read, no file", "ru", Round::missing},
    {"write", "wun"},
    {"read", "ru"},
    {"write, no file", "wu", Round::missing},
    {"write, release again", "wu"},
    {"write without update", "wn"},
    {"intent to write", "pPun"},
    {"two readers", "rruu"},
    {"read, ask to write", "rXu"},
    {"write, ask to read", "wYun"},
    {"read, then write", "ruwun"},
    {"write, then read", "wunru"},
    {"guard of a reader", "gn"},
    {"guard of a writer", "Gn"},
    {"reader with observer", "brun", Round::present, true},
    {"writer with observer", "bwun", Round::present, true},
    {"reader next to a reader", "RruU"},
    {"reader waits for a writer", "iru"},
    {"writer waits for a writer", "iwun"},
    {"writer waits for a reader", "jwun"},
    {"reader waits for the gate", "kru"},
    {"writer waits for the gate", "kwun"},
    {"destroyed and created again", "wund"},
    {"destroyed while held", "wD"},
    {"destroyed while read", "rD"},
    {"range to read, not waiting", "sfc"},
    {"range to write, not waiting", "xfc"},
    {"range, held elsewhere", "hxHxfc"},
    {"range closed while locked", "xc"},
};

bool isOneOf(char step, char const* letters)
{
    return std::strchr(letters, step) != nullptr;
}

// ---- In the process whose calls fail -----------------------------------------------------------

enum Outcome { isSkipped, done, refused, wrong };

// Discards the reports of failed clean-up.
class Silence final : public ZMessageService_6_0 {
public:
    Silence() { setMessageService(this); }
    Silence(Silence const&) = delete;
    Silence& operator=(Silence const&) = delete;
    ~Silence() { setMessageService(nullptr); }

    void outputMessage(char const*, int, int, int, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*, ZLCString_6_0 const*, ZLCString_6_0 const*,
                       ZLCString_6_0 const*) const override
    {
    }
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*) const override
    {
    }
    void outputException(ZException_6_0&) const override {}
    void outputException(ZZException_6_0 const*, va_list) const override {}
};

// The state of the process after a step, in memory that both processes share.
struct Known {
    char step;
    Outcome outcome;
    char failure[100];
    int held[2];  // through either object, by the results of the steps
    bool writes;  // the first object is held to write
    bool update;  // before the step
    bool abandoned;
    char mistake[200];  // difference between an object and the results
    long blocks;        // of memory, more than before the first round
};

// The two objects through which a process uses one lock file.
class User {
public:
    User(std::string const& directory, char const* name, Round const& round, Known& known)
        : directory_(directory), name_(name), round_(round), known_(known), second_(make())
    {
        renew();
        known_ = {};
    }

    // Runs a round up to and with its last step.
    void step(char letter)
    {
        known_.step = letter;
        known_.outcome = isSkipped;
        known_.update = first_ != nullptr && first_->getUpdate() != 0;
        known_.failure[0] = '\0';
        if (!isWanted(letter))
            return;
        known_.outcome = done;
        try {
            if (first_ == nullptr)
                renew();
            perform(letter);
        } catch (ZInvalidParameterException_6_0 const&) {
            known_.outcome = refused;  // the constructor cannot check the directory
        } catch (ZResourceException_6_0 const& e) {
            note(e, letter);
        } catch (ZException_6_0 const& e) {
            fail(std::string("not an exception about resources: ") + e.exceptionName());
        }
        count(letter);
    }

    // Compares the objects with the results of the steps.
    void check()
    {
        known_.mistake[0] = '\0';
        if (isOneOf('s', round_.steps) || isOneOf('x', round_.steps)) {
            bool const open = range_.isOpen();
            return expect(open == (known_.held[0] > 0), "the range is open: ", open);
        }
        if (first_ != nullptr)
            checkOne(*first_, known_.held[0], known_.writes);
        checkOne(*second_, known_.held[1], false);
    }

    // Without the step that destroys it, the first object may be held more often than it is
    // released.
    void releaseFirst()
    {
        while (first_ != nullptr && first_->getLockState() != kUnset)
            first_->unlock(0);
        known_.held[0] = 0;
    }

    bool isFree() const { return known_.held[0] == 0 && known_.held[1] == 0; }

private:
    class Observer final : public ZObserverInterface_6_0 {
        void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override {}
    };

    std::unique_ptr<Lock> make() const { return std::make_unique<Lock>(directory_.c_str(), name_); }

    void renew()
    {
        first_ = make();
        if (round_.observes)
            first_->addObserver(&observer_);
    }

    // Returns how often the first object should be held before a step of the round.
    int depthBefore(char const* step) const
    {
        int depth = 0;
        for (char const* at = round_.steps; at != step; ++at)
            depth = isOneOf(*at, "rwpsx") ? depth + 1
                                          : std::max(depth - (isOneOf(*at, "unfc") ? 1 : 0), 0);
        return depth;
    }

    bool isWanted(char letter)
    {
        int& at = position_;
        char const* const step = round_.steps + at;
        at = round_.steps[at + 1] == '\0' ? 0 : at + 1;
        int const held = known_.held[0];
        if (isOneOf(letter, "rwpsx"))
            return held <= depthBefore(step);
        if (isOneOf(letter, "unfc"))
            return held > std::max(depthBefore(step) - 1, 0);
        if (isOneOf(letter, "gGd"))
            return held == 0;
        if (letter == 'R')
            return known_.held[1] == 0;
        if (letter == 'U')
            return known_.held[1] > 0;
        return isOneOf(letter, "PXYD") && held > 0;
    }

    void perform(char letter)
    {
        switch (letter) {
            case 'r':
            case 'Y':
                return first_->readLock();
            case 'w':
            case 'X':
                return first_->writeLock();
            case 'p':
                return first_->readWithIntentToWriteLock();
            case 'P':
                return first_->promoteReadToWriteLock();
            case 'u':
                return first_->unlock();
            case 'n':
                return first_->unlock(0);
            case 'R':
                return second_->readLock();
            case 'U':
                return second_->unlock();
            case 'g':
            case 'G':
                return useGuard(letter == 'G');
            case 's':
            case 'x':
                return lockRange(letter == 's' ? F_RDLCK : F_WRLCK);
            case 'f':
                if (int const error = range_.unlock(0, kGate))
                    ZUnlockResourceException_6_0(34, error).throwException("test", 1);
                return range_.close();
            case 'c':
                return range_.close();
            case 'd':
                return renew();
            case 'D':
                return destroyHeld();
        }
    }

    void useGuard(bool writes)
    {
        ZStackReadWriteLock_6_0 guard(*first_, 1);
        writes ? guard.writeLock() : guard.readLock();
        guarded_ = true;
    }

    void lockRange(short type)
    {
        int error =
            range_.open((directory_ + "/" + zfiles::LockFile::kPrefix + name_).c_str(), O_RDWR, 0);
        if (error == 0)
            error = range_.lock(type, 0, kGate);
        if (error != 0) {
            range_.close();
            ZLockResourceException_6_0(33, error).throwException("test", 1);
        }
    }

    // The ranges stay locked until the process ends.
    void destroyHeld()
    {
        known_.abandoned = true;
        known_.held[0] = 0;
        try {
            delete first_.release();
        } catch (ZInvalidResourceStateException_6_0 const&) {
            return renew();
        }
        fail("a held lock was destroyed silently");
    }

    void note(ZResourceException_6_0 const& e, char letter)
    {
        known_.outcome = refused;
        std::snprintf(known_.failure, sizeof known_.failure, "message %u, rc %d", e.messageNumber(),
                      e.returnCode());
        bool const acquires = isOneOf(letter, "rwpRsxXgG") && !guarded_;
        bool const expected = letter == 'Y'   ? e.messageNumber() == 5
                              : letter == 'X' ? e.messageNumber() == 33 && e.returnCode() == EDEADLK
                              : acquires      ? e.messageNumber() >= 33 && e.messageNumber() <= 35
                                              : isOneOf(letter, "unUfgG");
        if (!expected || e.messageNumber() == 32)
            known_.outcome = wrong;
        // A guard releases without the update that has failed.
        if (guarded_ && dynamic_cast<ZUnlockResourceException_6_0 const*>(&e) == nullptr)
            known_.held[0] = -1;
    }

    // Counts the acquisitions and releases of a step.
    void count(char letter)
    {
        bool const succeeded = known_.outcome == done;
        int& held = known_.held[0];
        if (isOneOf(letter, "rwpsx"))
            held += succeeded;
        if (isOneOf(letter, "unf"))
            held -= succeeded;
        if (letter == 'c')
            held = 0;
        if (isOneOf(letter, "RU"))
            known_.held[1] += succeeded ? (letter == 'R' ? 1 : -1) : 0;
        if (isOneOf(letter, "gG")) {
            held = guarded_ && !succeeded ? held + 1 : 0;
            guarded_ = false;
        }
        if (isOneOf(letter, "XY") && succeeded)
            known_.outcome = wrong;
        // A reader that finds another number and has observers returns as the writer.
        known_.writes = held > 0 && (round_.observes && isOneOf('r', round_.steps)
                                         ? first_->getLockState() == kWrite
                                         : isOneOf(letter, "wpGx") || known_.writes);
    }

    void checkOne(Lock const& lock, int held, bool writes)
    {
        State const state = held == 0 ? kUnset : writes ? kWrite : kRead;
        expect(lock.getLockState() == state, "the state is ", lock.getLockState());
        expect((lock.getFileHandle() != -1) == (held > 0), "the descriptor is ",
               lock.getFileHandle());
        ZAbstractProcessReadWriteFileLock_6_0 const* const object = &lock;
        int const claims = zfiles::LockClaims::countHeld(object);
        expect(claims == held, "the claims held are ", claims);
        int const readers = const_cast<Lock&>(lock).getReaderCount();
        expect(readers == (writes ? 0 : held), "the readers are ", readers);
    }

    void expect(bool holds, char const* what, int number)
    {
        if (!holds)
            fail(what + std::to_string(number));
    }

    void fail(std::string const& what)
    {
        std::snprintf(known_.mistake, sizeof known_.mistake, "%s", what.c_str());
    }

    std::string const directory_;
    char const* const name_;
    Round const& round_;
    Known& known_;
    Observer observer_;
    std::unique_ptr<Lock> first_;
    std::unique_ptr<Lock> second_;
    zfiles::SharedFile range_;
    int position_ = 0;      // of the next step
    bool guarded_ = false;  // the guard has acquired
};

// Triggers the library's one-time allocations.
void warmUp(std::string const& directory, Round const& round, Known& known)
{
    for (char const* name : {"warm/no-directory", "warm"}) {
        User user(directory, name, round, known);
        for (int i = 0; i < 2; ++i)
            for (char const* step = round.steps; *step != '\0'; ++step)
                if (*step != 'D')
                    user.step(*step);
        for (char const* step = "ucnU"; *step != '\0'; ++step)
            user.step(*step);
        user.releaseFirst();
    }
}

// Runs the rounds; a mark follows each step.
int useLocks(std::string const& directory, Round const& round, Known& known)
{
    Silence const silence;
    warmUp(directory, round, known);
    User user(directory, "a", round, known);
    long const blocks = FailingAllocator::blocks();
    Stepper::mark(0);
    long marks = 0;
    for (int i = 0; i < kRounds + kRoundsFree; ++i)
        for (char const* step = round.steps; *step != '\0'; ++step) {
            user.step(*step);
            user.check();
            known.blocks = user.isFree() ? FailingAllocator::blocks() - blocks : 0;
            Stepper::mark(++marks);
        }
    if (known.abandoned)
        _exit(0);
    // A leaked claim would block a new object.
    Lock fresh(directory.c_str(), "a");
    fresh.writeLock();
    fresh.unlock();
    return 0;
}

// ---- In the other process ----------------------------------------------------------------------

// A lock on the lock file that does not belong to this process: its probes neither own it nor
// release it.
class Holder {
public:
    explicit Holder(std::string path) : path_(std::move(path)) {}
    Holder(Holder const&) = delete;
    Holder& operator=(Holder const&) = delete;
    ~Holder() { release(); }

    bool isHolding() const { return fd_ >= 0; }

    void hold(short type, off_t start, bool passes)
    {
        release();
        passes_ = passes;
        fd_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        set(type, start);
    }

    // The child is about to lock, which may wait for this holder.
    void awaited()
    {
        if (!isHolding() || !passes_ || thread_.joinable())
            return;
        thread_ = std::thread([this] {
            usleep(1000);
            set(F_UNLCK, 0);
        });
    }

    void release()
    {
        if (thread_.joinable())
            thread_.join();
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

    // Releases the lock of a holder that waits for the child's next lock.
    void stepDone()
    {
        if (passes_)
            release();
    }

private:
    void set(short type, off_t start) const
    {
        struct flock range = {};
        range.l_type = type;
        range.l_whence = SEEK_SET;
        range.l_start = start;
        range.l_len = type == F_UNLCK ? 0 : kGate;
        fcntl(fd_, F_OFD_SETLK, &range);
    }

    std::string const path_;
    int fd_ = -1;
    bool passes_ = false;
    std::thread thread_;
};

class LockFile {
public:
    explicit LockFile(std::string path) : path_(std::move(path)) {}

    std::string const& path() const { return path_; }

    void reset(Round const& round) const
    {
        unlink(path_.c_str());
        if (round.file == Round::present)
            put(kSequence);
    }

    uint32_t sequence() const
    {
        uint32_t number = 0;
        int const fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0 && pread(fd, &number, sizeof number, 0) != sizeof number)
            number = 0;
        close(fd);
        return number;
    }

    void put(uint32_t number) const
    {
        uint32_t const words[] = {number, 1};
        int const fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (pwrite(fd, words, sizeof words, 0) != sizeof words)
            throw std::runtime_error("the lock file cannot be written");
        close(fd);
    }

    // Locks the gate, then the data, as a process that uses the lock, and unlocks them. Returns
    // whether both could be locked.
    bool admits(short type) const
    {
        int const fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0)
            return true;
        bool const got = lock(fd, F_WRLCK, kGate) && lock(fd, type, 0);
        close(fd);
        return got;
    }

private:
    static bool lock(int fd, short type, off_t start)
    {
        struct flock range = {};
        range.l_type = type;
        range.l_whence = SEEK_SET;
        range.l_start = start;
        range.l_len = kGate;
        return fcntl(fd, F_SETLK, &range) == 0;
    }

    std::string const path_;
};

long descriptorsOf(pid_t process)
{
    auto const all =
        std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd");
    return std::distance(begin(all), end(all));
}

// Checks the process after each step.
class Judge {
public:
    Judge(Counts& counts, LockFile const& file, Round const& round, Known const& known,
          Cause const& cause)
        : counts_(counts),
          file_(file),
          round_(round),
          known_(known),
          event_(std::string(round.name) + ", " + cause.describe()),
          causeIsOfLocks_(cause.first.family == Family::lock),
          sequence_(file.sequence())
    {
    }

    void begin(Stepper const& stepper) { descriptors_ = descriptorsOf(stepper.process()); }

    void judge(Stepper const& stepper, Holder const& holder)
    {
        ++counts_.events;
        long const steps = static_cast<long>(std::strlen(round_.steps));
        long const at = stepper.call().argument - 1;
        round_number_ = at / steps;
        step_ = at % steps;
        if (known_.mistake[0] != '\0')
            complainOfStep(known_.mistake);
        if (known_.outcome == wrong)
            complainOfStep("a wrong result");
        bool const expectsSuccess = round_number_ == kRounds + kRoundsFree - 1 &&
                                    !isOneOf(known_.step, "XY") && !known_.abandoned;
        if (expectsSuccess && known_.outcome == refused && !holder.isHolding())
            complainOfStep("refused without a cause");
        ++(known_.outcome == refused ? counts_.olds : counts_.news);
        judgeAccess(holder);
        judgeSequence();
        if (known_.abandoned)
            return;
        if (known_.blocks != 0)
            complainOfStep("blocks of memory left: " + std::to_string(known_.blocks));
        long const open = descriptorsOf(stepper.process()) - descriptors_;
        bool const free = known_.held[0] == 0 && known_.held[1] == 0;
        if (free && open != 0)
            complainOfStep("descriptors left: " + std::to_string(open));
    }

    void end(int code)
    {
        if (code != 0)
            complain(counts_, event_ + ": ended with " + std::to_string(code));
        if (!file_.admits(F_WRLCK))
            complain(counts_, event_ + ": locked after the end");
    }

    void raised() { ++sequence_; }

private:
    // Checks that another process gets the lock if and only if the results allow it.
    void judgeAccess(Holder const& holder)
    {
        if (holder.isHolding())
            return;
        bool const writes = known_.writes;
        bool const reads = known_.held[0] > 0 || known_.held[1] > 0;
        bool const mayWrite = file_.admits(F_WRLCK);
        if (known_.abandoned) {
            if (mayWrite)
                complainOfStep("free after its holder was destroyed");
            return;
        }
        // A range that the kernel refuses to release stays locked while another object has the file
        // open, up to the next acquisition.
        if (causeIsOfLocks_ && known_.held[1] > 0 && known_.outcome == refused)
            keepsRange_ = true;
        if (!reads || (known_.outcome == done && isOneOf(known_.step, "rR")))
            keepsRange_ = false;
        bool const mayRead = file_.admits(F_RDLCK);
        if (mayWrite != !reads)
            complainOfStep(mayWrite ? "another process may write" : "no other process may write");
        if (mayRead != !writes && !(keepsRange_ && !mayRead))
            complainOfStep(mayRead ? "another process may read" : "no other process may read");
    }

    void judgeSequence()
    {
        uint32_t const before = sequence_;
        sequence_ = file_.sequence();
        bool const mayRaise = (known_.step == 'u' && known_.update) || known_.step == 'G';
        bool const raises = mayRaise && known_.outcome == done;
        bool const fits = sequence_ == before + raises ||
                          (mayRaise && known_.outcome == refused && sequence_ == before + 1);
        if (!fits)
            complainOfStep("the sequence number went from " + std::to_string(before) + " to " +
                           std::to_string(sequence_));
    }

    void complainOfStep(std::string const& what)
    {
        static char const* const kOutcomes[] = {"left out", "done", "refused", "wrong"};
        complain(counts_, event_ + ", round " + std::to_string(round_number_ + 1) + ", step " +
                              std::to_string(step_ + 1) + " (" + known_.step + ", " +
                              kOutcomes[known_.outcome] + " " + known_.failure + "): " + what);
    }

    Counts& counts_;
    LockFile const& file_;
    Round const& round_;
    Known const& known_;
    std::string const event_;
    bool const causeIsOfLocks_;
    bool keepsRange_ = false;
    uint32_t sequence_;
    long descriptors_ = 0;
    long round_number_ = 0;
    long step_ = 0;
};

class LockRounds {
public:
    LockRounds(Counts& counts, std::string const& directory, Round const& round, Known& known)
        : counts_(counts),
          directory_(directory),
          round_(round),
          known_(known),
          file_(directory + "/" + zfiles::LockFile::kPrefix + "a"),
          steps_(static_cast<long>(std::strlen(round.steps)))
    {
    }

    std::vector<Call> callsOfFirstRound() const
    {
        file_.reset(round_);
        Stepper stepper([&] { return useLocks(directory_, round_, known_); });
        std::vector<Call> calls;
        for (bool inside = false; stepper.nextOnFiles();) {
            Call const& call = stepper.call();
            if (call.family == Family::mark) {
                inside = true;
                if (call.argument == steps_)
                    return calls;
            } else if (inside) {
                calls.push_back(call);
            }
        }
        complain(counts_, std::string(round_.name) + ": ended early with " +
                              std::to_string(stepper.finish()));
        return calls;
    }

    void runUnder(Cause const& cause)
    {
        file_.reset(round_);
        Holder holder(file_.path());
        Judge judge(counts_, file_, round_, known_, cause);
        Stepper stepper([&] { return useLocks(directory_, round_, known_); });
        size_t like = 0;
        bool strikes = false;
        while (stepper.nextOnFiles()) {
            Call const& call = stepper.call();
            if (call.family == Family::mark) {
                if (call.argument == 0)
                    judge.begin(stepper);
                else
                    actBeforeOrAfter(judge, stepper, holder);
                strikes = call.argument < kRounds * steps_;
                continue;
            }
            bool const fails = strikes && cause.isLike(call) && ++like >= cause.from;
            if (fails)
                stepper.fail(cause.error);
            else if (call.family == Family::lock)
                holder.awaited();
        }
        judge.end(stepper.finish());
    }

    long events() const { return steps_ * (kRounds + kRoundsFree); }

private:
    // The steps of the other process run after the mark of the step.
    void actBeforeOrAfter(Judge& judge, Stepper const& stepper, Holder& holder) const
    {
        if (known_.step == 'H')
            holder.release();
        holder.stepDone();
        judge.judge(stepper, holder);
        switch (known_.step) {
            case 'h':
                return holder.hold(F_WRLCK, 0, false);
            case 'i':
                return holder.hold(F_WRLCK, 0, true);
            case 'j':
                return holder.hold(F_RDLCK, 0, true);
            case 'k':
                return holder.hold(F_WRLCK, kGate, true);
            case 'b':
                if (known_.held[0] > 0)  // no other process has the lock
                    return;
                file_.put(file_.sequence() + 1);
                return judge.raised();
        }
    }

    Counts& counts_;
    std::string const directory_;
    Round const& round_;
    Known& known_;
    LockFile const file_;
    long const steps_;
};

}  // namespace

void failLocksPersistently(Counts& counts, Extent extent)
{
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return skip(counts, why);
    TestDirectory const directory(TestDirectory::Place::memory);
    auto& known = shared<Known>();
    for (Round const& round : kRoundsOfLocks) {
        LockRounds rounds(counts, directory.path(), round, known);
        std::vector<Cause> causes = lastingCauses(rounds.callsOfFirstRound(), extent);
        if (extent == Extent::share)
            std::erase_if(causes,
                          [](Cause const& cause) { return cause.reach != Cause::everyFile; });
        counts.planned += static_cast<long>(causes.size()) * rounds.events();
        for (Cause const& cause : causes)
            rounds.runUnder(cause);
    }
}
