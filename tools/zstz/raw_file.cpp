#include "raw_file.h"

#include <Z/ZException.h>
#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "busy.h"
#include "failures.h"
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

std::optional<std::string> readPipe(std::string const& path)
{
    bool const isDescriptor = path.starts_with("/dev/fd/") || path.starts_with("/proc/self/fd/");
    struct stat status;
    if (!isDescriptor || stat(path.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode))
        return {};
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::string text;
    char chunk[65536];
    ssize_t length = fd < 0 ? -1 : 0;
    while (fd >= 0 &&
           ((length = read(fd, chunk, sizeof chunk)) > 0 || (length < 0 && errno == EINTR)))
        text.append(chunk, static_cast<size_t>(length < 0 ? 0 : length));
    int const error = errno;
    if (fd >= 0)
        close(fd);
    if (length < 0)
        throw describeOpenError(path, error);
    return text;
}

std::string readText(std::string const& path, double wait)
{
    if (path == kStandardInput)
        return readStandardInput();
    if (std::optional<std::string> text = readPipe(path))
        return *std::move(text);
    return retryWhileBusy(Deadline(wait), [&] {
        return translateErrors([&] {
            return std::string(JournaledFile(path.c_str(), JournaledFile::Mode::load).text());
        });
    });
}

void storeText(std::string const& path, std::string const& old, std::string const& text)
{
    if (text == old && access(path.c_str(), W_OK) != 0)
        return;
    translateErrors([&] {
        JournaledFile file(path.c_str(), JournaledFile::Mode::store);
        if (file.text() != old)
            throw zfiles::IoError{path, zfiles::FailedCall::store, ESTALE};
        file.skipUnchanged();
        file.commit(text, {});
    });
}
