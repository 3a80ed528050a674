// Compares a cache with a slow model, for random files and random changes. Also tests huge
// contents.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZSqueeze.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "CacheModel.h"
#include "Sanitizers.h"

namespace {

// A sanitizer build is ten times slower, and needs fewer sequences.
constexpr unsigned long kSequences = kHasSanitizer ? 5000 : 100000;
constexpr unsigned long kLongSequences = kHasSanitizer ? 10 : 100;

// Few names, so that changes interact: some are prefixes of others, some share a bucket, one
// contains a space and one an equal sign.
char const* const kCategories[] = {"a", "b", "net", "net work", "", "configuration-database"};
char const* const kKeys[] = {"k", "key", "ke", "port", "k y", "a=b", "file", "#k", "z"};
char const* const kValues[] = {"", "1", "two words", "x=y", "[z]", "# no comment"};
char const* const kComments[] = {
    "# k = 5",    "#key=",       "#ke y = 1", "# port=", "# plain text",   "#k y=2",
    "##k=",       "# a = b = 3", "#",         "#\tk=",   "# one\ntwo = 2", "#z=1\n\n# k=2\n",
    "no sign k=", " # port = 9", "#po rt=1"};
char const* const kLines[] = {"k = a",    "k = b",       "key=",   "  port =  80  ",
                              "ke=1",     "z = 1",       "",       "",
                              "   ",      "# k = 5",     "#port=", "# words",
                              "#key = 1", "#z=",         "a=b=c",  "k y = 1",
                              "#ke=1",    "file = /x/y", "#k=",    "\tz\t=\t2\t"};
char const* const kBadLines[] = {"no sign", "= value", "[open", "[a]", "[net]"};

// A class of a caller without overrides: its operations call the virtual value operations.
class DerivedData final : public ZSCFData_6_0 {
public:
    ZPCache_6_0* clone() const override { return new DerivedData(*this); }
    ZPCache_6_0* makeEmpty() const override
    {
        auto* const made = new DerivedData;
        made->setAttributes(attributes(), attributeArgument());
        return made;
    }
};

class Sequence {
public:
    explicit Sequence(uint64_t seed, bool isDerived = false) : random_(seed), isDerived_(isDerived)
    {
    }

    void run(unsigned changes)
    {
        if (isDerived_)
            data_ = std::make_unique<DerivedData>();
        else
            data_ = std::make_unique<ZSCFData_6_0>();
        bool const keeps = !oneIn(4);
        data_->setAttributes(keeps ? ZPCache_6_0::keepComments : 0ul, nullptr);
        if (!oneIn(5))
            read();
        for (unsigned i = 0; i < changes && !testing::Test::HasFailure(); ++i)
            change();
        compare();
        log_.clear();
    }

    std::string const& log() const { return log_; }

private:
    bool oneIn(unsigned n) { return random_() % n == 0; }

    template <size_t Size>
    char const* oneOf(char const* const (&texts)[Size])
    {
        return texts[random_() % Size];
    }

    void note(std::string const& what) { log_ += what + "\n"; }

    std::string randomText()
    {
        std::string text;
        unsigned const stanzas = random_() % 4;
        for (unsigned i = random_() % 3; i > 0; --i)
            text += std::string(oneIn(2) ? oneOf(kComments) : "") + "\n";
        if (text.find("no sign") != std::string::npos || text.find("two") != std::string::npos)
            text.clear();
        for (unsigned s = 0; s < stanzas; ++s) {
            text += "[" + std::string(oneOf(kCategories)) + "]" + (oneIn(8) ? " tail" : "") + "\n";
            for (unsigned i = random_() % 8; i > 0; --i)
                text += std::string(oneOf(kLines)) + (oneIn(6) ? "\r\n" : "\n");
            if (oneIn(30))
                text += std::string(oneOf(kBadLines)) + "\n";
        }
        if (oneIn(5) && !text.empty())
            text.pop_back();
        return text;
    }

    void read()
    {
        std::string const text = randomText();
        note("read <<" + text + ">>");
        CacheModel::Refusal const expected =
            model_.read(text, (data_->attributes() & ZPCache_6_0::keepComments) != 0);
        CacheModel::Refusal actual;
        try {
            data_->readText("model.conf", text.data(), text.size());
        } catch (ZPropertiesInvalidDataException_6_0 const& refusal) {
            actual = {refusal.badline(), refusal.baddata().getChars()};
        }
        EXPECT_EQ(expected.line, actual.line) << log_;
        EXPECT_EQ(expected.text, actual.text) << log_;
    }

    void change()
    {
        std::string const category = oneOf(kCategories);
        std::string const key = oneOf(kKeys);
        std::string const value = oneOf(kValues);
        std::string const text = oneOf(kComments);
        bool const obfuscated = oneIn(4);
        char const* const c = category.c_str();
        char const* const k = key.c_str();
        char const* const v = value.c_str();
        std::string const names = " " + category + " / " + key;
        switch (random_() % 24) {
            case 0:
                note("add" + names + " / " + value + (obfuscated ? " obfuscated" : ""));
                data_->add(c, k, v, obfuscated);
                model_.add(category, key, value, obfuscated);
                break;
            case 1:
                note("set" + names + " / " + value + (obfuscated ? " obfuscated" : ""));
                if (obfuscated)
                    data_->setObfuscated(c, k, v);
                else
                    data_->set(c, k, v);
                model_.set(category, key, value, obfuscated);
                break;
            case 2:
                note("remove" + names);
                data_->remove(c, k);
                model_.remove(category, key);
                break;
            case 3:
                if (oneIn(3)) {
                    note("remove " + category);
                    data_->remove(c);
                    model_.remove(category);
                }
                break;
            case 4:
                note("addStanzaLine " + category);
                data_->addLine(c, nullptr, 0);
                model_.addStanzaLine(category);
                break;
            case 5:
            case 6:
            case 7:
                note("delLine" + names);
                data_->delLine(c, k);
                model_.delLine(category, key);
                break;
            case 8:
                if (oneIn(2)) {
                    note("delLine " + category);
                    data_->delLine(c);
                    model_.delStanzaLine(category);
                }
                break;
            case 9:
                note("addFileComment " + text);
                data_->addFileComment(text.c_str());
                model_.addFileComment(text);
                break;
            case 10:
                note("addStanzaComment " + category + ": " + text);
                data_->addLineComment(c, text.c_str());
                model_.addStanzaComment(category, text);
                break;
            case 11:
            case 12:
            case 13:
                note("addLineComment" + names + ": " + text);
                data_->addLineComment(c, k, text.c_str());
                model_.addLineComment(category, key, text);
                break;
            case 14:
                changeList(category, key);
                break;
            case 15:
                if (oneIn(4))
                    exchange();
                break;
            case 16:
                if (oneIn(4))
                    read();
                break;
            case 17:
                if (oneIn(10)) {
                    note("clear");
                    data_->clear();
                    model_ = CacheModel();
                }
                break;
            default:
                note("addLine" + names + " / " + value + (obfuscated ? " obfuscated" : ""));
                data_->addLine(c, k, v, obfuscated);
                model_.addLine(category, key, value, obfuscated);
                break;
        }
        if (oneIn(16))
            compare();
    }

    // Changes a list that the cache has returned.
    void changeList(std::string const& category, std::string const& key)
    {
        bool const obfuscated = oneIn(3);
        ZArrayList_6_0* const list =
            data_->get(category.c_str(), key.c_str(),
                       obfuscated ? ZPCache_6_0::obfuscatedValues : ZPCache_6_0::plainValues);
        CacheModel::Key* const entry = model_.find(category, key);
        ASSERT_EQ(entry == nullptr, list == nullptr) << log_;
        if (list == nullptr)
            return;
        std::vector<std::string>& values = obfuscated ? entry->obfuscated : entry->plain;
        unsigned const at = static_cast<unsigned>(random_() % (values.size() + 1));
        std::string const value = oneOf(kValues);
        ZLCString_6_0 const string(value.c_str());
        bool const isInside = at < values.size();
        unsigned const what = random_() % 4;
        note("list " + category + " / " + key + " change " + std::to_string(what) + " at " +
             std::to_string(at) + " to " + value);
        if (what == 0 && !(obfuscated && values.empty())) {
            list->add(at, &string);
            values.insert(values.begin() + at, value);
        } else if (what == 1 && isInside) {
            list->set(at, &string);
            values[at] = value;
        } else if (what == 2 && isInside) {
            list->remove(at);
            values.erase(values.begin() + at);
        }
    }

    // Continues with a copy, or with a new cache after swapping the contents.
    void exchange()
    {
        if (oneIn(2)) {
            note("clone");
            data_.reset(static_cast<ZSCFData_6_0*>(data_->clone()));
        } else {
            note("swap");
            std::unique_ptr<ZSCFData_6_0> other(static_cast<ZSCFData_6_0*>(data_->makeEmpty()));
            EXPECT_EQ(1, other->swapContents(*data_));
            EXPECT_EQ(0, data_->count());
            data_.swap(other);
        }
    }

    static std::vector<std::string> strings(ZArrayList_6_0 const& list)
    {
        std::vector<std::string> texts;
        for (unsigned i = 0; i < list.size(); ++i)
            texts.push_back(static_cast<ZLCString_6_0 const*>(list.get(i))->getChars());
        return texts;
    }

    std::vector<std::string> valuesOf(char const* category, char const* key,
                                      ZPCache_6_0::get_type_e type)
    {
        std::vector<std::string> texts;
        ZPCategoryBasedCache_6_0::Values values = data_->values(category, key, type);
        EXPECT_GE(values.count(), 0) << log_;
        ZPCategoryBasedCache_6_0::Text text;
        ZPCategoryBasedCache_6_0::Text last{"", 0};
        EXPECT_EQ(values.count() > 0, values.last(last)) << log_;
        while (values.next(text)) {
            EXPECT_EQ(text.length, strlen(text.chars)) << log_;
            texts.emplace_back(text.chars, text.length);
        }
        EXPECT_EQ(static_cast<size_t>(values.count()), texts.size()) << log_;
        if (!texts.empty()) {
            EXPECT_EQ(texts.back(), std::string(last.chars, last.length)) << log_;
        }
        return texts;
    }

    void compare()
    {
        ZArrayList_6_0 lines(10, 1);
        data_->getLines(lines);
        ASSERT_EQ(model_.lines.size(), lines.size()) << log_;
        for (unsigned i = 0; i < lines.size(); ++i) {
            auto const* const line = static_cast<ZPropLine_6_0 const*>(lines.get(i));
            ASSERT_EQ(static_cast<unsigned>(model_.lines[i].type), line->type()) << i << "\n"
                                                                                 << log_;
            ASSERT_EQ(model_.lines[i].text, line->text().getChars()) << i << "\n" << log_;
        }
        ZBuffer_6_0 text;
        data_->writeText(text);
        ASSERT_EQ(model_.text(),
                  std::string(static_cast<char const*>(text.getBuffer()), text.getLength()))
            << log_;

        ZArrayList_6_0 names(10, 1);
        data_->getNames(names);
        ASSERT_EQ(CacheModel::inMapOrder(model_.categories), strings(names)) << log_;
        ASSERT_EQ(static_cast<int>(model_.categories.size()), data_->count()) << log_;
        for (CacheModel::Category const& category : model_.categories) {
            char const* const c = category.name.c_str();
            std::unique_ptr<ZArrayList_6_0> const keys(data_->getNames(c));
            ASSERT_NE(nullptr, keys) << log_;
            ASSERT_EQ(CacheModel::inMapOrder(category.keys), strings(*keys)) << log_;
            ASSERT_EQ(static_cast<int>(category.keys.size()), data_->keyCount(c)) << log_;
            for (CacheModel::Key const& key : category.keys) {
                char const* const k = key.name.c_str();
                ASSERT_EQ(key.plain, valuesOf(c, k, ZPCache_6_0::plainValues)) << log_;
                ASSERT_EQ(key.obfuscated, valuesOf(c, k, ZPCache_6_0::obfuscatedValues)) << log_;
                ASSERT_EQ(key.plain.empty() && !key.obfuscated.empty() ? key.obfuscated : key.plain,
                          valuesOf(c, k, ZPCache_6_0::anyValues))
                    << log_;
            }
        }
        ZArrayList_6_0 items(10, 1);
        data_->getObfuscatedItems(items);
        ASSERT_EQ(model_.items.size(), items.size()) << log_;
        for (unsigned i = 0; i < items.size(); ++i) {
            auto const* const item = static_cast<ZObfuscatedItem_6_0 const*>(items.get(i));
            ASSERT_EQ(model_.items[i].first, item->category().getChars()) << log_;
            ASSERT_EQ(model_.items[i].second, item->key().getChars()) << log_;
        }
        ASSERT_EQ(model_.companion, data_->companionFile().getChars()) << log_;
    }

    std::mt19937_64 random_;
    bool const isDerived_;
    std::unique_ptr<ZSCFData_6_0> data_;
    CacheModel model_;
    std::string log_;
};

uint64_t firstSeed()
{
    char const* const given = getenv("Z_TEST_SEED");
    return given == nullptr ? 20260601 : strtoull(given, nullptr, 10);
}

// Limits the process to `bytes` of additional address space in this scope.
class SpaceLimit {
public:
    explicit SpaceLimit(size_t bytes)
    {
        size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        getrlimit(RLIMIT_AS, &before_);
        rlimit const limit = {pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + bytes,
                              before_.rlim_max};
        setrlimit(RLIMIT_AS, &limit);
    }
    SpaceLimit(SpaceLimit const&) = delete;
    SpaceLimit& operator=(SpaceLimit const&) = delete;
    ~SpaceLimit() { setrlimit(RLIMIT_AS, &before_); }

private:
    rlimit before_ = {};
};

// A string of `size` times 'n'. It uses little memory, because the same page range is mapped
// repeatedly.
class EndlessText {
public:
    explicit EndlessText(size_t size)
        : file_(memfd_create("text", MFD_CLOEXEC)),
          size_((size + kPiece) / kPiece * kPiece),
          chars_(static_cast<char*>(
              mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        std::string const piece(kPiece, 'n');
        EXPECT_EQ(static_cast<ssize_t>(kPiece), write(file_, piece.data(), kPiece));
        for (size_t at = 0; at < size_; at += kPiece)
            mmap(chars_ + at, kPiece, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file_, 0);
        chars_[size] = '\0';
    }
    EndlessText(EndlessText const&) = delete;
    EndlessText& operator=(EndlessText const&) = delete;
    ~EndlessText()
    {
        munmap(chars_, size_);
        close(file_);
    }

    char const* chars() const { return chars_; }

private:
    static constexpr size_t kPiece = 1 << 24;
    int const file_;
    size_t const size_;
    char* const chars_;
};

}  // namespace

TEST(ZPropertiesImplModel, RandomChangesMatchTheModel)
{
    uint64_t const seed = firstSeed();
    std::cout << "seed " << seed << ", " << kSequences << " sequences\n";
    for (unsigned long i = 0; i < kSequences; ++i) {
        SCOPED_TRACE("sequence " + std::to_string(i) + ", Z_TEST_SEED=" + std::to_string(seed));
        Sequence(seed + i).run(4 + i % 24);
        ASSERT_FALSE(HasFailure());
    }
}

TEST(ZPropertiesImplModel, DerivedClassesMatchTheModel)
{
    uint64_t const seed = firstSeed() * 7;
    for (unsigned long i = 0; i < kSequences / 5; ++i) {
        SCOPED_TRACE("sequence " + std::to_string(i) + ", Z_TEST_SEED=" + std::to_string(seed));
        Sequence(seed + i, true).run(4 + i % 24);
        ASSERT_FALSE(HasFailure());
    }
    for (unsigned long i = 0; i < kLongSequences / 10; ++i) {
        SCOPED_TRACE("long sequence " + std::to_string(i));
        Sequence(seed + i, true).run(1500);
        ASSERT_FALSE(HasFailure());
    }
}

TEST(ZPropertiesImplModel, LongRandomChangesMatchTheModel)
{
    uint64_t const seed = firstSeed() * 31;
    for (unsigned long i = 0; i < kLongSequences; ++i) {
        SCOPED_TRACE("sequence " + std::to_string(i) + ", Z_TEST_SEED=" + std::to_string(seed));
        Sequence(seed + i).run(1500);
        ASSERT_FALSE(HasFailure());
    }
}

TEST(ZPropertiesImplModel, CompanionThatWouldBeRefusedIsNotWritten)
{
    // 17 values of 16 MiB exceed the limit of 256 MiB.
    ZSCFData_6_0 data;
    data.setCompanionFile("/x/test.obf");
    std::string const value(size_t{16} << 20, 'v');
    for (int i = 0; i < 17; ++i)
        data.add("stanza", "key", value.c_str(), 1);
    ZBuffer_6_0 buffer("unchanged");
    try {
        data.be_write_obfuscated(buffer);
        ADD_FAILURE() << "written";
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        EXPECT_EQ(44u, e.messageNumber());
        EXPECT_STREQ("/x/test.obf", e.propFile().getChars());
        EXPECT_EQ(0, e.badline());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
        EXPECT_EQ(95u, e.where());
    }
    EXPECT_STREQ("unchanged", static_cast<char const*>(buffer.getBuffer()));
    EXPECT_EQ(17, data.countValues("stanza", "key"));

    // Slightly smaller contents are written and read back.
    data.clear();
    for (int i = 0; i < 3; ++i)
        data.add("stanza", "key", value.c_str(), 1);
    data.be_write_obfuscated(buffer);
    ZSCFData_6_0 other;
    other.be_read_obfuscated(buffer);
    EXPECT_EQ(3, other.countValues("stanza", "key"));
}

TEST(ZPropertiesImplModel, CompanionThatExpandsBeyondTheLimitIsRefused)
{
    // 300 MiB of zero bytes, compressed to 300 KiB.
    std::vector<unsigned char> zeros(size_t{300} << 20);
    ZBuffer_6_0 buffer;
    buffer.setLength(1 << 20);
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(zeros.data(), zeros.size());
    int const length =
        squeeze.squeeze(static_cast<unsigned char*>(buffer.getBuffer()), buffer.getLength());
    ASSERT_GT(length, 0);
    zeros = {};
    buffer.setLength(static_cast<unsigned long>(length));
    ZSCFData_6_0 data;
    EXPECT_THROW(data.be_read_obfuscated(buffer), ZPropertiesInvalidDataException_6_0);
    EXPECT_EQ(0, data.count());
}

TEST(ZPropertiesImplModel, MemoryIsReservedForDistinctNamesNotForRecords)
{
    // Four million empty records, then a few with values.
    std::string records(16 << 20, '\0');
    for (int i = 0; i < 3000; ++i) {
        std::string const texts[] = {"c" + std::to_string(i % 7), "k" + std::to_string(i % 1000),
                                     "v" + std::to_string(i), ""};
        for (std::string const& text : texts)
            records.append(text).append(1, '\0');
    }
    records.pop_back();
    ZBuffer_6_0 buffer;
    buffer.setLength(1 << 20);
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(reinterpret_cast<unsigned char*>(records.data()), records.size());
    int const length =
        squeeze.squeeze(static_cast<unsigned char*>(buffer.getBuffer()), buffer.getLength());
    ASSERT_GT(length, 0);
    buffer.setLength(static_cast<unsigned long>(length));
    ZSCFData_6_0 data;
    {
        SpaceLimit const limit(size_t{200} << 20);
        data.be_read_obfuscated(buffer);
    }
    EXPECT_EQ(8, data.count());
    int count = 0;
    for (int i = 0; i < 7; ++i)
        count += data.countValues(("c" + std::to_string(i)).c_str());
    EXPECT_EQ(3000, count);
    ZPCategoryBasedCache_6_0::Text value;
    ASSERT_TRUE(data.lastValue("c0", "k0", ZPCache_6_0::anyValues, value));
    EXPECT_STREQ("v0", value.chars);
}

TEST(ZPropertiesImplModel, NamesOf4GiBAreNotFound)
{
    // Truncated to 32 bits their length is 3.
    EndlessText const name((size_t{1} << 32) + 3);
    ZSCFData_6_0 cache;
    cache.add("nnn", "nnn", "v", 0);
    EXPECT_EQ(0, cache.contains(name.chars()));
    EXPECT_EQ(0, cache.contains("nnn", name.chars()));
    EXPECT_EQ(0, cache.contains(name.chars(), "nnn"));
    EXPECT_THROW(cache.add("nnn", name.chars(), "v", 0), ZOutOfMemoryException_6_0);
    EXPECT_EQ(1, cache.keyCount("nnn"));
}
