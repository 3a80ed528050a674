#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZProperties.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesIterator.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>

#include "EachAllocation.h"
#include "PropertiesFixture.h"
#include "StanzaStore.h"
#include "TestDirectory.h"

using ZProperties = PropertiesTest;

// ---- A cache without a file format -------------------------------------------------------------

TEST_F(ZProperties, CacheWithoutAFileFormatReadsAndWritesNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    auto* const cache = new (std::nothrow) ZPCategoryBasedCache_6_0;
    ZProperties_6_0 store(cache);
    store.load(path.c_str());
    EXPECT_EQ(0, store.count());
    store.setValue("s", "k", "v");
    store.addFileComment("not marked");
    EXPECT_EQ("v,", valuesOf(store, "s", "k"));
    store.store(nullptr);
    EXPECT_EQ("", directory_.read("conf"));
    EXPECT_EQ("v,", valuesOf(store, "s", "k"));
    store.reload(nullptr);
    EXPECT_EQ(0, store.count());
}

// ---- A cache of another class ------------------------------------------------------------------

namespace {

// Reads and writes through streams, and counts the calls.
class OwnCache : public ZSCFData_6_0 {
public:
    OwnCache() = default;
    OwnCache(OwnCache const&) = default;
    ZPCache_6_0* clone() const override { return new OwnCache(*this); }

    void be_read(char const* path, FILE* file) override
    {
        ++reads;
        ZSCFData_6_0::be_read(path, file);
    }
    void be_write(char const* path, FILE* file) override
    {
        ++writes;
        if (refuses)
            throw std::runtime_error("no text");
        // Write at several positions of the stream, without checking that it can seek.
        fputs(comment.c_str(), file);
        rewind(file);
        fputs("# M", file);
        fseek(file, 1, SEEK_CUR);
        fputs("N", file);
        fseek(file, 0, SEEK_END);
        fseek(file, -100000, SEEK_CUR);
        ZSCFData_6_0::be_write(path, file);
        if (misuses)
            (void)fgetc(file);
    }

    static inline int reads = 0;
    static inline int writes = 0;
    static inline bool refuses = false;
    static inline bool misuses = false;
    static inline std::string comment = "# mine\n";
};

// Cannot be copied.
class SingleCache final : public OwnCache {
public:
    ZPCache_6_0* clone() const override { return nullptr; }
};

// Calls a function of the test after the text of a file was read and before its companion.
class InterruptedCache : public OwnCache {
public:
    ZPCache_6_0* clone() const override { return isSingle ? nullptr : new InterruptedCache(*this); }
    void be_read(char const* path, FILE* file) override
    {
        OwnCache::be_read(path, file);
        afterRead();
    }

    static inline bool isSingle = false;
    static inline std::function<void()> afterRead;
};

// Inherits clone(), which returns an object of the base class.
class UncopiedCache final : public OwnCache {
public:
    void be_read(char const* path, FILE* file) override
    {
        ++ownReads;
        OwnCache::be_read(path, file);
    }

    static inline int ownReads = 0;
};

}  // namespace

TEST_F(ZProperties, FileThatIsReplacedDuringALoadIsReadAgainWithItsCompanion)
{
    // An editor renames a new file into place, and another store changes its companion.
    std::string const path = directory_.at("conf");
    int reads = 0;
    int replacements = 0;
    char const* secret = "";
    auto const replace = [&] {
        if (++reads > replacements)
            return;
        std::filesystem::rename(directory_.write("edited", directory_.read("conf")), path);
        Store other;
        other.load(path.c_str());
        other.setValue("s", "k", "new");
        other.setValue("s", "secret", secret, 1);
        other.store(nullptr);
    };
    for (bool const isSingle : {false, true})
        for (char const* const newSecret : {"second", ""}) {
            SCOPED_TRACE(std::string(newSecret) + (isSingle ? " single" : ""));
            Store first;
            first.setValue("s", "k", "old");
            first.setValue("s", "secret", "first", 1);
            first.store(path.c_str());
            InterruptedCache::isSingle = isSingle;
            InterruptedCache::afterRead = replace;
            ZProperties_6_0 store(new InterruptedCache);
            store.setValue("own", "k", "kept");
            reads = 0;
            replacements = 3;
            secret = newSecret;
            EXPECT_EQ("nothing", thrown([&] { store.load(path.c_str()); }));
            // A file that names no companion is complete.
            EXPECT_EQ(*newSecret == '\0' ? 2 : 4, reads);
            EXPECT_EQ("new,", valuesOf(store, "s", "k"));
            EXPECT_EQ(*newSecret == '\0' ? "" : "second,", valuesOf(store, "s", "secret"));
            EXPECT_EQ("kept,", valuesOf(store, "own", "k"));
            InterruptedCache::afterRead = nullptr;
            std::filesystem::remove(path);
        }
}

TEST_F(ZProperties, FileThatIsReplacedDuringEachLoadIsReported)
{
    std::string const path = directory_.at("conf");
    Store first;
    first.setValue("s", "secret", "first", 1);
    first.store(path.c_str());
    InterruptedCache::isSingle = false;
    InterruptedCache::afterRead = [&] {
        std::filesystem::rename(directory_.write("edited", directory_.read("conf")), path);
    };
    ZProperties_6_0 store(new InterruptedCache);
    EXPECT_EQ("io " + path + " fopen(r) 116", thrown([&] { store.load(path.c_str()); }));
    EXPECT_EQ(0, store.count());
    InterruptedCache::afterRead = nullptr;
}

TEST_F(ZProperties, CacheOfAnotherClassReadsAndWritesItself)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\nk = b\n");
    ZProperties_6_0 store(new OwnCache);
    OwnCache::reads = OwnCache::writes = 0;
    store.load(path.c_str());
    EXPECT_EQ(1, OwnCache::reads);
    EXPECT_EQ("b", valueOf(store, "s", "k"));
    EXPECT_EQ("a,b,", valuesOf(store, "s", "k"));
    EXPECT_EQ("", valuesOf(store, "s", "missing"));
    EXPECT_EQ("(none)", valueOf(store, "s", "missing"));
    EXPECT_EQ("nothing", thrown([&] { store.checkAccess("s", "missing", 1); }));
    store.setValue("s", "empty", "");
    EXPECT_EQ("(none)", valueOf(store, "s", "empty"));
    EXPECT_EQ("nothing", thrown([&] { store.checkAccess("s", "empty", 1); }));
    store.setValue("t", "empty", "");
    {
        ZPropertiesIterator_6_0 keys(store, "t");
        keys.nextEntry();
        EXPECT_EQ(nullptr, keys.entryValue(0));
    }
    store.deleteKey("s", "empty");
    store.deleteKey("t", "empty");
    store.checkAccess("s", "k", 0);
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.checkAccess("s", "k", 1); }));
    {
        ZPropertiesIterator_6_0 keys(store, "s");
        keys.nextEntry();
        EXPECT_EQ(2, keys.valueCount());
        EXPECT_STREQ("a", keys.entryValue(0));
        EXPECT_STREQ("b", keys.entryValue(1));
        for (int const index : {-1, 2})
            EXPECT_EQ("ZInvalidParameterException", thrown([&] { keys.entryValue(index); }));
        ZAbstractPropertyValuesIterator_6_0 values(store, "s", "k", zPropLocalStrings,
                                                   zPropIterAny);
        values.nextValue();
        store.reload(nullptr);
        EXPECT_STREQ("b", values.nextValue().getChars());
        values.changeValue("c");
    }
    store.setValue("s", "secret", "hidden", 1);
    store.store(nullptr);
    EXPECT_EQ(1, OwnCache::writes);
    EXPECT_EQ("# MiNe\n[s]\nk = a\nk = c\n\n[configuration-database]\nfile = " + path + ".obf\n",
              directory_.read("conf"));
    store.reload(nullptr);
    EXPECT_EQ("hidden", valueOf(store, "s", "secret"));
    EXPECT_EQ("c", valueOf(store, "s", "k"));
}

TEST_F(ZProperties, StoreCallsTheOverridesOfItsCache)
{
    // Keeps values in upper case and hides the last value.
    class UpperCase final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::add;
        using ZSCFData_6_0::get;
        using ZSCFData_6_0::set;
        UpperCase() = default;
        UpperCase(UpperCase const& other) : ZSCFData_6_0(other) {}
        ~UpperCase() noexcept override {}
        ZPCache_6_0* clone() const override { return new UpperCase(*this); }
        void add(char const* category, char const* key, char const* value, int kind) override
        {
            ZSCFData_6_0::add(category, key, upper(value).c_str(), kind);
        }
        void set(char const* category, char const* key, char const* value) override
        {
            ZSCFData_6_0::set(category, key, upper(value).c_str());
        }
        ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
        {
            auto const* const all = ZSCFData_6_0::get(category, key, type);
            if (all == nullptr)
                return nullptr;
            shown_.removeAll();
            for (unsigned i = 0; i + 1 < all->size(); ++i)
                shown_.add(all->get(i));
            return &shown_;
        }

    private:
        static std::string upper(char const* text)
        {
            std::string all = text == nullptr ? "" : text;
            for (char& c : all)
                c = static_cast<char>(toupper(c));
            return all;
        }
        ZArrayList_6_0 shown_{4, 1};
    };
    std::string const path = directory_.write("conf", "[s]\nk = a\nk = b\nk = c\n");
    ZProperties_6_0 store(new UpperCase);
    store.load(path.c_str());
    EXPECT_EQ("A,B,", valuesOf(store, "s", "k"));
    EXPECT_EQ(2, store.numValues("s", "k"));
    EXPECT_EQ(0, store.numValues("s", "missing"));
    EXPECT_EQ(3, store.numValues("s"));
    EXPECT_EQ(0, store.numValues("missing"));
    store.setValue("s", "new", "x");
    EXPECT_EQ(0, store.numValues("s", "new"));
    store.store(nullptr);
    EXPECT_EQ("[s]\nk = A\nk = B\nnew =\n", directory_.read("conf"));
}

namespace {

// A class that was compiled with an earlier version of the header has its own functions in the
// slots that were appended since.
class Earlier : public ZSCFData_6_0 {
public:
    using ZSCFData_6_0::ZSCFData_6_0;
    ZPCache_6_0* clone() const override { return new Earlier(*this); }
    ZPCache_6_0* makeEmpty() const override { return fail<ZPCache_6_0*>(); }
    int swapContents(ZPCache_6_0&) override { return fail<int>(); }
    int validCategory(char const*) const override { return fail<int>(); }
    int validKey(char const*, char const*) const override { return fail<int>(); }
    int validValue(char const*, char const*) const override { return fail<int>(); }
    void readText(char const*, char const*, size_t) override { fail<int>(); }
    void writeText(ZBuffer_6_0&) const override { fail<int>(); }

private:
    template <class Result>
    static Result fail()
    {
        ADD_FAILURE() << "called";
        return {};
    }
};

}  // namespace

TEST_F(ZProperties, AppendedFunctionsAreNotCalledForDerivedCaches)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new Earlier);
    store.load(path.c_str());
    store.setValue("s", "k", "b");
    store.setValue("s", "k", ZUTF8String_6_0(ZLCString_6_0("c")));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.setValue("s", "k=", "b"); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.setValue("s", "k", "b\nc"); }));
    store.addEntryComment("s", "k", "# one");
    ZAbstractPropertyValuesIterator_6_0 values(store, "s", "k", zPropLocalStrings, zPropIterAny);
    values.nextValue();
    values.changeValue("d");
    values.addValue("e");
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { values.addValue("e\nf"); }));
    store.setValue("s", "secret", "hidden", 1);
    store.store(nullptr);
    store.reload(nullptr);
    EXPECT_EQ("d,e,", valuesOf(store, "s", "k"));
}

TEST_F(ZProperties, CommentsWithoutAHashSignAreRefusedForDerivedStanzaCachesToo)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new OwnCache);
    store.load(path.c_str());
    for (char const* comment : {"[x]", "k = b", "", " # space first", "# one\n[x]", "# one\n"}) {
        SCOPED_TRACE(comment);
        EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.addFileComment(comment); }));
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { store.addEntryComment("s", "k", comment); }));
    }
    EXPECT_EQ(0, store.isModified());
    EXPECT_EQ("nothing", thrown([&] { store.addEntryComment("s", "k", "# marked"); }));
}

TEST_F(ZProperties, CommentsOfOtherFileFormatsNeedNoHashSign)
{
    ZProperties_6_0 store(new ZPCategoryBasedCache_6_0);
    EXPECT_EQ("nothing", thrown([&] { store.addFileComment("; another mark\n; two"); }));
}

TEST_F(ZProperties, FailuresOfACacheOfAnotherClassChangeNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new OwnCache);
    store.load(path.c_str());
    store.setValue("s", "k", "b");
    OwnCache::refuses = true;
    EXPECT_THROW(store.store(nullptr), std::runtime_error);
    OwnCache::refuses = false;
    OwnCache::misuses = true;
    EXPECT_EQ("io " + path + " fwrite() " + std::to_string(EBADF),
              thrown([&] { store.store(nullptr); }));
    OwnCache::misuses = false;
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
    EXPECT_EQ(1, store.isModified());
    directory_.write("conf", "broken");
    EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store.reload(nullptr); }));
    EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store.load(nullptr); }));
    EXPECT_EQ("b", valueOf(store, "s", "k"));
    directory_.write("conf", "");
    store.reload(nullptr);
    EXPECT_EQ(0, store.count());
}

TEST_F(ZProperties, FailedAllocationsWithACacheOfAnotherClassChangeNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new OwnCache);
    store.load(path.c_str());
    store.setValue("s", "k", std::string(5000, 'b').c_str());
    OwnCache::comment = "# " + std::string(30000, 'c') + "\n";
    std::string const text =
        "# McN" + OwnCache::comment.substr(5) + "[s]\nk = " + std::string(5000, 'b') + "\n";
    long const descriptors = openDescriptors();
    // If a stream cannot be created or cannot grow, the failed call is reported.
    auto const streaming = [](auto call) {
        try {
            call();
        } catch (ZPropertiesIOException_6_0 const& failure) {
            EXPECT_EQ(ENOMEM, failure.excerrno()) << failure.api().getChars();
            ZOutOfMemoryException_6_0().throwException("test", 1);
        } catch (std::bad_alloc const&) {  // of the copy that the cache makes
            ZOutOfMemoryException_6_0().throwException("test", 1);
        }
    };
    auto const check = [&] {
        EXPECT_EQ(std::string(5000, 'b') + ",", valuesOf(store, "s", "k"));
        EXPECT_EQ(1, store.isModified());
        EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
        EXPECT_EQ("conf", directory_.names());
        EXPECT_EQ(descriptors, openDescriptors());
    };
    EXPECT_LT(5u, failEachAllocationOfSome([&] { streaming([&] { store.store(nullptr); }); },
                                           [&] {
                                               EXPECT_EQ(text, directory_.read("conf"));
                                               directory_.write("conf", "[s]\nk = a\n");
                                               store.setModified();
                                           },
                                           check));
    EXPECT_LT(5u, failEachAllocationOfSome(
                      [&] { streaming([&] { store.reload(nullptr); }); },
                      [&] { store.setValue("s", "k", std::string(5000, 'b').c_str()); }, check));
    OwnCache::comment = "# mine\n";
}

TEST_F(ZProperties, CacheThatCannotBeCopiedPreventsCopyingTheStore)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new SingleCache);
    store.load(path.c_str());
    EXPECT_EQ("ZNotClonableException", thrown([&] { ZProperties_6_0 const copy(store); }));
    EXPECT_EQ("a", valueOf(store, "s", "k"));
    store.reload(nullptr);
    EXPECT_EQ("a,", valuesOf(store, "s", "k"));
}

TEST_F(ZProperties, CacheThatCannotBeCopiedIsReadInPlace)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new UncopiedCache);
    UncopiedCache::ownReads = 0;
    store.load(path.c_str());
    store.reload(nullptr);
    EXPECT_EQ(2, UncopiedCache::ownReads);
    EXPECT_EQ("a", valueOf(store, "s", "k"));
    store.setValue("s", "secret", "hidden", 1);
    store.store(nullptr);
    store.reload(nullptr);
    EXPECT_EQ("hidden", valueOf(store, "s", "secret"));
}

TEST_F(ZProperties, FailuresWithACacheThatCannotBeCopiedChangeNothing)
{
    class StoreOver final : public ZProperties_6_0 {
    public:
        using ZProperties_6_0::ZProperties_6_0;
        ~StoreOver() noexcept override {}
        void postLoad(char const*) override
        {
            if (onPostLoad)
                onPostLoad();
        }

        std::function<void()> onPostLoad;
    };
    std::string const good = "[s]\nk = a\n";
    std::string const path = directory_.write("conf", good);
    std::string const missing = directory_.at("missing.obf");
    std::string const named = "[n]\nk = b\n[configuration-database]\nfile = " + missing + "\n";
    for (bool const isSingle : {true, false}) {
        SCOPED_TRACE(isSingle ? "without clone()" : "with the clone() of a base");
        directory_.write("conf", good);
        StoreOver store(isSingle ? static_cast<OwnCache*>(new SingleCache) : new UncopiedCache);
        store.load(path.c_str());
        std::string const other = directory_.write("other", named);
        EXPECT_EQ("io " + missing + " mapFile() 22", thrown([&] { store.load(other.c_str()); }));
        store.onPostLoad = [] { throw std::runtime_error("refused"); };
        directory_.write("other", "[n]\nk = b\n");
        EXPECT_THROW(store.load(other.c_str()), std::runtime_error);
        EXPECT_THROW(store.reload(nullptr), std::runtime_error);
        store.onPostLoad = nullptr;
        directory_.write("conf", "broken");
        EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store.reload(nullptr); }));
        EXPECT_EQ(1, store.count());
        EXPECT_EQ("a,", valuesOf(store, "s", "k"));

        // store() adds the entry of the companion.
        store.setValue("s", "secret", "hidden", 1);
        OwnCache::refuses = true;
        EXPECT_THROW(store.store(nullptr), std::runtime_error);
        OwnCache::refuses = false;
        EXPECT_EQ(1, store.count());
        EXPECT_EQ(1, store.isModified());
        store.store(nullptr);
        EXPECT_EQ(2, store.count());
        store.reload(nullptr);
        EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
        std::filesystem::remove(path + ".obf");
    }
}

TEST_F(ZProperties, FailedAllocationsWithACacheThatCannotBeCopiedChangeNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new UncopiedCache);
    store.load(path.c_str());
    store.setValue("s", "secret", "hidden", 1);
    store.store(nullptr);
    std::string const text = directory_.read("conf");
    store.setValue("s", "k", "b");
    auto const streaming = [](auto call) {
        try {
            call();
        } catch (ZPropertiesIOException_6_0 const& failure) {
            EXPECT_EQ(ENOMEM, failure.excerrno()) << failure.api().getChars();
            ZOutOfMemoryException_6_0().throwException("test", 1);
        } catch (std::bad_alloc const&) {
            ZOutOfMemoryException_6_0().throwException("test", 1);
        }
    };
    auto const check = [&] {
        EXPECT_EQ("b,", valuesOf(store, "s", "k"));
        EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
        EXPECT_EQ(2, store.count());
        EXPECT_EQ(1, store.isModified());
        EXPECT_EQ(text, directory_.read("conf"));
    };
    EXPECT_LT(5u, failEachAllocationOfSome([&] { streaming([&] { store.reload(nullptr); }); },
                                           [&] { store.setValue("s", "k", "b"); }, check));
    std::string const other = directory_.write("other", "[n]\nk = c\n");
    EXPECT_LT(5u, failEachAllocationOfSome([&] { streaming([&] { store.load(other.c_str()); }); },
                                           [&] {
                                               store.reload(nullptr);
                                               store.setValue("s", "k", "b");
                                           },
                                           check));
}

TEST_F(ZProperties, OverridesOfACacheAreNotCalledWithoutNames)
{
    class NamedOnly final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::get;
        ~NamedOnly() noexcept override {}
        ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
        {
            if (category == nullptr || key == nullptr)
                throw std::logic_error("no name");
            return ZSCFData_6_0::get(category, key, type);
        }
    };
    ZProperties_6_0 store(new NamedOnly);
    ZUTF8String_6_0 const text("");
    ZUTF8ConstString_6_0 const constant("");
    for (auto const& [category, key] :
         {std::pair<char const*, char const*>{nullptr, "k"}, {"s", nullptr}, {nullptr, nullptr}}) {
        EXPECT_THROW(store.setValue(category, key, text, 0), ZInvalidParameterException_6_0);
        EXPECT_THROW(store.setValue(category, key, constant, 0), ZInvalidParameterException_6_0);
    }
}
