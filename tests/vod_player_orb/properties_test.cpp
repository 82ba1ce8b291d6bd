// The computations of the player, over any input.
#include "tests/vod_player_orb/by_time_player.h"

#include <rapidcheck.h>

#include <algorithm>
#include <limits>

class OrbPropertyTest : public OrbPlayerTest {
protected:
    // A player that takes requests without a thread that serves them.
    void pose_as_open(uint64_t total_bytes)
    {
        shared_store(player->status, VOD_PLAYER_PLAYING_STATUS_HEADER_SENT);
        shared_store(orb()->file_info.file_total_size, total_bytes);
    }
    void TearDown() override
    {
        if (player != nullptr)
            shared_store(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
        OrbPlayerTest::TearDown();
    }
};

// Also the numbers near the ends of their types, which are rare by chance.
template <class T> static rc::Gen<T> any_number()
{
    return rc::gen::oneOf(rc::gen::arbitrary<T>(),
                          rc::gen::element(std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), T{0}, T{100}),
                          rc::gen::map(rc::gen::inRange<int>(0, std::numeric_limits<T>::digits),
                                       [](int bit) { return static_cast<T>(T{1} << bit); }));
}

// ---- Requests -------------------------------------------------------------------------------------------------------

TEST_F(OrbPropertyTest, PercentIsItsShareInUnsigned64BitsMultipliedFirst)
{
    os_log_set_level(LOG_FATAL);
    EXPECT_TRUE(rc::check([this] {
        const auto total = *any_number<uint64_t>();
        const int percent = *any_number<int>();
        pose_as_open(total);
        RC_ASSERT(vod_orbplayer_set_play_pos(player, percent) == 1);
        const uint64_t share = percent < 0 ? 0 : percent > 100 ? 100 : static_cast<uint64_t>(percent);
        RC_ASSERT(shared_load(orb()->play_by_time.is_set_byte_pos) == 1);
        RC_ASSERT(shared_load(orb()->play_by_time.set_byte) == total * share / 100);
        RC_ASSERT(status() == VOD_PLAYER_PLAYING_STATUS_PLAY);
    }));
}

TEST_F(OrbPropertyTest, KilobytesNeverLeadPastTheEnd)
{
    os_log_set_level(LOG_FATAL);
    EXPECT_TRUE(rc::check([this] {
        // The library's sizes are signed; the header's 88 bytes come on top.
        const auto total = static_cast<uint64_t>(*rc::gen::nonNegative<int64_t>()) + FILE_HEAD_SIZE;
        const int kilobytes = *any_number<int>();
        pose_as_open(total);
        RC_ASSERT(vod_orbplayer_set_play_byte(player, kilobytes) == 1);
        const bool is_inside = kilobytes >= 0 && total / 1024 >= static_cast<uint64_t>(kilobytes);
        RC_ASSERT(shared_load(orb()->play_by_time.set_byte) ==
                  (is_inside ? static_cast<uint64_t>(kilobytes) * 1024 : total));
    }));
}

TEST_F(OrbPropertyTest, PercentOfATimeRangeIsWithin0To100AndReaches100OnlyAtTheEnd)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    os_log_set_level(LOG_FATAL);
    EXPECT_TRUE(rc::check([&range] {
        const auto total = *rc::gen::inRange<uint64_t>(0, 1ull << 50);
        const auto position = *rc::gen::inRange<uint64_t>(0, total + 1);
        const int is_over = *rc::gen::inRange(0, 2);
        {
            player_guard held(range.orb());
            range.orb()->file_info.file_play_pos = position;
            shared_store(range.orb()->file_info.file_total_size, total);
            range.orb()->play_by_time.end_notified = is_over;
        }
        const int percent = vod_orbplayer_get_play_pos(range.player());
        const int expected = total == 0 ? 0 : static_cast<int>(position * 100 / total);
        RC_ASSERT(percent == (is_over ? expected : std::min(expected, 99)));
    }));
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END));
}

// ---- File times -----------------------------------------------------------------------------------------------------

// The pieces between underscores, written in another way.
static std::vector<std::string> pieces_of(std::string name)
{
    std::vector<std::string> pieces;
    for (char *piece = std::strtok(name.data(), "_"); piece != nullptr; piece = std::strtok(nullptr, "_"))
        pieces.push_back(piece);
    return pieces;
}

TEST_F(OrbPropertyTest, AnyNameHasAStartExactlyWhenItHasTwoPieces)
{
    os_log_set_level(LOG_FATAL);
    EXPECT_TRUE(rc::check([this] {
        std::string name = *rc::gen::container<std::string>(rc::gen::element('_', '_', '0', '1', '2', '9', 'a', '-'));
        name.resize(std::min<size_t>(name.size(), 200));
        folder.write(name + "x", "recording");
        name += "x";
        VOD_TIME start = {}, stop = {};
        const bool has_start = vod_orbplayer_file_find_time(name.c_str(), &start, &stop) == 1;
        const std::vector<std::string> pieces = pieces_of(name);
        RC_ASSERT(has_start == (pieces.size() >= 2));
        short field[6] = {};
        if (has_start)
            std::sscanf(pieces[pieces.size() - 2].c_str(), "%04hd%02hd%02hd%02hd%02hd%02hd", &field[0], &field[1],
                        &field[2], &field[3], &field[4], &field[5]);
        const uint16_t found[] = {start.year, start.month, start.day, start.hour, start.minute, start.second};
        RC_ASSERT(std::ranges::equal(found, field, {}, {}, [](short part) { return static_cast<uint16_t>(part); }));
    }));
}

TEST_F(OrbPropertyTest, AnyTimeInANameIsFoundAgain)
{
    EXPECT_TRUE(rc::check([this] {
        auto field = [](int limit) { return static_cast<uint16_t>(*rc::gen::inRange(0, limit)); };
        const VOD_TIME time = {field(10000), field(100), field(100), field(100), field(100), field(100)};
        char name[64];
        std::snprintf(name, sizeof name, "dev_1_%04d%02d%02d%02d%02d%02d_0.orb", time.year, time.month, time.day,
                      time.hour, time.minute, time.second);
        folder.write(name, "recording");
        VOD_TIME start = {}, stop = {};
        RC_ASSERT(vod_orbplayer_file_find_time(name, &start, &stop) == 1);
        RC_ASSERT(commtime_compare(&start, &time) == 0);
        const AVUtcTime utc = utc_time_of(start);
        RC_ASSERT(utc.usYear == time.year && utc.usMonth == time.month && utc.usDay == time.day);
        RC_ASSERT(utc.usHour == time.hour && utc.usMinute == time.minute && utc.usSecond == time.second);
    }));
}

// ---- Pieces ---------------------------------------------------------------------------------------------------------

TEST_F(OrbPropertyTest, AnyBlockArrivesWholeInPiecesThatAreFullButForTheLast)
{
    open_to_header();
    os_log_set_level(LOG_FATAL);
    EXPECT_TRUE(rc::check([this] {
        const int size = *rc::gen::inRange(1, 4 * STREAM_PIECE_SIZE + 2);
        receiver.clear();
        fake.script([&](fake_avfilter_script &script) { script.blocks = {{size, 0x22}}; });
        vod_orbplayer_play(player);
        RC_ASSERT(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
        RC_ASSERT(eventually([&] { return shared_load(player->is_play_end) == 1; }));
        int left = size;
        for (const received &got : receiver.all())
            if (got.type == VIDEO_DATA_TYPE_STREAM) {
                RC_ASSERT(got.size == std::min(left, STREAM_PIECE_SIZE));
                left -= got.size;
            }
        RC_ASSERT(left == 0);
    }));
}
