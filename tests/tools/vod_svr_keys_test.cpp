// What is said about keys that nobody reads and values that nobody can use.
#include "tools/vod_svr/known_keys.h"

#include "platform/json/json.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

static std::vector<std::string> findings(const char *file, const std::string &text)
{
    json_ref config(json_tokener_parse(text.c_str()));
    EXPECT_NE(config, nullptr) << text;
    return key_findings(file, config.get());
}

static std::string text_of(const std::string &path)
{
    std::ifstream file(std::string(VOD_SOURCE_DIR) + "/" + path);
    EXPECT_TRUE(file.good()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(VodSvrKeys, UnknownOnesAreNamedWithTheNearestKnownOne)
{
    struct row {
        const char *file, *text, *key, *nearest;
    };
    const row rows[] = {
        {"vod_config.json", R"({"acces":{"roots":["rec"]}})", "acces", "access"},
        {"vod_config.json", R"({"access":{"root":["rec"]}})", "access.root", "access.roots"},
        {"vod_config.json", R"({"root":["rec"]})", "root", "access.roots"},
        {"vod_config.json", R"({"roots":["rec"]})", "roots", "access.roots"},
        {"vod_config.json", R"({"access.roots":["rec"]})", "access.roots", "access.roots"},
        {"vod_config.json", R"({"MAX_NUM":5})", "MAX_NUM", "max_num"},
        {"vod_config.json", R"({"mxa_num":5})", "mxa_num", "max_num"},
        {"vod_config.json", R"({"upload":{"path":"x"}})", "upload.path", "upload.save_path"},
        {"vod_config.json", R"({"save_path":"x"})", "save_path", "upload.save_path"},
        {"vod_svr.json", R"({"level":2})", "level", "log.level"},
        {"vod_svr.json", R"({"log":{"filecount":3}})", "log.filecount", "log.file_count"},
        {"vod_svr.json", R"({"log":{"store":"lmdb:x"}})", "log.store", "store"},
        {"ms_config.json", R"({"max_conections":5})", "max_conections", "max_connections"},
        {"ms_config.json", R"({"Listen":"0.0.0.0"})", "Listen", "listen"},
        {"ms_config.json", R"({"log":{"level":2}})", "log", "port"},
    };
    for (const row &one : rows)
        EXPECT_EQ(findings(one.file, one.text),
                  std::vector<std::string>{"unknown key \"" + std::string(one.key) + "\" in etc/conf/" + one.file +
                                           " is ignored; is \"" + one.nearest + "\" meant?"})
            << one.text;
}

TEST(VodSvrKeys, ValuesOfAnotherKindAreNamed)
{
    struct row {
        const char *file, *text, *words;
    };
    const row rows[] = {
        {"vod_config.json", R"({"max_num":"5"})", R"("max_num" in etc/conf/vod_config.json must be a whole number)"},
        {"vod_config.json", R"({"max_num":5.5})", R"("max_num" in etc/conf/vod_config.json must be a whole number)"},
        {"vod_config.json", R"({"start_vca":true})", R"("start_vca" in etc/conf/vod_config.json must be a whole number)"},
        {"vod_config.json", R"({"max_num":null})", R"("max_num" in etc/conf/vod_config.json must be a whole number)"},
        {"vod_config.json", R"({"upload":7})", R"("upload" in etc/conf/vod_config.json must be an object)"},
        {"vod_config.json", R"({"upload":{"save_path":[]}})",
         R"("upload.save_path" in etc/conf/vod_config.json must be a text)"},
        {"vod_svr.json", R"({"log":"x"})", R"("log" in etc/conf/vod_svr.json must be an object)"},
        {"vod_svr.json", R"({"store":5})", R"("store" in etc/conf/vod_svr.json must be a text)"},
        {"ms_config.json", R"({"listen":5})", R"("listen" in etc/conf/ms_config.json must be a text)"},
        {"ms_config.json", R"({"port":"7131"})", R"("port" in etc/conf/ms_config.json must be a whole number)"},
    };
    for (const row &one : rows) {
        auto found = findings(one.file, one.text);
        ASSERT_EQ(found.size(), 1u) << one.text;
        EXPECT_TRUE(found[0].starts_with(one.words)) << found[0];
    }
}

TEST(VodSvrKeys, EachMistakeIsNamed)
{
    EXPECT_EQ(findings("vod_svr.json", R"({"log":{"leve":1,"file":5,"stderr":1},"stor":"x","fs_charset":"UTF-8"})").size(),
              3u);
    EXPECT_TRUE(findings("vod_svr.json", "{}").empty());
    EXPECT_TRUE(findings("vod_svr.json", "[1]").empty());
    // Whoever reads the access rules says what is wrong with them.
    EXPECT_TRUE(findings("vod_config.json", R"({"access":{"roots":"rec","state_dir":5}})").empty());
}

TEST(VodSvrKeys, LongNamesAreCut)
{
    auto found = findings("vod_svr.json", "{\"" + std::string(5000, 'k') + "\":1}");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_LT(found[0].size(), 300u);
}

TEST(VodSvrKeys, DeliveredFilesHoldNothingUnknown)
{
    for (const char *file : {"vod_svr.json", "ms_config.json", "vod_config.json"})
        EXPECT_TRUE(findings(file, text_of(std::string("packaging/etc/conf/") + file)).empty()) << file;
}

TEST(VodSvrKeys, EachKeyStandsOnceInTheTableAndInTheDocument)
{
    std::string document = text_of("docs/operations.md");
    std::set<std::pair<std::string_view, std::string_view>> seen;
    for (const known_key &known : known_keys()) {
        EXPECT_TRUE(seen.emplace(known.file, known.name).second) << known.name;
        EXPECT_NE(document.find("`" + std::string(known.name) + "`"), std::string::npos) << known.name;
    }
    EXPECT_GT(seen.size(), 25u);
}
