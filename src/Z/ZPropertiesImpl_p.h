// ZPropertiesImpl_p: the hidden state of a cache, and the operations of derived classes.
#pragma once

#include <stddef.h>

#include <string_view>

#include "ZPropertiesImpl.h"
#include "cache/contents.h"
#include "cache/reader.h"
#include "memory/rep.h"
#include "stanza/companion_records.h"
#include "stanza/parser.h"
#include "stanza/raise_sites.h"
#include "stanza/text_buffer.h"

// As new, for classes without an operator of their own, but raises ZOutOfMemoryException_6_0.
template <class Class, class... Arguments>
Class* make(Arguments const&... arguments)
{
    return zmemory::makeRep<Class>(zstanza::kSource, zstanza::raiseInAllocate, arguments...);
}

// Hidden here, because in signatures like these the patterns of exports.map see public names.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep : zcache::Store {
    struct Derived;
    class DerivedReader;
};

// The operations of a cache whose class is derived from those of the library. They call the virtual
// value operations, so that the overrides of the class see every value that is read, written or
// changed. ZPropertiesImpl_derived.cpp.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep::Derived {
    using Cache = ZPCategoryBasedCache_6_0;

    static void addStanzaLine(Cache& cache, char const* category);
    static void addLine(Cache& cache, char const* category, char const* key, char const* value,
                        int obfuscated);
    static void addStanzaComment(Cache& cache, char const* category, char const* comment);
    static void addLineComment(Cache& cache, char const* category, char const* key,
                               char const* comment);
    static void deleteLine(Cache& cache, char const* category, char const* key);
    static void deleteStanza(Cache& cache, char const* category);
    static void list(Cache const& cache, zstanza::TextBuffer& text);
    static void write(Cache& cache, zstanza::TextBuffer& text);

    static void writeObfuscated(Cache& cache, zstanza::CompanionWriter& writer);

    // Adds the values of `records` records, as Store::addObfuscated().
    static void addObfuscated(Cache& cache, char const* text, size_t records);
};

// Adds what a text holds to a cache of a derived class as Reader adds it to the contents, through
// the virtual operations `contains`, `set` and `add`. The contents become what they were, unless
// finish() was called.
class __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep::DerivedReader {
public:
    explicit DerivedReader(ZPCategoryBasedCache_6_0& cache);
    DerivedReader(DerivedReader const&) = delete;
    DerivedReader& operator=(DerivedReader const&) = delete;
    ~DerivedReader();

    void adopt(zcache::Arena::Block&, size_t) {}
    void reserve(zstanza::Expected const&) {}
    std::string_view keep(std::string_view text);
    void drop(std::string_view) {}
    void addHead(std::string_view name, int lineNumber);
    void addComment(std::string_view text);
    void addBlank();
    void addKey(std::string_view name, std::string_view value);
    zstanza::Repetition const& repetition() const { return repetition_; }
    void flush() {}
    void finish();

private:
    // A copy of a text.
    struct Kept {
        Kept* next;
        char text[1];
    };

    ZPCategoryBasedCache_6_0& cache_;
    Rep* before_;                          // null once it is not needed any more
    std::string_view category_ = {"", 0};  // of the last header
    Kept* kept_ = nullptr;
    zstanza::Repetition repetition_ = {{}, 0};
};
