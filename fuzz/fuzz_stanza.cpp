// Stanza files: a file that was read is written so that it reads the same and writes itself. It has
// an error if and only if it cannot be read, and otherwise a note about a change unless it is
// written unchanged.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZStanzaProblem.h>
#include <stdint.h>
#include <string.h>

#include "ScratchDirectory.h"
#include "check.h"

namespace {

bool read(ZSCFData_6_0& cache, char const* text, size_t length)
{
    cache.setAttributes(ZPCache_6_0::keepComments, nullptr);
    try {
        cache.readText("fuzz.conf", text, length);
        return true;
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        return false;
    }
}

bool sameLines(ZSCFData_6_0 const& one, ZSCFData_6_0 const& other)
{
    ZArrayList_6_0 ones(16, 1);
    ZArrayList_6_0 others(16, 1);
    one.getLines(ones);
    other.getLines(others);
    if (ones.size() != others.size())
        return false;
    for (unsigned i = 0; i < ones.size(); ++i)
        if (!ones.get(i)->equals(*others.get(i)))
            return false;
    return true;
}

// Lines that long are split, and a NUL byte cuts a line: such text need not read back.
bool readsBack(char const* text, size_t length)
{
    size_t const kLongest = 8000;
    if (memchr(text, 0, length) != nullptr)
        return false;
    size_t line = 0;
    for (size_t i = 0; i < length; ++i) {
        line = text[i] == '\n' ? 0 : line + 1;
        if (line > kLongest)
            return false;
    }
    return true;
}

struct Found {
    bool hasErrors = false;
    bool hasChanges = false;  // notes about lines that a store changes
};

Found findProblems(char const* text, size_t length)
{
    static ScratchDirectory const scratch;
    scratch.write("fuzz.conf", std::string(text, length));
    ZArrayList_6_0 list(16, 1);
    ZStanzaFileProperties_6_0::findProblems(scratch.at("fuzz.conf").c_str(), list);
    Found found;
    ZStanzaProblem_6_0 const* previous = nullptr;
    for (unsigned i = 0; i < list.size(); ++i) {
        auto const& problem = static_cast<ZStanzaProblem_6_0 const&>(*list.get(i));
        check(problem.line() > 0 && problem.column() > 0 && problem.column() <= length + 1,
              "a problem has a line and a column");
        check(previous == nullptr || previous->line() <= problem.line(),
              "problems are in file order");
        check(strchr(problem.text().getChars(), '\n') == nullptr, "a problem is one line");
        bool const isCompanion = problem.cause() == ZStanzaProblem_6_0::unreadableCompanion ||
                                 problem.cause() == ZStanzaProblem_6_0::damagedCompanion;
        bool const isNote = problem.kind() == ZStanzaProblem_6_0::note;
        bool const isChange = isNote && problem.cause() != ZStanzaProblem_6_0::loneReturn;
        found.hasChanges = found.hasChanges || isChange;
        found.hasErrors = found.hasErrors || (!isNote && !isCompanion);
        previous = &problem;
    }
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    char const* const text = reinterpret_cast<char const*>(data);
    Found const found = findProblems(text, size);
    ZSCFData_6_0 first;
    bool const isRead = read(first, text, size);
    check(isRead != found.hasErrors, "a file has errors if and only if it cannot be read");
    if (!isRead)
        return 0;
    ZBuffer_6_0 written;
    first.writeText(written);
    bool const isSame =
        written.getLength() == size && (size == 0 || memcmp(text, written.getBuffer(), size) == 0);
    check(isSame != found.hasChanges,
          "a file has notes about changes if and only if it is written differently");
    if (!readsBack(text, size))
        return 0;
    char const* const again = static_cast<char const*>(written.getBuffer());

    ZSCFData_6_0 second;
    check(read(second, again, written.getLength()), "the written file can be read");
    check(sameLines(first, second), "it has the same lines");
    ZBuffer_6_0 writtenAgain;
    second.writeText(writtenAgain);
    check(written.getLength() == writtenAgain.getLength() &&
              (written.getLength() == 0 ||
               memcmp(again, writtenAgain.getBuffer(), written.getLength()) == 0),
          "it is written unchanged");
    return 0;
}
