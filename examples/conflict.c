/* Changes a file that another program changes at the same time. A store keeps the changes of other
   programs to other values. If both have changed one value, the store fails and leaves the file as
   it is: this program reads the file again and decides with the new value. In C99.
   usage: conflict FILE */
#include <Z/zproperties_c.h>
#include <errno.h>
#include <stdio.h>

static int set(ZPROP_handle* config, char const* stanza, char const* key, char const* value)
{
    return zstzPropSetStringValue_6_0(config, stanza, key, value) == zpropOk;
}

/* Stands in for the other program. */
static int change_elsewhere(char const* file, char const* stanza, char const* key,
                            char const* value)
{
    ZPROP_handle* config;
    int isStored;

    if (zstzPropOpen_6_0(&config, file, zpropOpenUpdate) != zpropOk)
        return 0;
    isStored = set(config, stanza, key, value) && zstzPropStore_6_0(config, NULL) == zpropOk;
    zstzPropClose_6_0(config);
    return isStored;
}

static void print(ZPROP_handle* config, char const* stanza, char const* key)
{
    int code;
    char* const value = zstzPropGetStringValue_6_0(config, stanza, key, 0, &code);

    printf("%s of [%s] is %s\n", key, stanza, value != NULL ? value : "missing");
    zstzPropFree_6_0(value);
}

/* Returns whether the last store failed because another program has changed the same value. */
static int is_conflict(void)
{
    ZPROPError error;

    error.size = sizeof error;
    if (zstzPropGetLastError_6_0(&error) != zpropOk || error.errorNumber != ESTALE)
        return 0;
    printf("the file has another value now\n");
    return 1;
}

/* Sets the timeout to 90 seconds, unless it is longer. */
static int raise_timeout(ZPROP_handle* config)
{
    enum { maxTries = 10 };
    int tries;

    for (tries = 0; tries < maxTries; ++tries) {
        int code;
        unsigned const seconds =
            zstzPropGetIntegerValue_6_0(config, "listener", "idle-timeout", 1, &code);

        if (code == zpropOk && seconds >= 90)
            return 1;
        if (!set(config, "listener", "idle-timeout", "90"))
            return 0;
        if (zstzPropStore_6_0(config, NULL) == zpropOk)
            return 1;
        /* Without this, each further store would fail in the same way. The unsaved value is lost.
         */
        if (!is_conflict() || zstzPropReload_6_0(config) != zpropOk)
            return 0;
        print(config, "listener", "idle-timeout");
    }
    return 0;
}

static int run(ZPROP_handle* config, char const* file)
{
    /* Different values: the file gets both. */
    if (!change_elsewhere(file, "log", "level", "debug") ||
        !set(config, "upstream", "health-check", "no") ||
        zstzPropStore_6_0(config, NULL) != zpropOk)
        return 0;
    if (zstzPropReload_6_0(config) != zpropOk)
        return 0;
    print(config, "log", "level");
    print(config, "upstream", "health-check");

    /* The same value. */
    return change_elsewhere(file, "listener", "idle-timeout", "60") && raise_timeout(config);
}

int main(int argc, char** argv)
{
    ZPROP_handle* config;
    int isDone;

    if (argc != 2) {
        fprintf(stderr, "usage: conflict FILE\n");
        return 2;
    }
    if (zstzPropSetDefaultOption_6_0(zpropKeepLines, 1) != zpropOk ||
        zstzPropSetDefaultOption_6_0(zpropWaitSeconds, 2) != zpropOk ||
        zstzPropOpen_6_0(&config, argv[1], zpropOpenUpdate) != zpropOk)
        return 1;
    isDone = run(config, argv[1]);
    print(config, "listener", "idle-timeout");
    zstzPropClose_6_0(config);
    return isDone ? 0 : 1;
}
