#include "zsnprintf.h"

#include <stdlib.h>

#include <type_traits>

#include "format/in_order.h"
#include "format/parse.h"
#include "format/render.h"
#include "zqvrutil.h"

namespace {

constexpr int kDone = 0;

using zformat::kFailed;

size_t usableSize(char const* out, int size)
{
    return out != nullptr && size > 0 ? static_cast<size_t>(size) : 0;
}

// Returns whether the list is null, which is possible only if va_list is a pointer.
template <class List>
bool isNullList(List const& list)
{
    if constexpr (std::is_pointer_v<List>)
        return list == nullptr;
    else
        return false;
}

[[gnu::noinline]] int formatByRecords(char* buf, size_t size, qvr_cs_t codeset, char const* format,
                                      va_list args)
{
    ZPrintfContext_6_0 context;
    if (!zformat::parse(context, codeset, format, args))
        return kFailed;
    int const length = zformat::render(context, buf, size);
    zformat::release(context);
    return length;
}

// Formats into `size` bytes. Inline, because a call of an exported function costs more.
inline int formatInto(char* buf, size_t size, char const* format, zformat::ArgumentList& args)
{
    qvr_cs_t const codeset = zgetLCSHandle_6_0();
    if (format == nullptr)
        return kFailed;
    int const length = zformat::formatInOrder(buf, size, codeset, format, args);
    return length != zformat::kNotInOrder ? length
                                          : formatByRecords(buf, size, codeset, format, args.list);
}

}  // namespace

int zvsnprintf_parse_6_0(ZPrintfContext_6_0* context, qvr_cs_t codeset, char const* format,
                         va_list args)
{
    return zformat::parse(*context, codeset, format, args) ? kDone : kFailed;
}

int zvsnprintf_render_6_0(ZPrintfContext_6_0 const* context, char* out, int size)
{
    return zformat::render(*context, out, usableSize(out, size));
}

void zvsnprintf_done_6_0(ZPrintfContext_6_0* context)
{
    zformat::release(*context);
}

void get_render_params(ZPrintfConversion_6_0 const* conversion,
                       ZPrintfArgument_6_0 const* arguments, int* width, int* precision,
                       char* padChar)
{
    zformat::RenderParams const params = zformat::renderParams(*conversion, arguments);
    *width = params.width;
    *precision = params.precision;
    *padChar = params.padChar;
}

int zsnprintf_6_0(char* buf, int size, char const* format, ...)
{
    zformat::ArgumentList args;
    va_start(args.list, format);
    return formatInto(buf, usableSize(buf, size), format, args);
}

int zvsnprintf_6_0(char* buf, int size, char const* format, va_list args)
{
    zformat::ArgumentList copy(args);
    return formatInto(buf, usableSize(buf, size), format, copy);
}

int zsprintf_6_0(char** result, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int const length = zvasprintf_6_0(result, format, args);
    va_end(args);
    return length;
}

int zvsprintf_6_0(char** result, char const* format, va_list args)
{
    return zvasprintf_6_0(result, format, args);
}

int zasprintf_6_0(char** result, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int const length = zvasprintf_6_0(result, format, args);
    va_end(args);
    return length;
}

int zvasprintf_6_0(char** result, char const* format, va_list args)
{
    if (result == nullptr)
        return kFailed;
    *result = nullptr;
    if (isNullList(args))
        return kFailed;
    ZPrintfContext_6_0 context;
    if (!zformat::parse(context, zgetLCSHandle_6_0(), format, args))
        return kFailed;
    int length = zformat::render(context, nullptr, 0);
    if (length >= 0) {
        size_t const size = static_cast<size_t>(length) + 1;
        char* const text = static_cast<char*>(malloc(size));
        if (text == nullptr || zformat::render(context, text, size) != length) {
            free(text);
            length = kFailed;
        } else {
            *result = text;
        }
    }
    zformat::release(context);
    return length;
}

void zasprintf_free_6_0(void* p)
{
    free(p);
}
