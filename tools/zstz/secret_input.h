// secret_input: reads a value that must not appear on the command line.
#pragma once

#include <string>

/// Reads a value from standard input: at a terminal a line, without echo; else all of it, without
/// one trailing newline.
/// throws  Failure if it is empty or has a zero byte.
std::string readSecret();
