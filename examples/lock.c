/* Changes a configuration file under a lock between processes, so that programs with the same lock
   change it one after another. In C99, through the plain functions.
   usage: lock FILE */
#include <Z/zproperties_c.h>
#include <stdio.h>

static int fail(char const* action)
{
    ZPROPError error;

    error.size = sizeof error;
    if (zstzPropGetLastError_6_0(&error) == zpropOk)
        printf("%s: code %d: %s\n", action, error.code, error.text);
    return 1;
}

/* Prints how many values each key of a stanza has. */
static int count(ZPROP_handle* config, char const* stanza)
{
    ZPROP_iter_handle* keys;
    int code;

    printf("keys in [%s]: %d\n", stanza, zstzPropNumKeys_6_0(config, stanza, &code));
    if (zstzPropIter_init_6_0(config, stanza, NULL, &keys) != zpropOk)
        return fail("iterator");
    printf("keys of the iterator: %d\n", zstzPropIter_numKeys_6_0(keys, &code));
    while (zstzPropIter_next_6_0(keys, &code)) {
        char* const key = zstzPropIter_getKey_6_0(keys, &code);
        printf("%s: %d\n", key != NULL ? key : "", zstzPropIter_numValues_6_0(keys, &code));
        zstzPropFree_6_0(key);
    }
    zstzPropIter_close_6_0(keys);
    return 0;
}

static int change(char const* file)
{
    ZPROP_handle* config;
    int code;
    int result;

    if (zstzPropSetDefaultOption_6_0(zpropKeepLines, 1) != zpropOk ||
        zstzPropOpen_6_0(&config, file, zpropOpenUpdate) != zpropOk)
        return fail("open");
    code = zstzPropSetBooleanValue_6_0(config, "maintenance", "enabled", 1);
    if (code == zpropOk)
        code = zstzPropAddStanzaComment_6_0(config, "maintenance", "set while the lock is held");
    if (code == zpropOk)
        code = zstzPropAddFileComment_6_0(config, "changed by the lock example");
    if (code == zpropOk)
        printf("enabled: %d\n",
               zstzPropGetBooleanValue_6_0(config, "maintenance", "enabled", 0, &code));
    result = code == zpropOk ? count(config, "maintenance") : fail("change");
    if (result == 0 && zstzPropStore_6_0(config, NULL) != zpropOk)
        result = fail("store");
    zstzPropClose_6_0(config);
    return result;
}

int main(int argc, char** argv)
{
    ZPROP_lock* lock;
    ZPROP_lock* second;
    unsigned long before;
    int code;
    int result;

    if (argc != 2)
        return 2;
    /* Readers and writers of the lock "gateway" in this directory; waits up to two seconds. */
    if (zstzLockAcquire_6_0(&lock, ".", "gateway", 1, 2000) != zpropOk)
        return fail("lock");
    before = zstzLockGetSequence_6_0(lock, &code);
    printf("sequence %lu\n", before);
    result = change(argv[1]);
    /* A writer excludes all others, also in its own process. */
    if (zstzLockAcquire_6_0(&second, ".", "gateway", 0, 0) == zpropOk)
        return 1;
    printf("busy\n");
    /* A changed file increments the number, by which readers notice the change. */
    if (zstzLockRelease_6_0(lock, result == 0) != zpropOk)
        return fail("release");
    if (zstzLockAcquire_6_0(&lock, ".", "gateway", 0, 2000) != zpropOk)
        return fail("lock");
    printf("sequence %lu\n", zstzLockGetSequence_6_0(lock, &code));
    if (zstzLockRelease_6_0(lock, 0) != zpropOk)
        return fail("release");
    return result;
}
