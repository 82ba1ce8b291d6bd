#include "client/stream_queue.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <numeric>

static stream_package package_of(vodclient_event_type type, size_t bytes = 10, uint8_t tag = 0)
{
    stream_package package;
    package.type = type;
    package.bytes.assign(bytes, tag);
    package.data_size = bytes;
    return package;
}

static std::vector<vodclient_event_type> types_left(stream_queue *queue)
{
    std::vector<vodclient_event_type> types;
    for (stream_package package; queue->pop(&package);)
        types.push_back(package.type);
    return types;
}

using types = std::vector<vodclient_event_type>;

TEST(StreamQueueTest, GivesPackagesOutInOrderOfArrival)
{
    stream_queue queue;
    for (uint8_t tag : {uint8_t{1}, uint8_t{2}, uint8_t{3}})
        EXPECT_TRUE(queue.push(package_of(VODCLIENT_EVENT_STREAM, 4, tag)));
    stream_package package;
    for (uint8_t tag : {uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
        ASSERT_TRUE(queue.pop(&package));
        EXPECT_EQ(package.bytes, std::vector<uint8_t>(4, tag));
    }
    EXPECT_FALSE(queue.pop(&package));
}

TEST(StreamQueueTest, CountsForTheWindowWhatTheServiceCounts)
{
    struct row {
        vodclient_event_type type;
        uint32_t windowed;
    };
    for (const row &of :
         {row{VODCLIENT_EVENT_HEAD, 0}, row{VODCLIENT_EVENT_STREAM, 1}, row{VODCLIENT_EVENT_SEEK_DONE, 1},
          row{VODCLIENT_EVENT_TOTALS, 1}, row{VODCLIENT_EVENT_SLICE, 1}, row{VODCLIENT_EVENT_ALARM, 1},
          row{VODCLIENT_EVENT_ALARM_EX, 1}, row{VODCLIENT_EVENT_INT_VALUE, 0}, row{VODCLIENT_EVENT_END, 0}}) {
        stream_queue queue;
        queue.push(package_of(of.type));
        EXPECT_EQ(queue.windowed(), of.windowed) << of.type;
        stream_package package;
        queue.pop(&package);
        EXPECT_EQ(queue.windowed(), 0u) << of.type;
    }
}

TEST(StreamQueueTest, RefusesAPackageBeyondItsBoundAndTakesItOnceThereIsRoom)
{
    static constexpr size_t LARGE = STREAM_QUEUE_MAX_BYTES / 2;
    stream_queue queue;
    EXPECT_TRUE(queue.push(package_of(VODCLIENT_EVENT_STREAM, LARGE)));
    EXPECT_TRUE(queue.push(package_of(VODCLIENT_EVENT_STREAM, LARGE)));
    EXPECT_FALSE(queue.push(package_of(VODCLIENT_EVENT_STREAM, 1)));
    EXPECT_EQ(queue.windowed(), 2u);
    stream_package package;
    queue.pop(&package);
    EXPECT_TRUE(queue.push(package_of(VODCLIENT_EVENT_STREAM, 1)));
}

TEST(StreamQueueTest, AGrantedSeekDropsWhatWaitsAndWhatComesUntilTheMark)
{
    stream_queue queue;
    queue.push(package_of(VODCLIENT_EVENT_STREAM));
    queue.push(package_of(VODCLIENT_EVENT_SLICE));
    uint32_t before = queue.seek_marks();
    queue.seek_granted(before);
    queue.push(package_of(VODCLIENT_EVENT_STREAM));
    queue.push(package_of(VODCLIENT_EVENT_SEEK_DONE));
    queue.push(package_of(VODCLIENT_EVENT_STREAM));
    EXPECT_EQ(queue.take_dropped(), 3u);
    EXPECT_EQ(queue.take_dropped(), 0u);
    EXPECT_EQ(types_left(&queue), (types{VODCLIENT_EVENT_SEEK_DONE, VODCLIENT_EVENT_STREAM}));
}

TEST(StreamQueueTest, AMarkThatCameBeforeTheGrantStillEndsTheOldPosition)
{
    stream_queue queue;
    uint32_t before = queue.seek_marks();
    queue.push(package_of(VODCLIENT_EVENT_STREAM));
    queue.push(package_of(VODCLIENT_EVENT_SEEK_DONE));
    queue.push(package_of(VODCLIENT_EVENT_STREAM));
    queue.seek_granted(before);
    queue.push(package_of(VODCLIENT_EVENT_STREAM));
    EXPECT_EQ(queue.take_dropped(), 1u);
    EXPECT_EQ(types_left(&queue), (types{VODCLIENT_EVENT_SEEK_DONE, VODCLIENT_EVENT_STREAM, VODCLIENT_EVENT_STREAM}));
}

TEST(StreamQueueTest, AMarkThatWasAlreadyTakenLeavesNewDataAlone)
{
    stream_queue queue;
    uint32_t before = queue.seek_marks();
    queue.push(package_of(VODCLIENT_EVENT_SEEK_DONE));
    stream_package package;
    queue.pop(&package);
    queue.push(package_of(VODCLIENT_EVENT_STREAM));
    queue.seek_granted(before);
    EXPECT_EQ(types_left(&queue), types{VODCLIENT_EVENT_STREAM});
}

TEST(StreamQueueTest, ASeekKeepsWhatBelongsToNoPosition)
{
    stream_queue queue;
    for (auto type : {VODCLIENT_EVENT_HEAD, VODCLIENT_EVENT_TOTALS, VODCLIENT_EVENT_INT_VALUE, VODCLIENT_EVENT_END,
                      VODCLIENT_EVENT_ALARM, VODCLIENT_EVENT_ALARM_EX})
        queue.push(package_of(type));
    queue.seek_granted(queue.seek_marks());
    EXPECT_EQ(types_left(&queue),
              (types{VODCLIENT_EVENT_HEAD, VODCLIENT_EVENT_TOTALS, VODCLIENT_EVENT_INT_VALUE, VODCLIENT_EVENT_END}));
}

TEST(StreamQueueTest, WindowedCountAlwaysEqualsWhatCanStillBeTaken)
{
    EXPECT_TRUE(rc::check([] {
        stream_queue queue;
        uint32_t before = 0;
        auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 6));
        for (int step : steps) {
            stream_package package;
            if (step <= 1)
                queue.push(package_of(VODCLIENT_EVENT_STREAM));
            else if (step == 2)
                queue.push(package_of(VODCLIENT_EVENT_SEEK_DONE));
            else if (step == 3)
                queue.pop(&package);
            else if (step == 4)
                before = queue.seek_marks();
            else
                queue.seek_granted(before);
        }
        uint32_t announced = queue.windowed();
        RC_ASSERT(types_left(&queue).size() == announced);
        RC_ASSERT(queue.windowed() == 0u);
    }));
}

// ---- Reading data packages ------------------------------------------------------------------------------------------

struct built_data {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(MP_MAX_PACKAGE_LEN);
    MpPackage package{};
    built_data(const std::vector<uint8_t> &data, uint8_t mark)
    {
        mp_build_package_send_res(bytes.data(), MP_MAX_PACKAGE_LEN, 200, 131, data.data(),
                                  static_cast<uint32_t>(data.size()), &package);
        package.attr[0]->reserved = mark;
    }
};

TEST(StreamPackageTest, TheMarkTellsTheType)
{
    struct row {
        uint8_t mark;
        size_t size;
        vodclient_event_type type;
    };
    for (const row &of : {row{0, 5, VODCLIENT_EVENT_STREAM}, row{0, 0, VODCLIENT_EVENT_END},
                          row{0xEE, 0, VODCLIENT_EVENT_SEEK_DONE}, row{0xDC, 3, VODCLIENT_EVENT_TOTALS},
                          row{0xDD, 3, VODCLIENT_EVENT_SLICE}, row{0xFF, 3, VODCLIENT_EVENT_ALARM},
                          row{0xFE, 3, VODCLIENT_EVENT_ALARM_EX}, row{0xAA, 4, VODCLIENT_EVENT_INT_VALUE}}) {
        built_data built(std::vector<uint8_t>(of.size, 7), of.mark);
        stream_package package;
        ASSERT_EQ(stream_package_read(built.package, &package), stream_read_result::read) << int{of.mark};
        EXPECT_EQ(package.type, of.type) << int{of.mark};
        ASSERT_EQ(package.data_size, of.size) << int{of.mark};
        ASSERT_LE(package.data_offset + package.data_size, package.bytes.size());
        for (size_t i = 0; i < of.size; i++)
            EXPECT_EQ(package.bytes[package.data_offset + i], 7);
    }
}

TEST(StreamPackageTest, AnUnknownMarkIsIgnored)
{
    built_data built({1, 2}, 0x55);
    stream_package package;
    EXPECT_EQ(stream_package_read(built.package, &package), stream_read_result::ignored);
}

TEST(StreamPackageTest, APackageWithoutADataAttributeIsMalformed)
{
    built_data built({1, 2}, 0);
    stream_package package;
    built.package.attr[0]->type = MP_ATTR_ERROR;
    EXPECT_EQ(stream_package_read(built.package, &package), stream_read_result::malformed);
    built.package.size = 0;
    EXPECT_EQ(stream_package_read(built.package, &package), stream_read_result::malformed);
}
