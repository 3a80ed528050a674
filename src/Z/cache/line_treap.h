// line_treap: the lines of a section in file order.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include "records.h"
#include "slot_pool.h"

namespace zcache {

// The lines of a section as a search tree in file order, so that places are found without a walk. A
// treap: a node is a line, its priority comes from its number, and every node knows what is below.
// Only sections with comments that get a new key have one.
class Trees {
public:
    Trees() = default;
    Trees(Trees const&) = delete;
    Trees& operator=(Trees const&) = delete;
    ~Trees() { free(nodes_); }

    // Makes sure that a tree may hold every line that `lines` has room for.
    void reserve(Records<Line> const& lines);
    bool isUsed() const { return nodes_ != nullptr; }

    // Makes a tree of the lines from `first` up to, not including, `end`. Returns its root.
    Id build(Records<Line> const& lines, Id first, Id end);

    // Puts `line` into the tree behind `before`, at the front when that is 0. Returns the root.
    Id insert(Records<Line> const& lines, Id root, Id line, Id before);

    // Takes `line` out of its tree. Returns the root; 0 when the tree is empty.
    Id remove(Records<Line> const& lines, Id line);

    // Returns the last key line of the tree, or 0.
    Id lastKeyLine(Records<Line> const& lines, Id root) const;

    // Returns the first blank line behind `line`, or 0.
    Id blankBehind(Records<Line> const& lines, Id line) const;

    // Returns whether `line` stands before `other` of the same tree.
    bool isBefore(Id line, Id other) const { return rank(line) < rank(other); }

    size_t bytes() const { return capacity_ * sizeof(Node); }
    void swap(Trees& other);

private:
    struct Node {
        Id left;
        Id right;
        Id parent;
        uint32_t size : 30;  // of the subtree
        uint32_t hasKeyLine : 1;
        uint32_t hasBlank : 1;
    };

    static uint32_t priority(Id line) { return line * 0x9E3779B1u ^ (line * 0x85EBCA77u >> 15); }
    void update(Records<Line> const& lines, Id node);
    void rotateUp(Records<Line> const& lines, Id node);
    Id settle(Records<Line> const& lines, Id node);
    Id firstBlank(Records<Line> const& lines, Id node) const;
    uint32_t rank(Id line) const;

    Node* nodes_ = nullptr;  // the node of a line has the line's place
    size_t capacity_ = 0;
};

}  // namespace zcache
