// reserved_entry: the entry of a stanza file that holds the path of its companion.
#pragma once

namespace zstanza {

inline constexpr char kReservedCategory[] = "configuration-database";
inline constexpr char kReservedKey[] = "file";

}  // namespace zstanza
