/* Reads the files of other programs, and compares a file with a template and with another version.
   In C99, through the plain functions.
   usage: compare FILE */
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

static int list_dialects(void)
{
    char const* dialect = NULL;
    int count = 0;

    while (zstzPropGetDialectName_6_0(count) != NULL)
        ++count;
    printf("more than ten dialects: %d\n", count > 10);
    if (zstzPropCheckDialect_6_0("python,trailing=#;") != zpropOk)
        return fail("dialect");
    if (zstzPropRecognise_6_0("setup.cfg", NULL, 0, &dialect) != zpropOk)
        return fail("recognise");
    printf("setup.cfg: %s\n", dialect != NULL ? dialect : "(several formats)");
    return 0;
}

/* In this format, an empty value resets the values above it. */
static int change_unit(ZPROP_handle* unit)
{
    static char const kText[] =
        "[Service]\nExecStart=/bin/a\nExecStart=\nExecStart=/bin/b\n\n[Old]\nkey=1\n";
    ZPROP_iter_handle* values;
    char* marshalled;
    size_t length;
    int code, first, count;

    if (zstzPropLoadText_6_0(unit, kText, strlen(kText)) != zpropOk)
        return fail("text");
    print_and_free("all", zstzPropGetAll_6_0(unit, NULL, NULL, NULL, &code));
    /* For a program in Python, which loads them with its module marshal. */
    marshalled = zstzPropGetAllMarshalled_6_0(unit, "Service", NULL, &length, &code);
    printf("marshalled: %lu bytes\n", (unsigned long)length);
    zstzPropFree_6_0(marshalled);
    if (zstzPropGetCountingRange_6_0(unit, "Service", "ExecStart", &first, &count) != zpropOk)
        return fail("range");
    printf("%d of %d values count, from number %d\n", count,
           zstzPropNumValues_6_0(unit, "Service", "ExecStart", &code), first + 1);
    if (zstzPropRemoveKey_6_0(unit, "Old", "key") != zpropOk ||
        zstzPropRemoveStanza_6_0(unit, "Old") != zpropOk)
        return fail("remove");
    printf("stanzas: %d, [Old] exists: %d\n", zstzPropNumStanzas_6_0(unit, &code),
           zstzPropExists_6_0(unit, "Old", NULL, &code));

    /* Changes the last value, adds a value after it, and removes that again. */
    if (zstzPropIter_init_6_0(unit, "Service", "ExecStart", &values) != zpropOk)
        return fail("iterate");
    while (first-- >= 0 && zstzPropIter_next_6_0(values, &code))
        continue;
    zstzPropIter_chgValue_6_0(values, "/bin/c");
    zstzPropIter_addValue_6_0(values, "/bin/d");
    zstzPropIter_rmvValue_6_0(values);
    zstzPropIter_close_6_0(values);
    print_and_free("ExecStart", zstzPropGetAll_6_0(unit, "Service", "ExecStart", NULL, &code));
    return 0;
}

static int print_problem(ZPROPProblem const* problem, void* context)
{
    (void)context;
    printf("line %lu, column %lu: %s\n", problem->line, problem->column, problem->text);
    return 0;
}

static int merge_versions(void)
{
    static char const kBase[] = "[a]\nx = 1\ny = 1\n";
    static char const kOurs[] = "[a]\nx = 2\ny = 1\n";
    static char const kTheirs[] = "[a]\nx = 1\ny = 3\n";
    char* merged;
    char* diff;
    size_t length;
    int conflicts;

    if (zstzPropMergeText_6_0(kBase, strlen(kBase), kOurs, strlen(kOurs), kTheirs, strlen(kTheirs),
                              "stanza", &merged, &length, &conflicts) != zpropOk)
        return fail("merge");
    printf("%d conflicts\n", conflicts);
    if (zstzPropDiffText_6_0(kOurs, strlen(kOurs), "ours", merged, length, "merged", &diff, NULL) !=
        zpropOk) {
        zstzPropFree_6_0(merged);
        return fail("difference");
    }
    zstzPropFree_6_0(merged);
    print_and_free("changes", diff);
    return 0;
}

static int check(char const* file)
{
    static char const kTemplate[] =
        "# [listener]\n# required\n# range: 1..65535\n#port = 8080\n#colour = blue\n";
    char const* const name = "template.conf";
    ZPROP_handle* schema;
    int code;

    if (zstzPropNew_6_0(&schema, NULL) != zpropOk)
        return fail("new");
    code = zstzPropLoadText_6_0(schema, kTemplate, strlen(kTemplate));
    if (code == zpropOk)
        code = zstzPropStore_6_0(schema, name);
    zstzPropClose_6_0(schema);
    if (code != zpropOk)
        return fail("store");
    if (zstzPropCheckTemplate_6_0(file, NULL, name, print_problem, NULL) != zpropOk)
        return fail("check");
    remove(name);
    return 0;
}

int main(int argc, char** argv)
{
    ZPROP_handle* unit;
    int result;

    if (argc != 2)
        return 2;
    if (zstzPropNew_6_0(&unit, "systemd") != zpropOk)
        return fail("new");
    result = list_dialects() || change_unit(unit) || merge_versions() || check(argv[1]);
    zstzPropClose_6_0(unit);
    return result;
}
