#include "ZPropertiesImpl.h"

#include <string.h>

#include "ZArrayList.h"
#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "cache/file_text.h"
#include "cache/map_order.h"
#include "cache/new_string.h"
#include "containers/list_rollback.h"
#include "memory/out_of_memory.h"
#include "reporting/stream.h"
#include "stanza/comment_template.h"
#include "stanza/text_buffer.h"
#include "stanza/validation.h"

using zcache::checkedView;
using zcache::Contents;
using zcache::Id;
using zcache::MapOrder;

namespace {

// Appends to a list, which takes `object` over.
void addNew(ZArrayList_6_0& list, ZObject_6_0* object)
{
    try {
        list.addNoCopy(object);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete object;
        throw;
    }
}

Contents::Selection selectionOf(ZPCache_6_0::get_type_e type)
{
    return static_cast<Contents::Selection>(type);
}

Contents::Kind kindOf(Contents const& contents, Id key, ZPCache_6_0::get_type_e type)
{
    return contents.kindOf(key, selectionOf(type));
}

Contents::Kind kindOf(int obfuscated)
{
    return obfuscated != 0 ? Contents::obfuscated : Contents::plain;
}

// Views a value; null stays null.
std::string_view valueView(char const* value)
{
    return value == nullptr ? std::string_view() : checkedView(value);
}

// A name is prefetched this number of steps ahead, its record twice the number.
constexpr ptrdiff_t kAhead = 8;

bool isNothing(char const* text)
{
    return text == nullptr || *text == '\0';
}

}  // namespace

// --- ZPCategoryBasedCache_6_0::Values

bool ZPCategoryBasedCache_6_0::Values::next(Text& value)
{
    if (given_ >= count_)
        return false;
    ++given_;
    if (list_ != nullptr) {
        auto const* const text = static_cast<ZAbstractString_6_0 const*>(list_->get(next_++));
        value = text == nullptr ? Text{ZPCache_6_0::empty_, 0}
                                : Text{text->getChars(), text->getLength()};
    } else if (given_ == 1) {
        value = first_;
    } else {
        auto const& contents = *static_cast<Contents const*>(store_);
        std::string_view const text = contents.text(contents.value(next_));
        value = {text.data(), text.size()};
        next_ = contents.value(next_).next;
    }
    return true;
}

bool ZPCategoryBasedCache_6_0::Values::skipTo(int index)
{
    if (list_ != nullptr && given_ <= index && index < count_)
        next_ = static_cast<uint32_t>(given_ = index);
    for (Text skipped; given_ < index;)
        if (!next(skipped))
            return false;
    return given_ == index;
}

bool ZPCategoryBasedCache_6_0::Values::last(Text& value) const
{
    if (count_ <= 0)
        return false;
    value = last_;
    return true;
}

// --- ZPCategoryBasedCache_6_0

ZPCategoryBasedCache_6_0::ZPCategoryBasedCache_6_0() : rep_(zstanza::allocate<Rep>()), changes_(0)
{
}

ZPCategoryBasedCache_6_0::ZPCategoryBasedCache_6_0(ZPCategoryBasedCache_6_0 const& other)
    : ZPCache_6_0(other), rep_(zstanza::allocate<Rep>(*other.rep_)), changes_(0)
{
}

ZPCategoryBasedCache_6_0::~ZPCategoryBasedCache_6_0()
{
    delete rep_;
}

ZPCache_6_0* ZPCategoryBasedCache_6_0::clone() const
{
    return zstanza::allocate<ZPCategoryBasedCache_6_0>(*this);
}

void ZPCategoryBasedCache_6_0::changed()
{
    ++changes_;
    rep_->walk.stop();
    rep_->spelled.reset();
    rep_->compact();
    if (rep_->exchangeListsRemoved())
        listsWentAway();
}

ZArrayList_6_0* ZPCategoryBasedCache_6_0::get(char const* category, char const* key,
                                              get_type_e type)
{
    Id const id = rep_->liveKey(category, key);
    if (id == 0)
        return nullptr;
    ++changes_;  // a list may now hold the values
    ++rep_->listsReceived;
    return rep_->list(id, kindOf(*rep_, id, type));
}

ZArrayList_6_0* ZPCategoryBasedCache_6_0::get(char const* category, get_type_e type)
{
    Id const id = rep_->liveCategory(category);
    return id == 0 ? nullptr : rep_->valuesOf(id, selectionOf(type));
}

void ZPCategoryBasedCache_6_0::add(char const* category, char const* key, char const* value,
                                   int obfuscated)
{
    if (category == nullptr)
        return;
    rep_->add(checkedView(category), checkedView(key), valueView(value), kindOf(obfuscated));
    changed();
}

void ZPCategoryBasedCache_6_0::add(char const* category, char const* key, int obfuscated)
{
    add(category, key, nullptr, obfuscated);
}

void ZPCategoryBasedCache_6_0::set(char const* category, char const* key, char const* value)
{
    if (category == nullptr)
        return;
    rep_->set(checkedView(category), checkedView(key), valueView(value), Contents::plain);
    changed();
}

void ZPCategoryBasedCache_6_0::set(char const* category, char const* key)
{
    set(category, key, nullptr);
}

void ZPCategoryBasedCache_6_0::setObfuscated(char const* category, char const* key,
                                             char const* value)
{
    if (category == nullptr)
        return;
    rep_->set(checkedView(category), checkedView(key), valueView(value), Contents::obfuscated);
    changed();
}

void ZPCategoryBasedCache_6_0::setObfuscated(char const* category, char const* key)
{
    setObfuscated(category, key, nullptr);
}

void ZPCategoryBasedCache_6_0::remove(char const* category, char const* key)
{
    Id const id = rep_->liveKey(category, key);
    if (id == 0)
        return;
    rep_->removeKey(id);
    changed();
}

void ZPCategoryBasedCache_6_0::remove(char const* category)
{
    Id const id = rep_->liveCategory(category);
    if (id == 0)
        return;
    rep_->removeCategory(id);
    changed();
}

int ZPCategoryBasedCache_6_0::countValues(char const* category)
{
    Id const id = rep_->liveCategory(category);
    size_t count = 0;
    for (Id key = id == 0 ? 0 : rep_->category(id).firstKey; key != 0; key = rep_->key(key).next)
        count += rep_->valueCount(key, rep_->anyKind(key));
    return static_cast<int>(count);
}

int ZPCategoryBasedCache_6_0::countValues(char const* category, char const* key)
{
    Id const id = rep_->liveKey(category, key);
    return id == 0 ? 0 : static_cast<int>(rep_->valueCount(id, rep_->anyKind(id)));
}

int ZPCategoryBasedCache_6_0::keyCount(char const* category) const
{
    Id const id = rep_->liveCategory(category);
    return id == 0 ? 0 : static_cast<int>(rep_->category(id).keyCount);
}

int ZPCategoryBasedCache_6_0::contains(char const* category) const
{
    return rep_->liveCategory(category) != 0;
}

int ZPCategoryBasedCache_6_0::contains(char const* category, char const* key) const
{
    return rep_->liveKey(category, key) != 0;
}

int ZPCategoryBasedCache_6_0::isObfuscated(char const* category) const
{
    Id const id = rep_->liveCategory(category);
    if (id == 0 || rep_->category(id).items == 0)
        return 0;
    // A caller may have removed the values from the list of an item.
    for (Id key = rep_->category(id).firstKey; key != 0; key = rep_->key(key).next)
        if (rep_->valueCount(key, Contents::obfuscated) != 0)
            return 1;
    return 0;
}

int ZPCategoryBasedCache_6_0::isObfuscated(char const* category, char const* key) const
{
    Id const id = rep_->liveKey(category, key);
    return id != 0 && rep_->valueCount(id, Contents::obfuscated) != 0;
}

int ZPCategoryBasedCache_6_0::count() const
{
    return static_cast<int>(rep_->categoryCount());
}

void ZPCategoryBasedCache_6_0::getNames(ZArrayList_6_0& out) const
{
    MapOrder ids(*rep_);
    zcontainers::addAllOrNothing(out, [&] {
        for (Id const* id = ids.begin(); id != ids.end(); ++id) {
            // The categories of a large cache are far apart, and a copy waits for memory.
            if (ids.end() - id > 2 * kAhead) {
                __builtin_prefetch(&rep_->category(id[2 * kAhead]));
                __builtin_prefetch(rep_->name(rep_->category(id[kAhead])).data());
            }
            if (out.ownsMembers()) {
                std::string_view const name = rep_->name(rep_->category(*id));
                addNew(out, zcache::newString(name));
            } else {
                out.addNoCopy(rep_->categoryName(*id));
            }
        }
    });
    if (direct() != nullptr)
        rep_->walk.start(ids);
}

void ZPCategoryBasedCache_6_0::getNames(char const* category, ZArrayList_6_0& out) const
{
    Id const found = rep_->liveCategory(category);
    if (found == 0)
        return;
    zcontainers::addAllOrNothing(out, [&] {
        for (Id const id : MapOrder(*rep_, found)) {
            if (out.ownsMembers()) {
                std::string_view const name = rep_->name(rep_->key(id));
                addNew(out, zcache::newString(name));
            } else {
                out.addNoCopy(rep_->keyName(id));
            }
        }
    });
}

ZArrayList_6_0* ZPCategoryBasedCache_6_0::getNames(char const* category) const
{
    Id const found = rep_->liveCategory(category);
    if (found == 0)
        return nullptr;
    auto* const names = new ZArrayList_6_0(rep_->category(found).keyCount, 1);
    try {
        getNames(category, *names);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete names;
        throw;
    }
    return names;
}

void ZPCategoryBasedCache_6_0::list(FILE* file) const
{
    if (file == nullptr)
        return;
    zstanza::TextBuffer text;
    if (direct() != nullptr)
        zcache::list(*rep_, text);
    else
        Rep::Derived::list(*this, text);
    if (text.length() != 0)
        zreporting::write(file, text.chars(), text.length());
}

void ZPCategoryBasedCache_6_0::delLine(char const* category)
{
    delStanzaLine(category);
}

void ZPCategoryBasedCache_6_0::delLine(char const* category, char const* key)
{
    if (category == nullptr || isNothing(key))
        return;
    if (direct() == nullptr) {
        Rep::Derived::deleteLine(*this, category, key);
        return;
    }
    rep_->deleteLine(checkedView(category), checkedView(key));
    changed();
}

void ZPCategoryBasedCache_6_0::addLine(char const* category, char const* key, char const* value,
                                       int obfuscated)
{
    if (category == nullptr)
        return;
    if (direct() == nullptr) {
        Rep::Derived::addLine(*this, category, key, value, obfuscated);
        return;
    }
    rep_->insertAtTemplates(KeptLines::keepsLines(*this));
    rep_->addLine(checkedView(category), checkedView(key), valueView(value), kindOf(obfuscated));
    changed();
}

void ZPCategoryBasedCache_6_0::addLine(char const* category, char const* key, int obfuscated)
{
    addLine(category, key, nullptr, obfuscated);
}

void ZPCategoryBasedCache_6_0::addFileComment(char const* comment)
{
    if (comment == nullptr)
        return;
    rep_->addFileComment(checkedView(comment));
    changed();
}

void ZPCategoryBasedCache_6_0::addLineComment(char const* category, char const* comment)
{
    addStanzaComment(category, comment);
}

void ZPCategoryBasedCache_6_0::addLineComment(char const* category, char const* key,
                                              char const* comment)
{
    if (category == nullptr || isNothing(key) || comment == nullptr)
        return;
    if (direct() == nullptr) {
        Rep::Derived::addLineComment(*this, category, key, comment);
        return;
    }
    rep_->insertAtTemplates(KeptLines::keepsLines(*this));
    rep_->addLineComment(checkedView(category), checkedView(key), checkedView(comment));
    changed();
}

void ZPCategoryBasedCache_6_0::clear()
{
    Contents none;
    none.sharePolicyOf(*rep_);
    rep_->walk.stop();
    rep_->swap(none);
    rep_->kept.reset();
    rep_->spelled.reset();
    ZPCache_6_0::clear();
    listsWentAway();
}

ZPCache_6_0* ZPCategoryBasedCache_6_0::makeEmpty() const
{
    auto* const made = zstanza::allocate<ZPCategoryBasedCache_6_0>();
    made->setAttributes(attributes(), attributeArgument());
    return made;
}

int ZPCategoryBasedCache_6_0::swapContents(ZPCache_6_0& other)
{
    auto* const peer = dynamic_cast<ZPCategoryBasedCache_6_0*>(&other);
    if (peer == nullptr)
        return 0;
    std::swap(rep_, peer->rep_);
    std::swap(rep_->listsReceived, peer->rep_->listsReceived);  // each counts changes of its cache
    swapCompanionFile(other);
    listsWentAway();
    peer->listsWentAway();
    return 1;
}

int ZPCategoryBasedCache_6_0::obfuscatedItemCount() const
{
    return static_cast<int>(rep_->itemCount());
}

ZPCategoryBasedCache_6_0::Values ZPCategoryBasedCache_6_0::values(char const* category,
                                                                  char const* key,
                                                                  get_type_e type) const
{
    return values(rep_->liveKey(category, key), type);
}

ZPCategoryBasedCache_6_0::Values ZPCategoryBasedCache_6_0::values(uint32_t id,
                                                                  get_type_e type) const
{
    Values values;
    values.list_ = nullptr;
    values.store_ = rep_;
    values.next_ = 0;
    values.first_ = values.last_ = {empty_, 0};
    values.count_ = -1;
    values.given_ = 0;
    if (id == 0)
        return values;

    auto const textOf = [](std::string_view text) { return Text{text.data(), text.size()}; };
    zcache::Key const& found = rep_->key(id);
    if (!found.hasExtra) {  // at most one plain value
        values.count_ = found.value != 0 && type != obfuscatedValues;
        if (values.count_ != 0)
            values.first_ = values.last_ = textOf(rep_->text(found));
        return values;
    }
    Contents::Kind const kind = kindOf(*rep_, id, type);
    values.count_ = static_cast<int>(rep_->valueCount(id, kind));
    zcache::KeyExtra const* const extra = rep_->findExtra(id);
    if (extra->lists[kind] != nullptr) {
        values.list_ = extra->lists[kind];
        if (values.count_ > 0) {
            auto const* const last = static_cast<ZAbstractString_6_0 const*>(
                values.list_->get(static_cast<unsigned>(values.count_) - 1));
            if (last != nullptr)
                values.last_ = {last->getChars(), last->getLength()};
        }
        return values;
    }
    if (extra->first[kind] != 0) {
        zcache::Value const& first = rep_->value(extra->first[kind]);
        values.first_ = values.last_ = textOf(rep_->text(first));
        values.next_ = first.next;
    }
    if (extra->last[kind] != 0)
        values.last_ = textOf(rep_->text(rep_->value(extra->last[kind])));
    return values;
}

uint32_t ZPCategoryBasedCache_6_0::placeOf(char const* category, char const* key) const
{
    return rep_->liveKey(category, key);
}

ZPCachedKey_6_0* ZPCategoryBasedCache_6_0::listKeys(char const* category, int& count) const
{
    count = 0;
    Id const next = category == nullptr ? 0 : rep_->walk.next(*rep_, category);
    Id const found = next != 0 ? next : rep_->liveCategory(category);
    if (found == 0 || rep_->category(found).keyCount == 0)
        return nullptr;
    zcache::Category const& record = rep_->category(found);
    // In the order of the file, which is the order in memory.
    size_t bytes = 0;
    for (Id id = record.firstKey; id != 0; id = rep_->key(id).next)
        bytes += sizeof(ZPCachedKey_6_0) + rep_->name(rep_->key(id)).size() + 1;
    MapOrder const ids(*rep_, found);
    auto* const keys = static_cast<ZPCachedKey_6_0*>(zcache::reallocate(nullptr, bytes));
    auto* text = reinterpret_cast<char*>(keys + record.keyCount);
    for (Id const* id = ids.begin(); id != ids.end(); ++id) {
        // The keys of a large category are far apart, and a copy waits for memory.
        if (ids.end() - id > 2 * kAhead) {
            __builtin_prefetch(&rep_->key(id[2 * kAhead]));
            __builtin_prefetch(rep_->name(rep_->key(id[kAhead])).data());
        }
        std::string_view const name = rep_->name(rep_->key(*id));
        keys[count++] = {text, *id};
        memcpy(text, name.data(), name.size());
        text[name.size()] = '\0';
        text += name.size() + 1;
    }
    return keys;
}

bool ZPCategoryBasedCache_6_0::lastValue(char const* category, char const* key, get_type_e type,
                                         Text& value) const
{
    Id const id = rep_->liveKey(category, key);
    if (id == 0)
        return false;
    if (rep_->findExtra(id) != nullptr)
        return values(id, type).last(value);
    // Most keys have a single plain value.
    zcache::Key const& found = rep_->key(id);
    if (type == obfuscatedValues || found.value == 0)
        return false;
    std::string_view const only = rep_->text(found);
    value = {only.data(), only.size()};
    return true;
}

void ZPCategoryBasedCache_6_0::renameKey(char const* category, char const* key, char const* name)
{
    KeptLines::keepOldName(*this, category, key);
    rep_->renameKey(checkedView(category), checkedView(key), checkedView(name));
    changed();
}

void ZPCategoryBasedCache_6_0::renameCategory(char const* category, char const* name)
{
    KeptLines::keepOldName(*this, category, nullptr);
    rep_->renameCategory(checkedView(category), checkedView(name));
    changed();
}

void ZPCategoryBasedCache_6_0::getNamesInFileOrder(ZArrayList_6_0& out) const
{
    auto const append = [&](zcache::Category const& category) {
        addNew(out, zcache::newString(rep_->name(category)));
    };
    zcontainers::addAllOrNothing(out, [&] {
        for (Id id = rep_->firstHeader(); id != 0; id = rep_->category(id).nextHeader)
            if (rep_->category(id).isLive)
                append(rep_->category(id));
        for (Id id = rep_->firstCategory(); id != 0; id = rep_->category(id).next)
            if (rep_->category(id).header == 0)
                append(rep_->category(id));
    });
}

void ZPCategoryBasedCache_6_0::addStanzaLine(char const* category)
{
    if (category == nullptr)
        return;
    if (direct() == nullptr) {
        Rep::Derived::addStanzaLine(*this, category);
        return;
    }
    rep_->addStanzaLine(checkedView(category));
    changed();
}

void ZPCategoryBasedCache_6_0::delStanzaLine(char const* category)
{
    if (category == nullptr)
        return;
    if (KeptLines::keepsLines(*this))
        zmemory::translateBadAlloc(zstanza::kSource, zstanza::raiseInAllocate,
                                   [&] { rep_->keepHeaderComments(checkedView(category)); });
    if (direct() == nullptr) {
        Rep::Derived::deleteStanza(*this, category);
        return;
    }
    rep_->deleteStanza(checkedView(category));
    changed();
}

void ZPCategoryBasedCache_6_0::addStanzaComment(char const* category, char const* comment)
{
    if (category == nullptr || comment == nullptr)
        return;
    if (direct() == nullptr) {
        Rep::Derived::addStanzaComment(*this, category, comment);
        return;
    }
    Id const id = rep_->liveCategory(category);
    if (id == 0)
        return;
    rep_->addStanzaComment(id, checkedView(comment));
    changed();
}

bool ZPCategoryBasedCache_6_0::isCommentWeWant(char const* pattern, char const* text)
{
    return pattern != nullptr && text != nullptr &&
           zstanza::startsWithPattern(checkedView(pattern), text);
}

int ZPCategoryBasedCache_6_0::validateCategory(char const* category)
{
    return zstanza::isValidCategory(category);
}

int ZPCategoryBasedCache_6_0::validateKey(char const* category, char const* key)
{
    return zstanza::isValidCategory(category) && zstanza::isValidKey(key);
}

int ZPCategoryBasedCache_6_0::validateValue(char const* key, char const* value)
{
    return zstanza::isValidValue(key, value);
}

void ZPCategoryBasedCache_6_0::getLines(ZArrayList_6_0& out) const
{
    static constexpr unsigned kTypes[] = {ZPropLine_6_0::comment, ZPropLine_6_0::blank,
                                          ZPropLine_6_0::stanzaHead, ZPropLine_6_0::keyLine};
    zcontainers::addAllOrNothing(out, [&] {
        for (Id id = rep_->firstLine(); id != 0; id = rep_->line(id).next) {
            zcache::Line const& line = rep_->line(id);
            if (line.isBelowBlank)
                addNew(out, new ZPropLine_6_0(ZPropLine_6_0::blank, ""));
            addNew(out, new ZPropLine_6_0(kTypes[line.kind], rep_->text(line).data()));
        }
    });
}

void ZPCategoryBasedCache_6_0::getObfuscatedItems(ZArrayList_6_0& out) const
{
    zcontainers::addAllOrNothing(out, [&] {
        for (Id id = rep_->firstItem(); id != 0; id = rep_->item(id).nextItem) {
            zcache::Key const& key = rep_->key(rep_->item(id).key);
            addNew(out, new ZObfuscatedItem_6_0(rep_->name(rep_->category(key.category)).data(),
                                                rep_->name(key).data()));
        }
    });
}

size_t ZPCategoryBasedCache_6_0::memoryUsed() const
{
    return rep_->memoryUsed() + rep_->walk.bytes() +
           (rep_->kept == nullptr ? 0 : rep_->kept->text.capacity() + 1);
}
