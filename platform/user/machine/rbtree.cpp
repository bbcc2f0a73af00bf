#include "platform/kernel/rbtree.h"

// The algorithms of Cormen, Leiserson, Rivest and Stein, "Introduction to Algorithms", chapter
// 13, over nodes without a sentinel: a null child is black.

namespace kernel {

namespace {

using node = struct rb_node;

constexpr unsigned long black_bit = 1;

node* parent_of(const node* of)
{
    return reinterpret_cast<node*>(of->rb_parent_color & ~3UL);
}

void set_parent(node* of, node* parent)
{
    of->rb_parent_color = (of->rb_parent_color & 3UL) | reinterpret_cast<unsigned long>(parent);
}

bool is_red(const node* of)
{
    return of != nullptr && (of->rb_parent_color & black_bit) == 0;
}

void set_red(node* of)
{
    of->rb_parent_color &= ~black_bit;
}

void set_black(node* of)
{
    of->rb_parent_color |= black_bit;
}

void copy_colour(node* to, const node* from)
{
    to->rb_parent_color = (to->rb_parent_color & ~black_bit) | (from->rb_parent_color & black_bit);
}

/// Puts `to` (may be null) into the place that `from` has below its parent.
void replace_child(node* from, node* to, rb_root* root)
{
    node* parent = parent_of(from);
    if (parent == nullptr)
        root->rb_node = to;
    else if (parent->rb_left == from)
        parent->rb_left = to;
    else
        parent->rb_right = to;
    if (to != nullptr)
        set_parent(to, parent);
}

/// A side of a node, so that the mirrored cases are written once.
enum class side { left, right };

node*& child(node* of, side which)
{
    return which == side::left ? of->rb_left : of->rb_right;
}

side other(side which)
{
    return which == side::left ? side::right : side::left;
}

side side_of(const node* of, const node* parent)
{
    return parent->rb_left == of ? side::left : side::right;
}

/// Turns `top` down towards `to`; its child on the other side takes its place.
void rotate(node* top, side to, rb_root* root)
{
    node* risen = child(top, other(to));
    node* moved = child(risen, to);
    replace_child(top, risen, root);
    child(risen, to) = top;
    set_parent(top, risen);
    child(top, other(to)) = moved;
    if (moved != nullptr)
        set_parent(moved, top);
}

/// `lacking` (may be null), below `parent`, has one black node too few on every path.
void restore_black(node* lacking, node* parent, rb_root* root)
{
    while (lacking != root->rb_node && !is_red(lacking)) {
        const side near = side_of(lacking, parent);
        const side far = other(near);
        node* sibling = child(parent, far);
        if (is_red(sibling)) {
            set_black(sibling);
            set_red(parent);
            rotate(parent, near, root);
            sibling = child(parent, far);
        }
        if (!is_red(sibling->rb_left) && !is_red(sibling->rb_right)) {
            set_red(sibling);
            lacking = parent;
            parent = parent_of(lacking);
            continue;
        }
        if (!is_red(child(sibling, far))) {
            set_black(child(sibling, near));
            set_red(sibling);
            rotate(sibling, far, root);
            sibling = child(parent, far);
        }
        copy_colour(sibling, parent);
        set_black(parent);
        set_black(child(sibling, far));
        rotate(parent, near, root);
        lacking = root->rb_node;
    }
    if (lacking != nullptr)
        set_black(lacking);
}

} // namespace

void rb_insert_color(node* inserted, rb_root* root)
{
    node* parent = nullptr;
    while (is_red(parent = parent_of(inserted))) {
        node* grandparent = parent_of(parent); // a red node is never the root
        const side near = side_of(parent, grandparent);
        node* uncle = child(grandparent, other(near));
        if (is_red(uncle)) {
            set_black(parent);
            set_black(uncle);
            set_red(grandparent);
            inserted = grandparent;
            continue;
        }
        if (side_of(inserted, parent) != near) {
            rotate(parent, near, root);
            parent = inserted;
        }
        set_black(parent);
        set_red(grandparent);
        rotate(grandparent, other(near), root);
        break;
    }
    set_black(root->rb_node);
}

void rb_erase(node* erased, rb_root* root)
{
    node* hole = nullptr;   // what moves into the place that a node has left
    node* parent = nullptr; // and what that place is below
    bool lost_black = false;

    if (erased->rb_left == nullptr || erased->rb_right == nullptr) {
        hole = erased->rb_left != nullptr ? erased->rb_left : erased->rb_right;
        parent = parent_of(erased);
        lost_black = !is_red(erased);
        replace_child(erased, hole, root);
    } else {
        node* next = erased->rb_right;
        while (next->rb_left != nullptr)
            next = next->rb_left;
        lost_black = !is_red(next);
        hole = next->rb_right;
        if (parent_of(next) == erased) {
            parent = next;
        } else {
            parent = parent_of(next);
            replace_child(next, hole, root);
            next->rb_right = erased->rb_right;
            set_parent(next->rb_right, next);
        }
        replace_child(erased, next, root);
        next->rb_left = erased->rb_left;
        set_parent(next->rb_left, next);
        copy_colour(next, erased);
    }
    if (lost_black && root->rb_node != nullptr)
        restore_black(hole, parent, root);
}

node* rb_first(const rb_root* root)
{
    node* first = root->rb_node;
    while (first != nullptr && first->rb_left != nullptr)
        first = first->rb_left;
    return first;
}

} // namespace kernel
