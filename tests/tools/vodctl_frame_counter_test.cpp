#include "tools/vodctl/frame_counter.h"

#include "tests/tools/vodctl_recording.h"

#include "comm_func/orb_userdata.h"
#include "platform/os/os_guard.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>

// Pushes head and frames in pieces of `piece` bytes; what is handed on.
static byte_list flow(frame_counter *counter, const byte_list &frames, size_t piece)
{
    byte_list out;
    auto write = [&](byte_span bytes) {
        out.insert(out.end(), bytes.begin(), bytes.end());
        return true;
    };
    EXPECT_TRUE(counter->head(recording_head_bytes(), write));
    for (size_t at = 0; at < frames.size(); at += piece)
        EXPECT_TRUE(counter->push(byte_span(frames).subspan(at, std::min(piece, frames.size() - at)), write));
    EXPECT_TRUE(counter->end(write));
    return out;
}

static byte_list with_head(const byte_list &frames)
{
    byte_list all = recording_head_bytes();
    all.insert(all.end(), frames.begin(), frames.end());
    return all;
}

TEST(FrameCounterTest, WithoutLimitsEveryByteIsHandedOnAndFramesAreCounted)
{
    byte_list frames = recording_frames_bytes(0, 12);
    frame_counter counter({});
    EXPECT_EQ(flow(&counter, frames, 100), with_head(frames));
    EXPECT_EQ(counter.totals().frames, 12u);
    EXPECT_EQ(counter.totals().key_frames, 3u);
    EXPECT_EQ(counter.totals().first_ms, 0u);
    EXPECT_EQ(counter.totals().last_ms, 440u);
    EXPECT_FALSE(counter.limit_reached());
}

TEST(FrameCounterTest, AFrameLimitEndsAtTheFramesBorder)
{
    frame_counter counter({.frames_max = 3});
    EXPECT_EQ(flow(&counter, recording_frames_bytes(0, 12), 100), with_head(recording_frames_bytes(0, 3)));
    EXPECT_EQ(counter.totals().frames, 3u);
    EXPECT_TRUE(counter.limit_reached());
}

TEST(FrameCounterTest, ADurationLimitLeavesOutTheFrameThatReachesIt)
{
    frame_counter counter({.duration_ms = 200});
    EXPECT_EQ(flow(&counter, recording_frames_bytes(7, 12), 100), with_head(recording_frames_bytes(7, 5)));
    EXPECT_TRUE(counter.limit_reached());
}

TEST(FrameCounterTest, ADurationCountsBackwardsToo)
{
    byte_list frames, kept;
    for (uint32_t number : {20u, 15u, 10u, 5u}) {
        byte_list frame = recording_frame_bytes(number);
        frames.insert(frames.end(), frame.begin(), frame.end());
        if (number > 10)
            kept.insert(kept.end(), frame.begin(), frame.end());
    }
    frame_counter counter({.duration_ms = 400});
    EXPECT_EQ(flow(&counter, frames, 64), with_head(kept));
}

TEST(FrameCounterTest, ALimitBeyondTheRecordingIsNotReached)
{
    byte_list frames = recording_frames_bytes(0, 4);
    frame_counter counter({.frames_max = 5, .duration_ms = 10'000});
    EXPECT_EQ(flow(&counter, frames, 1000), with_head(frames));
    EXPECT_FALSE(counter.limit_reached());
}

TEST(FrameCounterTest, DamageIsCountedAndLeftOutOnlyWhereThereIsALimit)
{
    byte_list frames = recording_frames_bytes(0, 2), damage(50, 0xAB), more = recording_frames_bytes(2, 2);
    frames.insert(frames.end(), damage.begin(), damage.end());
    frames.insert(frames.end(), more.begin(), more.end());
    frame_counter counter({});
    EXPECT_EQ(flow(&counter, frames, 37), with_head(frames));
    EXPECT_EQ(counter.totals().frames, 4u);
    EXPECT_EQ(counter.totals().damaged_bytes, 50u);
    frame_counter limited({.frames_max = 3});
    EXPECT_EQ(flow(&limited, frames, 37), with_head(recording_frames_bytes(0, 3)));
}

TEST(FrameCounterTest, AFailingWriterIsTold)
{
    frame_counter counter({}), limited({.frames_max = 1});
    auto fail = [](byte_span) { return false; };
    EXPECT_FALSE(counter.head(recording_head_bytes(), fail));
    EXPECT_FALSE(counter.push(recording_frames_bytes(0, 2), fail));
    EXPECT_FALSE(limited.head(recording_head_bytes(), fail));
    EXPECT_FALSE(limited.push(recording_frames_bytes(0, 3), fail));
}

TEST(FrameCounterTest, ThePiecesDoNotMatter)
{
    EXPECT_TRUE(rc::check([] {
        auto extra = *rc::gen::inRange<size_t>(0, 200), piece = *rc::gen::inRange<size_t>(1, 300);
        auto limit = *rc::gen::inRange<uint32_t>(1, 10);
        frame_counter counter({.frames_max = limit});
        RC_ASSERT(flow(&counter, recording_frames_bytes(0, 9, extra), piece) ==
                  with_head(recording_frames_bytes(0, limit, extra)));
    }));
}

// A key frame that was given a time on its way, as the service gives it.
static byte_list frame_with_time(uint32_t number, uint32_t seconds)
{
    byte_list frame = recording_frame_bytes(number), timed(frame.size() + 64);
    const int size = add_new_abstime_sei(21, frame.data(), static_cast<int>(frame.size()), timed.data(),
                                         static_cast<int>(timed.size()), seconds);
    timed.resize(static_cast<size_t>(size));
    return timed;
}

TEST(FrameCounterTest, TrueSizesCountTheEscapeBytesOfAnInsertedTime)
{
    static constexpr uint32_t NEEDS_AN_ESCAPE = 0x69A50100;
    byte_list damage(40, 0xAB), plain = recording_frame_bytes(1), timed = frame_with_time(0, NEEDS_AN_ESCAPE);
    byte_list expected_timed = timed;
    const auto size = static_cast<uint32_t>(timed.size() - 32);
    ASSERT_EQ(wire_load<uint32_t>(timed.data() + 4), size - 1);
    wire_store(expected_timed.data() + 4, size);
    wire_store(expected_timed.data() + 20, size);
    byte_list frames, expected;
    for (const byte_list *part : {&timed, &plain, &damage, &timed, &plain}) {
        frames.insert(frames.end(), part->begin(), part->end());
        const byte_list &kept = part == &timed ? expected_timed : *part;
        expected.insert(expected.end(), kept.begin(), kept.end());
    }
    for (size_t piece : {1, 7, 100, 10'000}) {
        frame_counter counter({}, frame_sizes::true_ones), untouched({});
        EXPECT_EQ(flow(&counter, frames, piece), with_head(expected)) << piece;
        EXPECT_EQ(counter.totals().frames, 4u);
        EXPECT_EQ(flow(&untouched, frames, piece), with_head(frames)) << piece;
    }
    frame_counter limited({.frames_max = 1}, frame_sizes::true_ones);
    EXPECT_EQ(flow(&limited, frames, 100), with_head(expected_timed));
}
