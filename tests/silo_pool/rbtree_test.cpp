#include "silo_pool/rbtree.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <map>
#include <vector>

struct item {
    rb_node node;
    int key, serial;
};
static_assert(offsetof(rb_node, parent_color) == 0 && offsetof(rb_node, right) == sizeof(void *) &&
              offsetof(rb_node, left) == 2 * sizeof(void *));
static_assert(offsetof(rb_root, root_node) == 0);

static const item *item_of(const rb_node *node)
{
    return reinterpret_cast<const item *>(node);
}

static int compare_items(const rb_node *key, const rb_node *node, const rb_root *)
{
    int one = item_of(key)->key, other = item_of(node)->key;
    return one < other ? -7 : one > other ? 7 : 0;
}

static int compare_number(const void *key, const rb_node *node)
{
    int one = *static_cast<const int *>(key), other = item_of(node)->key;
    return (one > other) - (one < other);
}

// A tree whose nodes live as long as it.
class tree {
public:
    item *make(int key)
    {
        items_.push_back({{}, key, static_cast<int>(items_.size())});
        return &items_.back();
    }
    bool insert(int key) { return rb_insert(&make(key)->node, &root_); }
    bool minsert(int key) { return rb_minsert(&make(key)->node, &root_); }
    void fill(std::initializer_list<int> keys)
    {
        for (int key : keys)
            minsert(key);
    }
    rb_root *root() { return &root_; }

    // Keys and serial numbers in order.
    std::vector<std::pair<int, int>> forwards() const
    {
        std::vector<std::pair<int, int>> found;
        for (const rb_node *at = rb_first(&root_); at != nullptr; at = rb_next(at))
            found.emplace_back(item_of(at)->key, item_of(at)->serial);
        return found;
    }
    std::vector<std::pair<int, int>> backwards() const
    {
        std::vector<std::pair<int, int>> found;
        for (const rb_node *at = rb_last(&root_); at != nullptr; at = rb_prev(at))
            found.emplace_back(item_of(at)->key, item_of(at)->serial);
        return found;
    }

private:
    std::deque<item> items_;
    rb_root root_ = {nullptr, compare_items};
};

static int key_of(const rb_node *node)
{
    return node == nullptr ? -1 : item_of(node)->key;
}

static int serial_of(const rb_node *node)
{
    return node == nullptr ? -1 : item_of(node)->serial;
}

static bool is_black(const rb_node *node)
{
    return node == nullptr || (node->parent_color & 1) == 1;
}

// The black nodes on each way down; -1 where the tree is none: a parent that is wrong, two red ones in a row, ways that
// differ.
static int black_height(const rb_node *node, const rb_node *parent)
{
    if (node == nullptr)
        return 0;
    if (reinterpret_cast<const rb_node *>(node->parent_color & ~uintptr_t{1}) != parent)
        return -1;
    if (!is_black(node) && (!is_black(node->left) || !is_black(node->right)))
        return -1;
    int left = black_height(node->left, node), right = black_height(node->right, node);
    return left < 0 || left != right ? -1 : left + (is_black(node) ? 1 : 0);
}

static bool is_red_black(const rb_root *root)
{
    return is_black(root->root_node) && black_height(root->root_node, nullptr) >= 0;
}

TEST(RbTree, EmptyTreeHasNothing)
{
    tree t;
    item *key = t.make(1);
    rb_node *left = &key->node, *right = &key->node;
    EXPECT_EQ(rb_first(t.root()), nullptr);
    EXPECT_EQ(rb_last(t.root()), nullptr);
    EXPECT_EQ(rb_find(&key->node, t.root()), nullptr);
    EXPECT_EQ(rb_lower(&key->node, t.root()), nullptr);
    EXPECT_EQ(rb_upper(&key->node, t.root()), nullptr);
    EXPECT_EQ(rb_findx(&key->node, t.root(), &left, &right), nullptr);
    EXPECT_EQ(left, nullptr);
    EXPECT_EQ(right, nullptr);
    int number = 1;
    left = right = &key->node;
    EXPECT_EQ(rb_search(t.root(), &number, compare_number), nullptr);
    EXPECT_EQ(rb_searchx(t.root(), &number, compare_number, &left, &right), nullptr);
    EXPECT_EQ(left, nullptr);
    EXPECT_EQ(right, nullptr);
}

TEST(RbTree, DuplicateIsNotInserted)
{
    tree t;
    EXPECT_TRUE(t.insert(5));
    EXPECT_TRUE(t.insert(3));
    auto before = t.forwards();
    EXPECT_FALSE(t.insert(5));
    EXPECT_EQ(t.forwards(), before);
    EXPECT_TRUE(is_red_black(t.root()));
}

TEST(RbTree, FinsertGivesTheNodeThatIsThere)
{
    tree t;
    item *first = t.make(5), *second = t.make(5), *other = t.make(6);
    EXPECT_EQ(rb_finsert(&first->node, t.root()), &first->node);
    EXPECT_EQ(rb_finsert(&second->node, t.root()), &first->node);
    EXPECT_EQ(rb_finsert(&other->node, t.root()), &other->node);
    EXPECT_FALSE(rb_insert(&second->node, t.root()));
}

TEST(RbTree, EqualKeysStayInTheOrderOfInsertion)
{
    tree t;
    EXPECT_TRUE(t.minsert(5));
    EXPECT_FALSE(t.minsert(5));
    EXPECT_FALSE(t.minsert(5));
    EXPECT_TRUE(t.minsert(4));
    EXPECT_TRUE(t.minsert(6));
    EXPECT_FALSE(t.minsert(5));
    using pairs = std::vector<std::pair<int, int>>;
    EXPECT_EQ(t.forwards(), (pairs{{4, 3}, {5, 0}, {5, 1}, {5, 2}, {5, 5}, {6, 4}}));
    EXPECT_EQ(t.backwards(), (pairs{{6, 4}, {5, 5}, {5, 2}, {5, 1}, {5, 0}, {4, 3}}));
}

TEST(RbTree, LowerAndUpperOfAnAbsentKeyAreNull)
{
    tree t;
    t.fill({10, 20, 30});
    for (int key : {5, 15, 25, 35}) {
        item *one = t.make(key);
        EXPECT_EQ(rb_lower(&one->node, t.root()), nullptr) << key;
        EXPECT_EQ(rb_upper(&one->node, t.root()), nullptr) << key;
        EXPECT_EQ(rb_find(&one->node, t.root()), nullptr) << key;
    }
}

TEST(RbTree, LowerIsTheFirstOfTheRunAndUpperTheNodeBehindIt)
{
    tree t;
    t.fill({10, 20, 20, 20, 30, 40, 40});
    item *twenty = t.make(20), *forty = t.make(40), *ten = t.make(10);
    EXPECT_EQ(serial_of(rb_lower(&twenty->node, t.root())), 1);
    EXPECT_EQ(key_of(rb_upper(&twenty->node, t.root())), 30);
    EXPECT_EQ(serial_of(rb_lower(&ten->node, t.root())), 0);
    EXPECT_EQ(serial_of(rb_upper(&ten->node, t.root())), 1);
    EXPECT_EQ(serial_of(rb_lower(&forty->node, t.root())), 5);
    EXPECT_EQ(rb_upper(&forty->node, t.root()), nullptr); // the run ends the tree
}

TEST(RbTree, FindxGivesNeighboursOrTheEndsOfTheRun)
{
    tree t;
    t.fill({10, 20, 20, 20, 30});
    static constexpr struct {
        int key, left, right; // serial numbers
        bool is_there;
    } rows[] = {{5, -1, 0, false}, {10, 0, 0, true}, {15, 0, 1, false}, {20, 1, 3, true}, {25, 3, 4, false},
                {30, 4, 4, true},  {35, 4, -1, false}};
    for (const auto &row : rows) {
        item *one = t.make(row.key);
        rb_node *left = nullptr, *right = nullptr;
        EXPECT_EQ(rb_findx(&one->node, t.root(), &left, &right) != nullptr, row.is_there) << row.key;
        EXPECT_EQ(serial_of(left), row.left) << row.key;
        EXPECT_EQ(serial_of(right), row.right) << row.key;
        left = right = nullptr;
        EXPECT_EQ(rb_searchx(t.root(), &row.key, compare_number, &left, &right) != nullptr, row.is_there) << row.key;
        EXPECT_EQ(serial_of(left), row.left) << row.key;
        EXPECT_EQ(serial_of(right), row.right) << row.key;
        EXPECT_EQ(rb_findx(&one->node, t.root(), nullptr, nullptr) != nullptr, row.is_there) << row.key;
        EXPECT_EQ(rb_searchx(t.root(), &row.key, compare_number, nullptr, nullptr) != nullptr, row.is_there) << row.key;
        EXPECT_EQ(key_of(rb_search(t.root(), &row.key, compare_number)), row.is_there ? row.key : -1) << row.key;
    }
}

TEST(RbTree, LocateGivesTheNodeOrThePlaceForIt)
{
    tree t;
    rb_node **link = nullptr;
    int number = 20;
    EXPECT_EQ(rb_locate(t.root(), nullptr, &number, compare_number, &link), nullptr);
    EXPECT_EQ(link, &t.root()->root_node);
    for (int key : {20, 10, 30, 25}) {
        item *one = t.make(key);
        rb_node *parent = rb_locate(t.root(), &one->node, nullptr, nullptr, &link);
        ASSERT_NE(link, nullptr);
        ASSERT_EQ(*link, nullptr);
        rb_link_node(&one->node, parent, link, t.root());
        EXPECT_TRUE(is_red_black(t.root()));
    }
    EXPECT_EQ(key_of(rb_locate(t.root(), nullptr, &number, compare_number, &link)), 20);
    EXPECT_EQ(link, nullptr);
    number = 27;
    rb_node *parent = rb_locate(t.root(), nullptr, &number, compare_number, &link);
    EXPECT_EQ(key_of(parent), 25);
    EXPECT_EQ(link, &parent->right);
    EXPECT_EQ(key_of(t.root()->root_node), 20);
}

TEST(RbTree, LinkedNodeForgetsWhatItHeld)
{
    tree t;
    item *one = t.make(1), *two = t.make(2);
    one->node = {~uintptr_t{0}, &two->node, &two->node};
    EXPECT_TRUE(rb_insert(&one->node, t.root()));
    EXPECT_TRUE(is_red_black(t.root()));
    EXPECT_EQ(rb_next(&one->node), nullptr);
}

TEST(RbTree, ErasedNodesMayComeBack)
{
    tree t;
    item *one = t.make(1);
    for (int i = 0; i < 3; i++) {
        EXPECT_TRUE(rb_insert(&one->node, t.root()));
        rb_erase(&one->node, t.root());
        EXPECT_EQ(t.root()->root_node, nullptr);
    }
}

TEST(RbTree, ThousandsInOrderStayFlat)
{
    tree t;
    for (int i = 0; i < 4096; i++)
        t.insert(i);
    EXPECT_TRUE(is_red_black(t.root()));
    EXPECT_LE(black_height(t.root()->root_node, nullptr), 12);
    EXPECT_EQ(t.forwards().size(), 4096u);
}

// ---- Against a map that keeps equal keys in the order of insertion ------------------------------------------------------

using model = std::multimap<int, item *>;

static std::vector<std::pair<int, int>> in_order(const model &wanted)
{
    std::vector<std::pair<int, int>> found;
    for (const auto &[key, one] : wanted)
        found.emplace_back(key, one->serial);
    return found;
}

static int serial_at(const model &wanted, model::const_iterator at)
{
    return at == wanted.end() ? -1 : at->second->serial;
}

static void check_finding(tree *t, const model &wanted, int key)
{
    auto [first, behind] = wanted.equal_range(key);
    bool is_there = first != behind;
    int before = first == wanted.begin() ? -1 : std::prev(first)->second->serial;
    rb_node *left = nullptr, *right = nullptr;
    item probe = {{}, key, -2};
    RC_ASSERT((rb_find(&probe.node, t->root()) != nullptr) == is_there);
    RC_ASSERT((rb_findx(&probe.node, t->root(), &left, &right) != nullptr) == is_there);
    RC_ASSERT(serial_of(left) == (is_there ? first->second->serial : before));
    RC_ASSERT(serial_of(right) == (is_there ? std::prev(behind)->second->serial : serial_at(wanted, behind)));
    RC_ASSERT(serial_of(rb_lower(&probe.node, t->root())) == (is_there ? first->second->serial : -1));
    RC_ASSERT(serial_of(rb_upper(&probe.node, t->root())) == (is_there ? serial_at(wanted, behind) : -1));
}

static void check_whole(tree *t, const model &wanted)
{
    auto expected = in_order(wanted);
    RC_ASSERT(is_red_black(t->root()));
    RC_ASSERT(t->forwards() == expected);
    std::ranges::reverse(expected);
    RC_ASSERT(t->backwards() == expected);
}

static void insert_alone(tree *t, model *wanted, int key)
{
    item *one = t->make(key);
    bool is_new = !wanted->contains(key);
    RC_ASSERT(rb_insert(&one->node, t->root()) == is_new);
    if (is_new)
        wanted->emplace(key, one);
}

static void insert_too(tree *t, model *wanted, int key)
{
    item *one = t->make(key);
    RC_ASSERT(rb_minsert(&one->node, t->root()) == !wanted->contains(key));
    wanted->emplace(key, one);
}

// The one that `index` picks.
static void erase_one(tree *t, model *wanted, int index)
{
    if (wanted->empty())
        return;
    auto at = std::next(wanted->begin(), index % static_cast<int>(wanted->size()));
    rb_erase(&at->second->node, t->root());
    wanted->erase(at);
}

TEST(RbTree, DoesWhatAMultimapDoes)
{
    EXPECT_TRUE(rc::check("random operations", [] {
        tree t;
        model wanted;
        auto size = *rc::gen::inRange(0, 200);
        int keys = *rc::gen::element(3, 20, 1000);
        for (int i = 0; i < size; i++) {
            int number = *rc::gen::inRange(0, keys);
            static constexpr void (*operations[])(tree *, model *, int) = {insert_alone, insert_too, insert_too, erase_one};
            operations[*rc::gen::inRange(0, 4)](&t, &wanted, number);
            check_whole(&t, wanted);
            check_finding(&t, wanted, *rc::gen::inRange(-1, keys + 1));
        }
        while (!wanted.empty()) {
            erase_one(&t, &wanted, *rc::gen::inRange(0, 1000));
            check_whole(&t, wanted);
        }
    }));
}
