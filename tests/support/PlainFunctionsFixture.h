// PlainFunctionsFixture: an open stanza file, and the calls of the plain functions.
#pragma once

#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "TestDirectory.h"

constexpr int kDefault = 1;   // a missing key is an empty value
constexpr int kRequired = 0;  // a missing key is an error
constexpr int kUntouched = 12345;

constexpr char kText[] =
    "# how the service is reached\n"
    "\n"
    "[server]\n"
    "# where it listens\n"
    "port = 8080\n"
    "host = alpha\n"
    "host = beta\n"
    "host = gamma\n"
    "empty =\n"
    "debug = yes\n"
    "\n"
    "[client]\n"
    "retries = 3\n";

struct FreeText {
    void operator()(char* text) const { zstzPropFree_6_0(text); }
};
using Text = std::unique_ptr<char, FreeText>;

inline std::string textOf(Text const& text)
{
    return text == nullptr ? "(null)" : text.get();
}

// Opens a file in a new directory for each test.
class PlainFunctionsTest : public testing::Test {
protected:
    void SetUp() override
    {
        write("service.conf", kText);
        ASSERT_EQ(0, zstzPropOpen_6_0(&file_, path("service.conf").c_str(), zpropOpenUpdate));
        ASSERT_NE(nullptr, file_);
    }
    void TearDown() override { zstzPropClose_6_0(file_); }

    std::string path(std::string const& name) const { return directory_.at(name); }
    std::string write(std::string const& name, std::string const& text) const
    {
        return directory_.write(name, text);
    }
    std::string read(std::string const& name) const { return directory_.read(name); }
    std::string stored()
    {
        EXPECT_EQ(0, zstzPropStore_6_0(file_, path("stored.conf").c_str()));
        return read("stored.conf");
    }
    ZPROP_handle* reopened(std::string const& text)
    {
        zstzPropClose_6_0(file_);
        write("service.conf", text);
        EXPECT_EQ(0, zstzPropOpen_6_0(&file_, path("service.conf").c_str(), zpropOpenRead));
        return file_;
    }

    std::string value(char const* stanza, char const* key, int flag = kRequired)
    {
        int code = kUntouched;
        Text const text(zstzPropGetStringValue_6_0(file_, stanza, key, flag, &code));
        return code == 0 ? textOf(text) : "code " + std::to_string(code);
    }
    std::string values(char const* stanza, char const* key)
    {
        std::string all;
        ZPROP_iter_handle* iterator = nullptr;
        EXPECT_EQ(0, zstzPropIter_init_6_0(file_, stanza, key, &iterator));
        int code = kUntouched;
        while (zstzPropIter_next_6_0(iterator, &code) == 1)
            all += textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))) + " ";
        EXPECT_EQ(0, code);
        EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
        return all;
    }

    TestDirectory directory_;
    ZPROP_handle* file_ = nullptr;
};

// A call of each function that takes a handle, with its code for a bad handle.
struct FileCall {
    char const* name;
    std::function<int(ZPROP_handle*)> code;  // returns the code, or -1 if the result is not 0
};

template <class Call>
std::function<int(ZPROP_handle*)> resultCall(Call call)
{
    return [call](ZPROP_handle* file) {
        int code = kUntouched;
        auto const result = call(file, &code);
        if constexpr (std::is_same_v<decltype(result), char* const>)
            zstzPropFree_6_0(result);
        return result == decltype(result){} ? code : -1;
    };
}

inline std::vector<FileCall> fileCalls()
{
    return {
        {"Store", [](auto* f) { return zstzPropStore_6_0(f, nullptr); }},
        {"SetStringValue", [](auto* f) { return zstzPropSetStringValue_6_0(f, "s", "k", "v"); }},
        {"SetBooleanValue", [](auto* f) { return zstzPropSetBooleanValue_6_0(f, "s", "k", 1); }},
        {"SetIntegerValue", [](auto* f) { return zstzPropSetIntegerValue_6_0(f, "s", "k", 1); }},
        {"RemoveKey", [](auto* f) { return zstzPropRemoveKey_6_0(f, "s", "k"); }},
        {"RemoveStanza", [](auto* f) { return zstzPropRemoveStanza_6_0(f, "s"); }},
        {"AddLineComment", [](auto* f) { return zstzPropAddLineComment_6_0(f, "s", "k", "c"); }},
        {"AddStanzaComment", [](auto* f) { return zstzPropAddStanzaComment_6_0(f, "s", "c"); }},
        {"AddFileComment", [](auto* f) { return zstzPropAddFileComment_6_0(f, "c"); }},
        {"GetValues",
         [](auto* f) {
             int result = kUntouched;
             ZPROPValue record = {zpropInteger, "server", "port", kRequired, &result};
             int const code = zstzPropGetValues_6_0(f, &record, 1);
             return result == kUntouched ? code : -1;
         }},
        {"GetValues of none", [](auto* f) { return zstzPropGetValues_6_0(f, nullptr, 0); }},
        {"GetStringValue", resultCall([](auto* f, int* code) {
             return zstzPropGetStringValue_6_0(f, "server", "port", kRequired, code);
         })},
        {"GetBooleanValue", resultCall([](auto* f, int* code) {
             return zstzPropGetBooleanValue_6_0(f, "server", "debug", kRequired, code);
         })},
        {"GetIntegerValue", resultCall([](auto* f, int* code) {
             return zstzPropGetIntegerValue_6_0(f, "server", "port", kRequired, code);
         })},
        {"Exists", resultCall([](auto* f, int* code) {
             return zstzPropExists_6_0(f, "server", "port", code);
         })},
        {"NumStanzas",
         resultCall([](auto* f, int* code) { return zstzPropNumStanzas_6_0(f, code); })},
        {"NumKeys",
         resultCall([](auto* f, int* code) { return zstzPropNumKeys_6_0(f, "server", code); })},
        {"NumValues", resultCall([](auto* f, int* code) {
             return zstzPropNumValues_6_0(f, "server", "host", code);
         })},
        {"Reload", [](auto* f) { return zstzPropReload_6_0(f); }},
        {"IsModified",
         resultCall([](auto* f, int* code) { return zstzPropIsModified_6_0(f, code); })},
        {"GetFileName",
         resultCall([](auto* f, int* code) { return zstzPropGetFileName_6_0(f, code); })},
        {"GetDialect",
         resultCall([](auto* f, int* code) { return zstzPropGetDialect_6_0(f, code); })},
        {"SetOption", [](auto* f) { return zstzPropSetOption_6_0(f, zpropWaitSeconds, 1); }},
        {"LoadText", [](auto* f) { return zstzPropLoadText_6_0(f, "", 0); }},
        {"StoreText",
         resultCall([](auto* f, int* code) { return zstzPropStoreText_6_0(f, nullptr, code); })},
        {"GetAll", resultCall([](auto* f, int* code) {
             return zstzPropGetAll_6_0(f, nullptr, nullptr, nullptr, code);
         })},
        {"GetAllMarshalled", resultCall([](auto* f, int* code) {
             return zstzPropGetAllMarshalled_6_0(f, nullptr, nullptr, nullptr, code);
         })},
        {"SetStringValues",
         [](auto* f) { return zstzPropSetStringValues_6_0(f, "s", "k", nullptr, 0); }},
        {"AddStringValue", [](auto* f) { return zstzPropAddStringValue_6_0(f, "s", "k", "v"); }},
        {"RemoveValue",
         [](auto* f) { return zstzPropRemoveValue_6_0(f, "server", "port", "8080"); }},
        {"SetObfuscatedValue",
         [](auto* f) { return zstzPropSetObfuscatedValue_6_0(f, "s", "k", "v"); }},
        {"IsObfuscated", resultCall([](auto* f, int* code) {
             return zstzPropIsObfuscated_6_0(f, "server", "port", code);
         })},
        {"AddStanza", [](auto* f) { return zstzPropAddStanza_6_0(f, "s"); }},
        {"RenameStanza", [](auto* f) { return zstzPropRenameStanza_6_0(f, "server", "s"); }},
        {"RenameKey", [](auto* f) { return zstzPropRenameKey_6_0(f, "server", "port", "k"); }},
        {"GetFileComment",
         resultCall([](auto* f, int* code) { return zstzPropGetFileComment_6_0(f, code); })},
        {"GetStanzaComment", resultCall([](auto* f, int* code) {
             return zstzPropGetStanzaComment_6_0(f, "server", code);
         })},
        {"GetLineComment", resultCall([](auto* f, int* code) {
             return zstzPropGetLineComment_6_0(f, "server", "port", code);
         })},
        {"SetFileComment", [](auto* f) { return zstzPropSetFileComment_6_0(f, "c"); }},
        {"SetStanzaComment",
         [](auto* f) { return zstzPropSetStanzaComment_6_0(f, "server", "c"); }},
        {"SetLineComment",
         [](auto* f) { return zstzPropSetLineComment_6_0(f, "server", "port", "c"); }},
        {"GetLine", resultCall([](auto* f, int* code) {
             return zstzPropGetLine_6_0(f, "server", "port", 0, code);
         })},
        {"GetRawValue", resultCall([](auto* f, int* code) {
             return zstzPropGetRawValue_6_0(f, "server", "port", 0, code);
         })},
        {"SetRawValue",
         [](auto* f) { return zstzPropSetRawValue_6_0(f, "server", "port", 0, "1"); }},
        {"SetObserver", [](auto* f) { return zstzPropSetObserver_6_0(f, nullptr, nullptr); }},
        {"Iter_initStanzas",
         [](auto* f) {
             int marker = 0;
             auto* const before = reinterpret_cast<ZPROP_iter_handle*>(&marker);
             ZPROP_iter_handle* iterator = before;
             int const code = zstzPropIter_initStanzas_6_0(f, &iterator);
             if (code == zpropOk)
                 zstzPropIter_close_6_0(iterator);
             return iterator == before ? code : -1;
         }},
        {"Iter_init",
         [](auto* f) {
             int marker = 0;
             auto* const before = reinterpret_cast<ZPROP_iter_handle*>(&marker);
             ZPROP_iter_handle* iterator = before;
             int const code = zstzPropIter_init_6_0(f, "server", nullptr, &iterator);
             if (code == zpropOk)
                 zstzPropIter_close_6_0(iterator);
             return iterator == before ? code : -1;
         }},
    };
}

struct IterCall {
    char const* name;
    std::function<int(ZPROP_iter_handle*)> code;
};

template <class Call>
std::function<int(ZPROP_iter_handle*)> resultIterCall(Call call)
{
    return [call](ZPROP_iter_handle* iterator) {
        int code = kUntouched;
        auto const result = call(iterator, &code);
        return result == decltype(result){} ? code : -1;
    };
}

inline std::vector<IterCall> iterCalls()
{
    return {
        {"chgValue", [](auto* i) { return zstzPropIter_chgValue_6_0(i, "v"); }},
        {"addValue", [](auto* i) { return zstzPropIter_addValue_6_0(i, "v"); }},
        {"rmvValue", [](auto* i) { return zstzPropIter_rmvValue_6_0(i); }},
        {"next", resultIterCall([](auto* i, int* c) { return zstzPropIter_next_6_0(i, c); })},
        {"getKey", resultIterCall([](auto* i, int* c) { return zstzPropIter_getKey_6_0(i, c); })},
        {"getValue",
         resultIterCall([](auto* i, int* c) { return zstzPropIter_getValue_6_0(i, c); })},
        {"numKeys", resultIterCall([](auto* i, int* c) { return zstzPropIter_numKeys_6_0(i, c); })},
        {"numValues",
         resultIterCall([](auto* i, int* c) { return zstzPropIter_numValues_6_0(i, c); })},
        {"close", [](auto* i) { return zstzPropIter_close_6_0(i); }},
    };
}
