/* Adds comments, a password and values to a configuration file, renames a stanza and shows the
   spelling of a value. In C99, through the plain functions.
   usage: annotate FILE [TABLES] */
#include <Z/zproperties_c.h>
#include <stdio.h>
#include <string.h>

static int fail(char const* action)
{
    ZPROPError error;

    error.size = sizeof error;
    zstzPropGetLastError_6_0(&error);
    printf("%s: code %d: %s\n", action, error.code, error.text);
    return 1;
}

/* A null pointer is the empty string. */
static void print_and_free(char const* what, char* text)
{
    printf("%s: %s\n", what, text != NULL ? text : "(none)");
    zstzPropFree_6_0(text);
}

static int comment(ZPROP_handle* config)
{
    int code;

    if (zstzPropSetFileComment_6_0(config, "# Gateway of the shop.") != zpropOk ||
        zstzPropSetStanzaComment_6_0(config, "log", "# One line per request.") != zpropOk ||
        zstzPropSetLineComment_6_0(config, "listener", "certificate", NULL) != zpropOk ||
        zstzPropSetLineComment_6_0(config, "listener", "idle-timeout", "# In seconds.") != zpropOk)
        return fail("comment");
    print_and_free("file", zstzPropGetFileComment_6_0(config, &code));
    print_and_free("[log]", zstzPropGetStanzaComment_6_0(config, "log", &code));
    print_and_free("idle-timeout",
                   zstzPropGetLineComment_6_0(config, "listener", "idle-timeout", &code));
    return 0;
}

static int change(ZPROP_handle* config)
{
    int code;

    if (zstzPropAddStanza_6_0(config, "admin") != zpropOk ||
        zstzPropAddStringValue_6_0(config, "admin", "user", "root") != zpropOk ||
        zstzPropAddStringValue_6_0(config, "admin", "user", "guest") != zpropOk ||
        zstzPropSetObfuscatedValue_6_0(config, "admin", "password", "open sesame") != zpropOk ||
        zstzPropRenameStanza_6_0(config, "upstream", "servers") != zpropOk)
        return fail("change");
    printf("password is obfuscated: %d\n",
           zstzPropIsObfuscated_6_0(config, "admin", "password", &code));
    /* A plain value cannot replace it. */
    if (zstzPropSetStringValue_6_0(config, "admin", "password", "x") != zpropOk)
        fail("password");

    /* The spelling is the bytes of the value in its line. */
    if (zstzPropSetRawValue_6_0(config, "servers", "server", 1, "app-3:9000") != zpropOk)
        return fail("spelling");
    if (zstzPropSetRawValue_6_0(config, "servers", "server", 1, " app-3:9000") != zpropOk)
        fail("spelling"); /* expected: the value would lose the space */
    print_and_free("second server", zstzPropGetRawValue_6_0(config, "servers", "server", 1, &code));
    return 0;
}

static int report(ZPROP_handle* config)
{
    size_t length;
    int code;
    char* const text = zstzPropStoreText_6_0(config, &length, &code);

    if (code != zpropOk)
        return fail("text");
    printf("contents of %lu bytes\n", (unsigned long)length);
    zstzPropFree_6_0(text);
    print_and_free("name", zstzPropGetFileName_6_0(config, &code));
    print_and_free("dialect", zstzPropGetDialect_6_0(config, &code));
    printf("unsaved changes: %d\n", zstzPropIsModified_6_0(config, &code));
    return 0;
}

int main(int argc, char** argv)
{
    ZPROP_handle* config;
    int result;

    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: annotate FILE [TABLES]\n");
        return 2;
    }
    /* Without QVRDIR, a program names the tables of the text services itself. */
    if (argc == 3 && zstzPropSetTables_6_0(argv[2]) != zpropOk)
        return fail("tables");
    /* The first load keeps the lines as they are, and waits for another program. */
    if (zstzPropSetDefaultOption_6_0(zpropKeepLines, 1) != zpropOk ||
        zstzPropSetDefaultOption_6_0(zpropWaitMilliseconds, 1500) != zpropOk)
        return fail("options");
    if (zstzPropOpen_6_0(&config, argv[1], zpropOpenUpdate) != zpropOk)
        return fail("open");
    result = comment(config) != 0 || change(config) != 0 || report(config) != 0;
    if (result == 0 && zstzPropStore_6_0(config, NULL) != zpropOk)
        result = fail("store");
    zstzPropClose_6_0(config);
    return result;
}
