// CountedObject: an object whose hash, order and cloning a test decides, and that is counted.
#pragma once

#include <Z/ZObject.h>

#include <stdexcept>

// Two of them are equal when their numbers are; the hash is chosen apart from the number.
class CountedObject : public ZObject_6_0 {
public:
    explicit CountedObject(int number = 0) : CountedObject(number, static_cast<uint32_t>(number)) {}
    CountedObject(int number, uint32_t hash) : number_(number), hash_(hash) { ++alive; }
    CountedObject(CountedObject const& other)
        : ZObject_6_0(other),
          number_(other.number_),
          hash_(other.hash_),
          generation_(other.generation_ + 1)
    {
        if (clonesUntilThrow != 0 && --clonesUntilThrow == 0)
            throw std::runtime_error("no clone");
        ++alive;
    }
    CountedObject& operator=(CountedObject const&) = delete;
    ~CountedObject() override { --alive; }

    uint32_t hash() const override { return hash_; }
    int compare(ZObject_6_0 const& other) const override
    {
        int const theirs = static_cast<CountedObject const&>(other).number_;
        return number_ < theirs ? -1 : number_ > theirs;
    }
    ZObject_6_0* clone() const override { return new CountedObject(*this); }
    bool equals(ZObject_6_0 const& other) const override
    {
        ++compared;
        return ZObject_6_0::equals(other);
    }

    int number() const { return number_; }
    void setNumber(int number) { number_ = number; }
    int generation() const { return generation_; }  // how many clonings lie behind it

    static inline long alive = 0;             // objects made and not destroyed
    static inline long compared = 0;          // calls of equals()
    static inline long clonesUntilThrow = 0;  // the clone that throws, counted down; 0: none

private:
    int number_;
    uint32_t hash_;
    int generation_ = 0;
};

// As a probe it equals every object, and none of them equals it.
class EqualToAll : public CountedObject {
public:
    explicit EqualToAll(uint32_t hash = 0) : CountedObject(-2, hash) {}
    bool equals(ZObject_6_0 const&) const override { return true; }
};

inline int numberOf(ZObject_6_0 const* object)
{
    return object == nullptr ? -1 : static_cast<CountedObject const*>(object)->number();
}
