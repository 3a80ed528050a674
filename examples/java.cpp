// Reads a Java property file, changes an entry and stores it.
// usage: java FILE
#include <Z/ZException.h>
#include <Z/ZJavaProperties.h>
#include <Z/ZUTF8String.h>
#include <stdio.h>

namespace {

void print(ZJavaProperties_6_0 const& properties, char const* key)
{
    ZUTF8String_6_0 value;
    properties.getValue(ZUTF8String_6_0(key), value);  // empty if there is no such key
    printf("%s: %s\n", key, value.getChars());
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: java FILE\n", stderr);
        return 2;
    }
    try {
        ZJavaProperties_6_0 properties;
        properties.load(argv[1]);
        char const* const keys[] = {"greeting", "farewell", "timeout", "missing"};
        for (char const* const key : keys)
            print(properties, key);

        properties.setValue(ZUTF8String_6_0("timeout"), ZUTF8String_6_0(60));
        properties.setValue(ZUTF8String_6_0("home"),
                            ZUTF8String_6_0("https://caf\xC3\xA9.example"));
        properties.store(argv[1]);
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
