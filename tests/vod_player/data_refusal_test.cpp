#include "vod_player/data_refusal.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

static constexpr handle_orb TAKE = 1, REFUSE = 2;

static void receive(handle_orb, int, char *, int, handle_orb usr)
{
    if (usr == REFUSE)
        vod_player_refuse_data();
}

static void receive_and_hand_on(handle_orb producer, int type, char *data, int size, handle_orb usr)
{
    vod_player_deliver(receive, producer, type, data, size, usr);
}

TEST(DataRefusal, IsToldForTheCallInWhichItWasSaid)
{
    for (auto func : {receive, receive_and_hand_on}) {
        EXPECT_TRUE(vod_player_deliver(func, 77, 2, nullptr, 0, TAKE));
        EXPECT_FALSE(vod_player_deliver(func, 77, 2, nullptr, 0, REFUSE));
        EXPECT_TRUE(vod_player_deliver(func, 77, 2, nullptr, 0, TAKE));
    }
}

TEST(DataRefusal, OfOneThreadIsNotThatOfAnother)
{
    vod_player_refuse_data();
    bool is_taken = false;
    std::thread([&] { is_taken = vod_player_deliver(receive, 77, 2, nullptr, 0, TAKE); }).join();
    EXPECT_TRUE(is_taken);
    const auto func = [](handle_orb, int, char *, int, handle_orb) { std::thread(vod_player_refuse_data).join(); };
    EXPECT_TRUE(vod_player_deliver(func, 77, 2, nullptr, 0, TAKE));
}

TEST(DataRefusal, TheCallbackGetsWhatWasGiven)
{
    static std::string s_got;
    const auto func = [](handle_orb producer, int type, char *data, int size, handle_orb usr) {
        s_got = std::to_string(producer) + " " + std::to_string(type) + " " + std::string(data, static_cast<size_t>(size)) +
                " " + std::to_string(usr);
    };
    char data[] = "abc";
    EXPECT_TRUE(vod_player_deliver(func, 77, 2, data, 3, 5));
    EXPECT_EQ(s_got, "77 2 abc 5");
}
