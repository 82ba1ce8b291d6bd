// What other writers do to records that searches remember.
#include "tests/silo_pool/found_records.h"
#include "tests/silo_pool/index_fixture.h"
#include "tests/silo_pool/unruly_writer.h"

#include <rapidcheck.h>
#include <set>

class WitnessTest : public IndexTest {
protected:
    ~WitnessTest() override { silo_channels_set_trust(SILO_TRUST_SECONDS); }

    static std::string minute(uint64_t number)
    {
        char text[32];
        snprintf(text, sizeof text, "2024-01-%02d %02d:%02d:00", static_cast<int>(number / 1440 + 1),
                 static_cast<int>(number / 60 % 24), static_cast<int>(number % 60));
        return text;
    }
    // A record a minute, each of the device and channel that its id chooses.
    static void put_rows(uint64_t count, const char *host = "dev", int channels = 2)
    {
        std::vector<made_record> records;
        for (uint64_t id = 1; id <= count; id++)
            records.push_back({.id = id,
                               .path = "D:\\" + std::to_string(id),
                               .host = host,
                               .bt = minute(id - 1),
                               .ch = static_cast<int>(id) % channels});
        put_all(records);
    }
    // Ids of which a search looked at the channel before it walked.
    std::set<uint64_t> witnesses(const char *host, int ch)
    {
        fake_silo_put("touched", std::to_string(++touched_)); // another commit
        fake_silo_clear_calls();
        found(host, ch);
        std::set<uint64_t> read;
        for (const std::string &call : fake_silo_calls_of({"get f."}))
            if (call.ends_with(".ch"))
                read.insert(std::stoull(call.substr(strlen("get f."))));
        return read;
    }
    int touched_ = 0;
};

TEST_F(WitnessTest, AChannelThatAnotherWriterChangesIsSeenAtOnce)
{
    put_rows(6);
    EXPECT_EQ(found("dev", 0), (ids{2, 4, 6}));
    fake_silo_put("f.3.ch", "0");
    EXPECT_EQ(found("dev", 0), (ids{2, 3, 4, 6}));
    EXPECT_EQ(found("dev", 1), (ids{1, 5}));
    fake_silo_put("f.5.host", "other");
    EXPECT_EQ(found("other", -1), (ids{5}));
    EXPECT_EQ(found("dev", 1), (ids{1}));
    EXPECT_EQ(log.count_containing("is not the one it was; what searches remembered is forgotten"), 2u);
}

TEST_F(WitnessTest, AnIndexFilledAnewWithTheSameIdsAndPathsIsSearchedAnew)
{
    for (uint64_t count : {6u, 5000u}) {
        fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}});
        put_rows(count, "old");
        EXPECT_EQ(found("old", -1).size(), count);
        fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}});
        put_rows(count, "new");
        EXPECT_EQ(found("new", -1).size(), count);
        EXPECT_EQ(found("old", -1).size(), 0u);
    }
}

TEST_F(WitnessTest, AnIndexWhoseOlderHalfIsAnotherOneIsSearchedAnew)
{
    put_rows(20000);
    EXPECT_EQ(found("dev", 0).size(), 10000u);
    std::vector<made_record> other;
    for (uint64_t id = 1; id <= 10000; id++)
        other.push_back({.id = id, .host = "dev", .bt = minute(id - 1), .ch = static_cast<int>(id + 1) % 2});
    put_all(other);
    EXPECT_EQ(found("dev", 0).size(), 10000u);
    EXPECT_EQ(found("dev", 0, 0, "2024-01-01 00:00:00", "2024-01-01 00:03:00"), (ids{1, 3}));
}

TEST_F(WitnessTest, WitnessesAreSpreadOverTheSpanAndOthersEachTime)
{
    put_rows(40000, "dev", 40);
    found("dev", 1);
    std::set<uint64_t> first = witnesses("dev", 1), second = witnesses("dev", 1);
    for (const std::set<uint64_t> &some : {first, second}) {
        EXPECT_GE(some.size(), 16u);
        EXPECT_LE(some.size(), 33u);
        for (uint64_t quarter = 0; quarter < 4; quarter++)
            EXPECT_LT(*some.lower_bound(quarter * 10000), (quarter + 1) * 10000) << quarter;
    }
    EXPECT_NE(first, second);
}

TEST_F(WitnessTest, WitnessesAreOfTheSpanAndTheGreatestId)
{
    put_rows(9000);
    found("dev", 1);
    fake_silo_put("touched", "1");
    fake_silo_clear_calls();
    found("dev", 1, 0, "2024-01-02 00:00:00", "2024-01-02 00:19:00");
    std::set<uint64_t> read;
    for (const std::string &call : fake_silo_calls_of({"get f."}))
        read.insert(std::stoull(call.substr(strlen("get f."))));
    std::set<uint64_t> wanted = {9000};
    for (uint64_t id = 1441; id <= 1460; id++)
        wanted.insert(id);
    EXPECT_EQ(read, wanted);
}

TEST_F(WitnessTest, NothingIsLookedAtWhereNothingWasCommitted)
{
    put_rows(100);
    found("dev", 1);
    fake_silo_clear_calls();
    EXPECT_EQ(found("dev", 0).size(), 50u);
    EXPECT_EQ(fake_silo_calls_of({"get f."}), words{});
    EXPECT_EQ(fake_silo_calls_of({"get ino"}), words{});
    fake_silo_set_server(true);
    EXPECT_EQ(found("dev", 0).size(), 50u);
    EXPECT_GE(fake_silo_calls_of({"get f."}).size(), 3u * 16) << "who writes to a server need not change its number";
}

TEST_F(WitnessTest, ADeletedRecordIsNoChange)
{
    put_rows(40);
    found("dev", 1);
    size_t known = silo_channels_bytes();
    for (int id = 1; id <= 20; id++)
        for (const char *field : {"bt", "et", "ch", "host", "path", "rt", "size"})
            fake_silo_erase("f." + std::to_string(id) + "." + field);
    EXPECT_EQ(found("dev", 1).size(), 10u);
    EXPECT_EQ(silo_channels_bytes(), known);
    EXPECT_EQ(log.count_containing("what searches remembered is forgotten"), 0u);
}

TEST_F(WitnessTest, ABeginThatAnotherWriterChangesForgets)
{
    put_rows(200);
    found("dev", 0);
    // Moved out of the span that was searched, and to another channel with it.
    fake_silo_erase("bt." + minute(2) + ".3");
    fake_silo_put("bt.2024-02-01 00:00:00.3", "3");
    fake_silo_put("f.3.bt", "2024-02-01 00:00:00");
    fake_silo_put("f.3.ch", "0");
    EXPECT_EQ(found("dev", 0, 0, "2024-02-01 00:00:00", "2024-02-02 00:00:00"), (ids{3}));
    EXPECT_EQ(log.count_containing("what searches remembered is forgotten"), 1u);
}

TEST_F(WitnessTest, ASecondEntryOfARecordForgetsNothing)
{
    put_rows(200);
    fake_silo_put("bt.2024-02-01 00:00:00.4", "4");
    for (int again = 0; again < 3; again++)
        EXPECT_EQ(found("dev", 0, 0, "2024-01-01 00:00:00", "2024-02-02 00:00:00").size(), 101u);
    EXPECT_EQ(log.count_containing("what searches remembered is forgotten"), 0u);
}

TEST_F(WitnessTest, WhatHidesFromTheWitnessesIsSeenWhenTheTrustEnds)
{
    put_rows(20000);
    EXPECT_EQ(found("dev", 0).size(), 10000u);
    fake_silo_put("f.3.ch", "0");
    clock.advance(SILO_TRUST_SECONDS * 1000 - 1);
    found("dev", 0); // what is learned later does not renew what was learned before
    clock.advance(1);
    EXPECT_EQ(found("dev", 0).size(), 10001u);
}

TEST_F(WitnessTest, TrustIsASettingAndWithoutAnyNothingIsRemembered)
{
    put_rows(20000);
    silo_channels_set_trust(5);
    found("dev", 0);
    EXPECT_GT(silo_channels_bytes(), 0u);
    fake_silo_put("f.3.ch", "0");
    clock.advance(5000);
    EXPECT_EQ(found("dev", 0).size(), 10001u);
    silo_channels_set_trust(0);
    EXPECT_EQ(found("dev", 0).size(), 10001u);
    EXPECT_EQ(silo_channels_bytes(), 0u);
}

TEST_F(WitnessTest, SearchesFindWhatIsThereWhateverOthersDo)
{
    auto apply = [](const std::vector<index_change> &changes) {
        for (const index_change &change : changes)
            change.value ? fake_silo_put(change.key, *change.value) : fake_silo_erase(change.key);
    };
    auto is_found_as_it_is = [&](uint32_t seed) {
        unruly_writer work(seed);
        silo_channels_forget();
        fake_silo_set_content({});
        fake_silo_set_server(seed % 2 == 0);
        apply(work.first_values());
        for (int i = 0; i < 150; i++) {
            apply(work.changes(*fake_silo_snapshot()));
            search_wish wish = work.wish();
            auto pairs = fake_silo_snapshot();
            RC_ASSERT(finish_search(begin_search(wish)) == reference_search(*pairs)(wish));
            fake_silo_clear_calls();
        }
    };
    EXPECT_TRUE(rc::check("searches find what is there, whatever others do", is_found_as_it_is));
}
