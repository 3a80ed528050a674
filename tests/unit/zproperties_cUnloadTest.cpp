// The plain functions in a library that a program loads and unloads.
#include <Z/zproperties_c.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

TEST(ZPropertiesCUnload, AThreadWithALongFailureMayEndAfterTheLibraryWasUnloaded)
{
    void* const library = dlopen(Z_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    auto* const open =
        reinterpret_cast<decltype(&zstzPropOpen_6_0)>(dlsym(library, "zstzPropOpen_6_0"));
    ASSERT_NE(nullptr, open);
    std::promise<void> failed;
    std::promise<void> unloaded;
    std::thread thread([&] {
        // The name exceeds the capacity of the record, so the record has a block, which is freed
        // when the thread ends.
        std::string const name = "/none/" + std::string(1000, 'n');
        ZPROP_handle* handle = nullptr;
        EXPECT_EQ(51, open(&handle, name.c_str(), zpropOpenRead));
        failed.set_value();
        unloaded.get_future().wait();
    });
    failed.get_future().wait();
    EXPECT_EQ(0, dlclose(library));
    unloaded.set_value();
    thread.join();
}
