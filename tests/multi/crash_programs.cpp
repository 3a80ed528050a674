// Stores alongside programs that know only the file protocol: lock, read, rewrite in place.
#include <Z/ZException.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "TestDirectory.h"

namespace {

constexpr int kOfEach = 2;  // storing and loading, with the library and without: 8 processes

// Counters that the processes share.
struct Common {
    std::atomic<bool> stop{false};
    std::atomic<long> number{1};
    std::atomic<long> ourStores{0};
    std::atomic<long> otherStores{0};
    std::atomic<long> ourReads{0};
    std::atomic<long> otherReads{0};
    std::atomic<long> torn{0};       // reads of the other programs
    std::atomic<long> tornFiles{0};  // different torn contents that a process read
    std::atomic<long> refused{0};
    std::string path;
};

Generation nextGeneration(Common& common)
{
    long const number = ++common.number;
    return {number, static_cast<size_t>(number * 7919 % 20000), false};
}

void refuse(Common& common)
{
    ++common.refused;
    usleep(50);
}

// Another program: no library, no journal.
class OtherProgram {
public:
    OtherProgram(std::string const& path, bool writes)
        : fd_(open(path.c_str(), (writes ? O_RDWR : O_RDONLY) | O_CLOEXEC))
    {
        struct flock whole = {};
        whole.l_type = writes ? F_WRLCK : F_RDLCK;
        locked_ = fd_ >= 0 && fcntl(fd_, F_SETLK, &whole) == 0;
    }
    OtherProgram(OtherProgram const&) = delete;
    OtherProgram& operator=(OtherProgram const&) = delete;
    ~OtherProgram() { close(fd_); }

    bool isRefused() const { return !locked_; }

    std::string read() const
    {
        std::string all;
        char block[65536];
        for (ssize_t n; (n = ::read(fd_, block, sizeof block)) > 0;)
            all.append(block, static_cast<size_t>(n));
        return all;
    }

    void rewrite(std::string const& text) const
    {
        if (pwrite(fd_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
            ftruncate(fd_, static_cast<off_t>(text.size())) != 0)
            _exit(1);
    }

private:
    int const fd_;
    bool locked_;
};

void useAsOther(Common& common, bool writes)
{
    OtherProgram const file(common.path, writes);
    if (file.isRefused())
        return refuse(common);
    ++common.otherReads;
    std::string const text = file.read();
    if (!Generation::isWhole(text)) {
        static std::string last;
        common.tornFiles += text != last;
        ++common.torn;
        last = text;
    }
    if (!writes)
        return;
    file.rewrite(nextGeneration(common).text());
    ++common.otherStores;
}

void useOurs(Counts& counts, Common& common, bool writes)
{
    try {
        if (writes) {
            nextGeneration(common).store(common.path);
            ++common.ourStores;
        } else {
            Generation::load(common.path);
            ++common.ourReads;
        }
    } catch (Torn const& torn) {
        ++counts.torn;
        complain(counts, std::string("load: ") + torn.what());
    } catch (ZPropertiesIOException_6_0& exception) {
        std::string const call = exception.api().getChars();
        int const error = exception.excerrno();
        bool const locked = call == "fcntl()" && (error == EAGAIN || error == EACCES);
        // Another store changed the same values after the load.
        bool const overtaken = Generation::keepsLines() && call == "store()" && error == ESTALE;
        if (!locked && !overtaken)
            complain(counts, call + " fails");
        refuse(common);
    } catch (ZException_6_0& exception) {
        complain(counts, "contents of no generation");
        exception.print();
    }
}

pid_t process(Common& common, std::function<void()> const& turn)
{
    return inChild([&] {
        while (!common.stop)
            turn();
        return 0;
    });
}

void run(Counts& counts, long stores, bool kills)
{
    TestDirectory const place(TestDirectory::Place::memory);
    auto& common = shared<Common>();
    common.path = place.write("conf", Generation(1, 1000, false).text());

    auto const storing = [&] { useOurs(counts, common, true); };
    std::vector<pid_t> processes;
    std::vector<pid_t> ours;
    for (int i = 0; i < kOfEach; ++i) {
        ours.push_back(process(common, storing));
        processes.push_back(process(common, [&] { useOurs(counts, common, false); }));
        for (bool writes : {false, true})
            processes.push_back(process(common, [&common, writes] {
                useAsOther(common, writes);
                usleep(100);
            }));
    }
    counts.planned = stores;
    long killed = 0;
    while ((counts.events = common.ourStores + common.otherStores) < stores) {
        usleep(kills ? 5000 : 1000);
        if (!kills)
            continue;
        pid_t& victim = ours[static_cast<size_t>(++killed % kOfEach)];
        kill(victim, SIGKILL);
        ended(victim);
        victim = process(common, storing);
    }
    common.stop = true;
    processes.insert(processes.end(), ours.begin(), ours.end());
    for (pid_t const one : processes)
        if (ended(one) != 0)
            complain(counts, "a process ended early");

    double const torn = 100.0 * static_cast<double>(common.torn) /
                        static_cast<double>(std::max(1L, common.otherReads.load()));
    if (common.ourReads == 0 || common.otherReads == 0 || common.ourStores == 0)
        complain(counts, "a kind of process never got the lock");
    counts.torn += common.torn;
    // A program that ignores the journal may read the torn file of a killed store until the next
    // store or load. That time depends on the machine; the number of torn files does not.
    if (common.tornFiles > killed * 2 * kOfEach)
        complain(counts, "torn files: " + std::to_string(common.tornFiles));
    char note[160];
    std::snprintf(note, sizeof note,
                  "own stores %ld, other %ld; reads %ld and %ld; refused %ld; kills %ld; torn for "
                  "others %ld (%.2f %%)",
                  common.ourStores.load(), common.otherStores.load(), common.ourReads.load(),
                  common.otherReads.load(), common.refused.load(), killed, common.torn.load(),
                  torn);
    remark(counts, note);
}

}  // namespace

void storeAmongPrograms(Counts& counts, Extent extent)
{
    run(counts, extent == Extent::full ? 100000 : 2000, false);
}

void killAmongPrograms(Counts& counts, Extent extent)
{
    run(counts, extent == Extent::full ? 50000 : 1000, true);
}
