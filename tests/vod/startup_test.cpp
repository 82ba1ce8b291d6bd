#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/vod/fake_index.h"
#include "tests/vod/vod_fixture.h"

#include "silo_pool/silo_channels.h"
#include "vod/access.h"
#include "vod/mutex_util.h"
#include "vod/record_worker.h"
#include "vod/upload_session.h"
#include "vod/vod_flow_controller.h"
#include "vod/vod_startup.h"
#include "win32_vod/vod.h"

#include <cstdlib>
#include <filesystem>
#include <map>

// The lists that a start makes. The service keeps them for good; a test that starts more than once gives them back.
struct startup_lists {
    DList *merge_path = s_lst_merge_path, *findfds = s_lst_findfds, *asyn_op = s_lst_asyn_op;
    void free()
    {
        for (DListNode *node = merge_path == nullptr ? nullptr : adt_dlist_head(merge_path); node != nullptr;
             node = adt_dlist_next(node))
            std::free(*static_cast<char **>(adt_dlist_data(node)));
        adt_dlist_destroy(merge_path);
        adt_dlist_destroy(findfds);
        adt_dlist_destroy(asyn_op);
    }
};

struct StartupTest : VodTest {
    StartupTest() : folder(temp_folder::working_directory::enter) {}
    ~StartupTest() override
    {
        os_fault_disarm();
        stop();
        upload_set_save_path("C:\\zeta\\Web\\upload");
        upload_set_save_day(30);
        access_settings_forget();
    }
    static void stop()
    {
        record_worker_stop();
        startup_lists().free();
        s_lst_merge_path = s_lst_findfds = s_lst_asyn_op = nullptr;
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

TEST_F(StartupTest, TheTrustInWhatSearchesRememberIsASetting)
{
    struct row {
        const char *json;
        uint32_t seconds;
        size_t told;
    };
    for (row odd : {row{R"({"index":{"trust_seconds":5}})", 5, 0}, row{R"({"index":{"trust_seconds":0}})", 0, 0},
                    row{R"({"index":{"trust_seconds":-1}})", 0, 1}, row{R"({"index":{"trust_seconds":"5"}})", 600, 0},
                    row{R"({"index":{"trust_seconds":99999999999}})", 86400, 1}, row{R"({"index":7})", 600, 0},
                    row{R"([1])", 600, 0}, row{"not json", 600, 0}, row{"{}", 600, 0}}) {
        log.clear();
        config(odd.json);
        EXPECT_EQ(settings_read(), 1);
        EXPECT_EQ(silo_channels_trust(), odd.seconds) << odd.json;
        EXPECT_EQ(log.count_containing("index.trust_seconds"), odd.told) << odd.json;
    }
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

TEST_F(StartupTest, WithoutItsIndexTheServiceStartsAllTheSame)
{
    fake_index_reset();
    s_fake_index.init_result = -1;
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(s_fake_index.inits, 1);
    fake_index_reset();
}

TEST_F(StartupTest, StepsThatFailEndTheStart)
{
    s_fake_ms.startup_result = 0;
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count("!ms_startup", LOG_REFUSE), 1u);
    s_fake_ms.startup_result = 1;
    stop();
    s_fake_ms.bind_result = 0;
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count("!ms_bind_client_event", LOG_PACKAGE), 1u);
    s_fake_ms.bind_result = 1;
    stop();
    s_facade.player_init_result = 0;
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(log.count("!vodplay_player_init", LOG_PACKAGE), 1u);
}

TEST_F(StartupTest, TheWantedEngineIsStartedOrEndsTheStart)
{
    config("{\"start_vca\":1}");
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(s_fake_vca.startups, 1);
    stop();
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
    startup_lists first;
    record_worker_stop();
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_NE(s_lst_asyn_op, first.asyn_op);
    EXPECT_EQ(log.count("is_error(jso_server)"), 2u);
    first.free();
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
    static constexpr const char *texts[] = {"GetModuleFileNameA error",
                                            "!os_mutex_init",
                                            "s_lst_merge_path == NULL",
                                            "!load_merge_path",
                                            "s_lst_findfds == NULL",
                                            "s_lst_asyn_op == NULL",
                                            "!os_thread_create(&s_asyn_op_thr, 0, rec_asyn_op_thread_start, NULL)"};
    bool reached_the_end = false;
    // The lock of the table is made once in a process; here each start makes it again.
    LMutex lock = std::exchange(s_vodlinks_mutex, LMutex{});
    std::map<std::string, int> seen;
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
        stop();
        EXPECT_EQ(exits, static_cast<int>(log.count("s_lst_merge_path == NULL", LOG_FATAL))) << n;
        for (const log_line &line : log.lines())
            for (const char *text : texts)
                seen[text] += line.text.ends_with(text);
        log.clear();
        os_mutex_destroy(&s_vodlinks_mutex);
        s_vodlinks_mutex = {};
    }
    EXPECT_TRUE(reached_the_end);
    for (const char *text : texts)
        EXPECT_GE(seen[text], 1) << text;
    s_vodlinks_mutex = lock;
}

TEST_F(StartupTest, BufferedLinesCarryTheirPrefixAndPlace)
{
    bool found = false;
    for (uint32_t n = 1; n < 50 && !found; n++) {
        os_exit_install([](int) {});
        log.clear();
        os_fault_arm(n);
        int started = vod_startup();
        os_fault_disarm();
        os_exit_install(nullptr);
        stop();
        for (const log_line &line : log.lines())
            if (line.text.find("s_lst_findfds == NULL") != std::string::npos) {
                found = true;
                EXPECT_EQ(started, 0);
                EXPECT_NE(line.text.find("[info] file: record_worker.cpp line: "), std::string::npos) << line.text;
            }
    }
    EXPECT_TRUE(found);
}

TEST_F(StartupTest, TheEngineIsStartedAnewAfterACleanup)
{
    config("{\"start_vca\":1}");
    EXPECT_EQ(vod_startup(), 1);
    vod_cleanup();
    stop();
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(s_fake_vca.startups, 2);
    stop();
    // Without the wish it starts on the first demand again.
    config("{\"start_vca\":0}");
    EXPECT_EQ(vod_startup(), 1);
    EXPECT_EQ(s_fake_vca.startups, 2);
    EXPECT_TRUE(analysis_start_if_needed());
    EXPECT_EQ(s_fake_vca.startups, 3);
}

TEST_F(StartupTest, ASecondStartWithoutCleanupLeavesTheFirstWorkerAlone)
{
    EXPECT_EQ(vod_startup(), 1);
    startup_lists first;
    EXPECT_EQ(vod_startup(), 1);
    MsLink mslink;
    s_fake_ms.bound_handler(&mslink, MS_CLIENT_EV_READ, res_package(0x8012, "").get());
    EXPECT_EQ(mslink.sent_count(), 1u);
    first.free();
}

TEST_F(StartupTest, EventsAfterTheCleanupAreServed)
{
    EXPECT_EQ(vod_startup(), 1);
    MsLink player, other;
    VodLink *link = start_playback(player);
    vod_cleanup();
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    EXPECT_EQ(player.last().attr(0), "x");
    read(other, res_package(0x8012, ""));
    EXPECT_EQ(other.sent_count(), 1u);
    disconnect(player);
    disconnect(other);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(StartupTest, NegativeAndHugeIntervalsAreKeptAndCappedWhenUsed)
{
    config("{\"sleep_interval\":-1,\"max_download_num\":-1}");
    settings_read();
    EXPECT_EQ(playback_sleep_interval(), 4294967295u);
    EXPECT_EQ(download_max_num(), 4294967295u);
}

TEST_F(StartupTest, WithRootsNoLinkInTheStateFolderIsFollowed)
{
    std::filesystem::create_directory("recordings");
    config("{\"access\":{\"roots\":[\"recordings\"],\"state_dir\":\"states\"}}");
    ASSERT_EQ(vod_startup(), 1);
    MsLink first, second;
    read(first, res_package(0x8003, "own.xml"));
    ASSERT_EQ(first.sent_count(), 1u);
    if (!host_link("own.xml", "states/link.xml") || !host_link("../nowhere.xml", "states/dangling.xml"))
        GTEST_SKIP() << "only administrators may make links here";
    for (const char *name : {"link.xml", "dangling.xml"}) {
        MsLink mslink;
        read(mslink, res_package(0x8003, name));
        EXPECT_EQ(mslink.sent_count(), 0u) << name;
        disconnect(mslink);
    }
    EXPECT_FALSE(std::filesystem::exists("nowhere.xml"));
    EXPECT_TRUE(std::filesystem::is_symlink("states/link.xml"));
    disconnect(first);
}

TEST_F(StartupTest, MutexWrappersLockAgainAndCleanUp)
{
    LMutex mutex = {};
    ASSERT_TRUE(mutex_init(&mutex));
    EXPECT_TRUE(mutex_lock(&mutex));
    EXPECT_TRUE(mutex_lock(&mutex)) << "recursive";
    EXPECT_TRUE(mutex_unlock(&mutex));
    __mutex_lock_cleanup(&mutex);
    __mutex_lock_cleanup(nullptr);
    EXPECT_TRUE(os_mutex_destroy(&mutex)) << "free again";
}
