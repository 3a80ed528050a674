// The plain functions of stanza files: compares sequences of calls, with handles and iterators that
// are open, closed, foreign or null, with a model of codes, values and files. Inputs that start
// with 0xD1 are for the dialects, see PlainDialects.h.
#include <Z/zproperties_c.h>
#include <stdint.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "../tests/support/StoreModel.h"
#include "PlainDialects.h"
#include "ScratchDirectory.h"
#include "check.h"

namespace {

constexpr unsigned kSlots = 3;

// Few names, so that changes meet; some that no file can hold.
constexpr char const* kStanzas[] = {"a", "b", "net work", "a", "x]", ""};
constexpr char const* kKeys[] = {"k", "key", "k y", "k", "#k", "a=b", " k", ""};
constexpr char const* kValues[] = {"1",      "two words", "x=y", "[z]",
                                   "# none", "yes",       "",    "two\nlines"};
constexpr char const* kTexts[] = {"", "[a]\nk = 1\nk = 2\n\n# about key\nkey = yes\n",
                                  "# head\n\n[b]\nk y = 0x10\n[a]\nk=\n", "no sign\n[a]\n"};

template <size_t Size>
char const* oneOf(char const* const (&texts)[Size], Choices& choices)
{
    return texts[choices.below(Size)];
}

std::string fileName(unsigned slot)
{
    return "conf" + std::to_string(slot);
}

// The changes that the observer of a file has received.
struct Log {
    std::vector<std::string> changes;
    bool isClosed = false;
};

std::string described(int change, char const* stanza, char const* key)
{
    return std::to_string(change) + "[" + stanza + "]" + key;
}

void note(int change, char const* stanza, char const* key, void* context)
{
    auto& log = *static_cast<Log*>(context);
    check(!log.isClosed, "no observer of a closed handle is called");
    log.changes.push_back(described(change, stanza, key));
}

struct File {
    ZPROP_handle* handle = nullptr;  // kept after it was closed
    bool isOpen = false;
    std::shared_ptr<StoreModel> model;
    std::shared_ptr<Log> log;           // lives as long as the sequence
    std::vector<std::string> expected;  // changes
};

struct Walk {
    ZPROP_iter_handle* handle = nullptr;  // kept after it was closed
    bool isOpen = false;
    std::shared_ptr<StoreModel> model;
    std::unique_ptr<StoreModel::Values> values;
    std::string stanza;
    std::string key;
};

class Sequence {
public:
    Sequence(Choices& choices, ScratchDirectory const& scratch)
        : choices_(choices), scratch_(scratch)
    {
    }

    ~Sequence()
    {
        for (Walk& walk : walks_)
            if (walk.isOpen)
                check(zstzPropIter_close_6_0(walk.handle) == zpropOk, "an open iterator closes");
        for (File& file : files_)
            if (file.isOpen)
                zstzPropClose_6_0(file.handle);
    }

    void run()
    {
        while (!choices_.isEmpty()) {
            unsigned const byte = choices_.byte();
            unsigned const act = byte < 160 ? byte % 20 : 20;
            unsigned const slot = choices_.below(kSlots);
            if (act == 20)
                changeMore(slot, byte - 160);
            else if (act < 3)
                open(slot);
            else if (act == 3)
                close(slot);
            else if (act < 9)
                change(slot, act);
            else if (act < 13)
                look(slot);
            else if (act == 13)
                store(slot);
            else if (act == 14)
                begin(slot);
            else if (act == 15)
                end(slot);
            else if (act < 19)
                step(walks_[slot]);
            else
                foreign();
            for (File& file : files_)
                checkLog(file);
        }
    }

private:
    // The model of a handle: the address of a closed handle may have been reused.
    StoreModel* modelOf(ZPROP_handle* handle)
    {
        for (File& file : files_)
            if (file.isOpen && file.handle == handle)
                return file.model.get();
        return nullptr;
    }
    Walk* openWalk(ZPROP_iter_handle* handle)
    {
        for (Walk& walk : walks_)
            if (walk.isOpen && walk.handle == handle)
                return &walk;
        return nullptr;
    }

    static int codeOf(StoreModel::Outcome outcome)
    {
        switch (outcome) {
            case StoreModel::done:
                return zpropOk;
            case StoreModel::refused:
                return zpropChangeFailed;
            default:
                return zpropIterator;
        }
    }

    void closeWalks(StoreModel const* model)
    {
        for (Walk& walk : walks_)
            if (walk.isOpen && walk.model.get() == model) {
                check(zstzPropIter_close_6_0(walk.handle) == zpropOk, "an open iterator closes");
                walk.isOpen = false;
            }
    }

    void open(unsigned slot)
    {
        File& file = files_[slot];
        if (file.isOpen)
            close(slot);
        std::string const path = scratch_.at(fileName(slot));
        unlink((path + ".obf").c_str());
        std::string const text = oneOf(kTexts, choices_);
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
        auto model = std::make_shared<StoreModel>(path);
        model->text = text;
        CacheModel::Refusal refusal;
        bool const isValid = model->load(true, true, refusal) == StoreModel::done;
        ZPROP_handle* handle = file.handle;
        int const mode = static_cast<int>(choices_.below(4));
        int const rc = zstzPropOpen_6_0(&handle, path.c_str(), mode);
        if (mode != zpropOpenRead && mode != zpropOpenUpdate) {
            check(rc == zpropBadHandle && handle == file.handle, "no mode opens nothing");
            return;
        }
        check(rc == (isValid ? zpropOk : zpropOpenStoreFailed), "a valid file opens");
        check((handle != nullptr) == isValid, "with a handle");
        if (!isValid)
            return;
        check(modelOf(handle) == nullptr, "that is not in use");
        logs_.push_back(std::make_shared<Log>());
        file = {handle, true, model, logs_.back(), {}};
        check(zstzPropSetObserver_6_0(handle, note, logs_.back().get()) == zpropOk, "is observed");
    }

    void close(unsigned slot)
    {
        File& file = files_[slot];
        ZPROP_handle* const handle = file.handle;
        zstzPropClose_6_0(handle);
        for (File& each : files_)
            if (each.handle == handle) {
                each.isOpen = false;
                if (each.log != nullptr)
                    each.log->isClosed = true;
            }
    }

    File* fileOf(StoreModel const* model)
    {
        for (File& file : files_)
            if (file.isOpen && file.model.get() == model)
                return &file;
        return nullptr;
    }

    void expect(StoreModel const* model, int change, std::string const& s, std::string const& k)
    {
        if (File* const file = fileOf(model))
            file->expected.push_back(described(change, s.c_str(), k.c_str()));
    }

    // While an iterator is open, the changes are not passed on.
    void checkLog(File const& file) const
    {
        if (!file.isOpen)
            return;
        for (Walk const& walk : walks_)
            if (walk.isOpen && walk.model == file.model)
                return;
        check(file.log->changes == file.expected, "the observer receives the changes");
    }

    // Sets the values of a key in the model, as the plain functions do: nothing changes if the key
    // has these values.
    StoreModel::Outcome set(StoreModel& model, std::string const& s, std::string const& k,
                            std::vector<std::string> const& values, bool obfuscated)
    {
        CacheModel::Key const* const key = model.cache.find(s, k);
        if (key != nullptr && !s.empty() && !k.empty() &&
            (obfuscated ? key->obfuscated : key->plain) == values &&
            (obfuscated ? key->plain : key->obfuscated).empty())
            return StoreModel::done;
        if (obfuscated && model.access(s, k, true) != StoreModel::done)
            return StoreModel::refused;
        auto const outcome = model.set(s, k, values.empty() ? "" : values[0], obfuscated);
        if (outcome != StoreModel::done)
            return outcome;
        if (values.size() > 1)
            model.cache.find(s, k)->plain = values;
        expect(&model, zpropSet, s, k);
        return outcome;
    }

    // The values of one string: none if it is empty.
    static std::vector<std::string> one(std::string const& value)
    {
        return value.empty() ? std::vector<std::string>() : std::vector<std::string>{value};
    }

    static char* textOf(ZPROP_handle* handle, size_t& length)
    {
        int code = -1;
        char* const text = zstzPropStoreText_6_0(handle, &length, &code);
        check(code == zpropOk, "the contents are composed");
        return text;
    }

    static std::string contentsOf(ZPROP_handle* handle)
    {
        size_t length = 1;
        char* const text = textOf(handle, length);
        std::string const copy(text == nullptr ? "" : text, length);
        zstzPropFree_6_0(text);
        return copy;
    }

    // The functions that change or read several values, stanzas, names and spellings.
    void changeMore(unsigned slot, unsigned act)
    {
        ZPROP_handle* const handle = files_[slot].handle;
        StoreModel* const model = modelOf(handle);
        if (model != nullptr)
            closeWalks(model);
        std::string const s = oneOf(kStanzas, choices_);
        std::string const k = oneOf(kKeys, choices_);
        std::string const v = oneOf(kValues, choices_);
        if (model == nullptr) {
            refuse(handle, s.c_str(), k.c_str(), v.c_str());
            return;
        }
        switch (act % 8) {
            case 0:
                setSeveral(handle, *model, s, k, v);
                break;
            case 1:
                addOrRemove(handle, *model, s, k, v);
                break;
            case 2:
                setObfuscated(handle, *model, s, k, v);
                break;
            case 3:
                addAndListStanzas(handle, *model, s);
                break;
            case 4:
                renameAndBack(handle, *model, s, k);
                break;
            case 5:
                spell(handle, *model, s, k, v);
                break;
            case 6:
                comment(handle, *model, s, k);
                break;
            default:
                load(handle, *model);
        }
        check(contentsOf(handle) == model->cache.text(), "the text is the text of the model");
    }

    static void refuse(ZPROP_handle* handle, char const* s, char const* k, char const* v)
    {
        int code = -1;
        size_t length = 1;
        char const* const values[] = {v};
        ZPROP_iter_handle* iterator = nullptr;
        check(zstzPropSetStringValues_6_0(handle, s, k, values, 1) == zpropBadHandle &&
                  zstzPropAddStringValue_6_0(handle, s, k, v) == zpropBadHandle &&
                  zstzPropRemoveValue_6_0(handle, s, k, v) == zpropBadHandle &&
                  zstzPropSetObfuscatedValue_6_0(handle, s, k, v) == zpropBadHandle &&
                  zstzPropAddStanza_6_0(handle, s) == zpropBadHandle &&
                  zstzPropRenameStanza_6_0(handle, s, k) == zpropBadHandle &&
                  zstzPropRenameKey_6_0(handle, s, k, v) == zpropBadHandle &&
                  zstzPropSetRawValue_6_0(handle, s, k, 0, v) == zpropBadHandle &&
                  zstzPropSetFileComment_6_0(handle, v) == zpropBadHandle &&
                  zstzPropSetStanzaComment_6_0(handle, s, v) == zpropBadHandle &&
                  zstzPropSetLineComment_6_0(handle, s, k, v) == zpropBadHandle &&
                  zstzPropReload_6_0(handle) == zpropBadHandle &&
                  zstzPropLoadText_6_0(handle, v, strlen(v)) == zpropBadHandle &&
                  zstzPropSetOption_6_0(handle, zpropKeepLines, 1) == zpropBadHandle &&
                  zstzPropSetObserver_6_0(handle, nullptr, nullptr) == zpropBadHandle &&
                  zstzPropIter_initStanzas_6_0(handle, &iterator) == zpropBadHandle &&
                  iterator == nullptr,
              "a closed handle changes nothing");
        check(zstzPropGetRawValue_6_0(handle, s, k, 0, &code) == nullptr && code == zpropBadHandle,
              "has no spellings");
        check(zstzPropGetLine_6_0(handle, s, k, 0, &code) == 0 && code == zpropBadHandle,
              "no lines");
        check(zstzPropGetLineComment_6_0(handle, s, k, &code) == nullptr && code == zpropBadHandle,
              "no comments");
        check(zstzPropStoreText_6_0(handle, &length, &code) == nullptr && length == 0, "no text");
        ZPROPError error = {};
        error.size = sizeof error;
        check(zstzPropGetLastError_6_0(&error) == zpropOk && error.code == zpropBadHandle,
              "and a failure");
    }

    void setSeveral(ZPROP_handle* handle, StoreModel& model, std::string const& s,
                    std::string const& k, std::string const& v)
    {
        std::string const others[] = {v, oneOf(kValues, choices_), oneOf(kValues, choices_)};
        unsigned const count = choices_.below(4);
        char const* values[3];
        bool isValid = true;
        for (unsigned i = 0; i < 3; ++i) {
            values[i] = others[i].c_str();
            if (i < count)
                isValid = isValid && (count == 1 || !others[i].empty()) &&
                          others[i].find('\n') == std::string::npos;
        }
        int const rc = zstzPropSetStringValues_6_0(handle, s.c_str(), k.c_str(), values,
                                                   static_cast<int>(count));
        isValid = isValid && model.access(s, k, false) == StoreModel::done;
        auto expected = StoreModel::refused;
        if (isValid) {
            std::vector<std::string> const wanted(others, others + count);
            expected = set(model, s, k, count == 1 ? one(v) : wanted, false);
        }
        check(rc == codeOf(expected), "several values have the code of the model");
    }

    void addOrRemove(ZPROP_handle* handle, StoreModel& model, std::string const& s,
                     std::string const& k, std::string const& v)
    {
        if (choices_.below(2) == 0) {
            int const rc = zstzPropAddStringValue_6_0(handle, s.c_str(), k.c_str(), v.c_str());
            CacheModel::Key const* const key = model.cache.find(s, k);
            bool const isKnown =
                key != nullptr && std::count(key->plain.begin(), key->plain.end(), v) > 0;
            auto const outcome = v.empty() ? StoreModel::refused : model.add(s, k, {v}, false);
            if (outcome == StoreModel::done && !isKnown)
                expect(&model, zpropSet, s, k);
            check(rc == codeOf(outcome), "an added value has the code of the model");
            return;
        }
        int const rc = zstzPropRemoveValue_6_0(handle, s.c_str(), k.c_str(), v.c_str());
        CacheModel::Key* const key = model.cache.find(s, k);
        if (s.empty() || k.empty()) {
            check(rc == zpropChangeFailed, "no value has an empty name");
            return;
        }
        auto* const values = key == nullptr            ? nullptr
                             : key->obfuscated.empty() ? &key->plain
                                                       : &key->obfuscated;
        if (values == nullptr || std::count(values->begin(), values->end(), v) == 0) {
            check(rc == zpropMissing, "a missing value is not removed");
            return;
        }
        check(rc == zpropOk, "a value is removed");
        if (values->size() == 1) {
            model.deleteKey(s, k);
            expect(&model, zpropRemoved, s, k);
        } else {
            values->erase(std::find(values->begin(), values->end(), v));
            expect(&model, zpropSet, s, k);
        }
    }

    void setObfuscated(ZPROP_handle* handle, StoreModel& model, std::string const& s,
                       std::string const& k, std::string const& v)
    {
        int const rc = zstzPropSetObfuscatedValue_6_0(handle, s.c_str(), k.c_str(), v.c_str());
        check(rc == codeOf(set(model, s, k, one(v), true)),
              "an obfuscated value has the code of the model");
        if (s.empty() || k.empty())
            return;
        int code = -1;
        check(zstzPropIsObfuscated_6_0(handle, s.c_str(), k.c_str(), &code) == model.hides(s, k) &&
                  code == zpropOk,
              "and is known as such");
    }

    void addAndListStanzas(ZPROP_handle* handle, StoreModel& model, std::string const& s)
    {
        int const rc = zstzPropAddStanza_6_0(handle, s.c_str());
        bool const isKnown = model.cache.find(s) != nullptr;
        auto const outcome = isKnown ? StoreModel::done : model.addStanza(s);
        if (!isKnown && outcome == StoreModel::done)
            expect(&model, zpropAdded, s, "");
        check(rc == codeOf(outcome), "a stanza has the code of the model");
        ZPROP_iter_handle* iterator = nullptr;
        check(zstzPropIter_initStanzas_6_0(handle, &iterator) == zpropOk, "stanzas are listed");
        int code = -1;
        for (CacheModel::Line const& line : model.cache.lines) {
            if (line.type != CacheModel::head || model.cache.find(line.text) == nullptr)
                continue;
            check(zstzPropIter_next_6_0(iterator, &code) == 1, "each of them");
            char* const name = zstzPropIter_getKey_6_0(iterator, &code);
            check(name != nullptr && line.text == name, "in file order");
            zstzPropFree_6_0(name);
        }
        check(zstzPropIter_next_6_0(iterator, &code) == 0, "and no others");
        check(zstzPropIter_close_6_0(iterator) == zpropOk, "the iterator closes");
    }

    void renameAndBack(ZPROP_handle* handle, StoreModel& model, std::string const& s,
                       std::string const& k)
    {
        constexpr char kNew[] = "renamed";
        bool const isStanza = choices_.below(2) == 0;
        bool const exists =
            isStanza ? model.cache.find(s) != nullptr : model.cache.find(s, k) != nullptr;
        auto const rename = [&](char const* from, char const* to) {
            return isStanza ? zstzPropRenameStanza_6_0(handle, from, to)
                            : zstzPropRenameKey_6_0(handle, s.c_str(), from, to);
        };
        std::string const& name = isStanza ? s : k;
        if (!exists) {
            int const rc = rename(name.c_str(), kNew);
            check(rc == zpropMissing || rc == zpropChangeFailed, "nothing missing is renamed");
            return;
        }
        check(rename(name.c_str(), kNew) == zpropOk && rename(kNew, name.c_str()) == zpropOk,
              "a name changes and changes back");
        int const appeared = isStanza ? int{zpropAdded} : int{zpropSet};
        auto const expectBoth = [&](std::string const& from, std::string const& to) {
            expect(&model, zpropRemoved, isStanza ? from : s, isStanza ? "" : from);
            expect(&model, appeared, isStanza ? to : s, isStanza ? "" : to);
        };
        expectBoth(name, kNew);
        expectBoth(kNew, name);
    }

    void spell(ZPROP_handle* handle, StoreModel& model, std::string const& s, std::string const& k,
               std::string const& v)
    {
        int const index = static_cast<int>(choices_.below(3));
        CacheModel::Key* const key = model.cache.find(s, k);
        std::string const before = key == nullptr || key->plain.size() <= unsigned(index)
                                       ? ""
                                       : key->plain[unsigned(index)];
        int code = -1;
        char* const spelling = zstzPropGetRawValue_6_0(handle, s.c_str(), k.c_str(), index, &code);
        check(before.empty() == (spelling == nullptr) && before.empty() == (code != zpropOk),
              "a value has a spelling");
        check(spelling == nullptr || before == spelling, "which is the value");
        zstzPropFree_6_0(spelling);
        unsigned long const line = zstzPropGetLine_6_0(handle, s.c_str(), k.c_str(), index, &code);
        if (!before.empty()) {
            check(code == zpropOk && line > 0, "and a line");
            std::string text = contentsOf(handle);
            for (unsigned long i = 1; i < line; ++i)
                text.erase(0, text.find('\n') + 1);
            check(text.starts_with(k + " = " + before + "\n"), "of its own");
        }
        int const rc = zstzPropSetRawValue_6_0(handle, s.c_str(), k.c_str(), index, v.c_str());
        bool const reads = !v.empty() && v.find('\n') == std::string::npos;
        if (before.empty())
            check(rc == zpropMissing || rc == zpropChangeFailed, "nothing missing is respelled");
        else
            check(rc == (reads ? int{zpropOk} : int{zpropChangeFailed}), "a spelling reads back");
        if (rc != zpropOk)
            return;
        key->plain[unsigned(index)] = v;
        if (v != before)
            expect(&model, zpropSet, s, k);
    }

    // Sets a comment and reads it. Then the store and the model read the text, which must have no
    // obfuscated or empty values, and must not name a companion.
    void comment(ZPROP_handle* handle, StoreModel& model, std::string const& s,
                 std::string const& k)
    {
        if (model.cache.find(StoreModel::kReserved) != nullptr)
            return;
        for (CacheModel::Category const& category : model.cache.categories)
            for (CacheModel::Key const& key : category.keys)
                if (!key.obfuscated.empty() ||
                    std::count(key.plain.begin(), key.plain.end(), "") > 0)
                    return;
        unsigned const kind = choices_.below(3);
        bool const removes = choices_.below(3) == 0;
        char const* const text = removes ? nullptr : choices_.below(2) == 0 ? "c" : "# x = 1\nd";
        std::string const after = removes ? "" : *text == 'c' ? "#c" : "# x = 1\n#d";
        auto const get = [&](int& code) {
            char* const found =
                kind == 0   ? zstzPropGetFileComment_6_0(handle, &code)
                : kind == 1 ? zstzPropGetStanzaComment_6_0(handle, s.c_str(), &code)
                            : zstzPropGetLineComment_6_0(handle, s.c_str(), k.c_str(), &code);
            std::string const copy = found == nullptr ? "" : found;
            zstzPropFree_6_0(found);
            return copy;
        };
        int code = -1;
        std::string const before = get(code);
        int const rc = kind == 0   ? zstzPropSetFileComment_6_0(handle, text)
                       : kind == 1 ? zstzPropSetStanzaComment_6_0(handle, s.c_str(), text)
                                   : zstzPropSetLineComment_6_0(handle, s.c_str(), k.c_str(), text);
        check((rc == zpropOk) == (code == zpropOk), "a comment is set where one can be read");
        if (rc != zpropOk)
            return;
        check(get(code) == after && code == zpropOk, "and reads back");
        if (before != after)
            expect(&model, zpropCommented, kind == 0 ? "" : s, kind == 2 ? k : "");
        std::string const contents = contentsOf(handle);
        CacheModel read;
        check(read.read(contents, true).line == 0, "the text is valid");
        model.cache = read;
        check(zstzPropLoadText_6_0(handle, contents.data(), contents.size()) == zpropOk,
              "and loads");
        expect(&model, zpropLoaded, "", "");
    }

    void load(ZPROP_handle* handle, StoreModel& model)
    {
        std::string const text = oneOf(kTexts, choices_);
        CacheModel read;
        bool const isValid = read.read(text, true).line == 0;
        int const rc = zstzPropLoadText_6_0(handle, text.data(), text.size());
        check(rc == (isValid ? zpropOk : zpropOpenStoreFailed), "a valid text loads");
        if (!isValid)
            return;
        model.cache = read;
        expect(&model, zpropLoaded, "", "");
        int code = -1;
        check(zstzPropIsModified_6_0(handle, &code) == 1 && code == zpropOk, "as a change");
    }

    void change(unsigned slot, unsigned act)
    {
        ZPROP_handle* const handle = files_[slot].handle;
        StoreModel* const model = modelOf(handle);
        if (model != nullptr)
            closeWalks(model);
        char const* const s = oneOf(kStanzas, choices_);
        char const* const k = oneOf(kKeys, choices_);
        char const* const v = oneOf(kValues, choices_);
        int rc = 0;
        auto expected = StoreModel::done;
        auto const apply = [&](auto change) { return model == nullptr ? expected : change(); };
        switch (act) {
            case 4:
                rc = zstzPropSetBooleanValue_6_0(handle, s, k, *v == '\0');
                expected =
                    apply([&] { return set(*model, s, k, {*v == '\0' ? "yes" : "no"}, false); });
                break;
            case 5:
                rc = zstzPropRemoveKey_6_0(handle, s, k);
                expected = apply([&] {
                    if (model->cache.find(s, k) != nullptr && *s != '\0' && *k != '\0')
                        expect(model, zpropRemoved, s, k);
                    return model->deleteKey(s, k);
                });
                break;
            case 6:
                rc = zstzPropRemoveStanza_6_0(handle, s);
                expected = apply([&] {
                    if (model->cache.find(s) != nullptr && *s != '\0')
                        expect(model, zpropRemoved, s, "");
                    return model->deleteStanza(s);
                });
                break;
            case 7:
                rc = zstzPropSetIntegerValue_6_0(handle, s, k, 4294967295u);
                expected = apply([&] { return set(*model, s, k, {"4294967295"}, false); });
                break;
            default:
                rc = zstzPropSetStringValue_6_0(handle, s, k, v);
                expected = apply([&] { return set(*model, s, k, one(v), false); });
        }
        check(rc == (model == nullptr ? int{zpropBadHandle} : codeOf(expected)),
              "a change has the code of the model");
    }

    void look(unsigned slot)
    {
        ZPROP_handle* const handle = files_[slot].handle;
        StoreModel* const model = modelOf(handle);
        char const* const s = oneOf(kStanzas, choices_);
        char const* const k = oneOf(kKeys, choices_);
        int const flag = static_cast<int>(choices_.below(2));
        int code = -1;
        char* const text = zstzPropGetStringValue_6_0(handle, s, k, flag, &code);
        int number = -1;
        int const stanzas = zstzPropNumStanzas_6_0(handle, &number);
        if (model == nullptr) {
            check(text == nullptr && code == zpropBadHandle, "a closed handle has no text");
            check(stanzas == 0 && number == zpropBadHandle, "and no stanzas");
            return;
        }
        check(number == zpropOk && stanzas == static_cast<int>(model->cache.categories.size()),
              "the stanzas are counted");
        if (*s == '\0' || *k == '\0') {
            check(text == nullptr && code == zpropBadHandle, "an empty name is refused");
            return;
        }
        CacheModel::Key const* const key = model->cache.find(s, k);
        int const exists = zstzPropExists_6_0(handle, s, k, &number);
        check(number == zpropOk && exists == (key != nullptr), "an existing key is found");
        int const count = zstzPropNumValues_6_0(handle, s, k, &number);
        std::vector<std::string> const none;
        auto const& held = key == nullptr            ? none
                           : key->obfuscated.empty() ? key->plain
                                                     : key->obfuscated;
        size_t const values = held.size();
        check(count == static_cast<int>(values), "its values are counted");
        std::string const last = values == 0 ? "" : held.back();
        check((text == nullptr ? "" : std::string(text)) == last, "the last value is given");
        check(values == 0 || code == zpropOk, "without a fault");
        check(key != nullptr || code == (flag == 1 ? zpropOk : zpropMissing), "or none is");
        zstzPropFree_6_0(text);
        zstzPropFree_6_0(text);  // a block that is released already is ignored
    }

    void store(unsigned slot)
    {
        File& file = files_[slot];
        StoreModel* const model = modelOf(file.handle);
        if (model == nullptr) {
            check(zstzPropStore_6_0(file.handle, nullptr) == zpropBadHandle, "nothing is stored");
            return;
        }
        if (!isReplay && choices_.below(8) != 0)
            return;
        closeWalks(model);
        model->store();
        check(zstzPropStore_6_0(file.handle, nullptr) == zpropOk, "a file is stored");
        for (unsigned i = 0; i < kSlots; ++i)
            if (files_[i].isOpen && files_[i].model.get() == model)
                check(scratch_.read(fileName(i)) == model->text, "as the model has it");
    }

    void begin(unsigned slot)
    {
        ZPROP_handle* const handle = files_[slot].handle;
        StoreModel* const model = modelOf(handle);
        char const* const s = kStanzas[choices_.below(3)];
        char const* const k = kKeys[choices_.below(3)];
        if (model != nullptr)
            closeWalks(model);
        Walk& walk = walks_[choices_.below(kSlots)];
        if (walk.isOpen)
            closeWalks(walk.model.get());
        ZPROP_iter_handle* made = walk.handle;
        int const rc = zstzPropIter_init_6_0(handle, s, k, &made);
        if (model == nullptr) {
            check(rc == zpropBadHandle && made == walk.handle, "there is nothing to iterate over");
            return;
        }
        check(rc == zpropOk && made != nullptr, "there is an iterator");
        std::shared_ptr<StoreModel> shared;
        for (File const& file : files_)
            if (file.model.get() == model)
                shared = file.model;
        walk.values.reset();
        walk = {made, true, shared, std::make_unique<StoreModel::Values>(*shared, s, k, 0), s, k};
    }

    void end(unsigned slot)
    {
        ZPROP_iter_handle* const handle = walks_[slot].handle;
        Walk* const walk = openWalk(handle);
        int const rc = zstzPropIter_close_6_0(handle);
        check(rc == (walk == nullptr ? int{zpropBadHandle} : int{zpropOk}),
              "an open iterator closes once");
        if (walk != nullptr)
            walk->isOpen = false;
    }

    void step(Walk const& chosen)
    {
        ZPROP_iter_handle* const handle = chosen.handle;
        Walk* const walk = openWalk(handle);
        char const* const v = oneOf(kValues, choices_);
        unsigned const act = choices_.below(6);
        if (walk == nullptr) {
            int code = -1;
            check(zstzPropIter_next_6_0(handle, &code) == 0 && code == zpropBadHandle &&
                      zstzPropIter_chgValue_6_0(handle, v) == zpropBadHandle &&
                      zstzPropIter_addValue_6_0(handle, v) == zpropBadHandle &&
                      zstzPropIter_rmvValue_6_0(handle) == zpropBadHandle,
                  "a closed iterator does nothing");
            return;
        }
        StoreModel::Values& values = *walk->values;
        if (act < 3) {
            int code = -1;
            bool const more = values.hasMore();
            check(zstzPropIter_next_6_0(handle, &code) == (more ? 1 : 0),
                  "it continues to the end");
            if (!more)
                return;
            check(code == zpropOk, "without a fault");
            std::string text;
            values.next(text);
            char* const given = zstzPropIter_getValue_6_0(handle, &code);
            check((given == nullptr ? "" : std::string(given)) == text, "the value is given");
            zstzPropFree_6_0(given);
        } else {
            int const rc = act == 3   ? zstzPropIter_chgValue_6_0(handle, v)
                           : act == 4 ? zstzPropIter_addValue_6_0(handle, v)
                                      : zstzPropIter_rmvValue_6_0(handle);
            auto const outcome = act == 3   ? values.change(v)
                                 : act == 4 ? values.add(v)
                                            : values.remove();
            check(rc == codeOf(outcome), "it changes, adds and removes as the model does");
            if (rc == zpropOk)
                expect(walk->model.get(), zpropSet, walk->stanza, walk->key);
        }
        int code = -1;
        check(zstzPropIter_numValues_6_0(handle, &code) == values.count(),
              "the values are counted");
    }

    // Addresses that were never returned: of the stack, of strings, and small numbers.
    void foreign()
    {
        char block[64] = "never returned!!";
        void* const pointers[] = {nullptr, block + 8, reinterpret_cast<void*>(uintptr_t{1}),
                                  const_cast<char*>(kTexts[1])};
        void* const pointer = pointers[choices_.below(4)];
        int code = -1;
        check(zstzPropNumStanzas_6_0(static_cast<ZPROP_handle*>(pointer), &code) == 0 &&
                  code == zpropBadHandle,
              "a foreign pointer is not a handle");
        check(zstzPropIter_close_6_0(static_cast<ZPROP_iter_handle*>(pointer)) == zpropBadHandle,
              "a foreign pointer is not an iterator");
        zstzPropClose_6_0(static_cast<ZPROP_handle*>(pointer));
        zstzPropFree_6_0(static_cast<char*>(pointer));
        check(memcmp(block, "never returned!!", 16) == 0, "nothing is written");
    }

    Choices& choices_;
    ScratchDirectory const& scratch_;
    std::array<File, kSlots> files_;
    std::array<Walk, kSlots> walks_;
    std::vector<std::shared_ptr<Log>> logs_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    constexpr uint8_t kOtherDialects = 0xD1;
    static ScratchDirectory const scratch;
    Choices choices(data, std::min<size_t>(size, 600));
    if (size > 0 && *data == kOtherDialects) {
        choices.byte();
        PlainDialects(choices).run();
        return 0;
    }
    Sequence(choices, scratch).run();
    return 0;
}
