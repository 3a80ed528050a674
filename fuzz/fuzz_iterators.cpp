// Stanza files edited through iterators: compares iterating over, changing, adding and removing
// plain and obfuscated values, with changes through the store in between, with a slow model.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdint.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "../tests/support/StoreModel.h"
#include "ScratchDirectory.h"
#include "check.h"

namespace {

constexpr char const* kStanzas[] = {"a", "b", "net work", "a"};
constexpr char const* kKeys[] = {"k", "key", "k y", "k"};
constexpr char const* kValues[] = {"1",      "two words", "x=y", "[z]",
                                   "# none", "yes",       "",    "two\nlines"};
constexpr char const* kLines[] = {"k = a\n", "k = b\n",    "key=\n",      "# words\n",
                                  "\n",      "[b]\n",      "[a]\n",       "k y = 1\n",
                                  "k=\n",    "#key = 1\n", "key = c\r\n", "  k = in blanks \n"};

// The name of the exception of each outcome.
constexpr char const* kOutcomes[] = {"", "ZInvalidParameterException",
                                     "ZPropertiesIteratorException",
                                     "ZPropertiesInvalidDataException", "ZPropertiesIOException"};

class Sequence {
public:
    Sequence(Choices& choices, std::string const& path)
        : choices_(choices), path_(path), model_(path), store_(1)
    {
        model_.text = "[a]\n";
        for (unsigned n = choices_.below(8); n > 0; --n)
            model_.text += kLines[choices_.below(12)];
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << model_.text;
        CacheModel::Refusal refusal;
        StoreModel::Outcome const outcome = model_.load(true, true, refusal);
        expect(outcome, [&] { store_.load(path_.c_str()); });
        if (outcome != StoreModel::done) {  // a name comes with the first file that can be read
            model_.store();
            store_.store(path_.c_str());
        }
    }

    void run()
    {
        while (!choices_.isEmpty()) {
            unsigned const act = choices_.below(12);
            char const* const s = kStanzas[choices_.below(4)];
            char const* const k = kKeys[choices_.below(4)];
            if (act < 7) {
                walk(s, k);
            } else if (act < 9) {
                int const obfuscated = static_cast<int>(choices_.below(2));
                char const* const v = kValues[choices_.below(8)];
                expect(model_.set(s, k, v, obfuscated != 0),
                       [&] { store_.setValue(s, k, v, obfuscated); });
            } else if (act == 9) {
                expect(model_.deleteKey(s, k), [&] { store_.deleteKey(s, k); });
            } else if (act == 10) {
                expect(model_.deleteStanza(s), [&] { store_.deleteStanza(s); });
            } else if (isReplay || choices_.below(4) == 0) {
                storeFile();
            }
            compare(s, k);
        }
        storeFile();
    }

private:
    template <class Call>
    void expect(StoreModel::Outcome outcome, Call call)
    {
        std::string raised;
        try {
            call();
        } catch (ZException_6_0 const& e) {
            raised = e.exceptionName();
        }
        check(raised == kOutcomes[outcome], "a call throws the same exception as the model");
    }

    void walk(char const* s, char const* k)
    {
        int const kind = static_cast<int>(choices_.below(3));
        StoreModel::Values expected(model_, s, k, kind);
        std::unique_ptr<ZStanzaValueIterator_6_0> values;
        expect(expected.outcome(), [&] {
            values = std::make_unique<ZStanzaValueIterator_6_0>(
                store_, s, k, choices_.below(2) == 1 ? zPropLocalStrings : zPropUTF8Strings,
                static_cast<ZPropIter_valtype>(kind));
        });
        if (values == nullptr)
            return;
        for (unsigned n = 1 + choices_.below(10); n > 0; --n) {
            check(values->hasMore() == (expected.hasMore() ? 1 : 0), "a value follows");
            check(values->isValid() == (expected.isValid() ? 1 : 0), "a value is current");
            check(values->valueCount() == expected.count(), "the values are counted");
            char const* const v = kValues[choices_.below(8)];
            switch (choices_.below(6)) {
                default: {
                    std::string text;
                    char const* chars = "";
                    expect(expected.next(text), [&] { values->nextValue(chars); });
                    check(text == chars, "the next value");
                    break;
                }
                case 3:
                    expect(expected.change(v), [&] { values->changeValue(v); });
                    break;
                case 4:
                    expect(expected.add(v), [&] { values->addValue(v); });
                    break;
                case 5:
                    expect(expected.remove(), [&] { values->removeValue(); });
                    break;
            }
        }
    }

    void storeFile()
    {
        model_.store();
        store_.store(nullptr);
        std::ifstream in(path_, std::ios::binary);
        std::string const text{std::istreambuf_iterator<char>(in), {}};
        check(text == model_.text, "the file is what the model writes");
        bool const hasCompanion = access((path_ + ".obf").c_str(), F_OK) == 0;
        check(hasCompanion == !model_.companion.empty(), "obfuscated values have a companion");
        CacheModel::Refusal refusal;
        expect(model_.load(true, true, refusal), [&] { store_.reload(nullptr); });
    }

    void compare(char const* s, char const* k)
    {
        CacheModel::Key const* const key = model_.cache.find(s, k);
        check((store_.exists(s, k) != 0) == (key != nullptr), "exists() agrees with the model");
        ZArrayList_6_0 list(2, 1);
        store_.getValues(s, k, list, zPropLocalStrings);
        std::vector<std::string> given;
        for (unsigned i = 0; i < list.size(); ++i)
            given.emplace_back(static_cast<ZLCString_6_0 const*>(list.get(i))->getChars());
        std::vector<std::string> values;
        if (key != nullptr)
            values = key->plain.empty() ? key->obfuscated : key->plain;
        check(given == values, "a key has the values of the model");
        check(store_.isModified() == (model_.isModified ? 1 : 0), "and is modified as it is there");
    }

    Choices& choices_;
    std::string const path_;
    StoreModel model_;
    ZStanzaFileProperties_6_0 store_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static ScratchDirectory const scratch;
    scratch.clear();
    Choices choices(data, std::min<size_t>(size, 500));
    Sequence(choices, scratch.at("conf")).run();
    return 0;
}
