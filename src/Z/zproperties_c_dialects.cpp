// The plain functions for the dialects that the library knows.
#include "ZStanzaDialect.h"
#include "dialects/recognition.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

char const* zstzPropGetDialectName_6_0(int index)
{
    return ZStanzaDialect_6_0::nameAt(index);
}

int zstzPropCheckDialect_6_0(char const* dialect)
{
    ZStanzaDialect_6_0 found;
    if (dialect == nullptr)
        return missingArgument();
    if (ZStanzaDialect_6_0::named(dialect, found) == 0)
        return recordFailure(zpropUnsupported, "The dialect or a switch of it is unknown.");
    return zpropOk;
}

int zstzPropRecognise_6_0(char const* file, char const* text, size_t length, char const** dialect)
{
    if (file == nullptr || dialect == nullptr || (text == nullptr && length != 0))
        return missingArgument();
    char const* found = nullptr;
    int const code = codeOf(openStoreCode, {{nullptr, nullptr, file}}, nullptr, [&] {
        found = zdialects::recognise(file, {text, length});
    });
    if (code == zpropOk)
        *dialect = found;
    return code;
}
