#include <pthread.h>
#include <unicode/ucnv_err.h>
#include <unicode/utf16.h>

#include <memory>
#include <new>

#include "converter_p.h"

namespace qvr {
namespace {

// ICU's own callbacks of this kind drop ignorable characters; these stop at every character.
void stopToUnicode(void const*, UConverterToUnicodeArgs*, char const*, int32_t,
                   UConverterCallbackReason, UErrorCode*)
{
}

void stopFromUnicode(void const*, UConverterFromUnicodeArgs*, UChar const*, int32_t, UChar32,
                     UConverterCallbackReason, UErrorCode*)
{
}

// The converters that one thread used last.
struct ConverterCache {
    static constexpr unsigned kCapacity = 4;

    struct Slot {
        uint64_t id = 0;
        UConverter* converter = nullptr;
    };

    ConverterCache() = default;
    ConverterCache(ConverterCache const&) = delete;
    ConverterCache& operator=(ConverterCache const&) = delete;
    ~ConverterCache()
    {
        for (Slot const& slot : slots)
            ucnv_close(slot.converter);
    }

    Slot slots[kCapacity];
    unsigned oldest = 0;
};

constinit pthread_key_t key_ = 0;  // of a thread's ConverterCache

extern "C" void destroyCache(void* cache)
{
    delete static_cast<ConverterCache*>(cache);
}

// Returns the calling thread's converters, or null if it cannot keep any.
ConverterCache* threadCache()
{
    static bool const hasKey = pthread_key_create(&key_, destroyCache) == 0;
    if (!hasKey)
        return nullptr;  // the process has no keys left
    auto* cache = static_cast<ConverterCache*>(pthread_getspecific(key_));
    if (cache == nullptr) {
        cache = new (std::nothrow) ConverterCache;
        if (cache != nullptr && pthread_setspecific(key_, cache) != 0) {
            delete cache;
            cache = nullptr;
        }
    }
    return cache;
}

}  // namespace

bool makeStrict(UConverter* converter)
{
    UErrorCode rc = U_ZERO_ERROR;
    ucnv_setToUCallBack(converter, stopToUnicode, nullptr, nullptr, nullptr, &rc);
    ucnv_setFromUCallBack(converter, stopFromUnicode, nullptr, nullptr, nullptr, &rc);
    ucnv_setFallback(converter, false);
    return U_SUCCESS(rc);
}

ThreadConverter::ThreadConverter(Codeset const& codeset) : converter_(nullptr), cached_(false)
{
    ConverterCache* const cache = threadCache();
    if (cache != nullptr) {
        for (ConverterCache::Slot const& slot : cache->slots) {
            if (slot.id == codeset.id) {
                converter_ = slot.converter;
                cached_ = true;
                ucnv_reset(converter_);
                return;
            }
        }
    }
    UErrorCode rc = U_ZERO_ERROR;
    converter_ = ucnv_clone(codeset.master, &rc);
    if (U_FAILURE(rc)) {
        ucnv_close(converter_);
        converter_ = nullptr;
        return;
    }
    if (cache != nullptr) {
        ConverterCache::Slot& slot = cache->slots[cache->oldest];
        cache->oldest = (cache->oldest + 1) % ConverterCache::kCapacity;
        ucnv_close(slot.converter);
        slot = {codeset.id, converter_};
        cached_ = true;
    }
}

ThreadConverter::~ThreadConverter()
{
    if (!cached_)
        ucnv_close(converter_);
}

uint32_t classify(UConverter* converter, char const* bytes, size_t n)
{
    UChar units[8];
    UChar* end = units;
    UErrorCode rc = U_ZERO_ERROR;
    ucnv_resetToUnicode(converter);
    ucnv_toUnicode(converter, &end, units + 8, &bytes, bytes + n, nullptr, true, &rc);
    if (rc == U_TRUNCATED_CHAR_FOUND)
        return kNeedsConverter;
    if (U_FAILURE(rc) || end == units)
        return kNoCharacter;
    if (end - units == 1 && !U16_IS_SURROGATE(units[0]))
        return units[0];
    if (end - units == 2 && U16_IS_LEAD(units[0]) && U16_IS_TRAIL(units[1]))
        return static_cast<uint32_t>(U16_GET_SUPPLEMENTARY(units[0], units[1]));
    return kManyCodePoints;
}

}  // namespace qvr
