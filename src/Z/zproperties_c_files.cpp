// The plain functions for files and their text: dialects, stores without a file, options.
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "ZBuffer.h"
#include "ZPropertiesImpl.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

namespace {

// Returns the start of a file, with its first header if it is there; empty if it cannot be read.
std::string startOf(char const* file)
{
    constexpr size_t kMaxLength = 65536;
    std::string start(kMaxLength, '\0');
    // Non-blocking: a FIFO is not waited for.
    int const fd = open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    ssize_t const got = fd < 0 ? -1 : read(fd, start.data(), start.size());
    if (fd >= 0)
        close(fd);
    start.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return start;
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

namespace zhandles {

int findDialect(char const* name, char const* file, ZStanzaDialect_6_0& dialect)
{
    if (name != nullptr)
        return ZStanzaDialect_6_0::named(name, dialect) != 0
                   ? int{zpropOk}
                   : recordFailure(zpropUnsupported, "The dialect is unknown.",
                                   {nullptr, nullptr, file});
    if (file == nullptr || isRemote(file))
        return zpropOk;
    return codeOf(openStoreCode, {{nullptr, nullptr, file}}, nullptr, [&] {
        // Two formats use the same name. A copy has a further ending.
        constexpr std::string_view kService = ".service";
        bool const needsText = std::string_view(file).find(kService) != std::string_view::npos;
        std::string const text = needsText ? startOf(file) : std::string();
        ZStanzaDialect_6_0::recognised(file, text.data(), text.size(), dialect);
    });
}

}  // namespace zhandles

int zstzPropOpenAs_6_0(ZPROP_handle** handle, char const* file, ZPROPOpenMode mode,
                       char const* dialect)
{
    if (handle == nullptr || file == nullptr || (mode != zpropOpenRead && mode != zpropOpenUpdate))
        return missingArgument(file);
    *handle = nullptr;
    ZStanzaDialect_6_0 chosen;
    int const code = findDialect(dialect, file, chosen);
    return code != zpropOk ? code : openFile(handle, file, mode, chosen);
}

int zstzPropNew_6_0(ZPROP_handle** handle, char const* dialect)
{
    if (handle == nullptr)
        return missingArgument();
    *handle = nullptr;
    ZStanzaDialect_6_0 chosen;
    int const code = findDialect(dialect, nullptr, chosen);
    return code != zpropOk ? code : openFile(handle, nullptr, zpropOpenUpdate, chosen);
}

int zstzPropReload_6_0(ZPROP_handle* handle)
{
    // The dialect and the name of a store do not change.
    Files::Pin const pin = openFiles.pin(handle);
    ZStanzaDialect_6_0 const dialect = pin ? pin->store->dialect() : ZStanzaDialect_6_0();
    Call call;
    call.file = pin ? pin->store->knownName() : nullptr;
    call.loaded = &dialect;
    return withHandle(handle, call, openStoreCode, [](ZPROP_handle& file) {
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
    return readFile(handle, {}, code, [](Store const& store) {
        ZStanzaDialect_6_0 const dialect = store.dialect();
        return returnedString(dialect.name(), strlen(dialect.name()));
    });
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
    Files::Pin const pin = openFiles.pin(handle);
    ZStanzaDialect_6_0 const dialect = pin ? pin->store->dialect() : ZStanzaDialect_6_0();
    Call call{{nullptr, nullptr, ""}};
    call.loaded = &dialect;
    call.text = text != nullptr ? text : "";
    call.length = length;
    return withHandle(handle, call, openStoreCode, [&](ZPROP_handle& file) {
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
