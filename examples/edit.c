/* Edits a configuration file so that only the changed lines differ, and reports failures with file,
   line and reason. In C99, through the plain functions.
   usage: edit FILE */
#include <Z/zproperties_c.h>
#include <stdio.h>

/* Prints the last failure of this thread: the code alone is only its kind. */
static int fail(char const* action)
{
    ZPROPError error;

    error.size = sizeof error;
    if (zstzPropGetLastError_6_0(&error) != zpropOk)
        return 1;
    printf("%s: code %d, message %u\n", action, error.code, error.messageNumber);
    if (error.line != 0)
        printf("  line %lu, column %lu\n", error.line, error.column);
    if (error.key[0] != '\0')
        printf("  key %s of [%s]\n", error.key, error.stanza);
    printf("  %s\n", error.text);
    return 1;
}

static void print_change(int change, char const* stanza, char const* key, void* context)
{
    static char const* const names[] = {"added", "removed", "set", "commented", "loaded"};

    ++*(int*)context;
    if (change >= zpropAdded && change <= zpropLoaded) /* later versions may add kinds */
        printf("%s: [%s] %s\n", names[change], stanza, key);
}

static int print_problem(ZPROPProblem const* problem, void* context)
{
    printf("%s:%lu:%lu: %s\n", (char const*)context, problem->line, problem->column, problem->text);
    return 0; /* continue */
}

static void print_stanzas(ZPROP_handle* config)
{
    ZPROP_iter_handle* stanzas;
    int code;

    if (zstzPropIter_initStanzas_6_0(config, &stanzas) != zpropOk)
        return;
    while (zstzPropIter_next_6_0(stanzas, &code)) {
        char* const name = zstzPropIter_getKey_6_0(stanzas, &code);
        char* comment;

        /* Null is the empty name, of a header "[]", or exhausted memory. */
        if (code != zpropOk) {
            fail("stanza");
            break;
        }
        comment = name != NULL ? zstzPropGetStanzaComment_6_0(config, name, &code) : NULL;
        printf("[%s] %s\n", name != NULL ? name : "", comment != NULL ? comment : "");
        zstzPropFree_6_0(comment);
        zstzPropFree_6_0(name);
    }
    zstzPropIter_close_6_0(stanzas);
}

static int edit(ZPROP_handle* config)
{
    char const* const servers[] = {"app-1.example.net:9000", "app-3.example.net:9000"};
    unsigned long line;
    int code;

    if (zstzPropSetStringValues_6_0(config, "upstream", "server", servers, 2) != zpropOk ||
        zstzPropRemoveValue_6_0(config, "listener", "address", "0.0.0.0:8080") != zpropOk ||
        zstzPropRenameKey_6_0(config, "log", "level", "verbosity") != zpropOk)
        return fail("edit");
    line = zstzPropGetLine_6_0(config, "upstream", "server", 1, &code);
    printf("the second server is in line %lu\n", line);
    return 0;
}

/* Contents in memory need no file. */
static int check_text(void)
{
    static char const text[] = "[listener]\nport = 8080\n  backlog 16\n";
    ZPROP_handle* config;
    int result = 0;

    if (zstzPropNew_6_0(&config, "stanza") != zpropOk)
        return fail("new");
    if (zstzPropLoadText_6_0(config, text, sizeof text - 1) != zpropOk)
        fail("text"); /* expected: the last line has no "=" */
    else
        result = 1;
    zstzPropClose_6_0(config);
    return result;
}

int main(int argc, char** argv)
{
    ZPROP_handle* config;
    int changes = 0;
    int result = 1;

    if (argc != 2) {
        fprintf(stderr, "usage: edit FILE\n");
        return 2;
    }
    /* Keep the lines as they are, and wait for another process that stores the file. */
    if (zstzPropSetDefaultOption_6_0(zpropKeepLines, 1) != zpropOk ||
        zstzPropSetDefaultOption_6_0(zpropWaitSeconds, 2) != zpropOk)
        return fail("options");
    if (zstzPropFindProblems_6_0(argv[1], NULL, print_problem, argv[1]) != zpropOk ||
        zstzPropOpenAs_6_0(&config, argv[1], zpropOpenUpdate, NULL) != zpropOk)
        return fail("open");
    /* An open store has options of its own, for the next load. */
    if (zstzPropSetOption_6_0(config, zpropWaitSeconds, 5) == zpropOk &&
        zstzPropReload_6_0(config) == zpropOk &&
        zstzPropSetObserver_6_0(config, print_change, &changes) == zpropOk) {
        print_stanzas(config);
        result = edit(config);
        if (result == 0 && zstzPropStore_6_0(config, NULL) != zpropOk)
            result = fail("store");
    } else {
        fail("prepare");
    }
    zstzPropClose_6_0(config);
    printf("%d changes\n", changes);
    return result != 0 ? result : check_text();
}
