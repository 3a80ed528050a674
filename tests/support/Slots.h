// Slots: the index of a virtual function in the table of its class.
#pragma once

#include <cstddef>
#include <cstring>

// Returns the slot of a virtual function, counted from 0, and -1 for a function that is not
// virtual; a destructor takes two slots. Holds for the functions of a class's first base.
//
// The C++ ABI writes a pointer to a member function as two words. For a virtual function the first
// one is the byte offset of its slot, and one bit marks it: most processors add 1 to the first
// word; on ARM, where a code address may be odd, the second word, twice the adjustment of `this`,
// has it.
template <class Function>
int slotOf(Function function)
{
    struct {
        std::ptrdiff_t offset;
        std::ptrdiff_t adjustment;
    } words;
    static_assert(sizeof words == sizeof function);
    std::memcpy(&words, &function, sizeof words);
#if defined(__aarch64__) || defined(__arm__)
    std::ptrdiff_t const mark = words.adjustment & 1;
#else
    std::ptrdiff_t const mark = words.offset & 1;
    words.offset -= mark;
#endif
    return mark == 0 ? -1 : static_cast<int>(words.offset / static_cast<int>(sizeof(void*)));
}
