/* Reads, changes and stores a configuration file through the plain functions, in C99.
   usage: flat FILE */
#include <Z/zproperties_c.h>
#include <stdio.h>

/* A value that is empty comes as a null pointer. */
static char const* or_empty(char const* text)
{
    return text != NULL ? text : "";
}

static void print_servers(ZPROP_handle* config)
{
    ZPROP_iter_handle* server;
    int code;

    if (zstzPropIter_init_6_0(config, "upstream", "server", &server) != zpropOk)
        return;
    while (zstzPropIter_next_6_0(server, &code)) {
        char* const text = zstzPropIter_getValue_6_0(server, &code);
        printf("server: %s\n", or_empty(text));
        zstzPropFree_6_0(text);
    }
    zstzPropIter_close_6_0(server);
}

/* Reads several values of different types in one call. */
static int print_settings(ZPROP_handle* config)
{
    int check = 0;
    unsigned int idle = 0;
    char* level = NULL;
    char** addresses = NULL;
    ZPROPValue values[] = {
        {zpropBoolean, "upstream", "health-check", 0, &check},
        {zpropInteger, "listener", "idle-timeout", 0, &idle},
        {zpropString, "log", "level", 0, &level},
        {zpropStringList, "listener", "address", 0, &addresses},
    };
    int const count = sizeof values / sizeof *values;
    int const code = zstzPropGetValues_6_0(config, values, count);
    int i;

    if (code == zpropOk) {
        printf("health check: %s\nidle timeout: %u s\nlog level: %s\n", check ? "on" : "off", idle,
               or_empty(level));
        for (i = 0; addresses[i] != NULL; ++i)
            printf("address: %s\n", addresses[i]);
    }
    zstzPropFreeValuesList_6_0(config, values, count);
    return code;
}

int main(int argc, char** argv)
{
    ZPROP_handle* config;
    unsigned int retries;
    int code;

    if (argc != 2) {
        fputs("usage: flat FILE\n", stderr);
        return 2;
    }
    code = zstzPropOpen_6_0(&config, argv[1], zpropOpenUpdate);
    if (code != zpropOk) {
        fprintf(stderr, "cannot open %s: code %d\n", argv[1], code);
        return 1;
    }
    code = print_settings(config);
    print_servers(config);

    /* A key that is missing is code 54; with the default flag it would be 0. */
    retries = zstzPropGetIntegerValue_6_0(config, "upstream", "retries", 0, &code);
    printf("retries: %u, code %d\n", retries, code);

    /* A new key goes to the comment that shows its default. */
    code = zstzPropSetIntegerValue_6_0(config, "upstream", "retries", 3);
    if (code == zpropOk)
        code = zstzPropAddLineComment_6_0(config, "log", "level", "# quiet on the weekend");
    if (code == zpropOk)
        code = zstzPropSetStringValue_6_0(config, "log", "level", "warning");
    if (code == zpropOk)
        code = zstzPropStore_6_0(config, NULL);
    printf("changed and stored: code %d\n", code);
    zstzPropClose_6_0(config);
    return code == zpropOk ? 0 : 1;
}
