// The plain functions of stanza files: compares sequences of calls, with handles and iterators that
// are open, closed, foreign or null, with a model of codes, values and files.
#include <Z/zproperties_c.h>
#include <stdint.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <memory>
#include <string>

#include "../tests/support/StoreModel.h"
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

struct File {
    ZPROP_handle* handle = nullptr;  // kept after it was closed
    bool isOpen = false;
    std::shared_ptr<StoreModel> model;
};

struct Walk {
    ZPROP_iter_handle* handle = nullptr;  // kept after it was closed
    bool isOpen = false;
    std::shared_ptr<StoreModel> model;
    std::unique_ptr<StoreModel::Values> values;
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
            unsigned const act = choices_.below(20);
            unsigned const slot = choices_.below(kSlots);
            if (act < 3)
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
        file = {handle, true, model};
    }

    void close(unsigned slot)
    {
        File& file = files_[slot];
        ZPROP_handle* const handle = file.handle;
        zstzPropClose_6_0(handle);
        for (File& each : files_)
            if (each.handle == handle)
                each.isOpen = false;
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
                    apply([&] { return model->set(s, k, *v == '\0' ? "yes" : "no", false); });
                break;
            case 5:
                rc = zstzPropRemoveKey_6_0(handle, s, k);
                expected = apply([&] { return model->deleteKey(s, k); });
                break;
            case 6:
                rc = zstzPropRemoveStanza_6_0(handle, s);
                expected = apply([&] { return model->deleteStanza(s); });
                break;
            case 7:
                rc = zstzPropSetIntegerValue_6_0(handle, s, k, 4294967295u);
                expected = apply([&] { return model->set(s, k, "4294967295", false); });
                break;
            default:
                rc = zstzPropSetStringValue_6_0(handle, s, k, v);
                expected = apply([&] { return model->set(s, k, v, false); });
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
        size_t const values = key == nullptr ? 0 : key->plain.size();
        check(count == static_cast<int>(values), "its values are counted");
        std::string const last = values == 0 ? "" : key->plain.back();
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
        walk = {made, true, shared, std::make_unique<StoreModel::Values>(*shared, s, k, 0)};
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
        } else if (act == 3) {
            check(zstzPropIter_chgValue_6_0(handle, v) == codeOf(values.change(v)), "it changes");
        } else if (act == 4) {
            check(zstzPropIter_addValue_6_0(handle, v) == codeOf(values.add(v)), "it adds");
        } else {
            check(zstzPropIter_rmvValue_6_0(handle) == codeOf(values.remove()), "it removes");
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
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static ScratchDirectory const scratch;
    Choices choices(data, std::min<size_t>(size, 600));
    Sequence(choices, scratch).run();
    return 0;
}
