// lock_file: the name and layout of the file of a process lock. docs/file-formats.md has the form.
#pragma once

namespace zfiles {

struct LockFile {
    static constexpr char kPrefix[] = "._zpl";  // followed by the name of the lock

    struct Range {
        unsigned start;
        unsigned length;
    };
    // The sequence number. A record lock on it is a lock on the data.
    static constexpr Range kSequence = {0, 4};
    // The process that wrote last. A process locks it, as a gate, before it locks the data.
    static constexpr Range kProcessId = {4, 4};
};

}  // namespace zfiles
