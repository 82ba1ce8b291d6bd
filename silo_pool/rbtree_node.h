// A node's parent and colour, which share a field.
#pragma once

#include "silo_pool/rbtree.h"

constexpr uintptr_t RB_RED = 0, RB_BLACK = 1;

inline rb_node *rb_parent(const rb_node *node)
{
    return reinterpret_cast<rb_node *>(node->parent_color & ~RB_BLACK);
}

// No node at all is black.
inline bool rb_is_black(const rb_node *node)
{
    return node == nullptr || (node->parent_color & RB_BLACK) != 0;
}

inline void rb_set_parent(rb_node *node, rb_node *parent)
{
    node->parent_color = reinterpret_cast<uintptr_t>(parent) | (node->parent_color & RB_BLACK);
}

inline void rb_set_color(rb_node *node, uintptr_t color)
{
    node->parent_color = (node->parent_color & ~RB_BLACK) | color;
}
