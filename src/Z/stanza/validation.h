// validation: which names and values would be read back from a line.
#pragma once

namespace zstanza {

bool isValidCategory(char const* category);
bool isValidKey(char const* key);
bool isValidValue(char const* key, char const* value);

}  // namespace zstanza
