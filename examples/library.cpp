// Loads a shared library, calls a function of it and unloads it.
// usage: library LIBRARY
#include <Z/ZException.h>
#include <Z/ZSharedLibrary.h>
#include <stdio.h>

namespace {

void greet(ZSharedLibrary_6_0& library, char const* symbol)
{
    using Greeting = char const*(char const*);
    try {
        auto* const greeting = reinterpret_cast<Greeting*>(library.resolveSymbol(symbol));
        printf("%s: %s\n", symbol, greeting("stranger"));
    } catch (ZSharedLibraryResolveException_6_0&) {
        printf("%s: there is no such function\n", symbol);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: library LIBRARY\n", stderr);
        return 2;
    }
    try {
        ZSharedLibrary_6_0 library(argv[1]);
        library.setLazyResolution(1);
        library.loadLibrary();
        greet(library, "greeting");
        greet(library, "farewell");
        library.unloadLibrary();
        puts(library.getHandle() == nullptr ? "unloaded" : "still loaded");

        ZSharedLibrary_6_0 missing("no-such-library");
        missing.loadLibrary();
    } catch (ZSharedLibraryLoadException_6_0& e) {
        printf("not loaded: message %u\n",
               e.messageNumber());  // dumpException() prints the details
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
