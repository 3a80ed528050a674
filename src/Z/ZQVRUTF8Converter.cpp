#include "ZQVRUTF8Converter.h"

#include <stdlib.h>
#include <string.h>

#include "ZBuffer.h"
#include "ZException.h"
#include "qvr.h"
#include "text/table_directory.h"
#include "zqvrutil.h"

namespace {

constexpr char kSource[] = "src/Z/ZQVRUTF8Converter";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInDefaultConstructor = 39, raiseInConstructor = 59, raiseInConvert = 102 };

// Returns `codeset` if there is a directory: `qvrDir` or QVRDIR. Runs before the first string is
// created, because creating it without a directory would end the process instead of throwing.
char const* requireDirectory(char const* codeset, char const* qvrDir, RaiseSite site)
{
    if (qvrDir == nullptr && !ztext::hasTableDirectory())
        ZNoQVREnvironmentException_6_0().throwException(kSource, site);
    return codeset;
}

using Conversion = ptrdiff_t(qvr_cs_t cs, char const* src, size_t srcLen, char* dst, size_t dstLen);

// Converts `text` and its terminator into `buffer`, through a scratch buffer of `growth` bytes per
// byte of text, plus one.
void convertInto(ZBuffer_6_0& buffer, char const* text, size_t growth, Conversion* convert,
                 qvr_cs_t cs)
{
    ZLCConstString_6_0 const source(text);
    size_t const length = strlen(source.getChars());
    ZBuffer_6_0 scratch;
    scratch.setLength(length * growth + 1);
    char* const converted = static_cast<char*>(scratch.getBuffer());
    ptrdiff_t const result =
        convert(cs, source.getChars(), length + 1, converted, scratch.getLength());
    if (result == qvrNoMemory)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInConvert);
    // KEPT: text that does not convert is ignored silently. A caller that checks for an unchanged
    // buffer would have to catch an exception otherwise.
    // Test: ZQVRUTF8Converter.KeepsSilentAboutTextThatDoesNotConvert
    if (result >= 0)
        buffer.setBuffer(static_cast<unsigned long>(result), converted);
}

}  // namespace

ZUTF8ConverterInterface_6_0::~ZUTF8ConverterInterface_6_0() noexcept(false) = default;

ZAbstractUTF8Converter_6_0::~ZAbstractUTF8Converter_6_0() = default;

ZQVRUTF8Converter_6_0::ZQVRUTF8Converter_6_0()
    : codeset_(requireDirectory(nullptr, nullptr, raiseInDefaultConstructor)), handle_(nullptr)
{
}

ZQVRUTF8Converter_6_0::ZQVRUTF8Converter_6_0(char const* codeset, char const* qvrDir)
    : codeset_(requireDirectory(codeset, qvrDir, raiseInConstructor)), handle_(nullptr)
{
    if (qvrDir != nullptr)
        zset_cs_dir_6_0(qvrDir);
    if (codeset == nullptr) {
        char name[32];
        if (qvr_os_cs_name(name, sizeof name) == 0) {
            name[sizeof name - 1] = '\0';
            codeset_ = name;
        }
    }
    if (!codeset_.isEmpty())
        handle_ = qvr_cs_new(codeset_.getChars());
}

ZLCString_6_0 const& ZQVRUTF8Converter_6_0::getLocalCodeSet() const
{
    return codeset_;
}

void ZQVRUTF8Converter_6_0::convertToLocal(char const* text, ZBuffer_6_0& buffer) const
{
    convertInto(buffer, text, 2, qvr_from_utf8, handle_);
}

void ZQVRUTF8Converter_6_0::convertToUTF8(char const* text, ZBuffer_6_0& buffer) const
{
    convertInto(buffer, text, 3, qvr_to_utf8, handle_);
}

ZQVRUTF8Converter_6_0::~ZQVRUTF8Converter_6_0()
{
    qvr_cs_free(handle_);
}
