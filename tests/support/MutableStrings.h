// MutableStrings: the suite of tests that runs for both codesets of mutable strings.
#pragma once

#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <string>

inline constexpr char kSource[] = "src/Z/ZAbstractMutableString";
inline constexpr char const* kNull = nullptr;

inline std::string textOf(ZAbstractString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

// The growth of the capacity: by the required size and a fifth of it.
inline unsigned grown(size_t required)
{
    return static_cast<unsigned>(required + (required + 7) / 5);
}

inline std::string filled(size_t length, char c = 'x')
{
    return std::string(length, c);
}

// Tests of the behaviour that both codesets share.
template <class String>
class ZAbstractMutableString : public testing::Test {
};
using Strings = testing::Types<ZLCString_6_0, ZUTF8String_6_0>;
TYPED_TEST_SUITE(ZAbstractMutableString, Strings);
