// Compares a store of a stanza file with a slow model, for random changes through the store and its
// iterators. In between the file is stored and read again.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesKVList.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Sanitizers.h"
#include "StanzaStore.h"
#include "StoreModel.h"
#include "TestDirectory.h"

namespace {

// A sanitizer build is ten times slower, and needs fewer sequences.
constexpr unsigned long kSequences = kHasSanitizer ? 4000 : 100000;

// Few names, so that changes interact; some of them are invalid in a file.
char const* const kStanzas[] = {"a", "b", "net", "net work", "a", "b", "x]", ""};
char const* const kKeys[] = {"k", "key", "port", "k y", "z", "k", "key", "#k", "a=b", " k", ""};
char const* const kValues[] = {"1",   "2",           "two words", "x=y", "[z]", "# none",
                               "yes", " in spaces ", "",          "",    "1",   "two\nlines"};
char const* const kComments[] = {"# k = 5", "plain text", "#port=", "",      "# one\ntwo = 2",
                                 "[a]",     "k = 7",      "#z=1\n", "#k y=", " # key = 9"};
char const* const kLines[] = {"k = a",   "k = b",  "key=",    "  port =  80  ", "z = 1",
                              "",        "",       "# k = 5", "#port=",         "# words",
                              "k y = 1", "#key=1", "k=",      "\tz\t=\t2\t",    "# k y = 3"};
char const* const kBadLines[] = {"no sign", "= value", "[open", "[a]"};

// The name of the exception for each outcome.
char const* const kOutcomes[] = {"", "ZInvalidParameterException", "ZPropertiesIteratorException",
                                 "ZPropertiesInvalidDataException", "ZPropertiesIOException"};

class Sequence {
public:
    Sequence(uint64_t seed, TestDirectory const& directory)
        : random_(seed), directory_(directory), path_(directory.at("conf")), model_(path_)
    {
    }

    void run(unsigned changes)
    {
        unlink(path_.c_str());
        unlink((path_ + ".obf").c_str());
        keepsComments_ = !oneIn(5);
        store_ = std::make_unique<ZStanzaFileProperties_6_0>(keepsComments_ ? 1 : 0);
        store_->addObserver(&observer_);
        if (oneIn(3)) {
            note("store");
            store_->store(path_.c_str());
        } else {
            model_.text = randomText();
            note("text <<" + model_.text + ">>");
            directory_.write("conf", model_.text);
            load();
        }
        for (unsigned i = 0; i < changes && !testing::Test::HasFailure(); ++i)
            change();
        compare();
    }

private:
    using Outcome = StoreModel::Outcome;

    bool oneIn(unsigned n) { return random_() % n == 0; }

    template <size_t Size>
    std::string oneOf(char const* const (&texts)[Size])
    {
        return texts[random_() % Size];
    }

    void note(std::string const& what) { log_ += what + "\n"; }

    std::string randomText()
    {
        std::string text;
        for (unsigned i = random_() % 3; i > 0; --i)
            text += oneIn(2) ? "# head\n" : "\n";
        for (char const* stanza : {"a", "net", "b"}) {
            if (oneIn(2))
                continue;
            text += "[" + std::string(stanza) + "]\n";
            for (unsigned i = random_() % 6; i > 0; --i)
                text += oneOf(kLines) + (oneIn(6) ? "\r\n" : "\n");
            if (oneIn(40))
                text += oneOf(kBadLines) + "\n";
        }
        return text;
    }

    // Runs `call`, and expects the exception that the model predicts.
    template <class Call>
    void expect(Outcome outcome, Call call)
    {
        std::string raised;
        try {
            call();
        } catch (ZException_6_0 const& e) {
            raised = e.exceptionName();
        }
        EXPECT_EQ(kOutcomes[outcome], raised) << log_;
    }

    void load()
    {
        bool const inPlace = store_->fileName().isEmpty() || !oneIn(3);
        note(inPlace ? "reload" : "load");
        CacheModel::Refusal expected;
        CacheModel::Refusal actual;
        Outcome const outcome = model_.load(inPlace, keepsComments_, expected);
        expect(outcome, [&] {
            try {
                if (inPlace)
                    store_->reload(path_.c_str());
                else
                    store_->load(nullptr);
            } catch (ZPropertiesInvalidDataException_6_0 const& e) {
                actual = {e.badline(), e.baddata().getChars()};
                throw;
            }
        });
        EXPECT_EQ(expected.line, actual.line) << log_;
        EXPECT_EQ(expected.text, actual.text) << log_;
        if (outcome != StoreModel::done && store_->fileName().isEmpty()) {
            // The first file that can be read sets the file name.
            model_.store();
            store_->store(path_.c_str());
        }
    }

    void change()
    {
        std::string const stanza = oneOf(kStanzas);
        std::string const key = oneOf(kKeys);
        std::string const value = oneOf(kValues);
        std::string const comment = oneOf(kComments);
        bool const obfuscated = oneIn(3);
        char const* const s = stanza.c_str();
        char const* const k = key.c_str();
        std::string const names = " " + stanza + " / " + key;
        std::string const hidden = obfuscated ? " obfuscated" : "";
        switch (random_() % 24) {
            default:
                note("set" + names + " / " + value + hidden);
                expect(model_.set(stanza, key, value, obfuscated), [&] {
                    if (oneIn(2))
                        store_->setValue(s, k, value.c_str(), obfuscated);
                    else
                        store_->setValue(s, k, ZUTF8String_6_0(value.c_str()), obfuscated);
                });
                break;
            case 5:
                note("set number" + names);
                expect(model_.set(stanza, key, "4294967295", false),
                       [&] { store_->setIntegerValue(s, k, 4294967295u); });
                break;
            case 6:
            case 7:
            case 8: {
                std::vector<std::string> texts;
                ZArrayList_6_0 list(2, 1);
                for (unsigned i = random_() % 4; i > 0; --i) {
                    texts.push_back(oneOf(kValues));
                    list.addNoCopy(new ZLCString_6_0(texts.back().c_str()));
                    note("to add: " + texts.back());
                }
                note("add" + names + hidden);
                expect(model_.add(stanza, key, texts, obfuscated),
                       [&] { store_->addValues(s, k, list, obfuscated); });
                break;
            }
            case 9:
            case 10:
                note("delete" + names);
                expect(model_.deleteKey(stanza, key), [&] { store_->deleteKey(s, k); });
                break;
            case 11:
                note("add stanza " + stanza);
                expect(model_.addStanza(stanza), [&] { store_->addStanza(s); });
                break;
            case 12: {
                std::string const gone = oneIn(4) ? StoreModel::kReserved : stanza;
                note("delete stanza " + gone);
                expect(model_.deleteStanza(gone), [&] { store_->deleteStanza(gone.c_str()); });
                break;
            }
            case 13:
                note("comment file: " + comment);
                expect(model_.addFileComment(comment),
                       [&] { store_->addFileComment(comment.c_str()); });
                break;
            case 14:
                note("comment " + stanza + ": " + comment);
                expect(model_.addStanzaComment(stanza, comment),
                       [&] { store_->addStanzaComment(s, comment.c_str()); });
                break;
            case 15:
                note("comment" + names + ": " + comment);
                expect(model_.addEntryComment(stanza, key, comment),
                       [&] { store_->addEntryComment(s, k, comment.c_str()); });
                break;
            case 16:
            case 17:
            case 18:
                iterate(stanza, key);
                break;
            case 19:
                storeFile();
                break;
            case 20:
                if (oneIn(2))
                    load();
                break;
            case 21:
                if (oneIn(8)) {
                    note("copy");
                    store_ = std::make_unique<ZStanzaFileProperties_6_0>(*store_);
                    store_->addObserver(&observer_);
                }
                break;
        }
        EXPECT_EQ(model_.told, observer_.log) << log_;
        EXPECT_EQ(model_.isModified ? 1 : 0, store_->isModified()) << log_;
        if (!stanza.empty() && !key.empty())
            compareKey(stanza, key);
        if (oneIn(16))
            compare();
    }

    // Visits and changes the values of a key through an iterator.
    void iterate(std::string const& stanza, std::string const& key)
    {
        int const kind = static_cast<int>(random_() % 3);
        ZPropertyStringType const type = oneIn(2) ? zPropLocalStrings : zPropUTF8Strings;
        note("iterate " + stanza + " / " + key + " kind " + std::to_string(kind));
        StoreModel::Values expected(model_, stanza, key, kind);
        std::unique_ptr<ZStanzaValueIterator_6_0> values;
        expect(expected.outcome(), [&] {
            values = std::make_unique<ZStanzaValueIterator_6_0>(
                *store_, stanza.c_str(), key.c_str(), type, static_cast<ZPropIter_valtype>(kind));
        });
        if (values == nullptr)
            return;
        for (unsigned i = 1 + random_() % 6; i > 0 && !testing::Test::HasFailure(); --i) {
            ASSERT_EQ(expected.hasMore() ? 1 : 0, values->hasMore()) << log_;
            ASSERT_EQ(expected.isValid() ? 1 : 0, values->isValid()) << log_;
            ASSERT_EQ(expected.count(), values->valueCount()) << log_;
            std::string const value = oneOf(kValues);
            switch (random_() % 8) {
                default: {
                    note(" next");
                    std::string text;
                    char const* chars = "";
                    expect(expected.next(text), [&] { values->nextValue(chars); });
                    EXPECT_EQ(text, chars) << log_;
                    break;
                }
                case 4:
                    note(" change to " + value);
                    expect(expected.change(value), [&] { values->changeValue(value.c_str()); });
                    break;
                case 5:
                case 6:
                    note(" add " + value);
                    expect(expected.add(value), [&] { values->addValue(value.c_str()); });
                    break;
                case 7:
                    note(" remove");
                    expect(expected.remove(), [&] { values->removeValue(); });
                    break;
            }
        }
    }

    void storeFile()
    {
        note("store");
        model_.store();
        store_->store(nullptr);
        EXPECT_EQ(model_.text, directory_.read("conf")) << log_;
        EXPECT_EQ(model_.companion.empty() ? "conf" : "conf conf.obf", directory_.names()) << log_;
        if (oneIn(2)) {
            note("read back");
            CacheModel::Refusal refusal;
            EXPECT_EQ(StoreModel::done, model_.load(true, keepsComments_, refusal)) << log_;
            store_->reload(nullptr);
        }
    }

    void compareKey(std::string const& stanza, std::string const& key)
    {
        char const* const s = stanza.c_str();
        char const* const k = key.c_str();
        CacheModel::Key const* const expected = model_.cache.find(stanza, key);
        ASSERT_EQ(expected != nullptr, store_->exists(s, k) != 0) << log_;
        bool const isHidden = expected != nullptr && !expected->obfuscated.empty();
        ASSERT_EQ(isHidden, store_->isObfuscated(s, k) != 0) << log_;
        std::vector<std::string> values;
        if (expected != nullptr)
            values = expected->plain.empty() ? expected->obfuscated : expected->plain;
        std::string joined;
        for (std::string const& value : values)
            joined += value + ",";
        ASSERT_EQ(joined, valuesOf(*store_, s, k)) << log_;
        ASSERT_EQ(static_cast<int>(values.size()), store_->numValues(s, k)) << log_;
        ZLCString_6_0 last;
        store_->getValue(s, k, last, 0, "(none)");
        ASSERT_EQ(values.empty() ? "(none)" : values.back(), last.getChars()) << log_;
    }

    void compare()
    {
        std::unique_ptr<ZArrayList_6_0> const stanzas(store_->categoryNames());
        ASSERT_EQ(CacheModel::inMapOrder(model_.cache.categories), strings(*stanzas)) << log_;
        ASSERT_EQ(static_cast<int>(model_.cache.categories.size()), store_->count()) << log_;
        for (CacheModel::Category const& stanza : model_.cache.categories) {
            char const* const s = stanza.name.c_str();
            std::vector<std::string> const keys = CacheModel::inMapOrder(stanza.keys);
            std::unique_ptr<ZArrayList_6_0> const names(store_->getKeys(s));
            ASSERT_EQ(keys, strings(*names)) << log_;
            ASSERT_EQ(static_cast<int>(keys.size()), store_->count(s)) << log_;
            ZPropertiesKVList_6_0 list(zPropLocalStrings);
            store_->getStanza(s, list);
            ASSERT_EQ(static_cast<int>(keys.size()), list.getItemCount()) << log_;
            ZStanzaIterator_6_0 iterator(*store_, s);
            for (size_t i = 0; i < keys.size(); ++i) {
                compareKey(stanza.name, keys[i]);
                iterator.nextEntry();
                compareEntry(iterator, *model_.cache.find(stanza.name, keys[i]),
                             list.getItemValue(static_cast<int>(i))->getChars());
            }
            ASSERT_EQ(0, iterator.hasMore()) << log_;
        }
    }

    // Compares the current key of a key iterator, with its values in any order.
    void compareEntry(ZStanzaIterator_6_0 const& iterator, CacheModel::Key const& key,
                      std::string const& listed)
    {
        std::vector<std::string> const& values = key.plain.empty() ? key.obfuscated : key.plain;
        ASSERT_EQ(key.name, iterator.entryName()) << log_;
        ASSERT_EQ(static_cast<int>(values.size()), iterator.valueCount()) << log_;
        ASSERT_EQ(values.empty() ? "" : values.front(), listed) << log_;
        for (size_t i = 0; i < 2 * values.size(); ++i) {
            size_t const at = i < values.size() ? i : random_() % values.size();
            ASSERT_EQ(values[at], iterator.entryValue(static_cast<int>(at))) << log_;
        }
        if (values.empty()) {
            ASSERT_EQ(nullptr, iterator.entryValue(0)) << log_;
        }
    }

    static std::vector<std::string> strings(ZArrayList_6_0 const& list)
    {
        std::vector<std::string> texts;
        for (unsigned i = 0; i < list.size(); ++i)
            texts.push_back(static_cast<ZLCString_6_0 const*>(list.get(i))->getChars());
        return texts;
    }

    std::mt19937_64 random_;
    TestDirectory const& directory_;
    std::string const path_;
    bool keepsComments_ = true;
    StoreModel model_;
    NotedChanges observer_;
    std::unique_ptr<ZStanzaFileProperties_6_0> store_;
    std::string log_;
};

uint64_t firstSeed()
{
    char const* const given = getenv("Z_TEST_SEED");
    return given == nullptr ? 20260602 : strtoull(given, nullptr, 10);
}

}  // namespace

TEST(StanzaModel, RandomChangesThroughTheStoreMatchTheModel)
{
    uint64_t const seed = firstSeed();
    std::cout << "seed " << seed << ", " << kSequences << " sequences\n";
    TestDirectory const directory(TestDirectory::Place::memory);
    for (unsigned long i = 0; i < kSequences; ++i) {
        SCOPED_TRACE("sequence " + std::to_string(i) + ", Z_TEST_SEED=" + std::to_string(seed));
        Sequence(seed + i, directory).run(4 + i % 12);
        ASSERT_FALSE(HasFailure());
    }
}
