// reserved_entry: the entry of a stanza file that holds the path of its companion.
#pragma once

#include <string>
#include <string_view>

namespace zstanza {

inline constexpr char kReservedCategory[] = "configuration-database";
inline constexpr char kReservedKey[] = "file";

/// Returns the path of the companion that the text of a stanza file names; empty if it names no
/// file. Invalid lines are ignored.
std::string findCompanion(std::string_view text);

}  // namespace zstanza
