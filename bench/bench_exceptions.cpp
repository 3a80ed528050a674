// Exceptions: thrown in a function, caught in its caller by the base class, and reported to
// standard error.
#include <Z/ZException.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

constexpr char kFile[] = "/etc/app/app.conf";
constexpr char kSource[] = "bench/bench_exceptions";
constexpr int kSite = 1;

// ---- The library's exceptions: constructed, and thrown as a copy.

struct Z {
    using Base = ZException_6_0;
    [[gnu::noinline]] static void raise()
    {
        ZInvalidParameterException_6_0().throwException(kSource, kSite);
    }
    [[gnu::noinline]] static void raiseText(char const* file)
    {
        ZUnexpectedEndOfFile_6_0(file).throwException(kSource, kSite);
    }
    static void report(Base& exception) { exception.dumpException(); }
};

// ---- std::runtime_error. Its report has the same lines.

void reportLikeZ(std::runtime_error const& exception)
{
    fprintf(stderr, "Exception: %s\n File: \"%s\" %d\n Error: %d\n Thread: %d\nNUM_MSGS = %d\n%s",
            "runtime_error", kSource, kSite, 53, static_cast<int>(pthread_self()), 55,
            exception.what());
}

struct RuntimeError {
    using Base = std::runtime_error;
    [[gnu::noinline]] static void raise() { throw std::runtime_error("An argument is invalid."); }
    [[gnu::noinline]] static void raiseText(char const* file)
    {
        throw std::runtime_error(std::string("Unexpected end of file ") + file + ".");
    }
    static void report(Base& exception) { reportLikeZ(exception); }
};

// Does the work of the library's exceptions: one of its functions throws a copy of it.
class CopiedError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    CopiedError(CopiedError const&) = default;
    ~CopiedError() override;
    [[noreturn]] virtual void throwException() { throw CopiedError(*this); }
};

CopiedError::~CopiedError() = default;

struct CopiedRuntimeError {
    using Base = std::runtime_error;
    [[gnu::noinline]] static void raise()
    {
        CopiedError("An argument is invalid.").throwException();
    }
    [[gnu::noinline]] static void raiseText(char const* file)
    {
        CopiedError(std::string("Unexpected end of file ") + file + ".").throwException();
    }
    static void report(Base& exception) { reportLikeZ(exception); }
};

// Sends standard error to /dev/null in this scope.
class SilentErrors {
public:
    SilentErrors()
    {
        int const null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDERR_FILENO);
        close(null);
    }
    SilentErrors(SilentErrors const&) = delete;
    SilentErrors& operator=(SilentErrors const&) = delete;
    ~SilentErrors()
    {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
    }

private:
    int const saved_ = dup(STDERR_FILENO);
};

template <class Contender, bool hasText, bool isReported>
void throwAndCatch(benchmark::State& state)
{
    SilentErrors const silent;
    for (auto _ : state) {
        try {
            if constexpr (hasText)
                Contender::raiseText(kFile);
            else
                Contender::raise();
        } catch (typename Contender::Base& exception) {
            if constexpr (isReported)
                Contender::report(exception);
            benchmark::DoNotOptimize(&exception);
        }
    }
}

template <class Contender>
void registerRows(std::string const& contender)
{
    auto const add = [&](char const* row, char const* kind, void (*run)(benchmark::State&)) {
        benchmark::RegisterBenchmark((row + contender + kind).c_str(), run);
    };
    add("ThrowAndCatch/", "/plain", throwAndCatch<Contender, false, false>);
    add("ThrowAndCatch/", "/text", throwAndCatch<Contender, true, false>);
    add("ThrowCatchReport/", "/plain", throwAndCatch<Contender, false, true>);
    add("ThrowCatchReport/", "/text", throwAndCatch<Contender, true, true>);
}

bool const areRowsRegistered = [] {
    registerRows<Z>("Z");
    registerRows<RuntimeError>("std.runtime_error");
    registerRows<CopiedRuntimeError>("std.runtime_error+copy");
    return true;
}();

}  // namespace
