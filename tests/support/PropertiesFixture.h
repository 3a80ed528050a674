// PropertiesFixture: a configuration store with a directory of its own.
#pragma once

#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZProperties.h>
#include <Z/ZPropertiesImpl.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "TestDirectory.h"

constexpr char kSource[] = "src/Z/ZProperties";

inline ZPCache_6_0* newCache()
{
    auto* const cache = new (std::nothrow) ZSCFData_6_0;
    if (cache == nullptr)
        ZOutOfMemoryException_6_0().throwException("test", 1);
    return cache;
}

// A store over the cache of stanza files.
class Store : public ZProperties_6_0 {
public:
    explicit Store(unsigned long attributes = ZPCache_6_0::keepComments)
        : ZProperties_6_0(newCache())
    {
        setAttributes(attributes, nullptr);
    }
    using ZProperties_6_0::sendChangeNotice;
    using ZProperties_6_0::setFileName;

    std::function<void()> onPostLoad;
    void postLoad(char const* path) override
    {
        loaded = path;
        if (onPostLoad)
            onPostLoad();
    }

    std::string loaded;
};

class Factory final : public ZAbstractPropertiesFactory_6_0 {
public:
    ZProperties_6_0* makePropertiesInstance() override
    {
        ++made;
        auto* const store = new Store;
        store->onPostLoad = onPostLoad;
        if (!madeFor.empty())
            store->load(madeFor.c_str());
        return store;
    }

    std::string madeFor;  // if not empty, a file that the stores load first
    std::atomic<int> made{0};
    std::function<void()> onPostLoad;
};

// Describes the exception of a call in one line.
template <class Call>
std::string thrown(Call call)
{
    try {
        call();
    } catch (ZPropertiesIOException_6_0 const& e) {
        return std::string("io ") + e.propFile().getChars() + " " + e.api().getChars() + " " +
               std::to_string(e.excerrno());
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        return std::string("data ") + e.propFile().getChars() + " " + std::to_string(e.badline()) +
               " " + e.baddata().getChars();
    } catch (ZPropertiesMissingPropertyException_6_0 const& e) {
        return std::string("missing ") + e.propFile().getChars() + " " + e.category().getChars() +
               " " + e.key().getChars();
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        return std::string("value ") + std::to_string(e.messageNumber()) + " " +
               e.propFile().getChars() + " " + e.category().getChars() + " " + e.key().getChars() +
               " " + e.value().getChars();
    } catch (ZException_6_0 const& e) {
        return e.exceptionName();
    }
    return "nothing";
}

inline std::string valueOf(ZProperties_6_0 const& store, char const* category, char const* key)
{
    ZLCString_6_0 value;
    store.getValue(category, key, value, 0, "(none)");
    return value.getChars();
}

// The bytes of a companion file with one record for each triple.
inline std::string compressed(std::vector<std::string> const& triples)
{
    std::string plain;
    for (size_t i = 0; i < triples.size(); i += 3)
        plain += triples[i] + '\0' + triples[i + 1] + '\0' + triples[i + 2] + '\0' + '\0';
    plain.pop_back();
    std::string out(compressBound(plain.size()), '\0');
    uLongf length = out.size();
    compress(reinterpret_cast<Bytef*>(out.data()), &length,
             reinterpret_cast<Bytef const*>(plain.data()), plain.size());
    out.resize(length);
    return out;
}

class PropertiesTest : public testing::Test {
public:
    ~PropertiesTest() noexcept override {}

protected:
    TestDirectory directory_;
    Store store_;

    std::string load(std::string const& text)
    {
        std::string const path = directory_.write("conf", text);
        store_.load(path.c_str());
        return path;
    }
};

constexpr char kText[] =
    "# head\n\n[server]\nport = 80\nname = a\nname = b\nempty =\n\n[client]\n# port = 5\n\nx = 1\n";
