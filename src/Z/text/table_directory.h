// table_directory: the directory of the text-services tables.
#pragma once

namespace ztext {

/// The result of setTableDirectory().
enum class DirectoryResult { accepted, tooLong, inUse };

/// Makes `directory` the directory of the tables, in place of QVRDIR. Fails with `inUse` after the
/// text services have started.
/// owns    `directory` is copied.
/// threads any.
DirectoryResult setTableDirectory(char const* directory);

/// Returns whether there is a directory: set by a call, or QVRDIR. A set-uid program must not
/// read tables of its caller's choice: there QVRDIR is treated as unset.
bool hasTableDirectory();

/// Returns the directory when the text services start, and makes it final; null without a
/// directory.
/// owns    borrowed forever.
char const* finalTableDirectory();

}  // namespace ztext
