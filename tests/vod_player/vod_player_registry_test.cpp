#include "platform/os/os.h"
#include "tests/comm_func/said.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player/fake_player.h"
#include "win32_vod/vod_player_orb.h"

#include <thread>

using PlayerRegistry = fake_player_test;

static_assert(VOD_PLAYER_MAX_LIB_NUM == 60);
static_assert(sizeof(VODPlayerFunc) == 22 * sizeof(void *));
static_assert(offsetof(VODPlayerFunc, vod_player_open_file_by_time) == 8 * sizeof(void *));
static_assert(offsetof(VODPlayerFunc, vod_player_get_device_type) == 12 * sizeof(void *));
static_assert(offsetof(VODPlayerFunc, vod_player_get_hardplay_by_time_info) == 18 * sizeof(void *));
static_assert(offsetof(VODPlayerFunc, vod_player_set_play_absolute_time) == 21 * sizeof(void *));

// ---- Loading --------------------------------------------------------------------------------------------------------

TEST_F(PlayerRegistry, OnlyTypeThreeCanBeLoaded)
{
    for (int type : {-1, 0, 2, 4, 5, 35, 56, 59, 60, INT32_MAX}) {
        log_capture logs;
        EXPECT_EQ(vod_player_load_lib(type, "player.dll"), 0) << type;
        EXPECT_EQ(said(logs), (said_lines{{1, "vod_player_load_lib " + std::to_string(type)}}));
    }
    EXPECT_EQ(library.inits, 0);
    for (const VODPlayerInterface &entry : s_vodplayer_interfaces)
        EXPECT_EQ(entry.func_create.load(), nullptr);
}

TEST_F(PlayerRegistry, LoadingFillsTheEntryAndInitialises)
{
    log_capture logs;
    EXPECT_EQ(vod_player_load_lib(3, nullptr), 1);
    EXPECT_EQ(said(logs), (said_lines{{1, "vod_player_load_lib 3"}}));
    const VODPlayerInterface &entry = s_vodplayer_interfaces[3];
    EXPECT_NE(entry.lib.load(), nullptr);
    EXPECT_EQ(entry.func_init.load(), player_init);
    EXPECT_EQ(entry.func_uninit.load(), player_uninit);
    EXPECT_EQ(entry.func_create.load(), create_player);
    EXPECT_EQ(entry.func_get_file_head_size.load(), get_file_head_size);
    EXPECT_EQ(library.inits, 1);
}

TEST_F(PlayerRegistry, LoadingAgainInitialisesAgain)
{
    EXPECT_EQ(vod_player_load_lib(3, "one"), 1);
    s_vodplayer_interfaces[3].func_get_file_head_size = nullptr;
    EXPECT_EQ(vod_player_load_lib(3, "two"), 1) << "though the library itself says no the second time";
    EXPECT_EQ(library.inits, 2);
    EXPECT_EQ(s_vodplayer_interfaces[3].func_get_file_head_size.load(), get_file_head_size);
}

TEST_F(PlayerRegistry, FreeingKeepsWhatIsRegistered)
{
    vod_player_load_lib(3, nullptr);
    log_capture logs;
    EXPECT_EQ(vod_player_free_lib(), 1);
    EXPECT_EQ(said(logs), said_lines{});
    EXPECT_EQ(s_vodplayer_interfaces[3].func_create.load(), create_player);
}

// ---- Creating -------------------------------------------------------------------------------------------------------

TEST_F(PlayerRegistry, TypesOutsideTheTableAreRefused)
{
    for (int type : {-1, 60, INT32_MIN, INT32_MAX}) {
        log_capture logs;
        EXPECT_EQ(vod_player_create(type), INVALID_HANDLE_ORB);
        EXPECT_EQ(said(logs),
                  (said_lines{{2, "type < 0 || type >= VOD_PLAYER_MAX_LIB_NUM   type = " + std::to_string(type)}}));
    }
}

TEST_F(PlayerRegistry, TypesWithoutALibraryAreRefused)
{
    for (int type : {0, 2, 4, 35, 59}) {
        log_capture logs;
        EXPECT_EQ(vod_player_create(type), INVALID_HANDLE_ORB);
        std::string number = std::to_string(type);
        EXPECT_EQ(said(logs), (said_lines{{1, "vod_player_load_lib " + number},
                                          {2, "s_vodplayer_interfaces[" + number + "].func_create == NULL"}}));
    }
    EXPECT_EQ(library.creates, 0);
}

TEST_F(PlayerRegistry, TheFirstRecordingPlayerRegistersItsLibrary)
{
    log_capture logs;
    handle_orb first = vod_player_create(3), second = vod_player_create(VOD_ORBPLAYER_TYPE);
    EXPECT_EQ(said(logs), (said_lines{{1, "vod_player_load_lib 3"}}));
    ASSERT_NE(first, INVALID_HANDLE_ORB);
    ASSERT_NE(second, INVALID_HANDLE_ORB);
    EXPECT_EQ(library.inits, 1);
    EXPECT_EQ(reinterpret_cast<VODPlayer *>(first)->type, 3);
    EXPECT_EQ(reinterpret_cast<VODPlayer *>(first)->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(vod_player_destroy(first), 1);
    EXPECT_EQ(vod_player_destroy(second), 1);
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(PlayerRegistry, PlayersGetTheTypeThatWasAskedFor)
{
    enrol(56);
    log_capture logs;
    handle_orb playerfd = vod_player_create(56);
    ASSERT_NE(playerfd, INVALID_HANDLE_ORB);
    EXPECT_EQ(reinterpret_cast<VODPlayer *>(playerfd)->type, 56);
    EXPECT_EQ(said(logs), said_lines{}) << "an entry that is there is not loaded";
    vod_player_destroy(playerfd);
}

TEST_F(PlayerRegistry, ALibraryWithoutFreePlayersIsReported)
{
    library.creates_nothing = true;
    vod_player_load_lib(3, nullptr);
    log_capture logs;
    EXPECT_EQ(vod_player_create(3), INVALID_HANDLE_ORB);
    EXPECT_EQ(said(logs), (said_lines{{2, "player == NULL"}}));
}

TEST_F(PlayerRegistry, PlayersCreatedAtOnceRegisterTheLibraryOnce)
{
    std::vector<std::thread> threads;
    std::atomic<int> made = 0;
    for (int i = 0; i < 8; i++)
        threads.emplace_back([&] {
            handle_orb playerfd = vod_player_create(3);
            made += playerfd != INVALID_HANDLE_ORB;
            std::free(reinterpret_cast<void *>(playerfd)); // the recording of operations is for one thread
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(made, 8);
    EXPECT_EQ(library.inits, 1);
}

TEST_F(PlayerRegistry, HeadLengthIsTheLibrarys)
{
    vod_player_load_lib(3, nullptr);
    enrol(56);
    EXPECT_EQ(vod_player_get_head_length(3), 88);
    EXPECT_EQ(vod_player_get_head_length(56), 100);
}

TEST_F(PlayerRegistry, HeadLengthOfUnknownTypesIsRefused)
{
    log_capture logs;
    for (int type : {-1, 60, 35})
        EXPECT_EQ(vod_player_get_head_length(type), 0) << type;
    EXPECT_EQ(said(logs), (said_lines{{2, "type < 0 || type >= VOD_PLAYER_MAX_LIB_NUM   type = -1"},
                                      {2, "type < 0 || type >= VOD_PLAYER_MAX_LIB_NUM   type = 60"},
                                      {2, "s_vodplayer_interfaces[35].func_get_file_head_size == NULL"}}));
}

// ---- Storage type ---------------------------------------------------------------------------------------------------

static int32_t storage_type_of(const std::string &rule)
{
    temp_folder folder(temp_folder::working_directory::enter);
    folder.write("var\\web\\rec_rule.json", rule);
    vod_player_set_storage_type(-1);
    return vod_player_get_storage_type();
}

TEST_F(PlayerRegistry, StorageTypeIsReadFromTheRecordingRules)
{
    struct row {
        const char *rule;
        int32_t storage_type;
    };
    for (const row &r : {row{"{\"use_stream_storage\":4}", 4}, row{"{\"use_stream_storage\":7}", 7},
                         row{"{\"use_stream_storage\":-5}", -5}, row{"{\"use_stream_storage\":\"2\"}", 0},
                         row{"{\"other\":2}", 0}, row{"[2]", 0}, row{"2", 0}, row{"", 0}, row{"{\"use_stream", 0}})
        EXPECT_EQ(storage_type_of(r.rule), r.storage_type) << r.rule;
}

TEST_F(PlayerRegistry, StorageTypeWithoutRulesIsZeroAndNotLookedForAgain)
{
    temp_folder folder(temp_folder::working_directory::enter);
    vod_player_set_storage_type(-1);
    log_capture logs;
    EXPECT_EQ(vod_player_get_storage_type(), 0);
    folder.write("var\\web\\rec_rule.json", "{\"use_stream_storage\":2}");
    EXPECT_EQ(vod_player_get_storage_type(), 0);
    EXPECT_EQ(said(logs), said_lines{});
}

TEST_F(PlayerRegistry, EvenMinusOneIsReadOnlyOnce)
{
    temp_folder folder(temp_folder::working_directory::enter);
    folder.write("var\\web\\rec_rule.json", "{\"use_stream_storage\":-1}");
    vod_player_set_storage_type(-1);
    EXPECT_EQ(vod_player_get_storage_type(), -1);
    folder.write("var\\web\\rec_rule.json", "{\"use_stream_storage\":2}");
    EXPECT_EQ(vod_player_get_storage_type(), -1);
}

TEST_F(PlayerRegistry, StorageTypeIsTheSameForAllWhoAskAtOnce)
{
    temp_folder folder(temp_folder::working_directory::enter);
    folder.write("var\\web\\rec_rule.json", "{\"use_stream_storage\":3}");
    vod_player_set_storage_type(-1);
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++)
        threads.emplace_back([&] { right += vod_player_get_storage_type() == 3; });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(right, 8);
}

// ---- Type of a player -----------------------------------------------------------------------------------------------

TEST_F(PlayerRegistry, TheDeviceTellsTheTypeOnStorageTypesOneToFourAndForTheCloud)
{
    struct row {
        int32_t storage_type;
        int type, expected;
    };
    for (const row &r : {row{0, 3, 3}, row{1, 3, 99}, row{2, 3, 99}, row{3, 3, 99}, row{4, 3, 99}, row{5, 3, 3},
                         row{-5, 3, 3}, row{0, 36, 99}, row{0, 35, 35}, row{7, 36, 99}}) {
        vod_player_set_storage_type(r.storage_type);
        enrol(r.type);
        handle_orb playerfd = vod_player_create(r.type);
        EXPECT_EQ(vod_player_get_type(playerfd), r.expected) << r.storage_type << ' ' << r.type;
        library.ops.vod_player_get_device_type = nullptr;
        EXPECT_EQ(vod_player_get_type(playerfd), r.type) << "without the slot the player's own type counts";
        library.ops.vod_player_get_device_type = [](VODPlayer *) { return 99; };
        vod_player_destroy(playerfd);
    }
}

TEST_F(PlayerRegistry, TheTypeOfNoPlayerIsMinusOne)
{
    log_capture logs;
    EXPECT_EQ(vod_player_get_type(INVALID_HANDLE_ORB), -1);
    EXPECT_EQ(vod_player_get_type(0), -1);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_player_get_type  playerfd == -1"}, {2, "player == NULL"}}));
}
