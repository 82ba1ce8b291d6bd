// vodctl play: what happens to files that are already there, and what a break leaves behind.
#include "tests/tools/vodctl_play_fixture.h"

#include <gmock/gmock.h>

#include <filesystem>

using testing::HasSubstr;

class VodctlOutputTest : public VodctlPlayTest {
protected:
    byte_list first_frames(uint32_t count) const
    {
        byte_list bytes = recording_head_bytes(), frames = recording_frames_bytes(0, count);
        bytes.insert(bytes.end(), frames.begin(), frames.end());
        return bytes;
    }
    void break_off_after(uint32_t frames)
    {
        service.on(MP_CODE_GET_RES, [frames](fake_service &self, MsLink *link, const seen_package &) {
            self.data(link, recording_frames_bytes(0, frames));
            self.send(link, raw_package(MP_CODE_SEND_RES, {})); // no data attribute: the client gives the connection up
        });
    }
    static std::vector<std::string> names()
    {
        std::vector<std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator("."))
            if (entry.path().filename().string().starts_with("out"))
                found.push_back(entry.path().filename().string());
        std::ranges::sort(found);
        return found;
    }
};

TEST_F(VodctlOutputTest, AFileThatIsThereIsReplacedOnlyWithForce)
{
    service.folder().write("out.rec", "precious");
    child_result result = run({"play", "x", "-o", "out.rec"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("out.rec is already there: use --force to replace it"));
    EXPECT_EQ(file_text("out.rec"), "precious");
    EXPECT_EQ(service.seen(MP_CODE_REQUEST_RES).size(), 0u);
    EXPECT_EQ(run({"play", "x", "-o", "out.rec", "--force"}).status, 0);
    EXPECT_EQ(file_text("out.rec"), text_of(file));
    EXPECT_EQ(names(), std::vector<std::string>{"out.rec"});
}

TEST_F(VodctlOutputTest, APlayThatFailsLeavesTheOldFileAlone)
{
    service.on(MP_CODE_REQUEST_RES,
               [](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, 0x1000028); });
    for (const char *name : {"out.rec", "out.mp4"}) {
        service.folder().write(name, "precious");
        EXPECT_EQ(run({"play", "x", "-o", name, "--force"}).status, 1);
        EXPECT_EQ(file_text(name), "precious");
    }
    EXPECT_EQ(names(), (std::vector<std::string>{"out.mp4", "out.rec"}));
}

TEST_F(VodctlOutputTest, ABrokenPlayLeavesTheOldFileAloneAndKeepsTheRestBesideIt)
{
    break_off_after(5);
    service.folder().write("out.rec", "precious");
    child_result result = run({"play", "x", "-o", "out.rec", "--force"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("what came until then is in out.rec.part"));
    EXPECT_EQ(file_text("out.rec"), "precious");
    EXPECT_EQ(file_text("out.rec.part"), text_of(first_frames(5)));
}

TEST_F(VodctlOutputTest, APartOfTheUsersOwnIsKept)
{
    break_off_after(5);
    service.folder().write("out.rec.part", "the user's");
    child_result result = run({"play", "x", "-o", "out.rec"});
    EXPECT_THAT(result.err, HasSubstr("what came until then is in out.rec.part.2"));
    EXPECT_EQ(file_text("out.rec.part"), "the user's");
    EXPECT_EQ(file_text("out.rec.part.2"), text_of(first_frames(5)));
}

TEST_F(VodctlOutputTest, ABrokenMp4CanBePlayed)
{
    if (!VODCTL_HAS_MEDIA)
        GTEST_SKIP() << "built without the media libraries";
    break_off_after(12);
    EXPECT_EQ(run({"play", "x", "-o", "out.mp4"}).status, 3);
    std::string mp4 = file_text("out.mp4.part");
    EXPECT_EQ(mp4.substr(4, 4), "ftyp");
    EXPECT_NE(mp4.find("moov"), std::string::npos);
}

TEST_F(VodctlOutputTest, TheRecordingThatIsPlayedIsNeverTheOutput)
{
    std::filesystem::create_directory("rec");
    service.folder().write("rec/a.rec", text_of(file));
    std::filesystem::create_hard_link("rec/a.rec", "twin.rec");
    for (const char *played : {"rec/a.rec", "rec\\a.rec"})
        for (const char *output : {"rec/a.rec", "./rec/../rec/a.rec", "twin.rec"}) {
            child_result result = run({"play", played, "-o", output, "--format", "rec", "--force"});
            EXPECT_EQ(result.status, 4) << played << " " << output;
            EXPECT_THAT(result.err, HasSubstr("is the file that is read"));
        }
    EXPECT_EQ(file_text("rec/a.rec"), text_of(file));
}

TEST_F(VodctlOutputTest, APoliteRequestToEndKeepsWhatCameAsPart)
{
    byte_list frame = recording_frame_bytes(0, 40'000);
    service.on(MP_CODE_GET_RES, [frame](fake_service &self, MsLink *link, const seen_package &) {
        for (int i = 0; i < 10; i++)
            self.data(link, frame);
    });
    child_result result = run_vodctl_and_stop("out.rec", with_server({"play", "x", "-o", "out.rec"}));
    EXPECT_EQ(result.status, 130) << result.err;
    EXPECT_THAT(result.err, HasSubstr("stopped; what came until then is in out.rec.part"));
    EXPECT_EQ((file_text("out.rec.part").size() - 88) % frame.size(), 0u);
    EXPECT_EQ(names(), std::vector<std::string>{"out.rec.part"});
}

TEST_F(VodctlOutputTest, ADamagedSequenceSetEndsAnMp4InTimeAndSaysWhy)
{
    if (!VODCTL_HAS_MEDIA)
        GTEST_SKIP() << "built without the media libraries";
    std::string recording = file_text(VOD_TESTS_DIR "/tools/damaged_sequence_set.rec");
    ASSERT_EQ(recording.size(), 1783u);
    byte_list bytes(recording.begin(), recording.end());
    service.on(MP_CODE_REQUEST_RES, [bytes](fake_service &self, MsLink *link, const seen_package &) {
        self.accept_playback(link, {bytes.begin(), bytes.begin() + 88}, bytes.size());
    });
    service.on(MP_CODE_GET_RES, [bytes](fake_service &self, MsLink *link, const seen_package &) {
        self.data(link, {bytes.begin() + 88, bytes.end()});
        self.data(link, {});
    });
    child_result result = run({"--timeout", "5", "play", "x", "-o", "out.mp4"});
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_THAT(result.err, HasSubstr("no key frame with parameter sets that can be read"));
    EXPECT_EQ(names(), std::vector<std::string>{});
}
