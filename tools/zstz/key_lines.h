// key_lines: the lines of a key in the text of a file.
#pragma once

#include <Z/lines/kept_text.h>
#include <Z/lines/outline.h>

#include <string>
#include <string_view>
#include <vector>

#include "stanza_file.h"

// A line that has a value of a key, or the key only.
struct KeyLine {
    zlines::Line line;
    uint32_t index;        // of the line in the outline
    size_t number;         // counted from 1, by newlines
    std::string_view raw;  // the value as spelled
    std::string value;
};

/// Returns the rules of the lines of a dialect.
zlines::SharedDialect lineDialectOf(ZStanzaDialect_6_0 const& dialect);

/// Returns a stanza as `list` and `diff` show it: [NAME], or [NAME]2 for the second stanza of a
/// name.
std::string formatHeading(ZStanzaDialect_6_0 const& dialect, std::string_view stanza);

/// Returns the name of a stanza in a file of the dialect. The name can be spelled as in a header,
/// if headers have a second form: remote "origin" is remote.origin. If the dialect has several
/// stanzas of one name, the name can also be a heading.
std::string resolveStanza(ZStanzaDialect_6_0 const& dialect, std::string const& name);

/// Returns the text of a file that was loaded with the attribute keepLines.
zlines::SharedText keptText(Store const& store);

/// Returns the lines of a key, in file order.
/// owns    borrowed from the outline.
std::vector<KeyLine> findKeyLines(zlines::Outline& outline, std::string const& stanza,
                                  std::string const& key);

/// Returns whether two files have the same key lines, apart from the given ones of each, and the
/// same number of lines that are passed over.
/// range   the lists may be null.
bool differOnlyIn(zlines::Outline& before, std::vector<KeyLine> const* removed,
                  zlines::Outline& after, std::vector<KeyLine> const* added);
