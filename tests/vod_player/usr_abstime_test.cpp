#include "vod_player/usr_abstime.h"

#include <gtest/gtest.h>

static handle_orb s_asked;

static int answer_five(handle_orb usr)
{
    s_asked = usr;
    return 5;
}

TEST(UsrAbstime, IsZeroWithoutAFunction)
{
    vod_player_set_usr_abstime_func(nullptr);
    EXPECT_EQ(vod_player_usr_abstime(77), 0);
}

TEST(UsrAbstime, IsWhatTheFunctionAnswersForThisUsr)
{
    vod_player_set_usr_abstime_func(answer_five);
    s_asked = 0;
    EXPECT_EQ(vod_player_usr_abstime(77), 5);
    EXPECT_EQ(s_asked, 77);
    vod_player_set_usr_abstime_func(nullptr);
    EXPECT_EQ(vod_player_usr_abstime(77), 0);
}

TEST(UsrAbstime, TheFunctionIsNotAskedAboutZero)
{
    vod_player_set_usr_abstime_func(answer_five);
    s_asked = 1;
    EXPECT_EQ(vod_player_usr_abstime(0), 0);
    EXPECT_EQ(s_asked, 1);
    vod_player_set_usr_abstime_func(nullptr);
}
