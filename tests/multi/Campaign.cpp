#include "Campaign.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <vector>

void complain(Counts& counts, std::string const& what)
{
    constexpr long kShown = 20;
    if (++counts.bad <= kShown)
        std::fprintf(stderr, "BAD: %s\n", what.c_str());
}

void remark(Counts& counts, std::string const& what)
{
    std::snprintf(counts.note, sizeof counts.note, "%s", what.c_str());
}

void skip(Counts& counts, std::string const& why)
{
    counts.isSkipped = true;
    remark(counts, why);
}

pid_t inChild(std::function<int()> const& body)
{
    std::fflush(nullptr);
    pid_t const child = fork();
    if (child < 0)
        throw std::bad_alloc();
    if (child > 0)
        return child;
    int code = 99;
    try {
        code = body();
    } catch (std::exception const& problem) {
        std::fprintf(stderr, "child: %s\n", problem.what());
    } catch (...) {
        std::fprintf(stderr, "child: an exception\n");
    }
    std::fflush(nullptr);
    _exit(code);
}

int ended(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
}

int runProgram(std::initializer_list<std::string> arguments, std::string* output)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    pid_t const child = inChild([&] {
        dup2(output != nullptr ? ends[1] : open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
        dup2(STDOUT_FILENO, STDERR_FILENO);
        std::vector<char*> pointers;
        for (std::string const& argument : arguments)
            pointers.push_back(const_cast<char*>(argument.c_str()));
        pointers.push_back(nullptr);
        execvp(pointers[0], pointers.data());
        return 127;
    });
    close(ends[1]);
    char block[4096];
    for (ssize_t n; output != nullptr && (n = read(ends[0], block, sizeof block)) > 0;)
        output->append(block, static_cast<size_t>(n));
    close(ends[0]);
    return ended(child);
}

void* sharedMemory(size_t length)
{
    void* const block =
        mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED)
        throw std::bad_alloc();
    return block;
}
