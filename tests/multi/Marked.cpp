#include "Marked.h"

#include <Z/ZException.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

#include "Campaign.h"
#include "Generation.h"

namespace {

constexpr char kBegin[] = "/the store begins";
constexpr char kEnd[] = "/the store ends";

void mark(char const* text)
{
    (void)access(text, F_OK);
}

int runMarked(Marked::Task const& command)
{
    // Paths of this program have no blanks and quotes: nothing is quoted.
    std::vector<char*> arguments;
    for (std::string const& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return ended(inChild([&] {
        execvp(arguments[0], arguments.data());
        return 127;
    }));
}

Marked::Task straced(Marked::Task const& task, std::vector<std::string> const& options)
{
    Marked::Task command = {"strace", "-qq"};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back("/proc/self/exe");
    char self[4096];
    ssize_t const length = readlink("/proc/self/exe", self, sizeof self);
    command.back().assign(self, static_cast<size_t>(length));
    command.insert(command.end(), task.begin(), task.end());
    return command;
}

}  // namespace

bool Marked::isWanted(int argc, char** argv)
{
    return (argc == 6 && std::strcmp(argv[1], "--store") == 0) ||
           (argc == 3 && std::strcmp(argv[1], "--load") == 0);
}

int Marked::run(char** argv)
{
    bool const stores = std::strcmp(argv[1], "--store") == 0;
    // The widest mask: what is narrower than the file's mode was narrowed on purpose.
    umask(0);
    int answer = strange;
    mark(kBegin);
    try {
        if (stores) {
            Generation(std::strtol(argv[3], nullptr, 10), std::strtoul(argv[4], nullptr, 10),
                       std::strcmp(argv[5], "secret") == 0)
                .store(argv[2]);
            answer = stored;
        } else {
            answer = static_cast<int>(Generation::load(argv[2]).number());
        }
    } catch (Torn const&) {
        answer = torn;
    } catch (ZException_6_0&) {
        answer = raised;
    } catch (...) {
        answer = strange;
    }
    mark(kEnd);
    return answer;
}

std::string Marked::obstacle()
{
    if (runProgram({"strace", "-V"}) != 0)
        return "strace is not installed";
    if (runProgram({"strace", "-qq", "-o", "/dev/null", "true"}) != 0)
        return "strace may not trace here";
    return "";
}

std::vector<Marked::Place> Marked::places(Task const& task, std::string const& which)
{
    char log[] = "/tmp/zcrashXXXXXX";
    close(mkstemp(log));
    runMarked(straced(task, {"-o", log, "-e", "trace=" + which}));
    std::vector<Place> found;
    std::map<std::string, int> seen;
    bool inside = false;
    FILE* const file = std::fopen(log, "r");
    char line[65536];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        char const* const end = std::strchr(line, '(');
        if (end == nullptr)
            continue;
        std::string const call(line, static_cast<size_t>(end - line));
        int const number = ++seen[call];
        if (std::strstr(line, kBegin) != nullptr)
            inside = true;
        else if (std::strstr(line, kEnd) != nullptr)
            inside = false;
        else if (inside)
            found.push_back({call, number});
    }
    std::fclose(file);
    unlink(log);
    return found;
}

int Marked::tamperedWith(Task const& task, Place const& place, std::string const& how)
{
    return runMarked(straced(
        task, {"-o", "/dev/null", "-e", "trace=" + place.call, "-e",
               "inject=" + place.call + ":" + how + ":when=" + std::to_string(place.number)}));
}
