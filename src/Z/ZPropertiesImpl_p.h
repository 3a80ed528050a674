// ZPropertiesImpl_p: the hidden state of a cache, and the operations of caches that callers derive.
#pragma once

#include <stddef.h>

#include <string_view>

#include "ZPropertiesImpl.h"
#include "cache/contents.h"
#include "cache/reader.h"
#include "stanza/companion_records.h"
#include "stanza/parser.h"
#include "stanza/raise_sites.h"
#include "stanza/text_buffer.h"

// Hidden, because the patterns of exports.map match public names in the signatures of its
// functions.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep : zcache::Contents {
    struct Derived;
    class DerivedReader;
};

// The operations of a cache whose class a caller derived. They call the virtual value operations,
// so that the overrides see every value that is read, written or changed.
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
    static void removeNewStanza(Cache& cache, ZLCString_6_0 const& category);
    static void list(Cache const& cache, zstanza::TextBuffer& text);
    static void write(Cache& cache, zstanza::TextBuffer& text);

    static void writeObfuscated(Cache& cache, zstanza::CompanionWriter& writer);

    /// Adds the values of `records` records, as Contents::addObfuscated().
    static void addObfuscated(Cache& cache, char const* text, size_t records);
};

// Adds the lines of a file to a cache of a derived class, as Reader does, but through the virtual
// operations `contains`, `set` and `add`. Restores the contents unless finish() was called.
class __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep::DerivedReader {
public:
    explicit DerivedReader(ZPCategoryBasedCache_6_0& cache);
    DerivedReader(DerivedReader const&) = delete;
    DerivedReader& operator=(DerivedReader const&) = delete;
    ~DerivedReader();

    void adopt(zcache::Arena::Block&, size_t) {}
    void reserve(zstanza::LineCounts const&) {}
    std::string_view copy(std::string_view text);
    void drop(std::string_view) {}
    void addHeader(std::string_view name, int lineNumber, int indent);
    void addComment(std::string_view text);
    void addBlank();
    void addKey(std::string_view name, std::string_view value);
    zstanza::DuplicateHeader const& duplicate() const { return duplicate_; }
    void flush() {}
    void finish();

private:
    // A copied string, freed with the reader.
    struct CopiedText {
        CopiedText* next;
        char text[1];
    };

    ZPCategoryBasedCache_6_0& cache_;
    Rep* before_;                          // a copy of the contents; null after finish()
    std::string_view category_ = {"", 0};  // of the last header
    CopiedText* copies_ = nullptr;
    zstanza::DuplicateHeader duplicate_ = {{}, 0, 0};
};
