// Connections: descriptors, handles, databases.
#include "tests/silo/silo_handles.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/log_capture.h"

class SiloConnect : public StoreTest {};

// How many lines of failures were logged.
static size_t failures(const log_capture &log)
{
    size_t count = 0;
    for (const log_line &line : log.lines())
        count += line.level == 4 ? 1 : 0;
    return count;
}

TEST_P(SiloConnect, HandleIsOpenedOnADescriptorAndWorks)
{
    int fd = silo_connect_fd(uri().c_str());
    ASSERT_GE(fd, 0);
    silo_ptr db(silo_open_proxy_fd(fd, fd));
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(silo_proxy_select_db(db.get(), "db"), 0);
    EXPECT_EQ(silo_proxy_error(db.get()), 0);
    EXPECT_EQ(write_all(db, {{"a", "1"}}), 0);
    EXPECT_EQ(get(reading(db), "a"), "1");
    silo_close_fd(fd);
}

TEST_P(SiloConnect, DescriptorIsClosedBeforeOrAfterItsHandle)
{
    for (bool is_closed_first : {false, true}) {
        int fd = silo_connect_fd(uri().c_str());
        silo_ptr db(silo_open_proxy_fd(fd, fd));
        ASSERT_EQ(silo_proxy_select_db(db.get(), "db"), 0);
        if (is_closed_first)
            silo_close_fd(fd);
        EXPECT_EQ(write_all(db, {{"a", "1"}}), 0);
        db.reset();
        if (!is_closed_first)
            silo_close_fd(fd);
    }
}

TEST_P(SiloConnect, DescriptorWithoutAHandleIsClosed)
{
    int fd = silo_connect_fd(uri().c_str());
    silo_close_fd(fd);
    EXPECT_EQ(silo_open_proxy_fd(fd, fd), nullptr);
    silo_close_fd(fd); // twice is once
    silo_close_fd(-1);
    silo_close_fd(0);
    silo_close_fd(123456789);
}

TEST_P(SiloConnect, DescriptorIsOpenedOnce)
{
    int fd = silo_connect_fd(uri().c_str());
    silo_ptr db(silo_open_proxy_fd(fd, fd));
    log_capture log;
    EXPECT_EQ(silo_open_proxy_fd(fd, fd), nullptr);
    db.reset();
    EXPECT_EQ(silo_open_proxy_fd(fd, fd), nullptr);
    EXPECT_EQ(failures(log), 2u);
    silo_close_fd(fd);
}

TEST_P(SiloConnect, BothDescriptorsNameTheSameConnection)
{
    int one = silo_connect_fd(uri().c_str()), other = silo_connect_fd(uri().c_str());
    EXPECT_NE(one, other);
    log_capture log;
    EXPECT_EQ(silo_open_proxy_fd(one, other), nullptr);
    EXPECT_EQ(silo_open_proxy_fd(one, -1), nullptr);
    EXPECT_EQ(silo_open_proxy_fd(-1, -1), nullptr);
    EXPECT_EQ(silo_open_proxy_fd(other + 1000, other + 1000), nullptr);
    EXPECT_EQ(failures(log), 4u);
    silo_ptr db(silo_open_proxy_fd(one, one)); // what was refused used nothing up
    EXPECT_NE(db, nullptr);
    silo_close_fd(one);
    silo_close_fd(other);
}

TEST(SiloAddress, WhatIsNoAddressIsRefused)
{
    log_capture log;
    EXPECT_EQ(silo_connect_fd(nullptr), -1);
    EXPECT_EQ(silo_connect_fd(""), -1);
    EXPECT_EQ(silo_connect_fd(("lmdb:" + std::string(1019, 'x')).c_str()), -1);
    EXPECT_EQ(failures(log), 3u);
}

TEST_P(SiloConnect, DatabaseNamesHaveLettersDigitsAndUnderscores)
{
    silo_ptr db = silo_opened(uri());
    for (const std::string &name : {std::string("d"), std::string("A_z_09"), std::string("0"), std::string(60, 'n')})
        EXPECT_EQ(silo_proxy_select_db(db.get(), name.c_str()), 0) << name;
    log_capture log;
    const std::string bad[] = {"", " ", "a b", "a-b", "a.b", "a\"b", "a;b", "\xC3\xA4", "a\n", std::string(61, 'n')};
    for (const std::string &name : bad)
        EXPECT_LT(silo_proxy_select_db(db.get(), name.c_str()), 0) << name;
    EXPECT_LT(silo_proxy_select_db(db.get(), nullptr), 0);
    EXPECT_LT(silo_proxy_select_db(nullptr, "db"), 0);
    EXPECT_EQ(failures(log), std::size(bad) + 2);
}

TEST_P(SiloConnect, RefusedNameLeavesTheSelectedDatabase)
{
    silo_ptr db = silo_opened(uri());
    EXPECT_LT(silo_proxy_select_db(db.get(), "a b"), 0);
    EXPECT_EQ(write_all(db, {{"a", "1"}}), 0);
    EXPECT_EQ(get(reading(silo_opened(uri())), "a"), "1");
}

TEST_P(SiloConnect, DatabasesAreApart)
{
    silo_ptr one = silo_opened(uri(), "one"), two = silo_opened(uri(), "two");
    ASSERT_EQ(write_all(one, {{"a", "1"}}), 0);
    ASSERT_EQ(write_all(two, {{"a", "2"}, {"b", "2"}}), 0);
    EXPECT_EQ(everything(reading(one)), (silo_pairs{{"a", "1"}}));
    EXPECT_EQ(everything(reading(two)), (silo_pairs{{"a", "2"}, {"b", "2"}}));
    ASSERT_EQ(silo_proxy_select_db(one.get(), "two"), 0);
    EXPECT_EQ(get(reading(one), "b"), "2");
    ASSERT_EQ(silo_proxy_select_db(one.get(), "ONE"), 0);
    EXPECT_EQ(get(reading(one), "a"), ABSENT);
}

TEST_P(SiloConnect, NewDatabaseIsEmpty)
{
    silo_ptr db = silo_opened(uri());
    EXPECT_TRUE(everything(reading(db)).empty());
    EXPECT_EQ(get(reading(db), "a"), ABSENT);
    trans_ptr trans = writing(db);
    EXPECT_EQ(drop(trans, "a"), 0);
    EXPECT_EQ(drop_all(trans, "a"), 0);
    EXPECT_EQ(silo_commit(trans.get()), 0);
}

TEST_P(SiloConnect, TransactionsWantASelectedDatabase)
{
    int fd = silo_connect_fd(uri().c_str());
    silo_ptr db(silo_open_proxy_fd(fd, fd));
    log_capture log;
    EXPECT_EQ(silo_begin_transaction(db.get(), SILO_READ), nullptr);
    EXPECT_EQ(silo_begin_transaction(db.get(), SILO_WRITE), nullptr);
    EXPECT_EQ(failures(log), 2u);
    silo_close_fd(fd);
}

TEST_P(SiloConnect, DatabaseIsNotChangedUnderATransaction)
{
    silo_ptr db = silo_opened(uri());
    trans_ptr trans = reading(db);
    EXPECT_LT(silo_proxy_select_db(db.get(), "other"), 0);
    trans.reset();
    EXPECT_EQ(silo_proxy_select_db(db.get(), "other"), 0);
}

TEST_P(SiloConnect, WhatWasCommittedIsThereForLaterConnections)
{
    ASSERT_EQ(write_all(silo_opened(uri()), {{"a", "1"}}), 0);
    EXPECT_EQ(get(reading(silo_opened(uri())), "a"), "1");
}

TEST_P(SiloConnect, NullIsIgnoredOrRefused)
{
    silo_destroy(nullptr);
    silo_end_transaction(nullptr);
    silo_iterator_destroy(nullptr);
    EXPECT_NE(silo_proxy_error(nullptr), 0);
    EXPECT_EQ(silo_round_trips(nullptr), 0u);
    EXPECT_EQ(silo_begin_transaction(nullptr, SILO_READ), nullptr);
    EXPECT_EQ(silo_iterator_init(nullptr), nullptr);
    EXPECT_LT(silo_commit(nullptr), 0);
    EXPECT_EQ(silo_transaction_conflict(nullptr), 0);
    EXPECT_NE(silo_transaction_failed(nullptr), 0);
    EXPECT_EQ(silo_snapshot_id(nullptr), 0u);
    EXPECT_LT(silo_prefetch(nullptr, nullptr, 0), 0);
}

TEST_P(SiloConnect, RoundTripsAreThoseOfServers)
{
    silo_ptr db = silo_opened(uri());
    uint64_t before = silo_round_trips(db.get());
    EXPECT_EQ(write_all(db, {{"a", "1"}}), 0);
    if (kind() == "lmdb")
        EXPECT_EQ(silo_round_trips(db.get()), 0u);
    else
        EXPECT_GT(silo_round_trips(db.get()), before);
}

INSTANTIATE_FOR_EACH_STORE(SiloConnect);
