// DialectStore: the dialect of a store, and its text.
#pragma once

#include <Z/ZBuffer.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <string>

// Returns the dialect of a name, which can have switches.
inline ZStanzaDialect_6_0 dialectNamed(std::string const& name)
{
    ZStanzaDialect_6_0 dialect;
    EXPECT_EQ(1, ZStanzaDialect_6_0::named(name.c_str(), dialect)) << name;
    return dialect;
}

// Returns the text that the store writes.
inline std::string textOf(ZStanzaFileProperties_6_0 const& store)
{
    ZBuffer_6_0 buffer;
    store.storeText(buffer);
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}
