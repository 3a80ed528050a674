#include "ZPropertiesImpl.h"

#include <string.h>

#include <typeinfo>

#include "ZArrayList.h"
#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "reporting/stream.h"

using cache::checkedView;
using cache::Id;
using cache::MapOrder;
using cache::Store;

namespace {

int sign(int number)
{
    return number < 0 ? -1 : number > 0 ? 1 : 0;
}

int compareBytes(ZLCString_6_0 const& one, ZLCString_6_0 const& other)
{
    return sign(strcmp(one.getChars(), other.getChars()));
}

// Takes back what was added to a list, unless all of it was.
class Additions {
public:
    explicit Additions(ZArrayList_6_0& list) : list_(list), before_(list.size()) {}
    Additions(Additions const&) = delete;
    Additions& operator=(Additions const&) = delete;
    ~Additions()
    {
        while (!isDone_ && list_.size() > before_)
            list_.remove(list_.size() - 1);
    }

    // Adds an object that the list takes over.
    void addNew(ZObject_6_0* object)
    {
        try {
            list_.addNoCopy(object);
        } catch (ZOutOfMemoryException_6_0 const&) {
            delete object;
            throw;
        }
    }

    void done() { isDone_ = true; }

private:
    ZArrayList_6_0& list_;
    unsigned const before_;
    bool isDone_ = false;
};

Store::Kind kindOf(Store const& store, Id key, ZPCache_6_0::get_type_e type)
{
    switch (type) {
        case ZPCache_6_0::plainValues:
            return Store::plain;
        case ZPCache_6_0::obfuscatedValues:
            return Store::obfuscated;
        default:
            return store.eitherKind(key);
    }
}

Store::Kind kindOf(int obfuscated)
{
    return obfuscated != 0 ? Store::obfuscated : Store::plain;
}

bool isNothing(char const* text)
{
    return text == nullptr || *text == '\0';
}

}  // namespace

// --- ZPropLine_6_0

ZPropLine_6_0::ZPropLine_6_0(unsigned type, char const* text) : type_(type), text_(text)
{
}

ZPropLine_6_0::ZPropLine_6_0(ZPropLine_6_0 const& other) = default;

ZPropLine_6_0& ZPropLine_6_0::operator=(ZPropLine_6_0 const& other)
{
    text_ = other.text_;
    type_ = other.type_;
    return *this;
}

ZPropLine_6_0::~ZPropLine_6_0() = default;

int ZPropLine_6_0::compare(ZObject_6_0 const& object) const
{
    auto const* const other = dynamic_cast<ZPropLine_6_0 const*>(&object);
    if (other == nullptr)
        return ZObject_6_0::compare(object);
    if (type_ != other->type_)
        return type_ < other->type_ ? -1 : 1;
    return compareBytes(text_, other->text_);
}

ZObject_6_0* ZPropLine_6_0::clone() const
{
    return new ZPropLine_6_0(*this);
}

// --- ZObfuscatedItem_6_0

ZObfuscatedItem_6_0::ZObfuscatedItem_6_0(char const* category, char const* key)
    : category_(category), key_(key)
{
}

ZObfuscatedItem_6_0::ZObfuscatedItem_6_0(ZObfuscatedItem_6_0 const& other) = default;

ZObfuscatedItem_6_0& ZObfuscatedItem_6_0::operator=(ZObfuscatedItem_6_0 const& other)
{
    // The one that may raise and be the only one changed is a copy.
    ZLCString_6_0 const before(category_);
    category_ = other.category_;
    try {
        key_ = other.key_;
    } catch (ZOutOfMemoryException_6_0 const&) {
        category_ = before;  // its room is there: this does not raise
        throw;
    }
    return *this;
}

ZObfuscatedItem_6_0::~ZObfuscatedItem_6_0() = default;

int ZObfuscatedItem_6_0::compare(ZObject_6_0 const& object) const
{
    auto const* const other = dynamic_cast<ZObfuscatedItem_6_0 const*>(&object);
    if (other == nullptr)
        return ZObject_6_0::compare(object);
    int const byCategory = compareBytes(category_, other->category_);
    return byCategory != 0 ? byCategory : compareBytes(key_, other->key_);
}

ZObject_6_0* ZObfuscatedItem_6_0::clone() const
{
    return new ZObfuscatedItem_6_0(*this);
}

bool ZObfuscatedItem_6_0::equals(ZObject_6_0 const& other) const
{
    return compare(other) == 0;
}

// --- ZPKVList_6_0

ZPKVList_6_0::ZPKVList_6_0() : ZHashKeyMap_6_0(10, 1)
{
}

ZPKVList_6_0::ZPKVList_6_0(ZPKVList_6_0 const& other) = default;

ZPKVList_6_0& ZPKVList_6_0::operator=(ZPKVList_6_0 const& other) = default;

ZPKVList_6_0::~ZPKVList_6_0() = default;

ZObject_6_0* ZPKVList_6_0::clone() const
{
    return new ZPKVList_6_0(*this);
}

void ZPKVList_6_0::putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value)
{
    ZHashKeyMap_6_0::putEntry(key, value);
}

void ZPKVList_6_0::removeEntry(ZObject_6_0 const* key)
{
    ZHashKeyMap_6_0::removeEntry(key);
}

void ZPKVList_6_0::removeAll()
{
    ZHashKeyMap_6_0::removeAll();
}

void ZPKVList_6_0::listKeys(ZList_6_0& target) const
{
    ZHashKeyMap_6_0::listKeys(target);
}

ZArrayList_6_0* ZPKVList_6_0::getKeys() const
{
    auto* const keys = new ZArrayList_6_0(10, 1);
    try {
        listKeys(*keys);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete keys;
        throw;
    }
    return keys;
}

ZArrayList_6_0* ZPKVList_6_0::makeEntry()
{
    ZArrayList_6_0 const none(1, 1);
    auto* const entry = new ZArrayList_6_0(2, 1);
    try {
        entry->add(&none);
        entry->add(&none);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete entry;
        throw;
    }
    return entry;
}

// --- ZPCache_6_0

char const ZPCache_6_0::empty_[1] = "";

ZPCache_6_0::ZPCache_6_0()
    : companionFile_(new ZLCString_6_0), attributes_(0), attributeArgument_(nullptr), generation_(0)
{
}

ZPCache_6_0::ZPCache_6_0(ZPCache_6_0 const& other)
    : companionFile_(new ZLCString_6_0(*other.companionFile_)),
      attributes_(other.attributes_),
      attributeArgument_(other.attributeArgument_),
      generation_(0)
{
}

ZPCache_6_0::~ZPCache_6_0()
{
    delete companionFile_;
}

ZArrayList_6_0* ZPCache_6_0::get(char const*, char const*, get_type_e)
{
    return nullptr;
}

ZArrayList_6_0* ZPCache_6_0::get(char const*, get_type_e)
{
    return nullptr;
}

void ZPCache_6_0::add(char const*, char const*, char const*, int)
{
}

void ZPCache_6_0::add(char const*, char const*, int)
{
}

void ZPCache_6_0::set(char const*, char const*, char const*)
{
}

void ZPCache_6_0::set(char const*, char const*)
{
}

void ZPCache_6_0::setObfuscated(char const*, char const*, char const*)
{
}

void ZPCache_6_0::setObfuscated(char const*, char const*)
{
}

void ZPCache_6_0::remove(char const*, char const*)
{
}

void ZPCache_6_0::remove(char const*)
{
}

int ZPCache_6_0::countValues(char const*)
{
    return 0;
}

int ZPCache_6_0::countValues(char const*, char const*)
{
    return 0;
}

int ZPCache_6_0::keyCount(char const*) const
{
    return 0;
}

int ZPCache_6_0::contains(char const*) const
{
    return 0;
}

int ZPCache_6_0::contains(char const*, char const*) const
{
    return 0;
}

int ZPCache_6_0::isObfuscated(char const*) const
{
    return 0;
}

int ZPCache_6_0::isObfuscated(char const*, char const*) const
{
    return 0;
}

int ZPCache_6_0::count() const
{
    return 0;
}

void ZPCache_6_0::getNames(ZArrayList_6_0&) const
{
}

void ZPCache_6_0::getNames(char const*, ZArrayList_6_0&) const
{
}

ZArrayList_6_0* ZPCache_6_0::getNames(char const*) const
{
    return nullptr;
}

void ZPCache_6_0::list(FILE*) const
{
}

void ZPCache_6_0::be_read(char const*, FILE*)
{
}

void ZPCache_6_0::be_write(char const*, FILE*)
{
}

void ZPCache_6_0::be_read_obfuscated(ZBuffer_6_0&)
{
}

void ZPCache_6_0::be_write_obfuscated(ZBuffer_6_0& buffer)
{
    buffer.setLength(0);
}

void ZPCache_6_0::delLine(char const*)
{
}

void ZPCache_6_0::delLine(char const*, char const*)
{
}

void ZPCache_6_0::addLine(char const*, char const*, char const*, int)
{
}

void ZPCache_6_0::addLine(char const*, char const*, int)
{
}

void ZPCache_6_0::addFileComment(char const*)
{
}

void ZPCache_6_0::addLineComment(char const*, char const*)
{
}

void ZPCache_6_0::addLineComment(char const*, char const*, char const*)
{
}

void ZPCache_6_0::clear()
{
    companionFile_->clear();
}

void ZPCache_6_0::setAttributes(unsigned long attributes, void* argument)
{
    attributes_ = attributes;
    attributeArgument_ = argument;
}

void ZPCache_6_0::makeKey(ZLCString_6_0& out, char const* category, char const* key) const
{
    ZLCString_6_0 name("[");
    name += category;
    name += "]";
    name += key;
    out = name;
}

ZPCache_6_0* ZPCache_6_0::makeEmpty() const
{
    return nullptr;
}

int ZPCache_6_0::swapContents(ZPCache_6_0&)
{
    return 0;
}

int ZPCache_6_0::obfuscatedItemCount() const
{
    return 0;
}

ZPCategoryBasedCache_6_0 const* ZPCache_6_0::direct() const
{
    std::type_info const& type = typeid(*this);
    return type == typeid(ZSCFData_6_0) || type == typeid(ZPCategoryBasedCache_6_0)
               ? static_cast<ZPCategoryBasedCache_6_0 const*>(this)
               : nullptr;
}

void ZPCache_6_0::setCompanionFile(char const* path)
{
    *companionFile_ = path == nullptr ? "" : path;
}

void ZPCache_6_0::swapCompanionFile(ZPCache_6_0& other)
{
    std::swap(companionFile_, other.companionFile_);
}

void ZPCache_6_0::takeCompanionFile(ZLCString_6_0* path)
{
    delete std::exchange(companionFile_, path);
}

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
        auto const& store = *static_cast<Store const*>(store_);
        std::string_view const text = store.text(store.value(next_));
        value = {text.data(), text.size()};
        next_ = store.value(next_).next;
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

ZPCategoryBasedCache_6_0::ZPCategoryBasedCache_6_0() : rep_(cache::make<Rep>()), changes_(0)
{
}

ZPCategoryBasedCache_6_0::ZPCategoryBasedCache_6_0(ZPCategoryBasedCache_6_0 const& other)
    : ZPCache_6_0(other), rep_(cache::make<Rep>(*other.rep_)), changes_(0)
{
}

ZPCategoryBasedCache_6_0::~ZPCategoryBasedCache_6_0()
{
    delete rep_;
}

ZPCache_6_0* ZPCategoryBasedCache_6_0::clone() const
{
    return cache::make<ZPCategoryBasedCache_6_0>(*this);
}

void ZPCategoryBasedCache_6_0::changed()
{
    ++changes_;
    rep_->tidy();
    if (rep_->takeListsWentAway())
        listsWentAway();
}

ZArrayList_6_0* ZPCategoryBasedCache_6_0::get(char const* category, char const* key,
                                              get_type_e type)
{
    Id const id = rep_->liveKey(category, key);
    if (id == 0)
        return nullptr;
    ++changes_;  // the texts may go into a list
    return rep_->list(id, kindOf(*rep_, id, type));
}

ZArrayList_6_0* ZPCategoryBasedCache_6_0::get(char const* category, get_type_e type)
{
    Id const id = rep_->liveCategory(category);
    return id == 0 ? nullptr : rep_->valuesOf(id, type);
}

void ZPCategoryBasedCache_6_0::add(char const* category, char const* key, char const* value,
                                   int obfuscated)
{
    if (category == nullptr)
        return;
    rep_->add(checkedView(category), checkedView(key), checkedView(value), kindOf(obfuscated));
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
    rep_->set(checkedView(category), checkedView(key), checkedView(value), Store::plain);
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
    rep_->set(checkedView(category), checkedView(key), checkedView(value), Store::obfuscated);
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
        count += rep_->valueCount(key, rep_->eitherKind(key));
    return static_cast<int>(count);
}

int ZPCategoryBasedCache_6_0::countValues(char const* category, char const* key)
{
    Id const id = rep_->liveKey(category, key);
    return id == 0 ? 0 : static_cast<int>(rep_->valueCount(id, rep_->eitherKind(id)));
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
    // An item's values may have been taken out of its list.
    for (Id key = rep_->category(id).firstKey; key != 0; key = rep_->key(key).next)
        if (rep_->valueCount(key, Store::obfuscated) != 0)
            return 1;
    return 0;
}

int ZPCategoryBasedCache_6_0::isObfuscated(char const* category, char const* key) const
{
    Id const id = rep_->liveKey(category, key);
    return id != 0 && rep_->valueCount(id, Store::obfuscated) != 0;
}

int ZPCategoryBasedCache_6_0::count() const
{
    return static_cast<int>(rep_->categoryCount());
}

void ZPCategoryBasedCache_6_0::getNames(ZArrayList_6_0& out) const
{
    Additions additions(out);
    for (Id const id : MapOrder(*rep_)) {
        if (out.ownsMembers()) {
            std::string_view const name = rep_->name(rep_->category(id));
            additions.addNew(cache::newString(name));
        } else {
            out.addNoCopy(rep_->categoryName(id));
        }
    }
    additions.done();
}

void ZPCategoryBasedCache_6_0::getNames(char const* category, ZArrayList_6_0& out) const
{
    Id const found = rep_->liveCategory(category);
    if (found == 0)
        return;
    Additions additions(out);
    for (Id const id : MapOrder(*rep_, found)) {
        if (out.ownsMembers()) {
            std::string_view const name = rep_->name(rep_->key(id));
            additions.addNew(cache::newString(name));
        } else {
            out.addNoCopy(rep_->keyName(id));
        }
    }
    additions.done();
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
    cache::TextBuffer text;
    if (direct() == nullptr) {
        Rep::Derived::list(*this, text);
        if (text.length() != 0)
            zreporting::write(file, text.chars(), text.length());
        return;
    }
    for (Id const category : MapOrder(*rep_)) {
        text.add("\n[");
        text.add(rep_->name(rep_->category(category)));
        text.add("]\n");
        for (Id const key : MapOrder(*rep_, category)) {
            std::string_view const name = rep_->name(rep_->key(key));
            rep_->eachValue(key, Store::plain, [&](std::string_view value) {
                text.add(name);
                text.add(" = ");
                text.add(value);
                text.add("\n");
            });
            if (rep_->valueCount(key, Store::plain) == 0) {
                text.add(name);
                text.add(" =\n");
            }
        }
    }
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
    rep_->addLine(checkedView(category), checkedView(key), checkedView(value), kindOf(obfuscated));
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
    rep_->addLineComment(checkedView(category), checkedView(key), checkedView(comment));
    changed();
}

void ZPCategoryBasedCache_6_0::clear()
{
    Store none;
    rep_->swap(none);
    ZPCache_6_0::clear();
    listsWentAway();
}

ZPCache_6_0* ZPCategoryBasedCache_6_0::makeEmpty() const
{
    auto* const made = cache::make<ZPCategoryBasedCache_6_0>();
    made->setAttributes(attributes(), attributeArgument());
    return made;
}

int ZPCategoryBasedCache_6_0::swapContents(ZPCache_6_0& other)
{
    auto* const peer = dynamic_cast<ZPCategoryBasedCache_6_0*>(&other);
    if (peer == nullptr)
        return 0;
    std::swap(rep_, peer->rep_);
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
    cache::Key const& found = rep_->key(id);
    if (found.more == 0) {  // one plain value, or none
        values.count_ = found.value != 0 && type != obfuscatedValues;
        if (values.count_ != 0)
            values.first_ = values.last_ = textOf(rep_->text(found));
        return values;
    }
    Store::Kind const kind = kindOf(*rep_, id, type);
    values.count_ = static_cast<int>(rep_->valueCount(id, kind));
    cache::KeyMore const* const more = rep_->more(id);
    if (more->lists[kind] != nullptr) {
        values.list_ = more->lists[kind];
        if (values.count_ > 0) {
            auto const* const last = static_cast<ZAbstractString_6_0 const*>(
                values.list_->get(static_cast<unsigned>(values.count_) - 1));
            if (last != nullptr)
                values.last_ = {last->getChars(), last->getLength()};
        }
        return values;
    }
    if (kind == Store::plain && found.value != 0) {
        values.first_ = values.last_ = textOf(rep_->text(found));
        values.next_ = more->first[kind];
    } else if (more->first[kind] != 0) {
        cache::Value const& first = rep_->value(more->first[kind]);
        values.first_ = values.last_ = textOf(rep_->text(first));
        values.next_ = first.next;
    }
    if (more->last[kind] != 0)
        values.last_ = textOf(rep_->text(rep_->value(more->last[kind])));
    return values;
}

uint32_t ZPCategoryBasedCache_6_0::placeOf(char const* category, char const* key) const
{
    return rep_->liveKey(category, key);
}

ZPCachedKey_6_0* ZPCategoryBasedCache_6_0::listKeys(char const* category, int& count) const
{
    count = 0;
    Id const found = rep_->liveCategory(category);
    if (found == 0 || rep_->category(found).keyCount == 0)
        return nullptr;
    MapOrder const ids(*rep_, found);
    size_t bytes = 0;
    for (Id const id : ids)
        bytes += sizeof(ZPCachedKey_6_0) + rep_->name(rep_->key(id)).size() + 1;
    auto* const keys = static_cast<ZPCachedKey_6_0*>(cache::reallocate(nullptr, bytes));
    auto* text = reinterpret_cast<char*>(keys + rep_->category(found).keyCount);
    for (Id const id : ids) {
        std::string_view const name = rep_->name(rep_->key(id));
        keys[count++] = {text, id};
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
    if (rep_->more(id) != nullptr)
        return values(id, type).last(value);
    // One plain value is all that most keys have.
    cache::Key const& found = rep_->key(id);
    if (type == obfuscatedValues || found.value == 0)
        return false;
    std::string_view const only = rep_->text(found);
    value = {only.data(), only.size()};
    return true;
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
           cache::beginsWithPattern(checkedView(pattern), text);
}

int ZPCategoryBasedCache_6_0::validateCategory(char const* category)
{
    // Its line is "[category]".
    return !isNothing(category) && strpbrk(category, "]\n") == nullptr &&
           strlen(category) + 2 <= cache::kLongestLine;
}

int ZPCategoryBasedCache_6_0::validateKey(char const* category, char const* key)
{
    if (!validateCategory(category) || isNothing(key))
        return 0;
    // The shortest line of a key is "key =".
    size_t const length = strlen(key);
    return strpbrk(key, "=\n") == nullptr && *key != '#' && *key != '[' && !cache::isSpace(*key) &&
           !cache::isSpace(key[length - 1]) && length + 2 <= cache::kLongestLine;
}

int ZPCategoryBasedCache_6_0::validateValue(char const* key, char const* value)
{
    // Its line is "key = value".
    size_t const before = key == nullptr ? 0 : strlen(key) + 3;
    return value == nullptr ||
           (strchr(value, '\n') == nullptr && before + strlen(value) <= cache::kLongestLine);
}

void ZPCategoryBasedCache_6_0::getLines(ZArrayList_6_0& out) const
{
    static constexpr unsigned kTypes[] = {ZPropLine_6_0::comment, ZPropLine_6_0::blank,
                                          ZPropLine_6_0::stanzaHead, ZPropLine_6_0::keyLine};
    Additions additions(out);
    for (Id id = rep_->firstLine(); id != 0; id = rep_->line(id).next) {
        cache::Line const& line = rep_->line(id);
        if (line.isBelowBlank)
            additions.addNew(new ZPropLine_6_0(ZPropLine_6_0::blank, ""));
        additions.addNew(new ZPropLine_6_0(kTypes[line.kind], rep_->text(line).data()));
    }
    additions.done();
}

void ZPCategoryBasedCache_6_0::getObfuscatedItems(ZArrayList_6_0& out) const
{
    Additions additions(out);
    for (Id id = rep_->firstItem(); id != 0; id = rep_->item(id).nextItem) {
        cache::Key const& key = rep_->key(rep_->item(id).key);
        additions.addNew(new ZObfuscatedItem_6_0(rep_->name(rep_->category(key.category)).data(),
                                                 rep_->name(key).data()));
    }
    additions.done();
}

size_t ZPCategoryBasedCache_6_0::memoryUsed() const
{
    return rep_->memoryUsed();
}
