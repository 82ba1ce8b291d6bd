#include "platform/os/os.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <set>

static int add_one(void *arg)
{
    return *static_cast<int *>(arg) + 1;
}

TEST(OsThread, JoinGivesWhatTheThreadReturned)
{
    LThread thread = {};
    int value = 41, result = 0;
    ASSERT_EQ(os_thread_create(&thread, 0, add_one, &value), 1);
    ASSERT_NE(thread.impl, nullptr);
    EXPECT_EQ(os_thread_join(&thread, &result), 1);
    EXPECT_EQ(result, 42);
    EXPECT_EQ(thread.impl, nullptr);
}

TEST(OsThread, HandleServesOneJoinOnly)
{
    LThread thread = {};
    int value = 0;
    ASSERT_EQ(os_thread_create(&thread, 0, add_one, &value), 1);
    EXPECT_EQ(os_thread_join(&thread, nullptr), 1);
    EXPECT_EQ(os_thread_join(&thread, nullptr), 0);
    EXPECT_EQ(os_thread_detach(&thread), 0);
}

TEST(OsThread, DetachedThreadGoesOnByItself)
{
    std::atomic<bool> is_done = false;
    LThread thread = {};
    auto finish = [](void *arg) {
        static_cast<std::atomic<bool> *>(arg)->store(true);
        return 0;
    };
    ASSERT_EQ(os_thread_create(&thread, 0, finish, &is_done), 1);
    EXPECT_EQ(os_thread_detach(&thread), 1);
    EXPECT_EQ(thread.impl, nullptr);
    while (!is_done)
        os_sleep(1);
}

TEST(OsThread, FailureLeavesTheHandleZero)
{
    int value = 0;
    LThread thread = {reinterpret_cast<os_thread_impl *>(&value)};
    EXPECT_EQ(os_thread_create(&thread, 0, nullptr, nullptr), 0);
    EXPECT_EQ(thread.impl, nullptr);
    os_fault_arm(1);
    EXPECT_EQ(os_thread_create(&thread, 0, add_one, &value), 0);
    os_fault_disarm();
    EXPECT_EQ(thread.impl, nullptr);
    // No host has this much address space.
    EXPECT_EQ(os_thread_create(&thread, SIZE_MAX, add_one, &value), 0);
    EXPECT_EQ(thread.impl, nullptr);
    EXPECT_EQ(os_thread_create(nullptr, 0, add_one, &value), 0);
}

static int read_id(void *arg)
{
    *static_cast<uint64_t *>(arg) = os_thread_id();
    return 0;
}

TEST(OsThread, LivingThreadsHaveDifferentNumbers)
{
    std::array<uint64_t, 4> ids = {};
    std::array<LThread, 4> threads = {};
    auto read_and_stay = [](void *arg) {
        read_id(arg);
        os_sleep(20);
        return 0;
    };
    for (size_t i = 0; i < ids.size(); i++)
        ASSERT_EQ(os_thread_create(&threads[i], 0, read_and_stay, &ids[i]), 1);
    for (LThread &thread : threads)
        os_thread_join(&thread, nullptr);
    std::set<uint64_t> different(ids.begin(), ids.end());
    different.insert(os_thread_id());
    EXPECT_EQ(different.size(), ids.size() + 1);
    EXPECT_EQ(os_thread_id(), os_thread_id());
}

TEST(OsErrno, IsZeroAtStartAndKeptPerThread)
{
    os_set_errno(0x1000009);
    auto read = [](void *arg) {
        *static_cast<uint32_t *>(arg) = os_get_errno();
        os_set_errno(0x100000a);
        return 0;
    };
    uint32_t other = 1;
    LThread thread = {};
    ASSERT_EQ(os_thread_create(&thread, 0, read, &other), 1);
    os_thread_join(&thread, nullptr);
    EXPECT_EQ(other, 0u);
    EXPECT_EQ(os_get_errno(), 0x1000009u);
    os_set_errno(0);
}
