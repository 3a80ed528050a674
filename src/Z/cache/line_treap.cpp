#include "line_treap.h"

#include <utility>

namespace zcache {

void LineTreap::reserve(SlotPool<Line> const& lines)
{
    size_t const wanted = lines.capacity() + 1;  // nodes are indexed by line ids, which start at 1
    if (capacity_ >= wanted)
        return;
    reallocate(nodes_, wanted);
    capacity_ = wanted;
}

void LineTreap::swap(LineTreap& other)
{
    std::swap(nodes_, other.nodes_);
    std::swap(capacity_, other.capacity_);
}

void LineTreap::update(SlotPool<Line> const& lines, Id id)
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

// Appends the lines in order. Each one pops the nodes with lower priority off the right spine, and
// they become its left subtree.
Id LineTreap::build(SlotPool<Line> const& lines, Id first, Id end)
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

void LineTreap::rotateUp(SlotPool<Line> const& lines, Id id)
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

// Updates the aggregates of `id` and its ancestors. Returns the root.
Id LineTreap::updateAncestors(SlotPool<Line> const& lines, Id id)
{
    update(lines, id);
    while (nodes_[id].parent != 0) {
        id = nodes_[id].parent;
        update(lines, id);
    }
    return id;
}

Id LineTreap::insert(SlotPool<Line> const& lines, Id root, Id id, Id before)
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
    return updateAncestors(lines, id);
}

Id LineTreap::remove(SlotPool<Line> const& lines, Id id)
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
    return updateAncestors(lines, parent);
}

Id LineTreap::lastKeyLine(SlotPool<Line> const& lines, Id root) const
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

// Returns the first blank line of a subtree that has one.
Id LineTreap::firstBlank(SlotPool<Line> const& lines, Id id) const
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

Id LineTreap::nextBlankLine(SlotPool<Line> const& lines, Id id) const
{
    for (;;) {
        Id const right = nodes_[id].right;
        if (right != 0 && nodes_[right].hasBlank)
            return firstBlank(lines, right);
        // Ascend to the first ancestor whose left subtree contains this node: its successor.
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

uint32_t LineTreap::rank(Id id) const
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
