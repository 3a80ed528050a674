// value_lists: values and names as objects that callers keep.

#include "../ZException.h"
#include "contents.h"
#include "map_order.h"
#include "new_string.h"

namespace zcache {

ZArrayList_6_0* Store::list(Id key, Kind kind)
{
    if (KeyMore const* const known = more(key); known != nullptr && known->lists[kind] != nullptr)
        return known->lists[kind];
    keyMores_.reserve(1);
    auto* const list = new ZArrayList_6_0(1, 1);
    try {
        eachValue(key, kind, [&](std::string_view value) {
            NewString string;
            string.make(value);
            string.appendTo(*list);
        });
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete list;
        throw;
    }
    dropTexts(key, kind);
    moreOf(key).lists[kind] = list;
    return list;
}

ZArrayList_6_0* Store::valuesOf(Id id, Selection selection)
{
    CategoryMore& more = moreOfCategory(id);
    if (more.values == nullptr)
        more.values = new ZArrayList_6_0(1, 1);
    ZArrayList_6_0& list = *more.values;

    // The new values come behind the old ones and change places with them in the end: until then
    // the old ones are there to go back to.
    unsigned const before = list.size();
    try {
        for (Id const key : MapOrder(*this, id)) {
            eachValue(key, kindOf(key, selection), [&](std::string_view value) {
                NewString string;
                string.make(value);
                string.appendTo(list);
            });
        }
    } catch (ZOutOfMemoryException_6_0 const&) {
        while (list.size() > before)
            list.remove(list.size() - 1);
        throw;
    }
    unsigned const count = list.size() - before;
    for (unsigned i = 0; i < count && before != 0; ++i)
        list.swap(i, before + i);
    while (list.size() > count)
        list.remove(list.size() - 1);
    return &list;
}

ZLCString_6_0* Store::keyName(Id key)
{
    keyMores_.reserve(1);
    if (KeyMore const* const known = more(key); known != nullptr && known->name != nullptr)
        return known->name;
    std::string_view const text = name(keys_[key]);
    auto* const made = newString(text);
    return moreOf(key).name = made;
}

ZLCString_6_0* Store::categoryName(Id id)
{
    CategoryMore& more = moreOfCategory(id);
    if (more.name == nullptr) {
        std::string_view const text = name(categories_[id]);
        more.name = newString(text);
    }
    return more.name;
}

}  // namespace zcache
