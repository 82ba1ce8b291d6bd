// The queue starts once in the life of a program, so its start has a program of its own.
#include "platform/os/os.h"
#include "tests/comm_func/said.h"
#include "tests/vod_player/fake_player.h"
#include "win32_vod/vod_player.h"

using SaveQueue = fake_player_test;

TEST_F(SaveQueue, StartReportsWhatIsMissingAndCanBeRepeated)
{
    struct row {
        uint32_t failing_call;
        said_lines lines;
    };
    // A failing start leaves what it made to the next one. A list is made with two fallible calls.
    for (const row &r : {row{1, {{3, "s_ls_save_buf == NULL"}}}, row{3, {{4, "!os_mutex_init(&s_save_mutex, 0)"}}},
                         row{2, {{4, "!os_cond_init(&s_save_filled)"}}},
                         row{2, {{4, "!os_thread_create(&thr, 0, save_thr_func, NULL)"}}}}) {
        log_capture logs;
        os_fault_arm(r.failing_call);
        int started = vod_player_init();
        os_fault_disarm();
        EXPECT_EQ(started, 0);
        EXPECT_EQ(said(logs), r.lines);
    }
    log_capture logs;
    EXPECT_EQ(vod_player_init(), 1);
    EXPECT_EQ(vod_player_init(), 1) << "and changes nothing";
    EXPECT_EQ(said(logs), said_lines{});
}
