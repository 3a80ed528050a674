// ZStanzaDialect_p: the switches of a dialect for the reader and the writer.
#pragma once

#include "ZStanzaDialect.h"
#include "dialects/switches.h"

namespace zdialects {

Switches switchesOf(ZStanzaDialect_6_0 const& dialect);

}  // namespace zdialects
