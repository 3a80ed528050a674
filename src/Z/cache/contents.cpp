#include "contents.h"

#include "../ZException.h"

namespace zcache {

namespace {

constexpr size_t kMinGarbage = 1 << 16;  // bytes; less is not worth compacting

// Returns the size of the buckets and nodes of a hash table.
template <class Table>
size_t bytesOf(Table const& table)
{
    struct Node {
        void* next;
        typename Table::value_type value;
    };
    return table.bucket_count() * sizeof(void*) + table.size() * sizeof(Node);
}

size_t bytesOfNames(std::unordered_map<Id, std::string> const& names)
{
    size_t bytes = bytesOf(names);
    for (auto const& [id, name] : names)
        bytes += name.capacity() > std::string().capacity() ? name.capacity() + 1 : 0;
    return bytes;
}

}  // namespace

std::shared_ptr<Policy const> Contents::defaultPolicy()
{
    static constexpr Policy kDefault;
    return {std::shared_ptr<void>(), &kDefault};  // without a counter: not owned
}

void Contents::setPolicy(Policy const& policy)
{
    policy_ = std::make_shared<Policy const>(policy);
}

Contents::Contents(Contents const& other) : Contents()
{
    policy_ = other.policy_;
    categories_.copy(other.categories_);
    keys_.copy(other.keys_);
    values_.copy(other.values_);
    lines_.copy(other.lines_);
    categoryIndex_.copy(other.categoryIndex_);
    keyIndex_.copy(other.keyIndex_);
    firstCategory_ = other.firstCategory_;
    lastCategory_ = other.lastCategory_;
    categoryCount_ = other.categoryCount_;
    firstLine_ = other.firstLine_;
    lastLine_ = other.lastLine_;
    firstHeader_ = other.firstHeader_;
    lastHeader_ = other.lastHeader_;
    lastLeading_ = other.lastLeading_;
    // Do not copy treaps, nor objects that callers have received.
    categoryExtras_.copy(other.categoryExtras_);
    for (Id i = 1; i < categoryExtras_.end(); ++i)
        if (categoryExtras_[i].category != 0)
            categoryExtras_[i].values = nullptr, categoryExtras_[i].name = nullptr;
    for (Id i = firstHeader_; i != 0; i = categories_[i].nextHeader)
        if (categories_[i].hasComments)
            categories_[i].root = 0;

    keyExtras_.copy(other.keyExtras_);
    for (Id i = 1; i < keyExtras_.end(); ++i) {
        KeyExtra& extra = keyExtras_[i];
        if (extra.key != 0)
            extra.lists[plain] = extra.lists[obfuscated] = nullptr, extra.name = nullptr;
    }
    firstItem_ = other.firstItem_;
    lastItem_ = other.lastItem_;
    itemCount_ = other.itemCount_;
    for (Id i = 1; i < keyExtras_.end(); ++i) {
        KeyExtra const& extra = other.keyExtras_[i];
        if (extra.key == 0)
            continue;
        for (Kind const kind : {plain, obfuscated})
            if (extra.lists[kind] != nullptr)
                keyExtras_[i].lists[kind] = new ZArrayList_6_0(*extra.lists[kind]);
    }
    if (other.changes_ != nullptr)
        changes() = *other.changes_;
    moveStrings(other.arena_);
}

Contents::~Contents()
{
    for (Id i = 1; i < keyExtras_.end(); ++i) {
        KeyExtra const& extra = keyExtras_[i];
        if (extra.key == 0)
            continue;
        delete extra.lists[plain];
        delete extra.lists[obfuscated];
        delete extra.name;
    }
    for (Id i = 1; i < categoryExtras_.end(); ++i) {
        CategoryExtra const& extra = categoryExtras_[i];
        if (extra.category == 0)
            continue;
        delete extra.values;
        delete extra.name;
    }
}

void Contents::swap(Contents& other)
{
    policy_.swap(other.policy_);
    arena_.swap(other.arena_);
    categories_.swap(other.categories_);
    categoryExtras_.swap(other.categoryExtras_);
    keys_.swap(other.keys_);
    keyExtras_.swap(other.keyExtras_);
    values_.swap(other.values_);
    lines_.swap(other.lines_);
    categoryIndex_.swap(other.categoryIndex_);
    keyIndex_.swap(other.keyIndex_);
    positions_.swap(other.positions_);
    changes_.swap(other.changes_);
    std::swap(firstCategory_, other.firstCategory_);
    std::swap(lastCategory_, other.lastCategory_);
    std::swap(categoryCount_, other.categoryCount_);
    std::swap(firstItem_, other.firstItem_);
    std::swap(lastItem_, other.lastItem_);
    std::swap(itemCount_, other.itemCount_);
    std::swap(firstLine_, other.firstLine_);
    std::swap(lastLine_, other.lastLine_);
    std::swap(firstHeader_, other.firstHeader_);
    std::swap(lastHeader_, other.lastHeader_);
    std::swap(lastLeading_, other.lastLeading_);
    std::swap(compactAt_, other.compactAt_);
    std::swap(hasLists_, other.hasLists_);
}

size_t Contents::memoryUsed() const
{
    size_t bytes = arena_.bytes() + categories_.bytes() + categoryExtras_.bytes() + keys_.bytes() +
                   keyExtras_.bytes() + values_.bytes() + lines_.bytes() + categoryIndex_.bytes() +
                   keyIndex_.bytes();
    if (positions_ != nullptr)
        bytes += sizeof(Positions) + positions_->templates.bytes() + positions_->index.bytes() +
                 positions_->treap.bytes();
    if (changes_ != nullptr)
        bytes += sizeof(Changes) + bytesOfNames(changes_->categoryNames) +
                 bytesOfNames(changes_->keyNames) + bytesOf(changes_->leftComments);
    return bytes;
}

// Calls `call(StringId&, std::string_view)` for each string in use. The strings are in `arena`.
template <class Call>
void Contents::forEachText(Arena const& arena, Call call)
{
    auto const keyTexts = [&](Key& key) {
        call(key.name, arena.view(key.name, key.nameLength));
        if (!key.hasExtra) {
            if (key.value != 0)
                call(key.value, arena.view(key.value, key.valueLength));
            return;
        }
        for (Id const first : keyExtras_[key.extra].first)
            for (Id i = first; i != 0; i = values_[i].next)
                call(values_[i].text,
                     std::string_view(arena.at(values_[i].text), values_[i].length));
    };
    auto const categoryText = [&](Category& category) {
        call(category.name, arena.view(category.name, category.nameLength));
    };
    for (Id i = firstCategory_; i != 0; i = categories_[i].next) {
        categoryText(categories_[i]);
        for (Id k = categories_[i].firstKey; k != 0; k = keys_[k].next)
            keyTexts(keys_[k]);
    }
    for (Id i = firstLine_; i != 0; i = lines_[i].next) {
        Id const ref = lines_[i].ref;
        switch (lines_[i].kind) {
            case commentLine:
                call(lines_[i].ref, arena.view(ref));
                break;
            case headerLine:
                if (!categories_[ref].isLive)
                    categoryText(categories_[ref]);
                break;
            case keyLine:
                if (!keys_[ref].isLive)
                    keyTexts(keys_[ref]);
                break;
            default:
                break;
        }
    }
    for (Id i = 1; positions_ != nullptr && i < positions_->templates.end(); ++i) {
        Template& record = positions_->templates[i];
        if (record.line != 0)
            call(record.key, arena.view(record.key));
    }
}

// Replaces the arena by a single chunk with copies of the strings in use, which are in `arena`.
void Contents::moveStrings(Arena const& arena)
{
    size_t bytes = 0;
    forEachText(arena, [&](StringId, std::string_view text) { bytes += text.size() + 1; });
    Arena fresh;
    if (bytes != 0)
        fresh.reserve(bytes);
    forEachText(arena, [&](StringId& id, std::string_view text) {
        id = fresh.idOf(fresh.add(text).data());
    });
    arena_.swap(fresh);
}

void Contents::compact()
{
    // Compacting visits every line, so require garbage in proportion to the number of lines.
    size_t const garbage = arena_.garbage();
    if (garbage <= kMinGarbage || garbage <= arena_.used() / 2 + lines_.count() ||
        garbage <= compactAt_)
        return;
    try {
        moveStrings(arena_);
        compactAt_ = 0;
    } catch (ZOutOfMemoryException_6_0 const&) {
        compactAt_ = garbage * 2;  // not a failure: only memory is wasted
    }
}

void Contents::shrinkToFit()
{
    categories_.shrinkToFit();
    keys_.shrinkToFit();
    keyExtras_.shrinkToFit();
    values_.shrinkToFit();
    lines_.shrinkToFit();
}

}  // namespace zcache
