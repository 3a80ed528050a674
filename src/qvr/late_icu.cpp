// The functions of ICU that the text services call, for a program that seldom needs them: each call
// passes to the shared library, which the first call loads.
//
// The command-line tool is linked with this file in place of ICU. Loading ICU takes longer than
// most runs of the tool; UTF-8, ASCII and ISO 8859-1 need no ICU.
#include <dlfcn.h>
#include <stdio.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unistd.h>

#include <string>

namespace {

// A missing library or function ends the process, as the dynamic linker does at the start.
[[noreturn]] void exitUnloaded()
{
    char const* const problem = dlerror();
    fprintf(stderr, "zstz: cannot load the codesets: %s\n",
            problem != nullptr ? problem : "no reason");
    fflush(stderr);
    _exit(127);
}

void* loadLibrary()
{
    void* const library = dlopen("libicuuc.so." U_ICU_VERSION_SHORT, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        exitUnloaded();
    return library;
}

// Returns the function of ICU called `name`, of the release that this file is compiled for.
template <class Function>
Function* find(char const* name)
{
    static_assert(!U_DISABLE_RENAMING, "the names of functions end with the number of the release");
    static void* const library = loadLibrary();
    void* const found = dlsym(library, (std::string(name) + "_" U_ICU_VERSION_SHORT).c_str());
    if (found == nullptr)
        exitUnloaded();
    return reinterpret_cast<Function*>(found);
}

}  // namespace

extern "C" {

UChar32 u_foldCase(UChar32 c, uint32_t options)
{
    static auto const call = find<decltype(u_foldCase)>("u_foldCase");
    return call(c, options);
}

UBool u_hasBinaryProperty(UChar32 c, UProperty which)
{
    static auto const call = find<decltype(u_hasBinaryProperty)>("u_hasBinaryProperty");
    return call(c, which);
}

UBool u_isdigit(UChar32 c)
{
    static auto const call = find<decltype(u_isdigit)>("u_isdigit");
    return call(c);
}

UChar32 u_tolower(UChar32 c)
{
    static auto const call = find<decltype(u_tolower)>("u_tolower");
    return call(c);
}

UChar32 u_toupper(UChar32 c)
{
    static auto const call = find<decltype(u_toupper)>("u_toupper");
    return call(c);
}

UConverter* ucnv_open(char const* name, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_open)>("ucnv_open");
    return call(name, rc);
}

UConverter* ucnv_openPackage(char const* package, char const* name, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_openPackage)>("ucnv_openPackage");
    return call(package, name, rc);
}

UConverter* ucnv_clone(UConverter const* converter, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_clone)>("ucnv_clone");
    return call(converter, rc);
}

// Accepts null, which needs no library.
void ucnv_close(UConverter* converter)
{
    if (converter == nullptr)
        return;
    static auto const call = find<decltype(ucnv_close)>("ucnv_close");
    call(converter);
}

void ucnv_reset(UConverter* converter)
{
    static auto const call = find<decltype(ucnv_reset)>("ucnv_reset");
    call(converter);
}

void ucnv_resetToUnicode(UConverter* converter)
{
    static auto const call = find<decltype(ucnv_resetToUnicode)>("ucnv_resetToUnicode");
    call(converter);
}

void ucnv_resetFromUnicode(UConverter* converter)
{
    static auto const call = find<decltype(ucnv_resetFromUnicode)>("ucnv_resetFromUnicode");
    call(converter);
}

int8_t ucnv_getMaxCharSize(UConverter const* converter)
{
    static auto const call = find<decltype(ucnv_getMaxCharSize)>("ucnv_getMaxCharSize");
    return call(converter);
}

UConverterType ucnv_getType(UConverter const* converter)
{
    static auto const call = find<decltype(ucnv_getType)>("ucnv_getType");
    return call(converter);
}

char const* ucnv_getName(UConverter const* converter, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_getName)>("ucnv_getName");
    return call(converter, rc);
}

char const* ucnv_getAlias(char const* name, uint16_t index, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_getAlias)>("ucnv_getAlias");
    return call(name, index, rc);
}

char const* ucnv_getStandardName(char const* name, char const* standard, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_getStandardName)>("ucnv_getStandardName");
    return call(name, standard, rc);
}

void ucnv_setFallback(UConverter* converter, UBool uses)
{
    static auto const call = find<decltype(ucnv_setFallback)>("ucnv_setFallback");
    call(converter, uses);
}

void ucnv_setToUCallBack(UConverter* converter, UConverterToUCallback action, void const* context,
                         UConverterToUCallback* oldAction, void const** oldContext, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_setToUCallBack)>("ucnv_setToUCallBack");
    call(converter, action, context, oldAction, oldContext, rc);
}

void ucnv_setFromUCallBack(UConverter* converter, UConverterFromUCallback action,
                           void const* context, UConverterFromUCallback* oldAction,
                           void const** oldContext, UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_setFromUCallBack)>("ucnv_setFromUCallBack");
    call(converter, action, context, oldAction, oldContext, rc);
}

void ucnv_toUnicode(UConverter* converter, UChar** target, UChar const* targetEnd,
                    char const** source, char const* sourceEnd, int32_t* offsets, UBool flush,
                    UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_toUnicode)>("ucnv_toUnicode");
    call(converter, target, targetEnd, source, sourceEnd, offsets, flush, rc);
}

void ucnv_fromUnicode(UConverter* converter, char** target, char const* targetEnd,
                      UChar const** source, UChar const* sourceEnd, int32_t* offsets, UBool flush,
                      UErrorCode* rc)
{
    static auto const call = find<decltype(ucnv_fromUnicode)>("ucnv_fromUnicode");
    call(converter, target, targetEnd, source, sourceEnd, offsets, flush, rc);
}

}  // extern "C"
