// validation: whether names and values survive writing and reading.
#pragma once

namespace zstanza {

/// Each returns whether the line for the argument would be read back as the same name or value.
/// ZPropertiesImpl.h has the rules.
bool isValidCategory(char const* category);
bool isValidKey(char const* key);
bool isValidValue(char const* key, char const* value);

}  // namespace zstanza
