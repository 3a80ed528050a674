// spelling: changes of the bytes of lines that no value, and no name, describes.
#pragma once

#include <string>

#include "edited_file.h"

/// Replaces the spelling of the value `placeholder` of a key by the value of the request or, if the
/// request is for a key alone, removes it with the separator.
/// throws  Failure if the line would not read back as it is spelled.
void respellValue(EditedFile& file, Request const& request, std::string const& placeholder);

/// Returns whether the new name of a request is the old name in another spelling.
bool isSameName(Store const& store, Request const& request);

/// Changes the spelling of a name in all headers of the stanza, or in all lines of the key.
/// throws  Failure if a line would not read back with the new name.
void respellName(EditedFile& file, Request const& request);
