// strings: sorts a list of strings by keys.
#pragma once

#include "../ZObject.h"

namespace zsorting {

/// Sorts the `count` elements at `elements` by the compare() of the strings, in the order that
/// quickSort() gives, equal strings included. Returns whether it did: all elements that are not
/// null must be strings of exactly one class of this library, and there must be enough memory.
/// Changes nothing otherwise.
/// cost    32 bytes per element while it sorts; in a locale that does not collate by bytes also 4
///         bytes per element and the collation keys, up to 256 MiB.
bool sortStrings(ZObject_6_0** elements, unsigned int count, bool ascending);

}  // namespace zsorting
