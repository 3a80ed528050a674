#include "line_treap.h"

#include <utility>

namespace zcache {

void Trees::reserve(Records<Line> const& lines)
{
    if (capacity_ >= lines.capacity())
        return;
    nodes_ =
        static_cast<Node*>(reallocate(static_cast<void*>(nodes_), lines.capacity() * sizeof(Node)));
    capacity_ = lines.capacity();
}

void Trees::swap(Trees& other)
{
    std::swap(nodes_, other.nodes_);
    std::swap(capacity_, other.capacity_);
}

void Trees::update(Records<Line> const& lines, Id id)
{
    Node node = nodes_[id];
    node.size = 1;
    node.hasKeyLine = lines[id].kind == keyLine;
    node.hasBlank = lines[id].hasBlank();
    for (Id const child : {node.left, node.right}) {
        if (child != 0) {
            Node const& below = nodes_[child];
            node.size += below.size;
            node.hasKeyLine |= below.hasKeyLine;
            node.hasBlank |= below.hasBlank;
        }
    }
    nodes_[id] = node;
}

// Every line in turn becomes the last one: it takes the place of those on the right edge whose
// priority is lower, and they become its left subtree.
Id Trees::build(Records<Line> const& lines, Id first, Id end)
{
    Id last = 0;
    for (Id id = first; id != end; id = lines[id].next) {
        Id below = 0;
        while (last != 0 && priority(last) < priority(id)) {
            update(lines, last);
            below = last;
            last = nodes_[last].parent;
        }
        nodes_[id] = {};
        nodes_[id].left = below;
        nodes_[id].parent = last;
        if (below != 0)
            nodes_[below].parent = id;
        if (last != 0)
            nodes_[last].right = id;
        last = id;
    }
    Id root = 0;
    for (; last != 0; last = nodes_[last].parent) {
        update(lines, last);
        root = last;
    }
    return root;
}

void Trees::rotateUp(Records<Line> const& lines, Id id)
{
    Id const parent = nodes_[id].parent;
    Id const above = nodes_[parent].parent;
    Id moved;
    if (nodes_[parent].left == id) {
        moved = nodes_[id].right;
        nodes_[parent].left = moved;
        nodes_[id].right = parent;
    } else {
        moved = nodes_[id].left;
        nodes_[parent].right = moved;
        nodes_[id].left = parent;
    }
    if (moved != 0)
        nodes_[moved].parent = parent;
    nodes_[parent].parent = id;
    nodes_[id].parent = above;
    if (above != 0)
        (nodes_[above].left == parent ? nodes_[above].left : nodes_[above].right) = id;
    update(lines, parent);
    update(lines, id);
}

// Brings what is above `id` up to date. Returns the root.
Id Trees::settle(Records<Line> const& lines, Id id)
{
    update(lines, id);
    while (nodes_[id].parent != 0) {
        id = nodes_[id].parent;
        update(lines, id);
    }
    return id;
}

Id Trees::insert(Records<Line> const& lines, Id root, Id id, Id before)
{
    nodes_[id] = {};
    Id parent = before;
    if (before != 0 && nodes_[before].right == 0) {
        nodes_[before].right = id;
    } else {
        parent = before == 0 ? root : nodes_[before].right;
        while (nodes_[parent].left != 0)
            parent = nodes_[parent].left;
        nodes_[parent].left = id;
    }
    nodes_[id].parent = parent;
    update(lines, id);
    while (nodes_[id].parent != 0 && priority(nodes_[id].parent) < priority(id))
        rotateUp(lines, id);
    return settle(lines, id);
}

Id Trees::remove(Records<Line> const& lines, Id id)
{
    for (;;) {
        Id const left = nodes_[id].left;
        Id const right = nodes_[id].right;
        if (left == 0 && right == 0)
            break;
        rotateUp(lines,
                 right == 0 || (left != 0 && priority(left) > priority(right)) ? left : right);
    }
    Id const parent = nodes_[id].parent;
    if (parent == 0)
        return 0;
    (nodes_[parent].left == id ? nodes_[parent].left : nodes_[parent].right) = 0;
    return settle(lines, parent);
}

Id Trees::lastKeyLine(Records<Line> const& lines, Id root) const
{
    if (root == 0 || !nodes_[root].hasKeyLine)
        return 0;
    for (Id id = root;;) {
        Id const right = nodes_[id].right;
        if (right != 0 && nodes_[right].hasKeyLine)
            id = right;
        else if (lines[id].kind == keyLine)
            return id;
        else
            id = nodes_[id].left;
    }
}

// Returns the first blank line of the subtree, which has one.
Id Trees::firstBlank(Records<Line> const& lines, Id id) const
{
    for (;;) {
        Id const left = nodes_[id].left;
        if (left != 0 && nodes_[left].hasBlank)
            id = left;
        else if (lines[id].hasBlank())
            return id;
        else
            id = nodes_[id].right;
    }
}

Id Trees::blankBehind(Records<Line> const& lines, Id id) const
{
    for (;;) {
        Id const right = nodes_[id].right;
        if (right != 0 && nodes_[right].hasBlank)
            return firstBlank(lines, right);
        // Up to the first node that has this one on its left: the next one in order.
        Id parent = nodes_[id].parent;
        while (parent != 0 && nodes_[parent].right == id) {
            id = parent;
            parent = nodes_[id].parent;
        }
        if (parent == 0 || lines[parent].hasBlank())
            return parent;
        id = parent;
    }
}

uint32_t Trees::rank(Id id) const
{
    uint32_t before = nodes_[id].left == 0 ? 0 : nodes_[nodes_[id].left].size;
    for (Id parent = nodes_[id].parent; parent != 0; id = parent, parent = nodes_[id].parent) {
        if (nodes_[parent].right == id) {
            Id const left = nodes_[parent].left;
            before += 1 + (left == 0 ? 0 : nodes_[left].size);
        }
    }
    return before;
}

}  // namespace zcache
