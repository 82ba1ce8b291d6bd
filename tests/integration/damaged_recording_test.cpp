// Recordings that are damaged, cut, changed or still written while they are played: the session ends in order.
#include "tests/integration/service_fixture.h"

#include "platform/os/os.h"

#include <filesystem>
#include <fstream>
#include <random>

class DamagedRecordingTest : public ServiceTest {
protected:
    // What comes of a recording that holds these bytes; its session must end in order if it begins at all.
    std::string play_bytes(const std::string &bytes)
    {
        service.folder().write("rec/damaged.rec", bytes);
        play_result played = play_all(service.server(), "rec/damaged.rec");
        if (!played.result) {
            EXPECT_EQ(played.result.status, VODCLIENT_REFUSED) << played.result.text;
            return {};
        }
        EXPECT_TRUE(played.reached_end);
        return played.bytes;
    }
};

static std::string frames_but(const made_recording &made, size_t first, size_t count)
{
    std::string bytes = made.header;
    for (size_t i = 0; i < made.frames.size(); i++)
        if (i < first || i >= first + count)
            bytes += made.frames[i].bytes;
    return bytes;
}

TEST_F(DamagedRecordingTest, ACutRecordingPlaysItsWholeFrames)
{
    recording_plan plan = even_plan();
    plan.frames = 6;
    plan.gop = 3;
    made_recording made = make("whole.rec", plan);
    std::string bytes = made.bytes();
    for (size_t frame = 0; frame < 3; frame++) {
        auto at = static_cast<size_t>(made.frames[frame].offset);
        for (size_t cut : {at, at + 1, at + 31, at + 32, at + 33, at + made.frames[frame].bytes.size() - 1}) {
            std::string received = play_bytes(bytes.substr(0, cut));
            EXPECT_TRUE(received.empty() || received == bytes.substr(0, at)) << cut << ": " << received.size();
            EXPECT_TRUE(frame == 0 || !received.empty()) << cut;
        }
    }
}

TEST_F(DamagedRecordingTest, FilesWithoutAWholeHeaderAreRefused)
{
    made_recording made = make("whole.rec", even_plan());
    for (size_t cut : {0u, 1u, 87u}) {
        service.folder().write("rec/damaged.rec", made.bytes().substr(0, cut));
        raw_session session;
        EXPECT_EQ(session.request(service.port(), "rec/damaged.rec"), 11) << cut;
        EXPECT_EQ(session.reject_code(), 0x1000028u) << cut;
    }
}

TEST_F(DamagedRecordingTest, AMegabyteOfNoiseInTheMiddleIsPassedOver)
{
    recording_plan plan = even_plan();
    plan.frames = 400;
    made_recording made = make("whole.rec", plan);
    std::string bytes = made.bytes();
    std::minstd_rand random(7);
    auto from = static_cast<size_t>(made.frames[100].offset);
    size_t last = 100;
    while (static_cast<size_t>(made.frames[last].offset) < from + (1u << 20))
        last++;
    auto to = static_cast<size_t>(made.frames[last].offset);
    for (size_t i = from; i < to; i++)
        bytes[i] = static_cast<char>(random());
    // The frame in front of the damage cannot be told from one with a wrong length.
    EXPECT_TRUE(play_bytes(bytes) == frames_but(made, 99, last - 99));
}

TEST_F(DamagedRecordingTest, WrongLengthsCostOnlyTheirFrames)
{
    made_recording made = make("whole.rec", even_plan());
    for (uint32_t length : {0u, 1u, 5000u, 7'000'000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        std::string bytes = made.bytes();
        for (size_t i = 0; i < sizeof length; i++)
            bytes[static_cast<size_t>(made.frames[40].offset) + 4 + i] = static_cast<char>(length >> (8 * i));
        std::string received = play_bytes(bytes);
        EXPECT_TRUE(received == frames_but(made, 40, 1) || received == frames_but(made, 39, 2)) << length;
    }
}

TEST_F(DamagedRecordingTest, AHeaderThatBeginsWith0xFFIsPlayed)
{
    made_recording made = make("whole.rec", even_plan());
    std::string bytes = made.bytes();
    bytes[0] = '\xFF';
    EXPECT_TRUE(play_bytes(bytes) == bytes);
}

TEST_F(DamagedRecordingTest, AHeaderThatMakesNoSenseIsRefused)
{
    std::string bytes = make("whole.rec", even_plan()).bytes();
    for (auto [offset, value] : {std::pair{6, 99}, {0, 0}}) { // coding mode, frame rate
        std::string damaged = bytes;
        damaged[static_cast<size_t>(offset)] = static_cast<char>(value);
        EXPECT_EQ(play_bytes(damaged), "") << offset;
    }
}

TEST_F(DamagedRecordingTest, RandomDamageNeverStopsTheService)
{
    recording_plan plan = even_plan();
    plan.frames = 60;
    std::string bytes = make("whole.rec", plan).bytes();
    std::minstd_rand random(11);
    for (int i = 0; i < rounds(60); i++) {
        std::string damaged = bytes;
        for (int change = 0; change < 40; change++)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        play_bytes(damaged);
    }
    EXPECT_TRUE(play_bytes(bytes) == bytes);
}

// ---- Files that change while they are played ------------------------------------------------------------------------

class ChangingRecordingTest : public ServiceTest {
protected:
    ChangingRecordingTest() : ServiceTest({.vod_config = R"({"sleep_interval": 3})"}) {}
    // Opens, starts, and waits until some data has come.
    void begin(vodclient_playback *session, const std::string &name, std::string *bytes) const
    {
        ASSERT_TRUE(session->open(service.server(), request_of(name)));
        ASSERT_TRUE(session->start());
        vodclient_event event;
        while (bytes->size() < 100'000) {
            ASSERT_TRUE(session->next(&event, 10'000));
            bytes->append(reinterpret_cast<const char *>(event.data), event.size);
        }
    }
};

TEST_F(ChangingRecordingTest, AFileCutWhileItPlaysEndsInOrder)
{
    made_recording made = make("cut.rec", package_plan(600));
    vodclient_playback session;
    std::string bytes;
    begin(&session, "rec/cut.rec", &bytes);
    std::filesystem::resize_file(made.path, static_cast<uintmax_t>(made.frames[300].offset) + 1000);
    EXPECT_TRUE(play_to_end(session, &bytes));
    std::string whole = made.bytes();
    EXPECT_LT(bytes.size(), whole.size());
    EXPECT_TRUE(whole.starts_with(bytes));
    // What is gone cannot be reached by seeking either.
    ASSERT_TRUE(session.seek_percent(90));
    bytes.clear();
    EXPECT_TRUE(play_behind_mark(session, &bytes));
    EXPECT_TRUE(bytes.size() < 50 * made.frames[0].bytes.size());
}

TEST_F(ChangingRecordingTest, AFileEmptiedOrRemovedWhileItPlaysEndsInOrder)
{
    for (bool is_removed : {false, true}) {
        std::string name = is_removed ? "removed.rec" : "emptied.rec";
        made_recording made = make(name, package_plan(300));
        vodclient_playback session;
        std::string bytes;
        begin(&session, "rec/" + name, &bytes);
        if (is_removed)
            std::filesystem::remove(made.path); // open files stay readable
        else
            std::filesystem::resize_file(made.path, 0);
        EXPECT_TRUE(play_to_end(session, &bytes));
        EXPECT_TRUE(made.bytes().starts_with(bytes));
        EXPECT_EQ(bytes.size() == made.bytes().size(), is_removed);
    }
}

TEST_F(ChangingRecordingTest, ARecordingStillWrittenPlaysUpToItsLastWholeFrameAndGoesOnAfterASeek)
{
    recording_plan plan = even_plan();
    recording_grower grower(service.folder().file("rec/live.rec"), plan);
    grower.add_frames(60);
    vodclient_playback session;
    ASSERT_TRUE(session.open(service.server(), request_of("rec/live.rec")));
    ASSERT_TRUE(session.start());
    std::string bytes;
    ASSERT_TRUE(play_to_end(session, &bytes));
    EXPECT_TRUE(bytes == grower.made().bytes());
    grower.add_frames(40);
    ASSERT_TRUE(session.seek_ms(2400));
    bytes.clear();
    EXPECT_TRUE(play_behind_mark(session, &bytes));
    EXPECT_TRUE(bytes == bytes_from(grower.made(), grower.made().key_at(2400)));
    grower.finish();
    EXPECT_TRUE(play_all(service.server(), "rec/live.rec").bytes == file_of(grower.made().path));
}
