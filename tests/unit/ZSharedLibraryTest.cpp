#include <Z/ZException.h>
#include <Z/ZSharedLibrary.h>
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>

#include "EachAllocation.h"
#include "Raised.h"

namespace {

int dlcloseError = 0;  // the errno with which dlclose() fails; 0: it does not fail

}  // namespace

// Overrides the C library's function, also for the calls of the library under test.
extern "C" int dlclose(void* handle) noexcept
{
    if (dlcloseError != 0) {
        errno = dlcloseError;
        return -1;
    }
    static auto const real = reinterpret_cast<int (*)(void*)>(dlsym(RTLD_NEXT, "dlclose"));
    return real(handle);
}

namespace {

std::string const kFolder = Z_SAMPLE_FOLDER;
std::string const kPlain = kFolder + "/libsample.so";     // exists
std::string const kBare = kFolder + "/libsample";         // does not exist, needs the suffix
std::string const kNoSuffix = kFolder + "/samplemodule";  // exists without a suffix
std::string const kUnresolved = kFolder + "/libsampleunresolved.so";  // has an undefined symbol
std::string const kMissing = kFolder + "/libmissing.so";

class FailingToInitialize : public ZSharedLibrary_6_0 {
public:
    using ZSharedLibrary_6_0::ZSharedLibrary_6_0;
    int initialize() override { return 1; }
};

// Gives the test access to the suffixes.
class Suffixed : public ZSharedLibrary_6_0 {
public:
    Suffixed(char const* name, char const* first, char const* second) : ZSharedLibrary_6_0(name)
    {
        suffix1_ = first;
        suffix2_ = second;
    }
    explicit Suffixed(char const* name) : ZSharedLibrary_6_0(name) {}
    char const* first() const { return suffix1_.getChars(); }
    char const* second() const { return suffix2_.getChars(); }
};

// Returns whether the program finds the function of the sample library. A child process searches:
// the C library never unloads a library in which the program itself has found a symbol.
bool isVisible()
{
    pid_t const child = fork();
    if (child == 0)
        _exit(dlsym(RTLD_DEFAULT, "sampleAnswer") != nullptr ? 1 : 0);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status) == 1;
}

template <class Exception>
std::string raisedText(std::function<void()> const& call)
{
    try {
        call();
    } catch (Exception& e) {
        testing::internal::CaptureStderr();
        e.print();
        std::string const report = testing::internal::GetCapturedStderr();
        return report.substr(report.find("NUM_MSGS = 55\n") + 14);
    }
    return "no exception";
}

}  // namespace

TEST(ZSharedLibrary, LoadsResolvesAndUnloads)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    EXPECT_EQ(nullptr, library.getHandle());
    library.loadLibrary();
    EXPECT_NE(nullptr, library.getHandle());
    auto const answer = reinterpret_cast<int (*)()>(library.resolveSymbol("sampleAnswer"));
    EXPECT_EQ(42, answer());
    library.unloadLibrary();
    EXPECT_EQ(nullptr, library.getHandle());
    EXPECT_EQ(nullptr, dlopen(kPlain.c_str(), RTLD_NOLOAD | RTLD_NOW));
}

TEST(ZSharedLibrary, TriesTheOtherSpelling)
{
    for (std::string const& name : {kBare, kNoSuffix + ".so"}) {
        SCOPED_TRACE(name);
        ZSharedLibrary_6_0 library(name.c_str());
        library.loadLibrary();
        EXPECT_NE(nullptr, library.getHandle());
        EXPECT_STREQ(name.c_str(), library.getLibraryName().getChars());
        library.unloadLibrary();
    }
}

TEST(ZSharedLibrary, FailedLoadReportsTheFirstAttempt)
{
    ZSharedLibrary_6_0 library(kMissing.c_str());
    dlopen(kMissing.c_str(), RTLD_NOW | RTLD_GLOBAL);
    std::string const first = dlerror();
    EXPECT_TRUE(raises<ZSharedLibraryLoadException_6_0>(51, "src/Z/ZSharedLibrary", 187,
                                                        [&] { library.loadLibrary(); }));
    EXPECT_EQ(first, library.getLastErrorMessage().getChars());
    EXPECT_EQ(nullptr, library.getHandle());
    EXPECT_EQ("Shared library load/unload error (" + kMissing + ") " +
                  std::to_string(library.getLastErrorNumber()) + ".  " + first,
              raisedText<ZSharedLibraryLoadException_6_0>([&] { library.loadLibrary(); }));
}

TEST(ZSharedLibrary, AFailedInitializeFailsTheLoad)
{
    FailingToInitialize library(kPlain.c_str());
    EXPECT_EQ("Shared library load/unload error (" + kPlain + ") 0.  initialize",
              raisedText<ZSharedLibraryLoadException_6_0>([&] { library.loadLibrary(); }));
    EXPECT_NE(nullptr, library.getHandle());
    library.unloadLibrary();
}

TEST(ZSharedLibrary, MissingSymbolThrows)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    EXPECT_TRUE(raises<ZSharedLibraryResolveException_6_0>(
        52, "src/Z/ZSharedLibrary", 236, [&] { library.resolveSymbol("sampleAnswer"); }));
    library.loadLibrary();
    std::string const text = raisedText<ZSharedLibraryResolveException_6_0>(
        [&] { library.resolveSymbol("sampleQuestion"); });
    EXPECT_EQ(0u, text.find("Shared library resolve error (" + kPlain + ":sampleQuestion) "));
    EXPECT_NE(std::string::npos, text.find("sampleQuestion", kPlain.size() + 50));
    library.unloadLibrary();
}

TEST(ZSharedLibrary, NullSymbolThrows)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    library.loadLibrary();
    EXPECT_TRUE(raises<ZSharedLibraryResolveException_6_0>(
        52, "src/Z/ZSharedLibrary", 236, [&] { library.resolveSymbol(nullptr); }));
    EXPECT_NE(nullptr, library.getHandle());
    library.unloadLibrary();
}

TEST(ZSharedLibrary, LazyResolutionLoadsUndefinedSymbols)
{
    ZSharedLibrary_6_0 library(kUnresolved.c_str());
    library.setLazyResolution(0);
    EXPECT_TRUE(raises<ZSharedLibraryLoadException_6_0>(51, "src/Z/ZSharedLibrary", 187,
                                                        [&] { library.loadLibrary(); }));
    EXPECT_NE(nullptr, strstr(library.getLastErrorMessage(), "sampleNowhere"));
    EXPECT_EQ(nullptr, library.getHandle());
    library.setFlags(0);  // resolves at load time too
    EXPECT_TRUE(raises<ZSharedLibraryLoadException_6_0>(51, "src/Z/ZSharedLibrary", 187,
                                                        [&] { library.loadLibrary(); }));
    library.setLazyResolution(1);
    library.loadLibrary();
    EXPECT_EQ(43, reinterpret_cast<int (*)()>(library.resolveSymbol("sampleAnswer"))());
    library.unloadLibrary();
}

TEST(ZSharedLibrary, AFailedUnloadKeepsTheHandle)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    library.loadLibrary();
    void* const handle = library.getHandle();
    dlcloseError = EBUSY;
    EXPECT_TRUE(raises<ZSharedLibraryLoadException_6_0>(51, "src/Z/ZSharedLibrary", 214,
                                                        [&] { library.unloadLibrary(); }));
    dlcloseError = 0;
    EXPECT_EQ(EBUSY, library.getLastErrorNumber());
    EXPECT_EQ(handle, library.getHandle());
    library.unloadLibrary();
    EXPECT_EQ(nullptr, library.getHandle());
}

TEST(ZSharedLibrary, SuffixesAreTriedInOrderUntilAnEmptyOne)
{
    Suffixed second(kBare.c_str(), ".none", ".so");
    second.loadLibrary();
    EXPECT_NE(nullptr, second.getHandle());
    second.unloadLibrary();
    for (Suffixed library : {Suffixed(kBare.c_str(), "", ".so"), Suffixed(kBare.c_str(), "", "")}) {
        EXPECT_TRUE(raises<ZSharedLibraryLoadException_6_0>(51, "src/Z/ZSharedLibrary", 187,
                                                            [&] { library.loadLibrary(); }));
    }
    Suffixed other((kNoSuffix + ".so.1.so.1").c_str(), ".so.1", ".so.1.so.1");
    other.loadLibrary();  // the suffix is removed only at the end of the name
    other.unloadLibrary();
}

TEST(ZSharedLibrary, FailedAllocationLeavesTheObjectUsable)
{
    std::string const longName = std::string(200, '.') + "/libmissing";
    // The loader's first failure allocates memory that it never frees.
    ZSharedLibrary_6_0 missing(longName.c_str());
    auto const load = [&] {
        try {
            missing.loadLibrary();
        } catch (ZSharedLibraryLoadException_6_0 const&) {
        }
    };
    load();
    EXPECT_LT(1u, failEachAllocationOfSome(
                      load, [] {},
                      [&] {
                          EXPECT_EQ(nullptr, missing.getHandle());
                          EXPECT_EQ(longName, missing.getLibraryName().getChars());
                      },
                      false));

    // A new object has not allocated memory for the error message yet.
    failEachAllocationOfSome(
        [&] {
            try {
                ZSharedLibrary_6_0 fresh(longName.c_str());
                fresh.loadLibrary();
            } catch (ZSharedLibraryLoadException_6_0 const&) {
            }
        },
        [] {}, [] {}, false);

    ZSharedLibrary_6_0 library(kPlain.c_str());
    failEachAllocationOfSome(
        [&] {
            try {
                library.loadLibrary();
            } catch (ZSharedLibraryLoadException_6_0 const&) {
                EXPECT_EQ(nullptr, library.getHandle());
            }
        },
        [&] {
            if (library.getHandle() != nullptr)
                library.unloadLibrary();
        },
        [&] { EXPECT_EQ(nullptr, library.getHandle()); }, false);

    library.loadLibrary();
    std::string const longSymbol(200, 's');
    failEachAllocationOfSome(
        [&] {
            try {
                library.resolveSymbol(longSymbol.c_str());
            } catch (ZSharedLibraryResolveException_6_0 const&) {
            }
        },
        [] {},
        [&] {
            EXPECT_EQ(42, reinterpret_cast<int (*)()>(library.resolveSymbol("sampleAnswer"))());
        },
        false);
    library.unloadLibrary();

    // Allocations: the object, its name and the message.
    EXPECT_LE(1u, failEachAllocation([&] { delete missing.clone(); }, [] {}));
}

TEST(ZSharedLibrary, UnloadingTwiceThrows)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    EXPECT_TRUE(raises<ZSharedLibraryLoadException_6_0>(51, "src/Z/ZSharedLibrary", 214,
                                                        [&] { library.unloadLibrary(); }));
    EXPECT_EQ(2, library.getLastErrorNumber());
    library.loadLibrary();
    library.unloadLibrary();
    EXPECT_TRUE(raises<ZSharedLibraryLoadException_6_0>(51, "src/Z/ZSharedLibrary", 214,
                                                        [&] { library.unloadLibrary(); }));
}

TEST(ZSharedLibrary, ScopeAndResolutionAreFlags)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    EXPECT_EQ(0, library.getFlags());
    library.setLocalScope(0);
    EXPECT_EQ(RTLD_GLOBAL, library.getFlags());
    library.setLazyResolution(1);
    EXPECT_EQ(RTLD_GLOBAL | RTLD_LAZY, library.getFlags());
    EXPECT_EQ(1, library.getLazyResolution());
    library.setLazyResolution(0);
    EXPECT_EQ(RTLD_GLOBAL | RTLD_NOW, library.getFlags());
    EXPECT_EQ(0, library.getLazyResolution());
    library.setLocalScope(1);
    EXPECT_EQ(RTLD_NOW, library.getFlags());
    library.setFlags(RTLD_LAZY);
    EXPECT_EQ(RTLD_LAZY, library.getFlags());
}

TEST(ZSharedLibrary, ScopeDeterminesTheVisibilityOfSymbols)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    library.setLazyResolution(0);
    library.setLocalScope(1);
    library.loadLibrary();
    EXPECT_FALSE(isVisible());
    library.unloadLibrary();
    library.setLocalScope(0);
    library.loadLibrary();
    EXPECT_TRUE(isVisible());
    library.unloadLibrary();
}

TEST(ZSharedLibrary, NamesDecideOrderAndHash)
{
    ZSharedLibrary_6_0 const a("a");
    ZSharedLibrary_6_0 const alsoA("a");
    ZSharedLibrary_6_0 const b("b");
    EXPECT_EQ(0, a.compare(alsoA));
    EXPECT_LT(a.compare(b), 0);
    EXPECT_GT(b.compare(a), 0);
    EXPECT_EQ(a.hash(), alsoA.hash());
    EXPECT_EQ(ZLCString_6_0("a").hash(), a.hash());
    // Compared with an object of another class, a library sorts by address.
    ZLCString_6_0 const name("a");
    EXPECT_EQ(a.ZObject_6_0::compare(name), a.compare(name));
    EXPECT_NE(0, a.compare(name));
}

TEST(ZSharedLibrary, CopiesAreNotLoaded)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    library.setFlags(RTLD_LAZY);
    library.loadLibrary();
    std::unique_ptr<ZObject_6_0> const copy(library.clone());
    auto const& same = dynamic_cast<ZSharedLibrary_6_0 const&>(*copy);
    EXPECT_EQ(nullptr, same.getHandle());
    EXPECT_EQ(RTLD_LAZY, same.getFlags());
    EXPECT_EQ(0, library.compare(same));
    library.unloadLibrary();
}

TEST(ZSharedLibrary, KeepsTwoEqualSuffixes)
{
    Suffixed const library("name");
    EXPECT_STREQ(".so", library.first());
    EXPECT_STREQ(".so", library.second());
}

TEST(ZSharedLibrary, KeepsLoadingGloballyWithoutFlags)
{
    ZSharedLibrary_6_0 library(kPlain.c_str());
    library.setLocalScope(1);
    EXPECT_EQ(0, library.getFlags());
    library.loadLibrary();
    EXPECT_TRUE(isVisible());
    library.unloadLibrary();
}

TEST(ZSharedLibrary, KeepsReturningGlobalScope)
{
    ZSharedLibrary_6_0 library;
    EXPECT_EQ(0, library.getLocalScope());
    library.setLocalScope(1);
    EXPECT_EQ(0, library.getLocalScope());
}

TEST(zdlopen, NullNamesAndHandlesHaveCodes)
{
    int err = -1;
    EXPECT_EQ(nullptr, zdlopen_6_0(nullptr, 0, &err));
    EXPECT_EQ(2, err);
    EXPECT_EQ(nullptr, zdlopen_6_0(nullptr, 0, nullptr));
    err = -1;
    EXPECT_NE(0, zdlclose_6_0(nullptr, &err));
    EXPECT_EQ(2, err);
}

TEST(zdlopen, SuccessClearsTheCode)
{
    int err = -1;
    void* const handle = zdlopen_6_0(kPlain.c_str(), 0, &err);
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(isVisible());  // 0 loads globally
    err = -1;
    EXPECT_NE(nullptr, zdlsym_6_0(handle, "sampleAnswer", &err));
    EXPECT_EQ(0, err);
    err = -1;
    EXPECT_EQ(0, zdlclose_6_0(handle, &err));
    EXPECT_EQ(0, err);
}

TEST(zdlopen, StaleErrnoIsNotReported)
{
    int err = -1;
    errno = EBUSY;
    EXPECT_EQ(nullptr, zdlopen_6_0(kMissing.c_str(), 0, &err));
    EXPECT_NE(EBUSY, err);
}

TEST(zdlopen, CallerOwnsTheErrorText)
{
    dlerror();
    EXPECT_EQ(nullptr, zdlerror_6_0());
    zdlopen_6_0(kMissing.c_str(), 0, nullptr);
    char* const text = zdlerror_6_0();
    ASSERT_NE(nullptr, text);
    EXPECT_NE(std::string::npos, std::string(text).find("libmissing"));
    free(text);
}

TEST(ZSharedLibrary, KeepsErrnoForANullSymbol)
{
    int err = -1;
    errno = EBUSY;
    EXPECT_EQ(nullptr, zdlsym_6_0(nullptr, "x", &err));
    EXPECT_EQ(EBUSY, err);
    errno = 0;
    EXPECT_EQ(nullptr, zdlsym_6_0(&err, nullptr, &err));
    EXPECT_EQ(0, err);
}
