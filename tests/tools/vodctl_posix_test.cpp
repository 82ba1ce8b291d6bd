// POSIX only: devices, pipes and links as outputs of vodctl play.
#include "tests/tools/vodctl_play_fixture.h"

#include <filesystem>
#include <sys/stat.h>
#include <thread>

using VodctlPosixTest = VodctlPlayTest;

TEST_F(VodctlPosixTest, ADeviceIsWrittenIntoAndStaysWhatItIs)
{
    for (const char *format : {"rec", "annexb", "mp4"}) {
        is_playing = false;
        if (!VODCTL_HAS_MEDIA && std::string(format) != "rec")
            continue;
        child_result result = run({"play", "x", "-o", "/dev/null", "--force", "--format", format});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    }
}

TEST_F(VodctlPosixTest, APipeWithANameCarriesTheRecording)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::string carried;
    std::thread reader([&] { carried = file_text("pipe"); });
    child_result result = run({"play", "x", "-o", "pipe"});
    reader.join();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(carried, text_of(file));
    EXPECT_TRUE(std::filesystem::is_fifo("pipe"));
}

TEST_F(VodctlPosixTest, ALinkIsFollowedToTheFileThatItReplaces)
{
    std::filesystem::create_directory("real");
    service.folder().write("real/old.rec", "old");
    std::filesystem::create_symlink("real/old.rec", "out.rec");
    EXPECT_EQ(run({"play", "x", "-o", "out.rec"}).status, 4);
    EXPECT_EQ(run({"play", "x", "-o", "out.rec", "--force"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink("out.rec"));
    EXPECT_EQ(file_text("real/old.rec"), text_of(file));
}
