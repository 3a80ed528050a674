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

// Adds an attribute to the store of `file`, or removes it.
void setAttribute(ZPROP_handle& file, unsigned long attribute, int isSet)
{
    LockedStore::Hold const hold(*file.store);
    unsigned long const others = file.attributes & ~attribute;
    file.attributes = others | (isSet != 0 ? attribute : 0);
    file.store->setAttributes(file.attributes, nullptr);
}

}  // namespace

int zstzPropOpenAs_6_0(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode,
                       char const* dialect)
{
    if (handle == nullptr || file == nullptr || (mode != zpropOpenRead && mode != zpropOpenUpdate))
        return missingArgument();
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
        waitWhileBusy(file.waitSeconds, [&] { file.store->reload(nullptr); });
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
        LockedStore::Hold const hold(store);
        return returnedString(store.fileName().getChars(), store.fileName().getLength());
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
        bool const isSwitch = option == zpropKeepComments || option == zpropKeepLines;
        if (option != zpropWaitSeconds && !isSwitch)
            code = recordFailure(zpropUnsupported, "The option is unknown.");
        else if (value < 0 || (isSwitch && value > 1))
            code = missingArgument();
        else if (option == zpropWaitSeconds)
            file.waitSeconds = value;
        else
            setAttribute(
                file, option == zpropKeepLines ? ZPCache_6_0::keepLines : ZPCache_6_0::keepComments,
                value);
    });
    return failure != zpropOk ? failure : code;
}

int zstzPropLoadText_6_0(ZPROP_handle* handle, char const* text, size_t length)
{
    if (text == nullptr && length != 0)
        return missingArgument();
    return withFile(handle, {}, openStoreCode, [&](Store& store) { store.loadText(text, length); });
}

char* zstzPropStoreText_6_0(ZPROP_handle* handle, size_t* length, int* code)
{
    if (code == nullptr)
        return missingArgument(nullptr);
    if (length != nullptr)
        *length = 0;
    return readFile(handle, {}, code, [&](Store const& store) {
        ZBuffer_6_0 buffer;
        store.storeText(buffer);
        char* const text =
            returnedString(static_cast<char const*>(buffer.getBuffer()), buffer.getLength());
        if (length != nullptr)
            *length = buffer.getLength();
        return text;
    });
}

int zstzPropFindProblems_6_0(char const* file, char const* dialect, ZPROPProblemCallback callback,
                             void* context)
{
    if (file == nullptr || *file == '\0' || callback == nullptr)
        return missingArgument();
    if (int const code = checkDialect(dialect, file); code != zpropOk)
        return code;
    return codeOf(openStoreCode, {nullptr, nullptr, file}, [&] {
        ZArrayList_6_0 problems(1, 1);
        Store::findProblems(file, problems);
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
