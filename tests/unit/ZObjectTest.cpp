#include <Z/ZException.h>
#include <Z/ZObject.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <vector>

namespace {

// Orders by a number, to distinguish compare() from the address order.
class Number : public ZObject_6_0 {
public:
    explicit Number(int value) : value_(value) {}
    int compare(ZObject_6_0 const& other) const override
    {
        return value_ - static_cast<Number const&>(other).value_;
    }

private:
    int value_;
};

}  // namespace

TEST(ZObject, HashesToItsAddress)
{
    ZObject_6_0 const object;
    EXPECT_EQ(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&object)), object.hash());
}

TEST(ZObject, OrdersByAddress)
{
    ZObject_6_0 const pair[2];
    EXPECT_EQ(0, pair[0].compare(pair[0]));
    EXPECT_EQ(-1, pair[0].compare(pair[1]));
    EXPECT_EQ(1, pair[1].compare(pair[0]));
    EXPECT_TRUE(pair[0].equals(pair[0]));
    EXPECT_FALSE(pair[0].equals(pair[1]));
}

TEST(ZObject, OrdersByTheWholeAddress)
{
    // The addresses of the two objects agree in the low 32 bits.
    union Storage {
        Storage() {}
        ~Storage() {}
        ZObject_6_0 object;
    };
    Storage storage;
    auto const& here = *new (&storage.object) ZObject_6_0;
    auto const far = reinterpret_cast<uintptr_t>(&here) + (uintptr_t{1} << 32);
    auto const& there = *reinterpret_cast<ZObject_6_0 const*>(far);  // only its address is used
    EXPECT_EQ(-1, here.compare(there));
}

TEST(ZObject, IsNotCloneableByDefault)
{
    ZObject_6_0 const object;
    EXPECT_EQ(nullptr, object.clone());
}

TEST(ZObject, ComparesThroughTheVirtualCompare)
{
    Number const two(2);
    Number const alsoTwo(2);
    Number const three(3);
    EXPECT_TRUE(two == alsoTwo);
    EXPECT_FALSE(two == three);
    EXPECT_TRUE(two != three);
    EXPECT_FALSE(two != alsoTwo);
    EXPECT_TRUE(two < three);
    EXPECT_FALSE(two < alsoTwo);
    EXPECT_TRUE(three > two);
    EXPECT_FALSE(two > alsoTwo);
    EXPECT_TRUE(two <= alsoTwo);
    EXPECT_FALSE(three <= two);
    EXPECT_TRUE(two >= alsoTwo);
    EXPECT_FALSE(two >= three);
    EXPECT_TRUE(two.equals(alsoTwo));
}

TEST(ZObject, LivesInStorageOfTheCaller)
{
    alignas(ZObject_6_0) unsigned char place[sizeof(ZObject_6_0)];
    auto* const object = new (place) ZObject_6_0;
    EXPECT_EQ(static_cast<void*>(place), object);
    object->~ZObject_6_0();
}

TEST(ZObject, LeavesTheCallersStorageAloneIfTheConstructorThrows)
{
    struct ThrowingConstructor : ZObject_6_0 {
        ThrowingConstructor() { throw 5; }
    };
    alignas(ThrowingConstructor) unsigned char place[sizeof(ThrowingConstructor)];
    EXPECT_THROW(new (place) ThrowingConstructor, int);
}

TEST(ZObject, ReleasesItsMemory)
{
    std::unique_ptr<ZObject_6_0> const one(new ZObject_6_0);
    std::unique_ptr<ZObject_6_0[]> const several(new ZObject_6_0[3]);
    EXPECT_NE(nullptr, one);
    EXPECT_NE(nullptr, several);
    ZObject_6_0::operator delete(ZObject_6_0::operator new(0));
    ZObject_6_0::operator delete(nullptr);
    ZObject_6_0::operator delete[](nullptr);
}

TEST(ZObject, ExhaustedHeapThrows)
{
    // No heap can allocate half the address space.
    size_t const volatile hopeless = SIZE_MAX / 2;
    struct Call {
        char const* name;
        void* (*allocate)(size_t);
    };
    Call const calls[] = {{"object", [](size_t n) { return ZObject_6_0::operator new(n); }},
                          {"array", [](size_t n) { return ZObject_6_0::operator new[](n); }}};
    for (Call const& call : calls) {
        SCOPED_TRACE(call.name);
        try {
            call.allocate(hopeless);
            FAIL() << "allocated";
        } catch (ZOutOfMemoryException_6_0 const& e) {
            EXPECT_EQ(1u, e.messageNumber());
            EXPECT_STREQ("src/Z/ZObject", e.who());
            EXPECT_EQ(65u, e.where());
        }
    }
}
