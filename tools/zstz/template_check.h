// template_check: the differences of a file and its template.
#pragma once

#include <Z/ZStanzaProblem.h>

#include <functional>

#include "stanza_file.h"
#include "template.h"

/// Calls `report` with each unknown stanza and key, each invalid value, and each missing key that
/// is required, in file order; missing keys are at the header of their stanza, or at the first
/// line. range   the store has kept lines.
void checkTemplate(Store const& store, Template const& schema,
                   std::function<void(ZStanzaProblem_6_0 const&)> const& report);
