// Finding and walking; rbtree_balance.cpp links and unlinks.
#include "silo_pool/rbtree.h"

#include "silo_pool/rbtree_node.h"

namespace {
// What is looked for: a node in the root's order, or a key in an order of its own.
struct sought {
    const rb_root *root;
    const rb_node *node;
    const void *key;
    rb_key_cmp_function_t cmp;

    int compare(const rb_node *other) const
    {
        return node != nullptr ? root->cmp_func(node, other, root) : cmp(key, other);
    }
};
} // namespace

static rb_node *find(const sought &what)
{
    for (rb_node *at = what.root->root_node; at != nullptr;) {
        int order = what.compare(at);
        if (order == 0)
            return at;
        at = order < 0 ? at->left : at->right;
    }
    return nullptr;
}

// The first node that equals the key in the tree below `equal`, which does.
static rb_node *first_equal(const sought &what, rb_node *equal)
{
    rb_node *first = equal;
    for (rb_node *at = equal->left; at != nullptr;) {
        bool is_equal = what.compare(at) == 0;
        first = is_equal ? at : first;
        at = is_equal ? at->left : at->right;
    }
    return first;
}

static rb_node *last_equal(const sought &what, rb_node *equal)
{
    rb_node *last = equal;
    for (rb_node *at = equal->right; at != nullptr;) {
        bool is_equal = what.compare(at) == 0;
        last = is_equal ? at : last;
        at = is_equal ? at->right : at->left;
    }
    return last;
}

static void set(rb_node **to, rb_node *node)
{
    if (to != nullptr)
        *to = node;
}

static rb_node *find_with_neighbours(const sought &what, rb_node **pl, rb_node **pr)
{
    rb_node *before = nullptr, *after = nullptr;
    for (rb_node *at = what.root->root_node; at != nullptr;) {
        int order = what.compare(at);
        if (order == 0) {
            set(pl, first_equal(what, at));
            set(pr, last_equal(what, at));
            return at;
        }
        (order < 0 ? after : before) = at;
        at = order < 0 ? at->left : at->right;
    }
    set(pl, before);
    set(pr, after);
    return nullptr;
}

rb_node *rb_find(const rb_node *node, const rb_root *root)
{
    return find({root, node, nullptr, nullptr});
}

rb_node *rb_search(const rb_root *root, const void *key, rb_key_cmp_function_t cmp)
{
    return find({root, nullptr, key, cmp});
}

rb_node *rb_findx(const rb_node *node, const rb_root *root, rb_node **pl, rb_node **pr)
{
    return find_with_neighbours({root, node, nullptr, nullptr}, pl, pr);
}

rb_node *rb_searchx(const rb_root *root, const void *key, rb_key_cmp_function_t cmp, rb_node **pl, rb_node **pr)
{
    return find_with_neighbours({root, nullptr, key, cmp}, pl, pr);
}

rb_node *rb_lower(const rb_node *node, const rb_root *root)
{
    rb_node *equal = rb_find(node, root);
    return equal == nullptr ? nullptr : first_equal({root, node, nullptr, nullptr}, equal);
}

rb_node *rb_upper(const rb_node *node, const rb_root *root)
{
    rb_node *equal = rb_find(node, root);
    return equal == nullptr ? nullptr : rb_next(last_equal({root, node, nullptr, nullptr}, equal));
}

rb_node *rb_locate(rb_root *root, const rb_node *node, const void *key, rb_key_cmp_function_t cmp, rb_node ***ret_node_lr)
{
    sought what = {root, node, key, cmp};
    rb_node *last = nullptr, **link = &root->root_node;
    while (*link != nullptr) {
        last = *link;
        int order = what.compare(last);
        if (order == 0) {
            *ret_node_lr = nullptr;
            return last;
        }
        link = order < 0 ? &last->left : &last->right;
    }
    *ret_node_lr = link;
    return last;
}

rb_node *rb_finsert(rb_node *node, rb_root *root)
{
    rb_node **link = nullptr;
    rb_node *found = rb_locate(root, node, nullptr, nullptr, &link);
    if (link == nullptr)
        return found;
    rb_link_node(node, found, link, root);
    return node;
}

bool rb_insert(rb_node *node, rb_root *root)
{
    return rb_finsert(node, root) == node;
}

bool rb_minsert(rb_node *node, rb_root *root)
{
    bool is_alone = true;
    rb_node *parent = nullptr, **link = &root->root_node;
    while (*link != nullptr) {
        parent = *link;
        int order = root->cmp_func(node, parent, root);
        is_alone = is_alone && order != 0;
        link = order < 0 ? &parent->left : &parent->right; // to the right of its equals
    }
    rb_link_node(node, parent, link, root);
    return is_alone;
}

static rb_node *leftmost(rb_node *node)
{
    while (node != nullptr && node->left != nullptr)
        node = node->left;
    return node;
}

static rb_node *rightmost(rb_node *node)
{
    while (node != nullptr && node->right != nullptr)
        node = node->right;
    return node;
}

rb_node *rb_first(const rb_root *root)
{
    return leftmost(root->root_node);
}

rb_node *rb_last(const rb_root *root)
{
    return rightmost(root->root_node);
}

rb_node *rb_next(const rb_node *node)
{
    if (node->right != nullptr)
        return leftmost(node->right);
    rb_node *parent = rb_parent(node);
    for (; parent != nullptr && node == parent->right; parent = rb_parent(node))
        node = parent;
    return parent;
}

rb_node *rb_prev(const rb_node *node)
{
    if (node->left != nullptr)
        return rightmost(node->left);
    rb_node *parent = rb_parent(node);
    for (; parent != nullptr && node == parent->left; parent = rb_parent(node))
        node = parent;
    return parent;
}
