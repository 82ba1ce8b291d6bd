// What the tests of the setters share.
#pragma once

#include "tests/vod_player_orb/orb_fixture.h"

#include <thread>

class OrbSetterTest : public OrbPlayerTest {
protected:
    // What the library was told, after `count` requests were served.
    std::vector<fake_command> commands_after(size_t count)
    {
        EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_SEEK_DONE, count));
        return fake.record().commands;
    }
    int64_t value_after_one(int command)
    {
        std::vector<fake_command> commands = commands_after(1);
        EXPECT_EQ(commands.size(), 1u);
        if (commands.empty())
            return -1;
        EXPECT_EQ(commands[0].command, command);
        EXPECT_EQ(commands[0].record_size, 16);
        EXPECT_EQ(commands[0].first_int, 16);
        return commands[0].value;
    }
    // Keeps the reading thread in a library call until release().
    void hold_reader()
    {
        fake.script([&](fake_avfilter_script &script) {
            script.blocks = {{1, 0}};
            script.on_get_data = [this] {
                is_held = true;
                while (!is_released)
                    std::this_thread::yield();
            };
        });
        vod_orbplayer_play(player);
        ASSERT_TRUE(eventually([&] { return is_held.load(); }));
    }
    void release() { is_released = true; }
    std::atomic<bool> is_held = false, is_released = false;
};
