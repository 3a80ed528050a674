// Slots: where a virtual function stands in the table of its class.
#pragma once

#include <cstddef>
#include <cstring>

// Returns the slot of a virtual function, counted from 0; a destructor takes two slots. Holds for
// the functions of a class's first base. The platform's ABI writes a pointer to such a function as
// the byte offset of its slot plus one.
template <class Function>
int slotOf(Function function)
{
    std::ptrdiff_t word = 0;
    std::memcpy(&word, &function, sizeof word);
    return (word & 1) == 0 ? -1 : static_cast<int>((word - 1) / static_cast<int>(sizeof(void*)));
}
