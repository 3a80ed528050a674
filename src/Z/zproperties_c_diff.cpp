// The plain function that writes the difference of two strings.
#include <string>
#include <string_view>

#include "lines/unified_diff.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

int zstzPropDiffText_6_0(char const* before, size_t beforeLength, char const* beforeName,
                         char const* after, size_t afterLength, char const* afterName, char** text,
                         size_t* length)
{
    if (text == nullptr)
        return missingArgument();
    *text = nullptr;
    if (length != nullptr)
        *length = 0;
    if ((before == nullptr && beforeLength != 0) || (after == nullptr && afterLength != 0) ||
        beforeName == nullptr || afterName == nullptr)
        return missingArgument();
    return codeOf(openStoreCode, {}, nullptr, [&] {
        std::string const diff = zlines::formatUnifiedDiff(
            {before != nullptr ? before : "", beforeLength},
            {after != nullptr ? after : "", afterLength}, beforeName, afterName);
        *text = returnedString(diff.data(), diff.size());
        if (length != nullptr)
            *length = diff.size();
    });
}
