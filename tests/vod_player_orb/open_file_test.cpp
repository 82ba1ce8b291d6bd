#include "tests/support/environment.h"
#include "tests/vod_player_orb/orb_fixture.h"

#include <cstdlib>
#include <optional>

static std::string name_of(size_t bytes)
{
    // Folders keep each part below what a file system takes.
    std::string name = "folder/";
    return name + std::string(bytes - name.size(), 'n');
}

TEST_F(OrbPlayerTest, OpenStartsPlayingAndDeliversTheHeader)
{
    EXPECT_EQ(open(), 1);
    std::vector<received> got = receiver.wait_for(1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].type, VIDEO_DATA_TYPE_FILEHEAD);
    EXPECT_EQ(got[0].data, std::string(88, '\x11'));
    EXPECT_EQ(got[0].producer, player_handle(orb()));
    EXPECT_EQ(orb()->usr, receiver.usr());
}

TEST_F(OrbPlayerTest, MissingNameIsRefused)
{
    EXPECT_EQ(player->func->vod_player_open_file(player, nullptr, data_receiver::callback, 0), 0);
    EXPECT_EQ(log.count("filename == NULL", LOG_REFUSE), 1u);
    EXPECT_EQ(status(), VOD_PLAYER_PLAYING_STATUS_NONE);
}

TEST_F(OrbPlayerTest, NameOf259BytesOpensAnd260IsRefused)
{
    EXPECT_EQ(open(name_of(260)), 0);
    EXPECT_EQ(log.count("strlen(filename) >= MAX_PATH--strlen(filename) = 260", LOG_REFUSE), 1u);
    EXPECT_TRUE(fake.record().filters.empty());
    EXPECT_EQ(open(name_of(259)), 1);
    // The library's record takes 255 of them.
    EXPECT_EQ(std::string(fake.record().filters.back().cFileName), name_of(259).substr(0, 255));
}

TEST_F(OrbPlayerTest, NameIsTestedBeforeTheStatus)
{
    player->status = VOD_PLAYER_PLAYING_STATUS_PLAY;
    EXPECT_EQ(open(name_of(300)), 0);
    EXPECT_EQ(log.count("strlen(filename) >= MAX_PATH--strlen(filename) = 300"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
    player->status = VOD_PLAYER_PLAYING_STATUS_NONE;
}

TEST_F(OrbPlayerTest, OpenPlayerIsNotOpenedAgain)
{
    open_to_header();
    log.clear();
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(log.count("player->status != VOD_PLAYER_PLAYING_STATUS_NONE-------player->status = 2", LOG_REFUSE), 1u);
    EXPECT_EQ(fake.open_handles(), 1);
}

TEST_F(OrbPlayerTest, NameThatIsNoUtf8IsRefused)
{
    EXPECT_EQ(open("bad\xFF\xFE"), 0);
    EXPECT_EQ(log.count("os_code_convert <= 0", LOG_REFUSE), 1u);
    EXPECT_EQ(open(""), 0);
    EXPECT_EQ(log.count("os_code_convert <= 0", LOG_REFUSE), 2u);
    EXPECT_TRUE(fake.record().filters.empty());
}

TEST_F(OrbPlayerTest, NameReachesTheLibraryInGb18030)
{
    EXPECT_EQ(open("\xE5\xBD\x95.orb"), 1); // U+5F55
    EXPECT_EQ(std::string(fake.record().filters.back().cFileName), "\xC2\xBC.orb");
}

TEST_F(OrbPlayerTest, LibraryIsAskedForTheWholeFile)
{
    EXPECT_EQ(open(), 1);
    fake_avfilter_record record = fake.record();
    ASSERT_EQ(record.filters.size(), 1u);
    EXPECT_EQ(record.create_kinds[0], 0);
    EXPECT_EQ(record.create_sizes[0], 424);
    EXPECT_EQ(record.filters[0].iSize, 424);
    EXPECT_EQ(record.filters[0].iCreateType, 1);
    EXPECT_EQ(record.filters[0].iUsrFlag, 0);
    EXPECT_EQ(record.filters[0].tFilterMem.pMalloc, nullptr);
    EXPECT_EQ(record.filters[0].tFileOperate.pfOpen, nullptr);
    EXPECT_EQ(record.filters[0].pfOsOpen, nullptr);
    EXPECT_STREQ(record.filters[0].cFileName, "dev_01_20240305070809_0.orb");
}

static std::string text_of(const AVUtcTime &time)
{
    char text[64];
    std::snprintf(text, sizeof text, "%d-%d-%d %d:%d:%d", time.usYear, time.usMonth, time.usDay, time.usHour,
                  time.usMinute, time.usSecond);
    return text;
}

TEST_F(OrbPlayerTest, FileTimesComeFromTheNameAndTheModificationTime)
{
    std::string name = recording();
    os_file_info info = {};
    ASSERT_TRUE(os_file_stat(name.c_str(), 0, &info));
    VOD_TIME modified = {};
    time_t_to_commtime(info.modified_seconds, &modified);

    EXPECT_EQ(open(name), 1);
    AVOrbFileFilter filter = fake.record().filters.back();
    EXPECT_EQ(text_of(filter.tFileStartTime), "2024-3-5 7:8:9");
    EXPECT_EQ(text_of(filter.tPlayStartTime), "2024-3-5 7:8:9");
    EXPECT_EQ(text_of(filter.tFileStopTime), text_of(utc_time_of(modified)));
    EXPECT_EQ(text_of(filter.tPlayStopTime), text_of(utc_time_of(modified)));
}

TEST_F(OrbPlayerTest, FileWithoutUnderscoreOpensWithZeroTimes)
{
    EXPECT_EQ(open(recording("plain.orb")), 1);
    EXPECT_EQ(log.count("error index < 2 ", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("vod_orbplayer_db_find_file_time failed", LOG_REFUSE), 1u);
    AVOrbFileFilter filter = fake.record().filters.back();
    EXPECT_EQ(text_of(filter.tFileStartTime), "0-0-0 0:0:0");
    EXPECT_EQ(text_of(filter.tFileStopTime), "0-0-0 0:0:0");
    EXPECT_EQ(text_of(filter.tPlayStartTime), "0-0-0 0:0:0");
    EXPECT_EQ(text_of(filter.tPlayStopTime), "0-0-0 0:0:0");
}

TEST_F(OrbPlayerTest, FileThatCannotBeLookedAtOpensWithZeroTimes)
{
    EXPECT_EQ(open("missing_20240305070809_0.orb"), 1);
    EXPECT_EQ(log.count("stat failed missing_20240305070809_0.orb", LOG_SYSTEM), 1u);
    EXPECT_EQ(log.count("vod_orbplayer_db_find_file_time failed", LOG_REFUSE), 1u);
    EXPECT_EQ(text_of(fake.record().filters.back().tFileStartTime), "0-0-0 0:0:0");
}

struct named_time {
    const char *name, *start;
};

TEST_F(OrbPlayerTest, StartIsTheNextToLastPieceOfTheName)
{
    const named_time rows[] = {
        {"a_20240305070809_0.orb", "2024-3-5 7:8:9"},
        {"20240305070809_0.orb", "2024-3-5 7:8:9"},
        {"a_b_c_20231231235958_x.orb", "2023-12-31 23:59:58"},
        {"rec\\dev_1\\20240305070809_0.orb", "1-0-0 0:0:0"}, // the folder is part of the piece
        {"rec_20240305070809\\file.orb", "0-0-0 0:0:0"},
        {"a_2024030507_0.orb", "2024-3-5 7:0:0"},
        {"a_202403050708091112_0.orb", "2024-3-5 7:8:9"},
        {"a_words_0.orb", "0-0-0 0:0:0"},
    };
    for (const named_time &row : rows) {
        folder.write(row.name, "recording");
        VOD_TIME start = {}, stop = {};
        EXPECT_EQ(vod_orbplayer_file_find_time(row.name, &start, &stop), 1) << row.name;
        EXPECT_EQ(text_of(utc_time_of(start)), row.start) << row.name;
        EXPECT_NE(stop.year, 0) << row.name;
    }
}

class OrbZoneTest : public testing::TestWithParam<std::pair<const char *, int>> {
protected:
    ~OrbZoneTest() override
    {
        environment_zone(before_ ? before_->c_str() : nullptr);
    }

private:
    static std::optional<std::string> zone_now()
    {
        const char *zone = getenv("TZ");
        return zone == nullptr ? std::nullopt : std::optional<std::string>(zone);
    }
    const std::optional<std::string> before_ = zone_now();
};

TEST_P(OrbZoneTest, ZoneIsTheWholeHoursEastOfUtc)
{
    environment_zone(GetParam().first);
    EXPECT_EQ(local_zone_hours(), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Zones, OrbZoneTest,
                         testing::Values(std::pair{"UTC0", 0}, std::pair{"CST-8", 8}, std::pair{"EST5", -5},
                                         std::pair{"IST-5:30", 5}, std::pair{"NST3:30", -3}));

// ---- Failures leave the player as it was ----------------------------------------------------------------------------

class OrbOpenFailureTest : public OrbPlayerTest {
protected:
    void expect_untouched()
    {
        EXPECT_EQ(status(), VOD_PLAYER_PLAYING_STATUS_NONE);
        EXPECT_EQ(fake.open_handles(), 0);
        EXPECT_EQ(orb()->file_info.thread_is_active, 0);
        EXPECT_EQ(orb()->file_info.thread_id.impl, nullptr);
        EXPECT_EQ(orb()->file_info.mutex_is_active, 0);
        EXPECT_EQ(orb()->file_info.mutex_id.impl, nullptr);
        EXPECT_EQ(orb()->file_info.avfilter_handler, nullptr);
        EXPECT_EQ(orb()->func, nullptr);
        EXPECT_EQ(orb()->usr, 0);
        EXPECT_TRUE(receiver.all().empty());
    }
    void expect_opens_after_all()
    {
        fake.reset();
        EXPECT_EQ(open(), 1);
        EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
    }
};

TEST_F(OrbOpenFailureTest, LibraryThatDoesNotOpenTheFile)
{
    fake.script([](fake_avfilter_script &script) { script.failing_creates = {1}; });
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(log.count("AVFilterCreate failed", LOG_REFUSE), 1u);
    expect_untouched();
    expect_opens_after_all();
}

TEST_F(OrbOpenFailureTest, HeaderThatCannotBeRead)
{
    fake.script([](fake_avfilter_script &script) { script.header_results = {-1}; });
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(log.count("AVFilterGetInfo failed", LOG_REFUSE), 1u);
    EXPECT_EQ(fake.record().header_sizes, std::vector<int>{88});
    EXPECT_EQ(fake.record().checks, 0);
    expect_untouched();
    expect_opens_after_all();
}

TEST_F(OrbOpenFailureTest, HeaderThatIsNotValid)
{
    fake.script([](fake_avfilter_script &script) { script.check_result = 1; });
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(log.count("AVFilterCheckValidData failed", LOG_REFUSE), 1u);
    EXPECT_EQ(fake.record().checked, std::vector<uint8_t>(88, 0x11));
    expect_untouched();
    expect_opens_after_all();
}

TEST_F(OrbPlayerTest, HeaderThatBeginsWithFFSkipsTheCheck)
{
    fake.script([](fake_avfilter_script &script) {
        script.header[0] = 0xFF;
        script.check_result = 1;
    });
    EXPECT_EQ(open(), 1);
    EXPECT_EQ(fake.record().checks, 0);
}

TEST_F(OrbPlayerTest, HeaderThatBeginsWithFEIsChecked)
{
    fake.script([](fake_avfilter_script &script) { script.header[0] = 0xFE; });
    EXPECT_EQ(open(), 1);
    EXPECT_EQ(fake.record().checks, 1);
}

// Each fallible call of an open fails once. Only the two buffers may end the process.
TEST_F(OrbOpenFailureTest, AnyFailingCallRefusesTheOpenOrChangesNothing)
{
    static std::atomic<int> exits;
    exits = 0;
    os_exit_install([](int) { exits++; });
    bool was_reached = true;
    int refusals = 0;
    for (uint32_t n = 1; was_reached; n++) {
        fake.reset();
        destroy();
        player = create_player();
        os_fault_arm(n);
        int result = open();
        if (result) {
            EXPECT_TRUE(eventually([&] {
                return status() == VOD_PLAYER_PLAYING_STATUS_HEADER_SENT || shared_load(player->is_play_end) ||
                       exits != 0;
            })) << n;
        }
        was_reached = os_fault_calls() >= n;
        os_fault_disarm();
        refusals += !result;
        if (!result) {
            expect_untouched();
        } else {
            EXPECT_EQ(vod_orbplayer_close(player), 1) << n;
        }
        EXPECT_EQ(fake.open_handles(), 0) << n;
        exits = 0;
        ASSERT_LT(n, 60u);
        receiver.clear();
    }
    os_exit_install(nullptr);
    // Conversion, library, header, lock, wake, thread at least.
    EXPECT_GE(refusals, 6);
}
