#include "tests/support/manual_clock.h"
#include "tests/vod/vod_fixture.h"

#include "comm_func/comm_func.h"

#include <cstring>

TEST_F(PlaybackRequestTest, ChecksItsArguments)
{
    client_package request = hardplay_package({});
    vod_deal_event_req_res_hardplay(nullptr, request.get());
    EXPECT_EQ(log.count("mslink == NULL", LOG_REFUSE), 1u);
    vod_deal_event_req_res_hardplay(&mslink, nullptr);
    EXPECT_EQ(log.count("package == NULL", LOG_REFUSE), 1u);
    client_package get = get_package();
    vod_deal_event_req_res_hardplay(&mslink, get.get());
    EXPECT_EQ(log.count("package->head->code = 12", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(PlaybackRequestTest, FillsTheLinkAndSendsNothingYet)
{
    hardplay_wish wish;
    wish.insert_abstime = 1;
    read(mslink, hardplay_package(wish));
    VodLink *link = link_of(mslink);
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link->type, VOD_LINK_TYPE_HARDPLAY);
    EXPECT_EQ(link->status, VOD_LINK_STATUS_REQ);
    EXPECT_EQ(link->module, CLIENT_MODULE);
    EXPECT_EQ(link->mslink, &mslink);
    EXPECT_EQ(link->insert_abstime, 1);
    EXPECT_EQ(link->vod_file_type, 0);
    EXPECT_EQ(link->p_data.play_d.play_id, 77);
    EXPECT_EQ(link->p_data.play_d.client_buf, 0u);
    EXPECT_STREQ(link->p_data.play_d.play_filename, wish.filename.c_str());
    EXPECT_EQ(link->p_data.play_d.start, commtime_to_time_t(&wish.start));
    EXPECT_EQ(link->p_data.play_d.end, commtime_to_time_t(&wish.end));
    EXPECT_TRUE(fake_facade_called("open_file(" + wish.filename + ")"));
    EXPECT_EQ(s_facade.usr, vodlink_cookie(link));
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 1u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
}

TEST_F(PlaybackRequestTest, AHeadDeliveredDuringTheOpenIsAcceptedWithTheTotals)
{
    s_facade.during_open = [](OnRecvOriginalDataFunc func, handle_orb usr) {
        std::string head(88, 'H');
        func(77, VIDEO_DATA_TYPE_FILEHEAD, head.data(), 88, usr);
    };
    read(mslink, hardplay_package({}));
    EXPECT_EQ(mslink.last().code(), MP_CODE_ACCEPT_RES);
    EXPECT_EQ(mslink.last().attr(1), u32(1500) + u32(60) + u32(0) + u32(0));
    EXPECT_TRUE(fake_facade_called("total_time(77)"));
    EXPECT_EQ(vodlink_status(link_of(mslink)), VOD_LINK_STATUS_ACCEPTING);
}

TEST_F(PlaybackRequestTest, ANameOf259BytesOpensAndOf260IsRejected)
{
    hardplay_wish wish;
    wish.filename = std::string(259, 'n');
    read(mslink, hardplay_package(wish));
    EXPECT_TRUE(fake_facade_called("open_file(" + wish.filename + ")"));
    MsLink other;
    wish.filename = std::string(260, 'n');
    read(other, hardplay_package(wish));
    EXPECT_EQ(other.last().attr(0), u32(0x1000027));
    EXPECT_EQ(log.count("!strlen(hardplay_info->info.filename) >= MAX_PATH ", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 1u);
    other.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(other, hardplay_package(wish));
    EXPECT_EQ(log.count("!strlen(hardplay_info->info.filename) >= MAX_PATH ", LOG_REFUSE), 1u)
        << "the line follows a successful reject only";
}

TEST_F(PlaybackRequestTest, ANameWithoutZeroEndsWithItsAttribute)
{
    hardplay_wish wish;
    std::string info = hardplay_info(wish);
    info.pop_back();
    client_package package(MP_CODE_REQUEST_RES);
    for (int i = 0; i < 5; i++)
        package.attr(MP_ATTR_DEVICE_ID, std::string(60, 'x'));
    read(mslink, package.attr(MP_ATTR_RES_INFO, info));
    EXPECT_TRUE(fake_facade_called("open_file(" + wish.filename + ")"));
}

TEST_F(PlaybackRequestTest, AShortResourceInformationIsDropped)
{
    for (size_t length = 2; length < 44; length++) {
        client_package package(MP_CODE_REQUEST_RES);
        for (int i = 0; i < 5; i++)
            package.attr(MP_ATTR_DEVICE_ID, std::string(60, 'x'));
        read(mslink, package.attr(MP_ATTR_RES_INFO, hardplay_info({}).substr(0, length)));
    }
    EXPECT_EQ(log.count("hardplay_info == NULL", LOG_REFUSE), 42u);
    EXPECT_EQ(mslink.sent_count(), 0u);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(PlaybackRequestTest, WithoutSlotItIsRejected)
{
    vodlinks_set_max_num(0);
    read(mslink, hardplay_package({}));
    EXPECT_EQ(log.count("vodlink == NULL", LOG_REFUSE), 1u);
    expect_rejected(0x1000008);
    expect_nothing_left();
}

TEST_F(PlaybackRequestTest, TheThirdPlaybackIsRejectedWhenMaxNumIsTwo)
{
    vodlinks_set_max_num(2);
    MsLink first, second;
    read(first, hardplay_package({}));
    read(second, hardplay_package({}));
    read(mslink, hardplay_package({}));
    expect_rejected(0x1000008);
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 2u);
}

TEST_F(PlaybackRequestTest, AFileThatDoesNotOpenIsRejectedAndLeavesNothing)
{
    s_facade.open_result = INVALID_HANDLE_ORB;
    s_facade.open_errno = 0x100002f;
    read(mslink, hardplay_package({}));
    expect_rejected(0x1000028);
    EXPECT_EQ(log.count("playerfd == -1", LOG_REFUSE), 1u);
    EXPECT_TRUE(mslink.destroyed);
    expect_nothing_left();
}

TEST_F(PlaybackRequestTest, SliceModesByFileAlsoOpenByName)
{
    for (uint16_t mode : std::initializer_list<uint16_t>{1, 65533}) {
        MsLink other;
        hardplay_wish wish;
        wish.mode = mode;
        read(other, hardplay_package(wish));
        EXPECT_EQ(fake_facade_last(), "open_file(" + wish.filename + ")");
    }
}

TEST_F(PlaybackRequestTest, DeviceInformationStandsInForItsName)
{
    hardplay_wish wish;
    wish.filename = "dvc_info";
    wish.data = std::string(251, '\0');
    std::string json = "{\"device\":\"" + std::string(300, 'd') + "\"}";
    client_package package = hardplay_package(wish);
    package.attr(MP_ATTR_DATA, std::string(250, 'x')); // its length is 254: too short
    package.attr(MP_ATTR_DATA, json);
    read(mslink, package);
    EXPECT_EQ(fake_facade_last(), "open_file(" + json + ")");
    EXPECT_EQ(log.count("json_info_len <= 0", LOG_REFUSE), 1u) << "the empty one was passed over";
    EXPECT_STREQ(link_of(mslink)->p_data.play_d.play_filename, "dvc_info");
}

TEST_F(PlaybackRequestTest, DeviceInformationOfTheSmallestLengthCounts)
{
    hardplay_wish wish;
    wish.filename = "dvc_info";
    wish.data = std::string(251, 'j'); // its length is 255
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(fake_facade_last(), "open_file(" + wish.data + ")");
}

// ---- By time --------------------------------------------------------------------------------------------------------

TEST_F(PlaybackRequestTest, AnEmptyNameIsAPlaybackByTime)
{
    hardplay_wish wish = by_time();
    wish.file_type = 9;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(fake_facade_last(), "open_file_by_time(DEVICE-7,3,9)");
    EXPECT_EQ(std::memcmp(&s_facade.start, &wish.start, sizeof(CommTime)), 0);
    EXPECT_EQ(std::memcmp(&s_facade.end, &wish.end, sizeof(CommTime)), 0);
    EXPECT_EQ(link_of(mslink)->vod_file_type, 1);
    EXPECT_EQ(link_of(mslink)->p_data.play_d.play_id, 77);
}

TEST_F(PlaybackRequestTest, WithFewerThanEightAttributesAnEmptyNameIsOpenedAsAFile)
{
    hardplay_wish wish = by_time();
    client_package package(MP_CODE_REQUEST_RES);
    for (int i = 0; i < 5; i++)
        package.attr(MP_ATTR_DEVICE_ID, std::string(60, 'x'));
    package.attr(MP_ATTR_RES_INFO, hardplay_info(wish)).attr(MP_ATTR_INSERT_ABSTIME, u32(0));
    read(mslink, package);
    EXPECT_EQ(fake_facade_last(), "open_file()");
}

TEST_F(PlaybackRequestTest, ADeviceIdentifierOfSixtyBytesWithoutZeroIsCutThere)
{
    hardplay_wish wish = by_time();
    wish.data = std::string(80, 'D');
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(fake_facade_last(), "open_file_by_time(" + std::string(60, 'D') + ",3,0)");
}

TEST_F(PlaybackRequestTest, TheMostRecentSecondsEndNow)
{
    manual_clock clock(1'770'000'000);
    hardplay_wish wish = by_time();
    wish.start = {65535, 0, 0, 0, 0, 90};
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(commtime_to_time_t(&s_facade.start), 1'770'000'000 - 90);
    EXPECT_EQ(commtime_to_time_t(&s_facade.end), 1'770'000'000);
}

TEST_F(PlaybackRequestTest, TheStartClusterIsHandedToThePlayer)
{
    hardplay_wish wish = by_time();
    wish.start_cluster = 4096;
    s_facade.set_result = 0;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(fake_facade_last(), "set_pos(77,4096)");
    EXPECT_EQ(log.count("!vodplay_set_pos", LOG_REFUSE), 1u);
    EXPECT_EQ(link_of(mslink)->p_data.play_d.play_id, 77);
}

TEST_F(PlaybackRequestTest, SlicesByTimeCarryTheMode)
{
    read(mslink, hardplay_package(by_time(25)));
    EXPECT_EQ(fake_facade_last(), "slice_by_time(DEVICE-7,3,0,25)");
    EXPECT_EQ(log.count("iframes times :25", LOG_TRACE), 1u);
}

TEST_F(PlaybackRequestTest, AFailedOpenByTimeIsRejectedWithThePlayersReason)
{
    struct row {
        uint32_t error, code;
        const char *text;
    };
    for (row open : {row{0x1000007, 0x1000007, "ORB_ERROR_VS_FILE_OPEN 1000007"},
                     row{0x100002f, 0x100002f, "ORB_ERROR_VS_FILE_OPEN 100002f"},
                     row{0x1000009, 0x1000028, "ORB_ERROR_VS_FILE_OPEN 1000028"},
                     row{0, 0x1000028, "ORB_ERROR_VS_FILE_OPEN 1000028"}}) {
        MsLink other;
        os_set_errno(0x1000007); // of an earlier call: no reason of this one
        log.clear();
        s_facade.open_result = INVALID_HANDLE_ORB;
        s_facade.open_errno = open.error;
        read(other, hardplay_package(by_time()));
        EXPECT_EQ(other.last().attr(0), u32(open.code)) << open.text;
        EXPECT_EQ(log.count(open.text, LOG_REFUSE), 1u);
        EXPECT_TRUE(other.destroyed);
        expect_nothing_left();
    }
}

TEST_F(PlaybackRequestTest, StreamStorageTakesDeviceAndChannelFromTheName)
{
    s_facade.storage_type = 1;
    hardplay_wish wish = by_time();
    wish.filename = "HOST-A_12_2026010203040500_9.ss";
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(fake_facade_last(), "open_file_by_time(HOST-A,12,0)");
}
