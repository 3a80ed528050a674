// Edits of files in any dialect: the new file reads as the old values with the edit, and no other
// line changes.
#include <Z/dialects/switched_dialect.h>

#include "DialectChoices.h"
#include "DialectEdits.h"
#include "DialectReading.h"
#include "DialectRewriter.h"
#include "check.h"

namespace {

using namespace dialect_model;

// Chooses a value of the file. Returns false if it has none.
bool chooseValue(Choices& choices, DialectModel const& model, Edit& edit)
{
    if (model.stanzas.empty())
        return false;
    Stanza const& stanza =
        model.stanzas[choices.below(static_cast<unsigned>(model.stanzas.size()))];
    if (stanza.keys.empty())
        return false;
    Key const& key = stanza.keys[choices.below(static_cast<unsigned>(stanza.keys.size()))];
    if (key.values.empty())
        return false;
    edit.stanza = stanza.name;
    edit.key = key.name;
    edit.index = choices.below(static_cast<unsigned>(key.values.size()));
    return true;
}

// EditCheck takes a byte order mark for a line, and a lone carriage return at the end of the file
// for a line ending that changes.
bool canBeChecked(std::string const& text)
{
    return !text.starts_with("\xef\xbb\xbf") && !text.ends_with('\r');
}

// No dialect of the table has separate stanzas below keys without a header. The difference writer
// then writes a header for these keys.
bool canBeWritten(zdialects::SwitchedDialect const& dialect)
{
    return dialect.joinsHeaders() || dialect.topStanza().empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Choices choices(data, size);
    zdialects::SwitchedDialect const dialect(switchesOf(choices));
    Edit edit;
    edit.kind = static_cast<Edit::Kind>(choices.below(3));
    unsigned const value = choices.byte();
    edit.value = value < kEditValues.size() ? kEditValues[value] : choices.text(8);
    Choices position(data, size);
    std::string const text = choices.rest();
    Switches const rules = modelSwitches(dialect.switches());
    DialectModel const model(text, rules);
    if (model.refused() || !canBeChecked(text) || !canBeWritten(dialect) ||
        edit.value.find('\0') != std::string::npos || !chooseValue(position, model, edit))
        return 0;
    DialectRewriter rewriter(dialect, text);
    if (!rewriter.isKnown(edit) || rewriter.isMixed(edit) ||
        (edit.kind == Edit::add && rewriter.isAlone(edit)))
        return 0;
    std::optional<std::string> const after = rewriter.write({edit});
    if (!after)
        return 0;
    EditCheck const result(rules, text, {edit}, *after);
    for (std::string const& broken : result.broken)
        fprintf(stderr, "%s\n", broken.c_str());
    if (!result.broken.empty())
        fprintf(stderr, "kind %d, value \"%s\", before:\n%s\nafter:\n%s\n", edit.kind,
                edit.value.c_str(), text.c_str(), after->c_str());
    check(result.holds("back"), "a changed file reads back");
    check(result.holds("local"), "an edit changes no other line");
    return 0;
}
