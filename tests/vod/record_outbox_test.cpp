// Replies that their connections do not take: who waits for them, and who does not.
#include "tests/vod/record_fixture.h"

#include "tests/support/manual_clock.h"
#include "vod/record_limits.h"
#include "vod/record_size.h"
#include "vod/record_text.h"

#include <rapidcheck.h>

#include <chrono>
#include <thread>

class RecordOutboxTest : public RecordTest {
protected:
    RecordOutboxTest()
    {
        read(other, res_package(0x8006, ""));
        other_before = other.sent_count();
    }
    ~RecordOutboxTest() override { record_worker_stop(); }
    static bool soon(const std::function<bool()> &happened)
    {
        for (int i = 0; i < 4000 && !happened(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return happened();
    }
    size_t failures_left()
    {
        std::lock_guard held(mslink.mutex);
        return mslink.failures.size();
    }
    // The next so many sends to the first client find no room.
    void fill_queue(size_t sends)
    {
        std::lock_guard held(mslink.mutex);
        mslink.failures.assign(sends, ORB_ERROR_TRY_AGAIN);
    }
    bool others_next_search_is_answered()
    {
        read(other, command_package(whole_find_file()));
        return soon([this, now = other_before + ++others_searches] { return other.sent_count() == now; });
    }

    manual_clock clock;
    MsLink other;
    size_t other_before = 0, others_searches = 0;
};

TEST_F(RecordOutboxTest, OthersAreAnsweredWhileAConnectionTakesNothing)
{
    fill_queue(30);
    ASSERT_EQ(record_worker_start(), 1);
    command(whole_find_file());
    ASSERT_TRUE(soon([this] { return failures_left() == 29; }));
    for (int i = 0; i < 20; i++)
        ASSERT_TRUE(others_next_search_is_answered()) << i;
    EXPECT_EQ(failures_left(), 29u) << "no time has passed";
    EXPECT_TRUE(clock.sleeps().empty());
    for (size_t left = 29; left-- > 0;) {
        clock.advance(10);
        ASSERT_TRUE(soon([this, left] { return failures_left() == left; })) << left;
    }
    EXPECT_EQ(log.count("i == TRY_AGIAN_NUM"), 0u) << "the last try has its time too";
    clock.advance(10);
    EXPECT_TRUE(soon([this] { return log.count("i == TRY_AGIAN_NUM", LOG_SYSTEM) == 1; }));
    EXPECT_EQ(log.count("try again!", LOG_SYSTEM), 30u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(RecordOutboxTest, RepliesOfAConnectionStayInOrder)
{
    fill_queue(2);
    ASSERT_EQ(record_worker_start(), 1);
    for (uint32_t id = 1; id <= 3; id++)
        command(whole_find_file(), id);
    ASSERT_TRUE(soon([this] { return failures_left() == 1; }));
    ASSERT_TRUE(others_next_search_is_answered());
    EXPECT_EQ(s_fake_index.searches().size(), 2u) << "its later commands wait with their reply";
    clock.advance(10);
    ASSERT_TRUE(soon([this] { return failures_left() == 0; }));
    clock.advance(10);
    ASSERT_TRUE(soon([this] { return replies() == 3; }));
    std::lock_guard held(mslink.mutex);
    for (uint32_t id = 1; id <= 3; id++)
        EXPECT_EQ(mslink.sent[before + id - 1].attr(6), u32(id));
}

TEST_F(RecordOutboxTest, CommandsWaitUntilTheirConnectionHasTakenItsReplies)
{
    mslink.unsent = 1000;
    ASSERT_EQ(record_worker_start(), 1);
    for (size_t i = 0; i < record_waiting_max(); i++)
        command(whole_find_file());
    for (int i = 0; i < 20; i++)
        ASSERT_TRUE(others_next_search_is_answered()) << i;
    EXPECT_EQ(replies(), 0u);
    EXPECT_EQ(mslink.holds, 1);
    mslink.unsent = 0;
    clock.advance(10);
    EXPECT_TRUE(soon([this] { return replies() == record_waiting_max(); }));
    EXPECT_TRUE(soon([this] { return mslink.holds == 0; }));
}

TEST_F(RecordOutboxTest, AReplyThatWaitsCountsAsACommandOfItsConnection)
{
    fill_queue(1);
    ASSERT_EQ(record_worker_start(), 1);
    command(whole_find_file());
    ASSERT_TRUE(soon([this] { return failures_left() == 0; }));
    for (size_t i = 1; i < record_waiting_max(); i++) {
        EXPECT_EQ(mslink.holds, 0);
        command(close(99));
    }
    EXPECT_EQ(mslink.holds, 1);
    clock.advance(10);
    EXPECT_TRUE(soon([this] { return mslink.holds == 0; }));
    EXPECT_EQ(replies(), 1u);
}

TEST_F(RecordOutboxTest, AfterAReplyThatWasLostTheNextIsTriedOnceUntilTheConnectionDrains)
{
    mslink.unsent = 1000;
    fill_queue(30);
    command(whole_find_file());
    work();
    EXPECT_EQ(log.count("i == TRY_AGIAN_NUM", LOG_SYSTEM), 1u);
    for (size_t i = 1; i <= 3; i++) {
        clock.clear_sleeps();
        fill_queue(30);
        command(whole_find_file());
        work();
        EXPECT_EQ(failures_left(), 29u);
        EXPECT_TRUE(clock.sleeps().empty());
        EXPECT_EQ(log.count_containing("is dropped: its connection has not taken the ones before"), i);
    }
    fill_queue(0);
    command(whole_find_file());
    work();
    EXPECT_EQ(replies(), 1u) << "one try is enough where there is room";
    fill_queue(2);
    command(whole_find_file());
    work();
    EXPECT_EQ(failures_left(), 1u) << "bytes still wait";

    mslink.unsent = 0;
    fill_queue(29);
    command(whole_find_file());
    work();
    EXPECT_EQ(failures_left(), 0u);
    EXPECT_EQ(replies(), 2u);
}

TEST_F(RecordOutboxTest, AWorkerThatEndsDropsWhatWaits)
{
    fill_queue(1);
    ASSERT_EQ(record_worker_start(), 1);
    command(whole_find_file());
    for (size_t i = 1; i < record_waiting_max(); i++)
        command(close(99));
    ASSERT_TRUE(soon([this] { return failures_left() == 0; }));
    EXPECT_EQ(mslink.holds, 1);
    record_worker_stop();
    EXPECT_EQ(mslink.holds, 0);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(RecordOutboxTest, NothingIsSearchedForAClientThatHasGoneButItsSearchIsClosed)
{
    open_search();
    command(whole_find_file());
    command(next(1, 5));
    command(close(1));
    disconnect(mslink);
    ASSERT_EQ(record_worker_start(), 1);
    ASSERT_TRUE(soon([] { return s_fake_index.open_count() == 0; }));
    EXPECT_EQ(s_fake_index.searches().size(), 1u);
    for (const char *line :
         {"command => 101 is left out, its link has gone", "command => 102 is left out, its link has gone"})
        EXPECT_EQ(log.count(line, LOG_REFUSE), 1u) << line;
}

// ---- Pages ----------------------------------------------------------------------------------------------------------

class RecordRoomTest : public RecordOutboxTest {
protected:
    struct page {
        int count = 0;
        bool is_last = false;
        size_t bytes = 0;
    };
    page read_page(int count)
    {
        size_t first = mslink.sent_count();
        command(next(s_fake_index.last_id, count));
        work();
        std::lock_guard held(mslink.mutex);
        page read;
        for (size_t i = first; i < mslink.sent.size(); i++)
            read.bytes += mslink.sent[i].bytes.size();
        const std::string head = mslink.sent.at(first).attr(7).substr(0, 120);
        read.count = std::atoi(head.substr(head.find("count=\"") + 7).c_str());
        read.is_last = head.find("result=\"end\"") != std::string::npos;
        EXPECT_NE(read.is_last, head.find("result=\"ok\"") != std::string::npos) << head;
        return read;
    }
};

TEST_F(RecordRoomTest, APageIsNoLongerThanTheConnectionsQueueHolds)
{
    constexpr int records = 1000;
    for (size_t room : {65535u, 200000u, 1048576u}) {
        s_fake_index.records.assign(records, fake_record(std::string(100, 'p') + "&\xD6\xD0.rec"));
        open_search();
        mslink.room = room;
        int found = 0, pages = 0;
        for (bool is_over = false; !is_over; pages++) {
            page read = read_page(records + 1);
            EXPECT_LE(read.bytes, room);
            found += read.count;
            is_over = read.is_last;
            ASSERT_LE(pages, records);
        }
        EXPECT_EQ(found, records) << room;
        EXPECT_EQ(pages > 1, room < 1000000) << pages;
        EXPECT_LE(static_cast<size_t>(pages), 1 + records * size_t{900} / (room / 2)) << "pages are well filled";
    }
}

TEST_F(RecordRoomTest, APageHasOneRecordAtLeast)
{
    s_fake_index.records = {fake_record("a.rec"), fake_record("b.rec")};
    open_search();
    mslink.room = 0;
    for (const char *name : {"a.rec", "b.rec"}) {
        command(next(1, 10));
        work();
        EXPECT_NE(reply_text().find("result=\"ok\" count=\"1\""), std::string::npos) << reply_text();
        EXPECT_NE(reply_text().find(name), std::string::npos);
    }
    command(next(1, 10));
    work();
    EXPECT_NE(reply_text().find("result=\"end\" count=\"0\""), std::string::npos);
}

static size_t written_size(const RecordFileInfo &record, int32_t count)
{
    RecordFileInfo copy = record;
    VodAsynRec_GetFile opit = {
        .ret = 2, .findfd = 1, .version = 3, .count = 1, .file_info = &copy, .get_recording_file_attr = 0};
    xml_doc doc = record_reply_document(opit);
    return xml_dump(doc.get(), nullptr, false).size() + std::to_string(count).size();
}

TEST_F(RecordRoomTest, NoRecordIsLongerThanItIsTakenFor)
{
    EXPECT_TRUE(rc::check([](const std::vector<uint8_t> &bytes, bool is_random, uint8_t filler) {
        RecordFileInfo record;
        std::memset(&record, is_random ? filler : 0xFF, sizeof record);
        std::string text(bytes.begin(), bytes.end());
        std::memcpy(record.filename, text.data(), std::min(text.size(), sizeof record.filename));
        RC_ASSERT(written_size(record, RECORD_COUNT_MAX) <= RECORD_REPLY_FRAME + record_reply_size(record));
        RC_ASSERT(record_reply_size(record) <= RECORD_REPLY_MAX);
    }));
    for (const char *unit : {"&", "<", ">", "\r", "\"", "\x01", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80",
                             "\xD6\xD0", "\x81\x40", "\x81\x30\x81\x30", "\xFF"}) {
        std::string text;
        while (text.size() + std::strlen(unit) < VOD_PATH_SIZE)
            text += unit;
        RecordFileInfo record = fake_record(text);
        EXPECT_LE(written_size(record, 1), RECORD_REPLY_FRAME + record_reply_size(record)) << unit;
        EXPECT_LE(record_reply_size(record), RECORD_REPLY_MAX) << unit;
    }
}
