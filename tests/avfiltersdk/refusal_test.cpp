#include "tests/avfiltersdk/recording_fixture.h"

#include <cstring>
#include <filesystem>

using RefusalTest = RecordingTest;

TEST_F(RefusalTest, OpenNeedsTheRightKindAndSizes)
{
    const AVOrbFileFilter good = whole_file_filter(make().path);
    AVOrbFileFilter wrong = good;
    wrong.iSize = 423;
    EXPECT_EQ(AVFilterCreate(0, &wrong, 424), nullptr);
    EXPECT_EQ(AVFilterCreate(0, &good, 423), nullptr);
    EXPECT_EQ(AVFilterCreate(0, &good, 0), nullptr);
    EXPECT_EQ(AVFilterCreate(1, &good, 424), nullptr);
    EXPECT_EQ(AVFilterCreate(0, nullptr, 424), nullptr);
    EXPECT_NE(open_filter(good), nullptr);
}

TEST_F(RefusalTest, NameMustEnd)
{
    AVOrbFileFilter filter = whole_file_filter(make().path);
    std::memset(filter.cFileName, 'a', sizeof(filter.cFileName));
    EXPECT_EQ(open_filter(filter), nullptr);
}

TEST_F(RefusalTest, CallsOfTheCallersOwnAreNotTaken)
{
    AVOrbFileFilter filter = whole_file_filter(make().path);
    filter.tFileOperate.iSize = sizeof(filter.tFileOperate);
    filter.tFilterMem.iSize = sizeof(filter.tFilterMem);
    EXPECT_NE(open_filter(filter), nullptr);
    filter.tFilterMem.pMalloc = std::malloc;
    EXPECT_EQ(open_filter(filter), nullptr);
    filter.tFilterMem.pMalloc = nullptr;
    filter.tFileOperate.pfRead = &filter;
    EXPECT_EQ(open_filter(filter), nullptr);
}

TEST_F(RefusalTest, WhatIsNoRegularFileIsNotOpened)
{
    EXPECT_EQ(open_whole(folder.file("missing.rec")), nullptr);
    EXPECT_EQ(open_whole(folder.path().string()), nullptr);
    EXPECT_EQ(open_whole(""), nullptr);
}

TEST_F(RefusalTest, InfoNeedsTheRightSizes)
{
    filter_ptr filter = open_whole(make().path);
    char head[88];
    EXPECT_LT(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE_HEAD, head, 87), 0);
    EXPECT_LT(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE_HEAD, head, -1), 0);
    EXPECT_LT(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE_HEAD, nullptr, 88), 0);
    EXPECT_LT(AVFilterGetInfo(nullptr, AVFILTER_INFO_FILE_HEAD, head, 88), 0);
    AVFileInfo info = {};
    EXPECT_LT(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE, &info, sizeof(info)), 0) << "iSise is 0";
    info.iSise = sizeof(info);
    EXPECT_LT(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE, &info, 87), 0);
    EXPECT_LT(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE, &info, 89), 0);
    EXPECT_LT(AVFilterGetInfo(filter.get(), 2, &info, sizeof(info)), 0);
    EXPECT_EQ(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE, &info, sizeof(info)), 0);
}

TEST_F(RefusalTest, DataNeedsAKnownKindABufferAndAFrameRecord)
{
    filter_ptr filter = open_whole(make().path);
    std::vector<char> buffer(0x300000);
    AVFrameInfo info = {};
    info.iSize = sizeof(info);
    const auto get = [&](int kind, void *to, int size, AVFrameInfo *frame) {
        return AVFilterGetData(filter.get(), kind, to, size, frame);
    };
    for (int kind : {-1, 2, 3, 5, 7})
        EXPECT_LT(get(kind, buffer.data(), 0x300000, &info), 0) << kind;
    for (int kind : {1, 4, 6})
        EXPECT_LT(get(kind, buffer.data(), 0x300000, nullptr), 0) << kind;
    EXPECT_LT(get(1, nullptr, 0x300000, &info), 0);
    EXPECT_LT(get(1, buffer.data(), 0, &info), 0);
    EXPECT_LT(get(0, buffer.data(), -5, nullptr), 0);
    EXPECT_LT(AVFilterGetData(nullptr, 1, buffer.data(), 0x300000, &info), 0);
    info.iSize = 31;
    EXPECT_LT(get(1, buffer.data(), 0x300000, &info), 0);
    info.iSize = sizeof(info);
    EXPECT_GT(get(1, buffer.data(), 0x300000, &info), 0);
    EXPECT_EQ(info.uiFrameNO, 1u) << "refusals lost nothing";
}

TEST_F(RefusalTest, CommandsNeedTheirRecordsSize)
{
    filter_ptr filter = open_whole(make().path);
    const struct {
        int command, size;
    } rows[] = {{0, 8}, {2, 8}, {3, 16}, {4, 16}, {5, 16}};
    for (const auto &row : rows) {
        int64_t record[2] = {row.size, 0};
        EXPECT_EQ(AVFilterSetCommond(filter.get(), row.command, record, row.size), 0) << row.command;
        EXPECT_LT(AVFilterSetCommond(filter.get(), row.command, record, row.size - 1), 0) << row.command;
        EXPECT_LT(AVFilterSetCommond(filter.get(), row.command, record, 24 - row.size), 0) << row.command;
        EXPECT_LT(AVFilterSetCommond(filter.get(), row.command, nullptr, row.size), 0) << row.command;
        EXPECT_LT(AVFilterSetCommond(nullptr, row.command, record, row.size), 0) << row.command;
        record[0] = row.size + 1;
        EXPECT_LT(AVFilterSetCommond(filter.get(), row.command, record, row.size), 0) << row.command;
    }
    int64_t record[2] = {8, 0};
    for (int command : {-1, 1, 6})
        EXPECT_LT(AVFilterSetCommond(filter.get(), command, record, 8), 0) << command;
}

TEST_F(RefusalTest, DestroyTakesNull)
{
    AVFilterDestroy(nullptr);
}

// A good header with one 16-bit field changed.
static int check_with(size_t offset, uint16_t value)
{
    static const uint16_t good[12] = {25, 1920, 1080, 21, 0, 2026, 1, 1, 8, 0, 0, 0};
    uint8_t head[88] = {};
    for (size_t i = 0; i < std::size(good); i++) {
        const uint16_t field = 2 * i == offset ? value : good[i];
        head[2 * i] = static_cast<uint8_t>(field);
        head[2 * i + 1] = static_cast<uint8_t>(field >> 8);
    }
    return AVFilterCheckValidData(0, head, sizeof(head));
}

TEST(CheckValidDataTest, FieldsMustBePlausible)
{
    const struct {
        size_t offset;
        uint16_t value;
        bool valid;
    } rows[] = {{0, 25, true},    {0, 0, false},     {0, 1, true},     {0, 240, true},   {0, 241, false},
                {2, 0, false},    {2, 1, true},      {2, 16384, true}, {2, 16385, false}, {4, 0, false},
                {4, 16384, true}, {4, 16385, false}, {6, 20, false},   {6, 21, true},    {6, 22, true},
                {6, 23, true},    {6, 24, false},    {8, 1, true},     {12, 0, false},   {12, 12, true},
                {12, 13, false},  {14, 0, false},    {14, 31, true},   {14, 32, false},  {16, 23, true},
                {16, 24, false},  {18, 60, false},   {20, 60, false},  {0, 255, false},  {0, 0x19FF, false}};
    for (const auto &row : rows)
        EXPECT_EQ(check_with(row.offset, row.value) == 0, row.valid) << row.offset << ": " << row.value;
}

TEST(CheckValidDataTest, StartTimeMayBeAllZero)
{
    uint8_t head[88] = {25, 0, 0, 5, 0, 4, 23};
    EXPECT_EQ(AVFilterCheckValidData(0, head, 88), 0);
    head[10] = 1;
    EXPECT_NE(AVFilterCheckValidData(0, head, 88), 0);
}

TEST(CheckValidDataTest, KindAndSizeMustBeRight)
{
    const uint8_t head[88] = {25, 0, 0, 5, 0, 4, 23};
    EXPECT_NE(AVFilterCheckValidData(1, head, 88), 0);
    EXPECT_NE(AVFilterCheckValidData(0, head, 87), 0);
    EXPECT_NE(AVFilterCheckValidData(0, head, 89), 0);
    EXPECT_NE(AVFilterCheckValidData(0, nullptr, 88), 0);
}
