// records: the parts of the contents.
#pragma once

#include <stdint.h>

#include <utility>

#include "../ZArrayList.h"
#include "../ZLCString.h"
#include "ids.h"

namespace zcache {

struct Value {
    TextId text;
    uint32_t length;
    Id next;
};

// Half a cache line: look-ups come to one key after the other in no order.
struct Key {
    TextId name;
    TextId value;         // the first plain value; 0 when there is none, or when a list holds it
    uint16_t nameLength;  // as Arena::packLength() has it
    uint16_t valueLength;
    Id category : 30;
    uint32_t isLive : 1;  // 0: dormant
    Id more;
    Id line;
    Id previous;  // of the keys of its category, in the order in which they came
    Id next;
};

// What most keys do without. There are two kinds of values: 0 plain, 1 obfuscated.
struct KeyMore {
    ZArrayList_6_0* lists[2];  // the values, once a caller asked for them
    ZLCString_6_0* name;       // the name, once it was lent to a caller
    Id first[2];               // else the values; of the plain ones those behind the first
    Id last[2];
    uint32_t counts[2];
    Id key;           // 0: the record is not in use
    uint32_t isItem;  // 1: in the list of obfuscated items
    Id previousItem;
    Id nextItem;
};

struct Category {
    TextId name;
    uint16_t nameLength;  // as Arena::packLength() has it
    bool isLive;          // else dormant
    bool hasComments;     // in the section
    uint32_t keyCount;
    Id firstKey;  // in the order in which they came
    Id lastKey;
    Id previous;  // of the categories, in the order in which they came
    Id next;
    Id more;
    Id head;          // the head line
    Id previousHead;  // the categories whose heads stand before and behind, in file order
    Id nextHead;
    union {
        Id lastKeyLine;  // of a section without comments
        Id root;         // of a section with comments: of its tree, see Trees; 0: none was made
    };
    uint32_t items;  // keys in the list of obfuscated items

    Id tree() const { return hasComments ? root : 0; }

    // To be called before a section gets a comment.
    void expectComment()
    {
        if (!std::exchange(hasComments, true))
            root = 0;
    }
};

struct CategoryMore {
    ZArrayList_6_0* values;  // what get(category) returned last
    ZLCString_6_0* name;     // the name, once it was lent to a caller
    Id category;             // 0: the record is not in use
    Id replaced;             // while reading: the dormant category of the same name
};

enum LineKind : uint32_t { commentLine, blankLine, headLine, keyLine };

struct Line {
    Id previous : 30;
    uint32_t kind : 2;
    Id next : 30;
    uint32_t isBelowBlank : 1;  // of a comment that was read: a blank line stands above it
    uint32_t of;                // a Category, a Key or the text of a comment, by kind

    bool hasBlank() const { return kind == blankLine || isBelowBlank; }
};

// A comment such as "# port = 5": the first one of its section for its key.
struct Template {
    TextId key;  // without blanks
    Id category;
    Id line;
};

}  // namespace zcache
