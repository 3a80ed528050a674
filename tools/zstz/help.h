// help: the output of --help.
#pragma once

#include <string>

#include "verbs.h"

/// Returns the text of `zstz --help`.
std::string formatHelp();

/// Returns the text of `zstz VERB --help`.
std::string formatHelp(Verb const& verb);
