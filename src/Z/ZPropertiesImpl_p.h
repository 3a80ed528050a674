// ZPropertiesImpl_p: the hidden state of a cache, and the operations of caches that callers derive.
#pragma once

#include <stddef.h>
#include <stdio.h>

#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>

#include "ZPropertiesImpl.h"
#include "cache/category_walk.h"
#include "cache/contents.h"
#include "cache/reader.h"
#include "lines/document.h"
#include "lines/kept_text.h"
#include "stanza/companion_records.h"
#include "stanza/parser.h"
#include "stanza/raise_sites.h"
#include "stanza/text_buffer.h"

namespace zlines {
class MixedKeys;
class SpelledText;
}  // namespace zlines
namespace zstanza {

/// Reads `file` to its end into `block`, which has capacity for one more byte then. Returns the
/// size in bytes.
/// throws  ZPropertiesIOException_6_0 (path, "fgets()", errno).
size_t readAll(char const* path, FILE* file, zcache::Arena::Block& block);

}  // namespace zstanza
namespace zdialects {
class SwitchedDialect;
}

// Hidden, because the patterns of exports.map match public names in the signatures of its
// functions.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep : zcache::Contents {
    struct Derived;
    class DerivedReader;

    Rep() = default;
    Rep(Rep const& other) : Contents(other), dialect(other.dialect), kept(other.kept) {}

    // Sets the text that the present names are in.
    void keep(zlines::SharedText text)
    {
        kept = std::move(text);
        forgetChanges();
    }

    std::shared_ptr<zdialects::SwitchedDialect const> dialect;  // null: stanza files
    zlines::SharedText kept;                               // the text as read or stored; null: none
    mutable std::shared_ptr<zlines::SpelledText> spelled;  // the text of these contents, or null
    mutable std::shared_ptr<zlines::MixedKeys const> mixedKeys;  // of the text `searched`
    mutable std::weak_ptr<zlines::KeptText const> searched;
    mutable zlines::SharedText* sink = nullptr;  // receives the text that is written, if not null
    zcache::CategoryWalk walk;                   // of the caller who received all names last
    unsigned long listsReceived = 0;  // calls of get() that the cache has counted as changes
};

// Access to the contents of a cache whose values are all in it.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Visit {
    static zcache::Contents const& contentsOf(ZPCategoryBasedCache_6_0 const& direct)
    {
        return direct.rep();
    }

    /// Returns the number of changes of the contents, without changes of lists by their holders.
    static unsigned long changesOf(ZPCategoryBasedCache_6_0 const& direct)
    {
        return direct.changes() - direct.rep().listsReceived;
    }

    /// Frees the text as read, which only a store needs.
    static void dropKeptText(ZPCategoryBasedCache_6_0& direct) { direct.rep().keep(nullptr); }
};

// The text as read of a cache with the attribute `keepLines`.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::KeptLines {
    using Cache = ZPCategoryBasedCache_6_0;

    static zlines::SharedText const& textOf(Cache const& cache) { return cache.rep().kept; }

    /// Returns the text as read if it is `stored`, else a copy of `stored`; null if the cache keeps
    /// no lines.
    static zlines::SharedText textOf(ZPCache_6_0 const& cache, std::string_view stored);

    /// Returns the dialect of the cache.
    static zlines::SharedDialect dialectOf(Cache const& cache);

    /// Returns whether `type` is ZDialectData_6_0, a module that stands on this.
    static bool isDialectData(std::type_info const& type);

    /// Returns the form of comments in the cache's files.
    static zstanza::CommentForm commentForm(ZPCache_6_0 const& cache);

    static bool keepsLines(ZPCache_6_0 const& cache)
    {
        return (cache.attributes() & ZPCache_6_0::keepLines) != 0;
    }

    /// Returns the text as read after reading `bytes` of another file; null if the cache does not
    /// keep lines.
    static zlines::SharedText textAfterReading(Cache const& cache, std::string_view bytes,
                                               zlines::SharedDialect const& dialect);

    /// Keeps the name of a category, or of a key that is not null, which is in the text as read.
    static void keepOldName(Cache const& cache, char const* category, char const* key);

    /// Returns whether the text as read has a line of the key without a value, next to lines with
    /// values: that line stays if the last value is removed.
    /// cost    O(bytes of the file) in the first call after a read or store.
    static bool hasLineAlone(Cache const& cache, char const* category, char const* key);

    static std::string textBeforeReading(Cache const& cache);

    /// Returns the text to write: the text as read with the changes since; the text as read itself
    /// if nothing has changed. Null if the cache has no text as read.
    /// throws  ZPropertiesInvalidValueException_6_0 (path, category, key, value) if a part would
    ///         not read back.
    static zlines::SharedText compose(Cache const& cache, char const* path);

    // A file as last read or written.
    struct Base {
        zlines::KeptText const& text;
        std::string const& secrets;  // the contents of its companion
        std::string const& present;  // the contents of the companion now
    };

    /// Makes the changes of `ours` since `base` in the text of the file now, and stores the result
    /// in `merged`. Returns false if a value, stanza or comment that has changed in `ours` has
    /// changed in the file, too.
    /// throws  as compose().
    static bool mergeText(Cache const& ours, Base const& base, std::string_view present,
                          char const* path, std::string& merged);

    /// Makes the changes of the obfuscated values of `ours` since `base` in the values of the
    /// companion now, and adds them to `fresh`, which has read the merged text. Returns false if a
    /// value has changed on both sides; `fresh` may be partly changed then.
    static bool mergeSecrets(Cache& ours, Cache& fresh, Base const& base);

    /// Writes every line in the form of the library. Returns the text, a view of `text`.
    static std::string_view writeAll(Cache const& cache, zstanza::TextBuffer& text);

    /// Stores the text of a stanza file in `buffer`.
    /// throws  as compose().
    static void writeText(ZSCFData_6_0 const& cache, char const* path, ZBuffer_6_0& buffer);

    /// Passes the text that is written to the collector, if there is one: `composed`, or the bytes
    /// if it is null.
    static void collect(Cache const& cache, zlines::SharedText const& composed,
                        std::string_view bytes, zlines::SharedDialect const& dialect);

    /// Adds the lines and values to `document`.
    /// range   textOf() is not null.
    static void describe(Cache const& cache, zlines::Document& document);

    /// Returns the text that is written, with its lines. It is kept until the contents change,
    /// unless a caller holds a list of values.
    /// throws  as compose().
    static std::shared_ptr<zlines::SpelledText> spelled(Cache const& cache);

    // Collects the text that a cache writes in this scope.
    class Collector {
    public:
        explicit Collector(Cache* cache);  // null: nothing is collected
        Collector(Collector const&) = delete;
        Collector& operator=(Collector const&) = delete;
        ~Collector();

        /// Ends the collection, and makes `stored` the text as read of the cache if the cache wrote
        /// it. Does not throw.
        void keep(std::string_view stored);

        /// Returns the text that the cache wrote if it is `stored`, else null.
        zlines::SharedText textOf(std::string_view stored) const
        {
            return text_ != nullptr && text_->text == stored ? text_ : nullptr;
        }

    private:
        Cache* cache_;
        zlines::SharedText text_;
    };
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

    /// Adds the lines and values to `document`, as zcache::describe().
    static void describe(Cache& cache, bool keepsEmpty, zlines::Document& document);
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
