// The plain functions for files and their text: dialects, stores without a file, options, problems.
#include <string.h>

#include "ZArrayList.h"
#include "ZBuffer.h"
#include "ZPropertiesImpl.h"
#include "ZStanzaProblem.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

namespace {

constexpr char kStanza[] = "stanza";

// Returns the code for a dialect: of an unknown one, after recording the failure.
int checkDialect(char const* dialect, char const* file)
{
    if (dialect == nullptr || strcmp(dialect, kStanza) == 0)
        return zpropOk;
    return recordFailure(zpropUnsupported, "The dialect is unknown; use \"stanza\".",
                         {nullptr, nullptr, file});
}

bool isSwitch(ZPROPOption option)
{
    return option == zpropKeepComments || option == zpropKeepLines;
}

// Returns the code for an option and its value: of an invalid one, after recording the failure.
int checkOption(ZPROPOption option, int value)
{
    if (!isSwitch(option) && option != zpropWaitSeconds && option != zpropWaitMilliseconds)
        return recordFailure(zpropUnsupported, "The option is unknown.");
    return value < 0 || (isSwitch(option) && value > 1) ? missingArgument() : int{zpropOk};
}

unsigned long attributeOf(ZPROPOption option)
{
    return option == zpropKeepLines ? ZPCache_6_0::keepLines : ZPCache_6_0::keepComments;
}

int64_t millisecondsOf(ZPROPOption option, int value)
{
    return option == zpropWaitSeconds ? int64_t{1000} * value : value;
}

}  // namespace

int zstzPropOpenAs_6_0(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode,
                       char const* dialect)
{
    if (handle == nullptr || file == nullptr || (mode != zpropOpenRead && mode != zpropOpenUpdate))
        return missingArgument(file);
    *handle = nullptr;
    int const code = checkDialect(dialect, file);
    return code != zpropOk ? code : openFile(handle, file, mode);
}

int zstzPropNew_6_0(ZPROP_handle** handle, char const* dialect)
{
    if (handle == nullptr)
        return missingArgument();
    *handle = nullptr;
    int const code = checkDialect(dialect, nullptr);
    return code != zpropOk ? code : openFile(handle, nullptr, zpropOpenUpdate);
}

int zstzPropReload_6_0(ZPROP_handle* handle)
{
    return withHandle(handle, {}, openStoreCode, [](ZPROP_handle& file) {
        waitWhileBusy(file.waitMilliseconds, [&] {
            Store::Access const access(*file.store);
            file.store->replaceContents(file.attributes, [&] { file.store->reload(nullptr); });
        });
    });
}

int zstzPropIsModified_6_0(ZPROP_handle* handle, int* code)
{
    if (code == nullptr)
        return missingArgument(0);
    return readFile(handle, {}, code, [](Store const& store) { return store.isModified(); });
}

char* zstzPropGetFileName_6_0(ZPROP_handle* handle, int* code)
{
    if (code == nullptr)
        return missingArgument(nullptr);
    return readFile(handle, {}, code, [](Store const& store) {
        return returnedString(store.knownName(), strlen(store.knownName()));
    });
}

char* zstzPropGetDialect_6_0(ZPROP_handle* handle, int* code)
{
    if (code == nullptr)
        return missingArgument(nullptr);
    return readFile(handle, {}, code,
                    [](Store const&) { return returnedString(kStanza, strlen(kStanza)); });
}

int zstzPropSetOption_6_0(ZPROP_handle* handle, ZPROPOption option, int value)
{
    int code = zpropOk;
    int const failure = withHandle(handle, {}, changeCode, [&](ZPROP_handle& file) {
        code = checkOption(option, value);
        if (code != zpropOk)
            return;
        if (!isSwitch(option))
            file.waitMilliseconds = millisecondsOf(option, value);
        else if (value != 0)
            file.attributes |= attributeOf(option);
        else
            file.attributes &= ~attributeOf(option);
    });
    return failure != zpropOk ? failure : code;
}

int zstzPropSetDefaultOption_6_0(ZPROPOption option, int value)
{
    int const code = checkOption(option, value);
    if (code != zpropOk)
        return code;
    Options& options = threadOptions();
    if (!isSwitch(option))
        options.waitMilliseconds = millisecondsOf(option, value);
    else if (value != 0)
        options.attributes |= attributeOf(option);
    else
        options.attributes &= ~attributeOf(option);
    return zpropOk;
}

int zstzPropLoadText_6_0(ZPROP_handle* handle, char const* text, size_t length)
{
    if (text == nullptr && length != 0)
        return missingArgument();
    // The failure is in the text of the caller, not in the file of the store.
    return withHandle(handle, {{nullptr, nullptr, ""}}, openStoreCode, [&](ZPROP_handle& file) {
        Store::Access const access(*file.store);
        file.store->replaceContents(file.attributes, [&] { file.store->loadText(text, length); });
    });
}

char* zstzPropStoreText_6_0(ZPROP_handle* handle, size_t* length, int* code)
{
    if (code == nullptr)
        return missingArgument(nullptr);
    if (length != nullptr)
        *length = 0;
    return readFile(
        handle, {}, code,
        [&](Store const& store) {
            ZBuffer_6_0 buffer;
            store.storeText(buffer);
            char* const text =
                returnedString(static_cast<char const*>(buffer.getBuffer()), buffer.getLength());
            if (length != nullptr)
                *length = buffer.getLength();
            return text;
        },
        readTextCode);
}

int zstzPropFindProblems_6_0(char const* file, char const* dialect, ZPROPProblemCallback callback,
                             void* context)
{
    if (file == nullptr || *file == '\0' || callback == nullptr)
        return missingArgument(file);
    if (int const code = checkDialect(dialect, file); code != zpropOk)
        return code;
    return codeOf(openStoreCode, {{nullptr, nullptr, file}}, nullptr, [&] {
        ZArrayList_6_0 problems(1, 1);
        waitWhileBusy(threadOptions().waitMilliseconds,
                      [&] { Store::findProblems(file, problems); });
        for (unsigned i = 0; i < problems.size(); ++i) {
            auto const& found = *static_cast<ZStanzaProblem_6_0 const*>(problems.get(i));
            ZPROPProblem const problem = {sizeof problem,         found.kind(), found.cause(),
                                          found.messageNumber(),  found.line(), found.column(),
                                          found.text().getChars()};
            if (callback(&problem, context) != 0)
                return;
        }
    });
}
