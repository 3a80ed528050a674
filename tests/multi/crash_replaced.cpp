// Stores whose file an editor replaces at each call by renaming a new file over it. A second writer
// then stores the new file: neither writer touches the journal or companion of the other.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Campaign.h"
#include "Generation.h"
#include "Stepper.h"
#include "StoreDirectory.h"
#include "TreeState.h"

namespace {

using Family = Stepper::Family;

enum Answer { stored = 0, raised = 100 };

// The generations that the first writer finds and stores, that the editor writes, and that the
// second writer stores.
struct Shape {
    char const* name;
    Generation before;
    Generation first;
    Generation edited;  // without a secret
    Generation second;
    Generation next;
};
Shape const kShapes[] = {
    {"with companion",
     {4, 3000, true},
     {8, 9000, true},
     {20, 5000, false},
     {24, 7000, true},
     {28, 3000, true}},
    {"without companion",
     {4, 9000, false},
     {8, 3000, false},
     {20, 5000, false},
     {24, 7000, false},
     {28, 3000, false}},
};

int store(std::string const& path, Generation const& what)
{
    try {
        what.store(path);
        return stored;
    } catch (ZException_6_0&) {
        return raised;
    }
}

// One arrangement of the two writers.
struct Order {
    size_t editAt;    // the call of the first writer before which the editor acts
    size_t secondTo;  // the call that the second writer reaches before the first continues
    bool killed;      // the second writer is killed there; otherwise it continues after the first
};

class Race {
public:
    Race(Counts& counts, StoreDirectory const& target, Shape const& shape)
        : counts_(counts), target_(target), shape_(shape)
    {
    }

    /// Counts the calls of each writer without the other, and finds the last call by which the
    /// first writer changes anything.
    void measure()
    {
        target_.reset(shape_.before);
        Stepper first([&] { return store(target_.path(), shape_.first); });
        while (first.nextOnFiles()) {
            if (changesResult(first.call()))
                lastChange_ = firstCalls_;
            ++firstCalls_;
        }
        edit();
        Stepper second([&] { return store(target_.path(), shape_.second); });
        while (second.nextOnFiles())
            ++secondCalls_;
    }
    size_t firstCalls() const { return firstCalls_; }
    size_t secondCalls() const { return secondCalls_; }

    void run(Order const& order)
    {
        target_.reset(shape_.before);
        Stepper first([&] { return store(target_.path(), shape_.first); });
        std::string event = std::string(shape_.name) + ", replaced before ";
        advance(first, order.editAt, event);
        edit();
        Stepper second([&] { return store(target_.path(), shape_.second); });
        event += order.killed ? ", second writer killed before " : ", second writer waits before ";
        advance(second, order.secondTo, event);
        bool const firstStored = first.finish() == stored;
        bool const reached = contentsOf(target_.path()).find(generationLine()) != std::string::npos;
        if (firstStored && !reached && order.editAt <= lastChange_)
            complain(counts_, event + ": success was reported for a file without a name");
        bool secondStored = false;
        if (order.killed)
            second.kill();
        else
            secondStored = second.finish() == stored;
        judge(order, firstStored, secondStored, event);
    }

private:
    bool changesResult(Stepper::Call const& call) const
    {
        bool const isResult = call.file == "conf" || call.file == "conf.obf";
        return isResult && (call.family == Family::write || call.family == Family::cut ||
                            call.family == Family::rename || call.family == Family::unlink);
    }

    std::string generationLine() const
    {
        return "\ngeneration = " + std::to_string(shape_.first.number()) + "\n";
    }

    static void advance(Stepper& stepper, size_t to, std::string& event)
    {
        for (size_t i = 0; i <= to; ++i)
            if (!stepper.nextOnFiles()) {
                event += "its end";
                return;
            }
        event += describe(stepper.call(), to);
    }

    // Renames another file over the file.
    void edit() const
    {
        std::string const path = target_.path();
        std::string const edited = path + ".edit";
        std::ofstream(edited) << shape_.edited.text();
        chmod(edited.c_str(), 0640);
        rename(edited.c_str(), path.c_str());
    }

    void judge(Order const& order, bool firstStored, bool secondStored, std::string const& event)
    {
        ++counts_.events;
        std::vector<Generation> allowed;
        if (firstStored)
            allowed.push_back(shape_.first);
        if (secondStored || order.killed)
            allowed.push_back(shape_.second);
        if (!secondStored)
            allowed.push_back(shape_.edited);
        try {
            Generation const found = Generation::load(target_.path());
            bool isAllowed = false;
            for (Generation const& each : allowed)
                isAllowed = isAllowed || each.number() == found.number();
            ++(found.number() == shape_.edited.number() ? counts_.olds : counts_.news);
            if (!isAllowed)
                complain(counts_,
                         event + ": generation " + std::to_string(found.number()) + " was found");
        } catch (Torn const& torn) {
            complain(counts_, event + ": " + torn.what());
        } catch (ZException_6_0& exception) {
            complain(counts_, event + ": cannot be loaded");
            exception.print();
        }
        tidy(event);
    }

    // Stores once more; orphans may stay.
    void tidy(std::string const& event) const
    {
        if (store(target_.path(), shape_.next) != stored)
            return complain(counts_, event + ": then no store succeeds");
        std::filesystem::path const path = target_.path();
        for (auto const& entry : std::filesystem::directory_iterator(path.parent_path())) {
            std::string const name = entry.path().filename().string();
            if (name != "conf" && (name != "conf.obf" || !shape_.next.isSecret()) &&
                name.find(".orphan") == std::string::npos)
                complain(counts_, event + ": left is " + name);
        }
    }

    Counts& counts_;
    StoreDirectory const& target_;
    Shape const& shape_;
    size_t firstCalls_ = 0;
    size_t secondCalls_ = 0;
    size_t lastChange_ = 0;
};

}  // namespace

void replaceDuringStores(Counts& counts, Extent extent)
{
    if (std::string const why = Stepper::obstacle(); !why.empty())
        return skip(counts, why);
    bool const all = extent == Extent::full;
    size_t const editStride = all ? 1 : 5;
    size_t const secondStride = all ? 3 : 17;
    TestDirectory const directory(TestDirectory::Place::memory);
    StoreDirectory const target(directory.path());
    for (Shape const& shape : kShapes) {
        Race race(counts, target, shape);
        race.measure();
        counts.planned += static_cast<long>((race.firstCalls() / editStride + 1) *
                                            (race.secondCalls() / secondStride + 1));
        size_t turn = 0;
        for (size_t editAt = 0; editAt < race.firstCalls(); editAt += editStride)
            for (size_t to = turn++ % secondStride; to <= race.secondCalls(); to += secondStride)
                race.run({editAt, to, to < race.secondCalls() && (turn + to) % 2 == 0});
        if (!all)
            break;
    }
}
