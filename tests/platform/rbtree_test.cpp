#include "platform/kernel/rbtree.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>

namespace {

struct numbered {
    kernel::rb_node node;
    long number;
};

const numbered* as_numbered(const kernel::rb_node* node)
{
    return reinterpret_cast<const numbered*>(node);
}

void insert(kernel::rb_root& root, numbered& added)
{
    kernel::rb_node** link = &root.rb_node;
    kernel::rb_node* parent = nullptr;
    while (*link != nullptr) {
        parent = *link;
        link = added.number < as_numbered(parent)->number ? &parent->rb_left : &parent->rb_right;
    }
    kernel::rb_link_node(&added.node, parent, link);
    kernel::rb_insert_color(&added.node, &root);
}

bool red(const kernel::rb_node* node)
{
    return node != nullptr && (node->rb_parent_color & 1) == 0;
}

/// The number of black nodes on every path down from `node`, or -1 when a rule is broken.
int black_height(const kernel::rb_node* node, const kernel::rb_node* parent)
{
    if (node == nullptr)
        return 0;
    if (reinterpret_cast<const kernel::rb_node*>(node->rb_parent_color & ~3UL) != parent)
        return -1;
    if (red(node) && (parent == nullptr || red(node->rb_left) || red(node->rb_right)))
        return -1;
    const int left = black_height(node->rb_left, node);
    const int right = black_height(node->rb_right, node);
    if (left < 0 || left != right)
        return -1;
    return left + (red(node) ? 0 : 1);
}

TEST(red_black_tree, stays_balanced_under_random_changes)
{
    std::mt19937 random(20240229);
    // Few numbers keep the tree small and its shapes changing; many make it deep.
    for (const long numbers : {4L, 40L, 2000L}) {
        kernel::rb_root root = {};
        std::map<long, std::unique_ptr<numbered>> expected;
        for (int step = 0; step < 6000; ++step) {
            const long number = static_cast<long>(random() % static_cast<unsigned long>(numbers));
            if (const auto found = expected.find(number); found != expected.end()) {
                kernel::rb_erase(&found->second->node, &root);
                expected.erase(found);
            } else {
                auto& added = expected[number] = std::make_unique<numbered>();
                added->number = number;
                insert(root, *added);
            }
            ASSERT_GE(black_height(root.rb_node, nullptr), 0) << "after step " << step;
            const kernel::rb_node* first = expected.empty() ? nullptr : &expected.begin()->second->node;
            EXPECT_EQ(kernel::rb_first(&root), first);
        }
    }
}

} // namespace
