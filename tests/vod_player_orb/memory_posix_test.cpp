#include "tests/support/host.h"
#include "tests/vod_player_orb/orb_fixture.h"

#include <vector>

// A hundred players, opened until their heads came.
static std::vector<VODPlayer *> open_hundred(const std::string &name, data_receiver *receiver)
{
    std::vector<VODPlayer *> players;
    receiver->clear();
    for (int i = 0; i < 100; i++) {
        players.push_back(create_player());
        EXPECT_EQ(players.back()->func->vod_player_open_file(players.back(), name.c_str(), data_receiver::callback,
                                                             receiver->usr()),
                  1);
    }
    EXPECT_TRUE(receiver->wait_for_type(VIDEO_DATA_TYPE_FILEHEAD, 100));
    return players;
}

class OrbMemoryTest : public OrbPlayerTest {};

TEST_F(OrbMemoryTest, HundredOpenPlayersCostLittleInEachRound)
{
    // Ten times what their threads and heads take; their buffers have 300 MB in all.
    constexpr int64_t LITTLE = 150'000'000;
    destroy();
    const std::string name = recording();
    const int64_t before = host_resident_bytes();
    for (int round = 1; round <= 6; round++) {
        std::vector<VODPlayer *> players = open_hundred(name, &receiver);
        EXPECT_LT(host_resident_bytes() - before, LITTLE) << "round " << round;
        for (VODPlayer *each : players)
            EXPECT_EQ(each->func->vod_player_destroy(each), 1);
    }
}
