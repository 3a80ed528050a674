// The operations of caches whose class a caller derived: they call the virtual value operations.
//
// An override may call other operations, keep values elsewhere, or throw. So no pointer into the
// contents is kept across a call: arguments and names are copied first.

#include <string.h>

#include <utility>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "cache/memory.h"
#include "reporting/cancellation.h"
#include "stanza/line_writer.h"

using zcache::checkedView;

namespace {

std::string_view viewOf(ZLCString_6_0 const& string)
{
    return {string.getChars(), string.getLength()};
}

// Calls `call(std::string_view)` for each value in a list from an override. Returns whether there
// is a value.
template <class Call>
bool forEachValueOf(ZArrayList_6_0 const* list, Call call)
{
    bool isAny = false;
    for (unsigned i = 0; list != nullptr && i < list->size(); ++i) {
        auto const* const text = static_cast<ZAbstractString_6_0 const*>(list->get(i));
        if (text == nullptr)
            continue;
        call(std::string_view(text->getChars(), text->getLength()));
        isAny = true;
    }
    return isAny;
}

// Removes a category, or a key of it, that an operation had created before it failed. If the
// override throws again, removes it only from the cache's own contents.
template <class... Names>
void removeCreated(ZPCategoryBasedCache_6_0& cache, Names const&... names)
{
    try {
        cache.remove(names.getChars()...);
    } catch (...) {
        cache.ZPCategoryBasedCache_6_0::remove(names.getChars()...);
        if (zreporting::caughtCancellation())
            throw;
    }
}

}  // namespace

// --- changes of lines

// Removes a stanza that an operation had created before it failed.
void ZPCategoryBasedCache_6_0::Rep::Derived::removeNewStanza(Cache& cache,
                                                             ZLCString_6_0 const& name)
{
    removeCreated(cache, name);
    cache.rep().undoRestartSection(viewOf(name));
}

void ZPCategoryBasedCache_6_0::Rep::Derived::addStanzaLine(Cache& cache, char const* category)
{
    ZLCString_6_0 const name(category);
    if (cache.contains(name.getChars()) != 0)
        return;
    cache.set(name.getChars(), nullptr, nullptr);
    try {
        cache.rep().restartSection(viewOf(name));
    } catch (ZException_6_0 const&) {
        removeCreated(cache, name);
        throw;
    }
    cache.changed();
}

void ZPCategoryBasedCache_6_0::Rep::Derived::addLine(Cache& cache, char const* category,
                                                     char const* key, char const* value,
                                                     int obfuscated)
{
    ZLCString_6_0 const categoryName(category);
    ZLCString_6_0 const keyName(key);
    ZLCString_6_0 const text(value);
    bool const isNewStanza = cache.contains(categoryName.getChars()) == 0;
    addStanzaLine(cache, categoryName.getChars());
    if (keyName.isEmpty())
        return;
    bool isNewLine = false;
    try {
        cache.rep().insertAtTemplates(KeptLines::keepsLines(cache));
        isNewLine = cache.rep().ensureKeyLine(viewOf(categoryName), viewOf(keyName));
        if (obfuscated != 0)
            cache.setObfuscated(categoryName.getChars(), keyName.getChars(), text.getChars());
        else
            cache.set(categoryName.getChars(), keyName.getChars(), text.getChars());
    } catch (...) {
        if (isNewLine)
            cache.rep().removeKeyLine(viewOf(categoryName), viewOf(keyName));
        if (isNewStanza)
            removeNewStanza(cache, categoryName);
        throw;
    }
    cache.changed();
}

void ZPCategoryBasedCache_6_0::Rep::Derived::addStanzaComment(Cache& cache, char const* category,
                                                              char const* comment)
{
    ZLCString_6_0 const name(category);
    if (cache.contains(name.getChars()) == 0)
        return;
    cache.rep().commentStanza(viewOf(name), checkedView(comment));
    cache.changed();
}

void ZPCategoryBasedCache_6_0::Rep::Derived::addLineComment(Cache& cache, char const* category,
                                                            char const* key, char const* comment)
{
    ZLCString_6_0 const categoryName(category);
    ZLCString_6_0 const keyName(key);
    ZLCString_6_0 const text(comment);
    bool const isNewStanza = cache.contains(categoryName.getChars()) == 0;
    bool const isNewKey = cache.contains(categoryName.getChars(), keyName.getChars()) == 0;
    if (isNewKey)
        addStanzaLine(cache, categoryName.getChars());
    try {
        if (isNewKey)
            cache.add(categoryName.getChars(), keyName.getChars(), 0);
        cache.rep().insertAtTemplates(KeptLines::keepsLines(cache));
        cache.rep().commentKey(viewOf(categoryName), viewOf(keyName), viewOf(text));
    } catch (...) {
        if (isNewKey) {
            removeCreated(cache, categoryName, keyName);
            cache.rep().removeKeyLine(viewOf(categoryName), viewOf(keyName));
        }
        if (isNewStanza)
            removeNewStanza(cache, categoryName);
        throw;
    }
    cache.changed();
}

void ZPCategoryBasedCache_6_0::Rep::Derived::deleteLine(Cache& cache, char const* category,
                                                        char const* key)
{
    ZLCString_6_0 const categoryName(category);
    ZLCString_6_0 const keyName(key);
    cache.remove(categoryName.getChars(), keyName.getChars());
    cache.rep().removeKeyLine(viewOf(categoryName), viewOf(keyName));
    cache.changed();
}

void ZPCategoryBasedCache_6_0::Rep::Derived::deleteStanza(Cache& cache, char const* category)
{
    ZLCString_6_0 const name(category);
    cache.remove(name.getChars());
    cache.rep().removeSection(viewOf(name));
    cache.changed();
}

// --- writing

void ZPCategoryBasedCache_6_0::Rep::Derived::list(Cache const& listed, zstanza::TextBuffer& text)
{
    auto& cache = const_cast<Cache&>(listed);  // get() may create lists, but changes no value
    ZArrayList_6_0 categories(16, 1);
    cache.getNames(categories);
    for (unsigned i = 0; i < categories.size(); ++i) {
        auto const& category = static_cast<ZLCString_6_0 const&>(*categories.get(i));
        text.add("\n");
        zstanza::writeHeader(viewOf(category), text);
        ZArrayList_6_0 keys(16, 1);
        cache.getNames(category.getChars(), keys);
        for (unsigned k = 0; k < keys.size(); ++k) {
            auto const& key = static_cast<ZLCString_6_0 const&>(*keys.get(k));
            ZArrayList_6_0 const* const values =
                cache.get(category.getChars(), key.getChars(), plainValues);
            bool const isAny = forEachValueOf(values, [&](std::string_view value) {
                zstanza::listValue(viewOf(key), value, text);
            });
            if (!isAny)
                zstanza::writeEmptyKey(viewOf(key), text);
        }
    }
}

void ZPCategoryBasedCache_6_0::Rep::Derived::write(Cache& cache, zstanza::TextBuffer& text)
{
    ZArrayList_6_0 lines(64, 1);
    cache.getLines(lines);
    char const* category = "";
    bool isSkipping = false;  // the lines of a removed stanza
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const& line = static_cast<ZPropLine_6_0 const&>(*lines.get(i));
        std::string_view const name = viewOf(line.text());
        if (line.type() == ZPropLine_6_0::stanzaHead) {
            category = name.data();
            isSkipping = cache.contains(category) == 0;
        }
        if (isSkipping)
            continue;
        switch (line.type()) {
            case ZPropLine_6_0::stanzaHead:
                zstanza::writeHeader(name, text);
                break;
            case ZPropLine_6_0::keyLine:
                if (cache.contains(category, name.data()) == 0)
                    break;
                if (!forEachValueOf(
                        cache.get(category, name.data(), plainValues),
                        [&](std::string_view value) { zstanza::writeValue(name, value, text); }) &&
                    !forEachValueOf(cache.get(category, name.data(), obfuscatedValues),
                                    [](std::string_view) {}))
                    zstanza::writeEmptyKey(name, text);
                break;
            default:
                zstanza::writeLine(name, text);
                break;
        }
    }
}

void ZPCategoryBasedCache_6_0::Rep::Derived::describe(Cache& cache, bool keepsEmpty,
                                                      zlines::Document& document)
{
    ZArrayList_6_0 lines(64, 1);
    cache.getLines(lines);
    std::string_view category = "";
    bool isSkipping = false;  // the lines of a removed stanza
    bool isBelowBlank = false;
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const& line = static_cast<ZPropLine_6_0 const&>(*lines.get(i));
        bool const isBelow = std::exchange(isBelowBlank, line.type() == ZPropLine_6_0::blank);
        std::string_view const text = document.own(viewOf(line.text()));
        if (line.type() == ZPropLine_6_0::stanzaHead) {
            category = text;
            isSkipping = cache.contains(category.data()) == 0;
        }
        if (isSkipping || line.type() == ZPropLine_6_0::blank)
            continue;
        if (line.type() == ZPropLine_6_0::stanzaHead) {
            document.addStanza(text, isBelow);
        } else if (line.type() == ZPropLine_6_0::comment) {
            document.addComment(text, isBelow);
        } else if (cache.contains(category.data(), text.data()) != 0) {
            document.addKey(text, isBelow);
            forEachValueOf(cache.get(category.data(), text.data(), plainValues),
                           [&](std::string_view value) {
                               if (keepsEmpty || !value.empty())
                                   document.addValue(document.own(value));
                           });
            // Only the companion holds obfuscated values.
            document.entries.back().needsLine =
                document.entries.back().valueCount != 0 ||
                !forEachValueOf(cache.get(category.data(), text.data(), obfuscatedValues),
                                [](std::string_view) {});
        }
    }
}

void ZPCategoryBasedCache_6_0::Rep::Derived::writeObfuscated(Cache& cache,
                                                             zstanza::CompanionWriter& writer)
{
    ZArrayList_6_0 items(16, 1);
    cache.getObfuscatedItems(items);
    for (unsigned i = 0; i < items.size(); ++i) {
        auto const& item = static_cast<ZObfuscatedItem_6_0 const&>(*items.get(i));
        char const* const category = item.category().getChars();
        forEachValueOf(cache.get(category, item.key().getChars(), obfuscatedValues),
                       [&](std::string_view value) {
                           writer.add(viewOf(item.category()), viewOf(item.key()), value);
                       });
    }
}

// --- reading

ZPCategoryBasedCache_6_0::Rep::DerivedReader::DerivedReader(ZPCategoryBasedCache_6_0& cache)
    : cache_(cache), before_(zstanza::allocate<Rep>(cache.rep()))
{
}

ZPCategoryBasedCache_6_0::Rep::DerivedReader::~DerivedReader()
{
    if (before_ != nullptr) {
        cache_.rep().swap(*before_);
        cache_.listsWentAway();
        cache_.changed();
    }
    delete before_;
    while (copies_ != nullptr)
        free(std::exchange(copies_, copies_->next));
}

std::string_view ZPCategoryBasedCache_6_0::Rep::DerivedReader::copy(std::string_view text)
{
    auto* const copy =
        static_cast<CopiedText*>(zcache::reallocate(nullptr, sizeof(CopiedText) + text.size()));
    copy->next = copies_;
    copies_ = copy;
    memcpy(copy->text, text.data(), text.size());
    copy->text[text.size()] = '\0';
    return {copy->text, text.size()};
}

void ZPCategoryBasedCache_6_0::Rep::DerivedReader::addHeader(std::string_view name, int lineNumber,
                                                             int indent)
{
    if (duplicate_.lineNumber != 0)
        return;
    if (cache_.contains(name.data()) != 0) {
        duplicate_ = {name, lineNumber, indent};
        return;
    }
    // Do not revive the lines of a category that was removed without them.
    if (cache_.rep().liveCategory(name.data()) == 0)
        cache_.rep().removeSection(name);
    cache_.set(name.data(), nullptr, nullptr);
    cache_.rep().readHeader(name);
    category_ = name;
}

void ZPCategoryBasedCache_6_0::Rep::DerivedReader::addComment(std::string_view text)
{
    if (duplicate_.lineNumber == 0)
        cache_.rep().readComment(text);
}

void ZPCategoryBasedCache_6_0::Rep::DerivedReader::addBlank()
{
    if (duplicate_.lineNumber == 0)
        cache_.rep().readBlank();
}

void ZPCategoryBasedCache_6_0::Rep::DerivedReader::addKey(std::string_view name,
                                                          std::string_view value)
{
    if (duplicate_.lineNumber != 0)
        return;
    cache_.add(category_.data(), name.data(), value.data(), 0);
    cache_.rep().readKey(category_, name);
}

void ZPCategoryBasedCache_6_0::Rep::DerivedReader::finish()
{
    delete std::exchange(before_, nullptr);
    cache_.changed();
}

void ZPCategoryBasedCache_6_0::Rep::Derived::addObfuscated(Cache& cache, char const* text,
                                                           size_t records)
{
    DerivedReader undo(cache);
    for (; records > 0; --records) {
        zstanza::CompanionRecord const record(text);
        cache.add(record.category.data(), record.key.data(), record.value.data(), 1);
    }
    undo.finish();
}
