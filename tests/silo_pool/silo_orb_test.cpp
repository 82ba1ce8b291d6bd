#include "platform/os/os.h"
#include "tests/silo_pool/index_fixture.h"

using SearchTest = IndexTest;

static void put_many(uint64_t count)
{
    std::vector<made_record> records;
    for (uint64_t id = 1; id <= count; id++)
        records.push_back({.id = id});
    put_all(records);
}

TEST_F(SearchTest, GivesEachFieldOfTheRecord)
{
    put_made({.id = 17, .path = "D:\\x.orb", .host = "dev9", .ch = 3, .rt = 4, .size = 123456789012345});
    fake_silo_put("f.17.lock_level", "5");
    fake_silo_put("f.17.lock_time", "2024-02-03 04:05:06");
    fake_silo_put("f.17.md5", std::string(32, 'a') + "tail");
    search_ptr it = open();
    ASSERT_EQ(silo_orb_iterator_next(it.get()), 0);
    const silo_record &found = it->current;
    EXPECT_EQ(found.ino, 17u);
    EXPECT_STREQ(found.host_id, "dev9");
    EXPECT_EQ(found.ch, 3u);
    EXPECT_EQ(found.rt, 4);
    EXPECT_EQ(found.size, 123456789012345u);
    EXPECT_STREQ(found.bt, "2024-01-01 00:00:00");
    EXPECT_STREQ(found.et, "2024-01-01 00:10:00");
    EXPECT_STREQ(found.path, "D:\\x.orb");
    EXPECT_EQ(found.lock_level, 5u);
    EXPECT_STREQ(found.lock_time, "2024-02-03 04:05:06");
    EXPECT_STREQ(found.md5, std::string(32, 'a').c_str());
    EXPECT_EQ(silo_orb_iterator_next(it.get()), -1);
    EXPECT_EQ(found.ino, 0u);
    EXPECT_STREQ(found.path, "");
    EXPECT_EQ(silo_orb_iterator_next(it.get()), -1);
}

TEST_F(SearchTest, BeginTimesAreInclusiveAtBothEnds)
{
    put_made({.id = 1, .bt = "2023-12-31 23:59:59"});
    put_made({.id = 2, .bt = "2024-01-01 00:00:00"});
    put_made({.id = 3, .bt = "2024-01-01 00:00:01"});
    put_made({.id = 4, .bt = "2024-01-01 00:00:00"});
    const char *at = "2024-01-01 00:00:00";
    EXPECT_EQ(found(nullptr, -1, 0, at, at), (ids{2, 4}));
    EXPECT_EQ(found(nullptr, -1, 0, at, "2024-01-01 00:00:01"), (ids{2, 4, 3}));
    EXPECT_EQ(found(nullptr, -1, 0, "2023-12-31 23:59:59", "2023-12-31 23:59:59"), (ids{1}));
    EXPECT_EQ(found(nullptr, -1, 0, "2024-01-01 00:00:01", at), ids{});
}

TEST_F(SearchTest, ARecordThatRunsIntoTheRangeIsNotFound)
{
    put_made({.bt = "2023-12-31 23:00:00", .et = "2024-01-01 01:00:00"});
    EXPECT_EQ(found(nullptr, -1, 0, "2024-01-01 00:00:00", "2024-01-02 00:00:00"), ids{});
}

TEST_F(SearchTest, SameTimesComeInTheOrderOfTheIdsDigits)
{
    for (uint64_t id : {2, 10, 1, 9})
        put_made({.id = id});
    EXPECT_EQ(found(), (ids{1, 10, 2, 9}));
}

TEST_F(SearchTest, TypesAreAMask)
{
    put_made({.id = 1, .rt = 1});
    put_made({.id = 2, .rt = 6});
    put_made({.id = 3, .rt = 65536});
    put_made({.id = 4, .rt = 0});
    put_made({.id = 5, .rt = 0x80000000u});
    EXPECT_EQ(found(nullptr, -1, 0), (ids{1, 2}));
    EXPECT_EQ(found(nullptr, -1, 1), (ids{1}));
    EXPECT_EQ(found(nullptr, -1, 2), (ids{2}));
    EXPECT_EQ(found(nullptr, -1, 5), (ids{1, 2}));
    EXPECT_EQ(found(nullptr, -1, 65536), (ids{3}));
    EXPECT_EQ(found(nullptr, -1, -1), (ids{1, 2, 3, 5}));
}

TEST_F(SearchTest, HostAndChannel)
{
    put_made({.id = 1, .host = "dev1", .ch = 1});
    put_made({.id = 2, .host = "dev1", .ch = 2});
    put_made({.id = 3, .host = "dev2", .ch = 1});
    put_made({.id = 4, .host = "", .ch = 1});
    for (int again = 0; again < 2; again++) {
        EXPECT_EQ(found("dev1", 1), (ids{1}));
        EXPECT_EQ(found("dev1", -1), (ids{1, 2}));
        EXPECT_EQ(found("dev1", -7), (ids{1, 2}));
        EXPECT_EQ(found("dev2", 1), (ids{3}));
        EXPECT_EQ(found("dev", 1), ids{});
        EXPECT_EQ(found("dev1", 0), ids{});
        EXPECT_EQ(found(nullptr, 2), (ids{1, 2, 3, 4})) << "without a host the channel is ignored";
        EXPECT_EQ(found("", 2), (ids{1, 2, 3, 4})) << "an empty host is none";
    }
}

TEST_F(SearchTest, AHostIsComparedInItsFirst255Bytes)
{
    put_made({.host = std::string(300, 'h')});
    EXPECT_EQ(found(std::string(255, 'h').c_str()), (ids{1}));
    EXPECT_EQ(found(std::string(400, 'h').c_str()), (ids{1}));
    EXPECT_EQ(found(std::string(254, 'h').c_str()), ids{});
}

struct revision_case {
    uint64_t low, revision, high;
    bool is_found;
};

TEST_F(SearchTest, RevisionsOutsideOfTheBoundsAreInvisible)
{
    for (auto [low, revision, high, is_found] : {revision_case{1, 2, 2, true},
                                                 {2, 2, 2, true},
                                                 {1, 3, 2, false},
                                                 {3, 2, 4, false},
                                                 {3, 3, 3, true},
                                                 {5, 4, 3, false}}) {
        put_made({.revision = revision});
        fake_silo_put("rev.lo", std::to_string(low));
        fake_silo_put("rev.hi", std::to_string(high));
        EXPECT_EQ(found(), is_found ? ids{1} : ids{}) << low << " " << revision << " " << high;
        EXPECT_EQ(found("dev1", 1), is_found ? ids{1} : ids{}) << low << " " << revision << " " << high;
    }
}

TEST_F(SearchTest, RecordsThatLackSomethingNeededArePassedByInSilence)
{
    for (const char *missing : {"r.2", "f.2.rt", "f.2.host", "f.2.ch", "f.2.path", "f.2.bt"}) {
        fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}});
        for (uint64_t id : {1, 2, 3})
            put_made({.id = id});
        fake_silo_erase(missing);
        EXPECT_EQ(found().size(), 2u);
        log.clear();
        EXPECT_EQ(found(), (ids{1, 3})) << missing;
        EXPECT_EQ(found("dev1", 1), (ids{1, 3})) << missing;
        EXPECT_EQ(log.lines().size(), 0u) << missing;
        silo_channels_forget();
    }
}

TEST_F(SearchTest, ValuesThatAreNoNumbersArePassedBy)
{
    for (const char *key : {"r.2", "f.2.rt", "f.2.ch", "bt.2024-01-01 00:00:00.2"})
        for (const char *value : {"", "x1", "-", "99999999999999999999999999"}) {
            for (uint64_t id : {1, 2, 3})
                put_made({.id = id});
            fake_silo_put(key, value);
            EXPECT_EQ(found(), (ids{1, 3})) << key << "=" << value;
            EXPECT_EQ(found("dev1", 1), (ids{1, 3})) << key << "=" << value;
            silo_channels_forget();
        }
}

TEST_F(SearchTest, SizeAndEndTimeMayBeAbsent)
{
    put_made({.id = 1});
    fake_silo_erase("f.1.size");
    fake_silo_erase("f.1.et");
    search_ptr it = open();
    ASSERT_EQ(silo_orb_iterator_next(it.get()), 0);
    EXPECT_EQ(it->current.size, 0u);
    EXPECT_STREQ(it->current.et, "");
}

TEST_F(SearchTest, NothingOfARecordRemainsInTheNextOne)
{
    put_made({.id = 1});
    fake_silo_put("f.1.md5", "m");
    fake_silo_put("f.1.lock_time", "l");
    fake_silo_put("f.1.lock_level", "7");
    put_made({.id = 2});
    fake_silo_erase("f.2.size");
    fake_silo_erase("f.2.et");
    search_ptr it = open();
    ASSERT_EQ(silo_orb_iterator_next(it.get()), 0);
    EXPECT_STREQ(it->current.md5, "m");
    ASSERT_EQ(silo_orb_iterator_next(it.get()), 0);
    EXPECT_EQ(it->current.size + it->current.lock_level, 0u);
    for (const char *text : {it->current.et, it->current.md5, it->current.lock_time})
        EXPECT_STREQ(text, "");
}

TEST_F(SearchTest, TextsAreCutToTheirPlaces)
{
    put_made({.id = 1});
    fake_silo_put("f.1.path", std::string(5000, 'p'));
    fake_silo_put("f.1.et", std::string(40, 'e'));
    fake_silo_put("f.1.lock_time", std::string(300, 'l'));
    search_ptr it = open();
    ASSERT_EQ(silo_orb_iterator_next(it.get()), 0);
    EXPECT_STREQ(it->current.path, std::string(4095, 'p').c_str());
    EXPECT_STREQ(it->current.et, std::string(31, 'e').c_str());
    EXPECT_STREQ(it->current.lock_time, std::string(255, 'l').c_str());
}

TEST_F(SearchTest, OtherKeysAroundTheIndexAreNoRecords)
{
    put_made({.id = 1});
    for (const char *key : {"bs", "bt", "bt-", "bt.", "bt.z", "bu.2024-01-01 00:00:00.1", "a", "f.1.zzz", "f.1.a", "z"})
        fake_silo_put(key, "1");
    EXPECT_EQ(found(), (ids{1}));
}

TEST_F(SearchTest, TheLastKeyItselfIsTooLate)
{
    put_made({.id = 1});
    const char *at = "2024-01-01 00:00:00";
    fake_silo_put("bt.2024-01-01 00:00:00.Y", "1"); // after all ids
    EXPECT_EQ(found(nullptr, -1, 0, at, at), (ids{1, 1}));
    fake_silo_put("bt.2024-01-01 00:00:00.Z", "1");
    EXPECT_EQ(found(nullptr, -1, 0, at, at), (ids{1, 1}));
    fake_silo_put("bt.2024-01-01 00:00:00.", "1"); // before all ids
    EXPECT_EQ(found(nullptr, -1, 0, at, at), (ids{1, 1, 1}));
}

TEST_F(SearchTest, TwoEntriesOfOneRecordGiveItTwice)
{
    put_made({.id = 1});
    fake_silo_put("bt.2024-05-05 00:00:00.1", "1");
    EXPECT_EQ(found(), (ids{1, 1}));
    EXPECT_EQ(found("dev1", 1), (ids{1, 1}));
}

TEST_F(SearchTest, TheBoundsAreKeptIn31Characters)
{
    search_ptr it = open("dev", 3, 0, std::string(40, '1').c_str(), std::string(40, '2').c_str());
    EXPECT_EQ(it->start, "bt." + std::string(28, '1'));
    EXPECT_EQ(it->end, "bt." + std::string(28, '2'));
    it = open("dev", 3, 0, "2024-01-01 00:00:00", "2024-01-01 00:00:00");
    EXPECT_STREQ(it->start, "bt.2024-01-01 00:00:00.");
    EXPECT_STREQ(it->end, "bt.2024-01-01 00:00:00.Z");
    EXPECT_EQ(it->rt, 65535);
    EXPECT_EQ(it->ch, 3);
    EXPECT_EQ(open(nullptr, 3)->ch, -1);
    EXPECT_EQ(open("", 3)->ch, 3) << "an empty host is one, which then is not asked for";
}

TEST_F(SearchTest, SeesTheIndexAsItWasAtItsBeginning)
{
    put_many(400);
    search_ptr it = open("dev1", 1);
    ASSERT_EQ(silo_orb_iterator_next(it.get()), 0);
    fake_silo_set_content({});
    EXPECT_EQ(rest(it.get()).size(), 399u);
}

TEST_F(SearchTest, ManyRecordsComeInOrderWhateverTheStore)
{
    ids all;
    std::vector<made_record> records;
    for (uint64_t id = 1; id <= 1000; id++) {
        char bt[32];
        snprintf(bt, sizeof bt, "2024-01-01 %02d:%02d:%02d", int(id / 3600), int(id / 60 % 60), int(id % 60));
        records.push_back({.id = id, .bt = bt, .ch = static_cast<int>(id % 3)});
        all.push_back(id);
    }
    put_all(records);
    for (bool is_server : {false, true}) {
        fake_silo_set_server(is_server);
        EXPECT_EQ(found(), all);
        EXPECT_EQ(found("dev1", -1), all);
        ids third = all;
        std::erase_if(third, [](uint64_t id) { return id % 3 != 1; });
        for (int again = 0; again < 2; again++)
            EXPECT_EQ(found("dev1", 1), third);
        silo_channels_forget();
    }
}

TEST_F(SearchTest, OnlyAServerIsToldWhatComesNext)
{
    put_many(300);
    EXPECT_EQ(found().size(), 300u);
    EXPECT_EQ(fake_silo_calls_of({"announce"}), (words{"announce 2"})) << "the answer says that it is of no use";
    fake_silo_set_server(true);
    fake_silo_clear_calls();
    EXPECT_EQ(found().size(), 300u);
    EXPECT_EQ(fake_silo_calls_of({"announce"}), (words{"announce 2", "announce 128", "announce 472"}));
}

// ---- Failures -------------------------------------------------------------------------------------------------------

struct opening_failure {
    const char *call;
    int after;
};
class OpeningTest : public IndexTest, public testing::WithParamInterface<opening_failure> {};

TEST_P(OpeningTest, AFailureGivesEverythingBack)
{
    put_made({.id = 1});
    fake_silo_fail(GetParam().call, 1, GetParam().after);
    EXPECT_EQ(open("dev1", 1), nullptr);
    EXPECT_EQ(fake_silo_calls_of({"begin"}).size() - fake_silo_calls_of({"end"}).size(),
              std::string(GetParam().call) == "begin" ? 1u : 0u);
    EXPECT_NE(open("dev1", 1), nullptr);
}
INSTANTIATE_TEST_SUITE_P(Calls, OpeningTest,
                         testing::Values(opening_failure{"connect", 0}, opening_failure{"begin", 0},
                                         opening_failure{"get rev.hi", 0}, opening_failure{"get rev.lo", 0},
                                         opening_failure{"iterator", 0}, opening_failure{"iterator", 1}));

TEST_F(SearchTest, WithoutBoundsOfRevisionsThereIsNoSearch)
{
    for (const char *key : {"rev.hi", "rev.lo"})
        for (const char *value : {"", "x"}) {
            fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}});
            fake_silo_put(key, value);
            EXPECT_EQ(open(), nullptr) << key;
            fake_silo_erase(key);
            EXPECT_EQ(open(), nullptr) << key;
        }
    EXPECT_EQ(log.count("silo_orb_iterator_init: get rev.hi or rev.lo error, the index is not made yet", LOG_SYSTEM),
              8u);
}

TEST_F(SearchTest, AStoreThatFailsOnTheWayEndsTheSearch)
{
    put_many(100);
    for (int after : {0, 50, 64, 200, 500}) {
        fake_silo_fail("next", 1, after);
        EXPECT_LT(found().size(), 101u);
        fake_silo_fail("seek", 1, after / 10);
        EXPECT_LT(found("dev1", 1).size(), 101u);
        fake_silo_set_server(after % 100 == 0);
    }
}

TEST_F(SearchTest, ASearchThatTheStoreBreaksOffSaysSoOnce)
{
    static constexpr const char *TEXT =
        "silo_orb_iterator_next: the store broke the search off, it ends after %d records";
    put_many(100);
    EXPECT_EQ(found().size(), 100u);
    for (const char *host : {"", "dev1"})
        for (int records : {0, 3, 64, 99}) {
            log.clear();
            search_ptr it = open(*host != '\0' ? host : nullptr);
            for (int i = 0; i < records; i++)
                EXPECT_EQ(silo_orb_iterator_next(it.get()), 0);
            fake_silo_fail("seek");
            EXPECT_EQ(silo_orb_iterator_next(it.get()), -1);
            EXPECT_EQ(silo_orb_iterator_next(it.get()), -1);
            char text[128];
            snprintf(text, sizeof text, TEXT, records);
            EXPECT_EQ(log.count(text, LOG_SYSTEM), 1u) << host << records;
            EXPECT_EQ(log.lines().size(), 1u);
        }
    log.clear();
    EXPECT_EQ(found("dev1").size(), 100u);
    EXPECT_TRUE(log.lines().empty()) << "an end is no failure";
}

TEST_F(SearchTest, APartOfARecordIsNotGivenOut)
{
    put_made({.id = 7, .size = 12345});
    for (int after = 0; after < 12; after++) {
        search_ptr it = open("dev1");
        fake_silo_fail("next", 1, after);
        while (silo_orb_iterator_next(it.get()) == 0)
            EXPECT_EQ(it->current.size, 12345u) << after;
        fake_silo_fail_no_more();
    }
}

TEST_F(SearchTest, ReadsWithAReadingTransactionAndReturnsItsConnection)
{
    put_made({.id = 1});
    {
        search_ptr it = open();
        EXPECT_EQ(fake_silo_calls_of({"begin", "commit", "end"}), (words{"begin read"}));
        EXPECT_NE(it->conn, nullptr);
    }
    EXPECT_EQ(fake_silo_calls_of({"begin", "commit", "end"}), (words{"begin read", "end"}));
    EXPECT_NE(open(), nullptr);
    EXPECT_EQ(fake_silo_calls_of({"connect"}).size(), 1u);
    silo_orb_iterator_destroy(nullptr);
}
