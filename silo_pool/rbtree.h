// An intrusive red-black tree: the caller embeds an rb_node in its record and gives the order; nothing is allocated and
// nothing locked here. The record index keeps its open search handles in one.
#pragma once

#include <cstdint>

struct rb_node {
    uintptr_t parent_color; // the parent's address; bit 0: 0 red, 1 black
    rb_node *right, *left;
};
static_assert(sizeof(rb_node) == 3 * sizeof(void *) && alignof(rb_node) >= 4);

struct rb_root;
// Negative when the key orders before the node, 0 when they are equal, positive after.
using rb_cmp_function_t = int (*)(const rb_node *key, const rb_node *node, const rb_root *root);
// The same for a key that is no node.
using rb_key_cmp_function_t = int (*)(const void *key, const rb_node *node);

struct rb_root {
    rb_node *root_node; // nullptr when empty
    rb_cmp_function_t cmp_func;
};

// Any node that equals the key, nullptr when there is none.
rb_node *rb_find(const rb_node *node, const rb_root *root);
rb_node *rb_search(const rb_root *root, const void *key, rb_key_cmp_function_t cmp);
// As the two above; *pl becomes the greatest node before the key or the first one that equals it, *pr the least node after
// the key or the last one that equals it. Either may be null.
rb_node *rb_findx(const rb_node *node, const rb_root *root, rb_node **pl, rb_node **pr);
rb_node *rb_searchx(const rb_root *root, const void *key, rb_key_cmp_function_t cmp, rb_node **pl, rb_node **pr);
// The first node that equals the key, and the node after the last one that does; nullptr when none equals it.
rb_node *rb_lower(const rb_node *node, const rb_root *root);
rb_node *rb_upper(const rb_node *node, const rb_root *root);

// Where a key is or belongs: `node` is compared by the root's order, or `key` by `cmp` where node is nullptr. The equal
// node with *ret_node_lr nullptr, or the last node on the way (nullptr in an empty tree) with *ret_node_lr the place for a
// child that rb_link_node takes.
rb_node *rb_locate(rb_root *root, const rb_node *node, const void *key, rb_key_cmp_function_t cmp,
                   rb_node ***ret_node_lr);
void rb_link_node(rb_node *node, rb_node *parent, rb_node **link, rb_root *root);

// Inserts unless an equal node is there: that one, or `node`. rb_insert says whether it was inserted.
rb_node *rb_finsert(rb_node *node, rb_root *root);
bool rb_insert(rb_node *node, rb_root *root);
// Inserts, behind the nodes that equal it: whether there were none.
bool rb_minsert(rb_node *node, rb_root *root);
void rb_erase(rb_node *node, rb_root *root);

// In order; nullptr at the end, and in an empty tree.
rb_node *rb_first(const rb_root *root);
rb_node *rb_last(const rb_root *root);
rb_node *rb_next(const rb_node *node);
rb_node *rb_prev(const rb_node *node);
