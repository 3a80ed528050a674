// Prints the first bytes of a file, and the bytes of a string.
// usage: hexdump FILE
#include <Z/ZException.h>
#include <Z/ZUTF8String.h>
#include <Z/zhex_dump.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: hexdump FILE\n", stderr);
        return 2;
    }
    FILE* const file = fopen(argv[1], "rb");
    if (file == nullptr) {
        perror(argv[1]);
        return 1;
    }
    unsigned char bytes[40];
    int const length = static_cast<int>(fread(bytes, 1, sizeof bytes, file));
    fclose(file);
    zhex_dump_6_0(stdout, length, bytes, argv[1]);

    try {
        ZUTF8String_6_0 const text("caf\xC3\xA9");
        zhex_dump_6_0(stdout, static_cast<int>(text.getLength()),
                      reinterpret_cast<unsigned char const*>(text.getChars()), "a string");
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
