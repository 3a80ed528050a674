// value_lists: the lists of values and the names that callers receive as objects.

#include "../ZException.h"
#include "../containers/list_rollback.h"
#include "contents.h"
#include "map_order.h"
#include "new_string.h"

namespace zcache {

ZArrayList_6_0* Contents::list(Id key, Kind kind)
{
    if (KeyExtra const* const known = findExtra(key);
        known != nullptr && known->lists[kind] != nullptr)
        return known->lists[kind];
    keyExtras_.reserve(1);
    values_.reserve(1);
    auto* const list = new ZArrayList_6_0(1, 1);
    try {
        forEachValue(key, kind, [&](std::string_view value) {
            NewString string;
            string.create(value);
            string.appendTo(*list);
        });
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete list;
        throw;
    }
    dropStoredValues(key, kind);
    extraOf(key).lists[kind] = list;
    hasLists_ = true;
    return list;
}

ZArrayList_6_0* Contents::valuesOf(Id id, Selection selection)
{
    CategoryExtra& extra = categoryExtraOf(id);
    if (extra.values == nullptr)
        extra.values = new ZArrayList_6_0(1, 1);
    ZArrayList_6_0& list = *extra.values;

    // Append the new values after the old ones, then swap and drop the old ones. Until then a
    // failure can roll back.
    unsigned const before = list.size();
    zcontainers::addAllOrNothing(list, [&] {
        for (Id const key : MapOrder(*this, id)) {
            forEachValue(key, kindOf(key, selection), [&](std::string_view value) {
                NewString string;
                string.create(value);
                string.appendTo(list);
            });
        }
    });
    unsigned const count = list.size() - before;
    for (unsigned i = 0; i < count && before != 0; ++i)
        list.swap(i, before + i);
    while (list.size() > count)
        list.remove(list.size() - 1);
    return &list;
}

bool Contents::hasListsOf(Contents const& copy) const
{
    if (!hasLists_)
        return true;
    for (Id i = 1; i < keyExtras_.end(); ++i) {
        KeyExtra const& extra = keyExtras_[i];
        if (extra.key == 0)
            continue;
        for (Kind const kind : {plain, obfuscated}) {
            if (extra.lists[kind] != nullptr &&
                !hasValues(*extra.lists[kind], copy, extra.key, kind))
                return false;
        }
    }
    return true;
}

// Returns whether a list has the values of a key in `copy`.
bool Contents::hasValues(ZArrayList_6_0 const& list, Contents const& copy, Id key, Kind kind)
{
    unsigned const size = list.size();
    if (size != copy.valueCount(key, kind))
        return false;
    unsigned at = 0;
    bool const differs = copy.findValue(key, kind, [&](std::string_view value) {
        auto const* const text =
            at < size ? static_cast<ZAbstractString_6_0 const*>(list.get(at++)) : nullptr;
        return text == nullptr || std::string_view(text->getChars(), text->getLength()) != value;
    });
    return !differs && at == size;  // a null is no value
}

ZLCString_6_0* Contents::keyName(Id key)
{
    if (KeyExtra const* const known = findExtra(key); known != nullptr && known->name != nullptr)
        return known->name;
    keyExtras_.reserve(1);
    values_.reserve(1);
    std::string_view const text = name(keys_[key]);
    auto* const created = newString(text);
    return extraOf(key).name = created;
}

ZLCString_6_0* Contents::categoryName(Id id)
{
    CategoryExtra& extra = categoryExtraOf(id);
    if (extra.name == nullptr) {
        std::string_view const text = name(categories_[id]);
        extra.name = newString(text);
    }
    return extra.name;
}

}  // namespace zcache
