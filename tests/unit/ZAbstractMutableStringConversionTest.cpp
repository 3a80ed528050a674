// Mutable strings: conversion from the other codeset.
#include <Z/ZAbstractMutableString.h>
#include <Z/ZException.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <qvr.h>

#include <string>

#include "LocalText.h"
#include "MutableStrings.h"
#include "Raised.h"

namespace {

// The result of the conversion in place of the text services; 0: call them.
ptrdiff_t conversionResult = 0;

}  // namespace

// Override the text services' functions, so that a test can choose the result.
extern "C" ptrdiff_t qvr_to_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst,
                                 size_t dstLen)
{
    if (conversionResult != 0)
        return conversionResult;
    static auto const next =
        reinterpret_cast<decltype(&qvr_to_utf8)>(dlsym(RTLD_NEXT, "qvr_to_utf8"));
    return next(cs, src, srcLen, dst, dstLen);
}

extern "C" ptrdiff_t qvr_from_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst,
                                   size_t dstLen)
{
    if (conversionResult != 0)
        return conversionResult;
    static auto const next =
        reinterpret_cast<decltype(&qvr_from_utf8)>(dlsym(RTLD_NEXT, "qvr_from_utf8"));
    return next(cs, src, srcLen, dst, dstLen);
}

TYPED_TEST(ZAbstractMutableString, ConvertsAViewOfItself)
{
    for (size_t length : {10u, 95u, 200u}) {
        TypeParam string(filled(length).c_str());
        ZUTF8ConstString_6_0 const view(string.getChars() + 2);
        string.convertFromCodeSet(view);
        EXPECT_EQ(filled(length - 2), textOf(string));
    }
}

TEST(ZAbstractMutableStringText, ConvertsFromTheOtherCodeset)
{
    LocalCharacter const sample = localCharacter();
    ZLCString_6_0 const local(("a" + sample.local + "b").c_str());
    ZUTF8String_6_0 const utf8(("a" + sample.utf8 + "b").c_str());
    ZUTF8String_6_0 toUtf8("before");
    EXPECT_EQ(&toUtf8, &toUtf8.convertFromCodeSet(local));
    EXPECT_EQ(textOf(utf8), textOf(toUtf8));
    ZLCString_6_0 toLocal("before");
    EXPECT_EQ(&toLocal, &toLocal.convertFromCodeSet(utf8));
    EXPECT_EQ(textOf(local), textOf(toLocal));

    toUtf8.convertFromCodeSet(ZLCString_6_0());
    EXPECT_EQ(textOf(utf8), textOf(toUtf8));
    toLocal.convertFromCodeSet(ZUTF8ConstString_6_0("a\xFF"));
    EXPECT_EQ("", textOf(toLocal));
    EXPECT_STREQ("", toLocal.getChars());
}

TEST(ZAbstractMutableStringText, AConversionWithoutMemoryLeavesTheString)
{
    ZUTF8String_6_0 utf8("before");
    ZLCString_6_0 local("before");
    conversionResult = qvrNoMemory;
    bool const toUtf8 = bool(raises<ZOutOfMemoryException_6_0>(
        1, kSource, 436, [&] { utf8.convertFromCodeSet(ZLCConstString_6_0("text")); }));
    bool const toLocal = bool(raises<ZOutOfMemoryException_6_0>(
        1, kSource, 436, [&] { local.convertFromCodeSet(ZUTF8ConstString_6_0("text")); }));
    conversionResult = 0;
    EXPECT_TRUE(toUtf8);
    EXPECT_TRUE(toLocal);
    EXPECT_EQ("before", textOf(utf8));
    EXPECT_EQ("before", textOf(local));
}

TEST(ZAbstractMutableStringText, AConversionResultStaysWithinTheBuffer)
{
    for (ptrdiff_t const result :
         {ptrdiff_t{-1}, ptrdiff_t{-2}, ptrdiff_t{-1000}, ptrdiff_t{1000000}}) {
        SCOPED_TRACE(result);
        ZUTF8String_6_0 utf8("before");
        conversionResult = result;
        utf8.convertFromCodeSet(ZLCConstString_6_0("text"));
        conversionResult = 0;
        EXPECT_EQ(result < 0 ? 0u : utf8.getCapacity(), utf8.getLength());
    }
}

TEST(ZAbstractMutableStringText, ConversionSetsTheCapacity)
{
    struct Case {
        size_t length;
        unsigned toUtf8;
        unsigned toLocal;
    };
    Case const cases[] = {
        {31, 95, 95}, {32, 97, 95}, {47, 142, 95}, {48, 145, 97}, {200, 601, 401}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.length);
        ZUTF8String_6_0 utf8;
        utf8.convertFromCodeSet(ZLCString_6_0(filled(c.length).c_str()));
        EXPECT_EQ(filled(c.length), textOf(utf8));
        EXPECT_EQ(c.toUtf8, utf8.getCapacity());
        ZLCString_6_0 local;
        local.convertFromCodeSet(utf8);
        EXPECT_EQ(filled(c.length), textOf(local));
        EXPECT_EQ(c.toLocal, local.getCapacity());
        local.setCapacity(1000);
        local.convertFromCodeSet(utf8);
        EXPECT_EQ(1000u, local.getCapacity());
    }
}
