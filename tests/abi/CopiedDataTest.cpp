// A program whose addresses are fixed when it is linked, as this one is, has copies of the vtables,
// the type information and the variables of the library that it names.
#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "Z/ZArrayList.h"
#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZUTF8String.h"

namespace {

TEST(CopiedData, LibraryWritesTheVariablesOfTheProgram)
{
    struct Reader : ZLCString_6_0 {
        static qvr_cs const* utf8() { return utf8_handle_; }
    };
    ZUTF8String_6_0 const text("text");
    EXPECT_NE(nullptr, Reader::utf8());
    EXPECT_EQ(text.getCodesetHandle(), Reader::utf8());
}

TEST(CopiedData, ExceptionsOfTheLibraryAreCaughtByTheirTypes)
{
    ZStanzaFileProperties_6_0 store(1);
    EXPECT_THROW(store.load("/nonexistent/file"), ZPropertiesIOException_6_0);
    EXPECT_THROW(store.load("/nonexistent/file"), ZException_6_0);
    EXPECT_THROW(ZInvalidParameterException_6_0().throwException("program", 1),
                 ZInvalidParameterException_6_0);
}

TEST(CopiedData, ObjectsOfTheProgramHaveTheTypesOfTheLibrary)
{
    ZSCFData_6_0 data;
    ZPCache_6_0& cache = data;
    EXPECT_NE(nullptr, dynamic_cast<ZPCategoryBasedCache_6_0*>(&cache));
    EXPECT_TRUE(typeid(cache) == typeid(ZSCFData_6_0));
}

TEST(CopiedData, StringsOfTheProgramAreSorted)
{
    ZArrayList_6_0 list(1, 1);
    for (char const* text : {"d", "a", "c", "b"}) {
        ZLCString_6_0 const string(text);
        list.add(&string);                        // the library makes a copy
        list.addNoCopy(new ZLCString_6_0(text));  // made by an inline constructor
    }
    list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    std::string sorted;
    for (unsigned i = 0; i < list.size(); ++i)
        sorted += static_cast<ZLCString_6_0 const*>(list.get(i))->getChars();
    EXPECT_EQ("aabbccdd", sorted);
}

}  // namespace
