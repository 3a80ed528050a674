#include <Z/zproperties_c.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "PlainFunctionsFixture.h"

namespace {

class ZPropertiesCChanges : public PlainFunctionsTest {
protected:
    std::string text()
    {
        int code = kUntouched;
        Text const text(zstzPropStoreText_6_0(file_, nullptr, &code));
        EXPECT_EQ(0, code);
        return text == nullptr ? "" : text.get();
    }
    std::string stanzas()
    {
        std::string all;
        ZPROP_iter_handle* iterator = nullptr;
        EXPECT_EQ(0, zstzPropIter_initStanzas_6_0(file_, &iterator));
        int code = kUntouched;
        while (zstzPropIter_next_6_0(iterator, &code) == 1)
            all += "[" + textOf(Text(zstzPropIter_getKey_6_0(iterator, &code))) + "]";
        EXPECT_EQ(0, code);
        EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
        return all;
    }
    int setValues(char const* stanza, char const* key, std::vector<char const*> const& values)
    {
        return zstzPropSetStringValues_6_0(file_, stanza, key, values.data(),
                                           static_cast<int>(values.size()));
    }
    int isObfuscated(char const* stanza, char const* key)
    {
        int code = kUntouched;
        int const result = zstzPropIsObfuscated_6_0(file_, stanza, key, &code);
        EXPECT_EQ(0, code);
        return result;
    }
};

std::string replaced(std::string text, std::string const& old, std::string const& with)
{
    size_t const at = text.find(old);
    EXPECT_NE(std::string::npos, at) << old;
    return text.replace(at, old.size(), with);
}

}  // namespace

// ---- Stanzas ------------------------------------------------------------------------------------

TEST_F(ZPropertiesCChanges, StanzasComeInFileOrder)
{
    reopened("[z]\nk = 1\n[b]\n[m m]\n");
    EXPECT_EQ("[z][b][m m]", stanzas());
    EXPECT_EQ(0, zstzPropAddStanza_6_0(file_, "a"));
    EXPECT_EQ(0, zstzPropAddStanza_6_0(file_, "b"));
    EXPECT_EQ("[z][b][m m][a]", stanzas());
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "b"));
    EXPECT_EQ("[z][m m][a]", stanzas());
    EXPECT_EQ(52, zstzPropAddStanza_6_0(file_, "a]"));
    EXPECT_EQ(52, zstzPropAddStanza_6_0(file_, ""));
    EXPECT_EQ(55, zstzPropAddStanza_6_0(file_, nullptr));
}

TEST_F(ZPropertiesCChanges, AnIteratorOverStanzasHasKeysButNoValues)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_initStanzas_6_0(file_, &iterator));
    int code = kUntouched;
    EXPECT_EQ(nullptr, zstzPropIter_getKey_6_0(iterator, &code));
    EXPECT_EQ(57, code);
    EXPECT_EQ(2, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    // The iterator has the stanzas that existed when it was created.
    EXPECT_EQ(0, zstzPropAddStanza_6_0(file_, "new"));
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(nullptr, zstzPropIter_getValue_6_0(iterator, &code));
    EXPECT_EQ(57, code);
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(iterator, &code));
    EXPECT_EQ(57, code);
    EXPECT_EQ(57, zstzPropIter_chgValue_6_0(iterator, "v"));
    EXPECT_EQ(57, zstzPropIter_addValue_6_0(iterator, "v"));
    EXPECT_EQ(57, zstzPropIter_rmvValue_6_0(iterator));
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ("client", textOf(Text(zstzPropIter_getKey_6_0(iterator, &code))));
    std::thread([&] {
        for (IterCall const& call : iterCalls()) {
            SCOPED_TRACE(call.name);
            EXPECT_EQ(57, call.code(iterator));
        }
    }).join();
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    for (IterCall const& call : iterCalls()) {
        SCOPED_TRACE(call.name);
        EXPECT_EQ(55, call.code(iterator));
    }
    EXPECT_EQ(55, zstzPropIter_initStanzas_6_0(file_, nullptr));
}

TEST_F(ZPropertiesCChanges, AStanzaIsRenamedInPlace)
{
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "secret"));
    EXPECT_EQ(0, zstzPropRenameStanza_6_0(file_, "server", "front end"));
    EXPECT_EQ(replaced(kText, "[server]", "[front end]"), text());
    EXPECT_EQ("alpha beta gamma ", values("front end", "host"));
    EXPECT_EQ("code 54", value("server", "port"));
    EXPECT_EQ(0, zstzPropRenameStanza_6_0(file_, "front end", "front end"));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "front end", "new", "1"));
    EXPECT_EQ("1", value("front end", "new"));
    EXPECT_EQ(0, zstzPropRenameStanza_6_0(file_, "front end", "server"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "new"));
    EXPECT_EQ(kText, text());
}

TEST_F(ZPropertiesCChanges, AKeyIsRenamedInPlace)
{
    EXPECT_EQ(0, zstzPropRenameKey_6_0(file_, "server", "host", "upstream host"));
    std::string expected = kText;
    for (int i = 0; i < 3; ++i)
        expected = replaced(expected, "\nhost =", "\nupstream host =");
    EXPECT_EQ(expected, text());
    EXPECT_EQ("alpha beta gamma ", values("server", "upstream host"));
    EXPECT_EQ("code 54", value("server", "host"));
    // The old name is free, and a removed name can be used again.
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "host", "delta"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "host"));
    EXPECT_EQ(0, zstzPropRenameKey_6_0(file_, "server", "upstream host", "host"));
    EXPECT_EQ(kText, text());
}

TEST_F(ZPropertiesCChanges, ARenameIsRefusedWithoutAChange)
{
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "file", "s3"));
    EXPECT_EQ(0, zstzPropAddStanza_6_0(file_, "configuration-database-2"));
    std::string const before = text();
    std::string const tooLong(9000, 'k');
    struct Case {
        char const* name;
        int expected;
        char const* from;
        char const* to;
    };
    Case const keys[] = {{"missing", 54, "none", "k"},
                         {"taken", 52, "port", "host"},
                         {"empty", 52, "port", ""},
                         {"a sign", 52, "port", "a=b"},
                         {"a comment", 52, "port", "#k"},
                         {"a newline", 52, "port", "a\nb"},
                         {"null", 55, "port", nullptr},
                         {"from null", 55, nullptr, "k"},
                         {"long", 52, "port", tooLong.c_str()}};
    for (Case const& c : keys) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, zstzPropRenameKey_6_0(file_, "server", c.from, c.to));
    }
    Case const names[] = {{"missing", 54, "none", "s"},
                          {"taken", 52, "server", "client"},
                          {"empty", 52, "server", ""},
                          {"a bracket", 52, "server", "a]"},
                          {"a newline", 52, "server", "\n"},
                          {"null", 55, "server", nullptr},
                          {"from null", 55, nullptr, "s"},
                          {"long", 52, "server", tooLong.c_str()},
                          {"the companion's entry", 52, "server", "configuration-database"}};
    for (Case const& c : names) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, zstzPropRenameStanza_6_0(file_, c.from, c.to));
    }
    EXPECT_EQ(54, zstzPropRenameKey_6_0(file_, "none", "port", "k"));
    EXPECT_EQ(before, text());
}

TEST_F(ZPropertiesCChanges, ObfuscatedValuesFollowTheirNames)
{
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "client", "pin", "1234"));
    EXPECT_EQ(1, isObfuscated("server", "secret"));
    EXPECT_EQ(1, isObfuscated("server", nullptr));
    EXPECT_EQ(0, isObfuscated("server", "port"));
    EXPECT_EQ(52, zstzPropSetObfuscatedValue_6_0(file_, "server", "port", "1"));
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "server", "secret", "1"));
    // No obfuscated value replaces plain values, and an empty one neither.
    EXPECT_EQ(52, zstzPropSetObfuscatedValue_6_0(file_, "server", "port", nullptr));
    EXPECT_EQ(52, zstzPropSetObfuscatedValue_6_0(file_, "server", "host", ""));
    EXPECT_EQ("8080", value("server", "port"));
    EXPECT_EQ("alpha beta gamma ", values("server", "host"));
    EXPECT_EQ(0, zstzPropRenameKey_6_0(file_, "server", "secret", "token"));
    EXPECT_EQ(0, zstzPropRenameStanza_6_0(file_, "client", "peer"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ(std::string::npos, read("service.conf").find("s3"));
    ASSERT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ("s3", value("server", "token"));
    EXPECT_EQ("1234", value("peer", "pin"));
    EXPECT_EQ(1, isObfuscated("peer", "pin"));
    EXPECT_EQ("code 54", value("server", "secret"));
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropIsObfuscated_6_0(file_, nullptr, "k", &code));
    EXPECT_EQ(kUntouched, code);
}

TEST_F(ZPropertiesCChanges, KeepsRemovingObfuscatedValuesByAnEmptyPlainValue)
{
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "secret", nullptr));
    EXPECT_EQ(0, isObfuscated("server", "secret"));
    EXPECT_EQ("(null)", value("server", "secret"));
}

TEST_F(ZPropertiesCChanges, RandomRenamesAgreeWithTheTextTheyProduce)
{
    std::string text = "# c\n";
    for (int s = 0; s < 8; ++s) {
        text += "\n[s" + std::to_string(s) + "]\n";
        for (int k = 0; k < 8; ++k)
            text += "k" + std::to_string(k) + " = " + std::to_string(s * 10 + k) + "\n";
    }
    reopened(text);
    unsigned seed = 12345;
    auto const next = [&] { return (seed = seed * 1103515245u + 12345u) >> 16; };
    for (int step = 0; step < 2000; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        auto const name = [&](char letter) { return letter + std::to_string(next() % 16); };
        std::string const stanza = name('s');
        std::string const key = name('k');
        bool const isStanza = next() % 4 == 0;
        std::string const to = name(isStanza ? 's' : 'k');
        int const code =
            isStanza ? zstzPropRenameStanza_6_0(file_, stanza.c_str(), to.c_str())
                     : zstzPropRenameKey_6_0(file_, stanza.c_str(), key.c_str(), to.c_str());
        std::string const header = "[" + stanza + "]\n";
        size_t const at = text.find(header);
        size_t const end = at == text.npos ? at : std::min(text.find("\n[", at), text.size());
        std::string const old = isStanza ? header : "\n" + key + " = ";
        std::string const with = isStanza ? "[" + to + "]\n" : "\n" + to + " = ";
        size_t const found = at == text.npos ? at : text.find(old, at);
        if (at == text.npos || found >= end) {
            EXPECT_EQ(54, code);
        } else if (old != with &&
                   (isStanza ? text.find(with) != text.npos : text.find(with, at) < end)) {
            EXPECT_EQ(52, code);
        } else {
            EXPECT_EQ(0, code);
            text.replace(found, old.size(), with);
        }
        EXPECT_EQ(text, this->text());
        if (HasFailure())
            break;
    }
}

// ---- Values -------------------------------------------------------------------------------------

TEST_F(ZPropertiesCChanges, SeveralValuesAreSetInOrder)
{
    EXPECT_EQ(0, setValues("server", "host", {"b", "a", "b"}));
    EXPECT_EQ("b a b ", values("server", "host"));
    EXPECT_EQ(0, setValues("server", "port", {"1", "2"}));
    EXPECT_EQ(0, setValues("new", "k", {"1", "2", "3"}));
    EXPECT_NE(std::string::npos, text().find("\n[new]\nk = 1\nk = 2\nk = 3\n"));
    EXPECT_EQ(0, setValues("server", "host", {"only"}));
    EXPECT_EQ("only ", values("server", "host"));
    EXPECT_EQ(0, setValues("server", "host", {""}));
    EXPECT_EQ("", values("server", "host"));
    EXPECT_EQ(0, setValues("server", "host", {"x", "y"}));
    EXPECT_EQ(0, zstzPropSetStringValues_6_0(file_, "server", "host", nullptr, 0));
    EXPECT_EQ("", values("server", "host"));
    EXPECT_NE(std::string::npos, text().find("host =\n"));
}

TEST_F(ZPropertiesCChanges, InvalidValuesChangeNothing)
{
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    std::string const before = text();
    EXPECT_EQ(52, setValues("server", "host", {"a", ""}));
    EXPECT_EQ(52, setValues("server", "host", {"", "a"}));
    EXPECT_EQ(52, setValues("server", "host", {"a", "b\nc"}));
    EXPECT_EQ(52, setValues("server", "secret", {"a", "b"}));
    EXPECT_EQ(52, setValues("server", "secret", {"a"}));
    EXPECT_EQ(52, setValues("server", "a=b", {"a", "b"}));
    EXPECT_EQ(52, setValues("new", "", {"a", "b"}));
    EXPECT_EQ(55, setValues("server", "host", {"a", nullptr}));
    char const* const one[] = {"a"};
    EXPECT_EQ(55, zstzPropSetStringValues_6_0(file_, "server", "host", one, -1));
    EXPECT_EQ(55, zstzPropSetStringValues_6_0(file_, "server", "host", nullptr, 1));
    EXPECT_EQ(55, zstzPropSetStringValues_6_0(file_, nullptr, "host", one, 1));
    EXPECT_EQ(55, zstzPropSetStringValues_6_0(file_, "server", nullptr, one, 1));
    EXPECT_EQ(52, zstzPropAddStringValue_6_0(file_, "server", "host", ""));
    EXPECT_EQ(52, zstzPropAddStringValue_6_0(file_, "server", "secret", "a"));
    EXPECT_EQ(55, zstzPropAddStringValue_6_0(file_, "server", "host", nullptr));
    EXPECT_EQ(54, zstzPropRemoveValue_6_0(file_, "server", "host", "none"));
    EXPECT_EQ(54, zstzPropRemoveValue_6_0(file_, "server", "none", "a"));
    EXPECT_EQ(54, zstzPropRemoveValue_6_0(file_, "none", "host", "a"));
    EXPECT_EQ(55, zstzPropRemoveValue_6_0(file_, "server", "host", nullptr));
    EXPECT_EQ(before, text());
    EXPECT_EQ("s3", value("server", "secret"));
}

TEST_F(ZPropertiesCChanges, AValueIsAddedOnceAndRemoved)
{
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "server", "host", "delta"));
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "server", "host", "alpha"));
    EXPECT_EQ("alpha beta gamma delta ", values("server", "host"));
    EXPECT_EQ(0, zstzPropRemoveValue_6_0(file_, "server", "host", "beta"));
    EXPECT_EQ("alpha gamma delta ", values("server", "host"));
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "new", "k", "v"));
    EXPECT_EQ("v", value("new", "k"));
    // The key goes with its only value.
    EXPECT_EQ(0, zstzPropRemoveValue_6_0(file_, "server", "port", "8080"));
    EXPECT_EQ("code 54", value("server", "port"));
    EXPECT_EQ(std::string::npos, text().find("port"));
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    EXPECT_EQ(0, zstzPropRemoveValue_6_0(file_, "server", "secret", "s3"));
    EXPECT_EQ(0, isObfuscated("server", nullptr));
}

// ---- Without memory -----------------------------------------------------------------------------

TEST_F(ZPropertiesCChanges, EachFunctionFailsWithoutAChangeIfAnAllocationFails)
{
    std::string const name(200, 'n');
    std::string const other(300, 'v');
    char const* const values[] = {name.c_str(), other.c_str(), "v"};
    ZPROP_iter_handle* iterator = nullptr;
    struct Case {
        char const* name;
        std::function<int()> call;
    };
    Case const cases[] = {
        {"SetStringValues",
         [&] { return zstzPropSetStringValues_6_0(file_, "server", "host", values, 3); }},
        {"SetStringValues of a new key",
         [&] { return zstzPropSetStringValues_6_0(file_, "server", name.c_str(), values, 3); }},
        {"SetStringValues of a new stanza",
         [&] { return zstzPropSetStringValues_6_0(file_, name.c_str(), "k", values, 3); }},
        {"AddStringValue",
         [&] { return zstzPropAddStringValue_6_0(file_, "server", "host", other.c_str()); }},
        {"RemoveValue", [&] { return zstzPropRemoveValue_6_0(file_, "server", "host", "beta"); }},
        {"SetObfuscatedValue",
         [&] { return zstzPropSetObfuscatedValue_6_0(file_, "server", "s", other.c_str()); }},
        {"AddStanza", [&] { return zstzPropAddStanza_6_0(file_, name.c_str()); }},
        {"RenameStanza", [&] { return zstzPropRenameStanza_6_0(file_, "server", name.c_str()); }},
        {"RenameKey", [&] { return zstzPropRenameKey_6_0(file_, "server", "host", name.c_str()); }},
        {"Iter_initStanzas",
         [&] {
             int const code = zstzPropIter_initStanzas_6_0(file_, &iterator);
             EXPECT_EQ(code == 0, iterator != nullptr);
             zstzPropIter_close_6_0(iterator);
             return code;
         }},
        {"SetObserver",
         [&] {
             return zstzPropSetObserver_6_0(
                 file_, [](int, char const*, char const*, void*) {}, nullptr);
         }},
    };
    for (Case const& c : cases) {
        int failures = 0;
        for (unsigned long n = 1;; ++n) {
            SCOPED_TRACE(std::string(c.name) + ", allocation " + std::to_string(n));
            ASSERT_EQ(0, zstzPropSetObserver_6_0(file_, nullptr, nullptr));
            ASSERT_EQ(0, zstzPropReload_6_0(file_));
            FailingAllocator::failAt(n);
            int const code = c.call();
            bool const failed = FailingAllocator::stop();
            if (code != 0) {
                ++failures;
                EXPECT_EQ(52, code);
                EXPECT_EQ(kText, text());
                EXPECT_EQ("[server][client]", stanzas());
            }
            if (!failed || HasFailure())
                break;
        }
        EXPECT_GE(failures, 1) << c.name;
    }
    EXPECT_EQ(0, zstzPropSetObserver_6_0(file_, nullptr, nullptr));
}
