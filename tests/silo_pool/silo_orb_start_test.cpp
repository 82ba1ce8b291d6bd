// Making the index ready, and deleting from it.
#include "tests/silo_pool/index_fixture.h"

using StartTest = PoolTest;

TEST_F(StartTest, AnEmptyStoreGetsItsFirstValues)
{
    EXPECT_EQ(silo_orb_initialize(), 0);
    EXPECT_EQ(fake_silo_content(), (fake_content{{"rev.hi", "2"}, {"rev.lo", "1"}, {"ino", "0"}}));
    EXPECT_EQ(fake_silo_calls_of({"begin", "get", "set", "commit", "end"}),
              (words{"begin write", "get rev.hi", "set rev.hi=2", "set rev.lo=1", "set ino=0", "commit", "end"}));
    EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(StartTest, AnIndexThatIsThereStaysAsItIs)
{
    fake_content before = {{"rev.hi", "9"}, {"ino", "17"}};
    fake_silo_set_content(before);
    EXPECT_EQ(silo_orb_initialize(), 0);
    EXPECT_EQ(silo_orb_initialize(), 0);
    EXPECT_EQ(fake_silo_content(), before);
    EXPECT_TRUE(fake_silo_calls_of({"set", "commit"}).empty());
}

TEST_F(StartTest, WhateverRevisionIsThereItIsAnIndex)
{
    for (const char *value : {"", "x", "0"}) {
        fake_silo_set_content({{"rev.hi", value}});
        EXPECT_EQ(silo_orb_initialize(), 0) << value;
        EXPECT_EQ(fake_silo_content(), (fake_content{{"rev.hi", value}}));
    }
    fake_silo_set_content({{"rev.lo", "1"}, {"ino", "17"}});
    EXPECT_EQ(silo_orb_initialize(), 0);
    EXPECT_EQ(fake_silo_content()["ino"], "0") << "only the highest one tells";
}

TEST_F(StartTest, WithoutASecondConnectionThereIsNoIndex)
{
    fake_silo_set_error(true); // the checked one is not kept
    fake_silo_fail("connect", 1, 1);
    EXPECT_EQ(silo_orb_initialize(), -1);
    EXPECT_EQ(fake_silo_calls_of({"connect"}).size(), 2u);
    EXPECT_TRUE(fake_silo_calls_of({"begin"}).empty());
    EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(StartTest, WithTheStoreDownItTriesTenTimesIn27Seconds)
{
    fake_silo_fail("connect", 100);
    EXPECT_EQ(silo_orb_initialize(), -1);
    EXPECT_EQ(fake_silo_calls_of({"connect"}).size(), 10u);
    EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>(9, 3000));
}

TEST_F(StartTest, AStoreThatComesUpIsTaken)
{
    fake_silo_fail("connect", 9);
    EXPECT_EQ(check_db_connect(), 0);
    EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>(9, 3000));
    silo_pool_close();
    fake_silo_reset();
    clock.clear_sleeps();
    EXPECT_EQ(check_db_connect(), 0);
    EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(StartTest, FailuresOfTheStore)
{
    for (const char *call : {"begin", "set rev.hi", "set rev.lo", "set ino", "commit"}) {
        fake_silo_fail(call);
        EXPECT_EQ(silo_orb_initialize(), -1) << call;
        EXPECT_TRUE(fake_silo_content().empty()) << call;
        EXPECT_EQ(fake_silo_calls_of({"begin"}).size(), fake_silo_calls_of({"end", "x"}).size() + (call[0] == 'b'));
        fake_silo_clear_calls();
    }
    EXPECT_EQ(silo_orb_initialize(), 0);
}

TEST_F(StartTest, OnAConnectionThatFailedNothingIsWritten)
{
    fake_silo_set_error(true);
    EXPECT_EQ(silo_orb_initialize(), -1);
    EXPECT_TRUE(fake_silo_calls_of({"set", "commit"}).empty());
}

TEST_F(StartTest, AnotherProcessInTheWayIsNoFailure)
{
    fake_silo_answer_commit(-2);
    EXPECT_EQ(silo_orb_initialize(), 0);
    EXPECT_EQ(fake_silo_content()["rev.hi"], "2");
}

// ---- Deleting -------------------------------------------------------------------------------------------------------

class DeleteTest : public IndexTest {
protected:
    static int remove(const char *path, uint64_t id, bool commit = true)
    {
        silo_connection_ptr conn(silo_pool_get_connection());
        silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
        int result = silo_orb_delete_path(trans.get(), path, id);
        if (commit) {
            EXPECT_EQ(silo_commit(trans.get()), 0);
        }
        return result;
    }
};

TEST_F(DeleteTest, ByPathTakesAllKeysOfTheRecordAndNoOther)
{
    fake_content nothing = fake_silo_content();
    nothing["ino"] = "10";
    put_made({.id = 10, .path = "D:\\ten"});
    fake_content other = fake_silo_content();
    put_made({.id = 1, .path = "D:\\one"});
    fake_silo_put("f.1.md5", "x");
    fake_silo_put("f.1.foreign", "x");
    EXPECT_EQ(remove("D:\\one", 99), 0);
    EXPECT_EQ(fake_silo_content(), other) << "the prefix of record 1 must not take record 10";
    EXPECT_EQ(fake_silo_calls_of({"get", "delete", "remove"}),
              (words{"get p.D:\\one", "delete p.D:\\one", "delete r.1", "get f.1.bt", "delete bt.2024-01-01 00:00:00.1",
                     "remove f.1."}));
    EXPECT_EQ(remove("D:\\ten", 0), 0);
    EXPECT_EQ(fake_silo_content(), nothing);
}

TEST_F(DeleteTest, ById)
{
    fake_content before = fake_silo_content();
    before["ino"] = "5";
    put_made({.id = 5});
    EXPECT_EQ(remove(nullptr, 5), 0);
    EXPECT_EQ(fake_silo_content(), before);
    EXPECT_EQ(fake_silo_calls_of({"get", "delete", "remove"}),
              (words{"get f.5.path", "delete p.D:\\a.orb", "delete r.5", "get f.5.bt",
                     "delete bt.2024-01-01 00:00:00.5", "remove f.5."}));
}

TEST_F(DeleteTest, ByIdWithoutAPath)
{
    put_made({.id = 5});
    for (const char *path : {"", static_cast<const char *>(nullptr)}) {
        path == nullptr ? fake_silo_erase("f.5.path") : fake_silo_put("f.5.path", path);
        fake_silo_clear_calls();
        EXPECT_EQ(remove(nullptr, 5), 0);
        EXPECT_TRUE(fake_silo_calls_of({"delete p."}).empty());
    }
}

TEST_F(DeleteTest, AnUnknownPathDeletesNothing)
{
    put_made({.id = 5});
    fake_silo_put("p.D:\\bad", "no number");
    fake_content before = fake_silo_content();
    EXPECT_EQ(remove("D:\\other", 5), -1);
    EXPECT_EQ(remove("D:\\bad", 5), -1);
    EXPECT_EQ(remove("", 5), -1);
    EXPECT_EQ(fake_silo_content(), before);
    EXPECT_TRUE(fake_silo_calls_of({"delete", "remove"}).empty());
}

TEST_F(DeleteTest, WithoutABeginTimeTheRestGoes)
{
    put_made({.id = 5});
    fake_silo_erase("f.5.bt");
    EXPECT_EQ(remove(nullptr, 5), 0);
    EXPECT_TRUE(fake_silo_calls_of({"delete bt."}).empty());
    EXPECT_FALSE(fake_silo_content().contains("f.5.host"));
}

TEST_F(DeleteTest, AnEmptyBeginTimeIsOne)
{
    put_made({.id = 5, .bt = ""});
    EXPECT_EQ(remove(nullptr, 5), 0);
    EXPECT_EQ(fake_silo_calls_of({"delete bt."}), words{"delete bt..5"});
    EXPECT_FALSE(fake_silo_content().contains("bt..5"));
}

TEST_F(DeleteTest, AFailingStoreIsAFailure)
{
    put_made({.id = 5});
    for (const char *call : {"get p.", "delete p.", "delete r.", "delete bt.", "remove"}) {
        fake_silo_fail(call);
        EXPECT_EQ(remove("D:\\a.orb", 0, false), -1) << call;
    }
    EXPECT_TRUE(fake_silo_content().contains("f.5.host"));
}
