// StanzaStore: the observer, the reader and the fixture of tests of configuration stores.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "TestDirectory.h"

// An observer that records each change as "2[stanza]key " and then runs `action`.
class NotedChanges final : public ZObserverInterface_6_0 {
public:
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        auto const& change = dynamic_cast<ZPropertyChanged_6_0 const&>(parm);
        EXPECT_EQ(0, change.style());
        log += std::to_string(change.type()) + "[" + change.category().getChars() + "]" +
               change.key().getChars() + " ";
        if (action)
            action();
    }

    std::string log;
    std::function<void()> action;
};

// Returns the values of a key, each followed by a comma.
inline std::string valuesOf(ZProperties_6_0 const& store, char const* category, char const* key)
{
    ZArrayList_6_0 values(1, 1);
    store.getValues(category, key, values, zPropLocalStrings);
    std::string all;
    for (unsigned i = 0; i < values.size(); ++i)
        all += std::string(static_cast<ZLCString_6_0*>(values.get(i))->getChars()) + ",";
    return all;
}

// A store that keeps comments, and a file for it.
class StanzaStoreTest : public testing::Test {
public:
    ~StanzaStoreTest() noexcept override {}

protected:
    std::string load(std::string const& text)
    {
        std::string const path = directory_.write("conf", text);
        store_.load(path.c_str());
        return path;
    }

    // Stores the store and returns the text of its file.
    std::string stored()
    {
        store_.store(nullptr);
        return directory_.read("conf");
    }

    // Stores the store and returns the values of the key in another store that loads the file.
    std::string readBack(char const* category, char const* key)
    {
        store_.store(nullptr);
        ZStanzaFileProperties_6_0 const fresh(directory_.at("conf").c_str(), 1);
        return valuesOf(fresh, category, key);
    }

    TestDirectory directory_{TestDirectory::Place::memory};
    ZStanzaFileProperties_6_0 store_{1};
};
