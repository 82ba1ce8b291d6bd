#include "platform/os/os_guard.h"
#include "tests/support/manual_clock.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

class OsMutex : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(os_mutex_init(&mutex_, 1), 1);
        ASSERT_EQ(os_cond_init(&cond_), 1);
    }
    void TearDown() override
    {
        EXPECT_EQ(os_cond_destroy(&cond_), 1);
        EXPECT_EQ(os_mutex_destroy(&mutex_), 1);
    }

    // Only the thread that holds a mutex can unlock it.
    bool is_held() { return os_mutex_unlock(&mutex_) == 1 && os_mutex_lock(&mutex_) == 1; }

    LMutex mutex_ = {};
    LCond cond_ = {};
};

TEST_F(OsMutex, KeepsThreadsApart)
{
    int counter = 0;
    auto count = [&] {
        for (int i = 0; i < 2000; i++) {
            os_lock_guard held(&mutex_);
            counter++;
        }
    };
    std::thread first(count), second(count);
    first.join();
    second.join();
    EXPECT_EQ(counter, 4000);
}

TEST_F(OsMutex, RecursiveOneMayBeTakenAgain)
{
    EXPECT_EQ(os_mutex_lock(&mutex_), 1);
    EXPECT_EQ(os_mutex_lock(&mutex_), 1);
    EXPECT_EQ(os_mutex_unlock(&mutex_), 1);
    EXPECT_EQ(os_mutex_unlock(&mutex_), 1);
}

TEST_F(OsMutex, PlainOneRefusesASecondLockOfTheSameThread)
{
    LMutex plain = {};
    ASSERT_EQ(os_mutex_init(&plain, 0), 1);
    EXPECT_EQ(os_mutex_lock(&plain), 1);
    EXPECT_EQ(os_mutex_lock(&plain), 0);
    EXPECT_EQ(os_mutex_unlock(&plain), 1);
    EXPECT_EQ(os_mutex_destroy(&plain), 1);
}

TEST_F(OsMutex, ZeroOneIsRefusedEverywhere)
{
    LMutex none = {};
    LCond no_cond = {};
    EXPECT_EQ(os_mutex_destroy(&none), 0);
    EXPECT_EQ(os_mutex_lock(&none), 0);
    EXPECT_EQ(os_mutex_lock_at(&none, "f", 1), 0);
    EXPECT_EQ(os_mutex_unlock(&none), 0);
    os_mutex_set_rank(&none, 1, "none");
    EXPECT_EQ(os_cond_destroy(&no_cond), 0);
    EXPECT_EQ(os_cond_signal(&no_cond), 0);
    EXPECT_EQ(os_cond_broadcast(&no_cond), 0);
    EXPECT_EQ(os_cond_wait(&no_cond, &mutex_, 0), 0);
    EXPECT_EQ(os_cond_wait(&cond_, &none, 0), 0);
    EXPECT_EQ(os_mutex_lock(nullptr), 0);
}

TEST_F(OsMutex, FailedInitLeavesItZero)
{
    LMutex mutex = {};
    LCond cond = {};
    os_fault_arm(1);
    EXPECT_EQ(os_mutex_init(&mutex, 1), 0);
    os_fault_arm(1);
    EXPECT_EQ(os_cond_init(&cond), 0);
    os_fault_disarm();
    EXPECT_EQ(mutex.impl, nullptr);
    EXPECT_EQ(cond.impl, nullptr);
}

TEST_F(OsMutex, WaitEndsWhenSignalled)
{
    bool is_ready = false;
    std::thread waker([&] {
        os_lock_guard held(&mutex_);
        is_ready = true;
        os_cond_signal(&cond_);
    });
    {
        os_lock_guard held(&mutex_);
        while (!is_ready)
            os_cond_wait(&cond_, &mutex_, OS_WAIT_FOREVER);
    }
    waker.join();
    EXPECT_TRUE(is_ready);
}

TEST_F(OsMutex, BroadcastWakesAll)
{
    bool is_ready = false;
    std::atomic<int> woken = 0;
    std::array<std::thread, 3> waiters;
    for (std::thread &waiter : waiters)
        waiter = std::thread([&] {
            os_lock_guard held(&mutex_);
            while (!is_ready)
                os_cond_wait(&cond_, &mutex_, OS_WAIT_FOREVER);
            woken++;
        });
    {
        os_lock_guard held(&mutex_);
        is_ready = true;
        os_cond_broadcast(&cond_);
    }
    for (std::thread &waiter : waiters)
        waiter.join();
    EXPECT_EQ(woken, 3);
}

TEST_F(OsMutex, WaitRunsOutAndHoldsTheMutexAgain)
{
    os_lock_guard held(&mutex_);
    uint64_t before = os_tick();
    // A wake-up for no reason is allowed, so the time is what is looked at.
    while (os_cond_wait(&cond_, &mutex_, 20)) {
    }
    EXPECT_GE(os_tick() - before, 19u);
    EXPECT_TRUE(is_held());
    while (os_cond_wait(&cond_, &mutex_, 0)) {
    }
}

TEST_F(OsMutex, WaitFollowsTheInstalledClock)
{
    manual_clock clock;
    std::atomic<bool> is_over = false;
    std::thread waiter([&] {
        os_lock_guard held(&mutex_);
        while (os_cond_wait(&cond_, &mutex_, 3'600'000)) {
        }
        is_over = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(is_over);
    clock.advance(3'600'001);
    waiter.join();
    EXPECT_TRUE(is_over);
}

TEST_F(OsMutex, WaitUnderAnInstalledClockIsStillWoken)
{
    manual_clock clock;
    bool is_ready = false;
    std::thread waiter([&] {
        os_lock_guard held(&mutex_);
        while (!is_ready)
            ASSERT_EQ(os_cond_wait(&cond_, &mutex_, 3'600'000), 1);
    });
    {
        os_lock_guard held(&mutex_);
        is_ready = true;
    }
    // Signalled until it ends: the first signal may come before the wait.
    os_cond_broadcast(&cond_);
    waiter.join();
}

TEST_F(OsMutex, UnlockGuardLendsTheLock)
{
    os_lock_guard held(&mutex_);
    int seen = 0;
    {
        os_unlock_guard released(held);
        std::thread([&] {
            os_lock_guard other(&mutex_);
            seen = 1;
        }).join();
    }
    EXPECT_EQ(seen, 1);
    EXPECT_TRUE(is_held());
}

TEST_F(OsMutex, SleepUnlockedSleepsWithTheLockReleased)
{
    manual_clock clock;
    os_lock_guard held(&mutex_);
    os_sleep_unlocked(held, 10);
    EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>{10});
    EXPECT_TRUE(is_held());
}

#if defined(OS_LOCK_RANKS)
class OsLockOrder : public testing::Test {
protected:
    void SetUp() override
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        for (LMutex &mutex : mutexes_)
            ASSERT_EQ(os_mutex_init(&mutex, 1), 1);
        os_mutex_set_rank(&outer(), 1, "table");
        os_mutex_set_rank(&inner(), 2, "player");
        os_mutex_set_rank(&beside(), 2, "limiter");
    }
    void TearDown() override
    {
        for (LMutex &mutex : mutexes_)
            EXPECT_EQ(os_mutex_destroy(&mutex), 1);
    }
    LMutex &outer() { return mutexes_[0]; }
    LMutex &inner() { return mutexes_[1]; }
    LMutex &beside() { return mutexes_[2]; }
    LMutex &unranked() { return mutexes_[3]; }

    std::array<LMutex, 4> mutexes_ = {};
};
using OsLockOrderDeathTest = OsLockOrder;

TEST_F(OsLockOrder, OutsideInIsAllowed)
{
    os_lock_guard first(&outer());
    os_lock_guard second(&inner());
    os_lock_guard third(&unranked());
    os_lock_guard again(&outer());
    os_lock_guard inner_again(&inner());
}

TEST_F(OsLockOrder, ReleasedLocksDoNotCount)
{
    {
        os_lock_guard held(&inner());
    }
    os_lock_guard held(&outer());
    os_lock_guard then(&inner());
    os_unlock_guard lent(then);
    os_lock_guard other(&beside());
}

TEST_F(OsLockOrder, LocksMayBeReleasedInAnyOrder)
{
    os_mutex_lock(&outer());
    os_mutex_lock(&inner());
    os_mutex_unlock(&outer());
    os_mutex_unlock(&inner());
    os_mutex_lock(&outer());
    os_mutex_unlock(&outer());
}

TEST_F(OsLockOrder, WaitGivesTheLockBackMeanwhile)
{
    LCond cond = {};
    ASSERT_EQ(os_cond_init(&cond), 1);
    os_mutex_lock(&inner());
    os_cond_wait(&cond, &inner(), 1);
    os_mutex_unlock(&inner());
    os_lock_guard held(&outer());
    EXPECT_EQ(os_cond_destroy(&cond), 1);
}

TEST_F(OsLockOrderDeathTest, InsideOutStopsAndNamesBothPlaces)
{
    EXPECT_DEATH(
        {
            os_mutex_lock_at(&inner(), "held.cpp", 7);
            os_mutex_lock_at(&outer(), "taken.cpp", 9);
        },
        "table .rank 1. taken at taken.cpp:9 while player .rank 2. is held since held.cpp:7");
}

TEST_F(OsLockOrderDeathTest, SameRankStops)
{
    EXPECT_DEATH(
        {
            os_mutex_lock(&inner());
            os_mutex_lock(&beside());
        },
        "limiter .rank 2. taken at .* while player");
}

TEST_F(OsLockOrderDeathTest, ListsHaveAPlaceToo)
{
    EXPECT_DEATH(
        {
            DList *list = adt_dlist_create(8);
            adt_dlist_set_rank(list, 9, "queue");
            dlist_guard held(list);
            os_lock_guard wrong(&outer());
        },
        "table .rank 1. taken at .*mutex_test.cpp:[0-9]+ while queue .rank 9.");
}

TEST_F(OsLockOrder, ALockThatIsHeldOnceIsLent)
{
    for (LMutex *mutex : {&inner(), &unranked()}) {
        os_lock_guard held(mutex);
        {
            os_lock_guard again(mutex);
        }
        os_unlock_guard lent(held);
    }
}

TEST_F(OsLockOrderDeathTest, ALockThatIsHeldTwiceIsNotLent)
{
    for (LMutex *mutex : {&inner(), &unranked()}) {
        os_mutex_lock_at(mutex, "first.cpp", 7);
        EXPECT_DEATH(
            {
                os_lock_guard held(mutex);
                os_unlock_guard lent(held);
            },
            "held 2 times by the thread that lends it at .*mutex_test.cpp:[0-9]+(.|\n)*taken at first.cpp:7");
        os_mutex_unlock(mutex);
    }
}

TEST_F(OsLockOrderDeathTest, ALockThatIsHeldTwiceIsNotSleptWithout)
{
    os_lock_guard first(&inner()), held(&inner());
    EXPECT_DEATH(os_sleep_unlocked(held, 1), "player .rank 2. taken at .*mutex_test.cpp:[0-9]+");
}

TEST_F(OsLockOrderDeathTest, ALockThatIsHeldTwiceIsNotWaitedWith)
{
    LCond cond = {};
    ASSERT_EQ(os_cond_init(&cond), 1);
    os_lock_guard first(&inner()), held(&inner());
    EXPECT_DEATH(os_cond_wait(&cond, held.mutex(), 1), "held 2 times by the thread that lends it at os_cond_wait");
    EXPECT_EQ(os_cond_destroy(&cond), 1);
}
#endif
