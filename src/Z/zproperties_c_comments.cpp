// The plain functions for comments, and for the lines and spellings of values.
#include "ZException.h"
#include "ZLCString.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

namespace {

char* readComment(ZPROP_handle* handle, char const* stanza, char const* key, int* code)
{
    return readFile(handle, {{stanza, key}}, code, [&](Store const& store) {
        ZLCString_6_0 comment;
        store.getComment(stanza, key, comment);
        return returnedString(comment.getChars(), comment.getLength());
    });
}

int changeComment(ZPROP_handle* handle, char const* stanza, char const* key, char const* comment)
{
    Call call{{stanza, key}};
    call.hasComment = true;
    return withStore(handle, call, changeExistingCode,
                     [&](Store& store) { store.replaceComment(stanza, key, comment); });
}

}  // namespace

char* zstzPropGetFileComment_6_0(ZPROP_handle* handle, int* code)
{
    if (code == nullptr)
        return missingArgument(nullptr);
    return readComment(handle, nullptr, nullptr, code);
}

char* zstzPropGetStanzaComment_6_0(ZPROP_handle* handle, char const* stanza, int* code)
{
    if (stanza == nullptr || code == nullptr)
        return missingArgument(nullptr);
    return readComment(handle, stanza, nullptr, code);
}

char* zstzPropGetLineComment_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                 int* code)
{
    if (stanza == nullptr || key == nullptr || code == nullptr)
        return missingArgument(nullptr);
    return readComment(handle, stanza, key, code);
}

int zstzPropSetFileComment_6_0(ZPROP_handle* handle, char const* comment)
{
    return changeComment(handle, nullptr, nullptr, comment);
}

int zstzPropSetStanzaComment_6_0(ZPROP_handle* handle, char const* stanza, char const* comment)
{
    if (stanza == nullptr)
        return missingArgument();
    return changeComment(handle, stanza, nullptr, comment);
}

int zstzPropSetLineComment_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                               char const* comment)
{
    if (stanza == nullptr || key == nullptr)
        return missingArgument();
    return changeComment(handle, stanza, key, comment);
}

unsigned long zstzPropGetLine_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                  int index, int* code)
{
    if (stanza == nullptr || key == nullptr || code == nullptr)
        return missingArgument(0ul);
    if (index < 0) {
        *code = missingArgument();
        return 0;
    }
    return readFile(
        handle, {{stanza, key}}, code,
        [&](Store const& store) { return store.lineOf(stanza, key, static_cast<unsigned>(index)); },
        readTextCode);
}

char* zstzPropGetRawValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int index,
                              int* code)
{
    if (stanza == nullptr || key == nullptr || code == nullptr)
        return missingArgument(nullptr);
    if (index < 0) {
        *code = missingArgument();
        return nullptr;
    }
    return readFile(
        handle, {{stanza, key}}, code,
        [&](Store const& store) {
            ZLCString_6_0 spelling;
            store.getSpelling(stanza, key, static_cast<unsigned>(index), spelling);
            return returnedString(spelling.getChars(), spelling.getLength());
        },
        readTextCode);
}

int zstzPropSetRawValue_6_0(ZPROP_handle* handle, char const* stanza, char const* key, int index,
                            char const* spelling)
{
    if (stanza == nullptr || key == nullptr || spelling == nullptr || index < 0)
        return missingArgument();
    Call call{{stanza, key}};
    call.hasSpelling = true;
    return withStore(handle, call, changeExistingCode, [&](Store& store) {
        store.respell(stanza, key, static_cast<unsigned>(index), spelling);
    });
}
