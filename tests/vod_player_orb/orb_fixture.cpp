#include "tests/vod_player_orb/orb_fixture.h"

void OrbPlayerTest::SetUp()
{
    fake.reset();
    player_init();
    player = create_player();
    ASSERT_NE(player, nullptr);
    log.clear();
}

void OrbPlayerTest::TearDown()
{
    destroy();
    EXPECT_EQ(fake.open_handles(), 0);
    fake.reset();
}

std::string OrbPlayerTest::recording(const std::string &name)
{
    folder.write(name, "recording");
    return name;
}

int OrbPlayerTest::open(const std::string &name)
{
    return player->func->vod_player_open_file(player, name.c_str(), data_receiver::callback, receiver.usr());
}

void OrbPlayerTest::open_to_header()
{
    ASSERT_EQ(open(), 1);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
}

void OrbPlayerTest::destroy()
{
    if (player != nullptr) {
        EXPECT_EQ(player->func->vod_player_destroy(player), 1);
    }
    player = nullptr;
}
