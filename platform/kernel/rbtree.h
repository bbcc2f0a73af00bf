#ifndef SORVANIC_PLATFORM_KERNEL_RBTREE_H
#define SORVANIC_PLATFORM_KERNEL_RBTREE_H

namespace kernel {

/// A node of a red-black tree, laid out as the kernel's own so that its functions can be used
/// as they stand: parent pointer and colour share a word (bit 0: 1 black, 0 red).
struct rb_node {
    unsigned long rb_parent_color;
    struct rb_node* rb_right;
    struct rb_node* rb_left;
};

static_assert(sizeof(rb_node) == 24);

/// The root of a tree; null when the tree is empty. The owner orders the nodes and locks.
struct rb_root {
    struct rb_node* rb_node;
};

/// Makes `node` a red leaf at `*link`, below `parent` (null for the first node of a tree). The
/// caller has walked to that leaf and balances the tree with rb_insert_color.
inline void rb_link_node(struct rb_node* node, struct rb_node* parent, struct rb_node** link)
{
    node->rb_parent_color = reinterpret_cast<unsigned long>(parent);
    node->rb_left = nullptr;
    node->rb_right = nullptr;
    *link = node;
}

/// Restores the balance of `root` after rb_link_node of `node`.
void rb_insert_color(struct rb_node* node, rb_root* root) asm("k_rb_insert_color");

/// Takes `node` out of `root` and rebalances. The node's memory stays the caller's.
void rb_erase(struct rb_node* node, rb_root* root) asm("k_rb_erase");

/// The first node in order, or null for an empty tree.
struct rb_node* rb_first(const rb_root* root) asm("k_rb_first");

} // namespace kernel

#endif
