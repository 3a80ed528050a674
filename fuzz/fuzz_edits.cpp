// Edits of files in any dialect: a value is set, added or removed, a key is added, or two of these;
// or a key or stanza is renamed, a comment is set or removed, or a stanza is removed. The new file
// reads as the old values with the edits, and no other line changes.
#include <Z/dialects/switched_dialect.h>

#include <iterator>

#include "DialectChoices.h"
#include "DialectEdits.h"
#include "DialectReading.h"
#include "DialectRewriter.h"
#include "StoreEdits.h"
#include "check.h"

namespace {

using namespace dialect_model;

// The edits of a run. The kinds of Edit are the first.
enum Kind : unsigned {
    kNewKey = 3,
    kFirstPair = 4,
    kValueAndNewKey = 4,
    kTwoAdditions,
    kSetAndRemoval,
    kKinds
};

// Kinds from here on are edits of a store.
constexpr unsigned kFirstOfStores = 128;
constexpr unsigned kFirstOfKeys = 216;

constexpr char const* kNames[] = {"n1",    "a",   "b",     "k",    "[x]",      "new name", "a.b",
                                  "#c",    "=",   "a=b",   "a]b",  "A",        " x",       "x\\",
                                  "a \"b", "k[]", "k[$e]", "[$i]", "export k", "a]2",      "."};

StoreEdits::Kind storeEditOf(unsigned choice)
{
    constexpr unsigned kFirst = StoreEdits::firstOfKeys;
    return static_cast<StoreEdits::Kind>(choice < kFirstOfKeys
                                             ? choice % kFirst
                                             : kFirst + choice % (StoreEdits::kindCount - kFirst));
}

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

// Chooses one or two edits. Returns none if the file has no value.
std::vector<Edit> chooseEdits(Choices& choices, DialectModel const& model, unsigned kind,
                              std::string const& wanted)
{
    std::vector<Edit> edits(kind < kFirstPair ? 1 : 2);
    for (size_t i = 0; i < edits.size(); ++i) {
        Edit& edit = edits[i];
        if (!chooseValue(choices, model, edit))
            return {};
        bool const isNewKey = kind == kNewKey || (kind == kValueAndNewKey && i == 1);
        edit.kind = isNewKey || kind == kTwoAdditions ? Edit::add
                    : kind < kNewKey                  ? static_cast<Edit::Kind>(kind)
                    : i == 0                          ? Edit::set
                                                      : Edit::remove;
        if (isNewKey)
            edit.key = "newkey";
        edit.value = wanted;
    }
    return edits;
}

// EditCheck takes a byte order mark for a line, and a lone carriage return at the end of the file
// for a line ending that changes. A line that becomes the last of a file without a final newline
// gives up its line ending, and gets the ending of the file if a new line follows.
bool canBeChecked(std::string const& text)
{
    bool const isMixed = !text.ends_with('\n') && text.find("\r\n") != std::string::npos;
    return !text.starts_with("\xef\xbb\xbf") && !text.ends_with('\r') && !isMixed;
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
    unsigned const choice = choices.byte();
    unsigned const kind = choice % kKinds;
    unsigned const value = choices.byte();
    std::string const wanted = value < kEditValues.size() ? kEditValues[value] : choices.text(8);
    Choices position(data, size);
    std::string const text = choices.rest();
    if (wanted.find('\0') != std::string::npos || !canBeWritten(dialect))
        return 0;
    if (choice >= kFirstOfStores) {
        StoreEdits::Kind const edit = storeEditOf(choice);
        bool const isName = edit == StoreEdits::renameKey || edit == StoreEdits::renameStanza ||
                            edit == StoreEdits::addKey;
        int const row = 1 + data[0] % (zdialects::kRowCount - 1);
        StoreEdits(dialect, row, text)
            .run(edit, position, isName && value < std::size(kNames) ? kNames[value] : wanted);
        return 0;
    }
    Switches const rules = modelSwitches(dialect.switches());
    DialectModel const model(text, rules);
    if (model.refused() || !canBeChecked(text))
        return 0;
    std::vector<Edit> const edits = chooseEdits(position, model, kind, wanted);
    if (edits.empty())
        return 0;
    auto const identityOf = [&](Edit const& edit) {
        return std::pair(edit.stanza, model.identityOfKey(edit.key));
    };
    if (edits.size() == 2 && identityOf(edits[0]) == identityOf(edits[1]))
        return 0;
    DialectRewriter rewriter(dialect, text);
    for (Edit const& edit : edits)
        if (!rewriter.isKnown(edit) || rewriter.isMixed(edit) ||
            (edit.kind == Edit::add && rewriter.isAlone(edit)))
            return 0;
    std::optional<std::string> const after = rewriter.write(edits);
    if (!after)
        return 0;
    EditCheck const result(rules, text, edits, *after);
    for (std::string const& broken : result.broken)
        fprintf(stderr, "%s\n", broken.c_str());
    if (!result.broken.empty())
        fprintf(stderr, "kind %u, value \"%s\", before:\n%s\nafter:\n%s\n", kind, wanted.c_str(),
                text.c_str(), after->c_str());
    check(result.holds("back"), "a changed file reads back");
    check(result.holds("local"), "an edit changes no other line");
    check(result.holds("owner"), "an edit leaves comments above their keys and headers");
    return 0;
}
