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

#include <algorithm>
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

TEST_F(StartupTest, AnAccessThatGivesNoUsableRootsEndsTheStart)
{
    std::filesystem::create_directory("recordings");
    for (const char *json : {
             R"({"access":{"roots":"recordings"}})",
             R"({"access":{"roots":[]}})",
             R"({"access":{"roots":[5]}})",
             R"({"access":{"roots":["recordings",5]}})",
             R"({"access":{"roots":[""]}})",
             R"({"access":{"roots":["recordings\\u0000x"]}})",
             R"({"access":{"roots":null}})",
             R"({"access":{"roots":{"recordings":1}}})",
             R"({"access":{"root":["recordings"]}})",
             R"({"access":{"Roots":["recordings"]}})",
             R"({"access":{}})",
             R"({"access":null})",
             R"({"access":["recordings"]})",
             R"({"access":"recordings"})",
             R"({"access":true})",
             R"({"acces":{"roots":["recordings"]}})",
             R"({"Access":{"roots":["recordings"]}})",
             R"({"acccess":{"roots":["recordings"]}})",
             R"({"roots":["recordings"]})",
             R"({"root":["recordings"]})",
             R"({"access.roots":["recordings"]})",
             R"({"access":{"roots":["recordings"]}} x)",
             R"({"access":{"roots":["recordings"]}}{})",
             R"({"access":{"roots":["recordings"]})",
             R"({"access":{"roots":["recordings"]},"access":{"roots":["/"]}})",
             R"({"access":{"roots":["recordings"],"roots":["/"]}})",
             R"({"max_num":1,"max_num":2,"access":{"roots":["recordings"]},"access":{"roots":["/"]}})",
             R"({"access":{"roots":["recordings"],"state_dir":""}})",
             R"({"access":{"roots":["recordings"],"state_dir":5}})",
             R"({"access":{"roots":["recordings"],"state_dir":null}})",
             R"({"access":{"roots":["recordings"],"state_files":0}})",
             R"({"access":{"roots":["recordings"],"state_files":-1}})",
             R"({"access":{"roots":["recordings"],"state_files":4097}})",
             R"({"access":{"roots":["recordings"],"state_files":"64"}})",
         }) {
        config(json);
        EXPECT_EQ(access_rules_read("etc\\conf\\vod_config.json"), 0) << json;
        ASSERT_EQ(log.lines().size(), 1u) << json;
        EXPECT_EQ(log.lines()[0].level, LOG_SYSTEM) << json;
        EXPECT_NE(log.lines()[0].text.find("vod_config.json"), std::string::npos) << log.lines()[0].text;
        log.clear();
        EXPECT_EQ(vod_check_settings(), 0) << json;
        log.clear();
    }
    EXPECT_EQ(vod_startup(), 0);
    EXPECT_EQ(s_fake_ms.bound_handler, nullptr);
}

TEST_F(StartupTest, UsableRootsAreTakenWhateverStandsAround)
{
    std::filesystem::create_directory("recordings");
    for (std::string json : {
             std::string(R"({"access":{"roots":["recordings"]}})"),
             "\xEF\xBB\xBF" + std::string(R"({"access":{"roots":["recordings"]}})") + " \r\n",
             std::string(R"({"acces":{},"access":{"roots":["recordings"],"state_dir":"s","state_files":4096}})"),
             std::string(R"({"max_num":1,"max_num":2,"access":{"roots":["recordings","recordings"]}})"),
         }) {
        config(json);
        EXPECT_EQ(access_rules_read("etc\\conf\\vod_config.json"), 1) << json;
        EXPECT_TRUE(access_rules_now().is_limited) << json;
        EXPECT_TRUE(log.lines().empty()) << json;
        access_settings_forget();
    }
}

TEST_F(StartupTest, WithoutAccessRulesOneLineSaysSo)
{
    for (const char *json : {"", "{}", R"({"max_num":5,"upload":{"save_day":3}})", "not json", "[1,2]"}) {
        if (*json != '\0')
            config(json);
        EXPECT_EQ(access_rules_read("etc\\conf\\vod_config.json"), 1) << json;
        EXPECT_EQ(log.count("no access.roots in vod_config.json: clients may name every file", LOG_SYSTEM), 1u) << json;
        log.clear();
    }
}

TEST_F(StartupTest, AFileThatCannotBeReadEndsTheStart)
{
    std::filesystem::create_directories("etc/conf/vod_config.json");
    EXPECT_EQ(access_rules_read("etc\\conf\\vod_config.json"), 0);
    EXPECT_EQ(log.count_containing("vod_config.json cannot be used and may hold access rules"), 1u);
}

TEST_F(StartupTest, CheckingAgreesWithTheWantedEngine)
{
    config("{\"start_vca\":1}");
    EXPECT_EQ(vod_check_settings(), 1);
    EXPECT_EQ(s_fake_vca.startups, 1);
    EXPECT_EQ(s_fake_vca.cleanups, 1);
    s_fake_vca.startup_result = 1;
    EXPECT_EQ(vod_check_settings(), 0);
    EXPECT_EQ(log.count("vca_startup fail", LOG_REFUSE), 1u);
    config("{}");
    EXPECT_EQ(vod_check_settings(), 1);
    settings_read();
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
          row{"a\\b.xml", false}, row{"/tmp/abs.xml", false}, row{".hidden", false}, row{"C:x.xml", false},
          row{"a b.xml", false}, row{"a%20.xml", false}, row{"\xC3\xA4.xml", false}, row{"a\nb", false}, row{"*", false},
          row{"..", false}, row{"A-Z_0.9", true}}) {
        MsLink mslink;
        read(mslink, res_package(0x8003, request.name));
        EXPECT_EQ(mslink.sent_count() == 1, request.answered) << request.name;
        disconnect(mslink);
    }
    EXPECT_TRUE(std::filesystem::exists("states/plain.xml"));
    EXPECT_FALSE(std::filesystem::exists("up.xml"));
}

static std::vector<std::string> names_in(const char *folder)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::ranges::sort(names);
    return names;
}

TEST_F(StartupTest, AFloodOfStateDocumentsLeavesTheLastOnes)
{
    std::filesystem::create_directory("recordings");
    folder.write("states\\0-foreign.xml", "something else");
    folder.write("states\\.hidden", "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod></vod>");
    config("{\"access\":{\"roots\":[\"recordings\"],\"state_dir\":\"states\"}}");
    ASSERT_EQ(vod_startup(), 1);
    std::vector<std::string> wanted = {".hidden", "0-foreign.xml"};
    for (int i = 0; i < 1000; i++) {
        // Names in no order, so that the order of writing must count.
        std::string name = "doc" + std::to_string(i * 7919 % 1000) + ".xml";
        MsLink mslink;
        read(mslink, res_package(0x8003, name));
        EXPECT_EQ(mslink.sent_count(), 1u) << name;
        disconnect(mslink);
        if (i >= 1000 - 64)
            wanted.push_back(name);
    }
    std::ranges::sort(wanted);
    EXPECT_EQ(names_in("states"), wanted);
    EXPECT_GE(log.count_containing("state file doc"), 1000u - 64u);
}

TEST_F(StartupTest, StateDocumentsOfEarlierRunsAndRewrittenOnesCount)
{
    static constexpr char DOCUMENT[] = "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod></vod>";
    std::filesystem::create_directory("recordings");
    for (const char *name : {"b.xml", "a.xml", "c.xml", "d.xml"})
        folder.write(std::string("states/") + name, DOCUMENT);
    os_file_set_modified("states\\b.xml", 1'000'000);
    os_file_set_modified("states\\c.xml", 2'000'000);
    os_file_set_modified("states\\a.xml", 3'000'000);
    os_file_set_modified("states\\d.xml", 4'000'000);
    config(R"({"access":{"roots":["recordings"],"state_dir":"states","state_files":3}})");
    ASSERT_EQ(vod_startup(), 1);
    struct row {
        const char *name;
        std::vector<std::string> left;
    };
    for (const row &request : {row{"e.xml", {"a.xml", "d.xml", "e.xml"}}, row{"a.xml", {"a.xml", "d.xml", "e.xml"}},
                               row{"f.xml", {"a.xml", "e.xml", "f.xml"}}, row{"g.xml", {"a.xml", "f.xml", "g.xml"}}}) {
        MsLink mslink;
        read(mslink, res_package(0x8003, request.name));
        EXPECT_EQ(mslink.sent_count(), 1u) << request.name;
        EXPECT_EQ(names_in("states"), request.left) << request.name;
        disconnect(mslink);
    }
    // What took the place of a document is not ours to remove.
    folder.write("states/a.xml", "foreign");
    MsLink mslink;
    read(mslink, res_package(0x8003, "h.xml"));
    EXPECT_EQ(names_in("states"), (std::vector<std::string>{"a.xml", "f.xml", "g.xml", "h.xml"}));
    disconnect(mslink);
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
