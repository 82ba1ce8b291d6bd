// orbrec check finds what a test puts wrong between index and files, mends what it may, and never deletes a recording.
#include "platform/os/os.h"
#include "tests/tools/orbrec_index_fixture.h"

#include <optional>

namespace {

class OrbrecCheckTest : public OrbrecIndexTest {
protected:
    void SetUp() override
    {
        make(REC_A);
        make(REC_B, {.start = {2026, 1, 1, 9, 0, 0}});
        ASSERT_EQ(run("index", std::string(REC_A) + " " + REC_B).status, 0);
        sound_ = index();
    }
    // The problem's name and state, one line each.
    std::string found(const std::string &rest, int status)
    {
        json_result report = run_json("check", "--scan rec " + rest, status);
        std::string lines;
        json_object *problems = json_at(report, "problems");
        for (size_t i = 0; problems != nullptr && i < json_object_array_length(problems); i++) {
            std::string at = "problems/" + std::to_string(i) + "/";
            lines += json_text(report, at + "problem") + " " + json_text(report, at + "state") + "\n";
        }
        return lines;
    }
    void expect_sound_again()
    {
        EXPECT_EQ(found("", 0), "");
        EXPECT_EQ(index(), sound_);
    }
    silo_pairs sound_;
};

} // namespace

TEST_F(OrbrecCheckTest, SoundIndexHasNoProblem)
{
    tool_result result = run("check", "--scan rec --md5");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "2 entries, 0 of them hidden; 2 files scanned; 0 problems open, 0 mended, 0 hidden now\n");
    EXPECT_EQ(found("--repair", 0), "");
    EXPECT_EQ(index(), sound_);
}

TEST_F(OrbrecCheckTest, FileWithoutAnEntryIsEntered)
{
    make("rec/door1_05_1_20260101100000_1.rec");
    folder_.write("rec/door1_06_1_20260101100000_1.rec", "no recording");
    EXPECT_EQ(found("", 1), "file-without-entry open\nfile-without-entry open\n");
    EXPECT_EQ(index(), sound_);
    EXPECT_EQ(found("--repair", 1), "file-without-entry mended\nfile-without-entry open\n");
    EXPECT_EQ(id_of("rec/door1_05_1_20260101100000_1.rec"), "3");
}

TEST_F(OrbrecCheckTest, EntryWhoseFileIsGoneIsHiddenAndComesBackWithIt)
{
    std::vector<uint8_t> bytes = file_bytes(folder_.file(REC_B));
    remove(REC_B);
    EXPECT_EQ(found("", 1), "file-missing open\n");
    EXPECT_EQ(index(), sound_);
    EXPECT_EQ(found("--repair", 0), "file-missing hidden\n");
    EXPECT_EQ(value("r.2"), "0");
    EXPECT_EQ(value("f.2.path"), stored(REC_B));
    EXPECT_EQ(json_int(run_json("check", "--scan rec"), "hidden"), 1);

    file_write(folder_.file(REC_B), bytes);
    EXPECT_EQ(found("", 1), "file-back open\n");
    EXPECT_EQ(found("--repair", 0), "file-back mended\n");
    expect_sound_again();
}

TEST_F(OrbrecCheckTest, EntriesOfAFolderThatIsGoneOrEmptyAreNotHidden)
{
    std::filesystem::rename(folder_.path() / "rec", folder_.path() / "disk");
    for (bool is_mount_point : {false, true}) {
        if (is_mount_point)
            std::filesystem::create_directory(folder_.path() / "rec");
        json_result report = run_json("check", "--repair", 1);
        EXPECT_EQ(json_int(report, "open"), 2);
        EXPECT_EQ(json_text(report, "problems/0/problem"), "folder-missing");
        EXPECT_EQ(json_text(report, "problems/1/problem"), "folder-missing");
        EXPECT_EQ(index(), sound_);
    }
}

TEST_F(OrbrecCheckTest, EntriesOfOtherProgramsRevisionsAreLeftAlone)
{
    change({{"r.1", "9"}});
    silo_pairs before = index();
    EXPECT_EQ(json_int(run_json("check", "--repair --scan rec"), "hidden"), 1);
    EXPECT_EQ(index(), before);
}

TEST_F(OrbrecCheckTest, SizesAndTimesThatDifferAreMended)
{
    struct row {
        std::vector<std::pair<std::string, std::optional<std::string>>> damage;
        const char *problem;
    };
    for (const row &each :
         {row{{{"f.1.size", "17"}}, "size-differs"}, row{{{"f.1.size", std::nullopt}}, "size-differs"},
          row{{{"f.1.et", "2026-01-01 08:00:05"}}, "end-differs"}, row{{{"f.1.et", std::nullopt}}, "end-differs"}}) {
        change(each.damage);
        EXPECT_EQ(found("", 1), std::string(each.problem) + " open\n");
        EXPECT_EQ(found("--repair", 0), std::string(each.problem) + " mended\n");
        expect_sound_again();
    }
}

TEST_F(OrbrecCheckTest, BeginThatDiffersIsToldAndLeft)
{
    change({{"f.1.bt", "2026-01-01 07:00:00"},
            {"bt.2026-01-01 08:00:00.1", std::nullopt},
            {"bt.2026-01-01 07:00:00.1", "1"},
            {"f.1.size", "5"}});
    silo_pairs before = index();
    EXPECT_EQ(found("--repair", 1), "begin-differs open\nsize-differs open\n");
    EXPECT_EQ(index(), before);
}

TEST_F(OrbrecCheckTest, BytesThatChangedAreSeenByMd5Only)
{
    std::vector<uint8_t> bytes = file_bytes(folder_.file(REC_A));
    bytes[bytes.size() - 20] ^= 1;
    file_write(folder_.file(REC_A), bytes);
    age(REC_A, 1'700'000'000);
    EXPECT_EQ(found("", 0), "");
    EXPECT_EQ(found("--md5", 1), "md5-differs open\n");
    EXPECT_EQ(found("--md5 --repair", 1), "md5-differs open\n");
    EXPECT_EQ(index(), sound_);
    EXPECT_EQ(run("index", std::string(REC_A) + " --md5").status, 0);
    EXPECT_EQ(found("--md5", 0), "");
}

TEST_F(OrbrecCheckTest, RecordingThatIsBeingWrittenIsNoProblem)
{
    recording_plan plan;
    plan.key_bytes = 600;
    plan.delta_bytes = 200;
    std::string name = "rec/door1_07_1_20260101080000_1.rec";
    recording_grower grower(folder_.file(name), plan);
    grower.add_frames(50);
    age(name, os_time());
    ASSERT_EQ(run("index", name).status, 0);
    grower.add_frames(50);
    age(name, os_time());
    EXPECT_EQ(found("--md5", 0), "");
    grower.finish();
    EXPECT_EQ(found("--repair", 0), "end-differs mended\nsize-differs mended\n");
    EXPECT_EQ(found("", 0), "");
}

TEST_F(OrbrecCheckTest, UploadThatIsNoRecordingIsComparedBySize)
{
    folder_.write("rec/plan.pdf", "0123456789");
    std::string path = stored("rec/plan.pdf");
    change({{"ino", "3"},
            {"p." + path, "3"},
            {"f.3.path", path},
            {"f.3.bt", "2026-01-01 08:00:00"},
            {"f.3.ch", "1"},
            {"bt.2026-01-01 08:00:00.3", "3"},
            {"f.3.host", "x"},
            {"r.3", "2"},
            {"f.3.et", "2026-01-01 08:00:00"},
            {"f.3.size", "9"},
            {"f.3.rt", "1"},
            {"f.3.md5", "none"}});
    EXPECT_EQ(found("", 1), "size-differs open\n");
    EXPECT_EQ(found("--repair", 0), "size-differs mended\n");
    EXPECT_EQ(value("f.3.size") + value("f.3.md5"), "10781e5e245d69b566979b86e28d23f2c7");
    EXPECT_EQ(found("--md5", 0), "");
}

TEST_F(OrbrecCheckTest, BrokenGroupsOfKeysAreMended)
{
    std::string path = "p." + stored(REC_A), time = "bt.2026-01-01 08:00:00.1";
    struct row {
        std::vector<std::pair<std::string, std::optional<std::string>>> damage;
        const char *problems;
    };
    const row ROWS[] = {
        {{{path, std::nullopt}}, "entry-without-path open\n"},
        {{{time, std::nullopt}}, "entry-without-time open\n"},
        {{{time, "2"}}, "time-without-entry open\nentry-without-time open\n"},
        {{{time, "x"}}, "bad-value open\nentry-without-time open\n"},
        {{{path, "2"}}, "path-without-entry open\nentry-without-path open\n"},
        {{{"r.1", std::nullopt}}, "incomplete-entry open\n"},
        {{{"r.1", "x"}}, "bad-value open\nincomplete-entry open\n"},
        {{{"f.1.rt", std::nullopt}}, "incomplete-entry open\n"},
        {{{"f.1.size", "much"}}, "bad-value open\nsize-differs open\n"},
        {{{"f.1.et", "later"}}, "bad-value open\nend-differs open\n"},
        {{{"f.1.path", std::nullopt}}, "path-without-entry open\nrevision-without-entry open\nincomplete-entry open\n"},
        {{{"f.1.bt", std::nullopt}}, "time-without-entry open\nincomplete-entry open\n"},
        {{{"ino", "1"}}, "id-beyond-counter open\n"},
        {{{"ino", std::nullopt}}, "no-counters open\n"},
        {{{"rev.hi", std::nullopt}, {"rev.lo", std::nullopt}}, "no-counters open\nno-counters open\n"},
        {{{"p.gone", "7"}, {"bt.2020-01-01 00:00:00.7", "7"}, {"r.7", "2"}},
         "time-without-entry open\npath-without-entry open\nrevision-without-entry open\n"},
        {{{"p.gone", "1"}}, "path-without-entry open\n"},
        {{{"bt.2020-01-01 00:00:00.1", "1"}}, "time-without-entry open\n"},
    };
    for (const row &each : ROWS) {
        change(each.damage);
        EXPECT_EQ(found("", 1), each.problems);
        std::string repaired = found("--repair", 0);
        EXPECT_EQ(repaired.find("open"), std::string::npos) << each.problems << repaired;
        expect_sound_again();
    }
}

TEST_F(OrbrecCheckTest, EntryWithoutDeviceOrChannelIsEnteredAnew)
{
    for (const char *key : {"f.1.host", "f.1.ch"}) {
        SCOPED_TRACE(key);
        change({{key, std::nullopt}});
        EXPECT_EQ(found("--repair", 0), "incomplete-entry mended\n");
        EXPECT_EQ(found("", 0), "");
        std::string id = id_of(REC_A);
        EXPECT_EQ(value("f." + id + ".host") + value("f." + id + ".ch"), "door13");
        // Back to the start for the next round.
        ASSERT_EQ(run("unindex", std::string(REC_A) + " " + REC_B).status, 0);
        change({{"ino", "0"}});
        ASSERT_EQ(run("index", std::string(REC_A) + " " + REC_B).status, 0);
    }
}

TEST_F(OrbrecCheckTest, SecondEntryOfOneFileIsHidden)
{
    std::string path = stored(REC_A);
    change({{"ino", "3"},
            {"f.3.path", path},
            {"f.3.bt", "2026-01-01 08:00:00"},
            {"bt.2026-01-01 08:00:00.3", "3"},
            {"f.3.host", "door1"},
            {"f.3.ch", "3"},
            {"f.3.rt", "1"},
            {"r.3", "2"},
            {"f.3.et", "2026-01-01 08:00:04"},
            {"f.3.size", value("f.1.size")}});
    EXPECT_EQ(found("", 1), "entry-without-path open\n");
    EXPECT_EQ(found("--repair", 0), "entry-without-path mended\n");
    EXPECT_EQ(found("", 0), "");
    EXPECT_EQ(value("r.3"), "0");
    EXPECT_EQ(value("p." + path), "1");
    EXPECT_EQ(value("r.1"), "2");
}

TEST_F(OrbrecCheckTest, WhatCannotBeMendedIsLeftWithItsReason)
{
    change({{"zzz", "foreign"}, {"f.1.colour", "red"}});
    silo_pairs before = index();
    tool_result result = run("check", "--scan rec --repair");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("key zzz: no key of the index (left: it is not the index's and stays as it is)"),
              std::string::npos)
        << result.out;
    EXPECT_EQ(index(), before);
}

TEST_F(OrbrecCheckTest, EmptyForeignOrUnreadableStoreIsRefusedAndNotTouched)
{
    tool_result result = orbrec(folder_, "check --repair --scan rec --store lmdb:nowhere");
    EXPECT_EQ(result.status, 2);
    EXPECT_FALSE(std::filesystem::exists(folder_.path() / "nowhere"));

    std::string other = "lmdb:" + folder_.file("other");
    silo_ptr db = silo_opened(other);
    result = orbrec(folder_, "check --repair --scan rec --store " + other);
    EXPECT_EQ(result.status, 2) << result.out;
    EXPECT_NE(result.err.find("it is empty or holds something else; nothing was changed"), std::string::npos)
        << result.err;
    EXPECT_TRUE(everything(reading(db)).empty());

    silo_pairs foreign = {{"f.1", "1"}, {"f.x.path", "2"}, {"ino", "5"}, {"p.name", "3"}, {"r.1", "4"}};
    ASSERT_EQ(write_all(db, foreign), 0);
    result = orbrec(folder_, "check --repair --scan rec --store " + other);
    EXPECT_EQ(result.status, 2) << result.out;
    EXPECT_EQ(everything(reading(db)), foreign);

    // With the index's counters among more of something else.
    foreign = {{"a", "1"}, {"b", "1"}, {"ino", "5"}, {"p.name", "3"}, {"rev.hi", "2"}, {"rev.lo", "1"}};
    ASSERT_EQ(drop_all(writing(db), "x"), 0);
    trans_ptr trans = writing(db);
    for (const char *key : {"f.1", "f.x.path", "r.1"})
        drop(trans, key);
    for (const silo_pair &each : foreign)
        put(trans, each.first, each.second);
    ASSERT_EQ(silo_commit(trans.get()), 0);
    trans.reset();
    EXPECT_EQ(orbrec(folder_, "check --scan rec --store " + other).status, 1);
    EXPECT_EQ(orbrec(folder_, "check --repair --scan rec --store " + other).status, 2);
    EXPECT_EQ(everything(reading(db)), foreign);

    folder_.write("torn/data.mdb", std::string(20000, 'x'));
    result = orbrec(folder_, "check --repair --scan rec --store lmdb:torn");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(file_bytes(folder_.file("torn/data.mdb")), std::vector<uint8_t>(20000, 'x'));
    EXPECT_EQ(names_in(folder_.file("rec")).size(), 3u);
}

TEST_F(OrbrecCheckTest, FolderThatIsNotThereIsRefused)
{
    tool_result result = run("check", "--scan nowhere --repair");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(index(), sound_);
}

TEST_F(OrbrecCheckTest, OnlyTheNamedFoldersAndDevicesAreLookedAt)
{
    remove(REC_A);
    folder_.write("empty/.keep", "");
    EXPECT_EQ(run("check", "--scan empty").status, 0);
    EXPECT_EQ(run("check", "--host door2").status, 0);
    EXPECT_EQ(run("check", "--host door2 --host door1").status, 1);
    EXPECT_EQ(run("check").status, 1);
}

TEST_F(OrbrecCheckTest, ReadersAreNotDisturbedByARepair)
{
    silo_ptr db = silo_opened(uri());
    trans_ptr reader = reading(db);
    remove(REC_B);
    ASSERT_EQ(everything(reader), sound_);
    EXPECT_EQ(found("--repair", 0), "file-missing hidden\n");
    EXPECT_EQ(everything(reader), sound_);
    reader.reset();
    EXPECT_EQ(get(reading(db), "r.2"), "0");
}
