// raw_file: the bytes of a file, read and stored under the lock that every store takes.
#pragma once

#include <optional>
#include <string>

/// Reads the pipe that a shell passes for "<(COMMAND)". Returns nothing for another file: a named
/// pipe may have no writer.
/// throws  Failure.
std::optional<std::string> readPipe(std::string const& path);

/// Returns the text of the file at `path`, of such a pipe, or of standard input.
/// throws  ZPropertiesIOException_6_0; Failure for standard input.
std::string readText(std::string const& path, double wait);

/// Replaces the text of a file, which needs not be readable as a configuration file. Its companion
/// stays. The same text needs no right to write the file.
/// throws  ZPropertiesIOException_6_0, with ESTALE if the file does not have the text `old`; this
/// is
///         not checked if `text` is `old` and the file cannot be written.
void storeText(std::string const& path, std::string const& old, std::string const& text);
