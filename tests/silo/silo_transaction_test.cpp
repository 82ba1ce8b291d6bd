// Transactions: what they see, what stays of them, who waits for whom.
#include "tests/silo/silo_handles.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/log_capture.h"

class SiloTransaction : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        if (IsSkipped())
            return;
        db_ = silo_opened(uri());
        other_ = silo_opened(uri());
        ASSERT_NE(db_, nullptr);
        ASSERT_NE(other_, nullptr);
    }
    void TearDown() override
    {
        db_.reset();
        other_.reset();
    }

    silo_ptr db_, other_;
};

TEST_P(SiloTransaction, CommittedWritesAreSeenByWhoBeginsLater)
{
    trans_ptr trans = writing(db_);
    EXPECT_EQ(put(trans, "a", "1"), 0);
    EXPECT_EQ(get(reading(other_), "a"), ABSENT);
    EXPECT_EQ(silo_commit(trans.get()), 0);
    EXPECT_EQ(get(reading(other_), "a"), "1"); // before the transaction is ended
    trans.reset();
    EXPECT_EQ(get(reading(other_), "a"), "1");
}

TEST_P(SiloTransaction, EndWithoutCommitLeavesNothing)
{
    ASSERT_EQ(write_all(db_, {{"a", "1"}, {"p.1", "x"}, {"p.2", "y"}}), 0);
    trans_ptr trans = writing(db_);
    EXPECT_EQ(put(trans, "a", "2"), 0);
    EXPECT_EQ(put(trans, "b", "2"), 0);
    EXPECT_EQ(drop_all(trans, "p."), 0);
    trans.reset();
    EXPECT_EQ(everything(reading(db_)), (silo_pairs{{"a", "1"}, {"p.1", "x"}, {"p.2", "y"}}));
    EXPECT_EQ(write_all(other_, {{"b", "3"}}), 0); // the next writer's turn
}

TEST_P(SiloTransaction, HandleThatEndsWithoutCommitLeavesNothing)
{
    trans_ptr trans = writing(db_);
    EXPECT_EQ(put(trans, "a", "2"), 0);
    trans.reset();
    db_.reset();
    EXPECT_TRUE(everything(reading(other_)).empty());
}

TEST_P(SiloTransaction, WriterSeesItsOwnWrites)
{
    ASSERT_EQ(write_all(db_, {{"a", "1"}, {"b", "1"}, {"c", "1"}}), 0);
    trans_ptr trans = writing(db_);
    put(trans, "a", "2");
    drop(trans, "b");
    put(trans, "d", "2");
    EXPECT_EQ(get(trans, "a"), "2");
    EXPECT_EQ(get(trans, "b"), ABSENT);
    EXPECT_EQ(get(trans, "c"), "1");
    EXPECT_EQ(everything(trans), (silo_pairs{{"a", "2"}, {"c", "1"}, {"d", "2"}}));
    drop_all(trans, "a");
    put(trans, "b", "3");
    put(trans, "b", "4");
    drop(trans, "d");
    put(trans, "d", "5");
    EXPECT_EQ(everything(trans), (silo_pairs{{"b", "4"}, {"c", "1"}, {"d", "5"}}));
    EXPECT_EQ(silo_commit(trans.get()), 0);
    trans.reset();
    EXPECT_EQ(everything(reading(other_)), (silo_pairs{{"b", "4"}, {"c", "1"}, {"d", "5"}}));
}

TEST_P(SiloTransaction, ReaderSeesTheMomentOfItsBeginning)
{
    ASSERT_EQ(write_all(other_, {{"a", "1"}, {"b", "1"}}), 0);
    trans_ptr before = reading(db_);
    trans_ptr writer = writing(other_);
    put(writer, "a", "2");
    drop(writer, "b");
    put(writer, "c", "2");
    EXPECT_EQ(get(before, "a"), "1");
    EXPECT_EQ(silo_commit(writer.get()), 0);
    writer.reset();
    EXPECT_EQ(get(before, "a"), "1");
    EXPECT_EQ(get(before, "b"), "1");
    EXPECT_EQ(get(before, "c"), ABSENT);
    EXPECT_EQ(everything(before), (silo_pairs{{"a", "1"}, {"b", "1"}}));
    before.reset();
    EXPECT_EQ(everything(reading(db_)), (silo_pairs{{"a", "2"}, {"c", "2"}}));
}

TEST_P(SiloTransaction, SnapshotLastsOverManyCommits)
{
    ASSERT_EQ(write_all(other_, {{"n", "0"}}), 0);
    trans_ptr before = reading(db_);
    iter_ptr iter = walking(before);
    ASSERT_EQ(seek(iter, ""), 0);
    for (int i = 1; i <= 50; i++)
        ASSERT_EQ(write_all(other_, {{"n", std::to_string(i)}, {"m" + std::to_string(i), "x"}}), 0);
    EXPECT_EQ(get(before, "n"), "0");
    EXPECT_EQ(pair_of(iter), silo_pair("n", "0"));
    EXPECT_LT(silo_iterator_next(iter.get()), 0);
}

TEST_P(SiloTransaction, HandleHasOneTransactionAtATime)
{
    for (int first : {SILO_READ, SILO_WRITE})
        for (int second : {SILO_READ, SILO_WRITE}) {
            trans_ptr trans(silo_begin_transaction(db_.get(), first));
            ASSERT_NE(trans, nullptr);
            EXPECT_EQ(silo_begin_transaction(db_.get(), second), nullptr);
        }
    EXPECT_NE(reading(db_), nullptr);
}

TEST_P(SiloTransaction, OtherFlagsAreRefused)
{
    for (int flag : {-1, 2, 3, 100})
        EXPECT_EQ(silo_begin_transaction(db_.get(), flag), nullptr) << flag;
    EXPECT_NE(reading(db_), nullptr);
}

TEST_P(SiloTransaction, ReadersDoNotWrite)
{
    ASSERT_EQ(write_all(db_, {{"a", "1"}}), 0);
    trans_ptr trans = reading(db_);
    log_capture log;
    EXPECT_LT(put(trans, "a", "2"), 0);
    EXPECT_LT(drop(trans, "a"), 0);
    EXPECT_LT(drop_all(trans, "a"), 0);
    EXPECT_NE(silo_plock_acquire(trans.get(), "ino", 3, 1), 0);
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_FAILED);
    EXPECT_EQ(log.lines().size(), 5u);
    EXPECT_EQ(get(trans, "a"), "1"); // and go on reading
}

TEST_P(SiloTransaction, NothingFollowsACommit)
{
    trans_ptr trans = writing(db_);
    put(trans, "a", "1");
    ASSERT_EQ(silo_commit(trans.get()), 0);
    EXPECT_LT(put(trans, "a", "2"), 0);
    EXPECT_LT(drop(trans, "a"), 0);
    EXPECT_EQ(get(trans, "a"), ABSENT);
    EXPECT_EQ(silo_iterator_init(trans.get()), nullptr);
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_FAILED);
    trans.reset();
    EXPECT_EQ(get(reading(db_), "a"), "1");
}

TEST_P(SiloTransaction, EmptyTransactionIsCommitted)
{
    trans_ptr trans = writing(db_);
    EXPECT_EQ(silo_commit(trans.get()), 0);
    EXPECT_EQ(silo_transaction_conflict(trans.get()), 0);
    trans.reset();
    EXPECT_TRUE(everything(reading(db_)).empty());
}

TEST_P(SiloTransaction, IteratorMayOutliveTheCommit)
{
    trans_ptr trans = writing(db_);
    put(trans, "a", "1");
    put(trans, "b", "1");
    iter_ptr iter = walking(trans);
    ASSERT_EQ(seek(iter, "a"), 0);
    ASSERT_EQ(silo_commit(trans.get()), 0);
    EXPECT_LT(silo_iterator_next(iter.get()), 0);
    EXPECT_LT(seek(iter, "a"), 0);
    EXPECT_EQ(silo_iterator_kv(iter.get())->key_len, 0u);
    iter.reset();
}

TEST_P(SiloTransaction, LocksAreNamedAndExclusive)
{
    trans_ptr trans = writing(db_);
    EXPECT_EQ(silo_plock_acquire(trans.get(), "ino", 3, 1), 0);
    EXPECT_EQ(silo_plock_acquire(trans.get(), "ino", 3, 1), 0); // again
    EXPECT_EQ(silo_plock_acquire(trans.get(), "other", 3, 1), 0);
    EXPECT_EQ(silo_plock_acquire(trans.get(), std::string(60, 'l').c_str(), 3, 1), 0);
    EXPECT_EQ(put(trans, "a", "1"), 0);
    EXPECT_EQ(silo_commit(trans.get()), 0);
}

TEST_P(SiloTransaction, OtherLocksAreRefusedAndDoNoHarm)
{
    trans_ptr trans = writing(db_);
    log_capture log;
    EXPECT_NE(silo_plock_acquire(trans.get(), nullptr, 3, 1), 0);
    EXPECT_NE(silo_plock_acquire(trans.get(), "", 3, 1), 0);
    EXPECT_NE(silo_plock_acquire(trans.get(), std::string(61, 'l').c_str(), 3, 1), 0);
    EXPECT_NE(silo_plock_acquire(trans.get(), "ino", 1, 1), 0);
    EXPECT_NE(silo_plock_acquire(trans.get(), "ino", 3, 0), 0);
    EXPECT_EQ(log.lines().size(), 5u);
    EXPECT_EQ(put(trans, "a", "1"), 0);
    EXPECT_EQ(silo_commit(trans.get()), 0);
}

TEST_P(SiloTransaction, NumberOfTheSnapshotChangesWithEachCommit)
{
    ASSERT_EQ(write_all(other_, {{"a", "1"}}), 0);
    uint64_t first = silo_snapshot_id(reading(db_).get());
    if (first == 0)
        GTEST_SKIP() << "this store cannot tell";
    EXPECT_EQ(silo_snapshot_id(reading(db_).get()), first);
    EXPECT_EQ(silo_snapshot_id(reading(other_).get()), first);
    trans_ptr before = reading(db_);
    ASSERT_EQ(write_all(other_, {{"a", "2"}}), 0);
    EXPECT_EQ(silo_snapshot_id(before.get()), first);
    uint64_t second = silo_snapshot_id(reading(other_).get());
    EXPECT_NE(second, first);
    ASSERT_EQ(drop_all(writing(other_), "a"), 0); // ended without commit
    EXPECT_NE(silo_snapshot_id(reading(other_).get()), 0u);
}

TEST_P(SiloTransaction, WritersHaveNoNumberOfASnapshot)
{
    EXPECT_EQ(silo_snapshot_id(writing(db_).get()), 0u);
}

TEST_P(SiloTransaction, AnnouncingIsOfUseForServersOnly)
{
    ASSERT_EQ(write_all(db_, {{"a.1", "1"}, {"a.2", "2"}, {"b", "3"}}), 0);
    trans_ptr trans = reading(db_);
    const silo_prefix prefixes[] = {{"a.", 2, 0}, {"b", 1, 0}, {"none", 4, 1}};
    EXPECT_EQ(silo_prefetch(trans.get(), prefixes, std::size(prefixes)), kind() == "lmdb" ? 1 : 0);
    EXPECT_EQ(get(trans, "a.1"), "1");
    EXPECT_EQ(get(trans, "b"), "3");
    EXPECT_EQ(get(trans, "none"), ABSENT);
    EXPECT_GE(silo_prefetch(trans.get(), nullptr, 0), 0);
    EXPECT_EQ(get(trans, "a.2"), "2");
}

TEST_P(SiloTransaction, WrongAnnouncementsAreRefused)
{
    trans_ptr trans = reading(db_);
    std::string too_long(SILO_KEY_MAX + 1, 'p');
    const silo_prefix empty[] = {{"a", 1, 0}, {"", 0, 0}}, nowhere[] = {{nullptr, 3, 0}},
                      longer[] = {{too_long.data(), 512, 0}};
    EXPECT_LT(silo_prefetch(trans.get(), empty, 2), 0);
    EXPECT_LT(silo_prefetch(trans.get(), nowhere, 1), 0);
    EXPECT_LT(silo_prefetch(trans.get(), longer, 1), 0);
    EXPECT_LT(silo_prefetch(trans.get(), nullptr, 1), 0);
    EXPECT_EQ(get(trans, "a"), ABSENT);
}

INSTANTIATE_FOR_EACH_STORE(SiloTransaction);
