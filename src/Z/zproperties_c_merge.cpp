// The plain function that merges the contents of files.
#include <memory>

#include "ZDialectData.h"
#include "ZException.h"
#include "ZPropertiesImpl.h"
#include "ZStanzaDialect_p.h"
#include "dialects/switched_dialect.h"
#include "lines/difference.h"
#include "lines/text_merge.h"
#include "stanza/raise_sites.h"
#include "stanza/reserved_entry.h"
#include "stanza/stanza_dialect.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

namespace {

struct Input {
    char const* name;  // in the record of a failure
    char const* text;
    size_t length;

    std::string_view view() const { return {text == nullptr ? "" : text, length}; }
};

zlines::MergedText merge(Input const (&inputs)[3], ZStanzaDialect_6_0 const& dialect)
{
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    bool const isStanzaFile = switches.isStanzaFormat();
    auto const other = isStanzaFile ? nullptr : zdialects::dialectWith(switches);
    // Throws the exception of a load if an input cannot be read.
    for (Input const& input : inputs) {
        std::unique_ptr<ZSCFData_6_0> const cache =
            isStanzaFile ? std::make_unique<ZSCFData_6_0>()
                         : std::make_unique<ZDialectData_6_0>(dialect);
        cache->readText(input.name, input.view().data(), input.length);
    }
    if (zlines::changesUnreadBytes(inputs[0].view(), inputs[1].view(), inputs[2].view()))
        ZPropertiesInvalidDataException_6_0(inputs[2].name, "", 0)
            .throwException(zstanza::kSource, zstanza::raiseAtLine);
    zlines::Dialect const& reader =
        isStanzaFile ? zstanza::stanzaDialect() : static_cast<zlines::Dialect const&>(*other);
    if (zlines::changesLinesPassedOver(inputs[0].view(), inputs[1].view(), inputs[2].view(),
                                       reader))
        ZPropertiesInvalidDataException_6_0(inputs[2].name, "", 0)
            .throwException(zstanza::kSource, zstanza::raiseAtLine);
    try {
        return zlines::mergeTexts(inputs[0].view(), inputs[1].view(), inputs[2].view(), reader,
                                  isStanzaFile ? zstanza::kReservedCategory : "");
    } catch (zlines::Refusal const& refusal) {
        ZPropertiesInvalidValueException_6_0(inputs[1].name, refusal.stanza.c_str(),
                                             refusal.key.c_str(), refusal.value.c_str())
            .throwException(zstanza::kSource, zstanza::raiseForLine);
    }
}

}  // namespace

int zstzPropMergeText_6_0(char const* base, size_t baseLength, char const* ours, size_t oursLength,
                          char const* theirs, size_t theirsLength, char const* dialect, char** text,
                          size_t* length, int* conflicts)
{
    if (text == nullptr)
        return missingArgument();
    *text = nullptr;
    if (length != nullptr)
        *length = 0;
    if (conflicts != nullptr)
        *conflicts = 0;
    Input const inputs[] = {
        {"base", base, baseLength}, {"ours", ours, oursLength}, {"theirs", theirs, theirsLength}};
    for (Input const& input : inputs)
        if (input.text == nullptr && input.length != 0)
            return missingArgument();
    ZStanzaDialect_6_0 chosen;
    if (dialect != nullptr && ZStanzaDialect_6_0::named(dialect, chosen) == 0)
        return recordFailure(zpropUnsupported, "The dialect or a switch of it is unknown.");
    return codeOf(openStoreCode, {}, nullptr, [&] {
        zlines::MergedText const merged = merge(inputs, chosen);
        *text = returnedString(merged.text.data(), merged.text.size());
        if (length != nullptr)
            *length = merged.text.size();
        if (conflicts != nullptr)
            *conflicts = static_cast<int>(merged.conflicts);
    });
}
