#include "tests/support/temp_folder.h"
#include "tests/vod/vod_fixture.h"

#include "vod/record_worker.h"
#include "vod/upload_session.h"
#include "vod/vod_flow_controller.h"
#include "vod/vod_startup.h"
#include "win32_vod/vod.h"

#include <filesystem>

struct StartupTest : VodTest {
    StartupTest() : folder(temp_folder::working_directory::enter) {}
    ~StartupTest() override
    {
        os_fault_disarm();
        record_worker_stop();
        upload_set_save_path("C:\\zeta\\Web\\upload");
        upload_set_save_day(30);
        os_access_roots_set(nullptr, 0);
    }
    void config(const std::string &json) { folder.write("etc\\conf\\vod_config.json", json); }
    temp_folder folder;
};

TEST_F(StartupTest, WithoutConfigurationTheDefaultsStay)
{
    playback_set_sleep_interval(5);
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(playback_sleep_interval(), 5u);
    EXPECT_EQ(vodlinks_max_num(), 128);
    EXPECT_EQ(download_max_num(), 50u);
    EXPECT_EQ(vod_start_vca_wanted(), 0);
    EXPECT_STREQ(upload_save_path(), "C:\\zeta\\Web\\upload");
    EXPECT_EQ(upload_save_day(), 30);
    EXPECT_STREQ(vod_flow_ctl_face(), "bond0");
    EXPECT_EQ(vod_flow_ctl_payload(), 73400320);
    EXPECT_EQ(vod_is_cloud(), 0);
    EXPECT_EQ(s_fake_ms.bound_module, 131);
    EXPECT_EQ(s_fake_ms.bound_handler, &on_vod_module_event);
    EXPECT_EQ(log.count("is_error(jso_server)", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("!load_merge_path", LOG_SYSTEM), 1u);
    EXPECT_EQ(log.count("is_error(jso_file), var\\web\\merge_path.json", LOG_REFUSE), 1u);
}

TEST_F(StartupTest, TheStartedFlagIsNeverSet)
{
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(vod_is_startup(), 0);
}

TEST_F(StartupTest, ConfiguredValuesAreTaken)
{
    config("{\"sleep_interval\":7,\"max_num\":9,\"max_download_num\":11,\"flow_ctl_face\":\"eth9\","
           "\"flow_ctl_payload\":100,\"upload\":{\"save_day\":3,\"save_path\":\"D:\\\\up\"}}");
    folder.write("var\\web\\server_config.json", "{\"type\":1}");
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(playback_sleep_interval(), 7u);
    EXPECT_EQ(vodlinks_max_num(), 9);
    EXPECT_EQ(download_max_num(), 11u);
    EXPECT_STREQ(upload_save_path(), "D:\\up");
    EXPECT_EQ(upload_save_day(), 3);
    EXPECT_STREQ(vod_flow_ctl_face(), "eth9");
    EXPECT_EQ(vod_flow_ctl_payload(), 100 << 20);
    EXPECT_EQ(vod_is_cloud(), 1);
    EXPECT_EQ(log.count("is_error(jso_server)"), 0u);
}

TEST_F(StartupTest, OddValuesHaveTheirRules)
{
    struct row {
        const char *json;
        int32_t max_num;
        int64_t payload;
    };
    for (row odd : {row{"{\"max_num\":-3}", 128, 73400320}, row{"{\"max_num\":0}", 0, 73400320},
                    row{"{\"flow_ctl_payload\":-1}", 128, 73400320}, row{"{\"flow_ctl_payload\":0}", 128, 0},
                    row{"{\"max_num\":\"many\",\"flow_ctl_payload\":[]}", 128, 73400320},
                    row{"{\"max_num\":99999999999999}", 2147483647, 73400320}, row{"not json", 128, 73400320},
                    row{"[1,2]", 128, 73400320}, row{"{\"upload\":7}", 128, 73400320}}) {
        vodlinks_set_max_num(128);
        config(odd.json);
        EXPECT_EQ(vod_flow_ctl_start(), 1);
        EXPECT_EQ(settings_read(), 1);
        EXPECT_EQ(vodlinks_max_num(), odd.max_num) << odd.json;
        EXPECT_EQ(vod_flow_ctl_payload(), odd.payload) << odd.json;
    }
}

TEST_F(StartupTest, AnUploadObjectWithoutPathKeepsTheDefault)
{
    config("{\"upload\":{\"save_day\":4}}");
    settings_read();
    EXPECT_STREQ(upload_save_path(), "C:\\zeta\\Web\\upload");
    EXPECT_EQ(upload_save_day(), 4);
    config("{\"upload\":{\"save_path\":\"" + std::string(400, 'p') + "\"}}");
    settings_read();
    EXPECT_EQ(std::string(upload_save_path()), std::string(259, 'p'));
}

TEST_F(StartupTest, AServerOfAnotherTypeIsNoCloud)
{
    folder.write("var\\web\\server_config.json", "{\"type\":2}");
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(vod_is_cloud(), 0);
}

TEST_F(StartupTest, MergePathsAreRead)
{
    folder.write("var\\web\\merge_path.json", "{\"free_percent\":9,\"paths\":[\"D:\\\\a\",null,5,\"E:\\\\b\"]}");
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(upload_min_free_percent(), 9);
    EXPECT_EQ(adt_dlist_size(s_lst_merge_path), 2u);
    EXPECT_EQ(log.count("merge dir:D:\\a", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("is_error(jso_path)", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("path == NULL", LOG_REFUSE), 1u);
    folder.write("var\\web\\merge_path.json", "{}");
    EXPECT_EQ(load_merge_path(), 0);
    EXPECT_EQ(log.count("jso_paths == NULL", LOG_REFUSE), 1u);
    folder.write("var\\web\\merge_path.json", "{\"paths\":7}");
    EXPECT_EQ(load_merge_path(), 0);
    EXPECT_EQ(log.count("!json_object_is_type(jso_paths, json_type_array)", LOG_REFUSE), 1u);
}

TEST_F(StartupTest, StepsThatFailEndTheStart)
{
    s_fake_ms.startup_result = 0;
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count("!ms_startup", LOG_REFUSE), 1u);
    s_fake_ms.startup_result = 1;
    s_fake_ms.bind_result = 0;
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count("!ms_bind_client_event", LOG_PACKAGE), 1u);
    s_fake_ms.bind_result = 1;
    record_worker_stop();
    s_facade.player_init_result = 0;
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count("!vodplay_player_init", LOG_PACKAGE), 1u);
}

TEST_F(StartupTest, TheWantedEngineIsStartedOrEndsTheStart)
{
    config("{\"start_vca\":1}");
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(s_fake_vca.startups, 1);
    record_worker_stop();
    analysis_set_started(false);
    s_fake_vca.startup_result = 1;
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count("vca_startup fail", LOG_REFUSE), 1u);
    config("{\"start_vca\":0}");
    settings_read();
}

TEST_F(StartupTest, StartingTwiceRunsAllStepsAgainWithoutHarm)
{
    EXPECT_EQ(vod_startup(), 1);
    DList *first = s_lst_asyn_op;
    record_worker_stop();
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_NE(s_lst_asyn_op, first);
    EXPECT_EQ(log.count("is_error(jso_server)"), 2u);
}

TEST_F(StartupTest, CleanupStopsWhatCanBeStopped)
{
    EXPECT_EQ(vod_cleanup(), 1);
    EXPECT_EQ(s_fake_vca.cleanups, 1);
    EXPECT_EQ(fake_facade_last(), "free_player_lib()");
    s_fake_vca.cleanup_result = 5;
    EXPECT_EQ(vod_cleanup(), 1);
    EXPECT_EQ(log.count("vca_cleanup fail", LOG_REFUSE), 1u);
}

TEST_F(StartupTest, PlayerLibrariesAreForwarded)
{
    EXPECT_EQ(vod_set_player_lib(3, "x.dll"), 1);
    EXPECT_EQ(fake_facade_last(), "load_player_lib(3,x.dll)");
    EXPECT_EQ(vod_set_player_lib(5, nullptr), 0);
}

TEST_F(StartupTest, TheStandAloneServiceIsKnownByItsExactName)
{
    struct row {
        const char *path;
        int alone;
    };
    for (row name : {row{"C:\\zeta\\vod_svr.exe", 1}, row{"/opt/vod_svr.exe", 1}, row{"vod_svr.exe", 1},
                     row{"C:\\zeta\\VOD_SVR.EXE", 0}, row{"C:\\vod_svr.exe\\other.exe", 0}, row{"C:\\xvod_svr.exe", 0},
                     row{"", 0}})
        EXPECT_EQ(is_alone_executable(name.path), name.alone) << name.path;
    EXPECT_EQ(is_alone_process(), 0);
}

TEST_F(StartupTest, RootsThatDoNotExistEndTheStart)
{
    config("{\"access\":{\"roots\":[\"no-such-folder\"]}}");
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count_containing("access.roots: "), 1u);
    EXPECT_EQ(s_fake_ms.bound_handler, nullptr) << "no request may be served under wider rules";
}

TEST_F(StartupTest, WithRootsStateDocumentsStayInTheirFolder)
{
    std::filesystem::create_directory("recordings");
    config("{\"access\":{\"roots\":[\"recordings\"],\"state_dir\":\"states\"}}");
    ASSERT_EQ(vod_startup(), 1);
    struct row {
        const char *name;
        bool answered;
    };
    folder.write("states\\foreign.xml", "something else");
    for (row request :
         {row{"plain.xml", true}, row{"plain.xml", true}, row{"foreign.xml", false}, row{"../up.xml", false},
          row{"a\\b.xml", false}, row{"/tmp/abs.xml", false}, row{".hidden", false}, row{"C:x.xml", false}}) {
        MsLink mslink;
        read(mslink, res_package(0x8003, request.name));
        EXPECT_EQ(mslink.sent_count() == 1, request.answered) << request.name;
        disconnect(mslink);
    }
    EXPECT_TRUE(std::filesystem::exists("states/plain.xml"));
    EXPECT_FALSE(std::filesystem::exists("up.xml"));
}

TEST_F(StartupTest, FailingPlatformCallsEndTheStartCleanly)
{
    bool reached_the_end = false;
    for (uint32_t n = 1; n < 200 && !reached_the_end; n++) {
        int exits = 0;
        static int *s_exits;
        s_exits = &exits;
        os_exit_install([](int) { (*s_exits)++; });
        os_fault_arm(n);
        vod_startup();
        reached_the_end = os_fault_calls() < n;
        os_fault_disarm();
        os_exit_install(nullptr);
        record_worker_stop();
        EXPECT_LE(exits, 1);
    }
    EXPECT_TRUE(reached_the_end);
}
