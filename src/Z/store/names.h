// names: the suffixes of the files next to a configuration file.
#pragma once

namespace zstore {

inline constexpr char kCompanionSuffix[] = ".obf";
inline constexpr char kJournalSuffix[] = ".zjn";  // of a hidden file
inline constexpr char kNewSuffix[] = ".new";      // of a hidden file that will be renamed

}  // namespace zstore
