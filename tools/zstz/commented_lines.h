// commented_lines: key lines that are turned into comments, and such comments that are turned back.
#pragma once

#include "edited_file.h"

/// Turns the lines of a key into comments that turnOn() turns back.
/// throws  Failure if the key is missing, obfuscated, or spelled in a form that no comment can
///         hold, or that turnOn() would not restore.
void turnOff(EditedFile& file, Request const& request);

/// Turns a comment with a line of a key, or adjacent comments that turnOff() made, into lines of
/// the key. Comments below the comment of a header belong to another stanza, unless they have more
/// marks.
/// throws  Failure if there is no such comment, or more than one and the request names none.
void turnOn(EditedFile& file, Request const& request);

// The new line of a key without lines. It belongs below a comment with a line of the key.
class NewLine {
public:
    /// Call this before the change.
    /// range   `file` and `request` outlive the object.
    NewLine(EditedFile& file, Request const& request);

    /// Moves the line below the comments that turnOff() has distinguished by several marks, or
    /// below the lines that continue the comment right above it. Does nothing if there are no such
    /// comments.
    void place();

private:
    EditedFile& file_;
    Request const& request_;
    std::string before_;  // the text before the change, if it can have such comments
};
