#include "tests/vod/vod_fixture.h"

#include "win32_vod/vod_analyze.h"

// ---- Analysis -------------------------------------------------------------------------------------------------------

TEST_F(PlaybackRequestTest, AnalysisStartsTheEngineOnceOnDemand)
{
    hardplay_wish wish = by_time(65535);
    read(mslink, hardplay_package(wish));
    MsLink other;
    read(other, hardplay_package(wish));
    EXPECT_EQ(s_fake_vca.startups, 1);
    EXPECT_EQ(fake_facade_last(), "analyze_by_time(DEVICE-7,3,0)");
}

TEST_F(PlaybackRequestTest, WithoutEngineAnalysisIsRejectedBeforeALinkExists)
{
    s_fake_vca.startup_result = 1;
    for (uint16_t mode : std::initializer_list<uint16_t>{65534, 65535}) {
        read(mslink, hardplay_package(by_time(mode)));
        expect_rejected(0x100003d);
        expect_nothing_left();
    }
    EXPECT_EQ(log.count("vca_startup fail", LOG_REFUSE), 2u);
}

static std::string rules_attr(uint16_t type, uint16_t size, const std::string &rules)
{
    return u16(type) + u16(size) + rules;
}

TEST_F(PlaybackRequestTest, NewRulesAreHandedOn)
{
    client_package package = hardplay_package(by_time(65534));
    package.attr(MP_ATTR_RULES, rules_attr(4, 72, std::string(72, 'r')));
    read(mslink, package);
    EXPECT_EQ(fake_facade_last(), "analyze_by_time_new_rule(DEVICE-7,3,4,72)");
    MsLink other;
    hardplay_wish wish;
    wish.mode = 65534;
    client_package by_file = hardplay_package(wish);
    by_file.attr(MP_ATTR_RULES, rules_attr(4, 72, std::string(72, 'r')));
    read(other, by_file);
    EXPECT_EQ(fake_facade_last(), "analyze_by_file_new_rule(" + wish.filename + ",4,72)");
}

TEST_F(PlaybackRequestTest, MissingNewRulesLeaveAHalfMadeLinkWithoutReply)
{
    hardplay_wish by_file;
    by_file.mode = 65534;
    for (const hardplay_wish &wish : {by_time(65534), by_file}) {
        MsLink other;
        vodlinks_clear();
        log.clear();
        read(other, hardplay_package(wish));
        EXPECT_EQ(log.count("!vod_deal_event_get_analyse_data", LOG_REFUSE), 1u);
        EXPECT_EQ(log.count("rules_size <= 0", LOG_REFUSE), 1u);
        EXPECT_EQ(other.sent_count(), 0u);
        VodLink *link = link_of(other);
        ASSERT_NE(link, nullptr);
        EXPECT_EQ(link->status, VOD_LINK_STATUS_REQ);
        EXPECT_EQ(link->p_data.play_d.play_id, INVALID_HANDLE_ORB);
        disconnect(other);
        EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 1u) << "stays one too high";
        EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
        EXPECT_EQ(taken_slots(), 0u);
    }
}

TEST_F(PlaybackRequestTest, RuleListsAreReadWithTheirBounds)
{
    struct row {
        std::string value;
        const char *call; // empty: refused, nothing is opened and nothing left
    };
    std::string one(sizeof(QueryRule), 'r');
    auto rules = [&](int count, int present) {
        std::string value = u32(static_cast<uint32_t>(count));
        for (int i = 0; i < present; i++)
            value += one;
        return value;
    };
    for (const row &list :
         {row{rules(1, 1), "analyze_by_time(DEVICE-7,3,1)"}, row{rules(8, 8), "analyze_by_time(DEVICE-7,3,8)"},
          row{rules(9, 9), ""}, row{rules(2, 1), ""}, row{rules(0x7fffffff, 1), ""},
          row{rules(-1, 1), "analyze_by_time(DEVICE-7,3,0)"}, row{"abc", "analyze_by_time(DEVICE-7,3,0)"}}) {
        MsLink other;
        vodlinks_clear();
        s_facade.calls.clear();
        client_package package = hardplay_package(by_time(65535));
        package.attr(MP_ATTR_DATA, list.value);
        read(other, package);
        EXPECT_EQ(fake_facade_last(), list.call) << list.value.size();
        bool refused = *list.call == '\0';
        EXPECT_EQ(other.sent_count(), refused ? 1u : 0u) << list.value.size();
        EXPECT_EQ(taken_slots(), refused ? 0u : 1u) << list.value.size();
        EXPECT_EQ(count(VOD_LINK_PLAY_NUM), refused ? 0u : 1u) << list.value.size();
        if (refused) {
            EXPECT_EQ(other.last().attr(0), u32(0x1000028));
        }
    }
}

TEST_F(PlaybackRequestTest, RuleListByFileMustNotBeEmpty)
{
    hardplay_wish wish;
    wish.mode = 65535;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(log.count("rules_count <= 0", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
    EXPECT_EQ(taken_slots(), 1u);
    MsLink other;
    wish.data = u32(1) + std::string(sizeof(QueryRule), 'r');
    read(other, hardplay_package(wish));
    EXPECT_EQ(fake_facade_last(), "analyze_by_file(1," + wish.filename + ")");
}

TEST_F(PlaybackRequestTest, RuleListByFileHasRoomForEight)
{
    for (uint32_t rules : {8u, 9u}) {
        MsLink other;
        vodlinks_clear();
        hardplay_wish wish;
        wish.mode = 65535;
        wish.data = u32(rules) + std::string(rules * sizeof(QueryRule), 'r');
        read(other, hardplay_package(wish));
        EXPECT_EQ(s_facade.opens, 1) << "the ninth is refused";
        EXPECT_EQ(other.sent_count(), rules == 8 ? 0u : 1u);
        EXPECT_EQ(taken_slots(), rules == 8 ? 1u : 0u);
        EXPECT_EQ(count(VOD_LINK_PLAY_NUM), rules == 8 ? 1u : 0u);
    }
    EXPECT_EQ(log.count("playerfd == -1", LOG_REFUSE), 1u);
}

TEST_F(PlaybackRequestTest, AnalysisByFileThatDoesNotOpenIsNotChecked)
{
    hardplay_wish wish;
    wish.mode = 65535;
    wish.data = u32(1) + std::string(sizeof(QueryRule), 'r');
    s_facade.open_result = INVALID_HANDLE_ORB;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.sent_count(), 0u);
    EXPECT_EQ(taken_slots(), 1u);
}

TEST_F(PlaybackRequestTest, AnalyseDataIsBoundedByWhatIsThere)
{
    int type = 0, size = 0;
    std::vector<uint8_t> out(ANALYSE_DATA_MAX);
    auto read_rules = [&](const std::string &value) {
        client_package package = hardplay_package({});
        package.attr(MP_ATTR_RULES, value);
        return vod_deal_event_get_analyse_data(package.get(), &type, out.data(), &size);
    };
    EXPECT_EQ(read_rules(rules_attr(2, 11, std::string(20, 'r'))), 0) << "11 is too short";
    EXPECT_EQ(read_rules(rules_attr(2, 12, std::string(20, 'r'))), 1);
    EXPECT_EQ(type, 2);
    EXPECT_EQ(size, 12);
    EXPECT_EQ(read_rules(rules_attr(2, 65535, std::string(20, 'r'))), 1);
    EXPECT_EQ(size, 20) << "what is there";
    EXPECT_EQ(read_rules(rules_attr(2, 65535, "")), 0);
    EXPECT_EQ(read_rules("ab"), 0);
    EXPECT_EQ(vod_deal_event_get_analyse_data(nullptr, &type, out.data(), &size), 0);
    EXPECT_EQ(
        log.count("package == NULL || rules_type == NULL || rules_info == NULL || rules_size == NULL", LOG_REFUSE), 1u);
}

// ---- Names ----------------------------------------------------------------------------------------------------------

TEST_F(PlaybackRequestTest, DeviceIdentifierIsReadOutOfAName)
{
    char id[MP_MAX_DEVID_LEN + 1] = {};
    unsigned short channel = 0;
    // Behind the identifier: '_', two digits, '_', and sixteen more characters up to the last '_'.
    EXPECT_EQ(vod_get_dev_id_from_file_name("HOST_07_2026010203040506_x.ss", id, &channel), 1);
    EXPECT_STREQ(id, "HOST");
    EXPECT_EQ(channel, 7);
    EXPECT_EQ(vod_get_dev_id_from_file_name(nullptr, id, &channel), 0);
    EXPECT_EQ(vod_get_dev_id_from_file_name("x", nullptr, &channel), 0);
    EXPECT_EQ(log.count("file_name == NULL || dev_id == NULL", LOG_REFUSE), 2u);
    EXPECT_EQ(vod_get_dev_id_from_file_name("", id, &channel), 0);
    EXPECT_EQ(log.count("strlen(file_name) == 0", LOG_SYSTEM), 1u);
    EXPECT_EQ(vod_get_dev_id_from_file_name("nounderscore", id, &channel), 0);
    EXPECT_EQ(vod_get_dev_id_from_file_name("_first", id, &channel), 0);
    EXPECT_EQ(log.count("i == 0", LOG_REFUSE), 2u);
    EXPECT_EQ(vod_get_dev_id_from_file_name("short_x", id, &channel), 0);
    EXPECT_EQ(log.count("unright ss filename :short_x", LOG_REFUSE), 1u);
    std::string tail = "_07_2026010203040506_x.ss";
    EXPECT_EQ(vod_get_dev_id_from_file_name((std::string(59, 'h') + tail).c_str(), id, &channel), 1);
    EXPECT_EQ(vod_get_dev_id_from_file_name((std::string(60, 'h') + tail).c_str(), id, &channel), 0);
    EXPECT_EQ(log.count("dev_id_len too long", LOG_REFUSE), 1u);
    EXPECT_EQ(vod_get_dev_id_from_file_name("HOST_0712026010203040506_x.ss", id, &channel), 0);
}
