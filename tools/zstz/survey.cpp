#include "survey.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

char const* reportOfMark(std::string_view bytes)
{
    auto const begins = [bytes](std::string_view mark) {
        return bytes.substr(0, mark.size()) == mark;
    };
    if (begins("\xEF\xBB\xBF"))
        return "the file begins with a byte order mark; save it as UTF-8 without one";
    if (begins("\xFF\xFE") || begins("\xFE\xFF"))
        return "the file is UTF-16 text; save it as UTF-8 without a byte order mark";
    return nullptr;
}

std::string contents(std::string const& path)
{
    std::string text;
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return text;
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        char part[65536];
        ssize_t got;
        while ((got = read(fd, part, sizeof part)) > 0)
            text.append(part, static_cast<size_t>(got));
    }
    close(fd);
    return text;
}

void survey(std::string const& path, std::function<bool(Piece const&)> const& visit)
{
    // A piece ends behind a line feed, or with as many bytes as a line and its line feed may have.
    constexpr size_t kMost = kLongestLine + 1;
    std::string const text = contents(path);
    std::string_view rest = text;
    size_t number = 0, line = 1;
    bool isRest = false;
    while (!rest.empty()) {
        size_t const feed = rest.substr(0, kMost).find('\n');
        bool const ends = feed != std::string_view::npos;
        std::string_view const bytes = rest.substr(0, ends ? feed : kMost);
        rest.remove_prefix(bytes.size() + (ends ? 1 : 0));
        bool const goesOn = !ends && !rest.empty();
        if (!visit({++number, line, isRest || goesOn, bytes.find('\0') != bytes.npos, bytes}))
            return;
        isRest = goesOn;
        if (ends)
            ++line;
    }
}
