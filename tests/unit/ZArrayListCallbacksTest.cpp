// Callbacks that change the list, and derived classes.
#include <Z/ZArrayList.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "Lists.h"

// ---- Callbacks may change the list

TEST_F(ZArrayList, CloneMayGrowTheListDuringAnAddition)
{
    OwningList list({1, 2});
    auto const addMany = [&] {
        for (int i = 0; i < 50; ++i)
            list.addNoCopy(0, new CountedObject(9));
    };
    Numbers expected(50, 9);
    expected.insert(expected.end(), {1, 2, 3});
    list.add(std::make_unique<CloneHook>(3, addMany).get());
    EXPECT_EQ(expected, numbersOf(list));

    OwningList other({});
    other.addNoCopy(new CloneHook(4, addMany));
    other.addNoCopy(new CountedObject(5));
    expected.insert(expected.begin(), 50, 9);
    expected.insert(expected.end(), {4, 5});
    list.addList(other);
    EXPECT_EQ(expected, numbersOf(list));
}

TEST_F(ZArrayList, CloneMayEmptyTheListDuringAnAddition)
{
    struct Case {
        char const* name;
        void (*action)(ZArrayList_6_0&, ZObject_6_0 const*);
        Numbers left;
    };
    Case const cases[] = {
        {"add", [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.add(object); }, {9}},
        {"add at the start",
         [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.add(0, object); },
         {9}},
        {"add past the end",
         [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.add(2, object); },
         {}},
        {"set", [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.set(1, object); }, {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        OwningList list({1, 2, 3});
        CloneHook const object(9, [&] { list.removeAll(); });
        c.action(list, &object);
        EXPECT_EQ(c.left, numbersOf(list));
        EXPECT_EQ(1 + static_cast<long>(c.left.size()), CountedObject::alive);
    }
}

TEST_F(ZArrayList, CloneMayChangeTheCopiedList)
{
    struct Case {
        char const* name;
        void (*change)(ZArrayList_6_0&);
        Numbers copied;
    };
    Case const cases[] = {
        {"adds",
         [](ZArrayList_6_0& list) {
             for (int i = 0; i < 50; ++i)
                 list.addNoCopy(new CountedObject(9));
         },
         {1, 2, 3}},
        {"removes",
         [](ZArrayList_6_0& list) {
             list.remove(2u);
             list.remove(1u);
         },
         {1}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const sourceOf = [&](ZArrayList_6_0& source) {
            source.addNoCopy(new CloneHook(1, [&] { c.change(source); }));
            source.addNoCopy(new CountedObject(2));
            source.addNoCopy(new CountedObject(3));
        };
        ZArrayList_6_0 source(3, kOwns), second(3, kOwns);
        sourceOf(source);
        EXPECT_EQ(c.copied, numbersOf(ZArrayList_6_0(source)));
        sourceOf(second);
        OwningList target({7});
        static_cast<ZArrayList_6_0&>(target) = second;
        EXPECT_EQ(c.copied, numbersOf(target));
    }
}

TEST_F(ZArrayList, SubListEndsIfTheTargetCannotRemove)
{
    class UnremovableElements : public ZArrayList_6_0 {
    public:
        UnremovableElements() : ZArrayList_6_0(1, kOwns) {}
        using ZArrayList_6_0::remove;
        void remove(unsigned int) override { ++asked; }
        int asked = 0;
    };
    OwningList const list({1, 2, 3});
    UnremovableElements target;
    CountedObject::clonesUntilThrow = 3;
    EXPECT_THROW(list.subList(target, 0, 2), std::runtime_error);
    EXPECT_EQ(2, target.asked);
    EXPECT_EQ((Numbers{1, 2}), numbersOf(target));
}

// ---- Derived classes

namespace {

// A list that records the calls of its operations.
class RecordingList : public ZArrayList_6_0 {
public:
    explicit RecordingList(int owns = kOwns) : ZArrayList_6_0(1, owns) {}
    RecordingList(RecordingList const&) = default;
    RecordingList& operator=(RecordingList const&) = default;

    unsigned int size() const override
    {
        ++sizesAsked;
        return ZArrayList_6_0::size();
    }
    void add(ZObject_6_0 const* obj) override
    {
        note("add", obj);
        ZArrayList_6_0::add(obj);
    }
    void add(unsigned int index, ZObject_6_0 const* obj) override
    {
        note("add at " + std::to_string(index), obj);
        ZArrayList_6_0::add(index, obj);
    }
    void addList(ZList_6_0 const& other) override
    {
        calls += "addList; ";
        ZArrayList_6_0::addList(other);
    }
    void addNoCopy(ZObject_6_0 const* obj) override
    {
        note("addNoCopy", obj);
        ZArrayList_6_0::addNoCopy(obj);
    }
    void addNoCopy(unsigned int index, ZObject_6_0 const* obj) override
    {
        note("addNoCopy at " + std::to_string(index), obj);
        ZArrayList_6_0::addNoCopy(index, obj);
    }
    void remove(ZObject_6_0 const* obj) override
    {
        note("remove", obj);
        ZArrayList_6_0::remove(obj);
    }
    void remove(unsigned int index) override
    {
        calls += "remove at " + std::to_string(index) + "; ";
        ZArrayList_6_0::remove(index);
    }
    void remove(ZListIterator_6_0& iterator) override { ZArrayList_6_0::remove(iterator); }
    void removeAll() override
    {
        calls += "removeAll; ";
        ZArrayList_6_0::removeAll();
    }
    ZObject_6_0* get(unsigned int index) const override
    {
        calls += "get " + std::to_string(index) + "; ";
        return ZArrayList_6_0::get(index);
    }
    int indexOf(ZObject_6_0 const* obj) const override
    {
        note("indexOf", obj);
        return ZArrayList_6_0::indexOf(obj);
    }
    int indexOf(ZListIterator_6_0& iterator) override
    {
        calls += "indexOf iterator; ";
        return ZArrayList_6_0::indexOf(iterator);
    }
    void backUp(ZListIterator_6_0& iterator) override
    {
        calls += "backUp; ";
        ZArrayList_6_0::backUp(iterator);
    }
    void swap(unsigned int one, unsigned int other) override
    {
        calls += "swap; ";
        ZArrayList_6_0::swap(one, other);
    }

    mutable std::string calls;
    mutable int sizesAsked = 0;

private:
    void note(std::string const& call, ZObject_6_0 const* obj) const
    {
        calls += call + " " + std::to_string(numberOf(obj)) + "; ";
    }
};

}  // namespace

TEST_F(ZArrayList, CallsOverriddenOperations)
{
    CountedObject const nine(9), two(2);
    OwningList other({5, 6});
    struct Case {
        char const* name;
        std::function<void(RecordingList&)> action;
        char const* calls;
    };
    // The list has the elements 1, 2 and 3.
    Case const cases[] = {
        {"add", [&](RecordingList& l) { l.ZArrayList_6_0::add(&nine); }, "addNoCopy at 3 9; "},
        {"add at an index", [&](RecordingList& l) { l.ZArrayList_6_0::add(1, &nine); },
         "addNoCopy at 1 9; "},
        {"add too far out", [&](RecordingList& l) { l.ZArrayList_6_0::add(4, nullptr); }, ""},
        {"addNoCopy", [&](RecordingList& l) { l.ZArrayList_6_0::addNoCopy(nullptr); },
         "addNoCopy at 3 -1; "},
        {"addList", [&](RecordingList& l) { l.ZArrayList_6_0::addList(other); },
         "add 5; addNoCopy at 3 5; add 6; addNoCopy at 4 6; "},
        {"addList of none",
         [&](RecordingList& l) { l.ZArrayList_6_0::addList(ZArrayList_6_0(1, kOwns)); }, ""},
        {"assignment", [&](RecordingList& l) { l.ZArrayList_6_0::operator=(other); },
         "removeAll; addList; add 5; addNoCopy at 0 5; add 6; addNoCopy at 1 6; "},
        {"assignment to itself", [&](RecordingList& l) { l.ZArrayList_6_0::operator=(l); }, ""},
        {"remove", [&](RecordingList& l) { l.ZArrayList_6_0::remove(&two); },
         "indexOf 2; remove at 1; "},
        {"remove with an iterator",
         [&](RecordingList& l) {
             ZListIterator_6_0 iterator(l);
             iterator.getNext();
             l.calls.clear();
             l.remove(iterator);
             EXPECT_EQ(2, numberOf(iterator.getNext()));
         },
         "indexOf iterator; remove at 0; backUp; get 0; "},
        {"contains", [&](RecordingList& l) { EXPECT_TRUE(l.contains(&two)); }, "indexOf 2; "},
        {"subList",
         [&](RecordingList& l) {
             RecordingList part(kBorrows);
             l.subList(part, 1, 2);
             EXPECT_EQ("add 2; addNoCopy at 0 2; add 3; addNoCopy at 1 3; ", part.calls);
         },
         "get 1; get 2; "},
        {"shuffle", [&](RecordingList& l) { l.shuffle(); }, "swap; swap; "},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        RecordingList list;
        fill(list, {1, 2, 3});
        list.calls.clear();
        c.action(list);
        EXPECT_EQ(c.calls, list.calls);
    }
    RecordingList list(kBorrows);
    list.ZArrayList_6_0::add(&nine);
    list.ZArrayList_6_0::add(&two);
    list.ZArrayList_6_0::add(0, &two);
    EXPECT_EQ("addNoCopy at 0 9; addNoCopy at 1 2; addNoCopy at 0 2; ", list.calls);
    list.sizesAsked = 0;
    EXPECT_FALSE(list.isEmpty());
    EXPECT_EQ(1, list.sizesAsked);
}

TEST_F(ZArrayList, ReadsADerivedSourceThroughItsOperations)
{
    // A list that returns its elements in reverse order and omits the last one.
    class ReversedList : public ZArrayList_6_0 {
    public:
        explicit ReversedList(Numbers const& numbers) : ZArrayList_6_0(1, kOwns)
        {
            fill(*this, numbers);
        }
        unsigned int size() const override
        {
            unsigned const members = ZArrayList_6_0::size();
            return shown_ && members > 0 ? members - 1 : members;
        }
        ZObject_6_0* get(unsigned int index) const override
        {
            return ZArrayList_6_0::get(ZArrayList_6_0::size() - 1 - index);
        }
        void show() { shown_ = true; }

    private:
        bool shown_ = false;
    };
    ReversedList source({1, 2, 3});
    source.show();
    EXPECT_EQ((Numbers{3, 2}), numbersOf(ZArrayList_6_0(source)));
    ZArrayList_6_0 target(1, kOwns);
    target = source;
    EXPECT_EQ((Numbers{3, 2}), numbersOf(target));
    target.addList(source);
    EXPECT_EQ((Numbers{3, 2, 3, 2}), numbersOf(target));
}

TEST_F(ZArrayList, FailedAddListLeavesADerivedListUnchanged)
{
    OwningList source({4, 5, 6});
    RecordingList list;
    fill(list, {1, 2});
    for (long clone : {1, 2, 3}) {
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(list.addList(source), std::runtime_error);
        EXPECT_EQ((Numbers{1, 2}), numbersOf(list));
    }
    CountedObject::clonesUntilThrow = 2;
    EXPECT_THROW(static_cast<ZArrayList_6_0&>(list) = source, std::runtime_error);
    EXPECT_EQ(Numbers{}, numbersOf(list));
    EXPECT_EQ(3, CountedObject::alive);
    static_cast<ZArrayList_6_0&>(list) = source;
    EXPECT_EQ((Numbers{4, 5, 6}), numbersOf(list));
}
