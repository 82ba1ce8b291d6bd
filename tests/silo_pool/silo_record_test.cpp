#include "silo_pool/silo_record.h"

#include "silo_pool/silo_check.h"
#include "tests/silo_pool/index_fixture.h"

class RecordTest : public IndexTest {
protected:
    silo_transaction_t *write()
    {
        trans.reset();
        trans.reset(silo_begin_transaction(conn->db, SILO_WRITE));
        return trans.get();
    }
    silo_put_result put(const silo_record_values &wish, std::string_view expected = {})
    {
        silo_put_result result = silo_record_put(write(), wish, expected, &id);
        if (result == SILO_PUT_NEW || result == SILO_PUT_CONTINUED) {
            EXPECT_EQ(silo_commit(trans.get()), 0);
        }
        trans.reset();
        return result;
    }
    silo_connection_ptr conn{silo_pool_get_connection()};
    silo_transaction_ptr trans;
    uint64_t id = 0;
    silo_record_values values = {.path = "D:\\a.orb",
                                 .bt = "2024-01-01 00:00:00",
                                 .host = "dev1",
                                 .ch = 3,
                                 .et = "2024-01-01 00:10:00",
                                 .size = 5000,
                                 .rt = 1,
                                 .md5 = "abc",
                                 .lock_time = "0-00-00 00:00:00",
                                 .left_out = 0};
};

static const words NEW_RECORD = {"set ino=1",
                                 "set p.D:\\a.orb=1",
                                 "set f.1.path=D:\\a.orb",
                                 "set f.1.bt=2024-01-01 00:00:00",
                                 "set bt.2024-01-01 00:00:00.1=1",
                                 "set f.1.host=dev1",
                                 "set f.1.ch=3",
                                 "set f.1.et=2024-01-01 00:10:00",
                                 "set r.1=2",
                                 "set f.1.size=5000",
                                 "set f.1.rt=1",
                                 "set f.1.md5=abc",
                                 "set f.1.lock_time=0-00-00 00:00:00"};

TEST_F(RecordTest, ANewRecordIsWrittenInItsOrderUnderTheNextId)
{
    EXPECT_EQ(put(values), SILO_PUT_NEW);
    EXPECT_EQ(id, 1u);
    words wanted = {"get p.D:\\a.orb", "get rev.hi", "lock ino 3 1", "get ino"};
    wanted.insert(wanted.end(), NEW_RECORD.begin(), NEW_RECORD.end());
    EXPECT_EQ(fake_silo_calls_of({"get", "lock", "set"}), wanted);
    fake_silo_clear_calls();
    values.path = "D:\\b.orb";
    EXPECT_EQ(put(values), SILO_PUT_NEW);
    EXPECT_EQ(id, 2u);
}

TEST_F(RecordTest, AContinuedRecordKeepsWhatIsWrittenOnce)
{
    put(values);
    fake_silo_put("rev.hi", "7");
    fake_silo_clear_calls();
    EXPECT_EQ(put({.path = "D:\\a.orb",
                   .bt = "2030-01-01 00:00:00",
                   .host = "other",
                   .ch = 9,
                   .et = "2024-01-01 00:20:00",
                   .size = 6000,
                   .rt = 8,
                   .md5 = "def",
                   .lock_time = "1-01-01 00:00:00",
                   .left_out = 0},
                  "1"),
              SILO_PUT_CONTINUED);
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(fake_silo_calls_of({"lock", "set"}),
              (words{"set f.1.et=2024-01-01 00:20:00", "set r.1=7", "set f.1.size=6000", "set f.1.rt=8",
                     "set f.1.md5=def", "set f.1.lock_time=1-01-01 00:00:00"}));
}

TEST_F(RecordTest, ValuesThatAreNotKnownAreNotWritten)
{
    values.left_out = SILO_HAS_ET | SILO_HAS_SIZE | SILO_HAS_MD5 | SILO_HAS_LOCK_TIME;
    EXPECT_EQ(put(values), SILO_PUT_NEW);
    fake_content index = fake_silo_content();
    for (const char *key : {"f.1.et", "f.1.size", "f.1.md5", "f.1.lock_time"})
        EXPECT_FALSE(index.contains(key)) << key;
    EXPECT_EQ(index["f.1.rt"], "1");
    EXPECT_EQ(found("dev1", 3), (ids{1}));
}

TEST_F(RecordTest, APathIsTakenOnce)
{
    put(values);
    EXPECT_EQ(put(values), SILO_PUT_EXISTS);
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(put(values, "2"), SILO_PUT_OTHER_ID);
    EXPECT_EQ(put(values, "01"), SILO_PUT_OTHER_ID) << "the id is compared as text";
}

TEST_F(RecordTest, AnUnreadableIdUnderThePathIsNone)
{
    fake_silo_put("p.D:\\a.orb", "what");
    EXPECT_EQ(put(values, "77"), SILO_PUT_NEW);
    EXPECT_EQ(id, 1u);
}

TEST_F(RecordTest, Failures)
{
    struct failure {
        const char *key, *value;
        silo_put_result result;
    };
    for (auto [key, value, result] : {failure{"rev.hi", "", SILO_PUT_NO_REVISION},
                                      {"ino", "x", SILO_PUT_NO_NUMBER},
                                      {"ino", "18446744073709551615", SILO_PUT_NO_NUMBER}}) {
        fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}, {"ino", "0"}});
        fake_silo_put(key, value);
        EXPECT_EQ(put(values), result) << key;
    }
    fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}, {"ino", "0"}});
    fake_silo_fail("lock");
    EXPECT_EQ(put(values), SILO_PUT_NO_LOCK);
    for (const std::string &call : NEW_RECORD) {
        fake_silo_fail(call);
        EXPECT_EQ(put(values), SILO_PUT_FAILED) << call;
    }
    std::string too_long(600, 'x');
    values.path = too_long;
    EXPECT_EQ(put(values), SILO_PUT_FAILED);
    EXPECT_EQ(fake_silo_content().size(), 3u);
}

TEST_F(RecordTest, IsFoundAndRead)
{
    put(values);
    silo_record record;
    ASSERT_EQ(silo_record_find(write(), "D:\\a.orb", &id), 1);
    EXPECT_EQ(silo_record_find(trans.get(), "D:\\b.orb", &id), 0);
    ASSERT_EQ(silo_record_read(trans.get(), 1, &record), 1);
    EXPECT_EQ(record.has, SILO_HAS_BT | SILO_HAS_CH | SILO_HAS_ET | SILO_HAS_HOST | SILO_HAS_LOCK_TIME | SILO_HAS_MD5 |
                              SILO_HAS_PATH | SILO_HAS_RT | SILO_HAS_SIZE | SILO_HAS_REVISION);
    EXPECT_EQ(record.ino, 1u);
    EXPECT_EQ(record.revision, 2u);
    EXPECT_EQ(record.size, 5000u);
    EXPECT_STREQ(record.path, "D:\\a.orb");
    EXPECT_EQ(silo_record_read(trans.get(), 2, &record), 0);
    EXPECT_EQ(silo_record_is_visible(trans.get(), 2), 1);
    EXPECT_EQ(silo_record_is_visible(trans.get(), 3), 0);
}

static int note_record(void *user, const silo_record *record)
{
    auto seen = static_cast<std::vector<std::string> *>(user);
    seen->push_back(std::to_string(record->ino) + " " + record->path + " " + std::to_string(record->revision));
    return seen->size() < 3;
}

TEST_F(RecordTest, AllAreWalkedOver)
{
    std::vector<std::string> seen;
    EXPECT_EQ(silo_record_walk(write(), note_record, &seen), 1);
    EXPECT_TRUE(seen.empty());
    put_made({.id = 2, .path = "two"});
    put_made({.id = 10, .path = "ten", .revision = 1});
    fake_silo_put("f.x", "foreign");
    fake_silo_erase("r.2");
    EXPECT_EQ(silo_record_walk(write(), note_record, &seen), 1);
    EXPECT_EQ(seen, (words{"10 ten 1", "2 two 0"}));
    put_made({.id = 3, .path = "three"});
    seen.clear();
    EXPECT_EQ(silo_record_walk(write(), note_record, &seen), 1);
    EXPECT_EQ(seen.size(), 3u);
    fake_silo_fail("next", 1, 12);
    seen.clear();
    EXPECT_EQ(silo_record_walk(write(), note_record, &seen), 0) << "a failure is no end";
    trans.reset();
}

// ---- Checking -------------------------------------------------------------------------------------------------------

class CheckTest : public RecordTest {
protected:
    static int note(void *user, silo_problem problem, uint64_t id, std::string_view key)
    {
        static_cast<words *>(user)->push_back(std::to_string(problem) + " " + std::to_string(id) + " " +
                                              std::string(key));
        return 1;
    }
    words problems()
    {
        words seen;
        EXPECT_EQ(silo_index_check(write(), note, &seen, &counts), 1);
        EXPECT_EQ(counts.problems, seen.size());
        trans.reset();
        return seen;
    }
    silo_check_counts counts;
};

TEST_F(CheckTest, WhatThePartsWriteFitsTogether)
{
    put(values);
    values.path = "D:\\b.orb";
    put(values);
    fake_silo_put("f.2.lock_level", "3");
    EXPECT_EQ(problems(), words{});
    EXPECT_EQ(counts.records, 2u);
}

TEST_F(CheckTest, EachKindOfDamageIsFound)
{
    struct damage {
        const char *key, *value; // NULL: taken away
        words problems;
    };
    const damage damages[] = {
        {"zzz", "1", {"0 0 zzz"}},
        {"f.1.zzz", "1", {"0 1 f.1.zzz"}},
        {"f.01.ch", "1", {"0 0 f.01.ch"}},
        {"r.x", "1", {"0 0 r.x"}},
        {"f.1.ch", "x", {"1 1 f.1.ch", "6 1 f.1."}},
        {"f.1.ch", "4294967296", {"1 1 f.1.ch", "6 1 f.1."}},
        {"f.1.et", "today", {"1 1 f.1.et"}},
        {"p.D:\\a.orb", "x", {"1 0 p.D:\\a.orb", "7 1 f.1."}},
        {"bt.2024-01-01 00:00:00.1", "x", {"1 0 bt.2024-01-01 00:00:00.1", "8 1 f.1."}},
        {"r.1", "x", {"1 1 r.1", "6 1 f.1."}},
        {"rev.lo", nullptr, {"2 0 rev.lo"}},
        {"p.other", "1", {"3 1 p.other"}},
        {"p.other", "9", {"3 9 p.other"}},
        {"bt.2025-01-01 00:00:00.1", "1", {"4 1 bt.2025-01-01 00:00:00.1"}},
        {"bt.2024-01-01 00:00:00.7", "1", {"4 1 bt.2024-01-01 00:00:00.7"}},
        {"bt.", "1", {"4 1 bt."}},
        {"r.5", "2", {"5 5 r.5"}},
        {"f.1.host", nullptr, {"6 1 f.1."}},
        {"r.1", nullptr, {"6 1 f.1."}},
        {"p.D:\\a.orb", nullptr, {"7 1 f.1."}},
        {"bt.2024-01-01 00:00:00.1", nullptr, {"8 1 f.1."}},
        {"ino", "0", {"9 1 f.1."}},
        {"rev.lo", "3", {"10 1 f.1."}},
    };
    put(values);
    fake_content good = fake_silo_content();
    for (const damage &one : damages) {
        fake_silo_set_content(good);
        one.value == nullptr ? fake_silo_erase(one.key) : fake_silo_put(one.key, one.value);
        EXPECT_EQ(problems(), one.problems) << one.key << "=" << (one.value == nullptr ? "-" : one.value);
    }
}

TEST_F(CheckTest, EveryProblemHasWords)
{
    for (int problem = SILO_PROBLEM_FOREIGN_KEY; problem <= SILO_PROBLEM_INVISIBLE; problem++)
        EXPECT_STRNE(silo_problem_text(static_cast<silo_problem>(problem)), "");
}

TEST_F(CheckTest, TheReportMayEndIt)
{
    fake_silo_put("zz1", "");
    fake_silo_put("zz2", "");
    auto stop = [](void *, silo_problem, uint64_t, std::string_view) { return 0; };
    EXPECT_EQ(silo_index_check(write(), stop, nullptr, &counts), 0);
    EXPECT_EQ(counts.problems, 1u);
    fake_silo_fail("seek");
    EXPECT_EQ(silo_index_check(write(), nullptr, nullptr, &counts), 0);
    trans.reset();
}
