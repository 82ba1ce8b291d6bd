#include "tests/vod/vod_fixture.h"

#include <rapidcheck.h>

#include <cstring>
#include <thread>

TEST_F(LinkTableTest, CreateZeroesTheSlotAndMarksItTaken)
{
    s_vodlinks[0].ctrl_type = 4;
    VodLink *link = vodlink_create();
    ASSERT_EQ(link, &s_vodlinks[0]);
    EXPECT_EQ(link->index, 0);
    EXPECT_EQ(link->type, 0);
    EXPECT_EQ(link->status, VOD_LINK_STATUS_REQ);
    EXPECT_EQ(link->ctrl_type, 0);
    EXPECT_EQ(link->vod_file_type, 0);
    EXPECT_EQ(link->mslink, nullptr);
    EXPECT_EQ(link->p_data.play_d.play_id, INVALID_HANDLE_ORB);
    EXPECT_EQ(log.count("vodlink_create: s_vodlink_play_num:0, s_vodlink_down_num:0, s_vodlink_state_num:0, "
                        "s_vodlink_up_num:0, s_vod_max_num:128",
                        LOG_REFUSE),
              1u);
}

TEST_F(LinkTableTest, CreateTakesTheFirstFreeSlot)
{
    vodlink_create();
    VodLink *second = vodlink_create();
    vodlink_create();
    second->type = VOD_LINK_TYPE_LOGIN;
    vodlink_destroy(second);
    EXPECT_EQ(vodlink_create(), second);
}

TEST_F(LinkTableTest, ThirdLinkIsRefusedWhenMaxNumIsTwo)
{
    vodlinks_set_max_num(2);
    take(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM);
    take(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM);
    EXPECT_EQ(vodlink_create(), nullptr);
}

TEST_F(LinkTableTest, EachCounterOfTheSumCountsTowardsMaxNum)
{
    for (VOD_LINK_TYPE counter : {VOD_LINK_DOWN_NUM, VOD_LINK_PLAY_NUM, VOD_LINK_STATE_NUM, VOD_LINK_UP_NUM}) {
        vodlinks_clear();
        vodlinks_set_max_num(1);
        take(VOD_LINK_TYPE_LOGIN, counter);
        EXPECT_EQ(vodlink_create(), nullptr) << counter;
    }
}

TEST_F(LinkTableTest, TheActiveCountDoesNotCountTowardsMaxNum)
{
    vodlinks_set_max_num(1);
    take(VOD_LINK_TYPE_LOGIN, VOD_LINK_ACTTVE_NUM);
    EXPECT_NE(vodlink_create(), nullptr);
}

TEST_F(LinkTableTest, MaxNumOfZeroAdmitsNothing)
{
    vodlinks_set_max_num(0);
    EXPECT_EQ(vodlink_create(), nullptr);
}

TEST_F(LinkTableTest, TheTwoHundredAndFirstLinkGetsNoSlot)
{
    vodlinks_set_max_num(1000);
    for (int i = 0; i < VOD_LINK_SLOTS; i++)
        ASSERT_NE(vodlink_create(), nullptr) << i;
    EXPECT_EQ(vodlink_create(), nullptr);
}

TEST_F(LinkTableTest, DestroyRefusesWhatIsNoLink)
{
    EXPECT_EQ(vodlink_destroy(nullptr), 0);
    EXPECT_EQ(log.count("vodlink == NULL", LOG_REFUSE), 1u);
    struct row {
        int32_t index;
        const char *text;
    };
    for (row bad : {row{-1, "vodlink->index < 0 || vodlink->index >= MAX_LINK_NUM---vodlink->index = -1"},
                    row{8000, "vodlink->index < 0 || vodlink->index >= MAX_LINK_NUM---vodlink->index = 8000"},
                    row{7999, "vodlink is no slot of the table, vodlink->index:7999"}}) {
        VodLink stray = {};
        stray.index = bad.index;
        EXPECT_EQ(vodlink_destroy(&stray), 0);
        EXPECT_EQ(log.count(bad.text), 1u) << bad.text;
    }
}

TEST_F(LinkTableTest, DestroyingTwiceReturnsOneAndChangesNoCounter)
{
    VodLink *link = take_active(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM, 77);
    link->status = VOD_LINK_STATUS_IS_DESTORY;
    EXPECT_EQ(vodlink_destroy(link), 1);
    EXPECT_EQ(log.count("vodlink_destroy: index:0, vodlink->status == VOD_LINK_STATUS_IS_DESTORY return"), 1u);
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 1u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 1u);
    EXPECT_EQ(s_facade.closes, 0);
}

TEST_F(LinkTableTest, DestroyedPlaybackClosesItsPlayerAndGivesBackBothCounters)
{
    VodLink *link = take_active(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM, 77);
    MsLink mslink;
    link->mslink = &mslink;
    EXPECT_EQ(vodlink_destroy(link), 1);
    EXPECT_TRUE(mslink.destroyed);
    EXPECT_TRUE(fake_facade_called("close(77)"));
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 0u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    EXPECT_EQ(link->index, -1);
    EXPECT_EQ(log.count("vodlink_destroy: type:0, index:0, vod_file_type:0", LOG_REFUSE), 1u);
    EXPECT_EQ(
        log.count("s_vodlink_active_num: 0, s_vodlink_up_num:0, s_vodlink_down_num:0, s_vodlink_play_num:0", LOG_TRACE),
        1u);
}

TEST_F(LinkTableTest, PlaybackThatReachedItsEndWasNoLongerActive)
{
    VodLink *link = take(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM);
    take_active(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM, 78);
    link->p_data.play_d.is_play_end = 1;
    vodlink_destroy(link);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 1u);
}

TEST_F(LinkTableTest, PlaybackWithoutPlayerKeepsThePlaybackCounter)
{
    VodLink *link = take_active(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM, INVALID_HANDLE_ORB);
    vodlink_destroy(link);
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 1u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    EXPECT_EQ(log.count("vodlink->p_data.play_d.play_id == (handle_orb)-1, vodlink->index:0"), 1u);
}

TEST_F(LinkTableTest, FailedClosesAreLoggedAndTheSlotIsFreedAllTheSame)
{
    s_facade.close_result = 0;
    s_fake_ms.destroy_result = 0;
    MsLink mslink;
    VodLink *link = take_active(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM, 77);
    link->mslink = &mslink;
    EXPECT_EQ(vodlink_destroy(link), 1);
    EXPECT_EQ(log.count("!vodplay_close", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("!mslink_destroy", LOG_REFUSE), 1u);
    EXPECT_EQ(link->index, -1);
}

TEST_F(LinkTableTest, DownloadByFileFreesItsSlot)
{
    VodLink *link = take_active(VOD_LINK_TYPE_DOWNLOAD, VOD_LINK_DOWN_NUM, 5);
    vodlink_destroy(link);
    EXPECT_TRUE(fake_facade_called("download_close(5)"));
    EXPECT_EQ(count(VOD_LINK_DOWN_NUM), 0u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    EXPECT_EQ(link->index, -1);
    EXPECT_EQ(log.count("vodlink->index:0, is download by file or by time error, close", LOG_TRACE), 1u);
}

TEST_F(LinkTableTest, DownloadByTimeWithAnOpenHandleKeepsItsSlot)
{
    VodLink *link = take_active(VOD_LINK_TYPE_DOWNLOAD, VOD_LINK_DOWN_NUM, 5);
    link->vod_file_type = 1;
    s_facade.close_result = 0;
    vodlink_destroy(link);
    EXPECT_EQ(link->index, 0);
    EXPECT_EQ(log.count("vodlink->index:0, is download by time, wait async close", LOG_TRACE), 1u);
    EXPECT_EQ(log.count("!vodplay_download_close", LOG_REFUSE), 1u);
}

TEST_F(LinkTableTest, DownloadByTimeWithoutHandleIsFreed)
{
    VodLink *link = take(VOD_LINK_TYPE_DOWNLOAD, VOD_LINK_DOWN_NUM);
    link->vod_file_type = 1;
    vodlink_destroy(link);
    EXPECT_EQ(link->index, -1);
    EXPECT_EQ(count(VOD_LINK_DOWN_NUM), 1u);
    EXPECT_EQ(log.count("vodlink->p_data.down_d.down_id == (handle_orb)-1, vodlink->index:0", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("vodlink->index:0, is download by file or by time error, close", LOG_TRACE), 1u);
}

TEST_F(LinkTableTest, StateLinkGivesBackItsCounter)
{
    VodLink *link = take(VOD_LINK_TYPE_STATE, VOD_LINK_STATE_NUM);
    vodlink_destroy(link);
    EXPECT_EQ(count(VOD_LINK_STATE_NUM), 0u);
    EXPECT_EQ(log.count("vodlink_destroy: index:0, s_vodlink_state_num:0", LOG_REFUSE), 1u);
}

TEST_F(LinkTableTest, UploadIsClosedWithItsLockTime)
{
    VodLink *link = take_active(VOD_LINK_TYPE_UPLOAD, VOD_LINK_UP_NUM, 6);
    link->p_data.up_d.lock_time = {2026, 1, 1, 8, 0, 0};
    tm local = {};
    local.tm_year = 126;
    local.tm_mday = 1;
    local.tm_hour = 8;
    local.tm_isdst = -1;
    vodlink_destroy(link);
    EXPECT_TRUE(fake_facade_called("upload_close(6," + std::to_string(os_mktime(&local)) + ")"));
    EXPECT_EQ(count(VOD_LINK_UP_NUM), 0u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    EXPECT_EQ(link->p_data.up_d.up_id, INVALID_HANDLE_ORB);
}

TEST_F(LinkTableTest, AnUploadThatCannotBeClosedIsLoggedAndFreedAllTheSame)
{
    s_facade.close_result = 0;
    VodLink *link = take_active(VOD_LINK_TYPE_UPLOAD, VOD_LINK_UP_NUM, 6);
    vodlink_destroy(link);
    EXPECT_EQ(log.count("!vodplay_upload_close", LOG_REFUSE), 1u);
    EXPECT_EQ(count(VOD_LINK_UP_NUM), 0u);
    EXPECT_EQ(link->index, -1);
}

TEST_F(LinkTableTest, ATakenSlotKeepsNothingOfItsLastOwner)
{
    std::memset(static_cast<void *>(&s_vodlinks[0]), 0x5A, sizeof(VodLink));
    s_vodlinks[0].index = -1;
    VodLink *link = vodlink_create();
    ASSERT_EQ(link, &s_vodlinks[0]);
    EXPECT_EQ(link->p_data.up_d.md5[0], 0);
    EXPECT_EQ(link->p_data.up_d.md5[32], 0);
    EXPECT_EQ(link->p_data.up_d.app_type, 0);
    EXPECT_EQ(link->p_data.up_d.orbvfs_filename[259], 0);
}

TEST_F(LinkTableTest, UploadWithoutHandleKeepsItsCounter)
{
    VodLink *link = take_active(VOD_LINK_TYPE_UPLOAD, VOD_LINK_UP_NUM, INVALID_HANDLE_ORB);
    vodlink_destroy(link);
    EXPECT_EQ(count(VOD_LINK_UP_NUM), 1u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
}

TEST_F(LinkTableTest, LoginsHaveNothingToClose)
{
    for (int32_t type : {VOD_LINK_TYPE_LOGIN, VOD_LINK_TYPE_REC_LOGIN}) {
        VodLink *link = take(type, VOD_LINK_ACTTVE_NUM);
        EXPECT_EQ(vodlink_destroy(link), 1);
        EXPECT_EQ(link->index, -1);
    }
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 2u);
}

TEST_F(LinkTableTest, CountersDoNotFallBelowZero)
{
    vodlinks_guard held;
    vodlinks_count_down(held, VOD_LINK_PLAY_NUM);
    EXPECT_EQ(vodlinks_count(held, VOD_LINK_PLAY_NUM), 0u);
    EXPECT_EQ(log.count("s_vodlink_play_num is 0 already", LOG_SYSTEM), 1u);
}

TEST_F(LinkTableTest, ACookieFindsItsOwnLifeOfTheSlotOnly)
{
    VodLink *link = vodlink_create();
    handle_orb cookie = vodlink_cookie(link);
    {
        vodlinks_guard held;
        EXPECT_EQ(vodlink_of_cookie(held, cookie), link);
    }
    link->type = VOD_LINK_TYPE_LOGIN;
    vodlink_destroy(link);
    {
        vodlinks_guard held;
        EXPECT_EQ(vodlink_of_cookie(held, cookie), nullptr);
    }
    EXPECT_EQ(vodlink_create(), link);
    vodlinks_guard held;
    EXPECT_EQ(vodlink_of_cookie(held, cookie), nullptr);
    EXPECT_NE(vodlink_cookie(link), cookie);
}

TEST_F(LinkTableTest, AnythingElseIsNoCookie)
{
    EXPECT_TRUE(rc::check([](int64_t value) {
        vodlinks_guard held;
        RC_ASSERT(vodlink_of_cookie(held, static_cast<handle_orb>(value)) == nullptr);
        RC_ASSERT(vodlink_cookie_insert_abstime(static_cast<handle_orb>(value)) == 0);
    }));
    vodlinks_guard held;
    EXPECT_EQ(vodlink_of_cookie(held, INVALID_HANDLE_ORB), nullptr);
    EXPECT_EQ(vodlink_of_cookie(held, reinterpret_cast<handle_orb>(&s_vodlinks[0])), nullptr);
}

TEST_F(LinkTableTest, InsertAbstimeIsAnsweredForTheLinkThatAskedForIt)
{
    VodLink *link = vodlink_create();
    vodlink_set_insert_abstime(link, 1);
    handle_orb cookie = vodlink_cookie(link);
    EXPECT_EQ(vod_player_usr_abstime(cookie), 1);
    link->type = VOD_LINK_TYPE_LOGIN;
    vodlink_destroy(link);
    vodlink_create();
    EXPECT_EQ(vod_player_usr_abstime(cookie), 0);
    EXPECT_EQ(vod_player_usr_abstime(0), 0);
}

TEST_F(LinkTableTest, EightThreadsDestroyALinkOnce)
{
    for (int round = 0; round < 200; round++) {
        VodLink *link = take_active(VOD_LINK_TYPE_HARDPLAY, VOD_LINK_PLAY_NUM, 77);
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; i++)
            threads.emplace_back([link] { vodlink_destroy(link); });
        for (std::thread &thread : threads)
            thread.join();
        ASSERT_EQ(s_facade.closes, round + 1);
        ASSERT_EQ(count(VOD_LINK_PLAY_NUM), 0u);
        ASSERT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    }
}

TEST_F(LinkTableTest, CountersStayTrueOverRandomLives)
{
    struct life {
        VodLink *link;
        VOD_LINK_TYPE counter;
    };
    EXPECT_TRUE(rc::check([this](const std::vector<uint8_t> &steps) {
        vodlinks_clear();
        std::vector<life> lives;
        for (uint8_t step : steps) {
            if (step % 3 != 0 || lives.empty()) {
                bool playback = step % 2 == 0;
                VOD_LINK_TYPE counter = playback ? VOD_LINK_PLAY_NUM : VOD_LINK_DOWN_NUM;
                lives.push_back(
                    {take_active(playback ? VOD_LINK_TYPE_HARDPLAY : VOD_LINK_TYPE_DOWNLOAD, counter, 7), counter});
            } else {
                vodlink_destroy(lives[step % lives.size()].link);
                lives.erase(lives.begin() + step % static_cast<long>(lives.size()));
            }
            RC_ASSERT(count(VOD_LINK_PLAY_NUM) + count(VOD_LINK_DOWN_NUM) == lives.size());
            RC_ASSERT(count(VOD_LINK_ACTTVE_NUM) == lives.size());
            RC_ASSERT(taken_slots() == lives.size());
        }
    }));
}
