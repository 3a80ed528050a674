#include "raw_file.h"

#include <Z/ZException.h>
#include <Z/store/journaled_file.h>
#include <errno.h>

#include "busy.h"
#include "stanza_file.h"

namespace {

using zstore::JournaledFile;

// Runs a function of the library's store, with the exceptions of the library.
template <class Action>
auto translateErrors(Action action)
{
    try {
        return action();
    } catch (zfiles::IoError const& failure) {
        throw ZPropertiesIOException_6_0(failure.file.c_str(), failure.callName(), failure.error);
    }
}

}  // namespace

std::string readText(std::string const& path, double wait)
{
    if (path == kStandardInput)
        return readStandardInput();
    return retryWhileBusy(Deadline(wait), [&] {
        return translateErrors([&] {
            return std::string(JournaledFile(path.c_str(), JournaledFile::Mode::load).text());
        });
    });
}

void storeText(std::string const& path, std::string const& old, std::string const& text)
{
    translateErrors([&] {
        JournaledFile file(path.c_str(), JournaledFile::Mode::store);
        if (file.text() != old)
            throw zfiles::IoError{path, zfiles::FailedCall::store, ESTALE};
        file.skipUnchanged();
        file.commit(text, {});
    });
}
