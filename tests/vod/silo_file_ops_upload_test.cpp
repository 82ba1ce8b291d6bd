#include "platform/silo/silo.h"
#include "tests/silo_pool/index_fixture.h"
#include "vod/silo_file_ops.h"

class UploadRecordTest : public IndexTest {
protected:
    UploadRecordTest()
    {
        strcpy(info.filename, "D:\\up\\a.mp4");
        strcpy(info.devid, "dev1");
        strcpy(info.md5, "abc");
        info.start = {2024, 1, 2, 3, 4, 5};
        info.end = {2024, 1, 2, 4, 4, 5};
        info.ch = 3;
        info.file_length = 123456789012345;
        info.file_type = 1;
    }
    void expect_pauses(size_t count) { EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>(count, 1000)); }
    UpDataInfo info = {};
};

TEST_F(UploadRecordTest, TheFirstOneGetsId1AndIsWrittenInItsOrder)
{
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    EXPECT_EQ(fake_silo_calls_of({"begin", "get", "lock", "set", "commit", "end"}),
              (words{"begin write",
                     "get p.D:\\up\\a.mp4",
                     "get rev.hi",
                     "lock ino 3 1",
                     "get ino",
                     "set ino=1",
                     "set p.D:\\up\\a.mp4=1",
                     "set f.1.path=D:\\up\\a.mp4",
                     "set f.1.bt=2024-01-02 03:04:05",
                     "set bt.2024-01-02 03:04:05.1=1",
                     "set f.1.host=dev1",
                     "set f.1.ch=3",
                     "set f.1.et=2024-01-02 04:04:05",
                     "set r.1=2",
                     "set f.1.size=123456789012345",
                     "set f.1.rt=1",
                     "set f.1.md5=abc",
                     "set f.1.lock_time=0-00-00 00:00:00",
                     "commit",
                     "end"}));
    expect_pauses(0);
    EXPECT_EQ(fake_silo_calls_of({"connect"}).size(), 1u);
    EXPECT_EQ(fake_silo_open_handles(), 1) << "the connection is back in the pool";
    EXPECT_EQ(found("dev1", 3), (ids{1}));
}

TEST_F(UploadRecordTest, NegativeNumbersAreWrittenAsUnsignedOnes)
{
    info.ch = -1;
    info.file_type = -2;
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_EQ(fake_silo_content()["f.1.ch"], "4294967295");
    EXPECT_EQ(fake_silo_content()["f.1.rt"], "4294967294");
}

TEST_F(UploadRecordTest, TextsWithoutAnEndAreReadToTheirPlaces)
{
    memset(info.filename, 'f', sizeof info.filename);
    memset(info.devid, 'd', sizeof info.devid);
    memset(info.md5, 'm', sizeof info.md5);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_EQ(fake_silo_content()["f.1.path"], std::string(260, 'f'));
    EXPECT_EQ(fake_silo_content()["f.1.md5"], std::string(33, 'm'));
}

TEST_F(UploadRecordTest, AContinuedUploadRefreshesItsRecord)
{
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    fake_silo_clear_calls();
    info.end = {2024, 1, 2, 5, 0, 0};
    info.start = {2030, 1, 1, 0, 0, 0};
    info.ch = 9;
    info.lock_time = {2024, 5, 6, 7, 8, 9};
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    EXPECT_EQ(fake_silo_calls_of({"lock", "set"}),
              (words{"set f.1.et=2024-01-02 05:00:00", "set r.1=2", "set f.1.size=123456789012345", "set f.1.rt=1",
                     "set f.1.md5=abc", "set f.1.lock_time=2024-05-06 07:08:09"}));
}

TEST_F(UploadRecordTest, APathThatIsThereIsRefusedThreeTimes)
{
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    info.id[0] = '\0';
    fake_content before = fake_silo_content();
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 0);
    EXPECT_EQ(log.count("silo_insert_upload_rec_info: file 'D:\\up\\a.mp4' already exists", LOG_SYSTEM), 3u);
    EXPECT_EQ(fake_silo_content(), before);
    EXPECT_STREQ(info.id, "");
    expect_pauses(3);
}

TEST_F(UploadRecordTest, AnotherIdIsRefused)
{
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    strcpy(info.id, "17");
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 0);
    EXPECT_EQ(
        log.count("silo_insert_upload_rec_info: file 'D:\\up\\a.mp4' id not match origin:1 != new:17", LOG_SYSTEM), 3u);
    expect_pauses(3);
}

struct refusal {
    const char *key, *value, *call, *text;
};
class RefusedUploadTest : public UploadRecordTest, public testing::WithParamInterface<refusal> {};

TEST_P(RefusedUploadTest, EndsWithoutACommitAndIsTriedThreeTimes)
{
    auto [key, value, call, text] = GetParam();
    if (key != nullptr)
        fake_silo_put(key, value);
    if (call != nullptr)
        fake_silo_fail(call, 3);
    fake_content before = fake_silo_content();
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 0);
    if (text != nullptr) {
        EXPECT_EQ(log.count(text, LOG_SYSTEM), 3u);
    }
    EXPECT_EQ(fake_silo_content(), before);
    EXPECT_EQ(fake_silo_calls_of({"end"}).size(),
              fake_silo_calls_of({"begin"}).size() - (call && call[0] == 'b' ? 3 : 0));
    EXPECT_STREQ(info.id, "");
    expect_pauses(3);
    if (key == nullptr) {
        EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    }
}
INSTANTIATE_TEST_SUITE_P(
    Reasons, RefusedUploadTest,
    testing::Values(refusal{"rev.hi", "x", nullptr, "silo_insert_upload_rec_info: get rev.hi error"},
                    refusal{"ino", "x", nullptr, "silo_insert_upload_rec_info: get ino error"},
                    refusal{nullptr, nullptr, "lock ino", "silo_insert_upload_rec_info: plock 'ino' failed"},
                    refusal{nullptr, nullptr, "begin write", nullptr},
                    refusal{nullptr, nullptr, "connect", "silo_connect_fd failed, uri:127.0.0.1:12777"},
                    refusal{nullptr, nullptr, "set f.1.md5", nullptr}, refusal{nullptr, nullptr, "commit", nullptr}));

TEST_F(UploadRecordTest, ALaterAttemptMaySucceed)
{
    fake_silo_fail("commit", 2);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    expect_pauses(2);
}

// ---- Answers that are lost ------------------------------------------------------------------------------------------

TEST_F(UploadRecordTest, ACommitWhoseAnswerWasLostIsRecognised)
{
    fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, true);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    EXPECT_EQ(fake_silo_content()["ino"], "1");
    EXPECT_EQ(log.count_containing("already exists"), 0u);
    expect_pauses(1);
}

TEST_F(UploadRecordTest, ACommitThatWasLostIsMadeAgain)
{
    fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, false);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    expect_pauses(1);
}

TEST_F(UploadRecordTest, AnAnswerLostInTheLastAttemptIsLookedFor)
{
    fake_silo_fail("begin write", 2);
    fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, true);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    expect_pauses(3);
    EXPECT_EQ(fake_silo_calls_of({"begin read"}).size(), 1u);
}

TEST_F(UploadRecordTest, AnAnswerLostThreeTimesWithNothingAppliedIsAFailure)
{
    for (int i = 0; i < 3; i++)
        fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, false);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 0);
    EXPECT_STREQ(info.id, "");
}

TEST_F(UploadRecordTest, AnotherFilesRecordIsNotTakenForOurs)
{
    fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, false);
    // Between the attempts somebody else enters the same path under the same id, with other values.
    struct other_writer {
        static void write() { put_made({.id = 1, .path = "D:\\up\\a.mp4", .host = "other"}); }
    };
    os_clock clock_of_other = {[](void *) -> uint64_t { return 1; }, [](void *) -> int64_t { return 1; },
                               [](void *, uint32_t) { other_writer::write(); }, nullptr};
    os_clock_install(&clock_of_other);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 0);
    EXPECT_EQ(log.count_containing("already exists"), 2u);
}

// What another writer may have left under our path and our id: each value alone tells that it is not ours.
class OthersRecordTest : public UploadRecordTest, public testing::WithParamInterface<fake_content::value_type> {
protected:
    // Writes the other's record in the pause behind an attempt.
    static void write(void *user, uint32_t)
    {
        fake_content content = {{"rev.hi", "2"}, {"rev.lo", "1"}, {"ino", "1"}};
        content.merge(fake_content(*static_cast<fake_content *>(user)));
        fake_silo_set_content(content);
    }
    // As an attempt writes it.
    fake_content own_record()
    {
        EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
        fake_content content = fake_silo_content();
        fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}, {"ino", "0"}});
        info.id[0] = '\0';
        log.clear();
        return content;
    }
    int insert_beside(fake_content other)
    {
        os_clock other_writer = {[](void *) -> uint64_t { return 1; }, [](void *) -> int64_t { return 1; }, write,
                                 &other};
        fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, false);
        os_clock_install(&other_writer);
        int result = silo_insert_upload_rec_info(&info);
        os_clock_install(nullptr);
        return result;
    }
};

TEST_P(OthersRecordTest, IsNotTakenForOurs)
{
    fake_content other = own_record();
    auto [key, value] = GetParam();
    ASSERT_TRUE(other.contains(key));
    ASSERT_NE(other[key], value);
    other[key] = value;
    EXPECT_EQ(insert_beside(other), 0);
    EXPECT_STREQ(info.id, "");
    EXPECT_EQ(log.count_containing("already exists"), 2u);
}
INSTANTIATE_TEST_SUITE_P(Values, OthersRecordTest,
                         testing::Values(fake_content::value_type{"f.1.path", "D:\\up\\b.mp4"},
                                         fake_content::value_type{"f.1.bt", "2024-01-02 03:04:06"},
                                         fake_content::value_type{"f.1.et", "2024-01-02 04:04:06"},
                                         fake_content::value_type{"f.1.host", "dev2"},
                                         fake_content::value_type{"f.1.ch", "4"},
                                         fake_content::value_type{"f.1.size", "123456789012346"},
                                         fake_content::value_type{"f.1.rt", "2"},
                                         fake_content::value_type{"f.1.md5", "abd"}));

TEST_F(OthersRecordTest, WithTheSameValuesIsOurs)
{
    fake_content own = own_record();
    own["f.1.lock_level"] = "3"; // others may lock it meanwhile
    own["f.1.lock_time"] = "2024-02-03 04:05:06";
    EXPECT_EQ(insert_beside(own), 1);
    EXPECT_STREQ(info.id, "1");
    EXPECT_EQ(log.count_containing("already exists"), 0u);
}

TEST_F(OthersRecordTest, UnderAnotherIdIsNotOurs)
{
    fake_content moved = {{"ino", "2"}};
    for (auto [key, value] : own_record())
        if (key.starts_with("f.1."))
            moved["f.2." + key.substr(4)] = value;
    moved["p.D:\\up\\a.mp4"] = moved["bt.2024-01-02 03:04:05.2"] = "2";
    moved["r.2"] = "2";
    EXPECT_EQ(insert_beside(moved), 0);
    EXPECT_EQ(log.count_containing("already exists"), 2u);
}

TEST_F(UploadRecordTest, AnAnswerLostBeforeTheStoreWentAwayIsLookedForAtTheEnd)
{
    fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, true);
    fake_silo_fail("begin write", 2, 1);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    expect_pauses(3);
}

TEST_F(UploadRecordTest, LongTextsOfOurOwnAreRecognised)
{
    memset(info.devid, 'd', sizeof info.devid);
    memset(info.md5, 'm', sizeof info.md5); // one more than searches take
    fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, true);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
}

TEST_F(UploadRecordTest, AnAnswerLostWhileContinuingIsJustRepeated)
{
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, true);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    expect_pauses(1);
}

// ---- Other writers in the way ---------------------------------------------------------------------------------------

TEST_F(UploadRecordTest, AConflictIsRepeatedAtOnce)
{
    for (int i = 0; i < 4; i++)
        fake_silo_answer_commit(SILO_COMMIT_CONFLICT);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    expect_pauses(0);
    fake_silo_set_conflict(true);
    fake_silo_fail("get rev.hi", 2);
    strcpy(info.filename, "D:\\up\\b.mp4");
    info.id[0] = '\0';
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 1);
    expect_pauses(0);
    EXPECT_EQ(log.count_containing("rev.hi"), 0u);
}

TEST_F(UploadRecordTest, EndlessConflictsAreAFailure)
{
    fake_silo_set_conflict(true);
    fake_silo_fail("lock", 1000);
    EXPECT_EQ(silo_insert_upload_rec_info(&info), 0);
    expect_pauses(3);
    EXPECT_EQ(fake_silo_calls_of({"lock"}).size(), 18u);
}

// ---- Removing -------------------------------------------------------------------------------------------------------

TEST_F(UploadRecordTest, ARemovedRecordIsGone)
{
    fake_content before = fake_silo_content();
    before["ino"] = "1";
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_EQ(silo_delete_upload_rec_info(info.filename), 1);
    EXPECT_EQ(fake_silo_content(), before);
    EXPECT_EQ(fake_silo_calls_of({"begin", "commit", "end"}),
              (words{"begin write", "commit", "end", "begin write", "commit", "end"}));
    expect_pauses(0);
    info.id[0] = '\0';
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "2") << "ids are not given again";
}

TEST_F(UploadRecordTest, AnUnknownPathIsTriedThreeTimes)
{
    EXPECT_EQ(silo_delete_upload_rec_info("D:\\none"), 0);
    expect_pauses(3);
    EXPECT_TRUE(fake_silo_calls_of({"commit"}).empty());
    EXPECT_EQ(silo_delete_upload_rec_info(nullptr), 0);
    EXPECT_EQ(silo_insert_upload_rec_info(nullptr), 0);
    expect_pauses(3);
}

TEST_F(UploadRecordTest, ARemovalWhoseAnswerWasLostIsRecognised)
{
    for (bool applied : {true, false}) {
        info.id[0] = '\0';
        ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
        clock.clear_sleeps();
        fake_silo_answer_commit(SILO_COMMIT_UNKNOWN, applied);
        EXPECT_EQ(silo_delete_upload_rec_info(info.filename), 1);
        EXPECT_FALSE(fake_silo_content().contains("p.D:\\up\\a.mp4"));
        expect_pauses(1);
    }
}

TEST_F(UploadRecordTest, FailuresWhileRemoving)
{
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    fake_content before = fake_silo_content();
    for (const char *call : {"begin write", "delete p.", "commit"}) {
        clock.clear_sleeps();
        fake_silo_fail(call, 3);
        EXPECT_EQ(silo_delete_upload_rec_info(info.filename), 0) << call;
        EXPECT_EQ(fake_silo_content(), before) << call;
        expect_pauses(3);
    }
    fake_silo_answer_commit(SILO_COMMIT_CONFLICT);
    clock.clear_sleeps();
    EXPECT_EQ(silo_delete_upload_rec_info(info.filename), 1);
    expect_pauses(0);
}
