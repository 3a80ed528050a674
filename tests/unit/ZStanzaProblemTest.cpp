// The record of a problem.
#include <Z/ZStanzaProblem.h>
#include <gtest/gtest.h>

#include <memory>

#include "FailingAllocator.h"

namespace {

using Problem = ZStanzaProblem_6_0;

void expectSame(Problem const& expected, Problem const& actual)
{
    EXPECT_EQ(expected.line(), actual.line());
    EXPECT_EQ(expected.column(), actual.column());
    EXPECT_EQ(expected.kind(), actual.kind());
    EXPECT_EQ(expected.cause(), actual.cause());
    EXPECT_STREQ(expected.text().getChars(), actual.text().getChars());
}

}  // namespace

TEST(ZStanzaProblem, ReturnsTheArguments)
{
    Problem const problem(7, 3, Problem::note, Problem::movedLine, "what; help");
    EXPECT_EQ(7u, problem.line());
    EXPECT_EQ(3u, problem.column());
    EXPECT_EQ(Problem::note, problem.kind());
    EXPECT_EQ(Problem::movedLine, problem.cause());
    EXPECT_STREQ("what; help", problem.text().getChars());
    EXPECT_STREQ("", Problem(1, 1, Problem::error, Problem::missingKey, nullptr).text().getChars());
}

TEST(ZStanzaProblem, HasTheMessageNumberOfTheExceptionOfALoad)
{
    struct Case {
        Problem::Kind kind;
        Problem::Cause cause;
        uint32_t number;
    };
    Case const cases[] = {{Problem::error, Problem::notAnEntry, 44},
                          {Problem::error, Problem::damagedCompanion, 44},
                          {Problem::error, Problem::unreadableCompanion, 43},
                          {Problem::error, Problem::splitLine, 44},
                          {Problem::note, Problem::splitLine, 0},
                          {Problem::note, Problem::droppedLine, 0},
                          {Problem::error, Problem::omitted, 44}};
    for (Case const& c : cases)
        EXPECT_EQ(c.number, Problem(1, 1, c.kind, c.cause, "").messageNumber()) << c.cause;
}

TEST(ZStanzaProblem, OrdersByPlaceThenByTheRest)
{
    Problem const ordered[] = {
        {1, 9, Problem::note, Problem::zeroByte, "z"},
        {2, 1, Problem::note, Problem::zeroByte, "z"},
        {2, 3, Problem::error, Problem::zeroByte, "z"},
        {2, 3, Problem::note, Problem::missingKey, "z"},
        {2, 3, Problem::note, Problem::zeroByte, "a"},
        {2, 3, Problem::note, Problem::zeroByte, "b"},
    };
    int const count = sizeof ordered / sizeof ordered[0];
    for (int i = 0; i < count; ++i)
        for (int j = 0; j < count; ++j) {
            int const expected = i < j ? -1 : i > j ? 1 : 0;
            EXPECT_EQ(expected, ordered[i].compare(ordered[j])) << i << " " << j;
        }
    ZLCString_6_0 const other("x");
    EXPECT_NE(0, ordered[0].compare(other));
}

TEST(ZStanzaProblem, CopiesAreEqualAndIndependent)
{
    std::string const text(500, 'x');
    auto original =
        std::make_unique<Problem>(4, 2, Problem::error, Problem::notAnEntry, text.c_str());
    Problem const copy(*original);
    std::unique_ptr<ZObject_6_0> const cloned(original->clone());
    Problem assigned(1, 1, Problem::note, Problem::spacing, "other");
    assigned = *original;
    Problem const& self = assigned;
    assigned = self;
    original.reset();
    Problem const expected(4, 2, Problem::error, Problem::notAnEntry, text.c_str());
    expectSame(expected, copy);
    expectSame(expected, assigned);
    expectSame(expected, dynamic_cast<Problem const&>(*cloned));
}

TEST(ZStanzaProblem, AssignmentWithoutMemoryChangesNothing)
{
    Problem const longer(4, 2, Problem::error, Problem::notAnEntry, std::string(500, 'x').c_str());
    auto target = std::make_unique<Problem>(1, 1, Problem::note, Problem::spacing, "other");
    unsigned long const failed = failEachAllocation(
        [&] {
            Problem copy(longer);
            *target = copy;
        },
        [&] {
            expectSame({1, 1, Problem::note, Problem::spacing, "other"}, *target);
        });
    EXPECT_GE(failed, 2u);
}
