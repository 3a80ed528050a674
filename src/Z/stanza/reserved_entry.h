// reserved_entry: the entry of a stanza file that holds the path of its companion.
#pragma once

namespace zstanza {

constexpr char kCompanionCategory[] = "configuration-database";
constexpr char kCompanionKey[] = "file";

}  // namespace zstanza
