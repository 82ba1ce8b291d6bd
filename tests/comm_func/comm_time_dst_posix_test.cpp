// The Windows runtime does not take the rule of summer time out of TZ.
#include "comm_func/comm_time.h"

#include "tests/comm_func/comm_time_print.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

TEST(SummerTime, RecordsSurviveSecondsAndBack)
{
    EXPECT_TRUE(rc::check([] {
        int seconds = *rc::gen::inRange(0, INT32_MAX);
        CommTime time = {}, again = {};
        RC_ASSERT(time_t_to_commtime(seconds, &time) == 1);
        int32_t back = commtime_to_time_t(&time);
        // In the hour that comes twice either instant is right.
        RC_ASSERT(back == seconds || back == seconds - 3600 || back == seconds + 3600);
        RC_ASSERT(time_t_to_commtime(back, &again) == 1);
        RC_ASSERT(again == time);
    }));
}
