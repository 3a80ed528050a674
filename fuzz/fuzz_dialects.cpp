// Dialects: the library reads any bytes with any switches as the model of the tests does.
#include <Z/dialects/switched_dialect.h>

#include "DialectChoices.h"
#include "DialectReading.h"
#include "check.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Choices choices(data, size);
    zdialects::SwitchedDialect const dialect(switchesOf(choices));
    std::string const text = choices.rest();
    std::string const difference = dialect_model::differenceFromModel(
        text, dialect_model::modelSwitches(dialect.switches()), dialect);
    if (!difference.empty())
        fprintf(stderr, "%s\n", difference.c_str());
    check(difference.empty(), "a file is read as the model reads it");

    std::vector<zlines::Line> lines;
    auto const again = zdialects::dialectWith(dialect.switches());
    again->split(text, lines);
    bool const isOnlyMark = dialect.switches().byteOrderMark && text == "\xef\xbb\xbf";
    check(lines.empty() == (text.empty() || isOnlyMark), "each file has lines");
    return 0;
}
