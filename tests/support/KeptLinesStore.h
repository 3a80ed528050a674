// KeptLinesStore: a fixture for tests of stores that keep lines, which compare the file byte for
// byte.
#pragma once

#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "StanzaStore.h"

using Store = ZStanzaFileProperties_6_0;

// A change of a store, and the text before and after it.
struct Change {
    char const* name;
    std::string before;
    std::function<void(Store&)> change;
    std::string after;
};

class KeptLines : public StanzaStoreTest {
protected:
    KeptLines() { store_.setAttributes(ZPCache_6_0::keepLines, nullptr); }

    void expectChanges(std::vector<Change> const& changes)
    {
        for (Change const& c : changes) {
            SCOPED_TRACE(c.name);
            std::string const path = directory_.write("conf", c.before);
            Store store(0);
            store.setAttributes(ZPCache_6_0::keepLines, nullptr);
            store.load(path.c_str());
            c.change(store);
            ASSERT_NO_THROW(store.store(nullptr));
            EXPECT_EQ(c.after, directory_.read("conf"));
            // The file reads as the store's values.
            Store const fresh(path.c_str(), 1);
            std::unique_ptr<ZArrayList_6_0> const stanzas(store.categoryNames());
            ASSERT_EQ(store.count(), fresh.count());
            for (unsigned i = 0; i < stanzas->size(); ++i) {
                auto const& stanza = static_cast<ZLCString_6_0 const&>(*stanzas->get(i));
                std::unique_ptr<ZArrayList_6_0> const keys(store.keyNames(stanza.getChars()));
                for (unsigned k = 0; k < keys->size(); ++k) {
                    auto const& key = static_cast<ZLCString_6_0 const&>(*keys->get(k));
                    EXPECT_EQ(valuesOf(store, stanza.getChars(), key.getChars()),
                              valuesOf(fresh, stanza.getChars(), key.getChars()));
                }
            }
            // A second store has nothing to change.
            store.setModified();
            store.store(nullptr);
            EXPECT_EQ(c.after, directory_.read("conf"));
        }
    }

    timespec changeTime() const
    {
        struct stat status = {};
        stat(directory_.at("conf").c_str(), &status);
        return status.st_ctim;
    }
};

inline std::function<void(Store&)> setTo(char const* key, char const* value)
{
    return [=](Store& store) { store.setValue("s", key, value); };
}

// Replaces all values through the list that the iterators use.
inline std::function<void(Store&)> setAll(char const* key, std::vector<char const*> const& values)
{
    return [=](Store& store) {
        ZStanzaValueIterator_6_0 iterator(store, "s", key, zPropLocalStrings, zPropIterPlain);
        size_t i = 0;
        while (iterator.hasMore()) {
            iterator.nextValue();
            if (i < values.size())
                iterator.changeValue(values[i++]);
            else
                iterator.removeValue();
        }
        while (i < values.size())
            iterator.addValue(values[i++]);
    };
}

inline std::function<void(Store&)> removeKey(char const* key)
{
    return [=](Store& store) { store.deleteKey("s", key); };
}

// A cache of a caller's class, whose overrides see every value that is read or written.
class CountingCache : public ZSCFData_6_0 {
public:
    using ZSCFData_6_0::add;
    using ZSCFData_6_0::get;

    ZPCache_6_0* clone() const override { return new CountingCache(*this); }

    void add(char const* category, char const* key, char const* value, int obfuscated) override
    {
        ZSCFData_6_0::add(category, key, value, obfuscated);
        ++adds;
    }

    ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
    {
        ++gets;
        return ZSCFData_6_0::get(category, key, type);
    }

    int adds = 0;
    int gets = 0;
};
