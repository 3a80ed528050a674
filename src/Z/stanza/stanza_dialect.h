// stanza_dialect: how the lines of a stanza file are recognised and spelled.
#pragma once

#include "../lines/dialect.h"

namespace zstanza {

/// Return the dialect. It finds the lines that the parser reads.
zlines::Dialect const& stanzaDialect();
zlines::SharedDialect sharedStanzaDialect();

}  // namespace zstanza
