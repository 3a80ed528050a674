// The record of a problem.
#include <Z/ZStanzaProblem.h>
#include <gtest/gtest.h>

#include <memory>

#include "EachAllocation.h"

namespace {

using Problem = ZStanzaProblem_6_0;

void expectSame(Problem const& expected, Problem const& actual)
{
    EXPECT_EQ(expected.line(), actual.line());
    EXPECT_EQ(expected.column(), actual.column());
    EXPECT_EQ(expected.kind(), actual.kind());
    EXPECT_EQ(expected.cause(), actual.cause());
    EXPECT_STREQ(expected.text().getChars(), actual.text().getChars());
    EXPECT_STREQ(expected.stanza().getChars(), actual.stanza().getChars());
    EXPECT_STREQ(expected.key().getChars(), actual.key().getChars());
}

}  // namespace

TEST(ZStanzaProblem, ReturnsTheArguments)
{
    Problem const problem(7, 3, Problem::note, Problem::movedLine, "s", "k", "what; help");
    EXPECT_EQ(7u, problem.line());
    EXPECT_EQ(3u, problem.column());
    EXPECT_EQ(Problem::note, problem.kind());
    EXPECT_EQ(Problem::movedLine, problem.cause());
    EXPECT_STREQ("what; help", problem.text().getChars());
    EXPECT_STREQ("s", problem.stanza().getChars());
    EXPECT_STREQ("k", problem.key().getChars());
    Problem const empty(1, 1, Problem::error, Problem::missingKey, nullptr, nullptr, nullptr);
    EXPECT_EQ(0u, empty.text().getLength() + empty.stanza().getLength() + empty.key().getLength());
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
                          {Problem::error, Problem::omitted, 44},
                          {Problem::error, Problem::noHeadOrKey, 44},
                          {Problem::error, Problem::unknownStanza, 0},
                          {Problem::error, Problem::missingRequired, 0},
                          {Problem::error, Problem::refusedLine, 0},
                          {Problem::error, Problem::refusedRepetition, 0},
                          {Problem::error, Problem::loneReturn, 44},
                          {Problem::note, Problem::loneReturn, 0},
                          {Problem::note, Problem::looksContinued, 0}};
    for (Case const& c : cases)
        EXPECT_EQ(c.number, Problem(1, 1, c.kind, c.cause, "", "", "").messageNumber()) << c.cause;
}

TEST(ZStanzaProblem, OrdersByPlaceThenByTheRest)
{
    Problem const ordered[] = {
        {1, 9, Problem::note, Problem::zeroByte, "s", "k", "z"},
        {2, 1, Problem::note, Problem::zeroByte, "s", "k", "z"},
        {2, 3, Problem::error, Problem::zeroByte, "s", "k", "z"},
        {2, 3, Problem::note, Problem::missingKey, "s", "k", "z"},
        {2, 3, Problem::note, Problem::zeroByte, "s", "k", "a"},
        {2, 3, Problem::note, Problem::zeroByte, "s", "k", "b"},
        {2, 3, Problem::note, Problem::zeroByte, "t", "k", "b"},
        {2, 3, Problem::note, Problem::zeroByte, "t", "l", "b"},
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
    auto original = std::make_unique<Problem>(4, 2, Problem::error, Problem::notAnEntry,
                                              text.c_str(), text.c_str(), text.c_str());
    Problem const copy(*original);
    std::unique_ptr<ZObject_6_0> const cloned(original->clone());
    Problem assigned(1, 1, Problem::note, Problem::spacing, "a", "b", "other");
    assigned = *original;
    Problem const& self = assigned;
    assigned = self;
    original.reset();
    Problem const expected(4, 2, Problem::error, Problem::notAnEntry, text.c_str(), text.c_str(),
                           text.c_str());
    expectSame(expected, copy);
    expectSame(expected, assigned);
    expectSame(expected, dynamic_cast<Problem const&>(*cloned));
}

TEST(ZStanzaProblem, AssignmentWithoutMemoryChangesNothing)
{
    std::string const text(500, 'x');
    Problem const longer(4, 2, Problem::error, Problem::notAnEntry, text.c_str(), text.c_str(),
                         text.c_str());
    auto target =
        std::make_unique<Problem>(1, 1, Problem::note, Problem::spacing, "a", "b", "other");
    auto const expectUnchanged = [&] {
        expectSame({1, 1, Problem::note, Problem::spacing, "a", "b", "other"}, *target);
    };
    // Strings keep the memory that they have reserved before a failure.
    unsigned long const failed =
        failEachAllocationOfSome([&] { *target = longer; },
                                 [&] {
                                     expectSame(longer, *target);
                                     target = std::make_unique<Problem>(
                                         1, 1, Problem::note, Problem::spacing, "a", "b", "other");
                                 },
                                 expectUnchanged, false);
    EXPECT_GE(failed, 2u);
}
