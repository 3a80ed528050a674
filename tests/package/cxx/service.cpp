#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    try {
        ZStanzaFileProperties_6_0 const config(argv[1], 0);
        ZLCString_6_0 name;
        config.getValue("service", "name", name, 1, nullptr);
        printf("service: port %u, name \"%s\"\n", config.getIntegerValue("service", "port", 1, 0),
               name.getChars());
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
