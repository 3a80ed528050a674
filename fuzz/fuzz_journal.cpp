// Journals: loads a file that a store left in any state, with a whole or a damaged journal, and
// compares the result with the rules of docs/durability.md. The next store starts from that result
// and leaves no journal.
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdint.h>
#include <unistd.h>
#include <zlib.h>

#include <string>

#include "ScratchDirectory.h"
#include "check.h"

namespace {

constexpr char kJournal[] = ".conf.zjn";
constexpr uint64_t kNone = ~uint64_t{0};

template <class Number>
std::string little(Number number)
{
    std::string bytes;
    for (size_t i = 0; i < sizeof number; ++i)
        bytes += static_cast<char>(number >> 8 * i);
    return bytes;
}

// The change of one store.
struct Change {
    std::string beginning;
    std::string oldMiddle;
    std::string newMiddle;
    std::string end;

    std::string before() const { return beginning + oldMiddle + end; }
    std::string after() const { return beginning + newMiddle + end; }
};

uint32_t adler(std::string const& text)
{
    return static_cast<uint32_t>(adler32(adler32(0, nullptr, 0),
                                         reinterpret_cast<unsigned char const*>(text.data()),
                                         static_cast<unsigned>(text.size())));
}

std::string checksum(std::string const& bytes)
{
    auto const sum = static_cast<uint32_t>(
        crc32(crc32(0, nullptr, 0), reinterpret_cast<unsigned char const*>(bytes.data()),
              static_cast<unsigned>(bytes.size())));
    return little(sum == 0 ? uint32_t{1} : sum);
}

// The journal of a change without a companion.
std::string journalOf(Change const& change)
{
    bool const stays = change.oldMiddle.size() == change.newMiddle.size();
    std::string const still = stays ? change.end : "";
    std::string const moving = stays ? "" : change.end;
    std::string bytes = "ZSTORE2\n";
    for (uint64_t const length :
         {uint64_t{change.beginning.size()}, uint64_t{still.size()},
          uint64_t{change.oldMiddle.size()}, uint64_t{change.newMiddle.size()},
          uint64_t{moving.size()}, kNone, kNone})
        bytes += little(length);
    bytes += little(uint32_t{0}) + little(adler(change.beginning)) + little(adler(still)) +
             little(uint32_t{0});
    bytes += change.oldMiddle + change.newMiddle + moving;
    return bytes + checksum(bytes);
}

// Returns whether a crashed store can have left this file.
bool isMixture(Change const& change, std::string const& file)
{
    std::string const before = change.before();
    std::string const after = change.after();
    auto const [shorter, longer] = std::minmax({before.size(), after.size()});
    if (file.size() < shorter || file.size() > longer)
        return false;
    for (size_t i = 0; i < file.size(); ++i) {
        bool const isOld = i < before.size() && file[i] == before[i];
        bool const isNew = i < after.size() && file[i] == after[i];
        if (!isOld && !isNew && !(i >= shorter && file[i] == '\0'))
            return false;
    }
    return true;
}

std::string lines(Choices& choices, unsigned most)
{
    static char const* const kLines[] = {
        "k = 1\n", "key = two words\n",         "# about it\n", "\n", "[b]\n",
        "k = 2\n", "long = 0123456789abcdef\n", "k y = 3\n"};
    std::string text;
    for (unsigned n = choices.below(most + 1); n > 0; --n)
        text += kLines[choices.below(8)];
    return text;
}

std::string damaged(std::string bytes, Choices& choices)
{
    for (unsigned n = choices.below(4); n > 0; --n) {
        unsigned const kind = choices.below(4);
        size_t const at = bytes.empty() ? 0 : choices.byte() * 3 % bytes.size();
        char const byte = static_cast<char>(choices.byte());
        if (kind == 0 && !bytes.empty())
            bytes[at] = byte;
        else if (kind == 1)
            bytes.resize(at);
        else if (kind == 2)
            bytes.insert(at, 1, byte);
        else if (bytes.size() >= 4)  // the store was complete
            bytes.replace(bytes.size() - 4, 4, 4, '\0');
    }
    return bytes;
}

// Loads `name`, changes a value and stores. Returns the exception, or else the file.
std::string outcomeOf(ScratchDirectory const& scratch, std::string const& name)
{
    ZStanzaFileProperties_6_0 store(1);
    std::string const path = scratch.at(name);
    try {
        store.load(path.c_str());
        store.setValue("a", "next", "1", 0);
        store.store(nullptr);
    } catch (ZException_6_0 const& e) {
        return std::string("raised ") + e.exceptionName();
    }
    ZStanzaFileProperties_6_0 again(1);
    again.load(path.c_str());
    check(again.exists("a", "next") != 0, "a load has the stored key");
    return scratch.read(name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static ScratchDirectory const scratch;
    Choices choices(data, size);
    scratch.clear();
    Change change;
    change.beginning = "[a]\n" + lines(choices, 4);
    change.oldMiddle = lines(choices, 4);
    change.newMiddle = lines(choices, 4);
    change.end = lines(choices, 4);
    std::string const before = change.before();
    std::string const after = change.after();

    std::string file;
    switch (choices.below(5)) {
        case 0:
            file = before;
            break;
        case 1:
            file = after;
            break;
        case 2: {  // byte by byte
            auto const [shorter, longer] = std::minmax({before.size(), after.size()});
            size_t const length = shorter + choices.byte() % (longer - shorter + 1);
            std::string const& more = before.size() > after.size() ? before : after;
            for (size_t i = 0; i < length; ++i) {
                unsigned const from = choices.below(3);
                file += i >= shorter ? (from == 0 ? '\0' : more[i])
                                     : (from == 0 ? before[i] : after[i]);
            }
            break;
        }
        case 3: {  // a prefix of the new text over the old one
            size_t const written = choices.byte() % (after.size() + 1);
            file = after.substr(0, written);
            if (written < before.size())
                file += before.substr(written);
            break;
        }
        default:  // written since
            file = "[a]\n" + lines(choices, 6);
    }
    std::string const whole = journalOf(change);
    bool const isSealed = choices.below(8) == 0;
    std::string journal = damaged(whole, choices);
    bool const isChanged = journal != whole;
    if (isChanged && isSealed && journal.size() >= 4) {
        journal.resize(journal.size() - 4);
        journal += checksum(journal);
    }
    scratch.write("conf", file);
    scratch.write(kJournal, journal);

    if (isChanged && isSealed) {  // a valid journal of arbitrary contents: it loads or fails
        outcomeOf(scratch, "conf");
        return 0;
    }
    bool const counts = !isChanged;
    bool const isOld = file == before;
    bool const isTaken = counts && !isOld && isMixture(change, file);
    scratch.write("twin", isTaken ? after : file);
    std::string const expected = outcomeOf(scratch, "twin");
    std::string const outcome = outcomeOf(scratch, "conf");
    check(outcome == expected, "a load follows the table, and so does the next store");
    if (outcome.compare(0, 7, "raised ") != 0) {
        check(access(scratch.at(kJournal).c_str(), F_OK) != 0, "the journal is removed");
        check(access(scratch.at(".conf.zjn.new").c_str(), F_OK) != 0, "and no new one is started");
    } else {
        check(scratch.read("conf") == file, "a load that fails changes nothing");
    }
    return 0;
}
