#include <Z/zproperties_c.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    ZPROP_handle* config;
    char* name;
    unsigned port;
    int code;

    if (argc != 2 || zstzPropOpen_6_0(&config, argv[1], 1) != 0)
        return 2;
    port = zstzPropGetIntegerValue_6_0(config, "service", "port", 0, &code);
    if (code != 0)
        return 1;
    name = zstzPropGetStringValue_6_0(config, "service", "name", 0, &code);
    if (code != 0)
        return 1;
    printf("service: port %u, name \"%s\"\n", port, name);
    zstzPropFree_6_0(name);
    zstzPropClose_6_0(config);
    return 0;
}
