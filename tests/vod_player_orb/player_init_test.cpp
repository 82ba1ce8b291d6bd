// Start-up happens once per process, so each of these runs in a process of its own.
#include "tests/vod_player_orb/orb_fixture.h"

#include <cstdio>
#include <cstdlib>

class OrbPlayerInitTest : public testing::Test {
protected:
    void SetUp() override
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        fake.reset();
    }
    fake_avfilter &fake = fake_avfilter::instance();
};

// Ends the child: 0 when what it saw was right.
[[noreturn]] static void leave(bool is_right)
{
    std::_Exit(is_right ? 0 : 99);
}

static void print_fatal(void *, int level, const char *, int, const char *text)
{
    if (level == LOG_FATAL)
        std::fprintf(stderr, "%d %s\n", level, text);
}

TEST_F(OrbPlayerInitTest, FirstInitStartsTheMediaLibraryAndTellsSo)
{
    EXPECT_EXIT(
        {
            log_capture log;
            bool is_started = player_init() == 1;
            leave(is_started && fake.record().startups == 1 && log.count("AVFiltersdk ok!", LOG_REFUSE) == 1 &&
                  player_init() == 0 && fake.record().startups == 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(OrbPlayerInitTest, FailingMediaLibraryIsOnlyLogged)
{
    EXPECT_EXIT(
        {
            log_capture log;
            fake.script([](fake_avfilter_script &script) { script.startup_result = -1; });
            leave(player_init() == 1 && log.count("AVFiltersdk err!", LOG_REFUSE) == 1 && create_player() != nullptr);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(OrbPlayerInitTest, WithoutTheSlotLockInitFailsAndMayBeTriedAgain)
{
    EXPECT_EXIT(
        {
            log_capture log;
            os_fault_arm(1);
            bool is_refused = player_init() == 0 && log.count("!os_mutex_init", LOG_REFUSE) == 1;
            os_fault_disarm();
            leave(is_refused && create_player() == nullptr && fake.record().startups == 0 && player_init() == 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(OrbPlayerInitTest, WithoutTheCloseListTheProcessEnds)
{
    EXPECT_EXIT(
        {
            os_log_set_sink(print_fatal, nullptr);
            os_fault_arm(2);
            player_init();
            leave(false);
        },
        testing::ExitedWithCode(1), "5 !s_lst_asyn_vod");
}

TEST_F(OrbPlayerInitTest, WithoutTheCloseThreadTheProcessEnds)
{
    // The slot lock, the list with its lock, the wake with its lock and condition come before it.
    EXPECT_EXIT(
        {
            os_log_set_sink(print_fatal, nullptr);
            os_fault_arm(6);
            player_init();
            leave(false);
        },
        testing::ExitedWithCode(1), "5 !os_thread_create, on_close_asyn_vod_thr");
}

TEST_F(OrbPlayerInitTest, WithoutMemoryForARecordTheProcessEnds)
{
    EXPECT_EXIT(
        {
            os_log_set_sink(print_fatal, nullptr);
            player_init();
            os_fault_arm(1);
            create_player();
            leave(false);
        },
        testing::ExitedWithCode(1), "5 orb_player == NULL");
}

TEST_F(OrbPlayerInitTest, OptionsAre0WithoutConfiguration)
{
    EXPECT_EXIT(
        {
            temp_folder folder(temp_folder::working_directory::enter);
            bool is_right =
                player_init() == 1 && vodplayer_is_timeplayback_all_rec() == 0 && vodplayer_is_use_exact_play() == 0;
            leave(is_right);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(OrbPlayerInitTest, OptionsComeFromTheConfiguration)
{
    EXPECT_EXIT(
        {
            temp_folder folder(temp_folder::working_directory::enter);
            folder.write("etc\\conf\\vod_config.json", R"({"timeplayback_all_rec": 3, "use_exact_play": 1})");
            bool is_right =
                player_init() == 1 && vodplayer_is_timeplayback_all_rec() == 3 && vodplayer_is_use_exact_play() == 1;
            leave(is_right);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(OrbPlayerInitTest, UninitEndsTheSlotTable)
{
    EXPECT_EXIT(
        {
            bool is_right = player_uninit() == 0 && player_init() == 1;
            VODPlayer *player = create_player();
            is_right = is_right && player != nullptr && player_uninit() == 1 && player_uninit() == 0 &&
                       create_player() == nullptr && player_init() == 0;
            // A player that outlives the table can still be destroyed.
            leave(is_right && player->func->vod_player_destroy(player) == 1);
        },
        testing::ExitedWithCode(0), "");
}
