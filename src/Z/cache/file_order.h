// file_order: visits the stanzas, keys and values of a cache in the order of the file.
#pragma once

#include <string_view>

#include "contents.h"

namespace zcache {

// Visits all contents of a cache. `Visitor` has four functions, each of which returns true to
// continue: stanza(name), key(name), value(text, kind), where `text.data()` is null if the key has
// no values, and keyWithValue(name, text) instead of the last two for a single plain value. After
// one returned false, the contents are not used: it may have changed them.
//
// A key without a line, such as a key with obfuscated values, follows the keys of its stanza that
// have one, and a stanza without a header follows the others.
template <class Visitor>
class FileOrder {
public:
    FileOrder(Contents const& contents, Visitor& visitor) : contents_(contents), visitor_(visitor)
    {
    }

    /// Returns whether all contents were visited.
    /// cost    O(lines + values), without allocation.
    bool visit()
    {
        Id line = contents_.firstLine();
        while (line != 0) {
            Line const& current = contents_.line(line);
            line = current.next;
            if (current.kind == keyLine ? !visitKeyOf(current)
                                        : current.kind == headerLine && !enterStanza(current.ref))
                return false;
        }
        return leaveStanza() && visitStanzasWithoutHeader();
    }

private:
    // Nearly all keys have a line and a single plain value: only this code is inline.
    bool visitKeyOf(Line const& line)
    {
        Key const& key = contents_.key(line.ref);
        if (!key.isLive)
            return true;
        ++keysSeen_;
        if (key.hasExtra || key.value == 0)
            return visitKey(line.ref);
        return visitor_.keyWithValue(contents_.name(key), contents_.text(key));
    }

    bool enterStanza(Id category)
    {
        if (!leaveStanza())
            return false;
        if (!contents_.category(category).isLive)
            return true;
        category_ = category;
        ++categoriesSeen_;
        return visitor_.stanza(contents_.name(contents_.category(category)));
    }

    // Visits the keys without a line.
    bool leaveStanza()
    {
        if (category_ != 0) {
            Category const& category = contents_.category(category_);
            bool const isComplete = keysSeen_ == category.keyCount;
            for (Id id = isComplete ? 0 : category.firstKey; id != 0;) {
                Id const next = contents_.key(id).next;
                if (contents_.key(id).line == 0 && !visitKey(id))
                    return false;
                id = next;
            }
        }
        category_ = 0;
        keysSeen_ = 0;
        return true;
    }

    bool visitStanzasWithoutHeader()
    {
        bool const isComplete = categoriesSeen_ == contents_.categoryCount();
        for (Id id = isComplete ? 0 : contents_.firstCategory(); id != 0;) {
            Id const next = contents_.category(id).next;
            if (contents_.category(id).header == 0 && !(enterStanza(id) && leaveStanza()))
                return false;
            id = next;
        }
        return true;
    }

    [[gnu::noinline]] bool visitKey(Id id)
    {
        Key const& key = contents_.key(id);
        if (!visitor_.key(contents_.name(key)))
            return false;
        if (!key.hasExtra)
            return visitor_.value(key.value == 0 ? std::string_view() : contents_.text(key),
                                  Contents::plain);
        Contents::Kind const kind = contents_.anyKind(id);
        if (contents_.valueCount(id, kind) == 0)
            return visitor_.value({}, kind);
        return !contents_.findValue(
            id, kind, [&](std::string_view value) { return !visitor_.value(value, kind); });
    }

    Contents const& contents_;
    Visitor& visitor_;
    Id category_ = 0;  // the stanza that is visited
    size_t keysSeen_ = 0;
    size_t categoriesSeen_ = 0;
};

}  // namespace zcache
