// MachineFiles: the configuration files of the machine that runs the test.
#pragma once

#include <filesystem>
#include <system_error>

// Calls `call(directory_entry)` for each entry below /etc, /usr/lib and /usr/share that this user
// may see.
template <class Call>
void forEachMachineFile(Call call)
{
    namespace fs = std::filesystem;
    for (char const* const root : {"/etc", "/usr/lib", "/usr/share"}) {
        std::error_code ignored;
        fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied,
                                            ignored);
        for (; it != fs::recursive_directory_iterator(); it.increment(ignored))
            call(*it);
    }
}
