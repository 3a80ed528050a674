// CountedObject: counts its instances; a test sets its hash and order and can make clone() fail.
#pragma once

#include <Z/ZObject.h>

#include <stdexcept>

// Two objects are equal if their numbers are; the hash is independent of the number.
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
    int generation() const { return generation_; }  // 0 for an original, 1 for its clone, ...

    static inline long alive = 0;             // existing objects
    static inline long compared = 0;          // calls of equals()
    static inline long clonesUntilThrow = 0;  // n: the n-th clone() from now throws; 0: none does

private:
    int number_;
    uint32_t hash_;
    int generation_ = 0;
};

// A probe that equals every object, although no object equals the probe.
class EqualToAll : public CountedObject {
public:
    explicit EqualToAll(uint32_t hash = 0) : CountedObject(-2, hash) {}
    bool equals(ZObject_6_0 const&) const override { return true; }
};

inline int numberOf(ZObject_6_0 const* object)
{
    return object == nullptr ? -1 : static_cast<CountedObject const*>(object)->number();
}
