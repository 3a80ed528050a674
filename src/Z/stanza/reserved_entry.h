// reserved_entry: the entry of a stanza file that names its companion.
#pragma once

namespace zstanza {

constexpr char kCompanionCategory[] = "configuration-database";
constexpr char kCompanionKey[] = "file";

}  // namespace zstanza
