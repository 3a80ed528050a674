// process_setup: the start and the end of a command-line tool.
#pragma once

/// Opens a closed standard descriptor as /dev/null, in the wrong mode, so that using it fails. If
/// it stayed closed, the next file opened would get its number and receive the output.
void openStandardDescriptors();

/// Sets QVRDIR to the tables of the text services that are installed with the tool, unless QVRDIR
/// is set. Returns whether it has set QVRDIR.
bool setTablesVariable();

/// Flushes standard output.
/// throws  Failure if the output could not be written.
void requirePrinted();
