// commented_lines: key lines that are turned into comments, and such comments that are turned back.
#pragma once

#include "edited_file.h"

/// Turns the lines of a key into comments.
/// throws  Failure if the key is missing, obfuscated, or spelled in a form that no comment can
/// hold.
void turnOff(EditedFile& file, Request const& request);

/// Turns a comment with a line of a key, or adjacent comments that turnOff() made, into lines of
/// the key. Comments below the comment of a header belong to another stanza. throws  Failure if
/// there is no such comment, or more than one and the request names none.
void turnOn(EditedFile& file, Request const& request);

/// Moves the new line of a key below the comment lines that continue a comment with a line of the
/// key, which is right above. Does nothing if there are no such comment lines.
void moveBelowComment(EditedFile& file, Request const& request);
