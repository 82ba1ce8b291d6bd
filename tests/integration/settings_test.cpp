// Each configuration once with --check and once started: both come to the same, for the same reason.
#include "tests/integration/play_session.h"
#include "tests/integration/service_fixture.h"

#include "platform/json/json.h"

#include <filesystem>

struct settings_row {
    const char *file, *text;
    bool is_usable;
    const char *words; // that the log of both holds
};

static constexpr char VOD[] = "etc/conf/vod_config.json", MS[] = "etc/conf/ms_config.json",
                      SVR[] = "etc/conf/vod_svr.json";
static constexpr char OPEN[] = "clients may name every file";

class SettingsTest : public testing::Test {
protected:
    // What was configured before counts again afterwards.
    void expect_agreement(const settings_row &row)
    {
        std::string before = file_of(service.folder().file(row.file));
        service.folder().write(row.file, row.text);
        EXPECT_EQ(service.run({"--check"}), row.is_usable ? 0 : 1) << row.text << ": " << service.log();
        EXPECT_NE(service.log().find(row.words), std::string::npos) << row.text << ": " << service.log();
        json_ref said(json_tokener_parse(service.out().c_str()));
        json_object *usable = nullptr;
        EXPECT_TRUE(json_object_object_get_ex(said.get(), "usable", &usable)) << service.out();
        EXPECT_EQ(json_object_get_boolean(usable), row.is_usable) << service.out();
        expect_start(row);
        service.folder().write(row.file, before);
    }
    void expect_start(const settings_row &row)
    {
        if (row.is_usable) {
            EXPECT_TRUE(service.start()) << row.text;
            service.stop();
        } else {
            EXPECT_EQ(service.run(), 1) << row.text;
            EXPECT_EQ(service.out(), "") << row.text;
        }
        EXPECT_NE(service.log().find(row.words), std::string::npos) << row.text << ": " << service.log();
    }
    service_process service;
};

TEST_F(SettingsTest, AnAccessThatLimitsNothingEndsTheStart)
{
    const settings_row rows[] = {
        {VOD, R"({"access":{"roots":"rec"}})", false, "access.roots in vod_config.json must be a list"},
        {VOD, R"({"access":{"roots":[]}})", false, "access.roots in vod_config.json must be a list"},
        {VOD, R"({"access":{"roots":[5]}})", false, "entry 1 must be the name of a folder"},
        {VOD, R"({"access":{"roots":["rec",5]}})", false, "entry 2 must be the name of a folder"},
        {VOD, R"({"access":{"roots":[""]}})", false, "entry 1 must be the name of a folder"},
        {VOD, R"({"access":{"roots":["rec","none"]}})", false, "not an existing folder"},
        {VOD, R"({"access":{"roots":["etc/conf/vod_config.json"]}})", false, "not an existing folder"},
        {VOD, R"({"access":{"root":["rec"]}})", false, "is \"access.roots\" meant?"},
        {VOD, R"({"access":{}})", false, "access in vod_config.json has no roots"},
        {VOD, R"({"access":null})", false, "access in vod_config.json must be an object"},
        {VOD, R"({"access":["rec"]})", false, "access in vod_config.json must be an object"},
        {VOD, R"({"access":"rec"})", false, "access in vod_config.json must be an object"},
        {VOD, R"({"acces":{"roots":["rec"]}})", false, "is \"access\" meant?"},
        {VOD, R"({"roots":["rec"]})", false, "is \"access.roots\" meant?"},
    };
    for (const settings_row &row : rows)
        expect_agreement(row);
}

TEST_F(SettingsTest, FilesThatAreNoObjectEndTheStart)
{
    const settings_row rows[] = {
        {VOD, R"({"access":{"roots":["rec"]}} x)", false, "vod_config.json is no JSON object (line 1: text behind"},
        {VOD, "{\"access\":{\"roots\":[\"rec\"]}}\n{}", false, "vod_config.json is no JSON object (line 2: text behind"},
        {VOD, R"({"access":{"roots":["rec"]},"access":{"roots":["/"]}})", false, "stands twice in vod_config.json"},
        {VOD, R"({"access":{"roots":["rec"])", false, "vod_config.json is no JSON object"},
        {VOD, "", false, "vod_config.json is no JSON object"},
        {VOD, "null", false, "vod_config.json is no JSON object (it is another value)"},
        {MS, R"({"port":0},)", false, "ms_config.json is no JSON object"},
        {MS, "7", false, "ms_config.json is no JSON object"},
        {SVR, R"({"log": )", false, "vod_svr.json is no JSON object"},
        {SVR, "[]", false, "vod_svr.json is no JSON object"},
        {SVR, "\xFF\xFE{", false, "vod_svr.json is no JSON object"},
    };
    for (const settings_row &row : rows)
        expect_agreement(row);
}

TEST_F(SettingsTest, ValuesThatLeadNowhereEndTheStart)
{
    const settings_row rows[] = {
        {VOD, R"({"access":{"roots":["rec"],"state_dir":""}})", false, "access.state_dir in vod_config.json must be"},
        {VOD, R"({"access":{"roots":["rec"],"state_dir":7}})", false, "access.state_dir in vod_config.json must be"},
        {VOD, R"({"access":{"roots":["rec"],"state_files":0}})", false, "access.state_files in vod_config.json must be"},
        {VOD, R"({"access":{"roots":["rec"],"state_files":"9"}})", false, "access.state_files in vod_config.json must be"},
        {VOD, R"({"start_vca":1})", false, "vca_startup fail"},
        {MS, R"({"listen":"localhost","port":0})", false, "cannot listen on localhost port 0: not an address"},
        {MS, R"({"listen":"","port":0})", false, "not an address"},
        {MS, R"({"listen":"203.0.113.77","port":0})", false, "cannot listen on 203.0.113.77 port 0: "},
        {SVR, R"({"log":{"level":9}})", false, "log.level in etc/conf/vod_svr.json must be 1 to 5"},
        {SVR, R"({"log":{"queue_bytes":0}})", false, "log.queue_bytes in etc/conf/vod_svr.json must be 65536"},
        {SVR, R"({"log":{"queue_bytes":65535}})", false, "must be 65536 to 1073741824"},
        {SVR, R"({"log":{"queue_bytes":-1}})", false, "must be 65536 to 1073741824"},
        {SVR, R"({"fs_charset":"latin1"})", false, "must be \"GB18030\" or \"UTF-8\""},
        {SVR, R"({"store":""})", false, "store in etc/conf/vod_svr.json must be an address"},
        {SVR, R"({"log":{"file":"etc/conf/vod_svr.json/x.log"}})", false, "the log cannot be opened"},
    };
    for (const settings_row &row : rows)
        expect_agreement(row);
}

TEST_F(SettingsTest, WhatIsWithoutEffectIsToldAndTheServiceStarts)
{
    const settings_row rows[] = {
        {VOD, R"({"max_num":5})", true, OPEN},
        {VOD, "\xEF\xBB\xBF{}", true, OPEN},
        {VOD, R"({"acces_log":1,"access":{"roots":["rec"]}})", true, "unknown key \"acces_log\" in etc/conf/vod_config.json"},
        {VOD, R"({"max_num":"5"})", true, "\"max_num\" in etc/conf/vod_config.json must be a whole number"},
        {VOD, R"({"upload":5})", true, "\"upload\" in etc/conf/vod_config.json must be an object"},
        {VOD, R"({"max_num":5,"max_num":6})", true, "\"max_num\" stands twice in etc/conf/vod_config.json"},
        {MS, R"({"port":0,"listn":"0.0.0.0"})", true, "is \"listen\" meant?"},
        {MS, R"({"port":0,"threads":900})", true, "threads 900 is out of range, 64 taken"},
        {SVR, R"({"log":{"levle":1}})", true, "is \"log.level\" meant?"},
        {SVR, R"({"log":{"level":"1"}})", true, "\"log.level\" in etc/conf/vod_svr.json must be a whole number"},
    };
    for (const settings_row &row : rows)
        expect_agreement(row);
}

TEST_F(SettingsTest, UsableRootsOpenNothingElse)
{
    service.folder().write(VOD, "\xEF\xBB\xBF{\"access\":{\"roots\":[\"rec\"]}}\r\n");
    EXPECT_EQ(service.run({"--check"}), 0) << service.log();
    EXPECT_EQ(service.log(), "") << "nothing to say";
    ASSERT_TRUE(service.start());
    make_recording(service.folder().file("rec/in.rec"), even_plan());
    make_recording(service.folder().file("out.rec"), even_plan());
    EXPECT_TRUE(play_all(service.server(), "rec/in.rec").reached_end);
    EXPECT_FALSE(play_all(service.server(), "rec/../out.rec").result);
    service.stop(); // writes out the log
    size_t refusal = service.log().find("outside access.roots: ");
    ASSERT_NE(refusal, std::string::npos) << service.log();
    EXPECT_NE(service.log().find("out.rec", refusal), std::string::npos) << service.log();
    EXPECT_EQ(service.log().find(OPEN), std::string::npos);
}

TEST_F(SettingsTest, CheckingLeavesARunningServiceAndAMissingStoreAlone)
{
    ASSERT_TRUE(service.start());
    service.folder().write(MS, "{\"port\": " + std::to_string(service.port()) + "}");
    service_process other({.ms_config = "{\"port\": " + std::to_string(service.port()) + "}"});
    EXPECT_EQ(other.run({"--check"}), 0) << other.log();
    EXPECT_NE(other.log().find("is taken, by the running service or by another program"), std::string::npos) << other.log();
    EXPECT_FALSE(std::filesystem::exists(other.folder().path() / "var"));
    EXPECT_FALSE(link_counters(service.server()).empty());
    service.stop();
}

// The start goes on without such a store as well, after it has tried for a while.
TEST_F(SettingsTest, AddressesOfNoStoreAreNamedByTheCheck)
{
    for (const char *store : {"lmdb:", "lmdb:var/index?map=5", "nonsense", "postgresql://h/d?connect_ms=x"}) {
        service.folder().write(SVR, std::string("{\"store\":\"") + store + "\"}");
        EXPECT_EQ(service.run({"--check"}), 0) << store;
        EXPECT_NE(service.log().find("vod_svr: [4] "), service.log().rfind("vod_svr: [4] ")) << store << service.log();
    }
    service.folder().write(SVR, R"({"store":"lmdb:var/other?map_mb=64"})");
    EXPECT_EQ(service.run({"--check"}), 0);
    EXPECT_EQ(service.log().find("lmdb"), std::string::npos) << service.log();
}

TEST_F(SettingsTest, TheCheckIsToldAsJson)
{
    service.folder().write(VOD, R"({"acess":1})");
    EXPECT_EQ(service.run({"--check"}), 1);
    json_ref said(json_tokener_parse(service.out().c_str()));
    EXPECT_STREQ(json_object_get_field_string(said.get(), "event"), "check");
    json_object *findings = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(said.get(), "findings", &findings)) << service.out();
    ASSERT_EQ(json_object_array_length(findings), 2u) << service.out();
    json_object *first = json_object_array_get_idx(findings, 0);
    EXPECT_EQ(json_object_get_field_int(first, "level", 0), 4);
    EXPECT_STREQ(json_object_get_field_string(first, "text"),
                 "unknown key \"acess\" in etc/conf/vod_config.json is ignored; is \"access\" meant?");
}
