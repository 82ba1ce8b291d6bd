// orbrec fills and checks the index of a service that runs, and what is found there can be played.
#include "tests/integration/service_process.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/recording_maker.h"
#include "tests/tools/orbrec_clip.h"

#include <gtest/gtest.h>

static constexpr const char *REC = "rec/door_02_1_20260101080000_1.rec";
// Two Chinese characters.
static constexpr const char *NAMED = "rec/\xE5\xA4\xA7\xE9\x97\xA8_03_1_20260101090000_1.rec";

static made_recording make(const temp_folder &folder, const std::string &name)
{
    folder.write("rec/.keep", "");
    // Searches leave small files out.
    return make_recording(folder.file(name), {.frames = 200});
}

TEST(IndexService, WhatWasIndexedWhileTheServiceRunsIsFoundAndPlayed)
{
    service_process service;
    ASSERT_TRUE(service.start());
    const temp_folder &folder = service.folder();
    made_recording made[] = {make(folder, REC), make(folder, NAMED)};
    tool_result indexed = orbrec(folder, "reindex --scan rec --root .");
    ASSERT_EQ(indexed.status, 0) << indexed.err;

    std::string vodctl = program_beside("vodctl"), server = "127.0.0.1:" + std::to_string(service.port());
    child_result found =
        child_run({vodctl, "--server", server, "--json", "find", "--from", "2026-01-01", "--to", "2026-01-01"});
    json_result list = json_of(found.out);
    ASSERT_EQ(json_int(list, "count"), 2) << found.out << found.err;
    for (int i = 0; i < 2; i++) {
        std::string name = json_text(list, "recordings/" + std::to_string(i) + "/file");
        std::string copy = folder.file("copy" + std::to_string(i) + ".rec");
        child_result played = child_run({vodctl, "--server", server, "--quiet", "play", name, "-o", copy});
        EXPECT_EQ(played.status, 0) << name << played.err;
        std::vector<uint8_t> bytes = file_bytes(copy);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), made[i].bytes()) << name;
    }
    EXPECT_EQ(json_text(list, "recordings/1/host"), "\xE5\xA4\xA7\xE9\x97\xA8");

    EXPECT_EQ(orbrec(folder, "check --scan rec --root .").status, 0);
    EXPECT_EQ(orbrec(folder, "unindex " + std::string(REC) + " --root .").status, 0);
    found = child_run({vodctl, "--server", server, "--json", "find", "--from", "2026-01-01", "--to", "2026-01-01"});
    EXPECT_EQ(json_int(json_of(found.out), "count"), 1);
}

// ---- Every kind of store --------------------------------------------------------------------------------------------

class IndexStore : public StoreTest {
protected:
    tool_result run(const std::string &command) { return orbrec(folder_, command + " --store " + uri()); }
    void remove(const std::string &name) { std::filesystem::remove(folder_.path() / name); }
    temp_folder folder_;
};

TEST_P(IndexStore, IsFilledCheckedAndMendedAlike)
{
    make(folder_, REC);
    make(folder_, NAMED);
    EXPECT_EQ(run("check").status, 2); // there is none yet
    ASSERT_EQ(run("reindex --scan rec").status, 0);
    EXPECT_NE(run("reindex --scan rec").out.find("0 added, 0 updated, 0 replaced, 2 unchanged"), std::string::npos);
    EXPECT_EQ(run("check --scan rec --md5").status, 0);
    remove(REC);
    EXPECT_EQ(run("check --scan rec").status, 1);
    // A server may hold entries of other machines.
    EXPECT_EQ(run("check --scan rec --repair").status, kind() == "lmdb" ? 0 : 1);
    EXPECT_EQ(run("check --scan rec --repair --host door").status, 0);
    tool_result result = run("check --scan rec");
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("2 entries, 1 of them hidden"), std::string::npos) << result.out;
    make(folder_, REC);
    EXPECT_EQ(run("check --scan rec --repair").status, 0);
    EXPECT_EQ(run("unindex " + std::string(REC)).status, 0);
    EXPECT_EQ(run("check --scan rec").status, 1);
}

INSTANTIATE_FOR_EACH_STORE(IndexStore);
