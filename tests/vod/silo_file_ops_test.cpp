#include "vod/silo_file_ops.h"

#include "tests/silo_pool/index_fixture.h"

#include <atomic>
#include <thread>

class FileOpsTest : public IndexTest {
protected:
    int32_t find(const char *host = nullptr, int32_t ch = -1, int32_t type = 0)
    {
        int32_t number = -7;
        DVR_TIME from = {2000, 1, 1, 0, 0, 0}, to = {2099, 1, 1, 0, 0, 0};
        return silo_db_find_file(host, ch, type, &from, &to, &number) == 1 ? number : 0;
    }
    RecordFileInfo f;
};

static bool is_time(const DVR_TIME &time, DVR_TIME wanted)
{
    return memcmp(&time, &wanted, sizeof time) == 0;
}

static bool is_all_zero(const RecordFileInfo &info)
{
    return std::ranges::all_of(std::string_view(reinterpret_cast<const char *>(&info), sizeof info),
                               [](char byte) { return byte == 0; });
}

static constexpr DVR_TIME NONE = {};

TEST_F(FileOpsTest, ARecordIsHandedOutAsARecordFileInfo)
{
    put_made({.id = 5, .path = "D:\\a.orb", .host = "dev1", .ch = 3, .rt = 4, .size = 77});
    fake_silo_put("f.5.lock_level", "2");
    fake_silo_put("f.5.lock_time", "2024-02-03 04:05:06");
    fake_silo_put("f.5.md5", "0123456789abcdef0123456789abcdef");
    int32_t number = find();
    memset(&f, 0xff, sizeof f);
    ASSERT_EQ(silo_db_get_next_file(number, &f), 0);
    RecordFileInfo wanted = {};
    wanted.ch = 3;
    wanted.size = 77;
    wanted.filetype = 4;
    wanted.lock_level = 2;
    wanted.starttime = {2024, 1, 1, 0, 0, 0};
    wanted.endtime = {2024, 1, 1, 0, 10, 0};
    wanted.locktime = {2024, 2, 3, 4, 5, 6};
    strcpy(wanted.filename, "D:\\a.orb");
    strcpy(wanted.devid, "dev1");
    strcpy(wanted.md5, "0123456789abcdef0123456789abcdef");
    EXPECT_EQ(f.struct_len, 0u);
    for (size_t i = 0; i < 996; i++) // all but the padding at the end
        EXPECT_EQ(reinterpret_cast<char *>(&f)[i], reinterpret_cast<char *>(&wanted)[i]) << i;
    EXPECT_EQ(log.count("get next file path => 'D:\\a.orb'", LOG_TRACE), 1u);
    memset(&f, 0xff, sizeof f);
    EXPECT_EQ(silo_db_get_next_file(number, &f), -1);
    EXPECT_TRUE(is_all_zero(f));
    EXPECT_EQ(silo_db_find_close(number), 1);
}

TEST_F(FileOpsTest, WhatIsAbsentOrUnreadableIsZero)
{
    put_made({.id = 5, .et = "soon"});
    fake_silo_put("f.5.lock_time", "");
    fake_silo_put("f.5.lock_level", "x");
    fake_silo_put("f.5.bt", "2024-01-01");
    fake_silo_erase("f.5.size");
    int32_t number = find();
    ASSERT_EQ(silo_db_get_next_file(number, &f), 0);
    EXPECT_TRUE(is_time(f.endtime, NONE));
    EXPECT_TRUE(is_time(f.starttime, NONE));
    EXPECT_TRUE(is_time(f.locktime, NONE));
    EXPECT_EQ(f.lock_level, 0);
    EXPECT_EQ(f.size, 0);
    EXPECT_STREQ(f.md5, "");
    silo_db_find_close(number);
}

TEST_F(FileOpsTest, TextsAreCutToTheirFields)
{
    put_made({.id = 5, .path = std::string(300, 'p'), .host = std::string(255, 'h')});
    fake_silo_put("f.5.md5", std::string(40, 'm'));
    int32_t number = find();
    ASSERT_EQ(silo_db_get_next_file(number, &f), 0);
    EXPECT_STREQ(f.filename, std::string(259, 'p').c_str());
    EXPECT_STREQ(f.devid, std::string(59, 'h').c_str());
    EXPECT_STREQ(f.md5, std::string(32, 'm').c_str());
    EXPECT_EQ(f.driveno, 0u);
    silo_db_find_close(number);
}

TEST_F(FileOpsTest, NumbersRunUpwardsAndSkipThoseThatAreOpen)
{
    int32_t first = find(), second = find();
    EXPECT_GT(first, 0);
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(silo_db_find_close(first), 1);
    int32_t third = find();
    EXPECT_EQ(third, second + 1) << "a number is not given again at once";
    silo_db_find_close(second);
    silo_db_find_close(third);
}

TEST_F(FileOpsTest, ClosingAnUnknownSearchChangesNothing)
{
    int32_t number = find();
    for (int32_t unknown : {0, -1, number + 1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(silo_db_find_close(unknown), 0) << unknown;
        memset(&f, 0xff, sizeof f);
        EXPECT_EQ(silo_db_get_next_file(unknown, &f), -1) << unknown;
        EXPECT_TRUE(is_all_zero(f)) << unknown;
    }
    EXPECT_EQ(silo_db_find_close(number), 1);
    EXPECT_EQ(silo_db_find_close(number), 0);
    EXPECT_EQ(silo_db_get_next_file(number, &f), -1);
}

TEST_F(FileOpsTest, ASearchHoldsAConnectionUntilItsEnd)
{
    int32_t one = find(), other = find();
    EXPECT_EQ(fake_silo_open_handles(), 2);
    EXPECT_TRUE(fake_silo_calls_of({"end"}).empty());
    silo_db_find_close(one);
    silo_db_find_close(other);
    EXPECT_EQ(fake_silo_calls_of({"end"}).size(), 2u);
    find(); // an idle connection is taken
    EXPECT_EQ(fake_silo_open_handles(), 2);
    silo_db_find_close(other + 1);
}

TEST_F(FileOpsTest, FiltersAreTheIterators)
{
    put_made({.id = 1, .host = "dev1", .ch = 1, .rt = 1});
    put_made({.id = 2, .host = "dev1", .ch = 2, .rt = 2});
    auto count = [&](const char *host, int ch, int type) {
        int32_t number = find(host, ch, type);
        int found = 0;
        while (silo_db_get_next_file(number, &f) == 0)
            found++;
        silo_db_find_close(number);
        return found;
    };
    EXPECT_EQ(count(nullptr, 9, 0), 2);
    EXPECT_EQ(count("dev1", -1, 0), 2);
    EXPECT_EQ(count("dev1", 2, 0), 1);
    EXPECT_EQ(count("dev1", 2, 1), 0);
}

TEST_F(FileOpsTest, WithoutAStoreThereIsNoSearch)
{
    fake_silo_fail("connect");
    EXPECT_EQ(find(), 0);
    fake_silo_erase("rev.lo");
    EXPECT_EQ(find(), 0);
    EXPECT_EQ(silo_db_find_file(nullptr, 0, 0, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(silo_db_get_next_file(1, nullptr), -1);
}

TEST_F(FileOpsTest, ASearchThatCannotBeOpenedLeavesTheNumberAsItWas)
{
    int32_t number = -7;
    DVR_TIME time = {2024, 1, 1, 0, 0, 0};
    fake_silo_fail("begin read");
    EXPECT_EQ(silo_db_find_file("dev1", 1, 0, &time, &time, &number), 0);
    EXPECT_EQ(number, -7);
}

TEST_F(FileOpsTest, TheIndexIsAskedWithTheTimesAsTexts)
{
    int32_t number = 0;
    DVR_TIME from = {2024, 3, 5, 7, 8, 9}, to = {2024, 12, 31, 23, 59, 59};
    put_made({.id = 1, .bt = "2024-03-05 07:08:09"});
    put_made({.id = 2, .bt = "2024-12-31 23:59:59"});
    ASSERT_EQ(silo_db_find_file("dev1", 1, 0, &from, &to, &number), 1);
    EXPECT_EQ(silo_db_get_next_file(number, &f), 0);
    EXPECT_EQ(fake_silo_calls_of({"seek bt."}), words{"seek bt.2024-03-05 07:08:09."});
    EXPECT_EQ(silo_db_get_next_file(number, &f), 0);
    EXPECT_TRUE(is_time(f.starttime, to));
    EXPECT_EQ(silo_db_get_next_file(number, &f), -1);
    silo_db_find_close(number);
}

TEST_F(FileOpsTest, OpenSearchesAreLimited)
{
    std::vector<int32_t> open;
    for (int i = 0; i < SILO_FINDINGS_MAX; i++)
        open.push_back(find());
    EXPECT_EQ(std::ranges::count(open, 0), 0);
    log.clear();
    EXPECT_EQ(find(), 0);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("silo_db_find_file: 1024 searches are open", LOG_SYSTEM), 1u);
    silo_db_find_close(open.back());
    open.back() = find();
    EXPECT_GT(open.back(), 0);
    for (int32_t number : open)
        EXPECT_EQ(silo_db_find_close(number), 1);
    fake_silo_fail("begin read");
    EXPECT_EQ(find(), 0) << "a failure gives its place back";
    for (int i = 0; i < SILO_FINDINGS_MAX; i++)
        open[static_cast<size_t>(i)] = find();
    EXPECT_EQ(std::ranges::count(open, 0), 0);
    for (int32_t number : open)
        silo_db_find_close(number);
}

TEST_F(FileOpsTest, OpenSearchesAreToldAtEachDoublingFrom64)
{
    std::vector<int32_t> open;
    for (int i = 0; i < 300; i++)
        open.push_back(find());
    for (int count : {64, 128, 256})
        EXPECT_EQ(log.count("silo_db_find_file: " + std::to_string(count) + " searches are open", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count_containing("searches are open"), 3u);
    for (int32_t number : open)
        silo_db_find_close(number);
}

TEST_F(FileOpsTest, InitialisesTheIndex)
{
    fake_silo_set_content({});
    EXPECT_EQ(silo_db_init(), 0);
    EXPECT_EQ(fake_silo_content()["rev.hi"], "2");
    silo_pool_close();
    fake_silo_fail("connect", 10);
    EXPECT_EQ(silo_db_init(), -1);
    EXPECT_EQ(clock.sleeps().size(), 9u);
}

TEST_F(FileOpsTest, ClosingASearchThatIsBeingReadIsSafe)
{
    std::vector<made_record> records;
    for (uint64_t id = 1; id <= 50; id++)
        records.push_back({.id = id});
    put_all(records);
    std::atomic<int32_t> current = 0;
    std::atomic<bool> is_over = false;
    std::thread reader([&] {
        RecordFileInfo info;
        while (!is_over)
            silo_db_get_next_file(current, &info);
    });
    for (int i = 0; i < 300; i++) {
        int32_t number = find();
        current = number;
        std::this_thread::yield();
        EXPECT_EQ(silo_db_find_close(number), 1);
    }
    is_over = true;
    reader.join();
}
