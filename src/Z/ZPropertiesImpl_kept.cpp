// The text as read, and the text that is written by difference from it.

#include <memory>
#include <utility>
#include <vector>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "cache/file_text.h"
#include "dialects/switched_dialect.h"
#include "lines/difference.h"
#include "lines/mixed_keys.h"
#include "lines/spelled_value.h"
#include "memory/out_of_memory.h"
#include "stanza/stanza_dialect.h"

using zlines::KeptText;
using zlines::SharedText;

namespace {

template <class Action>
SharedText translateErrors(Action action)
{
    return zmemory::translateBadAlloc(zstanza::kSource, zstanza::raiseInAllocate, action);
}

// Returns the site of a report. Each reason of a refusal has its own.
zstanza::RaiseSite siteOf(zlines::Refusal const& refusal)
{
    switch (refusal.reason) {
        case zlines::Refusal::doesNotReadBack:
            break;
        case zlines::Refusal::continuesAbove:
            return zstanza::raiseBelowContinuedLine;
        case zlines::Refusal::continuesBelow:
            return zstanza::raiseAboveIndentedLine;
        case zlines::Refusal::leavesNoKey:
            return zstanza::raiseWithoutKeys;
    }
    return zstanza::raiseForLine;
}

}  // namespace

zlines::SharedDialect ZPCategoryBasedCache_6_0::KeptLines::dialectOf(Cache const& cache)
{
    return cache.rep().dialect != nullptr ? zlines::SharedDialect(cache.rep().dialect)
                                          : zstanza::sharedStanzaDialect();
}

zstanza::CommentForm ZPCategoryBasedCache_6_0::KeptLines::commentForm(ZPCache_6_0 const& cache)
{
    Cache const* const direct = cache.direct();
    return direct == nullptr ? zstanza::CommentForm() : direct->rep().policy().comments;
}

void ZPCategoryBasedCache_6_0::KeptLines::keepOldName(Cache const& cache, char const* category,
                                                      char const* key)
{
    if (textOf(cache) == nullptr)
        return;
    zmemory::translateBadAlloc(zstanza::kSource, zstanza::raiseInAllocate, [&] {
        if (key != nullptr)
            cache.rep_->keepOldKeyName(category, key);
        else
            cache.rep_->keepOldCategoryName(category);
    });
}

bool ZPCategoryBasedCache_6_0::KeptLines::hasLineAlone(Cache const& cache, char const* category,
                                                       char const* key)
{
    SharedText const& kept = textOf(cache);
    if (kept == nullptr || !keepsLines(cache) || cache.direct() == nullptr)
        return false;
    return zmemory::translateBadAlloc(zstanza::kSource, zstanza::raiseInAllocate, [&] {
        Rep const& rep = cache.rep();
        if (rep.searched.lock() != kept) {
            rep.mixedKeys = std::make_shared<zlines::MixedKeys const>(kept->text, kept->dialect);
            rep.searched = kept;
        }
        if (rep.mixedKeys->isEmpty())
            return false;
        std::string_view const oldCategory = rep.oldCategoryName(rep.liveCategory(category));
        std::string_view const oldKey = rep.oldKeyName(rep.liveKey(category, key));
        std::string categorySpace;
        std::string keySpace;
        return rep.mixedKeys->contains(
            kept->dialect.comparableStanza(oldCategory.empty() ? category : oldCategory,
                                           categorySpace),
            kept->dialect.comparableKey(oldKey.empty() ? key : oldKey, keySpace));
    });
}

SharedText ZPCategoryBasedCache_6_0::KeptLines::textAfterReading(
    Cache const& cache, std::string_view bytes, zlines::SharedDialect const& dialect)
{
    if (!keepsLines(cache))
        return nullptr;
    return translateErrors([&] {
        std::string all = textBeforeReading(cache);
        if (all.empty())
            return std::make_shared<KeptText>(std::string(bytes), dialect);
        size_t const feed = all.rfind('\n');
        all.reserve(all.size() + 2 + bytes.size());
        if (feed != all.size() - 1)
            all += feed != 0 && feed != all.npos && all[feed - 1] == '\r' ? "\r\n" : "\n";
        all += bytes;
        return std::make_shared<KeptText>(std::move(all), dialect);
    });
}

// Returns the text of the contents, to which another file is appended. Stanzas that were removed do
// not return with their old lines.
std::string ZPCategoryBasedCache_6_0::KeptLines::textBeforeReading(Cache const& cache)
{
    SharedText const& kept = textOf(cache);
    if (kept == nullptr) {
        zstanza::TextBuffer text;
        return std::string(writeAll(cache, text));
    }
    if (kept->text.empty() && cache.count() == 0)
        return {};
    zlines::Document document;
    describe(cache, document);
    zlines::TextHistory history = kept->history;
    std::string text;
    try {
        return zlines::rewrite(kept->text, kept->dialect, document, history, text) ? text
                                                                                   : kept->text;
    } catch (zlines::Refusal const&) {
        return kept->text;  // the next store is refused, too
    }
}

SharedText ZPCategoryBasedCache_6_0::KeptLines::textOf(ZPCache_6_0 const& cache,
                                                       std::string_view stored)
{
    auto const* const own = dynamic_cast<Cache const*>(&cache);
    if (own == nullptr || !keepsLines(cache) || textOf(*own) == nullptr)
        return nullptr;
    SharedText const& kept = textOf(*own);
    if (kept->text == stored)
        return kept;
    return std::make_shared<KeptText>(std::string(stored), kept->sharedDialect);
}

void ZPCategoryBasedCache_6_0::KeptLines::describe(Cache const& cache, zlines::Document& document)
{
    bool const keepsEmpty = textOf(cache)->dialect.hasEmptyValues();
    if (cache.direct() != nullptr)
        zcache::describe(cache.rep(), keepsEmpty, document);
    else  // the overrides are not const
        Rep::Derived::describe(const_cast<Cache&>(cache), keepsEmpty, document);
}

SharedText ZPCategoryBasedCache_6_0::KeptLines::compose(Cache const& cache, char const* path)
{
    SharedText const& kept = textOf(cache);
    if (kept == nullptr || !keepsLines(cache))
        return nullptr;
    return translateErrors([&]() -> SharedText {
        zlines::Document document;
        describe(cache, document);
        try {
            std::string text;
            zlines::TextHistory history = kept->history;
            if (!zlines::rewrite(kept->text, kept->dialect, document, history, text))
                return kept;
            auto stored = std::make_shared<KeptText>(std::move(text), kept->sharedDialect);
            stored->history = std::move(history);
            return stored;
        } catch (zlines::Refusal const& refusal) {
            ZPropertiesInvalidValueException_6_0(path, refusal.stanza.c_str(), refusal.key.c_str(),
                                                 refusal.value.c_str())
                .throwException(zstanza::kSource, siteOf(refusal));
        }
    });
}

std::string_view ZPCategoryBasedCache_6_0::KeptLines::writeAll(Cache const& cache,
                                                               zstanza::TextBuffer& text)
{
    if (cache.direct() != nullptr)
        zcache::write(cache.rep(), text);
    else  // the overrides are not const
        Rep::Derived::write(const_cast<Cache&>(cache), text);
    return {text.chars(), text.length()};
}

void ZPCategoryBasedCache_6_0::KeptLines::writeText(ZSCFData_6_0 const& cache, char const* path,
                                                    ZBuffer_6_0& buffer)
{
    SharedText const composed = compose(cache, path);
    zstanza::TextBuffer text;
    std::string_view const bytes = composed != nullptr ? composed->text : writeAll(cache, text);
    collect(cache, composed, bytes, dialectOf(cache));
    if (composed != nullptr)
        buffer.setBuffer(bytes.size(), const_cast<char*>(bytes.data()));  // it is copied
    else if (bytes.empty())
        buffer.setLength(0);
    else
        buffer.setBufferNoCopy(bytes.size(), text.release());
}

std::shared_ptr<zlines::SpelledText> ZPCategoryBasedCache_6_0::KeptLines::spelled(
    Cache const& cache)
{
    Rep const& rep = cache.rep();
    bool const isLasting = cache.direct() != nullptr && !rep.hasLists();
    if (isLasting && rep.spelled != nullptr)
        return rep.spelled;
    SharedText const composed = compose(cache, "");
    zstanza::TextBuffer text;
    std::string_view const bytes = composed != nullptr ? composed->text : writeAll(cache, text);
    auto made = zmemory::translateBadAlloc(zstanza::kSource, zstanza::raiseInAllocate, [&] {
        return std::make_shared<zlines::SpelledText>(std::string(bytes), dialectOf(cache));
    });
    if (isLasting)
        rep.spelled = made;
    return made;
}

void ZPCategoryBasedCache_6_0::KeptLines::collect(Cache const& cache, SharedText const& composed,
                                                  std::string_view bytes,
                                                  zlines::SharedDialect const& dialect)
{
    SharedText* const sink = cache.rep().sink;
    if (sink == nullptr || !keepsLines(cache))
        return;
    *sink = composed != nullptr ? composed : translateErrors([&] {
        return std::make_shared<KeptText>(std::string(bytes), dialect);
    });
}

ZPCategoryBasedCache_6_0::KeptLines::Collector::Collector(Cache* cache) : cache_(cache)
{
    if (cache_ != nullptr)
        cache_->rep().sink = &text_;
}

ZPCategoryBasedCache_6_0::KeptLines::Collector::~Collector()
{
    if (cache_ != nullptr)
        cache_->rep().sink = nullptr;
}

void ZPCategoryBasedCache_6_0::KeptLines::Collector::keep(std::string_view stored)
{
    // An override of be_write() may have written something else.
    if (cache_ != nullptr && text_ != nullptr && text_->text == stored)
        cache_->rep().keep(text_);
    if (cache_ != nullptr)
        std::exchange(cache_, nullptr)->rep().sink = nullptr;
}
