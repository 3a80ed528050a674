// Caches of derived classes: the operations call the overrides.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CacheHelpers.h"
#include "EachAllocation.h"
#include "FailingAllocator.h"

using namespace std::string_literals;

// --- overrides of the value operations

namespace {

std::string textOrNull(char const* text)
{
    return text == nullptr ? "null" : text;
}

// Records the calls of value operations and their arguments.
class RecordingCache : public ZSCFData_6_0 {
public:
    using ZSCFData_6_0::add;
    using ZSCFData_6_0::contains;
    using ZSCFData_6_0::get;
    using ZSCFData_6_0::remove;
    using ZSCFData_6_0::set;
    using ZSCFData_6_0::setObfuscated;

    void add(char const* category, char const* key, char const* value, int obfuscated) override
    {
        record("add", {category, key, value, std::to_string(obfuscated).c_str()});
        if (textOrNull(value) == refused)
            ZInvalidParameterException_6_0().throwException("test", 1);
        ZSCFData_6_0::add(category, key, value, obfuscated);
    }
    void set(char const* category, char const* key, char const* value) override
    {
        record("set", {category, key, value});
        if (textOrNull(value) == refused)
            ZInvalidParameterException_6_0().throwException("test", 1);
        ZSCFData_6_0::set(category, key, value);
    }
    void setObfuscated(char const* category, char const* key, char const* value) override
    {
        record("setObfuscated", {category, key, value});
        ZSCFData_6_0::setObfuscated(category, key, value);
    }
    void remove(char const* category, char const* key) override
    {
        record("remove", {category, key});
        ZSCFData_6_0::remove(category, key);
    }
    void remove(char const* category) override
    {
        record("remove", {category});
        ZSCFData_6_0::remove(category);
    }
    int contains(char const* category) const override
    {
        record("contains", {category});
        return category == concealed ? 0 : ZSCFData_6_0::contains(category);
    }
    int contains(char const* category, char const* key) const override
    {
        record("contains", {category, key});
        return ZSCFData_6_0::contains(category, key);
    }
    ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
    {
        record("get", {category, key, std::to_string(type).c_str()});
        return ZSCFData_6_0::get(category, key, type);
    }

    // Returns the calls since the last call of this function.
    std::string taken() { return std::exchange(log_, std::string()); }

    std::string refused = "refused";
    std::string concealed = "concealed";

private:
    void record(char const* call, std::vector<char const*> const& arguments) const
    {
        log_ += call;
        for (char const* argument : arguments)
            log_ += " " + textOrNull(argument);
        log_ += "\n";
    }

    mutable std::string log_;
};

}  // namespace

TEST(ZPropertiesImplOverrides, ReadingCallsTheOverridesOfADerivedClass)
{
    RecordingCache data;
    std::string const text = "[a]\nk = 1\nk = 2\nempty =\n[b]\n";
    data.readText("test.conf", text.data(), text.size());
    EXPECT_EQ(
        "contains a\nset a null null\nadd a k 1 0\nadd a k 2 0\nadd a empty  0\n"
        "contains b\nset b null null\n",
        data.taken());
    readCompanion(data, compressed("a\0s\0one\0\0a\0s\0two\0\0c\0s\0three\0"s));
    EXPECT_EQ("add a s one 1\nadd a s two 1\nadd c s three 1\n", data.taken());
    EXPECT_EQ((Strings{"one", "two"}), values(data, "a", "s"));
}

TEST(ZPropertiesImplOverrides, WritingCallsTheOverridesOfADerivedClass)
{
    RecordingCache data;
    std::string const text = "[a]\nk = 1\nempty =\n[b]\n[c]\nk = 2\n";
    data.readText("test.conf", text.data(), text.size());
    data.addLine("a", "s", "secret", 1);
    data.remove("a", "k");
    data.remove("c");
    data.taken();
    EXPECT_EQ("[a]\nempty =\n[b]\n", textOf(data));
    EXPECT_EQ(
        "contains a\ncontains a k\ncontains a empty\nget a empty 1\nget a empty 2\n"
        "contains a s\nget a s 1\nget a s 2\ncontains b\ncontains c\n",
        data.taken());
    ZBuffer_6_0 buffer;
    data.be_write_obfuscated(buffer);
    EXPECT_EQ("a\0s\0secret\0"s, decompressed(buffer));
    EXPECT_EQ("get a s 2\n", data.taken());
    FILE* const file = tmpfile();
    data.list(file);
    fclose(file);
    EXPECT_NE(std::string::npos, data.taken().find("get a empty 1\n"));
}

TEST(ZPropertiesImplOverrides, ChangingLinesCallsTheOverridesOfADerivedClass)
{
    struct Case {
        char const* name;
        std::function<void(RecordingCache&)> change;
        std::string calls;
        std::string text;
    };
    std::string const before = "[a]\nk = 1\n";
    Case const cases[] = {
        {"new stanza", [](auto& data) { data.addStanzaLine("b"); }, "contains b\nset b null null\n",
         before + "\n[b]\n"},
        {"known stanza", [](auto& data) { data.addLine("a", nullptr, 0); },
         "contains a\ncontains a\n", before},
        {"value", [](auto& data) { data.addLine("a", "k", "2", 0); },
         "contains a\ncontains a\nset a k 2\n", "[a]\nk = 2\n"},
        {"obfuscated value", [](auto& data) { data.addLine("a", "s", "2", 1); },
         "contains a\ncontains a\nsetObfuscated a s 2\n", before},
        {"everything new", [](auto& data) { data.addLine("b", "k", "2", 0); },
         "contains b\ncontains b\nset b null null\nset b k 2\n", before + "\n[b]\nk = 2\n"},
        {"key removed", [](auto& data) { data.delLine("a", "k"); }, "remove a k\n", "[a]\n"},
        {"stanza removed", [](auto& data) { data.delLine("a"); }, "remove a\n", ""},
        {"comment of a stanza", [](auto& data) { data.addLineComment("a", "#c"); }, "contains a\n",
         "\n#c\n" + before},
        {"comment of a key", [](auto& data) { data.addLineComment("a", "k", "#c"); },
         "contains a\ncontains a k\n", "[a]\n\n#c\nk = 1\n"},
        {"comment of a new key", [](auto& data) { data.addLineComment("a", "n", "#c"); },
         "contains a\ncontains a n\ncontains a\nadd a n null 0\n", before + "\n#c\nn =\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        RecordingCache data;
        data.setAttributes(ZPCache_6_0::keepComments, nullptr);
        data.readText("test.conf", before.data(), before.size());
        data.taken();
        c.change(data);
        EXPECT_EQ(c.calls, data.taken());
        EXPECT_EQ(c.text, textOf(data));
    }
}

TEST(ZPropertiesImplOverrides, OverrideThatThrowsLeavesValuesAndLinesUnchanged)
{
    RecordingCache data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    std::string const text = "# c\n\n[a]\nk = 1\n# n = 5\n\n[b]\nk = 2\n";
    data.readText("test.conf", text.data(), text.size());
    std::string const state = stateOf(data);
    data.refused = "no";
    for (std::string const bad : {"[c]\nx = 1\n\n# c\ny = no\n", "[c]\nx = 1\n[c]\n",
                                  "[c]\nx = 1\nbroken\n", "[c]\n[b]\nx = no\n"}) {
        SCOPED_TRACE(bad);
        EXPECT_THROW(data.readText("test.conf", bad.data(), bad.size()), ZException_6_0);
        EXPECT_EQ(state, stateOf(data));
    }
    EXPECT_THROW(readCompanion(data, compressed("a\0s\0one\0\0a\0s\0no\0"s)),
                 ZInvalidParameterException_6_0);
    for (char const* category : {"a", "b", "new"})
        for (char const* key : {"k", "n", "new"})
            EXPECT_THROW(data.addLine(category, key, "no", 0), ZInvalidParameterException_6_0);
    data.refused = "null";
    EXPECT_THROW(data.addLine("new", "k", "1", 0), ZInvalidParameterException_6_0);
    EXPECT_THROW(data.addLineComment("a", "new", "# c"), ZInvalidParameterException_6_0);
    EXPECT_EQ(state, stateOf(data));
    EXPECT_EQ(text, textOf(data));
}

TEST(ZPropertiesImplOverrides, ChangeIsUndoneEvenIfEveryLaterOverrideThrows)
{
    // Allows a number of calls, then throws from every call.
    class FailingStream final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::add;
        using ZSCFData_6_0::contains;
        using ZSCFData_6_0::remove;
        using ZSCFData_6_0::set;
        using ZSCFData_6_0::setObfuscated;
        ~FailingStream() noexcept override {}
        void add(char const* category, char const* key, int kind) override
        {
            tick();
            ZSCFData_6_0::add(category, key, kind);
        }
        void set(char const* category, char const* key, char const* value) override
        {
            tick();
            ZSCFData_6_0::set(category, key, value);
        }
        void setObfuscated(char const* category, char const* key, char const* value) override
        {
            tick();
            ZSCFData_6_0::setObfuscated(category, key, value);
        }
        void remove(char const* category, char const* key) override
        {
            tick();
            ZSCFData_6_0::remove(category, key);
        }
        void remove(char const* category) override
        {
            tick();
            ZSCFData_6_0::remove(category);
        }
        int contains(char const* category) const override
        {
            tick();
            return ZSCFData_6_0::contains(category);
        }

        mutable int allowed = INT_MAX;

    private:
        void tick() const
        {
            if (allowed == 0)
                throw std::runtime_error("refused");
            --allowed;
        }
    };
    struct Case {
        char const* name;
        std::function<void(FailingStream&)> change;
    };
    Case const cases[] = {
        {"stanza", [](FailingStream& data) { data.addStanzaLine("new"); }},
        {"value", [](FailingStream& data) { data.addLine("new", "k", "v", 0); }},
        {"obfuscated value", [](FailingStream& data) { data.addLine("new", "k", "v", 1); }},
        {"comment", [](FailingStream& data) { data.addLineComment("new", "k", "# c"); }},
    };
    std::string const text = "# top\n\n[s]\n# k = 1\n\nk = v\n\n[t]\nm = 1\n";
    for (Case const& c : cases) {
        bool isRefused = true;
        for (int allowed = 0; isRefused; ++allowed) {
            SCOPED_TRACE(std::string(c.name) + " " + std::to_string(allowed));
            FailingStream data;
            data.setAttributes(ZPCache_6_0::keepComments, nullptr);
            data.readText("test.conf", text.data(), text.size());
            std::string const before = stateOf(data);
            data.allowed = allowed;
            try {
                c.change(data);
                isRefused = false;
            } catch (std::runtime_error const&) {
                data.allowed = INT_MAX;
                EXPECT_EQ(before, stateOf(data));
                EXPECT_EQ(text, textOf(data));
            }
        }
    }
}

TEST(ZPropertiesImplOverrides, OverrideMayKeepValuesElsewhere)
{
    // The cache itself holds only the lines.
    class Elsewhere final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::add;
        using ZSCFData_6_0::get;
        using ZSCFData_6_0::set;
        ~Elsewhere() noexcept override {}
        void add(char const* category, char const* key, char const* value, int) override
        {
            held_[category][key].push_back(value);
        }
        void set(char const* category, char const* key, char const* value) override
        {
            auto& keys = held_[category];
            if (key != nullptr)
                keys[key] = {value};
        }
        void remove(char const* category, char const* key) override { held_[category].erase(key); }
        void remove(char const* category) override { held_.erase(category); }
        int contains(char const* category) const override { return held_.count(category) != 0; }
        int contains(char const* category, char const* key) const override
        {
            auto const found = held_.find(category);
            return found != held_.end() && found->second.count(key) != 0;
        }
        ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
        {
            list_.removeAll();
            if (type != obfuscatedValues)
                for (std::string const& value : held_[category][key])
                    list_.add(std::make_unique<ZLCString_6_0>(value.c_str()).get());
            return &list_;
        }

    private:
        std::map<std::string, std::map<std::string, Strings>> held_;
        ZArrayList_6_0 list_{4, 1};
    };
    Elsewhere data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    std::string const text = "# c\n\n[a]\nk = 1\nk = 2\n# n = 5\n\nz = 1\n[b]\n";
    data.readText("test.conf", text.data(), text.size());
    EXPECT_EQ(0, data.count());
    EXPECT_EQ(text, textOf(data));
    data.addLine("a", "n", "3", 0);
    data.addLine("a", "k", "4", 0);
    data.addLine("c", "k", "5", 0);
    data.delLine("a", "z");
    data.addLineComment("b", "# of b");
    EXPECT_EQ("# c\n\n[a]\nk = 4\n# n = 5\nn = 3\n\n# of b\n[b]\n\n[c]\nk = 5\n", textOf(data));
    data.delLine("a");
    data.addLine("a", "again", "6", 0);
    EXPECT_EQ("# c\n\n[b]\n\n[c]\nk = 5\n\n[a]\nagain = 6\n", textOf(data));
    data.clear();
    EXPECT_EQ("", textOf(data));
}

TEST(ZPropertiesImplOverrides, ConcealedStanzaIsReadIntoTheExistingStanza)
{
    RecordingCache data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    data.concealed = "a";
    std::string const text = "[a]\nk = 1\n[b]\nk = 1\n[a]\n# c\nx = 2\n";
    data.readText("test.conf", text.data(), text.size());
    data.concealed.clear();
    EXPECT_EQ("[a]\nk = 1\nx = 2\n[b]\nk = 1\n# c\n", textOf(data));
}

TEST(ZPropertiesImplOverrides, DerivedClassSurvivesEveryAllocationFailure)
{
    std::string const torn =
        "[a]\n" + std::string(9000, 'x') + " = 1\nk = " + std::string(9000, 'y') + "=\n# c\n\n";
    for (int step = 0; step < 6; ++step) {
        SCOPED_TRACE(step);
        std::unique_ptr<RecordingCache> data;
        std::string before;
        auto const prepare = [&] {
            data = std::make_unique<RecordingCache>();
            data->setAttributes(ZPCache_6_0::keepComments, nullptr);
            std::string const text = "[s]\nk = 1\n# n = 5\n\n[t]\n";
            data->readText("test.conf", text.data(), text.size());
            before = stateOf(*data);
        };
        prepare();
        failEachAllocationOfSome(
            [&] {
                try {
                    if (step == 0)
                        data->addLine("new", "k", "v", 0);
                    else if (step == 1)
                        data->addLine("s", "n", "v", 0);
                    else if (step == 2)
                        data->addLineComment("s", "new", "# one\n# two");
                    else if (step == 3)
                        data->addLineComment("t", "# one\n# two");
                    else if (step == 4)
                        data->readText("test.conf", "[a]\nk = 1\n# c\n\n", 16);
                    else
                        data->addStanzaLine("new");
                } catch (std::bad_alloc const&) {  // of the record of calls
                    ZOutOfMemoryException_6_0().throwException("test", 1);
                }
            },
            prepare, [&] { EXPECT_EQ(before, stateOf(*data)); }, false);
    }
}
