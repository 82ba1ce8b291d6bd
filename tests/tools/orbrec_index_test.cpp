// orbrec index, reindex and unindex: what they write into the record index, and what they leave alone.
#include "platform/os/os_guard.h"
#include "tests/support/environment.h"
#include "tests/tools/orbrec_index_fixture.h"
#include "tools/orbrec/recording_facts.h"

#include <thread>

static int64_t now()
{
    return os_time();
}

TEST_F(OrbrecIndexTest, RecordingIsEnteredWithTheWholeSchema)
{
    made_recording made = make(REC_A);
    tool_result result = run("index", REC_A);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("added, door1 3, 2026-01-01 08:00:00 to 2026-01-01 08:00:04"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("1 added, 0 updated, 0 replaced, 0 unchanged, 0 failed"), std::string::npos);
    std::string path = stored(REC_A), size = std::to_string(made.bytes().size());
    std::string md5 = file_md5(folder_.file(REC_A), made.bytes().size(), nullptr);
    EXPECT_EQ(md5.size(), 32u);
    silo_pairs expected = {{"bt.2026-01-01 08:00:00.1", "1"},
                           {"f.1.bt", "2026-01-01 08:00:00"},
                           {"f.1.ch", "3"},
                           {"f.1.et", "2026-01-01 08:00:04"},
                           {"f.1.host", "door1"},
                           {"f.1.md5", md5},
                           {"f.1.path", path},
                           {"f.1.rt", "2"},
                           {"f.1.size", size},
                           {"ino", "1"},
                           {"p." + path, "1"},
                           {"r.1", "2"},
                           {"rev.hi", "2"},
                           {"rev.lo", "1"}};
    EXPECT_EQ(index(), expected);
    EXPECT_EQ(path.find('/'), std::string::npos);
}

TEST_F(OrbrecIndexTest, SameFileAgainChangesNothingWhereverItIsNamedFrom)
{
    make(REC_A);
    ASSERT_EQ(run("index", REC_A).status, 0);
    silo_pairs before = index();
    for (const std::string &name : {std::string(REC_A), "rec/../" + std::string(REC_A), folder_.file(REC_A)}) {
        json_result report = run_json("index", name);
        EXPECT_EQ(json_text(report, "files/0/result"), "unchanged") << name;
        EXPECT_EQ(json_int(report, "unchanged"), 1);
    }
    EXPECT_NE(run("index", REC_A).out.find(": unchanged, "), std::string::npos);
    EXPECT_EQ(run("reindex", "--scan rec --md5").status, 0);
    EXPECT_EQ(index(), before);
}

TEST_F(OrbrecIndexTest, RecordingThatIsBeingWrittenHasNoEndUntilItIsFinished)
{
    recording_plan plan;
    plan.key_bytes = 600;
    plan.delta_bytes = 200;
    recording_grower grower(folder_.file(REC_A), plan);
    grower.add_frames(50);
    age(REC_A, now());
    json_result report = run_json("index", REC_A);
    EXPECT_EQ(json_at(report, "files/0/end"), nullptr);
    EXPECT_EQ(value("f.1.et"), ABSENT);
    EXPECT_EQ(value("f.1.md5"), ABSENT);
    EXPECT_EQ(value("f.1.size"), std::to_string(grower.made().bytes().size()));

    EXPECT_EQ(json_text(run_json("index", REC_A), "files/0/result"), "unchanged");
    grower.add_frames(25);
    age(REC_A, now());
    EXPECT_EQ(json_text(run_json("index", REC_A), "files/0/result"), "updated");
    EXPECT_EQ(value("f.1.size"), std::to_string(grower.made().bytes().size()));
    EXPECT_EQ(value("f.1.et"), ABSENT);

    grower.finish();
    EXPECT_EQ(json_text(run_json("index", REC_A), "files/0/result"), "updated");
    EXPECT_EQ(value("f.1.et"), "2026-01-01 08:00:03");
    EXPECT_EQ(value("f.1.md5").size(), 32u);
    EXPECT_EQ(value("ino"), "1");
}

TEST_F(OrbrecIndexTest, RecordingThatACrashLeftBehindEndsWhereItsFramesDo)
{
    make(REC_A, {.finished = false});
    struct row {
        int64_t seconds; // from now: the last change
        bool is_growing;
    };
    for (row each : {row{-GROWING_SECONDS - 20, false}, row{-1, true}, row{GROWING_SECONDS + 60, false}}) {
        age(REC_A, now() + each.seconds);
        ASSERT_EQ(run("index", REC_A).status, 0);
        EXPECT_EQ(value("f.1.et"), each.is_growing ? ABSENT : "2026-01-01 08:00:04") << each.seconds;
        EXPECT_EQ(value("f.1.md5") == ABSENT, each.is_growing) << each.seconds;
    }
}

TEST_F(OrbrecIndexTest, GrownRecordingIsContinuedUnderItsId)
{
    make(REC_A);
    make(REC_B, {.start = {2026, 1, 1, 9, 0, 0}});
    ASSERT_EQ(run("reindex", "--scan rec").status, 0);
    std::string md5 = value("f.1.md5");
    change({{"f.1.lock_level", "3"}, {"f.1.lock_time", "2026-02-03 04:05:06"}});
    made_recording longer = make(REC_A, {.frames = 200});
    json_result report = run_json("reindex", "--scan rec");
    EXPECT_EQ(json_int(report, "updated"), 1);
    EXPECT_EQ(json_int(report, "unchanged"), 1);
    EXPECT_EQ(value("f.1.et"), "2026-01-01 08:00:08");
    EXPECT_EQ(value("f.1.size"), std::to_string(longer.bytes().size()));
    EXPECT_NE(value("f.1.md5"), md5);
    EXPECT_EQ(value("f.1.lock_level"), "3");
    EXPECT_EQ(value("f.1.lock_time"), "2026-02-03 04:05:06");
    EXPECT_EQ(value("ino"), "2");
}

TEST_F(OrbrecIndexTest, AnotherRecordingOfTheSameNameGetsAnotherIdAndKeepsTheLock)
{
    make(REC_A);
    ASSERT_EQ(run("index", REC_A).status, 0);
    change({{"f.1.lock_level", "3"}, {"f.1.lock_time", "2026-02-03 04:05:06"}});
    make(REC_A, {.start = {2026, 1, 2, 3, 4, 5}});
    EXPECT_EQ(json_text(run_json("index", REC_A), "files/0/result"), "replaced");
    EXPECT_EQ(id_of(REC_A), "2");
    EXPECT_EQ(value("f.1.path"), ABSENT);
    EXPECT_EQ(value("bt.2026-01-01 08:00:00.1"), ABSENT);
    EXPECT_EQ(value("bt.2026-01-02 03:04:05.2"), "2");
    EXPECT_EQ(value("f.2.lock_level"), "3");
    EXPECT_EQ(value("f.2.lock_time"), "2026-02-03 04:05:06");
    EXPECT_EQ(run("check").status, 0);
}

TEST_F(OrbrecIndexTest, OptionsOverrideTheNameAndStay)
{
    make(REC_A);
    ASSERT_EQ(run("index", std::string(REC_A) + " --host gate --channel 77 --type 6").status, 0);
    EXPECT_EQ(value("f.1.host") + value("f.1.ch") + value("f.1.rt"), "gate776");
    // Said once, it counts for later runs.
    EXPECT_EQ(json_int(run_json("reindex", "--scan rec"), "unchanged"), 1);
    EXPECT_EQ(json_text(run_json("index", std::string(REC_A) + " --type 1"), "files/0/result"), "updated");
    EXPECT_EQ(value("f.1.rt"), "1");
    EXPECT_EQ(json_text(run_json("index", std::string(REC_A) + " --host door1"), "files/0/result"), "replaced");
    EXPECT_EQ(value("f.2.host") + value("f.2.ch"), "door177");
}

TEST_F(OrbrecIndexTest, TypeZeroBecomesOneThatSearchesFind)
{
    make("rec/door1_03_0_20260101080000_1.rec");
    ASSERT_EQ(run("reindex", "--scan rec").status, 0);
    EXPECT_EQ(value("f.1.rt"), "1");
}

TEST_F(OrbrecIndexTest, BeginIsTheHeadersAndElseTheNames)
{
    make(REC_A, {.start = {2025, 5, 6, 7, 8, 9}});
    make(REC_B, {.start = {}});
    ASSERT_EQ(run("index", std::string(REC_A) + " " + REC_B).status, 0);
    EXPECT_EQ(value("f." + id_of(REC_A) + ".bt"), "2025-05-06 07:08:09");
    EXPECT_EQ(value("f." + id_of(REC_B) + ".bt"), "2026-01-01 09:00:00");
    make("rec/clip.rec", {.start = {}});
    tool_result result = run("index", "rec/clip.rec --host x");
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("neither its header nor its name says when it begins"), std::string::npos) << result.err;
}

TEST_F(OrbrecIndexTest, NameThatDoesNotTellTheDeviceWantsIt)
{
    make("rec/clip.rec");
    tool_result result = run("index", "rec/clip.rec");
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("give --host"), std::string::npos) << result.err;
    EXPECT_EQ(run("index", "rec/clip.rec --host door9").status, 0);
    EXPECT_EQ(value("f.1.host") + "/" + value("f.1.ch") + "/" + value("f.1.rt"), "door9/0/1");
}

TEST_F(OrbrecIndexTest, BadFilesAreNamedAndTheRestGoesOn)
{
    make(REC_A);
    make(REC_B);
    folder_.write("rec/bad_01_1_20260101080000_1.rec", "no recording");
    folder_.write("rec/notes.txt", "no recording either");
    tool_result result =
        run("index", std::string(REC_A) + " rec/bad_01_1_20260101080000_1.rec rec/missing.rec rec " + REC_B);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("bad_01_1_20260101080000_1.rec: it is no recording"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("missing.rec: "), std::string::npos);
    EXPECT_NE(result.out.find("2 added, 0 updated, 0 replaced, 0 unchanged, 3 failed"), std::string::npos)
        << result.out;
    json_result report = run_json("reindex", "--scan rec", 2);
    EXPECT_EQ(json_int(report, "unchanged"), 2);
    EXPECT_EQ(json_text(report, "files/0/result"), "failed");
    EXPECT_EQ(json_text(report, "files/0/reason"), "it is no recording");
}

TEST_F(OrbrecIndexTest, ReindexTakesAllFoldersAndTheWantedEndings)
{
    make(REC_A);
    folder_.write("rec/deep/er/.keep", "");
    make("rec/deep/er/door1_05_1_20260101080000_1.REC");
    folder_.write("more/.keep", "");
    make("more/door1_06_1_20260101080000_1.orb");
    EXPECT_EQ(json_int(run_json("reindex", "--scan rec"), "added"), 2);
    EXPECT_EQ(json_int(run_json("reindex", "--scan rec --scan more"), "added"), 0);
    EXPECT_EQ(json_int(run_json("reindex", "--scan rec --scan more --ending rec --ending orb"), "added"), 1);
    tool_result result = run("reindex", "--scan nowhere --scan rec");
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("nowhere: there is no such folder"), std::string::npos);
}

TEST_F(OrbrecIndexTest, NamesOutsideAsciiArriveAsTheSystemWritesThem)
{
    std::string name = "rec/\xE5\xA4\xA7\xE9\x97\xA8_03_1_20260101080000_1.rec"; // two Chinese characters
    make(name);
    ASSERT_EQ(run("index", "'" + name + "'").status, 0);
    EXPECT_NE(value("f.1.path").find("\xB4\xF3\xC3\xC5_03"), std::string::npos);
    // Searches compare the device with what clients send.
    EXPECT_EQ(value("f.1.host"), "\xE5\xA4\xA7\xE9\x97\xA8");
    EXPECT_EQ(run("check", "--scan rec").status, 0);
    EXPECT_EQ(run("unindex", "'" + name + "'").status, 0);
}

TEST_F(OrbrecIndexTest, EntryUnderANameRelativeToTheServiceIsTheSameFile)
{
    make(REC_A);
    ASSERT_EQ(run("index", REC_A).status, 0);
    std::string full = stored(REC_A), relative = "rec\\door1_03_2_20260101080000_1.rec";
    change({{"p." + full, std::nullopt}, {"p." + relative, "1"}, {"f.1.path", relative}});
    EXPECT_EQ(json_int(run_json("reindex", "--scan rec --root ."), "unchanged"), 1);
    EXPECT_EQ(run("check", "--scan rec --root .").status, 0);
    EXPECT_EQ(run("unindex", "'" + relative + "'").status, 0);
    EXPECT_EQ(value("ino"), "1");
    EXPECT_EQ(value("f.1.path"), ABSENT);
}

TEST_F(OrbrecIndexTest, PathThatLeadsToTheRecordOfAnotherFileCostsThatOneNothing)
{
    make(REC_A);
    make(REC_B);
    ASSERT_EQ(run("reindex", "--scan rec").status, 0);
    std::string a = id_of(REC_A), b = id_of(REC_B);
    change({{"p." + stored(REC_B), a}});
    EXPECT_EQ(run("unindex", REC_B).status, 0);
    EXPECT_EQ(value("f." + a + ".path"), stored(REC_A));
    change({{"p." + stored(REC_B), a}});
    EXPECT_EQ(json_text(run_json("index", REC_B), "files/0/result"), "added");
    EXPECT_EQ(value("f." + a + ".path"), stored(REC_A));
    EXPECT_EQ(id_of(REC_A), a);
    EXPECT_EQ(id_of(REC_B), "3");
}

TEST_F(OrbrecIndexTest, UnindexTakesEveryKeyAndLeavesTheFile)
{
    make(REC_A);
    make(REC_B, {.start = {2026, 1, 1, 9, 0, 0}});
    ASSERT_EQ(run("index", REC_A).status, 0);
    silo_pairs before = index();
    ASSERT_EQ(run("index", REC_B).status, 0);
    tool_result result = run("unindex", std::string(REC_B) + " rec/missing.rec");
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("rec/missing.rec is not in the index"), std::string::npos);
    EXPECT_NE(result.out.find("taken out of the index; the file stays"), std::string::npos);
    // Its number is not given again.
    EXPECT_EQ(value("ino"), "2");
    change({{"ino", "1"}});
    EXPECT_EQ(index(), before);
    EXPECT_FALSE(file_bytes(folder_.file(REC_B)).empty());
    json_result report = run_json("unindex", REC_A);
    EXPECT_EQ(json_text(report, "files/0/result"), "taken away");
    EXPECT_EQ(json_int(report, "files/0/id"), 1);
}

TEST_F(OrbrecIndexTest, ImportEntersWhatItMakes)
{
    clip_make(folder_.file("in.mp4"), {.frames = 100, .key_distance = 25});
    tool_result result =
        run("import", "in.mp4 -o out/ --host cam --channel 5 --split 2 --start '2026-03-01 08:00:00' --index");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(value("ino"), "2");
    EXPECT_EQ(value("f.1.host") + "/" + value("f.1.ch") + "/" + value("f.1.rt"), "cam/5/1");
    EXPECT_EQ(value("f.2.bt") + " " + value("f.2.et"), "2026-03-01 08:00:02 2026-03-01 08:00:04");
    EXPECT_EQ(run("check", "--scan out --md5").status, 0);
    // An index that cannot be had is told before hours of work.
    folder_.write("file", "no folder");
    result = orbrec(folder_, "import in.mp4 -o more/ --index --store lmdb:file");
    EXPECT_EQ(result.status, 3);
    EXPECT_FALSE(std::filesystem::exists(folder_.path() / "more/cam_05_0_20260301080000_1.rec"));
}

TEST_F(OrbrecIndexTest, StoreIsTheServicesUnlessNamed)
{
    make(REC_A);
    folder_.write("svc/etc/conf/vod_svr.json", R"({"store": "lmdb:var/other"})");
    folder_.write("bare/etc/conf/vod_svr.json", "{}");
    auto there = [&](const std::string &file) { return std::filesystem::exists(folder_.path() / file); };
    EXPECT_EQ(orbrec(folder_, std::string("index --root svc ") + REC_A).status, 0);
    EXPECT_TRUE(there("svc/var/other/data.mdb"));
    EXPECT_EQ(orbrec(folder_, std::string("index --root bare ") + REC_A).status, 0);
    EXPECT_TRUE(there("bare/var/index/data.mdb"));
    child_options options = {.folder = folder_.file("."), .environment = {"ZETA_DB_SOCK=lmdb:named"}};
    EXPECT_EQ(child_run(orbrec_words(std::string("index --root svc ") + REC_A), options).status, 0);
    EXPECT_TRUE(there("named/data.mdb"));
    options.folder = folder_.file("bare");
    options.environment.clear();
    EXPECT_EQ(child_run(orbrec_words("check"), options).status, 0);
}

TEST_F(OrbrecIndexTest, WrongArgumentsEndWith64)
{
    make(REC_A);
    struct row {
        const char *arguments, *text;
    };
    for (row each :
         {row{"index", "required"}, row{"unindex", "required"}, row{"reindex", "--scan is required"},
          row{"reindex rec", "--scan is required"}, row{"index rec/x.rec", "which index?"},
          row{"check", "which index?"}, row{"check rec", "rec"}, row{"index x --store lmdb:s --type 0", "--type"},
          row{"index x --store lmdb:s --type 65536", "--type"}, row{"index x --store lmdb:s --channel -1", "--channel"},
          row{"index x --store lmdb:s --host 012345678901234567890123456789012345678901234567890123456789",
              "--host wants at most 59 bytes"}}) {
        tool_result result = orbrec(folder_, each.arguments);
        EXPECT_EQ(result.status, 64) << each.arguments;
        EXPECT_NE((result.err + result.out).find(each.text), std::string::npos) << each.arguments << "\n" << result.err;
    }
    EXPECT_EQ(names_in(folder_.path().string()), std::vector<std::string>{"rec"});
}

TEST_F(OrbrecIndexTest, StoreThatCannotBeOpened)
{
    make(REC_A);
    folder_.write("file", "no folder");
    EXPECT_EQ(orbrec(folder_, std::string("index --store lmdb:file ") + REC_A).status, 3);
    EXPECT_EQ(orbrec(folder_, std::string("unindex --store lmdb:file ") + REC_A).status, 2);
    tool_result result = orbrec(folder_, std::string("unindex --store lmdb:nowhere ") + REC_A);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("there is no index at lmdb:nowhere"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder_.path() / "nowhere"));
}

TEST_F(OrbrecIndexTest, RunThatIsKilledGoesOnWhereItEnded)
{
    constexpr int FILES = 40;
    for (int i = 0; i < FILES; i++)
        make("rec/door1_" + std::to_string(i) + "_1_20260101080000_1.rec", {.frames = 10});
    std::vector<std::string> words = orbrec_words("reindex --scan rec --store " + uri());
    for (int i = 1; i <= 8; i++) {
        child_process child;
        ASSERT_TRUE(
            child.start(words, {.folder = folder_.file("."), .out = folder_.file("out"), .err = folder_.file("err")}));
        os_sleep(static_cast<uint32_t>(i * 7));
        child.end_now();
    }
    json_result report = run_json("reindex", "--scan rec");
    EXPECT_EQ(json_int(report, "added") + json_int(report, "unchanged"), FILES);
    EXPECT_EQ(value("ino"), std::to_string(FILES));
    EXPECT_EQ(json_int(run_json("check", "--scan rec --md5"), "entries"), FILES);
    EXPECT_EQ(json_int(run_json("reindex", "--scan rec"), "unchanged"), FILES);
}

TEST_F(OrbrecIndexTest, CtrlCEndsAfterTheFileAtHandAndTheNextRunDoesTheRest)
{
    constexpr int FILES = 300;
    for (int i = 0; i < FILES; i++)
        make("rec/door1_" + std::to_string(i) + "_1_20260101080000_1.rec", {.frames = 10});
    ASSERT_EQ(run("index", "rec/door1_0_1_20260101080000_1.rec").status, 0);
    silo_ptr db = silo_opened(uri());
    child_process child;
    ASSERT_TRUE(child.start(orbrec_words("reindex --scan rec --store " + uri()),
                            {.folder = folder_.file("."), .out = folder_.file("out"), .err = folder_.file("err")}));
    while (child.is_running() && std::stoi(value("ino")) < 5)
        os_sleep(1);
    // It cannot reach its end before it has been told.
    trans_ptr held_up = writing(db);
    ASSERT_TRUE(child.press_ctrl_c());
    os_sleep(100);
    held_up.reset();
    EXPECT_EQ(child.wait(60'000), 130);
    int entered = std::stoi(value("ino"));
    EXPECT_LT(entered, FILES);
    std::vector<uint8_t> told = file_bytes(folder_.file("err"));
    EXPECT_NE(std::string(told.begin(), told.end()).find("stopped; the same command goes on where it ended"),
              std::string::npos);
    json_result report = run_json("reindex", "--scan rec");
    EXPECT_EQ(json_int(report, "unchanged"), entered);
    EXPECT_EQ(json_int(report, "added"), FILES - entered);
}

TEST_F(OrbrecIndexTest, TwoRunsAtTheSameTimeEnterEachFileOnce)
{
    constexpr int FILES = 30;
    for (int i = 0; i < FILES; i++)
        make("rec/door1_" + std::to_string(i) + "_1_20260101080000_1.rec", {.frames = 10});
    std::vector<std::thread> runs;
    for (int i = 0; i < 3; i++)
        runs.emplace_back([&] { EXPECT_EQ(run("reindex", "--scan rec").status, 0); });
    for (std::thread &each : runs)
        each.join();
    EXPECT_EQ(value("ino"), std::to_string(FILES));
    EXPECT_EQ(run("check", "--scan rec").status, 0);
}

TEST(OrbrecFactsTest, NamesTellDeviceChannelTypeAndBegin)
{
    recording_name_facts facts;
    ASSERT_TRUE(recording_name_read("C:\\a_b\\gate_north_12_8_20260229235959_x.rec", &facts));
    EXPECT_EQ(facts.host, "gate_north");
    EXPECT_EQ(facts.channel, 12u);
    EXPECT_EQ(facts.type, 8u);
    EXPECT_EQ(facts.begin, "2026-02-29 23:59:59");
    for (const char *name :
         {"a.rec", "_01_0_20260101080000_1.rec", "x_0_20260101080000_1.rec", "x_a_0_20260101080000_1.rec",
          "x_01_0_2026010108000_1.rec", "x_01_0_20261301080000_1.rec", "x_01_0_20260101250000_1.rec",
          "x_4294967296_0_20260101080000_1.rec", "x_-1_0_20260101080000_1.rec", "", "/", "_"})
        EXPECT_FALSE(recording_name_read(name, &facts)) << name;
}

TEST(OrbrecFactsTest, Md5IsThatOfTheBytes)
{
    temp_folder folder;
    os_fs_charset_set("UTF-8");
    struct row {
        const char *text, *md5;
    };
    for (row each : {row{"", "d41d8cd98f00b204e9800998ecf8427e"}, row{"abc", "900150983cd24fb0d6963f7d28e17f72"},
                     row{"message digest", "f96b697d7cb7938d525a2f31aaf161d0"}}) {
        folder.write("x", each.text);
        EXPECT_EQ(file_md5(folder.file("x"), strlen(each.text), nullptr), each.md5);
        // One that has become longer meanwhile.
        EXPECT_EQ(file_md5(folder.file("x"), strlen(each.text) + 1, nullptr), "");
    }
    EXPECT_EQ(file_md5(folder.file("missing"), 0, nullptr), "");
}
