#include "platform/os/os_guard.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <thread>
#include <vector>

struct dlist_destroyer {
    void operator()(DList *list) const { adt_dlist_destroy(list); }
};
using dlist_ptr = std::unique_ptr<DList, dlist_destroyer>;

static int value_of(DListNode *node)
{
    return *static_cast<int *>(adt_dlist_data(node));
}

static std::vector<int> forwards(const DList *list)
{
    std::vector<int> values;
    for (DListNode *node = adt_dlist_head(list); node != nullptr; node = adt_dlist_next(node))
        values.push_back(value_of(node));
    return values;
}

static std::vector<int> backwards(const DList *list)
{
    std::vector<int> values;
    for (DListNode *node = adt_dlist_tail(list); node != nullptr; node = adt_dlist_prev(node))
        values.insert(values.begin(), value_of(node));
    return values;
}

static DListNode *push(DList *list, int value)
{
    return adt_dlist_push_back(list, &value);
}

TEST(OsList, StartsEmpty)
{
    dlist_ptr list(adt_dlist_create(sizeof(int)));
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(adt_dlist_size(list.get()), 0u);
    EXPECT_EQ(adt_dlist_empty(list.get()), 1);
    EXPECT_EQ(adt_dlist_head(list.get()), nullptr);
    EXPECT_EQ(adt_dlist_tail(list.get()), nullptr);
}

TEST(OsList, InsertsAtBothEndsAndBefore)
{
    dlist_ptr list(adt_dlist_create(sizeof(int)));
    int front = 1, middle = 2;
    DListNode *last = push(list.get(), 3);
    adt_dlist_push_front(list.get(), &front);
    adt_dlist_insert(list.get(), last, &middle);
    int end = 4;
    adt_dlist_insert(list.get(), nullptr, &end);
    EXPECT_EQ(forwards(list.get()), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(backwards(list.get()), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(adt_dlist_size(list.get()), 4u);
    EXPECT_EQ(adt_dlist_empty(list.get()), 0);
}

TEST(OsList, EraseGivesTheNodeAfter)
{
    dlist_ptr list(adt_dlist_create(sizeof(int)));
    DListNode *first = push(list.get(), 1), *second = push(list.get(), 2), *third = push(list.get(), 3);
    EXPECT_EQ(adt_dlist_erase(list.get(), second), third);
    EXPECT_EQ(adt_dlist_erase(list.get(), third), nullptr);
    EXPECT_EQ(forwards(list.get()), std::vector<int>{1});
    EXPECT_EQ(backwards(list.get()), std::vector<int>{1});
    EXPECT_EQ(adt_dlist_erase(list.get(), first), nullptr);
    EXPECT_EQ(adt_dlist_empty(list.get()), 1);
    EXPECT_EQ(adt_dlist_head(list.get()), nullptr);
    EXPECT_EQ(adt_dlist_tail(list.get()), nullptr);
}

TEST(OsList, ElementsAreCopied)
{
    struct record {
        char text[37];
        long double value;
    };
    dlist_ptr list(adt_dlist_create(sizeof(record)));
    record one = {"text", 2.5L};
    DListNode *node = adt_dlist_push_back(list.get(), &one);
    one = {};
    auto kept = static_cast<record *>(adt_dlist_data(node));
    EXPECT_STREQ(kept->text, "text");
    EXPECT_EQ(kept->value, 2.5L);
}

TEST(OsList, NothingIsRefusedOrIgnored)
{
    int value = 0;
    adt_dlist_destroy(nullptr);
    adt_dlist_lock(nullptr);
    adt_dlist_unlock(nullptr);
    adt_dlist_set_rank(nullptr, 1, "none");
    EXPECT_EQ(adt_dlist_create(0), nullptr);
    EXPECT_EQ(adt_dlist_create(SIZE_MAX), nullptr);
    EXPECT_EQ(adt_dlist_size(nullptr), 0u);
    EXPECT_EQ(adt_dlist_push_back(nullptr, &value), nullptr);
    EXPECT_EQ(adt_dlist_push_front(nullptr, &value), nullptr);
    EXPECT_EQ(adt_dlist_erase(nullptr, nullptr), nullptr);
    EXPECT_EQ(adt_dlist_next(nullptr), nullptr);
    EXPECT_EQ(adt_dlist_prev(nullptr), nullptr);
    EXPECT_EQ(adt_dlist_data(nullptr), nullptr);
    dlist_ptr list(adt_dlist_create(sizeof(int)));
    EXPECT_EQ(adt_dlist_push_back(list.get(), nullptr), nullptr);
    EXPECT_EQ(adt_dlist_erase(list.get(), nullptr), nullptr);
    EXPECT_EQ(adt_dlist_empty(list.get()), 1);
}

TEST(OsList, FailedInsertLeavesTheListAsItWas)
{
    dlist_ptr list(adt_dlist_create(sizeof(int)));
    push(list.get(), 1);
    for (auto insert : {adt_dlist_push_back, adt_dlist_push_front}) {
        int value = 2;
        os_fault_arm(1);
        EXPECT_EQ(insert(list.get(), &value), nullptr);
        os_fault_disarm();
    }
    EXPECT_EQ(forwards(list.get()), std::vector<int>{1});
}

TEST(OsList, FailedCreateAtEveryStep)
{
    for (uint32_t n : {1u, 2u}) {
        os_fault_arm(n);
        EXPECT_EQ(adt_dlist_create(8), nullptr) << n;
        EXPECT_EQ(os_fault_calls(), n);
        os_fault_disarm();
    }
}

TEST(OsList, LockIsRecursiveAndKeepsThreadsApart)
{
    dlist_ptr list(adt_dlist_create(sizeof(int)));
    auto fill = [&] {
        for (int i = 0; i < 500; i++) {
            dlist_guard held(list.get());
            dlist_guard again(list.get());
            push(list.get(), i);
        }
    };
    std::thread first(fill), second(fill);
    first.join();
    second.join();
    EXPECT_EQ(adt_dlist_size(list.get()), 1000u);
}

TEST(OsList, BehavesLikeAVector)
{
    EXPECT_TRUE(rc::check("insert and erase anywhere", [](const std::vector<std::pair<uint8_t, int>> &steps) {
        dlist_ptr list(adt_dlist_create(sizeof(int)));
        std::vector<int> model;
        for (auto [where, value] : steps) {
            size_t place = model.empty() ? 0 : where / 2u % (model.size() + 1);
            DListNode *node = adt_dlist_head(list.get());
            for (size_t i = 0; i < place; i++)
                node = adt_dlist_next(node);
            auto at = model.begin() + static_cast<std::ptrdiff_t>(place);
            if (where % 2 == 0 || node == nullptr) {
                adt_dlist_insert(list.get(), node, &value);
                model.insert(at, value);
            } else {
                adt_dlist_erase(list.get(), node);
                model.erase(at);
            }
        }
        RC_ASSERT(forwards(list.get()) == model);
        RC_ASSERT(backwards(list.get()) == model);
        RC_ASSERT(adt_dlist_size(list.get()) == model.size());
    }));
}
