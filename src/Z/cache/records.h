// records: the records of a cache: categories, keys, values and lines.
//
//     Category  its keys in insertion order, its header line, the index of its section
//     Key       name, category, line; its only value if that is plain, else a KeyExtra
//     KeyExtra  several values, obfuscated values, lists that callers have received
//     Value     a node in a chain of values
//     Line      a node of a doubly linked list in file order: comment, blank, header or key line
#pragma once

#include <stdint.h>

#include <utility>

#include "../ZArrayList.h"
#include "../ZLCString.h"
#include "ids.h"

namespace zcache {

struct Value {
    StringId text;
    uint32_t length;
    Id next;
};

// Small, because large files have millions. Lookups use the fields up to `category`.
struct Key {
    StringId name;
    union {
        StringId value;  // the only value, which is plain; 0: none
        Id extra;        // if hasExtra
    };
    uint16_t nameLength;  // encoded by Arena::encodeLength()
    uint16_t valueLength;
    Id category : 30;
    uint32_t isLive : 1;      // 0: detached
    uint32_t hasNewName : 1;  // the name is not the name that was read
    Id line : 30;
    uint32_t hasExtra : 1;
    Id previous;  // key of the category, in insertion order
    Id next;
};
static_assert(sizeof(Key) == 28);

// Fields that most keys do not need. Arrays are indexed by kind: 0 plain, 1 obfuscated.
struct KeyExtra {
    ZArrayList_6_0* lists[2];  // the values, after a caller has received the list
    ZLCString_6_0* name;       // the name, after a caller has received it
    Id first[2];               // else the values
    Id last[2];
    uint32_t counts[2];
    Id key;           // 0: the record is free
    uint32_t isItem;  // 1: in the list of obfuscated items
    Id previousItem;
    Id nextItem;
};

struct Category {
    StringId name;
    uint16_t nameLength;  // encoded by Arena::encodeLength()
    bool isLive : 1;      // else detached
    bool hasNewName : 1;  // the name is not the name that was read
    bool hasComments;     // its section has comments
    uint32_t keyCount;
    Id firstKey;  // in insertion order
    Id lastKey;
    Id previous;  // category, in insertion order
    Id next;
    Id extra;
    Id header;          // the header line
    Id previousHeader;  // category with a header, in file order
    Id nextHeader;
    union {
        Id lastKeyLine;  // if the section has no comments
        Id root;         // otherwise: of its treap; 0: not built
    };
    uint32_t items;  // keys in the list of obfuscated items

    Id tree() const { return hasComments ? root : 0; }

    // Call this before adding a comment to the section.
    void expectComment()
    {
        if (!std::exchange(hasComments, true))
            root = 0;
    }
};

struct CategoryExtra {
    ZArrayList_6_0* values;  // the list that get(category) returned last
    ZLCString_6_0* name;     // the name, after a caller has received it
    Id category;             // 0: the record is free
    Id replaced;             // while reading: the detached category of the same name
};

enum LineKind : uint32_t { commentLine, blankLine, headerLine, keyLine };

struct Line {
    Id previous : 30;
    uint32_t kind : 2;
    Id next : 30;
    uint32_t isBelowBlank : 1;  // a comment that was read after a blank line stands for both
    uint32_t isBelowGap : 1;    // in the file, a line without a record is above it
    uint32_t ref;               // by kind: a category, a key or the text of a comment

    bool hasBlank() const { return kind == blankLine || isBelowBlank; }

    // Returns whether a comment does not continue the comment of the line above it.
    bool startsComment() const { return isBelowBlank || isBelowGap; }
};

// The first template comment of its section, such as "# port = 5", for its key.
struct Template {
    StringId key;  // without spaces
    Id category;
    Id line;
};

}  // namespace zcache
