// stanza_dialect: how the lines of a stanza file are recognised and spelled.
#pragma once

#include "../lines/dialect.h"

namespace zstanza {

/// Returns the dialect. It finds the lines that the parser reads.
zlines::Dialect const& stanzaDialect();

}  // namespace zstanza
