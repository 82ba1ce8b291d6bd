#include "tests/support/manual_clock.h"
#include "tests/vod/vod_fixture.h"

#include <thread>

TEST_F(LinkTableTest, AWaitEndsWhenTheLinkDies)
{
    VodLink *link = take(VOD_LINK_TYPE_LOGIN, VOD_LINK_ACTTVE_NUM);
    std::thread destroyer([link] {
        os_sleep(20);
        vodlink_destroy(link);
    });
    vodlinks_guard held;
    uint64_t start = os_tick();
    EXPECT_FALSE(vodlink_wait(link, held, 60'000, true));
    EXPECT_LT(os_tick() - start, 30'000u);
    os_unlock_guard released(held);
    destroyer.join();
}

// A paced wait on a thread of its own, under a clock that stands still unless the test turns it.
class paced_wait {
public:
    paced_wait(VodLink *link, uint32_t ms)
        : thread_([this, link, ms] {
              vodlinks_guard held;
              lives_ = vodlink_pace(link, held, ms);
              done_ = true;
          })
    {}
    ~paced_wait() { thread_.join(); }
    bool is_done_soon() const { return is_done_within(5000); }
    bool is_done_within(int ms) const
    {
        for (int i = 0; i < ms && !done_; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return done_;
    }
    bool lives() const { return lives_; }

private:
    std::atomic<bool> done_ = false, lives_ = false;
    std::thread thread_;
};

TEST_F(LinkTableTest, WhatAPacedWaitCameLateIsTakenOffTheNext)
{
    manual_clock clock;
    VodLink *link = take(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM);
    {
        vodlinks_guard held;
        EXPECT_TRUE(vodlink_pace(link, held, 0)); // due now
    }
    clock.advance(7);
    {
        paced_wait first(link, 10);
        clock.advance(2);
        EXPECT_FALSE(first.is_done_within(50));
        clock.advance(3); // 2 late
        EXPECT_TRUE(first.is_done_soon());
        EXPECT_TRUE(first.lives());
    }
    paced_wait second(link, 10);
    clock.advance(7);
    EXPECT_FALSE(second.is_done_within(50));
    clock.advance(1);
    EXPECT_TRUE(second.is_done_soon());
}

TEST_F(LinkTableTest, ALinkThatIsUpToAPacedWaitBehindDoesNotWait)
{
    manual_clock clock;
    VodLink *link = take(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM);
    vodlinks_guard held;
    EXPECT_TRUE(vodlink_pace(link, held, 0));
    for (uint64_t late : {10u, 15u, 20u}) {
        clock.advance(late);
        uint64_t before = os_tick();
        EXPECT_TRUE(vodlink_pace(link, held, 10)) << late; // the clock stands still: a wait would not end
        EXPECT_EQ(os_tick(), before);
    }
}

TEST_F(LinkTableTest, ALinkThatIsFurtherBehindStartsAnew)
{
    manual_clock clock;
    VodLink *link = take(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM);
    {
        vodlinks_guard held;
        EXPECT_TRUE(vodlink_pace(link, held, 0));
    }
    clock.advance(21);
    paced_wait late(link, 10);
    clock.advance(9);
    EXPECT_FALSE(late.is_done_within(50));
    clock.advance(10);
    EXPECT_TRUE(late.is_done_soon());
}

TEST_F(LinkTableTest, APacedWaitEndsWhenTheLinkDies)
{
    manual_clock clock;
    VodLink *link = take(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM);
    paced_wait wait(link, 60'000);
    vodlink_set_timeout(link);
    EXPECT_TRUE(wait.is_done_soon());
    EXPECT_FALSE(wait.lives());
}

TEST_F(LinkTableTest, AWakeEndsAWaitThatNeedNotBeWhole)
{
    VodLink *link = take(VOD_LINK_TYPE_LOGIN, VOD_LINK_ACTTVE_NUM);
    std::atomic<bool> done = false;
    std::thread waker([&] {
        while (!done) {
            vodlink_wake(link);
            os_sleep(1);
        }
    });
    {
        vodlinks_guard held;
        EXPECT_TRUE(vodlink_wait(link, held, 60'000, false));
    }
    done = true;
    waker.join();
}
