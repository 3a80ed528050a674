#include "codeset_p.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include "codeset_names_p.h"
#include "converter_p.h"
#include "single_byte_p.h"
#include "tables_p.h"

namespace qvr {
namespace {

// All codesets with at least one handle.
constinit std::mutex lock_;
constinit Codeset* codesets_ = nullptr;  // guarded by lock_
constinit uint64_t lastId_ = 0;          // guarded by lock_

// ISO-8859-16, which ICU does not have, from 0xA0 on.
constexpr char16_t kIso8859_16[96] = {
    0x00A0, 0x0104, 0x0105, 0x0141, 0x20AC, 0x201E, 0x0160, 0x00A7, 0x0161, 0x00A9, 0x0218, 0x00AB,
    0x0179, 0x00AD, 0x017A, 0x017B, 0x00B0, 0x00B1, 0x010C, 0x0142, 0x017D, 0x201D, 0x00B6, 0x00B7,
    0x017E, 0x010D, 0x0219, 0x00BB, 0x0152, 0x0153, 0x0178, 0x017C, 0x00C0, 0x00C1, 0x00C2, 0x0102,
    0x00C4, 0x0106, 0x00C6, 0x00C7, 0x00C8, 0x00C9, 0x00CA, 0x00CB, 0x00CC, 0x00CD, 0x00CE, 0x00CF,
    0x0110, 0x0143, 0x00D2, 0x00D3, 0x00D4, 0x0150, 0x00D6, 0x015A, 0x0170, 0x00D9, 0x00DA, 0x00DB,
    0x00DC, 0x0118, 0x021A, 0x00DF, 0x00E0, 0x00E1, 0x00E2, 0x0103, 0x00E4, 0x0107, 0x00E6, 0x00E7,
    0x00E8, 0x00E9, 0x00EA, 0x00EB, 0x00EC, 0x00ED, 0x00EE, 0x00EF, 0x0111, 0x0144, 0x00F2, 0x00F3,
    0x00F4, 0x0151, 0x00F6, 0x015B, 0x0171, 0x00F9, 0x00FA, 0x00FB, 0x00FC, 0x0119, 0x021B, 0x00FF,
};

// ICU's tables for PC codesets permute these three control characters, as old terminals did. All
// others keep them as in ASCII.
constexpr MappingOverride kControlOverrides[] = {
    {0x001C, 0x001A}, {0x007F, 0x001C}, {0x001A, 0x007F}};

// ICU's EUC-JP swaps the half-width and full-width forms of the operating system.
constexpr MappingOverride kEucJpOverrides[] = {
    {0xFFE0, 0x00A2}, {0x00A2, 0xFFE0}, {0xFFE1, 0x00A3}, {0x00A3, 0xFFE1},
    {0xFFE2, 0x00AC}, {0x00AC, 0xFFE2}, {0x2014, 0x2015}, {0x2015, 0x2014},
};

struct ConverterCloser {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using ConverterPtr = std::unique_ptr<UConverter, ConverterCloser>;

// No codeset has the name.
struct UnknownName {};

// Translates the error of an ICU call that returned no converter.
[[noreturn]] void throwError(UErrorCode rc)
{
    if (rc == U_MEMORY_ALLOCATION_ERROR)
        throw std::bad_alloc();
    throw UnknownName();
}

void fillAscii(Codeset& codeset)
{
    codeset.ascii = true;
    codeset.first.fill(kNoCharacter);
    for (uint32_t byte = 0; byte < 0x80; ++byte)
        codeset.first[byte] = byte;
}

// Builds the reverse table from the characters of one and two bytes. `isEncodedAs(value, bytes)`
// returns whether the code point is encoded as `bytes`.
template <class IsEncodedAs>
void fillReverse(Codeset& codeset, IsEncodedAs isEncodedAs)
{
    codeset.pages.assign(1, {});  // page 0 is empty: blocks without characters share it
    auto const insert = [&](uint32_t value, unsigned bytes) {
        if (value > 0xFFFF || !isEncodedAs(value, bytes))
            return;
        uint8_t& page = codeset.page[value >> 8];
        if (page == 0) {
            page = static_cast<uint8_t>(codeset.pages.size());
            codeset.pages.push_back({});
        }
        codeset.pages[page][value & 0xFF] = static_cast<uint16_t>(bytes);
    };
    for (unsigned first = 0; first < 256; ++first) {
        uint32_t const value = codeset.first[first];
        insert(value, first);
        if (value >= kTable && value < kNeedsConverter)
            for (unsigned second = 1; second < 256; ++second)
                insert(codeset.tables[value - kTable][second], first << 8 | second);
    }
}

// Builds a codeset that needs no converter. Returns false if `name` is not such a codeset.
bool buildWithoutConverter(Codeset& codeset, char const* name)
{
    auto const isNamed = [name](char const* alias) { return isSameCodesetName(name, alias); };
    if (isNamed("UTF-8")) {
        codeset.kind = Kind::utf8;
        codeset.ascii = true;
        return true;
    }
    bool const latin1 = isNamed("ISO-8859-1");
    bool const latin10 = isNamed("ISO-8859-16");
    auto const* const table =
        std::find_if(std::begin(kSingleByte), std::end(kSingleByte),
                     [isNamed](SingleByte const& row) { return isNamed(row.name); });
    bool const hasTable = table != std::end(kSingleByte);
    if (!latin1 && !latin10 && !hasTable && !isNamed("US-ASCII"))
        return false;
    codeset.kind = Kind::singleByte;
    fillAscii(codeset);
    for (uint32_t byte = 0x80; byte < 0x100; ++byte) {
        if (latin1 || latin10)
            codeset.first[byte] = latin10 && byte >= 0xA0 ? kIso8859_16[byte - 0xA0] : byte;
        else if (hasTable && table->high[byte - 0x80] != 0)
            codeset.first[byte] = table->high[byte - 0x80];
    }
    // A character that ASCII has too is encoded as in ASCII.
    fillReverse(codeset,
                [](uint32_t value, unsigned byte) { return value >= 0x80 || value == byte; });
    return true;
}

uint32_t fromIcu(Codeset const& codeset, uint32_t value)
{
    for (MappingOverride const& mapping : codeset.overrides)
        if (mapping.icu == value)
            return mapping.ours;
    return value;
}

uint32_t toIcu(Codeset const& codeset, uint32_t value)
{
    for (MappingOverride const& mapping : codeset.overrides)
        if (mapping.ours == value)
            return mapping.icu;
    return value;
}

// Returns whether the converter encodes `value` as `bytes`: one byte, or two with the first in the
// higher half. Unless `flush`, more input may follow: a code point that may start a sequence that
// maps to one character then keeps the converter waiting, and the result is false.
bool isEncodedAs(UConverter* converter, uint32_t value, unsigned bytes, bool flush)
{
    UChar const unit = static_cast<UChar>(value);
    UChar const* source = &unit;
    char out[qvrMbLenMax];
    char* end = out;
    UErrorCode rc = U_ZERO_ERROR;
    ucnv_resetFromUnicode(converter);
    ucnv_fromUnicode(converter, &end, out + sizeof out, &source, source + 1, nullptr, flush, &rc);
    unsigned encoded = 0;
    for (char const* byte = out; byte != end; ++byte)
        encoded = encoded << 8 | static_cast<unsigned char>(*byte);
    return U_SUCCESS(rc) && end - out == (bytes > 0xFF ? 2 : 1) && encoded == bytes;
}

// Fills the decoding table `at` (kFirstTable: the first one) for the characters that start with the
// `length` bytes of `prefix`, and the tables below it, down to `depth` bytes.
constexpr size_t kFirstTable = SIZE_MAX;

void fillDecoding(Codeset& codeset, UConverter* converter, size_t at, char* prefix, size_t length,
                  size_t depth)
{
    for (unsigned byte = 0; byte < 256; ++byte) {
        prefix[length] = static_cast<char>(byte);
        uint32_t value = classify(converter, prefix, length + 1);
        if (byte == 0 && length > 0) {
            value = kNoCharacter;  // a zero byte always ends the string
        } else if (value == kNeedsConverter && length + 1 < depth) {
            size_t const below = codeset.tables.size();
            codeset.tables.push_back({});
            fillDecoding(codeset, converter, below, prefix, length + 1, depth);
            value = kTable + static_cast<uint32_t>(below);
        } else if (value <= kMaxCodePoint) {
            value = fromIcu(codeset, value);
        }
        (at == kFirstTable ? codeset.first : codeset.tables[at])[byte] = value;
    }
}

void addOverrides(Codeset& codeset, UConverter* converter, char const* icuName)
{
    auto const decodes = [converter](char byte, uint32_t value) {
        return classify(converter, &byte, 1) == value;
    };
    if (decodes(0x1A, 0x1C) && decodes(0x1C, 0x7F) && decodes(0x7F, 0x1A))
        codeset.overrides.assign(std::begin(kControlOverrides), std::end(kControlOverrides));
    else if (std::strcmp(icuName, "ibm-954_P101-2007") == 0)
        codeset.overrides.assign(std::begin(kEucJpOverrides), std::end(kEucJpOverrides));
}

ConverterPtr openConverter(CodesetName const& found)
{
    UErrorCode rc = U_ZERO_ERROR;
    ConverterPtr converter(found.directory.empty() ? ucnv_open(found.name.c_str(), &rc)
                                                   : ucnv_openPackage(found.directory.c_str(),
                                                                      found.name.c_str(), &rc));
    if (U_FAILURE(rc))
        throwError(rc);
    return converter;
}

void setMaster(Codeset& codeset, ConverterPtr converter)
{
    ucnv_reset(converter.get());  // it may hold state of the last query
    codeset.master = converter.release();
}

// Builds from an ICU converter, which becomes the codeset's master if it is needed later.
void buildFromConverter(Codeset& codeset, ConverterPtr converter, bool isBuiltIn)
{
    if (!makeStrict(converter.get()))
        throw std::bad_alloc();
    UErrorCode rc = U_ZERO_ERROR;
    char const* const icuName = ucnv_getName(converter.get(), &rc);
    if (U_FAILURE(rc))
        throwError(rc);
    if (isBuiltIn)
        addOverrides(codeset, converter.get(), icuName);

    char prefix[4] = {};
    UConverterType const type = ucnv_getType(converter.get());
    bool const isStateless =
        type == UCNV_SBCS || type == UCNV_MBCS || type == UCNV_LATIN_1 || type == UCNV_US_ASCII;
    if (!isStateless || classify(converter.get(), prefix, 1) != 0) {
        codeset.kind = Kind::convertOnly;
        codeset.overrides.clear();
        setMaster(codeset, std::move(converter));
        return;
    }

    // Tables for characters of four bytes would take more memory than they are worth.
    size_t const longest = static_cast<size_t>(ucnv_getMaxCharSize(converter.get()));
    fillDecoding(codeset, converter.get(), kFirstTable, prefix, 0, longest > 3 ? 2 : longest);
    codeset.ascii = true;
    codeset.kind = Kind::singleByte;
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t const value = codeset.first[byte];
        codeset.ascii = codeset.ascii && (byte >= 0x80 || value == byte);
        if (value > 0xFFFF && value != kNoCharacter)
            codeset.kind = Kind::multiByte;
    }
    bool const flush = codeset.kind == Kind::singleByte;
    fillReverse(codeset, [&](uint32_t value, unsigned bytes) {
        return isEncodedAs(converter.get(), toIcu(codeset, value), bytes, flush);
    });
    if (codeset.kind == Kind::multiByte)
        setMaster(codeset, std::move(converter));
}

// Returns the codeset called `name` and counts one more handle. Throws UnknownName and
// std::bad_alloc.
Codeset* acquire(char const* name)
{
    if (std::string_view const all = name;
        all.empty() || all.size() > kMaxName || std::any_of(all.begin(), all.end(), isReserved))
        throw UnknownName();
    CodesetName found = resolveCodeset(name);
    auto fresh = std::make_unique<Codeset>();
    ConverterPtr converter;
    if (!found.directory.empty() || !buildWithoutConverter(*fresh, found.name.c_str())) {
        converter = openConverter(found);
        if (found.directory.empty()) {
            // ICU has many names for a codeset: use its canonical one.
            UErrorCode rc = U_ZERO_ERROR;
            char const* const icuName = ucnv_getName(converter.get(), &rc);
            if (U_FAILURE(rc))
                throwError(rc);
            if (icuName != found.name) {
                found.name = icuName;
                if (buildWithoutConverter(*fresh, icuName))
                    converter.reset();
            }
        }
    }
    fresh->key = found.name + '/' + std::to_string(found.generation);

    std::lock_guard<std::mutex> const guard(lock_);
    for (Codeset* codeset = codesets_; codeset != nullptr; codeset = codeset->next) {
        if (codeset->key == fresh->key) {
            ++codeset->handles;
            return codeset;
        }
    }
    if (converter != nullptr)
        buildFromConverter(*fresh, std::move(converter), found.directory.empty());
    fresh->id = ++lastId_;
    fresh->handles = 1;
    fresh->next = codesets_;
    codesets_ = fresh.release();
    return codesets_;
}

void release(Codeset const* codeset)
{
    std::unique_ptr<Codeset> last;
    std::lock_guard<std::mutex> const guard(lock_);
    Codeset** link = &codesets_;
    while (*link != codeset)
        link = &(*link)->next;
    if (--(*link)->handles == 0) {
        last.reset(*link);
        *link = last->next;
    }
}

}  // namespace

Codeset::~Codeset()
{
    ucnv_close(master);
}

DecodeResult decodeMultiByte(Codeset const& codeset, unsigned char const* s, size_t n)
{
    DecodeResult const decoded = decodeByTables(codeset, s, n);
    if (decoded.length < 0 || decoded.value != kNeedsConverter)
        return decoded;

    ThreadConverter const converter(codeset);
    if (converter.get() == nullptr)
        return {kInvalid, 0};
    char const* const text = reinterpret_cast<char const*>(s);
    uint32_t value = kNeedsConverter;
    int length = decoded.length;
    while (value == kNeedsConverter) {
        if (static_cast<size_t>(length) == n)
            return {kTruncated, 0};
        if (s[length] == 0 || length == qvrMbLenMax)
            return {kInvalid, 0};
        ++length;
        value = classify(converter.get(), text, static_cast<size_t>(length));
    }
    if (value == kNoCharacter)
        return {kInvalid, 0};
    return {length, value <= kMaxCodePoint ? fromIcu(codeset, value) : value};
}

int encodeMultiByte(Codeset const& codeset, uint32_t value, unsigned char* out)
{
    ThreadConverter const converter(codeset);
    if (converter.get() == nullptr)
        return kInvalid;
    value = toIcu(codeset, value);
    UChar units[2] = {static_cast<UChar>(value), 0};
    int count = 1;
    if (value > 0xFFFF) {
        units[0] = static_cast<UChar>(0xD7C0 + (value >> 10));
        units[1] = static_cast<UChar>(0xDC00 + (value & 0x3FF));
        count = 2;
    }
    UChar const* source = units;
    char* const begin = reinterpret_cast<char*>(out);
    char* end = begin;
    UErrorCode rc = U_ZERO_ERROR;
    ucnv_fromUnicode(converter.get(), &end, begin + qvrMbLenMax, &source, units + count, nullptr,
                     true, &rc);
    return U_SUCCESS(rc) && end > begin ? static_cast<int>(end - begin) : kInvalid;
}

}  // namespace qvr

using namespace qvr;

qvr_cs_t qvr_cs_new(char const* name)
{
    if (name == nullptr)
        return nullptr;
    try {
        auto handle = std::make_unique<qvr_cs>();
        handle->codeset = acquire(name);
        handle->kind = handle->codeset->kind;
        handle->ascii = handle->codeset->ascii;
        return handle.release();
    } catch (UnknownName const&) {
        return nullptr;
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

void qvr_cs_free(qvr_cs_t cs)
{
    if (cs == nullptr)
        return;
    release(cs->codeset);
    delete cs;
}
