#include "silo_pool/silo_channels.h"

#include "tests/silo_pool/index_fixture.h"

class ChannelsTest : public IndexTest {
protected:
    ChannelsTest()
    {
        std::vector<made_record> records;
        for (uint64_t id = 1; id <= 200; id++)
            records.push_back({.id = id,
                               .path = "D:\\" + std::to_string(id),
                               .host = "dev" + std::to_string(id % 4),
                               .ch = static_cast<int>(id % 2)});
        put_all(records);
        all = fake_silo_content();
    }
    ~ChannelsTest() override { silo_channels_set_limit(64u << 20); }

    // Records whose channel a search looks up, which in an embedded store it does by walking from "ch" to "host".
    size_t hosts_read(const char *host)
    {
        fake_silo_clear_calls();
        EXPECT_EQ(found(host, -1).size(), 50u);
        size_t count = 0;
        for (const std::string &call : fake_silo_calls_of({"seek f."}))
            count += call.ends_with(".ch");
        return count;
    }
    fake_content all;
};

TEST_F(ChannelsTest, EachRecordIsLookedAtOnce)
{
    EXPECT_EQ(hosts_read("dev1"), 200u);
    EXPECT_EQ(hosts_read("dev1"), 0u);
    EXPECT_EQ(hosts_read("dev2"), 0u);
    EXPECT_GT(silo_channels_bytes(), 0u);
    silo_channels_forget();
    EXPECT_EQ(silo_channels_bytes(), 0u);
    EXPECT_EQ(hosts_read("dev1"), 200u);
}

TEST_F(ChannelsTest, ARecordThatIsNotVisibleIsNotRemembered)
{
    fake_silo_put("r.7", "9");
    EXPECT_EQ(found("dev3", -1).size(), 49u);
    fake_silo_put("f.7.host", "dev0"); // being made: not yet what it will be
    fake_silo_put("r.7", "2");
    EXPECT_EQ(found("dev0", -1).size(), 51u);
}

TEST_F(ChannelsTest, AnEmptiedAndRefilledIndexIsAnotherOne)
{
    EXPECT_EQ(hosts_read("dev1"), 200u);
    // The same ids mean other records; ever more of them than before.
    std::vector<made_record> records;
    for (uint64_t id = 1; id <= 300; id++)
        records.push_back({.id = id, .path = "D:\\other" + std::to_string(id), .host = "dev1", .ch = 1});
    fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}});
    put_all(records);
    EXPECT_EQ(found("dev1", 1).size(), 300u);
}

TEST_F(ChannelsTest, AnIndexThatLostItsLastRecordsIsAnotherOne)
{
    made_record last = {.id = 201, .path = "D:\\lost", .host = "dev1"};
    put_made(last);
    EXPECT_EQ(found("dev1", -1).size(), 51u);
    fake_silo_set_content(all);
    last.path = "D:\\another";
    last.host = "dev2";
    put_made(last);
    EXPECT_EQ(found("dev2", -1).size(), 51u);
    EXPECT_EQ(found("dev1", -1).size(), 50u);
    fake_silo_set_content(all);
    EXPECT_EQ(hosts_read("dev1"), 200u) << "the counter is below what was learned";
}

TEST_F(ChannelsTest, AnOldSearchTeachesNothingOfAnotherIndex)
{
    search_ptr old = open("dev1", -1);
    EXPECT_EQ(hosts_read("dev1"), 200u);
    std::vector<made_record> records;
    for (uint64_t id = 1; id <= 300; id++)
        records.push_back({.id = id, .path = "D:\\other" + std::to_string(id), .host = "dev2"});
    fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}});
    put_all(records);
    EXPECT_EQ(found("dev2", -1).size(), 300u);
    EXPECT_EQ(rest(old.get()).size(), 50u);
    EXPECT_EQ(found("dev2", -1).size(), 300u);
}

TEST_F(ChannelsTest, AnotherStoreOfThePoolIsAnotherIndex)
{
    EXPECT_EQ(hosts_read("dev1"), 200u);
    silo_pool_close();
    EXPECT_EQ(hosts_read("dev1"), 200u);
}

TEST_F(ChannelsTest, MemoryIsBounded)
{
    std::vector<made_record> records;
    for (uint64_t id = 1000; id < 10000000; id += 50000)
        records.push_back({.id = id, .path = "D:\\far" + std::to_string(id), .host = "far"});
    put_all(records);
    silo_channels_set_limit(1u << 20);
    for (int again = 0; again < 2; again++) {
        EXPECT_EQ(found("far", -1).size(), records.size());
        EXPECT_LE(silo_channels_bytes(), 1u << 20);
    }
    silo_channels_set_limit(0);
    EXPECT_EQ(hosts_read("dev1"), 200u + records.size());
    EXPECT_EQ(silo_channels_bytes(), 0u);
}

TEST_F(ChannelsTest, AThousandRecordsInARowCostEightBytesEach)
{
    std::vector<made_record> records;
    for (uint64_t id = 4096; id < 8192; id++)
        records.push_back({.id = id, .path = "D:\\row" + std::to_string(id), .host = "row"});
    fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}});
    put_all(records);
    EXPECT_EQ(found("row", -1).size(), 4096u);
    EXPECT_LT(silo_channels_bytes(), 4096u * 9);
}

TEST_F(ChannelsTest, GreatIdsAreIdsToo)
{
    put_made({.id = UINT64_MAX, .path = "D:\\last", .host = "great"});
    put_made({.id = 0, .path = "D:\\zero", .host = "great"});
    for (int again = 0; again < 2; again++)
        EXPECT_EQ(found("great", -1), (ids{0, UINT64_MAX}));
}
