#include "vod_player_orb/insert_abstime.h"

#include "comm_func/orb_userdata.h"
#include "tests/vod_player_orb/orb_fixture.h"
#include "vod_player/usr_abstime.h"

class OrbAbstimeTest : public OrbPlayerTest {
protected:
    void TearDown() override
    {
        vod_player_set_usr_abstime_func(nullptr);
        OrbPlayerTest::TearDown();
    }
    // A key frame: its 32-byte header, the message when there is one, a slice.
    static std::vector<uint8_t> frame(uint32_t abs_time)
    {
        static const uint8_t slice[] = {0, 0, 0, 1, 0x65, 0x88, 0x80, 0x10, 0x20, 0x30};
        std::vector<uint8_t> bytes(32);
        if (abs_time != 0) {
            bytes.resize(32 + 24);
            make_h264_abs_time_sei(bytes.data() + 32, abs_time);
        }
        bytes.insert(bytes.end(), std::begin(slice), std::end(slice));
        wire_store(bytes.data() + 4, static_cast<uint32_t>(bytes.size() - 32));
        wire_store(bytes.data() + 20, static_cast<uint32_t>(bytes.size() - 32));
        return bytes;
    }
    void scan_finds(std::deque<std::vector<uint8_t>> frames)
    {
        fake.script([&](fake_avfilter_script &script) { script.scan_blocks = std::move(frames); });
    }
    AVOrbFileFilter filter = avfilter_for("a.orb");
};

TEST_F(OrbAbstimeTest, FirstFrameWithATimeEndsTheSearch)
{
    scan_finds({frame(0), frame(1'700'000'000), frame(0)});
    filter.iUsrFlag = 1;
    EXPECT_EQ(check_iframe_abstime_exist(&filter), 1);
    EXPECT_EQ(filter.iUsrFlag, 0);
    EXPECT_EQ(fake.record().scan_reads, 2);
    EXPECT_EQ(fake.record().filters.at(0).iUsrFlag, 0);
    EXPECT_EQ(fake.record().create_sizes.at(0), 424);
    EXPECT_EQ(fake.open_handles(), 0);
}

TEST_F(OrbAbstimeTest, UnknownCodingHasNoTime)
{
    scan_finds({frame(1'700'000'000)});
    fake.script([](fake_avfilter_script &script) { script.info.iVEncMode = 99; });
    EXPECT_EQ(check_iframe_abstime_exist(&filter), 0);
}

struct scan_row {
    int frames, info_result, reads;
};

TEST_F(OrbAbstimeTest, At100FramesTheSearchGivesUp)
{
    const scan_row rows[] = {
        {0, 0, 0}, {-5, 0, 0}, {1, 0, 1}, {99, 0, 99}, {100, 0, 100}, {5000, 0, 100}, {3, -1, 100},
    };
    for (const scan_row &row : rows) {
        fake.reset();
        fake.script([&](fake_avfilter_script &script) {
            script.info.iTotalFrame = row.frames;
            script.info_result = row.info_result;
        });
        EXPECT_EQ(check_iframe_abstime_exist(&filter), 0);
        EXPECT_EQ(fake.record().scan_reads, row.reads) << row.frames;
    }
}

TEST_F(OrbAbstimeTest, RefusalsOfTheSearch)
{
    EXPECT_EQ(check_iframe_abstime_exist(nullptr), 0);
    EXPECT_EQ(log.count("check_iframe_abstime_exist filter_info == NULL", LOG_REFUSE), 1u);
    fake.script([](fake_avfilter_script &script) { script.failing_creates = {1}; });
    EXPECT_EQ(check_iframe_abstime_exist(&filter), 0);
    EXPECT_EQ(log.count("AVFilterCreate failed", LOG_REFUSE), 1u);
}

static std::atomic<handle_orb> s_asked;
static std::atomic<int> s_answer;
static int answer_for(handle_orb usr)
{
    s_asked = usr;
    return s_answer;
}

TEST_F(OrbAbstimeTest, UserDecidesWhenTheFileHasNoTime)
{
    EXPECT_EQ(get_insert_abstime(&filter, orb()), 0); // nobody to ask
    vod_player_set_usr_abstime_func(answer_for);
    s_asked = 0;
    s_answer = 1;
    EXPECT_EQ(get_insert_abstime(&filter, orb()), 0); // usr 0
    EXPECT_EQ(s_asked, 0);
    orb()->usr = 77;
    EXPECT_EQ(get_insert_abstime(&filter, orb()), 1);
    EXPECT_EQ(s_asked, 77);
    s_answer = 0;
    EXPECT_EQ(get_insert_abstime(&filter, orb()), 0);
    orb()->usr = 0;
}

TEST_F(OrbAbstimeTest, FileWithTimeIsNeverInsertedInto)
{
    vod_player_set_usr_abstime_func(answer_for);
    s_answer = 1;
    orb()->usr = 77;
    scan_finds({frame(1'700'000'000)});
    EXPECT_EQ(get_insert_abstime(&filter, orb()), 0);
    orb()->usr = 0;
}

TEST_F(OrbAbstimeTest, InsertFlagNeedsBothArguments)
{
    EXPECT_EQ(get_insert_abstime(nullptr, orb()), 0);
    EXPECT_EQ(get_insert_abstime(&filter, nullptr), 0);
    EXPECT_EQ(log.count("filter_info == NULL || orb_player == NULL", LOG_REFUSE), 2u);
    EXPECT_TRUE(fake.record().filters.empty());
}

TEST_F(OrbAbstimeTest, OpenPassesTheUsersWishOn)
{
    vod_player_set_usr_abstime_func(answer_for);
    s_answer = 1;
    EXPECT_EQ(open(), 1);
    EXPECT_EQ(s_asked, receiver.usr());
    EXPECT_EQ(fake.record().filters.at(0).iUsrFlag, 0);
    EXPECT_EQ(fake.record().filters.at(1).iUsrFlag, 1);
}

TEST_F(OrbAbstimeTest, OpenOfAFileWithTimeDoesNot)
{
    vod_player_set_usr_abstime_func(answer_for);
    s_answer = 1;
    scan_finds({frame(1'700'000'000)});
    EXPECT_EQ(open(), 1);
    EXPECT_EQ(fake.record().filters.at(1).iUsrFlag, 0);
}

TEST_F(OrbAbstimeTest, AFileIsNotSearchedForWhatNobodyWants)
{
    vod_player_set_usr_abstime_func(answer_for);
    s_answer = 0;
    orb()->usr = 77;
    EXPECT_EQ(get_insert_abstime(&filter, orb()), 0);
    orb()->usr = 0;
    EXPECT_TRUE(fake.record().filters.empty());
    EXPECT_EQ(fake.record().scan_reads, 0);
}
