// Linking and unlinking. Every path from the root down meets as many black nodes as any other, and no red node has a red
// child; whoever breaks that repairs it on the way up. `side` says which of the two mirrored cases it is.
#include "silo_pool/rbtree.h"

#include "silo_pool/rbtree_node.h"

#include <utility>

using rb_side = rb_node *rb_node::*;

static rb_side other_side(rb_side side)
{
    return side == &rb_node::left ? &rb_node::right : &rb_node::left;
}

// Puts `with` (maybe nothing) where `node` hangs.
static void replace_below_parent(rb_node *node, rb_node *with, rb_root *root)
{
    rb_node *parent = rb_parent(node);
    if (parent == nullptr)
        root->root_node = with;
    else
        (parent->left == node ? parent->left : parent->right) = with;
    if (with != nullptr)
        rb_set_parent(with, parent);
}

// The child on the other side takes the node's place, and the node goes down to `side`.
static void rotate(rb_node *node, rb_side side, rb_root *root)
{
    rb_side other = other_side(side);
    rb_node *child = node->*other;
    node->*other = child->*side;
    if (node->*other != nullptr)
        rb_set_parent(node->*other, node);
    replace_below_parent(node, child, root);
    child->*side = node;
    rb_set_parent(node, child);
}

// A red node has a red parent. The node that may have one next, nullptr when all is well.
static rb_node *repair_red(rb_node *node, rb_node *parent, rb_root *root)
{
    rb_node *above = rb_parent(parent); // there is one: the root is black
    rb_side side = parent == above->left ? &rb_node::left : &rb_node::right;
    rb_node *uncle = above->*other_side(side);
    if (!rb_is_black(uncle)) {
        rb_set_color(uncle, RB_BLACK);
        rb_set_color(parent, RB_BLACK);
        rb_set_color(above, RB_RED);
        return above;
    }
    if (node == parent->*other_side(side)) {
        rotate(parent, side, root);
        std::swap(node, parent);
    }
    rb_set_color(parent, RB_BLACK);
    rb_set_color(above, RB_RED);
    rotate(above, other_side(side), root);
    return nullptr;
}

void rb_link_node(rb_node *node, rb_node *parent, rb_node **link, rb_root *root)
{
    *node = {reinterpret_cast<uintptr_t>(parent) | RB_RED, nullptr, nullptr};
    *link = node;
    while (node != nullptr && (parent = rb_parent(node)) != nullptr && !rb_is_black(parent))
        node = repair_red(node, parent, root);
    rb_set_color(root->root_node, RB_BLACK);
}

// One black node is missing on the paths through the child of `parent` on `side`. The node through which one is still
// missing, nullptr when all is well.
static rb_node *repair_missing(rb_node *parent, rb_side side, rb_root *root)
{
    rb_side other = other_side(side);
    rb_node *sibling = parent->*other; // there is one, or its paths would be short too
    if (!rb_is_black(sibling)) {
        rb_set_color(sibling, RB_BLACK);
        rb_set_color(parent, RB_RED);
        rotate(parent, side, root);
        sibling = parent->*other;
    }
    if (rb_is_black(sibling->left) && rb_is_black(sibling->right)) {
        rb_set_color(sibling, RB_RED);
        return parent;
    }
    if (rb_is_black(sibling->*other)) {
        rb_set_color(sibling->*side, RB_BLACK);
        rb_set_color(sibling, RB_RED);
        rotate(sibling, other, root);
        sibling = parent->*other;
    }
    rb_set_color(sibling, rb_is_black(parent) ? RB_BLACK : RB_RED);
    rb_set_color(parent, RB_BLACK);
    rb_set_color(sibling->*other, RB_BLACK);
    rotate(parent, side, root);
    return nullptr;
}

// `node` (maybe nothing, below `parent`) stands where a black node was taken out.
static void repair_after_erase(rb_node *node, rb_node *parent, rb_root *root)
{
    while (parent != nullptr && rb_is_black(node)) {
        node = repair_missing(parent, node == parent->left ? &rb_node::left : &rb_node::right, root);
        if (node == nullptr)
            return;
        parent = rb_parent(node);
    }
    if (node != nullptr)
        rb_set_color(node, RB_BLACK);
}

// Takes out a node with at most one child.
static void unlink_simple(rb_node *node, rb_root *root)
{
    rb_node *child = node->left != nullptr ? node->left : node->right, *parent = rb_parent(node);
    bool was_black = rb_is_black(node);
    replace_below_parent(node, child, root);
    if (was_black)
        repair_after_erase(child, parent, root);
}

// `with`, which is in no tree, takes over the node's place, colour and children.
static void take_place(rb_node *node, rb_node *with, rb_root *root)
{
    *with = *node;
    replace_below_parent(node, with, root);
    for (rb_node *child : {with->left, with->right})
        if (child != nullptr)
            rb_set_parent(child, with);
}

void rb_erase(rb_node *node, rb_root *root)
{
    if (node->left == nullptr || node->right == nullptr) {
        unlink_simple(node, root);
        return;
    }
    rb_node *next = rb_next(node); // has no left child
    unlink_simple(next, root);
    take_place(node, next, root);
}
