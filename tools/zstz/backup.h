// backup: copies of files before they change.
#pragma once

#include <string>

/// Writes `text`, the contents of the file at `path`, to the file with `suffix` appended to the
/// path. An existing file is replaced by a complete one. The copy has the mode of the file, and its
/// owner if this process may set it.
/// throws  Failure.
void storeBackup(std::string const& path, std::string const& suffix, std::string const& text);
